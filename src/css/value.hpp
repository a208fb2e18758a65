// The generic value of a CSS declaration: the terms as written, before any property gives them meaning.
#pragma once

#include "css/lexer.hpp"
#include "util/ref.hpp"

#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace vellum::css::value {

struct value;

/// An identifier, as written.
struct ident {
    std::string ident_name;
    bool operator==(ident const&) const = default;
};

/// A quoted string, escapes undone.
struct string {
    std::string string_text;
    bool operator==(string const&) const = default;
};

/// The name of an attribute in attr(): a local name, and a namespace URI when a prefix was written.
struct attr_qname {
    std::optional<std::string> attr_ns;
    std::string attr_local;
    bool operator==(attr_qname const&) const = default;
};

/// attr(name), attr(name, type) or attr(name, type, default).
struct attr {
    attr_qname attr_name;
    std::optional<std::string> attr_type;
    /// The default term, present only with a type.
    ref<value> attr_default;
    bool operator==(attr const& other) const;
};

/// A number without a unit.
struct number {
    css::number number_value;
    bool operator==(number const&) const = default;
};

/// A number with a unit, the unit in lower case.
struct dimension {
    css::number dimension_value;
    std::string dimension_unit;
    bool operator==(dimension const&) const = default;
};

/// A number with "%".
struct percent {
    css::number percent_value;
    bool operator==(percent const&) const = default;
};

/// "#rgb" or "#rrggbb", each component 0 to 255.
struct hexcolor {
    int red = 0;
    int green = 0;
    int blue = 0;
    bool operator==(hexcolor const&) const = default;
};

/// A function and its arguments, one value for each comma-separated argument.
struct function {
    std::string function_name;
    std::vector<value> function_args;
    bool operator==(function const&) const;
};

/// A URL as written and the base it resolves against; the loader turns the pair into a resource name.
struct url {
    std::string url_text;
    std::string url_base;
    bool operator==(url const&) const = default;
};

/// "U+..." ranges.
struct unicode_range {
    std::vector<lexer::code_range> ranges;
    bool operator==(unicode_range const&) const = default;
};

/// Several terms that stand together, in a declaration or in one argument of a function.
struct values {
    std::vector<value> value_list;
    bool operator==(values const&) const;
};

/// "/" between terms.
struct slash {
    bool operator==(slash const&) const = default;
};

/// "," between terms.
struct comma {
    bool operator==(comma const&) const = default;
};

using alternative = std::variant<ident, string, attr, number, dimension, percent, hexcolor, function, url,
                                 unicode_range, values, slash, comma>;

/// The parsed form of one term, or of several in `values`.
struct value : alternative {
    using alternative::alternative;
};

/// The value written back as CSS text, for messages, tests and scripts.
std::string to_text(value const& v);

} // namespace vellum::css::value
