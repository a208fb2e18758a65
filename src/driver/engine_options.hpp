// The settings of the engine that the command line fixes for the whole run.
#pragma once

#include "resource/loader_options.hpp"
#include "resource/locator.hpp"

namespace vellum::engine {

/// What the engine is built from.
struct engine_options {
    /// The installation root under which dtd/, style/ and etc/ lie.
    virtual_path::physical_path prefix;
    /// The working directory at start-up.
    virtual_path::physical_path curdir;
    resource::loader::loader_options loader_options;
    bool system_fonts = true;
    /// Pixels per inch of CSS; the driver sets the process-wide value of the CSS units from it.
    int css_dpi = 96;
    bool operator==(engine_options const&) const = default;
};

} // namespace vellum::engine
