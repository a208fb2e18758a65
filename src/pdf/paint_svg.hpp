// SVG drawings in the PDF: each drawing (an SVG file or an svg element) is one form XObject over the
// unit square, drawn like an image; inside, its shapes, clip paths, gradients, patterns, group opacity
// and images become vector operators in the drawing's own user space.
#pragma once

#include "driver/log.hpp"
#include "pdf/page_objects.hpp"
#include "pdf/pdf.hpp"
#include "svg/svg.hpp"

namespace vellum::pdf::paint_svg {

/// Writes the drawing as a form XObject at `r`, mapped onto the unit square with its top at y = 1, as an
/// image is. Gradients, images and spot colours it uses are named through `objects` and written with
/// the page objects afterwards.
void write_svg_form(log::log const& log,
                    writer& w,
                    ref r,
                    svg::svg_block const& block,
                    page_objects::page_objects& objects,
                    bool compress);

} // namespace vellum::pdf::paint_svg
