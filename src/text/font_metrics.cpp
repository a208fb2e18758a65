#include "text/font_metrics.hpp"

#include "util/result.hpp"

namespace vellum::font_metrics {

font_metrics_scaled scale_metrics(font_info::font_info const& info, double size) {
    // Loading refuses a font with no units per em, so this never divides by zero.
    check(info.units_per_em > 0, "scale_metrics");
    double const k = size / info.units_per_em;
    return {
        .up = float(info.font_metrics.ascender * k),
        .down = float(-info.font_metrics.descender * k),
        .gap = float(info.font_metrics.line_gap * k),
        .underline_thick = float(info.underline_thickness * k),
        .underline_pos = float(info.underline_position * k),
    };
}

} // namespace vellum::font_metrics
