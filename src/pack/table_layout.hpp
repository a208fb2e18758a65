// Column widths of a table: the automatic layout from the narrowest and widest each cell's content
// allows, and the fixed layout from the columns and the first row alone.
#pragma once

#include "css/box.hpp"
#include "driver/log.hpp"
#include "pack/distribute.hpp"

#include <optional>
#include <vector>

namespace vellum::pack::table_layout {

/// What one cell asks of its columns; widths are of the border box (padding and borders included).
struct cell_width {
    int cell_start = 0;
    int cell_span = 1;
    /// auto, a length in points, or a percentage of the table's width.
    css::box::width cell_specw = css::box::auto_value{};
    float cell_minw = 0;
    float cell_maxw = 0;
    bool operator==(cell_width const&) const = default;
};

/// The columns of an automatic layout: each column's minimum, maximum and declared width from the
/// cells of one column and from `col` elements, then the cells spanning several columns in order of
/// their span, sharing what they need beyond their columns' widths. `spacing` is the horizontal
/// border spacing between two columns.
std::vector<distribute::column> auto_columns(log::log const& log,
                                             std::vector<css::box::width> const& col_specs,
                                             std::vector<cell_width> const& cells,
                                             float spacing);

/// The width of an automatic table, spacing included: `spec` when the table has a width (never
/// narrower than its columns' minimums), else its columns' maximums within `available`, widened so
/// that percentage columns get their share.
float auto_table_width(std::vector<distribute::column> const& cols,
                       std::optional<float> spec,
                       float available,
                       float spacing_total);

/// The used widths of the columns of an automatic table whose columns share `width` (spacing taken
/// off).
std::vector<float> auto_layout(std::vector<distribute::column> cols, float width);

/// The used widths of a fixed table whose columns share `width` (spacing taken off): `col` widths
/// first, then the cells of the first row; the columns left share what remains equally.
std::vector<float> fixed_layout(log::log const& log,
                                std::vector<css::box::width> const& col_specs,
                                std::vector<cell_width> const& first_row,
                                float width,
                                float spacing);

} // namespace vellum::pack::table_layout
