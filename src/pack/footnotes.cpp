#include "pack/footnotes.hpp"

#include "css/page.hpp"
#include "css/used_style.hpp"
#include "pack/blocks.hpp"
#include "pack/margin_collapsing.hpp"
#include "prepack/counter_style.hpp"

#include <limits>

namespace vellum::pack::footnotes {

namespace {

bool started(prepack::block const& b) {
    return std::holds_alternative<prepack::type_remaining>(b.block_type) ||
           std::holds_alternative<prepack::type_overflowing>(b.block_type);
}

// The words of spans copied into `to`, their ranges pointing there: a run of inline footnotes is one
// paragraph with a text of its own, which holds its markers' numbers too.
void rebase(std::vector<prepack::span>& spans, prepack::para_text const& from, textbuf::textbuf& to) {
    for (auto& sp : spans) {
        if (auto* t = std::get_if<prepack::span_text>(&sp)) {
            t->text = prepack::append_text(to, prepack::text_of(from, t->text));
        } else if (auto* h = std::get_if<prepack::span_text_with_hyphen>(&sp)) {
            h->text = prepack::append_text(to, prepack::text_of(from, h->text));
        } else if (auto* f = std::get_if<prepack::span_first_letter>(&sp)) {
            f->first_letter_text = prepack::append_text(to, prepack::text_of(from, f->first_letter_text));
        } else if (auto* n = std::get_if<prepack::span_nested>(&sp)) {
            rebase(n->nested->span_content, from, to);
        }
    }
}

// The footnote counter in an inline footnote's marker written out as its number: the notes of one
// run share a paragraph, and each marker shows its own note's number.
void number_markers(std::vector<prepack::span>& spans, int number, textbuf::textbuf& text) {
    for (auto& sp : spans) {
        if (auto* n = std::get_if<prepack::span_nested>(&sp)) {
            number_markers(n->nested->span_content, number, text);
        } else if (auto* g = std::get_if<prepack::span_gen_content>(&sp)) {
            auto const* c = std::get_if<prepack::gen_counter>(&*g->gen);
            auto const* f = c ? std::get_if<prepack::footnote_counter>(&c->counter) : nullptr;
            if (f) {
                auto const digits = prepack::counter_style::format_counter(number, f->counter_style);
                sp = prepack::span_text{prepack::append_text(text, digits)};
            }
        }
    }
}

// One piece of the footnote area: a footnote's body, or a run of inline footnotes set together in
// one paragraph, with the footnotes it holds.
struct piece {
    page_footnote piece_note;
    std::vector<page_footnote> piece_notes;
};

// An inline footnote not yet started: its body is still the paragraph of its spans.
bool runs_on(page_footnote const& n) {
    auto const* s = n.footnote_style.get();
    auto const* f = s ? std::get_if<css::box::float_footnote>(&s->float_) : nullptr;
    auto const* d = s ? std::get_if<css::box::display_footnote>(&s->bit_props.bit_props_display) : nullptr;
    bool const is_inline = d ? d->display_is_inline : f && f->float_is_inline;
    return is_inline && !started(*n.footnote_body) &&
           std::holds_alternative<prepack::bcontent_para>(n.footnote_body->block_content);
}

// The footnotes as pieces: inline footnotes next to each other run together, an em space and a
// word space between one and the next.
std::vector<piece> pieces_of(std::span<page_footnote const> list) {
    std::vector<piece> out;
    for (std::size_t i = 0; i < list.size();) {
        if (!runs_on(list[i])) {
            out.push_back({.piece_note = list[i], .piece_notes = {list[i]}});
            ++i;
            continue;
        }
        std::vector<prepack::span> spans;
        std::vector<page_footnote> notes;
        textbuf::textbuf text;
        for (; i < list.size() && runs_on(list[i]); ++i) {
            auto const& n = list[i];
            auto const& body = std::get<prepack::bcontent_para>(n.footnote_body->block_content).para;
            auto more = body.para_spans;
            rebase(more, body.para_text, text);
            number_markers(more, n.footnote_number, text);
            if (!spans.empty()) {
                spans.push_back(prepack::span_text{prepack::append_text(text, U"\u2003")});
                spans.push_back(prepack::span_sep{prepack::sep_space{}});
            }
            // Each note keeps its own style: its text goes in a span of it.
            spans.push_back(prepack::span_nested{
                prepack::nested_span{.span_content = std::move(more), .span_style = n.footnote_style}});
            notes.push_back(n);
        }
        auto first = notes.front();
        first.footnote_body = share(prepack::block{
            .block_content = prepack::bcontent_para{prepack::para{.para_spans = std::move(spans),
                                                                  .para_text = share(std::move(text))}},
            .block_style = first.footnote_style});
        out.push_back({.piece_note = std::move(first), .piece_notes = std::move(notes)});
    }
    return out;
}

} // namespace

frame frame_of(css::used_style::used_style const& u) {
    frame f;
    float margin_left = 0;
    float margin_right = 0;
    if (auto const* m = std::get_if<css::used_style::used_margins>(&u.used_margins)) {
        f.margin_top = m->margin_top.value_or(0);
        f.margin_bottom = m->margin_bottom.value_or(0);
        margin_left = m->margin_left.value_or(0);
        margin_right = m->margin_right.value_or(0);
    }
    auto const& b = u.used_borders;
    f.inner_top = b.borders_top.border_width + u.used_padding_top;
    f.inner_bottom = b.borders_bottom.border_width + u.used_padding_bottom;
    f.left = margin_left + b.borders_left.border_width + u.used_padding_left;
    f.right = margin_right + b.borders_right.border_width + u.used_padding_right;
    return f;
}

area_res pack_area(page_info const& info,
                   std::span<page_footnote const> list,
                   areas::area const& body,
                   float max_height,
                   bool must_place) {
    area_res out;
    if (list.empty()) {
        return out;
    }
    check(info.general.page_style != nullptr, "footnotes: page style expected.");
    auto const style = share(css::page::region_style(*info.general.page_style, css::page_rule::region::footnotes));
    float const width = areas::width_of(body);
    auto const used = css::used_style::used_style_of(*style, width, std::nullopt);
    auto const f = frame_of(used);
    // The room is the height measured for the same footnotes before: a hair more keeps rounding from
    // refusing their last line.
    float const top = body.bottom + max_height + knuth::tolerance - f.margin_top - f.inner_top;
    float const bottom = body.bottom + f.margin_bottom + f.inner_bottom;
    areas::area const content{.top = top, .bottom = std::min(bottom, top), .left = body.left + f.left,
                              .right = body.right - f.right};
    areas::areas room{.container = content, .available = {content}};

    // Each body is packed as its own block, with the number of its call for its marker; footnotes
    // called inside a footnote are not gathered again.
    page_info fi = info;
    fi.accum.page_footnotes = nullptr;
    fi.accum.abs_blocks.clear();
    std::vector<ref<box>> boxes;
    auto const pieces = pieces_of(list);
    std::size_t i = 0;
    for (; i < pieces.size(); ++i) {
        auto const& note = pieces[i].piece_note;
        fi.general.footnote_counter = note.footnote_number;
        fi.flags = flags{.max_page_area = must_place && boxes.empty()};
        auto r = blocks::pack_blocks(fi, prepack::block_list(std::vector<prepack::block>{*note.footnote_body}),
                                     margin_collapsing::gap{margin_collapsing::margin_eater{}}, room);
        auto* p = std::get_if<blocks::packed_main>(&r.res);
        // Absolutely positioned boxes in a footnote that no positioned box of it contains are the
        // page's: they go with their static positions, moved with the area below.
        if (p != nullptr && !p->bs_packed_boxes.empty()) {
            auto& met = r.out_info.accum.abs_blocks;
            std::move(met.begin(), met.end(), std::back_inserter(out.area_absolutes));
        }
        if (p == nullptr || p->bs_packed_boxes.empty()) {
            break;
        }
        std::move(p->bs_packed_boxes.begin(), p->bs_packed_boxes.end(), std::back_inserter(boxes));
        room = std::move(r.out_areas);
        if (!p->bs_remain_portion.empty()) {
            out.area_leftover.push_back(page_footnote{.footnote_body = share(p->bs_remain_portion.front()),
                                                      .footnote_style = note.footnote_style,
                                                      .footnote_number = note.footnote_number});
            ++i;
            break;
        }
    }
    for (std::size_t k = i; k < pieces.size(); ++k) {
        for (auto const& n : pieces[k].piece_notes) {
            out.area_unstarted = out.area_unstarted || !started(*n.footnote_body);
            out.area_leftover.push_back(n);
        }
    }
    if (boxes.empty()) {
        return out;
    }

    // The area stands on the body's bottom, as tall as what went in.
    float const content_h = top - room.container.top;
    float const border_h = f.inner_top + content_h + f.inner_bottom;
    float const box_top = body.bottom + f.margin_bottom + border_h;
    float const dy = box_top - f.inner_top - top;
    for (auto& b : boxes) {
        auto moved = *b;
        block::shift_box(moved, 0, dy);
        b = share(std::move(moved));
    }
    for (auto& a : out.area_absolutes) {
        a.second.y += dy;
    }
    float const margin_left = f.left - used.used_borders.borders_left.border_width - used.used_padding_left;
    float const margin_right = f.right - used.used_borders.borders_right.border_width - used.used_padding_right;
    out.area_height = f.margin_top + border_h + f.margin_bottom;
    out.area_box = share(box{
        .box_x = body.left + margin_left,
        .box_y = box_top,
        .box_w = width - margin_left - margin_right,
        .box_h = border_h,
        .box_content = pack::boxes{std::move(boxes)},
        .box_style = style,
        .box_used_style = used,
    });
    return out;
}

float height_needed(page_info const& info, std::span<page_footnote const> list, areas::area const& body) {
    if (list.empty()) {
        return 0;
    }
    auto const r = pack_area(info, list, body, areas::height_of(body), false);
    return r.area_leftover.empty() ? r.area_height : std::numeric_limits<float>::infinity();
}

} // namespace vellum::pack::footnotes
