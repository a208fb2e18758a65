// Counter values written in a counter style, for list markers, counter() and counters() in generated
// content, and page numbers in the page margins.
#pragma once

#include "util/textbuf.hpp"

#include <string>

namespace vellum::prepack::counter_style {

/// A counter value in a counter style: decimal, decimal-leading-zero, lower- and upper-roman, lower- and
/// upper-alpha or -latin, lower-greek, the bullets disc, circle and square, or none. Other styles, and
/// numbers a style cannot show, count in decimal.
textbuf::textbuf format_counter(int value, std::string const& style);

} // namespace vellum::prepack::counter_style
