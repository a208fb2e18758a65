#include "resource/loader.hpp"

#include "driver/log.hpp"
#include "util/ref.hpp"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cstring>
#include <exception>

namespace vellum::resource::loader {
namespace {

using web_result = curl::curl_result<http::http_response>;

std::string too_large(std::uint64_t limit) {
    return "resource too large: more than " + std::to_string(limit) + " bytes";
}

std::string join_path(std::string const& dir, std::string_view path) {
    while (!path.empty() && path.front() == '/') {
        path.remove_prefix(1);
    }
    if (dir.empty()) {
        return std::string(path);
    }
    return dir.back() == '/' ? dir + std::string(path) : dir + "/" + std::string(path);
}

std::optional<std::string> host_text(urlspec::url const& u) {
    if (!u.host) {
        return std::nullopt;
    }
    return host::host_to_string(*u.host);
}

bool is_unauthorized(web_result const& r) {
    auto const* o = std::get_if<curl::ok<http::http_response>>(&r);
    return o != nullptr && std::holds_alternative<http::http_unauthorized>(o->ok_value);
}

bool is_success(web_result const& r) {
    auto const* o = std::get_if<curl::ok<http::http_response>>(&r);
    return o != nullptr && std::holds_alternative<http::http_ok_response>(o->ok_value);
}

void record_auth(network_loader const& net, http::scheme_host_port const& server, auth_attempt attempt) {
    net.loader_auths->with([&](auth_map& auths) { auths.insert_or_assign(server, std::move(attempt)); });
}

// What a server answered to credentials is remembered, so that it is asked at most once more per run.
void record_outcome(network_loader const& net,
                    http::scheme_host_port const& server,
                    web_result const& r,
                    http::userpwd const& sent) {
    if (is_success(r)) {
        record_auth(net, server, succeeded{sent});
    } else if (is_unauthorized(r)) {
        record_auth(net, server, unauthorized{});
    }
}

// One exchange, tried again on failures of sending or receiving when it is a prefetch.
web_result exchange(log::log const& log,
                    network_loader const& net,
                    curl::curl const& handle,
                    std::string const& url,
                    std::optional<std::string> const& referer,
                    std::optional<http::userpwd> const& credentials,
                    bool is_local_host,
                    prefetch_mode mode) {
    int retries_left = std::visit(overloaded{
                                      [](is_prefetch const& p) { return p.retries; },
                                      [](not_prefetch const&) { return 0; },
                                  },
                                  mode);
    for (;;) {
        web_result r = curl::curl_http_request(handle, net.loader_http_options, http::http_method::http_get, url,
                                               referer, credentials, is_local_host);
        auto const* e = std::get_if<curl::error>(&r);
        if (e == nullptr || !e->error_retry || retries_left <= 0) {
            return r;
        }
        log::log_warning(log, "retrying " + url);
        --retries_left;
    }
}

// A fetch with the credentials the URL, the memory of the server's answers and the patterns give.
web_result fetch_with_auth(log::log const& log,
                           network_loader const& net,
                           curl::curl const& handle,
                           std::string const& url,
                           std::optional<std::string> const& referer,
                           prefetch_mode mode) {
    auto const parsed = urlspec::parse_url(urlspec::normal_no_base{}, url);
    auto const* okay = std::get_if<urlspec::ok>(&parsed.parse_result);
    std::optional<http::scheme_host_port> const server =
        okay != nullptr ? http::scheme_host_port_of(okay->url) : std::nullopt;
    if (!server) {
        return curl::error{"cannot load invalid URL", false};
    }
    auto const host = host_text(okay->url);
    bool const is_local_host = host == "127.0.0.1" || host == "localhost";
    auto const send = [&](std::optional<http::userpwd> const& credentials) {
        return exchange(log, net, handle, url, referer, credentials, is_local_host, mode);
    };
    auto const try_pattern_after_401 = [&](web_result r) {
        if (!is_unauthorized(r)) {
            return r;
        }
        auto const credentials = find_credentials(net.loader_http_options, *server, may_catchall::may_catchall);
        if (!credentials) {
            record_auth(net, *server, unauthorized{});
            return r;
        }
        web_result again = send(credentials);
        record_outcome(net, *server, again, *credentials);
        return again;
    };

    urlspec::url const& u = okay->url;
    if (!u.username.empty() || u.password) {
        // The URL's own user and password, percent-decoded as libcurl would.
        http::userpwd const own{
            .username = url::percent_decode(url::decode_mode::decode_mode_component, u.username).value_or(u.username),
            .password = url::percent_decode(url::decode_mode::decode_mode_component, u.password.value_or(""))
                            .value_or(u.password.value_or("")),
        };
        web_result r = send(own);
        if (is_unauthorized(r)) {
            return try_pattern_after_401(std::move(r));
        }
        record_outcome(net, *server, r, own);
        return r;
    }
    auto const known = net.loader_auths->with([&](auth_map& auths) -> std::optional<auth_attempt> {
        auto const it = auths.find(*server);
        if (it == auths.end()) {
            return std::nullopt;
        }
        return it->second;
    });
    if (known) {
        return std::visit(overloaded{
                              [&](succeeded const& s) {
                                  web_result r = send(s.succeeded_with);
                                  record_outcome(net, *server, r, s.succeeded_with);
                                  return r;
                              },
                              [&](unauthorized const&) { return send(std::nullopt); },
                          },
                          *known);
    }
    if (net.loader_http_options.http_auth_preemptive) {
        // Credentials go unasked only to a server a pattern names; a catch-all waits for a 401.
        if (auto const credentials =
                find_credentials(net.loader_http_options, *server, may_catchall::no_catchall)) {
            web_result r = send(credentials);
            record_outcome(net, *server, r, *credentials);
            return r;
        }
    }
    return try_pattern_after_401(send(std::nullopt));
}

locator::protocol protocol_of(std::string_view url) {
    return url.starts_with("https:") ? locator::protocol::https : locator::protocol::http;
}

fetch_result to_fetch_result(web_result const& r, locator::locator const& loc) {
    return std::visit(
        overloaded{
            [&](curl::ok<http::http_response> const& o) -> fetch_result {
                return std::visit(
                    overloaded{
                        [&](http::http_ok_response const& ok) -> fetch_result {
                            // Relative references in the resource resolve against where it was found,
                            // after redirects.
                            locator::locator found = loc;
                            found.locator_url = locator::web{protocol_of(ok.http_url), ok.http_url};
                            std::optional<resource_type> type;
                            if (ok.mime_type) {
                                type = parse_resource_type(*ok.mime_type);
                            }
                            return resource<resource_data_nonhandle>{.resource_locator = std::move(found),
                                                                     .resource_type = std::move(type),
                                                                     .resource_data = resource_bytes{ok.data}};
                        },
                        [](http::http_unauthorized const& u) -> fetch_result { return fail(u.message); },
                    },
                    o.ok_value);
            },
            [](curl::error const& e) -> fetch_result { return fail(e.error_message); },
        },
        r);
}

fetch_result fetch_web(log::log const& log,
                       network_loader const& net,
                       curl::curl const& handle,
                       locator::locator const& loc,
                       std::string const& url,
                       std::optional<std::string> const& referer,
                       prefetch_mode mode) {
    return to_fetch_result(fetch_with_auth(log, net, handle, url, referer, mode), loc);
}

std::optional<fetch_result> cached(network_loader const& net, std::string const& url) {
    return net.loader_cache->with([&](cache_map& cache) -> std::optional<fetch_result> {
        auto const it = cache.cache_entries.find(url);
        if (it == cache.cache_entries.end()) {
            return std::nullopt;
        }
        return it->second;
    });
}

std::uint64_t body_size(fetch_result const& r) {
    if (!r) {
        return 0;
    }
    auto const* b = std::get_if<resource_bytes>(&r->resource_data);
    return b != nullptr ? b->data.size() : 0;
}

void store(network_loader const& net, std::string const& url, fetch_result const& r) {
    // The cache holds no more bytes than one resource may have: past that, bodies are passed on but not
    // kept, and a later load fetches them again. Failures cost nothing and are always kept.
    std::uint64_t const size = body_size(r);
    std::uint64_t const limit = net.loader_http_options.http_max_body;
    net.loader_cache->with([&](cache_map& cache) {
        if (cache.cache_entries.contains(url) || size > limit || cache.cache_bytes > limit - size) {
            return;
        }
        cache.cache_entries.emplace(url, r);
        cache.cache_bytes += size;
    });
}

// The loop of one prefetch thread. A URL is fetched by one thread at a time; others who ask for it while
// it is under way join its list in `active`, and all are given the one result.
void prefetch_loop(log::log const& log,
                   network_loader const& net,
                   prefetch_thread_info const& info,
                   curl::curl const& handle,
                   std::string const& name) {
    for (;;) {
        thread_command command = info.channel->receive();
        bool const go_on = std::visit(
            overloaded{
                [&](quit const& q) {
                    if (q.quit_count < 2) {
                        q.quit_ack->put(quit_ack{});
                    } else {
                        info.channel->send(quit{q.quit_count - 1, q.quit_ack});
                    }
                    return false;
                },
                [&](fetch const& f) {
                    std::optional<fetch_result> hit;
                    // The cache is read under `active`, so that a fetch that ends between the two looks
                    // cannot be missed in both and the URL fetched twice.
                    bool const mine = info.active->with([&](auto& active) {
                        hit = cached(net, f.fetch_url);
                        if (hit) {
                            return false;
                        }
                        auto const it = active.find(f.fetch_url);
                        if (it != active.end()) {
                            if (f.fetch_return) {
                                it->second.push_back(*f.fetch_return);
                            }
                            return false;
                        }
                        auto& waiting = active[f.fetch_url];
                        if (f.fetch_return) {
                            waiting.push_back(*f.fetch_return);
                        }
                        return true;
                    });
                    if (hit && f.fetch_return) {
                        (*f.fetch_return)->put(*hit);
                    }
                    if (!mine) {
                        return true;
                    }
                    log::log_debug(log, "[" + name + "] loading " + f.fetch_url);
                    fetch_result r = fail("no result");
                    try {
                        r = fetch_web(log, net, handle, f.fetch_locator, f.fetch_url, f.fetch_referer,
                                      is_prefetch{2});
                    } catch (std::exception const& e) {
                        r = fail(std::string("caught exception: ") + e.what());
                    }
                    if (r) {
                        log::log_debug(log, "[" + name + "] loaded " + f.fetch_url);
                    } else {
                        log::log_debug(log, "[" + name + "] error loading " + f.fetch_url + ": " + r.error());
                    }
                    store(net, f.fetch_url, r);
                    auto const waiting = info.active->with([&](auto& active) {
                        auto const it = active.find(f.fetch_url);
                        std::vector<return_cell> cells = std::move(it->second);
                        active.erase(it);
                        return cells;
                    });
                    for (auto const& cell : waiting) {
                        cell->put(r);
                    }
                    return true;
                },
            },
            command);
        if (!go_on) {
            return;
        }
    }
}

// Starts the pool that `threads` waits for, if it waits for one; under the cell's lock.
void start_wanted_pool(log::log const& log, network_loader const& net, loader_threads& threads) {
    auto const* none = std::get_if<no_prefetch_threads>(&threads);
    if (none == nullptr || !none->pool_wanted) {
        return;
    }
    log::log_debug(log, "starting prefetch threads");
    prefetch_thread_info info{
        .channel = std::make_shared<blocking::channel<thread_command>>(),
        .curls = {none->main_curl},
        .active = std::make_shared<blocking::blocking_cell<std::map<std::string, std::vector<return_cell>>>>(
            std::map<std::string, std::vector<return_cell>>{}),
        .threads = std::make_shared<std::vector<std::thread>>(),
    };
    for (int i = 2; i <= net.loader_http_options.max_prefetch_threads; ++i) {
        auto handle = curl::new_curl(log, net.loader_share, net.loader_http_options);
        if (!handle) {
            log::log_error(log, "error initialising curl");
            continue;
        }
        info.curls.push_back(*handle);
    }
    // The threads log too, so every sink gets a lock from here on.
    log::log const shared_log = log::with_locks(log);
    for (std::size_t i = 0; i < info.curls.size(); ++i) {
        info.threads->emplace_back(prefetch_loop, shared_log, net, info, info.curls[i],
                                   "prefetch-" + std::to_string(i + 1));
    }
    threads = prefetch_threads{info};
}

// A web resource through the cache: fetched here when no threads run, else by a thread while this one
// waits.
fetch_result load_web(log::log const& log,
                      network_loader const& net,
                      locator::locator const& loc,
                      std::string const& url) {
    auto const referer = referer_of(loc);
    return_cell const cell = std::make_shared<blocking::blocking_cell<fetch_result>>();
    auto const here = net.loader_threads->with([&](loader_threads& threads) -> std::optional<fetch_result> {
        if (auto hit = cached(net, url)) {
            log::log_debug(log, "resource from cache: " + url);
            return hit;
        }
        start_wanted_pool(log, net, threads);
        return std::visit(overloaded{
                              [&](no_prefetch_threads const& n) -> std::optional<fetch_result> {
                                  fetch_result r = fetch_web(log, net, n.main_curl, loc, url, referer, not_prefetch{});
                                  store(net, url, r);
                                  return r;
                              },
                              [&](prefetch_threads const& p) -> std::optional<fetch_result> {
                                  p.info.channel->send(fetch{loc, url, referer, cell});
                                  return std::nullopt;
                              },
                          },
                          threads);
    });
    return here ? *here : cell->take();
}

// Opens a local file as a resource. Only a regular file is read: a FIFO would hold the run, and a device
// such as /dev/zero or a directory has no end or no bytes. The file is opened without blocking (so that a
// FIFO with no writer cannot hold the run) and judged by its open descriptor, not by its name.
result<resource<resource_data>> open_file(locator::locator const& loc,
                                          virtual_path::physical_path const& path,
                                          std::uint64_t limit) {
    int const fd = ::open(path.path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
    if (fd < 0) {
        return fail(std::string("cannot open file: ") + std::strerror(errno));
    }
    struct stat st {};
    if (::fstat(fd, &st) != 0) {
        int const e = errno;
        ::close(fd);
        return fail(std::string("cannot open file: ") + std::strerror(e));
    }
    if (!S_ISREG(st.st_mode)) {
        ::close(fd);
        return fail(S_ISDIR(st.st_mode) ? "not loading a directory" : "not loading a file that is not a regular file");
    }
    if (static_cast<std::uint64_t>(st.st_size) > limit) {
        ::close(fd);
        return fail(too_large(limit));
    }
    ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) & ~O_NONBLOCK);
    std::FILE* f = ::fdopen(fd, "rb");
    if (f == nullptr) {
        int const e = errno;
        ::close(fd);
        return fail(std::string("cannot open file: ") + std::strerror(e));
    }
    return resource<resource_data>{
        .resource_locator = loc,
        .resource_data = resource_stream{std::shared_ptr<std::FILE>(f, &std::fclose), limit}};
}

result<resource<resource_data>> with_handle(fetch_result const& r, std::uint64_t limit) {
    if (!r) {
        return fail(r.error());
    }
    return std::visit(overloaded{
                          [&](resource_path const& p) { return open_file(r->resource_locator, p.path, limit); },
                          [&](resource_bytes const& b) -> result<resource<resource_data>> {
                              return resource<resource_data>{.resource_locator = r->resource_locator,
                                                             .resource_type = r->resource_type,
                                                             .resource_data = b};
                          },
                      },
                      r->resource_data);
}

} // namespace

