#include "css/substitute.hpp"

#include "css/units.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <set>
#include <vector>

namespace vellum::css::substitute {

namespace {

// var() inside var() inside custom properties nests no deeper than this; deeper is taken for a cycle.
constexpr int max_depth = 32;

bool is_named(value::function const& f, std::string_view name) {
    return lexer::equals_ignoring_case(f.function_name, name);
}

bool is_math(value::function const& f) {
    return is_named(f, "calc") || is_named(f, "min") || is_named(f, "max") || is_named(f, "clamp") ||
           is_named(f, "-webkit-calc");
}

bool is_page_unit(std::string_view unit) {
    return unit == "vw" || unit == "vh" || unit == "vmin" || unit == "vmax";
}

template <class Pred>
bool any_term(value::value const& v, Pred const& pred) {
    if (pred(v)) {
        return true;
    }
    if (auto const* f = std::get_if<value::function>(&v)) {
        return std::ranges::any_of(f->function_args, [&](value::value const& a) { return any_term(a, pred); });
    }
    if (auto const* l = std::get_if<value::values>(&v)) {
        return std::ranges::any_of(l->value_list, [&](value::value const& a) { return any_term(a, pred); });
    }
    return false;
}

// A quantity inside a math function: a sum of points, font sizes (em), percentages and a plain number.
// A percentage that min(), max() or clamp() compared with lengths keeps the lengths as bounds in points
// on what it resolves to.
struct quantity {
    double points = 0;
    double em = 0;
    double percent = 0;
    double number = 0;
    bool is_number = false;
    double lower = -std::numeric_limits<double>::infinity();
    double upper = std::numeric_limits<double>::infinity();

    bool bounded() const { return lower != -std::numeric_limits<double>::infinity() || upper != std::numeric_limits<double>::infinity(); }
};

std::optional<quantity> add(quantity a, quantity const& b, double sign) {
    if (a.is_number != b.is_number) {
        return std::nullopt;
    }
    // A bounded percentage moves with a plain length added to it; two that wait for their
    // reference can't be added once one is bounded.
    if (b.bounded() || (a.bounded() && b.percent != 0)) {
        if (a.bounded() || a.percent != 0 || !b.bounded()) {
            return std::nullopt;
        }
        quantity moved = b;
        if (sign < 0) {
            moved.points = -b.points;
            moved.percent = -b.percent;
            moved.lower = -b.upper;
            moved.upper = -b.lower;
        }
        moved.points += a.points;
        moved.lower += a.points;
        moved.upper += a.points;
        return moved;
    }
    a.points += sign * b.points;
    a.em += sign * b.em;
    a.percent += sign * b.percent;
    a.number += sign * b.number;
    a.lower += sign * b.points;
    a.upper += sign * b.points;
    return a;
}

quantity scale(quantity q, double k) {
    q.points *= k;
    q.em *= k;
    q.percent *= k;
    q.number *= k;
    if (q.bounded()) {
        q.lower *= k;
        q.upper *= k;
        if (k < 0) {
            std::swap(q.lower, q.upper);
        }
    }
    return q;
}

// min() or max() of a percentage (bounded or not) and a length: min(clamp(x, l, u), c) is
// clamp(x, min(l, c), min(u, c)), and max() likewise.
quantity bound(quantity q, double c, bool is_min) {
    if (is_min) {
        q.lower = std::min(q.lower, c);
        q.upper = std::min(q.upper, c);
    } else {
        q.lower = std::max(q.lower, c);
        q.upper = std::max(q.upper, c);
    }
    return q;
}

struct evaluator {
    context const& ctx;

