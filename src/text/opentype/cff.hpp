// The header of a CFF font program ("CFF " table of OpenType fonts with PostScript outlines): its
// INDEX structures and the top DICT, enough to name the font, count its glyphs and find its parts.
// Charstrings themselves are not interpreted; such fonts are embedded whole.
#pragma once

#include "text/opentype/reader.hpp"
#include "util/result.hpp"

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace vellum::opentype::cff {

/// The items of a CFF INDEX, as spans into the font program.
struct index {
    std::vector<reader::data> index_items;
    /// The offset just past the INDEX.
    std::size_t index_end = 0;
};

/// Reads an INDEX at an offset; every item must lie inside the data.
[[nodiscard]] result<index> parse_index(reader::data d, std::size_t offset);

/// One operator of a DICT with the operands before it, both as numbers and as the bytes that encode
/// them, so that an entry can be copied unchanged.
struct dict_entry {
    int entry_op = 0;
    std::vector<double> entry_operands;
    reader::data entry_operand_bytes;
};

using dict = std::vector<dict_entry>;

/// Reads a DICT: operands (integers of 1 to 5 bytes, reals of nibbles) each followed by an operator;
/// escaped operators (12 x) are 1200 + x.
[[nodiscard]] result<dict> parse_dict(reader::data d);

/// An operand that must be a non-negative offset or count within 32 bits.
[[nodiscard]] result<std::uint32_t> as_offset(double v);

/// What the top DICT of the first font says.
struct cff_info {
    std::uint8_t cff_major = 0;
    std::uint8_t cff_minor = 0;
    std::string cff_font_name;
    std::uint32_t cff_glyph_count = 0;
    /// 2 unless the top DICT says otherwise.
    int cff_charstring_type = 2;
    /// A CID-keyed font (the top DICT has a ROS entry).
    bool cff_is_cid = false;
    std::uint32_t cff_charstrings_offset = 0;
    std::uint32_t cff_private_size = 0;
    std::uint32_t cff_private_offset = 0;
    std::array<double, 4> cff_font_bbox{};
    bool operator==(cff_info const&) const = default;
};

/// Reads the header, the name INDEX, the top DICT INDEX and the CharStrings INDEX that it points to.
[[nodiscard]] result<cff_info> parse_cff(reader::data d);

} // namespace vellum::opentype::cff
