// `Number` and the members of `Number.prototype`, and the `Math` object.
#include "js/builtins.hpp"
#include "util/result.hpp"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <numbers>
#include <string>

namespace vellum::js::eval::builtins {

namespace {

constexpr double nan_value = std::numeric_limits<double>::quiet_NaN();

exception range_error(js& engine, char const* what) {
    return throw_error(engine, js_error_res{.error_kind = js_error::range_error, .error_detail = text(what)});
}

expr_res<number> this_number(call_info const& c) {
    if (auto const* n = this_primitive(c.this_value, &class_number::number_value)) {
        return *n;
    }
    return throw_error(c.engine, js_error::not_number);
}

char digit_char(int d) {
    return static_cast<char>(d < 10 ? '0' + d : 'a' + d - 10);
}

// The text of a number in a radix other than ten: the whole part exactly, the fraction to as many
// digits as a double's 52 bits of fraction can say.
std::string radix_text(number n, int radix) {
    if (auto const* i = std::get_if<std::int64_t>(&n)) {
        std::uint64_t u = *i < 0 ? 0 - static_cast<std::uint64_t>(*i) : static_cast<std::uint64_t>(*i);
        std::string digits;
        do {
            digits.push_back(digit_char(static_cast<int>(u % static_cast<std::uint64_t>(radix))));
            u /= static_cast<std::uint64_t>(radix);
        } while (u != 0);
        if (*i < 0) {
            digits.push_back('-');
        }
        return std::string(digits.rbegin(), digits.rend());
    }
    double d = std::get<double>(n);
    if (std::isnan(d) || std::isinf(d)) {
        return number_to_string(n);
    }
    bool const negative = d < 0;
    d = std::abs(d);
    double whole = std::floor(d);
    double fraction = d - whole;
    std::string reversed;
    do {
        reversed.push_back(digit_char(static_cast<int>(std::fmod(whole, radix))));
        whole = std::floor(whole / radix);
    } while (whole >= 1);
    if (negative) {
        reversed.push_back('-');
    }
    std::string digits(reversed.rbegin(), reversed.rend());
    if (fraction > 0) {
        digits.push_back('.');
        int const max_digits = static_cast<int>(std::ceil(52 / std::log2(radix)));
        for (int k = 0; k < max_digits && fraction > 0; ++k) {
            fraction *= radix;
            int const digit = static_cast<int>(std::floor(fraction));
            digits.push_back(digit_char(digit));
            fraction -= digit;
        }
    }
    return digits;
}

expr_res<js_value> number_to_radix_string(call_info const& c, number n) {
    if (std::holds_alternative<js_undefined>(c.arg(0))) {
        return number_to_js_string(n);
    }
    double radix = 0;
    if (auto e = take(to_integer(c.engine, c.arg(0)), radix)) {
        return *e;
    }
    if (radix < 2 || radix > 36) {
        return range_error(c.engine, "toString() radix must be between 2 and 36");
    }
    if (radix == 10) {
        return number_to_js_string(n);
    }
    return text(radix_text(n, static_cast<int>(radix)));
}

// toFixed: the value times ten to the digits, taken to the nearer of its floor and ceiling (the larger
// on a tie), printed as a whole number, with the decimal point put back that many places from the right.
expr_res<js_value> to_fixed(call_info const& c, number n) {
    double digits = 0;
    if (auto e = take(to_integer(c.engine, c.arg(0)), digits)) {
        return *e;
    }
    if (digits < 0 || digits > 20) {
        return range_error(c.engine, "toFixed() digits must be between 0 and 20");
    }
    double x = to_double(n);
    if (std::isnan(x)) {
        return text("NaN");
    }
    if (std::abs(x) >= 1e21) {
        return number_to_js_string(n);
    }
    bool const negative = x < 0;
    x = std::abs(x);
    auto const f = static_cast<int>(digits);
    double const scaled = x * std::pow(10.0, f);
    double const lo = std::floor(scaled);
    double const hi = std::ceil(scaled);
    double const chosen = scaled - lo < hi - scaled ? lo : hi;
    char buf[128];
    std::snprintf(buf, sizeof buf, "%.0f", chosen);
    std::string m = buf;
    auto const places = static_cast<std::size_t>(f);
    if (places > 0) {
        std::string const padded = m.size() <= places ? std::string(places + 1 - m.size(), '0') + m : m;
        std::size_t const point = padded.size() - places;
        m = padded.substr(0, point) + "." + padded.substr(point);
    }
    return text((negative ? "-" : "") + m);
}

expr_res<js_value> min_max(call_info const& c, bool is_max) {
    std::vector<number> values;
    for (auto const& v : c.args) {
        number n;
        if (auto e = take(to_number(c.engine, v), n)) {
            return *e;
        }
        values.push_back(n);
    }
    if (values.empty()) {
        return number{is_max ? -std::numeric_limits<double>::infinity()
                             : std::numeric_limits<double>::infinity()};
    }
    number best = values[0];
    for (number const& n : values) {
        if (is_nan(n)) {
            return number{nan_value};
        }
        auto const beyond = is_max ? less_than_numbers(best, n) : less_than_numbers(n, best);
        // Zeros compare equal, but +0 is the larger.
        double const b = to_double(best);
        double const d = to_double(n);
        bool const zero_sign =
            b == 0 && d == 0 &&
            (is_max ? std::signbit(b) && !std::signbit(d) : !std::signbit(b) && std::signbit(d));
        if (beyond == relational_comparison_res::relational_true || zero_sign) {
            best = n;
        }
    }
    return best;
}

double round_half_up(double d) {
    if (std::isnan(d) || std::isinf(d) || d == 0) {
        return d;
    }
    if (d < 0 && d >= -0.5) {
        return -0.0;
    }
    double const down = std::floor(d);
    return d - down >= 0.5 ? down + 1 : down;
}

double power(double x, double y) {
    if (std::isnan(y)) {
        return nan_value;
    }
    if (std::abs(x) == 1 && std::isinf(y)) {
        return nan_value;
    }
    return std::pow(x, y);
}

// A function of Math of one argument. Whole numbers stay integers under abs, floor, ceil and round.
expr_res<js_value> math_unary(call_info const& c, number_func f, double (*op)(double)) {
    number n;
    if (auto e = take(to_number(c.engine, c.arg(0)), n)) {
        return *e;
    }
    if (auto const* i = std::get_if<std::int64_t>(&n)) {
        if (f == number_func::math_floor || f == number_func::math_ceil || f == number_func::math_round) {
            return n;
        }
        if (f == number_func::math_abs && *i != std::numeric_limits<std::int64_t>::min()) {
            return int_value(*i < 0 ? -*i : *i);
        }
    }
    return number{op(to_double(n))};
}

expr_res<js_value> math_binary(call_info const& c, double (*op)(double, double)) {
    double x = 0;
    double y = 0;
    if (auto e = take(to_double_value(c.engine, c.arg(0)), x)) {
        return *e;
    }
    if (auto e = take(to_double_value(c.engine, c.arg(1)), y)) {
        return *e;
    }
    return number{op(x, y)};
}

expr_res<js_value> number_member(call_info const& c, number_func f) {
    number n;
    if (auto e = take(this_number(c), n)) {
        return *e;
    }
    if (f == number_func::number_value_of) {
        return n;
    }
    return f == number_func::number_to_fixed ? to_fixed(c, n) : number_to_radix_string(c, n);
}

} // namespace

expr_res<js_value> call_number(call_info const& c, number_func f) {
    switch (f) {
    case number_func::number_constructor: {
        number n{std::int64_t{0}};
        if (!c.args.empty()) {
            if (auto e = take(to_number(c.engine, c.arg(0)), n)) {
                return *e;
            }
        }
        if (!c.constructing) {
            return n;
        }
        return new_object_of(c.engine, class_number{.number_value = n},
                             yes_proto{.proto = c.engine.number_prototype});
    }
    case number_func::number_to_string:
    case number_func::number_value_of:
    case number_func::number_to_fixed:
        return number_member(c, f);
    case number_func::math_max:
    case number_func::math_min:
        return min_max(c, f == number_func::math_max);
    case number_func::math_random:
        return number{static_cast<double>(std::rand()) / 2147483649.0};
    case number_func::math_seed_random: {
        number seed;
        if (auto e = take(to_number(c.engine, c.arg(0)), seed)) {
            return *e;
        }
        std::srand(number_to_uint32(seed));
        return undefined();
    }
    case number_func::math_abs:
        return math_unary(c, f, [](double x) { return std::abs(x); });
    case number_func::math_acos:
        return math_unary(c, f, [](double x) { return std::acos(x); });
    case number_func::math_asin:
        return math_unary(c, f, [](double x) { return std::asin(x); });
    case number_func::math_atan:
        return math_unary(c, f, [](double x) { return std::atan(x); });
    case number_func::math_ceil:
        return math_unary(c, f, [](double x) { return std::ceil(x); });
    case number_func::math_cos:
        return math_unary(c, f, [](double x) { return std::cos(x); });
    case number_func::math_exp:
        return math_unary(c, f, [](double x) { return std::exp(x); });
    case number_func::math_floor:
        return math_unary(c, f, [](double x) { return std::floor(x); });
    case number_func::math_log:
        return math_unary(c, f, [](double x) { return std::log(x); });
    case number_func::math_round:
        return math_unary(c, f, round_half_up);
    case number_func::math_sin:
        return math_unary(c, f, [](double x) { return std::sin(x); });
    case number_func::math_sqrt:
        return math_unary(c, f, [](double x) { return std::sqrt(x); });
    case number_func::math_tan:
        return math_unary(c, f, [](double x) { return std::tan(x); });
    case number_func::math_atan2:
        return math_binary(c, [](double y, double x) { return std::atan2(y, x); });
    case number_func::math_pow:
        return math_binary(c, power);
    }
    throw internal_error("call_number: unexpected function.");
}

void install_number(js& engine) {
    js_object const ctor =
        define_constructor(engine, "Number", standard_func{.standard_kind = number_func::number_constructor},
                           1, engine.number_prototype);
    double const inf = std::numeric_limits<double>::infinity();
    define_value(ctor, "POSITIVE_INFINITY", number{inf}, constant);
    define_value(ctor, "NEGATIVE_INFINITY", number{-inf}, constant);
    define_method(engine, engine.number_prototype, "toString",
                  standard_func{.standard_kind = number_func::number_to_string}, 1);
    define_method(engine, engine.number_prototype, "valueOf",
                  standard_func{.standard_kind = number_func::number_value_of}, 0);
    define_method(engine, engine.number_prototype, "toFixed",
                  standard_func{.standard_kind = number_func::number_to_fixed}, 1);

    js_object const math_object = new_object_of(engine, class_special{.special_name = "Math"},
                                                yes_proto{.proto = engine.object_prototype});
    define_value(engine.global_object, "Math", math_object, hidden);

    struct constant_entry {
        char const* name;
        double value;
    };

    static constexpr constant_entry constants[] = {
        {"E", std::numbers::e},
        {"LN10", std::numbers::ln10},
        {"LN2", std::numbers::ln2},
        {"LOG2E", std::numbers::log2e},
        {"LOG10E", std::numbers::log10e},
        {"PI", std::numbers::pi},
        {"SQRT1_2", 0.70710678118654752440},
        {"SQRT2", std::numbers::sqrt2},
    };
    for (auto const& k : constants) {
        define_value(math_object, k.name, number{k.value}, constant);
    }
    define_methods(engine, math_object,
                   {
                       {"abs", {number_func::math_abs}, 1},
                       {"acos", {number_func::math_acos}, 1},
                       {"asin", {number_func::math_asin}, 1},
                       {"atan", {number_func::math_atan}, 1},
                       {"atan2", {number_func::math_atan2}, 2},
                       {"ceil", {number_func::math_ceil}, 1},
                       {"cos", {number_func::math_cos}, 1},
                       {"exp", {number_func::math_exp}, 1},
                       {"floor", {number_func::math_floor}, 1},
                       {"log", {number_func::math_log}, 1},
                       {"max", {number_func::math_max}, 2},
                       {"min", {number_func::math_min}, 2},
                       {"pow", {number_func::math_pow}, 2},
                       {"random", {number_func::math_random}, 0},
                       {"seedRandom", {number_func::math_seed_random}, 1},
                       {"round", {number_func::math_round}, 1},
                       {"sin", {number_func::math_sin}, 1},
                       {"sqrt", {number_func::math_sqrt}, 1},
                       {"tan", {number_func::math_tan}, 1},
                   });
}

} // namespace vellum::js::eval::builtins
