#include "pdf/pdf.hpp"

#include "pdf/bulkio/crypt/md5.hpp"
#include "util/hex.hpp"
#include "util/ref.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <ctime>
#include <unistd.h>

namespace vellum::pdf {

namespace {

using bulkio::buffer::put_text;

void put_int(bulkio::buffer::buffer& out, std::int64_t value) {
    char digits[24];
    auto const end = std::to_chars(digits, digits + sizeof digits, value).ptr;
    put_text(out, std::string_view(digits, end - digits));
}

// Takes a reserved number out of the pending set and records where its object starts.
void mark_written(writer& w, ref r) {
    auto const i = r.ref_index - 1;
    if (i < 0 || i >= static_cast<std::int64_t>(w.writer_offsets.size()) ||
        w.writer_offsets[i] != unwritten) {
        raise(ref_already_used{r});
    }
    w.writer_offsets[i] = bulkio::buffer::position(*w.writer_output);
    --w.writer_unused_count;
}

std::string run_cipher(cipher const& c, std::string_view bytes) {
    std::string out(bytes);
    c(std::span(reinterpret_cast<std::uint8_t*>(out.data()), out.size()));
    return out;
}

// Rebuilds a value with every string encrypted under the object's key. A literal string is replaced by
// a hex string of the cipher of its UTF-8 bytes, so an encrypted object holds no literal strings.
object encrypt_value(encryption const& e, ref r, object const& value) {
    return std::visit(
        overloaded{
            [&](null const& x) { return object{x}; },
            [&](bool x) { return object{x}; },
            [&](std::int64_t x) { return object{x}; },
            [&](double x) { return object{x}; },
            [&](number const& x) { return object{x}; },
            [&](string const& x) {
                return object{hex{run_cipher(e.encryption_cipher_for(r), x.string_text)}};
            },
            [&](hex const& x) { return object{hex{run_cipher(e.encryption_cipher_for(r), x.hex_bytes)}}; },
            [&](name const& x) { return object{x}; },
            [&](array const& x) {
                array out;
                out.array_items.reserve(x.array_items.size());
                for (auto const& item : x.array_items) {
                    out.array_items.push_back(encrypt_value(e, r, item));
                }
                return object{std::move(out)};
            },
            [&](dict const& x) {
                dict out;
                out.dict_entries.reserve(x.dict_entries.size());
                for (auto const& [key, item] : x.dict_entries) {
                    out.dict_entries.emplace_back(key, encrypt_value(e, r, item));
                }
                return object{std::move(out)};
            },
            [&](ref const& x) { return object{x}; },
        },
        value);
}

void put_object(writer& w, ref r, object const& value) {
    check(!w.writer_in_stream, "write_object");
    mark_written(w, r);
    auto& out = *w.writer_output;
    put_int(out, r.ref_index);
    put_text(out, " 0 obj\n");
    write_value(out, value);
    put_text(out, "\nendobj\n\n");
}

// The cipher layer's write function: the bytes are copied into a block, encrypted there and put into
// the file buffer, so the caller's data is never changed.
bool write_crypt(void* target, std::uint8_t const* data, std::size_t size) {
    auto& c = *static_cast<crypt_info*>(target);
    std::array<std::uint8_t, 4096> block;
    while (size > 0) {
        auto const n = std::min(size, block.size());
        std::memcpy(block.data(), data, n);
        c.crypt_cipher(std::span(block.data(), n));
        bulkio::buffer::put_bytes(*c.crypt_file, {block.data(), n});
        data += n;
        size -= n;
    }
    return true;
}

// Closes one layer; a layer that cannot hand on its last bytes ends the run.
void close_wrapper(stream_wrapper& wrapper) {
    std::visit(overloaded{
                   [](ascii_hex_wrapper& x) { x.wrapper_hex.reset(); },
                   [](deflate_wrapper& x) {
                       if (!bulkio::deflate::finish(*x.wrapper_deflate)) {
                           throw bulkio::output::write_error("error writing to stream");
                       }
                       x.wrapper_deflate.reset();
                   },
                   [](buffer_wrapper& x) {
                       bulkio::buffer::flush(*x.wrapper_buffer);
                       x.wrapper_buffer.reset();
                   },
               },
               wrapper);
}

char const* filter_name(stream_filter f) {
    switch (f) {
    case stream_filter::as_is:
        return nullptr;
    case stream_filter::deflate:
    case stream_filter::flate_encoded:
        return "FlateDecode";
    case stream_filter::ascii_hex:
        return "ASCIIHexDecode";
    case stream_filter::dctdecode:
        return "DCTDecode";
    }
    return nullptr;
}

constexpr int (*hex_digit)(char) = util::hex::digit_value;

} // namespace

std::string_view version_text(pdf_version v) {
    switch (v) {
    case pdf_version::pdf_1_4:
        return "PDF-1.4";
    case pdf_version::pdf_1_5:
        return "PDF-1.5";
    case pdf_version::pdf_1_6:
        return "PDF-1.6";
    case pdf_version::pdf_1_7:
        return "PDF-1.7";
    }
    return "PDF-1.4";
}

writer start_pdf(bulkio::buffer::buffer& file,
                 pdf_version version,
                 std::optional<profile::pdf_profile> profile,
                 std::string document_id,
                 std::optional<encryption> encrypt) {
    writer w{
        .writer_output = &file,
        .writer_profile = profile,
        .writer_document_id = std::move(document_id),
        .writer_encryption = std::move(encrypt),
    };
    put_text(file, "%");
    put_text(file, version_text(version));
    // A comment of bytes above 127 right after the header tells transfer tools that the file is binary.
    put_text(file, "\n%\xE2\xE3\xCF\xD3\n\n");
    return w;
}

bool strips_transparency(writer const& w) {
    return w.writer_profile && !profile::rules_of(*w.writer_profile).transparency_allowed;
}

bool forbids_page_group(writer const& w) {
    // A page group exists to composite transparency, so it goes with what the profile says about that.
    return strips_transparency(w);
}

bool requires_dates(writer const& w) {
    return w.writer_profile && profile::rules_of(*w.writer_profile).dates_required;
}

bool forbids_device_rgb(writer const& w) {
    return w.writer_profile && !profile::rules_of(*w.writer_profile).device_rgb_allowed;
}

bool requires_page_boxes(writer const& w) {
    return w.writer_profile && profile::rules_of(*w.writer_profile).page_boxes_required;
}

ref new_ref(writer& w) {
    ref const r{w.writer_next_ref++};
    w.writer_offsets.push_back(unwritten);
    ++w.writer_unused_count;
    return r;
}

void write_object(writer& w, ref r, object const& value) {
    if (w.writer_encryption) {
        put_object(w, r, encrypt_value(*w.writer_encryption, r, value));
    } else {
        put_object(w, r, value);
    }
}

void write_object_plain(writer& w, ref r, object const& value) {
    put_object(w, r, value);
}

stream_data begin_stream(writer& w, ref r, stream const& s) {
    check(!w.writer_in_stream, "begin_stream");
    auto& file = *w.writer_output;
    stream_data data;

    // /Length comes first; when the length is not known it is reserved now as a reference, so the length
    // object gets the number after those reserved before it and is written right after the stream.
    dict d;
    d.dict_entries.reserve(2 + s.stream_params.dict_entries.size());
    if (s.stream_length) {
        d.dict_entries.emplace_back("Length", *s.stream_length);
        data.stream_length = direct_length{*s.stream_length};
    } else {
        auto const length_ref = new_ref(w);
        d.dict_entries.emplace_back("Length", length_ref);
        data.stream_length = indirect_auto{length_ref};
    }
    if (auto const filter = filter_name(s.stream_filter)) {
        d.dict_entries.emplace_back("Filter", name{filter});
    }
    d.dict_entries.insert(d.dict_entries.end(), s.stream_params.dict_entries.begin(),
                          s.stream_params.dict_entries.end());

    mark_written(w, r);

    // In an encrypted file the dictionary's strings and the data are both encrypted with the object's key;
    // the cipher stands behind the filters, so data is compressed first and encrypted after.
    object dict_value{std::move(d)};
    bulkio::output::output sink = bulkio::buffer::as_output(file);
    if (w.writer_encryption) {
        dict_value = encrypt_value(*w.writer_encryption, r, dict_value);
        data.stream_crypt = std::make_unique<crypt_info>(crypt_info{
            .crypt_cipher = w.writer_encryption->encryption_cipher_for(r),
            .crypt_file = &file,
        });
        sink = {.output_write = write_crypt, .output_target = data.stream_crypt.get()};
    }

    put_int(file, r.ref_index);
    put_text(file, " 0 obj\n");
    write_value(file, dict_value);
    put_text(file, "\nstream\n");
    data.stream_start = bulkio::buffer::position(file);

    // The body is written into a buffer. With no layer to pass that is the file buffer itself; otherwise
    // a buffer in front of the layers gathers the caller's small writes into large runs.
    switch (s.stream_filter) {
    case stream_filter::deflate: {
        auto z = bulkio::deflate::open(sink);
        check(z != nullptr, "begin_stream: deflate");
        sink = bulkio::deflate::as_output(*z);
        data.stream_wrappers.emplace_back(deflate_wrapper{std::move(z)});
        break;
    }
    case stream_filter::ascii_hex: {
        auto h = bulkio::hex::open(sink);
        sink = bulkio::hex::as_output(*h);
        data.stream_wrappers.emplace_back(ascii_hex_wrapper{std::move(h)});
        break;
    }
    case stream_filter::as_is:
    case stream_filter::dctdecode:
    case stream_filter::flate_encoded:
        break;
    }
    if (data.stream_wrappers.empty() && !data.stream_crypt) {
        data.stream_body = &file;
    } else {
        auto front = bulkio::buffer::open(sink);
        data.stream_body = front.get();
        data.stream_wrappers.insert(data.stream_wrappers.begin(), buffer_wrapper{std::move(front)});
    }
    w.writer_in_stream = true;
    return data;
}

void end_stream(writer& w, stream_data data) {
    check(w.writer_in_stream, "end_stream");
    for (auto& wrapper : data.stream_wrappers) {
        close_wrapper(wrapper);
    }
    data.stream_crypt.reset();
    w.writer_in_stream = false;

    auto& file = *w.writer_output;
    auto const end = bulkio::buffer::position(file);
    put_text(file, "\nendstream");
    put_text(file, "\nendobj\n\n");
    std::int64_t const actual = static_cast<std::uint32_t>(end - data.stream_start);
    std::visit(overloaded{
                   [&](indirect_auto const& x) { write_object(w, x.indirect_ref, actual); },
                   [&](direct_length const& x) {
                       if (x.direct_value != actual) {
                           raise(incorrect_stream_length{.specified = x.direct_value, .actual = actual});
                       }
                   },
               },
               data.stream_length);
}

void write_stream_bytes(
    writer& w, ref r, stream_filter filter, dict params, std::span<std::uint8_t const> data) {
    // Only unfiltered data (and JPEG data, which is written as it is) has a length known beforehand.
    std::optional<std::int64_t> length;
    if (filter == stream_filter::as_is || filter == stream_filter::dctdecode) {
        length = static_cast<std::int64_t>(data.size());
    }
    stream const s{.stream_filter = filter, .stream_length = length, .stream_params = std::move(params)};
    write_stream_with(w, r, s, [&](bulkio::buffer::buffer& body) { bulkio::buffer::put_bytes(body, data); });
}

void write_root(writer& w, ref r, dict const& catalog) {
    if (w.writer_root) {
        raise(root_already_written{*w.writer_root});
    }
    write_object(w, r, catalog);
    w.writer_root = r;
}

ref write_info(writer& w, dict const& info) {
    if (w.writer_info) {
        raise(info_already_written{*w.writer_info});
    }
    auto const r = new_ref(w);
    write_object(w, r, info);
    w.writer_info = r;
    return r;
}

void write_encrypt(writer& w) {
    if (!w.writer_encryption) {
        return;
    }
    check(!w.writer_encrypt, "write_encrypt");
    auto const r = new_ref(w);
    write_object_plain(w, r, w.writer_encryption->encryption_dict);
    w.writer_encrypt = r;
}

void finish_pdf(writer& w) {
    check(!w.writer_in_stream, "finish_pdf");
    // The table below has a single subsection from 0, so every reserved number must have its object.
    if (w.writer_unused_count > 0) {
        unused_refs missing;
        for (auto i = static_cast<std::int64_t>(w.writer_offsets.size()); i > 0; --i) {
            if (w.writer_offsets[i - 1] == unwritten) {
                missing.unused_list.push_back(ref{i});
            }
        }
        raise(std::move(missing));
    }
    auto& out = *w.writer_output;
    auto const xref_start = bulkio::buffer::position(out);
    auto const count = static_cast<std::int64_t>(w.writer_offsets.size());
    put_text(out, "xref\n0 ");
    put_int(out, count + 1);
    // Entry 0 heads the (empty) list of free objects. Every entry is exactly 20 bytes, its own line
    // end included, so a reader can find object n at a fixed place in the table.
    put_text(out, "\n0000000000 65535 f \n");
    for (auto const offset : w.writer_offsets) {
        char entry[21];
        auto v = static_cast<std::uint64_t>(offset);
        for (int i = 9; i >= 0; --i) {
            entry[i] = static_cast<char>('0' + v % 10);
            v /= 10;
        }
        std::memcpy(entry + 10, " 00000 n \n", 10);
        put_text(out, std::string_view(entry, 20));
    }
    put_text(out, "\ntrailer\n");
    if (!w.writer_root) {
        raise(missing_root_object{});
    }
    dict trailer;
    if (w.writer_encrypt) {
        trailer.dict_entries.emplace_back("Encrypt", *w.writer_encrypt);
    }
    if (w.writer_info) {
        trailer.dict_entries.emplace_back("Info", *w.writer_info);
    }
    trailer.dict_entries.emplace_back("Size", count + 1);
    trailer.dict_entries.emplace_back("Root", *w.writer_root);
    trailer.dict_entries.emplace_back("ID", array{{hex{w.writer_document_id}, hex{w.writer_document_id}}});
    write_value(out, trailer);
    put_text(out, "\nstartxref\n");
    put_int(out, xref_start);
    put_text(out, "\n%%EOF\n");
}

std::string document_id_from_hex(std::string_view text) {
    std::string id;
    for (std::size_t i = 0; i + 1 < text.size(); i += 2) {
        int const hi = hex_digit(text[i]);
        int const lo = hex_digit(text[i + 1]);
        if (hi < 0 || lo < 0) {
            break;
        }
        id.push_back(static_cast<char>(hi * 16 + lo));
    }
    return id;
}

std::string new_document_id() {
    auto const now = static_cast<std::uint32_t>(std::time(nullptr));
    auto const pid = static_cast<std::uint32_t>(getpid());
    std::uint8_t seed[8];
    for (int i = 0; i < 4; ++i) {
        seed[i] = static_cast<std::uint8_t>(now >> (8 * i));
        seed[4 + i] = static_cast<std::uint8_t>(pid >> (8 * i));
    }
    auto const digest = bulkio::crypt::md5::of(seed);
    return std::string(reinterpret_cast<char const*>(digest.data()), digest.size());
}

} // namespace vellum::pdf
