// The named character references of HTML ("&amp;", "&notin;", the legacy "&amp" without semicolon, ...).
#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

namespace vellum::html5::entities {

/// A reference name (as written after '&', with its ';' if it has one) and the UTF-8 text it stands for.
struct entity {
    std::string_view entity_name;
    std::string_view entity_text;
};

/// The longest reference name that is a prefix of `candidate`, or nothing.
[[nodiscard]] std::optional<entity> longest_prefix_match(std::string_view candidate);

/// The number of names in the table.
std::size_t entity_count();

} // namespace vellum::html5::entities
