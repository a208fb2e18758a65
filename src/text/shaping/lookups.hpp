// Applying GSUB and GPOS lookups to the glyph list: every substitution type (single, multiple, alternate,
// ligature, contextual, chained, extension, reverse chained) and every positioning type (single, pair,
// cursive, mark to base, mark to ligature, mark to mark, contextual, chained, extension), with the lookup
// flags and mark filtering sets deciding which glyphs a lookup sees.
#pragma once

#include "driver/log.hpp"
#include "text/opentype/layout.hpp"
#include "text/shaping/buffer.hpp"

#include <cstdint>
#include <optional>

namespace vellum::shaping::lookups {

/// Which table the lookups come from.
enum class table_kind { gsub, gpos };

/// What one lookup is applied with.
struct apply_options {
    /// The feature bits a glyph must carry for the lookup to start at it.
    std::uint32_t apply_mask = ~0u;
    /// For alternate substitutions: the alternate, counted from 1.
    std::optional<int> apply_alternate;
    /// Lookups do not reach across Indic syllables.
    bool apply_per_syllable = false;
    /// ZWJ is seen by the lookup rather than skipped (Indic, Arabic "rlig"/"calt").
    bool apply_manual_zwj = false;
    /// The glyphs come out of a vertical feature.
    bool apply_vertical = false;
    /// The run is written right to left (for cursive attachment).
    bool apply_rtl = false;
};

/// A table to apply lookups of, with the font's glyph classes.
struct layout_table {
    opentype::layout::data table_data;
    table_kind table_which = table_kind::gsub;
    opentype::layout::gdef const* table_gdef = nullptr;
    bool table_has_gdef = false;
};

/// Applies one lookup of the table to the whole list.
void apply_lookup(log::log const& log,
                  layout_table const& table,
                  std::uint16_t lookup_index,
                  apply_options const& options,
                  buffer::glyphs& glyphs);

/// Sets each glyph's class from GDEF, or from its characters when the font has no glyph classes.
void set_glyph_classes(layout_table const& table, buffer::glyphs& glyphs);

} // namespace vellum::shaping::lookups
