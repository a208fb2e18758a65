#include "text/unicode/linebreak.hpp"

#include "text/unicode/category.hpp"
#include "text/unicode/tables.hpp"

#include <array>

namespace vellum::unicode::linebreak {

namespace {

using lb = line_break_class;

// Classes as indexes of the pair table. Opening and closing punctuation come in two kinds: the East
// Asian wide ones (full-width brackets) may be broken from adjacent letters and digits, the others not.
constexpr int op_wide = line_break_class_count;
constexpr int cp_wide = line_break_class_count + 1;
constexpr int pair_class_count = line_break_class_count + 2;

constexpr int idx(lb c) {
    return static_cast<int>(c);
}

// The class a pair-table index stands for.
constexpr lb base(int c) {
    return c == op_wide ? lb::op : c == cp_wide ? lb::cp : static_cast<lb>(c);
}

template <class... Ls>
constexpr bool one_of(lb c, Ls... ls) {
    return ((c == ls) || ...);
}

// Whether the rules allow a break before a character of class `after` whose nearest preceding
// non-space character has class `before`, with (`spaced`) or without spaces between them. The break in
// question is the one right before `after`: spaces themselves never take a break before them. Hard
// breaks, zero width spaces, combining marks and the rules that look beyond two characters are left to
// break_opportunities; the remaining rules are tried in their order of precedence.
constexpr bool pair_breaks(int before_index, int after_index, bool spaced) {
    lb const b = base(before_index);
    lb const a = base(after_index);
    // Word joiners glue to both sides, no-break spaces to what follows (and, unless a space or a
    // hyphen comes first, to what precedes).
    if (a == lb::wj || (b == lb::wj && !spaced)) {
        return false;
    }
    if (b == lb::gl && !spaced) {
        return false;
    }
    if (a == lb::gl && !spaced && !one_of(b, lb::ba, lb::hy)) {
        return false;
    }
    // Closing punctuation and the like never start a line, even after spaces; nothing breaks after an
    // opening bracket, nor between a quotation mark and an opening bracket, a closing bracket and a
    // nonstarter, or two em dashes.
    if (one_of(a, lb::cl, lb::cp, lb::ex, lb::is, lb::sy)) {
        return false;
    }
    if (b == lb::op) {
        return false;
    }
    if (b == lb::qu && a == lb::op) {
        return false;
    }
    if (one_of(b, lb::cl, lb::cp) && a == lb::ns) {
        return false;
    }
    if (b == lb::b2 && a == lb::b2) {
        return false;
    }
    // Everything else may break after spaces.
    if (spaced) {
        return true;
    }
    if (a == lb::qu || b == lb::qu) {
        return false;
    }
    if (a == lb::cb || b == lb::cb) {
        return true;
    }
    if (one_of(a, lb::ba, lb::hy, lb::ns) || b == lb::bb) {
        return false;
    }
    if (b == lb::sy && a == lb::hl) {
        return false;
    }
    if (a == lb::in) {
        return false;
    }
    // Letters and digits stay together, and with the currency and percent signs around them.
    if ((one_of(b, lb::al, lb::hl) && a == lb::nu) || (b == lb::nu && one_of(a, lb::al, lb::hl))) {
        return false;
    }
    if ((b == lb::pr && one_of(a, lb::id, lb::eb, lb::em)) ||
        (one_of(b, lb::id, lb::eb, lb::em) && a == lb::po)) {
        return false;
    }
    if ((one_of(b, lb::pr, lb::po) && one_of(a, lb::al, lb::hl)) ||
        (one_of(b, lb::al, lb::hl) && one_of(a, lb::pr, lb::po))) {
        return false;
    }
    // Numbers themselves are matched by break_opportunities, with more context than a pair. Hangul
    // jamo make syllables, and syllables take affixes like ideographs do.
    if ((b == lb::jl && one_of(a, lb::jl, lb::jv, lb::h2, lb::h3)) ||
        (one_of(b, lb::jv, lb::h2) && one_of(a, lb::jv, lb::jt)) ||
        (one_of(b, lb::jt, lb::h3) && a == lb::jt)) {
        return false;
    }
    if ((one_of(b, lb::jl, lb::jv, lb::jt, lb::h2, lb::h3) && a == lb::po) ||
        (b == lb::pr && one_of(a, lb::jl, lb::jv, lb::jt, lb::h2, lb::h3))) {
        return false;
    }
    if (one_of(b, lb::al, lb::hl) && one_of(a, lb::al, lb::hl)) {
        return false;
    }
    if (b == lb::is && one_of(a, lb::al, lb::hl)) {
        return false;
    }
    // A narrow bracket belongs to the word it touches: "f(x)", "(a)b".
    if (one_of(b, lb::al, lb::hl, lb::nu) && after_index == idx(lb::op)) {
        return false;
    }
    if (before_index == idx(lb::cp) && one_of(a, lb::al, lb::hl, lb::nu)) {
        return false;
    }
    if (b == lb::eb && a == lb::em) {
        return false;
    }
    return true;
}

// How a pair of classes breaks: never (even across spaces), only across spaces, or always.
enum class pair_kind : std::uint8_t {
    prohibited,
    indirect,
    direct,
};

using pair_table = std::array<std::array<pair_kind, pair_class_count>, pair_class_count>;

constexpr pair_table make_pair_table() {
    pair_table t{};
    for (int b = 0; b < pair_class_count; ++b) {
        for (int a = 0; a < pair_class_count; ++a) {
            bool const adjacent = pair_breaks(b, a, false);
            bool const spaced = pair_breaks(b, a, true);
            t[b][a] = adjacent ? pair_kind::direct : spaced ? pair_kind::indirect : pair_kind::prohibited;
        }
    }
    return t;
}

constexpr pair_table pairs = make_pair_table();

// A pair that breaks when adjacent but not across spaces would need a third kind; the rules have none.
constexpr bool pairs_consistent() {
    for (int b = 0; b < pair_class_count; ++b) {
        for (int a = 0; a < pair_class_count; ++a) {
            if (pair_breaks(b, a, false) && !pair_breaks(b, a, true)) {
                return false;
            }
        }
    }
    return true;
}

static_assert(pairs_consistent());

// One character of the text, its class resolved for breaking.
struct resolved {
    int resolved_class = 0; // a pair-table index
    bool resolved_pictographic_reserved = false;
};

// Classes the data leaves open get the choice made here: ambiguous, surrogate and unknown characters
// are alphabetic, complex-context marks combine and other complex-context letters are alphabetic (no
// dictionary), and conditional Japanese starters are nonstarters.
resolved resolve(char32_t cp) {
    auto const v = tables::lookup(tables::line_break, cp, static_cast<std::uint8_t>(lb::xx));
    auto c = static_cast<lb>(v & tables::line_break_class_mask);
    switch (c) {
    case lb::ai:
    case lb::sg:
    case lb::xx:
        c = lb::al;
        break;
    case lb::sa: {
        auto const gc = category::category_of(cp);
        c = gc == category::general_category::category_mn || gc == category::general_category::category_mc
                ? lb::cm
                : lb::al;
        break;
    }
    case lb::cj:
        c = lb::ns;
        break;
    default:
        break;
    }
    int index = idx(c);
    if ((v & tables::line_break_east_asian) != 0) {
        index = c == lb::op ? op_wide : c == lb::cp ? cp_wide : index;
    }
    return {index, (v & tables::line_break_pictographic_reserved) != 0};
}

bool is_hard_break(lb c) {
    return one_of(c, lb::bk, lb::cr, lb::lf, lb::nl);
}

// Where a run of the number pattern stands: prefix? (open|hyphen)? digit (digit|slash|separator)*
// close? postfix?. Inside it nothing breaks.
enum class number_state : std::uint8_t {
    none,
    digits, // after a digit and any digits, slashes and separators
    closed, // after that and a closing bracket
};

} // namespace

line_break_class line_break_class_of(char32_t cp) {
    auto const v = tables::lookup(tables::line_break, cp, static_cast<std::uint8_t>(lb::xx));
    return static_cast<lb>(v & tables::line_break_class_mask);
}

std::vector<break_action> break_opportunities(std::u32string_view text) {
    auto const n = text.size();
    std::vector<break_action> out(n, break_action::prohibited);
    if (n == 0) {
        return out;
    }
    std::vector<resolved> chars(n);
    for (std::size_t i = 0; i < n; ++i) {
        chars[i] = resolve(text[i]);
    }
    auto const raw = [&](std::size_t i) { return base(chars[i].resolved_class); };

    // The state carried from left to right. `before` is the last character that is not a space, with
    // combining marks folded into their base; at the start of the text it is a space, so that the
    // rules read as after spaces.
    int before = idx(lb::sp);
    bool spaced = false;
    bool before_pictographic_reserved = false;
    bool hebrew_dash = false; // `before` is a hyphen or break-after right behind a Hebrew letter
    int regional_run = 0;     // regional indicators in a row ending at `before`
    auto numbers = number_state::none;

    for (std::size_t i = 0; i < n; ++i) {
        lb const p = i > 0 ? raw(i - 1) : lb::sp;
        int c = chars[i].resolved_class;
        lb const cb = base(c);
        // A combining mark or joiner takes the class of the character it follows, unless that is a
        // space or a break; such a lone mark counts as alphabetic.
        bool const absorbed =
            i > 0 && one_of(cb, lb::cm, lb::zwj) && !is_hard_break(p) && !one_of(p, lb::sp, lb::zw);
        if (one_of(cb, lb::cm, lb::zwj) && !absorbed) {
            c = idx(lb::al);
        }
        lb const a = base(c);

        if (i > 0) {
            auto& action = out[i - 1];
            if (p == lb::bk || p == lb::lf || p == lb::nl || (p == lb::cr && a != lb::lf)) {
                action = break_action::mandatory;
            } else if (is_hard_break(a) || one_of(a, lb::sp, lb::zw) || p == lb::cr) {
                action = break_action::prohibited;
            } else if (before == idx(lb::zw)) {
                // A zero width space offers a break even when spaces follow it.
                action = break_action::allowed;
            } else if (p == lb::zwj || absorbed) {
                action = break_action::prohibited;
            } else {
                auto const kind = pairs[before][c];
                bool allowed = kind == pair_kind::direct || (kind == pair_kind::indirect && spaced);
                if (allowed && !spaced) {
                    lb const bb = base(before);
                    // The next character that is not a combining mark, for a number that begins with
                    // a bracket or a hyphen after a currency sign: "$(12", "$-3".
                    auto next_is_digit = [&] {
                        auto j = i + 1;
                        while (j < n && one_of(raw(j), lb::cm, lb::zwj)) {
                            ++j;
                        }
                        return j < n && raw(j) == lb::nu;
                    };
                    if (hebrew_dash && a != lb::cb) {
                        // A Hebrew letter with its hyphen stays on the line: "ב-".
                        allowed = false;
                    } else if (one_of(bb, lb::pr, lb::po) &&
                               (a == lb::nu || (one_of(a, lb::op, lb::hy) && next_is_digit()))) {
                        // A number keeps its prefix: "$12", "$(12".
                        allowed = false;
                    } else if (one_of(bb, lb::op, lb::hy) && a == lb::nu) {
                        // A number keeps its opening bracket or minus sign: "(12", "-3".
                        allowed = false;
                    } else if (numbers == number_state::digits &&
                               one_of(a, lb::nu, lb::sy, lb::is, lb::cl, lb::cp)) {
                        // Inside a number: "1,234.5", "12/31", "(12)".
                        allowed = false;
                    } else if (numbers != number_state::none && one_of(a, lb::po, lb::pr)) {
                        // A number keeps its suffix: "12%", "(12)%".
                        allowed = false;
                    } else if (bb == lb::ri && a == lb::ri && regional_run % 2 == 1) {
                        // Regional indicators pair up into flags.
                        allowed = false;
                    } else if (before_pictographic_reserved && a == lb::em) {
                        // Code points reserved for future emoji take skin-tone modifiers already.
                        allowed = false;
                    }
                }
                action = allowed ? break_action::allowed : break_action::prohibited;
            }
        }

        if (absorbed) {
            continue;
        }
        if (a == lb::sp) {
            spaced = true;
            numbers = number_state::none;
            hebrew_dash = false;
            regional_run = 0;
            continue;
        }
        lb const bb = base(before);
        bool const touching = !spaced;
        hebrew_dash = touching && one_of(a, lb::hy, lb::ba) && bb == lb::hl;
        regional_run = a == lb::ri ? (touching && bb == lb::ri ? regional_run + 1 : 1) : 0;
        if (a == lb::nu) {
            numbers = number_state::digits;
        } else if (touching && numbers == number_state::digits && one_of(a, lb::sy, lb::is)) {
            numbers = number_state::digits;
        } else if (touching && numbers == number_state::digits && one_of(a, lb::cl, lb::cp)) {
            numbers = number_state::closed;
        } else {
            numbers = number_state::none;
        }
        before_pictographic_reserved = chars[i].resolved_pictographic_reserved;
        before = c;
        spaced = false;
    }
    out[n - 1] = break_action::mandatory;
    return out;
}

} // namespace vellum::unicode::linebreak
