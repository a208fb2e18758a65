#include "pack/page_info.hpp"

#include "pack/spans_to_knuth.hpp"
#include "prepack/counter_style.hpp"

#include <algorithm>
#include <string>

namespace vellum::pack {

namespace {

using prepack::counter_style::format_counter;

// A counter at a target, from what the previous pass found there or this pass placed. A target not
// placed yet shows as zero in the counter's style; the next pass corrects it.
textbuf::textbuf target_counter_text(run_shared const& run,
                                     prepack::targets::looked_up& looked_up,
                                     std::optional<int> pages,
                                     prepack::target_counter const& t) {
    auto const key = prepack::targets::key_of(t.target);
    if (t.counter_name == "page") {
        looked_up.pages.insert(key);
        auto const* found = target_answer(run, key);
        looked_up.unanswered = looked_up.unanswered || found == nullptr;
        return format_counter(found == nullptr ? 0 : found->num.user_page_num, t.counter_style);
    }
    if (t.counter_name == "pages") {
        looked_up.pages_total = true;
        looked_up.unanswered = looked_up.unanswered || !pages;
        return format_counter(pages.value_or(0), t.counter_style);
    }
    looked_up.counters.insert(key);
    auto const* found = counters_answer(run, key);
    looked_up.unanswered = looked_up.unanswered || found == nullptr;
    std::vector<int> values;
    if (found != nullptr) {
        // Scopes are innermost first; counters() lists them from the outermost.
        for (auto const& scope : *found) {
            for (auto const& [name, value] : scope) {
                if (name == t.counter_name) {
                    values.insert(values.begin(), value);
                }
            }
        }
    }
    if (values.empty()) {
        return format_counter(0, t.counter_style);
    }
    if (!t.counter_join) {
        return format_counter(values.back(), t.counter_style);
    }
    textbuf::textbuf out;
    for (std::size_t i = 0; i < values.size(); ++i) {
        if (i > 0) {
            out += textbuf::from_utf8(*t.counter_join);
        }
        out += format_counter(values[i], t.counter_style);
    }
    return out;
}

// The `pages` counter of the page: an override, else the total of the previous pass.
std::optional<int> pages_of(general const& g) {
    if (g.user_pages_counter) {
        return g.user_pages_counter;
    }
    return g.user_pages_total;
}

} // namespace

namespace {

// What the previous pass found of a target in one of its maps (pages or counters), else what this pass
// found in the same map so far.
template <class Map>
typename Map::mapped_type const* answer_in(run_shared const& run,
                                           Map prepack::targets::pass_targets::*map,
                                           prepack::targets::target_key const& key) {
    for (auto const* targets : {run.targets.get(), run.placed.get()}) {
        if (targets == nullptr) {
            continue;
        }
        auto const& m = targets->*map;
        if (auto const found = m.find(key); found != m.end()) {
            return &found->second;
        }
    }
    return nullptr;
}

} // namespace

prepack::targets::target_place const* target_answer(run_shared const& run,
                                                    prepack::targets::target_key const& key) {
    return answer_in(run, &prepack::targets::pass_targets::page_nums, key);
}

prepack::counter_scopes const* counters_answer(run_shared const& run,
                                               prepack::targets::target_key const& key) {
    return answer_in(run, &prepack::targets::pass_targets::counters, key);
}

textbuf::textbuf target_counter_text(general const& g, prepack::target_counter const& t) {
    return target_counter_text(*g.run, *g.run->looked_up, pages_of(g), t);
}

eval_knuth::eval_env env_of(page_info const& info) {
    auto const& g = info.general;
    eval_knuth::eval_env env{
        .env_log = g.run->log,
        .env_shape = eval_knuth::shaper_of(g.run->fonts, g.run->shapes),
        .env_patterns =
            [](css::text::hyphenate_patterns const&) {
                return std::optional<ref<hyphen_parser::hyphen_rules>>();
            },
    };
    if (g.run->loader) {
        env.env_patterns = eval_knuth::patterns_of(g.run->log, *g.run->hyph, g.run->loader);
        // The patterns come from this cache, which holds them for the run: its words can be kept by them.
        env.env_hyph = g.run->hyph.get();
    }
    int const page = g.user_page_num;
    std::optional<int> const pages = pages_of(g);
    env.env_render_counter = [page, pages,
                              run = g.run](knuth::counter const& c,
                                           eval_knuth::page_state const& state) -> textbuf::textbuf {
        return std::visit(
            overloaded{
                [&](prepack::page_counter const& p) { return format_counter(page, p.counter_style); },
                [&](prepack::pages_counter const& p) {
                    // On the first pass the total is not known yet; the page count so far
                    // stands in, and the next pass corrects it.
                    run->looked_up->pages_total = true;
                    run->looked_up->unanswered = run->looked_up->unanswered || !pages;
                    return format_counter(pages.value_or(page), p.counter_style);
                },
                [&](prepack::footnote_counter const& f) {
                    return format_counter(state.footnote_counter, f.counter_style);
                },
                [&](prepack::target_counter const& t) {
                    return target_counter_text(*run, *run->looked_up, pages, t);
                },
            },
            *c.counter_content);
    };
    if (g.run->scripts) {
        env.env_call_script = spans_to_knuth::script_caller_of(info, g.run->scripts, *env.env_render_counter);
    }
    return env;
}

namespace {

std::span<page_footnote const> notes_in(page_footnote_list const& list) {
    if (!list) {
        return {};
    }
    return *list;
}

// The list with one footnote more: a new shared list, since copies of the page's state share the old.
page_footnote_list appended(page_footnote_list const& list, page_footnote f) {
    auto const old = notes_in(list);
    std::vector<page_footnote> out;
    out.reserve(old.size() + 1);
    out.assign(old.begin(), old.end());
    out.push_back(std::move(f));
    return share(std::move(out));
}

} // namespace

std::span<page_footnote const> footnotes_of(accum const& a) {
    return notes_in(a.page_footnotes);
}

void add_footnote(accum& a, page_footnote f) {
    a.page_footnotes = appended(a.page_footnotes, std::move(f));
}

std::span<page_footnote const> column_footnotes_of(accum const& a) {
    return notes_in(a.column_footnotes);
}

void add_column_footnote(accum& a, page_footnote f) {
    a.column_footnotes = appended(a.column_footnotes, std::move(f));
}

std::optional<float> footnote_floor(page_info const& info) {
    std::optional<float> floor;
    if (info.flags.pack_page_stuff && info.packed_stuff.footnotes_height > 0) {
        floor = info.general.body_area.bottom + info.packed_stuff.footnotes_height;
    }
    if (info.general.column_area && info.packed_stuff.column_footnotes_height > 0) {
        float const c = info.general.column_area->bottom + info.packed_stuff.column_footnotes_height;
        floor = std::max(floor.value_or(c), c);
    }
    return floor;
}

areas::areas above_footnotes(page_info const& info, areas::areas a) {
    if (auto const floor = footnote_floor(info); floor && a.container.bottom < *floor) {
        a.container.bottom = *floor;
        for (auto& band : a.available) {
            band.bottom = std::max(band.bottom, *floor);
        }
    }
    return a;
}

eval_knuth::page_state state_of(page_info const& info) {
    return {.footnote_counter = info.general.footnote_counter};
}

page_info with_state(page_info info, eval_knuth::page_state const& state) {
    info.general.footnote_counter = state.footnote_counter;
    return info;
}

} // namespace vellum::pack
