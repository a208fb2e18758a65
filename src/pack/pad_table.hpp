// Making a table's grid rectangular: every row gets one entry per column, the positions that a cell
// spanning columns or rows covers hold colspan and rowspan entries, and short rows end in empty cells.
#pragma once

#include "prepack/prepack.hpp"

#include <vector>

namespace vellum::pack::pad_table {

/// The number of columns that the rows of a group need, their spans included.
int column_count(std::vector<prepack::row> const& rows);

/// The rows of a group, each padded to `columns` entries. A cell spanning n columns is followed by
/// n - 1 colspan entries; one spanning rows passes a rowspan entry down to the rows below it, as long
/// as the group lasts. A colspan that would run into a rowspan from above, or past the last column,
/// is cut. Positions that no cell covers get empty cells, whose style is null.
std::vector<prepack::row> pad_rows(std::vector<prepack::row> const& rows, int columns);

/// Whether a grid entry is an empty cell made by padding.
bool is_empty_padding(prepack::cell const& c);

} // namespace vellum::pack::pad_table
