// The engine's own script errors (the error type and message of each), error objects, and reporting an
// uncaught thrown value to the log.
#pragma once

#include "js/value.hpp"

#include <optional>
#include <string>
#include <string_view>

namespace vellum::js::eval {

struct js;

/// The kinds of error object, each with its constructor and prototype.
enum class native_error { error, range_error, reference_error, syntax_error, type_error, uri_error };

/// The errors the engine itself throws.
enum class js_error {
    not_object,
    not_object_or_null,
    not_array,
    not_string,
    not_boolean,
    not_number,
    not_date,
    not_regexp,
    not_function,
    not_constructor,
    illegal_constructor,
    invalid_this,
    invalid_arguments,
    invalid_array_length,
    invalid_regexp,
    invalid_uri,
    undefined_to_object,
    null_to_object,
    get_reference_error,
    put_reference_error,
    eval_syntax_error,
    range_error,
    func_syntax_error,
    func_arguments_syntax,
};

/// One error the engine throws, with its detail text for the kinds that take one (the property name of
/// `get_reference_error`, the parser's message of the syntax errors, the text of `range_error`).
struct js_error_res {
    js_error error_kind = js_error::not_object;
    js_string error_detail;
    bool operator==(js_error_res const&) const = default;
};

/// The error type thrown for an error of the engine.
native_error error_type(js_error kind);

/// The message of an error of the engine.
js_string error_message(js_error_res const& e);

/// The name of an error kind ("Error", "RangeError", ...).
std::string native_error_name(native_error kind);

/// The prototype of an error kind.
js_object native_error_prototype(js const& engine, native_error kind);

/// A new error object of a kind, with `message` set.
js_object new_error(js& engine, native_error kind, js_string const& message);

/// The thrown value of an error of the engine: a new error object of its type and message.
exception throw_error(js& engine, js_error_res const& e);

/// Shorthand for an error without detail.
exception throw_error(js& engine, js_error kind);

/// What a script frame does to a thrown value that passes through it: an object without an own
/// `fileName` gets the frame's source as `fileName` and, if known, the line as `lineNumber`, so that
/// the innermost frame wins. Other values are left alone.
void annotate_exception(js_value const& thrown, std::string_view file, std::optional<int> line);

/// Logs an uncaught thrown value at error level: with the file of its `fileName` and the line of its
/// `lineNumber` where the value is an object that has them, and its text as the message.
void report_exception(js& engine, js_value const& thrown);

} // namespace vellum::js::eval
