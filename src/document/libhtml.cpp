#include "document/libhtml.hpp"

#include "document/html5/builder.hpp"
#include "document/html5/encode.hpp"
#include "document/html5/parser.hpp"
#include "util/result.hpp"

namespace vellum::libhtml {

namespace {

using html5::tree::html_ns;
using html5::tree::node;
using html5::tree::node_type;

xml::name make_name(html_ns ns, std::string const& local) {
    if (auto const x = xmlns_of_html_ns(ns)) {
        return xml::make_name(*x, local);
    }
    return xml::make_name(local);
}

void convert_children(node const& from, std::vector<xml::xml>& to);

xml::element convert_element(node const& n) {
    xml::element out{.element_name = make_name(n.node_ns, n.node_name)};
    out.element_attrs.reserve(n.node_attributes.size());
    for (auto const& a : n.node_attributes) {
        out.element_attrs.emplace_back(make_name(a.attribute_ns, a.attribute_name), a.attribute_value);
    }
    convert_children(n, out.element_children);
    // A template's contents are kept apart by the parser; in the plain tree they are its children, which
    // a template otherwise never has.
    if (n.node_template_contents) {
        convert_children(*n.node_template_contents, out.element_children);
    }
    return out;
}

void convert_children(node const& from, std::vector<xml::xml>& to) {
    for (auto const& child : from.node_children) {
        switch (child->node_kind) {
        case node_type::element:
            to.emplace_back(convert_element(*child));
            break;
        case node_type::text:
            // Texts that a dropped comment separated become one, as in the trees of the other parsers.
            if (!to.empty()) {
                if (auto* last = std::get_if<xml::text>(&to.back())) {
                    last->text_value += child->node_text;
                    break;
                }
            }
            to.emplace_back(xml::text{child->node_text});
            break;
        case node_type::comment:
            break;
        }
    }
}

// The one element child of a "DOC" root, or null if the root has another shape.
node const* single_element(node const& root) {
    if (root.node_kind != node_type::element || root.node_name != "DOC" || root.node_ns != html_ns::none) {
        return nullptr;
    }
    node const* found = nullptr;
    for (auto const& child : root.node_children) {
        if (child->node_kind == node_type::element) {
            if (found) {
                return nullptr;
            }
            found = child.get();
        }
    }
    return found;
}

} // namespace

std::optional<xml::xmlns> xmlns_of_html_ns(html_ns ns) {
    switch (ns) {
    case html_ns::html:
        return xml::xmlns_xhtml{};
    case html_ns::mathml:
        return xml::xmlns_mathml{};
    case html_ns::svg:
        return xml::xmlns_svg{};
    case html_ns::xlink:
        return xml::xmlns_xlink{};
    case html_ns::xml:
        return xml::xmlns_xml{};
    case html_ns::xmlns:
        return xml::xmlns_other{"http://www.w3.org/2000/xmlns/"};
    case html_ns::none:
        return std::nullopt;
    }
    return std::nullopt;
}

xml::document convert_document(node const& root, resource::locator::locator const& url) {
    node const* element = single_element(root);
    if (!element) {
        throw internal_error("unexpected HTML parse result");
    }
    return xml::document{.doc_url = url, .doc_root = convert_element(*element)};
}

std::optional<xml::document>
parse_html5_bytes(log::log const& log,
                  resource::locator::locator const& url,
                  bytes::bytes const& data,
                  std::optional<std::string> const& transport_charset) {
    // A byte-order mark outweighs the transport, which outweighs a meta declaration.
    std::string_view const chars = data.chars();
    bool const has_bom =
        chars.starts_with("\xEF\xBB\xBF") || chars.starts_with("\xFE\xFF") || chars.starts_with("\xFF\xFE");
    auto const text = transport_charset && !has_bom ? html5::encode::convert_to_utf8(chars, *transport_charset)
                                                    : html5::encode::memory_to_utf8(data);
    if (!text) {
        log::log_file_message(log, log::level::error, resource::locator::locator_to_string(url),
                              "error converting to UTF-8");
        return std::nullopt;
    }
    auto const parsed = html5::parser::parse_document(*text);
    check(parsed.document_root != nullptr, "parse_html5_bytes");
    if (parsed.document_depth_capped) {
        log::log_file_message(log, log::level::warning, resource::locator::locator_to_string(url),
                              "elements nested more than " + std::to_string(html5::builder::max_tree_depth) +
                                  " deep are placed beside each other at that depth");
    }
    return convert_document(*parsed.document_root, url);
}

std::vector<xml::xml>
parse_inner_html(std::string_view utf8, std::string_view context_name, html_ns context_ns) {
    auto const parsed = html5::parser::parse_fragment(utf8, context_name, context_ns);
    node const* html = parsed.document_root ? single_element(*parsed.document_root) : nullptr;
    if (!html || html->node_name != "html") {
        throw internal_error("unexpected innerHTML parse result");
    }
    std::vector<xml::xml> out;
    convert_children(*html, out);
    return out;
}

} // namespace vellum::libhtml
