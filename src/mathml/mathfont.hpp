// The fonts of a formula: glyphs of token text, their ink extents, the MATH table of the font (its
// constants scaled to points, with fallbacks for fonts that have none) and larger glyph variants.
#pragma once

#include "text/fonts/fonts.hpp"
#include "text/fonts/graphemes.hpp"
#include "text/opentype/math.hpp"

#include <cstdint>
#include <memory>
#include <string>

namespace vellum::mathml::mathfont {

/// A glyph's ink, in points, from its origin on the baseline; up and down are distances.
struct ink {
    double ink_left = 0;
    double ink_right = 0;
    double ink_up = 0;
    double ink_down = 0;
    bool operator==(ink const&) const = default;
};

/// The font that supplies the layout constants of a request: the first of its fonts that maps the
/// characters of formulas, with its MATH table if it has one.
struct math_font {
    fonts::font_ref font;
    std::shared_ptr<opentype::math::math_table const> table;
    double units_per_em = 1000;
    double x_height_em = 0.45;
};

/// The math font of a request, looked up once per request.
math_font const& math_font_of(fonts::fonts const& db, ref<fonts::font_req> const& req);

/// A constant in points at a font size; fonts without a MATH table get values in the manner of
/// traditional mathematical typesetting, as fractions of the size.
double constant(math_font const& f, opentype::math::constant c, double size);

/// The ink of a glyph of a font at a size; a glyph without outline data gives the font's ascent and
/// descent over its advance.
ink glyph_ink(fonts::font_ref const& font, std::uint32_t glyph, double size);

/// A grapheme for a glyph number of a font, standing for the given characters in the PDF.
fonts::grapheme glyph_grapheme(fonts::font_ref const& font, std::uint32_t glyph, std::u32string const& chars);

/// The italic correction of a glyph in points (0 without a MATH table entry).
double italic_correction(math_font const& f, fonts::font_ref const& font, std::uint32_t glyph, double size);

/// The characters of a mathvariant ("italic", "bold", "double-struck", ...) in the Mathematical
/// Alphanumeric Symbols block; characters without such a form are kept.
std::u32string map_variant(std::u32string const& text, std::string const& variant);

} // namespace vellum::mathml::mathfont
