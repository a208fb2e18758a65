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
