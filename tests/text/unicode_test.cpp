#include "text/grapheme_boundary.hpp"
#include "text/unicode.hpp"
#include "text/unicode/bidi.hpp"
#include "text/unicode/category.hpp"
#include "text/unicode/joining.hpp"
#include "text/unicode/range.hpp"
#include "text/unicode/script.hpp"
#include "text/unicode/unicache.hpp"
#include "text/unicode/utf8.hpp"
#include "text/unicode/vertical.hpp"

#include <cstdio>
#include <string>

#include <gtest/gtest.h>

using namespace vellum;
using namespace vellum::unicode;

TEST(unicode, data_version_is_named) {
    EXPECT_EQ(data_version(), "15.0.0");
}

TEST(unicode_category, well_known_code_points) {
    using category::general_category;

    struct row {
        char32_t cp;
        general_category expected;
    };

    row const rows[] = {
        {U'A', general_category::category_lu},     {U'z', general_category::category_ll},
        {U'5', general_category::category_nd},     {U' ', general_category::category_zs},
        {U'\n', general_category::category_cc},    {U'(', general_category::category_ps},
        {U'$', general_category::category_sc},     {0x0301, general_category::category_mn},
        {0x0903, general_category::category_mc},   {0x20DD, general_category::category_me},
        {0x01C5, general_category::category_lt},   {0x02B0, general_category::category_lm},
        {0x4E00, general_category::category_lo},   {0x9FA5, general_category::category_lo},
        {0xAC00, general_category::category_lo},   {0xD7A3, general_category::category_lo},
        {0x2028, general_category::category_zl},   {0x2029, general_category::category_zp},
        {0x200D, general_category::category_cf},   {0xD800, general_category::category_cs},
        {0xE000, general_category::category_co},   {0x10FFFD, general_category::category_co},
        {0x0378, general_category::category_cn},   {0x10FFFF, general_category::category_cn},
        {0x110000, general_category::category_cn}, {0x2160, general_category::category_nl},
        {0x00BD, general_category::category_no},   {U'_', general_category::category_pc},
        {0x00AB, general_category::category_pi},   {0x00BB, general_category::category_pf},
        {U'+', general_category::category_sm},     {U'^', general_category::category_sk},
        {0x00A9, general_category::category_so},   {0x1F600, general_category::category_so},
    };
    for (auto const& r : rows) {
        SCOPED_TRACE(static_cast<unsigned>(r.cp));
        EXPECT_EQ(category::category_of(r.cp), r.expected);
    }
    EXPECT_STREQ(category::category_name(general_category::category_lu), "Lu");
    EXPECT_STREQ(category::category_name(general_category::category_zs), "Zs");
}

TEST(unicode, punctuation_and_word_characters) {
    for (char32_t cp : {U'.', U',', U'-', U'(', U')', U'_', char32_t{0x00AB}, char32_t{0x3002}}) {
        EXPECT_TRUE(is_punctuation(cp)) << static_cast<unsigned>(cp);
    }
    for (char32_t cp : {U'a', U'1', U' ', U'+', U'$', char32_t{0x0301}}) {
        EXPECT_FALSE(is_punctuation(cp)) << static_cast<unsigned>(cp);
    }
    for (char32_t cp :
         {U'a', U'Z', U'9', char32_t{0x0301}, char32_t{0x4E00}, char32_t{0x2160}, char32_t{0x02B0}}) {
        EXPECT_TRUE(is_letter_mark_or_number(cp)) << static_cast<unsigned>(cp);
    }
    for (char32_t cp : {U' ', U'.', U'$', U'+', char32_t{0x200D}, char32_t{0x0378}}) {
        EXPECT_FALSE(is_letter_mark_or_number(cp)) << static_cast<unsigned>(cp);
    }
}

