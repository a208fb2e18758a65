#include "resource/capture_log.hpp"
#include "text/hyph/hyph.hpp"
#include "text/hyph/hyphen_parser.hpp"
#include "text/hyph/hyphenation.hpp"
#include "text/unicode/utf8.hpp"

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace vellum {
namespace {

using hyphen_parser::hyphen_point;
using hyphen_parser::hyphen_rule0;
using hyphen_parser::hyphen_rules;
using hyphen_parser::pattern_type;

std::u32string u32(std::string const& s) {
    return unicode::utf8::decode_utf8(s).value();
}

hyphen_rules rules_of(std::string const& text) {
    return hyphen_parser::parse_patterns(u32(text));
}

// The parts of a word joined with "-", so that a whole result reads at a glance.
std::string hyphenated(hyphen_rules const& rules, std::string const& word, int before = 2, int after = 2) {
    std::string out;
    for (auto const& part : hyphenation::hyphenate(rules, before, after, u32(word))) {
        if (!out.empty()) {
            out += "-";
        }
        out += unicode::utf8::encode_utf8(part);
    }
    return out;
}

std::string source_file(std::string const& name) {
    return std::string(VELLUM_SOURCE_DIR) + "/resources/hyph/" + name;
}

TEST(hyphen_parser, reads_letters_points_and_anchors) {
    struct row {
        char const* line;
        hyphen_rule0 expected;
    };

    std::vector<row> const rows = {
        {"a1b", {.node = U'a', .tail = U"b", .pattern_type = pattern_type::any, .hyphen_points = {{1, 1}}}},
        {".ab1c",
         {.node = U'a', .tail = U"bc", .pattern_type = pattern_type::front, .hyphen_points = {{2, 1}}}},
        {"ab1c.",
         {.node = U'a', .tail = U"bc", .pattern_type = pattern_type::end, .hyphen_points = {{2, 1}}}},
        {".ab1c.",
         {.node = U'a', .tail = U"bc", .pattern_type = pattern_type::whole, .hyphen_points = {{2, 1}}}},
        {"  2b3c4\r", {.node = U'b', .tail = U"c", .hyphen_points = {{0, 2}, {1, 3}, {2, 4}}}},
        {"\xc3\xa4"
         "5\xc3\x9f",
         {.node = U'ä', .tail = U"ß", .hyphen_points = {{1, 5}}}},
        {"'a4", {.node = U'\'', .tail = U"a", .hyphen_points = {{2, 4}}}},
    };
    for (auto const& r : rows) {
        SCOPED_TRACE(r.line);
        auto const p = hyphen_parser::parse_pattern(u32(r.line));
        ASSERT_TRUE(p.has_value());
        EXPECT_EQ(*p, r.expected);
    }
    // No hyphen point, or no letter: not a pattern. Comment lines without digits fall out this way.
    for (char const* line : {"", "   ", "abc", ".abc.", "% a comment, with punctuation.", "12", ".3."}) {
        SCOPED_TRACE(line);
        EXPECT_FALSE(hyphen_parser::parse_pattern(u32(line)).has_value());
    }
}

TEST(hyphen_parser, builds_a_shared_ordered_trie) {
    auto const rules = rules_of("% header\nb1a\na1b\na2bc\nab3d\n\na1b\n");
    ASSERT_EQ(rules.size(), 2u);
    EXPECT_EQ(rules[0].rule_letter, U'a');
    EXPECT_EQ(rules[1].rule_letter, U'b');
    auto const* ab = hyphen_parser::find_branch(rules[0].rule_node.branches, U'b');
    ASSERT_NE(ab, nullptr);
    // "a1b" twice ends at the same node; "a2bc" and "ab3d" share the path through "ab".
    EXPECT_EQ(ab->endable.size(), 2u);
    ASSERT_EQ(ab->branches.size(), 2u);
    EXPECT_EQ(ab->branches[0].rule_letter, U'c');
    EXPECT_EQ(ab->branches[1].rule_letter, U'd');
    EXPECT_EQ(ab->branches[1].rule_node.endable[0].info_points, (hyphen_parser::hyphen_points{{2, 3}}));
    EXPECT_EQ(hyphen_parser::find_branch(rules, U'z'), nullptr);
}

TEST(hyphenation, limits_before_and_after) {
    auto const rules = rules_of("a1b\nb1c\nc1d\nd1e\ne1f\n");
    EXPECT_EQ(hyphenated(rules, "abcdef", 1, 1), "a-b-c-d-e-f");
    EXPECT_EQ(hyphenated(rules, "abcdef", 2, 2), "ab-c-d-ef");
    EXPECT_EQ(hyphenated(rules, "abcdef", 2, 3), "ab-c-def");
    EXPECT_EQ(hyphenated(rules, "abcdef", 3, 3), "abc-def");
    // Fewer letters than before plus after: never split.
    EXPECT_EQ(hyphenated(rules, "abcde", 3, 3), "abcde");
    EXPECT_EQ(hyphenated(rules, "ab", 1, 1), "a-b");
    EXPECT_EQ(hyphenated(rules, "a", 1, 1), "a");
    EXPECT_EQ(hyphenated(rules, "", 2, 2), "");
    // Limits of zero still never cut off an empty part.
    EXPECT_EQ(hyphenated(rules_of("1a1b1\n"), "ab", 0, 0), "a-b");
}

TEST(hyphenation, the_run_cache_gives_each_word_its_parts_once) {
    // The cache answers as the patterns do, keeps one answer per word, patterns and limits, and tells
    // words apart that differ only in their limits or their patterns.
    auto const rules = rules_of("a1b\nb1c\nc1d\nd1e\ne1f\n");
    auto const other = rules_of("c1d\n");
    hyph::hyph cache;
    auto const first = hyph::hyphenate(cache, rules, 2, 2, u32("abcdef"));
    EXPECT_EQ(*first, hyphenation::hyphenate(rules, 2, 2, u32("abcdef")));
    EXPECT_EQ(hyph::hyphenate(cache, rules, 2, 2, u32("abcdef")), first) << "the same answer, shared";
    EXPECT_EQ(*hyph::hyphenate(cache, rules, 3, 3, u32("abcdef")), hyphenation::hyphenate(rules, 3, 3, u32("abcdef")));
    EXPECT_EQ(*hyph::hyphenate(cache, other, 2, 2, u32("abcdef")), hyphenation::hyphenate(other, 2, 2, u32("abcdef")));
    EXPECT_EQ(*hyph::hyphenate(cache, rules, 2, 2, u32("abcde")), hyphenation::hyphenate(rules, 2, 2, u32("abcde")));
    EXPECT_EQ(cache.hyph_words.get().size(), 4u);
}

TEST(hyphenation, even_priorities_inhibit) {
    EXPECT_EQ(hyphenated(rules_of("x1y\n"), "aaxyaa"), "aax-yaa");
    // A priority 2 at the same index beats the 1.
    EXPECT_EQ(hyphenated(rules_of("x1y\nx2ya\n"), "aaxyaa"), "aaxyaa");
    EXPECT_EQ(hyphenated(rules_of("x1y\nax2y\n"), "aaxyaa"), "aaxyaa");
    // And a 3 beats the 2 again.
    EXPECT_EQ(hyphenated(rules_of("x1y\nax2y\naax3y\n"), "aaxyaa"), "aax-yaa");
}

TEST(hyphenation, anchors_to_the_start_and_end) {
    auto const front = rules_of(".ab1c\n");
    EXPECT_EQ(hyphenated(front, "abcabc", 1, 1), "ab-cabc");
    EXPECT_EQ(hyphenated(front, "xabcab", 1, 1), "xabcab");

    auto const end = rules_of("ab1c.\n");
    EXPECT_EQ(hyphenated(end, "abcabc", 1, 1), "abcab-c");
    EXPECT_EQ(hyphenated(end, "abcx", 1, 1), "abcx");

    auto const whole = rules_of(".ab1c.\n");
    EXPECT_EQ(hyphenated(whole, "abc", 1, 1), "ab-c");
    EXPECT_EQ(hyphenated(whole, "abcabc", 1, 1), "abcabc");
    EXPECT_EQ(hyphenated(whole, "xabc", 1, 1), "xabc");
}

TEST(hyphenation, keeps_punctuation_at_both_ends) {
    auto const rules = rules_of("a1b\n");
    EXPECT_EQ(hyphenated(rules, "\"abab,\"", 1, 1), "\"a-ba-b,\"");
    EXPECT_EQ(hyphenated(rules, "...", 1, 1), "...");
    // Punctuation takes no room against the limits.
    auto const middle = rules_of("b1a\n");
    EXPECT_EQ(hyphenated(middle, "((abab))", 2, 2), "((ab-ab))");
    EXPECT_EQ(hyphenated(middle,
                         "\xe2\x80\x9c"
                         "abab!",
                         2, 2),
              "\xe2\x80\x9c"
              "ab-ab!");
    // Punctuation inside the word is matched like a letter.
    EXPECT_EQ(hyphenated(middle, "ab-ab", 1, 1), "ab-ab");
    EXPECT_EQ(hyphenated(rules_of("-1\n"), "ab-ab", 1, 1), "ab--ab");
    // Anchored patterns see the letters, not the punctuation.
    EXPECT_EQ(hyphenated(rules_of(".ab1c.\n"), "(abc).", 1, 1), "(ab-c).");
}

TEST(hyphenation, matches_upper_case_letters_in_lower_case) {
    auto const rules = rules_of("a1b\n\xc3\xa4"
                                "1\xc3\xa9\n");
    EXPECT_EQ(hyphenated(rules, "ABAB", 1, 1), "A-BA-B");
    EXPECT_EQ(hyphenated(rules, "XX\xc3\x84\xc3\x89YY", 2, 2), "XX\xc3\x84-\xc3\x89YY");
}

TEST(hyphenation, splits_real_words_with_the_installed_patterns) {
    testing::capture_log cl;
    auto const en = hyphen_parser::read_patterns(cl.log, {source_file("en-us.pat")});
    ASSERT_TRUE(en.has_value()) << en.error();
    EXPECT_EQ(hyphenated(*en, "hyphenation", 2, 3), "hy-phen-ation");
    EXPECT_EQ(hyphenated(*en, "Hyphenation.", 2, 3), "Hy-phen-ation.");
    EXPECT_EQ(hyphenated(*en, "computer", 2, 3), "com-puter");
    EXPECT_EQ(hyphenated(*en, "algorithm", 2, 3), "al-go-rithm");
    EXPECT_EQ(hyphenated(*en, "the", 2, 3), "the");

    auto const de = hyphen_parser::read_patterns(cl.log, {source_file("de.pat")});
    ASSERT_TRUE(de.has_value()) << de.error();
    EXPECT_EQ(hyphenated(*de, "Silbentrennung"), "Sil-ben-tren-nung");
    EXPECT_EQ(hyphenated(*de, "Straße"), "Stra-ße");
    EXPECT_EQ(hyphenated(*de, "Übersetzung"), "Über-set-zung");
}

// Plain TeX's hyphenations of common English words: what TeX's own patterns (hyphen.tex, by Liang and
// Knuth) give with \lefthyphenmin 2 and \righthyphenmin 3. None of the words is in hyphen.tex's list of
// exceptions, so the patterns alone decide. The installed US English patterns are libhyphen's, which
// start from TeX's and add more; they must find exactly TeX's breaks, no more and no fewer, except for
// the few words listed where the added patterns find the dictionary's breaks that TeX misses.
TEST(hyphenation, english_words_break_where_tex_breaks_them) {
    // clang-format off
    static char const* const tex_words[] = {
        "hy-phen-ation", "al-go-rithm", "com-puter", "para-graph", "ty-pog-ra-phy", "jus-ti-fi-ca-tion",
        "demon-stra-tion", "par-tic-u-larly", "in-for-ma-tion", "de-vel-op-ment", "gov-ern-ment",
        "un-der-stand-ing", "in-de-pen-dent", "or-ga-ni-za-tion", "sig-nif-i-cant", "re-la-tion-ship",
        "en-vi-ron-ment", "in-ter-na-tional", "con-sid-er-a-tion", "re-spon-si-bil-ity", "char-ac-ter-is-tic",
        "com-mu-ni-ca-tion", "ex-per-i-men-tal", "in-ter-pre-ta-tion", "pub-li-ca-tion", "com-po-si-tion",
        "mea-sure-ment", "prob-a-bil-ity", "dis-tri-bu-tion", "ap-prox-i-mately", "nev-er-the-less",
        "ex-traor-di-nary", "rep-re-sen-ta-tive", "cir-cum-stances", "un-for-tu-nately", "es-tab-lish-ment",
        "his-tory", "be-tween", "through", "be-cause", "an-other", "against", "sev-eral", "with-out",
        "how-ever", "peo-ple", "lit-tle", "al-ways", "should", "be-fore", "math-e-mat-ics",
        "math-e-mat-i-cal", "phi-los-o-phy", "psy-chol-ogy", "phys-i-cal", "chem-istry", "bi-ol-ogy",
        "ge-og-ra-phy", "uni-ver-sity", "ed-u-ca-tion", "knowl-edge", "lan-guage", "lit-er-a-ture",
        "char-ac-ter", "dif-fer-ent", "im-por-tant", "es-pe-cially", "po-lit-i-cal", "na-tional",
        "pos-si-ble", "eco-nomic", "pop-u-la-tion", "par-tic-u-lar", "to-gether", "ev-ery-thing",
        "some-thing", "any-thing", "beau-ti-ful", "won-der-ful", "re-mem-ber", "ques-tion", "prob-lem",
        "ex-am-ple", "ex-pe-ri-ence", "sit-u-a-tion", "con-di-tion", "pro-duc-tion", "op-er-a-tion",
        "dif-fer-ence", "ma-te-rial", "con-tinue", "pres-i-dent", "in-ter-est", "in-crease", "prop-erty",
        "at-ten-tion", "com-mu-nity", "busi-ness", "chil-dren", "trans-porta-tion", "elec-tric-ity",
        "tem-per-a-ture", "en-cy-clo-pe-dia", "dic-tio-nary", "vo-cab-u-lary", "pro-nun-ci-a-tion",
        "punc-tu-a-tion", "ab-bre-vi-a-tion", "manuscript", "type-set-ting", "for-mat-ting", "doc-u-ment",
        "pro-ces-sor", "hy-phen-ate", "break-ing", "spac-ing", "stretch-ing", "shrink-ing", "de-mer-its",
        "ad-just-ment", "tol-er-ance", "penalty", "fit-ness", "op-ti-mum", "anal-y-sis", "mul-ti-ple",
        "al-ge-braic", "arith-metic", "ge-om-e-try", "li-brary", "yes-ter-day", "to-mor-row", "af-ter-noon",
        "be-gin-ning", "ev-ery-body", "evening", "fam-ily", "fa-ther", "mother",
    };
    // clang-format on
    // TeX's result, and the installed patterns' where they do better.
    static std::map<std::string, std::string> const beyond_tex = {
        {"ex-traor-di-nary", "ex-tra-or-di-nary"},
        {"manuscript", "man-u-script"},
    };
    testing::capture_log cl;
    auto const en = hyphen_parser::read_patterns(cl.log, {source_file("en-us.pat")});
    ASSERT_TRUE(en.has_value()) << en.error();
    int as_tex = 0;
    int split = 0;
    for (std::string const tex : tex_words) {
        std::string word;
        std::copy_if(tex.begin(), tex.end(), std::back_inserter(word), [](char c) { return c != '-'; });
        auto const better = beyond_tex.find(tex);
        auto const got = hyphenated(*en, word, 2, 3);
        EXPECT_EQ(got, better == beyond_tex.end() ? tex : better->second);
        as_tex += got == tex;
        split += tex != word;
    }
    EXPECT_GE(as_tex, 100) << "of " << std::size(tex_words) << " words";
    EXPECT_GE(split, 100) << "most of the sample has breaks to find";
}

TEST(hyphenation, every_installed_pattern_file_loads) {
    testing::capture_log cl;
    for (char const* name :
         {"en-us.pat", "en-gb.pat", "de.pat", "fr.pat", "es.pat", "it.pat", "nl.pat", "pt.pat"}) {
        SCOPED_TRACE(name);
        auto const rules = hyphen_parser::read_patterns(cl.log, {source_file(name)});
        ASSERT_TRUE(rules.has_value()) << rules.error();
        EXPECT_GT(rules->size(), 20u);
    }
    EXPECT_EQ(cl.count("loading hyphenation patterns: "), 8);
}

TEST(hyph, caches_patterns_and_reports_a_missing_file_once) {
    testing::capture_log cl;
    hyph::hyph cache;
    resource::loader::loader const loader{.loader_prefix = {std::string(VELLUM_SOURCE_DIR) + "/resources"},
                                          .loader_curdir = {"/nonexistent"},
                                          .loader_network = resource::loader::no_network{}};
    auto system_file = [](std::string path) {
        return resource::locator::locator{.locator_url =
                                              resource::locator::file{.file_path = {std::move(path)}},
                                          .locator_origin = resource::locator::locator_origin::system_origin};
    };

    auto const first = hyph::get_patterns(cl.log, cache, loader, system_file("/hyph/en-us.pat"));
    auto const second = hyph::get_patterns(cl.log, cache, loader, system_file("/hyph/en-us.pat"));
    ASSERT_TRUE(first.has_value());
    ASSERT_TRUE(second.has_value());
    EXPECT_EQ(first->get(), second->get()); // one trie, built once
    EXPECT_EQ(cl.count("loading hyphenation patterns: "), 1);

    std::string const missing = std::string(VELLUM_SOURCE_DIR) + "/resources/hyph/xx.pat";
    EXPECT_FALSE(hyph::get_patterns(cl.log, cache, loader, system_file("/hyph/xx.pat")).has_value());
    EXPECT_FALSE(hyph::get_patterns(cl.log, cache, loader, system_file("/hyph/xx.pat")).has_value());
    EXPECT_EQ(cl.count("loading hyphenation patterns: "), 2);
    EXPECT_EQ(cl.count(missing + ": error: cannot open file"), 1) << cl.text();
    EXPECT_EQ(cache.hyph_dictionaries.get().size(), 2u);

    // A document may not name local files when they are refused, and a web name is no file.
    auto document_file = system_file("/hyph/de.pat");
    document_file.locator_origin = resource::locator::locator_origin::document_origin;
    EXPECT_FALSE(hyph::get_patterns(cl.log, cache, loader, document_file).has_value());
    resource::locator::locator const web{.locator_url = resource::locator::web{.web_url = "http://x/de.pat"}};
    EXPECT_FALSE(hyph::get_patterns(cl.log, cache, loader, web).has_value());
    EXPECT_EQ(cl.count("loading hyphenation patterns: "), 2);
}

TEST(hyph, reports_a_file_that_is_not_utf8) {
    testing::capture_log cl;
    std::string const path = ::testing::TempDir() + "hyph_latin1.pat";
    std::FILE* f = std::fopen(path.c_str(), "wb");
    ASSERT_NE(f, nullptr);
    std::fputs("a1b\n\xe4"
               "1b\n",
               f);
    std::fclose(f);
    hyph::hyph cache;
    EXPECT_FALSE(hyph::get_patterns_at(cl.log, cache, {path}).has_value());
    EXPECT_EQ(cl.count("invalid UTF-8 at byte 4"), 1) << cl.text();
    std::remove(path.c_str());
}

} // namespace
} // namespace vellum
