#include "util/stack.hpp"

#include <utility>

namespace vellum::stack {

namespace {

thread_local char const* current_low = nullptr;

} // namespace

char const* own_stack_low() {
    return current_low;
}

char const* enter_own_stack(char const* low) {
    return std::exchange(current_low, low);
}

} // namespace vellum::stack
