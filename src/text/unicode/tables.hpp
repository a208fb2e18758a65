// The compiled Unicode property tables and their two-stage lookup; used by the unicode modules only.
#pragma once

#include <cstdint>

namespace vellum::unicode::tables {

/// A property as two stages: block numbers by the high bits of a code point, then blocks of 256 values.
struct two_stage {
    std::uint16_t const* two_stage_blocks = nullptr;
    std::uint8_t const* two_stage_values = nullptr;
};

/// A code point mapping held as a two-stage table of indexes into a list of deltas.
struct delta_map {
    two_stage delta_map_index;
    std::int32_t const* delta_map_deltas = nullptr;
};

/// The version of the Unicode Character Database the tables were made from, as "15.0.0".
extern char const* const version;

extern two_stage const category;
extern two_stage const bidi;
extern two_stage const joining;
extern two_stage const script;
extern two_stage const grapheme;
extern two_stage const line_break;
extern two_stage const vertical;
extern delta_map const lower;
extern delta_map const upper;
extern delta_map const mirror;

/// Flags stored above the class in the line-break table.
inline constexpr std::uint8_t line_break_class_mask = 0x3F;
inline constexpr std::uint8_t line_break_east_asian = 0x40;
inline constexpr std::uint8_t line_break_pictographic_reserved = 0x80;

/// The value of a code point; code points beyond U+10FFFF take `fallback`.
inline std::uint8_t lookup(two_stage const& t, char32_t cp, std::uint8_t fallback) {
    if (cp > 0x10FFFF) {
        return fallback;
    }
    return t.two_stage_values[(std::uint32_t{t.two_stage_blocks[cp >> 8]} << 8) | (cp & 0xFF)];
}

/// The mapped code point, or cp itself where the mapping has no entry.
inline char32_t map(delta_map const& m, char32_t cp) {
    if (cp > 0x10FFFF) {
        return cp;
    }
    return static_cast<char32_t>(static_cast<std::int32_t>(cp) +
                                 m.delta_map_deltas[lookup(m.delta_map_index, cp, 0)]);
}

} // namespace vellum::unicode::tables
