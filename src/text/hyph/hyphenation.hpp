// Applies a pattern trie to a word and gives the parts between which a line may break.
#pragma once

#include "text/hyph/hyphen_parser.hpp"
#include "text/unicode.hpp"

#include <vector>

namespace vellum::hyphenation {

/// The break points of a word, as numbers of letters before each, rising. Punctuation at either end of
/// the word is not counted; letters are matched in lower case. A point needs an odd priority, at least
/// `before` letters in front of it and at least `after` behind it.
[[nodiscard]] std::vector<int>
hyphen_positions(hyphen_parser::hyphen_rules const& rules, int before, int after, std::u32string_view word);

/// The word cut at its break points; leading and trailing punctuation stay on the first and last part.
/// A single part means the word does not hyphenate.
[[nodiscard]] std::vector<unicode::unicodes>
hyphenate(hyphen_parser::hyphen_rules const& rules, int before, int after, std::u32string_view word);

} // namespace vellum::hyphenation
