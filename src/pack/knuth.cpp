#include "pack/knuth.hpp"

#include "util/result.hpp"

#include <cmath>

namespace vellum::pack::knuth {

namespace {

template <class Head, class Box>
Head* head_in(Box& b) {
    return std::visit(overloaded{
                          [](auto& w) -> Head* {
                              using T = std::remove_cvref_t<decltype(w)>;
                              if constexpr (std::is_same_v<T, word>) {
                                  return &w.word_head;
                              } else if constexpr (std::is_same_v<T, non_word>) {
                                  return &w.non_word_head;
                              } else if constexpr (std::is_same_v<T, grapheme_seq>) {
                                  return &w.seq_head;
                              } else if constexpr (std::is_same_v<T, glyph_index>) {
                                  return &w.glyph_head;
                              } else if constexpr (std::is_same_v<T, counter>) {
                                  return &w.counter_head;
                              } else if constexpr (std::is_same_v<T, pre_space>) {
                                  return &w.pre_space_head;
                              } else if constexpr (std::is_same_v<T, charlike_space>) {
                                  return &w.charlike_head;
                              } else {
                                  static_assert(std::is_same_v<T, newline> || std::is_same_v<T, open> ||
                                                    std::is_same_v<T, close> ||
                                                    std::is_same_v<T, inline_block> ||
                                                    std::is_same_v<T, indent>,
                                                "head_of: a new kind of box must say whether it has text");
                                  return nullptr;
                              }
                          },
                      },
                      b);
}

float box_width(knuth_box const& b) {
    if (auto const* h = head_of(b)) {
        return h->head_width;
    }
    return std::visit(overloaded{
                          [](word const&) { return 0.0f; },
                          [](non_word const&) { return 0.0f; },
                          [](grapheme_seq const&) { return 0.0f; },
                          [](glyph_index const&) { return 0.0f; },
                          [](counter const&) { return 0.0f; },
                          [](pre_space const&) { return 0.0f; },
                          [](charlike_space const&) { return 0.0f; },
                          [](newline const&) { return 0.0f; },
                          [](open const& o) { return o.box_left_edge; },
                          [](close const& c) { return c.close_right_edge; },
                          [](inline_block const& i) { return i.inline_block_width; },
                          [](indent const& i) { return i.indent_width; },
                      },
                      b);
}

} // namespace

text_head const* head_of(knuth_box const& b) {
    return head_in<text_head const>(b);
}

text_head* head_of(knuth_box& b) {
    return head_in<text_head>(b);
}

bool is_float(inline_block const& b) {
    if (!b.inline_block_style) {
        return false;
    }
    // A float to the top or bottom of the page leaves the line as a float beside it does.
    if (std::holds_alternative<css::box::float_page>(b.inline_block_style->float_)) {
        return true;
    }
    auto const* kind = std::get_if<css::box::float_kind>(&b.inline_block_style->float_);
    return kind != nullptr && *kind != css::box::float_kind::none;
}

bool is_in_flow(inline_block const& b) {
    if (is_float(b)) {
        return false;
    }
    if (!b.inline_block_style) {
        return true;
    }
    auto const* pos = std::get_if<css::box::position_kind>(&b.inline_block_style->bit_props.bit_props_position);
    return pos == nullptr || *pos == css::box::position_kind::static_ || *pos == css::box::position_kind::relative;
}

float item_width(knuth const& item) {
    return std::visit(overloaded{
                          [](knuth_box const& b) { return box_width(b); },
                          [](knuth_leader const& l) { return l.leader_width; },
                          [](knuth_penalty const& p) {
                              auto const* s = std::get_if<soft>(&p);
                              return s != nullptr ? s->penalty_width : 0.0f;
                          },
                          [](knuth_glue const& g) {
                              auto const* s = std::get_if<glue>(&g);
                              return s != nullptr ? s->glue_width : 0.0f;
                          },
                          [](forced_break const&) { return 0.0f; },
                          [](prohibited_break const&) { return 0.0f; },
                          [](script_func_head const&) { return 0.0f; },
                          [](script_func_tail const&) { return 0.0f; },
                          [](footnote const&) { return 0.0f; },
                      },
                      item);
}

stretch_shrink item_stretch_shrink(knuth const& item) {
    return std::visit(overloaded{
                          [](knuth_box const&) { return stretch_shrink{}; },
                          [](knuth_leader const&) { return stretch_shrink{.stretch = infinite_stretch}; },
                          [](knuth_penalty const&) { return stretch_shrink{}; },
                          [](knuth_glue const& g) {
                              if (auto const* s = std::get_if<glue>(&g)) {
                                  return stretch_shrink{.stretch = s->stretchability,
                                                        .shrink = s->shrinkability};
                              }
                              if (auto const* z = std::get_if<zero_width_cjk>(&g)) {
                                  return stretch_shrink{.stretch = z->zw_stretchability};
                              }
                              return stretch_shrink{};
                          },
                          [](forced_break const&) { return stretch_shrink{.stretch = infinite_stretch}; },
                          [](prohibited_break const&) { return stretch_shrink{}; },
                          [](script_func_head const&) { return stretch_shrink{}; },
                          [](script_func_tail const&) { return stretch_shrink{}; },
                          [](footnote const&) { return stretch_shrink{}; },
                      },
                      item);
}

namespace {

// Adds one item of a line to its sums; `last` tells whether it ends the line.
void add_to_sums(line_sum& sum, knuth const& it, bool last) {
    if (std::holds_alternative<knuth_penalty>(it) && !last) {
        // A hyphen is drawn only where the line really breaks.
        return;
    }
    if (auto const* b = std::get_if<knuth_box>(&it)) {
        if (auto const* ib = std::get_if<inline_block>(b); ib && !is_in_flow(*ib) && !is_float(*ib)) {
            return;
        }
    }
    sum.sum_width += item_width(it);
    auto const ss = item_stretch_shrink(it);
    sum.sum_stretch += ss.stretch;
    sum.sum_shrink += ss.shrink;
}

} // namespace

line_sum line_sums(std::span<knuth const> items) {
    line_sum sum;
    for (std::size_t i = 0; i < items.size(); ++i) {
        add_to_sums(sum, items[i], i + 1 == items.size());
    }
    return sum;
}

bool legal_break(knuth const* previous, knuth const& item) {
    return std::visit(overloaded{
                          [](knuth_box const&) { return false; },
                          [](knuth_leader const&) { return false; },
                          [](knuth_penalty const&) { return true; },
                          [&](knuth_glue const&) {
                              // A space breaks only after material: never after a penalty, another
                              // space, or a mark that forbids the break.
                              if (previous == nullptr) {
                                  return false;
                              }
                              return std::holds_alternative<knuth_leader>(*previous) ||
                                     std::holds_alternative<script_func_head>(*previous) ||
                                     std::holds_alternative<knuth_box>(*previous) ||
                                     std::holds_alternative<footnote>(*previous) ||
                                     std::holds_alternative<script_func_tail>(*previous);
                          },
                          [](forced_break const&) { return true; },
                          [](prohibited_break const&) { return false; },
                          [](script_func_head const&) { return false; },
                          [](script_func_tail const&) { return false; },
                          [](footnote const&) { return false; },
                      },
                      item);
}

adjustment_ratio adjustment_ratio_of(float target, float natural, float stretch, float shrink) {
    if (std::abs(target - natural) <= tolerance) {
        return ratio{0.0f};
    }
    if (target > natural) {
        // A leader or a forced break on the line takes up any amount of room.
        if (stretch >= infinite_stretch) {
            return ratio{0.0f};
        }
        if (stretch <= 0) {
            return positive_infinite{};
        }
        return ratio{(target - natural) / stretch};
    }
    if (shrink <= 0) {
        return negative_infinite{};
    }
    return ratio{(target - natural) / shrink};
}

std::optional<knuth> indent_box(css::used_style::used_indent const& used_indent, line_kind kind) {
    if (used_indent.indent_amount == 0.0f) {
        return std::nullopt;
    }
    bool const wanted = used_indent.indent_type == css::used_style::indent_type::indent
                            ? kind == line_kind::first_line
                            : kind == line_kind::other_line;
    if (!wanted) {
        return std::nullopt;
    }
    return knuth{knuth_box{indent{.indent_width = used_indent.indent_amount}}};
}

namespace {

enum class strip_step { drop, keep_and_go_on, stop, stop_keeping_all };

strip_step strip_step_of(knuth const& item) {
    return std::visit(overloaded{
                          [](knuth_box const& b) {
                              if (std::holds_alternative<open>(b) || std::holds_alternative<indent>(b)) {
                                  return strip_step::keep_and_go_on;
                              }
                              if (auto const* ib = std::get_if<inline_block>(&b); ib && !is_in_flow(*ib)) {
                                  return strip_step::keep_and_go_on;
                              }
                              return strip_step::stop;
                          },
                          [](knuth_leader const&) { return strip_step::stop; },
                          [](knuth_penalty const&) { return strip_step::drop; },
                          [](knuth_glue const&) { return strip_step::drop; },
                          [](forced_break const&) { return strip_step::stop; },
                          [](prohibited_break const&) { return strip_step::drop; },
                          [](script_func_head const&) { return strip_step::stop_keeping_all; },
                          [](script_func_tail const&) { return strip_step::keep_and_go_on; },
                          [](footnote const&) { return strip_step::stop_keeping_all; },
                      },
                      item);
}

// Where a line's discardable end starts: the items from there on are dropped or passed over when
// the end is stripped.
std::size_t discardable_tail(std::span<knuth const* const> items) {
    std::size_t tail = items.size();
    while (tail > 0) {
        auto const step = strip_step_of(*items[tail - 1]);
        if (step != strip_step::drop && step != strip_step::keep_and_go_on) {
            break;
        }
        --tail;
    }
    return tail;
}

} // namespace

std::vector<knuth> strip_leading(std::span<knuth const> items) {
    std::vector<knuth> out;
    out.reserve(items.size());
    std::size_t i = 0;
    for (; i < items.size(); ++i) {
        auto const step = strip_step_of(items[i]);
        if (step == strip_step::drop) {
            continue;
        }
        if (step == strip_step::keep_and_go_on) {
            out.push_back(items[i]);
            continue;
        }
        break;
    }
    out.insert(out.end(), items.begin() + static_cast<std::ptrdiff_t>(i), items.end());
    return out;
}

std::vector<knuth> stripped_trailing(std::span<knuth const* const> items) {
    // From `tail` on, only what is passed over stays.
    std::size_t const tail = discardable_tail(items);
    std::vector<knuth> out;
    out.reserve(items.size());
    for (std::size_t i = 0; i < items.size(); ++i) {
        if (i < tail || strip_step_of(*items[i]) != strip_step::drop) {
            out.push_back(*items[i]);
        }
    }
    return out;
}

line_sum stripped_line_sums(std::optional<knuth> const& first, std::span<knuth const* const> items) {
    line_sum sum;
    if (first) {
        add_to_sums(sum, *first, items.empty());
    }
    if (!items.empty() && is_penalty(*items.back())) {
        for (std::size_t i = 0; i < items.size(); ++i) {
            add_to_sums(sum, *items[i], i + 1 == items.size());
        }
        return sum;
    }
    // From the discardable tail on, dropped items do not count. What ends the stripped line is never
    // a penalty, so no penalty counts.
    std::size_t const tail = discardable_tail(items);
    for (std::size_t i = 0; i < items.size(); ++i) {
        if (i >= tail && strip_step_of(*items[i]) == strip_step::drop) {
            continue;
        }
        add_to_sums(sum, *items[i], false);
    }
    return sum;
}

void sums_push(prefix_sums& sums, knuth const& item) {
    check(!sums.sums_entries.empty(), "sums_push");
    sums_entry e = sums.sums_entries.back();
    line_sum mid;
    add_to_sums(mid, item, false);
    e.entry_width += mid.sum_width;
    e.entry_stretch += mid.sum_stretch;
    e.entry_shrink += mid.sum_shrink;
    auto const step = strip_step_of(item);
    if (step == strip_step::drop) {
        e.dropped_width += mid.sum_width;
        e.dropped_stretch += mid.sum_stretch;
        e.dropped_shrink += mid.sum_shrink;
        ++e.dropped_count;
    }
    auto const count = static_cast<std::uint32_t>(sums.sums_entries.size());
    if (step != strip_step::drop && step != strip_step::keep_and_go_on) {
        // A line ending after this item strips nothing before it.
        e.tail_start = count;
    }
    e.last_is_penalty = is_penalty(item);
    e.last_penalty_width = e.last_is_penalty ? item_width(item) : 0.0f;
    sums.sums_entries.push_back(e);
}

void sums_truncate(prefix_sums& sums, std::size_t count) {
    check(count < sums.sums_entries.size() + 1, "sums_truncate");
    sums.sums_entries.resize(count + 1);
}

std::size_t sums_size(prefix_sums const& sums) {
    return sums.sums_entries.size() - 1;
}

line_sum sums_of_line(prefix_sums const& sums, std::size_t from, std::size_t to) {
    check(from <= to && to < sums.sums_entries.size(), "sums_of_line");
    if (from == to) {
        return {};
    }
    auto const& a = sums.sums_entries[from];
    auto const& b = sums.sums_entries[to];
    double width = b.entry_width - a.entry_width;
    double stretch = b.entry_stretch - a.entry_stretch;
    double shrink = b.entry_shrink - a.entry_shrink;
    if (b.last_is_penalty) {
        // The line ends at a hyphen, which is drawn: nothing is stripped.
        width += b.last_penalty_width;
    } else {
        auto const& t = sums.sums_entries[std::max<std::size_t>(from, b.tail_start)];
        width -= b.dropped_width - t.dropped_width;
        stretch -= b.dropped_stretch - t.dropped_stretch;
        shrink -= b.dropped_shrink - t.dropped_shrink;
    }
    return line_sum{.sum_width = static_cast<float>(width),
                    .sum_stretch = static_cast<float>(stretch),
                    .sum_shrink = static_cast<float>(shrink)};
}

bool line_strips_to_nothing(prefix_sums const& sums, std::size_t from, std::size_t to) {
    check(from <= to && to < sums.sums_entries.size(), "line_strips_to_nothing");
    if (from == to) {
        return true;
    }
    auto const& b = sums.sums_entries[to];
    if (b.last_is_penalty || b.tail_start > from) {
        return false;
    }
    return b.dropped_count - sums.sums_entries[from].dropped_count == to - from;
}

bool item_stream::operator==(item_stream const& other) const {
    return stream_items(*this) == stream_items(other);
}

item_stream stream_of(std::vector<knuth> items) {
    return item_stream{.stream_base = std::make_shared<std::vector<knuth> const>(std::move(items))};
}

std::size_t stream_size(item_stream const& s) {
    std::size_t const base = s.stream_base ? s.stream_base->size() - std::min(s.stream_from, s.stream_base->size()) : 0;
    return base + s.stream_front_reversed.size();
}

bool stream_empty(item_stream const& s) {
    return stream_size(s) == 0;
}

knuth const& stream_peek(item_stream const& s) {
    if (!s.stream_front_reversed.empty()) {
        return s.stream_front_reversed.back();
    }
    check(s.stream_base && s.stream_from < s.stream_base->size(), "stream_peek");
    return (*s.stream_base)[s.stream_from];
}

knuth stream_take(item_stream& s) {
    if (!s.stream_front_reversed.empty()) {
        knuth out = std::move(s.stream_front_reversed.back());
        s.stream_front_reversed.pop_back();
        return out;
    }
    check(s.stream_base && s.stream_from < s.stream_base->size(), "stream_take");
    return (*s.stream_base)[s.stream_from++];
}

void stream_put_back(item_stream& s, knuth item) {
    s.stream_front_reversed.push_back(std::move(item));
}

std::vector<knuth> stream_items(item_stream const& s) {
    std::vector<knuth> out(s.stream_front_reversed.rbegin(), s.stream_front_reversed.rend());
    if (s.stream_base && s.stream_from < s.stream_base->size()) {
        out.insert(out.end(), s.stream_base->begin() + static_cast<std::ptrdiff_t>(s.stream_from), s.stream_base->end());
    }
    return out;
}

void strip_leading(item_stream& s) {
    // The kept items go back in front in their order; the walk stops at the first item that stays.
    std::vector<knuth> kept;
    while (!stream_empty(s)) {
        auto const step = strip_step_of(stream_peek(s));
        if (step == strip_step::drop) {
            (void)stream_take(s);
            continue;
        }
        if (step == strip_step::keep_and_go_on) {
            kept.push_back(stream_take(s));
            continue;
        }
        break;
    }
    for (auto it = kept.rbegin(); it != kept.rend(); ++it) {
        stream_put_back(s, std::move(*it));
    }
}

bool is_forced_break(knuth const& item) {
    return std::holds_alternative<forced_break>(item);
}

bool is_penalty(knuth const& item) {
    return std::holds_alternative<knuth_penalty>(item);
}

break_type break_type_of(knuth const& item) {
    if (is_forced_break(item)) {
        return break_type::forced_break;
    }
    if (is_penalty(item)) {
        return break_type::hyphen;
    }
    return break_type::other;
}

} // namespace vellum::pack::knuth
