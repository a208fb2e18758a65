// Regular expressions of scripts: an ECMAScript 5 pattern parsed into a tree, and a backtracking matcher
// over the code points of a script string. Backtracking state lives on a heap stack, so long subjects
// cannot exhaust the C++ stack.
#pragma once

#include "js/jsstring.hpp"
#include "util/ref.hpp"
#include "util/result.hpp"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace vellum::regexp {

using code_point = char32_t;
/// The number of a capturing group, counted from 1 in the order of the opening parentheses.
using paren_index = int;

struct disjunction;
struct atom;

enum class assertion { up_arrow, dollar_sign, back_slash_b, back_slash_B };

enum class character_class_escape { class_d, class_D, class_s, class_S, class_w, class_W };

/// `\1`: what group 1 matched, or nothing if it matched nothing yet.
struct backreference {
    paren_index backreference_index = 0;
    bool operator==(backreference const&) const = default;
};

/// One literal code point, written as such or by an escape.
struct character {
    code_point character_value = 0;
    bool operator==(character const&) const = default;
};

using atom_escape = std::variant<backreference, character, character_class_escape>;

struct single {
    code_point single_value = 0;
    bool operator==(single const&) const = default;
};

struct range {
    code_point range_from = 0;
    code_point range_to = 0;
    bool operator==(range const&) const = default;
};

using class_range = std::variant<single, range, character_class_escape>;

/// A plain `(?:...)` group, a `(?=...)` lookahead or a `(?!...)` negative lookahead.
enum class disjunction_prefix { group, lookahead, neg_lookahead };

struct pattern_character {
    code_point pattern_character_value = 0;
    bool operator==(pattern_character const&) const = default;
};

/// `.`: any code point but a line terminator.
struct dot {
    bool operator==(dot const&) const = default;
};

struct escape {
    atom_escape escape_value;
    bool operator==(escape const&) const = default;
};

/// `[...]` or `[^...]`.
struct character_class {
    std::vector<class_range> class_ranges;
    bool class_inverted = false;
    bool operator==(character_class const&) const = default;
};

/// A parenthesised disjunction that does not capture: no prefix is a plain `(?:...)`.
struct group {
    std::optional<disjunction_prefix> group_prefix;
    ref<disjunction> group_body;
};

/// `(...)`: the atom inside is the group's disjunction.
struct capture {
    paren_index capture_index = 0;
    ref<atom> capture_body;
};

struct atom {
    std::variant<pattern_character, dot, escape, character_class, group, capture> atom_node;
};

/// A repeat count as read from `{n,m}`: a count too large for 64 bits overflows.
template <class T>
using maybe_overflow = std::optional<T>;

/// `*`, `+`, `?` or `{n,m}`, greedy unless followed by `?`. No maximum means unbounded.
struct quantifier {
    std::int64_t quantifier_min = 0;
    std::optional<std::int64_t> quantifier_max;
    bool quantifier_greedy = true;
    bool operator==(quantifier const&) const = default;
};

/// A quantified atom, with the range of groups inside it, cleared at the start of every round.
struct atom_quantifier {
    ref<atom> quantified_atom;
    quantifier quantified_by;
    paren_index first_paren = 1;
    int paren_count = 0;
};

using term = std::variant<assertion, ref<atom>, atom_quantifier>;

/// A sequence of terms, matched one after the other.
using alternative = std::vector<term>;

/// Alternatives separated by `|`, tried in order.
struct disjunction {
    std::vector<alternative> disjunction_alternatives;
};

using pattern = ref<disjunction>;

/// A parsed pattern and the number of its capturing groups.
struct parsed_pattern {
    pattern parsed;
    int total_parens = 0;
};

struct flags {
    bool ignore_case = false;
    bool multiline = false;
    bool operator==(flags const&) const = default;
};

/// A successful match: the text matched, each group's text (none for a group that did not take part),
/// and the span of the match in code points.
struct match_info {
    jsstring::js_string match_substring;
    std::vector<std::optional<jsstring::js_string>> captures;
    std::size_t start_index = 0;
    std::size_t end_index = 0;
    bool operator==(match_info const&) const = default;
};

/// Parses a pattern (the text between the slashes of a literal, or the argument of `RegExp`).
[[nodiscard]] result<parsed_pattern> parse_pattern(jsstring::js_string const& source);

/// The message of a match that gave up: the pattern backtracked beyond the step budget (as nested
/// quantifiers such as `(a+)+b` do on a long run of `a`s).
inline constexpr char const* too_complex_message = "regular expression too complex";

/// Matches at `start`, and failing that at each later position up to the end of the string. No match is
/// an empty optional; a search that exceeds the step budget fails with `too_complex_message`.
[[nodiscard]] result<std::optional<match_info>> match(pattern const& p,
                                                      int total_parens,
                                                      flags f,
                                                      jsstring::js_string const& subject,
                                                      std::size_t start);

/// Matches at exactly `start`, without searching onwards (a sticky match).
[[nodiscard]] result<std::optional<match_info>> match_at(pattern const& p,
                                                         int total_parens,
                                                         flags f,
                                                         jsstring::js_string const& subject,
                                                         std::size_t start);

} // namespace vellum::regexp
