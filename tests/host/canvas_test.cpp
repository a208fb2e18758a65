// Canvas: the recorder on its own (transforms applied when points are recorded, the state stack, arcTo,
// clips), the drawing handed to box generation, and the script objects (styles read back, SVGMatrix).
#include "document/dom.hpp"
#include "host/canvas.hpp"
#include "host/canvas_paint.hpp"
#include "host/canvas_record.hpp"
#include "host/domjs.hpp"
#include "host/hostjs.hpp"
#include "js/convert.hpp"
#include "js/object.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <numbers>
#include <string>

namespace vellum::canvas {
namespace {

using svg::point;

void near_point(point a, point b) {
    EXPECT_NEAR(a.x, b.x, 1e-9);
    EXPECT_NEAR(a.y, b.y, 1e-9);
}

// The point a command ends at.
point end_of(svg::command const& c) {
    return std::visit(overloaded{
                          [](svg::moveto const& m) { return m.to; },
                          [](svg::lineto const& l) { return l.to; },
                          [](svg::rect const& r) { return r.corner; },
                          [](svg::c_curveto const& c) { return c.c_end; },
                          [](svg::arc const& a) {
                              double const t = a.arc_start + a.arc_sweep;
                              return point{a.ellipse_center.x + a.arc_rx * std::cos(t), a.ellipse_center.y + a.arc_ry * std::sin(t)};
                          },
                          [](svg::closepath const&) { return point{}; },
                      },
                      c);
}

TEST(canvas_record, points_are_transformed_when_recorded) {
    auto ctx = new_context(300, 150);
    apply(ctx, transform_op{svg::translation(10, 20)});
    apply(ctx, command_op{svg::moveto{{0, 0}}});
    apply(ctx, command_op{svg::lineto{{5, 0}}});
    // A later transform moves only what comes after it.
    apply(ctx, transform_op{svg::scaling(2, 2)});
    apply(ctx, command_op{svg::lineto{{5, 5}}});
    ASSERT_TRUE(ctx.subpath.has_value());
    auto const& cmds = ctx.subpath->commands;
    ASSERT_EQ(cmds.size(), 3u);
    near_point(end_of(cmds[0]), {10, 20});
    near_point(end_of(cmds[1]), {15, 20});
    near_point(end_of(cmds[2]), {20, 30});
    // A rectangle under rotation is a polygon of its transformed corners.
    apply(ctx, set_transform_op{{0, 1, -1, 0, 0, 0}});
    apply(ctx, command_op{svg::rect{{0, 0}, {10, 20}}});
    ASSERT_FALSE(ctx.path.empty());
    auto const& r = ctx.path.back().commands;
    ASSERT_EQ(r.size(), 5u);
    near_point(end_of(r[1]), {0, 10});
    near_point(end_of(r[2]), {-20, 10});
}

TEST(canvas_record, fill_keeps_the_user_space_of_the_moment) {
    auto ctx = new_context(300, 150);
    apply(ctx, transform_op{svg::scaling(2, 3)});
    apply(ctx, line_width_op{4});
    apply(ctx, command_op{svg::moveto{{1, 1}}});
    apply(ctx, command_op{svg::lineto{{10, 1}}});
    apply(ctx, draw_op{draw::stroke});
    ASSERT_EQ(ctx.content.size(), 1u);
    auto const& item = std::get<thing_svg>(ctx.content[0]).thing_svg_value;
    // The stroke is drawn in the scaled space, so its width scales with it, and the path is given back in
    // that space.
    EXPECT_EQ(item.svg_transform, svg::scaling(2, 3));
    EXPECT_EQ(item.svgstyle.stroke_width, 4);
    auto const& sh = std::get<svg::shape>(item.svgbody);
    near_point(end_of(sh.shape_commands[1]), {10, 1});
    EXPECT_TRUE(std::holds_alternative<svg::paint_none>(sh.shape_fill));
}

TEST(canvas_record, save_and_restore) {
    auto ctx = new_context(300, 150);
    // A restore with nothing saved changes nothing, and drawing goes on.
    apply(ctx, line_width_op{3});
    apply(ctx, restore_op{});
    EXPECT_EQ(ctx.state.svgstyle.stroke_width, 3);
    apply(ctx, draw_rect_op{0, 0, 10, 10, draw::fill});
    EXPECT_EQ(ctx.content.size(), 1u);

    apply(ctx, save_op{});
    apply(ctx, fill_style_op{style_color{css::color::rgb{1, 0, 0}}});
    apply(ctx, transform_op{svg::translation(5, 5)});
    apply(ctx, font_op{"bold 20px serif"});
    apply(ctx, restore_op{});
    EXPECT_EQ(color_text(std::get<style_color>(ctx.state.fill_style).style_color_value), "#000000");
    EXPECT_EQ(ctx.state.transform, svg::transform{});
    EXPECT_EQ(ctx.state.font, "10px sans-serif");
    // The path is not part of the state.
    apply(ctx, command_op{svg::moveto{{1, 1}}});
    apply(ctx, save_op{});
    apply(ctx, command_op{svg::lineto{{2, 2}}});
    apply(ctx, restore_op{});
    EXPECT_EQ(ctx.subpath->commands.size(), 2u);
}

TEST(canvas_record, arc_to_meets_both_tangents) {
    auto ctx = new_context(300, 150);
    apply(ctx, command_op{svg::moveto{{0, 0}}});
    apply(ctx, arc_to_op{{100, 0}, {100, 100}, 50});
    auto const& cmds = ctx.subpath->commands;
    ASSERT_EQ(cmds.size(), 3u);
    // A line to the first tangent point, then a quarter turn around (50, 50) to the second.
    near_point(end_of(cmds[1]), {50, 0});
    auto const& a = std::get<svg::arc>(cmds[2]);
    near_point(a.ellipse_center, {50, 50});
    EXPECT_NEAR(a.arc_rx, 50, 1e-9);
    EXPECT_NEAR(a.arc_sweep, std::numbers::pi / 2, 1e-9);
    near_point(ctx.subpath->end_point, {100, 50});

    // Points in a line give a straight line to the corner point.
    apply(ctx, arc_to_op{{100, 150}, {100, 200}, 10});
    near_point(end_of(ctx.subpath->commands.back()), {100, 150});
    // A scale that is not uniform turns the arc into curves that still end on the tangent.
    auto skewed = new_context(300, 150);
    apply(skewed, transform_op{svg::scaling(2, 1)});
    apply(skewed, command_op{svg::moveto{{0, 0}}});
    apply(skewed, arc_to_op{{100, 0}, {100, 100}, 50});
    EXPECT_TRUE(std::holds_alternative<svg::c_curveto>(skewed.subpath->commands.back()));
    near_point(skewed.subpath->end_point, {200, 50});
}

TEST(canvas_record, arcs_sweep_the_way_asked) {
    double const pi = std::numbers::pi;
    struct case_ {
        char const* name;
        double start, end;
        bool anticlockwise;
        double sweep;
    } const cases[] = {
        {"quarter clockwise", 0, pi / 2, false, pi / 2},
        {"quarter anticlockwise is the long way", 0, pi / 2, true, -3 * pi / 2},
        {"more than a turn is a turn", 0, 7, false, 2 * pi},
        {"backwards clockwise wraps", pi, 0, false, pi},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_NEAR(canvas_arc({0, 0}, 1, 1, 0, c.start, c.end, c.anticlockwise).arc_sweep, c.sweep, 1e-9);
    }
}

TEST(canvas_record, clips_follow_the_state) {
    auto ctx = new_context(300, 150);
    apply(ctx, command_op{svg::rect{{0, 0}, {50, 50}}});
    apply(ctx, save_op{});
    apply(ctx, clip_op{});
    apply(ctx, begin_path_op{});
    apply(ctx, command_op{svg::rect{{25, 25}, {50, 50}}});
    apply(ctx, clip_op{css::svgstyle::fill_rule::evenodd});
    apply(ctx, draw_rect_op{0, 0, 100, 100, draw::fill});
    apply(ctx, restore_op{});
    apply(ctx, draw_rect_op{0, 0, 100, 100, draw::fill});
    apply(ctx, clip_op{});
    apply(ctx, reset_clip_op{});
    apply(ctx, draw_rect_op{0, 0, 100, 100, draw::fill});
    ASSERT_EQ(ctx.content.size(), 3u);
    auto const& clipped = std::get<thing_svg>(ctx.content[0]).thing_svg_clip;
    ASSERT_EQ(clipped.size(), 2u);
    EXPECT_EQ(clipped[1].clip_rule, css::svgstyle::fill_rule::evenodd);
    EXPECT_TRUE(std::get<thing_svg>(ctx.content[1]).thing_svg_clip.empty());
    EXPECT_TRUE(std::get<thing_svg>(ctx.content[2]).thing_svg_clip.empty());

    // Painted, the two clips of the first item nest: the later one inside, the earlier its parent.
    std::FILE* f = std::tmpfile();
    log::log log{.log_stderr = log::console_log::console_log{.progname = "vellum", .console_out = f}};
    auto const block = canvas_block(log, 300, 150, ctx.content, paint_env{});
    std::fclose(f);
    ASSERT_EQ(block.svg_content.size(), 1u);
    auto const& all = std::get<svg::compound>(block.svg_content[0].svgbody).compound_children;
    ASSERT_EQ(all.size(), 3u);
    ASSERT_TRUE(all[0].clippath);
    EXPECT_EQ(all[0].clippath->clip_shapes[0].clip_rule, css::svgstyle::fill_rule::evenodd);
    ASSERT_TRUE(all[0].clippath->clip_parent);
    EXPECT_FALSE(all[0].clippath->clip_parent->clip_parent);
    EXPECT_FALSE(all[1].clippath);
}

TEST(canvas_paint, clear_rect_keeps_earlier_drawing_outside_it) {
    auto ctx = new_context(100, 100);
    apply(ctx, draw_rect_op{0, 0, 100, 100, draw::fill});
    apply(ctx, clear_rect_op{10, 10, 20, 20});
    apply(ctx, draw_rect_op{15, 15, 5, 5, draw::fill});
    auto const block = canvas_block(log::log{}, 100, 100, ctx.content, paint_env{});
    auto const& all = std::get<svg::compound>(block.svg_content[0].svgbody).compound_children;
    // What came before the clear sits inside a clip that leaves the cleared square out; what came after
    // is drawn over it.
    ASSERT_EQ(all.size(), 2u);
    ASSERT_TRUE(all[0].clippath);
    auto const& ring = all[0].clippath->clip_shapes[0];
    EXPECT_EQ(ring.clip_rule, css::svgstyle::fill_rule::evenodd);
    near_point(end_of(ring.clip_commands[2]), {30, 10});
    EXPECT_FALSE(all[1].clippath);
    EXPECT_TRUE(std::holds_alternative<svg::shape>(all[1].svgbody));
}

TEST(canvas_record, colours_read_back) {
    struct case_ {
        css::color::color c;
        char const* text;
    } const cases[] = {
        {css::color::rgb{1, 0, 0}, "#ff0000"},
        {css::color::rgba{0, 0.5f, 1, 1}, "#0080ff"},
        {css::color::rgba{0, 0, 1, 0.5f}, "rgba(0, 0, 255, 0.500000)"},
        {css::color::transparent{}, "rgba(0, 0, 0, 0)"},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.text);
        EXPECT_EQ(color_text(c.c), c.text);
    }
}

TEST(canvas_record, dash_lists) {
    EXPECT_EQ(dash_list({5, 10, 15}), (std::vector<double>{5, 10, 15, 5, 10, 15}));
    EXPECT_EQ(dash_list({}), std::vector<double>{});
    EXPECT_FALSE(dash_list({5, -1}));
}

// ---- Script objects -------------------------------------------------------------------------------------

namespace e = js::eval;
using e::js_value;

struct script_fixture {
    std::FILE* log_file = std::tmpfile();
    log::log log{.log_verbosity = log::verbosity::debug,
                 .log_stderr = log::console_log::console_log{.progname = "vellum", .console_out = log_file}};
    std::shared_ptr<hostjs::host_js> host = hostjs::make_host(log, nullptr, hostjs::host_settings{});
    e::js& engine = *host->js;

