#include "document/html5/formatting.hpp"

#include "util/result.hpp"

#include <algorithm>

namespace vellum::html5::formatting {

using tree::node;

namespace {

// Attribute lists compare as sets: the order a tag gave them in doesn't matter.
bool same_attributes(node const& a, node const& b) {
    if (a.node_attributes.size() != b.node_attributes.size()) {
        return false;
    }
    for (auto const& x : a.node_attributes) {
        if (std::find(b.node_attributes.begin(), b.node_attributes.end(), x) == b.node_attributes.end()) {
            return false;
        }
    }
    return true;
}

} // namespace

void push_formatting_element(active_list& list, node* n) {
    // The "Noah's Ark" rule: at most three equal elements after the last marker.
    int equal = 0;
    std::size_t earliest = list.size();
    for (std::size_t i = list.size(); i-- > 0;) {
        node const* e = list[i].entry_node;
        if (e == nullptr) {
            break;
        }
        if (e->node_name == n->node_name && e->node_ns == n->node_ns && same_attributes(*e, *n)) {
            ++equal;
            earliest = i;
        }
    }
    if (equal >= 3) {
        list.erase(list.begin() + static_cast<std::ptrdiff_t>(earliest));
    }
    list.push_back(entry{.entry_node = n});
}

void push_marker(active_list& list) {
    list.push_back(entry{});
}

void clear_to_last_marker(active_list& list) {
    while (!list.empty()) {
        bool marker = list.back().entry_node == nullptr;
        list.pop_back();
        if (marker) {
            return;
        }
    }
}

node* get_formatting_element(active_list const& list, std::string_view name) {
    for (auto it = list.rbegin(); it != list.rend(); ++it) {
        if (it->entry_node == nullptr) {
            return nullptr;
        }
        if (it->entry_node->node_name == name && it->entry_node->node_ns == tree::html_ns::html) {
            return it->entry_node;
        }
    }
    return nullptr;
}

bool is_in_active_formatting_list(active_list const& list, node const* n) {
    return index_in_list(list, n) >= 0;
}

int index_in_list(active_list const& list, node const* n) {
    for (std::size_t i = 0; i < list.size(); ++i) {
        if (list[i].entry_node == n) {
            return static_cast<int>(i);
        }
    }
    return -1;
}

void insert_bookmark_in_active_formatting_list(active_list& list, std::size_t index, node* n) {
    check(index <= list.size(), "html5.formatting.insert_bookmark");
    list.insert(list.begin() + static_cast<std::ptrdiff_t>(index), entry{.entry_node = n});
}

void remove_bookmark_from_active_formatting_list(active_list& list, node const* n) {
    remove_element_from_active_formatting_list(list, n);
}

void replace_element_in_active_formatting_list(active_list& list, node const* old, node* replacement) {
    int i = index_in_list(list, old);
    check(i >= 0, "html5.formatting.replace_element");
    list[static_cast<std::size_t>(i)].entry_node = replacement;
}

void remove_element_from_active_formatting_list(active_list& list, node const* n) {
    int i = index_in_list(list, n);
    if (i >= 0) {
        list.erase(list.begin() + i);
    }
}

} // namespace vellum::html5::formatting
