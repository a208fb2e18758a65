// The kinds of input document: which parser read it, and what its root and doctype say it is.
#pragma once

#include <string_view>
#include <variant>

namespace vellum::xml {
struct document;
} // namespace vellum::xml

namespace vellum::doctype {

/// How a document is parsed: as XML, by the HTML4 parser of libxml2, or by the HTML5 parser.
enum class doctype { xml, html4, html5 };

/// Whether an XHTML document has its elements in the XHTML namespace.
enum class xhtml_doctype { xhtml_ns, xhtml_no_ns };

/// A document of no kind the system knows: generic XML.
struct xmltype_xml {
    bool operator==(xmltype_xml const&) const = default;
};

/// An HTML or XHTML document.
struct xmltype_xhtml {
    xhtml_doctype xhtml_kind = xhtml_doctype::xhtml_ns;
    bool operator==(xmltype_xhtml const&) const = default;
};

/// A DocBook document.
struct xmltype_docbook {
    bool operator==(xmltype_docbook const&) const = default;
};

/// What kind of document a parsed tree is, which decides the default style sheets.
using xmltype = std::variant<xmltype_xml, xmltype_xhtml, xmltype_docbook>;

/// Classifies a document by its root element and its public identifier.
xmltype sniff_xmltype(xml::document const& doc);

/// The name of the kind for the log: "XHTML", "XHTML (no namespace)", "DocBook" or "XML".
std::string_view xmltype_name(xmltype const& t);

} // namespace vellum::doctype
