// Document input: the libxml2 parsers with their messages, catalog and XInclude, the HTML5 conversion,
// the XML sniffer and the choice of parser.
#include "doc_test_support.hpp"
#include "document/html5/tree.hpp"
#include "document/input.hpp"
#include "document/libhtml.hpp"
#include "document/libxml/parser.hpp"
#include "util/result.hpp"

#include <gtest/gtest.h>

#include <map>

namespace {

using namespace vellum;
using namespace doc_test;
namespace input = vellum::document::input;

xml::element const& child_element(xml::element const& e, std::size_t index) {
    std::size_t n = 0;
    for (auto const& c : e.element_children) {
        if (auto const* el = std::get_if<xml::element>(&c)) {
            if (n++ == index) {
                return *el;
            }
        }
    }
    throw std::out_of_range("no such child element");
}

std::string all_text(xml::element const& e) {
    std::string out;
    for (auto const& c : e.element_children) {
        if (auto const* t = std::get_if<xml::text>(&c)) {
            out += t->text_value;
        } else {
            out += all_text(std::get<xml::element>(c));
        }
    }
    return out;
}

bool has_comment_text(xml::element const& e, std::string const& needle) {
    return all_text(e).find(needle) != std::string::npos;
}

std::optional<xml::document> load(captured_log& log,
                                  local_fetch const& fetch,
                                  fs::path const& file,
                                  doctype::doctype type,
                                  xml::xml_options options = {}) {
    return input::load_document(log.value, file_locator(file), type, std::nullopt, options, fetch.function());
}

TEST(libxml_parser, fatal_error_gives_no_document_and_names_file_and_line) {
    auto const dir = scratch_dir("fatal");
    auto const file = write_file(dir, "broken.xml", "<?xml version=\"1.0\"?>\n<a>\n<b></a>\n");
    captured_log log;
    local_fetch fetch;
    EXPECT_FALSE(load(log, fetch, file, doctype::doctype::xml));
    auto const text = log.text();
    EXPECT_NE(text.find(file.string() + ":3: error:"), std::string::npos) << text;
    EXPECT_NE(text.find("mismatch"), std::string::npos) << text;
}

TEST(libxml_parser, option_words_expand_entities_and_merge_cdata) {
    EXPECT_EQ(libxml::parser::xml_option_word(xml::load_dtd::no), 16386);
    EXPECT_EQ(libxml::parser::xml_option_word(xml::load_dtd::yes), 16398);
}

TEST(libxml_parser, converts_names_attributes_pis_and_drops_comments) {
    auto const dir = scratch_dir("convert");
    auto const file =
        write_file(dir, "doc.xml",
                   "<?xml version=\"1.0\"?>\n<?xml-stylesheet href=\"a.css\"?>\n"
                   "<!DOCTYPE book PUBLIC \"-//OASIS//DTD DocBook XML V4.5//EN\" \"none.dtd\" []>\n"
                   "<root xmlns=\"urn:x\" xmlns:s=\"http://www.w3.org/2000/svg\" "
                   "xmlns:l=\"http://www.w3.org/1999/xlink\" a=\"1\" xml:lang=\"fr\">"
                   "<!-- gone --><s:svg l:href=\"#t\"><![CDATA[x<y]]>&amp;z</s:svg></root>");
    captured_log log;
    local_fetch fetch;
    // The DTD is not there; the document reads all the same.
    auto const doc = load(log, fetch, file, doctype::doctype::xml, {.load_dtd = xml::load_dtd::no});
    ASSERT_TRUE(doc) << log.text();
    EXPECT_EQ(doc->doctype_public, "-//OASIS//DTD DocBook XML V4.5//EN");
    EXPECT_EQ(doc->doctype_system, "none.dtd");
    ASSERT_EQ(doc->doc_pi.size(), 1u);
    EXPECT_EQ(doc->doc_pi[0], (xml::pi{"xml-stylesheet", "href=\"a.css\""}));
    EXPECT_EQ(doc->doc_root.element_name, xml::make_name(xml::xmlns_other{"urn:x"}, "root"));
    xml::attributes const expected_attrs{{xml::make_name("a"), "1"},
                                         {xml::make_name(xml::xmlns_xml{}, "lang"), "fr"}};
    EXPECT_EQ(doc->doc_root.element_attrs, expected_attrs);
    ASSERT_EQ(doc->doc_root.element_children.size(), 1u) << "the comment must not reach the tree";
    auto const& svg = child_element(doc->doc_root, 0);
    EXPECT_EQ(svg.element_name, xml::make_name(xml::xmlns_svg{}, "svg"));
    EXPECT_EQ(xml::find_attribute(svg, xml::make_name(xml::xmlns_xlink{}, "href")), "#t");
    // CDATA and the expanded entity merge into one text.
    ASSERT_EQ(svg.element_children.size(), 1u);
    EXPECT_EQ(std::get<xml::text>(svg.element_children[0]).text_value, "x<y&z");
}

TEST(libxml_parser, xhtml_dtd_comes_from_the_catalog_without_network) {
    use_built_catalog();
    auto const dir = scratch_dir("xhtml10");
    auto const file = write_file(dir, "page.xhtml",
                                 "<?xml version=\"1.0\"?>\n"
                                 "<!DOCTYPE html PUBLIC \"-//W3C//DTD XHTML 1.0 Strict//EN\" "
                                 "\"http://www.w3.org/TR/xhtml1/DTD/xhtml1-strict.dtd\">\n"
                                 "<html xmlns=\"http://www.w3.org/1999/xhtml\"><head><title>T</title></head>"
                                 "<body><p>a&nbsp;b&eacute;&euro;</p></body></html>\n");
    captured_log log;
    local_fetch fetch;
    auto const doc = load(log, fetch, file, doctype::doctype::xml);
    ASSERT_TRUE(doc) << log.text();
    EXPECT_FALSE(fetch.asked_for_web());
    EXPECT_EQ(log.text().find("error"), std::string::npos) << log.text();
    auto const& body = child_element(doc->doc_root, 1);
    EXPECT_EQ(all_text(body), "a\u00a0b\u00e9\u20ac");
    // The DTD and its entity sets were read from the program's own files.
    bool read_dtd = false;
    for (auto const& l : *fetch.requests) {
        if (resource::locator::locator_to_string(l).ends_with("/dtd/xhtml1-strict.dtd")) {
            read_dtd = true;
            EXPECT_EQ(l.locator_origin, resource::locator::locator_origin::system_origin);
        }
    }
    EXPECT_TRUE(read_dtd);
}

TEST(libxml_parser, xhtml11_modules_resolve_through_the_catalog) {
    use_built_catalog();
    auto const dir = scratch_dir("xhtml11");
    auto const file = write_file(dir, "page.xhtml",
                                 "<!DOCTYPE html PUBLIC \"-//W3C//DTD XHTML 1.1//EN\" "
                                 "\"http://www.w3.org/TR/xhtml11/DTD/xhtml11.dtd\">\n"
                                 "<html xmlns=\"http://www.w3.org/1999/xhtml\"><head><title>T</title></head>"
                                 "<body><p>&copy;&nbsp;</p></body></html>\n");
    captured_log log;
    local_fetch fetch;
    auto const doc = load(log, fetch, file, doctype::doctype::xml);
    ASSERT_TRUE(doc) << log.text();
    EXPECT_FALSE(fetch.asked_for_web());
    EXPECT_EQ(all_text(child_element(doc->doc_root, 1)), "\u00a9\u00a0");
}

TEST(libxml_parser, missing_dtd_warns_and_the_document_stands) {
    auto const dir = scratch_dir("missing_dtd");
    auto const file = write_file(
        dir, "doc.xml", "<!DOCTYPE doc SYSTEM \"http://example.invalid/doc.dtd\">\n<doc>text</doc>\n");
    captured_log log;
    local_fetch fetch;
    auto const doc = load(log, fetch, file, doctype::doctype::xml);
    ASSERT_TRUE(doc);
    EXPECT_TRUE(fetch.asked_for_web());
    EXPECT_NE(log.text().find("warning: failed to load external entity \"http://example.invalid/doc.dtd\""),
              std::string::npos)
        << log.text();
}

TEST(libxml_parser, xinclude_follows_the_option) {
    auto const dir = scratch_dir("xinclude");
    write_file(dir, "part.xml", "<part>included</part>");
    auto const file = write_file(dir, "main.xml",
                                 "<doc xmlns:xi=\"http://www.w3.org/2001/XInclude\">"
                                 "<xi:include href=\"part.xml\"/></doc>");
    captured_log log;
    local_fetch fetch;
    auto const on = load(log, fetch, file, doctype::doctype::xml, {.use_xinclude = xml::use_xinclude::yes});
    ASSERT_TRUE(on) << log.text();
    EXPECT_EQ(child_element(on->doc_root, 0).element_name, xml::make_name("part"));
    EXPECT_EQ(all_text(on->doc_root), "included");

    auto const off = load(log, fetch, file, doctype::doctype::xml, {.use_xinclude = xml::use_xinclude::no});
    ASSERT_TRUE(off);
    EXPECT_EQ(child_element(off->doc_root, 0).element_name,
              xml::make_name(xml::xmlns_other{"http://www.w3.org/2001/XInclude"}, "include"));
}

TEST(libxml_parser, bytes_in_memory_resolve_against_the_given_base) {
    auto const dir = scratch_dir("base");
    write_file(dir, "ent.txt", "from the base");
    auto const data = bytes::from_string("<!DOCTYPE d [<!ENTITY e SYSTEM \"ent.txt\">]><d>&e;</d>");
    captured_log log;
    local_fetch fetch;
    auto const doc = input::load_document(
        log.value, resource::locator::locator{.locator_url = resource::locator::standard_input{}},
        doctype::doctype::xml, file_locator(dir / "x.xml"), {}, fetch.function(), data);
    ASSERT_TRUE(doc) << log.text();
    EXPECT_EQ(all_text(doc->doc_root), "from the base");
}

TEST(libxml_parser, html4_keeps_names_without_namespace_and_drops_comments) {
    auto const dir = scratch_dir("html4");
    auto const file =
        write_file(dir, "page.html",
                   "<html><head><title>T</title></head><body>"
                   "<p xml:base=\"sub/\" CLASS=x>Hi<!-- c --> there &eacute;</p></body></html>");
    captured_log log;
    local_fetch fetch;
    auto const doc = load(log, fetch, file, doctype::doctype::html4);
    ASSERT_TRUE(doc) << log.text();
    EXPECT_EQ(doc->doc_root.element_name, xml::make_name("html"));
    auto const& p = child_element(child_element(doc->doc_root, 1), 0);
    EXPECT_EQ(p.element_name, xml::make_name("p"));
    EXPECT_EQ(xml::find_attribute(p, xml::make_name("xml:base")), "sub/");
    EXPECT_EQ(xml::find_attribute(p, xml::make_name("class")), "x");
    EXPECT_EQ(all_text(p), "Hi there \u00e9");
}

TEST(libhtml, converts_namespaces_and_foreign_attributes) {
    captured_log log;
    local_fetch fetch;
    auto const data =
        bytes::from_string("<!DOCTYPE html><!-- before --><p>x<!-- in -->y<svg xlink:href=\"#a\" "
                           "xml:lang=\"en\" viewBox=\"0 0 1 1\">"
                           "<foreignObject/></svg><math><mi>z</mi></math><template><b>t</b></template>");
    auto const doc = input::load_document(
        log.value, resource::locator::locator{.locator_url = resource::locator::standard_input{}},
        doctype::doctype::html5, std::nullopt, {}, fetch.function(), data);
    ASSERT_TRUE(doc);
    EXPECT_FALSE(doc->doctype_public);
    EXPECT_TRUE(doc->doc_pi.empty());
    EXPECT_EQ(doc->doc_root.element_name, xml::make_name(xml::xmlns_xhtml{}, "html"));
    auto const& body = child_element(doc->doc_root, 1);
    auto const& p = child_element(body, 0);
    EXPECT_EQ(std::get<xml::text>(p.element_children[0]).text_value, "xy") << "comments are dropped";
    auto const& svg = child_element(p, 0);
    EXPECT_EQ(svg.element_name, xml::make_name(xml::xmlns_svg{}, "svg"));
    EXPECT_EQ(xml::find_attribute(svg, xml::make_name(xml::xmlns_xlink{}, "href")), "#a");
    EXPECT_EQ(xml::find_attribute(svg, xml::make_name(xml::xmlns_xml{}, "lang")), "en");
    EXPECT_EQ(xml::find_attribute(svg, xml::make_name("viewBox")), "0 0 1 1");
    EXPECT_EQ(child_element(svg, 0).element_name, xml::make_name(xml::xmlns_svg{}, "foreignObject"));
    EXPECT_EQ(child_element(p, 1).element_name, xml::make_name(xml::xmlns_mathml{}, "math"));
    auto const& tmpl = child_element(p, 2);
    EXPECT_EQ(tmpl.element_name, xml::make_name(xml::xmlns_xhtml{}, "template"));
    EXPECT_EQ(all_text(tmpl), "t");
    EXPECT_FALSE(has_comment_text(doc->doc_root, "before"));
}

TEST(libhtml, rejects_a_tree_that_is_not_one_document) {
    auto root = html5::tree::make_element("DOC", html5::tree::html_ns::none);
    EXPECT_THROW(libhtml::convert_document(*root, {}), internal_error);
    html5::tree::add_child_node(*root, html5::tree::make_element("html", html5::tree::html_ns::html));
    EXPECT_NO_THROW(libhtml::convert_document(*root, {}));
    html5::tree::add_child_node(*root, html5::tree::make_element("html", html5::tree::html_ns::html));
    EXPECT_THROW(libhtml::convert_document(*root, {}), internal_error);
}

TEST(libhtml, inner_html_gives_the_fragment_nodes) {
    auto const nodes = libhtml::parse_inner_html("<td>a</td>b<!--c-->", "tr", html5::tree::html_ns::html);
    // Text in a row context is foster-parented out of the row, to the end of the fragment.
    ASSERT_EQ(nodes.size(), 2u);
    EXPECT_EQ(std::get<xml::element>(nodes[0]).element_name, xml::make_name(xml::xmlns_xhtml{}, "td"));
    EXPECT_EQ(std::get<xml::text>(nodes[1]).text_value, "b");
    auto const in_div = libhtml::parse_inner_html("x<b>y</b><!--c-->", "div", html5::tree::html_ns::html);
    ASSERT_EQ(in_div.size(), 2u);
    EXPECT_EQ(std::get<xml::text>(in_div[0]).text_value, "x");
}

TEST(input, is_xml_file_sniffs_html_named_files) {
    struct sniff_case {
        char const* name;
        char const* content;
        bool is_xml;
    };

    sniff_case const cases[] = {
        {"xml declaration", "<?xml version=\"1.0\"?><html><p>x</p></html>", true},
        {"xhtml 1.0 doctype with namespace",
         "<!DOCTYPE html PUBLIC \"-//W3C//DTD XHTML 1.0 Strict//EN\" "
         "\"http://www.w3.org/TR/xhtml1/DTD/xhtml1-strict.dtd\">\n<html "
         "xmlns=\"http://www.w3.org/1999/xhtml\"/>",
         true},
        {"system id naming XHTML", "<!DOCTYPE html SYSTEM \"XHTML.dtd\"><html/>", true},
        {"system id naming HTML", "<!DOCTYPE html SYSTEM \"HTML.dtd\"><html xmlns=\"x\"/>", false},
        {"html5 doctype", "<!DOCTYPE html>\n<html><body><p>x</p></body></html>", false},
        {"public id only", "<!DOCTYPE html PUBLIC \"-//X//Y\"><html/>", false},
        {"internal subset", "<!DOCTYPE html [<!ENTITY a \"b\">]><html/>", true},
        {"processing instruction first", "<?xml-stylesheet href=\"a.css\"?><html/>", true},
        {"element with xmlns", "<html xmlns=\"http://www.w3.org/1999/xhtml\"><p/></html>", true},
        {"element with xml:lang", "<html xml:lang=\"en\"/>", true},
        {"plain element", "<html lang=\"en\"><p>x</p></html>", false},
        {"not well formed", "<html><p>x</html>", false},
        {"html void elements", "<html><br><p>x</p></html>", false},
    };
    auto const dir = scratch_dir("sniff");
    int i = 0;
    for (auto const& c : cases) {
        SCOPED_TRACE(c.name);
        auto const file = write_file(dir, "f" + std::to_string(i++) + ".html", c.content);
        EXPECT_EQ(input::is_xml_file(file.string()), c.is_xml);
    }
    EXPECT_FALSE(input::is_xml_file((dir / "absent.html").string()));
}

TEST(input, input_format_follows_the_table) {
    using doctype::doctype;
    auto const dir = scratch_dir("format");
    auto const xhtml_file = write_file(dir, "a.HTML", "<?xml version=\"1.0\"?><html/>");
    auto const html_file = write_file(dir, "b.htm", "<!DOCTYPE html><p>x");
    auto const web = resource::locator::parse_locator(resource::locator::path_or_url::url_strict,
                                                      resource::locator::locator_origin::command_line_origin,
                                                      std::nullopt, "http://example.com/x");
    EXPECT_EQ(input::input_format(doctype::html4, file_locator(xhtml_file)), doctype::html4);
    EXPECT_EQ(input::input_format(std::nullopt, {.locator_url = resource::locator::standard_input{}}),
              doctype::html5);
    EXPECT_EQ(input::input_format(std::nullopt, file_locator(xhtml_file)), doctype::xml);
    EXPECT_EQ(input::input_format(std::nullopt, file_locator(html_file)), doctype::html5);
    EXPECT_EQ(input::input_format(std::nullopt, file_locator(dir / "c.txt")), doctype::xml);
    EXPECT_EQ(input::input_format(std::nullopt, file_locator(dir / "noext")), doctype::xml);
    EXPECT_EQ(input::input_format(std::nullopt, web), std::nullopt);
    EXPECT_EQ(input::doctype_of_content_type("text/html; charset=utf-8"), doctype::html5);
    EXPECT_EQ(input::doctype_of_content_type("application/xhtml+xml"), doctype::xml);
    EXPECT_EQ(input::doctype_of_content_type(std::nullopt), doctype::html5);
}

} // namespace

