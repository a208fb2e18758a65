// Box generation: the walk over a styled document that turns each element, by its display, into blocks
// and spans, gathers inline runs into anonymous paragraphs and table parts into anonymous tables, keeps
// counters, named strings and target ids, and cuts the body into page sections.
#pragma once

#include "css/styledom/styledom.hpp"
#include "driver/log.hpp"
#include "prepack/prepack.hpp"

namespace vellum::prepack::walk {

/// The box tree of a styled document. Content that later stages build (images, SVG, MathML, canvas)
/// is reported as not supported yet and makes no box.
pack_document prepack_document(log::log const& log, styledom::styled_document const& doc);

} // namespace vellum::prepack::walk
