#include "pack/para_valign.hpp"

#include "pack/block.hpp"

#include <algorithm>
#include <cmath>

namespace vellum::pack::para_valign {

namespace {

using css::box::vertical_align_kind;
using css::text::line_stacking_strategy;

line_stacking_strategy strategy_of(css::style::style const& s) {
    return s.rare_props->rare_props_line_stacking_strategy;
}

bool line_height_none(css::style::style const& s) {
    return std::holds_alternative<css::fonts::line_height_none>(s.line_height);
}

// The start of a vinfo for a box with these metrics: its half-leading above and below.
vinfo start_of(css::style::style const& s, font_metrics::font_metrics_scaled const& m) {
    float const h = strategy_of(s) == line_stacking_strategy::inline_line_height
                        ? (line_height_of(s) - m.up - m.down) * 0.5f
                        : m.gap * 0.5f;
    return {.top_sofar = m.up + h, .bottom_sofar = -m.down - h, .max_tbh = 0};
}

// Moves a box and everything in it up by `dy`.
void shift(spanbox& b, float dy) {
    std::visit(overloaded{
                   [&](ref<nested_spanbox>& n) {
                       auto copy = *n;
                       copy.spanbox_y += dy;
                       copy.spanbox_base += dy;
                       for (auto& c : copy.spanbox_content) {
                           shift(c, dy);
                       }
                       n = share(std::move(copy));
                   },
                   [&](inline_box& i) {
                       auto copy = *i.inline_box_box;
                       block::shift_box(copy, 0, dy);
                       i.inline_box_box = share(std::move(copy));
                   },
                   [&](charsbox& c) { c.charsbox_y += dy; },
               },
               b);
}

bool is_top_or_bottom(css::box::vertical_align const& va) {
    auto const* k = std::get_if<vertical_align_kind>(&va);
    return k != nullptr && (*k == vertical_align_kind::top || *k == vertical_align_kind::bottom);
}

// How far a box whose extent above and below its baseline is `t` and `b` moves up from the parent's
// baseline for its vertical-align. Top and bottom alignment waits for the line's extent.
float shift_of(css::box::vertical_align const& va, font_metrics::font_metrics_scaled const& parent, float t, float b) {
    if (auto const* len = std::get_if<float>(&va)) {
        return *len;
    }
    switch (std::get<vertical_align_kind>(va)) {
    case vertical_align_kind::baseline:
    case vertical_align_kind::top:
    case vertical_align_kind::bottom:
        return 0;
    case vertical_align_kind::sub:
        return -parent.down * 0.5f;
    case vertical_align_kind::super:
        return parent.up * 0.5f;
    case vertical_align_kind::text_top:
        return parent.up - t;
    case vertical_align_kind::text_bottom:
        return -b - parent.down;
    case vertical_align_kind::middle:
        return (-b + parent.up * 0.5f - t) * 0.5f;
    }
    return 0;
}

// The top and bottom of an inline block's margin box, relative to its baseline.
std::pair<float, float> margin_extent(box const& b) {
    auto const* m = std::get_if<css::used_style::used_margins>(&b.box_used_style.used_margins);
    float const mt = m ? m->margin_top.value_or(0) : 0;
    float const mb = m ? m->margin_bottom.value_or(0) : 0;
    return {b.box_y + mt, b.box_y - b.box_h - mb};
}

struct aligner {
    // Gathers the children of a box of style `s` and metrics `m` into `v`, shifting nested spans by
    // their vertical-align. Top- and bottom-aligned children are left for the line to place.
    void children(css::style::style const& s,
                  font_metrics::font_metrics_scaled const& m,
                  std::vector<spanbox>& boxes,
                  vinfo& v) {
        for (auto& b : boxes) {
            std::visit(overloaded{
                           [&](charsbox& c) { chars(s, c, v); },
                           [&](ref<nested_spanbox>& n) { nested(m, n, v); },
                           [&](inline_box& i) { atomic(m, i, v); },
                       },
                       b);
        }
    }

    // An inline block, packed with its baseline at 0: its margin box counts in the line's extent.
    void atomic(font_metrics::font_metrics_scaled const& parent, inline_box& i, vinfo& v) {
        auto copy = *i.inline_box_box;
        auto const [t, b] = margin_extent(copy);
        auto const& s = *copy.box_style;
        float const sh = shift_of(s.vertical_align, parent, t, b);
        block::shift_box(copy, 0, sh);
        if (is_top_or_bottom(s.vertical_align)) {
            v.max_tbh = std::max(v.max_tbh, t - b);
        } else {
            v.top_sofar = std::max(v.top_sofar, sh + t);
            v.bottom_sofar = std::min(v.bottom_sofar, sh + b);
        }
        i.inline_box_box = share(std::move(copy));
    }

