// The builder: an SVG element that has been through the cascade becomes an svg_block. References (use,
// gradients, clip paths, markers, patterns, images) are resolved here; a problem is logged against the
// source and the element is dropped.
#pragma once

#include "document/dom.hpp"
#include "driver/log.hpp"
#include "svg/svg.hpp"

#include <string>

namespace vellum::images {
class images;
} // namespace vellum::images

namespace vellum::fonts {
struct fonts;
} // namespace vellum::fonts

namespace vellum::svg::build {

struct build_env {
    /// The name messages give as their source.
    std::string env_source;
    /// The image table for `image` elements; none leaves them out with a warning.
    images::images* env_images = nullptr;
    /// The fonts that text is shaped with; none leaves text out with a warning.
    fonts::fonts const* env_fonts = nullptr;
    /// CSS pixels to use for a width or height given in percent or not at all (the default of a replaced
    /// element is 300 by 150).
    double env_default_width = 300;
    double env_default_height = 150;
};

/// Builds the drawing of an `svg` element.
svg_block make_svg_block(log::log const& log, dom::element_ref const& root, build_env const& env);

/// Whether a name is the given local name in the SVG namespace.
bool is_svg_name(xml::name const& n, std::string_view local);

} // namespace vellum::svg::build
