// Tables, enclosures and padded boxes: mtable as a grid of cells centred on the maths axis, menclose
// as strokes around or across its content, mpadded as a box of changed dimensions.
#include "mathml/layout.hpp"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <sstream>

namespace vellum::mathml::layout {

namespace om = opentype::math;

namespace {

std::vector<std::string> words(std::string const& text) {
    std::istringstream in(text);
    std::vector<std::string> out;
    for (std::string w; in >> w;) {
        out.push_back(w);
    }
    return out;
}

// The word of a list for position i, the last one repeated.
std::string nth(std::vector<std::string> const& list, std::size_t i, std::string const& fallback) {
    if (list.empty()) {
        return fallback;
    }
    return list[std::min(i, list.size() - 1)];
}

// One alignment group of a cell: its content, and how far it reaches before and after the point
// that lines up with the same group of the other rows of the column.
struct align_group {
    ref<math> group_math;
    double group_before = 0;
    double group_after = 0;
};

struct cell {
    math cell_math;
    std::string cell_align;
    /// The cell's alignment groups, when it has maligngroup children.
    std::vector<align_group> cell_groups;
};

// Splits a cell's children at its maligngroup elements. Each group lines up on its malignmark, or by
// its groupalign (the maligngroup's own, else the cell's word for that group): "left" on its left
// edge, "right" on its right edge, "center" on its middle.
std::vector<align_group> alignment_groups(context const& ctx,
                                          mathstyle const& st,
                                          dom::element_ref const& td,
                                          std::vector<dom::element_ref> const& kids) {
    auto const cell_align = words(attr(td, "groupalign").value_or(""));
    std::vector<std::vector<dom::element_ref>> members;
    std::vector<std::string> aligns;
    // What comes before the first group is reported and joins the first group.
    std::vector<dom::element_ref> before_first;
    for (auto const& k : kids) {
        if (local_name(k) == "maligngroup") {
            members.emplace_back(members.empty() ? std::move(before_first) : std::vector<dom::element_ref>{});
            aligns.push_back(attr(k, "groupalign").value_or(nth(cell_align, aligns.size(), "left")));
            continue;
        }
        if (members.empty()) {
            if (!is_space_like_element(k) &&
                std::all_of(before_first.begin(), before_first.end(), is_space_like_element)) {
                warn(ctx, "First aligngroup appears after other elements!");
            }
            before_first.push_back(k);
            continue;
        }
        members.back().push_back(k);
    }
    std::vector<align_group> out;
    for (std::size_t g = 0; g < members.size(); ++g) {
        auto const& list = members[g];
        auto const mark = std::find_if(list.begin(), list.end(),
                                       [](auto const& k) { return local_name(k) == "malignmark"; });
        if (mark != list.end()) {
            auto left = math_of_row(ctx, st, std::nullopt, {list.begin(), mark});
            auto right = math_of_row(ctx, st, std::nullopt, {mark + 1, list.end()});
            double const a = left.mwidth;
            double const b = right.mwidth;
            std::vector<placed> parts{at(0, 0, std::move(left)), at(a, 0, std::move(right))};
            out.push_back(align_group{share(stack(std::move(parts), a + b)), a, b});
            continue;
        }
        auto m = math_of_row(ctx, st, std::nullopt, list);
        double const w = m.mwidth;
        auto const& how = aligns[g];
        double const a = how == "right" ? w : how == "center" ? w / 2 : 0;
        out.push_back(align_group{share(std::move(m)), a, w - a});
    }
    return out;
}

} // namespace

math layout_mpadded(context const& ctx, mathstyle const& st, env const& e, dom::element_ref const& el) {
    auto inner = math_of_row(ctx, st, e, element_children(el));
    double const em = st.fontsize;
    double const ex = math_font_of(ctx, st).x_height_em * em;
    double const w0 = inner.mwidth;
    double const h0 = inner.mup;
    double const d0 = inner.mdown;
    // A value: an optional sign (relative to the current value), a number, and a unit, a percentage or
    // one of the pseudo-units width, height and depth (possibly after a percentage).
    auto const value = [&](char const* name, double current) -> double {
        auto const v = attr(el, name);
        if (!v || v->empty()) {
            return current;
        }
        std::string text = *v;
        text.erase(std::remove(text.begin(), text.end(), ' '), text.end());
        char sign = 0;
        if (text[0] == '+' || text[0] == '-') {
            sign = text[0];
            text.erase(0, 1);
        }
        char* end = nullptr;
        double const n = std::strtod(text.c_str(), &end);
        if (end == text.c_str()) {
            warn(ctx, std::string("mpadded: ") + name + ": not a length: " + *v);
            return current;
        }
        std::string unit = text.substr(std::size_t(end - text.c_str()));
        bool percent = false;
        if (!unit.empty() && unit[0] == '%') {
            percent = true;
            unit.erase(0, 1);
        }
        double amount;
        if (unit == "width" || unit == "height" || unit == "depth") {
            double const pseudo = unit == "width" ? w0 : unit == "height" ? h0 : d0;
            amount = (percent ? n / 100 : n) * pseudo;
        } else if (percent) {
            amount = n / 100 * current;
        } else if (auto m = units::parse_mathspace(std::to_string(n) + unit)) {
            amount = units::resolve(*m, em, ex, current);
        } else {
            warn(ctx, std::string("mpadded: ") + name + ": not a length: " + *v);
            return current;
        }
        return sign == '+' ? current + amount : sign == '-' ? current - amount : amount;
    };
    double const width = std::max(0.0, value("width", w0));
    double const up = std::max(0.0, value("height", h0));
    double const down = std::max(0.0, value("depth", d0));
    double const lspace = value("lspace", 0);
    double const voffset = value("voffset", 0);
    auto const mop = inner.mop;
    math out{.mcontent = groups{.groups_members = {at(lspace, -voffset, std::move(inner))}},
             .mwidth = width,
             .mup = up,
             .mdown = down};
    out.mop = mop;
    return out;
}

math layout_mtable(context const& ctx, mathstyle const& st0, dom::element_ref const& el) {
    auto st = st0;
    st.displaystyle = attr(el, "displaystyle").value_or("false") == "true";
    double const em = st.fontsize;
    double const ex = math_font_of(ctx, st).x_height_em * em;
    auto const column_align = words(attr(el, "columnalign").value_or("center"));
    auto const column_spacing = words(attr(el, "columnspacing").value_or("0.8em"));
    auto const row_spacing = words(attr(el, "rowspacing").value_or("1.0ex"));
    auto const column_lines = words(attr(el, "columnlines").value_or("none"));
    auto const row_lines = words(attr(el, "rowlines").value_or("none"));
    auto const frame = attr(el, "frame").value_or("none");
    auto const space = [&](std::string const& w) {
        auto m = units::parse_mathspace(w);
        return m ? units::resolve(*m, em, ex, em) : 0.0;
    };
    std::vector<std::vector<cell>> rows;
    // The equation labels of mlabeledtr rows, by row, set in a column of their own beside the table.
    std::vector<std::optional<math>> labels;
    for (auto const& r : element_children(el)) {
        auto const rn = local_name(r);
        std::vector<dom::element_ref> cells;
        auto const row_align = words(attr(r, "columnalign").value_or(""));
        if (rn == "mtr" || rn == "mlabeledtr") {
            cells = element_children(r);
            if (rn == "mlabeledtr" && !cells.empty()) {
                auto const& label = cells.front();
                labels.resize(rows.size() + 1);
                labels[rows.size()] = local_name(label) == "mtd"
                                          ? math_of_row(ctx, st, std::nullopt, element_children(label))
                                          : math_of_element(ctx, st, std::nullopt, label);
                cells.erase(cells.begin());
            }
        } else {
            // Anything else in a table is a row of one cell.
            cells = {r};
        }
        if (cells.empty()) {
            warn(ctx, "row has no height!");
        }
        std::vector<cell> row;
        for (std::size_t c = 0; c < cells.size(); ++c) {
            auto const& cel = cells[c];
            auto const is_mtd = local_name(cel) == "mtd";
            auto const kids = is_mtd ? element_children(cel) : std::vector<dom::element_ref>{};
            bool const grouped = std::any_of(kids.begin(), kids.end(),
                                             [](auto const& k) { return local_name(k) == "maligngroup"; });
            std::vector<align_group> groups;
            math m;
            if (grouped) {
                groups = alignment_groups(ctx, st, cel, kids);
            } else {
                m = is_mtd ? math_of_row(ctx, st, std::nullopt, kids)
                           : math_of_element(ctx, st, std::nullopt, cel);
            }
            std::string align = nth(column_align, c, "center");
            if (!row_align.empty()) {
                align = nth(row_align, c, align);
            }
            if (is_mtd) {
                align = attr(cel, "columnalign").value_or(align);
            }
            row.push_back(cell{std::move(m), align, std::move(groups)});
        }
        rows.push_back(std::move(row));
    }
    std::size_t columns = 0;
    for (auto const& r : rows) {
        columns = std::max(columns, r.size());
    }
    // Alignment groups: the k-th groups of a column's cells share one alignment point, each group
    // taking the room its widest members need before and after the point.
    for (std::size_t c = 0; c < columns; ++c) {
        std::vector<double> before;
        std::vector<double> after;
        for (auto const& r : rows) {
            if (c >= r.size()) {
                continue;
            }
            auto const& gs = r[c].cell_groups;
            if (gs.size() > before.size()) {
                before.resize(gs.size(), 0);
                after.resize(gs.size(), 0);
            }
            for (std::size_t g = 0; g < gs.size(); ++g) {
                before[g] = std::max(before[g], gs[g].group_before);
                after[g] = std::max(after[g], gs[g].group_after);
            }
        }
        for (auto& r : rows) {
            if (c >= r.size() || r[c].cell_groups.empty()) {
                continue;
            }
            std::vector<placed> parts;
            double point = 0;
            for (std::size_t g = 0; g < r[c].cell_groups.size(); ++g) {
                auto const& grp = r[c].cell_groups[g];
                point += before[g];
                parts.push_back(placed{.placed_x = point - grp.group_before, .placed_math = grp.group_math});
                point += after[g];
            }
            double total = 0;
            for (std::size_t g = 0; g < before.size(); ++g) {
                total += before[g] + after[g];
            }
            r[c].cell_math = stack(std::move(parts), total);
            // The groups fill the column: the cell's own alignment has nothing left to move.
            r[c].cell_align = "left";
        }
    }
    std::vector<double> col_w(columns, 0);
    std::vector<double> row_up(rows.size(), 0);
    std::vector<double> row_down(rows.size(), 0);
    for (std::size_t r = 0; r < rows.size(); ++r) {
        for (std::size_t c = 0; c < rows[r].size(); ++c) {
            auto const& m = rows[r][c].cell_math;
            col_w[c] = std::max(col_w[c], m.mwidth);
            row_up[r] = std::max(row_up[r], m.mup);
            row_down[r] = std::max(row_down[r], m.mdown);
        }
    }
    for (std::size_t c = 0; c < columns; ++c) {
        if (col_w[c] <= 0) {
            warn(ctx, "column has no width!");
        }
    }
    // Rows keep at least the height of a strut, so that rows of small entries still line up evenly.
    double const strut_up = 0.8 * em * 0.9;
    double const strut_down = 0.2 * em * 1.2;
    labels.resize(rows.size());
    double label_w = 0;
    for (std::size_t r = 0; r < rows.size(); ++r) {
        if (labels[r]) {
            label_w = std::max(label_w, labels[r]->mwidth);
            row_up[r] = std::max(row_up[r], labels[r]->mup);
            row_down[r] = std::max(row_down[r], labels[r]->mdown);
        }
    }
    for (std::size_t r = 0; r < rows.size(); ++r) {
        row_up[r] = std::max(row_up[r], strut_up);
        row_down[r] = std::max(row_down[r], strut_down);
    }
    double const frame_space = frame == "none" ? 0 : 0.4 * em;
    std::vector<double> col_x(columns, 0);
    double x = frame_space;
    for (std::size_t c = 0; c < columns; ++c) {
        col_x[c] = x;
        x += col_w[c] + (c + 1 < columns ? space(nth(column_spacing, c, "0.8em")) : 0);
    }
    double const width = x + frame_space;
    std::vector<double> row_y(rows.size(), 0);
    double y = frame_space;
    for (std::size_t r = 0; r < rows.size(); ++r) {
        row_y[r] = y + row_up[r];
        y = row_y[r] + row_down[r] + (r + 1 < rows.size() ? space(nth(row_spacing, r, "1.0ex")) : 0);
    }
    double const height = y + frame_space;
    // The table's middle on the maths axis: its rows stand from `top` downward.
    double const top = -(axis(ctx, st) + height / 2);
    std::vector<placed> members;
    for (std::size_t r = 0; r < rows.size(); ++r) {
        for (std::size_t c = 0; c < rows[r].size(); ++c) {
            auto& cl = rows[r][c];
            double const w = cl.cell_math.mwidth;
            double const cx = cl.cell_align == "left"    ? col_x[c]
                              : cl.cell_align == "right" ? col_x[c] + col_w[c] - w
                                                         : col_x[c] + (col_w[c] - w) / 2;
            members.push_back(at(cx, top + row_y[r], std::move(cl.cell_math)));
        }
    }
    double const rule = mathfont::constant(math_font_of(ctx, st), om::constant::fraction_rule_thickness, em);
    std::vector<svg::svg> lines;
    for (std::size_t c = 0; c + 1 < columns; ++c) {
        auto const kind = nth(column_lines, c, "none");
        if (kind == "none") {
            continue;
        }
        double const lx = (col_x[c] + col_w[c] + col_x[c + 1]) / 2;
        lines.push_back(filled_rect(lx - rule / 2, top, rule, height, st.color));
    }
    for (std::size_t r = 0; r + 1 < rows.size(); ++r) {
        auto const kind = nth(row_lines, r, "none");
        if (kind == "none") {
            continue;
        }
        double const ly = top + (row_y[r] + row_down[r] + row_y[r + 1] - row_up[r + 1]) / 2;
        lines.push_back(filled_rect(0, ly - rule / 2, width, rule, st.color));
    }
    if (frame != "none") {
        lines.push_back(stroked_path(
            {svg::rect{.corner = {rule / 2, top + rule / 2}, .size = {width - rule, height - rule}}}, rule,
            st.color));
    }
    if (!lines.empty()) {
        members.push_back(at(0, 0, simple_math(std::move(lines), 0, 0, 0)));
    }
    double total = width;
    if (label_w > 0) {
        // The labels stand on their rows' baselines, at the side that "side" names, "minlabelspacing"
        // away from the table; on the left the table moves over to make room.
        auto const side = attr(el, "side").value_or("right");
        double const gap = space(attr(el, "minlabelspacing").value_or("0.8em"));
        bool const left = side == "left" || side == "leftoverlap";
        if (left) {
            for (auto& m : members) {
                m.placed_x += label_w + gap;
            }
        }
        for (std::size_t r = 0; r < rows.size(); ++r) {
            if (labels[r]) {
                double const lx = left ? label_w - labels[r]->mwidth : width + gap;
                members.push_back(at(lx, top + row_y[r], std::move(*labels[r])));
            }
        }
        total = width + gap + label_w;
    }
    return math{.mcontent = groups{std::move(members)}, .mwidth = total, .mup = -top, .mdown = height + top};
}

math layout_menclose(context const& ctx, mathstyle const& st, env const& e, dom::element_ref const& el) {
    auto inner = math_of_row(ctx, st, e, element_children(el));
    auto notations = words(attr(el, "notation").value_or("longdiv"));
    if (std::find(notations.begin(), notations.end(), "radical") != notations.end()) {
        // The radical goes around the content first; the other notations enclose the whole.
        inner = with_radical(ctx, st, std::move(inner), std::nullopt);
    }
    double const em = st.fontsize;
    double const rule = mathfont::constant(math_font_of(ctx, st), om::constant::fraction_rule_thickness, em);
    double const pad = 0.2 * em;
    auto has = [&](std::string const& n) {
        return std::find(notations.begin(), notations.end(), n) != notations.end();
    };
    bool const left = has("box") || has("roundedbox") || has("left") || has("longdiv") || has("madruwb");
    bool const right = has("box") || has("roundedbox") || has("right") || has("actuarial") || has("madruwb");
    bool const topside = has("box") || has("roundedbox") || has("top") || has("longdiv") || has("actuarial");
    bool const bottom = has("box") || has("roundedbox") || has("bottom") || has("madruwb");
    bool const circle = has("circle");
    bool const arrow = has("updiagonalarrow");
    bool const phasor = has("phasorangle");
    // The angle's slanted side rises from the bottom left over a share of the content's height.
    double const slant = phasor ? 0.5 * (inner.mup + inner.mdown + 2 * pad) : 0;
    double const lpad =
        phasor           ? slant + pad
        : left || circle ? pad
        : has("horizontalstrike") || has("updiagonalstrike") || has("downdiagonalstrike") || arrow ? rule
                                                                                                   : 0;
    double const rpad = right || circle ? pad : arrow ? 0.3 * em : phasor ? rule : lpad;
    double const tpad = topside || circle || arrow ? pad : phasor ? pad : 0;
    double const bpad = bottom || circle || phasor ? pad : 0;
    double const w = lpad + inner.mwidth + rpad;
    double const up = inner.mup + tpad;
    double const down = inner.mdown + bpad;
    std::vector<svg::svg> strokes;
    auto const line = [&](double x0, double y0, double x1, double y1) {
        strokes.push_back(stroked_path({svg::moveto{{x0, y0}}, svg::lineto{{x1, y1}}}, rule, st.color));
    };
    double const half = rule / 2;
    if (has("roundedbox")) {
        double const r = pad;
        std::vector<svg::command> path{svg::moveto{{half + r, -up + half}}};
        path.push_back(svg::lineto{{w - half - r, -up + half}});
        path.push_back(
            svg::c_curveto{{w - half, -up + half}, {w - half, -up + half}, {w - half, -up + half + r}});
        path.push_back(svg::lineto{{w - half, down - half - r}});
        path.push_back(
            svg::c_curveto{{w - half, down - half}, {w - half, down - half}, {w - half - r, down - half}});
        path.push_back(svg::lineto{{half + r, down - half}});
        path.push_back(svg::c_curveto{{half, down - half}, {half, down - half}, {half, down - half - r}});
        path.push_back(svg::lineto{{half, -up + half + r}});
        path.push_back(svg::c_curveto{{half, -up + half}, {half, -up + half}, {half + r, -up + half}});
        path.push_back(svg::closepath{});
        strokes.push_back(stroked_path(std::move(path), rule, st.color));
    } else {
        if (left && !has("longdiv")) {
            line(half, -up, half, down);
        }
        if (right) {
            line(w - half, -up, w - half, down);
        }
        if (topside) {
            line(0, -up + half, w, -up + half);
        }
        if (bottom) {
            line(0, down - half, w, down - half);
        }
    }
    if (has("longdiv")) {
        // The long division bracket: a curve down the left side from the top bar.
        strokes.push_back(
            stroked_path({svg::moveto{{half, -up + half}},
                          svg::c_curveto{{pad * 0.6, -up / 3}, {pad * 0.6, down / 3}, {half, down}}},
                         rule, st.color));
    }
    if (circle) {
        strokes.push_back(
            stroked_path(svg::ellipse_curves({w / 2, (down - up) / 2}, w / 2 - half, (up + down) / 2 - half),
                         rule, st.color));
    }
    if (has("horizontalstrike")) {
        double const ax = axis(ctx, st);
        line(0, -ax, w, -ax);
    }
    if (has("verticalstrike")) {
        line(w / 2, -up, w / 2, down);
    }
    if (has("updiagonalstrike")) {
        line(0, down, w, -up);
    }
    if (has("downdiagonalstrike")) {
        line(0, -up, w, down);
    }
    if (arrow) {
        // A stroke from the bottom left to the top right corner, ending in a filled head.
        double const dx = w;
        double const dy = -(up + down);
        double const len = std::hypot(dx, dy);
        double const ux = dx / len;
        double const uy = dy / len;
        double const head = std::min(0.3 * em, 0.5 * len);
        double const half_head = 0.4 * head;
        double const bx = w - head * ux;
        double const by = -up - head * uy;
        line(0, down, bx, by);
        strokes.push_back(
            filled_path({svg::moveto{{w, -up}}, svg::lineto{{bx - half_head * uy, by + half_head * ux}},
                         svg::lineto{{bx + half_head * uy, by - half_head * ux}}, svg::closepath{}},
                        st.color));
    }
    if (phasor) {
        // The angle sign: a base along the bottom and a side slanting up from its left end.
        line(0, down - half, w, down - half);
        line(half, down - half, slant, -up);
    }
    for (auto const& n : notations) {
        static constexpr std::string_view known[] = {"box",
                                                     "roundedbox",
                                                     "circle",
                                                     "left",
                                                     "right",
                                                     "top",
                                                     "bottom",
                                                     "longdiv",
                                                     "actuarial",
                                                     "madruwb",
                                                     "horizontalstrike",
                                                     "verticalstrike",
                                                     "updiagonalstrike",
                                                     "downdiagonalstrike",
                                                     "radical",
                                                     "updiagonalarrow",
                                                     "phasorangle"};
        if (std::find(std::begin(known), std::end(known), n) == std::end(known)) {
            warn_once(ctx, "menclose notation " + n + " is not drawn");
        }
    }
    std::vector<placed> members{at(lpad, 0, std::move(inner)),
                                at(0, 0, simple_math(std::move(strokes), 0, 0, 0))};
    return math{.mcontent = groups{std::move(members)}, .mwidth = w, .mup = up, .mdown = down};
}

} // namespace vellum::mathml::layout
