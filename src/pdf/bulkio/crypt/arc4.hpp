// The RC4 stream cipher of the standard security handler: a keystream XORed onto the data, so that
// encrypting and decrypting are the same operation.
#pragma once

#include <array>
#include <cstdint>
#include <span>

namespace vellum::pdf::bulkio::crypt::arc4 {

/// The permutation of the 256 byte values and the two indexes that walk it.
struct arc4 {
    std::array<std::uint8_t, 256> arc4_perm{};
    std::uint8_t arc4_i = 0;
    std::uint8_t arc4_j = 0;
};

/// The cipher keyed with 1 to 256 bytes.
[[nodiscard]] arc4 make(std::span<std::uint8_t const> key);

/// XORs the next bytes of the keystream onto the data, in place.
void apply(arc4& c, std::span<std::uint8_t> data);

} // namespace vellum::pdf::bulkio::crypt::arc4
