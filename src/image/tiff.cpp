// TIFF through libtiff, opened on memory with its error and warning handlers silenced: the failure
// comes back as a value with the program's own message.
#include "image/codecs.hpp"

#include <cstring>
#include <mutex>
#include <string>
#include <vector>

#include <tiffio.h>

namespace vellum::image::codecs {

namespace {

tsize_t read_proc(thandle_t h, tdata_t out, tsize_t length) {
    auto* src = static_cast<memory_source*>(h);
    return static_cast<tsize_t>(src->take(out, static_cast<std::size_t>(std::max<tsize_t>(length, 0))));
}

tsize_t write_proc(thandle_t, tdata_t, tsize_t) {
    return 0;
}

toff_t seek_proc(thandle_t h, toff_t off, int whence) {
    auto* src = static_cast<memory_source*>(h);
    toff_t const base = whence == SEEK_CUR ? src->at : whence == SEEK_END ? src->size : 0;
    src->at = static_cast<std::size_t>(base + off);
    return src->at;
}

int close_proc(thandle_t) {
    return 0;
}

toff_t size_proc(thandle_t h) {
    return static_cast<memory_source*>(h)->size;
}

int map_proc(thandle_t, tdata_t*, toff_t*) {
    return 0;
}

void unmap_proc(thandle_t, tdata_t, toff_t) {}

/// An open TIFF, closed with its holder.
struct tiff_reader {
    memory_source source;
    TIFF* tif = nullptr;
    explicit tiff_reader(bytes::bytes const& data) {
        static std::once_flag silenced;
        std::call_once(silenced, [] {
            TIFFSetErrorHandler(nullptr);
            TIFFSetWarningHandler(nullptr);
        });
        source = {data.view().data(), static_cast<toff_t>(data.size()), 0};
        auto const c = data.chars();
        if (c.starts_with("II*") || c.starts_with("MM\0*") || c.starts_with("II+") || c.starts_with("MM\0+")) {
            tif = TIFFClientOpen("image", "rm", &source, read_proc, write_proc, seek_proc, close_proc, size_proc,
                                 map_proc, unmap_proc);
        }
    }
    tiff_reader(tiff_reader const&) = delete;
    tiff_reader& operator=(tiff_reader const&) = delete;
    ~tiff_reader() {
        if (tif) {
            TIFFClose(tif);
        }
    }
};

struct fields {
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::uint16_t bits = 1;
    std::uint16_t samples = 1;
    std::uint16_t photometric = PHOTOMETRIC_MINISBLACK;
    std::uint16_t extra_count = 0;
};

fields read_fields(TIFF* tif) {
    fields f;
    TIFFGetField(tif, TIFFTAG_IMAGEWIDTH, &f.width);
    TIFFGetField(tif, TIFFTAG_IMAGELENGTH, &f.height);
    TIFFGetFieldDefaulted(tif, TIFFTAG_BITSPERSAMPLE, &f.bits);
    TIFFGetFieldDefaulted(tif, TIFFTAG_SAMPLESPERPIXEL, &f.samples);
    TIFFGetField(tif, TIFFTAG_PHOTOMETRIC, &f.photometric);
    std::uint16_t* extra = nullptr;
    TIFFGetFieldDefaulted(tif, TIFFTAG_EXTRASAMPLES, &f.extra_count, &extra);
    return f;
}

bool is_gray(fields const& f) {
    return (f.photometric == PHOTOMETRIC_MINISBLACK || f.photometric == PHOTOMETRIC_MINISWHITE) &&
           f.samples - f.extra_count == 1;
}

} // namespace

result<image_info> tiff_header(bytes::bytes const& data) {
    tiff_reader r(data);
    if (!r.tif) {
        return fail("Could not load TIFF file");
    }
    auto const f = read_fields(r.tif);
    if (f.width == 0 || f.height == 0) {
        return fail("Could not load TIFF file");
    }
    if (static_cast<std::int64_t>(f.width) * f.height > max_image_pixels) {
        return fail("image too large: " + std::to_string(f.width) + "x" + std::to_string(f.height) + " pixels");
    }
    image_info info{.image_width = static_cast<int>(f.width),
                    .image_height = static_cast<int>(f.height),
                    .image_has_alpha = f.extra_count > 0,
                    .image_depth = f.bits == 16 ? image_depth::depth_16bit
                                   : f.bits == 1 ? image_depth::depth_1bit
                                                 : image_depth::depth_8bit};
    float rx = 0;
    float ry = 0;
    std::uint16_t unit = RESUNIT_INCH;
    if (TIFFGetField(r.tif, TIFFTAG_XRESOLUTION, &rx) && TIFFGetField(r.tif, TIFFTAG_YRESOLUTION, &ry) && rx > 0 &&
        ry > 0) {
        TIFFGetFieldDefaulted(r.tif, TIFFTAG_RESOLUTIONUNIT, &unit);
        if (unit == RESUNIT_INCH) {
            info.image_dpi = dpi{rx, ry};
        } else if (unit == RESUNIT_CENTIMETER) {
            info.image_dpi = dpi{rx * 2.54f, ry * 2.54f};
        }
    }
    return info;
}

namespace {

// The ICC profile a TIFF file carries in its own field.
std::optional<bytes::bytes> icc_of(TIFF* tif) {
    std::uint32_t icc_length = 0;
    void* icc = nullptr;
    if (TIFFGetField(tif, TIFFTAG_ICCPROFILE, &icc_length, &icc) && icc && icc_length > 0) {
        return bytes::from_span({static_cast<std::uint8_t const*>(icc), icc_length});
    }
    return std::nullopt;
}

// Grey and RGB of 8 or 16 bits, stored pixel by pixel, are read a scanline at a time and keep their
// depth; 16-bit samples go big-endian, as PDF wants them. With alpha they are cut to 8 bits, as PNG
// images with alpha are, so that only images without a mask ask for PDF 1.5.
std::optional<result<image>> plain_samples(TIFF* tif, fields const& f) {
    std::uint16_t planar = PLANARCONFIG_CONTIG;
    TIFFGetFieldDefaulted(tif, TIFFTAG_PLANARCONFIG, &planar);
    bool const gray = is_gray(f);
    bool const rgb = f.photometric == PHOTOMETRIC_RGB && f.samples - f.extra_count == 3;
    if ((!gray && !rgb) || (f.bits != 8 && f.bits != 16) || f.extra_count > 1 || planar != PLANARCONFIG_CONTIG) {
        return std::nullopt;
    }
    int const channels = f.samples;
    std::size_t const sample_bytes = f.bits / 8;
    std::size_t const row_bytes = std::size_t(f.width) * std::size_t(channels) * sample_bytes;
    if (std::size_t(TIFFScanlineSize(tif)) != row_bytes) {
        return std::nullopt;
    }
    std::vector<std::uint8_t> samples(row_bytes * f.height);
    for (std::uint32_t y = 0; y < f.height; ++y) {
        if (TIFFReadScanline(tif, samples.data() + row_bytes * y, y, 0) < 0) {
            return result<image>{fail("Could not load TIFF file")};
        }
    }
    bool const alpha = f.extra_count == 1;
    bool const keep_16 = f.bits == 16 && !alpha;
    if (f.bits == 16) {
        // libtiff hands samples over in the machine's order.
        std::vector<std::uint8_t> out;
        out.reserve(keep_16 ? samples.size() : samples.size() / 2);
        for (std::size_t i = 0; i + 1 < samples.size(); i += 2) {
            std::uint16_t v = 0;
            std::memcpy(&v, samples.data() + i, 2);
            if (keep_16) {
                out.push_back(static_cast<std::uint8_t>(v >> 8));
            }
            out.push_back(static_cast<std::uint8_t>(keep_16 ? v & 0xFF : v >> 8));
        }
        samples = std::move(out);
    }
    std::size_t const depth_bytes = keep_16 ? 2 : 1;
    std::vector<std::uint8_t> color;
    std::vector<std::uint8_t> mask;
    if (alpha) {
        split_alpha(samples, channels, int(depth_bytes), color, mask);
    } else {
        color = std::move(samples);
    }
    if (f.photometric == PHOTOMETRIC_MINISWHITE) {
        // Zero is white here: the samples are turned round to the usual sense.
        for (auto& b : color) {
            b = static_cast<std::uint8_t>(255 - b);
        }
    }
    buffer_kind const kind = keep_16 ? buffer_kind::image_buffer_16_bit : buffer_kind::image_buffer_8_bit;
    image_data_normal out{
        .image_data_color_space = gray ? image_color_space::image_color_gray : image_color_space::image_color_rgb,
        .image_data_buffer = {kind, bytes::from_vector(std::move(color))}};
    if (alpha) {
        out.image_data_alpha = image_buffer{buffer_kind::image_buffer_8_bit, bytes::from_vector(std::move(mask))};
    }
    out.image_data_icc_profile = icc_of(tif);
    return result<image>{image{.image_info = {.image_width = static_cast<int>(f.width),
                                              .image_height = static_cast<int>(f.height),
                                              .image_has_alpha = alpha,
                                              .image_depth = keep_16 ? image_depth::depth_16bit : image_depth::depth_8bit},
                               .image_data = std::move(out)}};
}

} // namespace

result<image> tiff_decode(bytes::bytes const& data) {
    tiff_reader r(data);
    if (!r.tif) {
        return fail("Could not load TIFF file");
    }
    auto const f = read_fields(r.tif);
    if (f.width == 0 || f.height == 0 || static_cast<std::int64_t>(f.width) * f.height > max_image_pixels) {
        return fail("Could not load TIFF file");
    }
    if (auto plain = plain_samples(r.tif, f)) {
        return std::move(*plain);
    }
    // Every photometric kind is decoded to 8-bit RGBA by libtiff, which knows palettes, YCbCr, CMYK
    // and the bit depths; grey images are then taken back to one channel.
    std::size_t const count = static_cast<std::size_t>(f.width) * f.height;
    std::vector<std::uint32_t> raster(count);
    if (!TIFFReadRGBAImageOriented(r.tif, f.width, f.height, raster.data(), ORIENTATION_TOPLEFT, 0)) {
        return fail("Could not load TIFF file");
    }
    bool const gray = is_gray(f);
    bool const alpha = f.extra_count > 0;
    std::vector<std::uint8_t> color(count * (gray ? 1 : 3));
    std::vector<std::uint8_t> mask(alpha ? count : 0);
    for (std::size_t i = 0; i < count; ++i) {
        auto const p = raster[i];
        if (gray) {
            color[i] = static_cast<std::uint8_t>(TIFFGetR(p));
        } else {
            color[3 * i] = static_cast<std::uint8_t>(TIFFGetR(p));
            color[3 * i + 1] = static_cast<std::uint8_t>(TIFFGetG(p));
            color[3 * i + 2] = static_cast<std::uint8_t>(TIFFGetB(p));
        }
        if (alpha) {
            mask[i] = static_cast<std::uint8_t>(TIFFGetA(p));
        }
    }
    image_data_normal out{
        .image_data_color_space = gray ? image_color_space::image_color_gray : image_color_space::image_color_rgb,
        .image_data_buffer = {buffer_kind::image_buffer_8_bit, bytes::from_vector(std::move(color))}};
    if (alpha) {
        out.image_data_alpha = image_buffer{buffer_kind::image_buffer_8_bit, bytes::from_vector(std::move(mask))};
    }
    out.image_data_icc_profile = icc_of(r.tif);
    return image{.image_info = {.image_width = static_cast<int>(f.width),
                                .image_height = static_cast<int>(f.height),
                                .image_has_alpha = alpha},
                 .image_data = std::move(out)};
}

} // namespace vellum::image::codecs
