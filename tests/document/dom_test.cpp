// The document tree: kinds of document, the head's metadata, and the living tree with its links, bases
// and canvas sizes.
#include "doc_test_support.hpp"
#include "document/doctype.hpp"
#include "document/dom.hpp"
#include "document/input.hpp"
#include "document/xhtml.hpp"
#include "util/result.hpp"

#include <gtest/gtest.h>

namespace {

using namespace vellum;
using namespace doc_test;

xml::element el(xml::name n, xml::attributes attrs = {}, std::vector<xml::xml> children = {}) {
    return xml::element{.element_name = std::move(n),
                        .element_attrs = std::move(attrs),
                        .element_children = std::move(children)};
}

xml::name h(std::string_view local) {
    return xml::make_name(xml::xmlns_xhtml{}, local);
}

xml::text t(std::string s) {
    return xml::text{std::move(s)};
}

TEST(doctype, sniffs_the_kind_from_root_and_public_id) {
    struct sniff_case {
        char const* name;
        xml::document doc;
        doctype::xmltype expected;
        std::string_view log_name;
    };

    std::vector<sniff_case> const cases = {
        {"xhtml namespace",
         {.doc_root = el(h("html"))},
         doctype::xmltype_xhtml{doctype::xhtml_doctype::xhtml_ns},
         "XHTML"},
        {"html without namespace",
         {.doc_root = el(xml::make_name("html"))},
         doctype::xmltype_xhtml{doctype::xhtml_doctype::xhtml_no_ns},
         "XHTML (no namespace)"},
        {"html wins over a DocBook id",
         {.doctype_public = "-//OASIS//DTD DocBook XML V4.5//EN", .doc_root = el(xml::make_name("html"))},
         doctype::xmltype_xhtml{doctype::xhtml_doctype::xhtml_no_ns},
         "XHTML (no namespace)"},
        {"DocBook public id",
         {.doctype_public = "-//OASIS//DTD DocBook XML V4.5//EN", .doc_root = el(xml::make_name("book"))},
         doctype::xmltype_docbook{},
         "DocBook"},
        {"DocBook 5 namespace",
         {.doc_root = el(xml::make_name(xml::xmlns_other{"http://docbook.org/docbook-ng"}, "article"))},
         doctype::xmltype_docbook{},
         "DocBook"},
        {"other namespace",
         {.doc_root = el(xml::make_name(xml::xmlns_svg{}, "html"))},
         doctype::xmltype_xml{},
         "XML"},
        {"plain xml", {.doc_root = el(xml::make_name("book"))}, doctype::xmltype_xml{}, "XML"},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.name);
        auto const kind = doctype::sniff_xmltype(c.doc);
        EXPECT_EQ(kind, c.expected);
        EXPECT_EQ(doctype::xmltype_name(kind), c.log_name);
    }
}

TEST(xml, maps_namespace_uris_exactly) {
    EXPECT_EQ(xml::xmlns_of_uri("http://www.w3.org/1999/xhtml"), xml::xmlns{xml::xmlns_xhtml{}});
    EXPECT_EQ(xml::xmlns_of_uri("http://www.w3.org/1999/xhtml/"),
              xml::xmlns{xml::xmlns_other{"http://www.w3.org/1999/xhtml/"}});
    EXPECT_EQ(xml::xmlns_of_uri("http://www.w3.org/1998/Math/MathML"), xml::xmlns{xml::xmlns_mathml{}});
    for (auto const& ns :
         {xml::xmlns{xml::xmlns_svg{}}, xml::xmlns{xml::xmlns_xlink{}}, xml::xmlns{xml::xmlns_xml{}}}) {
        EXPECT_EQ(xml::xmlns_of_uri(xml::uri_of_xmlns(ns)), ns);
    }
    // Names order by alternative first: a name in no namespace sorts before any qualified one.
    EXPECT_LT(xml::make_name("z"), xml::make_name(xml::xmlns_xhtml{}, "a"));
    EXPECT_LT(xml::make_name(xml::xmlns_xhtml{}, "z"), xml::make_name(xml::xmlns_svg{}, "a"));
}

xml::document html_doc(std::vector<xml::xml> head_children, bool namespaced = true) {
    auto name = [&](std::string_view l) { return namespaced ? h(l) : xml::make_name(l); };
    return {.doc_root = el(name("html"), {},
                           {el(name("head"), {}, std::move(head_children)), el(name("body"), {}, {t("x")})})};
}

