// Element categories of the HTML tree builder and small text helpers shared by the parser.
#pragma once

#include "document/html5/stack.hpp"

#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <string_view>

namespace vellum::html5::misc {

/// Whether two names are equal. The tree builder compares names all the time, mostly unequal ones: the
/// length and the first letter tell most of them apart without a call to compare the bytes.
inline bool same_name(std::string_view a, std::string_view b) {
    return a.size() == b.size() && (a.empty() || (a[0] == b[0] && a == b));
}

/// Whether name is one of the listed names.
inline bool name_in(std::string_view name, std::initializer_list<std::string_view> names) {
    for (auto n : names) {
        if (same_name(n, name)) {
            return true;
        }
    }
    return false;
}

/// Whether the node is an HTML element with that name.
bool is_html(tree::node const* n, std::string_view name);

/// Whether the node is an HTML element with one of the names.
bool is_html_in(tree::node const* n, std::initializer_list<std::string_view> names);

/// Whether the element is in the "special" category (it closes formatting and ends scans up the stack).
bool is_in_special_category(tree::node const& n);

/// Whether an HTML element name is a formatting element (a, b, big, code, em, font, i, nobr, s, ...).
bool is_formatting_name(std::string_view name);

/// Pops elements whose end tags are implied (dd, dt, li, p, rb, ...) except one named `except`.
void generate_implied_end_tags(stack::open_elements& stack, std::string_view except = {});

/// As generate_implied_end_tags, with the table parts too (caption, tbody, td, ...), as at EOF or template end.
void generate_all_implied_end_tags_thoroughly(stack::open_elements& stack);

/// HTML whitespace: tab, line feed, form feed, carriage return, space.
inline bool is_space(char c) {
    return c == '\t' || c == '\n' || c == '\f' || c == '\r' || c == ' ';
}

/// The end of the run of ASCII bytes that starts at `at`, with no CR in it when `stop_at_cr` is set.
/// Documents are mostly ASCII, so the run is read eight bytes at a time.
inline std::size_t ascii_run_end(std::string_view data, std::size_t at, bool stop_at_cr) {
    constexpr std::uint64_t high_bits = 0x8080808080808080ull;
    constexpr std::uint64_t ones = 0x0101010101010101ull;
    while (at + 8 <= data.size()) {
        std::uint64_t word;
        std::memcpy(&word, data.data() + at, 8);
        if ((word & high_bits) != 0) {
            break;
        }
        if (stop_at_cr) {
            // A byte of the word equals CR when the same byte of word ^ CR... is zero.
            std::uint64_t const x = word ^ (ones * '\r');
            if (((x - ones) & ~x & high_bits) != 0) {
                break;
            }
        }
        at += 8;
    }
    while (at < data.size()) {
        auto const b = static_cast<unsigned char>(data[at]);
        if (b >= 0x80 || (stop_at_cr && b == '\r')) {
            break;
        }
        ++at;
    }
    return at;
}

/// Lowercases ASCII letters in place.
void ascii_lowercase(std::string& s);

/// Whether two strings are equal ignoring ASCII case.
bool equal_ignoring_case(std::string_view a, std::string_view b);

/// Whether a string starts with a prefix ignoring ASCII case.
bool starts_with_ignoring_case(std::string_view s, std::string_view prefix);

} // namespace vellum::html5::misc
