#include "svg/path_data.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

namespace vellum::svg::path_data {
namespace {

// The end point of every command, in order; arcs by the end of their last curve.
std::vector<point> ends(std::vector<command> const& cmds) {
    std::vector<point> out;
    for (auto const& c : cmds) {
        std::visit(overloaded{
                       [&](moveto const& m) { out.push_back(m.to); },
                       [&](lineto const& l) { out.push_back(l.to); },
                       [&](rect const& r) { out.push_back(r.corner); },
                       [&](c_curveto const& k) { out.push_back(k.c_end); },
                       [&](arc const& a) { out.push_back(arc_to_curves(a).back().c_end); },
                       [&](closepath const&) {},
                   },
                   c);
    }
    return out;
}

void expect_near(point a, point b, char const* what) {
    EXPECT_NEAR(a.x, b.x, 1e-6) << what;
    EXPECT_NEAR(a.y, b.y, 1e-6) << what;
}

TEST(path_data, absolute_and_relative_commands) {
    auto const p = parse_path("M10,20 l5 5 H40 v-10 h-5 V0 L 1 2 3 4z");
    EXPECT_TRUE(p.path_warnings.empty());
    auto const e = ends(p.path_commands);
    ASSERT_EQ(e.size(), 8u);
    expect_near(e[1], {15, 25}, "l");
    expect_near(e[2], {40, 25}, "H");
    expect_near(e[3], {40, 15}, "v");
    expect_near(e[4], {35, 15}, "h");
    expect_near(e[5], {35, 0}, "V");
    // A repeated argument group repeats the command.
    expect_near(e[7], {3, 4}, "L repeated");
    EXPECT_TRUE(std::holds_alternative<closepath>(p.path_commands.back()));
}

TEST(path_data, extra_pairs_after_moveto_are_lines_and_numbers_need_no_separator) {
    auto const p = parse_path("m1-2.5.5 10e-1,1 2");
    ASSERT_EQ(p.path_commands.size(), 3u);
    EXPECT_TRUE(std::holds_alternative<moveto>(p.path_commands[0]));
    EXPECT_TRUE(std::holds_alternative<lineto>(p.path_commands[1]));
    auto const e = ends(p.path_commands);
    expect_near(e[0], {1, -2.5}, "m");
    expect_near(e[1], {1.5, -1.5}, "relative l from m");
    expect_near(e[2], {2.5, 0.5}, "second pair");
}

TEST(path_data, smooth_curves_reflect_the_previous_control_point) {
    auto const p = parse_path("M0 0 C 0 10 10 10 10 0 S 20 -10 20 0");
    ASSERT_EQ(p.path_commands.size(), 3u);
    auto const& s = std::get<c_curveto>(p.path_commands[2]);
    expect_near(s.control1, {10, -10}, "reflected control");
    // S after a non-curve uses the current point.
    auto const q = parse_path("M0 0 L 5 5 S 10 10 20 0");
    expect_near(std::get<c_curveto>(q.path_commands[2]).control1, {5, 5}, "no reflection");
}

TEST(path_data, quadratics_become_exact_cubics) {
    auto const p = parse_path("M0 0 Q 3 6 6 0 T 12 0");
    ASSERT_EQ(p.path_commands.size(), 3u);
    auto const& c = std::get<c_curveto>(p.path_commands[1]);
    expect_near(c.control1, {2, 4}, "first third");
    expect_near(c.control2, {4, 4}, "second third");
    // T reflects the quadratic control point (3,6) about (6,0): (9,-6).
    auto const& t = std::get<c_curveto>(p.path_commands[2]);
    expect_near(t.control1, {6 + 2.0 / 3 * 3, -4}, "T control");
}

TEST(path_data, arcs_reach_their_end_point_on_the_ellipse) {
    struct arc_case {
        char const* d;
        point end;
        double sweep;
    };
    arc_case const cases[] = {
        {"M 0 0 A 10 10 0 0 1 20 0", {20, 0}, std::numbers::pi},
        {"M 0 0 a 10 10 0 1 0 20 0", {20, 0}, -std::numbers::pi},
        // Radii too small are scaled up until the arc fits.
        {"M 0 0 A 1 1 0 0 0 20 0", {20, 0}, -std::numbers::pi},
        // Flags need no separators.
        {"M0 0a5 5 0 0110 10", {10, 10}, std::numbers::pi},
        {"M 0 0 A 20 10 30 1 1 10 5", {10, 5}, 0},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.d);
        auto const p = parse_path(c.d);
        EXPECT_TRUE(p.path_warnings.empty());
        ASSERT_EQ(p.path_commands.size(), 2u);
        auto const& a = std::get<arc>(p.path_commands[1]);
        if (c.sweep != 0) {
            EXPECT_NEAR(a.arc_sweep, c.sweep, 1e-6);
        }
        auto const curves = arc_to_curves(a);
        EXPECT_LE(curves.size(), 4u);
        expect_near(curves.back().c_end, c.end, "end");
        // Every curve end lies on the ellipse.
        for (auto const& k : curves) {
            double const dx = k.c_end.x - a.ellipse_center.x;
            double const dy = k.c_end.y - a.ellipse_center.y;
            double const u = std::cos(-a.arc_rotate) * dx - std::sin(-a.arc_rotate) * dy;
            double const v = std::sin(-a.arc_rotate) * dx + std::cos(-a.arc_rotate) * dy;
            EXPECT_NEAR(u * u / (a.arc_rx * a.arc_rx) + v * v / (a.arc_ry * a.arc_ry), 1, 1e-6);
        }
    }
}

TEST(path_data, degenerate_arcs) {
    // Equal end points: no arc at all; a zero radius: a line.
    EXPECT_EQ(parse_path("M 5 5 A 10 10 0 0 1 5 5").path_commands.size(), 1u);
    auto const line = parse_path("M 0 0 A 0 10 0 0 1 20 0");
    ASSERT_EQ(line.path_commands.size(), 2u);
    EXPECT_TRUE(std::holds_alternative<lineto>(line.path_commands[1]));
}

TEST(path_data, malformed_data_keeps_what_came_before) {
    struct bad {
        char const* d;
        std::size_t kept;
        char const* message;
    };
    bad const cases[] = {
        {"L 10 10", 0, "svg: path[@d]: command M/m expected at the beginning."},
        {"M 0 0 L 10", 1, "svg: path: command L/l: (x, y)+ required."},
        {"M 0 0 L 5 5 C 1 2 3", 2, "svg: path: command C/c: (x1 y1 x2 y2 x y)+ required."},
        {"M 0 0 A 1 1 0 2 0 5 5", 1, "svg: path: command A/a: (rx ry x_rotate large_arc sweep x y)+ required."},
        {"M 0 0 H", 1, "svg: path: command H/h: (x)+ required."},
        {"M 0 0 # 1", 1, "svg: path: parse error."},
        {"M 0 0 X 1", 1, "svg: path: parse error."},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.d);
        auto const p = parse_path(c.d);
        EXPECT_EQ(p.path_commands.size(), c.kept);
        ASSERT_EQ(p.path_warnings.size(), 1u);
        EXPECT_EQ(p.path_warnings[0], c.message);
    }
    EXPECT_TRUE(parse_path("").path_commands.empty());
    EXPECT_TRUE(parse_path("   ").path_warnings.empty());
}

