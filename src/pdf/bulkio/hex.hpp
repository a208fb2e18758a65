// The /ASCIIHexDecode layer: each byte becomes two upper-case digits, in lines of 72 digits.
#pragma once

#include "pdf/bulkio/output.hpp"

#include <memory>
#include <span>

namespace vellum::pdf::bulkio::hex {

/// Digits on one line before a line feed.
inline constexpr int line_digits = 72;

/// The target and the count of digits on the current line, kept across writes.
struct hex {
    output::output hex_target{};
    int hex_column = 0;
};

/// A hex layer in front of the target.
std::unique_ptr<hex> open(output::output target);

/// Writes the digits of a run; false when the target failed. No end-of-data mark is ever written: the
/// stream's /Length says where the data ends.
[[nodiscard]] bool write(hex& h, std::span<std::uint8_t const> data);

/// An output that writes digits into the target.
output::output as_output(hex& h);

} // namespace vellum::pdf::bulkio::hex
