// Page floats: whole documents packed through box generation into pages, checked through where the
// boxes with an id land (their top below the body's top, and their page) and how many lines each page
// holds: floats to the top and bottom of the page, their order, the deferral of those that don't fit
// or ask for the next page, and column floats to the bottom of a column.
#include "pack/page_floats.hpp"
#include "pack/pack.hpp"
#include "prepack/box_support.hpp"

#include <cmath>
#include <fstream>
#include <optional>
#include <sstream>

#include "pack/pack_html.hpp"
#include "pack/test_fonts.hpp"

#include <unistd.h>

#include <gtest/gtest.h>

namespace vellum::pack {
namespace {

// Pages of 200pt by 100pt plus margins of 10pt, lines of 10pt: ten lines fill the body.
std::string const page_css = "@page { size: 220pt 120pt; margin: 10pt } "
                             "body { margin: 0; font: 8pt/10pt Sans } p { margin: 0 } "
                             "div { height: 20pt } .tall { height: 50pt }";

std::vector<ref<packed_page>> pack_html(std::string const& css, std::string const& body) {
    return test_pack::pack_html("page-floats", page_css + css, body);
}

struct page_walk {
    std::ostringstream& out;
    float top = 0;
    int lines = 0;
    /// With the body's left edge: ids also give their x, and lines their x where it isn't the left.
    std::optional<float> left;

