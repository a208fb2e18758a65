#include "js/jsstring.hpp"

#include <gtest/gtest.h>

#include <vector>

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
    js_string with_nul(std::u32string(U"a\0b", 3));
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
    js_string lone(std::u32string(1, char32_t{0xD800}));
    EXPECT_EQ(to_utf8(lone), "\xEF\xBF\xBD");
}

// Appends share one buffer; each string must still see only its own text, whichever of two strings
// with a common prefix is extended first, and views taken earlier must stay valid.
TEST(JsString, AppendsShareABufferWithoutChangingEarlierStrings)
{
    js_string s = from_utf8("0123456789012345678901234567890123456789");
    js_string const base = concat(s, from_utf8("!"));
    std::u32string_view const early = base.code_points();
    js_string const x = concat(base, from_utf8("x"));
    js_string const y = concat(base, from_utf8("y"));
    EXPECT_EQ(to_utf8(x), to_utf8(s) + "!x");
    EXPECT_EQ(to_utf8(y), to_utf8(s) + "!y");
    EXPECT_EQ(to_utf8(base), to_utf8(s) + "!");
    EXPECT_EQ(early, base.code_points());

    // A string appended to itself, many times over: buffers are outgrown and replaced.
    js_string doubled = from_utf8("ab");
    for (int i = 0; i < 10; ++i)
        doubled = concat(doubled, doubled);
    ASSERT_EQ(doubled.length(), 2048u);
    for (std::size_t i = 0; i < doubled.length(); ++i)
        ASSERT_EQ(doubled[i], i % 2 == 0 ? U'a' : U'b') << i;

    // A long run of one-element appends keeps every intermediate string intact.
    std::vector<js_string> steps{js_string()};
    for (int i = 0; i < 1000; ++i)
        steps.push_back(concat(steps.back(), js_string(std::u32string(1, char32_t(U'a' + i % 26)))));
    for (std::size_t n = 0; n < steps.size(); n += 97) {
        ASSERT_EQ(steps[n].length(), n);
        if (n > 0) {
            EXPECT_EQ(steps[n][n - 1], char32_t(U'a' + (n - 1) % 26));
        }
    }
    EXPECT_EQ(concat(js_string(), js_string()), js_string());
}
