// Raster images: what layout needs of a file (its size, resolution, alpha and depth, read from the
// header alone) and what the PDF writer needs (the pixels decoded, or the JPEG data as it stands).
// GIF, JPEG, PNG and TIFF are read through giflib, libjpeg, libpng and libtiff, from bytes in memory.
#pragma once

#include "resource/locator.hpp"
#include "resource/resource.hpp"
#include "util/bytes.hpp"
#include "util/result.hpp"

#include <cstdint>
#include <optional>
#include <variant>

namespace vellum::image {

/// The resolution a file states, in dots per inch.
struct dpi {
    float dpi_x = 96;
    float dpi_y = 96;
    bool operator==(dpi const&) const = default;
};

enum class image_depth { depth_1bit, depth_8bit, depth_16bit };

/// What layout needs of an image.
struct image_info {
    int image_width = 0;
    int image_height = 0;
    /// Nothing when the file states no resolution.
    std::optional<image::dpi> image_dpi;
    bool image_has_alpha = false;
    image::image_depth image_depth = image_depth::depth_8bit;
    bool operator==(image_info const&) const = default;
};

enum class image_color_space { image_color_rgb, image_color_gray, image_color_cmyk };

/// Inverted samples: CMYK JPEG files from Adobe tools store 255 for no ink.
enum class image_polarity { image_polarity_normal, image_polarity_inverted };

/// What the PDF needs of a JPEG that goes in as it is.
struct image_jpeg_desc {
    image_info image_jpeg_info;
    image_color_space image_jpeg_color_space = image_color_space::image_color_rgb;
    image_polarity image_jpeg_polarity = image_polarity::image_polarity_normal;
    std::optional<bytes::bytes> image_jpeg_icc_profile;
    bool operator==(image_jpeg_desc const&) const = default;
};

/// An image file: where it came from, its format, and its bytes when it cannot be read again.
struct image_external {
    resource::locator::locator image_url;
    resource::image_format image_format = resource::image_format::png;
    std::optional<bytes::bytes> image_bytes;
    std::optional<image::image_jpeg_desc> image_jpeg_desc;
    bool operator==(image_external const&) const = default;
};

enum class buffer_kind { image_buffer_1_bit, image_buffer_8_bit, image_buffer_16_bit, image_buffer_jpeg };

/// Samples row after row (rows of 1-bit samples padded to a byte), or JPEG data.
struct image_buffer {
    image::buffer_kind image_buffer_kind = buffer_kind::image_buffer_8_bit;
    bytes::bytes buffer_bytes;
    /// The samples are held compressed, as a zlib stream: what a PDF stream with /FlateDecode holds.
    bool buffer_deflated = false;
    bool operator==(image_buffer const&) const = default;
};

struct image_data_normal {
    image_color_space image_data_color_space = image_color_space::image_color_rgb;
    image_polarity image_data_polarity = image_polarity::image_polarity_normal;
    image_buffer image_data_buffer;
    /// One sample a pixel, of the buffer's depth.
    std::optional<image_buffer> image_data_alpha;
    std::optional<bytes::bytes> image_data_icc_profile;
    bool operator==(image_data_normal const&) const = default;
};

/// A palette of RGB triples, with the index that stands for transparency.
struct image_indexed {
    int image_indexed_colors = 0;
    bytes::bytes image_indexed_palette;
    std::optional<int> image_indexed_mask;
    bool operator==(image_indexed const&) const = default;
};

struct image_data_indexed {
    image::image_indexed indexed;
    /// One byte a pixel: the palette index.
    image_buffer buffer;
    bool operator==(image_data_indexed const&) const = default;
};

using image_data = std::variant<image_data_normal, image_data_indexed>;

/// A decoded image.
struct image {
    vellum::image::image_info image_info;
    vellum::image::image_data image_data;
    bool operator==(image const&) const = default;
};

/// Images larger than this many pixels are refused: their pixels would not fit in memory.
inline constexpr std::int64_t max_image_pixels = std::int64_t{1} << 28;

/// The format of a MIME type; nothing for a type that is not a raster image format.
std::optional<resource::image_format> format_of_mimetype(std::string_view mimetype);

/// The format a file name's extension suggests.
std::optional<resource::image_format> format_of_extension(std::string_view path);

/// Whether the bytes look like an SVG (or other XML) document rather than a raster image.
bool looks_like_svg(bytes::bytes const& data);

/// Reads the header of an image in the given format. With `check_data`, the pixel data is decoded too,
/// one row at a time into a single row buffer, so that a truncated or corrupt file is found before layout
/// counts on it; nothing of the size of the image is allocated.
[[nodiscard]] result<image_info> read_header(bytes::bytes const& data, resource::image_format format, bool check_data);

/// Reads the header trying the presumed format first and then the others; the format that accepts wins.
[[nodiscard]] result<std::pair<resource::image_format, image_info>>
read_any_header(bytes::bytes const& data, std::optional<resource::image_format> presumed, bool check_data);

/// The description of a JPEG file for passing it through: colour space, polarity and ICC profile.
[[nodiscard]] result<image_jpeg_desc> read_jpeg_desc(bytes::bytes const& data);

/// Decodes an image for the PDF. JPEG stays as it is unless `reencode_quality` asks for a new encoding.
[[nodiscard]] result<image>
decode_image(bytes::bytes const& data, resource::image_format format, std::optional<int> reencode_quality);

/// The image with its sample buffers compressed as zlib streams (JPEG data stays as it is), so that it
/// can wait for the PDF at the size of a compressed file and be written without decoding it again.
[[nodiscard]] image deflate_buffers(image img);

/// The image with compressed sample buffers expanded again, for what works on samples.
[[nodiscard]] result<image> inflate_buffers(image img);

/// Whether any sample buffer of the image is held compressed.
bool has_deflated_buffers(image const& img);

/// Images up to this many pixels are decoded once, when they are loaded, and kept compressed until the
/// PDF is written; larger ones are checked row by row at load and decoded when they are written, so that
/// layout never holds the pixels of a large image.
inline constexpr std::int64_t keep_decoded_pixels = std::int64_t{1} << 24;

} // namespace vellum::image
