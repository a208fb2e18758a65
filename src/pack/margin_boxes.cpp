#include "pack/margin_boxes.hpp"

#include "pack/distribute.hpp"
#include "util/ref.hpp"
#include "util/result.hpp"

#include <algorithm>
#include <string>

namespace vellum::pack::margin_boxes {

namespace {

using css::page::region;
using distribute::column;

bool is_fixed(std::optional<margin_box_width> const& b) {
    return b && std::holds_alternative<fixed_width>(*b);
}

// A box as a column to distribute over. A declared width is a length, which the distribution gives
// exactly when automatic columns are beside it; a box sized by its content is an automatic column.
// An absent box is an automatic column of no width.
column column_of(std::optional<margin_box_width> const& b) {
    if (!b) {
        return {};
    }
    return std::visit(overloaded{
                          [](fixed_width const& f) {
                              return column{.column_specw = f.fixed_width_value,
                                            .column_minw = f.fixed_width_value,
                                            .column_maxw = f.fixed_width_value};
                          },
                          [](min_max_width const& m) {
                              return column{.column_minw = m.min_width, .column_maxw = m.max_width};
                          },
                      },
                      *b);
}

// The width a box would like: its declared width, or its content unwrapped.
float wanted(std::optional<margin_box_width> const& b) {
    if (!b) {
        return 0;
    }
    return std::visit(overloaded{
                          [](fixed_width const& f) { return f.fixed_width_value; },
                          [](min_max_width const& m) { return m.max_width; },
                      },
                      *b);
}

// Both sides of a centred row are sized as one column: the wider demand of the two, so that what
// suits one side suits the other.
column side_column(std::optional<margin_box_width> const& start, std::optional<margin_box_width> const& end) {
    auto const a = column_of(start);
    auto const b = column_of(end);
    column side{.column_minw = std::max(a.column_minw, b.column_minw),
                .column_maxw = std::max(a.column_maxw, b.column_maxw)};
    if (is_fixed(start) && is_fixed(end)) {
        side.column_specw = side.column_maxw;
    }
    return side;
}

std::vector<column>
distributed(std::vector<column> cols, float total, std::size_t expected, char const* where) {
    auto out = distribute::distribute(std::move(cols), total);
    if (out.size() != expected) {
        throw internal_error(std::string(where));
    }
    return out;
}

lcr_widths three_boxes(row_boxes const& row, float total, char const* where) {
    auto const& start = row.row_start;
    auto const& center = row.row_center;
    auto const& end = row.row_end;
    if (!center) {
        auto const cols = distributed({column_of(start), column_of(end)}, total, 2, where);
        return {.lcr_start = cols[0].column_usedw, .lcr_center = 0, .lcr_end = cols[1].column_usedw};
    }
    if (is_fixed(center) && !start && !end) {
        float const c = wanted(center);
        float const side = (total - c) * 0.5f;
        return {.lcr_start = side, .lcr_center = c, .lcr_end = side};
    }
    if ((is_fixed(start) || is_fixed(end)) && !is_fixed(center)) {
        float const side = std::max(wanted(start), wanted(end));
        return {.lcr_start = side, .lcr_center = std::max(0.0f, total - 2 * side), .lcr_end = side};
    }
    auto const side = side_column(start, end);
    auto const cols = distributed({side, column_of(center), side}, total, 3, where);
    return {.lcr_start = cols[0].column_usedw,
            .lcr_center = cols[1].column_usedw,
            .lcr_end = cols[2].column_usedw};
}

} // namespace

lcr_widths cal_lcr_width(row_boxes const& row, float total) {
    return three_boxes(row, total, "cal_lcr_width: doom.");
}

lcr_widths cal_tmb_height(row_boxes const& column, float total) {
    return three_boxes(column, total, "static:pack_verti_staticboxes: unexpected condition.");
}

std::array<areas::area, margin_box_count> margin_box_areas(areas::area const& page_box,
                                                           css::page::sides<float> const& margins,
                                                           margin_rows const& rows) {
    std::array<areas::area, margin_box_count> out{};
    auto set = [&](region r, areas::area a) { out[static_cast<std::size_t>(r)] = a; };

    // The page area's edges, where the margins end.
    float const inner_top = page_box.top - margins.sides_top;
    float const inner_bottom = page_box.bottom + margins.sides_bottom;
    float const inner_left = page_box.left + margins.sides_left;
    float const inner_right = page_box.right - margins.sides_right;

    set(region::top_left_corner, {page_box.top, inner_top, page_box.left, inner_left});
    set(region::top_right_corner, {page_box.top, inner_top, inner_right, page_box.right});
    set(region::bottom_left_corner, {inner_bottom, page_box.bottom, page_box.left, inner_left});
    set(region::bottom_right_corner, {inner_bottom, page_box.bottom, inner_right, page_box.right});

    // A row runs left to right between the corners; the center box sits in its middle.
    auto row = [&](row_boxes const& boxes, float top, float bottom, region start, region center, region end) {
        float const width = inner_right - inner_left;
        auto const w = cal_lcr_width(boxes, width);
        float const center_left = inner_left + (width - w.lcr_center) * 0.5f;
        set(start, {top, bottom, inner_left, inner_left + w.lcr_start});
        set(center, {top, bottom, center_left, center_left + w.lcr_center});
        set(end, {top, bottom, inner_right - w.lcr_end, inner_right});
    };
    row(rows.rows_top, page_box.top, inner_top, region::top_left, region::top_center, region::top_right);
    row(rows.rows_bottom, inner_bottom, page_box.bottom, region::bottom_left, region::bottom_center,
        region::bottom_right);

    // A column runs top to bottom between the corners, with y growing upward.
    auto column = [&](row_boxes const& boxes, float left, float right, region start, region middle,
                      region end) {
        float const height = inner_top - inner_bottom;
        auto const h = cal_tmb_height(boxes, height);
        float const middle_top = inner_top - (height - h.lcr_center) * 0.5f;
        set(start, {inner_top, inner_top - h.lcr_start, left, right});
        set(middle, {middle_top, middle_top - h.lcr_center, left, right});
        set(end, {inner_bottom + h.lcr_end, inner_bottom, left, right});
    };
    column(rows.rows_left, page_box.left, inner_left, region::left_top, region::left_middle,
           region::left_bottom);
    column(rows.rows_right, inner_right, page_box.right, region::right_top, region::right_middle,
           region::right_bottom);
    return out;
}

} // namespace vellum::pack::margin_boxes
