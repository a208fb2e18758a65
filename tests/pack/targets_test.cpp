#include "pack/page_info.hpp"

#include <gtest/gtest.h>

namespace vellum::pack {
namespace {

prepack::target_name target(std::string id) {
    return {.target_docname = resource::locator::web{.web_url = "http://x/doc.html"}, .target_id = std::move(id)};
}

general with_targets() {
    prepack::targets::pass_targets t;
    t.page_nums[prepack::targets::key_of(target("fig"))] = {
        .num = {.pdf_page_num = 12, .document_page_num = 10, .user_page_num = 8}, .y = 300};
    // Scopes are innermost first.
    t.counters[prepack::targets::key_of(target("fig"))] = {{{"figure", 3}}, {{"chapter", 2}, {"figure", 1}}};
    general g;
    own_run(g).targets = std::make_shared<prepack::targets::pass_targets const>(std::move(t));
    g.user_pages_total = 40;
    return g;
}

std::string text_of(general const& g, prepack::target_counter const& t) {
    return textbuf::to_utf8(target_counter_text(g, t));
}

TEST(target_counters, read_the_previous_pass_and_note_what_was_looked_up) {
    auto const g = with_targets();
    // The page shown is the `page` counter of the target's page, not its place in the file.
    EXPECT_EQ(text_of(g, {.target = target("fig"), .counter_name = "page", .counter_style = "decimal"}), "8");
    EXPECT_EQ(text_of(g, {.target = target("fig"), .counter_name = "page", .counter_style = "upper-roman"}),
              "VIII");
    EXPECT_TRUE(g.run->looked_up->pages.contains(prepack::targets::key_of(target("fig"))));
    EXPECT_FALSE(g.run->looked_up->pages_total);
    EXPECT_EQ(text_of(g, {.target = target("fig"), .counter_name = "pages", .counter_style = "decimal"}), "40");
    EXPECT_TRUE(g.run->looked_up->pages_total);
    // A target not packed in the previous pass shows zero, and is still noted.
    EXPECT_EQ(text_of(g, {.target = target("nope"), .counter_name = "page", .counter_style = "decimal"}), "0");
    EXPECT_TRUE(g.run->looked_up->pages.contains(prepack::targets::key_of(target("nope"))));
}

TEST(target_counters, give_the_innermost_value_or_all_joined) {
    auto const g = with_targets();
    EXPECT_EQ(text_of(g, {.target = target("fig"), .counter_name = "figure", .counter_style = "decimal"}), "3");
    EXPECT_EQ(text_of(g, {.target = target("fig"),
                          .counter_name = "figure",
                          .counter_style = "lower-alpha",
                          .counter_join = "."}),
              "a.c");
    EXPECT_EQ(text_of(g, {.target = target("fig"), .counter_name = "chapter", .counter_style = "decimal"}), "2");
    EXPECT_EQ(text_of(g, {.target = target("fig"), .counter_name = "none", .counter_style = "decimal"}), "0");
}

} // namespace
} // namespace vellum::pack
