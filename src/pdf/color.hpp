// Colours as a PDF content stream knows them: the three device spaces, a named pattern, and a tint of a
// separation (a spot colour), each with the space it selects.
#pragma once

#include "pdf/object.hpp"
#include "util/ref.hpp"

#include <string>
#include <variant>

namespace vellum::pdf::color {

/// Red, green and blue from 0 to 1.
struct rgb {
    double r = 0;
    double g = 0;
    double b = 0;
    bool operator==(rgb const&) const = default;
};

/// Cyan, magenta, yellow and black from 0 to 1.
struct cmyk {
    double c = 0;
    double m = 0;
    double y = 0;
    double k = 0;
    bool operator==(cmyk const&) const = default;
};

/// A grey level, 0 black to 1 white.
struct gray {
    number level = std::int64_t{0};
    bool operator==(gray const&) const = default;
};

/// A pattern by its resource name.
struct pattern {
    std::string pattern_name;
    bool operator==(pattern const&) const = default;
};

/// A tint from 0 to 1 of a spot colour, by the colour's name.
struct separation {
    std::string separation_name;
    double tint = 1;
    bool operator==(separation const&) const = default;
};

using color = std::variant<rgb, cmyk, gray, pattern, separation>;

enum class colorspace { device_rgb, device_cmyk, device_gray, pattern, separation };

/// The space that painting in a colour selects.
inline colorspace colorspace_of(color const& c) {
    return std::visit(overloaded{
                          [](rgb const&) { return colorspace::device_rgb; },
                          [](cmyk const&) { return colorspace::device_cmyk; },
                          [](gray const&) { return colorspace::device_gray; },
                          [](pattern const&) { return colorspace::pattern; },
                          [](separation const&) { return colorspace::separation; },
                      },
                      c);
}

/// The colour with device RGB turned to CMYK, for output that allows no device RGB; any other colour
/// as it is.
color without_rgb(color const& c);

} // namespace vellum::pdf::color