    ~script_fixture() { std::fclose(log_file); }

    /// The completion value of a script as a string, or "threw: " and the thrown value's message.
    std::string run(std::string const& source) {
        auto r = hostjs::eval_global(*host, resource::locator::resolve_locator({}, "about:test"), jsstring::from_utf8(source));
        if (auto const* x = std::get_if<e::exception>(&r)) {
            js_value v = x->exception_value;
            if (auto const* o = std::get_if<e::js_object>(&v)) {
                v = std::get<js_value>(e::get(engine, *o, e::key_of_utf8("message")));
            }
            return "threw: " + jsstring::to_utf8(std::get<e::js_string>(e::to_string(engine, v)));
        }
        return jsstring::to_utf8(std::get<e::js_string>(e::to_string(engine, std::get<js_value>(r))));
    }

    std::string logged() {
        std::fflush(log_file);
        std::rewind(log_file);
        std::string out;
        char buf[512];
        while (std::fgets(buf, sizeof buf, log_file) != nullptr) {
            out += buf;
        }
        return out;
    }
};

TEST(canvas_script, svg_matrix) {
    script_fixture f;
    struct case_ {
        char const* script;
        char const* result;
    } const cases[] = {
        {"var m = new SVGMatrix(2, 0, 0, 4, 10, 20); var i = m.inverse(); [i.a, i.d, i.e, i.f].join()", "0.5,0.25,-5,-5"},
        {"var p = new SVGMatrix(1, 0, 0, 1, 5, 0).multiply(new SVGMatrix(2, 0, 0, 2, 0, 0)); [p.a, p.e].join()", "2,5"},
        {"var t = new SVGMatrix(2, 0, 0, 2, 0, 0).translate(3, 4); [t.e, t.f].join()", "6,8"},
        {"var r = new SVGMatrix(1, 0, 0, 1, 0, 0).rotate(90); [Math.round(r.b), Math.round(r.c)].join()", "1,-1"},
        {"var s = new SVGMatrix(1, 0, 0, 1, 0, 0).flipX().scaleNonUniform(2, 3); [s.a, s.d].join()", "-2,3"},
        {"var k = new SVGMatrix(1, 0, 0, 1, 0, 0); k.e = 7; k.e", "7"},
        {"new SVGMatrix(1, 2, 2, 4, 0, 0).inverse()", "threw: matrix is not invertible"},
        {"new SVGMatrix(1, 0, 0, 1, 0, 0).rotateFromVector(0, 1)", "threw: invalid value"},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.script);
        EXPECT_EQ(f.run(c.script), c.result);
    }
}

