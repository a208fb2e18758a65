// WOFF 1.0 web fonts: the compressed tables are inflated with zlib and laid out again as a plain sfnt
// file, which is then read like any other font file.
#pragma once

#include "text/opentype/reader.hpp"
#include "util/result.hpp"

#include <cstdint>
#include <vector>

namespace vellum::opentype::woff {

/// Whether the data starts with the WOFF signature.
bool is_woff(reader::data d);

/// The sfnt file inside a WOFF file. Fails on a bad header, a table outside the file, a table that does
/// not inflate to its stated length, or stated sizes past what the data could hold.
[[nodiscard]] result<std::vector<std::uint8_t>> decode_woff(reader::data d);

} // namespace vellum::opentype::woff
