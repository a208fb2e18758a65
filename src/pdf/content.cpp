#include "pdf/content.hpp"

#include "util/ref.hpp"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdio>

namespace vellum::pdf::content {

namespace {

void put(out const& o, std::string_view text) {
    bulkio::output::write_all(o, bulkio::output::as_bytes(text));
}

// The longest number text: "%.4f" of the largest double has 309 digits before the point.
constexpr std::size_t number_room = 400;

// The text "%.4f" gives for a value of ordinary size, from its ten-thousandths as an integer; null for
// a value too large, or one so near half a ten-thousandth that the scaling may have rounded it the
// other way (the exact decimal value of the double decides those, as to_chars does). Painting writes
// several numbers for every word and every border: this is several times faster than to_chars with a
// precision.
char* four_places(char* at, double value) {
    double const scaled = value * 10000.0;
    if (!(std::fabs(scaled) < 1e12)) {
        return nullptr;
    }
    double const whole = std::floor(scaled);
    double const fraction = scaled - whole;
    // The product is off by at most half a unit in its last place (under 1e-4 here) from the exact one.
    if (std::fabs(fraction - 0.5) < 1e-3) {
        return nullptr;
    }
    auto const units = static_cast<std::int64_t>(fraction > 0.5 ? whole + 1 : whole);
    if (units == 0) {
        // A value that rounds to zero loses its sign.
        static constexpr std::string_view zero = "0.0000";
        return std::copy(zero.begin(), zero.end(), at);
    }
    std::uint64_t magnitude = units < 0 ? static_cast<std::uint64_t>(-units) : static_cast<std::uint64_t>(units);
    if (units < 0) {
        *at++ = '-';
    }
    at = std::to_chars(at, at + 24, magnitude / 10000).ptr;
    *at++ = '.';
    auto rest = static_cast<unsigned>(magnitude % 10000);
    for (int k = 3; k >= 0; --k) {
        at[k] = static_cast<char>('0' + rest % 10);
        rest /= 10;
    }
    return at + 4;
}

// Writes the text of a number at `at`, which has room for `number_room` characters, and gives the end.
char* number_chars(char* at, double value, precision p) {
    static constexpr std::string_view zero = "0.0000";
    if (!std::isfinite(value) || value == 0) {
        return std::copy(zero.begin(), zero.end(), at);
    }
    // to_chars gives the correctly rounded digits that "%.4f" gives, without the locale and format
    // parsing of printf, and without a string on the heap: the painter writes several numbers for every
    // word.
    if (p == precision::higher_precision && std::fabs(value) < 0.01) {
        auto const r = std::to_chars(at, at + number_room, value, std::chars_format::fixed, 15);
        // Trailing zeros go, but one decimal always stays.
        char* end = r.ptr;
        for (int removed = 0; removed < 14 && end[-1] == '0'; ++removed) {
            --end;
        }
        return end;
    }
    if (char* end = four_places(at, value)) {
        return end;
    }
    auto const r = std::to_chars(at, at + number_room, value, std::chars_format::fixed, 4);
    if (r.ec != std::errc{}) {
        return at;
    }
    // A value that rounds to zero loses its sign.
    if (std::string_view(at, r.ptr) == "-0.0000") {
        return std::copy(zero.begin(), zero.end(), at);
    }
    return r.ptr;
}

// Appends numbers separated by blanks, then the operator, formatted on the stack. A line goes out in one
// write, unless numbers of hundreds of digits fill the buffer first.
void put_op(out const& o, gs const& g, std::initializer_list<double> numbers, std::string_view op) {
    char line[2 * number_room];
    char* at = line;
    for (double n : numbers) {
        if (std::size_t(line + sizeof line - at) < number_room + 1) {
            put(o, std::string_view(line, std::size_t(at - line)));
            at = line;
        }
        at = number_chars(at, n, g.number_precision);
        *at++ = ' ';
    }
    if (std::size_t(line + sizeof line - at) < op.size()) {
        put(o, std::string_view(line, std::size_t(at - line)));
        at = line;
    }
    at = std::copy(op.begin(), op.end(), at);
    put(o, std::string_view(line, std::size_t(at - line)));
}

std::string name_token(std::string_view name) {
    std::string out = "/";
    for (unsigned char c : name) {
        // Delimiters, white space and bytes outside the printable range go as #xx.
        if (c < 0x21 || c > 0x7e || c == '#' || c == '/' || c == '(' || c == ')' || c == '<' || c == '>' ||
            c == '[' || c == ']' || c == '{' || c == '}' || c == '%') {
            char buf[4];
            std::snprintf(buf, sizeof buf, "#%02X", c);
            out += buf;
        } else {
            out += static_cast<char>(c);
        }
    }
    return out;
}

// Writes a colour for stroking or filling. Device colours carry their space in the operator; a pattern or
// separation selects its space by name first when the space in force is another.
void set_color(out const& o, gs& g, color::color const& given, bool for_stroke) {
    color::color const c = g.rgb_as_cmyk ? color::without_rgb(given) : given;
    color::color& current = for_stroke ? g.current.color_stroke : g.current.color_fill;
    if (current == c) {
        return;
    }
    std::visit(overloaded{
                   [&](color::rgb const& v) { put_op(o, g, {v.r, v.g, v.b}, for_stroke ? "RG\n" : "rg\n"); },
                   [&](color::cmyk const& v) {
                       put_op(o, g, {v.c, v.m, v.y, v.k}, for_stroke ? "K\n" : "k\n");
                   },
                   [&](color::gray const& v) {
                       put(o, format_number(v.level, g.number_precision) + (for_stroke ? " G\n" : " g\n"));
                   },
                   [&](color::pattern const& v) {
                       if (color::colorspace_of(current) != color::colorspace::pattern) {
                           put(o, for_stroke ? "/Pattern CS\n" : "/Pattern cs\n");
                       }
                       g.used.pattern_resources.insert(v.pattern_name);
                       put(o, name_token(v.pattern_name) + (for_stroke ? " SCN\n" : " scn\n"));
                   },
                   [&](color::separation const& v) {
                       auto const* was = std::get_if<color::separation>(&current);
                       if (!was || was->separation_name != v.separation_name) {
                           put(o, name_token(v.separation_name) + (for_stroke ? " CS\n" : " cs\n"));
                       }
                       g.used.color_resources.insert(v.separation_name);
                       put_op(o, g, {v.tint}, for_stroke ? "SCN\n" : "scn\n");
                   },
               },
               c);
    current = c;
}

// Selects the graphics-state dictionary holding exactly these entries.
void set_ext_gs(out const& o, gs& g, std::vector<ext_gs_param> const& params) {
    if (params.empty()) {
        return;
    }
    put(o, name_token(resources::name_of(g.used.ext_gs_list, params)) + " gs\n");
}

} // namespace

std::string format_number(double value, precision p) {
    char buf[number_room];
    return std::string(buf, number_chars(buf, value, p));
}

std::string format_number(number const& value, precision p) {
    return std::visit(overloaded{
                          [](std::int64_t i) { return std::to_string(i); },
                          [&](double d) { return format_number(d, p); },
                      },
                      value);
}

void save(out const& o, gs& g) {
    g.saved.push_back(g.current);
    put(o, "q\n");
}

void restore(out const& o, gs& g) {
    if (g.saved.empty()) {
        throw graphics_state_stack_underflow();
    }
    g.current = std::move(g.saved.back());
    g.saved.pop_back();
    put(o, "Q\n");
}

void concat(out const& o, gs& g, matrix::matrix const& m) {
    put_op(o, g, {m.a, m.b, m.c, m.d, m.tx, m.ty}, "cm\n");
}

void move(out const& o, gs& g, double x, double y) { put_op(o, g, {x, y}, "m\n"); }
void line(out const& o, gs& g, double x, double y) { put_op(o, g, {x, y}, "l\n"); }
void curve(out const& o, gs& g, double x1, double y1, double x2, double y2, double x3, double y3) {
    put_op(o, g, {x1, y1, x2, y2, x3, y3}, "c\n");
}
void rect(out const& o, gs& g, double x, double y, double w, double h) { put_op(o, g, {x, y, w, h}, "re\n"); }
void close(out const& o) { put(o, "h\n"); }

void fill(out const& o) { put(o, "f\n"); }
void fill_even_odd(out const& o) { put(o, "f*\n"); }
void stroke(out const& o) { put(o, "S\n"); }
void fill_and_stroke(out const& o) { put(o, "B\n"); }
void fill_and_stroke_even_odd(out const& o) { put(o, "B*\n"); }
void clip(out const& o) { put(o, "W\n"); }
void clip_even_odd(out const& o) { put(o, "W*\n"); }
void end_path(out const& o) { put(o, "n\n"); }

void begin_text(out const& o) { put(o, "BT\n"); }
void end_text(out const& o) { put(o, "ET\n"); }

void font(out const& o, gs& g, int font_id, double size) {
    g.used.font_resources.insert(font_id);
    if (g.current.text_font == font_id && g.current.text_font_size == size) {
        return;
    }
    put(o, "/F" + std::to_string(font_id) + " " + format_number(size, g.number_precision) + " Tf\n");
    g.current.text_font = font_id;
    g.current.text_font_size = size;
}

void position(out const& o, gs& g, double x, double y) { put_op(o, g, {x, y}, "Td\n"); }

void text_matrix(out const& o, gs& g, tm const& m) {
    std::string line;
    for (number const* n : {&m.a, &m.b, &m.c, &m.d, &m.e, &m.f}) {
        line += format_number(*n, g.number_precision);
        line += ' ';
    }
    put(o, line + "Tm\n");
}

void character_spacing(out const& o, gs& g, double spacing) {
    if (g.current.text_character_spacing == spacing) {
        return;
    }
    put_op(o, g, {spacing}, "Tc\n");
    g.current.text_character_spacing = spacing;
}

void word_spacing(out const& o, gs& g, double spacing) {
    if (g.current.text_word_spacing == spacing) {
        return;
    }
    put_op(o, g, {spacing}, "Tw\n");
    g.current.text_word_spacing = spacing;
}

void render_mode(out const& o, text_render_mode mode) {
    int n = 0;
    switch (mode) {
    case text_render_mode::fill:
        n = 0;
        break;
    case text_render_mode::stroke:
        n = 1;
        break;
    case text_render_mode::fill_and_stroke:
        n = 2;
        break;
    case text_render_mode::clip:
        n = 7;
        break;
    }
    put(o, std::to_string(n) + " Tr\n");
}

void show_literal(out const& o, std::string_view bytes) {
    std::string s = "(";
    for (char c : bytes) {
        switch (c) {
        case '(':
        case ')':
        case '\\':
            s += '\\';
            s += c;
            break;
        case '\r':
            // A bare carriage return would be read as a line end and turned into a newline.
            s += "\\r";
            break;
        default:
            s += c;
        }
    }
    put(o, s + ") Tj\n");
}

void show_hex(out const& o, std::string_view bytes) {
    static constexpr char digits[] = "0123456789ABCDEF";
    std::string s = "<";
    for (unsigned char c : bytes) {
        s += digits[c >> 4];
        s += digits[c & 15];
    }
    put(o, s + "> Tj\n");
}

void xobject(out const& o, gs& g, std::string const& name) {
    g.used.xobject_resources.insert(name);
    put(o, name_token(name) + " Do\n");
}

void begin_marked(out const& o, std::string_view tag) { put(o, name_token(tag) + " BMC\n"); }

void begin_marked_properties(out const& o, std::string_view tag, std::string_view properties) {
    put(o, name_token(tag) + " " + std::string(properties) + " BDC\n");
}

void end_marked(out const& o) { put(o, "EMC\n"); }

void stroke_color(out const& o, gs& g, color::color const& c) { set_color(o, g, c, true); }
void fill_color(out const& o, gs& g, color::color const& c) { set_color(o, g, c, false); }

void line_width(out const& o, gs& g, double width) {
    if (g.current.stroke_width == width) {
        return;
    }
    put_op(o, g, {width}, "w\n");
    g.current.stroke_width = width;
}

void line_cap(out const& o, gs& g, stroke_linecap cap) {
    if (g.current.stroke_linecap == cap) {
        return;
    }
    put(o, std::to_string(static_cast<int>(cap)) + " J\n");
    g.current.stroke_linecap = cap;
}

void line_join(out const& o, gs& g, stroke_linejoin join) {
    if (g.current.stroke_linejoin == join) {
        return;
    }
    put(o, std::to_string(static_cast<int>(join)) + " j\n");
    g.current.stroke_linejoin = join;
}

void miter_limit(out const& o, gs& g, double limit) {
    if (g.current.stroke_miterlimit == limit) {
        return;
    }
    put_op(o, g, {limit}, "M\n");
    g.current.stroke_miterlimit = limit;
}

void dash(out const& o, gs& g, stroke_dash const& d) {
    if (g.current.stroke_dash == d) {
        return;
    }
    std::string s = "[";
    for (std::size_t i = 0; i < d.array.size(); ++i) {
        s += (i ? " " : "") + format_number(d.array[i], g.number_precision);
    }
    put(o, s + "] " + format_number(d.phase, g.number_precision) + " d\n");
    g.current.stroke_dash = d;
}

void opacity(out const& o, gs& g, double fill_alpha, double stroke_alpha) {
    if (g.strip_transparency) {
        if (fill_alpha < 1 || stroke_alpha < 1) {
            g.used.stripped_transparency = true;
        }
        return;
    }
    std::vector<ext_gs_param> params;
    if (g.current.alpha_fill != fill_alpha) {
        params.push_back(alpha_fill{fill_alpha});
    }
    if (g.current.alpha_stroke != stroke_alpha) {
        params.push_back(alpha_stroke{stroke_alpha});
    }
    set_ext_gs(o, g, params);
    g.current.alpha_fill = fill_alpha;
    g.current.alpha_stroke = stroke_alpha;
}

void overprint_setting(out const& o, gs& g, bool on, int mode) {
    std::vector<ext_gs_param> params;
    if (g.current.overprint != on) {
        params.push_back(overprint{on});
    }
    if (g.current.overprint_mode != mode) {
        params.push_back(overprint_mode{mode});
    }
    set_ext_gs(o, g, params);
    g.current.overprint = on;
    g.current.overprint_mode = mode;
}

void new_page(gs& g) {
    g.current = gs0{};
    g.saved.clear();
    g.used.font_resources.clear();
    g.used.xobject_resources.clear();
    g.used.color_resources.clear();
    g.used.pattern_resources.clear();
    resources::new_page(g.used.ext_gs_list);
    g.used.stripped_transparency = false;
}

} // namespace vellum::pdf::content
