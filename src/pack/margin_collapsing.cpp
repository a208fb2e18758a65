#include "pack/margin_collapsing.hpp"

#include "pack/knuth.hpp"

#include "util/ref.hpp"

#include <algorithm>

namespace vellum::pack::margin_collapsing {

gap add_margin(gap const& g, float margin) {
    return std::visit(overloaded{
                          [](margin_eater const& e) -> gap { return e; },
                          [&](normal const& n) -> gap {
                              return normal{.positive = std::max(n.positive, margin),
                                            .negative = std::min(n.negative, margin),
                                            .committed = n.committed,
                                            .after_clearance = n.after_clearance};
                          },
                      },
                      g);
}

float value_of(gap const& g) {
    return std::visit(overloaded{
                          [](margin_eater const&) { return 0.0f; },
                          [](normal const& n) { return n.positive + n.negative; },
                      },
                      g);
}

bool after_clearance(gap const& g) {
    auto const* n = std::get_if<normal>(&g);
    return n && n->after_clearance;
}

areas::areas moved_down(areas::areas a, float h) {
    a.container.top -= h;
    if (!a.available.empty()) {
        a.available.front().top -= h;
        // A band that the move has used up gives way to the next one, which starts no higher than
        // the new top (a line that reached past the bottom of its band beside a float pushes it down).
        while (a.available.size() > 1 && a.available.front().top <= a.available.front().bottom + knuth::tolerance) {
            a.available.erase(a.available.begin());
            a.available.front().top = std::min(a.available.front().top, a.container.top);
        }
    }
    return a;
}

committed_gap commit(gap const& g, areas::areas a) {
    return std::visit(overloaded{
                          [&](margin_eater const& e) { return committed_gap{std::move(a), e}; },
                          [&](normal const& n) {
                              float const v = n.positive + n.negative;
                              float const taken = n.committed.value_or(0);
                              return committed_gap{moved_down(std::move(a), v - taken),
                                                   normal{.positive = n.positive,
                                                          .negative = n.negative,
                                                          .committed = v,
                                                          .after_clearance = n.after_clearance}};
                          },
                      },
                      g);
}

} // namespace vellum::pack::margin_collapsing
