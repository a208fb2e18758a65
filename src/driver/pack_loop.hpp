// The repeated packing passes that settle cross-references: a pass lays out every page with the page
// numbers that the previous pass found for each target, and passes repeat until those stand still.
#pragma once

#include "driver/log.hpp"
#include "prepack/targets.hpp"

#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace vellum::pack_loop {

/// The page of each known target; nothing while no pass has placed it yet.
using target_map = std::map<prepack::targets::target_key, std::optional<prepack::targets::page_num>>;

/// What a pass is given: the targets' pages from the pass before (also what the pass before found at
/// them), and where each document's pages start.
struct pack_state {
    target_map pack_targets;
    std::vector<int> pack_first_pages = {1};
    std::shared_ptr<prepack::targets::pass_targets const> pack_found =
        std::make_shared<prepack::targets::pass_targets const>();
};

/// The target map of what a pass found.
target_map targets_of(prepack::targets::pass_targets const& found);

/// What a pass reports about cross-references, besides its pages.
struct pass_report {
    target_map report_targets;
    std::shared_ptr<prepack::targets::pass_targets const> report_found =
        std::make_shared<prepack::targets::pass_targets const>();
    /// The targets whose page the pass looked up.
    std::set<std::string> report_looked_up;
    /// The targets whose other counters the pass looked up.
    std::set<std::string> report_looked_up_counters;
    /// Whether the layout depends on page counts (as `counter(pages)` does).
    bool report_uses_page_counts = false;
    /// One entry per document, with each document's last page number at its head.
    std::vector<int> report_first_pages;
};

/// Whether the layout of a pass may still change: a page count it used, or a looked-up target, moved,
/// or the counters at a target it looked up changed.
bool needs_another_pass(pack_state const& before, pass_report const& after);

/// Every target known to the registry, with no page yet.
target_map initial_targets(std::vector<prepack::targets::target_key> const& target_ids);

/// Runs passes until the page numbers they depend on are stable; returns the last pass's result.
/// `pass(state)` gives a value with a `pass_report` field named `pass_report_of`.
template <class Pass>
auto run(log::log const& log, target_map initial, Pass&& pass) {
    pack_state state{.pack_targets = std::move(initial)};
    for (;;) {
        log::log_debug(log, "pack");
        auto outcome = pass(std::as_const(state));
        pass_report const& report = outcome.pass_report_of;
        if (!needs_another_pass(state, report)) {
            return outcome;
        }
        // There is deliberately no limit: a document whose references never settle keeps going.
        log::log_progress_stage(log, "Resolving cross-references...");
        state = {.pack_targets = report.report_targets,
                 .pack_first_pages = report.report_first_pages,
                 .pack_found = report.report_found};
    }
}

} // namespace vellum::pack_loop
