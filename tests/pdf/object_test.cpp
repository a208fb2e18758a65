#include "pdf/numfmt.hpp"
#include "pdf/object.hpp"

#include <gtest/gtest.h>

namespace vellum::pdf {
namespace {

using namespace std::string_literals;

TEST(object, serialises_each_kind) {
    struct {
        char const* name;
        object value;
        std::string expected;
    } const cases[] = {
        {"null", null{}, "null"},
        {"true", true, "true"},
        {"false", false, "false"},
        {"int", std::int64_t{-42}, "-42"},
        {"int 64-bit", std::int64_t{1} << 40, "1099511627776"},
        {"real keeps four decimals", 1.5, "1.5000"},
        {"real rounds", 2.0 / 3.0, "0.6667"},
        {"negative real", -0.25, "-0.2500"},
        {"number int stays whole", number{std::int64_t{3}}, "3"},
        {"number real", number{3.0}, "3.0000"},
        {"hex upper case", hex{std::string("\x00\xAB\xff", 3)}, "<00ABFF>"},
        {"empty hex", hex{}, "<>"},
        {"ref", ref{12}, "12 0 R"},
        {"empty array", array{}, "[]"},
        {"empty dict", dict{}, "<<>>"},
        {"array one blank", array{{std::int64_t{1}, name{"A"}, string{"x"}}}, "[1 /A (x)]"},
        {"dict one LF", dict{{{"Type", name{"Page"}}, {"Count", std::int64_t{2}}}},
         "<</Type /Page\n/Count 2>>"},
        {"nested",
         dict{{{"Kids", array{{ref{3}, ref{4}}}}, {"Res", dict{{{"ProcSet", array{{name{"PDF"}}}}}}}}},
         "<</Kids [3 0 R 4 0 R]\n/Res <</ProcSet [/PDF]>>>>"},
        {"array of arrays", array{{array{}, array{{null{}}}}}, "[[] [null]]"},
    };

    for (auto const& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(to_text(c.value), c.expected);
    }
}

TEST(object, escapes_names) {
    struct {
        char const* text;
        std::string expected;
    } const cases[] = {
        {"Type", "/Type"},
        {"A B", "/A#20B"},
        {"a/b", "/a#2Fb"},
        {"x#y", "/x#y"},
        {"\t\n\r%()<>[]{}", "/#09#0A#0D#25#28#29#3C#3E#5B#5D#7B#7D"},
        {"", "/"},
        // Each code point keeps its low byte: U+00E9 is written as the single byte 0xE9.
        {"caf\xC3\xA9", "/caf\xE9"},
        // Decoding stops at the first invalid sequence.
        {"ab\xFF"
         "cd",
         "/ab"},
    };

    for (auto const& c : cases) {
        SCOPED_TRACE(c.text);
        EXPECT_EQ(to_text(name{c.text}), c.expected);
    }
}

TEST(object, escapes_literal_strings) {
    struct {
        char const* name;
        std::string text;
        std::string expected;
    } const cases[] = {
        {"plain", "Hello", "(Hello)"},
        {"parentheses", "a(b)c", "(a\\(b\\)c)"},
        {"backslash", "C:\\dir", "(C:\\\\dir)"},
        {"line ends untouched", "a\r\nb", "(a\r\nb)"},
        {"low byte of Latin-1", "\xC3\xBC", "(\xFC)"},
        {"low byte of euro sign", "\xE2\x82\xAC", "(\xAC)"},
        // U+0128 has the low byte of "(": it is escaped like the character itself.
        {"low byte parenthesis", "\xC4\xA8", "(\\()"},
        {"stops at invalid UTF-8", "ok\xC3(", "(ok)"},
        {"empty", "", "()"},
    };

    for (auto const& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(to_text(string{c.text}), c.expected);
    }
}

TEST(object, text_string_is_literal_for_ascii_and_utf16_otherwise) {
    EXPECT_EQ(text_string("Title (draft)"), object{string{"Title (draft)"}});
    EXPECT_EQ(to_text(text_string("Title (draft)")), "(Title \\(draft\\))");
    EXPECT_EQ(to_text(text_string("")), "()");
    auto const utf16 = text_string("\xC3\xA9");
    ASSERT_NE(std::get_if<hex>(&utf16), nullptr);
    EXPECT_EQ(std::get_if<hex>(&utf16)->hex_bytes, "\xFE\xFF\x00\xE9"s);
    EXPECT_EQ(to_text(text_string("\xC3\xA9t\xC3\xA9")), "<FEFF00E9007400E9>");
    // A code point beyond the first plane keeps its low 16 bits; no surrogate pair is made.
    EXPECT_EQ(to_text(text_string("\xF0\x9F\x98\x80")), "<FEFFF600>");
}

TEST(object, writes_dates_with_and_without_time) {
    EXPECT_EQ(to_text(pdf_date({.year = 2024, .month = 3, .day = 7})), "(D:20240307)");
    EXPECT_EQ(to_text(pdf_date({.year = 1999,
                                .month = 12,
                                .day = 31,
                                .date_time = time_of_day{.hour = 23, .minute = 5, .second = 9}})),
              "(D:19991231230509)");
}

TEST(object, rect_becomes_array_keeping_number_kinds) {
    common::rect const r{
        .left = std::int64_t{0}, .bottom = std::int64_t{0}, .right = 595.5, .top = std::int64_t{842}};
    EXPECT_EQ(to_text(rect_to_array(r)), "[0 0 595.5000 842]");
}

TEST(object, failures_name_themselves) {
    EXPECT_EQ(describe(ref_already_used{ref{7}}), "pdf: reference 7 already used");
    EXPECT_EQ(describe(unused_refs{{ref{5}, ref{2}}}), "pdf: unused references 5, 2");
    EXPECT_EQ(describe(incorrect_stream_length{.specified = 10, .actual = 12}),
              "pdf: incorrect stream length: specified 10, actual 12");
    try {
        raise(missing_root_object{});
        FAIL() << "no exception";
    } catch (pdf_error const& e) {
        EXPECT_STREQ(e.what(), "pdf: missing root object");
        EXPECT_EQ(e.pdf_error_value, pdf_exception{missing_root_object{}});
    }
}

TEST(numfmt, trims_and_rounds) {
    struct {
        double value;
        int decimals;
        char const* expected;
    } const cases[] = {
        {0, 3, "0"},
        {-0.0, 3, "0"},
        {12, 3, "12"},
        {12.5, 3, "12.5"},
        {-12.5, 3, "-12.5"},
        {0.25, 3, "0.25"},
        {-0.25, 3, "-0.25"},
        {0.005, 3, "0.005"},
        {1.23456, 3, "1.235"},
        {1.23456, 4, "1.2346"},
        {-0.0004, 3, "0"},
        {-0.0006, 3, "-0.001"},
        {0.9999, 3, "1"},
        {-0.9999, 3, "-1"},
        {100, 0, "100"},
        {2.5, 0, "3"},
        {595.276, 2, "595.28"},
        {1e20, 3, "1000000000000"},
        {-1e20, 3, "-1000000000000"},
        {std::nan(""), 3, "0"},
    };

    for (auto const& c : cases) {
        SCOPED_TRACE(c.value);
        EXPECT_EQ(numfmt::format(c.value, c.decimals).view(), c.expected);
    }
}

} // namespace
} // namespace vellum::pdf
