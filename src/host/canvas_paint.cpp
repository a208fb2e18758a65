#include "host/canvas_paint.hpp"

#include "css/compute_style.hpp"
#include "css/parser.hpp"
#include "document/dom.hpp"
#include "css/property.hpp"
#include "image/images.hpp"
#include "text/fonts/fonts.hpp"
#include "text/fonts/graphemes.hpp"
#include "text/fonts/query.hpp"
#include "text/unicode/bidi.hpp"
#include "util/textbuf.hpp"

#include <algorithm>
#include <cmath>

namespace vellum::canvas {

namespace {

using svg::point;
using svg::transform;

// Far enough to stand for "everywhere" around a canvas: the outer edge of the area that a clear keeps.
constexpr double far_away = 1e6;

std::optional<css::property::property> font_property(std::string_view text) {
    auto const v = css::parser::parse_value("", text);
    if (!v) {
        return std::nullopt;
    }
    return css::property::parse_declaration(css::propnames::prop_name::prop_font, *v);
}

// A node that shows `inner` only within the clips in force (they intersect), each in canvas pixels.
svg::svg clipped(svg::svg inner, std::vector<canvas_clip> const& clips) {
    if (clips.empty()) {
        return inner;
    }
    ref<svg::clippath> chain;
    for (auto const& c : clips) {
        chain = share(svg::clippath{
            .clip_shapes = {svg::clip_shape{.clip_rule = c.clip_rule, .clip_commands = path_commands(c.clip_path)}},
            .clip_parent = chain});
    }
    return svg::svg{.clippath = chain, .svgbody = svg::compound{{std::move(inner)}}};
}

// Everything drawn so far, kept outside a quadrilateral: the area inside shows the canvas' background
// again, as PDF has no way to erase.
void erase(std::vector<svg::svg>& out, point const (&corners)[4]) {
    if (out.empty()) {
        return;
    }
    std::vector<svg::command> ring{svg::rect{{-far_away, -far_away}, {2 * far_away, 2 * far_away}},
                                   svg::moveto{corners[0]}};
    for (int i = 1; i < 4; ++i) {
        ring.push_back(svg::lineto{corners[i]});
    }
    ring.push_back(svg::closepath{});
    auto clip = share(svg::clippath{.clip_shapes = {svg::clip_shape{.clip_rule = css::svgstyle::fill_rule::evenodd,
                                                                     .clip_commands = std::move(ring)}}});
    svg::svg kept{.clippath = std::move(clip), .svgbody = svg::compound{std::move(out)}};
    out.clear();
    out.push_back(std::move(kept));
}

struct painter {
    log::log const& log;
    paint_env const& env;
    /// While a copied canvas is painted, the style of the canvas element it came from.
    ref<css::style::style> source_style;

    // A picture at its own size in its own pixels: the content, and its width and height.
    struct picture {
        std::vector<svg::svg> picture_nodes;
        double picture_width = 0;
        double picture_height = 0;
    };

    std::optional<picture> picture_of(canvas_image_ele const& ele) {
        return std::visit(
            overloaded{
                [&](image_ele_image const& im) -> std::optional<picture> {
                    if (!env.paint_images) {
                        log::log_warning_once(log, "canvas: images are not loaded in this run; drawImage is left out");
                        return std::nullopt;
                    }
                    auto const id = env.paint_images->get_image_id(log, im.image_url);
                    if (!id) {
                        return std::nullopt;
                    }
                    if (auto const* nested = std::get_if<images::svg_image>(&(*id)->image_source)) {
                        auto const& b = *nested->svg_image_block;
                        return picture{.picture_nodes = {svg::svg{.svg_transform = b.root_transform,
                                                                  .svgbody = svg::compound{b.svg_content}}},
                                       .picture_width = b.viewport_width,
                                       .picture_height = b.viewport_height};
                    }
                    double const iw = (*id)->image_info.image_width;
                    double const ih = (*id)->image_info.image_height;
                    if (iw <= 0 || ih <= 0) {
                        return std::nullopt;
                    }
                    // The image's unit square, its first row at the top, onto its pixels.
                    return picture{.picture_nodes = {svg::svg{.svgbody = svg::image{
                                                                  .image_content = *id,
                                                                  .image_placement = transform{iw, 0, 0, -ih, 0, ih},
                                                                  .image_viewport = {0, 0, iw, ih}}}},
                                   .picture_width = iw,
                                   .picture_height = ih};
                },
                [&](image_ele_canvas const& c) -> std::optional<picture> {
                    // Text in the copy takes its relative font sizes from the canvas it was drawn on, when
                    // that element has been styled.
                    auto const saved = source_style;
                    if (auto const el = c.source_element.lock()) {
                        auto const info = el->dom_element_style_info.get();
                        if (std::holds_alternative<dom::style_info_set>(info)) {
                            source_style = dom::get_style_info(info).style_info_style;
                        }
                    }
                    auto content = c.source_content ? nodes(*c.source_content) : std::vector<svg::svg>{};
                    source_style = saved;
                    return picture{.picture_nodes = std::move(content),
                                   .picture_width = double(c.source_width),
                                   .picture_height = double(c.source_height)};
                },
            },
            ele);
    }

