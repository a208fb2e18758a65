// The living document tree: nodes with identity whose changeable parts sit in cells behind the
// process-wide lock. Built once from the plain tree; scripts change it, the cascade annotates it and box
// generation reads it. Links up and sideways are weak, so that the tree is owned from its root down.
#pragma once

#include "document/doctype.hpp"
#include "document/style_info.hpp"
#include "document/xml.hpp"
#include "resource/locator.hpp"
#include "util/cell.hpp"
#include "util/ref.hpp"

#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

// The computed style and the typed declarations are made by the style layer above this one; the tree
// only holds them.
namespace vellum::css::style {
struct style;
} // namespace vellum::css::style

namespace vellum::styledom {
struct declared_styles;
} // namespace vellum::styledom

namespace vellum::canvas {
struct canvas_context;
} // namespace vellum::canvas

namespace vellum::dom {

struct dom_document;
struct dom_document_fragment;
struct dom_element;
struct dom_attribute;
struct dom_text;
struct box_info;

using document_ref = std::shared_ptr<dom_document>;
using fragment_ref = std::shared_ptr<dom_document_fragment>;
using element_ref = std::shared_ptr<dom_element>;
using attribute_ref = std::shared_ptr<dom_attribute>;
using text_ref = std::shared_ptr<dom_text>;
using box_info_ref = std::shared_ptr<box_info>;

/// The script object that stands for a node, created by the script host when a script first asks for it;
/// empty until then. The host alone knows its type.
using object_ref = std::shared_ptr<void>;

/// An element among a parent's children.
struct element_child {
    element_ref child_element;
};

/// A text among a parent's children.
struct text_child {
    text_ref child_text;
};

/// A child of a document, fragment or element.
using child_node = std::variant<element_child, text_child>;

/// The first or last of its siblings.
struct no_sibling {};

/// A neighbouring element.
struct element_sibling {
    std::weak_ptr<dom_element> sibling_element;
};

/// A neighbouring text.
struct text_sibling {
    std::weak_ptr<dom_text> sibling_text;
};

/// The node beside a child.
using sibling_node = std::variant<no_sibling, element_sibling, text_sibling>;

/// A node not in any tree.
struct no_parent {};

/// A child of an element.
struct element_parent {
    std::weak_ptr<dom_element> parent_element;
};

/// A child of the document itself.
struct document_parent {
    std::weak_ptr<dom_document> parent_document;
};

/// A child of a document fragment.
struct document_fragment_parent {
    std::weak_ptr<dom_document_fragment> parent_fragment;
};

/// The node that holds a child.
using parent_node = std::variant<no_parent, element_parent, document_parent, document_fragment_parent>;

/// The cascade's result for one element.
struct style_info {
    /// The element's base URL, shared by the elements that have the same one.
    ref<resource::locator::locator> style_info_base;
    /// The element's language, if known.
    std::optional<std::string> style_info_lang;
    /// The computed style; null when the cascade ran without a style computation.
    ref<css::style::style> style_info_style;
    /// The matched declarations of the element and of its pseudo-elements, typed and ascending by
    /// priority, kept so that box generation can compute generated boxes and first lines; null likewise.
    ref<styledom::declared_styles> style_info_declared;
};

/// An element that has been through the cascade.
struct style_info_set {
    ref<dom::style_info> style_info_value;
};

/// An element the cascade has not reached.
struct no_style_info {};

/// Where the cascade's result lives.
using style_info_ref = std::variant<no_style_info, style_info_set>;

/// The style of an element; internal error "cannot get null style_info_ref" before the cascade.
dom::style_info const& get_style_info(style_info_ref const& r);

/// The pixel size of a canvas element.
struct canvas_size {
    int canvas_width = 300;
    int canvas_height = 150;
    bool operator==(canvas_size const&) const = default;
};

/// The drawing surface of a canvas element.
struct canvas_context {
    dom::canvas_size context_size;
    /// The recorder of the element's "2d" context: made by the first `getContext("2d")`, dropped when a
    /// script sets the size. Box generation paints what it recorded.
    std::shared_ptr<canvas::canvas_context> context_2d;
};

/// The kind of a layout box that scripts can see.
enum class box_info_type {
    box_info_body,
    box_info_box,
    box_info_line,
    box_info_span,
    box_info_text,
    box_info_svg,
    box_info_image,
};

/// One layout box as a script sees it.
struct box_info {
    cell<object_ref> box_info_object_ref;
    dom::box_info_type box_info_type = box_info_type::box_info_box;
    int box_info_page_num = 0;
    float box_info_x = 0;
    float box_info_y = 0;
    float box_info_w = 0;
    float box_info_h = 0;
    cell<object_ref> box_info_children_object_ref;
    cell<std::vector<box_info_ref>> box_info_children;
    std::weak_ptr<box_info> box_info_parent;
    std::weak_ptr<dom_element> box_info_element;
};

/// The document node.
struct dom_document {
    cell<object_ref> dom_document_object_ref;
    // FIXME: the event target of the document comes with the script host's events.
    doctype::doctype dom_document_doctype = doctype::doctype::xml;
    doctype::xmltype dom_document_xmltype;
    std::vector<xml::pi> dom_document_pi;
    doc_style_info dom_document_style_info;
    resource::locator::locator dom_document_url;
    cell<resource::locator::locator> dom_document_base;
    cell<std::vector<child_node>> dom_document_children;
};

/// A document fragment, as scripts make them.
struct dom_document_fragment {
    cell<object_ref> dom_document_fragment_object_ref;
    cell<std::vector<child_node>> dom_document_fragment_children;
    std::weak_ptr<dom_document> dom_document_fragment_owner_doc;
};

/// An element.
struct dom_element {
    cell<object_ref> dom_element_object_ref;
    xml::name dom_element_name;
    cell<std::vector<attribute_ref>> dom_element_attrs;
    cell<std::vector<child_node>> dom_element_children;
    cell<sibling_node> dom_element_next_sibling;
    cell<sibling_node> dom_element_prev_sibling;
    cell<parent_node> dom_element_parent;
    std::weak_ptr<dom_document> dom_element_owner_doc;
    cell<style_info_ref> dom_element_style_info;
    cell<std::vector<box_info_ref>> dom_element_box_info;
    /// Present only on XHTML "canvas" elements.
    std::optional<cell<canvas_context>> dom_element_canvas_context;
};

/// An attribute of an element.
struct dom_attribute {
    cell<object_ref> dom_attribute_object_ref;
    xml::name dom_attribute_name;
    cell<std::string> dom_attribute_value;
    cell<std::weak_ptr<dom_element>> dom_attribute_owner_element;
    std::weak_ptr<dom_document> dom_attribute_owner_doc;
};

/// A run of text.
struct dom_text {
    cell<object_ref> dom_text_object_ref;
    cell<std::string> dom_text_value;
    cell<sibling_node> dom_text_next_sibling;
    cell<sibling_node> dom_text_prev_sibling;
    cell<parent_node> dom_text_parent;
    std::weak_ptr<dom_document> dom_text_owner_doc;
};

/// Any node.
using dom_node = std::variant<document_ref, fragment_ref, element_ref, attribute_ref, text_ref>;

/// Builds the living tree of a parsed document, with `base` as the document's base URL.
document_ref new_dom_document(doctype::doctype doctype,
                              doctype::xmltype xmltype,
                              doc_style_info style_info,
                              resource::locator::locator base,
                              xml::document const& doc);

/// Makes an element of a document with its attributes and no children, outside the tree.
element_ref new_element(document_ref const& owner, xml::name name, xml::attributes const& attrs);

/// Makes a text of a document, outside the tree.
text_ref new_text(document_ref const& owner, std::string value);

/// The first element child of the document, if any.
[[nodiscard]] std::optional<element_ref> document_element(dom_document const& doc);

/// The value of the first attribute with that name, if any.
[[nodiscard]] std::optional<std::string> attribute_value(dom_element const& e, xml::name const& name);

/// The base URL of an element: its xml:base resolved against the parent's base, or the parent's base.
resource::locator::locator element_base(dom_element const& e);

/// The strings of the text children, in order.
std::vector<std::string> text_content(std::vector<child_node> const& children);

/// The children of a parent; none for no_parent.
std::vector<child_node> children_of(parent_node const& parent);

/// The parent of a child.
parent_node parent_of(child_node const& child);

/// The sibling after a child, if any.
[[nodiscard]] std::optional<child_node> next_sibling(child_node const& child);

/// The sibling before a child, if any.
[[nodiscard]] std::optional<child_node> previous_sibling(child_node const& child);

/// Replaces the children of a parent, linking each to the parent and to its neighbours.
void set_children(parent_node const& parent, std::vector<child_node> children);

/// Inserts children before `before` (last without it, or when `before` is not a child of the parent),
/// relinking only them and their two new neighbours: appending to a long list costs no more than
/// appending to a short one. The children must not be in any list.
void insert_children(parent_node const& parent, std::vector<child_node> const& incoming,
                     std::optional<child_node> const& before);

/// Removes a child from its parent and relinks the neighbours; internal error
/// "remove_child: could not find child in parent" if it is not there.
void remove_child(parent_node const& parent, child_node const& child);

/// The size of a canvas element from its "width" and "height" attributes (300 by 150 by default).
canvas_size element_canvas_size(dom_element const& e);

/// A canvas dimension: a whole number of pixels, or nothing for a value that is not a finite, non-negative
/// number with no leading white space and nothing after it.
[[nodiscard]] std::optional<int> parse_canvas_dimension(std::string const& text);

} // namespace vellum::dom
