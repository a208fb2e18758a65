// Reading a libxml2 document into the plain tree, after which the libxml2 document can go.
#pragma once

#include "document/xml.hpp"
#include "resource/locator.hpp"

#include <optional>

struct _xmlDoc;
struct _xmlNode;

namespace vellum::libxml::tree {

/// The kinds of libxml2 node the conversion tells apart.
enum class node_type { document, element, attribute, text, comment, processing, entity };

/// The kind of a node, or nothing for kinds the conversion ignores (DTD nodes, declarations, ...).
[[nodiscard]] std::optional<node_type> node_type_of(_xmlNode const* node);

/// Converts a parsed document; `locator` is where it was read from. The libxml2 document is not freed.
/// Internal error when the document has no root element.
xml::document convert_document(_xmlDoc* doc, resource::locator::locator const& locator);

} // namespace vellum::libxml::tree
