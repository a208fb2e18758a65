// Direct tests of the HTML parser's entries, tokenizer and result shape.
#include "document/html5/entities.hpp"
#include "document/html5/format.hpp"
#include "document/html5/parser.hpp"
#include "document/html5/stack.hpp"
#include "document/html5/tokenizer.hpp"

#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

using namespace vellum::html5;

std::string tree_of(std::string_view html) {
    return format::format_document(parser::parse_document(html));
}

std::vector<std::string> tokens_of(std::string_view html) {
    auto t = tokenizer::start(html);
    std::vector<std::string> out;
    for (;;) {
        auto& tok = tokenizer::next_token(t);
        out.push_back(format::format_token(tok));
        if (tok.token_kind == token::token_type::end_of_file) {
            return out;
        }
    }
}

TEST(html5_parser, text_alone_gets_html_head_and_body) {
    auto doc = parser::parse_document("Hello");
    ASSERT_EQ(doc.document_root->node_name, "DOC");
    EXPECT_EQ(doc.document_root->node_ns, tree::html_ns::none);
    EXPECT_EQ(format::format_document(doc), "| <html>\n|   <head>\n|   <body>\n|     \"Hello\"\n");
}

TEST(html5_parser, misnested_formatting_is_rebuilt) {
    EXPECT_EQ(tree_of("<b><i></b></i>x"), "| <html>\n|   <head>\n|   <body>\n|     <b>\n|       <i>\n|     \"x\"\n");
    EXPECT_EQ(tree_of("<b>1<p>2</b>3</p>"), "| <html>\n|   <head>\n|   <body>\n|     <b>\n|       \"1\"\n"
                                            "|     <p>\n|       <b>\n|         \"2\"\n|       \"3\"\n");
}

TEST(html5_parser, stray_table_text_is_foster_parented) {
    EXPECT_EQ(tree_of("<table>x<tr><td>y</table>"),
              "| <html>\n|   <head>\n|   <body>\n|     \"x\"\n|     <table>\n|       <tbody>\n|         <tr>\n"
              "|           <td>\n|             \"y\"\n");
}

TEST(html5_parser, foreign_object_content_is_html) {
    auto doc = parser::parse_document("<svg viewbox='0 0 1 1'><foreignObject><p>x");
    auto* svg = tree::get_node_by_name(*doc.document_root, "svg");
    ASSERT_NE(svg, nullptr);
    EXPECT_EQ(svg->node_ns, tree::html_ns::svg);
    EXPECT_EQ(svg->node_attributes.at(0).attribute_name, "viewBox");
    auto* p = tree::get_node_by_name(*doc.document_root, "p");
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(p->node_ns, tree::html_ns::html);
    EXPECT_EQ(p->node_parent->node_name, "foreignObject");
}

TEST(html5_parser, doctype_identifiers_are_kept) {
    auto doc = parser::parse_document(
        "<!-- c --><!DOCTYPE html PUBLIC \"-//W3C//DTD XHTML 1.0 Strict//EN\" 'http://x/y.dtd'><p>");
    ASSERT_TRUE(doc.document_doctype.has_value());
    EXPECT_EQ(doc.document_doctype->doctype_name, "html");
    EXPECT_EQ(doc.document_doctype->doctype_public, "-//W3C//DTD XHTML 1.0 Strict//EN");
    EXPECT_EQ(doc.document_doctype->doctype_system, "http://x/y.dtd");
    EXPECT_EQ(doc.document_doctype_position, 1u);
    EXPECT_EQ(parser::parse_document("<p>").document_doctype, std::nullopt);
}

TEST(html5_parser, fragment_children_hang_under_html) {
    auto doc = parser::parse_fragment("<td>a</td>b", "tr", tree::html_ns::html);
    ASSERT_EQ(doc.document_root->node_children.size(), 1u);
    EXPECT_EQ(doc.document_root->node_children[0]->node_name, "html");
    // Text after the cell has no table to stand before, so it follows the cell.
    EXPECT_EQ(format::format_fragment(doc), "| <td>\n|   \"a\"\n| \"b\"\n");
    // The context decides the tokenizer state: in a title everything is text.
    EXPECT_EQ(format::format_fragment(parser::parse_fragment("<b>&amp;</b>", "title", tree::html_ns::html)),
              "| \"<b>&</b>\"\n");
}

TEST(html5_parser, character_references) {
    EXPECT_EQ(tree_of("&notin; &notit; &amp &#x41;&#128;&#0;&#xD800;&bogus;"),
              "| <html>\n|   <head>\n|   <body>\n|     \"\xE2\x88\x89 \xC2\xACit; & A\xE2\x82\xAC\xEF\xBF\xBD\xEF\xBF\xBD"
              "&bogus;\"\n");
    // In attributes a legacy name followed by '=' or a letter stays as written.
    auto doc = parser::parse_document("<a href='?a=1&copy=2&copy;'>");
    auto* a = tree::get_node_by_name(*doc.document_root, "a");
    ASSERT_NE(a, nullptr);
    EXPECT_EQ(*tree::get_attribute_value(*a, "href"), "?a=1&copy=2\xC2\xA9");
}

