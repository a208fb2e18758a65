// The box tree's records stay small and share what an element brings: a box's type travels into every
// fragment, line item and painted box, so copying one must not copy the element's ids, bookmark,
// counters and strings.
#include "box_support.hpp"

#include <functional>

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
    EXPECT_LE(sizeof(span), 48u);
    EXPECT_LE(sizeof(element_type), 48u);
    EXPECT_LE(sizeof(element_info), 32u);
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
