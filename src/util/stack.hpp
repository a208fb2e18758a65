// The stack that the program's work runs on. The work runs on a large stack of its own, entered on the
// calling thread; the thread's attributes describe the thread's first stack, not that one, so code that
// must know how much stack is left asks here first.
#pragma once

namespace vellum::stack {

/// The lowest usable address of the stack of the program's own that this thread runs on; null when it
/// runs on the stack the system gave the thread.
char const* own_stack_low();

/// Notes that this thread now runs on a stack of the program's own whose lowest usable address is
/// `low` (null when it goes back to the system's), and returns what was noted before.
char const* enter_own_stack(char const* low);

} // namespace vellum::stack
