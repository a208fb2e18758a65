// Text as a list of Unicode code points, with conversion from and to UTF-8.
#pragma once

#include <string>
#include <string_view>

namespace vellum::textbuf {

/// Text of a document as code points.
using textbuf = std::u32string;

/// Decodes UTF-8; each invalid or truncated sequence becomes U+FFFD.
textbuf from_utf8(std::string_view text);

/// Encodes code points as UTF-8; surrogates and values above U+10FFFF become U+FFFD.
std::string to_utf8(std::u32string_view text);

/// Appends one code point to a UTF-8 string.
void append_utf8(std::string& out, char32_t cp);

/// Decodes one code point at `pos`, advancing it; invalid input gives U+FFFD and advances by one byte.
char32_t next_utf8(std::string_view text, std::size_t& pos);

/// Whether the text is well-formed UTF-8.
bool is_valid_utf8(std::string_view text);

} // namespace vellum::textbuf
