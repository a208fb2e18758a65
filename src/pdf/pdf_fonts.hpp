// The PDF objects of the fonts a document uses: for each used font a simple font (MacRoman codes, or
// one-byte glyph numbers of a small subset) or a Type 0 font over a CID font (two-byte glyph numbers),
// with its descriptor, widths, ToUnicode map and embedded font file.
#pragma once

#include "driver/log.hpp"
#include "pdf/object.hpp"
#include "pdf/pdf.hpp"
#include "pdf/writepdf.hpp"
#include "text/fonts/fonts.hpp"

#include <cstdint>
#include <map>
#include <string>
#include <unordered_set>

namespace vellum::pdf::pdf_fonts {

/// What the options say about writing fonts.
struct font_options {
    /// Embed MacRoman fonts too; the other forms are embedded in any case.
    bool font_embed = true;
    /// Compress the ToUnicode map; font files are compressed whatever this says.
    bool font_compress = true;
    bool operator==(font_options const&) const = default;
};

/// /BaseFont and /FontName: the font's PostScript-style name, behind the subset tag and "+" once the font
/// has a subset.
std::string base_font_name(fonts::font_ref const& font);

/// The bytes of a text string that show one glyph, as the font's encoding has them: the MacRoman code
/// of its (first) character, its number as one byte, or its number as two bytes, high byte first. A
/// character outside MacRoman in a MacRoman font shows as "?".
std::string glyph_code(fonts::font_pdf_encoding encoding, int glyph_number, std::u32string_view chars);

/// Writes the objects of one used font, the font dictionary under the number reserved for it. Ends the
/// run with "could not get font bytes" when the file to embed cannot be read.
void write_font(log::log const& log,
                writer& w,
                fonts::font_ref const& font,
                ref font_dict,
                font_options const& options);

/// The glyphs of the used fonts that a file needs, when its pages were painted ahead of writing: a font's
/// glyph table also holds what layout measured and did not keep (words of a pass laid out again,
/// trials of breaks), and that has no place in the file.
struct glyph_needs {
    /// The glyphs a font (by id) had before layout began or that painting added (the text of drawings):
    /// that many at the head of its table, and the cells of others.
    std::map<int, std::size_t> needs_kept_heads;
    std::unordered_set<cell<int> const*> needs_kept;
    /// The glyphs the pages show.
    std::unordered_set<cell<int> const*> needs_shown;
};

/// Readies a document's fonts before its pages are written: with subsetting on, each used font is cut
/// down and its glyphs renumbered (so that painting, which reads the numbers, must come after); then the
/// used fonts' ids go into the document and its font hook writes them with the document's options.
/// With `needs`, a font's glyph table is first cut down to the glyphs needed, and a font with none
/// left is not written at all.
void attach_fonts(log::log const& log,
                  writepdf::pdf_document& doc,
                  fonts::fonts const& db,
                  glyph_needs const* needs = nullptr);

} // namespace vellum::pdf::pdf_fonts
