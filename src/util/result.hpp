// Foreseen failures as values (result<T>) and invariant failures as exceptions (check).
#pragma once

#include <stdexcept>
#include <string>
#include <utility>
#include <variant>

#if __has_include(<expected>)
#include <expected>
#endif

namespace vellum {

#if defined(__cpp_lib_expected)

template <class T, class E>
using expected = std::expected<T, E>;
template <class E>
using unexpected = std::unexpected<E>;

#else

// clang 14 with libstdc++ 12 (the fuzzing build) lacks <expected>; this stand-in has the part of its
// interface that the project uses.
template <class E>
struct unexpected {
    E unexpected_value;
    explicit unexpected(E e) : unexpected_value(std::move(e)) {}
    E const& error() const& { return unexpected_value; }
};

template <class T, class E>
class expected {
public:
    expected(T value) : state(std::in_place_index<0>, std::move(value)) {}
    template <class U>
    expected(unexpected<U> e) : state(std::in_place_index<1>, E(std::move(e.unexpected_value))) {}
    bool has_value() const { return state.index() == 0; }
    explicit operator bool() const { return has_value(); }
    T& operator*() & { return std::get<0>(state); }
    T const& operator*() const& { return std::get<0>(state); }
    T&& operator*() && { return std::get<0>(std::move(state)); }
    T* operator->() { return &std::get<0>(state); }
    T const* operator->() const { return &std::get<0>(state); }
    T& value() & { return std::get<0>(state); }
    T const& value() const& { return std::get<0>(state); }
    E const& error() const& { return std::get<1>(state); }
    E& error() & { return std::get<1>(state); }

private:
    std::variant<T, E> state;
};

#endif

/// A value or a message saying what failed.
template <class T>
using result = expected<T, std::string>;

/// The failure side of a result.
inline unexpected<std::string> fail(std::string message) {
    return unexpected<std::string>(std::move(message));
}

/// An invariant of the program that did not hold; caught only at the top of a run.
struct internal_error : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// Throws internal_error "<operation>: unexpected condition." when ok is false.
inline void check(bool ok, char const* operation) {
    if (!ok) {
        throw internal_error(std::string(operation) + ": unexpected condition.");
    }
}

} // namespace vellum
