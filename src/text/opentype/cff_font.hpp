// A CFF font program taken apart for rewriting: its DICTs with the bytes of every operand, the string and
// subroutine INDEXes, the CharStrings, the charset and, for CID-keyed fonts, the FDArray and FDSelect.
// The parts are spans into the program, which must outlive the parsed font.
#pragma once

#include "text/opentype/cff.hpp"
#include "text/opentype/reader.hpp"
#include "util/result.hpp"

#include <cstdint>
#include <string>
#include <vector>

namespace vellum::opentype::cff_font {

/// DICT operators that the rewriting looks at; the escaped ones (12 x) are 1200 + x.
namespace dict_op {
constexpr int unique_id = 13;
constexpr int xuid = 14;
constexpr int charset = 15;
constexpr int encoding = 16;
constexpr int charstrings = 17;
constexpr int private_dict = 18;
constexpr int subrs = 19;
constexpr int charstring_type = 1206;
constexpr int font_matrix = 1207;
constexpr int ros = 1230;
constexpr int cid_count = 1234;
constexpr int uid_base = 1235;
constexpr int fd_array = 1236;
constexpr int fd_select = 1237;
constexpr int font_name = 1238;
} // namespace dict_op

using cff::dict;
using cff::dict_entry;
using cff::parse_dict;

/// The last entry of an operator, or nothing.
dict_entry const* find_entry(dict const& d, int op);

/// The number of the subroutine that a charstring calls with operand n is n plus this bias, which
/// depends only on how many subroutines the INDEX holds.
int subr_bias(std::size_t subr_count);

/// The glyphs' charset: for each glyph number the string id of its name, or its CID in a CID-keyed font.
/// Glyph 0 is always 0 (.notdef). The predefined charsets (offsets 0 to 2) are not read and give an
/// empty list.
[[nodiscard]] result<std::vector<std::uint16_t>> parse_charset(reader::data d, std::size_t offset,
                                                               std::uint32_t glyph_count);

/// The font DICT of each glyph of a CID-keyed font, from FDSelect format 0 or 3.
[[nodiscard]] result<std::vector<std::uint8_t>> parse_fd_select(reader::data d, std::size_t offset,
                                                                std::uint32_t glyph_count,
                                                                std::size_t fd_count);

/// A Private DICT and the local subroutines that it points to.
struct private_dict {
    dict private_entries;
    cff::index private_subrs;
};

/// The first font of a CFF program.
struct font {
    std::string font_name;
    dict font_top;
    cff::index font_strings;
    cff::index font_global_subrs;
    cff::index font_charstrings;
    bool font_is_cid = false;
    std::vector<std::uint16_t> font_charset;
    /// CID-keyed fonts: the font DICT of each glyph, and those DICTs.
    std::vector<std::uint8_t> font_fd_select;
    std::vector<dict> font_fd_array;
    /// One for each font DICT of a CID-keyed font; one for the whole font otherwise.
    std::vector<private_dict> font_privates;
};

/// Takes a CFF program apart; fails on anything that lies outside it or is not a Type 2 font.
[[nodiscard]] result<font> parse_font(reader::data d);

/// The Private DICT of a glyph's font DICT (0 for a font that is not CID-keyed).
std::size_t private_of(font const& f, std::uint32_t glyph);

} // namespace vellum::opentype::cff_font
