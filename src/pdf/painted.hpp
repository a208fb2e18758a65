// A content stream painted ahead of writing. The operators are kept as bytes, but the strings that show
// glyphs are kept as glyphs: a font's encoding (MacRoman, one byte, two bytes) and its glyph numbers are
// settled only when subsetting has seen every page, so the codes are written when the stream is. Every
// page of a document waits for that, so its operators wait compressed.
#pragma once

#include "pdf/bulkio/output.hpp"
#include "text/fonts/fonts.hpp"
#include "text/fonts/graphemes.hpp"
#include "util/cell.hpp"

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace vellum::pdf::painted {

/// A distinct glyph of a page: the cell of its number in the PDF font, and the MacRoman code of the
/// characters it was painted for ('?' when they have none), in case the font stays MacRoman.
struct page_glyph {
    std::shared_ptr<cell<int>> page_glyph_index;
    std::uint8_t page_glyph_macroman = '?';
};

/// A string shown with one font: where it goes in the operator bytes, and its glyphs as places in the
/// page's glyph table.
struct glyph_show {
    std::uint32_t show_at = 0;
    /// Owned by the font table, which lives for the run.
    fonts::used_font const* show_font = nullptr;
    /// The font's place among the page's fonts.
    std::uint32_t show_font_index = 0;
    std::vector<std::uint32_t> show_glyphs;
};

/// A painted content stream. A page of justified text shows a string per word, so the shows are a large
/// part of a page: they wait with the operators, each as variable-length numbers (the place after the
/// previous show, the font, the count and the glyphs' places), which is about a byte a glyph.
struct recorded_content {
    /// The operators but the shown strings, then the shows, compressed by zlib once the recorder's
    /// allowance for uncompressed pages is spent (`operator_bytes` and `for_each_show` give them back);
    /// kept as they are before that, or when zlib could not start.
    std::string content_packed;
    bool content_compressed = false;
    /// The size of the operators uncompressed: the places of the shows count in it.
    std::uint32_t content_size = 0;
    /// The size of the shows uncompressed, after the operators.
    std::uint32_t content_show_size = 0;
    std::uint32_t content_show_count = 0;
    /// The fonts of the shows, each once.
    std::vector<fonts::used_font const*> content_fonts;
    std::vector<page_glyph> content_glyph_table;
};

/// Collects a content stream: operators through `output()`, shown glyphs through `show`.
class recorder {
public:
    /// What the pages of a pass may keep uncompressed together: a book of a thousand pages of text
    /// takes about 20 MB. Compressing a page and taking it back costs about as much as painting it.
    static constexpr std::size_t default_plain_allowance = std::size_t(24) << 20;

    /// `plain_allowance`: how many bytes of pages wait uncompressed, page after page, before the
    /// following pages wait compressed.
    explicit recorder(std::size_t plain_allowance = default_plain_allowance)
        : recorder_plain_left(plain_allowance) {}

    /// The sink that painting writes its operators to.
    bulkio::output::output output();

    /// Records a string of glyphs of one font (all of `glyphs` are of `font`), and records each
    /// glyph with its characters in the font's glyph table, for the ToUnicode map.
    void show(fonts::font_ref const& font, std::span<fonts::glyph const* const> glyphs);

    /// The content, leaving the recorder empty.
    recorded_content take();

    /// The operator bytes recorded so far, uncompressed.
    std::string_view bytes() const { return recorder_bytes; }

    /// The write function of the recorder's sink.
    static bool sink_write(void* target, std::uint8_t const* data, std::size_t size);

private:
    struct glyph_key {
        fonts::used_font const* key_font = nullptr;
        std::uint32_t key_source = 0;
        std::uint8_t key_macroman = 0;
        bool operator==(glyph_key const&) const = default;
    };
    /// A glyph painted before with no characters gets them from the first occurrence that has some.
    struct known_glyph {
        std::uint32_t known_place = 0;
        bool known_chars = false;
    };
    /// A slot of the table of glyphs met on the page: a slot of an earlier page counts as empty.
    struct known_slot {
        glyph_key slot_key;
        known_glyph slot_glyph;
        std::uint32_t slot_page = 0;
    };
    /// The entry of `key` on the page being painted; `fresh` when the page had not shown it before.
    known_glyph& known(glyph_key const& key, bool& fresh);
    recorded_content recorder_content;
    /// The operators of the page being painted; the buffer serves page after page.
    std::string recorder_bytes;
    /// The shows of the page being painted, encoded; likewise reused.
    std::string recorder_shows;
    std::uint32_t recorder_last_at = 0;
    /// The glyphs the page being painted has shown, by open addressing, the table serving page after
    /// page: every glyph of every page is looked up here, once per occurrence.
    std::vector<known_slot> recorder_known;
    std::size_t recorder_known_count = 0;
    /// The page being painted, counted from 1, which marks its slots.
    std::uint32_t recorder_page = 1;
    /// What is left of the allowance for pages kept uncompressed.
    std::size_t recorder_plain_left = 0;
};

/// The recorder a sink writes into, if it is one.
recorder* recorder_of(bulkio::output::output const& o);

/// The operators of a recorded content, uncompressed.
std::string operator_bytes(recorded_content const& content);

/// Calls `f` with each show of a recorded content, in order.
void for_each_show(recorded_content const& content, std::function<void(glyph_show const&)> const& f);

/// Writes the content stream, the shown strings in their fonts' final encodings.
void replay(recorded_content const& content, bulkio::output::output const& o);

/// The cells of the glyph numbers that the content shows.
void add_glyph_cells(recorded_content const& content, std::vector<cell<int> const*>& cells);

} // namespace vellum::pdf::painted
