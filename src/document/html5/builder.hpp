// The state of one HTML tree construction and the algorithms its insertion modes share.
#pragma once

#include "document/html5/formatting.hpp"
#include "document/html5/stack.hpp"
#include "document/html5/token.hpp"
#include "document/html5/tokenizer.hpp"
#include "document/html5/tree.hpp"

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vellum::html5::builder {

/// The insertion modes of tree construction.
enum class mode {
    initial,
    before_html,
    before_head,
    in_head,
    in_head_noscript,
    after_head,
    in_body,
    text,
    in_table,
    in_table_text,
    in_caption,
    in_column_group,
    in_table_body,
    in_row,
    in_cell,
    in_template,
    after_body,
    in_frameset,
    after_frameset,
    after_after_body,
    after_after_frameset,
};

/// How the DOCTYPE (or its absence) says the page should be laid out; tables and paragraphs differ.
enum class quirks { no_quirks, limited_quirks, quirks };

/// Where a node goes: into `parent`, before `before` (nullptr: at the end).
struct location {
    tree::node* location_parent = nullptr;
    tree::node* location_before = nullptr;
};

/// The state of a parse.
struct builder {
    tokenizer::tokenizer tok;
    std::unique_ptr<tree::node> document;
    std::optional<tree::doctype> doctype;
    std::size_t doctype_position = 0;
    stack::open_elements open;
    formatting::active_list active;
    tree::node* head = nullptr;
    tree::node* form = nullptr;
    mode current_mode = mode::initial;
    mode original_mode = mode::initial;
    std::vector<mode> template_modes;
    bool frameset_ok = true;
    bool foster_parenting = false;
    bool skip_next_newline = false;
    bool stopped = false;
    std::string pending_table_chars;
    quirks quirks_mode = quirks::no_quirks;
    /// The context element of a fragment parse (owned here, never in the tree), or nullptr.
    std::unique_ptr<tree::node> context;
    /// Whether nodes were placed higher than they belong because the tree reached max_tree_depth.
    bool depth_capped = false;
};

/// The deepest a node is placed in the tree, counting the document root as 1. Deeper elements and text
/// go beside each other at this depth, in document order, as browsers do (one of them stops at 512): a
/// real document never nests so deep, and every later stage may then walk the tree recursively.
inline constexpr std::size_t max_tree_depth = 512;

/// The current node, or nullptr when the stack is empty.
tree::node* current_node(builder const& b);

/// The context element when only the root is open in a fragment parse, else the current node.
tree::node* adjusted_current_node(builder const& b);

/// Whether a template element is open.
bool template_on_stack(builder const& b);

/// The appropriate place for inserting a node, with foster parenting when it is on.
location insertion_location(builder& b, tree::node* override_target = nullptr);

/// An element for a tag token, in the namespace given.
std::unique_ptr<tree::node> create_element(token::token const& t, tree::html_ns ns);

/// Inserts an element for the token at the appropriate place and pushes it.
tree::node* insert_element(builder& b, token::token const& t, tree::html_ns ns = tree::html_ns::html);

/// Inserts an HTML element with that name and no attributes (for tags the parser implies).
tree::node* insert_implied(builder& b, std::string_view name);

/// Inserts characters at the appropriate place.
void insert_characters(builder& b, std::string_view text);

/// Inserts a comment at the appropriate place, or at the end of the given parent.
void insert_comment(builder& b, std::string_view text, tree::node* parent = nullptr);

/// Re-opens formatting elements that were closed implicitly (as after "<b><p></b>x").
void reconstruct_active_formatting_elements(builder& b);

/// The adoption agency algorithm for an end tag of a formatting element; false means "any other end tag".
bool adoption_agency(builder& b, std::string_view subject);

/// Picks the insertion mode from the open elements, as after a table or select closes.
void reset_insertion_mode(builder& b);

/// Closes a p element (generating implied end tags).
void close_p_element(builder& b);

/// The quirks mode a DOCTYPE token asks for.
quirks quirks_of_doctype(token::token const& t);

} // namespace vellum::html5::builder
