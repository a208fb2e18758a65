#include "pack/block.hpp"

#include "css/used_style.hpp"
#include "image/images.hpp"
#include "pack/blocks.hpp"
#include "pack/columns.hpp"
#include "pack/fit.hpp"
#include "pack/floats.hpp"
#include "pack/para_main.hpp"
#include "pack/positioned.hpp"
#include "pack/table_pack.hpp"
#include "pack/turned.hpp"
#include "util/ref.hpp"
#include "util/result.hpp"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <limits>

namespace vellum::pack::block {

namespace {

namespace mc = margin_collapsing;

constexpr float tolerance = 0.0001f;

// Logs a message about missing layout once per run, rather than once per block.
void warn_once(log::log const& log, std::atomic<bool>& said, std::string const& message) {
    if (!said.exchange(true)) {
        log::log_warning(log, message);
    }
}

std::atomic<bool> said_replaced{false};

bool is_continuation(prepack::element_type const& t) {
    return std::holds_alternative<prepack::type_remaining>(t) ||
           std::holds_alternative<prepack::type_overflowing>(t);
}

std::optional<prepack::element_info> info_of(prepack::element_type const& t) {
    return std::visit(overloaded{
                          [](prepack::type_original const& o) -> std::optional<prepack::element_info> {
                              return o.stuff->element_info;
                          },
                          [](prepack::type_remaining const& r) { return r.info; },
                          [](prepack::type_overflowing const& o) { return o.info; },
                          [](prepack::type_anonymous const&) -> std::optional<prepack::element_info> {
                              return std::nullopt;
                          },
                      },
                      t);
}

// The areas narrowed to a block's content edges. A band differs from its container only where a
// float cuts into it: an edge on the container's edge takes the block's edge, even where the block
// reaches out of its container (negative margins, a width past the page), so that only floats make a
// band narrower than the block.
areas::areas narrowed(areas::areas a, float left, float right, float bottom) {
    auto const outer = a.container;
    a.container.left = left;
    a.container.right = right;
    a.container.bottom = bottom;
    for (auto& band : a.available) {
        band.left = band.left > outer.left + tolerance ? std::max(band.left, left) : left;
        band.right = band.right < outer.right - tolerance ? std::min(band.right, right) : right;
        band.right = std::max(band.right, band.left);
        band.bottom = std::max(band.bottom, bottom);
    }
    if (a.available.empty()) {
        a.available.push_back(a.container);
    }
    return a;
}

// Whether an in-flow block holds a flow of its own, apart from the floats around it: its overflow is
// hidden, or it is a table.
bool makes_own_context(prepack::block const& b) {
    return b.block_style->rare_box->overflow != css::box::overflow::visible ||
           std::holds_alternative<prepack::bcontent_table>(b.block_content) ||
           std::holds_alternative<prepack::bcontent_computed_table_box>(b.block_content);
}

// The space a gap has taken from the area already.
float committed_of(mc::gap const& g) {
    auto const* n = std::get_if<mc::normal>(&g);
    return n ? n->committed.value_or(0) : 0;
}

// The first place, from `top` down, where a box `width` wide and `height` tall stands beside the
// floats: the bands it would cross, from the one it starts in, all leave it that width, and the place
// is their common part. Where floats leave no place wide enough, the first band below them all that
// has the container's width. None when the bands are the container's.
std::optional<areas::area> band_for(areas::areas const& a, float top, float width, float height) {
    if (std::ranges::none_of(a.available, [&](areas::area const& band) { return floats::narrowed(band, a.container); })) {
        return std::nullopt;
    }
    auto const& bands = a.available;
    auto const last_band = [&](areas::area const& band) { return band.bottom <= a.container.bottom + tolerance; };
    std::optional<areas::area> widest;
    for (std::size_t i = 0; i < bands.size(); ++i) {
        auto band = bands[i];
        if (band.bottom >= top - tolerance && !last_band(band)) {
            continue;
        }
        band.top = std::min(band.top, top);
        // The common part of the bands the box reaches down into.
        auto common = band;
        for (std::size_t j = i + 1; j < bands.size() && !last_band(bands[j - 1]) &&
                                    bands[j - 1].bottom > band.top - height + tolerance;
             ++j) {
            common.left = std::max(common.left, bands[j].left);
            common.right = std::min(common.right, bands[j].right);
        }
        if (areas::width_of(common) + tolerance >= width) {
            return common;
        }
        if (!widest && areas::width_of(band) + tolerance >= areas::width_of(a.container)) {
            widest = band;
        }
    }
    return widest;
}

// The bottom of the lowest float in a flow's bands, if any float narrows them.
std::optional<float> floats_bottom(areas::areas const& a) {
    std::optional<float> low;
    for (auto const& band : a.available) {
        if (floats::narrowed(band, a.container) && (!low || band.bottom < *low)) {
            low = band.bottom;
        }
    }
    return low;
}

void shift_spans(std::vector<spanbox>& spans, float dx);

void shift_span(spanbox& s, float dx, float dy) {
    std::visit(overloaded{
                   [&](ref<nested_spanbox>& n) {
                       auto copy = *n;
                       copy.spanbox_x += dx;
                       shift_spans(copy.spanbox_content, dx);
                       n = share(std::move(copy));
                   },
                   [&](inline_box& ib) {
                       // An inline box's y is relative to the baseline, which the line carries.
                       auto copy = *ib.inline_box_box;
                       shift_box(copy, dx, 0);
                       ib.inline_box_box = share(std::move(copy));
                   },
                   [&](charsbox& c) { c.charsbox_x += dx; },
               },
               s);
    (void)dy;
}

void shift_spans(std::vector<spanbox>& spans, float dx) {
    for (auto& s : spans) {
        shift_span(s, dx, 0);
    }
}

void shift_refs(std::vector<ref<box>>& boxes, float dx, float dy) {
    for (auto& b : boxes) {
        auto copy = *b;
        shift_box(copy, dx, dy);
        b = share(std::move(copy));
    }
}

// The left and right ends of what a line shows.
std::pair<float, float> line_content_extent(linebox const& l) {
    float left = l.linebox_x;
    float right = l.linebox_x;
    bool any = false;
    auto const take = [&](float x, float w) {
        left = any ? std::min(left, x) : x;
        right = std::max(right, x + w);
        any = true;
    };
    for (auto const& s : l.linebox_content) {
        std::visit(overloaded{
                       [&](ref<nested_spanbox> const& n) { take(n->spanbox_x, n->spanbox_w); },
                       [&](inline_box const& ib) { take(ib.inline_box_box->box_x, ib.inline_box_box->box_w); },
                       [&](charsbox const& c) {
                           if (!std::holds_alternative<newline>(c.charsbox_type)) {
                               take(c.charsbox_x, c.charsbox_w);
                           }
                       },
                   },
                   s);
    }
    return {left, right};
}

// The right end of what a line shows.
float line_content_right(linebox const& l) {
    return line_content_extent(l).second;
}

// What a block's content left after packing.
struct content_out {
    bool refused = false;
    pack::box_content content = boxes{};
    std::optional<prepack::bcontent> remain;
    page_info info;
    areas::areas areas;
    mc::gap gap;
    /// The top of the first child box, where a gap handed to the children was committed.
    std::optional<float> first_top;
    /// The forced break that ended the children's walk.
    std::optional<css::box::page_break> forced;
    /// That break was a column break.
    bool column_break = false;
};

content_out
pack_child_blocks(page_info info, prepack::block_list const& children, mc::gap gap, areas::areas a) {
    auto r = blocks::pack_blocks(std::move(info), children, std::move(gap), std::move(a));
    content_out out{.info = std::move(r.out_info),
                    .areas = std::move(r.out_areas),
                    .gap = std::move(r.out_gap),
                    .forced = r.out_forced_break,
                    .column_break = r.out_column_break};
    std::visit(overloaded{
                   [&](blocks::packed_main& p) {
                       if (!p.bs_packed_boxes.empty()) {
                           out.first_top = p.bs_packed_boxes.front()->box_y;
                       }
                       out.content = boxes{std::move(p.bs_packed_boxes)};
                       if (!p.bs_remain_portion.empty()) {
                           out.remain = prepack::bcontent_blocks{std::move(p.bs_remain_portion)};
                       }
                   },
                   [&](blocks::packed_page_stuff& p) {
                       out.refused = true;
                       out.remain = prepack::bcontent_blocks{std::move(p.bsp_remain_portion)};
                   },
                   [&](blocks::none const&) { out.refused = true; },
               },
               r.res);
    return out;
}

// The content of a multi-column container, set in its columns.
content_out column_content(page_info info,
                           ref<css::style::style> const& style,
                           prepack::bcontent_blocks const& bs,
                           areas::areas const& inner,
                           bool continuation,
                           std::optional<float> fixed_height,
                           std::optional<float> max_height) {
    auto r = columns::pack_columns(std::move(info), style, bs.blocks, *bs.column_id, inner.container, continuation,
                                   fixed_height, max_height);
    content_out out{.refused = r.refused, .info = std::move(r.info), .gap = mc::fresh(), .forced = r.forced};
    if (r.refused) {
        return out;
    }
    out.first_top = inner.container.top;
    out.content = column{std::move(r.columns)};
    if (r.remain) {
        out.remain = prepack::bcontent_blocks{std::move(*r.remain), bs.column_id};
    }
    out.areas = mc::moved_down(inner, inner.container.top - r.content_bottom);
    return out;
}

content_out table_content(page_info info,
                          prepack::computed_table_anony_box const& t,
                          areas::areas const& inner,
                          float caption_left,
                          float caption_right) {
    auto r = table_pack::pack_table(std::move(info), t, inner, caption_left, caption_right);
    content_out out{.refused = r.refused,
                    .content = std::move(r.content),
                    .remain = std::move(r.remain),
                    .info = std::move(r.info),
                    .areas = std::move(r.areas),
                    .gap = mc::fresh()};
    return out;
}

} // namespace

std::pair<float, float> relative_offset(css::style::style const& s, css::used_style::used_style const& used) {
    auto const* o = std::get_if<css::used_style::used_offsets>(&used.used_offsets);
    if (!o || s.bit_props.bit_props_position != css::box::position{css::box::position_kind::relative}) {
        return {0, 0};
    }
    float const dx = o->offset_left ? *o->offset_left : o->offset_right ? -*o->offset_right : 0;
    float const dy = o->offset_top ? -*o->offset_top : o->offset_bottom ? *o->offset_bottom : 0;
    return {dx, dy};
}

bool is_forced(css::box::page_break b) {
    return b == css::box::page_break::always || b == css::box::page_break::left ||
           b == css::box::page_break::right;
}

std::optional<css::box::page_break> leading_break(prepack::block_list const& list) {
    prepack::block_list const* blocks = &list;
    while (!blocks->empty()) {
        auto const& first = blocks->front();
        if (is_continuation(first.block_type)) {
            return std::nullopt;
        }
        auto const b = first.block_style->bit_props.bit_props_page_break_before;
        if (is_forced(b)) {
            return b;
        }
        auto const* children = std::get_if<prepack::bcontent_blocks>(&first.block_content);
        if (!children) {
            return std::nullopt;
        }
        blocks = &children->blocks;
    }
    return std::nullopt;
}

void shift_box(box& b, float dx, float dy) {
    b.box_x += dx;
    b.box_y += dy;
    std::visit(overloaded{
                   [&](with_abs& w) {
                       auto inner = *w.with_abs_content;
                       pack::box tmp{.box_content = std::move(inner)};
                       shift_box(tmp, dx, dy);
                       w.with_abs_content = share(std::move(tmp.box_content));
                       shift_refs(w.with_abs_boxes, dx, dy);
                   },
                   [&](boxes& bs) { shift_refs(bs.boxes_list, dx, dy); },
                   [&](table_anony_box& t) { shift_refs(t.table_anony_boxes, dx, dy); },
                   [&](table& t) {
                       for (auto& r : t.table_box.rows) {
                           auto copy = *r.row_content;
                           shift_box(copy, dx, dy);
                           r.row_content = share(std::move(copy));
                           r.row_base += dy;
                       }
                       for (auto& row : t.table_box.borders) {
                           for (auto& bb : row) {
                               bb.border_box_x += dx;
                               bb.border_box_y += dy;
                           }
                       }
                   },
                   [&](para& p) {
                       for (auto& item : p.para_lines) {
                           std::visit(overloaded{
                                          [&](linebox& l) {
                                              l.linebox_x += dx;
                                              l.linebox_base += dy;
                                              shift_spans(l.linebox_content, dx);
                                          },
                                          [&](float_box& f) {
                                              auto copy = *f.float_box_box;
                                              shift_box(copy, dx, dy);
                                              f.float_box_box = share(std::move(copy));
                                          },
                                      },
                                      item);
                       }
                   },
                   [&](list& l) {
                       auto content = *l.list_box.list_content;
                       shift_box(content, dx, dy);
                       l.list_box.list_content = share(std::move(content));
                       if (l.list_box.markerbox) {
                           auto m = **l.list_box.markerbox;
                           shift_box(m, dx, dy);
                           l.list_box.markerbox = share(std::move(m));
                       }
                   },
                   [&](column& c) {
                       shift_refs(c.column_box.column_content, dx, dy);
                       for (auto& r : c.column_box.column_rules) {
                           r.rulebox_pos.x += dx;
                           r.rulebox_pos.y += dy;
                       }
                   },
                   [&](image& i) {
                       i.image_box.imagebox_pos.x += dx;
                       i.image_box.imagebox_pos.y += dy;
                   },
               },
               b.box_content);
}

std::optional<float> first_baseline(box const& b) {
    return std::visit(overloaded{
                          [](with_abs const& w) -> std::optional<float> {
                              return first_baseline(pack::box{.box_content = *w.with_abs_content});
                          },
                          [](boxes const& bs) -> std::optional<float> {
                              for (auto const& c : bs.boxes_list) {
                                  if (auto y = first_baseline(*c)) {
                                      return y;
                                  }
                              }
                              return std::nullopt;
                          },
                          [](table_anony_box const&) -> std::optional<float> { return std::nullopt; },
                          [](table const&) -> std::optional<float> { return std::nullopt; },
                          [](para const& p) -> std::optional<float> {
                              for (auto const& item : p.para_lines) {
                                  if (auto const* l = std::get_if<linebox>(&item)) {
                                      return l->linebox_base;
                                  }
                              }
                              return std::nullopt;
                          },
                          [](list const& l) { return first_baseline(*l.list_box.list_content); },
                          [](column const&) -> std::optional<float> { return std::nullopt; },
                          [](image const&) -> std::optional<float> { return std::nullopt; },
                      },
                      b.box_content);
}

namespace {

// The size of a replaced image's content box: its own size at the image resolution, or the size that
// width and height ask for, the other side following the image's ratio; then min-width, max-width and
// max-height, still keeping the ratio where a side is "auto".
util::size::size replaced_size(css::style::style const& s,
                               css::used_style::used_style const& used,
                               images::image_id const& id,
                               float container_width) {
    auto const& info = id.image_info;
    float dpi_x = 96;
    float dpi_y = 96;
    if (auto const* d = std::get_if<css::box::resolution_dpi>(&s.rare_props->rare_props_image_resolution);
        d && d->dpi > 0) {
        dpi_x = dpi_y = d->dpi;
    } else if (std::holds_alternative<css::box::resolution_from_image>(
                   s.rare_props->rare_props_image_resolution) &&
               info.image_dpi) {
        dpi_x = info.image_dpi->dpi_x;
        dpi_y = info.image_dpi->dpi_y;
    }
    float const w0 = info.image_width * 72.0f / dpi_x;
    float const h0 = info.image_height * 72.0f / dpi_y;
    bool const width_auto = std::holds_alternative<css::box::auto_value>(s.width);
    bool const height_auto = !used.used_height.has_value();
    float w = width_auto ? w0 : used.used_width;
    float h = height_auto ? h0 : *used.used_height;
    if (width_auto && !height_auto && h0 > 0) {
        w = h * w0 / h0;
    } else if (height_auto && !width_auto && w0 > 0) {
        h = w * h0 / w0;
    }
    auto const resolve = [&](auto const& v) -> std::optional<float> {
        if (auto const* f = std::get_if<float>(&v)) {
            return *f;
        }
        if (auto const* p = std::get_if<css::units::percentage>(&v)) {
            return css::units::percent_of(*p, container_width);
        }
        return std::nullopt;
    };
    if (auto const max_w = resolve(s.rare_box->max_width); max_w && w > *max_w) {
        w = std::max(0.0f, *max_w);
        if (height_auto && w0 > 0) {
            h = w * h0 / w0;
        }
    }
    if (auto const min_w = resolve(s.rare_box->min_width); min_w && w < *min_w) {
        w = *min_w;
        if (height_auto && w0 > 0) {
            h = w * h0 / w0;
        }
    }
    if (auto const* max_h = std::get_if<float>(&s.rare_box->max_height); max_h && h > *max_h) {
        h = std::max(0.0f, *max_h);
        if (width_auto && h0 > 0) {
            w = h * w0 / h0;
        }
    }
    return {w, h};
}

} // namespace

namespace {

// A table with captions is laid out as one block whose border and padding surround the captions too;
// but the captions stand outside the table box, whose border, padding and background surround the
// grid alone. The heights add up the same: the top captions move up over the top border and padding,
// the bottom ones down under the bottom border and padding, and a frame box around the grid paints
// the table's border and background in place of the block.
void frame_captioned_table(pack::box& out, float top_edges, float bottom_edges) {
    // The absolutely positioned boxes the table holds may wrap its content.
    auto* wrapped = std::get_if<with_abs>(&out.box_content);
    pack::box_content content = wrapped ? *wrapped->with_abs_content : out.box_content;
    auto* parts = std::get_if<table_anony_box>(&content);
    if (!parts) {
        return;
    }
    auto& list = parts->table_anony_boxes;
    auto const grid_at = std::ranges::find_if(list, [](ref<pack::box> const& p) {
        return std::holds_alternative<pack::table>(p->box_content);
    });
    if (grid_at == list.end()) {
        return;
    }
    auto const& grid = **grid_at;
    pack::box frame{.box_x = out.box_x,
                    .box_y = grid.box_y + top_edges,
                    .box_w = out.box_w,
                    .box_h = grid.box_h + top_edges + bottom_edges,
                    .box_content = boxes{},
                    .box_style = out.box_style,
                    .box_used_style = out.box_used_style};
    std::vector<ref<pack::box>> framed;
    bool past_grid = false;
    for (auto const& p : list) {
        if (p.get() == grid_at->get()) {
            framed.push_back(share(frame));
            framed.push_back(p);
            past_grid = true;
            continue;
        }
        auto moved = *p;
        shift_box(moved, 0, past_grid ? -bottom_edges : top_edges);
        framed.push_back(share(std::move(moved)));
    }
    list = std::move(framed);
    if (wrapped) {
        wrapped->with_abs_content = share(std::move(content));
    } else {
        out.box_content = std::move(content);
    }
    // The block itself paints nothing: the frame has its border and background.
    out.box_used_style.used_borders = {};
    out.box_used_style.used_background_color = css::color::transparent{};
    out.box_used_style.used_background = share(css::box::background{});
}

} // namespace

block_out
pack_block(page_info info, block_type const& type, prepack::block const& b, mc::gap gap, areas::areas a) {
    if (turned::is_turned(info, b)) {
        return turned::pack_turned(std::move(info), type, b, std::move(gap), std::move(a));
    }
    auto const& s = *b.block_style;
    float const container_width = areas::width_of(a.container);
    auto used = css::used_style::used_style_of(s, container_width, info.flags.percent_height_base);
    std::size_t const abs_from = info.accum.abs_blocks.size();
    // A replaced image has the size of its picture; its box is never split.
    std::optional<util::size::size> image_size;
    if (auto const* img = std::get_if<prepack::bcontent_image>(&b.block_content); img && img->image) {
        image_size = replaced_size(s, used, *img->image, container_width);
        used.used_width = image_size->w;
        used.used_height.reset();
    }
    auto const* um = std::get_if<css::used_style::used_margins>(&used.used_margins);
    float margin_top = um ? um->margin_top.value_or(0) : 0;
    float margin_bottom = um ? um->margin_bottom.value_or(0) : 0;
    std::optional<float> margin_left = um ? um->margin_left : std::optional<float>(0);
    std::optional<float> margin_right = um ? um->margin_right : std::optional<float>(0);
    // Floats and inline blocks start a flow of their own: their margins don't collapse with their
    // children's, and "auto" side margins are zero.
    bool const own_flow = !std::holds_alternative<inflow_block>(type);
    if (own_flow) {
        margin_left = margin_left.value_or(0);
        margin_right = margin_right.value_or(0);
    }

    // A table is as wide as its columns need: they are found first, and its box takes their width.
    std::optional<prepack::computed_table_anony_box> computed_table;
    std::optional<table_pack::measure_scope> measuring;
    if (std::holds_alternative<prepack::bcontent_table>(b.block_content) ||
        std::holds_alternative<prepack::bcontent_computed_table_box>(b.block_content)) {
        measuring.emplace();
    }
    if (auto const* t = std::get_if<prepack::bcontent_table>(&b.block_content)) {
        computed_table = table_pack::compute_table(info, *t->table, b.block_style, used.used_width);
    } else if (auto const* t = std::get_if<prepack::bcontent_computed_table_box>(&b.block_content)) {
        computed_table = t->box;
    }
    if (computed_table) {
        table_pack::use_table_width(*computed_table, used);
    }

    bool const continuation = is_continuation(b.block_type);
    bool const slice = s.rare_box->box_decoration_break == css::box::box_decoration_break::slice;
    auto& bd = used.used_borders;
    if (continuation) {
        // A continuation's top margin stayed with the part before the break.
        margin_top = 0;
        if (slice) {
            bd.borders_top.border_width = 0;
            bd.borders_top.border_style = css::box::line_style::none;
            used.used_padding_top = 0;
        }
    }
    float const bl = bd.borders_left.border_width;
    float const br = bd.borders_right.border_width;
    float const bt = bd.borders_top.border_width;
    float const pt = used.used_padding_top;
    float bb = bd.borders_bottom.border_width;
    float pb = used.used_padding_bottom;

    // A block in the flow that holds a flow of its own (its overflow hidden, a table) does not share
    // its band with the floats around it: it goes in the first band from its top down that leaves
    // its margin box room, and an auto width is narrowed to that band.
    bool const own_context = own_flow || makes_own_context(b);
    std::optional<areas::area> band;
    if (std::holds_alternative<inflow_block>(type) && own_context && !fit::measuring()) {
        float const ml0 = margin_left.value_or(0);
        float const mr0 = margin_right.value_or(0);
        bool const auto_width = std::holds_alternative<css::box::auto_value>(s.width) && !computed_table;
        float const edges_w = bl + used.used_padding_left + used.used_padding_right + br;
        float const needed = auto_width ? ml0 + mr0 + edges_w : ml0 + mr0 + edges_w + used.used_width;
        float const hypothetical =
            a.container.top -
            std::max(0.0f, mc::value_of(mc::add_margin(gap, margin_top)) - committed_of(gap));
        // A box of a fixed height must have the room beside the floats all the way down.
        float const tall = used.used_height ? bt + used.used_padding_top + *used.used_height +
                                                  used.used_padding_bottom + bd.borders_bottom.border_width
                                            : 0.0f;
        band = band_for(a, hypothetical, needed, tall);
        if (band && auto_width) {
            float const narrower = container_width - areas::width_of(*band);
            used.used_width = std::max(0.0f, used.used_width - narrower);
        }
    }
    float const room_left = band ? band->left : a.container.left;
    float const room_w = band ? areas::width_of(*band) : container_width;

    // Horizontal margins: "auto" ones share what a narrower box leaves, centring it when both are auto.
    float const border_box_w = bl + used.used_padding_left + used.used_width + used.used_padding_right + br;
    float const free = room_w - border_box_w;
    float ml = 0;
    if (margin_left && margin_right) {
        ml = *margin_left;
    } else if (!margin_left && !margin_right) {
        ml = std::max(0.0f, free / 2);
    } else if (!margin_left) {
        ml = free - *margin_right;
    } else {
        ml = *margin_left;
    }
    float const box_x = room_left + ml;
    float const content_left = box_x + bl + used.used_padding_left;
    float const content_right = content_left + used.used_width;

    auto const original_info = info;
    auto const original_areas = a;
    auto const original_gap = gap;
    auto refuse = [&]() {
        return block_out{
            .res = none{}, .out_info = original_info, .out_areas = original_areas, .out_gap = original_gap};
    };

    gap = mc::add_margin(gap, margin_top);
    // A multi-column container holds its content in a flow of its own: no margin collapses through it.
    auto const* own_blocks = std::get_if<prepack::bcontent_blocks>(&b.block_content);
    bool const blocks_like = (own_blocks && !own_blocks->column_id) ||
                             std::holds_alternative<prepack::bcontent_list_item>(b.block_content);
    bool const commit_top = bt > 0 || pt > 0 || s.rare_box->overflow == css::box::overflow::hidden ||
                            used.used_height.has_value() || !blocks_like || own_flow;
    std::optional<float> box_top;
    areas::areas inner = a;
    mc::gap inner_gap = gap;
    if (commit_top) {
        auto c = mc::commit(gap, a);
        a = std::move(c.commit_areas);
        // Beside floats too wide to leave it room, the block goes down to the band that has it.
        if (band && band->top < a.container.top) {
            a = floats::moved_to(std::move(a), band->top);
        }
        box_top = a.container.top;
        inner = mc::moved_down(a, bt + pt);
        inner_gap = mc::fresh();
    }
    areas::areas const unnarrowed = inner;
    // A table's captions span its border box.
    float const caption_left = bl + used.used_padding_left;
    float const caption_right = br + used.used_padding_right;
    auto pack_content = [&](float floor) {
        inner = narrowed(unnarrowed, content_left, content_right, std::min(floor, unnarrowed.container.top));
        // The floats outside a flow of its own take no room inside it.
        if (own_context) {
            inner.available = {inner.container};
        }

        // The content. Its page state starts as a copy: a default one allocates the shared parts of a
        // fresh run.
        content_out c{.info = info};
        std::visit(
            overloaded{
                [&](prepack::bcontent_para const& p) {
                    auto r = para_main::pack_para(info, b.block_style, used, inner, p.para);
                    if (r.res_boxes.empty() && r.res_remaining) {
                        c.refused = true;
                        return;
                    }
                    c.content = para{std::move(r.res_boxes)};
                    if (r.res_remaining) {
                        c.remain = prepack::bcontent_para{std::move(*r.res_remaining)};
                    }
                    c.info = std::move(r.res_info);
                    c.areas = std::move(r.res_areas);
                    c.gap = mc::fresh();
                },
                [&](prepack::bcontent_blocks const& bs) {
                    if (bs.column_id) {
                        c = column_content(info, b.block_style, bs, inner, continuation, used.used_height,
                                           used.used_max_height);
                        return;
                    }
                    c = pack_child_blocks(info, bs.blocks, inner_gap, inner);
                    if (c.remain) {
                        std::get<prepack::bcontent_blocks>(*c.remain).column_id = bs.column_id;
                    }
                },
                [&](prepack::bcontent_table const&) {
                    c = table_content(info, *computed_table, inner, caption_left, caption_right);
                },
                [&](prepack::bcontent_computed_table_box const&) {
                    c = table_content(info, *computed_table, inner, caption_left, caption_right);
                },
                [&](prepack::bcontent_computed_table const&) {
                    throw internal_error("unexpected content type: computed_table");
                },
                [&](prepack::bcontent_list_item const& li) {
                    c = pack_child_blocks(info, li.item.content, inner_gap, inner);
                    if (c.refused) {
                        return;
                    }
                    auto const* outside = std::get_if<prepack::marker_outside>(&li.item.marker);
                    if (continuation || !outside || !outside->marker_block) {
                        if (c.remain) {
                            c.remain = prepack::bcontent_list_item{
                                prepack::list_item{prepack::marker_inside{},
                                                   std::get<prepack::bcontent_blocks>(*c.remain).blocks}};
                        }
                        return;
                    }
                    // The marker: set on its own, its end against the item's content edge, on the
                    // baseline of the item's first line.
                    auto const& mb = **outside->marker_block;
                    std::optional<ref<box>> marker;
                    pack::box content_box{.box_content = c.content};
                    auto const base = first_baseline(content_box);
                    if (auto const* mp = std::get_if<prepack::bcontent_para>(&mb.block_content); mp && base) {
                        float const far = 10000;
                        areas::area const wide{
                            .top = far, .bottom = -far, .left = content_left - far, .right = content_left};
                        auto mused = css::used_style::used_style_of(*mb.block_style, far, std::nullopt);
                        auto page = info;
                        page.flags.max_page_area = true;
                        auto r = para_main::pack_para(page, mb.block_style, mused,
                                                      areas::areas{.container = wide, .available = {wide}},
                                                      mp->para);
                        if (!r.res_boxes.empty()) {
                            pack::box m{.box_x = content_left - far,
                                        .box_y = far,
                                        .box_w = far,
                                        .box_h = 2 * far,
                                        .box_content = para{std::move(r.res_boxes)},
                                        .box_style = mb.block_style,
                                        .box_used_style = mused};
                            std::optional<float> left;
                            float right = content_left - far;
                            float marker_base = 0;
                            for (auto const& item : std::get<para>(m.box_content).para_lines) {
                                if (auto const* l = std::get_if<linebox>(&item)) {
                                    auto const [l_left, l_right] = line_content_extent(*l);
                                    left = left ? std::min(*left, l_left) : l_left;
                                    right = std::max(right, l_right);
                                }
                            }
                            if (auto mbase = first_baseline(m)) {
                                marker_base = *mbase;
                            }
                            // Half an em of the marker's font stands between it and the text, the
                            // room a marker's trailing space would take. The marker hangs on the side
                            // where the item's lines start: left of the content, or right of it in a
                            // right-to-left list.
                            float const gap = 0.5f * mb.block_style->font_size;
                            bool const rtl = b.block_style && b.block_style->rare_props &&
                                             b.block_style->rare_props->rare_props_direction ==
                                                 css::box::direction::rtl;
                            float const dx = rtl ? content_right + gap - left.value_or(right)
                                                 : content_left - gap - right;
                            shift_box(m, dx, *base - marker_base);
                            // The box is drawn at the marker's own extent.
                            m.box_w = 0;
                            m.box_h = 0;
                            m.box_y = *base;
                            m.box_x = rtl ? content_right : content_left;
                            marker = share(std::move(m));
                        }
                    }
                    auto content = share(pack::box{.box_x = box_x,
                                                   .box_y = c.first_top.value_or(a.container.top),
                                                   .box_content = c.content,
                                                   .box_style = b.block_style});
                    c.content = list{listbox{.list_content = content, .markerbox = marker}};
                    if (c.remain) {
                        c.remain = prepack::bcontent_list_item{prepack::list_item{
                            li.item.marker, std::get<prepack::bcontent_blocks>(*c.remain).blocks}};
                    }
                },
                [&](prepack::bcontent_svg const&) {
                    warn_once(info.general.run->log, said_replaced,
                              "pack_svg: SVG content is not supported yet");
                    c.info = info;
                    c.areas = inner;
                    c.gap = mc::fresh();
                },
                [&](prepack::bcontent_image const& img) {
                    c.info = info;
                    c.gap = mc::fresh();
                    float const h = image_size ? image_size->h : 0;
                    float const room = inner.container.top - inner.container.bottom;
                    if (h > room + tolerance && !info.flags.max_page_area) {
                        // The picture goes whole to the next page.
                        c.refused = true;
                        return;
                    }
                    c.content = image{imagebox{.imagebox_content = img.image,
                                               .imagebox_pos = {content_left, inner.container.top},
                                               .imagebox_size = image_size.value_or(util::size::size{})}};
                    c.areas = mc::moved_down(inner, h);
                },
            },
            b.block_content);
        return c;
    };
    // The children's percentage heights resolve against this box's height when it has one of its own.
    // An anonymous box is passed through: percentages refer to the box around it.
    auto const outer_height_base = info.flags.percent_height_base;
    if (!std::holds_alternative<prepack::type_anonymous>(b.block_type)) {
        info.flags.percent_height_base = used.used_height;
    }
    content_out c = pack_content(a.container.bottom + bb + pb);
    // A sliced part followed by a continuation has no bottom edge, so its content may run down to the
    // bottom of the area: packed again without the room the edge would have taken.
    if (slice && c.remain && !c.refused && bb + pb > tolerance) {
        c = pack_content(a.container.bottom);
    }
    info.flags.percent_height_base = outer_height_base;
    c.info.flags.percent_height_base = outer_height_base;
    if (c.refused && !c.forced) {
        return refuse();
    }
    if (c.refused || (c.forced && std::holds_alternative<boxes>(c.content) &&
                      std::get<boxes>(c.content).boxes_list.empty())) {
        // A forced break in front of the first child: the block starts on the next page.
        auto out = refuse();
        out.out_forced_break = c.forced;
        out.out_column_break = c.column_break;
        return out;
    }
    bool const has_remain = c.remain.has_value();
    if (has_remain && avoids_break(s.bit_props.bit_props_page_break_inside, info.flags) && !info.flags.max_page_area) {
        return refuse();
    }

    // The bottom edge: a part followed by a continuation has none under `slice`.
    if (has_remain && slice) {
        bb = 0;
        pb = 0;
        bd.borders_bottom.border_width = 0;
        bd.borders_bottom.border_style = css::box::line_style::none;
        used.used_padding_bottom = 0;
    }
    // The bottom margin joins the last child's when nothing stands between them.
    bool const through_bottom = !has_remain && bb == 0 && pb == 0 && !used.used_height &&
                                used.used_min_height <= 0 && blocks_like && !own_flow &&
                                !mc::after_clearance(c.gap);

    // Where the box starts: at the committed top, or where the first child took the margins handed
    // down to it. A block with nothing inside that took them starts below them, as its bottom edge
    // or height takes them from the flow (a negative run pulls it up). An empty block whose margins
    // collapse through it leaves them to what follows; it stands where its top border edge would be
    // if it had a bottom border, below them too, so that what it holds (absolutely positioned boxes)
    // is placed from there, while the flow goes on from where it was.
    float const pending = mc::value_of(c.gap) - committed_of(c.gap);
    bool const nothing_took_top = !box_top && !c.first_top && !has_remain;
    float const flow_top = original_areas.container.top;
    float const top = box_top        ? *box_top
                      : c.first_top  ? *c.first_top
                      : nothing_took_top && !through_bottom ? flow_top - pending
                                                            : flow_top;
    float const content_top = box_top ? *box_top - bt - pt : top;
    float const shown_top = nothing_took_top && through_bottom ? flow_top - pending : top;

    areas::areas after = c.areas;
    mc::gap trailing = c.gap;
    if (!through_bottom && !has_remain) {
        auto committed = mc::commit(trailing, after);
        after = std::move(committed.commit_areas);
        trailing = mc::fresh();
    }
    float content_h = std::max(0.0f, content_top - after.container.top);
    // A flow of its own holds its floats: its height reaches down to the lowest of them.
    if (own_context && !has_remain) {
        if (auto const low = floats_bottom(c.areas)) {
            content_h = std::max(content_h, content_top - *low);
        }
    }
    std::optional<prepack::block> remain;
    if (has_remain) {
        // The part fills the area down to its bottom.
        content_h = std::max(content_h, content_top - inner.container.bottom);
        remain = prepack::block{.block_content = std::move(*c.remain),
                                .block_style = b.block_style,
                                .block_type = prepack::type_remaining{info_of(b.block_type)},
                                .block_bg = b.block_bg};
    }
    if (used.used_height) {
        float const h = *used.used_height;
        float const room = std::max(0.0f, content_top - inner.container.bottom);
        float const left_over = h - (has_remain ? content_h : std::min(h, room));
        if (!has_remain) {
            content_h = std::min(h, room);
        }
        if (left_over > tolerance) {
            // The fixed height runs past the area: the rest of it goes on in an overflowing part, with
            // what is left of the content.
            auto rest_style = s;
            rest_style.height = left_over;
            rest_style.box_sizing = css::box::box_sizing::content_box;
            remain = prepack::block{
                .block_content =
                    remain ? std::move(remain->block_content) : prepack::bcontent{prepack::bcontent_blocks{}},
                .block_style = share(std::move(rest_style)),
                .block_type = prepack::type_overflowing{info_of(b.block_type)},
                .block_bg = b.block_bg,
            };
            if (avoids_break(s.bit_props.bit_props_page_break_inside, info.flags) && !info.flags.max_page_area) {
                return refuse();
            }
        }
    } else if (!has_remain) {
        content_h = std::max(content_h, used.used_min_height);
        if (used.used_max_height) {
            content_h = std::min(content_h, *used.used_max_height);
        }
    }
    float const top_edges = box_top ? bt + pt : 0;
    float const box_h = top_edges + content_h + pb + bb;
    float const bottom = top - box_h;
    after = mc::moved_down(std::move(after), after.container.top - bottom);
    after.container.left = original_areas.container.left;
    after.container.right = original_areas.container.right;
    after.container.bottom = original_areas.container.bottom;
    // The floats of the content reach out of the block: the bands below it keep their cuts.
    auto outer = original_areas.available.empty() ? std::vector{original_areas.container}
                                                  : std::vector<areas::area>(original_areas.available.begin(),
                                                                             original_areas.available.end());
    // A negative margin may have pulled the box above the area's top: the room below it starts there.
    if (outer.front().top < after.container.top) {
        outer.front().top = after.container.top;
    }
    after.available =
        own_context ? floats::carry_out({}, c.areas.container, outer, after.container.top)
                    : floats::carry_out(c.areas.available, c.areas.container, outer, after.container.top);
    if (after.available.empty()) {
        after.available = {after.container};
    }

    pack::box out{
        .box_x = box_x,
        .box_y = shown_top,
        .box_w = border_box_w,
        .box_h = box_h,
        .box_content = std::move(c.content),
        .box_style = b.block_style,
        .box_used_style = used,
        .box_type = b.block_type,
    };
    // The absolutely positioned boxes met inside a positioned box are placed against its padding box.
    // A box packed away from its place whose gatherings are not handed on with it (an inline block, a
    // page float, a margin box) holds those met inside it too. A float hands them on, their static
    // positions moved with it. Content packed only to measure its widths places none: they take no
    // room in it.
    if (!fit::measuring() &&
        (positioned::is_positioned(s) ||
         (!std::holds_alternative<inflow_block>(type) && !std::holds_alternative<float_block>(type)))) {
        positioned::hang_inner(c.info, abs_from, out);
    }
    frame_captioned_table(out, bt + pt, pb + bb);
    // A relatively positioned box moves by its offsets with no effect on the flow.
    if (auto const [dx, dy] = relative_offset(s, used); dx != 0 || dy != 0) {
        shift_box(out, dx, dy);
    }
    mc::gap out_gap = has_remain ? mc::gap{mc::fresh()} : mc::add_margin(trailing, margin_bottom);
    return block_out{
        .res = packed_main{.b_packed_box = share(std::move(out)),
                           .b_remain_portion = std::move(remain),
                           .b_content_top_bottom = {content_top, content_top - content_h}},
        .out_info = std::move(c.info),
        .out_areas = std::move(after),
        .out_gap = std::move(out_gap),
        .out_forced_break = has_remain ? c.forced : std::nullopt,
        .out_column_break = has_remain && c.column_break,
    };
}

std::optional<float> last_baseline(box const& b) {
    return std::visit(overloaded{
                          [](with_abs const& w) -> std::optional<float> {
                              return last_baseline(pack::box{.box_content = *w.with_abs_content});
                          },
                          [](boxes const& bs) -> std::optional<float> {
                              for (auto it = bs.boxes_list.rbegin(); it != bs.boxes_list.rend(); ++it) {
                                  if (auto y = last_baseline(**it)) {
                                      return y;
                                  }
                              }
                              return std::nullopt;
                          },
                          [](table_anony_box const&) -> std::optional<float> { return std::nullopt; },
                          [](table const&) -> std::optional<float> { return std::nullopt; },
                          [](para const& p) -> std::optional<float> {
                              for (auto it = p.para_lines.rbegin(); it != p.para_lines.rend(); ++it) {
                                  if (auto const* l = std::get_if<linebox>(&*it)) {
                                      return l->linebox_base;
                                  }
                              }
                              return std::nullopt;
                          },
                          [](list const& l) { return last_baseline(*l.list_box.list_content); },
                          [](column const&) -> std::optional<float> { return std::nullopt; },
                          [](image const&) -> std::optional<float> { return std::nullopt; },
                      },
                      b.box_content);
}

namespace {

std::pair<float, float> side_margins(box const& b) {
    auto const* m = std::get_if<css::used_style::used_margins>(&b.box_used_style.used_margins);
    if (!m) {
        return {0, 0};
    }
    return {m->margin_left.value_or(0), m->margin_right.value_or(0)};
}

float side_edges(box const& b) {
    auto const& u = b.box_used_style;
    return u.used_borders.borders_left.border_width + u.used_padding_left + u.used_padding_right +
           u.used_borders.borders_right.border_width;
}

bool auto_width(box const& b) {
    return b.box_style && std::holds_alternative<css::box::auto_value>(b.box_style->width);
}

// The width the content of a box takes, without the box's own edges.
float content_natural(box const& b) {
    auto const margin_box = [](box const& c) {
        auto const [l, r] = side_margins(c);
        return l + natural_width(c) + r;
    };
    return std::visit(overloaded{
                          [&](with_abs const& w) {
                              return content_natural(pack::box{.box_content = *w.with_abs_content});
                          },
                          [&](boxes const& bs) {
                              float w = 0;
                              for (auto const& c : bs.boxes_list) {
                                  w = std::max(w, margin_box(*c));
                              }
                              return w;
                          },
                          [&](para const& p) {
                              float w = 0;
                              for (auto const& item : p.para_lines) {
                                  std::visit(overloaded{
                                                 [&](linebox const& l) {
                                                     w = std::max(w, line_content_right(l) - l.linebox_x);
                                                 },
                                                 [&](float_box const& f) { w = std::max(w, margin_box(*f.float_box_box)); },
                                             },
                                             item);
                              }
                              return w;
                          },
                          [&](list const& l) { return content_natural(*l.list_box.list_content); },
                          [&](table_anony_box const&) { return b.box_w - side_edges(b); },
                          [&](table const&) { return b.box_w - side_edges(b); },
                          [&](column const&) { return b.box_w - side_edges(b); },
                          [&](image const&) { return b.box_w - side_edges(b); },
                      },
                      b.box_content);
}

} // namespace

float natural_width(box const& b) {
    if (!auto_width(b)) {
        return b.box_w;
    }
    return content_natural(b) + side_edges(b);
}

namespace {

// How a box of shrink-to-fit width sits in a container: its style, narrowed where what it holds needs
// less than the room, and the width of its margin box.
struct fit_plan {
    std::optional<ref<css::style::style>> narrowed_style;
    float margin_box_width = 0;
};

// None for a box that takes the width its style gives: one of fixed width, a table (as wide as its
// columns) or a picture (as wide as its picture).
std::optional<fit_plan> plan_fit(page_info const& info, prepack::block const& b, float container_width) {
    auto const& s = *b.block_style;
    bool const shrinks = std::holds_alternative<prepack::bcontent_blocks>(b.block_content) ||
                         std::holds_alternative<prepack::bcontent_para>(b.block_content) ||
                         std::holds_alternative<prepack::bcontent_list_item>(b.block_content);
    if (!shrinks || !std::holds_alternative<css::box::auto_value>(s.width)) {
        return std::nullopt;
    }
    auto used = css::used_style::used_style_of(s, container_width, std::nullopt);
    auto const* m = std::get_if<css::used_style::used_margins>(&used.used_margins);
    // Such a box starts a flow of its own: "auto" side margins are zero.
    float const margins = m ? m->margin_left.value_or(0) + m->margin_right.value_or(0) : 0;
    float const edges = used.used_borders.borders_left.border_width + used.used_padding_left +
                        used.used_padding_right + used.used_borders.borders_right.border_width;
    float const room = std::max(0.0f, container_width - margins - edges);
    float const width = fit::shrink_to_fit(fit::content_widths_of(info, b), room);
    fit_plan plan;
    if (std::abs(width - room) > 0.01f) {
        // As wide as what it holds, narrower than the room or, for a word longer than the room, wider:
        // the width property says so in the box's own box-sizing, so that min-width and max-width still
        // hold it as they would.
        float const extra = s.box_sizing == css::box::box_sizing::border_box ? edges
                            : s.box_sizing == css::box::box_sizing::padding_box
                                ? used.used_padding_left + used.used_padding_right
                                : 0.0f;
        auto narrow = s;
        narrow.width = width + extra;
        used = css::used_style::used_style_of(narrow, container_width, std::nullopt);
        plan.narrowed_style = share(std::move(narrow));
    }
    plan.margin_box_width = margins + edges + used.used_width;
    return plan;
}

} // namespace

block_out pack_fit(page_info info, block_type const& type, prepack::block const& b, mc::gap gap, areas::areas a) {
    fit::measure_scope const scope;
    auto const plan = plan_fit(info, b, areas::width_of(a.container));
    if (!plan || !plan->narrowed_style) {
        return pack_block(std::move(info), type, b, std::move(gap), std::move(a));
    }
    auto again = b;
    again.block_style = *plan->narrowed_style;
    return pack_block(std::move(info), type, again, std::move(gap), std::move(a));
}

float float_width(page_info const& info, prepack::block const& b, float container_width) {
    fit::measure_scope const scope;
    if (auto const plan = plan_fit(info, b, container_width)) {
        return plan->margin_box_width;
    }
    return pack_inline_block(info, b, container_width).inline_width;
}

namespace {

// The baseline of row `n` (from 1) of the table in a box, or of its last row when it has fewer.
std::optional<float> table_row_baseline(box const& b, int n) {
    if (auto const* w = std::get_if<with_abs>(&b.box_content)) {
        return table_row_baseline(pack::box{.box_content = *w->with_abs_content}, n);
    }
    if (auto const* t = std::get_if<table_anony_box>(&b.box_content)) {
        for (auto const& part : t->table_anony_boxes) {
            if (auto y = table_row_baseline(*part, n)) {
                return y;
            }
        }
        return std::nullopt;
    }
    auto const* t = std::get_if<table>(&b.box_content);
    if (!t || t->table_box.rows.size() <= t->table_box.tablebox_cells_from) {
        return std::nullopt;
    }
    std::size_t const count = t->table_box.rows.size() - t->table_box.tablebox_cells_from;
    std::size_t const k = std::min(count, static_cast<std::size_t>(std::max(1, n))) - 1;
    return t->table_box.rows[t->table_box.tablebox_cells_from + k].row_base;
}

bool is_table(prepack::block const& b) {
    return std::holds_alternative<prepack::bcontent_table>(b.block_content) ||
           std::holds_alternative<prepack::bcontent_computed_table_box>(b.block_content);
}

} // namespace

packed_inline pack_inline_block(page_info info, prepack::block const& b, float container_width) {
    // An inline block is never split: its trial area reaches far below any page.
    float const far = 1000000.0f;
    areas::area const trial{.top = 0, .bottom = -far, .left = 0, .right = container_width};
    info.flags.max_page_area = true;
    // What the inline block gathers is not handed back: page floats in it stay in its flow.
    info.flags.pack_page_stuff = false;
    if (fit::measuring()) {
        // A line packed to learn its widths needs only the inline block's width: a box of that width
        // and no height stands for it.
        fit::measure_scope const scope;
        if (auto const plan = plan_fit(info, b, container_width)) {
            return {.inline_width = plan->margin_box_width,
                    .inline_box = share(box{.box_w = plan->margin_box_width, .box_style = b.block_style})};
        }
    }
    auto r = pack_fit(std::move(info), inline_block{}, b, mc::fresh(), areas::areas{.container = trial, .available = {trial}});
    auto const* p = std::get_if<packed_main>(&r.res);
    if (!p) {
        throw internal_error("inline block: unexpected pack result.");
    }
    auto bx = *p->b_packed_box;
    auto const* m = std::get_if<css::used_style::used_margins>(&bx.box_used_style.used_margins);
    float const ml = m ? m->margin_left.value_or(0) : 0;
    float const mr = m ? m->margin_right.value_or(0) : 0;
    float const mb = m ? m->margin_bottom.value_or(0) : 0;
    // The baseline: that of the last line, unless the box has none or hides its overflow; then the
    // bottom margin edge stands on the line's baseline.
    std::optional<float> base;
    if (is_table(b)) {
        // An inline table stands on the baseline of the row its table-baseline names, the first by
        // default.
        base = table_row_baseline(bx, bx.box_style->rare_box->table_baseline);
    } else if (bx.box_style->rare_box->overflow == css::box::overflow::visible) {
        base = last_baseline(bx);
    }
    float const y = base ? *base : bx.box_y - bx.box_h - mb;
    shift_box(bx, -bx.box_x + ml, -y);
    float const width = ml + bx.box_w + mr;
    return {.inline_width = width, .inline_box = share(std::move(bx))};
}

} // namespace vellum::pack::block
