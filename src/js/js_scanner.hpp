// The script scanner: cuts script source bytes into tokens. Whether a `/` starts a regular expression is
// not the scanner's to know; the caller says which mode to scan the next token in.
#pragma once

#include "js/jsstring.hpp"
#include "util/result.hpp"

#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

namespace vellum::js_scanner {

/// How to read a `/`: as the division operator, or as the start of a regular expression literal.
enum class scan_mode { scan_div, scan_regexp };

/// One of the keywords (and `null`, `true`, `false`), as written.
struct keyword {
    std::string keyword_text;
    bool operator==(keyword const&) const = default;
};

/// One of the seven reserved words that are not identifiers.
struct reserved {
    std::string reserved_text;
    bool operator==(reserved const&) const = default;
};

/// An identifier, its source bytes as written (a `\u` escape is kept, not decoded).
struct identifier {
    std::string identifier_text;
    bool operator==(identifier const&) const = default;
};

struct punctuator {
    std::string punctuator_text;
    bool operator==(punctuator const&) const = default;
};

/// A string literal, its escapes decoded.
struct string_token {
    jsstring::js_string string_value;
    bool operator==(string_token const&) const = default;
};

/// A decimal or hexadecimal literal that fits a 64-bit integer.
struct int_token {
    std::int64_t int_value = 0;
    bool operator==(int_token const&) const = default;
};

/// Any other numeric literal.
struct float_token {
    double float_value = 0;
    bool operator==(float_token const&) const = default;
};

/// A regular expression literal: the text between the slashes, and the flag letters after them.
struct regexp {
    std::string regexp_pattern;
    std::string regexp_flags;
    bool operator==(regexp const&) const = default;
};

/// A printable ASCII character that no other rule takes.
struct unknown {
    std::string unknown_text;
    bool operator==(unknown const&) const = default;
};

/// A byte that no rule takes (a control character, a non-ASCII byte outside identifiers).
struct unknown_byte {
    bool operator==(unknown_byte const&) const = default;
};

/// A line feed, the only line terminator.
struct line_terminator {
    bool operator==(line_terminator const&) const = default;
};

struct eof {
    bool operator==(eof const&) const = default;
};

using token = std::variant<keyword, reserved, identifier, punctuator, string_token, int_token, float_token, regexp,
                           unknown, unknown_byte, line_terminator, eof>;

/// A token and the line it starts on.
struct scanned {
    int scanned_line = 1;
    token scanned_token;
};

/// A scanner over one source text, counting lines from 1.
class scanner {
public:
    /// Scans a byte string; as with a C string, the text ends at the first NUL byte.
    static scanner from_string(std::string_view text);

    /// Scans what remains of an open stream, read through a 16384-byte buffer.
    [[nodiscard]] static result<scanner> from_stream(std::FILE* stream);

    /// The next token, scanned in the given mode.
    scanned scan_token(scan_mode mode);

    /// The next token, in the mode `decide(context)` gives; it is asked only when the token begins with
    /// a `/` that does not open a comment, the one case where the modes differ.
    scanned scan_token(scan_mode (*decide)(void const* context), void const* context);

    /// The line the scanner has reached.
    int line() const { return scanner_line; }

private:
    std::string scanner_text;
    std::size_t scanner_pos = 0;
    int scanner_line = 1;
};

/// A token as a message shows it: a string token as its text in double quotes, any other in term form,
/// as `keyword("if")`, `punctuator(")")`, `int(5)` or `eof`.
std::string token_to_string(token const& t);

/// Decodes the text between the quotes of a string literal.
jsstring::js_string decode_string(std::string_view body);

} // namespace vellum::js_scanner
