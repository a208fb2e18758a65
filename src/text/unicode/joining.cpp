#include "text/unicode/joining.hpp"

#include "text/unicode/tables.hpp"

namespace vellum::unicode::joining {

joining_class joining_class_of(char32_t cp) {
    return static_cast<joining_class>(
        tables::lookup(tables::joining, cp, static_cast<std::uint8_t>(joining_class::jc_non_joining)));
}

} // namespace vellum::unicode::joining
