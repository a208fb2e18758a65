// The entry of MathML layout: a math element of the document becomes a finished drawing with a size and
// a baseline, which the box generator treats as a replaced element.
#pragma once

#include "document/dom.hpp"
#include "driver/log.hpp"
#include "svg/svg.hpp"
#include "util/ref.hpp"

namespace vellum::fonts {
struct fonts;
} // namespace vellum::fonts
namespace vellum::images {
class images;
} // namespace vellum::images

namespace vellum::mathml::make_math {

/// A formula's drawing in points: width, and height above and depth below its baseline.
struct math_drawing {
    svg::svg_block drawing;
    double drawing_width = 0;
    double drawing_up = 0;
    double drawing_down = 0;
    /// display="block": the formula stands in a block of its own.
    bool drawing_display = false;
};

/// Lays out a math element whose CSS style is given, with the fonts of the run; the operator
/// dictionary and stretchy outlines are read from the prefix of the fonts' loader on first use. The
/// image table, when given, serves the images of mglyph elements.
math_drawing make_math(log::log const& log,
                       fonts::fonts const& db,
                       dom::element_ref const& element,
                       ref<css::style::style> const& style,
                       images::images* image_table = nullptr);

} // namespace vellum::mathml::make_math
