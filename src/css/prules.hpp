// The rule index: rules filed by the namespace and local name of their subject's type selector, so that
// an element is tested only against rules that could match it.
#pragma once

#include "css/match.hpp"
#include "css/parser.hpp"
#include "css/priority.hpp"
#include "util/ref.hpp"

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace vellum::css::prules {

/// A selector with its declarations, each carrying its priority.
struct prule {
    selector::selector rule_selector;
    std::vector<pdecls::pdeclaration> rule_declarations;
    bool operator==(prule const&) const = default;
};

using prules0 = std::vector<ref<prule>>;

/// The rules of one namespace slot.
struct prules_named {
    /// Rules whose subject names an element, by local name.
    std::map<std::string, prules0, std::less<>> rules_named;
    /// Rules whose subject is universal.
    prules0 rules_other;
};

/// All rules of a document.
struct prules {
    /// By namespace URI.
    std::map<std::string, prules_named, std::less<>> rules_ns;
    prules_named rules_ns_any;
    prules_named rules_ns_none;
};

/// Whether a declaration's value suits its property; those that don't are dropped from the index.
using declaration_check = std::function<bool(declaration const&)>;

/// Indexes the rules in order, giving each declaration its priority.
prules index_rules(std::vector<parser::style_rule> const& rules, declaration_check const& valid = {});

/// Calls `f` with each rule that could match an element of this namespace and local name: the rules of
/// any namespace first, then those of the element's own namespace (or of none); in each, the rules for
/// the local name before the universal ones.
template <class F>
void for_each_candidate(prules const& index, std::optional<std::string_view> ns_uri, std::string_view local,
                        F&& f) {
    auto visit_named = [&](prules_named const& named) {
        if (auto const it = named.rules_named.find(local); it != named.rules_named.end()) {
            for (auto const& r : it->second) {
                f(*r);
            }
        }
        for (auto const& r : named.rules_other) {
            f(*r);
        }
    };
    visit_named(index.rules_ns_any);
    if (!ns_uri) {
        visit_named(index.rules_ns_none);
    } else if (auto const it = index.rules_ns.find(*ns_uri); it != index.rules_ns.end()) {
        visit_named(it->second);
    }
}

/// Calls `f` with each rule whose selector matches the element.
template <match::element_tree T, class F>
void for_each_matching_rule(T const& t, prules const& index, typename T::element e, F&& f,
                            match::match_context const& ctx = match::no_context{}) {
    for_each_candidate(index, t.namespace_uri(e), t.local_name(e), [&](prule const& r) {
        if (match::selector_matches(t, r.rule_selector, e, ctx)) {
            f(r);
        }
    });
}

} // namespace vellum::css::prules
