#include "driver/pack_loop.hpp"

namespace vellum::pack_loop {

bool needs_another_pass(pack_state const& before, pass_report const& after) {
    if (after.report_uses_page_counts && after.report_first_pages != before.pack_first_pages) {
        return true;
    }
    // A target looked up counts when it is known to both passes and moved; one that no pass can place
    // does not hold the loop.
    for (auto const& [id, page] : after.report_targets) {
        if (!after.report_looked_up.contains(id)) {
            continue;
        }
        auto const old = before.pack_targets.find(id);
        if (old != before.pack_targets.end() && old->second != page) {
            return true;
        }
    }
    // The counters at a target are known from the pass that placed it: the first pass shows 0 for
    // each target further on, so a document that shows a chapter's number by target-counter() needs a
    // second pass even when no page number is shown.
    auto const& was = before.pack_found->counters;
    auto const& now = after.report_found->counters;
    for (auto const& id : after.report_looked_up_counters) {
        auto const old = was.find(id);
        auto const found = now.find(id);
        bool const had = old != was.end();
        if (had != (found != now.end()) || (had && old->second != found->second)) {
            return true;
        }
    }
    return false;
}

target_map targets_of(prepack::targets::pass_targets const& found) {
    target_map out;
    for (auto const& [key, place] : found.page_nums) {
        out.emplace(key, place.num);
    }
    return out;
}

target_map initial_targets(std::vector<prepack::targets::target_key> const& target_ids) {
    target_map out;
    for (auto const& id : target_ids) {
        out.emplace(id, std::nullopt);
    }
    return out;
}

} // namespace vellum::pack_loop
