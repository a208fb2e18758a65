#include "pack/footnotes.hpp"

#include "css/page.hpp"
#include "css/used_style.hpp"
#include "pack/blocks.hpp"
#include "pack/margin_collapsing.hpp"

#include <limits>

namespace vellum::pack::footnotes {

namespace {

bool started(prepack::block const& b) {
    return std::holds_alternative<prepack::type_remaining>(b.block_type) ||
           std::holds_alternative<prepack::type_overflowing>(b.block_type);
}

} // namespace

frame frame_of(css::used_style::used_style const& u) {
    frame f;
    float margin_left = 0;
    float margin_right = 0;
    if (auto const* m = std::get_if<css::used_style::used_margins>(&u.used_margins)) {
        f.margin_top = m->margin_top.value_or(0);
        f.margin_bottom = m->margin_bottom.value_or(0);
        margin_left = m->margin_left.value_or(0);
        margin_right = m->margin_right.value_or(0);
    }
    auto const& b = u.used_borders;
    f.inner_top = b.borders_top.border_width + u.used_padding_top;
    f.inner_bottom = b.borders_bottom.border_width + u.used_padding_bottom;
    f.left = margin_left + b.borders_left.border_width + u.used_padding_left;
    f.right = margin_right + b.borders_right.border_width + u.used_padding_right;
    return f;
}

area_res pack_area(page_info const& info,
                   std::span<page_footnote const> list,
                   areas::area const& body,
                   float max_height,
                   bool must_place) {
    area_res out;
    if (list.empty()) {
        return out;
    }
    check(info.general.page_style != nullptr, "footnotes: page style expected.");
    auto const style = share(css::page::region_style(*info.general.page_style, css::page_rule::region::footnotes));
    float const width = areas::width_of(body);
    auto const used = css::used_style::used_style_of(*style, width, std::nullopt);
    auto const f = frame_of(used);
    // The room is the height measured for the same footnotes before: a hair more keeps rounding from
    // refusing their last line.
    float const top = body.bottom + max_height + knuth::tolerance - f.margin_top - f.inner_top;
    float const bottom = body.bottom + f.margin_bottom + f.inner_bottom;
    areas::area const content{.top = top, .bottom = std::min(bottom, top), .left = body.left + f.left,
                              .right = body.right - f.right};
    areas::areas room{.container = content, .available = {content}};

    // Each body is packed as its own block, with the number of its call for its marker; footnotes
    // called inside a footnote are not gathered again.
    page_info fi = info;
    fi.accum.page_footnotes = nullptr;
    fi.accum.abs_blocks.clear();
    std::vector<ref<box>> boxes;
    std::size_t i = 0;
    for (; i < list.size(); ++i) {
        auto const& note = list[i];
        fi.general.footnote_counter = note.footnote_number;
        fi.flags = flags{.max_page_area = must_place && boxes.empty()};
        auto r = blocks::pack_blocks(fi, prepack::block_list(std::vector<prepack::block>{*note.footnote_body}),
                                     margin_collapsing::gap{margin_collapsing::margin_eater{}}, room);
        auto* p = std::get_if<blocks::packed_main>(&r.res);
        // Absolutely positioned boxes in a footnote that no positioned box of it contains are the
        // page's: they go with their static positions, moved with the area below.
        if (p != nullptr && !p->bs_packed_boxes.empty()) {
            auto& met = r.out_info.accum.abs_blocks;
            std::move(met.begin(), met.end(), std::back_inserter(out.area_absolutes));
        }
        if (p == nullptr || p->bs_packed_boxes.empty()) {
            break;
        }
        std::move(p->bs_packed_boxes.begin(), p->bs_packed_boxes.end(), std::back_inserter(boxes));
        room = std::move(r.out_areas);
        if (!p->bs_remain_portion.empty()) {
            out.area_leftover.push_back(page_footnote{.footnote_body = share(p->bs_remain_portion.front()),
                                                      .footnote_style = note.footnote_style,
                                                      .footnote_number = note.footnote_number});
            ++i;
            break;
        }
    }
    for (std::size_t k = i; k < list.size(); ++k) {
        out.area_unstarted = out.area_unstarted || !started(*list[k].footnote_body);
        out.area_leftover.push_back(list[k]);
    }
    if (boxes.empty()) {
        return out;
    }

    // The area stands on the body's bottom, as tall as what went in.
    float const content_h = top - room.container.top;
    float const border_h = f.inner_top + content_h + f.inner_bottom;
    float const box_top = body.bottom + f.margin_bottom + border_h;
    float const dy = box_top - f.inner_top - top;
    for (auto& b : boxes) {
        auto moved = *b;
        block::shift_box(moved, 0, dy);
        b = share(std::move(moved));
    }
    for (auto& a : out.area_absolutes) {
        a.second.y += dy;
    }
    float const margin_left = f.left - used.used_borders.borders_left.border_width - used.used_padding_left;
    float const margin_right = f.right - used.used_borders.borders_right.border_width - used.used_padding_right;
    out.area_height = f.margin_top + border_h + f.margin_bottom;
    out.area_box = share(box{
        .box_x = body.left + margin_left,
        .box_y = box_top,
        .box_w = width - margin_left - margin_right,
        .box_h = border_h,
        .box_content = pack::boxes{std::move(boxes)},
        .box_style = style,
        .box_used_style = used,
    });
    return out;
}

float height_needed(page_info const& info, std::span<page_footnote const> list, areas::area const& body) {
    if (list.empty()) {
        return 0;
    }
    auto const r = pack_area(info, list, body, areas::height_of(body), false);
    return r.area_leftover.empty() ? r.area_height : std::numeric_limits<float>::infinity();
}

} // namespace vellum::pack::footnotes
