// The weight and width classes of a font face as matching uses them.
#pragma once

#include <cstdint>
#include <optional>

namespace vellum::truetype {

/// Weight classes; the numbers are the matching values, with demi-bold counted nearer bold (650).
enum class truetype_weight : std::uint16_t {
    weight_100 = 100,
    weight_200 = 200,
    weight_300 = 300,
    normal = 400,
    weight_500 = 500,
    weight_600 = 650,
    bold = 700,
    weight_800 = 800,
    weight_900 = 900,
};

/// Width classes, ultra-condensed = 100 up to ultra-expanded = 900, normal = 500.
enum class truetype_width : std::uint16_t {
    ultra_condensed = 100,
    extra_condensed = 200,
    condensed = 300,
    semi_condensed = 400,
    normal = 500,
    semi_expanded = 600,
    expanded = 700,
    extra_expanded = 800,
    ultra_expanded = 900,
};

/// The weight of an OS/2 usWeightClass that is one of 100, 200 ... 900.
[[nodiscard]] std::optional<truetype_weight> weight_of_class(std::uint16_t weight_class);

/// The width of an OS/2 usWidthClass from 1 to 9.
[[nodiscard]] std::optional<truetype_width> width_of_class(std::uint16_t width_class);

/// The number used when comparing weights or widths.
inline int matching_value(truetype_weight w) {
    return int(w);
}

inline int matching_value(truetype_width w) {
    return int(w);
}

} // namespace vellum::truetype
