#include "util/bytes.hpp"
#include "util/matrix.hpp"
#include "util/result.hpp"
#include "util/textbuf.hpp"

#include <gtest/gtest.h>

namespace vellum {
namespace {

TEST(textbuf, round_trips_all_planes) {
    std::string const text = "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80";
    auto const cps = textbuf::from_utf8(text);
    EXPECT_EQ(cps, (std::u32string{U'a', 0xE9, 0x20AC, 0x1F600}));
    EXPECT_EQ(textbuf::to_utf8(cps), text);
}

TEST(textbuf, replaces_invalid_sequences_one_byte_at_a_time) {
    struct {
        char const* name;
        std::string input;
        std::u32string expected;
    } const cases[] = {
        {"lone continuation", "a\x80z", {U'a', 0xFFFD, U'z'}},
        {"overlong slash", "\xC0\xAF", {0xFFFD, 0xFFFD}},
        {"surrogate", "\xED\xA0\x80", {0xFFFD, 0xFFFD, 0xFFFD}},
        {"truncated at end", "x\xE2\x82", {U'x', 0xFFFD, 0xFFFD}},
        {"beyond U+10FFFF", "\xF4\x90\x80\x80", {0xFFFD, 0xFFFD, 0xFFFD, 0xFFFD}},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(textbuf::from_utf8(c.input), c.expected);
        EXPECT_FALSE(textbuf::is_valid_utf8(c.input));
    }
    EXPECT_EQ(textbuf::to_utf8(std::u32string{0xD800, 0x110000}), "\xEF\xBF\xBD\xEF\xBF\xBD");
}

TEST(matrix, composes_in_pdf_order_and_inverts) {
    auto const m = matrix::then(matrix::scale(2, 3), matrix::translate(10, 20));
    auto const p = matrix::apply(m, {1, 1});
    EXPECT_FLOAT_EQ(p.x, 12);
    EXPECT_FLOAT_EQ(p.y, 23);
    auto const inv = matrix::invert(m);
    ASSERT_TRUE(inv);
    auto const q = matrix::apply(*inv, p);
    EXPECT_FLOAT_EQ(q.x, 1);
    EXPECT_FLOAT_EQ(q.y, 1);
    EXPECT_FALSE(matrix::invert(matrix::scale(0, 1)));
}

TEST(bytes, copies_share_storage_and_compare_by_content) {
    auto const a = bytes::from_string("abc");
    auto const b = a;
    EXPECT_EQ(a.bytes_data.get(), b.bytes_data.get());
    EXPECT_EQ(a, bytes::from_string("abc"));
    EXPECT_NE(a, bytes::from_string("abd"));
    EXPECT_TRUE(bytes::bytes{}.empty());
    EXPECT_EQ(bytes::bytes{}, bytes::from_string(""));
}

TEST(check, throws_internal_error_naming_the_operation) {
    EXPECT_NO_THROW(check(true, "pack_para"));
    try {
        check(false, "pack_para");
        FAIL() << "no exception";
    } catch (internal_error const& e) {
        EXPECT_STREQ(e.what(), "pack_para: unexpected condition.");
    }
}

} // namespace
} // namespace vellum
