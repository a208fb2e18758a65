// Interfaces as scripts see them: a constructor and its prototype, linked to each other and to the parent
// interface's prototype, and bound on the global object under the interface's name.
#pragma once

// The loader first: the script engine's header declares its name ahead.
#include "resource/loader.hpp"
#include "js/engine.hpp"
#include "js/value.hpp"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace vellum::webidl {

using js::eval::js_object;

/// An interface: its constructor and its prototype.
struct webidl_interface {
    js_object constructor;
    js_object prototype;
    bool operator==(webidl_interface const&) const = default;
};

/// The host value of an interface's constructor; it reports the interface's name as its class. Without
/// a constructor function of the host, `new` on it throws "illegal constructor".
struct webidl_interface_object : js::eval::host_data {
    std::string interface_name;
    /// What `new` runs, if the interface can be constructed.
    std::optional<js::eval::host_value> interface_construct;
};

/// The host value of an interface's prototype object.
struct webidl_prototype_object : js::eval::host_data {
    std::string prototype_name;
};

/// A host value that serves its own calls: the objects, functions and accessors that parts of the host
/// (canvas, the DOM) add to an engine without the window's own table knowing them. The host's side of the
/// engine hands each call on to it.
struct host_binding : js::eval::host_data {
    /// The class name scripts see.
    virtual std::string binding_class_name() const = 0;
    /// A call of the function, or of the accessor (a getter with no arguments, a setter with the value).
    virtual js::eval::expr_res<js::eval::js_value> binding_call(js::eval::js& engine,
                                                                js::eval::js_value const& this_value,
                                                                std::vector<js::eval::js_value> const& args) = 0;
    /// For a collection: an own property answered first; nothing goes on as for any object.
    virtual std::optional<js::eval::js_value> binding_get(js::eval::js&, js_object, js::eval::js_prop_string const&) {
        return std::nullopt;
    }
    /// For a collection: a write answered first; nothing stores an ordinary property.
    virtual std::optional<js::eval::expr_res<js::eval::js_value>>
    binding_set(js::eval::js&, js_object, js::eval::js_prop_string const&, js::eval::js_value const&) {
        return std::nullopt;
    }
    /// For a collection: the number of its indexed properties.
    virtual std::int64_t binding_length() const { return 0; }
};

/// What a host function of an interface does: given `this` and the arguments, a value or a thrown one.
using native_fn = std::function<js::eval::expr_res<js::eval::js_value>(
    js::eval::js& engine, js::eval::js_value const& this_value, std::vector<js::eval::js_value> const& args)>;

/// The host value of a function whose body is a C++ callable: methods, accessors and constructors of the
/// DOM interfaces.
struct native_func : js::eval::host_data {
    native_fn native_body;
};

/// A host value that runs a callable.
js::eval::host_value native_value(native_fn f);

/// Creates an interface: the constructor (a host constructor function) and the prototype (a host object
/// whose prototype is the parent's prototype, or `Object.prototype`), with `prototype` and `constructor`
/// linking them, bound as a global property of the interface's name.
webidl_interface make_interface(js::eval::js& engine,
                                std::string const& name,
                                std::optional<webidl_interface> const& parent,
                                std::optional<js::eval::host_value> construct = std::nullopt);

/// Adds a method to a prototype (or any object): a host function with its `length`, not enumerable.
js_object add_method(js::eval::js& engine, js_object target, std::string const& name, js::eval::host_value h, int length);

/// Adds a method whose body is a callable.
js_object add_native_method(js::eval::js& engine, js_object target, std::string const& name, int length, native_fn f);

/// Adds an accessor property whose getter (and setter, if given) are function objects running callables
/// with the object read as `this`; without a setter, writes are ignored. Not enumerable.
void add_native_accessor(js::eval::js& engine, js_object target, std::string const& name, native_fn getter,
                         std::optional<native_fn> setter = std::nullopt);

/// Adds a constant: read-only, not deletable, enumerable as the DOM constants are.
void add_constant(js_object target, std::string const& name, js::eval::js_value value);

} // namespace vellum::webidl
