#include "document/libxml/tree.hpp"

#include "util/result.hpp"

#include <libxml/tree.h>

namespace vellum::libxml::tree {

namespace {

std::string to_string(xmlChar const* s) {
    return s ? std::string(reinterpret_cast<char const*>(s)) : std::string();
}

// The content of a node as libxml2 computes it (for an attribute, the joined value).
std::string node_content(xmlNode const* node) {
    xmlChar* content = xmlNodeGetContent(node);
    std::string out = to_string(content);
    xmlFree(content);
    return out;
}

xml::name node_name(xmlNs const* ns, xmlChar const* local) {
    if (ns && ns->href) {
        return xml::make_name(xml::xmlns_of_uri(to_string(ns->href)), to_string(local));
    }
    return xml::make_name(to_string(local));
}

xml::element convert_element(xmlNode const* node) {
    xml::element out{.element_name = node_name(node->ns, node->name)};
    for (xmlAttr const* a = node->properties; a; a = a->next) {
        out.element_attrs.emplace_back(node_name(a->ns, a->name),
                                       node_content(reinterpret_cast<xmlNode const*>(a)));
    }
    for (xmlNode const* child = node->children; child; child = child->next) {
        auto const kind = node_type_of(child);
        if (!kind) {
            continue;
        }
        switch (*kind) {
        case node_type::element:
            out.element_children.emplace_back(convert_element(child));
            break;
        case node_type::text:
        case node_type::entity: {
            // Neighbouring runs (text beside an expanded entity) become one text.
            std::string content = node_content(child);
            if (!out.element_children.empty()) {
                if (auto* last = std::get_if<xml::text>(&out.element_children.back())) {
                    last->text_value += content;
                    break;
                }
            }
            out.element_children.emplace_back(xml::text{std::move(content)});
            break;
        }
        case node_type::document:
        case node_type::attribute:
        case node_type::comment:
        case node_type::processing:
            break;
        }
    }
    return out;
}

} // namespace

std::optional<node_type> node_type_of(xmlNode const* node) {
    switch (node->type) {
    case XML_DOCUMENT_NODE:
    case XML_HTML_DOCUMENT_NODE:
        return node_type::document;
    case XML_ELEMENT_NODE:
        return node_type::element;
    case XML_ATTRIBUTE_NODE:
        return node_type::attribute;
    case XML_TEXT_NODE:
    case XML_CDATA_SECTION_NODE:
        return node_type::text;
    case XML_COMMENT_NODE:
        return node_type::comment;
    case XML_PI_NODE:
        return node_type::processing;
    case XML_ENTITY_REF_NODE:
        return node_type::entity;
    default:
        return std::nullopt;
    }
}

xml::document convert_document(xmlDoc* doc, resource::locator::locator const& locator) {
    xmlNode const* root = xmlDocGetRootElement(doc);
    if (!root) {
        throw internal_error("gimmexml.simple_doc: could not get root element");
    }
    xml::document out{.doc_url = locator};
    if (doc->intSubset) {
        if (doc->intSubset->ExternalID) {
            out.doctype_public = to_string(doc->intSubset->ExternalID);
        }
        if (doc->intSubset->SystemID) {
            out.doctype_system = to_string(doc->intSubset->SystemID);
        }
    }
    for (xmlNode const* child = doc->children; child; child = child->next) {
        if (child->type == XML_PI_NODE && child->name && *child->name) {
            out.doc_pi.push_back(xml::pi{to_string(child->name), to_string(child->content)});
        }
    }
    out.doc_root = convert_element(root);
    return out;
}

} // namespace vellum::libxml::tree