TEST(unicode, simple_case_mappings) {
    EXPECT_EQ(to_upper(U'a'), U'A');
    EXPECT_EQ(to_lower(U'A'), U'a');
    EXPECT_EQ(to_upper(U'1'), U'1');
    EXPECT_EQ(to_upper(char32_t{0x00E9}), char32_t{0x00C9});   // é
    EXPECT_EQ(to_upper(char32_t{0x00FF}), char32_t{0x0178});   // ÿ -> Ÿ, far from it
    EXPECT_EQ(to_lower(char32_t{0x0130}), U'i');               // İ -> i (simple mapping)
    EXPECT_EQ(to_upper(char32_t{0x00DF}), char32_t{0x00DF});   // ß has no simple upper case
    EXPECT_EQ(to_lower(char32_t{0x1E9E}), char32_t{0x00DF});   // ẞ -> ß
    EXPECT_EQ(to_upper(char32_t{0x03C2}), char32_t{0x03A3});   // final sigma
    EXPECT_EQ(to_lower(char32_t{0x0410}), char32_t{0x0430});   // Cyrillic A
    EXPECT_EQ(to_upper(char32_t{0x10D0}), char32_t{0x1C90});   // Georgian Mkhedruli -> Mtavruli
    EXPECT_EQ(to_lower(char32_t{0x10400}), char32_t{0x10428}); // Deseret, beyond the BMP
    EXPECT_EQ(to_upper(char32_t{0x01C5}), char32_t{0x01C4});   // title case Dž
    EXPECT_EQ(to_lower(char32_t{0x01C5}), char32_t{0x01C6});
    EXPECT_EQ(to_upper(char32_t{0x110000}), char32_t{0x110000});
    EXPECT_EQ(to_upper(U"Straße café 1"), U"STRAßE CAFÉ 1");
    EXPECT_EQ(to_lower(U"ΑΒΓ Ǆ"), U"αβγ ǆ");
}

// Levels of plain text and the visual order they give: a Hebrew word with a number inside a
// left-to-right line, a right-to-left line with Latin inside, and neutrals taking their neighbours' side.
TEST(unicode_bidi, plain_text_levels_and_visual_order) {
    std::u32string const ltr = U"ab \u05D0\u05D1 12 cd";
    auto const levels = bidi::levels_of(ltr, false);
    EXPECT_EQ(levels, (std::vector<int>{0, 0, 0, 1, 1, 1, 2, 2, 0, 0, 0}));
    auto const order = bidi::visual_order(levels);
    // Left to right: "ab ", the number, the space, the Hebrew letters last to first, " cd".
    EXPECT_EQ(order, (std::vector<std::size_t>{0, 1, 2, 6, 7, 5, 4, 3, 8, 9, 10}));

    std::u32string const rtl = U"\u05D0 xy!";
    EXPECT_TRUE(bidi::first_strong_rtl(rtl, 0));
    EXPECT_FALSE(bidi::first_strong_rtl(U"1 x \u05D0", 0));
    auto const r = bidi::levels_of(rtl, true);
    EXPECT_EQ(r, (std::vector<int>{1, 1, 2, 2, 1}));
    EXPECT_EQ(bidi::visual_order(r), (std::vector<std::size_t>{4, 2, 3, 1, 0}));
    EXPECT_EQ(bidi::levels_of(U"plain", false), (std::vector<int>(5, 0)));
    EXPECT_TRUE(bidi::visual_order({}).empty());
}

