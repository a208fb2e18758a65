#include "css/compute_style.hpp"
#include "css/page.hpp"
#include "css/parser.hpp"
#include "css/propnames.hpp"

#include <cstdio>
#include <functional>

#include <gtest/gtest.h>

namespace vellum::css::page {
namespace {

log::log quiet_log() {
    log::log l;
    l.log_stderr = log::no_stderr_log{};
    return l;
}

std::vector<page_rule::page_rule> sheet_rules(std::string_view text) {
    auto e = parser::new_env("print");
    e.known_property = &propnames::known_property;
    e = parser::parse_style_sheet(quiet_log(), {}, origin::author, "file:///page.css", text, std::move(e));
    return e.pages;
}

pages sheet(std::string_view text) {
    return make_pages(sheet_rules(text));
}

page_query nth(int n, page_side side = page_side::right) {
    return {.query_group_page = n, .query_side = side};
}

page_style style_of(std::string_view text, page_query const& q = nth(1)) {
    return page_style_of(sheet(text), q, nullptr);
}

float margin(box::margin const& m) {
    auto const* f = std::get_if<float>(&m);
    return f != nullptr ? *f : -1;
}

constexpr float mm = 72.0f / 25.4f;

TEST(page, size_names_and_orientations) {
    struct size_case {
        char const* value;
        float width;
        float height;
    };

    size_case const cases[] = {
        {"auto", 612, 792},
        {"portrait", 612, 792},
        {"landscape", 792, 612},
        {"a4", 210 * mm, 297 * mm},
        {"A4", 210 * mm, 297 * mm},
        {"a4 landscape", 297 * mm, 210 * mm},
        {"landscape a4", 297 * mm, 210 * mm},
        {"a4 portrait", 210 * mm, 297 * mm},
        {"a5", 148 * mm, 210 * mm},
        {"a5 landscape", 210 * mm, 148 * mm},
        {"b5", 176 * mm, 250 * mm},
        {"c4", 229 * mm, 324 * mm},
        {"a10", 26 * mm, 37 * mm},
        {"letter", 612, 792},
        {"us-letter landscape", 792, 612},
        {"legal", 612, 1008},
        // A bare name keeps the dimensions as quoted, so ledger is wide; an orientation turns it.
        {"ledger", 1224, 792},
        {"ledger portrait", 792, 1224},
        {"us-tabloid", 792, 1224},
        {"id-1", 85.6f * mm, 53.98f * mm},
        {"id-1 portrait", 53.98f * mm, 85.6f * mm},
        {"arch-e1", 30 * 72, 42 * 72},
        {"demy-octavo", 5.625f * 72, 8.75f * 72},
        {"10cm", 100 * mm, 100 * mm},
        {"4in 6in", 288, 432},
        {"6in 4in", 432, 288},
        {"4in 6in landscape", 432, 288},
        {"portrait 6in 4in", 288, 432},
        // Values that don't parse leave the default paper.
        {"a11", 612, 792},
        {"a01", 612, 792},
        {"a4 10cm", 612, 792},
        {"auto landscape", 612, 792},
        {"1cm 2cm 3cm", 612, 792},
        {"-1cm", 612, 792},
        {"landscape landscape", 612, 792},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.value);
        auto const ps = style_of(std::string("@page { size: ") + c.value + " }");
        EXPECT_NEAR(ps.page_size.paper_width, c.width, 0.01);
        EXPECT_NEAR(ps.page_size.paper_height, c.height, 0.01);
    }
}

TEST(page, an_orientation_alone_turns_the_paper_chosen_before) {
    struct orient_case {
        char const* sheet;
        float width, height;
    };
    orient_case const cases[] = {
        // The command line's --page-size comes in as an earlier rule of the user.
        {"@page { size: a4 } @page { size: landscape }", 297 * mm, 210 * mm},
        {"@page { size: a4 landscape } @page { size: portrait }", 210 * mm, 297 * mm},
        {"@page { size: ledger } @page { size: portrait }", 792, 1224},
        // "auto" goes back to the default paper; a later paper replaces the earlier one whole.
        {"@page { size: a4 } @page { size: auto }", 612, 792},
        {"@page { size: a4 landscape } @page { size: a5 }", 148 * mm, 210 * mm},
        {"@page { size: landscape }", 792, 612},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.sheet);
        auto const ps = style_of(c.sheet);
        EXPECT_NEAR(ps.page_size.paper_width, c.width, 0.01);
        EXPECT_NEAR(ps.page_size.paper_height, c.height, 0.01);
    }
}

