// An optional value kept on the heap: for members of small, frequent records that most instances leave
// empty (an empty one costs a pointer instead of the value's whole width).
#pragma once

#include <memory>
#include <utility>

namespace vellum {

/// Like std::optional<T>, but the value lives on the heap. Copying copies the value, comparison
/// compares presence and then values.
template <class T>
class rare {
public:
    rare() = default;
    rare(T value) : value_(std::make_unique<T>(std::move(value))) {} // NOLINT: converts like an optional
    rare(rare const& other) : value_(other.value_ ? std::make_unique<T>(*other.value_) : nullptr) {}
    rare(rare&&) noexcept = default;
    rare& operator=(rare const& other) {
        if (this != &other) {
            value_ = other.value_ ? std::make_unique<T>(*other.value_) : nullptr;
        }
        return *this;
    }
    rare& operator=(rare&&) noexcept = default;
    rare& operator=(T value) {
        value_ = std::make_unique<T>(std::move(value));
        return *this;
    }
    ~rare() = default;

    explicit operator bool() const { return value_ != nullptr; }
    bool has_value() const { return value_ != nullptr; }
    void reset() { value_.reset(); }

    T& operator*() { return *value_; }
    T const& operator*() const { return *value_; }
    T* operator->() { return value_.get(); }
    T const* operator->() const { return value_.get(); }

    friend bool operator==(rare const& a, rare const& b) {
        return a.value_ == b.value_ || (a.value_ && b.value_ && *a.value_ == *b.value_);
    }

private:
    std::unique_ptr<T> value_;
};

} // namespace vellum
