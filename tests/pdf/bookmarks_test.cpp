#include "pdf/bookmarks.hpp"

#include <gtest/gtest.h>

namespace vellum::pdf {
namespace {

pack::packed_bookmark mark(int level, std::string label, int page = 1) {
    return {.bookmark_level = level, .bookmark_label = std::move(label), .bookmark_page = page, .bookmark_y = 500.4f};
}

// The tree as text: each entry's title, its children in brackets.
std::string shape(std::vector<outlines::outline> const& items) {
    std::string out;
    for (auto const& o : items) {
        out += o.title;
        if (!o.children.empty()) {
            out += "[" + shape(o.children) + "]";
        }
        out += " ";
    }
    return out;
}

TEST(bookmarks, nest_under_the_nearest_earlier_entry_of_a_lower_level) {
    auto const tree = bookmarks::outline_of({mark(1, "A"), mark(2, "A1"), mark(3, "A1a"), mark(2, "A2"),
                                             mark(1, "B"), mark(3, "B-deep"), mark(2, "B1"), mark(1, "C")});
    EXPECT_EQ(shape(tree), "A[A1[A1a ] A2 ] B[B-deep B1 ] C ");
    // Entries before any of a lower level stand at the top.
    EXPECT_EQ(shape(bookmarks::outline_of({mark(2, "x"), mark(3, "y"), mark(1, "z")})), "x[y ] z ");
    EXPECT_TRUE(bookmarks::outline_of({}).empty());
}

TEST(bookmarks, lead_to_their_page_and_keep_their_state) {
    auto m = mark(1, "Closed", 7);
    m.bookmark_state = css::box::bookmark_state::closed;
    m.bookmark_x = 30;
    auto const tree = bookmarks::outline_of({m});
    ASSERT_EQ(tree.size(), 1u);
    EXPECT_EQ(tree[0].state, outlines::outline_state::closed);
    auto const& d = std::get<outlines::dest_target>(tree[0].target).target;
    EXPECT_EQ(d, dest::dest{dest::target_position(7, 30, 500.4)});
    EXPECT_EQ(std::get<dest::xyz>(std::get<dest::explicit_dest>(d).align).top, number{std::int64_t{500}});
}

TEST(bookmarks, a_web_address_becomes_an_action) {
    auto m = mark(1, "Web");
    m.bookmark_url = "http://example.com/";
    auto const tree = bookmarks::outline_of({m});
    ASSERT_EQ(tree.size(), 1u);
    auto const& a = std::get<outlines::action_target>(tree[0].target).target;
    EXPECT_EQ(std::get<action::uri>(a).uri_text, "http://example.com/");
}

} // namespace
} // namespace vellum::pdf
