#include "js/object.hpp"

#include "js/convert.hpp"
#include "js/engine.hpp"
#include "js/errors.hpp"
#include "js/host.hpp"
#include "util/ref.hpp"
#include "util/result.hpp"

#include <charconv>
#include <cmath>
#include <unordered_set>

namespace vellum::js::eval {

std::optional<js_object> prototype_of(js_object o) {
    if (auto const* p = std::get_if<yes_proto>(&o->obj_prototype)) {
        return p->proto;
    }
    return std::nullopt;
}

namespace {

// Arrays are dense: a write far beyond the end fills the gap with holes. A script that writes at index
// 4e9 would otherwise ask for hundreds of gigabytes, so an array longer than this is refused with a
// RangeError instead.
constexpr std::uint64_t max_dense_array_length = std::uint64_t{1} << 25;

// The largest array index of the standard; larger integers are ordinary names.
constexpr std::int64_t max_array_index = 4294967294;

bool is_length_key(js_prop_string const& key) {
    auto const* u = std::get_if<js_prop_utf8>(&key);
    return u != nullptr && u->prop_text == "length";
}

// The canonical decimal text of a 64-bit integer: an optional minus, no leading zero, no "-0".
std::optional<std::int64_t> canonical_int(std::string_view t) {
    std::size_t digits = t.starts_with('-') ? 1 : 0;
    if (t.size() == digits || t.size() > 20) {
        return std::nullopt;
    }
    if (t[digits] == '0' && (t.size() > digits + 1 || digits == 1)) {
        return std::nullopt;
    }
    std::int64_t n = 0;
    auto [end, ec] = std::from_chars(t.data(), t.data() + t.size(), n);
    if (ec != std::errc{} || end != t.data() + t.size()) {
        return std::nullopt;
    }
    return n;
}

host_interface& host_of(js& engine) {
    check(engine.js_host != nullptr, "host object without a host interface");
    return *engine.js_host;
}

js_value char_at(js_string const& s, std::size_t i) {
    return js_string(std::u32string(1, s.code_points()[i]));
}

// Reads a property's content with `self` as the `this` of accessors.
expr_res<js_value> read_property(js& engine, js_object self, property_value const& p) {
    return std::visit(overloaded{
                          [](prop_value const& v) -> expr_res<js_value> { return v.value; },
                          [](prop_ref const& r) -> expr_res<js_value> { return *r.ref_cell; },
                          [&](prop_host const& h) -> expr_res<js_value> {
                              return std::visit(overloaded{
                                                    [&](js_accessor const& a) {
                                                        return call(engine, self, a.accessor_func, {});
                                                    },
                                                    [&](host_accessor const& a) {
                                                        return host_of(engine).to_js_value(engine, a.accessor_host);
                                                    },
                                                },
                                                h.host_getter);
                          },
                          [&](prop_accessor const& a) -> expr_res<js_value> {
                              return call(engine, self, a.getter, {});
                          },
                      },
                      p);
}

// Calls a setter with the one new value; the value written is the result of the assignment.
expr_res<js_value> call_setter(js& engine, js_object self, accessor const& setter, js_value const& value) {
    expr_res<js_value> r = std::visit(
        overloaded{
            [&](js_accessor const& a) { return call(engine, self, a.accessor_func, {value}); },
            [&](host_accessor const& a) {
                return host_of(engine).call_host_func(engine, self, a.accessor_host, {value});
            },
        },
        setter);
    if (is_exception(r)) {
        return r;
    }
    return value;
}

// A key in a form that can go into a hash set, for the first-sight rule of enumeration.
std::string seen_key(js_prop_string const& key) {
    return std::visit(overloaded{
                          [](js_prop_int const& k) { return "i" + std::to_string(k.prop_int); },
                          [](js_prop_utf8 const& k) { return "s" + k.prop_text; },
                          [](js_prop_string_nulls const& k) { return "n" + jsstring::to_utf8(k.prop_nulls); },
                      },
                      key);
}

void enumerate_object(js& engine,
                      js_object o,
                      std::unordered_set<std::string>& seen,
                      std::vector<js_prop_string>& names) {
    auto consider = [&](js_prop_string key, bool enumerable) {
        if (seen.insert(seen_key(key)).second && enumerable) {
            names.push_back(std::move(key));
        }
    };
    if (auto const* a = std::get_if<class_array>(&o->obj_class)) {
        for (std::size_t i = 0; i < a->array_items.length(); ++i) {
            if (auto element = element_attrs(a->array_items[i])) {
                consider(key_of_int(static_cast<std::int64_t>(i)), !element->has(attr::no_enum));
            }
        }
    } else if (auto const* s = std::get_if<class_string>(&o->obj_class)) {
        for (std::size_t i = 0; i < s->string_value.length(); ++i) {
            consider(key_of_int(static_cast<std::int64_t>(i)), true);
        }
        consider(key_of_utf8("length"), false);
    } else if (auto const* c = std::get_if<class_host_collection>(&o->obj_class)) {
        auto& host = host_of(engine);
        std::int64_t n = host.get_supported_index_length(c->host_collection);
        for (std::int64_t i = 0; i < n; ++i) {
            consider(key_of_int(i), true);
        }
        for (auto& name : host.enum_supported_names(c->host_collection)) {
            consider(name, true);
        }
    }
    // Names are collected into a list of their own, so the loop that takes them sees later changes to
    // the object neither way.
    auto const& props = o->obj_properties;
    for (std::size_t i = 0; i < props.length(); ++i) {
        consider(props[i].property_name, !props[i].property_attrs.has(attr::no_enum));
    }
}

} // namespace

std::optional<attrs> element_attrs(js_array_item const& element) {
    return std::visit(overloaded{
                          [](no_item const&) -> std::optional<attrs> { return std::nullopt; },
                          [](item const& it) -> std::optional<attrs> { return it.item_attrs; },
                          [](accessor_item const& it) -> std::optional<attrs> { return it.item_attrs; },
                      },
                      element);
}

bool array_length_read_only(js_object o) {
    if (!std::holds_alternative<class_array>(o->obj_class)) {
        return false;
    }
    auto pos = find_own_property(o, key_of_utf8("length"));
    return pos && o->obj_properties[*pos].property_attrs.has(attr::read_only);
}

js_prop_string key_of_string(js_string const& s) {
    if (jsstring::has_nul(s)) {
        return js_prop_string_nulls{.prop_nulls = s};
    }
    return key_of_utf8(jsstring::to_utf8(s));
}

js_prop_string key_of_utf8(std::string_view text) {
    if (auto n = canonical_int(text)) {
        return js_prop_int{.prop_int = *n};
    }
    return js_prop_utf8{.prop_text = std::string(text)};
}

js_prop_string key_of_int(std::int64_t n) {
    return js_prop_int{.prop_int = n};
}

js_string key_to_string(js_prop_string const& key) {
    return std::visit(overloaded{
                          [](js_prop_int const& k) { return jsstring::from_utf8(std::to_string(k.prop_int)); },
                          [](js_prop_utf8 const& k) { return jsstring::from_utf8(k.prop_text); },
                          [](js_prop_string_nulls const& k) { return k.prop_nulls; },
                      },
                      key);
}

std::string key_to_utf8(js_prop_string const& key) {
    return std::visit(overloaded{
                          [](js_prop_int const& k) { return std::to_string(k.prop_int); },
                          [](js_prop_utf8 const& k) { return k.prop_text; },
                          [](js_prop_string_nulls const& k) { return jsstring::to_utf8(k.prop_nulls); },
                      },
                      key);
}

std::optional<std::uint32_t> array_index(js_prop_string const& key) {
    auto const* k = std::get_if<js_prop_int>(&key);
    if (k == nullptr || k->prop_int < 0 || k->prop_int > max_array_index) {
        return std::nullopt;
    }
    return static_cast<std::uint32_t>(k->prop_int);
}

std::optional<std::size_t> find_own_property(js_object o, js_prop_string const& key) {
    auto const& props = o->obj_properties;
    for (std::size_t i = 0; i < props.length(); ++i) {
        if (props[i].property_name == key) {
            return i;
        }
    }
    return std::nullopt;
}

void define_own_property(js_object o, js_prop_string const& key, property_value value, attrs a) {
    if (auto pos = find_own_property(o, key)) {
        o->obj_properties[*pos].property_value = std::move(value);
        o->obj_properties[*pos].property_attrs = a;
        return;
    }
    o->obj_properties.push_back(js_property{.property_name = key, .property_value = std::move(value), .property_attrs = a});
}

void define_value(js_object o, std::string_view name, js_value value, attrs a) {
    define_own_property(o, key_of_utf8(name), prop_value{.value = std::move(value)}, a);
}

expr_res<js_value> get(js& engine, js_object o, js_prop_string const& key) {
    auto const index = array_index(key);
    for (std::optional<js_object> cur = o; cur; cur = prototype_of(*cur)) {
        object_class const& c = (*cur)->obj_class;
        if (auto const* hc = std::get_if<class_host_collection>(&c)) {
            if (auto v = host_of(engine).get_own_property(engine, *cur, hc->host_collection, key)) {
                return *v;
            }
        }
        if (auto const* a = std::get_if<class_array>(&c); a != nullptr && index) {
            // An array answers for all its indices: a hole reads as undefined, whatever the prototypes
            // hold at that index.
            if (*index >= a->array_items.length()) {
                return undefined();
            }
            return std::visit(overloaded{
                                  [](no_item const&) -> expr_res<js_value> { return undefined(); },
                                  [](item const& it) -> expr_res<js_value> { return it.item_value; },
                                  [&](accessor_item const& it) -> expr_res<js_value> {
                                      // A copy: the getter may change the array it came from.
                                      js_object const getter = it.item_getter;
                                      return call(engine, o, getter, {});
                                  },
                              },
                              a->array_items[*index]);
        }
        if (auto const* s = std::get_if<class_string>(&c)) {
            if (index && *index < s->string_value.length()) {
                return char_at(s->string_value, *index);
            }
            if (is_length_key(key)) {
                return number{static_cast<std::int64_t>(s->string_value.length())};
            }
        }
        if (auto pos = find_own_property(*cur, key)) {
            // A copy: a getter may change the list it came from.
            property_value const p = (*cur)->obj_properties[*pos].property_value;
            return read_property(engine, o, p);
        }
    }
    return undefined();
}

can_put_res can_put(js_object o, js_prop_string const& key) {
    auto const index = array_index(key);
    for (std::optional<js_object> cur = o; cur; cur = prototype_of(*cur)) {
        object_class const& c = (*cur)->obj_class;
        if (auto const* a = std::get_if<class_array>(&c); a != nullptr && index) {
            // An element with an accessor is written through its setter, and without one not at all.
            if (*index < a->array_items.length()) {
                if (auto const* it = std::get_if<accessor_item>(&a->array_items[*index])) {
                    if (it->item_setter) {
                        return can_put_setter{.put_setter = *it->item_setter};
                    }
                    return cannot_put{};
                }
            }
            return can_put_value{};
        }
        if (auto const* s = std::get_if<class_string>(&c)) {
            if ((index && *index < s->string_value.length()) || is_length_key(key)) {
                return cannot_put{};
            }
        }
        if (auto pos = find_own_property(*cur, key)) {
            js_property const& p = (*cur)->obj_properties[*pos];
            if (p.property_attrs.has(attr::read_only)) {
                return cannot_put{};
            }
            return std::visit(overloaded{
                                  [](prop_value const&) -> can_put_res { return can_put_value{}; },
                                  [](prop_ref const& r) -> can_put_res { return can_put_ref{.put_cell = r.ref_cell}; },
                                  [](prop_host const& h) -> can_put_res {
                                      return can_put_host_prop{.put_setter = h.host_setter};
                                  },
                                  [](prop_accessor const& a) -> can_put_res {
                                      if (a.setter) {
                                          return can_put_setter{.put_setter = *a.setter};
                                      }
                                      return cannot_put{};
                                  },
                              },
                              p.property_value);
        }
    }
    return can_put_value{};
}

expr_res<js_value> put(js& engine, js_object o, js_prop_string const& key, js_value const& value) {
    can_put_res const how = can_put(o, key);
    return std::visit(
        overloaded{
            [&](cannot_put const&) -> expr_res<js_value> { return value; },
            [&](can_put_ref const& r) -> expr_res<js_value> {
                *r.put_cell = value;
                return value;
            },
            [&](can_put_host_prop const& h) -> expr_res<js_value> {
                if (!h.put_setter) {
                    return value;
                }
                return call_setter(engine, o, *h.put_setter, value);
            },
            [&](can_put_setter const& s) -> expr_res<js_value> {
                return call_setter(engine, o, js_accessor{.accessor_func = s.put_setter}, value);
            },
            [&](can_put_value const&) -> expr_res<js_value> {
                if (auto const* hc = std::get_if<class_host_collection>(&o->obj_class)) {
                    if (auto r = host_of(engine).set_own_property(engine, o, hc->host_collection, key, value)) {
                        if (is_exception(*r)) {
                            return *r;
                        }
                        return value;
                    }
                }
                auto const index = array_index(key);
                if (auto const* a = std::get_if<class_array>(&o->obj_class); a != nullptr && index) {
                    auto const& items = a->array_items;
                    if (*index >= items.length()) {
                        // A read-only length keeps the array from growing.
                        if (array_length_read_only(o)) {
                            return value;
                        }
                        if (std::uint64_t{*index} + 1 > max_dense_array_length) {
                            return throw_error(engine, js_error::invalid_array_length);
                        }
                        items.resize(std::size_t{*index} + 1, no_item{});
                    }
                    js_array_item& slot = items[*index];
                    std::visit(overloaded{
                                   [&](no_item const&) { slot = item{.item_value = value}; },
                                   [&](item& it) {
                                       if (!it.item_attrs.has(attr::read_only)) {
                                           it.item_value = value;
                                       }
                                   },
                                   // Not reached: `can_put` sends a write to such an element to its
                                   // setter, or refuses it.
                                   [](accessor_item const&) {},
                               },
                               slot);
                    return value;
                }
                if (auto pos = find_own_property(o, key)) {
                    o->obj_properties[*pos].property_value = prop_value{.value = value};
                } else {
                    o->obj_properties.push_back(js_property{.property_name = key, .property_value = prop_value{.value = value}});
                }
                return value;
            },
        },
        how);
}

bool delete_property(js_object o, js_prop_string const& key) {
    auto const index = array_index(key);
    if (auto const* a = std::get_if<class_array>(&o->obj_class); a != nullptr && index) {
        if (*index >= a->array_items.length()) {
            return true;
        }
        js_array_item& slot = a->array_items[*index];
        if (auto element = element_attrs(slot)) {
            if (element->has(attr::no_delete)) {
                return false;
            }
            slot = no_item{};
        }
        return true;
    }
    if (std::holds_alternative<class_array>(o->obj_class) && is_length_key(key)) {
        return false;
    }
    if (auto const* s = std::get_if<class_string>(&o->obj_class)) {
        if ((index && *index < s->string_value.length()) || is_length_key(key)) {
            return false;
        }
    }
    auto pos = find_own_property(o, key);
    if (!pos) {
        return true;
    }
    if (o->obj_properties[*pos].property_attrs.has(attr::no_delete)) {
        return false;
    }
    o->obj_properties.erase(*pos);
    return true;
}

bool has_own_property(js& engine, js_object o, js_prop_string const& key) {
    auto const index = array_index(key);
    object_class const& c = o->obj_class;
    if (auto const* hc = std::get_if<class_host_collection>(&c)) {
        if (host_of(engine).get_own_property(engine, o, hc->host_collection, key)) {
            return true;
        }
    }
    if (auto const* a = std::get_if<class_array>(&c); a != nullptr && index) {
        return *index < a->array_items.length() && element_attrs(a->array_items[*index]).has_value();
    }
    if (auto const* s = std::get_if<class_string>(&c)) {
        if ((index && *index < s->string_value.length()) || is_length_key(key)) {
            return true;
        }
    }
    return find_own_property(o, key).has_value();
}

bool has_property(js& engine, js_object o, js_prop_string const& key) {
    auto const index = array_index(key);
    for (std::optional<js_object> cur = o; cur; cur = prototype_of(*cur)) {
        if (has_own_property(engine, *cur, key)) {
            return true;
        }
        // As for reading, an array answers for its indices itself.
        if (std::holds_alternative<class_array>((*cur)->obj_class) && index) {
            return false;
        }
    }
    return false;
}

std::vector<js_prop_string> enumerate(js& engine, js_object o) {
    std::unordered_set<std::string> seen;
    std::vector<js_prop_string> names;
    for (std::optional<js_object> cur = o; cur; cur = prototype_of(*cur)) {
        enumerate_object(engine, *cur, seen, names);
    }
    return names;
}

std::vector<js_prop_string> enumerate_own(js& engine, js_object o) {
    std::unordered_set<std::string> seen;
    std::vector<js_prop_string> names;
    enumerate_object(engine, o, seen, names);
    return names;
}

expr_res<std::vector<js_prop_string>> enum_prop_names(js& engine, js_value const& v) {
    if (std::holds_alternative<js_undefined>(v) || std::holds_alternative<js_null>(v)) {
        return std::vector<js_prop_string>{};
    }
    auto o = to_object(engine, v);
    if (auto const* e = std::get_if<exception>(&o)) {
        return *e;
    }
    return enumerate(engine, std::get<js_object>(o));
}

expr_res<bool> instance_of(js& engine, js_value const& v, js_value const& f) {
    auto const* fo = std::get_if<js_object>(&f);
    if (fo == nullptr) {
        return throw_error(engine, js_error::not_object);
    }
    if (function_of(*fo) == nullptr) {
        return throw_error(engine, js_error::not_function);
    }
    auto const* vo = std::get_if<js_object>(&v);
    if (vo == nullptr) {
        return false;
    }
    auto proto = get(engine, *fo, key_of_utf8("prototype"));
    if (auto const* e = std::get_if<exception>(&proto)) {
        return *e;
    }
    auto const* po = std::get_if<js_object>(&std::get<js_value>(proto));
    if (po == nullptr) {
        return exception{.exception_value = new_error(engine, native_error::type_error,
                                                      jsstring::from_utf8("function has no prototype object"))};
    }
    for (std::optional<js_object> cur = prototype_of(*vo); cur; cur = prototype_of(*cur)) {
        if (*cur == *po) {
            return true;
        }
    }
    return false;
}

expr_res<bool> in_operator(js& engine, js_value const& key, js_value const& o) {
    auto const* obj = std::get_if<js_object>(&o);
    if (obj == nullptr) {
        return throw_error(engine, js_error::not_object);
    }
    auto k = to_prop_string(engine, key);
    if (auto const* e = std::get_if<exception>(&k)) {
        return *e;
    }
    return has_property(engine, *obj, std::get<js_prop_string>(k));
}

std::uint32_t array_length(js_object o) {
    if (auto const* a = std::get_if<class_array>(&o->obj_class)) {
        return static_cast<std::uint32_t>(a->array_items.length());
    }
    return 0;
}

expr_res<js_value> set_array_length(js& engine, js_object o, js_value const& length) {
    auto const* a = std::get_if<class_array>(&o->obj_class);
    if (a == nullptr) {
        return throw_error(engine, js_error::not_array);
    }
    if (array_length_read_only(o)) {
        return exception{.exception_value = new_error(engine, native_error::type_error,
                                                      jsstring::from_utf8("array length is read-only"))};
    }
    auto n = to_number(engine, length);
    if (auto const* e = std::get_if<exception>(&n)) {
        return *e;
    }
    double const d = to_double(std::get<number>(n));
    if (!(d >= 0 && d <= 4294967295.0 && d == std::trunc(d)) || d > static_cast<double>(max_dense_array_length)) {
        return throw_error(engine, js_error::invalid_array_length);
    }
    // Shortening stops above the last element that may not be deleted.
    auto wanted = static_cast<std::size_t>(d);
    for (std::size_t i = a->array_items.length(); i > wanted; --i) {
        if (auto element = element_attrs(a->array_items[i - 1]); element && element->has(attr::no_delete)) {
            wanted = i;
            break;
        }
    }
    a->array_items.resize(wanted, no_item{});
    return length;
}

} // namespace vellum::js::eval
