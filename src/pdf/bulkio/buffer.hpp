// A fixed-size memory buffer in front of a sink. All bytes of a PDF file pass one of these, and its
// position (bytes flushed plus bytes held) is where every offset in the cross-reference table comes from.
#pragma once

#include "pdf/bulkio/output.hpp"

#include <cstdint>
#include <memory>
#include <span>
#include <string_view>

namespace vellum::pdf::bulkio::buffer {

/// The capacity used for the file and for stream bodies.
inline constexpr std::uint32_t default_capacity = 65536;

/// A buffer and the sink it flushes into. The counters are 32-bit on purpose: offsets in a classic
/// cross-reference table have ten digits, and files past 4 GiB are not supported.
struct buffer {
    output::output buffer_target{};
    std::unique_ptr<std::uint8_t[]> buffer_data{};
    std::uint32_t buffer_capacity = 0;
    std::uint32_t buffer_used = 0;
    std::uint32_t buffer_flushed = 0;
};

/// A new, empty buffer of the given capacity in front of the target.
std::unique_ptr<buffer> open(output::output target, std::uint32_t capacity = default_capacity);

/// Hands the held bytes to the target; a failure throws write_error "error writing to buffer".
void flush(buffer& b);

/// The number of bytes written so far, flushed or not (wraps at 4 GiB).
inline std::uint32_t position(buffer const& b) {
    return b.buffer_flushed + b.buffer_used;
}

/// Writes one byte.
inline void put_byte(buffer& b, std::uint8_t c) {
    if (b.buffer_used == b.buffer_capacity) {
        flush(b);
    }
    b.buffer_data[b.buffer_used++] = c;
}

/// Writes a run of bytes. A run larger than the buffer goes through it in capacity-sized pieces, so the
/// target never sees a piece larger than the capacity.
void put_bytes(buffer& b, std::span<std::uint8_t const> data);

/// Writes the characters of a text.
inline void put_text(buffer& b, std::string_view text) {
    if (text.size() <= b.buffer_capacity - b.buffer_used) {
        for (char c : text) {
            b.buffer_data[b.buffer_used++] = static_cast<std::uint8_t>(c);
        }
        return;
    }
    put_bytes(b, output::as_bytes(text));
}

/// Writes each byte as two upper-case hexadecimal digits, with no breaks.
void put_hex(buffer& b, std::span<std::uint8_t const> data);

/// An output that writes into the buffer, for layers in front of it; a failure of the buffer's own
/// target throws rather than returning false.
output::output as_output(buffer& b);

} // namespace vellum::pdf::bulkio::buffer
