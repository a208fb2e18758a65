#include "pdf/bulkio/buffer.hpp"

#include <algorithm>
#include <cstring>

namespace vellum::pdf::bulkio::buffer {

namespace {

bool write_into(void* target, std::uint8_t const* data, std::size_t size) {
    put_bytes(*static_cast<buffer*>(target), {data, size});
    return true;
}

} // namespace

std::unique_ptr<buffer> open(output::output target, std::uint32_t capacity) {
    check(capacity > 0, "bulkio_buffer_open");
    auto b = std::make_unique<buffer>();
    b->buffer_target = target;
    b->buffer_data = std::make_unique_for_overwrite<std::uint8_t[]>(capacity);
    b->buffer_capacity = capacity;
    return b;
}

void flush(buffer& b) {
    if (b.buffer_used == 0) {
        return;
    }
    if (!output::write(b.buffer_target, {b.buffer_data.get(), b.buffer_used})) {
        throw output::write_error("error writing to buffer");
    }
    b.buffer_flushed += b.buffer_used;
    b.buffer_used = 0;
}

void put_bytes(buffer& b, std::span<std::uint8_t const> data) {
    while (!data.empty()) {
        if (b.buffer_used == b.buffer_capacity) {
            flush(b);
        }
        auto const n = std::min<std::size_t>(data.size(), b.buffer_capacity - b.buffer_used);
        std::memcpy(b.buffer_data.get() + b.buffer_used, data.data(), n);
        b.buffer_used += static_cast<std::uint32_t>(n);
        data = data.subspan(n);
    }
}

void put_hex(buffer& b, std::span<std::uint8_t const> data) {
    static constexpr char digits[] = "0123456789ABCDEF";
    for (auto c : data) {
        put_byte(b, digits[c >> 4]);
        put_byte(b, digits[c & 15]);
    }
}

output::output as_output(buffer& b) {
    return {.output_write = write_into, .output_target = &b};
}

} // namespace vellum::pdf::bulkio::buffer
