// Border geometry and operators: dash adjustment, radii scaled to fit, the one-shape border, sides cut
// to their trapezoids, shades of the 3D styles, and sides that paint nothing.
#include "memory_sink.hpp"
#include "pdf/borders.hpp"

#include <cmath>

#include <gtest/gtest.h>

namespace vellum::pdf::borders {
namespace {

namespace c = vellum::pdf::content;

struct stream {
    pdf::testing::memory_sink sink;
    c::gs g;
    bulkio::output::output o = pdf::testing::output_of(sink);
    std::string const& text() const { return sink.sink_bytes; }
};

std::size_t count(std::string const& text, std::string const& what) {
    std::size_t n = 0;
    for (auto at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) {
        ++n;
    }
    return n;
}

css::box::border side(css::box::line_style style, float width, css::color::color color = css::color::rgb{0, 0, 1}) {
    return {.border_color = color, .border_style = style, .border_width = width};
}

css::box::borders all(css::box::border const& b) {
    css::box::borders out;
    out.borders_top = out.borders_right = out.borders_bottom = out.borders_left = b;
    return out;
}

TEST(borders, dashes_start_and_end_with_a_dash) {
    struct row {
        char const* name;
        double length, on, off;
        std::vector<double> expected;
    } const rows[] = {
        // 100 = 12 + n * (12 + gap): n = floor(88 / 20) = 4, gap = (100 - 12 - 48) / 4 = 10.
        {"gaps stretched", 100, 12, 8, {12, 10}},
        {"exactly fitting", 52, 12, 8, {12, 8}},
        // Fewer than two dashes fit: one dash is still a dash, with the pattern as it is.
        {"shorter than the dash", 5, 12, 8, {12, 8}},
        {"room for one dash only", 20, 12, 8, {12, 8}},
        {"a dot pattern that fits", 9, 1, 1, {1, 1}},
        {"dots stretched", 10, 1, 1, {1, 1.25}},
    };
    for (auto const& r : rows) {
        SCOPED_TRACE(r.name);
        auto const got = adjusted_dash(r.length, r.on, r.off);
        ASSERT_EQ(got.size(), r.expected.size());
        for (std::size_t i = 0; i < got.size(); ++i) {
            EXPECT_NEAR(got[i], r.expected[i], 1e-9);
        }
        // A stretched pattern covers the length with whole dashes at both ends.
        if (got != std::vector<double>{r.on, r.off}) {
            double const n = std::round((r.length - r.on) / (got[0] + got[1]));
            EXPECT_NEAR(r.on + n * (got[0] + got[1]), r.length, 1e-9);
        }
    }
}

TEST(borders, radii_resolve_percentages_and_shrink_together) {
    frame const box{0, 0, 100, 50};
    css::box::borders b;
    b.borders_border_top_left_radius = {css::units::percentage{10}, css::units::percentage{20}};
    EXPECT_EQ(used_radii(b, box).top_left, (corner{10, 10}));

    // 80 + 80 along the top of a 100-wide box: every corner shrinks by 100 / 160.
    b.borders_border_top_left_radius = {80.0f, 20.0f};
    b.borders_border_top_right_radius = {80.0f, 20.0f};
    b.borders_border_bottom_left_radius = {10.0f, 10.0f};
    auto const r = used_radii(b, box);
    EXPECT_NEAR(r.top_left.h, 50, 1e-9);
    EXPECT_NEAR(r.top_right.h, 50, 1e-9);
    EXPECT_NEAR(r.top_left.v, 12.5, 1e-9);
    EXPECT_NEAR(r.bottom_left.h, 6.25, 1e-9);
    EXPECT_FALSE(is_square(r));

    // The inner edge: radii less the border widths, never below zero.
    auto const in = inset(r, widths{.top = 5, .right = 5, .bottom = 5, .left = 60});
    EXPECT_EQ(in.top_left.h, 0);
    EXPECT_NEAR(in.top_left.v, 7.5, 1e-9);
    EXPECT_EQ(inset(frame{0, 0, 100, 50}, widths{1, 2, 3, 4}), (frame{4, 3, 98, 49}));
}

TEST(borders, equal_solid_sides_are_one_shape) {
    stream s;
    paint_border(s.o, s.g, {10, 10, 110, 60}, all(side(css::box::line_style::solid, 4)), 1);
    EXPECT_EQ(s.text(),
              "0.0000 0.0000 1.0000 rg\n"
              "10.0000 10.0000 100.0000 50.0000 re\n"
              "14.0000 14.0000 92.0000 42.0000 re\n"
              "f*\n");
}

TEST(borders, differing_sides_are_cut_to_trapezoids_in_order) {
    stream s;
    auto b = all(side(css::box::line_style::solid, 4));
    b.borders_left = side(css::box::line_style::solid, 2, css::color::rgb{1, 0, 0});
    paint_border(s.o, s.g, {0, 0, 100, 50}, b, 1);
    // Four clipped sides: top, bottom, left, right, each in a saved state.
    EXPECT_EQ(count(s.text(), "q\n"), 4u);
    EXPECT_EQ(count(s.text(), "W\nn\n"), 4u);
    // The top's trapezoid runs from the outer corners to the inner ones (2 in from the left, 4 from the
    // right, 4 down).
    EXPECT_NE(s.text().find("0.0000 50.0000 m\n100.0000 50.0000 l\n96.0000 46.0000 l\n2.0000 46.0000 l\nh\nW\nn\n"),
              std::string::npos)
        << s.text();
    auto const top = s.text().find("0.0000 50.0000 m");
    auto const left = s.text().find("1.0000 0.0000 0.0000 rg");
    EXPECT_LT(top, left);
    // The colour set inside a saved state is forgotten after it, so the blue of the right side is written
    // again.
    EXPECT_EQ(count(s.text(), "0.0000 0.0000 1.0000 rg\n"), 3u);
}

TEST(borders, nothing_for_none_hidden_zero_width_or_transparent) {
    struct row {
        char const* name;
        css::box::border b;
    } const rows[] = {
        {"none", side(css::box::line_style::none, 4)},
        {"hidden", side(css::box::line_style::hidden, 4)},
        {"zero width", side(css::box::line_style::solid, 0)},
        {"transparent", side(css::box::line_style::dashed, 3, css::color::transparent{})},
    };
    for (auto const& r : rows) {
        SCOPED_TRACE(r.name);
        stream s;
        paint_border(s.o, s.g, {0, 0, 100, 50}, all(r.b), 1);
        EXPECT_EQ(s.text(), "");
    }
}

TEST(borders, styles_and_their_shades) {
    auto const grey = css::color::rgb{0.4f, 0.4f, 0.4f};
    struct row {
        char const* name;
        css::box::line_style style;
        std::vector<std::string> expected;
    } const rows[] = {
        // The top side of an inset border is dark, the bottom light; outset the other way round.
        {"inset", css::box::line_style::inset, {"0.2000 0.2000 0.2000 rg", "0.7000 0.7000 0.7000 rg"}},
        {"outset", css::box::line_style::outset, {"0.7000 0.7000 0.7000 rg", "0.2000 0.2000 0.2000 rg"}},
        // Groove: the top's outer half dark, inner half light.
        {"groove", css::box::line_style::groove, {"0.2000 0.2000 0.2000 rg", "0.7000 0.7000 0.7000 rg"}},
        {"ridge", css::box::line_style::ridge, {"0.7000 0.7000 0.7000 rg", "0.2000 0.2000 0.2000 rg"}},
        // A double border: bands over the outer and the inner third of each width (the left is 5).
        {"double", css::box::line_style::double_, {"1.6667 2.0000 96.3333 46.0000 re", "3.3333 4.0000 92.6667 42.0000 re"}},
        // Dashes of 3w and gaps of 2w along the middle of the side, 3 points in.
        {"dashed", css::box::line_style::dashed, {"[18.0000 23.0000] 0 d", "0.0000 47.0000 m\n100.0000 47.0000 l\nS"}},
        {"dotted", css::box::line_style::dotted, {"[6.0000 7.4286] 0 d", "S\n"}},
    };
    for (auto const& r : rows) {
        SCOPED_TRACE(r.name);
        stream s;
        auto b = all(side(r.style, 6, grey));
        // Sides differ in width, so that each is painted alone, top first.
        b.borders_left.border_width = 5;
        paint_border(s.o, s.g, {0, 0, 100, 50}, b, 1);
        std::size_t at = 0;
        for (auto const& e : r.expected) {
            auto const found = s.text().find(e, at);
            EXPECT_NE(found, std::string::npos) << e << "\n" << s.text();
            at = found == std::string::npos ? at : found;
        }
    }
}

TEST(borders, rounded_corners_are_curves_inside_the_box) {
    stream s;
    css::box::borders b = all(side(css::box::line_style::solid, 2));
    b.borders_border_top_left_radius = b.borders_border_top_right_radius = b.borders_border_bottom_left_radius =
        b.borders_border_bottom_right_radius = {10.0f, 10.0f};
    paint_border(s.o, s.g, {0, 0, 100, 50}, b, 1);
    // Outer and inner outlines, each with four curves: one even-odd fill per side.
    EXPECT_EQ(count(s.text(), " c\n"), 4u * 8u);
    EXPECT_EQ(count(s.text(), "f*\n"), 4u);
    // The outer outline starts after the top left corner's radius and ends its first curve at the right
    // edge, one radius down.
    EXPECT_NE(s.text().find("10.0000 50.0000 m\n90.0000 50.0000 l\n95.5228 50.0000 100.0000 45.5228 100.0000 40.0000 c\n"),
              std::string::npos)
        << s.text();
}

TEST(borders, a_column_rule_is_a_left_border_centred_on_its_place) {
    stream s;
    paint_rule(s.o, s.g, 50, 100, 80, side(css::box::line_style::solid, 2, css::color::rgb{1, 0, 0}), 1);
    EXPECT_NE(s.text().find("1.0000 0.0000 0.0000 rg\n"), std::string::npos);
    EXPECT_NE(s.text().find("49.0000 100.0000 m\n51.0000 100.0000 l\n51.0000 20.0000 l\n49.0000 20.0000 l\n"), std::string::npos)
        << s.text();
}

} // namespace
} // namespace vellum::pdf::borders
