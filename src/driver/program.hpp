// The program: process start, the set-up of the libraries, acting on the command line, and the one
// catch-all that turns an internal failure into a logged message and exit status 1.
#pragma once

#include <functional>

namespace vellum::program {

/// Runs `body` on a thread with a stack large enough for deeply nested documents, and returns its
/// result; on the calling thread when no such thread can be made.
int on_large_stack(std::function<int()> const& body);

/// Runs the program with the process's arguments; returns the exit status.
int run(int argc, char** argv);

} // namespace vellum::program
