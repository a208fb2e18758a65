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

namespace {

// Sets a feature, replacing an earlier entry of the same tag.
void put(std::vector<feature>& out, std::string tag, int value) {
    std::erase_if(out, [&](feature const& f) { return f.feature_tag == tag; });
    out.push_back({.feature_tag = std::move(tag), .feature_param = value == 1 ? std::nullopt : std::optional<int>(value)});
}

void put_toggle(std::vector<feature>& out, css::fonts::feature_toggle t, std::initializer_list<char const*> tags) {
    if (t == css::fonts::feature_toggle::unset) {
        return;
    }
    for (auto const* tag : tags) {
        put(out, tag, t == css::fonts::feature_toggle::on ? 1 : 0);
    }
}

} // namespace

std::vector<feature> features_of(css::fonts::font_features const& f, bool letter_spaced) {
    using namespace css::fonts;
    std::vector<feature> out;
    auto const& l = f.features_ligatures;
    put_toggle(out, l.ligatures_common, {"liga", "clig"});
    put_toggle(out, l.ligatures_discretionary, {"dlig"});
    put_toggle(out, l.ligatures_historical, {"hlig"});
    put_toggle(out, l.ligatures_contextual, {"calt"});
    // Small and petite capitals of lower-case letters come from "smcp" or "pcap" (or are imitated)
    // through the small-caps variant of the request; capitals shrink too with "c2sc" or "c2pc". A font
    // without petite capitals shows small ones instead (see the mapping of runs).
    switch (f.features_caps) {
    case font_variant_caps::normal:
    case font_variant_caps::small_caps:
        break;
    case font_variant_caps::petite_caps:
        put(out, "pcap", 1);
        break;
    case font_variant_caps::all_small_caps:
        put(out, "c2sc", 1);
        break;
    case font_variant_caps::all_petite_caps:
        put(out, "pcap", 1);
        put(out, "c2pc", 1);
        break;
    case font_variant_caps::unicase:
        put(out, "unic", 1);
        break;
    case font_variant_caps::titling_caps:
        put(out, "titl", 1);
        break;
    }
    auto const& n = f.features_numeric;
    switch (n.numeric_figure_style) {
    case numeric_figure::normal: break;
    case numeric_figure::lining: put(out, "lnum", 1); break;
    case numeric_figure::oldstyle: put(out, "onum", 1); break;
    }
    switch (n.numeric_spacing_style) {
    case numeric_spacing::normal: break;
    case numeric_spacing::proportional: put(out, "pnum", 1); break;
    case numeric_spacing::tabular: put(out, "tnum", 1); break;
    }
    switch (n.numeric_fraction_style) {
    case numeric_fraction::normal: break;
    case numeric_fraction::diagonal: put(out, "frac", 1); break;
    case numeric_fraction::stacked: put(out, "afrc", 1); break;
    }
    if (n.numeric_ordinal) {
        put(out, "ordn", 1);
    }
    if (n.numeric_slashed_zero) {
        put(out, "zero", 1);
    }
    switch (f.features_position) {
    case font_variant_position::normal: break;
    case font_variant_position::sub: put(out, "subs", 1); break;
    case font_variant_position::super: put(out, "sups", 1); break;
    }
    auto const& e = f.features_east_asian;
    switch (e.east_asian_forms) {
    case east_asian_variant::normal: break;
    case east_asian_variant::jis78: put(out, "jp78", 1); break;
    case east_asian_variant::jis83: put(out, "jp83", 1); break;
    case east_asian_variant::jis90: put(out, "jp90", 1); break;
    case east_asian_variant::jis04: put(out, "jp04", 1); break;
    case east_asian_variant::simplified: put(out, "smpl", 1); break;
    case east_asian_variant::traditional: put(out, "trad", 1); break;
    }
    switch (e.east_asian_widths) {
    case east_asian_width::normal: break;
    case east_asian_width::full_width: put(out, "fwid", 1); break;
    case east_asian_width::proportional_width: put(out, "pwid", 1); break;
    }
    if (e.east_asian_ruby) {
        put(out, "ruby", 1);
    }
    if (f.features_kerning == font_kerning::none) {
        put(out, "kern", 0);
    }
    // Spaced letters would pull a ligature's parts apart: the optional ligatures go, the required stay.
    if (letter_spaced) {
        for (auto const* tag : {"liga", "clig", "dlig", "hlig"}) {
            put(out, tag, 0);
        }
    }
    for (auto const& s : f.features_settings) {
        put(out, s.setting_tag, s.setting_value);
    }
    return out;
}

font_query query_of(css::fonts::font_props const& props, std::string_view language, bool letter_spaced, bool vertical) {
    auto features = features_of(props.font_props_features, letter_spaced);
    bool const kerning =
        std::none_of(features.begin(), features.end(), [](feature const& f) {
            return f.feature_tag == "kern" && f.feature_param == 0;
        });
    std::string lang(language);
    std::transform(lang.begin(), lang.end(), lang.begin(), [](char c) { return c >= 'A' && c <= 'Z' ? char(c - 'A' + 'a') : c; });
    return font_query{
        .query_families = props.font_props_font_family,
        .query_style = style_of(props.font_props_font_style),
        .query_weight = weight_of(props.font_props_font_weight),
        .query_width = width_of(props.font_props_font_stretch),
        .query_variant = variant_of(props.font_props_font_variant),
        .query_features = std::move(features),
        .query_kerning = kerning,
        .query_language = std::move(lang),
        .query_vertical = vertical,
    };
}

} // namespace vellum::fonts::query
