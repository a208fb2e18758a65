// The HTML5 parser's node tree read into the plain tree: whole documents, and fragments for innerHTML.
#pragma once

#include "document/html5/tree.hpp"
#include "document/xml.hpp"
#include "driver/log.hpp"
#include "resource/locator.hpp"
#include "util/bytes.hpp"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vellum::libhtml {

/// The namespace of a parser node or attribute as a plain-tree namespace; nothing for no namespace.
[[nodiscard]] std::optional<xml::xmlns> xmlns_of_html_ns(html5::tree::html_ns ns);

/// Converts the parser's tree, whose root must be "DOC" in no namespace with exactly one element child;
/// internal error "unexpected HTML parse result" otherwise.
xml::document convert_document(html5::tree::node const& root, resource::locator::locator const& url);

/// Parses HTML bytes: converts them to UTF-8 by byte-order mark, then by the encoding the transport named
/// if there is one, else by meta declaration; parses and converts. A failed conversion is logged at level
/// error with the locator as source.
[[nodiscard]] std::optional<xml::document> parse_html5_bytes(log::log const& log,
                                                             resource::locator::locator const& url,
                                                             bytes::bytes const& data,
                                                             std::optional<std::string> const& transport_charset = {});

/// Parses UTF-8 text as the content of an element of that name and namespace; the nodes it makes.
/// Internal error "unexpected innerHTML parse result" when the parser's answer has another shape.
std::vector<xml::xml>
parse_inner_html(std::string_view utf8, std::string_view context_name, html5::tree::html_ns context_ns);

} // namespace vellum::libhtml
