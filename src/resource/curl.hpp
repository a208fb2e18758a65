// The one wrapper around libcurl: the share handle for the name cache, one easy handle per thread, and
// one HTTP exchange with the option order the loader relies on.
#pragma once

#include "resource/http.hpp"
#include "util/result.hpp"

#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace vellum::log {
struct log;
} // namespace vellum::log

namespace vellum::curl {

/// The libcurl share handle: the name cache of all easy handles, and nothing else.
struct curl_share {
    /// A CURLSH*, cleaned up with the last holder.
    std::shared_ptr<void> share_handle;
};

/// One libcurl easy handle; each belongs to one thread at a time.
struct curl {
    /// A CURL*, cleaned up with the last holder.
    std::shared_ptr<void> curl_handle;
};

/// The value of an exchange that went through.
template <class T>
struct ok {
    T ok_value;
};

/// An exchange that failed: the message, and whether trying again may help.
struct error {
    std::string error_message;
    bool error_retry = false;
};

template <class T>
using curl_result = std::variant<ok<T>, error>;

/// Makes the share handle; fails with "error initialising curl.share".
[[nodiscard]] result<curl_share> new_curl_share();

/// Makes an easy handle on the share, and hands it the --cookie values; fails with "error initialising curl".
[[nodiscard]] result<curl> new_curl(log::log const& log, curl_share const& share, http::http_options const& options);

/// One HTTP exchange on the handle. The proxy is left out for a local host; the handle is reset after.
curl_result<http::http_response> curl_http_request(curl const& handle,
                                                   http::http_options const& options,
                                                   http::http_method method,
                                                   std::string const& url,
                                                   std::optional<std::string> const& referer,
                                                   std::optional<http::userpwd> const& credentials,
                                                   bool is_local_host);

/// The cookies the handle holds, read back in the cookie-file form.
std::vector<http::cookie> curl_cookies(log::log const& log, curl const& handle);

} // namespace vellum::curl