std::string_view description_text(resource_description d) {
    switch (d) {
    case resource_description::document:
        return "document";
    case resource_description::attachment:
        return "attachment";
    case resource_description::stylesheet:
        return "style sheet";
    case resource_description::script:
        return "script";
    case resource_description::image:
        return "image";
    case resource_description::font:
        return "font";
    case resource_description::hyphenation_patterns:
        return "hyphenation patterns";
    case resource_description::ajax_request:
        return "ajax request";
    case resource_description::icc_profile:
        return "ICC profile";
    }
    return "resource";
}

bool pattern_matches(http::auth_pattern const& pattern, http::scheme_host_port const& server, may_catchall catchall) {
    if (pattern.pat_scheme && *pattern.pat_scheme != server.shp_scheme) {
        return false;
    }
    if (pattern.pat_host ? !(*pattern.pat_host == server.shp_host) : catchall != may_catchall::may_catchall) {
        return false;
    }
    if (pattern.pat_port) {
        // An empty port in the pattern, as in the URL, stands for the scheme's default.
        urlspec::port const port = pattern.pat_port->empty()
                                       ? urlspec::default_port(server.shp_scheme).value_or("")
                                       : *pattern.pat_port;
        if (port != server.shp_port) {
            return false;
        }
    }
    return true;
}

