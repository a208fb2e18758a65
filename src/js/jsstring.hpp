// Script strings: immutable arrays of Unicode code points (one element per code point, never UTF-16
// units), converted from and to the UTF-8 text of the rest of the program at the boundary.
#pragma once

#include <compare>
#include <cstddef>
#include <string>
#include <string_view>

namespace vellum::jsstring {

/// A script string. `length`, indices, `charAt` and `charCodeAt` count code points; a supplementary
/// character is one element. NUL is an ordinary element. Equality and ordering are by code point.
struct js_string {
    std::u32string code_points;

    std::size_t length() const { return code_points.size(); }
    bool empty() const { return code_points.empty(); }
    char32_t operator[](std::size_t i) const { return code_points[i]; }
    bool operator==(js_string const&) const = default;
    std::strong_ordering operator<=>(js_string const& other) const;
};

/// Decodes UTF-8; invalid sequences become U+FFFD.
js_string from_utf8(std::string_view text);

/// Encodes as UTF-8. Lone surrogates (which `"\uD800"` can make) become U+FFFD, since UTF-8 cannot
/// carry them.
std::string to_utf8(js_string const& text);

/// Whether the string holds a NUL code point (such a string cannot be a plain UTF-8 property key).
bool has_nul(js_string const& text);

js_string concat(js_string const& a, js_string const& b);

} // namespace vellum::jsstring
