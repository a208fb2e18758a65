#include "css/parser.hpp"

#include <gtest/gtest.h>

#include <cstdio>
#include <map>
#include <set>

namespace vellum::css::parser {
namespace {

bool known_for_tests(std::string_view name) {
    static std::set<std::string, std::less<>> const names{"color", "margin", "width", "content", "font",
                                                          "font-family", "padding", "src"};
    return names.contains(name);
}

log::log quiet_log() {
    log::log l;
    l.log_stderr = log::no_stderr_log{};
    return l;
}

env parse(std::string_view text, std::string media = "print") {
    env e = new_env(std::move(media));
    e.known_property = &known_for_tests;
    return parse_style_sheet(quiet_log(), {}, origin::author, "file:///s.css", text, std::move(e));
}

// "selector { name: value; ... }" for each rule, as a compact picture of what the parser kept.
std::string rules_text(env const& e) {
    std::string out;
    for (auto const& r : e.rules) {
        out += selector::to_text(r.rule_selector) + " {";
        for (auto const& d : r.rule_declarations) {
            out += " " + d.prop_name + ": " + value::to_text(d.value) + (d.important ? " !important" : "") + ";";
        }
        out += " }\n";
    }
    return out;
}

std::string value_of(std::string_view decl) {
    auto d = parse_declarations(origin::author, "file:///b/", decl);
    return d.empty() ? "<dropped>" : value::to_text(d.front().value);
}

TEST(parser, drops_only_the_bad_declaration) {
    auto const e = parse("a { color: red; bogus: 1; margin: 0 }");
    ASSERT_EQ(e.rules.size(), 1u);
    auto const& d = e.rules[0].rule_declarations;
    ASSERT_EQ(d.size(), 2u);
    EXPECT_EQ(d[0].prop_name, "color");
    EXPECT_EQ(d[1].prop_name, "margin");
    EXPECT_EQ(d[1].index - d[0].index, 2);
    // The unknown name is told, with its line.
    EXPECT_EQ(e.warnings, (std::vector<warning>{{"file:///s.css", "unknown property 'bogus'", 1, warning_kind::syntax}}));
}

TEST(parser, recovers_from_bad_declarations) {
    struct {
        char const* name;
        char const* input;
        char const* expected;
    } const cases[] = {
        {"unclosed rule at the end is kept", "a { color: red", "a { color: red; }\n"},
        {"block inside a bad value", "a { color: red; width: {x;y}; margin: 0 }", "a { color: red; margin: 0; }\n"},
        {"brackets inside a bad value", "a { color: f(;) x; margin: 0 }", "a { margin: 0; }\n"},
        {"missing colon", "a { color red; margin: 0 }", "a { margin: 0; }\n"},
        {"star hack", "a { *color: red; margin: 0 }", "a { margin: 0; }\n"},
        {"empty value", "a { color: ; margin: 0 }", "a { margin: 0; }\n"},
        {"bad hash colour", "a { color: #abcd; margin: 0 }", "a { margin: 0; }\n"},
        {"broken string", "a { content: \"x\n; margin: 0 }", "a { margin: 0; }\n"},
        {"important", "a { color: red ! important; margin: 0!important }",
         "a { color: red !important; margin: 0 !important; }\n"},
        {"important in capitals is not", "a { color: red !IMPORTANT; margin: 0 }", "a { margin: 0; }\n"},
        {"junk after a value", "a { color: red = blue; margin: 0 }", "a { margin: 0; }\n"},
        {"empty declarations", "a { ;; color: red;; }", "a { color: red; }\n"},
        {"names fold to lower case", "a { COLOR: red }", "a { color: red; }\n"},
        {"at-rule inside a rule body is skipped", "a { @x { y: 1 } color: red }", "a { color: red; }\n"},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(rules_text(parse(c.input)), c.expected);
    }
}

TEST(parser, recovers_from_bad_statements) {
    struct {
        char const* name;
        char const* input;
        char const* expected;
    } const cases[] = {
        {"bad selector skips its rule", "a:: { color: red } b { color: red }", "b { color: red; }\n"},
        {"an unclosed bracket swallows the rest", "a[ { color: red } b { color: red }", ""},
        {"unknown pseudo-class skips the rule", "p:hovering { color: red } q { margin: 0 }", "q { margin: 0; }\n"},
        {"one bad selector spoils the list", "a, b!, c { color: red } d { margin: 0 }", "d { margin: 0; }\n"},
        {"unknown at-rule with a semicolon", "@foo bar; a { color: red }", "a { color: red; }\n"},
        {"unknown at-rule with a block", "@foo { a { margin: 0 } } b { color: red }", "b { color: red; }\n"},
        {"import after a rule is unknown there", "a { color: red } @import \"x.css\"; b { margin: 0 }",
         "a { color: red; }\nb { margin: 0; }\n"},
        {"semicolon before a rule joins its prelude", "; a { color: red } b { margin: 0 }", "b { margin: 0; }\n"},
        {"equal selectors share an entry", "a { color: red } b { margin: 0 } a { width: 1px }",
         "a { color: red; width: 1px; }\nb { margin: 0; }\n"},
        {"a selector list gives each selector the block", "a, b > c { color: red }",
         "a { color: red; }\nb > c { color: red; }\n"},
        {"markup comment tokens", "<!-- a { color: red } -->", "a { color: red; }\n"},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(rules_text(parse(c.input)), c.expected);
    }
}

TEST(parser, warns_about_tokens_left_over) {
    auto const e = parse("a { color: red } } b { margin: 0 }");
    EXPECT_EQ(rules_text(e), "a { color: red; }\n");
    ASSERT_EQ(e.warnings.size(), 1u);
    EXPECT_EQ(e.warnings[0], (warning{"file:///s.css", "failed to parse all CSS rules", 1, warning_kind::syntax}));
}

TEST(parser, reads_terms) {
    struct {
        char const* input;
        char const* expected;
    } const cases[] = {
        {"content: \"\\41 B\"", "\"AB\""},
        {"content: \"\\041 \"", "\"A\""},
        {"color: #abc", "#aabbcc"},
        {"color: #A0b1C2", "#a0b1c2"},
        {"color: #abcd", "<dropped>"},
        {"color: #12g", "<dropped>"},
        {"width: 10PX", "10px"},
        {"width: -1.5em", "-1.5em"},
        {"width: +.5em", "0.5em"},
        {"width: -3px", "-3px"},
        {"width: 50%", "50%"},
        {"width: 10 px", "10 px"},
        {"font: bold 12px/1.5 serif", "bold 12px/1.5 serif"},
        {"font-family: a, \"b c\"", "a,\"b c\""},
        {"color: rgb(1, 2 ,3)", "rgb(1, 2, 3)"},
        {"color: f(1 2, 3)", "f(1 2, 3)"},
        {"color: f(g(1), 2)", "f(g(1), 2)"},
        {"color: f()", "<dropped>"},
        {"color: f(1,,2)", "<dropped>"},
        {"src: url(a.png)", "url(\"a.png\")"},
        {"src: url( \"a b.png\" )", "url(\"a b.png\")"},
        {"content: attr(title)", "attr(title)"},
        {"content: attr(title, string, \"none\")", "attr(title, string, \"none\")"},
        {"content: attr(x|title)", "<dropped>"},
        {"src: U+0-7F", "U+0-7F"},
        {"color: @x", "<dropped>"},
        {"color: {x}", "<dropped>"},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.input);
        EXPECT_EQ(value_of(c.input), c.expected);
    }
}

TEST(parser, gives_values_their_structure) {
    auto const v = parse_value("file:///b/", "url(x.png) 3px, 50%");
    ASSERT_TRUE(v);
    value::value const expected = value::values{{
        value::url{"x.png", "file:///b/"},
        value::dimension{3, "px"},
        value::comma{},
        value::percent{50},
    }};
    EXPECT_EQ(*v, expected);
    EXPECT_EQ(parse_value("", "#abc"), value::value(value::hexcolor{170, 187, 204}));
    EXPECT_EQ(parse_value("", "1.5"), value::value(value::number{1.5}));
    EXPECT_FALSE(parse_value("", "red;"));
    EXPECT_FALSE(parse_value("", ""));
}

TEST(parser, resolves_attr_prefixes_and_defaults) {
    auto const e = parse("@namespace x \"urn:x\"; a { content: attr(x|t, string, 1px) }");
    ASSERT_EQ(e.rules.size(), 1u);
    value::attr const expected{.attr_name = {"urn:x", "t"},
                               .attr_type = "string",
                               .attr_default = share(value::value(value::dimension{1, "px"}))};
    EXPECT_EQ(e.rules[0].rule_declarations.at(0).value, value::value(expected));
}

TEST(parser, reads_style_attributes) {
    auto const d = parse_declarations(origin::style_attribute, "", "color: red; } margin: 0 !important");
    ASSERT_EQ(d.size(), 2u);
    EXPECT_EQ(d[0].origin, origin::style_attribute);
    EXPECT_EQ(d[0].index, 0);
    EXPECT_EQ(d[1].prop_name, "margin");
    EXPECT_TRUE(d[1].important);
    EXPECT_EQ(d[1].index, 1);
    // Without a filter every name is kept; with one, unknown names go.
    EXPECT_EQ(parse_declarations(origin::author, "", "bogus: 1").size(), 1u);
    EXPECT_EQ(parse_declarations(origin::author, "", "bogus: 1", &known_for_tests).size(), 0u);
}

TEST(parser, applies_media_rules_for_the_medium) {
    auto const e = parse("@media print { a { color: red } } @media screen { b { color: red } }"
                         "@media all and (color) { c { color: red } } @media not screen { d { color: red } }"
                         "@media (min-width: 10cm) { e { color: red } } f { margin: 0 }");
    EXPECT_EQ(rules_text(e), "a { color: red; }\nc { color: red; }\nd { color: red; }\nf { margin: 0; }\n");
}

TEST(parser, media_rules_nest_but_hold_no_imports) {
    auto const e = parse("@media print { @media print { a { color: red } } @import \"x\"; b { color: red } "
                         "@font-face { src: url(f.ttf) } @media screen { c { color: red } } }");
    EXPECT_EQ(rules_text(e), "a { color: red; }\nb { color: red; }\n");
    EXPECT_EQ(e.fonts.size(), 1u);
    ASSERT_EQ(e.warnings.size(), 1u);
    EXPECT_EQ(e.warnings[0].warning_text, "'@import' is only allowed at the start of a style sheet");
}

TEST(parser, reads_page_rules) {
    auto const e = parse("@page chapter:left, :first { size: a4; margin: 0; bogus: 1; "
                         "@top { content: \"x\" } @unknown { color: red } @bottom-right-corner { color: red } "
                         "padding: 1px }");
    ASSERT_EQ(e.pages.size(), 2u);
    using namespace page_rule;
    EXPECT_EQ(e.pages[0].selector, (page_selector{"chapter", {left_page{}}}));
    EXPECT_EQ(e.pages[1].selector, (page_selector{std::nullopt, {nth_page{1}}}));
    auto const& p = e.pages[0];
    ASSERT_EQ(p.page_declarations.size(), 3u);
    EXPECT_EQ(p.page_declarations[0].prop_name, "size");
    EXPECT_EQ(p.page_declarations[1].prop_name, "margin");
    EXPECT_EQ(p.page_declarations[2].prop_name, "padding");
    ASSERT_EQ(p.page_regions.size(), 2u);
    EXPECT_EQ(p.page_regions[0].first, region::top_center);
    EXPECT_EQ(p.page_regions[0].second.at(0).prop_name, "content");
    EXPECT_EQ(p.page_regions[1].first, region::bottom_right_corner);
    EXPECT_EQ(e.pages[1], (css::page_rule::page_rule{{std::nullopt, {nth_page{1}}}, p.page_declarations, p.page_regions}));
}

TEST(parser, skips_page_rules_with_unknown_classes) {
    auto const e = parse("@page :middle { margin: 0 } @page { margin: 1px } a { color: red }");
    ASSERT_EQ(e.pages.size(), 1u);
    EXPECT_EQ(e.pages[0].selector, page_rule::page_selector{});
    EXPECT_EQ(rules_text(e), "a { color: red; }\n");
}

TEST(parser, reads_the_programs_own_at_rules) {
    auto const e = parse("@font-face { font-family: A; src: url(a.woff) } "
                         "@vellum-color \"spot\" { color: red } @vellum-color brand { color: blue } "
                         "@vellum-color brand { color: green } @vellum-pdf { color: red; bogus: 1 }");
    ASSERT_EQ(e.fonts.size(), 1u);
    EXPECT_EQ(e.fonts[0].size(), 2u);
    EXPECT_EQ(e.fonts[0][1].value, value::value(value::url{"a.woff", "file:///s.css"}));
    ASSERT_EQ(e.colors.size(), 2u);
    EXPECT_EQ(value::to_text(e.colors.at("brand").at(0).value), "green");
    EXPECT_EQ(value::to_text(e.colors.at("spot").at(0).value), "red");
    ASSERT_EQ(e.special_rules.size(), 1u);
    EXPECT_EQ(e.special_rules[0].first, "vellum-pdf");
    EXPECT_EQ(e.special_rules[0].second.size(), 1u);
}

TEST(parser, declares_namespaces_in_the_prologue) {
    auto const e = parse("@charset \"utf-8\"; @namespace svg url(http://www.w3.org/2000/svg); "
                         "@namespace \"urn:default\"; svg|rect { color: red } p { margin: 0 } "
                         "@namespace late \"urn:late\"; late|x { color: red } other|y { color: red }");
    EXPECT_EQ(rules_text(e), "[http://www.w3.org/2000/svg]|rect { color: red; }\n[urn:default]|p { margin: 0; }\n");
}

// A fake loader over a map of sheets, recording what was asked for.
struct fake_loader {
    std::map<std::string, fetched_sheet> sheets;
    std::vector<std::string> asked;

