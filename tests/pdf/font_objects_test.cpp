// Font numbers for PDF: scaling, descriptor flags, /W runs and the ToUnicode CMap.
#include "pdf/font_objects.hpp"

#include <gtest/gtest.h>

namespace {

using namespace vellum::pdf;
using namespace vellum::pdf::font_objects;

TEST(font_objects, scaling_truncates_toward_zero_and_flags_combine) {
    EXPECT_EQ(scale_to_1000(1901, 2048), 928);
    EXPECT_EQ(scale_to_1000(-483, 2048), -235);
    EXPECT_EQ(scale_to_1000(500, 1000), 500);
    EXPECT_EQ(descriptor_flags(true, true), 69);
    EXPECT_EQ(descriptor_flags(false, false), 4);
    EXPECT_EQ(descriptor_flags(false, true), 68);
}

TEST(font_objects, w_array_gives_one_run_per_gap) {
    auto const w = w_array({{5, 600}, {1, 500}, {2, 510}, {3, 520}});
    EXPECT_EQ(to_text(object{w}), "[1 [500 510 520] 5 [600]]");
    EXPECT_EQ(to_text(object{w_array({})}), "[]");
}

TEST(font_objects, utf16_of_astral_characters_uses_surrogates) {
    EXPECT_EQ(utf16_hex(U'\U0001F600'), "d83dde00");
    EXPECT_EQ(utf16_hex(U'\u00e9'), "00e9");
}

TEST(font_objects, tounicode_blocks_of_one_hundred) {
    std::vector<glyph_unicodes> glyphs;
    glyphs.push_back({0, {}}); // the missing glyph stands for nothing and is left out
    for (std::uint32_t g = 1; g <= 101; ++g) {
        glyphs.push_back({g, {U'a'}});
    }
    auto const text = tounicode_cmap(tounicode_type::tounicode_ucs2, glyphs);
    EXPECT_NE(text.find("<0000> <FFFF>\nendcodespacerange\n100 beginbfchar\n<0001> <0061>\n"), std::string::npos);
    EXPECT_NE(text.find("<0064> <0061>\nendbfchar\n1 beginbfchar\n<0065> <0061>\nendbfchar\nendcmap\n"),
              std::string::npos);
    glyphs.resize(101); // glyph 0 and exactly 100 mapped glyphs
    auto const one = tounicode_cmap(tounicode_type::tounicode_ucs2, glyphs);
    EXPECT_EQ(one.find("beginbfchar"), one.rfind("beginbfchar"));
}

TEST(font_objects, tounicode_for_ligatures_and_one_byte_codes) {
    auto const text = tounicode_cmap(tounicode_type::tounicode_byte, {{3, {U'f', U'f', U'i'}}, {4, {U'\U0001F600'}}});
    EXPECT_NE(text.find("<00> <FF>\n"), std::string::npos);
    EXPECT_NE(text.find("2 beginbfchar\n<03> <006600660069>\n<04> <d83dde00>\nendbfchar\n"), std::string::npos);
    auto const empty = tounicode_cmap(tounicode_type::tounicode_byte, {});
    EXPECT_EQ(empty.find("beginbfchar"), std::string::npos);
    EXPECT_TRUE(empty.ends_with("endcmap\nCMapName currentdict /CMap defineresource pop\nend\nend\n"));
}

} // namespace
