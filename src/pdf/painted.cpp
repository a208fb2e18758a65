#include "pdf/painted.hpp"

#include "pdf/content.hpp"
#include "text/macroman.hpp"
#include "util/result.hpp"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <zlib.h>

namespace vellum::pdf::painted {

namespace {

// Compresses a page's operators for the wait until the file is written. The fastest level does: the
// operators are numbers and a few names that repeat, which even it takes to a fifth or less, and
// every page of the document passes through here. Nothing when zlib cannot start or fails.
std::optional<std::string> packed(std::string_view bytes) {
    z_stream z{};
    if (deflateInit_(&z, Z_BEST_SPEED, ZLIB_VERSION, sizeof(z_stream)) != Z_OK) {
        return std::nullopt;
    }
    std::string out(deflateBound(&z, uLong(bytes.size())), '\0');
    z.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(bytes.data()));
    z.avail_in = uInt(bytes.size());
    z.next_out = reinterpret_cast<Bytef*>(out.data());
    z.avail_out = uInt(out.size());
    int const status = ::deflate(&z, Z_FINISH);
    out.resize(out.size() - z.avail_out);
    deflateEnd(&z);
    if (status != Z_STREAM_END) {
        return std::nullopt;
    }
    out.shrink_to_fit();
    return out;
}

void put_number(std::string& out, std::uint32_t n) {
    while (n >= 0x80) {
        out += char((n & 0x7F) | 0x80);
        n >>= 7;
    }
    out += char(n);
}

std::uint32_t get_number(std::string_view in, std::size_t& pos) {
    std::uint32_t n = 0;
    for (int shift = 0; pos < in.size(); shift += 7) {
        auto const b = std::uint8_t(in[pos++]);
        n |= std::uint32_t(b & 0x7F) << shift;
        if ((b & 0x80) == 0) {
            return n;
        }
    }
    // The shows were encoded here, in this run: running out of them is a fault.
    throw internal_error("painted::get_number");
}

// The operators and the shows, uncompressed: the content itself when it waits so, else decompressed
// into `holder`.
std::string_view unpacked(recorded_content const& content, std::string& holder) {
    if (!content.content_compressed) {
        return content.content_packed;
    }
    std::uint32_t const total = content.content_size + content.content_show_size;
    std::string& out = holder;
    out.assign(total, '\0');
    uLongf size = total;
    int const status = uncompress(reinterpret_cast<Bytef*>(out.data()), &size,
                                  reinterpret_cast<Bytef const*>(content.content_packed.data()),
                                  uLong(content.content_packed.size()));
    // The data was compressed here, in this run: anything but its own size back is a fault.
    check(status == Z_OK && size == total, "painted::unpacked");
    return out;
}

void decode_shows(recorded_content const& content, std::string_view shows,
                  std::function<void(glyph_show const&)> const& f) {
    std::size_t pos = 0;
    glyph_show s;
    for (std::uint32_t i = 0; i < content.content_show_count; ++i) {
        s.show_at += get_number(shows, pos);
        auto const font = get_number(shows, pos);
        check(font < content.content_fonts.size(), "painted::decode_shows");
        s.show_font = content.content_fonts[font];
        s.show_font_index = font;
        s.show_glyphs.resize(get_number(shows, pos));
        for (auto& g : s.show_glyphs) {
            g = get_number(shows, pos);
            check(g < content.content_glyph_table.size(), "painted::decode_shows");
        }
        f(s);
    }
}

} // namespace

bool recorder::sink_write(void* target, std::uint8_t const* data, std::size_t size) {
    static_cast<recorder*>(target)->recorder_bytes.append(reinterpret_cast<char const*>(data), size);
    return true;
}

bulkio::output::output recorder::output() {
    return {.output_write = &recorder::sink_write, .output_target = this};
}

recorder* recorder_of(bulkio::output::output const& o) {
    return o.output_write == &recorder::sink_write ? static_cast<recorder*>(o.output_target) : nullptr;
}

void recorder::show(fonts::font_ref const& font, std::span<fonts::glyph const* const> glyphs) {
    auto& c = recorder_content;
    auto const at = std::uint32_t(recorder_bytes.size());
    auto const font_index =
        std::uint32_t(std::find(c.content_fonts.begin(), c.content_fonts.end(), font.get()) - c.content_fonts.begin());
    if (font_index == c.content_fonts.size()) {
        c.content_fonts.push_back(font.get());
    }
    put_number(recorder_shows, at - recorder_last_at);
    put_number(recorder_shows, font_index);
    put_number(recorder_shows, std::uint32_t(glyphs.size()));
    recorder_last_at = at;
    ++c.content_show_count;
    for (auto const* gl : glyphs) {
        std::uint8_t mac = '?';
        if (!gl->glyph_unicodes.empty()) {
            mac = macroman::from_unicode(gl->glyph_unicodes.front()).value_or(std::uint8_t('?'));
        }
        glyph_key const key{.key_font = gl->glyph_font_ref.get(), .key_source = gl->glyph_source, .key_macroman = mac};
        bool fresh = false;
        auto& entry = known(key, fresh);
        bool const has_chars = !gl->glyph_unicodes.empty();
        if (fresh || (!entry.known_chars && has_chars)) {
            // The font's glyph table learns the characters once per page, not at every occurrence: each
            // visit takes the process-wide lock.
            auto index = fonts::record_glyph(gl->glyph_font_ref, gl->glyph_source, gl->glyph_unicodes);
            if (fresh) {
                entry.known_place = std::uint32_t(c.content_glyph_table.size());
                c.content_glyph_table.push_back({.page_glyph_index = std::move(index), .page_glyph_macroman = mac});
            }
            entry.known_chars = has_chars;
        }
        put_number(recorder_shows, entry.known_place);
    }
}