TEST(html5_parser, entity_table_finds_longest_prefix) {
    EXPECT_GT(entities::entity_count(), 2000u);
    auto m = entities::longest_prefix_match("notin;x");
    ASSERT_TRUE(m);
    EXPECT_EQ(m->entity_name, "notin;");
    m = entities::longest_prefix_match("notanentity");
    ASSERT_TRUE(m);
    EXPECT_EQ(m->entity_name, "not");
    EXPECT_FALSE(entities::longest_prefix_match("zzz"));
}

// The stack of open elements counts its HTML elements by name through every change, so that a scope
// test can answer at once when none with the name is open.
TEST(html5_stack, counts_open_elements_by_name_through_every_change) {
    auto html = tree::make_element("html", tree::html_ns::html);
    auto p1 = tree::make_element("p", tree::html_ns::html);
    auto p2 = tree::make_element("p", tree::html_ns::html);
    auto button = tree::make_element("button", tree::html_ns::html);
    auto svg_p = tree::make_element("p", tree::html_ns::svg);
    auto div = tree::make_element("div", tree::html_ns::html);
    stack::open_elements open;
    open.push_back(html.get());
    open.push_back(p1.get());
    open.push_back(svg_p.get());
    EXPECT_EQ(open.html_count("p"), 1);
    EXPECT_TRUE(stack::has_element_in_button_scope(open, "p"));
    open.insert(open.begin() + 2, button.get());
    // The button stands between: the p is open but not in button scope; still in plain scope.
    EXPECT_FALSE(stack::has_element_in_button_scope(open, "p"));
    EXPECT_TRUE(stack::has_element_in_scope(open, "p"));
    open.set(1, p2.get());
    EXPECT_EQ(open.html_count("p"), 1);
    open.erase(open.begin() + 2);
    EXPECT_EQ(open.html_count("button"), 0);
    EXPECT_TRUE(stack::has_element_in_button_scope(open, "p"));
    stack::replace_element_in_stack(open, p2.get(), div.get());
    EXPECT_EQ(open.html_count("p"), 0);
    EXPECT_EQ(open.html_count("div"), 1);
    EXPECT_FALSE(stack::has_element_in_scope(open, {"p", "li"}));
    open.push_back(p1.get());
    open.truncate(1);
    EXPECT_EQ(open.size(), 1u);
    EXPECT_EQ(open.html_count("div") + open.html_count("p"), 0);
    EXPECT_EQ(open.html_count("html"), 1);
    open.clear();
    EXPECT_EQ(open.html_count("html"), 0);
}

// Thousands of open elements: a p far down is still found in button scope (and closed by a div), but
// not past a button; a template far down is still seen.
TEST(html5_parser, scope_tests_reach_far_down_a_deep_stack) {
    std::string spans;
    for (int i = 0; i < 5000; ++i) {
        spans += "<span>";
    }
    auto doc = parser::parse_document("<p>" + spans + "<div>x</div>");
    auto* div = tree::get_node_by_name(*doc.document_root, "div");
    ASSERT_NE(div, nullptr);
    EXPECT_EQ(div->node_parent->node_name, "body");
    auto doc2 = parser::parse_document("<p><button>" + spans + "<div>x</div>");
    auto* div2 = tree::get_node_by_name(*doc2.document_root, "div");
    ASSERT_NE(div2, nullptr);
    EXPECT_EQ(div2->node_parent->node_name, "span");
    // A second form is ignored, unless a template is open, however far down.
    auto forms = [](std::string const& html) {
        auto const text = tree_of(html);
        std::size_t n = 0;
        for (auto at = text.find("<form>"); at != std::string::npos; at = text.find("<form>", at + 1)) {
            ++n;
        }
        return n;
    };
    EXPECT_EQ(forms("<form>" + spans + "<form>"), 1u);
    EXPECT_EQ(forms("<form><template>" + spans + "<form>"), 2u);
}

TEST(html5_tokenizer, yields_text_runs_and_tags) {
    std::vector<std::string> expected = {
        "Token type: MULTI_CHAR. Data: a\nb.",
        "Token type: START TAG. Name: p. Attribute: id=\"x\". Attribute: class=\"\". Self-closing.",
        "Token type: COMMENT. Data: c.",
        "Token type: END TAG. Name: p.",
        "Token type: DOCTYPE. Name: html. Public identifier: p.",
        "Token type: END OF FILE.",
    };
    // CR LF becomes LF; a repeated attribute keeps its first value.
    EXPECT_EQ(tokens_of("a\r\nb<P ID=x class id='y'/><!--c--></p x=1><!doctype html public 'p'>"), expected);
}

TEST(html5_tokenizer, eof_inside_a_tag_drops_it) {
    EXPECT_EQ(tokens_of("x<div a='"), (std::vector<std::string>{"Token type: MULTI_CHAR. Data: x.",
                                                                 "Token type: END OF FILE."}));
}

} // namespace
