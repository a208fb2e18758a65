#include "document/html5/encode.hpp"

#include "document/html5/misc.hpp"
#include "util/textbuf.hpp"

#include <algorithm>
#include <cerrno>
#include <vector>
#include <iconv.h>

namespace vellum::html5::encode {

namespace {

bool is_space(char c) {
    return c == '\t' || c == '\n' || c == '\f' || c == '\r' || c == ' ';
}

bool is_alpha(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

// windows-1252 bytes 0x80-0x9F; the five bytes it leaves undefined map to the C1 controls.
constexpr char32_t cp1252_high[32] = {0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,
                                      0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0x008D, 0x017D, 0x008F,
                                      0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,
                                      0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178};

std::string from_cp1252(std::string_view data) {
    std::string out;
    out.reserve(data.size() + data.size() / 4);
    for (char ch : data) {
        auto b = static_cast<unsigned char>(ch);
        if (b < 0x80) {
            out.push_back(ch);
        } else if (b < 0xA0) {
            textbuf::append_utf8(out, cp1252_high[b - 0x80]);
        } else {
            textbuf::append_utf8(out, b);
        }
    }
    return out;
}

// Replaces each maximal ill-formed subsequence by one U+FFFD, as browsers' UTF-8 decoders do: a cut-off
// "\xE2\x82" is one replacement, a stray continuation byte is one each.
std::string clean_utf8(std::string_view data) {
    std::string out;
    out.reserve(data.size() + 16);
    std::size_t i = 0;
    while (i < data.size()) {
        std::size_t const ascii_end = misc::ascii_run_end(data, i, false);
        if (ascii_end > i) {
            out.append(data.substr(i, ascii_end - i));
            i = ascii_end;
            continue;
        }
        auto b = static_cast<unsigned char>(data[i]);
        std::size_t need = 0;
        unsigned char lo = 0x80;
        unsigned char hi = 0xBF;
        if (b >= 0xC2 && b <= 0xDF) {
            need = 1;
        } else if (b >= 0xE0 && b <= 0xEF) {
            need = 2;
            lo = b == 0xE0 ? 0xA0 : 0x80;
            hi = b == 0xED ? 0x9F : 0xBF;
        } else if (b >= 0xF0 && b <= 0xF4) {
            need = 3;
            lo = b == 0xF0 ? 0x90 : 0x80;
            hi = b == 0xF4 ? 0x8F : 0xBF;
        }
        std::size_t j = i + 1;
        std::size_t got = 0;
        while (got < need && j < data.size()) {
            auto c = static_cast<unsigned char>(data[j]);
            if (c < lo || c > hi) {
                break;
            }
            lo = 0x80;
            hi = 0xBF;
            ++j;
            ++got;
        }
        if (need > 0 && got == need) {
            out.append(data.substr(i, j - i));
        } else {
            out.append("\xEF\xBF\xBD");
        }
        i = j;
    }
    return out;
}

// Whether a well-formed UTF-8 sequence starts at `at`.
bool utf8_sequence_at(std::string_view data, std::size_t at) {
    auto b = static_cast<unsigned char>(data[at]);
    std::size_t len = b >= 0xF0 ? 4 : b >= 0xE0 ? 3 : b >= 0xC0 ? 2 : 1;
    if (len == 1 || at + len > data.size()) {
        return false;
    }
    return textbuf::is_valid_utf8(data.substr(at, len));
}

bool is_utf8_name(std::string_view name) {
    return misc::equal_ignoring_case(name, "utf-8") || misc::equal_ignoring_case(name, "utf8") ||
           misc::equal_ignoring_case(name, "unicode-1-1-utf-8");
}

// Labels that the web reads as windows-1252 although they name narrower encodings.
bool is_cp1252_name(std::string_view name) {
    for (std::string_view n : {"windows-1252", "cp1252", "x-cp1252", "iso-8859-1", "iso8859-1", "iso_8859-1",
                               "latin1", "l1", "us-ascii", "ascii", "ansi_x3.4-1968", "iso-ir-100", "cp819"}) {
        if (misc::equal_ignoring_case(name, n)) {
            return true;
        }
    }
    return false;
}

[[nodiscard]] std::optional<std::string> convert_with_iconv(std::string_view data, std::string_view encoding) {
    std::string name(encoding);
    iconv_t cd = iconv_open("UTF-8", name.c_str());
    if (cd == reinterpret_cast<iconv_t>(-1)) {
        return std::nullopt;
    }
    std::string out;
    out.resize(data.size() * 2 + 16);
    char* in_ptr = const_cast<char*>(data.data());
    std::size_t in_left = data.size();
    std::size_t written = 0;
    bool ok = true;
    while (in_left > 0) {
        char* out_ptr = out.data() + written;
        std::size_t out_left = out.size() - written;
        std::size_t r = iconv(cd, &in_ptr, &in_left, &out_ptr, &out_left);
        written = out.size() - out_left;
        if (r != static_cast<std::size_t>(-1)) {
            continue;
        }
        if (errno == E2BIG) {
            out.resize(out.size() * 2);
        } else if (errno == EILSEQ || errno == EINVAL) {
            // A byte the encoding doesn't allow (or a cut-off sequence at the end): U+FFFD, and on.
            if (out.size() - written < 4) {
                out.resize(out.size() * 2);
            }
            out.replace(written, 3, "\xEF\xBF\xBD");
            written += 3;
            ++in_ptr;
            --in_left;
        } else {
            ok = false;
            break;
        }
    }
    iconv_close(cd);
    if (!ok) {
        return std::nullopt;
    }
    out.resize(written);
    return out;
}

// The attribute reader of the prescan: one name and value from the bytes at `pos`.
struct prescan_attribute {
    std::string prescan_name;
    std::string prescan_value;
};

std::optional<prescan_attribute> next_attribute(std::string_view s, std::size_t& pos) {
    while (pos < s.size() && (is_space(s[pos]) || s[pos] == '/')) {
        ++pos;
    }
    if (pos >= s.size() || s[pos] == '>') {
        return std::nullopt;
    }
    prescan_attribute a;
    for (;;) {
        if (pos >= s.size()) {
            return std::nullopt;
        }
        char c = s[pos];
        if (c == '=' && !a.prescan_name.empty()) {
            break;
        }
        if (is_space(c)) {
            while (pos < s.size() && is_space(s[pos])) {
                ++pos;
            }
            if (pos >= s.size() || s[pos] != '=') {
                return a;
            }
            break;
        }
        if (c == '/' || c == '>') {
            return a;
        }
        a.prescan_name.push_back(c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c);
        ++pos;
    }
    ++pos; // '='
    while (pos < s.size() && is_space(s[pos])) {
        ++pos;
    }
    if (pos >= s.size()) {
        return std::nullopt;
    }
    char c = s[pos];
    if (c == '"' || c == '\'') {
        std::size_t end = s.find(c, pos + 1);
        if (end == std::string_view::npos) {
            return std::nullopt;
        }
        a.prescan_value = std::string(s.substr(pos + 1, end - pos - 1));
        pos = end + 1;
    } else if (c == '>') {
        return a;
    } else {
        while (pos < s.size() && !is_space(s[pos]) && s[pos] != '>') {
            a.prescan_value.push_back(s[pos]);
            ++pos;
        }
    }
    misc::ascii_lowercase(a.prescan_value);
    return a;
}

std::optional<std::string> charset_of_meta(std::string_view s, std::size_t& pos) {
    bool got_pragma = false;
    std::optional<bool> need_pragma;
    std::optional<std::string> charset;
    std::vector<std::string> seen;
    while (auto a = next_attribute(s, pos)) {
        if (std::find(seen.begin(), seen.end(), a->prescan_name) != seen.end()) {
            continue;
        }
        seen.push_back(a->prescan_name);
        if (a->prescan_name == "http-equiv") {
            got_pragma = got_pragma || a->prescan_value == "content-type";
        } else if (a->prescan_name == "content") {
            if (!charset) {
                if (auto c = get_charset_from_content(a->prescan_value)) {
                    charset = std::move(c);
                    need_pragma = true;
                }
            }
        } else if (a->prescan_name == "charset") {
            charset = a->prescan_value;
            need_pragma = false;
        }
    }
    if (!need_pragma || (*need_pragma && !got_pragma) || !charset) {
        return std::nullopt;
    }
    std::string name = *charset;
    // A page can't be UTF-16 if a byte scan could read its meta element: that is the writer's slip.
    if (misc::starts_with_ignoring_case(name, "utf-16")) {
        return std::string("utf-8");
    }
    if (name == "x-user-defined") {
        return std::string("windows-1252");
    }
    return name;
}

} // namespace

std::optional<std::string> get_charset_from_content(std::string_view content) {
    std::size_t pos = 0;
    for (;;) {
        std::size_t found = std::string_view::npos;
        for (std::size_t i = pos; i + 7 <= content.size(); ++i) {
            if (misc::equal_ignoring_case(content.substr(i, 7), "charset")) {
                found = i;
                break;
            }
        }
        if (found == std::string_view::npos) {
            return std::nullopt;
        }
        pos = found + 7;
        while (pos < content.size() && is_space(content[pos])) {
            ++pos;
        }
        if (pos >= content.size() || content[pos] != '=') {
            continue;
        }
        ++pos;
        while (pos < content.size() && is_space(content[pos])) {
            ++pos;
        }
        if (pos >= content.size()) {
            return std::nullopt;
        }
        char c = content[pos];
        if (c == '"' || c == '\'') {
            std::size_t end = content.find(c, pos + 1);
            if (end == std::string_view::npos) {
                return std::nullopt;
            }
            return std::string(content.substr(pos + 1, end - pos - 1));
        }
        std::size_t end = pos;
        while (end < content.size() && !is_space(content[end]) && content[end] != ';') {
            ++end;
        }
        return std::string(content.substr(pos, end - pos));
    }
}

std::optional<std::string> prescan_for_charset(std::string_view data) {
    std::string_view s = data.substr(0, std::min<std::size_t>(data.size(), 1024));
    std::size_t pos = 0;
    while (pos < s.size()) {
        if (s.substr(pos, 4) == "<!--") {
            std::size_t end = s.find("-->", pos + 2);
            if (end == std::string_view::npos) {
                return std::nullopt;
            }
            pos = end + 3;
            continue;
        }
        if (pos + 6 <= s.size() && misc::equal_ignoring_case(s.substr(pos, 5), "<meta") &&
            (is_space(s[pos + 5]) || s[pos + 5] == '/')) {
            pos += 6;
            if (auto c = charset_of_meta(s, pos)) {
                return c;
            }
            continue;
        }
        if (s[pos] == '<' && pos + 1 < s.size() &&
            (is_alpha(s[pos + 1]) || (s[pos + 1] == '/' && pos + 2 < s.size() && is_alpha(s[pos + 2])))) {
            // Another tag: skip its name and attributes, which may hide a '>' in quotes.
            while (pos < s.size() && !is_space(s[pos]) && s[pos] != '>') {
                ++pos;
            }
            while (next_attribute(s, pos)) {
            }
            continue;
        }
        if (s[pos] == '<' && pos + 1 < s.size() && (s[pos + 1] == '!' || s[pos + 1] == '/' || s[pos + 1] == '?')) {
            std::size_t end = s.find('>', pos + 1);
            if (end == std::string_view::npos) {
                return std::nullopt;
            }
            pos = end + 1;
            continue;
        }
        ++pos;
    }
    return std::nullopt;
}

std::optional<std::string> find_encoding(std::string_view data) {
    if (data.starts_with("\xEF\xBB\xBF")) {
        return std::string("utf-8");
    }
    if (data.starts_with("\xFE\xFF")) {
        return std::string("utf-16be");
    }
    if (data.starts_with("\xFF\xFE")) {
        return std::string("utf-16le");
    }
    return prescan_for_charset(data);
}

result<std::string> convert_to_utf8(std::string_view data, std::string_view encoding) {
    if (is_utf8_name(encoding)) {
        if (data.starts_with("\xEF\xBB\xBF")) {
            data.remove_prefix(3);
        }
        return clean_utf8(data);
    }
    if (is_cp1252_name(encoding)) {
        return from_cp1252(data);
    }
    if (misc::equal_ignoring_case(encoding, "utf-16be") || misc::equal_ignoring_case(encoding, "utf-16le")) {
        if (data.starts_with("\xFE\xFF") || data.starts_with("\xFF\xFE")) {
            data.remove_prefix(2);
        }
    }
    if (auto converted = convert_with_iconv(data, encoding)) {
        return std::move(*converted);
    }
    return from_cp1252(data);
}

result<std::string> memory_to_utf8(std::string_view data) {
    if (auto name = find_encoding(data)) {
        return convert_to_utf8(data, *name);
    }
    for (std::size_t i = 0; i < data.size(); ++i) {
        if (static_cast<unsigned char>(data[i]) >= 0x80) {
            return utf8_sequence_at(data, i) ? clean_utf8(data) : from_cp1252(data);
        }
    }
    return std::string(data);
}

result<std::string> memory_to_utf8(bytes::bytes const& data) {
    return memory_to_utf8(data.chars());
}

} // namespace vellum::html5::encode