TEST(canvas_script, context_styles_and_unsupported_members) {
    script_fixture f;
    auto el = dom::new_element(nullptr, xml::make_name(xml::xmlns_xhtml{}, "canvas"), {});
    auto const ctx = get_context(f.engine, *el, "2d");
    EXPECT_EQ(ctx, get_context(f.engine, *el, "2d"));
    EXPECT_TRUE(std::holds_alternative<e::js_null>(get_context(f.engine, *el, "webgl")));
    e::define_value(f.engine.global_object, "ctx", ctx);
    struct case_ {
        char const* script;
        char const* result;
    } const cases[] = {
        {"ctx.fillStyle", "#000000"},
        {"ctx.fillStyle = 'rgba(255, 0, 0, 0.25)'; ctx.fillStyle", "rgba(255, 0, 0, 0.250000)"},
        {"ctx.fillStyle = 'no colour'; ctx.fillStyle", "rgba(255, 0, 0, 0.250000)"},
        {"var g = ctx.createLinearGradient(0, 0, 10, 0); g.addColorStop(0, 'red'); ctx.fillStyle = g;"
         "ctx.fillStyle = ctx.fillStyle; ctx.fillStyle === g",
         "true"},
        {"ctx.lineWidth = -1; ctx.lineWidth = 'x'; ctx.lineWidth", "1"},
        {"ctx.setLineDash([1, 2, 3]); ctx.getLineDash().join()", "1,2,3,1,2,3"},
        {"ctx.font = 'bold 12px serif'; ctx.font = 'nonsense'; ctx.font", "bold 12px serif"},
        {"ctx.textAlign = 'center'; ctx.textAlign = 'middle'; ctx.textAlign", "center"},
        {"var d = ctx.createImageData(2, 1); d.data[0] = 300; d.data[1] = -5; d.data[2] = 1.5;"
         "[d.width, d.data.length, d.data[0], d.data[1], d.data[2]].join()",
         "2,8,255,0,2"},
        {"ctx.shadowBlue = 3; ctx.shadowColor = 'red'; ctx.measureText('x'); ctx.globalCompositeOperation = 'copy';"
         "ctx.shadowBlue",
         "0"},
        {"ctx.arc(0, 0, -1, 0, 1)", "threw: arc: negative radius"},
        {"ctx.fillRect(0, 0, 10, 10); ctx.fillRect(0, 0, NaN, 10); ctx.save(); ctx.restore(); ctx.restore();", "undefined"},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.script);
        EXPECT_EQ(f.run(c.script), c.result);
    }
    auto const log = f.logged();
    for (char const* m : {"canvas shadowBlur is not yet supported", "canvas shadowColor is not yet supported",
                          "canvas measureText is not yet supported",
                          "canvas globalCompositeOperation is not yet supported"}) {
        EXPECT_NE(log.find(m), std::string::npos) << m;
    }
    // The recording has the one rectangle with finite numbers; the gradient fill read its stops then.
    auto const recorder = el->dom_element_canvas_context->get().context_2d;
    ASSERT_TRUE(recorder);
    ASSERT_EQ(recorder->content.size(), 1u);
    auto const& sh = std::get<svg::shape>(std::get<thing_svg>(recorder->content[0]).thing_svg_value.svgbody);
    EXPECT_TRUE(std::holds_alternative<svg::paint_gradient>(sh.shape_fill));
    // Setting the size starts the drawing again but keeps the object.
    reset_context(*el);
    EXPECT_TRUE(el->dom_element_canvas_context->get().context_2d->content.empty());
    EXPECT_EQ(ctx, get_context(f.engine, *el, "2d"));
}

