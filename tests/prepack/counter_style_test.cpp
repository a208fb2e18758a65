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
    };

    for (auto const& c : cases) {
        SCOPED_TRACE(std::to_string(c.value) + " " + c.style);
        EXPECT_EQ(textbuf::to_utf8(format_counter(c.value, c.style)), c.expected);
    }
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
