// The host interface: how the engine reaches the objects of its embedding (the DOM, the window, canvas,
// typed arrays). The embedding implements it once and hands it to the engine.
#pragma once

#include "js/value.hpp"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace vellum::js::eval {

struct js;

/// The operations the engine calls for `host_object`, `host_collection`, `host_func`,
/// `host_constructor` and host property accessors.
struct host_interface {
    virtual ~host_interface() = default;

    /// The class name reported by `Object.prototype.toString` and the like.
    virtual std::string get_class_name(host_value const& h) = 0;

    /// Calls a host function (or a host setter, with the one new value).
    virtual expr_res<js_value> call_host_func(js& engine,
                                              js_value const& this_value,
                                              host_value const& h,
                                              std::vector<js_value> const& args) = 0;

    /// Runs a host constructor for `new`.
    virtual expr_res<js_value> call_host_constructor(js& engine,
                                                     host_value const& h,
                                                     std::vector<js_value> const& args) = 0;

    /// Asked first when a property of a host collection is read. Empty: go on with the object's own
    /// properties and its prototypes.
    virtual std::optional<js_value> get_own_property(js& engine,
                                                     js_object o,
                                                     host_value const& h,
                                                     js_prop_string const& key) = 0;

    /// Asked first when a property of a host collection is written. Empty: store it as an ordinary
    /// property.
    virtual std::optional<expr_res<js_value>> set_own_property(js& engine,
                                                               js_object o,
                                                               host_value const& h,
                                                               js_prop_string const& key,
                                                               js_value const& value) = 0;

    /// The collection's named properties, for enumeration.
    virtual std::vector<js_prop_string> enum_supported_names(host_value const& h) = 0;

    /// The number of indexed properties of the collection (0 to length - 1).
    virtual std::int64_t get_supported_index_length(host_value const& h) = 0;

    /// The value of a host property getter.
    virtual expr_res<js_value> to_js_value(js& engine, host_value const& h) = 0;

    /// Whether a host constructor may also be called as a plain function (it then runs through
    /// `call_host_func`); otherwise such a call throws "illegal constructor".
    virtual bool constructor_callable(host_value const&) { return false; }
};

} // namespace vellum::js::eval
