// The working glyph list of shaping: each glyph with the characters it stands for, the features that may
// touch it, its GDEF class, ligature bookkeeping, the Indic syllable data, and its position in font units.
#pragma once

#include "text/opentype/layout.hpp"
#include "text/unicode.hpp"

#include <cstdint>
#include <vector>

namespace vellum::shaping::buffer {

/// How a glyph was attached by GPOS: not at all, as a mark to an earlier glyph, or cursively.
enum class attach_kind : std::uint8_t { none, mark, cursive };

/// One glyph being shaped.
struct glyph_info {
    std::uint32_t info_glyph = 0;
    /// The characters it stands for: one for a mapped character, all components' for a ligature, none for
    /// a glyph after the first of a multiple substitution.
    unicode::unicodes info_chars;
    /// The index of its first character in the run.
    std::uint32_t info_cluster = 0;
    /// The feature bits that apply to it (joining forms, Indic forms); global features have all bits.
    std::uint32_t info_mask = 0;
    opentype::layout::glyph_class info_class = opentype::layout::glyph_class::unclassified;
    /// Set by a ligature substitution: the ligature and the marks skipped inside it share an id, and each
    /// mark records the number of the component it follows (from 1).
    std::uint8_t info_lig_id = 0;
    std::uint8_t info_lig_comp = 0;
    /// The number of components of a ligature glyph.
    std::uint8_t info_lig_count = 0;
    bool info_multi_dup = false;
    bool info_substituted = false;
    bool info_vert_alt = false;
    bool info_small_caps = false;
    /// Indic syllable number, character category and position (see shaping.indic).
    std::uint16_t info_syllable = 0;
    std::uint8_t info_indic_category = 0;
    std::uint8_t info_indic_position = 0;
    /// Position in font units, as GPOS leaves it: advances and offsets from the pen position.
    std::int32_t pos_x_advance = 0;
    std::int32_t pos_y_advance = 0;
    std::int32_t pos_x_offset = 0;
    std::int32_t pos_y_offset = 0;
    /// The glyph it is attached to, as an offset in the list.
    std::int32_t pos_attach_chain = 0;
    attach_kind pos_attach_kind = attach_kind::none;
    bool operator==(glyph_info const&) const = default;
};

using glyphs = std::vector<glyph_info>;

/// Whether a glyph counts as a mark (by GDEF, or by its character when the font has no classes).
inline bool is_mark(glyph_info const& g) {
    return g.info_class == opentype::layout::glyph_class::mark;
}

} // namespace vellum::shaping::buffer
