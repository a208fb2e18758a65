// The greedy line breaker for justified text where lines may differ in width: like first fit, but a
// line may shrink its spaces to take one more word, and a break at a hyphen is weighed against the
// break before it by the badness of the two lines.
#pragma once

#include "pack/linebreak.hpp"

namespace vellum::pack::best_fit {

using pack_state = linebreak::pack_state;
using break_point = linebreak::break_point;
using best_fit_res = linebreak::line_res;

/// Fills one line, choosing among the breaks that fit, with shrinking, the least bad.
best_fit_res best_fit(eval_knuth::eval_env const& env,
                      linebreak::line_request const& request,
                      eval_knuth::page_state page_info,
                      knuth::item_stream& items);

} // namespace vellum::pack::best_fit
