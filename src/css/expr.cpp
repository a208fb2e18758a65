#include "css/expr.hpp"

#include "css/parser.hpp"

#include <cstdio>

namespace vellum::css::expr {

namespace {

std::string lower(std::string_view s) {
    std::string out(s);
    for (char& c : out) {
        if (c >= 'A' && c <= 'Z') {
            c = static_cast<char>(c - 'A' + 'a');
        }
    }
    return out;
}

// A number that is the whole text, as "%lf%c" matching exactly one item decides: "12" and " 1.5" read,
// "12px" and "" don't.
std::optional<double> whole_number(std::string_view text) {
    std::string const s(text);
    double n = 0;
    char rest = 0;
    if (std::sscanf(s.c_str(), "%lf%c", &n, &rest) != 1) {
        return std::nullopt;
    }
    return n;
}

css::number as_css_number(double n) {
    if (n == static_cast<double>(static_cast<int>(n)) && n >= -2147483648.0 && n <= 2147483647.0) {
        return static_cast<int>(n);
    }
    return n;
}

std::string_view unit_name(units::length_unit u) {
    switch (u) {
    case units::length_unit::cm:
        return "cm";
    case units::length_unit::in:
        return "in";
    case units::length_unit::mm:
        return "mm";
    case units::length_unit::q:
        return "q";
    case units::length_unit::pc:
        return "pc";
    case units::length_unit::pt:
        return "pt";
    case units::length_unit::em:
        return "em";
    case units::length_unit::ex:
        return "ex";
    case units::length_unit::px:
        return "px";
    }
    return "px";
}

} // namespace

std::optional<attr_type> attr_type_of(std::optional<std::string> const& word) {
    if (!word) {
        return type_string{};
    }
    auto const w = lower(*word);
    if (w == "string") {
        return type_string{};
    }
    if (w == "color") {
        return type_color{};
    }
    if (w == "url") {
        return type_url{};
    }
    if (w == "idref") {
        return type_idref{};
    }
    if (w == "font-family") {
        return type_font_family{};
    }
    if (w == "integer") {
        return type_integer{};
    }
    if (w == "number") {
        return type_number{};
    }
    if (w == "percent" || w == "%") {
        return type_percent{};
    }
    if (w == "length") {
        return type_length{};
    }
    if (auto const u = units::unit_of(w)) {
        return type_length{*u};
    }
    return std::nullopt;
}

std::optional<value::value>
attr_text_value(attr_type const& type, std::string_view text, std::string const& base) {
    return std::visit(overloaded{
                          [&](type_string const&) -> std::optional<value::value> {
                              return value::string{std::string(text)};
                          },
                          [&](type_font_family const&) -> std::optional<value::value> {
                              // A list of families, as HTML's face attribute gives it: "Arial, Helvetica".
                              if (auto v = parser::parse_value(base, text)) {
                                  return v;
                              }
                              return value::string{std::string(text)};
                          },
                          [&](type_color const&) { return parser::parse_value(base, text); },
                          [&](type_url const&) -> std::optional<value::value> {
                              return value::url{std::string(text), base};
                          },
                          [&](type_idref const&) -> std::optional<value::value> {
                              return value::url{"#" + std::string(text), base};
                          },
                          [&](type_integer const&) -> std::optional<value::value> {
                              auto const n = whole_number(text);
                              if (!n || *n != static_cast<double>(static_cast<long long>(*n)) ||
                                  *n < -2147483648.0 || *n > 2147483647.0) {
                                  return std::nullopt;
                              }
                              return value::number{static_cast<int>(*n)};
                          },
                          [&](type_number const&) -> std::optional<value::value> {
                              auto const n = whole_number(text);
                              if (!n) {
                                  return std::nullopt;
                              }
                              return value::number{as_css_number(*n)};
                          },
                          [&](type_percent const&) -> std::optional<value::value> {
                              // HTML writes a percentage with its sign: width="10%".
                              auto const digits = text.ends_with('%') ? text.substr(0, text.size() - 1) : text;
                              auto const n = whole_number(digits);
                              if (!n) {
                                  return std::nullopt;
                              }
                              return value::percent{as_css_number(*n)};
                          },
                          [&](type_length const& l) -> std::optional<value::value> {
                              auto const n = whole_number(text);
                              if (!n) {
                                  return std::nullopt;
                              }
                              return value::dimension{
                                  as_css_number(*n),
                                  std::string(unit_name(l.length_unit.value_or(units::length_unit::px)))};
                          },
                      },
                      type);
}

} // namespace vellum::css::expr
