// Shrink-to-fit widths: the narrowest a box's content can be set (its min-content width, every break
// taken) and the widest (its max-content width, no break but the forced ones). Floats, inline blocks
// and absolutely positioned boxes of "auto" width take min(max(min-content, room), max-content).
// While a scope lives, each box is measured once, so that such boxes nested in each other cost time in
// proportion to their number, not to a power of their depth.
#pragma once

#include "pack/page_info.hpp"
#include "prepack/prepack.hpp"

namespace vellum::pack::fit {

/// The content-box widths of a box, without its own borders and padding.
struct content_widths {
    float min_content = 0;
    float max_content = 0;
    bool operator==(content_widths const&) const = default;
};

/// While one lives, measured widths are kept and reused; they are forgotten when the outermost scope
/// ends. Made around the packing of a shrink-to-fit box, whose blocks stay alive meanwhile.
class measure_scope {
public:
    measure_scope();
    ~measure_scope();
    measure_scope(measure_scope const&) = delete;
    measure_scope& operator=(measure_scope const&) = delete;
};

/// Whether a flow is being packed only to measure its widths: the floats and inline blocks in it then
/// count only by their widths, and absolutely positioned boxes not at all.
bool measuring();

/// The min-content and max-content widths of the block's content. A block of child blocks is measured
/// from its children's widths (floats in a row side by side, positioned boxes not at all); other
/// content (paragraphs, tables, images) is packed at no width and at an unbounded width, in a copy of
/// `info` whose gatherings are dropped.
content_widths content_widths_of(page_info const& info, prepack::block const& b);

/// The shrink-to-fit width for the room left: the room, but no less than the min-content width and no
/// more than the max-content width.
float shrink_to_fit(content_widths const& w, float room);

} // namespace vellum::pack::fit
