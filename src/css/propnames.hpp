// The names of all CSS properties the system knows, their spellings and aliases, and their lookup from
// the lower-cased name a declaration carries.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace vellum::css::propnames {

/// Every property name, in alphabetical order of the CSS name ("-vellum-" names sort as if spelled
/// without the dash and with an older vendor prefix, between "position" and "right").
enum class prop_name : std::uint8_t {
#include "css/propnames_enum.inc"
};

/// The number of property names.
inline constexpr int prop_name_count = 213;

/// Whether a name is a longhand of elements, a shorthand, or read only in page and font-face rules.
enum class name_kind : std::uint8_t { longhand, shorthand, page_only };

/// The property a lower-cased CSS name stands for, aliases included; nothing for an unknown name.
[[nodiscard]] std::optional<prop_name> lookup_property(std::string_view name);

/// Whether a lower-cased name is known, as the parser's property filter.
bool known_property(std::string_view name);

/// The canonical CSS name.
std::string_view css_name(prop_name p);

name_kind kind_of(prop_name p);

/// The camelCase name under which scripts see the property on element.style: "font-size" is
/// "fontSize", "-vellum-pdf-link-type" is "vellumPdfLinkType".
std::string script_name(prop_name p);

} // namespace vellum::css::propnames
