#include "css/color.hpp"

#include "css/lexer.hpp"
#include "css/parser.hpp"
#include "css/propnames.hpp"

#include <algorithm>
#include <array>
#include <cstdio>

namespace vellum::css::color {

namespace {

struct named_rgb {
    std::string_view rgb_name;
    int rgb_r;
    int rgb_g;
    int rgb_b;
};

#include "css/color_names.inc"

std::string lower(std::string_view s) {
    std::string out(s);
    for (char& c : out) {
        if (c >= 'A' && c <= 'Z') {
            c = static_cast<char>(c - 'A' + 'a');
        }
    }
    return out;
}

float clamp01(double x) {
    return static_cast<float>(std::clamp(x, 0.0, 1.0));
}

// One channel of rgb(): 0 to 255 as a number, 0% to 100% as a percentage, clamped either way.
std::optional<float> channel(value::value const& v) {
    if (auto const* n = std::get_if<value::number>(&v)) {
        return clamp01(number_as_double(n->number_value) / 255);
    }
    if (auto const* p = std::get_if<value::percent>(&v)) {
        return clamp01(number_as_double(p->percent_value) / 100);
    }
    return std::nullopt;
}

// A fraction from 0 to 1, written as a number or a percentage.
std::optional<float> fraction(value::value const& v) {
    if (auto const* n = std::get_if<value::number>(&v)) {
        return clamp01(number_as_double(n->number_value));
    }
    if (auto const* p = std::get_if<value::percent>(&v)) {
        return clamp01(number_as_double(p->percent_value) / 100);
    }
    return std::nullopt;
}

std::optional<color> from_function(value::function const& f) {
    auto const name = lower(f.function_name);
    auto const& args = f.function_args;
    if (name == "rgb" || name == "rgba") {
        if (args.size() != (name == "rgb" ? 3u : 4u)) {
            return std::nullopt;
        }
        auto const r = channel(args[0]);
        auto const g = channel(args[1]);
        auto const b = channel(args[2]);
        if (!r || !g || !b) {
            return std::nullopt;
        }
        if (name == "rgb") {
            return rgb{*r, *g, *b};
        }
        auto const a = fraction(args[3]);
        if (!a) {
            return std::nullopt;
        }
        return rgba{*r, *g, *b, *a};
    }
    if (name == "cmyk") {
        if (args.size() != 4) {
            return std::nullopt;
        }
        std::array<float, 4> inks{};
        for (std::size_t i = 0; i < 4; ++i) {
            auto const x = fraction(args[i]);
            if (!x) {
                return std::nullopt;
            }
            inks[i] = *x;
        }
        return cmyk{inks[0], inks[1], inks[2], inks[3]};
    }
    if (name == "-vellum-color") {
        if (args.empty() || args.size() > 2) {
            return std::nullopt;
        }
        named_color spot;
        if (auto const* i = std::get_if<value::ident>(&args[0])) {
            spot.named_color_name = i->ident_name;
        } else if (auto const* s = std::get_if<value::string>(&args[0])) {
            spot.named_color_name = s->string_text;
        } else {
            return std::nullopt;
        }
        if (args.size() == 2) {
            auto const tint = fraction(args[1]);
            if (!tint) {
                return std::nullopt;
            }
            spot.named_color_tint = *tint;
        }
        return spot;
    }
    if (name == "-vellum-overprint") {
        if (args.empty() || args.size() > 2) {
            return std::nullopt;
        }
        auto inner = parse_color(args[0]);
        if (!inner) {
            return std::nullopt;
        }
        auto mode = overprint_mode::overprint_mode_nonzero;
        if (args.size() == 2) {
            auto const* i = std::get_if<value::ident>(&args[1]);
            if (!i) {
                return std::nullopt;
            }
            auto const word = lower(i->ident_name);
            if (word == "zero") {
                mode = overprint_mode::overprint_mode_zero;
            } else if (word != "nonzero") {
                return std::nullopt;
            }
        }
        return vellum_overprint{share(std::move(*inner)), mode};
    }
    return std::nullopt;
}

} // namespace

bool vellum_overprint::operator==(vellum_overprint const& other) const {
    if (overprint_mode != other.overprint_mode) {
        return false;
    }
    if (!overprint_color || !other.overprint_color) {
        return !overprint_color && !other.overprint_color;
    }
    return *overprint_color == *other.overprint_color;
}

std::optional<color> named(std::string_view name) {
    if (name == "transparent") {
        return transparent{};
    }
    auto const it = std::lower_bound(named_colors.begin(), named_colors.end(), name,
                                     [](named_rgb const& e, std::string_view n) { return e.rgb_name < n; });
    if (it == named_colors.end() || it->rgb_name != name) {
        return std::nullopt;
    }
    return rgb{it->rgb_r / 255.0f, it->rgb_g / 255.0f, it->rgb_b / 255.0f};
}

std::optional<color> parse_color(value::value const& v) {
    return std::visit(overloaded{
                          [](value::ident const& i) { return named(lower(i.ident_name)); },
                          [](value::hexcolor const& h) -> std::optional<color> {
                              return rgb{h.red / 255.0f, h.green / 255.0f, h.blue / 255.0f};
                          },
                          [](value::function const& f) { return from_function(f); },
                          [](value::string const&) -> std::optional<color> { return std::nullopt; },
                          [](value::attr const&) -> std::optional<color> { return std::nullopt; },
                          [](value::number const&) -> std::optional<color> { return std::nullopt; },
                          [](value::dimension const&) -> std::optional<color> { return std::nullopt; },
                          [](value::percent const&) -> std::optional<color> { return std::nullopt; },
                          [](value::url const&) -> std::optional<color> { return std::nullopt; },
                          [](value::unicode_range const&) -> std::optional<color> { return std::nullopt; },
                          [](value::values const&) -> std::optional<color> { return std::nullopt; },
                          [](value::slash const&) -> std::optional<color> { return std::nullopt; },
                          [](value::comma const&) -> std::optional<color> { return std::nullopt; },
                      },
                      v);
}

std::optional<spec_color> parse_spec_color(value::value const& v) {
    if (auto const* i = std::get_if<value::ident>(&v); i && lower(i->ident_name) == "currentcolor") {
        return current_color{};
    }
    if (auto c = parse_color(v)) {
        return spec_color{std::move(*c)};
    }
    return std::nullopt;
}

std::optional<color> parse_color_text(std::string_view text) {
    auto const v = parser::parse_value("", text);
    if (!v) {
        return std::nullopt;
    }
    return parse_color(*v);
}

color_rule color_rule_of(std::string const& name, declarations const& decls) {
    color_rule rule{.color_name = name};
    for (auto const& d : decls) {
        if (propnames::lookup_property(d.prop_name) == propnames::prop_name::prop_alternate_color) {
            if (auto c = parse_color(d.value)) {
                rule.alternate_color = std::move(*c);
            }
        }
    }
    return rule;
}

std::map<std::string, color_rule> color_rules_of(std::map<std::string, declarations> const& rules) {
    std::map<std::string, color_rule> out;
    for (auto const& [name, decls] : rules) {
        out.emplace(name, color_rule_of(name, decls));
    }
    return out;
}

std::string to_text(color const& c) {
    auto byte = [](float x) { return static_cast<int>(x * 255 + 0.5f); };
    char buf[96];
    return std::visit(
        overloaded{
            [](transparent const&) -> std::string { return "transparent"; },
            [&](rgb const& x) -> std::string {
                std::snprintf(buf, sizeof buf, "#%02x%02x%02x", byte(x.r), byte(x.g), byte(x.b));
                return buf;
            },
            [&](rgba const& x) -> std::string {
                std::snprintf(buf, sizeof buf, "rgba(%d, %d, %d, %g)", byte(x.r), byte(x.g), byte(x.b),
                              static_cast<double>(x.a));
                return buf;
            },
            [&](cmyk const& x) -> std::string {
                std::snprintf(buf, sizeof buf, "cmyk(%g, %g, %g, %g)", static_cast<double>(x.c),
                              static_cast<double>(x.m), static_cast<double>(x.y), static_cast<double>(x.k));
                return buf;
            },
            [&](named_color const& x) -> std::string {
                std::snprintf(buf, sizeof buf, ", %f)", static_cast<double>(x.named_color_tint));
                return "vellum-color(" + x.named_color_name + buf;
            },
            [](vellum_overprint const& x) -> std::string {
                return "-vellum-overprint(" + (x.overprint_color ? to_text(*x.overprint_color) : "") + ")";
            },
        },
        c);
}

} // namespace vellum::css::color
