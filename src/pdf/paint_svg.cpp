#include "pdf/paint_svg.hpp"

#include "image/images.hpp"
#include "pdf/content.hpp"
#include "pdf/paint_color.hpp"
#include "pdf/paint_text.hpp"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <map>

namespace vellum::pdf::paint_svg {

namespace {

using svg::transform;

bool append_to_string(void* target, std::uint8_t const* data, std::size_t size) {
    static_cast<std::string*>(target)->append(reinterpret_cast<char const*>(data), size);
    return true;
}

array numbers(std::initializer_list<double> values) {
    array a;
    for (double v : values) {
        a.array_items.emplace_back(v);
    }
    return a;
}

matrix::matrix to_matrix(transform const& t) {
    return {static_cast<float>(t.a), static_cast<float>(t.b), static_cast<float>(t.c),
            static_cast<float>(t.d), static_cast<float>(t.e), static_cast<float>(t.f)};
}

array matrix_array(transform const& t) {
    return numbers({t.a, t.b, t.c, t.d, t.e, t.f});
}

// One content stream being made (the drawing's form, a transparency group, a pattern tile) with the
// objects that only it names.
struct scope {
    std::string body;
    content::gs g;
    std::map<std::string, ref> own_xobjects;
    std::map<std::string, ref> own_patterns;
    /// Graphics states with soft masks, written as objects of their own.
    std::map<std::string, ref> own_ext_gs;

    content::out out() { return content::out{append_to_string, &body}; }
};

// The device colour of a CSS colour, and its own alpha; transparent paints nothing.
std::optional<paint_color::paint> device(css::color::color const& c) {
    return paint_color::paint_of(c);
}

// A colour as RGB, for the colour ramps of gradients, which must share one device space.
color::rgb as_rgb(css::color::color const& c) {
    auto const p = device(c);
    if (!p) {
        return {0, 0, 0};
    }
    return std::visit(overloaded{
                          [](color::rgb const& v) { return v; },
                          [](color::cmyk const& v) {
                              return color::rgb{(1 - v.c) * (1 - v.k), (1 - v.m) * (1 - v.k), (1 - v.y) * (1 - v.k)};
                          },
                          [](color::gray const& v) {
                              double const l = std::holds_alternative<double>(v.level) ? std::get<double>(v.level)
                                                                                       : double(std::get<std::int64_t>(v.level));
                              return color::rgb{l, l, l};
                          },
                          [](color::pattern const&) { return color::rgb{0, 0, 0}; },
                          [](color::separation const&) { return color::rgb{0, 0, 0}; },
                      },
                      p->paint_color);
}

struct painter {
    log::log const& log;
    writer& w;
    page_objects::page_objects& objects;
    bool compress;
    int next_name = 1;

    std::string fresh_name(std::string_view prefix) { return std::string(prefix) + std::to_string(next_name++); }

