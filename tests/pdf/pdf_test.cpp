#include "pdf/bulkio/file.hpp"
#include "pdf/memory_sink.hpp"
#include "pdf/pdf.hpp"

#include <cstdio>
#include <fstream>
#include <map>
#include <sstream>

#include <zlib.h>

#include "run_command.hpp"

#include <gtest/gtest.h>

namespace vellum::pdf {
namespace {

using testing::memory_sink;
using testing::output_of;

std::span<std::uint8_t const> bytes_of(std::string_view text) {
    return bulkio::output::as_bytes(text);
}

// A writer whose file goes to memory.
struct memory_file {
    memory_sink file_sink;
    std::unique_ptr<bulkio::buffer::buffer> file_buffer = bulkio::buffer::open(output_of(file_sink));

    writer start(std::optional<encryption> e = std::nullopt, pdf_version v = pdf_version::pdf_1_4) {
        return start_pdf(*file_buffer, v, std::nullopt, "\x01\x02\xAB", std::move(e));
    }

    std::string const& bytes() {
        bulkio::buffer::flush(*file_buffer);
        return file_sink.sink_bytes;
    }
};

// The smallest complete document: catalog, page tree and one empty page.
void write_minimal_pages(writer& w) {
    auto const catalog = new_ref(w);
    auto const pages = new_ref(w);
    auto const page = new_ref(w);
    write_object(w, page,
                 dict{{{"Type", name{"Page"}},
                       {"Parent", pages},
                       {"MediaBox", rect_to_array({.right = std::int64_t{200}, .top = std::int64_t{100}})}}});
    write_object(w, pages,
                 dict{{{"Type", name{"Pages"}}, {"Kids", array{{page}}}, {"Count", std::int64_t{1}}}});
    write_root(w, catalog, dict{{{"Type", name{"Catalog"}}, {"Pages", pages}}});
}

// Reads the cross-reference table the way a reader does, from the offset after "startxref", and returns
// the offset of each object by number.
std::map<int, std::size_t> read_xref(std::string const& file) {
    std::map<int, std::size_t> offsets;
    auto const sx = file.rfind("startxref\n");
    EXPECT_NE(sx, std::string::npos);
    if (sx == std::string::npos) {
        return offsets;
    }
    auto const start = std::stoul(file.substr(sx + 10));
    EXPECT_EQ(file.substr(start, 5), "xref\n");
    std::istringstream in(file.substr(start + 5));
    int first = -1;
    int count = -1;
    in >> first >> count;
    EXPECT_EQ(first, 0);
    in.get();
    std::string entry(20, '\0');
    for (int i = 0; i < count; ++i) {
        in.read(entry.data(), 20);
        if (i == 0) {
            EXPECT_EQ(entry, "0000000000 65535 f \n");
            continue;
        }
        EXPECT_EQ(entry.substr(10), " 00000 n \n") << "entry " << i;
        offsets[i] = std::stoul(entry.substr(0, 10));
    }
    return offsets;
}

void expect_offsets_point_at_objects(std::string const& file) {
    auto const offsets = read_xref(file);
    EXPECT_FALSE(offsets.empty());
    for (auto const& [number, offset] : offsets) {
        auto const head = std::to_string(number) + " 0 obj\n";
        EXPECT_EQ(file.substr(offset, head.size()), head) << "object " << number;
    }
}

// Runs a command and gives its exit status and its standard output and error.
using testing::run;

std::string read_file(std::string const& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

pdf_exception caught(auto&& action) {
    try {
        action();
    } catch (pdf_error const& e) {
        return e.pdf_error_value;
    }
    ADD_FAILURE() << "no pdf_error";
    return graphics_state_stack_underflow{};
}

TEST(pdf, header_is_exact_for_each_version) {
    struct {
        pdf_version version;
        char const* text;
    } const cases[] = {
        {pdf_version::pdf_1_4, "%PDF-1.4\n"},
        {pdf_version::pdf_1_5, "%PDF-1.5\n"},
        {pdf_version::pdf_1_6, "%PDF-1.6\n"},
        {pdf_version::pdf_1_7, "%PDF-1.7\n"},
    };

    for (auto const& c : cases) {
        SCOPED_TRACE(c.text);
        memory_file f;
        auto w = f.start(std::nullopt, c.version);
        EXPECT_EQ(f.bytes(), std::string(c.text) + "%\xE2\xE3\xCF\xD3\n\n");
    }
}

TEST(pdf, numbers_start_at_one_and_objects_have_their_frame) {
    memory_file f;
    auto w = f.start();
    auto const first = new_ref(w);
    auto const second = new_ref(w);
    EXPECT_EQ(first, ref{1});
    EXPECT_EQ(second, ref{2});
    // A number may be written long after later ones.
    write_object(w, second, string{"b"});
    write_object(w, first, array{{second}});
    auto const& bytes = f.bytes();
    auto const body = bytes.substr(bytes.find("2 0 obj"));
    EXPECT_EQ(body, "2 0 obj\n(b)\nendobj\n\n1 0 obj\n[2 0 R]\nendobj\n\n");
    EXPECT_EQ(w.writer_offsets[1], static_cast<std::int64_t>(bytes.find("2 0 obj")));
    EXPECT_EQ(w.writer_offsets[0], static_cast<std::int64_t>(bytes.find("1 0 obj")));
}

TEST(pdf, whole_file_passes_qpdf_and_reads_back) {
    std::string const path = ::testing::TempDir() + "pdf_writer_small.pdf";
    std::FILE* file = std::fopen(path.c_str(), "wb");
    ASSERT_NE(file, nullptr);
    auto buffer = bulkio::buffer::open(bulkio::file::file_output(file));
    auto w = start_pdf(*buffer, pdf_version::pdf_1_4, std::nullopt,
                       document_id_from_hex("00112233445566778899aabbccddeeff"), std::nullopt);

    auto const catalog = new_ref(w);
    auto const pages = new_ref(w);
    auto const page = new_ref(w);
    auto const font = new_ref(w);
    auto const content = new_ref(w);
    auto const image = new_ref(w);
    write_root(w, catalog, dict{{{"Type", name{"Catalog"}}, {"Pages", pages}}});
    write_object(w, pages,
                 dict{{{"Type", name{"Pages"}}, {"Kids", array{{page}}}, {"Count", std::int64_t{1}}}});
    write_object(w, font,
                 dict{{{"Type", name{"Font"}}, {"Subtype", name{"Type1"}}, {"BaseFont", name{"Helvetica"}}}});
    write_object(
        w, page,
        dict{{{"Type", name{"Page"}},
              {"Parent", pages},
              {"MediaBox", rect_to_array({.right = std::int64_t{300}, .top = 200.5})},
              {"Resources", dict{{{"Font", dict{{{"F1", font}}}}, {"XObject", dict{{{"Im1", image}}}}}}},
              {"Contents", content}}});
    write_stream_with(w, content, stream{.stream_filter = stream_filter::deflate}, [](auto& body) {
        bulkio::buffer::put_text(body, "BT /F1 24 Tf 20 100 Td (Hello Vellum) Tj ET\n");
        bulkio::buffer::put_text(body, "q 40 0 0 40 200 20 cm /Im1 Do Q\n");
    });
    // A 4 by 4 grey ramp, hex-encoded, so the hex layer's output is decoded by the checker too.
    std::string pixels;
    for (int i = 0; i < 16; ++i) {
        pixels.push_back(static_cast<char>(i * 16));
    }
    write_stream_bytes(w, image, stream_filter::ascii_hex,
                       dict{{{"Type", name{"XObject"}},
                             {"Subtype", name{"Image"}},
                             {"Width", std::int64_t{4}},
                             {"Height", std::int64_t{4}},
                             {"ColorSpace", name{"DeviceGray"}},
                             {"BitsPerComponent", std::int64_t{8}}}},
                       bytes_of(pixels));
    write_info(w, dict{{{"Title", text_string("Caf\xC3\xA9 (menu)")}, {"Producer", text_string("Vellum")}}});
    write_encrypt(w);
    finish_pdf(w);
    bulkio::buffer::flush(*buffer);
    ASSERT_EQ(std::fclose(file), 0);

    auto const [status, report] = run("qpdf --check " + path);
    EXPECT_EQ(status, 0) << report;
    EXPECT_NE(report.find("No syntax or stream encoding errors found"), std::string::npos) << report;
    EXPECT_EQ(report.find("WARNING"), std::string::npos) << report;

    auto const bytes = read_file(path);
    expect_offsets_point_at_objects(bytes);
    // Six objects, two length objects for the filtered streams, the information dictionary.
    EXPECT_EQ(read_xref(bytes).size(), 9u);
    EXPECT_NE(
        bytes.find("trailer\n<</Info 9 0 R\n/Size 10\n/Root 1 0 R\n/ID [<00112233445566778899AABBCCDDEEFF> "
                   "<00112233445566778899AABBCCDDEEFF>]>>\nstartxref\n"),
        std::string::npos);
    EXPECT_EQ(bytes.substr(bytes.size() - 6), "%%EOF\n");
    EXPECT_NE(bytes.find("\n\ntrailer\n"), std::string::npos);

    auto const [text_status, text] = run("pdftotext -layout " + path + " -");
    EXPECT_EQ(text_status, 0);
    EXPECT_NE(text.find("Hello Vellum"), std::string::npos) << text;
    auto const [info_status, info] = run("pdfinfo " + path);
    EXPECT_EQ(info_status, 0);
    EXPECT_NE(info.find("Caf\xC3\xA9 (menu)"), std::string::npos) << info;
    EXPECT_NE(info.find("Page size:       300 x 200.5 pts"), std::string::npos) << info;

    // The image's 4 by 4 ramp runs from black at its top left to near white at its bottom right; it
    // covers x 200 to 240 and, on a page 200.5 high, y 140.5 to 180.5 from the top.
    auto const [png_status, png_report] = run("pdftoppm -r 72 -gray -singlefile " + path + " " + path);
    ASSERT_EQ(png_status, 0) << png_report;
    auto const pixels_of = read_file(path + ".pgm");
    ASSERT_EQ(pixels_of.substr(0, 3), "P5\n");
    std::istringstream head(pixels_of.substr(3));
    int width = 0;
    int height = 0;
    int depth = 0;
    head >> width >> height >> depth;
    ASSERT_EQ(width, 300);
    auto const data_start = pixels_of.size() - static_cast<std::size_t>(width) * height;
    auto const grey = [&](int x, int y) {
        return static_cast<unsigned char>(pixels_of[data_start + static_cast<std::size_t>(y) * width + x]);
    };
    EXPECT_LT(grey(203, 143), 20);
    EXPECT_GT(grey(237, 178), 220);
    EXPECT_EQ(grey(100, 20), 255);
}

TEST(pdf, stream_of_unknown_length_gives_a_length_object_after_it) {
    memory_file f;
    auto w = f.start();
    auto const s = new_ref(w);
    write_stream_with(w, s, stream{.stream_params = dict{{{"Type", name{"Test"}}}}},
                      [](auto& body) { bulkio::buffer::put_text(body, "0123456789"); });
    EXPECT_EQ(w.writer_next_ref, 3);
    auto const& bytes = f.bytes();
    EXPECT_EQ(bytes.substr(bytes.find("1 0 obj")),
              "1 0 obj\n<</Length 2 0 R\n/Type /Test>>\nstream\n0123456789\nendstream\nendobj\n\n"
              "2 0 obj\n10\nendobj\n\n");
}

TEST(pdf, zero_byte_stream_has_length_zero) {
    memory_file f;
    auto w = f.start();
    auto const s = new_ref(w);
    write_stream_bytes(w, s, stream_filter::as_is, {}, {});
    auto const t = new_ref(w);
    write_stream_with(w, t, stream{}, [](auto&) {});
    auto const& bytes = f.bytes();
    EXPECT_NE(bytes.find("1 0 obj\n<</Length 0>>\nstream\n\nendstream\nendobj\n\n"), std::string::npos);
    EXPECT_NE(bytes.find("2 0 obj\n<</Length 3 0 R>>\nstream\n\nendstream\nendobj\n\n3 0 obj\n0\nendobj"),
              std::string::npos);
}

TEST(pdf, stream_dictionary_puts_length_then_filter_then_params) {
    struct {
        stream_filter filter;
        char const* expected;
    } const cases[] = {
        {stream_filter::as_is, "<</Length 3\n/W 1>>"},
        {stream_filter::dctdecode, "<</Length 3\n/Filter /DCTDecode\n/W 1>>"},
        {stream_filter::deflate, "<</Length 2 0 R\n/Filter /FlateDecode\n/W 1>>"},
        {stream_filter::ascii_hex, "<</Length 2 0 R\n/Filter /ASCIIHexDecode\n/W 1>>"},
    };

    for (auto const& c : cases) {
        SCOPED_TRACE(c.expected);
        memory_file f;
        auto w = f.start();
        write_stream_bytes(w, new_ref(w), c.filter, dict{{{"W", std::int64_t{1}}}}, bytes_of("abc"));
        EXPECT_NE(f.bytes().find(std::string("1 0 obj\n") + c.expected + "\nstream\n"), std::string::npos);
    }
}

TEST(pdf, hex_stream_length_counts_line_feeds_and_has_no_end_mark) {
    memory_file f;
    auto w = f.start();
    std::string const data(100, '\x5A');
    write_stream_bytes(w, new_ref(w), stream_filter::ascii_hex, {}, bytes_of(data));
    auto const& bytes = f.bytes();
    auto const start = bytes.find("stream\n") + 7;
    auto const end = bytes.find("\nendstream");
    auto const body = bytes.substr(start, end - start);
    std::string line;
    for (int i = 0; i < 36; ++i) {
        line += "5A";
    }
    EXPECT_EQ(body, line + "\n" + line + "\n" + line.substr(0, 56));
    EXPECT_EQ(body.size(), 202u);
    EXPECT_EQ(body[72], '\n');
    EXPECT_EQ(body[145], '\n');
    EXPECT_EQ(body.find('>'), std::string::npos);
    EXPECT_NE(bytes.find("2 0 obj\n202\nendobj"), std::string::npos);
}

TEST(pdf, deflated_stream_inflates_to_the_body) {
    memory_file f;
    auto w = f.start();
    std::string body;
    for (int i = 0; i < 3000; ++i) {
        body += std::to_string(i) + " 0 m " + std::to_string(i * 2) + " 10 l S\n";
    }
    write_stream_bytes(w, new_ref(w), stream_filter::deflate, {}, bytes_of(body));
    auto const& bytes = f.bytes();
    auto const start = bytes.find("stream\n") + 7;
    auto const end = bytes.find("\nendstream");
    auto const compressed = bytes.substr(start, end - start);
    EXPECT_NE(bytes.find("2 0 obj\n" + std::to_string(compressed.size()) + "\nendobj"), std::string::npos);
    std::string back(body.size(), '\0');
    uLongf size = back.size();
    ASSERT_EQ(uncompress(reinterpret_cast<Bytef*>(back.data()), &size,
                         reinterpret_cast<Bytef const*>(compressed.data()), compressed.size()),
              Z_OK);
    EXPECT_EQ(back, body);
}

TEST(pdf, declared_length_is_checked) {
    memory_file f;
    auto w = f.start();
    auto const s = new_ref(w);
    EXPECT_EQ(caught([&] {
                  write_stream_with(w, s, stream{.stream_length = 5},
                                    [](auto& body) { bulkio::buffer::put_text(body, "abc"); });
              }),
              (pdf_exception{incorrect_stream_length{.specified = 5, .actual = 3}}));
}

TEST(pdf, reference_can_be_written_only_once) {
    memory_file f;
    auto w = f.start();
    auto const r = new_ref(w);
    write_object(w, r, null{});
    EXPECT_EQ(caught([&] { write_object(w, r, null{}); }), pdf_exception{ref_already_used{r}});
    // A number never handed out counts as used, and so does a stream on a written number.
    EXPECT_EQ(caught([&] { write_object(w, ref{9}, null{}); }), pdf_exception{ref_already_used{ref{9}}});
    EXPECT_EQ(caught([&] { write_stream_bytes(w, r, stream_filter::as_is, {}, {}); }),
              pdf_exception{ref_already_used{r}});
}

TEST(pdf, unused_references_are_reported_at_finish) {
    memory_file f;
    auto w = f.start();
    auto const a = new_ref(w);
    auto const b = new_ref(w);
    auto const c = new_ref(w);
    auto const d = new_ref(w);
    write_object(w, b, null{});
    write_root(w, d, dict{});
    EXPECT_EQ(caught([&] { finish_pdf(w); }), (pdf_exception{unused_refs{{c, a}}}));
}

TEST(pdf, root_is_required_and_written_once) {
    {
        memory_file f;
        auto w = f.start();
        write_object(w, new_ref(w), null{});
        EXPECT_EQ(caught([&] { finish_pdf(w); }), pdf_exception{missing_root_object{}});
    }
    {
        memory_file f;
        auto w = f.start();
        auto const first = new_ref(w);
        write_root(w, first, dict{});
        EXPECT_EQ(caught([&] { write_root(w, new_ref(w), dict{}); }),
                  pdf_exception{root_already_written{first}});
    }
}

TEST(pdf, information_dictionary_is_written_once) {
    memory_file f;
    auto w = f.start();
    auto const info = write_info(w, dict{{{"Title", text_string("A")}}});
    EXPECT_EQ(info, ref{1});
    EXPECT_EQ(caught([&] { write_info(w, dict{}); }), pdf_exception{info_already_written{info}});
}

TEST(pdf, minimal_document_has_dense_table_and_size) {
    memory_file f;
    auto w = f.start();
    write_minimal_pages(w);
    write_encrypt(w);
    finish_pdf(w);
    auto const& bytes = f.bytes();
    auto const offsets = read_xref(bytes);
    EXPECT_EQ(offsets.size(), 3u);
    EXPECT_NE(bytes.find("xref\n0 4\n0000000000 65535 f \n"), std::string::npos);
    EXPECT_NE(bytes.find("/Size 4\n/Root 1 0 R"), std::string::npos);
    // Without encryption there is no encryption dictionary and no /Encrypt entry.
    EXPECT_EQ(bytes.find("/Encrypt"), std::string::npos);
    expect_offsets_point_at_objects(bytes);
}

// A stand-in cipher for the seam: each byte is XORed with a key stream that depends on the object
// number, so the tests can tell which key was used and undo it.
encryption xor_encryption() {
    return encryption{
        .encryption_cipher_for =
            [](ref r) {
                return cipher([r, n = 0](std::span<std::uint8_t> data) mutable {
                    for (auto& b : data) {
                        b ^= static_cast<std::uint8_t>(r.ref_index * 16 + n++);
                    }
                });
            },
        .encryption_dict = dict{{{"Filter", name{"Standard"}}, {"O", string{"owner"}}, {"U", hex{"\x01"}}}},
    };
}

std::string xor_with(std::string data, std::int64_t number) {
    int n = 0;
    for (auto& c : data) {
        c = static_cast<char>(c ^ static_cast<char>(number * 16 + n++));
    }
    return data;
}

TEST(pdf, encrypted_file_has_no_literal_strings_outside_encryption_dictionary) {
    memory_file f;
    auto w = f.start(xor_encryption());
    auto const r = new_ref(w);
    write_object(w, r,
                 array{{string{"ab"}, hex{"ab"}, name{"N"}, dict{{{"T", string{"ab"}}}}, std::int64_t{1}}});
    write_encrypt(w);
    auto const bytes = f.bytes();
    // Each string starts its own key stream under the object's number.
    auto const enc = to_text(hex{xor_with("ab", 1)});
    EXPECT_NE(bytes.find("1 0 obj\n[" + enc + " " + enc + " /N <</T " + enc + ">> 1]\nendobj"),
              std::string::npos);
    EXPECT_NE(bytes.find("2 0 obj\n<</Filter /Standard\n/O (owner)\n/U <01>>>\nendobj"), std::string::npos);
    EXPECT_EQ(w.writer_encrypt, ref{2});
}

TEST(pdf, encrypted_stream_encrypts_dictionary_strings_and_data) {
    for (auto const filter : {stream_filter::as_is, stream_filter::ascii_hex}) {
        SCOPED_TRACE(static_cast<int>(filter));
        memory_file f;
        auto w = f.start(xor_encryption());
        auto const s = new_ref(w);
        write_stream_bytes(w, s, filter, dict{{{"Name", string{"x"}}}}, bytes_of("secret"));
        auto const& bytes = f.bytes();
        EXPECT_NE(bytes.find("/Name " + to_text(hex{xor_with("x", 1)})), std::string::npos);
        auto const start = bytes.find("stream\n") + 7;
        auto const end = bytes.find("\nendstream");
        auto const data = bytes.substr(start, end - start);
        // The cipher stands behind the filter: the hex digits are what gets encrypted.
        EXPECT_EQ(xor_with(data, 1), filter == stream_filter::as_is ? "secret" : "736563726574");
        EXPECT_EQ(bytes.find("secret"), std::string::npos);
    }
}

TEST(pdf, trailer_names_the_encryption_dictionary_first) {
    memory_file f;
    auto w = f.start(xor_encryption());
    write_minimal_pages(w);
    write_info(w, dict{});
    write_encrypt(w);
    finish_pdf(w);
    EXPECT_NE(f.bytes().find(
                  "trailer\n<</Encrypt 5 0 R\n/Info 4 0 R\n/Size 6\n/Root 1 0 R\n/ID [<0102AB> <0102AB>]>>"),
              std::string::npos);
}

TEST(pdf, profile_questions_follow_the_profile) {
    struct {
        char const* name;
        std::optional<profile::pdf_profile> profile;
        bool strips;
        bool dates;
        bool boxes;
    } const cases[] = {
        {"no profile", std::nullopt, false, false, false},
        {"PDF/A-1b", profile::pdf_profile::pdfa_1b, true, false, false},
        {"PDF/X-3", profile::pdf_profile::pdfx_3_2003, true, true, true},
        {"PDF/X-4", profile::pdf_profile::pdfx_4, false, true, true},
    };

    for (auto const& c : cases) {
        SCOPED_TRACE(c.name);
        memory_file f;
        auto const w = start_pdf(*f.file_buffer, pdf_version::pdf_1_4, c.profile, "", std::nullopt);
        EXPECT_EQ(strips_transparency(w), c.strips);
        EXPECT_EQ(forbids_page_group(w), c.strips);
        EXPECT_EQ(requires_dates(w), c.dates);
        EXPECT_EQ(requires_page_boxes(w), c.boxes);
    }
}

TEST(pdf, document_id_reads_hex_pairs_until_a_non_digit) {
    struct {
        char const* text;
        std::string expected;
    } const cases[] = {
        {"00ff10Aa", std::string("\x00\xFF\x10\xAA", 4)},
        {"abc", "\xAB"},
        {"ab-cd", "\xAB"},
        {"zz12", ""},
        {"", ""},
    };

    for (auto const& c : cases) {
        SCOPED_TRACE(c.text);
        EXPECT_EQ(document_id_from_hex(c.text), c.expected);
    }
}

TEST(pdf, fresh_document_id_is_an_md5_digest) {
    auto const id = new_document_id();
    EXPECT_EQ(id.size(), 16u);
    EXPECT_NE(id, std::string(16, '\0'));
}

} // namespace
} // namespace vellum::pdf
