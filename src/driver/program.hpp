// The program: process start, the set-up of the libraries, acting on the command line, and the one
// catch-all that turns an internal failure into a logged message and exit status 1.
#pragma once

#include <functional>

namespace vellum::program {

/// Runs `body` on a stack large enough for deeply nested documents, and returns its result (or throws
/// what it threw): on the calling thread, the stack switched; on a thread of its own where the stack
/// cannot be switched; on the calling thread's own stack when neither can be had.
int on_large_stack(std::function<int()> const& body);

/// Runs the program with the process's arguments; returns the exit status.
int run(int argc, char** argv);

} // namespace vellum::program