recorder::known_glyph& recorder::known(glyph_key const& key, bool& fresh) {
    if ((recorder_known_count + 1) * 2 > recorder_known.size()) {
        // Half full at most: twice the room, the page's glyphs moved over.
        auto old = std::exchange(recorder_known, std::vector<known_slot>(std::max<std::size_t>(256, recorder_known.size() * 2)));
        recorder_known_count = 0;
        for (auto const& slot : old) {
            if (slot.slot_page == recorder_page) {
                bool moved = false;
                known(slot.slot_key, moved) = slot.slot_glyph;
            }
        }
    }
    auto h = (std::uint64_t(reinterpret_cast<std::uintptr_t>(key.key_font)) >> 4) * 0x9e3779b97f4a7c15ull ^
             (std::uint64_t(key.key_source) << 8 | key.key_macroman) * 0xc2b2ae3d27d4eb4full;
    h ^= h >> 29;
    std::size_t const mask = recorder_known.size() - 1;
    for (std::size_t i = std::size_t(h) & mask;; i = (i + 1) & mask) {
        auto& slot = recorder_known[i];
        if (slot.slot_page != recorder_page) {
            slot = known_slot{.slot_key = key, .slot_glyph = {}, .slot_page = recorder_page};
            ++recorder_known_count;
            fresh = true;
            return slot.slot_glyph;
        }
        if (slot.slot_key == key) {
            fresh = false;
            return slot.slot_glyph;
        }
    }
}

recorded_content recorder::take() {
    // The next page's glyphs start afresh: the slots of this one count as empty from now on.
    ++recorder_page;
    recorder_known_count = 0;
    auto out = std::exchange(recorder_content, {});
    // The places of the shows are 32 bits, and so is zlib's count of input.
    check(recorder_bytes.size() + recorder_shows.size() <= std::numeric_limits<std::uint32_t>::max(),
          "recorder::take");
    out.content_size = std::uint32_t(recorder_bytes.size());
    out.content_show_size = std::uint32_t(recorder_shows.size());
    recorder_bytes += recorder_shows;
    std::optional<std::string> p;
    if (recorder_bytes.size() <= recorder_plain_left) {
        recorder_plain_left -= recorder_bytes.size();
    } else {
        p = packed(recorder_bytes);
    }
    if (p) {
        out.content_packed = std::move(*p);
        out.content_compressed = true;
    } else {
        out.content_packed = recorder_bytes;
    }
    recorder_bytes.clear();
    recorder_shows.clear();
    recorder_last_at = 0;
    out.content_fonts.shrink_to_fit();
    out.content_glyph_table.shrink_to_fit();
    return out;
}

void for_each_show(recorded_content const& content, std::function<void(glyph_show const&)> const& f) {
    std::string holder;
    auto const all = unpacked(content, holder);
    decode_shows(content, all.substr(content.content_size), f);
}

std::string operator_bytes(recorded_content const& content) {
    std::string holder;
    return std::string(unpacked(content, holder).substr(0, content.content_size));
}

void replay(recorded_content const& content, bulkio::output::output const& o) {
    std::string holder;
    auto const all = unpacked(content, holder);
    auto const bytes = all.substr(0, content.content_size);
    auto const shows = all.substr(content.content_size);
    // The fonts' encodings and glyph numbers are settled before pages are written: each is read once
    // for the page here rather than at every glyph shown, every read taking the process-wide lock.
    std::vector<fonts::font_pdf_encoding> encodings;
    encodings.reserve(content.content_fonts.size());
    for (auto const* font : content.content_fonts) {
        encodings.push_back(font->used_font_encoding->get());
    }
    std::vector<int> numbers(content.content_glyph_table.size(), 0);
    bool const numbered = std::any_of(encodings.begin(), encodings.end(), [](fonts::font_pdf_encoding e) {
        return e != fonts::font_pdf_encoding::macroman_encoding;
    });
    if (numbered) {
        for (std::size_t k = 0; k < numbers.size(); ++k) {
            numbers[k] = content.content_glyph_table[k].page_glyph_index->get();
        }
    }
    std::size_t done = 0;
    std::string shown;
    decode_shows(content, shows, [&](glyph_show const& s) {
        check(s.show_at >= done && s.show_at <= bytes.size(), "painted::replay");
        auto const encoding = encodings[s.show_font_index];
        shown.clear();
        for (auto const place : s.show_glyphs) {
            switch (encoding) {
            case fonts::font_pdf_encoding::macroman_encoding:
                shown += char(content.content_glyph_table[place].page_glyph_macroman);
                break;
            case fonts::font_pdf_encoding::standard_encoding:
                shown += char(numbers[place] & 0xFF);
                break;
            case fonts::font_pdf_encoding::identity_encoding:
                shown += char((numbers[place] >> 8) & 0xFF);
                shown += char(numbers[place] & 0xFF);
                break;
            }
        }
        bulkio::output::write_all(o, bulkio::output::as_bytes(bytes.substr(done, s.show_at - done)));
        done = s.show_at;
        if (encoding == fonts::font_pdf_encoding::identity_encoding) {
            content::show_hex(o, shown);
        } else {
            content::show_literal(o, shown);
        }
    });
    bulkio::output::write_all(o, bulkio::output::as_bytes(bytes.substr(done)));
}

void add_glyph_cells(recorded_content const& content, std::vector<cell<int> const*>& cells) {
    for (auto const& g : content.content_glyph_table) {
        cells.push_back(g.page_glyph_index.get());
    }
}

} // namespace vellum::pdf::painted
