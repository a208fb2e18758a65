// The PDF outline from the bookmarks a packing pass placed: a flat list in document order, nested by
// level, each entry leading to the place on its page where its element's box landed.
#pragma once

#include "pack/pack.hpp"
#include "pdf/navigation.hpp"

#include <vector>

namespace vellum::pdf::bookmarks {

/// Nests bookmarks by level: an entry becomes a child of the nearest earlier entry of a lower level;
/// entries with no such entry stand at the top.
/// A bookmark whose `bookmark_url` is set leads to that web address; the others to their page.
std::vector<outlines::outline> outline_of(std::vector<pack::packed_bookmark> const& flat);

} // namespace vellum::pdf::bookmarks