    void box(pack::box const& b) {
        if (auto const* o = std::get_if<prepack::type_original>(&b.box_type); o && o->stuff->given_ids) {
            for (auto const& id : o->stuff->given_ids->second) {
                out << " " << id.id << "@";
                if (left) {
                    out << std::lround(b.box_x - *left) << ",";
                }
                out << std::lround(top - b.box_y);
            }
        }
        std::visit(overloaded{
                       [&](para const& p) {
                           for (auto const& l : p.para_lines) {
                               if (auto const* lb = std::get_if<linebox>(&l)) {
                                   ++lines;
                                   if (left && std::lround(lb->linebox_x - *left) != 0) {
                                       out << " line@" << std::lround(lb->linebox_x - *left) << ","
                                           << std::lround(top - lb->linebox_base);
                                   }
                               } else if (auto const* f = std::get_if<float_box>(&l)) {
                                   box(*f->float_box_box);
                               }
                           }
                       },
                       [&](boxes const& bs) {
                           for (auto const& c : bs.boxes_list) {
                               box(*c);
                           }
                       },
                       [&](column const& c) {
                           for (auto const& k : c.column_box.column_content) {
                               box(*k);
                           }
                       },
                       [&](with_abs const& w) {
                           for (auto const& c : w.with_abs_boxes) {
                               box(*c);
                           }
                       },
                       [](table_anony_box const&) {},
                       [](table const&) {},
                       [&](list const& l) {
                           // A marker's box has no extent: its line says where it stands.
                           if (l.list_box.markerbox && left) {
                               auto const* mp = std::get_if<para>(&(*l.list_box.markerbox)->box_content);
                               auto const* ml = mp && !mp->para_lines.empty()
                                                    ? std::get_if<linebox>(&mp->para_lines.front())
                                                    : nullptr;
                               if (ml) {
                                   out << " marker@" << std::lround(ml->linebox_x - *left);
                               }
                           }
                           box(*l.list_box.list_content);
                       },
                       [](image const&) {},
                   },
                   b.box_content);
    }
};

// "page N: lines=L id@y ..." for each page, the ids in painting order; with `xs`, "id@x,y", and the
// lines that don't start at the body's left edge as "line@x,baseline".
std::string dump(std::vector<ref<packed_page>> const& pages, bool xs = false) {
    std::ostringstream out;
    for (std::size_t i = 0; i < pages.size(); ++i) {
        std::ostringstream ids;
        auto const& body = pages[i]->body_box;
        page_walk w{.out = ids,
                    .top = body.body_pos.y,
                    .left = xs ? std::optional<float>(body.body_pos.x) : std::nullopt};
        for (auto const& b : pages[i]->body_box.body_content) {
            w.box(*b);
        }
        out << "page " << i + 1 << ": lines=" << w.lines << ids.str() << "\n";
    }
    return out.str();
}

std::string paras(int n) {
    std::string out;
    for (int i = 0; i < n; ++i) {
        out += "<p>line</p>";
    }
    return out;
}

TEST(page_floats, tops_and_bottoms_stack_in_order_and_take_room_from_the_body) {
    // Two floats to the top stacked from the body's top, two to the bottom stacked up from its foot,
    // the first met highest; the four take 80pt, so two lines are left to the text.
    EXPECT_EQ(dump(pack_html(".t { float: top } .b { float: bottom }",
                             paras(1) + "<div class=t id=t1></div><div class=b id=b1></div>"
                                        "<div class=t id=t2></div><div class=b id=b2></div>" +
                                 paras(3))),
              "page 1: lines=2 t1@0 t2@20 b1@60 b2@80\npage 2: lines=2\n");
}

TEST(page_floats, a_float_that_does_not_fit_below_its_call_waits_and_those_after_it_too) {
    // After eight lines a 50pt float can't stand on the page with its call: it goes to the top of the
    // next page, and the small float met after it follows it there though it would fit.
    EXPECT_EQ(dump(pack_html(".t { float: top }", paras(8) + "<div class='t tall' id=big></div>"
                                                                  "<div class=t id=small></div>" +
                                                      paras(4))),
              "page 1: lines=10\npage 2: lines=2 big@0 small@50\n");
}

TEST(page_floats, next_defers_to_the_page_after_the_call) {
    EXPECT_EQ(dump(pack_html(".n { float: top next }", paras(1) + "<div class=n id=n></div>" + paras(2))),
              "page 1: lines=3\npage 2: lines=0 n@0\n");
}

TEST(page_floats, unless_fit_stays_in_the_flow_where_it_fits) {
    EXPECT_EQ(dump(pack_html(".u { float: bottom unless-fit }", paras(2) + "<div class=u id=u></div>" + paras(1))),
              "page 1: lines=3 u@20\n");
    // Where it doesn't fit it floats: to the bottom of the next page, not splitting.
    EXPECT_EQ(dump(pack_html(".u { float: bottom unless-fit }", paras(8) + "<div class='u tall' id=u></div>" +
                                                                     paras(1))),
              "page 1: lines=9\npage 2: lines=0 u@50\n");
}

TEST(page_floats, a_float_taller_than_the_page_is_split_over_the_pages_after_its_call) {
    // 25 lines of 10pt in a body of 100pt: the float waits for the page after its call, fills it and
    // the next, and its last five lines come first on the third, where the text goes on.
    EXPECT_EQ(dump(pack_html(".t { float: top } .t p { margin: 0 }",
                             paras(1) + "<section class=t id=huge>" + paras(25) + "</section>" + paras(12))),
              "page 1: lines=10\npage 2: lines=10 huge@0\npage 3: lines=10\npage 4: lines=8\n");
    // A float of fixed height is cut at the foot of the page too, its rest on the next page.
    EXPECT_EQ(dump(pack_html(".t { float: top; height: 250pt }",
                             paras(1) + "<div class=t id=huge></div>" + paras(1))),
              "page 1: lines=2\npage 2: lines=0 huge@0\npage 3: lines=0\npage 4: lines=0\n");
}

TEST(page_floats, unless_fit_called_in_a_paragraph_stays_beside_its_line_where_it_fits) {
    // The float fits where it is called: it stands at the left of the line, which runs beside it.
    EXPECT_EQ(dump(pack_html(".u { display: block; float: top unless-fit; width: 40pt; height: 15pt }",
                             "<p>one <span class=u id=u></span>two</p>" + paras(1)),
                   true),
              "page 1: lines=2 u@0,0 line@40,8 line@40,18\n");
    // Called on the last line of the page it doesn't fit there: it goes to the top of the next page.
    EXPECT_EQ(dump(pack_html(".u { display: block; float: top unless-fit; width: 40pt; height: 15pt }",
                             paras(9) + "<p>one <span class=u id=u></span>two</p>" + paras(1))),
              "page 1: lines=10\npage 2: lines=1 u@0\n");
}

TEST(page_floats, column_floats_go_to_the_top_and_bottom_of_their_column) {
    // Two columns 95pt wide; the first holds a float at its top and one at its foot.
    EXPECT_EQ(dump(pack_html(".m { columns: 2; column-gap: 10pt; column-fill: auto; height: 100pt } "
                             ".t { float: column-top } .b { float: column-bottom }",
                             "<section class=m>" + paras(1) + "<div class=b id=b></div><div class=t id=t></div>" +
                                 paras(2) + "</section>")),
              "page 1: lines=3 t@0 b@80\n");
}

// A page float's footnotes reach the foot of the page it is placed on. They take the page's first
// numbers: the float stands above the text of the page.
TEST(page_floats, footnotes_called_in_a_page_float_come_first_in_the_footnote_area) {
    auto const pages = pack_html(".t { float: top } .fn { float: footnote }",
                                 "<p>a<span class=fn id=n1>x</span></p><section class=t><p>f<span class=fn "
                                 "id=n2>y</span></p></section><p>b<span class=fn id=n3>z</span></p>");
    ASSERT_EQ(pages.size(), 1u);
    auto const d = dump(pages);
    auto const at = [&](std::string const& id) { return d.find(" " + id + "@"); };
    ASSERT_NE(at("n1"), std::string::npos) << d;
    ASSERT_NE(at("n2"), std::string::npos) << d;
    ASSERT_NE(at("n3"), std::string::npos) << d;
    EXPECT_LT(at("n2"), at("n1")) << d;
    EXPECT_LT(at("n1"), at("n3")) << d;
}

TEST(page_floats, a_footnote_marker_outside_hangs_left_of_the_body) {
    // Outside (the default) the marker box stands left of the body's edge; inside it starts the text.
    auto const outside =
        dump(pack_html(".fn { float: footnote }", "<p>a<span class=fn id=n>x</span></p>"), true);
    EXPECT_NE(outside.find(" marker@-"), std::string::npos) << outside;
    EXPECT_EQ(dump(pack_html(".fn { float: footnote; footnote-style-position: inside }",
                             "<p>a<span class=fn id=n>x</span></p>"),
                   true)
                  .find(" marker@"),
              std::string::npos);
}

} // namespace
} // namespace vellum::pack
