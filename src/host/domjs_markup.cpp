// Markup in and out of the tree: `innerHTML` (the children serialised, or replaced by an HTML fragment)
// and `DOMParser`, which reads a whole new document.
#include "host/domjs_internal.hpp"

#include "document/doctype.hpp"
#include "document/html5/tree.hpp"
#include "document/libhtml.hpp"
#include "document/libxml/parser.hpp"
#include "util/bytes.hpp"
#include "util/ref.hpp"

namespace vellum::domjs {

namespace {

using args_t = std::vector<e::js_value>;

void escape_into(std::string& out, std::string_view text, bool attribute) {
    for (std::size_t i = 0; i < text.size(); ++i) {
        char const c = text[i];
        if (c == '&') {
            out += "&amp;";
        } else if (!attribute && c == '<') {
            out += "&lt;";
        } else if (!attribute && c == '>') {
            out += "&gt;";
        } else if (attribute && c == '"') {
            out += "&quot;";
        } else if (c == '\xC2' && i + 1 < text.size() && text[i + 1] == '\xA0') {
            // U+00A0 in UTF-8.
            out += "&nbsp;";
            ++i;
        } else {
            out += c;
        }
    }
}

std::string attribute_text(xml::name const& n) {
    auto const ns = xml::name_namespace(n);
    if (ns && std::holds_alternative<xml::xmlns_xlink>(*ns)) {
        return "xlink:" + xml::name_local(n);
    }
    if (ns && std::holds_alternative<xml::xmlns_xml>(*ns)) {
        return "xml:" + xml::name_local(n);
    }
    return xml::name_local(n);
}

void serialise(std::string& out, std::vector<dom::child_node> const& children) {
    for (auto const& c : children) {
        std::visit(overloaded{
                       [&](dom::element_child const& x) {
                           auto const& el = *x.child_element;
                           auto const& name = xml::name_local(el.dom_element_name);
                           out += '<';
                           out += name;
                           for (auto const& a : el.dom_element_attrs.get()) {
                               out += ' ';
                               out += attribute_text(a->dom_attribute_name);
                               out += "=\"";
                               escape_into(out, a->dom_attribute_value.get(), true);
                               out += '"';
                           }
                           out += '>';
                           serialise(out, el.dom_element_children.get());
                           out += "</";
                           out += name;
                           out += '>';
                       },
                       [&](dom::text_child const& x) { escape_into(out, x.child_text->dom_text_value.get(), false); },
                   },
                   c);
    }
}

html5::tree::html_ns context_ns(dom::dom_element const& el) {
    auto const ns = xml::name_namespace(el.dom_element_name);
    if (ns && std::holds_alternative<xml::xmlns_svg>(*ns)) {
        return html5::tree::html_ns::svg;
    }
    if (ns && std::holds_alternative<xml::xmlns_mathml>(*ns)) {
        return html5::tree::html_ns::mathml;
    }
    return html5::tree::html_ns::html;
}

struct dom_parser_host : e::host_data {};

// A new document of the engine's kind from text, or nothing if the text doesn't parse.
std::optional<dom::document_ref> parse_document(e::js& engine, std::string const& text, std::string const& type) {
    auto const url = resource::locator::resolve_locator({}, "about:blank");
    auto const data = bytes::from_string(text);
    if (type == "text/html") {
        auto doc = libhtml::parse_html5_bytes(engine.js_log, url, data, "utf-8");
        if (!doc) {
            return std::nullopt;
        }
        return dom::new_dom_document(doctype::doctype::html5, doctype::sniff_xmltype(*doc), {}, url, *doc);
    }
    libxml::parser::parse_request const request{.request_locator = url};
    auto doc = libxml::parser::read_xml_memory(engine.js_log, request, data);
    if (!doc) {
        return std::nullopt;
    }
    return dom::new_dom_document(doctype::doctype::xml, doctype::sniff_xmltype(*doc), {}, url, *doc);
}

} // namespace

std::string serialise_children(dom::dom_node const& n) {
    std::string out;
    serialise(out, children_of(n));
    return out;
}

void install_markup(e::js& engine, dom_state& state) {
    auto const& p = state.state_prototypes;
    // Reading is the same for elements and documents: the markup of the children.
    native_fn const read_inner = [](e::js& engine, e::js_value const& self, args_t const&) -> e::expr_res<e::js_value> {
        auto const n = node_of(self);
        if (!n) {
            return e::throw_error(engine, e::js_error::invalid_this);
        }
        return str(serialise_children(*n));
    };
    webidl::add_native_accessor(
        engine, p.prototype_element, "innerHTML",
        read_inner,
        [](e::js& engine, e::js_value const& self, args_t const& args) -> e::expr_res<e::js_value> {
            auto const n = node_of(self);
            auto const* el = n ? std::get_if<dom::element_ref>(&*n) : nullptr;
            if (el == nullptr) {
                return e::throw_error(engine, e::js_error::invalid_this);
            }
            auto text = arg_text(engine, args, 0);
            if (auto const* x = std::get_if<e::exception>(&text)) {
                return *x;
            }
            auto const content = libhtml::parse_inner_html(std::get<std::string>(text), xml::name_local((*el)->dom_element_name),
                                                           context_ns(**el));
            replace_children(*n, build_nodes((*el)->dom_element_owner_doc.lock(), content));
            return e::undefined();
        });
    webidl::add_native_accessor(
        engine, p.prototype_document, "innerHTML",
        read_inner,
        [](e::js& engine, e::js_value const& self, args_t const& args) -> e::expr_res<e::js_value> {
            auto const n = node_of(self);
            auto const* d = n ? std::get_if<dom::document_ref>(&*n) : nullptr;
            if (d == nullptr) {
                return e::throw_error(engine, e::js_error::invalid_this);
            }
            auto text = arg_text(engine, args, 0);
            if (auto const* x = std::get_if<e::exception>(&text)) {
                return *x;
            }
            // The whole document is read again, and its element takes the place of the old one.
            auto const content = libhtml::parse_inner_html(std::get<std::string>(text), "html", html5::tree::html_ns::html);
            auto nodes = build_nodes(*d, content);
            std::erase_if(nodes, [](dom::child_node const& c) { return std::holds_alternative<dom::text_child>(c); });
            if (nodes.size() > 1) {
                return throw_dom(engine, dom_exception::hierarchy_request_err);
            }
            replace_children(*n, std::move(nodes));
            return e::undefined();
        });

    auto const parser = webidl::make_interface(
        engine, "DOMParser", std::nullopt,
        webidl::native_value([](e::js& engine, e::js_value const&, args_t const&) -> e::expr_res<e::js_value> {
            auto h = std::make_shared<events::target_host>();
            h->target_class = "DOMParser";
            h->target = events::null_event_target{};
            return e::new_object_of(engine, e::class_host_object{.host_object = h},
                                    e::yes_proto{.proto = prototypes_of(engine).prototype_dom_parser});
        }));
    state.state_prototypes.prototype_dom_parser = parser.prototype;
    webidl::add_native_method(
        engine, parser.prototype, "parseFromString", 2,
        [](e::js& engine, e::js_value const&, args_t const& args) -> e::expr_res<e::js_value> {
            auto text = arg_text(engine, args, 0);
            if (auto const* x = std::get_if<e::exception>(&text)) {
                return *x;
            }
            auto type = arg_text(engine, args, 1);
            if (auto const* x = std::get_if<e::exception>(&type)) {
                return *x;
            }
            auto const& t = std::get<std::string>(type);
            if (t != "text/html" && t != "text/xml" && t != "application/xml" && t != "application/xhtml+xml" &&
                t != "image/svg+xml") {
                return e::throw_error(engine, e::js_error::invalid_arguments);
            }
            auto doc = parse_document(engine, std::get<std::string>(text), t);
            if (!doc) {
                return throw_dom(engine, dom_exception::syntax_err);
            }
            return wrap_node(engine, *doc);
        });
}

} // namespace vellum::domjs
