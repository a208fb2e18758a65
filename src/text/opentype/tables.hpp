// The fixed sfnt tables read from their raw bytes: the table directory, head, hhea, hmtx, maxp, OS/2,
// post and name. Each reader checks every offset and returns a message naming the table when the data
// does not hold what it claims.
#pragma once

#include "text/opentype/reader.hpp"
#include "util/result.hpp"

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace vellum::opentype::tables {

/// One entry of an sfnt table directory.
struct table_record {
    reader::tag record_tag = 0;
    std::uint32_t record_checksum = 0;
    std::uint32_t record_offset = 0;
    std::uint32_t record_length = 0;
    bool operator==(table_record const&) const = default;
};

/// The table directory at the start of an sfnt file.
struct directory {
    /// 0x00010000 or 'true' for TrueType outlines, 'OTTO' for CFF.
    std::uint32_t sfnt_version = 0;
    std::vector<table_record> directory_tables;
    bool operator==(directory const&) const = default;
};

/// Reads the directory at an offset of the file (0, or a face's offset in a collection). Every table
/// must lie inside the file.
[[nodiscard]] result<directory> parse_directory(reader::data file, std::size_t offset = 0);

/// A table's bytes by tag, if the directory lists it.
[[nodiscard]] std::optional<reader::data> find_table(directory const& dir, reader::data file, reader::tag t);

/// The sum of big-endian 32-bit words, the last one padded with zeros.
std::uint32_t checksum(reader::data d);

/// The font header.
struct head {
    std::uint32_t head_font_revision = 0;
    std::uint32_t head_checksum_adjustment = 0;
    std::uint16_t head_flags = 0;
    std::uint16_t head_units_per_em = 0;
    std::int16_t head_x_min = 0;
    std::int16_t head_y_min = 0;
    std::int16_t head_x_max = 0;
    std::int16_t head_y_max = 0;
    /// Bit 0 bold, bit 1 italic.
    std::uint16_t head_mac_style = 0;
    /// 0 for 16-bit "loca" offsets (halved), 1 for 32-bit ones.
    std::int16_t head_index_to_loc_format = 0;
    bool operator==(head const&) const = default;
};

[[nodiscard]] result<head> parse_head(reader::data d);

/// The horizontal header.
struct hhea {
    std::int16_t hhea_ascender = 0;
    std::int16_t hhea_descender = 0;
    std::int16_t hhea_line_gap = 0;
    std::uint16_t hhea_advance_width_max = 0;
    std::int16_t hhea_caret_slope_rise = 0;
    std::int16_t hhea_caret_slope_run = 0;
    std::uint16_t hhea_number_of_hmetrics = 0;
    bool operator==(hhea const&) const = default;
};

/// Reads "hhea" (also "vhea", which has the same layout).
[[nodiscard]] result<hhea> parse_hhea(reader::data d);

/// The maximum profile; only the glyph count matters here.
struct maxp {
    std::uint32_t maxp_version = 0;
    std::uint16_t maxp_num_glyphs = 0;
    bool operator==(maxp const&) const = default;
};

[[nodiscard]] result<maxp> parse_maxp(reader::data d);

/// Horizontal (or vertical) metrics: one advance per glyph, the last advance repeated for the glyphs
/// beyond the long metrics.
struct hmtx {
    std::vector<std::uint16_t> hmtx_advances;
    std::vector<std::int16_t> hmtx_side_bearings;
    bool operator==(hmtx const&) const = default;
};

/// Reads "hmtx" (or "vmtx") with the long-metrics count of its header and the glyph count of "maxp".
/// The long metrics must be there; side bearings cut off at the end count as zero.
[[nodiscard]] result<hmtx> parse_hmtx(reader::data d, std::uint16_t number_of_metrics, std::uint16_t num_glyphs);

/// The advance of a glyph; glyphs past the table take the last advance, and 0 if there is none.
std::uint16_t advance_of(hmtx const& m, std::uint32_t glyph);

/// The OS/2 and Windows metrics; fields of later versions than the table's are zero.
struct os2 {
    std::uint16_t os2_version = 0;
    std::int16_t os2_avg_char_width = 0;
    std::uint16_t os2_weight_class = 0;
    std::uint16_t os2_width_class = 0;
    std::uint16_t os2_fs_type = 0;
    std::int16_t os2_strikeout_size = 0;
    std::int16_t os2_strikeout_position = 0;
    std::array<std::uint8_t, 10> os2_panose{};
    std::array<std::uint32_t, 4> os2_unicode_range{};
    std::uint16_t os2_fs_selection = 0;
    std::uint16_t os2_first_char_index = 0;
    std::uint16_t os2_last_char_index = 0;
    std::int16_t os2_typo_ascender = 0;
    std::int16_t os2_typo_descender = 0;
    std::int16_t os2_typo_line_gap = 0;
    std::uint16_t os2_win_ascent = 0;
    std::uint16_t os2_win_descent = 0;
    std::array<std::uint32_t, 2> os2_code_page_range{};
    std::int16_t os2_x_height = 0;
    std::int16_t os2_cap_height = 0;
    bool operator==(os2 const&) const = default;
};

/// Reads "OS/2". Old Apple fonts end the version 0 table after usLastCharIndex (68 bytes); that is
/// accepted, the typographic metrics then stay zero.
[[nodiscard]] result<os2> parse_os2(reader::data d);

/// The PostScript table; glyph names are not read.
struct post {
    std::uint32_t post_version = 0;
    /// 16.16 fixed point, degrees counter-clockwise from vertical.
    std::int32_t post_italic_angle = 0;
    std::int16_t post_underline_position = 0;
    std::int16_t post_underline_thickness = 0;
    bool post_is_fixed_pitch = false;
    bool operator==(post const&) const = default;
};

[[nodiscard]] result<post> parse_post(reader::data d);

/// Name IDs that the system reads.
enum class name_id : std::uint16_t {
    family = 1,
    subfamily = 2,
    unique = 3,
    full_name = 4,
    postscript_name = 6,
    typographic_family = 16,
    typographic_subfamily = 17,
};

/// One record of the naming table, decoded to UTF-8 where its encoding is known.
struct name_record {
    std::uint16_t name_platform = 0;
    std::uint16_t name_encoding = 0;
    std::uint16_t name_language = 0;
    std::uint16_t name_id = 0;
    std::string name_text;
    bool operator==(name_record const&) const = default;
};

/// The naming table; records in unknown encodings are left out.
struct name {
    std::vector<name_record> name_records;
    bool operator==(name const&) const = default;
};

/// Reads "name"; records whose strings lie outside the table make it fail.
[[nodiscard]] result<name> parse_name(reader::data d);

/// The best text for an ID: Windows US English first, then any Unicode record, then Mac Roman English,
/// then anything with the ID.
[[nodiscard]] std::optional<std::string> find_name(name const& n, name_id id);

} // namespace vellum::opentype::tables
