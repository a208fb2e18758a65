#include "pack/total_fit.hpp"

#include <cmath>

namespace vellum::pack::total_fit {

using namespace knuth;

namespace {

constexpr float threshold = 2.0f;

bool too_long(adjustment_ratio const& r) {
    if (std::holds_alternative<negative_infinite>(r)) {
        return true;
    }
    auto const* rr = std::get_if<ratio>(&r);
    return rr != nullptr && rr->ratio_value < -1.0f;
}

bool too_loose(adjustment_ratio const& r) {
    if (std::holds_alternative<positive_infinite>(r)) {
        return true;
    }
    auto const* rr = std::get_if<ratio>(&r);
    return rr != nullptr && rr->ratio_value > threshold;
}

// Whether `a` has more demerits than `b`; a finite value beats infinity.
bool more_demerits(demerits const& a, demerits const& b) {
    if (!a) {
        return static_cast<bool>(b);
    }
    return b && *a > *b;
}

line_kind kind_after(fbp const& f) {
    return f.next_line_number == 1 ? line_kind::first_line : line_kind::other_line;
}

} // namespace

namespace {

// A break after `previous` at item `index`, the line's sums known.
fbp break_point_of(break_params const& params,
                   std::optional<float> art,
                   line_sum const& sums,
                   ref<fbp> const& previous,
                   int index,
                   pack::knuth::knuth const& break_item) {
    auto const r = adjustment_ratio_of(params.width, sums.sum_width, sums.sum_stretch, sums.sum_shrink);
    int const consecutive = is_penalty(break_item) ? previous->consecutive_hyphens + 1 : 0;

    demerits d;
    if (!too_long(r) && !std::holds_alternative<positive_infinite>(r) &&
        !std::holds_alternative<prohibited_break>(break_item)) {
        double const rv = std::get<ratio>(r).ratio_value;
        double const badness = std::pow(std::abs(rv), 3.0) * 100.0 + 0.5;
        double line_demerits = (badness + 10.0) * (badness + 10.0);
        if (is_penalty(break_item)) {
            line_demerits += 2500.0;
        }
        // Runs of hyphenated lines: over the style's limit the line is all but forbidden; without a
        // limit reached, every hyphenated line after the first of a run costs extra.
        if (params.hyphenate_lines && consecutive > *params.hyphenate_lines) {
            line_demerits += 1000000.0;
        } else if (consecutive >= 2) {
            line_demerits += 3000.0;
        }
        d = line_demerits;
    }
    demerits chain;
    if (previous->fbp_demerits && d) {
        chain = *previous->fbp_demerits + *d;
    }
    return fbp{
        .index = index,
        .fbp_demerits = chain,
        .consecutive_hyphens = consecutive,
        .adjustment_ratio = r,
        .art = art,
        .fbp_type = via{previous},
        .fbp_break_type = break_type_of(break_item),
        .next_line_number = previous->next_line_number + 1,
    };
}

} // namespace

fbp make_break_point(eval_knuth::eval_env const& env,
                     break_params const& params,
                     std::optional<float> art,
                     std::span<pack::knuth::knuth const> line_items,
                     ref<fbp> const& previous,
                     int index,
                     pack::knuth::knuth const& break_item) {
    check(previous != nullptr && index >= previous->index, "make_break_point");
    line_kind const kind = kind_after(*previous);
    auto const sums = eval_knuth::trimmed_line_sums(env, kind, indent_box(params.used_indent, kind), line_items);
    return break_point_of(params, art, sums, previous, index, break_item);
}

namespace {

struct checkpoint {
    eval_knuth::page_state cp_page_info;
    std::size_t cp_index = 0;
    ref<fbp> cp_curr;
    std::vector<ref<fbp>> cp_fbps;
};

struct breaker {
    eval_knuth::eval_env const& env;
    break_params const& params;
    std::vector<pack::knuth::knuth> items;
    // The items as evaluated, index for index with `items`: under ::first-line styling, and not.
    eval_knuth::measured_items accum_first_line{.measured_kind = line_kind::first_line};
    eval_knuth::measured_items accum{.measured_kind = line_kind::other_line};
    // The indent of a line after a break on the first line and on the others.
    std::optional<pack::knuth::knuth> first_indent = indent_box(params.used_indent, line_kind::first_line);
    std::optional<pack::knuth::knuth> other_indent = indent_box(params.used_indent, line_kind::other_line);
    eval_knuth::page_state page_info;
    ref<fbp> curr;
    std::vector<ref<fbp>> fbps;
    checkpoint cp;
    /// Where hyphenation was last tried in vain, and for which kind of line: every overfull candidate
    /// from the same checkpoint would try the same word again.
    std::optional<std::pair<std::size_t, line_kind>> unhyphenated;

