// What the flow asks of multi-column layout, and what it leaves aside, told once per run: column
// floats and column footnotes outside columns, floats to the page margins. A light header, for the flow and paragraph builders.
#pragma once

#include "css/style.hpp"
#include "driver/log.hpp"

namespace vellum::pack::multicol {

/// Whether a style floats its box to the top or bottom of a column.
bool floats_to_column(css::style::style const& s);

/// Whether a style makes its box a footnote at the foot of the column (`column-footnote`).
bool is_column_footnote(css::style::style const& s);

/// Column footnotes outside any multi-column container join the page's footnotes; column floats
/// there stay in the flow, and so do floats to the page margins. Logs this once per run and kind when `s` asks for one.
void note_column_stuff(log::log const& log, css::style::style const& s, bool in_columns);

} // namespace vellum::pack::multicol
