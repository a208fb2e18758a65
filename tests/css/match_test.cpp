#include "css/match.hpp"
#include "css/prules.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <new>

// Counts allocations in this test binary, so that a test can show that matching makes none.
namespace {
std::atomic<long> allocations{0};
} // namespace

void* operator new(std::size_t n) {
    ++allocations;
    if (void* p = std::malloc(n == 0 ? 1 : n)) {
        return p;
    }
    throw std::bad_alloc();
}

// The non-throwing form too (the standard library's temporary buffers use it), so that every block
// freed here came from malloc.
void* operator new(std::size_t n, std::nothrow_t const&) noexcept {
    ++allocations;
    return std::malloc(n == 0 ? 1 : n);
}

void operator delete(void* p) noexcept {
    std::free(p);
}

void operator delete(void* p, std::nothrow_t const&) noexcept {
    std::free(p);
}

void operator delete(void* p, std::size_t) noexcept {
    std::free(p);
}

namespace vellum::css::match {
namespace {

constexpr char const* svg_ns = "http://www.w3.org/2000/svg";
constexpr char const* xlink_ns = "http://www.w3.org/1999/xlink";

struct test_attr {
    std::optional<std::string> attr_ns;
    std::string attr_local;
    std::string attr_value;
};

struct test_node {
    std::string local;
    std::optional<std::string> ns;
    std::vector<test_attr> attrs;
    std::string text;
    int parent = -1;
    std::vector<int> kids;
};

// A tiny element tree: elements are indexes, text hangs on elements.
struct test_tree {
    using element = int;
    std::vector<test_node> nodes;

    int add(int parent, std::string local, std::vector<test_attr> attrs = {}, std::string text = {},
            std::optional<std::string> ns = std::nullopt) {
        nodes.push_back({std::move(local), std::move(ns), std::move(attrs), std::move(text), parent, {}});
        int const id = static_cast<int>(nodes.size()) - 1;
        if (parent >= 0) {
            nodes[parent].kids.push_back(id);
        }
        return id;
    }

    std::optional<int> parent_element(int e) const {
        return nodes[e].parent >= 0 ? std::optional<int>(nodes[e].parent) : std::nullopt;
    }

    std::optional<int> sibling(int e, int step) const {
        if (nodes[e].parent < 0) {
            return std::nullopt;
        }
        auto const& kids = nodes[nodes[e].parent].kids;
        for (std::size_t i = 0; i < kids.size(); ++i) {
            if (kids[i] == e) {
                long const j = static_cast<long>(i) + step;
                if (j < 0 || j >= static_cast<long>(kids.size())) {
                    return std::nullopt;
                }
                return kids[j];
            }
        }
        return std::nullopt;
    }

    std::optional<int> previous_element(int e) const { return sibling(e, -1); }
    std::optional<int> next_element(int e) const { return sibling(e, 1); }
    std::string_view local_name(int e) const { return nodes[e].local; }

    std::optional<std::string_view> namespace_uri(int e) const {
        if (!nodes[e].ns) {
            return std::nullopt;
        }
        return std::string_view(*nodes[e].ns);
    }

    std::optional<std::string_view> attribute(int e, selector::ns const& ns, std::string_view local) const {
        for (auto const& a : nodes[e].attrs) {
            std::optional<std::string_view> uri;
            if (a.attr_ns) {
                uri = *a.attr_ns;
            }
            if (a.attr_local == local && namespace_fits(ns, uri)) {
                return std::string_view(a.attr_value);
            }
        }
        return std::nullopt;
    }

    std::optional<std::string_view> language(int e) const {
        for (std::optional<int> x = e; x; x = parent_element(*x)) {
            if (auto l = attribute(*x, selector::none{}, "lang")) {
                return l;
            }
        }
        return std::nullopt;
    }

    bool is_empty(int e) const { return nodes[e].kids.empty() && nodes[e].text.empty(); }

    std::string all_text(int e) const {
        std::string out = nodes[e].text;
        for (int k : nodes[e].kids) {
            out += all_text(k);
        }
        return out;
    }

    bool text_contains(int e, std::string_view s) const { return all_text(e).find(s) != std::string::npos; }
};

static_assert(element_tree<test_tree>);

// html(lang=en) > body > [div#main.a.b > (p.first "Hello world", p[title][lang=fr-CA], span, p[data]),
// ul > li*6, svg > rect, a[href], a, div(empty), section.x > div.y > div.y > span.z]
struct fixture : ::testing::Test {
    test_tree t;
    int html, body, main, p1, p2, span, p3, ul, svg, rect, link, plain_a, empty, section, y1, y2, z;
    std::vector<int> li;