TEST(unicode_bidi, classes_and_mirroring) {
    using bidi::bidi_class;
    EXPECT_EQ(bidi::bidi_class_of(U'a'), bidi_class::l);
    EXPECT_EQ(bidi::bidi_class_of(0x05D0), bidi_class::r);
    EXPECT_EQ(bidi::bidi_class_of(0x0627), bidi_class::al);
    EXPECT_EQ(bidi::bidi_class_of(U'1'), bidi_class::en);
    EXPECT_EQ(bidi::bidi_class_of(0x0661), bidi_class::an);
    EXPECT_EQ(bidi::bidi_class_of(U'+'), bidi_class::es);
    EXPECT_EQ(bidi::bidi_class_of(U'$'), bidi_class::et);
    EXPECT_EQ(bidi::bidi_class_of(U','), bidi_class::cs);
    EXPECT_EQ(bidi::bidi_class_of(0x0301), bidi_class::nsm);
    EXPECT_EQ(bidi::bidi_class_of(0x200B), bidi_class::bn);
    EXPECT_EQ(bidi::bidi_class_of(0x2029), bidi_class::b);
    EXPECT_EQ(bidi::bidi_class_of(U'\t'), bidi_class::s);
    EXPECT_EQ(bidi::bidi_class_of(U' '), bidi_class::ws);
    EXPECT_EQ(bidi::bidi_class_of(U'!'), bidi_class::on);
    EXPECT_EQ(bidi::bidi_class_of(0x202A), bidi_class::lre);
    EXPECT_EQ(bidi::bidi_class_of(0x202D), bidi_class::lro);
    EXPECT_EQ(bidi::bidi_class_of(0x202B), bidi_class::rle);
    EXPECT_EQ(bidi::bidi_class_of(0x202E), bidi_class::rlo);
    EXPECT_EQ(bidi::bidi_class_of(0x202C), bidi_class::pdf);
    // The isolates are read as other neutrals.
    EXPECT_EQ(bidi::bidi_class_of(0x2066), bidi_class::on);
    EXPECT_EQ(bidi::bidi_class_of(0x2069), bidi_class::on);
    // Unassigned code points take their block's direction.
    EXPECT_EQ(bidi::bidi_class_of(0x05FF), bidi_class::r);
    EXPECT_EQ(bidi::bidi_class_of(0x07BF), bidi_class::al);
    EXPECT_EQ(bidi::bidi_class_of(0x110000), bidi_class::l);

    EXPECT_EQ(bidi::mirrored(U'('), U')');
    EXPECT_EQ(bidi::mirrored(U']'), U'[');
    EXPECT_EQ(bidi::mirrored(U'<'), U'>');
    EXPECT_EQ(bidi::mirrored(0x00AB), char32_t{0x00BB});
    EXPECT_EQ(bidi::mirrored(0x2264), char32_t{0x2265});
    EXPECT_EQ(bidi::mirrored(U'a'), U'a');
}

TEST(unicode_joining, arabic_letters_and_marks) {
    using joining::joining_class;
    EXPECT_EQ(joining::joining_class_of(0x0628), joining_class::jc_dual_joining);  // beh
    EXPECT_EQ(joining::joining_class_of(0x0627), joining_class::jc_right_joining); // alef
    EXPECT_EQ(joining::joining_class_of(0x062F), joining_class::jc_right_joining); // dal
    EXPECT_EQ(joining::joining_class_of(0x0640), joining_class::jc_join_causing);  // tatweel
    EXPECT_EQ(joining::joining_class_of(0x200D), joining_class::jc_join_causing);  // ZWJ
    EXPECT_EQ(joining::joining_class_of(0x064E), joining_class::jc_transparent);   // fatha
    EXPECT_EQ(joining::joining_class_of(0x0621), joining_class::jc_non_joining);   // hamza
    EXPECT_EQ(joining::joining_class_of(U'a'), joining_class::jc_non_joining);
    EXPECT_EQ(joining::joining_class_of(0x0301), joining_class::jc_transparent);
    EXPECT_EQ(joining::joining_class_of(0x0710), joining_class::jc_right_joining); // Syriac alaph
    EXPECT_EQ(joining::joining_class_of(0x1820), joining_class::jc_dual_joining);  // Mongolian a
    EXPECT_EQ(joining::joining_class_of(0xA872), joining_class::jc_non_joining);   // left-joining
}

