// The readers of the four raster formats, each behind one small wrapper around its C library. They read
// from bytes in memory and report failures as values; nothing here throws through the libraries.
#pragma once

#include "image/image.hpp"

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace vellum::image::codecs {

/// Bytes in memory, read in order through a library's read callback; a seek may move past the end.
struct memory_source {
    std::uint8_t const* data = nullptr;
    std::size_t size = 0;
    std::size_t at = 0;

    std::size_t left() const { return at < size ? size - at : 0; }

    /// Copies up to `want` bytes to `out` and moves past them; the count copied.
    std::size_t take(void* out, std::size_t want) {
        std::size_t const n = std::min(want, left());
        if (n > 0) {
            std::memcpy(out, data + at, n);
        }
        at += n;
        return n;
    }
};

[[nodiscard]] result<image_info> png_header(bytes::bytes const& data, bool check_data);
[[nodiscard]] result<image> png_decode(bytes::bytes const& data);

[[nodiscard]] result<image_info> jpeg_header(bytes::bytes const& data, bool check_data);
[[nodiscard]] result<image_jpeg_desc> jpeg_desc(bytes::bytes const& data);
/// Decodes a JPEG into samples of 8 bits, row after row, and the number of components a pixel.
[[nodiscard]] result<std::vector<std::uint8_t>> jpeg_pixels(bytes::bytes const& data, int& components);
/// Decodes a JPEG and compresses it again at a quality from 0 to 100 (baseline).
[[nodiscard]] result<bytes::bytes> jpeg_reencode(bytes::bytes const& data, int quality);

[[nodiscard]] result<image_info> gif_header(bytes::bytes const& data, bool check_data);
[[nodiscard]] result<image> gif_decode(bytes::bytes const& data);

[[nodiscard]] result<image_info> tiff_header(bytes::bytes const& data);
[[nodiscard]] result<image> tiff_decode(bytes::bytes const& data);

/// Splits interleaved samples with alpha last into colour and alpha buffers (8 or 16 bits a sample).
void split_alpha(std::vector<std::uint8_t> const& samples,
                 int channels,
                 int bytes_per_sample,
                 std::vector<std::uint8_t>& color,
                 std::vector<std::uint8_t>& alpha);

} // namespace vellum::image::codecs
