// The cascade over real documents: sheets gathered in order from a prefix, the document and its
// elements; weights by origin and importance, hints, style attributes, pseudo-elements and languages.
#include "css/compute_style.hpp"
#include "css/styledom/computed.hpp"
#include "css/styledom/styledom.hpp"
#include "document/doc_test_support.hpp"
#include "document/input.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>

namespace vellum::styledom {
namespace {

using doc_test::captured_log;
using doc_test::scratch_dir;
using doc_test::write_file;
namespace fs = std::filesystem;
namespace loc = resource::locator;

// One declaration as the cascade ordered it, as text.
struct seen_declaration {
    std::string name;
    std::string value;
    css::origin origin = css::origin::author;
};

// What the cascade gave one element, copied out of the walk.
struct cascade_record {
    std::vector<seen_declaration> own;
    std::map<std::string, std::vector<seen_declaration>> pseudos;
    std::optional<std::string> lang;
    std::string base;

    // The value that wins for a property: the last one in ascending order.
    std::optional<std::string> winner(std::string const& name) const { return last(own, name); }

    std::optional<std::string> pseudo_winner(std::string const& pseudo, std::string const& name) const {
        auto const it = pseudos.find(pseudo);
        return it == pseudos.end() ? std::nullopt : last(it->second, name);
    }

    static std::optional<std::string> last(std::vector<seen_declaration> const& list, std::string const& name) {
        std::optional<std::string> out;
        for (auto const& d : list) {
            if (d.name == name) {
                out = d.value;
            }
        }
        return out;
    }
};

std::vector<seen_declaration> texts(std::vector<css::pdecls::pdeclaration const*> const& list) {
    std::vector<seen_declaration> out;
    for (auto const* p : list) {
        out.push_back({p->declaration.prop_name, css::value::to_text(p->declaration.value), p->declaration.origin});
    }
    return out;
}

// A scratch prefix with default sheets of the test's choosing, a loader over it without network, and a
// record of what the cascade gave each element.
struct fixture {
    fs::path dir;
    captured_log log;
    resource::loader::loader loader;
    std::map<dom::dom_element const*, cascade_record> seen;

    explicit fixture(std::string const& name, std::map<std::string, std::string> const& style = {},
                     std::optional<fs::path> prefix = std::nullopt)
        : dir(scratch_dir("cascade_" + name)), loader(make_loader(prefix ? *prefix : dir, dir)) {
        fs::create_directories(dir / "style");
        for (auto const& [file, text] : style) {
            write_file(dir / "style", file, text);
        }
    }

    static resource::loader::loader make_loader(fs::path const& prefix, fs::path const& curdir) {
        captured_log quiet;
        auto l = resource::loader::new_loader(quiet.value, {prefix.string()}, {curdir.string()},
                                              {.network = false});
        check(l.has_value(), "fixture");
        return *l;
    }

    dom::document_ref parse(std::string const& text, doctype::doctype type, dom::doc_style_info info = {},
                            std::string const& file = "doc.html") {
        auto const path = write_file(dir, file, text);
        auto const src = doc_test::file_locator(path);
        auto const xdoc = document::input::load_document(log.value, src, type, std::nullopt, xml::xml_options{},
                                                         doc_test::local_fetch{}.function(),
                                                         bytes::from_string(text));
        check(xdoc.has_value(), "fixture.parse");
        return document::input::prepare_document(log.value, type, *xdoc, info, src, {}).prepared_dom;
    }

    style_hooks recording(style_hooks hooks = {}) {
        hooks.compute = [this](log::log const& l, style_request const& r) {
            cascade_record record{.own = texts(r.request_cascade.cascaded_pdecls),
                                  .lang = r.request_lang,
                                  .base = loc::locator_to_string(r.request_base)};
            for (auto const& p : r.request_cascade.cascaded_pseudos) {
                std::string name;
                for (auto const pe : p.pseudo_elements) {
                    name += css::selector::pseudo_element_name(pe);
                }
                record.pseudos[name] = texts(p.pseudo_pdecls);
            }
            seen[&r.request_element] = std::move(record);
            return base_style_info(l, r);
        };
        return hooks;
    }

    styled_document style(dom::document_ref const& doc, style_hooks hooks = {}) {
        return style_document(log.value, loader, doc, recording(std::move(hooks)));
    }

