// DOM Core over the living tree: attributes, tree changes with their errors, text content, node creation
// and cloning, document order, the collections, and the interfaces Node, Document, DocumentFragment,
// Element, Attribute and Text.
#include "host/domjs_internal.hpp"

#include "util/ref.hpp"

#include <algorithm>
#include <cctype>
#include <sstream>

namespace vellum::domjs {

namespace {

std::string lower(std::string s) {
    std::ranges::transform(s, s.begin(), [](unsigned char c) { return char(std::tolower(c)); });
    return s;
}

std::string upper(std::string s) {
    std::ranges::transform(s, s.begin(), [](unsigned char c) { return char(std::toupper(c)); });
    return s;
}

// The name of an attribute as scripts write it: "local", or "prefix:local" for the namespaces that have a
// customary prefix.
std::string attribute_script_name(xml::name const& n) {
    auto const ns = xml::name_namespace(n);
    if (!ns) {
        return xml::name_local(n);
    }
    if (std::holds_alternative<xml::xmlns_xlink>(*ns)) {
        return "xlink:" + xml::name_local(n);
    }
    if (std::holds_alternative<xml::xmlns_xml>(*ns)) {
        return "xml:" + xml::name_local(n);
    }
    return xml::name_local(n);
}

// The name of an attribute as `getAttribute` looks for it: the case is folded on HTML elements.
std::string attribute_key(dom::dom_element const& el, std::string const& name) {
    return is_html_element(el) ? lower(name) : name;
}

xml::name attribute_name_of(std::string const& name) {
    if (name.starts_with("xlink:")) {
        return xml::make_name(xml::xmlns_xlink{}, name.substr(6));
    }
    if (name.starts_with("xml:")) {
        return xml::make_name(xml::xmlns_xml{}, name.substr(4));
    }
    return xml::make_name(name);
}

std::optional<std::string> name_uri(xml::name const& n) {
    auto const ns = xml::name_namespace(n);
    return ns ? std::optional(xml::uri_of_xmlns(*ns)) : std::nullopt;
}

dom::attribute_ref find_attribute(dom::dom_element const& el, std::string const& name) {
    std::string const key = attribute_key(el, name);
    // Read in place under the lock: searches ask every element of the tree for its id or class.
    std::lock_guard guard(process_lock());
    for (auto const& a : el.dom_element_attrs.cell_value) {
        auto const& n = a->dom_attribute_name;
        if (std::holds_alternative<xml::local_name>(n) ? xml::name_local(n) == key : attribute_script_name(n) == key) {
            return a;
        }
    }
    return nullptr;
}

dom::attribute_ref find_attribute_ns(dom::dom_element const& el, std::optional<std::string> const& ns,
                                     std::string const& local) {
    for (auto const& a : el.dom_element_attrs.get()) {
        if (name_uri(a->dom_attribute_name) == ns && xml::name_local(a->dom_attribute_name) == local) {
            return a;
        }
    }
    return nullptr;
}

dom::attribute_ref new_attribute(dom::document_ref const& doc, xml::name name, std::string value) {
    auto a = std::make_shared<dom::dom_attribute>();
    a->dom_attribute_name = std::move(name);
    a->dom_attribute_value.set(std::move(value));
    a->dom_attribute_owner_doc = doc;
    return a;
}

void detach_attribute(dom::element_ref const& el, dom::attribute_ref const& a) {
    el->dom_element_attrs.update([&](std::vector<dom::attribute_ref>& list) { std::erase(list, a); });
    a->dom_attribute_owner_element.set({});
}

// Puts an attribute on an element in place of one of the same name, or last; gives the one replaced.
dom::attribute_ref put_attribute(dom::element_ref const& el, dom::attribute_ref const& a) {
    dom::attribute_ref old;
    el->dom_element_attrs.update([&](std::vector<dom::attribute_ref>& list) {
        for (auto& x : list) {
            if (x->dom_attribute_name == a->dom_attribute_name) {
                old = x;
                x = a;
                return;
            }
        }
        list.push_back(a);
    });
    if (old) {
        old->dom_attribute_owner_element.set({});
    }
    a->dom_attribute_owner_element.set(el);
    return old;
}

} // namespace

std::optional<std::string> get_attribute(dom::dom_element const& el, std::string const& name) {
    if (auto a = find_attribute(el, name)) {
        return a->dom_attribute_value.get();
    }
    return std::nullopt;
}

void set_attribute(dom::element_ref const& el, std::string const& name, std::string const& value) {
    if (auto a = find_attribute(*el, name)) {
        a->dom_attribute_value.set(value);
        return;
    }
    put_attribute(el, new_attribute(el->dom_element_owner_doc.lock(), attribute_name_of(attribute_key(*el, name)), value));
}

void remove_attribute(dom::element_ref const& el, std::string const& name) {
    if (auto a = find_attribute(*el, name)) {
        detach_attribute(el, a);
    }
}

std::string text_of(dom::dom_node const& n) {
    if (auto const* t = std::get_if<dom::text_ref>(&n)) {
        return (*t)->dom_text_value.get();
    }
    if (auto const* a = std::get_if<dom::attribute_ref>(&n)) {
        return (*a)->dom_attribute_value.get();
    }
    std::string out;
    std::vector<std::pair<std::vector<dom::child_node>, std::size_t>> stack;
    stack.emplace_back(children_of(n), 0);
    while (!stack.empty()) {
        auto& [list, pos] = stack.back();
        if (pos == list.size()) {
            stack.pop_back();
            continue;
        }
        dom::child_node const c = list[pos++];
        if (auto const* t = std::get_if<dom::text_child>(&c)) {
            out += t->child_text->dom_text_value.get();
        } else {
            stack.emplace_back(std::get<dom::element_child>(c).child_element->dom_element_children.get(), 0);
        }
    }
    return out;
}

dom::element_ref create_element(dom::document_ref const& doc, std::string const& name) {
    // HTML documents and XHTML ones make XHTML elements, named in lower case in HTML; any other document
    // makes elements in no namespace.
    bool xhtml_root = false;
    if (auto const root = dom::document_element(*doc)) {
        auto const ns = xml::name_namespace((*root)->dom_element_name);
        xhtml_root = ns && std::holds_alternative<xml::xmlns_xhtml>(*ns);
    }
    if (is_html_document(*doc)) {
        std::string const local = lower(name);
        return dom::new_element(doc, xhtml_root ? xml::make_name(xml::xmlns_xhtml{}, local) : xml::make_name(local), {});
    }
    return dom::new_element(doc, xhtml_root ? xml::make_name(xml::xmlns_xhtml{}, name) : xml::make_name(name), {});
}

void replace_children(dom::dom_node const& parent, std::vector<dom::child_node> children) {
    auto const p = as_parent(parent);
    check(p.has_value(), "replace_children");
    for (auto const& old : children_of(parent)) {
        dom::remove_child(*p, old);
    }
    for (auto const& c : children) {
        if (auto const from = parent_of(child_as_node(c)); from) {
            dom::remove_child(*as_parent(*from), c);
        }
    }
    dom::set_children(*p, std::move(children));
}

std::vector<dom::child_node> build_nodes(dom::document_ref const& doc, std::vector<xml::xml> const& content) {
    std::vector<dom::child_node> out;
    for (auto const& x : content) {
        std::visit(overloaded{
                       [&](xml::element const& el) {
                           auto e = dom::new_element(doc, el.element_name, el.element_attrs);
                           dom::set_children(dom::element_parent{e}, build_nodes(doc, el.element_children));
                           out.emplace_back(dom::element_child{e});
                       },
                       [&](xml::text const& t) { out.emplace_back(dom::text_child{dom::new_text(doc, t.text_value)}); },
                   },
                   x);
    }
    return out;
}

dom::fragment_ref new_fragment(dom::document_ref const& doc) {
    auto f = std::make_shared<dom::dom_document_fragment>();
    f->dom_document_fragment_owner_doc = doc;
    return f;
}

e::js_value str(std::string_view utf8) {
    return jsstring::from_utf8(utf8);
}

e::expr_res<std::string> arg_text(e::js& engine, std::vector<e::js_value> const& args, std::size_t i) {
    if (i >= args.size()) {
        return e::throw_error(engine, e::js_error::invalid_arguments);
    }
    auto s = e::to_string(engine, args[i]);
    if (auto const* x = std::get_if<e::exception>(&s)) {
        return *x;
    }
    return jsstring::to_utf8(std::get<e::js_string>(s));
}

e::expr_res<std::vector<std::string>> arg_texts(e::js& engine, std::vector<e::js_value> const& args, std::size_t count) {
    std::vector<std::string> out;
    for (std::size_t i = 0; i < count; ++i) {
        auto t = arg_text(engine, args, i);
        if (auto const* x = std::get_if<e::exception>(&t)) {
            return *x;
        }
        out.push_back(std::move(std::get<std::string>(t)));
    }
    return out;
}

native_fn constant_fn(e::js_value v) {
    return [v](e::js&, e::js_value const&, std::vector<e::js_value> const&) -> e::expr_res<e::js_value> { return v; };
}

// ---- Collections ---------------------------------------------------------------------------------------

namespace {

// A tag or namespace to match, or any (`*`).
using js_uri_tag = std::optional<std::string>;

// The name `getElementsByTagName` or `getElementsByTagNameNS` asks for.
struct ele_name {
    /// The namespace, for the namespaced form only.
    std::optional<js_uri_tag> ele_uri;
    js_uri_tag ele_tag;
    /// The tag in lower case, as HTML elements are matched.
    std::string ele_tag_lower;
};

ele_name make_ele_name(std::optional<js_uri_tag> uri, std::string const& tag) {
    return ele_name{.ele_uri = std::move(uri), .ele_tag = tag == "*" ? js_uri_tag{} : js_uri_tag{tag}, .ele_tag_lower = lower(tag)};
}

// The kinds of node list; all but the static one are live, reading the tree at each access.
struct child_list {
    dom::dom_node list_parent;
};

using node_items = std::shared_ptr<std::vector<dom::dom_node> const>;

/// A list fixed when it was made (`querySelectorAll`), shared by every read of it rather than copied.
struct static_list {
    node_items list_nodes;
};

struct by_tag_name {
    dom::dom_node list_root;
    ele_name list_name;
};

struct by_class_name {
    dom::dom_node list_root;
    std::vector<std::string> list_classes;
};

/// The element children of a node, live (`children`).
struct element_children {
    dom::dom_node list_parent;
};

using node_list_type = std::variant<child_list, static_list, by_tag_name, by_class_name, element_children>;

struct dom_named_node_map {
    dom::element_ref map_element;
};

struct dom_node_list {
    node_list_type node_list;
};

struct dom_html_collection {
    node_list_type html_list;
};

using dom_collection = std::variant<dom_named_node_map, dom_node_list, dom_html_collection>;

struct collection_host : e::host_data {
    std::string collection_class;
    dom_collection collection;
};

bool tag_fits(ele_name const& n, dom::dom_element const& el) {
    if (n.ele_uri && *n.ele_uri) {
        auto const uri = name_uri(el.dom_element_name);
        if (uri != **n.ele_uri && !(uri == std::nullopt && (*n.ele_uri)->empty())) {
            return false;
        }
    }
    if (!n.ele_tag) {
        return true;
    }
    auto const& local = xml::name_local(el.dom_element_name);
    if (!n.ele_uri && is_html_element(el)) {
        return local == n.ele_tag_lower;
    }
    return local == *n.ele_tag;
}

bool classes_fit(std::vector<std::string> const& wanted, dom::dom_element const& el) {
    auto const cls = get_attribute(el, "class");
    if (!cls || wanted.empty()) {
        return false;
    }
    std::istringstream in(*cls);
    std::vector<std::string> have;
    for (std::string w; in >> w;) {
        have.push_back(w);
    }
    return std::ranges::all_of(wanted, [&](std::string const& w) { return std::ranges::find(have, w) != have.end(); });
}

// The items of a list in order; with a limit, the walk stops once it has that many.
node_items list_items(node_list_type const& list, std::size_t limit = SIZE_MAX) {
    if (auto const* s = std::get_if<static_list>(&list)) {
        return s->list_nodes;
    }
    std::vector<dom::dom_node> out;
    std::visit(overloaded{
                   [&](child_list const& c) {
                       for (auto const& x : children_of(c.list_parent)) {
                           out.push_back(child_as_node(x));
                       }
                   },
                   [&](static_list const&) {},
                   [&](by_tag_name const& t) {
                       for_each_element(t.list_root, [&](dom::element_ref const& el) {
                           if (tag_fits(t.list_name, *el)) {
                               out.emplace_back(el);
                           }
                           return out.size() < limit;
                       });
                   },
                   [&](by_class_name const& c) {
                       for_each_element(c.list_root, [&](dom::element_ref const& el) {
                           if (classes_fit(c.list_classes, *el)) {
                               out.emplace_back(el);
                           }
                           return out.size() < limit;
                       });
                   },
                   [&](element_children const& c) {
                       for (auto const& x : children_of(c.list_parent)) {
                           if (auto const* el = std::get_if<dom::element_child>(&x)) {
                               out.emplace_back(el->child_element);
                           }
                       }
                   },
               },
               list);
    return std::make_shared<std::vector<dom::dom_node> const>(std::move(out));
}

node_items collection_items(dom_collection const& c, std::size_t limit = SIZE_MAX) {
    return std::visit(overloaded{
                          [](dom_named_node_map const& m) -> node_items {
                              std::vector<dom::dom_node> out;
                              for (auto const& a : m.map_element->dom_element_attrs.get()) {
                                  out.emplace_back(a);
                              }
                              return std::make_shared<std::vector<dom::dom_node> const>(std::move(out));
                          },
                          [&](dom_node_list const& l) { return list_items(l.node_list, limit); },
                          [&](dom_html_collection const& h) { return list_items(h.html_list, limit); },
                      },
                      c);
}

// The item of a named collection under a name: an attribute by name, an element by id or name.
std::optional<dom::dom_node> named_item(dom_collection const& c, std::string const& name) {
    if (auto const* m = std::get_if<dom_named_node_map>(&c)) {
        if (auto a = find_attribute(*m->map_element, name)) {
            return a;
        }
        return std::nullopt;
    }
    if (auto const* h = std::get_if<dom_html_collection>(&c)) {
        for (auto const& n : *list_items(h->html_list)) {
            if (auto const* el = std::get_if<dom::element_ref>(&n)) {
                if (get_attribute(**el, "id") == name || get_attribute(**el, "name") == name) {
                    return n;
                }
            }
        }
    }
    return std::nullopt;
}

collection_host const* collection_of(e::host_value const& h) {
    return dynamic_cast<collection_host const*>(h.get());
}

collection_host const* collection_of_this(e::js_value const& v) {
    auto const* o = std::get_if<js_object>(&v);
    if (o == nullptr) {
        return nullptr;
    }
    auto const* c = std::get_if<e::class_host_collection>(&(*o)->obj_class);
    return c != nullptr ? collection_of(c->host_collection) : nullptr;
}

js_value node_list_value(e::js& engine, node_list_type list) {
    auto h = std::make_shared<collection_host>();
    h->collection_class = "NodeList";
    h->collection = dom_node_list{std::move(list)};
    return new_collection(engine, h, prototypes_of(engine).prototype_node_list);
}

js_value html_collection_value(e::js& engine, node_list_type list) {
    auto h = std::make_shared<collection_host>();
    h->collection_class = "HTMLCollection";
    h->collection = dom_html_collection{std::move(list)};
    return new_collection(engine, h, prototypes_of(engine).prototype_html_collection);
}

js_value named_node_map_value(e::js& engine, dom::element_ref const& el) {
    auto h = std::make_shared<collection_host>();
    h->collection_class = "NamedNodeMap";
    h->collection = dom_named_node_map{el};
    return new_collection(engine, h, prototypes_of(engine).prototype_named_node_map);
}

js_value wrap_or_null(e::js& engine, std::optional<dom::dom_node> const& n) {
    if (!n) {
        return e::js_null{};
    }
    return wrap_node(engine, *n);
}

} // namespace

e::js_object new_collection(e::js& engine, e::host_value h, e::js_object proto) {
    return e::new_object_of(engine, e::class_host_collection{.host_collection = std::move(h)}, e::yes_proto{.proto = proto});
}

std::optional<js_value> collection_get(e::js& engine, js_object o, e::host_value const& h, e::js_prop_string const& key) {
    auto const* c = collection_of(h);
    if (c == nullptr) {
        return std::nullopt;
    }
    if (auto const* i = std::get_if<e::js_prop_int>(&key)) {
        if (i->prop_int < 0) {
            return std::nullopt;
        }
        auto const items = collection_items(c->collection, std::size_t(i->prop_int) + 1);
        if (i->prop_int >= 0 && std::size_t(i->prop_int) < items->size()) {
            return wrap_node(engine, (*items)[std::size_t(i->prop_int)]);
        }
        return std::nullopt;
    }
    if (std::holds_alternative<dom_node_list>(c->collection)) {
        return std::nullopt;
    }
    // A name never hides a member of the interface ("length", "item").
    if (auto const proto = std::get_if<e::yes_proto>(&o->obj_prototype); proto && e::has_property(engine, proto->proto, key)) {
        return std::nullopt;
    }
    if (auto const n = named_item(c->collection, e::key_to_utf8(key))) {
        return wrap_node(engine, *n);
    }
    return std::nullopt;
}

std::vector<e::js_prop_string> collection_names(e::host_value const& h) {
    std::vector<e::js_prop_string> out;
    auto const* c = collection_of(h);
    if (c == nullptr || std::holds_alternative<dom_node_list>(c->collection)) {
        return out;
    }
    for (auto const& n : *collection_items(c->collection)) {
        if (auto const* a = std::get_if<dom::attribute_ref>(&n)) {
            out.push_back(e::key_of_utf8(attribute_script_name((*a)->dom_attribute_name)));
        } else if (auto const* el = std::get_if<dom::element_ref>(&n)) {
            if (auto const id = get_attribute(**el, "id")) {
                out.push_back(e::key_of_utf8(*id));
            }
        }
    }
    return out;
}

std::int64_t collection_length(e::host_value const& h) {
    auto const* c = collection_of(h);
    return c == nullptr ? 0 : std::int64_t(collection_items(c->collection)->size());
}

std::optional<std::string> collection_class(e::host_value const& h) {
    auto const* c = collection_of(h);
    return c == nullptr ? std::nullopt : std::optional(c->collection_class);
}

// ---- Tree changes --------------------------------------------------------------------------------------

namespace {

// Whether `a` is `b` or one of its ancestors.
bool is_inclusive_ancestor(dom::dom_node const& a, dom::dom_node const& b) {
    std::optional<dom::dom_node> cur = b;
    if (auto const* attr = std::get_if<dom::attribute_ref>(&b)) {
        if (auto owner = (*attr)->dom_attribute_owner_element.get().lock()) {
            cur = dom::dom_node{owner};
        }
    }
    while (cur) {
        if (same_node(a, *cur)) {
            return true;
        }
        cur = parent_of(*cur);
    }
    return false;
}

// The nodes an insertion places: the children of a fragment, or the node itself.
std::vector<dom::child_node> nodes_to_insert(dom::dom_node const& n) {
    if (std::holds_alternative<dom::fragment_ref>(n)) {
        return children_of(n);
    }
    return {*as_child(n)};
}

// The checks of DOM Core before a node goes into a parent.
std::optional<dom_exception> insertion_error(dom::dom_node const& parent, dom::dom_node const& node) {
    if (!as_parent(parent)) {
        return dom_exception::hierarchy_request_err;
    }
    if (std::holds_alternative<dom::document_ref>(node) || std::holds_alternative<dom::attribute_ref>(node)) {
        return dom_exception::hierarchy_request_err;
    }
    if (is_inclusive_ancestor(node, parent)) {
        return dom_exception::hierarchy_request_err;
    }
    if (std::holds_alternative<dom::document_ref>(parent)) {
        // A document holds one element and no text.
        auto const incoming = nodes_to_insert(node);
        int elements = 0;
        for (auto const& c : incoming) {
            if (std::holds_alternative<dom::text_child>(c)) {
                return dom_exception::hierarchy_request_err;
            }
            ++elements;
        }
        if (elements > 1 || (elements == 1 && dom::document_element(*std::get<dom::document_ref>(parent)))) {
            return dom_exception::hierarchy_request_err;
        }
    }
    return std::nullopt;
}

bool same_child(dom::child_node const& a, dom::child_node const& b) {
    return same_node(child_as_node(a), child_as_node(b));
}

// Inserts a node (or a fragment's children) before `before`, or last.
void insert_before(dom::dom_node const& parent, dom::dom_node const& node, std::optional<dom::child_node> before) {
    auto const incoming = nodes_to_insert(node);
    if (before && std::ranges::any_of(incoming, [&](auto const& c) { return same_child(c, *before); })) {
        // Inserting a node before itself leaves it where it is, as its next sibling stands after it.
        before = dom::next_sibling(*before);
    }
    for (auto const& c : incoming) {
        if (auto const from = parent_of(child_as_node(c))) {
            dom::remove_child(*as_parent(*from), c);
        }
    }
    dom::insert_children(*as_parent(parent), incoming, before);
}

bool is_child_of(dom::dom_node const& parent, dom::dom_node const& node) {
    auto const p = parent_of(node);
    return p && same_node(*p, parent);
}

// ---- Document order ------------------------------------------------------------------------------------

std::vector<dom::dom_node> ancestors_from_root(dom::dom_node const& n) {
    std::vector<dom::dom_node> chain;
    std::optional<dom::dom_node> cur = n;
    if (auto const* attr = std::get_if<dom::attribute_ref>(&n)) {
        chain.push_back(n);
        cur = std::nullopt;
        if (auto owner = (*attr)->dom_attribute_owner_element.get().lock()) {
            cur = dom::dom_node{owner};
        }
    }
    while (cur) {
        chain.push_back(*cur);
        cur = parent_of(*cur);
    }
    std::ranges::reverse(chain);
    return chain;
}

int compare_position(dom::dom_node const& self, dom::dom_node const& other) {
    constexpr int disconnected = 1, preceding = 2, following = 4, contains = 8, contained_by = 16;
    if (same_node(self, other)) {
        return 0;
    }
    auto const a = ancestors_from_root(self);
    auto const b = ancestors_from_root(other);
    if (!same_node(a.front(), b.front())) {
        auto const pa = std::visit([](auto const& x) { return static_cast<void const*>(x.get()); }, a.front());
        auto const pb = std::visit([](auto const& x) { return static_cast<void const*>(x.get()); }, b.front());
        return disconnected | (std::less<>{}(pa, pb) ? following : preceding);
    }
    std::size_t i = 0;
    while (i < a.size() && i < b.size() && same_node(a[i], b[i])) {
        ++i;
    }
    if (i == a.size()) {
        return contained_by | following;
    }
    if (i == b.size()) {
        return contains | preceding;
    }
    // Attributes come before the children of their element.
    if (std::holds_alternative<dom::attribute_ref>(a[i]) != std::holds_alternative<dom::attribute_ref>(b[i])) {
        return std::holds_alternative<dom::attribute_ref>(a[i]) ? following : preceding;
    }
    if (std::holds_alternative<dom::attribute_ref>(a[i])) {
        auto const owner = std::get<dom::element_ref>(a[i - 1]);
        auto const attrs = owner->dom_element_attrs.get();
        auto const ia = std::ranges::find(attrs, std::get<dom::attribute_ref>(a[i]));
        auto const ib = std::ranges::find(attrs, std::get<dom::attribute_ref>(b[i]));
        return ia < ib ? following : preceding;
    }
    for (auto const& c : children_of(a[i - 1])) {
        auto const n = child_as_node(c);
        if (same_node(n, a[i])) {
            return following;
        }
        if (same_node(n, b[i])) {
            return preceding;
        }
    }
    return disconnected;
}

// ---- Cloning -------------------------------------------------------------------------------------------

dom::element_ref clone_element(dom::element_ref const& el, bool deep) {
    auto const doc = el->dom_element_owner_doc.lock();
    xml::attributes attrs;
    for (auto const& a : el->dom_element_attrs.get()) {
        attrs.emplace_back(a->dom_attribute_name, a->dom_attribute_value.get());
    }
    auto copy = dom::new_element(doc, el->dom_element_name, attrs);
    if (deep) {
        std::vector<dom::child_node> children;
        for (auto const& c : el->dom_element_children.get()) {
            std::visit(overloaded{
                           [&](dom::element_child const& x) {
                               children.emplace_back(dom::element_child{clone_element(x.child_element, true)});
                           },
                           [&](dom::text_child const& x) {
                               children.emplace_back(
                                   dom::text_child{dom::new_text(doc, x.child_text->dom_text_value.get())});
                           },
                       },
                       c);
        }
        dom::set_children(dom::element_parent{copy}, std::move(children));
    }
    return copy;
}

} // namespace

// ---- The interfaces ------------------------------------------------------------------------------------

namespace {

using args_t = std::vector<e::js_value>;
using node_fn = std::function<e::expr_res<js_value>(e::js&, dom::dom_node const&, args_t const&)>;

// A method or getter whose `this` must be a node wrapper.
native_fn on_node(node_fn f) {
    return [f = std::move(f)](e::js& engine, js_value const& self, args_t const& args) -> e::expr_res<js_value> {
        auto const n = node_of(self);
        if (!n) {
            return e::throw_error(engine, e::js_error::invalid_this);
        }
        return f(engine, *n, args);
    };
}

using element_fn = std::function<e::expr_res<js_value>(e::js&, dom::element_ref const&, args_t const&)>;

native_fn on_element(element_fn f) {
    return on_node([f = std::move(f)](e::js& engine, dom::dom_node const& n, args_t const& args) -> e::expr_res<js_value> {
        auto const* el = std::get_if<dom::element_ref>(&n);
        if (el == nullptr) {
            return e::throw_error(engine, e::js_error::invalid_this);
        }
        return f(engine, *el, args);
    });
}

// The node argument of a tree change: a wrapper, else `invalid_arguments`.
std::optional<dom::dom_node> node_arg(args_t const& args, std::size_t i) {
    return i < args.size() ? node_of(args[i]) : std::nullopt;
}

// The namespace argument of the NS methods: null and the empty string mean none.
std::optional<std::string> ns_arg(e::js& engine, args_t const& args, std::size_t i) {
    auto const& v = e::arg(args, i);
    if (std::holds_alternative<e::js_null>(v) || std::holds_alternative<e::js_undefined>(v)) {
        return std::nullopt;
    }
    auto s = e::to_string(engine, v);
    if (auto const* t = std::get_if<e::js_string>(&s); t && !t->empty()) {
        return jsstring::to_utf8(*t);
    }
    return std::nullopt;
}

// A qualified name's local part ("svg:rect" gives "rect").
std::string local_part(std::string const& qname) {
    auto const colon = qname.find(':');
    return colon == std::string::npos ? qname : qname.substr(colon + 1);
}

js_value maybe_string(std::optional<std::string> const& s) {
    return s ? str(*s) : js_value(e::js_null{});
}

std::string node_name(dom::dom_node const& n) {
    return std::visit(overloaded{
                          [](dom::document_ref const&) { return std::string("#document"); },
                          [](dom::fragment_ref const&) { return std::string("#document-fragment"); },
                          [](dom::element_ref const& el) {
                              auto const& local = xml::name_local(el->dom_element_name);
                              auto const doc = el->dom_element_owner_doc.lock();
                              return is_html_element(*el) && doc && is_html_document(*doc) ? upper(local) : local;
                          },
                          [](dom::attribute_ref const& a) { return attribute_script_name(a->dom_attribute_name); },
                          [](dom::text_ref const&) { return std::string("#text"); },
                      },
                      n);
}

int node_type(dom::dom_node const& n) {
    return std::visit(overloaded{
                          [](dom::document_ref const&) { return 9; },
                          [](dom::fragment_ref const&) { return 11; },
                          [](dom::element_ref const&) { return 1; },
                          [](dom::attribute_ref const&) { return 2; },
                          [](dom::text_ref const&) { return 3; },
                      },
                      n);
}

std::optional<dom::dom_node> sibling_of(dom::dom_node const& n, bool next) {
    auto const c = as_child(n);
    if (!c) {
        return std::nullopt;
    }
    auto const s = next ? dom::next_sibling(*c) : dom::previous_sibling(*c);
    if (!s) {
        return std::nullopt;
    }
    return child_as_node(*s);
}

std::optional<dom::dom_node> end_child(dom::dom_node const& n, bool last, bool elements_only) {
    auto const list = children_of(n);
    auto pick = [&](auto first, auto end) -> std::optional<dom::dom_node> {
        for (auto it = first; it != end; ++it) {
            if (!elements_only || std::holds_alternative<dom::element_child>(*it)) {
                return child_as_node(*it);
            }
        }
        return std::nullopt;
    };
    return last ? pick(list.rbegin(), list.rend()) : pick(list.begin(), list.end());
}

void add_getter(e::js& engine, js_object proto, std::string const& name, node_fn f) {
    webidl::add_native_accessor(engine, proto, name, on_node(std::move(f)));
}

void add_method(e::js& engine, js_object proto, std::string const& name, int length, node_fn f) {
    webidl::add_native_method(engine, proto, name, length, on_node(std::move(f)));
}

// Members that every node has: the Node interface.
void install_node_members(e::js& engine, js_object proto) {
    add_getter(engine, proto, "nodeName", [](e::js&, dom::dom_node const& n, args_t const&) -> e::expr_res<js_value> {
        return str(node_name(n));
    });
    add_getter(engine, proto, "nodeType", [](e::js&, dom::dom_node const& n, args_t const&) -> e::expr_res<js_value> {
        return js::number{std::int64_t{node_type(n)}};
    });
    webidl::add_native_accessor(
        engine, proto, "nodeValue",
        on_node([](e::js&, dom::dom_node const& n, args_t const&) -> e::expr_res<js_value> {
            if (std::holds_alternative<dom::text_ref>(n) || std::holds_alternative<dom::attribute_ref>(n)) {
                return str(text_of(n));
            }
            return e::js_null{};
        }),
        on_node([](e::js& engine, dom::dom_node const& n, args_t const& args) -> e::expr_res<js_value> {
            auto text = arg_text(engine, args, 0);
            if (auto const* x = std::get_if<e::exception>(&text)) {
                return *x;
            }
            if (auto const* t = std::get_if<dom::text_ref>(&n)) {
                (*t)->dom_text_value.set(std::get<std::string>(text));
            } else if (auto const* a = std::get_if<dom::attribute_ref>(&n)) {
                (*a)->dom_attribute_value.set(std::get<std::string>(text));
            }
            return e::undefined();
        }));
    add_getter(engine, proto, "ownerDocument", [](e::js& engine, dom::dom_node const& n, args_t const&) -> e::expr_res<js_value> {
        if (std::holds_alternative<dom::document_ref>(n)) {
            return e::js_null{};
        }
        auto const doc = owner_document(n);
        return doc ? wrap_node(engine, doc) : js_value(e::js_null{});
    });
    webidl::add_native_accessor(
        engine, proto, "textContent",
        on_node([](e::js&, dom::dom_node const& n, args_t const&) -> e::expr_res<js_value> {
            if (std::holds_alternative<dom::document_ref>(n)) {
                return e::js_null{};
            }
            return str(text_of(n));
        }),
        on_node([](e::js& engine, dom::dom_node const& n, args_t const& args) -> e::expr_res<js_value> {
            std::string text;
            if (!args.empty() && !std::holds_alternative<e::js_null>(args[0])) {
                auto t = arg_text(engine, args, 0);
                if (auto const* x = std::get_if<e::exception>(&t)) {
                    return *x;
                }
                text = std::get<std::string>(t);
            }
            if (auto const* t = std::get_if<dom::text_ref>(&n)) {
                (*t)->dom_text_value.set(text);
            } else if (auto const* a = std::get_if<dom::attribute_ref>(&n)) {
                (*a)->dom_attribute_value.set(text);
            } else if (!std::holds_alternative<dom::document_ref>(n)) {
                std::vector<dom::child_node> children;
                if (!text.empty()) {
                    children.emplace_back(dom::text_child{dom::new_text(owner_document(n), text)});
                }
                replace_children(n, std::move(children));
            }
            return e::undefined();
        }));
    add_getter(engine, proto, "firstChild", [](e::js& engine, dom::dom_node const& n, args_t const&) {
        return e::expr_res<js_value>(wrap_or_null(engine, end_child(n, false, false)));
    });
    add_getter(engine, proto, "lastChild", [](e::js& engine, dom::dom_node const& n, args_t const&) {
        return e::expr_res<js_value>(wrap_or_null(engine, end_child(n, true, false)));
    });
    add_getter(engine, proto, "previousSibling", [](e::js& engine, dom::dom_node const& n, args_t const&) {
        return e::expr_res<js_value>(wrap_or_null(engine, sibling_of(n, false)));
    });
    add_getter(engine, proto, "nextSibling", [](e::js& engine, dom::dom_node const& n, args_t const&) {
        return e::expr_res<js_value>(wrap_or_null(engine, sibling_of(n, true)));
    });
    add_getter(engine, proto, "parentNode", [](e::js& engine, dom::dom_node const& n, args_t const&) {
        return e::expr_res<js_value>(wrap_or_null(engine, parent_of(n)));
    });
    add_getter(engine, proto, "childNodes", [](e::js& engine, dom::dom_node const& n, args_t const&) {
        return e::expr_res<js_value>(node_list_value(engine, child_list{n}));
    });
    add_method(engine, proto, "appendChild", 1, [](e::js& engine, dom::dom_node const& n, args_t const& args) -> e::expr_res<js_value> {
        auto const child = node_arg(args, 0);
        if (!child) {
            return e::throw_error(engine, e::js_error::invalid_arguments);
        }
        if (auto const err = insertion_error(n, *child)) {
            return throw_dom(engine, *err);
        }
        insert_before(n, *child, std::nullopt);
        return args[0];
    });
    add_method(engine, proto, "insertBefore", 2, [](e::js& engine, dom::dom_node const& n, args_t const& args) -> e::expr_res<js_value> {
        auto const child = node_arg(args, 0);
        if (!child) {
            return e::throw_error(engine, e::js_error::invalid_arguments);
        }
        std::optional<dom::child_node> before;
        if (args.size() > 1 && !std::holds_alternative<e::js_null>(args[1]) &&
            !std::holds_alternative<e::js_undefined>(args[1])) {
            auto const ref = node_arg(args, 1);
            if (!ref) {
                return e::throw_error(engine, e::js_error::invalid_arguments);
            }
            if (!is_child_of(n, *ref)) {
                return throw_dom(engine, dom_exception::not_found_err);
            }
            before = as_child(*ref);
        }
        if (auto const err = insertion_error(n, *child)) {
            return throw_dom(engine, *err);
        }
        insert_before(n, *child, before);
        return args[0];
    });
    add_method(engine, proto, "replaceChild", 2, [](e::js& engine, dom::dom_node const& n, args_t const& args) -> e::expr_res<js_value> {
        auto const child = node_arg(args, 0);
        auto const old = node_arg(args, 1);
        if (!child || !old) {
            return e::throw_error(engine, e::js_error::invalid_arguments);
        }
        if (!is_child_of(n, *old)) {
            return throw_dom(engine, dom_exception::not_found_err);
        }
        if (same_node(*child, *old)) {
            return args[1];
        }
        if (auto const err = insertion_error(n, *child)) {
            // A document may take an element in place of its one element.
            bool const swap_root = std::holds_alternative<dom::document_ref>(n) &&
                                   std::holds_alternative<dom::element_ref>(*child) &&
                                   std::holds_alternative<dom::element_ref>(*old);
            if (!swap_root) {
                return throw_dom(engine, *err);
            }
        }
        insert_before(n, *child, as_child(*old));
        dom::remove_child(*as_parent(n), *as_child(*old));
        return args[1];
    });
    add_method(engine, proto, "removeChild", 1, [](e::js& engine, dom::dom_node const& n, args_t const& args) -> e::expr_res<js_value> {
        auto const child = node_arg(args, 0);
        if (!child) {
            return e::throw_error(engine, e::js_error::invalid_arguments);
        }
        if (!is_child_of(n, *child)) {
            return throw_dom(engine, dom_exception::not_found_err);
        }
        dom::remove_child(*as_parent(n), *as_child(*child));
        return args[0];
    });
    add_method(engine, proto, "hasChildNodes", 0, [](e::js&, dom::dom_node const& n, args_t const&) -> e::expr_res<js_value> {
        return !children_of(n).empty();
    });
    add_method(engine, proto, "hasAttributes", 0, [](e::js&, dom::dom_node const& n, args_t const&) -> e::expr_res<js_value> {
        auto const* el = std::get_if<dom::element_ref>(&n);
        return el != nullptr && !(*el)->dom_element_attrs.get().empty();
    });
    add_method(engine, proto, "contains", 1, [](e::js&, dom::dom_node const& n, args_t const& args) -> e::expr_res<js_value> {
        auto const other = node_arg(args, 0);
        return other && !std::holds_alternative<dom::attribute_ref>(*other) && is_inclusive_ancestor(n, *other);
    });
    add_method(engine, proto, "compareDocumentPosition", 1, [](e::js& engine, dom::dom_node const& n, args_t const& args) -> e::expr_res<js_value> {
        auto const other = node_arg(args, 0);
        if (!other) {
            return e::throw_error(engine, e::js_error::invalid_arguments);
        }
        return js::number{std::int64_t{compare_position(n, *other)}};
    });
    add_method(engine, proto, "cloneNode", 1, [](e::js& engine, dom::dom_node const& n, args_t const& args) -> e::expr_res<js_value> {
        bool const deep = e::to_boolean(e::arg(args, 0));
        return std::visit(
            overloaded{
                [&](dom::document_ref const&) -> e::expr_res<js_value> {
                    return throw_dom(engine, dom_exception::not_supported_err);
                },
                [&](dom::fragment_ref const& f) -> e::expr_res<js_value> {
                    auto copy = new_fragment(f->dom_document_fragment_owner_doc.lock());
                    if (deep) {
                        std::vector<dom::child_node> children;
                        for (auto const& c : f->dom_document_fragment_children.get()) {
                            if (auto const* x = std::get_if<dom::element_child>(&c)) {
                                children.emplace_back(dom::element_child{clone_element(x->child_element, true)});
                            } else {
                                auto const& t = std::get<dom::text_child>(c).child_text;
                                children.emplace_back(dom::text_child{dom::new_text(owner_document(n), t->dom_text_value.get())});
                            }
                        }
                        dom::set_children(dom::document_fragment_parent{copy}, std::move(children));
                    }
                    return wrap_node(engine, copy);
                },
                [&](dom::element_ref const& el) -> e::expr_res<js_value> {
                    return wrap_node(engine, clone_element(el, deep));
                },
                [&](dom::attribute_ref const& a) -> e::expr_res<js_value> {
                    return wrap_node(engine, new_attribute(a->dom_attribute_owner_doc.lock(), a->dom_attribute_name,
                                                           a->dom_attribute_value.get()));
                },
                [&](dom::text_ref const& t) -> e::expr_res<js_value> {
                    return wrap_node(engine, dom::new_text(t->dom_text_owner_doc.lock(), t->dom_text_value.get()));
                },
            },
            n);
    });
}

// Members of documents, fragments and elements: element children and searches below the node.
void install_parent_members(e::js& engine, js_object proto) {
    add_getter(engine, proto, "firstElementChild", [](e::js& engine, dom::dom_node const& n, args_t const&) {
        return e::expr_res<js_value>(wrap_or_null(engine, end_child(n, false, true)));
    });
    add_getter(engine, proto, "lastElementChild", [](e::js& engine, dom::dom_node const& n, args_t const&) {
        return e::expr_res<js_value>(wrap_or_null(engine, end_child(n, true, true)));
    });
    add_getter(engine, proto, "childElementCount", [](e::js&, dom::dom_node const& n, args_t const&) -> e::expr_res<js_value> {
        auto const list = children_of(n);
        return js::number{std::int64_t(std::ranges::count_if(list, [](auto const& c) {
            return std::holds_alternative<dom::element_child>(c);
        }))};
    });
    add_getter(engine, proto, "children", [](e::js& engine, dom::dom_node const& n, args_t const&) {
        return e::expr_res<js_value>(html_collection_value(engine, element_children{n}));
    });
    add_method(engine, proto, "getElementsByTagName", 1, [](e::js& engine, dom::dom_node const& n, args_t const& args) -> e::expr_res<js_value> {
        auto name = arg_text(engine, args, 0);
        if (auto const* x = std::get_if<e::exception>(&name)) {
            return *x;
        }
        auto const& t = std::get<std::string>(name);
        return node_list_value(engine, by_tag_name{n, make_ele_name(std::nullopt, t)});
    });
    add_method(engine, proto, "getElementsByTagNameNS", 2, [](e::js& engine, dom::dom_node const& n, args_t const& args) -> e::expr_res<js_value> {
        auto name = arg_text(engine, args, 1);
        if (auto const* x = std::get_if<e::exception>(&name)) {
            return *x;
        }
        auto const& t = std::get<std::string>(name);
        js_uri_tag uri = ns_arg(engine, args, 0);
        if (uri == "*") {
            uri = std::nullopt;
        } else if (!uri) {
            uri = std::string();
        }
        return node_list_value(engine, by_tag_name{n, make_ele_name(uri, t)});
    });
    add_method(engine, proto, "getElementsByClassName", 1, [](e::js& engine, dom::dom_node const& n, args_t const& args) -> e::expr_res<js_value> {
        auto names = arg_text(engine, args, 0);
        if (auto const* x = std::get_if<e::exception>(&names)) {
            return *x;
        }
        std::istringstream in(std::get<std::string>(names));
        std::vector<std::string> classes;
        for (std::string w; in >> w;) {
            classes.push_back(w);
        }
        return node_list_value(engine, by_class_name{n, classes});
    });
    auto query = [](bool first_only) {
        return [first_only](e::js& engine, dom::dom_node const& n, args_t const& args) -> e::expr_res<js_value> {
            auto text = arg_text(engine, args, 0);
            if (auto const* x = std::get_if<e::exception>(&text)) {
                return *x;
            }
            auto found = query_selector(engine, n, std::get<std::string>(text), first_only);
            if (auto const* x = std::get_if<e::exception>(&found)) {
                return *x;
            }
            auto const& list = std::get<std::vector<dom::element_ref>>(found);
            if (first_only) {
                return list.empty() ? js_value(e::js_null{}) : wrap_node(engine, list.front());
            }
            return node_list_value(
                engine, static_list{std::make_shared<std::vector<dom::dom_node> const>(list.begin(), list.end())});
        };
    };
    add_method(engine, proto, "querySelector", 1, query(true));
    add_method(engine, proto, "querySelectorAll", 1, query(false));
}

// The attribute methods of Element.
void install_attribute_members(e::js& engine, js_object proto) {
    auto method = [&](std::string const& name, int length, element_fn f) {
        webidl::add_native_method(engine, proto, name, length, on_element(std::move(f)));
    };
    method("getAttribute", 1, [](e::js& engine, dom::element_ref const& el, args_t const& args) -> e::expr_res<js_value> {
        auto name = arg_text(engine, args, 0);
        if (auto const* x = std::get_if<e::exception>(&name)) {
            return *x;
        }
        return maybe_string(get_attribute(*el, std::get<std::string>(name)));
    });
    method("getAttributeNS", 2, [](e::js& engine, dom::element_ref const& el, args_t const& args) -> e::expr_res<js_value> {
        auto name = arg_text(engine, args, 1);
        if (auto const* x = std::get_if<e::exception>(&name)) {
            return *x;
        }
        auto a = find_attribute_ns(*el, ns_arg(engine, args, 0), std::get<std::string>(name));
        return a ? str(a->dom_attribute_value.get()) : js_value(e::js_null{});
    });
    method("getAttributeNode", 1, [](e::js& engine, dom::element_ref const& el, args_t const& args) -> e::expr_res<js_value> {
        auto name = arg_text(engine, args, 0);
        if (auto const* x = std::get_if<e::exception>(&name)) {
            return *x;
        }
        auto a = find_attribute(*el, std::get<std::string>(name));
        return a ? wrap_node(engine, a) : js_value(e::js_null{});
    });
    method("getAttributeNodeNS", 2, [](e::js& engine, dom::element_ref const& el, args_t const& args) -> e::expr_res<js_value> {
        auto name = arg_text(engine, args, 1);
        if (auto const* x = std::get_if<e::exception>(&name)) {
            return *x;
        }
        auto a = find_attribute_ns(*el, ns_arg(engine, args, 0), std::get<std::string>(name));
        return a ? wrap_node(engine, a) : js_value(e::js_null{});
    });
    method("setAttribute", 2, [](e::js& engine, dom::element_ref const& el, args_t const& args) -> e::expr_res<js_value> {
        auto texts = arg_texts(engine, args, 2);
        if (auto const* x = std::get_if<e::exception>(&texts)) {
            return *x;
        }
        auto const& n = std::get<std::vector<std::string>>(texts)[0];
        if (n.empty() || n.find_first_of(" \t\n\r\f\"'<>/=") != std::string::npos) {
            return throw_dom(engine, dom_exception::syntax_err);
        }
        set_attribute(el, n, std::get<std::vector<std::string>>(texts)[1]);
        if (xml::is_xhtml_name(el->dom_element_name, "canvas") && (lower(n) == "width" || lower(n) == "height")) {
            canvas_reset(*el);
        }
        return e::undefined();
    });
    method("setAttributeNS", 3, [](e::js& engine, dom::element_ref const& el, args_t const& args) -> e::expr_res<js_value> {
        auto qname = arg_text(engine, args, 1);
        if (auto const* x = std::get_if<e::exception>(&qname)) {
            return *x;
        }
        auto value = arg_text(engine, args, 2);
        if (auto const* x = std::get_if<e::exception>(&value)) {
            return *x;
        }
        auto const ns = ns_arg(engine, args, 0);
        std::string const local = local_part(std::get<std::string>(qname));
        if (auto a = find_attribute_ns(*el, ns, local)) {
            a->dom_attribute_value.set(std::get<std::string>(value));
        } else {
            put_attribute(el, new_attribute(el->dom_element_owner_doc.lock(),
                                            ns ? xml::make_name(xml::xmlns_of_uri(*ns), local) : xml::make_name(local),
                                            std::get<std::string>(value)));
        }
        return e::undefined();
    });
    method("removeAttribute", 1, [](e::js& engine, dom::element_ref const& el, args_t const& args) -> e::expr_res<js_value> {
        auto name = arg_text(engine, args, 0);
        if (auto const* x = std::get_if<e::exception>(&name)) {
            return *x;
        }
        remove_attribute(el, std::get<std::string>(name));
        return e::undefined();
    });
    method("removeAttributeNS", 2, [](e::js& engine, dom::element_ref const& el, args_t const& args) -> e::expr_res<js_value> {
        auto name = arg_text(engine, args, 1);
        if (auto const* x = std::get_if<e::exception>(&name)) {
            return *x;
        }
        if (auto a = find_attribute_ns(*el, ns_arg(engine, args, 0), std::get<std::string>(name))) {
            detach_attribute(el, a);
        }
        return e::undefined();
    });
    method("removeAttributeNode", 1, [](e::js& engine, dom::element_ref const& el, args_t const& args) -> e::expr_res<js_value> {
        auto const n = node_arg(args, 0);
        auto const* a = n ? std::get_if<dom::attribute_ref>(&*n) : nullptr;
        if (a == nullptr) {
            return e::throw_error(engine, e::js_error::invalid_arguments);
        }
        auto const attrs = el->dom_element_attrs.get();
        if (std::ranges::find(attrs, *a) == attrs.end()) {
            return throw_dom(engine, dom_exception::not_found_err);
        }
        detach_attribute(el, *a);
        return args[0];
    });
    auto set_node = [](e::js& engine, dom::element_ref const& el, args_t const& args) -> e::expr_res<js_value> {
        auto const n = node_arg(args, 0);
        auto const* a = n ? std::get_if<dom::attribute_ref>(&*n) : nullptr;
        if (a == nullptr) {
            return e::throw_error(engine, e::js_error::invalid_arguments);
        }
        auto const owner = (*a)->dom_attribute_owner_element.get().lock();
        if (owner && owner != el) {
            return throw_dom(engine, dom_exception::inuse_attribute_err);
        }
        if (owner == el) {
            return args[0];
        }
        auto old = put_attribute(el, *a);
        return old ? wrap_node(engine, old) : js_value(e::js_null{});
    };
    method("setAttributeNode", 1, set_node);
    method("setAttributeNodeNS", 1, set_node);
    method("hasAttribute", 1, [](e::js& engine, dom::element_ref const& el, args_t const& args) -> e::expr_res<js_value> {
        auto name = arg_text(engine, args, 0);
        if (auto const* x = std::get_if<e::exception>(&name)) {
            return *x;
        }
        return find_attribute(*el, std::get<std::string>(name)) != nullptr;
    });
    method("hasAttributeNS", 2, [](e::js& engine, dom::element_ref const& el, args_t const& args) -> e::expr_res<js_value> {
        auto name = arg_text(engine, args, 1);
        if (auto const* x = std::get_if<e::exception>(&name)) {
            return *x;
        }
        return find_attribute_ns(*el, ns_arg(engine, args, 0), std::get<std::string>(name)) != nullptr;
    });
}

void install_element(e::js& engine, js_object proto) {
    webidl::add_constant(proto, "nodeType", js::number{std::int64_t{1}});
    auto getter = [&](std::string const& name, element_fn f) {
        webidl::add_native_accessor(engine, proto, name, on_element(std::move(f)));
    };
    getter("tagName", [](e::js&, dom::element_ref const& el, args_t const&) -> e::expr_res<js_value> {
        return str(node_name(el));
    });
    getter("localName", [](e::js&, dom::element_ref const& el, args_t const&) -> e::expr_res<js_value> {
        return str(xml::name_local(el->dom_element_name));
    });
    getter("namespaceURI", [](e::js&, dom::element_ref const& el, args_t const&) -> e::expr_res<js_value> {
        return maybe_string(name_uri(el->dom_element_name));
    });
    getter("attributes", [](e::js& engine, dom::element_ref const& el, args_t const&) -> e::expr_res<js_value> {
        return named_node_map_value(engine, el);
    });
    getter("style", [](e::js& engine, dom::element_ref const& el, args_t const&) -> e::expr_res<js_value> {
        return style_object(engine, el);
    });
    webidl::add_native_method(engine, proto, "getVellumBoxes", 0,
                              on_element([](e::js& engine, dom::element_ref const& el, args_t const&) -> e::expr_res<js_value> {
                                  return element_boxes(engine, el);
                              }));
    webidl::add_native_accessor(
        engine, proto, "className",
        on_element([](e::js&, dom::element_ref const& el, args_t const&) -> e::expr_res<js_value> {
            return str(get_attribute(*el, "class").value_or(""));
        }),
        on_element([](e::js& engine, dom::element_ref const& el, args_t const& args) -> e::expr_res<js_value> {
            auto text = arg_text(engine, args, 0);
            if (auto const* x = std::get_if<e::exception>(&text)) {
                return *x;
            }
            set_attribute(el, "class", std::get<std::string>(text));
            return e::undefined();
        }));
    webidl::add_native_accessor(
        engine, proto, "id",
        on_element([](e::js&, dom::element_ref const& el, args_t const&) -> e::expr_res<js_value> {
            return str(get_attribute(*el, "id").value_or(""));
        }),
        on_element([](e::js& engine, dom::element_ref const& el, args_t const& args) -> e::expr_res<js_value> {
            auto text = arg_text(engine, args, 0);
            if (auto const* x = std::get_if<e::exception>(&text)) {
                return *x;
            }
            set_attribute(el, "id", std::get<std::string>(text));
            return e::undefined();
        }));
    install_attribute_members(engine, proto);
}

void install_document(e::js& engine, js_object proto, js_object implementation) {
    webidl::add_constant(proto, "nodeName", str("#document"));
    webidl::add_constant(proto, "nodeType", js::number{std::int64_t{9}});
    webidl::add_constant(proto, "attributes", e::js_null{});
    webidl::add_constant(proto, "namespaceURI", e::js_null{});
    webidl::add_constant(proto, "localName", e::js_null{});
    e::define_value(proto, "implementation", implementation, e::attrs{}.with(e::attr::read_only).with(e::attr::no_enum));
    using doc_fn = std::function<e::expr_res<js_value>(e::js&, dom::document_ref const&, args_t const&)>;
    auto on_doc = [](doc_fn f) {
        return on_node([f = std::move(f)](e::js& engine, dom::dom_node const& n, args_t const& args) -> e::expr_res<js_value> {
            auto const* d = std::get_if<dom::document_ref>(&n);
            if (d == nullptr) {
                return e::throw_error(engine, e::js_error::invalid_this);
            }
            return f(engine, *d, args);
        });
    };
    auto getter = [&](std::string const& name, doc_fn f) { webidl::add_native_accessor(engine, proto, name, on_doc(std::move(f))); };
    auto method = [&](std::string const& name, int length, doc_fn f) {
        webidl::add_native_method(engine, proto, name, length, on_doc(std::move(f)));
    };
    getter("documentElement", [](e::js& engine, dom::document_ref const& d, args_t const&) -> e::expr_res<js_value> {
        auto const root = dom::document_element(*d);
        return root ? wrap_node(engine, *root) : js_value(e::js_null{});
    });
    auto html_child = [](std::string name) {
        return [name](e::js& engine, dom::document_ref const& d, args_t const&) -> e::expr_res<js_value> {
            auto const root = dom::document_element(*d);
            if (root) {
                for (auto const& c : (*root)->dom_element_children.get()) {
                    if (auto const* el = std::get_if<dom::element_child>(&c);
                        el && xml::name_local(el->child_element->dom_element_name) == name) {
                        return wrap_node(engine, el->child_element);
                    }
                }
            }
            return e::js_null{};
        };
    };
    getter("head", html_child("head"));
    getter("body", html_child("body"));
    method("getElementById", 1, [](e::js& engine, dom::document_ref const& d, args_t const& args) -> e::expr_res<js_value> {
        auto id = arg_text(engine, args, 0);
        if (auto const* x = std::get_if<e::exception>(&id)) {
            return *x;
        }
        // A walk, not an index: an id set a moment ago is found at once.
        std::optional<dom::dom_node> found;
        auto const& wanted = std::get<std::string>(id);
        for_each_element(d, [&](dom::element_ref const& el) {
            auto const& attrs = el->dom_element_attrs.cell_value;  // the walk holds the lock
            if (std::ranges::any_of(attrs, [&](dom::attribute_ref const& a) {
                    auto const* n = std::get_if<xml::local_name>(&a->dom_attribute_name);
                    return n != nullptr && n->local == "id" && a->dom_attribute_value.cell_value == wanted;
                })) {
                found = el;
                return false;
            }
            return true;
        });
        return wrap_or_null(engine, found);
    });
    method("createElement", 1, [](e::js& engine, dom::document_ref const& d, args_t const& args) -> e::expr_res<js_value> {
        auto name = arg_text(engine, args, 0);
        if (auto const* x = std::get_if<e::exception>(&name)) {
            return *x;
        }
        auto const& n = std::get<std::string>(name);
        if (n.empty() || n.find_first_of(" \t\n\r\f<>/=\"'") != std::string::npos) {
            return throw_dom(engine, dom_exception::syntax_err);
        }
        return wrap_node(engine, create_element(d, n));
    });
    method("createElementNS", 2, [](e::js& engine, dom::document_ref const& d, args_t const& args) -> e::expr_res<js_value> {
        auto name = arg_text(engine, args, 1);
        if (auto const* x = std::get_if<e::exception>(&name)) {
            return *x;
        }
        auto const ns = ns_arg(engine, args, 0);
        std::string const local = local_part(std::get<std::string>(name));
        if (local.empty()) {
            return throw_dom(engine, dom_exception::syntax_err);
        }
        return wrap_node(engine, dom::new_element(d, ns ? xml::make_name(xml::xmlns_of_uri(*ns), local) : xml::make_name(local), {}));
    });
    method("createAttribute", 1, [](e::js& engine, dom::document_ref const& d, args_t const& args) -> e::expr_res<js_value> {
        auto name = arg_text(engine, args, 0);
        if (auto const* x = std::get_if<e::exception>(&name)) {
            return *x;
        }
        auto n = std::get<std::string>(name);
        if (is_html_document(*d)) {
            n = lower(n);
        }
        return wrap_node(engine, new_attribute(d, attribute_name_of(n), ""));
    });
    method("createAttributeNS", 2, [](e::js& engine, dom::document_ref const& d, args_t const& args) -> e::expr_res<js_value> {
        auto name = arg_text(engine, args, 1);
        if (auto const* x = std::get_if<e::exception>(&name)) {
            return *x;
        }
        auto const ns = ns_arg(engine, args, 0);
        std::string const local = local_part(std::get<std::string>(name));
        return wrap_node(engine, new_attribute(d, ns ? xml::make_name(xml::xmlns_of_uri(*ns), local) : xml::make_name(local), ""));
    });
    method("createTextNode", 1, [](e::js& engine, dom::document_ref const& d, args_t const& args) -> e::expr_res<js_value> {
        auto text = arg_text(engine, args, 0);
        if (auto const* x = std::get_if<e::exception>(&text)) {
            return *x;
        }
        return wrap_node(engine, dom::new_text(d, std::get<std::string>(text)));
    });
    method("createComment", 1, [](e::js& engine, dom::document_ref const& d, args_t const&) -> e::expr_res<js_value> {
        // The tree keeps no comments: a comment is an empty text, which places nothing on the page and
        // can still be inserted, moved and removed like any node.
        return wrap_node(engine, dom::new_text(d, ""));
    });
    method("createDocumentFragment", 0, [](e::js& engine, dom::document_ref const& d, args_t const&) -> e::expr_res<js_value> {
        return wrap_node(engine, new_fragment(d));
    });
    method("write", 0, [](e::js& engine, dom::document_ref const&, args_t const&) -> e::expr_res<js_value> {
        log::log_warning_once(engine.js_log, "document.write is not yet supported");
        return e::undefined();
    });
    method("writeln", 0, [](e::js& engine, dom::document_ref const&, args_t const&) -> e::expr_res<js_value> {
        log::log_warning_once(engine.js_log, "document.write is not yet supported");
        return e::undefined();
    });
}

void install_text(e::js& engine, js_object proto) {
    webidl::add_constant(proto, "nodeName", str("#text"));
    webidl::add_constant(proto, "nodeType", js::number{std::int64_t{3}});
    using text_fn = std::function<e::expr_res<js_value>(e::js&, dom::text_ref const&, args_t const&)>;
    auto on_text = [](text_fn f) {
        return on_node([f = std::move(f)](e::js& engine, dom::dom_node const& n, args_t const& args) -> e::expr_res<js_value> {
            auto const* t = std::get_if<dom::text_ref>(&n);
            if (t == nullptr) {
                return e::throw_error(engine, e::js_error::invalid_this);
            }
            return f(engine, *t, args);
        });
    };
    webidl::add_native_accessor(
        engine, proto, "data",
        on_text([](e::js&, dom::text_ref const& t, args_t const&) -> e::expr_res<js_value> { return str(t->dom_text_value.get()); }),
        on_text([](e::js& engine, dom::text_ref const& t, args_t const& args) -> e::expr_res<js_value> {
            auto text = arg_text(engine, args, 0);
            if (auto const* x = std::get_if<e::exception>(&text)) {
                return *x;
            }
            t->dom_text_value.set(std::get<std::string>(text));
            return e::undefined();
        }));
    webidl::add_native_accessor(engine, proto, "length",
                                on_text([](e::js&, dom::text_ref const& t, args_t const&) -> e::expr_res<js_value> {
                                    return js::number{std::int64_t(jsstring::from_utf8(t->dom_text_value.get()).length())};
                                }));
    webidl::add_native_method(
        engine, proto, "splitText", 1,
        on_text([](e::js& engine, dom::text_ref const& t, args_t const& args) -> e::expr_res<js_value> {
            auto offset = e::to_int32(engine, e::arg(args, 0));
            if (auto const* x = std::get_if<e::exception>(&offset)) {
                return *x;
            }
            auto const whole = jsstring::from_utf8(t->dom_text_value.get());
            auto const at = std::get<std::int32_t>(offset);
            if (at < 0 || std::size_t(at) > whole.length()) {
                return throw_dom(engine, dom_exception::index_size_err);
            }
            auto const head = jsstring::js_string(whole.code_points().substr(0, std::size_t(at)));
            auto const tail = jsstring::js_string(whole.code_points().substr(std::size_t(at)));
            t->dom_text_value.set(jsstring::to_utf8(head));
            auto const rest = dom::new_text(t->dom_text_owner_doc.lock(), jsstring::to_utf8(tail));
            if (auto const parent = parent_of(dom::dom_node{t})) {
                insert_before(*parent, rest, dom::next_sibling(dom::text_child{t}));
            }
            return wrap_node(engine, rest);
        }));
}

void install_attribute(e::js& engine, js_object proto) {
    webidl::add_constant(proto, "nodeType", js::number{std::int64_t{2}});
    using attr_fn = std::function<e::expr_res<js_value>(e::js&, dom::attribute_ref const&, args_t const&)>;
    auto on_attr = [](attr_fn f) {
        return on_node([f = std::move(f)](e::js& engine, dom::dom_node const& n, args_t const& args) -> e::expr_res<js_value> {
            auto const* a = std::get_if<dom::attribute_ref>(&n);
            if (a == nullptr) {
                return e::throw_error(engine, e::js_error::invalid_this);
            }
            return f(engine, *a, args);
        });
    };
    webidl::add_native_accessor(engine, proto, "name", on_attr([](e::js&, dom::attribute_ref const& a, args_t const&) -> e::expr_res<js_value> {
                                    return str(attribute_script_name(a->dom_attribute_name));
                                }));
    webidl::add_native_accessor(engine, proto, "localName", on_attr([](e::js&, dom::attribute_ref const& a, args_t const&) -> e::expr_res<js_value> {
                                    return str(xml::name_local(a->dom_attribute_name));
                                }));
    webidl::add_native_accessor(engine, proto, "namespaceURI", on_attr([](e::js&, dom::attribute_ref const& a, args_t const&) -> e::expr_res<js_value> {
                                    return maybe_string(name_uri(a->dom_attribute_name));
                                }));
    webidl::add_native_accessor(
        engine, proto, "value",
        on_attr([](e::js&, dom::attribute_ref const& a, args_t const&) -> e::expr_res<js_value> {
            return str(a->dom_attribute_value.get());
        }),
        on_attr([](e::js& engine, dom::attribute_ref const& a, args_t const& args) -> e::expr_res<js_value> {
            auto text = arg_text(engine, args, 0);
            if (auto const* x = std::get_if<e::exception>(&text)) {
                return *x;
            }
            a->dom_attribute_value.set(std::get<std::string>(text));
            return e::undefined();
        }));
    webidl::add_native_accessor(engine, proto, "ownerElement", on_attr([](e::js& engine, dom::attribute_ref const& a, args_t const&) -> e::expr_res<js_value> {
                                    auto owner = a->dom_attribute_owner_element.get().lock();
                                    return owner ? wrap_node(engine, owner) : js_value(e::js_null{});
                                }));
}

using collection_fn = std::function<e::expr_res<js_value>(e::js&, collection_host const&, args_t const&)>;

native_fn on_collection(collection_fn f) {
    return [f = std::move(f)](e::js& engine, js_value const& self, args_t const& args) -> e::expr_res<js_value> {
        auto const* c = collection_of_this(self);
        if (c == nullptr) {
            return e::throw_error(engine, e::js_error::invalid_this);
        }
        return f(engine, *c, args);
    };
}

void install_collection(e::js& engine, js_object proto, bool named) {
    webidl::add_native_accessor(engine, proto, "length",
                                on_collection([](e::js&, collection_host const& c, args_t const&) -> e::expr_res<js_value> {
                                    return js::number{std::int64_t(collection_items(c.collection)->size())};
                                }));
    webidl::add_native_method(engine, proto, "item", 1,
                              on_collection([](e::js& engine, collection_host const& c, args_t const& args) -> e::expr_res<js_value> {
                                  auto i = e::to_int32(engine, e::arg(args, 0));
                                  if (auto const* x = std::get_if<e::exception>(&i)) {
                                      return *x;
                                  }
                                  auto const at = std::get<std::int32_t>(i);
                                  auto const items = collection_items(c.collection, at < 0 ? 0 : std::size_t(at) + 1);
                                  if (at < 0 || std::size_t(at) >= items->size()) {
                                      return e::js_null{};
                                  }
                                  return wrap_node(engine, (*items)[std::size_t(at)]);
                              }));
    if (named) {
        webidl::add_native_method(engine, proto, "namedItem", 1,
                                  on_collection([](e::js& engine, collection_host const& c, args_t const& args) -> e::expr_res<js_value> {
                                      auto name = arg_text(engine, args, 0);
                                      if (auto const* x = std::get_if<e::exception>(&name)) {
                                          return *x;
                                      }
                                      return wrap_or_null(engine, named_item(c.collection, std::get<std::string>(name)));
                                  }));
    }
}

void install_named_node_map(e::js& engine, js_object proto) {
    install_collection(engine, proto, false);
    auto map_method = [&](std::string const& name, int length,
                          std::function<e::expr_res<js_value>(e::js&, dom::element_ref const&, args_t const&)> f) {
        webidl::add_native_method(engine, proto, name, length,
                                  on_collection([f = std::move(f)](e::js& engine, collection_host const& c, args_t const& args) -> e::expr_res<js_value> {
                                      auto const* m = std::get_if<dom_named_node_map>(&c.collection);
                                      if (m == nullptr) {
                                          return e::throw_error(engine, e::js_error::invalid_this);
                                      }
                                      return f(engine, m->map_element, args);
                                  }));
    };
    map_method("getNamedItem", 1, [](e::js& engine, dom::element_ref const& el, args_t const& args) -> e::expr_res<js_value> {
        auto name = arg_text(engine, args, 0);
        if (auto const* x = std::get_if<e::exception>(&name)) {
            return *x;
        }
        auto a = find_attribute(*el, std::get<std::string>(name));
        return a ? wrap_node(engine, a) : js_value(e::js_null{});
    });
    map_method("getNamedItemNS", 2, [](e::js& engine, dom::element_ref const& el, args_t const& args) -> e::expr_res<js_value> {
        auto name = arg_text(engine, args, 1);
        if (auto const* x = std::get_if<e::exception>(&name)) {
            return *x;
        }
        auto a = find_attribute_ns(*el, ns_arg(engine, args, 0), std::get<std::string>(name));
        return a ? wrap_node(engine, a) : js_value(e::js_null{});
    });
    auto set_item = [](e::js& engine, dom::element_ref const& el, args_t const& args) -> e::expr_res<js_value> {
        auto const n = node_arg(args, 0);
        auto const* a = n ? std::get_if<dom::attribute_ref>(&*n) : nullptr;
        if (a == nullptr) {
            return throw_dom(engine, dom_exception::hierarchy_request_err);
        }
        auto const owner = (*a)->dom_attribute_owner_element.get().lock();
        if (owner && owner != el) {
            return throw_dom(engine, dom_exception::inuse_attribute_err);
        }
        auto old = put_attribute(el, *a);
        return old ? wrap_node(engine, old) : js_value(e::js_null{});
    };
    map_method("setNamedItem", 1, set_item);
    map_method("setNamedItemNS", 1, set_item);
    map_method("removeNamedItem", 1, [](e::js& engine, dom::element_ref const& el, args_t const& args) -> e::expr_res<js_value> {
        auto name = arg_text(engine, args, 0);
        if (auto const* x = std::get_if<e::exception>(&name)) {
            return *x;
        }
        auto a = find_attribute(*el, std::get<std::string>(name));
        if (!a) {
            return throw_dom(engine, dom_exception::not_found_err);
        }
        detach_attribute(el, a);
        return wrap_node(engine, a);
    });
    map_method("removeNamedItemNS", 2, [](e::js& engine, dom::element_ref const& el, args_t const& args) -> e::expr_res<js_value> {
        auto name = arg_text(engine, args, 1);
        if (auto const* x = std::get_if<e::exception>(&name)) {
            return *x;
        }
        auto a = find_attribute_ns(*el, ns_arg(engine, args, 0), std::get<std::string>(name));
        if (!a) {
            return throw_dom(engine, dom_exception::not_found_err);
        }
        detach_attribute(el, a);
        return wrap_node(engine, a);
    });
}

void install_exception(js_object proto, bool svg) {
    if (svg) {
        webidl::add_constant(proto, "SVG_INVALID_VALUE_ERR", js::number{std::int64_t{1}});
        webidl::add_constant(proto, "SVG_MATRIX_NOT_INVERTABLE", js::number{std::int64_t{2}});
        return;
    }
    for (auto code : {dom_exception::index_size_err, dom_exception::hierarchy_request_err, dom_exception::not_found_err,
                      dom_exception::not_supported_err, dom_exception::inuse_attribute_err,
                      dom_exception::invalid_state_err, dom_exception::syntax_err, dom_exception::type_mismatch_err}) {
        webidl::add_constant(proto, std::string(dom_exception_name(code)), js::number{std::int64_t(code)});
    }
}

} // namespace

void install_core(e::js& engine, dom_state& state, webidl::webidl_interface const& event_target) {
    auto& p = state.state_prototypes;
    auto const node = webidl::make_interface(engine, "Node", event_target);
    p.prototype_node = node.prototype;
    std::vector<std::pair<std::string, int>> const constants = {
        {"ELEMENT_NODE", 1},
        {"ATTRIBUTE_NODE", 2},
        {"TEXT_NODE", 3},
        {"DOCUMENT_NODE", 9},
        {"DOCUMENT_FRAGMENT_NODE", 11},
        {"DOCUMENT_POSITION_DISCONNECTED", 1},
        {"DOCUMENT_POSITION_PRECEDING", 2},
        {"DOCUMENT_POSITION_FOLLOWING", 4},
        {"DOCUMENT_POSITION_CONTAINS", 8},
        {"DOCUMENT_POSITION_CONTAINED_BY", 16},
    };
    for (auto const& [name, value] : constants) {
        webidl::add_constant(node.prototype, name, js::number{std::int64_t{value}});
        webidl::add_constant(node.constructor, name, js::number{std::int64_t{value}});
    }
    install_node_members(engine, node.prototype);

    auto const document = webidl::make_interface(engine, "Document", node);
    p.prototype_document = document.prototype;
    js_object const implementation = e::new_object(engine);
    webidl::add_native_method(engine, implementation, "hasFeature", 2,
                              [](e::js& engine, js_value const&, args_t const& args) -> e::expr_res<js_value> {
                                  auto feature = arg_text(engine, args, 0);
                                  if (auto const* x = std::get_if<e::exception>(&feature)) {
                                      return *x;
                                  }
                                  auto const f = lower(std::get<std::string>(feature));
                                  return f == "core" || f == "xml" || f == "html";
                              });
    install_document(engine, document.prototype, implementation);
    install_parent_members(engine, document.prototype);

    auto const fragment = webidl::make_interface(engine, "DocumentFragment", node);
    p.prototype_document_fragment = fragment.prototype;
    webidl::add_constant(fragment.prototype, "nodeName", str("#document-fragment"));
    webidl::add_constant(fragment.prototype, "nodeType", js::number{std::int64_t{11}});
    webidl::add_constant(fragment.prototype, "namespaceURI", e::js_null{});
    webidl::add_constant(fragment.prototype, "localName", e::js_null{});
    install_parent_members(engine, fragment.prototype);

    auto const element = webidl::make_interface(engine, "Element", node);
    p.prototype_element = element.prototype;
    install_element(engine, element.prototype);
    install_parent_members(engine, element.prototype);

    auto const attribute = webidl::make_interface(engine, "Attribute", node);
    p.prototype_attribute = attribute.prototype;
    install_attribute(engine, attribute.prototype);

    auto const text = webidl::make_interface(engine, "Text", node);
    p.prototype_text = text.prototype;
    install_text(engine, text.prototype);

    auto const html_collection = webidl::make_interface(engine, "HTMLCollection", std::nullopt);
    p.prototype_html_collection = html_collection.prototype;
    install_collection(engine, html_collection.prototype, true);
    auto const node_list = webidl::make_interface(engine, "NodeList", std::nullopt);
    p.prototype_node_list = node_list.prototype;
    install_collection(engine, node_list.prototype, false);
    auto const named_node_map = webidl::make_interface(engine, "NamedNodeMap", std::nullopt);
    p.prototype_named_node_map = named_node_map.prototype;
    install_named_node_map(engine, named_node_map.prototype);

    auto const style = webidl::make_interface(engine, "CSSStyleDeclaration", std::nullopt);
    p.prototype_css_style_declaration = style.prototype;

    auto const exception = webidl::make_interface(engine, "DOMException", std::nullopt);
    p.dom_exception = exception.constructor;
    p.prototype_dom_exception = exception.prototype;
    install_exception(exception.prototype, false);
    install_exception(exception.constructor, false);
    // A DOMException prints as "Error: HIERARCHY_REQUEST_ERR" would: its name and message.
    webidl::add_native_method(engine, exception.prototype, "toString", 0,
                              [](e::js& engine, js_value const& self, args_t const&) -> e::expr_res<js_value> {
                                  auto const* o = std::get_if<js_object>(&self);
                                  if (o == nullptr) {
                                      return e::throw_error(engine, e::js_error::invalid_this);
                                  }
                                  auto name = e::get(engine, *o, e::key_of_utf8("name"));
                                  if (auto const* x = std::get_if<e::exception>(&name)) {
                                      return *x;
                                  }
                                  auto text = e::to_string(engine, std::get<js_value>(name));
                                  if (auto const* x = std::get_if<e::exception>(&text)) {
                                      return *x;
                                  }
                                  return str("DOMException: " + jsstring::to_utf8(std::get<e::js_string>(text)));
                              });
    auto const svg_exception = webidl::make_interface(engine, "SVGException", std::nullopt);
    p.prototype_svg_exception = svg_exception.prototype;
    install_exception(svg_exception.prototype, true);
    install_exception(svg_exception.constructor, true);
}

} // namespace vellum::domjs
