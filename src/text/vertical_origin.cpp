#include "text/vertical_origin.hpp"

#include "text/fonts/freetype.hpp"
#include "text/opentype/reader.hpp"

#include <cstddef>

namespace vellum::vertical_origin {

int glyph_vert_origin_y(font_data::font_data const& font, std::uint32_t glyph) {
    // VORG: version (2 × uint16), the default origin, then a count of glyphs with an origin of their
    // own, sorted by glyph number, each a glyph number and its origin.
    // FIXME: the table is read for each glyph; it belongs with the font's lazily read tables.
    if (auto vorg = fonts::freetype::load_table(font.font_face, opentype::reader::make_tag("VORG"))) {
        auto const d = vorg->view();
        auto const fallback = opentype::reader::read_u16(d, 4);
        auto const count = opentype::reader::read_u16(d, 6);
        if (fallback && count) {
            std::size_t lo = 0;
            std::size_t hi = *count;
            while (lo < hi) {
                std::size_t const mid = (lo + hi) / 2;
                auto const id = opentype::reader::read_u16(d, 8 + mid * 4);
                auto const y = opentype::reader::read_u16(d, 10 + mid * 4);
                if (!id || !y) {
                    break;
                }
                if (*id == glyph) {
                    return std::int16_t(*y);
                }
                if (*id < glyph) {
                    lo = mid + 1;
                } else {
                    hi = mid;
                }
            }
            return std::int16_t(*fallback);
        }
    }
    auto const& m = font.font_info.font_metrics;
    int const middle = (m.ascender + m.descender) / 2;
    return middle + font_data::glyph_vert_advance(font, glyph) / 2;
}

} // namespace vellum::vertical_origin