    fetch as_fetch() {
        return [this](value::url const& u) -> result<fetched_sheet> {
            asked.push_back(u.url_text + " from " + u.url_base);
            auto const it = sheets.find(u.url_text);
            if (it == sheets.end()) {
                return fail("not found");
            }
            return it->second;
        };
    }
};

TEST(parser, loads_imports_first_and_in_order) {
    fake_loader loader;
    loader.sheets["a.css"] = {"file:///a.css", "a { color: red }", "text/css"};
    loader.sheets["b.css"] = {"file:///b.css", "@import 'c.css'; b { color: red }", std::nullopt};
    loader.sheets["c.css"] = {"file:///c.css", "c { color: red }", "text/css; charset=utf-8"};
    loader.sheets["s.css"] = {"file:///s.css", "screen { color: red }", "text/css"};
    auto e = new_env("print");
    e = parse_style_sheet(quiet_log(), loader.as_fetch(), origin::user, "file:///main.css",
                          "@import url(a.css); @import \"s.css\" screen; @import url('b.css') print, tv;"
                          "@import \"missing.css\" all; main { color: red }",
                          std::move(e));
    EXPECT_EQ(loader.asked, (std::vector<std::string>{"a.css from file:///main.css", "b.css from file:///main.css",
                                                       "c.css from file:///b.css", "missing.css from file:///main.css"}));
    EXPECT_EQ(rules_text(e), "a { color: red; }\nc { color: red; }\nb { color: red; }\nmain { color: red; }\n");
    // Imported declarations are numbered before those of the importing sheet.
    EXPECT_LT(e.rules[0].rule_declarations[0].index, e.rules[3].rule_declarations[0].index);
    EXPECT_EQ(e.rules[0].rule_declarations[0].origin, origin::user);
    EXPECT_EQ(e.warnings, (std::vector<warning>{{"missing.css", "not found"}}));
}

TEST(parser, refuses_sheets_of_other_types_and_loops) {
    fake_loader loader;
    loader.sheets["page.html"] = {"http://x/page.html", "a { color: red }", "text/html; charset=utf-8"};
    loader.sheets["loop.css"] = {"file:///loop.css", "@import 'loop.css'; l { color: red }", "text/css"};
    auto e = load_style_sheet(quiet_log(), loader.as_fetch(), origin::author, {"page.html", ""}, new_env("print"));
    EXPECT_TRUE(e.rules.empty());
    EXPECT_EQ(e.warnings,
              (std::vector<warning>{{"http://x/page.html", "Unknown CSS MIME type: text/html; charset=utf-8"}}));
    e = load_style_sheet(quiet_log(), loader.as_fetch(), origin::author, {"loop.css", ""}, new_env("print"));
    EXPECT_EQ(rules_text(e), "l { color: red; }\n");
    EXPECT_EQ(e.warnings, (std::vector<warning>{{"file:///loop.css", "style sheet imports itself"}}));
    e = load_style_sheet(quiet_log(), {}, origin::author, {"x.css", ""}, new_env("print"));
    EXPECT_EQ(e.warnings.size(), 1u);
}

TEST(parser, decodes_sheets_by_mark_and_charset) {
    EXPECT_EQ(decode_sheet("\xEF\xBB\xBF" "a{}"), "a{}");
    EXPECT_EQ(decode_sheet(std::string("\xFF\xFE" "a\0{\0}\0", 8)), "a{}");
    EXPECT_EQ(decode_sheet(std::string("\xFE\xFF\0a\0{\0}", 8)), "a{}");
    EXPECT_EQ(decode_sheet("@charset \"ISO-8859-1\"; p{content:\"\xE9\"}"),
              "@charset \"ISO-8859-1\"; p{content:\"\xC3\xA9\"}");
    EXPECT_EQ(decode_sheet("@charset \"utf-8\"; \xC3\xA9"), "@charset \"utf-8\"; \xC3\xA9");
    EXPECT_EQ(decode_sheet("plain \xC3\xA9"), "plain \xC3\xA9");
}

TEST(parser, logs_warnings_with_their_file) {
    std::FILE* out = std::tmpfile();
    ASSERT_NE(out, nullptr);
    log::log l;
    l.log_verbosity = log::verbosity::verbose;
    l.log_stderr = log::console_log::console_log{.progname = "vellum", .console_out = out};
    auto const e = parse("a { color: red } } x");
    log_warnings(l, e);
    std::fflush(out);
    std::rewind(out);
    char buf[256] = {};
    auto const n = std::fread(buf, 1, sizeof buf - 1, out);
    std::fclose(out);
    std::string const text(buf, n);
    EXPECT_NE(text.find("file:///s.css:1: failed to parse all CSS rules"), std::string::npos) << text;
}

} // namespace
} // namespace vellum::css::parser
