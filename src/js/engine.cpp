#include "js/engine.hpp"

#include "js/convert.hpp"
#include "js/errors.hpp"
#include "js/host.hpp"
#include "js/object.hpp"
#include "js/regexp.hpp"
#include "js/run.hpp"
#include "js/standard.hpp"
#include "util/ref.hpp"
#include "util/result.hpp"

#include <cmath>
#include <limits>

namespace vellum::js::eval {

namespace {

js_object error_prototype_of(js& engine, native_error kind, js_object parent) {
    js_object p = new_object_of(engine, class_error{}, yes_proto{.proto = parent});
    define_value(p, "name", jsstring::from_utf8(native_error_name(kind)), attrs{}.with(attr::no_enum));
    define_value(p, "message", js_string{}, attrs{}.with(attr::no_enum));
    return p;
}

} // namespace

std::unique_ptr<js> new_engine(log::log const& log,
                               std::shared_ptr<resource::loader::loader const> loader,
                               std::shared_ptr<host_interface> host) {
    auto engine = std::make_unique<js>();
    js& e = *engine;
    e.js_log = log;
    e.js_loader = std::move(loader);
    e.js_host = std::move(host);
    e.object_prototype = new_object_of(e, class_object{}, no_proto{});
    auto derived = [&](object_class c) { return new_object_of(e, std::move(c), yes_proto{.proto = e.object_prototype}); };
    // The standard makes each prototype an instance of its own kind (an empty array, the empty string,
    // false, 0, an invalid date), which scripts can observe. The function prototype and the regular
    // expression prototype become functions and patterns when the library that defines their
    // behaviour sets them up.
    e.function_prototype = derived(class_object{});
    e.array_prototype = derived(class_array{});
    e.string_prototype = derived(class_string{});
    e.boolean_prototype = derived(class_boolean{});
    e.number_prototype = derived(class_number{.number_value = std::int64_t{0}});
    e.date_prototype = derived(class_date{.time_value = std::numeric_limits<double>::quiet_NaN()});
    e.regexp_prototype = derived(class_object{});
    e.error_prototype = error_prototype_of(e, native_error::error, e.object_prototype);
    e.range_error_prototype = error_prototype_of(e, native_error::range_error, e.error_prototype);
    e.reference_error_prototype = error_prototype_of(e, native_error::reference_error, e.error_prototype);
    e.syntax_error_prototype = error_prototype_of(e, native_error::syntax_error, e.error_prototype);
    e.type_error_prototype = error_prototype_of(e, native_error::type_error, e.error_prototype);
    e.uri_error_prototype = error_prototype_of(e, native_error::uri_error, e.error_prototype);
    e.global_object = derived(class_object{});
    install_standard_library(e);
    install_vm(e);
    return engine;
}

js_object new_object_of(js& engine, object_class c, js_prototype proto) {
    engine.js_heap.push_back(std::make_unique<object_data>(object_data{.obj_class = std::move(c), .obj_prototype = std::move(proto)}));
    return js_object{.object_rec = engine.js_heap.back().get()};
}

js_object new_object(js& engine) {
    return new_object_of(engine, class_object{}, yes_proto{.proto = engine.object_prototype});
}

js_object new_array(js& engine, std::vector<js_value> const& elements) {
    js_array<js_array_item> items;
    items.reserve_for(elements.size());
    for (auto const& v : elements) {
        items.push_back(item{.item_value = v});
    }
    return new_object_of(engine, class_array{.array_items = items}, yes_proto{.proto = engine.array_prototype});
}

js_object new_function(js& engine, function_info f) {
    return new_object_of(engine, class_function{.function = std::move(f)}, yes_proto{.proto = engine.function_prototype});
}

js_object make_regexp(js& engine,
                      js_string const& source,
                      std::shared_ptr<regexp::disjunction const> disjunction,
                      int capture_count,
                      bool global,
                      bool ignore_case,
                      bool multiline) {
    js_object r = new_object_of(engine,
                                class_regexp{.regexp_source = source,
                                             .regexp_disjunction = std::move(disjunction),
                                             .regexp_captures = capture_count,
                                             .regexp_global = global,
                                             .regexp_ignore_case = ignore_case,
                                             .regexp_multiline = multiline},
                                yes_proto{.proto = engine.regexp_prototype});
    define_value(r, "source", source, all_attrs);
    define_value(r, "global", global, all_attrs);
    define_value(r, "ignoreCase", ignore_case, all_attrs);
    define_value(r, "multiline", multiline, all_attrs);
    define_value(r, "lastIndex", number{std::int64_t{0}}, attrs{}.with(attr::no_enum).with(attr::no_delete));
    return r;
}

expr_res<js_object> new_regexp(js& engine, js_string const& pattern, js_string const& flags) {
    bool global = false;
    bool ignore_case = false;
    bool multiline = false;
    for (char32_t c : flags.code_points()) {
        bool* flag = c == 'g' ? &global : c == 'i' ? &ignore_case : c == 'm' ? &multiline : nullptr;
        if (!flag || *flag) {
            return throw_error(engine, js_error::invalid_regexp);
        }
        *flag = true;
    }
    auto parsed = regexp::parse_pattern(pattern);
    if (!parsed) {
        return throw_error(engine, js_error::invalid_regexp);
    }
    return make_regexp(engine, pattern, parsed->parsed, parsed->total_parens, global, ignore_case, multiline);
}

expr_res<js_value> regexp_exec(js& engine, js_value const& regexp, js_string const& subject) {
    auto const* object = std::get_if<js_object>(&regexp);
    auto const* r = object ? std::get_if<class_regexp>(&(*object)->obj_class) : nullptr;
    if (!r) {
        return throw_error(engine, js_error::not_regexp);
    }
    js_object re = *object;
    js_prop_string const last_index = key_of_utf8("lastIndex");
    auto set_last_index = [&](std::size_t n) {
        return put(engine, re, last_index, number{static_cast<std::int64_t>(n)});
    };
    // Only a global regexp starts where the last match ended; the index is read as an integer.
    double start = 0;
    if (r->regexp_global) {
        auto read = get(engine, re, last_index);
        if (auto const* e = std::get_if<exception>(&read)) {
            return *e;
        }
        auto n = to_number(engine, std::get<js_value>(read));
        if (auto const* e = std::get_if<exception>(&n)) {
            return *e;
        }
        double d = to_double(std::get<number>(n));
        // A negative index starts at the beginning, as engines of today do.
        start = std::isnan(d) || d < 0 ? 0 : std::trunc(d);
    }
    if (start < 0 || start > static_cast<double>(subject.length())) {
        if (auto put_res = set_last_index(0); is_exception(put_res)) {
            return std::get<exception>(put_res);
        }
        return js_null{};
    }
    if (!r->regexp_disjunction) {
        throw internal_error("regexp_exec: regexp object without a pattern");
    }
    auto found = regexp::match(r->regexp_disjunction,
                               r->regexp_captures,
                               regexp::flags{.ignore_case = r->regexp_ignore_case, .multiline = r->regexp_multiline},
                               subject,
                               static_cast<std::size_t>(start));
    if (!found) {
        return throw_error(engine, js_error_res{.error_kind = js_error::range_error,
                                                .error_detail = jsstring::from_utf8(found.error())});
    }
    if (!*found) {
        if (auto put_res = set_last_index(0); is_exception(put_res)) {
            return std::get<exception>(put_res);
        }
        return js_null{};
    }
    regexp::match_info const& m = **found;
    if (r->regexp_global) {
        if (auto put_res = set_last_index(m.end_index); is_exception(put_res)) {
            return std::get<exception>(put_res);
        }
    }
    std::vector<js_value> items{m.match_substring};
    for (auto const& c : m.captures) {
        items.push_back(c ? js_value{*c} : js_value{js_undefined{}});
    }
    js_object result = new_array(engine, items);
    define_value(result, "index", number{static_cast<std::int64_t>(m.start_index)});
    define_value(result, "input", subject);
    return js_value{result};
}

function_info const* function_of(js_object f) {
    if (auto const* c = std::get_if<class_function>(&f->obj_class)) {
        return &c->function;
    }
    return nullptr;
}

std::string class_name(js const& engine, js_object o) {
    auto host_name = [&](host_value const& h) -> std::string {
        return engine.js_host ? engine.js_host->get_class_name(h) : "Object";
    };
    return std::visit(overloaded{
                          [](class_object const&) -> std::string { return "Object"; },
                          [](class_special const& s) { return s.special_name; },
                          [](class_function const&) -> std::string { return "Function"; },
                          [](class_array const&) -> std::string { return "Array"; },
                          [](class_string const&) -> std::string { return "String"; },
                          [](class_boolean const&) -> std::string { return "Boolean"; },
                          [](class_number const&) -> std::string { return "Number"; },
                          [](class_date const&) -> std::string { return "Date"; },
                          [](class_regexp const&) -> std::string { return "RegExp"; },
                          [](class_error const&) -> std::string { return "Error"; },
                          [&](class_host_object const& h) { return host_name(h.host_object); },
                          [&](class_host_collection const& h) { return host_name(h.host_collection); },
                      },
                      o->obj_class);
}

expr_res<js_value> call(js& engine, js_value const& this_value, js_value const& f, std::vector<js_value> const& args) {
    auto const* fo = std::get_if<js_object>(&f);
    function_info const* info = fo ? function_of(*fo) : nullptr;
    if (info == nullptr) {
        return throw_error(engine, js_error::not_function);
    }
    // A copy: the call may replace the function record it came from.
    function_info const fn = *info;
    return std::visit(
        overloaded{
            [&](javascript_func const& j) -> expr_res<js_value> {
                if (!engine.js_hooks.call_javascript) {
                    throw internal_error("call: script functions cannot run: no compiler is installed in the engine");
                }
                return engine.js_hooks.call_javascript(engine, *fo, j, this_value, args);
            },
            [&](standard_function const& s) -> expr_res<js_value> {
                if (!engine.js_hooks.call_standard || !s.standard) {
                    throw internal_error("call: built-in functions cannot run: no library is installed in the engine");
                }
                return engine.js_hooks.call_standard(engine, *fo, *s.standard, this_value, args);
            },
            [&](host_func const& h) -> expr_res<js_value> {
                check(engine.js_host != nullptr, "call: host function without a host interface");
                return engine.js_host->call_host_func(engine, this_value, h.func_host, args);
            },
            [&](host_constructor const& h) -> expr_res<js_value> {
                check(engine.js_host != nullptr, "call: host constructor without a host interface");
                if (!engine.js_host->constructor_callable(h.constructor_host)) {
                    return throw_error(engine, js_error::illegal_constructor);
                }
                return engine.js_host->call_host_func(engine, this_value, h.constructor_host, args);
            },
        },
        fn);
}

expr_res<js_value> construct(js& engine, js_value const& f, std::vector<js_value> const& args) {
    auto const* fo = std::get_if<js_object>(&f);
    if (fo == nullptr) {
        return throw_error(engine, js_error::not_object);
    }
    function_info const* info = function_of(*fo);
    if (info == nullptr) {
        return throw_error(engine, js_error::not_constructor);
    }
    function_info const fn = *info;
    return std::visit(
        overloaded{
            [&](javascript_func const&) -> expr_res<js_value> {
                auto proto = get(engine, *fo, key_of_utf8("prototype"));
                if (auto const* e = std::get_if<exception>(&proto)) {
                    return *e;
                }
                auto const* po = std::get_if<js_object>(&std::get<js_value>(proto));
                js_object self = new_object_of(engine, class_object{}, yes_proto{.proto = po ? *po : engine.object_prototype});
                auto r = call(engine, self, f, args);
                if (is_exception(r) || std::holds_alternative<js_object>(std::get<js_value>(r))) {
                    return r;
                }
                return self;
            },
            [&](standard_function const& s) -> expr_res<js_value> {
                if (!engine.js_hooks.construct_standard || !s.standard) {
                    throw internal_error("construct: built-in constructors cannot run: no library is installed in the engine");
                }
                return engine.js_hooks.construct_standard(engine, *fo, *s.standard, args);
            },
            [&](host_func const&) -> expr_res<js_value> { return throw_error(engine, js_error::not_constructor); },
            [&](host_constructor const& h) -> expr_res<js_value> {
                check(engine.js_host != nullptr, "construct: host constructor without a host interface");
                return engine.js_host->call_host_constructor(engine, h.constructor_host, args);
            },
        },
        fn);
}

} // namespace vellum::js::eval