TEST(page, size_in_em_counts_against_the_page_font) {
    auto const ps = style_of("@page { font-size: 20pt; size: 10em 20em }");
    EXPECT_FLOAT_EQ(ps.page_size.paper_width, 200);
    EXPECT_FLOAT_EQ(ps.page_size.paper_height, 400);
}

TEST(page, an_invalid_size_keeps_the_earlier_one) {
    auto const ps = style_of("@page { size: a4 } @page { size: wide }");
    EXPECT_NEAR(ps.page_size.paper_width, 210 * mm, 0.01);
}

TEST(page, selectors_pick_pages) {
    auto const rules = sheet(R"(
        @page { margin: 10pt }
        @page :first { margin-top: 50pt }
        @page :left { margin-left: 30pt }
        @page :right { margin-right: 40pt }
        @page :blank { margin-bottom: 1pt }
        @page chapter { margin-bottom: 7pt }
        @page chapter:left { margin-top: 3pt }
        @page chapter:first:right { margin-top: 99pt }
    )");

    struct page_case {
        char const* name;
        page_query query;
        float top, right, bottom, left;
    };

    page_case const cases[] = {
        {"first right", {.query_group_page = 1, .query_side = page_side::right}, 50, 40, 10, 10},
        {"second left", {.query_group_page = 2, .query_side = page_side::left}, 10, 10, 10, 30},
        {"third right", {.query_group_page = 3, .query_side = page_side::right}, 10, 40, 10, 10},
        {"blank left",
         {.query_group_page = 4, .query_side = page_side::left, .query_blank = true},
         10,
         10,
         1,
         30},
        {"chapter left",
         {.query_page_name = "chapter", .query_group_page = 2, .query_side = page_side::left},
         3,
         10,
         7,
         30},
        {"chapter first right",
         {.query_page_name = "chapter", .query_group_page = 1, .query_side = page_side::right},
         99,
         40,
         7,
         10},
        {"other name", {.query_page_name = "index", .query_group_page = 2}, 10, 40, 10, 10},
        // Names are compared as written.
        {"name case", {.query_page_name = "Chapter", .query_group_page = 2}, 10, 40, 10, 10},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.name);
        auto const ps = page_style_of(rules, c.query, nullptr);
        EXPECT_EQ(margin(ps.region_body->margin_top), c.top);
        EXPECT_EQ(margin(ps.region_body->margin_right), c.right);
        EXPECT_EQ(margin(ps.region_body->margin_bottom), c.bottom);
        EXPECT_EQ(margin(ps.region_body->margin_left), c.left);
    }
}

TEST(page, nth_page_counts_in_the_page_group) {
    page const third{std::nullopt, {nth_page{3}}};
    EXPECT_FALSE(page_matches(third, nth(1)));
    EXPECT_TRUE(page_matches(third, nth(3)));
    page const named_first{"toc", {nth_page{1}, left_page{}}};
    EXPECT_TRUE(page_matches(named_first, {.query_page_name = "toc", .query_side = page_side::left}));
    EXPECT_FALSE(page_matches(named_first, {.query_page_name = "toc", .query_side = page_side::right}));
    EXPECT_FALSE(page_matches(named_first, {.query_side = page_side::left}));
}

TEST(page, cascade_weighs_name_then_first_then_side_then_order) {
    // A rule that is more specific wins whatever the order of the sheet.
    EXPECT_NEAR(style_of("@page :first { size: a5 } @page { size: a4 }").page_size.paper_width, 148 * mm,
                0.01);
    EXPECT_NEAR(style_of("@page :first { size: a5 } @page :right { size: a4 }").page_size.paper_width,
                148 * mm, 0.01);
    page_query const chapter{.query_page_name = "chapter"};
    EXPECT_NEAR(
        style_of("@page chapter { size: a3 } @page :first:right { size: a5 }", chapter).page_size.paper_width,
        297 * mm, 0.01);
    // Equal weights: the later one.
    EXPECT_NEAR(style_of("@page :right { size: a3 } @page :first { size: a5 } @page :first { size: a6 }")
                    .page_size.paper_width,
                105 * mm, 0.01);
    // !important beats specificity.
    EXPECT_NEAR(style_of("@page { size: a4 !important } @page :first { size: a5 }").page_size.paper_width,
                210 * mm, 0.01);
    EXPECT_EQ(specificity(page{"x", {nth_page{1}, left_page{}}}), (selector::specific{1, 1, 1}));
    EXPECT_EQ(specificity(page{std::nullopt, {blank_page{}, right_page{}}}), (selector::specific{0, 1, 1}));
}

