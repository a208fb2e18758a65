// Shared immutable values: records are held as ref<T> and updated by copy-change-reshare.
#pragma once

#include <memory>

namespace vellum {

/// A shared, immutable value.
template <class T>
using ref = std::shared_ptr<T const>;

/// Moves a value into a new shared immutable cell.
template <class T>
ref<T> share(T value) {
    return std::make_shared<T const>(std::move(value));
}

/// Builds a visitor from one lambda per variant alternative.
template <class... Fs>
struct overloaded : Fs... {
    using Fs::operator()...;
};
template <class... Fs>
overloaded(Fs...) -> overloaded<Fs...>;

} // namespace vellum
