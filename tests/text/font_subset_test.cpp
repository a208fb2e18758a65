// Subsetting real TrueType fonts: the new file is well formed (checked by our own readers, by FreeType and
// by fontTools), composites bring in their components renumbered, metrics follow their glyphs.
#include "text/font_subset.hpp"
#include "text/fonts/freetype.hpp"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <unistd.h>

namespace {

using namespace vellum;
namespace fs = std::filesystem;
using opentype::reader::make_tag;

char const* const sans = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf";
char const* const sans_light = "/usr/share/fonts/truetype/dejavu/DejaVuSans-ExtraLight.ttf";

struct source {
    fonts::freetype::freetype ft = *fonts::freetype::new_freetype();
    fonts::freetype::face face;

    explicit source(char const* path) : face(*fonts::freetype::open_file(ft, path, 0)) {}

    font_subset::table_reader reader() const {
        return [f = face](opentype::reader::tag t) -> std::optional<std::vector<std::uint8_t>> {
            auto b = fonts::freetype::load_table(f, t);
            if (!b) {
                return std::nullopt;
            }
            auto const c = b->chars();
            return std::vector<std::uint8_t>(c.begin(), c.end());
        };
    }
    std::uint32_t glyph(char32_t c) const { return fonts::freetype::char_index(face, c); }
};

std::uint16_t u16(std::vector<std::uint8_t> const& b, std::size_t at) {
    return static_cast<std::uint16_t>(b[at] << 8 | b[at + 1]);
}

std::uint32_t whole_file_sum(std::vector<std::uint8_t> const& b) { return font_subset::table_checksum(b); }

// Runs fontTools over the file: every glyph decompiles, and the script prints the glyph count, the number of
// composite glyphs, the table tags and the advance of each glyph.
std::string font_tools_report(std::vector<std::uint8_t> const& bytes) {
    auto const dir = fs::temp_directory_path() / ("vellum_subset_" + std::to_string(getpid()));
    fs::create_directories(dir);
    auto const font = dir / "subset.ttf";
    std::ofstream(font, std::ios::binary).write(reinterpret_cast<char const*>(bytes.data()),
                                                 static_cast<std::streamsize>(bytes.size()));
    auto const script = dir / "check.py";
    std::ofstream(script) << "import sys\n"
                             "from fontTools.ttLib import TTFont\n"
                             "f = TTFont(sys.argv[1])\n"
                             "g = f['glyf']\n"
                             "order = f.getGlyphOrder()\n"
                             "comp = 0\n"
                             "for n in order:\n"
                             "    gl = g[n]\n"
                             "    gl.expand(g)\n"
                             "    if gl.isComposite():\n"
                             "        comp += 1\n"
                             "        for c in gl.components: assert f.getGlyphID(c.glyphName) < len(order)\n"
                             "print(len(order), comp, ' '.join(sorted(f.keys())))\n"
                             "print(' '.join(str(f['hmtx'][n][0]) for n in order))\n";
    auto const out = dir / "out.txt";
    std::string const cmd = "/usr/bin/python3 " + script.string() + " " + font.string() + " > " + out.string() + " 2>&1";
    int const rc = std::system(cmd.c_str());
    std::ifstream in(out);
    std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    fs::remove_all(dir);
    return rc == 0 ? text : "fontTools failed: " + text;
}

TEST(font_subset, composites_pull_their_components_in_order_of_discovery) {
    source src(sans);
    std::uint32_t const A = src.glyph(U'A'), eacute = src.glyph(U'\u00e9'), e = src.glyph(U'e');
    std::uint32_t const napostrophe = src.glyph(U'\u0149');
    auto const made = font_subset::make_subset(src.reader(), std::nullopt, {0, A, e, eacute, napostrophe});
    ASSERT_TRUE(made) << made.error();
    auto const& list = made->subset_glyphs;
    // e was asked for before é, so é's component keeps e's number; acute, n and the apostrophe (itself a
    // composite) follow in the order they were found, and the apostrophe's own component after them.
    ASSERT_GE(list.size(), 9u);
    EXPECT_EQ((std::vector<std::uint32_t>(list.begin(), list.begin() + 8)),
              (std::vector<std::uint32_t>{0, A, e, eacute, napostrophe, src.glyph(U'\u00b4'), src.glyph(U'n'),
                                          src.glyph(U'\u02bc')}));
    auto const report = font_tools_report(made->subset_bytes);
    EXPECT_EQ(report.substr(0, report.find('\n')),
              std::to_string(list.size()) + " 3 GlyphOrder cvt  fpgm glyf head hhea hmtx loca maxp name post prep")
        << report;
    EXPECT_EQ(whole_file_sum(made->subset_bytes), 0xB1B0AFBAu) << "checkSumAdjustment";

    // FreeType opens it too and finds the advances where the source had them.
    auto const ft = *fonts::freetype::new_freetype();
    auto const face = fonts::freetype::open_memory(
        ft, bytes::from_vector(std::vector<std::uint8_t>(made->subset_bytes)), 0);
    ASSERT_TRUE(face);
    for (std::uint32_t i = 0; i < list.size(); ++i) {
        EXPECT_EQ(*fonts::freetype::unscaled_advance(*face, i), *fonts::freetype::unscaled_advance(src.face, list[i]));
    }
}

TEST(font_subset, the_missing_glyph_alone_is_a_valid_font) {
    source src(sans);
    auto const made = font_subset::make_subset(src.reader(), std::nullopt, {0});
    ASSERT_TRUE(made) << made.error();
    EXPECT_EQ(made->subset_glyphs, std::vector<std::uint32_t>{0});
    auto const report = font_tools_report(made->subset_bytes);
    EXPECT_EQ(report.substr(0, report.find(' ')), "1") << report;
}

TEST(font_subset, a_character_map_gives_a_one_byte_cmap) {
    source src(sans);
    font_subset::char_map_array map{};
    map['A'] = 1;
    map['B'] = 2;
    auto const made = font_subset::make_subset(src.reader(), map, {0, src.glyph(U'A'), src.glyph(U'B')});
    ASSERT_TRUE(made) << made.error();
    auto const& b = made->subset_bytes;
    // The first directory entry is "cmap", 274 bytes long.
    EXPECT_EQ(u16(b, 12), 0x636d);
    EXPECT_EQ((std::uint32_t(u16(b, 24)) << 16 | u16(b, 26)), 274u);
    auto const ft = *fonts::freetype::new_freetype();
    auto const face = fonts::freetype::open_memory(ft, bytes::from_vector(std::vector<std::uint8_t>(b)), 0);
    ASSERT_TRUE(face);
    auto const report = font_tools_report(b);
    EXPECT_NE(report.find("cmap"), std::string::npos) << report;
}

TEST(font_subset, short_loca_and_glyphs_beyond_the_metric_pairs) {
    source src(sans_light);
    // The last glyphs of this face share the last advance and have only a side bearing of their own.
    auto const made = font_subset::make_subset(src.reader(), std::nullopt, {0, 2031, 2030, 5});
    ASSERT_TRUE(made) << made.error();
    auto const report = font_tools_report(made->subset_bytes);
    ASSERT_EQ(report.rfind("fontTools failed", 0), std::string::npos) << report;
    auto const advances = report.substr(report.find('\n') + 1);
    std::string expected;
    for (std::uint32_t g : made->subset_glyphs) {
        expected += (expected.empty() ? "" : " ") + std::to_string(*fonts::freetype::unscaled_advance(src.face, g));
    }
    EXPECT_EQ(advances, expected + "\n");
}

TEST(font_subset, missing_tables_and_foreign_glyphs_fail) {
    source src(sans);
    auto const without_glyf = [&](opentype::reader::tag t) -> std::optional<std::vector<std::uint8_t>> {
        return t == make_tag("glyf") ? std::nullopt : src.reader()(t);
    };
    EXPECT_FALSE(font_subset::make_subset(without_glyf, std::nullopt, {0}));
    auto const without_prep = [&](opentype::reader::tag t) -> std::optional<std::vector<std::uint8_t>> {
        return t == make_tag("prep") ? std::nullopt : src.reader()(t);
    };
    EXPECT_TRUE(font_subset::make_subset(without_prep, std::nullopt, {0}));
    EXPECT_FALSE(font_subset::make_subset(src.reader(), std::nullopt, {0, 100000}));
}

} // namespace
