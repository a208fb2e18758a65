#include "pack/page_floats.hpp"

#include "css/page.hpp"
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

bool is_top(page_float const& f) {
    return f.page_float_how.float_to_edge == css::box::float_edge::top;
}

// The height of an edge's box around its floats: its margins, borders and padding.
float frame_height(std::optional<edge_box> const& e) {
    if (!e) {
        return 0;
    }
    auto const& f = e->edge_frame;
    return f.margin_top + f.inner_top + f.inner_bottom + f.margin_bottom;
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

void add(page_set& set, page_float const& f, packed const& p) {
    float const h = cost(set, f, p.packed_height);
    if (is_top(f)) {
        set.tops.push_back({f, p});
        set.tops_height += h;
    } else {
        set.bottoms.push_back({f, p});
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

std::atomic<bool> said_in_flow{false};
std::atomic<bool> said_footnotes{false};

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

bool takes_page_float(page_info const& info, css::style::style const& s) {
    return info.flags.pack_page_stuff && page_float_of(s).has_value();
}

std::optional<packed> pack_float(page_info info, prepack::block const& b, areas::area const& body) {
    // A page float is never split: it is packed in an area of the body's width that never ends, and
    // page floats met inside it are its own content.
    areas::area const a{.top = 0, .bottom = -1000000.0f, .left = body.left, .right = body.right};
    info.flags = flags{.max_page_area = true};
    auto const called = footnotes_of(info.accum).size();
    auto const log = info.general.log;
    auto r = block::pack_block(std::move(info), block::page_float_block{}, b, mc::fresh(),
                               areas::areas{.container = a, .available = {a}});
    auto const* p = std::get_if<block::packed_main>(&r.res);
    if (!p) {
        return std::nullopt;
    }
    if (footnotes_of(r.out_info.accum).size() > called && !said_footnotes.exchange(true)) {
        log::log_warning(log, "footnotes called inside page floats are not supported yet: their "
                                           "bodies are left out");
    }
    float const bottom = r.out_areas.container.top - std::max(0.0f, mc::value_of(r.out_gap));
    return packed{.packed_box = p->b_packed_box, .packed_height = -bottom};
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
                float top, float height, std::vector<ref<box>>& out) {
    if (list.empty()) {
        return;
    }
    auto const fr = e ? e->edge_frame : footnotes::frame{};
    float y = top - fr.margin_top - fr.inner_top;
    std::vector<ref<box>> boxes;
    for (auto const& f : list) {
        auto bx = *f.placed_packed.packed_box;
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

std::vector<ref<box>> place(page_set const& set, areas::area const& body, float floor) {
    std::vector<ref<box>> out;
    place_edge(set.tops, set.tops_box, body, body.top, set.tops_height, out);
    place_edge(set.bottoms, set.bottoms_box, body, floor + set.bottoms_height, set.bottoms_height, out);
    return out;
}

page_res flow_page(page_info const& info, std::vector<page_float> const& carried, flow_fn const& flow) {
    page_res out;
    auto const body = info.general.body_area;
    out.res_set.tops_box = edge_box_of(info, true, body);
    out.res_set.bottoms_box = edge_box_of(info, false, body);
    // Once a float waits, the floats after it wait too, so that they keep their order.
    bool blocked = false;

    // The floats carried over come first, while the page has room for them. The first of them is
    // placed whatever its height: a float taller than the page would otherwise wait for ever. Then it
    // has the page to itself.
    bool floats_only = false;
    for (auto const& f : carried) {
        auto const p = blocked ? std::nullopt : pack_float(info, f.page_float_body, inner_of(out.res_set, f, body));
        float const room = areas::height_of(flow_area(out.res_set, body)) - info.packed_stuff.footnotes_height;
        if (p && cost(out.res_set, f, p->packed_height) <= room + tolerance) {
            add(out.res_set, f, *p);
            continue;
        }
        if (p && out.res_set.tops.empty() && out.res_set.bottoms.empty()) {
            add(out.res_set, f, *p);
            floats_only = true;
            continue;
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
        auto const a = flow_area(out.res_set, body);
        auto r = flow(with_body(info, a), a);
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
            auto const p = may_place ? pack_float(info, f.page_float_body, inner_of(out.res_set, f, body)) : std::nullopt;
            // The floats placed in this round take their room from below the call too.
            float const taken = out.res_set.tops_height + out.res_set.bottoms_height -
                                (body.top - a.top) - (a.bottom - body.bottom);
            if (p && f.page_float_y - taken - cost(out.res_set, f, p->packed_height) >= floor - tolerance) {
                add(out.res_set, f, *p);
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
