// Text preparation: the text of a document node cut into word runs and separators by white-space,
// with case transformed, break opportunities between the characters of words marked, and soft and hard
// hyphens noted. Nothing is measured; all text stays in code points, held once in the paragraph text
// that the text spans are ranges of.
#pragma once

#include "css/text.hpp"
#include "prepack/prepack.hpp"
#include "util/textbuf.hpp"

#include <optional>
#include <string_view>
#include <vector>

namespace vellum::prepack::text {

/// The width of a fixed-width space character; nothing for every other character (U+2007 included:
/// figure spaces are kept as ordinary characters, so that columns of figures stay aligned).
[[nodiscard]] std::optional<space_width> fixed_space_width(char32_t c);

/// Whether a character belongs to a word: none of space, CR, LF, tab, U+200B, nor a fixed-width space.
bool is_word_char(char32_t c);

/// What text preparation reads from the style of the text's element.
struct text_settings {
    css::text::white_space white_space = css::text::white_space::normal;
    css::text::text_transform transform = css::text::text_transform::none;
    /// `break-all` lets a line end between any two letters; `keep-all` keeps CJK letters together.
    css::text::word_break word_break = css::text::word_break::normal;
};

/// The text settings of a style.
text_settings settings_of(css::style::style const& s);

/// The case transformation; `at_word_start` says whether the text begins a word (for capitalize) and is
/// updated to say whether the next text would.
textbuf::textbuf transform_case(std::u32string_view text, css::text::text_transform t, bool& at_word_start);

/// Tab stops in preserved white space fall every this many columns (the initial `tab-size` of CSS; the
/// style has no property to change it).
inline constexpr int tab_stop = 8;

/// Where text preparation stands in a paragraph, carried from one text node to the next.
struct text_position {
    /// Whether the next text begins a word (for capitalize).
    bool at_word_start = true;
    /// The column of the current line, in characters from the paragraph's start or its last preserved
    /// line end: where a preserved tab stands decides how far it reaches.
    int column = 0;
};

/// The spans of one text node, whose words are appended to the paragraph text `store` (which `text`
/// must not lie in) and are ranges of it. Collapsible white space gives one `space` per run (or
/// `nowrap_space` under nowrap); spaces across node boundaries and at the ends of paragraphs are settled
/// later by `collapse_spaces`. Under pre and pre-wrap a tab becomes the preserved spaces that reach the
/// next tab stop.
std::vector<span> prepare_text(textbuf::textbuf& store,
                               std::u32string_view text,
                               text_settings const& settings,
                               text_position& position);

/// The same for text that starts a paragraph of its own.
std::vector<span> prepare_text(textbuf::textbuf& store,
                               std::u32string_view text,
                               text_settings const& settings,
                               bool& at_word_start);

/// Settles collapsible spaces across a paragraph, looking into nested spans: a run of `space` or
/// `nowrap_space` separators keeps its first, and those at the start and end of the paragraph and
/// around a preserved newline go. Nested spans left empty stay, for their borders and element values.
void collapse_spaces(std::vector<span>& spans);

/// Whether a paragraph's spans hold anything but collapsible spaces and empty nested spans.
bool has_content(std::vector<span> const& spans);

/// The embedding pass over a paragraph: when the paragraph is right-to-left, uses an embedding, or
/// holds a strong right-to-left character, its text is given levels by the bidirectional algorithm and
/// runs of a level above their context's are wrapped in spans with that `span_direction`, which carry
/// the inherited style of the element or paragraph they lie in (no borders, padding or background of
/// their own). Separators and inline objects take part as neutrals. `text` is the paragraph text that
/// the text spans are ranges of.
void apply_bidi(std::vector<span>& spans, std::u32string_view text, css::style::style const& paragraph_style);

} // namespace vellum::prepack::text