    // A pattern as a tiling of its picture; a direction that doesn't repeat gets a step far beyond
    // the canvas, so that one copy shows.
    svg::used_paint pattern_paint(canvas_pattern const& p) {
        auto pic = picture_of(p.pattern_source);
        if (!pic || pic->picture_width <= 0 || pic->picture_height <= 0) {
            return svg::paint_none{};
        }
        bool const rx = p.pattern_repetition == repetition::repeat || p.pattern_repetition == repetition::repeat_x;
        bool const ry = p.pattern_repetition == repetition::repeat || p.pattern_repetition == repetition::repeat_y;
        svg::svg_block tile{.svg_content = std::move(pic->picture_nodes),
                            .viewport_width = pic->picture_width,
                            .viewport_height = pic->picture_height};
        return svg::paint_tiling{share(svg::svg_tiling{.tiling_width = rx ? pic->picture_width : far_away,
                                                       .tiling_height = ry ? pic->picture_height : far_away,
                                                       .tiling_transform = p.pattern_transform,
                                                       .tiling_content = share(std::move(tile))})};
    }

    svg::svg shape_node(thing_svg const& t) {
        auto node = t.thing_svg_value;
        if (auto* sh = std::get_if<svg::shape>(&node.svgbody)) {
            if (t.thing_fill_pattern) {
                sh->shape_fill = pattern_paint(*t.thing_fill_pattern);
            }
            if (t.thing_stroke_pattern) {
                sh->shape_stroke = pattern_paint(*t.thing_stroke_pattern);
            }
        }
        return clipped(std::move(node), t.thing_svg_clip);
    }

    // The element's style with the context's font over it; the element's own font when the text is no
    // longer valid.
    ref<css::style::style> text_style(std::string const& font) {
        auto base = source_style              ? source_style
                    : env.paint_element_style ? env.paint_element_style
                                              : css::style::initial_style();
        auto const prop = font_property(font);
        if (!prop) {
            return base;
        }
        return share(css::compute_style::compute_style(base, css::compute_style::anonymous_context{}, {*prop}));
    }

    // The glyphs of a line of canvas text from left to right: the text's direction is that of its first
    // strong character, and each run of one embedding level is shaped in its direction and placed
    // where the bidi reordering puts it, so that Hebrew and Arabic read right to left among Latin words
    // and numbers.
    std::vector<fonts::grapheme> visual_glyphs(fonts::font_req const& req, std::u32string const& text) {
        namespace bd = unicode::bidi;
        auto const levels = bd::levels_of(text, bd::first_strong_rtl(text, 0));
        struct level_run {
            std::size_t from;
            std::size_t to;
        };
        std::vector<level_run> runs;
        std::vector<int> run_levels;
        for (std::size_t i = 0; i < text.size(); ++i) {
            if (runs.empty() || run_levels.back() != levels[i]) {
                runs.push_back({i, i});
                run_levels.push_back(levels[i]);
            }
            runs.back().to = i + 1;
        }
        std::vector<fonts::grapheme> out;
        for (std::size_t r : bd::visual_order(run_levels)) {
            bool const rtl = run_levels[r] % 2 != 0;
            auto glyphs = fonts::text_to_graphemes(*env.paint_fonts, req,
                                                   rtl ? fonts::direction::rtl : fonts::direction::ltr,
                                                   std::u32string_view(text).substr(runs[r].from, runs[r].to - runs[r].from));
            if (rtl) {
                // Shaping keeps the logical order; a right-to-left run is laid out from its last grapheme.
                std::ranges::reverse(glyphs);
            }
            out.insert(out.end(), std::make_move_iterator(glyphs.begin()), std::make_move_iterator(glyphs.end()));
        }
        return out;
    }