std::optional<http::userpwd> find_credentials(http::http_options const& options,
                                              http::scheme_host_port const& server,
                                              may_catchall catchall) {
    for (auto const& [pattern, credentials] : options.auth_patterns) {
        if (pattern_matches(pattern, server, catchall)) {
            return credentials;
        }
    }
    return std::nullopt;
}

std::optional<std::string> referer_of(locator::locator const& loc) {
    if (!loc.locator_referer) {
        return std::nullopt;
    }
    auto const* from = std::get_if<locator::web>(&*loc.locator_referer);
    if (from == nullptr) {
        return std::nullopt;
    }
    // A secure page's address is not given away to a plain server.
    auto const* to = std::get_if<locator::web>(&loc.locator_url);
    if (from->web_protocol == locator::protocol::https && to != nullptr &&
        to->web_protocol == locator::protocol::http) {
        return std::nullopt;
    }
    return from->web_url;
}

result<loader> new_loader(log::log const& log,
                          virtual_path::physical_path const& prefix,
                          virtual_path::physical_path const& curdir,
                          loader_options const& options) {
    std::optional<std::optional<virtual_path::physical_path>> local_files;
    if (options.local_files) {
        local_files.emplace(options.fileroot ? std::optional(virtual_path::physical_path{*options.fileroot})
                                             : std::nullopt);
    }
    // HTTP bodies have the limit of every other resource.
    http::http_options http_options = options.http_options;
    http_options.http_max_body = options.max_resource_size;
    loader l{.loader_prefix = prefix,
             .loader_curdir = curdir,
             .loader_network = no_network{http_options},
             .loader_local_files = local_files,
             .loader_local_files_for_web = options.local_files_for_web,
             .loader_max_size = options.max_resource_size};
    if (!options.network) {
        return l;
    }
    auto share = curl::new_curl_share();
    if (!share) {
        return fail(share.error());
    }
    auto main_curl = curl::new_curl(log, *share, http_options);
    if (!main_curl) {
        return fail(main_curl.error());
    }
    l.loader_network = yes_network{network_loader{
        .loader_http_options = http_options,
        .loader_share = *share,
        .loader_threads =
            std::make_shared<blocking::blocking_cell<loader_threads>>(no_prefetch_threads{*main_curl}),
        .loader_cache = std::make_shared<blocking::blocking_cell<cache_map>>(cache_map{}),
        .loader_auths = std::make_shared<blocking::blocking_cell<auth_map>>(auth_map{}),
    }};
    return l;
}

