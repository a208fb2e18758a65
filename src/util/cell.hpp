// Named mutable cells: the few places where state changes, each access under the process-wide lock.
#pragma once

#include <mutex>
#include <utility>

namespace vellum {

/// The one process-wide lock that guards every access to a mutable cell and every libxml2 call.
std::recursive_mutex& process_lock();

/// A mutable value shared between holders; each read and write takes the process-wide lock.
template <class T>
struct cell {
    T cell_value{};

    /// A copy of the current value.
    T get() const {
        std::lock_guard guard(process_lock());
        return cell_value;
    }

    /// Replaces the value.
    void set(T value) {
        std::lock_guard guard(process_lock());
        cell_value = std::move(value);
    }

    /// Applies f to the value in place, under the lock, and returns what f returns.
    template <class F>
    auto update(F&& f) {
        std::lock_guard guard(process_lock());
        return std::forward<F>(f)(cell_value);
    }
};

} // namespace vellum
