#include "text/unicode.hpp"

#include "text/unicode/category.hpp"
#include "text/unicode/tables.hpp"

namespace vellum::unicode {

using category::general_category;

std::string_view data_version() {
    return tables::version;
}

bool is_punctuation(unicode cp) {
    switch (category::category_of(cp)) {
    case general_category::category_pc:
    case general_category::category_pd:
    case general_category::category_ps:
    case general_category::category_pe:
    case general_category::category_pi:
    case general_category::category_pf:
    case general_category::category_po:
        return true;
    default:
        return false;
    }
}

bool is_letter_mark_or_number(unicode cp) {
    switch (category::category_of(cp)) {
    case general_category::category_lu:
    case general_category::category_ll:
    case general_category::category_lt:
    case general_category::category_lm:
    case general_category::category_lo:
    case general_category::category_mn:
    case general_category::category_mc:
    case general_category::category_me:
    case general_category::category_nd:
    case general_category::category_nl:
    case general_category::category_no:
        return true;
    default:
        return false;
    }
}

unicode to_lower(unicode cp) {
    return tables::map(tables::lower, cp);
}

unicode to_upper(unicode cp) {
    return tables::map(tables::upper, cp);
}

unicodes to_lower(std::u32string_view text) {
    unicodes out(text);
    for (auto& cp : out) {
        cp = to_lower(cp);
    }
    return out;
}

unicodes to_upper(std::u32string_view text) {
    unicodes out(text);
    for (auto& cp : out) {
        cp = to_upper(cp);
    }
    return out;
}

} // namespace vellum::unicode
