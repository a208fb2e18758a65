// A debug printer for the HTML parser: tokens as "Token type: ..." lines, trees in the indented
// "| <html>" layout that HTML parser test suites use.
#pragma once

#include "document/html5/parser.hpp"
#include "document/html5/token.hpp"
#include "document/html5/tree.hpp"

#include <string>

namespace vellum::html5::format {

/// One token, as "Token type: START TAG. Name: p." and the like.
std::string format_token(token::token const& t);

/// A node and its descendants, each line "| " and two spaces per level below `depth`.
void format_node(tree::node const& n, int depth, std::string& out);

/// The children of the "DOC" root with the DOCTYPE at its place; lines end with '\n'.
std::string format_document(parser::parsed_document const& doc);

/// The children of the "html" element of a fragment parse.
std::string format_fragment(parser::parsed_document const& doc);

} // namespace vellum::html5::format
