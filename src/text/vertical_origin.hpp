// Where an upright glyph of a vertical line hangs from: the height of its vertical origin, the top of
// the em box it fills when set in a column.
#pragma once

#include "text/font_data.hpp"

#include <cstdint>

namespace vellum::vertical_origin {

/// The height of a glyph's vertical origin above the baseline, in font units. From the font's VORG
/// table where it has one; otherwise the box of the vertical advance is centred on the middle of
/// ascender and descender.
int glyph_vert_origin_y(font_data::font_data const& font, std::uint32_t glyph);

} // namespace vellum::vertical_origin
