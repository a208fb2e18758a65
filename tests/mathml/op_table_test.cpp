#include "mathml/op_table.hpp"
#include "mathml/special_glyphs.hpp"
#include "text/opentype/math.hpp"

#include <fstream>
#include <sstream>

#include <gtest/gtest.h>

namespace vellum::mathml::op_table {
namespace {

std::string read_file(std::string const& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

op_table const& dictionary() {
    static op_table const t = [] {
        auto r = parse_op_table(read_file(std::string(VELLUM_SOURCE_DIR) + "/resources/math/operators.xml"));
        EXPECT_TRUE(r) << r.error();
        return r ? *r : op_table{};
    }();
    return t;
}

units::mathspace eighteenths(int n) {
    if (n == 0) {
        return units::length{0, units::unit::em};
    }
    return units::named{units::keyword(n - 1)};
}

TEST(op_table, dictionary_entries) {
    struct want {
        char const* text;
        op_form form;
        int lspace;
        int rspace;
        bool stretchy;
        bool symmetric;
        bool largeop;
        bool movablelimits;
        bool accent;
    };

    want const cases[] = {
        {"(", op_form::prefix, 0, 0, true, true, false, false, false},
        {")", op_form::postfix, 0, 0, true, true, false, false, false},
        {"+", op_form::infix, 4, 4, false, false, false, false, false},
        {"+", op_form::prefix, 0, 0, false, false, false, false, false},
        {"=", op_form::infix, 5, 5, false, false, false, false, false},
        {"\u2211", op_form::prefix, 1, 2, false, true, true, true, false},
        {"\u222b", op_form::prefix, 1, 2, false, true, true, false, false},
        {",", op_form::infix, 0, 3, false, false, false, false, false},
        {"\u2192", op_form::infix, 5, 5, true, false, false, false, false},
        {"lim", op_form::prefix, 0, 3, false, false, false, true, false},
        {"^", op_form::postfix, 0, 0, true, false, false, false, true},
        {"\u2062", op_form::infix, 0, 0, false, false, false, false, false},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.text);
        auto const s = find_op(dictionary(), c.text, c.form);
        ASSERT_TRUE(s);
        EXPECT_EQ(s->lspace, eighteenths(c.lspace));
        EXPECT_EQ(s->rspace, eighteenths(c.rspace));
        EXPECT_EQ(s->stretchy, c.stretchy);
        EXPECT_EQ(s->symmetric, c.symmetric);
        EXPECT_EQ(s->largeop, c.largeop);
        EXPECT_EQ(s->movablelimits, c.movablelimits);
        EXPECT_EQ(s->accent, c.accent);
    }
}

TEST(op_table, other_forms_and_defaults) {
    // A closing parenthesis first in a row is still the fence.
    auto const close = find_op(dictionary(), ")", op_form::prefix);
    ASSERT_TRUE(close);
    EXPECT_TRUE(close->stretchy);
    // The infix entry comes before the prefix one for a form the text lacks.
    auto const bar = find_op(dictionary(), "\u2211", op_form::postfix);
    ASSERT_TRUE(bar);
    EXPECT_TRUE(bar->largeop);
    // Unknown operators: thick spaces, no stretching, no size limit.
    EXPECT_FALSE(find_op(dictionary(), "\u263a", op_form::infix));
    auto const d = get_op_style(dictionary(), "\u263a", op_form::infix);
    EXPECT_EQ(d.lspace, (units::mathspace{units::named{units::keyword::thickmathspace}}));
    EXPECT_FALSE(d.stretchy);
    EXPECT_TRUE(std::holds_alternative<infinity>(d.maxsize));
    EXPECT_EQ(d.minsize, (minsize{multiplier{1.0}}));
}

TEST(op_table, file_values_and_errors) {
    auto const t =
        parse_op_table("<operators><op text=\"&#x2225;\" form=\"infix\" lspace=\"0.1em\" maxsize=\"200%\" "
                       "minsize=\"1.5\" stretchy=\"true\"/><op text=\"a\" form=\"postfix\" "
                       "maxsize=\"infinity\" rspace=\"negativethinmathspace\"/></operators>");
    ASSERT_TRUE(t) << t.error();
    auto const s = t->at({"\u2225", op_form::infix});
    EXPECT_EQ(s.lspace, (units::mathspace{units::length{0.1, units::unit::em}}));
    EXPECT_EQ(s.maxsize, (maxsize{multiplier{2.0}}));
    EXPECT_EQ(s.minsize, (minsize{multiplier{1.5}}));
    EXPECT_EQ(t->at({"a", op_form::postfix}).rspace,
              (units::mathspace{units::named{units::keyword::thinmathspace, true}}));
    EXPECT_FALSE(parse_op_table("<operators><op text=\"+\" form=\"infix\" stretchy=\"yes\"/></operators>"));
    EXPECT_FALSE(parse_op_table("<operators><op text=\"+\" form=\"sideways\"/></operators>"));
    EXPECT_FALSE(parse_op_table("<operators><op text=\"+\" form=\"infix\"></operators>"));
}

TEST(units, resolve_spaces_and_lengths) {
    EXPECT_DOUBLE_EQ(units::resolve(*units::parse_mathspace("thinmathspace"), 18, 9, 0), 3);
    EXPECT_DOUBLE_EQ(units::resolve(*units::parse_mathspace("negativemediummathspace"), 18, 9, 0), -4);
    EXPECT_DOUBLE_EQ(units::resolve(*units::parse_mathspace("2ex"), 18, 9, 0), 18);
    EXPECT_DOUBLE_EQ(units::resolve(*units::parse_mathspace("0em"), 18, 9, 0), 0);
    EXPECT_DOUBLE_EQ(units::resolve(*units::parse_mathspace("1.5em"), 18, 9, 0), 27);
    EXPECT_DOUBLE_EQ(units::resolve(*units::parse_mathspace("4px"), 18, 9, 0), 3);
    EXPECT_DOUBLE_EQ(units::resolve(*units::parse_mathspace(" 50% "), 18, 9, 10), 5);
    EXPECT_DOUBLE_EQ(units::resolve(*units::parse_mathspace("1.5"), 18, 9, 10), 15);
    EXPECT_FALSE(units::parse_mathspace("3 furlongs"));
    EXPECT_FALSE(units::parse_mathspace("wide"));
}

TEST(special_glyphs, outlines_stretch_by_their_shares) {
    auto const g = special_glyphs::parse_glyphs(
        read_file(std::string(VELLUM_SOURCE_DIR) + "/resources/math/glyphs.xml"));
    ASSERT_TRUE(g) << g.error();
    ASSERT_TRUE(g->contains("("));
    ASSERT_TRUE(g->contains("\u221a"));
    auto const& paren = g->at("(");
    auto const normal = svg::path_bbox(special_glyphs::stretched_path(paren, 10, 0, 0));
    auto const tall = svg::path_bbox(special_glyphs::stretched_path(paren, 10, 0, 20));
    ASSERT_TRUE(normal && tall);
    // Twenty points more: ten above, ten below, the width unchanged.
    EXPECT_NEAR(tall->y0, normal->y0 - 10, 1e-9);
    EXPECT_NEAR(tall->y1, normal->y1 + 10, 1e-9);
    EXPECT_NEAR(tall->x1 - tall->x0, normal->x1 - normal->x0, 1e-9);
    EXPECT_FALSE(
        special_glyphs::parse_glyphs("<glyphs><glyph text=\"(\"><contour><quadratic x=\"1\"/></contour>"
                                     "</glyph></glyphs>"));
    EXPECT_FALSE(special_glyphs::parse_glyphs("<glyphs><glyph text=\"(\" width=\"wide\"/></glyphs>"));
}

TEST(math_table, assembly_plans_reach_the_target) {
    namespace om = opentype::math;
    // A parenthesis of three parts as in DejaVu Math: a top and bottom hook, and a repeatable stem.
    std::vector<om::part> const parts{
        {.part_glyph = 1, .part_start_connector = 0, .part_end_connector = 209, .part_full_advance = 1295},
        {.part_glyph = 2,
         .part_start_connector = 418,
         .part_end_connector = 418,
         .part_full_advance = 418,
         .part_extender = true},
        {.part_glyph = 3, .part_start_connector = 209, .part_end_connector = 0, .part_full_advance = 1295}};
    for (double target : {2800.0, 3500.0, 6000.0}) {
        SCOPED_TRACE(target);
        auto const p = om::plan_assembly(parts, target, 40);
        ASSERT_TRUE(p);
        EXPECT_GE(p->plan_size + 1e-9, target);
        EXPECT_EQ(p->plan_glyphs.front().first, 1);
        EXPECT_EQ(p->plan_glyphs.back().first, 3);
        // Neighbours overlap by no less than the minimum and no more than their connectors.
        for (std::size_t i = 1; i < p->plan_glyphs.size(); ++i) {
            double const prev_end =
                p->plan_glyphs[i - 1].second + (p->plan_glyphs[i - 1].first == 2 ? 418 : 1295);
            double const overlap = prev_end - p->plan_glyphs[i].second;
            EXPECT_GE(overlap, 40 - 1e-9);
            EXPECT_LE(overlap, 209 + 1e-9);
        }
    }
    EXPECT_EQ(om::plan_assembly(parts, 2800, 40)->plan_glyphs.size(), 3u);
    EXPECT_GT(om::plan_assembly(parts, 6000, 40)->plan_glyphs.size(), 5u);
    EXPECT_FALSE(om::plan_assembly({}, 100, 0));
}

} // namespace
} // namespace vellum::mathml::op_table
