// Lengths and angles as declarations give them: absolute units are converted to points at once, font-
// and pixel-relative ones wait until the element's font size and the output resolution are known.
#pragma once

#include "css/value.hpp"

#include <algorithm>
#include <limits>
#include <optional>
#include <variant>

namespace vellum::css::units {

/// A length already in points (72 to the inch).
struct points {
    float points_value = 0;
    bool operator==(points const&) const = default;
};

/// A multiple of the element's font size.
struct font_em {
    float em_value = 0;
    bool operator==(font_em const&) const = default;
};

/// A multiple of the element's x-height, taken as half the font size.
struct font_ex {
    float ex_value = 0;
    bool operator==(font_ex const&) const = default;
};

/// CSS pixels, whose size in points depends on the CSS resolution of the run.
struct pixels {
    float pixels_value = 0;
    bool operator==(pixels const&) const = default;
};

using length = std::variant<points, font_em, font_ex, pixels>;

/// The units a length may be written in.
enum class length_unit { cm, in, mm, q, pc, pt, em, ex, px };

/// A percentage, kept as written (50% is 50) until its reference is known.
struct percentage {
    float percentage_value = 0;
    /// A length in points added to the percentage once resolved, as calc(100% - 2em) leaves it.
    float percentage_offset = 0;
    /// Bounds in points on the resolved length, as min(100%, 600px) or clamp(10em, 50%, 40em) leave them.
    float percentage_min = -std::numeric_limits<float>::infinity();
    float percentage_max = std::numeric_limits<float>::infinity();
    bool operator==(percentage const&) const = default;
};

/// The percentage of a reference, with its offset, within its bounds (the lower bound wins).
inline float percent_of(percentage const& p, float reference) {
    return std::max(p.percentage_min, std::min(p.percentage_max, reference * p.percentage_value / 100 + p.percentage_offset));
}

using length_percent = std::variant<length, percentage>;

/// The unit for a lower-cased unit name.
[[nodiscard]] std::optional<length_unit> unit_of(std::string_view name);

/// A number in a unit as a length.
length make_length(double n, length_unit unit);

/// A length from a term: a number with a length unit, or a unitless 0.
[[nodiscard]] std::optional<length> length_from_value(value::value const& v);

/// A length or a percentage.
[[nodiscard]] std::optional<length_percent> length_percent_from_value(value::value const& v);

/// An angle in radians from "deg", "rad", "grad" or "turn", or a unitless 0.
[[nodiscard]] std::optional<float> angle_from_value(value::value const& v);

/// A plain number (no unit), as a double.
[[nodiscard]] std::optional<double> number_from_value(value::value const& v);

/// An integer written without a fraction or unit.
[[nodiscard]] std::optional<int> integer_from_value(value::value const& v);

/// What resolving a relative length needs: the font size in points and the CSS resolution in dots per
/// inch.
struct resolution {
    float resolution_font_size = 12;
    float resolution_dpi = 96;
};

/// A length in points. An x-height is taken as half the font size; no font is consulted.
float to_points(length const& l, resolution const& r);

} // namespace vellum::css::units