TEST(path_data, points_lists) {
    EXPECT_EQ(parse_numbers("1,2 3 , 4  5e1"), (std::vector<double>{1, 2, 3, 4, 50}));
    EXPECT_EQ(parse_numbers(""), std::vector<double>{});
    EXPECT_FALSE(parse_numbers("1 2 x"));
}

TEST(transform, lists_apply_right_to_left) {
    auto const t = parse_transform("translate(10,20) scale(2)");
    ASSERT_TRUE(t);
    auto const p = apply(*t, {1, 1});
    EXPECT_NEAR(p.x, 12, 1e-9);
    EXPECT_NEAR(p.y, 22, 1e-9);
    auto const r = parse_transform("rotate(90 10 10)");
    ASSERT_TRUE(r);
    auto const q = apply(*r, {20, 10});
    EXPECT_NEAR(q.x, 10, 1e-9);
    EXPECT_NEAR(q.y, 20, 1e-9);
    auto const m = parse_transform(" matrix(1 0 0 1 5 6),skewX(45)");
    ASSERT_TRUE(m);
    auto const k = apply(*m, {0, 1});
    EXPECT_NEAR(k.x, 6, 1e-9);
    EXPECT_NEAR(k.y, 7, 1e-9);
}

TEST(transform, invalid_lists_are_refused_whole) {
    for (char const* bad : {"translate(1 2 3)", "rotate(1 2)", "scale()", "foo(1)", "translate(1", "matrix(1 2 3 4 5)"}) {
        SCOPED_TRACE(bad);
        EXPECT_FALSE(parse_transform(bad));
    }
    EXPECT_EQ(parse_transform(""), transform{});
}

