#include "js/regexp.hpp"

#include "text/unicode.hpp"

#include <limits>

namespace vellum::regexp {

namespace {

using jsstring::js_string;

constexpr std::int64_t largest_count = std::numeric_limits<std::int64_t>::max();

bool is_decimal_digit(code_point c) { return c >= '0' && c <= '9'; }

bool is_octal_digit(code_point c) { return c >= '0' && c <= '7'; }

std::optional<int> hex_value(code_point c) {
    if (c >= '0' && c <= '9') {
        return static_cast<int>(c - '0');
    }
    if (c >= 'a' && c <= 'f') {
        return static_cast<int>(c - 'a' + 10);
    }
    if (c >= 'A' && c <= 'F') {
        return static_cast<int>(c - 'A' + 10);
    }
    return std::nullopt;
}

bool is_line_terminator(code_point c) { return c == 0x0A || c == 0x0D || c == 0x2028 || c == 0x2029; }

// `\s`: the white space of scripts (tab, vertical tab, form feed, space, no-break space, the byte order
// mark and the space separators) and the four line terminators.
bool is_space(code_point c) {
    switch (c) {
    case 0x09: case 0x0A: case 0x0B: case 0x0C: case 0x0D: case 0x20: case 0xA0: case 0x1680: case 0x180E:
    case 0x2028: case 0x2029: case 0x202F: case 0x205F: case 0x3000: case 0xFEFF:
        return true;
    default:
        return c >= 0x2000 && c <= 0x200A;
    }
}

// `\w` and `\b` know only the ASCII word characters.
bool is_word(code_point c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || is_decimal_digit(c) || c == '_';
}

bool in_escape_class(character_class_escape e, code_point c) {
    switch (e) {
    case character_class_escape::class_d: return is_decimal_digit(c);
    case character_class_escape::class_D: return !is_decimal_digit(c);
    case character_class_escape::class_s: return is_space(c);
    case character_class_escape::class_S: return !is_space(c);
    case character_class_escape::class_w: return is_word(c);
    case character_class_escape::class_W: return !is_word(c);
    }
    return false;
}

// Case-insensitive matching compares upper-case forms. A character outside ASCII never folds onto an
// ASCII one (the long s stays apart from `s`, the dotless i from `i`), so that `/[a-z]/i` keeps to ASCII.
code_point canonicalize(code_point c) {
    code_point u = unicode::to_upper(c);
    return c >= 128 && u < 128 ? c : u;
}

// ---- Parsing -------------------------------------------------------------------------------------------

/// A class atom: one code point, or a class escape such as `\d`.
using class_atom = std::variant<code_point, character_class_escape>;

class pattern_parser {
public:
    pattern_parser(std::u32string_view text, int total) : s(text), announced_parens(total) {}

    result<parsed_pattern> run() {
        auto d = parse_disjunction();
        if (!failure.empty()) {
            return unexpected(failure);
        }
        if (pos < s.size()) {
            // Only a `)` stops a disjunction early: one that no `(` opened.
            return unexpected(std::string("unmatched ) in pattern."));
        }
        if (largest_backreference > paren_count) {
            return unexpected(std::string("back reference error"));
        }
        return parsed_pattern{.parsed = d, .total_parens = paren_count};
    }

private:
    std::u32string_view s;
    std::size_t pos = 0;
    int announced_parens = 0;
    int paren_count = 0;
    int largest_backreference = 0;
    int depth = 0;
    static constexpr int max_depth = 1000;
    std::string failure;

    bool at_end() const { return pos >= s.size(); }
    code_point peek(std::size_t ahead = 0) const { return pos + ahead < s.size() ? s[pos + ahead] : 0; }
    bool has(std::size_t ahead = 0) const { return pos + ahead < s.size(); }
    void fail(std::string message) {
        if (failure.empty()) {
            failure = std::move(message);
        }
    }

    ref<disjunction> parse_disjunction() {
        disjunction d;
        for (;;) {
            d.disjunction_alternatives.push_back(parse_alternative());
            if (!failure.empty() || at_end() || peek() != '|') {
                break;
            }
            ++pos;
        }
        return share(std::move(d));
    }

    alternative parse_alternative() {
        alternative terms;
        while (!at_end() && peek() != '|' && peek() != ')' && failure.empty()) {
            parse_term(terms);
        }
        return terms;
    }

