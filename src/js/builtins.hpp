// What the files of the standard library share: the call being served, the per-object dispatch and set-up
// functions, and small helpers for conversions that may throw and for defining built-in members.
#pragma once

#include "js/convert.hpp"
#include "js/engine.hpp"
#include "js/errors.hpp"
#include "js/object.hpp"
#include "js/standard.hpp"
#include "js/value.hpp"

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vellum::regexp {
struct match_info;
} // namespace vellum::regexp

namespace vellum::js::eval::builtins {

/// One call of a built-in: the engine, the function object called, `this`, the arguments, and whether
/// the call is a `new`.
struct call_info {
    js& engine;
    js_object callee;
    js_value const& this_value;
    std::vector<js_value> const& args;
    bool constructing = false;

    /// The argument at i, `undefined` if the call passed fewer.
    js_value arg(std::size_t i) const { return eval::arg(args, i); }
};

/// Moves the value of a result into `out`; gives the thrown value if there is one, for
/// `if (auto e = take(to_string(engine, v), s)) return *e;`.
template <class T>
[[nodiscard]] std::optional<exception> take(expr_res<T> r, T& out) {
    if (auto* e = std::get_if<exception>(&r)) {
        return std::move(*e);
    }
    out = std::get<T>(std::move(r));
    return std::nullopt;
}

/// A script string of UTF-8 text.
js_string text(std::string_view utf8);

/// A number value: an integer where the double is a whole number that doubles hold exactly (and not
/// -0), a double otherwise.
js_value number_value(double d);

/// An integer value.
js_value int_value(std::int64_t n);

/// ToInteger of the standard: NaN gives 0, infinities stay, others are truncated.
[[nodiscard]] expr_res<double> to_integer(js& engine, js_value const& v);

/// The number of a value as a double.
[[nodiscard]] expr_res<double> to_double_value(js& engine, js_value const& v);

/// A relative position argument (as of `slice`) clamped to 0..length: negative counts from the end,
/// `undefined` gives `fallback`.
[[nodiscard]] expr_res<std::int64_t>
relative_index(js& engine, js_value const& v, std::int64_t length, std::int64_t fallback);

/// White space and line terminators of the standard, as `trim` and `parseInt` skip them.
bool is_js_space(char32_t c);

/// Appends a UTF-16 code unit to code points: a low surrogate after a high one joins it into the
/// character the pair stands for, since script strings hold code points.
void append_code_unit(std::u32string& out, char32_t unit);

/// A `TypeError` with a message of its own.
exception type_error(js& engine, std::string_view message);

/// Reads a property by name.
[[nodiscard]] expr_res<js_value> get_named(js& engine, js_object o, std::string_view name);

/// ToUint32 of an object's `length`.
[[nodiscard]] expr_res<std::uint32_t> length_of(js& engine, js_object o);

/// The primitive `this` stands for in the methods of a wrapper class: the value itself, or the state of
/// a wrapper object of that class; null for anything else.
template <class Primitive, class Wrapper>
Primitive const* this_primitive(js_value const& v, Primitive Wrapper::*state) {
    if (auto const* p = std::get_if<Primitive>(&v)) {
        return p;
    }
    if (auto const* o = std::get_if<js_object>(&v)) {
        if (auto const* w = std::get_if<Wrapper>(&(*o)->obj_class)) {
            return &(w->*state);
        }
    }
    return nullptr;
}

/// Whether a value is a function object.
bool is_callable(js_value const& v);

/// The regexp state of a value, or null if it is no regexp object.
class_regexp const* regexp_of(js_value const& v);

/// Runs a regexp's pattern on a string from `start`: searching onwards, or only there when `sticky`.
/// A match that exceeds the matcher's step budget throws a `RangeError`.
[[nodiscard]] expr_res<std::optional<regexp::match_info>>
match_regexp(js& engine, class_regexp const& r, js_string const& subject, std::size_t start, bool sticky);

/// A built-in function object with its `length`.
js_object builtin_function(js& engine, standard_func f, int length);

/// Defines a built-in method on an object, hidden from enumeration as the standard's are.
js_object define_method(js& engine, js_object target, std::string_view name, standard_func f, int length);

/// One built-in method of a table: its name, which function it is, and its `length`.
struct method_entry {
    std::string_view method_name;
    standard_func method_func;
    int method_length = 0;
};

/// Defines the methods of a table on an object.
void define_methods(js& engine, js_object target, std::initializer_list<method_entry> methods);

/// Defines a constructor as a global: its `prototype`, and the prototype's `constructor`.
js_object
define_constructor(js& engine, std::string_view name, standard_func f, int length, js_object prototype);

/// Attributes of the standard's members: hidden from enumeration.
inline constexpr attrs hidden = attrs{.attr_bits = static_cast<std::uint8_t>(attr::no_enum)};

/// Attributes of the standard's constants: hidden, read-only and permanent.
inline constexpr attrs constant = all_attrs;

// Calls, by object.
[[nodiscard]] expr_res<js_value> call_global(call_info const& c, global_func f);
[[nodiscard]] expr_res<js_value> call_object(call_info const& c, object_func f);
[[nodiscard]] expr_res<js_value> call_array(call_info const& c, array_func f);
[[nodiscard]] expr_res<js_value> call_array_host(call_info const& c, array_host_func f);
[[nodiscard]] expr_res<js_value> call_string(call_info const& c, string_func f);
[[nodiscard]] expr_res<js_value> call_number(call_info const& c, number_func f);
[[nodiscard]] expr_res<js_value> call_date(call_info const& c, date_func f);
[[nodiscard]] expr_res<js_value> call_date_field(call_info const& c, date_field_func f);
[[nodiscard]] expr_res<js_value> call_error(call_info const& c, error_func f);

// Set-up, by object, in the order `install_standard_library` runs them.
void install_global(js& engine);
void install_object(js& engine);
void install_array(js& engine);
void install_string(js& engine);
void install_number(js& engine);
void install_date(js& engine);

} // namespace vellum::js::eval::builtins