    // A single term as a quantity.
    std::optional<quantity> term(value::value const& v) const {
        if (auto const* n = std::get_if<value::number>(&v)) {
            return quantity{.number = number_as_double(n->number_value), .is_number = true};
        }
        if (auto const* p = std::get_if<value::percent>(&v)) {
            return quantity{.percent = number_as_double(p->percent_value)};
        }
        if (auto const* d = std::get_if<value::dimension>(&v)) {
            double const n = number_as_double(d->dimension_value);
            std::string const& unit = d->dimension_unit;
            if (unit == "em") {
                return quantity{.em = n};
            }
            if (unit == "ex") {
                return quantity{.em = n / 2};
            }
            if (unit == "rem") {
                return quantity{.points = n * ctx.root_font_size};
            }
            if (unit == "vw" || unit == "vh" || unit == "vmin" || unit == "vmax") {
                return quantity{.points = n * page_unit(unit) / 100};
            }
            if (auto const l = units::length_from_value(v)) {
                return quantity{.points = units::to_points(*l, {.resolution_font_size = 0, .resolution_dpi = ctx.dpi})};
            }
            return std::nullopt;
        }
        if (auto const* f = std::get_if<value::function>(&v); f != nullptr && is_math(*f)) {
            return function(*f);
        }
        // An inner math function already rewritten: its percentage, offset and bounds.
        if (auto const* f = std::get_if<value::function>(&v); f != nullptr && f->function_name == mixed_percentage) {
            return mixed(*f);
        }
        if (auto const* l = std::get_if<value::values>(&v)) {
            return sum(l->value_list);
        }
        return std::nullopt;
    }

    std::optional<quantity> mixed(value::function const& f) const {
        auto const& args = f.function_args;
        if (args.size() != 2 && args.size() != 4) {
            return std::nullopt;
        }
        auto const* p = std::get_if<value::percent>(&args[0]);
        std::vector<double> pts;
        for (std::size_t i = 1; i < args.size(); ++i) {
            auto const l = units::length_from_value(args[i]);
            auto const* in_points = l ? std::get_if<units::points>(&*l) : nullptr;
            if (in_points == nullptr) {
                return std::nullopt;
            }
            pts.push_back(in_points->points_value);
        }
        if (p == nullptr) {
            return std::nullopt;
        }
        quantity q{.points = pts[0], .percent = number_as_double(p->percent_value)};
        if (pts.size() == 3) {
            double const huge = std::numeric_limits<float>::max();
            q.lower = pts[1] <= -huge ? -std::numeric_limits<double>::infinity() : pts[1];
            q.upper = pts[2] >= huge ? std::numeric_limits<double>::infinity() : pts[2];
        }
        return q;
    }

    double page_unit(std::string_view unit) const {
        if (unit == "vw") {
            return ctx.page_width;
        }
        if (unit == "vh") {
            return ctx.page_height;
        }
        if (unit == "vmin") {
            return std::min(ctx.page_width, ctx.page_height);
        }
        return std::max(ctx.page_width, ctx.page_height);
    }

    static bool is_operator(value::value const& v, std::string_view op) {
        if (op == "/") {
            return std::holds_alternative<value::slash>(v);
        }
        auto const* i = std::get_if<value::ident>(&v);
        return i != nullptr && i->ident_name == op;
    }

    // product := term (("*" | "/") term)*
    std::optional<quantity> product(std::vector<value::value> const& list, std::size_t& i) const {
        if (i >= list.size()) {
            return std::nullopt;
        }
        auto left = term(list[i++]);
        while (left && i < list.size() && (is_operator(list[i], "*") || is_operator(list[i], "/"))) {
            bool const times = is_operator(list[i], "*");
            if (++i >= list.size()) {
                return std::nullopt;
            }
            auto const right = term(list[i++]);
            if (!right) {
                return std::nullopt;
            }
            if (times) {
                if (!left->is_number && !right->is_number) {
                    return std::nullopt;
                }
                left = left->is_number ? scale(*right, left->number) : scale(*left, right->number);
            } else {
                if (!right->is_number || right->number == 0) {
                    return std::nullopt;
                }
                left = scale(*left, 1 / right->number);
            }
        }
        return left;
    }

    // sum := product (("+" | "-") product)*
    std::optional<quantity> sum(std::vector<value::value> const& list) const {
        std::size_t i = 0;
        auto total = product(list, i);
        while (total && i < list.size()) {
            bool const plus = is_operator(list[i], "+");
            if (!plus && !is_operator(list[i], "-")) {
                return std::nullopt;
            }
            ++i;
            auto const next = product(list, i);
            if (!next) {
                return std::nullopt;
            }
            total = add(settle(*total), settle(*next), plus ? 1 : -1);
        }
        return total;
    }

