// The bidirectional class of a code point and its mirrored counterpart, for the bidi pass over paragraphs.
#pragma once

#include <cstdint>

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

} // namespace vellum::unicode::bidi