    dict resources_of(scope& s) {
        dict res;
        auto const& used = s.g.used;
        if (!used.xobject_resources.empty()) {
            dict xo;
            for (auto const& n : used.xobject_resources) {
                if (auto f = s.own_xobjects.find(n); f != s.own_xobjects.end()) {
                    xo.dict_entries.emplace_back(n, f->second);
                } else if (auto r = objects.ref_of(w, page_objects::resource_kind::xobject, n)) {
                    xo.dict_entries.emplace_back(n, *r);
                } else {
                    throw internal_error("missing image: " + n);
                }
            }
            res.dict_entries.emplace_back("XObject", std::move(xo));
        }
        if (!used.font_resources.empty()) {
            dict fonts;
            for (int id : used.font_resources) {
                auto const f = objects.font_refs.find(id);
                if (f == objects.font_refs.end()) {
                    throw internal_error("missing font: " + std::to_string(id));
                }
                fonts.dict_entries.emplace_back("F" + std::to_string(id), f->second);
            }
            res.dict_entries.emplace_back("Font", std::move(fonts));
        }
        if (!used.pattern_resources.empty()) {
            dict pats;
            for (auto const& n : used.pattern_resources) {
                auto f = s.own_patterns.find(n);
                if (f == s.own_patterns.end()) {
                    throw internal_error("missing pattern: " + n);
                }
                pats.dict_entries.emplace_back(n, f->second);
            }
            res.dict_entries.emplace_back("Pattern", std::move(pats));
        }
        if (!used.ext_gs_list.resources_on_this_page.empty() || !s.own_ext_gs.empty()) {
            dict gs;
            for (auto const& [gs_name, r] : s.own_ext_gs) {
                gs.dict_entries.emplace_back(gs_name, r);
            }
            for (auto const& [gs_name, params] : used.ext_gs_list.resources_on_this_page) {
                dict d{{{"Type", name{"ExtGState"}}}};
                for (auto const& p : params) {
                    if (auto const* a = std::get_if<content::alpha_fill>(&p)) {
                        d.dict_entries.emplace_back("ca", a->value);
                    } else if (auto const* a = std::get_if<content::alpha_stroke>(&p)) {
                        d.dict_entries.emplace_back("CA", a->value);
                    } else if (auto const* op = std::get_if<content::overprint>(&p)) {
                        d.dict_entries.emplace_back("OP", op->value);
                        d.dict_entries.emplace_back("op", op->value);
                    } else if (auto const* m = std::get_if<content::overprint_mode>(&p)) {
                        d.dict_entries.emplace_back("OPM", std::int64_t{m->value});
                    }
                }
                gs.dict_entries.emplace_back(gs_name, std::move(d));
            }
            res.dict_entries.emplace_back("ExtGState", std::move(gs));
        }
        if (!used.color_resources.empty()) {
            dict cs;
            for (auto const& n : used.color_resources) {
                if (auto r = objects.ref_of(w, page_objects::resource_kind::colorspace, n)) {
                    cs.dict_entries.emplace_back(n, *r);
                }
            }
            res.dict_entries.emplace_back("ColorSpace", std::move(cs));
        }
        return res;
    }

    void write_stream(ref r, dict params, std::string const& body) {
        write_stream_bytes(w, r, compress ? stream_filter::deflate : stream_filter::as_is, std::move(params),
                           {reinterpret_cast<std::uint8_t const*>(body.data()), body.size()});
    }

    // ---- paths ----

    void emit_path(scope& s, std::vector<svg::command> const& cmds, transform const& t) {
        auto const o = s.out();
        bool const plain = t == transform{};
        auto pt = [&](svg::point p) { return svg::apply(t, p); };
        auto curve = [&](svg::c_curveto const& c) {
            auto const a = pt(c.control1);
            auto const b = pt(c.control2);
            auto const e = pt(c.c_end);
            content::curve(o, s.g, a.x, a.y, b.x, b.y, e.x, e.y);
        };
        for (auto const& cmd : cmds) {
            std::visit(overloaded{
                           [&](svg::moveto const& m) {
                               auto const p = pt(m.to);
                               content::move(o, s.g, p.x, p.y);
                           },
                           [&](svg::lineto const& l) {
                               auto const p = pt(l.to);
                               content::line(o, s.g, p.x, p.y);
                           },
                           [&](svg::rect const& r) {
                               if (plain) {
                                   content::rect(o, s.g, r.corner.x, r.corner.y, r.size.x, r.size.y);
                                   return;
                               }
                               svg::point const c[4] = {r.corner,
                                                        {r.corner.x + r.size.x, r.corner.y},
                                                        {r.corner.x + r.size.x, r.corner.y + r.size.y},
                                                        {r.corner.x, r.corner.y + r.size.y}};
                               auto const p0 = pt(c[0]);
                               content::move(o, s.g, p0.x, p0.y);
                               for (int i = 1; i < 4; ++i) {
                                   auto const p = pt(c[i]);
                                   content::line(o, s.g, p.x, p.y);
                               }
                               content::close(o);
                           },
                           [&](svg::c_curveto const& c) { curve(c); },
                           [&](svg::arc const& a) {
                               for (auto const& c : svg::arc_to_curves(a)) {
                                   curve(c);
                               }
                           },
                           [&](svg::closepath const&) { content::close(o); },
                       },
                       cmd);
        }
    }