TEST(transform, inverse_undoes) {
    transform const t{2, 1, -1, 3, 5, -7};
    auto const inv = invert(t);
    ASSERT_TRUE(inv);
    auto const p = apply(*inv, apply(t, {3, 4}));
    EXPECT_NEAR(p.x, 3, 1e-9);
    EXPECT_NEAR(p.y, 4, 1e-9);
    EXPECT_FALSE(invert(transform{0, 0, 0, 0, 1, 1}));
}

TEST(viewbox, parsing_and_errors) {
    EXPECT_EQ(parse_viewbox("0 0 100 50").value(), (viewbox{0, 0, 100, 50}));
    EXPECT_EQ(parse_viewbox("-5,-5,10,10").value(), (viewbox{-5, -5, 10, 10}));
    EXPECT_EQ(parse_viewbox("0 0 100").error(), "svg: invalid value for viewBox attribute");
    EXPECT_EQ(parse_viewbox("0 0 a 1").error(), "svg: invalid value for viewBox attribute");
    EXPECT_EQ(parse_viewbox("0 0 -1 1").error(), "svg: viewBox width negative.");
    EXPECT_EQ(parse_viewbox("0 0 1 -1").error(), "svg: viewBox height negative.");
}

TEST(viewbox, preserve_aspect_ratio_maps) {
    viewbox const vb{0, 0, 100, 50};
    struct par_case {
        char const* text;
        transform expected;
    };
    // A 200 by 200 viewport: meet scales by 2 and leaves 100 units of height, slice by 4 and cuts 200
    // of width.
    par_case const cases[] = {
        {"", {2, 0, 0, 2, 0, 50}},
        {"xMidYMid meet", {2, 0, 0, 2, 0, 50}},
        {"xMinYMin", {2, 0, 0, 2, 0, 0}},
        {"xMaxYMax meet", {2, 0, 0, 2, 0, 100}},
        {"defer xMidYMid slice", {4, 0, 0, 4, -100, 0}},
        {"xMinYMax slice", {4, 0, 0, 4, 0, 0}},
        {"none", {2, 0, 0, 4, 0, 0}},
        // A bad value counts as the default.
        {"xMidYMidd", {2, 0, 0, 2, 0, 50}},
        {"xMinYMin meet extra", {2, 0, 0, 2, 0, 50}},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.text);
        EXPECT_EQ(view_transform(vb, parse_par(c.text), 0, 0, 200, 200), c.expected);
    }
    // The viewBox origin and the viewport position.
    EXPECT_EQ(view_transform({10, 10, 10, 10}, {}, 5, 5, 20, 20), (transform{2, 0, 0, 2, -15, -15}));
}

TEST(geometry, ellipse_and_path_bounds) {
    auto const e = ellipse_curves({10, 20}, 5, 3);
    ASSERT_EQ(e.size(), 6u);
    auto const b = path_bbox(e);
    ASSERT_TRUE(b);
    EXPECT_NEAR(b->x0, 5, 1e-9);
    EXPECT_NEAR(b->x1, 15, 1e-9);
    EXPECT_NEAR(b->y0, 17, 1e-9);
    EXPECT_NEAR(b->y1, 23, 1e-9);
    // A curve's box is that of its extremes, not of its control points.
    auto const c = path_bbox({moveto{{0, 0}}, c_curveto{{0, 10}, {10, 10}, {10, 0}}});
    ASSERT_TRUE(c);
    EXPECT_NEAR(c->y1, 7.5, 1e-9);
    EXPECT_FALSE(path_bbox({}));
}

} // namespace
} // namespace vellum::svg::path_data
