// Page floats: blocks floated to the top or bottom of the page area. The flow
// sets them aside where it meets them; the page loop stacks them at the top and bottom of the body, in
// the order met, and flows the body again in the room they leave. One that doesn't fit, or asks for
// the next page, waits for the next page, and those met after it wait behind it; one taller than a
// page is split, its rest first on the next page.
#pragma once

#include "css/style.hpp"
#include "pack/areas.hpp"
#include "pack/blocks.hpp"
#include "pack/boxes.hpp"
#include "pack/footnotes.hpp"
#include "pack/page_info.hpp"

#include <functional>
#include <optional>
#include <vector>

namespace vellum::pack::page_floats {

/// Whether the flow sets a block of this style aside as a page float: it floats to the top or bottom
/// of the page, and the flow is one whose gatherings reach the page loop.
bool takes_page_float(page_info const& info, css::style::style const& s);

/// A page float met where page floats cannot be placed (in an inline block, a margin box, a footnote)
/// is set in the flow; logs this once per run.
void note_in_flow(log::log const& log, css::style::style const& s);

/// How a style floats to the page, if it does.
std::optional<css::box::page_column_float> page_float_of(css::style::style const& s);

/// A float met at height `y` of the page body: `snap` becomes `top` when the call stands in the upper
/// half of the body and `bottom` otherwise; any other edge stays as it is.
css::box::page_column_float settle_snap(css::box::page_column_float how, float y, areas::area const& body);

/// A page float packed: its box with the top of its margin box at y = 0, its height with its margins,
/// and the footnotes its text calls.
struct packed {
    ref<box> packed_box;
    float packed_height = 0;
    std::vector<page_footnote> packed_notes;
    /// The rest of a float split at the foot of the room it was given.
    std::optional<prepack::block> packed_rest;
};

/// Packs a page float whole for a body area, its footnotes numbered after `counter`. None when it
/// gives no box.
std::optional<packed>
pack_float(page_info info, prepack::block const& b, areas::area const& body, int counter);

/// Packs the part of a page float that fits in `room` (with its margins), the rest handed back.
std::optional<packed>
pack_part(page_info info, prepack::block const& b, areas::area const& body, int counter, float room);

struct placed_float {
    page_float placed_what;
    packed placed_packed;
    /// The footnote counter its footnotes were numbered after.
    int placed_counter = 0;
};

/// The box that the floats to one edge of the page stand in, when the page rule styles its region
/// (@page-float-top, @page-float-bottom): its style and its frame.
struct edge_box {
    ref<css::style::style> edge_style;
    css::used_style::used_style edge_used;
    footnotes::frame edge_frame;
};

/// The edge box of the top (or bottom) floats of a page whose body is `body`, if the page rule styles it.
std::optional<edge_box> edge_box_of(page_info const& info, bool top, areas::area const& body);

/// The page floats of one page: those to the top stacked down from the body's top, those to the
/// bottom stacked up from the footnote area, each list in the order met. The heights include the
/// frame of the edge's box while the edge holds floats.
struct page_set {
    std::vector<placed_float> tops;
    std::vector<placed_float> bottoms;
    float tops_height = 0;
    float bottoms_height = 0;
    std::optional<edge_box> tops_box;
    std::optional<edge_box> bottoms_box;
};

/// The footnotes the placed floats call: the tops', then the bottoms', each in order. They come
/// first among the page's footnotes and take the first numbers of the page.
std::vector<page_footnote> notes_of(page_set const& set);

/// The body area less the room the floats take.
areas::area flow_area(page_set const& set, areas::area const& body);

/// The floats' boxes at their places: the tops from the body's top down, the bottoms up from `floor`
/// (the top of the footnote area, or the body's bottom), each set in its edge's box if it has one.
/// Floats to a corner stand at the outside of the body: its right on a right-hand page.
std::vector<ref<box>> place(page_set const& set, areas::area const& body, float floor, bool right_page);

/// Flows the body in the area it is given (the body less the floats placed so far).
using flow_fn = std::function<blocks::blocks_out(page_info, areas::area const&)>;

/// A page's body flowed around its page floats.
struct page_res {
    /// The last flow, the one the page keeps; none when the floats left no room for a body.
    std::optional<blocks::blocks_out> res_flow;
    page_set res_set;
    /// The floats that wait for the next page, in order.
    std::vector<page_float> res_waiting;
};

/// Places the floats carried from the page before, then flows the body and places the floats its
/// flow met, flowing again after each change, until the floats placed are those whose calls the
/// flow holds. `info.general.body_area` is the page's body. The first float carried over that is
/// taller than the page is split: its first part has the page to itself, its rest waits first.
/// The footnotes that the placed floats call join the page's, numbered first on the page: the body's
/// calls are numbered after them.
page_res flow_page(page_info const& info, std::vector<page_float> const& carried, flow_fn const& flow);

} // namespace vellum::pack::page_floats
