// The page loop on real documents: page sections cut deep in the tree, content shrunk to fit the
// page, and the progress reports of a pass. Text is set in DejaVu Sans, 8pt on 10pt lines, on pages
// of 100pt by 100pt inside 10pt margins.
#include "pack/pack.hpp"
#include "pack/test_fonts.hpp"
#include "prepack/box_support.hpp"

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <unistd.h>

#include <gtest/gtest.h>

namespace vellum::pack {
namespace {

std::string const page_css = "@page { size: 120pt 120pt; margin: 10pt } "
                             "body { margin: 0; font: 8pt/10pt Sans } p { margin: 0 } ";

ref<prepack::pack_document const> document(std::string const& css, std::string const& body) {
    // ctest runs the tests of this program as parallel processes: each writes a file of its own.
    auto const dir =
        std::filesystem::temp_directory_path() / ("vellum-page-loop-test-" + std::to_string(::getpid()));
    std::filesystem::create_directories(dir);
    auto const file = dir / "doc.html";
    std::ofstream(file) << "<!DOCTYPE html><html><head><style>" << page_css << css << "</style></head><body>"
                        << body << "</body></html>";
    auto doc = box_support::boxes_of_file(log::log{}, VELLUM_BINARY_DIR, file);
    EXPECT_TRUE(doc) << (doc ? "" : doc.error());
    return std::make_shared<prepack::pack_document const>(doc ? std::move(*doc) : prepack::pack_document{});
}

std::vector<ref<packed_page>>
pack_html(std::string const& css, std::string const& body, log::log const& log = {}) {
    return pack_documents(pass_input{.pass_log = log, .pass_fonts = test_fonts::db()}, {document(css, body)})
        .result_pages;
}

// The text of a page's body, line by line.
void text_of(std::string& out, box const& b);

void text_of_spans(std::string& out, std::vector<spanbox> const& spans) {
    for (auto const& s : spans) {
        if (auto const* c = std::get_if<charsbox>(&s)) {
            for (auto const& g : c->charsbox_content) {
                out += textbuf::to_utf8(g.base_glyph.glyph_unicodes);
            }
        } else if (auto const* n = std::get_if<ref<nested_spanbox>>(&s)) {
            text_of_spans(out, (*n)->spanbox_content);
        }
    }
}

void text_of(std::string& out, box const& b) {
    if (auto const* bs = std::get_if<boxes>(&b.box_content)) {
        for (auto const& c : bs->boxes_list) {
            text_of(out, *c);
        }
    } else if (auto const* p = std::get_if<para>(&b.box_content)) {
        for (auto const& l : p->para_lines) {
            if (auto const* line = std::get_if<linebox>(&l)) {
                text_of_spans(out, line->linebox_content);
                out += "\n";
            }
        }
    } else if (auto const* li = std::get_if<list>(&b.box_content)) {
        // An outside marker reads as the start of its item's first line.
        if (li->list_box.markerbox) {
            std::string marker;
            text_of(marker, **li->list_box.markerbox);
            while (!marker.empty() && (marker.back() == '\n' || marker.back() == ' ')) {
                marker.pop_back();
            }
            out += marker + " ";
        }
        text_of(out, *li->list_box.list_content);
    }
}

std::string page_text(packed_page const& p) {
    std::string out;
    for (auto const& b : p.body_box.body_content) {
        text_of(out, *b);
    }
    return out;
}

// A paragraph of n lines, each ending in a forced break.
std::string lines(int n) {
    std::string out = "<p>";
    for (int i = 0; i < n; ++i) {
        out += (i ? "<br>" : "") + std::string("line");
    }
    return out + "</p>";
}

// ---- Sections cut deep in the tree -------------------------------------------------------------------

TEST(page_loop, a_named_page_deep_in_the_tree_gets_pages_of_its_own) {
    auto const pages =
        pack_html("@page wide { size: 300pt 120pt } .w { page: wide } .frame { border: 1pt solid }",
                  "<div class=frame><section><p>one</p><div class=w><p>two</p></div><p>three</p>"
                  "</section></div><p>four</p>");
    ASSERT_EQ(pages.size(), 3u);
    EXPECT_FLOAT_EQ(pages[0]->mediabox.right, 120);
    EXPECT_FLOAT_EQ(pages[1]->mediabox.right, 300);
    EXPECT_FLOAT_EQ(pages[2]->mediabox.right, 120);
    EXPECT_EQ(page_text(*pages[0]), "one\n");
    EXPECT_EQ(page_text(*pages[1]), "two\n");
    EXPECT_EQ(page_text(*pages[2]), "three\nfour\n");
    // The framed div goes on over all three pages: its first part is the element itself, the later ones
    // its continuations, each drawn inside the page's body.
    for (std::size_t i = 0; i < pages.size(); ++i) {
        SCOPED_TRACE(i);
        auto const& html = *pages[i]->body_box.body_content.at(0);
        auto const& body = *std::get<boxes>(html.box_content).boxes_list.at(0);
        auto const& frame = *std::get<boxes>(body.box_content).boxes_list.at(0);
        EXPECT_EQ(std::holds_alternative<prepack::type_original>(frame.box_type), i == 0);
        EXPECT_EQ(std::holds_alternative<prepack::type_remaining>(frame.box_type), i > 0);
        EXPECT_LE(frame.box_x + frame.box_w,
                  pages[i]->body_box.body_pos.x + pages[i]->body_box.body_size.w + 0.01f);
    }
}

TEST(page_loop, a_nested_section_start_brings_its_page_break) {
    // Both nested blocks open a page group and ask for a right-hand page: blank left-hand pages come
    // in front of them.
    auto const pages = pack_html(".r { page-break-before: right; page-group: start }",
                                 "<div><p>a</p><div class=r><p>b</p></div><div class=r><p>c</p></div></div>");
    ASSERT_EQ(pages.size(), 5u);
    std::vector<std::string> texts;
    for (auto const& p : pages) {
        texts.push_back(page_text(*p));
    }
    EXPECT_EQ(texts, (std::vector<std::string>{"a\n", "", "b\n", "", "c\n"}));
}

// ---- Shrinking to fit -----------------------------------------------------------------------------------

TEST(page_loop, shrink_to_fit_scales_the_page_to_its_widest_content) {
    std::string const shrink = "@page { -vellum-shrink-to-fit: auto } .w { width: 200pt; height: 10pt } ";
    auto const wide = pack_html(shrink, "<div class=w></div><p>x</p>");
    ASSERT_EQ(wide.size(), 1u);
    ASSERT_TRUE(wide[0]->scaled);
    EXPECT_NEAR(*wide[0]->scaled, 2, 0.001);
    // The body is laid out twice as wide (and high), then painted at half size onto the same paper.
    EXPECT_NEAR(wide[0]->body_box.body_size.w, 200, 0.01);
    EXPECT_FLOAT_EQ(wide[0]->mediabox.right, 120);

    // Content that fits, or a page that doesn't ask, is left alone.
    EXPECT_FALSE(pack_html(shrink, "<p>x</p>").at(0)->scaled);
    EXPECT_FALSE(pack_html(".w { width: 200pt; height: 10pt }", "<div class=w></div>").at(0)->scaled);
}

TEST(page_loop, shrink_to_fit_measures_words_that_cannot_break) {
    auto const pages =
        pack_html("@page { -vellum-shrink-to-fit: auto }", "<p>a " + std::string(40, 'm') + " b</p>");
    ASSERT_FALSE(pages.empty());
    ASSERT_TRUE(pages[0]->scaled);
    float const s = *pages[0]->scaled;
    EXPECT_GT(s, 2.5f);
    // At that scale the word's line fits the body exactly.
    auto const& body = pages[0]->body_box;
    EXPECT_NEAR(body.body_size.w, 100 * s, 0.01);
}

TEST(page_loop, shrink_to_fit_measures_again_what_the_larger_page_takes_in) {
    // At 100pt the page holds the 200pt block and nine lines; at 200pt it takes all fifteen lines and
    // the 300pt block below them, so the page is measured again and ends three times as wide.
    auto const pages = pack_html("@page { -vellum-shrink-to-fit: auto } .w { width: 200pt; height: 10pt } "
                                 ".x { width: 300pt; height: 10pt }",
                                 "<div class=w></div>" + lines(15) + "<div class=x></div>");
    ASSERT_EQ(pages.size(), 1u);
    ASSERT_TRUE(pages[0]->scaled);
    EXPECT_NEAR(*pages[0]->scaled, 3, 0.001);
}

// ---- Progress ---------------------------------------------------------------------------------------------

// The percentages a pass reports on a progress log.
std::vector<int> progress_of(std::vector<ref<prepack::pack_document const>> const& docs) {
    std::FILE* out = std::tmpfile();
    auto server = log::make_server_log(log::server_log::server_log_type::server_log_progress);
    server.server_out = out;
    log::log const l{.log_stderr = server};
    auto const r = pack_documents(pass_input{.pass_log = l, .pass_fonts = test_fonts::db()}, docs);
    std::fflush(out);
    std::rewind(out);
    std::vector<int> percents;
    char line[256];
    while (std::fgets(line, sizeof line, out)) {
        int n = 0;
        if (std::sscanf(line, "prg|%d", &n) == 1) {
            percents.push_back(n);
        }
    }
    std::fclose(out);
    EXPECT_FALSE(r.result_pages.empty());
    return percents;
}

TEST(page_loop, progress_counts_the_blocks_packed_over_the_whole_pass) {
    // Two documents of five pages each: four paragraphs of eight lines, then a section of its own for
    // one more paragraph. Progress counts the blocks at the first level under the wrappers (html, body,
    // and the lone div of the second section): five a document. A report opens each round of the loop.
    std::string paras;
    for (int i = 0; i < 4; ++i) {
        paras += lines(8);
    }
    auto const doc = document(".n { page: n }", paras + "<div class=n>" + lines(1) + "</div>");
    auto const percents = progress_of({doc, doc});
    ASSERT_FALSE(percents.empty());
    EXPECT_EQ(percents.front(), 0);
    EXPECT_EQ(percents.back(), 100);
    EXPECT_TRUE(std::ranges::is_sorted(percents)) << ::testing::PrintToString(percents);
    // Halfway, when the first document is done, the second starts where the first ended.
    EXPECT_EQ(percents, (std::vector<int>{0, 10, 20, 30, 40, 40, 50, 50, 60, 70, 80, 90, 90, 100}));

    // A pass over nothing to count is an internal error, as in any division by zero.
    auto const empty = std::make_shared<prepack::pack_document const>(
        prepack::pack_document{.pack_doc_content = {prepack::page_sec{}}});
    try {
        progress_of({empty});
        ADD_FAILURE() << "no error";
    } catch (internal_error const& e) {
        EXPECT_STREQ(e.what(), "division by zero: pack:pack_doc");
    }
}


// ---- Footnotes ------------------------------------------------------------------------------------------

namespace footnote_cases {

std::string const css = ".fn { float: footnote } .pb { break-before: page } ";

// The footnote area is the last box of a page that has footnotes.
box const& area_of(packed_page const& p) {
    return *p.body_box.body_content.back();
}

std::string note_text(packed_page const& p) {
    std::string out;
    text_of(out, area_of(p));
    return out;
}

} // namespace footnote_cases

TEST(page_loop, a_footnote_stands_at_the_foot_of_the_page_of_its_call) {
    using namespace footnote_cases;
    auto const pages = pack_html(css + "@page { @footnote { border-top: 1pt solid; padding-top: 2pt } }",
                                 "<p>call<span class=fn>Note</span> text</p><p class=pb>b<span class=fn>Other</span></p>");
    ASSERT_EQ(pages.size(), 2u);
    ASSERT_EQ(pages[0]->body_box.body_content.size(), 2u);
    // The call shows the number; the body starts with its marker.
    EXPECT_EQ(page_text(*pages[0]).substr(0, 11), "call1 text\n");
    EXPECT_EQ(note_text(*pages[0]), "1. Note\n");
    // The area stands on the body's bottom (y = 10), one line plus its border and padding tall.
    auto const& area = area_of(*pages[0]);
    EXPECT_NEAR(area.box_y - area.box_h, 10, 0.01);
    EXPECT_NEAR(area.box_h, 13, 0.01);
    // Each page holds its own footnotes, numbered on from the page before.
    EXPECT_EQ(note_text(*pages[1]), "2. Other\n");
}

TEST(page_loop, a_long_footnote_goes_on_first_on_the_next_page) {
    using namespace footnote_cases;
    std::string body;
    for (int i = 0; i < 14; ++i) {
        body += (i ? "<br>" : "") + std::string("n");
    }
    auto const pages = pack_html(css, lines(3) + "<p>call<span class=fn>" + body + "</span></p><p>after</p>");
    ASSERT_GE(pages.size(), 2u);
    // The note starts on the page of its call, under its text, and its rest comes first on the next.
    auto const first = note_text(*pages[0]);
    auto const second = note_text(*pages[1]);
    EXPECT_EQ(first.substr(0, 5), "1. n\n");
    EXPECT_GT(std::count(first.begin(), first.end(), '\n'), 2);
    EXPECT_EQ(std::count(first.begin(), first.end(), '\n') + std::count(second.begin(), second.end(), '\n'), 14);
    EXPECT_EQ(second.substr(0, 2), "n\n");
    // Text keeps its place: the call's page keeps the lines in front of the call.
    EXPECT_EQ(page_text(*pages[0]).substr(0, 20), "line\nline\nline\ncall1");
}

// ---- Sections taken again by the next pass -------------------------------------------------------------

// Contents in a named page that shows chapters' page numbers, chapters that look nothing up, and an
// index that looks up a chapter before it, whose page the first pass knows by then: a second pass packs
// the contents again and takes the chapters' and the index's pages as the first pass made them, part by
// part (each chapter starts on a page of its own). Where the chapter moved, the index is packed again.
TEST(page_loop, a_section_that_looked_nothing_up_is_taken_again) {
    auto const doc = document(
        "@page front { size: 120pt 200pt } @page back { size: 120pt 200pt } nav { page: front } "
        ".idx { page: back } nav a::after, .idx a::after { content: ' ' target-counter(attr(href), page) } "
        "h1 { break-before: page; bookmark-level: 1; font-size: 8pt } a { display: block }",
        "<nav><a href='#c1'>one</a><a href='#c2'>two</a></nav>"
        "<main><h1 id=c1>One</h1>" + lines(12) + "<h1 id=c2>Two</h1>" + lines(20) + "</main>"
        "<div class=idx><a href='#c2'>two</a></div>");
    std::vector<int> handed;
    int skipped = 0;
    pass_input first{.pass_log = {}, .pass_fonts = test_fonts::db()};
    auto const records = std::make_shared<section_records>();
    first.pass_sections = records;
    first.pass_take_page = [&](ref<packed_page> const&) { handed.push_back(int(handed.size() + 1)); };
    first.pass_skip_page = [&] { handed.push_back(-int(handed.size() + 1)); ++skipped; };
    auto const one = pack_documents(first, {doc});
    // The contents looked up pages the first pass doesn't know: not painted. The index is, with chapter
    // two's page as the pass placed it. The chapters make two parts, the second begun by the forced
    // break in front of chapter two.
    ASSERT_EQ(records->size(), 4u);
    auto const& contents = records->at({0, 0, nullptr, 0});
    auto const& one_part = records->at({0, 1, nullptr, 0});
    auto const& index = records->at({0, 2, nullptr, 0});
    auto const two = std::find_if(records->begin(), records->end(), [](auto const& r) {
        return std::get<1>(r.first) == 1 && std::get<2>(r.first) != nullptr;
    });
    ASSERT_NE(two, records->end());
    auto const& two_part = two->second;
    EXPECT_EQ(contents.record_looked_pages.size(), 2u);
    for (auto const& [key, answer] : contents.record_looked_pages) {
        EXPECT_FALSE(answer.has_value());
    }
    EXPECT_TRUE(one_part.record_looked_pages.empty());
    EXPECT_TRUE(two_part.record_looked_pages.empty());
    ASSERT_EQ(index.record_looked_pages.size(), 1u);
    auto const& [c2, c2_page] = *index.record_looked_pages.begin();
    ASSERT_TRUE(c2_page.has_value());
    EXPECT_EQ(c2_page->pdf_page_num, two_part.record_first_page);
    EXPECT_EQ(*c2_page, one.result_targets.page_nums.at(c2).num);
    EXPECT_EQ(skipped, contents.record_page_count);
    EXPECT_EQ(index.record_first_page, two_part.record_first_page + two_part.record_page_count);
    EXPECT_EQ(one_part.record_first_page, contents.record_page_count + 1);
    EXPECT_EQ(two_part.record_first_page, one_part.record_first_page + one_part.record_page_count);
    EXPECT_EQ(two_part.record_entry, one_part.record_exit);
    EXPECT_FALSE(one_part.record_exit_blocks.empty());
    EXPECT_TRUE(two_part.record_exit_blocks.empty());
    EXPECT_GE(one_part.record_page_count + two_part.record_page_count, 3);

    // The second pass, with what the first found, once taking the chapters again and once packing all.
    auto second = [&](bool take, prepack::targets::pass_targets const& targets) {
        pass_input in{.pass_log = {}, .pass_fonts = test_fonts::db()};
        in.pass_targets = std::make_shared<prepack::targets::pass_targets const>(targets);
        in.pass_sections_before = records;
        in.pass_sections = std::make_shared<section_records>();
        std::vector<std::pair<int, int>> taken;
        std::vector<int> packed;
        in.pass_take_page = [&](ref<packed_page> const&) { packed.push_back(int(packed.size() + taken.size())); };
        in.pass_on_page = [&](int page) { packed.back() = page; };
        in.pass_take_pages_before = [&](int from, int count) {
            if (!take) {
                return false;
            }
            taken.emplace_back(from, count);
            return true;
        };
        auto r = pack_documents(in, {doc});
        return std::tuple(std::move(r), taken, packed, in.pass_sections);
    };
    auto const [taken_pass, taken, packed, again] = second(true, one.result_targets);
    auto const [full_pass, none, all, again_full] = second(false, one.result_targets);
    ASSERT_EQ(taken.size(), 3u);
    EXPECT_EQ(taken[0], std::pair(one_part.record_first_page, one_part.record_page_count));
    EXPECT_EQ(taken[1], std::pair(two_part.record_first_page, two_part.record_page_count));
    EXPECT_EQ(taken[2], std::pair(index.record_first_page, index.record_page_count));
    EXPECT_TRUE(none.empty());
    // The pages packed are those of the contents, numbered as in the full pass.
    EXPECT_EQ(int(packed.size()), contents.record_page_count);
    EXPECT_EQ(int(all.size()), contents.record_page_count + one_part.record_page_count +
                                   two_part.record_page_count + index.record_page_count);
    EXPECT_EQ(packed.back(), contents.record_page_count);
    // What the pass reports is what packing it all reports.
    EXPECT_EQ(taken_pass.result_targets, full_pass.result_targets);
    EXPECT_EQ(taken_pass.result_bookmarks, full_pass.result_bookmarks);
    EXPECT_EQ(taken_pass.result_looked_up.pages, full_pass.result_looked_up.pages);
    EXPECT_EQ(taken_pass.result_user_pages_totals, full_pass.result_user_pages_totals);
    // A third pass may take the chapters again from the second, whichever way it made them.
    EXPECT_TRUE(again->contains(two->first));
    EXPECT_EQ(again->at({0, 1, nullptr, 0}).record_exit, again_full->at({0, 1, nullptr, 0}).record_exit);
    EXPECT_EQ(again->at(two->first).record_exit, again_full->at(two->first).record_exit);

    // Had the first pass put chapter two a page further on, the index would show another number: it is
    // packed again, the chapters are still taken.
    auto moved = one.result_targets;
    moved.page_nums.at(c2).num.user_page_num += 1;
    auto const [moved_pass, moved_taken, moved_packed, moved_again] = second(true, moved);
    ASSERT_EQ(moved_taken.size(), 2u);
    EXPECT_EQ(moved_taken[1], taken[1]);
    EXPECT_EQ(int(moved_packed.size()), contents.record_page_count + index.record_page_count);
    EXPECT_EQ(moved_packed.back(), all.back());
}

} // namespace
} // namespace vellum::pack
