// The light node tree that the HTML parser builds, and the operations on a node's children.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vellum::html5::tree {

/// What a node is.
enum class node_type { element, text, comment };

/// The namespace of an element or attribute, in the order the document layer maps them.
enum class html_ns { html, mathml, svg, xlink, xml, xmlns, none };

/// One attribute: local name, value, and namespace (none for ordinary attributes).
struct attribute {
    std::string attribute_name;
    std::string attribute_value;
    html_ns attribute_ns = html_ns::none;
    bool operator==(attribute const&) const = default;
};

/// A node. Elements own their children; each child knows its parent while it is attached.
struct node {
    node_type node_kind = node_type::element;
    /// Local name of an element ("DOC" for the document root).
    std::string node_name;
    html_ns node_ns = html_ns::html;
    std::vector<attribute> node_attributes;
    /// Text of a text or comment node.
    std::string node_text;
    std::vector<std::unique_ptr<node>> node_children;
    node* node_parent = nullptr;
    /// A template element's contents, kept apart from its children as the standard's template contents.
    std::unique_ptr<node> node_template_contents;
};

/// The DOCTYPE of a document, as written.
struct doctype {
    std::string doctype_name;
    std::optional<std::string> doctype_public;
    std::optional<std::string> doctype_system;
    bool operator==(doctype const&) const = default;
};

/// A new element node.
std::unique_ptr<node> make_element(std::string_view name, html_ns ns);

/// A new text node.
std::unique_ptr<node> make_text(std::string_view text);

/// A new comment node.
std::unique_ptr<node> make_comment(std::string_view text);

/// Appends a child at the end; returns it.
node* add_child_node(node& parent, std::unique_ptr<node> child);

/// Inserts a child before `before` (which must be a child of parent); returns it.
node* insert_child_node(node& parent, node const* before, std::unique_ptr<node> child);

/// Detaches the last child of parent and hands it back.
std::unique_ptr<node> remove_last_child_node(node& parent);

/// Detaches a node from its parent and hands it back (nullptr if it has no parent).
std::unique_ptr<node> detach_node(node& child);

/// Appends text, merging with a text node already last among the children.
void append_text(node& parent, std::string_view text);

/// Inserts text before `before`, merging with the text node just before that position.
void insert_text_before(node& parent, node const* before, std::string_view text);

/// Moves all children of `from` to the end of `to`.
void move_children(node& from, node& to);

/// The first element named so (in any namespace) in document order, or nullptr.
node* get_node_by_name(node& root, std::string_view name);

/// The value of an attribute of an element, or nullptr.
std::string const* get_attribute_value(node const& element, std::string_view name);

/// Removes the attribute of that name (in no namespace), if present.
void remove_attribute(node& element, std::string_view name);

/// Whether the element has an attribute of that name whose value is in the list (ASCII case-insensitive).
bool attribute_name_in_list(node const& element, std::string_view name, std::initializer_list<std::string_view> values);

} // namespace vellum::html5::tree