    // Reads `{n}`, `{n,}` or `{n,m}` at the current position. Anything else is no quantifier, and the
    // brace is then an ordinary character, as browsers read it.
    std::optional<quantifier> read_braces() {
        std::size_t p = pos + 1;
        auto count = [&]() -> std::optional<std::int64_t> {
            if (p >= s.size() || !is_decimal_digit(s[p])) {
                return std::nullopt;
            }
            std::int64_t n = 0;
            bool overflow = false;
            for (; p < s.size() && is_decimal_digit(s[p]); ++p) {
                std::int64_t digit = s[p] - '0';
                overflow = overflow || n > (largest_count - digit) / 10;
                n = overflow ? 0 : n * 10 + digit;
            }
            maybe_overflow<std::int64_t> counted = overflow ? std::nullopt : std::optional(n);
            return counted.value_or(largest_count);
        };
        auto min = count();
        if (!min) {
            return std::nullopt;
        }
        quantifier q{.quantifier_min = *min, .quantifier_max = *min};
        if (p < s.size() && s[p] == ',') {
            ++p;
            q.quantifier_max = count();
        }
        if (p >= s.size() || s[p] != '}') {
            return std::nullopt;
        }
        pos = p + 1;
        return q;
    }

    std::optional<quantifier> read_quantifier() {
        if (at_end()) {
            return std::nullopt;
        }
        std::optional<quantifier> q;
        switch (peek()) {
        case '*': q = quantifier{.quantifier_min = 0, .quantifier_max = std::nullopt}; ++pos; break;
        case '+': q = quantifier{.quantifier_min = 1, .quantifier_max = std::nullopt}; ++pos; break;
        case '?': q = quantifier{.quantifier_min = 0, .quantifier_max = 1}; ++pos; break;
        case '{': q = read_braces(); break;
        default: break;
        }
        if (q && !at_end() && peek() == '?') {
            q->quantifier_greedy = false;
            ++pos;
        }
        if (q && q->quantifier_max && *q->quantifier_max < q->quantifier_min) {
            fail("numbers out of order in {} quantifier.");
        }
        return q;
    }

    bool quantifier_follows() {
        std::size_t saved = pos;
        bool found = read_quantifier().has_value();
        pos = saved;
        return found;
    }

    void parse_term(alternative& terms) {
        code_point c = peek();
        if (c == '^' || c == '$' || (c == '\\' && (peek(1) == 'b' || peek(1) == 'B'))) {
            assertion a = c == '^'   ? assertion::up_arrow
                          : c == '$' ? assertion::dollar_sign
                          : peek(1) == 'b' ? assertion::back_slash_b
                                           : assertion::back_slash_B;
            pos += c == '\\' ? 2 : 1;
            if (quantifier_follows()) {
                fail("nothing to repeat");
                return;
            }
            terms.emplace_back(a);
            return;
        }
        if (quantifier_follows()) {
            fail("nothing to repeat");
            return;
        }
        int parens_before = paren_count;
        ref<atom> a = parse_atom();
        if (!failure.empty()) {
            return;
        }
        if (auto q = read_quantifier()) {
            terms.emplace_back(atom_quantifier{.quantified_atom = a,
                                               .quantified_by = *q,
                                               .first_paren = parens_before + 1,
                                               .paren_count = paren_count - parens_before});
        } else {
            terms.emplace_back(a);
        }
    }

    ref<atom> parse_atom() {
        code_point c = s[pos++];
        switch (c) {
        case '.':
            return share(atom{dot{}});
        case '(':
            return parse_paren();
        case '[':
            return share(atom{parse_class()});
        case '\\':
            return share(atom{escape{parse_atom_escape()}});
        default:
            return share(atom{pattern_character{c}});
        }
    }

    ref<atom> parse_paren() {
        // Groups nest by recursion here and in the matcher; a depth no real pattern reaches is refused
        // rather than risking the stack.
        if (++depth > max_depth) {
            fail("too much nesting in pattern");
            return nullptr;
        }
        std::optional<disjunction_prefix> prefix;
        int index = 0;
        if (peek() == '?') {
            switch (peek(1)) {
            case ':': prefix = disjunction_prefix::group; break;
            case '=': prefix = disjunction_prefix::lookahead; break;
            case '!': prefix = disjunction_prefix::neg_lookahead; break;
            default: fail("invalid group"); return nullptr;
            }
            pos += 2;
        } else {
            index = ++paren_count;
        }
        auto body = parse_disjunction();
        if (!failure.empty()) {
            return nullptr;
        }
        if (at_end() || peek() != ')') {
            fail("no matching paren.");
            return nullptr;
        }
        ++pos;
        --depth;
        if (prefix) {
            return share(atom{group{.group_prefix = prefix, .group_body = body}});
        }
        return share(atom{capture{.capture_index = index,
                                  .capture_body = share(atom{group{.group_prefix = std::nullopt, .group_body = body}})}});
    }

