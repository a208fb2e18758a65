// JPEG through libjpeg: the header for layout, the description for passing the data through as it
// is, and a decode and new encoding for the jpeg-quality option. Errors longjmp out of the library to the
// frame that set the jump, which holds no C++ objects of its own.
#include "image/codecs.hpp"

#include <array>
#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include <jpeglib.h>

namespace vellum::image::codecs {

namespace {

struct error_manager {
    jpeg_error_mgr pub{};
    std::jmp_buf jump{};
    /// Corrupt-data warnings (a truncated file, a bad Huffman code) seen while decoding.
    int warnings = 0;
};

void on_error_exit(j_common_ptr c) {
    auto* e = reinterpret_cast<error_manager*>(c->err);
    std::longjmp(e->jump, 1);
}

void on_message(j_common_ptr c, int level) {
    if (level < 0) {
        ++reinterpret_cast<error_manager*>(c->err)->warnings;
    }
}

struct header_fields {
    int width = 0;
    int height = 0;
    int components = 0;
    int density_unit = 0;
    int density_x = 0;
    int density_y = 0;
    bool adobe = false;
    J_COLOR_SPACE color = JCS_UNKNOWN;
    /// ICC_PROFILE segments by sequence number (from 1), with the count each announces.
    std::map<int, std::vector<std::uint8_t>>* icc_segments = nullptr;
    int icc_count = 0;
    bool icc_duplicate = false;
};

constexpr int max_dimension = 32768;

// Reads the header; with `row`, also decodes every scanline into that one buffer; with `out`, keeps
// every scanline there.
bool read_jpeg(jpeg_decompress_struct* d,
               error_manager* err,
               bytes::bytes const* data,
               header_fields* h,
               std::vector<std::uint8_t>* row,
               std::vector<std::uint8_t>* out) {
    if (setjmp(err->jump)) {
        return false;
    }
    jpeg_create_decompress(d);
    jpeg_mem_src(d, data->view().data(), static_cast<unsigned long>(data->size()));
    if (h->icc_segments) {
        jpeg_save_markers(d, JPEG_APP0 + 2, 0xFFFF);
    }
    if (jpeg_read_header(d, TRUE) != JPEG_HEADER_OK) {
        return false;
    }
    jpeg_calc_output_dimensions(d);
    h->width = static_cast<int>(d->image_width);
    h->height = static_cast<int>(d->image_height);
    h->components = d->num_components;
    h->density_unit = d->density_unit;
    h->density_x = d->X_density;
    h->density_y = d->Y_density;
    h->adobe = d->saw_Adobe_marker;
    h->color = d->jpeg_color_space;
    if (h->icc_segments) {
        for (auto* m = d->marker_list; m; m = m->next) {
            // "ICC_PROFILE\0", sequence number, count, then the segment's part of the profile.
            if (m->marker != JPEG_APP0 + 2 || m->data_length <= 14 ||
                std::string_view(reinterpret_cast<char const*>(m->data), 12) != std::string_view("ICC_PROFILE\0", 12)) {
                continue;
            }
            int const seq = m->data[12];
            h->icc_count = m->data[13];
            if (h->icc_segments->contains(seq)) {
                h->icc_duplicate = true;
            }
            (*h->icc_segments)[seq].assign(m->data + 14, m->data + m->data_length);
        }
    }
    if (!row && !out) {
        return true;
    }
    if (h->width <= 0 || h->height <= 0 || h->width >= max_dimension || h->height >= max_dimension) {
        return false;
    }
    jpeg_start_decompress(d);
    std::size_t const stride = static_cast<std::size_t>(d->output_width) * d->output_components;
    if (row) {
        row->resize(stride);
    }
    if (out) {
        out->resize(stride * d->output_height);
    }
    while (d->output_scanline < d->output_height) {
        JSAMPROW target = out ? out->data() + stride * d->output_scanline : row->data();
        jpeg_read_scanlines(d, &target, 1);
    }
    jpeg_finish_decompress(d);
    return true;
}

/// A decompress struct destroyed with its holder.
struct decompressor {
    jpeg_decompress_struct d{};
    error_manager err;
    decompressor() {
        d.err = jpeg_std_error(&err.pub);
        err.pub.error_exit = on_error_exit;
        err.pub.emit_message = on_message;
    }
    decompressor(decompressor const&) = delete;
    decompressor& operator=(decompressor const&) = delete;
    ~decompressor() { jpeg_destroy_decompress(&d); }
};

bool is_jpeg(bytes::bytes const& data) {
    auto const v = data.view();
    return v.size() >= 3 && v[0] == 0xFF && v[1] == 0xD8 && v[2] == 0xFF;
}

std::optional<dpi> density(header_fields const& h) {
    if (h.density_x <= 0 || h.density_y <= 0) {
        return std::nullopt;
    }
    if (h.density_unit == 1) {
        return dpi{static_cast<float>(h.density_x), static_cast<float>(h.density_y)};
    }
    if (h.density_unit == 2) {
        return dpi{h.density_x * 2.54f, h.density_y * 2.54f};
    }
    return std::nullopt;
}

bool compress(jpeg_compress_struct* c,
              error_manager* err,
              unsigned char** out,
              unsigned long* size,
              std::vector<std::uint8_t> const* pixels,
              int width,
              int height,
              int components,
              J_COLOR_SPACE space,
              int quality) {
    if (setjmp(err->jump)) {
        return false;
    }
    jpeg_create_compress(c);
    jpeg_mem_dest(c, out, size);
    c->image_width = static_cast<JDIMENSION>(width);
    c->image_height = static_cast<JDIMENSION>(height);
    c->input_components = components;
    c->in_color_space = space;
    jpeg_set_defaults(c);
    jpeg_set_quality(c, quality, TRUE);
    jpeg_start_compress(c, TRUE);
    std::size_t const stride = static_cast<std::size_t>(width) * components;
    while (c->next_scanline < c->image_height) {
        auto* row = const_cast<JSAMPROW>(pixels->data() + stride * c->next_scanline);
        jpeg_write_scanlines(c, &row, 1);
    }
    jpeg_finish_compress(c);
    return true;
}

} // namespace

result<image_info> jpeg_header(bytes::bytes const& data, bool check_data) {
    if (!is_jpeg(data)) {
        return fail("Could not load JPEG file");
    }
    header_fields h;
    {
        decompressor dc;
        if (!read_jpeg(&dc.d, &dc.err, &data, &h, nullptr, nullptr)) {
            return fail("Could not load JPEG file");
        }
    }
    if (h.width <= 0 || h.height <= 0 || h.width >= max_dimension || h.height >= max_dimension) {
        return fail("Could not load JPEG file");
    }
    if (static_cast<std::int64_t>(h.width) * h.height > max_image_pixels) {
        return fail("image too large: " + std::to_string(h.width) + "x" + std::to_string(h.height) + " pixels");
    }
    if (h.components != 1 && h.components != 3 && h.components != 4) {
        return fail("Could not load JPEG file");
    }
    if (check_data) {
        decompressor dc;
        std::vector<std::uint8_t> row;
        header_fields again;
        if (!read_jpeg(&dc.d, &dc.err, &data, &again, &row, nullptr) || dc.err.warnings > 0) {
            return fail("Could not load JPEG file");
        }
    }
    return image_info{.image_width = h.width, .image_height = h.height, .image_dpi = density(h)};
}

result<image_jpeg_desc> jpeg_desc(bytes::bytes const& data) {
    std::map<int, std::vector<std::uint8_t>> segments;
    header_fields h{.icc_segments = &segments};
    {
        decompressor dc;
        if (!is_jpeg(data) || !read_jpeg(&dc.d, &dc.err, &data, &h, nullptr, nullptr)) {
            return fail("Could not load JPEG file");
        }
    }
    image_jpeg_desc desc{
        .image_jpeg_info = {.image_width = h.width, .image_height = h.height, .image_dpi = density(h)},
        .image_jpeg_color_space = h.components == 1   ? image_color_space::image_color_gray
                                  : h.components == 4 ? image_color_space::image_color_cmyk
                                                      : image_color_space::image_color_rgb,
        // Adobe's tools write CMYK with 255 for no ink.
        .image_jpeg_polarity = h.components == 4 && h.adobe ? image_polarity::image_polarity_inverted
                                                            : image_polarity::image_polarity_normal};
    // A profile counts only when every segment from 1 to the count is there exactly once.
    bool complete = !segments.empty() && !h.icc_duplicate && static_cast<int>(segments.size()) == h.icc_count;
    for (int i = 1; complete && i <= h.icc_count; ++i) {
        complete = segments.contains(i);
    }
    if (complete) {
        std::vector<std::uint8_t> profile;
        for (auto const& [seq, part] : segments) {
            profile.insert(profile.end(), part.begin(), part.end());
        }
        desc.image_jpeg_icc_profile = bytes::from_vector(std::move(profile));
    }
    return desc;
}

result<std::vector<std::uint8_t>> jpeg_pixels(bytes::bytes const& data, int& components) {
    header_fields h;
    std::vector<std::uint8_t> pixels;
    decompressor dc;
    if (!is_jpeg(data) || !read_jpeg(&dc.d, &dc.err, &data, &h, nullptr, &pixels)) {
        return fail("Could not load JPEG file");
    }
    components = dc.d.output_components;
    return pixels;
}

result<bytes::bytes> jpeg_reencode(bytes::bytes const& data, int quality) {
    header_fields h;
    std::vector<std::uint8_t> pixels;
    J_COLOR_SPACE space = JCS_RGB;
    int components = 3;
    {
        decompressor dc;
        if (!is_jpeg(data) || !read_jpeg(&dc.d, &dc.err, &data, &h, nullptr, &pixels)) {
            return fail("Could not load JPEG file");
        }
        components = dc.d.output_components;
        space = dc.d.out_color_space;
    }
    jpeg_compress_struct c{};
    error_manager err;
    c.err = jpeg_std_error(&err.pub);
    err.pub.error_exit = on_error_exit;
    unsigned char* out = nullptr;
    unsigned long size = 0;
    bool const ok = compress(&c, &err, &out, &size, &pixels, h.width, h.height, components, space, quality);
    jpeg_destroy_compress(&c);
    std::vector<std::uint8_t> result_bytes;
    if (ok && out) {
        result_bytes.assign(out, out + size);
    }
    std::free(out);
    if (!ok) {
        return fail("Could not encode JPEG file");
    }
    return bytes::from_vector(std::move(result_bytes));
}

} // namespace vellum::image::codecs
