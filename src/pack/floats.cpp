#include "pack/floats.hpp"

#include "css/used_style.hpp"
#include "pack/block.hpp"
#include "pack/fit.hpp"
#include "pack/margin_collapsing.hpp"
#include "util/ref.hpp"

#include <algorithm>

namespace vellum::pack::floats {

namespace {

constexpr float tolerance = 0.01f;

// On a right-hand (odd) page the binding edge is on the left.
bool right_hand_page(page_info const& info) {
    return info.general.pdf_page_num % 2 == 1;
}

bool narrowed_left(areas::area const& band, areas::area const& container) {
    return band.left > container.left + tolerance;
}

bool narrowed_right(areas::area const& band, areas::area const& container) {
    return band.right < container.right - tolerance;
}

} // namespace

bool narrowed(areas::area const& band, areas::area const& container) {
    return narrowed_left(band, container) || narrowed_right(band, container);
}

std::optional<side> float_side(css::style::style const& s, page_info const& info) {
    auto const* kind = std::get_if<css::box::float_kind>(&s.float_);
    if (!kind) {
        return std::nullopt;
    }
    switch (*kind) {
    case css::box::float_kind::none:
        return std::nullopt;
    case css::box::float_kind::left:
        return side::left;
    case css::box::float_kind::right:
        return side::right;
    case css::box::float_kind::inside:
        return right_hand_page(info) ? side::left : side::right;
    case css::box::float_kind::outside:
        return right_hand_page(info) ? side::right : side::left;
    }
    return std::nullopt;
}

clear_sides clear_of(css::style::style const& s, page_info const& info) {
    switch (s.bit_props.bit_props_clear) {
    case css::box::clear::none:
        return {};
    case css::box::clear::left:
        return {.left = true};
    case css::box::clear::right:
        return {.right = true};
    case css::box::clear::both:
        return {.left = true, .right = true};
    case css::box::clear::inside:
        return right_hand_page(info) ? clear_sides{.left = true} : clear_sides{.right = true};
    case css::box::clear::outside:
        return right_hand_page(info) ? clear_sides{.right = true} : clear_sides{.left = true};
    }
    return {};
}

std::optional<float> clearance(areas::areas const& a, clear_sides c, float top) {
    if (!c.left && !c.right) {
        return std::nullopt;
    }
    std::optional<float> low;
    for (auto const& band : a.available) {
        bool const hit = (c.left && narrowed_left(band, a.container)) || (c.right && narrowed_right(band, a.container));
        if (hit && band.bottom < top - tolerance && (!low || band.bottom < *low)) {
            low = band.bottom;
        }
    }
    return low;
}

areas::areas moved_to(areas::areas a, float y) {
    if (y >= a.container.top) {
        return a;
    }
    a.container.top = y;
    std::vector<areas::area> kept;
    for (auto band : a.available) {
        if (band.bottom >= y - tolerance && band.bottom > a.container.bottom + tolerance) {
            continue;
        }
        band.top = std::min(band.top, y);
        kept.push_back(band);
    }
    if (kept.empty()) {
        kept.push_back(a.container);
    }
    a.available = std::move(kept);
    return a;
}

areas::areas cut(areas::areas a, areas::area const& r, side s) {
    std::vector<areas::area> out;
    for (auto const& band : a.available) {
        if (band.bottom >= r.top || band.top <= r.bottom) {
            out.push_back(band);
            continue;
        }
        if (band.top > r.top) {
            auto above = band;
            above.bottom = r.top;
            out.push_back(above);
        }
        auto beside = band;
        beside.top = std::min(band.top, r.top);
        beside.bottom = std::max(band.bottom, r.bottom);
        if (s == side::left) {
            beside.left = std::max(band.left, r.right);
            beside.right = std::max(beside.right, beside.left);
        } else {
            beside.right = std::min(band.right, r.left);
            beside.left = std::min(beside.left, beside.right);
        }
        out.push_back(beside);
        if (band.bottom < r.bottom) {
            auto below = band;
            below.top = r.bottom;
            out.push_back(below);
        }
    }
    a.available = std::move(out);
    return a;
}

std::optional<placed> place_float(page_info info, prepack::block const& b, side s, float top,
                                  areas::areas const& a, bool max_area) {
    if (fit::measuring()) {
        // A flow packed to learn its widths needs only the float's width, which is known without
        // packing what the float holds: a box of that width and no height stands for it.
        float const w = block::float_width(info, b, areas::width_of(a.container));
        float const x = s == side::left ? a.container.left : a.container.right - w;
        return placed{.placed_box = share(box{.box_x = x, .box_y = top, .box_w = w}),
                      .placed_areas = a,
                      .placed_info = std::move(info),
                      .placed_top = top};
    }
    // Packed first in a trial area as wide as the container and unbounded below: a float is not split.
    float const far = 1000000.0f;
    areas::area const trial{.top = 0, .bottom = -far, .left = a.container.left, .right = a.container.right};
    auto trial_info = info;
    trial_info.flags.max_page_area = true;
    std::size_t const abs_from = info.accum.abs_blocks.size();
    auto r = block::pack_fit(std::move(trial_info), block::float_block{}, b, margin_collapsing::fresh(),
                             areas::areas{.container = trial, .available = {trial}});
    auto const* p = std::get_if<block::packed_main>(&r.res);
    if (!p) {
        return std::nullopt;
    }
    auto bx = *p->b_packed_box;
    auto const* m = std::get_if<css::used_style::used_margins>(&bx.box_used_style.used_margins);
    float const ml = m ? m->margin_left.value_or(0) : 0;
    float const mr = m ? m->margin_right.value_or(0) : 0;
    float const mt = m ? m->margin_top.value_or(0) : 0;
    float const mb = m ? m->margin_bottom.value_or(0) : 0;
    float const outer_w = ml + bx.box_w + mr;
    float const outer_h = mt + bx.box_h + mb;

    // The first band, from `top` down, that is wide enough; it must leave the float's height above
    // the container's bottom, and lower bands leave less.
    // A float wider than the container is as wide on every page: waiting for a wider band would wait
    // for ever, so it takes the first band that no other float narrows, and overflows it.
    float const container_w = areas::width_of(a.container);
    bool const never_fits = outer_w > container_w + tolerance;
    std::optional<areas::area> at;
    std::optional<areas::area> first;
    for (auto band : a.available) {
        band.top = std::min(band.top, top);
        if (band.top <= band.bottom + tolerance && band.bottom > a.container.bottom + tolerance) {
            continue;
        }
        if (!first) {
            first = band;
        }
        bool const widest = never_fits && areas::width_of(band) + tolerance >= container_w;
        if (areas::width_of(band) + tolerance >= outer_w || widest) {
            if (outer_h <= band.top - a.container.bottom + tolerance) {
                at = band;
            }
            break;
        }
    }
    if (!at) {
        if (!max_area || !first) {
            return std::nullopt;
        }
        // The largest space there is: the float goes in the first band, and overflows it.
        at = first;
    }
    float const left = s == side::left ? at->left : at->right - outer_w;
    // A relatively positioned float keeps its offset from the place it is given.
    auto const [rel_x, rel_y] = block::relative_offset(*bx.box_style, bx.box_used_style);
    float const dx = left + ml + rel_x - bx.box_x;
    float const dy = at->top - mt + rel_y - bx.box_y;
    block::shift_box(bx, dx, dy);
    // The room taken is the margin box within the container. A margin note pulled into the page
    // margin by a negative margin has a margin box of no width, or one that lies outside: it takes
    // no room from the text.
    auto const rect = areas::area{.top = at->top,
                                  .bottom = at->top - outer_h,
                                  .left = std::max(left, a.container.left),
                                  .right = std::min(left + outer_w, a.container.right)};
    auto out_info = std::move(r.out_info);
    out_info.flags = info.flags;
    // The absolutely positioned boxes met in the float, that no box of it contains, keep their
    // containing block outside it; their static positions move with the float.
    for (std::size_t k = abs_from; k < out_info.accum.abs_blocks.size(); ++k) {
        out_info.accum.abs_blocks[k].second.x += dx;
        out_info.accum.abs_blocks[k].second.y += dy;
    }
    bool const takes_room = rect.right - rect.left > tolerance && rect.top - rect.bottom > tolerance;
    return placed{.placed_box = share(std::move(bx)),
                  .placed_areas = takes_room ? cut(a, rect, s) : a,
                  .placed_info = std::move(out_info),
                  .placed_top = at->top};
}

std::vector<areas::area> carry_out(std::span<areas::area const> inner,
                                   areas::area const& inner_container,
                                   std::span<areas::area const> outer,
                                   float from_top) {
    // Every edge of either list cuts the height into segments; each segment takes the outer band's
    // edges, narrowed where the inner band is narrowed by a float.
    std::vector<float> ys{from_top};
    for (auto const& list : {&inner, &outer}) {
        for (auto const& band : *list) {
            for (float y : {band.top, band.bottom}) {
                if (y < from_top) {
                    ys.push_back(y);
                }
            }
        }
    }
    std::sort(ys.begin(), ys.end(), std::greater<>());
    ys.erase(std::unique(ys.begin(), ys.end(), [](float x, float y) { return std::abs(x - y) <= tolerance; }),
             ys.end());
    auto containing = [](std::span<areas::area const> list, float hi, float lo) -> areas::area const* {
        float const mid = (hi + lo) / 2;
        for (auto const& band : list) {
            if (band.top >= mid && band.bottom <= mid) {
                return &band;
            }
        }
        return nullptr;
    };
    std::vector<areas::area> out;
    for (std::size_t i = 0; i + 1 < ys.size(); ++i) {
        auto const* o = containing(outer, ys[i], ys[i + 1]);
        if (!o) {
            continue;
        }
        areas::area seg{.top = ys[i], .bottom = ys[i + 1], .left = o->left, .right = o->right};
        if (auto const* in = containing(inner, ys[i], ys[i + 1])) {
            if (narrowed_left(*in, inner_container)) {
                seg.left = std::max(seg.left, in->left);
            }
            if (narrowed_right(*in, inner_container)) {
                seg.right = std::min(seg.right, in->right);
            }
            seg.right = std::max(seg.right, seg.left);
        }
        if (!out.empty() && std::abs(out.back().left - seg.left) <= tolerance &&
            std::abs(out.back().right - seg.right) <= tolerance && std::abs(out.back().bottom - seg.top) <= tolerance) {
            out.back().bottom = seg.bottom;
        } else {
            out.push_back(seg);
        }
    }
    return out;
}

} // namespace vellum::pack::floats
