// Horizontal alignment of one line: the items of a broken line placed side by side from the band's
// left edge, their leading and trailing spaces dropped, and the line moved or its glue stretched and
// shrunk by text-align and text-align-last.
#pragma once

#include "css/style.hpp"
#include "pack/knuth.hpp"

#include <vector>

namespace vellum::pack::para_halign {

enum class used_text_align { left, right, center, justify };

/// A line ended by a forced break (explicit) or by the line breaker (implicit).
enum class line_break { explicit_, implicit };

/// An item of a line at its place: `placed_x` on the page, `placed_w` its width there.
struct placed_item {
    /// The item, in the line being made, which outlives its placement.
    knuth::knuth const* placed = nullptr;
    float placed_x = 0;
    float placed_w = 0;
};

/// The alignment a line takes: text-align-last decides for the last line (or a line before a forced
/// break) of justified text only; `inside` and `outside` depend on the page's side.
used_text_align used_align(css::style::style const& para_style, line_break brk, int pdf_page_num);

/// Where the aligned line starts and how wide it counts.
struct halign_res {
    float line_x = 0;
    float line_w = 0;
    /// The ratio the glue was stretched (positive) or shrunk (negative) by, if at all.
    std::optional<float> line_ratio;
};

/// Aligns placed items between `left` and `right`: drops spaces and line ends at the start and at the
/// end of the line, then shifts every item, and under justification stretches or shrinks each glue
/// and moves everything behind it on. `has_leader` lines are only shifted: the leader took the room.
halign_res halign(std::vector<placed_item>& items,
                  float left,
                  float right,
                  css::style::style const& para_style,
                  line_break brk,
                  int pdf_page_num,
                  bool has_leader);

} // namespace vellum::pack::para_halign
