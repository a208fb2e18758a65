#include "pack/best_fit.hpp"

namespace vellum::pack::best_fit {

best_fit_res best_fit(eval_knuth::eval_env const& env,
                      linebreak::line_request const& request,
                      eval_knuth::page_state page_info,
                      knuth::item_stream& items) {
    return linebreak::fill_line(env, linebreak::method::best_fit, request, std::move(page_info), items);
}

} // namespace vellum::pack::best_fit
