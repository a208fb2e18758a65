// The program: process start, the set-up of the libraries, acting on the command line, and the one
// catch-all that turns an internal failure into a logged message and exit status 1.
#pragma once

namespace vellum::program {

/// Runs the program with the process's arguments; returns the exit status.
int run(int argc, char** argv);

} // namespace vellum::program
