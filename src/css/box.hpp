// The value types of box properties: display and positioning, margins, borders, backgrounds, columns,
// pages. Many come in two forms from one template: the declared form holds units::length (em, px still
// open), the computed form holds float points.
#pragma once

#include "css/color.hpp"
#include "css/expr.hpp"
#include "css/page_rule.hpp"
#include "css/units.hpp"
#include "css/value.hpp"

#include <array>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace vellum::css::box {

/// The keyword "auto" where a length could stand.
struct auto_value {
    bool operator==(auto_value const&) const = default;
};

/// The keyword "none" where a length could stand.
struct none_value {
    bool operator==(none_value const&) const = default;
};

/// The keyword "normal" where a length could stand.
struct normal_value {
    bool operator==(normal_value const&) const = default;
};

// Lengths and percentages. Len is units::length while declared, float points once computed.

template <class Len>
using auto_length_percent = std::variant<auto_value, Len, units::percentage>;

template <class Len>
using length_or_percent = std::variant<Len, units::percentage>;

/// width and height.
using spec_width = auto_length_percent<units::length>;
using width = auto_length_percent<float>;

using spec_margin = auto_length_percent<units::length>;
using margin = auto_length_percent<float>;

/// top, right, bottom, left.
using spec_offset = auto_length_percent<units::length>;
using position_offset = auto_length_percent<float>;

using spec_padding = length_or_percent<units::length>;
using padding = length_or_percent<float>;

using spec_min_width = length_or_percent<units::length>;
using min_width = length_or_percent<float>;

using spec_max_width = std::variant<none_value, units::length, units::percentage>;
using max_width = std::variant<none_value, float, units::percentage>;

/// letter-spacing, word-spacing and column-gap: "normal" or a length.
using spec_spacing = std::variant<normal_value, units::length>;
using letter_word_spacing = std::variant<normal_value, float>;

using spec_column_width = std::variant<auto_value, units::length>;
using column_width = std::variant<auto_value, float>;

/// "auto" or a number of columns.
using column_count = std::variant<auto_value, int>;

// Display, floats, flows and positioning.

enum class display_kind {
    inline_,
    block,
    none,
    inline_block,
    inline_table,
    table,
    table_caption,
    table_header_group,
    table_footer_group,
    table_row_group,
    table_row,
    table_cell,
    table_column,
    table_column_group,
    list_item,
    run_in,
};

/// Where footnotes collect: at the foot of the page or of the column.
enum class footnote_container { page, column };

/// An element shown as a footnote in place of its own box.
struct display_footnote {
    footnote_container display_container = footnote_container::page;
    bool display_is_inline = false;
    bool operator==(display_footnote const&) const = default;
};

using display = std::variant<display_kind, display_footnote>;

enum class float_kind { none, inside, outside, left, right };

/// Which edge of the page or column a page float goes to. The corners are the top or bottom edge at
/// the outside of the page (right on a right page, left on a left one); `snap` goes to the edge nearer
/// to where the float was met.
enum class float_edge { top, bottom, top_corner, bottom_corner, snap };

/// A float to the top or bottom of a page or column; `next` defers it to the next one, `unless_fit`
/// floats it only when it doesn't fit where it stands.
struct page_column_float {
    float_edge float_to_edge = float_edge::top;
    bool float_next = false;
    bool float_unless_fit = false;
    bool operator==(page_column_float const&) const = default;
};

struct float_page {
    page_column_float page_float;
    bool operator==(float_page const&) const = default;
};

struct float_column {
    page_column_float column_float;
    bool operator==(float_column const&) const = default;
};

struct float_footnote {
    footnote_container float_container = footnote_container::page;
    bool float_is_inline = false;
    bool operator==(float_footnote const&) const = default;
};

/// An element moved into a region of the page margin.
struct float_region {
    page_rule::region float_region_name = page_rule::region::top_center;
    bool operator==(float_region const&) const = default;
};

using floaty = std::variant<float_kind, float_page, float_column, float_footnote, float_region>;

enum class flow_when { current, start };

struct flow_normal {
    bool operator==(flow_normal const&) const = default;
};

/// An element taken out of the flow into a named flow, shown where the page's margin boxes ask for it.
struct flow_static {
    std::string flow_name;
    flow_when flow_start = flow_when::current;
    bool operator==(flow_static const&) const = default;
};

using flowy = std::variant<flow_normal, flow_static>;

enum class position_kind { static_, relative, absolute, fixed };

/// An element that repeats in the page margin as a running element.
struct position_running {
    std::string running_name;
    bool operator==(position_running const&) const = default;
};

using position = std::variant<position_kind, position_running>;

