#include "document/dom.hpp"

#include "util/result.hpp"

#include <cctype>
#include <cmath>
#include <cstdio>

namespace vellum::dom {

namespace {

// Whether two children are the same node.
bool same_node(child_node const& a, child_node const& b) {
    auto const* ea = std::get_if<element_child>(&a);
    auto const* eb = std::get_if<element_child>(&b);
    if (ea && eb) {
        return ea->child_element == eb->child_element;
    }
    auto const* ta = std::get_if<text_child>(&a);
    auto const* tb = std::get_if<text_child>(&b);
    return ta && tb && ta->child_text == tb->child_text;
}

sibling_node as_sibling(child_node const& c) {
    return std::visit(
        overloaded{
            [](element_child const& e) -> sibling_node { return element_sibling{e.child_element}; },
            [](text_child const& t) -> sibling_node { return text_sibling{t.child_text}; },
        },
        c);
}

std::optional<child_node> as_child(sibling_node const& s) {
    return std::visit(overloaded{
                          [](no_sibling const&) -> std::optional<child_node> { return std::nullopt; },
                          [](element_sibling const& e) -> std::optional<child_node> {
                              if (auto p = e.sibling_element.lock()) {
                                  return element_child{std::move(p)};
                              }
                              return std::nullopt;
                          },
                          [](text_sibling const& t) -> std::optional<child_node> {
                              if (auto p = t.sibling_text.lock()) {
                                  return text_child{std::move(p)};
                              }
                              return std::nullopt;
                          },
                      },
                      s);
}

void set_links(child_node const& c, parent_node const& parent, sibling_node prev, sibling_node next) {
    std::visit(overloaded{
                   [&](element_child const& e) {
                       e.child_element->dom_element_parent.set(parent);
                       e.child_element->dom_element_prev_sibling.set(std::move(prev));
                       e.child_element->dom_element_next_sibling.set(std::move(next));
                   },
                   [&](text_child const& t) {
                       t.child_text->dom_text_parent.set(parent);
                       t.child_text->dom_text_prev_sibling.set(std::move(prev));
                       t.child_text->dom_text_next_sibling.set(std::move(next));
                   },
               },
               c);
}

// The cell holding a parent's children, or null for no parent (or one that is gone).
cell<std::vector<child_node>>* children_cell(parent_node const& parent, std::shared_ptr<void>& keep) {
    return std::visit(overloaded{
                          [](no_parent const&) -> cell<std::vector<child_node>>* { return nullptr; },
                          [&](element_parent const& e) -> cell<std::vector<child_node>>* {
                              auto p = e.parent_element.lock();
                              keep = p;
                              return p ? &p->dom_element_children : nullptr;
                          },
                          [&](document_parent const& d) -> cell<std::vector<child_node>>* {
                              auto p = d.parent_document.lock();
                              keep = p;
                              return p ? &p->dom_document_children : nullptr;
                          },
                          [&](document_fragment_parent const& f) -> cell<std::vector<child_node>>* {
                              auto p = f.parent_fragment.lock();
                              keep = p;
                              return p ? &p->dom_document_fragment_children : nullptr;
                          },
                      },
                      parent);
}

struct builder {
    document_ref builder_doc;

    child_node build(xml::xml const& node) {
        return std::visit(
            overloaded{
                [&](xml::element const& e) -> child_node { return element_child{build_element(e)}; },
                [&](xml::text const& t) -> child_node {
                    return text_child{new_text(builder_doc, t.text_value)};
                },
            },
            node);
    }

