#include "css/units.hpp"

#include <array>
#include <numbers>
#include <string_view>
#include <utility>
#include <vector>

namespace vellum::css::units {

namespace {

constexpr std::array<std::pair<std::string_view, length_unit>, 9> unit_names{{
    {"cm", length_unit::cm},
    {"in", length_unit::in},
    {"mm", length_unit::mm},
    {"q", length_unit::q},
    {"pc", length_unit::pc},
    {"pt", length_unit::pt},
    {"em", length_unit::em},
    {"ex", length_unit::ex},
    {"px", length_unit::px},
}};

bool is_zero(value::value const& v) {
    auto const* n = std::get_if<value::number>(&v);
    return n && number_as_double(n->number_value) == 0;
}

} // namespace

std::optional<length_unit> unit_of(std::string_view name) {
    for (auto const& [n, u] : unit_names) {
        if (n == name) {
            return u;
        }
    }
    return std::nullopt;
}

length make_length(double n, length_unit unit) {
    switch (unit) {
    case length_unit::in:
        return points{static_cast<float>(n * 72)};
    case length_unit::cm:
        return points{static_cast<float>(n / 2.54 * 72)};
    case length_unit::mm:
        return points{static_cast<float>(n / 25.4 * 72)};
    case length_unit::q:
        // A quarter of a millimetre.
        return points{static_cast<float>(n / 101.6 * 72)};
    case length_unit::pc:
        return points{static_cast<float>(n * 12)};
    case length_unit::pt:
        return points{static_cast<float>(n)};
    case length_unit::em:
        return font_em{static_cast<float>(n)};
    case length_unit::ex:
        return font_ex{static_cast<float>(n)};
    case length_unit::px:
        return pixels{static_cast<float>(n)};
    }
    return points{};
}

std::optional<length> length_from_value(value::value const& v) {
    if (is_zero(v)) {
        return points{0};
    }
    auto const* d = std::get_if<value::dimension>(&v);
    if (!d) {
        return std::nullopt;
    }
    auto const unit = unit_of(d->dimension_unit);
    if (!unit) {
        return std::nullopt;
    }
    return make_length(number_as_double(d->dimension_value), *unit);
}

std::optional<length_percent> length_percent_from_value(value::value const& v) {
    if (auto const* p = std::get_if<value::percent>(&v)) {
        return percentage{static_cast<float>(number_as_double(p->percent_value))};
    }
    // A math function that mixed a percentage with a length: the percentage and the length in points,
    // and the bounds in points that min(), max() or clamp() put on it.
    if (auto const* f = std::get_if<value::function>(&v);
        f != nullptr && f->function_name == "-vellum-calc" &&
        (f->function_args.size() == 2 || f->function_args.size() == 4)) {
        auto const* p = std::get_if<value::percent>(&f->function_args[0]);
        std::vector<float> pts;
        for (std::size_t i = 1; i < f->function_args.size(); ++i) {
            auto const l = length_from_value(f->function_args[i]);
            auto const* in_points = l ? std::get_if<points>(&*l) : nullptr;
            if (in_points == nullptr) {
                return std::nullopt;
            }
            pts.push_back(in_points->points_value);
        }
        if (p != nullptr) {
            percentage out{static_cast<float>(number_as_double(p->percent_value)), pts[0]};
            if (pts.size() == 3) {
                out.percentage_min = pts[1];
                out.percentage_max = pts[2];
            }
            return out;
        }
    }
    if (auto l = length_from_value(v)) {
        return *l;
    }
    return std::nullopt;
}

std::optional<float> angle_from_value(value::value const& v) {
    if (is_zero(v)) {
        return 0.0f;
    }
    auto const* d = std::get_if<value::dimension>(&v);
    if (!d) {
        return std::nullopt;
    }
    double const n = number_as_double(d->dimension_value);
    double const pi = std::numbers::pi;
    if (d->dimension_unit == "deg") {
        return static_cast<float>(n * pi / 180);
    }
    if (d->dimension_unit == "rad") {
        return static_cast<float>(n);
    }
    if (d->dimension_unit == "grad") {
        return static_cast<float>(n * pi / 200);
    }
    if (d->dimension_unit == "turn") {
        return static_cast<float>(n * 2 * pi);
    }
    return std::nullopt;
}

std::optional<double> number_from_value(value::value const& v) {
    if (auto const* n = std::get_if<value::number>(&v)) {
        return number_as_double(n->number_value);
    }
    return std::nullopt;
}

std::optional<int> integer_from_value(value::value const& v) {
    if (auto const* n = std::get_if<value::number>(&v)) {
        if (auto const* i = std::get_if<int>(&n->number_value)) {
            return *i;
        }
    }
    return std::nullopt;
}

float to_points(length const& l, resolution const& r) {
    return std::visit(overloaded{
                          [](points const& p) { return p.points_value; },
                          [&](font_em const& e) { return e.em_value * r.resolution_font_size; },
                          [&](font_ex const& e) { return e.ex_value * r.resolution_font_size * 0.5f; },
                          [&](pixels const& p) { return p.pixels_value * 72 / r.resolution_dpi; },
                      },
                      l);
}

} // namespace vellum::css::units