    cascade_record const& of(dom::element_ref const& e) const { return seen.at(e.get()); }
};

// The first element with this local name, in document order.
dom::element_ref find(dom::element_ref const& from, std::string_view local) {
    if (tree::name_local_view(from->dom_element_name) == local) {
        return from;
    }
    for (auto const& c : tree::element_children(*from)) {
        if (auto found = find(c, local)) {
            return found;
        }
    }
    return nullptr;
}

dom::element_ref find(dom::document_ref const& doc, std::string_view local) {
    auto const root = dom::document_element(*doc);
    auto e = root ? find(*root, local) : nullptr;
    check(e != nullptr, "find");
    return e;
}

// Every element with this local name, in document order.
void find_all(dom::element_ref const& from, std::string_view local, std::vector<dom::element_ref>& out) {
    if (tree::name_local_view(from->dom_element_name) == local) {
        out.push_back(from);
    }
    for (auto const& c : tree::element_children(*from)) {
        find_all(c, local, out);
    }
}

std::vector<dom::element_ref> find_all(dom::document_ref const& doc, std::string_view local) {
    std::vector<dom::element_ref> out;
    find_all(*dom::document_element(*doc), local, out);
    return out;
}

css::selector::selector selector_of(std::string_view text) {
    auto list = css::selector::parse_selector_text(text, {});
    check(list.has_value() && list->size() == 1, "selector_of");
    return list->front();
}

TEST(cascade, origins_and_importance_decide_before_specificity) {
    fixture f("weights", {{"xhtml-ns.css", "@namespace url(http://www.w3.org/1999/xhtml);\n"
                                           "p { color: red !important; margin: 1px }\n"},
                          {"common.css", ""}});
    write_file(f.dir, "user.css", "p { border-color: green !important; width: 5px }");
    dom::doc_style_info info{.user_style_sheets = {doc_test::file_locator(f.dir / "user.css")}};
    auto const doc = f.parse(R"(<style>p { color: blue } #x { padding: 1px; width: 9px }
        p { margin: 2px } </style>
        <p id="x" style="padding: 7px; border-color: red !important">a</p>)",
                             doctype::doctype::html5, info);
    f.style(doc);
    auto const& p = f.of(find(doc, "p"));
    // The default sheet's !important counts for nothing against an author rule.
    EXPECT_EQ(p.winner("color"), "blue");
    // A style attribute beats an author rule with an id.
    EXPECT_EQ(p.winner("padding"), "7px");
    // A user !important beats a style attribute's !important.
    EXPECT_EQ(p.winner("border-color"), "green");
    // An author rule beats an unimportant user rule, whatever the specificity.
    EXPECT_EQ(p.winner("width"), "9px");
    EXPECT_EQ(p.winner("margin"), "2px");
    // Ascending order: the program's declaration comes first, the user's !important last.
    ASSERT_FALSE(p.own.empty());
    EXPECT_EQ(p.own.front().origin, css::origin::program);
    EXPECT_EQ(p.own.back().name, "border-color");
    EXPECT_EQ(p.own.back().origin, css::origin::user);
}

TEST(cascade, pseudo_elements_are_kept_apart) {
    fixture f("pseudo");
    auto const doc = f.parse(R"(<style>div::before { content: "x" } div { color: red }
        div::after { content: "y" } div:first-child::before { content: "z" } p::first-line { color: blue }</style>
        <div>a</div>)",
                             doctype::doctype::html5);
    f.style(doc);
    auto const& div = f.of(find(doc, "div"));
    EXPECT_EQ(div.winner("color"), "red");
    EXPECT_FALSE(div.winner("content"));
    EXPECT_EQ(div.pseudo_winner("before", "content"), "\"z\"");
    EXPECT_EQ(div.pseudo_winner("after", "content"), "\"y\"");
    EXPECT_EQ(div.pseudos.size(), 2u);
}

TEST(cascade, cellpadding_is_a_hint_that_rules_override) {
    fixture f("cellpadding");
    auto const doc = f.parse(R"(<style>td.tight { padding: 0 }</style>
        <table cellpadding="4"><tr><td>a</td><td class="tight">b</td></tr>
        <tr><td><table><tr><th>inner</th></tr></table></td></tr></table>
        <table cellpadding="5%"><tr><td>p</td></tr></table>)",
                             doctype::doctype::html5);
    f.style(doc);
    auto const cells = find_all(doc, "td");
    ASSERT_EQ(cells.size(), 4u);
    EXPECT_EQ(f.of(cells[0]).winner("padding"), "4px");
    EXPECT_EQ(f.of(cells[0]).own.front().origin, css::origin::program);
    EXPECT_EQ(f.of(cells[1]).winner("padding"), "0");
    EXPECT_EQ(f.of(cells[3]).winner("padding"), "5%");
    // A nested table without cellpadding gives its cells none.
    EXPECT_FALSE(f.of(find(doc, "th")).winner("padding"));
}

TEST(cascade, replaced_element_sizes_are_hints_read_as_browsers_do) {
    fixture f("imgsize");
    auto const doc = f.parse(R"(<style>img.wide { width: 300px }</style>
        <img width="20px" height="50%"><img width=" 12.5em" height="x"><img class="wide" width="40">
        <input type="IMAGE" width="7"><input type="text" width="9"><p width="5">p</p>)",
                             doctype::doctype::html5);
    f.style(doc);
    auto const imgs = find_all(doc, "img");
    ASSERT_EQ(imgs.size(), 3u);
    EXPECT_EQ(f.of(imgs[0]).winner("width"), "20px");
    EXPECT_EQ(f.of(imgs[0]).winner("height"), "50%");
    EXPECT_EQ(f.of(imgs[1]).winner("width"), "12.5px");
    // No leading number: no hint at all.
    EXPECT_FALSE(f.of(imgs[1]).winner("height"));
    // Any author rule beats the attribute.
    EXPECT_EQ(f.of(imgs[2]).winner("width"), "300px");
    auto const inputs = find_all(doc, "input");
    EXPECT_EQ(f.of(inputs[0]).winner("width"), "7px");
    EXPECT_FALSE(f.of(inputs[1]).winner("width"));
    EXPECT_FALSE(f.of(find(doc, "p")).winner("width"));
}

TEST(cascade, body_link_colours_links_below_rules) {
    fixture f("link");
    auto const doc = f.parse(R"(<body link="#00ff00"><a href="x">a</a><a name="n">b</a>
        <p><a href="y" style="color: red">c</a></p></body>)",
                             doctype::doctype::html5);
    f.style(doc);
    auto const links = find_all(doc, "a");
    EXPECT_EQ(f.of(links[0]).winner("color"), "#00ff00");
    EXPECT_FALSE(f.of(links[1]).winner("color"));
    EXPECT_EQ(f.of(links[2]).winner("color"), "red");
}

bool test_known(std::string_view name) {
    return name == "fill" || name == "stroke" || name == "font-size" || name == "overflow" || name == "clip" ||
           name == "font" || name == "text-decoration" || name == "letter-spacing" || name == "font-variant";
}

bool test_shorthand(std::string_view name) {
    return name == "font" || name == "text-decoration" || name == "font-variant";
}