// A fetch that serves fixed bytes with the encoding a server would name in its Content-Type.
libxml::io::fetch_function serving(std::map<std::string, std::pair<std::string, std::optional<std::string>>> files) {
    return [files](resource::locator::locator const& l) -> result<libxml::io::fetched> {
        auto const* f = std::get_if<resource::locator::file>(&l.locator_url);
        if (!f) {
            return fail("not a file");
        }
        auto const name = fs::path(f->file_path.path).filename().string();
        auto const it = files.find(name);
        if (it == files.end()) {
            return fail("no such file: " + name);
        }
        return libxml::io::fetched{.fetched_bytes = bytes::from_string(it->second.first),
                                   .fetched_charset = it->second.second};
    };
}

TEST(transport_charset, overrides_the_meta_declaration_but_not_a_byte_order_mark) {
    captured_log log;
    auto const dir = scratch_dir("transport_html");
    // "\xB1" is a-ogonek in ISO-8859-2 and plus-minus in windows-1252, so the winner shows.
    auto const fetch = serving({
        {"meta.html", {"<meta charset=windows-1252><p>\xB1", "iso-8859-2"}},
        {"bom.html", {"\xEF\xBB\xBF<p>\xC3\xA9", "iso-8859-2"}},
        {"none.html", {"<meta charset=windows-1252><p>\xB1", std::nullopt}},
    });
    auto text_of = [&](char const* name) {
        auto const doc = input::load_document(log.value, file_locator(dir / name), doctype::doctype::html5,
                                              std::nullopt, {}, fetch);
        return doc ? all_text(doc->doc_root) : std::string("(no document)");
    };
    EXPECT_EQ(text_of("meta.html"), "\u0105");
    EXPECT_EQ(text_of("bom.html"), "\u00e9");
    EXPECT_EQ(text_of("none.html"), "\u00b1");
}