    void chars(css::style::style const& s, charsbox const& c, vinfo& v) {
        if (c.charsbox_content.empty()) {
            return;
        }
        auto const gm = fonts::graphemes_metrics(c.charsbox_content, s.font_size);
        float a = gm.up;
        float d = gm.down;
        if (strategy_of(s) == line_stacking_strategy::inline_line_height) {
            float const half = (line_height_of(s) - a - d) * 0.5f;
            a += half;
            d += half;
        } else {
            a += gm.gap * 0.5f;
            d += gm.gap * 0.5f;
        }
        v.top_sofar = std::max(v.top_sofar, a);
        v.bottom_sofar = std::min(v.bottom_sofar, -d);
    }

    void nested(font_metrics::font_metrics_scaled const& parent, ref<nested_spanbox>& n, vinfo& v) {
        auto copy = *n;
        auto const& s = *copy.spanbox_style;
        vinfo inner = start_of(s, copy.spanbox_font_metrics);
        children(s, copy.spanbox_font_metrics, copy.spanbox_content, inner);
        float const t = inner.top_sofar;
        float const b = inner.bottom_sofar;
        float const sh = shift_of(s.vertical_align, parent, t, b);
        // Most spans sit on their parent's baseline: moving their content by nothing would still
        // visit all of it at every level of nesting.
        if (sh != 0) {
            for (auto& c : copy.spanbox_content) {
                shift(c, sh);
            }
        }
        copy.spanbox_y = sh + t;
        copy.spanbox_h = t - b;
        copy.spanbox_base = sh;
        if (!line_height_none(s)) {
            if (is_top_or_bottom(s.vertical_align)) {
                v.max_tbh = std::max({v.max_tbh, inner.max_tbh, t - b});
            } else {
                v.top_sofar = std::max(v.top_sofar, sh + t);
                v.bottom_sofar = std::min(v.bottom_sofar, sh + b);
                v.max_tbh = std::max(v.max_tbh, inner.max_tbh);
            }
        }
        n = share(std::move(copy));
    }
};

} // namespace

float line_height_of(css::style::style const& s) {
    return std::visit(overloaded{
                          [&](css::fonts::line_height_normal const&) { return s.font_size * 1.2f; },
                          [&](css::fonts::line_height_none const&) { return s.font_size * 1.2f; },
                          [&](css::fonts::line_height_number const& n) { return s.font_size * n.line_height_factor; },
                          [](float len) { return len; },
                      },
                      s.line_height);
}

pre_line valign(css::style::style const& para_style,
                font_metrics::font_metrics_scaled const& para_metrics,
                std::vector<spanbox> boxes,
                float top) {
    vinfo v = start_of(para_style, para_metrics);
    aligner{}.children(para_style, para_metrics, boxes, v);
    float const bottom = std::min(v.top_sofar - v.max_tbh, v.bottom_sofar);

    // Boxes aligned with the line's top or bottom go there now that the line's extent is known.
    for (auto& b : boxes) {
        if (auto* i = std::get_if<inline_box>(&b)) {
            auto const& s = *i->inline_box_box->box_style;
            if (is_top_or_bottom(s.vertical_align)) {
                auto const [t, bb] = margin_extent(*i->inline_box_box);
                bool const at_top = std::get<vertical_align_kind>(s.vertical_align) == vertical_align_kind::top;
                shift(b, at_top ? v.top_sofar - t : bottom - bb);
            }
            continue;
        }
        if (auto* n = std::get_if<ref<nested_spanbox>>(&b)) {
            auto const& s = *(*n)->spanbox_style;
            if (!is_top_or_bottom(s.vertical_align) || line_height_none(s)) {
                continue;
            }
            float const t = (*n)->spanbox_y - (*n)->spanbox_base;
            float const bb = t - (*n)->spanbox_h;
            bool const at_top = std::get<vertical_align_kind>(s.vertical_align) == vertical_align_kind::top;
            float const target = at_top ? v.top_sofar - t : bottom - bb;
            shift(b, target - (*n)->spanbox_base);
        }
    }

    float const height = v.top_sofar - bottom;
    float const lh = line_height_of(para_style);
    float const a = para_metrics.up;
    float const d = para_metrics.down;
    float line_height = height;
    float base = top - v.top_sofar;
    if (height == 0) {
        line_height = lh;
        base = top - lh;
    } else {
        switch (strategy_of(para_style)) {
        case line_stacking_strategy::inline_line_height:
            break;
        case line_stacking_strategy::block_line_height:
            line_height = lh;
            base = top - (lh - a - d) * 0.5f - a;
            break;
        case line_stacking_strategy::max_height:
            line_height = std::max(lh, height);
            base = top - (line_height - height) * 0.5f - v.top_sofar;
            break;
        case line_stacking_strategy::grid_height:
            if (lh > 0) {
                // The first baseline of the grid, lowered by whole steps until the line's top fits
                // below the line's top edge; the height is a whole number of steps.
                float g = top - a - (lh - a - d) * 0.5f;
                float const steps = std::ceil((g - top + v.top_sofar) / lh);
                if (steps > 0) {
                    g -= steps * lh;
                }
                base = g;
                line_height = std::ceil((top - g - bottom) / lh) * lh;
            }
            break;
        }
    }
    return {.line_boxes = std::move(boxes), .line_base = base, .line_height = line_height};
}

} // namespace vellum::pack::para_valign
