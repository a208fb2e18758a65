#include "pdf/bulkio/deflate.hpp"

#include <array>

#include <zlib.h>

namespace vellum::pdf::bulkio::deflate {

struct deflate {
    z_stream deflate_stream{};
    output::output deflate_target;
    std::array<std::uint8_t, chunk_size> deflate_chunk{};
};

namespace {

// Runs zlib once over the pending input with the given flush mode and hands what came out to the
// target. Returns zlib's status, or Z_ERRNO when the target failed.
int step(deflate& d, int flush) {
    d.deflate_stream.next_out = d.deflate_chunk.data();
    d.deflate_stream.avail_out = static_cast<uInt>(d.deflate_chunk.size());
    int const status = ::deflate(&d.deflate_stream, flush);
    auto const produced = d.deflate_chunk.size() - d.deflate_stream.avail_out;
    if (produced > 0 && !output::write(d.deflate_target, {d.deflate_chunk.data(), produced})) {
        return Z_ERRNO;
    }
    return status;
}

bool write_into(void* target, std::uint8_t const* data, std::size_t size) {
    return write(*static_cast<deflate*>(target), {data, size});
}

} // namespace

void deflate_free::operator()(deflate* d) const {
    deflateEnd(&d->deflate_stream);
    delete d;
}

deflate_ptr open(output::output target) {
    auto d = std::make_unique<deflate>();
    d->deflate_target = target;
    // Null allocator fields select zlib's own malloc and free.
    if (deflateInit_(&d->deflate_stream, Z_DEFAULT_COMPRESSION, ZLIB_VERSION, sizeof(z_stream)) != Z_OK) {
        return nullptr;
    }
    return deflate_ptr(d.release());
}

bool write(deflate& d, std::span<std::uint8_t const> data) {
    // zlib counts input in 32-bit units, so a huge run goes in slices.
    while (!data.empty()) {
        auto const n = std::min<std::size_t>(data.size(), 1u << 30);
        d.deflate_stream.next_in = const_cast<Bytef*>(data.data());
        d.deflate_stream.avail_in = static_cast<uInt>(n);
        // With no flush requested zlib keeps what it can; a full output chunk means it has more to give.
        do {
            int const status = step(d, Z_NO_FLUSH);
            if (status == Z_ERRNO || status == Z_STREAM_ERROR) {
                return false;
            }
        } while (d.deflate_stream.avail_in > 0 || d.deflate_stream.avail_out == 0);
        data = data.subspan(n);
    }
    return true;
}

bool finish(deflate& d) {
    d.deflate_stream.next_in = nullptr;
    d.deflate_stream.avail_in = 0;
    for (;;) {
        int const status = step(d, Z_FINISH);
        if (status == Z_STREAM_END) {
            return true;
        }
        if (status != Z_OK && status != Z_BUF_ERROR) {
            return false;
        }
    }
}

output::output as_output(deflate& d) {
    return {.output_write = write_into, .output_target = &d};
}

} // namespace vellum::pdf::bulkio::deflate
