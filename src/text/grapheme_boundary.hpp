// Where one grapheme ends and the next begins, by a deliberately small rule over four classes: fonts
// keep a base and its marks together, and regional indicator pairs (flags) in one piece.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace vellum::grapheme_boundary {

/// The grapheme classes, in this order: controls and separators (including CR and LF), characters that
/// join the grapheme before them (extending and spacing marks, ZWJ), regional indicators, and the rest.
enum class grapheme_class : std::uint8_t {
    control_cr_lf,
    extend_spacingmark,
    regional_indicator,
    other,
};

/// The class of a code point: by general category, with the Grapheme_Cluster_Break property deciding for
/// the categories where the category says too little (Lm, Mc, Me, Zs, Cf, Cn, and Sk for the emoji
/// skin-tone modifiers) and for regional indicators.
grapheme_class get_grapheme_break_class(char32_t cp);

/// Whether a grapheme boundary lies between two code points of these classes.
bool grapheme_break(grapheme_class left, grapheme_class right);

/// The index just past the grapheme that starts at `start`; text.size() at most.
std::size_t grapheme_end(std::u32string_view text, std::size_t start);

} // namespace vellum::grapheme_boundary
