// What a profile does to the options, the XMP packet, the ICC profiles of output intents, and an
// encrypted file written whole through the writer.
#include "pdf/conformance.hpp"
#include "pdf/encrypt.hpp"
#include "pdf/writepdf.hpp"
#include "pdf/bulkio/file.hpp"
#include "text/font_test_util.hpp"

#include <fstream>

#include "run_command.hpp"

#include <gtest/gtest.h>

namespace vellum::pdf::conformance {
namespace {

using font_test::captured_log;

std::vector<std::uint8_t> read_bytes(std::string const& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

TEST(conformance, options_are_brought_within_the_profile) {
    captured_log log;
    metadata::pdf_options o{.embed_fonts = false,
                            .encrypt = true,
                            .attach = {{}},
                            .pdf_script = "app.alert(1)",
                            .pdf_open_action = metadata::open_action_print{},
                            .pdf_profile = profile::pdf_profile::pdfx_4};
    auto const fitted = apply_profile(log.log, o);
    EXPECT_FALSE(fitted.encrypt);
    EXPECT_TRUE(fitted.embed_fonts);
    EXPECT_TRUE(fitted.attach.empty());
    EXPECT_FALSE(fitted.pdf_script);
    EXPECT_TRUE(std::holds_alternative<metadata::open_action_none>(fitted.pdf_open_action));
    EXPECT_EQ(log.text(), "vellum: error: PDF/X-4 does not support encryption\n"
                          "vellum: error: PDF/X-4 requires fonts to be embedded\n"
                          "vellum: error: PDF/X-4 does not support attachments\n"
                          "vellum: error: PDF/X-4 does not support open actions\n"
                          "vellum: error: PDF/X-4 does not support JavaScript\n");
    // Applied again, nothing is left to change or say; without a profile nothing changes.
    captured_log again;
    EXPECT_EQ(apply_profile(again.log, fitted), fitted);
    o.pdf_profile.reset();
    EXPECT_EQ(apply_profile(again.log, o), o);
    EXPECT_EQ(again.text(), "");
}

TEST(conformance, xmp_packet_parts_in_order) {
    metadata::metadata const meta{.title = "T", .subject = "S", .author = "A", .keywords = {"k1", "k2"}, .creator = "C"};
    document_dates const dates{.creation = {.year = 2024, .month = 5, .day = 1},
                               .modification = {.year = 2024, .month = 5, .day = 2, .date_time = time_of_day{13, 4, 5}}};
    auto const x = xmp_packet(meta, "P", dates, profile::pdf_profile::pdfa_1b);
    EXPECT_EQ(x.rfind("<?xpacket begin=\"\xEF\xBB\xBF\" id=\"W5M0MpCehiHzreSzNTczkc9d\"?><x:xmpmeta", 0), 0u);
    std::vector<std::string> const parts{
        "<dc:format>application/pdf</dc:format>",
        "<dc:title><rdf:Alt><rdf:li xml:lang='x-default'>T</rdf:li></rdf:Alt></dc:title>",
        "<dc:description><rdf:Alt><rdf:li xml:lang='x-default'>S</rdf:li></rdf:Alt></dc:description>",
        "<dc:creator><rdf:Seq><rdf:li>A</rdf:li></rdf:Seq></dc:creator>",
        "<pdf:Keywords>k1, k2</pdf:Keywords><pdf:Producer>P</pdf:Producer>",
        "<xmp:CreatorTool>C</xmp:CreatorTool><xmp:CreateDate>2024-05-01</xmp:CreateDate>"
        "<xmp:ModifyDate>2024-05-02T13:04:05</xmp:ModifyDate>",
        "<pdfaid:part>1</pdfaid:part><pdfaid:conformance>B</pdfaid:conformance>",
        "</rdf:RDF></x:xmpmeta><?xpacket end=\"r\"?>",
    };
    std::size_t at = 0;
    for (auto const& p : parts) {
        SCOPED_TRACE(p);
        auto const found = x.find(p, at);
        ASSERT_NE(found, std::string::npos);
        at = found + p.size();
    }
    EXPECT_EQ(at, x.size());
    EXPECT_EQ(x.find('\n'), std::string::npos);

    // PDF/X: the version in its schema and the trapping state; no PDF schema part without keywords
    // or producer.
    auto const x3 = xmp_packet({}, std::nullopt, dates, profile::pdf_profile::pdfx_3_2003);
    EXPECT_NE(x3.find("<pdfx:GTS_PDFXVersion>PDF/X-3:2003</pdfx:GTS_PDFXVersion></rdf:Description>"
                      "<rdf:Description rdf:about='' xmlns:pdf='http://ns.adobe.com/pdf/1.3/'>"
                      "<pdf:Trapped>False</pdf:Trapped>"),
              std::string::npos);
    EXPECT_EQ(x3.find("pdf:Producer"), std::string::npos);
    auto const x4 = xmp_packet({}, std::nullopt, dates, profile::pdf_profile::pdfx_4);
    EXPECT_NE(x4.find("xmlns:pdfxid='http://www.npes.org/pdfx/ns/id/'><pdfxid:GTS_PDFXVersion>PDF/X-4<"),
              std::string::npos);
}

TEST(conformance, xmp_texts_are_escaped) {
    metadata::metadata const meta{.title = "Tom & Jerry <live>", .author = "O'Neil \"Q\"\x01", .keywords = {"a<b"}};
    auto const x = xmp_packet(meta, "P&Q", {}, profile::pdf_profile::pdfa_1b);
    EXPECT_NE(x.find(">Tom &amp; Jerry &lt;live&gt;</rdf:li>"), std::string::npos);
    // Quotes would end the attribute values around them in other XMP writers' forms; a control
    // character is not allowed in XML at all.
    EXPECT_NE(x.find("<rdf:li>O&apos;Neil &quot;Q&quot;</rdf:li>"), std::string::npos);
    EXPECT_NE(x.find("<pdf:Keywords>a&lt;b</pdf:Keywords><pdf:Producer>P&amp;Q</pdf:Producer>"), std::string::npos);
}

TEST(conformance, profile_information_entries) {
    EXPECT_EQ(profile_info_entries(profile::pdf_profile::pdfa_1a), dict{});
    EXPECT_EQ(to_text(object{profile_info_entries(profile::pdf_profile::pdfx_3_2003)}),
              "<</GTS_PDFXVersion (PDF/X-3:2003)\n/Trapped /False>>");
}

TEST(conformance, icc_profiles_of_the_resources) {
    auto const rgb = read_bytes(VELLUM_SOURCE_DIR "/resources/icc/sRGB_IEC61966-2-1_black_scaled.icc");
    auto const cmyk = read_bytes(VELLUM_SOURCE_DIR "/resources/icc/USWebCoatedSWOP.icc");
    auto const r = read_icc(rgb);
    ASSERT_TRUE(r) << r.error();
    EXPECT_EQ(*r, (icc_summary{3, "sRGB"}));
    auto const c = read_icc(cmyk);
    ASSERT_TRUE(c) << c.error();
    EXPECT_EQ(*c, (icc_summary{4, "Vellum generic CMYK, web offset on coated paper"}));
}

TEST(conformance, icc_header_faults_and_version_4_descriptions) {
    // A version 4 monitor profile for grey whose description is a multi-localised UTF-16 text.
    std::vector<std::uint8_t> p(132 + 12 + 28 + 8, 0);
    auto put32 = [&](std::size_t at, std::uint32_t v) {
        for (int i = 0; i < 4; ++i) {
            p[at + i] = static_cast<std::uint8_t>(v >> (24 - 8 * i));
        }
    };
    put32(8, 0x04300000);
    put32(12, 0x6D6E7472); // mntr
    put32(16, 0x47524159); // GRAY
    put32(36, 0x61637370); // acsp
    put32(128, 1);
    put32(132, 0x64657363); // desc
    put32(136, 144);
    put32(140, 36);
    put32(144, 0x6D6C7563); // mluc
    put32(152, 1);
    put32(156, 12);
    put32(164, 8);
    put32(168, 28);
    for (int i = 0; i < 4; ++i) {
        p[172 + 2 * i + 1] = static_cast<std::uint8_t>("Grey"[i]);
    }
    auto const ok = read_icc(p);
    ASSERT_TRUE(ok) << ok.error();
    EXPECT_EQ(*ok, (icc_summary{1, "Grey"}));

    struct fault {
        std::size_t at;
        std::uint32_t value;
        char const* message;
    };
    fault const faults[] = {
        {8, 0x05000000, "ICC profile unknown version: 0x05000000"},
        {36, 0x61626364, "ICC profile invalid signature field: 0x61626364"},
        {12, 0x73636E72, "ICC profile unknown device class: 0x73636E72"},
        {16, 0x4C616220, "ICC profile unknown color space: 0x4C616220"},
    };
    for (auto const& f : faults) {
        SCOPED_TRACE(f.message);
        auto bad = p;
        for (int i = 0; i < 4; ++i) {
            bad[f.at + i] = static_cast<std::uint8_t>(f.value >> (24 - 8 * i));
        }
        auto const r = read_icc(bad);
        ASSERT_FALSE(r);
        EXPECT_EQ(r.error(), f.message);
    }
    EXPECT_FALSE(read_icc(std::span(p).first(100)));
    // A description that points past the end is a fault, not a read beyond the data.
    put32(140, 4000);
    EXPECT_FALSE(read_icc(p));
}

TEST(conformance, an_encrypted_file_holds_no_readable_string) {
    writepdf::pdf_document doc;
    doc.doc_metadata.title = "Secret title";
    doc.doc_options.compress = false;
    doc.doc_options.encrypt = true;
    doc.doc_options.encrypt_info = {.key_bits = {128}, .user_password = "pw"};
    doc.doc_options.pdf_id = "00112233445566778899AABBCCDDEEFF";
    doc.pages.push_back({.boxes = {.media_box = {.right = std::int64_t{100}, .top = std::int64_t{100}}},
                         .paint = [](content::out const& o, content::gs&) {
                             bulkio::output::write_all(o, bulkio::output::as_bytes("BT ET % secret body\n"));
                         }});
    std::string const path = ::testing::TempDir() + "conformance_encrypted.pdf";
    std::FILE* file = std::fopen(path.c_str(), "wb");
    ASSERT_NE(file, nullptr);
    writepdf::write_pdf_document(log::log{}, bulkio::file::file_output(file), doc);
    ASSERT_EQ(std::fclose(file), 0);
    auto const bytes = read_bytes(path);
    std::string const text(bytes.begin(), bytes.end());
    EXPECT_EQ(text.find("Secret"), std::string::npos);
    EXPECT_EQ(text.find("secret body"), std::string::npos);
    EXPECT_EQ(text.find(" ("), std::string::npos) << "a literal string is left";
    EXPECT_NE(text.find("/Filter /Standard"), std::string::npos);
    auto const [status, report] = testing::run("qpdf --password=pw --check " + path);
    EXPECT_EQ(status, 0) << report;
    auto const [s2, title] = testing::run("pdfinfo -upw pw " + path);
    EXPECT_NE(title.find("Secret title"), std::string::npos) << title;
    auto const [s3, body] = testing::run("qpdf --password=pw --show-object=4 --filtered-stream-data " + path);
    EXPECT_NE(body.find("secret body"), std::string::npos) << body;
}

} // namespace
} // namespace vellum::pdf::conformance
