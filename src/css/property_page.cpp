#include "css/property_page.hpp"

#include "css/parser.hpp"
#include "css/property_parse.hpp"

#include <string>

namespace vellum::css::property_page {

namespace {

using units::length;

length mm(double n) {
    return units::make_length(n, units::length_unit::mm);
}

length in(double n) {
    return units::make_length(n, units::length_unit::in);
}

// ISO 216 and 269 series: from the 0 size, each next size halves the long side, rounded down to a
// whole millimetre.
std::optional<std::pair<length, length>> iso(char series, int n) {
    int w = 0;
    int h = 0;
    switch (series) {
    case 'a':
        w = 841;
        h = 1189;
        break;
    case 'b':
        w = 1000;
        h = 1414;
        break;
    case 'c':
        w = 917;
        h = 1297;
        break;
    default:
        return std::nullopt;
    }
    if (n < 0 || n > 10) {
        return std::nullopt;
    }
    for (int i = 0; i < n; ++i) {
        int const half = h / 2;
        h = w;
        w = half;
    }
    return std::pair{mm(w), mm(h)};
}

} // namespace

std::optional<std::pair<length, length>> paper_size(std::string_view name) {
    std::string low(name);
    for (char& c : low) {
        if (c >= 'A' && c <= 'Z') {
            c = static_cast<char>(c - 'A' + 'a');
        }
    }
    if (low == "letter") {
        return std::pair{in(8.5), in(11)};
    }
    if (low == "legal") {
        return std::pair{in(8.5), in(14)};
    }
    if (low == "ledger") {
        return std::pair{in(11), in(17)};
    }
    if (low.size() >= 2 && low.size() <= 3) {
        int n = 0;
        for (std::size_t i = 1; i < low.size(); ++i) {
            if (low[i] < '0' || low[i] > '9') {
                return std::nullopt;
            }
            n = n * 10 + (low[i] - '0');
        }
        return iso(low[0], n);
    }
    return std::nullopt;
}

std::optional<page_size> parse_size(value::value const& v) {
    page_size out;
    bool has_auto = false;
    std::vector<length> lengths;
    for (auto const& t : property::parse::terms_of(v)) {
        auto const k = property::parse::keyword_of(t);
        if (k == "auto" && !has_auto && !out.size_dims && lengths.empty()) {
            has_auto = true;
        } else if ((k == "portrait" || k == "landscape") && out.size_orientation == orientation::none) {
            out.size_orientation = k == "portrait" ? orientation::portrait : orientation::landscape;
        } else if (auto const paper = k ? paper_size(*k) : std::nullopt;
                   paper && !out.size_dims && lengths.empty()) {
            out.size_dims = *paper;
        } else if (auto const l = property::parse::non_negative_length(t);
                   l && !out.size_dims && lengths.size() < 2) {
            lengths.push_back(*l);
        } else {
            return std::nullopt;
        }
    }
    if (has_auto && out.size_orientation != orientation::none) {
        return std::nullopt;
    }
    if (!lengths.empty()) {
        out.size_dims = std::pair{lengths[0], lengths.back()};
    }
    if (!has_auto && !out.size_dims && out.size_orientation == orientation::none) {
        return std::nullopt;
    }
    return out;
}

std::optional<page_size> parse_size_text(std::string_view text) {
    auto const v = parser::parse_value("", text);
    if (!v) {
        return std::nullopt;
    }
    return parse_size(*v);
}

std::optional<property::property> parse_margin_text(std::string_view text) {
    auto const v = parser::parse_value("", text);
    if (!v) {
        return std::nullopt;
    }
    return property::parse_declaration(propnames::prop_name::prop_margin, *v);
}

std::optional<std::pair<float, float>>
size_in_points(page_size const& s, units::resolution const& r, std::pair<float, float> default_size) {
    std::pair<float, float> wh = default_size;
    if (s.size_dims) {
        wh = {units::to_points(s.size_dims->first, r), units::to_points(s.size_dims->second, r)};
    } else if (s.size_orientation == orientation::none) {
        return std::nullopt;
    }
    bool const wide = wh.first > wh.second;
    if ((s.size_orientation == orientation::landscape && !wide) ||
        (s.size_orientation == orientation::portrait && wide)) {
        std::swap(wh.first, wh.second);
    }
    return wh;
}

} // namespace vellum::css::property_page
