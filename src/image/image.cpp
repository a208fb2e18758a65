#include "image/image.hpp"

#include "image/codecs.hpp"

#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <span>

namespace vellum::image {

namespace {

constexpr std::array all_formats{resource::image_format::gif, resource::image_format::jpeg,
                                 resource::image_format::png, resource::image_format::tiff};

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

std::array<float, 4> rgb_to_cmyk(float r, float g, float b) {
    float const k = 1 - std::max({r, g, b});
    if (k >= 1) {
        return {0, 0, 0, 1};
    }
    return {(1 - r - k) / (1 - k), (1 - g - k) / (1 - k), (1 - b - k) / (1 - k), k};
}

namespace {

// RGB triples of 8 bits to CMYK quadruples of 8 bits.
std::vector<std::uint8_t> cmyk_of_rgb8(std::span<std::uint8_t const> rgb) {
    std::vector<std::uint8_t> out;
    out.reserve(rgb.size() / 3 * 4);
    for (std::size_t i = 0; i + 2 < rgb.size(); i += 3) {
        auto const c = rgb_to_cmyk(rgb[i] / 255.0f, rgb[i + 1] / 255.0f, rgb[i + 2] / 255.0f);
        for (float v : c) {
            out.push_back(static_cast<std::uint8_t>(std::lround(std::clamp(v, 0.0f, 1.0f) * 255)));
        }
    }
    return out;
}

} // namespace

result<image> device_cmyk(image const& img) {
    if (auto const* x = std::get_if<image_data_indexed>(&img.image_data)) {
        auto out = img;
        auto& ix = std::get<image_data_indexed>(out.image_data).indexed;
        ix.image_indexed_palette = bytes::from_vector(cmyk_of_rgb8(x->indexed.image_indexed_palette.view()));
        ix.image_indexed_space = image_color_space::image_color_cmyk;
        return out;
    }
    auto const& n = std::get<image_data_normal>(img.image_data);
    if (n.image_data_color_space != image_color_space::image_color_rgb || n.image_data_icc_profile) {
        return img;
    }
    std::vector<std::uint8_t> rgb;
    auto const& buffer = n.image_data_buffer;
    switch (buffer.image_buffer_kind) {
    case buffer_kind::image_buffer_jpeg: {
        int components = 0;
        auto pixels = codecs::jpeg_pixels(buffer.buffer_bytes, components);
        if (!pixels) {
            return fail(pixels.error());
        }
        if (components != 3) {
            return img;
        }
        rgb = std::move(*pixels);
        break;
    }
    case buffer_kind::image_buffer_16_bit: {
        // The high byte of each big-endian sample.
        auto const v = buffer.buffer_bytes.view();
        rgb.reserve(v.size() / 2);
        for (std::size_t i = 0; i + 1 < v.size(); i += 2) {
            rgb.push_back(v[i]);
        }
        break;
    }
    case buffer_kind::image_buffer_8_bit: {
        auto const v = buffer.buffer_bytes.view();
        rgb.assign(v.begin(), v.end());
        break;
    }
    case buffer_kind::image_buffer_1_bit:
        return img;
    }
    auto out = img;
    auto& d = std::get<image_data_normal>(out.image_data);
    d.image_data_color_space = image_color_space::image_color_cmyk;
    d.image_data_polarity = image_polarity::image_polarity_normal;
    d.image_data_buffer = {buffer_kind::image_buffer_8_bit, bytes::from_vector(cmyk_of_rgb8(rgb))};
    out.image_info.image_depth = image_depth::depth_8bit;
    return out;
}

} // namespace vellum::image
