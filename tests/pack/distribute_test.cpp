#include "pack/distribute.hpp"

#include <algorithm>
#include <string>

#include <gtest/gtest.h>

namespace vellum::pack::distribute {
namespace {

column automatic(float minw, float maxw) {
    return {.column_minw = minw, .column_maxw = maxw};
}

column length(float w, float minw = 0) {
    return {.column_specw = w, .column_minw = minw, .column_maxw = minw};
}

column percent(float p, float minw = 0) {
    return {.column_specw = css::units::percentage{p}, .column_minw = minw, .column_maxw = minw};
}

std::vector<float> used(std::vector<column> const& cols) {
    std::vector<float> out;
    for (auto const& c : cols) {
        out.push_back(c.column_usedw);
    }
    return out;
}

TEST(distribute, shares_out_the_width) {
    struct distribute_case {
        char const* name;
        std::vector<column> columns;
        float width;
        std::vector<float> expected;
    };

    distribute_case const cases[] = {
        {"minimums already too wide", {automatic(100, 150), automatic(200, 250)}, 250, {100, 200}},
        {"automatic by content width", {automatic(10, 100), automatic(10, 300)}, 200, {50, 150}},
        {"automatic below its minimum is held there",
         {automatic(90, 100), automatic(10, 900)},
         500,
         {90, 410}},
        {"automatic without content share equally",
         {automatic(0, 0), automatic(0, 0), automatic(20, 0)},
         60,
         {40.0f / 3, 40.0f / 3, 20 + 40.0f / 3}},
        {"lengths get what they ask beside automatic", {length(100, 20), automatic(0, 200)}, 400, {100, 300}},
        {"lengths alone take all the width", {length(100), length(300)}, 800, {200, 600}},
        {"lengths alone shrink to the width", {length(100), length(300)}, 200, {50, 150}},
        {"percentages beside automatic", {percent(25), automatic(0, 100)}, 400, {100, 300}},
        {"percentages alone take all the width", {percent(20), percent(30)}, 100, {40, 60}},
        {"percentage below its minimum",
         {percent(10, 50), percent(40), automatic(0, 100)},
         200,
         {50, 50, 100}},
        {"all three kinds", {percent(50), length(60), automatic(0, 40)}, 300, {150, 60, 90}},
        {"no columns", {}, 100, {}},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.name);
        auto const got = used(distribute(c.columns, c.width));
        ASSERT_EQ(got.size(), c.expected.size());
        for (std::size_t i = 0; i < got.size(); ++i) {
            EXPECT_NEAR(got[i], c.expected[i], 0.001) << "column " << i;
        }
    }
}

TEST(distribute, marks_columns_held_at_their_minimum) {
    auto const out = distribute({automatic(90, 100), automatic(10, 900)}, 500);
    EXPECT_TRUE(out[0].column_final);
    EXPECT_FALSE(out[1].column_final);
    // Everything but the used width and the mark is kept.
    EXPECT_EQ(out[1].column_maxw, 900);
    EXPECT_EQ(out[1].column_minw, 10);
}

TEST(distribute, never_goes_below_a_minimum) {
    // A grid of cases: whatever the kinds, no column ends below its minimum, and when the minimums fit
    // the whole width is used.
    std::vector<std::vector<column>> const sets = {
        {automatic(30, 31), automatic(5, 1000), percent(5, 40), length(10, 25)},
        {percent(60, 10), percent(60, 10)},
        {length(500, 0), automatic(100, 100)},
        {automatic(0, 1), automatic(50, 50), automatic(0, 0)},
    };
    for (std::size_t s = 0; s < sets.size(); ++s) {
        for (float width : {50.0f, 120.0f, 400.0f, 2000.0f}) {
            SCOPED_TRACE("set " + std::to_string(s) + " width " + std::to_string(width));
            auto const out = distribute(sets[s], width);
            float sum = 0;
            float minimums = 0;
            for (auto const& c : out) {
                EXPECT_GE(c.column_usedw, c.column_minw - 0.001f);
                sum += c.column_usedw;
                minimums += c.column_minw;
            }
            bool const has_auto = std::ranges::any_of(out, [](column const& c) {
                return std::holds_alternative<css::box::auto_value>(c.column_specw);
            });
            if (minimums <= width && has_auto) {
                EXPECT_NEAR(sum, width, 0.01);
            }
        }
    }
}

} // namespace
} // namespace vellum::pack::distribute
