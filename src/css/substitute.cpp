#include "css/substitute.hpp"

#include "css/units.hpp"

#include <algorithm>
#include <cmath>
#include <set>

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
struct quantity {
    double points = 0;
    double em = 0;
    double percent = 0;
    double number = 0;
    bool is_number = false;
};

std::optional<quantity> add(quantity a, quantity const& b, double sign) {
    if (a.is_number != b.is_number) {
        return std::nullopt;
    }
    a.points += sign * b.points;
    a.em += sign * b.em;
    a.percent += sign * b.percent;
    a.number += sign * b.number;
    return a;
}

quantity scale(quantity q, double k) {
    q.points *= k;
    q.em *= k;
    q.percent *= k;
    q.number *= k;
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
        if (auto const* l = std::get_if<value::values>(&v)) {
            return sum(l->value_list);
        }
        return std::nullopt;
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
            total = add(*total, *next, plus ? 1 : -1);
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
        // min(), max() and clamp() compare numbers with numbers and lengths with lengths; a percentage
        // that waits for its reference can't be compared yet.
        for (auto const& q : args) {
            if (q.is_number != args.front().is_number || q.percent != 0) {
                return std::nullopt;
            }
        }
        auto const key = [](quantity const& q) { return q.is_number ? q.number : q.points; };
        auto const by_key = [&](quantity const& a, quantity const& b) { return key(a) < key(b); };
        if (is_named(f, "min")) {
            return *std::ranges::min_element(args, by_key);
        }
        if (is_named(f, "max")) {
            return *std::ranges::max_element(args, by_key);
        }
        if (args.size() != 3) {
            return std::nullopt;
        }
        // clamp(low, value, high): the value, but no less than low and, low first, no more than high.
        quantity out = key(args[1]) > key(args[2]) ? args[2] : args[1];
        return key(out) < key(args[0]) ? args[0] : out;
    }
};

// A quantity written back as a term the property parsers read.
value::value as_term(quantity const& q) {
    if (q.is_number) {
        return value::number{q.number};
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
