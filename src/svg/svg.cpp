#include "svg/svg.hpp"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace vellum::svg {

transform then(transform const& m, transform const& n) {
    return {m.a * n.a + m.b * n.c,
            m.a * n.b + m.b * n.d,
            m.c * n.a + m.d * n.c,
            m.c * n.b + m.d * n.d,
            m.e * n.a + m.f * n.c + n.e,
            m.e * n.b + m.f * n.d + n.f};
}

point apply(transform const& t, point p) {
    return {t.a * p.x + t.c * p.y + t.e, t.b * p.x + t.d * p.y + t.f};
}

std::optional<transform> invert(transform const& t) {
    double const det = t.a * t.d - t.b * t.c;
    if (det == 0 || !std::isfinite(det)) {
        return std::nullopt;
    }
    return transform{t.d / det,
                     -t.b / det,
                     -t.c / det,
                     t.a / det,
                     (t.c * t.f - t.d * t.e) / det,
                     (t.b * t.e - t.a * t.f) / det};
}

transform translation(double x, double y) {
    return {1, 0, 0, 1, x, y};
}

transform scaling(double sx, double sy) {
    return {sx, 0, 0, sy, 0, 0};
}

std::vector<c_curveto> arc_to_curves(arc const& a) {
    std::vector<c_curveto> out;
    if (a.arc_sweep == 0 || !std::isfinite(a.arc_sweep)) {
        return out;
    }
    // Pieces of at most a quarter turn; each is the standard cubic for a circular arc of that angle on the
    // unit circle, then scaled by the radii, rotated and moved to the centre.
    int const pieces = std::max(1, static_cast<int>(std::ceil(std::abs(a.arc_sweep) / (std::numbers::pi / 2) - 1e-9)));
    double const step = a.arc_sweep / pieces;
    double const k = 4.0 / 3.0 * std::tan(step / 4);
    transform const place{a.arc_rx * std::cos(a.arc_rotate), a.arc_rx * std::sin(a.arc_rotate),
                          -a.arc_ry * std::sin(a.arc_rotate), a.arc_ry * std::cos(a.arc_rotate),
                          a.ellipse_center.x, a.ellipse_center.y};
    double theta = a.arc_start;
    for (int i = 0; i < pieces; ++i) {
        double const t1 = theta + step;
        point const p0{std::cos(theta), std::sin(theta)};
        point const p3{std::cos(t1), std::sin(t1)};
        point const c1{p0.x - k * p0.y, p0.y + k * p0.x};
        point const c2{p3.x + k * p3.y, p3.y - k * p3.x};
        out.push_back({apply(place, c1), apply(place, c2), apply(place, p3)});
        theta = t1;
    }
    return out;
}

std::vector<command> ellipse_curves(point c, double rx, double ry) {
    // The unit circle as 13 points: a start and four groups of control, control, end. It starts at the
    // right and turns towards +y (clockwise on a y-down page), where dashes and markers of a circle or
    // an ellipse begin.
    static constexpr double k = 0.5522847498;
    static constexpr double unit[13][2] = {{1, 0},  {1, k},   {k, 1},   {0, 1},   {-k, 1},  {-1, k}, {-1, 0},
                                           {-1, -k}, {-k, -1}, {0, -1}, {k, -1}, {1, -k}, {1, 0}};
    auto const at = [&](int i) { return point{c.x + rx * unit[i][0], c.y + ry * unit[i][1]}; };
    std::vector<command> out{moveto{at(0)}};
    for (int i = 1; i < 13; i += 3) {
        out.push_back(c_curveto{at(i), at(i + 1), at(i + 2)});
    }
    out.push_back(closepath{});
    return out;
}

namespace {

// The parameters in (0, 1) where one coordinate of a cubic has an extreme.
void cubic_extremes(double p0, double p1, double p2, double p3, std::vector<double>& ts) {
    double const a = -p0 + 3 * p1 - 3 * p2 + p3;
    double const b = 2 * (p0 - 2 * p1 + p2);
    double const c = p1 - p0;
    if (std::abs(a) < 1e-12) {
        if (std::abs(b) > 1e-12) {
            ts.push_back(-c / b);
        }
        return;
    }
    double const disc = b * b - 4 * a * c;
    if (disc < 0) {
        return;
    }
    double const r = std::sqrt(disc);
    ts.push_back((-b + r) / (2 * a));
    ts.push_back((-b - r) / (2 * a));
}

double cubic_at(double p0, double p1, double p2, double p3, double t) {
    double const u = 1 - t;
    return u * u * u * p0 + 3 * u * u * t * p1 + 3 * u * t * t * p2 + t * t * t * p3;
}

} // namespace

