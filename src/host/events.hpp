// Event targets of the script host: listener lists by event type, adding and removing listeners, and
// dispatching an event to the listeners of one target. There is no propagation through a tree.
#pragma once

#include "js/value.hpp"

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace vellum::events {

using js::eval::js_object;

/// One registered listener: the function object and whether it was added for the capture phase.
struct listener {
    js_object listener_func;
    bool listener_capture = false;
    bool operator==(listener const&) const = default;
};

/// The listeners of one event type, the most recently added first.
struct event_entry {
    std::string entry_type;
    std::vector<listener> entry_listeners;
    bool operator==(event_entry const&) const = default;
};

/// The listeners of a target by type; the type registered last stands first.
using event_list = std::vector<event_entry>;

/// A target that accepts no listeners: calls on it return at once.
struct null_event_target {
    bool operator==(null_event_target const&) const = default;
};

/// A target with its mutable listener list, shared by every holder.
struct list_event_target {
    std::shared_ptr<event_list> target_events = std::make_shared<event_list>();
    bool operator==(list_event_target const&) const = default;
};

using event_target = std::variant<null_event_target, list_event_target>;

/// The host value of an object that is an event target (the window, `Vellum`, a document node), with the
/// class name scripts see.
struct target_host : js::eval::host_data {
    std::string target_class;
    event_target target = list_event_target{};
};

/// The event target methods a script reaches on `EventTarget.prototype`.
enum class event_target_method { add_event_listener, remove_event_listener, dispatch_event };

/// Adds a listener: a new type goes to the head of the list, and the pair goes to the front of its type's
/// listeners unless the same pair is there already.
void add_listener(event_target const& target, std::string const& type, listener l);

/// Removes the pair, if present; the type's entry stays, perhaps empty.
void remove_listener(event_target const& target, std::string const& type, listener const& l);

/// The listeners of a type in calling order: most recently added first, capture listeners left out.
std::vector<js_object> listeners_to_call(event_target const& target, std::string const& type);

/// Whether any listener, capture or not, is registered for the type.
bool has_listener(event_target const& target, std::string const& type);

} // namespace vellum::events
