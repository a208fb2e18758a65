// The image table of a run: an image of ordinary size is decoded once, at load, and waits for the PDF
// with its samples compressed; a JPEG waits as its file; a broken file fails at load.
#include "image/images.hpp"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <unistd.h>

#include <gtest/gtest.h>

namespace vellum::images {
namespace {

namespace fs = std::filesystem;

struct table_fixture {
    std::shared_ptr<std::FILE> file{std::tmpfile(), &std::fclose};
    log::log log{.log_verbosity = log::verbosity::debug,
                 .log_stderr = log::console_log::console_log{.progname = "vellum", .console_out = file.get()}};
    fs::path dir = fs::temp_directory_path() / ("vellum_images_" + std::to_string(getpid()));
    resource::loader::loader loader = make_loader();

    resource::loader::loader make_loader() {
        fs::remove_all(dir);
        fs::create_directories(dir);
        auto l = resource::loader::new_loader(log, {dir.string()}, {dir.string()}, {.network = false});
        EXPECT_TRUE(l.has_value());
        return *l;
    }
    ~table_fixture() { fs::remove_all(dir); }

    // A copy of a file of the test image set in the scratch folder, cut to `keep` bytes if given.
    resource::locator::locator copy(std::string const& name, std::size_t keep = std::string::npos) {
        std::ifstream in(std::string(VELLUM_SOURCE_DIR) + "/tests/image/data/" + name, std::ios::binary);
        std::string data((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        auto const path = dir / name;
        std::ofstream(path, std::ios::binary) << data.substr(0, keep);
        return resource::locator::parse_locator(resource::locator::path_or_url::path_or_url,
                                                resource::locator::locator_origin::command_line_origin,
                                                std::nullopt, path.string());
    }
};

image::image_buffer const& color_buffer(image::image const& im) {
    return std::visit(overloaded{
                          [](image::image_data_normal const& n) -> image::image_buffer const& {
                              return n.image_data_buffer;
                          },
                          [](image::image_data_indexed const& x) -> image::image_buffer const& { return x.buffer; },
                      },
                      im.image_data);
}

TEST(image_table, ordinary_images_are_decoded_once_and_kept_compressed) {
    table_fixture t;
    images table(t.loader);
    for (auto const* name : {"rgb.png", "rgba.png", "rgba16.png", "interlaced.png", "palette.png", "grid.gif",
                             "grid.tif"}) {
        SCOPED_TRACE(name);
        auto const url = t.copy(name);
        auto id = table.get_image_id(t.log, url);
        ASSERT_TRUE(id) << id.error();
        auto const* ext = std::get_if<external_image>(&(*id)->image_source);
        ASSERT_NE(ext, nullptr);
        ASSERT_TRUE(ext->external_kept.has_value());
        EXPECT_FALSE(ext->external.image_bytes.has_value()) << "the file's bytes are not kept as well";
        EXPECT_TRUE(image::has_deflated_buffers(*ext->external_kept));
        // The file is not read again: it can be gone by the time the PDF is written.
        fs::remove(t.dir / name);
        auto kept = table.read_image(t.log, **id);
        ASSERT_TRUE(kept) << kept.error();
        EXPECT_TRUE(color_buffer(*kept).buffer_deflated);
        // Expanded again, the samples are those of a fresh decode.
        std::ifstream in(std::string(VELLUM_SOURCE_DIR) + "/tests/image/data/" + name, std::ios::binary);
        std::vector<std::uint8_t> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        auto fresh = image::decode_image(bytes::from_vector(std::move(bytes)), ext->external.image_format, std::nullopt);
        ASSERT_TRUE(fresh);
        auto plain = image::inflate_buffers(*kept);
        ASSERT_TRUE(plain) << plain.error();
        EXPECT_EQ(*plain, *fresh);
        EXPECT_FALSE(image::has_deflated_buffers(*plain));
        // The compressed samples of this flat test grid are far smaller than the samples.
        EXPECT_LT(color_buffer(*kept).buffer_bytes.size(), color_buffer(*fresh).buffer_bytes.size());
    }
}

TEST(image_table, jpeg_waits_as_its_file_and_broken_files_fail_at_load) {
    table_fixture t;
    images table(t.loader);
    auto jpeg = table.get_image_id(t.log, t.copy("rgb.jpg"));
    ASSERT_TRUE(jpeg) << jpeg.error();
    auto const& ext = std::get<external_image>((*jpeg)->image_source);
    EXPECT_FALSE(ext.external_kept.has_value());
    auto read = table.read_image(t.log, **jpeg);
    ASSERT_TRUE(read) << read.error();
    EXPECT_EQ(color_buffer(*read).image_buffer_kind, image::buffer_kind::image_buffer_jpeg);
    EXPECT_FALSE(color_buffer(*read).buffer_deflated);

    // A PNG cut short has a whole header but not its pixels: it fails when it is loaded, not later.
    auto const whole = fs::file_size(fs::path(VELLUM_SOURCE_DIR) / "tests/image/data/rgb.png");
    auto cut = table.get_image_id(t.log, t.copy("rgb.png", whole / 2));
    EXPECT_FALSE(cut);
}

TEST(image_table, compressed_buffers_round_trip) {
    image::image_data_normal data;
    data.image_data_buffer.buffer_bytes = bytes::from_string("\x01\x02\x03\x04\x05\x06\x07\x08\x09");
    data.image_data_alpha = image::image_buffer{};
    data.image_data_alpha->buffer_bytes = bytes::from_string(std::string("\xff\x00\x80", 3));
    image::image im;
    im.image_info.image_width = 3;
    im.image_info.image_height = 1;
    im.image_data = std::move(data);
    auto packed = image::deflate_buffers(im);
    EXPECT_TRUE(image::has_deflated_buffers(packed));
    // Compressing twice changes nothing more.
    EXPECT_EQ(image::deflate_buffers(packed), packed);
    auto back = image::inflate_buffers(packed);
    ASSERT_TRUE(back);
    EXPECT_EQ(*back, im);
    // A damaged stream is an error, not a crash.
    auto& n = std::get<image::image_data_normal>(packed.image_data);
    n.image_data_buffer.buffer_bytes = bytes::from_string("not a zlib stream");
    EXPECT_FALSE(image::inflate_buffers(packed));
}

} // namespace
} // namespace vellum::images