    // A decimal escape read as an octal character code: up to three digits, the first at most 3, as in
    // string literals. `\8` and `\9` are the digits themselves.
    code_point octal_escape() {
        code_point c = peek();
        if (!is_octal_digit(c)) {
            ++pos;
            return c;
        }
        code_point value = 0;
        std::size_t limit = c <= '3' ? 3 : 2;
        for (std::size_t n = 0; n < limit && has() && is_octal_digit(peek()); ++n) {
            value = value * 8 + (peek() - '0');
            ++pos;
        }
        return value;
    }

    // The escapes common to the body and to classes, the backslash read: control, hexadecimal, Unicode
    // and identity escapes.
    code_point character_escape() {
        code_point c = s[pos++];
        switch (c) {
        case 'f': return 0x0C;
        case 'n': return 0x0A;
        case 'r': return 0x0D;
        case 't': return 0x09;
        case 'v': return 0x0B;
        case 'c':
            if (has() && ((peek() >= 'a' && peek() <= 'z') || (peek() >= 'A' && peek() <= 'Z'))) {
                return s[pos++] % 32;
            }
            // A `\c` without a letter is a backslash; the `c` is read again as itself.
            --pos;
            return '\\';
        case 'x':
        case 'u': {
            std::size_t digits = c == 'x' ? 2 : 4;
            code_point value = 0;
            for (std::size_t n = 0; n < digits; ++n) {
                auto h = hex_value(peek(n));
                if (!has(n) || !h) {
                    return c;
                }
                value = value * 16 + static_cast<code_point>(*h);
            }
            pos += digits;
            return value;
        }
        default:
            return c;
        }
    }

    std::optional<character_class_escape> class_escape_letter(code_point c) {
        switch (c) {
        case 'd': return character_class_escape::class_d;
        case 'D': return character_class_escape::class_D;
        case 's': return character_class_escape::class_s;
        case 'S': return character_class_escape::class_S;
        case 'w': return character_class_escape::class_w;
        case 'W': return character_class_escape::class_W;
        default: return std::nullopt;
        }
    }

    atom_escape parse_atom_escape() {
        if (at_end()) {
            fail("\\ at end of pattern");
            return character{'\\'};
        }
        code_point c = peek();
        if (auto e = class_escape_letter(c)) {
            ++pos;
            return *e;
        }
        if (is_decimal_digit(c)) {
            // A number within the count of groups refers back to one; any other is an octal code.
            std::size_t p = pos;
            std::int64_t n = 0;
            for (; p < s.size() && is_decimal_digit(s[p]); ++p) {
                n = std::min<std::int64_t>(n * 10 + (s[p] - '0'), largest_count / 10);
            }
            if (n >= 1 && n <= announced_parens) {
                pos = p;
                largest_backreference = std::max(largest_backreference, static_cast<int>(n));
                return backreference{static_cast<paren_index>(n)};
            }
            return character{octal_escape()};
        }
        return character{character_escape()};
    }

    class_atom parse_class_atom() {
        code_point c = s[pos++];
        if (c != '\\') {
            return c;
        }
        if (at_end()) {
            fail("\\ at end of pattern");
            return c;
        }
        code_point e = peek();
        if (auto k = class_escape_letter(e)) {
            ++pos;
            return *k;
        }
        if (e == 'b') {
            ++pos;
            return code_point{8};
        }
        if (is_decimal_digit(e)) {
            return octal_escape();
        }
        return character_escape();
    }

    static class_range as_range(class_atom const& a) {
        if (auto const* c = std::get_if<code_point>(&a)) {
            return single{*c};
        }
        return std::get<character_class_escape>(a);
    }

