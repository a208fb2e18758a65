// Cutting a TrueType font down to the glyphs a document uses: a new, valid sfnt with the outlines of
// those glyphs (and of the components that composite glyphs pull in), renumbered in order of use, with
// the tables a PDF reader needs and nothing else. Fonts of CFF outlines are cut by cff_subset.
#pragma once

#include "driver/log.hpp"
#include "text/fonts/fonts.hpp"
#include "text/opentype/reader.hpp"
#include "util/bytes.hpp"
#include "util/result.hpp"

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

namespace vellum::font_subset {

/// One-byte character codes to new glyph numbers, for the "cmap" of a font used as a simple font.
using char_map_array = std::array<std::uint8_t, 256>;

/// Glyph numbers of the source font, in the order of the new font; the first is glyph 0.
using glyph_index_array = std::vector<std::uint32_t>;

/// Gives the bytes of a table of the source font, or nothing if the font has no such table.
using table_reader = std::function<std::optional<std::vector<std::uint8_t>>(opentype::reader::tag)>;

/// The new font file, and the source glyph numbers of its glyphs in their new order: those asked for,
/// then the components that composite glyphs brought in, in order of discovery.
struct subset {
    std::vector<std::uint8_t> subset_bytes;
    glyph_index_array subset_glyphs;
};

/// Makes the subset; fails when a required table is missing or malformed, or a glyph is not in the font.
[[nodiscard]] result<subset> make_subset(table_reader const& read_table,
                                         std::optional<char_map_array> const& char_map,
                                         glyph_index_array const& glyphs);

/// Cuts a used font down to the glyphs in its glyph cache, before the pages' text is written: each
/// cached glyph's PDF number becomes its place in the subset, an Identity font of at most 256 glyphs
/// turns into a simple font with one-byte codes, and the new file goes into the font's subset cell.
/// A font with CFF outlines becomes a CID-keyed subset with Identity encoding, whatever its encoding was.
/// A MacRoman font that will not be embedded is left alone. A failure is a warning, and the font is then
/// embedded whole.
void subset_font(log::log const& log, bool embed_fonts, fonts::font_ref const& font);

/// Readies a font that goes out whole (no subsetting) whose outlines are a CID-keyed CFF font: a viewer
/// finds its glyphs by CID, so it becomes an Identity font and each glyph's PDF number becomes its CID
/// from the font's charset. Other fonts, and a MacRoman font that will not be embedded, are left alone.
void prepare_whole_font(bool embed_fonts, fonts::font_ref const& font);

/// The bytes of the font file to embed: the subset if one was made, otherwise the whole face as one
/// sfnt (a face of a collection is taken out of it) or, for CFF outlines, the bare CFF font program.
/// Nothing if the bytes cannot be had.
[[nodiscard]] std::optional<bytes::bytes> font_file_bytes(fonts::font_ref const& font);

/// One table of an sfnt file to be written.
struct sfnt_table {
    opentype::reader::tag sfnt_tag = 0;
    std::vector<std::uint8_t> sfnt_bytes;
};

/// Writes an sfnt file from tables sorted by tag: the directory with the search fields, the tables padded
/// to four bytes, and the checksum adjustment of "head" (if there is one) that makes the whole file sum
/// to 0xB1B0AFBA.
std::vector<std::uint8_t> assemble_sfnt(std::vector<sfnt_table> tables);

/// The checksum of a table: the sum of its big-endian 32-bit words, the last padded with zeros; a table
/// shorter than four bytes sums to 0.
std::uint32_t table_checksum(std::span<std::uint8_t const> bytes);

} // namespace vellum::font_subset
