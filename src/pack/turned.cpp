#include "pack/turned.hpp"

#include "css/used_style.hpp"
#include "util/ref.hpp"
#include "util/result.hpp"

#include <algorithm>

namespace vellum::pack::turned {

namespace mc = margin_collapsing;

namespace {

// The length of the area's height that a turned block may take for its lines when it sets none
// itself: what the area offers, or, in a trial area that reaches far below any page, its width.
float free_length(areas::areas const& a) {
    float const h = areas::height_of(a.container);
    return h > 0 && h < 100000.0f ? h : areas::width_of(a.container);
}

} // namespace

bool is_turned(page_info const& info, prepack::block const& b) {
    return b.block_style && b.block_style->writing_mode != info.general.writing_mode;
}

namespace {

// One part of a turned block: as many of its lines as the flow is wide.
block::block_out pack_chunk(page_info info,
                            block::block_type const& type,
                            prepack::block const& b,
                            mc::gap gap,
                            areas::areas a) {
    auto const& s = *b.block_style;
    auto const used = css::used_style::used_style_of(s, areas::width_of(a.container), std::nullopt);
    auto const& bd = used.used_borders;
    float const edges_across = bd.borders_left.border_width + used.used_padding_left + used.used_padding_right +
                               bd.borders_right.border_width;
    float const edges_along = bd.borders_top.border_width + used.used_padding_top + used.used_padding_bottom +
                              bd.borders_bottom.border_width;
    // The lines run down the block: as long as its content height.
    float const length = used.used_height ? *used.used_height : std::max(0.0f, free_length(a) - edges_along);

    // First the content in its own writing mode, its lines as long as the block is high, in a trial area
    // that nothing on the page narrows and that reaches far below any page.
    // The lines are set in a frame that the painter turns a quarter clockwise into the box: the
    // frame's top becomes the box's right side (where the first line stands), its left the box's top,
    // its right the bottom and its bottom the left. The box's padding and borders, physical sides,
    // are given to the frame's sides that become them; the outer box draws the borders themselves.
    auto inner_style = s;
    inner_style.padding_top = s.padding_right;
    inner_style.padding_right = s.padding_bottom;
    inner_style.padding_bottom = s.padding_left;
    inner_style.padding_left = s.padding_top;
    if (s.borders) {
        auto turned_borders = *s.borders;
        turned_borders.borders_top = s.borders->borders_right;
        turned_borders.borders_right = s.borders->borders_bottom;
        turned_borders.borders_bottom = s.borders->borders_left;
        turned_borders.borders_left = s.borders->borders_top;
        inner_style.borders = share(std::move(turned_borders));
    }
    inner_style.margin_top = 0.0f;
    inner_style.margin_right = 0.0f;
    inner_style.margin_bottom = 0.0f;
    inner_style.margin_left = 0.0f;
    inner_style.width = length;
    inner_style.height = css::box::auto_value{};
    css::style::clear_height_limits(inner_style);
    inner_style.box_sizing = css::box::box_sizing::content_box;
    auto inner = b;
    inner.block_style = share(std::move(inner_style));
    page_info inner_info = info;
    inner_info.general.writing_mode = s.writing_mode;
    inner_info.flags.max_page_area = true;
    inner_info.flags.pack_page_stuff = false;
    float const far = 1000000.0f;
    auto lines_in = [&](float depth) {
        areas::area const trial{.top = 0, .bottom = -depth, .left = 0, .right = length + edges_along};
        auto out = block::pack_block(inner_info, block::inline_block{}, inner, mc::fresh(),
                                     areas::areas{.container = trial, .available = {trial}});
        auto* packed = std::get_if<block::packed_main>(&out.res);
        if (!packed) {
            throw internal_error("horizontal to vertical block: unexpected Res.");
        }
        return std::move(*packed);
    };
    auto lines = lines_in(far);
    // Lines deeper than the flow is wide go on in another box: as many lines as the width takes (one at
    // least, the area being the largest there is), and the rest continues the block below or on the
    // next page, turned like it.
    std::optional<prepack::block> rest;
    float const margins_across = std::visit(overloaded{[](css::used_style::no_used_margins const&) { return 0.0f; },
                                                       [](css::used_style::used_margins const& m) {
                                                           return m.margin_left.value_or(0.0f) +
                                                                  m.margin_right.value_or(0.0f);
                                                       }},
                                            used.used_margins);
    float const room = areas::width_of(a.container) - margins_across;
    if (lines.b_packed_box->box_h > room + 0.01f && room > edges_across) {
        lines = lines_in(room);
        if (lines.b_remain_portion) {
            rest = std::move(lines.b_remain_portion);
            rest->block_style = b.block_style;
        }
    }
    auto content = *lines.b_packed_box;

    // Then the box in the flow: as wide as the lines reach across and as high as they are long, placed
    // like any block of that size, and kept whole.
    auto outer_style = s;
    outer_style.writing_mode = info.general.writing_mode;
    outer_style.width = std::max(0.0f, content.box_h - edges_across);
    outer_style.height = std::max(0.0f, content.box_w - edges_along);
    css::style::clear_height_limits(outer_style);
    outer_style.box_sizing = css::box::box_sizing::content_box;
    outer_style.bit_props.bit_props_page_break_inside = css::box::page_break::avoid;
    auto outer = b;
    outer.block_style = share(std::move(outer_style));
    outer.block_content = prepack::bcontent_blocks{};
    auto out = block::pack_block(std::move(info), type, outer, std::move(gap), std::move(a));
    auto* placed = std::get_if<block::packed_main>(&out.res);
    if (!placed) {
        return out;
    }
    // The lines are moved so that their frame's top left corner is the box's; the painter turns them
    // about it into the box.
    auto box = *placed->b_packed_box;
    block::shift_box(content, box.box_x - content.box_x, box.box_y - content.box_y);
    box.box_content = std::move(content.box_content);
    box.box_style = b.block_style;
    box.rotate_content = true;
    placed->b_packed_box = share(std::move(box));
    if (rest) {
        placed->b_remain_portion = std::move(rest);
    }
    return out;
}

} // namespace

block::block_out pack_turned(page_info info,
                             block::block_type const& type,
                             prepack::block const& b,
                             mc::gap gap,
                             areas::areas a) {
    auto out = pack_chunk(std::move(info), type, b, std::move(gap), std::move(a));
    if (!std::holds_alternative<block::inflow_block>(type)) {
        return out;
    }
    // Lines deeper than the flow is wide go on in a part below the first while the page has room for
    // one as long, and the parts stand in the flow as one box.
    std::vector<ref<box>> parts;
    while (true) {
        auto* placed = std::get_if<block::packed_main>(&out.res);
        if (!placed || !placed->b_remain_portion) {
            break;
        }
        auto rest = *placed->b_remain_portion;
        auto rest_style = *rest.block_style;
        rest_style.margin_top = 0.0f;
        rest.block_style = share(std::move(rest_style));
        auto next_info = out.out_info;
        next_info.flags.max_page_area = false;
        auto next = pack_chunk(std::move(next_info), type, rest, out.out_gap, out.out_areas);
        auto* more = std::get_if<block::packed_main>(&next.res);
        if (!more) {
            break;
        }
        if (parts.empty()) {
            parts.push_back(placed->b_packed_box);
        }
        parts.push_back(more->b_packed_box);
        placed->b_remain_portion = std::move(more->b_remain_portion);
        if (placed->b_remain_portion) {
            placed->b_remain_portion->block_style = b.block_style;
        }
        placed->b_content_top_bottom.second = more->b_content_top_bottom.second;
        out.out_info = std::move(next.out_info);
        out.out_areas = std::move(next.out_areas);
        out.out_gap = std::move(next.out_gap);
    }
    if (!parts.empty()) {
        auto& placed = std::get<block::packed_main>(out.res);
        float left = parts.front()->box_x;
        float right = left;
        float top = parts.front()->box_y;
        float bottom = top;
        for (auto const& p : parts) {
            left = std::min(left, p->box_x);
            right = std::max(right, p->box_x + p->box_w);
            top = std::max(top, p->box_y);
            bottom = std::min(bottom, p->box_y - p->box_h);
        }
        placed.b_packed_box = share(box{.box_x = left,
                                        .box_y = top,
                                        .box_w = right - left,
                                        .box_h = top - bottom,
                                        .box_content = boxes{std::move(parts)},
                                        .box_style = share(css::style::inherit_from(*b.block_style))});
    }
    return out;
}

} // namespace vellum::pack::turned
