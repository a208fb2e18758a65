#include "css/styledom/tree.hpp"

#include "util/cell.hpp"
#include "util/ref.hpp"
#include "util/result.hpp"

#include <mutex>

namespace vellum::styledom::tree {

namespace {

using element = dom_tree::element;

// The element a sibling link leads to, skipping text nodes, in the direction of `step`. The caller holds
// the process-wide lock, so the cells are read directly.
template <class Step>
std::optional<element> element_sibling_of(dom::sibling_node const& first, Step step) {
    dom::sibling_node const* s = &first;
    for (;;) {
        if (auto const* es = std::get_if<dom::element_sibling>(s)) {
            auto const p = es->sibling_element.lock();
            return p ? std::optional<element>(p.get()) : std::nullopt;
        }
        auto const* ts = std::get_if<dom::text_sibling>(s);
        if (ts == nullptr) {
            return std::nullopt;
        }
        auto const t = ts->sibling_text.lock();
        if (!t) {
            return std::nullopt;
        }
        // The text node stays in the tree, which owns it, after `t` is gone.
        s = &step(*t).cell_value;
    }
}

bool attribute_fits(xml::name const& n, css::selector::ns const& ns, std::string_view local) {
    return name_local_view(n) == local && css::match::namespace_fits(ns, name_namespace_view(n));
}

void append_text(std::vector<dom::child_node> const& children, std::string& out) {
    for (auto const& c : children) {
        std::visit(overloaded{
                       [&](dom::element_child const& e) {
                           append_text(e.child_element->dom_element_children.cell_value, out);
                       },
                       [&](dom::text_child const& t) { out += t.child_text->dom_text_value.cell_value; },
                   },
                   c);
    }
}

std::vector<dom::element_ref> elements_of(std::vector<dom::child_node> const& children) {
    std::vector<dom::element_ref> out;
    for (auto const& c : children) {
        if (auto const* e = std::get_if<dom::element_child>(&c)) {
            out.push_back(e->child_element);
        }
    }
    return out;
}

} // namespace

std::string_view namespace_view(xml::xmlns const& ns) {
    return std::visit(overloaded{
                          [](xml::xmlns_xhtml const&) { return std::string_view("http://www.w3.org/1999/xhtml"); },
                          [](xml::xmlns_svg const&) { return std::string_view("http://www.w3.org/2000/svg"); },
                          [](xml::xmlns_mathml const&) {
                              return std::string_view("http://www.w3.org/1998/Math/MathML");
                          },
                          [](xml::xmlns_xlink const&) { return std::string_view("http://www.w3.org/1999/xlink"); },
                          [](xml::xmlns_xml const&) {
                              return std::string_view("http://www.w3.org/XML/1998/namespace");
                          },
                          [](xml::xmlns_other const& o) { return std::string_view(o.other_uri); },
                      },
                      ns);
}

std::optional<std::string_view> name_namespace_view(xml::name const& n) {
    if (auto const* q = std::get_if<xml::qualified_name>(&n)) {
        return namespace_view(q->namespace_uri);
    }
    return std::nullopt;
}

std::string_view name_local_view(xml::name const& n) {
    return std::visit(overloaded{
                          [](xml::local_name const& l) { return std::string_view(l.local); },
                          [](xml::qualified_name const& q) { return std::string_view(q.local); },
                      },
                      n);
}

bool is_html_name(xml::name const& n, std::string_view local) {
    if (name_local_view(n) != local) {
        return false;
    }
    auto const* q = std::get_if<xml::qualified_name>(&n);
    return q == nullptr || std::holds_alternative<xml::xmlns_xhtml>(q->namespace_uri);
}

namespace {

std::optional<element> found(element e) {
    return e != nullptr ? std::optional<element>(e) : std::nullopt;
}

// The id and class attributes as matching asks for them: "id" in any namespace, "class" in none. The
// caller holds the process lock.
void add_attributes(dom::dom_element const& e, element_links& links) {
    for (auto const& a : e.dom_element_attrs.cell_value) {
        auto const& n = a->dom_attribute_name;
        if (!links.link_id && attribute_fits(n, css::selector::any{}, "id")) {
            links.link_id = a->dom_attribute_value.cell_value;
        }
        if (!links.link_class && attribute_fits(n, css::selector::none{}, "class")) {
            links.link_class = a->dom_attribute_value.cell_value;
        }
    }
}

// The number of each sibling among those of its own type, and how many there are of each type. Siblings
// rarely have more than a few types, so the types are kept in a short list.
struct type_count {
    std::string_view type_local;
    std::optional<std::string_view> type_ns;
    int count = 0;
};

int& count_of(std::vector<type_count>& types, element e) {
    auto const local = name_local_view(e->dom_element_name);
    auto const ns = name_namespace_view(e->dom_element_name);
    for (auto& t : types) {
        if (t.type_local == local && t.type_ns == ns) {
            return t.count;
        }
    }
    return types.emplace_back(type_count{local, ns, 0}).count;
}

// The caller holds the process lock: the whole walk reads the tree under it once.
std::size_t slot_of(std::size_t slots, dom::dom_element const* e) {
    // Fibonacci hashing of the address without its alignment bits.
    auto const h = (reinterpret_cast<std::uintptr_t>(e) >> 4) * 0x9E3779B97F4A7C15ULL;
    return static_cast<std::size_t>(h >> 24) & (slots - 1);
}

// The entry of an element, made where it is missing. The table never grows: it was sized for the
// subtree, so its addresses stay put while it is filled.
element_links& entry_of(link_table& table, dom::dom_element const* e) {
    auto const slots = table.link_slots.size();
    for (auto i = slot_of(slots, e);; i = (i + 1) & (slots - 1)) {
        auto& [key, index] = table.link_slots[i];
        if (key == e) {
            return table.link_values[index];
        }
        if (key == nullptr) {
            check(table.link_values.size() < table.link_values.capacity(), "link table full");
            key = e;
            index = static_cast<std::uint32_t>(table.link_values.size());
            return table.link_values.emplace_back();
        }
    }
}

std::size_t count_elements(dom::dom_element const& e) {
    std::size_t n = 1;
    for (auto const& c : e.dom_element_children.cell_value) {
        if (auto const* x = std::get_if<dom::element_child>(&c)) {
            n += count_elements(*x->child_element);
        }
    }
    return n;
}

void add_links(dom::dom_element const& e, link_table& table, std::vector<type_count>& types) {
    std::vector<dom::dom_element const*> children;
    for (auto const& c : e.dom_element_children.cell_value) {
        if (auto const* x = std::get_if<dom::element_child>(&c)) {
            children.push_back(x->child_element.get());
        }
    }
    int const siblings = static_cast<int>(children.size());
    types.clear();
    std::vector<element_links*> entries(children.size());
    for (std::size_t i = 0; i < children.size(); ++i) {
        auto& links = entry_of(table, children[i]);
        links = {.link_parent = &e,
                 .link_prev = i > 0 ? children[i - 1] : nullptr,
                 .link_next = i + 1 < children.size() ? children[i + 1] : nullptr,
                 .link_index = static_cast<int>(i),
                 .link_siblings = siblings,
                 .link_type_index = count_of(types, children[i])++};
        entries[i] = &links;
    }
    for (std::size_t i = 0; i < children.size(); ++i) {
        entries[i]->link_type_siblings = count_of(types, children[i]);
        add_attributes(*children[i], *entries[i]);
    }
    for (auto const* child : children) {
        add_links(*child, table, types);
    }
}

} // namespace

link_table make_link_table(dom::dom_element const& root) {
    dom_tree const plain;
    link_table table;
    // The root's siblings lie outside the subtree; its place is left unknown and counted when asked.
    std::lock_guard guard(process_lock());
    // At most half full, so that probes stay short.
    auto const n = count_elements(root);
    std::size_t slots = 16;
    while (slots < 2 * n) {
        slots *= 2;
    }
    table.link_slots.assign(slots, {nullptr, 0});
    table.link_values.reserve(n);
    auto& links = entry_of(table, &root);
    links = {.link_parent = plain.parent_element(&root).value_or(nullptr),
             .link_prev = plain.previous_element(&root).value_or(nullptr),
             .link_next = plain.next_element(&root).value_or(nullptr)};
    add_attributes(root, links);
    std::vector<type_count> types;
    add_links(root, table, types);
    return table;
}

namespace {

element_links const* links_of(link_table const* table, element e) {
    return table == nullptr ? nullptr : table->find(e);
}

} // namespace

element_links const* link_table::find(dom::dom_element const* e) const {
    auto const slots = link_slots.size();
    if (slots == 0) {
        return nullptr;
    }
    for (auto i = slot_of(slots, e);; i = (i + 1) & (slots - 1)) {
        auto const& [key, index] = link_slots[i];
        if (key == e) {
            return &link_values[index];
        }
        if (key == nullptr) {
            return nullptr;
        }
    }
}

std::optional<element> dom_tree::parent_element(element e) const {
    if (auto const* l = links_of(links, e)) {
        return found(l->link_parent);
    }
    std::lock_guard guard(process_lock());
    if (auto const* p = std::get_if<dom::element_parent>(&e->dom_element_parent.cell_value)) {
        auto const parent = p->parent_element.lock();
        return parent ? std::optional<element>(parent.get()) : std::nullopt;
    }
    return std::nullopt;
}

std::optional<element> dom_tree::previous_element(element e) const {
    if (auto const* l = links_of(links, e)) {
        return found(l->link_prev);
    }
    std::lock_guard guard(process_lock());
    return element_sibling_of(e->dom_element_prev_sibling.cell_value,
                              [](dom::dom_text const& t) -> auto const& { return t.dom_text_prev_sibling; });
}

std::optional<element> dom_tree::next_element(element e) const {
    if (auto const* l = links_of(links, e)) {
        return found(l->link_next);
    }
    std::lock_guard guard(process_lock());
    return element_sibling_of(e->dom_element_next_sibling.cell_value,
                              [](dom::dom_text const& t) -> auto const& { return t.dom_text_next_sibling; });
}

std::string_view dom_tree::local_name(element e) const {
    return name_local_view(e->dom_element_name);
}

std::optional<std::string_view> dom_tree::namespace_uri(element e) const {
    return name_namespace_view(e->dom_element_name);
}

std::optional<std::string_view> dom_tree::attribute(element e, css::selector::ns const& ns,
                                                    std::string_view name) const {
    if (auto const* l = links_of(links, e)) {
        if (name == "class" && std::holds_alternative<css::selector::none>(ns)) {
            return l->link_class;
        }
        if (name == "id" && std::holds_alternative<css::selector::any>(ns)) {
            return l->link_id;
        }
    }
    std::lock_guard guard(process_lock());
    for (auto const& a : e->dom_element_attrs.cell_value) {
        if (attribute_fits(a->dom_attribute_name, ns, name)) {
            return std::string_view(a->dom_attribute_value.cell_value);
        }
    }
    return std::nullopt;
}

std::optional<int> dom_tree::sibling_number(element e, bool from_end, bool of_type) const {
    auto const* l = links_of(links, e);
    if (l == nullptr || l->link_index < 0) {
        return std::nullopt;
    }
    int const index = of_type ? l->link_type_index : l->link_index;
    int const count = of_type ? l->link_type_siblings : l->link_siblings;
    return from_end ? count - 1 - index : index;
}

std::optional<bool> dom_tree::recall_previous_match(css::selector::selector0 const& s, element e) const {
    if (previous_matches == nullptr) {
        return std::nullopt;
    }
    auto const it = previous_matches->answers.find({&s, e});
    return it == previous_matches->answers.end() ? std::nullopt : std::optional<bool>(it->second);
}

void dom_tree::remember_previous_match(css::selector::selector0 const& s, element e, bool found) const {
    if (previous_matches != nullptr) {
        previous_matches->answers.insert_or_assign({&s, e}, found);
    }
}

std::optional<std::string_view> dom_tree::own_language(element e) const {
    std::lock_guard guard(process_lock());
    std::optional<std::string_view> plain;
    for (auto const& a : e->dom_element_attrs.cell_value) {
        auto const& n = a->dom_attribute_name;
        if (auto const* q = std::get_if<xml::qualified_name>(&n)) {
            if (q->local == "lang" && std::holds_alternative<xml::xmlns_xml>(q->namespace_uri)) {
                return std::string_view(a->dom_attribute_value.cell_value);
            }
        } else if (!plain && name_local_view(n) == "lang") {
            plain = a->dom_attribute_value.cell_value;
        }
    }
    return plain;
}

std::optional<std::string_view> dom_tree::language(element e) const {
    if (known_languages != nullptr) {
        for (auto it = known_languages->rbegin(); it != known_languages->rend(); ++it) {
            if (it->first == e) {
                return it->second;
            }
        }
    }
    for (std::optional<element> x = e; x; x = parent_element(*x)) {
        if (auto const lang = own_language(*x)) {
            return lang;
        }
    }
    return std::nullopt;
}

bool dom_tree::is_empty(element e) const {
    std::lock_guard guard(process_lock());
    for (auto const& c : e->dom_element_children.cell_value) {
        auto const* t = std::get_if<dom::text_child>(&c);
        if (t == nullptr || !t->child_text->dom_text_value.cell_value.empty()) {
            return false;
        }
    }
    return true;
}

// ":contains()" is rare enough that it may build the text it looks in.
bool dom_tree::text_contains(element e, std::string_view text) const {
    std::lock_guard guard(process_lock());
    std::string all;
    append_text(e->dom_element_children.cell_value, all);
    return all.find(text) != std::string::npos;
}

bool element_matches(css::selector::selector const& s, dom::dom_element const& e) {
    return css::match::element_matches(dom_tree{}, s, &e);
}

std::vector<dom::element_ref> element_children(dom::dom_element const& e) {
    std::lock_guard guard(process_lock());
    return elements_of(e.dom_element_children.cell_value);
}

std::vector<dom::element_ref> element_children(dom::dom_document const& d) {
    std::lock_guard guard(process_lock());
    return elements_of(d.dom_document_children.cell_value);
}

std::string own_text(dom::dom_element const& e) {
    std::string out;
    for (auto const& s : dom::text_content(e.dom_element_children.get())) {
        out += s;
    }
    return out;
}

std::optional<std::string> plain_attribute(dom::dom_element const& e, std::string_view local) {
    std::lock_guard guard(process_lock());
    for (auto const& a : e.dom_element_attrs.cell_value) {
        if (auto const* l = std::get_if<xml::local_name>(&a->dom_attribute_name); l && l->local == local) {
            return a->dom_attribute_value.cell_value;
        }
    }
    return std::nullopt;
}

} // namespace vellum::styledom::tree
