// Presentational hints: the few attributes that become declarations of their own, because no selector of
// a default sheet can turn them into a value: SVG presentation attributes, a table's cellpadding on its
// cells, and the link colour of the body on links.
#pragma once

#include "css/priority.hpp"
#include "css/terms.hpp"
#include "document/dom.hpp"
#include "resource/locator.hpp"

#include <string>
#include <vector>

namespace vellum::styledom::hints {

/// What the property vocabulary tells the hints.
struct hint_filters {
    /// Whether a name is a property; without it no SVG attribute becomes a declaration.
    css::terms::property_filter known_property = nullptr;
    /// Whether a property is a shorthand; SVG attributes may not name one (text-decoration and
    /// font-variant excepted).
    css::terms::property_filter is_shorthand = nullptr;
};

/// The declarations of an SVG element's presentation attributes, at author origin, numbered 0, with
/// url values relative to `base`.
std::vector<css::pdecls::pdeclaration> svg_hints(dom::dom_element const& e,
                                                 resource::locator::locator const& base,
                                                 hint_filters const& filters);

/// "padding" for a td or th from the cellpadding of its table, at program origin.
std::vector<css::pdecls::pdeclaration> cellpadding_hint(dom::dom_element const& e);

/// "color" for a link from the link attribute of its body, at program origin.
std::vector<css::pdecls::pdeclaration> link_color_hint(dom::dom_element const& e);

/// All hints of an element, in that order.
std::vector<css::pdecls::pdeclaration> presentational_hints(dom::dom_element const& e,
                                                            resource::locator::locator const& base,
                                                            hint_filters const& filters);

} // namespace vellum::styledom::hints