std::optional<bbox> path_bbox(std::vector<command> const& commands) {
    std::optional<bbox> box;
    auto add = [&](point p) {
        if (!box) {
            box = bbox{p.x, p.y, p.x, p.y};
            return;
        }
        box->x0 = std::min(box->x0, p.x);
        box->y0 = std::min(box->y0, p.y);
        box->x1 = std::max(box->x1, p.x);
        box->y1 = std::max(box->y1, p.y);
    };
    point current;
    auto add_curve = [&](c_curveto const& c) {
        std::vector<double> ts;
        cubic_extremes(current.x, c.control1.x, c.control2.x, c.c_end.x, ts);
        cubic_extremes(current.y, c.control1.y, c.control2.y, c.c_end.y, ts);
        for (double t : ts) {
            if (t > 0 && t < 1) {
                add({cubic_at(current.x, c.control1.x, c.control2.x, c.c_end.x, t),
                     cubic_at(current.y, c.control1.y, c.control2.y, c.c_end.y, t)});
            }
        }
        add(c.c_end);
        current = c.c_end;
    };
    for (auto const& cmd : commands) {
        std::visit(overloaded{
                       [&](moveto const& m) {
                           add(m.to);
                           current = m.to;
                       },
                       [&](lineto const& l) {
                           add(l.to);
                           current = l.to;
                       },
                       [&](rect const& r) {
                           add(r.corner);
                           add({r.corner.x + r.size.x, r.corner.y + r.size.y});
                           current = r.corner;
                       },
                       [&](c_curveto const& c) { add_curve(c); },
                       [&](arc const& a) {
                           for (auto const& c : arc_to_curves(a)) {
                               add_curve(c);
                           }
                       },
                       [](closepath const&) {},
                   },
                   cmd);
    }
    return box;
}

transform view_transform(viewbox const& vb, par const& p, double x, double y, double width, double height) {
    if (vb.viewboxw <= 0 || vb.viewboxh <= 0) {
        return translation(x, y);
    }
    double sx = width / vb.viewboxw;
    double sy = height / vb.viewboxh;
    if (!p.align_none) {
        double const s = p.slice ? std::max(sx, sy) : std::min(sx, sy);
        sx = sy = s;
    }
    double tx = x - vb.minx * sx;
    double ty = y - vb.miny * sy;
    if (!p.align_none) {
        double const free_x = width - vb.viewboxw * sx;
        double const free_y = height - vb.viewboxh * sy;
        auto const share = [](align_pos a) { return a == align_pos::min ? 0.0 : a == align_pos::mid ? 0.5 : 1.0; };
        tx += free_x * share(p.x_align);
        ty += free_y * share(p.y_align);
    }
    return {sx, 0, 0, sy, tx, ty};
}

transform run_placement(text_run const& run) {
    double const turn = run.run_rotate * std::numbers::pi / 180;
    return transform{std::cos(turn), std::sin(turn), std::sin(turn), -std::cos(turn), run.run_pos.x, run.run_pos.y};
}

std::optional<bbox> text_bbox(text const& t) {
    std::optional<bbox> box;
    for (auto const& run : t.text_runs) {
        auto const m = run_placement(run);
        double const up = run.run_font_size;
        double const down = -run.run_font_size / 3;
        for (auto const corner : {point{0, down}, point{run.run_width, down}, point{0, up}, point{run.run_width, up}}) {
            auto const p = apply(m, corner);
            box = box ? bbox{std::min(box->x0, p.x), std::min(box->y0, p.y), std::max(box->x1, p.x),
                             std::max(box->y1, p.y)}
                      : bbox{p.x, p.y, p.x, p.y};
        }
    }
    return box;
}

} // namespace vellum::svg
