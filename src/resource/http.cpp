#include "resource/http.hpp"

#include "driver/log.hpp"

#include <cstdlib>
#include <tuple>
#include <vector>

namespace vellum::http {

bool operator<(scheme_host_port const& a, scheme_host_port const& b) {
    auto const ha = host::host_to_string(a.shp_host);
    auto const hb = host::host_to_string(b.shp_host);
    return std::tie(a.shp_scheme, ha, a.shp_port) < std::tie(b.shp_scheme, hb, b.shp_port);
}

std::optional<scheme_host_port> scheme_host_port_of(urlspec::url const& u) {
    if (u.scheme.empty() || !u.host) {
        return std::nullopt;
    }
    urlspec::port port = u.port;
    if (port.empty()) {
        port = urlspec::default_port(u.scheme).value_or("");
    }
    return scheme_host_port{.shp_scheme = u.scheme, .shp_host = *u.host, .shp_port = port};
}

std::optional<cookie> parse_cookie(log::log const& log, std::string_view line) {
    std::vector<std::string> words;
    std::size_t i = 0;
    while (i < line.size()) {
        while (i < line.size() && (line[i] == ' ' || line[i] == '\t')) {
            ++i;
        }
        std::size_t const start = i;
        while (i < line.size() && line[i] != ' ' && line[i] != '\t') {
            ++i;
        }
        if (i > start) {
            words.emplace_back(line.substr(start, i - start));
        }
    }
    char* end = nullptr;
    long const expire = words.size() == 7 ? std::strtol(words[4].c_str(), &end, 10) : 0;
    if (words.size() != 7 || end == words[4].c_str() || *end != '\0') {
        std::string joined;
        for (auto const& w : words) {
            joined += (joined.empty() ? "" : " ") + w;
        }
        log::log_warning(log, "unknown cookie format: " + joined);
        return std::nullopt;
    }
    return cookie{.cookie_domain = words[0],
                  .cookie_flag = words[1] == "TRUE",
                  .cookie_path = words[2],
                  .cookie_secure = words[3] == "TRUE",
                  .cookie_expire = static_cast<int>(expire),
                  .cookie_name = words[5],
                  .cookie_value = words[6]};
}

} // namespace vellum::http