    void SetUp() override {
        html = t.add(-1, "html", {{{}, "lang", "en"}});
        body = t.add(html, "body");
        main = t.add(body, "div", {{{}, "id", "main"}, {{}, "class", " a\tb "}});
        p1 = t.add(main, "p", {{{}, "class", "first"}}, "Hello world");
        p2 = t.add(main, "p", {{{}, "title", "x y"}, {{}, "lang", "fr-CA"}});
        span = t.add(main, "span");
        p3 = t.add(main, "p", {{{}, "data", "pre-mid-post"}});
        ul = t.add(body, "ul");
        for (int i = 0; i < 6; ++i) {
            li.push_back(t.add(ul, "li"));
        }
        svg = t.add(body, "svg", {}, {}, svg_ns);
        rect = t.add(svg, "rect", {{xlink_ns, "href", "#r"}}, {}, svg_ns);
        link = t.add(body, "a", {{{}, "href", "x.html"}});
        plain_a = t.add(body, "a", {}, "text");
        empty = t.add(body, "div");
        section = t.add(body, "section", {{{}, "class", "x"}});
        y1 = t.add(section, "div", {{{}, "class", "y"}});
        y2 = t.add(y1, "div", {{{}, "class", "y"}});
        z = t.add(y2, "span", {{{}, "class", "z"}});
    }

    bool m(std::string_view text, int e, match_context const& ctx = no_context{}) {
        namespaces const ns{{"s", svg_ns}, {"xl", xlink_ns}};
        auto list = selector::parse_selector_text(text, ns);
        EXPECT_TRUE(list) << text;
        return list && selector_matches(t, list->front(), e, ctx);
    }

