// Borders and the shapes of boxes: rounded rectangles from CSS border radii, and the four sides of a
// border in each line style, each side cut to its own trapezoid at the corners.
#pragma once

#include "css/box.hpp"
#include "pdf/content.hpp"
#include "pdf/paint_color.hpp"

#include <vector>

namespace vellum::pdf::borders {

/// A rectangle on the page, y growing upward.
struct frame {
    double left = 0;
    double bottom = 0;
    double right = 0;
    double top = 0;
    bool operator==(frame const&) const = default;
};

/// The horizontal and vertical radius of one corner.
struct corner {
    double h = 0;
    double v = 0;
    bool operator==(corner const&) const = default;
};

struct radii {
    corner top_left;
    corner top_right;
    corner bottom_right;
    corner bottom_left;
    bool operator==(radii const&) const = default;
};

/// Widths of the four sides.
struct widths {
    double top = 0;
    double right = 0;
    double bottom = 0;
    double left = 0;
    bool operator==(widths const&) const = default;
};

/// A length, or a percentage of `reference` with its calc() offset.
double resolve(css::box::length_or_percent<float> const& v, double reference);

/// The radii of a border box: percentages of its width and height, then all scaled down together when
/// two corners would overlap along a side.
radii used_radii(css::box::borders const& b, frame const& box);

bool is_square(radii const& r);

/// The frame moved inward by the widths, and the radii shrunk by them (never below zero).
frame inset(frame const& f, widths const& w);
radii inset(radii const& r, widths const& w);

/// Appends the path of a rectangle with rounded corners: a plain "re" when no corner is rounded.
void rounded_path(content::out const& o, content::gs& g, frame const& f, radii const& r);

/// The widths of the sides that paint: a side of style none or hidden counts as zero.
widths border_widths(css::box::borders const& b);

/// The dash pattern for a line of length `length` with dashes `on` long and gaps `off` long, the gaps
/// stretched so that the line starts and ends with a dash; the pattern as given when there is no room.
std::vector<double> adjusted_dash(double length, double on, double off);

/// Paints the border of a border box. `context_alpha` is the opacity in force.
void paint_border(content::out const& o,
                  content::gs& g,
                  frame const& box,
                  css::box::borders const& b,
                  double context_alpha);

/// Paints a vertical line of a border style centred on x, from `top` down over `length`, as a column
/// rule is painted: the left border of a box as wide as the line.
void paint_rule(content::out const& o,
                content::gs& g,
                double x,
                double top,
                double length,
                css::box::border const& side,
                double context_alpha);

} // namespace vellum::pdf::borders
