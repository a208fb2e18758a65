#include "driver/pack_loop.hpp"

#include <gtest/gtest.h>

namespace vellum {
namespace {

using pack_loop::pack_state;
using pack_loop::pass_report;

prepack::targets::page_num pg(int n) {
    return {.pdf_page_num = n, .document_page_num = n, .user_page_num = n};
}

TEST(pack_loop, decides_when_page_numbers_stand_still) {
    pack_state const before{.pack_targets = {{"a", pg(3)}, {"b", std::nullopt}}, .pack_first_pages = {1}};
    struct {
        char const* name;
        pass_report after;
        bool again;
    } const cases[] = {
        {"nothing moved", {.report_targets = {{"a", pg(3)}}, .report_looked_up = {"a"}, .report_first_pages = {9}}, false},
        {"looked-up target moved", {.report_targets = {{"a", pg(4)}}, .report_looked_up = {"a"}}, true},
        {"moved but never looked up", {.report_targets = {{"a", pg(4)}}, .report_looked_up = {}}, false},
        {"first placement of a looked-up target", {.report_targets = {{"b", pg(2)}}, .report_looked_up = {"b"}}, true},
        {"target unknown before", {.report_targets = {{"c", pg(2)}}, .report_looked_up = {"c"}}, false},
        {"page count used and changed",
         {.report_uses_page_counts = true, .report_first_pages = {12}},
         true},
        {"page count used, unchanged",
         {.report_uses_page_counts = true, .report_first_pages = {1}},
         false},
        {"page count changed, not used", {.report_first_pages = {12}}, false},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(pack_loop::needs_another_pass(before, c.after), c.again);
    }
}

TEST(pack_loop, a_looked_up_counter_that_changed_asks_for_another_pass) {
    using prepack::targets::pass_targets;
    prepack::counter_scopes const chapter3{{{"chapter", 3}}};
    prepack::counter_scopes const chapter4{{{"chapter", 4}}};
    auto found = [](std::map<std::string, prepack::counter_scopes> counters) {
        pass_targets t;
        for (auto& [k, v] : counters) {
            t.counters.emplace(k, v);
        }
        return std::make_shared<pass_targets const>(std::move(t));
    };
    // The first pass knows no counters: every looked-up target is new to it.
    pack_state const first{};
    EXPECT_TRUE(pack_loop::needs_another_pass(
        first, {.report_found = found({{"c3", chapter3}}), .report_looked_up_counters = {"c3"}}));
    // A target no pass places never holds the loop.
    EXPECT_FALSE(pack_loop::needs_another_pass(first, {.report_looked_up_counters = {"nowhere"}}));
    pack_state const second{.pack_found = found({{"c3", chapter3}})};
    EXPECT_FALSE(pack_loop::needs_another_pass(
        second, {.report_found = found({{"c3", chapter3}}), .report_looked_up_counters = {"c3"}}));
    EXPECT_TRUE(pack_loop::needs_another_pass(
        second, {.report_found = found({{"c3", chapter4}}), .report_looked_up_counters = {"c3"}}));
    // Counters that changed at a target nobody looked up don't count.
    EXPECT_FALSE(pack_loop::needs_another_pass(second, {.report_found = found({{"c3", chapter4}})}));
}

struct fake_outcome {
    int passes = 0;
    pass_report pass_report_of;
};

TEST(pack_loop, repeats_passes_with_the_previous_pass_numbers) {
    // A reference whose target moves once when its text is filled in: the first pass finds page 2,
    // the second page 3, the third confirms page 3.
    std::vector<pack_state> seen;
    int const pages[] = {2, 3, 3};
    std::FILE* out = std::tmpfile();
    log::log const l{.log_verbosity = log::verbosity::verbose,
                     .log_stderr = log::console_log::console_log{.progname = "vellum", .console_out = out}};
    auto const result = pack_loop::run(l, pack_loop::initial_targets({"fig"}), [&](pack_state const& s) {
        seen.push_back(s);
        int const n = int(seen.size());
        return fake_outcome{.passes = n,
                            .pass_report_of = {.report_targets = {{"fig", pg(pages[n - 1])}},
                                               .report_looked_up = {"fig"},
                                               .report_first_pages = {5}}};
    });
    EXPECT_EQ(result.passes, 3);
    ASSERT_EQ(seen.size(), 3u);
    EXPECT_EQ(seen[0].pack_targets.at("fig"), std::nullopt);
    EXPECT_EQ(seen[0].pack_first_pages, std::vector<int>{1});
    EXPECT_EQ(seen[1].pack_targets.at("fig"), pg(2));
    EXPECT_EQ(seen[2].pack_targets.at("fig"), pg(3));
    EXPECT_EQ(seen[2].pack_first_pages, std::vector<int>{5});
    std::fflush(out);
    std::rewind(out);
    char buf[512] = {};
    auto const n = std::fread(buf, 1, sizeof buf - 1, out);
    std::fclose(out);
    EXPECT_EQ(std::string(buf, n), "vellum: Resolving cross-references...\nvellum: Resolving cross-references...\n");
}

} // namespace
} // namespace vellum
