// The typed declarations an element keeps after the cascade: its own and those of each list of
// pseudo-elements, ascending by priority, for box generation to compute generated boxes and first lines
// with.
#pragma once

#include "css/property.hpp"
#include "css/selector.hpp"
#include "util/ref.hpp"

#include <memory>
#include <vector>

namespace vellum::styledom {

/// A typed declaration, in a list ascending by priority (so that a later one overrides an earlier). The
/// property is shared with every element the same declaration of a sheet applies to and kept alive by the
/// `declared_styles` that holds the list; never null.
struct typed_pdecl {
    css::property::property const* pdecl_property = nullptr;
    bool operator==(typed_pdecl const& other) const {
        return pdecl_property == other.pdecl_property || *pdecl_property == *other.pdecl_property;
    }
};

/// The declarations for one list of pseudo-elements ("::before", "::first-line", ...).
struct pseudo_decls {
    std::vector<css::selector::pseudo_element> pseudo_elements;
    std::vector<typed_pdecl> pseudo_pdecls;
    bool operator==(pseudo_decls const&) const = default;
};

/// What an element keeps of the cascade besides its computed style.
struct declared_styles {
    std::vector<typed_pdecl> declared_pdecls;
    std::vector<pseudo_decls> declared_pseudos;
    /// What keeps the properties of the lists alive: the typed declarations of the sheets, one store
    /// for every element, and those typed for this element alone.
    std::shared_ptr<void const> declared_store;
    std::vector<ref<css::property::property>> declared_own;
    bool operator==(declared_styles const& other) const {
        return declared_pdecls == other.declared_pdecls && declared_pseudos == other.declared_pseudos;
    }
};

/// The properties alone, in the same order, as the style computation takes them.
std::vector<css::property::property> properties_of(std::vector<typed_pdecl> const& list);

/// The declarations of a single pseudo-element written alone ("p::before", not "p::first-line::before");
/// empty if none matched.
std::vector<typed_pdecl> const& pseudo_declarations(declared_styles const& d, css::selector::pseudo_element p);

} // namespace vellum::styledom