result<bool> start_prefetch_threads(log::log const&, loader const& l) {
    auto const* yes = std::get_if<yes_network>(&l.loader_network);
    if (yes == nullptr) {
        return false;
    }
    network_loader const& net = yes->network;
    return net.loader_threads->with([&](loader_threads& threads) -> result<bool> {
        auto* none = std::get_if<no_prefetch_threads>(&threads);
        if (none == nullptr || none->pool_wanted) {
            return fail("prefetch threads already started");
        }
        if (net.loader_http_options.max_prefetch_threads <= 0) {
            return false;
        }
        none->pool_wanted = true;
        return true;
    });
}

void stop_prefetch_threads(log::log const& log, loader const& l) {
    auto const* yes = std::get_if<yes_network>(&l.loader_network);
    if (yes == nullptr) {
        return;
    }
    yes->network.loader_threads->with([&](loader_threads& threads) {
        auto* const running = std::get_if<prefetch_threads>(&threads);
        if (running == nullptr) {
            // A pool that never started is no longer wanted.
            if (auto* none = std::get_if<no_prefetch_threads>(&threads)) {
                none->pool_wanted = false;
            }
            return;
        }
        log::log_debug(log, "stopping prefetch threads");
        prefetch_thread_info const info = running->info;
        auto const ack = std::make_shared<blocking::blocking_cell<quit_ack>>();
        info.channel->send(quit{static_cast<int>(info.threads->size()), ack});
        ack->take();
        for (auto& t : *info.threads) {
            t.join();
        }
        check(!info.curls.empty(), "no curls");
        threads = no_prefetch_threads{info.curls.front()};
    });
}

