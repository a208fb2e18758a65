// Script numbers: a 64-bit integer where the value is an integer that fits (literals, and arithmetic on
// integers, which wraps at 64 bits), a double otherwise. Both are "number" to a script.
#pragma once

#include <cstdint>
#include <variant>

namespace vellum::js {

using number = std::variant<std::int64_t, double>;

} // namespace vellum::js
