// Line-break classes and the break opportunities of a run of text: a pair table over the classes of
// the two characters around each position, with the few rules that need more context beside it.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

namespace vellum::unicode::linebreak {

/// The line-breaking classes of a code point, with their usual two-letter names in lower case.
enum class line_break_class : std::uint8_t {
    bk,  ///< mandatory break (form feed, line and paragraph separators)
    cr,  ///< carriage return
    lf,  ///< line feed
    cm,  ///< combining mark: takes the class of its base
    nl,  ///< next line (U+0085)
    sg,  ///< surrogate
    wj,  ///< word joiner: no break on either side
    zw,  ///< zero width space: break opportunity
    gl,  ///< non-breaking "glue", as no-break space
    sp,  ///< space
    zwj, ///< zero width joiner
    b2,  ///< break opportunity before and after (em dash)
    ba,  ///< break after (hyphens that are not HY, tab)
    bb,  ///< break before
    hy,  ///< hyphen-minus
    cb,  ///< contingent break (object replacement character)
    cl,  ///< closing punctuation
    cp,  ///< closing parenthesis
    ex,  ///< exclamation and interrogation
    in,  ///< inseparable (leaders)
    ns,  ///< nonstarter (small kana, iteration marks)
    op,  ///< opening punctuation
    qu,  ///< ambiguous quotation mark
    is,  ///< infix numeric separator (comma, full stop)
    nu,  ///< digit
    po,  ///< postfix numeric (percent sign)
    pr,  ///< prefix numeric (currency signs)
    sy,  ///< solidus: allows a break after, not before, a number
    ai,  ///< ambiguous alphabetic or ideographic
    al,  ///< alphabetic and ordinary symbols
    cj,  ///< conditional Japanese starter (small kana)
    eb,  ///< emoji base
    em,  ///< emoji modifier
    h2,  ///< Hangul LV syllable
    h3,  ///< Hangul LVT syllable
    hl,  ///< Hebrew letter
    id,  ///< ideographic
    jl,  ///< Hangul leading jamo
    jt,  ///< Hangul trailing jamo
    jv,  ///< Hangul vowel jamo
    ri,  ///< regional indicator
    sa,  ///< complex context (Thai, Lao, Khmer, Myanmar ...)
    xx,  ///< unknown
};

/// The number of line-break classes.
inline constexpr int line_break_class_count = 43;

/// The class as the character data gives it; unassigned code points and those above U+10FFFF are `xx`
/// unless their block defaults to another (ideographic planes are `id`, currency symbols `pr`).
line_break_class line_break_class_of(char32_t cp);

/// What may happen between two characters.
enum class break_action : std::uint8_t {
    prohibited, ///< the line must not end here
    allowed,    ///< the line may end here
    mandatory,  ///< the line must end here (after a line feed, a paragraph separator ...)
};

/// For each code point of the text, what may happen between it and the next one; the entry of the last
/// is `mandatory`, the end of the text. Pass whole paragraphs: the rules look past element boundaries.
/// Complex-context scripts (Thai ...) get no breaks inside words (that needs a dictionary), ambiguous
/// characters count as alphabetic and conditional Japanese starters as nonstarters, the strict choice.
std::vector<break_action> break_opportunities(std::u32string_view text);

} // namespace vellum::unicode::linebreak