TEST(unicode_script, scripts_and_tags) {
    namespace sc = vellum::unicode::script;
    using sc::script;
    EXPECT_EQ(sc::script_of(U'a'), script::latn);
    EXPECT_EQ(sc::script_of(U'1'), script::zyyy);
    EXPECT_EQ(sc::script_of(U' '), script::zyyy);
    EXPECT_EQ(sc::script_of(0x0301), script::qaai);
    EXPECT_EQ(sc::script_of(0x0628), script::arab);
    EXPECT_EQ(sc::script_of(0x05D0), script::hebr);
    EXPECT_EQ(sc::script_of(0x0915), script::deva);
    EXPECT_EQ(sc::script_of(0x0E01), script::thai);
    EXPECT_EQ(sc::script_of(0x0E81), script::laoo);
    EXPECT_EQ(sc::script_of(0x4E00), script::hani);
    EXPECT_EQ(sc::script_of(0x3042), script::hira);
    EXPECT_EQ(sc::script_of(0x30A2), script::kana);
    EXPECT_EQ(sc::script_of(0xAC00), script::hang);
    EXPECT_EQ(sc::script_of(0x0410), script::cyrl);
    EXPECT_EQ(sc::script_of(0x03B1), script::grek);
    EXPECT_EQ(sc::script_of(0x13A0), script::cher);
    EXPECT_EQ(sc::script_of(0xAA00), script::cham);
    EXPECT_EQ(sc::script_of(0x12000), script::xsux);
    EXPECT_EQ(sc::script_of(0xA000), script::yiii);
    // Scripts outside the 78 (Adlam, Brahmi) and unassigned code points are unknown.
    EXPECT_EQ(sc::script_of(0x1E900), script::zzzz);
    EXPECT_EQ(sc::script_of(0x11005), script::zzzz);
    EXPECT_EQ(sc::script_of(0x0378), script::zzzz);
    EXPECT_EQ(sc::script_of(0x110000), script::zzzz);

    EXPECT_EQ(sc::tag(script::arab), "arab");
    EXPECT_EQ(sc::tag(script::latn), "latn");
    EXPECT_EQ(sc::tag(script::zzzz), "zzzz");
    EXPECT_EQ(sc::tag_value(script::latn), 0x6C61746Eu);
    EXPECT_EQ(sc::from_tag("Latn"), script::latn);
    EXPECT_EQ(sc::from_tag("yiii"), script::yiii);
    EXPECT_EQ(sc::from_tag("adlm"), std::nullopt);
    EXPECT_EQ(sc::from_tag("lat"), std::nullopt);
    // Every tag reads back as its own script.
    for (int i = 0; i < sc::script_count; ++i) {
        auto const s = static_cast<script>(i);
        EXPECT_EQ(sc::from_tag(sc::tag(s)), s) << i;
    }
}

TEST(grapheme_boundary, classes) {
    using namespace vellum::grapheme_boundary;
    EXPECT_EQ(get_grapheme_break_class(U'a'), grapheme_class::other);
    EXPECT_EQ(get_grapheme_break_class(U' '), grapheme_class::other);
    EXPECT_EQ(get_grapheme_break_class(U'\n'), grapheme_class::control_cr_lf);
    EXPECT_EQ(get_grapheme_break_class(U'\r'), grapheme_class::control_cr_lf);
    EXPECT_EQ(get_grapheme_break_class(0x2028), grapheme_class::control_cr_lf);
    EXPECT_EQ(get_grapheme_break_class(0x200B), grapheme_class::control_cr_lf);
    EXPECT_EQ(get_grapheme_break_class(0x0301), grapheme_class::extend_spacingmark);
    EXPECT_EQ(get_grapheme_break_class(0x0903), grapheme_class::extend_spacingmark); // Mc
    EXPECT_EQ(get_grapheme_break_class(0x20DD), grapheme_class::extend_spacingmark); // Me
    EXPECT_EQ(get_grapheme_break_class(0xFF9E), grapheme_class::extend_spacingmark); // Lm
    EXPECT_EQ(get_grapheme_break_class(0xFF9F), grapheme_class::extend_spacingmark);
    EXPECT_EQ(get_grapheme_break_class(0x200C), grapheme_class::extend_spacingmark); // ZWNJ
    EXPECT_EQ(get_grapheme_break_class(0x200D), grapheme_class::extend_spacingmark); // ZWJ
    EXPECT_EQ(get_grapheme_break_class(0x1F1E6), grapheme_class::regional_indicator);
    EXPECT_EQ(get_grapheme_break_class(0x1F1FF), grapheme_class::regional_indicator);
    EXPECT_EQ(get_grapheme_break_class(0x1F3FB), grapheme_class::extend_spacingmark); // skin tone
    EXPECT_EQ(get_grapheme_break_class(U'^'), grapheme_class::other);                 // other Sk
    EXPECT_EQ(get_grapheme_break_class(0x02B0), grapheme_class::other);               // ordinary Lm
    EXPECT_EQ(get_grapheme_break_class(0x0600), grapheme_class::other);               // prepended Cf
    EXPECT_EQ(get_grapheme_break_class(0x2065), grapheme_class::control_cr_lf);       // ignorable Cn
    EXPECT_EQ(get_grapheme_break_class(0x0378), grapheme_class::other);               // other Cn
    EXPECT_EQ(get_grapheme_break_class(0x110000), grapheme_class::control_cr_lf);
}

