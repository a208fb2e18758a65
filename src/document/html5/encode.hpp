// Finding the character encoding of HTML bytes (byte-order mark, meta prescan) and converting them to UTF-8.
#pragma once

#include "util/bytes.hpp"
#include "util/result.hpp"

#include <optional>
#include <string>
#include <string_view>

namespace vellum::html5::encode {

/// The charset named by a meta content value such as "text/html; charset=iso-8859-2", or nothing.
[[nodiscard]] std::optional<std::string> get_charset_from_content(std::string_view content);

/// The encoding declared by a meta element in the first 1024 bytes, or nothing ("utf-16" reads as "utf-8").
[[nodiscard]] std::optional<std::string> prescan_for_charset(std::string_view data);

/// The encoding from a byte-order mark or a meta declaration, or nothing.
[[nodiscard]] std::optional<std::string> find_encoding(std::string_view data);

/// Converts bytes in a named encoding to UTF-8 (UTF-8 input is cleaned of invalid sequences); an
/// encoding the system doesn't know is read as windows-1252.
[[nodiscard]] result<std::string> convert_to_utf8(std::string_view data, std::string_view encoding);

/// The document's bytes as UTF-8: by its byte-order mark, its meta declaration, or else UTF-8 if the first
/// byte above 0x7F starts a well-formed UTF-8 sequence, and windows-1252 if not.
[[nodiscard]] result<std::string> memory_to_utf8(std::string_view data);

/// As above, for a byte block.
[[nodiscard]] result<std::string> memory_to_utf8(bytes::bytes const& data);

} // namespace vellum::html5::encode