void prefetch(log::log const& log, loader const& l, locator::locator const& loc) {
    auto const* web = std::get_if<locator::web>(&loc.locator_url);
    auto const* yes = std::get_if<yes_network>(&l.loader_network);
    if (web == nullptr || yes == nullptr) {
        return;
    }
    yes->network.loader_threads->with([&](loader_threads& threads) {
        start_wanted_pool(log, yes->network, threads);
        if (auto const* running = std::get_if<prefetch_threads>(&threads)) {
            running->info.channel->send(fetch{loc, web->web_url, referer_of(loc), std::nullopt});
        }
    });
}

std::optional<virtual_path::physical_path> resolve_filename(loader const& l, locator::locator const& loc) {
    auto const* f = std::get_if<locator::file>(&loc.locator_url);
    if (f == nullptr) {
        return std::nullopt;
    }
    std::string const& path = f->file_path.path;
    if (loc.locator_origin == locator::locator_origin::system_origin) {
        // System files are named from the prefix ("/dtd/catalog.xml"); a name that the XML catalog
        // resolved is already a full path under the prefix and stands as it is.
        auto const& prefix = l.loader_prefix.path;
        if (!prefix.empty() && path.size() > prefix.size() && path.starts_with(prefix) &&
            (path[prefix.size()] == '/' || prefix.back() == '/')) {
            return virtual_path::physical_path{path};
        }
        return virtual_path::physical_path{join_path(prefix, path)};
    }
    if (!l.loader_local_files) {
        return std::nullopt;
    }
    // A page from the web names local files only when the command line allows it expressly.
    if (loc.locator_origin == locator::locator_origin::document_origin &&
        loc.locator_named_by == locator::named_by::remote_resource && !l.loader_local_files_for_web) {
        return std::nullopt;
    }
    if (path.starts_with("/")) {
        auto const& fileroot = *l.loader_local_files;
        return virtual_path::physical_path{fileroot ? fileroot->path + path : path};
    }
    return virtual_path::physical_path{join_path(l.loader_curdir.path, path)};
}

