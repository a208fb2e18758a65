#include "pdf/paint_color.hpp"

#include "util/ref.hpp"

namespace vellum::pdf::paint_color {

namespace {

// Opacity and overprint for one painting operation. The tracker writes nothing when they are in force.
void set_state(content::out const& o, content::gs& g, paint const& p, double context_alpha) {
    double const alpha = p.paint_alpha * context_alpha;
    content::opacity(o, g, alpha, alpha);
    if (p.paint_overprint_mode) {
        content::overprint_setting(o, g, true, *p.paint_overprint_mode);
    } else if (g.current.overprint) {
        content::overprint_setting(o, g, false, g.current.overprint_mode);
    }
}

} // namespace

std::optional<paint> paint_of(css::color::color const& c) {
    return std::visit(overloaded{
                          [](css::color::transparent const&) -> std::optional<paint> { return std::nullopt; },
                          [](css::color::rgb const& v) -> std::optional<paint> {
                              return paint{.paint_color = color::rgb{v.r, v.g, v.b}};
                          },
                          [](css::color::rgba const& v) -> std::optional<paint> {
                              if (v.a <= 0) {
                                  return std::nullopt;
                              }
                              return paint{.paint_color = color::rgb{v.r, v.g, v.b}, .paint_alpha = v.a};
                          },
                          [](css::color::cmyk const& v) -> std::optional<paint> {
                              return paint{.paint_color = color::cmyk{v.c, v.m, v.y, v.k}};
                          },
                          [](css::color::named_color const& v) -> std::optional<paint> {
                              // A tint of a spot colour, in the separation colour space of its ink.
                              return paint{.paint_color = color::separation{v.named_color_name, v.named_color_tint}};
                          },
                          [](css::color::vellum_overprint const& v) -> std::optional<paint> {
                              if (!v.overprint_color) {
                                  return std::nullopt;
                              }
                              auto inner = paint_of(*v.overprint_color);
                              if (inner) {
                                  inner->paint_overprint_mode =
                                      v.overprint_mode == css::color::overprint_mode::overprint_mode_zero ? 0 : 1;
                              }
                              return inner;
                          },
                      },
                      static_cast<css::color::color_alternative const&>(c));
}

color::color lighter(color::color const& c) {
    if (auto const* v = std::get_if<color::rgb>(&c)) {
        return color::rgb{(v->r + 1) / 2, (v->g + 1) / 2, (v->b + 1) / 2};
    }
    return c;
}

color::color darker(color::color const& c) {
    if (auto const* v = std::get_if<color::rgb>(&c)) {
        return color::rgb{v->r / 2, v->g / 2, v->b / 2};
    }
    return c;
}

void set_fill(content::out const& o, content::gs& g, paint const& p, double context_alpha) {
    set_state(o, g, p, context_alpha);
    content::fill_color(o, g, p.paint_color);
}

void set_stroke(content::out const& o, content::gs& g, paint const& p, double context_alpha) {
    set_state(o, g, p, context_alpha);
    content::stroke_color(o, g, p.paint_color);
}

} // namespace vellum::pdf::paint_color
