// Conversions of decoded images for output that allows only some colour spaces: device RGB turned to
// the process colours of a press.
#pragma once

#include "image/image.hpp"

#include <array>

namespace vellum::image::convert {

/// The CMYK values of an RGB colour by the plain device formula: black is what no channel lights, and
/// each ink what its complementary channel lacks beyond that. Components from 0 to 1.
std::array<float, 4> rgb_to_cmyk(float r, float g, float b);

/// The image with RGB samples turned to CMYK of 8 bits (a JPEG decoded first, 16-bit samples cut to
/// 8 bits, a palette image expanded, its transparent entry as a mask); images in other spaces, or with
/// an ICC profile that keeps their colours device-independent, come back unchanged.
[[nodiscard]] result<image> device_cmyk(image const& img);

} // namespace vellum::image::convert