TEST(page, initial_resets_to_the_default) {
    auto const ps =
        style_of("@page { marks: crop; size: a4 } @page :first { marks: initial; size: initial }");
    EXPECT_EQ(ps.page_marks, marks::none);
    EXPECT_EQ(ps.page_size, default_paper);
    EXPECT_EQ(ps.page_bleed, (bleed{}));
}

TEST(page, defaults) {
    auto const ps = style_of("");
    EXPECT_EQ(ps.page_size, default_paper);
    EXPECT_EQ(ps.page_marks, marks::none);
    EXPECT_EQ(ps.page_bleed, (bleed{}));
    EXPECT_EQ(ps.page_trim, (trim{}));
    EXPECT_EQ(ps.page_rotate_body, vellum_rotate_body::rotate_body_0);
    EXPECT_EQ(ps.page_label, vellum_pdf_page_label{box::auto_value{}});
    EXPECT_EQ(ps.page_shrink_to_fit, shrink_to_fit::none);
    EXPECT_FALSE(ps.page_shrink_margin_boxes);
    EXPECT_TRUE(ps.page_regions.empty());
    ASSERT_TRUE(ps.region_body);
    EXPECT_EQ(ps.region_body->font_size, 12);
}

TEST(page, marks_bleed_and_trim) {
    EXPECT_EQ(style_of("@page { marks: crop cross }").page_marks, marks::both);
    EXPECT_EQ(style_of("@page { marks: cross crop }").page_marks, marks::both);
    EXPECT_EQ(style_of("@page { marks: cross }").page_marks, marks::cross);
    EXPECT_EQ(style_of("@page { marks: crop; marks: crop crop }").page_marks, marks::crop);
    EXPECT_EQ(style_of("@page { marks: crop; marks: none crop }").page_marks, marks::crop);
    EXPECT_EQ(style_of("@page { marks: crop; marks: none }").page_marks, marks::none);

    // With marks and every length left to auto: a small bleed, then the offset and the marks beyond it.
    auto const crop = style_of("@page { marks: crop }");
    EXPECT_EQ(crop.page_bleed, (bleed{6, 6, 6, 6}));
    EXPECT_EQ(crop.page_mark_length, default_mark_length);
    EXPECT_EQ(crop.page_mark_offset, (mark_offset{6, 6, 6, 6}));
    EXPECT_EQ(crop.page_trim, (trim{36, 36, 36, 36}));

    auto const set = style_of("@page { marks: crop; bleed: 1pt 2pt 3pt 4pt; mark-length: 10pt; mark-offset: "
                              "1pt 2pt; font-size: 10pt }");
    EXPECT_EQ(set.page_bleed, (bleed{1, 2, 3, 4}));
    EXPECT_EQ(set.page_mark_offset, (mark_offset{1, 2, 1, 2}));
    EXPECT_EQ(set.page_trim, (trim{12, 14, 14, 16}));

    EXPECT_EQ(style_of("@page { bleed: 1pt 2pt 3pt }").page_bleed, (bleed{1, 2, 3, 2}));
    EXPECT_EQ(style_of("@page { bleed: 1pt 2pt }").page_bleed, (bleed{1, 2, 1, 2}));
    EXPECT_EQ(style_of("@page { bleed: 1em; font-size: 20pt }").page_bleed, (bleed{20, 20, 20, 20}));
    // Without marks the media box ends at the bleed.
    EXPECT_EQ(style_of("@page { bleed: 5pt }").page_trim, (trim{5, 5, 5, 5}));
    EXPECT_FLOAT_EQ(style_of("@page { -vellum-trim: 1cm; bleed: 5pt }").page_trim.sides_top, 10 * mm);

    // Values that don't parse are dropped.
    EXPECT_EQ(style_of("@page { bleed: 2pt; bleed: -1pt }").page_bleed, (bleed{2, 2, 2, 2}));
    EXPECT_EQ(style_of("@page { bleed: 2pt; bleed: 1pt 1pt 1pt 1pt 1pt }").page_bleed, (bleed{2, 2, 2, 2}));
    EXPECT_EQ(style_of("@page { bleed: 2pt; bleed: 10% }").page_bleed, (bleed{2, 2, 2, 2}));
    EXPECT_EQ(style_of("@page { marks: crop; mark-length: 5pt; mark-length: 1pt 2pt }").page_mark_length, 5);
    EXPECT_EQ(style_of("@page { bleed: 2pt; bleed: auto }").page_bleed, (bleed{}));
}

