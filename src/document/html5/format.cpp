#include "document/html5/format.hpp"

#include <algorithm>
#include <utility>
#include <vector>

namespace vellum::html5::format {

using tree::html_ns;
using tree::node;
using tree::node_type;

namespace {

std::string_view ns_prefix(html_ns ns) {
    switch (ns) {
    case html_ns::html:
        return "";
    case html_ns::mathml:
        return "math";
    case html_ns::svg:
        return "svg";
    case html_ns::xlink:
        return "xlink";
    case html_ns::xml:
        return "xml";
    case html_ns::xmlns:
        return "xmlns";
    case html_ns::none:
        return "";
    }
    return "";
}

void line_start(int depth, std::string& out) {
    out.append("| ");
    out.append(static_cast<std::size_t>(depth) * 2, ' ');
}

} // namespace

std::string format_token(token::token const& t) {
    std::string out = "Token type: ";
    switch (t.token_kind) {
    case token::token_type::doctype:
        out += "DOCTYPE. Name: " + t.token_name;
        if (t.doctype_has_public) {
            out += ". Public identifier: " + t.doctype_public;
        }
        if (t.doctype_has_system) {
            out += ". System identifier: " + t.doctype_system;
        }
        if (t.doctype_force_quirks) {
            out += ". Force quirks";
        }
        break;
    case token::token_type::start_tag:
    case token::token_type::end_tag:
        out += t.token_kind == token::token_type::start_tag ? "START TAG" : "END TAG";
        out += ". Name: " + t.token_name;
        for (auto const& a : t.token_attributes) {
            out += ". Attribute: " + a.attr_name + "=\"" + a.attr_value + "\"";
        }
        if (t.token_self_closing) {
            out += ". Self-closing";
        }
        break;
    case token::token_type::comment:
        out += "COMMENT. Data: " + t.token_data;
        break;
    case token::token_type::multi_char:
        out += "MULTI_CHAR. Data: " + t.token_data;
        break;
    case token::token_type::end_of_file:
        out += "END OF FILE";
        break;
    }
    out += ".";
    return out;
}

void format_node(tree::node const& n, int depth, std::string& out) {
    line_start(depth, out);
    switch (n.node_kind) {
    case node_type::text:
        out += "\"" + n.node_text + "\"\n";
        return;
    case node_type::comment:
        out += "<!-- " + n.node_text + " -->\n";
        return;
    case node_type::element:
        break;
    }
    out += "<";
    if (n.node_ns != html_ns::html && n.node_ns != html_ns::none) {
        out += ns_prefix(n.node_ns);
        out += " ";
    }
    out += n.node_name + ">\n";
    std::vector<std::pair<std::string, std::string const*>> attrs;
    for (auto const& a : n.node_attributes) {
        std::string name = a.attribute_ns == html_ns::none
                               ? a.attribute_name
                               : std::string(ns_prefix(a.attribute_ns)) + " " + a.attribute_name;
        attrs.emplace_back(std::move(name), &a.attribute_value);
    }
    std::sort(attrs.begin(), attrs.end());
    for (auto const& [name, value] : attrs) {
        line_start(depth + 1, out);
        out += name + "=\"" + *value + "\"\n";
    }
    if (n.node_template_contents) {
        line_start(depth + 1, out);
        out += "content\n";
        for (auto const& c : n.node_template_contents->node_children) {
            format_node(*c, depth + 2, out);
        }
    }
    for (auto const& c : n.node_children) {
        format_node(*c, depth + 1, out);
    }
}

std::string format_document(parser::parsed_document const& doc) {
    std::string out;
    auto const& children = doc.document_root->node_children;
    for (std::size_t i = 0; i <= children.size(); ++i) {
        if (doc.document_doctype && i == doc.document_doctype_position) {
            auto const& d = *doc.document_doctype;
            out += "| <!DOCTYPE " + d.doctype_name;
            if (d.doctype_public || d.doctype_system) {
                out += " \"" + d.doctype_public.value_or("") + "\" \"" + d.doctype_system.value_or("") + "\"";
            }
            out += ">\n";
        }
        if (i < children.size()) {
            format_node(*children[i], 0, out);
        }
    }
    return out;
}

std::string format_fragment(parser::parsed_document const& doc) {
    std::string out;
    for (auto const& top : doc.document_root->node_children) {
        if (top->node_kind == node_type::element && top->node_name == "html") {
            for (auto const& c : top->node_children) {
                format_node(*c, 0, out);
            }
        }
    }
    return out;
}

} // namespace vellum::html5::format
