#include "pdf/paint_background.hpp"

#include "css/color.hpp"
#include "pdf/paint_color.hpp"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace vellum::pdf::paint_background {

namespace {

double width(borders::frame const& f) {
    return f.right - f.left;
}

double height(borders::frame const& f) {
    return f.top - f.bottom;
}

double number_of(css::number const& n) {
    return std::visit([](auto v) { return double(v); }, n);
}

std::optional<double> length_of(css::box::auto_length_percent<float> const& v, double reference) {
    if (auto const* f = std::get_if<float>(&v)) {
        return *f;
    }
    if (auto const* p = std::get_if<css::units::percentage>(&v)) {
        return css::units::percent_of(*p, float(reference));
    }
    return std::nullopt;
}

double offset_of(css::box::length_or_percent<float> const& v, double room) {
    if (auto const* f = std::get_if<float>(&v)) {
        return *f;
    }
    auto const& p = std::get<css::units::percentage>(v);
    return css::units::percent_of(p, float(room));
}

// A length in a gradient: points, or a fraction of the reference for a percentage.
std::optional<double> gradient_length(css::value::value const& v, double reference, float font_size) {
    if (auto const* p = std::get_if<css::value::percent>(&v)) {
        return number_of(p->percent_value) * reference / 100;
    }
    if (auto const* d = std::get_if<css::value::dimension>(&v)) {
        double const x = number_of(d->dimension_value);
        auto const& u = d->dimension_unit;
        if (u == "px") {
            return x * 0.75;
        }
        if (u == "pt") {
            return x;
        }
        if (u == "em") {
            return x * font_size;
        }
        if (u == "mm") {
            return x * 72 / 25.4;
        }
        if (u == "cm") {
            return x * 72 / 2.54;
        }
        if (u == "in") {
            return x * 72;
        }
        if (u == "pc") {
            return x * 12;
        }
        return std::nullopt;
    }
    if (auto const* n = std::get_if<css::value::number>(&v); n && number_of(n->number_value) == 0) {
        return 0.0;
    }
    return std::nullopt;
}

std::optional<double> angle_of(css::value::value const& v) {
    auto const* d = std::get_if<css::value::dimension>(&v);
    if (!d) {
        return std::nullopt;
    }
    double const x = number_of(d->dimension_value);
    if (d->dimension_unit == "deg") {
        return x * std::numbers::pi / 180;
    }
    if (d->dimension_unit == "rad") {
        return x;
    }
    if (d->dimension_unit == "grad") {
        return x * std::numbers::pi / 200;
    }
    if (d->dimension_unit == "turn") {
        return x * 2 * std::numbers::pi;
    }
    return std::nullopt;
}

std::optional<std::string> ident(css::value::value const& v) {
    if (auto const* i = std::get_if<css::value::ident>(&v)) {
        std::string s = i->ident_name;
        std::transform(s.begin(), s.end(), s.begin(), [](unsigned char c) { return std::tolower(c); });
        return s;
    }
    return std::nullopt;
}

// The arguments of a function, one for each comma-separated part; a part of several terms comes as a
// list.
std::vector<std::vector<css::value::value>> comma_runs(std::vector<css::value::value> const& args) {
    std::vector<std::vector<css::value::value>> out;
    for (auto const& a : args) {
        if (auto const* list = std::get_if<css::value::values>(&a)) {
            out.push_back(list->value_list);
        } else {
            out.push_back({a});
        }
    }
    return out;
}

struct gradient_env {
    float font_size = 12;
    /// What currentColor stands for.
    css::color::color current_color = css::color::black();
};

// The colour stops of a gradient line of the given length, with positions from 0 to 1: missing
// positions share the room between their neighbours, and none stands before the one before it.
std::optional<std::vector<page_objects::ramp_stop>> stops_of(std::vector<std::vector<css::value::value>> const& runs,
                                                             double line_length, gradient_env const& env) {
    float const font_size = env.font_size;
    struct raw_stop {
        std::optional<double> position;
        std::optional<paint_color::paint> stop_paint;
    };
    std::vector<raw_stop> raw;
    for (auto const& run : runs) {
        if (run.empty()) {
            return std::nullopt;
        }
        auto const spec = css::color::parse_spec_color(run[0]);
        if (!spec) {
            return std::nullopt;
        }
        auto const* given = std::get_if<css::color::color>(&*spec);
        std::optional<css::color::color> c = given ? *given : env.current_color;
        // Nothing for "transparent", which has no colour of its own.
        auto p = paint_color::paint_of(*c);
        if (p && p->paint_alpha <= 0) {
            p.reset();
        }
        std::vector<std::optional<double>> positions;
        for (std::size_t i = 1; i < run.size(); ++i) {
            auto const l = gradient_length(run[i], line_length, font_size);
            if (!l) {
                return std::nullopt;
            }
            positions.push_back(line_length > 0 ? *l / line_length : 0.0);
        }
        if (positions.empty()) {
            raw.push_back({std::nullopt, p});
        }
        for (auto const& pos : positions) {
            raw.push_back({pos, p});
        }
    }
    if (raw.size() < 2) {
        return std::nullopt;
    }
    if (!raw.front().position) {
        raw.front().position = 0.0;
    }
    if (!raw.back().position) {
        raw.back().position = 1.0;
    }
    double last = *raw.front().position;
    for (std::size_t i = 0; i < raw.size(); ++i) {
        if (!raw[i].position) {
            std::size_t j = i;
            while (!raw[j].position) {
                ++j;
            }
            double const from = last;
            double const to = std::max(from, *raw[j].position);
            for (std::size_t k = i; k < j; ++k) {
                raw[k].position = from + (to - from) * double(k - i + 1) / double(j - i + 1);
            }
        }
        raw[i].position = std::max(last, *raw[i].position);
        last = *raw[i].position;
    }
    // CSS mixes stops with their opacity multiplied in, so a transparent stop takes on no colour: it
    // fades out the colour before it and fades in the one after. It becomes two stops at one place,
    // each with the colour of its visible neighbour and no opacity.
    std::vector<page_objects::ramp_stop> out;
    for (std::size_t i = 0; i < raw.size(); ++i) {
        double const pos = *raw[i].position;
        if (raw[i].stop_paint) {
            auto const& p = *raw[i].stop_paint;
            out.push_back({pos, p.paint_color, std::clamp(p.paint_alpha, 0.0, 1.0)});
            continue;
        }
        auto const seen = [&](std::size_t k) -> std::optional<color::color> {
            return raw[k].stop_paint ? std::optional(raw[k].stop_paint->paint_color) : std::nullopt;
        };
        std::optional<color::color> before;
        for (std::size_t k = i; k-- > 0 && !before;) {
            before = seen(k);
        }
        std::optional<color::color> after;
        for (std::size_t k = i + 1; k < raw.size() && !after; ++k) {
            after = seen(k);
        }
        color::color const none = color::rgb{1, 1, 1};
        out.push_back({pos, before.value_or(after.value_or(none)), 0});
        if (before && after && !(*before == *after)) {
            out.push_back({pos, *after, 0});
        }
    }
    return out;
}

// Stops moved onto 0..1: a ramp that starts after 0 or ends before 1 is stretched by the shading's
// extension, so the coordinates are moved to the first and last stop instead. Repeating gradients
// copy their stops across the whole line.
struct ramp {
    std::vector<page_objects::ramp_stop> stops;
    double from = 0;
    double to = 1;
};

ramp normalised(std::vector<page_objects::ramp_stop> stops, bool repeating) {
    double const first = stops.front().stop_offset;
    double const last = stops.back().stop_offset;
    double const period = last - first;
    if (repeating && period > 1e-6) {
        // Copies from before 0 to past 1, then the line runs over that range.
        double const start = first - std::ceil(first / period) * period;
        std::vector<page_objects::ramp_stop> all;
        for (double base = start; base < 1 + period; base += period) {
            for (auto const& s : stops) {
                all.push_back({base + s.stop_offset - first, s.stop_color, s.stop_alpha});
            }
        }
        stops = std::move(all);
    }
    double const lo = stops.front().stop_offset;
    double const hi = stops.back().stop_offset;
    if (hi - lo < 1e-9) {
        return {{{0, stops.front().stop_color, stops.front().stop_alpha}, {1, stops.back().stop_color, stops.back().stop_alpha}},
                lo,
                lo + 1e-6};
    }
    for (auto& s : stops) {
        s.stop_offset = (s.stop_offset - lo) / (hi - lo);
    }
    return {std::move(stops), lo, hi};
}

std::optional<page_objects::shading> linear(css::value::function const& f, borders::frame const& tile,
                                            gradient_env const& env, bool repeating) {
    auto runs = comma_runs(f.function_args);
    double const w = width(tile);
    double const h = height(tile);
    // Direction in a y-up space: 0 is to the top, angles turn clockwise.
    double dx = 0;
    double dy = -1;
    if (!runs.empty() && !runs[0].empty()) {
        auto const& head = runs[0];
        if (auto const a = angle_of(head[0]); a && head.size() == 1) {
            dx = std::sin(*a);
            dy = std::cos(*a);
            runs.erase(runs.begin());
        } else if (ident(head[0]) == "to") {
            double sx = 0;
            double sy = 0;
            for (std::size_t i = 1; i < head.size(); ++i) {
                auto const side = ident(head[i]).value_or("");
                if (side == "left") {
                    sx = -1;
                } else if (side == "right") {
                    sx = 1;
                } else if (side == "top") {
                    sy = 1;
                } else if (side == "bottom") {
                    sy = -1;
                } else {
                    return std::nullopt;
                }
            }
            if (sx != 0 && sy != 0) {
                // To a corner: the line stands square to the diagonal between the two other corners.
                double const n = std::hypot(h, w);
                dx = sx * h / n;
                dy = sy * w / n;
            } else {
                dx = sx;
                dy = sy;
            }
            runs.erase(runs.begin());
        }
    }
    double const length = std::abs(w * dx) + std::abs(h * dy);
    auto stops = stops_of(runs, length, env);
    if (!stops) {
        return std::nullopt;
    }
    auto const r = normalised(std::move(*stops), repeating);
    double const cx = (tile.left + tile.right) / 2;
    double const cy = (tile.bottom + tile.top) / 2;
    double const x0 = cx - dx * length / 2;
    double const y0 = cy - dy * length / 2;
    return page_objects::shading{.radial = false,
                                 .shading_coords = {x0 + dx * length * r.from, y0 + dy * length * r.from,
                                                    x0 + dx * length * r.to, y0 + dy * length * r.to},
                                 .shading_stops = r.stops};
}

std::optional<page_objects::shading> radial(css::value::function const& f, borders::frame const& tile,
                                            gradient_env const& env, bool repeating) {
    float const font_size = env.font_size;
    auto runs = comma_runs(f.function_args);
    double const w = width(tile);
    double const h = height(tile);
    bool circle = false;
    std::string extent = "farthest-corner";
    std::vector<double> sizes;
    double px = 0.5 * w;
    double py = 0.5 * h;
    bool has_head = false;
    if (!runs.empty() && !runs[0].empty() && !css::color::parse_spec_color(runs[0][0])) {
        has_head = true;
        auto const& head = runs[0];
        std::size_t i = 0;
        for (; i < head.size(); ++i) {
            auto const word = ident(head[i]);
            if (word == "at") {
                break;
            }
            if (word == "circle") {
                circle = true;
            } else if (word == "ellipse") {
                circle = false;
            } else if (word && (*word == "closest-side" || *word == "farthest-side" || *word == "closest-corner" ||
                                *word == "farthest-corner")) {
                extent = *word;
            } else if (auto const l = gradient_length(head[i], sizes.empty() ? w : h, font_size)) {
                sizes.push_back(*l);
            } else {
                return std::nullopt;
            }
        }
        if (i < head.size()) {
            // "at" and a position: keywords or lengths, horizontal first.
            std::vector<css::value::value> at(head.begin() + std::ptrdiff_t(i + 1), head.end());
            std::optional<double> ax;
            std::optional<double> ay;
            for (auto const& v : at) {
                auto const word = ident(v).value_or("");
                if (word == "left") {
                    ax = 0;
                } else if (word == "right") {
                    ax = w;
                } else if (word == "top") {
                    ay = 0;
                } else if (word == "bottom") {
                    ay = h;
                } else if (word == "center") {
                    (!ax ? ax : ay) = (!ax ? 0.5 * w : 0.5 * h);
                } else if (!ax) {
                    ax = gradient_length(v, w, font_size);
                } else {
                    ay = gradient_length(v, h, font_size);
                }
            }
            px = ax.value_or(0.5 * w);
            py = ay.value_or(0.5 * h);
        }
        if (sizes.size() == 1) {
            circle = true;
        }
    }
    if (has_head) {
        runs.erase(runs.begin());
    }
    // The distances from the centre to the sides, and the radii by the extent keyword.
    double const left = px;
    double const right = w - px;
    double const top = py;
    double const bottom = h - py;
    double const near_x = std::min(std::abs(left), std::abs(right));
    double const far_x = std::max(std::abs(left), std::abs(right));
    double const near_y = std::min(std::abs(top), std::abs(bottom));
    double const far_y = std::max(std::abs(top), std::abs(bottom));
    double rx = 0;
    double ry = 0;
    if (sizes.size() == 2) {
        rx = sizes[0];
        ry = sizes[1];
    } else if (sizes.size() == 1) {
        rx = ry = sizes[0];
    } else if (extent == "closest-side") {
        rx = circle ? std::min(near_x, near_y) : near_x;
        ry = circle ? rx : near_y;
    } else if (extent == "farthest-side") {
        rx = circle ? std::max(far_x, far_y) : far_x;
        ry = circle ? rx : far_y;
    } else if (extent == "closest-corner") {
        rx = circle ? std::hypot(near_x, near_y) : near_x * std::numbers::sqrt2;
        ry = circle ? rx : near_y * std::numbers::sqrt2;
    } else {
        rx = circle ? std::hypot(far_x, far_y) : far_x * std::numbers::sqrt2;
        ry = circle ? rx : far_y * std::numbers::sqrt2;
    }
    if (rx <= 0 || ry <= 0) {
        return std::nullopt;
    }
    auto stops = stops_of(runs, rx, env);
    if (!stops) {
        return std::nullopt;
    }
    auto const r = normalised(std::move(*stops), repeating);
    double const cx = tile.left + px;
    double const cy = tile.top - py;
    page_objects::shading s{.radial = true,
                            .shading_coords = {0, 0, std::max(0.0, rx * r.from), 0, 0, rx * r.to},
                            .shading_stops = r.stops,
                            .extend_start = true,
                            .extend_end = true};
    // A circle of radius rx about the origin, scaled to the ellipse and moved to the centre.
    s.shading_matrix = matrix::matrix{1, 0, 0, float(ry / rx), float(cx), float(cy)};
    return s;
}

} // namespace

