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

/// font-variant-caps. Petite capitals fall back to small capitals in fonts without them.
enum class font_variant_caps { normal, small_caps, all_small_caps, petite_caps, all_petite_caps, unicase, titling_caps };

/// A group of OpenType features that a property turns on, turns off, or leaves to the font's default.
enum class feature_toggle { unset, on, off };

/// font-variant-ligatures: "none" turns all four groups off.
struct font_variant_ligatures {
    feature_toggle ligatures_common = feature_toggle::unset;
    feature_toggle ligatures_discretionary = feature_toggle::unset;
    feature_toggle ligatures_historical = feature_toggle::unset;
    feature_toggle ligatures_contextual = feature_toggle::unset;
    bool operator==(font_variant_ligatures const&) const = default;
};

enum class numeric_figure { normal, lining, oldstyle };
enum class numeric_spacing { normal, proportional, tabular };
enum class numeric_fraction { normal, diagonal, stacked };

/// font-variant-numeric.
struct font_variant_numeric {
    numeric_figure numeric_figure_style = numeric_figure::normal;
    numeric_spacing numeric_spacing_style = numeric_spacing::normal;
    numeric_fraction numeric_fraction_style = numeric_fraction::normal;
    bool numeric_ordinal = false;
    bool numeric_slashed_zero = false;
    bool operator==(font_variant_numeric const&) const = default;
};

enum class font_variant_position { normal, sub, super };

enum class east_asian_variant { normal, jis78, jis83, jis90, jis04, simplified, traditional };
enum class east_asian_width { normal, full_width, proportional_width };

/// font-variant-east-asian.
struct font_variant_east_asian {
    east_asian_variant east_asian_forms = east_asian_variant::normal;
    east_asian_width east_asian_widths = east_asian_width::normal;
    bool east_asian_ruby = false;
    bool operator==(font_variant_east_asian const&) const = default;
};

enum class font_kerning { auto_kerning, normal, none };

/// One entry of font-feature-settings: a four-letter tag and its value (0 off, 1 on, n an alternate).
struct feature_setting {
    std::string setting_tag;
    int setting_value = 1;
    bool operator==(feature_setting const&) const = default;
};

/// font-feature-settings; "normal" is the empty list.
using font_feature_settings = std::vector<feature_setting>;

/// The font properties that choose OpenType features rather than faces.
struct font_features {
    font_variant_caps features_caps = font_variant_caps::normal;
    font_variant_ligatures features_ligatures;
    font_variant_numeric features_numeric;
    font_variant_position features_position = font_variant_position::normal;
    font_variant_east_asian features_east_asian;
    font_kerning features_kerning = font_kerning::auto_kerning;
    font_feature_settings features_settings;
    bool operator==(font_features const&) const = default;
};

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
    /// Small capitals for matching faces; font-variant-caps decides it.
    font_variant font_props_font_variant = font_variant::normal;
    int font_props_font_weight = 400;
    font_features font_props_features;
    bool operator==(font_props const&) const = default;
};

} // namespace vellum::css::fonts
