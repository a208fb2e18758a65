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
#include <vector>

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

/// Whether a declaration's value suits its property.
using value_check = bool (*)(declaration const& d);

/// Something wrong in the text of a sheet: the line it is on (0 if unknown) and what it is.
struct problem {
    int problem_line = 0;
    std::string problem_text;
    bool operator==(problem const&) const = default;
};

/// Whether a name is a custom property ("--" and a name), which is kept whatever its name and value.
bool is_custom_property(std::string_view name);

/// How a declaration list is read.
struct list_context {
    terms::context terms;
    css::origin origin = origin::author;
    property_filter known_property = nullptr;
    /// Names accepted besides the known properties, such as the properties of pages.
    property_filter also_accept = nullptr;
    /// Where syntax errors, unknown names and invalid values are told; null keeps quiet.
    std::vector<problem>* problems = nullptr;
    /// Checks values for the problems list; null checks nothing. A declaration that fails is kept, for
    /// the cascade drops it anyway.
    value_check valid_value = nullptr;
};

/// Called at an at-keyword inside a declaration list (page bodies hold region rules); it must move the
/// cursor past the at-rule.
using at_rule_handler = std::function<void(cursor::cursor& c, std::string const& at_name)>;

/// Called where a declaration list holds a nested style rule (a selector and a "{" block); it must move
/// the cursor past the rule.
using nested_rule_handler = std::function<void(cursor::cursor& c)>;

/// Reads declarations up to a "}" (left in place) or the end. Each declaration seen, valid or not, takes
/// the next number from `index`. Unknown property names are dropped without a message. Without a
/// handler, at-rules in the list are skipped.
declarations parse_declaration_list(cursor::cursor& c, list_context const& ctx, int& index,
                                     at_rule_handler const& at_rule = {},
                                     nested_rule_handler const& nested_rule = {});

/// Whether the cursor stands on a nested style rule rather than a declaration: a "{" comes at nesting
/// level zero before any ";" or "}" and the start isn't "name:" followed by a value.
bool at_nested_rule(cursor::cursor const& c);

} // namespace vellum::css::terms
