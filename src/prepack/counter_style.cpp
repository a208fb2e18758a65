#include "prepack/counter_style.hpp"

#include <cctype>
#include <string_view>
#include <utility>

namespace vellum::prepack::counter_style {

textbuf::textbuf format_counter(int value, std::string const& style) {
    auto const decimal = [&] { return textbuf::from_utf8(std::to_string(value)); };
    // Letters as digits of a base with no zero: a..z, then aa, ab ...
    auto const alphabetic = [&](std::u32string_view letters) {
        if (value <= 0) {
            return decimal();
        }
        auto const base = static_cast<int>(letters.size());
        textbuf::textbuf out;
        for (int n = value; n > 0; n = (n - 1) / base) {
            out.insert(out.begin(), letters[static_cast<std::size_t>((n - 1) % base)]);
        }
        return out;
    };
    auto const roman = [&](bool upper) {
        static constexpr std::pair<int, char const*> table[] = {
            {1000, "m"}, {900, "cm"}, {500, "d"}, {400, "cd"}, {100, "c"}, {90, "xc"}, {50, "l"},
            {40, "xl"},  {10, "x"},   {9, "ix"},  {5, "v"},    {4, "iv"},  {1, "i"}};
        // Roman numerals have no zero, no negatives, and no letter for 5000.
        if (value <= 0 || value >= 4000) {
            return decimal();
        }
        textbuf::textbuf out;
        int n = value;
        for (auto const& [v, letters] : table) {
            for (; n >= v; n -= v) {
                for (char const* c = letters; *c != '\0'; ++c) {
                    out += static_cast<char32_t>(upper ? std::toupper(*c) : *c);
                }
            }
        }
        return out;
    };
    if (style == "lower-roman") {
        return roman(false);
    }
    if (style == "upper-roman") {
        return roman(true);
    }
    if (style == "lower-alpha" || style == "lower-latin") {
        return alphabetic(U"abcdefghijklmnopqrstuvwxyz");
    }
    if (style == "upper-alpha" || style == "upper-latin") {
        return alphabetic(U"ABCDEFGHIJKLMNOPQRSTUVWXYZ");
    }
    if (style == "lower-greek") {
        return alphabetic(U"αβγδεζηθικλμνξοπρστυφχψω");
    }
    if (style == "decimal-leading-zero") {
        if (value >= 0 && value < 10) {
            return U"0" + decimal();
        }
        return decimal();
    }
    if (style == "disc") {
        return U"\u2022";
    }
    if (style == "circle") {
        return U"\u25E6";
    }
    if (style == "square") {
        return U"\u25AA";
    }
    if (style == "none") {
        return U"";
    }
    return decimal();
}

} // namespace vellum::prepack::counter_style
