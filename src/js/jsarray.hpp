// The growable array of the script engine: property lists, array elements and function variables.
// It is a reference value: copies share one storage, and a change made through one is seen by all.
#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>
#include <utility>
#include <vector>

namespace vellum::jsarray {

/// A shared, mutable, growable array. Growing sets the capacity to the larger of twice the old capacity
/// and the length needed, so that appending one at a time costs amortised constant time.
template <class T>
struct js_array {
    std::shared_ptr<std::vector<T>> array_storage = std::make_shared<std::vector<T>>();

    /// Number of elements.
    std::size_t length() const { return array_storage->size(); }

    /// Number of elements that fit before the storage must grow.
    std::size_t capacity() const { return array_storage->capacity(); }

    bool empty() const { return array_storage->empty(); }

    /// The element at i, which must be below the length. The handle is shared, so the element may be
    /// changed through a const handle.
    T& operator[](std::size_t i) const { return (*array_storage)[i]; }

    /// Makes room for at least `needed` elements by the growth rule.
    void reserve_for(std::size_t needed) const {
        auto& v = *array_storage;
        if (needed > v.capacity()) {
            v.reserve(std::max(v.capacity() * 2, needed));
        }
    }

    /// Appends an element.
    void push_back(T value) const {
        reserve_for(length() + 1);
        array_storage->push_back(std::move(value));
    }

    /// Sets the length: a longer array is filled with `fill`, a shorter one loses its tail.
    void resize(std::size_t n, T const& fill) const {
        reserve_for(n);
        array_storage->resize(n, fill);
    }

    /// Removes the element at i; the later ones move down by one.
    void erase(std::size_t i) const { array_storage->erase(array_storage->begin() + static_cast<std::ptrdiff_t>(i)); }

    /// Iteration over the current elements (invalidated by growth, as for any vector).
    auto begin() const { return array_storage->begin(); }

    auto end() const { return array_storage->end(); }

    /// Identity: two handles are equal when they share their storage.
    bool operator==(js_array const& other) const { return array_storage == other.array_storage; }
};

/// A new array holding a copy of the elements, with storage of its own.
template <class T>
js_array<T> copy(js_array<T> const& a) {
    return js_array<T>{.array_storage = std::make_shared<std::vector<T>>(*a.array_storage)};
}

} // namespace vellum::jsarray
