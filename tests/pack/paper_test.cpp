#include "css/parser.hpp"
#include "css/propnames.hpp"
#include "pack/paper.hpp"

#include <gtest/gtest.h>

namespace vellum::pack::paper {
namespace {

using areas::area;

css::page::page_style page_style(std::string_view text) {
    auto e = css::parser::new_env("print");
    e.known_property = &css::propnames::known_property;
    log::log quiet;
    quiet.log_stderr = log::no_stderr_log{};
    e = css::parser::parse_style_sheet(quiet, {}, css::origin::author, "file:///p.css", text, std::move(e));
    return css::page::page_style_of(css::page::make_pages(e.pages), {}, nullptr);
}

void expect_area(area const& got, area const& expected) {
    EXPECT_NEAR(got.top, expected.top, 0.001);
    EXPECT_NEAR(got.bottom, expected.bottom, 0.001);
    EXPECT_NEAR(got.left, expected.left, 0.001);
    EXPECT_NEAR(got.right, expected.right, 0.001);
}

util::pos::pos apply(matrix::matrix const& m, float x, float y) {
    return matrix::apply(m, {x, y});
}

TEST(paper, plain_page) {
    auto const pa = paper_areas_of(page_style("@page { margin: 1in }"), std::nullopt);
    area const sheet{792, 0, 0, 612};
    expect_area(pa.real_media_box, sheet);
    expect_area(pa.real_bleed_box, sheet);
    expect_area(pa.real_trim_box, sheet);
    expect_area(pa.margin_area, sheet);
    expect_area(pa.pa_body_area, {720, 72, 72, 540});
    expect_area(pa.pa_body_trim_box, sheet);
    expect_area(pa.hfs_margin_area, sheet);
    EXPECT_EQ(pa.hfs_margins, (css::page::sides<float>{72, 72, 72, 72}));
    EXPECT_FALSE(pa.shrink_to_fit);
    EXPECT_EQ(body_to_paper(pa, css::page::vellum_rotate_body::rotate_body_0), matrix::identity);
}

TEST(paper, page_with_bleed_and_marks) {
    auto const pa = paper_areas_of(page_style(R"(@page {
        size: 400pt 600pt; marks: crop; margin: 50pt 40pt 30pt 20pt; border: 2pt solid; padding: 3pt })"),
                                   std::nullopt);
    // Bleed 6, then an offset of 6 and marks of 24 beyond it: the sheet is 36 larger on each side.
    expect_area(pa.real_media_box, {672, 0, 0, 472});
    expect_area(pa.real_trim_box, {636, 36, 36, 436});
    expect_area(pa.real_bleed_box, {642, 30, 30, 442});
    expect_area(pa.margin_area, pa.real_trim_box);
    // The body is inside the margins, the border and the padding.
    expect_area(pa.pa_body_area, {581, 71, 61, 391});
    expect_area(pa.pa_body_bleed_box, pa.real_bleed_box);
    expect_area(pa.hfs_bleed_box, pa.real_bleed_box);
    EXPECT_EQ(pa.used_paper_style.used_padding_left, 3);
    EXPECT_EQ(pa.used_paper_style.used_borders.borders_top.border_width, 2);
}

TEST(paper, bleed_stops_at_the_sheet_edge) {
    auto const pa =
        paper_areas_of(page_style("@page { size: 100pt; -vellum-trim: 2pt; bleed: 10pt }"), std::nullopt);
    expect_area(pa.real_media_box, {104, 0, 0, 104});
    expect_area(pa.real_trim_box, {102, 2, 2, 102});
    expect_area(pa.real_bleed_box, pa.real_media_box);
}

TEST(paper, margin_percentages_follow_the_page_sides) {
    auto const pa = paper_areas_of(page_style("@page { size: 400pt 600pt; margin: 10% }"), std::nullopt);
    expect_area(pa.pa_body_area, {540, 60, 40, 360});
    auto const pa2 = paper_areas_of(page_style("@page { size: 400pt 600pt; margin: auto }"), std::nullopt);
    expect_area(pa2.pa_body_area, {600, 0, 0, 400});
}

TEST(paper, turned_body) {
    // A body area 300 wide and 500 high, centred at (200, 300).
    auto const style = page_style("@page { size: 400pt 600pt; margin: 50pt; -vellum-rotate-body: 90deg }");
    auto const pa = paper_areas_of(style, std::nullopt);
    expect_area(pa.pa_body_area, {450, 150, -50, 450});
    // Turned a quarter clockwise, the body's top left corner lands at the top right of the paper's
    // body area, and its top edge runs down the right side.
    auto const m = body_to_paper(pa, style.page_rotate_body);
    auto const tl = apply(m, pa.pa_body_area.left, pa.pa_body_area.top);
    EXPECT_NEAR(tl.x, 350, 0.001);
    EXPECT_NEAR(tl.y, 550, 0.001);
    auto const tr = apply(m, pa.pa_body_area.right, pa.pa_body_area.top);
    EXPECT_NEAR(tr.x, 350, 0.001);
    EXPECT_NEAR(tr.y, 50, 0.001);
    // The trim box turns with it, and the margin boxes stay upright.
    expect_area(pa.pa_body_trim_box, {500, 100, -100, 500});
    expect_area(pa.hfs_margin_area, {600, 0, 0, 400});

    for (char const* turn : {"0deg", "90deg", "180deg", "270deg"}) {
        SCOPED_TRACE(turn);
        auto const s = page_style(std::string("@page { size: 400pt 600pt; margin: 10pt 20pt 30pt 40pt; "
                                              "-vellum-shrink-to-fit: auto; -vellum-rotate-body: ") +
                                  turn + " }");
        auto const p = paper_areas_of(s, 2.0f);
        // Whatever the turn and scale, the body's frame maps its areas back onto the paper's.
        auto const to_paper = body_to_paper(p, s.page_rotate_body);
        for (auto const& [body, paper] : {std::pair{p.pa_body_area, area{590, 30, 40, 380}},
                                          std::pair{p.pa_body_trim_box, p.real_trim_box}}) {
            auto const a = apply(to_paper, body.left, body.bottom);
            auto const b = apply(to_paper, body.right, body.top);
            EXPECT_NEAR(std::min(a.x, b.x), paper.left, 0.001);
            EXPECT_NEAR(std::max(a.x, b.x), paper.right, 0.001);
            EXPECT_NEAR(std::min(a.y, b.y), paper.bottom, 0.001);
            EXPECT_NEAR(std::max(a.y, b.y), paper.top, 0.001);
        }
    }
}

TEST(paper, shrinking_to_fit) {
    EXPECT_EQ(shrink_factor(300, 200), 1.5f);
    EXPECT_FALSE(shrink_factor(200, 200));
    EXPECT_FALSE(shrink_factor(100, 200));
    EXPECT_FALSE(shrink_factor(100, 0));

    auto const shrinking =
        page_style("@page { size: 400pt 600pt; margin: 50pt; -vellum-shrink-to-fit: auto }");
    auto const pa = paper_areas_of(shrinking, 1.5f);
    EXPECT_EQ(pa.shrink_to_fit, 1.5f);
    expect_area(pa.pa_body_area, {825, 75, 75, 525});
    // The margin boxes keep their size unless they are asked to shrink too.
    expect_area(pa.hfs_margin_area, {600, 0, 0, 400});
    EXPECT_EQ(margin_boxes_to_paper(pa), matrix::identity);
    auto const tl = apply(body_to_paper(pa, shrinking.page_rotate_body), 75, 825);
    EXPECT_NEAR(tl.x, 50, 0.001);
    EXPECT_NEAR(tl.y, 550, 0.001);

    auto const both =
        paper_areas_of(page_style("@page { size: 400pt 600pt; margin: 50pt; -vellum-shrink-to-fit: auto; "
                                  "-vellum-shrink-margin-boxes: true }"),
                       1.5f);
    expect_area(both.hfs_margin_area, {900, 0, 0, 600});
    EXPECT_EQ(both.hfs_margins.sides_top, 75);
    auto const corner = matrix::apply(margin_boxes_to_paper(both), {600, 900});
    EXPECT_NEAR(corner.x, 400, 0.001);
    EXPECT_NEAR(corner.y, 600, 0.001);

    // A factor is ignored when the page may not shrink, or when it would grow the page.
    EXPECT_FALSE(paper_areas_of(page_style("@page { margin: 50pt }"), 1.5f).shrink_to_fit);
    EXPECT_FALSE(paper_areas_of(shrinking, 0.5f).shrink_to_fit);
}

} // namespace
} // namespace vellum::pack::paper
