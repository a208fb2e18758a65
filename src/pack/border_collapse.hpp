// The collapsing border model of tables: on each edge of the grid the borders of the cells, rows, row
// groups, columns, column groups and the table that meet there compete, and one of them is drawn.
#pragma once

#include "css/box.hpp"

#include <vector>

namespace vellum::pack::border_collapse {

/// Where a competing border comes from, from the weakest to the strongest.
enum class origin { table, column_group, column, row_group, row, cell };

/// A border with the box it belongs to.
struct candidate {
    css::box::border candidate_border;
    border_collapse::origin candidate_origin = origin::cell;
    bool operator==(candidate const&) const = default;
};

/// The border that wins an edge: "hidden" beats everything, "none" loses to everything; then the wider
/// one, then by style (double, solid, dashed, dotted, ridge, outset, groove, inset), then by the box
/// (cell, row, row group, column, column group, table). On a full tie the first one (the one to the
/// left or above) wins.
candidate winner(candidate const& first, candidate const& second);

/// A cell of the grid with its span and its own borders.
struct grid_cell {
    int gc_row = 0;
    int gc_col = 0;
    int gc_rowspan = 1;
    int gc_colspan = 1;
    css::box::borders gc_borders;
};

/// A run of rows (a row group) or of columns (a column group) with its borders.
struct grid_span {
    int span_start = 0;
    int span_count = 1;
    css::box::borders span_borders;
};

/// Everything that has borders in a grid of `grid_rows` by `grid_columns`.
struct grid {
    int grid_rows = 0;
    int grid_columns = 0;
    css::box::borders grid_table;
    std::vector<css::box::borders> grid_row_borders;
    std::vector<grid_span> grid_row_groups;
    std::vector<css::box::borders> grid_column_borders;
    std::vector<grid_span> grid_column_groups;
    std::vector<grid_cell> grid_cells;
};

/// The winning border of every edge segment of the grid. `horizontal` has the edge above each row
/// and below the last, one segment per column: `(rows + 1) * columns` entries, row by row.
/// `vertical` has the edge left of each column and right of the last, one segment per row:
/// `rows * (columns + 1)` entries, row by row. Edges inside a spanning cell have no border.
struct resolved {
    int resolved_rows = 0;
    int resolved_columns = 0;
    std::vector<css::box::border> horizontal;
    std::vector<css::box::border> vertical;

    css::box::border const& above(int row, int col) const { return horizontal[row * resolved_columns + col]; }
    css::box::border const& left_of(int row, int col) const { return vertical[row * (resolved_columns + 1) + col]; }
};

/// Resolves every edge of the grid.
resolved resolve(grid const& g);

/// The width a border takes on its edge: none for "none" and "hidden".
float drawn_width(css::box::border const& b);

/// Half of the widest border on each side of a cell: what the cell's box takes of its borders.
css::box::borders cell_halves(resolved const& r, int row, int col, int rowspan, int colspan);

} // namespace vellum::pack::border_collapse
