// Running script code in a host's engine: installing the compiler and the standard library, and running
// a program or text as global code.
#pragma once

// The loader first: the script engine's header declares its name ahead.
#include "resource/loader.hpp"
#include "js/engine.hpp"
#include "js/value.hpp"
#include "resource/locator.hpp"

namespace vellum::hostjs {

/// Installs what lets the engine run script code (the compiler's call hooks, the standard objects).
void install_engine_hooks(js::eval::js& engine);

} // namespace vellum::hostjs
