#include "pack/paper.hpp"

#include "util/ref.hpp"

#include <algorithm>
#include <numbers>

namespace vellum::pack::paper {

namespace {

using areas::area;
using css::page::vellum_rotate_body;

constexpr float tolerance = 0.0001f;

area inset(area const& a, float top, float right, float bottom, float left) {
    return {.top = a.top - top, .bottom = a.bottom + bottom, .left = a.left + left, .right = a.right - right};
}

area clip(area const& a, area const& to) {
    return {.top = std::min(a.top, to.top),
            .bottom = std::max(a.bottom, to.bottom),
            .left = std::max(a.left, to.left),
            .right = std::min(a.right, to.right)};
}

area scaled(area const& a, float s) {
    return {.top = a.top * s, .bottom = a.bottom * s, .left = a.left * s, .right = a.right * s};
}

int quarter_turns(vellum_rotate_body r) {
    switch (r) {
    case vellum_rotate_body::rotate_body_0:
        return 0;
    case vellum_rotate_body::rotate_body_90:
        return 1;
    case vellum_rotate_body::rotate_body_180:
        return 2;
    case vellum_rotate_body::rotate_body_270:
        return 3;
    }
    return 0;
}

// The rectangle that `a` becomes when turned counter-clockwise by quarter turns about (cx, cy). The
// body is painted turned clockwise, so this takes a rectangle of the paper into the body's frame.
area turned(area const& a, int quarters, float cx, float cy) {
    area r = a;
    for (int i = 0; i < quarters; ++i) {
        // (x, y) goes to (cx - (y - cy), cy + (x - cx)).
        r = {.top = cy + (r.right - cx),
             .bottom = cy + (r.left - cx),
             .left = cx - (r.top - cy),
             .right = cx - (r.bottom - cy)};
    }
    return r;
}

float centre_x(area const& a) {
    return (a.left + a.right) * 0.5f;
}

float centre_y(area const& a) {
    return (a.top + a.bottom) * 0.5f;
}

// Margins in the page context: percentages of the top and bottom margins are of the page's height,
// those of the left and right margins of its width. An auto margin is no margin.
float margin_of(css::box::margin const& m, float reference) {
    return std::visit(
        overloaded{
            [](css::box::auto_value const&) { return 0.0f; },
            [](float x) { return x; },
            [&](css::units::percentage const& p) { return css::units::percent_of(p, reference); },
        },
        m);
}

} // namespace

std::optional<float> shrink_factor(float widest, float body_width) {
    if (body_width <= 0 || widest <= body_width + tolerance) {
        return std::nullopt;
    }
    return widest / body_width;
}

paper_areas paper_areas_of(css::page::page_style const& ps, std::optional<float> shrink) {
    paper_areas pa;
    float const w = ps.page_size.paper_width;
    float const h = ps.page_size.paper_height;
    auto const& style = *ps.region_body;

    auto used = css::used_style::used_style_of(style, w, h);
    used.used_margins = css::used_style::used_margins{
        .margin_top = margin_of(style.margin_top, h),
        .margin_right = margin_of(style.margin_right, w),
        .margin_bottom = margin_of(style.margin_bottom, h),
        .margin_left = margin_of(style.margin_left, w),
    };
    auto const& m = std::get<css::used_style::used_margins>(used.used_margins);
    css::page::sides<float> const margins{.sides_top = *m.margin_top,
                                          .sides_right = *m.margin_right,
                                          .sides_bottom = *m.margin_bottom,
                                          .sides_left = *m.margin_left};
    pa.used_paper_style = used;

    // The trim box sits in the media box with the trim band around it; the bleed runs out from the
    // trim box but never beyond the sheet.
    auto const& t = ps.page_trim;
    auto const& b = ps.page_bleed;
    pa.real_media_box = {.top = t.sides_bottom + h + t.sides_top,
                         .bottom = 0,
                         .left = 0,
                         .right = t.sides_left + w + t.sides_right};
    pa.real_trim_box = {
        .top = t.sides_bottom + h, .bottom = t.sides_bottom, .left = t.sides_left, .right = t.sides_left + w};
    pa.real_bleed_box =
        clip(inset(pa.real_trim_box, -b.sides_top, -b.sides_right, -b.sides_bottom, -b.sides_left),
             pa.real_media_box);
    pa.margin_area = pa.real_trim_box;

    auto const& bd = *style.borders;
    area const body =
        inset(pa.margin_area, margins.sides_top + bd.borders_top.border_width + used.used_padding_top,
              margins.sides_right + bd.borders_right.border_width + used.used_padding_right,
              margins.sides_bottom + bd.borders_bottom.border_width + used.used_padding_bottom,
              margins.sides_left + bd.borders_left.border_width + used.used_padding_left);

    float s = 1;
    if (ps.page_shrink_to_fit == css::page::shrink_to_fit::auto_ && shrink && *shrink > 1) {
        s = *shrink;
        pa.shrink_to_fit = s;
    }

    // The body's frame: the paper scaled up by the shrink factor, so that wide content fits, then
    // turned about the centre of the body area.
    int const q = quarter_turns(ps.page_rotate_body);
    area const body_scaled = scaled(body, s);
    float const cx = centre_x(body_scaled);
    float const cy = centre_y(body_scaled);
    pa.pa_body_area = turned(body_scaled, q, cx, cy);
    pa.pa_body_bleed_box = turned(scaled(pa.real_bleed_box, s), q, cx, cy);
    pa.pa_body_trim_box = turned(scaled(pa.real_trim_box, s), q, cx, cy);

    // The margin boxes shrink with the body only when the style asks for it; they are never turned.
    float const hs = ps.page_shrink_margin_boxes ? s : 1;
    pa.hfs_bleed_box = scaled(pa.real_bleed_box, hs);
    pa.hfs_trim_box = scaled(pa.real_trim_box, hs);
    pa.hfs_margin_area = scaled(pa.margin_area, hs);
    pa.hfs_margins = {.sides_top = margins.sides_top * hs,
                      .sides_right = margins.sides_right * hs,
                      .sides_bottom = margins.sides_bottom * hs,
                      .sides_left = margins.sides_left * hs};
    return pa;
}

matrix::matrix body_to_paper(paper_areas const& pa, vellum_rotate_body rotate) {
    float const s = pa.shrink_to_fit.value_or(1);
    float const cx = centre_x(pa.pa_body_area);
    float const cy = centre_y(pa.pa_body_area);
    float const angle = -static_cast<float>(quarter_turns(rotate)) * std::numbers::pi_v<float> / 2;
    auto m = matrix::then(matrix::translate(-cx, -cy), matrix::rotate(angle));
    m = matrix::then(m, matrix::translate(cx, cy));
    return matrix::then(m, matrix::scale(1 / s, 1 / s));
}

matrix::matrix margin_boxes_to_paper(paper_areas const& pa) {
    float const w = areas::width_of(pa.margin_area);
    float const hw = areas::width_of(pa.hfs_margin_area);
    if (w <= 0 || hw <= 0) {
        return matrix::identity;
    }
    return matrix::scale(w / hw, w / hw);
}

} // namespace vellum::pack::paper
