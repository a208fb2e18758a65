// The footnote area at the foot of a page: the bodies of the footnotes called on the page, each
// starting with its marker, packed into the area that the page's @footnote rule styles, as far as
// they fit; a body that doesn't fit is split, and its rest goes first on the next page.
#pragma once

#include "pack/areas.hpp"
#include "pack/boxes.hpp"
#include "pack/page_info.hpp"

#include <optional>
#include <span>
#include <vector>

namespace vellum::pack::footnotes {

/// Footnotes carried over from the page before may take at most this share of the body: the rest of a
/// long footnote leaves room for text, unless it is longer, and then it has the page to itself.
inline constexpr float footnote_share = 0.8f;

/// What lies between the rectangle of a page region's box (the footnote area, the page float areas)
/// and its content: margins, and borders with padding, top and bottom; and all three on each side.
struct frame {
    float margin_top = 0;
    float margin_bottom = 0;
    float inner_top = 0;
    float inner_bottom = 0;
    float left = 0;
    float right = 0;
};

/// The frame a region's used style gives.
frame frame_of(css::used_style::used_style const& u);

/// The footnotes of a page packed at its foot.
struct area_res {
    /// The area's box (its border and padding around the footnotes); none when nothing went in.
    std::optional<ref<box>> area_box;
    /// The height the area takes from the body, its margins included.
    float area_height = 0;
    /// The footnotes, or the rests of them, that go on to the next page.
    std::vector<page_footnote> area_leftover;
    /// Some footnote could not even be started on this page.
    bool area_unstarted = false;
    /// The absolutely positioned blocks met in the footnotes that no box inside them contains, with
    /// their static positions in the area as placed: the page area contains them.
    std::vector<std::pair<prepack::block, util::pos::pos>> area_absolutes;
};

/// Packs the footnotes into an area standing on the bottom of `body`, at most `max_height` tall with
/// its margins. With `must_place`, the first footnote goes in even if it doesn't fit.
area_res pack_area(page_info const& info,
                   std::span<page_footnote const> list,
                   areas::area const& body,
                   float max_height,
                   bool must_place);

/// The height the footnotes take when nothing limits them; infinite when they cannot all go in an
/// area as tall as `body`.
float height_needed(page_info const& info, std::span<page_footnote const> list, areas::area const& body);

} // namespace vellum::pack::footnotes
