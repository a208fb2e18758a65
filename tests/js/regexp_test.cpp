#include "js/regexp.hpp"

#include <gtest/gtest.h>

#include <limits>
#include <string>

namespace vellum::regexp {
namespace {

using jsstring::from_utf8;
using jsstring::to_utf8;

struct outcome {
    bool matched = false;
    std::string whole;
    std::size_t index = 0;
    std::vector<std::string> groups; // "<undefined>" for a group that took no part
};

outcome run(std::string const& pattern_text, std::string const& subject, flags f = {}, std::size_t start = 0) {
    auto p = parse_pattern(from_utf8(pattern_text));
    EXPECT_TRUE(p.has_value()) << pattern_text << ": " << (p ? "" : p.error());
    if (!p) {
        return {};
    }
    auto r = match(p->parsed, p->total_parens, f, from_utf8(subject), start);
    EXPECT_TRUE(r.has_value()) << pattern_text << ": " << (r ? "" : r.error());
    if (!r || !*r) {
        return {};
    }
    auto const& m = *r;
    outcome o{.matched = true, .whole = to_utf8(m->match_substring), .index = m->start_index, .groups = {}};
    for (auto const& c : m->captures) {
        o.groups.push_back(c ? to_utf8(*c) : "<undefined>");
    }
    return o;
}

using groups = std::vector<std::string>;

TEST(regexp, matches_cases_in_a_table) {
    struct row {
        char const* pattern;
        char const* subject;
        bool matched;
        char const* whole;
        std::size_t index;
        groups captures;
    };
    row const rows[] = {
        // Empty loops stop instead of spinning.
        {"(a*)*", "b", true, "", 0, {"<undefined>"}},
        {"(a*)+", "b", true, "", 0, {""}},
        // Inner captures are cleared at each round of the outer repeat.
        {"(z)((a+)?(b+)?(c))*", "zaacbbbcac", true, "zaacbbbcac", 0, {"z", "ac", "a", "<undefined>", "c"}},
        // A back reference ahead of its group matches the empty string.
        {"\\1(a)", "aa", true, "a", 0, {"a"}},
        {"(a)\\1", "xaa", true, "aa", 1, {"a"}},
        {"(a)|\\1b", "b", true, "b", 0, {"<undefined>"}},
        // Decimal escapes beyond the groups are octal character codes.
        {"\\101", "xA", true, "A", 1, {}},
        {"(a)\\2", "a\x02", true, "a\x02", 0, {"a"}},
        {"\\8", "8", true, "8", 0, {}},
        // Greedy and lazy quantifiers, counted repeats.
        {"a+?", "aaa", true, "a", 0, {}},
        {"a{2,3}", "aaaa", true, "aaa", 0, {}},
        {"a{2,3}?", "aaaa", true, "aa", 0, {}},
        {"a{2}", "a", false, "", 0, {}},
        {"a{,2}", "a{,2}", true, "a{,2}", 0, {}},
        {"x*y", "xxxz", false, "", 0, {}},
        // Alternatives are tried left to right, with the rest of the pattern after each.
        {"(a|ab)(c|bcd)(d*)", "abcd", true, "abcd", 0, {"a", "bcd", ""}},
        // Lookahead keeps its captures; a negative one keeps none.
        {"(?=(a+))a*b\\1", "baaabac", true, "aba", 3, {"a"}},
        {"(.*?)a(?!(a+)b\\2c)\\2(.*)", "baaabaac", true, "baaabaac", 0, {"ba", "<undefined>", "abaac"}},
        {"a(?=b)", "acab", true, "a", 2, {}},
        // Classes, ranges, escapes inside and outside them.
        {"[a-c]+", "xxbcaz", true, "bca", 2, {}},
        {"[^a-c]+", "abxyc", true, "xy", 2, {}},
        {"[\\d-z]+", "1-z", true, "1-z", 0, {}},
        {"[\\b]", "a\bb", true, "\b", 1, {}},
        {"[/]", "a/", true, "/", 1, {}},
        {"\\w+\\s\\W", "  ab_9 !", true, "ab_9 !", 2, {}},
        {"\\S+", " \xc2\xa0xy\xe3\x80\x80", true, "xy", 2, {}},
        {"\\x41\\u00e9\\cJ\\t", "A\xc3\xa9\n\t", true, "A\xc3\xa9\n\t", 0, {}},
        {"\\bfoo\\B", "a foox", true, "foo", 2, {}},
        {"]}", "]}", true, "]}", 0, {}},
        // The dot takes any code point but the line terminators, a supplementary one included.
        {"^.$", "\xf0\x9f\x98\x80", true, "\xf0\x9f\x98\x80", 0, {}},
        {"a.b", "a\nb", false, "", 0, {}},
        {"a.b", "a\xe2\x80\xa8" "b", false, "", 0, {}},
        {"^b", "a\nb", false, "", 0, {}},
    };
    for (auto const& r : rows) {
        SCOPED_TRACE(std::string(r.pattern) + " on " + r.subject);
        auto o = run(r.pattern, r.subject);
        EXPECT_EQ(o.matched, r.matched);
        if (r.matched) {
            EXPECT_EQ(o.whole, r.whole);
            EXPECT_EQ(o.index, r.index);
            EXPECT_EQ(o.groups, r.captures);
        }
    }
}

TEST(regexp, nul_escape_matches_nul) {
    auto o = run("\\0", std::string("x\0", 2));
    EXPECT_TRUE(o.matched);
    EXPECT_EQ(o.index, 1u);
}

TEST(regexp, multiline_anchors_at_every_line_terminator) {
    flags m{.ignore_case = false, .multiline = true};
    for (char const* sep : {"\n", "\r", "\xe2\x80\xa8", "\xe2\x80\xa9"}) {
        SCOPED_TRACE(sep);
        std::string subject = std::string("ab") + sep + "cd";
        EXPECT_EQ(run("^c", subject, m).index, 3u);
        EXPECT_EQ(run("b$", subject, m).whole, "b");
        EXPECT_FALSE(run("^c", subject).matched);
    }
}

TEST(regexp, ignore_case_folds_beyond_ascii) {
    flags i{.ignore_case = true, .multiline = false};
    EXPECT_EQ(run("\xc3\xa9t\xc3\xa9", "\xc3\x89T\xc3\x89", i).whole, "\xc3\x89T\xc3\x89"); // été / ÉTÉ
    EXPECT_EQ(run("\xce\xa3", "\xcf\x83", i).whole, "\xcf\x83");                          // Σ / σ
    EXPECT_TRUE(run("[\xcf\x82]", "\xcf\x83", i).matched);                                 // ς / σ in a class
    EXPECT_TRUE(run("[\xd0\xb0-\xd1\x8f]+", "\xd0\x96", i).matched);                       // [а-я] / Ж
    EXPECT_TRUE(run("(a)\\1", "aA", i).matched);
    EXPECT_FALSE(run("\xc3\xa9", "\xc3\x89", {}).matched);
    // The long s folds to S but is kept apart from ASCII letters.
    EXPECT_FALSE(run("s", "\xc5\xbf", i).matched);
    EXPECT_FALSE(run("[a-z]", "\xc5\xbf", i).matched);
}

TEST(regexp, search_starts_where_asked) {
    EXPECT_EQ(run("a", "aba", {}, 1).index, 2u);
    EXPECT_FALSE(run("a", "aba", {}, 3).matched);
    EXPECT_TRUE(run("", "ab", {}, 2).matched);
    auto p = parse_pattern(from_utf8("b"));
    ASSERT_TRUE(p);
    EXPECT_FALSE(match_at(p->parsed, p->total_parens, {}, from_utf8("ab"), 0).value());
    EXPECT_TRUE(match_at(p->parsed, p->total_parens, {}, from_utf8("ab"), 1).value());
}

TEST(regexp, parses_counts_and_groups) {
    auto huge = parse_pattern(from_utf8("a{99999999999999999999999,}"));
    ASSERT_TRUE(huge) << huge.error();
    auto const& t = std::get<atom_quantifier>(huge->parsed->disjunction_alternatives[0][0]);
    EXPECT_EQ(t.quantified_by.quantifier_min, std::numeric_limits<std::int64_t>::max());
    EXPECT_FALSE(t.quantified_by.quantifier_max);
    EXPECT_FALSE(run("a{99999999999999999999999}", "aaaa").matched);

    auto p = parse_pattern(from_utf8("(a)(?:b)((c)|(?=d))"));
    ASSERT_TRUE(p);
    EXPECT_EQ(p->total_parens, 3);
}

TEST(regexp, rejects_bad_patterns_with_messages) {
    struct row {
        char const* pattern;
        char const* message;
    };
    row const rows[] = {
        {"(", "no matching paren."},
        {"(a|b", "no matching paren."},
        {"a)", "unmatched ) in pattern."},
        {"*a", "nothing to repeat"},
        {"a**", "nothing to repeat"},
        {"^*", "nothing to repeat"},
        {"[a", "missing ] in character class"},
        {"[z-a]", "range out of order in character class"},
        {"a{3,2}", "numbers out of order in {} quantifier."},
        {"(?<a)", "invalid group"},
        {"a\\", "\\ at end of pattern"},
    };
    for (auto const& r : rows) {
        SCOPED_TRACE(r.pattern);
        auto p = parse_pattern(from_utf8(r.pattern));
        ASSERT_FALSE(p);
        EXPECT_EQ(p.error(), r.message);
    }
    EXPECT_EQ(parse_pattern(from_utf8(std::string(5000, '(') + std::string(5000, ')'))).error(),
              "too much nesting in pattern");
}

TEST(regexp, long_subjects_do_not_exhaust_the_stack) {
    std::string long_a(1'000'000, 'a');
    auto o = run("a*", long_a);
    EXPECT_EQ(o.whole.size(), long_a.size());
    std::string ab;
    for (int i = 0; i < 500'000; ++i) {
        ab += "ab";
    }
    EXPECT_EQ(run("(?:ab)*$", ab).whole.size(), ab.size());
    // Backtracking through all of it: the greedy loop gives back every character before failing.
    auto p = parse_pattern(from_utf8("(a)*b"));
    ASSERT_TRUE(p);
    EXPECT_FALSE(match_at(p->parsed, p->total_parens, {}, from_utf8(long_a), 0).value());
    EXPECT_EQ(run("(a|b)*?c", ab + "c").whole.size(), ab.size() + 1);
}

TEST(regexp, catastrophic_backtracking_gives_up_with_a_message) {
    auto p = parse_pattern(from_utf8("(a+)+b"));
    ASSERT_TRUE(p);
    auto r = match(p->parsed, p->total_parens, {}, from_utf8(std::string(30, 'a')), 0);
    ASSERT_FALSE(r);
    EXPECT_EQ(r.error(), too_complex_message);
    // The same pattern on a short subject still answers.
    auto small = match(p->parsed, p->total_parens, {}, from_utf8("aaaab"), 0);
    ASSERT_TRUE(small && *small);
    EXPECT_EQ(to_utf8((*small)->match_substring), "aaaab");
}

} // namespace
} // namespace vellum::regexp
