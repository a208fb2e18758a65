// The records of HTTP use: which server a URL names, cookies in the Netscape cookie-file form, and the
// outcome of one exchange. The settings themselves (http_options) are in loader_options.hpp.
#pragma once

#include "resource/loader_options.hpp"
#include "resource/url.hpp"
#include "util/bytes.hpp"

#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace vellum::log {
struct log;
} // namespace vellum::log

namespace vellum::http {

/// A server as authentication sees it; the port is always written out, the scheme's default if the URL
/// had none.
struct scheme_host_port {
    urlspec::scheme shp_scheme;
    host::host shp_host;
    urlspec::port shp_port;
    bool operator==(scheme_host_port const&) const = default;
};

/// An order on servers, so that they can key a map.
bool operator<(scheme_host_port const& a, scheme_host_port const& b);

/// The server of an absolute URL with a host; nothing for anything else.
[[nodiscard]] std::optional<scheme_host_port> scheme_host_port_of(urlspec::url const& u);

/// One line of a Netscape cookie file.
struct cookie {
    std::string cookie_domain;
    /// Whether the cookie goes to subdomains too.
    bool cookie_flag = false;
    std::string cookie_path;
    bool cookie_secure = false;
    int cookie_expire = 0;
    std::string cookie_name;
    std::string cookie_value;
    bool operator==(cookie const&) const = default;
};

/// Reads a cookie-file line of seven words; a line that does not fit logs "unknown cookie format: ".
[[nodiscard]] std::optional<cookie> parse_cookie(log::log const& log, std::string_view line);

/// A successful exchange: the URL after redirects, the Content-Type if the server sent one, the body.
struct http_ok_response {
    std::string http_url;
    std::optional<std::string> mime_type;
    bytes::bytes data;
    bool operator==(http_ok_response const&) const = default;
};

/// The server answered 401 to what was sent.
struct http_unauthorized {
    std::string message;
    bool operator==(http_unauthorized const&) const = default;
};

using http_response = std::variant<http_ok_response, http_unauthorized>;

} // namespace vellum::http
