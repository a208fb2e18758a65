#include "document/xml.hpp"

#include "util/ref.hpp"

namespace vellum::xml {

xmlns xmlns_of_uri(std::string_view uri) {
    if (uri == "http://www.w3.org/1999/xhtml") {
        return xmlns_xhtml{};
    }
    if (uri == "http://www.w3.org/2000/svg") {
        return xmlns_svg{};
    }
    if (uri == "http://www.w3.org/1998/Math/MathML") {
        return xmlns_mathml{};
    }
    if (uri == "http://www.w3.org/1999/xlink") {
        return xmlns_xlink{};
    }
    if (uri == "http://www.w3.org/XML/1998/namespace") {
        return xmlns_xml{};
    }
    return xmlns_other{std::string(uri)};
}

std::string uri_of_xmlns(xmlns const& ns) {
    return std::visit(
        overloaded{
            [](xmlns_xhtml const&) { return std::string("http://www.w3.org/1999/xhtml"); },
            [](xmlns_svg const&) { return std::string("http://www.w3.org/2000/svg"); },
            [](xmlns_mathml const&) { return std::string("http://www.w3.org/1998/Math/MathML"); },
            [](xmlns_xlink const&) { return std::string("http://www.w3.org/1999/xlink"); },
            [](xmlns_xml const&) { return std::string("http://www.w3.org/XML/1998/namespace"); },
            [](xmlns_other const& o) { return o.other_uri; },
        },
        ns);
}

name make_name(std::string_view local) {
    return local_name{std::string(local)};
}

name make_name(xmlns ns, std::string_view local) {
    return qualified_name{std::move(ns), std::string(local)};
}

std::string const& name_local(name const& n) {
    return std::visit(overloaded{
                          [](local_name const& l) -> std::string const& { return l.local; },
                          [](qualified_name const& q) -> std::string const& { return q.local; },
                      },
                      n);
}

std::optional<xmlns> name_namespace(name const& n) {
    if (auto const* q = std::get_if<qualified_name>(&n)) {
        return q->namespace_uri;
    }
    return std::nullopt;
}

bool is_xhtml_name(name const& n, std::string_view local) {
    auto const* q = std::get_if<qualified_name>(&n);
    return q && std::holds_alternative<xmlns_xhtml>(q->namespace_uri) && q->local == local;
}

std::string name_to_string(name const& n) {
    return std::visit(
        overloaded{
            [](local_name const& l) { return l.local; },
            [](qualified_name const& q) { return "{" + uri_of_xmlns(q.namespace_uri) + "}" + q.local; },
        },
        n);
}

std::optional<std::string> find_attribute(element const& e, name const& n) {
    for (auto const& [attr_name, value] : e.element_attrs) {
        if (attr_name == n) {
            return value;
        }
    }
    return std::nullopt;
}

} // namespace vellum::xml
