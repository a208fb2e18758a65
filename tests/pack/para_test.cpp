// Paragraph items from real box trees, and paragraph composition: lines into line boxes, alignment,
// line heights, and the split of a paragraph over areas with orphans and widows. Text is set in
// DejaVu Sans from the system's fonts-dejavu-core.
#include "pack/para_main.hpp"
#include "pack/para_valign.hpp"
#include "pack/spans_to_knuth.hpp"
#include "prepack/box_support.hpp"

#include <cmath>
#include <fstream>

#include "pack/test_fonts.hpp"

#include <unistd.h>

#include <gtest/gtest.h>

namespace vellum::pack {
namespace {

using namespace knuth;

using test_fonts::db;

struct style_opts {
    css::text::text_align align = css::text::text_align::left;
    css::text::text_align align_last = css::text::text_align::auto_;
    css::fonts::line_height line_height = css::fonts::line_height_normal{};
    int orphans = 2;
    int widows = 2;
    float font_size = 10;
    css::box::vertical_align vertical_align = css::box::vertical_align_kind::baseline;
};

style_ref make_style(style_opts const& o = {}) {
    auto s = *css::style::initial_style();
    s.font_size = o.font_size;
    s.line_height = o.line_height;
    auto& rare = css::style::own_rare_props(s);
    rare.rare_props_orphans = o.orphans;
    rare.rare_props_widows = o.widows;
    s.vertical_align = o.vertical_align;
    auto fp = *s.font_props;
    fp.font_props_font_family = {"Sans", "vellum-no-fallback"};
    s.font_props = share(fp);
    auto text = *s.text;
    text.text_props_text_align = o.align;
    text.text_props_text_align_last = o.align_last;
    s.text = share(text);
    return share(s);
}

page_info make_info(float body_top = 800) {
    page_info info;
    own_run(info.general).fonts = std::make_shared<vellum::fonts::fonts const>(db());
    info.general.body_area = {.top = body_top, .bottom = 0, .left = 0, .right = 100};
    info.flags.max_page_area = true;
    return info;
}

areas::areas area(float top, float bottom, float left, float right) {
    areas::area const a{.top = top, .bottom = bottom, .left = left, .right = right};
    return {.container = a, .available = {a}};
}

// A word added to a paragraph's text, as a span of it.
prepack::span word_span(prepack::para& p, std::u32string_view word) {
    auto text = p.para_text ? *p.para_text : textbuf::textbuf{};
    auto const range = prepack::append_text(text, word);
    p.para_text = share(std::move(text));
    return prepack::span_text{range};
}

// A paragraph of words between spaces.
prepack::para words(std::vector<std::u32string> const& ws) {
    prepack::para p;
    for (std::size_t i = 0; i < ws.size(); ++i) {
        if (i > 0) {
            p.para_spans.emplace_back(prepack::span_sep{prepack::sep_space{}});
        }
        p.para_spans.push_back(word_span(p, ws[i]));
    }
    return p;
}

std::vector<linebox> lines_of(para_main::para_res const& r) {
    std::vector<linebox> out;
    for (auto const& b : r.res_boxes) {
        if (auto const* l = std::get_if<linebox>(&b)) {
            out.push_back(*l);
        }
    }
    return out;
}

// ---- Items from a real box tree ---------------------------------------------------------------------------

// The kinds of items, one word each: text in quotes, edges with their width.
std::string dump_items(std::span<pack::knuth::knuth const> items) {
    std::string out;
    auto add = [&](std::string s) {
        if (!out.empty()) {
            out += ' ';
        }
        out += s;
    };
    for (auto const& it : items) {
        std::visit(overloaded{
                       [&](knuth_box const& b) {
                           std::visit(overloaded{
                                          [&](word const& w) { add("\"" + textbuf::to_utf8(w.word_text) + "\""); },
                                          [&](non_word const&) { add("non_word"); },
                                          [&](grapheme_seq const&) { add("seq"); },
                                          [&](glyph_index const&) { add("glyph"); },
                                          [&](counter const&) { add("counter"); },
                                          [&](pack::knuth::pre_space const&) { add("pre_space"); },
                                          [&](pack::knuth::charlike_space const&) { add("charlike"); },
                                          [&](pack::knuth::newline const&) { add("newline"); },
                                          [&](open const& o) { add("open(" + std::to_string(int(o.box_left_edge)) + ")"); },
                                          [&](close const& c) { add("close(" + std::to_string(int(c.close_right_edge)) + ")"); },
                                          [&](pack::knuth::inline_block const&) { add("inline_block"); },
                                          [&](pack::knuth::indent const&) { add("indent"); },
                                      },
                                      b);
                       },
                       [&](knuth_leader const&) { add("leader"); },
                       [&](knuth_penalty const& p) { add(std::holds_alternative<soft>(p) ? "soft" : "hard"); },
                       [&](knuth_glue const& g) {
                           add(std::visit(overloaded{
                                              [](pack::knuth::glue const&) { return "glue"; },
                                              [](zwsp const&) { return "zwsp"; },
                                              [](wrap_opportunity const&) { return "wrap"; },
                                              [](zero_width_cjk const&) { return "cjk"; },
                                          },
                                          g));
                       },
                       [&](forced_break const&) { add("forced"); },
                       [&](prohibited_break const&) { add("prohibited"); },
                       [&](script_func_head const&) { add("script"); },
                       [&](script_func_tail const&) { add("/script"); },
                       [&](pack::knuth::footnote const&) { add("footnote"); },
                   },
                   it);
    }
    return out;
}

// The first paragraph of a document's box tree.
template <class List>
prepack::block const* first_para_block(List const& blocks) {
    for (auto const& b : blocks) {
        if (std::holds_alternative<prepack::bcontent_para>(b.block_content)) {
            return &b;
        }
        if (auto const* bs = std::get_if<prepack::bcontent_blocks>(&b.block_content)) {
            if (auto const* p = first_para_block(bs->blocks)) {
                return p;
            }
        }
    }
    return nullptr;
}

std::string items_of_html(std::string const& body) {
    // ctest runs the tests of this program as parallel processes: each writes a file of its own.
    auto const dir = std::filesystem::temp_directory_path() / ("vellum-para-test-" + std::to_string(::getpid()));
    std::filesystem::create_directories(dir);
    auto const file = dir / "doc.html";
    std::ofstream(file) << "<!DOCTYPE html><html><body>" << body << "</body></html>";
    auto const doc = box_support::boxes_of_file(log::log{}, VELLUM_BINARY_DIR, file);
    if (!doc || doc->pack_doc_content.empty()) {
        return "no document";
    }
    auto const* b = first_para_block(doc->pack_doc_content.front().sec_blocks);
    if (b == nullptr) {
        return "no paragraph";
    }
    auto const& p = std::get<prepack::bcontent_para>(b->block_content).para;
    auto const res = spans_to_knuth::para_to_knuths(make_info(), b->block_style, p, 300);
    return dump_items(res.res_items);
}

TEST(items, from_real_box_trees) {
    struct tcase {
        char const* name;
        char const* html;
        char const* expected;
    } const cases[] = {
        {"words and spaces", "<p>one two</p>", "\"one\" glue \"two\" forced"},
        // A space at the start of an inline box breaks before the box, never inside it.
        {"leading space in a span", "<p>a<span> b</span></p>",
         "\"a\" wrap open(0) prohibited glue \"b\" close(0) forced"},
        // A trailing space breaks after the box, which keeps its end on the line.
        {"trailing space in a span", "<p><span>a </span>b</p>",
         "open(0) \"a\" prohibited glue close(0) wrap \"b\" forced"},
        {"edges with padding, border and margin",
         "<p>x <span style=\"padding: 0 3pt; border: 2pt solid; margin: 0 1pt\">y</span></p>",
         "\"x\" glue open(6) \"y\" close(6) forced"},
        {"soft hyphen", "<p>co&#173;op</p>", "\"co\" soft \"op\" forced"},
        {"no-break space", "<p>a&#160;b</p>", "\"a\" charlike \"b\" forced"},
        {"preformatted", "<pre>a b\nc</pre>", "\"a\" pre_space \"b\" newline forced \"c\" forced"},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(items_of_html(c.html), c.expected);
    }
}

TEST(items, nowrap_span_ending_in_a_space_has_no_break_after_it) {
    auto const got = items_of_html("<p>a <span style=\"white-space: nowrap\">b c </span>d</p>");
    EXPECT_EQ(got.find("close(0) wrap"), std::string::npos) << got;
}

// ---- Composition --------------------------------------------------------------------------------------

// Forty short words, each on a line of its own at 40pt: "wxyz" is about 27pt wide in DejaVu Sans at 10pt.
prepack::para forty_lines() {
    return words(std::vector<std::u32string>(40, U"wxyz"));
}

TEST(para, forty_lines_split_fifteen_fifteen_ten) {
    auto const s = make_style({.line_height = 12.0f, .orphans = 3, .widows = 3});
    std::vector<int> counts;
    std::optional<prepack::para> p = forty_lines();
    for (int page = 0; page < 5 && p; ++page) {
        auto info = make_info(180);
        auto const r = para_main::pack_para(info, s, {}, area(180, 0, 0, 40), *p);
        counts.push_back(static_cast<int>(lines_of(r).size()));
        p = r.res_remaining;
    }
    EXPECT_EQ(counts, (std::vector<int>{15, 15, 10}));
}

TEST(para, widows_move_lines_and_orphans_move_the_paragraph) {
    // Three lines and room for two, orphans and widows 2: one line moved would leave a lone orphan,
    // so the whole paragraph moves, unless the page is empty and the lines must stay.
    auto const s = make_style({.line_height = 12.0f});
    auto const p = words({U"wxyz", U"wxyz", U"wxyz"});
    auto info = make_info(24);
    info.flags.max_page_area = false;
    auto const moved = para_main::pack_para(info, s, {}, area(24, 0, 0, 40), p);
    EXPECT_TRUE(moved.res_boxes.empty());
    EXPECT_EQ(moved.res_areas, area(24, 0, 0, 40));
    info.flags.max_page_area = true;
    auto const kept = para_main::pack_para(info, s, {}, area(24, 0, 0, 40), p);
    EXPECT_EQ(lines_of(kept).size(), 2u);
    ASSERT_TRUE(kept.res_remaining);

    // Four lines, room for three: the last line alone would be a widow, so two go on.
    auto const four = words({U"wxyz", U"wxyz", U"wxyz", U"wxyz"});
    info.flags.max_page_area = false;
    auto const split = para_main::pack_para(info, s, {}, area(36, 0, 0, 40), four);
    EXPECT_EQ(lines_of(split).size(), 2u);
    EXPECT_FLOAT_EQ(split.res_areas.container.top, 36 - 24);
}

TEST(para, continued_paragraph_keeps_its_lines_or_breaks_again) {
    // Justified text is broken by total fit; the next area of the same width takes the stored lines,
    // a narrower one breaks the rest again.
    auto const s = make_style({.align = css::text::text_align::justify, .line_height = 12.0f, .orphans = 1, .widows = 1});
    auto const p = words(std::vector<std::u32string>(30, U"ab"));
    auto const first = para_main::pack_para(make_info(), s, {}, area(24, 0, 0, 60), p);
    ASSERT_EQ(lines_of(first).size(), 2u);
    ASSERT_TRUE(first.res_remaining);
    EXPECT_TRUE(std::holds_alternative<ref<prepack::para_knuth_lines>>(first.res_remaining->para_content));
    EXPECT_EQ(first.res_remaining->current_line_number, 2);
    auto const same = para_main::pack_para(make_info(), s, {}, area(800, 0, 0, 60), *first.res_remaining);
    auto const narrow = para_main::pack_para(make_info(), s, {}, area(800, 0, 0, 30), *first.res_remaining);
    EXPECT_FALSE(same.res_remaining);
    EXPECT_FALSE(narrow.res_remaining);
    EXPECT_GT(lines_of(narrow).size(), lines_of(same).size());
    for (auto const& l : lines_of(narrow)) {
        EXPECT_LE(l.linebox_x + l.linebox_w, 30 + 0.01);
    }
}

float last_line_end(style_ref const& s, int page = 1) {
    auto info = make_info();
    info.general.pdf_page_num = page;
    auto const r = para_main::pack_para(info, s, {}, area(800, 0, 0, 100), words({U"aaa", U"bbb", U"ccc", U"ddd", U"eee", U"fff", U"ggg"}));
    auto const ls = lines_of(r);
    EXPECT_FALSE(ls.empty());
    return ls.empty() ? 0 : ls.back().linebox_x + ls.back().linebox_w;
}

TEST(para, text_align_last_applies_to_justified_text_only) {
    using css::text::text_align;
    EXPECT_NEAR(last_line_end(make_style({.align = text_align::justify, .align_last = text_align::right})), 100, 0.01);
    EXPECT_LT(last_line_end(make_style({.align = text_align::left, .align_last = text_align::right})), 99);
    // Justified lines other than the last fill the width exactly.
    auto const r = para_main::pack_para(make_info(), make_style({.align = text_align::justify}), {}, area(800, 0, 0, 100),
                                        words({U"aaa", U"bbb", U"ccc", U"ddd", U"eee", U"fff", U"ggg"}));
    auto const ls = lines_of(r);
    ASSERT_GE(ls.size(), 2u);
    EXPECT_NEAR(ls.front().linebox_x, 0, 0.01);
    EXPECT_NEAR(ls.front().linebox_w, 100, 0.01);
    auto const& last_run = std::get<charsbox>(ls.front().linebox_content.back());
    EXPECT_NEAR(last_run.charsbox_x + last_run.charsbox_w, 100, 0.01) << "the glue stretched to the edge";
}

TEST(para, inside_is_left_on_odd_pages_and_right_on_even) {
    auto const s = make_style({.align = css::text::text_align::inside});
    EXPECT_LT(last_line_end(s, 1), 99);
    EXPECT_NEAR(last_line_end(s, 2), 100, 0.01);
    auto const c = make_style({.align = css::text::text_align::center});
    auto const r = para_main::pack_para(make_info(), c, {}, area(800, 0, 0, 100), words({U"ab"}));
    auto const ls = lines_of(r);
    ASSERT_EQ(ls.size(), 1u);
    auto const& l = ls.front();
    EXPECT_NEAR(l.linebox_x - 0, 100 - (l.linebox_x + l.linebox_w), 0.01);
}

TEST(para, line_height_forms) {
    struct tcase {
        char const* name;
        css::fonts::line_height lh;
        float expected;
    } const cases[] = {
        {"normal is 1.2 em whatever the font says", css::fonts::line_height_normal{}, 12},
        {"none", css::fonts::line_height_none{}, 12},
        {"number", css::fonts::line_height_number{2}, 20},
        {"length", 15.0f, 15},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.name);
        auto const r = para_main::pack_para(make_info(), make_style({.line_height = c.lh}), {}, area(800, 0, 0, 100),
                                            words({U"ab"}));
        EXPECT_NEAR(r.res_areas.container.top, 800 - c.expected, 0.01);
        auto const ls = lines_of(r);
        ASSERT_EQ(ls.size(), 1u);
        auto const& l = ls.front();
        EXPECT_LT(l.linebox_base, 800);
        EXPECT_GT(l.linebox_base, 800 - c.expected);
    }
}

// A paragraph "a <span>b</span> c" whose span has the given style.
prepack::para with_span(style_ref const& span_style) {
    prepack::para p = words({U"a"});
    p.para_spans.emplace_back(prepack::span_sep{prepack::sep_space{}});
    p.para_spans.emplace_back(prepack::span_nested{prepack::nested_span{
        .span_content = {word_span(p, U"b")}, .span_style = span_style}});
    p.para_spans.emplace_back(prepack::span_sep{prepack::sep_space{}});
    p.para_spans.push_back(word_span(p, U"c"));
    return p;
}

nested_spanbox const& span_of(linebox const& l) {
    for (auto const& b : l.linebox_content) {
        if (auto const* n = std::get_if<ref<nested_spanbox>>(&b)) {
            return **n;
        }
    }
    throw std::runtime_error("no span");
}

TEST(para, vertical_align_of_spans) {
    auto const para_style = make_style();
    auto const req = spans_to_knuth::font_req_of(db(), *para_style);
    auto const m = fonts::primary_font_metrics(db(), *req, 10);
    struct tcase {
        char const* name;
        css::box::vertical_align va;
        float base;
    } const cases[] = {
        {"baseline", css::box::vertical_align_kind::baseline, 0},
        {"sub: half the parent's descent down", css::box::vertical_align_kind::sub, -m.down * 0.5f},
        {"super: half the parent's ascent up", css::box::vertical_align_kind::super, m.up * 0.5f},
        {"length", 3.0f, 3},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.name);
        auto const r = para_main::pack_para(make_info(), para_style, {}, area(800, 0, 0, 200),
                                            with_span(make_style({.vertical_align = c.va})));
        auto const ls = lines_of(r);
        ASSERT_EQ(ls.size(), 1u);
        EXPECT_NEAR(span_of(ls.front()).spanbox_base, c.base, 0.001);
        auto const& inner = std::get<charsbox>(span_of(ls.front()).spanbox_content.front());
        EXPECT_NEAR(inner.charsbox_y, c.base, 0.001) << "the span's text moves with it";
    }
}

