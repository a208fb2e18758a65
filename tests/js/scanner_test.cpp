#include "js/js_scanner.hpp"

#include <cmath>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace vellum::js_scanner {
namespace {

/// All tokens of a text up to the end, in one mode, as `token_to_string` shows them, with line numbers
/// where `lines` is set.
std::vector<std::string> scan_all(std::string_view text, scan_mode mode = scan_mode::scan_div, bool lines = false) {
    auto s = scanner::from_string(text);
    std::vector<std::string> out;
    for (;;) {
        auto [line, tok] = s.scan_token(mode);
        if (std::get_if<eof>(&tok)) {
            return out;
        }
        out.push_back((lines ? std::to_string(line) + ":" : std::string()) + token_to_string(tok));
    }
}

using strings = std::vector<std::string>;

TEST(js_scanner, follows_the_rules_as_written) {
    struct case_t {
        char const* name;
        std::string text;
        scan_mode mode;
        strings tokens;
    };
    std::vector<case_t> cases = {
        {"no octal literals", "017", scan_mode::scan_div, {"int(0)", "int(17)"}},
        {"hex", "0x1F 0X0 0x", scan_mode::scan_div, {"int(31)", "int(0)", "int(0)", "identifier(\"x\")"}},
        {"floats", "1.5 1. .5 1e3 1e 017.5", scan_mode::scan_div,
         {"float(1.5)", "float(1)", "float(0.5)", "float(1000)", "int(1)", "identifier(\"e\")", "float(17.5)"}},
        {"number runs into identifier", "1a", scan_mode::scan_div, {"int(1)", "identifier(\"a\")"}},
        {"html comment opener only", "<!-- x -->", scan_mode::scan_div,
         {"identifier(\"x\")", "punctuator(\"--\")", "punctuator(\">\")"}},
        {"nbsp is a stray byte", "a\xC2\xA0" "b", scan_mode::scan_div,
         {"identifier(\"a\")", "unknown_byte", "unknown_byte", "identifier(\"b\")"}},
        {"vertical tab is no blank", "\v", scan_mode::scan_div, {"unknown_byte"}},
        {"carriage return is a blank", "a\r\nb", scan_mode::scan_div,
         {"identifier(\"a\")", "line_terminator", "identifier(\"b\")"}},
        {"U+2028 is no line end", "a\xE2\x80\xA8", scan_mode::scan_div,
         {"identifier(\"a\")", "unknown_byte", "unknown_byte", "unknown_byte"}},
        {"byte order mark anywhere", "\xEF\xBB\xBF" "a\xEF\xBB\xBF" "b", scan_mode::scan_div,
         {"identifier(\"a\")", "identifier(\"b\")"}},
        {"escape kept in identifier", "a\\u0041 aA", scan_mode::scan_div,
         {"identifier(\"a\\\\u0041\")", "identifier(\"aA\")"}},
        {"bad escape in identifier", "a\\x", scan_mode::scan_div,
         {"identifier(\"a\")", "unknown(\"\\\\\")", "identifier(\"x\")"}},
        {"unicode 5.1 letters", "\xC3\xA9t\xC3\xA9 \xE4\xB8\xAD", scan_mode::scan_div,
         {"identifier(\"\xC3\xA9t\xC3\xA9\")", "identifier(\"\xE4\xB8\xAD\")"}},
        {"combining mark only after the first", "a\xCC\x81", scan_mode::scan_div, {"identifier(\"a\xCC\x81\")"}},
        {"letter added after 5.1 is a stray byte", "\xE0\xA2\xA0", scan_mode::scan_div,
         {"unknown_byte", "unknown_byte", "unknown_byte"}},
        {"keywords and reserved words", "if iffy class let yield", scan_mode::scan_div,
         {"keyword(\"if\")", "identifier(\"iffy\")", "reserved(\"class\")", "identifier(\"let\")",
          "identifier(\"yield\")"}},
        {"longest punctuator", ">>>= >>> >>= === !== a/=b", scan_mode::scan_div,
         {"punctuator(\">>>=\")", "punctuator(\">>>\")", "punctuator(\">>=\")", "punctuator(\"===\")",
          "punctuator(\"!==\")", "identifier(\"a\")", "punctuator(\"/=\")", "identifier(\"b\")"}},
        {"regexp with class", "/[/]/g", scan_mode::scan_regexp, {"regexp(\"[/]\", \"g\")"}},
        {"regexp flags stop at others", "/a/gi1", scan_mode::scan_regexp, {"regexp(\"a\", \"gi\")", "int(1)"}},
        {"slash in div mode", "/a/g", scan_mode::scan_div,
         {"punctuator(\"/\")", "identifier(\"a\")", "punctuator(\"/\")", "identifier(\"g\")"}},
        {"lone slash in regexp mode", "/", scan_mode::scan_regexp, {"unknown(\"/\")"}},
        {"regexp cannot start with star", "/*a", scan_mode::scan_regexp,
         {"unknown(\"/\")", "punctuator(\"*\")", "identifier(\"a\")"}},
        {"backslash line feed ends no regexp", "/a\\\nb/", scan_mode::scan_regexp,
         {"unknown(\"/\")", "identifier(\"a\")", "unknown(\"\\\\\")", "line_terminator", "identifier(\"b\")",
          "unknown(\"/\")"}},
        {"comments", "a // x\n/* y */b", scan_mode::scan_div,
         {"identifier(\"a\")", "line_terminator", "identifier(\"b\")"}},
        {"unterminated string", "'ab", scan_mode::scan_div, {"unknown(\"'\")", "identifier(\"ab\")"}},
        {"bad hex escape", "\"\\x4\"", scan_mode::scan_div,
         {"unknown(\"\\\"\")", "unknown(\"\\\\\")", "identifier(\"x4\")", "unknown(\"\\\"\")"}},
        {"printable stray", "# @", scan_mode::scan_div, {"unknown(\"#\")", "unknown(\"@\")"}},
        {"text ends at nul", std::string("a\0b", 3), scan_mode::scan_div, {"identifier(\"a\")"}},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(scan_all(c.text, c.mode), c.tokens);
    }
}

TEST(js_scanner, counts_lines_as_written) {
    // Line feeds count in block comments and as tokens; raw ones in strings and regexps do not.
    EXPECT_EQ(scan_all("a\n/* \n\n */b 'x\ny' c", scan_mode::scan_div, true),
              (strings{"1:identifier(\"a\")", "1:line_terminator", "4:identifier(\"b\")", "4:\"x\ny\"",
                       "4:identifier(\"c\")"}));
    EXPECT_EQ(scan_all("/a\nb/ c", scan_mode::scan_regexp, true),
              (strings{"1:regexp(\"a\nb\", \"\")", "1:identifier(\"c\")"}));
}

TEST(js_scanner, decodes_string_escapes_in_order) {
    struct case_t {
        char const* body;
        std::u32string want;
    };
    std::vector<case_t> cases = {
        {"\\x41\\u00e9", U"A\u00e9"},
        {"\\017", U"\017"},
        {"\\400", U"\040" "0"},
        {"\\08", std::u32string(1, U'\0') + U"8"},
        {"\\8\\9", U"89"},
        {"a\\\nb", U"ab"},
        {"\\b\\t\\n\\v\\f\\r\\\"\\'\\\\", U"\b\t\n\v\f\r\"'\\"},
        {"\\q", U"q"},
        {"\xF0\x9F\x98\x80", U"\U0001F600"},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.body);
        EXPECT_EQ(decode_string(c.body).code_points(), c.want);
    }
}

