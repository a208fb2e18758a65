// The data of the script interpreter: values, objects and their properties, functions, scopes, references
// and the results through which a thrown value travels. The operations on them live in object.hpp,
// convert.hpp, scope.hpp, errors.hpp and engine.hpp.
#pragma once

#include "js/jsarray.hpp"
#include "js/jsstring.hpp"
#include "js/number.hpp"
#include "resource/locator.hpp"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace vellum::js {
/// The syntax of a function (its name, parameters and body), defined with the syntax tree.
struct func_expr;
} // namespace vellum::js

namespace vellum::js::eval::vm {
/// The compiled instructions of a function body.
struct func_ops;
} // namespace vellum::js::eval::vm

namespace vellum::regexp {
/// A compiled regular expression pattern.
struct disjunction;
} // namespace vellum::regexp

namespace vellum::js::eval {

using jsarray::js_array;
using jsstring::js_string;

/// One built-in function of the standard library (which one, and for the error constructors which
/// kind); defined with the library.
struct standard_func;

/// Whatever an embedding (the DOM bindings, the window, canvas) keeps behind a host object, a host
/// function or a host property. The embedding derives its own records from this and recognises them
/// again in its implementation of the host interface (host.hpp).
struct host_data {
    virtual ~host_data() = default;
};

/// A host value: shared, and alive as long as an object or property refers to it.
using host_value = std::shared_ptr<host_data>;

struct object_data;

/// A script object. Objects are reference values: this is a handle to a record kept in the engine's
/// heap, which owns every object and frees them all together when the engine goes (objects form cycles
/// and live to the end of the job, so nothing is freed earlier). A handle must not outlive its engine.
struct js_object {
    object_data* object_rec = nullptr;

    object_data& operator*() const { return *object_rec; }
    object_data* operator->() const { return object_rec; }
    /// Identity.
    bool operator==(js_object const&) const = default;
};

/// The value `undefined`.
struct js_undefined {
    bool operator==(js_undefined const&) const = default;
};

/// The value `null`.
struct js_null {
    bool operator==(js_null const&) const = default;
};

/// A script value. Equality of the C++ variant is structural (numbers by representation); script
/// equality is `strict_equality_comparison` and `equality_comparison`.
using js_value = std::variant<js_undefined, js_null, bool, number, js_string, js_object>;

/// A thrown value on its way up: the failure side of every operation that can run script code.
struct exception {
    js_value exception_value;
    bool operator==(exception const&) const = default;
};

/// The result of an operation that may run script code: the value, or what was thrown.
template <class T>
using expr_res = std::variant<T, exception>;

/// Whether a result is a thrown value.
template <class T>
bool is_exception(expr_res<T> const& r) {
    return std::holds_alternative<exception>(r);
}

// Property keys. An integer-valued key is always held as an integer and a key holding NUL as a code-point
// string, so that keys of one property always compare equal in the same form.

/// A key that is the canonical decimal text of a 64-bit integer.
struct js_prop_int {
    std::int64_t prop_int = 0;
    bool operator==(js_prop_int const&) const = default;
};

/// Any other key without NUL, as UTF-8.
struct js_prop_utf8 {
    std::string prop_text;
    bool operator==(js_prop_utf8 const&) const = default;
};

/// A key that holds a NUL code point, which UTF-8 text of the rest of the program cannot carry.
struct js_prop_string_nulls {
    js_string prop_nulls;
    bool operator==(js_prop_string_nulls const&) const = default;
};

/// A property key in normal form (see `key_of_string`).
using js_prop_string = std::variant<js_prop_int, js_prop_utf8, js_prop_string_nulls>;

/// A property attribute.
enum class attr : std::uint8_t { read_only = 1, no_enum = 2, no_delete = 4 };

/// A set of property attributes.
struct attrs {
    std::uint8_t attr_bits = 0;

