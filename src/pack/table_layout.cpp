#include "pack/table_layout.hpp"

#include "util/ref.hpp"
#include "util/result.hpp"

#include <algorithm>
#include <numeric>
#include <span>

namespace vellum::pack::table_layout {

namespace {

using css::box::auto_value;
using css::units::percentage;

bool is_auto(css::box::width const& w) { return std::holds_alternative<auto_value>(w); }

float const* length_of(css::box::width const& w) { return std::get_if<float>(&w); }

percentage const* percent_of(css::box::width const& w) { return std::get_if<percentage>(&w); }

// The stronger of two declared widths for one column: a percentage beats a length, a length beats
// auto, and of two of a kind the larger wins.
css::box::width stronger(css::box::width const& a, css::box::width const& b) {
    auto const* pa = percent_of(a);
    auto const* pb = percent_of(b);
    if (pa || pb) {
        if (pa && pb) {
            return pa->percentage_value >= pb->percentage_value ? a : b;
        }
        return pa ? a : b;
    }
    auto const* la = length_of(a);
    auto const* lb = length_of(b);
    if (la && lb) {
        return *la >= *lb ? a : b;
    }
    return la ? a : b;
}

void division_by_zero(log::log const& log, char const* step) {
    log::log_error(log, std::string("division by zero: ") + step);
}

// Grows the columns' minimums (or maximums) so that they add up to `need`, the excess shared in
// proportion to the columns' maximums, or equally when those are all zero.
void grow(std::span<distribute::column> cols, float need, bool minimum) {
    float have = 0;
    float weight = 0;
    for (auto const& c : cols) {
        have += minimum ? c.column_minw : c.column_maxw;
        weight += c.column_maxw;
    }
    float const excess = need - have;
    if (excess <= 0.0001f || cols.empty()) {
        return;
    }
    for (auto& c : cols) {
        float const share = weight > 0 ? excess * c.column_maxw / weight : excess / static_cast<float>(cols.size());
        (minimum ? c.column_minw : c.column_maxw) += share;
    }
}

} // namespace

std::vector<distribute::column> auto_columns(log::log const& log,
                                             std::vector<css::box::width> const& col_specs,
                                             std::vector<cell_width> const& cells,
                                             float spacing) {
    std::vector<distribute::column> cols(col_specs.size());
    for (std::size_t i = 0; i < cols.size(); ++i) {
        cols[i].column_specw = col_specs[i];
    }
    int const n = static_cast<int>(cols.size());
    for (auto const& c : cells) {
        if (c.cell_span != 1) {
            continue;
        }
        check(c.cell_start >= 0 && c.cell_start < n, "get_ith_column: item not found");
        auto& col = cols[c.cell_start];
        col.column_minw = std::max(col.column_minw, c.cell_minw);
        col.column_maxw = std::max(col.column_maxw, c.cell_maxw);
        col.column_specw = stronger(col.column_specw, c.cell_specw);
    }
    // A length is a floor for the column's minimum and maximum.
    for (auto& col : cols) {
        if (auto const* l = length_of(col.column_specw)) {
            col.column_minw = std::max(col.column_minw, *l);
            col.column_maxw = std::max(col.column_maxw, *l);
        }
        col.column_maxw = std::max(col.column_maxw, col.column_minw);
    }
    // Percentages add up to 100 at most, in column order; a column that finds none left is automatic.
    float sum = 0;
    for (auto& col : cols) {
        if (auto const* p = percent_of(col.column_specw)) {
            if (sum >= 100) {
                col.column_specw = auto_value{};
                continue;
            }
            float const v = std::min(p->percentage_value, 100 - sum);
            col.column_specw = percentage{v};
            sum += v;
        }
    }

    // Cells spanning columns, narrower spans first.
    std::vector<cell_width const*> spanning;
    for (auto const& c : cells) {
        if (c.cell_span > 1) {
            spanning.push_back(&c);
        }
    }
    std::ranges::stable_sort(spanning, {}, &cell_width::cell_span);
    for (auto const* c : spanning) {
        check(c->cell_start >= 0 && c->cell_start + c->cell_span <= n, "adjust_columns_width: split_list failed.");
        std::span<distribute::column> covered(cols.data() + c->cell_start, static_cast<std::size_t>(c->cell_span));
        float const inner = spacing * static_cast<float>(c->cell_span - 1);
        bool const all_auto = std::ranges::all_of(covered, [](auto const& k) { return is_auto(k.column_specw); });
        bool const none_percent =
            std::ranges::none_of(covered, [](auto const& k) { return percent_of(k.column_specw) != nullptr; });
        if (auto const* l = length_of(c->cell_specw); l && all_auto) {
            // The columns take lengths in proportion to their content, adding up to the cell's.
            float weight = 0;
            for (auto const& k : covered) {
                weight += k.column_maxw;
            }
            if (weight <= 0) {
                division_by_zero(log, "auto_table_layout:auto_to_length");
            }
            for (auto& k : covered) {
                float const share = weight > 0 ? k.column_maxw / weight : 1.0f / static_cast<float>(c->cell_span);
                float const w = std::max(0.0f, *l - inner) * share;
                k.column_specw = w;
                k.column_minw = std::max(k.column_minw, w);
                k.column_maxw = std::max(k.column_maxw, w);
            }
        } else if (auto const* p = percent_of(c->cell_specw); p && none_percent) {
            // The columns take percentages: automatic ones by their content, those of a length by
            // the larger of it and their minimum.
            float weight = 0;
            for (auto const& k : covered) {
                auto const* kl = length_of(k.column_specw);
                weight += kl ? std::max(*kl, k.column_minw) : k.column_maxw;
            }
            if (weight <= 0) {
                division_by_zero(log, all_auto ? "auto_table_layout:auto_to_percent"
                                                : "auto_table_layout:length_auto_to_percent");
            }
            for (auto& k : covered) {
                auto const* kl = length_of(k.column_specw);
                float const w = kl ? std::max(*kl, k.column_minw) : k.column_maxw;
                float const share = weight > 0 ? w / weight : 1.0f / static_cast<float>(c->cell_span);
                k.column_specw = percentage{p->percentage_value * share};
            }
        }
        grow(covered, c->cell_minw - inner, true);
        grow(covered, c->cell_maxw - inner, false);
        for (auto& k : covered) {
            k.column_maxw = std::max(k.column_maxw, k.column_minw);
        }
    }
    return cols;
}

float auto_table_width(std::vector<distribute::column> const& cols,
                       std::optional<float> spec,
                       float available,
                       float spacing_total) {
    float min_sum = spacing_total;
    float max_sum = spacing_total;
    float percent = 0;
    float other_max = 0;
    float want_for_percent = 0;
    for (auto const& c : cols) {
        min_sum += c.column_minw;
        max_sum += c.column_maxw;
        if (auto const* p = percent_of(c.column_specw)) {
            percent += p->percentage_value;
            if (p->percentage_value > 0) {
                want_for_percent = std::max(want_for_percent, c.column_maxw * 100 / p->percentage_value);
            }
        } else {
            other_max += c.column_maxw;
        }
    }
    if (spec) {
        return std::max(*spec, min_sum);
    }
    float want = max_sum;
    if (percent > 0) {
        // The percentage columns get their share only when the others leave it to them.
        if (percent < 100) {
            want = std::max(want, other_max * 100 / (100 - percent) + spacing_total);
        }
        want = std::max(want, want_for_percent + spacing_total);
    }
    return std::max(min_sum, std::min(available, want));
}

std::vector<float> auto_layout(std::vector<distribute::column> cols, float width) {
    auto const used = distribute::distribute(std::move(cols), width);
    std::vector<float> out;
    out.reserve(used.size());
    for (auto const& c : used) {
        out.push_back(c.column_usedw);
    }
    return out;
}

std::vector<float> fixed_layout(log::log const& log,
                                std::vector<css::box::width> const& col_specs,
                                std::vector<cell_width> const& first_row,
                                float width,
                                float spacing) {
    int const n = static_cast<int>(col_specs.size());
    std::vector<std::optional<float>> widths(col_specs.size());
    auto const resolve = [&](css::box::width const& w) -> std::optional<float> {
        if (auto const* l = length_of(w)) {
            return *l;
        }
        if (auto const* p = percent_of(w)) {
            return css::units::percent_of(*p, width);
        }
        return std::nullopt;
    };
    // Columns first; the first row's cells only where the columns say nothing.
    for (int i = 0; i < n; ++i) {
        widths[i] = resolve(col_specs[i]);
    }
    for (auto const& c : first_row) {
        if (c.cell_span < 1) {
            log::log_error(log, "get_cell_widths: Nc error");
            continue;
        }
        check(c.cell_start >= 0 && c.cell_start + c.cell_span <= n, "get cell width failed.");
        auto const w = resolve(c.cell_specw);
        if (!w) {
            continue;
        }
        float const each = std::max(0.0f, *w - spacing * static_cast<float>(c.cell_span - 1)) /
                           static_cast<float>(c.cell_span);
        for (int k = 0; k < c.cell_span; ++k) {
            if (!widths[c.cell_start + k]) {
                widths[c.cell_start + k] = each;
            }
        }
    }
    float set = 0;
    int open = 0;
    for (auto const& w : widths) {
        if (w) {
            set += *w;
        } else {
            ++open;
        }
    }
    std::vector<float> out(col_specs.size());
    float const left = std::max(0.0f, width - set);
    for (int i = 0; i < n; ++i) {
        out[i] = widths[i] ? *widths[i] : left / static_cast<float>(open);
    }
    // Columns that all have widths and fall short of the table's share the rest by their widths.
    if (open == 0 && set > 0 && set < width) {
        for (auto& w : out) {
            w *= width / set;
        }
    }
    return out;
}

} // namespace vellum::pack::table_layout
