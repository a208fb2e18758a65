// One block of the flow poured into the areas: its margins collapsed with what came before, its
// borders and padding taken off, its content (paragraph, child blocks, list item) packed below, and
// the block placed whole, split with the rest handed back as a continuation, or refused.
#pragma once

#include "pack/areas.hpp"
#include "pack/boxes.hpp"
#include "pack/margin_collapsing.hpp"
#include "pack/page_info.hpp"
#include "prepack/prepack.hpp"

#include <optional>
#include <span>
#include <utility>
#include <variant>

namespace vellum::pack::block {

/// The role in which a block is packed.
struct inflow_block {
    bool operator==(inflow_block const&) const = default;
};
struct float_block {
    bool operator==(float_block const&) const = default;
};
struct inline_block {
    bool operator==(inline_block const&) const = default;
};
struct absolute_block {
    float absolute_x = 0;
    float absolute_y = 0;
    bool operator==(absolute_block const&) const = default;
};
enum class static_block_type { static_absolute, static_float, static_normal };
struct static_block {
    block::static_block_type static_kind = static_block_type::static_normal;
    bool operator==(static_block const&) const = default;
};
struct footnote_block {
    bool operator==(footnote_block const&) const = default;
};
struct page_float_block {
    bool operator==(page_float_block const&) const = default;
};

using block_type = std::variant<absolute_block,
                                float_block,
                                inline_block,
                                static_block,
                                footnote_block,
                                page_float_block,
                                inflow_block>;

/// The block went into the flow: its box, the rest of it if it was split, and the top and bottom of
/// its content.
struct packed_main {
    ref<box> b_packed_box;
    std::optional<prepack::block> b_remain_portion;
    std::pair<float, float> b_content_top_bottom;
};

/// The block gave only page floats or footnotes, nothing in the flow; it is tried again.
struct packed_page_stuff {
    std::optional<prepack::block> bp_remain_portion;
};

/// The block didn't fit at all.
struct none {
    bool operator==(none const&) const = default;
};

using block_res = std::variant<packed_main, packed_page_stuff, none>;

/// A block's result with the state after it: the page, the areas with their top below the block,
/// and the margins that the next block collapses with.
struct block_out {
    block_res res;
    page_info out_info;
    areas::areas out_areas;
    margin_collapsing::gap out_gap;
    /// A forced break (always, left, right) inside the block that ended it on this page.
    std::optional<css::box::page_break> out_forced_break;
    /// That break was a column break inside a multi-column container.
    bool out_column_break = false;
};

/// Packs a block into the areas, below the margins of `gap`. The areas' container gives the block's
/// containing block: its left and right edges and the bottom it may reach.
block_out pack_block(page_info info,
                     block_type const& type,
                     prepack::block const& b,
                     margin_collapsing::gap gap,
                     areas::areas areas);

/// Moves a box and everything in it; layout places content on the page, so a move reaches every
/// line and span.
void shift_box(box& b, float dx, float dy);

/// How far a relatively positioned box moves from its place, right and up; nothing for other boxes.
std::pair<float, float> relative_offset(css::style::style const& s, css::used_style::used_style const& used);

/// The baseline of the first line inside a box, if it holds a line.
std::optional<float> first_baseline(box const& b);

/// The baseline of the last line inside a box, if it holds a line.
std::optional<float> last_baseline(box const& b);

/// The border-box width a packed box needs for what it holds: for a box of "auto" width the widest of
/// its lines and of its children's margin boxes, plus its own borders and padding; any other box keeps
/// its width.
float natural_width(box const& b);

/// Packs a box of shrink-to-fit width (a float, an inline block): a box of "auto" width is as wide as
/// the room, but no narrower than its min-content width and no wider than its max-content width.
block_out pack_fit(page_info info,
                   block_type const& type,
                   prepack::block const& b,
                   margin_collapsing::gap gap,
                   areas::areas areas);

/// The width of the margin box a float takes in a container of the given width, found without packing
/// the float where its width follows from what it holds.
float float_width(page_info const& info, prepack::block const& b, float container_width);

/// An atomic inline box packed for a line: its width with margins, and its box placed with its left
/// margin edge at x = 0 and its baseline (that of its last line, or its bottom margin edge when it has
/// no line or hides its overflow) at y = 0.
struct packed_inline {
    float inline_width = 0;
    ref<box> inline_box;
};

/// Packs an inline block in a container of the given width, never split: its trial bottom lies far
/// below any page.
packed_inline pack_inline_block(page_info info, prepack::block const& b, float container_width);

/// Whether the block's page break is a forced one.
bool is_forced(css::box::page_break b);

/// The forced break in front of a list of blocks: that of the first block, or of its first child and
/// so on down, since a break in front of a first child falls in front of its parent too.
std::optional<css::box::page_break> leading_break(prepack::block_list const& blocks);

} // namespace vellum::pack::block
