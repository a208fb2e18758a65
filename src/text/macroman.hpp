// The Mac OS Roman character set: the encoding of old Apple cmap subtables and name records, and the
// simple PDF font encoding for text that stays inside it.
#pragma once

#include <cstdint>
#include <optional>

namespace vellum::macroman {

/// The code point of a MacRoman byte.
char32_t to_unicode(std::uint8_t code);

/// The MacRoman byte of a code point, if it has one.
[[nodiscard]] std::optional<std::uint8_t> from_unicode(char32_t c);

} // namespace vellum::macroman