    bool on_first_line(fbp const& f) const { return f.next_line_number == 1; }

    eval_knuth::measured_items& accum_for(fbp const& f) {
        return params.first_line_forms && on_first_line(f) ? accum_first_line : accum;
    }

    // The line from `from` to `end` weighed by its sums alone: it is not made.
    fbp candidate(ref<fbp> const& from, std::size_t end, std::optional<float> art) {
        auto& acc = accum_for(*from);
        auto const start = static_cast<std::size_t>(from->index);
        check(end <= acc.measured_list.size() && start <= end, "make_break_point failed.");
        auto const sums = eval_knuth::measured_line_sums(env, acc, start, end,
                                                         on_first_line(*from) ? first_indent : other_indent);
        return break_point_of(params, art, sums, from, static_cast<int>(end), acc.measured_list[end - 1]);
    }

    void take_checkpoint(std::size_t index) {
        cp = checkpoint{.cp_page_info = page_info, .cp_index = index, .cp_curr = curr, .cp_fbps = fbps};
    }

    void back_to_checkpoint() {
        page_info = cp.cp_page_info;
        curr = cp.cp_curr;
        fbps = cp.cp_fbps;
        eval_knuth::measured_truncate(accum, cp.cp_index);
        eval_knuth::measured_truncate(accum_first_line, cp.cp_index);
    }

    void replace_items(std::size_t from, std::size_t count, std::vector<pack::knuth::knuth> const& with) {
        auto const first = items.begin() + static_cast<std::ptrdiff_t>(from);
        auto const pos = items.erase(first, first + static_cast<std::ptrdiff_t>(count));
        items.insert(pos, with.begin(), with.end());
        unhyphenated.reset();
    }

    // Evaluates item i under the styling its lines may have and appends it to the accumulators.
    void evaluate(std::size_t i) {
        auto const rest = [&] { return std::span<pack::knuth::knuth const>(items).subspan(i + 1); };
        auto apply = [&](eval_knuth::eval_res& ev) {
            if (ev.res_splice) {
                replace_items(i + 1, static_cast<std::size_t>(ev.res_splice->splice_count),
                              ev.res_splice->splice_items);
            }
        };
        if (params.first_line_forms && std::holds_alternative<start>(curr->fbp_type) && on_first_line(*curr)) {
            auto first = eval_knuth::eval_knuth(env, line_kind::first_line, params.containing_height, page_info,
                                                items[i], rest());
            apply(first);
            if (!fbps.empty()) {
                // A line from a later break may cover this item too: it is measured both ways.
                auto other = eval_knuth::eval_knuth(env, line_kind::other_line, params.containing_height,
                                                    page_info, items[i], rest());
                eval_knuth::measured_push(accum, std::move(other.res_item));
            } else {
                eval_knuth::measured_push(accum, first.res_item);
            }
            eval_knuth::measured_push(accum_first_line, std::move(first.res_item));
            page_info = std::move(first.res_state);
            return;
        }
        auto ev = eval_knuth::eval_knuth(env, line_kind::other_line, params.containing_height, page_info, items[i],
                                         rest());
        apply(ev);
        if (params.first_line_forms) {
            eval_knuth::measured_push(accum_first_line, ev.res_item);
        }
        eval_knuth::measured_push(accum, std::move(ev.res_item));
        page_info = std::move(ev.res_state);
    }