TEST(xhtml, reads_title_meta_and_base_from_the_head) {
    auto const doc = html_doc({
        el(h("title"), {}, {t("First")}),
        el(h("title"), {}, {t("  The\n  title "), el(h("b"), {}, {t("ignored")}), t("!")}),
        el(h("meta"), {{xml::make_name("name"), "Author"}, {xml::make_name("content"), " Ann \t Smith "}}),
        el(h("meta"), {{xml::make_name("name"), "keywords"}, {xml::make_name("content"), "a, b ,,c"}}),
        el(h("meta"), {{xml::make_name("name"), "subject"},
                       {xml::make_name("content"), "ignored"},
                       {xml::make_name("scheme"), "x"}}),
        el(h("meta"), {{xml::make_name("name"), "subject"}, {xml::make_name("content"), "Topic"}}),
        el(h("meta"), {{xml::make_name("name"), "generator"}}),
        el(h("meta"),
           {{xml::make_name("name"), "date"}, {xml::make_name("content"), "2011-03-04T05:06:07Z"}}),
        el(h("base"), {{xml::make_name("href"), "http://a.example/"}}),
        el(h("base"), {{xml::make_name("href"), "http://b.example/dir/"}}),
    });
    auto const head = xhtml::read_head(doc);
    EXPECT_EQ(head.xhtml_title, "  The\n  title !");
    EXPECT_EQ(head.xhtml_base, "http://b.example/dir/");
    ASSERT_EQ(head.xhtml_meta.size(), 5u);
    EXPECT_EQ(head.xhtml_meta[0].first, xhtml::meta{xhtml::meta_name{"author"}});
    EXPECT_EQ(head.xhtml_meta[2].first, (xhtml::meta{xhtml::meta_scheme_name{"x", "subject"}}));

    auto const m = xhtml::head_metadata(head);
    EXPECT_EQ(m.title, "The title !");
    EXPECT_EQ(m.author, "Ann Smith");
    EXPECT_EQ(m.subject, "Topic");
    EXPECT_EQ(m.keywords, (std::vector<std::string>{"a", "b", "c"}));
    EXPECT_FALSE(m.creator);
    ASSERT_TRUE(m.creation_date);
    EXPECT_EQ(*m.creation_date, (metadata::date{2011, 3, 4, metadata::time_of_day{5, 6, 7}}));
}

TEST(xhtml, head_needs_the_root_namespace) {
    EXPECT_EQ(xhtml::read_head(html_doc({el(xml::make_name("title"), {}, {t("T")})}, false)).xhtml_title,
              "T");
    // A head in another namespace than its root's is not the head.
    xml::document mixed{
        .doc_root = el(h("html"), {}, {el(xml::make_name("head"), {}, {el(h("title"), {}, {t("T")})})})};
    EXPECT_EQ(xhtml::read_head(mixed), xhtml::xhtml{});
    xml::document not_html{.doc_root = el(xml::make_name("doc"), {}, {el(xml::make_name("head"))})};
    EXPECT_EQ(xhtml::read_head(not_html), xhtml::xhtml{});
}

TEST(xhtml, job_metadata_wins_unless_empty) {
    metadata::metadata const given{.title = "", .author = "Given", .keywords = {"k"}};
    metadata::metadata const head{.title = "Head", .subject = "S", .author = "Other", .keywords = {"x"}};
    auto const merged = xhtml::merge_metadata(given, head);
    EXPECT_EQ(merged.title, "Head");
    EXPECT_EQ(merged.author, "Given");
    EXPECT_EQ(merged.subject, "S");
    EXPECT_EQ(merged.keywords, std::vector<std::string>{"k"});
}

TEST(xhtml, parses_iso_dates) {
    EXPECT_EQ(xhtml::parse_iso_date("2020"), (metadata::date{2020, 1, 1}));
    EXPECT_EQ(xhtml::parse_iso_date("2020-02"), (metadata::date{2020, 2, 1}));
    EXPECT_EQ(xhtml::parse_iso_date("2020-02-29T10:11+02:00"),
              (metadata::date{2020, 2, 29, metadata::time_of_day{10, 11, 0}}));
    for (auto const* bad :
         {"", "20", "2020-13", "2020-1-1", "2020-01-01T", "2020-01-01 10:00", "yesterday"}) {
        SCOPED_TRACE(bad);
        EXPECT_FALSE(xhtml::parse_iso_date(bad));
    }
}

resource::locator::locator web(std::string const& url) {
    return resource::locator::parse_locator(resource::locator::path_or_url::url_strict,
                                            resource::locator::locator_origin::document_origin, std::nullopt,
                                            url);
}

