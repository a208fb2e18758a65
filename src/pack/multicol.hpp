// What multi-column layout leaves aside for now, told once per run: footnotes at the foot of a column,
// and column floats outside columns. A light header, for the flow and paragraph builders.
#pragma once

#include "css/style.hpp"
#include "driver/log.hpp"

namespace vellum::pack::multicol {

/// Whether a style floats its box to the top or bottom of a column.
bool floats_to_column(css::style::style const& s);

/// Footnotes at the foot of a column are not laid out as such yet: they join the page's footnotes;
/// column floats outside any multi-column container stay in the flow, and so do floats to the page
/// margins. Logs this once per run and kind when `s` asks for one.
void note_column_stuff(log::log const& log, css::style::style const& s, bool in_columns);

} // namespace vellum::pack::multicol
