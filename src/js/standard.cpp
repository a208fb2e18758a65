#include "js/standard.hpp"

#include "js/builtins.hpp"
#include "js/regexp.hpp"
#include "util/ref.hpp"
#include "util/result.hpp"

#include <cmath>
#include <cstdint>
#include <limits>

namespace vellum::js::eval {

namespace {

// Built-ins call back into scripts (comparators, `forEach` callbacks, getters, `toString`), and scripts
// call built-ins, so a script can recurse through the C++ stack without any script frame noticing.
// Nested built-in calls are counted, and the stack used since the outermost one is measured; past
// either bound the call throws a RangeError instead of running the process out of stack.
constexpr int max_builtin_depth = 2000;
constexpr std::uintptr_t max_stack_bytes = std::uintptr_t{3} << 20;

thread_local int builtin_depth = 0;
thread_local std::uintptr_t outermost_frame = 0;

struct depth_guard {
    bool too_deep = false;

    depth_guard() {
        char here = 0;
        auto const address = reinterpret_cast<std::uintptr_t>(&here);
        if (builtin_depth == 0) {
            outermost_frame = address;
        }
        ++builtin_depth;
        std::uintptr_t const used =
            outermost_frame > address ? outermost_frame - address : address - outermost_frame;
        too_deep = builtin_depth > max_builtin_depth || used > max_stack_bytes;
    }

    ~depth_guard() { --builtin_depth; }

