#include "resource/curl.hpp"

#include "driver/log.hpp"

#include <cstring>
#include <strings.h>
#include <mutex>

#include <curl/curl.h>

namespace vellum::curl {
namespace {

// libcurl asks the share's lock function for each kind of data it shares; one lock serves all of them.
// It is recursive because libcurl may take the share itself while it holds the name cache.
std::recursive_mutex& share_mutex() {
    static std::recursive_mutex m;
    return m;
}

void lock_share(CURL*, curl_lock_data, curl_lock_access, void* userptr) {
    static_cast<std::recursive_mutex*>(userptr)->lock();
}

void unlock_share(CURL*, curl_lock_data, void* userptr) {
    static_cast<std::recursive_mutex*>(userptr)->unlock();
}

// The body grows in a buffer that starts at 16 KiB and doubles, so that a large resource costs a few
// reallocations and a small one a single block.
struct body_buffer {
    std::vector<std::uint8_t> buffer_data = std::vector<std::uint8_t>(16384);
    std::size_t buffer_used = 0;
    /// The largest body taken; past it the transfer is broken off.
    std::uint64_t buffer_limit = 0;
    bool buffer_overflow = false;
};

// Runs inside libcurl and must not throw: a body that would pass the limit, or that memory cannot hold,
// ends the transfer (taking less than was given makes libcurl fail with a write error).
std::size_t write_body(char* ptr, std::size_t size, std::size_t nmemb, void* userdata) noexcept {
    auto& b = *static_cast<body_buffer*>(userdata);
    std::size_t const n = size * nmemb;
    if (n > b.buffer_limit || b.buffer_used > b.buffer_limit - n) {
        b.buffer_overflow = true;
        return 0;
    }
    std::size_t capacity = b.buffer_data.size();
    while (capacity - b.buffer_used < n) {
        capacity *= 2;
    }
    try {
        if (capacity != b.buffer_data.size()) {
            b.buffer_data.resize(capacity);
        }
    } catch (...) {
        b.buffer_overflow = true;
        return 0;
    }
    std::memcpy(b.buffer_data.data() + b.buffer_used, ptr, n);
    b.buffer_used += n;
    return n;
}

long auth_bits(std::set<http::http_auth_method> const& methods) {
    long bits = 0;
    for (auto m : methods) {
        switch (m) {
        case http::http_auth_method::basic:
            bits |= CURLAUTH_BASIC;
            break;
        case http::http_auth_method::digest:
            bits |= CURLAUTH_DIGEST;
            break;
        case http::http_auth_method::negotiate:
            bits |= CURLAUTH_NEGOTIATE;
            break;
        case http::http_auth_method::ntlm:
            bits |= CURLAUTH_NTLM;
            break;
        }
    }
    return bits;
}

// Only the failures of sending and receiving on a connection that gave no error status are worth
// another try; a refused connection or a 404 will not change.
bool worth_retry(CURLcode code, long response) {
    return (code == CURLE_SEND_ERROR || code == CURLE_RECV_ERROR) &&
           (response == 0 || (response >= 200 && response <= 399));
}

// A redirect to a scheme other than "http" and "https" is refused as a load of that URL itself would
// be: a "file:" URL is a local file, anything else a scheme the program does not load.
std::string refused_redirect(CURL* easy) {
    char* target = nullptr;
    curl_easy_getinfo(easy, CURLINFO_REDIRECT_URL, &target);
    if (target == nullptr) {
        curl_easy_getinfo(easy, CURLINFO_EFFECTIVE_URL, &target);
    }
    std::string const where = target != nullptr ? target : "";
    bool const local = where.size() >= 5 && strncasecmp(where.c_str(), "file:", 5) == 0;
    std::string const reason = local ? "not loading local file" : "cannot load unknown URL scheme";
    return where.empty() ? reason : reason + " (redirected to " + where + ")";
}

} // namespace

result<curl_share> new_curl_share() {
    CURLSH* share = curl_share_init();
    if (share == nullptr) {
        return fail("error initialising curl.share");
    }
    curl_share_setopt(share, CURLSHOPT_LOCKFUNC, lock_share);
    curl_share_setopt(share, CURLSHOPT_UNLOCKFUNC, unlock_share);
    curl_share_setopt(share, CURLSHOPT_USERDATA, static_cast<void*>(&share_mutex()));
    curl_share_setopt(share, CURLSHOPT_SHARE, CURL_LOCK_DATA_DNS);
    return curl_share{std::shared_ptr<void>(share, [](void* s) { curl_share_cleanup(static_cast<CURLSH*>(s)); })};
}

result<curl> new_curl(log::log const& log, curl_share const& share, http::http_options const& options) {
    CURL* easy = curl_easy_init();
    if (easy == nullptr) {
        return fail("error initialising curl");
    }
    // The handle keeps the share across curl_easy_reset, and so does the cookie store.
    curl_easy_setopt(easy, CURLOPT_SHARE, static_cast<CURLSH*>(share.share_handle.get()));
    // A cookie file name, or the empty string, which turns the cookie engine on with no file. It is set
    // once for the handle, not for each exchange: the engine and its cookies outlive curl_easy_reset,
    // while libcurl 7.88 loses (and leaks) the list of file names this option keeps on each reset.
    curl_easy_setopt(easy, CURLOPT_COOKIEFILE, options.cookiejar ? options.cookiejar->c_str() : "");
    for (auto const& c : options.cookies) {
        std::string const line = "Set-Cookie: " + c;
        if (curl_easy_setopt(easy, CURLOPT_COOKIELIST, line.c_str()) != CURLE_OK) {
            log::log_warning(log, "unknown cookie format: " + c);
        }
    }
    // The share must outlive the handle, so the handle's deleter holds on to it.
    auto keep = share.share_handle;
    return curl{std::shared_ptr<void>(easy, [keep](void* e) { curl_easy_cleanup(static_cast<CURL*>(e)); })};
}

curl_result<http::http_response> curl_http_request(curl const& handle,
                                                   http::http_options const& options,
                                                   http::http_method method,
                                                   std::string const& url,
                                                   std::optional<std::string> const& referer,
                                                   std::optional<http::userpwd> const& credentials,
                                                   bool is_local_host) {
    CURL* easy = static_cast<CURL*>(handle.curl_handle.get());
    check(easy != nullptr, "curl_http_request");
    // libcurl adds "Pragma: no-cache" behind a proxy; an empty value removes the header.
    std::unique_ptr<curl_slist, void (*)(curl_slist*)> headers(curl_slist_append(nullptr, "pragma:"),
                                                               curl_slist_free_all);
    switch (method) {
    case http::http_method::http_head:
        curl_easy_setopt(easy, CURLOPT_NOBODY, 1L);
        break;
    case http::http_method::http_get:
        curl_easy_setopt(easy, CURLOPT_HTTPGET, 1L);
        break;
    case http::http_method::http_post:
        curl_easy_setopt(easy, CURLOPT_POST, 1L);
        break;
    case http::http_method::http_put:
        curl_easy_setopt(easy, CURLOPT_POST, 1L);
        curl_easy_setopt(easy, CURLOPT_CUSTOMREQUEST, "PUT");
        break;
    case http::http_method::http_delete:
        curl_easy_setopt(easy, CURLOPT_POST, 1L);
        curl_easy_setopt(easy, CURLOPT_CUSTOMREQUEST, "DELETE");
        break;
    }
    if (method == http::http_method::http_post || method == http::http_method::http_put ||
        method == http::http_method::http_delete) {
        // No body is sent: an empty one, rather than libcurl reading standard input.
        curl_easy_setopt(easy, CURLOPT_POSTFIELDS, "");
        curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE, 0L);
    }
    body_buffer body{.buffer_limit = options.http_max_body};
    char error_buffer[CURL_ERROR_SIZE] = {};
    curl_easy_setopt(easy, CURLOPT_HTTPHEADER, headers.get());
    curl_easy_setopt(easy, CURLOPT_URL, url.c_str());
    curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, write_body);
    curl_easy_setopt(easy, CURLOPT_WRITEDATA, static_cast<void*>(&body));
    curl_easy_setopt(easy, CURLOPT_ERRORBUFFER, error_buffer);
    curl_easy_setopt(easy, CURLOPT_USERAGENT, options.user_agent.c_str());
    curl_easy_setopt(easy, CURLOPT_FAILONERROR, 1L);
    curl_easy_setopt(easy, CURLOPT_FOLLOWLOCATION, 1L);
    curl_easy_setopt(easy, CURLOPT_MAXREDIRS, 10L);
    // Only the web is read through libcurl, also at the end of a redirect.
    curl_easy_setopt(easy, CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(easy, CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
    // A body announced as longer than the limit is refused before it is read.
    curl_easy_setopt(easy, CURLOPT_MAXFILESIZE_LARGE, static_cast<curl_off_t>(options.http_max_body));
    curl_easy_setopt(easy, CURLOPT_AUTOREFERER, 1L);
    // The empty string asks for every content encoding libcurl can undo.
    curl_easy_setopt(easy, CURLOPT_ACCEPT_ENCODING, "");
    curl_easy_setopt(easy, CURLOPT_CAINFO, options.ssl_cacert.c_str());
    if (options.ssl_capath) {
        curl_easy_setopt(easy, CURLOPT_CAPATH, options.ssl_capath->c_str());
    }
    if (options.ssl_blindly_trust_server) {
        curl_easy_setopt(easy, CURLOPT_SSL_VERIFYPEER, 0L);
        curl_easy_setopt(easy, CURLOPT_SSL_VERIFYHOST, 0L);
    }
    if (credentials) {
        curl_easy_setopt(easy, CURLOPT_USERNAME, credentials->username.c_str());
        curl_easy_setopt(easy, CURLOPT_PASSWORD, credentials->password.c_str());
    }
    curl_easy_setopt(easy, CURLOPT_HTTPAUTH, auth_bits(options.http_auth_methods));
    if (options.http_proxy && !is_local_host) {
        curl_easy_setopt(easy, CURLOPT_PROXY, options.http_proxy->c_str());
    }
    if (options.http_timeout) {
        curl_easy_setopt(easy, CURLOPT_TIMEOUT, static_cast<long>(*options.http_timeout));
        curl_easy_setopt(easy, CURLOPT_CONNECTTIMEOUT, static_cast<long>(*options.http_timeout));
    }
    // Timeouts by signal would cross the threads of the pool.
    curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(easy, CURLOPT_REFERER, referer ? referer->c_str() : nullptr);

    CURLcode const code = curl_easy_perform(easy);
    curl_result<http::http_response> out = error{};
    if (code != CURLE_OK) {
        long response = 0;
        curl_easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &response);
        std::string message = error_buffer[0] != '\0' ? error_buffer : curl_easy_strerror(code);
        if (body.buffer_overflow || code == CURLE_FILESIZE_EXCEEDED) {
            message = "resource too large: more than " + std::to_string(options.http_max_body) + " bytes";
        } else if (code == CURLE_UNSUPPORTED_PROTOCOL) {
            message = refused_redirect(easy);
        }
        if (response == 401) {
            out = ok<http::http_response>{http::http_unauthorized{message}};
        } else {
            out = error{message, worth_retry(code, response)};
        }
    } else {
        char* effective = nullptr;
        char* content_type = nullptr;
        curl_easy_getinfo(easy, CURLINFO_EFFECTIVE_URL, &effective);
        curl_easy_getinfo(easy, CURLINFO_CONTENT_TYPE, &content_type);
        body.buffer_data.resize(body.buffer_used);
        out = ok<http::http_response>{http::http_ok_response{
            .http_url = effective != nullptr ? effective : url,
            .mime_type = content_type != nullptr ? std::optional<std::string>(content_type) : std::nullopt,
            .data = bytes::from_vector(std::move(body.buffer_data)),
        }};
    }
    // The reset drops the options, which point into this frame, but keeps connections, the name cache and
    // the cookies.
    curl_easy_reset(easy);
    return out;
}

std::vector<http::cookie> curl_cookies(log::log const& log, curl const& handle) {
    curl_slist* list = nullptr;
    curl_easy_getinfo(static_cast<CURL*>(handle.curl_handle.get()), CURLINFO_COOKIELIST, &list);
    std::vector<http::cookie> out;
    for (curl_slist* i = list; i != nullptr; i = i->next) {
        if (auto c = http::parse_cookie(log, i->data)) {
            out.push_back(std::move(*c));
        }
    }
    curl_slist_free_all(list);
    return out;
}

} // namespace vellum::curl
