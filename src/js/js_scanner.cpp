#include "js/js_scanner.hpp"

#include "util/quote.hpp"
#include "util/ref.hpp"
#include "util/textbuf.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <span>

namespace vellum::js_scanner {

namespace {

struct code_range {
    char32_t range_first;
    char32_t range_last;
};

#include "js/js_ident_tables.inc"

bool in_ranges(char32_t c, code_range const* first, code_range const* last) {
    auto const* it =
        std::upper_bound(first, last, c, [](char32_t x, code_range const& r) { return x < r.range_first; });
    return it != first && c <= (it - 1)->range_last;
}

bool is_ident_start_cp(char32_t c) {
    return in_ranges(c, std::begin(ident_start_ranges), std::end(ident_start_ranges));
}

bool is_ident_part_cp(char32_t c) {
    return is_ident_start_cp(c) || in_ranges(c, std::begin(ident_part_ranges), std::end(ident_part_ranges));
}

bool is_digit(char c) { return c >= '0' && c <= '9'; }

bool is_hex(char c) { return is_digit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'); }

bool is_ascii_letter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

int hex_value(char32_t c) {
    if (c >= '0' && c <= '9') {
        return static_cast<int>(c - '0');
    }
    if (c >= 'a' && c <= 'f') {
        return static_cast<int>(c - 'a' + 10);
    }
    return static_cast<int>(c - 'A' + 10);
}

/// Decodes one well-formed UTF-8 sequence at `pos`: the code point and its length, or length 0.
std::pair<char32_t, std::size_t> utf8_at(std::string_view s, std::size_t pos) {
    auto b = [&](std::size_t i) { return static_cast<unsigned char>(s[pos + i]); };
    unsigned char c = b(0);
    std::size_t n = c >= 0xF0 && c <= 0xF4 ? 4 : c >= 0xE0 ? 3 : c >= 0xC2 && c < 0xE0 ? 2 : 0;
    if (n == 0 || pos + n > s.size()) {
        return {0, 0};
    }
    char32_t cp = n == 2 ? c & 0x1F : n == 3 ? c & 0x0F : c & 0x07;
    for (std::size_t i = 1; i < n; ++i) {
        if ((b(i) & 0xC0) != 0x80) {
            return {0, 0};
        }
        cp = (cp << 6) | (b(i) & 0x3F);
    }
    // Overlong forms and values beyond Unicode are not characters.
    if ((n == 3 && cp < 0x800) || (n == 4 && (cp < 0x10000 || cp > 0x10FFFF))) {
        return {0, 0};
    }
    return {cp, n};
}

/// The length of an identifier character at `pos` (0 if there is none): `$`, `_`, ASCII letters, a
/// `\u` escape of four hexadecimal digits, or a letter of Unicode 5.1; digits and the combining classes
/// too unless it is the first.
std::size_t ident_char(std::string_view s, std::size_t pos, bool first) {
    if (pos >= s.size()) {
        return 0;
    }
    char c = s[pos];
    if (c == '$' || c == '_' || is_ascii_letter(c) || (!first && is_digit(c))) {
        return 1;
    }
    if (c == '\\') {
        if (pos + 6 <= s.size() && s[pos + 1] == 'u' && is_hex(s[pos + 2]) && is_hex(s[pos + 3]) &&
            is_hex(s[pos + 4]) && is_hex(s[pos + 5])) {
            return 6;
        }
        return 0;
    }
    if (static_cast<unsigned char>(c) < 0x80) {
        return 0;
    }
    auto [cp, n] = utf8_at(s, pos);
    if (n == 0) {
        return 0;
    }
    return (first ? is_ident_start_cp(cp) : is_ident_part_cp(cp)) ? n : 0;
}

// Both lists in byte order, for a binary search.
constexpr std::array<std::string_view, 28> keywords = {
    "break", "case", "catch", "continue", "default", "delete", "do",   "else",   "false", "finally",
    "for",   "function", "if", "in",    "instanceof", "new",  "null", "return", "switch", "this",
    "throw", "true", "try",  "typeof", "var", "void", "while", "with",
};

constexpr std::array<std::string_view, 7> reserved_words = {"class",  "const",   "debugger", "enum",
                                                            "export", "extends", "super"};

bool listed(std::span<std::string_view const> words, std::string_view w) {
    return std::binary_search(words.begin(), words.end(), w);
}

// Longest first, so the first that matches is the longest match.
constexpr std::array<std::string_view, 48> punctuators = {
    ">>>=", "===", "!==", ">>>", "<<=", ">>=", "<=", ">=", "==", "!=", "++", "--", "<<", ">>", "&&", "||",
    "+=",   "-=",  "*=",  "%=",  "&=",  "|=",  "^=", "/=", "{",  "}",  "(",  ")",  "[",  "]",  ".",  ";",
    ",",    "<",   ">",   "+",   "-",   "*",   "%",  "&",  "|",  "^",  "!",  "~",  "?",  ":",  "=",  "/",
};

/// The length of a string literal starting with the quote at `pos`, or 0 if it is unterminated or badly
/// escaped.
std::size_t string_length(std::string_view s, std::size_t pos) {
    char quote = s[pos];
    std::size_t i = pos + 1;
    while (i < s.size()) {
        char c = s[i];
        if (c == quote) {
            return i + 1 - pos;
        }
        if (c != '\\') {
            ++i;
            continue;
        }
        if (i + 1 >= s.size()) {
            return 0;
        }
        char e = s[i + 1];
        std::size_t need = e == 'x' ? 2 : e == 'u' ? 4 : 0;
        for (std::size_t k = 0; k < need; ++k) {
            if (i + 2 + k >= s.size() || !is_hex(s[i + 2 + k])) {
                return 0;
            }
        }
        i += 2 + need;
    }
    return 0;
}

/// The length of a regular expression literal starting with the slash at `pos`, or 0 if none matches.
std::size_t regexp_length(std::string_view s, std::size_t pos) {
    std::size_t i = pos + 1;
    if (i >= s.size() || s[i] == '*' || s[i] == '/') {
        return 0;
    }
    while (i < s.size() && s[i] != '/') {
        char c = s[i];
        if (c == '\\') {
            if (i + 1 >= s.size() || s[i + 1] == '\n') {
                return 0;
            }
            i += 2;
        } else if (c == '[') {
            ++i;
            while (i < s.size() && s[i] != ']') {
                if (s[i] == '\\') {
                    if (i + 1 >= s.size() || s[i + 1] == '\n') {
                        return 0;
                    }
                    ++i;
                }
                ++i;
            }
            if (i >= s.size()) {
                return 0;
            }
            ++i;
        } else {
            ++i;
        }
    }
    if (i >= s.size()) {
        return 0;
    }
    ++i;
    while (i < s.size() && (s[i] == '$' || s[i] == '_' || is_ascii_letter(s[i]))) {
        ++i;
    }
    return i - pos;
}

/// The length of the longest numeric literal at `pos`, and whether it is a float; 0 if none.
std::pair<std::size_t, bool> number_length(std::string_view s, std::size_t pos) {
    auto digits = [&](std::size_t i) {
        while (i < s.size() && is_digit(s[i])) {
            ++i;
        }
        return i;
    };
    auto exponent = [&](std::size_t i) {
        if (i < s.size() && (s[i] == 'e' || s[i] == 'E')) {
            std::size_t j = i + 1;
            if (j < s.size() && (s[j] == '+' || s[j] == '-')) {
                ++j;
            }
            if (j < s.size() && is_digit(s[j])) {
                return digits(j);
            }
        }
        return i;
    };
    std::size_t best = 0;
    bool is_float = false;
    if (is_digit(s[pos])) {
        // Integers: `0` alone (no octal), or a non-zero digit and digits; hexadecimal.
        if (s[pos] == '0') {
            best = 1;
            if (pos + 2 < s.size() && (s[pos + 1] == 'x' || s[pos + 1] == 'X') && is_hex(s[pos + 2])) {
                std::size_t i = pos + 2;
                while (i < s.size() && is_hex(s[i])) {
                    ++i;
                }
                best = i - pos;
            }
        } else {
            best = digits(pos) - pos;
        }
        // Floats: digits with an exponent, or digits, a point, digits, an optional exponent.
        std::size_t d = digits(pos);
        std::size_t f = exponent(d);
        if (f > d && f - pos > best) {
            best = f - pos;
            is_float = true;
        }
        if (d < s.size() && s[d] == '.') {
            std::size_t e = exponent(digits(d + 1));
            if (e - pos > best) {
                best = e - pos;
                is_float = true;
            }
        }
    } else if (s[pos] == '.' && pos + 1 < s.size() && is_digit(s[pos + 1])) {
        best = exponent(digits(pos + 1)) - pos;
        is_float = true;
    }
    return {best, is_float};
}

token number_token(std::string_view text, bool is_float) {
    if (is_float) {
        std::string t(text);
        if (t.back() == '.') {
            t += '0';
        }
        double d = 0;
        auto [end, ec] = std::from_chars(t.data(), t.data() + t.size(), d);
        if (end != t.data() + t.size() || (ec != std::errc{} && ec != std::errc::result_out_of_range)) {
            throw internal_error("invalid float token: '" + std::string(text) + "'");
        }
        if (ec == std::errc::result_out_of_range) {
            // Out of the double range: what the C library gives, infinity or zero.
            d = std::strtod(t.c_str(), nullptr);
        }
        return float_token{d};
    }
    if (text.size() > 2 && (text[1] == 'x' || text[1] == 'X')) {
        std::uint64_t v = 0;
        auto [end, ec] = std::from_chars(text.data() + 2, text.data() + text.size(), v, 16);
        if (end != text.data() + text.size()) {
            throw internal_error("hex int out of range: " + std::string(text));
        }
        if (ec == std::errc{} && v <= static_cast<std::uint64_t>(INT64_MAX)) {
            return int_token{static_cast<std::int64_t>(v)};
        }
        // Beyond 64 bits: the C library rounds hexadecimal text to the nearest double.
        return float_token{std::strtod(std::string(text).c_str(), nullptr)};
    }
    std::int64_t v = 0;
    auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), v);
    if (ec == std::errc{} && end == text.data() + text.size()) {
        return int_token{v};
    }
    std::string t(text);
    double d = 0;
    char extra = 0;
    if (std::sscanf(t.c_str(), "%lf%c", &d, &extra) != 1) {
        throw internal_error("int out of range: " + t);
    }
    return float_token{d};
}

} // namespace