    character_class parse_class() {
        character_class cls;
        if (peek() == '^' && has()) {
            cls.class_inverted = true;
            ++pos;
        }
        for (;;) {
            if (at_end()) {
                fail("missing ] in character class");
                return cls;
            }
            if (peek() == ']') {
                ++pos;
                return cls;
            }
            class_atom from = parse_class_atom();
            if (!failure.empty()) {
                return cls;
            }
            if (peek() == '-' && has(1) && peek(1) != ']') {
                ++pos;
                class_atom to = parse_class_atom();
                if (!failure.empty()) {
                    return cls;
                }
                auto const* a = std::get_if<code_point>(&from);
                auto const* b = std::get_if<code_point>(&to);
                if (a && b) {
                    if (*a > *b) {
                        fail("range out of order in character class");
                        return cls;
                    }
                    cls.class_ranges.emplace_back(range{*a, *b});
                } else {
                    // `[\d-z]`: a class escape cannot bound a range, so the hyphen stands for itself.
                    cls.class_ranges.push_back(as_range(from));
                    cls.class_ranges.emplace_back(single{'-'});
                    cls.class_ranges.push_back(as_range(to));
                }
                continue;
            }
            cls.class_ranges.push_back(as_range(from));
        }
    }
};

// The number of capturing groups, counted ahead of parsing: a decimal escape is a back reference only if
// the whole pattern has that many groups, even when the group comes after the escape.
int count_capturing_parens(std::u32string_view s) {
    int count = 0;
    bool in_class = false;
    for (std::size_t i = 0; i < s.size(); ++i) {
        code_point c = s[i];
        if (c == '\\') {
            ++i;
        } else if (in_class) {
            in_class = c != ']';
        } else if (c == '[') {
            in_class = true;
        } else if (c == '(' && (i + 1 >= s.size() || s[i + 1] != '?')) {
            ++count;
        }
    }
    return count;
}

// ---- Matching ------------------------------------------------------------------------------------------

// What is left to match is a list of frames, shared between the choice points that may resume it. The
// matcher never calls itself: every alternative it has yet to try is a choice point on a heap stack, so
// the depth of the C++ stack does not grow with the subject.

struct frame;
using continuation = std::shared_ptr<frame const>;

/// The terms of an alternative from `terms_index` on.
struct terms_left {
    alternative const* terms = nullptr;
    std::size_t terms_index = 0;
};

/// The end of a capturing group: its start becomes a finished span.
struct close_paren {
    paren_index close_index = 0;
};

/// A quantified atom and the counts still to go. `repeat_state` is where the round that just ended
/// began, so that a round that consumed nothing stops the loop.
struct repeat_matcher {
    atom const* repeat_atom = nullptr;
    std::int64_t repeat_min = 0;
    std::optional<std::int64_t> repeat_max;
    bool repeat_greedy = true;
    std::size_t repeat_state = 0;
    paren_index repeat_first_paren = 1;
    int repeat_paren_count = 0;
};

/// One more round of a lazy repeat, taken after what follows it failed.
struct repeat_round {
    repeat_matcher round_of;
};

/// A lookahead's body matched: the choice point at `lookahead_barrier` and all above it are dropped.
struct lookahead_end {
    std::size_t lookahead_barrier = 0;
    bool lookahead_negative = false;
};

struct frame {
    std::variant<terms_left, close_paren, repeat_matcher, repeat_round, lookahead_end> frame_node;
    continuation frame_next;
};

/// A capture while matching: none, opened at `capture_start`, or finished at `capture_end`.
struct capture0 {
    static constexpr std::size_t none = std::numeric_limits<std::size_t>::max();
    std::size_t capture_start = none;
    std::size_t capture_end = none;
    bool finished() const { return capture_end != none; }
};

/// A place to resume: the position, what is left to match, and how far the capture trail reaches. A
/// lookahead barrier is not resumed but tells its lookahead that the body found no match.
struct choice_point {
    std::size_t choice_pos = 0;
    continuation choice_next;
    std::size_t choice_trail = 0;
    enum class kind { resume, lookahead, neg_lookahead } choice_kind = kind::resume;
};

class matcher {
public:
    matcher(int total, flags f, js_string const& subject)
        : captures(static_cast<std::size_t>(total) + 1), fl(f), s(subject.code_points()),
          steps_left(base_budget + per_character_budget * subject.length()) {}

    /// Whether a run stopped because the step budget ran out.
    bool exhausted() const { return steps_left == 0; }

