// The output tree of layout: a packed page with its body and margin boxes, blocks as positioned boxes,
// paragraphs as line boxes of positioned text runs and inline boxes. The painter reads nothing else.
//
// Coordinates are points on the page, the y axis growing upward from the bottom of the media box. A box
// is placed by the top left corner of its border box; the content of a line box is placed with its x on
// the page and its y relative to the line's baseline.
#pragma once

#include "css/page.hpp"
#include "css/page_rule.hpp"
#include "css/style.hpp"
#include "pack/page_label.hpp"
#include "css/used_style.hpp"
#include "pack/areas.hpp"
#include "prepack/prepack.hpp"
#include "text/font_metrics.hpp"
#include "text/fonts/graphemes.hpp"
#include "util/pos.hpp"
#include "util/ref.hpp"
#include "util/size.hpp"

#include <optional>
#include <variant>
#include <vector>

namespace vellum::pack {

struct box;
struct box_content;
struct nested_spanbox;

// ---- Text runs ------------------------------------------------------------------------------------------

/// A run of letters and the spaces that joined it.
struct normal {
    bool operator==(normal const&) const = default;
};

/// A space that counts as a character (a fixed-width space such as U+2002) and never stretches.
struct charlike_space {
    bool operator==(charlike_space const&) const = default;
};

/// Preserved white space of `white-space: pre` and friends.
struct pre_space {
    bool operator==(pre_space const&) const = default;
};

/// A forced line break; it shows nothing.
struct newline {
    bool operator==(newline const&) const = default;
};

/// A leader: its graphemes are one copy of the pattern, repeated across the run's width when painted.
struct leader {
    /// The width of one copy of the pattern.
    float leader_width = 0;
    bool operator==(leader const&) const = default;
};

/// The first-line indent; it shows nothing.
struct indent {
    bool operator==(indent const&) const = default;
};

/// An inter-word space with the stretch and shrink that justification may use.
struct glue {
    float glue_stretchability = 0;
    float glue_shrinkability = 0;
    bool operator==(glue const&) const = default;
};

using charsbox_type = std::variant<normal, charlike_space, pre_space, newline, leader, indent, glue>;

/// Graphemes of one style, set from `charsbox_x` on the baseline shifted by `charsbox_y`.
struct charsbox {
    float charsbox_x = 0;
    /// The shift of the run's baseline above the line's baseline.
    float charsbox_y = 0;
    float charsbox_w = 0;
    fonts::shared_graphemes charsbox_content;
    pack::charsbox_type charsbox_type = normal{};
    fonts::direction charsbox_direction = fonts::direction::ltr;
    css::box::writing_mode charsbox_writing_mode = css::box::writing_mode::horizontal;
    bool operator==(charsbox const&) const = default;
};

/// An inline-level block (inline-block, inline-table) in a line; its box's y is relative to the
/// line's baseline, its x on the page, like everything in a line.
struct inline_box {
    ref<pack::box> inline_box_box;
};

/// What a line or an inline element holds: an inline element, an inline block, or a text run.
using spanbox = std::variant<ref<nested_spanbox>, inline_box, charsbox>;

/// An inline element's part on one line.
struct nested_spanbox {
    /// The left edge of the span's border box, and its width.
    float spanbox_x = 0;
    /// The top of the span's content area (its font's ascent) above the line's baseline, and the height
    /// of the content area; padding and borders lie outside it.
    float spanbox_y = 0;
    float spanbox_w = 0;
    float spanbox_h = 0;
    /// The span's baseline shift (vertical-align) above the line's baseline.
    float spanbox_base = 0;
    std::vector<spanbox> spanbox_content;
    ref<css::style::style> spanbox_style;
    css::used_style::used_style spanbox_used_style;
    font_metrics::font_metrics_scaled spanbox_font_metrics;
    prepack::element_type spanbox_type = prepack::type_anonymous{};
    /// The bidi embedding level the span opens, if it opens one: its content reads in that level's
    /// direction.
    std::optional<int> spanbox_level;
    /// The ellipsis to show at the span's end when its text was cut by text-overflow.
    std::vector<fonts::grapheme> spanbox_ellipsis;
};

/// One line of a paragraph.
struct linebox {
    /// The start of the line on the page, and its width.
    float linebox_x = 0;
    float linebox_w = 0;
    /// The y of the baseline on the page.
    float linebox_base = 0;
    /// The first-line indent taken by this line, if any.
    std::optional<float> linebox_indent;
    std::vector<spanbox> linebox_content;
    font_metrics::font_metrics_scaled linebox_font_metrics;
    std::vector<fonts::grapheme> linebox_ellipsis;
};

/// A float met in a paragraph, placed beside its lines; its box is on the page, not on a baseline.
struct float_box {
    ref<pack::box> float_box_box;
};

/// A paragraph is packed into lines and floats.
using parabox = std::variant<linebox, float_box>;

// ---- Blocks ---------------------------------------------------------------------------------------------

/// A column rule, painted as a left border at `rulebox_pos`, running `rulebox_length` downward.
struct rulebox {
    ref<css::style::style> rulebox_style;
    util::pos::pos rulebox_pos;
    float rulebox_length = 0;
};

/// A list item: its content and its outside marker.
struct listbox {
    ref<pack::box> list_content;
    std::optional<ref<pack::box>> markerbox;
};

/// The columns of a multi-column block, and the rules between them.
struct columnbox {
    std::vector<ref<pack::box>> column_content;
    std::vector<rulebox> column_rules;
};

/// A replaced image, placed by the top left corner of its picture and drawn at a size.
struct imagebox {
    ref<images::image_id> imagebox_content;
    util::pos::pos imagebox_pos;
    util::size::size imagebox_size;
};

/// A row of a table: its box and its baseline.
struct rowbox {
    ref<pack::box> row_content;
    float row_base = 0;
};

/// The collapsed borders around one cell of a table, at the rectangle that the sides frame.
struct border_box {
    float border_box_x = 0;
    float border_box_y = 0;
    float border_box_w = 0;
    float border_box_h = 0;
    css::box::borders collapsed_borders;
};

/// A table's rows, and under `border-collapse: collapse` the borders of each row's cells.
struct tablebox {
    std::vector<rowbox> rows;
    std::vector<std::vector<border_box>> borders;
    /// Where the rows of cells start in `rows`, in grid order; the entries before paint the
    /// backgrounds of row groups and rows.
    std::size_t tablebox_cells_from = 0;
};

/// Content with the absolutely positioned boxes that have this box as their containing block.
struct with_abs {
    ref<pack::box_content> with_abs_content;
    std::vector<ref<pack::box>> with_abs_boxes;
};

/// Child blocks in flow order.
struct boxes {
    std::vector<ref<pack::box>> boxes_list;
};

/// The box around a table that holds its captions and the table itself.
struct table_anony_box {
    std::vector<ref<pack::box>> table_anony_boxes;
};

struct table {
    tablebox table_box;
};

struct para {
    std::vector<parabox> para_lines;
};

struct list {
    listbox list_box;
};

struct column {
    columnbox column_box;
};

struct image {
    imagebox image_box;
};

// FIXME: SVG content (svgbox) joins the variant with SVG painting.
using box_content_alternative = std::variant<with_abs, boxes, table_anony_box, table, para, list, column, image>;

/// What a box holds.
struct box_content : box_content_alternative {
    using box_content_alternative::box_content_alternative;
};

/// A block-level box, placed by the top left corner of its border box.
struct box {
    float box_x = 0;
    float box_y = 0;
    float box_w = 0;
    float box_h = 0;
    pack::box_content box_content = boxes{};
    ref<css::style::style> box_style;
    css::used_style::used_style box_used_style;
    /// The element the box stands for, with its ids and bookmark.
    prepack::element_type box_type = prepack::type_anonymous{};
    /// The content was packed with width and height swapped (vertical writing in horizontal flow) and is
    /// turned a quarter turn clockwise into the box.
    bool rotate_content = false;
};

// ---- Pages ----------------------------------------------------------------------------------------------

/// The page box with the page's content. The page box is painted like a block; the document's
/// background (from the root element) fills the page box's padding box.
struct body_box {
    std::vector<ref<box>> body_content;
    ref<css::style::style> body_box_style;
    css::used_style::used_style body_box_used_style;
    /// The top left corner of the page box's border box, and its size.
    util::pos::pos body_pos;
    util::size::size body_size;
    areas::area body_bleed_box;
    areas::area body_trim_box;
    /// The page box's background layers.
    std::vector<prepack::bg> body_box_bg;
    /// The document's background: the style and layers of the root element.
    ref<css::style::style> body_style;
    std::vector<prepack::bg> body_bg;
};

/// A box in the page margin with its content.
struct margin_box {
    std::optional<ref<box>> margin_content;
    ref<css::style::style> margin_box_style;
    css::used_style::used_style margin_box_used_style;
    std::vector<prepack::bg> margin_box_bg;
    /// The top left corner of the margin box's border box, and its size.
    util::pos::pos margin_pos;
    util::size::size margin_size;
    areas::area margin_bleed_box;
    css::page_rule::region margin_region = css::page_rule::region::top_center;
};

/// A page as layout leaves it.
struct packed_page {
    /// The printer's marks around the trim box.
    css::page::marks marks = css::page::marks::none;
    float mark_length = 0;
    float mark_offset = 0;
    areas::area mediabox;
    areas::area bleedbox;
    areas::area trimbox;
    /// A turn of the body on the paper, counter-clockwise.
    css::page::vellum_rotate_body rotate_body = css::page::vellum_rotate_body::rotate_body_0;
    bool shrink_margin_boxes = false;
    /// The body was laid out larger by this factor and is shrunk onto the page.
    std::optional<float> scaled;
    areas::area paper_content_area;
    pack::body_box body_box;
    std::vector<pack::margin_box> margin_boxes;
    /// The label a PDF viewer shows for the page.
    std::optional<pack::page_label> page_label;
};

} // namespace vellum::pack
