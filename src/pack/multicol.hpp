// What multi-column layout leaves aside for now, told once per run: floats to the top or bottom of a
// column and footnotes at the foot of a column. A light header, for the flow and paragraph builders.
#pragma once

#include "css/style.hpp"
#include "driver/log.hpp"

namespace vellum::pack::multicol {

/// Floats to the top or bottom of a column and footnotes at the foot of a column are not laid out as
/// such yet: a column float stays in the flow, a column footnote joins the page's footnotes. Logs this
/// once per run and kind when `s` asks for one.
void note_column_stuff(log::log const& log, css::style::style const& s);

} // namespace vellum::pack::multicol
