// The SVG display list: shapes as path commands with their paint and stroke resolved to numbers in user
// units, groups with transforms, clip paths, images and gradients. Nothing in it points back to the
// document it was built from, so it can be painted any number of times after the tree is gone.
#pragma once

#include "css/color.hpp"
#include "css/style.hpp"
#include "text/fonts/graphemes.hpp"
#include "css/svgstyle.hpp"
#include "util/matrix.hpp"
#include "util/ref.hpp"

#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace vellum::images {
struct image_id;
} // namespace vellum::images

namespace vellum::svg {

/// A point in user units; y grows downward as in SVG.
struct point {
    double x = 0;
    double y = 0;
    bool operator==(point const&) const = default;
};

/// A transform in doubles: x' = a*x + c*y + e, y' = b*x + d*y + f.
struct transform {
    double a = 1;
    double b = 0;
    double c = 0;
    double d = 1;
    double e = 0;
    double f = 0;
    bool operator==(transform const&) const = default;
};

/// The transform that applies `first`, then `second`.
transform then(transform const& first, transform const& second);

/// Applies a transform to a point.
point apply(transform const& t, point p);

/// The inverse, or nothing for a singular transform.
[[nodiscard]] std::optional<transform> invert(transform const& t);

transform translation(double x, double y);
transform scaling(double sx, double sy);

struct moveto {
    point to;
    bool operator==(moveto const&) const = default;
};

struct lineto {
    point to;
    bool operator==(lineto const&) const = default;
};

/// A whole rectangle as one subpath (PDF "re").
struct rect {
    point corner;
    point size;
    bool operator==(rect const&) const = default;
};

struct c_curveto {
    point control1;
    point control2;
    point c_end;
    bool operator==(c_curveto const&) const = default;
};

/// An elliptical arc by its centre: radii, rotation of the x axis (radians), start angle and the signed
/// angle it sweeps (radians, positive in the direction of growing angles).
struct arc {
    point ellipse_center;
    double arc_rx = 0;
    double arc_ry = 0;
    double arc_rotate = 0;
    double arc_start = 0;
    double arc_sweep = 0;
    bool operator==(arc const&) const = default;
};

struct closepath {
    bool operator==(closepath const&) const = default;
};

using command = std::variant<moveto, lineto, rect, c_curveto, arc, closepath>;

/// An arc as cubic Béziers, each spanning at most a quarter turn; the first starts at the arc's start.
std::vector<c_curveto> arc_to_curves(arc const& a);

/// A closed ellipse as four cubics starting at the top.
std::vector<command> ellipse_curves(point center, double rx, double ry);

/// A box in user units.
struct bbox {
    double x0 = 0;
    double y0 = 0;
    double x1 = 0;
    double y1 = 0;
    bool operator==(bbox const&) const = default;
};

/// The exact bounding box of a path (curves by their extremes), or nothing for a path without points.
[[nodiscard]] std::optional<bbox> path_bbox(std::vector<command> const& commands);

/// One colour stop of a gradient, its offset from 0 to 1.
struct stop {
    double stop_offset = 0;
    css::color::color stop_color = css::color::color{css::color::rgb{}};
    double stop_opacity = 1;
    bool operator==(stop const&) const = default;
};

enum class spread_method { pad, reflect, repeat };

struct linear {
    double x1 = 0;
    double y1 = 0;
    double x2 = 1;
    double y2 = 0;
    bool operator==(linear const&) const = default;
};

/// A radial gradient from the focal circle (fx, fy, radius fr) to the circle (cx, cy, r). SVG's focal
/// circle is a point; a canvas gradient gives both circles.
struct radial {
    double cx = 0.5;
    double cy = 0.5;
    double r = 0.5;
    double fx = 0.5;
    double fy = 0.5;
    double fr = 0;
    bool operator==(radial const&) const = default;
};

/// A gradient with its geometry in the space that `gradient_transform` maps to user space (for
/// objectBoundingBox, the box's mapping is already part of it).
struct gradient {
    std::variant<linear, radial> gradient_type;
    std::vector<stop> gradient_stops;
    transform gradient_transform;
    svg::spread_method gradient_spread = spread_method::pad;
    bool operator==(gradient const&) const = default;
};

struct svg_block;

/// A pattern tile: its rectangle in pattern space, the transform from pattern space to user space,
/// and the content drawn in the tile's own coordinates.
struct svg_tiling {
    double tiling_x = 0;
    double tiling_y = 0;
    double tiling_width = 0;
    double tiling_height = 0;
    transform tiling_transform;
    ref<svg_block> tiling_content;
    bool operator==(svg_tiling const&) const = default;
};

struct paint_none {
    bool operator==(paint_none const&) const = default;
};

struct paint_color {
    css::color::color color;
    bool operator==(paint_color const&) const = default;
};

struct paint_gradient {
    ref<svg::gradient> gradient;
    bool operator==(paint_gradient const&) const = default;
};

struct paint_tiling {
    ref<svg::svg_tiling> tiling;
    bool operator==(paint_tiling const&) const = default;
};

/// The paint of a fill or stroke, resolved.
using used_paint = std::variant<paint_none, paint_color, paint_gradient, paint_tiling>;

/// What painting needs of an element's style, in user units.
struct used_svgstyle {
    bool svg_visible = true;
    double opacity = 1;
    double fill_opacity = 1;
    double stroke_opacity = 1;
    css::svgstyle::fill_rule fill_rule = css::svgstyle::fill_rule::nonzero;
    double stroke_width = 1;
    css::svgstyle::linecap stroke_linecap = css::svgstyle::linecap::butt;
    css::svgstyle::linejoin stroke_linejoin = css::svgstyle::linejoin::miter;
    double stroke_miterlimit = 4;
    /// Even in length; empty for a solid line.
    std::vector<double> stroke_dasharray;
    double stroke_dashoffset = 0;
    bool operator==(used_svgstyle const&) const = default;
};

/// One shape of a clip path, with the transform from its own space to the clip path's.
struct clip_shape {
    transform clip_shape_transform;
    css::svgstyle::fill_rule clip_rule = css::svgstyle::fill_rule::nonzero;
    std::vector<command> clip_commands;
    bool operator==(clip_shape const&) const = default;
};

/// A clip path: the union of its shapes, in the space the matrix maps to the element's user space,
/// intersected with its own clip path if it has one.
struct clippath {
    transform clip_matrix;
    std::vector<clip_shape> clip_shapes;
    ref<clippath> clip_parent;
    bool operator==(clippath const&) const = default;
};

struct svg;

struct compound {
    std::vector<svg> compound_children;
};

/// A luminance mask: drawings whose brightness gives the opacity of what they mask, in the masked
/// element's user space, outside the region nothing shows.
struct mask {
    std::vector<svg> mask_content;
    bbox mask_region;
};

struct shape {
    used_paint shape_fill;
    used_paint shape_stroke;
    std::vector<command> shape_commands;
};

/// A raster image drawn into the rectangle (in user units) of its viewport, after the transform that
/// maps its pixels' unit square to it.
struct image {
    ref<images::image_id> image_content;
    transform image_placement;
    bbox image_viewport;
};

/// A run of text in one style, shaped with the fonts of the run, its baseline start resolved.
struct text_run {
    /// Where the run starts on its baseline, after positions, shifts and anchoring.
    point run_pos;
    fonts::shared_graphemes run_glyphs;
    /// The span's own fill and stroke: a tspan may paint differently from its text.
    used_paint run_fill;
    used_paint run_stroke;
    double run_stroke_width = 0;
    double run_stroke_opacity = 1;
    /// The style of the span: its font, and letter spacing; sizes in user units.
    ref<css::style::style> run_style;
    double run_font_size = 16;
    double run_letter_spacing = 0;
    double run_width = 0;
    /// While building: an absolute position starts a new chunk; dx and dy shift the run.
    std::optional<double> run_x;
    std::optional<double> run_y;
    double run_dx = 0;
    double run_dy = 0;
    /// The anchor of a chunk that begins with this run: 0 start, 0.5 middle, 1 end.
    double run_anchor = 0;
    /// The run's turn about its start, in degrees clockwise (rotate lists, text on a path).
    double run_rotate = 0;
};

struct text {
    std::vector<text_run> text_runs;
};

using svgbody = std::variant<compound, shape, image, text>;

/// One element of the display list.
struct svg {
    used_svgstyle svgstyle;
    /// The element's own transform, then its viewport's (nested svg, symbol, marker).
    transform svg_transform;
    std::optional<transform> viewbox_transform;
    /// A viewport's clip rectangle, in the space after `svg_transform` and before `viewbox_transform`.
    std::optional<bbox> viewport_clip;
    ref<vellum::svg::clippath> clippath;
    ref<vellum::svg::mask> mask;
    vellum::svg::svgbody svgbody;
};

struct viewbox {
    double minx = 0;
    double miny = 0;
    double viewboxw = 0;
    double viewboxh = 0;
    bool operator==(viewbox const&) const = default;
};

enum class align_pos { min, mid, max };

/// preserveAspectRatio: no alignment (stretch), or an alignment with meet or slice.
struct par {
    bool align_none = false;
    align_pos x_align = align_pos::mid;
    align_pos y_align = align_pos::mid;
    bool slice = false;
    bool operator==(par const&) const = default;
};

/// A whole drawing: its content in user units, and the size of its viewport in CSS pixels with the
/// transform from user space into it.
struct svg_block {
    std::vector<svg> svg_content;
    double viewport_width = 300;
    double viewport_height = 150;
    /// Whether width and height came from the drawing itself (attributes or viewBox) rather than defaults.
    bool viewport_sized = false;
    /// Neither width nor height was given, only a viewBox: the drawing has proportions but no size of its
    /// own, and as a box it is as wide as its container (the root's width defaults to 100%).
    bool viewport_ratio_only = false;
    transform root_transform;
};

/// The transform that puts a viewBox into a viewport of the given size at (x, y).
transform view_transform(viewbox const& vb, par const& p, double x, double y, double width, double height);

} // namespace vellum::svg
