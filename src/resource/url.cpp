#include "resource/url.hpp"

#include "util/hex.hpp"

#include "util/ref.hpp"
#include "util/result.hpp"
#include "util/textbuf.hpp"

#include <algorithm>
#include <array>
#include <cstdint>

namespace vellum::host {
namespace {

// Punycode (RFC 3492) of one label of code points, the part after "xn--".
std::optional<std::string> punycode_encode(std::u32string_view label) {
    constexpr std::uint32_t base = 36, tmin = 1, tmax = 26, skew = 38, damp = 700;
    auto digit = [](std::uint32_t d) { return static_cast<char>(d < 26 ? 'a' + d : '0' + (d - 26)); };
    auto adapt = [&](std::uint32_t delta, std::uint32_t points, bool first) {
        delta = first ? delta / damp : delta / 2;
        delta += delta / points;
        std::uint32_t k = 0;
        while (delta > ((base - tmin) * tmax) / 2) {
            delta /= base - tmin;
            k += base;
        }
        return k + (base - tmin + 1) * delta / (delta + skew);
    };
    std::string out;
    for (char32_t c : label) {
        if (c < 0x80) {
            out += static_cast<char>(c);
        }
    }
    std::uint32_t const basic = static_cast<std::uint32_t>(out.size());
    std::uint32_t handled = basic;
    if (basic > 0) {
        out += '-';
    }
    std::uint32_t n = 0x80, delta = 0, bias = 72;
    while (handled < label.size()) {
        std::uint32_t m = 0x110000;
        for (char32_t c : label) {
            if (c >= n && c < m) {
                m = c;
            }
        }
        std::uint64_t const step = std::uint64_t(m - n) * (handled + 1);
        if (delta + step > 0xffffffffu) {
            return std::nullopt;
        }
        delta += static_cast<std::uint32_t>(step);
        n = m;
        for (char32_t c : label) {
            if (c < n) {
                ++delta;
            }
            if (c == n) {
                std::uint32_t q = delta;
                for (std::uint32_t k = base;; k += base) {
                    std::uint32_t const t = k <= bias ? tmin : (k >= bias + tmax ? tmax : k - bias);
                    if (q < t) {
                        break;
                    }
                    out += digit(t + (q - t) % (base - t));
                    q = (q - t) / (base - t);
                }
                out += digit(q);
                bias = adapt(delta, handled + 1, handled == basic);
                delta = 0;
                ++handled;
            }
        }
        ++delta;
        ++n;
    }
    return out;
}

// Takes a domain to its ASCII form: ASCII letters in lower case, and each label with other code points
// lower-cased where that is a plain ASCII mapping and written in Punycode with the "xn--" prefix.
std::optional<std::string> domain_to_ascii(std::string_view utf8) {
    if (!textbuf::is_valid_utf8(utf8)) {
        return std::nullopt;
    }
    std::u32string const text = textbuf::from_utf8(utf8);
    std::string out;
    std::size_t start = 0;
    while (start <= text.size()) {
        std::size_t end = text.find(U'.', start);
        if (end == std::u32string::npos) {
            end = text.size();
        }
        std::u32string label = text.substr(start, end - start);
        bool ascii = true;
        for (char32_t& c : label) {
            if (c >= 'A' && c <= 'Z') {
                c = c - 'A' + 'a';
            }
            ascii = ascii && c < 0x80;
        }
        if (ascii) {
            out += textbuf::to_utf8(label);
        } else {
            auto encoded = punycode_encode(label);
            if (!encoded) {
                return std::nullopt;
            }
            out += "xn--" + *encoded;
        }
        if (end == text.size()) {
            break;
        }
        out += '.';
        start = end + 1;
    }
    return out;
}

bool is_forbidden_host_char(char c) {
    switch (c) {
    case '\0':
    case '\t':
    case '\n':
    case '\r':
    case ' ':
    case '#':
    case '%':
    case '/':
    case ':':
    case '?':
    case '@':
    case '[':
    case '\\':
    case ']':
        return true;
    default:
        return false;
    }
}

// Whether the last label looks numeric, so that a host that fails as IPv4 is an invalid address rather
// than a domain.
bool ends_in_number(std::string_view host) {
    if (!host.empty() && host.back() == '.') {
        host.remove_suffix(1);
    }
    auto const dot = host.rfind('.');
    std::string_view const last = dot == std::string_view::npos ? host : host.substr(dot + 1);
    return !last.empty() && std::all_of(last.begin(), last.end(), [](char c) { return c >= '0' && c <= '9'; });
}

} // namespace

std::variant<host, std::string> parse_host(std::string_view text) {
    if (text.empty()) {
        return std::string("host string empty");
    }
    if (text.front() == '[') {
        if (text.back() != ']') {
            return std::string("invalid address");
        }
        auto pieces = ip_address::parse_ipv6(text.substr(1, text.size() - 2));
        if (!pieces) {
            return std::string("invalid address");
        }
        return host{address{"[" + ip_address::serialise_ipv6(*pieces) + "]"}};
    }
    auto decoded = url::percent_decode(url::decode_mode::decode_mode_filename, text);
    auto ascii = domain_to_ascii(decoded.value_or(std::string(text)));
    if (!ascii) {
        return std::string("domain to ASCII failed");
    }
    if (std::any_of(ascii->begin(), ascii->end(), is_forbidden_host_char)) {
        return std::string("invalid domain label character");
    }
    if (auto v4 = ip_address::parse_ipv4(*ascii)) {
        return host{address{ip_address::serialise_ipv4(*v4)}};
    }
    if (ends_in_number(*ascii)) {
        return std::string("invalid address");
    }
    return host{domain{*ascii}};
}

std::string host_to_string(host const& h) {
    if (auto const* d = std::get_if<domain>(&h)) {
        return d->domain_name;
    }
    return std::get<address>(h).address_text;
}

} // namespace vellum::host

