// What a canvas hands to box generation: its recording turned into an SVG display list over the
// canvas' pixels, with text shaped through the font system and pictures from the image table, so that
// the page painter draws it as vector content.
#pragma once

#include "driver/log.hpp"
#include "host/canvas_record.hpp"
#include "svg/svg.hpp"

#include <string_view>

namespace vellum::images {
class images;
} // namespace vellum::images

namespace vellum::fonts {
struct fonts;
} // namespace vellum::fonts

namespace vellum::canvas {

/// What painting a canvas needs besides its recording.
struct paint_env {
    /// The table that `drawImage`, patterns and image data put their pictures in.
    images::images* paint_images = nullptr;
    /// The fonts that text is shaped with; without them text is left out with a warning.
    fonts::fonts const* paint_fonts = nullptr;
    /// The canvas element's computed style: the base of relative sizes in `font`.
    ref<css::style::style> paint_element_style;
};

/// The drawing of a canvas of the given size in pixels: its content, oldest first, within the canvas.
svg::svg_block canvas_block(log::log const& log, int width, int height, std::vector<canvas_thing> const& content,
                            paint_env const& env);

/// Whether a text is a value of the CSS `font` shorthand (what the `font` property of a context takes).
bool valid_font(std::string_view text);

} // namespace vellum::canvas
