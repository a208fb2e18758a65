// The parts of a PDF font that follow from the font's numbers alone: metrics scaled to the 1000-unit em of
// PDF glyph space, the descriptor flags, the /W array of a CID font, and the ToUnicode CMap that lets a
// reader turn glyph codes back into text.
#pragma once

#include "pdf/object.hpp"

#include <cstdint>
#include <string>
#include <vector>

namespace vellum::pdf::font_objects {

/// Whether codes in the text are one byte (a simple font) or two (an Identity font).
enum class tounicode_type { tounicode_byte, tounicode_ucs2 };

/// A glyph's number in the PDF font and the characters it stands for (several for a ligature).
struct glyph_unicodes {
    std::uint32_t glyph_number = 0;
    std::vector<char32_t> glyph_chars;
};

/// A glyph's number and its advance in 1000ths of an em.
struct glyph_width {
    std::uint32_t glyph_number = 0;
    std::int64_t glyph_advance = 0;
};

/// A value in font units as 1000ths of an em, truncated toward zero.
std::int64_t scale_to_1000(std::int64_t value, std::int64_t units_per_em);

/// /Flags of a font descriptor: always symbolic, with fixed pitch and italic as the font is.
std::int64_t descriptor_flags(bool is_monospace, bool is_italic);

/// The /W array: runs of consecutive glyph numbers, each as its first number and an array of widths.
pdf::array w_array(std::vector<glyph_width> glyphs);

/// The text of a ToUnicode CMap for the glyphs in the order given; glyphs without characters are left
/// out, and the mappings go in blocks of at most 100.
std::string tounicode_cmap(tounicode_type type, std::vector<glyph_unicodes> const& glyphs);

/// A code point as UTF-16 in lower-case hexadecimal: four digits, or eight for a surrogate pair.
std::string utf16_hex(char32_t c);

} // namespace vellum::pdf::font_objects