TEST(page, rotation_of_the_body) {
    struct rotate_case {
        char const* css;
        vellum_rotate_body expected;
    };

    rotate_case const cases[] = {
        {"-vellum-rotate-body: 90deg", vellum_rotate_body::rotate_body_90},
        {"-vellum-rotate-body: 0.5turn", vellum_rotate_body::rotate_body_180},
        {"-vellum-rotate-body: 270deg", vellum_rotate_body::rotate_body_270},
        {"-vellum-rotate-body: 0", vellum_rotate_body::rotate_body_0},
        {"-vellum-rotate-body: 90deg; -vellum-rotate-body: 45deg", vellum_rotate_body::rotate_body_90},
        {"-vellum-rotate-body: 90deg; -vellum-rotate-body: 90", vellum_rotate_body::rotate_body_90},
        // An orientation turns the body only when the paper has the other one.
        {"-vellum-rotate-body: landscape", vellum_rotate_body::rotate_body_270},
        {"-vellum-rotate-body: portrait", vellum_rotate_body::rotate_body_0},
        {"size: a4 landscape; -vellum-rotate-body: landscape", vellum_rotate_body::rotate_body_0},
        {"size: a4 landscape; -vellum-rotate-body: portrait", vellum_rotate_body::rotate_body_270},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.css);
        EXPECT_EQ(style_of(std::string("@page { ") + c.css + " }").page_rotate_body, c.expected);
    }
}

TEST(page, shrinking_and_labels) {
    auto const ps = style_of(R"(@page {
        -vellum-shrink-to-fit: auto;
        -vellum-shrink-margin-boxes: true;
        -vellum-pdf-page-label: "A-" counter(page);
    })");
    EXPECT_EQ(ps.page_shrink_to_fit, shrink_to_fit::auto_);
    EXPECT_TRUE(ps.page_shrink_margin_boxes);
    auto const* label = std::get_if<property::content_list>(&ps.page_label);
    ASSERT_TRUE(label);
    EXPECT_EQ(label->content_items.size(), 2u);

    auto const dropped = style_of(R"(@page {
        -vellum-shrink-to-fit: auto; -vellum-shrink-to-fit: yes;
        -vellum-shrink-margin-boxes: true; -vellum-shrink-margin-boxes: 1;
        -vellum-pdf-page-label: "x"; -vellum-pdf-page-label: none;
    })");
    EXPECT_EQ(dropped.page_shrink_to_fit, shrink_to_fit::auto_);
    EXPECT_TRUE(dropped.page_shrink_margin_boxes);
    EXPECT_TRUE(std::holds_alternative<property::content_list>(dropped.page_label));
    EXPECT_EQ(style_of("@page { -vellum-pdf-page-label: \"x\"; -vellum-pdf-page-label: auto }").page_label,
              vellum_pdf_page_label{box::auto_value{}});
}

TEST(page, body_inherits_from_the_root_element) {
    auto const root_decl =
        property::parse_declaration(propnames::prop_name::prop_font_size, *parser::parse_value("", "16pt"));
    ASSERT_TRUE(root_decl);
    auto const root =
        share(compute_style::compute_style(nullptr, compute_style::anonymous_context{}, {*root_decl}));
    auto const ps = page_style_of(sheet("@page { margin: 2em; color: red }"), nth(1), root);
    EXPECT_EQ(ps.region_body->font_size, 16);
    EXPECT_EQ(margin(ps.region_body->margin_left), 32);
    EXPECT_EQ(ps.region_body->color, color::color(color::rgb{1, 0, 0}));
}

