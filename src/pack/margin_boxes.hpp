// The rectangles of the sixteen boxes in the page margin: the four corners, three boxes along the top
// and the bottom edge, three down the left and the right edge, with the widths of a row shared out so
// that its centre box stays in the middle.
#pragma once

#include "css/page.hpp"
#include "pack/areas.hpp"

#include <array>
#include <optional>
#include <variant>

namespace vellum::pack::margin_boxes {

/// A box whose width (or height, in a column) is declared.
struct fixed_width {
    float fixed_width_value = 0;
    bool operator==(fixed_width const&) const = default;
};

/// A box sized by its content: the narrowest it can be and the width it takes unwrapped.
struct min_max_width {
    float min_width = 0;
    float max_width = 0;
    bool operator==(min_max_width const&) const = default;
};

using margin_box_width = std::variant<fixed_width, min_max_width>;

/// What the three boxes of one row (or column) want, from its start to its end: left, center, right
/// along the top and bottom; top, middle, bottom down the sides. An absent box has no content.
struct row_boxes {
    std::optional<margin_box_width> row_start;
    std::optional<margin_box_width> row_center;
    std::optional<margin_box_width> row_end;
    bool operator==(row_boxes const&) const = default;
};

/// The extents given to the three boxes of a row along it.
struct lcr_widths {
    float lcr_start = 0;
    float lcr_center = 0;
    float lcr_end = 0;
    bool operator==(lcr_widths const&) const = default;
};

/// The widths of the left, center and right boxes of a row `total` wide. With a center box the two
/// sides are as wide as each other, so that the center box is centred on the row.
lcr_widths cal_lcr_width(row_boxes const& row, float total);

/// The same for the top, middle and bottom boxes of a column `total` high.
lcr_widths cal_tmb_height(row_boxes const& column, float total);

/// What the boxes on each edge of the page want.
struct margin_rows {
    row_boxes rows_top;
    row_boxes rows_bottom;
    row_boxes rows_left;
    row_boxes rows_right;
    bool operator==(margin_rows const&) const = default;
};

/// The sixteen margin boxes, in the order of css::page::region.
inline constexpr std::size_t margin_box_count = 16;

/// The rectangle of each margin box, indexed by its region. `page_box` is the page's outer edge and
/// `margins` its margins: the corner boxes fill the corners that the margins leave, the top and bottom
/// rows run between them at the height of the top and bottom margins, and the side columns at the
/// width of the left and right margins.
std::array<areas::area, margin_box_count> margin_box_areas(areas::area const& page_box,
                                                           css::page::sides<float> const& margins,
                                                           margin_rows const& rows);

} // namespace vellum::pack::margin_boxes
