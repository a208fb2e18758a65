// The texts the program prints for --help, --credits and --version, and for a command line it cannot
// make sense of.
#pragma once

#include <string>

namespace vellum::help {

/// "Usage:" and the three ways of calling the program, then an empty line.
std::string usage_text();

/// The option help, group by group, ending with the product's web address.
std::string option_help_text();

/// The line that follows a usage or an error: "Try 'vellum --help' for more information."
std::string try_help_text();

/// The library acknowledgements, with the version of each library as it reports itself.
std::string credits_text();

/// The program's version number, as scripts see it in `navigator.appVersion`.
std::string version_number();

/// The name, the version and a notice line; with `debug` also the build properties.
std::string version_text(bool debug);

} // namespace vellum::help
