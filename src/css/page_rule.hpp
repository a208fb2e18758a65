// @page rules as the parser reads them: which pages they select, their declarations and the declarations
// of their margin boxes. Typing the page properties (size, marks, bleed) is left to the page model.
#pragma once

#include "css/declaration.hpp"

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace vellum::css::page_rule {

struct left_page {
    bool operator==(left_page const&) const = default;
};

struct right_page {
    bool operator==(right_page const&) const = default;
};

struct blank_page {
    bool operator==(blank_page const&) const = default;
};

/// The n-th page of a named page group; ":first" is the first.
struct nth_page {
    int page_number = 1;
    bool operator==(nth_page const&) const = default;
};

using page_class = std::variant<left_page, right_page, blank_page, nth_page>;

/// A page selector: an optional page name and classes that all must hold.
struct page_selector {
    std::optional<std::string> page_name;
    std::vector<page_class> page_classes;
    bool operator==(page_selector const&) const = default;
};

/// The boxes in the page margin, and the page-float and footnote areas, in their fixed order.
enum class region {
    left_top,
    left_middle,
    left_bottom,
    right_top,
    right_middle,
    right_bottom,
    top_left_corner,
    top_left,
    top_center,
    top_right,
    top_right_corner,
    bottom_left_corner,
    bottom_left,
    bottom_center,
    bottom_right,
    bottom_right_corner,
    page_float_top,
    page_float_bottom,
    footnotes,
};

/// The region an at-rule in a page body names ("top" is "top-center"); nothing for an unknown name.
std::optional<region> find_region(std::string_view at_name);

/// Whether a name is one of the properties of the page itself rather than of its body.
bool is_page_property(std::string_view name);

/// One page selector with the body of its rule.
struct page_rule {
    page_selector selector;
    /// Declarations of the page: page properties and properties of the page body, as written.
    declarations page_declarations;
    /// Declarations of each margin box, in the order of the body.
    std::vector<std::pair<region, declarations>> page_regions;
    bool operator==(page_rule const&) const = default;
};

} // namespace vellum::css::page_rule
