// The sixteen boxes in the page margin with their content: each box's `content` evaluated against the
// finished page (page number, page total, running strings and counters), measured, given its rectangle
// and packed into it as a paragraph aligned as the box's place on the page suggests.
#pragma once

#include "css/page.hpp"
#include "pack/boxes.hpp"
#include "pack/page_info.hpp"
#include "pack/paper.hpp"
#include "prepack/prepack.hpp"
#include "util/textbuf.hpp"

#include <optional>
#include <string>
#include <vector>

namespace vellum::pack::static_ {

/// The margin boxes of one page.
struct margin_boxes_res {
    /// Only the boxes that exist: those whose `content` is neither `normal` nor `none`, in the order of
    /// css::page::region.
    std::vector<margin_box> res_margin_boxes;
    /// Some box showed the page total, so the page depends on the count of the previous pass.
    bool res_uses_pages = false;
};

/// Packs the margin boxes of a page whose body is finished: `info` holds the page's numbers and the
/// counters and strings set on it, `ps` the page's style, `pa` its areas. The boxes are placed in the
/// margin boxes' frame.
margin_boxes_res pack_margin_boxes(page_info const& info,
                                   css::page::page_style const& ps,
                                   paper::paper_areas const& pa);

/// The text of a margin box's content terms on this page. Terms that have no meaning in a margin box,
/// or that aren't supported, give nothing and are logged at debug level.
struct content_text {
    textbuf::textbuf text_value;
    bool text_uses_pages = false;
    bool operator==(content_text const&) const = default;
};

content_text eval_content(page_info const& info, css::property::content_list const& content);

/// The text of generated content that waited for the page (a bookmark's label, a named string), with
/// the page's counters and strings.
textbuf::textbuf things_text(page_info const& info, std::vector<prepack::text_thing> const& things);

} // namespace vellum::pack::static_