    void apply_clip(scope& s, svg::clippath const& cp) {
        auto const o = s.out();
        if (cp.clip_parent) {
            apply_clip(s, *cp.clip_parent);
        }
        if (cp.clip_shapes.empty()) {
            // An empty clip path hides everything.
            content::rect(o, s.g, 0, 0, 0, 0);
            content::clip(o);
            content::end_path(o);
            return;
        }
        if (cp.clip_shapes.size() > 1 && !s.g.strip_transparency) {
            // A clip path is the union of its shapes, each inside by its own rule. One path clips with
            // one rule for all, so shapes wound in opposite directions would cancel where they overlap
            // and a ring's hole would stay open: the shapes are painted white as a soft mask instead.
            svg::mask m;
            m.mask_region = svg::bbox{-1e5, -1e5, 1e5, 1e5};
            for (auto const& shape : cp.clip_shapes) {
                svg::svg node{.svgbody = svg::shape{.shape_fill = svg::paint_color{css::color::rgb{1, 1, 1}},
                                                    .shape_stroke = svg::paint_none{},
                                                    .shape_commands = shape.clip_commands}};
                node.svgstyle.fill_rule = shape.clip_rule;
                node.svg_transform = svg::then(shape.clip_shape_transform, cp.clip_matrix);
                m.mask_content.push_back(std::move(node));
            }
            apply_mask(s, m);
            return;
        }
        // Where the page may not use transparency, the shapes clip as one path.
        bool even_odd = cp.clip_shapes.size() == 1 && cp.clip_shapes[0].clip_rule == css::svgstyle::fill_rule::evenodd;
        for (auto const& shape : cp.clip_shapes) {
            emit_path(s, shape.clip_commands, svg::then(shape.clip_shape_transform, cp.clip_matrix));
        }
        even_odd ? content::clip_even_odd(o) : content::clip(o);
        content::end_path(o);
    }

    // ---- paint servers ----

    // A shading pattern for a gradient, placed by the transform in force (`ctm`, relative to the start of
    // the scope's stream) and the bounding box of what it paints, for the repeating spread methods.
    std::string gradient_pattern(scope& s, svg::gradient const& g, transform const& ctm, std::optional<svg::bbox> box) {
        std::vector<page_objects::ramp_stop> stops;
        for (auto const& st : g.gradient_stops) {
            stops.push_back({st.stop_offset, as_rgb(st.stop_color)});
        }
        std::vector<double> coords;
        bool const radial = std::holds_alternative<svg::radial>(g.gradient_type);
        // How far the gradient must reach: the corners of the painted box in gradient space.
        std::vector<svg::point> corners;
        if (box) {
            if (auto inv = svg::invert(g.gradient_transform)) {
                for (auto p : {svg::point{box->x0, box->y0}, svg::point{box->x1, box->y0}, svg::point{box->x0, box->y1},
                               svg::point{box->x1, box->y1}}) {
                    corners.push_back(svg::apply(*inv, p));
                }
            }
        }
        double lo = 0;
        double hi = 1;
        if (g.gradient_spread != svg::spread_method::pad && !corners.empty()) {
            if (auto const* l = std::get_if<svg::linear>(&g.gradient_type)) {
                double const dx = l->x2 - l->x1;
                double const dy = l->y2 - l->y1;
                double const len2 = dx * dx + dy * dy;
                if (len2 > 0) {
                    lo = hi = 0;
                    for (auto const& c : corners) {
                        double const t = ((c.x - l->x1) * dx + (c.y - l->y1) * dy) / len2;
                        lo = std::min(lo, t);
                        hi = std::max(hi, t);
                    }
                }
            } else {
                auto const& r = std::get<svg::radial>(g.gradient_type);
                if (r.fx == r.cx && r.fy == r.cy && r.r > 0) {
                    for (auto const& c : corners) {
                        hi = std::max(hi, std::hypot(c.x - r.cx, c.y - r.cy) / r.r);
                    }
                }
            }
            lo = std::floor(lo);
            hi = std::ceil(hi);
            // A bound on the copies keeps a tiny gradient over a huge shape reasonable.
            lo = std::max(lo, -32.0);
            hi = std::min(hi, 32.0);
        }
        if (lo != 0 || hi != 1) {
            std::vector<page_objects::ramp_stop> spread;
            for (int k = static_cast<int>(lo); k < static_cast<int>(hi); ++k) {
                bool const mirrored = g.gradient_spread == svg::spread_method::reflect && (k % 2 != 0);
                auto copy = stops;
                if (mirrored) {
                    std::reverse(copy.begin(), copy.end());
                    for (auto& st : copy) {
                        st.stop_offset = 1 - st.stop_offset;
                    }
                }
                for (auto& st : copy) {
                    st.stop_offset = (k + st.stop_offset - lo) / (hi - lo);
                    spread.push_back(st);
                }
            }
            stops = std::move(spread);
        }
        std::visit(overloaded{
                       [&](svg::linear const& l) {
                           double const dx = l.x2 - l.x1;
                           double const dy = l.y2 - l.y1;
                           coords = {l.x1 + lo * dx, l.y1 + lo * dy, l.x1 + hi * dx, l.y1 + hi * dy};
                       },
                       [&](svg::radial const& r) {
                           // A focal point outside the circle moves onto it; two circles (a canvas
                           // gradient) are painted as given, as the shading draws any pair.
                           double fx = r.fx;
                           double fy = r.fy;
                           double const d = std::hypot(fx - r.cx, fy - r.cy);
                           if (r.fr == 0 && d > r.r * 0.999) {
                               double const k = r.r * 0.999 / d;
                               fx = r.cx + (fx - r.cx) * k;
                               fy = r.cy + (fy - r.cy) * k;
                           }
                           coords = {fx, fy, r.fr, r.cx, r.cy, r.r * hi};
                       },
                   },
                   g.gradient_type);
        array ca;
        for (double v : coords) {
            ca.array_items.emplace_back(v);
        }
        bool const cmyk = forbids_device_rgb(w);
        if (cmyk) {
            for (auto& st : stops) {
                st.stop_color = color::without_rgb(st.stop_color);
            }
        }
        dict shading{{{"ShadingType", std::int64_t{radial ? 3 : 2}},
                      {"ColorSpace", name{cmyk ? "DeviceCMYK" : "DeviceRGB"}},
                      {"Coords", std::move(ca)},
                      {"Function", page_objects::ramp_function(stops)},
                      {"Extend", array{{true, true}}}}};
        ref const r = new_ref(w);
        write_object(w, r,
                     dict{{{"Type", name{"Pattern"}},
                           {"PatternType", std::int64_t{2}},
                           {"Shading", std::move(shading)},
                           {"Matrix", matrix_array(svg::then(g.gradient_transform, ctm))}}});
        auto const n = fresh_name("Sp");
        s.own_patterns.emplace(n, r);
        return n;
    }

