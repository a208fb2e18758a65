// URLs: the parser and serialiser (urlspec), hosts and numeric addresses (host, ip_address), and the
// percent-decoder (url). The parser is the state machine of the URL Standard in its relative-scheme form,
// extended to keep relative references when there is no base.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace vellum::host {

/// A domain name, in its ASCII form and lower case.
struct domain {
    std::string domain_name;
    bool operator==(domain const&) const = default;
};

/// A numeric host: dotted IPv4, or IPv6 in brackets, as serialised.
struct address {
    std::string address_text;
    bool operator==(address const&) const = default;
};

/// The host of a URL.
using host = std::variant<domain, address>;

/// Parses the text of a host: a numeric or bracketed host is an address, all else a domain.
[[nodiscard]] std::variant<host, std::string> parse_host(std::string_view text);

/// The text of a host as a URL writes it.
std::string host_to_string(host const& h);

} // namespace vellum::host

namespace vellum::ip_address {

/// The four bytes of an IPv4 address, if the text is one (decimal, octal or hexadecimal parts).
[[nodiscard]] std::optional<std::vector<unsigned>> parse_ipv4(std::string_view text);

/// The eight 16-bit pieces of an IPv6 address, without brackets; "::" compression and a trailing IPv4.
[[nodiscard]] std::optional<std::vector<unsigned>> parse_ipv6(std::string_view text);

/// The dotted form of an IPv4 address.
std::string serialise_ipv4(std::vector<unsigned> const& bytes);

/// The compressed form of an IPv6 address, without brackets.
std::string serialise_ipv6(std::vector<unsigned> const& pieces);

/// Whether a host is numeric: IPv4, or IPv6 with or without brackets.
bool is_ip_address(std::string_view text);

} // namespace vellum::ip_address

namespace vellum::urlspec {

using scheme = std::string;
using username = std::string;
using password = std::string;
using port = std::string;
using path_segment = std::string;
using query = std::string;
using fragment = std::string;
using scheme_data = std::string;

/// Whether the path starts at the root.
enum class path_root { no_root, slash_root };

/// A parsed URL; an empty scheme marks a relative reference, an empty port the scheme's default.
struct url {
    urlspec::scheme scheme;
    urlspec::username username;
    std::optional<urlspec::password> password;
    std::optional<host::host> host;
    urlspec::port port;
    urlspec::path_root path_root = urlspec::path_root::no_root;
    std::vector<path_segment> path_segments;
    std::optional<urlspec::query> query;
    std::optional<urlspec::fragment> fragment;
    bool operator==(url const&) const = default;
};

/// Parse against this base.
struct normal {
    url base;
};

/// Parse with no base: a relative reference is a failure.
struct normal_no_base {};

/// Parse with no base and keep a relative reference as it is, with its leading ".." segments.
struct no_base_keep_leading_dot_dots {};

using parse_url_option = std::variant<normal, normal_no_base, no_base_keep_leading_dot_dots>;

/// A parsed URL; scheme data is present for a non-relative scheme such as "data" or "mailto".
struct ok {
    urlspec::url url;
    std::optional<urlspec::scheme_data> scheme_data;
    bool operator==(ok const&) const = default;
};

/// A failure that stops the parse.
struct fatal_error {
    std::string message;
    bool operator==(fatal_error const&) const = default;
};

using parse_url_result = std::variant<ok, fatal_error>;

/// A problem that does not stop the parse, at the index of a code point in the input.
struct nonfatal_error {
    std::string message;
    int pos = 0;
    bool operator==(nonfatal_error const&) const = default;
};

/// What parse_url gives: the result and the problems met on the way.
struct parsed {
    parse_url_result parse_result;
    std::vector<nonfatal_error> nonfatal_errors;
};

enum class encode_set { default_encode_set, simple_encode_set };
enum class serialise_option { include_fragment, exclude_fragment };
enum class dot_dot_handling { drop_leading_dot_dots, keep_leading_dot_dots };

/// Parses the text of a URL.
[[nodiscard]] parsed parse_url(parse_url_option const& option, std::string_view text);

/// The text of a URL.
std::string serialise_url(serialise_option option, url const& u, std::optional<scheme_data> const& data);

/// The default port of a relative scheme ("" for "file"); nothing for another scheme.
[[nodiscard]] std::optional<port> default_port(std::string_view s);

/// Whether the scheme is one of the relative schemes, which have hosts and paths.
bool is_relative_scheme(std::string_view s);

/// Appends one code point, UTF-8 encoded and percent-encoded by the given set.
void percent_encode(std::string& out, char32_t cp, encode_set set);

/// Whether a path segment is "." or ".." in any of their percent-encoded spellings.
bool is_single_dot(std::string_view segment);
bool is_double_dot(std::string_view segment);

/// A URL from text that must parse, for the program's own URLs; failure is an internal fault.
url det_parse_url(std::string_view text);

} // namespace vellum::urlspec

namespace vellum::url {

/// What the percent-decoder leaves encoded.
enum class decode_mode {
    /// Characters that URLs reserve stay encoded (decodeURI).
    decode_mode_url,
    /// Everything is decoded (decodeURIComponent).
    decode_mode_component,
    /// A segment of a file path: all but "/" and NUL, and a bad escape stays as written.
    decode_mode_filename,
};

/// Decodes %XX escapes; nothing for a bad escape or for bytes that are not UTF-8 (not in filename mode).
[[nodiscard]] std::optional<std::string> percent_decode(decode_mode mode, std::string_view text);

} // namespace vellum::url
