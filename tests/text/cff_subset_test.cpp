// CFF font programs: the DICT, charset and FDSelect readers on hand-made bytes, the charstring walk that
// finds the subroutines a glyph reaches, and subsets of real fonts (a name-keyed URW font and the
// CID-keyed Noto Sans CJK) read back by our own parser and drawn by fontTools against the source.
#include "text/cff_subset.hpp"
#include "text/fonts/freetype.hpp"
#include "text/opentype/cff_font.hpp"
#include "text/opentype/charstring.hpp"

#include <ft2build.h>
#include FT_FREETYPE_H
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <unistd.h>

namespace {

using namespace vellum;
namespace fs = std::filesystem;
namespace cff_font = opentype::cff_font;
using bytes_t = std::vector<std::uint8_t>;
using opentype::reader::data;

char const* const bookman = "/usr/share/fonts/opentype/urw-base35/URWBookman-Light.otf";
char const* const noto_cjk = "/usr/share/fonts/opentype/noto/NotoSansCJK-Regular.ttc";
char const* const noto_cjk_bold = "/usr/share/fonts/opentype/noto/NotoSansCJK-Bold.ttc";

TEST(cff_dict, operands_of_every_encoding_and_their_bytes) {
    bytes_t const d{
        0x8b,                         // 0
        0xf7, 0x00,                   // 108
        0xfe, 0xff,                   // -1131
        28,   0x12, 0x34,             // 4660
        29,   0x00, 0x01, 0x00, 0x00, // 65536
        30,   0xe2, 0xa2, 0x5f,       // -2.25
        17,                           // CharStrings
        30,   0x0a, 0x14, 0x05, 0x41, 0xc3, 0xff, // 0.140541E-3
        12,   30,                     // ROS (escaped)
    };
    auto const parsed = cff_font::parse_dict(d);
    ASSERT_TRUE(parsed) << parsed.error();
    ASSERT_EQ(parsed->size(), 2u);
    EXPECT_EQ((*parsed)[0].entry_op, 17);
    EXPECT_EQ((*parsed)[0].entry_operands, (std::vector<double>{0, 108, -1131, 4660, 65536, -2.25}));
    EXPECT_EQ((*parsed)[0].entry_operand_bytes.size(), 17u);
    EXPECT_EQ((*parsed)[1].entry_op, cff_font::dict_op::ros);
    ASSERT_EQ((*parsed)[1].entry_operands.size(), 1u);
    EXPECT_DOUBLE_EQ((*parsed)[1].entry_operands[0], 0.140541E-3);
    EXPECT_EQ(cff_font::find_entry(*parsed, 17), &(*parsed)[0]);
    EXPECT_EQ(cff_font::find_entry(*parsed, 18), nullptr);

    // Operands with no operator behind them, a reserved byte, a truncated number.
    EXPECT_FALSE(cff_font::parse_dict(bytes_t{0x8b, 17, 0x8c}));
    EXPECT_FALSE(cff_font::parse_dict(bytes_t{0xff, 17}));
    EXPECT_FALSE(cff_font::parse_dict(bytes_t{29, 0, 1}));
}

TEST(cff_dict, subroutine_bias_follows_the_count) {
    EXPECT_EQ(cff_font::subr_bias(0), 107);
    EXPECT_EQ(cff_font::subr_bias(1239), 107);
    EXPECT_EQ(cff_font::subr_bias(1240), 1131);
    EXPECT_EQ(cff_font::subr_bias(33899), 1131);
    EXPECT_EQ(cff_font::subr_bias(33900), 32768);
}

TEST(cff_charset, formats_0_1_and_2) {
    // Offsets 0 to 2 name the predefined charsets, which carry no data of the font.
    EXPECT_TRUE(cff_font::parse_charset(bytes_t{}, 1, 10)->empty());
    bytes_t const f0{0xaa, 0xaa, 0xaa, 0, 0, 5, 0, 6};
    EXPECT_EQ(*cff_font::parse_charset(f0, 3, 3), (std::vector<std::uint16_t>{0, 5, 6}));
    // Format 1: one-byte counts; the range is cut at the glyph count.
    bytes_t const f1{0, 0, 0, 1, 0, 10, 2, 0, 20, 5};
    EXPECT_EQ(*cff_font::parse_charset(f1, 3, 6), (std::vector<std::uint16_t>{0, 10, 11, 12, 20, 21}));
    bytes_t const f2{0, 0, 0, 2, 0, 1, 0x01, 0x2a}; // ids 1 to 299
    auto const two = cff_font::parse_charset(f2, 3, 300);
    ASSERT_TRUE(two);
    EXPECT_EQ(two->size(), 300u);
    EXPECT_EQ(two->back(), 299);
    // Not enough ranges for the glyphs, or an unknown format.
    EXPECT_FALSE(cff_font::parse_charset(f0, 3, 4));
    EXPECT_FALSE(cff_font::parse_charset(bytes_t{0, 0, 0, 7, 0, 1}, 3, 2));
}

TEST(cff_fd_select, formats_0_and_3) {
    EXPECT_EQ(*cff_font::parse_fd_select(bytes_t{0, 0, 1, 1}, 0, 3, 2), (std::vector<std::uint8_t>{0, 1, 1}));
    bytes_t const f3{3, 0, 2, 0, 0, 0, 0, 2, 1, 0, 5};
    EXPECT_EQ(*cff_font::parse_fd_select(f3, 0, 5, 2), (std::vector<std::uint8_t>{0, 0, 1, 1, 1}));
    // A font DICT beyond the FDArray, a sentinel short of the glyph count, ranges that go backwards.
    EXPECT_FALSE(cff_font::parse_fd_select(f3, 0, 5, 1));
    EXPECT_FALSE(cff_font::parse_fd_select(f3, 0, 6, 2));
    EXPECT_FALSE(cff_font::parse_fd_select(bytes_t{3, 0, 2, 0, 0, 0, 0, 4, 1, 0, 2}, 0, 4, 2));
    EXPECT_FALSE(cff_font::parse_fd_select(bytes_t{4, 0, 0}, 0, 1, 1));
}

// An INDEX over byte blocks held by the test.
opentype::cff::index index_of(std::vector<bytes_t> const& items) {
    opentype::cff::index out;
    for (auto const& item : items) {
        out.index_items.push_back(data(item));
    }
    return out;
}

struct walk_case {
    std::vector<bytes_t> walk_global;
    std::vector<bytes_t> walk_local;
    std::vector<bool> marks_global = std::vector<bool>(walk_global.size(), false);
    std::vector<bool> marks_local = std::vector<bool>(walk_local.size(), false);

