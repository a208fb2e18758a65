// attr() in property values: which attribute to read, how to read its text, and the value that stands
// when the attribute is missing or unreadable. Computing a style resolves these per element.
#pragma once

#include "css/units.hpp"
#include "css/value.hpp"

#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace vellum::css::expr {

struct type_string {
    bool operator==(type_string const&) const = default;
};

struct type_color {
    bool operator==(type_color const&) const = default;
};

struct type_url {
    bool operator==(type_url const&) const = default;
};

/// The attribute names an element by id; it reads as a fragment link.
struct type_idref {
    bool operator==(type_idref const&) const = default;
};

struct type_font_family {
    bool operator==(type_font_family const&) const = default;
};

struct type_integer {
    bool operator==(type_integer const&) const = default;
};

struct type_number {
    bool operator==(type_number const&) const = default;
};

struct type_percent {
    bool operator==(type_percent const&) const = default;
};

/// A number in a unit; with no unit named ("length"), the number counts in CSS pixels as HTML's
/// presentational attributes do.
struct type_length {
    std::optional<units::length_unit> length_unit;
    bool operator==(type_length const&) const = default;
};

using attr_type = std::variant<type_string,
                               type_color,
                               type_url,
                               type_idref,
                               type_font_family,
                               type_integer,
                               type_number,
                               type_percent,
                               type_length>;

/// attr(name type, default) for a property whose values are of type T.
template <class T>
struct expr {
    value::attr_qname expr_name;
    attr_type expr_type;
    /// Nothing when none was written and the property's type has no empty value.
    std::optional<T> expr_default;
    bool operator==(expr const&) const = default;
};

/// A value, or attr() that gives one per element.
template <class T>
using or_attr = std::variant<T, expr<T>>;

/// The type an attr() names; no word means string. Nothing for an unknown word.
[[nodiscard]] std::optional<attr_type> attr_type_of(std::optional<std::string> const& word);

/// The text of an attribute as a term of the given type, ready for the property's own parser: numbers
/// must be the whole text ("12", not "12px" for a length), colours parse as CSS, URLs resolve against
/// `base`. Nothing when the text doesn't read as the type.
[[nodiscard]] std::optional<value::value>
attr_text_value(attr_type const& type, std::string_view text, std::string const& base);

} // namespace vellum::css::expr
