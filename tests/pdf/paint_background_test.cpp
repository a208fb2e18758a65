// Background layers: where a tile lands for background-size, -position and -repeat, the gradient line of
// linear gradients, and the stitched colour ramp.
#include "pdf/paint_background.hpp"

#include "css/parser.hpp"

#include <gtest/gtest.h>

namespace vellum::pdf::paint_background {
namespace {

using css::box::background_repeat;
using css::box::background_repeat0;

css::box::bg_position at(float x_percent, float y_percent) {
    return {css::units::percentage{x_percent}, css::units::percentage{y_percent}};
}

TEST(paint_background, tiles_follow_size_position_and_repeat) {
    borders::frame const area{0, 0, 200, 100};
    std::pair<double, double> const image{20, 10};
    // Centred, intrinsic size, no repeat.
    auto t = place_tile(area, image, css::box::bg_size_pair<float>{}, at(50, 50),
                        {background_repeat0::no_repeat, background_repeat0::no_repeat});
    EXPECT_EQ(t.tile, (borders::frame{90, 45, 110, 55}));
    EXPECT_FALSE(t.repeat_x);
    // cover and contain keep the ratio.
    t = place_tile(area, image, css::box::bg_cover{}, at(0, 0), {});
    EXPECT_DOUBLE_EQ(t.tile.right - t.tile.left, 200);
    EXPECT_DOUBLE_EQ(t.tile.top - t.tile.bottom, 100);
    t = place_tile(area, std::pair<double, double>{20, 20}, css::box::bg_contain{}, at(0, 0), {});
    EXPECT_DOUBLE_EQ(t.tile.right - t.tile.left, 100);
    // One given side, the other by the ratio; the top left corner at 0% 0%.
    t = place_tile(area, image, css::box::bg_size_pair<float>{40.0f, css::box::auto_value{}}, at(0, 0), {});
    EXPECT_EQ(t.tile, (borders::frame{0, 80, 40, 100}));
    EXPECT_TRUE(t.repeat_x && t.repeat_y);
    // round stretches the tile to a whole number across: 200 / 30 rounds to 7.
    t = place_tile(area, std::pair<double, double>{30, 10}, css::box::bg_size_pair<float>{}, at(0, 0),
                   {background_repeat0::round, background_repeat0::no_repeat});
    EXPECT_NEAR(t.tile.right - t.tile.left, 200.0 / 7, 1e-9);
    // space leaves the room between whole tiles: 9 tiles of 20 in 190 leave 10 for 8 gaps.
    t = place_tile(borders::frame{0, 0, 190, 100}, image, css::box::bg_size_pair<float>{}, at(50, 0),
                   {background_repeat0::space, background_repeat0::no_repeat});
    EXPECT_DOUBLE_EQ(t.tile.left, 0);
    EXPECT_DOUBLE_EQ(t.step_x, 20 + 10.0 / 8);
}

css::value::function gradient(std::string name, std::vector<css::value::value> args) {
    return css::value::function{std::move(name), std::move(args)};
}

css::value::value word(char const* w) {
    return css::value::ident{w};
}

TEST(paint_background, linear_gradient_lines) {
    borders::frame const tile{0, 0, 100, 50};
    auto const red = word("red");
    auto const blue = word("blue");
    // to right: from the left edge to the right edge at mid height.
    auto s = gradient_shading(gradient("linear-gradient", {css::value::values{{word("to"), word("right")}}, red, blue}),
                              tile, 12, css::color::black());
    ASSERT_TRUE(s);
    EXPECT_FALSE(s->radial);
    ASSERT_EQ(s->shading_coords.size(), 4u);
    EXPECT_NEAR(s->shading_coords[0], 0, 1e-9);
    EXPECT_NEAR(s->shading_coords[1], 25, 1e-9);
    EXPECT_NEAR(s->shading_coords[2], 100, 1e-9);
    EXPECT_NEAR(s->shading_coords[3], 25, 1e-9);
    EXPECT_EQ(s->shading_stops.front().stop_color, (color::color{color::rgb{1, 0, 0}}));
    // The default runs to the bottom: from the top edge down.
    s = gradient_shading(gradient("linear-gradient", {red, blue}), tile, 12, css::color::black());
    ASSERT_TRUE(s);
    EXPECT_NEAR(s->shading_coords[1], 50, 1e-9);
    EXPECT_NEAR(s->shading_coords[3], 0, 1e-9);
    // currentColor takes the element's colour; an unknown function is no gradient.
    s = gradient_shading(gradient("linear-gradient", {word("currentColor"), blue}), tile, 12, css::color::rgb{0, 1, 0});
    ASSERT_TRUE(s);
    EXPECT_EQ(s->shading_stops.front().stop_color, (color::color{color::rgb{0, 1, 0}}));
    EXPECT_FALSE(gradient_shading(gradient("conic-gradient", {red, blue}), tile, 12, css::color::black()));
}

TEST(paint_background, stops_fill_in_missing_positions_and_stitch) {
    borders::frame const tile{0, 0, 100, 100};
    auto s = gradient_shading(
        gradient("linear-gradient", {word("red"), word("lime"), word("blue")}), tile, 12, css::color::black());
    ASSERT_TRUE(s);
    ASSERT_EQ(s->shading_stops.size(), 3u);
    EXPECT_NEAR(s->shading_stops[1].stop_offset, 0.5, 1e-9);
    auto const f = page_objects::ramp_function(s->shading_stops);
    // Three stops: a stitching function of two interpolations with the bound at the middle stop.
    ASSERT_FALSE(f.dict_entries.empty());
    EXPECT_EQ(f.dict_entries[0].second, (object{std::int64_t{3}}));
    bool bounds_found = false;
    for (auto const& [key, value] : f.dict_entries) {
        if (key == "Bounds") {
            bounds_found = true;
            EXPECT_EQ(value, (object{array{{0.5}}}));
        }
    }
    EXPECT_TRUE(bounds_found);
    // Two stops at the ends: one interpolation.
    auto const two = page_objects::ramp_function({{0, color::rgb{1, 0, 0}}, {1, color::rgb{0, 0, 1}}});
    EXPECT_EQ(two.dict_entries[0].second, (object{std::int64_t{2}}));
}

TEST(paint_background, transparent_stops_fade_the_neighbouring_colours) {
    borders::frame const tile{0, 0, 100, 100};
    // red, transparent, blue: the transparent stop becomes two at the middle, red fading out and blue
    // fading in, so no grey or black is mixed in; the opacities form the soft mask's ramp.
    auto s = gradient_shading(gradient("linear-gradient", {word("red"), word("transparent"), word("blue")}), tile, 12,
                              css::color::black());
    ASSERT_TRUE(s);
    ASSERT_EQ(s->shading_stops.size(), 4u);
    EXPECT_EQ(s->shading_stops[1], (page_objects::ramp_stop{0.5, color::rgb{1, 0, 0}, 0}));
    EXPECT_EQ(s->shading_stops[2], (page_objects::ramp_stop{0.5, color::rgb{0, 0, 1}, 0}));
    EXPECT_TRUE(page_objects::translucent(s->shading_stops));
    auto const mask = page_objects::alpha_ramp(s->shading_stops);
    ASSERT_EQ(mask.size(), 4u);
    EXPECT_EQ(mask[0].stop_color, (color::color{color::gray{1.0}}));
    EXPECT_EQ(mask[1].stop_color, (color::color{color::gray{0.0}}));
    // A half-transparent colour keeps its colour and half its opacity; opaque ramps need no mask.
    auto const half = css::parser::parse_value("", "rgba(0, 0, 255, 0.5)");
    ASSERT_TRUE(half);
    s = gradient_shading(gradient("linear-gradient", {word("transparent"), *half}), tile, 12, css::color::black());
    ASSERT_TRUE(s);
    ASSERT_EQ(s->shading_stops.size(), 2u);
    EXPECT_EQ(s->shading_stops[0].stop_color, (color::color{color::rgb{0, 0, 1}}));
    EXPECT_NEAR(s->shading_stops[1].stop_alpha, 0.5, 1e-6);
    s = gradient_shading(gradient("linear-gradient", {word("red"), word("blue")}), tile, 12, css::color::black());
    ASSERT_TRUE(s);
    EXPECT_FALSE(page_objects::translucent(s->shading_stops));
}

} // namespace
} // namespace vellum::pdf::paint_background
