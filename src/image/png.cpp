// PNG through libpng. libpng reports errors by longjmp to the frame that called setjmp, so the work
// is done in functions that hold no C++ objects of their own; buffers live in the caller's frame.
#include "image/codecs.hpp"

#include <csetjmp>
#include <cstring>
#include <string>
#include <vector>

#include <png.h>

namespace vellum::image::codecs {

namespace {

void read_memory(png_structp png, png_bytep out, png_size_t length) {
    auto* src = static_cast<memory_source*>(png_get_io_ptr(png));
    if (src->left() < length) {
        png_error(png, "unexpected end of file");
    }
    src->take(out, length);
}

void on_error(png_structp png, png_const_charp) {
    png_longjmp(png, 1);
}

void on_warning(png_structp, png_const_charp) {}

/// A read struct with its info struct, freed with the holder.
struct png_reader {
    png_structp png = nullptr;
    png_infop info = nullptr;
    memory_source source;

    explicit png_reader(bytes::bytes const& data) {
        source = {data.view().data(), data.size(), 0};
        png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, on_error, on_warning);
        if (png) {
            info = png_create_info_struct(png);
            png_set_read_fn(png, &source, read_memory);
            // Images of any size are read; the image table refuses those too large to decode.
            png_set_user_limits(png, 0x7fffffff, 0x7fffffff);
        }
    }
    png_reader(png_reader const&) = delete;
    png_reader& operator=(png_reader const&) = delete;
    ~png_reader() { png_destroy_read_struct(&png, info ? &info : nullptr, nullptr); }
};

struct header_fields {
    png_uint_32 width = 0;
    png_uint_32 height = 0;
    int bit_depth = 0;
    int color_type = 0;
    int interlace = 0;
    bool has_trns = false;
    png_uint_32 res_x = 0;
    png_uint_32 res_y = 0;
    int res_unit = -1;
};

// The image header's fields; called where a libpng error can jump back to.
void read_header(png_reader* r, header_fields* h) {
    png_read_info(r->png, r->info);
    png_get_IHDR(r->png, r->info, &h->width, &h->height, &h->bit_depth, &h->color_type, &h->interlace, nullptr,
                 nullptr);
    h->has_trns = png_get_valid(r->png, r->info, PNG_INFO_tRNS) != 0;
}

// The header; with `row` given, every row of every pass is decoded into that one buffer.
bool read_info(png_reader* r, header_fields* h, std::vector<std::uint8_t>* row) {
    if (setjmp(png_jmpbuf(r->png))) {
        return false;
    }
    read_header(r, h);
    png_get_pHYs(r->png, r->info, &h->res_x, &h->res_y, &h->res_unit);
    if (!row) {
        return true;
    }
    int const passes = png_set_interlace_handling(r->png);
    png_read_update_info(r->png, r->info);
    row->resize(png_get_rowbytes(r->png, r->info));
    for (int pass = 0; pass < passes; ++pass) {
        for (png_uint_32 y = 0; y < h->height; ++y) {
            png_read_row(r->png, row->data(), nullptr);
        }
    }
    png_read_end(r->png, nullptr);
    return true;
}

struct decoded_fields {
    int channels = 0;
    int bit_depth = 0;
    bool one_bit_gray = false;
    png_bytep icc = nullptr;
    png_uint_32 icc_length = 0;
};

bool read_pixels(png_reader* r, header_fields* h, decoded_fields* d, std::vector<std::uint8_t>* pixels,
                 std::vector<png_bytep>* rows) {
    if (setjmp(png_jmpbuf(r->png))) {
        return false;
    }
    read_header(r, h);
    if (png_get_valid(r->png, r->info, PNG_INFO_iCCP)) {
        png_charp name = nullptr;
        int compression = 0;
        png_get_iCCP(r->png, r->info, &name, &compression, &d->icc, &d->icc_length);
    }
    bool const has_alpha = (h->color_type & PNG_COLOR_MASK_ALPHA) != 0 || h->has_trns;
    if (h->color_type == PNG_COLOR_TYPE_PALETTE) {
        png_set_palette_to_rgb(r->png);
    }
    if (h->has_trns) {
        png_set_tRNS_to_alpha(r->png);
    }
    d->one_bit_gray = h->color_type == PNG_COLOR_TYPE_GRAY && h->bit_depth == 1 && !h->has_trns;
    if (h->color_type == PNG_COLOR_TYPE_GRAY && h->bit_depth < 8 && !d->one_bit_gray) {
        png_set_expand_gray_1_2_4_to_8(r->png);
    }
    // A soft mask is written at the depth of its image, and 16-bit soft masks are not worth their
    // size: images with alpha go to 8 bits.
    if (h->bit_depth == 16 && has_alpha) {
        png_set_strip_16(r->png);
    }
    png_set_interlace_handling(r->png);
    png_read_update_info(r->png, r->info);
    d->channels = png_get_channels(r->png, r->info);
    d->bit_depth = png_get_bit_depth(r->png, r->info);
    std::size_t const row_bytes = png_get_rowbytes(r->png, r->info);
    pixels->resize(row_bytes * h->height);
    rows->resize(h->height);
    for (png_uint_32 y = 0; y < h->height; ++y) {
        (*rows)[y] = pixels->data() + row_bytes * y;
    }
    png_read_image(r->png, rows->data());
    png_read_end(r->png, nullptr);
    return true;
}

} // namespace