    std::string tiling_pattern(scope& s, svg::svg_tiling const& t, transform const& ctm) {
        scope tile;
        tile.g.strip_transparency = s.g.strip_transparency;
        tile.g.rgb_as_cmyk = s.g.rgb_as_cmyk;
        if (t.tiling_content) {
            paint_nodes(tile, t.tiling_content->svg_content, transform{}, 1);
        }
        ref const r = new_ref(w);
        dict params{{{"Type", name{"Pattern"}},
                     {"PatternType", std::int64_t{1}},
                     {"PaintType", std::int64_t{1}},
                     {"TilingType", std::int64_t{1}},
                     {"BBox", numbers({0, 0, t.tiling_width, t.tiling_height})},
                     {"XStep", t.tiling_width},
                     {"YStep", t.tiling_height},
                     {"Resources", resources_of(tile)},
                     {"Matrix", matrix_array(svg::then(svg::then(svg::translation(t.tiling_x, t.tiling_y),
                                                                 t.tiling_transform),
                                                       ctm))}}};
        write_stream(r, std::move(params), tile.body);
        auto const n = fresh_name("Sp");
        s.own_patterns.emplace(n, r);
        return n;
    }

    static bool varying_opacity(svg::gradient const& g) {
        return std::ranges::any_of(g.gradient_stops, [&](svg::stop const& st) {
            return st.stop_opacity != g.gradient_stops.front().stop_opacity;
        });
    }

    static bool varying_opacity(svg::used_paint const& p) {
        auto const* g = std::get_if<svg::paint_gradient>(&p);
        return g && g->gradient && varying_opacity(*g->gradient);
    }

    // The opacities of a gradient's stops as a luminosity soft mask: the same ramp in greys, over the
    // painted box (the group's space is the user space in force).
    void apply_gradient_mask(scope& s, svg::gradient const& g, std::optional<svg::bbox> const& box) {
        auto grey = g;
        for (auto& st : grey.gradient_stops) {
            auto const v = static_cast<float>(std::clamp(st.stop_opacity, 0.0, 1.0));
            st.stop_color = css::color::rgb{v, v, v};
            st.stop_opacity = 1;
        }
        svg::mask m;
        m.mask_region = box.value_or(svg::bbox{-1e5, -1e5, 1e5, 1e5});
        auto const& r = m.mask_region;
        m.mask_content.push_back(svg::svg{
            .svgbody = svg::shape{.shape_fill = svg::paint_gradient{share(std::move(grey))},
                                  .shape_stroke = svg::paint_none{},
                                  .shape_commands = {svg::rect{.corner = {r.x0, r.y0}, .size = {r.x1 - r.x0, r.y1 - r.y0}}}}});
        apply_mask(s, m);
    }

