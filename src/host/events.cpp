#include "host/events.hpp"

#include <algorithm>

namespace vellum::events {

namespace {

event_list* list_of(event_target const& target) {
    auto const* t = std::get_if<list_event_target>(&target);
    return t != nullptr ? t->target_events.get() : nullptr;
}

event_entry* entry_of(event_list& list, std::string const& type) {
    auto it = std::ranges::find_if(list, [&](event_entry const& e) { return e.entry_type == type; });
    return it == list.end() ? nullptr : &*it;
}

} // namespace

void add_listener(event_target const& target, std::string const& type, listener l) {
    auto* list = list_of(target);
    if (list == nullptr) {
        return;
    }
    auto* entry = entry_of(*list, type);
    if (entry == nullptr) {
        list->insert(list->begin(), event_entry{.entry_type = type});
        entry = &list->front();
    }
    if (std::ranges::find(entry->entry_listeners, l) == entry->entry_listeners.end()) {
        entry->entry_listeners.insert(entry->entry_listeners.begin(), l);
    }
}

void remove_listener(event_target const& target, std::string const& type, listener const& l) {
    auto* list = list_of(target);
    if (list == nullptr) {
        return;
    }
    if (auto* entry = entry_of(*list, type)) {
        std::erase(entry->entry_listeners, l);
    }
}

std::vector<js_object> listeners_to_call(event_target const& target, std::string const& type) {
    std::vector<js_object> out;
    auto* list = list_of(target);
    if (list == nullptr) {
        return out;
    }
    if (auto* entry = entry_of(*list, type)) {
        // A copy: listeners may add or remove listeners while the event is being dispatched.
        for (auto const& l : entry->entry_listeners) {
            if (!l.listener_capture) {
                out.push_back(l.listener_func);
            }
        }
    }
    return out;
}

bool has_listener(event_target const& target, std::string const& type) {
    auto* list = list_of(target);
    if (list == nullptr) {
        return false;
    }
    auto* entry = entry_of(*list, type);
    return entry != nullptr && !entry->entry_listeners.empty();
}

} // namespace vellum::events