TEST(para, a_span_of_line_height_none_is_ignored_for_the_line_box) {
    auto const para_style = make_style();
    auto big = make_style({.line_height = css::fonts::line_height_none{}, .font_size = 40});
    auto const ignored = para_main::pack_para(make_info(), para_style, {}, area(800, 0, 0, 300), with_span(big));
    EXPECT_NEAR(ignored.res_areas.container.top, 800 - 12, 0.01);
    auto const counted = para_main::pack_para(make_info(), para_style, {}, area(800, 0, 0, 300),
                                              with_span(make_style({.font_size = 40})));
    EXPECT_GT(800 - counted.res_areas.container.top, 40);
}

TEST(para, a_line_too_tall_for_the_area_is_refused_unless_it_must_stay) {
    auto const s = make_style({.line_height = 12.0f});
    auto info = make_info();
    info.flags.max_page_area = false;
    auto const refused = para_main::pack_para(info, s, {}, area(10, 0, 0, 100), words({U"ab"}));
    EXPECT_TRUE(refused.res_boxes.empty());
    ASSERT_TRUE(refused.res_remaining);
    info.flags.max_page_area = true;
    auto const forced = para_main::pack_para(info, s, {}, area(10, 0, 0, 100), words({U"ab"}));
    EXPECT_EQ(lines_of(forced).size(), 1u);
    EXPECT_FALSE(forced.res_remaining);
    EXPECT_FALSE(forced.res_info.flags.max_page_area) << "the page holds something now";
}

TEST(para, an_inline_box_over_two_lines_continues_on_the_second) {
    auto const s = make_style({.line_height = 12.0f});
    auto const inner = words({U"wxyz", U"wxyz"});
    prepack::para p{.para_text = inner.para_text};
    p.para_spans.emplace_back(prepack::span_nested{prepack::nested_span{
        .span_content = inner.para_spans, .span_style = make_style()}});
    auto const r = para_main::pack_para(make_info(), s, {}, area(800, 0, 0, 40), p);
    auto const ls = lines_of(r);
    ASSERT_EQ(ls.size(), 2u);
    for (auto const& l : ls) {
        auto const& n = span_of(l);
        EXPECT_EQ(n.spanbox_content.size(), 1u);
        EXPECT_GT(n.spanbox_w, 20);
    }
}

} // namespace
} // namespace vellum::pack