tile_geometry place_tile(borders::frame const& area,
                         std::optional<std::pair<double, double>> intrinsic,
                         css::box::bg_size const& size,
                         css::box::bg_position const& position,
                         css::box::background_repeat const& repeat) {
    double const aw = width(area);
    double const ah = height(area);
    double w = aw;
    double h = ah;
    double const iw = intrinsic ? intrinsic->first : aw;
    double const ih = intrinsic ? intrinsic->second : ah;
    std::visit(overloaded{
                   [&](css::box::bg_cover const&) {
                       double const k = (iw > 0 && ih > 0) ? std::max(aw / iw, ah / ih) : 1;
                       w = iw * k;
                       h = ih * k;
                   },
                   [&](css::box::bg_contain const&) {
                       double const k = (iw > 0 && ih > 0) ? std::min(aw / iw, ah / ih) : 1;
                       w = iw * k;
                       h = ih * k;
                   },
                   [&](css::box::bg_size_pair<float> const& p) {
                       auto const sw = length_of(p.bg_size_w, aw);
                       auto const sh = length_of(p.bg_size_h, ah);
                       w = sw ? *sw : (sh && ih > 0 && intrinsic ? *sh * iw / ih : iw);
                       h = sh ? *sh : (sw && iw > 0 && intrinsic ? *sw * ih / iw : ih);
                   },
               },
               size);
    using r0 = css::box::background_repeat0;
    auto const rx = repeat.repeat_x;
    auto const ry = repeat.repeat_y;
    // round: as many whole tiles as fit best, stretched to fill the area.
    bool const round_x = rx == r0::round && w > 0;
    bool const round_y = ry == r0::round && h > 0;
    if (round_x) {
        double const n = std::max(1.0, std::round(aw / w));
        double const nw = aw / n;
        if (!round_y && std::holds_alternative<css::box::bg_size_pair<float>>(size) &&
            std::holds_alternative<css::box::auto_value>(std::get<css::box::bg_size_pair<float>>(size).bg_size_h)) {
            h = h * nw / w;
        }
        w = nw;
    }
    if (round_y) {
        h = ah / std::max(1.0, std::round(ah / h));
    }
    tile_geometry t;
    t.repeat_x = rx == r0::repeat || rx == r0::repeat_x || rx == r0::round || rx == r0::space;
    t.repeat_y = ry == r0::repeat || ry == r0::repeat_y || ry == r0::round || ry == r0::space;
    double const x = area.left + offset_of(position.bg_position_x, aw - w);
    double const y_top = area.top - offset_of(position.bg_position_y, ah - h);
    t.tile = {x, y_top - h, x + w, y_top};
    t.step_x = w;
    t.step_y = h;
    // space: whole tiles only, the room left shared between them, the first at the area's start.
    if (rx == r0::space && w > 0) {
        double const n = std::floor(aw / w);
        if (n >= 2) {
            t.step_x = w + (aw - n * w) / (n - 1);
            t.tile.left = area.left;
            t.tile.right = area.left + w;
        } else {
            t.repeat_x = false;
        }
    }
    if (ry == r0::space && h > 0) {
        double const n = std::floor(ah / h);
        if (n >= 2) {
            t.step_y = h + (ah - n * h) / (n - 1);
            t.tile.top = area.top;
            t.tile.bottom = area.top - h;
        } else {
            t.repeat_y = false;
        }
    }
    return t;
}