dom::document_ref build(xml::element root, std::string const& base = "http://example.com/dir/doc.html") {
    xml::document doc{.doc_url = web(base), .doc_root = std::move(root)};
    return dom::new_dom_document(doctype::doctype::xml, doctype::sniff_xmltype(doc), {}, web(base), doc);
}

dom::element_ref nth_element(std::vector<dom::child_node> const& children, std::size_t n) {
    for (auto const& c : children) {
        if (auto const* e = std::get_if<dom::element_child>(&c); e && n-- == 0) {
            return e->child_element;
        }
    }
    throw std::out_of_range("no such element");
}

TEST(dom, links_children_to_parents_and_siblings) {
    auto const doc =
        build(el(h("html"), {{xml::make_name("lang"), "en"}}, {t("a"), el(h("p")), t("b"), el(h("q"))}));
    auto const root = dom::document_element(*doc);
    ASSERT_TRUE(root);
    auto const* doc_parent = std::get_if<dom::document_parent>(&(*root)->dom_element_parent.cell_value);
    ASSERT_TRUE(doc_parent);
    EXPECT_EQ(doc_parent->parent_document.lock(), doc);
    EXPECT_EQ(dom::attribute_value(**root, xml::make_name("lang")), "en");
    EXPECT_EQ((*root)->dom_element_attrs.get()[0]->dom_attribute_owner_element.get().lock(), *root);
    EXPECT_FALSE(dom::attribute_value(**root, xml::make_name("dir")));

    auto const children = (*root)->dom_element_children.get();
    ASSERT_EQ(children.size(), 4u);
    EXPECT_EQ(dom::text_content(children), (std::vector<std::string>{"a", "b"}));
    EXPECT_FALSE(dom::previous_sibling(children[0]));
    EXPECT_FALSE(dom::next_sibling(children[3]));
    for (std::size_t i = 0; i + 1 < children.size(); ++i) {
        SCOPED_TRACE(i);
        auto const next = dom::next_sibling(children[i]);
        ASSERT_TRUE(next);
        auto const back = dom::previous_sibling(*next);
        ASSERT_TRUE(back);
        auto const parent = dom::parent_of(children[i]);
        auto const* ep = std::get_if<dom::element_parent>(&parent);
        ASSERT_TRUE(ep);
        EXPECT_EQ(ep->parent_element.lock(), *root);
    }
    auto const p = nth_element(children, 0);
    EXPECT_EQ(p->dom_element_owner_doc.lock(), doc);
    auto const next_of_p = dom::next_sibling(dom::element_child{p});
    ASSERT_TRUE(next_of_p);
    EXPECT_EQ(std::get<dom::text_child>(*next_of_p).child_text->dom_text_value.get(), "b");
}

TEST(dom, remove_child_relinks_neighbours) {
    auto const doc = build(el(h("div"), {}, {el(h("a")), el(h("b")), el(h("c"))}));
    auto const root = *dom::document_element(*doc);
    auto const children = root->dom_element_children.get();
    dom::remove_child(dom::element_parent{root}, children[1]);
    auto const after = root->dom_element_children.get();
    ASSERT_EQ(after.size(), 2u);
    auto const next = dom::next_sibling(after[0]);
    ASSERT_TRUE(next);
    EXPECT_EQ(std::get<dom::element_child>(*next).child_element, nth_element(after, 1));
    EXPECT_EQ(std::get<dom::element_child>(*dom::previous_sibling(after[1])).child_element,
              nth_element(after, 0));
    EXPECT_TRUE(std::holds_alternative<dom::no_parent>(dom::parent_of(children[1])));
    EXPECT_FALSE(dom::next_sibling(children[1]));
    try {
        dom::remove_child(dom::element_parent{root}, children[1]);
        FAIL() << "removing a child that is not there must fail";
    } catch (internal_error const& e) {
        EXPECT_STREQ(e.what(), "remove_child: could not find child in parent");
    }
}

