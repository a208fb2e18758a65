#include "font_test_util.hpp"
#include "text/opentype/cff.hpp"
#include "text/opentype/cmap.hpp"
#include "text/opentype/glyf.hpp"
#include "text/opentype/kern.hpp"
#include "text/opentype/tables.hpp"

#include <gtest/gtest.h>

#include <ft2build.h>
#include FT_FREETYPE_H

namespace vellum::opentype {
namespace {

using font_test::dejavu;
using font_test::liberation;
using font_test::read_file;
using reader::make_tag;

// Big-endian byte building for hand-made tables.
struct builder {
    std::vector<std::uint8_t> out;
    builder& u8(unsigned v) {
        out.push_back(std::uint8_t(v));
        return *this;
    }
    builder& u16(unsigned v) {
        return u8(v >> 8).u8(v);
    }
    builder& u32(std::uint32_t v) {
        return u16(v >> 16).u16(v & 0xffff);
    }
};

// FreeType's own reading of a file, to compare against.
struct ft_face {
    FT_Library lib = nullptr;
    FT_Face face = nullptr;
    explicit ft_face(std::string const& path) {
        FT_Init_FreeType(&lib);
        FT_New_Face(lib, path.c_str(), 0, &face);
    }
    ~ft_face() {
        FT_Done_Face(face);
        FT_Done_FreeType(lib);
    }
};

struct sfnt {
    std::vector<std::uint8_t> file;
    tables::directory dir;
    reader::data table(char const* t) const {
        auto d = tables::find_table(dir, file, make_tag(t));
        return d ? *d : reader::data{};
    }
};

sfnt open_sfnt(std::string const& path) {
    sfnt s{.file = read_file(path)};
    auto dir = tables::parse_directory(s.file);
    EXPECT_TRUE(dir) << path << ": " << (dir ? "" : dir.error());
    if (dir) {
        s.dir = *dir;
    }
    return s;
}

TEST(opentype_tables, metrics_agree_with_freetype_on_installed_fonts) {
    for (auto const& path : {dejavu + "DejaVuSans.ttf", dejavu + "DejaVuSerif-Bold.ttf", dejavu + "DejaVuSansMono.ttf",
                             liberation + "LiberationSans-Regular.ttf", liberation + "LiberationSerif-Italic.ttf"}) {
        SCOPED_TRACE(path);
        auto const s = open_sfnt(path);
        ft_face ft(path);
        ASSERT_NE(ft.face, nullptr);
        auto head = tables::parse_head(s.table("head"));
        auto hhea = tables::parse_hhea(s.table("hhea"));
        auto maxp = tables::parse_maxp(s.table("maxp"));
        ASSERT_TRUE(head && hhea && maxp);
        EXPECT_EQ(head->head_units_per_em, ft.face->units_per_EM);
        EXPECT_EQ(hhea->hhea_ascender, ft.face->ascender);
        EXPECT_EQ(hhea->hhea_descender, ft.face->descender);
        EXPECT_EQ(maxp->maxp_num_glyphs, ft.face->num_glyphs);
        EXPECT_EQ(head->head_x_min, ft.face->bbox.xMin);
        EXPECT_EQ(head->head_y_max, ft.face->bbox.yMax);
        auto hmtx = tables::parse_hmtx(s.table("hmtx"), hhea->hhea_number_of_hmetrics, maxp->maxp_num_glyphs);
        ASSERT_TRUE(hmtx);

        auto cm = cmap::parse_cmap(s.table("cmap"));
        ASSERT_TRUE(cm);
        auto sub = cmap::choose_subtable(*cm);
        ASSERT_TRUE(sub);
        EXPECT_EQ(sub->subtable_encoding, cmap::cmap_encoding::unicode);
        for (char32_t c : {U'A', U'é', U'€', U'ß', U'\u2014', U' ', U'\U0001F600', U'\uFFFF'}) {
            SCOPED_TRACE(int(c));
            auto const glyph = cmap::lookup(s.table("cmap"), *sub, c);
            EXPECT_EQ(glyph, FT_Get_Char_Index(ft.face, c));
            if (glyph != 0) {
                ASSERT_EQ(FT_Load_Glyph(ft.face, glyph, FT_LOAD_NO_SCALE | FT_LOAD_NO_HINTING), 0);
                EXPECT_EQ(tables::advance_of(*hmtx, glyph), ft.face->glyph->metrics.horiAdvance);
            }
        }
        EXPECT_NE(cmap::lookup(s.table("cmap"), *sub, U'A'), 0u);
        EXPECT_NE(cmap::lookup(s.table("cmap"), *sub, U'€'), 0u);

        auto os2 = tables::parse_os2(s.table("OS/2"));
        ASSERT_TRUE(os2);
        auto post = tables::parse_post(s.table("post"));
        ASSERT_TRUE(post);
        EXPECT_EQ(post->post_underline_thickness, ft.face->underline_thickness);
        EXPECT_EQ(post->post_is_fixed_pitch, FT_IS_FIXED_WIDTH(ft.face) != 0);
        auto name = tables::parse_name(s.table("name"));
        ASSERT_TRUE(name);
        EXPECT_EQ(tables::find_name(*name, tables::name_id::family), std::string(ft.face->family_name));
        EXPECT_EQ(tables::find_name(*name, tables::name_id::subfamily), std::string(ft.face->style_name));
    }
}

TEST(opentype_tables, reads_known_values_of_dejavu_sans) {
    auto const s = open_sfnt(dejavu + "DejaVuSans.ttf");
    auto head = tables::parse_head(s.table("head"));
    ASSERT_TRUE(head);
    EXPECT_EQ(head->head_units_per_em, 2048);
    EXPECT_EQ(head->head_mac_style, 0);
    auto os2 = tables::parse_os2(s.table("OS/2"));
    ASSERT_TRUE(os2);
    EXPECT_EQ(os2->os2_weight_class, 400);
    EXPECT_EQ(os2->os2_width_class, 5);
    auto name = tables::parse_name(s.table("name"));
    ASSERT_TRUE(name);
    EXPECT_EQ(tables::find_name(*name, tables::name_id::postscript_name), "DejaVuSans");
    EXPECT_EQ(tables::find_name(*name, tables::name_id::typographic_family), "DejaVu Sans");
}

TEST(opentype_tables, checksums_of_real_tables_match_the_directory) {
    auto const s = open_sfnt(liberation + "LiberationSans-Regular.ttf");
    ASSERT_FALSE(s.dir.directory_tables.empty());
    for (auto const& r : s.dir.directory_tables) {
        if (r.record_tag == make_tag("head")) {
            continue; // its checksum is taken with checkSumAdjustment zeroed
        }
        SCOPED_TRACE(reader::tag_text(r.record_tag));
        EXPECT_EQ(tables::checksum(*reader::slice(s.file, r.record_offset, r.record_length)), r.record_checksum);
    }
}

TEST(opentype_tables, truncated_and_corrupt_data_give_errors) {
    auto const s = open_sfnt(dejavu + "DejaVuSans.ttf");
    // Every fixed table cut short fails with a message naming the table.
    EXPECT_FALSE(tables::parse_head(s.table("head").first(53)));
    EXPECT_FALSE(tables::parse_hhea(s.table("hhea").first(35)));
    EXPECT_FALSE(tables::parse_maxp(s.table("maxp").first(5)));
    EXPECT_FALSE(tables::parse_os2(s.table("OS/2").first(67)));
    EXPECT_FALSE(tables::parse_post(s.table("post").first(15)));
    EXPECT_FALSE(tables::parse_name(s.table("name").first(40)));
    EXPECT_FALSE(tables::parse_hmtx(s.table("hmtx").first(10), 100, 200));
    EXPECT_FALSE(tables::parse_hmtx(s.table("hmtx"), 0, 200));
    auto const head = tables::parse_head(s.table("head").first(20));
    ASSERT_FALSE(head);
    EXPECT_EQ(head.error(), "head table: truncated (20 bytes)");

    // A directory cut inside its records, and one whose table lies past the end of the file.
    EXPECT_FALSE(tables::parse_directory(reader::data(s.file).first(40)));
    auto bad = s.file;
    bad[12 + 8] = 0x7f; // offset of the first table, high byte
    auto const r = tables::parse_directory(bad);
    ASSERT_FALSE(r);
    EXPECT_NE(r.error().find("lies outside the file"), std::string::npos);
    bad = s.file;
    bad[0] = 'X';
    EXPECT_FALSE(tables::parse_directory(bad));
    EXPECT_FALSE(tables::parse_directory({}));
}

TEST(opentype_tables, old_short_os2_table_is_accepted) {
    auto const s = open_sfnt(dejavu + "DejaVuSans.ttf");
    std::vector<std::uint8_t> v(s.table("OS/2").begin(), s.table("OS/2").begin() + 68);
    v[0] = 0;
    v[1] = 0;
    auto o = tables::parse_os2(v);
    ASSERT_TRUE(o);
    EXPECT_EQ(o->os2_weight_class, 400);
    EXPECT_EQ(o->os2_typo_ascender, 0);
    // A version 2 table without its version 2 fields is not.
    v = std::vector<std::uint8_t>(s.table("OS/2").begin(), s.table("OS/2").begin() + 80);
    v[1] = 2;
    EXPECT_FALSE(tables::parse_os2(v));
}

// A cmap table with one subtable of the given platform, encoding and body.
std::vector<std::uint8_t> one_subtable(unsigned platform, unsigned encoding, std::vector<std::uint8_t> const& body) {
    builder b;
    b.u16(0).u16(1).u16(platform).u16(encoding).u32(12);
    b.out.insert(b.out.end(), body.begin(), body.end());
    return b.out;
}

std::uint32_t lookup_in(std::vector<std::uint8_t> const& table, std::uint32_t code) {
    auto cm = cmap::parse_cmap(table);
    EXPECT_TRUE(cm);
    auto sub = cmap::choose_subtable(*cm);
    EXPECT_TRUE(sub);
    return sub ? cmap::lookup(table, *sub, code) : 0;
}

TEST(opentype_cmap, reads_each_subtable_format) {
    // Format 4: 'A'..'C' by delta to 10..12; 'x'..'y' through the glyph array to 40, 0; the end segment.
    builder f4;
    f4.u16(4).u16(0).u16(0).u16(6).u16(4).u16(1).u16(2);
    f4.u16('C').u16('y').u16(0xFFFF).u16(0);       // end codes, pad
    f4.u16('A').u16('x').u16(0xFFFF);             // start codes
    f4.u16(10 - 'A').u16(0).u16(1);               // deltas
    f4.u16(0).u16(4).u16(0);                      // range offsets: the second points 4 bytes on
    f4.u16(40).u16(0);                            // glyph array
    auto const t4 = one_subtable(3, 1, f4.out);
    EXPECT_EQ(lookup_in(t4, 'A'), 10u);
    EXPECT_EQ(lookup_in(t4, 'C'), 12u);
    EXPECT_EQ(lookup_in(t4, 'D'), 0u);
    EXPECT_EQ(lookup_in(t4, 'x'), 40u);
    EXPECT_EQ(lookup_in(t4, 'y'), 0u);
    EXPECT_EQ(lookup_in(t4, 0x10000), 0u);

    // Format 6: a trimmed array from 0x20.
    builder f6;
    f6.u16(6).u16(16).u16(0).u16(0x20).u16(3).u16(5).u16(6).u16(7);
    auto const t6 = one_subtable(1, 0, f6.out);
    EXPECT_EQ(lookup_in(t6, 0x21), 6u);
    EXPECT_EQ(lookup_in(t6, 0x23), 0u);
    EXPECT_EQ(lookup_in(t6, 0x1F), 0u);
    auto cm6 = cmap::parse_cmap(t6);
    EXPECT_EQ(cmap::choose_subtable(*cm6)->subtable_encoding, cmap::cmap_encoding::apple_roman);

    // Format 12: two groups, one beyond the basic plane.
    builder f12;
    f12.u16(12).u16(0).u32(40).u32(0).u32(2);
    f12.u32(0x41).u32(0x43).u32(100);
    f12.u32(0x1F600).u32(0x1F601).u32(7);
    auto const t12 = one_subtable(3, 10, f12.out);
    EXPECT_EQ(lookup_in(t12, 0x42), 101u);
    EXPECT_EQ(lookup_in(t12, 0x1F601), 8u);
    EXPECT_EQ(lookup_in(t12, 0x44), 0u);

    // Format 13: many to one.
    builder f13;
    f13.u16(13).u16(0).u32(28).u32(0).u32(1).u32(0x100).u32(0x1FF).u32(3);
    EXPECT_EQ(lookup_in(one_subtable(3, 10, f13.out), 0x150), 3u);

    // Format 0: bytes.
    builder f0;
    f0.u16(0).u16(262).u16(0);
    for (int i = 0; i < 256; ++i) {
        f0.u8(i == 'A' ? 36 : 0);
    }
    EXPECT_EQ(lookup_in(one_subtable(1, 0, f0.out), 'A'), 36u);
    EXPECT_EQ(lookup_in(one_subtable(1, 0, f0.out), 300), 0u);
}

TEST(opentype_cmap, prefers_unicode_then_symbol_then_apple_roman) {
    builder f6;
    f6.u16(6).u16(12).u16(0).u16(0x20).u16(1).u16(5);
    auto make = [&](std::vector<std::pair<int, int>> const& encodings) {
        builder b;
        b.u16(0).u16(std::uint16_t(encodings.size()));
        for (auto [p, e] : encodings) {
            b.u16(p).u16(e).u32(4 + 8 * std::uint32_t(encodings.size()));
        }
        b.out.insert(b.out.end(), f6.out.begin(), f6.out.end());
        return b.out;
    };
    struct row {
        char const* name;
        std::vector<std::pair<int, int>> encodings;
        std::optional<cmap::cmap_encoding> expected;
    } const rows[] = {
        {"windows unicode over mac", {{1, 0}, {3, 1}}, cmap::cmap_encoding::unicode},
        {"symbol over mac", {{1, 0}, {3, 0}}, cmap::cmap_encoding::symbol},
        {"unicode platform", {{0, 3}}, cmap::cmap_encoding::unicode},
        {"mac alone", {{1, 0}}, cmap::cmap_encoding::apple_roman},
        {"mac japanese alone", {{1, 1}}, std::nullopt},
        {"none", {}, std::nullopt},
    };
    for (auto const& r : rows) {
        SCOPED_TRACE(r.name);
        auto const t = make(r.encodings);
        auto cm = cmap::parse_cmap(t);
        ASSERT_TRUE(cm);
        auto sub = cmap::choose_subtable(*cm);
        ASSERT_EQ(bool(sub), bool(r.expected));
        if (sub) {
            EXPECT_EQ(sub->subtable_encoding, *r.expected);
        } else {
            EXPECT_EQ(sub.error(), "no recognised encoding in font");
        }
    }
}

TEST(opentype_cmap, lying_subtables_give_no_glyph) {
    // Format 4 whose segment count runs past the table.
    builder f4;
    f4.u16(4).u16(0).u16(0).u16(400).u16(0).u16(0).u16(0).u16('Z');
    EXPECT_EQ(lookup_in(one_subtable(3, 1, f4.out), 'A'), 0u);
    // A range offset pointing far past the glyph array.
    builder g4;
    g4.u16(4).u16(0).u16(0).u16(2).u16(2).u16(0).u16(0);
    g4.u16(0xFFFF).u16(0).u16(0x20).u16(0).u16(0x7000);
    EXPECT_EQ(lookup_in(one_subtable(3, 1, g4.out), 'A'), 0u);
    // Format 12 announcing more groups than it has.
    builder f12;
    f12.u16(12).u16(0).u32(40).u32(0).u32(1000000).u32(0x41).u32(0x43).u32(100);
    EXPECT_EQ(lookup_in(one_subtable(3, 10, f12.out), 0x41), 0u);
    // A subtable offset beyond the table is dropped when the records are read.
    builder b;
    b.u16(0).u16(1).u16(3).u16(1).u32(5000);
    auto cm = cmap::parse_cmap(b.out);
    ASSERT_TRUE(cm);
    EXPECT_TRUE(cm->cmap_records.empty());
    EXPECT_FALSE(cmap::parse_cmap(builder{}.u16(0).u16(3).out));
}

TEST(opentype_kern, reads_format0_pairs_in_both_layouts) {
    builder w;
    w.u16(0).u16(1);                                // version 0, one subtable
    w.u16(0).u16(6 + 8 + 12).u16(0x0001);           // horizontal format 0
    w.u16(2).u16(12).u16(1).u16(0);                 // two pairs
    w.u16(3).u16(4).u16(std::uint16_t(-50));
    w.u16(3).u16(9).u16(20);
    auto k = kern::parse_kern(w.out);
    ASSERT_TRUE(k);
    EXPECT_EQ(kern::kerning(*k, 3, 4), -50);
    EXPECT_EQ(kern::kerning(*k, 3, 9), 20);
    EXPECT_EQ(kern::kerning(*k, 4, 3), 0);

    builder a;
    a.u32(0x00010000).u32(1);                       // Apple version 1.0, one subtable
    a.u32(8 + 8 + 6).u8(0).u8(0).u16(0);            // horizontal format 0
    a.u16(1).u16(6).u16(0).u16(0);
    a.u16(7).u16(8).u16(15);
    k = kern::parse_kern(a.out);
    ASSERT_TRUE(k);
    EXPECT_EQ(kern::kerning(*k, 7, 8), 15);

    // Pair count beyond the table; unknown version; empty.
    builder t;
    t.u16(0).u16(1).u16(0).u16(26).u16(1).u16(500).u16(0).u16(0).u16(0);
    EXPECT_FALSE(kern::parse_kern(t.out));
    EXPECT_FALSE(kern::parse_kern(builder{}.u16(7).out));
    EXPECT_FALSE(kern::parse_kern({}));
}

TEST(opentype_glyf, locates_glyphs_and_walks_composites) {
    auto const s = open_sfnt(dejavu + "DejaVuSans.ttf");
    auto head = tables::parse_head(s.table("head"));
    auto maxp = tables::parse_maxp(s.table("maxp"));
    ASSERT_TRUE(head && maxp);
    auto loca = glyf::parse_loca(s.table("loca"), head->head_index_to_loc_format, maxp->maxp_num_glyphs,
                                 s.table("glyf").size());
    ASSERT_TRUE(loca);
    EXPECT_EQ(loca->loca_offsets.size(), std::size_t(maxp->maxp_num_glyphs) + 1);
    // Every glyph header lies inside its glyph; composites name only existing glyphs.
    std::size_t composites = 0;
    for (std::uint32_t g = 0; g < maxp->maxp_num_glyphs; ++g) {
        auto d = glyf::glyph_data(*loca, s.table("glyf"), g);
        ASSERT_TRUE(d);
        if (d->empty()) {
            continue;
        }
        auto comps = glyf::parse_components(*d);
        ASSERT_TRUE(comps) << g;
        for (auto const& c : *comps) {
            EXPECT_LT(c.component_glyph, maxp->maxp_num_glyphs);
            EXPECT_EQ(reader::read_u16(*d, c.component_glyph_offset), c.component_glyph);
        }
        composites += !comps->empty();
    }
    EXPECT_GT(composites, 100u);
    EXPECT_FALSE(glyf::glyph_data(*loca, s.table("glyf"), maxp->maxp_num_glyphs));
    // A loca that runs backwards or past glyf is refused.
    EXPECT_FALSE(glyf::parse_loca(s.table("loca"), head->head_index_to_loc_format, maxp->maxp_num_glyphs, 100));
    EXPECT_FALSE(glyf::parse_loca(s.table("loca"), 2, maxp->maxp_num_glyphs, s.table("glyf").size()));
    EXPECT_FALSE(glyf::parse_loca(builder{}.u16(4).u16(2).out, 0, 1, 100));
    // A composite cut inside its component record.
    EXPECT_FALSE(glyf::parse_components(builder{}.u16(0xFFFF).u16(0).u16(0).u16(0).u16(0).u16(0x21).u16(3).out));
}

// A CFF font program with one font, a top DICT with CharStrings and Private, and three charstrings.
std::vector<std::uint8_t> tiny_cff(bool cid) {
    builder b;
    b.u8(1).u8(0).u8(4).u8(1);                                           // header
    b.u16(1).u8(1).u8(1).u8(5);                                          // name INDEX: "Tiny"
    b.out.insert(b.out.end(), {'T', 'i', 'n', 'y'});
    std::vector<std::uint8_t> dict;
    // 0 setting; CharStrings and Private offsets are fixed below (two-byte operands 28).
    auto op_int = [&](int v) {
        dict.push_back(28);
        dict.push_back(std::uint8_t(v >> 8));
        dict.push_back(std::uint8_t(v));
    };
    if (cid) {
        op_int(0);
        op_int(0);
        op_int(0);
        dict.push_back(12);
        dict.push_back(30);
    }
    // FontBBox with a real operand: -1.5 is nibbles e 1 a 5 f.
    dict.insert(dict.end(), {30, 0xe1, 0xa5, 0xff, 139, 139 + 100, 139 + 50, 5});
    // Header 4 + name INDEX 9, then the top DICT INDEX (5 bytes around the DICT, which the two offset
    // entries below make 4 + 7 bytes longer), the empty string and global subroutine INDEXes, then the
    // CharStrings INDEX of 10 bytes and the Private DICT.
    std::size_t const dict_size = dict.size() + 4 + 7;
    std::size_t const charstrings = 13 + 5 + dict_size + 4;
    op_int(int(charstrings));
    dict.push_back(17);
    op_int(2);
    op_int(int(charstrings + 10));
    dict.push_back(18);
    b.u16(1).u8(1).u8(1).u8(std::uint8_t(dict.size() + 1));          // top DICT INDEX
    b.out.insert(b.out.end(), dict.begin(), dict.end());
    b.u16(0).u16(0);                                                 // string, global subr INDEX
    b.u16(3).u8(1).u8(1).u8(2).u8(3).u8(4).u8(14).u8(14).u8(14);    // three endchar charstrings
    b.u8(139).u8(139);                                               // Private DICT (2 bytes)
    return b.out;
}

TEST(opentype_cff, reads_header_name_and_glyph_count) {
    auto const t = tiny_cff(false);
    auto info = cff::parse_cff(t);
    ASSERT_TRUE(info) << info.error();
    EXPECT_EQ(info->cff_font_name, "Tiny");
    EXPECT_EQ(info->cff_glyph_count, 3u);
    EXPECT_EQ(info->cff_charstring_type, 2);
    EXPECT_FALSE(info->cff_is_cid);
    EXPECT_EQ(info->cff_private_size, 2u);
    EXPECT_DOUBLE_EQ(info->cff_font_bbox[0], -1.5);
    EXPECT_DOUBLE_EQ(info->cff_font_bbox[2], 100);
    auto cid = cff::parse_cff(tiny_cff(true));
    ASSERT_TRUE(cid) << cid.error();
    EXPECT_TRUE(cid->cff_is_cid);
}

TEST(opentype_cff, every_truncation_fails_cleanly) {
    auto const t = tiny_cff(false);
    for (std::size_t n = 0; n < t.size() - 2; ++n) {
        SCOPED_TRACE(n);
        EXPECT_FALSE(cff::parse_cff(reader::data(t).first(n)));
    }
    auto bad = t;
    bad[0] = 2;
    EXPECT_FALSE(cff::parse_cff(bad));
    bad = t;
    bad[7] = 9; // offset size of the name INDEX
    EXPECT_FALSE(cff::parse_cff(bad));
}

} // namespace
} // namespace vellum::opentype