TEST(canvas_script, text_keeps_its_style_as_it_was_drawn) {
    script_fixture f;
    auto el = dom::new_element(nullptr, xml::make_name(xml::xmlns_xhtml{}, "canvas"), {});
    e::define_value(f.engine.global_object, "ctx", get_context(f.engine, *el, "2d"));
    EXPECT_EQ(f.run("var g = ctx.createRadialGradient(0, 0, 5, 0, 0, 50); g.addColorStop(0, 'red');"
                    "ctx.fillStyle = g; ctx.font = 'italic 20px serif'; ctx.textAlign = 'end';"
                    "ctx.fillText('a', 10, 20, 100); ctx.strokeText('b', 0, 0); g.addColorStop(1, 'blue');"
                    "ctx.fillText('c', 0, 0, NaN);"),
              "undefined");
    auto const drawn = el->dom_element_canvas_context->get().context_2d->content;
    ASSERT_EQ(drawn.size(), 2u);
    auto const& a = std::get<thing_text>(drawn[0]).thing_text_value;
    EXPECT_EQ(a.canvas_text_font, "italic 20px serif");
    EXPECT_EQ(a.canvas_text_align, text_align::end);
    EXPECT_EQ(a.canvas_text_max_width, 100);
    auto const& g = std::get<style_gradient>(a.canvas_text_style).style_gradient_value;
    EXPECT_EQ(g->gradient_stops.size(), 1u);
    EXPECT_EQ(std::get<svg::radial>(g->gradient_geometry).fr, 5);
    auto const& b = std::get<thing_text>(drawn[1]).thing_text_value;
    EXPECT_EQ(b.canvas_text_draw, draw::stroke);
    EXPECT_EQ(color_text(std::get<style_color>(b.canvas_text_style).style_color_value), "#000000");
}

