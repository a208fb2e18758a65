#include "pack/border_collapse.hpp"

#include "util/result.hpp"

#include <algorithm>
#include <cmath>

namespace vellum::pack::border_collapse {

namespace {

using css::box::line_style;

// The rank of a style when two borders of one width meet; higher wins.
int style_rank(line_style s) {
    switch (s) {
    case line_style::none:
        return 0;
    case line_style::inset:
        return 1;
    case line_style::groove:
        return 2;
    case line_style::outset:
        return 3;
    case line_style::ridge:
        return 4;
    case line_style::dotted:
        return 5;
    case line_style::dashed:
        return 6;
    case line_style::solid:
        return 7;
    case line_style::double_:
        return 8;
    case line_style::hidden:
        return 9;
    }
    return 0;
}

// The segments of a grid, with the candidates gathered on them.
struct edges {
    int rows = 0;
    int cols = 0;
    std::vector<candidate> horizontal;
    std::vector<candidate> vertical;
    std::vector<bool> horizontal_inside;
    std::vector<bool> vertical_inside;

    void above(int r, int c, css::box::border const& b, origin o) {
        auto& e = horizontal[static_cast<std::size_t>(r * cols + c)];
        e = winner(e, candidate{b, o});
    }
    void left(int r, int c, css::box::border const& b, origin o) {
        auto& e = vertical[static_cast<std::size_t>(r * (cols + 1) + c)];
        e = winner(e, candidate{b, o});
    }
    // The four sides of a rectangle of the grid.
    void frame(int r0, int c0, int nr, int nc, css::box::borders const& b, origin o) {
        for (int c = c0; c < c0 + nc; ++c) {
            above(r0, c, b.borders_top, o);
            above(r0 + nr, c, b.borders_bottom, o);
        }
        for (int r = r0; r < r0 + nr; ++r) {
            left(r, c0, b.borders_left, o);
            left(r, c0 + nc, b.borders_right, o);
        }
    }
};

} // namespace

float drawn_width(css::box::border const& b) {
    if (b.border_style == line_style::none || b.border_style == line_style::hidden) {
        return 0;
    }
    return b.border_width;
}

candidate winner(candidate const& first, candidate const& second) {
    auto const s1 = first.candidate_border.border_style;
    auto const s2 = second.candidate_border.border_style;
    if (s1 == line_style::hidden || s2 == line_style::hidden) {
        return s1 == line_style::hidden ? first : second;
    }
    if (s2 == line_style::none || drawn_width(second.candidate_border) <= 0) {
        return first;
    }
    if (s1 == line_style::none || drawn_width(first.candidate_border) <= 0) {
        return second;
    }
    float const w1 = first.candidate_border.border_width;
    float const w2 = second.candidate_border.border_width;
    if (std::abs(w1 - w2) > 0.0001f) {
        return w1 > w2 ? first : second;
    }
    if (style_rank(s1) != style_rank(s2)) {
        return style_rank(s1) > style_rank(s2) ? first : second;
    }
    return second.candidate_origin > first.candidate_origin ? second : first;
}

resolved resolve(grid const& g) {
    int const rows = g.grid_rows;
    int const cols = g.grid_columns;
    edges e{.rows = rows, .cols = cols};
    candidate const nothing{css::box::border{}, origin::table};
    e.horizontal.assign(static_cast<std::size_t>((rows + 1) * cols), nothing);
    e.vertical.assign(static_cast<std::size_t>(rows * (cols + 1)), nothing);
    e.horizontal_inside.assign(e.horizontal.size(), false);
    e.vertical_inside.assign(e.vertical.size(), false);
    if (rows > 0 && cols > 0) {
        e.frame(0, 0, rows, cols, g.grid_table, origin::table);
    }
    for (auto const& cg : g.grid_column_groups) {
        if (cg.span_start >= 0 && cg.span_start + cg.span_count <= cols) {
            e.frame(0, cg.span_start, rows, cg.span_count, cg.span_borders, origin::column_group);
        }
    }
    for (int c = 0; c < std::min(cols, static_cast<int>(g.grid_column_borders.size())); ++c) {
        e.frame(0, c, rows, 1, g.grid_column_borders[c], origin::column);
    }
    for (auto const& rg : g.grid_row_groups) {
        if (rg.span_start >= 0 && rg.span_start + rg.span_count <= rows) {
            e.frame(rg.span_start, 0, rg.span_count, cols, rg.span_borders, origin::row_group);
        }
    }
    for (int r = 0; r < std::min(rows, static_cast<int>(g.grid_row_borders.size())); ++r) {
        e.frame(r, 0, 1, cols, g.grid_row_borders[r], origin::row);
    }
    for (auto const& c : g.grid_cells) {
        check(c.gc_row >= 0 && c.gc_col >= 0 && c.gc_row + c.gc_rowspan <= rows && c.gc_col + c.gc_colspan <= cols,
              "get_border_boxes: no column width.");
        e.frame(c.gc_row, c.gc_col, c.gc_rowspan, c.gc_colspan, c.gc_borders, origin::cell);
        // The edges inside a spanning cell separate nothing.
        for (int r = c.gc_row + 1; r < c.gc_row + c.gc_rowspan; ++r) {
            for (int k = c.gc_col; k < c.gc_col + c.gc_colspan; ++k) {
                e.horizontal_inside[static_cast<std::size_t>(r * cols + k)] = true;
            }
        }
        for (int r = c.gc_row; r < c.gc_row + c.gc_rowspan; ++r) {
            for (int k = c.gc_col + 1; k < c.gc_col + c.gc_colspan; ++k) {
                e.vertical_inside[static_cast<std::size_t>(r * (cols + 1) + k)] = true;
            }
        }
    }
    resolved out{.resolved_rows = rows, .resolved_columns = cols};
    out.horizontal.reserve(e.horizontal.size());
    for (std::size_t i = 0; i < e.horizontal.size(); ++i) {
        out.horizontal.push_back(e.horizontal_inside[i] ? css::box::border{} : e.horizontal[i].candidate_border);
    }
    out.vertical.reserve(e.vertical.size());
    for (std::size_t i = 0; i < e.vertical.size(); ++i) {
        out.vertical.push_back(e.vertical_inside[i] ? css::box::border{} : e.vertical[i].candidate_border);
    }
    return out;
}

css::box::borders cell_halves(resolved const& r, int row, int col, int rowspan, int colspan) {
    auto side = [](float& to, css::box::border const& b) { to = std::max(to, drawn_width(b) / 2); };
    float top = 0;
    float bottom = 0;
    float left = 0;
    float right = 0;
    for (int c = col; c < col + colspan; ++c) {
        side(top, r.above(row, c));
        side(bottom, r.above(row + rowspan, c));
    }
    for (int k = row; k < row + rowspan; ++k) {
        side(left, r.left_of(k, col));
        side(right, r.left_of(k, col + colspan));
    }
    css::box::borders out;
    out.borders_top.border_width = top;
    out.borders_bottom.border_width = bottom;
    out.borders_left.border_width = left;
    out.borders_right.border_width = right;
    return out;
}

} // namespace vellum::pack::border_collapse
