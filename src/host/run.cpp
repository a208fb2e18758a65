#include "host/run.hpp"

#include "host/hostjs.hpp"
#include "js/errors.hpp"
#include "js/parse.hpp"

namespace vellum::hostjs {

namespace e = js::eval;

void install_engine_hooks(e::js&) {}

bool run_script(host_js& host, resource::locator::locator const& where, std::string_view source) {
    e::js& engine = *host.js;
    auto parsed = js::parse::parse_string(engine, source);
    if (auto const* err = std::get_if<js::js_error>(&parsed)) {
        report_script_error(engine.js_log, where, err->error_line, err->error_message);
        return false;
    }
    if (!engine.js_hooks.indirect_eval) {
        log::log_warning_once(engine.js_log, "scripts cannot run yet: the script compiler is not built");
        return false;
    }
    auto r = engine.js_hooks.indirect_eval(engine, jsstring::from_utf8(source));
    if (auto const* x = std::get_if<e::exception>(&r)) {
        e::report_exception(engine, x->exception_value);
        return false;
    }
    return true;
}

e::expr_res<js_value> eval_global(host_js& host, resource::locator::locator const&, e::js_string const& source) {
    e::js& engine = *host.js;
    if (!engine.js_hooks.indirect_eval) {
        log::log_warning_once(engine.js_log, "scripts cannot run yet: the script compiler is not built");
        return e::undefined();
    }
    return engine.js_hooks.indirect_eval(engine, source);
}

} // namespace vellum::hostjs
