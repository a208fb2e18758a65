#include "text/fonts/fallback.hpp"

#include <cstdio>

namespace vellum::fonts::fallback {

namespace {

// Windows-1252 at 0x80 to 0x9F; 0 where that code page has nothing either.
constexpr char16_t windows_1252[32] = {
    0x20AC, 0,      0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0,      0x017D, 0,      0,      0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0,      0x017E, 0x0178,
};

// The letterlike symbols U+2102 to U+2149 as plain letters; 0 for none.
char32_t letterlike(char32_t c) {
    switch (c) {
    case 0x2102: case 0x212D: return U'C';
    case 0x2107: case 0x2130: return U'E';
    case 0x210A: return U'g';
    case 0x210B: case 0x210C: case 0x210D: return U'H';
    case 0x210E: case 0x210F: return U'h';
    case 0x2110: case 0x2111: return U'I';
    case 0x2112: return U'L';
    case 0x2113: return U'l';
    case 0x2115: return U'N';
    case 0x2119: return U'P';
    case 0x211A: return U'Q';
    case 0x211B: case 0x211C: case 0x211D: return U'R';
    case 0x2124: case 0x2128: return U'Z';
    case 0x212A: return U'K';
    case 0x212B: return 0x00C5;
    case 0x212C: return U'B';
    case 0x212F: case 0x2147: return U'e';
    case 0x2131: return U'F';
    case 0x2133: return U'M';
    case 0x2134: return U'o';
    case 0x2139: case 0x2148: return U'i';
    case 0x2145: return U'D';
    case 0x2146: return U'd';
    case 0x2149: return U'j';
    default: return 0;
    }
}

} // namespace

std::string code_text(char32_t c) {
    char buf[16];
    std::snprintf(buf, sizeof buf, "U+%04X", unsigned(c));
    return buf;
}

std::optional<char32_t> substitute_char(char32_t c) {
    if (c >= 0x80 && c <= 0x9F) {
        if (auto w = windows_1252[c - 0x80]) {
            return char32_t(w);
        }
        return std::nullopt;
    }
    if ((c >= 0x2010 && c <= 0x2013) || c == 0x2212) {
        return U'-';
    }
    if (c == 0x223C) {
        return U'~';
    }
    if (c == 0x25C6) {
        return char32_t(0x2666);
    }
    if (c == 0x2027 || c == 0x2043) {
        return char32_t(0x00B7);
    }
    if (c >= 0x2102 && c <= 0x2149) {
        if (auto l = letterlike(c)) {
            return l;
        }
    }
    return std::nullopt;
}

fallback_choice choose_fallback(char32_t c) {
    fallback_choice f;
    if (auto s = substitute_char(c)) {
        f.fallback_char = *s;
        f.fallback_known = true;
    }
    auto const shown = f.fallback_char < 128 ? "'" + std::string(1, char(f.fallback_char)) + "'"
                                             : code_text(f.fallback_char);
    f.fallback_message = "no glyphs for character " + code_text(c) + ", fallback to " + shown;
    return f;
}

} // namespace vellum::fonts::fallback
