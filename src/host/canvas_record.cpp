#include "host/canvas_record.hpp"

#include <algorithm>

#include <cmath>
#include <cstdio>
#include <numbers>

namespace vellum::canvas {

namespace {

using svg::point;
using svg::transform;

constexpr double eps = 1e-12;

bool near(double a, double b) {
    return std::abs(a - b) <= 1e-9 * std::max({1.0, std::abs(a), std::abs(b)});
}

// A rotation with uniform scale and a move keeps circles circles and arcs' parameters as they were.
bool is_similarity(transform const& t) {
    return near(t.a, t.d) && near(t.b, -t.c) && (t.a * t.d - t.b * t.c) > 0;
}

point arc_point(svg::arc const& a, double angle) {
    double const x = a.arc_rx * std::cos(angle);
    double const y = a.arc_ry * std::sin(angle);
    double const cr = std::cos(a.arc_rotate);
    double const sr = std::sin(a.arc_rotate);
    return {a.ellipse_center.x + x * cr - y * sr, a.ellipse_center.y + x * sr + y * cr};
}

void start_subpath(canvas_context& ctx, point p) {
    if (ctx.subpath) {
        ctx.path.push_back(std::move(*ctx.subpath));
    }
    ctx.subpath = subpath{.start_point = p, .end_point = p, .commands = {svg::moveto{p}}};
}

// A straight line to a point in canvas pixels; with no subpath yet, the point starts one.
void line_to(canvas_context& ctx, point p) {
    if (!ctx.subpath) {
        start_subpath(ctx, p);
        return;
    }
    ctx.subpath->commands.push_back(svg::lineto{p});
    ctx.subpath->end_point = p;
}

// An arc given in user space, joined to the subpath by a line from the pen to its start.
void add_arc(canvas_context& ctx, svg::arc const& a) {
    auto const& t = ctx.state.transform;
    point const from = svg::apply(t, arc_point(a, a.arc_start));
    if (!ctx.subpath) {
        start_subpath(ctx, from);
    } else if (ctx.subpath->end_point != from) {
        line_to(ctx, from);
    }
    for (auto& c : transform_command(t, a)) {
        ctx.subpath->commands.push_back(std::move(c));
    }
    ctx.subpath->end_point = svg::apply(t, arc_point(a, a.arc_start + a.arc_sweep));
}

void add_command(canvas_context& ctx, svg::command const& c) {
    auto const& t = ctx.state.transform;
    std::visit(overloaded{
                   [&](svg::moveto const& m) { start_subpath(ctx, svg::apply(t, m.to)); },
                   [&](svg::lineto const& l) { line_to(ctx, svg::apply(t, l.to)); },
                   [&](svg::rect const& r) {
                       // A rectangle is a closed subpath of its own; the pen then stands at its corner.
                       point const corner = svg::apply(t, r.corner);
                       if (ctx.subpath) {
                           ctx.path.push_back(std::move(*ctx.subpath));
                           ctx.subpath.reset();
                       }
                       ctx.path.push_back(subpath{.start_point = corner, .end_point = corner, .commands = transform_command(t, r)});
                       start_subpath(ctx, corner);
                   },
                   [&](svg::c_curveto const& cv) {
                       if (!ctx.subpath) {
                           start_subpath(ctx, svg::apply(t, cv.control1));
                       }
                       auto const end = svg::apply(t, cv.c_end);
                       ctx.subpath->commands.push_back(
                           svg::c_curveto{svg::apply(t, cv.control1), svg::apply(t, cv.control2), end});
                       ctx.subpath->end_point = end;
                   },
                   [&](svg::arc const& a) { add_arc(ctx, a); },
                   [&](svg::closepath const&) {
                       // Closing returns the pen to the start, where the next subpath begins.
                       if (!ctx.subpath) {
                           return;
                       }
                       auto const start = ctx.subpath->start_point;
                       ctx.subpath->commands.push_back(svg::closepath{});
                       ctx.subpath->end_point = start;
                       start_subpath(ctx, start);
                   },
               },
               c);
}

// arcTo: the arc of the given radius tangent to the line from the pen to p1 and to the line from p1 to
// p2, joined by a line from the pen to the first tangent point; a straight line to p1 when the points
// don't make a corner.
void arc_to(canvas_context& ctx, arc_to_op const& op) {
    auto const& t = ctx.state.transform;
    if (!ctx.subpath) {
        start_subpath(ctx, svg::apply(t, op.p1));
    }
    auto const inv = svg::invert(t);
    if (!inv) {
        return;
    }
    point const p0 = svg::apply(*inv, ctx.subpath->end_point);
    point const p1 = op.p1;
    point const p2 = op.p2;
    double const ax = p0.x - p1.x;
    double const ay = p0.y - p1.y;
    double const bx = p2.x - p1.x;
    double const by = p2.y - p1.y;
    double const la = std::hypot(ax, ay);
    double const lb = std::hypot(bx, by);
    double const cross = ax * by - ay * bx;
    if (la < eps || lb < eps || op.radius <= 0 || std::abs(cross) < eps * la * lb) {
        line_to(ctx, svg::apply(t, p1));
        return;
    }
    double const ux = ax / la;
    double const uy = ay / la;
    double const vx = bx / lb;
    double const vy = by / lb;
    double const cos_angle = std::clamp(ux * vx + uy * vy, -1.0, 1.0);
    double const half = std::acos(cos_angle) / 2;
    double const tangent = op.radius / std::tan(half);
    point const t1{p1.x + ux * tangent, p1.y + uy * tangent};
    point const t2{p1.x + vx * tangent, p1.y + vy * tangent};
    double const bxn = ux + vx;
    double const byn = uy + vy;
    double const bl = std::hypot(bxn, byn);
    double const dist = op.radius / std::sin(half);
    point const center{p1.x + bxn / bl * dist, p1.y + byn / bl * dist};
    double const a1 = std::atan2(t1.y - center.y, t1.x - center.x);
    double const a2 = std::atan2(t2.y - center.y, t2.x - center.x);
    double sweep = a2 - a1;
    while (sweep > std::numbers::pi) {
        sweep -= 2 * std::numbers::pi;
    }
    while (sweep < -std::numbers::pi) {
        sweep += 2 * std::numbers::pi;
    }
    line_to(ctx, svg::apply(t, t1));
    add_arc(ctx, svg::arc{.ellipse_center = center,
                          .arc_rx = op.radius,
                          .arc_ry = op.radius,
                          .arc_start = a1,
                          .arc_sweep = sweep});
}

std::vector<subpath> current_path(canvas_context const& ctx) {
    auto out = ctx.path;
    if (ctx.subpath) {
        out.push_back(*ctx.subpath);
    }
    return out;
}

// The style of an item: the state's line settings with the global alpha as its opacity.
svg::used_svgstyle item_style(canvas_state const& s) {
    return s.svgstyle;
}

std::optional<canvas_pattern> pattern_copy(canvas_style const& s) {
    if (auto const* p = std::get_if<style_pattern>(&s); p && p->style_pattern_value) {
        auto copy = *p->style_pattern_value;
        copy.pattern_object.reset();
        return copy;
    }
    return std::nullopt;
}

// A style as it is now: a gradient's later stops and a pattern's later matrix don't reach what was drawn.
canvas_style snapshot(canvas_style const& s) {
    if (auto const* g = std::get_if<style_gradient>(&s); g && g->style_gradient_value) {
        auto copy = *g->style_gradient_value;
        copy.gradient_object.reset();
        return style_gradient{std::make_shared<canvas_gradient>(std::move(copy))};
    }
    if (auto const p = pattern_copy(s)) {
        return style_pattern{std::make_shared<canvas_pattern>(*p)};
    }
    return s;
}

// A shape painted with one of the state's styles: `commands` in the user space of `t`.
thing_svg shape_thing(canvas_state const& s, std::vector<svg::command> commands, transform const& t, draw d,
                      css::svgstyle::fill_rule rule) {
    auto style = item_style(s);
    style.fill_rule = rule;
    svg::shape sh{.shape_fill = svg::paint_none{}, .shape_stroke = svg::paint_none{}, .shape_commands = std::move(commands)};
    thing_svg out;
    if (d == draw::fill) {
        sh.shape_fill = paint_of(s.fill_style);
        out.thing_fill_pattern = pattern_copy(s.fill_style);
    } else {
        sh.shape_stroke = paint_of(s.stroke_style);
        out.thing_stroke_pattern = pattern_copy(s.stroke_style);
    }
    out.thing_svg_value = svg::svg{.svgstyle = style, .svg_transform = t, .svgbody = std::move(sh)};
    out.thing_svg_clip = s.clip;
    return out;
}

void draw_path(canvas_context& ctx, draw_op const& op) {
    auto const commands = path_commands(current_path(ctx));
    if (commands.empty()) {
        return;
    }
    // The path is kept in canvas pixels; the item goes back into the user space of the moment, so that
    // line widths, dashes and gradients follow the transform as they do on a real canvas.
    auto const& t = ctx.state.transform;
    auto const inv = svg::invert(t);
    if (!inv) {
        return;
    }
    std::vector<svg::command> user;
    for (auto const& c : commands) {
        for (auto& u : transform_command(*inv, c)) {
            user.push_back(std::move(u));
        }
    }
    ctx.content.push_back(shape_thing(ctx.state, std::move(user), t, op.draw, op.rule));
}

} // namespace

std::vector<svg::command> transform_command(svg::transform const& t, svg::command const& c) {
    return std::visit(overloaded{
                          [&](svg::moveto const& m) -> std::vector<svg::command> { return {svg::moveto{svg::apply(t, m.to)}}; },
                          [&](svg::lineto const& l) -> std::vector<svg::command> { return {svg::lineto{svg::apply(t, l.to)}}; },
                          [&](svg::rect const& r) -> std::vector<svg::command> {
                              if (t.b == 0 && t.c == 0) {
                                  return {svg::rect{svg::apply(t, r.corner), {r.size.x * t.a, r.size.y * t.d}}};
                              }
                              point const p0 = r.corner;
                              point const p1{p0.x + r.size.x, p0.y};
                              point const p2{p0.x + r.size.x, p0.y + r.size.y};
                              point const p3{p0.x, p0.y + r.size.y};
                              return {svg::moveto{svg::apply(t, p0)}, svg::lineto{svg::apply(t, p1)},
                                      svg::lineto{svg::apply(t, p2)}, svg::lineto{svg::apply(t, p3)}, svg::closepath{}};
                          },
                          [&](svg::c_curveto const& cv) -> std::vector<svg::command> {
                              return {svg::c_curveto{svg::apply(t, cv.control1), svg::apply(t, cv.control2),
                                                     svg::apply(t, cv.c_end)}};
                          },
                          [&](svg::arc const& a) -> std::vector<svg::command> {
                              if (is_similarity(t)) {
                                  double const s = std::hypot(t.a, t.b);
                                  auto moved = a;
                                  moved.ellipse_center = svg::apply(t, a.ellipse_center);
                                  moved.arc_rx *= s;
                                  moved.arc_ry *= s;
                                  moved.arc_rotate += std::atan2(t.b, t.a);
                                  return {moved};
                              }
                              std::vector<svg::command> out;
                              for (auto const& cv : svg::arc_to_curves(a)) {
                                  out.push_back(svg::c_curveto{svg::apply(t, cv.control1), svg::apply(t, cv.control2),
                                                               svg::apply(t, cv.c_end)});
                              }
                              return out;
                          },
                          [&](svg::closepath const&) -> std::vector<svg::command> { return {svg::closepath{}}; },
                      },
                      c);
}

std::vector<svg::command> path_commands(std::vector<subpath> const& path) {
    std::vector<svg::command> out;
    for (auto const& sp : path) {
        // A subpath that is only its start draws nothing.
        if (sp.commands.size() == 1 && std::holds_alternative<svg::moveto>(sp.commands.front())) {
            continue;
        }
        out.insert(out.end(), sp.commands.begin(), sp.commands.end());
    }
    return out;
}

svg::arc canvas_arc(svg::point center, double rx, double ry, double rotation, double start, double end,
                    bool anticlockwise) {
    double constexpr turn = 2 * std::numbers::pi;
    double sweep = 0;
    if (!anticlockwise) {
        sweep = end - start >= turn ? turn : std::fmod(std::fmod(end - start, turn) + turn, turn);
    } else {
        sweep = start - end >= turn ? -turn : -std::fmod(std::fmod(start - end, turn) + turn, turn);
    }
    return svg::arc{.ellipse_center = center,
                    .arc_rx = rx,
                    .arc_ry = ry,
                    .arc_rotate = rotation,
                    .arc_start = start,
                    .arc_sweep = sweep};
}

canvas_context new_context(int width, int height) {
    canvas_context ctx{.canvas_width = width, .canvas_height = height};
    // A canvas starts with the miter limit 10, where SVG's default is 4.
    ctx.state.svgstyle.stroke_miterlimit = 10;
    return ctx;
}

std::string color_text(css::color::color const& c) {
    auto const byte = [](float x) { return static_cast<int>(std::lround(std::clamp(x, 0.0f, 1.0f) * 255)); };
    char buf[80];
    auto const hex = [&](float r, float g, float b) {
        std::snprintf(buf, sizeof buf, "#%02x%02x%02x", byte(r), byte(g), byte(b));
        return std::string(buf);
    };
    auto const rgba = [&](float r, float g, float b, float a) {
        // Fully transparent reads as "rgba(0, 0, 0, 0)", whatever its colour.
        if (a <= 0) {
            return std::string("rgba(0, 0, 0, 0)");
        }
        std::snprintf(buf, sizeof buf, "rgba(%d, %d, %d, %f)", byte(r), byte(g), byte(b), double(a));
        return std::string(buf);
    };
    return std::visit(overloaded{
                          [&](css::color::transparent const&) { return rgba(0, 0, 0, 0); },
                          [&](css::color::rgb const& v) { return hex(v.r, v.g, v.b); },
                          [&](css::color::rgba const& v) { return v.a >= 1 ? hex(v.r, v.g, v.b) : rgba(v.r, v.g, v.b, v.a); },
                          [&](css::color::cmyk const&) { return css::color::to_text(c); },
                          [&](css::color::named_color const&) { return css::color::to_text(c); },
                          [&](css::color::vellum_overprint const&) { return css::color::to_text(c); },
                      },
                      static_cast<css::color::color_alternative const&>(c));
}

svg::used_paint paint_of(canvas_style const& s) {
    return std::visit(overloaded{
                          [](style_color const& c) -> svg::used_paint { return svg::paint_color{c.style_color_value}; },
                          [](style_gradient const& g) -> svg::used_paint {
                              // A gradient without stops paints transparent black: nothing.
                              if (!g.style_gradient_value || g.style_gradient_value->gradient_stops.empty()) {
                                  return svg::paint_none{};
                              }
                              return svg::paint_gradient{share(svg::gradient{
                                  .gradient_type = g.style_gradient_value->gradient_geometry,
                                  .gradient_stops = g.style_gradient_value->gradient_stops})};
                          },
                          [](style_pattern const&) -> svg::used_paint { return svg::paint_none{}; },
                      },
                      s);
}

std::optional<std::vector<double>> dash_list(std::vector<double> const& dashes) {
    for (double d : dashes) {
        if (!std::isfinite(d) || d < 0) {
            return std::nullopt;
        }
    }
    auto out = dashes;
    if (out.size() % 2 == 1) {
        out.insert(out.end(), dashes.begin(), dashes.end());
    }
    return out;
}

void apply(canvas_context& ctx, context_prop const& op) {
    auto& st = ctx.state;
    std::visit(overloaded{
                   [&](save_op const&) { ctx.states.push_back(st); },
                   [&](restore_op const&) {
                       // A restore with nothing saved does nothing.
                       if (!ctx.states.empty()) {
                           st = std::move(ctx.states.back());
                           ctx.states.pop_back();
                       }
                   },
                   [&](transform_op const& o) { st.transform = svg::then(o.by, st.transform); },
                   [&](set_transform_op const& o) { st.transform = o.to; },
                   [&](global_alpha_op const& o) { st.svgstyle.opacity = o.alpha; },
                   [&](stroke_style_op const& o) { st.stroke_style = o.style; },
                   [&](fill_style_op const& o) { st.fill_style = o.style; },
                   [&](command_op const& o) { add_command(ctx, o.command); },
                   [&](quadratic_op const& o) {
                       auto const& t = st.transform;
                       point const q1 = svg::apply(t, o.control);
                       point const q2 = svg::apply(t, o.end);
                       if (!ctx.subpath) {
                           start_subpath(ctx, q1);
                       }
                       point const p0 = ctx.subpath->end_point;
                       // The quadratic as the cubic of the same curve.
                       point const c1{p0.x + 2.0 / 3 * (q1.x - p0.x), p0.y + 2.0 / 3 * (q1.y - p0.y)};
                       point const c2{q2.x + 2.0 / 3 * (q1.x - q2.x), q2.y + 2.0 / 3 * (q1.y - q2.y)};
                       ctx.subpath->commands.push_back(svg::c_curveto{c1, c2, q2});
                       ctx.subpath->end_point = q2;
                   },
                   [&](arc_to_op const& o) { arc_to(ctx, o); },
                   [&](begin_path_op const&) {
                       ctx.path.clear();
                       ctx.subpath.reset();
                   },
                   [&](draw_op const& o) { draw_path(ctx, o); },
                   [&](clip_op const& o) { st.clip.push_back(canvas_clip{.clip_path = current_path(ctx), .clip_rule = o.rule}); },
                   [&](reset_clip_op const&) { st.clip.clear(); },
                   [&](line_width_op const& o) { st.svgstyle.stroke_width = o.width; },
                   [&](line_cap_op const& o) { st.svgstyle.stroke_linecap = o.cap; },
                   [&](line_join_op const& o) { st.svgstyle.stroke_linejoin = o.join; },
                   [&](miter_limit_op const& o) { st.svgstyle.stroke_miterlimit = o.limit; },
                   [&](dash_array_op const& o) { st.svgstyle.stroke_dasharray = o.dashes; },
                   [&](dash_offset_op const& o) { st.svgstyle.stroke_dashoffset = o.offset; },
                   [&](draw_text_op const& o) {
                       ctx.content.push_back(thing_text{canvas_text{
                           .canvas_text_svgstyle = item_style(st),
                           .canvas_text_content = o.text,
                           .canvas_text_pos = o.at,
                           .canvas_text_max_width = o.max_width,
                           .canvas_text_font = st.font,
                           .canvas_text_align = st.text_align,
                           .canvas_text_baseline = st.text_baseline,
                           .canvas_text_draw = o.draw,
                           .canvas_text_style = snapshot(o.draw == draw::fill ? st.fill_style : st.stroke_style),
                           .canvas_text_transform = st.transform,
                           .canvas_text_clip = st.clip}});
                   },
                   [&](font_op const& o) { st.font = o.font; },
                   [&](text_align_op const& o) { st.text_align = o.align; },
                   [&](text_baseline_op const& o) { st.text_baseline = o.baseline; },
                   [&](clear_rect_op const& o) {
                       auto const& t = st.transform;
                       thing_clear_rect c;
                       c.clear_corners[0] = svg::apply(t, {o.x, o.y});
                       c.clear_corners[1] = svg::apply(t, {o.x + o.w, o.y});
                       c.clear_corners[2] = svg::apply(t, {o.x + o.w, o.y + o.h});
                       c.clear_corners[3] = svg::apply(t, {o.x, o.y + o.h});
                       ctx.content.push_back(c);
                   },
                   [&](draw_rect_op const& o) {
                       if (o.w == 0 && o.h == 0) {
                           return;
                       }
                       ctx.content.push_back(shape_thing(st, {svg::rect{{o.x, o.y}, {o.w, o.h}}}, st.transform, o.draw,
                                                         css::svgstyle::fill_rule::nonzero));
                   },
                   [&](draw_image_op const& o) {
                       ctx.content.push_back(thing_image{.thing_image_svgstyle = item_style(st),
                                                         .thing_image_clip = st.clip,
                                                         .thing_image_transform = st.transform,
                                                         .thing_image_value = o.image});
                   },
                   [&](put_image_data_op const& o) { ctx.content.push_back(thing_put_image_data{o.data}); },
               },
               op);
}

} // namespace vellum::canvas
