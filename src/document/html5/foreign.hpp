// SVG and MathML inside HTML: the case fix-ups of names and attributes, and the integration points.
#pragma once

#include "document/html5/tree.hpp"

#include <string>

namespace vellum::html5::foreign {

/// The SVG element name with its camel case restored ("foreignobject" -> "foreignObject").
void adjust_svg_start_tag_name(std::string& name);

/// SVG attribute names with their camel case restored ("viewbox" -> "viewBox").
void adjust_svg_attributes(tree::node& element);

/// MathML's one mixed-case attribute, "definitionURL".
void adjust_mathml_attributes(tree::node& element);

/// Namespaced attributes ("xlink:href", "xml:lang", "xmlns:xlink", ...) put into their namespaces.
void adjust_foreign_attributes(tree::node& element);

/// Whether the element is a MathML text integration point (mi, mo, mn, ms, mtext).
bool is_mathml_text_integration_point(tree::node const& n);

/// Whether the element is an HTML integration point (foreignObject, desc, title, and HTML annotation-xml).
bool is_html_integration_point(tree::node const& n);

} // namespace vellum::html5::foreign
