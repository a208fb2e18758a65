// The value of one hexadecimal digit, as URLs, data URLs, unicode ranges and PDF identifiers read them.
#pragma once

namespace vellum::util::hex {

/// 0 to 15 for a hexadecimal digit in either case, -1 for anything else.
constexpr int digit_value(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    if (c >= 'A' && c <= 'F') {
        return c - 'A' + 10;
    }
    return -1;
}

} // namespace vellum::util::hex