scanner scanner::from_string(std::string_view text) {
    scanner s;
    auto nul = text.find('\0');
    s.scanner_text = std::string(text.substr(0, nul));
    return s;
}

result<scanner> scanner::from_stream(std::FILE* stream) {
    scanner s;
    std::array<char, 16384> buffer{};
    for (;;) {
        std::size_t n = std::fread(buffer.data(), 1, buffer.size(), stream);
        s.scanner_text.append(buffer.data(), n);
        if (n < buffer.size()) {
            if (std::ferror(stream)) {
                return fail(std::string("cannot read script: ") + std::strerror(errno));
            }
            break;
        }
    }
    return s;
}

scanned scanner::scan_token(scan_mode mode) {
    return scan_token([](void const* m) { return *static_cast<scan_mode const*>(m); }, &mode);
}

scanned scanner::scan_token(scan_mode (*decide)(void const* context), void const* context) {
    std::string_view s = scanner_text;
    for (;;) {
        std::size_t pos = scanner_pos;
        if (pos >= s.size()) {
            return {scanner_line, eof{}};
        }
        char c = s[pos];
        auto rest = s.substr(pos);
        // Comments; a block comment counts its line feeds but yields no token.
        if (rest.starts_with("/*")) {
            auto end = s.find("*/", pos + 2);
            if (end != std::string_view::npos) {
                scanner_line += static_cast<int>(std::count(s.begin() + static_cast<std::ptrdiff_t>(pos),
                                                            s.begin() + static_cast<std::ptrdiff_t>(end), '\n'));
                scanner_pos = end + 2;
                continue;
            }
        }
        if (rest.starts_with("//")) {
            auto end = s.find('\n', pos);
            scanner_pos = end == std::string_view::npos ? s.size() : end;
            continue;
        }
        // The HTML comment opener is skipped alone; the rest of its line is code.
        if (rest.starts_with("<!--")) {
            scanner_pos += 4;
            continue;
        }
        if (c == ' ' || c == '\t' || c == '\r' || c == '\f') {
            ++scanner_pos;
            continue;
        }
        if (c == '\n') {
            ++scanner_pos;
            return {scanner_line++, line_terminator{}};
        }
        if (rest.starts_with("\xEF\xBB\xBF")) {
            scanner_pos += 3;
            continue;
        }
        int line = scanner_line;
        if (c == '"' || c == '\'') {
            if (std::size_t n = string_length(s, pos)) {
                scanner_pos += n;
                return {line, string_token{decode_string(s.substr(pos + 1, n - 2))}};
            }
            ++scanner_pos;
            return {line, unknown{std::string(1, c)}};
        }
        // Words: keywords, reserved words and identifiers. The longest identifier wins; a keyword only
        // when it is the whole word.
        if (std::size_t n = ident_char(s, pos, true)) {
            std::size_t i = pos + n;
            while (std::size_t m = ident_char(s, i, false)) {
                i += m;
            }
            std::string word(s.substr(pos, i - pos));
            scanner_pos = i;
            if (listed(keywords, word)) {
                return {line, keyword{std::move(word)}};
            }
            if (listed(reserved_words, word)) {
                return {line, reserved{std::move(word)}};
            }
            return {line, identifier{std::move(word)}};
        }
        scan_mode mode = c == '/' ? decide(context) : scan_mode::scan_div;
        auto [num_len, is_float] = number_length(s, pos);
        std::size_t punct_len = 0;
        for (auto p : punctuators) {
            if ((p == "/" || p == "/=") && mode != scan_mode::scan_div) {
                continue;
            }
            if (rest.starts_with(p)) {
                punct_len = p.size();
                break;
            }
        }
        if (num_len > 0 && num_len >= punct_len) {
            scanner_pos += num_len;
            return {line, number_token(s.substr(pos, num_len), is_float)};
        }
        if (punct_len > 0) {
            scanner_pos += punct_len;
            return {line, punctuator{std::string(s.substr(pos, punct_len))}};
        }
        if (c == '/' && mode == scan_mode::scan_regexp) {
            if (std::size_t n = regexp_length(s, pos)) {
                auto text = s.substr(pos, n);
                auto last = text.rfind('/');
                scanner_pos += n;
                return {line, regexp{std::string(text.substr(1, last - 1)), std::string(text.substr(last + 1))}};
            }
        }
        ++scanner_pos;
        if (c > ' ' && c < 0x7F) {
            return {line, unknown{std::string(1, c)}};
        }
        return {line, unknown_byte{}};
    }
}

