// Pages painted ahead of writing: the recorded stream writes what painting straight into the file would
// have written, with the glyph codes of the fonts' final encodings; a stream of pages hands the
// document its pages, links, destinations and objects; and the fonts keep only the glyphs the pages
// show, a font that no page shows staying out of the file.
#include "pdf/bulkio/file.hpp"
#include "pdf/painted.hpp"
#include "pdf/painter.hpp"
#include "pdf/pdf_fonts.hpp"
#include "text/fonts/fonts.hpp"
#include "text/fonts/graphemes.hpp"

#include <cstdio>
#include <fstream>

#include "memory_sink.hpp"
#include "run_command.hpp"
#include "test_fonts.hpp"

#include <gtest/gtest.h>

namespace vellum::pdf::painted {
namespace {

using pdf::testing::run;

using pdf::testing::font_fixture;

vellum::ref<css::style::style> plain_style() {
    auto s = *css::style::initial_style();
    s.font_size = 20;
    return share(std::move(s));
}

// A box with one line of runs at the given places.
pack::box para_of(std::vector<std::pair<float, std::vector<fonts::grapheme>>> const& runs, float base = 100) {
    pack::linebox line{.linebox_base = base};
    for (auto const& [x, g] : runs) {
        line.linebox_content.push_back(pack::charsbox{.charsbox_x = x, .charsbox_content = g});
    }
    return pack::box{.box_content = pack::para{{line}}, .box_style = plain_style()};
}

std::string direct(pack::box const& box) {
    pdf::testing::memory_sink sink;
    content::gs g;
    painter::paint_box(log::log{}, pdf::testing::output_of(sink), g, box, {});
    return sink.sink_bytes;
}

// Recorded with no allowance for pages kept uncompressed, unless one is given.
recorded_content recorded(pack::box const& box, std::size_t plain_allowance = 0) {
    recorder r{plain_allowance};
    content::gs g;
    painter::paint_box(log::log{}, r.output(), g, box, {});
    return r.take();
}

std::string replayed(recorded_content const& c) {
    pdf::testing::memory_sink sink;
    replay(c, pdf::testing::output_of(sink));
    return sink.sink_bytes;
}

TEST(painted, replay_writes_what_direct_painting_writes) {
    font_fixture f;
    // MacRoman text, two-byte glyph numbers, and a run that repeats glyphs of the one before.
    auto const hello = f.text("Sans", U"Hello (world)");
    auto const cyrillic = f.text("Serif", U"\u0416\u0418\u0416");
    auto const again = f.text("Sans", U"oleH");
    auto const box = para_of({{10, hello}, {150, cyrillic}, {250, again}});
    auto const c = recorded(box);
    EXPECT_EQ(replayed(c), direct(box));
    // The glyphs are kept once per page: H, e, l, o, space, both parentheses, w, r, d and two Cyrillic
    // ones.
    EXPECT_EQ(c.content_glyph_table.size(), 12u);
    EXPECT_EQ(c.content_show_count, 3u);
    // The operators around the strings are there, the strings are not; they wait compressed.
    auto const operators = operator_bytes(c);
    EXPECT_NE(operators.find(" Tf\n"), std::string::npos) << operators;
    EXPECT_EQ(operators.find("Tj"), std::string::npos) << operators;
    EXPECT_TRUE(c.content_compressed);
    EXPECT_EQ(c.content_size, operators.size());
}

TEST(painted, each_page_keeps_its_own_glyphs_however_many) {
    // One recorder paints page after page: a first page of nearly two hundred distinct glyphs (its
    // table of known glyphs grows twice), then a page of a few of them, which must list only its own.
    font_fixture f;
    std::u32string many;
    for (char32_t c = U'A'; c <= U'z'; ++c) {
        many += c;
    }
    for (char32_t c = 0xC0; c <= 0xFF; ++c) {
        many += c;
    }
    for (char32_t c = 0x410; c <= 0x44F; ++c) {
        many += c;
    }
    auto const first = para_of({{10, f.text("Serif", many)}, {20, f.text("Serif", many)}});
    auto const second = para_of({{10, f.text("Serif", U"AbA\u0416")}});
    recorder r;
    content::gs g;
    painter::paint_box(log::log{}, r.output(), g, first, {});
    auto const one = r.take();
    content::gs next_page;
    painter::paint_box(log::log{}, r.output(), next_page, second, {});
    auto const two = r.take();
    EXPECT_GT(one.content_glyph_table.size(), 180u);
    EXPECT_LE(one.content_glyph_table.size(), many.size());
    EXPECT_EQ(replayed(one), direct(first));
    EXPECT_EQ(two.content_glyph_table.size(), 3u) << "A, b and Zhe, each once";
    EXPECT_EQ(replayed(two), direct(second));
}

TEST(painted, a_page_of_text_waits_compressed) {
    font_fixture f;
    std::vector<std::pair<float, std::vector<fonts::grapheme>>> runs;
    auto const word = f.text("Sans", U"word");
    for (int i = 0; i < 400; ++i) {
        runs.emplace_back(float(i % 20) * 25, word);
    }
    auto const box = para_of(runs);
    auto const c = recorded(box);
    // Operators repeat from word to word: the page keeps a small part of their size, and gives them
    // back whole.
    EXPECT_GT(c.content_size, 4000u);
    EXPECT_LT(c.content_packed.size() * 4, c.content_size);
    EXPECT_EQ(replayed(c), direct(box));
    // The shows wait with them, come back in order, and take a byte a glyph and a few a show before
    // compression: small numbers are one byte.
    std::uint32_t shows = 0, glyphs = 0, last_at = 0;
    for_each_show(c, [&](glyph_show const& s) {
        EXPECT_GT(s.show_at, last_at);
        last_at = s.show_at;
        ++shows;
        glyphs += std::uint32_t(s.show_glyphs.size());
    });
    EXPECT_EQ(shows, c.content_show_count);
    EXPECT_EQ(glyphs, 1600u);
    EXPECT_LE(c.content_show_size, glyphs + 3 * shows);
}

TEST(painted, pages_wait_uncompressed_until_the_allowance_is_spent) {
    font_fixture f;
    auto const box =
        para_of({{10, f.text("Sans", U"Hello (world)")}, {150, f.text("Serif", U"\u0416\u0418")}});
    auto const alone = recorded(box);
    std::size_t const page = alone.content_size + alone.content_show_size;
    // Room for two pages and a half: the first two wait as they are, the third and fourth compressed.
    recorder r{page * 5 / 2};
    std::vector<recorded_content> pages;
    for (int i = 0; i < 4; ++i) {
        content::gs g;
        painter::paint_box(log::log{}, r.output(), g, box, {});
        pages.push_back(r.take());
    }
    for (std::size_t i = 0; i < pages.size(); ++i) {
        EXPECT_EQ(pages[i].content_compressed, i >= 2) << "page " << i + 1;
        EXPECT_EQ(replayed(pages[i]), direct(box)) << "page " << i + 1;
        EXPECT_EQ(operator_bytes(pages[i]), operator_bytes(alone));
    }
    EXPECT_EQ(pages[0].content_packed.size(), page);
    EXPECT_EQ(pages[3].content_packed, alone.content_packed);
}

TEST(painted, codes_follow_the_encoding_settled_after_painting) {
    font_fixture f;
    auto const hello = f.text("Mono", U"Hello");
    auto const c = recorded(para_of({{10, hello}}));
    EXPECT_NE(replayed(c).find("(Hello) Tj"), std::string::npos) << replayed(c);
    // A later page shows a character outside MacRoman in the same font: from then on the font shows
    // two-byte glyph numbers, also on the page painted before.
    auto const later = f.text("Mono", U"\u0416");
    auto const& font = hello[0].base_glyph.glyph_font_ref;
    ASSERT_EQ(later[0].base_glyph.glyph_font_ref, font);
    ASSERT_EQ(font->used_font_encoding->get(), fonts::font_pdf_encoding::identity_encoding);
    auto number = [](fonts::grapheme const& g) { return g.base_glyph.glyph_index->get(); };
    auto hex4 = [](int n) {
        char buf[8];
        std::snprintf(buf, sizeof buf, "%04X", n);
        return std::string(buf);
    };
    std::string const h = hex4(number(hello[0]));
    EXPECT_NE(replayed(c).find("<" + h + hex4(number(hello[1]))), std::string::npos) << replayed(c);
    // Subsetting renumbers the glyphs after painting; the stream shows the new numbers.
    hello[0].base_glyph.glyph_index->set(1);
    hello[1].base_glyph.glyph_index->set(2);
    hello[2].base_glyph.glyph_index->set(3);
    hello[4].base_glyph.glyph_index->set(4);
    EXPECT_NE(replayed(c).find("<0001000200030003" "0004> Tj"), std::string::npos) << replayed(c);
    // A small subset writes one-byte codes.
    font->used_font_encoding->set(fonts::font_pdf_encoding::standard_encoding);
    EXPECT_NE(replayed(c).find(std::string("(\x01\x02\x03\x03\x04) Tj")), std::string::npos) << replayed(c);
}

TEST(painted, characters_reach_the_fonts_glyph_table_once_known) {
    font_fixture f;
    auto const a = f.text("Sans", U"a");
    auto bare = a;
    bare[0].base_glyph.glyph_unicodes.clear();
    // The first occurrence has no characters, the second has: the table learns them from the second.
    (void)recorded(para_of({{10, bare}, {50, a}}));
    auto const& font = a[0].base_glyph.glyph_font_ref;
    auto const cache = font->used_font_glyph_cache->get();
    auto const at = cache.glyph_cache_positions.find(a[0].base_glyph.glyph_source);
    ASSERT_NE(at, cache.glyph_cache_positions.end());
    EXPECT_EQ(cache.glyph_cache_entries[at->second].entry_unicodes, U"a");
}

std::string read_file(std::string const& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

pack::packed_page page_with(pack::box body, std::optional<pack::page_label> label = std::nullopt) {
    pack::areas::area const paper{.top = 400, .bottom = 0, .left = 0, .right = 300};
    return {.mediabox = paper,
            .bleedbox = paper,
            .trimbox = paper,
            .paper_content_area = paper,
            .body_box = {.body_content = {share(std::move(body))},
                         .body_box_style = plain_style(),
                         .body_pos = {0, 400},
                         .body_size = {300, 400}},
            .page_label = std::move(label)};
}

TEST(page_stream, pages_painted_ahead_make_the_same_file) {
    font_fixture f;
    // One font shows on the pages; another was only measured (as a discarded pass would have), and a
    // glyph of the first was measured and not shown.
    auto const shown = f.text("Sans", U"Page one");
    auto const second = f.text("Sans", U"Page two");
    auto const measured_only = f.text("Serif", U"Zero");
    auto const unshown_glyph = f.text("Sans", U"Q");
    auto const sans = shown[0].base_glyph.glyph_font_ref;
    auto const serif = measured_only[0].base_glyph.glyph_font_ref;
    ASSERT_NE(sans, serif);

    auto linked = *plain_style();
    css::style::own_rare_props(linked).rare_props_link = css::semantics::link_url{{.url_text = "#two"}};
    auto first_box = para_of({{20, shown}}, 350);
    first_box.box_style = share(std::move(linked));
    first_box.box_x = 20;
    first_box.box_y = 370;
    first_box.box_w = 100;
    first_box.box_h = 30;

    painter::page_stream stream({}, {});
    stream.add(log::log{}, page_with(first_box, pack::page_label{.label_prefix = "A-"}));
    stream.add(log::log{}, page_with(para_of({{20, second}}, 350)));
    ASSERT_EQ(stream.pages().size(), 2u);
    EXPECT_EQ(stream.pages()[0].painted_links.size(), 1u);
    EXPECT_TRUE(stream.pages()[0].painted_label.has_value());

    writepdf::pdf_document doc;
    doc.doc_options.compress = false;
    pdf_fonts::glyph_needs needs;
    for (auto const* c : stream.shown_glyphs()) {
        needs.needs_shown.insert(c);
    }
    // Links resolve when the file is written: here "#two" leads to the second page.
    stream.finish(doc, [](std::string const& url, std::string const&)
                           -> std::optional<std::variant<dest::dest, action::action>> {
        if (url == "#two") {
            return dest::dest{dest::target_position(2, 0, 400)};
        }
        return std::nullopt;
    });
    EXPECT_TRUE(stream.pages().empty());
    ASSERT_EQ(doc.pages.size(), 2u);
    EXPECT_EQ(doc.pages[0].links.size(), 1u);
    pdf_fonts::attach_fonts(log::log{}, doc, f.db, &needs);
    EXPECT_EQ(doc.used_font_ids, std::vector<int>{sans->used_font_id});
    // The shown glyphs are P, a, g, e, space, o, n, t, w: Q is gone from the font's table.
    EXPECT_EQ(sans->used_font_glyph_cache->get().glyph_cache_entries.size(), 9u);

    std::string const path = ::testing::TempDir() + "page_stream.pdf";
    std::FILE* file = std::fopen(path.c_str(), "wb");
    ASSERT_NE(file, nullptr);
    writepdf::write_pdf_document(log::log{}, bulkio::file::file_output(file), doc);
    ASSERT_EQ(std::fclose(file), 0);
    auto const [status, report] = run("qpdf --check " + path);
    EXPECT_EQ(status, 0) << report;
    EXPECT_EQ(report.find("WARNING"), std::string::npos) << report;
    auto const [text_status, text] = run("pdftotext -layout " + path + " -");
    EXPECT_NE(text.find("Page one"), std::string::npos) << text;
    EXPECT_NE(text.find("Page two"), std::string::npos) << text;
    auto const [fonts_status, fonts_list] = run("pdffonts " + path);
    EXPECT_NE(fonts_list.find("DejaVuSans"), std::string::npos) << fonts_list;
    // Not even an unreferenced object names the font that was only measured.
    EXPECT_EQ(read_file(path).find("DejaVuSerif"), std::string::npos);
    auto const bytes = read_file(path);
    EXPECT_NE(bytes.find("/Subtype /Link"), std::string::npos);
}

TEST(page_stream, glyphs_kept_before_layout_stay_in_the_font) {
    font_fixture f;
    // Text of a drawing, shaped before the pages: kept though no page shows it.
    auto const drawing = f.text("Mono", U"xy");
    auto const font = drawing[0].base_glyph.glyph_font_ref;
    pdf_fonts::glyph_needs needs{.needs_kept_heads = {{font->used_font_id, 2}}};
    auto const later = f.text("Mono", U"z");
    writepdf::pdf_document doc;
    pdf_fonts::attach_fonts(log::log{}, doc, f.db, &needs);
    EXPECT_EQ(doc.used_font_ids, std::vector<int>{font->used_font_id});
    EXPECT_EQ(font->used_font_glyph_cache->get().glyph_cache_entries.size(), 2u);
}

} // namespace
} // namespace vellum::pdf::painted
