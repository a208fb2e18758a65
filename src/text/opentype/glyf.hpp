// TrueType outlines: glyph locations from "loca", glyph headers and the components of composite glyphs
// from "glyf", as subsetting and bounding boxes need them. Outlines themselves are not decoded.
#pragma once

#include "text/opentype/reader.hpp"
#include "util/result.hpp"

#include <cstdint>
#include <optional>
#include <vector>

namespace vellum::opentype::glyf {

/// Where each glyph lies in "glyf": num_glyphs + 1 offsets, never decreasing, the last within "glyf".
struct loca {
    std::vector<std::uint32_t> loca_offsets;
    bool operator==(loca const&) const = default;
};

/// Reads "loca" in the format of head.indexToLocFormat (0: halved 16-bit offsets, 1: 32-bit), checking
/// it against the length of "glyf".
[[nodiscard]] result<loca> parse_loca(reader::data d, std::int16_t index_to_loc_format, std::uint16_t num_glyphs,
                                      std::size_t glyf_length);

/// A glyph's bytes in "glyf" (empty for a glyph without outline); nothing for a glyph number beyond
/// the table.
[[nodiscard]] std::optional<reader::data> glyph_data(loca const& l, reader::data glyf, std::uint32_t glyph);

/// The header of a glyph.
struct glyph_header {
    /// -1 (or any negative) for a composite glyph.
    std::int16_t glyph_contours = 0;
    std::int16_t glyph_x_min = 0;
    std::int16_t glyph_y_min = 0;
    std::int16_t glyph_x_max = 0;
    std::int16_t glyph_y_max = 0;
    bool operator==(glyph_header const&) const = default;
};

[[nodiscard]] result<glyph_header> parse_glyph_header(reader::data glyph);

/// One component of a composite glyph.
struct component {
    std::uint16_t component_flags = 0;
    std::uint16_t component_glyph = 0;
    /// Offset of the glyph number within the glyph's bytes, where a subsetter rewrites it.
    std::uint32_t component_glyph_offset = 0;
    bool operator==(component const&) const = default;
};

/// The components of a composite glyph, walked by their flags; empty for a simple glyph.
[[nodiscard]] result<std::vector<component>> parse_components(reader::data glyph);

} // namespace vellum::opentype::glyf
