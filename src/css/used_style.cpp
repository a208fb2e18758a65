#include "css/used_style.hpp"

#include "util/result.hpp"

#include <algorithm>

namespace vellum::css::used_style {

namespace {

float of(box::length_or_percent<float> const& v, float reference) {
    return std::visit(overloaded{
                          [](float x) { return x; },
                          [&](units::percentage const& p) { return units::percent_of(p, reference); },
                      },
                      v);
}

std::optional<float> of(box::auto_length_percent<float> const& v, std::optional<float> reference) {
    return std::visit(overloaded{
                          [](box::auto_value const&) -> std::optional<float> { return std::nullopt; },
                          [](float x) -> std::optional<float> { return x; },
                          [&](units::percentage const& p) -> std::optional<float> {
                              if (!reference) {
                                  return std::nullopt;
                              }
                              return units::percent_of(p, *reference);
                          },
                      },
                      v);
}

std::optional<float> of(box::max_width const& v, std::optional<float> reference) {
    return std::visit(overloaded{
                          [](box::none_value const&) -> std::optional<float> { return std::nullopt; },
                          [](float x) -> std::optional<float> { return x; },
                          [&](units::percentage const& p) -> std::optional<float> {
                              if (!reference) {
                                  return std::nullopt;
                              }
                              return units::percent_of(p, *reference);
                          },
                      },
                      v);
}

} // namespace

float offset_length(box::position_offset const& o, float reference) {
    auto const x = of(o, reference);
    if (!x) {
        throw internal_error("position offset is auto");
    }
    return *x;
}

used_style
used_style_of(style::style const& s, float container_width, std::optional<float> container_height) {
    used_style u;
    u.used_background_color = s.background->background_color;
    u.used_background = s.background;
    u.used_borders = *s.borders;
    // Percentages of padding and margins are of the container's width on every side.
    u.used_padding_top = of(s.padding_top, container_width);
    u.used_padding_right = of(s.padding_right, container_width);
    u.used_padding_bottom = of(s.padding_bottom, container_width);
    u.used_padding_left = of(s.padding_left, container_width);
    used_margins m{.margin_top = of(s.margin_top, container_width),
                   .margin_right = of(s.margin_right, container_width),
                   .margin_bottom = of(s.margin_bottom, container_width),
                   .margin_left = of(s.margin_left, container_width)};
    u.used_margins = m;

    if (s.bit_props.bit_props_position != box::position{box::position_kind::static_}) {
        u.used_offsets = used_offsets{.offset_top = of(s.top, container_height),
                                      .offset_right = of(s.right, container_width),
                                      .offset_bottom = of(s.bottom, container_height),
                                      .offset_left = of(s.left, container_width)};
    }

    auto const& b = *s.borders;
    float const horizontal_padding = u.used_padding_left + u.used_padding_right;
    float const vertical_padding = u.used_padding_top + u.used_padding_bottom;
    float const horizontal_borders = b.borders_left.border_width + b.borders_right.border_width;
    float const vertical_borders = b.borders_top.border_width + b.borders_bottom.border_width;
    // What box-sizing says the width and height properties measure, beyond the content box.
    float extra_w = 0;
    float extra_h = 0;
    switch (s.box_sizing) {
    case box::box_sizing::content_box:
        break;
    case box::box_sizing::padding_box:
        extra_w = horizontal_padding;
        extra_h = vertical_padding;
        break;
    case box::box_sizing::border_box:
        extra_w = horizontal_padding + horizontal_borders;
        extra_h = vertical_padding + vertical_borders;
        break;
    }
    if (auto const w = of(s.width, container_width)) {
        u.used_width = std::max(0.0f, *w - extra_w);
    } else {
        u.used_width =
            std::max(0.0f, container_width - m.margin_left.value_or(0) - m.margin_right.value_or(0) -
                               horizontal_borders - horizontal_padding);
    }
    // The width is held between max-width and min-width, the minimum winning; "auto" side margins
    // then share what a narrower box leaves.
    if (auto const max = of(s.rare_box->max_width, container_width)) {
        u.used_width = std::min(u.used_width, std::max(0.0f, *max - extra_w));
    }
    u.used_width = std::max(u.used_width, of(s.rare_box->min_width, container_width) - extra_w);
    if (auto const h = of(s.height, container_height)) {
        u.used_height = std::max(0.0f, *h - extra_h);
    }
    u.used_min_height =
        std::visit(overloaded{
                       [](float x) { return x; },
                       [&](units::percentage const& p) {
                           return container_height ? units::percent_of(p, *container_height) : 0.0f;
                       },
                   },
                   s.rare_box->min_height);
    u.used_max_height = of(s.rare_box->max_height, container_height);
    float const indent = of(s.text->text_props_text_indent, container_width);
    // A negative indent starts the first line to the left of the others, outside the content box.
    u.used_text_indent = used_indent{indent_type::indent, indent};
    return u;
}

} // namespace vellum::css::used_style
