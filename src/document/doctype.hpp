// The kinds of input document the parsers tell apart.
#pragma once

namespace vellum::doctype {

/// How a document is parsed: as XML, by the HTML4 parser of libxml2, or by the HTML5 parser.
enum class doctype { xml, html4, html5 };

} // namespace vellum::doctype