    /// Matches the pattern at `start`; gives the end of the match.
    std::optional<std::size_t> run(disjunction const& d, std::size_t start) {
        std::fill(captures.begin(), captures.end(), capture0{});
        trail.clear();
        choices.clear();
        pos = start;
        enter_disjunction(d, nullptr);
        for (;;) {
            if (!k) {
                return pos;
            }
            if (steps_left == 0 || --steps_left == 0) {
                return std::nullopt;
            }
            continuation current = k;
            if (!step(current->frame_node, current->frame_next) && !backtrack()) {
                return std::nullopt;
            }
        }
    }

    std::vector<capture0> captures;

private:
    // Backtracking can take exponential time. A fixed amount of work plus a little per character of the
    // subject is far beyond what sensible patterns need (a match over a million characters takes a few
    // million steps) and still ends a pathological search within seconds.
    static constexpr std::uint64_t base_budget = 20'000'000;
    static constexpr std::uint64_t per_character_budget = 20;

    flags fl;
    std::u32string_view s;
    std::uint64_t steps_left = 0;
    std::size_t pos = 0;
    continuation k;
    std::vector<choice_point> choices;
    std::vector<std::pair<paren_index, capture0>> trail;

    static continuation then(frame f) { return std::make_shared<frame const>(std::move(f)); }

    void set_capture(paren_index i, capture0 c) {
        auto& slot = captures[static_cast<std::size_t>(i)];
        // With no choice point left nothing can go back to the old value, and the trail need not grow.
        if (!choices.empty()) {
            trail.emplace_back(i, slot);
        }
        slot = c;
    }

    void push_choice(continuation next, choice_point::kind kind = choice_point::kind::resume) {
        choices.push_back(choice_point{.choice_pos = pos, .choice_next = std::move(next),
                                       .choice_trail = trail.size(), .choice_kind = kind});
    }

    void undo_to(std::size_t height) {
        while (trail.size() > height) {
            captures[static_cast<std::size_t>(trail.back().first)] = trail.back().second;
            trail.pop_back();
        }
    }

    bool backtrack() {
        while (!choices.empty()) {
            choice_point c = std::move(choices.back());
            choices.pop_back();
            undo_to(c.choice_trail);
            switch (c.choice_kind) {
            case choice_point::kind::lookahead:
                // The body of a positive lookahead found nothing: the failure goes on down.
                continue;
            case choice_point::kind::neg_lookahead:
            case choice_point::kind::resume:
                // A negative lookahead whose body failed succeeds, its captures undone by the trail.
                pos = c.choice_pos;
                k = std::move(c.choice_next);
                return true;
            }
        }
        return false;
    }

    void enter_disjunction(disjunction const& d, continuation next) {
        auto const& alts = d.disjunction_alternatives;
        for (std::size_t i = alts.size(); i-- > 1;) {
            push_choice(then(frame{terms_left{&alts[i], 0}, next}));
        }
        k = then(frame{terms_left{&alts[0], 0}, std::move(next)});
    }

    code_point canon(code_point c) const { return fl.ignore_case ? canonicalize(c) : c; }

    bool word_at(std::size_t i) const { return i < s.size() && is_word(s[i]); }

    bool test_assertion(assertion a) const {
        switch (a) {
        case assertion::up_arrow:
            return pos == 0 || (fl.multiline && is_line_terminator(s[pos - 1]));
        case assertion::dollar_sign:
            return pos == s.size() || (fl.multiline && is_line_terminator(s[pos]));
        case assertion::back_slash_b:
            return (pos > 0 && word_at(pos - 1)) != word_at(pos);
        case assertion::back_slash_B:
            return (pos > 0 && word_at(pos - 1)) == word_at(pos);
        }
        return false;
    }

    bool in_range(range r, code_point c) const {
        if (!fl.ignore_case) {
            return c >= r.range_from && c <= r.range_to;
        }
        code_point cc = canonicalize(c);
        for (code_point cand : {c, cc, unicode::to_lower(c), unicode::to_lower(cc)}) {
            if (cand >= r.range_from && cand <= r.range_to && canonicalize(cand) == cc) {
                return true;
            }
        }
        // Some letters have more than two case forms (sigma, the Kelvin sign); a short range is searched
        // whole for a member that folds to the same character.
        if (r.range_to - r.range_from <= 512) {
            for (code_point a = r.range_from; a <= r.range_to; ++a) {
                if (canonicalize(a) == cc) {
                    return true;
                }
            }
        }
        return false;
    }