namespace vellum::ip_address {
namespace {

// One part of an IPv4 address: decimal, hexadecimal after "0x", octal after a leading "0".
std::optional<std::uint64_t> ipv4_number(std::string_view part) {
    if (part.empty()) {
        return std::nullopt;
    }
    unsigned radix = 10;
    if (part.size() >= 2 && part[0] == '0' && (part[1] == 'x' || part[1] == 'X')) {
        radix = 16;
        part.remove_prefix(2);
    } else if (part.size() >= 2 && part[0] == '0') {
        radix = 8;
        part.remove_prefix(1);
    }
    std::uint64_t value = 0;
    for (char c : part) {
        unsigned d = 0;
        if (c >= '0' && c <= '9') {
            d = static_cast<unsigned>(c - '0');
        } else if (c >= 'a' && c <= 'f') {
            d = static_cast<unsigned>(c - 'a' + 10);
        } else if (c >= 'A' && c <= 'F') {
            d = static_cast<unsigned>(c - 'A' + 10);
        } else {
            return std::nullopt;
        }
        if (d >= radix) {
            return std::nullopt;
        }
        value = value * radix + d;
        if (value > 0xffffffffull) {
            value = 0x100000000ull; // too large in any case; keep it from overflowing
        }
    }
    return value;
}

int hex_value(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    if (c >= 'A' && c <= 'F') {
        return c - 'A' + 10;
    }
    return -1;
}

} // namespace

std::optional<std::vector<unsigned>> parse_ipv4(std::string_view text) {
    std::vector<std::string_view> parts;
    std::size_t start = 0;
    while (true) {
        auto const dot = text.find('.', start);
        parts.push_back(text.substr(start, dot == std::string_view::npos ? std::string_view::npos : dot - start));
        if (dot == std::string_view::npos) {
            break;
        }
        start = dot + 1;
    }
    if (parts.size() > 1 && parts.back().empty()) {
        parts.pop_back();
    }
    if (parts.size() > 4) {
        return std::nullopt;
    }
    std::vector<std::uint64_t> numbers;
    for (auto p : parts) {
        auto n = ipv4_number(p);
        if (!n) {
            return std::nullopt;
        }
        numbers.push_back(*n);
    }
    for (std::size_t i = 0; i + 1 < numbers.size(); ++i) {
        if (numbers[i] > 255) {
            return std::nullopt;
        }
    }
    // The last part fills all the bytes the others left.
    std::uint64_t const limit = 1ull << (8 * (5 - numbers.size()));
    if (numbers.back() >= limit) {
        return std::nullopt;
    }
    std::uint64_t value = numbers.back();
    for (std::size_t i = 0; i + 1 < numbers.size(); ++i) {
        value += numbers[i] << (8 * (3 - i));
    }
    return std::vector<unsigned>{static_cast<unsigned>((value >> 24) & 255), static_cast<unsigned>((value >> 16) & 255),
                                 static_cast<unsigned>((value >> 8) & 255), static_cast<unsigned>(value & 255)};
}

std::optional<std::vector<unsigned>> parse_ipv6(std::string_view text) {
    std::vector<unsigned> pieces(8, 0);
    std::size_t piece = 0;
    std::optional<std::size_t> compress;
    std::size_t p = 0;
    auto at = [&](std::size_t i) { return i < text.size() ? text[i] : '\0'; };
    if (at(p) == ':') {
        if (at(p + 1) != ':') {
            return std::nullopt;
        }
        p += 2;
        compress = ++piece;
    }
    while (p < text.size()) {
        if (piece == 8) {
            return std::nullopt;
        }
        if (at(p) == ':') {
            if (compress) {
                return std::nullopt;
            }
            ++p;
            compress = ++piece;
            continue;
        }
        unsigned value = 0;
        int length = 0;
        while (length < 4 && hex_value(at(p)) >= 0) {
            value = value * 16 + static_cast<unsigned>(hex_value(at(p)));
            ++p;
            ++length;
        }
        if (at(p) == '.') {
            // An IPv4 address in the last two pieces.
            if (length == 0 || piece > 6) {
                return std::nullopt;
            }
            p -= static_cast<std::size_t>(length);
            auto v4 = parse_ipv4(text.substr(p));
            // Only the strict dotted-decimal form is allowed here.
            int dots = static_cast<int>(std::count(text.begin() + static_cast<long>(p), text.end(), '.'));
            if (!v4 || dots != 3) {
                return std::nullopt;
            }
            pieces[piece++] = (*v4)[0] * 256 + (*v4)[1];
            pieces[piece++] = (*v4)[2] * 256 + (*v4)[3];
            p = text.size();
            break;
        }
        if (at(p) == ':') {
            ++p;
            if (p >= text.size()) {
                return std::nullopt;
            }
        } else if (p < text.size()) {
            return std::nullopt;
        }
        if (length == 0) {
            return std::nullopt;
        }
        pieces[piece++] = value;
    }
    if (compress) {
        std::size_t swaps = piece - *compress;
        piece = 7;
        while (piece != 0 && swaps > 0) {
            std::swap(pieces[piece], pieces[*compress + swaps - 1]);
            --piece;
            --swaps;
        }
    } else if (piece != 8) {
        return std::nullopt;
    }
    return pieces;
}

std::string serialise_ipv4(std::vector<unsigned> const& bytes) {
    std::string out;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        if (i > 0) {
            out += '.';
        }
        out += std::to_string(bytes[i]);
    }
    return out;
}