    bool has(attr a) const { return (attr_bits & static_cast<std::uint8_t>(a)) != 0; }
    attrs with(attr a) const { return attrs{.attr_bits = static_cast<std::uint8_t>(attr_bits | static_cast<std::uint8_t>(a))}; }
    bool operator==(attrs const&) const = default;
};

/// The three attributes at once, for properties the script must neither change, see nor delete.
inline constexpr attrs all_attrs{.attr_bits = 7};

/// A hole of an array.
struct no_item {
    bool operator==(no_item const&) const = default;
};

/// A present element of an array.
struct item {
    js_value item_value;
    attrs item_attrs;
    bool operator==(item const&) const = default;
};

/// An element of an array defined with a getter and an optional setter (`Object.defineProperty`).
struct accessor_item {
    js_object item_getter;
    std::optional<js_object> item_setter;
    attrs item_attrs;
    bool operator==(accessor_item const&) const = default;
};

/// An element of an array: a hole, a value with attributes, or an accessor.
using js_array_item = std::variant<no_item, item, accessor_item>;

/// How a property getter or setter is reached: a script function (or any function object), or a host
/// value whose reading the host performs (`to_js_value`).
struct js_accessor {
    js_object accessor_func;
    bool operator==(js_accessor const&) const = default;
};

struct host_accessor {
    host_value accessor_host;
    bool operator==(host_accessor const&) const = default;
};

using accessor = std::variant<js_accessor, host_accessor>;

/// A plain value.
struct prop_value {
    js_value value;
    bool operator==(prop_value const&) const = default;
};

/// A shared cell, so that a variable bound into an object and the property are one storage place.
struct prop_ref {
    std::shared_ptr<js_value> ref_cell;
    bool operator==(prop_ref const&) const = default;
};

/// A host-provided getter and optional setter. A host getter is read with `to_js_value`; a host setter
/// is called with `call_host_func` and the one new value.
struct prop_host {
    accessor host_getter;
    std::optional<accessor> host_setter;
    bool operator==(prop_host const&) const = default;
};

/// A script getter and optional setter (from `Object.defineProperty`).
struct prop_accessor {
    js_object getter;
    std::optional<js_object> setter;
    bool operator==(prop_accessor const&) const = default;
};

/// What a property holds.
using property_value = std::variant<prop_value, prop_ref, prop_host, prop_accessor>;

/// One own property of an object.
struct js_property {
    js_prop_string property_name;
    eval::property_value property_value;
    attrs property_attrs;
    bool operator==(js_property const&) const = default;
};

/// A variable of a function activation. A deleted variable has an empty name until assigned again.
struct variable {
    std::string variable_name;
    js_value variable_value;
    bool variable_no_delete = false;
    bool operator==(variable const&) const = default;
};

/// The global object and the objects of `with` statements.
struct normal_scope {
    js_object scope_object;
    bool operator==(normal_scope const&) const = default;
};

/// The variables of a function call, found by name.
struct activation_scope {
    js_array<variable> scope_variables;
    bool operator==(activation_scope const&) const = default;
};

/// The object that holds the name of a `catch` clause.
struct catch_scope {
    js_object scope_object;
    bool operator==(catch_scope const&) const = default;
};

/// One link of a scope chain.
using scope = std::variant<normal_scope, activation_scope, catch_scope>;

/// A function written in script: where it was written, the scope chain it closes over, its syntax and its
/// compiled instructions.
struct javascript_func {
    resource::locator::locator func_filename;
    std::vector<scope> func_scope_chain;
    std::shared_ptr<js::func_expr const> func_syntax;
    std::shared_ptr<vm::func_ops const> func_ops;
    bool operator==(javascript_func const&) const = default;
};

/// A function of the standard library.
struct standard_function {
    std::shared_ptr<eval::standard_func const> standard;
    bool operator==(standard_function const&) const = default;
};

/// A function provided by the embedding.
struct host_func {
    host_value func_host;
    bool operator==(host_func const&) const = default;
};

/// A constructor provided by the embedding.
struct host_constructor {
    host_value constructor_host;
    bool operator==(host_constructor const&) const = default;
};

/// What kind of function an object of class `function` is.
using function_info = std::variant<javascript_func, standard_function, host_func, host_constructor>;

// The classes of objects, each with its internal state.

struct class_object {
    bool operator==(class_object const&) const = default;
};

/// An object with a class name of its own (`Math`, `JSON`, `Arguments`).
struct class_special {
    std::string special_name;
    bool operator==(class_special const&) const = default;
};

struct class_function {
    function_info function;
    bool operator==(class_function const&) const = default;
};

struct class_array {
    js_array<js_array_item> array_items;
    bool operator==(class_array const&) const = default;
};

/// A `String` wrapper: its characters are read-only indexed properties, with `length`.
struct class_string {
    js_string string_value;
    bool operator==(class_string const&) const = default;
};

struct class_boolean {
    bool boolean_value = false;
    bool operator==(class_boolean const&) const = default;
};

struct class_number {
    js::number number_value;
    bool operator==(class_number const&) const = default;
};

/// A `Date`: milliseconds since the epoch, NaN for an invalid date. It changes in place.
struct class_date {
    double time_value = 0;
    bool operator==(class_date const&) const = default;
};

struct class_regexp {
    js_string regexp_source;
    std::shared_ptr<regexp::disjunction const> regexp_disjunction;
    int regexp_captures = 0;
    bool regexp_global = false;
    bool regexp_ignore_case = false;
    bool regexp_multiline = false;
    bool operator==(class_regexp const&) const = default;
};

struct class_error {
    bool operator==(class_error const&) const = default;
};

struct class_host_object {
    host_value host_object;
    bool operator==(class_host_object const&) const = default;
};

/// A host object whose properties the host answers first (`get_own_property`) and enumerates.
struct class_host_collection {
    host_value host_collection;
    bool operator==(class_host_collection const&) const = default;
};

using object_class = std::variant<class_object,
                                  class_special,
                                  class_function,
                                  class_array,
                                  class_string,
                                  class_boolean,
                                  class_number,
                                  class_date,
                                  class_regexp,
                                  class_error,
                                  class_host_object,
                                  class_host_collection>;

/// An object without prototype.
struct no_proto {
    bool operator==(no_proto const&) const = default;
};

struct yes_proto {
    js_object proto;
    bool operator==(yes_proto const&) const = default;
};

using js_prototype = std::variant<no_proto, yes_proto>;

/// The record behind a `js_object` handle.
struct object_data {
    eval::object_class obj_class;
    js_prototype obj_prototype;
    js_array<js_property> obj_properties;
};

/// A cell for an object that is set once and reached from elsewhere (a prototype made after its
/// owner). Misuse is an internal error, not a script exception.
struct js_object_ref {
    std::optional<js_object> ref_object;

