// Text of a line as PDF text objects: graphemes grouped into runs of one font and size, each run placed
// where layout put it and written in its font's encoding; imitated bold and italic; and the decoration
// lines (underline, overline, line-through) of a run.
#pragma once

#include "css/style.hpp"
#include "driver/log.hpp"
#include "pack/boxes.hpp"
#include "pdf/content.hpp"

#include <set>
#include <span>
#include <string>

namespace vellum::pdf::paint_text {

struct text_options {
    /// Imitate a bold or italic face that the font lacks.
    bool artificial_fonts = false;
};

/// Where the text position stands inside an open text object: the origin of the last "Td" or "Tm",
/// and whether that matrix was slanted for an imitated italic.
struct text_cursor {
    double cursor_x = 0;
    double cursor_y = 0;
    bool cursor_slanted = false;
};

/// The bytes that show glyphs in their font's encoding as the font's PDF objects read them: a MacRoman
/// code, a one-byte glyph number of a small subset, or two bytes of the glyph number for an Identity
/// font. Each glyph is recorded in its font with its characters.
std::string glyph_bytes(std::span<fonts::glyph const* const> glyphs);

/// Paints a run's graphemes inside an open text object, from x on the baseline y, in the style's font
/// size, colour and spacing. `context_alpha` is the opacity in force.
void paint_chars(content::out const& o,
                 content::gs& g,
                 text_cursor& cursor,
                 pack::charsbox const& run,
                 double baseline,
                 css::style::style const& style,
                 double context_alpha,
                 text_options const& options);

/// Paints graphemes from x on the baseline inside an open text object, as an ellipsis is painted.
void paint_graphemes(content::out const& o,
                     content::gs& g,
                     text_cursor& cursor,
                     std::span<fonts::grapheme const> graphemes,
                     double x,
                     double baseline,
                     css::style::style const& style,
                     double context_alpha,
                     text_options const& options);

/// Which decoration lines go before the text (underline, overline) and which after (line-through).
enum class decoration_layer { under_text, over_text };

/// Paints the style's decoration lines of one layer across a run from x over width, on the baseline,
/// placed by the font's underline position and thickness.
void paint_decorations(content::out const& o,
                       content::gs& g,
                       decoration_layer layer,
                       double x,
                       double width,
                       double baseline,
                       css::style::style const& style,
                       font_metrics::font_metrics_scaled const& metrics,
                       double context_alpha);

/// Whether a run shows glyphs or decorations at all (newlines and indents don't).
bool shows(pack::charsbox const& run);

/// Adds the ids of the fonts that graphemes use.
void add_font_ids(std::span<fonts::grapheme const> graphemes, std::set<int>& ids);

} // namespace vellum::pdf::paint_text