TEST(cascade, svg_attributes_become_author_declarations) {
    fixture f("svg");
    auto const doc = f.parse(R"svg(<svg fill="red" font-size="12" font="bold 12px serif" overflow="auto"
        clip="rect(1, 2, 3, 4)" text-decoration="underline" letter-spacing="2em" width="10" stroke="url(#g)"
        font-variant="small-caps">
        <rect fill="blue" style="fill: green"/></svg>)svg",
                             doctype::doctype::html5);
    style_hooks hooks{.known_property = &test_known, .is_shorthand = &test_shorthand};
    f.style(doc, hooks);
    auto const& svg = f.of(find(doc, "svg"));
    EXPECT_EQ(svg.winner("fill"), "red");
    EXPECT_EQ(svg.winner("font-size"), "12px");
    EXPECT_EQ(svg.winner("overflow"), "visible");
    EXPECT_EQ(svg.winner("clip"), "rect(1px, 2px, 3px, 4px)");
    EXPECT_EQ(svg.winner("text-decoration"), "underline");
    // A shorthand now, but a single property when SVG made it an attribute.
    EXPECT_EQ(svg.winner("font-variant"), "small-caps");
    EXPECT_EQ(svg.winner("letter-spacing"), "2em");
    EXPECT_FALSE(svg.winner("font")) << "a shorthand";
    EXPECT_FALSE(svg.winner("width")) << "not a known property here";
    EXPECT_EQ(svg.own.front().origin, css::origin::author);
    // The style attribute outweighs the presentation attribute.
    EXPECT_EQ(f.of(find(doc, "rect")).winner("fill"), "green");
    // Without the vocabulary, attributes stay attributes.
    fixture g("svg_plain");
    auto const plain = g.parse("<svg fill='red'></svg>", doctype::doctype::html5);
    g.style(plain);
    EXPECT_FALSE(g.of(find(plain, "svg")).winner("fill"));
}

TEST(cascade, validity_check_drops_declarations_everywhere) {
    fixture f("valid");
    auto const doc = f.parse(R"(<style>p { color: red; width: bad }</style><p style="width: worse; color: blue">a</p>)",
                             doctype::doctype::html5);
    style_hooks hooks{.valid_declaration = [](css::declaration const& d) {
        return css::value::to_text(d.value).find("bad") == std::string::npos &&
               css::value::to_text(d.value).find("worse") == std::string::npos;
    }};
    f.style(doc, hooks);
    auto const& p = f.of(find(doc, "p"));
    EXPECT_EQ(p.winner("color"), "blue");
    EXPECT_FALSE(p.winner("width"));
}

TEST(cascade, sheets_come_from_instructions_style_and_link_elements_that_qualify) {
    fixture f("sources");
    write_file(f.dir, "pi.css", "doc { margin: 1px }");
    write_file(f.dir, "xsl.css", "doc { padding: 1px }");
    write_file(f.dir, "alt.css", "doc { width: 1px }");
    write_file(f.dir, "screen.css", "doc { height: 1px }");
    auto const xml_doc = f.parse(R"(<?xml version="1.0"?>
<?xml-stylesheet href="pi.css" type="TEXT/CSS"?>
<?xml-stylesheet href="xsl.css" type="text/xsl"?>
<?xml-stylesheet href="alt.css" type="text/css" alternate="yes"?>
<?xml-stylesheet href="screen.css" type="text/css" media="screen"?>
<?xml-stylesheet href="xsl.css"?>
<doc/>)",
                                 doctype::doctype::xml, {}, "doc.xml");
    f.style(xml_doc);
    auto const& doc = f.of(find(xml_doc, "doc"));
    EXPECT_EQ(doc.winner("margin"), "1px");
    EXPECT_FALSE(doc.winner("padding"));
    EXPECT_FALSE(doc.winner("width"));
    EXPECT_FALSE(doc.winner("height"));

    write_file(f.dir, "a.css", "p { margin: 1px }");
    write_file(f.dir, "b.css", "p { padding: 1px }");
    auto const html = f.parse(R"(<head>
        <link rel="stylesheet" href="a.css">
        <link rel="alternate stylesheet" href="b.css">
        <link rel="StyleSheet" href="b.css" media="screen">
        <link rel="icon" href="b.css">
        <link rel="stylesheet" type="text/plain" href="b.css">
        <style media="screen">p { width: 1px }</style>
        <style type="text/less">p { height: 1px }</style>
        <style media="print, screen">p { color: red }</style>
        </head><p>x</p>)",
                              doctype::doctype::html5);
    f.style(html);
    auto const& p = f.of(find(html, "p"));
    EXPECT_EQ(p.winner("margin"), "1px");
    EXPECT_EQ(p.winner("color"), "red");
    EXPECT_FALSE(p.winner("padding"));
    EXPECT_FALSE(p.winner("width"));
    EXPECT_FALSE(p.winner("height"));
}

TEST(cascade, switches_turn_off_default_and_author_style) {
    fixture f("switches", {{"xhtml-ns.css", "p { margin: 3px }"}, {"common.css", "p { padding: 3px }"}});
    std::string const text = R"(<style>p { color: red }</style><p style="width: 1px">a</p>)";
    auto const plain = f.parse(text, doctype::doctype::html5, {.use_default_style = false});
    f.style(plain);
    auto const& p = f.of(find(plain, "p"));
    EXPECT_FALSE(p.winner("margin"));
    EXPECT_FALSE(p.winner("padding"));
    EXPECT_EQ(p.winner("color"), "red");

    auto const no_author = f.parse(text, doctype::doctype::html5, {.use_author_style = false});
    f.style(no_author);
    auto const& q = f.of(find(no_author, "p"));
    EXPECT_EQ(q.winner("margin"), "3px");
    EXPECT_EQ(q.winner("padding"), "3px");
    EXPECT_FALSE(q.winner("color"));
    EXPECT_FALSE(q.winner("width"));
}

