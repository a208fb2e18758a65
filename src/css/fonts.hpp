// The value types of font properties and the font_props group a child shares with its parent.
#pragma once

#include "css/units.hpp"

#include <string>
#include <variant>
#include <vector>

namespace vellum::css::fonts {

/// Family names in order of preference, generic families included ("serif").
using font_family = std::vector<std::string>;

enum class font_size_keyword { xx_small, x_small, small, medium, large, x_large, xx_large, larger, smaller };

using spec_font_size = std::variant<font_size_keyword, units::length, units::percentage>;

enum class font_stretch {
    normal,
    ultra_condensed,
    extra_condensed,
    condensed,
    semi_condensed,
    semi_expanded,
    expanded,
    extra_expanded,
    ultra_expanded,
};

enum class font_style { normal, italic, oblique };
enum class font_variant { normal, small_caps };

/// "bolder" and "lighter", relative to the parent's weight.
enum class relative_weight { bolder, lighter };

/// A weight from 100 to 900, or a step from the parent's.
using spec_font_weight = std::variant<int, relative_weight>;

struct line_height_normal {
    bool operator==(line_height_normal const&) const = default;
};

struct line_height_none {
    bool operator==(line_height_none const&) const = default;
};

/// A multiple of the element's font size, which children inherit as a multiple, not as a length.
struct line_height_number {
    float line_height_factor = 1;
    bool operator==(line_height_number const&) const = default;
};

template <class Len>
using line_height_of = std::variant<line_height_normal, line_height_none, line_height_number, Len>;

using spec_line_height = line_height_of<units::length>;
using line_height = line_height_of<float>;

/// Font properties that rarely change from parent to child.
struct font_props {
    font_family font_props_font_family{"serif"};
    font_stretch font_props_font_stretch = font_stretch::normal;
    font_style font_props_font_style = font_style::normal;
    font_variant font_props_font_variant = font_variant::normal;
    int font_props_font_weight = 400;
    bool operator==(font_props const&) const = default;
};

} // namespace vellum::css::fonts
