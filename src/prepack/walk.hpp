// Box generation: the walk over a styled document that turns each element, by its display, into blocks
// and spans, gathers inline runs into anonymous paragraphs and table parts into anonymous tables, keeps
// counters, named strings and target ids, and cuts the body into page sections.
#pragma once

#include "css/styledom/styledom.hpp"
#include "driver/log.hpp"
#include "prepack/prepack.hpp"

namespace vellum::images {
class images;
} // namespace vellum::images

namespace vellum::prepack::walk {

/// The box tree of a styled document. Images are looked up in the image table (without one they show
/// their alternative content); content that later stages build (SVG, MathML, canvas) is reported as
/// not supported yet and makes no box. `scripts` answers `-vellum-script()` in generated content; without
/// it such calls warn that JavaScript is disabled.
pack_document prepack_document(log::log const& log, styledom::styled_document const& doc,
                               images::images* image_table = nullptr, script_calls const* scripts = nullptr);

} // namespace vellum::prepack::walk
