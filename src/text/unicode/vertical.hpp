// How a character stands in vertical text: upright as in horizontal text, or turned sideways with the
// line, and which of them a font's vertical forms replace.
#pragma once

#include <cstdint>

namespace vellum::unicode::vertical {

/// The Vertical_Orientation of a character. `transformed_upright` and `transformed_rotated` are drawn
/// by a vertical form of the font where it has one (the ideographic full stop moves to the upper right,
/// a bracket turns); without one they fall back to upright and to rotated.
enum class orientation : std::uint8_t {
    rotated,
    upright,
    transformed_upright,
    transformed_rotated,
};

/// The orientation of a code point; code points beyond U+10FFFF are rotated.
orientation orientation_of(char32_t cp);

/// Whether a character stands upright in vertical text without help from the font: ideographs, kana,
/// Hangul, full-width forms and the like.
bool stays_upright(char32_t cp);

} // namespace vellum::unicode::vertical
