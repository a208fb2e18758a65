// What the files of the DOM bindings share: the per-engine state, node helpers over the living tree,
// DOM exceptions, argument conversion, and the installers of each group of interfaces.
#pragma once

#include "host/domjs.hpp"
#include "host/webidl.hpp"
#include "js/convert.hpp"
#include "js/errors.hpp"
#include "js/object.hpp"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <variant>
#include <vector>

namespace vellum::domjs {

namespace e = js::eval;
using webidl::native_fn;

/// The state the bindings keep for one engine: its prototypes and a serial number that tells its
/// wrappers from those of an engine that came before at the same address.
struct dom_state : e::host_data {
    std::uint64_t state_serial = 0;
    dom_prototypes state_prototypes;
    /// The boxes of the finished layout, once attached; the boxes of each element and of each box, by
    /// index; and the `BoxInfo` object made for each box, so that a box is always the same object.
    std::optional<std::vector<box_info>> state_boxes;
    std::unordered_map<dom::dom_element const*, std::vector<std::size_t>> state_boxes_of_element;
    std::vector<std::vector<std::size_t>> state_box_children;
    std::unordered_map<std::size_t, e::js_object> state_box_objects;
};

/// The `BoxInfo` objects of an element's boxes, in layout order: none before layout has finished or
/// when `Vellum.trackBoxes` was not set.
e::js_value element_boxes(e::js& engine, dom::element_ref const& el);

/// The bindings' state of an engine; internal error if the interfaces were never installed.
dom_state& state_of(e::js const& engine);

// ---- DOM exceptions ----------------------------------------------------------------------------------------

/// The DOM Core failures, valued by their `code`.
enum class dom_exception {
    index_size_err = 1,
    hierarchy_request_err = 3,
    not_found_err = 8,
    not_supported_err = 9,
    inuse_attribute_err = 10,
    invalid_state_err = 11,
    syntax_err = 12,
    type_mismatch_err = 17,
};

/// A thrown `DOMException` with its `code`, `name` and `message`.
e::exception throw_dom(e::js& engine, dom_exception code);

/// The name of a DOM exception code ("HIERARCHY_REQUEST_ERR").
std::string_view dom_exception_name(dom_exception code);

// ---- Node helpers ------------------------------------------------------------------------------------------

/// The node behind a wrapper, if the value is one.
[[nodiscard]] std::optional<dom::dom_node> node_of(e::js_value const& v);

/// The node as a child of a parent, for texts and elements.
[[nodiscard]] std::optional<dom::child_node> as_child(dom::dom_node const& n);

dom::dom_node child_as_node(dom::child_node const& c);

/// The node as a holder of children: documents, fragments and elements.
[[nodiscard]] std::optional<dom::parent_node> as_parent(dom::dom_node const& n);

/// The children of a node; none for texts and attributes.
std::vector<dom::child_node> children_of(dom::dom_node const& n);

/// The parent of a node, if it has one (an attribute has none).
[[nodiscard]] std::optional<dom::dom_node> parent_of(dom::dom_node const& n);

/// Whether two nodes are the same node.
bool same_node(dom::dom_node const& a, dom::dom_node const& b);

/// The elements under a node in tree order, the node itself excluded; `f` answers false to stop.
void for_each_element(dom::dom_node const& root, std::function<bool(dom::element_ref const&)> const& f);

/// The document a node belongs to.
dom::document_ref owner_document(dom::dom_node const& n);

/// Whether the element is an HTML element: in the XHTML namespace, or in none in an HTML document.
bool is_html_element(dom::dom_element const& el);

/// Whether the document was read as HTML (names are matched without regard to case).
bool is_html_document(dom::dom_document const& doc);

/// The text of the element's attribute named as a script names it, if present.
[[nodiscard]] std::optional<std::string> get_attribute(dom::dom_element const& el, std::string const& name);

/// Sets an attribute named as a script names it: the value is replaced, or a new attribute goes last.
void set_attribute(dom::element_ref const& el, std::string const& name, std::string const& value);

/// Removes an attribute named as a script names it, if present.
void remove_attribute(dom::element_ref const& el, std::string const& name);

/// The text of all text under a node, in tree order.
std::string text_of(dom::dom_node const& n);

/// A new element of the document with no children, made as `createElement` makes it.
dom::element_ref create_element(dom::document_ref const& doc, std::string const& name);

/// Replaces the children of a holder.
void replace_children(dom::dom_node const& parent, std::vector<dom::child_node> children);

/// Builds living nodes of a document from parsed content.
std::vector<dom::child_node> build_nodes(dom::document_ref const& doc, std::vector<xml::xml> const& content);

/// A new empty fragment of a document.
dom::fragment_ref new_fragment(dom::document_ref const& doc);

// ---- Values ------------------------------------------------------------------------------------------------

e::js_value str(std::string_view utf8);

/// The argument as UTF-8 text (missing arguments give `invalid_arguments`).
[[nodiscard]] e::expr_res<std::string> arg_text(e::js& engine, std::vector<e::js_value> const& args, std::size_t i);

/// The first `count` arguments as UTF-8 text, converted in order; the first failure is thrown.
[[nodiscard]] e::expr_res<std::vector<std::string>> arg_texts(e::js& engine, std::vector<e::js_value> const& args,
                                                              std::size_t count);

/// A function that answers a constant.
native_fn constant_fn(e::js_value v);

/// A collection object (`NodeList`, `HTMLCollection`, `NamedNodeMap`) around its host value.
e::js_object new_collection(e::js& engine, e::host_value h, e::js_object proto);

// ---- Installers, in the order the interfaces are built ----------------------------------------------------

/// `Node`, `Document`, `DocumentFragment`, `Element`, `Attribute`, `Text`, the collections and the
/// exceptions.
void install_core(e::js& engine, dom_state& state, webidl::webidl_interface const& event_target);

/// `CSSStyleDeclaration` members, `getComputedStyle`.
void install_style(e::js& engine, dom_state& state);

/// `innerHTML` on elements and documents, `DOMParser`.
void install_markup(e::js& engine, dom_state& state);

/// `HTMLElement` and the table of HTML element interfaces, `Image`.
void install_html(e::js& engine, dom_state& state);

/// The `element.style` object.
e::js_value style_object(e::js& engine, dom::element_ref const& el);

/// `querySelector` (first match only) and `querySelectorAll` under a node; `SYNTAX_ERR` for a bad
/// selector.
[[nodiscard]] e::expr_res<std::vector<dom::element_ref>> query_selector(e::js& engine, dom::dom_node const& root,
                                                                        std::string const& text, bool first_only);

/// The markup of a node's children.
std::string serialise_children(dom::dom_node const& n);

/// The class name of a collection's host value, if it is one.
[[nodiscard]] std::optional<std::string> collection_class(e::host_value const& h);

// ---- Canvas ------------------------------------------------------------------------------------------------

/// `canvas.getContext(kind)`.
e::js_value canvas_get_context(e::js& engine, dom::dom_element& canvas, std::string_view kind);

/// Called when a script sets the width or height of a canvas.
void canvas_reset(dom::dom_element& canvas);

/// Builds the canvas interfaces at their place in the interface order.
void canvas_install(e::js& engine);

} // namespace vellum::domjs
