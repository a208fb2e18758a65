// Tables in the flow: the grid padded, the column widths found, the rows packed on the page with the
// header and footer repeated on every page of a table split across pages, the borders collapsed.
#pragma once

#include "css/used_style.hpp"
#include "pack/areas.hpp"
#include "pack/boxes.hpp"
#include "pack/page_info.hpp"
#include "prepack/prepack.hpp"

#include <optional>

namespace vellum::pack::table_pack {

/// While one lives, the widths measured of table cells are kept and reused: a table nested in the cell of
/// another is then measured once, not once more for every trial width of every table around it (which
/// grows with the power of the depth). Made around the packing of one table block, whose cells stay
/// alive meanwhile; the widths are forgotten when the outermost scope ends.
class measure_scope {
public:
    measure_scope();
    ~measure_scope();
    measure_scope(measure_scope const&) = delete;
    measure_scope& operator=(measure_scope const&) = delete;
};

/// The widths measured of the table cells whose content reads nothing of the page it is packed on
/// (plain text, no generated content, notes, floats or boxes inside): the passes of one conversion pack
/// the same cells, which measure the same in each, so the second pass takes the first one's widths.
/// Each entry keeps its cell's content and style alive, so that no other cell can come to stand at
/// their addresses.
struct measured_cells;

std::shared_ptr<measured_cells> new_measured_cells();

/// Pads a table's grid and finds its column widths in a containing block of `available` content
/// width. The result holds the table ready to be packed, part after part.
prepack::computed_table_anony_box compute_table(page_info const& info,
                                                prepack::table_anony_box const& t,
                                                ref<css::style::style> const& table_style,
                                                float available);

/// The table block's used style once its columns are known: its content is as wide as the grid, and
/// under collapsing borders it has no padding and no border of its own (the grid draws them).
void use_table_width(prepack::computed_table_anony_box const& t, css::used_style::used_style& used);

/// What packing a part of a table gave.
struct packed_table {
    /// Not even one row fitted.
    bool refused = false;
    pack::box_content content = boxes{};
    /// The rest of the table for the next page.
    std::optional<prepack::bcontent> remain;
    page_info info;
    /// The areas below the part.
    areas::areas areas;
};

/// Packs a table (or the rest of one) into the areas narrowed to the table's content box. The captions
/// stand outside the table's border and padding: `caption_left` and `caption_right` are those edges'
/// widths, which the captions span too.
packed_table pack_table(page_info info,
                        prepack::computed_table_anony_box const& t,
                        areas::areas const& inner,
                        float caption_left = 0,
                        float caption_right = 0);

} // namespace vellum::pack::table_pack
