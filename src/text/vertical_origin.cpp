#include "text/vertical_origin.hpp"

#include "text/fonts/freetype.hpp"
#include "text/opentype/reader.hpp"
#include "util/cell.hpp"

#include <algorithm>
#include <cstddef>
#include <memory>
#include <mutex>
#include <unordered_map>
#include <utility>
#include <vector>

namespace vellum::vertical_origin {

namespace {

// A font's VORG table as read once: the default origin and the glyphs with an origin of their own,
// sorted by glyph number. Nothing when the font has no usable table.
struct vorg_table {
    std::int16_t vorg_default = 0;
    std::vector<std::pair<std::uint16_t, std::int16_t>> vorg_glyphs;
};

std::optional<vorg_table> read_vorg(font_data::font_data const& font) {
    // VORG: version (2 × uint16), the default origin, then a count of glyphs with an origin of their
    // own, sorted by glyph number, each a glyph number and its origin.
    auto vorg = fonts::freetype::load_table(font.font_face, opentype::reader::make_tag("VORG"));
    if (!vorg) {
        return std::nullopt;
    }
    auto const d = vorg->view();
    auto const fallback = opentype::reader::read_u16(d, 4);
    auto const count = opentype::reader::read_u16(d, 6);
    if (!fallback || !count) {
        return std::nullopt;
    }
    vorg_table t{.vorg_default = std::int16_t(*fallback)};
    t.vorg_glyphs.reserve(*count);
    for (std::size_t i = 0; i < *count; ++i) {
        auto const id = opentype::reader::read_u16(d, 8 + i * 4);
        auto const y = opentype::reader::read_u16(d, 10 + i * 4);
        if (!id || !y) {
            break;
        }
        t.vorg_glyphs.emplace_back(*id, std::int16_t(*y));
    }
    // The table promises the order; a font that breaks it still gets a table that can be searched.
    std::ranges::sort(t.vorg_glyphs);
    return t;
}

// The table of each font, read on first use. Fonts stay loaded for the whole run, so a font's address
// names it for as long as the entry is kept.
std::optional<vorg_table> const& vorg_of(font_data::font_data const& font) {
    static std::unordered_map<font_data::font_data const*, std::unique_ptr<std::optional<vorg_table>>> tables;
    std::lock_guard guard(process_lock());
    auto& slot = tables[&font];
    if (!slot) {
        slot = std::make_unique<std::optional<vorg_table>>(read_vorg(font));
    }
    return *slot;
}

} // namespace

int glyph_vert_origin_y(font_data::font_data const& font, std::uint32_t glyph) {
    if (auto const& vorg = vorg_of(font)) {
        auto const& glyphs = vorg->vorg_glyphs;
        auto const it = std::ranges::lower_bound(glyphs, glyph, {}, [](auto const& p) { return std::uint32_t(p.first); });
        if (it != glyphs.end() && it->first == glyph) {
            return it->second;
        }
        return vorg->vorg_default;
    }
    auto const& m = font.font_info.font_metrics;
    int const middle = (m.ascender + m.descender) / 2;
    return middle + font_data::glyph_vert_advance(font, glyph) / 2;
}

} // namespace vellum::vertical_origin
