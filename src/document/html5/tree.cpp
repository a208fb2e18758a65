#include "document/html5/tree.hpp"

#include "util/result.hpp"

#include <algorithm>

namespace vellum::html5::tree {

namespace {

auto position_of(node& parent, node const* child) {
    return std::find_if(parent.node_children.begin(), parent.node_children.end(),
                        [child](std::unique_ptr<node> const& c) { return c.get() == child; });
}

char ascii_lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
}

bool equal_ignoring_ascii_case(std::string_view a, std::string_view b) {
    return a.size() == b.size() &&
           std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) { return ascii_lower(x) == ascii_lower(y); });
}

} // namespace

std::unique_ptr<node> make_element(std::string_view name, html_ns ns) {
    auto n = std::make_unique<node>();
    n->node_kind = node_type::element;
    n->node_name = name;
    n->node_ns = ns;
    return n;
}

std::unique_ptr<node> make_text(std::string_view text) {
    auto n = std::make_unique<node>();
    n->node_kind = node_type::text;
    n->node_ns = html_ns::none;
    n->node_text = text;
    return n;
}

std::unique_ptr<node> make_comment(std::string_view text) {
    auto n = std::make_unique<node>();
    n->node_kind = node_type::comment;
    n->node_ns = html_ns::none;
    n->node_text = text;
    return n;
}

node* add_child_node(node& parent, std::unique_ptr<node> child) {
    check(child && child->node_parent == nullptr, "html5.tree.add_child_node");
    child->node_parent = &parent;
    if (parent.node_children.empty() && parent.node_children.capacity() == 0) {
        // Most elements have a few children: one allocation for the first four rather than three.
        parent.node_children.reserve(4);
    }
    parent.node_children.push_back(std::move(child));
    return parent.node_children.back().get();
}

node* insert_child_node(node& parent, node const* before, std::unique_ptr<node> child) {
    if (before == nullptr) {
        return add_child_node(parent, std::move(child));
    }
    check(child && child->node_parent == nullptr, "html5.tree.insert_child_node");
    auto at = position_of(parent, before);
    check(at != parent.node_children.end(), "html5.tree.insert_child_node");
    child->node_parent = &parent;
    return parent.node_children.insert(at, std::move(child))->get();
}

std::unique_ptr<node> remove_last_child_node(node& parent) {
    check(!parent.node_children.empty(), "html5.tree.remove_last_child_node");
    auto child = std::move(parent.node_children.back());
    parent.node_children.pop_back();
    child->node_parent = nullptr;
    return child;
}

std::unique_ptr<node> detach_node(node& child) {
    node* parent = child.node_parent;
    if (parent == nullptr) {
        return nullptr;
    }
    auto at = position_of(*parent, &child);
    check(at != parent->node_children.end(), "html5.tree.detach_node");
    auto owned = std::move(*at);
    parent->node_children.erase(at);
    owned->node_parent = nullptr;
    return owned;
}

void append_text(node& parent, std::string_view text) {
    if (text.empty()) {
        return;
    }
    if (!parent.node_children.empty() && parent.node_children.back()->node_kind == node_type::text) {
        parent.node_children.back()->node_text.append(text);
        return;
    }
    add_child_node(parent, make_text(text));
}

void insert_text_before(node& parent, node const* before, std::string_view text) {
    if (before == nullptr) {
        append_text(parent, text);
        return;
    }
    if (text.empty()) {
        return;
    }
    auto at = position_of(parent, before);
    check(at != parent.node_children.end(), "html5.tree.insert_text_before");
    if (at != parent.node_children.begin() && (*(at - 1))->node_kind == node_type::text) {
        (*(at - 1))->node_text.append(text);
        return;
    }
    insert_child_node(parent, before, make_text(text));
}

void move_children(node& from, node& to) {
    for (auto& c : from.node_children) {
        c->node_parent = &to;
        to.node_children.push_back(std::move(c));
    }
    from.node_children.clear();
}

node* get_node_by_name(node& root, std::string_view name) {
    if (root.node_kind == node_type::element && root.node_name == name) {
        return &root;
    }
    for (auto& c : root.node_children) {
        if (node* found = get_node_by_name(*c, name)) {
            return found;
        }
    }
    return nullptr;
}

std::string const* get_attribute_value(node const& element, std::string_view name) {
    for (auto const& a : element.node_attributes) {
        if (a.attribute_ns == html_ns::none && a.attribute_name == name) {
            return &a.attribute_value;
        }
    }
    return nullptr;
}

void remove_attribute(node& element, std::string_view name) {
    std::erase_if(element.node_attributes, [name](attribute const& a) {
        return a.attribute_ns == html_ns::none && a.attribute_name == name;
    });
}

bool attribute_name_in_list(node const& element, std::string_view name, std::initializer_list<std::string_view> values) {
    std::string const* value = get_attribute_value(element, name);
    if (value == nullptr) {
        return false;
    }
    return std::any_of(values.begin(), values.end(),
                       [value](std::string_view v) { return equal_ignoring_ascii_case(*value, v); });
}

} // namespace vellum::html5::tree
