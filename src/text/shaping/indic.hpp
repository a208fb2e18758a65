// Indic reordering: the characters of each syllable are put in the order that the font's Indic features
// expect (reph last, pre-base matras first), and each glyph gets the bits of the features that may form it
// (reph, half, below-base and post-base forms). After the basic forms are made, the final reordering moves
// the reph and pre-base matras to their written places.
#pragma once

#include "text/opentype/reader.hpp"
#include "text/shaping/buffer.hpp"
#include "text/unicode/script.hpp"

#include <cstdint>
#include <functional>
#include <span>

namespace vellum::shaping::indic {

/// Whether a script is shaped by the Indic model.
bool is_indic(unicode::script::script s);

/// The feature bits the reordering hands out; a glyph without a bit is not touched by that feature.
struct masks {
    std::uint32_t mask_global = 1;
    std::uint32_t mask_rphf = 0;
    std::uint32_t mask_pref = 0;
    std::uint32_t mask_blwf = 0;
    std::uint32_t mask_abvf = 0;
    std::uint32_t mask_half = 0;
    std::uint32_t mask_pstf = 0;
    std::uint32_t mask_init = 0;
};

/// What the reordering asks of the font.
struct font_access {
    /// Whether a feature of the font would substitute a sequence of glyphs.
    std::function<bool(opentype::reader::tag feature, std::span<std::uint32_t const> glyphs)> access_would;
    /// The glyph of a character (0 for none).
    std::function<std::uint32_t(char32_t)> access_glyph;
};

/// Sets the character categories and syllables, and reorders each syllable for the basic features.
void initial_reordering(buffer::glyphs& glyphs, unicode::script::script s, masks const& m, font_access const& font);

/// Moves reph and pre-base matras into place once the basic forms exist.
void final_reordering(buffer::glyphs& glyphs, unicode::script::script s, masks const& m);

} // namespace vellum::shaping::indic