TEST(cascade, default_sheets_follow_the_kind_of_document) {
    fixture f("kinds", {{"xhtml.css", "p { margin: 1px }"},
                        {"xhtml-ns.css", "p { margin: 2px }"},
                        {"docbook.css", "para { margin: 3px }"},
                        {"common.css", "p, para, x { padding: 4px }"}});
    auto const html4 = f.parse("<html><body><p>a</p></body></html>", doctype::doctype::html4);
    f.style(html4);
    EXPECT_EQ(f.of(find(html4, "p")).winner("margin"), "1px");
    auto const html5 = f.parse("<p>a</p>", doctype::doctype::html5);
    f.style(html5);
    EXPECT_EQ(f.of(find(html5, "p")).winner("margin"), "2px");
    auto const docbook =
        f.parse("<?xml version='1.0'?><article xmlns='http://docbook.org/docbook-ng'><para>a</para></article>",
                doctype::doctype::xml, {}, "d.xml");
    f.style(docbook);
    EXPECT_EQ(f.of(find(docbook, "para")).winner("margin"), "3px");
    EXPECT_EQ(f.of(find(docbook, "para")).winner("padding"), "4px");
    auto const xml = f.parse("<?xml version='1.0'?><x/>", doctype::doctype::xml, {}, "x.xml");
    f.style(xml);
    EXPECT_EQ(f.of(find(xml, "x")).winner("padding"), "4px");
    EXPECT_EQ(f.of(find(xml, "x")).own.front().origin, css::origin::program);
}

TEST(cascade, type_selectors_fold_to_lower_case_in_html_only) {
    fixture f("case");
    write_file(f.dir, "s.css", "P { color: red } DOC { margin: 1px } Doc { padding: 1px }");
    auto const html = f.parse(R"(<link rel="stylesheet" href="s.css"><P>a</P>)", doctype::doctype::html5);
    f.style(html);
    EXPECT_EQ(f.of(find(html, "p")).winner("color"), "red");
    auto const xml =
        f.parse("<?xml version='1.0'?><?xml-stylesheet href='s.css' type='text/css'?><Doc/>", doctype::doctype::xml,
                {}, "c.xml");
    f.style(xml);
    EXPECT_FALSE(f.of(find(xml, "Doc")).winner("margin"));
    EXPECT_EQ(f.of(find(xml, "Doc")).winner("padding"), "1px");
}

TEST(cascade, job_page_declarations_lead_the_page_rules) {
    fixture f("pages");
    dom::doc_style_info info{.page_pdecls = {{dom::page_decl_kind::margin, "1cm 2cm"},
                                             {dom::page_decl_kind::size, "A4 landscape"},
                                             {dom::page_decl_kind::size, "10cm;"},
                                             {dom::page_decl_kind::margin, "1cm; color: red"}}};
    auto const doc = f.parse("<style>@page { margin: 0 }</style><p>a</p>", doctype::doctype::html5, info);
    auto const styled = f.style(doc);
    auto const& pages = styled.styled_rules.rules_env.pages;
    // One rule per valid option, margin first, ahead of the document's own rule.
    ASSERT_EQ(pages.size(), 3u);
    for (std::size_t i = 0; i < 2; ++i) {
        EXPECT_EQ(pages[i].selector, css::page_rule::page_selector{});
        ASSERT_EQ(pages[i].page_declarations.size(), 1u);
        EXPECT_EQ(pages[i].page_declarations[0].origin, css::origin::user);
        EXPECT_EQ(pages[i].page_declarations[0].index, 0);
    }
    EXPECT_EQ(pages[0].page_declarations[0].prop_name, "margin");
    EXPECT_EQ(css::value::to_text(pages[0].page_declarations[0].value), "1cm 2cm");
    EXPECT_EQ(pages[1].page_declarations[0].prop_name, "size");
    auto const text = f.log.text();
    EXPECT_NE(text.find("invalid --page-size: 10cm;"), std::string::npos) << text;
    EXPECT_NE(text.find("invalid --page-margin: 1cm; color: red"), std::string::npos) << text;
}

TEST(cascade, sheet_warnings_name_their_file) {
    fixture f("warnings");
    write_file(f.dir, "bad.css", "p { color: red } } p { margin: 1px }");
    auto const doc = f.parse(R"(<link rel="stylesheet" href="bad.css"><link rel="stylesheet" href="missing.css">)",
                             doctype::doctype::html5);
    f.style(doc);
    auto const text = f.log.text();
    EXPECT_NE(text.find((f.dir / "bad.css").string() + ":1: failed to parse all CSS rules"),
              std::string::npos)
        << text;
    EXPECT_NE(text.find("missing.css"), std::string::npos) << text;
}

TEST(cascade, urls_in_default_sheets_stay_under_the_prefix) {
    fixture f("bases", {{"common.css", "@import 'more.css'; p { background-image: url(img/a.png) }"},
                        {"more.css", "p { list-style-image: url(../hyph/x.pat) }"},
                        {"xhtml-ns.css", ""}});
    auto const doc = f.parse(R"(<style>p { border-image: url(b.png) }</style><p>a</p>)", doctype::doctype::html5);
    auto const styled = f.style(doc);
    auto const& bases = *styled.styled_rules.rules_bases;
    std::map<std::string, loc::locator> urls;
    for (auto const& r : styled.styled_rules.rules_env.rules) {
        for (auto const& d : r.rule_declarations) {
            if (auto const* u = std::get_if<css::value::url>(&d.value)) {
                urls[d.prop_name] = resolve_url(bases, *u);
            }
        }
    }
    ASSERT_EQ(urls.size(), 3u);
    auto const& image = urls["background-image"];
    EXPECT_EQ(image.locator_origin, loc::locator_origin::system_origin);
    auto const path = resource::loader::resolve_filename(f.loader, image);
    ASSERT_TRUE(path);
    EXPECT_EQ(fs::path(path->path).lexically_normal(), (f.dir / "style/img/a.png").lexically_normal());
    auto const hyph = resource::loader::resolve_filename(f.loader, urls["list-style-image"]);
    ASSERT_TRUE(hyph);
    EXPECT_EQ(fs::path(hyph->path).lexically_normal(), (f.dir / "hyph/x.pat").lexically_normal());
    EXPECT_EQ(urls["border-image"].locator_origin, loc::locator_origin::document_origin);
    EXPECT_EQ(loc::locator_to_string(urls["border-image"]), (f.dir / "b.png").string());
}

