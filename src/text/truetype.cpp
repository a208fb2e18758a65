#include "text/truetype.hpp"

namespace vellum::truetype {

std::optional<truetype_weight> weight_of_class(std::uint16_t weight_class) {
    switch (weight_class) {
    case 100:
        return truetype_weight::weight_100;
    case 200:
        return truetype_weight::weight_200;
    case 300:
        return truetype_weight::weight_300;
    case 400:
        return truetype_weight::normal;
    case 500:
        return truetype_weight::weight_500;
    case 600:
        return truetype_weight::weight_600;
    case 700:
        return truetype_weight::bold;
    case 800:
        return truetype_weight::weight_800;
    case 900:
        return truetype_weight::weight_900;
    default:
        return std::nullopt;
    }
}

std::optional<truetype_width> width_of_class(std::uint16_t width_class) {
    if (width_class < 1 || width_class > 9) {
        return std::nullopt;
    }
    return truetype_width(width_class * 100);
}

} // namespace vellum::truetype
