// A value kept on the heap: for the large, rare alternatives of small, frequent records (a variant is as
// wide as its widest alternative, so one big alternative makes every instance big).
#pragma once

#include <memory>
#include <utility>

namespace vellum {

/// Owns one T on the heap with the semantics of a plain T member: copying copies the value, moving
/// moves the pointer, comparison compares the values. Never empty except after being moved from.
template <class T>
class boxed {
public:
    boxed() : value_(std::make_unique<T>()) {}
    boxed(T value) : value_(std::make_unique<T>(std::move(value))) {} // NOLINT: converts like a T member
    boxed(boxed const& other) : value_(std::make_unique<T>(*other.value_)) {}
    boxed(boxed&&) noexcept = default;
    boxed& operator=(boxed const& other) {
        if (this != &other) {
            value_ = std::make_unique<T>(*other.value_);
        }
        return *this;
    }
    boxed& operator=(boxed&&) noexcept = default;
    ~boxed() = default;

    T& operator*() { return *value_; }
    T const& operator*() const { return *value_; }
    T* operator->() { return value_.get(); }
    T const* operator->() const { return value_.get(); }

    friend bool operator==(boxed const& a, boxed const& b) { return *a.value_ == *b.value_; }

private:
    std::unique_ptr<T> value_;
};

} // namespace vellum
