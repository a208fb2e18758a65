#include "image/convert.hpp"

#include "image/codecs.hpp"

#include <algorithm>
#include <cmath>
#include <span>

namespace vellum::image::convert {

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
        // A palette image becomes plain CMYK samples; its transparent entry becomes a mask.
        auto const palette = cmyk_of_rgb8(x->indexed.image_indexed_palette.view());
        auto const indexes = x->buffer.buffer_bytes.view();
        std::vector<std::uint8_t> samples;
        samples.reserve(indexes.size() * 4);
        std::vector<std::uint8_t> mask;
        for (std::uint8_t i : indexes) {
            std::size_t const at = std::size_t(i) * 4;
            for (std::size_t k = 0; k < 4; ++k) {
                samples.push_back(at + k < palette.size() ? palette[at + k] : 0);
            }
            if (x->indexed.image_indexed_mask) {
                mask.push_back(i == *x->indexed.image_indexed_mask ? 0 : 255);
            }
        }
        image_data_normal n{.image_data_color_space = image_color_space::image_color_cmyk,
                            .image_data_buffer = {buffer_kind::image_buffer_8_bit, bytes::from_vector(std::move(samples))}};
        if (x->indexed.image_indexed_mask) {
            n.image_data_alpha = image_buffer{buffer_kind::image_buffer_8_bit, bytes::from_vector(std::move(mask))};
        }
        auto out = img;
        out.image_data = std::move(n);
        out.image_info.image_has_alpha = x->indexed.image_indexed_mask.has_value();
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

} // namespace vellum::image::convert
