#include "pack/first_fit.hpp"

namespace vellum::pack::first_fit {

first_fit_res first_fit(eval_knuth::eval_env const& env,
                        linebreak::line_request const& request,
                        eval_knuth::page_state page_info,
                        knuth::item_stream& items) {
    return linebreak::fill_line(env, linebreak::method::first_fit, request, std::move(page_info), items);
}

} // namespace vellum::pack::first_fit
