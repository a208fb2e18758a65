#include "js/jsstring.hpp"

#include <gtest/gtest.h>

using namespace vellum::jsstring;

TEST(JsString, CountsCodePointsNotUnits)
{
    EXPECT_EQ(from_utf8("abc").length(), 3u);
    // One emoji outside the Basic Multilingual Plane is one element, not a surrogate pair.
    js_string emoji = from_utf8("\xF0\x9F\x98\x80");
    ASSERT_EQ(emoji.length(), 1u);
    EXPECT_EQ(emoji[0], U'\U0001F600');
    EXPECT_EQ(to_utf8(emoji), "\xF0\x9F\x98\x80");
}

TEST(JsString, NulIsAnElementAndOrderIsByCodePoint)
{
    js_string with_nul{.code_points = std::u32string(U"a\0b", 3)};
    EXPECT_EQ(with_nul.length(), 3u);
    EXPECT_TRUE(has_nul(with_nul));
    EXPECT_FALSE(has_nul(from_utf8("ab")));
    // U+FF61 sorts after U+1F600 in UTF-16 unit order but before it by code point.
    EXPECT_LT(from_utf8("\xEF\xBD\xA1"), from_utf8("\xF0\x9F\x98\x80"));
    EXPECT_LT(from_utf8("ab"), from_utf8("abc"));
    EXPECT_EQ(concat(from_utf8("ab"), from_utf8("c")), from_utf8("abc"));
}

TEST(JsString, LoneSurrogateBecomesReplacementInUtf8)
{
    js_string lone{.code_points = std::u32string(1, char32_t{0xD800})};
    EXPECT_EQ(to_utf8(lone), "\xEF\xBF\xBD");
}