    // Sets a paint for filling or stroking; false when it paints nothing.
    bool set_paint(scope& s, svg::used_paint const& p, bool for_stroke, double alpha, transform const& ctm,
                   std::optional<svg::bbox> const& box) {
        auto const o = s.out();
        auto const set_alpha = [&](double a) {
            content::opacity(o, s.g, for_stroke ? s.g.current.alpha_fill : a, for_stroke ? a : s.g.current.alpha_stroke);
        };
        auto const set_color = [&](color::color const& c) {
            for_stroke ? content::stroke_color(o, s.g, c) : content::fill_color(o, s.g, c);
        };
        return std::visit(overloaded{
                              [](svg::paint_none const&) { return false; },
                              [&](svg::paint_color const& c) {
                                  auto const d = device(c.color);
                                  if (!d) {
                                      return false;
                                  }
                                  set_alpha(alpha * d->paint_alpha);
                                  set_color(d->paint_color);
                                  return true;
                              },
                              [&](svg::paint_gradient const& g) {
                                  if (!g.gradient) {
                                      return false;
                                  }
                                  // Stops of one opacity make a plain alpha; varying ones a soft mask of the
                                  // same ramp in grey (the caller keeps it to this one painting).
                                  auto const& stops = g.gradient->gradient_stops;
                                  if (varying_opacity(*g.gradient) && !s.g.strip_transparency) {
                                      apply_gradient_mask(s, *g.gradient, box);
                                      set_alpha(alpha);
                                  } else {
                                      set_alpha(alpha * (stops.empty() ? 1 : stops.front().stop_opacity));
                                  }
                                  set_color(color::pattern{gradient_pattern(s, *g.gradient, ctm, box)});
                                  return true;
                              },
                              [&](svg::paint_tiling const& t) {
                                  if (!t.tiling) {
                                      return false;
                                  }
                                  set_alpha(alpha);
                                  set_color(color::pattern{tiling_pattern(s, *t.tiling, ctm)});
                                  return true;
                              },
                          },
                          p);
    }

    // The stroke's width, caps, joins and dashes; `width` in place of the style's (a text span's own).
    void set_stroke_style(scope& s, svg::used_svgstyle const& st, std::optional<double> width = std::nullopt) {
        auto const o = s.out();
        content::line_width(o, s.g, width.value_or(st.stroke_width));
        content::line_cap(o, s.g,
                          st.stroke_linecap == css::svgstyle::linecap::round    ? content::stroke_linecap::round
                          : st.stroke_linecap == css::svgstyle::linecap::square ? content::stroke_linecap::square
                                                                                : content::stroke_linecap::butt);
        content::line_join(o, s.g,
                           st.stroke_linejoin == css::svgstyle::linejoin::round   ? content::stroke_linejoin::round
                           : st.stroke_linejoin == css::svgstyle::linejoin::bevel ? content::stroke_linejoin::bevel
                                                                                  : content::stroke_linejoin::miter);
        content::miter_limit(o, s.g, st.stroke_miterlimit);
        content::dash(o, s.g, content::stroke_dash{.array = st.stroke_dasharray, .phase = st.stroke_dashoffset});
    }

    // ---- nodes ----

