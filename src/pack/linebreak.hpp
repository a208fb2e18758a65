// What the greedy line breakers share: the scan of items that fills one line, remembering the last
// place where the line could end, until the line is full. First fit takes the last break that fits;
// best fit also weighs hyphen breaks and lets a justified line shrink.
#pragma once

#include "pack/eval_knuth.hpp"
#include "pack/knuth.hpp"

#include <optional>
#include <variant>
#include <vector>

namespace vellum::pack::linebreak {

/// An atomic inline box that is not part of the line (a float that fits, an absolute box). A float
/// narrows the line: the caller places it and starts the line again from the stream, which holds what
/// was packed so far and the rest of the paragraph, the box taken out. A box that takes no room from
/// the line is kept with the line instead (`line_outflows`), for the caller to place with it.
struct outflow {
    float outflow_xpos = 0;
    knuth::knuth outflow_item;
    eval_knuth::page_state outflow_page_info;
};

/// The running state of the scan of one line. The items packed so far are kept once, by the scan, in
/// order; a state says how many of them it holds.
struct pack_state {
    eval_knuth::page_state curr_page_info;
    /// Width of everything packed, all items counted.
    float curr_xpos = 0;
    /// The number of items packed so far.
    std::size_t packed_count = 0;
    float width_sofar = 0;
    /// Floats held back until the next line, in order.
    std::vector<knuth::knuth> delay_floats;
    /// The index of the next item to scan.
    std::size_t next_index = 0;
    /// The boxes out of the flow met on the line that take no room from it, with their places.
    std::vector<outflow> line_outflows;
};

/// A place where the line could end: the state there, the sums of the trimmed line, and how the line
/// ends. The line itself is made only for the break that is returned. What remains of the paragraph
/// is left in the stream the line was taken from.
struct break_point {
    pack_state break_state;
    /// The trimmed line; made for the returned break only.
    std::vector<knuth::knuth> line;
    /// Whether the trimmed line holds nothing.
    bool line_empty = true;
    float line_width = 0;
    float line_stretch = 0;
    float line_shrink = 0;
    knuth::break_type break_type = knuth::break_type::other;
};

/// The line can't start in this band (a float beside it leaves too little room) and nothing was
/// taken: the caller moves below the float, or ends the area here.
struct no_room {
    bool operator==(no_room const&) const = default;
};

/// The outcome of filling one line.
using line_res = std::variant<outflow, break_point, no_room>;

enum class method { first_fit, best_fit };

/// The arguments of one line.
struct line_request {
    knuth::line_kind line_kind = knuth::line_kind::other_line;
    std::optional<float> containing_height;
    /// The width the line may take, and the full width of the container.
    float width = 0;
    float container_width = 0;
    /// Whether a word may be hyphenated on this line.
    bool hyphenate_ok = true;
    /// Whether a line narrower than its container (floats beside it) that can't take its first word
    /// may be given up (`no_room`): only when there is somewhere else to go, a band below or the next
    /// area. Otherwise the line takes its first word and runs over, so that every line consumes.
    bool may_give_up = false;
};

/// Fills one line from the front of `items`. The items the line takes are taken off the stream, and
/// those it looked at but left (the rest of a cut word, floats held back) are put back in front, so
/// that a line costs what it holds, however long the paragraph. After `no_room` the stream is as it
/// was; after an outflow it holds the line to start again.
line_res fill_line(eval_knuth::eval_env const& env,
                   method m,
                   line_request const& request,
                   eval_knuth::page_state page_info,
                   knuth::item_stream& items);

/// Badness of a line for best fit: very bad (absent) for a line that cannot reach its width, else
/// |r|^3 * 100 + 0.5, plus 50 for a break at a hyphen.
[[nodiscard]] std::optional<float> badness(break_point const& bp, float target);

/// The better of two break points for best fit: the candidate wins on equal badness.
break_point const& choose_break(break_point const* best, break_point const& candidate, float target);

/// Whether a greedy line may hyphenate when `consecutive` lines before it ended in a hyphen.
bool hyphenate_ok(css::text::hyphenate_lines const& limit, int consecutive);

} // namespace vellum::pack::linebreak
