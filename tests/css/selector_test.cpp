#include "css/selector.hpp"

#include <gtest/gtest.h>

namespace vellum::css::selector {
namespace {

namespaces const test_ns{{"svg", "http://www.w3.org/2000/svg"}};

std::string round_trip(std::string_view text, namespaces const& ns = test_ns) {
    auto list = parse_selector_text(text, ns);
    if (!list) {
        return "<fail>";
    }
    std::string out;
    for (auto const& s : *list) {
        out += (out.empty() ? "" : ", ") + to_text(s);
    }
    return out;
}

TEST(selector, parses_selector_forms) {
    struct {
        char const* input;
        char const* expected;
    } const cases[] = {
        {"p", "p"},
        {"*", "*"},
        {"*.a", ".a"},
        {".a.b", ".a.b"},
        {"p#x.a[href]", "p#x.a[href]"},
        {"a b", "a b"},
        {"a>b", "a > b"},
        {"a  +  b ~ c", "a + b ~ c"},
        {"a > b c + d", "a > b c + d"},
        {"svg|rect", "[http://www.w3.org/2000/svg]|rect"},
        {"svg|*", "[http://www.w3.org/2000/svg]|*"},
        {"*|p", "p"},
        {"|p", "|p"},
        {"[svg|href]", "[[http://www.w3.org/2000/svg]|href]"},
        {"[*|href]", "[*|href]"},
        {"[lang|=en]", "[lang|=\"en\"]"},
        {"[a=\"x y\"][b~=c][c^=d][d$=e][e*=f]", "[a=\"x y\"][b~=\"c\"][c^=\"d\"][d$=\"e\"][e*=\"f\"]"},
        {"[ a = b ]", "[a=\"b\"]"},
        {"a:first-child:LAST-CHILD", "a:first-child:last-child"},
        {"a:link, a:visited, :local-link", "a:link, a:visited, :local-link"},
        {":nth-child(odd)", ":nth-child(2n+1)"},
        {":nth-child(even)", ":nth-child(2n+0)"},
        {":nth-child(3)", ":nth-child(0n+3)"},
        {":nth-child(-n+2)", ":nth-child(-1n+2)"},
        {":nth-last-child( 2n - 1 )", ":nth-last-child(2n-1)"},
        {":nth-of-type(n)", ":nth-of-type(1n+0)"},
        {":nth-last-of-type(+3n+4)", ":nth-last-of-type(3n+4)"},
        {":lang(en-GB)", ":lang(en-GB)"},
        {":contains(\"a b\")", ":contains(\"a b\")"},
        {":not(.a)", ":not(.a)"},
        {":not(p)", ":not(p)"},
        {":not( #x )", ":not(#x)"},
        {":not([a])", ":not([a])"},
        {":not(:first-child)", ":not(:first-child)"},
        {"div::before", "div::before"},
        {"div:after", "div::after"},
        {"p::first-letter", "p::first-letter"},
        {"::footnote-call", "*::footnote-call"},
        {"li::marker", "li::marker"},
        {"a, b", "a, b"},
        // Failures.
        {"", "<fail>"},
        {"a,", "<fail>"},
        {"x|p", "<fail>"},
        {"p:bogus", "<fail>"},
        {"p::hover", "<fail>"},
        {"p::before span", "<fail>"},
        {"#1x", "<fail>"},
        {"[a=]", "<fail>"},
        {"[a=b", "<fail>"},
        {":not(:not(p))", "<fail>"},
        {":not(p.a)", "<fail>"},
        {":nth-child(2x+1)", "<fail>"},
        {":nth-child(n+-1)", "<fail>"},
        {":nth-child(1.5)", "<fail>"},
        {"a >", "<fail>"},
        {"a!", "<fail>"},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.input);
        EXPECT_EQ(round_trip(c.input), c.expected);
    }
}

TEST(selector, builds_the_chain_from_the_subject_leftwards) {
    auto list = parse_selector_text("ul > li.a + li", {});
    ASSERT_TRUE(list);
    auto const& s = list->front().subject;
    EXPECT_EQ(s.type, type_selector(element{{any{}, "li"}}));
    auto const* sib = std::get_if<depend_prev_direct_sibling>(&s.depend);
    ASSERT_NE(sib, nullptr);
    EXPECT_EQ(sib->depend->simples, (std::vector<simple>{classes{{"a"}}}));
    auto const* parent = std::get_if<depend_parent>(&sib->depend->depend);
    ASSERT_NE(parent, nullptr);
    EXPECT_EQ(parent->depend->type, type_selector(element{{any{}, "ul"}}));
    EXPECT_TRUE(std::holds_alternative<depend_none>(parent->depend->depend));
}

TEST(selector, takes_the_default_namespace_for_types_only) {
    namespaces const ns{{std::nullopt, "urn:d"}};
    auto list = parse_selector_text("p[a], .c", ns);
    ASSERT_TRUE(list);
    EXPECT_EQ((*list)[0].subject.type, type_selector(element{{xmlns{"urn:d"}, "p"}}));
    EXPECT_EQ((*list)[0].subject.simples, (std::vector<simple>{attribute{{none{}, "a"}}}));
    EXPECT_EQ((*list)[1].subject.type, type_selector(universal{xmlns{"urn:d"}}));
}

TEST(selector, computes_specificity) {
    struct {
        char const* input;
        specific expected;
    } const cases[] = {
        {"*", {0, 0, 0}},
        {"p", {0, 0, 1}},
        {".a.b", {0, 2, 0}},
        {":not(#x)", {1, 0, 0}},
        {":not(p)", {0, 0, 1}},
        {":not(.a)", {0, 1, 0}},
        {"div::before", {0, 0, 1}},
        {"#a #b", {2, 0, 0}},
        {"ul li.a[x]:first-child + p", {0, 3, 3}},
        {"a:hover:nth-child(2n)", {0, 2, 1}},
        {"*|* > *", {0, 0, 0}},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.input);
        auto list = parse_selector_text(c.input, {});
        ASSERT_TRUE(list);
        EXPECT_EQ(specificity(list->front()), c.expected);
    }
    EXPECT_EQ(specificity(parse_selector_text("div::before", {})->front()),
              specificity(parse_selector_text("div", {})->front()));
}

TEST(selector, folds_html_names_in_any_namespace_only) {
    auto list = parse_selector_text("DIV[Title] > svg|Rect SPAN.Note", test_ns);
    ASSERT_TRUE(list);
    EXPECT_EQ(to_text(fold_html_case(list->front())),
              "div[title] > [http://www.w3.org/2000/svg]|Rect span.Note");
}

TEST(selector, compares_whole_chains) {
    auto a = parse_selector_text("a > b c", {});
    auto b = parse_selector_text("a>b  c", {});
    auto c = parse_selector_text("a b c", {});
    ASSERT_TRUE(a && b && c);
    EXPECT_EQ(a->front(), b->front());
    EXPECT_NE(a->front(), c->front());
}

} // namespace
} // namespace vellum::css::selector
