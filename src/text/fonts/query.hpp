// The font query of a computed style: the CSS font properties in the font database's own terms.
#pragma once

#include "css/fonts.hpp"
#include "text/fonts/fonts.hpp"

namespace vellum::fonts::query {

/// The weight class for a CSS weight: rounded to the nearest hundred within 100 to 900; 600 becomes
/// the demi-bold class that matching places nearer to bold than to medium.
truetype::truetype_weight weight_of(int css_weight);

/// The width class of a font-stretch keyword.
truetype::truetype_width width_of(css::fonts::font_stretch stretch);

/// The OpenType features that the font-variant properties, font-feature-settings and letter-spacing ask
/// for, in the order they apply: a later entry of the same tag replaces an earlier one, and a value of 0
/// turns a feature off. With letter-spacing the optional ligatures are off unless the settings name them.
std::vector<feature> features_of(css::fonts::font_features const& features, bool letter_spaced);

/// The query for a style's font properties; family names are kept as written and in order. The language
/// (BCP 47, as in a lang attribute) chooses language-specific faces and glyphs; vertical text takes the
/// font's vertical forms.
font_query query_of(css::fonts::font_props const& props,
                    std::string_view language = {},
                    bool letter_spaced = false,
                    bool vertical = false);

} // namespace vellum::fonts::query
