// Counter styles: letters as digits of a base with no zero, roman numerals within their range,
// bullets, and decimal for what a style cannot show.
#include "prepack/counter_style.hpp"

#include <string>

#include <gtest/gtest.h>

namespace vellum::prepack::counter_style {
namespace {

TEST(counter_style, values_at_the_limits_of_each_style) {
    struct tcase {
        int value;
        char const* style;
        char const* expected;
    } const cases[] = {
        {26, "lower-alpha", "z"},
        {27, "lower-alpha", "aa"},
        {702, "upper-alpha", "ZZ"},
        {703, "upper-alpha", "AAA"},
        {0, "lower-alpha", "0"},
        {1994, "upper-roman", "MCMXCIV"},
        {3999, "upper-roman", "MMMCMXCIX"},
        {4000, "upper-roman", "4000"},
        {0, "lower-roman", "0"},
        {-2, "lower-roman", "-2"},
        {12, "decimal-leading-zero", "12"},
        {2, "lower-greek", "β"},
        {5, "none", ""},
        {-7, "decimal", "-7"},
        // Digits of other bases and scripts.
        {10, "binary", "1010"},
        {-8, "octal", "-10"},
        {255, "upper-hexadecimal", "FF"},
        {255, "lower-hexadecimal", "ff"},
        {109, "arabic-indic", "١٠٩"},
        {42, "persian", "۴۲"},
        {2026, "cjk-decimal", "二〇二六"},
        // Alphabets with no zero, wrapping to two letters after the last.
        {29, "lower-norwegian", "å"},
        {30, "upper-norwegian", "AA"},
        {28, "lower-russian", "я"},
        {24, "upper-greek", "Ω"},
        {1, "hiragana", "あ"},
        {47, "katakana-iroha", "ス"},
        {13, "cjk-earthly-branch", "子子"},
        {10, "cjk-heavenly-stem", "癸"},
        // Chinese and Japanese numbers: place markers, group markers, zeros between digits.
        {0, "simp-chinese-informal", "零"},
        {10, "simp-chinese-informal", "十"},
        {15, "simp-chinese-informal", "十五"},
        {20, "simp-chinese-informal", "二十"},
        {105, "simp-chinese-informal", "一百零五"},
        {110, "trad-chinese-informal", "一百一十"},
        {1001, "trad-chinese-informal", "一千零一"},
        {10001, "simp-chinese-informal", "一万零一"},
        {100000001, "trad-chinese-informal", "一億零一"},
        {-3, "simp-chinese-informal", "负三"},
        {12345, "simp-chinese-formal", "壹万贰仟叁佰肆拾伍"},
        {15, "trad-chinese-formal", "壹拾伍"},
        {0, "japanese-informal", "〇"},
        {1111, "japanese-informal", "千百十一"},
        {10005, "japanese-informal", "一万五"},
        {2013, "japanese-formal", "弐阡壱拾参"},
    };

    for (auto const& c : cases) {
        SCOPED_TRACE(std::to_string(c.value) + " " + c.style);
        EXPECT_EQ(textbuf::to_utf8(format_counter(c.value, c.style)), c.expected);
    }
}

TEST(counter_style, glyphs_and_marker_suffixes) {
    EXPECT_EQ(textbuf::to_utf8(format_counter(9, "check")), "\u2713");
    EXPECT_EQ(textbuf::to_utf8(format_counter(9, "diamond")), "\u25C6");
    EXPECT_TRUE(is_glyph_style("hyphen"));
    EXPECT_FALSE(is_glyph_style("decimal"));
    EXPECT_EQ(marker_suffix("disc"), U"");
    EXPECT_EQ(marker_suffix("none"), U"");
    EXPECT_EQ(marker_suffix("upper-roman"), U".");
    EXPECT_EQ(marker_suffix("japanese-formal"), U"\u3001");
    EXPECT_EQ(marker_suffix("cjk-decimal"), U"\u3001");
}

TEST(counter_style, bullets_and_unknown_styles) {
    EXPECT_EQ(textbuf::to_utf8(format_counter(3, "disc")), "\u2022");
    EXPECT_EQ(textbuf::to_utf8(format_counter(3, "circle")), "\u25E6");
    EXPECT_EQ(textbuf::to_utf8(format_counter(3, "square")), "\u25AA");
    EXPECT_EQ(textbuf::to_utf8(format_counter(7, "decimal-leading-zero")), "07");
    // A style this system doesn't know counts in decimal rather than showing nothing.
    EXPECT_EQ(textbuf::to_utf8(format_counter(42, "hebrew")), "42");
}

} // namespace
} // namespace vellum::prepack::counter_style