    std::optional<svg::svg> text_node(canvas_text const& t) {
        if (!env.paint_fonts) {
            log::log_warning_once(log, "canvas: no fonts in this run; canvas text is left out");
            return std::nullopt;
        }
        if (t.canvas_text_content.empty()) {
            return std::nullopt;
        }
        auto const style = text_style(t.canvas_text_font);
        // The canvas counts in CSS pixels, the style in points.
        double const size = style->font_size / 0.75;
        auto const req = fonts::get_font_req(*env.paint_fonts, fonts::query::query_of(*style->font_props));
        // Line breaks and tabs are spaces in canvas text.
        auto chars = t.canvas_text_content;
        std::replace_if(chars.begin(), chars.end(), [](char c) { return c == '\n' || c == '\r' || c == '\t' || c == '\f'; }, ' ');
        auto glyphs = visual_glyphs(*req, textbuf::from_utf8(chars));
        double width = 0;
        for (auto const& gr : glyphs) {
            width += (gr.base_glyph.glyph_hori_advance + gr.grapheme_kerning.value_or(0)) * size;
        }
        auto const metrics = fonts::graphemes_metrics(glyphs, size);
        double x = t.canvas_text_pos.x;
        double y = t.canvas_text_pos.y;
        double scale = 1;
        if (t.canvas_text_max_width && width > *t.canvas_text_max_width && width > 0) {
            scale = std::max(0.0, *t.canvas_text_max_width) / width;
        }
        switch (t.canvas_text_align) {
        case text_align::start:
        case text_align::left:
            break;
        case text_align::end:
        case text_align::right:
            x -= width * scale;
            break;
        case text_align::center:
            x -= width * scale / 2;
            break;
        }
        switch (t.canvas_text_baseline) {
        case text_baseline::alphabetic:
            break;
        case text_baseline::top:
            y += metrics.up;
            break;
        case text_baseline::hanging:
            y += metrics.up * 0.8;
            break;
        case text_baseline::middle:
            y += (metrics.up - metrics.down) / 2;
            break;
        case text_baseline::ideographic:
        case text_baseline::bottom:
            y -= metrics.down;
            break;
        }
        auto const paint = paint_of(t.canvas_text_style);
        bool const stroked = t.canvas_text_draw == draw::stroke;
        if (std::holds_alternative<style_pattern>(t.canvas_text_style)) {
            log::log_warning_once(log, "canvas: text with a pattern style is not painted yet; it is left out");
        }
        if (std::holds_alternative<style_gradient>(t.canvas_text_style)) {
            log::log_warning_once(log, "canvas: text with a gradient style is painted in its first colour");
        }
        svg::text body{.text_runs = {svg::text_run{.run_glyphs = fonts::shared_graphemes(std::move(glyphs)),
                                                   .run_fill = stroked ? svg::used_paint{svg::paint_none{}} : paint,
                                                   .run_stroke = stroked ? paint : svg::used_paint{svg::paint_none{}},
                                                   .run_stroke_width = stroked ? t.canvas_text_svgstyle.stroke_width : 0,
                                                   .run_style = style,
                                                   .run_font_size = size,
                                                   .run_width = width}}};
        svg::svg node{.svgstyle = t.canvas_text_svgstyle,
                      .svg_transform = svg::then(svg::then(svg::scaling(scale, 1), svg::translation(x, y)),
                                                 t.canvas_text_transform),
                      .svgbody = std::move(body)};
        return clipped(std::move(node), t.canvas_text_clip);
    }

