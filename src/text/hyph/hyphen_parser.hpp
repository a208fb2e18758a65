// Liang hyphenation patterns: reads a pattern file, one pattern per line, into a trie keyed by the
// letters of the patterns, whose nodes carry the hyphen points of the patterns that end there.
#pragma once

#include "resource/locator.hpp"
#include "text/unicode.hpp"
#include "util/result.hpp"

#include <optional>
#include <string_view>
#include <vector>

namespace vellum::log {
struct log;
} // namespace vellum::log

namespace vellum::hyphen_parser {

/// Where in a word a pattern may match: ".ab1c" is front, "ab1c." end, ".ab1c." whole, "ab1c" any.
enum class pattern_type { end, front, whole, any };

/// A hyphen point of a pattern: the number of the pattern's letters before it, and its priority.
/// An odd priority allows a break there, an even one forbids it; the highest of all matches wins.
struct hyphen_point {
    int point_index = 0;
    int point_priority = 0;
    bool operator==(hyphen_point const&) const = default;
};

using hyphen_points = std::vector<hyphen_point>;

/// What one pattern says, stored at the trie node of its last letter.
struct hyphen_info {
    hyphen_parser::pattern_type info_type = pattern_type::any;
    hyphen_parser::hyphen_points info_points;
    bool operator==(hyphen_info const&) const = default;
};

struct hyphen_rule;

/// A trie node: the patterns that end here, and the branches to longer ones, ordered by code point.
struct node_info {
    std::vector<hyphen_info> endable;
    std::vector<hyphen_rule> branches;
    bool operator==(node_info const&) const = default;
};

/// A branch of the trie: the next letter and the node it leads to.
struct hyphen_rule {
    unicode::unicode rule_letter = 0;
    node_info rule_node;
    bool operator==(hyphen_rule const&) const = default;
};

/// The root of a trie: one branch for each letter that begins a pattern, ordered by code point.
using hyphen_rules = std::vector<hyphen_rule>;

/// One pattern as read from its line: the first letter, the others, its anchoring and hyphen points.
struct hyphen_rule0 {
    unicode::unicode node = 0;
    unicode::unicodes tail;
    hyphen_parser::pattern_type pattern_type = pattern_type::any;
    hyphen_parser::hyphen_points hyphen_points;
    bool operator==(hyphen_rule0 const&) const = default;
};

/// Reads one line. Blanks, CR, LF and TAB are skipped; "." anchors the pattern at the front (before any
/// letter) or the end (after letters); an ASCII digit is a hyphen point after the letters so far; any
/// other code point is a letter. A line with no letter or no hyphen point is no pattern, so comment
/// lines without digits need no syntax of their own.
[[nodiscard]] std::optional<hyphen_rule0> parse_pattern(std::u32string_view line);

/// Enters a pattern into the trie: follows the existing branches, adds new nodes for the rest, and
/// records the pattern at its last node.
void add_pattern(hyphen_rules& rules, hyphen_rule0 const& pattern);

/// Builds the trie of a whole pattern text, line by line.
[[nodiscard]] hyphen_rules parse_patterns(std::u32string_view text);

/// The branch for a letter among branches ordered by code point, or null.
[[nodiscard]] node_info const* find_branch(std::vector<hyphen_rule> const& branches, unicode::unicode letter);

/// Reads a UTF-8 pattern file into a trie; logs "loading hyphenation patterns: " and the path at level
/// info. Fails when the file cannot be read or is not UTF-8.
[[nodiscard]] result<hyphen_rules> read_patterns(log::log const& log,
                                                 virtual_path::physical_path const& path);

} // namespace vellum::hyphen_parser
