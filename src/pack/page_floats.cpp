#include "pack/page_floats.hpp"

#include "css/page.hpp"
#include "css/used_style.hpp"
#include "pack/block.hpp"
#include "pack/margin_collapsing.hpp"

#include <algorithm>
#include <atomic>
#include <iterator>

namespace vellum::pack::page_floats {

namespace {

namespace mc = margin_collapsing;

constexpr float tolerance = 0.0001f;

// Placing the floats a flow met changes the room of the body, and so what the flow holds: the flow
// runs again, at most this many times with new floats placed. After that, floats met anew wait for
// the next page, and only floats whose call has left the page are taken away again.
constexpr int placing_rounds = 4;

// The same float met in two flows: its call may stand at another height.
bool same(page_float const& a, page_float const& b) {
    return a.page_float_how == b.page_float_how && a.page_float_body == b.page_float_body;
}

bool contains(std::vector<page_float> const& list, page_float const& f) {
    return std::ranges::any_of(list, [&](page_float const& g) { return same(f, g); });
}

// The floats a flow met, each once: a block packed twice (a trial, then for real) registers twice.
std::vector<page_float> met_by(blocks::blocks_out const& r) {
    std::vector<page_float> out;
    for (auto const& f : r.out_info.accum.page_floats) {
        if (!contains(out, f)) {
            out.push_back(f);
        }
    }
    return out;
}

// The height of an edge's box around its floats: its margins, borders and padding.
float frame_height(std::optional<edge_box> const& e) {
    if (!e) {
        return 0;
    }
    auto const& f = e->edge_frame;
    return f.margin_top + f.inner_top + f.inner_bottom + f.margin_bottom;
}

bool is_top(page_float const& f) {
    switch (f.page_float_how.float_to_edge) {
    case css::box::float_edge::top:
    case css::box::float_edge::top_corner:
    case css::box::float_edge::snap: // settled when met; a float never settled goes to the top
        return true;
    case css::box::float_edge::bottom:
    case css::box::float_edge::bottom_corner:
        return false;
    }
    return true;
}

bool in_corner(page_float const& f) {
    auto const e = f.page_float_how.float_to_edge;
    return e == css::box::float_edge::top_corner || e == css::box::float_edge::bottom_corner;
}

// Moves a float's box across to the outside edge of the body, its margins kept: the right edge on a
// right-hand page, the left on a left-hand one.
void to_corner(box& bx, areas::area const& body, bool right_page) {
    float margin_left = 0;
    float margin_right = 0;
    if (auto const* m = std::get_if<css::used_style::used_margins>(&bx.box_used_style.used_margins)) {
        margin_left = m->margin_left.value_or(0);
        margin_right = m->margin_right.value_or(0);
    }
    float const dx =
        right_page ? body.right - margin_right - (bx.box_x + bx.box_w) : body.left + margin_left - bx.box_x;
    block::shift_box(bx, dx, 0);
}

// What a float of height `h` adds to its edge's height: the edge box's frame comes with the first.
float cost(page_set const& set, page_float const& f, float h) {
    bool const top = is_top(f);
    bool const empty = top ? set.tops.empty() : set.bottoms.empty();
    return h + (empty ? frame_height(top ? set.tops_box : set.bottoms_box) : 0);
}

// The area a float of an edge is packed in: the body less the sides of the edge's box.
areas::area inner_of(page_set const& set, page_float const& f, areas::area body) {
    auto const& e = is_top(f) ? set.tops_box : set.bottoms_box;
    if (e) {
        body.left += e->edge_frame.left;
        body.right -= e->edge_frame.right;
    }
    return body;
}

void add(page_set& set, page_float const& f, packed p, int counter) {
    float const h = cost(set, f, p.packed_height);
    placed_float pf{.placed_what = f, .placed_packed = std::move(p), .placed_counter = counter};
    if (is_top(f)) {
        set.tops.push_back(std::move(pf));
        set.tops_height += h;
    } else {
        set.bottoms.push_back(std::move(pf));
        set.bottoms_height += h;
    }
}

void remove(page_set& set, page_float const& f) {
    auto drop = [&](std::vector<placed_float>& list, float& height) {
        auto it = std::ranges::find_if(list, [&](placed_float const& p) { return same(p.placed_what, f); });
        if (it != list.end()) {
            height -= it->placed_packed.packed_height;
            list.erase(it);
        }
        if (list.empty()) {
            height = 0;
        }
    };
    drop(set.tops, set.tops_height);
    drop(set.bottoms, set.bottoms_height);
}

page_info with_body(page_info info, areas::area const& a) {
    info.general.body_area = a;
    info.accum.page_floats.clear();
    return info;
}

// The page before the flow with the footnotes of the placed floats among its own: their area takes
// its room from the foot of the body as the flow begins, and the body's calls count on after them.
page_info with_float_notes(page_info info, page_set const& set) {
    auto const notes = notes_of(set);
    if (notes.empty()) {
        return info;
    }
    auto list = std::vector<page_footnote>(footnotes_of(info.accum).begin(), footnotes_of(info.accum).end());
    list.insert(list.end(), notes.begin(), notes.end());
    info.packed_stuff.footnotes_height = std::max(
        info.packed_stuff.footnotes_height, footnotes::height_needed(info, list, info.general.body_area));
    info.accum.page_footnotes = share(std::move(list));
    info.general.footnote_counter += static_cast<int>(notes.size());
    return info;
}

// The floats' footnotes take the page's first numbers, in the order of `notes_of`: a float packed
// when others were placed, or taken away since, is packed again with its numbers. The height it had
// is kept, which only the widths of its numbers can change.
void renumber(page_set& set, page_info const& info, areas::area const& body) {
    int counter = info.general.footnote_counter;
    for (auto* list : {&set.tops, &set.bottoms}) {
        for (auto& p : *list) {
            if (p.placed_counter != counter) {
                auto const& f = p.placed_what;
                auto again = p.placed_packed.packed_rest
                                 ? pack_part(info, f.page_float_body, inner_of(set, f, body), counter,
                                             p.placed_packed.packed_height)
                                 : pack_float(info, f.page_float_body, inner_of(set, f, body), counter);
                if (again) {
                    again->packed_height = p.placed_packed.packed_height;
                    p.placed_packed = std::move(*again);
                    p.placed_counter = counter;
                }
            }
            counter += static_cast<int>(p.placed_packed.packed_notes.size());
        }
    }
}

std::atomic<bool> said_in_flow{false};

} // namespace

void note_in_flow(log::log const& log, css::style::style const& s) {
    if (page_float_of(s) && !said_in_flow.exchange(true)) {
        log::log_warning(log, "page floats inside inline blocks, page floats, footnotes or margin boxes are "
                              "not supported: they are set where they stand");
    }
}

std::optional<css::box::page_column_float> page_float_of(css::style::style const& s) {
    if (auto const* p = std::get_if<css::box::float_page>(&s.float_)) {
        return p->page_float;
    }
    return std::nullopt;
}

css::box::page_column_float settle_snap(css::box::page_column_float how, float y, areas::area const& body) {
    if (how.float_to_edge == css::box::float_edge::snap) {
        how.float_to_edge =
            y >= (body.top + body.bottom) / 2 ? css::box::float_edge::top : css::box::float_edge::bottom;
    }
    return how;
}

bool takes_page_float(page_info const& info, css::style::style const& s) {
    return info.flags.pack_page_stuff && page_float_of(s).has_value();
}

namespace {

// The footnotes a float's packing called, past the `called` the page had before it.
std::vector<page_footnote> notes_called(accum const& a, std::size_t called) {
    auto const list = footnotes_of(a);
    if (list.size() <= called) {
        return {};
    }
    return {list.begin() + static_cast<std::ptrdiff_t>(called), list.end()};
}

// A float packed as wide as the body, in an area `room` tall: unbounded for a float never split.
std::optional<packed> pack_wide(page_info info,
                                prepack::block const& b,
                                areas::area const& body,
                                int counter,
                                std::optional<float> room) {
    areas::area const a{
        .top = 0, .bottom = room ? -*room : -1000000.0f, .left = body.left, .right = body.right};
    info.flags = flags{.max_page_area = true};
    info.general.footnote_counter = counter;
    auto const called = footnotes_of(info.accum).size();
    auto r = block::pack_block(std::move(info), block::page_float_block{}, b, mc::fresh(),
                               areas::areas{.container = a, .available = {a}});
    auto* p = std::get_if<block::packed_main>(&r.res);
    if (!p) {
        return std::nullopt;
    }
    float const bottom = r.out_areas.container.top - std::max(0.0f, mc::value_of(r.out_gap));
    return packed{.packed_box = p->b_packed_box,
                  .packed_height = room ? std::min(-bottom, *room) : -bottom,
                  .packed_notes = notes_called(r.out_info.accum, called),
                  .packed_rest = std::move(p->b_remain_portion)};
}

} // namespace

std::optional<packed>
pack_float(page_info info, prepack::block const& b, areas::area const& body, int counter) {
    return pack_wide(std::move(info), b, body, counter, std::nullopt);
}

std::optional<packed>
pack_part(page_info info, prepack::block const& b, areas::area const& body, int counter, float room) {
    return pack_wide(std::move(info), b, body, counter, std::max(room, 1.0f));
}

std::vector<page_footnote> notes_of(page_set const& set) {
    std::vector<page_footnote> out;
    for (auto const* list : {&set.tops, &set.bottoms}) {
        for (auto const& p : *list) {
            out.insert(out.end(), p.placed_packed.packed_notes.begin(), p.placed_packed.packed_notes.end());
        }
    }
    return out;
}

areas::area flow_area(page_set const& set, areas::area const& body) {
    auto a = body;
    a.top -= set.tops_height;
    a.bottom += set.bottoms_height;
    a.bottom = std::min(a.bottom, a.top);
    return a;
}

std::optional<edge_box> edge_box_of(page_info const& info, bool top, areas::area const& body) {
    auto const& ps = info.general.page_style;
    auto const r = top ? css::page_rule::region::page_float_top : css::page_rule::region::page_float_bottom;
    auto const* declared = ps ? css::page::region_declarations_of(*ps, r) : nullptr;
    if (!declared || declared->empty()) {
        return std::nullopt;
    }
    auto style = share(css::page::region_style(*ps, r));
    auto used = css::used_style::used_style_of(*style, areas::width_of(body), std::nullopt);
    auto const fr = footnotes::frame_of(used);
    return edge_box{.edge_style = std::move(style), .edge_used = std::move(used), .edge_frame = fr};
}

namespace {

// The floats of one edge stacked down from `top` (the top of their edge's margin box), in the edge's
// box when there is one.
void place_edge(std::vector<placed_float> const& list, std::optional<edge_box> const& e, areas::area const& body,
                float top, float height, bool right_page, std::vector<ref<box>>& out) {
    if (list.empty()) {
        return;
    }
    auto const fr = e ? e->edge_frame : footnotes::frame{};
    auto inner = body;
    inner.left += fr.left;
    inner.right -= fr.right;
    float y = top - fr.margin_top - fr.inner_top;
    std::vector<ref<box>> boxes;
    for (auto const& f : list) {
        auto bx = *f.placed_packed.packed_box;
        if (in_corner(f.placed_what)) {
            to_corner(bx, inner, right_page);
        }
        block::shift_box(bx, 0, y);
        boxes.push_back(share(std::move(bx)));
        y -= f.placed_packed.packed_height;
    }
    if (!e) {
        std::move(boxes.begin(), boxes.end(), std::back_inserter(out));
        return;
    }
    auto const& u = e->edge_used;
    float const inner_left = u.used_borders.borders_left.border_width + u.used_padding_left;
    float const inner_right = u.used_borders.borders_right.border_width + u.used_padding_right;
    out.push_back(share(box{
        .box_x = body.left + fr.left - inner_left,
        .box_y = top - fr.margin_top,
        .box_w = areas::width_of(body) - fr.left - fr.right + inner_left + inner_right,
        .box_h = height - fr.margin_top - fr.margin_bottom,
        .box_content = pack::boxes{std::move(boxes)},
        .box_style = e->edge_style,
        .box_used_style = u,
    }));
}

} // namespace

std::vector<ref<box>> place(page_set const& set, areas::area const& body, float floor, bool right_page) {
    std::vector<ref<box>> out;
    place_edge(set.tops, set.tops_box, body, body.top, set.tops_height, right_page, out);
    place_edge(set.bottoms, set.bottoms_box, body, floor + set.bottoms_height, set.bottoms_height, right_page,
               out);
    return out;
}

page_res flow_page(page_info const& info, std::vector<page_float> const& carried, flow_fn const& flow) {
    page_res out;
    auto const body = info.general.body_area;
    out.res_set.tops_box = edge_box_of(info, true, body);
    out.res_set.bottoms_box = edge_box_of(info, false, body);
    // The floats' footnotes are numbered first on the page, in the order they are placed.
    int const counter = info.general.footnote_counter;
    auto next_counter = [&]() { return counter + static_cast<int>(notes_of(out.res_set).size()); };
    // Once a float waits, the floats after it wait too, so that they keep their order.
    bool blocked = false;

    // The floats carried over come first, while the page has room for them. The first of them that
    // does not fit on a page of its own is split: its first part has the page to itself, and its rest
    // waits at the head of the floats for the next page.
    bool floats_only = false;
    for (auto const& f : carried) {
        auto p = blocked
                     ? std::nullopt
                     : pack_float(info, f.page_float_body, inner_of(out.res_set, f, body), next_counter());
        float const room = areas::height_of(flow_area(out.res_set, body)) - info.packed_stuff.footnotes_height;
        if (p && cost(out.res_set, f, p->packed_height) <= room + tolerance) {
            int const c = next_counter();
            add(out.res_set, f, std::move(*p), c);
            continue;
        }
        if (p && out.res_set.tops.empty() && out.res_set.bottoms.empty()) {
            float const inner = room - cost(out.res_set, f, 0);
            auto part =
                pack_part(info, f.page_float_body, inner_of(out.res_set, f, body), next_counter(), inner);
            if (part) {
                auto rest = part->packed_rest;
                int const c = next_counter();
                add(out.res_set, f, std::move(*part), c);
                if (rest) {
                    auto again = f;
                    again.page_float_body = std::move(*rest);
                    out.res_waiting.push_back(std::move(again));
                    blocked = true;
                }
                floats_only = true;
                continue;
            }
        }
        blocked = true;
        out.res_waiting.push_back(f);
    }
    if (floats_only) {
        return out;
    }

    // Then the floats the flow meets: each goes on this page when it fits between its call and the
    // foot of the body (the call then stays on the page as the float takes its room), and the body
    // is flowed again in the room left.
    std::vector<page_float> placed;
    std::vector<page_float> waiting;
    // Floats taken away again because their call left the page: they are not tried again here.
    std::vector<page_float> refused;
    for (int round = 0;; ++round) {
        renumber(out.res_set, info, body);
        auto const a = flow_area(out.res_set, body);
        auto r = flow(with_float_notes(with_body(info, a), out.res_set), a);
        auto const met = met_by(r);
        bool changed = false;
        for (auto it = placed.begin(); it != placed.end();) {
            if (!contains(met, *it)) {
                remove(out.res_set, *it);
                refused.push_back(*it);
                it = placed.erase(it);
                changed = true;
            } else {
                ++it;
            }
        }
        std::erase_if(waiting, [&](page_float const& f) { return !contains(met, f); });
        float const floor = a.bottom + r.out_info.packed_stuff.footnotes_height;
        for (auto const& f : met) {
            if (contains(placed, f) || contains(waiting, f)) {
                continue;
            }
            bool const may_place =
                round < placing_rounds && !blocked && !f.page_float_how.float_next && !contains(refused, f);
            auto p = may_place
                         ? pack_float(info, f.page_float_body, inner_of(out.res_set, f, body), next_counter())
                         : std::nullopt;
            // The floats placed in this round take their room from below the call too.
            float const taken = out.res_set.tops_height + out.res_set.bottoms_height -
                                (body.top - a.top) - (a.bottom - body.bottom);
            if (p && f.page_float_y - taken - cost(out.res_set, f, p->packed_height) >= floor - tolerance) {
                int const c = next_counter();
                add(out.res_set, f, std::move(*p), c);
                placed.push_back(f);
                changed = true;
            } else {
                blocked = true;
                waiting.push_back(f);
            }
        }
        if (!changed) {
            // The waiting floats follow the floats carried in, in the order their calls came.
            for (auto const& f : met) {
                if (contains(waiting, f)) {
                    out.res_waiting.push_back(f);
                }
            }
            r.out_info.accum.page_floats.clear();
            out.res_flow = std::move(r);
            return out;
        }
    }
}

} // namespace vellum::pack::page_floats
