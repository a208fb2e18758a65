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

/// The query for a style's font properties; family names are kept as written and in order.
font_query query_of(css::fonts::font_props const& props);

} // namespace vellum::fonts::query
