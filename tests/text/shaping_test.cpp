// Shaping: layout table walkers, joining forms, and the glyphs and positions of real fonts compared with
// reference output committed in tests/text/data/shaping.
#include "text/font_data.hpp"
#include "text/opentype/language.hpp"
#include "text/opentype/layout.hpp"
#include "text/shaping/arabic.hpp"
#include "text/shaping/shape.hpp"
#include "text/unicode/script.hpp"
#include "text/unicode/utf8.hpp"
#include "text/vertical_origin.hpp"

#include "text/font_test_util.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

namespace vellum {

namespace {

using opentype::reader::make_tag;

fonts::freetype::freetype ft() {
    static auto const lib = *fonts::freetype::new_freetype();
    return lib;
}

std::optional<ref<font_data::font_data>> load(std::string const& path) {
    static std::map<std::string, std::optional<ref<font_data::font_data>>> cache;
    if (auto it = cache.find(path); it != cache.end()) {
        return it->second;
    }
    std::optional<ref<font_data::font_data>> font;
    if (std::filesystem::exists(path)) {
        font_test::captured_log l;
        if (auto f = font_data::load_font(l.log, ft(), font_data::font_file{.file_path = path}, path)) {
            font = *f;
        }
    }
    cache[path] = font;
    return font;
}

std::u32string decode(std::string const& s) {
    auto const r = unicode::utf8::decode_utf8(std::string_view(s));
    return r ? *r : std::u32string();
}

// One glyph per character, from the font's character map, as the shaper takes them.
shaping::buffer::glyphs glyphs_of(font_data::font_data const& font, std::u32string const& text) {
    shaping::buffer::glyphs input;
    for (std::size_t i = 0; i < text.size(); ++i) {
        input.push_back({.info_glyph = font_data::char_to_glyph(font, text[i]),
                         .info_chars = std::u32string(1, text[i]),
                         .info_cluster = std::uint32_t(i)});
    }
    return input;
}

// Shapes text in a font and writes the glyphs in visual order as the reference does.
std::string shape_text(font_data::font_data const& font, unicode::script::script s, bool rtl, std::u32string const& text,
                       std::vector<fonts::feature> features = {}, opentype::reader::tag language = 0) {
    auto input = glyphs_of(font, text);
    font_test::captured_log l;
    auto out = shaping::shape::shape_glyphs(
        l.log, font,
        {.run_direction = rtl ? fonts::direction::rtl : fonts::direction::ltr,
         .run_script = s,
         .run_language = language,
         .run_features = std::move(features)},
        std::move(input));
    if (rtl) {
        std::reverse(out.begin(), out.end());
    }
    std::string line;
    for (auto const& g : out) {
        line += (line.empty() ? "" : " ") + std::to_string(g.info_glyph) + "@" + std::to_string(g.pos_x_offset) +
                "," + std::to_string(g.pos_y_offset) + "+" + std::to_string(g.pos_x_advance);
    }
    return line;
}

struct reference_line {
    std::string font;
    std::string script;
    bool rtl = false;
    std::string text;
    std::string glyphs;
};

std::vector<reference_line> reference() {
    std::ifstream in(VELLUM_SOURCE_DIR "/tests/text/data/shaping/reference.txt");
    std::vector<reference_line> out;
    std::string line;
    while (std::getline(in, line)) {
        if (line.empty() || line[0] == '#') {
            continue;
        }
        std::istringstream fields(line);
        reference_line r;
        std::string dir;
        std::getline(fields, r.font, '\t');
        std::getline(fields, r.script, '\t');
        std::getline(fields, dir, '\t');
        std::getline(fields, r.text, '\t');
        std::getline(fields, r.glyphs, '\t');
        r.rtl = dir == "rtl";
        if (r.font[0] != '/') {
            r.font = std::string(VELLUM_SOURCE_DIR) + "/" + r.font;
        }
        out.push_back(std::move(r));
    }
    return out;
}

// Two glyph lists agree when the glyphs are the same and every number is within one font unit.
bool agree(std::string const& a, std::string const& b) {
    auto parse = [](std::string const& s) {
        std::vector<std::array<long, 4>> v;
        std::istringstream in(s);
        std::string item;
        while (in >> item) {
            std::array<long, 4> g{};
            std::sscanf(item.c_str(), "%ld@%ld,%ld+%ld", &g[0], &g[1], &g[2], &g[3]);
            v.push_back(g);
        }
        return v;
    };
    auto const x = parse(a);
    auto const y = parse(b);
    if (x.size() != y.size()) {
        return false;
    }
    for (std::size_t i = 0; i < x.size(); ++i) {
        if (x[i][0] != y[i][0]) {
            return false;
        }
        for (int k = 1; k < 4; ++k) {
            if (std::abs(x[i][k] - y[i][k]) > 1) {
                return false;
            }
        }
    }
    return true;
}

} // namespace

TEST(shaping, agrees_with_the_reference_shaper) {
    auto const lines = reference();
    ASSERT_GE(lines.size(), 300u);
    std::map<std::string, std::pair<int, int>> tally;
    int shown = 0;
    for (auto const& r : lines) {
        auto const font = load(r.font);
        if (!font) {
            continue;
        }
        auto const s = unicode::script::from_tag(r.script);
        ASSERT_TRUE(s.has_value()) << r.script;
        auto const ours = shape_text(**font, *s, r.rtl, decode(r.text));
        auto& [good, all] = tally[r.script];
        ++all;
        if (agree(ours, r.glyphs)) {
            ++good;
        } else if (shown++ < 40) {
            ADD_FAILURE() << r.font << " " << r.text << "\n  reference: " << r.glyphs << "\n  ours:      " << ours;
        }
    }
    for (auto const& [script, counts] : tally) {
        std::cout << script << ": " << counts.first << " of " << counts.second << " agree\n";
    }
}

TEST(shaping, checked_reads_end_with_the_accessor_message) {
    std::vector<std::uint8_t> const bytes{0, 1, 0, 2, 0xFF};
    opentype::layout::data const d(bytes);
    EXPECT_EQ(opentype::layout::get_uint16(d, 2), 2);
    auto message = [&](auto&& f) {
        try {
            f();
        } catch (internal_error const& e) {
            return std::string(e.what());
        }
        return std::string("no error");
    };
    EXPECT_EQ(message([&] { (void)opentype::layout::get_uint16(d, 4); }), "get_uint16: offset out of bounds");
    EXPECT_EQ(message([&] { (void)opentype::layout::get_uint16(d, 1); }), "get_uint16: unaligned offset");
    EXPECT_EQ(message([&] { (void)opentype::layout::get_uint32(d, 2); }), "get_uint32: offset out of bounds");
    EXPECT_EQ(message([&] { (void)opentype::layout::add_offset(d, 0, 0); }), "add_offset: zero offset");
    EXPECT_EQ(message([&] { (void)opentype::layout::add_offset(d, 2, 3); }), "add_offset: out of bounds");
}

TEST(shaping, coverage_and_classes_in_both_formats) {
    // Coverage format 1 (glyphs 5, 9, 12), then format 2 (10-19 from index 0, 30-31 from 10), then a
    // class definition format 1 (glyphs 7-9: classes 1, 0, 2) and format 2 (20-29: class 3).
    std::vector<std::uint8_t> const bytes{
        0, 1, 0, 3, 0, 5,  0, 9, 0, 12,                                 // at 0
        0, 2, 0, 2, 0, 10, 0, 19, 0, 0, 0, 30, 0, 31, 0, 10,           // at 10
        0, 1, 0, 7, 0, 3,  0, 1, 0, 0, 0, 2,                           // at 26
        0, 2, 0, 1, 0, 20, 0, 29, 0, 3,                                 // at 38
    };
    opentype::layout::data const d(bytes);
    using opentype::layout::coverage_index;
    EXPECT_EQ(coverage_index(d, 0, 9), 1);
    EXPECT_EQ(coverage_index(d, 0, 12), 2);
    EXPECT_FALSE(coverage_index(d, 0, 6));
    EXPECT_EQ(coverage_index(d, 10, 15), 5);
    EXPECT_EQ(coverage_index(d, 10, 31), 11);
    EXPECT_FALSE(coverage_index(d, 10, 25));
    using opentype::layout::class_of;
    EXPECT_EQ(class_of(d, 26, 7), 1);
    EXPECT_EQ(class_of(d, 26, 9), 2);
    EXPECT_EQ(class_of(d, 26, 10), 0);
    EXPECT_EQ(class_of(d, 38, 25), 3);
    EXPECT_EQ(class_of(d, 38, 30), 0);
}

TEST(shaping, arabic_joining_forms) {
    using shaping::arabic::form;
    using shaping::arabic::joining_forms;
    // Beh, yeh, teh: initial, medial, final.
    EXPECT_EQ(joining_forms(U"\u0628\u064A\u062A"), (std::vector{form::init, form::medi, form::fina}));
    // A fatha between them is passed over.
    EXPECT_EQ(joining_forms(U"\u0628\u064E\u062A"), (std::vector{form::init, form::none, form::fina}));
    // Alef joins only to the letter before it, so the beh after it stands alone.
    EXPECT_EQ(joining_forms(U"\u0627\u0628"), (std::vector{form::isol, form::isol}));
    // ZWNJ breaks the join; ZWJ makes one.
    EXPECT_EQ(joining_forms(U"\u0628\u200C\u0628"), (std::vector{form::isol, form::none, form::isol}));
    EXPECT_EQ(joining_forms(U"\u0628\u200D"), (std::vector{form::init, form::fina}));
}

TEST(shaping, features_add_to_the_defaults_and_can_turn_one_off) {
    auto const font = load("/usr/share/fonts/truetype/dejavu/DejaVuSerif.ttf");
    if (!font) {
        GTEST_SKIP() << "DejaVu Serif is not installed";
    }
    auto const latn = unicode::script::script::latn;
    auto const plain = shape_text(**font, latn, false, U"fi");
    EXPECT_EQ(plain.find(' '), std::string::npos) << "one ligature glyph: " << plain;
    // Another feature leaves "liga" on; "liga" 0 turns it off.
    EXPECT_EQ(shape_text(**font, latn, false, U"fi", {{.feature_tag = "salt", .feature_param = 2}}), plain);
    auto const off = shape_text(**font, latn, false, U"fi", {{.feature_tag = "liga", .feature_param = 0}});
    EXPECT_NE(off.find(' '), std::string::npos) << off;
}

TEST(shaping, a_feature_parameter_picks_that_alternate) {
    auto const font = load("/usr/share/fonts/opentype/urw-base35/NimbusRoman-Regular.otf");
    if (!font) {
        GTEST_SKIP() << "Nimbus Roman is not installed";
    }
    auto const glyph = [&](int param) {
        auto const line = shape_text(**font, unicode::script::script::latn, false, U"-",
                                     {{.feature_tag = "aalt", .feature_param = param}});
        return line.substr(0, line.find('@'));
    };
    // The hyphen has three alternates: en dash, em dash and minus, as `hb-shape --features=aalt=N` picks
    // them; 0 turns the feature off.
    EXPECT_EQ(glyph(0), "14");
    EXPECT_EQ(glyph(1), "111");
    EXPECT_EQ(glyph(2), "137");
    EXPECT_EQ(glyph(3), "166");
}

TEST(shaping, small_capitals_from_the_font) {
    auto const font = load("/usr/share/fonts/truetype/noto/NotoSerif-Regular.ttf");
    if (!font) {
        GTEST_SKIP() << "Noto Serif is not installed";
    }
    auto const latn = unicode::script::script::latn;
    EXPECT_TRUE(shaping::shape::has_substitution_feature(**font, latn, make_tag("smcp")));
    auto const normal = shape_text(**font, latn, false, U"ab");
    auto const small = shape_text(**font, latn, false, U"ab", {{.feature_tag = "smcp"}});
    EXPECT_NE(normal, small);
}

// Glyph numbers and advances as `hb-shape --no-glyph-names --no-clusters` gives them for Noto Serif with
// the same features and language: "[g+adv|...]".
std::string hb_style(font_data::font_data const& font, std::u32string const& text, std::vector<fonts::feature> features,
                     opentype::reader::tag language = 0) {
    auto const line = shape_text(font, unicode::script::script::latn, false, text, std::move(features), language);
    std::string out = "[";
    std::size_t start = 0;
    while (start < line.size()) {
        auto const end = std::min(line.find(' ', start), line.size());
        auto const item = line.substr(start, end - start);
        out += (out.size() > 1 ? "|" : "") + item.substr(0, item.find('@')) + "+" + item.substr(item.find('+') + 1);
        start = end + 1;
    }
    return out + "]";
}

TEST(shaping, document_features_and_language_agree_with_the_reference) {
    auto const font = load("/usr/share/fonts/truetype/noto/NotoSerif-Regular.ttf");
    if (!font) {
        GTEST_SKIP() << "Noto Serif is not installed";
    }
    auto const& f = **font;
    EXPECT_EQ(hb_style(f, U"0123", {}), "[19+559|20+559|21+559|22+559]");
    EXPECT_EQ(hb_style(f, U"0123", {{.feature_tag = "onum"}}), "[2509+579|2510+579|2511+579|2512+579]");
    EXPECT_EQ(hb_style(f, U"1/2", {{.feature_tag = "frac"}}), "[2530+400|534+62|2521+400]");
    EXPECT_EQ(hb_style(f, U"AVA", {}), "[36+625|57+595|36+705]");
    EXPECT_EQ(hb_style(f, U"AVA", {{.feature_tag = "kern", .feature_param = 0}}), "[36+705|57+675|36+705]");
    // Serbian Cyrillic has its own be; the default language system keeps the Russian form.
    auto const cyrl = unicode::script::script::cyrl;
    auto const serbian = opentype::language::language_system_tag("sr-Cyrl-RS");
    ASSERT_TRUE(serbian);
    EXPECT_EQ(shape_text(f, cyrl, false, U"\u0431", {}).substr(0, 4), "458@");
    EXPECT_EQ(shape_text(f, cyrl, false, U"\u0431", {}, *serbian).substr(0, 5), "2363@");
}

TEST(language_tags, bcp47_to_opentype) {
    using opentype::language::language_system_tag;
    auto tag = [](std::string_view s) { return std::optional(make_tag(s)); };
    EXPECT_EQ(language_system_tag("en-GB"), tag("ENG "));
    EXPECT_EQ(language_system_tag("DE"), tag("DEU "));
    EXPECT_EQ(language_system_tag("tr"), tag("TRK "));
    EXPECT_EQ(language_system_tag("ro-MD"), tag("MOL "));
    EXPECT_EQ(language_system_tag("ja"), tag("JAN "));
    EXPECT_EQ(language_system_tag("zh"), tag("ZHS "));
    EXPECT_EQ(language_system_tag("zh-Hant"), tag("ZHT "));
    EXPECT_EQ(language_system_tag("zh_TW"), tag("ZHT "));
    EXPECT_EQ(language_system_tag("zh-HK"), tag("ZHH "));
    EXPECT_EQ(language_system_tag("zh-Hans-HK"), tag("ZHS "));
    EXPECT_EQ(language_system_tag(""), std::nullopt);
    EXPECT_EQ(language_system_tag("x-klingon"), std::nullopt);
    EXPECT_EQ(language_system_tag("tlh"), std::nullopt);
    using opentype::language::cjk_region;
    EXPECT_EQ(cjk_region("ja-JP"), std::optional<std::string_view>("JP"));
    EXPECT_EQ(cjk_region("ko"), std::optional<std::string_view>("KR"));
    EXPECT_EQ(cjk_region("zh-Hant-HK"), std::optional<std::string_view>("HK"));
    EXPECT_EQ(cjk_region("zh-TW"), std::optional<std::string_view>("TC"));
    EXPECT_EQ(cjk_region("zh"), std::optional<std::string_view>("SC"));
    EXPECT_EQ(cjk_region("en"), std::nullopt);
}

// Noto Sans CJK JP, the first face of the collection.
std::string const noto_cjk = "/usr/share/fonts/opentype/noto/NotoSansCJK-Regular.ttc";

TEST(shaping, vertical_text_takes_the_vertical_forms) {
    auto const font = load(noto_cjk);
    if (!font) {
        GTEST_SKIP() << "Noto Sans CJK is not installed";
    }
    std::u32string const text = U"猫。「ー」";
    auto shape = [&](bool vertical) {
        shaping::buffer::glyphs input;
        for (std::size_t i = 0; i < text.size(); ++i) {
            input.push_back({.info_glyph = font_data::char_to_glyph(**font, text[i]),
                             .info_chars = std::u32string(1, text[i]),
                             .info_cluster = std::uint32_t(i)});
        }
        font_test::captured_log l;
        return shaping::shape::shape_glyphs(
            l.log, **font, {.run_script = unicode::script::script::hani, .run_vertical = vertical}, std::move(input));
    };
    auto const across = shape(false);
    auto const down = shape(true);
    ASSERT_EQ(across.size(), text.size());
    ASSERT_EQ(down.size(), text.size());
    // The glyphs `hb-shape --direction=ttb` gives for the same text and face; the ideograph keeps its
    // glyph, the full stop, the brackets and the long vowel mark take their vertical forms.
    std::uint32_t const expected[] = {26145, 58981, 59006, 65339, 59007};
    for (std::size_t i = 0; i < text.size(); ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(down[i].info_glyph, expected[i]);
        EXPECT_EQ(down[i].info_vert_alt, i > 0);
        EXPECT_EQ(across[i].info_glyph == down[i].info_glyph, i == 0);
        EXPECT_FALSE(across[i].info_vert_alt);
    }
    // The vertical origin: the font's VORG puts the top of the em box 880 units above the baseline.
    EXPECT_EQ(vertical_origin::glyph_vert_origin_y(**font, expected[1]), 880);
    EXPECT_EQ(font_data::glyph_vert_advance(**font, expected[1]), 1000);
}

// A base and a combining mark are shown by their composite's glyph where the font has one, in both
// directions of writing, as `hb-shape` does; the glyph keeps both characters for copied text.
TEST(shaping, a_base_and_its_mark_take_the_composite_glyph) {
    auto const shape_text = [](font_data::font_data const& font, std::u32string const& text, unicode::script::script sc,
                               bool vertical) {
        font_test::captured_log l;
        return shaping::shape::shape_glyphs(l.log, font, {.run_script = sc, .run_vertical = vertical},
                                            glyphs_of(font, text));
    };
    if (auto const cjk = load(noto_cjk)) {
        // ka with the voicing mark is ga: glyph 1471 across, its vertical form 65168 down; ki with the
        // semi-voicing mark has no composite and stays the font's own pair.
        for (bool const vertical : {false, true}) {
            SCOPED_TRACE(vertical);
            auto const out = shape_text(**cjk, U"\u304B\u3099\u304D", unicode::script::script::hira, vertical);
            ASSERT_EQ(out.size(), 2U);
            EXPECT_EQ(out[0].info_glyph, vertical ? 65168U : 1471U);
            EXPECT_EQ(out[0].info_chars, U"\u304B\u3099");
            EXPECT_EQ(out[1].info_chars, U"\u304D");
        }
    }
    auto const serif = load("/usr/share/fonts/truetype/dejavu/DejaVuSerif.ttf");
    ASSERT_TRUE(serif);
    // e with an acute is e acute; a letter with two accents composes with each in turn.
    auto const e = shape_text(**serif, U"e\u0301x", unicode::script::script::latn, false);
    ASSERT_EQ(e.size(), 2U);
    EXPECT_EQ(e[0].info_glyph, font_data::char_to_glyph(**serif, U'\u00E9'));
    EXPECT_EQ(e[0].info_chars, U"e\u0301");
    auto const two = shape_text(**serif, U"a\u0302\u0301", unicode::script::script::latn, false);
    ASSERT_EQ(two.size(), 1U);
    EXPECT_EQ(two[0].info_glyph, font_data::char_to_glyph(**serif, U'\u1EA5'));
    // A mark on a base without a composite stays a glyph of its own.
    auto const q = shape_text(**serif, U"q\u0301", unicode::script::script::latn, false);
    EXPECT_EQ(q.size(), 2U);
}

TEST(shaping, vertical_origin_without_vertical_metrics) {
    auto const font = load("/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf");
    if (!font) {
        GTEST_SKIP() << "DejaVu Sans is not installed";
    }
    // Without VORG and vmtx the em box of an upright glyph is the font's ascender to descender.
    auto const& m = (*font)->font_info.font_metrics;
    auto const glyph = font_data::char_to_glyph(**font, U'A');
    EXPECT_EQ(font_data::glyph_vert_advance(**font, glyph), m.ascender - m.descender);
    EXPECT_NEAR(vertical_origin::glyph_vert_origin_y(**font, glyph), m.ascender, 1);
}

} // namespace vellum