result<image_info> png_header(bytes::bytes const& data, bool check_data) {
    if (data.size() < 8 || png_sig_cmp(data.view().data(), 0, 8) != 0) {
        return fail("Could not load PNG file");
    }
    png_reader r(data);
    if (!r.png || !r.info) {
        return fail("Could not load PNG file");
    }
    header_fields h;
    std::vector<std::uint8_t> row;
    if (!read_info(&r, &h, nullptr)) {
        return fail("Could not load PNG file");
    }
    if (static_cast<std::int64_t>(h.width) * h.height > max_image_pixels) {
        return fail("image too large: " + std::to_string(h.width) + "x" + std::to_string(h.height) + " pixels");
    }
    if (check_data) {
        png_reader again(data);
        if (!again.png || !again.info || !read_info(&again, &h, &row)) {
            return fail("Could not load PNG file");
        }
    }
    image_info info{.image_width = static_cast<int>(h.width),
                    .image_height = static_cast<int>(h.height),
                    .image_has_alpha = (h.color_type & PNG_COLOR_MASK_ALPHA) != 0 || h.has_trns,
                    .image_depth = h.bit_depth == 16  ? image_depth::depth_16bit
                                   : h.bit_depth == 1 ? image_depth::depth_1bit
                                                      : image_depth::depth_8bit};
    if (h.res_unit == PNG_RESOLUTION_METER && h.res_x > 0 && h.res_y > 0) {
        // Dots per metre to dots per inch.
        info.image_dpi = dpi{static_cast<float>(h.res_x * 0.0254), static_cast<float>(h.res_y * 0.0254)};
    }
    return info;
}

result<image> png_decode(bytes::bytes const& data) {
    png_reader r(data);
    if (!r.png || !r.info) {
        return fail("Could not load PNG file");
    }
    header_fields h;
    decoded_fields d;
    std::vector<std::uint8_t> pixels;
    std::vector<png_bytep> rows;
    if (!read_pixels(&r, &h, &d, &pixels, &rows)) {
        return fail("Could not load PNG file");
    }
    image_info info{.image_width = static_cast<int>(h.width), .image_height = static_cast<int>(h.height)};
    bool const alpha = d.channels == 2 || d.channels == 4;
    int const colors = alpha ? d.channels - 1 : d.channels;
    auto const kind = d.bit_depth == 16  ? buffer_kind::image_buffer_16_bit
                      : d.bit_depth == 1 ? buffer_kind::image_buffer_1_bit
                                         : buffer_kind::image_buffer_8_bit;
    info.image_depth = d.bit_depth == 16  ? image_depth::depth_16bit
                       : d.bit_depth == 1 ? image_depth::depth_1bit
                                          : image_depth::depth_8bit;
    info.image_has_alpha = alpha;
    image_data_normal out{.image_data_color_space =
                              colors == 1 ? image_color_space::image_color_gray : image_color_space::image_color_rgb};
    if (alpha) {
        std::vector<std::uint8_t> color;
        std::vector<std::uint8_t> mask;
        split_alpha(pixels, d.channels, d.bit_depth / 8, color, mask);
        out.image_data_buffer = {kind, bytes::from_vector(std::move(color))};
        out.image_data_alpha = image_buffer{kind, bytes::from_vector(std::move(mask))};
    } else {
        out.image_data_buffer = {kind, bytes::from_vector(std::move(pixels))};
    }
    if (d.icc && d.icc_length > 0) {
        out.image_data_icc_profile = bytes::from_span({d.icc, d.icc_length});
    }
    return image{.image_info = info, .image_data = std::move(out)};
}

void split_alpha(std::vector<std::uint8_t> const& samples,
                 int channels,
                 int bytes_per_sample,
                 std::vector<std::uint8_t>& color,
                 std::vector<std::uint8_t>& alpha) {
    std::size_t const pixel = static_cast<std::size_t>(channels * bytes_per_sample);
    std::size_t const color_bytes = pixel - bytes_per_sample;
    std::size_t const count = samples.size() / pixel;
    color.resize(count * color_bytes);
    alpha.resize(count * bytes_per_sample);
    for (std::size_t i = 0; i < count; ++i) {
        std::memcpy(color.data() + i * color_bytes, samples.data() + i * pixel, color_bytes);
        std::memcpy(alpha.data() + i * bytes_per_sample, samples.data() + i * pixel + color_bytes, bytes_per_sample);
    }
}

} // namespace vellum::image::codecs
