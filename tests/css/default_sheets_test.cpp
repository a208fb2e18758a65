// The default style sheets under resources/style/ read cleanly: no parse warning, every declaration kept
// under a known property name, and xhtml-ns.css the same rules as xhtml.css.
#include "css/parser.hpp"

// The property vocabulary decides which names are known; until it is part of the build, names are not
// checked and only the syntax is.
#if __has_include("css/propnames.hpp")
#include "css/propnames.hpp"
#define VELLUM_KNOWN_PROPERTY (&vellum::css::propnames::known_property)
#else
#define VELLUM_KNOWN_PROPERTY nullptr
#endif

#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <set>
#include <sstream>

namespace vellum::css {
namespace {

std::string read_sheet(std::string const& name) {
    std::ifstream in(std::string(VELLUM_SOURCE_DIR) + "/resources/style/" + name, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

parser::env parse(std::string const& name, std::string const& text, bool filter = true) {
    auto e = parser::new_env("print");
    e.known_property = filter ? VELLUM_KNOWN_PROPERTY : nullptr;
    log::log quiet{.log_stderr = log::no_stderr_log{}};
    parser::fetch const no_imports = [](value::url const& u) -> result<parser::fetched_sheet> {
        return fail("unexpected import of " + u.url_text);
    };
    return parser::parse_style_sheet(quiet, no_imports, origin::program, name, text, std::move(e));
}

TEST(default_sheets, read_without_warnings_and_keep_every_declaration) {
    for (auto const* name : {"xhtml.css", "xhtml-ns.css", "common.css", "docbook.css", "fonts.css"}) {
        SCOPED_TRACE(name);
        auto const text = read_sheet(name);
        ASSERT_FALSE(text.empty());
        auto const e = parse(name, text);
        for (auto const& w : e.warnings) {
            ADD_FAILURE() << w.warning_file << ": " << w.warning_text;
        }
        // Every declaration the parser saw took a number; an unknown name or a value that doesn't parse
        // leaves its number unused.
        std::set<int> kept;
        for (auto const& r : e.rules) {
            for (auto const& d : r.rule_declarations) {
                kept.insert(d.index);
            }
        }
        for (auto const& p : e.pages) {
            for (auto const& d : p.page_declarations) {
                kept.insert(d.index);
            }
            for (auto const& [region, declarations] : p.page_regions) {
                for (auto const& d : declarations) {
                    kept.insert(d.index);
                }
            }
        }
        for (auto const& f : e.fonts) {
            for (auto const& d : f) {
                kept.insert(d.index);
            }
        }
        // Without the name filter, a dropped declaration that comes back has an unknown name.
        std::map<int, std::string> unfiltered;
        for (auto const& r : parse(name, text, false).rules) {
            for (auto const& d : r.rule_declarations) {
                unfiltered[d.index] = d.prop_name + ": " + value::to_text(d.value);
            }
        }
        for (int i = 0; i < e.index; ++i) {
            EXPECT_TRUE(kept.contains(i)) << "declaration " << i << " was dropped: "
                                          << (unfiltered.contains(i) ? "unknown property in " + unfiltered[i]
                                                                     : std::string("its value doesn't parse"));
        }
        EXPECT_GT(e.index, 0);
    }
}

TEST(default_sheets, xhtml_ns_has_the_rules_of_xhtml_in_the_xhtml_namespace) {
    std::string const marker = "/* ---- rules ---- */";
    auto const plain = read_sheet("xhtml.css");
    auto const ns = read_sheet("xhtml-ns.css");
    ASSERT_NE(plain.find(marker), std::string::npos);
    ASSERT_NE(ns.find(marker), std::string::npos);
    EXPECT_EQ(plain.substr(plain.find(marker)), ns.substr(ns.find(marker)));

    auto const a = parse("xhtml.css", plain);
    auto const b = parse("xhtml-ns.css", ns);
    ASSERT_EQ(a.rules.size(), b.rules.size());
    auto const& head = b.rules.front().rule_selector.subject.type;
    auto const* element = std::get_if<selector::element>(&head);
    ASSERT_NE(element, nullptr);
    EXPECT_EQ(element->element_name.ns, selector::ns{selector::xmlns{"http://www.w3.org/1999/xhtml"}});
}

TEST(default_sheets, headings_and_languages) {
    auto const e = parse("xhtml.css", read_sheet("xhtml.css"));
    auto const declared = [&](std::string const& sel, std::string const& prop) -> std::optional<std::string> {
        std::optional<std::string> out;
        for (auto const& r : e.rules) {
            if (selector::to_text(r.rule_selector) == sel) {
                for (auto const& d : r.rule_declarations) {
                    if (d.prop_name == prop) {
                        out = value::to_text(d.value);
                    }
                }
            }
        }
        return out;
    };
    EXPECT_EQ(declared("h1", "bookmark-level"), "1");
    EXPECT_EQ(declared("h6", "bookmark-level"), "6");
    EXPECT_EQ(declared("h3", "page-break-after"), "avoid");
    EXPECT_EQ(declared("pre", "font-family"), "monospace");
    EXPECT_EQ(declared("li", "display"), "list-item");

    auto const common = parse("common.css", read_sheet("common.css"));
    std::map<std::string, std::string> patterns;
    for (auto const& r : common.rules) {
        for (auto const& d : r.rule_declarations) {
            if (auto const* u = std::get_if<value::url>(&d.value); u && d.prop_name == "hyphenate-patterns") {
                patterns[selector::to_text(r.rule_selector)] = u->url_text;
            }
        }
    }
    EXPECT_EQ(patterns[":lang(en)"], "../hyph/en-us.pat");
    EXPECT_EQ(patterns[":lang(en-gb)"], "../hyph/en-gb.pat");
    EXPECT_EQ(patterns[":lang(pt)"], "../hyph/pt.pat");
    EXPECT_EQ(patterns.size(), 9u);
}

} // namespace
} // namespace vellum::css
