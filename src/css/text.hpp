// The value types of text properties: white space, alignment, case, hyphenation, decoration lines,
// and the text_props group that a child shares with its parent while none of them change.
#pragma once

#include "css/box.hpp"
#include "css/value.hpp"

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace vellum::css::text {

enum class white_space { normal, pre, nowrap, pre_wrap, pre_line };
/// `auto` and `start` align to the start side of the paragraph's direction, `end` to the other.
enum class text_align { auto_, left, right, inside, outside, center, justify, start, end };
enum class text_transform { none, lowercase, uppercase, capitalize };
enum class text_justify { auto_, cjk };
enum class hyphens { none, manual, auto_, vellum_expand_all };
enum class overflow_wrap { normal, break_word };
enum class word_break { normal, break_all, keep_all };
enum class text_line_style { none, solid, double_, dotted, dashed, wavy };
enum class line_stacking_strategy { inline_line_height, block_line_height, max_height, grid_height };
enum class linebreak_magic { auto_, none };

/// "no-limit" on consecutive hyphenated lines.
struct no_limit {
    bool operator==(no_limit const&) const = default;
};

/// The most consecutive hyphenated lines.
using hyphenate_lines = std::variant<no_limit, int>;

/// Hyphenation pattern files to use in place of the built-in ones; empty for "none".
using hyphenate_patterns = std::vector<value::url>;

/// Pairs of text to find and text to put in its place; empty for "none".
using text_replace = std::vector<std::pair<std::string, std::string>>;

/// The language a property names for hyphenation and shaping; nothing for "none".
using lang = std::optional<std::string>;

/// Text properties that rarely change from parent to child.
struct text_props {
    overflow_wrap text_props_overflow_wrap = overflow_wrap::normal;
    text_align text_props_text_align = text_align::auto_;
    text_align text_props_text_align_last = text_align::auto_;
    box::length_or_percent<float> text_props_text_indent = 0.0f;
    text_justify text_props_text_justify = text_justify::auto_;
    text_replace text_props_vellum_text_replace;
    text_transform text_props_text_transform = text_transform::none;
    word_break text_props_word_break = word_break::normal;
    bool operator==(text_props const&) const = default;
};

} // namespace vellum::css::text
