#include "text/unicode/vertical.hpp"

#include "text/unicode/tables.hpp"

namespace vellum::unicode::vertical {

orientation orientation_of(char32_t cp) {
    return static_cast<orientation>(
        tables::lookup(tables::vertical, cp, static_cast<std::uint8_t>(orientation::rotated)));
}

bool stays_upright(char32_t cp) {
    auto const o = orientation_of(cp);
    return o == orientation::upright || o == orientation::transformed_upright;
}

} // namespace vellum::unicode::vertical
