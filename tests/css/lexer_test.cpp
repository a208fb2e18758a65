#include "css/lexer.hpp"
#include "util/ref.hpp"

#include <gtest/gtest.h>

#include <optional>

namespace vellum::css::lexer {
namespace {

// Writes the tokens back joined by "|", so one expected string shows kind and text of each token.
std::string show(std::string_view text, comments mode = comments::drop) {
    std::string out;
    for (auto const& t : scan(text, mode)) {
        std::string kind;
        // Identifiers show their name as read, escapes undone; to_text would escape it again.
        std::optional<std::string> raw;
        std::visit(overloaded{
                       [&](symbol s) { kind = s == symbol::space ? "S" : s == symbol::comment ? "C" : ""; },
                       [&](string const&) { kind = "str:"; },
                       [&](ident const& i) { kind = "id:"; raw = i.ident_name; },
                       [&](function const&) { kind = "fn:"; },
                       [&](number const& n) { kind = std::holds_alternative<int>(n.number_value) ? "int:" : "float:"; },
                       [&](signed_int const&) { kind = "sint:"; },
                       [&](hash const&) { kind = "hash:"; },
                       [&](hash_id const&) { kind = "hashid:"; },
                       [&](at const&) { kind = "at:"; },
                       [&](url const&) { kind = "url:"; },
                       [&](unicode_range const&) { kind = "ur:"; },
                       [&](delim const&) { kind = "delim:"; },
                   },
                   t);
        if (!out.empty()) {
            out += "|";
        }
        bool const bare = std::holds_alternative<symbol>(t) &&
                          (is(t, symbol::space) || is(t, symbol::comment));
        out += bare ? kind : kind + raw.value_or(to_text(t));
    }
    return out;
}

struct scan_case {
    char const* name;
    char const* input;
    char const* expected;
};

TEST(lexer, scans_token_table) {
    scan_case const cases[] = {
        {"punctuation", "a{b:c;}", "id:a|{|id:b|:|id:c|;|}"},
        {"blank runs", "a  \t\n b", "id:a|S|id:b"},
        {"attribute operators", "~=|=^=$=*=", "~=||=|^=|$=|*="},
        {"lone caret is a delim", "^", "delim:^"},
        {"function", "rgb(1,2)", "fn:rgb(|int:1|,|int:2|)"},
        {"float", "1.5 .25", "float:1.5|S|float:0.25"},
        {"dimension is number then ident", "10px", "int:10|id:px"},
        {"percentage", "50%", "int:50|%"},
        {"signed integers", "+3 -7", "sint:+3|S|sint:-7"},
        {"signed float splits off its sign", "-1.5", "-|float:1.5"},
        {"ident with leading dash", "-vellum-x", "id:-vellum-x"},
        {"nth pattern", "2n+1", "int:2|id:n|sint:+1"},
        {"nth pattern with minus", "-n-2", "id:-n-2"},
        {"hash that is an identifier", "#abc", "hashid:#abc"},
        {"hash that is not", "#123", "hash:#123"},
        {"at-keyword", "@media", "at:@media"},
        {"lone at", "@ x", "delim:@|S|id:x"},
        {"markup comment tokens vanish", "<!-- a -->", "S|id:a|S"},
        {"non-ascii identifier", "caf\xC3\xA9", "id:caf\xC3\xA9"},
        {"other characters are delims", "a&b", "id:a|delim:&|id:b"},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(show(c.input), c.expected);
    }
}

TEST(lexer, undoes_escapes_by_the_digit_groups) {
    scan_case const cases[] = {
        {"blank after a hex escape is dropped", "\"\\41 B\"", "str:\"AB\""},
        {"three digits and a blank", "\"\\041 \"", "str:\"A\""},
        {"five digits take four", "\"\\00041\"", "str:\"\x04" "1\""},
        {"six digits", "\"\\000041x\"", "str:\"Ax\""},
        {"non-hex escape is the character", "\"\\\"q\"", "str:\"\\\"q\""},
        {"zero groups fall back to the plain character", "\"\\0000\"", "str:\"0000\""},
        {"escape in an identifier", "\\31 a", "id:1a"},
        {"escaped digit makes a hash an identifier", "#\\31 x", "hashid:#1x"},
        {"escape in an at-name", "@\\6d edia", "at:@media"},
        {"only a plain blank is dropped", "\"\\41\tB\"", "str:\"A\tB\""},
        {"beyond unicode becomes a replacement", "\"\\110000\"", "str:\"\xEF\xBF\xBD\""},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(show(c.input), c.expected);
    }
}

TEST(lexer, clamps_long_integers) {
    auto value = [](std::string_view text) { return scan(text).at(0); };
    EXPECT_EQ(value("99999999999999999999"), token(number{2147483647}));
    EXPECT_EQ(value("2147483647"), token(number{2147483647}));
    EXPECT_EQ(value("2147483648"), token(number{2147483647}));
    EXPECT_EQ(value("-2147483648"), token(signed_int{-2147483647 - 1}));
    EXPECT_EQ(value("-99999999999999999999"), token(signed_int{-2147483647 - 1}));
    EXPECT_EQ(value("+99999999999999999999"), token(signed_int{2147483647}));
}

TEST(lexer, breaks_strings_at_raw_newlines) {
    scan_case const cases[] = {
        {"newline breaks the string", "\"ab\ncd\"", "delim:\"|S|id:cd|str:\"\""},
        {"single quotes too", "'x\n", "delim:'|S"},
        {"escaped newline continues it", "\"ab\\\ncd\"", "str:\"abcd\""},
        {"escaped CRLF continues it", "\"ab\\\r\ncd\"", "str:\"abcd\""},
        {"end of text closes a string", "\"open", "str:\"open\""},
        {"other quote inside", "\"it's\"", "str:\"it's\""},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(show(c.input), c.expected);
    }
}

TEST(lexer, drops_or_keeps_comments) {
    EXPECT_EQ(show("a/* x */b"), "id:a|id:b");
    EXPECT_EQ(show("a /* x */ b"), "id:a|S|S|id:b");
    EXPECT_EQ(show("a/* x */b", comments::keep), "id:a|C|id:b");
    EXPECT_EQ(show("a /* never closed"), "id:a|S");
    EXPECT_EQ(show("/**/"), "");
}

TEST(lexer, reads_unicode_ranges) {
    auto range = [](std::string_view text) { return scan(text).at(0); };
    using r = unicode_range;
    EXPECT_EQ(range("U+26"), token(r{{{0x26, 0x26}}}));
    EXPECT_EQ(range("u+0-7F"), token(r{{{0, 0x7F}}}));
    EXPECT_EQ(range("U+4??"), token(r{{{0x400, 0x4FF}}}));
    EXPECT_EQ(range("U+??????"), token(r{{{0, 0xFFFFFF}}}));
    EXPECT_EQ(range("U+1F600-1F64F"), token(r{{{0x1F600, 0x1F64F}}}));
    // A wildcard beside a dash, or a reversed range, spoils the token.
    EXPECT_EQ(range("U+4?-50"), token(delim{U'U'}));
    EXPECT_EQ(range("U+40-5?"), token(delim{U'U'}));
    EXPECT_EQ(range("U+50-40"), token(delim{U'U'}));
    EXPECT_EQ(show("U+0-7F,U+100"), "ur:U+0-7F|,|ur:U+100-100");
}

TEST(lexer, reads_url_forms) {
    scan_case const cases[] = {
        {"unquoted", "url(a/b.png)", "url:url(a/b.png)"},
        {"blanks around the argument", "url(  a.png  )", "url:url(a.png)"},
        {"upper case", "URL(x)", "url:url(x)"},
        {"quoted is a function and a string", "url(\"a b\")", "fn:url(|str:\"a b\"|)"},
        {"quoted with blanks", "url( 'a' )", "fn:url(|S|str:\"a\"|S|)"},
        {"escape in unquoted", "url(a\\)b)", "url:url(a)b)"},
        {"blank inside is not a url", "url(a b)", "fn:url(|id:a|S|id:b|)"},
        {"data url", "url(data:image/png;base64,AAA=)", "url:url(data:image/png;base64,AAA=)"},
        {"empty", "url()", "fn:url(|)"},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(show(c.input), c.expected);
    }
}

TEST(lexer, repairs_text_that_is_not_utf8) {
    EXPECT_EQ(show("a\xFF" "b"), "id:a\xEF\xBF\xBD" "b");
}

TEST(lexer, recognises_identifiers) {
    EXPECT_TRUE(is_identifier("abc"));
    EXPECT_TRUE(is_identifier("-webkit-x"));
    EXPECT_FALSE(is_identifier("1a"));
    EXPECT_FALSE(is_identifier("-1"));
    EXPECT_FALSE(is_identifier("a b"));
    EXPECT_FALSE(is_identifier(""));
}

} // namespace
} // namespace vellum::css::lexer

