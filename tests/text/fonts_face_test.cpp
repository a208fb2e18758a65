#include "css/parser.hpp"
#include "font_test_util.hpp"
#include "text/fonts/font_face.hpp"
#include "text/fonts/fonts.hpp"
#include "text/fonts/scan.hpp"

#include <fstream>
#include <sstream>

#include <gtest/gtest.h>

namespace vellum::fonts {
namespace {

using font_test::captured_log;
namespace locator = resource::locator;

locator::locator sheet_locator() {
    return {.locator_url = locator::file{{"style/fonts.css"}, std::nullopt},
            .locator_origin = locator::locator_origin::system_origin};
}

std::vector<result<font_face::font_face>> read_sheet(std::string const& text) {
    captured_log log;
    auto const no_fetch = [](css::value::url const&) -> result<css::parser::fetched_sheet> {
        return fail("no");
    };
    auto const env = css::parser::parse_style_sheet(log.log, no_fetch, css::origin::program,
                                                    "style/fonts.css", text, css::parser::new_env("print"));
    std::vector<result<font_face::font_face>> out;
    for (auto const& decls : env.fonts) {
        out.push_back(font_face::read_font_face(decls, font_face::system_resolver(sheet_locator())));
    }
    return out;
}

TEST(fonts_face, reads_descriptors_and_sources) {
    auto const faces = read_sheet(
        "@font-face { font-family: Big  Shoulders; font-weight: 600; font-style: oblique; font-stretch: "
        "expanded;"
        "  font-variant: small-caps; unicode-range: U+0-7F, U+4??;"
        "  src: url(a.woff) format(\"woff\"), local(\"Some Face\"), local(Other Face), vellum-lookup(serif),"
        "       bogus(x), url(\"/abs/b.ttf\"); }\n"
        "@font-face { font-family: \"Plain\"; src: url(p.ttf); font-weight: 350; font-style: sideways; }\n"
        "@font-face { src: url(nofamily.ttf); }\n"
        "@font-face { font-family: NoSource; src: bogus(1); }\n");
    ASSERT_EQ(faces.size(), 4u);
    ASSERT_TRUE(faces[0]) << faces[0].error();
    auto const& f = *faces[0];
    EXPECT_EQ(f.face_family, "Big Shoulders");
    EXPECT_EQ(f.face_weight, truetype::truetype_weight::weight_600);
    EXPECT_EQ(f.face_style, match::font_style::oblique);
    EXPECT_EQ(f.face_width, truetype::truetype_width::expanded);
    EXPECT_EQ(f.face_variant, match::font_variant::small_caps);
    EXPECT_EQ(f.face_range, (unicode::range::unicode_range{{0, 0x7F}, {0x400, 0x4FF}}));
    ASSERT_EQ(f.face_srcs.size(), 5u);
    auto const* a = std::get_if<font_face::src_url>(&f.face_srcs[0]);
    ASSERT_TRUE(a);
    EXPECT_EQ(locator::locator_to_string(a->url_locator), "style/a.woff");
    EXPECT_EQ(a->url_locator.locator_origin, locator::locator_origin::system_origin);
    EXPECT_EQ(f.face_srcs[1], font_face::font_src(font_face::src_local{"Some Face"}));
    EXPECT_EQ(f.face_srcs[2], font_face::font_src(font_face::src_local{"Other Face"}));
    EXPECT_EQ(f.face_srcs[3], font_face::font_src(font_face::src_lookup{"serif"}));
    EXPECT_EQ(locator::locator_to_string(std::get<font_face::src_url>(f.face_srcs[4]).url_locator),
              "/abs/b.ttf");

    // Values a face cannot use leave the defaults.
    ASSERT_TRUE(faces[1]);
    EXPECT_EQ(faces[1]->face_weight, truetype::truetype_weight::normal);
    EXPECT_EQ(faces[1]->face_style, match::font_style::normal);
    EXPECT_EQ(faces[1]->face_range, std::nullopt);

    ASSERT_FALSE(faces[2]);
    EXPECT_EQ(faces[2].error(), "@font-face: no font-family");
    ASSERT_FALSE(faces[3]);
    EXPECT_EQ(faces[3].error(), "@font-face: no usable src for \"NoSource\"");
}

TEST(fonts_face, format_hints_pass_over_files_that_cannot_be_read) {
    auto const faces = read_sheet(
        "@font-face { font-family: H; src: url(a.woff2) format(\"woff2\"), url(b.woff) format(\"woff\"),"
        " url(c.svg#x) format(\"svg\"), url(d.eot) format(\"embedded-opentype\"), url(e.ttf) "
        "format(truetype),"
        " url(f.otf) format(\"opentype\", \"woff2\"), url(g.ttc) format(collection), url(h.bin); }\n"
        "@font-face { font-family: Only2; src: url(x.woff2) format(\"woff2\"); }\n");
    ASSERT_EQ(faces.size(), 2u);
    ASSERT_TRUE(faces[0]) << faces[0].error();
    std::vector<std::string> names;
    for (auto const& src : faces[0]->face_srcs) {
        names.push_back(locator::locator_to_string(std::get<font_face::src_url>(src).url_locator));
    }
    EXPECT_EQ(names, (std::vector<std::string>{"style/b.woff", "style/e.ttf", "style/f.otf", "style/g.ttc",
                                               "style/h.bin"}));
    // A rule left with no readable source says so.
    ASSERT_FALSE(faces[1]);
    EXPECT_EQ(faces[1].error(), "@font-face: no usable src for \"Only2\"");
}

// A document's rules, read after the program's, come first for the same family, and their URLs
// resolve against the sheet that holds them.
TEST(fonts_face, document_rules_come_before_the_programs_and_resolve_against_their_sheet) {
    captured_log log;
    resource::loader::loader_options opts;
    opts.network = false;
    auto const loader = resource::loader::new_loader(log.log, {"/nonexistent-prefix"}, {"/tmp"}, opts);
    ASSERT_TRUE(loader);
    auto db = new_fonts(*loader, log.log, false);
    ASSERT_TRUE(db);
    add_font_face_sheet(*db,
                        "@font-face { font-family: Shared; src: url(\"" + font_test::dejavu +
                            "DejaVuSans.ttf\") }\n"
                            "@font-face { font-family: serif; src: url(\"" +
                            font_test::dejavu + "DejaVuSerif.ttf\") }\n",
                        "style/fonts.css", font_face::system_resolver(sheet_locator()));
    auto const req = get_font_req(*db, {.query_families = {"Shared"}});
    EXPECT_EQ(describe_font(char_to_glyph(*db, *req, U'a').raw_glyph_font_ref), "DejaVu Sans Book");

    // The document's sheet lies beside the font files; its rule names the file by a relative URL.
    std::string const sheet_url = "file://" + font_test::dejavu + "doc.css";
    auto const no_fetch = [](css::value::url const&) -> result<css::parser::fetched_sheet> {
        return fail("no");
    };
    auto const env =
        css::parser::parse_style_sheet(log.log, no_fetch, css::origin::author, sheet_url,
                                       "@font-face { font-family: shared; src: url(DejaVuSansMono.ttf) }\n"
                                       "@font-face { font-family: Broken; src: bogus(1) }\n",
                                       css::parser::new_env("print"));
    std::vector<std::string> bases;
    add_font_face_rules(*db, env.fonts, "doc.html", [&](std::string const& text, std::string const& base) {
        bases.push_back(base);
        auto const at = locator::parse_locator(locator::path_or_url::url_strict,
                                               locator::locator_origin::document_origin, std::nullopt, base);
        return locator::resolve_locator(at, text);
    });
    EXPECT_EQ(bases, std::vector<std::string>{sheet_url});
    // The request made before the document's rules is made again, and sees them.
    auto const again = get_font_req(*db, {.query_families = {"Shared"}});
    EXPECT_EQ(describe_font(char_to_glyph(*db, *again, U'a').raw_glyph_font_ref), "DejaVu Sans Mono Book");
    EXPECT_NE(log.text().find("doc.html: warning: @font-face: no usable src for \"Broken\""),
              std::string::npos)
        << log.text();
}

// The program's own fonts.css, read as the engine reads it, against the installed faces.
TEST(fonts_face, the_programs_font_sheet_maps_generic_and_common_families) {
    captured_log log;
    resource::loader::loader_options opts;
    opts.network = false;
    auto const loader =
        resource::loader::new_loader(log.log, {VELLUM_SOURCE_DIR "/resources"}, {"/tmp"}, opts);
    ASSERT_TRUE(loader);
    auto db = new_fonts(*loader, log.log, false);
    ASSERT_TRUE(db);
    std::ifstream in(VELLUM_SOURCE_DIR "/resources/style/fonts.css");
    std::stringstream text;
    text << in.rdbuf();
    add_font_face_sheet(*db, text.str(), "style/fonts.css", font_face::system_resolver(sheet_locator()));

    struct row {
        std::string family;
        truetype::truetype_weight weight;
        match::font_style style;
        char32_t c;
        std::string expected;
    } const rows[] = {
        {"serif", truetype::truetype_weight::normal, match::font_style::normal, U'a',
         "Liberation Serif Regular"},
        {"serif", truetype::truetype_weight::bold, match::font_style::italic, U'a',
         "Liberation Serif Bold Italic"},
        {"sans-serif", truetype::truetype_weight::normal, match::font_style::normal, U'a',
         "Liberation Sans Regular"},
        {"monospace", truetype::truetype_weight::bold, match::font_style::normal, U'a',
         "Liberation Mono Bold"},
        {"Times New Roman", truetype::truetype_weight::normal, match::font_style::normal, U'a',
         "Liberation Serif Regular"},
        // Georgian is not in Liberation Serif: the serif family hands it on to DejaVu.
        {"serif", truetype::truetype_weight::normal, match::font_style::normal, U'\u10D0',
         "DejaVu Serif Book"},
        {"no such family", truetype::truetype_weight::normal, match::font_style::normal, U'a',
         "Liberation Serif Regular"},
        // Scripts beyond the Latin faces reach a face of their own through the generic families.
        {"serif", truetype::truetype_weight::normal, match::font_style::normal, U'\u0915',
         "Noto Serif Devanagari Regular"},
        {"sans-serif", truetype::truetype_weight::bold, match::font_style::normal, U'\u0E01',
         "Noto Sans Thai Bold"},
        {"serif", truetype::truetype_weight::normal, match::font_style::normal, U'\u0628',
         "Noto Naskh Arabic Regular"},
        {"Arial", truetype::truetype_weight::normal, match::font_style::normal, U'\u05D0',
         "Liberation Sans Regular"},
        {"serif", truetype::truetype_weight::normal, match::font_style::normal, U'\u65E5',
         "Noto Serif CJK JP Regular"},
        {"sans-serif", truetype::truetype_weight::bold, match::font_style::normal, U'\uD55C',
         "Noto Sans CJK JP Bold"},
    };

    for (auto const& r : rows) {
        SCOPED_TRACE(r.family);
        auto const req = get_font_req(
            *db, {.query_families = {r.family}, .query_style = r.style, .query_weight = r.weight});
        EXPECT_EQ(describe_font(char_to_glyph(*db, *req, r.c).raw_glyph_font_ref), r.expected);
    }
    EXPECT_EQ(log.text().find("warning"), std::string::npos) << log.text();
}

TEST(fonts_scan, unicode_range_comment_and_escapes) {
    EXPECT_EQ(scan::unicode_ranges_comment(std::nullopt), "/* UnicodeRange: No OS/2 table */\n");
    EXPECT_EQ(scan::unicode_ranges_comment(std::array<std::uint32_t, 4>{~0u, ~0u, ~0u, ~0u}),
              "/* UnicodeRange: All */\n");
    EXPECT_EQ(scan::unicode_ranges_comment(std::array<std::uint32_t, 4>{0x3, 0, 0, 0x04000000}),
              "/* UnicodeRange:\n    Basic Latin\n    Latin-1 Supplement\n    Domino Tiles\n*/\n");
    EXPECT_EQ(scan::unicode_range_name(57), "Non-Plane 0");
    EXPECT_EQ(scan::unicode_range_name(123), std::nullopt);
    EXPECT_EQ(scan::css_escape("a \"b\" c"), "a \\\"b\\\" c");
}

} // namespace
} // namespace vellum::fonts
