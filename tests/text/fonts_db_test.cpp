#include "font_test_util.hpp"
#include "text/font_data.hpp"
#include "text/fonts/coverage.hpp"
#include "text/fonts/fonts.hpp"
#include "text/fonts/graphemes.hpp"
#include "text/fonts/shape_cache.hpp"

#include <cmath>
#include <set>

#include <gtest/gtest.h>

namespace vellum::fonts {
namespace {

using font_test::captured_log;
using font_test::dejavu;
using font_test::noto;
using font_test::liberation;
namespace locator = resource::locator;

resource::loader::loader test_loader(log::log const& log) {
    resource::loader::loader_options opts;
    opts.network = false;
    auto l = resource::loader::new_loader(log, {"/nonexistent-prefix"}, {"/tmp"}, opts);
    EXPECT_TRUE(l);
    return *l;
}

// Names in the test sheets are file paths, as on the command line.
locator::locator as_path(std::string const& text, std::string const&) {
    return locator::parse_locator(locator::path_or_url::path_or_url,
                                  locator::locator_origin::command_line_origin, std::nullopt, text);
}

struct fixture {
    captured_log log;
    fonts db;

    explicit fixture(std::string const& sheet, bool system_fonts = false) {
        auto d = new_fonts(test_loader(log.log), log.log, system_fonts);
        EXPECT_TRUE(d) << (d ? "" : d.error());
        db = *d;
        add_font_face_sheet(db, sheet, "test.css", as_path);
    }

    ref<font_req> req(font_query q) { return get_font_req(db, q); }

