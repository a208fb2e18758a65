// Encoding detection and conversion of HTML bytes to UTF-8.
#include "document/html5/encode.hpp"

#include <string>

#include <gtest/gtest.h>

namespace {

using namespace vellum::html5::encode;

std::string utf8(std::string_view bytes) {
    auto r = memory_to_utf8(bytes);
    EXPECT_TRUE(r.has_value());
    return r ? *r : std::string();
}

TEST(html5_encode, byte_order_marks_choose_the_encoding_and_are_dropped) {
    EXPECT_EQ(utf8("\xEF\xBB\xBF<p>\xC3\xA9"), "<p>\xC3\xA9");
    EXPECT_EQ(utf8(std::string("\xFE\xFF\x00<\x00p\x00>\x00\xE9", 10)), "<p>\xC3\xA9");
    EXPECT_EQ(utf8(std::string("\xFF\xFE<\x00p\x00>\x00\xE9\x00", 10)), "<p>\xC3\xA9");
    // A BOM outranks a meta declaration that says otherwise.
    EXPECT_EQ(utf8("\xEF\xBB\xBF<meta charset=iso-8859-2>\xC3\xA9"), "<meta charset=iso-8859-2>\xC3\xA9");
}

TEST(html5_encode, meta_declarations_are_found_by_the_prescan) {
    EXPECT_EQ(prescan_for_charset("<html><head><meta charset=\"ISO-8859-2\">"), "iso-8859-2");
    EXPECT_EQ(prescan_for_charset("<meta http-equiv=Content-Type content='text/html; charset=koi8-r'>"), "koi8-r");
    // content without the http-equiv pragma declares nothing.
    EXPECT_EQ(prescan_for_charset("<meta content='text/html; charset=koi8-r'>"), std::nullopt);
    // Declarations inside comments and attribute values don't count.
    EXPECT_EQ(prescan_for_charset("<!-- <meta charset=koi8-r> --><p title='<meta charset=koi8-r>'>"), std::nullopt);
    EXPECT_EQ(prescan_for_charset("<meta charset=utf-16le>"), "utf-8");
    // Only the first 1024 bytes are looked at.
    EXPECT_EQ(prescan_for_charset(std::string(1100, ' ') + "<meta charset=koi8-r>"), std::nullopt);
}

TEST(html5_encode, charset_is_read_from_content_values) {
    EXPECT_EQ(get_charset_from_content("text/html; charset=iso-8859-2"), "iso-8859-2");
    EXPECT_EQ(get_charset_from_content("text/html;CHARSET = \"windows-1250\" ; x"), "windows-1250");
    EXPECT_EQ(get_charset_from_content("text/html; charset='unterminated"), std::nullopt);
    EXPECT_EQ(get_charset_from_content("charsetx; charset=latin2"), "latin2");
    EXPECT_EQ(get_charset_from_content("text/html"), std::nullopt);
}

TEST(html5_encode, iso_8859_2_from_meta_is_converted) {
    // 0xB9 is s with caron in ISO-8859-2, U+0161.
    EXPECT_EQ(utf8("<meta charset=iso-8859-2><p>\xB9"), "<meta charset=iso-8859-2><p>\xC5\xA1");
}

TEST(html5_encode, undeclared_bytes_fall_back_to_cp1252_unless_they_read_as_utf8) {
    EXPECT_EQ(utf8("<p>caf\xE9</p>"), "<p>caf\xC3\xA9</p>");
    EXPECT_EQ(utf8("\x80\x81"), "\xE2\x82\xAC\xC2\x81");
    EXPECT_EQ(utf8("<p>caf\xC3\xA9</p>"), "<p>caf\xC3\xA9</p>");
    EXPECT_EQ(utf8("plain ascii"), "plain ascii");
}

TEST(html5_encode, invalid_utf8_is_cleaned) {
    // The first high byte starts good UTF-8, so the whole text is UTF-8 and the bad bytes become U+FFFD.
    EXPECT_EQ(utf8("\xC3\xA9 \xFF x \xE2\x82"), "\xC3\xA9 \xEF\xBF\xBD x \xEF\xBF\xBD");
    EXPECT_EQ(utf8("<meta charset=UTF-8>\xC0\xAF"), "<meta charset=UTF-8>\xEF\xBF\xBD\xEF\xBF\xBD");
}

TEST(html5_encode, unknown_declared_encoding_reads_as_cp1252) {
    EXPECT_EQ(utf8("<meta charset=no-such-encoding>\xE9"), "<meta charset=no-such-encoding>\xC3\xA9");
}

} // namespace
