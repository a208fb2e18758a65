// The walk over a styled document, through the real front of the pipeline: what it says about content
// it can't lay out yet, and counters at the edges of the integer range and of the tree's size.
#include "box_support.hpp"

#include <cstdio>
#include <functional>
#include <pthread.h>

#include <gtest/gtest.h>

namespace vellum::prepack {
namespace {

// A document and what the walk said while making its boxes.
struct walked {
    std::string dump;
    std::string messages;
};

walked walk_html(std::string const& html) {
    auto const dir = std::filesystem::temp_directory_path() /
                     ("prepack_walk_test_" + std::to_string(::getpid()) + "_" +
                      ::testing::UnitTest::GetInstance()->current_test_info()->name());
    std::filesystem::create_directories(dir);
    auto const file = dir / "doc.html";
    std::ofstream(file) << html;
    std::FILE* sink = std::tmpfile();
    log::log l{.log_stderr = log::console_log::console_log{.console_out = sink}};
    auto const doc = box_support::boxes_of_file(l, VELLUM_BINARY_DIR, file);
    walked out;
    if (doc) {
        out.dump = dump::dump_document(*doc);
    }
    std::fflush(sink);
    std::rewind(sink);
    for (int c; (c = std::fgetc(sink)) != EOF;) {
        out.messages.push_back(static_cast<char>(c));
    }
    std::fclose(sink);
    std::filesystem::remove_all(dir);
    return out;
}

std::size_t count_of(std::string const& haystack, std::string const& needle) {
    std::size_t n = 0;
    for (auto at = haystack.find(needle); at != std::string::npos; at = haystack.find(needle, at + 1)) {
        ++n;
    }
    return n;
}

// Runs `f` on a thread with a large stack, as the program converts: deep trees recurse deeply.
void on_large_stack(std::function<void()> f) {
    pthread_attr_t attr;
    pthread_attr_init(&attr);
    pthread_attr_setstacksize(&attr, std::size_t{1} << 30);
    pthread_t thread;
    auto const run = [](void* arg) -> void* {
        (*static_cast<std::function<void()>*>(arg))();
        return nullptr;
    };
    ASSERT_EQ(pthread_create(&thread, &attr, run, &f), 0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attr);
}

TEST(walk, each_unsupported_kind_is_named_once) {
    auto const w = walk_html(R"(<style>
.fn { float: footnote } .dn { display: footnote } .a { position: absolute } .f { position: fixed }
.l { float: left }
</style><body>
<p>One<span class="fn">first note</span> two<span class="fn">second note</span>
three<span class="dn">third note</span></p>
<div class="a">abs 1</div><div class="a">abs 2</div><div class="f">fixed 1</div><div class="f">fixed 2</div>
<p><img src="a.png"><img src="b.png"><img src="c.png"></p>
<div class="l">an ordinary float</div>
)");

    struct expectation {
        char const* kind;
        std::size_t times;
    } const expected[] = {
        // Footnotes are laid out: nothing to say.
        {"footnote", 0},
        // Absolutely positioned and fixed boxes are laid out: nothing to say.
        {"position: absolute", 0},
        {"position: fixed", 0},
        {"images are not loaded in this run", 1},
        // Ordinary floats are laid out: nothing to say.
        {"float: left", 0},
    };

    for (auto const& e : expected) {
        SCOPED_TRACE(e.kind);
        EXPECT_EQ(count_of(w.messages, e.kind), e.times) << w.messages;
    }
    // The positioned boxes are still there, for layout to take out of the flow.
    EXPECT_NE(w.dump.find("\"abs\""), std::string::npos);
    EXPECT_NE(w.dump.find("\"fixed\""), std::string::npos);
}

// The box tree of an HTML text, through the real front of the pipeline.
std::optional<pack_document> document_of(std::string const& html) {
    return box_support::boxes_of_html(VELLUM_BINARY_DIR, html,
                                      std::string("walk_") + ::testing::UnitTest::GetInstance()->current_test_info()->name());
}

// Whether any block in the list paints this background colour.
bool paints(block_list const& blocks, css::color::color const& c) {
    for (std::size_t i = 0; i < blocks.size(); ++i) {
        auto const& b = blocks[i];
        if (b.block_style && b.block_style->background && b.block_style->background->background_color == c) {
            return true;
        }
        if (auto const* bs = std::get_if<bcontent_blocks>(&b.block_content); bs && paints(bs->blocks, c)) {
            return true;
        }
    }
    return false;
}

css::color::color background_of(pack_document const& d) {
    return d.doc_background && d.doc_background->background ? d.doc_background->background->background_color
                                                             : css::color::color{css::color::transparent{}};
}

TEST(walk, floats_among_text_stay_in_their_paragraph) {
    // A float met among inline content, directly in the paragraph or inside an inline element, is an
    // atomic item of the paragraph: the text before and after it stays one paragraph, so that layout
    // can place the float beside the line of its call.
    struct example {
        char const* name;
        char const* html;
    } const examples[] = {
        {"side note in a paragraph", "<p>Before<span style='float: right; width: 50%'>Note</span> after</p>"},
        {"page number in a link", "<p><a href='#x'>Before<span style='float: right'>7</span> after</a></p>"},
        {"left float", "<p>Before<b style='float: left'>Note</b> after</p>"},
        {"page float", "<p>Before<span style='float: top'>Note</span> after</p>"},
    };
    for (auto const& e : examples) {
        SCOPED_TRACE(e.name);
        auto const w = walk_html(e.html);
        // One paragraph holds both words and the float between them; no anonymous block cuts it.
        EXPECT_EQ(count_of(w.dump, "para"), 2u) << w.dump;
        EXPECT_EQ(count_of(w.dump, "anonymous"), 0u) << w.dump;
        auto const before = w.dump.find("\"Before\"");
        auto const item = w.dump.find("inline_block");
        auto const after = w.dump.find("\"after\"");
        ASSERT_NE(item, std::string::npos) << w.dump;
        EXPECT_LT(before, item) << w.dump;
        EXPECT_LT(item, after) << w.dump;
    }
    // A float before any text of its paragraph still goes before the paragraph, as a block.
    auto const lead = walk_html("<div><span style='float: left'>Note</span>Text after</div>");
    EXPECT_EQ(count_of(lead.dump, "inline_block"), 0u) << lead.dump;
}

TEST(walk, the_canvas_takes_the_root_or_body_background) {
    css::color::color const blue = css::color::rgb{0, 0, 1};
    css::color::color const red = css::color::rgb{1, 0, 0};
    // The body's background goes to the canvas, and the body's box paints none.
    auto const from_body = document_of("<body style=\"background: #0000ff\"><p>x</p></body>");
    ASSERT_TRUE(from_body);
    EXPECT_EQ(background_of(*from_body), blue);
    ASSERT_EQ(from_body->pack_doc_content.size(), 1u);
    EXPECT_FALSE(paints(from_body->pack_doc_content[0].sec_blocks, blue));
    // The root's own background wins, and the body keeps its own.
    auto const from_root =
        document_of("<html style=\"background: #ff0000\"><body style=\"background: #0000ff\"><p>x</p></body></html>");
    ASSERT_TRUE(from_root);
    EXPECT_EQ(background_of(*from_root), red);
    EXPECT_TRUE(paints(from_root->pack_doc_content[0].sec_blocks, blue));
    // No background anywhere: the canvas is transparent.
    auto const none = document_of("<p>x</p>");
    ASSERT_TRUE(none);
    EXPECT_EQ(background_of(*none), css::color::color{css::color::transparent{}});
}

TEST(walk, hidden_elements_keep_their_named_strings) {
    // The default sheet gives the title a string; the head makes no box, yet the string is set.
    auto const w = walk_html("<title>The Title</title><p>x</p><div style=\"display: none\"><span "
                             "style=\"string-set: inner 'deep'\"></span></div><p>y</p>");
    EXPECT_NE(w.dump.find("string(title)=\"The Title\""), std::string::npos) << w.dump;
    EXPECT_NE(w.dump.find("string(inner)=\"deep\""), std::string::npos) << w.dump;
    // Riding with the content, the title starts no page section of its own before a named body.
    auto const named = document_of("<title>T</title><style>body { page: cover }</style><p>x</p>");
    ASSERT_TRUE(named);
    ASSERT_EQ(named->pack_doc_content.size(), 1u);
    EXPECT_EQ(named->pack_doc_content[0].sec_desc.sec_page_name, std::optional<std::string>("cover"));
}

TEST(walk, counters_hold_at_the_ends_of_the_integer_range) {
    auto const w = walk_html(R"(<style>
p { counter-reset: up 2147483647 down -2147483648 }
.up { counter-increment: up 10 } .up::before { content: counter(up) }
.down { counter-increment: down -7 } .down::before { content: counter(down) }
.twice { counter-increment: up 2147483647 up 2147483647 } .twice::before { content: counters(up, ".") }
</style><p><span class="up">a</span><span class="up">b</span><span class="down">c</span><span class="twice">d</span></p>)");
    EXPECT_EQ(count_of(w.dump, "\"2147483647\""), 3u) << w.dump;
    EXPECT_EQ(count_of(w.dump, "\"-2147483648\""), 1u) << w.dump;
}

TEST(walk, counters_in_scopes_and_siblings) {
    // Nested scopes, a reset repeated in one element, and an increment without a reset.
    auto const w = walk_html(R"(<style>
ol { counter-reset: item item 5 } li { display: block; counter-increment: item }
li::before { content: counters(item, ".") " " } em::before { content: counter(free) } em { counter-increment: free 3 }
</style><ol><li>a<ol><li>b</li><li>c</li></ol></li><li>d</li></ol><p><em>x</em></p>)");
    for (auto const* text : {"\"6\"", "\"6.6\"", "\"6.7\"", "\"7\"", "\"3\""}) {
        SCOPED_TRACE(text);
        EXPECT_NE(w.dump.find(text), std::string::npos) << w.dump;
    }
}

TEST(walk, many_counters_and_deep_counter_scopes) {
    // A million names reset on one element, read by its siblings.
    std::string names;
    for (int i = 0; i < 1000000; ++i) {
        names += " c" + std::to_string(i) + " " + std::to_string(i % 7);
    }
    auto const wide = walk_html("<style>.r { counter-reset:" + names +
                                " } .s::before { content: counter(c999999) counter(c3) }</style>"
                                "<div class=r>x</div><p class=s>y</p><p class=s>z</p>");
    EXPECT_EQ(count_of(wide.dump, "\"03\""), 2u) << wide.messages;

    // Ten thousand nested elements, each opening a counter of the same name.
    int const depth = 10000;
    std::string deep = "<style>div { counter-reset: c; counter-increment: c 2 } "
                       "div::before { content: counter(c) } i::before { content: counters(c, \"\") }</style>";
    for (int i = 0; i < depth; ++i) {
        deep += "<div>";
    }
    deep += "<i>x</i>";
    for (int i = 0; i < depth; ++i) {
        deep += "</div>";
    }
    walked w;
    on_large_stack([&] { w = walk_html(deep); });
    EXPECT_EQ(count_of(w.dump, "text \"2\""), static_cast<std::size_t>(depth));
    // counters() at the bottom lists the value of every level the tree builder's depth budget keeps.
    EXPECT_NE(w.dump.find("\"" + std::string(500, '2')), std::string::npos);
}

// The box tree of a document, walked on a large stack; the dump of a deep tree is too large to use.
pack_document deep_boxes(std::string const& html) {
    auto const dir = std::filesystem::temp_directory_path() /
                     ("prepack_deep_test_" + std::to_string(::getpid()) + "_" +
                      ::testing::UnitTest::GetInstance()->current_test_info()->name());
    std::filesystem::create_directories(dir);
    std::ofstream(dir / "doc.html") << html;
    pack_document out;
    on_large_stack([&] {
        auto doc = box_support::boxes_of_file(log::log{.log_stderr = log::no_stderr_log{}}, VELLUM_BINARY_DIR,
                                              dir / "doc.html");
        ASSERT_TRUE(doc.has_value());
        out = std::move(*doc);
    });
    std::filesystem::remove_all(dir);
    return out;
}

std::string repeated(std::string const& s, int n) {
    std::string out;
    for (int i = 0; i < n; ++i) {
        out += s;
    }
    return out;
}

// How deep nested spans go from a paragraph's spans, and the text at the bottom.
std::pair<int, std::string> span_depth(para const& p) {
    int depth = 0;
    auto const* spans = &p.para_spans;
    while (spans && !spans->empty()) {
        auto const* n = std::get_if<span_nested>(&spans->back());
        if (!n) {
            auto const* t = std::get_if<span_text>(&spans->back());
            return {depth, t ? textbuf::to_utf8(text_of(p.para_text, t->text)) : ""};
        }
        ++depth;
        spans = &n->nested->span_content;
    }
    return {depth, ""};
}

// The last paragraph of a block in document order, found without recursion: the tree builder hangs
// what lies deeper than its depth budget on the ancestor at that depth, so deep text need not be on
// the first branch.
para const* first_para_of(block const& b) {
    std::vector<block const*> todo{&b};
    while (!todo.empty()) {
        block const* at = todo.back();
        todo.pop_back();
        // Children go on the stack in order, so the last one is taken first: the first paragraph met
        // is the last in document order.
        if (auto const* p = std::get_if<bcontent_para>(&at->block_content)) {
            if (!p->para.para_spans.empty()) {
                return &p->para;
            }
        } else if (auto const* l = std::get_if<bcontent_list_item>(&at->block_content)) {
            for (auto const& c : l->item.content) {
                todo.push_back(&c);
            }
        } else if (auto const* bs = std::get_if<bcontent_blocks>(&at->block_content)) {
            for (auto const& c : bs->blocks) {
                todo.push_back(&c);
            }
        }
    }
    return nullptr;
}

TEST(walk, tables_nested_past_the_budget_are_blocks) {
    auto const nest = [](int n, std::string const& open, std::string const& close) {
        std::string html;
        for (int i = 0; i < n; ++i) {
            html += open;
        }
        html += "innermost";
        for (int i = 0; i < n; ++i) {
            html += close;
        }
        return html;
    };
    auto const message = "tables nested more than 32 deep are laid out as blocks";
    {
        // Thirty-two levels are tables, with no message.
        auto const w = walk_html(nest(32, "<table><tr><td>", "</td></tr></table>"));
        EXPECT_EQ(count_of(w.dump, "table\n"), 32u);
        EXPECT_EQ(count_of(w.messages, message), 0u) << w.messages;
    }
    {
        // Below that, tables, rows and cells are blocks, with their text; one message says so.
        auto const w = walk_html(nest(40, "<table><tr><td>", "</td></tr></table>"));
        EXPECT_EQ(count_of(w.dump, "table\n"), 32u);
        EXPECT_EQ(count_of(w.dump, "block <td>"), 8u);
        EXPECT_NE(w.dump.find("innermost"), std::string::npos);
        EXPECT_EQ(count_of(w.messages, message), 1u) << w.messages;
    }
    {
        // Cells in cells stand in anonymous tables, and count as nesting too.
        auto const w = walk_html(nest(100, "<div style='display: table-cell'>", "</div>"));
        EXPECT_LE(count_of(w.dump, "table\n"), 64u);
        EXPECT_NE(w.dump.find("innermost"), std::string::npos);
        EXPECT_EQ(count_of(w.messages, message), 1u) << w.messages;
    }
    {
        // Tables beside each other do not add up.
        std::string html;
        for (int i = 0; i < 50; ++i) {
            html += "<table><tr><td>x</td></tr></table>";
        }
        auto const w = walk_html(html);
        EXPECT_EQ(count_of(w.dump, "table\n"), 50u);
        EXPECT_EQ(count_of(w.messages, message), 0u) << w.messages;
    }
}

TEST(walk, deep_trees) {
    int const blocks = 10000;
    int const spans = 100000;
    {
        auto const doc = deep_boxes(repeated("<div>", blocks) + "x" + repeated("</div>", blocks));
        ASSERT_EQ(doc.pack_doc_content.size(), 1u);
        auto const* p = first_para_of(doc.pack_doc_content[0].sec_blocks.front());
        ASSERT_TRUE(p);
        EXPECT_EQ(span_depth(*p).second, "x");
    }
    {
        auto const doc = deep_boxes(repeated("<ul><li>", blocks) + "x" + repeated("</li></ul>", blocks));
        auto const* p = first_para_of(doc.pack_doc_content[0].sec_blocks.front());
        ASSERT_TRUE(p);
        EXPECT_EQ(span_depth(*p).second, "x");
    }
    {
        auto const doc =
            deep_boxes("<p>" + repeated("<span>a ", spans) + "x" + repeated("</span>", spans) + "</p>");
        auto const* p = first_para_of(doc.pack_doc_content[0].sec_blocks.front());
        ASSERT_TRUE(p);
        auto const [depth, bottom] = span_depth(*p);
        // Nesting goes as deep as the tree builder's budget lets it.
        EXPECT_GE(depth, 500);
        EXPECT_EQ(bottom, "x");
    }
    {
        // The same spans with a right-to-left word at the bottom go through the bidi pass.
        auto const doc =
            deep_boxes("<p>" + repeated("<span>a ", spans) + "\u05D0" + repeated("</span>", spans) + "</p>");
        auto const* p = first_para_of(doc.pack_doc_content[0].sec_blocks.front());
        ASSERT_TRUE(p);
        auto const [depth, bottom] = span_depth(*p);
        EXPECT_GE(depth, 500);
        EXPECT_EQ(bottom, "\u05D0");
    }
}

} // namespace
} // namespace vellum::prepack
