#include "svg/build.hpp"

#include "css/compute_style.hpp"
#include "css/style.hpp"
#include "css/styledom/computed.hpp"
#include "css/styledom/tree.hpp"
#include "image/images.hpp"
#include "resource/locator.hpp"
#include "svg/path_data.hpp"
#include "text/fonts/fonts.hpp"
#include "text/fonts/query.hpp"
#include "text/unicode/bidi.hpp"
#include "util/textbuf.hpp"
#include "util/cell.hpp"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <functional>
#include <map>
#include <mutex>
#include <numbers>
#include <set>

namespace vellum::svg::build {

bool is_svg_name(xml::name const& n, std::string_view local) {
    auto const* q = std::get_if<xml::qualified_name>(&n);
    return q && std::holds_alternative<xml::xmlns_svg>(q->namespace_uri) && q->local == local;
}

namespace {

using style_ref = ref<css::style::style>;

bool in_svg_namespace(xml::name const& n) {
    auto const* q = std::get_if<xml::qualified_name>(&n);
    return q && std::holds_alternative<xml::xmlns_svg>(q->namespace_uri);
}

std::string const& local_of(dom::dom_element const& e) {
    return xml::name_local(e.dom_element_name);
}

std::optional<std::string> attr(dom::dom_element const& e, std::string_view local) {
    return styledom::tree::plain_attribute(e, local);
}

// The link of use, image, gradients, patterns and textPath: SVG 2's href, else xlink:href.
std::optional<std::string> href_of(dom::dom_element const& e) {
    if (auto h = dom::attribute_value(e, xml::make_name(xml::xmlns_xlink{}, "href"))) {
        return h;
    }
    return attr(e, "href");
}

// The id of a local reference "#id", or of a url(#id) whose text is "#id".
std::optional<std::string> local_id(std::string_view ref_text) {
    auto const hash = ref_text.find('#');
    if (hash == std::string_view::npos || hash + 1 >= ref_text.size()) {
        return std::nullopt;
    }
    return std::string(ref_text.substr(hash + 1));
}

std::vector<dom::element_ref> children_of(dom::dom_element const& e) {
    return styledom::tree::element_children(e);
}

enum class axis { x, y, other };

bool trimmed_equal(std::string_view s, std::string_view w) {
    while (!s.empty() && std::isspace(static_cast<unsigned char>(s.front()))) {
        s.remove_prefix(1);
    }
    while (!s.empty() && std::isspace(static_cast<unsigned char>(s.back()))) {
        s.remove_suffix(1);
    }
    return s == w;
}

struct builder {
    log::log const& log;
    build_env const& env;
    std::map<std::string, dom::element_ref, std::less<>> ids;
    std::vector<std::string> refs;
    /// The base URL of each link target, by the target's address.
    std::map<std::string const*, std::string> link_bases;
    struct viewport_size {
        double w = 0;
        double h = 0;
    };
    std::vector<viewport_size> viewports;

    void warn(std::string const& message) {
        log::log_file_message(log, log::level::warning, env.env_source, message);
    }

    void collect_ids(dom::element_ref const& e) {
        if (auto id = attr(*e, "id"); id && !ids.contains(*id)) {
            ids.emplace(*id, e);
        }
        for (auto const& c : children_of(*e)) {
            collect_ids(c);
        }
    }

    // Ids outside the drawing (a sprite sheet elsewhere in the page) are found in the whole document.
    dom::element_ref find_id(std::string const& id) {
        if (auto f = ids.find(id); f != ids.end()) {
            return f->second;
        }
        return nullptr;
    }

    // ---- style ----

    style_ref style_of(dom::element_ref const& e, style_ref const& parent, bool restyle) {
        dom::style_info const* info = nullptr;
        {
            std::lock_guard guard(process_lock());
            if (auto const* set = std::get_if<dom::style_info_set>(&e->dom_element_style_info.cell_value)) {
                info = set->style_info_value.get();
            }
        }
        if (!info || !info->style_info_style) {
            return parent ? parent : css::style::initial_style();
        }
        if (!restyle || !info->style_info_declared) {
            return info->style_info_style;
        }
        // Content instantiated by use inherits from the use, not from where it stands in the document.
        auto const context =
            styledom::computed::context_of(*e, *info->style_info_base, info->style_info_lang);
        return share(css::compute_style::compute_style(
            parent, context, styledom::properties_of(styledom::computed::declared_of(*info).declared_pdecls)));
    }

    static double px_of_points(double pt) { return pt * css::compute_style::css_dpi() / 72.0; }

    viewport_size viewport() {
        if (viewports.empty()) {
            return {};
        }
        return viewports.back();
    }

    double percent_of(double pct, axis a) {
        if (viewports.empty()) {
            warn("svg: percentage length value used, but no viewbox specified.");
            return 0;
        }
        auto const v = viewport();
        double const base = a == axis::x   ? v.w
                            : a == axis::y ? v.h
                                           : std::sqrt((v.w * v.w + v.h * v.h) / 2);
        return base * pct / 100;
    }

