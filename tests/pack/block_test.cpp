// Block flow and the page loop on real documents: HTML with its style sheet through box generation,
// then packed into pages, checked through a dump of each page's boxes (element, top, height, lines).
// Text is set in DejaVu Sans with a fixed line height, so that line counts and positions are exact.
#include "pack/block.hpp"
#include "pack/blocks.hpp"
#include "pack/margin_collapsing.hpp"
#include "pack/pack.hpp"
#include "pack/pack_html.hpp"
#include "pack/test_fonts.hpp"
#include "prepack/box_support.hpp"

#include <cmath>
#include <fstream>
#include <functional>
#include <span>
#include <sstream>
#include <unistd.h>

#include <gtest/gtest.h>

namespace vellum::pack {
namespace {

using test_fonts::db;

// Pages of 100pt by 100pt plus margins of 10pt, lines of 10pt: ten lines fill a page body.
std::string const page_css = "@page { size: 120pt 120pt; margin: 10pt } "
                             "body { margin: 0; font: 8pt/10pt Sans } p { margin: 0 }";

std::vector<ref<packed_page>> pack_html(std::string const& css, std::string const& body) {
    return test_pack::pack_html("block", page_css + css, body);
}

std::string element_name(prepack::element_type const& t) {
    auto const* o = std::get_if<prepack::type_original>(&t);
    auto const* r = std::get_if<prepack::type_remaining>(&t);
    std::optional<prepack::element_info> info;
    if (o) {
        info = o->stuff->element_info;
    } else if (r) {
        info = r->info;
    }
    if (!info) {
        return "anon";
    }
    auto const* e = std::get_if<prepack::info_element>(&*info);
    if (!e) {
        return "pseudo";
    }
    std::string name(styledom::tree::name_local_view(e->element->dom_element_name));
    return r ? name + "+" : name;
}

int rounded(float x) {
    return static_cast<int>(std::lround(x));
}

// One line per box: its element ("+" for a continuation), the top of its border box measured down
// from the top of the page body, its height, and its lines if it holds a paragraph.
void dump_box(std::ostringstream& out, box const& b, float body_top, int depth) {
    out << std::string(static_cast<std::size_t>(depth) * 2, ' ') << element_name(b.box_type) << " y="
        << rounded(body_top - b.box_y) << " h=" << rounded(b.box_h);
    if (auto const* p = std::get_if<para>(&b.box_content)) {
        out << " lines=" << p->para_lines.size();
    }
    out << "\n";
    // Absolutely positioned boxes are left out: the dump shows the flow.
    auto const* w = std::get_if<with_abs>(&b.box_content);
    if (auto const* bs = std::get_if<boxes>(w ? w->with_abs_content.get() : &b.box_content)) {
        for (auto const& c : bs->boxes_list) {
            dump_box(out, *c, body_top, depth + 1);
        }
    }
}

std::string dump(std::vector<ref<packed_page>> const& pages) {
    std::ostringstream out;
    for (std::size_t i = 0; i < pages.size(); ++i) {
        out << "page " << i + 1 << "\n";
        auto const& body = pages[i]->body_box;
        for (auto const& b : body.body_content) {
            // The root element's box only wraps the body's; the dumps start at the body.
            auto const* kids = std::get_if<boxes>(&b->box_content);
            if (kids && element_name(b->box_type).starts_with("html")) {
                for (auto const& c : kids->boxes_list) {
                    dump_box(out, *c, body.body_pos.y, 1);
                }
            } else {
                dump_box(out, *b, body.body_pos.y, 1);
            }
        }
    }
    return out.str();
}

// A paragraph of n lines, each ending in a forced break.
std::string lines(int n, std::string const& attrs = "") {
    std::string out = "<p" + attrs + ">";
    for (int i = 0; i < n; ++i) {
        out += (i ? "<br>" : "") + std::string("line");
    }
    return out + "</p>";
}

// ---- Margins ---------------------------------------------------------------------------------------------

TEST(margin_collapsing, runs_of_margins) {
    namespace mc = margin_collapsing;
    EXPECT_FLOAT_EQ(mc::value_of(mc::add_margin(mc::add_margin(mc::normal{}, 20), -5)), 15);
    EXPECT_FLOAT_EQ(mc::value_of(mc::add_margin(mc::add_margin(mc::normal{}, -5), -10)), -10);
    EXPECT_FLOAT_EQ(mc::value_of(mc::add_margin(mc::add_margin(mc::normal{}, 10), 30)), 30);
    EXPECT_FLOAT_EQ(mc::value_of(mc::add_margin(mc::margin_eater{}, 30)), 0);

    areas::area const a{.top = 100, .bottom = 0, .left = 0, .right = 50};
    areas::areas const as{.container = a, .available = {a}};
    // The page's top margin of 20 is taken already: a first margin of 30 adds only 10.
    auto const c = mc::commit(mc::add_margin(mc::normal{.positive = 20, .committed = 20}, 30), as);
    EXPECT_FLOAT_EQ(c.commit_areas.container.top, 90);
    EXPECT_FLOAT_EQ(c.commit_areas.available.front().top, 90);
    auto const smaller = mc::commit(mc::add_margin(mc::normal{.positive = 20, .committed = 20}, 5), as);
    EXPECT_FLOAT_EQ(smaller.commit_areas.container.top, 100);
}

TEST(areas, band_lists_hold_one_band_in_place_and_more_on_the_heap) {
    areas::area const a{.top = 100, .bottom = 60, .left = 0, .right = 50};
    areas::area const b{.top = 60, .bottom = 30, .left = 20, .right = 50};
    areas::area const c{.top = 30, .bottom = 0, .left = 0, .right = 50};
    areas::band_list bands;
    EXPECT_TRUE(bands.empty());
    bands.push_back(a);
    bands.push_back(b);
    bands.push_back(c);
    ASSERT_EQ(bands.size(), 3u);
    EXPECT_EQ(bands[1], b);
    // A copy is equal and apart from the list it came from.
    auto copy = bands;
    EXPECT_EQ(copy, bands);
    copy.front().top = 90;
    EXPECT_EQ(bands.front().top, 100);
    EXPECT_FALSE(copy == bands);
    // Down to one band and none, front to back, as the flow passes bands by.
    auto* next = bands.erase(bands.begin());
    EXPECT_EQ(*next, b);
    bands.erase(bands.begin());
    ASSERT_EQ(bands.size(), 1u);
    EXPECT_EQ(bands.front(), c);
    EXPECT_EQ(bands, (areas::band_list{c}));
    auto* const past = bands.erase(bands.begin());
    EXPECT_EQ(past, bands.end());
    EXPECT_TRUE(bands.empty());
    // From a vector, and seen as a span by what reads bands.
    std::vector<areas::area> const list{a, c};
    areas::band_list const from(list);
    std::span<areas::area const> const view = from;
    ASSERT_EQ(view.size(), 2u);
    EXPECT_EQ(view[0], a);
    EXPECT_EQ(view[1], c);
}

TEST(block_flow, sibling_margins_collapse_and_empty_blocks_let_them_through) {
    auto const pages = pack_html(".a { margin-bottom: 10pt } .b { margin-top: 20pt } .e { margin: 15pt 0 }",
                                 "<p class=a>one</p><p class=b>two</p><div class=e></div><p>three</p>");
    // The empty div stands where its top border edge would be with a bottom border: below its own
    // top margin, which the next paragraph's position shares.
    EXPECT_EQ(dump(pages), "page 1\n"
                           "  body y=0 h=65\n"
                           "    p y=0 h=10 lines=1\n"
                           "    p y=30 h=10 lines=1\n"
                           "    div y=55 h=0\n"
                           "    p y=55 h=10 lines=1\n");
}

TEST(block_flow, negative_margins_and_parent_child_collapsing) {
    // The div's top margin (10) collapses with its first child's (25); the bottom ones (-5 and 20)
    // give 15 below the div, with nothing between them.
    auto const pages = pack_html(".d { margin: 10pt 0 -5pt } .c { margin: 25pt 0 20pt } ",
                                 "<p>first</p><div class=d><p class=c>in</p></div><p>after</p>");
    EXPECT_EQ(dump(pages), "page 1\n"
                           "  body y=0 h=70\n"
                           "    p y=0 h=10 lines=1\n"
                           "    div y=35 h=10\n"
                           "      p y=35 h=10 lines=1\n"
                           "    p y=60 h=10 lines=1\n");
}

TEST(block_flow, borders_and_padding_stop_collapsing_and_count_in_the_height) {
    auto const pages = pack_html(".d { border-top: 2pt solid; padding: 3pt 0 4pt; margin-top: 5pt } "
                                 ".c { margin-top: 8pt; margin-bottom: 6pt }",
                                 "<div class=d><p class=c>in</p></div>");
    // The page's top margin (10) absorbs the div's 5. Inside: border 2, padding 3, the child's margin
    // 8, a line, its bottom margin 6 held in by the padding of 4.
    EXPECT_EQ(dump(pages), "page 1\n"
                           "  body y=0 h=33\n"
                           "    div y=0 h=33\n"
                           "      p y=13 h=10 lines=1\n");
}

TEST(block_flow, page_top_margins_at_section_start_and_in_the_middle) {
    // At the start of the document the first block's margin collapses with the page margin of 10:
    // 25 adds 15, and the body, whose margin collapses with its child's, starts there too. On the
    // next page of the same section the first block's top margin is swallowed; the next one keeps it.
    auto const pages = pack_html(".m { margin-top: 25pt }", lines(8) + "<p class=m>x</p><p class=m>y</p>");
    auto const d = dump(pages);
    EXPECT_NE(d.find("page 2\n  body+ y=0 h=45\n    p y=0 h=10 lines=1\n    p y=35"), std::string::npos) << d;

    auto const first = pack_html(".m { margin-top: 25pt }", "<p class=m>x</p>");
    EXPECT_EQ(dump(first), "page 1\n  body y=15 h=10\n    p y=15 h=10 lines=1\n");
}

// ---- Breaks ----------------------------------------------------------------------------------------------

TEST(block_flow, paragraph_of_forty_lines_splits_by_orphans_and_widows) {
    auto const pages = pack_html("p { orphans: 3; widows: 3 }", lines(4) + lines(40));
    auto const d = dump(pages);
    // Ten lines per page: 4 + 6, then 10, 10, 10, 4 (no widow rule broken: 4 >= 3).
    EXPECT_EQ(pages.size(), 5u) << d;
    EXPECT_NE(d.find("page 1\n  body y=0 h=100\n    p y=0 h=40 lines=4\n    p y=40 h=60 lines=6\n"),
              std::string::npos)
        << d;
    EXPECT_NE(d.find("page 5\n  body+ y=0 h=40\n    p+ y=0 h=40 lines=4\n"), std::string::npos) << d;
}

TEST(block_flow, heading_that_avoids_a_break_after_moves_with_its_paragraph) {
    // Eight lines, a heading, then a paragraph of which only one line would fit under it (orphans 2):
    // the heading may not end the page, so it goes on with the paragraph.
    auto const pages = pack_html("h1 { font-size: 8pt; margin: 0; page-break-after: avoid }",
                                 lines(8) + "<h1>Title</h1>" + lines(5));
    auto const d = dump(pages);
    ASSERT_EQ(pages.size(), 2u) << d;
    EXPECT_NE(d.find("page 2\n  body+ y=0 h=60\n    h1 y=0 h=10 lines=1\n    p y=10 h=50 lines=5\n"),
              std::string::npos)
        << d;
}

TEST(block_flow, avoided_breaks_move_several_blocks_unless_the_page_is_empty) {
    std::string const css = ".k { page-break-after: avoid } .big { page-break-inside: avoid }";
    // Two blocks that keep with the next, then one that can't split and doesn't fit: all three go on.
    auto const moved = pack_html(css, lines(2) + lines(1, " class=k") + lines(1, " class=k") + lines(8, " class=big"));
    auto const d = dump(moved);
    // A box that goes on to the next page reaches down to the bottom of this one.
    EXPECT_NE(d.find("page 1\n  body y=0 h=100\n    p y=0 h=20 lines=2\npage 2\n  body+ y=0 h=100\n"
                     "    p y=0 h=10 lines=1\n    p y=10 h=10 lines=1\n    p y=20 h=80 lines=8\n"),
              std::string::npos)
        << d;
    // At the top of an empty page the wish is overruled: the break falls where the walk ended, in
    // front of the block that can't be split, which then has the next page to itself.
    auto const kept = pack_html(css, lines(1, " class=k") + lines(1, " class=k") + lines(12, " class=big"));
    auto const k = dump(kept);
    EXPECT_NE(k.find("page 1\n  body y=0 h=100\n    p y=0 h=10 lines=1\n    p y=10 h=10 lines=1\n"
                     "page 2\n  body+ y=0 h=100\n    p y=0 h=100 lines=10\npage 3\n"),
              std::string::npos)
        << k;
}

TEST(block_flow, break_inside_avoid_taller_than_a_page_splits_where_it_starts_on_an_empty_page) {
    auto const pages = pack_html(".big { page-break-inside: avoid }", lines(3) + lines(15, " class=big"));
    auto const d = dump(pages);
    // It can't stay with the three lines, and on the empty second page it must be split.
    EXPECT_NE(d.find("page 1\n  body y=0 h=100\n    p y=0 h=30 lines=3\npage 2\n  body+ y=0 h=100\n    p y=0 h=100 "
                     "lines=10\npage 3\n  body+ y=0 h=50\n    p+ y=0 h=50 lines=5\n"),
              std::string::npos)
        << d;
}

TEST(block_flow, forced_breaks_and_blank_pages_for_sides) {
    auto const always = pack_html(".b { page-break-before: always }", lines(1) + lines(1, " class=b") + lines(1));
    EXPECT_EQ(always.size(), 2u) << dump(always);

    // A section that must start on a left page after one right page needs no blank; one that must
    // start on a right page after page 1 gets a blank page 2.
    auto const right = pack_html(".r { page-break-before: right }", lines(1) + lines(1, " class=r"));
    EXPECT_EQ(right.size(), 3u) << dump(right);
    EXPECT_TRUE(right[1]->body_box.body_content.empty());
    auto const left = pack_html(".l { page-break-before: left }", lines(1) + lines(1, " class=l"));
    EXPECT_EQ(left.size(), 2u) << dump(left);

    // break-after: right on the last block, which ends on page 1: a blank page 2 ends the document, so
    // that whatever follows in a binding starts on a right page; on a left page nothing is added.
    auto const after = pack_html(".ar { page-break-after: right }", lines(1) + lines(1, " class=ar"));
    ASSERT_EQ(after.size(), 2u) << dump(after);
    EXPECT_TRUE(after[1]->body_box.body_content.empty());
    auto const after_left = pack_html(".al { page-break-after: left }", lines(1) + lines(1, " class=al"));
    EXPECT_EQ(after_left.size(), 1u) << dump(after_left);

    // break-before: left on the very first content: page 1 is a right page, so it stays blank.
    auto const first = pack_html("body { page-break-before: left }", lines(1));
    ASSERT_EQ(first.size(), 2u) << dump(first);
    EXPECT_TRUE(first[0]->body_box.body_content.empty());
}

TEST(block_flow, fixed_height_and_min_height) {
    auto const pages = pack_html(".h { height: 30pt } .m { min-height: 25pt } .x { max-height: 5pt }",
                                 lines(1, " class=h") + lines(1, " class=m") + lines(2, " class=x"));
    EXPECT_EQ(dump(pages), "page 1\n"
                           "  body y=0 h=60\n"
                           "    p y=0 h=30 lines=1\n"
                           "    p y=30 h=25 lines=1\n"
                           "    p y=55 h=5 lines=2\n");
    // A fixed height taller than the page goes on in an overflowing part with the rest of the height.
    auto const tall = pack_html(".h { height: 150pt }", lines(1, " class=h"));
    auto const d = dump(tall);
    ASSERT_EQ(tall.size(), 2u) << d;
    EXPECT_NE(d.find("page 2\n  body+ y=0 h=50\n    anon y=0 h=50\n"), std::string::npos) << d;
}

TEST(block_flow, sliced_edges_are_not_drawn_at_the_split) {
    std::string const body = "<div>" + lines(15) + "</div>";
    auto const clone = pack_html("div { border: 5pt solid; box-decoration-break: clone }", body);
    auto const slice = pack_html("div { border: 5pt solid; box-decoration-break: slice }", body);
    auto const c = dump(clone);
    auto const s = dump(slice);
    // Cloned edges take room on both pages: 9 lines fit between 5 and 5 on the first page.
    EXPECT_NE(c.find("    div y=0 h=100\n      p y=5 h=90 lines=9\n"), std::string::npos) << c;
    // Sliced: the first part has no bottom edge, so a line more fits; the second part no top edge.
    EXPECT_NE(s.find("    div y=0 h=100\n      p y=5 h=95 lines=9\n"), std::string::npos) << s;
    EXPECT_NE(s.find("page 2\n  body+ y=0 h=65\n    div+ y=0 h=65\n      p+ y=0 h=60 lines=6\n"), std::string::npos) << s;
}

TEST(block_flow, list_items_carry_their_outside_marker_on_the_first_line) {
    auto const pages = pack_html("ul { margin: 0; padding-left: 20pt }", "<ul><li>one</li><li>two</li></ul>");
    ASSERT_EQ(pages.size(), 1u);
    auto const& html = *pages[0]->body_box.body_content.front();
    auto const& body = *std::get<boxes>(html.box_content).boxes_list.front();
    auto const& ul = *std::get<boxes>(body.box_content).boxes_list.front();
    auto const& items = std::get<boxes>(ul.box_content).boxes_list;
    ASSERT_EQ(items.size(), 2u);
    for (auto const& li : items) {
        auto const& l = std::get<list>(li->box_content).list_box;
        ASSERT_TRUE(l.markerbox);
        auto const content_base = block::first_baseline(*l.list_content);
        auto const marker_base = block::first_baseline(**l.markerbox);
        ASSERT_TRUE(content_base && marker_base);
        EXPECT_FLOAT_EQ(*content_base, *marker_base);
        // The marker's text ends at or before the item's content edge.
        auto const& line = std::get<linebox>(std::get<para>((*l.markerbox)->box_content).para_lines.front());
        for (auto const& s : line.linebox_content) {
            if (auto const* c = std::get_if<charsbox>(&s)) {
                EXPECT_LE(c->charsbox_x + c->charsbox_w, li->box_x + 0.01f);
            }
        }
    }
}

TEST(block_flow, right_to_left_list_items_hang_their_marker_on_the_right) {
    // In a right-to-left list the lines start at the right: the marker stands right of the item's
    // content edge, half an em away, on the first line's baseline; a left-to-right list beside it
    // keeps its marker on the left.
    auto const pages = pack_html("ul { margin: 0; padding: 0 20pt } .r { direction: rtl }",
                                 "<ul class='r'><li>one</li><li>two</li></ul><ul><li>three</li></ul>");
    ASSERT_EQ(pages.size(), 1u);
    auto const& html = *pages[0]->body_box.body_content.front();
    auto const& body = *std::get<boxes>(html.box_content).boxes_list.front();
    auto const& lists = std::get<boxes>(body.box_content).boxes_list;
    ASSERT_EQ(lists.size(), 2u);
    for (std::size_t k = 0; k < lists.size(); ++k) {
        bool const rtl = k == 0;
        SCOPED_TRACE(rtl ? "rtl" : "ltr");
        for (auto const& li : std::get<boxes>(lists[k]->box_content).boxes_list) {
            auto const& l = std::get<list>(li->box_content).list_box;
            ASSERT_TRUE(l.markerbox);
            EXPECT_FLOAT_EQ(*block::first_baseline(*l.list_content), *block::first_baseline(**l.markerbox));
            auto const& line =
                std::get<linebox>(std::get<para>((*l.markerbox)->box_content).para_lines.front());
            int glyph_runs = 0;
            for (auto const& s : line.linebox_content) {
                auto const* c = std::get_if<charsbox>(&s);
                if (!c) {
                    continue;
                }
                ++glyph_runs;
                float const content_left = li->box_x;
                float const content_right = li->box_x + li->box_w;
                if (rtl) {
                    // Half of the 8pt font between the content's right edge and the marker.
                    EXPECT_NEAR(c->charsbox_x, content_right + 4, 0.01f);
                } else {
                    EXPECT_NEAR(c->charsbox_x + c->charsbox_w, content_left - 4, 0.01f);
                }
            }
            EXPECT_GT(glyph_runs, 0);
        }
    }
}

// ---- Floats, clearance, run-in and inline blocks ----------------------------------------------------------

// Like `dump`, with each box's left edge and width measured from the body's left, and a paragraph's
// lines (their left and height) and floats.
void dump_geometry_box(std::ostringstream& out, box const& b, util::pos::pos body, int depth) {
    std::string const pad(static_cast<std::size_t>(depth) * 2, ' ');
    out << pad << element_name(b.box_type) << " x=" << rounded(b.box_x - body.x) << " y=" << rounded(body.y - b.box_y)
        << " w=" << rounded(b.box_w) << " h=" << rounded(b.box_h) << "\n";
    if (auto const* p = std::get_if<para>(&b.box_content)) {
        for (auto const& item : p->para_lines) {
            if (auto const* l = std::get_if<linebox>(&item)) {
                out << pad << "  line x=" << rounded(l->linebox_x - body.x) << "\n";
            } else {
                dump_geometry_box(out, *std::get<float_box>(item).float_box_box, body, depth + 1);
            }
        }
    }
    if (auto const* bs = std::get_if<boxes>(&b.box_content)) {
        for (auto const& c : bs->boxes_list) {
            dump_geometry_box(out, *c, body, depth + 1);
        }
    }
}

std::string dump_geometry(std::vector<ref<packed_page>> const& pages) {
    std::ostringstream out;
    for (std::size_t i = 0; i < pages.size(); ++i) {
        out << "page " << i + 1 << "\n";
        auto const& body = pages[i]->body_box;
        for (auto const& b : body.body_content) {
            auto const* kids = std::get_if<boxes>(&b->box_content);
            if (kids && element_name(b->box_type).starts_with("html")) {
                for (auto const& c : kids->boxes_list) {
                    dump_geometry_box(out, *c, body.body_pos, 1);
                }
            } else {
                dump_geometry_box(out, *b, body.body_pos, 1);
            }
        }
    }
    return out.str();
}

// Words enough for n lines of the 100pt body: each "line" is one word, each word a line through <br>.
std::string words(int n) {
    std::string out;
    for (int i = 0; i < n; ++i) {
        out += (i ? "<br>" : "") + std::string("ab");
    }
    return out;
}

TEST(floats, lines_flow_beside_left_and_right_floats_and_below_them) {
    std::string const css = ".f { float: left; width: 30pt; height: 20pt } .g { float: right; width: 40pt; height: 30pt }";
    auto const left = pack_html(css, "<div class=f></div><p>" + words(4) + "</p>");
    EXPECT_EQ(dump_geometry(left), "page 1\n"
                                   "  body x=0 y=0 w=100 h=40\n"
                                   "    div x=0 y=0 w=30 h=20\n"
                                   "    p x=0 y=0 w=100 h=40\n"
                                   "      line x=30\n"
                                   "      line x=30\n"
                                   "      line x=0\n"
                                   "      line x=0\n");
    // A right float takes its room at the right edge; a text-align: right line ends at its left edge.
    auto const right = pack_html(css + " p { text-align: right }", "<div class=g></div><p>" + words(4) + "</p>");
    auto const d = dump_geometry(right);
    EXPECT_NE(d.find("    div x=60 y=0 w=40 h=30\n"), std::string::npos) << d;
    auto const& body = right[0]->body_box;
    auto const& html = *body.body_content.front();
    auto const& body_box = *std::get<boxes>(html.box_content).boxes_list.front();
    auto const& p = *std::get<boxes>(body_box.box_content).boxes_list.at(1);
    auto const& lines = std::get<para>(p.box_content).para_lines;
    ASSERT_EQ(lines.size(), 4u);
    auto const& first = std::get<linebox>(lines[0]);
    auto const& last = std::get<linebox>(lines[3]);
    EXPECT_NEAR(first.linebox_x + first.linebox_w - body.body_pos.x, 60, 0.5) << d;
    EXPECT_NEAR(last.linebox_x + last.linebox_w - body.body_pos.x, 100, 0.5) << d;
}

TEST(floats, clear_moves_a_block_below_the_floats_of_its_side) {
    std::string const css = ".f { float: left; width: 30pt; height: 25pt } .r { float: right; width: 30pt; height: 45pt }";
    auto const left = pack_html(css + " .c { clear: left }", "<div class=f></div><div class=r></div><p class=c>x</p>");
    EXPECT_NE(dump_geometry(left).find("    p x=0 y=25 w=100 h=10\n      line x=0\n"), std::string::npos)
        << dump_geometry(left);
    auto const both = pack_html(css + " .c { clear: both }", "<div class=f></div><div class=r></div><p class=c>x</p>");
    EXPECT_NE(dump_geometry(both).find("    p x=0 y=45 w=100 h=10\n"), std::string::npos) << dump_geometry(both);
    // Nothing to clear on that side: the block stays where it is, beside the left float.
    auto const none = pack_html(css + " .c { clear: right }", "<div class=f></div><p class=c>x</p>");
    EXPECT_NE(dump_geometry(none).find("    p x=0 y=0 w=100 h=10\n      line x=30\n"), std::string::npos)
        << dump_geometry(none);
}

TEST(floats, clearance_takes_the_place_of_a_top_margin_only_where_the_margin_falls_short) {
    // A 5pt block, a 30pt float below it; the cleared block's margin would put it at 15pt: its edge
    // goes to the float's bottom (35) and the margin adds nothing. A 40pt margin puts it at 45, below the
    // float already: it keeps the margin and gets no clearance.
    std::string const css =
        ".b { height: 5pt } .f { float: left; width: 30pt; height: 30pt } .c { clear: left; height: 5pt }";
    auto const short_margin = pack_html(css + " .c { margin-top: 10pt }",
                                        "<div class=b></div><div class=f></div><div class=c></div>");
    EXPECT_NE(dump_geometry(short_margin).find("    div x=0 y=35 w=100 h=5\n"), std::string::npos)
        << dump_geometry(short_margin);
    auto const long_margin = pack_html(css + " .c { margin-top: 40pt }",
                                       "<div class=b></div><div class=f></div><div class=c></div>");
    EXPECT_NE(dump_geometry(long_margin).find("    div x=0 y=45 w=100 h=5\n"), std::string::npos)
        << dump_geometry(long_margin);
}

TEST(floats, a_float_stands_no_higher_than_the_floats_before_it) {
    // The right float finds no room beside the wide left one and goes below it; the small left float
    // after it would fit beside the wide one, but may not stand above the right float.
    auto const pages = pack_html(
        ".w { float: left; width: 70pt; height: 10pt } .r { float: right; width: 50pt; height: 10pt }"
        " .s { float: left; width: 20pt; height: 10pt }",
        "<div class=w></div><div class=r></div><div class=s></div>");
    auto const d = dump_geometry(pages);
    EXPECT_NE(d.find("    div x=50 y=10 w=50 h=10\n    div x=0 y=10 w=20 h=10\n"), std::string::npos) << d;
    // The same floats met between the words of a paragraph.
    auto const in_text = pack_html(
        ".w { float: left; width: 70pt; height: 10pt } .r { float: right; width: 50pt; height: 10pt }"
        " .s { float: left; width: 20pt; height: 10pt }",
        "<p><span class=w></span>ab <span class=r></span>ab <span class=s></span>ab</p>");
    auto const t = dump_geometry(in_text);
    EXPECT_NE(t.find(" x=50 y=10 w=50 h=10\n"), std::string::npos) << t;
    EXPECT_NE(t.find(" x=0 y=10 w=20 h=10\n"), std::string::npos) << t;
}

TEST(floats, a_relative_float_moves_by_its_offsets_and_leaves_its_room_where_it_was) {
    auto const pages =
        pack_html(".f { float: left; position: relative; left: 10pt; top: 5pt; width: 30pt; height: 20pt }",
                  "<div class=f></div><p>ab</p>");
    auto const d = dump_geometry(pages);
    EXPECT_NE(d.find("    div x=10 y=5 w=30 h=20\n"), std::string::npos) << d;
    EXPECT_NE(d.find("      line x=30\n"), std::string::npos) << d;
}

TEST(floats, a_block_with_hidden_overflow_keeps_its_own_flow_beside_the_floats) {
    std::string const css = ".f { float: left; width: 30pt; height: 20pt } .h { overflow: hidden }";
    // Narrowed to the room beside the float, its lines start at its own left edge.
    auto const beside = pack_html(css, "<div class=f></div><div class=h><p>" + words(3) + "</p></div>");
    auto d = dump_geometry(beside);
    EXPECT_NE(d.find("    div x=30 y=0 w=70 h=30\n      p x=30 y=0 w=70 h=30\n        line x=30\n"),
              std::string::npos)
        << d;
    // Too wide for the room beside the float: below it.
    auto const below =
        pack_html(css + " .h { width: 80pt; height: 5pt }", "<div class=f></div><div class=h></div>");
    d = dump_geometry(below);
    EXPECT_NE(d.find("    div x=0 y=20 w=80 h=5\n"), std::string::npos) << d;
    // Its own floats make it taller; a clear inside it does not see the float outside.
    auto const holds = pack_html(
        css + " .c { clear: left; height: 5pt }",
        "<div class=h><div class=f></div></div><div class=f></div><div class=h><div class=c></div></div>");
    d = dump_geometry(holds);
    EXPECT_NE(d.find("    div x=0 y=0 w=100 h=20\n"), std::string::npos) << d;
    EXPECT_NE(d.find("    div x=30 y=20 w=70 h=5\n      div x=30 y=20 w=70 h=5\n"), std::string::npos) << d;
}

TEST(floats, a_float_too_tall_for_the_page_goes_on_with_what_follows_it) {
    auto const pages = pack_html(".f { float: left; width: 30pt; height: 40pt }",
                                 lines(8) + "<div class=f></div>" + lines(2));
    auto const d = dump_geometry(pages);
    ASSERT_EQ(pages.size(), 2u) << d;
    EXPECT_NE(d.find("page 1\n  body x=0 y=0 w=100 h=100\n    p x=0 y=0 w=100 h=80\n"), std::string::npos) << d;
    EXPECT_NE(d.find("page 2\n  body+ x=0 y=0 w=100 h=20\n    div x=0 y=0 w=30 h=40\n    p x=0 y=0 w=100 h=20\n"
                     "      line x=30\n      line x=30\n"),
              std::string::npos)
        << d;
}

TEST(floats, a_float_wider_than_the_page_overflows_on_an_empty_page) {
    auto const pages = pack_html(".f { float: right; width: 150pt; height: 10pt }", "<div class=f></div>" + lines(1));
    auto const d = dump_geometry(pages);
    ASSERT_EQ(pages.size(), 1u) << d;
    // No band is wide enough; on an empty page it goes into the first one, from its right edge.
    EXPECT_NE(d.find("    div x=-50 y=0 w=150 h=10\n"), std::string::npos) << d;
}

TEST(floats, auto_width_shrinks_to_the_longest_line_and_sides_follow_the_page) {
    // Two short words on forced lines: the float is as wide as the longer one, far less than the page.
    auto const pages = pack_html(".f { float: inside; border: 1pt solid }", "<div class=f>ab<br>abcd</div><p>x</p>");
    ASSERT_EQ(pages.size(), 1u);
    auto const& html = *pages[0]->body_box.body_content.front();
    auto const& body = *std::get<boxes>(html.box_content).boxes_list.front();
    auto const& f = *std::get<boxes>(body.box_content).boxes_list.at(0);
    EXPECT_GT(f.box_w, 10);
    EXPECT_LT(f.box_w, 40);
    // Page 1 is a right-hand page: inside is its left side.
    EXPECT_FLOAT_EQ(f.box_x, pages[0]->body_box.body_pos.x);
    auto const outside = pack_html(".f { float: outside; width: 20pt; height: 5pt }", "<div class=f></div>");
    EXPECT_NE(dump_geometry(outside).find("    div x=80 y=0 w=20 h=5\n"), std::string::npos) << dump_geometry(outside);
}

// The first child box of a box, through a paragraph's floats.
box const& first_child(box const& b) {
    if (auto const* p = std::get_if<para>(&b.box_content)) {
        for (auto const& item : p->para_lines) {
            if (auto const* f = std::get_if<float_box>(&item)) {
                return *f->float_box_box;
            }
        }
    }
    return *std::get<boxes>(b.box_content).boxes_list.at(0);
}

box const& first_in_body(std::vector<ref<packed_page>> const& pages) {
    auto const& html = *pages.at(0)->body_box.body_content.front();
    return first_child(first_child(html));
}

TEST(floats, auto_width_lies_between_the_min_and_the_max_content_width) {
    std::string const css = ".f { float: left }";
    auto const two = pack_html(css, "<div class=f>ab ab</div>");
    auto const one = pack_html(css, "<div class=f>ab</div>");
    float const word = first_in_body(one).box_w;
    // Room enough: as wide as the words unbroken.
    EXPECT_GT(first_in_body(two).box_w, 2 * word);
    EXPECT_LT(first_in_body(two).box_w, 3 * word);
    // Words for several lines: as wide as the room, not as the longest line it happens to break into.
    std::string many;
    for (int i = 0; i < 40; ++i) {
        many += "ab ";
    }
    EXPECT_FLOAT_EQ(first_in_body(pack_html(css, "<div class=f>" + many + "</div>")).box_w, 100);
    // A word wider than the room: as wide as the word, running over.
    EXPECT_GT(first_in_body(pack_html(css, "<div class=f>" + std::string(80, 'a') + "</div>")).box_w, 100);
    // Floats inside stand side by side at the widest; max-width still holds the float.
    auto const row = pack_html(css + " .g { float: left; width: 20pt; height: 5pt }",
                               "<div class=f><div class=g></div><div class=g></div></div>");
    EXPECT_FLOAT_EQ(first_in_body(row).box_w, 40);
    auto const capped = pack_html(".f { float: left; max-width: 30pt; box-sizing: border-box; padding: 0 5pt }",
                                  "<div class=f>" + many + "</div>");
    EXPECT_FLOAT_EQ(first_in_body(capped).box_w, 30);
}

TEST(floats, nested_floats_each_hold_the_next_one) {
    // Sixty floats inside each other, each with a 1pt left border around the next: every one is as wide
    // as what it holds, so the outermost is 60pt wider than the innermost.
    std::string body;
    for (int i = 0; i < 60; ++i) {
        body += "<div class=f>";
    }
    body += "ab";
    for (int i = 0; i < 60; ++i) {
        body += "</div>";
    }
    auto const pages = pack_html(".f { float: left; border-left: 1pt solid }", body);
    ASSERT_EQ(pages.size(), 1u);
    box const* b = &first_in_body(pages);
    float const outer = b->box_w;
    for (int depth = 1; depth < 60; ++depth) {
        auto const& inner = first_child(*b);
        ASSERT_NEAR(inner.box_w, b->box_w - 1, 0.01f) << "depth " << depth;
        EXPECT_NEAR(inner.box_x, b->box_x + 1, 0.01f) << "depth " << depth;
        b = &inner;
    }
    EXPECT_NEAR(outer - b->box_w, 59, 0.01f);
}

TEST(inline_block, inline_blocks_inside_each_other_shrink_to_what_they_hold) {
    auto const pages = pack_html(".i { display: inline-block; border: 1pt solid }",
                                 "<p>a <span class=i>b <span class=i>c <span class=i>d</span></span></span> e</p>");
    ASSERT_EQ(pages.size(), 1u);
    auto const& p = first_in_body(pages);
    auto const& line = std::get<linebox>(std::get<para>(p.box_content).para_lines.at(0));
    int boxes_on_line = 0;
    for (auto const& s : line.linebox_content) {
        if (auto const* ib = std::get_if<inline_box>(&s)) {
            ++boxes_on_line;
            // Three letters, two spaces and the borders of three boxes: far narrower than the line.
            EXPECT_GT(ib->inline_box_box->box_w, 10);
            EXPECT_LT(ib->inline_box_box->box_w, 40);
        }
    }
    EXPECT_EQ(boxes_on_line, 1);
}

TEST(floats, floats_in_a_paragraph_and_first_letters) {
    // A floated first letter leaves the line and the first lines go beside it.
    auto const pages = pack_html("p::first-letter { float: left; font-size: 16pt; line-height: 20pt }",
                                 "<p>" + words(3) + "</p>");
    auto const d = dump_geometry(pages);
    ASSERT_EQ(pages.size(), 1u) << d;
    EXPECT_NE(d.find("      anon x=0 y=0 w="), std::string::npos) << d;
    EXPECT_EQ(d.find("line x=0\n      line x=0\n      line x=0"), std::string::npos) << d;
}

TEST(run_in, a_run_in_heading_starts_the_next_paragraph) {
    auto const pages = pack_html("h3 { display: run-in; font-size: 8pt; margin: 0 }", "<h3>Head.</h3><p>text</p>");
    auto const d = dump(pages);
    EXPECT_EQ(d, "page 1\n  body y=0 h=10\n    p y=0 h=10 lines=1\n");
    // The heading's words come first on the paragraph's line.
    auto const& html = *pages[0]->body_box.body_content.front();
    auto const& body = *std::get<boxes>(html.box_content).boxes_list.front();
    auto const& p = *std::get<boxes>(body.box_content).boxes_list.front();
    auto const& line = std::get<linebox>(std::get<para>(p.box_content).para_lines.front());
    auto const* heading = std::get_if<ref<nested_spanbox>>(&line.linebox_content.front());
    ASSERT_NE(heading, nullptr);
    EXPECT_EQ(element_name((*heading)->spanbox_type), "h3");

    // Followed by another block kind (a list) or by nothing, it is a block of its own.
    auto const alone = pack_html("h3 { display: run-in; font-size: 8pt; margin: 0 }", "<h3>Head.</h3><ul><li>x</li></ul>");
    EXPECT_NE(dump(alone).find("    h3 y=0 h=10 lines=1\n"), std::string::npos) << dump(alone);
    auto const last = pack_html("h3 { display: run-in; font-size: 8pt; margin: 0 }", "<p>a</p><h3>Head.</h3>");
    EXPECT_NE(dump(last).find("    h3 y=10 h=10 lines=1\n"), std::string::npos) << dump(last);
}

TEST(run_in, a_block_of_blocks_takes_the_run_in_into_its_first_paragraph) {
    auto const pages = pack_html("h3 { display: run-in; font-size: 8pt; margin: 0 }",
                                 "<h3>Head.</h3><div><p>text</p><p>more</p></div>");
    auto const d = dump(pages);
    EXPECT_EQ(d, "page 1\n  body y=0 h=20\n    div y=0 h=20\n      p y=0 h=10 lines=1\n      p y=10 h=10 lines=1\n");
}

TEST(run_in, the_heading_goes_on_with_its_paragraph) {
    // The merged paragraph doesn't fit: the run-in heading goes to the next page with it.
    auto const pages = pack_html("h3 { display: run-in; font-size: 8pt; margin: 0 } .big { page-break-inside: avoid }",
                                 lines(8) + "<h3>Head.</h3>" + lines(3, " class=big"));
    auto const d = dump(pages);
    ASSERT_EQ(pages.size(), 2u) << d;
    EXPECT_NE(d.find("page 2\n  body+ y=0 h=30\n    p y=0 h=30 lines=3\n"), std::string::npos) << d;
}

TEST(inline_blocks, sit_on_the_baseline_and_raise_the_line) {
    // An inline block of 25pt height with no line: its bottom margin edge stands on the baseline, so
    // the line grows above it.
    auto const pages = pack_html(".i { display: inline-block; width: 20pt; height: 25pt; border: 1pt solid }",
                                 "<p>a <span class=i></span> b</p><p>next</p>");
    auto const d = dump(pages);
    ASSERT_EQ(pages.size(), 1u) << d;
    auto const& html = *pages[0]->body_box.body_content.front();
    auto const& body = *std::get<boxes>(html.box_content).boxes_list.front();
    auto const& p = *std::get<boxes>(body.box_content).boxes_list.front();
    EXPECT_GT(p.box_h, 27) << d;
    auto const& line = std::get<linebox>(std::get<para>(p.box_content).para_lines.front());
    inline_box const* ib = nullptr;
    for (auto const& s : line.linebox_content) {
        if (auto const* i = std::get_if<inline_box>(&s)) {
            ib = i;
        }
    }
    ASSERT_NE(ib, nullptr) << d;
    auto const& bx = *ib->inline_box_box;
    EXPECT_NEAR(bx.box_w, 22, 0.01);
    EXPECT_NEAR(bx.box_h, 27, 0.01);
    // Relative to the baseline: its bottom edge at 0.
    EXPECT_NEAR(bx.box_y - bx.box_h, 0, 0.01);
    // It stands after "a " on the line.
    EXPECT_GT(bx.box_x, line.linebox_x + 3);

    // With text inside, the baseline is that of its last line; auto width shrinks to the text.
    auto const text = pack_html(".i { display: inline-block }", "<p>a <span class=i>b<br>c</span> d</p>");
    auto const& html2 = *text[0]->body_box.body_content.front();
    auto const& body2 = *std::get<boxes>(html2.box_content).boxes_list.front();
    auto const& p2 = *std::get<boxes>(body2.box_content).boxes_list.front();
    auto const& line2 = std::get<linebox>(std::get<para>(p2.box_content).para_lines.front());
    for (auto const& s : line2.linebox_content) {
        if (auto const* i = std::get_if<inline_box>(&s)) {
            EXPECT_NEAR(*block::last_baseline(*i->inline_box_box), 0, 0.01);
            EXPECT_LT(i->inline_box_box->box_w, 20);
        }
    }
    EXPECT_NEAR(p2.box_h, 20, 0.5) << dump(text);
}

TEST(page_loop, page_boxes_and_section_breaks) {
    auto const pages = pack_html("@page wide { size: 300pt 120pt } .w { page: wide }",
                                 lines(1) + "<div class=w>" + lines(1) + "</div>" + lines(1));
    ASSERT_EQ(pages.size(), 3u) << dump(pages);
    EXPECT_FLOAT_EQ(pages[0]->mediabox.right, 120);
    EXPECT_FLOAT_EQ(pages[1]->mediabox.right, 300);
    EXPECT_FLOAT_EQ(pages[2]->mediabox.right, 120);
    // The page box is the page less its margins.
    EXPECT_FLOAT_EQ(pages[0]->body_box.body_pos.x, 10);
    EXPECT_FLOAT_EQ(pages[0]->body_box.body_pos.y, 110);
    EXPECT_FLOAT_EQ(pages[0]->body_box.body_size.w, 100);
}

TEST(page_loop, margin_boxes_see_the_page_number) {
    auto const pages = pack_html("@page { font: 8pt Sans; @bottom-center { content: counter(page) \" of \" counter(pages) } }",
                                 lines(25));
    ASSERT_EQ(pages.size(), 3u);
    for (auto const& p : pages) {
        ASSERT_EQ(p->margin_boxes.size(), 1u);
        EXPECT_EQ(p->margin_boxes.front().margin_region, css::page_rule::region::bottom_center);
    }
}

// ---- Progress -----------------------------------------------------------------------------------------
// Every page must consume content. Each document here once made layout run for ever; it is packed
// first in a child process with an alarm, so that a regression fails the test instead of hanging it.

std::vector<ref<packed_page>> pack_bounded(std::string const& css, std::string const& body) {
    auto const* result = ::testing::UnitTest::GetInstance()->current_test_info()->result();
    int const failures_before = result->total_part_count();
    EXPECT_EXIT(
        {
            ::alarm(20);
            (void)pack_html(css, body);
            std::_Exit(0);
        },
        ::testing::ExitedWithCode(0), "")
        << css << body;
    if (result->total_part_count() != failures_before) {
        return {};
    }
    return pack_html(css, body);
}

// The text of all lines of all pages, one line of text per line box.
std::string page_words(std::vector<ref<packed_page>> const& pages) {
    std::string out;
    std::function<void(box const&)> walk = [&](box const& b) {
        if (auto const* p = std::get_if<para>(&b.box_content)) {
            for (auto const& item : p->para_lines) {
                if (auto const* l = std::get_if<linebox>(&item)) {
                    std::function<void(std::vector<spanbox> const&)> spans = [&](std::vector<spanbox> const& c) {
                        for (auto const& sb : c) {
                            if (auto const* ch = std::get_if<charsbox>(&sb)) {
                                for (auto const& g : ch->charsbox_content) {
                                    for (char32_t const c : g.base_glyph.glyph_unicodes) {
                                        out += c < 0x80 ? static_cast<char>(c) : '?';
                                    }
                                }
                            } else if (auto const* n = std::get_if<ref<nested_spanbox>>(&sb)) {
                                spans((*n)->spanbox_content);
                            }
                        }
                    };
                    spans(l->linebox_content);
                    out += "|";
                }
            }
        }
        if (auto const* bs = std::get_if<boxes>(&b.box_content)) {
            for (auto const& c : bs->boxes_list) {
                walk(*c);
            }
        }
        if (auto const* li = std::get_if<list>(&b.box_content)) {
            walk(*li->list_box.list_content);
        }
    };
    for (auto const& p : pages) {
        for (auto const& b : p->body_box.body_content) {
            walk(*b);
        }
        out += "/";
    }
    return out;
}

TEST(progress, a_forced_break_below_the_top_edge_of_an_enclosing_block) {
    // The body's padding or border lowers the first heading on every page: the break in front of it
    // has happened already all the same, and each heading opens its page.
    for (std::string const edge : {"padding-top: 5pt", "border-top: 2pt solid", "padding: 1em"}) {
        SCOPED_TRACE(edge);
        auto const pages =
            pack_bounded("body { " + edge + " } h1 { page-break-before: always; font: 8pt/10pt Sans; margin: 0 }",
                         "<h1>A</h1><p>x</p><h1>B</h1><p>y</p>");
        EXPECT_EQ(page_words(pages), "A|x|/B|y|/") << dump(pages);
    }
    // Forced breaks in a row, and one inside a nested block at the top of the page, give no empty page.
    auto const nested = pack_bounded("div { padding-top: 3pt } .b { page-break-before: always }",
                                     "<div><div class=b><p class=b>one</p></div></div><p class=b>two</p>");
    EXPECT_EQ(page_words(nested), "one|/two|/") << dump(nested);
}

TEST(progress, edges_and_margins_larger_than_the_page) {
    // Whatever the numbers, the run ends and the text stays in the boxes (placed where CSS puts it,
    // off the paper if need be), each page taking something.
    struct doc {
        char const* name;
        std::string css;
        std::size_t max_pages;
    };
    for (auto const& d : {doc{"top padding taller than the page", "div { padding-top: 300pt }", 2},
                          doc{"a top border taller than the page", "div { border-top: 300pt solid }", 2},
                          doc{"a huge margin on a block", "div { margin: 99999in }", 2},
                          doc{"a huge page margin", "@page { margin: 99999in }", 3},
                          doc{"a 1000in page margin", "@page { margin: 1000in }", 3},
                          doc{"a block of negative width", "div { margin: 0 60pt }", 1},
                          doc{"a left margin past the page", "div { margin-left: 200pt }", 1}}) {
        SCOPED_TRACE(d.name);
        auto const pages = pack_bounded(d.css, "<div>one two three</div>");
        ASSERT_FALSE(pages.empty());
        EXPECT_LE(pages.size(), d.max_pages) << dump(pages);
        auto const text = page_words(pages);
        for (auto const* w : {"one", "two", "three"}) {
            EXPECT_NE(text.find(w), std::string::npos) << w << " lost: " << text;
        }
    }
}

TEST(progress, lines_in_no_room_still_take_a_word_each) {
    // Ten nested blockquotes of 40pt margins each leave no room at all: one word per overfull line.
    std::string deep;
    for (int i = 0; i < 11; ++i) {
        deep += "<blockquote>";
    }
    deep += "a b c";
    for (int i = 0; i < 11; ++i) {
        deep += "</blockquote>";
    }
    auto const quotes = pack_bounded("blockquote { margin: 0 0 0 20pt }", deep);
    EXPECT_EQ(page_words(quotes), "a|b|c|/");
    std::string lists;
    for (int i = 0; i < 30; ++i) {
        lists += "<ul><li>";
    }
    lists += "d e";
    for (int i = 0; i < 30; ++i) {
        lists += "</li></ul>";
    }
    auto const nested = pack_bounded("ul { margin: 0; padding-left: 10pt; list-style: none }", lists);
    EXPECT_EQ(page_words(nested), "d|e|/");
}

TEST(progress, a_word_that_does_not_fit_beside_a_float_to_the_page_bottom) {
    // The float reaches below the page: there is no band below it to move to. The page has taken the
    // float, and the paragraph goes on to the next page.
    auto const first = pack_bounded(".f { float: left; width: 95pt; height: 300pt }",
                                    "<div class=f></div><p>abcdefgh</p>");
    EXPECT_EQ(page_words(first), "/abcdefgh|/") << dump_geometry(first);
    // The float fills the page below two lines, down to its bottom.
    auto const later = pack_bounded(".f { float: left; width: 95pt; height: 80pt }",
                                    lines(2) + "<div class=f></div><p>abcdefgh</p>");
    EXPECT_EQ(page_words(later), "line|line|/abcdefgh|/") << dump_geometry(later);
}

// ---- Absolutely positioned and fixed boxes ----------------------------------------------------------------

// The boxes of an element on a page, its absolutely positioned boxes included, in tree order.
void find_boxes(box const& b, std::string const& name, std::vector<box const*>& out) {
    if (element_name(b.box_type) == name) {
        out.push_back(&b);
    }
    std::function<void(box_content const&)> content = [&](box_content const& c) {
        if (auto const* w = std::get_if<with_abs>(&c)) {
            content(*w->with_abs_content);
            for (auto const& a : w->with_abs_boxes) {
                find_boxes(*a, name, out);
            }
        } else if (auto const* bs = std::get_if<boxes>(&c)) {
            for (auto const& k : bs->boxes_list) {
                find_boxes(*k, name, out);
            }
        } else if (auto const* p = std::get_if<para>(&c)) {
            for (auto const& item : p->para_lines) {
                if (auto const* f = std::get_if<float_box>(&item)) {
                    find_boxes(*f->float_box_box, name, out);
                }
            }
        }
    };
    content(b.box_content);
}

std::vector<box const*> boxes_named(packed_page const& page, std::string const& name) {
    std::vector<box const*> out;
    for (auto const& b : page.body_box.body_content) {
        find_boxes(*b, name, out);
    }
    return out;
}

TEST(positioned, absolute_box_against_its_positioned_ancestor_and_the_page) {
    // The body starts at x = 10, y = 110 (page 120pt, margin 10pt).
    auto const pages = pack_html(
        "section { position: relative; margin-left: 20pt; border: 1pt solid; height: 40pt } "
        "aside { position: absolute; top: 5pt; right: 5pt; width: 20pt; height: 10pt } "
        "nav { position: absolute; bottom: 0; left: 0; width: 30pt; height: 8pt }",
        "<section>" + lines(1) + "<aside></aside></section><nav></nav>" + lines(1));
    ASSERT_EQ(pages.size(), 1u);
    auto const aside = boxes_named(*pages[0], "aside");
    ASSERT_EQ(aside.size(), 1u);
    // The section's padding box: x 31 to 109, top 109.
    EXPECT_FLOAT_EQ(aside[0]->box_x, 109 - 5 - 20);
    EXPECT_FLOAT_EQ(aside[0]->box_y, 109 - 5);
    EXPECT_FLOAT_EQ(aside[0]->box_w, 20);
    auto const nav = boxes_named(*pages[0], "nav");
    ASSERT_EQ(nav.size(), 1u);
    // No positioned ancestor: the page area.
    EXPECT_FLOAT_EQ(nav[0]->box_x, 10);
    EXPECT_FLOAT_EQ(nav[0]->box_y, 10 + 8);
    // Out of the flow: the paragraph after it follows the section directly.
    EXPECT_EQ(dump(pages), "page 1\n"
                           "  body y=0 h=52\n"
                           "    section y=0 h=42\n"
                           "      p y=1 h=10 lines=1\n"
                           "    p y=42 h=10 lines=1\n"
                           "  nav y=92 h=8\n");
}

TEST(positioned, static_position_and_shrink_to_fit) {
    auto const pages = pack_html("b { position: absolute; background: red }",
                                 lines(2) + "<div><b>ab</b></div>" + lines(1));
    auto const b = boxes_named(*pages[0], "b");
    ASSERT_EQ(b.size(), 1u);
    // Where the div's content would start, as wide as its text.
    EXPECT_FLOAT_EQ(b[0]->box_x, 10);
    EXPECT_FLOAT_EQ(b[0]->box_y, 110 - 20);
    EXPECT_LT(b[0]->box_w, 20);
}

TEST(positioned, absolute_box_in_a_paragraph_leaves_the_text_whole) {
    auto const pages = pack_html("i { position: absolute; top: 50pt; left: 0 }", "<p>one <i>x</i> two</p>");
    EXPECT_EQ(dump(pages), "page 1\n"
                           "  body y=0 h=10\n"
                           "    p y=0 h=10 lines=1\n"
                           "  i y=50 h=10 lines=1\n");
    auto const i = boxes_named(*pages[0], "i");
    ASSERT_EQ(i.size(), 1u);
    EXPECT_FLOAT_EQ(i[0]->box_y, 110 - 50);
}

TEST(positioned, fixed_box_on_every_page) {
    auto const pages = pack_html("header { position: fixed; top: 0; left: 0; height: 5pt }",
                                 lines(8) + "<header></header>" + lines(8));
    ASSERT_EQ(pages.size(), 2u);
    for (auto const& page : pages) {
        auto const h = boxes_named(*page, "header");
        ASSERT_EQ(h.size(), 1u);
        EXPECT_FLOAT_EQ(h[0]->box_y, 110);
    }
}

} // namespace
} // namespace vellum::pack
