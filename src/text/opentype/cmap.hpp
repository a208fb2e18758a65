// The character-to-glyph map: choice of a subtable by encoding, and lookups in the subtable formats
// 0, 2, 4, 6, 10, 12 and 13. Lookups read the raw bytes with checks on every access, so a subtable that
// lies about its lengths gives no glyph instead of a read outside the table.
#pragma once

#include "text/opentype/reader.hpp"
#include "util/result.hpp"

#include <cstdint>
#include <vector>

namespace vellum::opentype::cmap {

/// One encoding record of the table.
struct encoding_record {
    std::uint16_t record_platform = 0;
    std::uint16_t record_encoding = 0;
    std::uint32_t record_offset = 0;
    /// The subtable's format number.
    std::uint16_t record_format = 0;
    bool operator==(encoding_record const&) const = default;
};

/// The encoding records whose subtables start inside the table.
struct cmap {
    std::vector<encoding_record> cmap_records;
    bool operator==(cmap const&) const = default;
};

/// Reads the encoding records; a record that points outside the table is dropped.
[[nodiscard]] result<cmap> parse_cmap(reader::data d);

/// What the codes of a subtable mean.
enum class cmap_encoding { unicode, symbol, apple_roman };

/// A chosen subtable.
struct subtable {
    cmap_encoding subtable_encoding = cmap_encoding::unicode;
    std::uint32_t subtable_offset = 0;
    std::uint16_t subtable_format = 0;
    bool operator==(subtable const&) const = default;
};

/// Picks a Unicode subtable (full repertoire first, then the basic plane), else a symbol one (Windows
/// encoding 0), else Apple Roman (Mac encoding 0), among the formats that lookups understand.
[[nodiscard]] result<subtable> choose_subtable(cmap const& c);

/// The glyph of a code in a subtable of the cmap bytes; 0 when there is none or the data is bad.
std::uint32_t lookup(reader::data d, subtable const& s, std::uint32_t code);

} // namespace vellum::opentype::cmap
