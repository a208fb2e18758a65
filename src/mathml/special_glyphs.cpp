#include "mathml/special_glyphs.hpp"

#include "mathml/datafile.hpp"
#include "util/cell.hpp"

#include <cstdio>
#include <memory>

namespace vellum::mathml::special_glyphs {

namespace {

// A number as "%lf%c" reads it: digits with nothing after them but spaces.
result<double> number(datafile::element const& e, char const* name) {
    auto const v = datafile::attribute(e, name);
    if (!v) {
        return 0.0;
    }
    double d = 0;
    char rest = 0;
    int const n = std::sscanf(v->c_str(), "%lf%c", &d, &rest);
    if (n < 1 || (n == 2 && rest != ' ')) {
        return fail(std::string(name) + ": not a number: " + *v);
    }
    return d;
}

result<glyph_point>
point_of(datafile::element const& e, char const* x, char const* y, char const* dw, char const* dh) {
    glyph_point p;
    for (auto [name, field] :
         {std::pair{x, &p.x}, std::pair{y, &p.y}, std::pair{dw, &p.dw}, std::pair{dh, &p.dh}}) {
        auto v = number(e, name);
        if (!v) {
            return fail(v.error());
        }
        *field = *v;
    }
    return p;
}

} // namespace

result<mglyphs> parse_glyphs(std::string_view text) {
    auto elements = datafile::parse_elements(text);
    if (!elements) {
        return fail(elements.error());
    }
    mglyphs out;
    for (auto const& g : *elements) {
        auto const op = datafile::attribute(g, "text");
        if (g.element_name != "glyph" || !op) {
            return fail("glyph entry without text");
        }
        mglyph m;
        for (auto [name, field] : {std::pair{"width", &m.glyph_width}, std::pair{"up", &m.glyph_up},
                                   std::pair{"down", &m.glyph_down}}) {
            auto v = number(g, name);
            if (!v) {
                return fail(*op + ": " + v.error());
            }
            *field = *v;
        }
        for (auto const& contour : g.element_children) {
            std::vector<glyph_command> commands;
            for (auto const& c : contour.element_children) {
                if (c.element_name == "point") {
                    auto p = point_of(c, "x", "y", "dw", "dh");
                    if (!p) {
                        return fail(*op + ": " + p.error());
                    }
                    commands.push_back(point{*p});
                } else if (c.element_name == "quadratic") {
                    auto control = point_of(c, "cx", "cy", "cdw", "cdh");
                    auto end = point_of(c, "x", "y", "dw", "dh");
                    if (!control || !end) {
                        return fail(*op + ": " + (control ? end.error() : control.error()));
                    }
                    commands.push_back(q_curveto{*control, *end});
                } else {
                    return fail(*op + ": unknown element " + c.element_name);
                }
            }
            if (!commands.empty() && !std::holds_alternative<point>(commands.front())) {
                return fail(*op + ": a contour must start with a point");
            }
            if (!commands.empty()) {
                m.glyph_contours.push_back(std::move(commands));
            }
        }
        out[*op] = std::move(m);
    }
    return out;
}

mglyphs const& load_glyphs(log::log const& log, resource::loader::loader const& l) {
    static cell<std::shared_ptr<mglyphs const>> loaded;
    if (auto g = loaded.get()) {
        return *g;
    }
    auto text = datafile::read_system_file(log, l, "math/glyphs.xml");
    std::shared_ptr<mglyphs const> glyphs;
    if (!text) {
        log::log_warning(log, "math/glyphs.xml: " + text.error() + "; operators are stretched by scaling");
        glyphs = std::make_shared<mglyphs const>();
    } else if (auto g = parse_glyphs(*text); !g) {
        log::log_warning(log, "math/glyphs.xml: " + g.error() + "; operators are stretched by scaling");
        glyphs = std::make_shared<mglyphs const>();
    } else {
        glyphs = std::make_shared<mglyphs const>(std::move(*g));
    }
    loaded.set(glyphs);
    return *loaded.get();
}

std::vector<svg::command>
stretched_path(mglyph const& g, double size, double extra_width, double extra_height) {
    auto const at = [&](glyph_point const& p) {
        return svg::point{p.x * size + p.dw * extra_width, -(p.y * size + p.dh * extra_height)};
    };
    std::vector<svg::command> out;
    for (auto const& contour : g.glyph_contours) {
        svg::point current{};
        bool first = true;
        for (auto const& c : contour) {
            if (auto const* p = std::get_if<point>(&c)) {
                current = at(p->at);
                if (first) {
                    out.push_back(svg::moveto{current});
                } else {
                    out.push_back(svg::lineto{current});
                }
            } else {
                auto const& q = std::get<q_curveto>(c);
                // The quadratic as the cubic with the same curve: its controls two thirds of the way
                // from each end to the quadratic's control.
                auto const ctl = at(q.control);
                auto const end = at(q.end);
                out.push_back(svg::c_curveto{
                    .control1 = {current.x + 2.0 / 3 * (ctl.x - current.x),
                                 current.y + 2.0 / 3 * (ctl.y - current.y)},
                    .control2 = {end.x + 2.0 / 3 * (ctl.x - end.x), end.y + 2.0 / 3 * (ctl.y - end.y)},
                    .c_end = end});
                current = end;
            }
            first = false;
        }
        out.push_back(svg::closepath{});
    }
    return out;
}

} // namespace vellum::mathml::special_glyphs
