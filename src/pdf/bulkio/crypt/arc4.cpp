#include "pdf/bulkio/crypt/arc4.hpp"

#include <utility>

namespace vellum::pdf::bulkio::crypt::arc4 {

arc4 make(std::span<std::uint8_t const> key) {
    arc4 c;
    for (int i = 0; i < 256; ++i) {
        c.arc4_perm[i] = static_cast<std::uint8_t>(i);
    }
    // The key schedule: each position swaps with one chosen by the key, repeated over the key's bytes.
    std::uint8_t j = 0;
    for (int i = 0; i < 256; ++i) {
        j = static_cast<std::uint8_t>(j + c.arc4_perm[i] + key[i % key.size()]);
        std::swap(c.arc4_perm[i], c.arc4_perm[j]);
    }
    return c;
}

void apply(arc4& c, std::span<std::uint8_t> data) {
    auto& s = c.arc4_perm;
    std::uint8_t i = c.arc4_i;
    std::uint8_t j = c.arc4_j;
    for (auto& byte : data) {
        i = static_cast<std::uint8_t>(i + 1);
        j = static_cast<std::uint8_t>(j + s[i]);
        std::swap(s[i], s[j]);
        byte ^= s[static_cast<std::uint8_t>(s[i] + s[j])];
    }
    c.arc4_i = i;
    c.arc4_j = j;
}

} // namespace vellum::pdf::bulkio::crypt::arc4
