#include "text/grapheme_boundary.hpp"
#include "text/unicode/linebreak.hpp"

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

using namespace vellum::unicode::linebreak;

// A case of a Unicode break test file: the code points, whether a break lies after each one, and the
// line itself for messages.
struct break_case {
    std::u32string break_case_text;
    std::vector<bool> break_case_breaks;
    std::string break_case_line;
};

// Reads lines like "× 0023 × 0308 ÷ 0020 ÷  # comment": each code point is followed by ÷ (break) or ×.
std::vector<break_case> read_break_test(std::string const& path) {
    std::vector<break_case> cases;
    std::ifstream in(path);
    std::string line;
    while (std::getline(in, line)) {
        auto const data = line.substr(0, line.find('#'));
        std::istringstream words(data);
        std::string word;
        break_case c;
        c.break_case_line = data;
        while (words >> word) {
            if (word == "\xC3\xB7") { // ÷
                if (!c.break_case_text.empty()) {
                    c.break_case_breaks.push_back(true);
                }
            } else if (word == "\xC3\x97") { // ×
                if (!c.break_case_text.empty()) {
                    c.break_case_breaks.push_back(false);
                }
            } else {
                c.break_case_text.push_back(static_cast<char32_t>(std::stoul(word, nullptr, 16)));
            }
        }
        if (!c.break_case_text.empty()) {
            cases.push_back(std::move(c));
        }
    }
    return cases;
}

std::u32string const hebrew_dash = U"\u05D0-\u05D1";

std::string marks(std::vector<break_action> const& actions) {
    std::string s;
    for (auto a : actions) {
        s += a == break_action::prohibited ? 'x' : a == break_action::allowed ? '/' : '!';
    }
    return s;
}

} // namespace

TEST(linebreak, classes_of_well_known_characters) {
    EXPECT_EQ(line_break_class_of(U' '), line_break_class::sp);
    EXPECT_EQ(line_break_class_of(U'a'), line_break_class::al);
    EXPECT_EQ(line_break_class_of(U'7'), line_break_class::nu);
    EXPECT_EQ(line_break_class_of(U'-'), line_break_class::hy);
    EXPECT_EQ(line_break_class_of(U'('), line_break_class::op);
    EXPECT_EQ(line_break_class_of(U')'), line_break_class::cp);
    EXPECT_EQ(line_break_class_of(U'\n'), line_break_class::lf);
    EXPECT_EQ(line_break_class_of(0x00A0), line_break_class::gl);
    EXPECT_EQ(line_break_class_of(0x200B), line_break_class::zw);
    EXPECT_EQ(line_break_class_of(0x2014), line_break_class::b2);
    EXPECT_EQ(line_break_class_of(0x4E00), line_break_class::id);
    EXPECT_EQ(line_break_class_of(0x0E01), line_break_class::sa);
    EXPECT_EQ(line_break_class_of(0x05D0), line_break_class::hl);
    EXPECT_EQ(line_break_class_of(0x1F1E6), line_break_class::ri);
    // An unassigned code point in the ideographic plane defaults to ideographic, elsewhere to unknown.
    EXPECT_EQ(line_break_class_of(0x2FFFD), line_break_class::id);
    EXPECT_EQ(line_break_class_of(0x0378), line_break_class::xx);
    EXPECT_EQ(line_break_class_of(0x110000), line_break_class::xx);
}

TEST(linebreak, opportunities_in_short_texts) {
    struct row {
        char const* name;
        std::u32string text;
        char const* expected; // x: prohibited, /: allowed, !: mandatory, one per code point
    };

    std::vector<row> const rows = {
        {"words", U"ab cd", "xx/x!"},
        {"spaces stay with the word before", U"a  b", "xx/!"},
        {"hyphen breaks after", U"well-known", "xxxx/xxxx!"},
        {"line feed is mandatory", U"a\nb", "x!!"},
        {"cr lf stays together", U"a\r\nb", "xx!!"},
        {"no break before closing punctuation", U"(a) b.", "xxx/x!"},
        {"no break after opening even across spaces", U"( a", "xx!"},
        {"no-break space", U"a\u00A0b", "xx!"},
        {"word joiner", U"a\u2060b", "xx!"},
        {"zero width space", U"a\u200Bb", "x/!"},
        {"ideographs break anywhere", U"\u4E00\u4E8C\u4E09", "//!"},
        {"ideographic full stop", U"\u4E00\u3002\u4E8C", "x/!"},
        {"number with separators and percent", U"1,234.5%", "xxxxxxx!"},
        {"currency before a bracketed number", U"$(12)", "xxxx!"},
        {"combining mark takes its base", U"a\u0301 b", "xx/!"},
        {"mark after space counts as a letter", U" \u0301a", "/x!"},
        {"flags pair up", U"\U0001F1E6\U0001F1E8\U0001F1E9\U0001F1EA", "x/x!"},
        {"hebrew letter with hyphen", hebrew_dash, "xx!"},
        {"emoji with modifier", U"\U0001F44D\U0001F3FB", "x!"},
        {"zwj keeps an emoji sequence", U"\U0001F468\u200D\U0001F469", "xx!"},
        {"em dashes stay together", U"a\u2014\u2014b", "/x/!"},
        {"empty", U"", ""},
    };
    for (auto const& r : rows) {
        SCOPED_TRACE(r.name);
        EXPECT_EQ(marks(break_opportunities(r.text)), r.expected);
    }
}

