#include "pdf/object.hpp"

#include "pdf/bulkio/buffer.hpp"
#include "util/ref.hpp"
#include "util/textbuf.hpp"

#include <charconv>
#include <cstdio>

namespace vellum::pdf {

namespace {

// The two places a value is written to: the file buffer, and a string for callers that want the text.
struct buffer_sink {
    bulkio::buffer::buffer& sink_buffer;

    void put(char c) { bulkio::buffer::put_byte(sink_buffer, static_cast<std::uint8_t>(c)); }

    void put(std::string_view text) { bulkio::buffer::put_text(sink_buffer, text); }
};

struct string_sink {
    std::string& sink_text;

    void put(char c) { sink_text.push_back(c); }

    void put(std::string_view text) { sink_text.append(text); }
};

// Decodes one UTF-8 sequence at `pos`. Unlike textbuf's decoder it reports an invalid sequence instead
// of replacing it, because strings and names stop at the first one.
bool next_code_point(std::string_view text, std::size_t& pos, char32_t& out) {
    auto const saved = pos;
    char32_t const cp = textbuf::next_utf8(text, pos);
    if (cp == 0xFFFD && text.substr(saved, 3) != "\xEF\xBF\xBD") {
        pos = saved;
        return false;
    }
    out = cp;
    return true;
}

template <class Sink>
void put_int(Sink& out, std::int64_t value) {
    char digits[24];
    auto const end = std::to_chars(digits, digits + sizeof digits, value).ptr;
    out.put(std::string_view(digits, end - digits));
}

// A real is written with four decimals and nothing trimmed, as "%.4f" does; to_chars gives the same
// correctly rounded digits without touching the heap.
template <class Sink>
void put_real(Sink& out, double value) {
    char digits[64];
    auto const r = std::to_chars(digits, digits + sizeof digits, value, std::chars_format::fixed, 4);
    if (r.ec == std::errc{}) {
        out.put(std::string_view(digits, r.ptr - digits));
        return;
    }
    // Only magnitudes far beyond anything a page holds do not fit the stack buffer.
    std::string wide(400, '\0');
    auto const n = std::snprintf(wide.data(), wide.size(), "%.4f", value);
    out.put(std::string_view(wide.data(), static_cast<std::size_t>(n)));
}

// A literal string keeps the low byte of each code point. The three delimiters of literal strings are
// escaped as the bytes actually written, so a code point whose low byte is a parenthesis cannot
// unbalance the string; nothing else is escaped, not even CR or LF.
template <class Sink>
void put_literal(Sink& out, std::string_view text) {
    out.put('(');
    std::size_t pos = 0;
    char32_t cp;
    while (pos < text.size() && next_code_point(text, pos, cp)) {
        auto const c = static_cast<char>(cp & 0xFF);
        if (c == '(' || c == ')' || c == '\\') {
            out.put('\\');
        }
        out.put(c);
    }
    out.put(')');
}

template <class Sink>
void put_hex_string(Sink& out, std::string_view bytes) {
    static constexpr char digits[] = "0123456789ABCDEF";
    out.put('<');
    for (char ch : bytes) {
        auto const c = static_cast<unsigned char>(ch);
        out.put(digits[c >> 4]);
        out.put(digits[c & 15]);
    }
    out.put('>');
}

// The escape of a name byte, or null when it goes out as it is. '#' itself is left alone: the names
// this program writes never contain it.
char const* name_escape(unsigned char c) {
    switch (c) {
    case '\t':
        return "#09";
    case '\n':
        return "#0A";
    case '\r':
        return "#0D";
    case ' ':
        return "#20";
    case '%':
        return "#25";
    case '(':
        return "#28";
    case ')':
        return "#29";
    case '/':
        return "#2F";
    case '<':
        return "#3C";
    case '>':
        return "#3E";
    case '[':
        return "#5B";
    case ']':
        return "#5D";
    case '{':
        return "#7B";
    case '}':
        return "#7D";
    default:
        return nullptr;
    }
}

// Like literal strings, names keep the low byte of each code point; the escapes are chosen on that
// byte so that the name always ends where it should.
template <class Sink>
void put_name(Sink& out, std::string_view text) {
    out.put('/');
    std::size_t pos = 0;
    char32_t cp;
    while (pos < text.size() && next_code_point(text, pos, cp)) {
        auto const c = static_cast<unsigned char>(cp & 0xFF);
        if (auto const esc = name_escape(c)) {
            out.put(std::string_view(esc, 3));
        } else {
            out.put(static_cast<char>(c));
        }
    }
}

template <class Sink>
void put_value(Sink& out, object const& value);

template <class Sink>
void put_number(Sink& out, number const& n) {
    std::visit(overloaded{
                   [&](std::int64_t i) { put_int(out, i); },
                   [&](double d) { put_real(out, d); },
               },
               n);
}

template <class Sink>
void put_value(Sink& out, object const& value) {
    std::visit(overloaded{
                   [&](null const&) { out.put("null"); },
                   [&](bool b) { out.put(b ? "true" : "false"); },
                   [&](std::int64_t i) { put_int(out, i); },
                   [&](double d) { put_real(out, d); },
                   [&](number const& n) { put_number(out, n); },
                   [&](string const& s) { put_literal(out, s.string_text); },
                   [&](hex const& h) { put_hex_string(out, h.hex_bytes); },
                   [&](name const& n) { put_name(out, n.name_text); },
                   [&](array const& a) {
                       out.put('[');
                       bool first = true;
                       for (auto const& item : a.array_items) {
                           if (!first) {
                               out.put(' ');
                           }
                           first = false;
                           put_value(out, item);
                       }
                       out.put(']');
                   },
                   [&](dict const& d) {
                       out.put("<<");
                       bool first = true;
                       for (auto const& [key, item] : d.dict_entries) {
                           if (!first) {
                               out.put('\n');
                           }
                           first = false;
                           put_name(out, key);
                           out.put(' ');
                           put_value(out, item);
                       }
                       out.put(">>");
                   },
                   [&](ref const& r) {
                       put_int(out, r.ref_index);
                       out.put(" 0 R");
                   },
               },
               value);
}

std::string ref_list(std::vector<ref> const& refs) {
    std::string text;
    for (auto const& r : refs) {
        if (!text.empty()) {
            text += ", ";
        }
        text += std::to_string(r.ref_index);
    }
    return text;
}

} // namespace

// Written out rather than defaulted: clang (14 to 16) crashes on a defaulted comparison of a record that
// holds vectors of the variant that holds the record.
bool array::operator==(array const& o) const {
    return array_items == o.array_items;
}

bool dict::operator==(dict const& o) const {
    return dict_entries == o.dict_entries;
}

pdf_error::pdf_error(pdf_exception e)
    : internal_error(describe(e))
    , pdf_error_value(std::move(e)) {}

std::string describe(pdf_exception const& e) {
    return std::visit(
        overloaded{
            [](ref_already_used const& x) {
                return "pdf: reference " + std::to_string(x.used_ref.ref_index) + " already used";
            },
            [](unused_refs const& x) { return "pdf: unused references " + ref_list(x.unused_list); },
            [](incorrect_stream_length const& x) {
                return "pdf: incorrect stream length: specified " + std::to_string(x.specified) +
                       ", actual " + std::to_string(x.actual);
            },
            [](missing_root_object const&) { return std::string("pdf: missing root object"); },
            [](root_already_written const& x) {
                return "pdf: root already written as object " + std::to_string(x.root_ref.ref_index);
            },
            [](info_already_written const& x) {
                return "pdf: information dictionary already written as object " +
                       std::to_string(x.info_ref.ref_index);
            },
            [](graphics_state_stack_underflow const&) {
                return std::string("pdf: graphics state stack underflow");
            },
        },
        e);
}

void raise(pdf_exception e) {
    throw pdf_error(std::move(e));
}

std::string to_text(object const& value) {
    std::string text;
    string_sink out{text};
    put_value(out, value);
    return text;
}

void write_value(bulkio::buffer::buffer& out, object const& value) {
    buffer_sink sink{out};
    put_value(sink, value);
}

object text_string(std::string_view utf8) {
    auto const cps = textbuf::from_utf8(utf8);
    bool ascii = true;
    for (auto cp : cps) {
        ascii = ascii && cp <= 127;
    }
    if (ascii) {
        return string{std::string(utf8)};
    }
    // UTF-16BE without surrogate pairs: a code point past the first plane keeps its low 16 bits.
    std::string bytes = "\xFE\xFF";
    bytes.reserve(2 + 2 * cps.size());
    for (auto cp : cps) {
        bytes.push_back(static_cast<char>((cp >> 8) & 0xFF));
        bytes.push_back(static_cast<char>(cp & 0xFF));
    }
    return hex{std::move(bytes)};
}

object pdf_date(date const& d) {
    char text[64];
    int n;
    if (d.date_time) {
        n = std::snprintf(text, sizeof text, "D:%d%02d%02d%02d%02d%02d", d.year, d.month, d.day,
                          d.date_time->hour, d.date_time->minute, d.date_time->second);
    } else {
        n = std::snprintf(text, sizeof text, "D:%d%02d%02d", d.year, d.month, d.day);
    }
    return string{std::string(text, static_cast<std::size_t>(n))};
}

object from_number(number n) {
    return std::visit(overloaded{
                          [](std::int64_t i) { return object{i}; },
                          [](double d) { return object{d}; },
                      },
                      n);
}

object rect_to_array(common::rect const& r) {
    return array{{from_number(r.left), from_number(r.bottom), from_number(r.right), from_number(r.top)}};
}

} // namespace vellum::pdf
