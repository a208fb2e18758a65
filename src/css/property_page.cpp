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

enum class paper_unit { mm, in };

struct paper_name {
    std::string_view paper_name_text;
    paper_unit paper_name_unit;
    double paper_name_width;
    double paper_name_height;
};

// Width by height as the sizes are usually quoted: ISO sizes in millimetres, the others in inches.
// Most are portrait, but a few, such as ledger and the ID-1 card, are wider than tall.
constexpr paper_name paper_names[] = {
    {"a0", paper_unit::mm, 841, 1189},
    {"a1", paper_unit::mm, 594, 841},
    {"a2", paper_unit::mm, 420, 594},
    {"a3", paper_unit::mm, 297, 420},
    {"a4", paper_unit::mm, 210, 297},
    {"a5", paper_unit::mm, 148, 210},
    {"a6", paper_unit::mm, 105, 148},
    {"a7", paper_unit::mm, 74, 105},
    {"a8", paper_unit::mm, 52, 74},
    {"a9", paper_unit::mm, 37, 52},
    {"a10", paper_unit::mm, 26, 37},
    {"b0", paper_unit::mm, 1000, 1414},
    {"b1", paper_unit::mm, 707, 1000},
    {"b2", paper_unit::mm, 500, 707},
    {"b3", paper_unit::mm, 353, 500},
    {"b4", paper_unit::mm, 250, 353},
    {"b5", paper_unit::mm, 176, 250},
    {"b6", paper_unit::mm, 125, 176},
    {"b7", paper_unit::mm, 88, 125},
    {"b8", paper_unit::mm, 62, 88},
    {"b9", paper_unit::mm, 44, 62},
    {"b10", paper_unit::mm, 31, 44},
    {"c0", paper_unit::mm, 917, 1297},
    {"c1", paper_unit::mm, 648, 917},
    {"c2", paper_unit::mm, 458, 648},
    {"c3", paper_unit::mm, 324, 458},
    {"c4", paper_unit::mm, 229, 324},
    {"c5", paper_unit::mm, 162, 229},
    {"c6", paper_unit::mm, 114, 162},
    {"c7", paper_unit::mm, 81, 114},
    {"c8", paper_unit::mm, 57, 81},
    {"c9", paper_unit::mm, 40, 57},
    {"c10", paper_unit::mm, 28, 40},
    {"id-1", paper_unit::mm, 85.6, 53.98},
    {"id-2", paper_unit::mm, 105, 74},
    {"id-3", paper_unit::mm, 125, 88},
    {"letter", paper_unit::in, 8.5, 11},
    {"us-letter", paper_unit::in, 8.5, 11},
    {"legal", paper_unit::in, 8.5, 14},
    {"us-legal", paper_unit::in, 8.5, 14},
    {"ledger", paper_unit::in, 17, 11},
    {"us-ledger", paper_unit::in, 17, 11},
    {"us-tabloid", paper_unit::in, 11, 17},
    {"us-executive", paper_unit::in, 7.25, 10.5},
    {"us-government", paper_unit::in, 8, 11},
    {"us-statement", paper_unit::in, 5.5, 8.5},
    {"us-folio", paper_unit::in, 8.5, 13},
    {"ansi-a", paper_unit::in, 8.5, 11},
    {"ansi-b", paper_unit::in, 11, 17},
    {"ansi-c", paper_unit::in, 17, 22},
    {"ansi-d", paper_unit::in, 22, 34},
    {"ansi-e", paper_unit::in, 34, 44},
    {"arch-a", paper_unit::in, 9, 12},
    {"arch-b", paper_unit::in, 12, 18},
    {"arch-c", paper_unit::in, 18, 24},
    {"arch-d", paper_unit::in, 24, 36},
    {"arch-e", paper_unit::in, 36, 48},
    {"arch-e1", paper_unit::in, 30, 42},
    {"crown-folio", paper_unit::in, 10, 15},
    {"crown-quarto", paper_unit::in, 7.5, 10},
    {"crown-octavo", paper_unit::in, 5, 7.5},
    {"demy-quarto", paper_unit::in, 8.75, 11.25},
    {"demy-octavo", paper_unit::in, 5.625, 8.75},
    {"foolscap-folio", paper_unit::in, 8.5, 13.5},
    {"foolscap-quarto", paper_unit::in, 6.75, 8.5},
    {"foolscap-octavo", paper_unit::in, 4.25, 6.75},
    {"imperial-folio", paper_unit::in, 15, 22},
    {"imperial-quarto", paper_unit::in, 11, 15},
    {"imperial-octavo", paper_unit::in, 7.5, 11},
    {"medium-quarto", paper_unit::in, 9, 11.5},
    {"royal-folio", paper_unit::in, 12.5, 20},
    {"royal-quarto", paper_unit::in, 10, 12.5},
    {"royal-octavo", paper_unit::in, 6.25, 10},
};

} // namespace

std::optional<std::pair<length, length>> paper_size(std::string_view name) {
    std::string low(name);
    for (char& c : low) {
        if (c >= 'A' && c <= 'Z') {
            c = static_cast<char>(c - 'A' + 'a');
        }
    }
    for (auto const& p : paper_names) {
        if (p.paper_name_text == low) {
            if (p.paper_name_unit == paper_unit::mm) {
                return std::pair{mm(p.paper_name_width), mm(p.paper_name_height)};
            }
            return std::pair{in(p.paper_name_width), in(p.paper_name_height)};
        }
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
