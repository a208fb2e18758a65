// The stack of open elements of the HTML tree builder and its scope tests.
#pragma once

#include "document/html5/tree.hpp"

#include <cstddef>
#include <functional>
#include <initializer_list>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace vellum::html5::stack {

/// The open elements, the document element first and the current node last. Nodes belong to the tree.
/// Besides the nodes it counts the open HTML elements by name, so that asking whether one is in scope
/// costs nothing when none is open: a document nested thousands of elements deep asks whether a `p`
/// is in button scope at every start tag, and walking the whole stack each time would make its parse
/// quadratic.
class open_elements {
public:
    using const_iterator = std::vector<tree::node*>::const_iterator;
    using const_reverse_iterator = std::vector<tree::node*>::const_reverse_iterator;

    const_iterator begin() const { return nodes.begin(); }

    const_iterator end() const { return nodes.end(); }

    const_reverse_iterator rbegin() const { return nodes.rbegin(); }

    const_reverse_iterator rend() const { return nodes.rend(); }

    std::size_t size() const { return nodes.size(); }

    bool empty() const { return nodes.empty(); }

    tree::node* operator[](std::size_t i) const { return nodes[i]; }

    tree::node* front() const { return nodes.front(); }

    tree::node* back() const { return nodes.back(); }

    void push_back(tree::node* n);
    void pop_back();
    /// Puts `n` in the place `i`.
    void set(std::size_t i, tree::node* n);
    void insert(const_iterator at, tree::node* n);
    void erase(const_iterator at);
    /// Pops down to the first `n` nodes.
    void truncate(std::size_t n);
    void clear();

    /// How many HTML elements with the name are open.
    int html_count(std::string_view name) const;

private:
    void count(tree::node const* n, int by);

    struct name_hash {
        using is_transparent = void;

        std::size_t operator()(std::string_view s) const { return std::hash<std::string_view>{}(s); }
    };

    std::vector<tree::node*> nodes;
    std::unordered_map<std::string, int, name_hash, std::equal_to<>> counts;
};

/// Pops until an HTML element with that name has been popped.
void pop_elements_up_to(open_elements& stack, std::string_view name);

/// Pops until an HTML element with one of the names has been popped.
void pop_elements_up_to(open_elements& stack, std::initializer_list<std::string_view> names);

/// Pops until the given node has been popped.
void pop_ele_up_to(open_elements& stack, tree::node const* n);

/// Inserts a node just above `below` (that is, nearer the current node).
void insert_into_stack_below_element(open_elements& stack, tree::node* n, tree::node const* below);

/// Puts `replacement` where `old` stood.
void replace_element_in_stack(open_elements& stack, tree::node const* old, tree::node* replacement);

/// Removes the node from the stack, wherever it stands.
void remove_element_from_stack(open_elements& stack, tree::node const* n);

/// The node just below `n` (towards the document element), or nullptr.
tree::node* stack_node_before_element(open_elements const& stack, tree::node const* n);

/// Whether the node is on the stack.
bool is_on_element_stack(open_elements const& stack, tree::node const* n);

/// Index of the node on the stack, or -1.
int index_on_stack(open_elements const& stack, tree::node const* n);

/// Whether an HTML element with the name is in scope.
bool has_element_in_scope(open_elements const& stack, std::string_view name);

/// Whether an HTML element with one of the names is in scope.
bool has_element_in_scope(open_elements const& stack, std::initializer_list<std::string_view> names);

/// Whether this very node is in scope.
bool has_node_in_scope(open_elements const& stack, tree::node const* n);

/// Scope bounded also by ol and ul.
bool has_element_in_list_item_scope(open_elements const& stack, std::string_view name);

/// Scope bounded also by button.
bool has_element_in_button_scope(open_elements const& stack, std::string_view name);

/// Scope bounded only by html, table and template.
bool has_element_in_table_scope(open_elements const& stack, std::string_view name);

/// Table scope for one of several names.
bool has_element_in_table_scope(open_elements const& stack, std::initializer_list<std::string_view> names);

/// Scope bounded by everything but optgroup and option.
bool has_element_in_select_scope(open_elements const& stack, std::string_view name);

} // namespace vellum::html5::stack
