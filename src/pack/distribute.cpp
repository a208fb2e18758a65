#include "pack/distribute.hpp"

#include "util/ref.hpp"

#include <algorithm>

namespace vellum::pack::distribute {

namespace {

// Widths within this of each other count as equal, as everywhere in layout.
constexpr float tolerance = 0.0001f;

enum class kind { percent, length, auto_ };

kind kind_of(column const& c) {
    return std::visit(overloaded{
                          [](css::box::auto_value const&) { return kind::auto_; },
                          [](float) { return kind::length; },
                          [](css::units::percentage const&) { return kind::percent; },
                      },
                      c.column_specw);
}

// What a column asks for within its kind: its percentage, its length, or for an automatic column the
// width of its content unwrapped.
float amount(column const& c) {
    return std::visit(overloaded{
                          [&](css::box::auto_value const&) { return c.column_maxw; },
                          [](float w) { return w; },
                          [](css::units::percentage const& p) { return p.percentage_value; },
                      },
                      c.column_specw);
}

float used_sum(std::vector<column> const& cols) {
    float s = 0;
    for (auto const& c : cols) {
        s += c.column_usedw;
    }
    return s;
}

struct totals {
    int count = 0;
    /// Of them, those whose width isn't settled.
    int open = 0;
    /// What the columns still open ask for.
    float asked = 0;
    /// What the columns still open have now.
    float used = 0;
};

totals totals_of(std::vector<column> const& cols, kind k) {
    totals t;
    for (auto const& c : cols) {
        if (kind_of(c) != k) {
            continue;
        }
        ++t.count;
        if (!c.column_final) {
            ++t.open;
            t.asked += amount(c);
            t.used += c.column_usedw;
        }
    }
    return t;
}

// Shares `room` among the open columns of a kind in proportion to what each asks for. A column whose
// share falls short of its minimum is held at the minimum and leaves the sharing, and the others
// share again what is left, until every share is at least its column's minimum.
void share(std::vector<column>& cols, kind k, float room, float asked) {
    while (asked > 0) {
        bool short_of_min = false;
        for (auto& c : cols) {
            if (kind_of(c) == k && !c.column_final) {
                c.column_usedw = amount(c) * room / asked;
                short_of_min = short_of_min || c.column_usedw < c.column_minw - tolerance;
            }
        }
        if (!short_of_min) {
            return;
        }
        asked = 0;
        for (auto& c : cols) {
            if (kind_of(c) != k || c.column_final) {
                continue;
            }
            if (c.column_usedw < c.column_minw - tolerance) {
                c.column_usedw = c.column_minw;
                c.column_final = true;
                room -= c.column_minw;
            } else {
                asked += amount(c);
            }
        }
    }
}

} // namespace

std::vector<column> distribute(std::vector<column> cols, float width) {
    for (auto& c : cols) {
        if (!c.column_final) {
            c.column_usedw = c.column_minw;
        }
    }
    if (used_sum(cols) >= width) {
        return cols;
    }
    auto const percent = totals_of(cols, kind::percent);
    auto const length = totals_of(cols, kind::length);
    auto const automatic = totals_of(cols, kind::auto_);

    // Percentages first: alone they take all the width; beside other columns no more than they ask.
    if (percent.count > 0 && percent.asked > 0) {
        float room = percent.used + (width - used_sum(cols));
        if (length.count > 0 || automatic.count > 0) {
            room = std::min(room, width * percent.asked / 100);
        }
        share(cols, kind::percent, room, percent.asked);
    }
    // Lengths next: the rest of the width when no automatic column would take it, else what they ask.
    if (auto const t = totals_of(cols, kind::length); t.count > 0 && t.asked > 0) {
        float room = t.used + (width - used_sum(cols));
        if (automatic.count > 0) {
            room = std::min(room, t.asked);
        }
        share(cols, kind::length, room, t.asked);
    }
    // Automatic columns take what is left, by the width of their content, or in equal parts when
    // their content has no width.
    if (auto const t = totals_of(cols, kind::auto_); t.open > 0) {
        float const left = width - used_sum(cols);
        if (t.asked <= 0) {
            for (auto& c : cols) {
                if (kind_of(c) == kind::auto_ && !c.column_final) {
                    c.column_usedw += left / static_cast<float>(t.open);
                }
            }
        } else {
            share(cols, kind::auto_, t.used + left, t.asked);
        }
    }
    return cols;
}

} // namespace vellum::pack::distribute
