#include "pack/linebreak.hpp"

#include "pack/fit.hpp"

#include <cmath>
#include <iterator>

namespace vellum::pack::linebreak {

using namespace knuth;

namespace {

pack::knuth::inline_block const* inline_block_of(pack::knuth::knuth const& item) {
    auto const* b = std::get_if<knuth_box>(&item);
    return b != nullptr ? std::get_if<pack::knuth::inline_block>(b) : nullptr;
}

bool holds_only_indent(std::span<pack::knuth::knuth const> packed) {
    if (packed.empty()) {
        return true;
    }
    auto const* b = std::get_if<knuth_box>(&packed.front());
    return packed.size() == 1 && b != nullptr && std::holds_alternative<indent>(*b);
}

struct scan {
    eval_knuth::eval_env const& env;
    method m;
    line_request const& request;
    eval_knuth::page_state start_page;
    /// The paragraph's items not yet looked at.
    pack::knuth::item_stream& source;
    /// The items of this line looked at so far, taken from `source` as the scan reaches them.
    std::vector<pack::knuth::knuth> items{};
    /// The items packed so far, measured, with their sums: a state holds the first `packed_count`.
    eval_knuth::measured_items packed{.measured_kind = request.line_kind};

    std::span<pack::knuth::knuth const> packed_items(pack_state const& s) const {
        return std::span<pack::knuth::knuth const>(packed.measured_list).first(s.packed_count);
    }

    // Whether item `i` is there, taking it from the source if need be.
    bool reach(std::size_t i) {
        while (items.size() <= i && !stream_empty(source)) {
            items.push_back(stream_take(source));
        }
        return i < items.size();
    }

    // A script function's result is replaced whole: the scan reaches the end of it before measuring.
    void reach_script_tail(std::size_t head) {
        int depth = 0;
        for (std::size_t j = head + 1; reach(j); ++j) {
            if (std::holds_alternative<script_func_head>(items[j])) {
                ++depth;
            } else if (std::holds_alternative<script_func_tail>(items[j])) {
                if (depth == 0) {
                    return;
                }
                --depth;
            }
        }
    }

    // Gives the items from `from` on back to the source, after `front`: they come first next time.
    void give_back(std::size_t from, std::vector<pack::knuth::knuth> front = {}) {
        for (std::size_t j = items.size(); j-- > std::min(from, items.size());) {
            stream_put_back(source, std::move(items[j]));
        }
        items.erase(items.begin() + static_cast<std::ptrdiff_t>(std::min(from, items.size())), items.end());
        for (auto it = front.rbegin(); it != front.rend(); ++it) {
            stream_put_back(source, std::move(*it));
        }
    }

    // A break where the state stands, weighed by the sums of its line: the line is not made.
    break_point make_break_point(pack_state const& s, pack::knuth::break_type type) {
        auto const sums = eval_knuth::measured_line_sums(env, packed, 0, s.packed_count, std::nullopt);
        return break_point{.break_state = s,
                           .line_empty = pack::knuth::line_strips_to_nothing(packed.measured_sums, 0, s.packed_count),
                           .line_width = sums.sum_width,
                           .line_stretch = sums.sum_stretch,
                           .line_shrink = sums.sum_shrink,
                           .break_type = type};
    }

    // The chosen break, with its line made, and the rest of the paragraph behind it in the source.
    line_res finish(break_point bp) {
        bp.line = eval_knuth::trim_line(env, request.line_kind, packed_items(bp.break_state));
        return give_back_after(std::move(bp));
    }

    // The break point (its line made) with the rest of the paragraph behind it in the source: `front`
    // (the rest of a cut word) first, then the floats held back, then what the scan looked at past the
    // break.
    line_res give_back_after(break_point bp, std::vector<pack::knuth::knuth> front = {}) {
        auto& delayed = bp.break_state.delay_floats;
        front.insert(front.end(), std::make_move_iterator(delayed.begin()), std::make_move_iterator(delayed.end()));
        delayed.clear();
        give_back(bp.break_state.next_index, std::move(front));
        return bp;
    }

