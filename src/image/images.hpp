// The image table of a run: each image is read once and named once, however often the documents show
// it. An image of ordinary size is decoded when it is loaded (a broken file is found before layout
// counts on it) and waits for the PDF with its samples compressed; a JPEG goes in as it stands, and only
// a very large image is read again for the PDF, so that layout never holds its pixels.
#pragma once

#include "driver/log.hpp"
#include "image/image.hpp"
#include "resource/loader.hpp"
#include "util/ref.hpp"

#include <functional>
#include <map>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace vellum::svg {
struct svg_block;
} // namespace vellum::svg

namespace vellum::fonts {
struct fonts;
} // namespace vellum::fonts

namespace vellum::images {

/// An image the program made itself (canvas output): four bytes a pixel, RGBA.
struct internal_image {
    bytes::bytes internal_rgba;
    bool internal_has_alpha = false;
    bool operator==(internal_image const&) const = default;
};

/// An image read from a file or URL.
struct external_image {
    image::image_external external;
    /// The image decoded when it was loaded, its samples kept compressed for the PDF; nothing for a JPEG
    /// that goes in as it stands and for an image too large to decode during layout, which are read
    /// again when the PDF is written.
    std::optional<image::image> external_kept;
    bool operator==(external_image const&) const = default;
};

/// A drawing: an SVG file, or an svg element of a document. It goes into the PDF as a form.
struct svg_image {
    ref<svg::svg_block> svg_image_block;
    bool operator==(svg_image const&) const = default;
};

/// What the SVG reader makes of a file: the drawing and its size in CSS pixels.
struct svg_loaded {
    ref<svg::svg_block> loaded_block;
    double loaded_width = 0;
    double loaded_height = 0;
};

/// Reads an SVG file's bytes into a drawing; a failure comes back with its message.
using svg_reader = std::function<result<svg_loaded>(log::log const&, bytes::bytes const&,
                                                    resource::locator::locator const&)>;

using image_source = std::variant<internal_image, external_image, svg_image>;

/// What `-vellum-image-magic` asks of an image.
struct image_magic {
    bool snap_to_integer_coords = false;
    bool ignore_icc_profile = false;
    /// Decode a JPEG and compress it again at this quality.
    std::optional<int> jpeg_quality;
    auto operator<=>(image_magic const&) const = default;
};

/// The magic that the keywords of `-vellum-image-magic` ask for ("jpeg-quality-N" sets a quality).
image_magic magic_of_keywords(std::vector<std::string> const& keywords);

/// An entry of the table: the image's resource name, what layout needs, and where its pixels come from.
struct image_id {
    std::string image_name;
    image::image_info image_info;
    vellum::images::image_source image_source;
    vellum::images::image_magic image_magic;
    bool operator==(image_id const&) const = default;
};

/// The image table. It is used from the thread that lays out and writes, and grows for the whole run.
class images {
public:
    explicit images(resource::loader::loader const& loader);

    /// The entry of an image, loading its header the first time. A failure is logged (with the URL) the
    /// first time only; an image that failed once fails at once afterwards.
    [[nodiscard]] result<ref<image_id>>
    get_image_id(log::log const& log, resource::locator::locator const& url, image_magic magic = {});

    /// An entry for a drawing made from an svg element of a document: a new name each time.
    ref<image_id> add_svg(svg_loaded const& drawing);

    /// An entry for pixels the program made (canvas image data): rows of RGBA, a new name each time.
    ref<image_id> add_rgba(int width, int height, bytes::bytes rgba);

    /// Every image handed out, in the order of their names.
    std::vector<ref<image_id>> all_images() const;

    /// Whether an image of the table has 16-bit samples, which needs PDF 1.5.
    bool any_16bit_image() const;

    /// The decoded image (or the JPEG data) for the PDF: the one kept from loading (its sample buffers
    /// compressed), or read again from its source.
    [[nodiscard]] result<image::image> read_image(log::log const& log, image_id const& id) const;

    /// Resolves a url() of a style sheet (its text and the base the parser kept), for images that
    /// painting meets in styles; set by the engine from the documents' base tables.
    std::function<std::optional<resource::locator::locator>(std::string const& text, std::string const& base)>
        resolve_css_url = [](std::string const&, std::string const&) {
            return std::optional<resource::locator::locator>{};
        };

    /// Reads SVG files; set by the engine, as the SVG reader sits above the image table. Without it an
    /// SVG image fails with a warning.
    svg_reader read_svg;
    /// The fonts that the text of drawings is shaped with; set by the engine with the reader.
    fonts::fonts const* svg_fonts = nullptr;

private:
    resource::loader::loader const* table_loader;
    /// By URL and magic: the entry, or nothing for an image that cannot be loaded.
    std::map<std::pair<std::string, image_magic>, std::optional<ref<image_id>>> remote_cache;
    std::vector<ref<image_id>> table_order;
    int next_image = 1;
};

} // namespace vellum::images
