// The whole file from a finished document: pages painted through the content layer, their resources,
// links, bookmarks, named destinations, page labels and fonts written last; checked with qpdf and poppler.
#include "pdf/bulkio/file.hpp"
#include "pdf/writepdf.hpp"

#include <cstdio>
#include <fstream>
#include <sys/wait.h>

#include "run_command.hpp"

#include <gtest/gtest.h>

namespace vellum::pdf::writepdf {
namespace {

using testing::run;

std::string read_file(std::string const& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

common::rect box(double w, double h) { return {.right = number{w}, .top = number{h}}; }

std::string write_to_file(pdf_document const& doc, std::string const& name) {
    std::string const path = ::testing::TempDir() + name;
    std::FILE* file = std::fopen(path.c_str(), "wb");
    EXPECT_NE(file, nullptr);
    write_pdf_document(log::log{}, bulkio::file::file_output(file), doc);
    EXPECT_EQ(std::fclose(file), 0);
    return path;
}

pdf_document sample() {
    pdf_document doc;
    doc.doc_metadata.title = "Assembly";
    doc.doc_options.compress = false;
    doc.pages.push_back({.boxes = {.media_box = box(200, 100)},
                         .paint = [](content::out const& o, content::gs& g) {
                             content::fill_color(o, g, color::rgb{1, 0, 0});
                             content::rect(o, g, 20, 20, 60, 40);
                             content::fill(o);
                             content::begin_text(o);
                             content::fill_color(o, g, color::gray{std::int64_t{0}});
                             content::font(o, g, 7, 12);
                             content::position(o, g, 100, 50);
                             content::show_literal(o, "First page");
                             content::end_text(o);
                         }});
    doc.pages.push_back({.boxes = {.media_box = box(200, 100), .trim_box = common::rect{std::int64_t{10}, std::int64_t{10}, std::int64_t{190}, std::int64_t{90}}},
                         .paint = [](content::out const& o, content::gs& g) {
                             content::opacity(o, g, 0.5, 1);
                             content::begin_text(o);
                             content::font(o, g, 7, 10);
                             content::position(o, g, 20, 50);
                             content::show_literal(o, "Second page");
                             content::end_text(o);
                         },
                         .links = {{.link_rect = box(50, 20), .link_target = dest::dest{dest::explicit_dest{3, dest::fit{}}}},
                                   {.link_rect = box(60, 30), .link_target = action::action{action::uri{"http://example.org/"}}}}});
    doc.pages.push_back({.boxes = {.media_box = box(200, 100)}});
    doc.bookmarks = {{.title = "Start", .target = outlines::dest_target{dest::explicit_dest{1, dest::fit{}}}}};
    doc.destinations = {{"intro", dest::target_position(2, 20, 60)}};
    doc.page_labels = {{0, page_label{.label_start = 1, .label_style = page_label_counter_style::lower_roman}},
                       {1, page_label{.label_start = 2, .label_style = page_label_counter_style::lower_roman}},
                       {2, std::nullopt}};
    doc.used_font_ids = {7};
    doc.write_font = [](writer& w, int, ref r) {
        write_object(w, r, dict{{{"Type", name{"Font"}}, {"Subtype", name{"Type1"}}, {"BaseFont", name{"Helvetica"}}}});
    };
    return doc;
}

TEST(writepdf, version_follows_the_options_and_pdfx4) {
    metadata::pdf_options o;
    EXPECT_EQ(choose_version(o), pdf_version::pdf_1_4);
    o.pdf_profile = profile::pdf_profile::pdfa_1b;
    EXPECT_EQ(choose_version(o), pdf_version::pdf_1_4);
    o.pdf_profile = profile::pdf_profile::pdfx_4;
    EXPECT_EQ(choose_version(o), pdf_version::pdf_1_6);
    o.pdf_paper_tray = metadata::pdf_paper_tray::pick_tray_by_pdf_size;
    EXPECT_EQ(choose_version(o), pdf_version::pdf_1_7);
}

TEST(writepdf, a_document_with_pages_links_bookmarks_and_labels) {
    auto const path = write_to_file(sample(), "writepdf_sample.pdf");
    auto const [status, report] = run("qpdf --check " + path);
    EXPECT_EQ(status, 0) << report;
    EXPECT_EQ(report.find("WARNING"), std::string::npos) << report;
    auto const bytes = read_file(path);
    // Catalog 1, page tree 2, pages from 3.
    EXPECT_NE(bytes.find("1 0 obj\n<</Type /Catalog\n/Pages 2 0 R"), std::string::npos);
    EXPECT_NE(bytes.find("/Kids [3 0 R 4 0 R 5 0 R]"), std::string::npos);
    EXPECT_NE(bytes.find("/PageLabels <</Nums [0 <</St 1\n/S /r>> 2 <</St 3\n/S /D>>]>>"), std::string::npos);
    EXPECT_NE(bytes.find("/Names <</Dests <</Names [(intro) [4 0 R /XYZ 20.0000 60 null]]>>>>"), std::string::npos);
    EXPECT_NE(bytes.find("/ProcSet [/PDF /Text]"), std::string::npos);
    EXPECT_NE(bytes.find("/ExtGState <</GS1 <</Type /ExtGState\n/ca 0.5000>>>>"), std::string::npos);
    EXPECT_NE(bytes.find("/Group <</Type /Group"), std::string::npos) << "the page with opacity is a group";
    EXPECT_NE(bytes.find("/TrimBox [10 10 190 90]"), std::string::npos);
    EXPECT_EQ(bytes.find("/BleedBox"), std::string::npos) << "a box equal to the media box is not written";

    auto const [text_status, text] = run("pdftotext -layout " + path + " -");
    EXPECT_EQ(text_status, 0);
    EXPECT_NE(text.find("First page"), std::string::npos) << text;
    EXPECT_NE(text.find("Second page"), std::string::npos) << text;
    // qpdf works out each page's label from the collapsed /Nums: the second page continues the first.
    auto const [json_status, json] = run("qpdf --json --json-key=pages " + path);
    EXPECT_EQ(json_status, 0) << json;
    EXPECT_NE(json.find("\"label\": {\n        \"/S\": \"/r\",\n        \"/St\": 2\n      },\n      \"object\": \"4 0 R\""),
              std::string::npos) << json;
    EXPECT_NE(json.find("\"title\": \"Start\""), std::string::npos) << json;
    EXPECT_NE(bytes.find("/Annots [<</Type /Annot\n/Subtype /Link\n/Rect [0 0 50.0000 20.0000]\n/Border [0 0 0.0000]\n"
                         "/Dest [5 0 R /Fit]>> <</Type /Annot"),
              std::string::npos);
    EXPECT_NE(bytes.find("/A <</S /URI\n/URI (http://example.org/)>>"), std::string::npos);

    // The red square stands where the operators put it: 60 by 40 points from (20, 20), y growing upward.
    auto const png = ::testing::TempDir() + "writepdf_sample";
    auto const [ppm_status, ppm_out] = run("pdftoppm -r 72 -f 1 -l 1 -png " + path + " " + png);
    ASSERT_EQ(ppm_status, 0) << ppm_out;
    auto const [py_status, pixels] = run(
        "/usr/bin/python3 -c \"from PIL import Image; im = Image.open('" + png +
        "-1.png').convert('RGB'); print(im.size, im.getpixel((50, 60)), im.getpixel((50, 30)), im.getpixel((10, 90)))\"");
    EXPECT_EQ(pixels, "(200, 100) (255, 0, 0) (255, 255, 255) (255, 255, 255)\n") << pixels;
}

TEST(writepdf, no_pages_and_no_metadata_still_make_a_valid_file) {
    pdf_document doc;
    auto const path = write_to_file(doc, "writepdf_empty.pdf");
    auto const [status, report] = run("qpdf --check " + path);
    EXPECT_EQ(status, 0) << report;
    auto const bytes = read_file(path);
    EXPECT_NE(bytes.find("/Kids []\n/Count 0"), std::string::npos);
    EXPECT_NE(bytes.find("/Info "), std::string::npos);
    EXPECT_EQ(bytes.find("/Outlines"), std::string::npos);
    EXPECT_EQ(bytes.find("/PageLabels"), std::string::npos);
}

TEST(writepdf, page_labels_collapse_runs) {
    using l = page_label;
    auto const nums = page_label_nums({{0, l{.label_prefix = "A-", .label_start = 1, .label_style = page_label_counter_style::decimal}},
                                       {1, l{.label_prefix = "A-", .label_start = 2, .label_style = page_label_counter_style::decimal}},
                                       {2, l{.label_prefix = "A-", .label_start = 5, .label_style = page_label_counter_style::decimal}},
                                       {3, l{.label_prefix = "B-"}},
                                       {4, std::nullopt},
                                       {5, std::nullopt}});
    EXPECT_EQ(to_text(object{nums}),
              "[0 <</St 1\n/S /D\n/P (A-)>> 2 <</St 5\n/S /D\n/P (A-)>> 3 <</P (B-)>> 4 <</St 5\n/S /D>>]");
}

TEST(writepdf, a_font_the_pages_use_but_nobody_reserved_is_a_fault) {
    auto doc = sample();
    doc.used_font_ids.clear();
    std::string const path = ::testing::TempDir() + "writepdf_fault.pdf";
    std::FILE* file = std::fopen(path.c_str(), "wb");
    EXPECT_THROW(write_pdf_document(log::log{}, bulkio::file::file_output(file), doc), internal_error);
    std::fclose(file);
}

// Streams of pages painted before the file is written are made ahead, two threads at a time and a
// batch of pages at once; the file must be the one written a page at a time, byte for byte, across
// batch ends, with pages that must be painted in turn (state-reading painters, empty pages) among them.
TEST(writepdf, pages_made_ahead_give_the_file_written_in_turn) {
    auto const book = [](bool anywhere, bool compress) {
        pdf_document doc;
        doc.doc_options.compress = compress;
        doc.doc_options.pdf_id = "00112233445566778899aabbccddeeff";
        doc.doc_metadata.creation_date = metadata::date{.year = 2026, .month = 1, .day = 2};
        doc.doc_metadata.modification_date = doc.doc_metadata.creation_date;
        auto const used =
            std::make_shared<content::used_resources const>(content::used_resources{.font_resources = {7}});
        for (int i = 0; i < 150; ++i) {
            std::string const text =
                "Page " + std::to_string(i + 1) + std::string(std::size_t(i % 7) * 40, 'x');
            bool const in_turn = i % 50 == 3;
            document_page page{.boxes = {.media_box = box(200, 100)}};
            if (i % 50 != 9) {
                page.paint = [text](content::out const& o, content::gs& g) {
                    content::begin_text(o);
                    content::font(o, g, 7, 10);
                    content::position(o, g, 20, 50);
                    content::show_literal(o, text);
                    content::end_text(o);
                };
            }
            if (!in_turn) {
                page.painted_used = used;
                page.paint_anywhere = anywhere;
            }
            doc.pages.push_back(std::move(page));
        }
        doc.used_font_ids = {7};
        doc.write_font = [](writer& w, int, ref r) {
            write_object(
                w, r,
                dict{{{"Type", name{"Font"}}, {"Subtype", name{"Type1"}}, {"BaseFont", name{"Helvetica"}}}});
        };
        return doc;
    };
    for (bool const compress : {true, false}) {
        auto const tag = std::string(compress ? "z" : "plain");
        auto const in_turn = read_file(write_to_file(book(false, compress), "writepdf_turn_" + tag + ".pdf"));
        auto const path = write_to_file(book(true, compress), "writepdf_ahead_" + tag + ".pdf");
        EXPECT_EQ(read_file(path), in_turn) << tag;
        auto const [status, report] = run("qpdf --check " + path);
        EXPECT_EQ(status, 0) << report;
        auto const [text_status, text] = run("pdftotext -f 150 -l 150 " + path + " -");
        EXPECT_NE(text.find("Page 150xxxxxxxxxx"), std::string::npos) << text;
    }
}

} // namespace
} // namespace vellum::pdf::writepdf
