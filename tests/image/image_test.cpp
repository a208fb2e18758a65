// The header readers and decoders on the test image set (made by tests/tools/gen_test_images.py): a
// 16x16 grid of red, green, blue and white quadrants in each format and pixel kind, and broken files.
#include "image/convert.hpp"
#include "image/icc.hpp"
#include "image/image.hpp"

#include <fstream>
#include <span>
#include <iterator>
#include <string>

#include <gtest/gtest.h>

namespace vellum::image {
namespace {

bytes::bytes file(std::string const& name) {
    std::ifstream in(std::string(VELLUM_SOURCE_DIR) + "/tests/image/data/" + name, std::ios::binary);
    std::vector<std::uint8_t> data((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    return bytes::from_vector(std::move(data));
}

using resource::image_format;

TEST(image, headers_of_each_kind) {
    struct row {
        char const* name;
        image_format format;
        bool alpha;
        image_depth depth;
    };
    row const rows[] = {
        {"rgb.png", image_format::png, false, image_depth::depth_8bit},
        {"interlaced.png", image_format::png, false, image_depth::depth_8bit},
        {"gray.png", image_format::png, false, image_depth::depth_8bit},
        {"bw.png", image_format::png, false, image_depth::depth_1bit},
        {"rgba.png", image_format::png, true, image_depth::depth_8bit},
        {"palette.png", image_format::png, true, image_depth::depth_8bit},
        {"rgb16.png", image_format::png, false, image_depth::depth_16bit},
        {"rgba16.png", image_format::png, true, image_depth::depth_16bit},
        {"rgb.jpg", image_format::jpeg, false, image_depth::depth_8bit},
        {"progressive.jpg", image_format::jpeg, false, image_depth::depth_8bit},
        {"cmyk.jpg", image_format::jpeg, false, image_depth::depth_8bit},
        {"grid.gif", image_format::gif, false, image_depth::depth_8bit},
        {"grid.tif", image_format::tiff, false, image_depth::depth_8bit},
    };
    for (auto const& r : rows) {
        SCOPED_TRACE(r.name);
        auto const h = read_any_header(file(r.name), format_of_extension(r.name), true);
        ASSERT_TRUE(h) << h.error();
        EXPECT_EQ(h->first, r.format);
        EXPECT_EQ(h->second.image_width, 16);
        EXPECT_EQ(h->second.image_height, 16);
        EXPECT_EQ(h->second.image_has_alpha, r.alpha);
        EXPECT_EQ(h->second.image_depth, r.depth);
    }
}

TEST(image, header_check_finds_the_real_format) {
    // A JPEG named .png is taken as a JPEG.
    auto const h = read_any_header(file("jpeg-named.png"), format_of_extension("jpeg-named.png"), true);
    ASSERT_TRUE(h);
    EXPECT_EQ(h->first, image_format::jpeg);
}

TEST(image, broken_files_fail_with_a_message) {
    for (auto const* name : {"truncated.png", "corrupt.png", "empty.jpg", "huge.png", "picture.svg"}) {
        SCOPED_TRACE(name);
        auto const h = read_any_header(file(name), format_of_extension(name), true);
        EXPECT_FALSE(h);
    }
    // The huge header is refused by its size before any pixel is decoded.
    auto const huge = read_header(file("huge.png"), image_format::png, false);
    ASSERT_FALSE(huge);
    EXPECT_EQ(huge.error(), "image too large: 30000x30000 pixels");
    // Without the data check a truncated file passes on its header alone.
    EXPECT_TRUE(read_header(file("truncated.png"), image_format::png, false));
    EXPECT_TRUE(looks_like_svg(file("picture.svg")));
}

// The RGB of a decoded image's pixel, through its palette or from its colour buffer.
std::array<int, 3> rgb_at(image const& im, int x, int y) {
    auto const w = im.image_info.image_width;
    if (auto const* ix = std::get_if<image_data_indexed>(&im.image_data)) {
        auto const i = ix->buffer.buffer_bytes.view()[static_cast<std::size_t>(y * w + x)];
        auto const p = ix->indexed.image_indexed_palette.view();
        return {p[3 * i], p[3 * i + 1], p[3 * i + 2]};
    }
    auto const& n = std::get<image_data_normal>(im.image_data);
    auto const b = n.image_data_buffer.buffer_bytes.view();
    bool const gray = n.image_data_color_space == image_color_space::image_color_gray;
    int const step = n.image_data_buffer.image_buffer_kind == buffer_kind::image_buffer_16_bit ? 2 : 1;
    std::size_t const at = static_cast<std::size_t>((y * w + x) * (gray ? 1 : 3) * step);
    if (gray) {
        return {b[at], b[at], b[at]};
    }
    return {b[at], b[at + step], b[at + 2 * step]};
}

TEST(image, decoded_pixels_match_the_grid) {
    for (auto const* name : {"rgb.png", "interlaced.png", "rgba.png", "rgb16.png", "rgba16.png", "palette.png",
                             "grid.gif", "grid.tif", "rgb16.tif"}) {
        SCOPED_TRACE(name);
        auto const im = decode_image(file(name), *format_of_extension(name), std::nullopt);
        ASSERT_TRUE(im) << im.error();
        EXPECT_EQ(rgb_at(*im, 2, 2), (std::array<int, 3>{255, 0, 0}));
        EXPECT_EQ(rgb_at(*im, 12, 2), (std::array<int, 3>{0, 160, 0}));
        EXPECT_EQ(rgb_at(*im, 2, 12), (std::array<int, 3>{0, 0, 255}));
        EXPECT_EQ(rgb_at(*im, 12, 12), (std::array<int, 3>{255, 255, 255}));
    }
}

TEST(image, alpha_depth_and_masks) {
    auto const rgba = decode_image(file("rgba.png"), image_format::png, std::nullopt);
    ASSERT_TRUE(rgba);
    auto const& n = std::get<image_data_normal>(rgba->image_data);
    ASSERT_TRUE(n.image_data_alpha);
    EXPECT_EQ(n.image_data_alpha->buffer_bytes.size(), 256u);
    EXPECT_EQ(n.image_data_alpha->buffer_bytes.view()[0], 128);
    // 16-bit samples stay 16 bit without alpha and go to 8 with it.
    auto const deep = decode_image(file("rgb16.png"), image_format::png, std::nullopt);
    ASSERT_TRUE(deep);
    EXPECT_EQ(std::get<image_data_normal>(deep->image_data).image_data_buffer.image_buffer_kind,
              buffer_kind::image_buffer_16_bit);
    auto const deep_alpha = decode_image(file("rgba16.png"), image_format::png, std::nullopt);
    ASSERT_TRUE(deep_alpha);
    EXPECT_EQ(std::get<image_data_normal>(deep_alpha->image_data).image_data_buffer.image_buffer_kind,
              buffer_kind::image_buffer_8_bit);
    // A TIFF of 16-bit RGB keeps its depth too, and says so in its header.
    auto const tiff = decode_image(file("rgb16.tif"), image_format::tiff, std::nullopt);
    ASSERT_TRUE(tiff) << tiff.error();
    EXPECT_EQ(std::get<image_data_normal>(tiff->image_data).image_data_buffer.image_buffer_kind,
              buffer_kind::image_buffer_16_bit);
    EXPECT_EQ(std::get<image_data_normal>(tiff->image_data).image_data_buffer.buffer_bytes.size(), 16u * 16 * 6);
    EXPECT_EQ(read_header(file("rgb16.tif"), image_format::tiff, false)->image_depth, image_depth::depth_16bit);
    // A 1-bit grey image stays 1 bit: two bytes a row of 16 pixels.
    auto const bw = decode_image(file("bw.png"), image_format::png, std::nullopt);
    ASSERT_TRUE(bw);
    auto const& b = std::get<image_data_normal>(bw->image_data).image_data_buffer;
    EXPECT_EQ(b.image_buffer_kind, buffer_kind::image_buffer_1_bit);
    EXPECT_EQ(b.buffer_bytes.size(), 32u);
    // The palette PNG has its transparent entry expanded to a soft mask.
    auto const pal = decode_image(file("palette.png"), image_format::png, std::nullopt);
    ASSERT_TRUE(pal);
    EXPECT_TRUE(std::get<image_data_normal>(pal->image_data).image_data_alpha);
}

TEST(image, jpeg_passes_through) {
    auto const data = file("rgb.jpg");
    auto const im = decode_image(data, image_format::jpeg, std::nullopt);
    ASSERT_TRUE(im);
    auto const& n = std::get<image_data_normal>(im->image_data);
    EXPECT_EQ(n.image_data_buffer.image_buffer_kind, buffer_kind::image_buffer_jpeg);
    EXPECT_EQ(n.image_data_buffer.buffer_bytes, data);
    auto const cmyk = read_jpeg_desc(file("cmyk.jpg"));
    ASSERT_TRUE(cmyk);
    EXPECT_EQ(cmyk->image_jpeg_color_space, image_color_space::image_color_cmyk);
    auto const gray = read_jpeg_desc(file("gray.jpg"));
    ASSERT_TRUE(gray);
    EXPECT_EQ(gray->image_jpeg_color_space, image_color_space::image_color_gray);
    // A new encoding at a low quality makes another, smaller file.
    auto const again = decode_image(data, image_format::jpeg, 10);
    ASSERT_TRUE(again);
    auto const& a = std::get<image_data_normal>(again->image_data).image_data_buffer.buffer_bytes;
    EXPECT_NE(a, data);
    EXPECT_LT(a.size(), data.size());
}

TEST(image, rgb_turned_to_cmyk_for_press_output) {
    using convert::device_cmyk;
    using convert::rgb_to_cmyk;
    EXPECT_EQ(rgb_to_cmyk(1, 0, 0), (std::array<float, 4>{0, 1, 1, 0}));
    EXPECT_EQ(rgb_to_cmyk(0, 0, 0), (std::array<float, 4>{0, 0, 0, 1}));
    EXPECT_EQ(rgb_to_cmyk(1, 1, 1), (std::array<float, 4>{0, 0, 0, 0}));
    // Each kind of RGB source ends as 8-bit CMYK: the red quadrant at the top left is no cyan, full
    // magenta and yellow, no black.
    for (auto const* name : {"rgb.png", "rgb16.png", "rgb.jpg", "grid.gif", "rgb16.tif"}) {
        SCOPED_TRACE(name);
        auto const im = decode_image(file(name), *format_of_extension(name), std::nullopt);
        ASSERT_TRUE(im) << im.error();
        auto const cmyk = device_cmyk(*im);
        ASSERT_TRUE(cmyk) << cmyk.error();
        auto const& n = std::get<image_data_normal>(cmyk->image_data);
        EXPECT_EQ(n.image_data_color_space, image_color_space::image_color_cmyk);
        EXPECT_EQ(n.image_data_buffer.image_buffer_kind, buffer_kind::image_buffer_8_bit);
        ASSERT_EQ(n.image_data_buffer.buffer_bytes.size(), 16u * 16 * 4);
        auto const px = n.image_data_buffer.buffer_bytes.view();
        std::size_t const at = (2 * 16 + 2) * 4;
        EXPECT_LT(px[at], 30);
        EXPECT_GT(px[at + 1], 225);
        EXPECT_GT(px[at + 2], 225);
        EXPECT_LT(px[at + 3], 30);
    }
    // Grey stays grey.
    auto const gray = decode_image(file("gray.png"), image_format::png, std::nullopt);
    ASSERT_TRUE(gray);
    EXPECT_EQ(*device_cmyk(*gray), *gray);
}

TEST(icc, header_checks) {
    std::vector<std::uint8_t> p(132, 0);
    auto put = [&](std::size_t at, char const* four) {
        for (int i = 0; i < 4; ++i) {
            p[at + i] = static_cast<std::uint8_t>(four[i]);
        }
    };
    p[8] = 2;
    put(12, "mntr");
    put(16, "RGB ");
    put(36, "acsp");
    EXPECT_TRUE(icc::parse_icc(bytes::from_vector(p), 3));
    auto const wrong = icc::parse_icc(bytes::from_vector(p), 4);
    ASSERT_FALSE(wrong);
    EXPECT_EQ(wrong.error(), "ICC profile has 3 components but expected 4");
    // Spaces beyond the device ones have their component counts: six colourants.
    put(16, "6CLR");
    auto const six = icc::read_icc(p);
    ASSERT_TRUE(six);
    EXPECT_EQ(six->icc_components, 6);
    EXPECT_EQ(six->icc_color_space, icc::color_space::color_space_ncolor);
    put(16, "RGB ");
    put(12, "scnr");
    ASSERT_FALSE(icc::read_icc(p));
    EXPECT_EQ(icc::read_icc(p).error(), "ICC profile unknown device class: 0x73636E72");
    put(12, "mntr");
    put(36, "xxxx");
    EXPECT_FALSE(icc::parse_icc(bytes::from_vector(p), 3));
}

} // namespace
} // namespace vellum::image