std::optional<page_objects::shading> gradient_shading(css::value::function const& f, borders::frame const& tile,
                                                      float font_size, css::color::color const& current_color) {
    gradient_env const env{.font_size = font_size, .current_color = current_color};
    std::string name = f.function_name;
    std::transform(name.begin(), name.end(), name.begin(), [](unsigned char c) { return std::tolower(c); });
    if (name.starts_with("-webkit-") || name.starts_with("-moz-")) {
        name = name.substr(name.find('-', 1) + 1);
    }
    if (name == "linear-gradient" || name == "repeating-linear-gradient") {
        return linear(f, tile, env, name.starts_with("repeating"));
    }
    if (name == "radial-gradient" || name == "repeating-radial-gradient") {
        return radial(f, tile, env, name.starts_with("repeating"));
    }
    return std::nullopt;
}

std::pair<double, double> image_size_at(image::image_info const& info, css::box::image_resolution const& resolution) {
    double dpi_x = 96;
    double dpi_y = 96;
    if (auto const* d = std::get_if<css::box::resolution_dpi>(&resolution); d && d->dpi > 0) {
        dpi_x = dpi_y = d->dpi;
    } else if (std::holds_alternative<css::box::resolution_from_image>(resolution) && info.image_dpi &&
               info.image_dpi->dpi_x > 0 && info.image_dpi->dpi_y > 0) {
        dpi_x = info.image_dpi->dpi_x;
        dpi_y = info.image_dpi->dpi_y;
    }
    return {info.image_width * 72.0 / dpi_x, info.image_height * 72.0 / dpi_y};
}