std::string serialise_ipv6(std::vector<unsigned> const& pieces) {
    // The first longest run of two or more zero pieces is written "::".
    std::size_t best_start = pieces.size(), best_len = 1;
    for (std::size_t i = 0; i < pieces.size();) {
        if (pieces[i] != 0) {
            ++i;
            continue;
        }
        std::size_t j = i;
        while (j < pieces.size() && pieces[j] == 0) {
            ++j;
        }
        if (j - i > best_len) {
            best_start = i;
            best_len = j - i;
        }
        i = j;
    }
    static char const digits[] = "0123456789abcdef";
    std::string out;
    for (std::size_t i = 0; i < pieces.size(); ++i) {
        if (i == best_start) {
            out += i == 0 ? "::" : ":";
            i += best_len - 1;
            continue;
        }
        std::string h;
        unsigned v = pieces[i];
        do {
            h.insert(h.begin(), digits[v % 16]);
            v /= 16;
        } while (v != 0);
        out += h;
        if (i + 1 < pieces.size()) {
            out += ':';
        }
    }
    return out;
}

bool is_ip_address(std::string_view text) {
    if (text.size() >= 2 && text.front() == '[' && text.back() == ']') {
        return parse_ipv6(text.substr(1, text.size() - 2)).has_value();
    }
    return parse_ipv4(text).has_value() || parse_ipv6(text).has_value();
}

} // namespace vellum::ip_address