jsstring::js_string decode_string(std::string_view body) {
    std::u32string const in = textbuf::from_utf8(body);
    std::u32string out;
    out.reserve(in.size());
    auto hex_run = [&](std::size_t at, std::size_t n) {
        if (at + n > in.size()) {
            return false;
        }
        for (std::size_t k = 0; k < n; ++k) {
            char32_t c = in[at + k];
            if (c > 0x7F || !is_hex(static_cast<char>(c))) {
                return false;
            }
        }
        return true;
    };
    auto octal = [&](std::size_t at, char32_t hi) { return at < in.size() && in[at] >= '0' && in[at] <= hi; };
    for (std::size_t i = 0; i < in.size(); ++i) {
        if (in[i] != '\\' || i + 1 >= in.size()) {
            out.push_back(in[i]);
            continue;
        }
        char32_t e = in[i + 1];
        if (e == 'x' && hex_run(i + 2, 2)) {
            out.push_back(static_cast<char32_t>(hex_value(in[i + 2]) * 16 + hex_value(in[i + 3])));
            i += 3;
        } else if (e == 'u' && hex_run(i + 2, 4)) {
            char32_t v = 0;
            for (std::size_t k = 0; k < 4; ++k) {
                v = v * 16 + static_cast<char32_t>(hex_value(in[i + 2 + k]));
            }
            out.push_back(v);
            i += 5;
        } else if (octal(i + 1, '3') && octal(i + 2, '7') && octal(i + 3, '7')) {
            out.push_back((in[i + 1] - '0') * 64 + (in[i + 2] - '0') * 8 + (in[i + 3] - '0'));
            i += 3;
        } else if (octal(i + 1, '7') && octal(i + 2, '7')) {
            out.push_back((in[i + 1] - '0') * 8 + (in[i + 2] - '0'));
            i += 2;
        } else if (octal(i + 1, '7')) {
            out.push_back(in[i + 1] - '0');
            i += 1;
        } else if (e == '\n') {
            i += 1;
        } else {
            char32_t v = e;
            switch (e) {
            case 'b':
                v = 8;
                break;
            case 't':
                v = 9;
                break;
            case 'n':
                v = 10;
                break;
            case 'v':
                v = 11;
                break;
            case 'f':
                v = 12;
                break;
            case 'r':
                v = 13;
                break;
            default:
                break;
            }
            out.push_back(v);
            i += 1;
        }
    }
    return jsstring::js_string{std::move(out)};
}

