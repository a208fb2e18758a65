// The fixed description of a font face: names, style classes, metrics in font units, licence bits
// and the kind of outlines.
#pragma once

#include "text/truetype.hpp"
#include "text/truetype/embedding.hpp"

#include <optional>
#include <string>

namespace vellum::font_info {

/// Vertical metrics in font units; height is ascender - descender + line gap.
struct font_metrics {
    int ascender = 0;
    int descender = 0;
    int height = 0;
    int line_gap = 0;
    bool operator==(font_metrics const&) const = default;
};

/// The bounding box of all glyphs, in font units.
struct font_bbox {
    int x_min = 0;
    int y_min = 0;
    int x_max = 0;
    int y_max = 0;
    bool operator==(font_bbox const&) const = default;
};

/// TrueType quadratic outlines in "glyf", or a CFF font program.
enum class font_outlines { ttf_outlines, cff_outlines };

/// What a font file says about itself.
struct font_info {
    std::string family_name;
    std::optional<std::string> style_name;
    /// The PostScript name used as the PDF font's BaseFont.
    std::string basefont;
    bool is_italic = false;
    bool is_monospace = false;
    truetype::truetype_weight truetype_weight = truetype::truetype_weight::normal;
    truetype::truetype_width truetype_width = truetype::truetype_width::normal;
    struct font_metrics font_metrics;
    struct font_bbox font_bbox;
    int units_per_em = 0;
    int underline_position = 0;
    int underline_thickness = 0;
    int italic_angle = 0;
    int stem_v = 0;
    int cap_height = 0;
    int first_char_os2 = 32;
    truetype::embedding::embedding embedding;
    font_outlines outlines = font_outlines::ttf_outlines;
    bool operator==(font_info const&) const = default;
};

/// "Family Style" for messages.
std::string describe(font_info const& info);

} // namespace vellum::font_info
