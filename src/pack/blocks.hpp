// The walk over sibling blocks: each is packed in turn below the previous one, with margins
// collapsing between them; the walk ends where a block doesn't fit, is split, or a forced break
// falls, and it moves the break back over blocks that ask not to be separated from what follows.
#pragma once

#include "pack/areas.hpp"
#include "pack/block.hpp"
#include "pack/boxes.hpp"
#include "pack/margin_collapsing.hpp"
#include "pack/page_info.hpp"
#include "prepack/prepack.hpp"

#include <optional>
#include <span>
#include <utility>
#include <variant>
#include <vector>

namespace vellum::pack::blocks {

/// Some blocks went into the flow; what didn't (the continuation of a split block and the blocks
/// after it) is handed back in order.
struct packed_main {
    std::vector<ref<box>> bs_packed_boxes;
    prepack::block_list bs_remain_portion;
    std::pair<float, float> bs_content_top_bottom;
};

/// Only page floats or footnotes were placed.
struct packed_page_stuff {
    prepack::block_list bsp_remain_portion;
};

/// Nothing of the list could be placed here.
struct none {
    bool operator==(none const&) const = default;
};

using blocks_res = std::variant<packed_main, packed_page_stuff, none>;

struct blocks_out {
    blocks_res res;
    page_info out_info;
    areas::areas out_areas;
    margin_collapsing::gap out_gap;
    /// The forced break (always, left, right) that ended the walk, if one did.
    std::optional<css::box::page_break> out_forced_break;
    /// That break was a column break inside a multi-column container.
    bool out_column_break = false;
};

/// Packs sibling blocks into the areas from their top down.
blocks_out pack_blocks(page_info info,
                       prepack::block_list const& blocks,
                       margin_collapsing::gap gap,
                       areas::areas areas);

} // namespace vellum::pack::blocks