    // A length attribute in user units; nothing for a missing or invalid one.
    std::optional<double> length(std::string_view text, axis a, double font_px) {
        while (!text.empty() && std::isspace(static_cast<unsigned char>(text.front()))) {
            text.remove_prefix(1);
        }
        while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back()))) {
            text.remove_suffix(1);
        }
        std::size_t from = !text.empty() && text.front() == '+' ? 1 : 0;
        double v = 0;
        auto const r = std::from_chars(text.data() + from, text.data() + text.size(), v);
        if (r.ec != std::errc{} || !std::isfinite(v)) {
            return std::nullopt;
        }
        std::string unit(r.ptr, text.data() + text.size());
        std::transform(unit.begin(), unit.end(), unit.begin(),
                       [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
        if (unit.empty() || unit == "px") {
            return v;
        }
        if (unit == "%") {
            return percent_of(v, a);
        }
        static std::map<std::string, double, std::less<>> const per_unit{
            {"pt", 96.0 / 72}, {"pc", 16}, {"in", 96}, {"cm", 96 / 2.54}, {"mm", 96 / 25.4}};
        if (auto f = per_unit.find(unit); f != per_unit.end()) {
            return v * f->second;
        }
        if (unit == "em") {
            return v * font_px;
        }
        if (unit == "ex") {
            return v * font_px / 2;
        }
        return std::nullopt;
    }

    double len(dom::dom_element const& e, css::style::style const& s, std::string_view name, axis a, double fallback) {
        auto const text = attr(e, name);
        if (!text) {
            return fallback;
        }
        return length(*text, a, px_of_points(s.font_size)).value_or(fallback);
    }

    std::optional<double> len_opt(dom::dom_element const& e, css::style::style const& s, std::string_view name, axis a) {
        auto const text = attr(e, name);
        if (!text) {
            return std::nullopt;
        }
        return length(*text, a, px_of_points(s.font_size));
    }

    double svg_len(css::svgstyle::svg_length const& l) {
        return std::visit(overloaded{
                              [](float pt) { return px_of_points(pt); },
                              [&](css::units::percentage const& p) {
                                  return percent_of(p.percentage_value, axis::other) + px_of_points(p.percentage_offset);
                              },
                              [](css::svgstyle::user_units const& u) { return double(u.user_units_value); },
                          },
                          l);
    }

    used_svgstyle used_of(css::style::style const& s) {
        auto const& g = *s.svgstyle;
        used_svgstyle u;
        u.svg_visible = !s.rare_props || s.rare_props->rare_props_visibility == css::box::visibility::visible;
        u.opacity = std::clamp<double>(s.rare_box->opacity, 0, 1);
        u.fill_opacity = std::clamp<double>(g.svgstyle_fill_opacity, 0, 1);
        u.stroke_opacity = std::clamp<double>(g.svgstyle_stroke_opacity, 0, 1);
        u.fill_rule = g.svgstyle_fill_rule;
        u.stroke_width = std::max(0.0, svg_len(g.svgstyle_stroke_width));
        u.stroke_linecap = g.svgstyle_stroke_linecap;
        u.stroke_linejoin = g.svgstyle_stroke_linejoin;
        u.stroke_miterlimit = std::max<double>(1, g.svgstyle_stroke_miterlimit);
        std::vector<double> dashes;
        bool bad = false;
        double total = 0;
        for (auto const& d : g.svgstyle_stroke_dasharray) {
            double const v = svg_len(d);
            bad = bad || v < 0;
            total += v;
            dashes.push_back(v);
        }
        // A negative entry or nothing but zeros means a solid line; an odd count is repeated.
        if (!bad && total > 0) {
            if (dashes.size() % 2 == 1) {
                auto const copy = dashes;
                dashes.insert(dashes.end(), copy.begin(), copy.end());
            }
            u.stroke_dasharray = std::move(dashes);
            u.stroke_dashoffset = svg_len(g.svgstyle_stroke_dashoffset);
        }
        return u;
    }

    // Whether a viewport of its own (nested svg, symbol, marker) shows what lies outside it. SVG's own
    // style sheet hides it; the element may say otherwise with its overflow attribute or style.
    static bool overflow_shown(dom::dom_element const& e) {
        auto visible = [](std::string_view v) { return v.find("visible") != std::string_view::npos || v.find("auto") != std::string_view::npos; };
        if (auto const o = attr(e, "overflow")) {
            return visible(*o);
        }
        if (auto const st = attr(e, "style")) {
            auto const at = st->find("overflow");
            return at != std::string::npos && visible(std::string_view(*st).substr(at, st->find(';', at) - at));
        }
        return false;
    }

    static bool displayed(css::style::style const& s) {
        auto const* k = std::get_if<css::box::display_kind>(&s.bit_props.bit_props_display);
        return !(k && *k == css::box::display_kind::none);
    }

    // requiredFeatures lists only features the engine has; requiredExtensions names none.
    static bool passes_conditions(dom::dom_element const& e) {
        if (auto f = attr(e, "requiredFeatures")) {
            std::size_t at = 0;
            std::string_view const text = *f;
            bool any = false;
            while (at < text.size()) {
                while (at < text.size() && std::isspace(static_cast<unsigned char>(text[at]))) {
                    ++at;
                }
                std::size_t const from = at;
                while (at < text.size() && !std::isspace(static_cast<unsigned char>(text[at]))) {
                    ++at;
                }
                auto const word = text.substr(from, at - from);
                if (word.empty()) {
                    continue;
                }
                any = true;
                if (word != "org.w3c.svg.static" && word != "http://www.w3.org/TR/SVG11/feature#BasicText") {
                    return false;
                }
            }
            if (!any) {
                return false;
            }
        }
        if (auto x = attr(e, "requiredExtensions"); x && !trimmed_equal(*x, "")) {
            return false;
        }
        return true;
    }

    // ---- paint servers ----

    // The chain of gradients (or patterns) that `href` links, starting with `first`; a loop ends it with
    // a warning.
    std::vector<dom::element_ref> href_chain(dom::element_ref const& first, std::string const& first_id) {
        std::vector<dom::element_ref> chain{first};
        std::vector<std::string> seen{first_id};
        auto at = first;
        for (;;) {
            auto const h = href_of(*at);
            if (!h) {
                break;
            }
            auto const id = local_id(*h);
            if (!id) {
                break;
            }
            if (std::ranges::find(seen, *id) != seen.end()) {
                warn("svg: self reference to ID " + *id);
                break;
            }
            auto next = find_id(*id);
            if (!next) {
                break;
            }
            seen.push_back(*id);
            chain.push_back(next);
            at = next;
        }
        return chain;
    }

    static std::optional<std::string> chain_attr(std::vector<dom::element_ref> const& chain, std::string_view name) {
        for (auto const& e : chain) {
            if (auto v = attr(*e, name)) {
                return v;
            }
        }
        return std::nullopt;
    }

    static transform box_map(bbox const& b) { return {b.x1 - b.x0, 0, 0, b.y1 - b.y0, b.x0, b.y0}; }

    std::vector<stop> stops_of(std::vector<dom::element_ref> const& chain, std::string_view kind) {
        for (auto const& g : chain) {
            auto const kids = children_of(*g);
            bool const has_stops = std::ranges::any_of(kids, [](auto const& k) { return is_svg_name(k->dom_element_name, "stop"); });
            if (!has_stops) {
                continue;
            }
            std::vector<stop> out;
            double last = 0;
            for (auto const& k : kids) {
                if (!is_svg_name(k->dom_element_name, "stop")) {
                    if (in_svg_namespace(k->dom_element_name) && local_of(*k) != "desc" && local_of(*k) != "title" &&
                        local_of(*k) != "animate" && local_of(*k) != "set") {
                        warn("svg: " + std::string(kind) + ": unexpected content.");
                    }
                    continue;
                }
                auto const text = attr(*k, "offset");
                std::optional<double> offset;
                if (text) {
                    std::string t = *text;
                    while (!t.empty() && std::isspace(static_cast<unsigned char>(t.back()))) {
                        t.pop_back();
                    }
                    bool const pct = !t.empty() && t.back() == '%';
                    if (pct) {
                        t.pop_back();
                    }
                    if (auto v = path_data::parse_numbers(t); v && v->size() == 1) {
                        offset = pct ? (*v)[0] / 100 : (*v)[0];
                    }
                }
                if (!offset) {
                    warn("svg: stop: @offset with number or percentage\nvalue required.");
                    continue;
                }
                double const o = std::max(last, std::clamp(*offset, 0.0, 1.0));
                last = o;
                auto const s = style_of(k, nullptr, false);
                double opacity = std::clamp<double>(s->rare_box->stop_opacity, 0, 1);
                css::color::color c = s->rare_box->stop_color;
                if (auto const* a = std::get_if<css::color::rgba>(&c)) {
                    opacity *= a->a;
                    c = css::color::rgb{a->r, a->g, a->b};
                }
                out.push_back({o, c, opacity});
            }
            return out;
        }
        return {};
    }

    // A gradient for a shape with the bounding box given (for objectBoundingBox units).
    std::optional<used_paint> gradient_paint(dom::element_ref const& first, std::string const& id,
                                             std::optional<bbox> const& box) {
        bool const is_linear = is_svg_name(first->dom_element_name, "linearGradient");
        auto const chain = href_chain(first, id);
        for (std::size_t i = 1; i < chain.size(); ++i) {
            auto const& n = chain[i]->dom_element_name;
            if (!is_svg_name(n, "linearGradient") && !is_svg_name(n, "radialGradient")) {
                warn(is_linear ? "svg: linearGradient: referencing content not\nexpected."
                               : "svg: radial gradient: referencing content not\nexpected.");
                return used_paint{paint_none{}};
            }
        }
        auto stops = stops_of(chain, is_linear ? "linearGradient" : "radialGradient");
        if (stops.empty()) {
            return used_paint{paint_none{}};
        }
        if (stops.size() == 1) {
            return used_paint{paint_color{stops[0].stop_color}};
        }
        bool const obb = chain_attr(chain, "gradientUnits").value_or("objectBoundingBox") != "userSpaceOnUse";
        transform t;
        if (auto const gt = chain_attr(chain, "gradientTransform")) {
            t = path_data::parse_transform(*gt).value_or(transform{});
        }
        if (obb) {
            if (!box || box->x1 - box->x0 <= 0 || box->y1 - box->y0 <= 0) {
                return used_paint{paint_none{}};
            }
            t = then(t, box_map(*box));
        }
        // Coordinates: fractions of the box, or user units against the viewport.
        auto const coord = [&](std::string_view name, axis a, double fallback) {
            auto const text = chain_attr(chain, name);
            if (!text) {
                return obb ? fallback : percent_of(fallback * 100, a);
            }
            if (obb) {
                std::string v = *text;
                bool const pct = !v.empty() && v.back() == '%';
                if (pct) {
                    v.pop_back();
                }
                auto n = path_data::parse_numbers(v);
                if (!n || n->size() != 1) {
                    return fallback;
                }
                return pct ? (*n)[0] / 100 : (*n)[0];
            }
            return length(*text, a, 16).value_or(percent_of(fallback * 100, a));
        };
        gradient g;
        g.gradient_stops = std::move(stops);
        g.gradient_transform = t;
        auto const spread = chain_attr(chain, "spreadMethod").value_or("pad");
        g.gradient_spread = spread == "reflect"  ? spread_method::reflect
                            : spread == "repeat" ? spread_method::repeat
                                                 : spread_method::pad;
        if (is_linear) {
            g.gradient_type = linear{coord("x1", axis::x, 0), coord("y1", axis::y, 0), coord("x2", axis::x, 1),
                                     coord("y2", axis::y, 0)};
        } else {
            radial r{.cx = coord("cx", axis::x, 0.5), .cy = coord("cy", axis::y, 0.5), .r = coord("r", axis::other, 0.5)};
            r.fx = chain_attr(chain, "fx") ? coord("fx", axis::x, 0.5) : r.cx;
            r.fy = chain_attr(chain, "fy") ? coord("fy", axis::y, 0.5) : r.cy;
            if (r.r <= 0) {
                return used_paint{paint_color{g.gradient_stops.back().stop_color}};
            }
            g.gradient_type = r;
        }
        return used_paint{paint_gradient{share(std::move(g))}};
    }

    std::optional<used_paint> pattern_paint(dom::element_ref const& first, std::string const& id,
                                            std::optional<bbox> const& box, style_ref const& style) {
        auto const chain = href_chain(first, id);
        for (std::size_t i = 1; i < chain.size(); ++i) {
            if (!is_svg_name(chain[i]->dom_element_name, "pattern")) {
                warn("svg: pattern: referencing content not expected.");
                return used_paint{paint_none{}};
            }
        }
        bool const obb = chain_attr(chain, "patternUnits").value_or("objectBoundingBox") != "userSpaceOnUse";
        bool const content_obb =
            chain_attr(chain, "patternContentUnits").value_or("userSpaceOnUse") == "objectBoundingBox";
        if ((obb || content_obb) && (!box || box->x1 - box->x0 <= 0 || box->y1 - box->y0 <= 0)) {
            return used_paint{paint_none{}};
        }
        auto const value = [&](std::string_view name, axis a) -> double {
            auto const text = chain_attr(chain, name);
            if (obb) {
                // A fraction of the box; an absent x or y is 0, the box's own corner.
                double const extent = a == axis::x ? box->x1 - box->x0 : box->y1 - box->y0;
                double const origin = a == axis::x ? box->x0 : box->y0;
                if (!text) {
                    return name == "x" || name == "y" ? origin : 0;
                }
                std::string v = *text;
                bool const pct = !v.empty() && v.back() == '%';
                if (pct) {
                    v.pop_back();
                }
                auto n = path_data::parse_numbers(v);
                double const f = n && n->size() == 1 ? (pct ? (*n)[0] / 100 : (*n)[0]) : 0;
                return name == "x" || name == "y" ? origin + f * extent : f * extent;
            }
            return text ? length(*text, a, 16).value_or(0) : 0;
        };
        svg_tiling t{.tiling_x = value("x", axis::x),
                     .tiling_y = value("y", axis::y),
                     .tiling_width = value("width", axis::x),
                     .tiling_height = value("height", axis::y)};
        if (t.tiling_width <= 0 || t.tiling_height <= 0) {
            return used_paint{paint_none{}};
        }
        if (auto const pt = chain_attr(chain, "patternTransform")) {
            t.tiling_transform = path_data::parse_transform(*pt).value_or(transform{});
        }
        // The content: the children of the first pattern of the chain that has any, in tile space.
        dom::element_ref holder;
        for (auto const& p : chain) {
            if (!children_of(*p).empty()) {
                holder = p;
                break;
            }
        }
        svg_block content;
        content.viewport_width = t.tiling_width;
        content.viewport_height = t.tiling_height;
        std::optional<transform> inner;
        if (auto const vb = chain_attr(chain, "viewBox")) {
            if (auto v = path_data::parse_viewbox(*vb)) {
                inner = view_transform(*v, path_data::parse_par(chain_attr(chain, "preserveAspectRatio").value_or("")), 0,
                                       0, t.tiling_width, t.tiling_height);
            }
        } else if (content_obb) {
            inner = transform{box->x1 - box->x0, 0, 0, box->y1 - box->y0, 0, 0};
        }
        if (holder) {
            if (std::ranges::find(refs, id) != refs.end()) {
                warn("svg: self reference to ID " + id);
                return used_paint{paint_none{}};
            }
            refs.push_back(id);
            svg group{.svgbody = compound{}};
            group.viewbox_transform = inner;
            auto& kids = std::get<compound>(group.svgbody).compound_children;
            for (auto const& c : children_of(*holder)) {
                if (auto built = element(c, style_of(holder, style, false), false)) {
                    kids.push_back(std::move(*built));
                }
            }
            refs.pop_back();
            content.svg_content.push_back(std::move(group));
        }
        t.tiling_content = share(std::move(content));
        return used_paint{paint_tiling{share(std::move(t))}};
    }

    used_paint paint_of(css::svgstyle::paint const& p, std::optional<bbox> const& box, std::string_view what,
                        style_ref const& style) {
        return std::visit(overloaded{
                              [](css::box::none_value const&) -> used_paint { return paint_none{}; },
                              [](css::color::color const& c) -> used_paint {
                                  if (std::holds_alternative<css::color::transparent>(c)) {
                                      return paint_none{};
                                  }
                                  return paint_color{c};
                              },
                              [&](css::value::url const& u) -> used_paint {
                                  auto const id = local_id(u.url_text);
                                  auto const target = id ? find_id(*id) : nullptr;
                                  if (!target) {
                                      warn("svg: " + std::string(what) + ": referenced id " + id.value_or(u.url_text) +
                                           " not found.");
                                      return paint_none{};
                                  }
                                  auto const& n = target->dom_element_name;
                                  if (is_svg_name(n, "linearGradient") || is_svg_name(n, "radialGradient")) {
                                      return gradient_paint(target, *id, box).value_or(paint_none{});
                                  }
                                  if (is_svg_name(n, "pattern")) {
                                      return pattern_paint(target, *id, box, style).value_or(paint_none{});
                                  }
                                  warn("svg: " + std::string(what) + ": referenced content not gradient.");
                                  return paint_none{};
                              },
                          },
                          p);
    }

    // ---- shapes ----

    // A positive length attribute that the shape needs: nothing (after a warning) when it is missing or
    // negative, and zero when it is zero, which disables the shape silently.
    std::optional<double> required_length(dom::dom_element const& e, css::style::style const& s,
                                          std::string_view element_name, std::string_view name, axis a) {
        auto const v = len_opt(e, s, name, a);
        if (!v) {
            warn("svg: " + std::string(element_name) + ": @" + std::string(name) +
                 " with positive length value required.");
            return std::nullopt;
        }
        if (*v < 0) {
            warn("svg: " + std::string(element_name) + "[@" + std::string(name) + "]: positive length value required.");
            return std::nullopt;
        }
        return v;
    }

    std::optional<std::vector<command>> points_path(dom::dom_element const& e, std::string_view name, bool close) {
        auto const text = attr(e, "points");
        if (!text) {
            warn("svg: " + std::string(name) + ": @points required.");
            return std::nullopt;
        }
        auto const v = path_data::parse_numbers(*text);
        if (!v) {
            warn("svg: *[@points]: invalid points specification.");
            return std::nullopt;
        }
        if (v->size() % 2 == 1) {
            warn("svg: *[@points]: odd number of coordinates.");
        }
        std::vector<command> out;
        for (std::size_t i = 0; i + 1 < v->size(); i += 2) {
            point const p{(*v)[i], (*v)[i + 1]};
            if (i == 0) {
                out.push_back(moveto{p});
            } else {
                out.push_back(lineto{p});
            }
        }
        if (close && !out.empty()) {
            out.push_back(closepath{});
        }
        return out;
    }

    // The commands of a basic shape or path; nothing when the element draws nothing.
    std::optional<std::vector<command>> shape_commands(dom::dom_element const& e, css::style::style const& s) {
        auto const& name = local_of(e);
        if (name == "rect") {
            auto const w = required_length(e, s, "rect", "width", axis::x);
            auto const h = w ? required_length(e, s, "rect", "height", axis::y) : std::nullopt;
            if (!w || !h || *w == 0 || *h == 0) {
                return std::nullopt;
            }
            double const x = len(e, s, "x", axis::x, 0);
            double const y = len(e, s, "y", axis::y, 0);
            auto rx = len_opt(e, s, "rx", axis::x);
            auto ry = len_opt(e, s, "ry", axis::y);
            if ((rx && *rx < 0) || (ry && *ry < 0)) {
                warn(std::string("svg: rect[@") + (rx && *rx < 0 ? "rx" : "ry") + "]: positive length value required.");
                return std::nullopt;
            }
            if (!rx && ry) {
                rx = ry;
            }
            if (!ry && rx) {
                ry = rx;
            }
            if (!rx || *rx == 0 || *ry == 0) {
                return std::vector<command>{rect{{x, y}, {*w, *h}}};
            }
            double const a = std::min(*rx, *w / 2);
            double const b = std::min(*ry, *h / 2);
            double const q = std::numbers::pi / 2;
            auto corner = [&](double cx, double cy, double start) {
                return arc{.ellipse_center = {cx, cy}, .arc_rx = a, .arc_ry = b, .arc_start = start, .arc_sweep = q};
            };
            return std::vector<command>{moveto{{x + a, y}},
                                        lineto{{x + *w - a, y}},
                                        corner(x + *w - a, y + b, -q),
                                        lineto{{x + *w, y + *h - b}},
                                        corner(x + *w - a, y + *h - b, 0),
                                        lineto{{x + a, y + *h}},
                                        corner(x + a, y + *h - b, q),
                                        lineto{{x, y + b}},
                                        corner(x + a, y + b, 2 * q),
                                        closepath{}};
        }
        if (name == "circle" || name == "ellipse") {
            bool const circle = name == "circle";
            auto const rx = required_length(e, s, name, circle ? "r" : "rx", circle ? axis::other : axis::x);
            auto const ry = circle ? rx : rx ? required_length(e, s, name, "ry", axis::y) : std::nullopt;
            if (!rx || !ry || *rx == 0 || *ry == 0) {
                return std::nullopt;
            }
            return ellipse_curves({len(e, s, "cx", axis::x, 0), len(e, s, "cy", axis::y, 0)}, *rx, *ry);
        }
        if (name == "line") {
            return std::vector<command>{moveto{{len(e, s, "x1", axis::x, 0), len(e, s, "y1", axis::y, 0)}},
                                        lineto{{len(e, s, "x2", axis::x, 0), len(e, s, "y2", axis::y, 0)}}};
        }
        if (name == "polyline" || name == "polygon") {
            return points_path(e, name, name == "polygon");
        }
        if (name == "path") {
            auto const d = attr(e, "d");
            if (!d) {
                warn("svg: path: @d required.");
                return std::nullopt;
            }
            auto parsed = path_data::parse_path(*d);
            for (auto const& w : parsed.path_warnings) {
                warn(w);
            }
            return std::move(parsed.path_commands);
        }
        return std::nullopt;
    }

    // ---- markers ----

    struct vertex {
        point at;
        double angle_in = 0;
        double angle_out = 0;
    };

    // The vertices of a path with the directions of the segments that meet there.
    static std::vector<vertex> vertices_of(std::vector<command> const& cmds) {
        std::vector<vertex> out;
        point current;
        point start;
        std::size_t start_index = 0;
        auto add = [&](point p, point from_control, point to_control_prev) {
            double const dir = std::atan2(p.y - from_control.y, p.x - from_control.x);
            if (!out.empty()) {
                out.back().angle_out = std::atan2(to_control_prev.y - out.back().at.y, to_control_prev.x - out.back().at.x);
                if (to_control_prev == out.back().at) {
                    out.back().angle_out = dir;
                }
            }
            out.push_back({p, dir, dir});
        };
        for (auto const& c : cmds) {
            std::visit(overloaded{
                           [&](moveto const& m) {
                               start = current = m.to;
                               start_index = out.size();
                               out.push_back({m.to, 0, 0});
                           },
                           [&](lineto const& l) {
                               add(l.to, current, l.to);
                               current = l.to;
                           },
                           [&](rect const& r) {
                               out.push_back({r.corner, 0, 0});
                               current = r.corner;
                           },
                           [&](c_curveto const& k) {
                               add(k.c_end, k.control2 == k.c_end ? current : k.control2, k.control1);
                               current = k.c_end;
                           },
                           [&](arc const& a) {
                               for (auto const& k : arc_to_curves(a)) {
                                   add(k.c_end, k.control2, k.control1);
                                   current = k.c_end;
                               }
                           },
                           [&](closepath const&) {
                               if (start_index < out.size()) {
                                   add(start, current, start);
                                   out.back().angle_out = out[start_index].angle_out;
                                   out[start_index].angle_in = out.back().angle_in;
                               }
                               current = start;
                           },
                       },
                       c);
        }
        if (out.size() >= 2) {
            out.front().angle_in = out.front().angle_out;
            out.back().angle_out = out.back().angle_in;
        }
        return out;
    }

    std::optional<svg> marker_at(dom::element_ref const& m, std::string const& id, vertex const& v, double angle,
                                 double stroke_width, style_ref const& parent) {
        auto const s = style_of(m, parent, false);
        double const mw = len(*m, *s, "markerWidth", axis::x, 3);
        double const mh = len(*m, *s, "markerHeight", axis::y, 3);
        if (mw <= 0 || mh <= 0) {
            return std::nullopt;
        }
        double const scale = attr(*m, "markerUnits").value_or("strokeWidth") == "userSpaceOnUse" ? 1 : stroke_width;
        transform inner;
        double ref_x = len(*m, *s, "refX", axis::x, 0);
        double ref_y = len(*m, *s, "refY", axis::y, 0);
        std::optional<bbox> clip_box = bbox{0, 0, mw, mh};
        if (auto const vb = attr(*m, "viewBox")) {
            if (auto v = path_data::parse_viewbox(*vb)) {
                inner = view_transform(*v, path_data::parse_par(attr(*m, "preserveAspectRatio").value_or("")), 0, 0,
                                       mw, mh);
                auto const r = apply(inner, {ref_x, ref_y});
                ref_x = r.x;
                ref_y = r.y;
            }
        }
        transform const placed = then(then(translation(-ref_x, -ref_y), scaling(scale, scale)),
                                      then(transform{std::cos(angle), std::sin(angle), -std::sin(angle), std::cos(angle), 0, 0},
                                           translation(v.at.x, v.at.y)));
        if (overflow_shown(*m)) {
            clip_box.reset();
        }
        if (std::ranges::find(refs, id) != refs.end()) {
            warn("svg: self reference to ID " + id);
            return std::nullopt;
        }
        refs.push_back(id);
        svg node{.svgstyle = used_of(*s), .svg_transform = placed, .viewbox_transform = inner, .viewport_clip = clip_box,
                 .svgbody = compound{}};
        node.svgstyle.opacity = 1;
        for (auto const& c : children_of(*m)) {
            if (auto built = element(c, s, false)) {
                std::get<compound>(node.svgbody).compound_children.push_back(std::move(*built));
            }
        }
        refs.pop_back();
        return node;
    }

    std::vector<svg> markers_of(std::vector<command> const& cmds, css::style::style const& s, double stroke_width,
                                style_ref const& style) {
        auto const& g = *s.svgstyle;
        if (!g.svgstyle_marker_start && !g.svgstyle_marker_mid && !g.svgstyle_marker_end) {
            return {};
        }
        auto const verts = vertices_of(cmds);
        if (verts.empty()) {
            return {};
        }
        std::vector<svg> out;
        auto place = [&](css::box::url_or_none const& u, vertex const& v, bool at_start) {
            if (!u) {
                return;
            }
            auto const id = local_id(u->url_text);
            auto const m = id ? find_id(*id) : nullptr;
            if (!m || !is_svg_name(m->dom_element_name, "marker")) {
                return;
            }
            double angle = 0;
            auto const orient = attr(*m, "orient").value_or("0");
            if (orient == "auto" || orient == "auto-start-reverse") {
                double in = v.angle_in;
                double out_a = v.angle_out;
                double mean = std::atan2(std::sin(in) + std::sin(out_a), std::cos(in) + std::cos(out_a));
                angle = at_start ? out_a : mean;
                if (orient == "auto-start-reverse" && at_start) {
                    angle += std::numbers::pi;
                }
            } else {
                std::string t = orient;
                double factor = std::numbers::pi / 180;
                if (t.ends_with("deg")) {
                    t.resize(t.size() - 3);
                } else if (t.ends_with("grad")) {
                    t.resize(t.size() - 4);
                    factor = std::numbers::pi / 200;
                } else if (t.ends_with("rad")) {
                    t.resize(t.size() - 3);
                    factor = 1;
                }
                if (auto n = path_data::parse_numbers(t); n && n->size() == 1) {
                    angle = (*n)[0] * factor;
                }
            }
            if (auto built = marker_at(m, *id, v, angle, stroke_width, style)) {
                out.push_back(std::move(*built));
            }
        };
        place(g.svgstyle_marker_start, verts.front(), true);
        for (std::size_t i = 1; i + 1 < verts.size(); ++i) {
            place(g.svgstyle_marker_mid, verts[i], false);
        }
        if (verts.size() > 1) {
            place(g.svgstyle_marker_end, verts.back(), false);
        }
        return out;
    }

    // ---- clip paths ----

    std::optional<bbox> node_bbox(svg const& n) {
        std::optional<bbox> box;
        auto add_box = [&](bbox const& b, transform const& t) {
            for (auto p : {point{b.x0, b.y0}, point{b.x1, b.y0}, point{b.x0, b.y1}, point{b.x1, b.y1}}) {
                auto const q = apply(t, p);
                if (!box) {
                    box = bbox{q.x, q.y, q.x, q.y};
                }
                box->x0 = std::min(box->x0, q.x);
                box->y0 = std::min(box->y0, q.y);
                box->x1 = std::max(box->x1, q.x);
                box->y1 = std::max(box->y1, q.y);
            }
        };
        std::visit(overloaded{
                       [&](compound const& c) {
                           for (auto const& k : c.compound_children) {
                               if (auto b = node_bbox(k)) {
                                   add_box(*b, then(k.viewbox_transform.value_or(transform{}), k.svg_transform));
                               }
                           }
                       },
                       [&](shape const& s) {
                           if (auto b = path_bbox(s.shape_commands)) {
                               add_box(*b, transform{});
                           }
                       },
                       [&](image const& i) { add_box(i.image_viewport, transform{}); },
                       [&](text const& t) {
                           if (auto b = text_bbox(t)) {
                               add_box(*b, transform{});
                           }
                       },
                   },
                   n.svgbody);
        return box;
    }

    ref<clippath> clip_of(css::style::style const& s, std::function<std::optional<bbox>()> const& box) {
        if (!s.rare_box->clip_path) {
            return nullptr;
        }
        auto const id = local_id(s.rare_box->clip_path->url_text);
        auto const target = id ? find_id(*id) : nullptr;
        if (!target) {
            warn("svg: clip_path: referenced id " + id.value_or(s.rare_box->clip_path->url_text) +
                 " not found.");
            return nullptr;
        }
        if (!is_svg_name(target->dom_element_name, "clipPath")) {
            warn("svg: clip_path: referenced content not clippath.");
            return nullptr;
        }
        if (std::ranges::find(refs, *id) != refs.end()) {
            warn("svg: self reference to ID " + *id);
            return nullptr;
        }
        refs.push_back(*id);
        clippath cp;
        auto const cs = style_of(target, nullptr, false);
        if (attr(*target, "clipPathUnits").value_or("userSpaceOnUse") == "objectBoundingBox") {
            auto const b = box();
            cp.clip_matrix = b ? box_map(*b) : transform{0, 0, 0, 0, 0, 0};
        }
        if (auto const t = attr(*target, "transform")) {
            cp.clip_matrix = then(path_data::parse_transform(*t).value_or(transform{}), cp.clip_matrix);
        }
        for (auto const& child : children_of(*target)) {
            auto shape_el = child;
            transform t;
            if (auto const ct = attr(*child, "transform")) {
                t = path_data::parse_transform(*ct).value_or(transform{});
            }
            if (is_svg_name(child->dom_element_name, "use")) {
                auto const h = href_of(*child);
                auto const uid = h ? local_id(*h) : std::nullopt;
                shape_el = uid ? find_id(*uid) : nullptr;
                if (!shape_el) {
                    warn("clippath/use: referenced id " + uid.value_or("") + " not found.");
                    continue;
                }
                if (uid && *uid == *id) {
                    warn("clippath/use: self reference to ID " + *uid);
                    continue;
                }
                if (is_svg_name(shape_el->dom_element_name, "use")) {
                    warn("clippath/use: indirect references");
                    continue;
                }
                auto const us = style_of(child, cs, false);
                t = then(translation(len(*child, *us, "x", axis::x, 0), len(*child, *us, "y", axis::y, 0)), t);
                if (auto const st = attr(*shape_el, "transform")) {
                    t = then(path_data::parse_transform(*st).value_or(transform{}), t);
                }
            }
            auto const& n = local_of(*shape_el);
            static constexpr std::string_view shapes[] = {"path", "rect", "circle", "ellipse", "line", "polyline", "polygon"};
            if (!in_svg_namespace(shape_el->dom_element_name) || std::ranges::find(shapes, n) == std::end(shapes)) {
                if (in_svg_namespace(shape_el->dom_element_name) && n != "text" && n != "desc" && n != "title") {
                    warn("clippath: invalid child element " + n);
                }
                continue;
            }
            auto const ss = style_of(shape_el, cs, false);
            if (!displayed(*ss) || (ss->rare_props && ss->rare_props->rare_props_visibility != css::box::visibility::visible)) {
                continue;
            }
            if (auto cmds = shape_commands(*shape_el, *ss)) {
                cp.clip_shapes.push_back({t, ss->svgstyle->svgstyle_clip_rule, std::move(*cmds)});
            }
        }
        cp.clip_parent = clip_of(*cs, box);
        refs.pop_back();
        return share(std::move(cp));
    }

    // The mask an element names with its mask attribute or the mask declaration of its style
    // attribute: the mask element's children drawn in the element's user space (or in its bounding box,
    // with maskContentUnits="objectBoundingBox"), within the mask's region.
    ref<mask> mask_of(dom::dom_element const& e, std::function<std::optional<bbox>()> const& box) {
        auto reference = attr(e, "mask");
        if (!reference) {
            auto const style_text = attr(e, "style").value_or("");
            auto const at = style_text.find("mask");
            if (at == std::string::npos) {
                return nullptr;
            }
            auto const colon = style_text.find(':', at);
            if (colon == std::string::npos) {
                return nullptr;
            }
            auto const end = style_text.find(';', colon);
            reference = style_text.substr(colon + 1, end == std::string::npos ? std::string::npos : end - colon - 1);
        }
        auto const trimmed = [](std::string v) {
            auto const a = v.find_first_not_of(" \t\r\n");
            auto const b = v.find_last_not_of(" \t\r\n");
            return a == std::string::npos ? std::string{} : v.substr(a, b - a + 1);
        }(*reference);
        if (trimmed.empty() || trimmed == "none") {
            return nullptr;
        }
        // url(#id), with or without quotes.
        std::string inner = trimmed;
        if (inner.starts_with("url(") && inner.ends_with(")")) {
            inner = inner.substr(4, inner.size() - 5);
            std::erase_if(inner, [](char c) { return c == '"' || c == '\'' || c == ' '; });
        }
        auto const id = local_id(inner);
        auto const target = id ? find_id(*id) : nullptr;
        if (!target || !is_svg_name(target->dom_element_name, "mask")) {
            warn("svg: mask: referenced id " + id.value_or(trimmed) + " is not a mask; the element is drawn "
                 "without it");
            return nullptr;
        }
        if (std::ranges::find(refs, *id) != refs.end()) {
            warn("svg: self reference to ID " + *id);
            return nullptr;
        }
        refs.push_back(*id);
        auto const ms = style_of(target, nullptr, false);
        auto const b = box();
        mask m;
        auto const fraction = [&](std::string_view name, double fallback) {
            auto const v = attr(*target, name);
            if (!v) {
                return fallback;
            }
            std::string t = *v;
            bool const pct = !t.empty() && t.back() == '%';
            double x = fallback;
            if (std::from_chars(t.data(), t.data() + t.size() - (pct ? 1 : 0), x).ec != std::errc{}) {
                return fallback;
            }
            return pct ? x / 100 : x;
        };
        if (attr(*target, "maskUnits").value_or("objectBoundingBox") == "userSpaceOnUse") {
            m.mask_region = {len(*target, *ms, "x", axis::x, percent_of(-10, axis::x)),
                             len(*target, *ms, "y", axis::y, percent_of(-10, axis::y)), 0, 0};
            m.mask_region.x1 = m.mask_region.x0 + len(*target, *ms, "width", axis::x, percent_of(120, axis::x));
            m.mask_region.y1 = m.mask_region.y0 + len(*target, *ms, "height", axis::y, percent_of(120, axis::y));
        } else if (b) {
            double const bw = b->x1 - b->x0;
            double const bh = b->y1 - b->y0;
            m.mask_region.x0 = b->x0 + fraction("x", -0.1) * bw;
            m.mask_region.y0 = b->y0 + fraction("y", -0.1) * bh;
            m.mask_region.x1 = m.mask_region.x0 + fraction("width", 1.2) * bw;
            m.mask_region.y1 = m.mask_region.y0 + fraction("height", 1.2) * bh;
        } else {
            // An element without extent shows nothing through a mask sized by it.
            m.mask_region = {0, 0, 0, 0};
        }
        svg content{.svgbody = compound{}};
        if (attr(*target, "maskContentUnits").value_or("userSpaceOnUse") == "objectBoundingBox") {
            content.svg_transform = b ? box_map(*b) : transform{0, 0, 0, 0, 0, 0};
        }
        children_into(target, ms, false, std::get<compound>(content.svgbody).compound_children);
        m.mask_content.push_back(std::move(content));
        refs.pop_back();
        return share(std::move(m));
    }

    // ---- elements ----

    svg node_of(css::style::style const& s, dom::dom_element const& e, svgbody body) {
        svg n{.svgstyle = used_of(s), .svgbody = std::move(body)};
        if (auto const t = attr(e, "transform")) {
            n.svg_transform = path_data::parse_transform(*t).value_or(transform{});
        }
        return n;
    }

    void children_into(dom::element_ref const& e, style_ref const& s, bool restyle, std::vector<svg>& out) {
        for (auto const& c : children_of(*e)) {
            if (auto built = element(c, s, restyle)) {
                out.push_back(std::move(*built));
            }
        }
    }

    // A viewport of its own (nested svg, or symbol and svg through use): the contents in a compound with
    // the viewBox mapping, clipped unless overflow is visible.
    std::optional<svg> viewport_node(dom::element_ref const& e, style_ref const& s, bool restyle, double x, double y,
                                     std::optional<double> w_over, std::optional<double> h_over) {
        double const w = w_over ? *w_over : len(*e, *s, "width", axis::x, percent_of(100, axis::x));
        double const h = h_over ? *h_over : len(*e, *s, "height", axis::y, percent_of(100, axis::y));
        if (w < 0) {
            warn("svg[@width]: positive length value required.");
            return std::nullopt;
        }
        if (h < 0) {
            warn("svg[@height]: positive length value required.");
            return std::nullopt;
        }
        if (w == 0 || h == 0) {
            return std::nullopt;
        }
        svg n = node_of(*s, *e, compound{});
        std::optional<viewbox> vb;
        if (auto const text = attr(*e, "viewBox")) {
            auto v = path_data::parse_viewbox(*text);
            if (!v) {
                warn(v.error());
                if (v.error().find("negative") != std::string::npos) {
                    return std::nullopt;
                }
            } else {
                vb = *v;
            }
        }
        if (vb && (vb->viewboxw == 0 || vb->viewboxh == 0)) {
            return std::nullopt;
        }
        auto const p = path_data::parse_par(attr(*e, "preserveAspectRatio").value_or(""));
        n.viewbox_transform = vb ? view_transform(*vb, p, x, y, w, h) : translation(x, y);
        if (!overflow_shown(*e)) {
            n.viewport_clip = bbox{x, y, x + w, y + h};
        }
        viewports.push_back(vb ? viewport_size{vb->viewboxw, vb->viewboxh} : viewport_size{w, h});
        children_into(e, s, restyle, std::get<compound>(n.svgbody).compound_children);
        viewports.pop_back();
        return n;
    }

    std::optional<svg> use_node(dom::element_ref const& e, style_ref const& s) {
        auto const h = href_of(*e);
        auto const id = h ? local_id(*h) : std::nullopt;
        if (!id || h->front() != '#') {
            warn("svg: use: @xlink:href with value of a local id required.");
            return std::nullopt;
        }
        auto const target = find_id(*id);
        if (!target) {
            warn("svg: referenced ID " + *id + " does not exist.");
            return std::nullopt;
        }
        if (std::ranges::find(refs, *id) != refs.end()) {
            warn("svg: self reference to ID " + *id);
            return std::nullopt;
        }
        auto const w = len_opt(*e, *s, "width", axis::x);
        auto const hh = len_opt(*e, *s, "height", axis::y);
        if ((w && *w < 0) || (hh && *hh < 0)) {
            warn(std::string("svg: use[@") + (w && *w < 0 ? "width" : "height") + "]: positive length value required.");
            return std::nullopt;
        }
        refs.push_back(*id);
        svg n = node_of(*s, *e, compound{});
        n.svg_transform =
            then(translation(len(*e, *s, "x", axis::x, 0), len(*e, *s, "y", axis::y, 0)), n.svg_transform);
        std::optional<svg> inner;
        auto const& tn = target->dom_element_name;
        if (is_svg_name(tn, "symbol") || is_svg_name(tn, "svg")) {
            auto const ts = style_of(target, s, true);
            if (displayed(*ts)) {
                inner = viewport_node(target, ts, true, 0, 0, w ? w : std::optional<double>(percent_of(100, axis::x)),
                                      hh ? hh : std::optional<double>(percent_of(100, axis::y)));
                if (inner && is_svg_name(tn, "svg")) {
                    // A referenced svg keeps its own position.
                    auto const ts2 = style_of(target, s, true);
                    double const x = len(*target, *ts2, "x", axis::x, 0);
                    double const y = len(*target, *ts2, "y", axis::y, 0);
                    inner->svg_transform = then(inner->svg_transform, translation(x, y));
                }
            }
        } else if (is_svg_name(tn, "linearGradient") || is_svg_name(tn, "radialGradient") || is_svg_name(tn, "pattern") ||
                   is_svg_name(tn, "marker") || is_svg_name(tn, "clipPath")) {
            warn("svg: use: referencing content unexpected.");
        } else {
            inner = element(target, s, true);
        }
        refs.pop_back();
        if (inner) {
            std::get<compound>(n.svgbody).compound_children.push_back(std::move(*inner));
        }
        return n;
    }

    std::optional<svg> image_node(dom::element_ref const& e, style_ref const& s) {
        double const x = len(*e, *s, "x", axis::x, 0);
        double const y = len(*e, *s, "y", axis::y, 0);
        auto const w = required_length(*e, *s, "image", "width", axis::x);
        auto const h = w ? required_length(*e, *s, "image", "height", axis::y) : std::nullopt;
        if (!w || !h || *w == 0 || *h == 0) {
            return std::nullopt;
        }
        auto const href = href_of(*e);
        if (!href) {
            warn("svg: image: @xlink:href required.");
            return std::nullopt;
        }
        if (!env.env_images) {
            log::log_warning_once(log, "svg: image: images are not loaded in this run");
            return std::nullopt;
        }
        auto const url = resource::locator::resolve_locator(dom::element_base(*e), *href);
        auto const id = env.env_images->get_image_id(log, url);
        if (!id) {
            return std::nullopt;
        }
        auto const p = path_data::parse_par(attr(*e, "preserveAspectRatio").value_or(""));
        svg n = node_of(*s, *e, compound{});
        bbox const port{x, y, x + *w, y + *h};
        if (auto const* nested = std::get_if<images::svg_image>(&(*id)->image_source)) {
            auto const& b = *nested->svg_image_block;
            auto const t = view_transform({0, 0, b.viewport_width, b.viewport_height}, p, x, y, *w, *h);
            svg inner{.svg_transform = b.root_transform, .svgbody = compound{b.svg_content}};
            n.viewbox_transform = t;
            n.viewport_clip = port;
            std::get<compound>(n.svgbody).compound_children.push_back(std::move(inner));
            return n;
        }
        double const iw = (*id)->image_info.image_width;
        double const ih = (*id)->image_info.image_height;
        if (iw <= 0 || ih <= 0) {
            return std::nullopt;
        }
        auto const t = view_transform({0, 0, iw, ih}, p, x, y, *w, *h);
        n.svgbody = image{.image_content = *id, .image_placement = then(transform{iw, 0, 0, -ih, 0, ih}, t),
                          .image_viewport = port};
        if (p.slice) {
            n.viewport_clip = port;
        }
        return n;
    }

    // A list attribute of text positions (x, y, dx, dy, rotate): lengths or numbers separated by
    // white space or commas; nothing for a missing attribute, and an invalid entry ends the list.
    std::vector<double> length_list(dom::dom_element const& e, css::style::style const& s, std::string_view name,
                                    axis a) {
        std::vector<double> out;
        auto const v = attr(e, name);
        if (!v) {
            return out;
        }
        std::string_view rest = *v;
        while (!rest.empty()) {
            auto const start = rest.find_first_not_of(" \t\r\n,");
            if (start == std::string_view::npos) {
                break;
            }
            rest.remove_prefix(start);
            auto const end = std::min(rest.find_first_of(" \t\r\n,"), rest.size());
            auto const entry = length(rest.substr(0, end), a, px_of_points(s.font_size));
            if (!entry) {
                warn("svg: " + local_of(e) + ": invalid " + std::string(name) + " list: " + *v);
                break;
            }
            out.push_back(*entry);
            rest.remove_prefix(end);
        }
        return out;
    }

    // A path that text is set on: its segments with the distance along the path where each starts.
    struct text_path_geometry {
        struct segment {
            point from;
            point to;
            double start = 0;
        };
        std::vector<segment> segments;
        double total = 0;
        double start_offset = 0;
    };

    static void add_segment(text_path_geometry& g, point from, point to) {
        double const d = std::hypot(to.x - from.x, to.y - from.y);
        if (d <= 0) {
            return;
        }
        g.segments.push_back({from, to, g.total});
        g.total += d;
    }

    // The path's outline as straight pieces short enough to follow curves closely.
    static text_path_geometry measure(std::vector<command> const& cmds, transform const& t) {
        text_path_geometry g;
        point current;
        point start;
        auto const cubic = [&](point p0, c_curveto const& c) {
            constexpr int steps = 24;
            point prev = p0;
            for (int i = 1; i <= steps; ++i) {
                double const u = double(i) / steps;
                double const v = 1 - u;
                point const q{v * v * v * p0.x + 3 * v * v * u * c.control1.x + 3 * v * u * u * c.control2.x +
                                  u * u * u * c.c_end.x,
                              v * v * v * p0.y + 3 * v * v * u * c.control1.y + 3 * v * u * u * c.control2.y +
                                  u * u * u * c.c_end.y};
                add_segment(g, apply(t, prev), apply(t, q));
                prev = q;
            }
        };
        for (auto const& c : cmds) {
            std::visit(overloaded{
                           [&](moveto const& m) { current = start = m.to; },
                           [&](lineto const& l) {
                               add_segment(g, apply(t, current), apply(t, l.to));
                               current = l.to;
                           },
                           [&](rect const& r) {
                               point const p[] = {r.corner,
                                                  {r.corner.x + r.size.x, r.corner.y},
                                                  {r.corner.x + r.size.x, r.corner.y + r.size.y},
                                                  {r.corner.x, r.corner.y + r.size.y},
                                                  r.corner};
                               for (int i = 0; i < 4; ++i) {
                                   add_segment(g, apply(t, p[i]), apply(t, p[i + 1]));
                               }
                               current = start = r.corner;
                           },
                           [&](c_curveto const& cc) {
                               cubic(current, cc);
                               current = cc.c_end;
                           },
                           [&](arc const& a) {
                               auto const curves = arc_to_curves(a);
                               if (curves.empty()) {
                                   return;
                               }
                               // The arc begins with a line from the current point to its start.
                               double const ca = std::cos(a.arc_rotate);
                               double const sa = std::sin(a.arc_rotate);
                               double const x = a.arc_rx * std::cos(a.arc_start);
                               double const y = a.arc_ry * std::sin(a.arc_start);
                               point const first{a.ellipse_center.x + x * ca - y * sa,
                                                 a.ellipse_center.y + x * sa + y * ca};
                               add_segment(g, apply(t, current), apply(t, first));
                               current = first;
                               for (auto const& cc : curves) {
                                   cubic(current, cc);
                                   current = cc.c_end;
                               }
                           },
                           [&](closepath const&) {
                               add_segment(g, apply(t, current), apply(t, start));
                               current = start;
                           },
                       },
                       c);
        }
        return g;
    }

    // The point at a distance along the path and the direction of the path there (radians, y down);
    // nothing off either end.
    static std::optional<std::pair<point, double>> point_at(text_path_geometry const& g, double d) {
        if (g.segments.empty() || d < 0 || d > g.total) {
            return std::nullopt;
        }
        auto it = std::upper_bound(g.segments.begin(), g.segments.end(), d,
                                   [](double v, auto const& s) { return v < s.start; });
        auto const& s = *std::prev(it == g.segments.begin() ? std::next(it) : it);
        double const len = std::hypot(s.to.x - s.from.x, s.to.y - s.from.y);
        double const u = std::clamp((d - s.start) / len, 0.0, 1.0);
        return std::pair{point{s.from.x + u * (s.to.x - s.from.x), s.from.y + u * (s.to.y - s.from.y)},
                         std::atan2(s.to.y - s.from.y, s.to.x - s.from.x)};
    }

    // The characters of a text element before shaping: pieces of one span each, white space collapsed,
    // with the character ranges of the elements that can carry position lists.
    struct text_piece {
        style_ref piece_style;
        std::u32string piece_chars;
        /// The textPath the piece lies on, as an index into the paths; -1 for none.
        int piece_path = -1;
    };
    struct text_range {
        dom::element_ref range_element;
        style_ref range_style;
        std::size_t range_start = 0;
        std::size_t range_end = 0;
    };
    struct text_layout {
        std::vector<text_piece> pieces;
        std::vector<text_range> ranges;
        std::vector<text_path_geometry> paths;
        std::size_t count = 0;
    };

    // The path that a textPath names, in the text's user space; nothing (and a warning) when it names
    // no path.
    std::optional<text_path_geometry> text_path_of(dom::dom_element const& tp, css::style::style const& s) {
        auto const h = href_of(tp);
        auto const id = h ? local_id(*h) : std::nullopt;
        auto const target = id ? find_id(*id) : nullptr;
        if (!target || !in_svg_namespace(target->dom_element_name)) {
            warn("svg: textPath: no path " + h.value_or("") + "; its text is left out");
            return std::nullopt;
        }
        auto const ts = style_of(target, nullptr, false);
        auto cmds = shape_commands(*target, *ts);
        if (!cmds) {
            warn("svg: textPath: " + h.value_or("") + " is not a shape; its text is left out");
            return std::nullopt;
        }
        transform t;
        if (auto const tr = attr(*target, "transform")) {
            t = path_data::parse_transform(*tr).value_or(transform{});
        }
        auto g = measure(*cmds, t);
        if (auto const so = attr(tp, "startOffset")) {
            std::string v = *so;
            if (!v.empty() && v.back() == '%') {
                double pct = 0;
                std::from_chars(v.data(), v.data() + v.size() - 1, pct);
                g.start_offset = g.total * pct / 100;
            } else {
                g.start_offset = length(v, axis::x, px_of_points(s.font_size)).value_or(0);
            }
        }
        return g;
    }

    void collect_text(dom::element_ref const& e, style_ref const& s, bool restyle, text_layout& out,
                      bool& space_before, bool preserve, int path) {
        std::vector<dom::child_node> list;
        {
            std::lock_guard guard(process_lock());
            list = e->dom_element_children.cell_value;
        }
        for (auto const& c : list) {
            if (auto const* t = std::get_if<dom::text_child>(&c)) {
                std::string chars;
                for (char ch : t->child_text->dom_text_value.get()) {
                    if (ch == '\n' || ch == '\r') {
                        if (preserve) {
                            chars += ' ';
                        }
                        continue;
                    }
                    if (ch == '\t' || ch == ' ') {
                        if (preserve || !space_before) {
                            chars += ' ';
                        }
                        space_before = true;
                        continue;
                    }
                    chars += ch;
                    space_before = false;
                }
                if (chars.empty()) {
                    continue;
                }
                auto u = textbuf::from_utf8(chars);
                out.count += u.size();
                out.pieces.push_back(text_piece{s, std::move(u), path});
                continue;
            }
            auto const& child = std::get<dom::element_child>(c).child_element;
            bool const on_path = is_svg_name(child->dom_element_name, "textPath");
            if (!is_svg_name(child->dom_element_name, "tspan") && !is_svg_name(child->dom_element_name, "a") &&
                !on_path) {
                continue;
            }
            auto const cs = style_of(child, s, restyle);
            if (!displayed(*cs)) {
                continue;
            }
            int child_path = path;
            if (on_path) {
                auto g = text_path_of(*child, *cs);
                if (!g) {
                    continue;
                }
                out.paths.push_back(std::move(*g));
                child_path = int(out.paths.size()) - 1;
            }
            auto const index = out.ranges.size();
            out.ranges.push_back(text_range{child, cs, out.count, out.count});
            collect_text(child, cs, restyle, out, space_before, preserve, child_path);
            out.ranges[index].range_end = out.count;
        }
    }

    std::optional<svg> text_node(dom::element_ref const& e, style_ref const& s, bool restyle) {
        if (!env.env_fonts) {
            log::log_warning_once(log, "svg: text: no fonts in this run; SVG text is left out");
            return std::nullopt;
        }
        bool space_before = true;
        bool const preserve = dom::attribute_value(*e, xml::make_name(xml::xmlns_xml{}, "space")) == "preserve";
        text_layout lay;
        lay.ranges.push_back(text_range{e, s, 0, 0});
        collect_text(e, s, restyle, lay, space_before, preserve, -1);
        // A trailing space of the whole text goes.
        if (!preserve && !lay.pieces.empty() && lay.pieces.back().piece_chars.ends_with(U' ')) {
            lay.pieces.back().piece_chars.pop_back();
            --lay.count;
            for (auto& r : lay.ranges) {
                r.range_end = std::min(r.range_end, lay.count);
                r.range_start = std::min(r.range_start, r.range_end);
            }
            if (lay.pieces.back().piece_chars.empty()) {
                lay.pieces.pop_back();
            }
        }
        lay.ranges[0].range_end = lay.count;
        // Each character's own position values: an element's lists give its characters theirs in order,
        // inner elements after outer ones so that theirs win. A rotate list shorter than the characters
        // repeats its last value.
        std::vector<std::optional<double>> xs(lay.count), ys(lay.count), dxs(lay.count), dys(lay.count),
            rotates(lay.count);
        for (auto const& r : lay.ranges) {
            auto const n = r.range_end - r.range_start;
            auto const assign = [&](std::vector<std::optional<double>>& to, std::vector<double> const& values,
                                    bool repeat_last) {
                for (std::size_t k = 0; k < n; ++k) {
                    if (k < values.size()) {
                        to[r.range_start + k] = values[k];
                    } else if (repeat_last && !values.empty()) {
                        to[r.range_start + k] = values.back();
                    } else {
                        break;
                    }
                }
            };
            auto const& el = *r.range_element;
            auto const& st = *r.range_style;
            assign(xs, length_list(el, st, "x", axis::x), false);
            assign(ys, length_list(el, st, "y", axis::y), false);
            assign(dxs, length_list(el, st, "dx", axis::x), false);
            assign(dys, length_list(el, st, "dy", axis::y), false);
            if (auto const rot = attr(el, "rotate")) {
                auto const values = path_data::parse_numbers(*rot);
                if (!values) {
                    warn("svg: " + local_of(el) + ": invalid rotate list: " + *rot);
                } else {
                    assign(rotates, *values, true);
                }
            }
        }
        if (lay.count > 0 && !xs[0]) {
            xs[0] = 0;
        }
        if (lay.count > 0 && !ys[0]) {
            ys[0] = 0;
        }
        // Runs: a piece is cut where a character has a position of its own, is rotated, or lies on a
        // path (each character there follows the path's direction).
        text t;
        std::vector<int> run_path;
        // Embedding levels over the whole text, spans included, in the direction of the text element:
        // a run is also cut where the level changes, and shaped in its own direction.
        std::vector<int> levels;
        auto const* first_style = lay.pieces.empty() ? nullptr : lay.pieces.front().piece_style.get();
        bool const base_rtl = first_style != nullptr && first_style->rare_props &&
                              first_style->rare_props->rare_props_direction == css::box::direction::rtl;
        {
            std::u32string all;
            for (auto const& piece : lay.pieces) {
                all += piece.piece_chars;
            }
            levels = unicode::bidi::levels_of(all, base_rtl);
        }
        std::vector<int> run_level;
        std::size_t index = 0;
        for (auto const& piece : lay.pieces) {
            auto const& ps = *piece.piece_style;
            auto const& g = *ps.svgstyle;
            double const start_anchor = g.svgstyle_text_anchor == css::svgstyle::text_anchor::middle ? 0.5
                                        : g.svgstyle_text_anchor == css::svgstyle::text_anchor::end ? 1
                                                                                                      : 0;
            // Right-to-left text starts at its right end.
            double const anchor = base_rtl ? 1 - start_anchor : start_anchor;
            double const size = px_of_points(ps.font_size);
            double spacing = 0;
            if (auto const* ls = std::get_if<float>(&ps.rare_props->rare_props_letter_spacing)) {
                spacing = px_of_points(*ls);
            }
            auto const& lang = ps.rare_props->rare_props_vellum_lang
                                   ? ps.rare_props->rare_props_vellum_lang
                                   : ps.rare_props->rare_props_vellum_lang_value;
            auto const req = fonts::get_font_req(
                *env.env_fonts, fonts::query::query_of(*ps.font_props, lang.value_or(""), spacing != 0));
            auto const used = used_of(ps);
            auto const& chars = piece.piece_chars;
            std::size_t from = 0;
            while (from < chars.size()) {
                std::size_t to = from + 1;
                bool const single = piece.piece_path >= 0 || rotates[index + from].value_or(0) != 0;
                if (!single) {
                    while (to < chars.size() && !xs[index + to] && !ys[index + to] && !dxs[index + to] &&
                           !dys[index + to] && rotates[index + to].value_or(0) == 0 &&
                           levels[index + to] == levels[index + from]) {
                        ++to;
                    }
                }
                bool const rtl = levels[index + from] % 2 != 0;
                auto glyphs = fonts::text_to_graphemes(*env.env_fonts, *req,
                                                       rtl ? fonts::direction::rtl : fonts::direction::ltr,
                                                       chars.substr(from, to - from));
                if (rtl) {
                    // Shaping keeps the logical order; a right-to-left run is laid out from its end.
                    std::ranges::reverse(glyphs);
                }
                double width = 0;
                for (auto const& gr : glyphs) {
                    width += (gr.base_glyph.glyph_hori_advance + gr.grapheme_kerning.value_or(0)) * size + spacing;
                }
                auto const at = index + from;
                t.text_runs.push_back(text_run{.run_glyphs = std::move(glyphs),
                                               .run_stroke_width = used.stroke_width,
                                               .run_stroke_opacity = used.stroke_opacity,
                                               .run_style = piece.piece_style,
                                               .run_font_size = size,
                                               .run_letter_spacing = spacing,
                                               .run_width = width,
                                               .run_x = xs[at],
                                               .run_y = ys[at],
                                               .run_dx = dxs[at].value_or(0),
                                               .run_dy = dys[at].value_or(0),
                                               .run_anchor = anchor,
                                               .run_rotate = rotates[at].value_or(0)});
                run_path.push_back(piece.piece_path);
                run_level.push_back(levels[index + from]);
                from = to;
            }
            index += chars.size();
        }
        // Within a chunk (runs not on a path, up to the next absolute position) the runs go in visual order;
        // the chunk's absolute position stays with whichever run comes first.
        for (std::size_t a = 0; a < t.text_runs.size();) {
            std::size_t b = a + 1;
            while (b < t.text_runs.size() && run_path[a] < 0 && run_path[b] < 0 && !t.text_runs[b].run_x &&
                   !t.text_runs[b].run_y) {
                ++b;
            }
            if (b - a > 1) {
                std::vector<int> const chunk_levels(run_level.begin() + std::ptrdiff_t(a), run_level.begin() + std::ptrdiff_t(b));
                auto const order = unicode::bidi::visual_order(chunk_levels);
                if (!std::ranges::is_sorted(order)) {
                    auto const x = t.text_runs[a].run_x;
                    auto const y = t.text_runs[a].run_y;
                    t.text_runs[a].run_x.reset();
                    t.text_runs[a].run_y.reset();
                    std::vector<text_run> visual;
                    for (std::size_t k : order) {
                        visual.push_back(std::move(t.text_runs[a + k]));
                    }
                    visual.front().run_x = x;
                    visual.front().run_y = y;
                    std::ranges::move(visual, t.text_runs.begin() + std::ptrdiff_t(a));
                }
            }
            a = b;
        }
        // Chunks: each absolute position starts one, and the anchor of its first run moves it back by its
        // width. Runs on a path are placed along it afterwards.
        point pen;
        std::size_t chunk_start = 0;
        double chunk_width = 0;
        auto const close_chunk = [&](std::size_t end) {
            if (chunk_start < end) {
                double const shift = t.text_runs[chunk_start].run_anchor * chunk_width;
                for (std::size_t i = chunk_start; i < end; ++i) {
                    if (run_path[i] < 0) {
                        t.text_runs[i].run_pos.x -= shift;
                    }
                }
            }
            chunk_start = end;
            chunk_width = 0;
        };
        for (std::size_t i = 0; i < t.text_runs.size(); ++i) {
            auto& r = t.text_runs[i];
            if (r.run_x || r.run_y) {
                close_chunk(i);
                pen.x = r.run_x.value_or(pen.x);
                pen.y = r.run_y.value_or(pen.y);
            }
            if (run_path[i] >= 0 && (i == 0 || run_path[i - 1] != run_path[i])) {
                // A textPath starts its advance at the path's start.
                close_chunk(i);
                pen = {};
            }
            pen.x += r.run_dx;
            pen.y += r.run_dy;
            r.run_pos = pen;
            pen.x += r.run_width;
            chunk_width += r.run_width + r.run_dx;
        }
        close_chunk(t.text_runs.size());
        // Text on a path: the advance is the distance along the path from its start offset, moved back by
        // the anchor of the path's text; each glyph stands with its middle on the path, turned to its
        // direction, and a glyph whose middle falls off the path is not drawn.
        std::vector<text_run> placed;
        for (std::size_t i = 0; i < t.text_runs.size();) {
            if (run_path[i] < 0) {
                placed.push_back(std::move(t.text_runs[i]));
                ++i;
                continue;
            }
            auto const p = run_path[i];
            auto const& g = lay.paths[std::size_t(p)];
            std::size_t end = i;
            double width = 0;
            while (end < t.text_runs.size() && run_path[end] == p) {
                width = std::max(width, t.text_runs[end].run_pos.x + t.text_runs[end].run_width);
                ++end;
            }
            double const shift = g.start_offset - t.text_runs[i].run_anchor * width;
            for (; i < end; ++i) {
                auto& r = t.text_runs[i];
                double const mid = shift + r.run_pos.x + r.run_width / 2;
                auto const where = point_at(g, mid);
                if (!where) {
                    continue;
                }
                auto const [c, angle] = *where;
                double const ca = std::cos(angle);
                double const sa = std::sin(angle);
                double const across = r.run_pos.y;
                r.run_pos = {c.x - ca * r.run_width / 2 - sa * across, c.y - sa * r.run_width / 2 + ca * across};
                r.run_rotate += angle * 180 / std::numbers::pi;
                placed.push_back(std::move(r));
            }
        }
        t.text_runs = std::move(placed);
        // Paints last: a gradient or pattern in bounding-box units needs the box of the whole text.
        auto const box = text_bbox(t);
        for (auto& r : t.text_runs) {
            r.run_fill = paint_of(r.run_style->svgstyle->svgstyle_fill, box, "fill", r.run_style);
            r.run_stroke = paint_of(r.run_style->svgstyle->svgstyle_stroke, box, "stroke", r.run_style);
        }
        return node_of(*s, *e, std::move(t));
    }

    std::optional<svg> element(dom::element_ref const& e, style_ref const& parent, bool restyle) {
        if (!in_svg_namespace(e->dom_element_name) || !passes_conditions(*e)) {
            return std::nullopt;
        }
        auto const& name = local_of(*e);
        static constexpr std::string_view never_drawn[] = {
            "defs",   "symbol",  "marker", "clipPath", "linearGradient", "radialGradient", "pattern", "title", "desc",
            "metadata", "style", "script", "mask",     "filter",         "foreignObject",  "stop"};
        if (std::ranges::find(never_drawn, name) != std::end(never_drawn)) {
            return std::nullopt;
        }
        auto const s = style_of(e, parent, restyle);
        if (!displayed(*s)) {
            return std::nullopt;
        }
        auto const style_text = attr(*e, "style").value_or("");
        if (attr(*e, "filter") || style_text.find("filter") != std::string::npos) {
            log::log_warning_once(log, "svg: filters are not rendered; elements are drawn without them");
        }
        std::optional<svg> out;
        if (name == "g" || name == "a") {
            svg n = node_of(*s, *e, compound{});
            children_into(e, s, restyle, std::get<compound>(n.svgbody).compound_children);
            if (name == "a") {
                if (auto const h = href_of(*e); h && !h->empty()) {
                    n.svg_link = share(std::string(*h));
                    link_bases.emplace(n.svg_link.get(), resource::locator::locator_to_string(dom::element_base(*e)));
                }
            }
            out = std::move(n);
        } else if (name == "switch") {
            svg n = node_of(*s, *e, compound{});
            for (auto const& c : children_of(*e)) {
                if (in_svg_namespace(c->dom_element_name) && passes_conditions(*c)) {
                    if (auto built = element(c, s, restyle)) {
                        std::get<compound>(n.svgbody).compound_children.push_back(std::move(*built));
                    }
                    break;
                }
            }
            out = std::move(n);
        } else if (name == "svg") {
            out = viewport_node(e, s, restyle, len(*e, *s, "x", axis::x, 0), len(*e, *s, "y", axis::y, 0), std::nullopt,
                                std::nullopt);
        } else if (name == "use") {
            out = use_node(e, s);
        } else if (name == "image") {
            out = image_node(e, s);
        } else if (name == "text") {
            out = text_node(e, s, restyle);
        } else if (auto cmds = shape_commands(*e, *s)) {
            if (cmds->empty()) {
                return std::nullopt;
            }
            auto const box = path_bbox(*cmds);
            auto const& g = *s->svgstyle;
            svg n = node_of(*s, *e,
                            // A line has no inside to fill; filling its zero-area path would leave a
                            // hairline in some viewers.
                            shape{.shape_fill = name == "line" ? used_paint{paint_none{}}
                                                               : paint_of(g.svgstyle_fill, box, "fill", s),
                                  .shape_stroke = paint_of(g.svgstyle_stroke, box, "stroke", s),
                                  .shape_commands = *cmds});
            bool const markable = name == "path" || name == "line" || name == "polyline" || name == "polygon";
            auto markers = markable ? markers_of(*cmds, *s, n.svgstyle.stroke_width, s) : std::vector<svg>{};
            if (!markers.empty()) {
                // The shape and its markers share the element's transform, clip and opacity.
                svg group = node_of(*s, *e, compound{});
                n.svg_transform = transform{};
                n.svgstyle.opacity = 1;
                auto& kids = std::get<compound>(group.svgbody).compound_children;
                kids.push_back(std::move(n));
                for (auto& m : markers) {
                    kids.push_back(std::move(m));
                }
                out = std::move(group);
            } else {
                out = std::move(n);
            }
        }
        if (out) {
            auto* node = &*out;
            node->clippath = clip_of(*s, [&]() { return node_bbox(*node); });
            node->mask = mask_of(*e, [&]() { return node_bbox(*node); });
        }
        return out;
    }
};

} // namespace

