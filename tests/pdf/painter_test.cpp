// The page painter end to end: packed pages built by hand are painted through the document writer into
// real files, checked with qpdf, rendered with pdftoppm and sampled pixel by pixel; text is checked in
// the content stream, where its font, encoding and position stand.
#include "pdf/bulkio/file.hpp"
#include "pdf/painter.hpp"
#include "pdf/pdf_fonts.hpp"
#include "text/fonts/fonts.hpp"
#include "text/fonts/graphemes.hpp"

#include <array>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <functional>
#include <sstream>

#include "memory_sink.hpp"
#include "run_command.hpp"
#include "test_fonts.hpp"

#include <gtest/gtest.h>

namespace vellum::pdf::painter {
namespace {

using pdf::testing::run;
using rgb = std::array<int, 3>;

constexpr float page_w = 300;
constexpr float page_h = 400;

rgb const white{255, 255, 255};
rgb const red{255, 0, 0};
rgb const blue{0, 0, 255};
rgb const green{0, 128, 0};

vellum::ref<css::style::style> style_with(std::function<void(css::style::style&)> const& change = {}) {
    auto s = *css::style::initial_style();
    if (change) {
        change(s);
    }
    return share(std::move(s));
}

css::used_style::used_style with_background(css::color::color c) {
    return {.used_background_color = c};
}

css::box::borders all_sides(css::box::line_style style, float width, css::color::color c) {
    css::box::borders b;
    b.borders_top = b.borders_right = b.borders_bottom = b.borders_left =
        css::box::border{.border_color = c, .border_style = style, .border_width = width};
    return b;
}

vellum::ref<pack::box> block(float x,
                             float y,
                             float w,
                             float h,
                             css::used_style::used_style used,
                             vellum::ref<css::style::style> style = style_with(),
                             pack::box_content content = pack::boxes{}) {
    return share(pack::box{.box_x = x,
                           .box_y = y,
                           .box_w = w,
                           .box_h = h,
                           .box_content = std::move(content),
                           .box_style = std::move(style),
                           .box_used_style = std::move(used)});
}

pack::packed_page page_of(std::vector<vellum::ref<pack::box>> body) {
    pack::areas::area const paper{.top = page_h, .bottom = 0, .left = 0, .right = page_w};
    return {.mediabox = paper,
            .bleedbox = paper,
            .trimbox = paper,
            .paper_content_area = paper,
            .body_box = {.body_content = std::move(body),
                         .body_box_style = style_with(),
                         .body_pos = {0, page_h},
                         .body_size = {page_w, page_h}}};
}

std::string read_file(std::string const& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// A written and rendered page: its file, its bytes and its pixels at 72 dpi, where a pixel (x, y) of the
// picture is the point (x, page height - y) of the page.
struct rendered {
    std::string path;
    std::string bytes;
    std::string png;

    std::vector<rgb> at(std::vector<std::pair<int, int>> const& points) const {
        std::string list;
        for (auto [x, y] : points) {
            list += "(" + std::to_string(x) + "," + std::to_string(int(page_h) - y) + "),";
        }
        auto const [status, out] =
            run("/usr/bin/python3 -c \"from PIL import Image; im = Image.open('" + png +
                "').convert('RGB')\nfor p in [" + list + "]: print(*im.getpixel(p))\"");
        EXPECT_EQ(status, 0) << out;
        std::vector<rgb> pixels;
        std::istringstream in(out);
        rgb p;
        while (in >> p[0] >> p[1] >> p[2]) {
            pixels.push_back(p);
        }
        EXPECT_EQ(pixels.size(), points.size()) << out;
        return pixels;
    }

    rgb at(int x, int y) const { return at({{x, y}}).at(0); }
};

writepdf::pdf_document document_of(std::vector<pack::packed_page> pages, log::log const& log = {}) {
    writepdf::pdf_document doc;
    doc.doc_options.compress = false;
    std::vector<vellum::ref<pack::packed_page>> shared;
    for (auto& p : pages) {
        shared.push_back(share(std::move(p)));
    }
    add_pages(log, doc, shared, {});
    return doc;
}

rendered render(writepdf::pdf_document const& doc, std::string const& name, log::log const& log = {}) {
    rendered r{.path = ::testing::TempDir() + name + ".pdf", .png = ::testing::TempDir() + name + ".png"};
    std::FILE* file = std::fopen(r.path.c_str(), "wb");
    EXPECT_NE(file, nullptr);
    writepdf::write_pdf_document(log, bulkio::file::file_output(file), doc);
    EXPECT_EQ(std::fclose(file), 0);
    auto const [status, report] = run("qpdf --check " + r.path);
    EXPECT_EQ(status, 0) << report;
    EXPECT_EQ(report.find("WARNING"), std::string::npos) << report;
    auto const [ppm, ppm_out] =
        run("pdftoppm -r 72 -f 1 -l 1 -singlefile -png " + r.path + " " + ::testing::TempDir() + name);
    EXPECT_EQ(ppm, 0) << ppm_out;
    r.bytes = read_file(r.path);
    return r;
}

bool near(rgb const& a, rgb const& b, int tolerance = 8) {
    for (int i = 0; i < 3; ++i) {
        if (std::abs(a[i] - b[i]) > tolerance) {
            return false;
        }
    }
    return true;
}

std::string show(rgb const& p) {
    return "(" + std::to_string(p[0]) + ", " + std::to_string(p[1]) + ", " + std::to_string(p[2]) + ")";
}

#define EXPECT_COLOR(actual, expected) EXPECT_TRUE(near(actual, expected)) << show(actual) << " != " << show(expected)

TEST(painter, backgrounds_and_borders_stand_where_the_boxes_are) {
    auto const r = render(
        document_of({page_of({
            // A red block 60 by 40 from (20, 380) down.
            block(20, 380, 60, 40, with_background(css::color::rgb{1, 0, 0})),
            // A 4-point blue border without a background.
            block(100, 380, 60, 40, {.used_borders = all_sides(css::box::line_style::solid, 4, css::color::rgb{0, 0, 1})}),
            // Rounded corners clip the colour: radius 20 on a 60 by 40 box.
            block(180, 380, 60, 40, [] {
                auto u = with_background(css::color::rgb{0, 0, 1});
                u.used_borders.borders_border_top_left_radius = {20.0f, 20.0f};
                return u;
            }()),
            // A box with a border of zero width and style none paints only its background.
            block(20, 320, 60, 40, [] {
                auto u = with_background(css::color::rgb{0, 0.5f, 0});
                u.used_borders = all_sides(css::box::line_style::none, 6, css::color::rgb{1, 0, 0});
                return u;
            }()),
        })}),
        "painter_boxes");
    // Red inside, white just outside each edge.
    EXPECT_COLOR(r.at(50, 360), red);
    EXPECT_COLOR(r.at(22, 378), red);
    EXPECT_COLOR(r.at(18, 360), white);
    EXPECT_COLOR(r.at(82, 360), white);
    EXPECT_COLOR(r.at(50, 382), white);
    EXPECT_COLOR(r.at(50, 338), white);
    // The border: 4 points of blue along each side, white inside.
    EXPECT_COLOR(r.at(102, 360), blue);
    EXPECT_COLOR(r.at(158, 360), blue);
    EXPECT_COLOR(r.at(130, 378), blue);
    EXPECT_COLOR(r.at(130, 342), blue);
    EXPECT_COLOR(r.at(106, 360), white);
    EXPECT_COLOR(r.at(130, 360), white);
    // The rounded corner leaves its outer corner white; the other corners are square.
    EXPECT_COLOR(r.at(182, 378), white);
    EXPECT_COLOR(r.at(238, 378), blue);
    EXPECT_COLOR(r.at(210, 360), blue);
    EXPECT_COLOR(r.at(182, 342), blue);
    // No red border around the green box.
    EXPECT_COLOR(r.at(22, 318), green);
    EXPECT_COLOR(r.at(17, 300), white);
}

TEST(painter, border_styles_in_pixels) {
    auto const grey = css::color::rgb{0.4f, 0.4f, 0.4f};
    auto const r = render(
        document_of({page_of({
            block(20, 380, 200, 40, {.used_borders = all_sides(css::box::line_style::dashed, 4, css::color::rgb{0, 0.5f, 0})}),
            block(20, 320, 200, 40, {.used_borders = all_sides(css::box::line_style::double_, 9, css::color::rgb{0, 0, 1})}),
            block(20, 260, 200, 40, {.used_borders = all_sides(css::box::line_style::inset, 6, grey)}),
            block(20, 200, 200, 40, {.used_borders = all_sides(css::box::line_style::groove, 8, grey)}),
            block(20, 140, 200, 40, {.used_borders = all_sides(css::box::line_style::dotted, 4, css::color::rgb{1, 0, 0})}),
        })}),
        "painter_border_styles");
    // Along the middle of the dashed top side: green dashes with white gaps, a dash at both ends.
    std::vector<std::pair<int, int>> along;
    for (int x = 21; x < 220; ++x) {
        along.emplace_back(x, 378);
    }
    auto const dashed = r.at(along);
    int dash = 0, gap = 0;
    for (auto const& p : dashed) {
        dash += near(p, green, 40);
        gap += near(p, white);
    }
    EXPECT_GT(dash, 80);
    EXPECT_GT(gap, 50);
    EXPECT_COLOR(dashed.front(), green);
    EXPECT_COLOR(dashed.back(), green);
    // Double: the outer and inner thirds are blue, the middle third white.
    EXPECT_COLOR(r.at(120, 319), blue);
    EXPECT_COLOR(r.at(120, 315), white);
    EXPECT_COLOR(r.at(120, 312), blue);
    // Inset: the top is darker than the bottom.
    auto const top = r.at(120, 257);
    auto const bottom = r.at(120, 223);
    EXPECT_LT(top[0] + 60, bottom[0]) << show(top) << " " << show(bottom);
    // Groove: dark in the outer half of the top, light in the inner half.
    auto const outer = r.at(120, 198);
    auto const inner = r.at(120, 194);
    EXPECT_LT(outer[0] + 60, inner[0]) << show(outer) << " " << show(inner);
    // Dotted: red dots and white gaps along the left side.
    std::vector<std::pair<int, int>> down;
    for (int y = 139; y > 101; --y) {
        down.emplace_back(22, y);
    }
    int dots = 0, gaps = 0;
    for (auto const& p : r.at(down)) {
        dots += near(p, red, 40);
        gaps += near(p, white);
    }
    EXPECT_GT(dots, 10);
    EXPECT_GT(gaps, 10);
}

TEST(painter, clipping_opacity_visibility_and_transforms) {
    auto const hidden_overflow = style_with(
        [](css::style::style& s) { css::style::own_rare_box(s).overflow = css::box::overflow::hidden; });
    // A red child 100 by 60 sticks out of its 60 by 40 parent, which clips it.
    auto const clipped = block(20, 380, 60, 40, {}, hidden_overflow,
                               pack::boxes{{block(10, 390, 100, 60, with_background(css::color::rgb{1, 0, 0}))}});
    auto const translucent =
        block(120, 380, 60, 40, with_background(css::color::rgb{1, 0, 0}),
              style_with([](css::style::style& s) { css::style::own_rare_box(s).opacity = 0.5f; }));
    auto const invisible = block(200, 380, 60, 40, with_background(css::color::rgb{1, 0, 0}), style_with([](css::style::style& s) {
        auto rare = *s.rare_props;
        rare.rare_props_visibility = css::box::visibility::hidden;
        s.rare_props = share(rare);
    }));
    // Moved 100 points right and 50 down; the untransformed place stays white.
    auto const moved = block(
        20, 300, 40, 40, with_background(css::color::rgb{0, 0, 1}), style_with([](css::style::style& s) {
            css::style::own_rare_box(s).transform = {
                css::box::transform_translate<css::box::length_or_percent<float>>{100.0f, 50.0f}};
        }));
    // A quarter turn clockwise about the centre of a 80 by 20 bar makes it 20 wide and 80 high.
    auto const turned = block(
        200, 300, 80, 20, with_background(css::color::rgb{0, 0.5f, 0}), style_with([](css::style::style& s) {
            css::style::own_rare_box(s).transform = {css::box::transform_rotate{float(M_PI / 2)}};
        }));
    auto const r = render(document_of({page_of({clipped, translucent, invisible, moved, turned})}), "painter_effects");
    EXPECT_COLOR(r.at(50, 360), red);
    EXPECT_COLOR(r.at(15, 360), white);
    EXPECT_COLOR(r.at(90, 360), white);
    EXPECT_COLOR(r.at(50, 385), white);
    EXPECT_COLOR(r.at(150, 360), (rgb{255, 128, 128}));
    EXPECT_COLOR(r.at(230, 360), white);
    EXPECT_COLOR(r.at(40, 280), white);
    EXPECT_COLOR(r.at(140, 230), blue);
    EXPECT_COLOR(r.at(240, 320), green);
    EXPECT_COLOR(r.at(240, 260), green);
    EXPECT_COLOR(r.at(205, 290), white);
    EXPECT_NE(r.bytes.find("/ca 0.5000"), std::string::npos);
}

TEST(painter, stacking_order_of_z_index_floats_and_flow) {
    auto const positioned = [](int z) {
        return style_with([z](css::style::style& s) {
            s.bit_props.bit_props_position = css::box::position_kind::relative;
            css::style::own_rare_box(s).z_index = z;
        });
    };
    auto const floated = style_with([](css::style::style& s) { s.float_ = css::box::float_kind::left; });
    // In tree order: a positioned red box under z-index -1, then a green block in flow that overlaps it,
    // then a blue box with z-index 1 that a later in-flow block would cover if order were tree order.
    auto const below = block(20, 380, 60, 60, with_background(css::color::rgb{1, 0, 0}), positioned(-1));
    auto const flow = block(50, 380, 60, 60, with_background(css::color::rgb{0, 0.5f, 0}));
    auto const above = block(120, 380, 60, 60, with_background(css::color::rgb{0, 0, 1}), positioned(1));
    auto const later = block(150, 380, 60, 60, with_background(css::color::rgb{0, 0.5f, 0}));
    // A float paints over the backgrounds of the blocks in flow, even those after it.
    auto const floating = block(20, 280, 40, 40, with_background(css::color::rgb{1, 0, 0}), floated);
    auto const after_float = block(40, 280, 60, 60, with_background(css::color::rgb{0, 0.5f, 0}));
    auto const r = render(document_of({page_of({below, flow, above, later, floating, after_float})}), "painter_stacking");
    EXPECT_COLOR(r.at(65, 350), green);
    EXPECT_COLOR(r.at(30, 350), red);
    EXPECT_COLOR(r.at(160, 350), blue);
    EXPECT_COLOR(r.at(200, 350), green);
    EXPECT_COLOR(r.at(50, 260), red);
    EXPECT_COLOR(r.at(80, 260), green);
}

// ---- Text ------------------------------------------------------------------------------------------------

using pdf::testing::font_fixture;

float width_of(std::vector<fonts::grapheme> const& g, float size) {
    return fonts::graphemes_width(false, false, g, 0, size);
}

TEST(painter, text_runs_in_their_fonts_encoding_with_decorations) {
    font_fixture f;
    auto const hello = f.text("Sans", U"Hello");
    auto const space = f.text("Sans", U" ");
    auto const world = f.text("Sans", U"world");
    auto const cyrillic = f.text("Serif", U"\u0416\u0416");
    int const sans = hello[0].base_glyph.glyph_font_ref->used_font_id;
    int const serif = cyrillic[0].base_glyph.glyph_font_ref->used_font_id;
    ASSERT_NE(sans, serif);

    auto const para_style = style_with([](css::style::style& s) { s.font_size = 20; });
    auto const red_underlined = style_with([](css::style::style& s) {
        s.font_size = 20;
        s.color = css::color::rgb{1, 0, 0};
        auto& lines = css::style::own_rare_box(s);
        lines.text_underline_style = css::text::text_line_style::solid;
        lines.text_underline_color = css::color::rgb{1, 0, 0};
    });
    float x = 20;
    float const hello_w = width_of(hello, 20);
    float const space_w = width_of(space, 20);
    float const world_w = width_of(world, 20);
    font_metrics::font_metrics_scaled const metrics{.up = 18.56f, .down = 4.72f, .underline_thick = 2, .underline_pos = -3.5f};
    pack::linebox line{
        .linebox_x = x,
        .linebox_w = hello_w + space_w + world_w,
        .linebox_base = 350,
        .linebox_content =
            {pack::charsbox{.charsbox_x = x, .charsbox_w = hello_w, .charsbox_content = hello},
             pack::charsbox{.charsbox_x = x + hello_w, .charsbox_w = space_w, .charsbox_content = space,
                            .charsbox_type = pack::glue{2, 1}},
             share(pack::nested_spanbox{.spanbox_x = x + hello_w + space_w,
                                        .spanbox_y = 18.56f,
                                        .spanbox_w = world_w,
                                        .spanbox_h = 23.28f,
                                        .spanbox_content = {pack::charsbox{.charsbox_x = x + hello_w + space_w,
                                                                           .charsbox_w = world_w,
                                                                           .charsbox_content = world}},
                                        .spanbox_style = red_underlined,
                                        .spanbox_font_metrics = metrics})},
        .linebox_font_metrics = metrics,
    };
    pack::linebox second{
        .linebox_x = 20,
        .linebox_base = 300,
        .linebox_content = {pack::charsbox{.charsbox_x = 20, .charsbox_w = 30, .charsbox_content = cyrillic},
                            pack::charsbox{.charsbox_x = 60, .charsbox_content = {}, .charsbox_type = pack::newline{}}},
    };
    auto const para = block(20, 380, 260, 100, {}, para_style, pack::para{{line, second}});
    auto doc = document_of({page_of({para})});
    EXPECT_EQ(doc.used_font_ids, (std::vector<int>{std::min(sans, serif), std::max(sans, serif)}));
    // Whole fonts, so that glyph numbers stay those of the font files.
    doc.doc_options.subset_fonts = false;
    pdf_fonts::attach_fonts(log::log{}, doc, f.db);
    auto const r = render(doc, "painter_text");
    auto const& b = r.bytes;
    auto const text_start = b.find("BT\n");
    ASSERT_NE(text_start, std::string::npos) << b;
    std::string const sans_font = "/F" + std::to_string(sans) + " 20.0000 Tf\n";
    // One font selection and one black for "Hello" and the space, which continue one another.
    EXPECT_NE(b.find(sans_font + "20.0000 350.0000 Td\n(Hello) Tj\n"), std::string::npos) << b;
    EXPECT_NE(b.find("( ) Tj\n"), std::string::npos) << b;
    // "world" in red from where the space ended, still in the same font: no second Tf for it.
    auto const world_at = b.find("(world) Tj");
    ASSERT_NE(world_at, std::string::npos);
    EXPECT_NE(b.rfind("1.0000 0.0000 0.0000 rg\n", world_at), std::string::npos);
    EXPECT_EQ(b.find(sans_font, b.find(sans_font) + 1), std::string::npos) << b;
    // The Cyrillic font shows glyph numbers as two-byte hexadecimal strings.
    auto const glyph = cyrillic[0].base_glyph.glyph_index->get();
    char hex[8];
    std::snprintf(hex, sizeof hex, "%04X", glyph);
    EXPECT_NE(b.find("<" + std::string(hex) + hex + "> Tj"), std::string::npos) << b;
    // The underline is a filled bar under "world", painted before the text.
    auto const bar = b.find("re\nf\n");
    ASSERT_NE(bar, std::string::npos);
    EXPECT_LT(bar, text_start);
    auto const u = r.at(int(x + hello_w + space_w + world_w / 2), 347);
    EXPECT_COLOR(u, red);

    // Readers find the text again through the fonts' encodings and ToUnicode maps.
    auto const [status, text] = run("pdftotext -layout " + r.path + " -");
    EXPECT_EQ(status, 0);
    EXPECT_NE(text.find("Hello world"), std::string::npos) << text;
    EXPECT_NE(text.find("\u0416\u0416"), std::string::npos) << text;
    auto const [fonts_status, fonts_list] = run("pdffonts " + r.path);
    EXPECT_NE(fonts_list.find("DejaVuSans "), std::string::npos) << fonts_list;
    EXPECT_NE(fonts_list.find("DejaVuSerif "), std::string::npos) << fonts_list;
}

TEST(painter, same_colour_runs_write_one_colour_operator) {
    font_fixture f;
    auto const a = f.text("Sans", U"ab");
    auto const style = style_with();
    pack::linebox line{.linebox_base = 100,
                       .linebox_content = {pack::charsbox{.charsbox_x = 10, .charsbox_content = a},
                                           pack::charsbox{.charsbox_x = 50, .charsbox_content = a}}};
    pdf::testing::memory_sink sink;
    content::gs g;
    paint_box(log::log{}, pdf::testing::output_of(sink), g,
              pack::box{.box_content = pack::para{{line}}, .box_style = style}, {});
    auto const& text = sink.sink_bytes;
    // The colour goes out once for both runs; only the positions differ between them.
    auto const colour = text.find("0.0000 0.0000 0.0000 rg\n");
    ASSERT_NE(colour, std::string::npos) << text;
    EXPECT_EQ(text.find(" rg\n", colour + 24), std::string::npos) << text;
    EXPECT_NE(text.find("10.0000 100.0000 Td\n(ab) Tj\n40.0000 0.0000 Td\n(ab) Tj\nET\n"), std::string::npos) << text;
}

TEST(painter, margin_boxes_links_and_destinations) {
    auto linked = style_with([](css::style::style& s) {
        css::style::own_rare_props(s).rare_props_link =
            css::semantics::link_url{{.url_text = "http://example.org/"}};
    });
    auto const to_intro = style_with([](css::style::style& s) {
        css::style::own_rare_props(s).rare_props_link = css::semantics::link_url{{.url_text = "#intro"}};
    });
    auto target = block(20, 300, 100, 20, {});
    prepack::element_stuff stuff;
    stuff.given_ids = std::pair{resource::locator::locator{}, std::vector<prepack::target_id>{{"intro"}}};
    auto with_id = *target;
    with_id.box_type = prepack::type_original{share(stuff)};
    // A link box whose child inherits the same link: one link only.
    auto const link_box = block(20, 380, 100, 20, {}, linked, pack::boxes{{block(30, 375, 10, 10, {}, linked)}});
    auto page = page_of({link_box, share(with_id), block(20, 250, 50, 10, {}, to_intro)});
    page.margin_boxes.push_back({.margin_content = block(0, 400, 300, 20, with_background(css::color::rgb{0, 0, 1})),
                                 .margin_box_style = style_with(),
                                 .margin_box_used_style = {.used_borders = all_sides(css::box::line_style::solid, 2,
                                                                                     css::color::rgb{1, 0, 0})},
                                 .margin_pos = {0, 400},
                                 .margin_size = {300, 30}});
    auto const links = page_links(page);
    ASSERT_EQ(links.size(), 2u);
    EXPECT_EQ(links[0].link_url, "http://example.org/");
    EXPECT_EQ(links[0].link_area, (pack::areas::area{.top = 380, .bottom = 360, .left = 20, .right = 120}));
    EXPECT_EQ(links[1].link_url, "#intro");

    auto const doc = document_of({page});
    ASSERT_EQ(doc.destinations.size(), 1u);
    EXPECT_EQ(doc.destinations[0].first, "intro");
    auto const r = render(doc, "painter_margins");
    EXPECT_NE(r.bytes.find("/URI (http://example.org/)"), std::string::npos);
    EXPECT_NE(r.bytes.find("/Dest (intro)"), std::string::npos) << r.bytes;
    EXPECT_NE(r.bytes.find("/Names [(intro) [3 0 R /XYZ 20.0000 300 null]]"), std::string::npos);
    // The margin box's content is blue, its border red.
    EXPECT_COLOR(r.at(150, 390), blue);
    EXPECT_COLOR(r.at(150, 371), red);
}

TEST(painter, page_scaling_rotation_and_marks) {
    auto page = page_of({block(0, 800, 200, 200, with_background(css::color::rgb{1, 0, 0}))});
    // The body was laid out at twice the size; it is shrunk onto the page.
    page.scaled = 2;
    page.marks = css::page::marks::crop;
    page.mark_length = 20;
    page.mark_offset = 5;
    page.trimbox = {.top = 380, .bottom = 20, .left = 20, .right = 280};
    auto const r = render(document_of({page}), "painter_scaled");
    EXPECT_COLOR(r.at(50, 350), red);
    EXPECT_COLOR(r.at(110, 350), white);
    EXPECT_NE(r.bytes.find("0.5000 0.0000 0.0000 0.5000 0.0000 0.0000 cm\n"), std::string::npos);
    // Crop marks run outward from the trim box's corners, in the registration colour.
    EXPECT_NE(r.bytes.find("1.0000 1.0000 1.0000 1.0000 K\n"), std::string::npos);
    EXPECT_NE(r.bytes.find("20.0000 15.0000 m\n20.0000 -5.0000 l\n"), std::string::npos) << r.bytes;
    EXPECT_NE(r.bytes.find("/TrimBox [20.0000 20.0000 280.0000 380.0000]"), std::string::npos);

    auto zero = page;
    zero.scaled = 0;
    EXPECT_THROW(render(document_of({zero}), "painter_zero"), internal_error);
}

} // namespace
} // namespace vellum::pdf::painter