    /// The object; "cannot get null js_object_ref" on an empty cell.
    js_object get() const;
    /// Fills the cell; "cannot set non-null js_object_ref" on a full one.
    void set(js_object o);
    /// Empties the cell; "cannot clear null js_object_ref" on an empty one.
    void clear();
};

/// Which kind of code a context runs.
enum class type_of_code { global_code, eval_code, function_code };

/// Where a piece of code runs: its source, scope chain, where its declarations go and its `this`.
struct context {
    resource::locator::locator source_locator;
    eval::type_of_code type_of_code = eval::type_of_code::global_code;
    /// Innermost first.
    std::vector<scope> scope_chain;
    /// Where `var` and function declarations land; absent: the global object.
    std::optional<js_array<variable>> variable_object;
    js_value this_value;
};

// References: what an identifier or property expression names, before it is read or written.

/// A name found nowhere on the scope chain.
struct baseless_reference {
    js_prop_string ref_key;
    bool operator==(baseless_reference const&) const = default;
};

struct object_reference {
    js_object ref_base;
    js_prop_string ref_key;
    bool operator==(object_reference const&) const = default;
};

/// A name found in the scope object of a `catch` clause.
struct catch_reference {
    js_object ref_base;
    js_prop_string ref_key;
    bool operator==(catch_reference const&) const = default;
};

/// A variable of a function activation, at its index.
struct var_reference {
    js_array<variable> ref_variables;
    std::string ref_name;
    std::size_t ref_index = 0;
    bool operator==(var_reference const&) const = default;
};

using reference = std::variant<baseless_reference, object_reference, catch_reference, var_reference>;

/// A reference or a value: what evaluating an expression gives before `get_value`.
using eval_value = std::variant<reference, js_value>;

// The completions of statements.

struct normal_res {
    std::optional<js_value> res_value;
    bool operator==(normal_res const&) const = default;
};

struct break_res {
    std::optional<std::string> res_label;
    std::optional<js_value> res_value;
    bool operator==(break_res const&) const = default;
};

struct continue_res {
    std::optional<std::string> res_label;
    std::optional<js_value> res_value;
    bool operator==(continue_res const&) const = default;
};

struct return_res {
    js_value res_value;
    bool operator==(return_res const&) const = default;
};

struct throw_res {
    js_value res_value;
    bool operator==(throw_res const&) const = default;
};

using stmt_res = std::variant<normal_res, break_res, continue_res, return_res, throw_res>;

/// A program ran to its end.
struct program_ok {
    bool operator==(program_ok const&) const = default;
};

/// How a program ended: normally, or with an uncaught thrown value.
using program_res = std::variant<program_ok, exception>;

/// The value `undefined`, for brevity.
inline js_value undefined() {
    return js_undefined{};
}

/// The argument at i, or `undefined` if the call passed fewer.
js_value arg(std::vector<js_value> const& args, std::size_t i);

} // namespace vellum::js::eval