    depth_guard(depth_guard const&) = delete;
    depth_guard& operator=(depth_guard const&) = delete;
};

expr_res<js_value> dispatch(builtins::call_info const& c, standard_func const& f) {
    depth_guard guard;
    if (guard.too_deep) {
        // The same error as for runaway recursion of script functions.
        return throw_error(c.engine, js_error_res{.error_kind = js_error::range_error,
                                                  .error_detail = jsstring::from_utf8("too much recursion")});
    }
    return std::visit(overloaded{
                          [&](global_func g) { return builtins::call_global(c, g); },
                          [&](object_func o) { return builtins::call_object(c, o); },
                          [&](array_func a) { return builtins::call_array(c, a); },
                          [&](array_host_func a) { return builtins::call_array_host(c, a); },
                          [&](string_func s) { return builtins::call_string(c, s); },
                          [&](number_func n) { return builtins::call_number(c, n); },
                          [&](date_func d) { return builtins::call_date(c, d); },
                          [&](date_field_func d) { return builtins::call_date_field(c, d); },
                          [&](error_func e) { return builtins::call_error(c, e); },
                      },
                      f.standard_kind);
}

// Whether `new` may be applied to a built-in: the constructors of the global object do, nothing else.
bool is_constructor(standard_func const& f) {
    return std::visit(overloaded{
                          [](global_func) { return false; },
                          [](object_func o) {
                              return o == object_func::object_constructor ||
                                     o == object_func::function_constructor ||
                                     o == object_func::boolean_constructor;
                          },
                          [](array_func a) { return a == array_func::array_constructor; },
                          [](array_host_func) { return false; },
                          [](string_func s) {
                              return s == string_func::string_constructor ||
                                     s == string_func::regexp_constructor;
                          },
                          [](number_func n) { return n == number_func::number_constructor; },
                          [](date_func d) { return d == date_func::date_constructor; },
                          [](date_field_func) { return false; },
                          [](error_func) { return true; },
                      },
                      f.standard_kind);
}

} // namespace

expr_res<js_value> eval_standard_func(js& engine,
                                      js_object callee,
                                      standard_func const& f,
                                      js_value const& this_value,
                                      std::vector<js_value> const& args) {
    return dispatch(
        builtins::call_info{.engine = engine, .callee = callee, .this_value = this_value, .args = args}, f);
}

expr_res<js_value> construct_standard_func(js& engine,
                                           js_object callee,
                                           standard_func const& f,
                                           std::vector<js_value> const& args) {
    if (!is_constructor(f)) {
        return throw_error(engine, js_error::not_constructor);
    }
    js_value const no_this = undefined();
    return dispatch(
        builtins::call_info{
            .engine = engine, .callee = callee, .this_value = no_this, .args = args, .constructing = true},
        f);
}

void install_standard_library(js& engine) {
    engine.js_hooks.call_standard = eval_standard_func;
    engine.js_hooks.construct_standard = construct_standard_func;
    // The function prototype is itself a function (one that does nothing), as the standard has it.
    engine.function_prototype->obj_class = class_function{
        .function = standard_function{
            .standard = share(standard_func{.standard_kind = object_func::function_prototype})}};
    builtins::install_global(engine);
    builtins::install_object(engine);
    builtins::install_array(engine);
    builtins::install_string(engine);
    builtins::install_number(engine);
    builtins::install_date(engine);
}

namespace builtins {

js_string text(std::string_view utf8) {
    return jsstring::from_utf8(utf8);
}

js_value number_value(double d) {
    // 2^53: beyond it a double no longer holds every integer, and integer arithmetic would then differ
    // from the double's.
    constexpr double exact_limit = 9007199254740992.0;
    if (d == std::trunc(d) && std::abs(d) <= exact_limit && !(d == 0 && std::signbit(d))) {
        return number{static_cast<std::int64_t>(d)};
    }
    return number{d};
}

js_value int_value(std::int64_t n) {
    return number{n};
}

expr_res<double> to_double_value(js& engine, js_value const& v) {
    number n;
    if (auto e = take(to_number(engine, v), n)) {
        return *e;
    }
    return to_double(n);
}

expr_res<double> to_integer(js& engine, js_value const& v) {
    double d = 0;
    if (auto e = take(to_double_value(engine, v), d)) {
        return *e;
    }
    if (std::isnan(d)) {
        return 0.0;
    }
    return std::isinf(d) ? d : std::trunc(d);
}

expr_res<std::int64_t>
relative_index(js& engine, js_value const& v, std::int64_t length, std::int64_t fallback) {
    if (std::holds_alternative<js_undefined>(v)) {
        return fallback;
    }
    double d = 0;
    if (auto e = take(to_integer(engine, v), d)) {
        return *e;
    }
    double const len = static_cast<double>(length);
    double const at = d < 0 ? std::max(len + d, 0.0) : std::min(d, len);
    return static_cast<std::int64_t>(at);
}

exception type_error(js& engine, std::string_view message) {
    return exception{.exception_value = new_error(engine, native_error::type_error, text(message))};
}

expr_res<js_value> get_named(js& engine, js_object o, std::string_view name) {
    return get(engine, o, key_of_utf8(name));
}

expr_res<std::uint32_t> length_of(js& engine, js_object o) {
    if (auto const* a = std::get_if<class_array>(&o->obj_class)) {
        return static_cast<std::uint32_t>(a->array_items.length());
    }
    js_value v;
    if (auto e = take(get_named(engine, o, "length"), v)) {
        return *e;
    }
    return to_uint32(engine, v);
}

bool is_callable(js_value const& v) {
    auto const* o = std::get_if<js_object>(&v);
    return o != nullptr && function_of(*o) != nullptr;
}

class_regexp const* regexp_of(js_value const& v) {
    auto const* o = std::get_if<js_object>(&v);
    return o ? std::get_if<class_regexp>(&(*o)->obj_class) : nullptr;
}

expr_res<std::optional<regexp::match_info>>
match_regexp(js& engine, class_regexp const& r, js_string const& subject, std::size_t start, bool sticky) {
    check(r.regexp_disjunction != nullptr, "match_regexp: regexp object without a pattern");
    regexp::flags const f{.ignore_case = r.regexp_ignore_case, .multiline = r.regexp_multiline};
    auto found = sticky ? regexp::match_at(r.regexp_disjunction, r.regexp_captures, f, subject, start)
                        : regexp::match(r.regexp_disjunction, r.regexp_captures, f, subject, start);
    if (!found) {
        return throw_error(
            engine, js_error_res{.error_kind = js_error::range_error, .error_detail = text(found.error())});
    }
    return std::move(*found);
}

js_object builtin_function(js& engine, standard_func f, int length) {
    js_object fn = new_function(engine, standard_function{.standard = share(std::move(f))});
    // Read-only and hidden; scripts may delete it, as engines of today let them.
    define_value(fn, "length", int_value(length), attrs{}.with(attr::read_only).with(attr::no_enum));
    return fn;
}

js_object define_method(js& engine, js_object target, std::string_view name, standard_func f, int length) {
    js_object fn = builtin_function(engine, std::move(f), length);
    define_value(target, name, fn, hidden);
    return fn;
}

void define_methods(js& engine, js_object target, std::initializer_list<method_entry> methods) {
    for (auto const& m : methods) {
        define_method(engine, target, m.method_name, m.method_func, m.method_length);
    }
}

js_object
define_constructor(js& engine, std::string_view name, standard_func f, int length, js_object prototype) {
    js_object fn = define_method(engine, engine.global_object, name, std::move(f), length);
    define_value(fn, "prototype", prototype, constant);
    define_value(prototype, "constructor", fn, hidden);
    return fn;
}

} // namespace builtins

} // namespace vellum::js::eval
