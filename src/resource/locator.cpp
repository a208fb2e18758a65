#include "resource/locator.hpp"

#include "util/hex.hpp"

#include "util/ref.hpp"
#include "util/textbuf.hpp"

#include <algorithm>
#include <cstdint>
#include <vector>

namespace vellum::dataurl {
namespace {

constexpr int (*hex)(char) = util::hex::digit_value;

// Percent-decodes into bytes, whatever they are; a "%" without two hex digits fails.
std::optional<std::vector<std::uint8_t>> decode_bytes(std::string_view text) {
    std::vector<std::uint8_t> out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%') {
            out.push_back(static_cast<std::uint8_t>(text[i]));
            continue;
        }
        if (i + 2 >= text.size() || hex(text[i + 1]) < 0 || hex(text[i + 2]) < 0) {
            return std::nullopt;
        }
        out.push_back(static_cast<std::uint8_t>(hex(text[i + 1]) * 16 + hex(text[i + 2])));
        i += 2;
    }
    return out;
}

int base64_value(std::uint8_t c) {
    if (c >= 'A' && c <= 'Z') {
        return c - 'A';
    }
    if (c >= 'a' && c <= 'z') {
        return c - 'a' + 26;
    }
    if (c >= '0' && c <= '9') {
        return c - '0' + 52;
    }
    if (c == '+') {
        return 62;
    }
    if (c == '/') {
        return 63;
    }
    return -1;
}

// Groups of four characters give three bytes; the last group may end in "=" or "==".
std::optional<std::vector<std::uint8_t>> decode_base64(std::vector<std::uint8_t> const& in) {
    std::vector<std::uint8_t> chars;
    for (std::uint8_t c : in) {
        if (c != ' ' && c != '\n' && c != '\r' && c != '\t') {
            chars.push_back(c);
        }
    }
    if (chars.size() % 4 != 0) {
        return std::nullopt;
    }
    std::vector<std::uint8_t> out;
    for (std::size_t i = 0; i < chars.size(); i += 4) {
        bool const last = i + 4 == chars.size();
        int const a = base64_value(chars[i]);
        int const b = base64_value(chars[i + 1]);
        if (a < 0 || b < 0) {
            return std::nullopt;
        }
        if (last && chars[i + 2] == '=' && chars[i + 3] == '=') {
            out.push_back(static_cast<std::uint8_t>(a << 2 | b >> 4));
            break;
        }
        int const c = base64_value(chars[i + 2]);
        if (c < 0) {
            return std::nullopt;
        }
        if (last && chars[i + 3] == '=') {
            out.push_back(static_cast<std::uint8_t>(a << 2 | b >> 4));
            out.push_back(static_cast<std::uint8_t>((b & 15) << 4 | c >> 2));
            break;
        }
        int const d = base64_value(chars[i + 3]);
        if (d < 0) {
            return std::nullopt;
        }
        out.push_back(static_cast<std::uint8_t>(a << 2 | b >> 4));
        out.push_back(static_cast<std::uint8_t>((b & 15) << 4 | c >> 2));
        out.push_back(static_cast<std::uint8_t>((c & 3) << 6 | d));
    }
    return out;
}

bool iequals(std::string_view a, std::string_view b) {
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
               return (x >= 'A' && x <= 'Z' ? x - 'A' + 'a' : x) == (y >= 'A' && y <= 'Z' ? y - 'A' + 'a' : y);
           });
}

} // namespace

result<dataurl> parse_data_url(std::string_view text) {
    auto const comma = text.find(',');
    if (text.size() < 5 || !iequals(text.substr(0, 5), "data:") || comma == std::string_view::npos) {
        return fail("Invalid data URL");
    }
    std::string_view type = text.substr(5, comma - 5);
    std::string_view const body = text.substr(comma + 1);
    constexpr std::string_view base64_suffix = ";base64";
    bool const base64 = type.size() >= base64_suffix.size() &&
                        iequals(type.substr(type.size() - base64_suffix.size()), base64_suffix);
    if (base64) {
        type.remove_suffix(base64_suffix.size());
    }
    auto decoded = decode_bytes(body);
    if (!decoded) {
        return fail(base64 ? "Invalid escaping in data URL" : "Invalid character in data URL");
    }
    if (base64) {
        decoded = decode_base64(*decoded);
        if (!decoded) {
            return fail("Invalid Base64 data in data URL");
        }
    }
    return dataurl{.mime_type = std::string(type), .data = bytes::from_vector(std::move(*decoded))};
}

} // namespace vellum::dataurl

