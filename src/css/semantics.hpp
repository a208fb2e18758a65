// The link property: whether an element, with all its descendants, is a link, and to where.
#pragma once

#include "css/expr.hpp"
#include "css/value.hpp"

#include <optional>
#include <variant>

namespace vellum::css::semantics {

struct link_none {
    bool operator==(link_none const&) const = default;
};

/// A link to a URL as written, with the base it resolves against.
struct link_url {
    value::url link_target;
    bool operator==(link_url const&) const = default;
};

using link_type = std::variant<link_none, link_url>;

/// The link as a declaration holds it; attr(href) is the common case.
using spec_link_type = expr::or_attr<link_type>;

/// "none", a URL or string, or attr() (read as a URL unless another type is named).
[[nodiscard]] std::optional<spec_link_type> parse_link(value::value const& v);

/// A link from a term that an attribute's text became.
[[nodiscard]] std::optional<link_type> link_of(value::value const& v);

} // namespace vellum::css::semantics
