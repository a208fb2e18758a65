// The settings of the resource loader and of its HTTP use, as the command line gives them. Plain data:
// the loader that acts on them is its own module.
#pragma once

#include "resource/url.hpp"

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace vellum::http {

/// The HTTP authentication methods that may be offered to a server.
enum class http_auth_method { basic, digest, ntlm, negotiate };

/// The request methods.
enum class http_method { http_head, http_get, http_post, http_put, http_delete };

/// Which servers a pair of credentials is for; an absent part matches anything.
struct auth_pattern {
    std::optional<urlspec::scheme> pat_scheme;
    std::optional<host::host> pat_host;
    std::optional<urlspec::port> pat_port;
    bool operator==(auth_pattern const&) const = default;
};

/// A user name and password.
struct userpwd {
    std::string username;
    std::string password;
    bool operator==(userpwd const&) const = default;
};

/// All settings of HTTP.
struct http_options {
    std::set<http_auth_method> http_auth_methods{http_auth_method::basic};
    /// Send credentials before the server asks for them.
    bool http_auth_preemptive = true;
    /// Credentials by server, first match wins.
    std::vector<std::pair<auth_pattern, userpwd>> auth_patterns;
    std::optional<std::string> http_proxy;
    /// Seconds; absent means no timeout.
    std::optional<int> http_timeout = 60;
    /// Set-Cookie header values.
    std::vector<std::string> cookies;
    /// A file of cookies in the Netscape format.
    std::optional<std::string> cookiejar;
    std::string ssl_cacert;
    std::optional<std::string> ssl_capath;
    bool ssl_blindly_trust_server = false;
    std::string user_agent;
    /// The number of prefetch threads, 0 for none.
    int max_prefetch_threads = 0;
    /// The largest body accepted, in bytes; a longer one fails the exchange.
    std::uint64_t http_max_body = std::uint64_t(256) << 20;
    bool operator==(http_options const&) const = default;
};

} // namespace vellum::http

namespace vellum::resource::loader {

/// 256 MiB: far above any real document, image or font, far below what would exhaust memory.
inline constexpr std::uint64_t default_max_resource_size = std::uint64_t(256) << 20;

/// What the loader may read, and how.
struct loader_options {
    bool network = true;
    http::http_options http_options;
    bool local_files = true;
    /// Whether documents from the web (and what they name) may read local files too; only an explicit
    /// --local-files allows it.
    bool local_files_for_web = false;
    /// The largest resource read, in bytes: files, HTTP bodies and standard input alike.
    std::uint64_t max_resource_size = default_max_resource_size;
    /// A directory put before absolute file names from documents and the command line.
    std::optional<std::string> fileroot;
    bool operator==(loader_options const&) const = default;
};

} // namespace vellum::resource::loader
