// Counter values written in a counter style, for list markers, counter() and counters() in generated
// content, and page numbers in the page margins.
#pragma once

#include "util/textbuf.hpp"

#include <string>

namespace vellum::prepack::counter_style {

/// A counter value in a counter style:
/// - glyphs, the same for every value: disc, circle, square, box, check, diamond, hyphen;
/// - numeric, digits of a base: decimal, decimal-leading-zero, arabic-indic, persian, cjk-decimal,
///   binary, octal, lower- and upper-hexadecimal;
/// - alphabetic, letters as digits of a base with no zero: lower- and upper-alpha, -latin, -greek,
///   -norwegian, -russian, hiragana, katakana, hiragana-iroha, katakana-iroha, cjk-earthly-branch,
///   cjk-heavenly-stem;
/// - algorithmic: lower- and upper-roman, japanese-, simp-chinese- and trad-chinese-informal and
///   -formal;
/// - none.
/// Other styles, and numbers a style cannot show, count in decimal.
textbuf::textbuf format_counter(int value, std::string const& style);

/// Whether a style shows one glyph whatever the value (a bullet), or nothing.
bool is_glyph_style(std::string const& style);

/// What follows the value in a list marker: nothing after a bullet, an ideographic comma after the
/// Chinese and Japanese styles, a full stop after the others.
std::u32string marker_suffix(std::string const& style);

} // namespace vellum::prepack::counter_style
