// Margin boxes with their content: which boxes exist, the text their content gives on a page (page
// numbers in counter styles, the page total, named strings by page policy), where the boxes go in the
// margin and how their lines are aligned in them. Page styles come from @page rules through the real
// parser; text is set in DejaVu Sans from the system's fonts-dejavu-core.
#include "css/parser.hpp"
#include "css/propnames.hpp"
#include "pack/static.hpp"

#include "pack/test_fonts.hpp"

#include <gtest/gtest.h>

namespace vellum::pack::static_ {
namespace {

using css::page::region;

constexpr float mm = 72.0f / 25.4f;

using test_fonts::db;

log::log quiet_log() {
    log::log l;
    l.log_stderr = log::no_stderr_log{};
    return l;
}

// The document's root style: 10pt text in the test font, which the page body passes on.
ref<css::style::style> root_style() {
    auto s = *css::style::initial_style();
    s.font_size = 10;
    auto fp = *s.font_props;
    fp.font_props_font_family = {"Sans", "vellum-no-fallback"};
    s.font_props = share(fp);
    return share(s);
}

css::page::page_style page_style(std::string_view sheet) {
    auto e = css::parser::new_env("print");
    e.known_property = &css::propnames::known_property;
    e = css::parser::parse_style_sheet(quiet_log(), {}, css::origin::author, "file:///page.css", sheet, std::move(e));
    return css::page::page_style_of(css::page::make_pages(e.pages), {}, root_style());
}

page_info make_info(int page = 1) {
    page_info info;
    auto& run = own_run(info.general);
    run.log = quiet_log();
    run.fonts = std::make_shared<vellum::fonts::fonts const>(db());
    info.general.user_page_num = page;
    info.general.pdf_page_num = page;
    return info;
}

margin_boxes_res pack(std::string_view sheet, page_info const& info = make_info()) {
    auto const ps = page_style(sheet);
    return pack_margin_boxes(info, ps, paper::paper_areas_of(ps, std::nullopt));
}

std::vector<linebox> lines_of(margin_box const& m) {
    std::vector<linebox> out;
    if (!m.margin_content) {
        return out;
    }
    if (auto const* p = std::get_if<para>(&(*m.margin_content)->box_content)) {
        for (auto const& b : p->para_lines) {
            if (auto const* l = std::get_if<linebox>(&b)) {
                out.push_back(*l);
            }
        }
    }
    return out;
}

// The text a margin box shows, its lines joined by "|".
std::string text_of(margin_box const& m) {
    std::u32string out;
    for (auto const& l : lines_of(m)) {
        if (!out.empty()) {
            out += U'|';
        }
        for (auto const& s : l.linebox_content) {
            if (auto const* c = std::get_if<charsbox>(&s)) {
                if (std::holds_alternative<pack::glue>(c->charsbox_type)) {
                    out += U' ';
                    continue;
                }
                for (auto const& g : c->charsbox_content) {
                    out += g.base_glyph.glyph_unicodes;
                }
            }
        }
    }
    return textbuf::to_utf8(out);
}

margin_box const* box_at(margin_boxes_res const& r, region where) {
    for (auto const& m : r.res_margin_boxes) {
        if (m.margin_region == where) {
            return &m;
        }
    }
    return nullptr;
}

float center_x(margin_box const& m) {
    return m.margin_pos.x + m.margin_size.w / 2;
}

// The text a content value gives on a page, evaluated from a top-center box's computed content.
std::string content_text_of(std::string const& content, page_info const& info) {
    auto const ps = page_style("@page { @top-center { content: " + content + " } }");
    auto const s = css::page::region_style(ps, region::top_center);
    auto const* list = std::get_if<css::property::content_list>(&s.content);
    if (list == nullptr) {
        return "<no content list>";
    }
    return textbuf::to_utf8(eval_content(info, *list).text_value);
}

prepack::text_thing text(std::u32string t) {
    return prepack::text_thing_text{std::move(t)};
}

// ---- Which boxes exist ----------------------------------------------------------------------------------

TEST(static_, only_boxes_with_content_exist) {
    auto const r = pack("@page { margin: 20mm; @top-left { color: red } @top-center { content: none }"
                        "  @top-right { content: normal } @bottom-center { content: \"\"; background: blue }"
                        "  @bottom-left { content: \"x\" } }");
    ASSERT_EQ(r.res_margin_boxes.size(), 2u);
    // In the order of the regions.
    EXPECT_EQ(r.res_margin_boxes[0].margin_region, region::bottom_left);
    EXPECT_EQ(r.res_margin_boxes[1].margin_region, region::bottom_center);
    EXPECT_FALSE(r.res_margin_boxes[1].margin_content) << "empty content makes a box with nothing in it";
    EXPECT_EQ(text_of(r.res_margin_boxes[0]), "x");
    EXPECT_FALSE(r.res_uses_pages);
    EXPECT_TRUE(pack("@page { margin: 20mm }").res_margin_boxes.empty());
}

// ---- Content on the page --------------------------------------------------------------------------------

TEST(static_, page_numbers_in_counter_styles) {
    struct tcase {
        char const* content;
        char const* expected;
    } const cases[] = {
        {"counter(page)", "3"},
        {"counter(page, upper-roman)", "III"},
        {"counter(page, lower-roman)", "iii"},
        {"counter(page, lower-alpha)", "c"},
        {"counter(page, upper-latin)", "C"},
        {"counter(page, decimal-leading-zero)", "03"},
        {"counter(page, no-such-style)", "3"},
        {"counters(page, \".\")", "3"},
        {"counters(page, \".\", upper-roman)", "III"},
        {"\"Page \" counter(page) \" of \" counter(pages)", "Page 3 of 12"},
    };
    auto info = make_info(3);
    info.general.user_pages_total = 12;
    for (auto const& c : cases) {
        SCOPED_TRACE(c.content);
        EXPECT_EQ(content_text_of(c.content, info), c.expected);
    }
    auto const r = pack("@page { size: a5; margin: 20mm; @bottom-center { content: counter(page, upper-roman) } }",
                        info);
    ASSERT_EQ(r.res_margin_boxes.size(), 1u);
    EXPECT_EQ(text_of(r.res_margin_boxes[0]), "III");
}

TEST(static_, page_total_comes_from_the_previous_pass) {
    auto info = make_info(4);
    auto const sheet = "@page { margin: 20mm; @bottom-right { content: counter(pages) } }";
    // The first pass knows no total: the page number stands in, and the loop learns that it must look.
    auto first = pack(sheet, info);
    EXPECT_TRUE(first.res_uses_pages);
    ASSERT_EQ(first.res_margin_boxes.size(), 1u);
    EXPECT_EQ(text_of(first.res_margin_boxes[0]), "4");
    info.general.user_pages_total = 9;
    EXPECT_EQ(text_of(pack(sheet, info).res_margin_boxes[0]), "9");
    info.general.user_pages_counter = 20;
    EXPECT_EQ(text_of(pack(sheet, info).res_margin_boxes[0]), "20");
    EXPECT_FALSE(pack("@page { margin: 20mm; @bottom-right { content: counter(page) } }", info).res_uses_pages);
}

TEST(static_, named_strings_and_counters_by_page_policy) {
    auto with_values = [](bool set_here) {
        auto info = make_info(2);
        prepack::page_values v;
        v.prev_tvalues["chapter"] = {text(U"One")};
        v.prev_cvalues["chapter"] = 1;
        if (set_here) {
            v.curr_tvalues["chapter"] = {{text(U"Two")}, {text(U"Three")}};
            v.curr_cvalues["chapter"] = {2, 3};
        }
        info.general.page_values = share(std::move(v));
        return info;
    };
    struct tcase {
        char const* content;
        char const* set_here;
        char const* not_set_here;
    } const cases[] = {
        {"string(chapter)", "Two", "One"},
        {"string(chapter, first)", "Two", "One"},
        {"string(chapter, last)", "Three", "One"},
        {"string(chapter, start)", "One", "One"},
        {"string(chapter, first-except)", "", "One"},
        {"string(unknown)", "", ""},
        {"counter(chapter)", "2", "1"},
        {"counter(chapter, upper-roman, last)", "III", "I"},
        {"counter(chapter, start)", "1", "1"},
        {"counter(unset, lower-roman)", "0", "0"},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.content);
        EXPECT_EQ(content_text_of(c.content, with_values(true)), c.set_here);
        EXPECT_EQ(content_text_of(c.content, with_values(false)), c.not_set_here);
    }
}

TEST(static_, strings_holding_page_values_and_unsupported_terms) {
    auto info = make_info(5);
    prepack::page_values values;
    // A string set from content that waited for the page shows it on this page.
    values.prev_tvalues["running"] = {
        text(U"p. "), prepack::text_thing_gen{prepack::gen_counter{prepack::page_counter{"lower-roman"}}}};
    // A string that refers to itself ends rather than looping.
    values.prev_tvalues["loop"] = {text(U"x"), prepack::text_thing_gen{prepack::gen_string{.string_name = "loop"}}};
    info.general.page_values = share(std::move(values));
    EXPECT_EQ(content_text_of("string(running)", info), "p. v");
    // Each level of the string adds its "x" until the depth limit of eight stops it.
    EXPECT_EQ(content_text_of("string(loop)", info), std::string(8, 'x'));
    EXPECT_EQ(content_text_of("\"a\" element(header) leader(dotted) target-counter(url(#x), page) attr(title) \"b\"",
                              info),
              "ab");
}

// ---- Where the boxes go ---------------------------------------------------------------------------------

TEST(static_, a_centred_title_in_the_top_margin) {
    float const width = 148 * mm;
    float const height = 210 * mm;
    float const margin = 20 * mm;
    auto const r = pack("@page { size: a5; margin: 20mm; @top-center { content: \"Title\" } }");
    ASSERT_EQ(r.res_margin_boxes.size(), 1u);
    auto const& m = r.res_margin_boxes[0];
    EXPECT_EQ(m.margin_region, region::top_center);
    EXPECT_EQ(text_of(m), "Title");
    EXPECT_NEAR(center_x(m), width / 2, 0.01);
    EXPECT_NEAR(m.margin_pos.y, height, 0.01);
    EXPECT_NEAR(m.margin_size.h, margin, 0.01);
    auto const lines = lines_of(m);
    ASSERT_EQ(lines.size(), 1u);
    auto const& l = lines.front();
    EXPECT_NEAR(l.linebox_x + l.linebox_w / 2, width / 2, 0.01) << "the text is centred on the page";
    EXPECT_GT(l.linebox_w, 10);

    // Against the same box aligned to the top of the margin, the line is lower by half the room the
    // line (12pt: 1.2 times 10pt) leaves.
    auto const top = pack("@page { size: a5; margin: 20mm; @top-center { content: \"Title\"; vertical-align: top } }");
    auto const top_lines = lines_of(top.res_margin_boxes.at(0));
    ASSERT_EQ(top_lines.size(), 1u);
    EXPECT_NEAR(top_lines.front().linebox_base - l.linebox_base, (margin - 12) / 2, 0.01);
    EXPECT_LT(top_lines.front().linebox_base, height);
    EXPECT_GT(top_lines.front().linebox_base, height - 12);
    auto const bottom =
        pack("@page { size: a5; margin: 20mm; @top-center { content: \"Title\"; vertical-align: bottom } }");
    EXPECT_NEAR(top_lines.front().linebox_base - lines_of(bottom.res_margin_boxes.at(0)).front().linebox_base,
                margin - 12, 0.01);
}

TEST(static_, side_boxes_without_a_center_share_the_row_by_content) {
    float const width = 210 * mm;
    float const margin = 15 * mm;
    auto const r = pack("@page { size: a4; margin: 15mm;"
                        "  @bottom-left { content: \"Short\" }"
                        "  @bottom-right { content: \"A much longer heading on the right\" } }");
    auto const* left = box_at(r, region::bottom_left);
    auto const* right = box_at(r, region::bottom_right);
    ASSERT_TRUE(left && right);
    EXPECT_NEAR(left->margin_pos.x, margin, 0.01);
    EXPECT_NEAR(right->margin_pos.x + right->margin_size.w, width - margin, 0.01);
    EXPECT_NEAR(left->margin_size.w + right->margin_size.w, width - 2 * margin, 0.01) << "the row is filled";
    EXPECT_LT(left->margin_size.w, right->margin_size.w);
    EXPECT_NEAR(left->margin_pos.y, margin, 0.01) << "the bottom row lies in the bottom margin";
    // Each side keeps to its edge of the page.
    auto const ll = lines_of(*left);
    auto const rl = lines_of(*right);
    ASSERT_EQ(ll.size(), 1u);
    ASSERT_EQ(rl.size(), 1u) << "the longer text has the room it needs: " << text_of(*right);
    EXPECT_NEAR(ll.front().linebox_x, margin, 0.01);
    EXPECT_NEAR(rl.front().linebox_x + rl.front().linebox_w, width - margin, 0.01);
}

TEST(static_, a_center_box_of_fixed_width_stays_centred) {
    float const width = 210 * mm;
    auto const r = pack("@page { size: a4; margin: 15mm;"
                        "  @top-center { content: \"Centre\"; width: 100pt }"
                        "  @top-left { content: \"Left\" } }");
    auto const* center = box_at(r, region::top_center);
    auto const* left = box_at(r, region::top_left);
    ASSERT_TRUE(center && left);
    EXPECT_NEAR(center->margin_size.w, 100, 0.01);
    EXPECT_NEAR(center_x(*center), width / 2, 0.01);
    EXPECT_NEAR(left->margin_pos.x + left->margin_size.w, center->margin_pos.x, 0.01)
        << "the left box takes what the center leaves";
}

TEST(static_, alignment_defaults_by_place_and_declarations_win) {
    auto const r = pack("@page { size: a4; margin: 20mm;"
                        "  @top-left-corner { content: \"TL\" }"
                        "  @top-right-corner { content: \"TR\" }"
                        "  @top-left { content: \"A\"; text-align: right }"
                        "  @left-top { content: \"LT\" }"
                        "  @left-middle { content: \"LM\" }"
                        "  @left-bottom { content: \"LB\" } }");
    auto right_end = [](margin_box const& m) { return m.margin_pos.x + m.margin_size.w; };
    auto line = [](margin_box const* m) {
        EXPECT_TRUE(m);
        auto const ls = m ? lines_of(*m) : std::vector<linebox>{};
        EXPECT_EQ(ls.size(), 1u);
        return ls.empty() ? linebox{} : ls.front();
    };
    // The top corners lean toward the page's middle.
    auto const* tl = box_at(r, region::top_left_corner);
    auto const* tr = box_at(r, region::top_right_corner);
    EXPECT_NEAR(line(tl).linebox_x + line(tl).linebox_w, right_end(*tl), 0.01);
    EXPECT_NEAR(line(tr).linebox_x, tr->margin_pos.x, 0.01);
    EXPECT_NEAR(tl->margin_size.w, 20 * mm, 0.01) << "a corner is as wide as its margin";
    // A declared text-align overrides the default.
    auto const* a = box_at(r, region::top_left);
    EXPECT_NEAR(line(a).linebox_x + line(a).linebox_w, right_end(*a), 0.01);
    // The side column: centred across; the boxes at its ends keep to them, the middle one is centred.
    auto const* lt = box_at(r, region::left_top);
    auto const* lm = box_at(r, region::left_middle);
    auto const* lb = box_at(r, region::left_bottom);
    ASSERT_TRUE(lt && lm && lb);
    EXPECT_NEAR(line(lm).linebox_x + line(lm).linebox_w / 2, 10 * mm, 0.01);
    EXPECT_NEAR(lt->margin_pos.y, (297 - 20) * mm, 0.01);
    EXPECT_NEAR(lb->margin_pos.y - lb->margin_size.h, 20 * mm, 0.01);
    EXPECT_LT(lm->margin_pos.y, lt->margin_pos.y - lt->margin_size.h + 0.01);
    float const middle = lm->margin_pos.y - lm->margin_size.h / 2;
    EXPECT_NEAR(middle, 297 * mm / 2, 0.01) << "the middle box is in the middle of the page";
    float const lt_top = lt->margin_pos.y;
    float const lb_bottom = lb->margin_pos.y - lb->margin_size.h;
    EXPECT_GT(line(lt).linebox_base, lt_top - 12) << "at the top of its box";
    EXPECT_LT(line(lb).linebox_base, lb_bottom + 12) << "at the bottom of its box";
    // The 12pt line of the middle box is centred on the box: its baseline is as far below the line's
    // top as in the box at the top.
    float const below_top = lt_top - line(lt).linebox_base;
    EXPECT_NEAR(line(lm).linebox_base, middle + 6 - below_top, 0.01);
}

TEST(static_, borders_padding_and_margins_frame_the_content) {
    float const width = 210 * mm;
    auto const r = pack("@page { size: a4; margin: 20mm;"
                        "  @top-center { content: \"Boxed\"; margin: 5pt; padding: 4pt; border: 2pt solid black;"
                        "                vertical-align: top } }");
    ASSERT_EQ(r.res_margin_boxes.size(), 1u);
    auto const& m = r.res_margin_boxes[0];
    EXPECT_NEAR(m.margin_pos.y, 297 * mm - 5, 0.01) << "the border box lies inside the margin";
    EXPECT_NEAR(m.margin_size.h, 20 * mm - 10, 0.01);
    EXPECT_NEAR(center_x(m), width / 2, 0.01);
    ASSERT_TRUE(m.margin_content);
    auto const& content = **m.margin_content;
    EXPECT_NEAR(content.box_y, m.margin_pos.y - 6, 0.01);
    EXPECT_NEAR(content.box_x, m.margin_pos.x + 6, 0.01);
    EXPECT_NEAR(content.box_w, m.margin_size.w - 12, 0.01);
    // The sides are empty, so the centre box takes the whole row and its text stands on one line
    // within the frame.
    EXPECT_NEAR(m.margin_size.w, width - 40 * mm - 10, 0.01);
    auto const ls = lines_of(m);
    ASSERT_EQ(ls.size(), 1u);
    EXPECT_LT(ls.front().linebox_w, content.box_w);
    EXPECT_LT(ls.front().linebox_base, content.box_y);
    EXPECT_GT(ls.front().linebox_base, content.box_y - 12);
}

TEST(static_, long_text_wraps_at_the_widest_word) {
    // Two boxes wanting more than the row: each gets at least its widest word, and lines wrap.
    auto const r = pack("@page { size: a6; margin: 10mm;"
                        "  @top-left { content: \"alpha beta gamma delta epsilon zeta eta theta\" }"
                        "  @top-right { content: \"iota kappa lambda mu nu xi omicron pi rho sigma\" } }");
    auto const* left = box_at(r, region::top_left);
    auto const* right = box_at(r, region::top_right);
    ASSERT_TRUE(left && right);
    EXPECT_GT(lines_of(*left).size(), 1u);
    EXPECT_GT(lines_of(*right).size(), 1u);
    for (auto const* m : {left, right}) {
        for (auto const& l : lines_of(*m)) {
            EXPECT_LE(l.linebox_x + l.linebox_w, m->margin_pos.x + m->margin_size.w + 0.01) << text_of(*m);
            EXPECT_GE(l.linebox_x, m->margin_pos.x - 0.01);
        }
    }
}

} // namespace
} // namespace vellum::pack::static_
