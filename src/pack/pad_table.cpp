#include "pack/pad_table.hpp"

#include "util/ref.hpp"
#include "util/result.hpp"

#include <algorithm>

namespace vellum::pack::pad_table {

namespace {

// What a cell spanning rows leaves to the rows below it at one column.
struct pending {
    int rows_left = 0;
    ref<css::style::style> style;
    css::box::borders borders;
    int colspan = 1;
};

// The run of free columns from `at`, up to `want` of them.
int free_run(std::vector<pending> const& above, int at, int want) {
    int n = 0;
    while (n < want && at + n < static_cast<int>(above.size()) && above[at + n].rows_left == 0) {
        ++n;
    }
    return n;
}

} // namespace

int column_count(std::vector<prepack::row> const& rows) {
    // The same walk as padding, with a grid that widens as cells need it.
    std::vector<int> left;
    int columns = 0;
    int const n_rows = static_cast<int>(rows.size());
    for (int r = 0; r < n_rows; ++r) {
        std::vector<int> taken = left;
        int col = 0;
        for (auto const& c : rows[r].row_content) {
            auto const* cc = std::get_if<prepack::cell_cell>(&c);
            if (!cc) {
                continue;
            }
            while (col < static_cast<int>(taken.size()) && taken[col] > 0) {
                ++col;
            }
            int span = std::max(1, cc->cell.cell_colspan);
            // A span stops at the first column still held by a cell from above.
            int run = 0;
            while (run < span && (col + run >= static_cast<int>(taken.size()) || taken[col + run] == 0)) {
                ++run;
            }
            span = run;
            int const rowspan = std::min(std::max(1, cc->cell.cell_rowspan), n_rows - r);
            if (static_cast<int>(taken.size()) < col + span) {
                taken.resize(col + span, 0);
                left.resize(col + span, 0);
            }
            for (int k = 0; k < span; ++k) {
                left[col + k] = rowspan;
                taken[col + k] = 1;
            }
            col += span;
            columns = std::max(columns, col);
        }
        for (auto& l : left) {
            l = std::max(0, l - 1);
        }
        // Columns held only from above count too.
        columns = std::max(columns, static_cast<int>(taken.size()));
    }
    return columns;
}

std::vector<prepack::row> pad_rows(std::vector<prepack::row> const& rows, int columns) {
    std::vector<prepack::row> out;
    out.reserve(rows.size());
    std::vector<pending> above(static_cast<std::size_t>(std::max(0, columns)));
    int const n_rows = static_cast<int>(rows.size());
    for (int r = 0; r < n_rows; ++r) {
        auto const& src = rows[r];
        prepack::row row{.row_style = src.row_style,
                         .row_breaks = src.row_breaks,
                         .row_type = src.row_type,
                         .row_bg = src.row_bg};
        row.row_content.reserve(static_cast<std::size_t>(columns));
        std::vector<pending> below = above;
        for (auto& b : below) {
            b.rows_left = std::max(0, b.rows_left - 1);
        }
        // Fills the positions from `col` that cells from above still hold.
        auto const pass_down = [&](int& col) {
            while (col < columns && above[col].rows_left > 0) {
                auto const& p = above[col];
                row.row_content.push_back(prepack::cell_rowspan{
                    .rowspan_style = p.style, .rowspan_borders = p.borders, .colspan2 = p.colspan, .rowspan2 = p.rows_left});
                ++col;
            }
        };
        int col = 0;
        for (auto const& c : src.row_content) {
            auto const* cc = std::get_if<prepack::cell_cell>(&c);
            if (!cc) {
                continue;
            }
            pass_down(col);
            check(col < columns, "pad_table/change_cells failed.");
            auto cell = cc->cell;
            int const span = free_run(above, col, std::max(1, cell.cell_colspan));
            cell.cell_colspan = span;
            cell.cell_rowspan = std::min(std::max(1, cell.cell_rowspan), n_rows - r);
            auto const style = cell.cell_style;
            auto const borders = cell.cell_borders;
            int const rowspan = cell.cell_rowspan;
            row.row_content.push_back(prepack::cell_cell{std::move(cell)});
            for (int k = 1; k < span; ++k) {
                row.row_content.push_back(
                    prepack::cell_colspan{.colspan_style = style, .colspan_borders = borders, .colspan1 = k});
            }
            if (rowspan > 1) {
                for (int k = 0; k < span; ++k) {
                    below[col + k] = pending{.rows_left = rowspan - 1, .style = style, .borders = borders, .colspan = span};
                }
            }
            col += span;
        }
        while (col < columns) {
            pass_down(col);
            if (col < columns) {
                row.row_content.push_back(prepack::cell_cell{prepack::cell0{}});
                ++col;
            }
        }
        check(static_cast<int>(row.row_content.size()) == columns, "pad_table/change_cells failed.");
        out.push_back(std::move(row));
        above = std::move(below);
    }
    return out;
}

bool is_empty_padding(prepack::cell const& c) {
    auto const* cc = std::get_if<prepack::cell_cell>(&c);
    return cc && !cc->cell.cell_style;
}

} // namespace vellum::pack::pad_table
