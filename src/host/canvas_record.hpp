// The recorder behind a canvas' "2d" context. A canvas here has no pixels: each drawing call becomes a
// vector item (an SVG shape, a piece of text, an image) in the canvas' own pixel space, kept in drawing
// order, and the whole list is painted into the PDF when the canvas is laid out.
#pragma once

#include "css/color.hpp"
#include "js/value.hpp"
#include "resource/locator.hpp"
#include "svg/svg.hpp"
#include "util/bytes.hpp"
#include "util/ref.hpp"

#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace vellum::dom {
struct dom_element;
}

namespace vellum::canvas {

/// A gradient made by `createLinearGradient` or `createRadialGradient`. It stays mutable:
/// `addColorStop` after it became a fill style still counts for later drawing.
struct canvas_gradient {
    std::variant<svg::linear, svg::radial> gradient_geometry;
    std::vector<svg::stop> gradient_stops;
    /// The script object, so that reading a style gives back the object that was set.
    std::optional<js::eval::js_object> gradient_object;
};

struct canvas_thing;

/// An `img` element by the URL of its image.
struct image_ele_image {
    resource::locator::locator image_url;
    bool operator==(image_ele_image const&) const = default;
};

/// Another canvas: its size and what it had drawn when it was used, oldest first.
struct image_ele_canvas {
    int source_width = 300;
    int source_height = 150;
    ref<std::vector<canvas_thing>> source_content;
    /// The canvas element itself: its text's relative font sizes follow that element's font, not the
    /// font of the canvas it is copied into.
    std::weak_ptr<dom::dom_element> source_element;
};

/// What `drawImage` and `createPattern` take their picture from.
using canvas_image_ele = std::variant<image_ele_image, image_ele_canvas>;

/// How a pattern repeats its picture.
enum class repetition { repeat, repeat_x, repeat_y, no_repeat };

/// A pattern made by `createPattern`; `setTransform` changes its matrix.
struct canvas_pattern {
    canvas_image_ele pattern_source;
    canvas::repetition pattern_repetition = repetition::repeat;
    svg::transform pattern_transform;
    std::optional<js::eval::js_object> pattern_object;
};

struct style_color {
    css::color::color style_color_value = css::color::black();
};

struct style_gradient {
    std::shared_ptr<canvas_gradient> style_gradient_value;
};

struct style_pattern {
    std::shared_ptr<canvas_pattern> style_pattern_value;
};

/// A fill or stroke style: a colour, a gradient or a pattern.
using canvas_style = std::variant<style_color, style_gradient, style_pattern>;

enum class text_align { start, end, left, right, center };

enum class text_baseline { top, hanging, middle, alphabetic, ideographic, bottom };

enum class draw { fill, stroke };

/// A subpath in canvas pixels: where it started and where its pen is now.
struct subpath {
    svg::point start_point;
    svg::point end_point;
    std::vector<svg::command> commands;
    bool operator==(subpath const&) const = default;
};

/// One `clip()`: the path at that moment with its fill rule. Clips in force intersect.
struct canvas_clip {
    std::vector<subpath> clip_path;
    css::svgstyle::fill_rule clip_rule = css::svgstyle::fill_rule::nonzero;
    bool operator==(canvas_clip const&) const = default;
};

/// The drawing state that `save` and `restore` keep.
struct canvas_state {
    /// Line width, caps, joins, miter limit, dashes (always of even length) and their offset; `opacity`
    /// holds the global alpha.
    svg::used_svgstyle svgstyle;
    /// From user space to canvas pixels.
    svg::transform transform;
    canvas_style fill_style = style_color{};
    canvas_style stroke_style = style_color{};
    std::vector<canvas_clip> clip;
    /// The `font` property as set; its sizes are resolved against the element's font at painting.
    std::string font = "10px sans-serif";
    canvas::text_align text_align = text_align::start;
    canvas::text_baseline text_baseline = text_baseline::alphabetic;
};

/// Text drawn by `fillText` or `strokeText`, at a point of its user space.
struct canvas_text {
    svg::used_svgstyle canvas_text_svgstyle;
    std::string canvas_text_content;
    svg::point canvas_text_pos;
    std::optional<double> canvas_text_max_width;
    std::string canvas_text_font;
    canvas::text_align canvas_text_align = text_align::start;
    canvas::text_baseline canvas_text_baseline = text_baseline::alphabetic;
    canvas::draw canvas_text_draw = draw::fill;
    /// The fill or stroke style, whichever the call uses.
    canvas_style canvas_text_style;
    svg::transform canvas_text_transform;
    std::vector<canvas_clip> canvas_text_clip;
};

/// The whole picture, or a rectangle of it in its own pixels.
struct whole_image {
    bool operator==(whole_image const&) const = default;
};

struct partial_image {
    double sx = 0;
    double sy = 0;
    double sw = 0;
    double sh = 0;
    bool operator==(partial_image const&) const = default;
};

using source_rect = std::variant<whole_image, partial_image>;

/// A picture drawn by `drawImage` into a rectangle of its user space; without `dw` and `dh` it keeps its
/// own size in pixels.
struct canvas_image {
    canvas::canvas_image_ele canvas_image_ele;
    canvas::source_rect source_rect = whole_image{};
    double dx = 0;
    double dy = 0;
    std::optional<double> dw;
    std::optional<double> dh;
};

/// Pixels put by `putImageData`: RGBA rows of `data_width` pixels, of which the dirty rectangle is put
/// with its origin at (data_dx, data_dy) in canvas pixels. No transform, alpha or clip applies.
struct canvas_image_data {
    bytes::bytes data_content;
    int data_width = 0;
    int data_height = 0;
    double data_dx = 0;
    double data_dy = 0;
    int dirty_x = 0;
    int dirty_y = 0;
    int dirty_w = 0;
    int dirty_h = 0;
};

/// A filled or stroked path (and `fillRect`, `strokeRect`). A pattern paint stands in the shape as
/// none; its picture is resolved at painting from the copy kept here.
struct thing_svg {
    svg::svg thing_svg_value;
    /// The clips in force, in canvas pixels.
    std::vector<canvas_clip> thing_svg_clip;
    std::optional<canvas_pattern> thing_fill_pattern;
    std::optional<canvas_pattern> thing_stroke_pattern;
};

struct thing_text {
    canvas_text thing_text_value;
};

struct thing_image {
    svg::used_svgstyle thing_image_svgstyle;
    std::vector<canvas_clip> thing_image_clip;
    svg::transform thing_image_transform;
    canvas_image thing_image_value;
};

struct thing_put_image_data {
    canvas_image_data thing_data_value;
};

/// `clearRect`: the four corners of the cleared area in canvas pixels; what was drawn before shows the
/// canvas' background there.
struct thing_clear_rect {
    svg::point clear_corners[4];
};

/// One recorded item.
using canvas_thing_alternative = std::variant<thing_svg, thing_text, thing_image, thing_put_image_data, thing_clear_rect>;

struct canvas_thing : canvas_thing_alternative {
    using canvas_thing_alternative::canvas_thing_alternative;
};

/// The state of a "2d" context.
struct canvas_context {
    /// The script object of the context, once made.
    std::optional<js::eval::js_object> canvas_context_object_ref;
    int canvas_width = 300;
    int canvas_height = 150;
    /// Saved states, the latest last.
    std::vector<canvas_state> states;
    canvas_state state;
    /// The subpath being built.
    std::optional<canvas::subpath> subpath;
    /// The finished subpaths of the current path.
    std::vector<canvas::subpath> path;
    /// What was drawn, oldest first.
    std::vector<canvas_thing> content;
};

// The recorded operations, one for each call of the context that changes it.

struct save_op {};
struct restore_op {};
/// `transform`, `scale`, `rotate`, `translate`: applied before the current transform.
struct transform_op {
    svg::transform by;
};
/// `setTransform`, `resetTransform`.
struct set_transform_op {
    svg::transform to;
};
struct global_alpha_op {
    double alpha = 1;
};
struct stroke_style_op {
    canvas_style style;
};
struct fill_style_op {
    canvas_style style;
};
/// A path command in user space: `moveTo`, `lineTo`, `bezierCurveTo`, `rect`, `arc`, `ellipse`,
/// `closePath`.
struct command_op {
    svg::command command;
};
struct quadratic_op {
    svg::point control;
    svg::point end;
};
struct arc_to_op {
    svg::point p1;
    svg::point p2;
    double radius = 0;
};
struct begin_path_op {};
struct draw_op {
    canvas::draw draw = draw::fill;
    css::svgstyle::fill_rule rule = css::svgstyle::fill_rule::nonzero;
};
struct clip_op {
    css::svgstyle::fill_rule rule = css::svgstyle::fill_rule::nonzero;
};
struct reset_clip_op {};
struct line_width_op {
    double width = 1;
};
struct line_cap_op {
    css::svgstyle::linecap cap = css::svgstyle::linecap::butt;
};
struct line_join_op {
    css::svgstyle::linejoin join = css::svgstyle::linejoin::miter;
};
struct miter_limit_op {
    double limit = 10;
};
struct dash_array_op {
    std::vector<double> dashes;
};
struct dash_offset_op {
    double offset = 0;
};
struct draw_text_op {
    std::string text;
    svg::point at;
    std::optional<double> max_width;
    canvas::draw draw = draw::fill;
};
struct font_op {
    std::string font;
};
struct text_align_op {
    canvas::text_align align = text_align::start;
};
struct text_baseline_op {
    canvas::text_baseline baseline = text_baseline::alphabetic;
};
struct clear_rect_op {
    double x = 0;
    double y = 0;
    double w = 0;
    double h = 0;
};
struct draw_rect_op {
    double x = 0;
    double y = 0;
    double w = 0;
    double h = 0;
    canvas::draw draw = draw::fill;
};
struct draw_image_op {
    canvas_image image;
};
struct put_image_data_op {
    canvas_image_data data;
};

using context_prop = std::variant<save_op, restore_op, transform_op, set_transform_op, global_alpha_op,
                                  stroke_style_op, fill_style_op, command_op, quadratic_op, arc_to_op,
                                  begin_path_op, draw_op, clip_op, reset_clip_op, line_width_op, line_cap_op,
                                  line_join_op, miter_limit_op, dash_array_op, dash_offset_op, draw_text_op,
                                  font_op, text_align_op, text_baseline_op, clear_rect_op, draw_rect_op,
                                  draw_image_op, put_image_data_op>;

/// Applies one operation to a context.
void apply(canvas_context& ctx, context_prop const& op);

/// A context of a canvas of this size, in its initial state.
canvas_context new_context(int width, int height);

/// The arc of `arc(x, y, r, start, end, anticlockwise)` and `ellipse`: the angle swept from `start`
/// towards `end`, a whole turn at most.
svg::arc canvas_arc(svg::point center, double rx, double ry, double rotation, double start, double end,
                    bool anticlockwise);

/// A path command moved by a transform. A rectangle under rotation or skew becomes a closed polygon, an
/// arc under anything but a rotation with uniform scale becomes cubics.
std::vector<svg::command> transform_command(svg::transform const& t, svg::command const& c);

/// The commands of a list of subpaths.
std::vector<svg::command> path_commands(std::vector<subpath> const& path);

/// The text of a colour as scripts read it back: "#rrggbb" when opaque, else "rgba(r, g, b, a)".
std::string color_text(css::color::color const& c);

/// The paint of a style for an item: a colour as it is, a gradient as its stops are now, a pattern by its
/// picture (images and canvases resolved at painting).
svg::used_paint paint_of(canvas_style const& s);

/// A dash list as a context keeps it: an odd count repeated to be even; nothing for a list with a
/// negative or non-finite entry.
[[nodiscard]] std::optional<std::vector<double>> dash_list(std::vector<double> const& dashes);

} // namespace vellum::canvas
