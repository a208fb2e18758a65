// Vertical alignment of one line: each text run and inline box raised or lowered by its
// vertical-align, the line's extent above and below the baseline gathered from them, and the line's
// height and baseline settled by line-height and line-stacking-strategy.
#pragma once

#include "css/style.hpp"
#include "pack/boxes.hpp"
#include "text/font_metrics.hpp"

#include <vector>

namespace vellum::pack::para_valign {

/// What a line or a span reaches above and below its baseline so far, and the tallest box aligned
/// with the line's top or bottom.
struct vinfo {
    float top_sofar = 0;
    float bottom_sofar = 0;
    float max_tbh = 0;
    bool operator==(vinfo const&) const = default;
};

/// A line after vertical alignment: its boxes with y relative to the baseline, the baseline's y on
/// the page and the height the line takes.
struct pre_line {
    std::vector<spanbox> line_boxes;
    float line_base = 0;
    float line_height = 0;
};

/// The used line-height of a style: a length as given, a number times the font size, and `normal`
/// and `none` both 1.2 times the font size, whatever the font says.
float line_height_of(css::style::style const& s);

/// Aligns the boxes of a line whose top is at `top`, in a paragraph of `para_style` whose primary
/// font has the metrics `para_metrics`. Nested spanboxes carry their own metrics.
pre_line valign(css::style::style const& para_style,
                font_metrics::font_metrics_scaled const& para_metrics,
                std::vector<spanbox> boxes,
                float top);

} // namespace vellum::pack::para_valign
