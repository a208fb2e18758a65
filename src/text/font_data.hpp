// A loaded font face: its description, the tables read at once (cmap, head, hhea, hmtx, maxp), the
// chosen cmap subtable, and tables read on first use (GDEF, GPOS, GSUB, vhea, vmtx, kern).
#pragma once

#include "driver/log.hpp"
#include "text/font_info.hpp"
#include "text/font_metrics.hpp"
#include "text/fonts/freetype.hpp"
#include "text/opentype/cmap.hpp"
#include "text/opentype/tables.hpp"
#include "util/bytes.hpp"
#include "util/cell.hpp"
#include "util/ref.hpp"
#include "util/result.hpp"

#include <array>
#include <map>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <variant>

namespace vellum::font_data {

/// The raw tables read when the font is loaded.
struct font_tables {
    bytes::bytes font_tables_cmap;
    bytes::bytes font_tables_head;
    bytes::bytes font_tables_hhea;
    bytes::bytes font_tables_hmtx;
    bytes::bytes font_tables_maxp;
};

/// A table read on first use.
struct loaded {
    bytes::bytes loaded_bytes;
};

struct not_loaded {};

/// Missing or unreadable; never tried again.
struct unloadable {};

using font_table = std::variant<loaded, not_loaded, unloadable>;

/// The tables that are read lazily.
enum class lazy_table { gdef, gpos, gsub, vhea, vmtx, kern };

/// Vertical metrics when the font has them.
struct vertical_metrics {
    opentype::tables::hmtx vertical_advances;
};

/// The mutable part of a font: caches and lazily read tables.
struct font_state {
    std::unordered_map<char32_t, std::uint32_t> state_unicache;
    std::array<font_table, 6> state_tables{not_loaded{}, not_loaded{}, not_loaded{},
                                           not_loaded{}, not_loaded{}, not_loaded{}};
    /// Set once vhea and vmtx have been looked for; nothing inside when they are absent or bad.
    std::optional<std::optional<vertical_metrics>> state_vertical;
    /// Metrics by font size.
    std::map<double, font_metrics::font_metrics_scaled> state_size_cache;
};

/// A font face that loaded.
struct font_data {
    font_info::font_info font_info;
    struct font_tables font_tables;
    fonts::freetype::face font_face;
    /// Where the font came from, for messages.
    std::string font_location;
    std::uint16_t font_num_glyphs = 0;
    opentype::tables::hmtx font_hmtx;
    opentype::cmap::subtable font_cmap_subtable;
    std::shared_ptr<cell<struct font_state>> font_state = std::make_shared<cell<struct font_state>>();
};

/// Where the bytes of a font come from.
struct font_file {
    /// The whole file (sfnt, collection or WOFF); empty to read from the path.
    bytes::bytes file_bytes;
    std::string file_path;
    long file_face_index = 0;
};

/// Loads a font face: WOFF is unpacked first, the fixed tables read and described, the cmap subtable
/// chosen and the embedding bits tested. A failure is logged as a warning about the font's location and
/// also returned.
[[nodiscard]] result<ref<font_data>> load_font(log::log const& log, fonts::freetype::freetype const& ft,
                                               font_file const& file, std::string const& location);

/// The same from sfnt tables handed over by a reader function (used by load_font and the fuzz target);
/// it does no logging and does not test the embedding bits.
using table_reader = std::optional<bytes::bytes> (*)(void const* context, opentype::reader::tag t);

[[nodiscard]] result<font_info::font_info> describe_font(table_reader read, void const* context);

/// The glyph of a character by the rules of the font's cmap encoding; 0 for none, also when the cmap
/// names a glyph that the font does not have.
std::uint32_t char_to_glyph(font_data const& font, char32_t c);

/// The horizontal advance in font units.
int glyph_advance(font_data const& font, std::uint32_t glyph);

/// The vertical advance in font units, from vmtx if the font has vertical metrics, else the height
/// ascender - descender.
int glyph_vert_advance(font_data const& font, std::uint32_t glyph);

/// The font's metrics at a size, cached per size.
font_metrics::font_metrics_scaled scaled_metrics(font_data const& font, double size);

/// A table read on first use; nothing when the font lacks it.
[[nodiscard]] std::optional<bytes::bytes> get_lazy_table(font_data const& font, lazy_table t);

} // namespace vellum::font_data
