#include "css/lexer.hpp"

#include "util/quote.hpp"
#include "util/ref.hpp"
#include "util/textbuf.hpp"

#include <charconv>
#include <climits>
#include <cstdio>
#include <algorithm>
#include <optional>

namespace vellum::css {

double number_as_double(number const& n) {
    return std::visit(overloaded{
                          [](int i) { return static_cast<double>(i); },
                          [](double d) { return d; },
                      },
                      n);
}

} // namespace vellum::css

namespace vellum::css::lexer {

namespace {

// The closer of a token that opens a group: "(" and functions close with ")".
std::optional<symbol> closer_of(token const& t) {
    if (std::holds_alternative<function>(t) || is(t, symbol::open_paren)) {
        return symbol::close_paren;
    }
    if (is(t, symbol::open_bracket)) {
        return symbol::close_bracket;
    }
    if (is(t, symbol::open_brace)) {
        return symbol::close_brace;
    }
    return std::nullopt;
}

bool is_digit(char c) {
    return c >= '0' && c <= '9';
}

bool is_hex(char c) {
    return is_digit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

int hex_value(char c) {
    if (is_digit(c)) {
        return c - '0';
    }
    return (c | 0x20) - 'a' + 10;
}

bool is_newline(char c) {
    return c == '\n' || c == '\r' || c == '\f';
}

bool is_white(char c) {
    return c == ' ' || c == '\t' || is_newline(c);
}

// Letters, the underscore and everything beyond ASCII may start a name.
bool is_name_start(char c) {
    auto const u = static_cast<unsigned char>(c);
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' || u >= 0x80;
}

bool is_name_char(char c) {
    return is_name_start(c) || is_digit(c) || c == '-';
}

// Walks the text once, left to right, producing one token per call.
struct scanner {
    std::string_view text;
    std::size_t pos = 0;

    bool at_end(std::size_t p) const { return p >= text.size(); }

    char peek(std::size_t ahead = 0) const {
        return pos + ahead < text.size() ? text[pos + ahead] : '\0';
    }

    bool starts_with(std::string_view s) const { return text.substr(pos).starts_with(s); }

    // A backslash starts an escape unless a newline or the end follows it.
    bool is_escape(std::size_t p) const {
        return p + 1 < text.size() && text[p] == '\\' && !is_newline(text[p + 1]);
    }

    bool is_name_start_at(std::size_t p) const {
        return !at_end(p) && (is_name_start(text[p]) || is_escape(p));
    }

    bool is_name_char_at(std::size_t p) const {
        return !at_end(p) && (is_name_char(text[p]) || is_escape(p));
    }

    // An identifier starts with a name character, or with "-" and one.
    bool is_ident_start_at(std::size_t p) const {
        if (!at_end(p) && text[p] == '-') {
            // "--" starts the name of a custom property ("-->" is taken before identifiers).
            return is_name_start_at(p + 1) || (!at_end(p + 1) && text[p + 1] == '-');
        }
        return is_name_start_at(p);
    }

    // Reads the escape at pos (the backslash) and appends the character it stands for. Of the hexadecimal
    // digits that follow, the longest group of six, four, three, two or one digits with a non-zero value
    // counts; five is never taken. A single blank after a hexadecimal escape belongs to the escape.
    void read_escape(std::string& out) {
        ++pos;
        std::size_t digits = 0;
        while (digits < 6 && is_hex(peek(digits))) {
            ++digits;
        }
        for (std::size_t len : {6u, 4u, 3u, 2u, 1u}) {
            if (len > digits) {
                continue;
            }
            char32_t value = 0;
            for (std::size_t i = 0; i < len; ++i) {
                value = value * 16 + static_cast<char32_t>(hex_value(peek(i)));
            }
            if (value == 0) {
                continue;
            }
            pos += len;
            textbuf::append_utf8(out, value > 0x10FFFF || (value >= 0xD800 && value <= 0xDFFF) ? 0xFFFD : value);
            if (peek() == ' ') {
                ++pos;
            }
            return;
        }
        textbuf::append_utf8(out, textbuf::next_utf8(text, pos));
    }

    std::string read_name() {
        std::string out;
        while (!at_end(pos)) {
            if (is_escape(pos)) {
                read_escape(out);
            } else if (is_name_char(text[pos])) {
                out += text[pos++];
            } else {
                break;
            }
        }
        return out;
    }

    // A quoted string. A raw newline breaks it: the broken string becomes a delim of its quote, and the
    // newline stays for the next token. The end of the text closes a string.
    token read_string() {
        char const quote = text[pos++];
        std::string out;
        while (!at_end(pos)) {
            char const c = text[pos];
            if (c == quote) {
                ++pos;
                return string{out};
            }
            if (is_newline(c)) {
                return delim{static_cast<char32_t>(quote)};
            }
            if (c == '\\') {
                if (pos + 1 >= text.size()) {
                    ++pos;
                } else if (is_newline(text[pos + 1])) {
                    // A backslash before a newline continues the string on the next line.
                    pos += text.substr(pos + 1, 2) == "\r\n" ? 3 : 2;
                } else {
                    read_escape(out);
                }
                continue;
            }
            out += c;
            ++pos;
        }
        return string{out};
    }

    // Digits with an optional fraction; an integer too long for int is clamped to the bound on its side.
    css::number read_number(bool negative) {
        std::size_t const start = pos;
        while (is_digit(peek())) {
            ++pos;
        }
        if (peek() == '.' && is_digit(peek(1))) {
            ++pos;
            while (is_digit(peek())) {
                ++pos;
            }
            double d = 0;
            std::from_chars(text.data() + start, text.data() + pos, d);
            return negative ? -d : d;
        }
        long long value = 0;
        bool overflow = false;
        for (std::size_t i = start; i < pos; ++i) {
            value = value * 10 + (text[i] - '0');
            if (value > static_cast<long long>(INT_MAX) + 1) {
                overflow = true;
                break;
            }
        }
        if (negative) {
            return overflow || -value < INT_MIN ? INT_MIN : static_cast<int>(-value);
        }
        return overflow || value > INT_MAX ? INT_MAX : static_cast<int>(value);
    }

    bool integer_follows(std::size_t p) const {
        if (at_end(p) || !is_digit(text[p])) {
            return false;
        }
        while (!at_end(p) && is_digit(text[p])) {
            ++p;
        }
        return !(p + 1 < text.size() && text[p] == '.' && is_digit(text[p + 1]));
    }

    // After "url(": an unquoted argument and the closing bracket, or nothing if the form doesn't fit.
    std::optional<token> try_url() {
        std::size_t const save = pos;
        while (is_white(peek())) {
            ++pos;
        }
        std::string out;
        while (!at_end(pos)) {
            char const c = text[pos];
            if (c == ')' || is_white(c)) {
                break;
            }
            if (c == '"' || c == '\'' || c == '(' || static_cast<unsigned char>(c) < 0x20 || c == 0x7f) {
                pos = save;
                return std::nullopt;
            }
            if (c == '\\') {
                if (!is_escape(pos)) {
                    pos = save;
                    return std::nullopt;
                }
                read_escape(out);
                continue;
            }
            out += c;
            ++pos;
        }
        while (is_white(peek())) {
            ++pos;
        }
        if (peek() != ')' || out.empty()) {
            pos = save;
            return std::nullopt;
        }
        ++pos;
        return url{out};
    }

    // "U+" and up to six digits or "?", optionally a dash and up to six more. A "?" next to a dash, or a
    // low end above the high end, spoils the token, which then becomes a delim.
    token read_unicode_range() {
        pos += 2;
        auto read_part = [&](std::string& part) {
            while (part.size() < 6 && (is_hex(peek()) || peek() == '?')) {
                part += text[pos++];
            }
        };
        std::string low;
        read_part(low);
        std::string high;
        bool const has_dash = peek() == '-' && (is_hex(peek(1)) || peek(1) == '?');
        if (has_dash) {
            ++pos;
            read_part(high);
        }
        auto value = [](std::string const& s, char wild) {
            char32_t v = 0;
            for (char c : s) {
                v = v * 16 + static_cast<char32_t>(c == '?' ? hex_value(wild) : hex_value(c));
            }
            return v;
        };
        bool const wild = low.find('?') != std::string::npos || high.find('?') != std::string::npos;
        if (has_dash && wild) {
            return delim{U'U'};
        }
        char32_t const lo = value(low, '0');
        char32_t const hi = has_dash ? value(high, '0') : value(low, 'F');
        if (lo > hi) {
            return delim{U'U'};
        }
        return unicode_range{{{lo, hi}}};
    }

    token read_ident_like() {
        std::string name = read_name();
        if (peek() != '(') {
            return ident{name};
        }
        ++pos;
        if (equals_ignoring_case(name, "url")) {
            if (auto u = try_url()) {
                return *u;
            }
        }
        return function{name};
    }

    // The next token, or nothing for "<!--", "-->" and the end of the text.
    std::optional<token> next() {
        char const c = text[pos];
        if (is_white(c)) {
            while (is_white(peek())) {
                ++pos;
            }
            return symbol::space;
        }
        if (starts_with("/*")) {
            auto const end = text.find("*/", pos + 2);
            pos = end == std::string_view::npos ? text.size() : end + 2;
            return symbol::comment;
        }
        if (starts_with("<!--")) {
            pos += 4;
            return std::nullopt;
        }
        if (starts_with("-->")) {
            pos += 3;
            return std::nullopt;
        }
        if (c == '"' || c == '\'') {
            return read_string();
        }
        if ((c == 'u' || c == 'U') && peek(1) == '+' && (is_hex(peek(2)) || peek(2) == '?')) {
            return read_unicode_range();
        }
        if (is_ident_start_at(pos)) {
            return read_ident_like();
        }
        if (is_digit(c) || (c == '.' && is_digit(peek(1)))) {
            return number{read_number(false)};
        }
        if ((c == '+' || c == '-') && integer_follows(pos + 1)) {
            ++pos;
            return signed_int{std::get<int>(read_number(c == '-'))};
        }
        if (c == '#' && is_name_char_at(pos + 1)) {
            ++pos;
            bool const id = is_ident_start_at(pos);
            std::string name = read_name();
            if (id) {
                return hash_id{name};
            }
            return hash{name};
        }
        if (c == '@' && is_ident_start_at(pos + 1)) {
            ++pos;
            return at{read_name()};
        }
        if (peek(1) == '=') {
            std::optional<symbol> op;
            switch (c) {
            case '~': op = symbol::includes; break;
            case '|': op = symbol::dash_match; break;
            case '^': op = symbol::prefix_match; break;
            case '$': op = symbol::suffix_match; break;
            case '*': op = symbol::substring_match; break;
            default: break;
            }
            if (op) {
                pos += 2;
                return *op;
            }
        }
        std::optional<symbol> single;
        switch (c) {
        case '>': single = symbol::greater; break;
        case '=': single = symbol::equals; break;
        case '+': single = symbol::plus; break;
        case '-': single = symbol::minus; break;
        case '*': single = symbol::star; break;
        case '/': single = symbol::slash; break;
        case '%': single = symbol::percent; break;
        case '~': single = symbol::tilde; break;
        case '|': single = symbol::bar; break;
        case ':': single = symbol::colon; break;
        case ';': single = symbol::semicolon; break;
        case ',': single = symbol::comma; break;
        case '.': single = symbol::dot; break;
        case '!': single = symbol::bang; break;
        case '[': single = symbol::open_bracket; break;
        case ']': single = symbol::close_bracket; break;
        case '{': single = symbol::open_brace; break;
        case '}': single = symbol::close_brace; break;
        case '(': single = symbol::open_paren; break;
        case ')': single = symbol::close_paren; break;
        default: break;
        }
        if (single) {
            ++pos;
            return *single;
        }
        return delim{textbuf::next_utf8(text, pos)};
    }
};

char const* symbol_text(symbol s) {
    switch (s) {
    case symbol::comment: return "/**/";
    case symbol::includes: return "~=";
    case symbol::dash_match: return "|=";
    case symbol::prefix_match: return "^=";
    case symbol::suffix_match: return "$=";
    case symbol::substring_match: return "*=";
    case symbol::greater: return ">";
    case symbol::equals: return "=";
    case symbol::plus: return "+";
    case symbol::minus: return "-";
    case symbol::star: return "*";
    case symbol::slash: return "/";
    case symbol::percent: return "%";
    case symbol::tilde: return "~";
    case symbol::bar: return "|";
    case symbol::colon: return ":";
    case symbol::semicolon: return ";";
    case symbol::comma: return ",";
    case symbol::dot: return ".";
    case symbol::bang: return "!";
    case symbol::open_bracket: return "[";
    case symbol::close_bracket: return "]";
    case symbol::open_brace: return "{";
    case symbol::close_brace: return "}";
    case symbol::open_paren: return "(";
    case symbol::close_paren: return ")";
    case symbol::space: return " ";
    }
    return "";
}


} // namespace

std::string number_text(css::number const& n) {
    return std::visit(overloaded{
                          [](int i) { return std::to_string(i); },
                          [](double d) {
                              char buf[32];
                              std::snprintf(buf, sizeof buf, "%g", d);
                              return std::string(buf);
                          },
                      },
                      n);
}

std::string quoted(std::string_view s) { return vellum::quoted(s); }

// A name as CSS text that reads back as the same name: characters that cannot stand in a name, and a digit
// where the name (after one hyphen) would start, are escaped.
static std::string escaped_name(std::string_view name, bool as_identifier) {
    std::string out;
    for (std::size_t i = 0; i < name.size(); ++i) {
        char const c = name[i];
        auto const u = static_cast<unsigned char>(c);
        bool const starts = as_identifier && (i == 0 || (i == 1 && name[0] == '-'));
        if (u < 0x20 || u == 0x7f || (starts && is_digit(c))) {
            char buf[8];
            std::snprintf(buf, sizeof buf, "\\%x ", static_cast<unsigned>(u));
            out += buf;
        } else if (is_name_char(c)) {
            out += c;
        } else {
            out += '\\';
            out += c;
        }
    }
    return out;
}

std::vector<token> scan(std::string_view text, comments mode, std::vector<int>* lines) {
    // The scanner works on bytes; text that isn't UTF-8 is repaired first so that every name holds
    // well-formed characters.
    std::string repaired;
    if (!textbuf::is_valid_utf8(text)) {
        repaired = textbuf::to_utf8(textbuf::from_utf8(text));
        text = repaired;
    }
    scanner sc{.text = text};
    std::vector<token> out;
    // The closers of the groups open at this point. Inside a group only its own closer ends it (another
    // kind of closer is an ordinary token there), as the parsers skip groups.
    std::vector<symbol> open;
    // While a group too deep is being cut out: the depth at which it began; else no_cut.
    constexpr std::size_t no_cut = SIZE_MAX;
    std::size_t cutting = no_cut;
    // The line of the token about to be read, counted up to `counted`.
    int line = 1;
    std::size_t counted = 0;
    while (sc.pos < text.size()) {
        if (lines != nullptr) {
            for (; counted < sc.pos; ++counted) {
                line += text[counted] == '\n' ? 1 : 0;
            }
        }
        int const token_line = line;
        auto t = sc.next();
        if (!t || (mode == comments::drop && is(*t, symbol::comment))) {
            continue;
        }
        if (auto const* d = std::get_if<delim>(&*t); d != nullptr && d->delim_char == nesting_cut) {
            t = delim{0xFFFD};
        }
        if (!open.empty() && is(*t, open.back())) {
            open.pop_back();
            if (cutting != no_cut && open.size() == cutting) {
                cutting = no_cut;
                continue;
            }
        } else if (auto const close = closer_of(*t)) {
            if (cutting == no_cut && open.size() == max_nesting) {
                cutting = open.size();
                out.push_back(delim{nesting_cut});
                if (lines != nullptr) {
                    lines->push_back(token_line);
                }
            }
            open.push_back(*close);
        }
        if (cutting == no_cut) {
            out.push_back(std::move(*t));
            if (lines != nullptr) {
                lines->push_back(token_line);
            }
        }
    }
    return out;
}

bool has_nesting_cut(std::vector<token> const& tokens) {
    return std::ranges::find(tokens, token{delim{nesting_cut}}) != tokens.end();
}

std::string to_text(token const& t) {
    return std::visit(overloaded{
                          [](symbol s) { return std::string(symbol_text(s)); },
                          [](string const& s) { return quoted(s.string_text); },
                          [](ident const& i) { return escaped_name(i.ident_name, true); },
                          [](function const& f) { return escaped_name(f.function_name, true) + "("; },
                          [](number const& n) { return number_text(n.number_value); },
                          [](signed_int const& i) { return (i.signed_value >= 0 ? "+" : "") + std::to_string(i.signed_value); },
                          [](hash const& h) { return "#" + escaped_name(h.hash_name, false); },
                          [](hash_id const& h) { return "#" + escaped_name(h.hash_name, false); },
                          [](at const& a) { return "@" + escaped_name(a.at_name, true); },
                          [](url const& u) { return "url(" + u.url_text + ")"; },
                          [](unicode_range const& r) {
                              std::string out;
                              for (auto const& [lo, hi] : r.ranges) {
                                  char buf[40];
                                  std::snprintf(buf, sizeof buf, "U+%X-%X", static_cast<unsigned>(lo),
                                                static_cast<unsigned>(hi));
                                  out += buf;
                              }
                              return out;
                          },
                          [](delim const& d) {
                              std::string out;
                              textbuf::append_utf8(out, d.delim_char);
                              return out;
                          },
                      },
                      t);
}

bool is_identifier(std::string_view text) {
    scanner sc{.text = text};
    if (!sc.is_ident_start_at(0)) {
        return false;
    }
    sc.read_name();
    return sc.pos == text.size();
}

std::string ascii_lower(std::string_view text) {
    std::string out(text);
    for (char& c : out) {
        if (c >= 'A' && c <= 'Z') {
            c = static_cast<char>(c + 32);
        }
    }
    return out;
}

bool equals_ignoring_case(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) {
        return false;
    }
    for (std::size_t i = 0; i < a.size(); ++i) {
        char x = a[i];
        char y = b[i];
        if (x >= 'A' && x <= 'Z') {
            x = static_cast<char>(x + 32);
        }
        if (y >= 'A' && y <= 'Z') {
            y = static_cast<char>(y + 32);
        }
        if (x != y) {
            return false;
        }
    }
    return true;
}

} // namespace vellum::css::lexer
