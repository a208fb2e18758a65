// Multi-column layout: the geometry of columns from count, width and gap, and whole documents packed
// through box generation into pages, checked through the columns' boxes: where each column stands,
// how tall it is, and which lines it holds.
#include "pack/columns.hpp"
#include "pack/pack.hpp"
#include "prepack/box_support.hpp"

#include <cmath>
#include <fstream>
#include <sstream>

#include "pack/pack_html.hpp"
#include "pack/test_fonts.hpp"

#include <unistd.h>

#include <gtest/gtest.h>

namespace vellum::pack {
namespace {

TEST(columns, geometry_from_count_width_and_gap) {
    struct row {
        char const* name;
        css::box::column_count count;
        css::box::column_width width;
        float gap;
        float available;
        columns::column_info expected;
    };
    using css::box::auto_value;
    std::vector<row> const rows{
        {"count alone shares the width", 3, auto_value{}, 20, 340, {100, 20, 3}},
        {"width alone sets the count", auto_value{}, 100.0f, 20, 340, {100, 20, 3}},
        {"a wider column than fits is one column", auto_value{}, 500.0f, 20, 340, {340, 0, 1}},
        {"width caps the count", 6, 150.0f, 20, 340, {160, 20, 2}},
        {"count caps the width's count", 2, 50.0f, 20, 340, {160, 20, 2}},
        {"columns stretch to fill", auto_value{}, 110.0f, 10, 340, {165, 10, 2}},
        {"gaps wider than the box leave empty columns", 4, auto_value{}, 200, 100, {0, 200, 4}},
    };
    for (auto const& r : rows) {
        SCOPED_TRACE(r.name);
        css::style::style s;
        css::style::own_rare_box(s).column_count = r.count;
        css::style::own_rare_box(s).column_width = r.width;
        s.column_gap = r.gap;
        auto const g = columns::column_geometry(s, r.available);
        EXPECT_EQ(g.column_total, r.expected.column_total);
        EXPECT_NEAR(g.column_width, r.expected.column_width, 0.01);
        EXPECT_NEAR(g.gap_width, r.expected.gap_width, 0.01);
    }
    css::style::style none;
    EXPECT_FALSE(columns::has_columns(none));
    css::style::own_rare_box(none).column_count = 2;
    EXPECT_TRUE(columns::has_columns(none));
}

// Pages of 200pt by 100pt plus margins of 10pt, lines of 10pt: ten lines fill a column.
std::string const page_css = "@page { size: 220pt 120pt; margin: 10pt } "
                             "body { margin: 0; font: 8pt/10pt Sans } p { margin: 0 }";

std::vector<ref<packed_page>> pack_html(std::string const& css, std::string const& body) {
    return test_pack::pack_html("columns", page_css + css, body);
}

int rounded(float x) {
    return static_cast<int>(std::lround(x));
}

int line_count(box const& b) {
    int n = 0;
    std::visit(overloaded{
                   [&](para const& p) { n += static_cast<int>(p.para_lines.size()); },
                   [&](boxes const& bs) {
                       for (auto const& c : bs.boxes_list) {
                           n += line_count(*c);
                       }
                   },
                   [&](column const& c) {
                       for (auto const& k : c.column_box.column_content) {
                           n += line_count(*k);
                       }
                   },
                   [](with_abs const&) {},
                   [](table_anony_box const&) {},
                   [](table const&) {},
                   [](list const&) {},
                   [](image const&) {},
               },
               b.box_content);
    return n;
}

// Each set of columns on the page, in order: "x=<left from the body> h=<height> lines=<n>" per column
// (every column of a set is as tall as the set), and "rule x=<x>" per rule, all relative to the page
// body's top left corner. A set nested in a column follows its outer set.
void dump_columns(std::ostringstream& out, box const& b, float left, float top) {
    if (auto const* c = std::get_if<column>(&b.box_content)) {
        out << "columns y=" << rounded(top - b.box_y) << " h=" << rounded(b.box_h) << "\n";
        for (auto const& k : c->column_box.column_content) {
            out << "  x=" << rounded(k->box_x - left) << " h=" << rounded(k->box_h) << " lines=" << line_count(*k)
                << "\n";
        }
        for (auto const& r : c->column_box.column_rules) {
            out << "  rule x=" << rounded(r.rulebox_pos.x - left) << " h=" << rounded(r.rulebox_length) << "\n";
        }
        for (auto const& k : c->column_box.column_content) {
            dump_columns(out, *k, left, top);
        }
        return;
    }
    if (auto const* bs = std::get_if<boxes>(&b.box_content)) {
        for (auto const& k : bs->boxes_list) {
            dump_columns(out, *k, left, top);
        }
    }
    if (auto const* t = std::get_if<table_anony_box>(&b.box_content)) {
        for (auto const& k : t->table_anony_boxes) {
            dump_columns(out, *k, left, top);
        }
    }
    if (auto const* t = std::get_if<table>(&b.box_content)) {
        for (auto const& r : t->table_box.rows) {
            dump_columns(out, *r.row_content, left, top);
        }
    }
}

std::string dump(std::vector<ref<packed_page>> const& pages) {
    std::ostringstream out;
    for (std::size_t i = 0; i < pages.size(); ++i) {
        out << "page " << i + 1 << "\n";
        auto const& body = pages[i]->body_box;
        for (auto const& b : body.body_content) {
            dump_columns(out, *b, body.body_pos.x, body.body_pos.y);
        }
    }
    return out.str();
}

std::string paras(int n, std::string const& attrs = "") {
    std::string out;
    for (int i = 0; i < n; ++i) {
        out += "<p" + attrs + ">line</p>";
    }
    return out;
}

TEST(columns, balanced_columns_share_the_lines) {
    // Seven lines in two columns: four and three, the set four lines tall.
    EXPECT_EQ(dump(pack_html(".m { columns: 2; column-gap: 20pt }", "<div class=m>" + paras(7) + "</div>")),
              "page 1\ncolumns y=0 h=40\n  x=0 h=40 lines=4\n  x=110 h=40 lines=3\n");
    // Nine lines in three columns of a paragraph split across them.
    EXPECT_EQ(dump(pack_html(".m { column-count: 3; column-gap: 10pt; orphans: 1; widows: 1 }",
                             "<div class=m><p>" + std::string("line<br>line<br>line<br>line<br>line<br>line<br>"
                                                              "line<br>line<br>line") +
                                 "</p></div>")),
              "page 1\ncolumns y=0 h=30\n  x=0 h=30 lines=3\n  x=70 h=30 lines=3\n  x=140 h=30 lines=3\n");
}

TEST(columns, fill_auto_fills_the_first_column_first) {
    EXPECT_EQ(dump(pack_html(".m { columns: 2; column-gap: 20pt; column-fill: auto }",
                             "<div class=m>" + paras(12) + "</div>")),
              "page 1\ncolumns y=0 h=100\n  x=0 h=100 lines=10\n  x=110 h=100 lines=2\n");
}

TEST(columns, content_goes_on_to_the_next_page_in_columns) {
    // Ten lines a column, two columns a page: 25 lines fill one page and leave five, balanced.
    EXPECT_EQ(dump(pack_html(".m { columns: 2; column-gap: 20pt; column-rule: 2pt solid }",
                             "<div class=m>" + paras(25) + "</div>")),
              "page 1\ncolumns y=0 h=100\n  x=0 h=100 lines=10\n  x=110 h=100 lines=10\n  rule x=100 h=100\n"
              "page 2\ncolumns y=0 h=30\n  x=0 h=30 lines=3\n  x=110 h=30 lines=2\n  rule x=100 h=30\n");
}

TEST(columns, span_all_splits_the_flow_into_balanced_runs) {
    auto const out = dump(pack_html(".m { columns: 2; column-gap: 20pt } h1 { column-span: all; margin: 0; font: "
                                    "8pt/10pt Sans }",
                                    "<div class=m>" + paras(4) + "<h1>head</h1>" + paras(6) + "</div>"));
    EXPECT_EQ(out, "page 1\ncolumns y=0 h=20\n  x=0 h=20 lines=2\n  x=110 h=20 lines=2\n"
                   "columns y=30 h=30\n  x=0 h=30 lines=3\n  x=110 h=30 lines=3\n");
}

TEST(columns, column_breaks_end_a_column) {
    // A break before the third line: two lines in the first column, the rest balanced after it.
    EXPECT_EQ(dump(pack_html(".m { columns: 2; column-gap: 20pt } .b { break-before: column }",
                             "<div class=m>" + paras(2) + "<p class=b>line</p>" + paras(2) + "</div>")),
              "page 1\ncolumns y=0 h=30\n  x=0 h=30 lines=2\n  x=110 h=30 lines=3\n");
    // The old name, after the block.
    EXPECT_EQ(dump(pack_html(".m { columns: 2; column-gap: 20pt } .b { column-break-after: always }",
                             "<div class=m><p class=b>line</p>" + paras(3) + "</div>")),
              "page 1\ncolumns y=0 h=30\n  x=0 h=30 lines=1\n  x=110 h=30 lines=3\n");
}

TEST(columns, avoid_column_keeps_a_block_whole) {
    // Six lines, balanced three and three, would split the four-line paragraph; it moves whole.
    EXPECT_EQ(dump(pack_html(".m { columns: 2; column-gap: 20pt } .k { break-inside: avoid-column }",
                             "<div class=m>" + paras(2) + "<p class=k>line<br>line<br>line<br>line</p></div>")),
              "page 1\ncolumns y=0 h=40\n  x=0 h=40 lines=2\n  x=110 h=40 lines=4\n");
}

TEST(columns, column_floats_go_to_the_top_of_their_column) {
    // Twelve lines and a top float as tall as two lines, balanced at seven lines' height: the float
    // met after three lines stands above them at the top of the first column, with five lines below.
    auto const out = dump(pack_html(".m { columns: 2; column-gap: 20pt } .t { float: column-top; height: 20pt }",
                                    "<div class=m>" + paras(3) + "<div class=t></div>" + paras(9) + "</div>"));
    EXPECT_EQ(out, "page 1\ncolumns y=0 h=70\n  x=0 h=70 lines=5\n  x=110 h=70 lines=7\n") << out;
}

TEST(columns, nested_and_in_table_cells_do_not_break) {
    auto const nested = dump(pack_html(".m { columns: 2; column-gap: 20pt }",
                                       "<div class=m>" + paras(2) + "<div class=m>" + paras(4) + "</div>" +
                                           paras(2) + "</div>"));
    // The outer set balances at three lines; the inner set, 35pt columns in the outer 90pt one, takes
    // the third line of the first outer column and goes on at the top of the second.
    EXPECT_EQ(nested, "page 1\ncolumns y=0 h=30\n  x=0 h=30 lines=4\n  x=110 h=30 lines=4\n"
                      "columns y=20 h=10\n  x=0 h=10 lines=1\n  x=55 h=10 lines=1\n"
                      "columns y=0 h=10\n  x=110 h=10 lines=1\n  x=165 h=10 lines=1\n");
    auto const cell = dump(pack_html(".m { columns: 2; column-gap: 20pt }",
                                     "<table><tr><td class=m>" + paras(6) + "</td></tr></table>"));
    EXPECT_NE(cell.find("lines=3\n"), std::string::npos) << cell;
}

TEST(columns, column_footnotes_stand_at_the_foot_of_their_column) {
    // Fifteen lines, the first calling a note of one line: the first column holds the note at its foot
    // and fewer lines above it; the second column, with no note, is filled to its bottom.
    auto const out = dump(pack_html(".m { columns: 2; column-gap: 20pt; column-fill: auto } "
                                    ".n { float: column-footnote; font: 8pt/10pt Sans }",
                                    "<div class=m><p>line<span class=n>note</span></p>" + paras(14) + "</div>"));
    EXPECT_EQ(out, "page 1\ncolumns y=0 h=100\n  x=0 h=100 lines=9\n  x=110 h=100 lines=6\n") << out;
    // Balanced, the note counts with the lines: sixteen lines' worth, eight a column.
    auto const balanced = dump(pack_html(".m { columns: 2; column-gap: 20pt } "
                                         ".n { float: column-footnote; font: 8pt/10pt Sans }",
                                         "<div class=m><p>line<span class=n>note</span></p>" + paras(14) + "</div>"));
    EXPECT_EQ(balanced, "page 1\ncolumns y=0 h=80\n  x=0 h=80 lines=7\n  x=110 h=80 lines=8\n") << balanced;
}

TEST(columns, a_set_height_still_balances) {
    // Six lines in a container 80pt tall: three a column, the columns as tall as the container.
    EXPECT_EQ(dump(pack_html(".m { columns: 2; column-gap: 20pt; height: 80pt }",
                             "<div class=m>" + paras(6) + "</div>")),
              "page 1\ncolumns y=0 h=80\n  x=0 h=80 lines=3\n  x=110 h=80 lines=3\n");
    EXPECT_EQ(dump(pack_html(".m { columns: 2; column-gap: 20pt; height: 80pt; column-fill: auto }",
                             "<div class=m>" + paras(6) + "</div>")),
              "page 1\ncolumns y=0 h=80\n  x=0 h=80 lines=6\n");
}

TEST(columns, balancing_at_the_top_of_a_page_keeps_what_may_not_break) {
    // At the top of the page the first pass may force content into a column; the shorter heights tried
    // in balancing may not. A paragraph that must stay whole stays in one column.
    EXPECT_EQ(dump(pack_html(".m { columns: 2; column-gap: 20pt } .k { break-inside: avoid }",
                             "<div class=m><p class=k>line<br>line<br>line<br>line</p></div>")),
              "page 1\ncolumns y=0 h=40\n  x=0 h=40 lines=4\n");
    // Three lines with orphans and widows of 2 can't be split at all.
    EXPECT_EQ(dump(pack_html(".m { columns: 2; column-gap: 20pt; orphans: 2; widows: 2 }",
                             "<div class=m><p>line<br>line<br>line</p></div>")),
              "page 1\ncolumns y=0 h=30\n  x=0 h=30 lines=3\n");
}

// The first set of columns in a box, depth first.
column const* first_columns(box const& b) {
    if (auto const* c = std::get_if<column>(&b.box_content)) {
        return c;
    }
    if (auto const* bs = std::get_if<boxes>(&b.box_content)) {
        for (auto const& k : bs->boxes_list) {
            if (auto const* c = first_columns(*k)) {
                return c;
            }
        }
    }
    return nullptr;
}

// The distance from the top of the page body to the top of the first box in column `i` of the first
// set of columns on the first page.
float column_start(std::vector<ref<packed_page>> const& pages, std::size_t i) {
    auto const& body = pages.at(0)->body_box;
    for (auto const& b : body.body_content) {
        if (auto const* c = first_columns(*b)) {
            auto const& content = std::get<boxes>(c->column_box.column_content.at(i)->box_content);
            return body.body_pos.y - content.boxes_list.front()->box_y;
        }
    }
    return -1;
}

TEST(columns, margins_after_a_column_break) {
    std::string const css = ".m { columns: 2; column-gap: 20pt; column-fill: auto; height: 30pt } "
                            "p { margin-top: 5pt } ";
    // An unforced break truncates the margin at the top of the next column; a forced one keeps it.
    auto const unforced = pack_html(css + ".k { break-inside: avoid }",
                                    "<div class=m><p>line</p><p class=k>line<br>line</p></div>");
    EXPECT_NEAR(column_start(unforced, 0), 5, 0.01);
    EXPECT_NEAR(column_start(unforced, 1), 0, 0.01);
    auto const forced = pack_html(css + ".b { break-before: column }",
                                  "<div class=m><p>line</p><p class=b>line</p></div>");
    EXPECT_NEAR(column_start(forced, 1), 5, 0.01);
}

} // namespace
} // namespace vellum::pack
