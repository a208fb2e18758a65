#include "util/textbuf.hpp"

namespace vellum::textbuf {

namespace {

constexpr char32_t replacement = 0xFFFD;

bool is_continuation(unsigned char c) {
    return (c & 0xC0) == 0x80;
}

// Decodes one sequence; returns false for an invalid one, leaving `pos` untouched.
bool decode(std::string_view text, std::size_t& pos, char32_t& out) {
    auto const c0 = static_cast<unsigned char>(text[pos]);
    std::size_t len;
    char32_t cp;
    char32_t min;
    if (c0 < 0x80) {
        out = c0;
        ++pos;
        return true;
    } else if ((c0 & 0xE0) == 0xC0) {
        len = 2, cp = c0 & 0x1F, min = 0x80;
    } else if ((c0 & 0xF0) == 0xE0) {
        len = 3, cp = c0 & 0x0F, min = 0x800;
    } else if ((c0 & 0xF8) == 0xF0) {
        len = 4, cp = c0 & 0x07, min = 0x10000;
    } else {
        return false;
    }
    if (pos + len > text.size()) {
        return false;
    }
    for (std::size_t i = 1; i < len; ++i) {
        auto const c = static_cast<unsigned char>(text[pos + i]);
        if (!is_continuation(c)) {
            return false;
        }
        cp = (cp << 6) | (c & 0x3F);
    }
    // Overlong forms, surrogates and values past the Unicode range are not UTF-8.
    if (cp < min || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) {
        return false;
    }
    out = cp;
    pos += len;
    return true;
}

} // namespace

char32_t next_utf8(std::string_view text, std::size_t& pos) {
    char32_t cp;
    if (decode(text, pos, cp)) {
        return cp;
    }
    ++pos;
    return replacement;
}

textbuf from_utf8(std::string_view text) {
    textbuf out;
    out.reserve(text.size());
    std::size_t pos = 0;
    while (pos < text.size()) {
        out.push_back(next_utf8(text, pos));
    }
    return out;
}

void append_utf8(std::string& out, char32_t cp) {
    if (cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) {
        cp = replacement;
    }
    if (cp < 0x80) {
        out.push_back(char(cp));
    } else if (cp < 0x800) {
        out.push_back(char(0xC0 | (cp >> 6)));
        out.push_back(char(0x80 | (cp & 0x3F)));
    } else if (cp < 0x10000) {
        out.push_back(char(0xE0 | (cp >> 12)));
        out.push_back(char(0x80 | ((cp >> 6) & 0x3F)));
        out.push_back(char(0x80 | (cp & 0x3F)));
    } else {
        out.push_back(char(0xF0 | (cp >> 18)));
        out.push_back(char(0x80 | ((cp >> 12) & 0x3F)));
        out.push_back(char(0x80 | ((cp >> 6) & 0x3F)));
        out.push_back(char(0x80 | (cp & 0x3F)));
    }
}

std::string to_utf8(std::u32string_view text) {
    std::string out;
    out.reserve(text.size());
    for (char32_t cp : text) {
        append_utf8(out, cp);
    }
    return out;
}

bool is_valid_utf8(std::string_view text) {
    std::size_t pos = 0;
    char32_t cp;
    while (pos < text.size()) {
        if (!decode(text, pos, cp)) {
            return false;
        }
    }
    return true;
}

} // namespace vellum::textbuf
