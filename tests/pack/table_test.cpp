#include "pack/border_collapse.hpp"
#include "pack/pad_table.hpp"
#include "pack/table_layout.hpp"

#include <string>

#include <gtest/gtest.h>

namespace vellum::pack {
namespace {

// ---- the grid ----

prepack::cell cell(int colspan = 1, int rowspan = 1) {
    return prepack::cell_cell{prepack::cell0{.cell_style = css::style::initial_style(),
                                             .cell_colspan = colspan,
                                             .cell_rowspan = rowspan}};
}

prepack::row row(std::vector<prepack::cell> cells) { return prepack::row{.row_content = std::move(cells)}; }

// The grid as letters: C a cell (its spans after it), - a colspan entry, | a rowspan entry, . an
// empty cell made by padding.
std::string picture(std::vector<prepack::row> const& rows) {
    std::string out;
    for (auto const& r : rows) {
        for (auto const& c : r.row_content) {
            if (pad_table::is_empty_padding(c)) {
                out += ".";
            } else if (auto const* cc = std::get_if<prepack::cell_cell>(&c)) {
                out += "C" + std::to_string(cc->cell.cell_colspan) + std::to_string(cc->cell.cell_rowspan);
            } else if (std::holds_alternative<prepack::cell_colspan>(c)) {
                out += "-";
            } else {
                out += "|";
            }
            out += " ";
        }
        out += "/ ";
    }
    return out;
}

TEST(pad_table, pads_spans_and_short_rows) {
    struct pad_case {
        char const* name;
        std::vector<prepack::row> rows;
        int columns;
        std::string expected;
    };
    pad_case const cases[] = {
        {"short row gets empty cells", {row({cell(), cell()}), row({cell()})}, 2, "C11 C11 / C11 . / "},
        {"colspan", {row({cell(2), cell()}), row({cell(), cell(), cell()})}, 3, "C21 - C11 / C11 C11 C11 / "},
        {"rowspan passes down", {row({cell(1, 2), cell()}), row({cell()})}, 2, "C12 C11 / | C11 / "},
        {"rowspan cut at the group's end", {row({cell(1, 3), cell()}), row({cell()})}, 2, "C12 C11 / | C11 / "},
        {"colspan cut by a rowspan from above",
         {row({cell(), cell(1, 2)}), row({cell(3)})},
         2,
         "C11 C12 / C11 | / "},
        {"cell spanning rows and columns",
         {row({cell(2, 2), cell()}), row({cell()}), row({cell(), cell(), cell()})},
         3,
         "C22 - C11 / | | C11 / C11 C11 C11 / "},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(pad_table::column_count(c.rows), c.columns);
        EXPECT_EQ(picture(pad_table::pad_rows(c.rows, c.columns)), c.expected);
    }
}

TEST(pad_table, counts_columns_held_from_above) {
    // The second row starts right of the rowspan and so reaches a third column.
    std::vector<prepack::row> rows{row({cell(1, 2), cell()}), row({cell(), cell()})};
    EXPECT_EQ(pad_table::column_count(rows), 3);
    EXPECT_EQ(picture(pad_table::pad_rows(rows, 3)), "C12 C11 . / | C11 C11 / ");
}

// ---- column widths ----

using table_layout::cell_width;

std::vector<float> auto_widths(std::vector<css::box::width> specs, std::vector<cell_width> cells, float width) {
    auto cols = table_layout::auto_columns(log::log{}, specs, cells, 0);
    return table_layout::auto_layout(std::move(cols), width);
}

void expect_widths(std::vector<float> const& got, std::vector<float> const& want) {
    ASSERT_EQ(got.size(), want.size());
    for (std::size_t i = 0; i < got.size(); ++i) {
        EXPECT_NEAR(got[i], want[i], 0.01) << "column " << i;
    }
}

TEST(table_layout, auto_layout_by_content) {
    css::box::width const a = css::box::auto_value{};
    // Widths in proportion to the unwrapped content.
    expect_widths(auto_widths({a, a}, {{0, 1, a, 10, 100}, {1, 1, a, 10, 300}}, 200), {50, 150});
    // All automatic with no content: equal shares.
    expect_widths(auto_widths({a, a, a}, {}, 300), {100, 100, 100});
    // Minimums wider than the table are kept: the table overflows.
    expect_widths(auto_widths({a, a}, {{0, 1, a, 150, 200}, {1, 1, a, 100, 100}}, 200), {150, 100});
}

TEST(table_layout, percent_length_and_auto_columns) {
    css::box::width const a = css::box::auto_value{};
    std::vector<cell_width> cells{{0, 1, css::units::percentage{50}, 0, 0},
                                  {1, 1, 100.0f, 0, 0},
                                  {2, 1, a, 0, 500}};
    auto w = auto_widths({a, a, a}, cells, 400);
    expect_widths(w, {200, 100, 100});
}

TEST(table_layout, percentages_clamped_to_100) {
    css::box::width const a = css::box::auto_value{};
    auto cols = table_layout::auto_columns(
        log::log{}, {a, a, a},
        {{0, 1, css::units::percentage{70}, 0, 0}, {1, 1, css::units::percentage{50}, 0, 0}, {2, 1, css::units::percentage{10}, 0, 0}},
        0);
    EXPECT_EQ(std::get<css::units::percentage>(cols[0].column_specw).percentage_value, 70);
    EXPECT_EQ(std::get<css::units::percentage>(cols[1].column_specw).percentage_value, 30);
    EXPECT_TRUE(std::holds_alternative<css::box::auto_value>(cols[2].column_specw));
}

TEST(table_layout, spanning_cell_widens_its_columns) {
    css::box::width const a = css::box::auto_value{};
    // A spanning cell whose minimum exceeds its columns' shares the excess by their maximums.
    auto cols = table_layout::auto_columns(log::log{}, {a, a},
                                           {{0, 1, a, 10, 10}, {1, 1, a, 10, 30}, {0, 2, a, 100, 100}}, 4);
    EXPECT_NEAR(cols[0].column_minw + cols[1].column_minw, 96, 0.01);
    EXPECT_NEAR(cols[0].column_minw, 10 + 76 * 10 / 40.0, 0.01);
    // A length on a spanning cell over automatic columns turns them into lengths by their content.
    auto lens = table_layout::auto_columns(log::log{}, {a, a}, {{0, 1, a, 0, 10}, {1, 1, a, 0, 30}, {0, 2, 80.0f, 0, 0}}, 0);
    EXPECT_NEAR(std::get<float>(lens[0].column_specw), 20, 0.01);
    EXPECT_NEAR(std::get<float>(lens[1].column_specw), 60, 0.01);
}

TEST(table_layout, table_width) {
    css::box::width const a = css::box::auto_value{};
    auto cols = table_layout::auto_columns(log::log{}, {a, a}, {{0, 1, a, 20, 100}, {1, 1, a, 20, 50}}, 0);
    EXPECT_NEAR(table_layout::auto_table_width(cols, std::nullopt, 500, 10), 160, 0.01);
    EXPECT_NEAR(table_layout::auto_table_width(cols, std::nullopt, 100, 10), 100, 0.01);
    EXPECT_NEAR(table_layout::auto_table_width(cols, 30.0f, 500, 10), 50, 0.01);
    // A 50% column with content 100 next to content 50: the table grows so that 50% is 100.
    auto pc = table_layout::auto_columns(log::log{}, {a, a},
                                         {{0, 1, css::units::percentage{50}, 20, 100}, {1, 1, a, 20, 50}}, 0);
    EXPECT_NEAR(table_layout::auto_table_width(pc, std::nullopt, 500, 0), 200, 0.01);
}

TEST(table_layout, fixed_layout) {
    css::box::width const a = css::box::auto_value{};
    // col widths win over the first row; auto columns share what is left.
    auto w = table_layout::fixed_layout(log::log{}, {100.0f, a, a}, {{0, 1, 50.0f, 0, 0}, {1, 1, css::units::percentage{25}, 0, 0}, {2, 1, a, 0, 0}}, 400, 0);
    expect_widths(w, {100, 100, 200});
    // A cell length spread over its columns.
    expect_widths(table_layout::fixed_layout(log::log{}, {a, a, a}, {{0, 2, 100.0f, 0, 0}}, 300, 0), {50, 50, 200});
    // All fixed and narrower than the table: widened in proportion.
    expect_widths(table_layout::fixed_layout(log::log{}, {100.0f, 50.0f}, {}, 300, 0), {200, 100});
}

// ---- collapsed borders ----

using border_collapse::candidate;
using border_collapse::origin;
using css::box::line_style;

candidate side(line_style s, float w, origin o, css::color::color c = css::color::black()) {
    return candidate{css::box::border{.border_color = c, .border_style = s, .border_width = w}, o};
}

TEST(border_collapse, conflict_resolution) {
    struct conflict_case {
        char const* name;
        candidate first;
        candidate second;
        bool first_wins;
    };
    conflict_case const cases[] = {
        {"hidden beats wider", side(line_style::solid, 5, origin::cell), side(line_style::hidden, 1, origin::table), false},
        {"none loses to anything", side(line_style::none, 5, origin::cell), side(line_style::dotted, 1, origin::table), false},
        {"wider wins", side(line_style::double_, 2, origin::cell), side(line_style::inset, 3, origin::table), false},
        {"double beats solid", side(line_style::solid, 2, origin::cell), side(line_style::double_, 2, origin::table), false},
        {"solid beats dashed", side(line_style::solid, 2, origin::table), side(line_style::dashed, 2, origin::cell), true},
        {"dashed beats dotted", side(line_style::dotted, 2, origin::cell), side(line_style::dashed, 2, origin::row), false},
        {"dotted beats ridge", side(line_style::dotted, 2, origin::table), side(line_style::ridge, 2, origin::cell), true},
        {"ridge beats outset", side(line_style::outset, 2, origin::cell), side(line_style::ridge, 2, origin::table), false},
        {"outset beats groove", side(line_style::outset, 2, origin::table), side(line_style::groove, 2, origin::cell), true},
        {"groove beats inset", side(line_style::inset, 2, origin::cell), side(line_style::groove, 2, origin::table), false},
        {"cell beats row", side(line_style::solid, 2, origin::row), side(line_style::solid, 2, origin::cell), false},
        {"row beats row group", side(line_style::solid, 2, origin::row), side(line_style::solid, 2, origin::row_group), true},
        {"column beats column group", side(line_style::solid, 2, origin::column_group), side(line_style::solid, 2, origin::column), false},
        {"tie: the left or upper one", side(line_style::solid, 2, origin::cell, css::color::rgb{1, 0, 0}),
         side(line_style::solid, 2, origin::cell), true},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(border_collapse::winner(c.first, c.second), c.first_wins ? c.first : c.second);
    }
}

css::box::borders all(line_style s, float w) {
    css::box::borders b;
    for (auto* side : {&b.borders_top, &b.borders_right, &b.borders_bottom, &b.borders_left}) {
        *side = css::box::border{.border_style = s, .border_width = w};
    }
    return b;
}

TEST(border_collapse, resolves_a_grid) {
    // 2x2: a table border of 4, cell borders of 1, the bottom right cell with 2, the top left cell
    // spanning no more; a cell spanning the second row.
    border_collapse::grid g{.grid_rows = 2, .grid_columns = 2, .grid_table = all(line_style::solid, 4)};
    g.grid_cells = {{0, 0, 1, 1, all(line_style::solid, 1)},
                    {0, 1, 1, 1, all(line_style::solid, 1)},
                    {1, 0, 1, 2, all(line_style::dashed, 2)}};
    auto const r = border_collapse::resolve(g);
    EXPECT_EQ(r.above(0, 0).border_width, 4);       // the table's wider top
    EXPECT_EQ(r.above(1, 0).border_width, 2);       // the spanning cell's wider top
    EXPECT_EQ(r.above(1, 0).border_style, line_style::dashed);
    EXPECT_EQ(r.left_of(0, 1).border_width, 1);     // between the two cells of the first row
    EXPECT_EQ(r.left_of(1, 1).border_style, line_style::none); // inside the spanning cell
    EXPECT_EQ(r.left_of(1, 2).border_width, 4);
    auto const halves = border_collapse::cell_halves(r, 1, 0, 1, 2);
    EXPECT_EQ(halves.borders_top.border_width, 1);
    EXPECT_EQ(halves.borders_bottom.border_width, 2);
    EXPECT_EQ(halves.borders_left.border_width, 2);
}

} // namespace
} // namespace vellum::pack
