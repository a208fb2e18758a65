// A binary file of the C library as a byte sink.
#pragma once

#include "pdf/bulkio/output.hpp"

#include <cstdio>

namespace vellum::pdf::bulkio::file {

/// An output that writes into an open file (which the caller owns and closes). Its write function
/// repeats fwrite until the whole run is written and fails when fwrite writes nothing.
output::output file_output(std::FILE* f);

} // namespace vellum::pdf::bulkio::file