enum class clear { none, left, right, inside, outside, both };

// Breaks and pages.

/// A break before, after or inside a box. `avoid` avoids every break; `avoid_page` only a break that ends
/// a page and `avoid_column` only one that ends a column.
enum class page_break { auto_, always, avoid, left, right, avoid_page, avoid_column };
enum class column_break { auto_, always };
enum class page_group { auto_, start };

/// A named page; nothing for "auto".
using page = std::optional<std::string>;

/// The marks of `quotes`: an open and a close mark for each level of nesting, outermost first.
struct quote_marks {
    std::vector<std::pair<std::string, std::string>> quote_pairs;
    bool operator==(quote_marks const&) const = default;
};

/// `quotes`: "auto" (the marks of the language), "none", or marks of one's own.
using quotes = std::variant<auto_value, none_value, quote_marks>;

enum class vellum_footnote_policy { auto_, line, block };

// Borders.

enum class line_style { none, hidden, dashed, dotted, solid, inset, outset, groove, ridge, double_ };

enum class border_keyword { thin, medium, thick };

using spec_border_width = std::variant<border_keyword, units::length>;

/// One corner's radii, horizontal and vertical.
template <class Len>
struct radius_of {
    length_or_percent<Len> radius_h;
    length_or_percent<Len> radius_v;
    bool operator==(radius_of const&) const = default;
};

using spec_radius = radius_of<units::length>;
using radius = radius_of<float>;

/// One side of the border, computed.
struct border {
    color::color border_color = color::black();
    line_style border_style = line_style::none;
    float border_width = 0;
    bool operator==(border const&) const = default;
};

/// The four sides and corners of an element's border.
struct borders {
    radius borders_border_bottom_left_radius{0.0f, 0.0f};
    radius borders_border_bottom_right_radius{0.0f, 0.0f};
    radius borders_border_top_left_radius{0.0f, 0.0f};
    radius borders_border_top_right_radius{0.0f, 0.0f};
    border borders_bottom;
    border borders_left;
    border borders_right;
    border borders_top;
    bool operator==(borders const&) const = default;
};

/// How far the border's painting extends: "normal", or one to four outsets (top, right, bottom, left).
using spec_border_clip = std::optional<std::array<units::length, 4>>;
using border_clip = std::optional<std::array<float, 4>>;

enum class border_collapse { separate, collapse };

/// border-spacing, horizontal and vertical.
template <class Len>
struct cellspacing_of {
    Len cellspacing_h{};
    Len cellspacing_v{};
    bool operator==(cellspacing_of const&) const = default;
};

using spec_cellspacing = cellspacing_of<units::length>;
using cellspacing = cellspacing_of<float>;

// Backgrounds.

enum class background_attachment { scroll, fixed, local };

/// The box that background-clip and background-origin refer to.
enum class background_box { border_box, padding_box, content_box };

enum class background_repeat0 { repeat, repeat_x, repeat_y, no_repeat, round, space };

/// How one layer repeats, across and down.
struct background_repeat {
    background_repeat0 repeat_x = background_repeat0::repeat;
    background_repeat0 repeat_y = background_repeat0::repeat;
    bool operator==(background_repeat const&) const = default;
};

/// One layer's image: none, a URL, or a gradient function kept as written for the painter.
using bg_image = std::variant<none_value, value::url, value::function>;

template <class Len>
struct bg_position_of {
    length_or_percent<Len> bg_position_x = units::percentage{0};
    length_or_percent<Len> bg_position_y = units::percentage{0};
    bool operator==(bg_position_of const&) const = default;
};

using spec_bg_position = bg_position_of<units::length>;
using bg_position = bg_position_of<float>;

struct bg_cover {
    bool operator==(bg_cover const&) const = default;
};

struct bg_contain {
    bool operator==(bg_contain const&) const = default;
};

template <class Len>
struct bg_size_pair {
    auto_length_percent<Len> bg_size_w = auto_value{};
    auto_length_percent<Len> bg_size_h = auto_value{};
    bool operator==(bg_size_pair const&) const = default;
};

template <class Len>
using bg_size_of = std::variant<bg_cover, bg_contain, bg_size_pair<Len>>;

using spec_bg_size = bg_size_of<units::length>;
using bg_size = bg_size_of<float>;

/// An element's background; every field but the colour has one entry per layer.
struct background {
    std::vector<box::background_attachment> background_attachment{box::background_attachment::scroll};
    color::color background_color = color::transparent{};
    std::vector<box::bg_image> background_image{box::none_value{}};
    std::vector<box::bg_position> background_position{box::bg_position{}};
    std::vector<box::background_repeat> background_repeat{box::background_repeat{}};
    std::vector<box::bg_size> background_size{box::bg_size_pair<float>{}};
    std::vector<box::background_box> background_origin{box::background_box::padding_box};
    std::vector<box::background_box> background_clip{box::background_box::border_box};
    bool operator==(background const&) const = default;
};

