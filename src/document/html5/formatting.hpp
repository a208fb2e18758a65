// The list of active formatting elements of the HTML tree builder, with its scope markers.
#pragma once

#include "document/html5/tree.hpp"

#include <string_view>
#include <vector>

namespace vellum::html5::formatting {

/// An entry: a formatting element, or a marker (nullptr) set at applet, object, marquee, template, td, th, caption.
struct entry {
    tree::node* entry_node = nullptr;
    bool operator==(entry const&) const = default;
};

/// The list, oldest entry first.
using active_list = std::vector<entry>;

/// Pushes an element, first dropping the oldest of three equal ones after the last marker.
void push_formatting_element(active_list& list, tree::node* n);

/// Pushes a marker.
void push_marker(active_list& list);

/// Removes entries down to and including the last marker.
void clear_to_last_marker(active_list& list);

/// The last element with that name after the last marker, or nullptr.
tree::node* get_formatting_element(active_list const& list, std::string_view name);

/// Whether the node is in the list.
bool is_in_active_formatting_list(active_list const& list, tree::node const* n);

/// Index of the node in the list, or -1.
int index_in_list(active_list const& list, tree::node const* n);

/// Inserts a bookmark (an entry pointing to n) at the index; the adoption agency moves it as it goes.
void insert_bookmark_in_active_formatting_list(active_list& list, std::size_t index, tree::node* n);

/// Removes the first entry at or after `from` that points to n.
void remove_bookmark_from_active_formatting_list(active_list& list, tree::node const* n);

/// Replaces the entry of old by replacement.
void replace_element_in_active_formatting_list(active_list& list, tree::node const* old, tree::node* replacement);

/// Removes the entry of the node, if present.
void remove_element_from_active_formatting_list(active_list& list, tree::node const* n);

} // namespace vellum::html5::formatting