TEST(grapheme_boundary, graphemes_of_short_texts) {
    using namespace vellum::grapheme_boundary;
    auto split = [](std::u32string_view text) {
        std::vector<std::u32string> parts;
        for (std::size_t i = 0; i < text.size();) {
            auto const end = grapheme_end(text, i);
            parts.emplace_back(text.substr(i, end - i));
            i = end;
        }
        return parts;
    };
    using parts = std::vector<std::u32string>;
    // A combining acute after "e" joins it; after a line feed it stands alone.
    EXPECT_EQ(split(U"e\u0301x"), (parts{U"e\u0301", U"x"}));
    EXPECT_EQ(split(U"\n\u0301"), (parts{U"\n", U"\u0301"}));
    // Two regional indicators make one flag.
    EXPECT_EQ(split(U"\U0001F1E9\U0001F1EA"), (parts{U"\U0001F1E9\U0001F1EA"}));
    // CR and LF are two graphemes.
    EXPECT_EQ(split(U"\r\n"), (parts{U"\r", U"\n"}));
    EXPECT_EQ(split(U"a\u0308\u0301b"), (parts{U"a\u0308\u0301", U"b"}));
    EXPECT_EQ(split(U"\u0301a"), (parts{U"\u0301", U"a"}));
    EXPECT_EQ(split(U""), parts{});
    EXPECT_EQ(grapheme_end(U"ab", 5), 2u);

    EXPECT_TRUE(grapheme_break(grapheme_class::other, grapheme_class::other));
    EXPECT_TRUE(grapheme_break(grapheme_class::control_cr_lf, grapheme_class::extend_spacingmark));
    EXPECT_TRUE(grapheme_break(grapheme_class::other, grapheme_class::control_cr_lf));
    EXPECT_FALSE(grapheme_break(grapheme_class::regional_indicator, grapheme_class::extend_spacingmark));
    EXPECT_TRUE(grapheme_break(grapheme_class::regional_indicator, grapheme_class::other));
}

TEST(unicode_utf8, decodes_and_encodes) {
    auto const text = std::u32string(U"a\u00E9\u20AC\U0001F600");
    auto const bytes = utf8::encode_utf8(text);
    EXPECT_EQ(bytes, "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80");
    auto const back = utf8::decode_utf8(bytes);
    ASSERT_TRUE(back);
    EXPECT_EQ(*back, text);
    auto const block = utf8::decode_utf8(vellum::bytes::from_string(bytes));
    ASSERT_TRUE(block);
    EXPECT_EQ(*block, text);
    EXPECT_EQ(*utf8::decode_utf8(""), std::u32string());
    EXPECT_EQ(*utf8::decode_utf8("\xF4\x8F\xBF\xBF"), std::u32string(1, 0x10FFFF));
    // Code points without a UTF-8 form are written as the replacement character.
    EXPECT_EQ(utf8::encode_utf8(std::u32string{0xD800, 0x110000}), "\xEF\xBF\xBD\xEF\xBF\xBD");
}

