// Values that only an element can settle: var() and custom properties, rem, the page-relative units vw,
// vh, vmin and vmax, and the math functions calc(), min(), max() and clamp(). They are rewritten into
// the plain terms the property parsers read, per element, when its style is computed.
#pragma once

#include "css/value.hpp"

#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace vellum::css::substitute {

/// The custom properties an element has, by name ("--accent"), each as written after var() in it was
/// replaced. They inherit as a whole.
using custom_properties = std::map<std::string, value::value, std::less<>>;

/// What resolving needs from the element and the document.
struct context {
    custom_properties const* customs = nullptr;
    /// The root element's font size, for rem, in points.
    float root_font_size = 12;
    /// The page area, for vw, vh, vmin and vmax, in points.
    float page_width = 612;
    float page_height = 792;
    /// What em and ex in a math function count against: the parent's font size for font-size, else the
    /// element's.
    float font_size = 12;
    /// The CSS resolution, for px in a math function.
    float dpi = 96;
    /// Whether a percentage in a math function is of the font size (font-size and line-height), so that
    /// it can be settled now.
    bool percent_of_font = false;
};

/// The name of the function a math function becomes when it mixes a percentage with a length: its
/// arguments are the percentage and the length in points, and the length parsers read it.
inline constexpr std::string_view mixed_percentage = "-vellum-calc";

/// Whether a value holds var(): it can't be checked until an element substitutes it.
[[nodiscard]] bool has_var(value::value const& v);

/// Whether a value holds anything this module rewrites: var(), rem, vw, vh, vmin, vmax or a math
/// function.
[[nodiscard]] bool needs_element(value::value const& v);

/// The value with var() replaced and the units and math functions resolved; nothing when a var() names
/// no custom property and has no fallback, or a math function doesn't compute: the declaration is then
/// invalid at computed-value time.
[[nodiscard]] std::optional<value::value> substitute(value::value const& v, context const& ctx);

/// Replaces var() inside the custom properties themselves; those in a cycle or naming a missing property
/// without a fallback are dropped.
[[nodiscard]] custom_properties resolve_customs(custom_properties customs);

} // namespace vellum::css::substitute
