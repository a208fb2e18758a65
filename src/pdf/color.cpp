#include "pdf/color.hpp"

#include "image/convert.hpp"

namespace vellum::pdf::color {

color without_rgb(color const& c) {
    auto const* v = std::get_if<rgb>(&c);
    if (v == nullptr) {
        return c;
    }
    auto const k = image::convert::rgb_to_cmyk(float(v->r), float(v->g), float(v->b));
    return cmyk{k[0], k[1], k[2], k[3]};
}

} // namespace vellum::pdf::color