TEST(unicode_utf8, reports_the_two_kinds_of_error) {
    using utf8::decode_error;
    using utf8::encoding_error;

    struct row {
        char const* name;
        std::string input;
        decode_error expected;
    };

    std::vector<row> const rows = {
        {"overlong slash", "a\xC0\xAF", {encoding_error::invalid_sequence, 1}},
        {"overlong three bytes", "\xE0\x80\xAF", {encoding_error::invalid_sequence, 0}},
        {"overlong four bytes", "\xF0\x8F\xBF\xBF", {encoding_error::invalid_sequence, 0}},
        {"surrogate", "ab\xED\xA0\x80", {encoding_error::invalid_sequence, 2}},
        {"above U+10FFFF", "\xF4\x90\x80\x80", {encoding_error::invalid_sequence, 0}},
        {"lead byte F5", "\xF5\x80\x80\x80", {encoding_error::invalid_sequence, 0}},
        {"stray continuation", "a\x80", {encoding_error::invalid_sequence, 1}},
        {"lead without continuation",
         "\xC3"
         "a",
         {encoding_error::invalid_sequence, 0}},
        {"cut short after lead", "ab\xC3", {encoding_error::unexpected_eof, 2}},
        {"cut short in four bytes", "\xF0\x9F\x98", {encoding_error::unexpected_eof, 0}},
    };
    for (auto const& r : rows) {
        SCOPED_TRACE(r.name);
        auto const got = utf8::decode_utf8(r.input);
        ASSERT_FALSE(got);
        EXPECT_EQ(got.error(), r.expected);
    }
}

TEST(unicode_range, parses_and_contains) {
    auto const one = range::parse_range("U+26");
    ASSERT_TRUE(one);
    EXPECT_EQ(*one, (range::range_pair{0x26, 0x26}));
    auto const span = range::parse_range("u+0-7F");
    ASSERT_TRUE(span);
    EXPECT_EQ(*span, (range::range_pair{0, 0x7F}));
    auto const wild = range::parse_range("U+4??");
    ASSERT_TRUE(wild);
    EXPECT_EQ(*wild, (range::range_pair{0x400, 0x4FF}));
    auto const top = range::parse_range("U+10????");
    ASSERT_TRUE(top);
    EXPECT_EQ(*top, (range::range_pair{0x100000, 0x10FFFF}));
    for (char const* bad :
         {"U+", "26", "U+Z", "U+1234567", "U+20-10", "U+1?-20", "U+110000", "U+0-", "U+0-1x", "U+2?????"}) {
        SCOPED_TRACE(bad);
        EXPECT_FALSE(range::parse_range(bad));
    }
    range::unicode_range const latin = {{0x20, 0x7E}, {0xA0, 0xFF}};
    EXPECT_TRUE(range::contains(latin, U'a'));
    EXPECT_TRUE(range::contains(latin, 0xFF));
    EXPECT_FALSE(range::contains(latin, 0x80));
    EXPECT_FALSE(range::contains(latin, 0x100));
    EXPECT_FALSE(range::contains({}, U'a'));
}

TEST(unicode_unicache, stores_lazily_and_rejects_a_different_second_value) {
    unicache::unicache<int> cache;
    EXPECT_EQ(cache.get(U'a'), std::nullopt);
    cache.set(U'a', 7);
    cache.set(0x10FFFF, 9);
    EXPECT_EQ(cache.get(U'a'), 7);
    EXPECT_EQ(cache.get(U'b'), std::nullopt);
    EXPECT_EQ(cache.get(0x10FFFF), 9);
    cache.set(U'a', 7); // the same value again is fine
    EXPECT_THROW(cache.set(U'a', 8), unicache::duplicate_entry<int>);
    try {
        cache.set(U'a', 8);
    } catch (unicache::duplicate_entry<int> const& e) {
        EXPECT_EQ(e.duplicate_entry_old, 7);
        EXPECT_EQ(e.duplicate_entry_new, 8);
        EXPECT_STREQ(e.what(), "unicache: duplicate entry for U+0061.");
    }
    cache.set(0x110000, 1);
    EXPECT_EQ(cache.get(0x110000), std::nullopt);
    int calls = 0;
    auto const compute = [&](char32_t cp) {
        ++calls;
        return static_cast<int>(cp) * 2;
    };
    EXPECT_EQ(cache.get_or_compute(U'c', compute), 198);
    EXPECT_EQ(cache.get_or_compute(U'c', compute), 198);
    EXPECT_EQ(calls, 1);
}