    result<opentype::charstring::walk_outcome> run(bytes_t const& charstring) {
        auto const g = index_of(walk_global);
        auto const l = index_of(walk_local);
        return opentype::charstring::mark_subrs(charstring, g, l, marks_global, marks_local);
    }
};

TEST(charstring_walk, calls_are_biased_and_followed_through_subroutines) {
    // Local subroutine 1 calls global subroutine 1; with fewer than 1240 entries the bias is 107, so
    // operand -106 (byte 33) is entry 1.
    walk_case w{.walk_global = {{11}, {11}}, .walk_local = {{11}, {33, 29, 11}, {11}}};
    bytes_t const glyph{33, 10, 14};
    auto const r = w.run(glyph);
    ASSERT_TRUE(r) << r.error();
    EXPECT_FALSE(r->outcome_accented);
    EXPECT_EQ(w.marks_local, (std::vector<bool>{false, true, false}));
    EXPECT_EQ(w.marks_global, (std::vector<bool>{false, true}));
    // Each call is reported with the place of its number, in the charstring that holds it.
    ASSERT_EQ(r->outcome_calls.size(), 2u);
    EXPECT_EQ(r->outcome_calls[0].site_code, glyph.data());
    EXPECT_EQ(r->outcome_calls[0].site_at, 0u);
    EXPECT_EQ(r->outcome_calls[0].site_size, 1u);
    EXPECT_FALSE(r->outcome_calls[0].site_global);
    EXPECT_EQ(r->outcome_calls[0].site_target, 1u);
    EXPECT_TRUE(r->outcome_calls[1].site_global);
    EXPECT_EQ(r->outcome_calls[1].site_target, 1u);
    EXPECT_TRUE(r->outcome_not_renumberable.empty());

    // An endchar inside a subroutine ends the glyph: what follows the call is not read.
    walk_case ends{.walk_global = {}, .walk_local = {{14}}};
    EXPECT_TRUE(ends.run({32, 10, 0, 0, 0}));
}

TEST(charstring_walk, hint_masks_are_as_long_as_the_stems_declared) {
    // Five horizontal stem pairs, then five vertical pairs left on the stack before hintmask (the
    // vstemhm operator may be left out): ten stems, so two mask bytes. The second, 0x0a, would be a
    // callsubr with an empty stack if the implicit stems were not counted.
    bytes_t cs;
    for (int i = 0; i < 10; ++i) {
        cs.push_back(140);
    }
    cs.push_back(18); // hstemhm
    for (int i = 0; i < 10; ++i) {
        cs.push_back(140);
    }
    cs.insert(cs.end(), {19, 0xff, 0x0a, 14});
    walk_case w{.walk_global = {}, .walk_local = {{11}}};
    auto const r = w.run(cs);
    ASSERT_TRUE(r) << r.error();
    EXPECT_EQ(w.marks_local, std::vector<bool>{false});
}

TEST(charstring_walk, what_cannot_be_followed_fails) {
    walk_case w{.walk_global = {}, .walk_local = {{11}}};
    EXPECT_FALSE(w.run({40, 10, 14}));              // subroutine 8 of 1
    EXPECT_FALSE(w.run({10, 14}));                  // no number to call
    EXPECT_FALSE(w.run({140, 140, 12, 10, 10, 14})); // add: computed numbers
    EXPECT_FALSE(w.run({2, 14}));                   // reserved operator
    walk_case loop{.walk_global = {}, .walk_local = {{32, 10, 11}}};
    EXPECT_FALSE(loop.run({32, 10, 14})); // a subroutine that calls itself
    // Eight levels of subroutines that each call the next level four times: 4^8 calls in all, within
    // the nesting limit.
    std::vector<bytes_t> fan;
    for (int level = 0; level < 8; ++level) {
        bytes_t s;
        for (int k = 0; k < 4; ++k) {
            s.insert(s.end(), {std::uint8_t(32 + level + 1), 10});
        }
        s.push_back(11);
        fan.push_back(s);
    }
    fan.push_back({11});
    walk_case wide{.walk_global = {}, .walk_local = fan};
    auto const blown = wide.run({32, 10, 14});
    ASSERT_FALSE(blown);
    EXPECT_EQ(blown.error(), "charstring: too many subroutine calls");
    // The accented-character form of endchar is reported.
    walk_case plain{.walk_global = {}, .walk_local = {}};
    auto const accented = plain.run({139, 139, 204, 205, 14});
    ASSERT_TRUE(accented);
    EXPECT_EQ(accented->outcome_accented, (opentype::charstring::accent_parts{.parts_base = 65, .parts_accent = 66}));
    // A subroutine that leaves a number for its caller to call: the walk goes on, but the call has no
    // number of its own to rewrite.
    walk_case handed{.walk_global = {}, .walk_local = {{33, 11}, {11}}};
    auto const h = handed.run({32, 10, 10, 14});
    ASSERT_TRUE(h) << h.error();
    EXPECT_EQ(handed.marks_local, (std::vector<bool>{true, true}));
    EXPECT_FALSE(h->outcome_not_renumberable.empty());
}

TEST(charstring_walk, numbers_are_rewritten_in_their_shortest_form) {
    // One number of each size, as a callsubr operand; the bytes around them stay.
    bytes_t const code{1, 139, 2, 247, 0, 3, 28, 0x10, 0, 4};
    auto const out = opentype::charstring::rewritten(code, {{.rewrite_at = 1, .rewrite_size = 1, .rewrite_value = -1131},
                                                            {.rewrite_at = 3, .rewrite_size = 2, .rewrite_value = 5},
                                                            {.rewrite_at = 6, .rewrite_size = 3, .rewrite_value = 1131}});
    EXPECT_EQ(out, (bytes_t{1, 254, 255, 2, 144, 3, 250, 255, 4}));
    for (int v : {-32768, -1132, -1131, -108, -107, 0, 107, 108, 1131, 1132, 32767}) {
        bytes_t b;
        opentype::charstring::put_number(b, v);
        b.push_back(14);
        walk_case w{.walk_global = {}, .walk_local = {}};
        // Read it back the way the walk reads operands: as the base of a seac it is reported whole.
        bytes_t seac{139, 139, 139};
        seac.insert(seac.end(), b.begin(), b.end() - 1);
        seac.insert(seac.end(), {139, 14});
        auto const r = w.run(seac);
        ASSERT_TRUE(r && r->outcome_accented) << v;
        EXPECT_EQ(r->outcome_accented->parts_base, v);
    }
}

// The "CFF " table of a face, or nothing if the font is not installed.
std::optional<bytes_t> cff_table(char const* path, long face_index = 0) {
    if (!fs::exists(path)) {
        return std::nullopt;
    }
    static auto const ft = *fonts::freetype::new_freetype();
    auto face = fonts::freetype::open_file(ft, path, face_index);
    if (!face) {
        return std::nullopt;
    }
    auto table = fonts::freetype::load_table(*face, opentype::reader::make_tag("CFF "));
    if (!table) {
        return std::nullopt;
    }
    auto const v = table->view();
    return bytes_t(v.begin(), v.end());
}

std::vector<std::uint32_t> glyphs_of(char const* path, long face_index, std::u32string_view text) {
    static auto const ft = *fonts::freetype::new_freetype();
    auto face = *fonts::freetype::open_file(ft, path, face_index);
    std::vector<std::uint32_t> out{0};
    for (char32_t c : text) {
        auto const g = fonts::freetype::char_index(face, c);
        EXPECT_NE(g, 0u) << "no glyph for U+" << std::hex << unsigned(c);
        if (std::find(out.begin(), out.end(), g) == out.end()) {
            out.push_back(g);
        }
    }
    return out;
}

// The entries of a Private DICT but its Subrs offset, which moves with the subset.
std::vector<std::pair<int, std::vector<double>>> private_values(cff_font::dict const& d) {
    std::vector<std::pair<int, std::vector<double>>> out;
    for (auto const& e : d) {
        if (e.entry_op != cff_font::dict_op::subrs) {
            out.emplace_back(e.entry_op, e.entry_operands);
        }
    }
    return out;
}

std::string string_of(cff_font::font const& f, double sid) {
    auto const i = static_cast<std::size_t>(sid) - 391;
    auto const item = f.font_strings.index_items.at(i);
    return std::string(item.begin(), item.end());
}

// Reads the subset back: a font keyed as its source, of the glyphs asked for in order (CID = glyph number
// in a CID-keyed one, the source's names in a name-keyed one), each glyph under a font DICT with the
// Private DICT of its source glyph, and no more subroutines than the source. FreeType draws each glyph
// through the renumbered subroutines with the points and contours of its source glyph.
void check_round_trip(bytes_t const& source_bytes, std::vector<std::uint32_t> const& glyphs,
                      cff_subset::subset const& made) {
    auto const source = cff_font::parse_font(source_bytes);
    ASSERT_TRUE(source) << source.error();
    auto const sub = cff_font::parse_font(made.subset_bytes);
    ASSERT_TRUE(sub) << sub.error();
    EXPECT_EQ(sub->font_is_cid, source->font_is_cid);
    EXPECT_EQ(sub->font_name, source->font_name);
    EXPECT_EQ(made.subset_glyphs, glyphs);
    if (source->font_is_cid) {
        auto const* ros = cff_font::find_entry(sub->font_top, cff_font::dict_op::ros);
        ASSERT_NE(ros, nullptr);
        ASSERT_EQ(ros->entry_operands.size(), 3u);
        EXPECT_EQ(string_of(*sub, ros->entry_operands[0]), "Adobe");
        EXPECT_EQ(string_of(*sub, ros->entry_operands[1]), "Identity");
        auto const* cid_count = cff_font::find_entry(sub->font_top, cff_font::dict_op::cid_count);
        ASSERT_NE(cid_count, nullptr);
        EXPECT_EQ(cid_count->entry_operands.back(), double(glyphs.size()));
    }
    ASSERT_EQ(sub->font_charstrings.index_items.size(), glyphs.size());
    ASSERT_EQ(sub->font_charset.size(), glyphs.size());
    for (std::size_t i = 0; i < glyphs.size(); ++i) {
        EXPECT_EQ(sub->font_charset[i], source->font_is_cid ? i : source->font_charset[glyphs[i]]);
        auto const& pa = sub->font_privates[cff_font::private_of(*sub, std::uint32_t(i))];
        auto const& pb = source->font_privates[cff_font::private_of(*source, glyphs[i])];
        EXPECT_EQ(private_values(pa.private_entries), private_values(pb.private_entries));
        EXPECT_LE(pa.private_subrs.index_items.size(), pb.private_subrs.index_items.size());
    }
    EXPECT_LE(sub->font_global_subrs.index_items.size(), source->font_global_subrs.index_items.size());
    auto const ft = *fonts::freetype::new_freetype();
    auto const sub_face = fonts::freetype::open_memory(ft, bytes::from_vector(bytes_t(made.subset_bytes)), 0);
    auto const src_face = fonts::freetype::open_memory(ft, bytes::from_vector(bytes_t(source_bytes)), 0);
    ASSERT_TRUE(sub_face) << sub_face.error();
    ASSERT_TRUE(src_face) << src_face.error();
    ASSERT_EQ(std::size_t(sub_face->face_handle->num_glyphs), glyphs.size());
    for (std::size_t i = 0; i < glyphs.size(); ++i) {
        auto outline = [](FT_Face face, std::uint32_t g) {
            EXPECT_EQ(FT_Load_Glyph(face, g, FT_LOAD_NO_SCALE), 0) << "FreeType cannot load glyph " << g;
            auto const& o = face->glyph->outline;
            return std::tuple{o.n_points, o.n_contours, face->glyph->metrics.horiAdvance};
        };
        EXPECT_EQ(outline(sub_face->face_handle.get(), std::uint32_t(i)),
                  outline(src_face->face_handle.get(), glyphs[i]))
            << "glyph " << glyphs[i];
    }
}

// fontTools draws every glyph of the subset and its source glyph, through all their subroutines, and
// prints the glyphs whose bounds differ; "ok" and the count if none do.
std::string font_tools_compare(bytes_t const& source, bytes_t const& subset, std::vector<std::uint32_t> const& glyphs) {
    auto const dir = fs::temp_directory_path() / ("vellum_cff_" + std::to_string(getpid()));
    fs::create_directories(dir);
    auto write = [&](char const* name, bytes_t const& b) {
        std::ofstream(dir / name, std::ios::binary)
            .write(reinterpret_cast<char const*>(b.data()), static_cast<std::streamsize>(b.size()));
    };
    write("source.cff", source);
    write("subset.cff", subset);
    std::string list;
    for (auto g : glyphs) {
        list += (list.empty() ? "" : ",") + std::to_string(g);
    }
    std::ofstream(dir / "check.py")
        << "import sys, io\n"
           "from fontTools.cffLib import CFFFontSet\n"
           "from fontTools.pens.boundsPen import BoundsPen\n"
           "def load(p):\n"
           "    s = CFFFontSet(); s.decompile(io.BytesIO(open(p, 'rb').read()), None)\n"
           "    return s[s.fontNames[0]]\n"
           "def bounds(top, gid):\n"
           "    cs, _ = top.CharStrings.getItemAndSelector(top.charset[gid])\n"
           "    pen = BoundsPen(top.CharStrings); cs.draw(pen); return pen.bounds\n"
           "src = load(sys.argv[1]); sub = load(sys.argv[2])\n"
           "glyphs = [int(g) for g in sys.argv[3].split(',')]\n"
           "assert not hasattr(src, 'ROS') or sub.ROS == ('Adobe', 'Identity', 0), sub.ROS\n"
           "bad = [str(g) for i, g in enumerate(glyphs) if bounds(sub, i) != bounds(src, g)]\n"
           "print('differ: ' + ' '.join(bad) if bad else 'ok %d' % len(sub.charset))\n";
    auto const out = dir / "out.txt";
    std::string const cmd = "/usr/bin/python3 " + (dir / "check.py").string() + " " + (dir / "source.cff").string() +
                            " " + (dir / "subset.cff").string() + " " + list + " > " + out.string() + " 2>&1";
    int const rc = std::system(cmd.c_str());
    std::ifstream in(out);
    std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    fs::remove_all(dir);
    return rc == 0 ? text : "fontTools failed: " + text;
}

TEST(cff_subset, a_name_keyed_font_keeps_its_names_and_renumbers_its_subroutines) {
    auto const source = cff_table(bookman);
    if (!source) {
        GTEST_SKIP() << bookman << " is not installed";
    }
    auto const glyphs = glyphs_of(bookman, 0, U"Hamburgefonstiv \u00e9\u00c5\u2014\u201c\u0416");
    auto const made = cff_subset::make_cff_subset(*source, glyphs);
    ASSERT_TRUE(made) << made.error();
    check_round_trip(*source, glyphs, *made);
    auto const src = cff_font::parse_font(*source);
    auto const sub = cff_font::parse_font(made->subset_bytes);
    ASSERT_TRUE(src && sub);
    EXPECT_TRUE(sub->font_fd_array.empty());
    EXPECT_FALSE(made->subset_subrs.counts_all_kept) << made->subset_subrs.counts_unfollowed;
    // Only the subroutines reached stay, packed: fewer than half of the source's.
    auto const local_kept = made->subset_subrs.counts_local_kept;
    auto const global_kept = made->subset_subrs.counts_global_kept;
    EXPECT_GT(local_kept + global_kept, 0u);
    EXPECT_EQ(sub->font_privates.front().private_subrs.index_items.size(), local_kept);
    EXPECT_EQ(sub->font_global_subrs.index_items.size(), global_kept);
    EXPECT_LT(2 * local_kept, src->font_privates.front().private_subrs.index_items.size());
    EXPECT_LT(2 * global_kept, src->font_global_subrs.index_items.size());
    for (auto const item : sub->font_global_subrs.index_items) {
        EXPECT_FALSE(item.empty());
    }
    EXPECT_LT(made->subset_bytes.size(), source->size() / 4);
    EXPECT_EQ(font_tools_compare(*source, made->subset_bytes, glyphs), "ok " + std::to_string(glyphs.size()) + "\n");
}

TEST(cff_subset, a_cid_keyed_font_keeps_only_the_font_dicts_in_use) {
    auto const source = cff_table(noto_cjk, 0);
    if (!source) {
        GTEST_SKIP() << noto_cjk << " is not installed";
    }
    auto const glyphs = glyphs_of(noto_cjk, 0, U"日本語の文章です。漢字とカタカナ、Latin 123");
    auto const made = cff_subset::make_cff_subset(*source, glyphs);
    ASSERT_TRUE(made) << made.error();
    check_round_trip(*source, glyphs, *made);
    auto const src = cff_font::parse_font(*source);
    auto const sub = cff_font::parse_font(made->subset_bytes);
    ASSERT_TRUE(src && sub);
    EXPECT_LT(sub->font_fd_array.size(), src->font_fd_array.size());
    EXPECT_FALSE(made->subset_subrs.counts_all_kept) << made->subset_subrs.counts_unfollowed;
    // The source has thousands of global subroutines (bias 1131); the few kept take the bias of 107,
    // and every call was rewritten for it, or FreeType and fontTools would draw other outlines.
    ASSERT_GE(src->font_global_subrs.index_items.size(), 1240u);
    EXPECT_LT(sub->font_global_subrs.index_items.size(), 1240u);
    // A sentence's glyphs and their subroutines, not the 16 MB of the whole font.
    EXPECT_LT(made->subset_bytes.size(), 200'000u);
    EXPECT_EQ(font_tools_compare(*source, made->subset_bytes, glyphs), "ok " + std::to_string(glyphs.size()) + "\n");
}

TEST(cff_subset, font_dicts_whose_glyphs_call_no_local_subroutine) {
    // Among the few glyphs of a heading, those of some font DICTs reach none of its many local
    // subroutines; their Private DICTs then have none.
    auto const source = cff_table(noto_cjk_bold, 0);
    if (!source) {
        GTEST_SKIP() << noto_cjk_bold << " is not installed";
    }
    auto const glyphs = glyphs_of(noto_cjk_bold, 0, U"町の書店、三十年の歩み");
    auto const made = cff_subset::make_cff_subset(*source, glyphs);
    ASSERT_TRUE(made) << made.error();
    check_round_trip(*source, glyphs, *made);
    EXPECT_EQ(font_tools_compare(*source, made->subset_bytes, glyphs), "ok " + std::to_string(glyphs.size()) + "\n");
}

TEST(cff_subset, the_missing_glyph_alone_and_bad_glyph_lists) {
    auto const source = cff_table(bookman);
    if (!source) {
        GTEST_SKIP() << bookman << " is not installed";
    }
    auto const alone = cff_subset::make_cff_subset(*source, {0});
    ASSERT_TRUE(alone) << alone.error();
    check_round_trip(*source, {0}, *alone);
    EXPECT_EQ(font_tools_compare(*source, alone->subset_bytes, {0}), "ok 1\n");
    EXPECT_FALSE(cff_subset::make_cff_subset(*source, {}));
    EXPECT_FALSE(cff_subset::make_cff_subset(*source, {5, 0}));
    EXPECT_FALSE(cff_subset::make_cff_subset(*source, {0, 100000}));
    EXPECT_FALSE(cff_subset::make_cff_subset(bytes_t{1, 0, 4, 4, 0, 0}, {0}));
}

// The font of URW glyphs whose accented letters are written as base + accent, made by the tool.
std::optional<fs::path> seac_font() {
    char const* const nimbus = "/usr/share/fonts/opentype/urw-base35/NimbusSans-Regular.otf";
    if (!fs::exists(nimbus)) {
        return std::nullopt;
    }
    auto const out = fs::temp_directory_path() / ("vellum_seac_" + std::to_string(getpid()) + ".otf");
    std::string const cmd = "/usr/bin/python3 " + std::string(VELLUM_SOURCE_DIR) + "/tools/make_seac_font.py " +
                            nimbus + " 'Seac Test' " + out.string();
    if (std::system(cmd.c_str()) != 0) {
        return std::nullopt;
    }
    return out;
}

TEST(cff_subset, accented_characters_bring_their_base_and_accent) {
    auto const path = seac_font();
    if (!path) {
        GTEST_SKIP() << "no URW font or fontTools to make the test font";
    }
    auto const source = cff_table(path->c_str());
    ASSERT_TRUE(source);
    auto const src = cff_font::parse_font(*source);
    ASSERT_TRUE(src) << src.error();
    // Glyphs by the string ids of their standard names.
    auto const glyph_named = [&](std::uint16_t sid) {
        for (std::uint32_t g = 0; g < src->font_charset.size(); ++g) {
            if (src->font_charset[g] == sid) {
                return g;
            }
        }
        ADD_FAILURE() << "no glyph of string " << sid;
        return 0u;
    };
    constexpr std::uint16_t e = 70, E = 38, acute = 125, eacute = 207, Eacute = 178;
    // "é" and "É": e, E and acute join the subset behind them, acute once. "E" is asked for itself, so
    // it is not added again.
    std::vector<std::uint32_t> const asked{0, glyph_named(eacute), glyph_named(Eacute), glyph_named(E)};
    auto const made = cff_subset::make_cff_subset(*source, asked);
    ASSERT_TRUE(made) << made.error();
    EXPECT_EQ(made->subset_subrs.counts_accent_parts, 2u);
    auto glyphs = asked;
    glyphs.push_back(glyph_named(e));
    glyphs.push_back(glyph_named(acute));
    check_round_trip(*source, glyphs, *made);
    EXPECT_EQ(font_tools_compare(*source, made->subset_bytes, glyphs), "ok 6\n");
    fs::remove(*path);
}

} // namespace
