// Fallback by coverage: when none of a request's faces has a character, the system faces that have it
// are asked of fontconfig, best first for the style and weight wanted. The faces found are remembered
// per style, so the rest of a paragraph in the same script finds its face without asking again.
#pragma once

#include "text/fonts/font_system.hpp"
#include "text/fonts/fonts.hpp"
#include "text/fonts/match.hpp"

#include <cstddef>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace vellum::fonts::coverage {

/// What the search by coverage has learnt in a run.
struct coverage_state {
    /// The faces found so far for each (style, weight) asked, in the order found.
    std::map<std::pair<int, int>, std::vector<font_cache_ref>> coverage_faces;
    /// Characters that fontconfig has no face for: not asked again.
    std::set<char32_t> coverage_none;
    /// Characters shown by a substitute since the last summary.
    std::set<char32_t> coverage_missing;
};

/// The TrueType and CFF faces whose character set holds `c`, at most `limit`, in the order of
/// fontconfig's sort for a pattern of that character with the style and weight asked. Colour (bitmap
/// emoji) faces are left out: they have no outlines to embed.
std::vector<font_system::system_face> faces_for_char(font_system::font_system const& fs,
                                                     char32_t c,
                                                     match::font_style style,
                                                     truetype::truetype_weight weight,
                                                     std::size_t limit);

/// The summary of characters that no face had: "no glyphs for 3 characters, shown as '?': U+0F00,
/// U+0F01, U+0F02"; after `shown` code points the rest is counted, as in "and 12 more".
std::string missing_summary(std::set<char32_t> const& missing, std::size_t shown = 8);

} // namespace vellum::fonts::coverage
