// Subsetting real TrueType fonts: the new file is well formed (checked by our own readers, by FreeType and
// by fontTools), composites bring in their components renumbered, metrics follow their glyphs.
#include "font_test_util.hpp"
#include "text/font_subset.hpp"
#include "text/opentype/cff_font.hpp"
#include "text/fonts/freetype.hpp"
#include "text/fonts/graphemes.hpp"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <numeric>
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

// ---- Subsetting the used fonts of a document ------------------------------------------------------------

resource::loader::loader test_loader(log::log const& log) {
    resource::loader::loader_options opts;
    opts.network = false;
    auto l = resource::loader::new_loader(log, {"/nonexistent-prefix"}, {"/tmp"}, opts);
    EXPECT_TRUE(l);
    return *l;
}

resource::locator::locator as_path(std::string const& text, std::string const&) {
    namespace locator = resource::locator;
    return locator::parse_locator(locator::path_or_url::path_or_url, locator::locator_origin::command_line_origin,
                                  std::nullopt, text);
}

// A font database with one family per font file, and the used font that a text brings in.
struct used_fonts {
    font_test::captured_log log;
    fonts::fonts db;

    used_fonts() {
        db = *fonts::new_fonts(test_loader(log.log), log.log, false);
        std::string sheet;
        for (auto const& [family, file] : std::vector<std::pair<std::string, std::string>>{
                 {"Sans", sans},
                 {"Cff", "/usr/share/fonts/opentype/urw-base35/NimbusSans-Regular.otf"},
                 {"Cjk", "/usr/share/fonts/opentype/noto/NotoSansCJK-Regular.ttc"},
             }) {
            sheet += "@font-face { font-family: " + family + "; src: url(\"" + file + "\"); }\n";
        }
        fonts::add_font_face_sheet(db, sheet, "test.css", as_path);
    }

    // Shapes the text and records its glyphs with their characters; the font of the first glyph.
    fonts::font_ref use(std::string const& family, std::u32string const& text) {
        auto const req = fonts::get_font_req(db, {.query_families = {family, "vellum-no-fallback"}});
        auto const gs = fonts::text_to_graphemes(db, *req, fonts::direction::ltr, text);
        for (auto const& g : gs) {
            fonts::record_glyph(g.base_glyph.glyph_font_ref, g.base_glyph.glyph_source, g.base_glyph.glyph_unicodes);
        }
        return gs.front().base_glyph.glyph_font_ref;
    }
};

std::vector<int> numbers(fonts::font_ref const& font) {
    std::vector<int> out;
    for (auto const& e : font->used_font_glyph_cache->get().glyph_cache_entries) {
        out.push_back(e.entry_index->get());
    }
    return out;
}

// Distinct characters that DejaVu Sans has, starting with Greek, so that the font is an Identity one.
std::u32string distinct_characters(std::size_t n) {
    source src(sans);
    std::u32string out;
    for (char32_t c = 0x391; out.size() < n; ++c) {
        if (src.glyph(c) != 0) {
            out += c;
        }
    }
    return out;
}

TEST(subset_font, glyphs_are_renumbered_in_order_of_use_and_small_identity_fonts_turn_simple) {
    used_fonts u;
    auto const font = u.use("Sans", U"βαβγ");
    ASSERT_EQ(font->used_font_encoding->get(), fonts::font_pdf_encoding::identity_encoding);
    font_subset::subset_font(u.log.log, true, font);
    EXPECT_EQ(numbers(font), (std::vector<int>{1, 2, 3}));
    EXPECT_EQ(font->used_font_encoding->get(), fonts::font_pdf_encoding::standard_encoding);
    EXPECT_EQ(fonts::pdf_font_tag(font), "QZAAAA");
    auto const bytes = font_subset::font_file_bytes(font);
    ASSERT_TRUE(bytes);
    // The subset's one-byte cmap maps each code to the glyph of that number.
    auto const report = font_tools_report(std::vector<std::uint8_t>(bytes->view().begin(), bytes->view().end()));
    EXPECT_EQ(report.substr(0, report.find(' ')), "4") << report;
    auto const ft = *fonts::freetype::new_freetype();
    auto const face = *fonts::freetype::open_memory(ft, *bytes, 0);
    source src(sans);
    EXPECT_EQ(*fonts::freetype::unscaled_advance(face, 2), *fonts::freetype::unscaled_advance(src.face, src.glyph(U'α')));
}

