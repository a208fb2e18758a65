#include "pack/columns.hpp"

#include "pack/block.hpp"
#include "pack/blocks.hpp"
#include "pack/footnotes.hpp"
#include "pack/margin_collapsing.hpp"
#include "pack/positioned.hpp"
#include "util/ref.hpp"

#include <algorithm>
#include <cmath>

namespace vellum::pack::columns {

namespace {

namespace mc = margin_collapsing;

constexpr float tolerance = 0.0001f;

// The most passes balancing may take beyond the first: enough to halve any page's height down to a
// line. A container nested in a column is balanced in every pass of its outer container, so it gets
// fewer; one inside two searches already is filled column after column, not balanced, since the passes
// of nested searches multiply with the depth.
constexpr int balance_passes = 14;
constexpr int nested_balance_passes = 6;

// How many balancing searches are under way around the container being packed.
thread_local int searches_around = 0;

struct search_scope {
    search_scope() { ++searches_around; }
    ~search_scope() { --searches_around; }
    search_scope(search_scope const&) = delete;
    search_scope& operator=(search_scope const&) = delete;
};

// How many trial passes of a balancing search are under way around the container being packed. In a
// trial nothing is forced into a column, and a column that takes nothing of what is left ends the pass:
// the trial height is too short for the first piece that can't be broken, and so is every column after
// it, for this container and for every container around it. Without that, each level of nesting would
// try its content again in every column of the level around it.
thread_local int trials_around = 0;

struct trial_scope {
    trial_scope() { ++trials_around; }
    ~trial_scope() { --trials_around; }
    trial_scope(trial_scope const&) = delete;
    trial_scope& operator=(trial_scope const&) = delete;
};

// The footnotes called in a later column may take room that an earlier column has filled: the set is
// packed again above them, a few times at most.
constexpr int page_stuff_passes = 4;

// Footnotes carried into a column, or left over from a set of columns to the page, take at most the
// footnotes' share of its height: the rest of a long one runs on.
using footnotes::footnote_share;

struct pass_input {
    page_info const& info;
    prepack::block_list const& blocks;
    areas::area inner;
    column_info geometry;
    bool continuation = false;
};

// A float to the top of a column, packed at the top of the column's area: its box, and its height
// with its margins; and the footnotes its text calls, for the page and for the column, numbered up
// to `cf_counter`.
struct column_float {
    ref<box> cf_box;
    float cf_height = 0;
    std::vector<page_footnote> cf_page_notes;
    std::vector<page_footnote> cf_column_notes;
    int cf_counter = 0;
};

std::optional<column_float> pack_column_float(page_info info, prepack::block const& b, areas::area a) {
    // A float is never split: it is packed in a column of unlimited height.
    a.bottom = a.top - 1000000.0f;
    info.flags.max_page_area = true;
    info.flags.pack_page_stuff = false;
    // The footnotes it calls are gathered apart from those of the flow, to be placed with them.
    info.general.column_area = a;
    info.accum.page_footnotes = nullptr;
    info.accum.column_footnotes = nullptr;
    std::size_t const abs_from = info.accum.abs_blocks.size();
    auto r = block::pack_block(std::move(info), block::float_block{}, b, mc::fresh(),
                               areas::areas{.container = a, .available = {a}});
    auto const* p = std::get_if<block::packed_main>(&r.res);
    if (!p) {
        return std::nullopt;
    }
    float const bottom = r.out_areas.container.top - std::max(0.0f, mc::value_of(r.out_gap));
    // What the float gathered is not handed on: absolutely positioned boxes in it are placed against it.
    auto bx = *p->b_packed_box;
    positioned::hang_inner(r.out_info, abs_from, bx);
    auto const page_notes = footnotes_of(r.out_info.accum);
    auto const column_notes = column_footnotes_of(r.out_info.accum);
    return column_float{.cf_box = share(std::move(bx)),
                        .cf_height = a.top - bottom,
                        .cf_page_notes = {page_notes.begin(), page_notes.end()},
                        .cf_column_notes = {column_notes.begin(), column_notes.end()},
                        .cf_counter = r.out_info.general.footnote_counter};
}

// The page's footnote area grows to hold the footnotes added to the page's list, at most to a share
// of the body; what it can't hold runs on to the next page.
void reserve_page_notes(page_info& info) {
    if (!info.flags.pack_page_stuff) {
        return;
    }
    auto const& body = info.general.body_area;
    float const need = footnotes::height_needed(info, footnotes_of(info.accum), body);
    info.packed_stuff.footnotes_height =
        std::max(info.packed_stuff.footnotes_height, std::min(need, areas::height_of(body) * footnote_share));
}

bool nothing_placed(blocks::blocks_out const& r) {
    auto const* p = std::get_if<blocks::packed_main>(&r.res);
    return !p || p->bs_packed_boxes.empty();
}

// One pass over the columns with their bottom at `bottom`: each column takes what the ones before
// left, from the top down; a column break moves on to the next column, a page break ends them all.
columns_res one_pass(pass_input const& in, float bottom) {
    columns_res out;
    page_info cur = in.info;
    prepack::block_list rest = in.blocks;
    // The column floats placed in this pass; one met again after a column was packed anew is not
    // placed twice.
    std::vector<prepack::block> placed;
    // Floats with `next`, met in the column before (or in the last column of the page before), for the
    // top or bottom of this one.
    std::vector<prepack::block> deferred = std::move(cur.accum.column_floats);
    cur.accum.column_floats.clear();
    // Floats with `next` met in the last column, for the first column of the next page.
    std::vector<prepack::block> carried;
    // A column of an outer container has its own footnotes: they are put back when these columns are
    // done.
    auto outer_notes = std::move(cur.accum.column_footnotes);
    cur.accum.column_footnotes = nullptr;
    auto const outer_area = cur.general.column_area;
    cur.general.column_area.reset();
    float const outer_notes_height = cur.packed_stuff.column_footnotes_height;
    cur.packed_stuff.column_footnotes_height = 0;
    // The footnotes, or the rests of them, that the column before could not hold: they come first at
    // the foot of the next.
    std::vector<page_footnote> notes_carried;
    // The column before ended at a forced column break.
    bool forced_into = false;
    // In a trial, a column took nothing: the columns after it are left empty.
    bool stalled = false;
    bool const max_area = in.info.flags.max_page_area;
    int const total = in.geometry.column_total;
    for (int i = 0; i < total; ++i) {
        column_res col{.column_content_top = in.inner.top, .column_content_bottom = in.inner.top};
        if ((rest.empty() && deferred.empty() && notes_carried.empty()) || out.s_page_break || stalled) {
            out.packed_columns.push_back(std::move(col));
            continue;
        }
        float const left = column_left(in.geometry, in.inner.left, i);
        areas::area const full{
            .top = in.inner.top, .bottom = bottom, .left = left, .right = left + in.geometry.column_width};
        areas::area a = full;
        // A column after a break swallows the margins at its top, as a page does; after a forced break
        // the margins of the block that asked for it are kept.
        bool const after_break = i > 0 || in.continuation;
        bool const eat_margins = after_break && !forced_into;
        auto run = [&](bool force) {
            auto p = cur;
            p.flags.max_page_area = force;
            p.flags.pack_column_stuff = true;
            p.flags.last_column = i + 1 == total;
            // The floats this set of columns has placed, so that the flow does not keep one of them too
            // (`unless-fit` when it fits further on); those of earlier pages are not there.
            p.accum.column_floats = placed;
            // The column's footnotes stand on its bottom, those carried from the column before first.
            p.general.column_area = a;
            p.accum.column_footnotes = notes_carried.empty() ? nullptr : share(notes_carried);
            p.packed_stuff.column_footnotes_height =
                notes_carried.empty() ? 0
                                      : std::min(footnotes::height_needed(p, notes_carried, a),
                                                 areas::height_of(a) * footnote_share);
            mc::gap const g = eat_margins ? mc::gap{mc::margin_eater{}} : mc::fresh();
            return blocks::pack_blocks(std::move(p), rest, g, areas::areas{.container = a, .available = {a}});
        };
        auto run_column = [&] {
            auto r = run(max_area);
            if (after_break && !max_area && r.out_forced_break && nothing_placed(r)) {
                // A break in front of the column's first block has happened already: it starts here.
                r = run(true);
            }
            return r;
        };
        auto r = run_column();
        // The column floats met in the column go to its top or bottom, and the column is packed again
        // in the room they leave (retry goal `to_pack_more_page_stuff`).
        std::vector<ref<box>> tops;
        std::vector<column_float> bottoms;
        float tops_height = 0;
        float bottoms_height = 0;
        std::vector<prepack::block> here = std::move(deferred);
        deferred.clear();
        for (auto const& f : r.out_info.accum.column_floats) {
            if (std::ranges::find(placed, f) != placed.end()) {
                continue;
            }
            placed.push_back(f);
            auto const* cf = std::get_if<css::box::float_column>(&f.block_style->float_);
            bool const page_ends = r.out_forced_break && !r.out_column_break;
            if (cf && cf->column_float.float_next && !page_ends) {
                // `next`: to the next column of the set, or from the last to the first column of the
                // next page when the container goes on there; otherwise the last column keeps it.
                if (i + 1 < total) {
                    deferred.push_back(f);
                    continue;
                }
                auto const* p = std::get_if<blocks::packed_main>(&r.res);
                if (p && !p->bs_remain_portion.empty()) {
                    carried.push_back(f);
                    continue;
                }
            }
            here.push_back(f);
        }
        // The footnotes the floats call are numbered in the order the floats are placed, before those
        // the column's text calls.
        int counter = cur.general.footnote_counter;
        std::vector<page_footnote> float_page_notes;
        for (auto const& f : here) {
            auto fi = cur;
            fi.general.footnote_counter = counter;
            auto pf = pack_column_float(std::move(fi), f, full);
            if (!pf) {
                continue;
            }
            counter = pf->cf_counter;
            float_page_notes.insert(float_page_notes.end(), pf->cf_page_notes.begin(), pf->cf_page_notes.end());
            notes_carried.insert(notes_carried.end(), pf->cf_column_notes.begin(), pf->cf_column_notes.end());
            auto const* cf = std::get_if<css::box::float_column>(&f.block_style->float_);
            // Columns have no outside corner: a corner float goes to the column's top or bottom.
            if (cf && (cf->column_float.float_to_edge == css::box::float_edge::bottom ||
                       cf->column_float.float_to_edge == css::box::float_edge::bottom_corner)) {
                bottoms_height += pf->cf_height;
                bottoms.push_back(std::move(*pf));
                continue;
            }
            auto moved = *pf->cf_box;
            block::shift_box(moved, 0, -tops_height);
            tops.push_back(share(std::move(moved)));
            tops_height += pf->cf_height;
        }
        cur.general.footnote_counter = counter;
        if (!float_page_notes.empty()) {
            for (auto& n : float_page_notes) {
                add_footnote(cur.accum, std::move(n));
            }
            reserve_page_notes(cur);
        }
        if (!tops.empty() || !bottoms.empty()) {
            a.top = full.top - tops_height;
            a.bottom = std::min(a.top, full.bottom + bottoms_height);
            r = run_column();
        }
        r.out_info.flags = cur.flags;
        if (!tops.empty()) {
            // The floats keep their place even when nothing of the flow went in below them.
            col.column_content_bottom = std::min(a.top, col.column_content_bottom);
        }
        // The column's footnotes: those carried in, and those its lines called when it placed any.
        std::vector<page_footnote> notes;
        float notes_room = 0;
        if (!std::holds_alternative<blocks::none>(r.res)) {
            auto const called = column_footnotes_of(r.out_info.accum);
            notes.assign(called.begin(), called.end());
            notes_room = r.out_info.packed_stuff.column_footnotes_height;
        } else if (!notes_carried.empty()) {
            notes = notes_carried;
            notes_room = std::min(footnotes::height_needed(cur, notes, a), areas::height_of(a) * footnote_share);
        }
        r.out_info.accum.column_footnotes = nullptr;
        r.out_info.packed_stuff.column_footnotes_height = 0;
        r.out_info.general.column_area.reset();
        std::visit(overloaded{
                       [&](blocks::packed_main& p) {
                           col.packed_column = std::move(p.bs_packed_boxes);
                           col.column_content_bottom = std::min(a.top, r.out_areas.container.top);
                           rest = std::move(p.bs_remain_portion);
                           cur = std::move(r.out_info);
                       },
                       [&](blocks::packed_page_stuff& p) {
                           rest = std::move(p.bsp_remain_portion);
                           cur = std::move(r.out_info);
                       },
                       [&](blocks::none const&) {},
                   },
                   r.res);
        if (r.out_forced_break && !r.out_column_break) {
            out.s_page_break = r.out_forced_break;
        }
        forced_into = r.out_forced_break && r.out_column_break;
        // The footnotes take the foot of the column, as far as they fit in the room its lines left
        // them; the rest goes on to the next column.
        notes_carried.clear();
        float notes_height = 0;
        if (!notes.empty()) {
            auto area = footnotes::pack_area(cur, notes, full, notes_room, false);
            if (area.area_box) {
                col.packed_column.push_back(*area.area_box);
                notes_height = area.area_height;
                col.notes_gap =
                    std::max(0.0f, col.column_content_bottom - (full.bottom + notes_height + bottoms_height));
                col.column_content_bottom = std::min(col.column_content_bottom, full.bottom);
            }
            std::move(area.area_absolutes.begin(), area.area_absolutes.end(),
                      std::back_inserter(cur.accum.abs_blocks));
            notes_carried = std::move(area.area_leftover);
        }
        // The floats to the bottom stand on the column's footnotes, the first met highest.
        float y = full.bottom + notes_height + bottoms_height;
        for (auto const& f : bottoms) {
            auto moved = *f.cf_box;
            block::shift_box(moved, 0, y - full.top);
            tops.push_back(share(std::move(moved)));
            y -= f.cf_height;
        }
        if (!bottoms.empty()) {
            col.column_content_bottom = std::min(col.column_content_bottom, full.bottom);
        }
        if (!tops.empty()) {
            tops.insert(tops.end(), col.packed_column.begin(), col.packed_column.end());
            col.packed_column = std::move(tops);
        }
        stalled = trials_around > 0 && col.packed_column.empty() && !rest.empty();
        col.bottom_diff = std::max(0.0f, col.column_content_bottom - bottom);
        out.max_column_height = std::max(out.max_column_height, in.inner.top - col.column_content_bottom);
        out.packed_columns.push_back(std::move(col));
    }
    // Column footnotes that no column of the set could hold join the page's, and take room at its foot.
    if (!notes_carried.empty()) {
        for (auto& n : notes_carried) {
            add_footnote(cur.accum, std::move(n));
        }
        reserve_page_notes(cur);
    }
    cur.accum.column_footnotes = std::move(outer_notes);
    cur.general.column_area = outer_area;
    cur.packed_stuff.column_footnotes_height = outer_notes_height;
    out.page_stuff_height = cur.packed_stuff.footnotes_height;
    // Every column float met here is placed in these columns, not in the columns around them, but for
    // those that wait for the next page's first column.
    carried.insert(carried.end(), deferred.begin(), deferred.end());
    cur.accum.column_floats = std::move(carried);
    out.s_remain_blocks = std::move(rest);
    out.s_out_page_info = std::move(cur);
    return out;
}

float lowest_content(columns_res const& r) {
    float low = std::numeric_limits<float>::infinity();
    for (auto const& c : r.packed_columns) {
        if (!c.packed_column.empty()) {
            low = std::min(low, c.column_content_bottom);
        }
    }
    return low;
}

// A pass, and again while the footnotes it called reach up into a column filled before they were
// called: the columns then end above the footnote area (retry goal `to_pack_more_page_stuff`).
columns_res pass_with_page_stuff(pass_input const& in, float bottom) {
    auto r = one_pass(in, bottom);
    int passes = 1;
    for (int k = 1; k < page_stuff_passes; ++k) {
        auto const floor = footnote_floor(r.s_out_page_info);
        if (!floor || *floor <= bottom + tolerance || *floor <= lowest_content(r) + tolerance) {
            break;
        }
        bottom = *floor;
        r = one_pass(in, bottom);
        ++passes;
    }
    r.s_passes = passes;
    return r;
}

bool holds_all(columns_res const& r) {
    return r.s_remain_blocks.empty() && !r.s_page_break;
}

float content_height(columns_res const& r, float top) {
    float h = 0;
    for (auto const& c : r.packed_columns) {
        h += top - c.column_content_bottom - c.notes_gap;
    }
    return h;
}

// The step of the balancing search: the container's line height, the unit in which the columns' heights
// differ for running text.
float balance_step(css::style::style const& s) {
    float const h = std::visit(overloaded{
                                   [&](css::fonts::line_height_normal const&) { return 1.2f * s.font_size; },
                                   [&](css::fonts::line_height_none const&) { return 1.2f * s.font_size; },
                                   [&](css::fonts::line_height_number const& n) {
                                       return n.line_height_factor * s.font_size;
                                   },
                                   [](float f) { return f; },
                               },
                               s.line_height);
    return std::max(1.0f, h);
}

// Balancing (retry goal `to_balance_column`): the shortest column height that still holds all of the
// content. The first target is the even share of the content's height; while a target is too short,
// the next lies a step above it, the step doubling each time (a tall block that can't be split may
// need much more); once a target holds everything, the interval between the last too short and the
// shortest that holds is halved until it is narrower than a step. Ordinary text needs two passes
// beyond the first: the even share, and a line above it. The best result is the one that holds
// everything at the least height.
columns_res balanced(pass_input const& in, columns_res full, float step, int max_passes) {
    search_scope const searching;
    // A trial height is shorter than the room the first pass had, so nothing is forced into it as on an
    // empty page: a block that must not break, or lines that orphans and widows keep together, make a
    // trial too short fail instead of being split to fit it.
    page_info trial_info = in.info;
    trial_info.flags.max_page_area = false;
    pass_input const trial{.info = trial_info,
                           .blocks = in.blocks,
                           .inner = in.inner,
                           .geometry = in.geometry,
                           .continuation = in.continuation};
    float const top = in.inner.top;
    float hi = full.max_column_height;
    int passes = full.s_passes;
    columns_res best = std::move(full);
    int left = max_passes;
    // Tries a height; true when it holds everything.
    auto attempt = [&](float h) {
        --left;
        trial_scope const trying;
        auto r = pass_with_page_stuff(trial, top - h);
        passes += r.s_passes;
        if (!holds_all(r)) {
            return false;
        }
        hi = std::min(h, r.max_column_height);
        if (r.max_column_height <= best.max_column_height + tolerance) {
            best = std::move(r);
        }
        return true;
    };
    float short_h = content_height(best, top) / static_cast<float>(in.geometry.column_total);
    if (short_h < hi - tolerance && !attempt(short_h)) {
        float gallop = step;
        while (left > 0 && short_h + gallop < hi - tolerance && !attempt(short_h + gallop)) {
            short_h += gallop;
            gallop *= 2;
        }
        while (left > 0 && hi - short_h > step + tolerance) {
            float const h = (short_h + hi) / 2;
            if (!attempt(h)) {
                short_h = h;
            }
        }
    }
    best.s_passes = passes;
    return best;
}

} // namespace

bool has_columns(css::style::style const& s) {
    return std::holds_alternative<int>(s.rare_box->column_count) ||
           std::holds_alternative<float>(s.rare_box->column_width);
}

column_info column_geometry(css::style::style const& s, float available_width) {
    float const u = std::max(0.0f, available_width);
    float const gap = std::max(0.0f, s.column_gap);
    auto const* count = std::get_if<int>(&s.rare_box->column_count);
    auto const* width = std::get_if<float>(&s.rare_box->column_width);
    int n = 1;
    if (width && *width > 0) {
        // As many columns of at least the given width as fit, at most the count given.
        int const fit = std::max(1, static_cast<int>(std::floor((u + gap) / (*width + gap) + tolerance)));
        n = count && *count > 0 ? std::min(*count, fit) : fit;
    } else if (count && *count > 0) {
        n = *count;
    }
    float const w = std::max(0.0f, (u + gap) / static_cast<float>(n) - gap);
    return column_info{.column_width = w, .gap_width = n > 1 ? gap : 0, .column_total = n};
}

multicol_res pack_columns(page_info info,
                          ref<css::style::style> const& container_style,
                          prepack::block_list const& blocks,
                          int column_id,
                          areas::area const& inner,
                          bool continuation,
                          std::optional<float> fixed_height,
                          std::optional<float> max_height) {
    auto const& s = *container_style;
    auto const geometry = column_geometry(s, areas::width_of(inner));
    bool const nested = info.general.column_id.has_value();
    auto const outer_id = info.general.column_id;
    info.general.column_id = column_id;
    pass_input const in{.info = info, .blocks = blocks, .inner = inner, .geometry = geometry, .continuation = continuation};

    float bottom = inner.bottom;
    if (fixed_height) {
        bottom = std::max(bottom, inner.top - *fixed_height);
    }
    if (max_height) {
        bottom = std::max(bottom, inner.top - *max_height);
    }
    auto r = pass_with_page_stuff(in, bottom);
    // A set height is the most the columns may take: balanced, they may stand shorter inside it.
    bool const balance = s.rare_box->column_fill == css::box::column_fill::balance;
    if (balance && holds_all(r) && geometry.column_total > 1 && searches_around < 2) {
        int const passes = nested || searches_around > 0 ? nested_balance_passes : balance_passes;
        r = balanced(in, std::move(r), balance_step(s), passes);
    }

    multicol_res out;
    out.passes = r.s_passes;
    out.info = std::move(r.s_out_page_info);
    out.info.general.column_id = outer_id;
    out.info.flags = info.flags;
    bool const any = std::ranges::any_of(r.packed_columns, [](column_res const& c) { return !c.packed_column.empty(); });
    if (!any) {
        // A forced break in front of the first block is the container's own; otherwise nothing fits.
        out.refused = true;
        out.forced = r.s_page_break;
        out.info = info;
        out.info.general.column_id = outer_id;
        return out;
    }
    // A container going on to the next page fills this one; the last part is as tall as its tallest
    // column.
    bool const goes_on = !holds_all(r);
    float const height = goes_on || fixed_height ? std::max(r.max_column_height, inner.top - bottom) : r.max_column_height;
    out.content_bottom = inner.top - height;
    if (goes_on) {
        out.remain = std::move(r.s_remain_blocks);
        out.forced = r.s_page_break;
    }
    auto const column_style = share(css::style::inherit_from(s));
    for (int i = 0; i < geometry.column_total; ++i) {
        auto& col = r.packed_columns[static_cast<std::size_t>(i)];
        if (col.packed_column.empty()) {
            continue;
        }
        float const left = column_left(geometry, inner.left, i);
        out.columns.column_content.push_back(share(box{.box_x = left,
                                                       .box_y = inner.top,
                                                       .box_w = geometry.column_width,
                                                       .box_h = height,
                                                       .box_content = boxes{std::move(col.packed_column)},
                                                       .box_style = column_style}));
        // A rule stands between two columns that both hold something.
        bool const ruled = s.rare_box->column_rule_style != css::box::line_style::none &&
                           s.rare_box->column_rule_style != css::box::line_style::hidden &&
                           s.rare_box->column_rule_width > 0;
        if (ruled && i > 0) {
            float const x = column_left(geometry, inner.left, i) - geometry.gap_width * 0.5f;
            out.columns.column_rules.push_back(
                rulebox{.rulebox_style = container_style, .rulebox_pos = {x, inner.top}, .rulebox_length = height});
        }
    }
    return out;
}

} // namespace vellum::pack::columns
