#include "text/grapheme_boundary.hpp"

#include "text/unicode/tables.hpp"

namespace vellum::grapheme_boundary {

grapheme_class get_grapheme_break_class(char32_t cp) {
    return static_cast<grapheme_class>(unicode::tables::lookup(
        unicode::tables::grapheme, cp, static_cast<std::uint8_t>(grapheme_class::control_cr_lf)));
}

bool grapheme_break(grapheme_class left, grapheme_class right) {
    // Controls stand alone, so CR and LF are two graphemes; marks cling to whatever precedes them; and
    // a run of regional indicators stays in one piece however long it is.
    if (left == grapheme_class::control_cr_lf || right == grapheme_class::control_cr_lf) {
        return true;
    }
    if (right == grapheme_class::extend_spacingmark) {
        return false;
    }
    if (left == grapheme_class::regional_indicator && right == grapheme_class::regional_indicator) {
        return false;
    }
    return true;
}

std::size_t grapheme_end(std::u32string_view text, std::size_t start) {
    if (start >= text.size()) {
        return text.size();
    }
    auto left = get_grapheme_break_class(text[start]);
    auto i = start + 1;
    while (i < text.size()) {
        auto const right = get_grapheme_break_class(text[i]);
        if (grapheme_break(left, right)) {
            break;
        }
        left = right;
        ++i;
    }
    return i;
}

} // namespace vellum::grapheme_boundary
