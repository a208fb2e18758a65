#include "image/images.hpp"

#include <algorithm>
#include <cmath>
#include <charconv>

namespace vellum::images {

namespace {

struct loaded_bytes {
    bytes::bytes data;
    std::optional<std::string> mimetype;
    /// The source was a file, which can be read again when the PDF is written.
    bool rereadable = false;
};

result<loaded_bytes> load_bytes(log::log const& log, resource::loader::loader const& l, resource::locator::locator const& url) {
    auto loaded = resource::loader::load_resource(log, l, resource::loader::resource_description::image, url);
    if (!loaded) {
        return fail(loaded.error());
    }
    auto data = resource::loader::resource_to_bytes(loaded->resource_data);
    if (!data) {
        return fail(data.error());
    }
    loaded_bytes out{.data = *data,
                     .rereadable = std::holds_alternative<resource::loader::resource_stream>(loaded->resource_data) &&
                                   std::holds_alternative<resource::locator::file>(url.locator_url)};
    if (loaded->resource_type) {
        out.mimetype = loaded->resource_type->mimetype;
    }
    return out;
}

std::string path_of(resource::locator::locator const& url) {
    if (auto const* f = std::get_if<resource::locator::file>(&url.locator_url)) {
        return f->file_path.path;
    }
    if (auto const* w = std::get_if<resource::locator::web>(&url.locator_url)) {
        auto text = w->web_url;
        text = text.substr(0, text.find_first_of("?#"));
        return text;
    }
    return {};
}

bool svg_name(std::string_view path) {
    return path.ends_with(".svg") || path.ends_with(".SVG") || path.ends_with(".svgz");
}

// The table's entry data of a drawing: its size in whole CSS pixels, which layout counts at 96 dpi.
image::image_info svg_info(svg_loaded const& d) {
    return image::image_info{.image_width = std::max(1, static_cast<int>(std::lround(d.loaded_width))),
                             .image_height = std::max(1, static_cast<int>(std::lround(d.loaded_height)))};
}

// Reads an image's header, or an SVG image whole through the SVG reader.
result<std::pair<image_source, image::image_info>> load_image_info(log::log const& log,
                                                                    resource::loader::loader const& l,
                                                                    resource::locator::locator const& url,
                                                                    svg_reader const& read_svg) {
    auto loaded = load_bytes(log, l, url);
    if (!loaded) {
        return fail(loaded.error());
    }
    if (loaded->data.empty()) {
        return fail("empty image file");
    }
    auto const as_svg = [&]() -> result<std::pair<image_source, image::image_info>> {
        if (!read_svg) {
            return fail("SVG images are not supported in this run");
        }
        auto drawing = read_svg(log, loaded->data, url);
        if (!drawing) {
            return fail(drawing.error());
        }
        return std::pair{image_source{svg_image{drawing->loaded_block}}, svg_info(*drawing)};
    };
    std::optional<resource::image_format> presumed;
    auto const path = path_of(url);
    if (loaded->mimetype) {
        auto const& m = *loaded->mimetype;
        if (m == "image/svg+xml" || m == "image/svg-xml") {
            return as_svg();
        }
        presumed = image::format_of_mimetype(m);
        if (!presumed && m.starts_with("image/")) {
            log::log_file_message(log, log::level::warning, resource::locator::locator_to_string(url),
                                  "Unknown image MIME type: " + m);
        }
    }
    if (!presumed) {
        presumed = image::format_of_extension(path);
    }
    if (!presumed && (svg_name(path) || image::looks_like_svg(loaded->data))) {
        return as_svg();
    }
    auto header = image::read_any_header(loaded->data, presumed, false);
    if (!header) {
        if (svg_name(path) || image::looks_like_svg(loaded->data)) {
            return as_svg();
        }
        return fail(header.error());
    }
    auto const format = header->first;
    auto const& info = header->second;
    external_image out{.external = {.image_url = url, .image_format = format}};
    if (format != resource::image_format::jpeg &&
        static_cast<std::int64_t>(info.image_width) * info.image_height <= image::keep_decoded_pixels) {
        // Decoded once, now: a broken file is found before layout counts on it, and what waits for the
        // PDF is the compressed samples, not the file.
        auto decoded = image::decode_image(loaded->data, format, std::nullopt);
        if (!decoded) {
            return fail(decoded.error());
        }
        out.external_kept = image::deflate_buffers(std::move(*decoded));
    } else {
        // A JPEG goes into the PDF as it stands, and a very large image is decoded only when it is
        // written: here every row is decoded into one row buffer to find a broken file.
        if (auto checked = image::read_header(loaded->data, format, true); !checked) {
            return fail(checked.error());
        }
        if (!loaded->rereadable) {
            out.external.image_bytes = loaded->data;
        }
    }
    return std::pair{image_source{std::move(out)}, info};
}

} // namespace

image_magic magic_of_keywords(std::vector<std::string> const& keywords) {
    image_magic m;
    for (auto const& k : keywords) {
        if (k == "snap-to-integer-coords") {
            m.snap_to_integer_coords = true;
        } else if (k == "ignore-icc-profile") {
            m.ignore_icc_profile = true;
        } else if (k.starts_with("jpeg-quality-")) {
            int q = 0;
            auto const digits = std::string_view(k).substr(13);
            if (std::from_chars(digits.data(), digits.data() + digits.size(), q).ec == std::errc{}) {
                m.jpeg_quality = std::clamp(q, 0, 100);
            }
        }
    }
    return m;
}

images::images(resource::loader::loader const& loader) : table_loader(&loader) {}

result<ref<image_id>>
images::get_image_id(log::log const& log, resource::locator::locator const& url, image_magic magic) {
    auto const key = std::pair{resource::locator::locator_to_string(url), magic};
    if (auto const found = remote_cache.find(key); found != remote_cache.end()) {
        if (!found->second) {
            return fail("unloadable image");
        }
        return *found->second;
    }
    auto info = load_image_info(log, *table_loader, url, read_svg);
    if (!info) {
        log::log_file_message(log, log::level::warning, key.first, info.error());
        remote_cache.emplace(key, std::nullopt);
        return fail(info.error());
    }
    auto id = share(image_id{.image_name = "Im" + std::to_string(next_image++),
                             .image_info = info->second,
                             .image_source = std::move(info->first),
                             .image_magic = magic});
    remote_cache.emplace(key, id);
    table_order.push_back(id);
    return id;
}

ref<image_id> images::add_svg(svg_loaded const& drawing) {
    auto id = share(image_id{.image_name = "Im" + std::to_string(next_image++),
                             .image_info = svg_info(drawing),
                             .image_source = svg_image{drawing.loaded_block}});
    table_order.push_back(id);
    return id;
}

ref<image_id> images::add_rgba(int width, int height, bytes::bytes rgba) {
    bool alpha = false;
    auto const px = rgba.view();
    for (std::size_t i = 3; i < px.size(); i += 4) {
        if (px[i] != 255) {
            alpha = true;
            break;
        }
    }
    auto id = share(image_id{.image_name = "Im" + std::to_string(next_image++),
                             .image_info = image::image_info{.image_width = width, .image_height = height,
                                                             .image_has_alpha = alpha},
                             .image_source = internal_image{.internal_rgba = std::move(rgba), .internal_has_alpha = alpha}});
    table_order.push_back(id);
    return id;
}

std::vector<ref<image_id>> images::all_images() const {
    return table_order;
}

bool images::any_16bit_image() const {
    for (auto const& id : table_order) {
        if (id->image_info.image_depth == image::image_depth::depth_16bit && !id->image_info.image_has_alpha) {
            return true;
        }
    }
    return false;
}

result<image::image> images::read_image(log::log const& log, image_id const& id) const {
    return std::visit(overloaded{
                          [&](internal_image const& in) -> result<image::image> {
                              auto const w = id.image_info.image_width;
                              auto const h = id.image_info.image_height;
                              auto const px = in.internal_rgba.view();
                              std::size_t const count = static_cast<std::size_t>(w) * h;
                              if (px.size() < count * 4) {
                                  return fail("internal image: too few pixels");
                              }
                              std::vector<std::uint8_t> color(count * 3);
                              std::vector<std::uint8_t> alpha(in.internal_has_alpha ? count : 0);
                              for (std::size_t i = 0; i < count; ++i) {
                                  std::copy_n(px.data() + 4 * i, 3, color.data() + 3 * i);
                                  if (in.internal_has_alpha) {
                                      alpha[i] = px[4 * i + 3];
                                  }
                              }
                              image::image_data_normal d{
                                  .image_data_buffer = {image::buffer_kind::image_buffer_8_bit,
                                                        bytes::from_vector(std::move(color))}};
                              if (in.internal_has_alpha) {
                                  d.image_data_alpha = image::image_buffer{image::buffer_kind::image_buffer_8_bit,
                                                                           bytes::from_vector(std::move(alpha))};
                              }
                              return image::image{.image_info = id.image_info, .image_data = std::move(d)};
                          },
                          [&](external_image const& ex) -> result<image::image> {
                              if (ex.external_kept) {
                                  return *ex.external_kept;
                              }
                              auto data = ex.external.image_bytes;
                              if (!data) {
                                  auto loaded = load_bytes(log, *table_loader, ex.external.image_url);
                                  if (!loaded) {
                                      return fail(loaded.error());
                                  }
                                  data = loaded->data;
                              }
                              return image::decode_image(*data, ex.external.image_format, id.image_magic.jpeg_quality);
                          },
                          [](svg_image const&) -> result<image::image> {
                              return fail("an SVG drawing has no pixels");
                          },
                      },
                      id.image_source);
}

} // namespace vellum::images
