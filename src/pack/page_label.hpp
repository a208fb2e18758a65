// The label a PDF viewer shows for a page, from the page's -vellum-pdf-page-label: a prefix and a number
// in one of the numbering styles that PDF page labels know, or a text of its own.
#pragma once

#include "css/page.hpp"

#include <optional>
#include <string>

namespace vellum::pack {

struct page_info;

/// The numbering styles of PDF page labels.
enum class page_label_counter_style { lower_roman, upper_roman, lower_alpha, upper_alpha, decimal };

/// A number in a numbering style.
struct page_label_number {
    int label_number = 1;
    page_label_counter_style label_style = page_label_counter_style::decimal;
    bool operator==(page_label_number const&) const = default;
};

/// A page's label: an optional prefix followed by an optional number.
struct page_label {
    std::optional<std::string> label_prefix;
    std::optional<page_label_number> label_counter;
    bool operator==(page_label const&) const = default;
};

/// The label of a page whose counters and strings are in `info`. "auto" numbers the page by its page
/// counter in decimals. Content that ends in counter(page) with a style PDF can number in becomes the
/// prefix and that number, so that a viewer counts on from it; any other content becomes a text label.
/// No label when the page counter is below 1 under "auto".
std::optional<page_label> page_label_of(page_info const& info, css::page::vellum_pdf_page_label const& spec);

} // namespace vellum::pack
