// The MD5 message digest: the file identifier, and the keys of the standard security handler of PDF
// are all derived with it.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string_view>

namespace vellum::pdf::bulkio::crypt::md5 {

/// The 16 bytes of a digest.
using digest = std::array<std::uint8_t, 16>;

/// A digest being computed: the four state words, the bytes not yet making a whole block, and the count
/// of all bytes taken so far.
struct md5 {
    std::array<std::uint32_t, 4> md5_state{0x67452301u, 0xefcdab89u, 0x98badcfeu, 0x10325476u};
    std::array<std::uint8_t, 64> md5_block{};
    std::uint64_t md5_length = 0;
};

/// Adds bytes to the digest.
void update(md5& m, std::span<std::uint8_t const> data);

/// Adds the bytes of a text to the digest.
void update(md5& m, std::string_view data);

/// Pads the message and gives the digest; the state is spent.
[[nodiscard]] digest finish(md5& m);

/// The digest of one run of bytes.
[[nodiscard]] digest of(std::span<std::uint8_t const> data);

} // namespace vellum::pdf::bulkio::crypt::md5