TEST(cascade, languages_come_from_xml_lang_then_lang) {
    fixture f("lang");
    auto const doc = f.parse(R"(<?xml version="1.0"?>
<doc xmlns:x="urn:x" lang="DE-at"><a xml:lang="FR" lang="en"><b/></a><c/><d lang=""/></doc>)",
                             doctype::doctype::xml, {}, "l.xml");
    write_file(f.dir, "l.css", "");
    auto const styled = f.style(doc);
    EXPECT_EQ(f.of(find(doc, "doc")).lang, "de-at");
    EXPECT_EQ(f.of(find(doc, "a")).lang, "fr");
    EXPECT_EQ(f.of(find(doc, "b")).lang, "fr");
    EXPECT_EQ(f.of(find(doc, "c")).lang, "de-at");
    EXPECT_EQ(f.of(find(doc, "d")).lang, "");
    // The style_info written on the element says the same.
    auto const info = dom::get_style_info(find(doc, "b")->dom_element_style_info.get());
    EXPECT_EQ(info.style_info_lang, "fr");
}

TEST(cascade, lang_pseudo_class_uses_the_inherited_language) {
    fixture f("lang_match");
    auto const doc = f.parse(R"(<style>:lang(de) { color: red } :lang(de) em { margin: 1px } p:lang(en) { width: 1px }</style>
        <div lang="de-CH"><p><em>a</em></p></div><p lang="en-GB">b</p>)",
                             doctype::doctype::html5);
    f.style(doc);
    auto const& em = f.of(find(doc, "em"));
    EXPECT_EQ(em.winner("color"), "red");
    EXPECT_EQ(em.winner("margin"), "1px");
    auto const ps = find_all(doc, "p");
    EXPECT_FALSE(f.of(ps[0]).winner("width"));
    EXPECT_EQ(f.of(ps[1]).winner("width"), "1px");
    // Outside the walk, matching climbs the tree for the language.
    EXPECT_TRUE(element_matches(selector_of("em:lang(de)"), *find(doc, "em")));
}

TEST(cascade, xml_base_moves_the_base_of_a_subtree) {
    fixture f("base");
    auto const doc = f.parse(R"(<?xml version="1.0"?><doc><a xml:base="http://example.com/dir/"><b/></a><c/></doc>)",
                             doctype::doctype::xml, {}, "b.xml");
    f.style(doc);
    EXPECT_EQ(f.of(find(doc, "b")).base, "http://example.com/dir/");
    EXPECT_EQ(f.of(find(doc, "c")).base, (f.dir / "b.xml").string());
}

TEST(cascade, restyling_a_subtree_takes_the_parent_style) {
    fixture f("restyle");
    auto const doc = f.parse(R"(<style>.new { color: red }</style><div lang="nl"><p>a</p></div>)",
                             doctype::doctype::html5);
    auto const styled = f.style(doc);
    auto const p = find(doc, "p");
    auto const div = find(doc, "div");
    // A script adds a class; the element is styled again from its parent's style.
    p->dom_element_attrs.update([&](auto& attrs) {
        auto attr = std::make_shared<dom::dom_attribute>();
        attr->dom_attribute_name = xml::make_name("class");
        attr->dom_attribute_value.set("new");
        attrs.push_back(attr);
    });
    auto const parent = dom::get_style_info(div->dom_element_style_info.get());
    style_subtree(f.log.value, f.loader, styled.styled_rules, *p, &parent);
    EXPECT_EQ(f.of(p).winner("color"), "red");
    EXPECT_EQ(f.of(p).lang, "nl");
}

TEST(cascade, a_document_needs_a_root_element) {
    fixture f("noroot");
    auto doc = f.parse("<p>a</p>", doctype::doctype::html5);
    doc->dom_document_children.set({});
    EXPECT_THROW(f.style(doc), internal_error);
}

