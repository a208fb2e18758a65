#include "js/errors.hpp"

#include "js/convert.hpp"
#include "js/engine.hpp"
#include "js/object.hpp"
#include "util/result.hpp"

namespace vellum::js::eval {

namespace {

// Reads a property for a report, where a throwing getter just means the property is not there.
std::optional<js_value> report_property(js& engine, js_object o, char const* name) {
    auto r = get(engine, o, key_of_utf8(name));
    if (is_exception(r)) {
        return std::nullopt;
    }
    return std::get<js_value>(r);
}

// The text of a thrown value for the log. An error object whose conversion fails (no `toString` to be
// found, or one that throws) is still shown by its name and message.
std::string report_text(js& engine, js_value const& thrown) {
    auto s = to_string(engine, thrown);
    if (auto const* text = std::get_if<js_string>(&s)) {
        return jsstring::to_utf8(*text);
    }
    auto const* o = std::get_if<js_object>(&thrown);
    if (o == nullptr) {
        return "uncaught exception";
    }
    auto part = [&](char const* name) -> std::string {
        auto v = report_property(engine, *o, name);
        if (v && std::holds_alternative<js_string>(*v)) {
            return jsstring::to_utf8(std::get<js_string>(*v));
        }
        return {};
    };
    std::string name = part("name");
    std::string message = part("message");
    if (name.empty()) {
        name = "uncaught exception";
    }
    return message.empty() ? name : name + ": " + message;
}

} // namespace

native_error error_type(js_error kind) {
    switch (kind) {
    case js_error::not_object:
    case js_error::not_object_or_null:
    case js_error::not_array:
    case js_error::not_string:
    case js_error::not_boolean:
    case js_error::not_number:
    case js_error::not_date:
    case js_error::not_regexp:
    case js_error::not_function:
    case js_error::not_constructor:
    case js_error::illegal_constructor:
    case js_error::invalid_this:
    case js_error::invalid_arguments:
    case js_error::undefined_to_object:
    case js_error::null_to_object:
        return native_error::type_error;
    case js_error::invalid_array_length:
    case js_error::range_error:
        return native_error::range_error;
    case js_error::invalid_regexp:
    case js_error::eval_syntax_error:
    case js_error::func_syntax_error:
    case js_error::func_arguments_syntax:
        return native_error::syntax_error;
    case js_error::invalid_uri:
        return native_error::uri_error;
    case js_error::get_reference_error:
    case js_error::put_reference_error:
        return native_error::reference_error;
    }
    throw internal_error("error_type: unexpected error kind.");
}

js_string error_message(js_error_res const& e) {
    auto text = [](char const* t) { return jsstring::from_utf8(t); };
    auto with_detail = [&](char const* t) { return jsstring::concat(jsstring::from_utf8(t), e.error_detail); };
    switch (e.error_kind) {
    case js_error::not_object:
        return text("value is not an object");
    case js_error::not_object_or_null:
        return text("value is not an object or null");
    case js_error::not_array:
        return text("object is not an array");
    case js_error::not_string:
        return text("object is not a string");
    case js_error::not_boolean:
        return text("object is not a boolean");
    case js_error::not_number:
        return text("object is not a number");
    case js_error::not_date:
        return text("object is not a date");
    case js_error::not_regexp:
        return text("object is not a regexp");
    case js_error::not_function:
        return text("object is not a function");
    case js_error::not_constructor:
        return text("object is not a constructor");
    case js_error::illegal_constructor:
        return text("illegal constructor");
    case js_error::invalid_this:
        return text("invalid this value");
    case js_error::invalid_arguments:
        return text("invalid arguments");
    case js_error::invalid_array_length:
        return text("invalid array length");
    case js_error::invalid_regexp:
        return text("invalid regular expression");
    case js_error::invalid_uri:
        return text("invalid URI");
    case js_error::undefined_to_object:
        return text("undefined value is not an object");
    case js_error::null_to_object:
        return text("null value is not an object");
    case js_error::get_reference_error:
        return with_detail("no such property: ");
    case js_error::put_reference_error:
        return text("invalid assignment");
    case js_error::eval_syntax_error:
        return with_detail("syntax error in eval: ");
    case js_error::range_error:
        return with_detail("range_error: ");
    case js_error::func_syntax_error:
        return with_detail("function syntax error: ");
    case js_error::func_arguments_syntax:
        return text("syntax error in function arguments");
    }
    throw internal_error("error_message: unexpected error kind.");
}

std::string native_error_name(native_error kind) {
    switch (kind) {
    case native_error::error:
        return "Error";
    case native_error::range_error:
        return "RangeError";
    case native_error::reference_error:
        return "ReferenceError";
    case native_error::syntax_error:
        return "SyntaxError";
    case native_error::type_error:
        return "TypeError";
    case native_error::uri_error:
        return "URIError";
    }
    throw internal_error("native_error_name: unexpected error kind.");
}

js_object native_error_prototype(js const& engine, native_error kind) {
    switch (kind) {
    case native_error::error:
        return engine.error_prototype;
    case native_error::range_error:
        return engine.range_error_prototype;
    case native_error::reference_error:
        return engine.reference_error_prototype;
    case native_error::syntax_error:
        return engine.syntax_error_prototype;
    case native_error::type_error:
        return engine.type_error_prototype;
    case native_error::uri_error:
        return engine.uri_error_prototype;
    }
    throw internal_error("native_error_prototype: unexpected error kind.");
}

js_object new_error(js& engine, native_error kind, js_string const& message) {
    js_object e = new_object_of(engine, class_error{}, yes_proto{.proto = native_error_prototype(engine, kind)});
    define_value(e, "message", message);
    return e;
}

exception throw_error(js& engine, js_error_res const& e) {
    return exception{.exception_value = new_error(engine, error_type(e.error_kind), error_message(e))};
}

exception throw_error(js& engine, js_error kind) {
    return throw_error(engine, js_error_res{.error_kind = kind});
}

void annotate_exception(js_value const& thrown, std::string_view file, std::optional<int> line) {
    auto const* o = std::get_if<js_object>(&thrown);
    if (o == nullptr || find_own_property(*o, key_of_utf8("fileName"))) {
        return;
    }
    // Not enumerable, so that a for-in over a caught error shows what the script put there.
    attrs const hidden = attrs{}.with(attr::no_enum);
    define_value(*o, "fileName", jsstring::from_utf8(file), hidden);
    if (line) {
        define_value(*o, "lineNumber", number{std::int64_t{*line}}, hidden);
    }
}

void report_exception(js& engine, js_value const& thrown) {
    std::string const text = report_text(engine, thrown);
    auto const* o = std::get_if<js_object>(&thrown);
    if (o != nullptr) {
        auto file = report_property(engine, *o, "fileName");
        if (file && std::holds_alternative<js_string>(*file)) {
            int line = 0;
            if (auto n = report_property(engine, *o, "lineNumber"); n && std::holds_alternative<number>(*n)) {
                line = static_cast<int>(number_to_int32(std::get<number>(*n)));
            }
            log::log_file_message(engine.js_log, log::level::error, jsstring::to_utf8(std::get<js_string>(*file)),
                                  text, line);
            return;
        }
    }
    log::log_error(engine.js_log, text);
}

} // namespace vellum::js::eval
