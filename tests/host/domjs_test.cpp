// The DOM bindings through the real engine: a document parsed from a string, scripts evaluated against
// it, and the tree (or the value of the last expression) looked at afterwards.
#include "document/doc_test_support.hpp"
#include "document/libhtml.hpp"
#include "host/domjs.hpp"
#include "host/hostjs.hpp"
#include "host/script_phase.hpp"
#include "js/convert.hpp"
#include "js/object.hpp"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace vellum::domjs {
namespace {

namespace e = js::eval;
using doc_test::captured_log;

struct fixture {
    doc_test::fs::path dir;
    captured_log log;
    std::shared_ptr<resource::loader::loader const> loader;
    dom::document_ref doc;
    std::shared_ptr<hostjs::host_js> host;

    explicit fixture(std::string const& name, std::string const& html) : dir(doc_test::scratch_dir("domjs_" + name)) {
        auto l = resource::loader::new_loader(log.value, {VELLUM_SOURCE_DIR "/resources"}, {dir.string()},
                                              {.network = false});
        check(l.has_value(), "fixture");
        loader = std::make_shared<resource::loader::loader const>(*l);
        auto const path = doc_test::write_file(dir, "doc.html", html);
        auto const url = doc_test::file_locator(path);
        auto const parsed = libhtml::parse_html5_bytes(log.value, url, bytes::from_string(html));
        check(parsed.has_value(), "fixture");
        doc = dom::new_dom_document(doctype::doctype::html5, doctype::sniff_xmltype(*parsed),
                                    dom::doc_style_info{.use_author_scripts = true}, url, *parsed);
    }

    /// A host for direct evaluation, with `document` and `location` bound.
    void bind() {
        host = hostjs::make_host(log.value, loader, {});
        bind_document(*host->js, doc);
    }

    /// The value of a script as text, or "threw " and the exception's text.
    std::string eval(std::string const& source) {
        if (!host) {
            bind();
        }
        e::js& engine = *host->js;
        auto r = hostjs::eval_global(*host, doc->dom_document_url, jsstring::from_utf8(source));
        if (auto const* x = std::get_if<e::exception>(&r)) {
            return "threw " + jsstring::to_utf8(std::get<e::js_string>(e::to_string(engine, x->exception_value)));
        }
        return jsstring::to_utf8(std::get<e::js_string>(e::to_string(engine, std::get<e::js_value>(r))));
    }

    /// Runs the whole script phase of the document.
    hostjs::opt_host_js run_phase() {
        return hostjs::run_script_phase(log.value, loader, {}, doc->dom_document_style_info, doc);
    }

