#include "pdf/borders.hpp"

#include "util/ref.hpp"

#include <algorithm>
#include <cmath>

namespace vellum::pdf::borders {

namespace {

// The control point distance of a quarter ellipse drawn as one cubic Bézier curve, as a fraction of
// the radius.
constexpr double kappa = 0.5522847498;

enum class side { top, bottom, left, right };

bool paints(css::box::border const& b) {
    return b.border_style != css::box::line_style::none && b.border_style != css::box::line_style::hidden &&
           b.border_width > 0 && !std::holds_alternative<css::color::transparent>(b.border_color);
}

corner corner_of(css::box::radius const& r, frame const& box) {
    return {std::max(0.0, resolve(r.radius_h, box.right - box.left)),
            std::max(0.0, resolve(r.radius_v, box.top - box.bottom))};
}

widths scaled(widths const& w, double t) {
    return {w.top * t, w.right * t, w.bottom * t, w.left * t};
}

css::box::border const& side_of(css::box::borders const& b, side s) {
    switch (s) {
    case side::top:
        return b.borders_top;
    case side::bottom:
        return b.borders_bottom;
    case side::left:
        return b.borders_left;
    case side::right:
        return b.borders_right;
    }
    return b.borders_top;
}

// Clips to the side's trapezoid: the outer edge, and the lines from the outer corners to the inner
// corners, so that neighbouring sides meet on the diagonal.
void clip_to_side(content::out const& o, content::gs& g, frame const& out, frame const& in, side s) {
    auto poly = [&](double x1, double y1, double x2, double y2, double x3, double y3, double x4, double y4) {
        content::move(o, g, x1, y1);
        content::line(o, g, x2, y2);
        content::line(o, g, x3, y3);
        content::line(o, g, x4, y4);
        content::close(o);
    };
    switch (s) {
    case side::top:
        poly(out.left, out.top, out.right, out.top, in.right, in.top, in.left, in.top);
        break;
    case side::bottom:
        poly(out.left, out.bottom, in.left, in.bottom, in.right, in.bottom, out.right, out.bottom);
        break;
    case side::left:
        poly(out.left, out.top, in.left, in.top, in.left, in.bottom, out.left, out.bottom);
        break;
    case side::right:
        poly(out.right, out.top, out.right, out.bottom, in.right, in.bottom, in.right, in.top);
        break;
    }
    content::clip(o);
    content::end_path(o);
}

// Fills the band between two nested outlines.
void ring(content::out const& o,
          content::gs& g,
          frame const& box,
          radii const& r,
          widths const& w,
          double from,
          double to,
          color::color const& c,
          paint_color::paint const& p,
          double alpha) {
    paint_color::paint with = p;
    with.paint_color = c;
    paint_color::set_fill(o, g, with, alpha);
    widths const a = scaled(w, from);
    widths const b = scaled(w, to);
    rounded_path(o, g, inset(box, a), inset(r, a));
    rounded_path(o, g, inset(box, b), inset(r, b));
    content::fill_even_odd(o);
}

bool top_or_left(side s) { return s == side::top || s == side::left; }

// A side in its style, inside the clip of its trapezoid (or of the whole border when all sides agree).
void paint_side(content::out const& o,
                content::gs& g,
                frame const& box,
                radii const& r,
                widths const& w,
                side s,
                css::box::border const& b,
                double alpha) {
    auto const p = paint_color::paint_of(b.border_color);
    if (!p) {
        return;
    }
    color::color const c = p->paint_color;
    using css::box::line_style;
    switch (b.border_style) {
    case line_style::none:
    case line_style::hidden:
        return;
    case line_style::solid:
        ring(o, g, box, r, w, 0, 1, c, *p, alpha);
        return;
    case line_style::double_:
        ring(o, g, box, r, w, 0, 1.0 / 3, c, *p, alpha);
        ring(o, g, box, r, w, 2.0 / 3, 1, c, *p, alpha);
        return;
    case line_style::inset:
        ring(o, g, box, r, w, 0, 1, top_or_left(s) ? paint_color::darker(c) : paint_color::lighter(c), *p, alpha);
        return;
    case line_style::outset:
        ring(o, g, box, r, w, 0, 1, top_or_left(s) ? paint_color::lighter(c) : paint_color::darker(c), *p, alpha);
        return;
    case line_style::groove:
    case line_style::ridge: {
        // A groove is cut in: dark outside on the top and left, light outside on the bottom and right.
        bool const dark_outside = (b.border_style == line_style::groove) == top_or_left(s);
        color::color const outer = dark_outside ? paint_color::darker(c) : paint_color::lighter(c);
        color::color const inner = dark_outside ? paint_color::lighter(c) : paint_color::darker(c);
        ring(o, g, box, r, w, 0, 0.5, outer, *p, alpha);
        ring(o, g, box, r, w, 0.5, 1, inner, *p, alpha);
        return;
    }
    case line_style::dashed:
    case line_style::dotted: {
        double const width = b.border_width;
        bool const dashed = b.border_style == line_style::dashed;
        double const on = dashed ? 3 * width : width;
        double const off = dashed ? 2 * width : width;
        bool const across = s == side::top || s == side::bottom;
        double const length = across ? box.right - box.left : box.top - box.bottom;
        paint_color::set_stroke(o, g, *p, alpha);
        content::line_width(o, g, width);
        content::line_cap(o, g, content::stroke_linecap::butt);
        content::line_join(o, g, content::stroke_linejoin::miter);
        content::dash(o, g, {.array = adjusted_dash(length, on, off)});
        if (is_square(r)) {
            // The middle line of the side, over the whole length of the box.
            switch (s) {
            case side::top:
                content::move(o, g, box.left, box.top - width / 2);
                content::line(o, g, box.right, box.top - width / 2);
                break;
            case side::bottom:
                content::move(o, g, box.left, box.bottom + width / 2);
                content::line(o, g, box.right, box.bottom + width / 2);
                break;
            case side::left:
                content::move(o, g, box.left + width / 2, box.top);
                content::line(o, g, box.left + width / 2, box.bottom);
                break;
            case side::right:
                content::move(o, g, box.right - width / 2, box.top);
                content::line(o, g, box.right - width / 2, box.bottom);
                break;
            }
        } else {
            // Along the middle of the rounded outline; the trapezoid keeps the part of this side.
            widths const half = scaled(w, 0.5);
            rounded_path(o, g, inset(box, half), inset(r, half));
        }
        content::stroke(o);
        return;
    }
    }
}

} // namespace

radii used_radii(css::box::borders const& b, frame const& box) {
    radii r{.top_left = corner_of(b.borders_border_top_left_radius, box),
            .top_right = corner_of(b.borders_border_top_right_radius, box),
            .bottom_right = corner_of(b.borders_border_bottom_right_radius, box),
            .bottom_left = corner_of(b.borders_border_bottom_left_radius, box)};
    // Corners that would overlap along a side shrink together, all by the same factor.
    double const w = box.right - box.left;
    double const h = box.top - box.bottom;
    double f = 1;
    auto limit = [&](double length, double a, double b) {
        if (a + b > length && a + b > 0) {
            f = std::min(f, std::max(0.0, length) / (a + b));
        }
    };
    limit(w, r.top_left.h, r.top_right.h);
    limit(w, r.bottom_left.h, r.bottom_right.h);
    limit(h, r.top_left.v, r.bottom_left.v);
    limit(h, r.top_right.v, r.bottom_right.v);
    if (f < 1) {
        for (corner* c : {&r.top_left, &r.top_right, &r.bottom_right, &r.bottom_left}) {
            c->h *= f;
            c->v *= f;
        }
    }
    return r;
}

bool is_square(radii const& r) {
    for (corner const* c : {&r.top_left, &r.top_right, &r.bottom_right, &r.bottom_left}) {
        if (c->h > 0 && c->v > 0) {
            return false;
        }
    }
    return true;
}

frame inset(frame const& f, widths const& w) {
    return {f.left + w.left, f.bottom + w.bottom, f.right - w.right, f.top - w.top};
}

radii inset(radii const& r, widths const& w) {
    auto shrink = [](corner c, double dh, double dv) {
        return corner{std::max(0.0, c.h - dh), std::max(0.0, c.v - dv)};
    };
    return {.top_left = shrink(r.top_left, w.left, w.top),
            .top_right = shrink(r.top_right, w.right, w.top),
            .bottom_right = shrink(r.bottom_right, w.right, w.bottom),
            .bottom_left = shrink(r.bottom_left, w.left, w.bottom)};
}

void rounded_path(content::out const& o, content::gs& g, frame const& f, radii const& r) {
    if (is_square(r)) {
        content::rect(o, g, f.left, f.bottom, f.right - f.left, f.top - f.bottom);
        return;
    }
    // Clockwise from the end of the top left corner; a corner with a zero radius is a sharp one.
    auto const& tl = r.top_left;
    auto const& tr = r.top_right;
    auto const& br = r.bottom_right;
    auto const& bl = r.bottom_left;
    double const k = kappa;
    content::move(o, g, f.left + tl.h, f.top);
    content::line(o, g, f.right - tr.h, f.top);
    if (tr.h > 0 && tr.v > 0) {
        content::curve(o, g, f.right - tr.h + k * tr.h, f.top, f.right, f.top - tr.v + k * tr.v, f.right,
                       f.top - tr.v);
    }
    content::line(o, g, f.right, f.bottom + br.v);
    if (br.h > 0 && br.v > 0) {
        content::curve(o, g, f.right, f.bottom + br.v - k * br.v, f.right - br.h + k * br.h, f.bottom,
                       f.right - br.h, f.bottom);
    }
    content::line(o, g, f.left + bl.h, f.bottom);
    if (bl.h > 0 && bl.v > 0) {
        content::curve(o, g, f.left + bl.h - k * bl.h, f.bottom, f.left, f.bottom + bl.v - k * bl.v, f.left,
                       f.bottom + bl.v);
    }
    content::line(o, g, f.left, f.top - tl.v);
    if (tl.h > 0 && tl.v > 0) {
        content::curve(o, g, f.left, f.top - tl.v + k * tl.v, f.left + tl.h - k * tl.h, f.top, f.left + tl.h,
                       f.top);
    }
    content::close(o);
}

widths border_widths(css::box::borders const& b) {
    auto width = [](css::box::border const& s) {
        bool const shown = s.border_style != css::box::line_style::none &&
                           s.border_style != css::box::line_style::hidden;
        return shown ? std::max(0.0, double(s.border_width)) : 0.0;
    };
    return {width(b.borders_top), width(b.borders_right), width(b.borders_bottom), width(b.borders_left)};
}

std::vector<double> adjusted_dash(double length, double on, double off) {
    if (on <= 0 || length <= 0) {
        return {on, off};
    }
    double n = std::floor((length - on) / (on + off));
    n = std::max(n, 1.0);
    double const gap = (length - on - (on + off) * n) / n + off;
    if (gap <= 0) {
        return {on, off};
    }
    return {on, gap};
}

void paint_border(content::out const& o,
                  content::gs& g,
                  frame const& box,
                  css::box::borders const& b,
                  double context_alpha) {
    side const order[] = {side::top, side::bottom, side::left, side::right};
    bool any = false;
    for (side s : order) {
        any = any || paints(side_of(b, s));
    }
    if (!any) {
        return;
    }
    radii const r = used_radii(b, box);
    widths const w = border_widths(b);
    frame const inner = inset(box, w);

    // Four equal sides without corners make one shape, when the style is a plain band or two.
    auto const& first = b.borders_top;
    bool const uniform = b.borders_bottom == first && b.borders_left == first && b.borders_right == first &&
                         is_square(r) &&
                         (first.border_style == css::box::line_style::solid ||
                          first.border_style == css::box::line_style::double_);
    if (uniform) {
        paint_side(o, g, box, r, w, side::top, first, context_alpha);
        return;
    }
    for (side s : order) {
        auto const& border = side_of(b, s);
        if (!paints(border)) {
            continue;
        }
        content::save(o, g);
        clip_to_side(o, g, box, inner, s);
        paint_side(o, g, box, r, w, s, border, context_alpha);
        content::restore(o, g);
    }
}

void paint_rule(content::out const& o,
                content::gs& g,
                double x,
                double top,
                double length,
                css::box::border const& side,
                double context_alpha) {
    double const w = side.border_width;
    css::box::borders b;
    b.borders_left = side;
    paint_border(o, g, {x - w / 2, top - length, x + w / 2, top}, b, context_alpha);
}

double resolve(css::box::length_or_percent<float> const& v, double reference) {
    return std::visit(overloaded{
                          [](float f) { return double(f); },
                          [&](css::units::percentage const& p) { return double(css::units::percent_of(p, float(reference))); },
                      },
                      v);
}

} // namespace vellum::pdf::borders
