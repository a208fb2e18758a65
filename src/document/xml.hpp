// The plain document tree: names with their namespaces, elements, text and processing instructions. All
// three parsers hand back this immutable value; nothing of a parser library survives in it.
#pragma once

#include "resource/locator.hpp"

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace vellum::xml {

/// The XHTML namespace.
struct xmlns_xhtml {
    auto operator<=>(xmlns_xhtml const&) const = default;
};

/// The SVG namespace.
struct xmlns_svg {
    auto operator<=>(xmlns_svg const&) const = default;
};

/// The MathML namespace.
struct xmlns_mathml {
    auto operator<=>(xmlns_mathml const&) const = default;
};

/// The XLink namespace.
struct xmlns_xlink {
    auto operator<=>(xmlns_xlink const&) const = default;
};

/// The namespace bound to the "xml" prefix.
struct xmlns_xml {
    auto operator<=>(xmlns_xml const&) const = default;
};

/// Any other namespace, by its URI.
struct xmlns_other {
    std::string other_uri;
    auto operator<=>(xmlns_other const&) const = default;
};

/// A namespace; the ones the system knows by name get their own alternative.
using xmlns = std::variant<xmlns_xhtml, xmlns_svg, xmlns_mathml, xmlns_xlink, xmlns_xml, xmlns_other>;

/// A name in no namespace.
struct local_name {
    std::string local;
    auto operator<=>(local_name const&) const = default;
};

/// A name in a namespace.
struct qualified_name {
    xmlns namespace_uri;
    std::string local;
    auto operator<=>(qualified_name const&) const = default;
};

/// The name of an element or attribute. Names order by alternative, then by their fields.
using name = std::variant<local_name, qualified_name>;

/// The namespace value of a URI, by exact comparison.
xmlns xmlns_of_uri(std::string_view uri);

/// The URI of a namespace.
std::string uri_of_xmlns(xmlns const& ns);

/// A name in no namespace.
name make_name(std::string_view local);

/// A name in a namespace.
name make_name(xmlns ns, std::string_view local);

/// The local part of a name.
std::string const& name_local(name const& n);

/// The namespace of a name, if it has one.
std::optional<xmlns> name_namespace(name const& n);

/// Whether the name is the given local name in the XHTML namespace.
bool is_xhtml_name(name const& n, std::string_view local);

/// A name as written in messages: "local" or "{uri}local".
std::string name_to_string(name const& n);

/// The attributes of an element, in document order.
using attributes = std::vector<std::pair<name, std::string>>;

struct element;

/// Character data.
struct text {
    std::string text_value;
    bool operator==(text const&) const = default;
};

/// A child of an element.
using xml = std::variant<element, text>;

/// An element with its attributes and children.
struct element {
    name element_name;
    attributes element_attrs;
    std::vector<xml> element_children;
    bool operator==(element const&) const = default;
};

/// A processing instruction.
struct pi {
    std::string pi_target;
    std::string pi_content;
    bool operator==(pi const&) const = default;
};

/// A whole document.
struct document {
    resource::locator::locator doc_url;
    std::optional<std::string> doctype_public;
    std::optional<std::string> doctype_system;
    std::vector<pi> doc_pi;
    element doc_root;
    bool operator==(document const&) const = default;
};

/// The value of the first attribute of that name, if any.
std::optional<std::string> find_attribute(element const& e, name const& n);

} // namespace vellum::xml