namespace vellum {
namespace {

TEST(lexer, cuts_groups_nested_too_deeply) {
    using namespace css::lexer;
    std::string const deep = "a{b:" + std::string(100000, '(') + "x" + std::string(100000, ')') + "}c{d:e}";
    auto const tokens = scan(deep);
    EXPECT_TRUE(has_nesting_cut(tokens));
    // The group at the budget depth is one token; what follows it is scanned as usual.
    std::size_t opened = 0;
    for (auto const& t : tokens) {
        opened += is(t, symbol::open_paren) ? 1 : 0;
    }
    EXPECT_EQ(opened, max_nesting - 1);
    EXPECT_EQ(to_text(tokens.back()), "}");
    EXPECT_FALSE(has_nesting_cut(scan("a{b:f(g(h(1)))}")));
}

TEST(lexer, names_written_back_read_as_the_same_names) {
    for (std::string const name : {"1a", "-2b", "x&y", "a:b", "tab\tin", "plain-name"}) {
        SCOPED_TRACE(name);
        auto const text = css::lexer::to_text(css::lexer::token{css::lexer::ident{name}});
        auto const again = css::lexer::scan(text, css::lexer::comments::drop);
        ASSERT_EQ(again.size(), 1u) << text;
        auto const* i = std::get_if<css::lexer::ident>(&again.front());
        ASSERT_NE(i, nullptr) << text;
        EXPECT_EQ(i->ident_name, name) << text;
    }
    EXPECT_EQ(css::lexer::to_text(css::lexer::token{css::lexer::ident{"plain-name"}}), "plain-name");
}

} // namespace
} // namespace vellum
