// From a paragraph's tree of spans to its flat list of items: words, spaces as glue, hyphen penalties,
// the edges of inline boxes, and the items whose value waits for the page. Nothing is measured here.
#pragma once

#include "pack/knuth.hpp"
#include "pack/page_info.hpp"
#include "prepack/prepack.hpp"

#include <optional>
#include <vector>

namespace vellum::pack::spans_to_knuth {

/// A paragraph's items in document order, and the inline boxes still open in front of them (from a
/// run-in or marker prefix).
struct items_res {
    std::vector<knuth::knuth> res_items;
    std::vector<knuth::open> res_unclosed;
};

/// The font request of a style's font properties.
knuth::font_req_ref font_req_of(fonts::fonts const& db, css::style::style const& s);

/// The first-line form of a paragraph of this style: its ::first-line declarations applied in order.
std::optional<knuth::first_line_form> first_line_form_of(fonts::fonts const& db,
                                                         knuth::style_ref const& style,
                                                         std::vector<prepack::styled_context> const& contexts);

/// Builds the items of a paragraph whose text has the style `style`, in a container `width` wide: the
/// spans flattened, the end trimmed of discardable items and closed by a forced break, and a pass-in
/// prefix put in front.
/// `style_req` is the font request of `style` when the caller made it already.
items_res para_to_knuths(page_info const& info,
                         knuth::style_ref const& style,
                         prepack::para const& para,
                         float width,
                         knuth::font_req_ref style_req = nullptr);

/// The items of some spans in a style, with the first-line form of that style if the paragraph has
/// one; their text ranges are of `text`. `out` receives them in document order.
void spans_to_knuths(page_info const& info,
                     knuth::font_req_ref const& font_req,
                     knuth::style_ref const& style,
                     std::optional<knuth::first_line_form> const& first_line,
                     fonts::direction dir,
                     float width,
                     std::span<prepack::span const> spans,
                     prepack::para_text const& text,
                     std::vector<knuth::knuth>& out);

/// Calls of script functions on the page of `info`: the arguments rendered for the page (counters
/// through `render_counter`), the function called, and its text made into items of the call's style.
eval_knuth::script_caller script_caller_of(page_info const& info,
                                           std::shared_ptr<prepack::script_calls const> scripts,
                                           eval_knuth::counter_renderer render_counter);

} // namespace vellum::pack::spans_to_knuth