namespace {

// Calls f(first, last, value) for each data line "XXXX..YYYY ; Value # comment" of a character data file.
template <class F>
int for_each_range(char const* path, F&& f) {
    std::FILE* file = std::fopen(path, "r");
    if (!file) {
        return 0;
    }
    int lines = 0;
    char buf[512];
    while (std::fgets(buf, sizeof buf, file)) {
        unsigned first = 0;
        unsigned last = 0;
        char value[64] = {};
        if (std::sscanf(buf, "%x..%x ; %63[A-Za-z0-9_]", &first, &last, value) == 3 ||
            (std::sscanf(buf, "%x ; %63[A-Za-z0-9_]", &first, value) == 2 && (last = first, true))) {
            f(static_cast<char32_t>(first), static_cast<char32_t>(last), std::string(value));
            ++lines;
        }
    }
    std::fclose(file);
    return lines;
}

} // namespace

// The compiled table against the character data itself, for every code point the data lists.
TEST(unicode_category, table_matches_the_character_data) {
    int wrong = 0;
    int const lines =
        for_each_range("/usr/share/unicode/extracted/DerivedGeneralCategory.txt",
                       [&](char32_t first, char32_t last, std::string const& value) {
                           for (char32_t cp = first; cp <= last; ++cp) {
                               if (category::category_name(category::category_of(cp)) != value) {
                                   ADD_FAILURE() << std::hex << static_cast<unsigned>(cp);
                                   if (++wrong > 10) {
                                       return;
                                   }
                               }
                           }
                       });
    EXPECT_GT(lines, 3000);
}

TEST(unicode_vertical, orientation_of_east_asian_and_latin_text) {
    using vertical::orientation;
    struct row {
        char32_t cp;
        orientation expected;
        bool upright;
    };
    row const rows[] = {
        {U'\u4E00', orientation::upright, true},             // CJK ideograph
        {U'\u3042', orientation::upright, true},             // hiragana a
        {U'\uAC00', orientation::upright, true},             // Hangul syllable
        {U'\u3002', orientation::transformed_upright, true}, // ideographic full stop
        {U'\u3001', orientation::transformed_upright, true}, // ideographic comma
        {U'\u300C', orientation::transformed_rotated, false}, // corner bracket: turns only by its vertical form
        {U'\u30FC', orientation::transformed_rotated, false}, // prolonged sound mark
        {U'\uFF01', orientation::transformed_upright, true},  // full-width exclamation mark
        {U'A', orientation::rotated, false},
        {U'1', orientation::rotated, false},
        {U'\u0627', orientation::rotated, false}, // Arabic alef
        {U'\u00A9', orientation::upright, true},  // copyright sign
        {U'\U00020000', orientation::upright, true}, // CJK extension B
        {U'\U0003FFFD', orientation::upright, true}, // unassigned, in the CJK plane
        {char32_t(0x110000), orientation::rotated, false},
    };
    for (auto const& r : rows) {
        SCOPED_TRACE(static_cast<unsigned>(r.cp));
        EXPECT_EQ(vertical::orientation_of(r.cp), r.expected);
        EXPECT_EQ(vertical::stays_upright(r.cp), r.upright);
    }
}

// The compiled table against VerticalOrientation.txt for every code point it lists.
TEST(unicode_vertical, table_matches_the_character_data) {
    int wrong = 0;
    int const lines = for_each_range("/usr/share/unicode/VerticalOrientation.txt",
                                     [&](char32_t first, char32_t last, std::string const& value) {
                                         static char const* const names[] = {"R", "U", "Tu", "Tr"};
                                         for (char32_t cp = first; cp <= last && wrong <= 10; ++cp) {
                                             if (names[int(vertical::orientation_of(cp))] != value) {
                                                 ADD_FAILURE() << std::hex << static_cast<unsigned>(cp);
                                                 ++wrong;
                                             }
                                         }
                                     });
    if (lines == 0) {
        GTEST_SKIP() << "VerticalOrientation.txt is not installed";
    }
    EXPECT_GT(lines, 1000);
}