TEST(canvas_script, draw_image_copies_the_source_canvas_at_the_call) {
    script_fixture f;
    auto const name = xml::make_name(xml::xmlns_xhtml{}, "canvas");
    auto a = dom::new_element(nullptr, name, {{xml::make_name("width"), "50"}, {xml::make_name("height"), "40"}});
    auto b = dom::new_element(nullptr, name, {});
    e::define_value(f.engine.global_object, "a", domjs::wrap_node(f.engine, a));
    e::define_value(f.engine.global_object, "b", domjs::wrap_node(f.engine, b));
    EXPECT_EQ(f.run("var ca = a.getContext('2d'), cb = b.getContext('2d');"
                    "ca.fillStyle = 'red'; ca.fillRect(0, 0, 50, 40);"
                    "cb.drawImage(a, 10, 10); cb.drawImage(a, 0, 0, 5, 5, 0, 0, 10, 10);"
                    "ca.fillStyle = 'blue'; ca.fillRect(0, 0, 50, 40); ca.clearRect(0, 0, 1, 1);"
                    "cb.drawImage(1, 2, 3)"),
              "threw: drawImage: not an image or canvas");
    auto const drawn = b->dom_element_canvas_context->get().context_2d->content;
    ASSERT_EQ(drawn.size(), 2u);
    auto const& first = std::get<thing_image>(drawn[0]).thing_image_value;
    auto const& copy = std::get<image_ele_canvas>(first.canvas_image_ele);
    EXPECT_EQ(copy.source_width, 50);
    EXPECT_EQ(copy.source_height, 40);
    // The copy has the red rectangle only, though the source went on drawing.
    ASSERT_EQ(copy.source_content->size(), 1u);
    auto const& sh = std::get<svg::shape>(std::get<thing_svg>((*copy.source_content)[0]).thing_svg_value.svgbody);
    EXPECT_EQ(sh.shape_fill, (svg::used_paint{svg::paint_color{css::color::rgb{1, 0, 0}}}));
    EXPECT_EQ(a->dom_element_canvas_context->get().context_2d->content.size(), 3u);
    // The whole picture at its own size, and a part of it scaled.
    EXPECT_FALSE(first.dw.has_value());
    EXPECT_EQ(first.dx, 10);
    auto const& second = std::get<thing_image>(drawn[1]).thing_image_value;
    EXPECT_EQ(second.source_rect, (source_rect{partial_image{0, 0, 5, 5}}));
    EXPECT_EQ(second.dw, 10);
}

} // namespace
} // namespace vellum::canvas