TEST(cascade, the_real_default_sheets_style_html) {
    fixture f("real", {}, fs::path(VELLUM_SOURCE_DIR) / "resources");
    std::string const text = R"(<html><head><title>D</title></head><body link="green"><h1>T</h1><p lang="de">x</p><a href="u">l</a>
        <table cellpadding="4"><tr><td>a</td></tr></table><table><tr><td>b</td></tr></table></body></html>)";
    for (auto const type : {doctype::doctype::html5, doctype::doctype::html4}) {
        SCOPED_TRACE(document::input::doctype_word(type));
        auto const doc = f.parse(text, type);
        auto const styled = f.style(doc);
        EXPECT_EQ(f.log.text().find("warning"), std::string::npos) << f.log.text();
        auto const& h1 = f.of(find(doc, "h1"));
        EXPECT_EQ(h1.winner("display"), "block");
        EXPECT_EQ(h1.winner("bookmark-level"), "1");
        EXPECT_EQ(h1.winner("font-weight"), "bold");
        EXPECT_EQ(f.of(find(doc, "html")).winner("font-family"), "serif");
        EXPECT_EQ(f.of(find(doc, "head")).winner("display"), "none");
        EXPECT_EQ(f.of(find(doc, "title")).winner("string-set"), "title content(text)");
        // The table's cellpadding stands against the default padding of cells.
        auto const cells = find_all(doc, "td");
        EXPECT_EQ(f.of(cells[0]).winner("padding"), "4px");
        EXPECT_EQ(f.of(cells[1]).winner("padding"), "1px");
        EXPECT_EQ(f.of(cells[0]).winner("display"), "table-cell");
        // So does the body's link colour, and the link is live.
        auto const& a = f.of(find(doc, "a"));
        EXPECT_EQ(a.winner("color"), "green");
        EXPECT_EQ(a.winner("link"), "attr(href, url)");
        // German text finds the German patterns, as one of the program's own files.
        std::optional<loc::locator> patterns;
        for (auto const& r : styled.styled_rules.rules_env.rules) {
            for (auto const& d : r.rule_declarations) {
                auto const* u = std::get_if<css::value::url>(&d.value);
                if (u && u->url_text == "../hyph/de.pat") {
                    patterns = resolve_url(*styled.styled_rules.rules_bases, *u);
                }
            }
        }
        EXPECT_EQ(f.of(find(doc, "p")).winner("hyphenate-patterns"), "url(\"../hyph/de.pat\")");
        ASSERT_TRUE(patterns);
        auto const path = resource::loader::resolve_filename(f.loader, *patterns);
        ASSERT_TRUE(path);
        EXPECT_EQ(fs::path(path->path).lexically_normal(),
                  (fs::path(VELLUM_SOURCE_DIR) / "resources/hyph/de.pat").lexically_normal());
    }
}

TEST(element_matches, interactive_states_never_match) {
    fixture f("states");
    auto const doc = f.parse(R"(<a href="x" id="t">a</a><input checked disabled>)", doctype::doctype::html5);
    auto const a = find(doc, "a");
    auto const input = find(doc, "input");
    EXPECT_TRUE(element_matches(selector_of("a:link"), *a));
    EXPECT_TRUE(element_matches(selector_of("body > a#t"), *a));
    for (auto const* s : {"a:hover", "a:visited", "a:target", "a:focus", "a:active"}) {
        EXPECT_FALSE(element_matches(selector_of(s), *a)) << s;
    }
    for (auto const* s : {"input:checked", "input:disabled", "input:enabled"}) {
        EXPECT_FALSE(element_matches(selector_of(s), *input)) << s;
    }
    // A selector with a pseudo-element selects no element.
    EXPECT_FALSE(element_matches(selector_of("a::before"), *a));
}

TEST(element_matches, structural_pseudo_classes_skip_text) {
    fixture f("nth");
    auto const doc = f.parse("<ul> <li>1</li> text <li>2</li><li>3</li> <li>4</li><li>5</li> </ul><p></p><div> </div>",
                             doctype::doctype::html5);
    auto const items = find_all(doc, "li");
    ASSERT_EQ(items.size(), 5u);
    auto const picked = [&](std::string const& s) {
        std::string out;
        for (std::size_t i = 0; i < items.size(); ++i) {
            if (element_matches(selector_of(s), *items[i])) {
                out += std::to_string(i + 1);
            }
        }
        return out;
    };
    EXPECT_EQ(picked("li:nth-child(2n+1)"), "135");
    EXPECT_EQ(picked("li:nth-child(0n+2)"), "2");
    EXPECT_EQ(picked("li:nth-child(-n+2)"), "12");
    EXPECT_EQ(picked("li:nth-last-child(odd)"), "135");
    EXPECT_EQ(picked("li:first-child"), "1");
    EXPECT_EQ(picked("li:last-child"), "5");
    EXPECT_EQ(picked("li + li"), "2345");
    EXPECT_EQ(picked("li:first-child ~ li:not(:nth-child(3))"), "245");
    EXPECT_TRUE(element_matches(selector_of("p:empty"), *find(doc, "p")));
    EXPECT_FALSE(element_matches(selector_of("div:empty"), *find(doc, "div")));
    EXPECT_TRUE(element_matches(selector_of("ul:contains('2 3')"), *find(doc, "ul")) == false);
    EXPECT_TRUE(element_matches(selector_of("ul:contains('text')"), *find(doc, "ul")));
    EXPECT_TRUE(element_matches(selector_of("html:root"), *find(doc, "html")));
}

TEST(cascade, buckets_and_link_tables_find_what_the_plain_index_finds) {
    fixture f("buckets");
    auto const doc = f.parse(R"(<style>.a { color: red } #x { color: red } .a.b { color: red } p.a { color: red }
        * { color: red } :not(.a) { color: red } [id] { color: red } .b .a { color: red } #x.a { color: red }
        .c ~ .a { color: red } p + p { color: red } li:nth-child(2n) { color: red } .b > #y { color: red }
        svg|* { color: red } .zz { color: red }</style>
        <div class="b"><p class="a b a" id="x">1</p> t <p class="c">2</p><p id="y" class=" a ">3</p>
        <ul><li>1<li class=a>2<li>3</ul></div>)",
                             doctype::doctype::html5);
    auto const styled = f.style(doc);
    auto const& rules = styled.styled_rules;
    auto const links = tree::make_link_table(*dom::document_element(*doc).value());
    tree::dom_tree const fast{.links = &links};
    tree::dom_tree const plain;
    std::vector<dom::element_ref> all;
    for (auto const* name : {"html", "body", "div", "p", "ul", "li"}) {
        auto const found = find_all(doc, name);
        all.insert(all.end(), found.begin(), found.end());
    }
    for (auto const& e : all) {
        std::vector<std::string> ours;
        for_each_matching_rule(fast, rules, *e, [&](css::prules::prule const& r) {
            ours.push_back(css::selector::to_text(r.rule_selector));
        });
        std::vector<std::string> reference;
        css::prules::for_each_matching_rule(plain, *rules.rules_index, e.get(), [&](css::prules::prule const& r) {
            reference.push_back(css::selector::to_text(r.rule_selector));
        });
        std::sort(ours.begin(), ours.end());
        std::sort(reference.begin(), reference.end());
        EXPECT_EQ(ours, reference) << tree::name_local_view(e->dom_element_name);
        EXPECT_FALSE(ours.empty());
    }
}

