// The common face of every byte sink: a write function and the target it moves bytes into.
#pragma once

#include "util/result.hpp"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace vellum::pdf::bulkio::output {

/// Moves a run of bytes into a sink; false when the sink could not take them.
using write_func = bool (*)(void* target, std::uint8_t const* data, std::size_t size);

/// A sink of bytes: the function that writes and the target it writes to.
struct output {
    write_func output_write = nullptr;
    void* output_target = nullptr;
    bool operator==(output const&) const = default;
};

/// A write through a sink failed; the run cannot go on.
struct write_error : internal_error {
    using internal_error::internal_error;
};

/// Hands a run to the sink and says whether it took it.
[[nodiscard]] inline bool write(output const& out, std::span<std::uint8_t const> data) {
    return out.output_write(out.output_target, data.data(), data.size());
}

/// Hands a run to the sink; a failure throws write_error "error writing to stream".
inline void write_all(output const& out, std::span<std::uint8_t const> data) {
    if (!write(out, data)) {
        throw write_error("error writing to stream");
    }
}

/// The characters of a text as a byte run.
inline std::span<std::uint8_t const> as_bytes(std::string_view text) {
    return {reinterpret_cast<std::uint8_t const*>(text.data()), text.size()};
}

} // namespace vellum::pdf::bulkio::output
