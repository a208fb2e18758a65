#include "text/unicode/range.hpp"

#include "util/hex.hpp"

#include <string>

namespace vellum::unicode::range {

namespace {

constexpr int (*hex_value)(char) = util::hex::digit_value;

// Reads hex digits, and with `wildcards` trailing '?'s, into the lowest and highest value they cover.
// Returns the number of characters read, or 0 when there are none or more than six.
std::size_t read_hex(std::string_view text, bool wildcards, char32_t& low, char32_t& high) {
    std::size_t i = 0;
    low = 0;
    high = 0;
    while (i < text.size() && hex_value(text[i]) >= 0) {
        low = low * 16 + static_cast<char32_t>(hex_value(text[i]));
        high = low;
        ++i;
    }
    while (wildcards && i < text.size() && text[i] == '?') {
        low = low * 16;
        high = high * 16 + 15;
        ++i;
    }
    return i > 6 ? 0 : i;
}

} // namespace

bool contains(unicode_range const& ranges, char32_t cp) {
    for (auto const& [first, last] : ranges) {
        if (cp >= first && cp <= last) {
            return true;
        }
    }
    return false;
}

result<range_pair> parse_range(std::string_view text) {
    auto const bad = [&] { return fail("unicode-range: bad range '" + std::string(text) + "'"); };
    if (text.size() < 3 || (text[0] != 'U' && text[0] != 'u') || text[1] != '+') {
        return bad();
    }
    auto rest = text.substr(2);
    char32_t first = 0;
    char32_t last = 0;
    auto const n = read_hex(rest, true, first, last);
    if (n == 0) {
        return bad();
    }
    rest = rest.substr(n);
    if (!rest.empty()) {
        // A second value is allowed only after plain digits, never after a wildcard.
        if (rest[0] != '-' || first != last) {
            return bad();
        }
        char32_t high = 0;
        auto const m = read_hex(rest.substr(1), false, last, high);
        if (m == 0 || m + 1 != rest.size()) {
            return bad();
        }
    }
    if (first > last || last > 0x10FFFF) {
        return bad();
    }
    return range_pair{first, last};
}

} // namespace vellum::unicode::range
