// Page floats: whole documents packed through box generation into pages, checked through where the
// boxes with an id land (their top below the body's top, and their page) and how many lines each page
// holds: floats to the top and bottom of the page, their order, the deferral of those that don't fit
// or ask for the next page, and column floats to the bottom of a column.
#include "pack/page_floats.hpp"
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

    void box(pack::box const& b) {
        if (auto const* o = std::get_if<prepack::type_original>(&b.box_type); o && o->stuff->given_ids) {
            for (auto const& id : o->stuff->given_ids->second) {
                out << " " << id.id << "@" << std::lround(top - b.box_y);
            }
        }
        std::visit(overloaded{
                       [&](para const& p) {
                           for (auto const& l : p.para_lines) {
                               lines += std::holds_alternative<linebox>(l) ? 1 : 0;
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
                       [](list const&) {},
                       [](image const&) {},
                   },
                   b.box_content);
    }
};

// "page N: lines=L id@y ..." for each page, the ids in painting order.
std::string dump(std::vector<ref<packed_page>> const& pages) {
    std::ostringstream out;
    for (std::size_t i = 0; i < pages.size(); ++i) {
        std::ostringstream ids;
        page_walk w{.out = ids, .top = pages[i]->body_box.body_pos.y};
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

TEST(page_floats, a_float_taller_than_the_page_gets_a_page_of_its_own) {
    EXPECT_EQ(dump(pack_html(".t { float: top; height: 300pt }", paras(1) + "<div class=t id=huge></div>" +
                                                                      paras(1))),
              "page 1: lines=2\npage 2: lines=0 huge@0\n");
}

TEST(page_floats, column_floats_go_to_the_top_and_bottom_of_their_column) {
    // Two columns 95pt wide; the first holds a float at its top and one at its foot.
    EXPECT_EQ(dump(pack_html(".m { columns: 2; column-gap: 10pt; column-fill: auto; height: 100pt } "
                             ".t { float: column-top } .b { float: column-bottom }",
                             "<section class=m>" + paras(1) + "<div class=b id=b></div><div class=t id=t></div>" +
                                 paras(2) + "</section>")),
              "page 1: lines=3 t@0 b@80\n");
}

} // namespace
} // namespace vellum::pack