TEST(js_scanner, number_values) {
    auto one = [](std::string_view text) {
        auto s = scanner::from_string(text);
        return s.scan_token(scan_mode::scan_div).scanned_token;
    };
    EXPECT_EQ(one("9223372036854775807"), token{int_token{9223372036854775807}});
    EXPECT_EQ(one("9223372036854775808"), token{float_token{9223372036854775808.0}});
    EXPECT_EQ(one("0x7FFFFFFFFFFFFFFF"), token{int_token{9223372036854775807}});
    EXPECT_EQ(one("0x10000000000000000"), token{float_token{18446744073709551616.0}});
    EXPECT_EQ(one("1e400"), token{float_token{HUGE_VAL}});
}

TEST(js_scanner, token_to_string_forms) {
    EXPECT_EQ(token_to_string(keyword{"if"}), "keyword(\"if\")");
    EXPECT_EQ(token_to_string(punctuator{")"}), "punctuator(\")\")");
    EXPECT_EQ(token_to_string(int_token{5}), "int(5)");
    EXPECT_EQ(token_to_string(string_token{jsstring::from_utf8("hi")}), "\"hi\"");
    EXPECT_EQ(token_to_string(eof{}), "eof");
    EXPECT_EQ(token_to_string(unknown_byte{}), "unknown_byte");
}

} // namespace
} // namespace vellum::js_scanner
