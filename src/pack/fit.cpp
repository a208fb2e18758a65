#include "pack/fit.hpp"

#include "css/used_style.hpp"
#include "pack/block.hpp"
#include "pack/floats.hpp"
#include "pack/positioned.hpp"
#include "util/ref.hpp"

#include <algorithm>
#include <tuple>
#include <unordered_map>

namespace vellum::pack::fit {

namespace {

// Far wider than any page: content packed this wide breaks only where it must.
constexpr float far = 1000000.0f;

// A block's content is known by the shared list of its child blocks, or by the element it shows;
// a block of neither is known by its address. The style tells apart the boxes of one element.
struct memo_key {
    void const* key_identity = nullptr;
    std::size_t key_from = 0;
    void const* key_style = nullptr;
    bool operator==(memo_key const&) const = default;
};

struct memo_key_hash {
    std::size_t operator()(memo_key const& k) const {
        return std::hash<void const*>{}(k.key_identity) ^ (k.key_from * 0x9e3779b97f4a7c15ull) ^
               (std::hash<void const*>{}(k.key_style) << 1);
    }
};

memo_key key_of(prepack::block const& b) {
    memo_key k{.key_identity = &b, .key_style = b.block_style.get()};
    if (auto const* bs = std::get_if<prepack::bcontent_blocks>(&b.block_content)) {
        std::tie(k.key_identity, k.key_from) = bs->blocks.shared_identity();
    } else if (auto const* o = std::get_if<prepack::type_original>(&b.block_type); o && o->stuff) {
        k.key_identity = o->stuff.get();
    }
    return k;
}

// A measured block is kept with its widths: the copy holds its shared lists alive, so that their
// addresses can't come back for other blocks while the memo lives.
struct memo_entry {
    prepack::block entry_block;
    content_widths entry_widths;
};

struct measure_memo {
    int depth = 0;
    std::unordered_map<memo_key, memo_entry, memo_key_hash> entries;
};

thread_local measure_memo memo;

// How many measurings are under way, one inside another.
thread_local int measuring_depth = 0;

struct measuring_scope {
    measuring_scope() { ++measuring_depth; }
    ~measuring_scope() { --measuring_depth; }
    measuring_scope(measuring_scope const&) = delete;
    measuring_scope& operator=(measuring_scope const&) = delete;
};

// Whether two blocks found under one key still hold the same content: the key of a block known by its
// address may come back for another block once the first is gone.
bool same_content(prepack::block const& a, prepack::block const& b) {
    if (auto const* x = std::get_if<prepack::bcontent_blocks>(&a.block_content)) {
        auto const* y = std::get_if<prepack::bcontent_blocks>(&b.block_content);
        return y && x->blocks.shared_identity().first != nullptr &&
               x->blocks.shared_identity() == y->blocks.shared_identity() && x->column_id == y->column_id;
    }
    if (auto const* x = std::get_if<prepack::bcontent_para>(&a.block_content)) {
        auto const* y = std::get_if<prepack::bcontent_para>(&b.block_content);
        return y && x->para.pass_in == y->para.pass_in && x->para.para_text == y->para.para_text &&
               x->para.para_spans == y->para.para_spans &&
               x->para.first_line_style == y->para.first_line_style;
    }
    return false;
}

bool memoizable(prepack::block const& b) {
    if (auto const* bs = std::get_if<prepack::bcontent_blocks>(&b.block_content)) {
        return bs->blocks.shared_identity().first != nullptr;
    }
    return std::holds_alternative<prepack::bcontent_para>(b.block_content);
}

float side_edges(css::used_style::used_style const& u) {
    return u.used_borders.borders_left.border_width + u.used_padding_left + u.used_padding_right +
           u.used_borders.borders_right.border_width;
}

// The content width a box packed with "auto" width needed.
float packed_content_width(block::block_out const& r) {
    auto const* p = std::get_if<block::packed_main>(&r.res);
    if (!p) {
        return 0;
    }
    return std::max(0.0f, block::natural_width(*p->b_packed_box) - side_edges(p->b_packed_box->box_used_style));
}

// Measures by packing: the content at no width takes every break, unbounded it takes none.
content_widths by_packing(page_info const& info, prepack::block const& b) {
    auto style = *b.block_style;
    style.width = css::box::auto_value{};
    css::style::clear_width_limits(style);
    auto loose = b;
    loose.block_style = share(std::move(style));
    measuring_scope const only_widths;
    auto pack_in = [&](float width) {
        auto trial_info = info;
        trial_info.flags.max_page_area = true;
        // What the content gathers is dropped with the trial: page floats in it stay in its flow.
        trial_info.flags.pack_page_stuff = false;
        areas::area const trial{.top = 0, .bottom = -far, .left = 0, .right = width};
        return packed_content_width(block::pack_block(std::move(trial_info), block::inline_block{}, loose,
                                                      margin_collapsing::fresh(),
                                                      areas::areas{.container = trial, .available = {trial}}));
    };
    float const narrow = pack_in(0);
    float const wide = pack_in(far);
    return {.min_content = narrow, .max_content = std::max(narrow, wide)};
}

// A child's widths with its own edges and side margins, as its parent sees them. Percentages of the
// parent's width are unknown while the parent is being measured, and count as nothing.
content_widths outer_widths(page_info const& info, prepack::block const& c) {
    auto const& s = *c.block_style;
    auto const used = css::used_style::used_style_of(s, 0, std::nullopt);
    float const edges = side_edges(used);
    auto const* m = std::get_if<css::used_style::used_margins>(&used.used_margins);
    float const margins = m ? m->margin_left.value_or(0) + m->margin_right.value_or(0) : 0;
    content_widths w;
    if (std::holds_alternative<float>(s.width)) {
        // The used width has box-sizing, min-width and max-width applied already.
        w = {.min_content = used.used_width, .max_content = used.used_width};
    } else {
        w = content_widths_of(info, c);
        // What max-width and min-width measure beyond the content box.
        float const extra = s.box_sizing == css::box::box_sizing::border_box    ? edges
                            : s.box_sizing == css::box::box_sizing::padding_box ? used.used_padding_left +
                                                                                    used.used_padding_right
                                                                                : 0.0f;
        for (float* v : {&w.min_content, &w.max_content}) {
            if (auto const* max = std::get_if<float>(&s.rare_box->max_width)) {
                *v = std::min(*v, std::max(0.0f, *max - extra));
            }
            if (auto const* min = std::get_if<float>(&s.rare_box->min_width)) {
                *v = std::max(*v, *min - extra);
            }
        }
    }
    return {.min_content = std::max(0.0f, w.min_content + edges + margins),
            .max_content = std::max(0.0f, w.max_content + edges + margins)};
}

// A flow of child blocks is as narrow as its widest child allows. At its widest, floats in a row stand
// side by side, and the text of an in-flow block after them runs beside them.
content_widths from_children(page_info const& info, prepack::block_list const& list) {
    content_widths out;
    float row = 0;
    for (auto const& c : list) {
        if (!c.block_style || positioned::is_out_of_flow(*c.block_style)) {
            continue;
        }
        auto const w = outer_widths(info, c);
        out.min_content = std::max(out.min_content, w.min_content);
        auto const clear = floats::clear_of(*c.block_style, info);
        if (clear.left || clear.right) {
            row = 0;
        }
        if (floats::float_side(*c.block_style, info)) {
            row += w.max_content;
            out.max_content = std::max(out.max_content, row);
        } else {
            out.max_content = std::max(out.max_content, row + w.max_content);
            row = 0;
        }
    }
    return out;
}

content_widths measured(page_info const& info, prepack::block const& b) {
    if (auto const* bs = std::get_if<prepack::bcontent_blocks>(&b.block_content); bs && !bs->column_id) {
        return from_children(info, bs->blocks);
    }
    return by_packing(info, b);
}

} // namespace

measure_scope::measure_scope() {
    ++memo.depth;
}

measure_scope::~measure_scope() {
    if (--memo.depth == 0) {
        memo.entries.clear();
    }
}

content_widths content_widths_of(page_info const& info, prepack::block const& b) {
    if (memo.depth == 0 || !memoizable(b)) {
        return measured(info, b);
    }
    auto const key = key_of(b);
    if (auto const it = memo.entries.find(key); it != memo.entries.end()) {
        if (same_content(it->second.entry_block, b)) {
            return it->second.entry_widths;
        }
    }
    auto const widths = measured(info, b);
    memo.entries.insert_or_assign(key, memo_entry{.entry_block = b, .entry_widths = widths});
    return widths;
}

bool measuring() {
    return measuring_depth > 0;
}

float shrink_to_fit(content_widths const& w, float room) {
    return std::min(std::max(w.min_content, room), w.max_content);
}

} // namespace vellum::pack::fit
