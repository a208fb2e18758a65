#include "text/fonts/match.hpp"

#include <cstdlib>

namespace vellum::fonts::match {

quality font_desc_quality(request const& r, font_desc0 const& d) {
    bool const want_slanted = r.request_style != font_style::normal;
    bool const is_slanted = d.font_desc_style != font_style::normal;
    bool const small_caps_mismatch =
        (r.request_variant == font_variant::small_caps && d.font_desc_variant == font_variant::normal) ||
        (r.request_variant == font_variant::normal && d.font_desc_variant == font_variant::small_caps);
    return quality{
        .quality_style = want_slanted == is_slanted ? 0 : 1000,
        .quality_width = std::abs(truetype::matching_value(r.request_width) - truetype::matching_value(d.font_desc_width)),
        .quality_weight =
            std::abs(truetype::matching_value(r.request_weight) - truetype::matching_value(d.font_desc_weight)),
        .quality_variant = small_caps_mismatch ? 1000 : 0,
    };
}

std::optional<std::size_t> best_match(request const& r, std::span<font_desc0 const> descs) {
    std::optional<std::size_t> best;
    quality best_quality;
    for (std::size_t i = 0; i < descs.size(); ++i) {
        auto const q = font_desc_quality(r, descs[i]);
        if (!best || q < best_quality) {
            best = i;
            best_quality = q;
        }
    }
    return best;
}

truetype::truetype_weight weight_from_fontconfig(int w) {
    using enum truetype::truetype_weight;
    if (w <= 0) {
        return weight_100;
    }
    if (w <= 40) {
        return weight_200;
    }
    if (w < 100) {
        return w == 80 ? normal : weight_300;
    }
    if (w == 100) {
        return weight_500;
    }
    if (w < 200) {
        return w == 180 ? weight_600 : bold;
    }
    if (w == 200) {
        return bold;
    }
    if (w == 205) {
        return weight_800;
    }
    if (w == 210) {
        return weight_900;
    }
    return weight_800;
}

truetype::truetype_width width_from_fontconfig(int w) {
    using enum truetype::truetype_width;
    if (w == 50) {
        return ultra_condensed;
    }
    if (w <= 63) {
        return extra_condensed;
    }
    if (w <= 99) {
        return w == 87 ? semi_condensed : condensed;
    }
    if (w == 100) {
        return normal;
    }
    if (w <= 124) {
        return w == 113 ? semi_expanded : expanded;
    }
    if (w == 125) {
        return expanded;
    }
    return w == 200 ? ultra_expanded : extra_expanded;
}

} // namespace vellum::fonts::match
