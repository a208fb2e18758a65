#include "css/priority.hpp"

namespace vellum::css::priority {

int weight(origin o, bool important) {
    switch (o) {
    case origin::user: return important ? 7 : 2;
    case origin::style_attribute: return important ? 6 : 4;
    case origin::author: return important ? 5 : 3;
    case origin::program: return 1;
    }
    return 0;
}

priority of(declaration const& d, selector::specific s) {
    // Outside any layer ranks above every layer.
    constexpr int unlayered = 1 << 20;
    int const rank = d.layer == 0 ? unlayered : d.layer;
    return {.weight = weight(d.origin, d.important),
            .layer = d.important ? -rank : rank,
            .a = s.a,
            .b = s.b,
            .c = s.c,
            .index = d.index};
}

} // namespace vellum::css::priority
