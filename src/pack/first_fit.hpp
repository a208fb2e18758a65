// The greedy line breaker for text that is not justified: each line ends at the last place where
// its content still fits. Lines are made one at a time, so each may have its own width.
#pragma once

#include "pack/linebreak.hpp"

namespace vellum::pack::first_fit {

using pack_state = linebreak::pack_state;
using break_point = linebreak::break_point;
using first_fit_res = linebreak::line_res;

/// Fills one line: a line ending at the last break that fits, an over-long line when nothing fits a
/// line of the container's whole width, or an outflow for an inline box that leaves the flow.
first_fit_res first_fit(eval_knuth::eval_env const& env,
                        linebreak::line_request const& request,
                        eval_knuth::page_state page_info,
                        knuth::item_stream& items);

} // namespace vellum::pack::first_fit
