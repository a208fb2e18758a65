#include "svg/build.hpp"
#include "svg/file.hpp"

#include "resource/capture_log.hpp"
#include "resource/loader.hpp"

#include <gtest/gtest.h>

namespace vellum::svg::build {
namespace {

// An SVG file's text through the reader that SVG images use: parsed, styled and built.
struct drawn {
    testing::capture_log log;
    std::optional<svg_block> block;
    std::string error;

    explicit drawn(std::string const& text) {
        resource::loader::loader_options opts;
        opts.network = false;
        auto loader = resource::loader::new_loader(log.log, {"/nonexistent-prefix"}, {"/tmp"}, opts);
        auto const reader = file::svg_file_reader(*loader, nullptr);
        auto const url = resource::locator::parse_locator(resource::locator::path_or_url::path_or_url,
                                                          resource::locator::locator_origin::command_line_origin,
                                                          std::nullopt, "/tmp/t.svg");
        auto r = reader(log.log, bytes::from_string(text), url);
        if (r) {
            block = *r->loaded_block;
        } else {
            error = r.error();
        }
    }
};

std::string svg_doc(std::string const& body, std::string const& attrs = "width=\"100\" height=\"100\"") {
    return "<svg xmlns=\"http://www.w3.org/2000/svg\" xmlns:xlink=\"http://www.w3.org/1999/xlink\" " + attrs + ">" +
           body + "</svg>";
}

// The shapes of a drawing in painting order, through groups.
void shapes_of(std::vector<svg> const& nodes, std::vector<shape const*>& out) {
    for (auto const& n : nodes) {
        if (auto const* c = std::get_if<compound>(&n.svgbody)) {
            shapes_of(c->compound_children, out);
        } else if (auto const* s = std::get_if<shape>(&n.svgbody)) {
            out.push_back(s);
        }
    }
}

std::vector<shape const*> shapes(svg_block const& b) {
    std::vector<shape const*> out;
    shapes_of(b.svg_content, out);
    return out;
}

TEST(build, size_from_attributes_and_viewbox) {
    drawn const a(svg_doc("", "width=\"2in\" viewBox=\"0 0 40 20\""));
    ASSERT_TRUE(a.block);
    EXPECT_DOUBLE_EQ(a.block->viewport_width, 192);
    EXPECT_DOUBLE_EQ(a.block->viewport_height, 96);
    EXPECT_EQ(a.block->root_transform, (transform{4.8, 0, 0, 4.8, 0, 0}));
    drawn const b(svg_doc("", "viewBox=\"0 0 40 20\""));
    EXPECT_DOUBLE_EQ(b.block->viewport_width, 40);
    drawn const c(svg_doc("", ""));
    EXPECT_DOUBLE_EQ(c.block->viewport_width, 300);
    EXPECT_DOUBLE_EQ(c.block->viewport_height, 150);
}

TEST(build, not_an_svg_file) {
    EXPECT_FALSE(drawn("<html/>").block);
    drawn const broken("<svg xmlns=\"http://www.w3.org/2000/svg\"><rect</svg>");
    EXPECT_FALSE(broken.block);
}

TEST(build, shape_attribute_checks) {
    drawn const d(svg_doc("<rect width=\"0\" height=\"5\"/><rect width=\"-1\" height=\"5\"/><circle r=\"-2\"/>"
                          "<rect width=\"10\" height=\"10\" rx=\"2\"/><polygon points=\"0 0 10\"/><path/>"));
    ASSERT_TRUE(d.block);
    EXPECT_EQ(d.log.count("svg: rect[@width]: positive length value required."), 1);
    EXPECT_EQ(d.log.count("svg: circle[@r]: positive length value required."), 1);
    EXPECT_EQ(d.log.count("svg: *[@points]: odd number of coordinates."), 1);
    EXPECT_EQ(d.log.count("svg: path: @d required."), 1);
    // Zero width draws nothing and says nothing; rx alone rounds both radii.
    EXPECT_EQ(d.log.count("rect[@height]"), 0);
    auto const s = shapes(*d.block);
    ASSERT_EQ(s.size(), 2u);
    EXPECT_EQ(s[0]->shape_commands.size(), 10u);
}

TEST(build, css_rules_and_presentation_attributes) {
    drawn const d(svg_doc("<style>.a { fill: rgb(0, 0, 255); stroke-width: 4 }</style>"
                          "<g fill=\"red\" stroke=\"black\"><rect class=\"a\" width=\"5\" height=\"5\"/>"
                          "<rect width=\"5\" height=\"5\" style=\"stroke-dasharray: 1 2 3\"/></g>"));
    auto const s = shapes(*d.block);
    ASSERT_EQ(s.size(), 2u);
    EXPECT_EQ(std::get<paint_color>(s[0]->shape_fill).color, (css::color::color{css::color::rgb{0, 0, 1}}));
    EXPECT_EQ(std::get<paint_color>(s[1]->shape_fill).color, (css::color::color{css::color::rgb{1, 0, 0}}));
    EXPECT_TRUE(std::holds_alternative<paint_color>(s[1]->shape_stroke));
}

TEST(build, gradient_href_inherits_stops_and_attributes) {
    drawn const d(svg_doc(
        "<defs><linearGradient id=\"base\" x2=\"0\" y2=\"1\" spreadMethod=\"reflect\">"
        "<stop offset=\"0\" stop-color=\"red\"/><stop offset=\"50%\" stop-color=\"blue\" stop-opacity=\"0.5\"/>"
        "<stop offset=\"0.2\" stop-color=\"lime\"/></linearGradient>"
        "<linearGradient id=\"user\" xlink:href=\"#base\" gradientUnits=\"userSpaceOnUse\" x1=\"10\" "
        "gradientTransform=\"scale(2)\"/></defs>"
        "<rect width=\"50\" height=\"20\" x=\"10\" fill=\"url(#base)\"/><rect width=\"5\" height=\"5\" fill=\"url(#user)\"/>"));
    auto const s = shapes(*d.block);
    ASSERT_EQ(s.size(), 2u);
    auto const& box = *std::get<paint_gradient>(s[0]->shape_fill).gradient;
    // objectBoundingBox: the box's mapping is part of the transform.
    EXPECT_EQ(box.gradient_transform, (transform{50, 0, 0, 20, 10, 0}));
    EXPECT_EQ(box.gradient_type, (std::variant<linear, radial>{linear{0, 0, 0, 1}}));
    EXPECT_EQ(box.gradient_spread, spread_method::reflect);
    ASSERT_EQ(box.gradient_stops.size(), 3u);
    // Offsets never decrease.
    EXPECT_DOUBLE_EQ(box.gradient_stops[2].stop_offset, 0.5);
    EXPECT_DOUBLE_EQ(box.gradient_stops[1].stop_opacity, 0.5);
    auto const& user = *std::get<paint_gradient>(s[1]->shape_fill).gradient;
    EXPECT_EQ(user.gradient_stops, box.gradient_stops);
    EXPECT_EQ(user.gradient_transform, (transform{2, 0, 0, 2, 0, 0}));
    // x1 is its own, x2 and y2 inherited; user units.
    EXPECT_EQ(user.gradient_type, (std::variant<linear, radial>{linear{10, 0, 0, 1}}));
    EXPECT_EQ(user.gradient_spread, spread_method::reflect);
}

TEST(build, gradient_problems) {
    drawn const d(svg_doc(
        "<linearGradient id=\"a\" xlink:href=\"#b\"><stop offset=\"0\"/><stop offset=\"1\"/></linearGradient>"
        "<linearGradient id=\"b\" xlink:href=\"#a\"/>"
        "<radialGradient id=\"c\"><stop stop-color=\"red\"/><stop offset=\"1\"/></radialGradient>"
        "<line x2=\"10\" stroke=\"url(#a)\"/><rect width=\"1\" height=\"1\" fill=\"url(#c)\"/>"
        "<rect width=\"1\" height=\"1\" fill=\"url(#nothing)\"/>"));
    EXPECT_EQ(d.log.count("svg: self reference to ID a"), 1);
    EXPECT_EQ(d.log.count("svg: stop: @offset with number or percentage"), 1);
    EXPECT_EQ(d.log.count("svg: fill: referenced id nothing not found."), 1);
    auto const s = shapes(*d.block);
    ASSERT_EQ(s.size(), 3u);
    // A gradient on a horizontal line's box (no height) paints nothing; one stop paints its colour.
    EXPECT_TRUE(std::holds_alternative<paint_none>(s[0]->shape_stroke));
    EXPECT_TRUE(std::holds_alternative<paint_color>(s[1]->shape_fill));
    EXPECT_TRUE(std::holds_alternative<paint_none>(s[2]->shape_fill));
}

TEST(build, use_symbol_and_self_reference) {
    drawn const d(svg_doc("<symbol id=\"s\" viewBox=\"0 0 10 10\"><rect width=\"10\" height=\"10\"/></symbol>"
                          "<use xlink:href=\"#s\" x=\"5\" y=\"6\" width=\"20\" height=\"20\" fill=\"red\"/>"
                          "<g id=\"loop\"><use xlink:href=\"#loop\"/></g><use href=\"#missing\"/>"));
    ASSERT_TRUE(d.block);
    EXPECT_EQ(d.log.count("svg: self reference to ID loop"), 1);
    EXPECT_EQ(d.log.count("svg: referenced ID missing does not exist."), 1);
    auto const s = shapes(*d.block);
    ASSERT_EQ(s.size(), 1u);
    // The instance inherits from the use.
    EXPECT_EQ(std::get<paint_color>(s[0]->shape_fill).color, (css::color::color{css::color::rgb{1, 0, 0}}));
    auto const& use = d.block->svg_content[0];
    EXPECT_EQ(use.svg_transform, translation(5, 6));
    auto const& symbol = std::get<compound>(use.svgbody).compound_children.at(0);
    EXPECT_EQ(symbol.viewbox_transform, (transform{2, 0, 0, 2, 0, 0}));
    EXPECT_EQ(symbol.viewport_clip, (bbox{0, 0, 20, 20}));
}

TEST(build, conditional_processing) {
    drawn const d(svg_doc("<rect width=\"1\" height=\"1\" requiredFeatures=\"http://www.w3.org/TR/SVG11/feature#Shape\"/>"
                          "<switch><rect width=\"1\" height=\"1\" requiredExtensions=\"x\"/>"
                          "<circle r=\"1\"/><rect width=\"1\" height=\"1\"/></switch>"));
    auto const s = shapes(*d.block);
    ASSERT_EQ(s.size(), 1u);
    EXPECT_EQ(s[0]->shape_commands.size(), 6u);
}

TEST(build, clip_paths) {
    drawn const d(svg_doc("<clipPath id=\"c\" clipPathUnits=\"objectBoundingBox\"><circle cx=\".5\" cy=\".5\" r=\".5\"/>"
                          "<g/></clipPath><rect width=\"10\" height=\"20\" x=\"2\" clip-path=\"url(#c)\"/>"
                          "<rect width=\"1\" height=\"1\" clip-path=\"url(#none)\"/>"));
    EXPECT_EQ(d.log.count("clippath: invalid child element g"), 1);
    EXPECT_EQ(d.log.count("svg: clip_path: referenced id none not found."), 1);
    auto const& cp = d.block->svg_content.at(0).clippath;
    ASSERT_TRUE(cp);
    EXPECT_EQ(cp->clip_matrix, (transform{10, 0, 0, 20, 2, 0}));
    EXPECT_EQ(cp->clip_shapes.size(), 1u);
}

TEST(build, markers_follow_the_vertices) {
    drawn const d(svg_doc("<marker id=\"m\" markerWidth=\"4\" markerHeight=\"4\" orient=\"auto\">"
                          "<rect width=\"2\" height=\"2\"/></marker>"
                          "<polyline points=\"0 0 10 0 10 10\" stroke-width=\"2\" fill=\"none\" marker-start=\"url(#m)\" "
                          "marker-mid=\"url(#m)\" marker-end=\"url(#m)\"/>"));
    auto const& group = std::get<compound>(d.block->svg_content.at(0).svgbody).compound_children;
    // The line, then start, mid and end markers, scaled by the stroke width.
    ASSERT_EQ(group.size(), 4u);
    auto const mid = apply(group[2].svg_transform, {0, 0});
    EXPECT_NEAR(mid.x, 10, 1e-9);
    EXPECT_NEAR(mid.y, 0, 1e-9);
    // At the end the path runs downward: the marker turns a quarter.
    EXPECT_NEAR(group[3].svg_transform.b, 2, 1e-9);
}

TEST(build, circles_start_at_the_right_and_turn_towards_positive_y) {
    // Where dashes and markers of a circle or an ellipse begin, and which way they run.
    drawn const d(svg_doc("<circle cx=\"50\" cy=\"40\" r=\"10\"/><ellipse cx=\"0\" cy=\"0\" rx=\"4\" ry=\"2\"/>"));
    auto const s = shapes(*d.block);
    ASSERT_EQ(s.size(), 2u);
    auto const& c = s[0]->shape_commands;
    ASSERT_GE(c.size(), 3u);
    EXPECT_EQ(std::get<moveto>(c[0]).to, (point{60, 40}));
    EXPECT_EQ(std::get<c_curveto>(c[1]).c_end, (point{50, 50}));
    EXPECT_EQ(std::get<c_curveto>(c[2]).c_end, (point{40, 40}));
    EXPECT_EQ(std::get<moveto>(s[1]->shape_commands[0]).to, (point{4, 0}));
    EXPECT_EQ(std::get<c_curveto>(s[1]->shape_commands[1]).c_end, (point{0, 2}));
}

TEST(build, pattern_tiles_in_box_units_start_at_the_box) {
    drawn const d(svg_doc("<pattern id=\"p\" width=\"0.25\" height=\"0.5\"><rect width=\"1\" height=\"1\"/></pattern>"
                          "<pattern id=\"q\" x=\"0.5\" y=\"10%\" width=\"0.25\" height=\"0.5\"/>"
                          "<rect x=\"10\" y=\"20\" width=\"80\" height=\"40\" fill=\"url(#p)\" stroke=\"url(#q)\"/>"));
    auto const s = shapes(*d.block);
    ASSERT_EQ(s.size(), 1u);
    // No x or y: the tile's corner is the box's.
    auto const& p = *std::get<paint_tiling>(s[0]->shape_fill).tiling;
    EXPECT_DOUBLE_EQ(p.tiling_x, 10);
    EXPECT_DOUBLE_EQ(p.tiling_y, 20);
    EXPECT_DOUBLE_EQ(p.tiling_width, 20);
    EXPECT_DOUBLE_EQ(p.tiling_height, 20);
    auto const& q = *std::get<paint_tiling>(s[0]->shape_stroke).tiling;
    EXPECT_DOUBLE_EQ(q.tiling_x, 50);
    EXPECT_DOUBLE_EQ(q.tiling_y, 24);
}

} // namespace
} // namespace vellum::svg::build