    bool in_class(character_class const& cls, code_point c) const {
        bool found = false;
        for (auto const& r : cls.class_ranges) {
            found = std::visit(overloaded{
                                   [&](single const& x) { return canon(x.single_value) == canon(c); },
                                   [&](range const& x) { return in_range(x, c); },
                                   [&](character_class_escape e) { return in_escape_class(e, c); },
                               },
                               r);
            if (found) {
                break;
            }
        }
        return found != cls.class_inverted;
    }

    template <class Test>
    bool one_character(Test test, continuation next) {
        if (pos < s.size() && test(s[pos])) {
            ++pos;
            k = std::move(next);
            return true;
        }
        return false;
    }

    bool back_reference(paren_index i, continuation next) {
        capture0 c = captures[static_cast<std::size_t>(i)];
        if (c.finished()) {
            std::size_t n = c.capture_end - c.capture_start;
            if (s.size() - pos < n) {
                return false;
            }
            for (std::size_t j = 0; j < n; ++j) {
                if (canon(s[c.capture_start + j]) != canon(s[pos + j])) {
                    return false;
                }
            }
            pos += n;
        }
        k = std::move(next);
        return true;
    }

    bool match_atom(atom const& a, continuation next) {
        return std::visit(
            overloaded{
                [&](pattern_character const& p) {
                    code_point want = canon(p.pattern_character_value);
                    return one_character([&](code_point c) { return canon(c) == want; }, std::move(next));
                },
                [&](dot const&) {
                    return one_character([](code_point c) { return !is_line_terminator(c); }, std::move(next));
                },
                [&](escape const& e) {
                    return std::visit(
                        overloaded{
                            [&](backreference const& b) { return back_reference(b.backreference_index, next); },
                            [&](character const& ch) {
                                code_point want = canon(ch.character_value);
                                return one_character([&](code_point c) { return canon(c) == want; }, next);
                            },
                            [&](character_class_escape ce) {
                                return one_character([&](code_point c) { return in_escape_class(ce, c); }, next);
                            },
                        },
                        e.escape_value);
                },
                [&](character_class const& cls) {
                    return one_character([&](code_point c) { return in_class(cls, c); }, std::move(next));
                },
                [&](group const& g) {
                    if (!g.group_prefix || *g.group_prefix == disjunction_prefix::group) {
                        enter_disjunction(*g.group_body, std::move(next));
                        return true;
                    }
                    bool negative = *g.group_prefix == disjunction_prefix::neg_lookahead;
                    std::size_t barrier = choices.size();
                    push_choice(std::move(next),
                                negative ? choice_point::kind::neg_lookahead : choice_point::kind::lookahead);
                    enter_disjunction(*g.group_body, then(frame{lookahead_end{barrier, negative}, nullptr}));
                    return true;
                },
                [&](capture const& c) {
                    set_capture(c.capture_index, capture0{.capture_start = pos});
                    return match_atom(*c.capture_body, then(frame{close_paren{c.capture_index}, std::move(next)}));
                },
            },
            a.atom_node);
    }

    void clear_round_captures(repeat_matcher const& r) {
        for (int i = 0; i < r.repeat_paren_count; ++i) {
            if (captures[static_cast<std::size_t>(r.repeat_first_paren + i)].capture_start != capture0::none) {
                set_capture(r.repeat_first_paren + i, capture0{});
            }
        }
    }

    bool start_round(repeat_matcher r, continuation next) {
        clear_round_captures(r);
        r.repeat_state = pos;
        atom const& a = *r.repeat_atom;
        return match_atom(a, then(frame{r, std::move(next)}));
    }

    // A repeat with the counts still to go, at the current position: rounds that must be taken, then a
    // choice between one more round and what follows, in the order greediness asks for.
    bool repeat(repeat_matcher const& r, continuation next) {
        if (r.repeat_max && *r.repeat_max == 0) {
            k = std::move(next);
            return true;
        }
        if (r.repeat_min != 0) {
            return start_round(r, std::move(next));
        }
        if (r.repeat_greedy) {
            push_choice(next);
            return start_round(r, std::move(next));
        }
        push_choice(then(frame{repeat_round{r}, next}));
        k = std::move(next);
        return true;
    }