    // Settles em and the percentages that can be; what is left compares or adds up.
    quantity settle(quantity q) const {
        q.points += q.em * ctx.font_size;
        q.em = 0;
        if (ctx.percent_of_font) {
            q.points += q.percent * ctx.font_size / 100;
            q.percent = 0;
        }
        return q;
    }

    std::optional<quantity> function(value::function const& f) const {
        std::vector<quantity> args;
        for (auto const& a : f.function_args) {
            auto q = term(a);
            if (!q) {
                return std::nullopt;
            }
            args.push_back(settle(*q));
        }
        if (args.empty()) {
            return std::nullopt;
        }
        if (is_named(f, "calc") || is_named(f, "-webkit-calc")) {
            return args.size() == 1 ? std::optional(args.front()) : std::nullopt;
        }
        // min(), max() and clamp() compare numbers with numbers and lengths with lengths. One argument
        // may be a percentage that waits for its reference: the lengths become its bounds.
        for (auto const& q : args) {
            if (q.is_number != args.front().is_number) {
                return std::nullopt;
            }
        }
        auto const waits = [](quantity const& q) { return q.percent != 0 || q.bounded(); };
        if (std::ranges::count_if(args, waits) > 1) {
            return std::nullopt;
        }
        auto const key = [](quantity const& q) { return q.is_number ? q.number : q.points; };
        // min or max of two arguments, at most one of which waits.
        auto const pick = [&](quantity const& a, quantity const& b, bool is_min) {
            if (waits(a)) {
                return bound(a, key(b), is_min);
            }
            if (waits(b)) {
                return bound(b, key(a), is_min);
            }
            return (key(a) < key(b)) == is_min ? a : b;
        };
        if (is_named(f, "min") || is_named(f, "max")) {
            bool const is_min = is_named(f, "min");
            quantity out = args.front();
            for (std::size_t i = 1; i < args.size(); ++i) {
                out = pick(out, args[i], is_min);
            }
            return out;
        }
        if (args.size() != 3) {
            return std::nullopt;
        }
        // clamp(low, value, high) is max(low, min(value, high)): the low bound wins.
        return pick(args[0], pick(args[1], args[2], true), false);
    }
};

// A quantity written back as a term the property parsers read.
value::value as_term(quantity const& q) {
    if (q.is_number) {
        return value::number{q.number};
    }
    if (q.bounded()) {
        // A bounded length with no percentage left (min(0%, 10pt)) is a plain length within its bounds.
        if (q.percent == 0) {
            return value::dimension{std::clamp(q.points, q.lower, std::max(q.lower, q.upper)), "pt"};
        }
        double const huge = std::numeric_limits<float>::max();
        return value::function{.function_name = std::string(mixed_percentage),
                               .function_args = {value::percent{q.percent}, value::dimension{q.points, "pt"},
                                                 value::dimension{std::max(q.lower, -huge), "pt"},
                                                 value::dimension{std::min(q.upper, huge), "pt"}}};
    }
    if (q.percent != 0 && q.points != 0) {
        return value::function{.function_name = std::string(mixed_percentage),
                               .function_args = {value::percent{q.percent}, value::dimension{q.points, "pt"}}};
    }
    if (q.percent != 0) {
        return value::percent{q.percent};
    }
    return value::dimension{q.points, "pt"};
}

struct substituter {
    context const& ctx;
    custom_properties const* customs;
    std::set<std::string, std::less<>>* resolving = nullptr;
    /// Whether units and math functions are resolved too, or var() alone is replaced.
    bool resolve_math = true;
    int depth = 0;