TEST(subset_font, two_hundred_and_fifty_six_glyphs_with_glyph_0_are_simple_one_more_stays_identity) {
    for (std::size_t n : {255u, 256u}) {
        SCOPED_TRACE(n);
        used_fonts u;
        auto const font = u.use("Sans", distinct_characters(n));
        font_subset::subset_font(u.log.log, true, font);
        EXPECT_EQ(font->used_font_encoding->get(), n == 255 ? fonts::font_pdf_encoding::standard_encoding
                                                             : fonts::font_pdf_encoding::identity_encoding);
        EXPECT_EQ(numbers(font).back(), int(n));
        auto const bytes = font_subset::font_file_bytes(font);
        ASSERT_TRUE(bytes && fonts::pdf_font_tag(font));
        // An Identity subset has no cmap: text reaches its glyphs by number alone.
        auto const v = bytes->view();
        auto const report = font_tools_report(std::vector<std::uint8_t>(v.begin(), v.end()));
        EXPECT_EQ(report.find("cmap") != std::string::npos, n == 255) << report;
    }
}

TEST(subset_font, unembedded_macroman_fonts_stay_whole) {
    used_fonts u;
    auto const roman = u.use("Sans", U"plain");
    font_subset::subset_font(u.log.log, false, roman);
    EXPECT_FALSE(fonts::pdf_font_tag(roman));
    // The whole TrueType file, as it is on disk.
    EXPECT_EQ(font_subset::font_file_bytes(roman)->size(), std::filesystem::file_size(sans));
}

TEST(subset_font, cff_fonts_become_identity_subsets) {
    used_fonts u;
    // An Identity font, and one of MacRoman text that must turn Identity: the subset is read by glyph
    // number, which a simple font's encoding cannot reach.
    auto const greek = u.use("Cff", U"Ωmega Привет");
    std::vector<std::uint32_t> sources;
    for (auto const& e : greek->used_font_glyph_cache->get().glyph_cache_entries) {
        sources.push_back(e.entry_source);
    }
    font_subset::subset_font(u.log.log, true, greek);
    std::vector<int> expected(sources.size());
    std::iota(expected.begin(), expected.end(), 1);
    EXPECT_EQ(numbers(greek), expected); // in order of first use, after glyph 0
    EXPECT_EQ(greek->used_font_encoding->get(), fonts::font_pdf_encoding::identity_encoding);
    EXPECT_EQ(fonts::pdf_font_tag(greek), "QZAAAA");
    auto const program = font_subset::font_file_bytes(greek);
    ASSERT_TRUE(program);
    auto const parsed = opentype::cff_font::parse_font(program->view());
    ASSERT_TRUE(parsed) << parsed.error();
    ASSERT_EQ(parsed->font_charstrings.index_items.size(), sources.size() + 1);
    auto const whole = *fonts::freetype::load_table(greek->used_font_data->font_face, make_tag("CFF "));
    auto const source = opentype::cff_font::parse_font(whole.view());
    ASSERT_TRUE(source);
    // The glyphs keep their names (or CIDs become their numbers, for a CID-keyed source).
    EXPECT_EQ(parsed->font_is_cid, source->font_is_cid);
    for (std::size_t i = 0; i < sources.size(); ++i) {
        EXPECT_EQ(parsed->font_charset[i + 1], source->font_is_cid ? i + 1 : source->font_charset[sources[i]]);
    }
    EXPECT_LT(program->size(), whole.size() / 4);

    used_fonts v;
    auto const plain = v.use("Cff", U"plain");
    ASSERT_EQ(plain->used_font_encoding->get(), fonts::font_pdf_encoding::macroman_encoding);
    font_subset::subset_font(v.log.log, true, plain);
    EXPECT_EQ(plain->used_font_encoding->get(), fonts::font_pdf_encoding::identity_encoding);
    EXPECT_EQ(numbers(plain), (std::vector<int>{1, 2, 3, 4, 5}));
    // Not embedded, a MacRoman CFF font is left as it is.
    used_fonts w;
    auto const bare = w.use("Cff", U"plain");
    font_subset::subset_font(w.log.log, false, bare);
    EXPECT_EQ(bare->used_font_encoding->get(), fonts::font_pdf_encoding::macroman_encoding);
    EXPECT_FALSE(fonts::pdf_font_tag(bare));
}

