// Pair kerning from the old "kern" table (format 0 subtables, in both the Windows and the Apple
// layout), for fonts without a GPOS kerning feature.
#pragma once

#include "text/opentype/reader.hpp"
#include "util/result.hpp"

#include <cstdint>
#include <vector>

namespace vellum::opentype::kern {

/// One kerning pair; the key is left glyph << 16 | right glyph.
struct pair {
    std::uint32_t pair_key = 0;
    std::int16_t pair_value = 0;
    bool operator==(pair const&) const = default;
};

/// The horizontal kerning pairs of all format 0 subtables, sorted by key; for a key in two subtables the
/// values add up.
struct kern {
    std::vector<pair> kern_pairs;
    bool operator==(kern const&) const = default;
};

/// Reads the table. Subtables of other formats, vertical or cross-stream subtables are skipped; a
/// subtable that runs past the table makes it fail.
[[nodiscard]] result<kern> parse_kern(reader::data d);

/// The adjustment between two glyphs in font units, 0 if the pair is not listed.
std::int32_t kerning(kern const& k, std::uint32_t left, std::uint32_t right);

} // namespace vellum::opentype::kern
