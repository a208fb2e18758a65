// Sets of code points as lists of inclusive ranges, as the unicode-range descriptor of @font-face gives.
#pragma once

#include "util/result.hpp"

#include <string_view>
#include <utility>
#include <vector>

namespace vellum::unicode::range {

/// An inclusive range of code points, first then last.
using range_pair = std::pair<char32_t, char32_t>;

/// A list of inclusive ranges; a code point belongs when any range holds it.
using unicode_range = std::vector<range_pair>;

/// Whether any range of the list holds the code point.
bool contains(unicode_range const& ranges, char32_t cp);

/// Reads one range in the CSS form "U+26", "U+0-7F", "U+4??" (a wildcard range); case does not matter.
/// Fails on other text, on more than six digits, on a first above the last, or beyond U+10FFFF.
[[nodiscard]] result<range_pair> parse_range(std::string_view text);

} // namespace vellum::unicode::range
