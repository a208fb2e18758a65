#include "mathml/mathstyle.hpp"

#include "text/fonts/query.hpp"

#include <algorithm>
#include <cmath>

namespace vellum::mathml::mathstyle {

mathstyle initial(ref<css::style::style> const& css) {
    mathstyle s;
    s.css_style = css;
    if (css) {
        s.color = css->color;
        s.fontsize = css->font_size > 0 ? css->font_size : 12;
        if (css->font_props) {
            s.fontquery = fonts::query::query_of(*css->font_props);
        }
    }
    return s;
}

mathstyle with_scriptlevel(mathstyle s, int change) {
    if (change == 0) {
        return s;
    }
    s.scriptlevel += change;
    double const scaled = s.fontsize * std::pow(s.scriptsizemultiplier, change);
    if (change > 0) {
        // Shrinking stops at the minimum size; a size already below it stays as it is.
        s.fontsize = std::max(scaled, std::min(s.fontsize, s.scriptminsize));
    } else {
        s.fontsize = scaled;
    }
    return s;
}

mathstyle for_script(mathstyle s, int change) {
    s.displaystyle = false;
    return with_scriptlevel(std::move(s), change);
}

} // namespace vellum::mathml::mathstyle