    // The overfull case: the line since `curr` is too long and there is nowhere else to break.
    // Returns the index to go on from.
    std::size_t overfull(fbp cand, std::size_t end) {
        auto& acc = accum_for(*curr);
        std::span<pack::knuth::knuth const> const line(acc.measured_list.begin() + curr->index,
                                                 acc.measured_list.begin() + static_cast<std::ptrdiff_t>(end));
        line_kind const kind = kind_after(*curr);
        float width = params.width;
        if (auto box = indent_box(params.used_indent, kind)) {
            width -= item_width(*box);
        }
        auto cut = eval_knuth::overflow_wrap(env, kind, line, width);
        if (auto* t = std::get_if<eval_knuth::truncated>(&cut)) {
            // The first part of the cut word ends the line; the rest is scanned again from there.
            auto const start = static_cast<std::size_t>(curr->index);
            std::vector<pack::knuth::knuth> replacement = t->truncated_line;
            replacement.insert(replacement.end(), t->truncated_rest.begin(), t->truncated_rest.end());
            replace_items(start, end - start, replacement);
            eval_knuth::measured_truncate(accum, start);
            eval_knuth::measured_truncate(accum_first_line, start);
            for (auto const& item : t->truncated_line) {
                eval_knuth::measured_push(accum, item);
                if (params.first_line_forms) {
                    eval_knuth::measured_push(accum_first_line, item);
                }
            }
            std::size_t const kept = start + t->truncated_line.size();
            curr = share(fbp{
                .index = static_cast<int>(kept),
                .fbp_demerits = curr->fbp_demerits,
                .consecutive_hyphens = 0,
                .adjustment_ratio = negative_infinite{},
                .art = threshold,
                .fbp_type = via{curr},
                .fbp_break_type = break_type::other,
                .next_line_number = curr->next_line_number + 1,
            });
            fbps.clear();
            take_checkpoint(kept);
            return kept;
        }
        // Nothing to cut: the line runs over its width.
        curr = share(std::move(cand));
        fbps.clear();
        take_checkpoint(end);
        return end;
    }

