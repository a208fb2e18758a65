#include "pack/blocks.hpp"

#include "css/used_style.hpp"
#include "pack/floats.hpp"
#include "pack/multicol.hpp"
#include "pack/page_floats.hpp"
#include "pack/positioned.hpp"
#include "pack/spans_to_knuth.hpp"

#include "util/ref.hpp"

namespace vellum::pack::blocks {

namespace {

namespace mc = margin_collapsing;

using css::box::page_break;

// A sibling placed, kept until the next one shows whether a break may fall after it.
struct temp_entry {
    ref<box> packed;
    std::size_t index = 0;
    /// The state after the sibling.
    page_info info;
    areas::areas areas;
    mc::gap gap;
};

page_break break_before(prepack::block const& b) {
    return b.block_style->bit_props.bit_props_page_break_before;
}

page_break break_after(prepack::block const& b) {
    return b.block_style->bit_props.bit_props_page_break_after;
}

// Inside a multi-column container a column break ends the walk as a page break does.
bool column_break(css::box::column_break c, page_info const& info) {
    return info.general.column_id && c == css::box::column_break::always;
}

bool is_original(prepack::block const& b) {
    return !std::holds_alternative<prepack::type_remaining>(b.block_type) &&
           !std::holds_alternative<prepack::type_overflowing>(b.block_type);
}

bool displayed_as(prepack::block const& b, css::box::display_kind k) {
    auto const* d = std::get_if<css::box::display_kind>(&b.block_style->bit_props.bit_props_display);
    return d != nullptr && *d == k;
}

// A run-in box followed by a block holding a paragraph becomes the first inline box of that
// paragraph: the paragraph is returned with the run-in's items in front of its own.
std::optional<prepack::block> run_in_merged(page_info const& info, prepack::block const& run_in,
                                            prepack::block const& next, float width) {
    auto const* own = std::get_if<prepack::bcontent_para>(&run_in.block_content);
    // A block holding blocks takes the run-in into its first paragraph, however deep.
    if (auto const* bs = std::get_if<prepack::bcontent_blocks>(&next.block_content);
        own && bs && !bs->column_id && !bs->blocks.empty() && is_original(next) &&
        displayed_as(next, css::box::display_kind::block) && !floats::float_side(*next.block_style, info) &&
        !block::is_forced(break_before(next))) {
        auto inner = run_in_merged(info, run_in, bs->blocks.front(), width);
        if (!inner) {
            return std::nullopt;
        }
        auto merged = next;
        std::vector<prepack::block> head;
        head.push_back(std::move(*inner));
        std::get<prepack::bcontent_blocks>(merged.block_content).blocks =
            prepack::block_list(std::move(head), bs->blocks, 1);
        return merged;
    }
    auto const* target = std::get_if<prepack::bcontent_para>(&next.block_content);
    if (!own || !target || !is_original(next) || !displayed_as(next, css::box::display_kind::block) ||
        floats::float_side(*next.block_style, info) || block::is_forced(break_before(next)) ||
        !std::holds_alternative<prepack::para_initial>(target->para.para_content) || target->para.pass_in) {
        return std::nullopt;
    }
    prepack::span inline_run_in = prepack::span_nested{prepack::nested_span{
        .span_content = own->para.para_spans,
        .span_style = run_in.block_style,
        .span_type = run_in.block_type,
        .span_bg = run_in.block_bg,
    }};
    auto items = spans_to_knuth::para_to_knuths(
                     info, next.block_style,
                     prepack::para{.para_spans = {std::move(inline_run_in)}, .para_text = own->para.para_text}, width)
                     .res_items;
    // The paragraph's own end stays: the run-in's forced break goes.
    while (!items.empty() && knuth::is_forced_break(items.back())) {
        items.pop_back();
    }
    auto merged = next;
    auto& para = std::get<prepack::bcontent_para>(merged.block_content).para;
    para.pass_in = share(prepack::para_pass_in{.pass_in_items = std::move(items)});
    return merged;
}

// Where the next block's top edge would stand: below the margins not yet taken from the area.
float flow_top(areas::areas const& a, mc::gap const& gap) {
    float pending = 0;
    if (auto const* n = std::get_if<mc::normal>(&gap)) {
        pending = n->positive + n->negative - n->committed.value_or(0);
    }
    return a.container.top - std::max(0.0f, pending);
}

// The top margin of a block in a container of the given width; none on a continuation.
float top_margin_of(prepack::block const& b, float container_width) {
    if (!is_original(b)) {
        return 0;
    }
    auto const used = css::used_style::used_style_of(*b.block_style, container_width, std::nullopt);
    auto const* m = std::get_if<css::used_style::used_margins>(&used.used_margins);
    return m ? m->margin_top.value_or(0) : 0;
}

} // namespace

blocks_out pack_blocks(page_info info, prepack::block_list const& blocks, mc::gap gap, areas::areas areas) {
    bool const max_area = info.flags.max_page_area;
    std::vector<temp_entry> stack;
    page_info cur_info = info;
    areas::areas cur_areas = areas;
    mc::gap cur_gap = gap;
    std::optional<page_break> forced;
    bool forced_column = false;
    prepack::block_list remain;
    // Whether a block at `i` was refused whole, so that the break falls in front of it.
    std::optional<std::size_t> refused_at;
    // The top of the margin box of the last float placed among these siblings.
    std::optional<float> floats_top;
    // The absolutely positioned blocks met, with their place in the list and their static position;
    // those in front of the break are this page's.
    std::vector<std::pair<std::size_t, std::pair<prepack::block, util::pos::pos>>> absolutes;
    std::size_t cut = blocks.size();

    auto restore = [&](std::size_t keep) {
        if (keep == 0) {
            cur_info = info;
            cur_areas = areas;
            cur_gap = gap;
        } else {
            cur_info = stack[keep - 1].info;
            cur_areas = stack[keep - 1].areas;
            cur_gap = stack[keep - 1].gap;
        }
    };

    // A paragraph with a run-in merged into it stands in for the block at `merged_at`; the list itself
    // is left as it is, so that what goes on to the next page starts at the run-in again.
    std::optional<prepack::block> merged;
    std::optional<std::size_t> merged_at;
    auto const list_start = [&](std::size_t j) { return merged_at == j ? j - 1 : j; };

    for (std::size_t i = 0; i < blocks.size(); ++i) {
        if (displayed_as(blocks[i], css::box::display_kind::run_in) && is_original(blocks[i]) &&
            i + 1 < blocks.size() && !floats::float_side(*blocks[i].block_style, cur_info)) {
            merged = run_in_merged(cur_info, blocks[i], blocks[i + 1], areas::width_of(cur_areas.container));
            if (merged) {
                merged_at = i + 1;
                continue;
            }
        }
        auto const& b = merged_at == i ? *merged : blocks[i];
        multicol::note_column_stuff(info.general.run->log, *b.block_style,
                                    info.general.column_id.has_value());
        // Absolutely positioned blocks leave the flow where they stand: placed once their containing
        // block is known. Fixed ones are the page's, on every page.
        if (is_original(b) && positioned::is_out_of_flow(*b.block_style)) {
            if (!positioned::is_fixed(*b.block_style)) {
                // Right to left, a box starts at the right edge of the flow.
                bool const rtl = b.block_style->rare_props->rare_props_direction == css::box::direction::rtl;
                util::pos::pos const at{rtl ? cur_areas.container.right : cur_areas.container.left,
                                        flow_top(cur_areas, cur_gap)};
                absolutes.push_back({i, {b, at}});
            }
            continue;
        }
        // The footnotes called so far have taken room from the foot of the page.
        cur_areas = above_footnotes(cur_info, std::move(cur_areas));
        // A forced break in front of a block ends the walk, unless nothing has been placed on this
        // page yet: then the break has happened already. The largest space there is, with nothing in
        // it so far, says so; the position of the area can't, since the padding or border of an
        // enclosing block lowers the first child's top on every page alike.
        bool const at_top = max_area && stack.empty();
        if (is_original(b) && block::is_forced(break_before(b)) && !at_top) {
            forced = break_before(b);
            cut = list_start(i);
            remain = blocks.suffix(cut);
            break;
        }
        if (is_original(b) && !at_top && column_break(b.block_style->bit_props.bit_props_column_break_before, cur_info)) {
            forced = page_break::always;
            forced_column = true;
            cut = list_start(i);
            remain = blocks.suffix(cut);
            break;
        }
        // A float set aside leaves an empty mark in the flow, so that a break behind it keeps it here.
        auto const leave_mark = [&] {
            stack.push_back(temp_entry{.packed = share(box{.box_x = cur_areas.container.left,
                                                           .box_y = flow_top(cur_areas, cur_gap),
                                                           .box_style = css::style::initial_style()}),
                                       .index = i,
                                       .info = cur_info,
                                       .areas = cur_areas,
                                       .gap = cur_gap});
        };
        // A page or column float with `unless-fit` stays in the flow when it fits there whole.
        auto const fits_whole_in_flow = [&] {
            auto trial_info = cur_info;
            trial_info.flags.max_page_area = false;
            auto const t = block::pack_block(std::move(trial_info), block::inflow_block{}, b, cur_gap, cur_areas);
            auto const* p = std::get_if<block::packed_main>(&t.res);
            return p && !p->b_remain_portion;
        };
        // Inside columns, a float to the top or bottom of a column is set aside for the columns, which
        // place it; one they have placed already is never kept in the flow too.
        if (cur_info.general.column_id && is_original(b) && multicol::floats_to_column(*b.block_style)) {
            bool const placed = std::ranges::find(cur_info.accum.column_floats, b) != cur_info.accum.column_floats.end();
            bool const stays = !placed &&
                               std::get<css::box::float_column>(b.block_style->float_).column_float.float_unless_fit &&
                               fits_whole_in_flow();
            if (!stays) {
                if (!placed) {
                    cur_info.accum.column_floats.push_back(b);
                }
                leave_mark();
                continue;
            }
        }
        // A float to the top or bottom of the page is set aside for the page loop, which places it.
        if (is_original(b) && !cur_info.flags.pack_page_stuff) {
            page_floats::note_in_flow(info.general.run->log, *b.block_style);
        }
        if (is_original(b) && page_floats::takes_page_float(cur_info, *b.block_style)) {
            auto const how = page_floats::settle_snap(*page_floats::page_float_of(*b.block_style),
                                                      flow_top(cur_areas, cur_gap), cur_info.general.body_area);
            bool const stays = how.float_unless_fit && fits_whole_in_flow();
            if (!stays) {
                cur_info.accum.page_floats.push_back(page_float{
                    .page_float_body = b, .page_float_how = how, .page_float_y = flow_top(cur_areas, cur_gap)});
                leave_mark();
                continue;
            }
        }
        // A float goes beside the flow: its room is cut out of the bands, and the flow's top stays.
        if (auto const side = floats::float_side(*b.block_style, cur_info)) {
            float top = flow_top(cur_areas, cur_gap);
            // A float never stands higher than one placed before it, even where the bands above
            // would have room for it.
            if (floats_top) {
                top = std::min(top, *floats_top);
            }
            if (auto const y = floats::clearance(cur_areas, floats::clear_of(*b.block_style, cur_info), top)) {
                top = *y;
            }
            auto placed = floats::place_float(cur_info, b, *side, top, cur_areas, max_area && stack.empty());
            if (!placed) {
                // It fits nowhere below: it goes on to the next page with what follows it.
                refused_at = i;
                break;
            }
            stack.push_back(temp_entry{.packed = placed->placed_box,
                                       .index = i,
                                       .info = placed->placed_info,
                                       .areas = placed->placed_areas,
                                       .gap = cur_gap});
            floats_top = placed->placed_top;
            cur_info = std::move(placed->placed_info);
            cur_areas = std::move(placed->placed_areas);
            continue;
        }
        // Clearance: the block's top moves below the floats on the sides it clears, and the margins
        // above it no longer collapse with its own.
        auto block_areas = cur_areas;
        auto block_gap = cur_gap;
        bool cleared = false;
        if (is_original(b)) {
            auto const clear = floats::clear_of(*b.block_style, cur_info);
            // The block is cleared only when its top border edge, with its top margin collapsed into
            // the run above it, would stand above the bottom of a float it clears. Then the edge goes
            // to the float's bottom, and the margin is spent in the clearance.
            float const margin =
                clear.left || clear.right ? top_margin_of(b, areas::width_of(cur_areas.container)) : 0;
            float const hypothetical = flow_top(cur_areas, mc::add_margin(cur_gap, margin));
            if (auto const y = floats::clearance(cur_areas, clear, hypothetical)) {
                block_areas = floats::moved_to(std::move(block_areas), *y);
                block_gap = mc::normal{.positive = std::max(0.0f, margin),
                                       .negative = std::min(0.0f, margin),
                                       .committed = margin};
                cleared = true;
            }
        }
        // Only the first block placed may be forced into the space: later ones can go on.
        auto child_info = cur_info;
        child_info.flags.max_page_area = max_area && stack.empty();
        auto r = block::pack_block(std::move(child_info), block::inflow_block{}, b, std::move(block_gap),
                                   std::move(block_areas));
        r.out_info.flags.max_page_area = max_area;
        if (std::holds_alternative<block::none>(r.res) && r.out_forced_break) {
            // A forced break in front of the block's first child falls in front of the block.
            forced = r.out_forced_break;
            forced_column = r.out_column_break;
            cut = list_start(i);
            remain = blocks.suffix(cut);
            break;
        }
        if (std::holds_alternative<block::none>(r.res) ||
            std::holds_alternative<block::packed_page_stuff>(r.res)) {
            if (stack.empty() && max_area) {
                // Not even the largest space takes it: it is lost, and the walk goes on.
                log::log_warning(info.general.run->log, "dropping unpackable block");
                continue;
            }
            refused_at = i;
            break;
        }
        auto& p = std::get<block::packed_main>(r.res);
        // The margins after a block with clearance stay inside the block around them.
        if (auto* n = std::get_if<mc::normal>(&r.out_gap); n && cleared) {
            n->after_clearance = true;
        }
        stack.push_back(temp_entry{.packed = p.b_packed_box,
                                   .index = i,
                                   .info = r.out_info,
                                   .areas = r.out_areas,
                                   .gap = r.out_gap});
        cur_info = std::move(r.out_info);
        cur_areas = std::move(r.out_areas);
        cur_gap = std::move(r.out_gap);
        if (p.b_remain_portion) {
            forced = r.out_forced_break;
            forced_column = r.out_column_break;
            std::vector<prepack::block> head;
            head.push_back(std::move(*p.b_remain_portion));
            remain = prepack::block_list(std::move(head), blocks, i + 1);
            cut = i;
            break;
        }
        if (block::is_forced(break_after(b)) && i + 1 < blocks.size()) {
            forced = break_after(b);
            cut = i + 1;
            remain = blocks.suffix(cut);
            break;
        }
        if (column_break(b.block_style->bit_props.bit_props_column_break_after, cur_info) && i + 1 < blocks.size()) {
            forced = page_break::always;
            forced_column = true;
            cut = i + 1;
            remain = blocks.suffix(cut);
            break;
        }
    }

    if (refused_at) {
        // The break falls in front of the refused block. It may not fall behind a block that asks to
        // stay with the next (or in front of one that asks to stay with the previous): such blocks go
        // on with it.
        std::size_t keep = stack.size();
        auto avoided = [&](std::size_t k) {
            auto const& last = blocks[stack[k - 1].index];
            std::size_t const next = stack[k - 1].index + 1;
            return avoids_break(break_after(last), info.flags) ||
                   (next < blocks.size() && avoids_break(break_before(blocks[next]), info.flags));
        };
        while (keep > 0 && avoided(keep)) {
            --keep;
        }
        if (keep == 0) {
            if (!max_area || stack.empty()) {
                return blocks_out{.res = none{}, .out_info = info, .out_areas = areas, .out_gap = gap};
            }
            // The largest space there is: the wish is overruled, and the break stays where it fell.
            keep = stack.size();
        }
        std::size_t const from = list_start(keep < stack.size() ? stack[keep].index : *refused_at);
        stack.resize(keep);
        restore(keep);
        cut = from;
        remain = blocks.suffix(from);
    }

    packed_main out;
    for (auto& e : stack) {
        out.bs_packed_boxes.push_back(std::move(e.packed));
    }
    out.bs_remain_portion = std::move(remain);
    out.bs_content_top_bottom = {areas.container.top, cur_areas.container.top};
    if (out.bs_packed_boxes.empty() && !out.bs_remain_portion.empty() && !forced) {
        return blocks_out{.res = none{}, .out_info = info, .out_areas = areas, .out_gap = gap};
    }
    for (auto& [index, entry] : absolutes) {
        if (index < cut) {
            cur_info.accum.abs_blocks.push_back(std::move(entry));
        }
    }
    return blocks_out{.res = std::move(out),
                      .out_info = std::move(cur_info),
                      .out_areas = std::move(cur_areas),
                      .out_gap = std::move(cur_gap),
                      .out_forced_break = forced,
                      .out_column_break = forced && forced_column};
}

} // namespace vellum::pack::blocks
