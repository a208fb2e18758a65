// The box tree's records stay small and share what an element brings: a box's type travels into every
// fragment, line item and painted box, so copying one must not copy the element's ids, bookmark,
// counters and strings.
#include "box_support.hpp"

#include <functional>
#include <string>

#include <gtest/gtest.h>

namespace vellum::prepack {
namespace {

std::optional<pack_document> document_of(std::string const& html) {
    return box_support::boxes_of_html(VELLUM_BINARY_DIR, html,
                                      std::string("records_") + ::testing::UnitTest::GetInstance()->current_test_info()->name());
}

// The first block, depth first, for which `want` holds.
block const* find_block(block_list const& blocks, std::function<bool(block const&)> const& want) {
    for (auto const& b : blocks) {
        if (want(b)) {
            return &b;
        }
        if (auto const* bs = std::get_if<bcontent_blocks>(&b.block_content)) {
            if (auto const* found = find_block(bs->blocks, want)) {
                return found;
            }
        }
    }
    return nullptr;
}

bool has_id(block const& b, std::string const& id) {
    auto const* o = std::get_if<type_original>(&b.block_type);
    if (!o || !o->stuff->given_ids) {
        return false;
    }
    for (auto const& t : o->stuff->given_ids->second) {
        if (t.id == id) {
            return true;
        }
    }
    return false;
}

TEST(records, hot_records_stay_small) {
    // A word or a space of a paragraph is one span: its text lies in the paragraph's text.
    EXPECT_LE(sizeof(span), 24u);
    EXPECT_EQ(sizeof(text_range), 8u);
    EXPECT_LE(sizeof(element_type), 48u);
    EXPECT_LE(sizeof(element_info), 32u);
}

TEST(records, text_ranges_view_cut_and_check_their_text) {
    textbuf::textbuf text;
    auto const hello = append_text(text, U"hello");
    auto const world = append_text(text, U"w\u00F6rld");
    EXPECT_EQ(hello, (text_range{.text_offset = 0, .text_length = 5}));
    EXPECT_EQ(world, (text_range{.text_offset = 5, .text_length = 5}));
    EXPECT_EQ(text_of(text, hello), U"hello");
    EXPECT_EQ(text_of(text, world), U"w\u00F6rld");
    // Nothing appended makes an empty range at the end, which needs no text at all.
    auto const none = append_text(text, U"");
    EXPECT_EQ(none.text_length, 0u);
    EXPECT_EQ(text_of(para_text{}, none), U"");

    // Cutting a range keeps the text where it is.
    EXPECT_EQ(text_of(text, sub_range(world, 1, 3)), U"\u00F6rl");
    EXPECT_EQ(text_of(text, sub_range(world, 5, 0)), U"");
    EXPECT_EQ(text.size(), 10u);

    // A range outside its text, or a cut outside its range, is a fault of the program, never a read
    // past the end.
    EXPECT_THROW((void)text_of(text, text_range{.text_offset = 8, .text_length = 3}), internal_error);
    EXPECT_THROW((void)text_of(para_text{}, hello), internal_error);
    EXPECT_THROW((void)sub_range(hello, 4, 2), internal_error);
    EXPECT_THROW((void)sub_range(hello, 6, 0), internal_error);
}

// The text ranges of spans in document order, with those of nested spans and first letters.
void ranges_of(std::vector<span> const& spans, std::vector<text_range>& out) {
    for (auto const& s : spans) {
        if (auto const* n = std::get_if<span_nested>(&s)) {
            ranges_of(n->nested->span_content, out);
        } else if (auto const* t = std::get_if<span_text>(&s)) {
            out.push_back(t->text);
        } else if (auto const* h = std::get_if<span_text_with_hyphen>(&s)) {
            out.push_back(h->text);
        } else if (auto const* f = std::get_if<span_first_letter>(&s)) {
            out.push_back(f->first_letter_text);
        }
    }
}

// The paragraphs under some blocks in document order.
void paras_of(block_list const& blocks, std::vector<para const*>& out) {
    for (auto const& b : blocks) {
        if (auto const* p = std::get_if<bcontent_para>(&b.block_content)) {
            out.push_back(&p->para);
        } else if (auto const* bs = std::get_if<bcontent_blocks>(&b.block_content)) {
            paras_of(bs->blocks, out);
        }
    }
}

TEST(records, a_documents_words_are_held_once_in_one_shared_text) {
    auto const doc = document_of("<style>p.first::first-letter { color: red }</style>"
                                 "<p class='first'>\u201CHello\u201D <em>wide</em>   world.</p>"
                                 "<p>Co&shy;op well-known \u05E9\u05DC\u05D5\u05DD!</p>"
                                 "<div>one<p>two</p>three</div>");
    ASSERT_TRUE(doc);
    std::vector<para const*> paras;
    for (auto const& sec : doc->pack_doc_content) {
        paras_of(sec.sec_blocks, paras);
    }
    ASSERT_EQ(paras.size(), 5u);
    auto const& text = paras.front()->para_text;
    ASSERT_TRUE(text);
    std::u32string words;
    text_range last{};
    for (auto const* p : paras) {
        // Every paragraph of the document shares the one text.
        EXPECT_EQ(p->para_text.get(), text.get());
        std::vector<text_range> ranges;
        ranges_of(p->para_spans, ranges);
        for (auto const r : ranges) {
            // Each word follows the one before it in the text: nothing is stored twice or out of
            // order, and spaces are separators, not text.
            EXPECT_EQ(r.text_offset, last.text_offset + last.text_length);
            words += text_of(text, r);
            last = r;
        }
    }
    EXPECT_EQ(words, U"\u201CHello\u201Dwideworld.Coopwell-known\u05E9\u05DC\u05D5\u05DD!onetwothree");
    EXPECT_EQ(*text, words);
    // The first letter is cut from the word's range, with the quotation mark before it.
    std::vector<text_range> first;
    ranges_of(paras.front()->para_spans, first);
    ASSERT_GE(first.size(), 2u);
    ASSERT_TRUE(std::holds_alternative<span_first_letter>(paras.front()->para_spans.front()));
    EXPECT_EQ(text_of(text, first[0]), U"\u201CH");
    EXPECT_EQ(text_of(text, first[1]), U"ello\u201D");
}

TEST(records, copies_of_a_box_type_share_the_element_and_compare_by_value) {
    auto const doc = document_of("<h1 id=\"intro\" style=\"string-set: chapter content()\">Intro</h1>"
                                 "<p id=\"p1\">Text <em id=\"e1\">here</em>.</p>");
    ASSERT_TRUE(doc);
    ASSERT_FALSE(doc->pack_doc_content.empty());
    auto const& blocks = doc->pack_doc_content[0].sec_blocks;
    auto const* h1 = find_block(blocks, [](block const& b) { return has_id(b, "intro"); });
    auto const* p = find_block(blocks, [](block const& b) { return has_id(b, "p1"); });
    ASSERT_NE(h1, nullptr);
    ASSERT_NE(p, nullptr);
    auto const& stuff = std::get<type_original>(h1->block_type).stuff;
    EXPECT_FALSE(stuff->text_values.empty());

    // A copy of the block (as layout makes for every fragment) points at the same element record.
    block const copy = *h1;
    EXPECT_EQ(std::get<type_original>(copy.block_type).stuff.get(), stuff.get());
    EXPECT_EQ(copy, *h1);

    // Equal records made apart compare equal; a different element does not.
    element_type const apart = type_original{share(element_stuff(*stuff))};
    EXPECT_NE(std::get<type_original>(apart).stuff.get(), stuff.get());
    EXPECT_EQ(apart, h1->block_type);
    EXPECT_NE(apart, p->block_type);

    // The inline element inside the paragraph carries its own shared record.
    auto const* para = std::get_if<bcontent_para>(&p->block_content);
    ASSERT_NE(para, nullptr);
    bool found = false;
    for (auto const& s : para->para.para_spans) {
        if (auto const* n = std::get_if<span_nested>(&s)) {
            auto const* o = std::get_if<type_original>(&n->nested->span_type);
            ASSERT_NE(o, nullptr);
            ASSERT_TRUE(o->stuff->given_ids);
            EXPECT_EQ(o->stuff->given_ids->second.front().id, "e1");
            span const span_copy = s;
            EXPECT_EQ(std::get<type_original>(std::get<span_nested>(span_copy).nested->span_type).stuff.get(),
                      o->stuff.get());
            found = true;
        }
    }
    EXPECT_TRUE(found);
}

} // namespace
} // namespace vellum::prepack
