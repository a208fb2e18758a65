#include "text/unicode/bidi.hpp"

#include "text/unicode/tables.hpp"

namespace vellum::unicode::bidi {

bidi_class bidi_class_of(char32_t cp) {
    return static_cast<bidi_class>(
        tables::lookup(tables::bidi, cp, static_cast<std::uint8_t>(bidi_class::l)));
}

char32_t mirrored(char32_t cp) {
    return tables::map(tables::mirror, cp);
}

} // namespace vellum::unicode::bidi
