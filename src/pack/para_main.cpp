#include "pack/para_main.hpp"

#include "pack/margin_collapsing.hpp"

#include "pack/block.hpp"
#include "pack/floats.hpp"
#include "pack/footnotes.hpp"
#include "pack/page_floats.hpp"
#include "pack/para_valign.hpp"
#include "pack/positioned.hpp"
#include "pack/spans_to_knuth.hpp"
#include "pack/total_fit.hpp"

#include <algorithm>
#include <cmath>

namespace vellum::pack::para_main {

using namespace knuth;
using para_halign::placed_item;

namespace {

pack::knuth::inline_block const* inline_block_of(pack::knuth::knuth const& item) {
    auto const* b = std::get_if<knuth_box>(&item);
    return b != nullptr ? std::get_if<pack::knuth::inline_block>(b) : nullptr;
}

bool is_indent(pack::knuth::knuth const& item) {
    auto const* b = std::get_if<knuth_box>(&item);
    return b != nullptr && std::holds_alternative<pack::knuth::indent>(*b);
}

areas::area band_of(areas::areas const& a) {
    if (a.available.empty()) {
        return a.container;
    }
    auto band = a.available.front();
    band.bottom = a.container.bottom;
    return band;
}

pack::knuth::style_ref line_style(pack::knuth::style_ref const& style,
                            std::optional<pack::knuth::style_ref> const& first_line_style,
                            line_kind kind) {
    return kind == line_kind::first_line && first_line_style ? *first_line_style : style;
}

// Mirrors a box between the band's edges, for right-to-left text.
void mirror(spanbox& b, float left, float right) {
    std::visit(overloaded{
                   [&](ref<nested_spanbox>& n) {
                       auto copy = *n;
                       copy.spanbox_x = left + right - copy.spanbox_x - copy.spanbox_w;
                       for (auto& c : copy.spanbox_content) {
                           mirror(c, left, right);
                       }
                       n = share(std::move(copy));
                   },
                   [&](inline_box& i) {
                       auto copy = *i.inline_box_box;
                       copy.box_x = left + right - copy.box_x - copy.box_w;
                       i.inline_box_box = share(std::move(copy));
                   },
                   [&](charsbox& c) { c.charsbox_x = left + right - c.charsbox_x - c.charsbox_w; },
               },
               b);
}

// Puts the runs of a line in reading order. The line was laid out left to right (and, in a
// right-to-left paragraph, mirrored as a whole); a span that opens a bidi level of the other
// direction than its context's is mirrored within its own extent, and so on inwards, which reverses
// each run of a level as often as the levels above the paragraph's call for.
void reorder_levels(spanbox& b, bool context_rtl) {
    auto* n = std::get_if<ref<nested_spanbox>>(&b);
    if (n == nullptr) {
        return;
    }
    bool rtl = context_rtl;
    auto copy = **n;
    if (copy.spanbox_level) {
        rtl = *copy.spanbox_level % 2 == 1;
        if (rtl != context_rtl) {
            for (auto& c : copy.spanbox_content) {
                mirror(c, copy.spanbox_x, copy.spanbox_x + copy.spanbox_w);
            }
        }
    }
    for (auto& c : copy.spanbox_content) {
        reorder_levels(c, rtl);
    }
    *n = share(std::move(copy));
}

// `text-overflow: ellipsis`: keeps what of a left-to-right line ends before `limit`, a run that
// crosses it cut where a grapheme ends; `end` becomes the right edge of what is kept. A right-to-left
// line is cut mirrored (`mirrored`): there a left-to-right run keeps the end of its text, not the start.
void cut_line_at(std::vector<spanbox>& boxes, css::style::style const& style, float limit, float& end, bool mirrored) {
    std::vector<spanbox> kept;
    for (auto& b : boxes) {
        std::visit(overloaded{
                       [&](charsbox& c) {
                           if (c.charsbox_x + c.charsbox_w <= limit + tolerance) {
                               end = std::max(end, c.charsbox_x + c.charsbox_w);
                               kept.push_back(std::move(c));
                               return;
                           }
                           if (c.charsbox_x >= limit) {
                               return;
                           }
                           auto const* ls = std::get_if<float>(&style.rare_props->rare_props_letter_spacing);
                           bool const keep_end = mirrored && c.charsbox_direction == fonts::direction::ltr;
                           auto const view = c.charsbox_content.view();
                           std::vector<fonts::grapheme> order(view.begin(), view.end());
                           if (keep_end) {
                               std::reverse(order.begin(), order.end());
                           }
                           auto fit = fonts::fit_graphemes(false, order, ls ? *ls : 0.0f, style.font_size,
                                                           limit - c.charsbox_x);
                           if (!fit || fit->fit_first.empty()) {
                               return;
                           }
                           if (keep_end) {
                               std::reverse(fit->fit_first.begin(), fit->fit_first.end());
                           }
                           c.charsbox_w = fit->fit_width;
                           c.charsbox_content = fonts::shared_graphemes(std::move(fit->fit_first));
                           end = std::max(end, c.charsbox_x + c.charsbox_w);
                           kept.push_back(std::move(c));
                       },
                       [&](ref<nested_spanbox>& n) {
                           if (n->spanbox_x >= limit) {
                               return;
                           }
                           auto copy = *n;
                           float inner_end = copy.spanbox_x;
                           cut_line_at(copy.spanbox_content, *copy.spanbox_style, limit, inner_end, mirrored);
                           if (copy.spanbox_x + copy.spanbox_w > limit) {
                               copy.spanbox_w = inner_end - copy.spanbox_x;
                           }
                           end = std::max(end, copy.spanbox_x + copy.spanbox_w);
                           kept.push_back(share(std::move(copy)));
                       },
                       [&](inline_box& i) {
                           auto const& box = *i.inline_box_box;
                           if (box.box_x + box.box_w <= limit + tolerance) {
                               end = std::max(end, box.box_x + box.box_w);
                               kept.push_back(std::move(i));
                           }
                       },
                   },
                   b);
    }
    boxes = std::move(kept);
}

// An inline box continued on the next line: under `box-decoration-break: slice` its start edge
// (margin, border, padding) was drawn on the first line only.
pack::knuth::open continued(pack::knuth::open o) {
    if (o.box_style->rare_box->box_decoration_break != css::box::box_decoration_break::slice) {
        return o;
    }
    auto used = *o.box_used_style;
    used.used_padding_left = 0;
    used.used_borders.borders_left.border_width = 0;
    if (auto* m = std::get_if<css::used_style::used_margins>(&used.used_margins)) {
        m->margin_left = 0.0f;
    }
    o.box_used_style = share(std::move(used));
    o.box_left_edge = 0;
    return o;
}

// Takes a line's indent box off the front of the items: it is made again for each line.
void drop_indent(item_stream& items) {
    if (!stream_empty(items) && is_indent(stream_peek(items))) {
        (void)stream_take(items);
    }
}

// ---- Placing lines --------------------------------------------------------------------------------------

struct para_ctx {
    pack::knuth::style_ref style;
    css::used_style::used_style used;
    std::optional<pack::knuth::style_ref> first_line_style;
    pack_method method = pack_method::first_fit;
    eval_knuth::eval_env env;
    pack::knuth::font_req_ref style_font_req;
};

// Where packing stands: what is placed, and what is left either as items (greedy) or as lines
// broken already (total fit).
struct run_state {
    page_info info;
    areas::areas areas;
    std::vector<parabox> boxes;
    int placed = 0;
    std::vector<pack::knuth::open> open_tags;
    int line_number = 1;
    int consecutive_hyphens = 0;
    item_stream rest;
    std::size_t next_line = 0;
    bool done = false;
    /// The top of the margin box of the last float the paragraph placed: no float after it goes higher.
    std::optional<float> floats_top;
};

// Whether a footnote goes to the foot of the column being filled rather than of the page: a column
// footnote does, while a column is being filled; elsewhere it is the page's.
bool to_column(page_info const& info, pack::knuth::footnote const& f) {
    return std::holds_alternative<pack::knuth::footnote_column>(f.footnote_type) &&
           info.general.column_area.has_value();
}

// A line is placed: the footnotes it calls join the page's or the column's, with the numbers their
// calls showed, and the footnote counter stands where the line breaker left it at the line's end.
void take_footnotes(page_info& info, std::span<pack::knuth::knuth const> line, std::optional<int> counter_after) {
    int number = info.general.footnote_counter;
    for (auto const& item : line) {
        if (auto const* f = std::get_if<pack::knuth::footnote>(&item)) {
            page_footnote note{.footnote_body = f->footnote_body,
                               .footnote_style = f->footnote_style,
                               .footnote_number = ++number};
            if (to_column(info, *f)) {
                add_column_footnote(info.accum, std::move(note));
            } else {
                add_footnote(info.accum, std::move(note));
            }
        }
    }
    info.general.footnote_counter = counter_after.value_or(number);
}

// Gives the footnote area standing on `area`'s bottom the height its notes need, when they fit below
// the line; or, under the `auto` policy, all the room below the line if they can at least start
// there, to run on; or all the room when the line must be placed here. False when the line has to go.
bool settle_area(page_info& trial,
                 std::span<page_footnote const> list,
                 areas::area const& area,
                 float& height,
                 float line_bottom,
                 bool keep,
                 bool max_area) {
    float const need = footnotes::height_needed(trial, list, area);
    float const room = line_bottom - area.bottom;
    if (need <= room + tolerance) {
        height = need;
        return true;
    }
    bool const starts = room > tolerance && !footnotes::pack_area(trial, list, area, room, false).area_unstarted;
    if (!max_area && (keep || !starts)) {
        return false;
    }
    // The footnotes take all the room below the line; what doesn't fit runs on.
    height = std::max(room, height);
    return true;
}

// Whether the footnotes a line calls find room at the foot of the page, or of the column, with the
// line placed, which takes room from the body. When they do, the line's footnotes join the list and
// the area grows.
bool footnotes_fit(run_state& s, std::span<pack::knuth::knuth const> line, float line_bottom, bool max_area,
                   std::optional<int> counter_after) {
    auto& info = s.info;
    bool to_page = false;
    bool to_col = false;
    bool keep = false;
    for (auto const& item : line) {
        if (auto const* f = std::get_if<pack::knuth::footnote>(&item)) {
            (to_column(info, *f) ? to_col : to_page) = true;
            keep = keep || f->footnote_style->rare_props->rare_props_vellum_footnote_policy !=
                               css::box::vellum_footnote_policy::auto_;
        }
    }
    to_page = to_page && info.flags.pack_page_stuff;
    auto trial = info;
    take_footnotes(trial, line, counter_after);
    if (to_col && !settle_area(trial, column_footnotes_of(trial.accum), *info.general.column_area,
                               trial.packed_stuff.column_footnotes_height, line_bottom, keep, max_area)) {
        return false;
    }
    if (to_page && !settle_area(trial, footnotes_of(trial.accum), info.general.body_area,
                                trial.packed_stuff.footnotes_height, line_bottom, keep, max_area)) {
        return false;
    }
    info = std::move(trial);
    if (to_page || to_col) {
        s.areas = above_footnotes(info, std::move(s.areas));
    }
    return true;
}

void accept(run_state& s, line_made const& made, bool hyphen_end) {
    s.boxes.emplace_back(*made.made_box);
    s.areas = margin_collapsing::moved_down(std::move(s.areas), made.made_height);
    s.info.flags.max_page_area = false;
    s.open_tags = made.made_unclosed;
    s.placed += 1;
    s.line_number += 1;
    s.consecutive_hyphens = hyphen_end ? s.consecutive_hyphens + 1 : 0;
}

// Moves to the next band below a float, if there is one.
bool next_band(run_state& s, bool& max_area) {
    if (s.areas.available.size() < 2) {
        return false;
    }
    s.areas.available.erase(s.areas.available.begin());
    s.areas.container.top = s.areas.available.front().top;
    // The room below a float is never the last resort.
    s.info.flags.max_page_area = false;
    max_area = false;
    return true;
}

// Places a box that a line gave up as out of the flow. A float goes into the bands at the line's top;
// false when it fits nowhere on the page. An absolutely positioned box is gathered with its static
// position, where the line stands; a fixed one belongs to every page and is placed there.
bool pack_outflow(run_state& s, linebreak::outflow const& out, bool max_area) {
    auto const* ib = inline_block_of(out.outflow_item);
    if (!ib) {
        throw internal_error("pack_outflow: unexpected type.");
    }
    if (!is_float(*ib)) {
        auto const& b = *ib->inline_block_block;
        if (!positioned::is_fixed(*b.block_style)) {
            auto const band = band_of(s.areas);
            s.info.accum.abs_blocks.push_back({b, util::pos::pos{band.left + out.outflow_xpos, band.top}});
        }
        return true;
    }
    // A float to the top or bottom of the page is set aside for the page loop where the line stands.
    // Where page floats can't be placed it floats to the left. With `unless-fit` it stays where it is
    // called, beside the text at the left like an ordinary float, when it fits there.
    auto const& style = *ib->inline_block_style;
    auto const flags = s.info.flags;
    // The calls on the part of the line in front of the float are counted when that line is placed.
    int const counter = s.info.general.footnote_counter;
    std::optional<floats::placed> placed;
    if (page_floats::takes_page_float(s.info, style)) {
        auto const how = page_floats::settle_snap(*page_floats::page_float_of(style), s.areas.container.top,
                                                  s.info.general.body_area);
        if (how.float_unless_fit) {
            placed = floats::place_float(with_state(s.info, out.outflow_page_info), *ib->inline_block_block,
                                         floats::side::left, s.areas.container.top, s.areas, false);
        }
        if (!placed) {
            s.info.accum.page_floats.push_back(page_float{.page_float_body = *ib->inline_block_block,
                                                          .page_float_how = how,
                                                          .page_float_y = s.areas.container.top});
            return true;
        }
    } else {
        page_floats::note_in_flow(s.info.general.run->log, style);
        auto const side = floats::float_side(style, s.info).value_or(floats::side::left);
        // At the line's top, but no higher than the float before it, and below the floats it clears.
        float top = std::min(s.areas.container.top, s.floats_top.value_or(s.areas.container.top));
        if (auto const y = floats::clearance(s.areas, floats::clear_of(style, s.info), top)) {
            top = *y;
        }
        placed = floats::place_float(with_state(s.info, out.outflow_page_info), *ib->inline_block_block, side,
                                     top, s.areas, max_area);
    }
    if (!placed) {
        return false;
    }
    s.boxes.emplace_back(float_box{placed->placed_box});
    s.floats_top = placed->placed_top;
    s.areas = std::move(placed->placed_areas);
    s.info = std::move(placed->placed_info);
    s.info.flags = flags;
    s.info.general.footnote_counter = counter;
    return true;
}

// Places the boxes out of the flow that a line kept with it, at the line's place in `line_areas`:
// absolute boxes, and floats while the flow is only measured, which take no room.
void place_line_outflows(run_state& s, std::vector<linebreak::outflow> const& outs, areas::areas const& line_areas,
                         bool max_area) {
    if (outs.empty()) {
        return;
    }
    auto after = std::move(s.areas);
    s.areas = line_areas;
    for (auto const& out : outs) {
        check(pack_outflow(s, out, max_area), "place_line_outflows");
    }
    s.areas = std::move(after);
}

// The greedy packer: one line at a time, each as wide as its band.
run_state greedy_run(para_ctx const& ctx, run_state s, std::optional<int> max_lines) {
    bool max_area = s.info.flags.max_page_area;
    for (;;) {
        drop_indent(s.rest);
        strip_leading(s.rest);
        if (stream_empty(s.rest)) {
            s.done = true;
            return s;
        }
        if (max_lines && s.placed >= *max_lines) {
            return s;
        }
        line_kind const kind = s.line_number == 1 ? line_kind::first_line : line_kind::other_line;
        if (auto ib = indent_box(ctx.used.used_text_indent, kind)) {
            stream_put_back(s.rest, std::move(*ib));
        }
        bool const hyph_ok =
            linebreak::hyphenate_ok(ctx.style->rare_props->rare_props_hyphenate_lines, s.consecutive_hyphens);
        // Where the line starts, to go back to when it is refused: a copy of the stream costs only
        // the few items in front of its shared list.
        auto line_start = s.rest;
        bool placed = false;
        s.areas = above_footnotes(s.info, std::move(s.areas));
        while (!placed) {
            auto const band = band_of(s.areas);
            linebreak::line_request const req{
                .line_kind = kind,
                .containing_height = ctx.used.used_height,
                .width = areas::width_of(band),
                .container_width = areas::width_of(s.areas.container),
                .hyphenate_ok = hyph_ok,
                .may_give_up = s.areas.available.size() > 1 || !max_area,
            };
            auto res = linebreak::fill_line(ctx.env,
                                            ctx.method == pack_method::best_fit ? linebreak::method::best_fit
                                                                                : linebreak::method::first_fit,
                                            req, state_of(s.info), s.rest);
            if (std::holds_alternative<linebreak::no_room>(res)) {
                // Too narrow beside a float: the line starts again below it, or in the next area.
                if (next_band(s, max_area)) {
                    continue;
                }
                drop_indent(s.rest);
                return s;
            }
            if (auto* out = std::get_if<linebreak::outflow>(&res)) {
                if (!pack_outflow(s, *out, max_area)) {
                    // The float fits nowhere on this page: it goes on first with the rest of the
                    // paragraph, the line it stood in started again there.
                    drop_indent(s.rest);
                    stream_put_back(s.rest, std::move(out->outflow_item));
                    return s;
                }
                line_start = s.rest;
                continue;
            }
            auto& bp = std::get<linebreak::break_point>(res);
            auto const made = make_line(s.info, ctx.style, ctx.first_line_style, s.areas,
                                        {.kind = kind,
                                         .open_tags = s.open_tags,
                                         .brk = bp.break_type == break_type::forced_break
                                                    ? para_halign::line_break::explicit_
                                                    : para_halign::line_break::implicit,
                                         .max_area = max_area,
                                         .style_font_req = ctx.style_font_req},
                                        bp.line);
            if (made.made_empty) {
                take_footnotes(s.info, bp.line, bp.break_state.curr_page_info.footnote_counter);
                place_line_outflows(s, bp.break_state.line_outflows, s.areas, max_area);
                placed = true;
                break;
            }
            if (!made.made_box) {
                // The line goes back; floats placed from it stay placed.
                s.rest = line_start;
                if (next_band(s, max_area)) {
                    continue;
                }
                drop_indent(s.rest);
                return s;
            }
            if (!footnotes_fit(s, bp.line, s.areas.container.top - made.made_height, max_area,
                               bp.break_state.curr_page_info.footnote_counter)) {
                // The line waits for the next page with the footnotes it calls.
                s.rest = line_start;
                drop_indent(s.rest);
                return s;
            }
            auto const line_areas = s.areas;
            accept(s, made, bp.break_type == break_type::hyphen);
            place_line_outflows(s, bp.break_state.line_outflows, line_areas, max_area);
            // Only the first line of an area may exceed it.
            max_area = false;
            placed = true;
        }
    }
}

// Places lines broken already by total fit, one after another, while they fit.
run_state lines_run(para_ctx const& ctx, para_lines const& lines, run_state s, std::optional<int> max_lines) {
    bool max_area = s.info.flags.max_page_area;
    while (s.next_line < lines.size()) {
        if (max_lines && s.placed >= *max_lines) {
            return s;
        }
        auto const& line = lines[s.next_line];
        s.areas = above_footnotes(s.info, std::move(s.areas));
        line_kind const kind = s.line_number == 1 ? line_kind::first_line : line_kind::other_line;
        auto const made =
            make_line(s.info, ctx.style, ctx.first_line_style, s.areas,
                      {.kind = kind,
                       .open_tags = s.open_tags,
                       .brk = line.break_type == break_type::forced_break ? para_halign::line_break::explicit_
                                                                          : para_halign::line_break::implicit,
                       .max_area = max_area,
                       .style_font_req = ctx.style_font_req},
                      line.line_content);
        if (!made.made_empty && !made.made_box) {
            return s;
        }
        // Footnote calls on the line are numbered for this page as the line is placed.
        if (!footnotes_fit(s, line.line_content, s.areas.container.top - made.made_height, max_area, std::nullopt)) {
            return s;
        }
        if (made.made_box) {
            accept(s, made, line.break_type == break_type::hyphen);
            max_area = false;
        }
        s.next_line += 1;
    }
    s.done = true;
    return s;
}

// How many footnotes the page and the column being filled hold.
std::size_t notes_held(run_state const& s) {
    return footnotes_of(s.info.accum).size() + column_footnotes_of(s.info.accum).size();
}

// Orphans and widows: a paragraph split over areas leaves at least `orphans` lines before the split
// and at least `widows` after it, moving lines on (or the whole paragraph) where it must.
template <class Placer>
run_state with_orphans_and_widows(para_ctx const& ctx, run_state const& start, Placer place) {
    int const orphans = std::max(1, ctx.style->rare_props->rare_props_orphans);
    int const widows = std::max(1, ctx.style->rare_props->rare_props_widows);
    bool const must_place = start.info.flags.max_page_area;
    run_state res = place(start, std::nullopt);
    int n = res.placed;
    for (;;) {
        if (n == 0 || res.done) {
            return res;
        }
        if (n < orphans && !must_place) {
            return start;
        }
        if (widows < 2) {
            return res;
        }
        // How many of the remaining lines would a fresh page take? Fewer than `widows`, and this
        // page must give some up.
        run_state trial = res;
        trial.boxes.clear();
        trial.placed = 0;
        auto const& body = start.info.general.body_area;
        areas::area const fresh{.top = body.top,
                                .bottom = body.bottom,
                                .left = start.areas.container.left,
                                .right = start.areas.container.right};
        trial.areas = areas::areas{.container = fresh, .available = {fresh}};
        trial.info.flags.max_page_area = true;
        int const m = place(trial, widows).placed;
        if (m < 1 || m >= widows) {
            return res;
        }
        int const fewer = n - 1;
        if (orphans > fewer || fewer < 1) {
            return must_place ? res : start;
        }
        // A line that calls a footnote keeps its place and its note under it: moved on to spare the
        // paragraph's last lines a page of their own, it would take its note along and leave this page
        // short by all the room the note had.
        auto shorter = place(start, fewer);
        if (notes_held(shorter) < notes_held(res)) {
            return res;
        }
        res = std::move(shorter);
        n = fewer;
    }
}

} // namespace

bool uses_total_fit(css::style::style const& s, areas::areas const& a, std::span<pack::knuth::knuth const> items) {
    auto const ws = s.rare_props->rare_props_white_space;
    if (s.text->text_props_text_align != css::text::text_align::justify) {
        return false;
    }
    if (ws != css::text::white_space::normal && ws != css::text::white_space::nowrap &&
        ws != css::text::white_space::pre_line) {
        return false;
    }
    if (a.available.size() != 1) {
        return false;
    }
    return std::none_of(items.begin(), items.end(), [](pack::knuth::knuth const& item) {
        auto const* ib = inline_block_of(item);
        return ib != nullptr && is_float(*ib);
    });
}

placed_line place_items(std::span<pack::knuth::knuth const> items, float left, float right, float grid_left) {
    placed_line out;
    float natural = 0;
    for (std::size_t i = 0; i < items.size(); ++i) {
        if (is_penalty(items[i]) && i + 1 != items.size()) {
            continue;
        }
        natural += item_width(items[i]);
    }
    float const free_room = std::max(0.0f, (right - left) - natural);
    float x = left;
    out.placed_items.reserve(items.size());
    for (std::size_t i = 0; i < items.size(); ++i) {
        auto const& item = items[i];
        bool const last = i + 1 == items.size();
        if (std::holds_alternative<pack::knuth::footnote>(item) || std::holds_alternative<forced_break>(item) ||
            std::holds_alternative<prohibited_break>(item) || std::holds_alternative<script_func_head>(item) ||
            std::holds_alternative<script_func_tail>(item)) {
            continue;
        }
        if (auto const* p = std::get_if<knuth_penalty>(&item)) {
            if (!last || !std::holds_alternative<soft>(*p)) {
                continue;
            }
        }
        if (auto const* g = std::get_if<knuth_glue>(&item); g != nullptr && !std::holds_alternative<pack::knuth::glue>(*g)) {
            continue;
        }
        if (auto const* l = std::get_if<knuth_leader>(&item)) {
            float w = 0;
            float at = x;
            if (!out.placed_leader) {
                // The leader's pattern starts on a grid from the body's left edge, so that the dots
                // of lines one under the other line up.
                if (l->single_leader_width > 0) {
                    at = std::ceil((x - grid_left) / l->single_leader_width) * l->single_leader_width + grid_left;
                }
                w = std::max(0.0f, l->leader_width + free_room - (at - x));
                out.placed_leader = true;
            }
            out.placed_items.push_back({.placed = &item, .placed_x = at, .placed_w = w});
            x = at + w;
            continue;
        }
        float const w = item_width(item);
        out.placed_items.push_back({.placed = &item, .placed_x = x, .placed_w = w});
        x += w;
    }
    return out;
}

spanboxes_res to_spanboxes(fonts::fonts const& db, line_kind kind, std::span<placed_item const> items) {
    struct frame {
        std::optional<pack::knuth::open> frame_open;
        float frame_x = 0;
        std::vector<spanbox> frame_content;
    };
    std::vector<frame> stack(1);
    float line_end = items.empty() ? 0 : items.front().placed_x;
    auto close_frame = [&](float end) {
        frame f = std::move(stack.back());
        stack.pop_back();
        auto const& o = *f.frame_open;
        auto const s = kind == line_kind::first_line && o.box_first_line_style ? *o.box_first_line_style : o.box_style;
        auto const req = spans_to_knuth::font_req_of(db, *s);
        stack.back().frame_content.emplace_back(share(nested_spanbox{
            .spanbox_x = f.frame_x,
            .spanbox_w = end - f.frame_x,
            .spanbox_content = std::move(f.frame_content),
            .spanbox_style = s,
            .spanbox_used_style = *o.box_used_style,
            .spanbox_font_metrics = fonts::primary_font_metrics(db, *req, s->font_size),
            .spanbox_type = *o.box_element_type,
            .spanbox_level = o.box_dir,
        }));
    };
    auto chars = [&](placed_item const& p, fonts::shared_graphemes g, charsbox_type type, fonts::direction dir,
                     css::box::writing_mode wm) {
        stack.back().frame_content.emplace_back(charsbox{.charsbox_x = p.placed_x,
                                                         .charsbox_w = p.placed_w,
                                                         .charsbox_content = std::move(g),
                                                         .charsbox_type = type,
                                                         .charsbox_direction = dir,
                                                         .charsbox_writing_mode = wm});
    };
    for (auto const& p : items) {
        line_end = std::max(line_end, p.placed_x + p.placed_w);
        std::visit(
            overloaded{
                [&](knuth_box const& b) {
                    std::visit(overloaded{
                                   [&](word const& w) {
                                       chars(p, w.word_head.head_graphemes, normal{}, w.word_direction, w.word_writing_mode);
                                   },
                                   [&](non_word const& w) {
                                       chars(p, w.non_word_head.head_graphemes, normal{}, w.non_word_direction,
                                             w.non_word_writing_mode);
                                   },
                                   [&](grapheme_seq const& g) {
                                       chars(p, g.seq_head.head_graphemes, normal{}, g.seq_direction, g.seq_writing_mode);
                                   },
                                   [&](glyph_index const& g) {
                                       chars(p, g.glyph_head.head_graphemes, normal{}, g.glyph_direction,
                                             g.glyph_writing_mode);
                                   },
                                   [&](counter const& c) {
                                       chars(p, c.counter_head.head_graphemes, normal{}, c.counter_direction,
                                             c.counter_writing_mode);
                                   },
                                   [&](pack::knuth::pre_space const& s) {
                                       chars(p, s.pre_space_head.head_graphemes, pack::pre_space{},
                                             fonts::direction::ltr, css::box::writing_mode::horizontal);
                                   },
                                   [&](pack::knuth::charlike_space const& s) {
                                       chars(p, s.charlike_head.head_graphemes, pack::charlike_space{},
                                             fonts::direction::ltr, css::box::writing_mode::horizontal);
                                   },
                                   [&](pack::knuth::newline const&) {
                                       chars(p, {}, pack::newline{}, fonts::direction::ltr,
                                             css::box::writing_mode::horizontal);
                                   },
                                   [&](pack::knuth::open const& o) {
                                       stack.push_back(frame{.frame_open = o, .frame_x = p.placed_x});
                                   },
                                   [&](pack::knuth::close const&) {
                                       // A close whose open lay on an earlier line of another fragment
                                       // has no frame: it only ends the line's width.
                                       if (stack.size() > 1) {
                                           close_frame(p.placed_x + p.placed_w);
                                       }
                                   },
                                   [&](pack::knuth::inline_block const& ib) {
                                       check(ib.inline_block_box.has_value(), "to_spanboxes: inline_block unpacked.");
                                       // Packed with its left margin edge at 0.
                                       auto bx = **ib.inline_block_box;
                                       block::shift_box(bx, p.placed_x, 0);
                                       stack.back().frame_content.emplace_back(inline_box{share(std::move(bx))});
                                   },
                                   [&](pack::knuth::indent const&) {
                                       chars(p, {}, pack::indent{}, fonts::direction::ltr,
                                             css::box::writing_mode::horizontal);
                                   },
                               },
                               b);
                },
                [&](knuth_leader const& l) {
                    chars(p, l.single_leader_content, pack::leader{.leader_width = l.single_leader_width},
                          l.leader_direction, l.leader_writing_mode);
                },
                [&](knuth_penalty const& pen) {
                    if (auto const* s = std::get_if<soft>(&pen)) {
                        chars(p, s->penalty_content, normal{}, fonts::direction::ltr, css::box::writing_mode::horizontal);
                    }
                },
                [&](knuth_glue const& g) {
                    if (auto const* gl = std::get_if<pack::knuth::glue>(&g)) {
                        chars(p, gl->glue_content,
                              pack::glue{.glue_stretchability = gl->stretchability,
                                         .glue_shrinkability = gl->shrinkability},
                              fonts::direction::ltr, css::box::writing_mode::horizontal);
                    }
                },
                [](forced_break const&) {},
                [](prohibited_break const&) {},
                [](script_func_head const&) {},
                [](script_func_tail const&) {},
                [](pack::knuth::footnote const&) {},
            },
            *p.placed);
    }
    // Inline boxes that go on past the line end with it here and open again on the next line.
    std::vector<pack::knuth::open> unclosed;
    while (stack.size() > 1) {
        unclosed.insert(unclosed.begin(), *stack.back().frame_open);
        close_frame(line_end);
    }
    return {.res_boxes = std::move(stack.front().frame_content), .res_unclosed = std::move(unclosed)};
}

line_made make_line(page_info const& info,
                    pack::knuth::style_ref const& style,
                    std::optional<pack::knuth::style_ref> const& first_line_style,
                    areas::areas const& areas,
                    line_request const& request,
                    std::span<pack::knuth::knuth const> line) {
    auto const band = band_of(areas);
    // The inline boxes left open by the line before open this one; most lines have none, and their
    // items are placed where they lie.
    std::vector<pack::knuth::knuth> items;
    if (!request.open_tags.empty()) {
        items.reserve(request.open_tags.size() + line.size());
        for (auto const& o : request.open_tags) {
            items.emplace_back(knuth_box{o});
        }
        items.insert(items.end(), line.begin(), line.end());
    }
    auto placed = place_items(request.open_tags.empty() ? line : std::span<pack::knuth::knuth const>(items),
                              band.left, band.right, info.general.body_area.left);
    bool const empty = std::all_of(placed.placed_items.begin(), placed.placed_items.end(),
                                   [](placed_item const& p) { return is_indent(*p.placed); });
    if (empty) {
        return {.made_unclosed = request.open_tags, .made_empty = true};
    }
    std::optional<float> indent_width;
    for (auto const& p : placed.placed_items) {
        if (is_indent(*p.placed)) {
            indent_width = p.placed_w;
        }
    }
    auto const& s = line_style(style, first_line_style, request.kind);
    auto const h = para_halign::halign(placed.placed_items, band.left, band.right, *style, request.brk,
                                       info.general.pdf_page_num, placed.placed_leader);
    auto spans = to_spanboxes(*info.general.run->fonts, request.kind, placed.placed_items);
    float line_x = h.line_x;
    if (style->rare_props->rare_props_direction == css::box::direction::rtl) {
        for (auto& b : spans.res_boxes) {
            mirror(b, band.left, band.right);
        }
        line_x = band.left + band.right - h.line_x - h.line_w;
    }
    for (auto& b : spans.res_boxes) {
        reorder_levels(b, style->rare_props->rare_props_direction == css::box::direction::rtl);
    }
    std::vector<pack::knuth::open> unclosed;
    for (auto const& o : spans.res_unclosed) {
        unclosed.push_back(continued(o));
    }
    auto const req = s == style && request.style_font_req
                         ? request.style_font_req
                         : spans_to_knuth::font_req_of(*info.general.run->fonts, *s);
    std::vector<fonts::grapheme> ellipsis;
    if (s->rare_box->text_overflow == css::box::text_overflow::ellipsis) {
        ellipsis = fonts::text_to_graphemes(*info.general.run->fonts, *req, fonts::direction::ltr, U"\u2026");
    }
    float line_w = h.line_w;
    bool const ltr = style->rare_props->rare_props_direction != css::box::direction::rtl;
    if (!ellipsis.empty() && ltr && h.line_x + h.line_w > band.right + tolerance) {
        // The line runs past its box: it is cut so that the ellipsis ends at the box's edge.
        float const ellipsis_w = fonts::graphemes_width(false, false, ellipsis, 0, s->font_size);
        float end = line_x;
        cut_line_at(spans.res_boxes, *s, band.right - ellipsis_w, end, false);
        line_w = end - line_x;
    } else if (!ellipsis.empty() && h.line_x + h.line_w > band.right + tolerance) {
        // A right-to-left line runs past the left edge: it is cut there, mirrored so that the cut of a
        // left-to-right line serves, and the ellipsis stands at the left edge, in the line itself.
        float const ellipsis_w = fonts::graphemes_width(false, false, ellipsis, 0, s->font_size);
        float const right_edge = line_x + h.line_w;
        for (auto& b : spans.res_boxes) {
            mirror(b, band.left, band.right);
        }
        float end = band.left + band.right - right_edge;
        cut_line_at(spans.res_boxes, *s, band.right - ellipsis_w, end, true);
        for (auto& b : spans.res_boxes) {
            mirror(b, band.left, band.right);
        }
        line_x = band.left + band.right - end - ellipsis_w;
        line_w = right_edge - line_x;
        spans.res_boxes.insert(spans.res_boxes.begin(),
                               charsbox{.charsbox_x = line_x,
                                        .charsbox_w = ellipsis_w,
                                        .charsbox_content = fonts::shared_graphemes(std::move(ellipsis)),
                                        .charsbox_direction = fonts::direction::rtl});
        ellipsis.clear();
    } else {
        // Only a line that was cut shows the ellipsis.
        ellipsis.clear();
    }
    auto const metrics = fonts::primary_font_metrics(*info.general.run->fonts, *req, s->font_size);
    auto pre = para_valign::valign(*s, metrics, std::move(spans.res_boxes), band.top);
    if (pre.line_height > areas::height_of(band) + tolerance && !request.max_area) {
        return {.made_unclosed = request.open_tags, .made_height = pre.line_height};
    }
    auto boxes = std::move(pre.line_boxes);
    if (request.kind == line_kind::first_line && first_line_style) {
        // The ::first-line box: the line's content inside one span of the first-line style, so that
        // its colour, decoration and background reach the text the paragraph itself holds.
        auto const fl_req = spans_to_knuth::font_req_of(*info.general.run->fonts, **first_line_style);
        auto const fl_metrics =
            fonts::primary_font_metrics(*info.general.run->fonts, *fl_req, (*first_line_style)->font_size);
        std::vector<spanbox> wrapped;
        wrapped.emplace_back(share(nested_spanbox{.spanbox_x = line_x,
                                                  .spanbox_y = fl_metrics.up,
                                                  .spanbox_w = line_w,
                                                  .spanbox_h = fl_metrics.up + fl_metrics.down,
                                                  .spanbox_content = std::move(boxes),
                                                  .spanbox_style = *first_line_style,
                                                  .spanbox_font_metrics = fl_metrics}));
        boxes = std::move(wrapped);
    }
    return {.made_box = linebox{.linebox_x = line_x,
                                .linebox_w = line_w,
                                .linebox_base = pre.line_base,
                                .linebox_indent = indent_width,
                                .linebox_content = std::move(boxes),
                                .linebox_font_metrics = metrics,
                                .linebox_ellipsis = std::move(ellipsis)},
            .made_unclosed = std::move(unclosed),
            .made_height = pre.line_height};
}

para_res pack_para(page_info info,
                   pack::knuth::style_ref const& style,
                   css::used_style::used_style const& used,
                   areas::areas areas,
                   prepack::para const& para) {
    float const width = areas::width_of(areas.container);
    auto const ws = style->rare_props->rare_props_white_space;
    bool const wrapping_justify = style->text->text_props_text_align == css::text::text_align::justify &&
                                  (ws == css::text::white_space::normal || ws == css::text::white_space::nowrap ||
                                   ws == css::text::white_space::pre_line);
    para_ctx ctx{
        .style = style,
        .used = used,
        .method = wrapping_justify ? pack_method::best_fit : pack_method::first_fit,
        .env = env_of(info),
        .style_font_req = spans_to_knuth::font_req_of(*info.general.run->fonts, *style),
    };
    if (para.first_line_style) {
        if (auto fl =
                spans_to_knuth::first_line_form_of(*info.general.run->fonts, style, *para.first_line_style)) {
            ctx.first_line_style = fl->first_line_style;
        }
    }

    run_state start{.info = info, .areas = areas, .line_number = para.current_line_number + 1};
    std::vector<pack::knuth::knuth> items;
    // A paragraph continued from an earlier area goes on from its stream, shared with the earlier
    // fragment: nothing of the rest is copied.
    std::optional<item_stream> stream;
    bool may_hold_inline_blocks = true;
    std::optional<para_lines> lines;
    std::visit(overloaded{
                   [&](prepack::para_initial const&) {
                       items = spans_to_knuth::para_to_knuths(info, style, para, width, ctx.style_font_req)
                                   .res_items;
                       may_hold_inline_blocks = std::any_of(items.begin(), items.end(), [](pack::knuth::knuth const& item) {
                           return inline_block_of(item) != nullptr;
                       });
                   },
                   [&](ref<prepack::para_knuths> const& k) {
                       stream = k->knuth_para1;
                       start.open_tags = k->unclosed_open_tags1;
                   },
                   [&](ref<prepack::para_knuth_lines> const& k) {
                       start.open_tags = k->unclosed_open_tags2;
                       if (areas.available.size() == 1 &&
                           std::abs(areas::width_of(areas.available.front()) - k->area_width) <= tolerance) {
                           items = k->knuth_para2;
                           lines = k->remain_lines;
                           return;
                       }
                       // Another width: the lines not placed yet are broken again from the first one's start.
                       check(!k->remain_lines.empty() &&
                                 k->remain_lines.front().start_index < static_cast<int>(k->knuth_para2.size()),
                             "pack_para");
                       items.assign(k->knuth_para2.begin() + k->remain_lines.front().start_index, k->knuth_para2.end());
                   },
               },
               para.para_content);

    // Inline blocks are packed as the line breakers meet them, in a container of the paragraph's width.
    if (may_hold_inline_blocks) {
        ctx.env.env_pack_inline_block = [info, width](pack::knuth::inline_block const& ib, std::optional<float>) {
            // A box out of the flow is packed where it is placed, not here: the line breaker only asks
            // whether a float still fits beside the line, and an absolute box takes no room in it.
            if (!pack::knuth::is_in_flow(ib)) {
                float const w = pack::knuth::is_float(ib) ? block::float_width(info, *ib.inline_block_block, width) : 0;
                return eval_knuth::packed_inline_block{.packed_width = w, .packed_box = share(pack::box{})};
            }
            auto p = block::pack_inline_block(info, *ib.inline_block_block, width);
            return eval_knuth::packed_inline_block{.packed_width = p.inline_width, .packed_box = std::move(p.inline_box)};
        };
    }

    if (stream && !lines && uses_total_fit(*style, areas, {})) {
        // Justified text is broken as a whole: the rest is taken out of the stream.
        items = stream_items(*stream);
        stream.reset();
    }
    if (!lines && !stream && uses_total_fit(*style, areas, items)) {
        auto const limit = std::get_if<int>(&style->rare_props->rare_props_hyphenate_lines);
        auto br = total_fit::break_lines(ctx.env,
                                         total_fit::break_params{
                                             .containing_height = used.used_height,
                                             .hyphenate_lines = limit ? std::optional<int>(*limit) : std::nullopt,
                                             .consecutive_hyphens = 0,
                                             .used_indent = used.used_text_indent,
                                             .start_line_number = start.line_number,
                                             .width = width,
                                             .first_line_forms = para.first_line_style.has_value(),
                                         },
                                         state_of(info), std::move(items));
        items = std::move(br.res_items);
        lines = std::move(br.res_lines);
    }

    // Made in one go: a default page state allocates the shared parts of a fresh run.
    run_state res = [&] {
        if (lines) {
            auto const& ls = *lines;
            return with_orphans_and_widows(ctx, start, [&](run_state s, std::optional<int> max) {
                return lines_run(ctx, ls, std::move(s), max);
            });
        }
        start.rest = stream ? std::move(*stream) : stream_of(std::move(items));
        return with_orphans_and_widows(ctx, start, [&](run_state s, std::optional<int> max) {
            return greedy_run(ctx, std::move(s), max);
        });
    }();

    if (res.placed == 0 && !res.done) {
        return {.res_info = std::move(info), .res_areas = std::move(areas), .res_remaining = para};
    }
    para_res out{.res_info = std::move(res.info), .res_areas = std::move(res.areas), .res_boxes = std::move(res.boxes)};
    if (!res.done) {
        // The spans are needed only to build the items, which the rest carries: they are not copied
        // on to every page of a long paragraph.
        prepack::para rest{.para_text = para.para_text,
                           .first_line_style = para.first_line_style,
                           .current_line_number = para.current_line_number + res.placed,
                           .pass_in = para.pass_in};
        if (lines) {
            rest.para_content = share(prepack::para_knuth_lines{
                .area_width = width,
                .unclosed_open_tags2 = res.open_tags,
                .knuth_para2 = std::move(items),
                .remain_lines = para_lines(lines->begin() + static_cast<std::ptrdiff_t>(res.next_line), lines->end()),
            });
        } else {
            rest.para_content =
                share(prepack::para_knuths{.unclosed_open_tags1 = res.open_tags, .knuth_para1 = std::move(res.rest)});
        }
        out.res_remaining = std::move(rest);
    }
    return out;
}

} // namespace vellum::pack::para_main
