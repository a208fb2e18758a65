#include "css/page_rule.hpp"

namespace vellum::css::page_rule {

namespace {

struct region_name {
    char const* name;
    region region_value;
};

constexpr region_name region_names[] = {
    {"top-left-corner", region::top_left_corner},
    {"top-left", region::top_left},
    {"top", region::top_center},
    {"top-center", region::top_center},
    {"top-right", region::top_right},
    {"top-right-corner", region::top_right_corner},
    {"bottom-left-corner", region::bottom_left_corner},
    {"bottom-left", region::bottom_left},
    {"bottom", region::bottom_center},
    {"bottom-center", region::bottom_center},
    {"bottom-right", region::bottom_right},
    {"bottom-right-corner", region::bottom_right_corner},
    {"left-top", region::left_top},
    {"left", region::left_middle},
    {"left-middle", region::left_middle},
    {"left-bottom", region::left_bottom},
    {"right-top", region::right_top},
    {"right", region::right_middle},
    {"right-middle", region::right_middle},
    {"right-bottom", region::right_bottom},
    {"page-float-top", region::page_float_top},
    {"page-float-bottom", region::page_float_bottom},
    {"footnotes", region::footnotes},
    // The name of CSS Generated Content for Paged Media.
    {"footnote", region::footnotes},
};

constexpr char const* page_properties[] = {
    "size",
    "marks",
    "mark-length",
    "mark-offset",
    "bleed",
    "-vellum-trim",
    "-vellum-rotate-body",
    "-vellum-shrink-margin-boxes",
    "-vellum-shrink-to-fit",
    "-vellum-pdf-page-label",
};

} // namespace

std::optional<region> find_region(std::string_view at_name) {
    for (auto const& r : region_names) {
        if (at_name == r.name) {
            return r.region_value;
        }
    }
    return std::nullopt;
}

bool is_page_property(std::string_view name) {
    for (auto const* p : page_properties) {
        if (name == p) {
            return true;
        }
    }
    return false;
}

} // namespace vellum::css::page_rule
