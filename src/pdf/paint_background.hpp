// The image layers of a background: images placed by background-position, -size, -origin and -clip,
// repeated as tiling patterns, and linear and radial gradients (with their repeating forms) as
// shadings. The layers are painted from the last to the first, over the background colour.
#pragma once

#include "css/box.hpp"
#include "css/color.hpp"
#include "driver/log.hpp"
#include "pdf/borders.hpp"
#include "pdf/content.hpp"
#include "pdf/page_objects.hpp"

#include <optional>

namespace vellum::pdf::paint_background {

/// The three boxes a layer may refer to.
struct layer_boxes {
    borders::frame border_box;
    borders::frame padding_box;
    borders::frame content_box;
    /// The page area, against which layers with `background-attachment: fixed` are placed; without
    /// it they are placed like the others.
    std::optional<borders::frame> page_area;
};

/// The rectangle of an image or gradient tile and how it repeats, for one layer.
struct tile_geometry {
    borders::frame tile;
    bool repeat_x = false;
    bool repeat_y = false;
    /// The distance from one tile to the next (tile size plus the room `space` leaves).
    double step_x = 0;
    double step_y = 0;
    bool operator==(tile_geometry const&) const = default;
};

/// Places a tile of the given intrinsic size (nothing for a gradient) in a positioning area.
tile_geometry place_tile(borders::frame const& area,
                         std::optional<std::pair<double, double>> intrinsic,
                         css::box::bg_size const& size,
                         css::box::bg_position const& position,
                         css::box::background_repeat const& repeat);

/// The shading of a gradient function over a tile; nothing for a function that is not a gradient.
std::optional<page_objects::shading> gradient_shading(css::value::function const& f, borders::frame const& tile,
                                                      float font_size, css::color::color const& current_color);

/// Paints a background's image layers, clipped each to its clip box.
void paint_layers(log::log const& log,
                  content::out const& o,
                  content::gs& g,
                  page_objects::page_objects& objects,
                  css::box::background const& background,
                  layer_boxes const& boxes,
                  float font_size,
                  css::color::color const& current_color,
                  css::box::image_resolution const& image_resolution,
                  double alpha);

/// The size in points of an image of the given pixels at a resolution: 96 dots per inch unless the
/// resolution names one or takes the image's own.
std::pair<double, double> image_size_at(image::image_info const& info, css::box::image_resolution const& resolution);

} // namespace vellum::pdf::paint_background
