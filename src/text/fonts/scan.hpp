// The font scanner of the command line: reads font files and writes an @font-face rule for each, so
// that a style sheet can name them by family.
#pragma once

#include "driver/log.hpp"
#include "text/fonts/freetype.hpp"

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace vellum::fonts::scan {

/// The name of a bit of the OS/2 ulUnicodeRange fields, or nothing for a reserved bit.
[[nodiscard]] std::optional<std::string_view> unicode_range_name(int bit);

/// The comment that lists the Unicode ranges of the OS/2 table: "All", each range on a line, or the
/// lack of a table.
std::string unicode_ranges_comment(std::optional<std::array<std::uint32_t, 4>> const& ranges);

/// Text quoted for a CSS string: each '"' written as '\"'.
std::string css_escape(std::string_view text);

/// Reads the first face of a font file and gives its comment and @font-face rule; with `verbose` the
/// Unicode ranges too. A file that does not load is logged with the file as source and gives nothing;
/// licence bits that forbid embedding are warned about, and the rule is still made.
[[nodiscard]] std::optional<std::string>
scan_font_file(log::log const& log, freetype::freetype const& ft, std::string const& path, bool verbose);

} // namespace vellum::fonts::scan