    // The file of the face that shows a character.
    std::string file_for(font_query q, char32_t c) {
        auto const g = char_to_glyph(db, *req(std::move(q)), c);
        auto const& loc = g.raw_glyph_font_ref->used_font_data->font_location;
        return loc.substr(loc.find_last_of('/') + 1);
    }
};

std::string face(std::string const& family, std::string const& file, std::string const& descriptors = "") {
    return "@font-face { font-family: \"" + family + "\"; src: url(\"" + file + "\"); " + descriptors +
           " }\n";
}

font_query family(std::string const& name) {
    return {.query_families = {name, "vellum-no-fallback"}};
}

TEST(fonts_db, picks_weights_by_nearest_matching_value) {
    fixture f(face("W", dejavu + "DejaVuSans-ExtraLight.ttf", "font-weight: 300;") +
              face("W", dejavu + "DejaVuSans.ttf", "font-weight: 500;") +
              face("W", dejavu + "DejaVuSans-Bold.ttf", "font-weight: 700;") +
              face("W", dejavu + "DejaVuSansMono.ttf", "font-weight: 900;"));

    struct row {
        char const* name;
        truetype::truetype_weight weight;
        char const* file;
    } const rows[] = {
        // 600 counts as 650, so it lies nearer to 700 than to 500.
        {"600 between 500 and 700", truetype::truetype_weight::weight_600, "DejaVuSans-Bold.ttf"},
        {"400 is as near to 300 as to 500: the later rule wins", truetype::truetype_weight::normal,
         "DejaVuSans.ttf"},
        {"800 is as near to 700 as to 900: the later rule wins", truetype::truetype_weight::weight_800,
         "DejaVuSansMono.ttf"},
        {"200 goes up to 300", truetype::truetype_weight::weight_200, "DejaVuSans-ExtraLight.ttf"},
        {"bold", truetype::truetype_weight::bold, "DejaVuSans-Bold.ttf"},
    };

    for (auto const& r : rows) {
        SCOPED_TRACE(r.name);
        auto q = family("W");
        q.query_weight = r.weight;
        EXPECT_EQ(f.file_for(q, U'a'), r.file);
    }
}

TEST(fonts_db, style_outweighs_width_and_width_outweighs_weight) {
    fixture f(face("S", dejavu + "DejaVuSans.ttf") +
              face("S", dejavu + "DejaVuSansCondensed-Bold.ttf",
                   "font-weight: bold; font-stretch: semi-condensed;") +
              face("S", dejavu + "DejaVuSans-Oblique.ttf", "font-style: oblique; font-weight: 900;") +
              face("T", liberation + "LiberationSerif-Regular.ttf"));
    auto q = family("S");
    q.query_style = match::font_style::italic;
    EXPECT_EQ(f.file_for(q, U'a'), "DejaVuSans-Oblique.ttf") << "italic takes an oblique face, weight aside";
    q = family("S");
    q.query_width = truetype::truetype_width::condensed;
    EXPECT_EQ(f.file_for(q, U'a'), "DejaVuSansCondensed-Bold.ttf") << "width before weight";
    q = family("T");
    q.query_style = match::font_style::oblique;
    q.query_weight = truetype::truetype_weight::bold;
    EXPECT_EQ(f.file_for(q, U'a'), "LiberationSerif-Regular.ttf") << "a family with one upright face";
}

TEST(fonts_db, unicode_ranges_and_src_alternatives) {
    // Equal descriptors: one record, the later rule first; each rule covers its own range.
    fixture f(face("R", dejavu + "DejaVuSans.ttf", "unicode-range: U+0-7F;") +
              face("R", liberation + "LiberationSerif-Regular.ttf", "unicode-range: U+41-5A, U+30?;") +
              "@font-face { font-family: Alt Family; src: url(/nonexistent/missing.ttf), local(\"No Such\"), "
              "url(\"" +
              dejavu + "DejaVuSerif.ttf\") format(\"truetype\"); }\n");
    EXPECT_EQ(f.file_for(family("R"), U'A'), "LiberationSerif-Regular.ttf");
    EXPECT_EQ(f.file_for(family("R"), U'b'), "DejaVuSans.ttf");
    EXPECT_EQ(f.file_for(family("R"), U'\u0301'), "LiberationSerif-Regular.ttf") << "U+30? covers U+0301";
    // Outside both ranges: no face at all, so the fallback "?" comes from the range that has it.
    EXPECT_EQ(f.file_for(family("R"), U'\u00e9'), "DejaVuSans.ttf");
    EXPECT_EQ(char_to_glyph(f.db, *f.req(family("R")), U'\u00e9').raw_glyph_unicodes,
              unicode::unicodes(U"?"));

    // A source that fails to load is passed over and logged once; the family name is case-blind.
    EXPECT_EQ(f.file_for(family("alt family"), U'a'), "DejaVuSerif.ttf");
    EXPECT_EQ(f.file_for(family("ALT FAMILY"), U'b'), "DejaVuSerif.ttf");
    auto const text = f.log.text();
    auto const first = text.find("missing.ttf: warning: ");
    EXPECT_NE(first, std::string::npos) << text;
    EXPECT_EQ(text.find("missing.ttf: warning: ", first + 1), std::string::npos) << text;
}

TEST(fonts_db, a_face_without_the_glyph_hands_over_to_the_next_rule_and_family) {
    // Liberation Serif has no Georgian; DejaVu Sans has. The missing family "Nope" is skipped quietly.
    fixture f(face("G", dejavu + "DejaVuSans.ttf") + face("G", liberation + "LiberationSerif-Regular.ttf") +
              face("H", liberation + "LiberationMono-Regular.ttf"));
    EXPECT_EQ(f.file_for(family("G"), U'a'), "LiberationSerif-Regular.ttf");
    EXPECT_EQ(f.file_for(family("G"), U'\u10D0'), "DejaVuSans.ttf");
    EXPECT_EQ(f.file_for({.query_families = {"Nope", "H", "G"}}, U'\u10D0'), "DejaVuSans.ttf");
    EXPECT_EQ(f.log.text().find("warning"), std::string::npos) << f.log.text();
}

TEST(fonts_db, fallback_characters_and_last_resort) {
    fixture f(face("serif", dejavu + "DejaVuSerif.ttf") +
              face("P", liberation + "LiberationSans-Regular.ttf"));
    auto const req = f.req({.query_families = {"P"}});
    // U+0096 has no glyph anywhere; Windows-1252 puts an en dash there, found in the first family.
    auto const g = char_to_glyph(f.db, *req, U'\u0096');
    EXPECT_EQ(g.raw_glyph_unicodes, unicode::unicodes(U"\u2013"));
    EXPECT_EQ(g.raw_glyph_font_ref->used_font_data->font_info.family_name, "Liberation Sans");
    // An unassigned code point falls back to "?"; the characters that had no glyph are named in one
    // warning for the run, however often and in however many requests they come.
    auto const q = char_to_glyph(f.db, *req, U'\u0378');
    EXPECT_EQ(q.raw_glyph_unicodes, unicode::unicodes(U"?"));
    char_to_glyph(f.db, *req, U'\u0378');
    char_to_glyph(f.db, *f.req({.query_families = {"P"}, .query_weight = truetype::truetype_weight::bold}),
                  U'\u0378');
    char_to_glyph(f.db, *req, U'\u0379');
    auto const text = f.log.text();
    EXPECT_NE(text.find("debug: no glyphs for character U+0096, fallback to U+2013"), std::string::npos)
        << text;
    EXPECT_EQ(text.find("warning"), std::string::npos) << text;
    log_missing_glyphs(f.db);
    log_missing_glyphs(f.db);
    auto const summary = f.log.text().substr(text.size());
    EXPECT_EQ(summary, "vellum: warning: no glyphs for 2 characters, shown as '?': U+0378, U+0379\n");
    // Georgian is missing from Liberation Sans, and serif is added to every request as the last resort.
    EXPECT_EQ(f.file_for({.query_families = {"P"}}, U'\u10D0'), "DejaVuSerif.ttf");
    // Without that last resort nothing remains.
    auto const none = f.req({.query_families = {"vellum-no-fallback"}});
    EXPECT_TRUE(none->font_req_matches.empty());
    EXPECT_THROW(char_to_glyph(f.db, *none, U'a'), no_available_fonts);
    EXPECT_THROW(primary_font_metrics(f.db, *none, 12), no_available_fonts);
}

// With system fonts, a character that no face of the request has is looked for by coverage among the
// faces fontconfig knows; the face found serves the next characters of its script without asking again.
TEST(fonts_db, characters_beyond_the_requests_faces_come_from_system_faces_by_coverage) {
    fixture f(face("serif", liberation + "LiberationSerif-Regular.ttf"), true);
    auto const req = f.req({.query_families = {"serif"}});
    auto const ka = char_to_glyph(f.db, *req, U'\u0915');
    auto const kha = char_to_glyph(f.db, *req, U'\u0916');
    EXPECT_EQ(ka.raw_glyph_unicodes, unicode::unicodes(U"\u0915"));
    EXPECT_NE(ka.raw_glyph_index, 0u);
    EXPECT_EQ(ka.raw_glyph_font_ref, kha.raw_glyph_font_ref);
    auto const& info = ka.raw_glyph_font_ref->used_font_data->font_info;
    EXPECT_NE(info.family_name.find("Devanagari"), std::string::npos) << info.family_name;
    auto const text = f.log.text();
    auto const first = text.find("debug: font fallback: ");
    EXPECT_NE(first, std::string::npos) << text;
    EXPECT_EQ(text.find("debug: font fallback: ", first + 1), std::string::npos) << "asked twice: " << text;
    // A bold request finds a bold face of its own.
    auto const bold = char_to_glyph(
        f.db, *f.req({.query_families = {"serif"}, .query_weight = truetype::truetype_weight::bold}),
        U'\u0915');
    EXPECT_EQ(bold.raw_glyph_font_ref->used_font_data->font_info.truetype_weight,
              truetype::truetype_weight::bold);
    // A noncharacter is in no face: "?" from the request's own faces, and the summary names it.
    EXPECT_EQ(char_to_glyph(f.db, *req, U'\U0010FFFE').raw_glyph_unicodes, unicode::unicodes(U"?"));
    EXPECT_EQ(char_to_glyph(f.db,
                            *f.req({.query_families = {"serif"}, .query_style = match::font_style::italic}),
                            U'\U0010FFFE')
                  .raw_glyph_font_ref->used_font_data->font_info.family_name,
              "Liberation Serif");
    log_missing_glyphs(f.db);
    EXPECT_NE(f.log.text().find("warning: no glyphs for 1 character, shown as '?': U+10FFFE"),
              std::string::npos)
        << f.log.text();
}

TEST(fonts_db, the_missing_glyph_summary_names_a_few_and_counts_the_rest) {
    std::set<char32_t> some;
    for (char32_t c = 0xE000; c < 0xE00A; ++c) {
        some.insert(c);
    }
    EXPECT_EQ(coverage::missing_summary(some, 3),
              "no glyphs for 10 characters, shown as '?': U+E000, U+E001, "
              "U+E002 and 7 more");
    EXPECT_EQ(coverage::missing_summary({0x41}), "no glyphs for 1 character, shown as '?': U+0041");
}

TEST(fonts_db, redirects_and_their_cycles) {
    fixture f(face("Base", dejavu + "DejaVuSansMono.ttf") +
              "@font-face { font-family: \"generic\"; src: vellum-lookup(\"Base\"); }\n"
              "@font-face { font-family: \"loop-a\"; src: vellum-lookup(\"loop-b\"); }\n"
              "@font-face { font-family: \"loop-b\"; src: vellum-lookup(\"loop-a\"); }\n"
              "@font-face { font-family: \"sys\"; src: local(\"Base\"); }\n");
    EXPECT_EQ(f.file_for(family("generic"), U'a'), "DejaVuSansMono.ttf");
    auto const loop = f.req({.query_families = {"loop-a", "generic", "vellum-no-fallback"}});
    EXPECT_NE(f.log.text().find("warning: cyclic @font-face redirect to \"loop-b\""), std::string::npos)
        << f.log.text();
    EXPECT_EQ(char_to_glyph(f.db, *loop, U'a').raw_glyph_font_ref->used_font_data->font_info.family_name,
              "DejaVu Sans Mono");
    // local() looks among system fonts only: a rule named "Base" cannot answer it.
    EXPECT_THROW(char_to_glyph(f.db, *f.req(family("sys")), U'a'), no_available_fonts);
}

TEST(fonts_db, local_sources_find_system_faces) {
    fixture f("@font-face { font-family: \"mine\"; src: local(\"DejaVu Serif\"); }\n", true);
    auto q = family("mine");
    q.query_weight = truetype::truetype_weight::bold;
    auto const g = char_to_glyph(f.db, *f.req(q), U'a');
    auto const& info = g.raw_glyph_font_ref->used_font_data->font_info;
    EXPECT_EQ(info.family_name, "DejaVu Serif");
    EXPECT_EQ(info.truetype_weight, truetype::truetype_weight::bold);
    EXPECT_NE(f.log.text().find("font scan: DejaVu Serif, "), std::string::npos) << f.log.text();
}

TEST(fonts_db, used_fonts_get_ids_and_encodings) {
    fixture f(face("A", dejavu + "DejaVuSans.ttf") + face("B", dejavu + "DejaVuSerif.ttf") +
              face("C", liberation + "LiberationMono-Regular.ttf"));
    auto const a = char_to_glyph(f.db, *f.req(family("A")), U'x').raw_glyph_font_ref;
    auto const b = char_to_glyph(f.db, *f.req(family("B")), U'\u0416').raw_glyph_font_ref;
    EXPECT_EQ(a->used_font_id, 1);
    EXPECT_EQ(b->used_font_id, 2);
    EXPECT_EQ(used_fonts(f.db), (std::vector<font_ref>{b, a}));
    EXPECT_EQ(a->used_font_encoding->get(), font_pdf_encoding::macroman_encoding);
    EXPECT_EQ(b->used_font_encoding->get(), font_pdf_encoding::identity_encoding);
    // A MacRoman font meets a character outside MacRoman, through another request even: Identity for good.
    auto bold = family("A");
    bold.query_weight = truetype::truetype_weight::bold;
    EXPECT_EQ(char_to_glyph(f.db, *f.req(bold), U'\u0416').raw_glyph_font_ref, a);
    EXPECT_EQ(a->used_font_encoding->get(), font_pdf_encoding::identity_encoding);
    char_to_glyph(f.db, *f.req(family("A")), U'y');
    EXPECT_EQ(a->used_font_encoding->get(), font_pdf_encoding::identity_encoding);
    // A font named by rules but never used costs nothing and gets no id.
    EXPECT_EQ(used_fonts(f.db).size(), 2u);
    EXPECT_NE(f.log.text().find("used font: DejaVu Sans Book"), std::string::npos) << f.log.text();

    EXPECT_EQ(pdf_font_tag(a), std::nullopt);
    a->used_font_subset->set(bytes::bytes{});
    EXPECT_EQ(pdf_font_tag(a), "QZAAAA");
    EXPECT_EQ(font_tag_of_id(2), "QZAAAB");
    EXPECT_EQ(font_tag_of_id(27), "QZAABA");
    EXPECT_EQ(font_tag_of_id(26 * 26 * 26 + 1), "QZBAAA");
}

TEST(fonts_db, requests_are_cached_and_say_what_was_asked) {
    fixture f(face("A", dejavu + "DejaVuSans.ttf"));
    font_query q{.query_families = {"A", "B"},
                 .query_style = match::font_style::oblique,
                 .query_weight = truetype::truetype_weight::weight_600,
                 .query_width = truetype::truetype_width::semi_expanded,
                 .query_variant = match::font_variant::small_caps};
    EXPECT_EQ(describe_query(q), "600 oblique semi-expanded small-caps A, B");
    EXPECT_EQ(describe_query({.query_families = {"A"}}), "A");
    EXPECT_EQ(f.req(q), f.req(q));
    EXPECT_NE(f.req(q), f.req(family("A")));
}

TEST(fonts_db, synthesised_bold_and_italic_where_the_face_lacks_them) {
    fixture f(face("A", dejavu + "DejaVuSans.ttf") +
              face("A", dejavu + "DejaVuSans-BoldOblique.ttf", "font-weight: bold; font-style: oblique;") +
              face("U", dejavu + "DejaVuSans.ttf"));

    struct row {
        char const* name;
        char const* family;
        match::font_style style;
        truetype::truetype_weight weight;
        synthesis expected;
    } const rows[] = {
        {"plain", "A", match::font_style::normal, truetype::truetype_weight::normal, {}},
        {"the face has both", "A", match::font_style::italic, truetype::truetype_weight::bold, {}},
        {"only upright regular",
         "U",
         match::font_style::italic,
         truetype::truetype_weight::weight_600,
         {.synthesis_bold = true, .synthesis_italic = true}},
        {"500 is not bold", "U", match::font_style::normal, truetype::truetype_weight::weight_500, {}},
        {"bold oblique face for a light request",
         "A",
         match::font_style::normal,
         truetype::truetype_weight::weight_100,
         {}},
    };

    for (auto const& r : rows) {
        SCOPED_TRACE(r.name);
        auto q = family(r.family);
        q.query_style = r.style;
        q.query_weight = r.weight;
        auto const req = f.req(q);
        EXPECT_EQ(synthesis_needed(*req, char_to_glyph(f.db, *req, U'a').raw_glyph_font_ref), r.expected);
    }
}

TEST(fonts_db, measures_runs_against_the_fonts_own_metrics) {
    std::string const path = dejavu + "DejaVuSans.ttf";
    fixture f(face("A", path));
    auto const req = f.req(family("A"));
    auto const gs = text_to_graphemes(f.db, *req, direction::ltr, U"Hello");
    ASSERT_EQ(gs.size(), 5u);

    // Advances as FreeType reads them, independently of the hmtx reader.
    auto const ft = *freetype::new_freetype();
    auto const face_ft = *freetype::open_file(ft, path, 0);
    double expected = 0;
    for (char32_t c : std::u32string(U"Hello")) {
        expected +=
            double(*freetype::unscaled_advance(face_ft, freetype::char_index(face_ft, c))) / 2048.0 * 10.0;
    }
    EXPECT_NEAR(graphemes_width(false, false, gs, 0, 10), expected, 1e-3);
    EXPECT_NEAR(graphemes_width(true, false, gs, 0, 10), expected, 1e-3);
    EXPECT_NEAR(graphemes_width(false, false, gs, 1.5f, 10), expected + 7.5, 1e-3);
    EXPECT_EQ(graphemes_width(false, false, {}, 1.5f, 10), 0);
    // The two "l" share one glyph entry and one PDF index.
    EXPECT_EQ(gs[2].base_glyph.glyph_index, gs[3].base_glyph.glyph_index);
    EXPECT_EQ(gs[2].base_glyph.glyph_font_ref->used_font_glyph_cache->get().glyph_cache_entries.size(), 4u);

    // Vertical text: Latin turns sideways (horizontal advance), a CJK-style upright character does not.
    // DejaVu Sans has no vertical metrics: the vertical advance is ascender - descender.
    float const em_height = float(1901 + 483) / 2048.0f;
    EXPECT_NEAR(gs[0].base_glyph.glyph_vert_advance, em_height, 1e-6);
    EXPECT_NEAR(graphemes_width(false, true, gs, 0, 10), expected, 1e-3);
    auto upright = gs;
    upright[0].base_glyph.glyph_unicodes = unicode::unicodes(1, U'\u3042');
    upright[1].base_glyph.glyph_is_vert_alt = true;
    float const h0 = gs[0].base_glyph.glyph_hori_advance * 10;
    float const h1 = gs[1].base_glyph.glyph_hori_advance * 10;
    EXPECT_NEAR(graphemes_width(false, true, upright, 0, 10), expected - h0 - h1 + 2 * em_height * 10, 1e-3);
    EXPECT_NEAR(graphemes_width(false, false, upright, 0, 10), expected, 1e-3);

    // Kerning and cursive anchors move the ends.
    auto kerned = gs;
    kerned[0].grapheme_kerning = -0.1f;
    EXPECT_NEAR(graphemes_width(false, false, kerned, 0, 10), expected - 1.0, 1e-3);
    auto attached = gs;
    attached[1].grapheme_place = anchor{.anchor_exit = {0.5f, 0}, .anchor_entry = {0.1f, 0}};
    float const h = gs[0].base_glyph.glyph_hori_advance * 10;
    float const e_start = 5.0f - 1.0f;
    EXPECT_NEAR(graphemes_width(false, false, attached, 0, 10), expected - h + e_start, 1e-3);

    // Scaled metrics of the first font: hhea ascender 1901 and descender -483 over 2048 units.
    auto const m = primary_font_metrics(f.db, *req, 20);
    EXPECT_NEAR(m.up, 1901.0 * 20 / 2048, 1e-4);
    EXPECT_NEAR(m.down, 483.0 * 20 / 2048, 1e-4);
    auto const gm = graphemes_metrics(gs, 20);
    EXPECT_EQ(gm.up, m.up);
    EXPECT_EQ(gm.down, m.down);
    EXPECT_EQ(graphemes_metrics({}, 20), font_metrics::font_metrics_scaled{});
}

// In right-to-left runs a bracket takes its mirror's glyph but still stands for the character written.
TEST(fonts_db, right_to_left_runs_mirror_brackets) {
    fixture f(face("A", dejavu + "DejaVuSans.ttf"));
    auto const req = f.req(family("A"));
    auto const ltr = text_to_graphemes(f.db, *req, direction::ltr, U"()");
    auto const rtl = text_to_graphemes(f.db, *req, direction::rtl, U"()");
    ASSERT_EQ(ltr.size(), 2u);
    ASSERT_EQ(rtl.size(), 2u);
    EXPECT_EQ(rtl[0].base_glyph.glyph_source, ltr[1].base_glyph.glyph_source);
    EXPECT_EQ(rtl[1].base_glyph.glyph_source, ltr[0].base_glyph.glyph_source);
    EXPECT_EQ(rtl[0].base_glyph.glyph_unicodes, ltr[0].base_glyph.glyph_unicodes);
    // Letters are not touched.
    EXPECT_EQ(text_to_graphemes(f.db, *req, direction::rtl, U"a")[0].base_glyph.glyph_source,
              text_to_graphemes(f.db, *req, direction::ltr, U"a")[0].base_glyph.glyph_source);
}

TEST(fonts_db, small_capitals_are_capitals_at_four_fifths) {
    fixture f(face("A", dejavu + "DejaVuSans.ttf"));
    auto q = family("A");
    auto const plain = text_to_graphemes(f.db, *f.req(q), direction::ltr, U"AB");
    q.query_variant = match::font_variant::small_caps;
    auto const sc = text_to_graphemes(f.db, *f.req(q), direction::ltr, U"aB\u00df");
    ASSERT_EQ(sc.size(), 3u);
    EXPECT_TRUE(sc[0].base_glyph.glyph_small_caps);
    EXPECT_EQ(sc[0].base_glyph.glyph_source, plain[0].base_glyph.glyph_source);
    EXPECT_FALSE(sc[1].base_glyph.glyph_small_caps) << "already a capital";
    EXPECT_FALSE(sc[2].base_glyph.glyph_small_caps) << "no single upper-case mapping";
    float const a = plain[0].base_glyph.glyph_hori_advance;
    float const b = plain[1].base_glyph.glyph_hori_advance;
    auto const first_two = std::span(sc).first(2);
    EXPECT_NEAR(graphemes_width(false, false, first_two, 0, 10), (a * 0.8f + b) * 10, 1e-4);
    EXPECT_NEAR(graphemes_metrics(std::span(sc).first(1), 10).up, 1901.0 * 8 / 2048, 1e-4);
}

TEST(fonts_db, petite_capitals_fall_back_to_small_ones) {
    // Neither font has petite capitals: Noto Serif shows its small capitals, DejaVu Sans imitates them,
    // exactly as for small-caps; all-petite-caps shrinks the capitals too, as all-small-caps does.
    for (auto const& path : {noto + "NotoSerif-Regular.ttf", dejavu + "DejaVuSans.ttf"}) {
        SCOPED_TRACE(path);
        fixture f(face("A", path));
        auto glyphs_of = [&](std::vector<feature> features) {
            auto q = family("A");
            q.query_variant = match::font_variant::small_caps;
            q.query_features = std::move(features);
            std::vector<std::pair<std::uint32_t, bool>> out;
            for (auto const& g : text_to_graphemes(f.db, *f.req(q), direction::ltr, U"Petite Caps")) {
                out.emplace_back(g.base_glyph.glyph_source, g.base_glyph.glyph_small_caps);
            }
            return out;
        };
        auto const small = glyphs_of({});
        EXPECT_EQ(glyphs_of({{.feature_tag = "pcap"}}), small);
        auto const all_small = glyphs_of({{.feature_tag = "c2sc"}});
        EXPECT_NE(all_small, small);
        EXPECT_EQ(glyphs_of({{.feature_tag = "pcap"}, {.feature_tag = "c2pc"}}), all_small);
    }
}

TEST(fonts_db, fitting_cuts_only_between_grapheme_clusters) {
    fixture f(face("M", liberation + "LiberationMono-Regular.ttf"));
    auto const req = f.req(family("M"));
    // Liberation Mono: every advance is 1229 of 2048 units, 6.0009765625 pt at 10 pt.
    float const adv = 1229.0f / 2048.0f * 10;
    auto const gs = text_to_graphemes(f.db, *req, direction::ltr, U"abe\u0301x");
    // The combining acute goes with its letter: one grapheme, the accent placed on the "e" (or composed
    // with it by the font).
    ASSERT_EQ(gs.size(), 4u);
    auto const& e = gs[2];
    EXPECT_TRUE(e.grapheme_marks.size() == 1 || e.base_glyph.glyph_unicodes == U"e\u0301");

    auto all = fit_graphemes(false, gs, 0, 10, 100);
    ASSERT_TRUE(all);
    EXPECT_EQ(all->fit_first.size(), 4u);
    EXPECT_TRUE(all->fit_rest.empty());
    EXPECT_NEAR(all->fit_width, 4 * adv, 1e-3);

    auto two = fit_graphemes(false, gs, 0, 10, 2.5f * adv);
    ASSERT_TRUE(two);
    EXPECT_EQ(two->fit_first.size(), 2u);
    EXPECT_EQ(two->fit_rest.size(), 2u);
    EXPECT_NEAR(two->fit_width, 2 * adv, 1e-3);

    // "e" with its accent fits, but "x" does not.
    auto three = fit_graphemes(false, gs, 0, 10, 3.5f * adv);
    ASSERT_TRUE(three);
    EXPECT_EQ(three->fit_first.size(), 3u);

    // Letter spacing counts after each grapheme.
    auto spaced = fit_graphemes(false, gs, 1, 10, 3 * adv + 2.5f);
    ASSERT_TRUE(spaced);
    EXPECT_EQ(spaced->fit_first.size(), 2u);
    EXPECT_NEAR(spaced->fit_width, 2 * adv + 2, 1e-3);

    // An exact fit is a fit, within the tolerance.
    auto exact = fit_graphemes(false, gs, 0, 10, 2 * adv);
    ASSERT_TRUE(exact);
    EXPECT_EQ(exact->fit_first.size(), 2u);

    EXPECT_FALSE(fit_graphemes(false, gs, 0, 10, 0.5f * adv)) << "not even one grapheme";
    auto const marked = text_to_graphemes(f.db, *req, direction::ltr, U"e\u0301");
    EXPECT_EQ(marked.size(), 1u) << "a letter and its mark are one grapheme";
    EXPECT_FALSE(fit_graphemes(false, marked, 1, 10, 0.5f * adv)) << "no cut between a letter and its mark";
}

TEST(fonts_db, the_shape_cache_shares_each_run_and_keeps_requests_and_directions_apart) {
    fixture f(face("A", dejavu + "DejaVuSans.ttf") + face("B", dejavu + "DejaVuSerif.ttf"));
    auto const a = f.req(family("A"));
    auto const b = f.req(family("B"));
    auto cache = shape_cache::make_shape_cache();
    auto shape = [&](ref<font_req> const& req, direction dir, std::u32string_view text) {
        return shape_cache::shape(*cache, f.db, *req, dir, text);
    };
    // Enough distinct words for the table to grow several times; every one is found again afterwards
    // as the same shared run, equal to what shaping without the cache gives.
    std::vector<std::u32string> words;
    std::vector<shared_graphemes> first;
    for (int i = 0; i < 3000; ++i) {
        std::u32string w;
        for (int n = i; n > 0 || w.empty(); n /= 26) {
            w += char32_t(U'a' + n % 26);
        }
        words.push_back(w);
        first.push_back(shape(a, direction::ltr, w));
    }
    for (std::size_t i = 0; i < words.size(); ++i) {
        auto const again = shape(a, direction::ltr, words[i]);
        ASSERT_EQ(again.view().data(), first[i].view().data()) << "word " << i;
        EXPECT_TRUE(std::ranges::equal(again.view(), text_to_graphemes(f.db, *a, direction::ltr, words[i])));
    }
    // Another request, another direction, a text that only starts the same: runs of their own.
    auto const other_font = shape(b, direction::ltr, words[5]);
    EXPECT_NE(other_font.view().data(), first[5].view().data());
    EXPECT_NE(other_font.view()[0].base_glyph.glyph_font_ref, first[5].view()[0].base_glyph.glyph_font_ref);
    auto const brackets = shape(a, direction::ltr, U"()");
    auto const mirrored = shape(a, direction::rtl, U"()");
    EXPECT_EQ(mirrored.view()[0].base_glyph.glyph_source, brackets.view()[1].base_glyph.glyph_source);
    EXPECT_EQ(shape(a, direction::rtl, U"()").view().data(), mirrored.view().data());
    auto const longer = shape(a, direction::ltr, words[30] + U"x");
    EXPECT_EQ(longer.view().size(), words[30].size() + 1);
    // The empty text too is a run of its own.
    EXPECT_TRUE(shape(a, direction::ltr, U"").view().empty());
}

} // namespace
} // namespace vellum::fonts
