#include "pdf/bulkio/hex.hpp"

#include <array>

namespace vellum::pdf::bulkio::hex {

namespace {

bool write_into(void* target, std::uint8_t const* data, std::size_t size) {
    return write(*static_cast<hex*>(target), {data, size});
}

} // namespace

std::unique_ptr<hex> open(output::output target) {
    return std::make_unique<hex>(hex{.hex_target = target});
}

bool write(hex& h, std::span<std::uint8_t const> data) {
    static constexpr char digits[] = "0123456789ABCDEF";
    // Digits are gathered in a small block so the target sees a few large runs, not two bytes at a time.
    std::array<std::uint8_t, 4096> block;
    std::size_t used = 0;
    for (auto c : data) {
        if (used + 3 > block.size()) {
            if (!output::write(h.hex_target, {block.data(), used})) {
                return false;
            }
            used = 0;
        }
        block[used++] = digits[c >> 4];
        block[used++] = digits[c & 15];
        h.hex_column += 2;
        if (h.hex_column == line_digits) {
            block[used++] = '\n';
            h.hex_column = 0;
        }
    }
    return used == 0 || output::write(h.hex_target, {block.data(), used});
}

output::output as_output(hex& h) {
    return {.output_write = write_into, .output_target = &h};
}

} // namespace vellum::pdf::bulkio::hex
