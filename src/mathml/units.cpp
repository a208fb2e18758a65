#include "mathml/units.hpp"

#include <array>
#include <cmath>
#include <cstdlib>
#include <string>

namespace vellum::mathml::units {

namespace {

constexpr std::array<std::string_view, 7> keyword_names{
    "veryverythinmathspace", "verythinmathspace",  "thinmathspace",          "mediummathspace",
    "thickmathspace",        "verythickmathspace", "veryverythickmathspace",
};

std::string_view trim(std::string_view s) {
    while (!s.empty() && (s.front() == ' ' || s.front() == '\t' || s.front() == '\n' || s.front() == '\r')) {
        s.remove_prefix(1);
    }
    while (!s.empty() && (s.back() == ' ' || s.back() == '\t' || s.back() == '\n' || s.back() == '\r')) {
        s.remove_suffix(1);
    }
    return s;
}

} // namespace

std::optional<mathspace> parse_mathspace(std::string_view text) {
    text = trim(text);
    bool negative = false;
    auto word = text;
    if (word.starts_with("negative")) {
        negative = true;
        word.remove_prefix(8);
    }
    for (std::size_t i = 0; i < keyword_names.size(); ++i) {
        if (word == keyword_names[i]) {
            return named{.named_keyword = keyword(i), .named_negative = negative};
        }
    }
    std::string const s(text);
    // strtod, not sscanf: sscanf takes the "e" of "2em" for an exponent and cannot give it back.
    char* end = nullptr;
    double const v = std::strtod(s.c_str(), &end);
    if (s.empty() || end == s.c_str() || s[0] == ' ' || std::isinf(v) || std::isnan(v)) {
        return std::nullopt;
    }
    auto const rest = trim(std::string_view(s).substr(std::size_t(end - s.c_str())));
    static constexpr std::array<std::pair<std::string_view, unit>, 10> units{{
        {"em", unit::em},
        {"ex", unit::ex},
        {"pt", unit::pt},
        {"px", unit::px},
        {"in", unit::in},
        {"cm", unit::cm},
        {"mm", unit::mm},
        {"pc", unit::pc},
        {"%", unit::percent},
        {"", unit::none},
    }};
    for (auto const& [name, u] : units) {
        if (rest == name) {
            return length{.length_value = v, .length_unit = u};
        }
    }
    return std::nullopt;
}

int eighteenths(keyword k) {
    return int(k) + 1;
}

double resolve(mathspace const& m, double em, double ex, double base) {
    if (auto const* n = std::get_if<named>(&m)) {
        double const v = eighteenths(n->named_keyword) * em / 18.0;
        return n->named_negative ? -v : v;
    }
    auto const& l = std::get<length>(m);
    double const v = l.length_value;
    switch (l.length_unit) {
    case unit::em:
        return v * em;
    case unit::ex:
        return v * ex;
    case unit::pt:
        return v;
    case unit::px:
        return v * 0.75;
    case unit::in:
        return v * 72;
    case unit::cm:
        return v * 72 / 2.54;
    case unit::mm:
        return v * 72 / 25.4;
    case unit::pc:
        return v * 12;
    case unit::percent:
        return v * base / 100;
    case unit::none:
        return v * base;
    }
    return 0;
}

} // namespace vellum::mathml::units
