#include "mathml/math.hpp"

#include <algorithm>

namespace vellum::mathml {

math empty_math() {
    return math{.mcontent = simple{}};
}

math simple_math(std::vector<svg::svg> items, double width, double up, double down) {
    return math{.mcontent = simple{std::move(items)}, .mwidth = width, .mup = up, .mdown = down};
}

placed at(double x, double y, math m) {
    return placed{.placed_x = x, .placed_y = y, .placed_math = share(std::move(m))};
}

math stack(std::vector<placed> members, double width) {
    math out{.mcontent = groups{}, .mwidth = width};
    for (auto const& p : members) {
        out.mup = std::max(out.mup, p.placed_math->mup - p.placed_y);
        out.mdown = std::max(out.mdown, p.placed_math->mdown + p.placed_y);
    }
    std::get<groups>(out.mcontent).groups_members = std::move(members);
    return out;
}

namespace {

svg::svg group(std::vector<svg::svg> children, svg::transform t) {
    return svg::svg{.svg_transform = t, .svgbody = svg::compound{std::move(children)}};
}

} // namespace

std::vector<svg::svg> flatten(math const& m, double x, double y) {
    std::vector<svg::svg> out;
    std::visit(overloaded{
                   [&](simple const& s) {
                       if (!s.simple_items.empty()) {
                           out.push_back(group(s.simple_items, svg::translation(x, y)));
                       }
                   },
                   [&](groups const& g) {
                       std::vector<svg::svg> inner;
                       for (auto const& p : g.groups_members) {
                           auto items = flatten(*p.placed_math, p.placed_x, p.placed_y);
                           std::move(items.begin(), items.end(), std::back_inserter(inner));
                       }
                       if (inner.empty()) {
                           return;
                       }
                       auto t = svg::translation(x, y);
                       if (g.groups_matrix) {
                           t = svg::then(*g.groups_matrix, t);
                       }
                       out.push_back(group(std::move(inner), t));
                   },
               },
               m.mcontent);
    return out;
}

svg::svg filled_rect(double x, double y, double w, double h, css::color::color const& c) {
    return filled_path({svg::rect{.corner = {x, y}, .size = {w, h}}}, c);
}

svg::svg filled_path(std::vector<svg::command> commands, css::color::color const& c) {
    return svg::svg{.svgbody = svg::shape{.shape_fill = svg::paint_color{c},
                                          .shape_stroke = svg::paint_none{},
                                          .shape_commands = std::move(commands)}};
}

svg::svg stroked_path(std::vector<svg::command> commands, double width, css::color::color const& c) {
    svg::svg out{.svgbody = svg::shape{.shape_fill = svg::paint_none{},
                                       .shape_stroke = svg::paint_color{c},
                                       .shape_commands = std::move(commands)}};
    out.svgstyle.stroke_width = width;
    return out;
}

} // namespace vellum::mathml
