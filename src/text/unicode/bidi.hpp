// The bidirectional class of a code point and its mirrored counterpart, and the resolution of embedding
// levels, for the bidi pass over paragraphs and over plain text.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace vellum::unicode::bidi {

/// The bidi classes of the algorithm without isolates; the isolate controls read as `on`.
enum class bidi_class : std::uint8_t {
    l,
    lre,
    lro,
    r,
    al,
    rle,
    rlo,
    pdf,
    en,
    es,
    et,
    an,
    cs,
    nsm,
    bn,
    b,
    s,
    ws,
    on,
};

/// The bidi class. Unassigned code points take the default of their block (R in Hebrew, AL in Arabic,
/// ET among currency symbols, L elsewhere); above U+10FFFF the class is `l`.
bidi_class bidi_class_of(char32_t cp);

/// The character whose glyph mirrors this one's in right-to-left text, as ")" for "(", or cp itself.
char32_t mirrored(char32_t cp);

/// One piece of the paragraph as the bidi pass sees it: a character of a text span, or a whole span of
/// another kind standing in as one object (a separator, an inline box, generated content). Its class
/// and explicit level come from the text and the embeddings around it; `level` ends as the resolved
/// level.
struct bidi_thing {
    bidi_class cls = bidi_class::on;
    int level = 0;
    /// Ignored by the rules (zero-width break opportunities, as class BN in the standard): it takes
    /// the level of what stands before it.
    bool transparent = false;
};

/// The embeddings and overrides opened by control characters (LRE, RLE, LRO, RLO and the isolates, read
/// as embeddings) in the text of one element, innermost last. They close at their PDF or PDI, or where the
/// element ends, so that an unclosed control never reaches past its element.
struct explicit_stack {
    struct entry {
        int level;
        std::optional<bidi_class> forced;
    };
    std::vector<entry> entries;
};

/// Whether the class is strong right-to-left (R or AL).
bool is_strong_rtl(bidi_class c);

/// The next embedding level above `level` of the given direction; `level` itself past the deepest.
int next_level(int level, bool rtl);

/// The direction of the first strong character from `from` on (skipping isolated text), for a
/// first-strong isolate and for the paragraph direction of plain text.
bool first_strong_rtl(std::u32string_view text, std::size_t from);

/// Adds one thing per code point of `text` at the embedding `level` (or at that of an embedding its
/// control characters opened), its class forced by an override if one is open. `needed` turns true
/// once anything right-to-left appears.
void add_text(std::u32string_view text, int level, std::optional<bidi_class> forced, explicit_stack& stack,
              std::vector<bidi_thing>& things, bool& needed);

/// The weak, neutral and implicit rules over all the things, and the reset of segment separators to
/// the paragraph's level `base`: each thing's `level` ends resolved.
void resolve(std::vector<bidi_thing>& things, int base);

/// The resolved level of each code point of plain text in a paragraph of the given direction.
std::vector<int> levels_of(std::u32string_view text, bool base_rtl);

/// The visual order of a line from its levels: indices into the levels, left to right, with each
/// sequence at an odd level or above reversed as the reordering rule says.
std::vector<std::size_t> visual_order(std::vector<int> const& levels);

} // namespace vellum::unicode::bidi
