// Ordinary floats (left, right, inside, outside). A float is placed at the top of the first band of
// the areas where its margin box has room, and its rectangle is cut out of the bands, so that the
// lines and blocks after it flow beside it. The band list is the only record of the floats of a flow:
// `clear` looks for the lowest band still narrowed on a side.
#pragma once

#include "css/style.hpp"
#include "pack/areas.hpp"
#include "pack/boxes.hpp"
#include "pack/page_info.hpp"
#include "prepack/prepack.hpp"

#include <optional>
#include <span>
#include <vector>

namespace vellum::pack::floats {

enum class side { left, right };

/// The side a style floats to; `inside` and `outside` by the page's side (the binding edge is the left
/// edge of a right-hand page). None for boxes that don't float this way.
std::optional<side> float_side(css::style::style const& s, page_info const& info);

/// The sides a style clears.
struct clear_sides {
    bool left = false;
    bool right = false;
};

clear_sides clear_of(css::style::style const& s, page_info const& info);

/// The y below the floats on the cleared sides, if they reach below `top`.
std::optional<float> clearance(areas::areas const& a, clear_sides c, float top);

/// The areas with their top moved down to `y`: the bands above it dropped, the one across it cut.
areas::areas moved_to(areas::areas a, float y);

/// The bands with the rectangle `r` (a float's margin box on side `s`) taken out.
areas::areas cut(areas::areas a, areas::area const& r, side s);

/// A float packed and placed: its box, and the areas with its room taken out.
struct placed {
    ref<box> placed_box;
    areas::areas placed_areas;
    page_info placed_info;
    /// The top of its margin box: no float after it may stand higher.
    float placed_top = 0;
};

/// Whether a float cuts into a band of the flow: it is narrower than its container on either side.
bool narrowed(areas::area const& band, areas::area const& container);

/// Packs the float `b` and places it at `top` or below, in the first band where its margin box fits.
/// Nothing when it fits in no band down to the container's bottom, unless `max_area` is on: then it
/// goes into the first band and overflows.
std::optional<placed> place_float(page_info info, prepack::block const& b, side s, float top,
                                  areas::areas const& a, bool max_area);

/// The bands of a flow nested in a narrower container, carried out to the wider one: an inner band
/// edge that lies on the inner container's edge is no float edge, and takes the outer band's edge
/// again. Only the part from `from_top` down is kept.
std::vector<areas::area> carry_out(std::span<areas::area const> inner,
                                   areas::area const& inner_container,
                                   std::span<areas::area const> outer,
                                   float from_top);

} // namespace vellum::pack::floats
