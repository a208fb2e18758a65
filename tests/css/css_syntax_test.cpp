// The modern syntax of style sheets: content() without argument, warnings with their lines, nested
// rules, cascade layers, @supports and media features measured against the page.
#include "css/parser.hpp"
#include "css/priority.hpp"
#include "css/property.hpp"
#include "css/propnames.hpp"

#include <gtest/gtest.h>

#include <set>

namespace vellum::css::parser {
namespace {

log::log quiet_log() {
    log::log l;
    l.log_stderr = log::no_stderr_log{};
    return l;
}

env parse(std::string_view text, std::optional<std::pair<float, float>> page = std::nullopt) {
    env e = new_env("print");
    e.known_property = &propnames::known_property;
    e.valid_value = &property::valid_declaration;
    e.media_page_area = page;
    return parse_style_sheet(quiet_log(), {}, origin::author, "file:///s.css", text, std::move(e));
}

// "selector { name: value; ... }" for each rule.
std::string rules_text(env const& e) {
    std::string out;
    for (auto const& r : e.rules) {
        out += selector::to_text(r.rule_selector) + " {";
        for (auto const& d : r.rule_declarations) {
            out += " " + d.prop_name + ": " + value::to_text(d.value) + ";";
        }
        out += " }\n";
    }
    return out;
}

std::vector<std::string> warning_lines(env const& e) {
    std::vector<std::string> out;
    for (auto const& w : e.warnings) {
        out.push_back(std::to_string(w.warning_line) + ": " + w.warning_text);
    }
    return out;
}

TEST(content_function, without_argument_is_the_text) {
    auto const d = parse_declarations(origin::author, "", "string-set: chapter content(); bookmark-label: content()");
    ASSERT_EQ(d.size(), 2u);
    EXPECT_EQ(value::to_text(d[0].value), "chapter content(text)");
    EXPECT_EQ(value::to_text(d[1].value), "content(text)");
    EXPECT_TRUE(property::valid_declaration(d[0]));
    EXPECT_TRUE(property::valid_declaration(d[1]));
    // Other functions still need their arguments.
    EXPECT_TRUE(parse_declarations(origin::author, "", "color: rgb()").empty());
}

TEST(sheet_warnings, name_the_line_of_each_problem) {
    auto const e = parse("a { color: red }\n"
                         "b { colr: red;\n"
                         "    width: 10;\n"
                         "    margin: ; }\n"
                         "@bogus x;\n"
                         "@import 'late.css';\n"
                         "c { --custom: anything; width: var(--w) }\n");
    auto const lines = warning_lines(e);
    std::vector<std::string> const expected{
        "2: unknown property 'colr'",
        "3: invalid value for 'width': 10",
        "4: declaration of 'margin': value expected",
        "5: unknown at-rule '@bogus' is skipped",
        "6: '@import' is only allowed at the start of a style sheet",
    };
    EXPECT_EQ(lines, expected);
    for (auto const& w : e.warnings) {
        EXPECT_EQ(w.warning_file, "file:///s.css");
        EXPECT_EQ(w.warning_type, warning_kind::syntax);
    }
    // The good declarations stay, custom properties and var() among them.
    EXPECT_EQ(rules_text(e), "a { color: red; }\nb { width: 10; }\nc { --custom: anything; width: var(--w); }\n");
}

TEST(sheet_warnings, are_counted_without_verbose_and_listed_with_it) {
    auto const e = parse("a { colr: red }\nb { widht: 1px }");
    for (auto const v : {log::verbosity::normal, log::verbosity::verbose}) {
        std::FILE* out = std::tmpfile();
        log::log l;
        l.log_verbosity = v;
        l.log_stderr = log::console_log::console_log{.console_out = out};
        log_warnings(l, e);
        std::rewind(out);
        std::string text;
        for (int ch = std::fgetc(out); ch != EOF; ch = std::fgetc(out)) {
            text += static_cast<char>(ch);
        }
        std::fclose(out);
        if (v == log::verbosity::normal) {
            EXPECT_EQ(text.find("colr"), std::string::npos) << text;
            EXPECT_NE(text.find("2 problems in style sheets ignored"), std::string::npos) << text;
        } else {
            EXPECT_NE(text.find("file:///s.css:1: "), std::string::npos) << text;
            EXPECT_NE(text.find("unknown property 'widht'"), std::string::npos) << text;
            EXPECT_EQ(text.find("problems in style sheets ignored"), std::string::npos) << text;
        }
    }
}

TEST(nesting, joins_nested_selectors_to_their_parents) {
    auto const e = parse(".card, .box { color: red;\n"
                         "  & .title { color: blue }\n"
                         "  > p { margin: 0 }\n"
                         "  &:first-child { width: 1px }\n"
                         "  h2 { & + p { padding: 0 } }\n"
                         "  @media print { margin: 1px; em { color: green } }\n"
                         "  @media screen { margin: 2px }\n"
                         "  @supports (color: red) { &.s { width: 2px } }\n"
                         "  @supports (color: 1) { &.t { width: 3px } }\n"
                         "}\n"
                         "a { color: red }");
    std::set<std::string> got;
    for (auto const& r : e.rules) {
        got.insert(selector::to_text(r.rule_selector));
    }
    for (std::string const s : {".card", ".box", ".card .title", ".box .title", ".card > p", ".box > p",
                                ".card:first-child", ".card h2", ".card h2 + p", ".box h2 + p", ".card em", ".card.s", "a"}) {
        EXPECT_TRUE(got.contains(s)) << s << "\n" << rules_text(e);
    }
    // The block's own declarations, those of the @media that holds, and not those of the other.
    std::string const all = rules_text(e);
    EXPECT_NE(all.find(".card { margin: 1px; color: red; }"), std::string::npos) << all;
    EXPECT_EQ(all.find("margin: 2px"), std::string::npos) << all;
    EXPECT_EQ(all.find("3px"), std::string::npos) << all;
    EXPECT_TRUE(e.warnings.empty()) << warning_lines(e).front();
}

TEST(nesting, an_ampersand_in_a_quoted_value_or_escaped_is_no_nesting_selector) {
    auto const e = parse(".n { [title=\"a&b\"] { color: blue } & [alt='&'] { color: red } .x\\& { width: 1px } }");
    std::set<std::string> got;
    for (auto const& r : e.rules) {
        got.insert(selector::to_text(r.rule_selector));
    }
    // The outer rule, and three nested ones that are descendants of it: none has ".n" put in the middle.
    EXPECT_EQ(got.size(), 4u) << rules_text(e);
    for (auto const& s : got) {
        EXPECT_EQ(s.find(".n"), 0u) << s << "\n" << rules_text(e);
        EXPECT_EQ(s.find(".n", 1), std::string::npos) << s << "\n" << rules_text(e);
    }
    EXPECT_TRUE(e.warnings.empty()) << warning_lines(e).front();
}

TEST(nesting, a_bad_nested_selector_costs_only_its_rule) {
    auto const e = parse("a { color: red; %x { color: blue } margin: 0 }");
    EXPECT_EQ(rules_text(e), "a { color: red; margin: 0; }\n");
    ASSERT_EQ(e.warnings.size(), 1u);
    EXPECT_NE(e.warnings[0].warning_text.find("invalid selector"), std::string::npos);
}

int layer_of(env const& e, std::string const& selector_text) {
    for (auto const& r : e.rules) {
        if (selector::to_text(r.rule_selector) == selector_text) {
            return r.rule_declarations.front().layer;
        }
    }
    return -1;
}

TEST(layers, rank_by_first_mention_and_sublayers_below_their_layer) {
    auto e = parse("@layer base, theme;\n"
                   "@layer theme { .t { color: red } }\n"
                   "@layer base { .b { color: red } @layer inner { .i { color: red } } }\n"
                   "@layer { .anon { color: red } }\n"
                   "@layer base.inner { .i2 { color: red } }\n"
                   ".u { color: red }\n"
                   ".n { @layer theme { color: blue } }");
    finish_layers(e);
    int const base = layer_of(e, ".b");
    int const inner = layer_of(e, ".i");
    int const theme = layer_of(e, ".t");
    int const anon = layer_of(e, ".anon");
    EXPECT_LT(inner, base);
    EXPECT_LT(base, theme);
    EXPECT_LT(theme, anon);
    EXPECT_EQ(layer_of(e, ".i2"), inner);
    EXPECT_EQ(layer_of(e, ".n"), theme);
    EXPECT_EQ(layer_of(e, ".u"), 0);
}

TEST(layers, decide_before_specificity_and_turn_round_for_important) {
    declaration layered{.prop_name = "color", .layer = 2};
    declaration later_layer{.prop_name = "color", .layer = 3};
    declaration unlayered{.prop_name = "color"};
    selector::specific const strong{1, 0, 0};
    selector::specific const weak{0, 0, 1};
    EXPECT_LT(priority::of(layered, strong), priority::of(unlayered, weak));
    EXPECT_LT(priority::of(layered, strong), priority::of(later_layer, weak));
    layered.important = later_layer.important = unlayered.important = true;
    EXPECT_GT(priority::of(layered, weak), priority::of(unlayered, strong));
    EXPECT_GT(priority::of(layered, weak), priority::of(later_layer, strong));
}

TEST(supports, evaluates_declarations_against_the_property_parser) {
    struct {
        char const* condition;
        bool holds;
    } const cases[] = {
        {"(color: red)", true},
        {"(color: nonsense-colour)", false},
        {"(bogus-property: 1)", false},
        {"not (bogus-property: 1)", true},
        {"(color: red) and (width: 1px)", true},
        {"(color: red) and (width: 1)", false},
        {"(width: 1) or (width: 1px)", true},
        {"((width: 1) or (width: 2px)) and (not (color: 3))", true},
        {"(--custom: anything)", true},
        {"(width: calc(100% - 2em))", true},
        {"selector(a > b)", true},
        {"selector(a >)", false},
        {"font-tech(color-COLRv1)", false},
    };
    for (auto const& c : cases) {
        auto const e = parse(std::string("@supports ") + c.condition + " { a { color: red } }");
        EXPECT_EQ(e.rules.size(), c.holds ? 1u : 0u) << c.condition;
        EXPECT_TRUE(e.warnings.empty()) << c.condition;
    }
    // "and" and "or" don't mix without brackets: the rule is malformed and skipped.
    auto const mixed = parse("@supports (color: red) and (width: 1px) or (width: 2px) { a { color: red } }");
    EXPECT_TRUE(mixed.rules.empty());
}

TEST(media_features, measure_the_page) {
    std::pair<float, float> const a4{595.3f, 841.9f};
    std::pair<float, float> const wide{841.9f, 595.3f};
    struct {
        char const* query;
        std::pair<float, float> page;
        bool holds;
    } const cases[] = {
        {"(orientation: portrait)", a4, true},
        {"(orientation: landscape)", a4, false},
        {"(orientation: landscape)", wide, true},
        {"print and (min-width: 200mm)", a4, true},
        {"print and (min-width: 211mm)", a4, false},
        {"(max-width: 600px)", a4, false},
        {"(max-width: 800px)", a4, true},
        {"(min-height: 10in)", a4, true},
        {"(width: 595.3pt)", a4, true},
        {"screen and (max-width: 2000px)", a4, false},
        {"not print and (orientation: landscape)", a4, true},
    };
    for (auto const& c : cases) {
        auto const e = parse(std::string("@media ") + c.query + " { a { color: red } }", c.page);
        EXPECT_EQ(e.rules.size(), c.holds ? 1u : 0u) << c.query;
    }
    // Without a page, size features hold for nothing.
    EXPECT_TRUE(parse("@media (orientation: portrait) { a { color: red } }").rules.empty());
}

} // namespace
} // namespace vellum::css::parser