    // The value of a var(): the custom property, else the fallback; nothing if neither.
    std::optional<value::value> var(value::function const& f) {
        if (f.function_args.empty() || ++depth > max_depth) {
            return std::nullopt;
        }
        auto const* name = std::get_if<value::ident>(&f.function_args.front());
        if (name == nullptr) {
            return std::nullopt;
        }
        // A custom property that refers to itself, through others or directly, is in a cycle: invalid,
        // whatever its fallback.
        if (resolving != nullptr && resolving->contains(name->ident_name)) {
            return std::nullopt;
        }
        if (customs != nullptr) {
            if (auto const it = customs->find(name->ident_name); it != customs->end()) {
                if (resolving != nullptr) {
                    resolving->insert(name->ident_name);
                }
                auto out = walk(it->second);
                if (resolving != nullptr) {
                    resolving->erase(name->ident_name);
                }
                if (out) {
                    return out;
                }
            }
        }
        if (f.function_args.size() < 2) {
            return std::nullopt;
        }
        if (f.function_args.size() == 2) {
            return walk(f.function_args[1]);
        }
        // A fallback with commas, such as a font list, was cut into arguments; they join again.
        value::values joined;
        for (std::size_t i = 1; i < f.function_args.size(); ++i) {
            if (i > 1) {
                joined.value_list.push_back(value::comma{});
            }
            joined.value_list.push_back(f.function_args[i]);
        }
        return walk(value::value{std::move(joined)});
    }

    // Appends a term to a list, with the terms of a substituted list spliced in.
    static void splice(std::vector<value::value>& out, value::value v) {
        if (auto* l = std::get_if<value::values>(&v)) {
            for (auto& x : l->value_list) {
                out.push_back(std::move(x));
            }
            return;
        }
        out.push_back(std::move(v));
    }

    std::optional<value::value> walk(value::value const& v) {
        if (auto const* f = std::get_if<value::function>(&v)) {
            if (is_named(*f, "var")) {
                return var(*f);
            }
            value::function out{.function_name = f->function_name};
            for (auto const& a : f->function_args) {
                auto s = walk(a);
                if (!s) {
                    return std::nullopt;
                }
                out.function_args.push_back(std::move(*s));
            }
            if (is_math(out) && resolve_math) {
                auto const q = evaluator{ctx}.function(out);
                if (!q) {
                    return std::nullopt;
                }
                return as_term(evaluator{ctx}.settle(*q));
            }
            return value::value{std::move(out)};
        }
        if (auto const* l = std::get_if<value::values>(&v)) {
            std::vector<value::value> out;
            for (auto const& a : l->value_list) {
                auto s = walk(a);
                if (!s) {
                    return std::nullopt;
                }
                splice(out, std::move(*s));
            }
            if (out.size() == 1) {
                return std::move(out.front());
            }
            return value::value{value::values{std::move(out)}};
        }
        if (auto const* d = std::get_if<value::dimension>(&v); d != nullptr && resolve_math) {
            if (d->dimension_unit == "rem" || is_page_unit(d->dimension_unit)) {
                auto const q = evaluator{ctx}.term(v);
                if (!q) {
                    return std::nullopt;
                }
                return as_term(*q);
            }
        }
        return v;
    }
};

} // namespace

bool has_var(value::value const& v) {
    return any_term(v, [](value::value const& t) {
        auto const* f = std::get_if<value::function>(&t);
        return f != nullptr && is_named(*f, "var");
    });
}

bool needs_element(value::value const& v) {
    return any_term(v, [](value::value const& t) {
        if (auto const* f = std::get_if<value::function>(&t)) {
            return is_named(*f, "var") || is_math(*f);
        }
        if (auto const* d = std::get_if<value::dimension>(&t)) {
            return d->dimension_unit == "rem" || is_page_unit(d->dimension_unit);
        }
        return false;
    });
}

std::optional<value::value> substitute(value::value const& v, context const& ctx) {
    return substituter{.ctx = ctx, .customs = ctx.customs}.walk(v);
}

custom_properties resolve_customs(custom_properties customs) {
    bool const any = std::ranges::any_of(customs, [](auto const& kv) { return has_var(kv.second); });
    if (!any) {
        return customs;
    }
    // Only var() is replaced here: units and math stay for the property that uses them, which knows
    // its font size.
    context const none{};
    custom_properties out;
    for (auto const& [name, v] : customs) {
        std::set<std::string, std::less<>> resolving{name};
        substituter s{.ctx = none, .customs = &customs, .resolving = &resolving, .resolve_math = false};
        if (auto r = s.walk(v)) {
            out.emplace(name, std::move(*r));
        }
    }
    return out;
}

} // namespace vellum::css::substitute
