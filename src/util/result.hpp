// Foreseen failures as values (result<T>) and invariant failures as exceptions (check).
#pragma once

#include <expected>
#include <stdexcept>
#include <string>

namespace vellum {

/// A value or a message saying what failed.
template <class T>
using result = std::expected<T, std::string>;

/// The failure side of a result.
inline std::unexpected<std::string> fail(std::string message) {
    return std::unexpected(std::move(message));
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
