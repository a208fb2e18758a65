#include "image/image.hpp"

#include "image/codecs.hpp"
#include "util/ref.hpp"

#include <algorithm>
#include <array>
#include <cctype>
#include <new>
#include <vector>

#include <zlib.h>

namespace vellum::image {

namespace {

constexpr std::array all_formats{resource::image_format::gif, resource::image_format::jpeg,
                                 resource::image_format::png, resource::image_format::tiff};

// The samples as one zlib stream, at zlib's default level (the level the PDF writer uses for its own
// streams).
bytes::bytes deflate_bytes(bytes::bytes const& samples) {
    // Streamed through a small buffer, so that what is held besides the samples is the compressed
    // result, not zlib's bound on it (which is larger than the samples).
    z_stream z{};
    if (deflateInit(&z, Z_DEFAULT_COMPRESSION) != Z_OK) {
        throw std::bad_alloc();
    }
    auto const in = samples.view();
    z.next_in = const_cast<Bytef*>(in.data());
    z.avail_in = static_cast<uInt>(in.size());
    std::vector<std::uint8_t> out;
    std::array<std::uint8_t, 64 * 1024> chunk{};
    int status = Z_OK;
    while (status == Z_OK) {
        z.next_out = chunk.data();
        z.avail_out = static_cast<uInt>(chunk.size());
        status = deflate(&z, Z_FINISH);
        out.insert(out.end(), chunk.data(), chunk.data() + (chunk.size() - z.avail_out));
    }
    deflateEnd(&z);
    if (status != Z_STREAM_END) {
        throw std::bad_alloc();
    }
    out.shrink_to_fit();
    return bytes::from_vector(std::move(out));
}

result<bytes::bytes> inflate_bytes(bytes::bytes const& data) {
    z_stream z{};
    if (inflateInit(&z) != Z_OK) {
        return fail("could not expand image data");
    }
    auto const in = data.view();
    z.next_in = const_cast<Bytef*>(in.data());
    z.avail_in = static_cast<uInt>(in.size());
    std::vector<std::uint8_t> out(std::max<std::size_t>(in.size() * 4, 4096));
    int status = Z_OK;
    while (status == Z_OK) {
        if (z.total_out == out.size()) {
            out.resize(out.size() * 2);
        }
        z.next_out = out.data() + z.total_out;
        z.avail_out = static_cast<uInt>(out.size() - z.total_out);
        status = inflate(&z, Z_NO_FLUSH);
    }
    out.resize(z.total_out);
    inflateEnd(&z);
    if (status != Z_STREAM_END) {
        return fail("could not expand image data");
    }
    return bytes::from_vector(std::move(out));
}

void deflate_buffer(image_buffer& b) {
    if (!b.buffer_deflated && b.image_buffer_kind != buffer_kind::image_buffer_jpeg) {
        b.buffer_bytes = deflate_bytes(b.buffer_bytes);
        b.buffer_deflated = true;
    }
}

bool inflate_buffer(image_buffer& b) {
    if (!b.buffer_deflated) {
        return true;
    }
    auto plain = inflate_bytes(b.buffer_bytes);
    if (!plain) {
        return false;
    }
    b.buffer_bytes = std::move(*plain);
    b.buffer_deflated = false;
    return true;
}

} // namespace

std::optional<resource::image_format> format_of_mimetype(std::string_view mimetype) {
    if (mimetype == "image/gif") {
        return resource::image_format::gif;
    }
    if (mimetype == "image/jpeg" || mimetype == "image/jpg" || mimetype == "image/pjpeg") {
        return resource::image_format::jpeg;
    }
    if (mimetype == "image/png" || mimetype == "image/x-png") {
        return resource::image_format::png;
    }
    if (mimetype == "image/tiff") {
        return resource::image_format::tiff;
    }
    return std::nullopt;
}

std::optional<resource::image_format> format_of_extension(std::string_view path) {
    auto const slash = path.find_last_of('/');
    auto const dot = path.find_last_of('.');
    if (dot == std::string_view::npos || (slash != std::string_view::npos && dot < slash)) {
        return std::nullopt;
    }
    std::string ext(path.substr(dot + 1));
    std::transform(ext.begin(), ext.end(), ext.begin(), [](unsigned char c) { return std::tolower(c); });
    if (ext == "gif") {
        return resource::image_format::gif;
    }
    if (ext == "jpg" || ext == "jpeg" || ext == "jpe" || ext == "jfif") {
        return resource::image_format::jpeg;
    }
    if (ext == "png") {
        return resource::image_format::png;
    }
    if (ext == "tif" || ext == "tiff") {
        return resource::image_format::tiff;
    }
    return std::nullopt;
}

bool looks_like_svg(bytes::bytes const& data) {
    auto c = data.chars();
    // A byte-order mark and white space may stand before the first tag.
    if (c.starts_with("\xEF\xBB\xBF")) {
        c.remove_prefix(3);
    }
    while (!c.empty() && std::isspace(static_cast<unsigned char>(c.front()))) {
        c.remove_prefix(1);
    }
    return c.starts_with("<");
}

result<image_info> read_header(bytes::bytes const& data, resource::image_format format, bool check_data) {
    switch (format) {
    case resource::image_format::gif:
        return codecs::gif_header(data, check_data);
    case resource::image_format::jpeg:
        return codecs::jpeg_header(data, check_data);
    case resource::image_format::png:
        return codecs::png_header(data, check_data);
    case resource::image_format::tiff:
        return codecs::tiff_header(data);
    }
    return fail("Unknown image format");
}

result<std::pair<resource::image_format, image_info>>
read_any_header(bytes::bytes const& data, std::optional<resource::image_format> presumed, bool check_data) {
    std::vector<resource::image_format> order;
    if (presumed) {
        order.push_back(*presumed);
    }
    for (auto f : all_formats) {
        if (!presumed || f != *presumed) {
            order.push_back(f);
        }
    }
    std::optional<std::string> first_error;
    for (auto f : order) {
        auto r = read_header(data, f, check_data);
        if (r) {
            return std::pair{f, *r};
        }
        // A file of the presumed format that fails says why; others merely don't accept it.
        if (!first_error && (r.error().starts_with("image too large") || (presumed && f == *presumed))) {
            first_error = r.error();
        }
    }
    return fail(first_error.value_or("Unknown image format"));
}

result<image_jpeg_desc> read_jpeg_desc(bytes::bytes const& data) {
    return codecs::jpeg_desc(data);
}

result<image> decode_image(bytes::bytes const& data, resource::image_format format, std::optional<int> reencode_quality) {
    switch (format) {
    case resource::image_format::gif:
        return codecs::gif_decode(data);
    case resource::image_format::png:
        return codecs::png_decode(data);
    case resource::image_format::tiff:
        return codecs::tiff_decode(data);
    case resource::image_format::jpeg: {
        auto desc = codecs::jpeg_desc(data);
        if (!desc) {
            return fail(desc.error());
        }
        auto jpeg = data;
        if (reencode_quality) {
            auto again = codecs::jpeg_reencode(data, *reencode_quality);
            if (!again) {
                return fail(again.error());
            }
            jpeg = *again;
            // libjpeg writes plain CMYK; the inversion of Adobe files is gone.
            desc->image_jpeg_polarity = image_polarity::image_polarity_normal;
        }
        return image{.image_info = desc->image_jpeg_info,
                     .image_data = image_data_normal{.image_data_color_space = desc->image_jpeg_color_space,
                                                     .image_data_polarity = desc->image_jpeg_polarity,
                                                     .image_data_buffer = {buffer_kind::image_buffer_jpeg, jpeg},
                                                     .image_data_icc_profile = desc->image_jpeg_icc_profile}};
    }
    }
    return fail("Unknown image format");
}

image deflate_buffers(image img) {
    std::visit(overloaded{
                   [](image_data_normal& n) {
                       deflate_buffer(n.image_data_buffer);
                       if (n.image_data_alpha) {
                           deflate_buffer(*n.image_data_alpha);
                       }
                   },
                   [](image_data_indexed& x) { deflate_buffer(x.buffer); },
               },
               img.image_data);
    return img;
}

result<image> inflate_buffers(image img) {
    bool const whole = std::visit(overloaded{
                                      [](image_data_normal& n) {
                                          return inflate_buffer(n.image_data_buffer) &&
                                                 (!n.image_data_alpha || inflate_buffer(*n.image_data_alpha));
                                      },
                                      [](image_data_indexed& x) { return inflate_buffer(x.buffer); },
                                  },
                                  img.image_data);
    if (!whole) {
        return fail("could not expand image data");
    }
    return img;
}

bool has_deflated_buffers(image const& img) {
    return std::visit(overloaded{
                          [](image_data_normal const& n) {
                              return n.image_data_buffer.buffer_deflated ||
                                     (n.image_data_alpha && n.image_data_alpha->buffer_deflated);
                          },
                          [](image_data_indexed const& x) { return x.buffer.buffer_deflated; },
                      },
                      img.image_data);
}

} // namespace vellum::image
