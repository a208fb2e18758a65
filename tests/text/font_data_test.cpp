#include "font_test_util.hpp"
#include "text/font_data.hpp"
#include "text/opentype/tables.hpp"
#include "text/opentype/woff.hpp"

#include <gtest/gtest.h>

#include <functional>
#include <map>

#include <zlib.h>

namespace vellum::font_data {
namespace {

using font_test::captured_log;
using font_test::dejavu;
using font_test::liberation;
using font_test::read_file;
namespace tables = opentype::tables;
using opentype::reader::make_tag;

fonts::freetype::freetype ft() {
    static auto const lib = *fonts::freetype::new_freetype();
    return lib;
}

result<ref<font_data>> load(log::log const& log, std::vector<std::uint8_t> file, std::string const& where = "test.ttf") {
    return load_font(log, ft(), font_file{.file_bytes = bytes::from_vector(std::move(file))}, where);
}

ref<font_data> load_path(std::string const& path) {
    captured_log l;
    auto f = load_font(l.log, ft(), font_file{.file_path = path}, path);
    EXPECT_TRUE(f) << path << ": " << (f ? "" : f.error());
    return f ? *f : nullptr;
}

TEST(font_data, describes_installed_faces) {
    struct row {
        std::string path;
        std::string family;
        std::string basefont;
        truetype::truetype_weight weight;
        truetype::truetype_width width;
        bool italic;
        bool monospace;
    } const rows[] = {
        {dejavu + "DejaVuSans.ttf", "DejaVu Sans", "DejaVuSans", truetype::truetype_weight::normal,
         truetype::truetype_width::normal, false, false},
        {dejavu + "DejaVuSans-Bold.ttf", "DejaVu Sans", "DejaVuSans,Bold", truetype::truetype_weight::bold,
         truetype::truetype_width::normal, false, false},
        {dejavu + "DejaVuSerifCondensed-BoldItalic.ttf", "DejaVu Serif", "DejaVuSerif,BoldItalic",
         truetype::truetype_weight::bold, truetype::truetype_width::semi_condensed, true, false},
        {dejavu + "DejaVuSansMono.ttf", "DejaVu Sans Mono", "DejaVuSansMono", truetype::truetype_weight::normal,
         truetype::truetype_width::normal, false, true},
        {liberation + "LiberationSerif-Italic.ttf", "Liberation Serif", "LiberationSerif,Italic",
         truetype::truetype_weight::normal, truetype::truetype_width::normal, true, false},
    };
    for (auto const& r : rows) {
        SCOPED_TRACE(r.path);
        auto f = load_path(r.path);
        ASSERT_TRUE(f);
        auto const& i = f->font_info;
        EXPECT_EQ(i.family_name, r.family);
        EXPECT_EQ(i.basefont, r.basefont);
        EXPECT_EQ(i.truetype_weight, r.weight);
        EXPECT_EQ(i.truetype_width, r.width);
        EXPECT_EQ(i.is_italic, r.italic);
        EXPECT_EQ(i.is_monospace, r.monospace);
        EXPECT_EQ(i.outlines, font_info::font_outlines::ttf_outlines);
        EXPECT_EQ(i.font_metrics.height, i.font_metrics.ascender - i.font_metrics.descender + i.font_metrics.line_gap);
        EXPECT_GT(i.underline_thickness, 0);
        EXPECT_EQ(truetype::embedding::embedding_verdict(i.embedding), truetype::embedding::verdict::accepted);
    }
    auto f = load_path(dejavu + "DejaVuSans.ttf");
    EXPECT_EQ(f->font_info.units_per_em, 2048);
    EXPECT_EQ(f->font_info.style_name, "Book");
    EXPECT_LT(f->font_info.italic_angle, 1);
    EXPECT_EQ(load_path(dejavu + "DejaVuSans-Oblique.ttf")->font_info.italic_angle, -11);
    // Cap height comes only from OS/2 tables of version 2 and later, which Liberation has and DejaVu not.
    EXPECT_EQ(f->font_info.cap_height, 0);
    EXPECT_EQ(load_path(liberation + "LiberationSans-Regular.ttf")->font_info.cap_height, 1409);
}

TEST(font_data, maps_characters_and_measures_like_freetype) {
    for (auto const& path : {dejavu + "DejaVuSerif.ttf", liberation + "LiberationMono-Regular.ttf"}) {
        SCOPED_TRACE(path);
        auto f = load_path(path);
        ASSERT_TRUE(f);
        for (char32_t c : {U'A', U'é', U'€', U'ﬁ', U'\u0416', U'\u4E00', U'\U0001D400'}) {
            SCOPED_TRACE(int(c));
            auto const g = char_to_glyph(*f, c);
            EXPECT_EQ(g, fonts::freetype::char_index(f->font_face, c));
            EXPECT_EQ(char_to_glyph(*f, c), g); // from the cache now
            if (g != 0) {
                auto adv = fonts::freetype::unscaled_advance(f->font_face, g);
                ASSERT_TRUE(adv);
                EXPECT_EQ(glyph_advance(*f, g), *adv);
            }
        }
        EXPECT_NE(char_to_glyph(*f, U'€'), 0u);
        EXPECT_EQ(char_to_glyph(*f, U'\u4E00'), 0u);
        // No vertical metrics in these fonts: the advance is the font's height.
        EXPECT_EQ(glyph_vert_advance(*f, char_to_glyph(*f, U'A')),
                  f->font_info.font_metrics.ascender - f->font_info.font_metrics.descender);
        EXPECT_FALSE(get_lazy_table(*f, lazy_table::vmtx));
    }
    auto f = load_path(dejavu + "DejaVuSans.ttf");
    // DejaVu Sans: ascender 1901, descender -483, no line gap, underline -130 / 90, 2048 units per em.
    auto const m = scaled_metrics(*f, 20.48);
    EXPECT_FLOAT_EQ(m.up, 19.01f);
    EXPECT_FLOAT_EQ(m.down, 4.83f);
    EXPECT_FLOAT_EQ(m.gap, 0);
    EXPECT_FLOAT_EQ(m.underline_thick, f->font_info.underline_thickness / 100.0f);
    EXPECT_FLOAT_EQ(m.underline_pos, f->font_info.underline_position / 100.0f);
    EXPECT_EQ(scaled_metrics(*f, 20.48), m);
    EXPECT_TRUE(get_lazy_table(*f, lazy_table::gsub));
    EXPECT_TRUE(get_lazy_table(*f, lazy_table::gpos));
}

// Writes a WOFF 1.0 file for an sfnt: each table compressed when that makes it smaller.
std::vector<std::uint8_t> encode_woff(std::vector<std::uint8_t> const& sfnt) {
    auto dir = tables::parse_directory(sfnt);
    EXPECT_TRUE(dir);
    std::vector<std::uint8_t> out(44 + 20 * dir->directory_tables.size(), 0);
    auto put32 = [&](std::size_t at, std::uint32_t v) {
        for (int i = 0; i < 4; ++i) {
            out[at + i] = std::uint8_t(v >> (24 - 8 * i));
        }
    };
    std::size_t entry = 44;
    for (auto const& t : dir->directory_tables) {
        auto const src = opentype::reader::data(sfnt).subspan(t.record_offset, t.record_length);
        uLongf len = compressBound(uLong(src.size()));
        std::vector<std::uint8_t> z(len);
        EXPECT_EQ(compress(z.data(), &len, src.data(), uLong(src.size())), Z_OK);
        z.resize(len);
        if (z.size() >= src.size()) {
            z.assign(src.begin(), src.end());
        }
        while (out.size() % 4) {
            out.push_back(0);
        }
        put32(entry, t.record_tag);
        put32(entry + 4, std::uint32_t(out.size()));
        put32(entry + 8, std::uint32_t(z.size()));
        put32(entry + 12, t.record_length);
        put32(entry + 16, t.record_checksum);
        entry += 20;
        out.insert(out.end(), z.begin(), z.end());
    }
    put32(0, make_tag("wOFF"));
    put32(4, dir->sfnt_version);
    put32(8, std::uint32_t(out.size()));
    out[12] = std::uint8_t(dir->directory_tables.size() >> 8);
    out[13] = std::uint8_t(dir->directory_tables.size());
    put32(16, std::uint32_t(sfnt.size()));
    return out;
}

TEST(font_data, woff_unpacks_to_the_same_tables) {
    auto const ttf = read_file(liberation + "LiberationSans-Bold.ttf");
    auto const woff = encode_woff(ttf);
    EXPECT_LT(woff.size(), ttf.size());
    auto sfnt = opentype::woff::decode_woff(woff);
    ASSERT_TRUE(sfnt) << sfnt.error();
    auto a = tables::parse_directory(ttf);
    auto b = tables::parse_directory(*sfnt);
    ASSERT_TRUE(a && b);
    ASSERT_EQ(a->directory_tables.size(), b->directory_tables.size());
    for (auto const& r : a->directory_tables) {
        SCOPED_TRACE(opentype::reader::tag_text(r.record_tag));
        auto x = tables::find_table(*a, ttf, r.record_tag);
        auto y = tables::find_table(*b, *sfnt, r.record_tag);
        ASSERT_TRUE(x && y);
        EXPECT_TRUE(std::equal(x->begin(), x->end(), y->begin(), y->end()));
    }

    captured_log l;
    auto from_woff = load(l.log, woff, "bold.woff");
    ASSERT_TRUE(from_woff) << from_woff.error();
    auto from_ttf = load_path(liberation + "LiberationSans-Bold.ttf");
    EXPECT_EQ(from_woff.value()->font_info, from_ttf->font_info);
    EXPECT_EQ(char_to_glyph(**from_woff, U'é'), char_to_glyph(*from_ttf, U'é'));

    // A WOFF cut short, or with a table that does not inflate, fails with a message.
    auto cut = woff;
    cut.resize(cut.size() / 2);
    EXPECT_FALSE(opentype::woff::decode_woff(cut));
    auto const r = load(l.log, cut, "cut.woff");
    ASSERT_FALSE(r);
    // Flip a byte inside the first table that was stored compressed.
    auto broken = woff;
    auto u32 = [&](std::size_t at) {
        return (std::size_t(broken[at]) << 24) | (broken[at + 1] << 16) | (broken[at + 2] << 8) | broken[at + 3];
    };
    std::size_t entry = 44;
    while (u32(entry + 8) == u32(entry + 12)) {
        entry += 20;
        ASSERT_LT(entry, 44 + 20 * std::size_t(broken[13]));
    }
    broken[u32(entry + 4) + 2] ^= 0xff;
    EXPECT_FALSE(opentype::woff::decode_woff(broken));
    EXPECT_NE(l.text().find("cut.woff"), std::string::npos);
    EXPECT_EQ(l.text().find("bold.woff"), std::string::npos);
}

TEST(font_data, woff_named_by_path_is_unpacked_too) {
    // The program's own sheet names font files by path, which FreeType would open itself; a WOFF
    // file among them is read and unpacked like one fetched by URL.
    auto const woff = encode_woff(read_file(dejavu + "DejaVuSansMono.ttf"));
    std::string const path = ::testing::TempDir() + "vellum-mono.woff";
    {
        std::FILE* out = std::fopen(path.c_str(), "wb");
        ASSERT_TRUE(out);
        std::fwrite(woff.data(), 1, woff.size(), out);
        std::fclose(out);
    }
    auto const font = load_path(path);
    ASSERT_TRUE(font);
    EXPECT_EQ(font->font_info.family_name, "DejaVu Sans Mono");
    EXPECT_EQ(char_to_glyph(*font, U'x'), char_to_glyph(*load_path(dejavu + "DejaVuSansMono.ttf"), U'x'));
    std::remove(path.c_str());
}

TEST(font_data, bad_files_give_a_logged_error_not_a_crash) {
    auto const ttf = read_file(dejavu + "DejaVuSans.ttf");
    struct row {
        char const* name;
        std::vector<std::uint8_t> file;
    };
    std::vector<row> rows;
    for (std::size_t n : {0, 11, 100, 400, 5000, 60000}) {
        rows.push_back({"truncated", std::vector<std::uint8_t>(ttf.begin(), ttf.begin() + n)});
    }
    auto dir = ttf;
    dir[4] = 0xff; // table count far beyond the directory
    rows.push_back({"table count", dir});
    dir = ttf;
    for (std::size_t i = 12; i < 12 + 16 * std::size_t(dir[5]); i += 16) {
        dir[i + 8] = 0x7f; // table offsets far outside the file
    }
    rows.push_back({"offsets", dir});
    rows.push_back({"not a font", std::vector<std::uint8_t>(1000, 0x41)});
    for (auto const& r : rows) {
        SCOPED_TRACE(r.name + std::to_string(r.file.size()));
        captured_log l;
        auto f = load(l.log, r.file, "bad.ttf");
        EXPECT_FALSE(f);
        auto const text = l.text();
        EXPECT_NE(text.find("bad.ttf"), std::string::npos) << text;
        EXPECT_NE(text.find("warning"), std::string::npos) << text;
    }
}

// Finds a table's directory record in a file and returns the offset of the table.
std::size_t table_offset(std::vector<std::uint8_t> const& file, char const* tag) {
    auto dir = tables::parse_directory(file);
    for (auto const& r : dir->directory_tables) {
        if (r.record_tag == make_tag(tag)) {
            return r.record_offset;
        }
    }
    ADD_FAILURE() << tag;
    return 0;
}

TEST(font_data, cmap_pointing_past_the_last_glyph_gives_no_glyph) {
    auto file = read_file(dejavu + "DejaVuSans.ttf");
    // Fewer glyphs in maxp than the cmap names: 'A' (glyph 36) no longer exists, space (3) does.
    auto const maxp = table_offset(file, "maxp");
    file[maxp + 4] = 0;
    file[maxp + 5] = 10;
    captured_log l;
    auto f = load(l.log, file);
    ASSERT_TRUE(f) << f.error();
    EXPECT_EQ(char_to_glyph(**f, U'A'), 0u);
    EXPECT_EQ(char_to_glyph(**f, U' '), 3u);
}

// Tables of a file served to describe_font, with changes.
struct table_map {
    std::map<opentype::reader::tag, bytes::bytes> tables;
    static std::optional<bytes::bytes> read(void const* context, opentype::reader::tag t) {
        auto const& m = static_cast<table_map const*>(context)->tables;
        auto it = m.find(t);
        return it == m.end() ? std::nullopt : std::optional(it->second);
    }
};

table_map tables_of(std::vector<std::uint8_t> const& file) {
    table_map m;
    auto dir = tables::parse_directory(file);
    for (auto const& r : dir->directory_tables) {
        m.tables[r.record_tag] = bytes::from_span(opentype::reader::data(file).subspan(r.record_offset, r.record_length));
    }
    return m;
}

TEST(font_data, description_failures_name_the_problem) {
    auto const good = tables_of(read_file(dejavu + "DejaVuSans.ttf"));
    ASSERT_TRUE(describe_font(table_map::read, &good));
    struct row {
        char const* name;
        std::function<void(table_map&)> change;
        char const* message;
    } const rows[] = {
        {"no name table", [](table_map& m) { m.tables.erase(make_tag("name")); }, "font has no family name"},
        {"no head", [](table_map& m) { m.tables.erase(make_tag("head")); }, "could not load head table"},
        {"no outlines", [](table_map& m) { m.tables.erase(make_tag("glyf")); }, "not a TrueType or OpenType font"},
        {"zero units per em",
         [](table_map& m) {
             auto v = std::vector<std::uint8_t>(m.tables[make_tag("head")].view().begin(),
                                                m.tables[make_tag("head")].view().end());
             v[18] = v[19] = 0;
             m.tables[make_tag("head")] = bytes::from_vector(v);
         },
         "font has negative units-per-em"},
        {"short hhea",
         [](table_map& m) { m.tables[make_tag("hhea")] = bytes::from_string("short"); },
         "hhea table: truncated (5 bytes)"},
    };
    for (auto const& r : rows) {
        SCOPED_TRACE(r.name);
        auto m = good;
        r.change(m);
        auto d = describe_font(table_map::read, &m);
        ASSERT_FALSE(d);
        EXPECT_EQ(d.error(), r.message);
    }
    // Without post and OS/2 the defaults stand.
    auto m = good;
    m.tables.erase(make_tag("post"));
    m.tables.erase(make_tag("OS/2"));
    auto d = describe_font(table_map::read, &m);
    ASSERT_TRUE(d);
    EXPECT_EQ(d->underline_position, -2048 / 9);
    EXPECT_EQ(d->underline_thickness, 2048 / 20);
    EXPECT_EQ(d->first_char_os2, 32);
    EXPECT_FALSE(d->is_monospace);
    EXPECT_EQ(d->embedding, truetype::embedding::embedding(truetype::embedding::permissions{}));
}

TEST(font_data, a_hidden_cmap_is_reported_by_load) {
    auto file = read_file(dejavu + "DejaVuSans.ttf");
    auto dir = tables::parse_directory(file);
    for (std::size_t i = 0; i < dir->directory_tables.size(); ++i) {
        if (dir->directory_tables[i].record_tag == make_tag("cmap")) {
            file[12 + 16 * i] = 'z';
        }
    }
    captured_log l;
    auto f = load(l.log, file, "nocmap.ttf");
    ASSERT_FALSE(f);
    EXPECT_EQ(f.error(), "could not load cmap table");
    EXPECT_NE(l.text().find("nocmap.ttf: warning: could not load cmap table"), std::string::npos) << l.text();
}

TEST(font_data, refuses_fonts_whose_licence_forbids_embedding) {
    auto const good = read_file(dejavu + "DejaVuSans.ttf");
    struct row {
        std::uint16_t fs_type;
        bool loads;
        bool debug_note;
    } const rows[] = {
        {0x0000, true, false}, {0x0002, false, false}, {0x0004, true, false}, {0x0008, true, false},
        {0x0102, false, false}, {0x0200, false, false}, {0x0001, true, true}, {0x0010, false, true},
    };
    for (auto const& r : rows) {
        SCOPED_TRACE(r.fs_type);
        auto file = good;
        auto const os2 = table_offset(file, "OS/2");
        file[os2 + 8] = std::uint8_t(r.fs_type >> 8);
        file[os2 + 9] = std::uint8_t(r.fs_type);
        captured_log l;
        auto f = load(l.log, file);
        EXPECT_EQ(bool(f), r.loads);
        if (!f) {
            EXPECT_EQ(f.error(), "\"DejaVu Sans Book\" does not allow font embedding");
        }
        EXPECT_EQ(l.text().find("has invalid embedding bits") != std::string::npos, r.debug_note) << l.text();
    }
}

TEST(embedding, reads_fs_type_bits) {
    using namespace truetype::embedding;
    struct row {
        std::uint16_t bits;
        embedding expected;
    } const rows[] = {
        {0x0000, permissions{}},
        {0x0002, permissions{.permissions_embed = embed_type::embed_restricted}},
        {0x0004, permissions{.permissions_embed = embed_type::embed_print_preview}},
        {0x0008, permissions{.permissions_embed = embed_type::embed_editing}},
        {0x000E, permissions{.permissions_embed = embed_type::embed_editing}},
        {0x0006, permissions{.permissions_embed = embed_type::embed_print_preview}},
        {0x0100, permissions{.permissions_subset = subset_type::may_not_subset}},
        {0x0204, permissions{.permissions_embed = embed_type::embed_print_preview,
                             .permissions_outlines = embed_outlines_type::may_not_embed_outlines}},
        {0x0001, bogus{1}},
        {0x8000, bogus{0x8000}},
        {0x0402, bogus{0x0402}},
    };
    for (auto const& r : rows) {
        SCOPED_TRACE(r.bits);
        EXPECT_EQ(parse_embedding(r.bits), r.expected);
    }
    EXPECT_EQ(embedding_verdict(permissions{.permissions_subset = subset_type::may_not_subset}), verdict::accepted);
    EXPECT_EQ(describe(bogus{0x10}), "invalid bits 0x0010");
}

} // namespace
} // namespace vellum::font_data
