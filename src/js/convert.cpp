#include "js/convert.hpp"

#include "js/engine.hpp"
#include "js/errors.hpp"
#include "js/object.hpp"
#include "util/ref.hpp"
#include "util/result.hpp"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <utility>

namespace vellum::js::eval {

namespace {

constexpr double nan_value = std::numeric_limits<double>::quiet_NaN();

// -1, 0 or 1 as i is below, equal to or above d, exactly (d is not NaN). A double holds integers beyond
// 2^53 only approximately, so converting the integer to a double would confuse neighbours.
int compare_int_double(std::int64_t i, double d) {
    if (d >= 9223372036854775808.0) {
        return -1;
    }
    if (d < -9223372036854775808.0) {
        return 1;
    }
    double const t = std::trunc(d);
    auto const ti = static_cast<std::int64_t>(t);
    if (i != ti) {
        return i < ti ? -1 : 1;
    }
    if (d > t) {
        return -1;
    }
    return d < t ? 1 : 0;
}

// The comparison of two numbers as -1, 0, 1, or none when NaN is involved.
std::optional<int> compare_numbers(number a, number b) {
    auto const* ia = std::get_if<std::int64_t>(&a);
    auto const* ib = std::get_if<std::int64_t>(&b);
    if (ia && ib) {
        return *ia < *ib ? -1 : (*ia > *ib ? 1 : 0);
    }
    if (is_nan(a) || is_nan(b)) {
        return std::nullopt;
    }
    if (ia) {
        return compare_int_double(*ia, std::get<double>(b));
    }
    if (ib) {
        return -compare_int_double(*ib, std::get<double>(a));
    }
    double const da = std::get<double>(a);
    double const db = std::get<double>(b);
    return da < db ? -1 : (da > db ? 1 : 0);
}

std::int64_t wrap(std::uint64_t u) {
    return static_cast<std::int64_t>(u);
}

// Applies f to a result's value, passing a thrown value on.
template <class T, class F>
auto then(expr_res<T> r, F&& f) -> decltype(f(std::move(std::get<T>(r)))) {
    if (auto* e = std::get_if<exception>(&r)) {
        return *e;
    }
    return f(std::move(std::get<T>(r)));
}

// Both operands as numbers, the left converted first; a throw from either is passed on.
expr_res<std::pair<number, number>> two_numbers(js& engine, js_value const& a, js_value const& b) {
    auto na = to_number(engine, a);
    if (auto const* e = std::get_if<exception>(&na)) {
        return *e;
    }
    auto nb = to_number(engine, b);
    if (auto const* e = std::get_if<exception>(&nb)) {
        return *e;
    }
    return std::pair{std::get<number>(na), std::get<number>(nb)};
}

} // namespace

expr_res<js_value> to_primitive(js& engine, js_value const& v, std::optional<preferred_type> hint) {
    auto const* o = std::get_if<js_object>(&v);
    if (o == nullptr) {
        return v;
    }
    preferred_type const pref =
        hint.value_or(std::holds_alternative<class_date>((*o)->obj_class) ? preferred_type::prefer_string
                                                                            : preferred_type::prefer_number);
    char const* const order[2] = {pref == preferred_type::prefer_string ? "toString" : "valueOf",
                                  pref == preferred_type::prefer_string ? "valueOf" : "toString"};
    for (char const* name : order) {
        auto f = get(engine, *o, key_of_utf8(name));
        if (auto const* e = std::get_if<exception>(&f)) {
            return *e;
        }
        auto const* fo = std::get_if<js_object>(&std::get<js_value>(f));
        if (fo == nullptr || function_of(*fo) == nullptr) {
            continue;
        }
        auto r = call(engine, v, *fo, {});
        if (is_exception(r) || !std::holds_alternative<js_object>(std::get<js_value>(r))) {
            return r;
        }
    }
    return exception{.exception_value = new_error(engine, native_error::type_error,
                                                  jsstring::from_utf8("cannot convert object to primitive value"))};
}

bool to_boolean(js_value const& v) {
    return std::visit(overloaded{
                          [](js_undefined) { return false; },
                          [](js_null) { return false; },
                          [](bool b) { return b; },
                          [](number const& n) {
                              if (auto const* i = std::get_if<std::int64_t>(&n)) {
                                  return *i != 0;
                              }
                              double const d = std::get<double>(n);
                              return d != 0 && !std::isnan(d);
                          },
                          [](js_string const& s) { return !s.empty(); },
                          [](js_object) { return true; },
                      },
                      v);
}

number string_to_number(js_string const& s) {
    // The C library reads up to a NUL and would accept "1\0x" as 1.
    if (jsstring::has_nul(s)) {
        return nan_value;
    }
    std::string const text = jsstring::to_utf8(s);
    std::string_view digits = text;
    if (digits.starts_with('+')) {
        digits.remove_prefix(1);
    }
    if (!digits.empty() && digits[0] != '+' && (digits[0] != '-' || digits.data() == text.data())) {
        std::int64_t n = 0;
        auto [end, ec] = std::from_chars(digits.data(), digits.data() + digits.size(), n);
        if (ec == std::errc{} && end == digits.data() + digits.size()) {
            return n;
        }
    }
    if (text.empty() || std::isspace(static_cast<unsigned char>(text[0]))) {
        return nan_value;
    }
    double d = 0;
    char rest = 0;
    if (std::sscanf(text.c_str(), "%lf%c", &d, &rest) == 1) {
        return d;
    }
    return nan_value;
}

expr_res<number> to_number(js& engine, js_value const& v) {
    return std::visit(overloaded{
                          [](js_undefined) -> expr_res<number> { return number{nan_value}; },
                          [](js_null) -> expr_res<number> { return number{std::int64_t{0}}; },
                          [](bool b) -> expr_res<number> { return number{std::int64_t{b ? 1 : 0}}; },
                          [](number const& n) -> expr_res<number> { return n; },
                          [](js_string const& s) -> expr_res<number> { return string_to_number(s); },
                          [&](js_object) -> expr_res<number> {
                              return then(to_primitive(engine, v, preferred_type::prefer_number),
                                          [&](js_value p) { return to_number(engine, p); });
                          },
                      },
                      v);
}

double to_double(number n) {
    if (auto const* i = std::get_if<std::int64_t>(&n)) {
        return static_cast<double>(*i);
    }
    return std::get<double>(n);
}

bool is_nan(number n) {
    auto const* d = std::get_if<double>(&n);
    return d != nullptr && std::isnan(*d);
}

std::uint32_t number_to_uint32(number n) {
    if (auto const* i = std::get_if<std::int64_t>(&n)) {
        return static_cast<std::uint32_t>(static_cast<std::uint64_t>(*i));
    }
    double const d = std::get<double>(n);
    if (!std::isfinite(d)) {
        return 0;
    }
    double m = std::fmod(std::trunc(d), 4294967296.0);
    if (m < 0) {
        m += 4294967296.0;
    }
    return static_cast<std::uint32_t>(m);
}

std::int32_t number_to_int32(number n) {
    return static_cast<std::int32_t>(number_to_uint32(n));
}

expr_res<std::int32_t> to_int32(js& engine, js_value const& v) {
    return then(to_number(engine, v), [](number n) -> expr_res<std::int32_t> { return number_to_int32(n); });
}

expr_res<std::uint32_t> to_uint32(js& engine, js_value const& v) {
    return then(to_number(engine, v), [](number n) -> expr_res<std::uint32_t> { return number_to_uint32(n); });
}

std::string number_to_string(number n) {
    if (auto const* i = std::get_if<std::int64_t>(&n)) {
        return std::to_string(*i);
    }
    double const d = std::get<double>(n);
    if (std::isnan(d)) {
        return "NaN";
    }
    if (std::isinf(d)) {
        return d > 0 ? "Infinity" : "-Infinity";
    }
    if (d == 0) {
        return "0";
    }
    // The fewest significant digits, from 15 up, that give back the same double.
    char buf[40];
    for (int precision = 15; precision <= 17; ++precision) {
        std::snprintf(buf, sizeof buf, "%.*g", precision, d);
        if (std::strtod(buf, nullptr) == d) {
            break;
        }
    }
    std::string text = buf;
    if (text.ends_with(".0")) {
        text.resize(text.size() - 2);
    }
    return text;
}

js_string number_to_js_string(number n) {
    return jsstring::from_utf8(number_to_string(n));
}

expr_res<js_string> to_string(js& engine, js_value const& v) {
    auto word = [](char const* w) -> expr_res<js_string> { return jsstring::from_utf8(w); };
    return std::visit(overloaded{
                          [&](js_undefined) { return word("undefined"); },
                          [&](js_null) { return word("null"); },
                          [&](bool b) { return word(b ? "true" : "false"); },
                          [](number const& n) -> expr_res<js_string> { return number_to_js_string(n); },
                          [](js_string const& s) -> expr_res<js_string> { return s; },
                          [&](js_object) -> expr_res<js_string> {
                              return then(to_primitive(engine, v, preferred_type::prefer_string),
                                          [&](js_value p) { return to_string(engine, p); });
                          },
                      },
                      v);
}

expr_res<js_object> to_object(js& engine, js_value const& v) {
    auto wrap_in = [&](object_class c, js_object proto) -> expr_res<js_object> {
        return new_object_of(engine, std::move(c), yes_proto{.proto = proto});
    };
    return std::visit(overloaded{
                          [&](js_undefined) -> expr_res<js_object> {
                              return throw_error(engine, js_error::undefined_to_object);
                          },
                          [&](js_null) -> expr_res<js_object> { return throw_error(engine, js_error::null_to_object); },
                          [&](bool b) {
                              return wrap_in(class_boolean{.boolean_value = b}, engine.boolean_prototype);
                          },
                          [&](number const& n) {
                              return wrap_in(class_number{.number_value = n}, engine.number_prototype);
                          },
                          [&](js_string const& s) {
                              return wrap_in(class_string{.string_value = s}, engine.string_prototype);
                          },
                          [](js_object o) -> expr_res<js_object> { return o; },
                      },
                      v);
}

expr_res<js_prop_string> to_prop_string(js& engine, js_value const& v) {
    if (auto const* n = std::get_if<number>(&v)) {
        if (auto const* i = std::get_if<std::int64_t>(n)) {
            return key_of_int(*i);
        }
        // A double goes by its text, so that 1.0 and "1" name the same property and 1e21 and "1e+21" do.
        return key_of_utf8(number_to_string(*n));
    }
    if (auto const* s = std::get_if<js_string>(&v)) {
        return key_of_string(*s);
    }
    return then(to_string(engine, v), [](js_string s) -> expr_res<js_prop_string> { return key_of_string(s); });
}

number arithmetic(arith_op op, number a, number b) {
    auto const* ia = std::get_if<std::int64_t>(&a);
    auto const* ib = std::get_if<std::int64_t>(&b);
    bool const ints = ia != nullptr && ib != nullptr;
    double const da = to_double(a);
    double const db = to_double(b);
    switch (op) {
    case arith_op::subtract:
        if (ints) {
            return wrap(static_cast<std::uint64_t>(*ia) - static_cast<std::uint64_t>(*ib));
        }
        return da - db;
    case arith_op::multiply:
        if (ints) {
            return wrap(static_cast<std::uint64_t>(*ia) * static_cast<std::uint64_t>(*ib));
        }
        return da * db;
    case arith_op::divide:
        return da / db;
    case arith_op::remainder:
        if (ints) {
            if (*ib == 0) {
                return nan_value;
            }
            // The remainder takes the dividend's sign, and a zero remainder of a negative dividend is
            // -0, which only a double holds. (Division by -1 is also the one quotient that overflows.)
            std::int64_t const r = *ib == -1 ? 0 : *ia % *ib;
            if (r == 0 && *ia < 0) {
                return -0.0;
            }
            return r;
        }
        return std::fmod(da, db);
    }
    throw internal_error("arithmetic: unexpected operator.");
}

number add_numbers(number a, number b) {
    auto const* ia = std::get_if<std::int64_t>(&a);
    auto const* ib = std::get_if<std::int64_t>(&b);
    if (ia && ib) {
        return wrap(static_cast<std::uint64_t>(*ia) + static_cast<std::uint64_t>(*ib));
    }
    return to_double(a) + to_double(b);
}

expr_res<js_value> add(js& engine, js_value const& a, js_value const& b) {
    auto pa = to_primitive(engine, a);
    if (is_exception(pa)) {
        return pa;
    }
    auto pb = to_primitive(engine, b);
    if (is_exception(pb)) {
        return pb;
    }
    js_value const& x = std::get<js_value>(pa);
    js_value const& y = std::get<js_value>(pb);
    if (std::holds_alternative<js_string>(x) || std::holds_alternative<js_string>(y)) {
        // Both are primitives now, so their text cannot fail; the fallback only keeps the rule total.
        auto text = [&](js_value const& v) {
            auto s = to_string(engine, v);
            return is_exception(s) ? jsstring::from_utf8("undefined") : std::get<js_string>(s);
        };
        js_string sx = text(x);
        js_string sy = text(y);
        if (sx.empty()) {
            return sy;
        }
        if (sy.empty()) {
            return sx;
        }
        if (sx.length() + sy.length() > jsstring::max_length) {
            return throw_error(engine, js_error_res{.error_kind = js_error::range_error,
                                                    .error_detail = jsstring::from_utf8("string too long")});
        }
        return jsstring::concat(sx, sy);
    }
    return then(two_numbers(engine, x, y), [](std::pair<number, number> n) -> expr_res<js_value> {
        return add_numbers(n.first, n.second);
    });
}

expr_res<js_value> numeric_op(js& engine, arith_op op, js_value const& a, js_value const& b) {
    return then(two_numbers(engine, a, b), [op](std::pair<number, number> n) -> expr_res<js_value> {
        return arithmetic(op, n.first, n.second);
    });
}

number negate(number n) {
    if (auto const* i = std::get_if<std::int64_t>(&n)) {
        if (*i == 0) {
            return -0.0;
        }
        if (*i == std::numeric_limits<std::int64_t>::min()) {
            return -static_cast<double>(*i);
        }
        return -*i;
    }
    return -std::get<double>(n);
}

expr_res<js_value> unary(js& engine, unary_op op, js_value const& v) {
    if (op == unary_op::logical_not) {
        return js_value{!to_boolean(v)};
    }
    return then(to_number(engine, v), [op](number n) -> expr_res<js_value> {
        switch (op) {
        case unary_op::prefix_plus:
            return n;
        case unary_op::prefix_minus:
            return negate(n);
        case unary_op::bitwise_not:
            return number{std::int64_t{~number_to_int32(n)}};
        case unary_op::logical_not:
            break;
        }
        throw internal_error("unary: unexpected operator.");
    });
}

expr_res<js_value> bitwise(js& engine, int32_op op, js_value const& a, js_value const& b) {
    auto operands = two_numbers(engine, a, b);
    if (auto const* e = std::get_if<exception>(&operands)) {
        return *e;
    }
    auto const [na, nb] = std::get<std::pair<number, number>>(operands);
    std::int32_t const l = number_to_int32(na);
    std::int32_t const r = number_to_int32(nb);
    unsigned const count = number_to_uint32(nb) & 31U;
    std::int64_t result = 0;
    switch (op) {
    case int32_op::bitwise_and:
        result = l & r;
        break;
    case int32_op::bitwise_or:
        result = l | r;
        break;
    case int32_op::bitwise_xor:
        result = l ^ r;
        break;
    case int32_op::left_shift:
        result = static_cast<std::int32_t>(static_cast<std::uint32_t>(l) << count);
        break;
    case int32_op::signed_right_shift:
        result = l >> count;
        break;
    case int32_op::unsigned_right_shift:
        result = number_to_uint32(na) >> count;
        break;
    }
    return number{result};
}

relational_comparison_res less_than_numbers(number a, number b) {
    auto c = compare_numbers(a, b);
    if (!c) {
        return relational_comparison_res::relational_undefined;
    }
    return *c < 0 ? relational_comparison_res::relational_true : relational_comparison_res::relational_false;
}

bool numbers_equal(number a, number b) {
    auto c = compare_numbers(a, b);
    return c && *c == 0;
}

expr_res<relational_comparison_res> relational_comparison(js& engine,
                                                          js_value const& x,
                                                          js_value const& y,
                                                          bool left_first) {
    // The operands become primitives in the order in which they were written.
    auto first = to_primitive(engine, left_first ? x : y, preferred_type::prefer_number);
    if (auto const* e = std::get_if<exception>(&first)) {
        return *e;
    }
    auto second = to_primitive(engine, left_first ? y : x, preferred_type::prefer_number);
    if (auto const* e = std::get_if<exception>(&second)) {
        return *e;
    }
    js_value const& vx = std::get<js_value>(left_first ? first : second);
    js_value const& vy = std::get<js_value>(left_first ? second : first);
    auto const* sx = std::get_if<js_string>(&vx);
    auto const* sy = std::get_if<js_string>(&vy);
    if (sx && sy) {
        // By code point, which for strings outside the Basic Multilingual Plane differs from UTF-16 order.
        return *sx < *sy ? relational_comparison_res::relational_true : relational_comparison_res::relational_false;
    }
    return then(two_numbers(engine, vx, vy), [](std::pair<number, number> n) -> expr_res<relational_comparison_res> {
        return less_than_numbers(n.first, n.second);
    });
}

expr_res<bool> relational(js& engine, relational_kind op, js_value const& a, js_value const& b) {
    using enum relational_comparison_res;
    bool const swap = op == relational_kind::greater_than || op == relational_kind::less_than_or_equal;
    auto r = swap ? relational_comparison(engine, b, a, false) : relational_comparison(engine, a, b, true);
    if (auto const* e = std::get_if<exception>(&r)) {
        return *e;
    }
    relational_comparison_res const c = std::get<relational_comparison_res>(r);
    switch (op) {
    case relational_kind::less_than:
    case relational_kind::greater_than:
        return c == relational_true;
    case relational_kind::less_than_or_equal:
    case relational_kind::greater_than_or_equal:
        // a <= b is "not b < a", except that NaN makes every comparison false.
        return c == relational_false;
    }
    throw internal_error("relational: unexpected operator.");
}

bool strict_equality_comparison(js_value const& x, js_value const& y) {
    if (x.valueless_by_exception() || y.valueless_by_exception()) {
        throw internal_error("strict_equality_comparison: unexpected branch.");
    }
    return std::visit(overloaded{
                          [&](js_undefined) { return std::holds_alternative<js_undefined>(y); },
                          [&](js_null) { return std::holds_alternative<js_null>(y); },
                          [&](bool b) {
                              auto const* o = std::get_if<bool>(&y);
                              return o != nullptr && *o == b;
                          },
                          [&](number const& n) {
                              auto const* o = std::get_if<number>(&y);
                              return o != nullptr && numbers_equal(n, *o);
                          },
                          [&](js_string const& s) {
                              auto const* o = std::get_if<js_string>(&y);
                              return o != nullptr && *o == s;
                          },
                          [&](js_object obj) {
                              auto const* o = std::get_if<js_object>(&y);
                              return o != nullptr && *o == obj;
                          },
                      },
                      x);
}

expr_res<bool> equality_comparison(js& engine, js_value const& x, js_value const& y) {
    if (x.valueless_by_exception() || y.valueless_by_exception()) {
        throw internal_error("equality_comparison: unexpected branch.");
    }
    auto nullish = [](js_value const& v) {
        return std::holds_alternative<js_undefined>(v) || std::holds_alternative<js_null>(v);
    };
    auto const* ox = std::get_if<js_object>(&x);
    auto const* oy = std::get_if<js_object>(&y);
    bool const same_type = (nullish(x) && nullish(y)) || (std::holds_alternative<bool>(x) && std::holds_alternative<bool>(y)) ||
                           (std::holds_alternative<number>(x) && std::holds_alternative<number>(y)) ||
                           (std::holds_alternative<js_string>(x) && std::holds_alternative<js_string>(y)) ||
                           (ox && oy);
    if (same_type) {
        // undefined == null is the one pair of different types among them, and it is true.
        return nullish(x) || strict_equality_comparison(x, y);
    }
    if (nullish(x) || nullish(y)) {
        return false;
    }
    // A boolean is compared as its number.
    if (std::holds_alternative<bool>(x) || std::holds_alternative<bool>(y)) {
        auto to_num = [](js_value const& v) -> js_value {
            if (auto const* b = std::get_if<bool>(&v)) {
                return number{std::int64_t{*b ? 1 : 0}};
            }
            return v;
        };
        return equality_comparison(engine, to_num(x), to_num(y));
    }
    // An object against a string or number becomes a primitive first.
    if (ox || oy) {
        auto p = to_primitive(engine, ox ? x : y);
        if (auto const* e = std::get_if<exception>(&p)) {
            return *e;
        }
        return ox ? equality_comparison(engine, std::get<js_value>(p), y)
                  : equality_comparison(engine, x, std::get<js_value>(p));
    }
    // What is left is a number against a string: the string becomes a number.
    auto const* nx = std::get_if<number>(&x);
    auto const* ny = std::get_if<number>(&y);
    if (nx && std::holds_alternative<js_string>(y)) {
        return numbers_equal(*nx, string_to_number(std::get<js_string>(y)));
    }
    if (ny && std::holds_alternative<js_string>(x)) {
        return numbers_equal(string_to_number(std::get<js_string>(x)), *ny);
    }
    throw internal_error("equality_comparison: unexpected branch.");
}

std::string type_of(js_value const& v) {
    return std::visit(overloaded{
                          [](js_undefined) -> std::string { return "undefined"; },
                          [](js_null) -> std::string { return "object"; },
                          [](bool) -> std::string { return "boolean"; },
                          [](number const&) -> std::string { return "number"; },
                          [](js_string const&) -> std::string { return "string"; },
                          [](js_object o) -> std::string {
                              return std::holds_alternative<class_function>(o->obj_class) ? "function" : "object";
                          },
                      },
                      v);
}

} // namespace vellum::js::eval
