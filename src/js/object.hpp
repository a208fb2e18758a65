// Properties of script objects: keys in normal form, reading, writing, deleting and enumerating them along
// the prototype chain, with arrays, string wrappers, host collections and accessors.
#pragma once

#include "js/value.hpp"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vellum::js::eval {

struct js;

/// The key of a string: the canonical decimal text of a 64-bit integer ("1", "-5", not "01", "+1" or
/// "-0") is an integer key, a string with NUL keeps its code points, anything else is UTF-8.
js_prop_string key_of_string(js_string const& s);

/// The same for UTF-8 text (which holds no NUL).
js_prop_string key_of_utf8(std::string_view text);

/// The key of an integer.
js_prop_string key_of_int(std::int64_t n);

/// The text of a key.
js_string key_to_string(js_prop_string const& key);

/// The text of a key as UTF-8 (NUL kept as a byte), for messages and for the host.
std::string key_to_utf8(js_prop_string const& key);

/// The array index a key names: an integer from 0 to 2^32 - 2, as in the standard; larger integers are
/// ordinary property names.
[[nodiscard]] std::optional<std::uint32_t> array_index(js_prop_string const& key);

/// The object's prototype, if it has one.
[[nodiscard]] std::optional<js_object> prototype_of(js_object o);

/// The position of an own property in the object's list, searched linearly in insertion order.
[[nodiscard]] std::optional<std::size_t> find_own_property(js_object o, js_prop_string const& key);

/// Adds or replaces an own property with the given content and attributes, whatever attributes it had.
/// For the engine and the standard library; scripts go through `put`.
void define_own_property(js_object o, js_prop_string const& key, property_value value, attrs a);

/// Shorthand for a plain value.
void define_value(js_object o, std::string_view name, js_value value, attrs a = {});

/// `[[Get]]`: the value of a property of an object or its prototypes, `undefined` if there is none.
/// Accessors run with `o` as `this`.
[[nodiscard]] expr_res<js_value> get(js& engine, js_object o, js_prop_string const& key);

/// What a write to a property would do, decided along the prototype chain.
struct cannot_put {
    bool operator==(cannot_put const&) const = default;
};

struct can_put_value {
    bool operator==(can_put_value const&) const = default;
};

struct can_put_ref {
    std::shared_ptr<js_value> put_cell;
    bool operator==(can_put_ref const&) const = default;
};

struct can_put_host_prop {
    std::optional<accessor> put_setter;
    bool operator==(can_put_host_prop const&) const = default;
};

struct can_put_setter {
    js_object put_setter;
    bool operator==(can_put_setter const&) const = default;
};

using can_put_res = std::variant<cannot_put, can_put_value, can_put_ref, can_put_host_prop, can_put_setter>;

/// `[[CanPut]]`, walking from the object up its prototypes.
can_put_res can_put(js_object o, js_prop_string const& key);

/// `[[Put]]`: writes a property, silently doing nothing where it is read-only. Gives the value.
[[nodiscard]] expr_res<js_value> put(js& engine, js_object o, js_prop_string const& key, js_value const& value);

/// `[[Delete]]`: false for a property that may not be deleted, true otherwise (absent ones included).
bool delete_property(js_object o, js_prop_string const& key);

/// Whether the object itself has the property (host collections asked first).
bool has_own_property(js& engine, js_object o, js_prop_string const& key);

/// Whether the object or one of its prototypes has the property.
bool has_property(js& engine, js_object o, js_prop_string const& key);

/// The enumerable names of the object and its prototypes, for `for-in`: a snapshot, so names added
/// later are not seen and names deleted later are still delivered. Per object: array indices (or the
/// indices of a string or a host collection), the host collection's names, then own properties in
/// insertion order. A name is decided at its first sight, so a hidden property hides one of the same
/// name further up.
std::vector<js_prop_string> enumerate(js& engine, js_object o);

/// The same for the object's own enumerable names only (`Object.keys`).
std::vector<js_prop_string> enumerate_own(js& engine, js_object o);

/// The names a `for-in` loop visits for any value: none for `null` and `undefined`, otherwise those of
/// `enumerate` on the value as an object.
[[nodiscard]] expr_res<std::vector<js_prop_string>> enum_prop_names(js& engine, js_value const& v);

/// `v instanceof f`: whether `f.prototype` is on the prototype chain of `v`. A right side that is no
/// object throws `not_object`, one that is no function `not_function`, and a `prototype` that is no
/// object a `TypeError`.
[[nodiscard]] expr_res<bool> instance_of(js& engine, js_value const& v, js_value const& f);

/// `key in o`: a right side that is no object throws `not_object`.
[[nodiscard]] expr_res<bool> in_operator(js& engine, js_value const& key, js_value const& o);

/// The attributes of a present array element; nothing for a hole.
[[nodiscard]] std::optional<attrs> element_attrs(js_array_item const& element);

/// Whether an array's length has been made read-only (by `Object.defineProperty`): it is then an own
/// property of the array that carries `read_only`, and the array neither grows nor shrinks.
bool array_length_read_only(js_object o);

/// The length of an array object (0 for any other object).
std::uint32_t array_length(js_object o);

/// Sets the length of an array: shorter cuts items off, but stops above the last one that may not be
/// deleted; longer adds holes. A value that is not a whole number from 0 to 2^32 - 1 throws
/// `invalid_array_length`; a read-only length throws a `TypeError`.
[[nodiscard]] expr_res<js_value> set_array_length(js& engine, js_object o, js_value const& length);

} // namespace vellum::js::eval
