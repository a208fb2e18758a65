#include "document/doctype.hpp"

#include "document/xml.hpp"
#include "util/ref.hpp"

namespace vellum::doctype {

xmltype sniff_xmltype(xml::document const& doc) {
    auto const& root = doc.doc_root.element_name;
    if (xml::is_xhtml_name(root, "html")) {
        return xmltype_xhtml{xhtml_doctype::xhtml_ns};
    }
    if (root == xml::make_name("html")) {
        return xmltype_xhtml{xhtml_doctype::xhtml_no_ns};
    }
    if (doc.doctype_public && doc.doctype_public->find("DocBook") != std::string::npos) {
        return xmltype_docbook{};
    }
    if (xml::name_namespace(root) == xml::xmlns{xml::xmlns_other{"http://docbook.org/docbook-ng"}}) {
        return xmltype_docbook{};
    }
    return xmltype_xml{};
}

std::string_view xmltype_name(xmltype const& t) {
    return std::visit(overloaded{
                          [](xmltype_xml const&) { return std::string_view("XML"); },
                          [](xmltype_xhtml const& x) {
                              switch (x.xhtml_kind) {
                              case xhtml_doctype::xhtml_ns:
                                  return std::string_view("XHTML");
                              case xhtml_doctype::xhtml_no_ns:
                                  return std::string_view("XHTML (no namespace)");
                              }
                              return std::string_view("XHTML");
                          },
                          [](xmltype_docbook const&) { return std::string_view("DocBook"); },
                      },
                      t);
}

} // namespace vellum::doctype
