// Computing one element's style from its parent's and its declarations in ascending priority: lengths to
// points at the element's font size, percentages kept where they wait for a containing block, attr()
// read from the element, and display, position, float and flow settled together.
#pragma once

#include "css/property.hpp"
#include "css/scanprops.hpp"
#include "css/style.hpp"
#include "util/ref.hpp"

#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace vellum::css::compute_style {

/// One attribute of the element, for attr().
struct context_attr {
    std::optional<std::string> context_attr_ns;
    std::string context_attr_local;
    std::string context_attr_value;
    bool operator==(context_attr const&) const = default;
};

/// A box with no element, such as generated content: attr() takes its default.
struct anonymous_context {
    bool operator==(anonymous_context const&) const = default;
};

struct element_context {
    /// The base URL for relative URLs in attribute values.
    std::string context_base;
    std::vector<context_attr> context_attrs;
    /// The element's language if the caller knows it; otherwise it is read from xml:lang or lang.
    std::optional<std::string> context_lang;
    bool operator==(element_context const&) const = default;
};

using compute_style_context = std::variant<anonymous_context, element_context>;

/// The CSS resolution in dots per inch that "px" counts against, 96 unless --css-dpi says otherwise.
float css_dpi();
void set_css_dpi(float dpi);

/// The computed style of an element. With no parent the initial style stands in for it, and the
/// element is the root.
style::style compute_style(ref<style::style> const& parent,
                           compute_style_context const& context,
                           std::vector<property::property> const& declarations);

/// The same from the declared values already gathered into their slots.
style::style compute_style_from_slots(ref<style::style> const& parent,
                                      compute_style_context const& context,
                                      scanprops::prop_array const& props);

} // namespace vellum::css::compute_style
