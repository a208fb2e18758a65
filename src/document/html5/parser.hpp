// The entries of the HTML parser: a whole document, or a fragment in the context of an element (innerHTML).
#pragma once

#include "document/html5/tree.hpp"

#include <cstddef>
#include <memory>
#include <optional>
#include <string_view>

namespace vellum::html5::parser {

/// What a parse hands back: the "DOC" root, and the DOCTYPE if the document had one.
struct parsed_document {
    /// The pseudo-element "DOC" (no namespace) holding the document element and the comments around it.
    std::unique_ptr<tree::node> document_root;
    std::optional<tree::doctype> document_doctype;
    /// How many children of the root came before the DOCTYPE (comments may).
    std::size_t document_doctype_position = 0;
    /// Whether elements nested too deeply were placed beside each other at the deepest allowed level.
    bool document_depth_capped = false;
};

/// Parses a whole document from UTF-8 text.
parsed_document parse_document(std::string_view utf8);

/// Parses a fragment as the content of an element with that local name and namespace. The result is
/// "DOC" holding one "html" element whose children are the fragment's nodes.
parsed_document parse_fragment(std::string_view utf8, std::string_view context_name, tree::html_ns context_ns);

} // namespace vellum::html5::parser
