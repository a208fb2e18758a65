// What to show for a character that no font has: a fixed table of look-alikes, and the message that
// says so.
#pragma once

#include <optional>
#include <string>

namespace vellum::fonts::fallback {

/// A character that looks like c and is more likely to be in a font: the C1 controls as Windows-1252
/// has them, dashes and minus as "-", letterlike symbols as plain letters, and a few others.
[[nodiscard]] std::optional<char32_t> substitute_char(char32_t c);

/// A code point as "U+%04X".
std::string code_text(char32_t c);

/// The substitute to use and how loudly to say so.
struct fallback_choice {
    char32_t fallback_char = U'?';
    /// True when the table had an entry (a debug message); otherwise "?" and a warning.
    bool fallback_known = false;
    std::string fallback_message;
};

/// "no glyphs for character U+XXXX, fallback to 'x'" (or "U+XXXX" for a substitute above ASCII).
fallback_choice choose_fallback(char32_t c);

} // namespace vellum::fonts::fallback