std::string token_to_string(token const& t) {
    return std::visit(overloaded{
                          [&](keyword const& k) { return "keyword(" + quoted(k.keyword_text) + ")"; },
                          [&](reserved const& r) { return "reserved(" + quoted(r.reserved_text) + ")"; },
                          [&](identifier const& i) { return "identifier(" + quoted(i.identifier_text) + ")"; },
                          [&](punctuator const& p) { return "punctuator(" + quoted(p.punctuator_text) + ")"; },
                          [&](string_token const& s) { return quoted(jsstring::to_utf8(s.string_value)); },
                          [&](int_token const& i) { return "int(" + std::to_string(i.int_value) + ")"; },
                          [&](float_token const& f) {
                              std::array<char, 32> buf{};
                              auto r = std::to_chars(buf.data(), buf.data() + buf.size(), f.float_value);
                              return "float(" + std::string(buf.data(), r.ptr) + ")";
                          },
                          [&](regexp const& r) {
                              return "regexp(" + quoted(r.regexp_pattern) + ", " + quoted(r.regexp_flags) + ")";
                          },
                          [&](unknown const& u) { return "unknown(" + quoted(u.unknown_text) + ")"; },
                          [](unknown_byte const&) { return std::string("unknown_byte"); },
                          [](line_terminator const&) { return std::string("line_terminator"); },
                          [](eof const&) { return std::string("eof"); },
                      },
                      t);
}

} // namespace vellum::js_scanner