result<resource<resource_data>> load_resource(log::log const& log,
                                              loader const& l,
                                              resource_description description,
                                              locator::locator const& loc) {
    std::string const name = locator::locator_to_string(loc);
    if (loc.locator_fragment) {
        log::log_file_message(log, log::level::warning, name, "ignoring fragment identifier");
    }
    log::log_debug(log, "loading " + std::string(description_text(description)) + ": " + name);
    auto const loaded = std::visit(
        overloaded{
            [&](locator::web const& w) -> result<resource<resource_data>> {
                auto const* yes = std::get_if<yes_network>(&l.loader_network);
                if (yes == nullptr) {
                    return fail("not loading HTTP resource due to --no-network flag");
                }
                return with_handle(load_web(log, yes->network, loc, w.web_url), l.loader_max_size);
            },
            [&](locator::file const&) -> result<resource<resource_data>> {
                auto const path = resolve_filename(l, loc);
                if (!path) {
                    return fail("not loading local file");
                }
                return open_file(loc, *path, l.loader_max_size);
            },
            [&](locator::standard_input const&) -> result<resource<resource_data>> {
                if (loc.locator_origin != locator::locator_origin::command_line_origin) {
                    return fail("not loading standard input");
                }
                // Standard input stays open after the resource is dropped.
                return resource<resource_data>{
                    .resource_locator = loc,
                    .resource_data = resource_stream{std::shared_ptr<std::FILE>(stdin, [](std::FILE*) {}),
                                                     l.loader_max_size}};
            },
            [&](locator::data const& d) -> result<resource<resource_data>> {
                auto decoded = dataurl::parse_data_url(d.data_url);
                if (!decoded) {
                    return fail(decoded.error());
                }
                return resource<resource_data>{.resource_locator = loc,
                                               .resource_type = parse_resource_type(decoded->mime_type),
                                               .resource_data = resource_bytes{decoded->data}};
            },
            [](locator::other const&) -> result<resource<resource_data>> {
                return fail("cannot load unknown URL scheme");
            },
            [](locator::invalid const&) -> result<resource<resource_data>> {
                return fail("cannot load invalid URL");
            },
            [](locator::unresolvable const& u) -> result<resource<resource_data>> {
                if (u.unresolvable_base.empty()) {
                    return fail("cannot resolve URL to base");
                }
                return fail("cannot resolve URL to base " + u.unresolvable_base);
            },
        },
        loc.locator_url);
    if (loaded) {
        log::log_debug(log, "loaded resource: " + name);
        if (loaded->resource_type) {
            log::log_debug(log, "type: " + resource_type_to_string(*loaded->resource_type) + " (" +
                                    category_to_string(loaded->resource_type->category) + ")");
        }
    } else {
        log::log_debug(log, "error loading resource: " + loaded.error());
    }
    return loaded;
}