    void paint_shape(scope& s, svg::used_svgstyle const& st, svg::shape const& sh, double alpha, transform const& ctm) {
        auto const o = s.out();
        auto const box = svg::path_bbox(sh.shape_commands);
        bool const even_odd = st.fill_rule == css::svgstyle::fill_rule::evenodd;
        bool const stroking = st.stroke_width > 0 && !std::holds_alternative<svg::paint_none>(sh.shape_stroke);
        // The stroke's reach, for the extent of a repeating gradient on it.
        auto stroke_box = box;
        if (stroke_box) {
            double const h = st.stroke_width / 2;
            *stroke_box = {stroke_box->x0 - h, stroke_box->y0 - h, stroke_box->x1 + h, stroke_box->y1 + h};
        }
        // A gradient whose stops vary in opacity sets a soft mask, kept to its own painting.
        bool const fill_masked = varying_opacity(sh.shape_fill);
        if (fill_masked) {
            content::save(o, s.g);
        }
        bool const fill = set_paint(s, sh.shape_fill, false, alpha * st.fill_opacity, ctm, box);
        bool const both_solid = fill && stroking && std::holds_alternative<svg::paint_color>(sh.shape_fill) &&
                                std::holds_alternative<svg::paint_color>(sh.shape_stroke);
        if (both_solid) {
            if (!set_paint(s, sh.shape_stroke, true, alpha * st.stroke_opacity, ctm, stroke_box)) {
                emit_path(s, sh.shape_commands, {});
                even_odd ? content::fill_even_odd(o) : content::fill(o);
                return;
            }
            set_stroke_style(s, st);
            emit_path(s, sh.shape_commands, {});
            even_odd ? content::fill_and_stroke_even_odd(o) : content::fill_and_stroke(o);
            return;
        }
        if (fill) {
            emit_path(s, sh.shape_commands, {});
            even_odd ? content::fill_even_odd(o) : content::fill(o);
        }
        if (fill_masked) {
            content::restore(o, s.g);
        }
        bool const stroke_masked = stroking && varying_opacity(sh.shape_stroke);
        if (stroke_masked) {
            content::save(o, s.g);
        }
        if (stroking && set_paint(s, sh.shape_stroke, true, alpha * st.stroke_opacity, ctm, stroke_box)) {
            set_stroke_style(s, st);
            emit_path(s, sh.shape_commands, {});
            content::stroke(o);
        }
        if (stroke_masked) {
            content::restore(o, s.g);
        }
    }

    void paint_image(scope& s, svg::image const& im, double alpha) {
        if (!im.image_content || std::holds_alternative<images::svg_image>(im.image_content->image_source)) {
            return;
        }
        auto const o = s.out();
        auto const name = objects.use_image(im.image_content);
        content::save(o, s.g);
        content::opacity(o, s.g, alpha, alpha);
        content::concat(o, s.g, to_matrix(im.image_placement));
        content::xobject(o, s.g, name);
        content::restore(o, s.g);
    }

    // Text: each run in its span's font, fill and stroke, in the y-down user space, turned by its
    // rotation. A gradient or pattern fill is painted through the glyphs as a clip, over the box of the
    // whole text, so that one gradient runs across all its spans.
    void paint_text(scope& s, svg::used_svgstyle const& st, svg::text const& t, double alpha, transform const& ctm) {
        auto const o = s.out();
        auto const text_box = svg::text_bbox(t);
        auto const colour_of = [](svg::used_paint const& p) -> std::optional<css::color::color> {
            auto const* c = std::get_if<svg::paint_color>(&p);
            return c ? std::optional(c->color) : std::nullopt;
        };
        auto const is_server = [](svg::used_paint const& p) {
            return std::holds_alternative<svg::paint_gradient>(p) || std::holds_alternative<svg::paint_tiling>(p);
        };
        for (auto const& run : t.text_runs) {
            if (!run.run_style || run.run_glyphs.view().empty()) {
                continue;
            }
            auto const m = svg::run_placement(run);
            auto style = *run.run_style;
            style.font_size = static_cast<float>(run.run_font_size);
            css::style::own_rare_props(style).rare_props_letter_spacing =
                static_cast<float>(run.run_letter_spacing);
            if (is_server(run.run_fill) && text_box) {
                // The glyphs as a clip (render mode 7), then the paint over the text's box.
                content::save(o, s.g);
                content::concat(o, s.g, to_matrix(m));
                content::begin_text(o);
                content::render_mode(o, content::text_render_mode::clip);
                paint_text::text_cursor cursor;
                paint_text::paint_graphemes(o, s.g, cursor, run.run_glyphs.view(), 0, 0, style, 1, {});
                content::end_text(o);
                if (auto const back = svg::invert(m)) {
                    content::concat(o, s.g, to_matrix(*back));
                    if (set_paint(s, run.run_fill, false, alpha * st.fill_opacity, ctm, text_box)) {
                        auto const& b = *text_box;
                        content::rect(o, s.g, b.x0, b.y0, b.x1 - b.x0, b.y1 - b.y0);
                        content::fill(o);
                    }
                }
                content::restore(o, s.g);
            }
            auto const fill = colour_of(run.run_fill);
            auto const stroke = run.run_stroke_width > 0 ? colour_of(run.run_stroke) : std::nullopt;
            if (!fill && !stroke) {
                continue;
            }
            style.color = fill ? *fill : *stroke;
            content::save(o, s.g);
            content::concat(o, s.g, to_matrix(m));
            if (stroke) {
                // Outlines are stroked in user space units, whatever the font size.
                if (auto const d = device(*stroke)) {
                    content::stroke_color(o, s.g, d->paint_color);
                    content::opacity(o, s.g, s.g.current.alpha_fill, run.run_stroke_opacity * alpha * d->paint_alpha);
                }
                // A span has its own stroke width; caps, joins and dashes are the text element's.
                set_stroke_style(s, st, run.run_stroke_width);
            }
            // Underlines and overlines go under the glyphs, lines through over them, across the run in
            // the span's paint, placed by its font's underline numbers.
            auto const& rare = *style.rare_box;
            bool const decorated = rare.text_underline_style != css::text::text_line_style::none ||
                                   rare.text_overline_style != css::text::text_line_style::none ||
                                   rare.text_line_through_style != css::text::text_line_style::none;
            double const text_alpha = alpha * (fill ? st.fill_opacity : 1);
            auto const decorate = [&](paint_text::decoration_layer layer) {
                if (!decorated) {
                    return;
                }
                auto deco = style;
                // In SVG text the lines take the text's colour whatever the decoration colours say.
                auto& lines = css::style::own_rare_box(deco);
                lines.text_underline_color.reset();
                lines.text_overline_color.reset();
                lines.text_line_through_color.reset();
                paint_text::paint_decorations(o, s.g, layer, 0, run.run_width, 0, deco,
                                              fonts::graphemes_metrics(run.run_glyphs.view(), run.run_font_size),
                                              text_alpha);
            };
            decorate(paint_text::decoration_layer::under_text);
            content::begin_text(o);
            if (stroke) {
                content::render_mode(o, fill ? content::text_render_mode::fill_and_stroke
                                             : content::text_render_mode::stroke);
            }
            paint_text::text_cursor cursor;
            paint_text::paint_graphemes(o, s.g, cursor, run.run_glyphs.view(), 0, 0, style, text_alpha, {});
            content::end_text(o);
            decorate(paint_text::decoration_layer::over_text);
            content::restore(o, s.g);
        }
    }