    element_ref build_element(xml::element const& e) {
        auto element = new_element(builder_doc, e.element_name, e.element_attrs);
        std::vector<child_node> children;
        children.reserve(e.element_children.size());
        for (auto const& child : e.element_children) {
            children.push_back(build(child));
        }
        set_children(element_parent{element}, std::move(children));
        return element;
    }
};

} // namespace

dom::style_info const& get_style_info(style_info_ref const& r) {
    auto const* set = std::get_if<style_info_set>(&r);
    if (!set || !set->style_info_value) {
        throw internal_error("cannot get null style_info_ref");
    }
    return *set->style_info_value;
}

document_ref new_dom_document(doctype::doctype doctype,
                              doctype::xmltype xmltype,
                              doc_style_info style_info,
                              resource::locator::locator base,
                              xml::document const& doc) {
    auto out = std::make_shared<dom_document>();
    out->dom_document_doctype = doctype;
    out->dom_document_xmltype = std::move(xmltype);
    out->dom_document_pi = doc.doc_pi;
    out->dom_document_style_info = std::move(style_info);
    out->dom_document_url = doc.doc_url;
    out->dom_document_base.set(std::move(base));
    builder b{out};
    set_children(document_parent{out}, {element_child{b.build_element(doc.doc_root)}});
    return out;
}

element_ref new_element(document_ref const& owner, xml::name name, xml::attributes const& attrs) {
    auto e = std::make_shared<dom_element>();
    e->dom_element_name = std::move(name);
    e->dom_element_owner_doc = owner;
    std::vector<attribute_ref> list;
    list.reserve(attrs.size());
    for (auto const& [attr_name, value] : attrs) {
        auto a = std::make_shared<dom_attribute>();
        a->dom_attribute_name = attr_name;
        a->dom_attribute_value.set(value);
        a->dom_attribute_owner_element.set(e);
        a->dom_attribute_owner_doc = owner;
        list.push_back(std::move(a));
    }
    e->dom_element_attrs.set(std::move(list));
    if (xml::is_xhtml_name(e->dom_element_name, "canvas")) {
        e->dom_element_canvas_context = cell<canvas_context>{canvas_context{element_canvas_size(*e)}};
    }
    return e;
}

text_ref new_text(document_ref const& owner, std::string value) {
    auto t = std::make_shared<dom_text>();
    t->dom_text_value.set(std::move(value));
    t->dom_text_owner_doc = owner;
    return t;
}

std::optional<element_ref> document_element(dom_document const& doc) {
    for (auto const& child : doc.dom_document_children.get()) {
        if (auto const* e = std::get_if<element_child>(&child)) {
            return e->child_element;
        }
    }
    return std::nullopt;
}

std::optional<std::string> attribute_value(dom_element const& e, xml::name const& name) {
    for (auto const& a : e.dom_element_attrs.get()) {
        if (a->dom_attribute_name == name) {
            return a->dom_attribute_value.get();
        }
    }
    return std::nullopt;
}

resource::locator::locator element_base(dom_element const& e) {
    auto const owner_base = [&]() -> resource::locator::locator {
        if (auto doc = e.dom_element_owner_doc.lock()) {
            return doc->dom_document_base.get();
        }
        return resource::locator::locator{};
    };
    auto const parent_base =
        std::visit(overloaded{
                       [&](no_parent const&) { return owner_base(); },
                       [&](element_parent const& p) {
                           auto const parent = p.parent_element.lock();
                           return parent ? element_base(*parent) : owner_base();
                       },
                       [&](document_parent const& p) {
                           auto const doc = p.parent_document.lock();
                           return doc ? doc->dom_document_base.get() : owner_base();
                       },
                       [&](document_fragment_parent const& p) {
                           auto const fragment = p.parent_fragment.lock();
                           auto const doc =
                               fragment ? fragment->dom_document_fragment_owner_doc.lock() : nullptr;
                           return doc ? doc->dom_document_base.get() : owner_base();
                       },
                   },
                   e.dom_element_parent.get());
    // The HTML4 parser keeps the prefix in the local name, so "xml:base" in no namespace counts too.
    auto value = attribute_value(e, xml::make_name(xml::xmlns_xml{}, "base"));
    if (!value) {
        value = attribute_value(e, xml::make_name("xml:base"));
    }
    if (!value) {
        return parent_base;
    }
    return resource::locator::parse_locator(resource::locator::path_or_url::url_strict,
                                            resource::locator::locator_origin::document_origin, parent_base,
                                            *value);
}

std::vector<std::string> text_content(std::vector<child_node> const& children) {
    std::vector<std::string> out;
    for (auto const& child : children) {
        if (auto const* t = std::get_if<text_child>(&child)) {
            out.push_back(t->child_text->dom_text_value.get());
        }
    }
    return out;
}

std::vector<child_node> children_of(parent_node const& parent) {
    std::shared_ptr<void> keep;
    auto* c = children_cell(parent, keep);
    return c ? c->get() : std::vector<child_node>{};
}

parent_node parent_of(child_node const& child) {
    return std::visit(overloaded{
                          [](element_child const& e) { return e.child_element->dom_element_parent.get(); },
                          [](text_child const& t) { return t.child_text->dom_text_parent.get(); },
                      },
                      child);
}

std::optional<child_node> next_sibling(child_node const& child) {
    return as_child(
        std::visit(overloaded{
                       [](element_child const& e) { return e.child_element->dom_element_next_sibling.get(); },
                       [](text_child const& t) { return t.child_text->dom_text_next_sibling.get(); },
                   },
                   child));
}

std::optional<child_node> previous_sibling(child_node const& child) {
    return as_child(
        std::visit(overloaded{
                       [](element_child const& e) { return e.child_element->dom_element_prev_sibling.get(); },
                       [](text_child const& t) { return t.child_text->dom_text_prev_sibling.get(); },
                   },
                   child));
}

void set_children(parent_node const& parent, std::vector<child_node> children) {
    std::shared_ptr<void> keep;
    auto* c = children_cell(parent, keep);
    check(c != nullptr, "set_children");
    for (std::size_t i = 0; i < children.size(); ++i) {
        sibling_node prev = i == 0 ? sibling_node{no_sibling{}} : as_sibling(children[i - 1]);
        sibling_node next =
            i + 1 == children.size() ? sibling_node{no_sibling{}} : as_sibling(children[i + 1]);
        set_links(children[i], parent, std::move(prev), std::move(next));
    }
    c->set(std::move(children));
}

void insert_children(parent_node const& parent, std::vector<child_node> const& incoming,
                     std::optional<child_node> const& before) {
    std::shared_ptr<void> keep;
    auto* c = children_cell(parent, keep);
    check(c != nullptr, "insert_children");
    if (incoming.empty()) {
        return;
    }
    c->update([&](std::vector<child_node>& list) {
        std::size_t at = list.size();
        if (before) {
            for (std::size_t i = 0; i < list.size(); ++i) {
                if (same_node(list[i], *before)) {
                    at = i;
                    break;
                }
            }
        }
        list.insert(list.begin() + std::ptrdiff_t(at), incoming.begin(), incoming.end());
        // The new children and the neighbours on either side get their links.
        std::size_t const from = at == 0 ? 0 : at - 1;
        std::size_t const to = std::min(list.size(), at + incoming.size() + 1);
        for (std::size_t i = from; i < to; ++i) {
            sibling_node prev = i == 0 ? sibling_node{no_sibling{}} : as_sibling(list[i - 1]);
            sibling_node next = i + 1 == list.size() ? sibling_node{no_sibling{}} : as_sibling(list[i + 1]);
            set_links(list[i], parent, std::move(prev), std::move(next));
        }
    });
}

void remove_child(parent_node const& parent, child_node const& child) {
    std::shared_ptr<void> keep;
    auto* c = children_cell(parent, keep);
    bool found = false;
    if (c) {
        // One update under the lock, so that a concurrent reader never sees half a removal.
        c->update([&](std::vector<child_node>& list) {
            for (std::size_t i = 0; i < list.size(); ++i) {
                if (!same_node(list[i], child)) {
                    continue;
                }
                found = true;
                sibling_node const before = i == 0 ? sibling_node{no_sibling{}} : as_sibling(list[i - 1]);
                sibling_node const after =
                    i + 1 == list.size() ? sibling_node{no_sibling{}} : as_sibling(list[i + 1]);
                if (i > 0) {
                    std::visit(
                        overloaded{
                            [&](element_child const& e) {
                                e.child_element->dom_element_next_sibling.set(after);
                            },
                            [&](text_child const& t) { t.child_text->dom_text_next_sibling.set(after); },
                        },
                        list[i - 1]);
                }
                if (i + 1 < list.size()) {
                    std::visit(
                        overloaded{
                            [&](element_child const& e) {
                                e.child_element->dom_element_prev_sibling.set(before);
                            },
                            [&](text_child const& t) { t.child_text->dom_text_prev_sibling.set(before); },
                        },
                        list[i + 1]);
                }
                list.erase(list.begin() + std::ptrdiff_t(i));
                return;
            }
        });
    }
    if (!found) {
        throw internal_error("remove_child: could not find child in parent");
    }
    set_links(child, no_parent{}, no_sibling{}, no_sibling{});
}

std::optional<int> parse_canvas_dimension(std::string const& text) {
    // The C scanner skips leading white space, which must not be accepted here.
    if (text.empty() || std::isspace(static_cast<unsigned char>(text.front()))) {
        return std::nullopt;
    }
    double value = 0;
    char trailing = 0;
    if (std::sscanf(text.c_str(), "%lf%c", &value, &trailing) != 1) {
        return std::nullopt;
    }
    if (!std::isfinite(value) || value < 0 || value > 2147483647.0) {
        return std::nullopt;
    }
    return static_cast<int>(value);
}

canvas_size element_canvas_size(dom_element const& e) {
    canvas_size out;
    if (auto const w = attribute_value(e, xml::make_name("width"))) {
        out.canvas_width = parse_canvas_dimension(*w).value_or(300);
    }
    if (auto const h = attribute_value(e, xml::make_name("height"))) {
        out.canvas_height = parse_canvas_dimension(*h).value_or(150);
    }
    return out;
}

} // namespace vellum::dom