result<resource<resource_data>> load_style_resource(log::log const& log, loader const& l, std::string const& name) {
    locator::locator const loc{.locator_url = locator::file{{"style/" + name}, std::nullopt},
                               .locator_origin = locator::locator_origin::system_origin};
    return load_resource(log, l, resource_description::stylesheet, loc);
}

result<bytes::bytes> resource_to_bytes(resource_data const& data) {
    return std::visit(overloaded{
                          [](resource_stream const& s) -> result<bytes::bytes> {
                              std::vector<std::uint8_t> out(16384);
                              std::size_t used = 0;
                              for (;;) {
                                  used += std::fread(out.data() + used, 1, out.size() - used, s.stream.get());
                                  if (used < out.size()) {
                                      break;
                                  }
                                  // A stream may hold more than its file said (standard input, a file
                                  // that grows while it is read).
                                  if (used > s.stream_limit) {
                                      return fail(too_large(s.stream_limit));
                                  }
                                  out.resize(out.size() * 2);
                              }
                              if (used > s.stream_limit) {
                                  return fail(too_large(s.stream_limit));
                              }
                              if (std::ferror(s.stream.get())) {
                                  return fail(std::string("read error: ") + std::strerror(errno));
                              }
                              out.resize(used);
                              return bytes::from_vector(std::move(out));
                          },
                          [](resource_bytes const& b) -> result<bytes::bytes> { return b.data; },
                      },
                      data);
}

} // namespace vellum::resource::loader