    void paint_body(scope& s, svg::svg const& n, double alpha, transform const& ctm) {
        std::visit(overloaded{
                       [&](svg::compound const& c) { paint_nodes(s, c.compound_children, ctm, alpha); },
                       [&](svg::shape const& sh) { paint_shape(s, n.svgstyle, sh, alpha, ctm); },
                       [&](svg::image const& im) { paint_image(s, im, alpha); },
                       [&](svg::text const& t) { paint_text(s, n.svgstyle, t, alpha, ctm); },
                   },
                   n.svgbody);
    }

    // Whether group opacity needs a group of its own: overlapping parts (children, or fill under stroke)
    // would otherwise show through each other.
    static bool needs_group(svg::svg const& n) {
        if (auto const* sh = std::get_if<svg::shape>(&n.svgbody)) {
            return !std::holds_alternative<svg::paint_none>(sh->shape_fill) &&
                   !std::holds_alternative<svg::paint_none>(sh->shape_stroke) && n.svgstyle.stroke_width > 0;
        }
        return std::holds_alternative<svg::compound>(n.svgbody);
    }

    // A mask as a luminosity soft mask: its drawing, within its region, becomes a transparency group
    // whose brightness is the opacity of what is painted after it. Where the group paints nothing the
    // backdrop is black, so nothing shows outside the mask's drawing. A page that may not use
    // transparency draws the element unmasked.
    void apply_mask(scope& s, svg::mask const& m) {
        if (s.g.strip_transparency) {
            s.g.used.stripped_transparency = true;
            return;
        }
        scope group;
        group.g.rgb_as_cmyk = s.g.rgb_as_cmyk;
        auto const go = group.out();
        auto const& r = m.mask_region;
        content::rect(go, group.g, r.x0, r.y0, r.x1 - r.x0, r.y1 - r.y0);
        content::clip(go);
        content::end_path(go);
        paint_nodes(group, m.mask_content, transform{}, 1);
        ref const form = new_ref(w);
        dict params{{{"Type", name{"XObject"}},
                     {"Subtype", name{"Form"}},
                     {"BBox", numbers({-1e5, -1e5, 1e5, 1e5})},
                     {"Group", dict{{{"Type", name{"Group"}},
                                     {"S", name{"Transparency"}},
                                     {"CS", name{s.g.rgb_as_cmyk ? "DeviceCMYK" : "DeviceRGB"}}}}},
                     {"Resources", resources_of(group)}}};
        write_stream(form, std::move(params), group.body);
        ref const gs = new_ref(w);
        write_object(w, gs,
                     dict{{{"Type", name{"ExtGState"}},
                           {"SMask", dict{{{"Type", name{"Mask"}}, {"S", name{"Luminosity"}}, {"G", form}}}}}});
        auto const gname = fresh_name("Sm");
        s.own_ext_gs.emplace(gname, gs);
        s.body += "/" + gname + " gs\n";
    }