TEST(subset_font, whole_cid_keyed_cff_fonts_turn_identity_and_number_glyphs_by_cid) {
    if (!std::filesystem::exists("/usr/share/fonts/opentype/noto/NotoSansCJK-Regular.ttc")) {
        GTEST_SKIP() << "Noto Sans CJK is not installed";
    }
    used_fonts u;
    // Latin text makes a MacRoman font, which a CID-keyed font cannot serve: it has no glyph names.
    auto const cjk = u.use("Cjk", U"Latin");
    ASSERT_EQ(cjk->used_font_encoding->get(), fonts::font_pdf_encoding::macroman_encoding);
    font_subset::prepare_whole_font(true, cjk);
    EXPECT_EQ(cjk->used_font_encoding->get(), fonts::font_pdf_encoding::identity_encoding);
    auto const program = *fonts::freetype::load_table(cjk->used_font_data->font_face, make_tag("CFF "));
    auto const parsed = opentype::cff_font::parse_font(program.view());
    ASSERT_TRUE(parsed);
    for (auto const& e : cjk->used_font_glyph_cache->get().glyph_cache_entries) {
        EXPECT_EQ(e.entry_index->get(), parsed->font_charset.at(e.entry_source));
    }
    EXPECT_FALSE(fonts::pdf_font_tag(cjk));

    // A name-keyed CFF font and a TrueType font are left as they are.
    auto const urw = u.use("Cff", U"Latin");
    auto const sans = u.use("Sans", U"Latin");
    font_subset::prepare_whole_font(true, urw);
    font_subset::prepare_whole_font(true, sans);
    EXPECT_EQ(urw->used_font_encoding->get(), fonts::font_pdf_encoding::macroman_encoding);
    EXPECT_EQ(sans->used_font_encoding->get(), fonts::font_pdf_encoding::macroman_encoding);
}

TEST(subset_font, macroman_codes_reach_their_glyphs_and_unreachable_glyphs_are_reported) {
    used_fonts u;
    auto const font = u.use("Sans", U"Aé A");
    // A ligature from the shaper: the glyph of U+FB03 standing for "ffi", which has no MacRoman code.
    source src(sans);
    fonts::record_glyph(font, src.glyph(U'\uFB03'), U"ffi");
    ASSERT_EQ(font->used_font_encoding->get(), fonts::font_pdf_encoding::macroman_encoding);
    font_subset::subset_font(u.log.log, true, font);
    EXPECT_EQ(numbers(font), (std::vector<int>{1, 2, 3, 4}));
    EXPECT_NE(u.log.text().find("invalid MacRoman char codes for font subsetting: U+0066 U+0066 U+0069"),
              std::string::npos)
        << u.log.text();
    auto const bytes = *font_subset::font_file_bytes(font);
    auto const ft = *fonts::freetype::new_freetype();
    auto const face = *fonts::freetype::open_memory(ft, bytes, 0);
    // FreeType reads the Mac Roman cmap: 'A' is glyph 1, 0x8E (e acute) glyph 2, the blank glyph 3.
    auto const b = bytes.view();
    std::vector<std::uint8_t> v(b.begin(), b.end());
    std::size_t cmap = 0;
    for (std::size_t i = 0; i < u16(v, 4); ++i) {
        if (u16(v, 12 + 16 * i) == 0x636d) {
            cmap = std::size_t(u16(v, 12 + 16 * i + 8)) << 16 | u16(v, 12 + 16 * i + 10);
        }
    }
    ASSERT_NE(cmap, 0u);
    EXPECT_EQ(v[cmap + 18 + 'A'], 1);
    EXPECT_EQ(v[cmap + 18 + 0x8E], 2);
    EXPECT_EQ(v[cmap + 18 + ' '], 3);
    EXPECT_EQ(v[cmap + 18 + 'B'], 0);
    EXPECT_TRUE(face.face_handle);
}

TEST(subset_font, sfnt_assembly_and_long_loca) {
    source src(sans);
    // DejaVu Sans has long "loca" offsets; the subset keeps the format with 4 (n + 1) bytes.
    auto const head = *src.reader()(make_tag("head"));
    ASSERT_EQ(u16(head, 50), 1);
    auto const made = *font_subset::make_subset(src.reader(), std::nullopt, {0, src.glyph(U'a'), src.glyph(U'b')});
    auto const& b = made.subset_bytes;
    for (std::size_t i = 0; i < u16(b, 4); ++i) {
        if (u16(b, 12 + 16 * i) == 0x6c6f) { // "loca"
            EXPECT_EQ(std::uint32_t(u16(b, 12 + 16 * i + 12)) << 16 | u16(b, 12 + 16 * i + 14), 4u * 4u);
        }
    }
    // The directory's search fields for 11 tables, and the checksum adjustment over the whole file.
    EXPECT_EQ(u16(b, 4), 11);
    EXPECT_EQ(u16(b, 6), 128);
    EXPECT_EQ(u16(b, 8), 3);
    EXPECT_EQ(u16(b, 10), 48);
    auto const two = font_subset::assemble_sfnt({{make_tag("abcd"), {1, 2, 3}}, {make_tag("head"), head}});
    EXPECT_EQ(two.size(), 12u + 32u + 4u + ((head.size() + 3) & ~std::size_t{3}));
    EXPECT_EQ(whole_file_sum(two), 0xB1B0AFBAu);
}

} // namespace
