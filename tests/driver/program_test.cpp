// The large stack the program's work runs on: switched to on the calling thread, deep enough for deep
// recursion, known to code that measures what is left of it, and left cleanly however the body ends.
#include "driver/program.hpp"
#include "util/stack.hpp"

#include <stdexcept>

#include <gtest/gtest.h>

namespace vellum::program {
namespace {

// Recursion with a frame of 4 KB; 16,384 levels take 64 MB, eight times the main thread's stack.
int down(int n) {
    volatile char frame[4096];
    frame[0] = char(n);
    return n == 0 ? frame[0] : down(n - 1) + 1 + frame[0] * 0;
}

TEST(program, the_body_runs_deep_on_a_stack_it_knows_the_end_of) {
    EXPECT_EQ(stack::own_stack_low(), nullptr);
    char const* low = nullptr;
    char const* here = nullptr;
    int const status = on_large_stack([&] {
        low = stack::own_stack_low();
        char mark = 0;
        here = &mark;
        return down(16384) == 16384 ? 3 : 4;
    });
    EXPECT_EQ(status, 3);
    ASSERT_NE(low, nullptr);
    // The body's frames stand above the stack's low end, gigabytes of room below them.
    EXPECT_GT(here, low);
    EXPECT_GT(std::size_t(here - low), std::size_t{1} << 30);
    EXPECT_EQ(stack::own_stack_low(), nullptr) << "left on return";
}

TEST(program, what_the_body_throws_comes_back_and_calls_nest) {
    EXPECT_THROW(on_large_stack([]() -> int { throw std::runtime_error("from the body"); }), std::runtime_error);
    EXPECT_EQ(stack::own_stack_low(), nullptr) << "left on a throw";
    char const* outer = nullptr;
    char const* inner = nullptr;
    char const* after = nullptr;
    int const status = on_large_stack([&] {
        outer = stack::own_stack_low();
        int const in = on_large_stack([&] {
            inner = stack::own_stack_low();
            return 5;
        });
        after = stack::own_stack_low();
        return in + 1;
    });
    EXPECT_EQ(status, 6);
    EXPECT_NE(outer, nullptr);
    EXPECT_NE(inner, nullptr);
    EXPECT_NE(outer, inner);
    EXPECT_EQ(after, outer) << "the outer stack is noted again when the inner call ends";
}

} // namespace
} // namespace vellum::program