    void paint_node(scope& s, svg::svg const& n, transform ctm, double alpha) {
        bool const is_compound = std::holds_alternative<svg::compound>(n.svgbody);
        if ((!n.svgstyle.svg_visible && !is_compound) || n.svgstyle.opacity <= 0) {
            return;
        }
        auto const o = s.out();
        content::save(o, s.g);
        if (n.svg_transform != transform{}) {
            content::concat(o, s.g, to_matrix(n.svg_transform));
            ctm = svg::then(n.svg_transform, ctm);
        }
        if (n.clippath) {
            apply_clip(s, *n.clippath);
        }
        if (n.viewport_clip) {
            auto const& c = *n.viewport_clip;
            content::rect(o, s.g, c.x0, c.y0, c.x1 - c.x0, c.y1 - c.y0);
            content::clip(o);
            content::end_path(o);
        }
        if (n.mask) {
            apply_mask(s, *n.mask);
        }
        if (n.viewbox_transform) {
            content::concat(o, s.g, to_matrix(*n.viewbox_transform));
            ctm = svg::then(*n.viewbox_transform, ctm);
        }
        double const opacity = n.svgstyle.opacity;
        if (opacity < 1 && needs_group(n) && !s.g.strip_transparency) {
            // A transparency group: the content painted on its own, then laid down at the opacity.
            scope group;
            group.g.rgb_as_cmyk = s.g.rgb_as_cmyk;
            paint_body(group, n, 1, transform{});
            ref const r = new_ref(w);
            dict params{{{"Type", name{"XObject"}},
                         {"Subtype", name{"Form"}},
                         {"BBox", numbers({-1e5, -1e5, 1e5, 1e5})},
                         {"Group", dict{{{"Type", name{"Group"}}, {"S", name{"Transparency"}}}}},
                         {"Resources", resources_of(group)}}};
            write_stream(r, std::move(params), group.body);
            auto const gname = fresh_name("Sg");
            s.own_xobjects.emplace(gname, r);
            content::opacity(o, s.g, alpha * opacity, alpha * opacity);
            content::xobject(o, s.g, gname);
        } else {
            paint_body(s, n, alpha * opacity, ctm);
        }
        content::restore(o, s.g);
    }

    void paint_nodes(scope& s, std::vector<svg::svg> const& nodes, transform const& ctm, double alpha) {
        for (auto const& n : nodes) {
            paint_node(s, n, ctm, alpha);
        }
    }
};

} // namespace

void write_svg_form(log::log const& log,
                    writer& w,
                    ref r,
                    svg::svg_block const& block,
                    page_objects::page_objects& objects,
                    bool compress) {
    painter p{log, w, objects, compress};
    scope s;
    s.g.strip_transparency = strips_transparency(w);
    s.g.rgb_as_cmyk = forbids_device_rgb(w);
    // The form's matrix puts the viewport, y down, onto the unit square with y up, as an image lies.
    double const vw = block.viewport_width > 0 ? block.viewport_width : 1;
    double const vh = block.viewport_height > 0 ? block.viewport_height : 1;
    auto const o = s.out();
    content::save(o, s.g);
    if (block.root_transform != transform{}) {
        content::concat(o, s.g, to_matrix(block.root_transform));
    }
    p.paint_nodes(s, block.svg_content, block.root_transform, 1);
    content::restore(o, s.g);
    dict params{{{"Type", name{"XObject"}},
                 {"Subtype", name{"Form"}},
                 {"BBox", numbers({0, 0, vw, vh})},
                 {"Matrix", numbers({1 / vw, 0, 0, -1 / vh, 0, 1})},
                 {"Resources", p.resources_of(s)}}};
    p.write_stream(r, std::move(params), s.body);
}

} // namespace vellum::pdf::paint_svg