// The walk passes rules over by the names their ancestors need, remembers "a ~ b" answers along long
// runs of siblings, and reads places among siblings and ids and classes from its tables; every element
// must still get the declarations of exactly the rules the plain matcher finds, also when a subtree is
// styled again on its own.
TEST(cascade, the_walk_finds_what_the_plain_matcher_finds) {
    std::vector<std::string> const selectors = {
        ".a p span", "#top > p > span", "div.a .k", ".missing span", "p.s + p span", "div p.odd ~ p span",
        "p:nth-child(3n) span", "p:nth-last-of-type(2)", "span:last-of-type", "p.odd ~ p.odd", "section ~ p",
        "h1 ~ p", "p:first-of-type ~ p em", "#top p:not(.odd) em", "[title] p", "h1 + p.odd ~ p > span.k",
        "div > h1 ~ p:nth-of-type(2n+1) em", "#nowhere ~ p", ".k em", "body .a > h1", "p + p + p em"};
    std::string sheet;
    for (std::size_t i = 0; i < selectors.size(); ++i) {
        sheet += selectors[i] + " { x-r" + std::to_string(i) + ": 1 }\n";
    }
    std::string body = "<div class=a id=top title=t><h1>h</h1>";
    for (int i = 0; i < 30; ++i) {
        body += "<p class=\"s" + std::string(i % 2 ? " odd" : "") + "\"><span class=k>x<em>e</em></span>" +
                (i % 5 == 0 ? "<span>y</span>" : "") + "</p>";
    }
    body += "</div>";
    fixture f("walk_filters");
    auto const doc = f.parse("<style>" + sheet + "</style>" + body, doctype::doctype::html5);
    auto const styled = f.style(doc);
    auto const& index = *styled.styled_rules.rules_index;

    std::vector<dom::element_ref> all;
    for (auto const* name : {"body", "div", "h1", "p", "span", "em"}) {
        auto const found = find_all(doc, name);
        all.insert(all.end(), found.begin(), found.end());
    }
    auto const expected = [&](dom::element_ref const& e) {
        std::vector<std::string> names;
        css::prules::for_each_matching_rule(tree::dom_tree{}, index, e.get(), [&](css::prules::prule const& r) {
            names.push_back(r.rule_declarations.front().declaration.prop_name);
        });
        std::sort(names.begin(), names.end());
        return names;
    };
    auto const got = [&](dom::element_ref const& e) {
        std::vector<std::string> names;
        for (auto const& d : f.of(e).own) {
            names.push_back(d.name);
        }
        std::sort(names.begin(), names.end());
        return names;
    };
    std::size_t matched = 0;
    for (auto const& e : all) {
        EXPECT_EQ(got(e), expected(e)) << tree::name_local_view(e->dom_element_name);
        matched += got(e).size();
    }
    EXPECT_GT(matched, all.size());

    // The eighth paragraph and what is inside it, styled again from there.
    auto const p = find_all(doc, "p").at(7);
    f.seen.clear();
    auto const parent = dom::get_style_info(find(doc, "div")->dom_element_style_info.get());
    style_subtree(f.log.value, f.loader, styled.styled_rules, *p, &parent);
    EXPECT_EQ(f.seen.size(), 3U);
    for (auto const& [e, record] : f.seen) {
        for (auto const& candidate : all) {
            if (candidate.get() == e) {
                EXPECT_EQ(got(candidate), expected(candidate)) << tree::name_local_view(e->dom_element_name);
            }
        }
    }
}

// Elements the same rules match share one list of typed declarations; one with a style attribute has
// its own, and each list holds what its element's cascade gave.
TEST(cascade, elements_with_the_same_rules_share_their_typed_declarations) {
    fixture f("shared_declared");
    auto const doc = f.parse(R"(<style>p { color: red } .b { margin-left: 2pt } p::before { content: "x" }</style>
        <p>1</p><p>2</p><p class=b>3</p><p style="color: blue">4</p>)",
                             doctype::doctype::html5);
    auto const styled = style_document(f.log.value, f.loader, doc, computed::typed_hooks());
    auto const ps = find_all(doc, "p");
    ASSERT_EQ(ps.size(), 4U);
    auto const declared = [&](std::size_t i) {
        return dom::get_style_info(ps[i]->dom_element_style_info.get()).style_info_declared;
    };
    EXPECT_EQ(declared(0), declared(1));
    EXPECT_NE(declared(0), declared(2));
    EXPECT_NE(declared(0), declared(3));
    EXPECT_EQ(declared(0)->declared_pdecls.size(), 1U);
    EXPECT_EQ(declared(2)->declared_pdecls.size(), 2U);
    EXPECT_EQ(declared(3)->declared_pdecls.size(), 2U);
    EXPECT_EQ(pseudo_declarations(*declared(1), css::selector::pseudo_element::before).size(), 1U);
    auto const color = [&](std::size_t i) { return computed::style_of(*ps[i])->color; };
    EXPECT_EQ(color(0), color(1));
    EXPECT_NE(color(0), color(3));
}

