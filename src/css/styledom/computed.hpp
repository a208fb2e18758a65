// The style computation plugged into the cascade: declarations turned into typed properties, the
// element's computed style from its parent's, and the typed declarations kept on the element for the
// pseudo-elements.
#pragma once

#include "css/compute_style.hpp"
#include "css/styledom/declared.hpp"
#include "css/styledom/styledom.hpp"
#include "document/dom.hpp"

namespace vellum::styledom::computed {

/// The hooks of the full property vocabulary: known names, shorthands, valid values, the computation and
/// the background images to prefetch.
style_hooks typed_hooks();

/// The context of an element for attr() and relative URLs: its base, its attributes and its language.
css::compute_style::element_context context_of(dom::dom_element const& e,
                                               resource::locator::locator const& base,
                                               std::optional<std::string> const& lang);

/// The computed style of a styled element; internal error before the cascade has reached it or when it
/// ran without a style computation.
ref<css::style::style> style_of(dom::dom_element const& e);

/// The typed declarations of a styled element; an empty set when the cascade kept none.
declared_styles const& declared_of(dom::style_info const& info);

} // namespace vellum::styledom::computed
