// The SVG painting properties of an element, as one group that a child shares with its parent while none
// of them change.
#pragma once

#include "css/box.hpp"
#include "css/color.hpp"
#include "css/units.hpp"
#include "css/value.hpp"

#include <optional>
#include <variant>
#include <vector>

namespace vellum::css::svgstyle {

enum class fill_rule { nonzero, evenodd };
enum class linecap { butt, round, square };
enum class linejoin { miter, round, bevel };
enum class text_anchor { start, middle, end };

/// The paint of a fill or stroke: none, a colour, or a paint server by URL.
using spec_paint = std::variant<box::none_value, color::spec_color, value::url>;
using paint = std::variant<box::none_value, color::color, value::url>;

/// A number without a unit: user units of the SVG coordinate system.
struct user_units {
    float user_units_value = 0;
    bool operator==(user_units const&) const = default;
};

/// An SVG length: a CSS length, a percentage of the viewport, or a number of user units.
template <class Len>
using svg_length_of = std::variant<Len, units::percentage, user_units>;

using spec_svg_length = svg_length_of<units::length>;
using svg_length = svg_length_of<float>;

/// Dash and gap lengths; empty for "none".
using spec_dasharray = std::vector<spec_svg_length>;
using dasharray = std::vector<svg_length>;

struct svgstyle {
    paint svgstyle_fill = color::black();
    float svgstyle_fill_opacity = 1;
    fill_rule svgstyle_fill_rule = fill_rule::nonzero;
    fill_rule svgstyle_clip_rule = fill_rule::nonzero;
    paint svgstyle_stroke = box::none_value{};
    dasharray svgstyle_stroke_dasharray;
    svg_length svgstyle_stroke_dashoffset = user_units{0};
    linecap svgstyle_stroke_linecap = linecap::butt;
    linejoin svgstyle_stroke_linejoin = linejoin::miter;
    float svgstyle_stroke_miterlimit = 10;
    float svgstyle_stroke_opacity = 1;
    svg_length svgstyle_stroke_width = user_units{1};
    box::url_or_none svgstyle_marker_start;
    box::url_or_none svgstyle_marker_mid;
    box::url_or_none svgstyle_marker_end;
    text_anchor svgstyle_text_anchor = text_anchor::start;
    bool operator==(svgstyle const&) const = default;
};

} // namespace vellum::css::svgstyle
