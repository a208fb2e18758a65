// The run loop of the script engine: runs compiled instructions in frames, calls script functions, runs
// programs and `eval` texts, and installs itself in an engine's call hooks.
#pragma once

#include "js/syntax.hpp"
#include "js/value.hpp"
#include "js/vm.hpp"

#include <vector>

namespace vellum::js::eval {

struct js;

/// Puts the run loop into the engine: script function calls, `new Function` and indirect `eval`.
void install_vm(js& engine);

/// Runs a program at global scope: checks it, declares its functions and variables on the global
/// object, compiles and runs it. An uncaught thrown value comes back as `exception`.
[[nodiscard]] program_res eval_program(js& engine, resource::locator::locator const& locator,
                                       source_elements const& statements);

/// Runs a program in a given context (global code, or eval code with the caller's context) and gives
/// its completion value: the value of the last expression statement run, or `undefined`.
[[nodiscard]] expr_res<js_value> run_code(js& engine, context const& ctx, source_elements const& statements);

/// Direct `eval`: a value that is no string comes back as it is; a string is parsed and run in the
/// caller's context, and its completion value is the result.
[[nodiscard]] expr_res<js_value> call_eval(js& engine, context const& ctx, js_value const& code);

/// Calls a script function with `this` and the arguments.
[[nodiscard]] expr_res<js_value> do_call(js& engine, js_object func, javascript_func const& f,
                                         js_value const& this_value, std::vector<js_value> const& args);

/// A new script function object closing over a scope chain, with its `length` and a fresh `prototype`.
js_object make_script_function(js& engine,
                               resource::locator::locator const& locator,
                               std::vector<scope> chain,
                               ref<vellum::js::func_expr> syntax,
                               ref<vm::func_ops> ops);

} // namespace vellum::js::eval
