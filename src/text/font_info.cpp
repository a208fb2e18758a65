#include "text/font_info.hpp"

namespace vellum::font_info {

std::string describe(font_info const& info) {
    if (info.style_name && !info.style_name->empty()) {
        return info.family_name + " " + *info.style_name;
    }
    return info.family_name;
}

} // namespace vellum::font_info
