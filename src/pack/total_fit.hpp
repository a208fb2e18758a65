// The optimum-fit line breaker for justified text whose lines all have one width: the paragraph is
// broken as a whole, choosing the chain of breaks with the least demerits, but keeping only a short
// list of feasible breaks since the last place that settled the choice.
#pragma once

#include "pack/eval_knuth.hpp"
#include "pack/knuth.hpp"

#include <optional>
#include <variant>
#include <vector>

namespace vellum::pack::total_fit {

/// The demerits of a chain of lines; absent is infinite.
using demerits = std::optional<double>;

struct fbp;

/// The root of a chain, with the number of the paragraph's line that it starts.
struct start {
    int line_number = 1;
};

/// The break before this one.
struct via {
    ref<fbp> via_fbp;
};

/// A feasible break point, linked backwards to the paragraph's start.
struct fbp {
    /// Items consumed up to and including the break.
    int index = 0;
    total_fit::demerits fbp_demerits = 0.0;
    /// Lines ending in a hyphen directly before and including this one.
    int consecutive_hyphens = 0;
    knuth::adjustment_ratio adjustment_ratio = knuth::ratio{};
    std::optional<float> art;
    std::variant<start, via> fbp_type = start{};
    knuth::break_type fbp_break_type = knuth::break_type::other;
    /// The number of the paragraph's line that follows this break.
    int next_line_number = 1;
};

/// What does not change while a paragraph is broken.
struct break_params {
    std::optional<float> containing_height;
    /// The most consecutive hyphenated lines, if limited.
    std::optional<int> hyphenate_lines;
    /// Hyphen-ended lines just before the first line (a paragraph continued from a page).
    int consecutive_hyphens = 0;
    css::used_style::used_indent used_indent;
    int start_line_number = 1;
    float width = 0;
    /// Whether the items may carry a ::first-line form. Without one, an item measures the same on the
    /// first line as on the others, and is measured and kept once.
    bool first_line_forms = true;
};

/// A new feasible break after `previous` at item `index` (the break item being `break_item`), with the
/// line's items `line_items` still untrimmed. Only the line's sums are taken: the lines themselves
/// are made once the breaks are chosen.
fbp make_break_point(eval_knuth::eval_env const& env,
                     break_params const& params,
                     std::optional<float> art,
                     std::span<knuth::knuth const> line_items,
                     ref<fbp> const& previous,
                     int index,
                     knuth::knuth const& break_item);

/// The paragraph broken into lines, the items as evaluated, and the page state after them.
struct break_res {
    std::vector<knuth::knuth> res_items;
    knuth::para_lines res_lines;
    eval_knuth::page_state res_page_info;
};

/// Breaks the items of a paragraph into lines of one width.
break_res break_lines(eval_knuth::eval_env const& env,
                      break_params const& params,
                      eval_knuth::page_state page_info,
                      std::vector<knuth::knuth> items);

} // namespace vellum::pack::total_fit
