// The positioning equations of absolutely positioned boxes, one axis at a time: which term the
// "auto" values leave to be solved, shrink-to-fit widths, static positions and auto margins.
#include "pack/positioned.hpp"

#include <gtest/gtest.h>

namespace vellum::pack::positioned {
namespace {

// Content that wants 50pt, or less when less room is left.
float shrink(float room) {
    return std::min(50.0f, room);
}

struct axis_case {
    char const* name;
    axis_input in;
    axis_solution expected;
};

TEST(positioned, horizontal_equation) {
    // A containing block 300pt wide; 10pt of borders and padding in every box; static position at 40.
    axis_case const cases[] = {
        {"all auto: static place, shrink-to-fit",
         {.axis_room = 300, .axis_edges = 10, .axis_static = 40},
         {.axis_offset = 40, .axis_size = 50}},
        {"shrink-to-fit bounded by the room after the static place",
         {.axis_room = 300, .axis_edges = 10, .axis_static = 270},
         {.axis_offset = 270, .axis_size = 20}},
        {"left and width: right ignored",
         {.axis_room = 300, .axis_start = 20, .axis_size = 100, .axis_edges = 10},
         {.axis_offset = 20, .axis_size = 100}},
        {"right and width: left solved",
         {.axis_room = 300, .axis_end = 30, .axis_size = 100, .axis_margin_start = 5, .axis_margin_end = 5,
          .axis_edges = 10},
         {.axis_offset = 150, .axis_margin_start = 5, .axis_margin_end = 5, .axis_size = 100}},
        {"right only: shrink-to-fit against the end edge",
         {.axis_room = 300, .axis_end = 30, .axis_edges = 10},
         {.axis_offset = 210, .axis_size = 50}},
        {"left and right: width solved, auto margins zero",
         {.axis_room = 300, .axis_start = 20, .axis_end = 30, .axis_edges = 10},
         {.axis_offset = 20, .axis_size = 240}},
        {"left and right with width: auto margins centre",
         {.axis_room = 300, .axis_start = 10, .axis_end = 10, .axis_size = 100, .axis_edges = 10},
         {.axis_offset = 10, .axis_margin_start = 85, .axis_margin_end = 85, .axis_size = 100}},
        {"centring a box too wide keeps it at the start edge",
         {.axis_room = 100, .axis_start = 10, .axis_end = 10, .axis_size = 100, .axis_edges = 10},
         {.axis_offset = 10, .axis_margin_start = 0, .axis_margin_end = -30, .axis_size = 100}},
        {"over-constrained: the right offset is ignored",
         {.axis_room = 300, .axis_start = 10, .axis_end = 10, .axis_size = 100, .axis_margin_start = 0,
          .axis_margin_end = 0, .axis_edges = 10},
         {.axis_offset = 10, .axis_margin_start = 0, .axis_margin_end = 0, .axis_size = 100}},
        {"one auto margin takes the rest",
         {.axis_room = 300, .axis_start = 10, .axis_end = 10, .axis_size = 100, .axis_margin_end = 20,
          .axis_edges = 10},
         {.axis_offset = 10, .axis_margin_start = 150, .axis_margin_end = 20, .axis_size = 100}},
        // Right to left the static place is where the box's right margin edge would stand.
        {"rtl, all auto: right edge at the static place",
         {.axis_room = 300, .axis_edges = 10, .axis_static = 260, .axis_rtl = true},
         {.axis_offset = 200, .axis_size = 50}},
        {"rtl, width only: right edge at the static place",
         {.axis_room = 300, .axis_size = 100, .axis_edges = 10, .axis_static = 260, .axis_rtl = true},
         {.axis_offset = 150, .axis_size = 100}},
        {"rtl, over-constrained: the left offset is ignored",
         {.axis_room = 300, .axis_start = 10, .axis_end = 10, .axis_size = 100, .axis_margin_start = 0,
          .axis_margin_end = 0, .axis_edges = 10, .axis_rtl = true},
         {.axis_offset = 180, .axis_margin_start = 0, .axis_margin_end = 0, .axis_size = 100}},
        {"rtl, centring a box too wide keeps it at the end edge",
         {.axis_room = 100, .axis_start = 10, .axis_end = 10, .axis_size = 100, .axis_edges = 10, .axis_rtl = true},
         {.axis_offset = 10, .axis_margin_start = -30, .axis_margin_end = 0, .axis_size = 100}},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(solve_horizontal(c.in, shrink), c.expected);
    }
}

TEST(positioned, vertical_equation) {
    // A containing block 200pt tall; content 30pt tall; static position 25pt below its top.
    auto const content = [](float) { return 30.0f; };
    axis_case const cases[] = {
        {"all auto: static place, content height",
         {.axis_room = 200, .axis_edges = 4, .axis_static = 25},
         {.axis_offset = 25, .axis_size = 30}},
        {"bottom only: tied to the bottom edge",
         {.axis_room = 200, .axis_end = 10, .axis_edges = 4},
         {.axis_offset = 156, .axis_size = 30}},
        {"top and bottom: height solved",
         {.axis_room = 200, .axis_start = 10, .axis_end = 20, .axis_edges = 4},
         {.axis_offset = 10, .axis_size = 166}},
        {"height with top and bottom auto: static place",
         {.axis_room = 200, .axis_size = 50, .axis_static = 25},
         {.axis_offset = 25, .axis_size = 50}},
        {"auto margins share the rest equally, even below zero",
         {.axis_room = 100, .axis_start = 0, .axis_end = 0, .axis_size = 120},
         {.axis_offset = 0, .axis_margin_start = -10, .axis_margin_end = -10, .axis_size = 120}},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(solve_vertical(c.in, content), c.expected);
    }
}

} // namespace
} // namespace vellum::pack::positioned