    std::optional<svg::svg> image_node(thing_image const& t) {
        auto const& im = t.thing_image_value;
        auto pic = picture_of(im.canvas_image_ele);
        if (!pic || pic->picture_width <= 0 || pic->picture_height <= 0) {
            return std::nullopt;
        }
        auto const src = std::visit(overloaded{
                                        [&](whole_image const&) {
                                            return partial_image{0, 0, pic->picture_width, pic->picture_height};
                                        },
                                        [](partial_image const& p) { return p; },
                                    },
                                    im.source_rect);
        if (src.sw == 0 || src.sh == 0) {
            return std::nullopt;
        }
        double const dw = im.dw.value_or(src.sw);
        double const dh = im.dh.value_or(src.sh);
        if (dw == 0 || dh == 0) {
            return std::nullopt;
        }
        double const kx = dw / src.sw;
        double const ky = dh / src.sh;
        // The picture's pixels onto the destination, the source rectangle landing on it exactly.
        transform const place{kx, 0, 0, ky, im.dx - src.sx * kx, im.dy - src.sy * ky};
        svg::svg node{.svgstyle = t.thing_image_svgstyle,
                      .svg_transform = t.thing_image_transform,
                      .viewbox_transform = place,
                      .viewport_clip = svg::bbox{std::min(im.dx, im.dx + dw), std::min(im.dy, im.dy + dh),
                                                 std::max(im.dx, im.dx + dw), std::max(im.dy, im.dy + dh)},
                      .svgbody = svg::compound{std::move(pic->picture_nodes)}};
        return clipped(std::move(node), t.thing_image_clip);
    }

    // Image data replaces what lay under it, transparent pixels included: the area is cleared first.
    void put_image_data(std::vector<svg::svg>& out, canvas_image_data const& d) {
        int const x0 = std::clamp(d.dirty_x, 0, d.data_width);
        int const y0 = std::clamp(d.dirty_y, 0, d.data_height);
        int const x1 = std::clamp(d.dirty_x + d.dirty_w, 0, d.data_width);
        int const y1 = std::clamp(d.dirty_y + d.dirty_h, 0, d.data_height);
        if (x1 <= x0 || y1 <= y0) {
            return;
        }
        if (!env.paint_images) {
            log::log_warning_once(log, "canvas: images are not loaded in this run; putImageData is left out");
            return;
        }
        int const w = x1 - x0;
        int const h = y1 - y0;
        auto const px = d.data_content.view();
        std::vector<std::uint8_t> rows(static_cast<std::size_t>(w) * h * 4);
        for (int y = 0; y < h; ++y) {
            std::size_t const from = (static_cast<std::size_t>(y0 + y) * d.data_width + x0) * 4;
            if (from + static_cast<std::size_t>(w) * 4 <= px.size()) {
                std::copy_n(px.data() + from, static_cast<std::size_t>(w) * 4, rows.data() + static_cast<std::size_t>(y) * w * 4);
            }
        }
        double const left = d.data_dx + x0;
        double const top = d.data_dy + y0;
        point const corners[4] = {{left, top}, {left + w, top}, {left + w, top + h}, {left, top + h}};
        erase(out, corners);
        auto const id = env.paint_images->add_rgba(w, h, bytes::from_vector(std::move(rows)));
        out.push_back(svg::svg{.svgbody = svg::image{.image_content = id,
                                                     .image_placement = transform{double(w), 0, 0, -double(h), left, top + h},
                                                     .image_viewport = {left, top, left + w, top + h}}});
    }

    std::vector<svg::svg> nodes(std::vector<canvas_thing> const& content) {
        std::vector<svg::svg> out;
        for (auto const& thing : content) {
            std::visit(overloaded{
                           [&](thing_svg const& t) { out.push_back(shape_node(t)); },
                           [&](thing_text const& t) {
                               if (auto n = text_node(t.thing_text_value)) {
                                   out.push_back(std::move(*n));
                               }
                           },
                           [&](thing_image const& t) {
                               if (auto n = image_node(t)) {
                                   out.push_back(std::move(*n));
                               }
                           },
                           [&](thing_put_image_data const& t) { put_image_data(out, t.thing_data_value); },
                           [&](thing_clear_rect const& t) { erase(out, t.clear_corners); },
                       },
                       thing);
        }
        return out;
    }
};

} // namespace

svg::svg_block canvas_block(log::log const& log, int width, int height, std::vector<canvas_thing> const& content,
                            paint_env const& env) {
    painter p{log, env};
    svg::svg_block block{.viewport_width = double(width), .viewport_height = double(height), .viewport_sized = true};
    auto drawn = p.nodes(content);
    if (!drawn.empty()) {
        // Nothing shows outside the canvas.
        block.svg_content.push_back(svg::svg{.viewport_clip = svg::bbox{0, 0, double(width), double(height)},
                                             .svgbody = svg::compound{std::move(drawn)}});
    }
    return block;
}

bool valid_font(std::string_view text) {
    return font_property(text).has_value();
}

} // namespace vellum::canvas