    /// The `data-log` attribute of the body, where the scripts of a phase write what they saw.
    std::string body_log() {
        std::string out;
        dom::dom_node const root = doc;
        std::function<void(std::vector<dom::child_node> const&)> walk = [&](std::vector<dom::child_node> const& list) {
            for (auto const& c : list) {
                if (auto const* el = std::get_if<dom::element_child>(&c)) {
                    if (xml::name_local(el->child_element->dom_element_name) == "body") {
                        out = dom::attribute_value(*el->child_element, xml::make_name("data-log")).value_or("");
                        return;
                    }
                    walk(el->child_element->dom_element_children.get());
                }
            }
        };
        walk(doc->dom_document_children.get());
        return out;
    }
};

std::string const simple = "<!DOCTYPE html><html><head><title>t</title></head><body>"
                           "<div id='box'><p class='a'>one</p><p class='a b'>two</p></div></body></html>";

TEST(domjs, wrappers_keep_their_identity) {
    fixture f("identity", simple);
    EXPECT_EQ(f.eval("var d = document.getElementById('box'); d.firstChild === d.firstChild"), "true");
    EXPECT_EQ(f.eval("d.firstChild.parentNode === d && document.body.firstChild === d"), "true");
    EXPECT_EQ(f.eval("Object.prototype.toString.call(d)"), "[object HTMLDivElement]");
    EXPECT_EQ(f.eval("d instanceof HTMLElement && d instanceof Element && d instanceof Node"), "true");
    EXPECT_EQ(f.eval("document.createElement('svg:x').nodeName + ' ' + d.nodeType + ' ' + document.nodeType"),
              "SVG:X 1 9");
}

TEST(domjs, element_of_unwraps_only_elements) {
    fixture f("element_of", simple);
    f.bind();
    auto& engine = *f.host->js;
    auto const root = dom::document_element(*f.doc);
    ASSERT_TRUE(root.has_value());
    EXPECT_EQ(element_of(wrap_node(engine, *root)), root->get());
    EXPECT_EQ(element_of(wrap_node(engine, f.doc)), nullptr);
    EXPECT_EQ(element_of(e::js_value(e::js_null{})), nullptr);
    EXPECT_EQ(element_of(e::js_value(e::new_object(engine))), nullptr);
}

// Live lists see every kind of change that alters them: nested insertions, removals, moves, class
// changes, markup and text replacing children.
TEST(domjs, live_lists_follow_every_change) {
    fixture f("live_changes", simple);
    EXPECT_EQ(f.eval("var ps = document.getElementsByTagName('P'); var as = document.getElementsByClassName('a');"
                     "var box = document.getElementById('box'); [ps.length, as.length].join()"),
              "2,2");
    // A p deep inside a subtree built apart and then inserted.
    EXPECT_EQ(f.eval("var d = document.createElement('div'); d.innerHTML = '<span><p class=a>three</p></span>';"
                     "document.body.appendChild(d); [ps.length, ps[2].textContent, as.length].join()"),
              "3,three,3");
    // A move changes the order; a class change the class list only.
    EXPECT_EQ(f.eval("box.appendChild(box.firstChild); [ps[0].textContent, ps[1].textContent].join()"), "two,one");
    EXPECT_EQ(f.eval("ps[0].className = 'c'; var n1 = as.length; ps[1].setAttribute('class', 'x a');"
                     "var n2 = as.length; ps[1].removeAttribute('class'); [n1, n2, as.length, ps.length].join()"),
              "2,2,1,3");
    // Removal, replacement, and children replaced by text.
    EXPECT_EQ(f.eval("d.parentNode.removeChild(d); var n3 = ps.length; var q = document.createElement('p');"
                     "box.replaceChild(q, box.firstChild); var n4 = ps.length + ':' + (ps[0] === q);"
                     "box.textContent = 'gone'; [n3, n4, ps.length].join()"),
              "2,2:true,0");
    // Child lists: text nodes count, a split text node adds one, children counts elements only.
    EXPECT_EQ(f.eval("var kids = box.childNodes; var els = box.children; var k0 = kids.length;"
                     "box.firstChild.splitText(2); var k1 = kids.length; box.appendChild(document.createElement('i'));"
                     "[k0, k1, kids.length, els.length, kids[0].data, kids[1].data].join()"),
              "1,2,3,1,go,ne");
    // getElementById sees ids set, duplicated, removed and detached at once.
    EXPECT_EQ(f.eval("var g = function (id) { var e = document.getElementById(id); return e ? e.tagName : 'none'; };"
                     "var r = [g('box')]; box.id = 'zz'; r.push(g('box'), g('zz'));"
                     "var i2 = document.createElement('i'); i2.id = 'zz'; document.body.insertBefore(i2, box); r.push(g('zz'));"
                     "i2.removeAttribute('id'); r.push(g('zz')); document.body.removeChild(box); r.push(g('zz')); r.join()"),
              "DIV,none,DIV,I,DIV,none");
    // A list rooted at an element outside the document.
    EXPECT_EQ(f.eval("var loose = document.createElement('div'); var is = loose.getElementsByTagName('i');"
                     "var n5 = is.length; loose.innerHTML = '<i></i><b><i></i></b>'; n5 + ',' + is.length"),
              "0,2");
}

TEST(domjs, live_and_static_lists) {
    fixture f("lists", simple);
    EXPECT_EQ(f.eval("var live = document.getElementsByTagName('p'); var fixed = document.querySelectorAll('p');"
                     "var cls = document.getElementsByClassName('a'); var kids = document.getElementById('box').childNodes;"
                     "var p = document.createElement('p'); p.className = 'a'; document.body.appendChild(p);"
                     "[live.length, fixed.length, cls.length, kids.length, live[2] === p, live.item(7)].join()"),
              "3,2,3,2,true,");
    EXPECT_EQ(f.eval("document.getElementsByClassName('a b').length + ' ' + document.getElementsByTagName('*').length"),
              "1 8");
    EXPECT_EQ(f.eval("var n = 0; for (var k in fixed) n++; n >= 2"), "true");
    EXPECT_EQ(f.eval("document.getElementById('box').querySelector('p.b').textContent"), "two");
    EXPECT_EQ(f.eval("document.querySelector('div > p:first-child + p').textContent"), "two");
    EXPECT_EQ(f.eval("try { document.querySelector('p[[') } catch (x) { x.code + ' ' + x.name }"), "12 SYNTAX_ERR");
}

TEST(domjs, tree_changes_and_their_errors) {
    fixture f("changes", simple);
    EXPECT_EQ(f.eval("var box = document.getElementById('box'); var ps = box.getElementsByTagName('p');"
                     "box.appendChild(ps[0]); box.firstChild.textContent + box.lastChild.textContent"),
              "twoone");
    EXPECT_EQ(f.eval("box.insertBefore(ps[1], ps[0]); box.textContent"), "onetwo");
    EXPECT_EQ(f.eval("var frag = document.createDocumentFragment(); frag.appendChild(document.createTextNode('x'));"
                     "frag.appendChild(document.createElement('i')); box.insertBefore(frag, box.firstChild);"
                     "[box.childNodes.length, frag.childNodes.length, box.firstChild.nodeValue].join()"),
              "4,0,x");
    EXPECT_EQ(f.eval("box.replaceChild(document.createTextNode('y'), box.firstChild).nodeValue + box.textContent"),
              "xyonetwo");
    // Hierarchy: a node into its own descendant, text into the document, a second root.
    EXPECT_EQ(f.eval("try { box.firstChild.nextSibling.appendChild(box) } catch (x) { x.code }"), "3");
    EXPECT_EQ(f.eval("try { document.appendChild(document.createTextNode('t')) } catch (x) { x.code }"), "3");
    EXPECT_EQ(f.eval("try { document.appendChild(document.createElement('p')) } catch (x) { x.name }"),
              "HIERARCHY_REQUEST_ERR");
    EXPECT_EQ(f.eval("try { box.removeChild(document.body) } catch (x) { x.code + ' ' + (x instanceof DOMException) }"),
              "8 true");
    EXPECT_EQ(f.eval("try { box.insertBefore(document.createElement('b'), document.body) } catch (x) { x.code }"), "8");
    EXPECT_EQ(f.eval("try { box.appendChild({}) } catch (x) { x instanceof TypeError }"), "true");
    EXPECT_EQ(f.eval("DOMException.NOT_FOUND_ERR + Node.DOCUMENT_POSITION_CONTAINED_BY"), "24");
    EXPECT_EQ(f.eval("var a = document.createAttribute('title'); box.setAttributeNode(a);"
                     "try { document.body.setAttributeNode(a) } catch (x) { x.code }"),
              "10");
}

TEST(domjs, attributes_and_text) {
    fixture f("attributes", simple);
    EXPECT_EQ(f.eval("var box = document.getElementById('box'); box.getAttribute('nope')"), "null");
    EXPECT_EQ(f.eval("box.setAttribute('Data-X', '1'); box.setAttribute('id', 'box2');"
                     "[box.getAttribute('data-x'), box.attributes.length, box.attributes[0].name,"
                     " box.attributes['data-x'].value, box.hasAttribute('id')].join()"),
              "1,2,id,1,true");
    // A new id is found at once.
    EXPECT_EQ(f.eval("document.getElementById('box') === null && document.getElementById('box2') === box"), "true");
    EXPECT_EQ(f.eval("box.removeAttribute('data-x'); box.attributes.length + box.className"), "1");
    EXPECT_EQ(f.eval("var t = box.firstChild.firstChild; var rest = t.splitText(1);"
                     "[t.data, rest.data, rest.length, box.firstChild.childNodes.length].join()"),
              "o,ne,2,2");
    EXPECT_EQ(f.eval("box.textContent = 'plain'; box.childNodes.length + box.innerHTML"), "1plain");
}

TEST(domjs, inner_html_round_trip) {
    fixture f("inner_html", simple);
    EXPECT_EQ(f.eval("var box = document.getElementById('box'); box.innerHTML = 'a&nbsp;b'; box.innerHTML"), "a&nbsp;b");
    EXPECT_EQ(f.eval("box.innerHTML = '<p title=\"x&amp;&quot;y\">1 &lt; 2</p><br>'; box.innerHTML"),
              "<p title=\"x&amp;&quot;y\">1 &lt; 2</p><br></br>");
    EXPECT_EQ(f.eval("box.firstChild.tagName + box.childNodes.length"), "P2");
}

TEST(domjs, clone_contains_and_document_position) {
    fixture f("clone", simple);
    EXPECT_EQ(f.eval("var box = document.getElementById('box'); var c = box.cloneNode(true);"
                     "[c.parentNode, c.childNodes.length, c.firstChild === box.firstChild, c.getAttribute('id'),"
                     " box.cloneNode(false).childNodes.length].join()"),
              ",2,false,box,0");
    EXPECT_EQ(f.eval("[document.body.contains(box), box.contains(document.body), box.contains(box), box.contains(c)].join()"),
              "true,false,true,false");
    EXPECT_EQ(f.eval("var p1 = box.firstChild, p2 = box.lastChild;"
                     "[p1.compareDocumentPosition(p2), p2.compareDocumentPosition(p1), box.compareDocumentPosition(p1),"
                     " p1.compareDocumentPosition(box), p1.compareDocumentPosition(p1),"
                     " box.compareDocumentPosition(c) & 1].join()"),
              "4,2,20,10,0,1");
}

TEST(domjs, style_attribute_in_canonical_form) {
    fixture f("style", simple);
    EXPECT_EQ(f.eval("var s = document.getElementById('box').style; s.marginLeft = '10px'; s.marginLeft"), "10px");
    EXPECT_EQ(f.eval("s.color = 'RED'; s.color + '|' + document.getElementById('box').getAttribute('style')"),
              "#ff0000|margin-left: 10px; color: #ff0000;");
    EXPECT_EQ(f.eval("s.color = 'not a colour'; s.color"), "#ff0000");
    EXPECT_EQ(f.eval("s.margin = '1pt 2pt'; [s.marginTop, s.marginRight, s.marginBottom, s.marginLeft].join()"),
              "1pt,2pt,1pt,2pt");
    EXPECT_EQ(f.eval("s.textDecoration = 'underline overline'; s.textDecoration"), "overline underline");
    EXPECT_EQ(f.eval("s.borderTop = '1px solid blue'; s.borderTopStyle + ' ' + s.borderTopColor"), "solid #0000ff");
    EXPECT_EQ(f.eval("s.color = 'inherit'; s.color"), "inherit");
    EXPECT_EQ(f.eval("s.color = ''; s.getPropertyValue('color') + '|' + s.getPropertyValue('margin-top')"), "|1pt");
    // font: keywords in any order, the size with its line height, the family as the rest; the members
    // it leaves out are reset.
    EXPECT_EQ(f.eval("s.font = 'bold italic 12pt/1.5 \"Times New Roman\", serif';"
                     "[s.fontStyle, s.fontWeight, s.fontSize, s.lineHeight, s.fontFamily].join('|')"),
              "italic|bold|12pt|1.5|\"Times New Roman\",serif");
    EXPECT_EQ(f.eval("s.font = '10pt / 2 sans-serif'; s.fontSize + ' ' + s.lineHeight + ' ' + s.fontWeight"),
              "10pt 2 initial");
    // Not a font: the style keeps what it had.
    EXPECT_EQ(f.eval("s.font = 'bold'; s.fontSize"), "10pt");
    EXPECT_EQ(f.eval("s.listStyle = 'square inside'; s.listStyleType + ' ' + s.listStylePosition + ' ' + s.listStyleImage"),
              "square inside initial");
    EXPECT_EQ(f.eval("s.columns = '2 10em'; s.columnCount + ' ' + s.columnWidth"), "2 10em");
    EXPECT_EQ(f.eval("s.columnRule = 'thin dotted green'; [s.columnRuleWidth, s.columnRuleStyle, s.columnRuleColor].join()"),
              "thin,dotted,#008000");
    // border-radius is set by its corners, slash form included; the shorthand itself is not declared.
    EXPECT_EQ(f.eval("s.borderRadius = '4px 2px'; [s.borderTopLeftRadius, s.borderTopRightRadius,"
                     " s.borderBottomRightRadius, s.borderBottomLeftRadius, '[' + s.borderRadius + ']'].join()"),
              "4px,2px,4px,2px,[]");
    EXPECT_EQ(f.eval("s.borderRadius = '1px 2px 3px / 5px'; s.borderBottomLeftRadius + ',' + s.borderTopLeftRadius"),
              "2px 5px,1px 5px");
    // background is set by its members, layer by layer, the colour from the last layer; the shorthand
    // itself is no longer declared.
    EXPECT_EQ(f.eval("s.background = 'url(a.png) no-repeat left 4px / 10px, red';"
                     "[s.backgroundImage, s.backgroundRepeat, s.backgroundPosition, s.backgroundSize,"
                     " s.backgroundColor, s.backgroundAttachment, '[' + s.background + ']'].join('|')"),
              "url(\"a.png\"),none|no-repeat,repeat|left 4px,0% 0%|10px,auto|#ff0000|initial|[]");
    EXPECT_EQ(f.eval("s.background = 'content-box border-box fixed blue'; [s.backgroundOrigin, s.backgroundClip,"
                     " s.backgroundAttachment, s.backgroundColor, s.backgroundImage].join('|')"),
              "content-box|border-box|fixed|#0000ff|initial");
    EXPECT_EQ(f.eval("s.backgroundColor = 'green'; s.backgroundColor + '|' + s.backgroundAttachment"), "#008000|fixed");
    // A colour before the last layer, or a size without a position, is no background: nothing changes.
    EXPECT_EQ(f.eval("s.background = 'red, url(b.png)'; s.background = 'url(b.png) / 10px';"
                     " s.backgroundColor + '|' + s.backgroundImage"),
              "#008000|initial");
}

TEST(domjs, computed_style_follows_rules_and_class_changes) {
    fixture f("computed", "<!DOCTYPE html><html><head><style>.hot { color: red } div { margin: 3pt }"
                          " :root { --accent: #0000ff } .cool { color: var(--accent) }</style></head>"
                          "<body><div id='d'><span id='s'>x</span></div></body></html>");
    EXPECT_EQ(f.eval("var d = document.getElementById('d'); var cs = getComputedStyle(d); cs.color"), "#000000");
    EXPECT_EQ(f.eval("d.className = 'hot'; cs.color"), "#ff0000");
    // Inherited by the child; a non-inherited property is not.
    EXPECT_EQ(f.eval("var ss = getComputedStyle(document.getElementById('s')); ss.color + ' ' + ss.marginLeft"),
              "#ff0000 0");
    EXPECT_EQ(f.eval("cs.marginLeft + ' ' + cs.display"), "3pt block");
    EXPECT_EQ(f.eval("d.style.color = 'blue'; cs.color"), "#0000ff");
    EXPECT_EQ(f.eval("try { cs.color = 'red' } catch (x) { x.code }"), "11");
    // A custom property of the root reaches the element through var().
    EXPECT_EQ(f.eval("d.style.color = ''; d.className = 'cool'; cs.color"), "#0000ff");
    // Properties nothing sets read as their initial values; colours that follow the text colour compute
    // to it.
    EXPECT_EQ(f.eval("[cs.tableLayout, cs.borderCollapse, cs.whiteSpace, cs.zIndex, cs.opacity, cs.orphans,"
                     " cs.verticalAlign, cs.overflow, cs.boxSizing, cs.emptyCells].join()"),
              "auto,separate,normal,auto,1,2,baseline,visible,content-box,show");
    EXPECT_EQ(f.eval("cs.borderTopColor + ' ' + cs.columnRuleColor"), "#0000ff #0000ff");
}

TEST(domjs, computed_lengths_are_points) {
    fixture f("computed_lengths",
              "<!DOCTYPE html><html><head><style>html { font-size: 10pt } body { font-size: 150% }"
              " p { font-size: 2em; margin-left: 1.5em; text-indent: 2rem; border-top: thin solid; line-height: 1.2 }"
              " span { font-size: larger; padding: 1in 10px } em { font-size: x-large }</style></head>"
              "<body><p id='p'>a <span id='s'>b</span> <em id='e'>c</em></p><div id='d'>d</div></body></html>");
    // 10pt, then 150% of it, then 2em of that.
    EXPECT_EQ(f.eval("var p = getComputedStyle(document.getElementById('p')); p.fontSize"), "30pt");
    EXPECT_EQ(f.eval("getComputedStyle(document.body).fontSize + ' ' + getComputedStyle(document.getElementById('d')).fontSize"),
              "15pt 15pt");
    // Ems of the element's own size, rems of the root's; numbers stay numbers.
    EXPECT_EQ(f.eval("[p.marginLeft, p.textIndent, p.lineHeight].join()"), "45pt,20pt,1.2");
    // Keywords: larger than the parent, x-large from medium.
    EXPECT_EQ(f.eval("var s = getComputedStyle(document.getElementById('s')); s.fontSize + ' ' +"
                     "getComputedStyle(document.getElementById('e')).fontSize"),
              "36pt 18pt");
    EXPECT_EQ(f.eval("s.paddingTop + ' ' + s.paddingLeft"), "72pt 7.5pt");
    // Border widths: a keyword in points, and none at all without a style.
    EXPECT_EQ(f.eval("p.borderTopWidth + ' ' + p.borderLeftWidth"), "0.75pt 0pt");
    // An inherited length keeps the value its element computed.
    EXPECT_EQ(f.eval("document.getElementById('d').style.textIndent = '1em';"
                     "getComputedStyle(document.getElementById('d')).textIndent"), "15pt");
}

TEST(domjs, html_interfaces_reflect_attributes) {
    fixture f("html", "<!DOCTYPE html><html><body><a href='x.html'>a</a><img src='i.png' width='20'>"
                      "<canvas id='c' width='40'></canvas><input type='checkbox' checked></body></html>");
    EXPECT_EQ(f.eval("var a = document.getElementsByTagName('a')[0]; a.href + ' ' + (a instanceof HTMLAnchorElement)"),
              "x.html true");
    EXPECT_EQ(f.eval("a.target = '_top'; a.getAttribute('target')"), "_top");
    EXPECT_EQ(f.eval("var i = document.getElementsByTagName('img')[0]; i.width + i.height"), "20");
    EXPECT_EQ(f.eval("var c = document.getElementById('c'); [c.width, c.height].join() + ' ' + c.getContext('webgl')"),
              "40,150 null");
    EXPECT_EQ(f.eval("c.height = 60; c.getAttribute('height')"), "60");
    EXPECT_EQ(f.eval("var n = document.getElementsByTagName('input')[0]; n.checked = false; n.hasAttribute('checked') + ' ' + n.type"),
              "false checkbox");
    EXPECT_EQ(f.eval("var img = new Image(10, 20); [img.tagName, img.width, img.height, img.parentNode].join()"),
              "IMG,10,20,");
    EXPECT_EQ(f.eval("(img instanceof Image) + ' ' + (img instanceof HTMLImageElement) + ' ' +"
                     "(document.getElementsByTagName('img')[0] instanceof Image) + ' ' + (a instanceof Image)"),
              "true true true false");
    EXPECT_EQ(f.eval("var x = c.getContext('2d'); (x.canvas === c) + ' ' + (c.getContext('2d').canvas === c)"),
              "true true");
    EXPECT_EQ(f.eval("document.body.title = 'T'; document.body.title + document.body.lang"), "T");
}

TEST(domjs, dom_parser_and_location) {
    fixture f("parser", simple);
    EXPECT_EQ(f.eval("var d = new DOMParser().parseFromString('<r><q a=\"1\">x</q></r>', 'text/xml');"
                     "[d.documentElement.tagName, d.documentElement.firstChild.getAttribute('a'), d === document].join()"),
              "r,1,false");
    EXPECT_EQ(f.eval("new DOMParser().parseFromString('<p>hi', 'text/html').body.innerHTML"), "<p>hi</p>");
    EXPECT_EQ(f.eval("location.protocol + ' ' + location.pathname.slice(-9) + ' ' + location.host"), "file: /doc.html ");
    EXPECT_EQ(f.eval("location.href.indexOf('file:///') === 0"), "true");
}

TEST(domjs, document_write_only_warns) {
    fixture f("write", simple);
    EXPECT_EQ(f.eval("document.write('x'); document.body.textContent"), "onetwo");
    EXPECT_NE(f.log.text().find("document.write is not yet supported"), std::string::npos);
}

TEST(domjs, scripts_run_as_the_walk_reaches_them) {
    // The head script places one script at the end of the body (ahead of the walk: it runs) and one in
    // the head before itself (behind the walk: it doesn't).
    fixture f("walk", "<!DOCTYPE html><html><head><script>"
                      "function note(t) { document.body.setAttribute('data-log', (document.body.getAttribute('data-log') || '') + t); }"
                      "var late = document.createElement('script'); late.textContent = 'note(\"late \")';"
                      "document.body.appendChild(late);"
                      "var early = document.createElement('script'); early.textContent = 'note(\"early \")';"
                      "document.head.insertBefore(early, document.head.firstChild);"
                      "document.addEventListener('DOMContentLoaded', function () { note('ready ') });"
                      "window.addEventListener('load', function () { note('load ') });"
                      "</script></head><body onload=\"note('onload')\"><p>x</p>"
                      "<script>note('inline ')</script><script type='text/plain'>note('plain ')</script>"
                      "<script type=' Text/JavaScript '>note('typed ')</script>"
                      "<script type='module'>note('module ')</script></body></html>");
    auto const state = f.run_phase();
    EXPECT_TRUE(std::holds_alternative<hostjs::host_js_unused>(state));
    EXPECT_EQ(f.body_log(), "inline typed late ready load onload");
    // Scripts of other types are named once, not run.
    EXPECT_NE(f.log.text().find("script of type \"text/plain\" is not run"), std::string::npos) << f.log.text();
}

} // namespace
} // namespace vellum::domjs
