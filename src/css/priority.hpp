// The priority of a declaration in the cascade: its weight from origin and importance, the specificity of
// its selector, and its running number. A greater priority wins.
#pragma once

#include "css/declaration.hpp"
#include "css/selector.hpp"

#include <compare>

namespace vellum::css::priority {

/// Compared field by field.
struct priority {
    int weight = 0;
    /// The rank of the declaration's cascade layer: among normal declarations a later layer wins and
    /// unlayered ones win over all; among important ones the order turns round.
    int layer = 0;
    int a = 0;
    int b = 0;
    int c = 0;
    int index = 0;
    bool operator==(priority const&) const = default;
    auto operator<=>(priority const&) const = default;
};

/// The weight of a declaration: user !important above all, and the program's own sheets below all,
/// whether important or not.
int weight(origin o, bool important);

/// The priority of a declaration written for a selector of this specificity.
priority of(declaration const& d, selector::specific s);

} // namespace vellum::css::priority

namespace vellum::css::pdecls {

/// A declaration with its priority.
struct pdeclaration {
    css::declaration declaration;
    priority::priority priority;
    bool operator==(pdeclaration const&) const = default;
};

} // namespace vellum::css::pdecls
