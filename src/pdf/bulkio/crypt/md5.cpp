#include "pdf/bulkio/crypt/md5.hpp"

#include <bit>
#include <cstring>

namespace vellum::pdf::bulkio::crypt::md5 {

namespace {

// The per-step left rotations of the four rounds, four to a round.
constexpr std::array<int, 16> shifts{7, 12, 17, 22, 5, 9, 14, 20, 4, 11, 16, 23, 6, 10, 15, 21};

// The additive constants: the integer part of 2^32 times |sin(i + 1)|, i = 0 .. 63.
constexpr std::array<std::uint32_t, 64> sines{
    0xd76aa478, 0xe8c7b756, 0x242070db, 0xc1bdceee, 0xf57c0faf, 0x4787c62a, 0xa8304613, 0xfd469501,
    0x698098d8, 0x8b44f7af, 0xffff5bb1, 0x895cd7be, 0x6b901122, 0xfd987193, 0xa679438e, 0x49b40821,
    0xf61e2562, 0xc040b340, 0x265e5a51, 0xe9b6c7aa, 0xd62f105d, 0x02441453, 0xd8a1e681, 0xe7d3fbc8,
    0x21e1cde6, 0xc33707d6, 0xf4d50d87, 0x455a14ed, 0xa9e3e905, 0xfcefa3f8, 0x676f02d9, 0x8d2a4c8a,
    0xfffa3942, 0x8771f681, 0x6d9d6122, 0xfde5380c, 0xa4beea44, 0x4bdecfa9, 0xf6bb4b60, 0xbebfbc70,
    0x289b7ec6, 0xeaa127fa, 0xd4ef3085, 0x04881d05, 0xd9d4d039, 0xe6db99e5, 0x1fa27cf8, 0xc4ac5665,
    0xf4292244, 0x432aff97, 0xab9423a7, 0xfc93a039, 0x655b59c3, 0x8f0ccc92, 0xffeff47d, 0x85845dd1,
    0x6fa87e4f, 0xfe2ce6e0, 0xa3014314, 0x4e0811a1, 0xf7537e82, 0xbd3af235, 0x2ad7d2bb, 0xeb86d391};

// One 64-byte block, read as sixteen little-endian words, folded into the state.
void transform(std::array<std::uint32_t, 4>& state, std::uint8_t const* block) {
    std::uint32_t x[16];
    for (int i = 0; i < 16; ++i) {
        x[i] = std::uint32_t(block[4 * i]) | std::uint32_t(block[4 * i + 1]) << 8 |
               std::uint32_t(block[4 * i + 2]) << 16 | std::uint32_t(block[4 * i + 3]) << 24;
    }
    std::uint32_t a = state[0];
    std::uint32_t b = state[1];
    std::uint32_t c = state[2];
    std::uint32_t d = state[3];
    for (int i = 0; i < 64; ++i) {
        std::uint32_t f = 0;
        int g = 0;
        switch (i / 16) {
        case 0:
            f = (b & c) | (~b & d);
            g = i;
            break;
        case 1:
            f = (d & b) | (~d & c);
            g = (5 * i + 1) % 16;
            break;
        case 2:
            f = b ^ c ^ d;
            g = (3 * i + 5) % 16;
            break;
        default:
            f = c ^ (b | ~d);
            g = (7 * i) % 16;
            break;
        }
        std::uint32_t const next = b + std::rotl(a + f + sines[i] + x[g], shifts[(i / 16) * 4 + i % 4]);
        a = d;
        d = c;
        c = b;
        b = next;
    }
    state[0] += a;
    state[1] += b;
    state[2] += c;
    state[3] += d;
}

} // namespace

void update(md5& m, std::span<std::uint8_t const> data) {
    std::size_t used = m.md5_length % 64;
    m.md5_length += data.size();
    std::size_t i = 0;
    if (used > 0) {
        std::size_t const n = std::min(data.size(), 64 - used);
        std::memcpy(m.md5_block.data() + used, data.data(), n);
        i = n;
        used += n;
        if (used < 64) {
            return;
        }
        transform(m.md5_state, m.md5_block.data());
    }
    for (; i + 64 <= data.size(); i += 64) {
        transform(m.md5_state, data.data() + i);
    }
    if (i < data.size()) {
        std::memcpy(m.md5_block.data(), data.data() + i, data.size() - i);
    }
}

void update(md5& m, std::string_view data) {
    update(m, std::span(reinterpret_cast<std::uint8_t const*>(data.data()), data.size()));
}

digest finish(md5& m) {
    // The message is padded with one bit, zeros up to 56 bytes modulo 64, and its length in bits as a
    // little-endian 64-bit number.
    std::uint64_t const bits = m.md5_length * 8;
    std::uint8_t pad[72] = {0x80};
    std::size_t const used = m.md5_length % 64;
    std::size_t const pad_length = used < 56 ? 56 - used : 120 - used;
    for (int i = 0; i < 8; ++i) {
        pad[pad_length + i] = static_cast<std::uint8_t>(bits >> (8 * i));
    }
    update(m, std::span<std::uint8_t const>(pad, pad_length + 8));
    digest out;
    for (int i = 0; i < 4; ++i) {
        for (int k = 0; k < 4; ++k) {
            out[4 * i + k] = static_cast<std::uint8_t>(m.md5_state[i] >> (8 * k));
        }
    }
    return out;
}

digest of(std::span<std::uint8_t const> data) {
    md5 m;
    update(m, data);
    return finish(m);
}

} // namespace vellum::pdf::bulkio::crypt::md5