// The lists point into the typed declarations of the sheets: they keep them, and an element's own, alive
// after the rules and the styling that made them are gone.
TEST(cascade, typed_declarations_outlive_the_styling) {
    fixture f("declared_alive");
    auto const doc = f.parse(R"(<style>p { color: red; margin-left: calc(1em + 2pt) }</style>
        <p>1</p><p style="color: blue">2</p>)",
                             doctype::doctype::html5);
    std::vector<ref<declared_styles>> kept;
    {
        auto const styled = style_document(f.log.value, f.loader, doc, computed::typed_hooks());
        for (auto const& p : find_all(doc, "p")) {
            kept.push_back(dom::get_style_info(p->dom_element_style_info.get()).style_info_declared);
        }
    }
    ASSERT_EQ(kept.size(), 2U);
    auto const recomputed = [](declared_styles const& d) {
        return css::compute_style::compute_style(nullptr, css::compute_style::anonymous_context{},
                                                 properties_of(d.declared_pdecls));
    };
    auto const first = recomputed(*kept[0]);
    auto const second = recomputed(*kept[1]);
    EXPECT_EQ(first.color, *css::color::named("red"));
    EXPECT_EQ(second.color, *css::color::named("blue"));
    // The margin waits for the element's font size: typed for the element, and kept by its list.
    EXPECT_EQ(first.margin_left, css::box::margin{14.0f});
}

// Siblings with the same rules, base and language share their whole style record; a language of their
// own or a different rule set gives a record of their own, with the right language in it.
TEST(cascade, siblings_alike_share_one_style_record) {
    fixture f("shared_info");
    auto const doc = f.parse(R"(<style>.b { margin-left: 2pt }</style>
        <div lang=en><p>1</p><p>2</p><p lang=fr>3</p><p class=b>4</p><p>5</p></div>)",
                             doctype::doctype::html5);
    auto const styled = style_document(f.log.value, f.loader, doc, computed::typed_hooks());
    auto const ps = find_all(doc, "p");
    ASSERT_EQ(ps.size(), 5U);
    auto const info = [&](std::size_t i) { return &dom::get_style_info(ps[i]->dom_element_style_info.get()); };
    EXPECT_EQ(info(0), info(1));
    EXPECT_NE(info(0), info(2));
    EXPECT_NE(info(0), info(3));
    EXPECT_EQ(info(0)->style_info_lang, std::optional<std::string>("en"));
    EXPECT_EQ(info(2)->style_info_lang, std::optional<std::string>("fr"));
    // The fifth follows two others and still finds the record of its kind.
    EXPECT_EQ(info(4), info(0));
}

// Pointers to declarations with given priorities, to merge.
struct merge_case {
    std::vector<css::pdecls::pdeclaration> decls;
    std::vector<css::pdecls::pdeclaration const*> items;

    explicit merge_case(std::vector<std::vector<int>> const& runs, std::vector<std::size_t>& bounds) {
        int tag = 0;
        for (auto const& run : runs) {
            for (int w : run) {
                decls.push_back({css::declaration{.prop_name = std::to_string(tag++)},
                                 css::priority::priority{.weight = w}});
            }
        }
        std::size_t i = 0;
        for (auto const& run : runs) {
            bounds.push_back(i);
            for (std::size_t k = 0; k < run.size(); ++k) {
                items.push_back(&decls[i++]);
            }
        }
    }

    std::string order() const {
        std::string out;
        for (auto const* p : items) {
            out += p->declaration.prop_name + ":" + std::to_string(p->priority.weight) + " ";
        }
        return out;
    }
};

TEST(merge_runs, merges_sorted_runs_stably_and_sorts_unsorted_ones) {
    std::vector<css::pdecls::pdeclaration const*> scratch;
    {
        std::vector<std::size_t> bounds;
        merge_case c({{1, 3, 5}, {2, 3, 4}, {3}}, bounds);
        merge_runs(c.items, bounds, scratch);
        EXPECT_EQ(c.order(), "0:1 3:2 1:3 4:3 6:3 5:4 2:5 ");
    }
    {
        // A run with an !important declaration before an unimportant one is out of order.
        std::vector<std::size_t> bounds;
        merge_case c({{5, 3, 3}, {4}}, bounds);
        merge_runs(c.items, bounds, scratch);
        EXPECT_EQ(c.order(), "1:3 2:3 3:4 0:5 ");
    }
    {
        std::vector<std::size_t> bounds;
        merge_case c({}, bounds);
        merge_runs(c.items, bounds, scratch);
        EXPECT_EQ(c.order(), "");
    }
}

TEST(sheets, rel_and_instruction_attributes) {
    EXPECT_TRUE(sheets::rel_accepted("stylesheet"));
    EXPECT_TRUE(sheets::rel_accepted("  author StyleSheet\t"));
    EXPECT_FALSE(sheets::rel_accepted("alternate stylesheet"));
    EXPECT_FALSE(sheets::rel_accepted("stylesheets"));
    EXPECT_FALSE(sheets::rel_accepted(""));
    auto const attrs = sheets::pi_attributes(R"( href = "a b.css" type='text/css'  media="print" bad x="y")");
    EXPECT_EQ(attrs.size(), 3u);
    EXPECT_EQ(attrs.at("href"), "a b.css");
    EXPECT_EQ(attrs.at("type"), "text/css");
    EXPECT_EQ(sheets::xml_stylesheet_href(R"(href="a.css" type="text/css" alternate="no")", "print"), "a.css");
    EXPECT_FALSE(sheets::xml_stylesheet_href(R"(href="a.css" type="text/css" media="screen")", "print"));
    EXPECT_EQ(sheets::xml_stylesheet_href(R"(href="a.css" type="text/css" media="screen, print")", "print"),
              "a.css");
}

} // namespace
} // namespace vellum::styledom
