// A zlib compressor in front of a sink: the layer behind /FlateDecode streams.
#pragma once

#include "pdf/bulkio/output.hpp"

#include <memory>
#include <span>

namespace vellum::pdf::bulkio::deflate {

/// The compressor's state (a zlib stream and its output chunk); defined with the code.
struct deflate;

/// Ends the zlib stream and frees the state.
struct deflate_free {
    void operator()(deflate* d) const;
};

/// An owned compressor.
using deflate_ptr = std::unique_ptr<deflate, deflate_free>;

/// The size of the chunk that compressed data is collected in before it goes to the target.
inline constexpr std::size_t chunk_size = 4096;

/// A compressor at zlib's default level in front of the target, or nothing when zlib cannot start.
[[nodiscard]] deflate_ptr open(output::output target);

/// Compresses a run; false when the target failed.
[[nodiscard]] bool write(deflate& d, std::span<std::uint8_t const> data);

/// Finishes the compressed data and hands the rest to the target; false when the target failed.
[[nodiscard]] bool finish(deflate& d);

/// An output that compresses into the target.
output::output as_output(deflate& d);

} // namespace vellum::pdf::bulkio::deflate
