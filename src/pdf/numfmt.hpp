// Short number text for content streams: rounded to a few decimals, with trailing zeros, a bare point
// and negative zero all dropped, so that "12.5", "3" and "-0.25" come out as a reader expects.
#pragma once

#include <array>
#include <cmath>
#include <cstdint>
#include <string_view>

namespace vellum::pdf::numfmt {

/// The text of one number, held on the stack.
struct number_text {
    std::array<char, 32> text_chars{};
    std::uint8_t text_size = 0;

    std::string_view view() const { return {text_chars.data(), text_size}; }
};

/// The largest magnitude written; larger values are clamped to it. It keeps every number within what
/// readers parse as a real and the digits within the stack buffer.
inline constexpr double max_magnitude = 1e12;

/// Formats a value rounded to `decimals` places (0 to 6), halves away from zero. NaN gives "0".
inline number_text format(double value, int decimals = 3) {
    static constexpr double scales[] = {1, 10, 100, 1e3, 1e4, 1e5, 1e6};
    decimals = decimals < 0 ? 0 : decimals > 6 ? 6 : decimals;
    number_text out;
    if (std::isnan(value)) {
        out.text_chars[0] = '0';
        out.text_size = 1;
        return out;
    }
    value = std::fmax(-max_magnitude, std::fmin(max_magnitude, value));
    bool const negative = value < 0;
    // At most 10^12 times 10^6, the scaled magnitude stays well below 2^63.
    auto scaled = static_cast<std::uint64_t>(std::llround(std::fabs(value) * scales[decimals]));
    // Drop the zero decimals first, so that the digits below are exactly those written.
    while (decimals > 0 && scaled % 10 == 0) {
        scaled /= 10;
        --decimals;
    }
    // Digits are produced backwards into the end of a scratch array, then copied to the front.
    char scratch[32];
    int end = sizeof scratch;
    int pos = end;
    int written = 0;
    do {
        scratch[--pos] = static_cast<char>('0' + scaled % 10);
        scaled /= 10;
        ++written;
        if (written == decimals) {
            scratch[--pos] = '.';
        }
    } while (scaled > 0 || written <= decimals);
    // A value that rounds to zero has no sign.
    bool const zero = end - pos == 1 && scratch[pos] == '0';
    if (negative && !zero) {
        scratch[--pos] = '-';
    }
    for (int i = pos; i < end; ++i) {
        out.text_chars[out.text_size++] = scratch[i];
    }
    return out;
}

} // namespace vellum::pdf::numfmt
