#include "pack/margin_boxes.hpp"
#include "util/result.hpp"

#include <gtest/gtest.h>

namespace vellum::pack::margin_boxes {
namespace {

using css::page::region;

margin_box_width fixed(float w) {
    return fixed_width{w};
}

margin_box_width content(float min, float max) {
    return min_max_width{min, max};
}

void expect_widths(lcr_widths const& got, float start, float center, float end) {
    EXPECT_NEAR(got.lcr_start, start, 0.001);
    EXPECT_NEAR(got.lcr_center, center, 0.001);
    EXPECT_NEAR(got.lcr_end, end, 0.001);
}

TEST(margin_boxes, widths_of_a_row) {
    struct row_case {
        char const* name;
        row_boxes row;
        float total;
        float start, center, end;
    };

    row_case const cases[] = {
        {"only center", {std::nullopt, content(50, 100), std::nullopt}, 300, 0, 300, 0},
        {"only center, fixed", {std::nullopt, fixed(100), std::nullopt}, 300, 100, 100, 100},
        {"left and right by content", {content(10, 100), std::nullopt, content(10, 50)}, 300, 200, 0, 100},
        {"left alone", {content(20, 60), std::nullopt, std::nullopt}, 300, 300, 0, 0},
        {"nothing at all", {}, 300, 150, 0, 150},
        {"left and right need more than there is",
         {content(200, 300), std::nullopt, content(200, 300)},
         300,
         200,
         0,
         200},
        // The sides are sized together, by the wider demand of the two, so the center stays centred.
        {"all three by content", {content(10, 100), content(30, 200), content(20, 50)}, 400, 100, 200, 100},
        {"a fixed side and a center by content",
         {fixed(80), content(0, 500), content(0, 30)},
         300,
         80,
         140,
         80},
        {"a fixed side too wide for the center",
         {fixed(200), content(0, 500), std::nullopt},
         300,
         200,
         0,
         200},
        {"a fixed center with sides by content",
         {content(0, 50), fixed(100), std::nullopt},
         300,
         100,
         100,
         100},
        {"all fixed share the rest in proportion", {fixed(50), fixed(100), fixed(70)}, 300, 87.5, 125, 87.5},
        {"left and right fixed without center", {fixed(100), std::nullopt, fixed(50)}, 300, 200, 0, 100},
        {"minimums hold", {content(120, 130), content(100, 1000), std::nullopt}, 300, 120, 100, 120},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.name);
        expect_widths(cal_lcr_width(c.row, c.total), c.start, c.center, c.end);
        // A column down the side of the page follows the same rules on its height.
        expect_widths(cal_tmb_height(c.row, c.total), c.start, c.center, c.end);
    }
}

areas::area at(std::array<areas::area, margin_box_count> const& boxes, region r) {
    return boxes[static_cast<std::size_t>(r)];
}

TEST(margin_boxes, rectangles_of_the_sixteen_boxes) {
    areas::area const page{.top = 800, .bottom = 0, .left = 0, .right = 600};
    css::page::sides<float> const margins{
        .sides_top = 50, .sides_right = 40, .sides_bottom = 30, .sides_left = 20};
    margin_rows const rows{
        .rows_top = {content(0, 100), std::nullopt, content(0, 100)},
        .rows_bottom = {std::nullopt, fixed(100), std::nullopt},
        .rows_left = {fixed(100), content(0, 1000), std::nullopt},
        .rows_right = {},
    };
    auto const boxes = margin_box_areas(page, margins, rows);

    struct box_case {
        region r;
        areas::area expected;
    };

    box_case const cases[] = {
        {region::top_left_corner, {800, 750, 0, 20}}, {region::top_right_corner, {800, 750, 560, 600}},
        {region::bottom_left_corner, {30, 0, 0, 20}}, {region::bottom_right_corner, {30, 0, 560, 600}},
        {region::top_left, {800, 750, 20, 290}},      {region::top_center, {800, 750, 290, 290}},
        {region::top_right, {800, 750, 290, 560}},    {region::bottom_left, {30, 0, 20, 240}},
        {region::bottom_center, {30, 0, 240, 340}},   {region::bottom_right, {30, 0, 340, 560}},
        {region::left_top, {750, 650, 0, 20}},        {region::left_middle, {650, 130, 0, 20}},
        {region::left_bottom, {130, 30, 0, 20}},      {region::right_top, {750, 390, 560, 600}},
        {region::right_middle, {390, 390, 560, 600}}, {region::right_bottom, {390, 30, 560, 600}},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(static_cast<int>(c.r));
        EXPECT_EQ(at(boxes, c.r), c.expected);
    }
}

TEST(margin_boxes, sides_of_a_centred_row_are_equal) {
    // However uneven the demands, the center box's middle is the row's middle.
    areas::area const page{.top = 500, .bottom = 0, .left = 10, .right = 410};
    css::page::sides<float> const margins{
        .sides_top = 40, .sides_right = 25, .sides_bottom = 40, .sides_left = 15};
    for (auto const& row : {row_boxes{content(5, 300), content(10, 40), std::nullopt},
                            row_boxes{std::nullopt, content(0, 10), content(50, 60)},
                            row_boxes{fixed(30), content(10, 40), content(0, 300)}}) {
        auto const boxes = margin_box_areas(page, margins, {.rows_top = row});
        auto const c = at(boxes, region::top_center);
        EXPECT_NEAR((c.left + c.right) / 2, (10 + 15 + 410 - 25) / 2.0, 0.001);
        EXPECT_NEAR(areas::width_of(at(boxes, region::top_left)),
                    areas::width_of(at(boxes, region::top_right)), 0.001);
    }
}

} // namespace
} // namespace vellum::pack::margin_boxes