    bool step(decltype(frame::frame_node) const& node, continuation const& next) {
        return std::visit(
            overloaded{
                [&](terms_left const& t) {
                    if (t.terms_index == t.terms->size()) {
                        k = next;
                        return true;
                    }
                    continuation rest =
                        t.terms_index + 1 < t.terms->size() ? then(frame{terms_left{t.terms, t.terms_index + 1}, next})
                                                            : next;
                    return std::visit(overloaded{
                                          [&](assertion a) {
                                              k = std::move(rest);
                                              return test_assertion(a);
                                          },
                                          [&](ref<atom> const& a) { return match_atom(*a, std::move(rest)); },
                                          [&](atom_quantifier const& q) {
                                              repeat_matcher r{.repeat_atom = q.quantified_atom.get(),
                                                               .repeat_min = q.quantified_by.quantifier_min,
                                                               .repeat_max = q.quantified_by.quantifier_max,
                                                               .repeat_greedy = q.quantified_by.quantifier_greedy,
                                                               .repeat_state = 0,
                                                               .repeat_first_paren = q.first_paren,
                                                               .repeat_paren_count = q.paren_count};
                                              return repeat(r, std::move(rest));
                                          },
                                      },
                                      (*t.terms)[t.terms_index]);
                },
                [&](close_paren const& c) {
                    std::size_t start = captures[static_cast<std::size_t>(c.close_index)].capture_start;
                    set_capture(c.close_index, capture0{.capture_start = start, .capture_end = pos});
                    k = next;
                    return true;
                },
                [&](repeat_matcher const& r) {
                    // A round has just ended. One that consumed nothing, once the compulsory rounds are
                    // done, would loop for ever: that path fails.
                    if (r.repeat_min == 0 && r.repeat_state == pos) {
                        return false;
                    }
                    repeat_matcher after = r;
                    after.repeat_min = r.repeat_min == 0 ? 0 : r.repeat_min - 1;
                    if (r.repeat_max) {
                        after.repeat_max = *r.repeat_max - 1;
                    }
                    return repeat(after, next);
                },
                [&](repeat_round const& r) { return start_round(r.round_of, next); },
                [&](lookahead_end const& l) {
                    choice_point barrier = std::move(choices[l.lookahead_barrier]);
                    choices.resize(l.lookahead_barrier);
                    if (l.lookahead_negative) {
                        return false;
                    }
                    pos = barrier.choice_pos;
                    k = std::move(barrier.choice_next);
                    return true;
                },
            },
            node);
    }
};

match_info make_info(matcher const& m, js_string const& subject, std::size_t start, std::size_t end) {
    auto sub = [&](std::size_t from, std::size_t to) {
        return js_string{subject.code_points().substr(from, to - from)};
    };
    match_info info{.match_substring = sub(start, end), .captures = {}, .start_index = start, .end_index = end};
    for (std::size_t i = 1; i < m.captures.size(); ++i) {
        capture0 const& c = m.captures[i];
        info.captures.push_back(c.finished() ? std::optional(sub(c.capture_start, c.capture_end)) : std::nullopt);
    }
    return info;
}

} // namespace

result<parsed_pattern> parse_pattern(jsstring::js_string const& source) {
    return pattern_parser(source.code_points(), count_capturing_parens(source.code_points())).run();
}

result<std::optional<match_info>> match_at(pattern const& p,
                                           int total_parens,
                                           flags f,
                                           jsstring::js_string const& subject,
                                           std::size_t start) {
    if (start > subject.length()) {
        return std::optional<match_info>();
    }
    matcher m(total_parens, f, subject);
    auto end = m.run(*p, start);
    if (m.exhausted()) {
        return unexpected(std::string(too_complex_message));
    }
    return end ? std::optional(make_info(m, subject, start, *end)) : std::nullopt;
}

result<std::optional<match_info>> match(pattern const& p,
                                        int total_parens,
                                        flags f,
                                        jsstring::js_string const& subject,
                                        std::size_t start) {
    // One budget for the whole search, so that trying every start position stays bounded too.
    matcher m(total_parens, f, subject);
    for (std::size_t i = start; i <= subject.length(); ++i) {
        auto end = m.run(*p, i);
        if (m.exhausted()) {
            return unexpected(std::string(too_complex_message));
        }
        if (end) {
            return std::optional(make_info(m, subject, i, *end));
        }
    }
    return std::optional<match_info>();
}

} // namespace vellum::regexp