TEST(transport_charset, applies_to_xml_documents_and_their_external_entities) {
    captured_log log;
    auto const dir = scratch_dir("transport_xml");
    auto const fetch = serving({
        {"doc.xml", {"<!DOCTYPE d [<!ENTITY e SYSTEM \"e.txt\">]><d>\xB1|&e;</d>", "iso-8859-2"}},
        {"e.txt", {"\xB1", "windows-1252"}},
        {"bad.xml", {"<!DOCTYPE d [<!ENTITY e SYSTEM \"odd.txt\">]><d>&e;</d>", std::nullopt}},
        {"odd.txt", {"x", "no-such-encoding"}},
    });
    auto const doc = input::load_document(log.value, file_locator(dir / "doc.xml"), doctype::doctype::xml,
                                          std::nullopt, {}, fetch);
    ASSERT_TRUE(doc);
    EXPECT_EQ(all_text(doc->doc_root), "\u0105|\u00b1");
    auto const bad = input::load_document(log.value, file_locator(dir / "bad.xml"), doctype::doctype::xml,
                                          std::nullopt, {}, fetch);
    EXPECT_TRUE(bad) << "an entity that cannot be read only warns";
    EXPECT_NE(log.text().find("Unknown encoding no-such-encoding"), std::string::npos) << log.text();
}
