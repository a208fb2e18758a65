// `Object`, `Function`, `Boolean` and the error constructors, with their prototypes' members; property
// descriptors of `Object.defineProperty`.
#include "js/builtins.hpp"
#include "util/ref.hpp"
#include "util/result.hpp"

#include <cmath>
#include <string>

namespace vellum::js::eval::builtins {

namespace {

// What a property descriptor object says; an absent field leaves that part of a property as it is.
struct descriptor {
    std::optional<js_value> desc_value;
    std::optional<js_value> desc_get;
    std::optional<js_value> desc_set;
    std::optional<bool> desc_writable;
    std::optional<bool> desc_enumerable;
    std::optional<bool> desc_configurable;
};

expr_res<descriptor> to_descriptor(js& engine, js_value const& v) {
    auto const* o = std::get_if<js_object>(&v);
    if (o == nullptr) {
        return throw_error(engine, js_error::not_object);
    }
    descriptor d;
    std::optional<exception> failed;
    auto field = [&](char const* name) -> std::optional<js_value> {
        if (failed || !has_property(engine, *o, key_of_utf8(name))) {
            return std::nullopt;
        }
        js_value value;
        failed = take(get_named(engine, *o, name), value);
        return value;
    };
    auto flag = [&](char const* name) -> std::optional<bool> {
        auto value = field(name);
        return value ? std::optional<bool>(to_boolean(*value)) : std::nullopt;
    };
    d.desc_enumerable = flag("enumerable");
    d.desc_configurable = flag("configurable");
    d.desc_value = field("value");
    d.desc_writable = flag("writable");
    d.desc_get = field("get");
    d.desc_set = field("set");
    if (failed) {
        return *failed;
    }
    for (auto const* accessor_func : {&d.desc_get, &d.desc_set}) {
        if (*accessor_func && !std::holds_alternative<js_undefined>(**accessor_func) &&
            !is_callable(**accessor_func)) {
            return type_error(engine, "property getter or setter is not a function");
        }
    }
    if ((d.desc_get || d.desc_set) && (d.desc_value || d.desc_writable)) {
        return type_error(engine, "property descriptor has both a value and an accessor");
    }
    return d;
}

attrs attrs_of(descriptor const& d, attrs current) {
    auto apply = [&](std::optional<bool> const& allowed, attr a) {
        if (allowed) {
            current.attr_bits =
                static_cast<std::uint8_t>(*allowed ? current.attr_bits & ~static_cast<std::uint8_t>(a)
                                                   : current.attr_bits | static_cast<std::uint8_t>(a));
        }
    };
    apply(d.desc_writable, attr::read_only);
    apply(d.desc_enumerable, attr::no_enum);
    apply(d.desc_configurable, attr::no_delete);
    return current;
}

std::optional<js_object> function_or_none(std::optional<js_value> const& v) {
    if (v) {
        if (auto const* o = std::get_if<js_object>(&*v)) {
            return *o;
        }
    }
    return std::nullopt;
}

// What a property holds, as a redefinition looks at it: a value, a script getter and setter, or a host
// property.
using current_content = std::variant<js_value, prop_accessor, prop_host>;

current_content content_of(property_value const& p) {
    return std::visit(overloaded{
                          [](prop_value const& v) -> current_content { return v.value; },
                          [](prop_ref const& r) -> current_content { return *r.ref_cell; },
                          [](prop_host const& h) -> current_content { return h; },
                          [](prop_accessor const& a) -> current_content { return a; },
                      },
                      p);
}

// Whether a descriptor may redefine a property with these attributes and this content. A deletable
// property may become anything. A permanent read-only value may not be redefined at all. Any other
// permanent property may not become deletable, change its visibility, or turn from a value into an
// accessor or back; a permanent accessor keeps its getter and setter, so a descriptor for it is
// accepted only if it repeats them.
bool may_redefine(js& engine, attrs a, current_content const& content, descriptor const& d) {
    if (!a.has(attr::no_delete)) {
        return true;
    }
    bool const enumerable = !a.has(attr::no_enum);
    if (d.desc_configurable.value_or(false) || d.desc_enumerable.value_or(enumerable) != enumerable) {
        return false;
    }
    bool const names_value = d.desc_value || d.desc_writable;
    bool const names_accessor = d.desc_get || d.desc_set;
    return std::visit(overloaded{
                          [&](js_value const&) { return !names_accessor && !a.has(attr::read_only); },
                          [&](prop_accessor const& acc) {
                              // An absent getter is held as the do-nothing function.
                              return !names_value &&
                                     (!d.desc_get ||
                                      function_or_none(d.desc_get).value_or(engine.function_prototype) ==
                                          acc.getter) &&
                                     (!d.desc_set || function_or_none(d.desc_set) == acc.setter);
                          },
                          [&](prop_host const&) { return !names_accessor && !a.has(attr::read_only); },
                      },
                      content);
}

exception cannot_modify(js& engine) {
    return type_error(engine, "cannot modify property");
}

// An element of an array: a value with attributes, or a getter and setter with attributes. A descriptor
// that names neither a value nor an accessor keeps what the element holds.
expr_res<js_value> define_element(js& engine, js_object o, std::uint32_t index, descriptor const& d) {
    auto const& items = std::get<class_array>(o->obj_class).array_items;
    attrs current = all_attrs;
    js_array_item old = no_item{};
    if (index < items.length()) {
        old = items[index];
        if (auto element = element_attrs(old)) {
            current_content const content =
                std::visit(overloaded{
                               [](no_item const&) -> current_content { return undefined(); },
                               [](item const& it) -> current_content { return it.item_value; },
                               [](accessor_item const& it) -> current_content {
                                   return prop_accessor{.getter = it.item_getter, .setter = it.item_setter};
                               },
                           },
                           old);
            if (!may_redefine(engine, *element, content, d)) {
                return cannot_modify(engine);
            }
            current = *element;
        }
    } else if (array_length_read_only(o)) {
        return cannot_modify(engine);
    } else if (auto r = put(engine, o, key_of_int(index), undefined()); is_exception(r)) {
        // Writing the element first grows the array, within its bounds.
        return r;
    }
    attrs a = attrs_of(d, current);
    auto const* old_accessor = std::get_if<accessor_item>(&old);
    if (d.desc_get || d.desc_set || (old_accessor && !d.desc_value && !d.desc_writable)) {
        // As for other properties, a setter alone reads as undefined through the do-nothing function.
        accessor_item acc{.item_getter = engine.function_prototype};
        if (old_accessor) {
            acc = *old_accessor;
        }
        if (d.desc_get) {
            acc.item_getter = function_or_none(d.desc_get).value_or(engine.function_prototype);
        }
        if (d.desc_set) {
            acc.item_setter = function_or_none(d.desc_set);
        }
        acc.item_attrs.attr_bits =
            static_cast<std::uint8_t>(a.attr_bits & ~static_cast<std::uint8_t>(attr::read_only));
        items[index] = acc;
        return o;
    }
    js_value value = undefined();
    if (auto const* it = std::get_if<item>(&old)) {
        value = it->item_value;
    }
    items[index] = item{.item_value = d.desc_value.value_or(value), .item_attrs = a};
    return o;
}

// Makes an array's length read-only: an own accessor of the array, with the getter of the one on
// Array.prototype, that carries `read_only`.
void make_array_length_read_only(js& engine, js_object o) {
    js_object getter = engine.function_prototype;
    if (auto pos = find_own_property(engine.array_prototype, key_of_utf8("length"))) {
        if (auto const* h =
                std::get_if<prop_host>(&engine.array_prototype->obj_properties[*pos].property_value)) {
            if (auto const* g = std::get_if<js_accessor>(&h->host_getter)) {
                getter = g->accessor_func;
            }
        }
    }
    define_own_property(o, key_of_utf8("length"),
                        prop_host{.host_getter = js_accessor{.accessor_func = getter}}, all_attrs);
}

// The length of an array: permanent and hidden, so only its value may change, and only while it is
// writable. Shortening stops above the last element that may not be deleted, and then fails.
expr_res<js_value> define_array_length(js& engine, js_object o, descriptor const& d) {
    if (d.desc_get || d.desc_set || d.desc_configurable.value_or(false) ||
        d.desc_enumerable.value_or(false)) {
        return cannot_modify(engine);
    }
    // A value that is no valid length is a RangeError before anything else, read-only length or not.
    double length = 0;
    if (d.desc_value) {
        if (auto e = take(to_double_value(engine, *d.desc_value), length)) {
            return *e;
        }
        if (!(length >= 0 && length <= 4294967295.0 && length == std::trunc(length))) {
            return throw_error(engine, js_error::invalid_array_length);
        }
    }
    if (array_length_read_only(o)) {
        if (d.desc_writable.value_or(false)) {
            return cannot_modify(engine);
        }
        if (d.desc_value && length != static_cast<double>(array_length(o))) {
            return cannot_modify(engine);
        }
        return o;
    }
    if (!d.desc_value) {
        if (d.desc_writable == false) {
            make_array_length_read_only(engine, o);
        }
        return o;
    }
    if (auto r = set_array_length(engine, o, number_value(length)); is_exception(r)) {
        return r;
    }
    if (d.desc_writable == false) {
        make_array_length_read_only(engine, o);
    }
    if (array_length(o) != length) {
        return cannot_modify(engine);
    }
    return o;
}

bool is_length(js_prop_string const& key) {
    auto const* u = std::get_if<js_prop_utf8>(&key);
    return u != nullptr && u->prop_text == "length";
}

expr_res<js_value> define_property(js& engine, js_object o, js_prop_string const& key, descriptor const& d) {
    auto const index = array_index(key);
    if (std::holds_alternative<class_array>(o->obj_class)) {
        if (index) {
            return define_element(engine, o, *index, d);
        }
        if (is_length(key)) {
            if (auto r = define_array_length(engine, o, d); is_exception(r)) {
                return r;
            }
            return o;
        }
    }
    if (auto const* s = std::get_if<class_string>(&o->obj_class)) {
        if ((index && *index < s->string_value.length()) || is_length(key)) {
            return cannot_modify(engine);
        }
    }
    attrs current = all_attrs;
    property_value content = prop_value{.value = undefined()};
    if (auto pos = find_own_property(o, key)) {
        js_property const& p = o->obj_properties[*pos];
        if (!may_redefine(engine, p.property_attrs, content_of(p.property_value), d)) {
            return cannot_modify(engine);
        }
        current = p.property_attrs;
        content = p.property_value;
    }
    if (d.desc_get || d.desc_set) {
        // A property with a setter only still needs a getter: the do-nothing function gives undefined.
        prop_accessor acc{.getter = engine.function_prototype};
        if (auto const* old = std::get_if<prop_accessor>(&content)) {
            acc = *old;
        }
        if (d.desc_get) {
            acc.getter = function_or_none(d.desc_get).value_or(engine.function_prototype);
        }
        if (d.desc_set) {
            acc.setter = function_or_none(d.desc_set);
        }
        content = acc;
    } else if (d.desc_value) {
        content = prop_value{.value = *d.desc_value};
    }
    attrs a = attrs_of(d, current);
    if (std::holds_alternative<prop_accessor>(content)) {
        // Writing goes through the setter; an accessor is never read-only as a value is.
        a.attr_bits = static_cast<std::uint8_t>(a.attr_bits & ~static_cast<std::uint8_t>(attr::read_only));
    }
    define_own_property(o, key, std::move(content), a);
    return o;
}

expr_res<js_value> define_properties(js& engine, js_object o, js_value const& props) {
    js_object source;
    if (auto e = take(to_object(engine, props), source)) {
        return *e;
    }
    // All descriptors are read before any property changes, as the standard orders it.
    std::vector<std::pair<js_prop_string, descriptor>> changes;
    for (auto const& key : enumerate_own(engine, source)) {
        js_value v;
        if (auto e = take(get(engine, source, key), v)) {
            return *e;
        }
        descriptor d;
        if (auto e = take(to_descriptor(engine, v), d)) {
            return *e;
        }
        changes.emplace_back(key, std::move(d));
    }
    for (auto const& [key, d] : changes) {
        if (auto r = define_property(engine, o, key, d); is_exception(r)) {
            return r;
        }
    }
    return o;
}

expr_res<js_value> object_static(call_info const& c, object_func f) {
    js& engine = c.engine;
    js_value const target = c.arg(0);
    auto const* o = std::get_if<js_object>(&target);
    if (f == object_func::object_create) {
        if (o == nullptr && !std::holds_alternative<js_null>(target)) {
            return throw_error(engine, js_error::not_object_or_null);
        }
        js_prototype proto = o ? js_prototype{yes_proto{.proto = *o}} : js_prototype{no_proto{}};
        js_object made = new_object_of(engine, class_object{}, proto);
        if (!std::holds_alternative<js_undefined>(c.arg(1))) {
            return define_properties(engine, made, c.arg(1));
        }
        return made;
    }
    if (o == nullptr) {
        return throw_error(engine, js_error::not_object);
    }
    if (f == object_func::object_keys) {
        std::vector<js_value> names;
        for (auto const& key : enumerate_own(engine, *o)) {
            names.emplace_back(key_to_string(key));
        }
        return new_array(engine, names);
    }
    if (f == object_func::object_define_properties) {
        return define_properties(engine, *o, c.arg(1));
    }
    js_prop_string key;
    if (auto e = take(to_prop_string(engine, c.arg(1)), key)) {
        return *e;
    }
    descriptor d;
    if (auto e = take(to_descriptor(engine, c.arg(2)), d)) {
        return *e;
    }
    return define_property(engine, *o, key, d);
}

expr_res<js_value> object_prototype_member(call_info const& c, object_func f) {
    js& engine = c.engine;
    if (f == object_func::object_to_string) {
        if (std::holds_alternative<js_undefined>(c.this_value)) {
            return text("[object Undefined]");
        }
        if (std::holds_alternative<js_null>(c.this_value)) {
            return text("[object Null]");
        }
    }
    js_object self;
    if (auto e = take(to_object(engine, c.this_value), self)) {
        return *e;
    }
    if (f == object_func::object_to_string) {
        return text("[object " + class_name(engine, self) + "]");
    }
    if (f == object_func::object_to_locale_string) {
        js_value to_string_func;
        if (auto e = take(get_named(engine, self, "toString"), to_string_func)) {
            return *e;
        }
        return call(engine, c.this_value, to_string_func, {});
    }
    if (f == object_func::object_value_of) {
        return self;
    }
    if (f == object_func::object_is_prototype_of) {
        js_value const candidate = c.arg(0);
        auto const* v = std::get_if<js_object>(&candidate);
        if (v == nullptr) {
            return false;
        }
        for (js_prototype p = (*v)->obj_prototype; auto const* y = std::get_if<yes_proto>(&p);
             p = y->proto->obj_prototype) {
            if (y->proto == self) {
                return true;
            }
        }
        return false;
    }
    js_prop_string key;
    if (auto e = take(to_prop_string(engine, c.arg(0)), key)) {
        return *e;
    }
    if (f == object_func::object_has_own_property) {
        // An array's length lives as an accessor on Array.prototype, but to scripts it is the array's own.
        if (std::holds_alternative<class_array>(self->obj_class) && key == key_of_utf8("length")) {
            return true;
        }
        return has_own_property(engine, self, key);
    }
    for (auto const& name : enumerate_own(engine, self)) {
        if (name == key) {
            return true;
        }
    }
    return false;
}

expr_res<js_value> function_constructor(call_info const& c) {
    std::u32string params;
    js_string body;
    for (std::size_t i = 0; i < c.args.size(); ++i) {
        js_string s;
        if (auto e = take(to_string(c.engine, c.args[i]), s)) {
            return *e;
        }
        if (i + 1 == c.args.size()) {
            body = std::move(s);
            break;
        }
        if (i > 0) {
            params.push_back(',');
        }
        params += s.code_points();
    }
    if (!c.engine.js_hooks.make_function) {
        throw internal_error("Function: the body cannot be compiled: no compiler is installed in the engine");
    }
    return c.engine.js_hooks.make_function(c.engine, js_string(std::move(params)), body);
}

expr_res<js_value> function_member(call_info const& c, object_func f) {
    if (!is_callable(c.this_value)) {
        return throw_error(c.engine, js_error::not_function);
    }
    if (f == object_func::function_to_string) {
        return text("<<function>>");
    }
    if (f == object_func::function_call) {
        std::vector<js_value> rest;
        if (c.args.size() > 1) {
            rest.assign(c.args.begin() + 1, c.args.end());
        }
        return call(c.engine, c.arg(0), c.this_value, rest);
    }
    js_value const list = c.arg(1);
    std::vector<js_value> args;
    if (!std::holds_alternative<js_undefined>(list) && !std::holds_alternative<js_null>(list)) {
        auto const* o = std::get_if<js_object>(&list);
        if (o == nullptr) {
            return throw_error(c.engine, js_error::invalid_arguments);
        }
        std::uint32_t n = 0;
        if (auto e = take(length_of(c.engine, *o), n)) {
            return *e;
        }
        for (std::uint32_t i = 0; i < n; ++i) {
            js_value v;
            if (auto e = take(get(c.engine, *o, key_of_int(i)), v)) {
                return *e;
            }
            args.push_back(std::move(v));
        }
    }
    return call(c.engine, c.arg(0), c.this_value, args);
}

expr_res<js_value> boolean_member(call_info const& c, object_func f) {
    bool const* b = this_primitive(c.this_value, &class_boolean::boolean_value);
    if (b == nullptr) {
        return throw_error(c.engine, js_error::not_boolean);
    }
    if (f == object_func::boolean_to_string) {
        return text(*b ? "true" : "false");
    }
    return *b;
}

expr_res<js_value> error_to_string(call_info const& c) {
    auto const* o = std::get_if<js_object>(&c.this_value);
    if (o == nullptr) {
        return throw_error(c.engine, js_error::not_object);
    }
    auto part = [&](char const* name, char const* fallback) -> expr_res<js_string> {
        js_value v;
        if (auto e = take(get_named(c.engine, *o, name), v)) {
            return *e;
        }
        if (std::holds_alternative<js_undefined>(v)) {
            return text(fallback);
        }
        return to_string(c.engine, v);
    };
    js_string name;
    js_string message;
    if (auto e = take(part("name", "Error"), name)) {
        return *e;
    }
    if (auto e = take(part("message", ""), message)) {
        return *e;
    }
    if (name.empty()) {
        return message;
    }
    if (message.empty()) {
        return name;
    }
    return jsstring::concat(jsstring::concat(name, text(": ")), message);
}

} // namespace

expr_res<js_value> call_object(call_info const& c, object_func f) {
    switch (f) {
    case object_func::object_constructor: {
        js_value const v = c.arg(0);
        if (std::holds_alternative<js_undefined>(v) || std::holds_alternative<js_null>(v)) {
            return new_object(c.engine);
        }
        js_object o;
        if (auto e = take(to_object(c.engine, v), o)) {
            return *e;
        }
        return o;
    }
    case object_func::object_create:
    case object_func::object_define_property:
    case object_func::object_define_properties:
    case object_func::object_keys:
        return object_static(c, f);
    case object_func::object_to_string:
    case object_func::object_to_locale_string:
    case object_func::object_value_of:
    case object_func::object_has_own_property:
    case object_func::object_is_prototype_of:
    case object_func::object_property_is_enumerable:
        return object_prototype_member(c, f);
    case object_func::function_constructor:
        return function_constructor(c);
    case object_func::function_prototype:
        return undefined();
    case object_func::function_to_string:
    case object_func::function_apply:
    case object_func::function_call:
        return function_member(c, f);
    case object_func::boolean_constructor: {
        bool const b = to_boolean(c.arg(0));
        if (!c.constructing) {
            return b;
        }
        return new_object_of(c.engine, class_boolean{.boolean_value = b},
                             yes_proto{.proto = c.engine.boolean_prototype});
    }
    case object_func::boolean_to_string:
    case object_func::boolean_value_of:
        return boolean_member(c, f);
    case object_func::error_to_string:
        return error_to_string(c);
    }
    throw internal_error("call_object: unexpected function.");
}

expr_res<js_value> call_error(call_info const& c, error_func f) {
    js_object e = new_object_of(c.engine, class_error{},
                                yes_proto{.proto = native_error_prototype(c.engine, f.error_kind)});
    if (!std::holds_alternative<js_undefined>(c.arg(0))) {
        js_string message;
        if (auto thrown = take(to_string(c.engine, c.arg(0)), message)) {
            return *thrown;
        }
        define_value(e, "message", message, hidden);
    }
    return e;
}

void install_object(js& engine) {
    js_object const object_ctor =
        define_constructor(engine, "Object", standard_func{.standard_kind = object_func::object_constructor},
                           1, engine.object_prototype);
    define_constructor(engine, "Function", standard_func{.standard_kind = object_func::function_constructor},
                       1, engine.function_prototype);
    define_value(engine.function_prototype, "length", int_value(0), constant);
    define_constructor(engine, "Boolean", standard_func{.standard_kind = object_func::boolean_constructor}, 1,
                       engine.boolean_prototype);
    define_methods(engine, object_ctor,
                   {
                       {"create", {object_func::object_create}, 2},
                       {"defineProperty", {object_func::object_define_property}, 3},
                       {"defineProperties", {object_func::object_define_properties}, 2},
                       {"keys", {object_func::object_keys}, 1},
                   });
    define_methods(engine, engine.object_prototype,
                   {
                       {"toString", {object_func::object_to_string}, 0},
                       {"toLocaleString", {object_func::object_to_locale_string}, 0},
                       {"valueOf", {object_func::object_value_of}, 0},
                       {"hasOwnProperty", {object_func::object_has_own_property}, 1},
                       {"isPrototypeOf", {object_func::object_is_prototype_of}, 1},
                       {"propertyIsEnumerable", {object_func::object_property_is_enumerable}, 1},
                   });
    define_methods(engine, engine.function_prototype,
                   {
                       {"toString", {object_func::function_to_string}, 0},
                       {"apply", {object_func::function_apply}, 2},
                       {"call", {object_func::function_call}, 1},
                   });
    define_methods(engine, engine.boolean_prototype,
                   {
                       {"toString", {object_func::boolean_to_string}, 0},
                       {"valueOf", {object_func::boolean_value_of}, 0},
                   });
    define_methods(engine, engine.error_prototype,
                   {
                       {"toString", {object_func::error_to_string}, 0},
                   });
    for (native_error kind :
         {native_error::error, native_error::range_error, native_error::reference_error,
          native_error::syntax_error, native_error::type_error, native_error::uri_error}) {
        define_constructor(engine, native_error_name(kind),
                           standard_func{.standard_kind = error_func{.error_kind = kind}}, 1,
                           native_error_prototype(engine, kind));
    }
}

} // namespace vellum::js::eval::builtins