namespace vellum::resource::locator {
namespace {

std::string decode_segment(std::string const& segment, decode d) {
    if (d == decode::do_not_percent_decode) {
        return segment;
    }
    return url::percent_decode(url::decode_mode::decode_mode_filename, segment).value_or(segment);
}

// A relative reference that names its base itself: nothing but an empty path or ".".
bool is_same_document(urlspec::url const& u) {
    bool const bare = u.username.empty() && !u.password && !u.host && u.port.empty() && !u.query && !u.fragment;
    if (!bare || u.path_root == urlspec::path_root::slash_root) {
        return false;
    }
    auto const& p = u.path_segments;
    return p.empty() || (p.size() == 1 && (p[0].empty() || urlspec::is_single_dot(p[0])));
}

// A parsed URL with a scheme, as a locator of its kind.
locator from_absolute_url(urlspec::url u, std::optional<urlspec::scheme_data> const& data_part,
                          locator_origin origin) {
    locator l{.locator_origin = origin};
    if (u.scheme == "data" || u.scheme == "http" || u.scheme == "https" || u.scheme == "file") {
        l.locator_fragment = u.fragment;
        u.fragment.reset();
    }
    if (u.scheme == "data") {
        l.locator_url = data{urlspec::serialise_url(urlspec::serialise_option::exclude_fragment, u, data_part)};
    } else if (u.scheme == "http" || u.scheme == "https") {
        l.locator_url = web{u.scheme == "http" ? protocol::http : protocol::https,
                            urlspec::serialise_url(urlspec::serialise_option::exclude_fragment, u, data_part)};
    } else if (u.scheme == "file") {
        l.locator_url = file{file_url_path(u, decode::do_percent_decode), u.query};
    } else {
        l.locator_url =
            other{u.scheme, urlspec::serialise_url(urlspec::serialise_option::include_fragment, u, data_part)};
    }
    return l;
}

// The URL against which relative references in a resource resolve, for the kinds that have one.
std::optional<urlspec::url> base_url(locator_url const& u) {
    return std::visit(overloaded{
                          [](web const& w) -> std::optional<urlspec::url> {
                              auto p = urlspec::parse_url(urlspec::normal_no_base{}, w.web_url);
                              if (auto const* r = std::get_if<urlspec::ok>(&p.parse_result)) {
                                  return r->url;
                              }
                              return std::nullopt;
                          },
                          [](file const& f) -> std::optional<urlspec::url> {
                              return file_path_url(f.file_path, f.file_query);
                          },
                          [](standard_input const&) -> std::optional<urlspec::url> { return std::nullopt; },
                          [](data const&) -> std::optional<urlspec::url> { return std::nullopt; },
                          [](other const&) -> std::optional<urlspec::url> { return std::nullopt; },
                          [](invalid const&) -> std::optional<urlspec::url> { return std::nullopt; },
                          [](unresolvable const&) -> std::optional<urlspec::url> { return std::nullopt; },
                      },
                      u);
}

// Whether a resource of this kind lives on this machine: a file, or standard input.
bool is_local_resource(locator_url const& u) {
    return std::holds_alternative<file>(u) || std::holds_alternative<standard_input>(u);
}

// The locator of a name, without the mark of the resource that wrote it.
locator parse_locator_url(path_or_url rule,
                          locator_origin origin,
                          std::optional<locator> const& base,
                          std::string_view text) {
    if (origin == locator_origin::command_line_origin && text == "-") {
        return locator{.locator_url = standard_input{}, .locator_origin = origin};
    }
    auto parsed = urlspec::parse_url(urlspec::no_base_keep_leading_dot_dots{}, text);
    if (std::get_if<urlspec::fatal_error>(&parsed.parse_result)) {
        if (rule == path_or_url::path_or_url) {
            return locator{.locator_url = file{{std::string(text)}, std::nullopt}, .locator_origin = origin};
        }
        return locator{.locator_url = invalid{std::string(text)}, .locator_origin = origin};
    }
    auto const& [u, data_part] = std::get<urlspec::ok>(parsed.parse_result);
    if (!u.scheme.empty()) {
        return from_absolute_url(u, data_part, origin);
    }
    // A relative reference.
    if (is_same_document(u)) {
        if (base) {
            return locator{.locator_url = base->locator_url, .locator_origin = origin};
        }
        return locator{.locator_url = file{{"."}, std::nullopt}, .locator_origin = origin};
    }
    if (!base) {
        // A name on the command line or of the program's own is a path relative to the working
        // directory or the prefix; a document's relative name without a base leads nowhere.
        if (origin == locator_origin::document_origin) {
            return locator{.locator_url = unresolvable{std::string(text), ""}, .locator_origin = origin};
        }
        return locator{.locator_url = file{file_url_path(u, decode::do_percent_decode), u.query},
                       .locator_fragment = u.fragment,
                       .locator_origin = origin};
    }
    auto const b = base_url(base->locator_url);
    if (!b) {
        std::string const base_text =
            origin == locator_origin::document_origin ? std::string() : locator_to_string(*base);
        return locator{.locator_url = unresolvable{std::string(text), base_text},
                       .locator_referer = base->locator_url,
                       .locator_origin = origin};
    }
    auto resolved = urlspec::parse_url(urlspec::normal{*b}, text);
    if (std::get_if<urlspec::fatal_error>(&resolved.parse_result)) {
        return locator{.locator_url = invalid{std::string(text)},
                       .locator_referer = base->locator_url,
                       .locator_origin = origin};
    }
    auto const& r = std::get<urlspec::ok>(resolved.parse_result);
    locator l = from_absolute_url(r.url, r.scheme_data, origin);
    l.locator_referer = base->locator_url;
    return l;
}

} // namespace

virtual_path::virtual_path file_url_path(urlspec::url const& u, decode d) {
    std::string path;
    if (u.host && *u.host != host::host{host::domain{"localhost"}}) {
        path = "//" + host::host_to_string(*u.host);
        if (u.path_root == urlspec::path_root::no_root && !u.path_segments.empty()) {
            path += "/";
        }
    }
    if (u.path_root == urlspec::path_root::slash_root) {
        path += "/";
    }
    for (std::size_t i = 0; i < u.path_segments.size(); ++i) {
        if (i > 0) {
            path += "/";
        }
        path += decode_segment(u.path_segments[i], d);
    }
    return {path};
}

urlspec::url file_path_url(virtual_path::virtual_path const& path, std::optional<urlspec::query> const& query) {
    urlspec::url u{.scheme = "file", .query = query};
    std::string_view rest = path.path;
    if (rest.starts_with("//")) {
        // A leading "//host" names a host.
        rest.remove_prefix(2);
        auto const slash = rest.find('/');
        auto h = host::parse_host(rest.substr(0, slash));
        if (auto const* hh = std::get_if<host::host>(&h)) {
            u.host = *hh;
        }
        rest = slash == std::string_view::npos ? std::string_view() : rest.substr(slash);
    }
    if (rest.starts_with("/")) {
        u.path_root = urlspec::path_root::slash_root;
        rest.remove_prefix(1);
    }
    // Each segment is encoded so that a "%", "?" or "#" in a file name survives the round trip.
    while (true) {
        auto const slash = rest.find('/');
        std::string segment;
        for (char32_t cp : textbuf::from_utf8(rest.substr(0, slash))) {
            if (cp == '%') {
                segment += "%25";
            } else {
                urlspec::percent_encode(segment, cp, urlspec::encode_set::default_encode_set);
            }
        }
        u.path_segments.push_back(segment);
        if (slash == std::string_view::npos) {
            break;
        }
        rest.remove_prefix(slash + 1);
    }
    if (u.path_segments.size() == 1 && u.path_segments[0].empty() && u.path_root == urlspec::path_root::no_root) {
        u.path_segments.clear();
    }
    return u;
}

locator parse_locator(path_or_url rule, locator_origin origin, std::optional<locator> const& base,
                      std::string_view text) {
    locator l = parse_locator_url(rule, origin, base, text);
    // A name written in a page from the web, or in anything such a page named, stays marked as such; the
    // loader keeps it away from local files.
    if (base && origin == locator_origin::document_origin &&
        (base->locator_named_by == named_by::remote_resource || !is_local_resource(base->locator_url))) {
        l.locator_named_by = named_by::remote_resource;
    }
    return l;
}

locator resolve_locator(locator const& base, std::string_view text) {
    locator_origin const origin = base.locator_origin == locator_origin::system_origin
                                      ? locator_origin::system_origin
                                      : locator_origin::document_origin;
    return parse_locator(path_or_url::url_strict, origin, base, text);
}

std::string locator_url_to_string(locator_url const& u) {
    return std::visit(overloaded{
                          [](web const& w) { return w.web_url; },
                          [](file const& f) { return f.file_path.path; },
                          [](standard_input const&) { return std::string("-"); },
                          [](data const&) { return std::string("data URL"); },
                          [](other const& o) { return o.other_url; },
                          [](invalid const& i) { return i.invalid_text; },
                          [](unresolvable const& r) { return r.unresolvable_text; },
                      },
                      u);
}

std::string locator_to_string(locator const& l) {
    return locator_url_to_string(l.locator_url);
}

} // namespace vellum::resource::locator
