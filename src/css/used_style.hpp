// Used values of a box: what the computed style leaves relative to the containing block (percentages of
// padding, margins, offsets and sizes, box-sizing) resolved once that block's width is known.
#pragma once

#include "css/style.hpp"

#include <optional>
#include <variant>

namespace vellum::css::used_style {

struct no_used_margins {
    bool operator==(no_used_margins const&) const = default;
};

/// Margins in points; an "auto" margin is absent, for layout to fill in.
struct used_margins {
    std::optional<float> margin_top;
    std::optional<float> margin_right;
    std::optional<float> margin_bottom;
    std::optional<float> margin_left;
    bool operator==(used_margins const&) const = default;
};

using margins = std::variant<no_used_margins, used_margins>;

/// A statically positioned box has no offsets.
struct no_used_offsets {
    bool operator==(no_used_offsets const&) const = default;
};

/// Offsets in points; "auto" is absent.
struct used_offsets {
    std::optional<float> offset_top;
    std::optional<float> offset_right;
    std::optional<float> offset_bottom;
    std::optional<float> offset_left;
    bool operator==(used_offsets const&) const = default;
};

using offsets = std::variant<no_used_offsets, used_offsets>;

enum class indent_type { indent, hanging };

/// The first-line indent of a paragraph.
struct used_indent {
    css::used_style::indent_type indent_type = css::used_style::indent_type::indent;
    float indent_amount = 0;
    bool operator==(used_indent const&) const = default;
};

struct used_style {
    color::color used_background_color = color::transparent{};
    ref<box::background> used_background;
    box::borders used_borders;
    float used_padding_top = 0;
    float used_padding_right = 0;
    float used_padding_bottom = 0;
    float used_padding_left = 0;
    margins used_margins = no_used_margins{};
    offsets used_offsets = no_used_offsets{};
    /// The content width: for "auto", what the container leaves after margins, borders and padding.
    float used_width = 0;
    /// The content height; absent for "auto", or a percentage of a container whose height is unknown.
    std::optional<float> used_height;
    float used_min_height = 0;
    std::optional<float> used_max_height;
    used_indent used_text_indent;
    bool operator==(used_style const&) const = default;
};

/// The used values of a box of this style in a containing block of the given width and, if known,
/// height.
used_style used_style_of(style::style const& s, float container_width, std::optional<float> container_height);

/// An offset in points, for a use that needs a length; "auto" there is an internal error.
float offset_length(box::position_offset const& o, float reference);

} // namespace vellum::css::used_style
