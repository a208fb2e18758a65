// Interfaces as scripts see them: a constructor and its prototype, linked to each other and to the parent
// interface's prototype, and bound on the global object under the interface's name.
#pragma once

// The loader first: the script engine's header declares its name ahead.
#include "resource/loader.hpp"
#include "js/engine.hpp"
#include "js/value.hpp"

#include <optional>
#include <string>

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

/// Creates an interface: the constructor (a host constructor function) and the prototype (a host object
/// whose prototype is the parent's prototype, or `Object.prototype`), with `prototype` and `constructor`
/// linking them, bound as a global property of the interface's name.
webidl_interface make_interface(js::eval::js& engine,
                                std::string const& name,
                                std::optional<webidl_interface> const& parent,
                                std::optional<js::eval::host_value> construct = std::nullopt);

/// Adds a method to a prototype (or any object): a host function with its `length`, not enumerable.
js_object add_method(js::eval::js& engine, js_object target, std::string const& name, js::eval::host_value h, int length);

} // namespace vellum::webidl
