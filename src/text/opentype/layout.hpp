// The OpenType layout tables GSUB, GPOS and GDEF walked in place: script and language systems, features,
// lookups, coverage and class definitions are positions in the table's bytes, read with checked accessors.
// A read outside the table is an internal error: a font that loaded but carries a damaged layout table
// ends the run rather than shaping text wrongly.
#pragma once

#include "text/opentype/reader.hpp"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace vellum::opentype::layout {

using reader::data;
using reader::tag;

/// Checked big-endian reads at an offset of a table; they throw "get_uint16: offset out of bounds" and
/// "get_uint16: unaligned offset" (and the same for the other widths).
std::uint16_t get_uint16(data d, std::size_t offset);
std::int16_t get_int16(data d, std::size_t offset);
std::uint32_t get_uint32(data d, std::size_t offset);
std::int32_t get_int32(data d, std::size_t offset);
/// A 32-bit value at any byte offset.
std::uint32_t get_unaligned_uint32(data d, std::size_t offset);

/// The position base + offset; a zero offset or one leading out of the table is an internal error.
std::size_t add_offset(data d, std::size_t base, std::uint32_t offset);

/// The position base + the 16-bit offset read at base + field; nothing for a null offset.
[[nodiscard]] std::optional<std::size_t> optional_offset16(data d, std::size_t base, std::size_t field);

/// A language system table of a script record.
struct lang_sys {
    std::size_t lang_sys_pos = 0;
    bool operator==(lang_sys const&) const = default;
};

/// A feature table.
struct feature {
    std::size_t feature_pos = 0;
    bool operator==(feature const&) const = default;
};

/// The lookup flag bits.
inline constexpr std::uint16_t lookup_right_to_left = 0x0001;
inline constexpr std::uint16_t lookup_ignore_base_glyphs = 0x0002;
inline constexpr std::uint16_t lookup_ignore_ligatures = 0x0004;
inline constexpr std::uint16_t lookup_ignore_marks = 0x0008;
inline constexpr std::uint16_t lookup_use_mark_filtering_set = 0x0010;
inline constexpr std::uint16_t lookup_mark_attachment_type = 0xFF00;

/// A lookup table: its type, flag, subtables and mark filtering set.
struct lookup {
    std::size_t lookup_pos = 0;
    std::uint16_t lookup_type = 0;
    std::uint16_t lookup_flag = 0;
    std::uint16_t lookup_subtable_count = 0;
    std::uint16_t lookup_mark_filtering_set = 0;
    bool operator==(lookup const&) const = default;
};

/// The language system for a script and language. A language missing from the script takes the script's
/// default; a missing script falls back to "DFLT", "dflt" and "latn" records; a font with none of them
/// gives nothing. Several script tags may be given, the preferred first (as "dev2" before "deva").
[[nodiscard]] std::optional<lang_sys>
find_script_langsys(data table, std::vector<tag> const& scripts, tag language);

/// The feature of a tag that a language system lists; nothing when it lists none.
[[nodiscard]] std::optional<feature> find_feature(data table, lang_sys const& sys, tag feature_tag);

/// The lookup indices of a feature, in the feature record's order.
std::vector<std::uint16_t> feature_lookups(data table, feature const& f);

/// The number of lookups in the table's lookup list.
std::uint16_t lookup_count(data table);

/// A lookup of the lookup list by index.
lookup get_lookup(data table, std::uint16_t index);

/// The position of a lookup's subtable.
std::size_t subtable_pos(data table, lookup const& l, std::uint16_t i);

/// The coverage index of a glyph in the coverage table at a position; nothing when not covered.
[[nodiscard]] std::optional<std::uint16_t> coverage_index(data table, std::size_t coverage, std::uint32_t glyph);

/// The class of a glyph in the class definition at a position; 0 for glyphs it does not list.
std::uint16_t class_of(data table, std::size_t class_def, std::uint32_t glyph);

/// The glyph classes of GDEF.
enum class glyph_class : std::uint8_t { unclassified, base, ligature, mark, component };

/// The parts of GDEF that shaping reads.
struct gdef {
    data gdef_data;
    std::optional<std::size_t> gdef_glyph_class_def;
    std::optional<std::size_t> gdef_mark_attach_class_def;
    std::optional<std::size_t> gdef_mark_glyph_sets;
};

/// Reads the header of a GDEF table.
gdef read_gdef(data d);

/// The GDEF class of a glyph (unclassified without a class definition).
glyph_class glyph_class_of(gdef const& g, std::uint32_t glyph);

/// The mark attachment class of a glyph.
std::uint16_t mark_attach_class_of(gdef const& g, std::uint32_t glyph);

/// Whether a glyph is in a mark filtering set.
bool in_mark_set(gdef const& g, std::uint16_t set, std::uint32_t glyph);

} // namespace vellum::opentype::layout