    line_res run() {
        pack_state st{.curr_page_info = start_page};
        std::optional<break_point> best;
        while (reach(st.next_index)) {
            std::size_t const i = st.next_index;
            if (std::holds_alternative<script_func_head>(items[i])) {
                reach_script_tail(i);
            }
            auto ev = eval_knuth::eval_knuth(env, request.line_kind, request.containing_height, st.curr_page_info,
                                             items[i], std::span<pack::knuth::knuth const>(items).subspan(i + 1));
            if (ev.res_splice) {
                auto const first = items.begin() + static_cast<std::ptrdiff_t>(i + 1);
                items.erase(first, first + ev.res_splice->splice_count);
                items.insert(items.begin() + static_cast<std::ptrdiff_t>(i + 1),
                             ev.res_splice->splice_items.begin(), ev.res_splice->splice_items.end());
            }
            items[i] = std::move(ev.res_item);
            st.curr_page_info = std::move(ev.res_state);
            pack::knuth::knuth const& item = items[i];
            float const w = item_width(item);

            if (auto const* ib = inline_block_of(item)) {
                // A float that no longer fits beside the line waits for the next line.
                if (is_float(*ib) && !fits(w, request.width - st.width_sofar) && st.width_sofar > 0 &&
                    !holds_only_indent(packed_items(st))) {
                    st.delay_floats.push_back(item);
                    ++st.next_index;
                    continue;
                }
                if (!is_in_flow(*ib) && (!is_float(*ib) || fit::measuring())) {
                    // An absolute box takes no room from the line, nor does a float while a flow is
                    // only measured: the line goes on, and the box is placed with it.
                    st.line_outflows.push_back(outflow{.outflow_xpos = st.curr_xpos, .outflow_item = item,
                                                       .outflow_page_info = st.curr_page_info});
                    st.next_index = i + 1;
                    continue;
                }
                if (!is_in_flow(*ib)) {
                    outflow o{.outflow_xpos = st.curr_xpos, .outflow_item = item,
                              .outflow_page_info = st.curr_page_info};
                    // The line starts again: what was packed, the floats held back, and what follows
                    // the box go back to the source in that order.
                    measured_truncate(packed, st.packed_count);
                    auto front = std::move(packed.measured_list);
                    front.insert(front.end(), std::make_move_iterator(st.delay_floats.begin()),
                                 std::make_move_iterator(st.delay_floats.end()));
                    give_back(i + 1, std::move(front));
                    return o;
                }
            }
            if (!is_penalty(item)) {
                st.curr_xpos += w;
                st.width_sofar += w;
            }
            measured_push(packed, item);
            st.packed_count = packed.measured_list.size();
            // The item before this one on the line, the floats held back aside.
            pack::knuth::knuth const* prev = st.packed_count >= 2 ? &packed.measured_list[st.packed_count - 2] : nullptr;
            bool const legal = legal_break(prev, packed.measured_list.back());
            st.next_index = i + 1;
            if (!legal) {
                continue;
            }
            break_point bp = make_break_point(st, break_type_of(item));
            if (fits(bp.line_width, request.width)) {
                if (bp.break_type == break_type::forced_break) {
                    return finish(std::move(bp));
                }
                if (m == method::best_fit && bp.break_type == break_type::hyphen) {
                    best = choose_break(best ? &*best : nullptr, bp, request.width);
                } else {
                    // A later break that fits is always taken over an earlier one.
                    best = std::move(bp);
                }
                continue;
            }

            // The line is over its width. A word after the last break may hyphenate.
            if (request.hyphenate_ok) {
                std::size_t const from = best ? best->break_state.next_index : 0;
                std::size_t const kept = best ? best->break_state.packed_count : 0;
                pack::knuth::knuth const* before = kept > 0 ? &packed.measured_list[kept - 1] : nullptr;
                auto h = eval_knuth::try_hyphenate(env, request.line_kind, before,
                                                   std::span<pack::knuth::knuth const>(items).subspan(from));
                if (h) {
                    auto const at = items.begin() + static_cast<std::ptrdiff_t>(from + h->word_index);
                    auto const pos = items.erase(at);
                    items.insert(pos, h->word_parts.begin(), h->word_parts.end());
                    st = best ? best->break_state : pack_state{.curr_page_info = start_page};
                    measured_truncate(packed, st.packed_count);
                    continue;
                }
            }
            if (m == method::best_fit) {
                // A justified line may still shrink to its width.
                auto const r = adjustment_ratio_of(request.width, bp.line_width, bp.line_stretch, bp.line_shrink);
                if (auto const* rr = std::get_if<ratio>(&r); rr != nullptr && rr->ratio_value > -1.0f) {
                    break_point better = choose_break(best ? &*best : nullptr, bp, request.width);
                    if (better.break_type == break_type::forced_break) {
                        return finish(std::move(better));
                    }
                    best = std::move(better);
                    continue;
                }
            }
            if (best && !best->line_empty) {
                return finish(std::move(*best));
            }
            if (request.may_give_up && request.width + tolerance < request.container_width) {
                // Beside a float: give the line up, and let the caller move below the float. The
                // source is as it was; the items as measured here go back.
                give_back(0);
                return no_room{};
            }
            // A line of the whole width that can't take its first word: cut the word if its style
            // allows, else let the line run over.
            auto cut = eval_knuth::overflow_wrap(env, request.line_kind, packed_items(st), request.width);
            if (auto* t = std::get_if<eval_knuth::truncated>(&cut)) {
                bp.line = eval_knuth::trim_line(env, request.line_kind, t->truncated_line);
                auto const sums = line_sums(bp.line);
                bp.line_empty = bp.line.empty();
                bp.line_width = sums.sum_width;
                bp.line_stretch = sums.sum_stretch;
                bp.line_shrink = sums.sum_shrink;
                bp.break_type = break_type::other;
                return give_back_after(std::move(bp), std::move(t->truncated_rest));
            }
            return finish(std::move(bp));
        }
        // The paragraph ended without a forced break: the line holds everything.
        if (best && best->break_state.next_index == items.size() && stream_empty(source)) {
            return finish(std::move(*best));
        }
        return finish(make_break_point(st, break_type::other));
    }
};

} // namespace

line_res fill_line(eval_knuth::eval_env const& env,
                   method m,
                   line_request const& request,
                   eval_knuth::page_state page_info,
                   pack::knuth::item_stream& items) {
    scan s{.env = env, .m = m, .request = request, .start_page = std::move(page_info), .source = items};
    return s.run();
}

std::optional<float> badness(break_point const& bp, float target) {
    auto const r = adjustment_ratio_of(target, bp.line_width, bp.line_stretch, bp.line_shrink);
    auto const* rr = std::get_if<ratio>(&r);
    if (rr == nullptr || rr->ratio_value < -1.0f) {
        return std::nullopt;
    }
    float b = std::pow(std::abs(rr->ratio_value), 3.0f) * 100.0f + 0.5f;
    if (bp.break_type == break_type::hyphen) {
        b += 50.0f;
    }
    return b;
}

break_point const& choose_break(break_point const* best, break_point const& candidate, float target) {
    if (best == nullptr) {
        return candidate;
    }
    auto const b = badness(*best, target);
    auto const c = badness(candidate, target);
    if (b && c) {
        return *b >= *c ? candidate : *best;
    }
    if (c) {
        return candidate;
    }
    return *best;
}

bool hyphenate_ok(css::text::hyphenate_lines const& limit, int consecutive) {
    auto const* n = std::get_if<int>(&limit);
    return n == nullptr || *n > consecutive;
}

} // namespace vellum::pack::linebreak
