// The standard library of scripts: which built-in function a function object is, calling and constructing
// through it, and the set-up that fills the global object and the prototypes with the built-ins.
#pragma once

#include "js/errors.hpp"
#include "js/value.hpp"

#include <cstdint>
#include <variant>
#include <vector>

namespace vellum::js::eval {

struct js;

/// The global functions and constructors reached by name from the global object.
enum class global_func : std::uint8_t {
    eval,
    parse_int,
    parse_float,
    is_nan,
    is_finite,
    escape,
    unescape,
    decode_uri,
    decode_uri_component,
    encode_uri,
    encode_uri_component,
};

/// `Object`, `Function` and `Boolean` with the members of their prototypes, and `Error.prototype.toString`.
enum class object_func : std::uint8_t {
    object_constructor,
    object_create,
    object_define_property,
    object_define_properties,
    object_keys,
    object_to_string,
    object_to_locale_string,
    object_value_of,
    object_has_own_property,
    object_is_prototype_of,
    object_property_is_enumerable,
    function_constructor,
    /// `Function.prototype` itself, which accepts any arguments and gives `undefined`.
    function_prototype,
    function_to_string,
    function_apply,
    function_call,
    boolean_constructor,
    boolean_to_string,
    boolean_value_of,
    error_to_string,
};

/// `Array` and the members of `Array.prototype`.
enum class array_func : std::uint8_t {
    array_constructor,
    array_is_array,
    array_to_string,
    array_to_locale_string,
    array_join,
    array_concat,
    array_pop,
    array_push,
    array_reverse,
    array_shift,
    array_unshift,
    array_sort,
    array_slice,
    array_splice,
    array_index_of,
    array_last_index_of,
    array_for_each,
    array_map,
    array_filter,
};

/// The getter and setter of `length`, which every array inherits from `Array.prototype`.
enum class array_host_func : std::uint8_t { array_get_length, array_set_length };

/// `String`, `RegExp` and their prototypes' members.
enum class string_func : std::uint8_t {
    string_constructor,
    string_from_char_code,
    string_to_string,
    string_value_of,
    string_char_at,
    string_char_code_at,
    string_concat,
    string_index_of,
    string_last_index_of,
    string_split,
    string_to_lower_case,
    string_to_locale_lower_case,
    string_to_upper_case,
    string_to_locale_upper_case,
    string_match,
    string_replace,
    string_search,
    string_slice,
    string_substring,
    string_substr,
    string_trim,
    regexp_constructor,
    regexp_exec,
    regexp_test,
    regexp_to_string,
};

/// `Number`, its prototype's members and `Math`.
enum class number_func : std::uint8_t {
    number_constructor,
    number_to_string,
    number_value_of,
    number_to_fixed,
    math_abs,
    math_acos,
    math_asin,
    math_atan,
    math_atan2,
    math_ceil,
    math_cos,
    math_exp,
    math_floor,
    math_log,
    math_max,
    math_min,
    math_pow,
    math_random,
    math_seed_random,
    math_round,
    math_sin,
    math_sqrt,
    math_tan,
};

/// `Date` and the members of `Date.prototype` other than the field getters and setters.
enum class date_func : std::uint8_t {
    date_constructor,
    date_parse,
    date_utc,
    date_now,
    date_to_string,
    date_to_date_string,
    date_to_time_string,
    date_to_locale_string,
    date_to_locale_date_string,
    date_to_locale_time_string,
    date_to_utc_string,
    date_to_iso_string,
    date_value_of,
    date_get_time,
    date_set_time,
};

/// The fields of a date that have getters and setters; `day` (the weekday) only a getter.
enum class date_field : std::uint8_t { full_year, month, date, day, hours, minutes, seconds, milliseconds };

/// `getMonth`, `setUTCHours` and their kind: one field, in local time or UTC, read or written.
struct date_field_func {
    date_field field = date_field::full_year;
    bool field_utc = false;
    bool field_set = false;
    bool operator==(date_field_func const&) const = default;
};

/// The constructor of one kind of error (`Error`, `TypeError`, ...).
struct error_func {
    native_error error_kind = native_error::error;
    bool operator==(error_func const&) const = default;
};

/// One built-in function.
struct standard_func {
    std::variant<global_func,
                 object_func,
                 array_func,
                 array_host_func,
                 string_func,
                 number_func,
                 date_func,
                 date_field_func,
                 error_func>
        standard_kind;
    bool operator==(standard_func const&) const = default;
};

/// Calls a built-in function with `this` and the arguments (missing ones read as `undefined`).
[[nodiscard]] expr_res<js_value> eval_standard_func(js& engine,
                                                    js_object callee,
                                                    standard_func const& f,
                                                    js_value const& this_value,
                                                    std::vector<js_value> const& args);

/// `new f(...)` of a built-in function: the constructors make their objects, and every other built-in
/// throws `not_constructor`.
[[nodiscard]] expr_res<js_value> construct_standard_func(js& engine,
                                                         js_object callee,
                                                         standard_func const& f,
                                                         std::vector<js_value> const& args);

/// Fills the global object and the prototypes with the standard library, sets the engine's `eval`
/// function, and installs the calling of built-ins into the engine's hooks.
void install_standard_library(js& engine);

} // namespace vellum::js::eval
