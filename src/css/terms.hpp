// Terms and declaration lists: the value grammar shared by style rules, at-rule bodies, style attributes
// and media features. One bad declaration costs only itself.
#pragma once

#include "css/cursor.hpp"
#include "css/declaration.hpp"
#include "css/namespaces.hpp"
#include "util/result.hpp"

#include <functional>
#include <string>
#include <string_view>

namespace vellum::css::terms {

/// What terms need from their sheet: the base of relative URLs and the prefixes for attr().
struct context {
    std::string base;
    css::namespaces namespaces;
};

/// Where a run of terms ends: before ";", "}", "!" (declarations) or before ")" (media features).
enum class term_end { declaration, close_paren };

/// Whether a lower-cased property name is known; null means every name is.
using property_filter = bool (*)(std::string_view name);

/// Parses one term at the cursor.
[[nodiscard]] result<value::value> parse_term(cursor::cursor& c, context const& ctx);

/// Parses terms separated by blanks up to the end; one term stands alone, several make `values`.
[[nodiscard]] result<value::value> parse_terms(cursor::cursor& c, context const& ctx, term_end end);

/// How a declaration list is read.
struct list_context {
    terms::context terms;
    css::origin origin = origin::author;
    property_filter known_property = nullptr;
    /// Names accepted besides the known properties, such as the properties of pages.
    property_filter also_accept = nullptr;
};

/// Called at an at-keyword inside a declaration list (page bodies hold region rules); it must move the
/// cursor past the at-rule.
using at_rule_handler = std::function<void(cursor::cursor& c, std::string const& at_name)>;

/// Reads declarations up to a "}" (left in place) or the end. Each declaration seen, valid or not, takes
/// the next number from `index`. Unknown property names are dropped without a message. Without a
/// handler, at-rules in the list are skipped.
declarations parse_declaration_list(cursor::cursor& c, list_context const& ctx, int& index,
                                     at_rule_handler const& at_rule = {});

} // namespace vellum::css::terms
