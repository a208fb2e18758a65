// Multi-column layout: the content of a multi-column container poured into side-by-side columns,
// one column after another with the block flow, what the last column can't hold carried on to the
// next page; with `column-fill: balance` the set is packed again with its bottom moved until the
// columns stand at even heights. Rules are drawn at the middle of each gap.
#pragma once

#include "css/style.hpp"
#include "pack/areas.hpp"
#include "pack/boxes.hpp"
#include "pack/page_info.hpp"
#include "prepack/prepack.hpp"

#include <optional>
#include <vector>

namespace vellum::pack::columns {

/// The geometry of a container's columns: their width, the gap between two of them, and how many.
struct column_info {
    float column_width = 0;
    float gap_width = 0;
    int column_total = 1;
    bool operator==(column_info const&) const = default;
};

/// Whether a style makes its block a multi-column container (a column count or a column width).
bool has_columns(css::style::style const& s);

/// The columns a container of the given content width holds, by the rules of CSS multi-column layout:
/// a column width is a minimum that sets the count when the count is "auto" and caps it otherwise,
/// and the columns share what the gaps leave.
column_info column_geometry(css::style::style const& s, float available_width);

/// The x of the left edge of column `i` in a container whose content starts at `left`.
inline float column_left(column_info const& g, float left, int i) {
    return left + static_cast<float>(i) * (g.column_width + g.gap_width);
}

/// One column of a pass: what went in and how far down it reaches.
struct column_res {
    std::vector<ref<box>> packed_column;
    float column_content_top = 0;
    float column_content_bottom = 0;
    /// The height the column left unused above the area's bottom.
    float bottom_diff = 0;
    /// The room left between the column's text and the footnotes standing at its foot: the column
    /// reaches its bottom, but its content would need that much less.
    float notes_gap = 0;
};

/// One pass over the columns of a container.
struct columns_res {
    std::vector<column_res> packed_columns;
    /// The tallest column's height.
    float max_column_height = 0;
    /// The height of the footnotes the page holds after the pass.
    float page_stuff_height = 0;
    /// What the last column couldn't hold, for the next page.
    prepack::block_list s_remain_blocks;
    page_info s_out_page_info;
    /// A page break (not a column break) ended the columns on this page.
    std::optional<css::box::page_break> s_page_break;
    /// How many passes it took (for the benchmark and the tests).
    int s_passes = 1;
};

/// Why the columns are packed once more.
enum class retry_goal { to_pack_more_page_stuff, to_balance_column };

/// What the container's content gives: its columns, rules, and what goes on to the next page.
struct multicol_res {
    /// Nothing at all could be placed.
    bool refused = false;
    columnbox columns;
    /// The bottom of the columns (the top of what follows the container).
    float content_bottom = 0;
    std::optional<prepack::block_list> remain;
    page_info info;
    std::optional<css::box::page_break> forced;
    int passes = 0;
};

/// Packs the content of a multi-column container (the blocks of its column id) into `inner`, the
/// container's content area: `continuation` for a container continued from the page before (its
/// first column's top margins are swallowed), `fixed_height` when the container's height is set,
/// `max_height` when its max-height is: the columns stand no taller, but may stand shorter.
multicol_res pack_columns(page_info info,
                          ref<css::style::style> const& container_style,
                          prepack::block_list const& blocks,
                          int column_id,
                          areas::area const& inner,
                          bool continuation,
                          std::optional<float> fixed_height,
                          std::optional<float> max_height = std::nullopt);

} // namespace vellum::pack::columns
