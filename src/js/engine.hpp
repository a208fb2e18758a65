// The engine record of the script interpreter: its log, loader and host, the heap that owns every object,
// the global object and the standard prototypes; making objects, and calling and constructing functions.
#pragma once

#include "driver/log.hpp"
#include "js/value.hpp"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace vellum::resource::loader {
struct loader;
} // namespace vellum::resource::loader

namespace vellum::js::eval {

struct host_interface;
struct js;

/// The parts of calling that the compiler and the standard library provide. Until one is installed,
/// calling such a function stops the run with an internal error naming what is missing.
struct call_hooks {
    /// Runs a script function with `this` and the arguments.
    std::function<expr_res<js_value>(js&, js_object, javascript_func const&, js_value const&,
                                     std::vector<js_value> const&)>
        call_javascript;
    /// Runs a function of the standard library.
    std::function<expr_res<js_value>(js&, js_object, standard_func const&, js_value const&,
                                     std::vector<js_value> const&)>
        call_standard;
    /// Runs a function of the standard library as a constructor (`new`).
    std::function<expr_res<js_value>(js&, js_object, standard_func const&, std::vector<js_value> const&)>
        construct_standard;
    /// Compiles `new Function(p1, ..., pn, body)`: the parameter texts joined with commas, and the body,
    /// into a function object whose scope is the global object.
    std::function<expr_res<js_value>(js&, js_string const& params, js_string const& body)> make_function;
    /// `eval` reached other than by a direct call: the code runs at global scope.
    std::function<expr_res<js_value>(js&, js_value const& code)> indirect_eval;
};

/// One engine, made once for a script-using job and kept to its end.
struct js {
    log::log js_log;
    std::shared_ptr<resource::loader::loader const> js_loader;
    /// The embedding's side of host objects; may be absent where no host objects are made.
    std::shared_ptr<host_interface> js_host;
    call_hooks js_hooks;
    /// Every object of the engine. Objects refer to each other by plain handles and form cycles, so the
    /// heap owns them all and frees them all at once when the engine goes.
    std::vector<std::unique_ptr<object_data>> js_heap;

    js_object global_object;
    /// The standard `eval` function, once the standard library has made it; a call whose callee is this
    /// object, compiled as an eval candidate, is a direct eval.
    js_object eval_function;
    js_object object_prototype;
    js_object function_prototype;
    js_object array_prototype;
    js_object string_prototype;
    js_object boolean_prototype;
    js_object number_prototype;
    js_object date_prototype;
    js_object regexp_prototype;
    js_object error_prototype;
    js_object range_error_prototype;
    js_object reference_error_prototype;
    js_object syntax_error_prototype;
    js_object type_error_prototype;
    js_object uri_error_prototype;
};

/// A new engine with its global object and prototypes. The prototypes have the classes scripts expect
/// (the array prototype is an array, the string prototype a string, and so on), and each error prototype
/// its `name`; the standard library fills in their members.
std::unique_ptr<js> new_engine(log::log const& log,
                               std::shared_ptr<resource::loader::loader const> loader,
                               std::shared_ptr<host_interface> host);

/// A new object of a class with a prototype, owned by the engine's heap.
js_object new_object_of(js& engine, object_class c, js_prototype proto);

/// A new plain object whose prototype is `Object.prototype`.
js_object new_object(js& engine);

/// A new array of the given elements, none of them holes.
js_object new_array(js& engine, std::vector<js_value> const& elements);

/// A new function object of the given kind, with `Function.prototype` as prototype.
js_object new_function(js& engine, function_info f);

/// A new regular expression object with its `lastIndex` 0 and its read-only flag properties.
js_object make_regexp(js& engine,
                      js_string const& source,
                      std::shared_ptr<regexp::disjunction const> disjunction,
                      int capture_count,
                      bool global,
                      bool ignore_case,
                      bool multiline);

/// What `new RegExp(pattern, flags)` makes once its arguments are strings: the flags are `g`, `i` and `m`,
/// each at most once. A pattern that does not parse, or any other flag, throws `invalid_regexp`.
[[nodiscard]] expr_res<js_object> new_regexp(js& engine, js_string const& pattern, js_string const& flags);

/// `RegExp.prototype.exec` on a string: `null`, or an array of the match and its captures (`undefined`
/// for a group that took no part) with `index` and `input`. A global regexp searches from its
/// `lastIndex` and leaves it at the end of the match; a failed search resets it to 0. `not_regexp` if
/// `regexp` is no regexp object; a search that backtracks beyond its budget throws a `RangeError`.
[[nodiscard]] expr_res<js_value> regexp_exec(js& engine, js_value const& regexp, js_string const& subject);

/// The function record of an object of class `function`, or null for any other object.
function_info const* function_of(js_object f);

/// The class name of an object, as `Object.prototype.toString` reports it ("Object", "Array",
/// "Function", ..., or the host's name for host objects).
std::string class_name(js const& engine, js_object o);

/// Calls a function: `not_function` if `f` is none; missing arguments read as `undefined`.
[[nodiscard]] expr_res<js_value> call(js& engine, js_value const& this_value, js_value const& f, std::vector<js_value> const& args);

/// `new f(...)`: `not_object` if `f` is no object, `not_constructor` if it cannot construct.
[[nodiscard]] expr_res<js_value> construct(js& engine, js_value const& f, std::vector<js_value> const& args);

} // namespace vellum::js::eval
