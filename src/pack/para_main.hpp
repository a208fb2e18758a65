// Paragraph composition: a paragraph's items broken into lines and the lines made into line boxes of
// positioned text runs and inline spans, from the top of the area down, until the area is full; the
// rest of the paragraph is handed back for the next area, with orphans and widows respected.
#pragma once

#include "css/used_style.hpp"
#include "pack/areas.hpp"
#include "pack/boxes.hpp"
#include "pack/knuth.hpp"
#include "pack/linebreak.hpp"
#include "pack/page_info.hpp"
#include "pack/para_halign.hpp"

#include <optional>
#include <vector>

namespace vellum::pack::para_main {

enum class pack_method { first_fit, best_fit };

/// What a paragraph left behind in an area.
struct para_res {
    page_info res_info;
    areas::areas res_areas;
    std::vector<parabox> res_boxes;
    /// The rest of the paragraph, if it did not end here.
    std::optional<prepack::para> res_remaining;
};

/// Packs a paragraph of this style into the areas. Nothing placed (no boxes, info and areas as given)
/// means not even its first lines fit.
para_res pack_para(page_info info,
                   knuth::style_ref const& style,
                   css::used_style::used_style const& used,
                   areas::areas areas,
                   prepack::para const& para);

/// Whether the paragraph is broken as a whole by total fit: justified, wrapping text in one band free
/// of floats, with no float among its items.
bool uses_total_fit(css::style::style const& s, areas::areas const& a, std::span<knuth::knuth const> items);

/// The items of a line placed from `left`: inline box edges at their margins, leaders snapped to a
/// grid from `grid_left` and given the line's free room up to `right`, footnote calls taking no
/// room, a soft hyphen only at the end.
struct placed_line {
    std::vector<para_halign::placed_item> placed_items;
    bool placed_leader = false;
};

placed_line place_items(std::span<knuth::knuth const> items, float left, float right, float grid_left);

/// Builds spanboxes from placed items: open/close pairs become nested spanboxes (with their font
/// metrics from `metrics_of`), runs of text become chars. The inline boxes still open at the end are
/// returned for the next line.
struct spanboxes_res {
    std::vector<spanbox> res_boxes;
    std::vector<knuth::open> res_unclosed;
};

spanboxes_res to_spanboxes(fonts::fonts const& db,
                           knuth::line_kind kind,
                           std::span<para_halign::placed_item const> items);

/// One line made into a line box, or refused when it is too tall for the area (unless it is the
/// area's first line and must be placed).
struct line_made {
    std::optional<linebox> made_box;
    std::vector<knuth::open> made_unclosed;
    float made_height = 0;
    /// The line held nothing but its indent: no box, and no height used.
    bool made_empty = false;
};

struct line_request {
    knuth::line_kind kind = knuth::line_kind::other_line;
    std::vector<knuth::open> open_tags;
    para_halign::line_break brk = para_halign::line_break::implicit;
    bool max_area = false;
    /// The font request of the paragraph's style, when the paragraph made it already: every line
    /// that is not a ::first-line asks for it.
    knuth::font_req_ref style_font_req;
};

line_made make_line(page_info const& info,
                    knuth::style_ref const& style,
                    std::optional<knuth::style_ref> const& first_line_style,
                    areas::areas const& areas,
                    line_request const& request,
                    std::span<knuth::knuth const> line);

} // namespace vellum::pack::para_main
