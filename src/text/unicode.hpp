// Code points and the questions text handling asks about them that span several properties: punctuation
// and word-character tests and simple case mapping. The per-property tables are in unicode/*.hpp.
#pragma once

#include <string>
#include <string_view>

namespace vellum::unicode {

/// One Unicode code point, as the text of a document holds it (`textbuf::textbuf` is a list of them).
using unicode = char32_t;

/// A list of code points.
using unicodes = std::u32string;

/// The version of the Unicode Character Database compiled into the tables, as "15.0.0".
std::string_view data_version();

/// Whether the code point is punctuation: general category Pc, Pd, Ps, Pe, Pi, Pf or Po.
bool is_punctuation(unicode cp);

/// Whether the code point is a letter, a mark or a number: general category L*, M* or N*.
bool is_letter_mark_or_number(unicode cp);

/// The simple lower-case mapping, or the code point itself when it has none.
unicode to_lower(unicode cp);

/// The simple upper-case mapping, or the code point itself when it has none.
unicode to_upper(unicode cp);

/// The string with each code point mapped by to_lower; the length never changes.
unicodes to_lower(std::u32string_view text);

/// The string with each code point mapped by to_upper; the length never changes.
unicodes to_upper(std::u32string_view text);

} // namespace vellum::unicode
