// A declaration as the parser leaves it: a property name, its generic value, where it came from and its
// running number, which breaks ties in the cascade.
#pragma once

#include "css/value.hpp"

#include <string>
#include <vector>

namespace vellum::css {

/// Where a declaration came from; the cascade weighs it by this.
enum class origin { style_attribute, author, user, program };

/// One property and its value.
struct declaration {
    /// The property name in lower case.
    std::string prop_name;
    value::value value;
    css::origin origin = origin::author;
    bool important = false;
    /// The declaration's running number among all declarations read for a document.
    int index = 0;
    /// The cascade layer the declaration was written in, 0 outside any layer; a greater one wins among
    /// normal declarations, and outside any layer beats all layers.
    int layer = 0;
    bool operator==(declaration const&) const = default;
};

/// The declarations of one block, in the order written.
using declarations = std::vector<declaration>;

} // namespace vellum::css
