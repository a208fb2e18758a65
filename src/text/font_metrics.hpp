// A font's vertical metrics at one font size, in points.
#pragma once

#include "text/font_info.hpp"

namespace vellum::font_metrics {

/// Ascent, descent (positive downwards), line gap and underline, at one size.
struct font_metrics_scaled {
    float up = 0;
    float down = 0;
    float gap = 0;
    float underline_thick = 0;
    float underline_pos = 0;
    bool operator==(font_metrics_scaled const&) const = default;
};

/// The metrics of a font at a size: each value times size / units per em, in double precision.
font_metrics_scaled scale_metrics(font_info::font_info const& info, double size);

} // namespace vellum::font_metrics
