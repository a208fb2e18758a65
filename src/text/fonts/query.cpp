#include "text/fonts/query.hpp"

#include <algorithm>

namespace vellum::fonts::query {

truetype::truetype_weight weight_of(int css_weight) {
    using enum truetype::truetype_weight;
    // Computed weights are multiples of 100, but a stray value (from a script, say) still lands on
    // the nearest class rather than off the scale.
    int const hundreds = std::clamp((css_weight + 50) / 100, 1, 9);
    switch (hundreds) {
    case 1: return weight_100;
    case 2: return weight_200;
    case 3: return weight_300;
    case 4: return normal;
    case 5: return weight_500;
    case 6: return weight_600;
    case 7: return bold;
    case 8: return weight_800;
    default: return weight_900;
    }
}

truetype::truetype_width width_of(css::fonts::font_stretch stretch) {
    using css::fonts::font_stretch;
    using enum truetype::truetype_width;
    switch (stretch) {
    case font_stretch::ultra_condensed: return ultra_condensed;
    case font_stretch::extra_condensed: return extra_condensed;
    case font_stretch::condensed: return condensed;
    case font_stretch::semi_condensed: return semi_condensed;
    case font_stretch::normal: return normal;
    case font_stretch::semi_expanded: return semi_expanded;
    case font_stretch::expanded: return expanded;
    case font_stretch::extra_expanded: return extra_expanded;
    case font_stretch::ultra_expanded: return ultra_expanded;
    }
    return normal;
}

namespace {

match::font_style style_of(css::fonts::font_style s) {
    switch (s) {
    case css::fonts::font_style::normal: return match::font_style::normal;
    case css::fonts::font_style::italic: return match::font_style::italic;
    case css::fonts::font_style::oblique: return match::font_style::oblique;
    }
    return match::font_style::normal;
}

match::font_variant variant_of(css::fonts::font_variant v) {
    switch (v) {
    case css::fonts::font_variant::normal: return match::font_variant::normal;
    case css::fonts::font_variant::small_caps: return match::font_variant::small_caps;
    }
    return match::font_variant::normal;
}

} // namespace

font_query query_of(css::fonts::font_props const& props) {
    return font_query{
        .query_families = props.font_props_font_family,
        .query_style = style_of(props.font_props_font_style),
        .query_weight = weight_of(props.font_props_font_weight),
        .query_width = width_of(props.font_props_font_stretch),
        .query_variant = variant_of(props.font_props_font_variant),
        // The style record has no OpenType feature list: only the vellum_opentype variant of the
        // database carries one, and with it the switch for kerning.
        .query_features = {},
        .query_kerning = true,
    };
}

} // namespace vellum::fonts::query
