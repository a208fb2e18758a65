// The box tree as indented text, one box or span per line, for tests and for looking at what box
// generation made of a document.
#pragma once

#include "prepack/prepack.hpp"

#include <string>
#include <string_view>

namespace vellum::prepack::dump {

/// Every section, block and span of a document, two spaces deeper per level.
std::string dump_document(pack_document const& doc);

/// The spans of a paragraph whose text is `text`, starting at the given depth.
std::string dump_spans(std::vector<span> const& spans, std::u32string_view text, int depth = 0);

} // namespace vellum::prepack::dump
