// A block set in another writing mode than the flow around it (vertical lines in a horizontal page):
// its lines are packed across the block's height, and the box that holds them stands in the flow
// turned a quarter turn clockwise.
#pragma once

#include "pack/block.hpp"

namespace vellum::pack::turned {

/// Whether a block is written in another mode than the flow it stands in.
bool is_turned(page_info const& info, prepack::block const& b);

/// Packs a turned block: its content is laid out with width and height swapped, lines as long as the
/// block is high (or as the area is, for an "auto" height), and its box takes the depth of those lines
/// as its width. Lines deeper than the flow is wide continue in the block's remaining portion, below or on
/// the next page.
block::block_out pack_turned(page_info info,
                             block::block_type const& type,
                             prepack::block const& b,
                             margin_collapsing::gap gap,
                             areas::areas a);

} // namespace vellum::pack::turned
