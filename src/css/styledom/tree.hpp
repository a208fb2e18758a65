// The living document tree as selector matching sees it: elements as plain pointers, names and attribute
// values as views into the tree, so that matching allocates nothing.
#pragma once

#include "css/match.hpp"
#include "css/selector.hpp"
#include "document/dom.hpp"
#include "document/xml.hpp"

#include <cstdint>
#include <optional>
#include <unordered_map>
#include <string_view>
#include <utility>
#include <vector>

namespace vellum::styledom::tree {

/// The URI of a namespace as a view of a constant (or of the name that holds it).
std::string_view namespace_view(xml::xmlns const& ns);

/// The namespace URI of an element or attribute name; nothing for a name in no namespace.
std::optional<std::string_view> name_namespace_view(xml::name const& n);

/// The local part of a name.
std::string_view name_local_view(xml::name const& n);

/// Whether a name is the given local name in the XHTML namespace or in no namespace, as HTML elements
/// are named by the HTML5 and the HTML4 parser.
bool is_html_name(xml::name const& n, std::string_view local);

/// An element and its language, while a walk is inside it.
using known_language = std::pair<dom::dom_element const*, std::optional<std::string_view>>;

/// The neighbours of an element: its parent element, and its previous and next element siblings (null
/// where there is none); its place among its element siblings, from 0, of any type and of its own type
/// (-1 where the table doesn't know it); and its id and class attributes, as selectors read them.
struct element_links {
    dom::dom_element const* link_parent = nullptr;
    dom::dom_element const* link_prev = nullptr;
    dom::dom_element const* link_next = nullptr;
    int link_index = -1;
    int link_siblings = -1;
    int link_type_index = -1;
    int link_type_siblings = -1;
    std::optional<std::string_view> link_id;
    std::optional<std::string_view> link_class;
};

/// The neighbours, places and id and class of every element of a subtree, read once before a walk:
/// selectors such as "a ~ b" and ":nth-child()" step through long runs of siblings, most selectors test
/// an id or a class, and each read of the living tree costs a lock (and a step across the text nodes
/// between elements). Open-addressed by the element's address: the table is filled once, at a size
/// fixed from the count of elements, and then only read, several times for every element styled.
struct link_table {
    /// The elements and their entries' places in `link_values`: a power of two of slots, at most half
    /// of them used, null where a slot is free.
    std::vector<std::pair<dom::dom_element const*, std::uint32_t>> link_slots;
    std::vector<element_links> link_values;

    /// The entry of an element, or null where the table doesn't have it.
    element_links const* find(dom::dom_element const* e) const;
};

/// The table for an element and its descendants.
link_table make_link_table(dom::dom_element const& root);

/// For pairs of a compound selector and an element, whether some earlier sibling of the element matches
/// the selector: what a walk has found out, so that long runs of siblings are looked through once.
struct sibling_answers {
    struct pair_hash {
        std::size_t operator()(std::pair<css::selector::selector0 const*, dom::dom_element const*> const& k) const {
            return std::hash<void const*>{}(k.first) * 31 + std::hash<void const*>{}(k.second);
        }
    };
    std::unordered_map<std::pair<css::selector::selector0 const*, dom::dom_element const*>, bool, pair_hash> answers;
};

/// The dom tree under the interface of css::match. Handles point into the tree, which owns its elements;
/// the tree must not change while a handle is in use. Every read takes the process-wide lock for that
/// read alone.
struct dom_tree {
    using element = dom::dom_element const*;

    /// The languages of the elements a walk is inside, innermost last; a walk keeps them so that
    /// ":lang()" need not climb the tree on each test. May be null.
    std::vector<known_language> const* known_languages = nullptr;
    /// The neighbours of the elements of the subtree a walk styles; may be null. The tree must not change
    /// while the table is in use.
    link_table const* links = nullptr;
    /// Answers a walk keeps for "a ~ b"; may be null. Like the link table, valid while the tree doesn't
    /// change.
    sibling_answers* previous_matches = nullptr;

    std::optional<element> parent_element(element e) const;
    std::optional<element> previous_element(element e) const;
    std::optional<element> next_element(element e) const;
    std::string_view local_name(element e) const;
    std::optional<std::string_view> namespace_uri(element e) const;
    std::optional<std::string_view> attribute(element e, css::selector::ns const& ns, std::string_view name) const;
    /// The element's number among its element siblings from 0, as css::match counts it; nothing when the
    /// link table doesn't know the element's siblings.
    std::optional<int> sibling_number(element e, bool from_end, bool of_type) const;
    /// What `previous_matches` holds for the selector and the element, if anything.
    std::optional<bool> recall_previous_match(css::selector::selector0 const& s, element e) const;
    void remember_previous_match(css::selector::selector0 const& s, element e, bool found) const;
    /// The value of the element's own language attribute: xml:lang first, then lang in no namespace.
    std::optional<std::string_view> own_language(element e) const;
    /// The language as inherited: the own language of the nearest element, itself or an ancestor, that
    /// has one.
    std::optional<std::string_view> language(element e) const;
    bool is_empty(element e) const;
    bool text_contains(element e, std::string_view text) const;
};

static_assert(css::match::element_tree<dom_tree>);

/// Whether the element itself is selected by the selector (never with a pseudo-element), as
/// querySelector asks.
bool element_matches(css::selector::selector const& s, dom::dom_element const& e);

/// The element children of an element, in order.
std::vector<dom::element_ref> element_children(dom::dom_element const& e);

/// The element children of a document, in order.
std::vector<dom::element_ref> element_children(dom::dom_document const& d);

/// The joined text of the element's text children (not of its descendants).
std::string own_text(dom::dom_element const& e);

/// The value of an attribute in no namespace, if the element has it.
[[nodiscard]] std::optional<std::string> plain_attribute(dom::dom_element const& e, std::string_view local);

} // namespace vellum::styledom::tree
