// The script parser: runs the compiled LALR(1) tables over the scanner's tokens, inserts semicolons
// where the language allows it, and builds the syntax tree. Syntax errors come back as values.
#pragma once

#include "js/grammar.hpp"
#include "js/js_scanner.hpp"
#include "js/syntax.hpp"
#include "util/bytes.hpp"

#include <cstdio>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace vellum::js {

/// A script that did not parse: the line of the offending token, if known, and the message.
struct js_error {
    std::optional<int> error_line;
    std::string error_message;
    bool operator==(js_error const&) const = default;
};

/// The parse of a script: its source elements, or the syntax error.
using js_res = std::variant<source_elements, js_error>;

} // namespace vellum::js

namespace vellum::js::parse {

/// A token as the parser sees it: the scanner's token, its terminal name in the grammar and its
/// semantic value.
struct parser_token {
    int line = 0;
    js_scanner::token scan_token;
    std::string token_name;
    value token_value;
    /// The terminal's number in the tables, or -1 if the grammar has no terminal of this name.
    int token_terminal = -1;
};

/// The terminal name and semantic value of a scanned token.
parser_token classify(int line, js_scanner::token t);

/// Parses script text (a string for `eval`, the `Function` constructor or an event attribute); as a C
/// string, it ends at the first NUL byte.
[[nodiscard]] js_res parse_string(std::string_view source);

/// Parses the bytes of a loaded resource.
[[nodiscard]] js_res parse_bytes(bytes::bytes const& source);

/// Parses a script read from an open stream, such as standard input.
[[nodiscard]] js_res parse_stream(std::FILE* stream);

/// Parses a script read from standard input.
[[nodiscard]] js_res parse_stdin();

} // namespace vellum::js::parse