struct resolution_normal {
    bool operator==(resolution_normal const&) const = default;
};

/// The resolution the image file states.
struct resolution_from_image {
    bool operator==(resolution_from_image const&) const = default;
};

/// A resolution in dots per inch.
struct resolution_dpi {
    float dpi = 96;
    bool operator==(resolution_dpi const&) const = default;
};

using image_resolution = std::variant<resolution_normal, resolution_from_image, resolution_dpi>;

// Other box values.

enum class box_sizing { content_box, padding_box, border_box };
enum class box_decoration_break { clone, slice };
enum class caption_page { first, following, all_pages };
enum class caption_side { top, bottom };
enum class overflow { visible, hidden };
/// How a replaced element's picture fills its content box.
enum class object_fit { fill, contain, cover, none, scale_down };
enum class table_layout { fixed, auto_ };
enum class unicode_bidi { normal, embed, bidi_override };
enum class writing_mode { horizontal, vertical };
enum class column_fill { balance, auto_ };
enum class column_span { none, all };
enum class direction { ltr, rtl };
enum class empty_cells { show, hide };
enum class visibility { visible, hidden, collapse };
enum class text_overflow { clip, ellipsis };
enum class list_style_position { inside, outside };
enum class bookmark_state { open, closed };

/// A heading level for the PDF outline, or "none".
using bookmark_level = std::variant<none_value, int>;

/// "auto" or a stacking level.
using z_index = std::variant<auto_value, int>;

/// A URL, or nothing for "none".
using url_or_none = std::optional<value::url>;

/// Counter names with their increments or reset values; empty for "none".
using counters = std::vector<std::pair<std::string, int>>;

/// Counters as declared: a value may come from an attribute, as an ordered list's start does.
using spec_counters = std::vector<std::pair<std::string, expr::or_attr<int>>>;

/// A clipping rectangle: top, right, bottom, left, each "auto" (nothing) or a length.
template <class Len>
struct clip_rect {
    std::array<std::optional<Len>, 4> clip_sides{};
    bool operator==(clip_rect const&) const = default;
};

using spec_clip = std::variant<auto_value, clip_rect<units::length>>;
using clip = std::variant<auto_value, clip_rect<float>>;

/// The counter style of list markers: "none", a named style, or a literal string.
struct list_style_named {
    std::string list_style_name;
    bool operator==(list_style_named const&) const = default;
};

struct list_style_string {
    std::string list_style_text;
    bool operator==(list_style_string const&) const = default;
};

using list_style_type = std::variant<none_value, list_style_named, list_style_string>;

enum class vertical_align_kind { baseline, sub, super, top, text_top, middle, bottom, text_bottom };

using spec_vertical_align = std::variant<vertical_align_kind, units::length, units::percentage>;
/// Computed: percentages have become points against the element's own line height.
using vertical_align = std::variant<vertical_align_kind, float>;

// Transforms.

template <class LP>
struct transform_matrix {
    std::array<float, 6> matrix_values{1, 0, 0, 1, 0, 0};
    bool operator==(transform_matrix const&) const = default;
};

template <class LP>
struct transform_translate {
    LP translate_x{};
    LP translate_y{};
    bool operator==(transform_translate const&) const = default;
};

struct transform_scale {
    float scale_x = 1;
    float scale_y = 1;
    bool operator==(transform_scale const&) const = default;
};

/// A rotation in radians, clockwise on the page.
struct transform_rotate {
    float rotate_angle = 0;
    bool operator==(transform_rotate const&) const = default;
};

/// Skew angles in radians.
struct transform_skew {
    float skew_x = 0;
    float skew_y = 0;
    bool operator==(transform_skew const&) const = default;
};

template <class LP>
using transform_op = std::
    variant<transform_matrix<LP>, transform_translate<LP>, transform_scale, transform_rotate, transform_skew>;

/// The transform functions in the order written; empty for "none".
using spec_transform = std::vector<transform_op<units::length_percent>>;
using transform = std::vector<transform_op<length_or_percent<float>>>;

template <class LP>
struct transform_origin_of {
    LP origin_x{};
    LP origin_y{};
    bool operator==(transform_origin_of const&) const = default;
};

using spec_transform_origin = transform_origin_of<units::length_percent>;
using transform_origin = transform_origin_of<length_or_percent<float>>;

} // namespace vellum::css::box