    break_res run(eval_knuth::page_state start_page) {
        page_info = std::move(start_page);
        curr = share(fbp{
            .index = 0,
            .fbp_demerits = 0.0,
            .consecutive_hyphens = params.consecutive_hyphens,
            .art = threshold,
            .fbp_type = start{params.start_line_number},
            .next_line_number = params.start_line_number,
        });
        take_checkpoint(0);
        std::size_t i = 0;
        bool evaluated = false;
        while (i < items.size()) {
            if (!evaluated) {
                evaluate(i);
            }
            evaluated = false;
            auto const& measured = accum.measured_list;
            pack::knuth::knuth const* previous = i > 0 ? &measured[i - 1] : nullptr;
            if (!legal_break(previous, measured[i])) {
                ++i;
                continue;
            }
            std::size_t const end = i + 1;
            fbp cand = candidate(curr, end, threshold);
            if (too_long(cand.adjustment_ratio)) {
                // Perhaps a word since the last checkpoint hyphenates.
                auto const from = cp.cp_index;
                line_kind const kind = std::holds_alternative<start>(curr->fbp_type) && on_first_line(*curr) ? line_kind::first_line
                                                                                          : line_kind::other_line;
                std::optional<eval_knuth::hyphenated> h;
                if (unhyphenated != std::pair{from, kind}) {
                    h = eval_knuth::try_hyphenate(env, kind, from > 0 ? &accum.measured_list[from - 1] : nullptr,
                                                  std::span<pack::knuth::knuth const>(items).subspan(from));
                    if (!h) {
                        unhyphenated = std::pair{from, kind};
                    }
                }
                if (h) {
                    back_to_checkpoint();
                    replace_items(from + h->word_index, 1, h->word_parts);
                    i = from;
                    continue;
                }
                if (!fbps.empty()) {
                    fbp last = candidate(fbps.back(), end, threshold);
                    if (too_long(last.adjustment_ratio) && fbps.back()->index < static_cast<int>(cp.cp_index) &&
                        static_cast<int>(cp.cp_index) > curr->index) {
                        // Give up on the alternatives: break where the line last fitted, as a last
                        // resort, and go on from there.
                        std::size_t const at = cp.cp_index;
                        back_to_checkpoint();
                        curr = share(candidate(curr, at, std::nullopt));
                        fbps.clear();
                        take_checkpoint(at);
                        i = at;
                        continue;
                    }
                    // The oldest alternative becomes the break to measure from.
                    curr = fbps.front();
                    fbps.erase(fbps.begin());
                    evaluated = true;
                    continue;
                }
                if (cp.cp_index > static_cast<std::size_t>(curr->index)) {
                    // The line could have ended earlier, only too loosely. A loose line is better than
                    // text over the margin: break there, as a last resort, and go on from there.
                    std::size_t const at = cp.cp_index;
                    back_to_checkpoint();
                    curr = share(candidate(curr, at, std::nullopt));
                    take_checkpoint(at);
                    i = at;
                    continue;
                }
                i = overfull(std::move(cand), end);
                continue;
            }
            if (too_loose(cand.adjustment_ratio)) {
                take_checkpoint(end);
                ++i;
                continue;
            }
            // A feasible break: the best way to reach it, from `curr` or from any alternative still
            // close enough to make a line.
            fbp best = std::move(cand);
            for (auto const& e : fbps) {
                fbp c = candidate(e, end, threshold);
                if (too_loose(c.adjustment_ratio)) {
                    break;
                }
                if (!more_demerits(c.fbp_demerits, best.fbp_demerits)) {
                    best = std::move(c);
                }
            }
            if (is_forced_break(accum.measured_list[i])) {
                curr = share(std::move(best));
                fbps.clear();
            } else {
                fbps.push_back(share(std::move(best)));
            }
            take_checkpoint(end);
            ++i;
        }

        ref<fbp> last = fbps.empty() ? curr : fbps.back();
        check(last != nullptr, "break_lines failed.");
        std::vector<ref<fbp>> chain;
        for (ref<fbp> f = last; f != nullptr;) {
            auto const* v = std::get_if<via>(&f->fbp_type);
            if (v == nullptr) {
                break;
            }
            chain.push_back(f);
            f = v->via_fbp;
        }
        break_res res;
        for (auto it = chain.rbegin(); it != chain.rend(); ++it) {
            fbp const& f = **it;
            fbp const& from = *std::get<via>(f.fbp_type).via_fbp;
            auto const& acc = accum_for(from).measured_list;
            check(from.index <= f.index && f.index <= static_cast<int>(acc.size()), "make_break_point failed.");
            // The items before the last checkpoint never change again, so the line is made from them
            // as it was measured.
            line_kind const kind = kind_after(from);
            auto line = eval_knuth::trim_line(
                env, kind, std::span<pack::knuth::knuth const>(acc.begin() + from.index, acc.begin() + f.index));
            if (auto box = indent_box(params.used_indent, kind)) {
                line.insert(line.begin(), std::move(*box));
            }
            res.res_lines.push_back(knuth_line{
                .start_index = from.index,
                .end_index = f.index,
                .break_type = f.fbp_break_type,
                .line_content = std::move(line),
                .adjustment_ratio = f.adjustment_ratio,
                .art = f.art,
            });
        }
        res.res_items = std::move(accum.measured_list);
        res.res_page_info = std::move(page_info);
        return res;
    }
};

} // namespace

break_res break_lines(eval_knuth::eval_env const& env,
                      break_params const& params,
                      eval_knuth::page_state page_info,
                      std::vector<pack::knuth::knuth> items) {
    breaker b{.env = env, .params = params, .items = std::move(items)};
    return b.run(std::move(page_info));
}

} // namespace vellum::pack::total_fit
