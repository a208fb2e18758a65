#include "pack/para_halign.hpp"

#include <algorithm>

namespace vellum::pack::para_halign {

using namespace knuth;

namespace {

// Whether an item shows nothing at a line's edge and goes: a space, a line end, an empty text run.
bool droppable(pack::knuth::knuth const& item) {
    if (std::holds_alternative<knuth_glue>(item)) {
        return true;
    }
    auto const* b = std::get_if<knuth_box>(&item);
    if (b == nullptr) {
        return false;
    }
    if (std::holds_alternative<newline>(*b)) {
        return true;
    }
    if (std::holds_alternative<word>(*b) || std::holds_alternative<non_word>(*b)) {
        auto const* h = head_of(*b);
        return h->head_graphemes.empty();
    }
    return false;
}

// Items that an edge scan passes over: the edges of inline boxes and the indent.
bool passed_over(pack::knuth::knuth const& item) {
    auto const* b = std::get_if<knuth_box>(&item);
    return b != nullptr && (std::holds_alternative<open>(*b) || std::holds_alternative<close>(*b) ||
                            std::holds_alternative<indent>(*b));
}

// Drops the droppable items from one end of the line, moving what follows them back by their width.
void drop_edges(std::vector<placed_item>& items) {
    std::vector<bool> drop(items.size(), false);
    for (std::size_t i = 0; i < items.size(); ++i) {
        if (passed_over(*items[i].placed)) {
            continue;
        }
        if (!droppable(*items[i].placed)) {
            break;
        }
        drop[i] = true;
    }
    for (std::size_t i = items.size(); i-- > 0;) {
        if (passed_over(*items[i].placed)) {
            continue;
        }
        if (!droppable(*items[i].placed)) {
            break;
        }
        drop[i] = true;
    }
    if (std::find(drop.begin(), drop.end(), true) == drop.end()) {
        return;
    }
    // The kept items close up in place.
    std::size_t kept = 0;
    float shift = 0;
    for (std::size_t i = 0; i < items.size(); ++i) {
        if (drop[i]) {
            shift += items[i].placed_w;
            continue;
        }
        items[i].placed_x -= shift;
        if (kept != i) {
            items[kept] = std::move(items[i]);
        }
        ++kept;
    }
    items.erase(items.begin() + static_cast<std::ptrdiff_t>(kept), items.end());
}

used_text_align by_side(css::box::direction dir, bool start) {
    bool const left = (dir == css::box::direction::ltr) == start;
    return left ? used_text_align::left : used_text_align::right;
}

} // namespace

used_text_align used_align(css::style::style const& para_style, line_break brk, int pdf_page_num) {
    auto align = para_style.text->text_props_text_align;
    if (brk == line_break::explicit_ && align == css::text::text_align::justify) {
        align = para_style.text->text_props_text_align_last;
    }
    auto const dir = para_style.rare_props->rare_props_direction;
    switch (align) {
    case css::text::text_align::auto_:
    case css::text::text_align::start:
        return by_side(dir, true);
    case css::text::text_align::end:
        return by_side(dir, false);
    case css::text::text_align::left:
        return used_text_align::left;
    case css::text::text_align::right:
        return used_text_align::right;
    case css::text::text_align::center:
        return used_text_align::center;
    case css::text::text_align::justify:
        return used_text_align::justify;
    case css::text::text_align::inside:
        // Odd pages are right-hand pages: their inside is the left.
        return pdf_page_num % 2 == 1 ? used_text_align::left : used_text_align::right;
    case css::text::text_align::outside:
        return pdf_page_num % 2 == 1 ? used_text_align::right : used_text_align::left;
    }
    return used_text_align::left;
}

halign_res halign(std::vector<placed_item>& items,
                  float left,
                  float right,
                  css::style::style const& para_style,
                  line_break brk,
                  int pdf_page_num,
                  bool has_leader) {
    drop_edges(items);
    float end = left;
    float stretch = 0;
    float shrink = 0;
    for (auto const& it : items) {
        end = std::max(end, it.placed_x + it.placed_w);
        if (auto const* g = std::get_if<knuth_glue>(it.placed);
            g != nullptr && std::holds_alternative<glue>(*g)) {
            stretch += std::get<glue>(*g).stretchability;
            shrink += std::get<glue>(*g).shrinkability;
        }
    }
    float const natural = end - left;
    float const available = right - left;
    float const extra = available - natural;
    bool const overfull = natural > available + tolerance;
    // A right-to-left line is placed from its start edge as if it ran left to right and mirrored
    // between the band's edges afterwards: its visual left and right trade places here, and a line
    // that only starts at its start edge starts at `left`.
    bool const rtl = para_style.rare_props->rare_props_direction == css::box::direction::rtl;
    auto align = used_align(para_style, brk, pdf_page_num);
    if (rtl && align == used_text_align::left) {
        align = used_text_align::right;
    } else if (rtl && align == used_text_align::right) {
        align = used_text_align::left;
    }
    bool const justify_text = para_style.text->text_props_text_align == css::text::text_align::justify;

    float start = left;
    std::optional<float> ratio;
    if (has_leader) {
        start = left;
    } else if (overfull) {
        // A line too long for its width: a justified line shrinks what it can, whatever the last-line
        // alignment says; any other runs over on its end side.
        if (justify_text && shrink > 0) {
            ratio = extra / shrink;
        }
    } else {
        switch (align) {
        case used_text_align::left:
            break;
        case used_text_align::right:
            start = right - natural;
            break;
        case used_text_align::center:
            start = left + extra * 0.5f;
            break;
        case used_text_align::justify:
            if (stretch > 0) {
                ratio = extra / stretch;
            }
            break;
        }
    }

    float shift = start - left;
    for (auto& it : items) {
        it.placed_x += shift;
        if (!ratio) {
            continue;
        }
        if (auto const* g = std::get_if<knuth_glue>(it.placed);
            g != nullptr && std::holds_alternative<glue>(*g)) {
            auto const& gl = std::get<glue>(*g);
            float const dw = *ratio > 0 ? *ratio * gl.stretchability : *ratio * gl.shrinkability;
            it.placed_w += dw;
            shift += dw;
        }
    }
    bool const justified = ratio.has_value();
    return {.line_x = start, .line_w = justified ? available : natural, .line_ratio = ratio};
}

} // namespace vellum::pack::para_halign
