// The document tree as scripts see it: W3C DOM Core wrappers over the living tree (one script object per
// node, made when a script first reaches the node), collections, the HTML element interfaces,
// `CSSStyleDeclaration`, `DOMParser`, `Image`, `location`, and the walk that runs a document's scripts.
#pragma once

// The loader first: the script engine's header declares its name ahead.
#include "resource/loader.hpp"
#include "document/dom.hpp"
#include "driver/log.hpp"
#include "host/events.hpp"
#include "js/engine.hpp"
#include "js/value.hpp"

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace vellum::hostjs {
struct host_js;
} // namespace vellum::hostjs

namespace vellum::domjs {

using js::eval::js_object;
using js::eval::js_value;

/// The element behind a script value: the element of an element wrapper, nullptr for anything else
/// (other nodes, plain objects, primitives).
dom::dom_element* element_of(js_value const& v);

/// The wrapper of a node in this engine: the same node always gives the same object. The first call
/// makes it, with the prototype of the node's kind (for an element, the interface of its tag).
js_value wrap_node(js::eval::js& engine, dom::dom_node const& node);

/// The host value behind every node wrapper: the node, and its listeners as an event target. The class
/// name scripts see is the interface name.
struct node_host : events::target_host {
    dom::dom_node host_node;
};

/// The prototypes in which wrappers are made, one set per engine.
struct dom_prototypes {
    js_object prototype_node;
    js_object prototype_document;
    js_object prototype_document_fragment;
    js_object prototype_element;
    js_object prototype_attribute;
    js_object prototype_text;
    js_object prototype_html_collection;
    js_object prototype_node_list;
    js_object prototype_named_node_map;
    js_object prototype_css_style_declaration;
    js_object dom_exception;
    js_object prototype_dom_exception;
    js_object prototype_svg_exception;
    js_object prototype_dom_parser;
    js_object prototype_html_element;
    js_object prototype_box_info;
    js_object prototype_box_info_children;
    /// The interface of each HTML tag, by local name: its prototype and its name.
    std::map<std::string, std::pair<js_object, std::string>, std::less<>> prototype_by_tag;
};

/// Builds the DOM interfaces on the engine's global object, in their fixed order, with `Image`,
/// `DOMParser` and `getComputedStyle`, and remembers the prototypes for this engine.
void install_dom_interfaces(js::eval::js& engine);

/// The prototypes of an engine; internal error if `install_dom_interfaces` hasn't run on it.
dom_prototypes const& prototypes_of(js::eval::js const& engine);

/// Binds `document` and `location` on the global object for a document.
void bind_document(js::eval::js& engine, dom::document_ref const& doc);

/// Runs the `script` elements of a document in tree order, as the walk reaches them: a script that an
/// earlier script placed later in the tree runs too. A `body` with `onload` sets the global `onload`.
/// With the document's source text, messages about inline scripts give lines of the document.
void run_document_scripts(hostjs::host_js& host, dom::document_ref const& doc, std::string_view source = {});

/// Hands the external scripts of a document to the loader without waiting, so that their loads overlap.
void prefetch_document_scripts(log::log const& log, resource::loader::loader const& loader,
                               dom::document_ref const& doc);

/// The host's answer for a property of a DOM collection (an index, or a name of a `NamedNodeMap` or
/// `HTMLCollection`); empty where the collection has none of that key or the value is not a collection.
[[nodiscard]] std::optional<js_value> collection_get(js::eval::js& engine, js_object o, js::eval::host_value const& h,
                                                    js::eval::js_prop_string const& key);

/// The names a collection answers for, for enumeration.
std::vector<js::eval::js_prop_string> collection_names(js::eval::host_value const& h);

/// The class name scripts see for a collection or style declaration; empty for other values.
[[nodiscard]] std::optional<std::string> class_name_of(js::eval::host_value const& h);

/// The number of items of a collection; 0 for other values.
std::int64_t collection_length(js::eval::host_value const& h);

/// Forgets every node's wrapper, for a document whose engine is dropped.
void clear_wrappers(dom::document_ref const& doc);

/// A box an element made in the finished layout, as `getVellumBoxes` gives it: its type ("BOX",
/// "SPAN", "IMAGE" or "SVG"), the number of its page, its border box in points from the page's top left
/// corner, and the box it lies in, as an index into the same list.
struct box_info {
    dom::element_ref info_element;
    std::string info_type;
    int info_page = 0;
    double info_x = 0;
    double info_y = 0;
    double info_w = 0;
    double info_h = 0;
    std::optional<std::size_t> info_parent;
};

/// Hands the boxes of the finished layout to an engine's bindings: from now on `getVellumBoxes` answers
/// with them.
void attach_boxes(js::eval::js& engine, std::vector<box_info> boxes);

} // namespace vellum::domjs
