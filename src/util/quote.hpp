// Text in double quotes for messages and serialised forms, with quotes and backslashes escaped.
#pragma once

#include <string>
#include <string_view>

namespace vellum {

/// The text in double quotes, with `"` and `\` escaped by a backslash.
inline std::string quoted(std::string_view s) {
    std::string out = "\"";
    for (char c : s) {
        if (c == '"' || c == '\\') {
            out += '\\';
        }
        out += c;
    }
    return out + "\"";
}

} // namespace vellum