// Unicode's own test of line breaking, which follows the default rules with numbers matched as a whole
// pattern. Every case counts; the cases that differ are printed with what the function gave.
TEST(linebreak, agrees_with_unicode_line_break_test) {
    auto const cases = read_break_test("/usr/share/unicode/auxiliary/LineBreakTest.txt");
    ASSERT_GT(cases.size(), 7000u);
    std::size_t agree = 0;
    std::size_t positions = 0;
    std::size_t positions_agree = 0;
    std::vector<std::string> differing;
    for (auto const& c : cases) {
        auto const actions = break_opportunities(c.break_case_text);
        ASSERT_EQ(actions.size(), c.break_case_breaks.size()) << c.break_case_line;
        bool same = true;
        for (std::size_t i = 0; i < actions.size(); ++i) {
            bool const breaks = actions[i] != break_action::prohibited;
            ++positions;
            if (breaks == c.break_case_breaks[i]) {
                ++positions_agree;
            } else {
                same = false;
            }
        }
        if (same) {
            ++agree;
        } else {
            differing.push_back(c.break_case_line + "  got " + marks(actions));
        }
    }
    double const percent = 100.0 * static_cast<double>(agree) / static_cast<double>(cases.size());
    std::printf("LineBreakTest: %zu of %zu cases agree (%.2f%%), %zu of %zu positions\n", agree, cases.size(),
                percent, positions_agree, positions);
    for (auto const& d : differing) {
        std::printf("  differs: %s\n", d.c_str());
    }
    EXPECT_GE(percent, 95.0);
}

// The grapheme rule is deliberately smaller than Unicode's (no Hangul syllable rules, no prepended
// marks, no emoji sequences), so the agreement is reported and only a floor is kept.
TEST(grapheme_boundary, agreement_with_unicode_grapheme_break_test) {
    using namespace vellum::grapheme_boundary;
    auto const cases = read_break_test("/usr/share/unicode/auxiliary/GraphemeBreakTest.txt");
    ASSERT_GT(cases.size(), 500u);
    std::size_t agree = 0;
    for (auto const& c : cases) {
        auto const& t = c.break_case_text;
        ASSERT_EQ(t.size(), c.break_case_breaks.size()) << c.break_case_line;
        bool same = true;
        for (std::size_t i = 0; i + 1 < t.size(); ++i) {
            bool const b = grapheme_break(get_grapheme_break_class(t[i]), get_grapheme_break_class(t[i + 1]));
            same = same && b == c.break_case_breaks[i];
        }
        agree += same ? 1 : 0;
        if (!same) {
            std::printf("  differs: %s\n", c.break_case_line.c_str());
        }
    }
    std::printf("GraphemeBreakTest: %zu of %zu cases agree (%.2f%%)\n", agree, cases.size(),
                100.0 * static_cast<double>(agree) / static_cast<double>(cases.size()));
    EXPECT_GT(agree, cases.size() / 2);
}

// The compiled table against the character data itself, for every code point the data lists.
TEST(linebreak, table_matches_the_character_data) {
    static char const* const names[line_break_class_count] = {
        "BK", "CR", "LF", "CM", "NL", "SG", "WJ", "ZW", "GL", "SP", "ZWJ", "B2", "BA", "BB", "HY",
        "CB", "CL", "CP", "EX", "IN", "NS", "OP", "QU", "IS", "NU", "PO",  "PR", "SY", "AI", "AL",
        "CJ", "EB", "EM", "H2", "H3", "HL", "ID", "JL", "JT", "JV", "RI",  "SA", "XX"};
    std::ifstream in("/usr/share/unicode/LineBreak.txt");
    std::string line;
    int lines = 0;
    int wrong = 0;
    while (std::getline(in, line) && wrong < 10) {
        unsigned first = 0;
        unsigned last = 0;
        char value[8] = {};
        if (std::sscanf(line.c_str(), "%x..%x;%7[A-Z0-9]", &first, &last, value) != 3) {
            if (std::sscanf(line.c_str(), "%x;%7[A-Z0-9]", &first, value) != 2) {
                continue;
            }
            last = first;
        }
        ++lines;
        for (auto cp = first; cp <= last; ++cp) {
            if (names[static_cast<int>(line_break_class_of(cp))] != std::string(value)) {
                ADD_FAILURE() << std::hex << cp << " " << value;
                ++wrong;
            }
        }
    }
    EXPECT_GT(lines, 3000);
}
