#include "host/domjs.hpp"

#include "document/html5/tree.hpp"
#include "host/domjs_internal.hpp"
#include "util/ref.hpp"

#include <algorithm>
#include <atomic>
#include <cctype>

namespace vellum::domjs {

namespace {

// What a node's wrapper cell holds: the wrapper, and the serial of the engine that made it.
struct wrapper_slot {
    std::uint64_t slot_serial = 0;
    js_object slot_object;
};

cell<dom::object_ref>& wrapper_cell(dom::dom_node const& n) {
    return std::visit(overloaded{
                          [](dom::document_ref const& d) -> cell<dom::object_ref>& { return d->dom_document_object_ref; },
                          [](dom::fragment_ref const& f) -> cell<dom::object_ref>& {
                              return f->dom_document_fragment_object_ref;
                          },
                          [](dom::element_ref const& el) -> cell<dom::object_ref>& { return el->dom_element_object_ref; },
                          [](dom::attribute_ref const& a) -> cell<dom::object_ref>& { return a->dom_attribute_object_ref; },
                          [](dom::text_ref const& t) -> cell<dom::object_ref>& { return t->dom_text_object_ref; },
                      },
                      n);
}

// The prototype and interface name of a new wrapper.
std::pair<js_object, std::string> prototype_for(dom_prototypes const& p, dom::dom_node const& n) {
    return std::visit(
        overloaded{
            [&](dom::document_ref const&) { return std::pair{p.prototype_document, std::string("Document")}; },
            [&](dom::fragment_ref const&) {
                return std::pair{p.prototype_document_fragment, std::string("DocumentFragment")};
            },
            [&](dom::element_ref const& el) {
                if (!is_html_element(*el)) {
                    return std::pair{p.prototype_element, std::string("Element")};
                }
                auto it = p.prototype_by_tag.find(xml::name_local(el->dom_element_name));
                if (it == p.prototype_by_tag.end()) {
                    return std::pair{p.prototype_html_element, std::string("HTMLElement")};
                }
                return it->second;
            },
            [&](dom::attribute_ref const&) { return std::pair{p.prototype_attribute, std::string("Attribute")}; },
            [&](dom::text_ref const&) { return std::pair{p.prototype_text, std::string("Text")}; },
        },
        n);
}

void clear_element(dom::element_ref const& el) {
    el->dom_element_object_ref.set(nullptr);
    for (auto const& a : el->dom_element_attrs.get()) {
        a->dom_attribute_object_ref.set(nullptr);
    }
    for (auto const& c : el->dom_element_children.get()) {
        std::visit(overloaded{
                       [](dom::element_child const& x) { clear_element(x.child_element); },
                       [](dom::text_child const& x) { x.child_text->dom_text_object_ref.set(nullptr); },
                   },
                   c);
    }
}

} // namespace

// ---- Wrappers ----------------------------------------------------------------------------------------------

js_value wrap_node(e::js& engine, dom::dom_node const& node) {
    dom_state& state = state_of(engine);
    auto& slot_cell = wrapper_cell(node);
    if (auto const held = slot_cell.get()) {
        auto const* slot = static_cast<wrapper_slot const*>(held.get());
        if (slot->slot_serial == state.state_serial) {
            return slot->slot_object;
        }
    }
    auto [proto, name] = prototype_for(state.state_prototypes, node);
    auto h = std::make_shared<node_host>();
    h->target_class = name;
    h->host_node = node;
    js_object const o = e::new_object_of(engine, e::class_host_object{.host_object = h}, e::yes_proto{.proto = proto});
    slot_cell.set(std::make_shared<wrapper_slot>(wrapper_slot{.slot_serial = state.state_serial, .slot_object = o}));
    return o;
}

std::optional<dom::dom_node> node_of(js_value const& v) {
    auto const* o = std::get_if<js_object>(&v);
    if (o == nullptr) {
        return std::nullopt;
    }
    auto const* h = std::get_if<e::class_host_object>(&(*o)->obj_class);
    auto const* n = h != nullptr ? dynamic_cast<node_host const*>(h->host_object.get()) : nullptr;
    if (n == nullptr) {
        return std::nullopt;
    }
    return n->host_node;
}

dom::dom_element* element_of(js_value const& v) {
    auto const n = node_of(v);
    if (!n) {
        return nullptr;
    }
    auto const* el = std::get_if<dom::element_ref>(&*n);
    return el != nullptr ? el->get() : nullptr;
}

void clear_wrappers(dom::document_ref const& doc) {
    doc->dom_document_object_ref.set(nullptr);
    for (auto const& c : doc->dom_document_children.get()) {
        if (auto const* x = std::get_if<dom::element_child>(&c)) {
            clear_element(x->child_element);
        } else if (auto const* t = std::get_if<dom::text_child>(&c)) {
            t->child_text->dom_text_object_ref.set(nullptr);
        }
    }
}

// ---- Exceptions --------------------------------------------------------------------------------------------

std::string_view dom_exception_name(dom_exception code) {
    switch (code) {
    case dom_exception::index_size_err: return "INDEX_SIZE_ERR";
    case dom_exception::hierarchy_request_err: return "HIERARCHY_REQUEST_ERR";
    case dom_exception::not_found_err: return "NOT_FOUND_ERR";
    case dom_exception::not_supported_err: return "NOT_SUPPORTED_ERR";
    case dom_exception::inuse_attribute_err: return "INUSE_ATTRIBUTE_ERR";
    case dom_exception::invalid_state_err: return "INVALID_STATE_ERR";
    case dom_exception::syntax_err: return "SYNTAX_ERR";
    case dom_exception::type_mismatch_err: return "TYPE_MISMATCH_ERR";
    }
    return "DOMException";
}

e::exception throw_dom(e::js& engine, dom_exception code) {
    auto const& p = prototypes_of(engine);
    auto h = std::make_shared<events::target_host>();
    h->target_class = "DOMException";
    h->target = events::null_event_target{};
    js_object const x = e::new_object_of(engine, e::class_host_object{.host_object = h},
                                         e::yes_proto{.proto = p.prototype_dom_exception});
    e::define_value(x, "code", js::number{std::int64_t(code)});
    e::define_value(x, "name", str(dom_exception_name(code)));
    e::define_value(x, "message", str(dom_exception_name(code)));
    return e::exception{.exception_value = x};
}

// ---- Node helpers ------------------------------------------------------------------------------------------

std::optional<dom::child_node> as_child(dom::dom_node const& n) {
    if (auto const* el = std::get_if<dom::element_ref>(&n)) {
        return dom::element_child{*el};
    }
    if (auto const* t = std::get_if<dom::text_ref>(&n)) {
        return dom::text_child{*t};
    }
    return std::nullopt;
}

dom::dom_node child_as_node(dom::child_node const& c) {
    return std::visit(overloaded{
                          [](dom::element_child const& x) -> dom::dom_node { return x.child_element; },
                          [](dom::text_child const& x) -> dom::dom_node { return x.child_text; },
                      },
                      c);
}

std::optional<dom::parent_node> as_parent(dom::dom_node const& n) {
    return std::visit(overloaded{
                          [](dom::document_ref const& d) -> std::optional<dom::parent_node> {
                              return dom::document_parent{d};
                          },
                          [](dom::fragment_ref const& f) -> std::optional<dom::parent_node> {
                              return dom::document_fragment_parent{f};
                          },
                          [](dom::element_ref const& el) -> std::optional<dom::parent_node> {
                              return dom::element_parent{el};
                          },
                          [](dom::attribute_ref const&) -> std::optional<dom::parent_node> { return std::nullopt; },
                          [](dom::text_ref const&) -> std::optional<dom::parent_node> { return std::nullopt; },
                      },
                      n);
}

std::vector<dom::child_node> children_of(dom::dom_node const& n) {
    return std::visit(overloaded{
                          [](dom::document_ref const& d) { return d->dom_document_children.get(); },
                          [](dom::fragment_ref const& f) { return f->dom_document_fragment_children.get(); },
                          [](dom::element_ref const& el) { return el->dom_element_children.get(); },
                          [](dom::attribute_ref const&) { return std::vector<dom::child_node>{}; },
                          [](dom::text_ref const&) { return std::vector<dom::child_node>{}; },
                      },
                      n);
}

std::optional<dom::dom_node> parent_of(dom::dom_node const& n) {
    auto const c = as_child(n);
    if (!c) {
        return std::nullopt;
    }
    return std::visit(overloaded{
                          [](dom::no_parent const&) -> std::optional<dom::dom_node> { return std::nullopt; },
                          [](dom::element_parent const& p) -> std::optional<dom::dom_node> {
                              if (auto el = p.parent_element.lock()) {
                                  return el;
                              }
                              return std::nullopt;
                          },
                          [](dom::document_parent const& p) -> std::optional<dom::dom_node> {
                              if (auto d = p.parent_document.lock()) {
                                  return d;
                              }
                              return std::nullopt;
                          },
                          [](dom::document_fragment_parent const& p) -> std::optional<dom::dom_node> {
                              if (auto f = p.parent_fragment.lock()) {
                                  return f;
                              }
                              return std::nullopt;
                          },
                      },
                      dom::parent_of(*c));
}

bool same_node(dom::dom_node const& a, dom::dom_node const& b) {
    return std::visit([](auto const& x) { return static_cast<void const*>(x.get()); }, a) ==
           std::visit([](auto const& x) { return static_cast<void const*>(x.get()); }, b);
}

void for_each_element(dom::dom_node const& root, std::function<bool(dom::element_ref const&)> const& f) {
    // One hold of the process-wide lock for the whole walk, reading the child lists in place: copying each
    // list would cost more than the walk itself, and searches walk the tree at every call. The lock is
    // recursive, and `f` only reads, so the lists stay as they are while the walk is in them.
    std::lock_guard guard(process_lock());
    std::vector<dom::child_node> const* top = nullptr;
    std::vector<dom::child_node> root_children;
    if (auto const* el = std::get_if<dom::element_ref>(&root)) {
        top = &(*el)->dom_element_children.cell_value;
    } else {
        root_children = children_of(root);
        top = &root_children;
    }
    // An explicit stack: documents nest deeper than the C++ stack likes.
    std::vector<std::pair<std::vector<dom::child_node> const*, std::size_t>> stack;
    stack.emplace_back(top, 0);
    while (!stack.empty()) {
        auto& [list, pos] = stack.back();
        if (pos == list->size()) {
            stack.pop_back();
            continue;
        }
        auto const* el = std::get_if<dom::element_child>(&(*list)[pos++]);
        if (el == nullptr) {
            continue;
        }
        dom::element_ref const& e = el->child_element;
        if (!f(e)) {
            return;
        }
        stack.emplace_back(&e->dom_element_children.cell_value, 0);
    }
}

dom::document_ref owner_document(dom::dom_node const& n) {
    return std::visit(overloaded{
                          [](dom::document_ref const& d) { return d; },
                          [](dom::fragment_ref const& f) { return f->dom_document_fragment_owner_doc.lock(); },
                          [](dom::element_ref const& el) { return el->dom_element_owner_doc.lock(); },
                          [](dom::attribute_ref const& a) { return a->dom_attribute_owner_doc.lock(); },
                          [](dom::text_ref const& t) { return t->dom_text_owner_doc.lock(); },
                      },
                      n);
}

bool is_html_document(dom::dom_document const& doc) {
    return doc.dom_document_doctype != doctype::doctype::xml;
}

bool is_html_element(dom::dom_element const& el) {
    // Asked of every element a search walks past: no copies of the name.
    if (auto const* q = std::get_if<xml::qualified_name>(&el.dom_element_name)) {
        return std::holds_alternative<xml::xmlns_xhtml>(q->namespace_uri);
    }
    auto const doc = el.dom_element_owner_doc.lock();
    return doc && is_html_document(*doc);
}

} // namespace vellum::domjs