svg_block make_svg_block(log::log const& log, dom::element_ref const& root, build_env const& env) {
    builder b{log, env, {}, {}, {}};
    b.collect_ids(root);
    // References may also lead to definitions elsewhere in the same document (a sprite sheet).
    if (auto doc = root->dom_element_owner_doc.lock()) {
        for (auto const& top : styledom::tree::element_children(*doc)) {
            b.collect_ids(top);
        }
    }
    svg_block out;
    auto const s = b.style_of(root, nullptr, false);
    std::optional<viewbox> vb;
    if (auto const text = attr(*root, "viewBox")) {
        if (auto v = path_data::parse_viewbox(*text)) {
            vb = *v;
        } else {
            b.warn(v.error());
            if (v.error().find("negative") != std::string::npos) {
                return out;
            }
        }
    }
    // The size: width and height in CSS pixels; a percentage or a missing one falls back to the viewBox's
    // proportions, then to the default size of a replaced element.
    auto const absolute = [&](std::string_view name) -> std::optional<double> {
        auto const text = attr(*root, name);
        if (!text || text->find('%') != std::string::npos) {
            return std::nullopt;
        }
        return b.length(*text, axis::other, builder::px_of_points(s->font_size));
    };
    auto w = absolute("width");
    auto h = absolute("height");
    if ((w && *w < 0) || (h && *h < 0)) {
        b.warn(w && *w < 0 ? "svg[@width]: positive length value required." : "svg[@height]: positive length value required.");
        return out;
    }
    out.viewport_sized = w || h || (vb && vb->viewboxw > 0 && vb->viewboxh > 0);
    if (vb && vb->viewboxw > 0 && vb->viewboxh > 0) {
        if (w && !h) {
            h = *w * vb->viewboxh / vb->viewboxw;
        } else if (h && !w) {
            w = *h * vb->viewboxw / vb->viewboxh;
        } else if (!w && !h) {
            w = vb->viewboxw;
            h = vb->viewboxh;
            out.viewport_ratio_only = true;
        }
    }
    out.viewport_width = w.value_or(env.env_default_width);
    out.viewport_height = h.value_or(env.env_default_height);
    if (out.viewport_width == 0 || out.viewport_height == 0 || (vb && (vb->viewboxw == 0 || vb->viewboxh == 0))) {
        return out;
    }
    auto const p = path_data::parse_par(attr(*root, "preserveAspectRatio").value_or(""));
    if (vb) {
        out.root_transform = view_transform(*vb, p, 0, 0, out.viewport_width, out.viewport_height);
    }
    b.viewports.push_back(vb ? builder::viewport_size{vb->viewboxw, vb->viewboxh}
                             : builder::viewport_size{out.viewport_width, out.viewport_height});
    b.children_into(root, s, false, out.svg_content);
    // The links: each `a` with a target, over the box of what it draws, in viewport units.
    std::function<void(std::vector<svg> const&, transform const&)> links = [&](std::vector<svg> const& nodes,
                                                                            transform const& ctm) {
        for (auto const& n : nodes) {
            auto const here = then(n.viewbox_transform.value_or(transform{}), then(n.svg_transform, ctm));
            if (n.svg_link) {
                if (auto const box = b.node_bbox(n)) {
                    std::optional<bbox> area;
                    for (auto p : {point{box->x0, box->y0}, point{box->x1, box->y0}, point{box->x0, box->y1},
                                   point{box->x1, box->y1}}) {
                        auto const q = apply(here, p);
                        area = area ? bbox{std::min(area->x0, q.x), std::min(area->y0, q.y), std::max(area->x1, q.x),
                                           std::max(area->y1, q.y)}
                                    : bbox{q.x, q.y, q.x, q.y};
                    }
                    auto const base = b.link_bases.find(n.svg_link.get());
                    out.svg_links.push_back({*n.svg_link, base == b.link_bases.end() ? std::string{} : base->second,
                                             *area});
                }
            }
            if (auto const* c = std::get_if<compound>(&n.svgbody)) {
                links(c->compound_children, here);
            }
        }
    };
    links(out.svg_content, out.root_transform);
    return out;
}

} // namespace vellum::svg::build
