#include "text/shaping/indic.hpp"

namespace vellum::shaping::indic {

bool is_indic(unicode::script::script s) {
    using unicode::script::script;
    switch (s) {
    case script::deva:
    case script::beng:
    case script::gujr:
    case script::guru:
    case script::knda:
    case script::mlym:
    case script::orya:
    case script::taml:
    case script::telu:
        return true;
    default:
        return false;
    }
}

void initial_reordering(buffer::glyphs&, unicode::script::script, masks const&, would_substitute const&) {}

void final_reordering(buffer::glyphs&, unicode::script::script, masks const&) {}

} // namespace vellum::shaping::indic
