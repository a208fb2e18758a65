// Text as the layout measures it: characters mapped through a font request to glyphs, grouped into
// graphemes with their marks and placements, and the widths and fitting of runs of them.
#pragma once

#include "text/font_metrics.hpp"
#include "text/fonts/fonts.hpp"
#include "util/pos.hpp"

#include <algorithm>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string_view>
#include <variant>
#include <vector>

namespace vellum::fonts {

/// A glyph ready to be measured and painted.
struct glyph {
    font_ref glyph_font_ref;
    /// The glyph's number in the PDF font; shared by every use of the same glyph of the font.
    std::shared_ptr<cell<int>> glyph_index;
    /// The glyph's number in the font file.
    std::uint32_t glyph_source = 0;
    /// The code points it stands for.
    unicode::unicodes glyph_unicodes;
    /// In font units.
    int glyph_advance = 0;
    /// In ems.
    float glyph_hori_advance = 0;
    float glyph_vert_advance = 0;
    bool glyph_small_caps = false;
    bool glyph_is_vert_alt = false;
    bool operator==(glyph const&) const = default;
};

/// No adjustment.
struct no_place_adjust {
    bool operator==(no_place_adjust const&) const = default;
};

/// Cursive attachment: the exit point of the previous glyph meets the entry point of this one (ems).
struct anchor {
    util::pos::pos anchor_exit;
    util::pos::pos anchor_entry;
    bool operator==(anchor const&) const = default;
};

/// A shift of the glyph (ems).
struct distance {
    float distance_x = 0;
    float distance_y = 0;
    bool operator==(distance const&) const = default;
};

using place_adjust = std::variant<no_place_adjust, anchor, distance>;

/// A mark placed on its base.
struct mark {
    glyph mark_glyph;
    place_adjust mark_place;
    bool operator==(mark const&) const = default;
};

/// The characters of a cluster whose glyphs stand in another order than its characters (an Indic
/// syllable with a vowel sign written before its consonant): the text that copying it should give.
struct cluster_text {
    unicode::unicodes cluster_chars;
    /// The number of graphemes of the cluster, this one first.
    std::uint32_t cluster_graphemes = 0;
    bool operator==(cluster_text const&) const = default;
};

/// A base glyph with its marks: the unit that is measured, and the smallest unit a line may break.
struct grapheme {
    glyph base_glyph;
    place_adjust grapheme_place;
    /// A change of the advance by kerning, in ems.
    std::optional<float> grapheme_kerning;
    std::vector<mark> grapheme_marks;
    /// On the first grapheme of a reordered cluster; no line is broken inside the cluster.
    std::shared_ptr<cluster_text const> grapheme_cluster;
    bool operator==(grapheme const& other) const {
        return base_glyph == other.base_glyph && grapheme_place == other.grapheme_place &&
               grapheme_kerning == other.grapheme_kerning && grapheme_marks == other.grapheme_marks &&
               (grapheme_cluster == other.grapheme_cluster ||
                (grapheme_cluster && other.grapheme_cluster && *grapheme_cluster == *other.grapheme_cluster));
    }
};

/// Shaped graphemes, shared: layout copies its items and boxes many times while lines are tried and
/// split, and graphemes never change once measured, so a copy shares them instead of copying each glyph.
class shared_graphemes {
public:
    shared_graphemes() = default;

    shared_graphemes(std::vector<grapheme> g)
        : list(g.empty() ? nullptr : std::make_shared<std::vector<grapheme> const>(std::move(g))) {}

    std::span<grapheme const> view() const {
        return list ? std::span<grapheme const>(*list) : std::span<grapheme const>{};
    }

    operator std::span<grapheme const>() const { return view(); }

    auto begin() const { return view().begin(); }

    auto end() const { return view().end(); }

    std::size_t size() const { return list ? list->size() : 0; }

    bool empty() const { return size() == 0; }

    grapheme const& operator[](std::size_t i) const { return (*list)[i]; }

    grapheme const& front() const { return list->front(); }

    grapheme const& back() const { return list->back(); }

    /// A copy of its own, to change.
    std::vector<grapheme> to_vector() const { return list ? *list : std::vector<grapheme>{}; }

    bool operator==(shared_graphemes const& other) const { return std::ranges::equal(view(), other.view()); }

private:
    std::shared_ptr<std::vector<grapheme> const> list;
};

/// The direction of writing of a run.
enum class direction { ltr, rtl };

/// The measured glyph for a raw glyph; its PDF index cell is shared through the font's glyph cache.
glyph make_glyph(raw_glyph const& raw);

/// Maps text through a request: split by script, each character to a glyph (with synthesised small
/// capitals), one grapheme per glyph.
std::vector<grapheme>
text_to_graphemes(fonts const& db, font_req const& req, direction dir, std::u32string_view text);

/// The largest ascent and descent among the base glyphs' fonts at a size (0.8 of it for small capitals).
font_metrics::font_metrics_scaled graphemes_metrics(std::span<grapheme const> graphemes, double size);

/// Whether a grapheme stands upright in vertical text, taking the font's vertical advance along the
/// line: a vertical form from the font, or a character that keeps its upright form (ideographs, kana).
/// Other text lies sideways, as it does in the turned line.
bool stands_upright(grapheme const& g);

/// The width of a run: the end of its last grapheme, plus the letter spacing after each grapheme.
float graphemes_width(
    bool reversed, bool vertical, std::span<grapheme const> graphemes, float letter_spacing, float size);

/// The graphemes that fit a width, cut where a grapheme cluster ends, with their width.
struct fit {
    std::vector<grapheme> fit_first;
    std::vector<grapheme> fit_rest;
    float fit_width = 0;
};

/// Cuts a run to a width; nothing when no allowed cut lets anything fit.
[[nodiscard]] std::optional<fit> fit_graphemes(
    bool vertical, std::span<grapheme const> graphemes, float letter_spacing, float size, float width);

} // namespace vellum::fonts