TEST(dom, element_base_follows_xml_base_down_the_tree) {
    auto const doc = build(
        el(h("html"), {},
           {el(h("body"), {{xml::make_name(xml::xmlns_xml{}, "base"), "sub/"}},
               {el(h("p"), {{xml::make_name(xml::xmlns_xml{}, "base"), "../other/page.html"}}),
                el(h("div"), {{xml::make_name("xml:base"), "http://b.example/x/"}}, {el(h("span"))})})}));
    auto const html = *dom::document_element(*doc);
    auto const body = nth_element(html->dom_element_children.get(), 0);
    auto const p = nth_element(body->dom_element_children.get(), 0);
    auto const div = nth_element(body->dom_element_children.get(), 1);
    auto const span = nth_element(div->dom_element_children.get(), 0);
    auto str = [](dom::element_ref const& e) {
        return resource::locator::locator_to_string(dom::element_base(*e));
    };
    EXPECT_EQ(str(html), "http://example.com/dir/doc.html");
    EXPECT_EQ(str(body), "http://example.com/dir/sub/");
    EXPECT_EQ(str(p), "http://example.com/dir/other/page.html");
    EXPECT_EQ(str(div), "http://b.example/x/");
    EXPECT_EQ(str(span), "http://b.example/x/");
    // A change of the document's base reaches every element that has no base of its own.
    doc->dom_document_base.set(web("http://moved.example/"));
    EXPECT_EQ(str(body), "http://moved.example/sub/");
}

TEST(dom, canvas_sizes_read_whole_numbers_only) {
    struct size_case {
        char const* value;
        std::optional<int> parsed;
    };

    size_case const cases[] = {{"10", 10},
                               {"10.9", 10},
                               {"0", 0},
                               {"10px", std::nullopt},
                               {" 10", std::nullopt},
                               {"10 ", std::nullopt},
                               {"-1", std::nullopt},
                               {"nan", std::nullopt},
                               {"inf", std::nullopt},
                               {"", std::nullopt},
                               {"1e2", 100}};
    for (auto const& c : cases) {
        SCOPED_TRACE(c.value);
        EXPECT_EQ(dom::parse_canvas_dimension(c.value), c.parsed);
    }
    auto const doc =
        build(el(h("body"), {},
                 {el(h("canvas"), {{xml::make_name("width"), "10px"}, {xml::make_name("height"), "20"}}),
                  el(xml::make_name("canvas"))}));
    auto const body = *dom::document_element(*doc);
    auto const canvas = nth_element(body->dom_element_children.get(), 0);
    ASSERT_TRUE(canvas->dom_element_canvas_context);
    EXPECT_EQ(canvas->dom_element_canvas_context->get().context_size, (dom::canvas_size{300, 20}));
    EXPECT_FALSE(nth_element(body->dom_element_children.get(), 1)->dom_element_canvas_context)
        << "a canvas outside the XHTML namespace has no drawing surface";
}

TEST(dom, style_info_must_be_set_before_it_is_read) {
    EXPECT_THROW(dom::get_style_info(dom::no_style_info{}), internal_error);
    dom::style_info_ref const set = dom::style_info_set{share(dom::style_info{.style_info_lang = "en"})};
    EXPECT_EQ(dom::get_style_info(set).style_info_lang, "en");
}

TEST(input, prepare_document_reads_the_head_and_builds_the_tree) {
    auto const doc =
        html_doc({el(h("title"), {}, {t("From head")}),
                  el(h("meta"), {{xml::make_name("name"), "author"}, {xml::make_name("content"), "A"}}),
                  el(h("base"), {{xml::make_name("href"), "../elsewhere/"}})});
    captured_log log;
    auto const prepared = document::input::prepare_document(log.value, doctype::doctype::html5, doc, {},
                                                            web("http://example.com/a/b/doc.html"),
                                                            metadata::metadata{.author = "Job"});
    EXPECT_NE(log.text().find("sniffed doctype: XHTML"), std::string::npos);
    EXPECT_EQ(prepared.prepared_metadata.title, "From head");
    EXPECT_EQ(prepared.prepared_metadata.author, "Job");
    EXPECT_EQ(resource::locator::locator_to_string(prepared.prepared_base),
              "http://example.com/a/elsewhere/");
    ASSERT_TRUE(prepared.prepared_dom);
    EXPECT_EQ(prepared.prepared_dom->dom_document_doctype, doctype::doctype::html5);
    EXPECT_EQ(resource::locator::locator_to_string(prepared.prepared_dom->dom_document_base.get()),
              "http://example.com/a/elsewhere/");

    // Outside XHTML the head is not read.
    xml::document const plain{.doc_root = el(xml::make_name("doc"), {}, {el(xml::make_name("head"))})};
    auto const other = document::input::prepare_document(log.value, doctype::doctype::xml, plain, {},
                                                         web("http://example.com/"), {});
    EXPECT_EQ(other.prepared_xmltype, doctype::xmltype{doctype::xmltype_xml{}});
    EXPECT_NE(log.text().find("sniffed doctype: XML"), std::string::npos);
}

} // namespace
