// The functions of the global object: `eval`, number parsing, `isNaN` and `isFinite`, `escape` and the
// URI codings; and the values and objects the global object holds.
#include "js/builtins.hpp"
#include "util/result.hpp"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <string>

namespace vellum::js::eval::builtins {

namespace {

constexpr double nan_value = std::numeric_limits<double>::quiet_NaN();

int digit_value(char32_t c) {
    if (c >= '0' && c <= '9') {
        return static_cast<int>(c - '0');
    }
    if (c >= 'a' && c <= 'z') {
        return static_cast<int>(c - 'a') + 10;
    }
    if (c >= 'A' && c <= 'Z') {
        return static_cast<int>(c - 'A') + 10;
    }
    return 99;
}

std::size_t skip_space(js_string const& s) {
    std::size_t i = 0;
    while (i < s.length() && is_js_space(s[i])) {
        ++i;
    }
    return i;
}

expr_res<js_value> parse_int(call_info const& c) {
    js_string s;
    if (auto e = take(to_string(c.engine, c.arg(0)), s)) {
        return *e;
    }
    std::int32_t radix = 0;
    if (auto e = take(to_int32(c.engine, c.arg(1)), radix)) {
        return *e;
    }
    std::size_t i = skip_space(s);
    bool negative = false;
    if (i < s.length() && (s[i] == '+' || s[i] == '-')) {
        negative = s[i] == '-';
        ++i;
    }
    bool strip_prefix = true;
    if (radix != 0) {
        if (radix < 2 || radix > 36) {
            return number{nan_value};
        }
        strip_prefix = radix == 16;
    } else {
        radix = 10;
    }
    if (strip_prefix && i + 1 < s.length() && s[i] == '0' && (s[i + 1] == 'x' || s[i + 1] == 'X')) {
        i += 2;
        radix = 16;
    }
    std::size_t const start = i;
    while (i < s.length() && digit_value(s[i]) < radix) {
        ++i;
    }
    if (i == start) {
        return number{nan_value};
    }
    double value = 0;
    if (radix == 10) {
        // Decimal digits go through the C library, which rounds long digit strings correctly.
        std::string digits(s.code_points().begin() + static_cast<std::ptrdiff_t>(start),
                           s.code_points().begin() + static_cast<std::ptrdiff_t>(i));
        value = std::strtod(digits.c_str(), nullptr);
    } else {
        for (std::size_t k = start; k < i; ++k) {
            value = value * radix + digit_value(s[k]);
        }
    }
    return number_value(negative ? -value : value);
}

// The extent of the longest prefix that is a decimal literal: sign, "Infinity", or digits with an
// optional fraction and exponent.
std::size_t decimal_extent(js_string const& s, std::size_t i) {
    std::size_t const begin = i;
    auto digits = [&] {
        std::size_t const from = i;
        while (i < s.length() && s[i] >= '0' && s[i] <= '9') {
            ++i;
        }
        return i > from;
    };
    if (i < s.length() && (s[i] == '+' || s[i] == '-')) {
        ++i;
    }
    static constexpr std::u32string_view infinity = U"Infinity";
    if (std::u32string_view(s.code_points()).substr(i, infinity.size()) == infinity) {
        return i + infinity.size();
    }
    bool const whole = digits();
    bool fraction = false;
    if (i < s.length() && s[i] == '.') {
        ++i;
        fraction = digits();
        if (!whole && !fraction) {
            return begin;
        }
    } else if (!whole) {
        return begin;
    }
    if (i < s.length() && (s[i] == 'e' || s[i] == 'E')) {
        std::size_t const mark = i;
        ++i;
        if (i < s.length() && (s[i] == '+' || s[i] == '-')) {
            ++i;
        }
        if (!digits()) {
            i = mark;
        }
    }
    return i;
}

expr_res<js_value> parse_float(call_info const& c) {
    js_string s;
    if (auto e = take(to_string(c.engine, c.arg(0)), s)) {
        return *e;
    }
    std::size_t const start = skip_space(s);
    std::size_t const end = decimal_extent(s, start);
    if (end == start) {
        return number{nan_value};
    }
    // The extent is ASCII, so its code points are its characters.
    std::string const literal(s.code_points().begin() + static_cast<std::ptrdiff_t>(start),
                              s.code_points().begin() + static_cast<std::ptrdiff_t>(end));
    double d = 0;
    char rest = 0;
    if (std::sscanf(literal.c_str(), "%lf%c", &d, &rest) != 1) {
        return number{nan_value};
    }
    return number_value(d);
}

constexpr char const hex_digits[] = "0123456789ABCDEF";

void append_hex(std::u32string& out, unsigned value, int digits) {
    for (int shift = (digits - 1) * 4; shift >= 0; shift -= 4) {
        out.push_back(static_cast<char32_t>(hex_digits[(value >> shift) & 0xF]));
    }
}

std::optional<unsigned> hex_at(js_string const& s, std::size_t i, int digits) {
    if (i + static_cast<std::size_t>(digits) > s.length()) {
        return std::nullopt;
    }
    unsigned v = 0;
    for (int k = 0; k < digits; ++k) {
        int const d = digit_value(s[i + static_cast<std::size_t>(k)]);
        if (d >= 16) {
            return std::nullopt;
        }
        v = v * 16 + static_cast<unsigned>(d);
    }
    return v;
}

bool is_ascii_alnum(char32_t c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

bool in_set(char32_t c, std::u32string_view set) {
    return set.find(c) != std::u32string_view::npos;
}

js_string escape(js_string const& s) {
    std::u32string out;
    for (char32_t c : s.code_points()) {
        if (is_ascii_alnum(c) || in_set(c, U"@*_+-./")) {
            out.push_back(c);
        } else if (c < 0x100) {
            out.push_back('%');
            append_hex(out, c, 2);
        } else if (c < 0x10000) {
            out += U"%u";
            append_hex(out, c, 4);
        } else {
            // A character beyond the BMP is written as its UTF-16 pair, as other engines do.
            char32_t const v = c - 0x10000;
            out += U"%u";
            append_hex(out, 0xD800 + (v >> 10), 4);
            out += U"%u";
            append_hex(out, 0xDC00 + (v & 0x3FF), 4);
        }
    }
    return js_string(std::move(out));
}

js_string unescape(js_string const& s) {
    std::u32string out;
    for (std::size_t i = 0; i < s.length(); ++i) {
        if (s[i] == '%') {
            if (i + 1 < s.length() && s[i + 1] == 'u') {
                if (auto v = hex_at(s, i + 2, 4)) {
                    append_code_unit(out, *v);
                    i += 5;
                    continue;
                }
            } else if (auto v = hex_at(s, i + 1, 2)) {
                out.push_back(*v);
                i += 2;
                continue;
            }
        }
        out.push_back(s[i]);
    }
    return js_string(std::move(out));
}

constexpr std::u32string_view uri_reserved = U";/?:@&=+$,";
constexpr std::u32string_view uri_mark = U"-_.!~*'()";

expr_res<js_value> encode_uri(call_info const& c, bool component) {
    js_string s;
    if (auto e = take(to_string(c.engine, c.arg(0)), s)) {
        return *e;
    }
    std::u32string out;
    for (char32_t ch : s.code_points()) {
        if (is_ascii_alnum(ch) || in_set(ch, uri_mark) ||
            (!component && (in_set(ch, uri_reserved) || ch == '#'))) {
            out.push_back(ch);
            continue;
        }
        if ((ch >= 0xD800 && ch <= 0xDFFF) || ch > 0x10FFFF) {
            return throw_error(c.engine, js_error::invalid_uri);
        }
        std::string const bytes = jsstring::to_utf8(js_string(std::u32string(1, ch)));
        for (unsigned char b : bytes) {
            out.push_back('%');
            append_hex(out, b, 2);
        }
    }
    return js_string(std::move(out));
}

expr_res<js_value> decode_uri(call_info const& c, bool component) {
    js_string s;
    if (auto e = take(to_string(c.engine, c.arg(0)), s)) {
        return *e;
    }
    auto invalid = [&] { return throw_error(c.engine, js_error::invalid_uri); };
    std::u32string out;
    for (std::size_t i = 0; i < s.length(); ++i) {
        if (s[i] != '%') {
            out.push_back(s[i]);
            continue;
        }
        auto first = hex_at(s, i + 1, 2);
        if (!first) {
            return invalid();
        }
        std::size_t const start = i;
        i += 2;
        if (*first < 0x80) {
            char32_t const ch = *first;
            // decodeURI keeps the escapes of characters that have a meaning in a URI.
            if (!component && (in_set(ch, uri_reserved) || ch == '#')) {
                out.append(s.code_points(), start, 3);
            } else {
                out.push_back(ch);
            }
            continue;
        }
        int const count = (*first & 0xE0) == 0xC0   ? 2
                          : (*first & 0xF0) == 0xE0 ? 3
                          : (*first & 0xF8) == 0xF0 ? 4
                                                    : 0;
        if (count == 0) {
            return invalid();
        }
        char32_t cp = *first & (0x7Fu >> count);
        for (int k = 1; k < count; ++k) {
            if (i + 1 >= s.length() || s[i + 1] != '%') {
                return invalid();
            }
            auto next = hex_at(s, i + 2, 2);
            if (!next || (*next & 0xC0) != 0x80) {
                return invalid();
            }
            cp = (cp << 6) | (*next & 0x3F);
            i += 3;
        }
        constexpr char32_t least[] = {0, 0, 0x80, 0x800, 0x10000};
        if (cp < least[count] || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) {
            return invalid();
        }
        out.push_back(cp);
    }
    return js_string(std::move(out));
}

expr_res<js_value> string_function(call_info const& c, js_string (*f)(js_string const&)) {
    js_string s;
    if (auto e = take(to_string(c.engine, c.arg(0)), s)) {
        return *e;
    }
    return f(s);
}

expr_res<js_value> indirect_eval(call_info const& c) {
    // Only code is run; any other value is the result as it is.
    js_value const code = c.arg(0);
    if (!std::holds_alternative<js_string>(code)) {
        return code;
    }
    if (!c.engine.js_hooks.indirect_eval) {
        throw internal_error("eval: code cannot run: no compiler is installed in the engine");
    }
    return c.engine.js_hooks.indirect_eval(c.engine, code);
}

} // namespace

void append_code_unit(std::u32string& out, char32_t unit) {
    if (unit >= 0xDC00 && unit <= 0xDFFF && !out.empty() && out.back() >= 0xD800 && out.back() <= 0xDBFF) {
        out.back() = 0x10000 + ((out.back() - 0xD800) << 10) + (unit - 0xDC00);
        return;
    }
    out.push_back(unit);
}

bool is_js_space(char32_t c) {
    switch (c) {
    case 0x09:
    case 0x0A:
    case 0x0B:
    case 0x0C:
    case 0x0D:
    case 0x20:
    case 0xA0:
    case 0x1680:
    case 0x180E:
    case 0x2028:
    case 0x2029:
    case 0x202F:
    case 0x205F:
    case 0x3000:
    case 0xFEFF:
        return true;
    default:
        return c >= 0x2000 && c <= 0x200A;
    }
}

expr_res<js_value> call_global(call_info const& c, global_func f) {
    switch (f) {
    case global_func::eval:
        return indirect_eval(c);
    case global_func::parse_int:
        return parse_int(c);
    case global_func::parse_float:
        return parse_float(c);
    case global_func::is_nan:
    case global_func::is_finite: {
        double d = 0;
        if (auto e = take(to_double_value(c.engine, c.arg(0)), d)) {
            return *e;
        }
        return f == global_func::is_nan ? std::isnan(d) : std::isfinite(d);
    }
    case global_func::escape:
        return string_function(c, escape);
    case global_func::unescape:
        return string_function(c, unescape);
    case global_func::decode_uri:
        return decode_uri(c, false);
    case global_func::decode_uri_component:
        return decode_uri(c, true);
    case global_func::encode_uri:
        return encode_uri(c, false);
    case global_func::encode_uri_component:
        return encode_uri(c, true);
    }
    throw internal_error("call_global: unexpected function.");
}

void install_global(js& engine) {
    js_object const g = engine.global_object;
    define_value(g, "Infinity", number{std::numeric_limits<double>::infinity()}, constant);
    define_value(g, "NaN", number{nan_value}, constant);
    define_value(g, "undefined", undefined(), constant);
    // The compiler recognises a direct eval by this object.
    engine.eval_function = define_method(engine, g, "eval", {global_func::eval}, 1);
    define_methods(engine, g,
                   {
                       {"parseInt", {global_func::parse_int}, 2},
                       {"parseFloat", {global_func::parse_float}, 1},
                       {"isNaN", {global_func::is_nan}, 1},
                       {"isFinite", {global_func::is_finite}, 1},
                       {"escape", {global_func::escape}, 1},
                       {"unescape", {global_func::unescape}, 1},
                       {"decodeURI", {global_func::decode_uri}, 1},
                       {"decodeURIComponent", {global_func::decode_uri_component}, 1},
                       {"encodeURI", {global_func::encode_uri}, 1},
                       {"encodeURIComponent", {global_func::encode_uri_component}, 1},
                   });
    // Scripts find a JSON object, but it has no members.
    js_object json = new_object_of(engine, class_special{.special_name = "JSON"},
                                   yes_proto{.proto = engine.object_prototype});
    define_value(g, "JSON", json, hidden);
}

} // namespace vellum::js::eval::builtins
