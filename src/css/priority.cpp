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
    return {weight(d.origin, d.important), s.a, s.b, s.c, d.index};
}

} // namespace vellum::css::priority
