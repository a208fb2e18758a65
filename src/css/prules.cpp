#include "css/prules.hpp"

namespace vellum::css::prules {

namespace {

prules_named& slot_of(prules& index, selector::ns const& ns) {
    return std::visit(overloaded{
                          [&](selector::none const&) -> prules_named& { return index.rules_ns_none; },
                          [&](selector::any const&) -> prules_named& { return index.rules_ns_any; },
                          [&](selector::xmlns const& x) -> prules_named& { return index.rules_ns[x.xmlns_uri]; },
                      },
                      ns);
}

} // namespace

prules index_rules(std::vector<parser::style_rule> const& rules, declaration_check const& valid) {
    prules index;
    for (auto const& rule : rules) {
        auto const spec = selector::specificity(rule.rule_selector);
        prule entry{.rule_selector = rule.rule_selector};
        for (auto const& d : rule.rule_declarations) {
            if (valid && !valid(d)) {
                continue;
            }
            entry.rule_declarations.push_back({d, priority::of(d, spec)});
        }
        auto shared = share(std::move(entry));
        std::visit(overloaded{
                       [&](selector::universal const& u) { slot_of(index, u.ns).rules_other.push_back(shared); },
                       [&](selector::element const& el) {
                           slot_of(index, el.element_name.ns).rules_named[el.element_name.name].push_back(shared);
                       },
                   },
                   rule.rule_selector.subject.type);
    }
    return index;
}

} // namespace vellum::css::prules