void paint_layers(log::log const& log,
                  content::out const& o,
                  content::gs& g,
                  page_objects::page_objects& objects,
                  css::box::background const& background,
                  layer_boxes const& boxes,
                  float font_size,
                  css::color::color const& current_color,
                  css::box::image_resolution const& image_resolution,
                  double alpha) {
    auto const box_of = [&](css::box::background_box b) -> borders::frame const& {
        switch (b) {
        case css::box::background_box::border_box:
            return boxes.border_box;
        case css::box::background_box::padding_box:
            return boxes.padding_box;
        case css::box::background_box::content_box:
            return boxes.content_box;
        }
        return boxes.border_box;
    };
    auto const& images = background.background_image;
    for (std::size_t n = images.size(); n-- > 0;) {
        auto const pick = [&](auto const& list) {
            return list.empty() ? std::remove_cvref_t<decltype(list[0])>{} : list[std::min(n, list.size() - 1)];
        };
        bool const fixed = pick(background.background_attachment) == css::box::background_attachment::fixed;
        auto const& area = fixed && boxes.page_area ? *boxes.page_area : box_of(pick(background.background_origin));
        auto const& clip = box_of(pick(background.background_clip));
        if (width(clip) <= 0 || height(clip) <= 0) {
            continue;
        }
        std::vector<std::string> forms;
        std::visit(overloaded{
                       [](css::box::none_value const&) {},
                       [&](css::value::url const& url) {
                           auto id = objects.background_image(log, url);
                           if (!id) {
                               return;
                           }
                           auto const& info = (*id)->image_info;
                           auto const t = place_tile(area, image_size_at(info, image_resolution),
                                                     pick(background.background_size),
                                                     pick(background.background_position),
                                                     pick(background.background_repeat));
                           double const tw = width(t.tile);
                           double const th = height(t.tile);
                           if (tw <= 0.01 || th <= 0.01) {
                               return;
                           }
                           // The painted area: the clip box, narrowed to the tile's row or column
                           // where the image does not repeat.
                           page_objects::rect_area a{clip.left, clip.bottom, clip.right, clip.top};
                           if (!t.repeat_x) {
                               a.x0 = std::max(a.x0, t.tile.left);
                               a.x1 = std::min(a.x1, t.tile.right);
                           }
                           if (!t.repeat_y) {
                               a.y0 = std::max(a.y0, t.tile.bottom);
                               a.y1 = std::min(a.y1, t.tile.top);
                           }
                           if (a.x1 <= a.x0 || a.y1 <= a.y0) {
                               return;
                           }
                           auto const image_name = objects.use_image(*id);
                           forms.push_back(objects.use_tiling(
                               {.tiling_image = image_name,
                                .tile_w = tw,
                                .tile_h = th,
                                .xstep = t.repeat_x ? t.step_x : std::max(t.step_x, a.x1 - a.x0 + tw),
                                .ystep = t.repeat_y ? t.step_y : std::max(t.step_y, a.y1 - a.y0 + th),
                                .tiling_matrix = matrix::translate(float(t.tile.left), float(t.tile.bottom))},
                               a));
                       },
                       [&](css::value::function const& f) {
                           auto const t = place_tile(area, std::nullopt, pick(background.background_size),
                                                     pick(background.background_position),
                                                     pick(background.background_repeat));
                           auto s = gradient_shading(f, t.tile, font_size, current_color);
                           if (!s) {
                               log::log_warning_once(log, "background-image: unsupported gradient " + f.function_name);
                               return;
                           }
                           page_objects::rect_area const a{
                               std::max(clip.left, t.repeat_x ? clip.left : t.tile.left),
                               std::max(clip.bottom, t.repeat_y ? clip.bottom : t.tile.bottom),
                               std::min(clip.right, t.repeat_x ? clip.right : t.tile.right),
                               std::min(clip.top, t.repeat_y ? clip.top : t.tile.top)};
                           if (a.x1 <= a.x0 || a.y1 <= a.y0) {
                               return;
                           }
                           auto const strip = [&](page_objects::shading& sh) {
                               if (g.strip_transparency && page_objects::translucent(sh.shading_stops)) {
                                   // A profile without transparency gets the colours at full strength.
                                   for (auto& stop : sh.shading_stops) {
                                       stop.stop_alpha = 1;
                                   }
                                   g.used.stripped_transparency = true;
                               }
                           };
                           double const tw = width(t.tile);
                           double const th = height(t.tile);
                           bool const single = (!t.repeat_x || (a.x0 >= t.tile.left && a.x1 <= t.tile.right)) &&
                                               (!t.repeat_y || (a.y0 >= t.tile.bottom && a.y1 <= t.tile.top));
                           // Tiles that repeat edge to edge with one colour throughout (an underline
                           // drawn as a 1px gradient repeated along a link, say) cover their area as one.
                           bool const seamless = (!t.repeat_x || t.step_x <= tw + 1e-6) &&
                                                 (!t.repeat_y || t.step_y <= th + 1e-6);
                           bool const uniform = std::ranges::all_of(s->shading_stops, [&](auto const& stop) {
                               return stop.stop_color == s->shading_stops.front().stop_color &&
                                      stop.stop_alpha == s->shading_stops.front().stop_alpha;
                           });
                           if (single || (seamless && uniform)) {
                               page_objects::rect_area c = a;
                               if (single) {
                                   c = {std::max(a.x0, t.tile.left), std::max(a.y0, t.tile.bottom),
                                        std::min(a.x1, t.tile.right), std::min(a.y1, t.tile.top)};
                               } else {
                                   s = gradient_shading(f, {c.x0, c.y0, c.x1, c.y1}, font_size, current_color);
                               }
                               if (!s || c.x1 <= c.x0 || c.y1 <= c.y0) {
                                   return;
                               }
                               strip(*s);
                               forms.push_back(objects.use_shading(*s, c));
                               return;
                           }
                           // Otherwise each tile is a shading of its own, as many as cover the area, up to
                           // a bound that keeps a tiny tile over a large box from filling the file.
                           if (tw <= 0.01 || th <= 0.01) {
                               return;
                           }
                           // The first tile at or before the area's start, and how many tiles cover it.
                           auto const span = [](bool repeat, double start, double step, double size, double from,
                                                double to) -> std::pair<double, long> {
                               if (!repeat || step <= 0) {
                                   return {start, 1};
                               }
                               double const first = start - std::ceil((start - from) / step) * step;
                               return {first, std::max(1L, long(std::ceil((to - first - size) / step)) + 1)};
                           };
                           auto const [x_from, nx] = span(t.repeat_x, t.tile.left, t.step_x, tw, a.x0, a.x1);
                           // Rows go down from the area's top: the same walk on negated coordinates.
                           auto const [neg_top, ny] = span(t.repeat_y, -t.tile.top, t.step_y, th, -a.y1, -a.y0);
                           constexpr long max_tiles = 400;
                           if (nx * ny > max_tiles) {
                               log::log_warning_once(log, "background-image: a gradient repeated more than " +
                                                              std::to_string(max_tiles) + " times in one box is drawn in part");
                           }
                           long count = 0;
                           for (long j = 0; j < ny && count < max_tiles; ++j) {
                               double const y = -neg_top - double(j) * t.step_y;
                               for (long i = 0; i < nx && count < max_tiles; ++i, ++count) {
                                   double const x = x_from + double(i) * t.step_x;
                                   page_objects::rect_area const c{std::max(a.x0, x), std::max(a.y0, y - th),
                                                                   std::min(a.x1, x + tw), std::min(a.y1, y)};
                                   if (c.x1 <= c.x0 || c.y1 <= c.y0) {
                                       continue;
                                   }
                                   auto sh = gradient_shading(f, {x, y - th, x + tw, y}, font_size, current_color);
                                   if (!sh) {
                                       return;
                                   }
                                   strip(*sh);
                                   forms.push_back(objects.use_shading(*sh, c));
                               }
                           }
                       },
                   },
                   images[n]);
        if (forms.empty()) {
            continue;
        }
        content::save(o, g);
        if (alpha < 1) {
            content::opacity(o, g, alpha, alpha);
        }
        for (auto const& form : forms) {
            content::xobject(o, g, form);
        }
        content::restore(o, g);
    }
}

} // namespace vellum::pdf::paint_background
