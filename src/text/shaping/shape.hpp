// Shaping a run of glyphs of one font and one script: the font's GSUB features substitute glyphs (with
// Arabic joining forms and Indic reordering where the script needs them), its GPOS features position
// them, and the result becomes the graphemes that layout measures and the painter draws.
#pragma once

#include "driver/log.hpp"
#include "text/font_data.hpp"
#include "text/fonts/fonts.hpp"
#include "text/fonts/graphemes.hpp"
#include "text/opentype/reader.hpp"
#include "text/shaping/buffer.hpp"
#include "text/unicode/script.hpp"

#include <vector>

namespace vellum::shaping::shape {

/// What a run is shaped with besides its glyphs.
struct run_request {
    fonts::direction run_direction = fonts::direction::ltr;
    unicode::script::script run_script = unicode::script::script::latn;
    /// The OpenType language system tag; 0 for the script's default.
    opentype::reader::tag run_language = 0;
    /// Features asked for by the document, added to the defaults; a parameter of 0 turns one off.
    std::vector<fonts::feature> run_features;
    bool run_kerning = true;
    /// Set in vertical lines: the font's vertical forms replace glyphs that turn or move there.
    bool run_vertical = false;
};

/// The OpenType script tags for a script, the preferred first ("dev2" before "deva").
std::vector<opentype::reader::tag> script_tags(unicode::script::script s);

/// Whether the font's GSUB table has a feature for a script (by its script record or the default one).
bool has_substitution_feature(font_data::font_data const& font, unicode::script::script s, opentype::reader::tag feature);

/// Shapes glyphs in logical order (each with its glyph number and characters) and positions them in font
/// units, as GPOS leaves them with attachments resolved: offsets from the pen, and advances.
buffer::glyphs shape_glyphs(log::log const& log,
                            font_data::font_data const& font,
                            run_request const& request,
                            buffer::glyphs glyphs);

/// Shapes glyphs of one font into graphemes: a base glyph with the marks placed on it, kerning as a change
/// of its advance, and its shift from the pen.
std::vector<fonts::grapheme> shape_font_run(log::log const& log,
                                            run_request const& request,
                                            std::vector<fonts::raw_glyph> const& glyphs);

} // namespace vellum::shaping::shape