TEST(page, margin_boxes_are_styled_against_the_page) {
    auto const rules = sheet(R"(
        @page { font-size: 10pt; color: blue;
            @top-center { content: "x"; font-size: 2em }
            @bottom-left { margin: 1em }
            @unknown { color: green }
            @footnotes { border-top: 1pt solid }
        }
        @page :first { @top { color: red } }
        @page :left { @top-left { color: green } }
    )");
    auto const first = page_style_of(rules, nth(1), nullptr);
    auto const top = region_style(first, region::top_center);
    EXPECT_EQ(top.font_size, 20);
    EXPECT_EQ(top.color, color::color(color::rgb{1, 0, 0}));
    EXPECT_EQ(margin(region_style(first, region::bottom_left).margin_top), 10);
    EXPECT_EQ(region_style(first, region::footnotes).borders->borders_top.border_width, 1);
    EXPECT_EQ(region_declarations_of(first, region::top_left), nullptr);
    // A region that no rule declares still has a style: the page's, inherited.
    EXPECT_EQ(region_style(first, region::right_middle).color, color::color(color::rgb{0, 0, 1}));

    auto const second = page_style_of(rules, nth(2, page_side::left), nullptr);
    EXPECT_EQ(region_style(second, region::top_center).color, color::color(color::rgb{0, 0, 1}));
    EXPECT_NE(region_declarations_of(second, region::top_left), nullptr);
    std::vector<region> declared;
    for (auto const& [r, decls] : second.page_regions) {
        declared.push_back(r);
    }
    EXPECT_EQ(declared, (std::vector<region>{region::top_left, region::top_center, region::bottom_left,
                                             region::footnotes}));
}

TEST(page, region_declarations_follow_priority) {
    auto const ps = style_of(R"(
        @page :first { @top-left { color: red } }
        @page { @top-left { color: green; font-size: 8pt } }
        @page :first { @top-left { font-size: 9pt } }
    )");
    auto const s = region_style(ps, region::top_left);
    EXPECT_EQ(s.color, color::color(color::rgb{1, 0, 0}));
    EXPECT_EQ(s.font_size, 9);
}

std::string logged(std::function<void(log::log const&)> const& f) {
    std::FILE* out = std::tmpfile();
    log::log l;
    l.log_stderr = log::console_log::console_log{.progname = "vellum", .console_out = out};
    f(l);
    std::fflush(out);
    std::rewind(out);
    char buf[512] = {};
    auto const n = std::fread(buf, 1, sizeof buf - 1, out);
    std::fclose(out);
    return std::string(buf, n);
}

TEST(page, command_line_rules) {
    std::optional<page_rule::page_rule> size;
    std::optional<page_rule::page_rule> margins;
    auto const quiet = logged([&](log::log const& l) {
        size = page_size_rule(l, "A5 landscape");
        margins = page_margin_rule(l, "1in 2cm");
    });
    EXPECT_EQ(quiet, "");
    ASSERT_TRUE(size && margins);
    EXPECT_EQ(size->selector, page{});
    ASSERT_EQ(size->page_declarations.size(), 1u);
    EXPECT_EQ(size->page_declarations[0].origin, origin::user);
    EXPECT_EQ(size->page_declarations[0].index, 0);

    // The user's rules apply where the document says nothing, and yield to the document's own.
    auto rules = std::vector{*margins, *size};
    auto const alone = page_style_of(make_pages(rules), nth(1), nullptr);
    EXPECT_NEAR(alone.page_size.paper_width, 210 * mm, 0.01);
    EXPECT_EQ(margin(alone.region_body->margin_top), 72);
    EXPECT_NEAR(margin(alone.region_body->margin_left), 20 * mm, 0.01);
    auto const author = sheet_rules("@page { margin-top: 5pt }");
    rules.insert(rules.end(), author.begin(), author.end());
    auto const both = page_style_of(make_pages(rules), nth(1), nullptr);
    EXPECT_EQ(margin(both.region_body->margin_top), 5);
    EXPECT_NEAR(both.page_size.paper_width, 210 * mm, 0.01);

    auto const warned = logged([&](log::log const& l) {
        EXPECT_FALSE(page_size_rule(l, "huge"));
        EXPECT_FALSE(page_margin_rule(l, "wide"));
        EXPECT_FALSE(page_size_rule(l, "a4 {"));
    });
    EXPECT_NE(warned.find("invalid --page-size: huge"), std::string::npos) << warned;
    EXPECT_NE(warned.find("invalid --page-margin: wide"), std::string::npos) << warned;
    EXPECT_NE(warned.find("invalid --page-size: a4 {"), std::string::npos) << warned;
}

} // namespace
} // namespace vellum::css::page
