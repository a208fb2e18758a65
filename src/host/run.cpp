#include "host/hostjs.hpp"

#include "js/errors.hpp"
#include "js/parse.hpp"
#include "js/run.hpp"

namespace vellum::hostjs {

namespace e = js::eval;

bool run_script(host_js& host, resource::locator::locator const& where, std::string_view source, int first_line) {
    e::js& engine = *host.js;
    // Lines count from the script's place in its file: blank lines ahead of the text shift every line the
    // scanner counts, for messages and for the line table alike.
    std::string shifted;
    if (first_line > 1) {
        shifted.reserve(source.size() + std::size_t(first_line - 1));
        shifted.append(std::size_t(first_line - 1), '\n');
        shifted.append(source);
        source = shifted;
    }
    auto parsed = js::parse::parse_string(engine, source);
    if (auto const* err = std::get_if<js::js_error>(&parsed)) {
        report_script_error(engine.js_log, where, err->error_line, err->error_message);
        return false;
    }
    auto r = e::eval_program(engine, where, std::get<js::source_elements>(parsed));
    if (auto const* x = std::get_if<e::exception>(&r)) {
        e::report_exception(engine, x->exception_value);
        return false;
    }
    return true;
}

e::expr_res<js_value> eval_global(host_js& host, resource::locator::locator const& where, e::js_string const& source) {
    e::js& engine = *host.js;
    auto parsed = js::parse::parse_string(engine, jsstring::to_utf8(source));
    if (auto const* err = std::get_if<js::js_error>(&parsed)) {
        // Text run as code (a timer given as a string, a line of the shell) fails as eval does.
        return e::throw_error(engine, e::js_error_res{.error_kind = e::js_error::eval_syntax_error,
                                                      .error_detail = jsstring::from_utf8(err->error_message)});
    }
    e::context const global{.source_locator = where,
                            .type_of_code = e::type_of_code::global_code,
                            .scope_chain = {e::normal_scope{.scope_object = engine.global_object}},
                            .this_value = engine.global_object};
    return e::run_code(engine, global, std::get<js::source_elements>(parsed));
}

} // namespace vellum::hostjs
