// The resource loader: the one road by which the bytes of anything a run needs are read. It decides
// whether a locator may be read at all, keeps one cache of fetched web resources (failures included),
// and runs a pool of prefetch threads that fetch what documents name while the main thread works on.
#pragma once

#include "resource/blocking.hpp"
#include "resource/curl.hpp"
#include "resource/http.hpp"
#include "resource/loader_options.hpp"
#include "resource/locator.hpp"
#include "resource/resource.hpp"
#include "util/bytes.hpp"
#include "util/result.hpp"

#include <cstdio>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <variant>
#include <vector>

namespace vellum::log {
struct log;
} // namespace vellum::log

namespace vellum::resource::loader {

/// What a load is for, named in messages.
enum class resource_description {
    document,
    attachment,
    stylesheet,
    script,
    image,
    font,
    hyphenation_patterns,
    ajax_request,
    icc_profile,
};

/// The description as a message names it: "style sheet", "image", ...
std::string_view description_text(resource_description d);

/// A resource with where it came from and the type its server or data URL gave.
template <class T>
struct resource {
    locator::locator resource_locator;
    std::optional<vellum::resource::resource_type> resource_type;
    T resource_data;
};

/// An open binary input stream; standard input, or a file closed with its last holder.
struct resource_stream {
    std::shared_ptr<std::FILE> stream;
    /// The most bytes read from it; a longer stream is refused.
    std::uint64_t stream_limit = default_max_resource_size;
};

/// A file not yet opened.
struct resource_path {
    virtual_path::physical_path path;
    bool operator==(resource_path const&) const = default;
};

/// Bytes in memory.
struct resource_bytes {
    bytes::bytes data;
    bool operator==(resource_bytes const&) const = default;
};

/// What the caller gets: a stream to read, or the bytes.
using resource_data = std::variant<resource_stream, resource_bytes>;

/// What the cache and the threads hold: never an open file.
using resource_data_nonhandle = std::variant<resource_path, resource_bytes>;

/// The outcome of one fetch, as cached and as handed between threads.
using fetch_result = result<resource<resource_data_nonhandle>>;

/// What a server answered to credentials.
struct succeeded {
    http::userpwd succeeded_with;
    bool operator==(succeeded const&) const = default;
};

struct unauthorized {
    bool operator==(unauthorized const&) const = default;
};

using auth_attempt = std::variant<succeeded, unauthorized>;

/// Whether a pattern with no host may match: yes when a server has asked for credentials.
enum class may_catchall { no_catchall, may_catchall };

/// Whether a failed exchange is tried again, and how often.
struct is_prefetch {
    int retries = 0;
};

struct not_prefetch {};

using prefetch_mode = std::variant<is_prefetch, not_prefetch>;

/// Filled by the last thread to quit.
struct quit_ack {};

/// A cell that receives the result of a fetch.
using return_cell = std::shared_ptr<blocking::blocking_cell<fetch_result>>;

/// End the threads: the number still to quit, and the cell the last one fills.
struct quit {
    int quit_count = 0;
    std::shared_ptr<blocking::blocking_cell<loader::quit_ack>> quit_ack;
};

/// Fetch a web URL; the result goes to the cache and, when present, to the return cell.
struct fetch {
    locator::locator fetch_locator;
    std::string fetch_url;
    std::optional<std::string> fetch_referer;
    std::optional<return_cell> fetch_return;
};

using thread_command = std::variant<quit, fetch>;

/// The running pool.
struct prefetch_thread_info {
    std::shared_ptr<blocking::channel<thread_command>> channel;
    /// The main thread's handle first, then one for each thread.
    std::vector<curl::curl> curls;
    /// URLs being fetched, with the cells waiting for each.
    std::shared_ptr<blocking::blocking_cell<std::map<std::string, std::vector<return_cell>>>> active;
    std::shared_ptr<std::vector<std::thread>> threads;
};

/// No pool: the main thread fetches with its own handle.
struct no_prefetch_threads {
    curl::curl main_curl;
    /// The pool is wanted: it starts at the first web resource asked for, so that a run that reads
    /// only local files never starts a thread.
    bool pool_wanted = false;
};

struct prefetch_threads {
    prefetch_thread_info info;
};

using loader_threads = std::variant<no_prefetch_threads, prefetch_threads>;

/// Fetched web resources by URL, failures included, with the bytes of the bodies held.
struct cache_map {
    std::map<std::string, fetch_result> cache_entries;
    std::uint64_t cache_bytes = 0;
};
using auth_map = std::map<http::scheme_host_port, auth_attempt>;

/// The loader's web side: settings, the share handle, and its three blocking cells.
struct network_loader {
    http::http_options loader_http_options;
    curl::curl_share loader_share;
    std::shared_ptr<blocking::blocking_cell<vellum::resource::loader::loader_threads>> loader_threads;
    std::shared_ptr<blocking::blocking_cell<cache_map>> loader_cache;
    std::shared_ptr<blocking::blocking_cell<auth_map>> loader_auths;
};

struct no_network {
    http::http_options no_network_options;
};

struct yes_network {
    network_loader network;
};

using maybe_network_loader = std::variant<no_network, yes_network>;

/// The loader of a run.
struct loader {
    virtual_path::physical_path loader_prefix;
    virtual_path::physical_path loader_curdir;
    maybe_network_loader loader_network;
    /// Absent: local files from documents and the command line are refused. Present: the --fileroot, if any.
    std::optional<std::optional<virtual_path::physical_path>> loader_local_files;
    /// Whether names written in web documents may lead to local files as well.
    bool loader_local_files_for_web = false;
    /// The largest resource read, in bytes.
    std::uint64_t loader_max_size = default_max_resource_size;
};

/// Builds the loader; with the network on, makes the share handle and the main thread's curl handle.
[[nodiscard]] result<loader> new_loader(log::log const& log,
                                        virtual_path::physical_path const& prefix,
                                        virtual_path::physical_path const& curdir,
                                        loader_options const& options);

/// Lets the prefetch threads start, at the first web resource asked for (ahead or not); "prefetch
/// threads already started" if they run or wait to.
[[nodiscard]] result<bool> start_prefetch_threads(log::log const& log, loader const& l);

/// Ends the prefetch threads and waits for them; loads go on on the main thread afterwards.
void stop_prefetch_threads(log::log const& log, loader const& l);

/// Queues a fetch of a web locator and returns at once; does nothing when no threads run.
void prefetch(log::log const& log, loader const& l, locator::locator const& loc);

/// Loads a resource of any kind, within the permissions of the locator's origin.
[[nodiscard]] result<resource<resource_data>> load_resource(log::log const& log,
                                                            loader const& l,
                                                            resource_description description,
                                                            locator::locator const& loc);

/// Loads "style/<name>" from the prefix.
[[nodiscard]] result<resource<resource_data>> load_style_resource(log::log const& log,
                                                                  loader const& l,
                                                                  std::string const& name);

/// The path on disk of a file locator, if its origin may read it: system files under the prefix, absolute
/// paths under the --fileroot, relative ones under the working directory.
[[nodiscard]] std::optional<virtual_path::physical_path> resolve_filename(loader const& l,
                                                                          locator::locator const& loc);

/// Reads all the data of a resource into memory (a stream to its end).
[[nodiscard]] result<bytes::bytes> resource_to_bytes(resource_data const& data);

/// Whether an authentication pattern covers a server.
bool pattern_matches(http::auth_pattern const& pattern, http::scheme_host_port const& server, may_catchall catchall);

/// The credentials of the first pattern that covers the server.
[[nodiscard]] std::optional<http::userpwd> find_credentials(http::http_options const& options,
                                                            http::scheme_host_port const& server,
                                                            may_catchall catchall);

/// The Referer header for a request made on behalf of the locator: only from a web page, and never from
/// "https" to "http".
[[nodiscard]] std::optional<std::string> referer_of(locator::locator const& loc);

} // namespace vellum::resource::loader
