#include "text/unicode/category.hpp"

#include "text/unicode/tables.hpp"
#include "util/result.hpp"

namespace vellum::unicode::category {

general_category category_of(char32_t cp) {
    return static_cast<general_category>(
        tables::lookup(tables::category, cp, static_cast<std::uint8_t>(general_category::category_cn)));
}

char const* category_name(general_category c) {
    static char const* const names[category_count] = {
        "Cc", "Cf", "Cn", "Co", "Cs", "Ll", "Lm", "Lo", "Lt", "Lu", "Mc", "Me", "Mn", "Nd", "Nl",
        "No", "Pc", "Pd", "Pe", "Pf", "Pi", "Po", "Ps", "Sc", "Sk", "Sm", "So", "Zl", "Zp", "Zs",
    };
    auto const i = static_cast<int>(c);
    check(i < category_count, "category_name");
    return names[i];
}

} // namespace vellum::unicode::category
