// Absolutely positioned and fixed boxes: their place and size solved against the containing block (the
// padding box of the nearest positioned ancestor, or the page area), the boxes hung on that ancestor,
// and the fixed boxes repeated on every page.
#pragma once

#include "pack/areas.hpp"
#include "pack/boxes.hpp"
#include "pack/page_info.hpp"
#include "prepack/prepack.hpp"

#include <cstddef>
#include <functional>
#include <optional>
#include <vector>

namespace vellum::pack::positioned {

/// Whether the style takes the box out of the flow by `position: absolute` or `fixed`.
bool is_out_of_flow(css::style::style const& s);

/// Whether the style asks for `position: fixed`.
bool is_fixed(css::style::style const& s);

/// Whether the box is positioned (relative, absolute or fixed): its padding box contains the
/// absolutely positioned boxes inside it.
bool is_positioned(css::style::style const& s);

/// One axis of the positioning equation, in points from the containing block's start edge:
/// start offset + start margin + edges (borders and padding) + size + end margin + end offset = room.
/// An absent value is "auto".
struct axis_input {
    float axis_room = 0;
    std::optional<float> axis_start;
    std::optional<float> axis_end;
    std::optional<float> axis_size;
    std::optional<float> axis_margin_start;
    std::optional<float> axis_margin_end;
    float axis_edges = 0;
    /// Where the box would start in the flow, from the containing block's start edge; right to left,
    /// where its (right) margin edge would end.
    float axis_static = 0;
    /// The containing block runs right to left: an over-constrained equation gives up the start (left)
    /// offset instead of the end one, and a box left at its static place keeps its right edge there.
    bool axis_rtl = false;
    bool operator==(axis_input const&) const = default;
};

/// What the equation leaves: the start offset, the margins and the size of the content box.
struct axis_solution {
    float axis_offset = 0;
    float axis_margin_start = 0;
    float axis_margin_end = 0;
    float axis_size = 0;
    bool operator==(axis_solution const&) const = default;
};

/// The used content size for an "auto" size, given the room left for it: shrink-to-fit for widths,
/// the content's height for heights.
using auto_size = std::function<float(float room)>;

/// Solves the horizontal equation of an absolutely positioned box (left, width, right and the side
/// margins), left to right.
axis_solution solve_horizontal(axis_input const& in, auto_size const& shrink_to_fit);

/// Solves the vertical equation (top, height, bottom and the margins); `content_height` gives the
/// height of the content when the height is "auto" and is not fixed by the offsets.
axis_solution solve_vertical(axis_input const& in, auto_size const& content_height);

/// The padding box an absolutely positioned box is placed against. The height may be unknown.
struct containing_block {
    float cb_left = 0;
    float cb_top = 0;
    float cb_width = 0;
    std::optional<float> cb_height;
};

/// An absolutely positioned box packed, and the page after it (its targets, counters, footnotes).
struct placed {
    ref<box> placed_box;
    page_info placed_info;
};

/// Packs an absolutely positioned block against its containing block; `static_pos` is where its top
/// left margin corner would have been in the flow (its top right one, right to left).
placed pack_absolute(page_info info,
                     prepack::block const& b,
                     util::pos::pos static_pos,
                     containing_block const& cb);

/// The containing block that a packed box's padding box gives.
containing_block padding_box_of(box const& b);

/// Packs the absolutely positioned blocks gathered in `info` from index `from` on against the padding
/// box of `b`, and hangs them on it.
void hang_inner(page_info& info, std::size_t from, box& b);

/// The blocks of the document with `position: fixed`, in document order, inner ones and those of the
/// margin boxes' flows too.
std::vector<prepack::block> fixed_blocks(prepack::pack_document const& doc);

/// Packs what is left in `info` of the absolute blocks of the page, against the page area, and the
/// document's fixed blocks, and adds their boxes to the page's content.
void place_on_page(page_info& info,
                   areas::area const& page_area,
                   std::vector<prepack::block> const& fixed,
                   std::vector<ref<box>>& content);

} // namespace vellum::pack::positioned
