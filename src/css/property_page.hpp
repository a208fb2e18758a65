// The size of a page, as the size property of @page and the --page-size option give it, and the page
// margins of the --page-margin option.
#pragma once

#include "css/property.hpp"
#include "css/units.hpp"
#include "css/value.hpp"

#include <optional>
#include <string_view>
#include <utility>

namespace vellum::css::property_page {

enum class orientation { none, portrait, landscape };

/// "auto" has no dimensions; "landscape" alone turns the default size.
struct page_size {
    /// Width and height, before the orientation is applied.
    std::optional<std::pair<units::length, units::length>> size_dims;
    orientation size_orientation = orientation::none;
    bool operator==(page_size const&) const = default;
};

/// The width and height of a named paper size ("A4", "letter", "ledger") as the size is quoted, which
/// for a few names is wider than tall; the name in any case.
[[nodiscard]] std::optional<std::pair<units::length, units::length>> paper_size(std::string_view name);

/// A size value: "auto", one or two lengths, a paper name, each with an optional orientation.
[[nodiscard]] std::optional<page_size> parse_size(value::value const& v);

/// The --page-size option's text.
[[nodiscard]] std::optional<page_size> parse_size_text(std::string_view text);

/// The --page-margin option's text, read as the margin shorthand.
[[nodiscard]] std::optional<property::property> parse_margin_text(std::string_view text);

/// The final width and height in points, portrait unless landscape was asked for; nothing for "auto"
/// with no orientation. Relative units use the given resolution.
[[nodiscard]] std::optional<std::pair<float, float>>
size_in_points(page_size const& s, units::resolution const& r, std::pair<float, float> default_size);

} // namespace vellum::css::property_page