namespace vellum::urlspec {
namespace {

constexpr char32_t eof = 0xffffffff;

struct relative_scheme {
    std::string_view name;
    std::string_view port;
};

// Sorted by name for the binary search.
constexpr std::array<relative_scheme, 7> relative_schemes{{
    {"file", ""},
    {"ftp", "21"},
    {"gopher", "70"},
    {"http", "80"},
    {"https", "443"},
    {"ws", "80"},
    {"wss", "443"},
}};

relative_scheme const* find_scheme(std::string_view s) {
    auto it = std::lower_bound(relative_schemes.begin(), relative_schemes.end(), s,
                               [](relative_scheme const& r, std::string_view k) { return r.name < k; });
    return it != relative_schemes.end() && it->name == s ? &*it : nullptr;
}

bool is_alpha(char32_t c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

bool is_digit(char32_t c) {
    return c >= '0' && c <= '9';
}

bool is_hex(char32_t c) {
    return is_digit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

char32_t lower(char32_t c) {
    return (c >= 'A' && c <= 'Z') ? c - 'A' + 'a' : c;
}

bool is_url_code_point(char32_t c) {
    if (is_alpha(c) || is_digit(c)) {
        return true;
    }
    switch (c) {
    case '!':
    case '$':
    case '&':
    case '\'':
    case '(':
    case ')':
    case '*':
    case '+':
    case ',':
    case '-':
    case '.':
    case '/':
    case ':':
    case ';':
    case '=':
    case '?':
    case '@':
    case '_':
    case '~':
        return true;
    default:
        break;
    }
    if (c < 0xa0 || c > 0x10fffd || (c >= 0xd800 && c <= 0xdfff)) {
        return false;
    }
    // Noncharacters: U+FDD0..U+FDEF and the last two code points of every plane.
    return !(c >= 0xfdd0 && c <= 0xfdef) && (c & 0xfffe) != 0xfffe;
}

bool in_encode_set(char32_t c, encode_set set) {
    if (c < 0x20 || c > 0x7e) {
        return true;
    }
    if (set == encode_set::simple_encode_set) {
        return false;
    }
    switch (c) {
    case ' ':
    case '"':
    case '#':
    case '<':
    case '>':
    case '?':
    case '`':
        return true;
    default:
        return false;
    }
}

void append_percent_byte(std::string& out, unsigned char b) {
    static char const digits[] = "0123456789ABCDEF";
    out += '%';
    out += digits[b >> 4];
    out += digits[b & 15];
}

enum class state {
    scheme_start,
    scheme,
    scheme_data,
    no_scheme,
    relative_or_authority,
    relative,
    relative_slash,
    authority_first_slash,
    authority_second_slash,
    authority_ignore_slashes,
    authority,
    file_host,
    host,
    port,
    relative_path_start,
    relative_path,
    query,
    fragment,
};

enum class at_flag { at_not_seen, at_seen };
enum class bracket_flag { bracket_flag_unset, bracket_flag_set };
enum class relative_flag { not_relative, is_relative };

using buffer = std::u32string;

// The accumulator of the state machine: the URL under construction, its buffers and flags.
struct acc {
    scheme url_scheme;
    username url_username;
    std::optional<password> url_password;
    std::optional<host::host> url_host;
    port url_port;
    path_root url_path_root = path_root::no_root;
    std::vector<path_segment> url_path;
    std::optional<std::string> url_query;
    std::optional<std::string> url_fragment;
    std::string url_scheme_data;
    bool has_scheme_data = false;
    buffer buf;
    at_flag at = at_flag::at_not_seen;
    bracket_flag bracket = bracket_flag::bracket_flag_unset;
    relative_flag relative = relative_flag::not_relative;
};

struct machine {
    std::u32string input;
    std::optional<url> base;
    bool keep_relative = false;
    std::vector<nonfatal_error> errors;
    acc a;
    std::size_t ptr = 0;

    char32_t at(std::size_t i) const { return i < input.size() ? input[i] : eof; }
    char32_t c() const { return at(ptr); }

    void error(char const* message) { errors.push_back({message, static_cast<int>(ptr)}); }

    // The checks that several states make on a code point about to be taken into a component.
    void check_code_point(char32_t ch) {
        if (ch == '%') {
            if (!is_hex(at(ptr + 1)) || !is_hex(at(ptr + 2))) {
                error("bad percent escape sequence");
            }
        } else if (ch != eof && !is_url_code_point(ch)) {
            error("not URL code point");
        }
    }

    // A ".." goes up one level. At the root it is dropped; in a relative path, which has no root to stop
    // at, it is kept so that the reference can still be resolved later.
    void pop_path() {
        dot_dot_handling const handling = a.url_path_root == path_root::no_root
                                              ? dot_dot_handling::keep_leading_dot_dots
                                              : dot_dot_handling::drop_leading_dot_dots;
        if (!a.url_path.empty() && a.url_path.back() != "..") {
            a.url_path.pop_back();
        } else if (handling == dot_dot_handling::keep_leading_dot_dots) {
            a.url_path.push_back("..");
        } else if (!a.url_path.empty()) {
            a.url_path.pop_back();
        }
    }

    void copy_base_authority() {
        if (!base) {
            return;
        }
        a.url_username = base->username;
        a.url_password = base->password;
        a.url_host = base->host;
        a.url_port = base->port;
    }

    void copy_base_path() {
        if (!base) {
            return;
        }
        a.url_path_root = base->path_root;
        a.url_path = base->path_segments;
    }

    // Parses the buffer as the host; on failure the message is kept in `failure`.
    bool parse_host_buffer() {
        auto h = host::parse_host(textbuf::to_utf8(a.buf));
        if (auto const* message = std::get_if<std::string>(&h)) {
            failure = *message;
            return false;
        }
        a.url_host = std::get<host::host>(h);
        return true;
    }

    std::optional<std::string> failure;

    std::optional<std::string> run();
};

std::optional<std::string> machine::run() {
    state st = state::scheme_start;
    // ptr may step back to "before the start" (all ones) and the increment brings it to 0.
    for (; ptr <= input.size(); ++ptr) {
        char32_t const ch = c();
        switch (st) {
        case state::scheme_start:
            if (is_alpha(ch)) {
                a.buf += lower(ch);
                st = state::scheme;
            } else {
                st = state::no_scheme;
                --ptr;
            }
            break;
        case state::scheme:
            if (is_alpha(ch) || is_digit(ch) || ch == '+' || ch == '-' || ch == '.') {
                a.buf += lower(ch);
            } else if (ch == ':') {
                a.url_scheme = textbuf::to_utf8(a.buf);
                a.buf.clear();
                if (is_relative_scheme(a.url_scheme)) {
                    a.relative = relative_flag::is_relative;
                    // A base of another scheme has nothing to lend a URL that names its own scheme, so
                    // "file:x" reads the same against an http page as with no base at all.
                    if (base && base->scheme != a.url_scheme) {
                        base.reset();
                    }
                }
                if (a.url_scheme == "file") {
                    st = state::relative;
                } else if (a.relative == relative_flag::is_relative) {
                    st = base && base->scheme == a.url_scheme ? state::relative_or_authority
                                                              : state::authority_first_slash;
                } else {
                    a.has_scheme_data = true;
                    st = state::scheme_data;
                }
            } else {
                // Not a scheme after all: start over without one.
                a.buf.clear();
                st = state::no_scheme;
                ptr = static_cast<std::size_t>(-1);
            }
            break;
        case state::scheme_data:
            if (ch == '?') {
                a.url_query = "";
                st = state::query;
            } else if (ch == '#') {
                a.url_fragment = "";
                st = state::fragment;
            } else if (ch != eof) {
                check_code_point(ch);
                percent_encode(a.url_scheme_data, ch, encode_set::simple_encode_set);
            }
            break;
        case state::no_scheme:
            if (!base && keep_relative) {
                // A relative reference kept as it is.
                st = state::relative;
                --ptr;
            } else if (!base) {
                return "URL missing scheme and no base URL provided";
            } else if (!is_relative_scheme(base->scheme)) {
                return "URL missing scheme and base URL does not have relative scheme";
            } else {
                st = state::relative;
                --ptr;
            }
            break;
        case state::relative_or_authority:
            if (ch == '/' && at(ptr + 1) == '/') {
                st = state::authority_ignore_slashes;
                ++ptr;
            } else {
                error("expected slash-slash");
                st = state::relative;
                --ptr;
            }
            break;
        case state::relative:
            a.relative = relative_flag::is_relative;
            if (a.url_scheme != "file" && base) {
                a.url_scheme = base->scheme;
            }
            if (ch == eof) {
                copy_base_authority();
                copy_base_path();
                if (base) {
                    a.url_query = base->query;
                }
            } else if (ch == '/' || ch == '\\') {
                if (ch == '\\') {
                    error("unexpected backslash");
                }
                st = state::relative_slash;
            } else if (ch == '?') {
                copy_base_authority();
                copy_base_path();
                a.url_query = "";
                st = state::query;
            } else if (ch == '#') {
                copy_base_authority();
                copy_base_path();
                if (base) {
                    a.url_query = base->query;
                }
                a.url_fragment = "";
                st = state::fragment;
            } else {
                // A drive letter in a file URL ("file:c:/x") starts an absolute path of its own, with
                // no host: "c:" is the first segment under the root, never a host name.
                bool const drive = a.url_scheme == "file" && is_alpha(ch) &&
                                   (at(ptr + 1) == ':' || at(ptr + 1) == '|') &&
                                   (at(ptr + 2) == eof || at(ptr + 2) == '/' || at(ptr + 2) == '\\' ||
                                    at(ptr + 2) == '?' || at(ptr + 2) == '#');
                if (drive) {
                    a.url_path_root = path_root::slash_root;
                } else {
                    // "file:x" is a path relative to the base's directory, so it needs a base.
                    if (!base && !a.url_scheme.empty()) {
                        return "base URL required";
                    }
                    copy_base_authority();
                    copy_base_path();
                    if (!a.url_path.empty()) {
                        a.url_path.pop_back();
                    }
                }
                st = state::relative_path;
                --ptr;
            }
            break;
        case state::relative_slash:
            if (ch == '/' || ch == '\\') {
                if (ch == '\\') {
                    error("unexpected backslash");
                }
                st = a.url_scheme == "file" ? state::file_host : state::authority_ignore_slashes;
            } else {
                if (a.url_scheme != "file") {
                    copy_base_authority();
                }
                a.url_path_root = path_root::slash_root;
                st = state::relative_path;
                --ptr;
            }
            break;
        case state::authority_first_slash:
            if (ch == '/') {
                st = state::authority_second_slash;
            } else {
                error("expected slash");
                st = state::authority_ignore_slashes;
                --ptr;
            }
            break;
        case state::authority_second_slash:
            st = state::authority_ignore_slashes;
            if (ch != '/') {
                error("expected slash");
                --ptr;
            }
            break;
        case state::authority_ignore_slashes:
            if (ch != '/' && ch != '\\') {
                st = state::authority;
                --ptr;
            } else {
                error("unexpected slash or backslash");
            }
            break;
        case state::authority:
            if (ch == '@') {
                if (a.at == at_flag::at_seen) {
                    error("multiple @ in authority");
                    a.buf.insert(0, U"%40");
                }
                a.at = at_flag::at_seen;
                for (std::size_t i = 0; i < a.buf.size(); ++i) {
                    char32_t const b = a.buf[i];
                    if (b == ':' && !a.url_password) {
                        a.url_password = "";
                        continue;
                    }
                    percent_encode(a.url_password ? *a.url_password : a.url_username, b,
                                   encode_set::default_encode_set);
                }
                a.buf.clear();
            } else if (ch == eof || ch == '/' || ch == '\\' || ch == '?' || ch == '#') {
                // Go back to the start of the buffer, which is the host.
                ptr -= a.buf.size() + 1;
                a.buf.clear();
                st = state::host;
            } else {
                check_code_point(ch);
                a.buf += ch;
            }
            break;
        case state::file_host:
            if (ch == eof || ch == '/' || ch == '\\' || ch == '?' || ch == '#') {
                --ptr;
                if (a.buf.size() == 2 && is_alpha(a.buf[0]) && (a.buf[1] == ':' || a.buf[1] == '|')) {
                    a.url_path_root = path_root::slash_root;
                    st = state::relative_path;
                } else if (a.buf.empty()) {
                    st = state::relative_path_start;
                } else {
                    if (!parse_host_buffer()) {
                        return failure;
                    }
                    // The local host is no host.
                    if (a.url_host == host::host{host::domain{"localhost"}}) {
                        a.url_host.reset();
                    }
                    a.buf.clear();
                    st = state::relative_path_start;
                }
            } else {
                a.buf += ch;
            }
            break;
        case state::host:
            if (ch == ':' && a.bracket == bracket_flag::bracket_flag_unset) {
                if (!parse_host_buffer()) {
                    return failure;
                }
                a.buf.clear();
                st = state::port;
            } else if (ch == eof || ch == '/' || ch == '\\' || ch == '?' || ch == '#') {
                --ptr;
                if (!parse_host_buffer()) {
                    return failure;
                }
                a.buf.clear();
                st = state::relative_path_start;
            } else {
                if (ch == '[') {
                    a.bracket = bracket_flag::bracket_flag_set;
                } else if (ch == ']') {
                    a.bracket = bracket_flag::bracket_flag_unset;
                }
                a.buf += ch;
            }
            break;
        case state::port:
            if (is_digit(ch)) {
                a.buf += ch;
            } else if (ch == eof || ch == '/' || ch == '\\' || ch == '?' || ch == '#') {
                while (a.buf.size() > 1 && a.buf[0] == '0') {
                    a.buf.erase(0, 1);
                }
                std::string p = textbuf::to_utf8(a.buf);
                if (p.size() > 5 || (!p.empty() && std::stoul(p) > 65535)) {
                    return "bad port";
                }
                if (default_port(a.url_scheme) == p) {
                    p.clear();
                }
                a.url_port = p;
                a.buf.clear();
                st = state::relative_path_start;
                --ptr;
            } else {
                return "bad port";
            }
            break;
        case state::relative_path_start:
            if (ch == '\\') {
                error("unexpected backslash");
            }
            a.url_path_root = path_root::slash_root;
            st = state::relative_path;
            if (ch != '/' && ch != '\\') {
                --ptr;
            }
            break;
        case state::relative_path:
            if (ch == eof || ch == '/' || ch == '\\' || ch == '?' || ch == '#') {
                if (ch == '\\') {
                    error("unexpected backslash");
                }
                std::string const segment = textbuf::to_utf8(a.buf);
                bool const slash = ch == '/' || ch == '\\';
                if (is_double_dot(segment)) {
                    pop_path();
                    if (!slash) {
                        a.url_path.push_back("");
                    }
                } else if (is_single_dot(segment)) {
                    if (!slash) {
                        a.url_path.push_back("");
                    }
                } else {
                    std::string s = segment;
                    if (a.url_scheme == "file" && a.url_path.empty() && s.size() == 2 && is_alpha(s[0]) &&
                        s[1] == '|') {
                        s[1] = ':';
                    }
                    a.url_path.push_back(s);
                }
                a.buf.clear();
                if (ch == '?') {
                    a.url_query = "";
                    st = state::query;
                } else if (ch == '#') {
                    a.url_fragment = "";
                    st = state::fragment;
                }
            } else {
                check_code_point(ch);
                std::string encoded;
                percent_encode(encoded, ch, encode_set::default_encode_set);
                a.buf += textbuf::from_utf8(encoded);
            }
            break;
        case state::query:
            if (ch == eof || ch == '#') {
                // The query is encoded byte by byte, after UTF-8.
                std::string const bytes = textbuf::to_utf8(a.buf);
                for (unsigned char b : bytes) {
                    if (b < 0x21 || b > 0x7e || b == 0x22 || b == 0x23 || b == 0x3c || b == 0x3e || b == 0x60) {
                        append_percent_byte(*a.url_query, b);
                    } else {
                        *a.url_query += static_cast<char>(b);
                    }
                }
                a.buf.clear();
                if (ch == '#') {
                    a.url_fragment = "";
                    st = state::fragment;
                }
            } else {
                check_code_point(ch);
                a.buf += ch;
            }
            break;
        case state::fragment:
            if (ch == 0) {
                error("unexpected NUL");
            } else if (ch != eof) {
                check_code_point(ch);
                percent_encode(*a.url_fragment, ch, encode_set::simple_encode_set);
            }
            break;
        }
    }
    return std::nullopt;
}

bool is_c0_or_space(char32_t c) {
    return c <= 0x20;
}

} // namespace

std::optional<port> default_port(std::string_view s) {
    if (auto const* r = find_scheme(s)) {
        return port(r->port);
    }
    return std::nullopt;
}

bool is_relative_scheme(std::string_view s) {
    return find_scheme(s) != nullptr;
}

void percent_encode(std::string& out, char32_t cp, encode_set set) {
    if (!in_encode_set(cp, set)) {
        out += static_cast<char>(cp);
        return;
    }
    std::string utf8;
    textbuf::append_utf8(utf8, cp);
    for (unsigned char b : utf8) {
        append_percent_byte(out, b);
    }
}

bool is_single_dot(std::string_view segment) {
    return segment == "." || segment == "%2e" || segment == "%2E";
}

bool is_double_dot(std::string_view segment) {
    static constexpr std::array<std::string_view, 9> forms{"..",     ".%2e",   ".%2E",   "%2e.",  "%2E.",
                                                           "%2e%2e", "%2E%2e", "%2e%2E", "%2E%2E"};
    return std::find(forms.begin(), forms.end(), segment) != forms.end();
}

parsed parse_url(parse_url_option const& option, std::string_view text) {
    machine m;
    std::u32string input = textbuf::from_utf8(text);
    // Leading and trailing controls and blanks are not part of the URL.
    std::size_t begin = 0, end = input.size();
    while (begin < end && is_c0_or_space(input[begin])) {
        ++begin;
    }
    while (end > begin && is_c0_or_space(input[end - 1])) {
        --end;
    }
    if (begin != 0 || end != input.size()) {
        m.errors.push_back({"unexpected whitespace", static_cast<int>(begin != 0 ? 0 : end)});
    }
    // Tabs and line breaks inside a URL are dropped wherever they stand.
    for (std::size_t i = begin; i < end; ++i) {
        char32_t const ch = input[i];
        if (ch == '\t' || ch == '\n' || ch == '\r') {
            m.errors.push_back({ch == '\t'   ? "unexpected TAB"
                                : ch == '\n' ? "unexpected LF"
                                             : "unexpected whitespace",
                                static_cast<int>(i)});
        } else {
            m.input += ch;
        }
    }
    std::visit(overloaded{
                   [&](normal const& n) { m.base = n.base; },
                   [&](normal_no_base const&) {},
                   [&](no_base_keep_leading_dot_dots const&) { m.keep_relative = true; },
               },
               option);
    if (auto fatal = m.run()) {
        return {fatal_error{*fatal}, std::move(m.errors)};
    }
    acc& a = m.a;
    url u{
        .scheme = a.url_scheme,
        .username = a.url_username,
        .password = a.url_password,
        .host = a.url_host,
        .port = a.url_port,
        .path_root = a.url_path_root,
        .path_segments = a.url_path,
        .query = a.url_query,
        .fragment = a.url_fragment,
    };
    // A URL of a relative scheme has a rooted path. Only a relative file path given as a base (a
    // locator for a name relative to the working directory) carries its lack of a root over.
    if (is_relative_scheme(u.scheme) && !m.base) {
        u.path_root = path_root::slash_root;
    }
    std::optional<scheme_data> data;
    if (a.has_scheme_data) {
        data = a.url_scheme_data;
    }
    return {ok{std::move(u), std::move(data)}, std::move(m.errors)};
}

std::string serialise_url(serialise_option option, url const& u, std::optional<scheme_data> const& data) {
    std::string out;
    if (!u.scheme.empty()) {
        out = u.scheme + ":";
    }
    if (!u.scheme.empty() && !is_relative_scheme(u.scheme)) {
        out += data.value_or("");
    } else {
        if (!u.scheme.empty() || u.host) {
            out += "//";
            if (!u.username.empty() || u.password) {
                out += u.username;
                if (u.password) {
                    out += ":" + *u.password;
                }
                out += "@";
            }
            if (u.host) {
                out += host::host_to_string(*u.host);
            }
            if (!u.port.empty()) {
                out += ":" + u.port;
            }
        }
        if (u.path_root == path_root::slash_root) {
            out += "/";
        }
        for (std::size_t i = 0; i < u.path_segments.size(); ++i) {
            if (i > 0) {
                out += "/";
            }
            out += u.path_segments[i];
        }
    }
    if (u.query) {
        out += "?" + *u.query;
    }
    if (u.fragment && option == serialise_option::include_fragment) {
        out += "#" + *u.fragment;
    }
    return out;
}

url det_parse_url(std::string_view text) {
    auto p = parse_url(normal_no_base{}, text);
    if (auto const* f = std::get_if<fatal_error>(&p.parse_result)) {
        throw internal_error("det_parse_url: " + f->message);
    }
    return std::get<ok>(p.parse_result).url;
}

} // namespace vellum::urlspec

namespace vellum::url {
namespace {

constexpr int (*hex)(char) = util::hex::digit_value;

// The characters that a URL reserves for its structure; decodeURI leaves their escapes alone.
bool is_reserved(unsigned char c) {
    switch (c) {
    case ';':
    case '/':
    case '?':
    case ':':
    case '@':
    case '&':
    case '=':
    case '+':
    case '$':
    case ',':
    case '#':
        return true;
    default:
        return false;
    }
}

} // namespace

std::optional<std::string> percent_decode(decode_mode mode, std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%') {
            out += text[i];
            continue;
        }
        bool const complete = i + 2 < text.size();
        int const hi = complete ? hex(text[i + 1]) : -1;
        int const lo = complete ? hex(text[i + 2]) : -1;
        if (hi < 0 || lo < 0) {
            if (mode != decode_mode::decode_mode_filename) {
                return std::nullopt;
            }
            out += '%';
            continue;
        }
        auto const b = static_cast<unsigned char>(hi * 16 + lo);
        bool const keep = (mode == decode_mode::decode_mode_url && is_reserved(b)) ||
                          (mode == decode_mode::decode_mode_filename && (b == '/' || b == 0));
        if (keep) {
            out.append(text.substr(i, 3));
        } else {
            out += static_cast<char>(b);
        }
        i += 2;
    }
    if (mode != decode_mode::decode_mode_filename && !textbuf::is_valid_utf8(out)) {
        return std::nullopt;
    }
    return out;
}

} // namespace vellum::url
