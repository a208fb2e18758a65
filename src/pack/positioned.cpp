#include "pack/positioned.hpp"

#include "css/used_style.hpp"
#include "pack/block.hpp"
#include "pack/fit.hpp"
#include "util/ref.hpp"
#include "util/result.hpp"

#include <algorithm>
#include <atomic>
#include <cmath>

namespace vellum::pack::positioned {

namespace {

namespace mc = margin_collapsing;

// An absolutely positioned box is never split: it is packed in an area that reaches far below any page.
constexpr float far = 1000000.0f;

// Which of the three main terms of an equation are "auto", as bits.
constexpr int start_auto = 1;
constexpr int size_auto = 2;
constexpr int end_auto = 4;

int autos_of(axis_input const& in) {
    return (in.axis_start ? 0 : start_auto) | (in.axis_size ? 0 : size_auto) | (in.axis_end ? 0 : end_auto);
}

// What the fixed terms leave for one unknown.
float rest(axis_input const& in, float start, float size, float margin_start, float margin_end) {
    return in.axis_room - start - margin_start - in.axis_edges - size - margin_end - in.axis_end.value_or(0);
}

std::optional<float> resolved(css::box::auto_length_percent<float> const& v, std::optional<float> reference) {
    if (auto const* f = std::get_if<float>(&v)) {
        return *f;
    }
    if (auto const* p = std::get_if<css::units::percentage>(&v); p && reference) {
        return css::units::percent_of(*p, *reference);
    }
    return std::nullopt;
}

float resolved(css::box::padding const& v, float reference) {
    if (auto const* f = std::get_if<float>(&v)) {
        return *f;
    }
    return css::units::percent_of(std::get<css::units::percentage>(v), reference);
}

std::atomic<bool> said_height{false};

} // namespace

bool is_out_of_flow(css::style::style const& s) {
    auto const* k = std::get_if<css::box::position_kind>(&s.bit_props.bit_props_position);
    return k && (*k == css::box::position_kind::absolute || *k == css::box::position_kind::fixed);
}

bool is_fixed(css::style::style const& s) {
    return s.bit_props.bit_props_position == css::box::position{css::box::position_kind::fixed};
}

bool is_positioned(css::style::style const& s) {
    auto const* k = std::get_if<css::box::position_kind>(&s.bit_props.bit_props_position);
    return k && *k != css::box::position_kind::static_;
}

axis_solution solve_horizontal(axis_input const& in, auto_size const& shrink_to_fit) {
    axis_solution out;
    int const autos = autos_of(in);
    if (autos == 0) {
        // Over-constrained or solved through the margins.
        out.axis_offset = *in.axis_start;
        out.axis_size = *in.axis_size;
        float const free = rest(in, out.axis_offset, out.axis_size, 0, 0);
        if (!in.axis_margin_start && !in.axis_margin_end) {
            // Both margins "auto" centre the box; when it doesn't fit, it keeps to the start edge of
            // the writing direction.
            if (in.axis_rtl) {
                out.axis_margin_end = free < 0 ? 0 : free / 2;
                out.axis_margin_start = free - out.axis_margin_end;
            } else {
                out.axis_margin_start = free < 0 ? 0 : free / 2;
                out.axis_margin_end = free - out.axis_margin_start;
            }
        } else if (in.axis_rtl && in.axis_margin_start && in.axis_margin_end) {
            // Over-constrained right to left: the left offset gives way.
            out.axis_margin_start = *in.axis_margin_start;
            out.axis_margin_end = *in.axis_margin_end;
            out.axis_offset = rest(in, 0, out.axis_size, out.axis_margin_start, out.axis_margin_end);
        } else if (!in.axis_margin_start) {
            out.axis_margin_end = *in.axis_margin_end;
            out.axis_margin_start = free - out.axis_margin_end;
        } else {
            // The end margin is solved, or ignored as the end offset is when nothing is auto.
            out.axis_margin_start = *in.axis_margin_start;
            out.axis_margin_end = in.axis_margin_end ? *in.axis_margin_end : free - out.axis_margin_start;
        }
        return out;
    }
    out.axis_margin_start = in.axis_margin_start.value_or(0);
    out.axis_margin_end = in.axis_margin_end.value_or(0);
    float const margins = out.axis_margin_start + out.axis_margin_end;
    if (in.axis_rtl && (autos & start_auto) && (autos & end_auto)) {
        // Right to left, a box that no offset places keeps its right edge where the flow would end it.
        float const end = in.axis_room - in.axis_static;
        out.axis_size = in.axis_size ? *in.axis_size
                                     : shrink_to_fit(std::max(0.0f, in.axis_static - margins - in.axis_edges));
        out.axis_offset = in.axis_room - end - out.axis_margin_end - out.axis_size - in.axis_edges -
                          out.axis_margin_start;
        return out;
    }
    switch (autos) {
    case start_auto | size_auto | end_auto:
        // Nothing said: the box stays at its static place, as wide as its content.
        out.axis_offset = in.axis_static;
        out.axis_size = shrink_to_fit(std::max(0.0f, in.axis_room - in.axis_static - margins - in.axis_edges));
        break;
    case start_auto | size_auto:
        // Tied to the end edge, as wide as its content.
        out.axis_size = shrink_to_fit(std::max(0.0f, rest(in, 0, 0, out.axis_margin_start, out.axis_margin_end)));
        out.axis_offset = rest(in, 0, out.axis_size, out.axis_margin_start, out.axis_margin_end);
        break;
    case start_auto | end_auto:
        out.axis_offset = in.axis_static;
        out.axis_size = *in.axis_size;
        break;
    case size_auto | end_auto:
        out.axis_offset = *in.axis_start;
        out.axis_size = shrink_to_fit(
            std::max(0.0f, rest(in, out.axis_offset, 0, out.axis_margin_start, out.axis_margin_end)));
        break;
    case start_auto:
        out.axis_size = *in.axis_size;
        out.axis_offset = rest(in, 0, out.axis_size, out.axis_margin_start, out.axis_margin_end);
        break;
    case size_auto:
        out.axis_offset = *in.axis_start;
        out.axis_size = std::max(0.0f, rest(in, out.axis_offset, 0, out.axis_margin_start, out.axis_margin_end));
        break;
    case end_auto:
        out.axis_offset = *in.axis_start;
        out.axis_size = *in.axis_size;
        break;
    default:
        throw internal_error("apply_absolute_rules: unexpected branch.");
    }
    return out;
}

axis_solution solve_vertical(axis_input const& in, auto_size const& content_height) {
    axis_solution out;
    int const autos = autos_of(in);
    if (autos == 0) {
        out.axis_offset = *in.axis_start;
        out.axis_size = *in.axis_size;
        float const free = rest(in, out.axis_offset, out.axis_size, 0, 0);
        if (!in.axis_margin_start && !in.axis_margin_end) {
            out.axis_margin_start = free / 2;
            out.axis_margin_end = free / 2;
        } else if (!in.axis_margin_start) {
            out.axis_margin_end = *in.axis_margin_end;
            out.axis_margin_start = free - out.axis_margin_end;
        } else {
            out.axis_margin_start = *in.axis_margin_start;
            out.axis_margin_end = in.axis_margin_end ? *in.axis_margin_end : free - out.axis_margin_start;
        }
        return out;
    }
    out.axis_margin_start = in.axis_margin_start.value_or(0);
    out.axis_margin_end = in.axis_margin_end.value_or(0);
    switch (autos) {
    case start_auto | size_auto | end_auto:
    case start_auto | end_auto:
        out.axis_offset = in.axis_static;
        out.axis_size = in.axis_size ? *in.axis_size : content_height(far);
        break;
    case start_auto | size_auto:
        // Tied to the bottom edge, as tall as its content.
        out.axis_size = content_height(far);
        out.axis_offset = rest(in, 0, out.axis_size, out.axis_margin_start, out.axis_margin_end);
        break;
    case size_auto | end_auto:
        out.axis_offset = *in.axis_start;
        out.axis_size = content_height(far);
        break;
    case start_auto:
        out.axis_size = *in.axis_size;
        out.axis_offset = rest(in, 0, out.axis_size, out.axis_margin_start, out.axis_margin_end);
        break;
    case size_auto:
        out.axis_offset = *in.axis_start;
        out.axis_size = std::max(0.0f, rest(in, out.axis_offset, 0, out.axis_margin_start, out.axis_margin_end));
        break;
    case end_auto:
        out.axis_offset = *in.axis_start;
        out.axis_size = *in.axis_size;
        break;
    default:
        throw internal_error("height_absolute_rules: unexpected branch.");
    }
    return out;
}

containing_block padding_box_of(box const& b) {
    auto const& bd = b.box_used_style.used_borders;
    float const bl = bd.borders_left.border_width;
    float const br = bd.borders_right.border_width;
    float const bt = bd.borders_top.border_width;
    float const bb = bd.borders_bottom.border_width;
    return containing_block{.cb_left = b.box_x + bl,
                            .cb_top = b.box_y - bt,
                            .cb_width = std::max(0.0f, b.box_w - bl - br),
                            .cb_height = std::max(0.0f, b.box_h - bt - bb)};
}

placed pack_absolute(page_info info, prepack::block const& b, util::pos::pos static_pos, containing_block const& cb) {
    auto const& s = *b.block_style;
    auto used = css::used_style::used_style_of(s, cb.cb_width, cb.cb_height);
    auto const* offsets = std::get_if<css::used_style::used_offsets>(&used.used_offsets);
    auto const* margins = std::get_if<css::used_style::used_margins>(&used.used_margins);
    auto const& bd = used.used_borders;
    float const h_edges = bd.borders_left.border_width + used.used_padding_left + used.used_padding_right +
                          bd.borders_right.border_width;
    float const v_edges = bd.borders_top.border_width + used.used_padding_top + used.used_padding_bottom +
                          bd.borders_bottom.border_width;
    bool const width_auto = !resolved(s.width, cb.cb_width).has_value();
    axis_input const h{
        .axis_room = cb.cb_width,
        .axis_start = offsets ? offsets->offset_left : std::nullopt,
        .axis_end = offsets ? offsets->offset_right : std::nullopt,
        .axis_size = width_auto ? std::nullopt : std::optional<float>(used.used_width),
        .axis_margin_start = margins ? margins->margin_left : std::optional<float>(0),
        .axis_margin_end = margins ? margins->margin_right : std::optional<float>(0),
        .axis_edges = h_edges,
        .axis_static = static_pos.x - cb.cb_left,
        .axis_rtl = s.rare_props->rare_props_direction == css::box::direction::rtl,
    };

    // The block as it is packed: every length the equations settled, so that nothing is resolved again
    // against the area it is packed in.
    info.flags.max_page_area = true;
    auto style = s;
    style.box_sizing = css::box::box_sizing::content_box;
    style.padding_top = used.used_padding_top;
    style.padding_right = used.used_padding_right;
    style.padding_bottom = used.used_padding_bottom;
    style.padding_left = used.used_padding_left;
    css::style::clear_width_limits(style);
    // The height takes part in the equation: a percentage of an unknown height is "auto".
    style.height = used.used_height ? css::box::width{*used.used_height} : css::box::width{css::box::auto_value{}};
    style.margin_top = 0.0f;
    style.margin_bottom = 0.0f;

    // Packs the block with its content width, its left margin edge at x and its top border edge at y.
    auto pack_at = [&](std::optional<float> width, float x, float y, float room) {
        auto st = style;
        st.width = width ? css::box::width{*width} : css::box::width{css::box::auto_value{}};
        st.margin_left = 0.0f;
        st.margin_right = 0.0f;
        auto copy = b;
        copy.block_style = share(std::move(st));
        float const w = width ? *width + h_edges : room + h_edges;
        areas::area const a{.top = y, .bottom = y - far, .left = x, .right = x + w};
        auto r = block::pack_fit(info, block::absolute_block{.absolute_x = x, .absolute_y = y}, copy, mc::fresh(),
                                 areas::areas{.container = a, .available = {a}});
        auto const* p = std::get_if<block::packed_main>(&r.res);
        check(p != nullptr, "pack_absolute");
        return std::pair{*p->b_packed_box, std::move(r.out_info)};
    };

    // The width first: shrink-to-fit holds the content between its narrowest and its widest in the
    // room the equation leaves. The boxes nested in this one are measured once, while it is packed.
    fit::measure_scope const scope;
    std::optional<std::pair<box, page_info>> packed;
    auto const hs = solve_horizontal(h, [&](float room) { return fit::shrink_to_fit(fit::content_widths_of(info, b), room); });
    // max-width and min-width hold the solved width, the minimum winning.
    float width = hs.axis_size;
    // Under border-box sizing they measure the border box.
    float const sizing = s.box_sizing == css::box::box_sizing::border_box    ? h_edges
                         : s.box_sizing == css::box::box_sizing::padding_box ? used.used_padding_left + used.used_padding_right
                                                                             : 0.0f;
    if (auto const* max = std::get_if<float>(&s.rare_box->max_width)) {
        width = std::min(width, *max - sizing);
    } else if (auto const* p = std::get_if<css::units::percentage>(&s.rare_box->max_width)) {
        width = std::min(width, css::units::percent_of(*p, cb.cb_width) - sizing);
    }
    width = std::max({width, resolved(s.rare_box->min_width, cb.cb_width) - sizing, 0.0f});
    if (!packed || std::abs(packed->first.box_w - h_edges - width) > 0.01f) {
        packed = pack_at(width, 0, 0, width);
    }
    auto bx = std::move(packed->first);

    std::optional<float> bottom = offsets ? offsets->offset_bottom : std::nullopt;
    std::optional<float> top = offsets ? offsets->offset_top : std::nullopt;
    if (!cb.cb_height && (bottom || (top && !used.used_height))) {
        if (!said_height.exchange(true)) {
            log::log_error(info.general.run->log, "absolute block: container height undefined.");
        }
        bottom.reset();
    }
    float const content_h = std::max(0.0f, bx.box_h - v_edges);
    axis_input const v{
        .axis_room = cb.cb_height.value_or(0),
        .axis_start = top,
        .axis_end = bottom,
        .axis_size = used.used_height,
        .axis_margin_start = margins ? margins->margin_top : std::optional<float>(0),
        .axis_margin_end = margins ? margins->margin_bottom : std::optional<float>(0),
        .axis_edges = v_edges,
        .axis_static = cb.cb_top - static_pos.y,
    };
    auto const vs = solve_vertical(v, [&](float) { return content_h; });
    float height = vs.axis_size;
    if (used.used_max_height) {
        height = std::min(height, *used.used_max_height);
    }
    height = std::max(height, used.used_min_height);
    bx.box_h = height + v_edges;

    // The border box's top left corner on the page.
    float const x = cb.cb_left + hs.axis_offset + hs.axis_margin_start;
    float const y = cb.cb_top - vs.axis_offset - vs.axis_margin_start;
    block::shift_box(bx, x - bx.box_x, y - bx.box_y);
    // The box keeps the margins the equations gave it, for whoever reads its margin box.
    bx.box_used_style.used_margins = css::used_style::used_margins{.margin_top = vs.axis_margin_start,
                                                                   .margin_right = hs.axis_margin_end,
                                                                   .margin_bottom = vs.axis_margin_end,
                                                                   .margin_left = hs.axis_margin_start};
    bx.box_style = b.block_style;
    return placed{.placed_box = share(std::move(bx)), .placed_info = std::move(packed->second)};
}

void hang_inner(page_info& info, std::size_t from, box& b) {
    auto& list = info.accum.abs_blocks;
    if (list.size() <= from) {
        return;
    }
    std::vector<std::pair<prepack::block, util::pos::pos>> mine(list.begin() + static_cast<std::ptrdiff_t>(from),
                                                               list.end());
    list.resize(from);
    auto const cb = padding_box_of(b);
    std::vector<ref<box>> boxes;
    for (auto const& [block, pos] : mine) {
        auto p = pack_absolute(info, block, pos, cb);
        // What the box gathered (targets, counters) counts; the flags are the flow's.
        auto const flags = info.flags;
        info = std::move(p.placed_info);
        info.flags = flags;
        boxes.push_back(std::move(p.placed_box));
    }
    if (auto* w = std::get_if<with_abs>(&b.box_content)) {
        w->with_abs_boxes.insert(w->with_abs_boxes.end(), boxes.begin(), boxes.end());
        return;
    }
    b.box_content = with_abs{.with_abs_content = share(std::move(b.box_content)), .with_abs_boxes = std::move(boxes)};
}

namespace {

// Gathers the fixed blocks under a block in document order, those inside inline blocks, footnotes
// and tables included.
void gather_fixed(prepack::block const& b, std::vector<prepack::block>& out);

void gather_fixed_spans(std::vector<prepack::span> const& spans, std::vector<prepack::block>& out) {
    for (auto const& sp : spans) {
        if (auto const* n = std::get_if<prepack::span_nested>(&sp)) {
            gather_fixed_spans(n->nested->span_content, out);
        } else if (auto const* ib = std::get_if<prepack::span_inline_block>(&sp); ib && ib->inline_block) {
            gather_fixed(*ib->inline_block, out);
        } else if (auto const* f = std::get_if<prepack::span_footnote>(&sp)) {
            if (auto const* bf = std::get_if<prepack::block_footnote>(&f->note->footnote_body); bf && bf->footnote_block) {
                gather_fixed(*bf->footnote_block, out);
            }
        }
    }
}

void gather_fixed_list(prepack::block_list const& list, std::vector<prepack::block>& out) {
    for (auto const& c : list) {
        gather_fixed(c, out);
    }
}

void gather_fixed_rows(std::vector<prepack::row> const& rows, std::vector<prepack::block>& out) {
    for (auto const& r : rows) {
        for (auto const& c : r.row_content) {
            if (auto const* cc = std::get_if<prepack::cell_cell>(&c)) {
                gather_fixed_list(cc->cell.cell_content.blocks, out);
            }
        }
    }
}

void gather_fixed(prepack::block const& b, std::vector<prepack::block>& out) {
    if (b.block_style && is_fixed(*b.block_style) && std::holds_alternative<prepack::type_original>(b.block_type)) {
        out.push_back(b);
    }
    std::visit(overloaded{
                   [&](prepack::bcontent_blocks const& c) { gather_fixed_list(c.blocks, out); },
                   [&](prepack::bcontent_para const& p) { gather_fixed_spans(p.para.para_spans, out); },
                   [&](prepack::bcontent_table const& t) {
                       for (auto const& c : t.table->caption_tops) {
                           gather_fixed(c, out);
                       }
                       if (t.table->table.header) {
                           gather_fixed_rows(t.table->table.header->rowgroup_content, out);
                       }
                       for (auto const& g : t.table->table.body) {
                           gather_fixed_rows(g.rowgroup_content, out);
                       }
                       if (t.table->table.footer) {
                           gather_fixed_rows(t.table->table.footer->rowgroup_content, out);
                       }
                       for (auto const& c : t.table->caption_bottoms) {
                           gather_fixed(c, out);
                       }
                   },
                   // Tables are computed by layout, after this walk.
                   [](prepack::bcontent_computed_table_box const&) {},
                   [](prepack::bcontent_computed_table const&) {},
                   [&](prepack::bcontent_list_item const& li) { gather_fixed_list(li.item.content, out); },
                   [](prepack::bcontent_svg const&) {},
                   [](prepack::bcontent_image const&) {},
               },
               b.block_content);
}

} // namespace

std::vector<prepack::block> fixed_blocks(prepack::pack_document const& doc) {
    std::vector<prepack::block> out;
    for (auto const& sec : doc.pack_doc_content) {
        gather_fixed_list(sec.sec_blocks, out);
    }
    // The margin boxes show their flows from the first page on.
    for (auto const& f : doc.static_flows) {
        gather_fixed(f.flow_block, out);
    }
    return out;
}

void place_on_page(page_info& info,
                   areas::area const& page_area,
                   std::vector<prepack::block> const& fixed,
                   std::vector<ref<box>>& content) {
    containing_block const cb{.cb_left = page_area.left,
                              .cb_top = page_area.top,
                              .cb_width = areas::width_of(page_area),
                              .cb_height = areas::height_of(page_area)};
    auto const flags = info.flags;
    auto abs = std::move(info.accum.abs_blocks);
    info.accum.abs_blocks.clear();
    auto place = [&](prepack::block const& b, util::pos::pos pos) {
        auto p = pack_absolute(info, b, pos, cb);
        info = std::move(p.placed_info);
        info.flags = flags;
        content.push_back(std::move(p.placed_box));
    };
    for (auto const& [b, pos] : abs) {
        place(b, pos);
    }
    // A fixed box that the offsets leave at its static place stands at the page area's top left.
    for (auto const& b : fixed) {
        place(b, {page_area.left, page_area.top});
    }
    info.accum.abs_blocks.clear();
}

} // namespace vellum::pack::positioned