    // The elements of the whole tree that the selector matches, in tree order.
    std::vector<int> all(std::string_view text) {
        std::vector<int> out;
        for (int i = 0; i < static_cast<int>(t.nodes.size()); ++i) {
            if (m(text, i)) {
                out.push_back(i);
            }
        }
        return out;
    }
};

TEST_F(fixture, follows_combinators) {
    EXPECT_EQ(all("div p"), (std::vector<int>{p1, p2, p3}));
    EXPECT_EQ(all("body > p"), (std::vector<int>{}));
    EXPECT_EQ(all("body > div > p.first"), (std::vector<int>{p1}));
    EXPECT_EQ(all("p + span"), (std::vector<int>{span}));
    EXPECT_EQ(all("span + p"), (std::vector<int>{p3}));
    EXPECT_EQ(all("p ~ p"), (std::vector<int>{p2, p3}));
    EXPECT_EQ(all(".first ~ *"), (std::vector<int>{p2, span, p3}));
    EXPECT_EQ(all("html span"), (std::vector<int>{span, z}));
    // The nearest ".y" has no ".x" parent; the search goes on to the outer one.
    EXPECT_EQ(all(".x > .y .z"), (std::vector<int>{z}));
    EXPECT_EQ(all(".x > .y > .z"), (std::vector<int>{}));
    EXPECT_EQ(all("ul > li + li + li ~ li"), (std::vector<int>{li[3], li[4], li[5]}));
}

TEST_F(fixture, tests_attributes_ids_and_classes) {
    struct {
        char const* selector;
        int element;
        bool expected;
    } const cases[] = {
        {"#main", main, true},
        {"#Main", main, false},
        {".a", main, true},
        {".a.b", main, true},
        {".a.c", main, false},
        {".first", p2, false},
        {"[title]", p2, true},
        {"[title]", p1, false},
        {"[title=\"x y\"]", p2, true},
        {"[title=x]", p2, false},
        {"[title~=y]", p2, true},
        {"[title~=\"x y\"]", p2, false},
        {"[data^=pre]", p3, true},
        {"[data$=post]", p3, true},
        {"[data*=mid]", p3, true},
        {"[data*=dim]", p3, false},
        {"[lang|=fr]", p2, true},
        {"[lang|=fr-CA]", p2, true},
        {"[lang|=fr-C]", p2, false},
        {"[lang|=en]", html, true},
        {"[href]", rect, false},
        {"[xl|href]", rect, true},
        {"[*|href]", rect, true},
        {"s|rect[xl|href=\"#r\"]", rect, true},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.selector);
        EXPECT_EQ(m(c.selector, c.element), c.expected);
    }
}

TEST_F(fixture, counts_siblings) {
    auto picks = [&](std::string_view s) {
        std::vector<int> out;
        for (int i = 0; i < 6; ++i) {
            if (m(s, li[i])) {
                out.push_back(i + 1);
            }
        }
        return out;
    };
    using v = std::vector<int>;
    EXPECT_EQ(picks(":nth-child(2n+1)"), (v{1, 3, 5}));
    EXPECT_EQ(picks(":nth-child(odd)"), (v{1, 3, 5}));
    EXPECT_EQ(picks(":nth-child(even)"), (v{2, 4, 6}));
    EXPECT_EQ(picks(":nth-child(0n+2)"), (v{2}));
    EXPECT_EQ(picks(":nth-child(-n+2)"), (v{1, 2}));
    EXPECT_EQ(picks(":nth-child(3n-1)"), (v{2, 5}));
    EXPECT_EQ(picks(":nth-child(n+4)"), (v{4, 5, 6}));
    EXPECT_EQ(picks(":nth-child(-2n+5)"), (v{1, 3, 5}));
    EXPECT_EQ(picks(":nth-child(0)"), (v{}));
    EXPECT_EQ(picks(":nth-last-child(1)"), (v{6}));
    EXPECT_EQ(picks(":nth-last-child(-n+2)"), (v{5, 6}));
    EXPECT_EQ(picks(":first-child"), (v{1}));
    EXPECT_EQ(picks(":last-child"), (v{6}));
    EXPECT_EQ(picks(":only-child"), (v{}));
    EXPECT_TRUE(m(":only-child", rect));
    EXPECT_TRUE(m(":only-of-type", span));
    EXPECT_FALSE(m(":only-of-type", p1));
    EXPECT_TRUE(m("p:first-of-type", p1));
    EXPECT_TRUE(m("p:last-of-type", p3));
    EXPECT_TRUE(m("p:nth-of-type(2)", p2));
    EXPECT_TRUE(m("p:nth-last-of-type(2)", p2));
    EXPECT_FALSE(m("p:nth-of-type(3)", p2));
    EXPECT_TRUE(m("span:nth-child(3)", span));
}

TEST_F(fixture, negates) {
    EXPECT_EQ(all("div > p:not(.first)"), (std::vector<int>{p2, p3}));
    EXPECT_EQ(all("div > :not(p)"), (std::vector<int>{span, y2, z}));
    EXPECT_FALSE(m(":not(#main)", main));
    EXPECT_TRUE(m(":not(#main)", p1));
    // Without a class attribute an element has no class to exclude.
    EXPECT_TRUE(m("span:not(.z)", span));
    EXPECT_FALSE(m("span:not(.z)", z));
    EXPECT_TRUE(m("p:not([title])", p1));
    EXPECT_FALSE(m("li:not(:first-child)", li[0]));
    EXPECT_TRUE(m("li:not(:first-child)", li[1]));
}

TEST_F(fixture, matches_languages) {
    EXPECT_TRUE(m(":lang(fr)", p2));
    EXPECT_TRUE(m(":lang(FR-ca)", p2));
    EXPECT_FALSE(m(":lang(en)", p2));
    EXPECT_TRUE(m(":lang(en)", span));
    EXPECT_TRUE(m("p:lang(en)", p1));
    // In a page context the page's language stands for the element's.
    EXPECT_TRUE(m(":lang(de)", p1, context{"de"}));
    EXPECT_FALSE(m(":lang(en)", p1, context{std::nullopt}));
    test_tree bare;
    int const lone = bare.add(-1, "p");
    auto list = selector::parse_selector_text(":lang(en)", {});
    EXPECT_FALSE(selector_matches(bare, list->front(), lone));
}

TEST_F(fixture, matches_namespaces) {
    EXPECT_TRUE(m("s|rect", rect));
    EXPECT_TRUE(m("rect", rect));
    EXPECT_TRUE(m("*|rect", rect));
    EXPECT_FALSE(m("|rect", rect));
    EXPECT_TRUE(m("|p", p1));
    EXPECT_FALSE(m("s|p", p1));
    EXPECT_TRUE(m("s|*", svg));
    EXPECT_FALSE(m("s|*", body));
    EXPECT_TRUE(m("body > s|svg > s|rect", rect));
    // Of-type counting compares namespaces too.
    EXPECT_TRUE(m("s|svg:only-of-type", svg));
}

TEST_F(fixture, matches_structure_and_never_interactive_states) {
    EXPECT_EQ(all(":root"), (std::vector<int>{html}));
    EXPECT_EQ(all(":empty"), (std::vector<int>{p2, span, p3, li[0], li[1], li[2], li[3], li[4], li[5], rect, link, empty, z}));
    EXPECT_EQ(all(":link"), (std::vector<int>{link}));
    EXPECT_EQ(all(":contains(\"lo wo\")"), (std::vector<int>{html, body, main, p1}));
    for (auto const* s : {":hover", ":visited", ":target", ":checked", ":disabled", ":focus", ":active",
                          ":enabled", ":local-link", ":read-only"}) {
        SCOPED_TRACE(s);
        EXPECT_TRUE(all(s).empty());
    }
}

TEST_F(fixture, element_matches_refuses_pseudo_elements) {
    auto before = selector::parse_selector_text("p::before", {});
    auto plain = selector::parse_selector_text("p", {});
    ASSERT_TRUE(before && plain);
    EXPECT_TRUE(selector_matches(t, before->front(), p1));
    EXPECT_FALSE(element_matches(t, before->front(), p1));
    EXPECT_TRUE(element_matches(t, plain->front(), p1));
}

TEST_F(fixture, matches_without_allocating) {
    auto list = selector::parse_selector_text(
        "html > body div.a.b:not(.c) > p[title~=y]:lang(fr):nth-child(2n):nth-last-of-type(2) ~ p:last-child", {});
    auto second = selector::parse_selector_text(
        "html > body div.a.b:not(.c) > p[title~=y]:lang(fr):nth-child(2n):nth-last-of-type(1) ~ p:last-child", {});
    ASSERT_TRUE(list && second);
    long const before = allocations.load();
    bool const hit = selector_matches(t, list->front(), p3);
    bool const miss = selector_matches(t, second->front(), p3);
    long const after = allocations.load();
    EXPECT_TRUE(hit);
    EXPECT_FALSE(miss);
    EXPECT_EQ(after - before, 0);
}

TEST_F(fixture, indexes_rules_by_namespace_and_name) {
    auto e = parser::new_env("print");
    e = parser::parse_style_sheet(log::log{.log_stderr = log::no_stderr_log{}}, {}, origin::author, "s.css",
                                  "@namespace s \"http://www.w3.org/2000/svg\";"
                                  "* { a: 1 } p { b: 1 } s|rect { c: 1 } |p { d: 1 } s|* { e: 1 } .first { f: 1 }"
                                  "div p { g: 1 } span { h: 1 }",
                                  std::move(e));
    auto const index = prules::index_rules(e.rules);
    EXPECT_EQ(index.rules_ns_any.rules_other.size(), 2u);
    EXPECT_EQ(index.rules_ns_any.rules_named.at("p").size(), 2u);
    EXPECT_EQ(index.rules_ns_none.rules_named.at("p").size(), 1u);
    EXPECT_EQ(index.rules_ns.at(svg_ns).rules_named.at("rect").size(), 1u);
    EXPECT_EQ(index.rules_ns.at(svg_ns).rules_other.size(), 1u);

    auto names = [&](int el) {
        std::string out;
        prules::for_each_matching_rule(t, index, el, [&](prules::prule const& r) {
            out += r.rule_declarations.front().declaration.prop_name;
        });
        return out;
    };
    // Any-namespace rules first (named, then universal), then the element's own namespace slot.
    EXPECT_EQ(names(p1), "bgafd");
    EXPECT_EQ(names(rect), "ace");
    EXPECT_EQ(names(span), "ha");

    std::string seen;
    prules::for_each_candidate(index, std::nullopt, "p", [&](prules::prule const& r) {
        seen += r.rule_declarations.front().declaration.prop_name;
    });
    EXPECT_EQ(seen, "bgafd");
}

TEST(priority, weighs_origins_and_importance) {
    using priority::weight;
    EXPECT_EQ(weight(origin::user, true), 7);
    EXPECT_EQ(weight(origin::style_attribute, true), 6);
    EXPECT_EQ(weight(origin::author, true), 5);
    EXPECT_EQ(weight(origin::style_attribute, false), 4);
    EXPECT_EQ(weight(origin::author, false), 3);
    EXPECT_EQ(weight(origin::user, false), 2);
    EXPECT_EQ(weight(origin::program, true), 1);
    EXPECT_EQ(weight(origin::program, false), 1);
    // An id loses to a style attribute, and an earlier declaration to a later one of equal rank.
    declaration const attr{.prop_name = "color", .origin = origin::style_attribute, .index = 1};
    declaration const by_id{.prop_name = "color", .origin = origin::author, .index = 2};
    EXPECT_LT(priority::of(by_id, {1, 0, 0}), priority::of(attr, {0, 0, 0}));
    EXPECT_LT(priority::of(attr, {}), priority::of(declaration{.origin = origin::style_attribute, .index = 2}, {}));
}

TEST(match_helpers, decide_small_questions) {
    EXPECT_TRUE(has_word("  a\tbb \n c ", "bb"));
    EXPECT_FALSE(has_word("abc", "b"));
    EXPECT_FALSE(has_word("", ""));
    EXPECT_TRUE(nth_fits(2, 1, 0));
    EXPECT_FALSE(nth_fits(2, 1, 1));
    EXPECT_TRUE(nth_fits(-1, 2, 1));
    EXPECT_FALSE(nth_fits(-1, 2, 2));
    EXPECT_TRUE(nth_fits(0, 3, 2));
    EXPECT_TRUE(attribute_value_fits(selector::attr_op::contains_lang, "en", "en"));
    EXPECT_FALSE(attribute_value_fits(selector::attr_op::contains_lang, "english", "en"));
}

} // namespace
} // namespace vellum::css::match
