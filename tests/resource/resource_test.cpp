#include "resource/blocking.hpp"
#include "resource/http.hpp"
#include "resource/loader.hpp"
#include "resource/resource.hpp"
#include "resource/capture_log.hpp"

#include <unistd.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <thread>

namespace vellum {
namespace {

namespace rl = resource::loader;
using rl::find_credentials;
using rl::load_resource;
using rl::load_style_resource;
using rl::loader;
using rl::loader_options;
using rl::may_catchall;
using rl::new_loader;
using rl::pattern_matches;
using rl::prefetch;
using rl::referer_of;
using rl::resolve_filename;
using rl::resource_data;
using rl::resource_description;
using rl::resource_stream;
using rl::resource_to_bytes;
using rl::start_prefetch_threads;
using rl::stop_prefetch_threads;
namespace loc = resource::locator;

TEST(resource, parses_mime_types_into_categories) {
    struct row {
        char const* header;
        char const* mimetype;
        resource::resource_category category;
    };
    row const rows[] = {
        {"text/css", "text/css", resource::css{}},
        {"Text/HTML; charset=UTF-8", "text/html", resource::html{}},
        {"application/xhtml+xml", "application/xhtml+xml", resource::xhtml{}},
        {"application/xhtml", "application/xhtml", resource::xhtml{}},
        {"text/xml", "text/xml", resource::xml{}},
        {" application/xml ;", "application/xml", resource::xml{}},
        {"image/svg+xml", "image/svg+xml", resource::svg{}},
        {"image/svg-xml", "image/svg-xml", resource::svg{}},
        {"image/gif", "image/gif", resource::image{resource::image_format::gif}},
        {"image/jpeg", "image/jpeg", resource::image{resource::image_format::jpeg}},
        {"image/jpg", "image/jpg", resource::image{resource::image_format::jpeg}},
        {"image/pjpeg", "image/pjpeg", resource::image{resource::image_format::jpeg}},
        {"IMAGE/PNG", "image/png", resource::image{resource::image_format::png}},
        {"image/x-png", "image/x-png", resource::image{resource::image_format::png}},
        {"image/tiff", "image/tiff", resource::image{resource::image_format::tiff}},
        {"application/javascript", "application/javascript", resource::javascript{}},
        {"application/x-javascript", "application/x-javascript", resource::javascript{}},
        {"text/javascript", "text/javascript", resource::javascript{}},
        {"text/ecmascript", "text/ecmascript", resource::javascript{}},
        {"text/plain", "text/plain", resource::unknown{}},
        {"font/woff2", "font/woff2", resource::unknown{}},
        {"", "", resource::unknown{}},
    };
    for (auto const& r : rows) {
        SCOPED_TRACE(r.header);
        auto const t = resource::parse_resource_type(r.header);
        EXPECT_EQ(t.mimetype, r.mimetype);
        EXPECT_EQ(t.category, r.category);
    }
}

TEST(resource, reads_parameters_and_charset) {
    auto const t = resource::parse_resource_type("text/html; Charset=\"ISO-8859-1\"; level=1; q");
    using params = std::vector<std::pair<std::string, std::string>>;
    EXPECT_EQ(t.mimetype_params, (params{{"charset", "ISO-8859-1"}, {"level", "1"}, {"q", ""}}));
    EXPECT_EQ(t.resource_encoding, resource::resource_encoding(resource::iso_8859_1{}));
    EXPECT_EQ(resource::resource_type_to_string(t), "text/html; charset=ISO-8859-1; level=1; q=");

    struct row {
        char const* charset;
        resource::resource_encoding encoding;
    };
    row const rows[] = {
        {"utf-8", resource::utf8{}},
        {"UTF-8", resource::utf8{}},
        {"latin1", resource::iso_8859_1{}},
        {"us-ascii", resource::ascii{}},
        {"utf8", resource::unknown_encoding{"utf8"}},
        {"Shift_JIS", resource::unknown_encoding{"shift_jis"}},
    };
    for (auto const& r : rows) {
        SCOPED_TRACE(r.charset);
        EXPECT_EQ(resource::encoding_of_charset(r.charset), r.encoding);
    }
    EXPECT_FALSE(resource::parse_resource_type("text/css").resource_encoding);
}

TEST(http, reads_cookie_file_lines) {
    testing::capture_log cl;
    auto const c = http::parse_cookie(cl.log, "127.0.0.1\tFALSE\t/\tTRUE\t0\tname\tvalue");
    ASSERT_TRUE(c);
    EXPECT_EQ(*c, (http::cookie{.cookie_domain = "127.0.0.1",
                                .cookie_flag = false,
                                .cookie_path = "/",
                                .cookie_secure = true,
                                .cookie_expire = 0,
                                .cookie_name = "name",
                                .cookie_value = "value"}));
    EXPECT_FALSE(http::parse_cookie(cl.log, "example.org TRUE / FALSE"));
    EXPECT_FALSE(http::parse_cookie(cl.log, "example.org TRUE / FALSE never a b"));
    EXPECT_EQ(cl.count("unknown cookie format: example.org TRUE / FALSE"), 2);
}

http::scheme_host_port server(char const* scheme, char const* host, char const* port) {
    return {.shp_scheme = scheme, .shp_host = host::domain{host}, .shp_port = port};
}

TEST(loader, matches_authentication_patterns) {
    using http::auth_pattern;
    struct row {
        char const* name;
        auth_pattern pattern;
        http::scheme_host_port server;
        bool without_catchall;
        bool with_catchall;
    };
    row const rows[] = {
        {"exact host", {.pat_host = host::domain{"a.org"}}, server("http", "a.org", "80"), true, true},
        {"other host", {.pat_host = host::domain{"a.org"}}, server("http", "b.org", "80"), false, false},
        {"no host", {}, server("http", "b.org", "80"), false, true},
        {"scheme differs", {.pat_scheme = "https"}, server("http", "a.org", "80"), false, false},
        {"scheme and no host", {.pat_scheme = "https"}, server("https", "a.org", "443"), false, true},
        {"port given", {.pat_host = host::domain{"a.org"}, .pat_port = "8080"}, server("http", "a.org", "8080"),
         true, true},
        {"port differs", {.pat_host = host::domain{"a.org"}, .pat_port = "8080"}, server("http", "a.org", "80"),
         false, false},
        {"empty port is the default", {.pat_host = host::domain{"a.org"}, .pat_port = ""},
         server("https", "a.org", "443"), true, true},
    };
    for (auto const& r : rows) {
        SCOPED_TRACE(r.name);
        EXPECT_EQ(pattern_matches(r.pattern, r.server, may_catchall::no_catchall), r.without_catchall);
        EXPECT_EQ(pattern_matches(r.pattern, r.server, may_catchall::may_catchall), r.with_catchall);
    }
    http::http_options options{.auth_patterns = {{{}, {"any", "1"}}, {{.pat_host = host::domain{"a.org"}}, {"a", "2"}}}};
    EXPECT_EQ(find_credentials(options, server("http", "a.org", "80"), may_catchall::no_catchall),
              (http::userpwd{"a", "2"}));
    // The first pattern that matches wins.
    EXPECT_EQ(find_credentials(options, server("http", "a.org", "80"), may_catchall::may_catchall),
              (http::userpwd{"any", "1"}));
    EXPECT_FALSE(find_credentials(options, server("http", "c.org", "80"), may_catchall::no_catchall));
}

TEST(http, keys_servers_with_the_default_port) {
    auto const a = urlspec::det_parse_url("http://Example.org/x");
    auto const b = urlspec::det_parse_url("http://example.org:80/y");
    auto const c = urlspec::det_parse_url("https://example.org/y");
    EXPECT_EQ(http::scheme_host_port_of(a), http::scheme_host_port_of(b));
    EXPECT_NE(http::scheme_host_port_of(a), http::scheme_host_port_of(c));
    EXPECT_EQ(http::scheme_host_port_of(c)->shp_port, "443");
    EXPECT_FALSE(http::scheme_host_port_of(urlspec::det_parse_url("data:,x")));
}

loc::locator web_locator(std::string url, std::optional<loc::locator_url> referer = std::nullopt) {
    auto const p = url.starts_with("https:") ? loc::protocol::https : loc::protocol::http;
    return {.locator_url = loc::web{p, std::move(url)}, .locator_referer = std::move(referer)};
}

TEST(loader, sends_referer_only_from_web_pages_and_not_down_to_http) {
    loc::web const page{loc::protocol::http, "http://a.org/page"};
    loc::web const secure{loc::protocol::https, "https://a.org/page"};
    EXPECT_EQ(referer_of(web_locator("http://b.org/x.png", page)), "http://a.org/page");
    EXPECT_EQ(referer_of(web_locator("https://b.org/x.png", secure)), "https://a.org/page");
    EXPECT_EQ(referer_of(web_locator("https://b.org/x.png", page)), "http://a.org/page");
    EXPECT_FALSE(referer_of(web_locator("http://b.org/x.png", secure)));
    EXPECT_FALSE(referer_of(web_locator("http://b.org/x.png", loc::file{{"/tmp/a.html"}, std::nullopt})));
    EXPECT_FALSE(referer_of(web_locator("http://b.org/x.png")));
}

loader make_loader(loader_options options, std::string prefix = "/prefix", std::string curdir = "/work") {
    testing::capture_log cl;
    auto l = new_loader(cl.log, {prefix}, {curdir}, options);
    if (!l) {
        throw std::runtime_error(l.error());
    }
    return *l;
}

loc::locator file_locator(std::string path, loc::locator_origin origin) {
    return {.locator_url = loc::file{{std::move(path)}, std::nullopt}, .locator_origin = origin};
}

TEST(loader, maps_file_paths_by_origin) {
    using enum loc::locator_origin;
    auto const plain = make_loader({.network = false});
    auto const rooted = make_loader({.network = false, .fileroot = "/jail"});
    auto const refused = make_loader({.network = false, .local_files = false});
    struct row {
        char const* name;
        loader const& with;
        loc::locator locator;
        std::optional<std::string> path;
    };
    row const rows[] = {
        {"system file under the prefix", refused, file_locator("style/common.css", system_origin),
         "/prefix/style/common.css"},
        {"system file with a leading slash", plain, file_locator("/dtd/catalog.xml", system_origin),
         "/prefix/dtd/catalog.xml"},
        {"relative path under the working directory", plain, file_locator("a/b.html", command_line_origin),
         "/work/a/b.html"},
        {"absolute path as it is", plain, file_locator("/tmp/a.html", document_origin), "/tmp/a.html"},
        {"absolute path under the fileroot", rooted, file_locator("/tmp/a.html", document_origin),
         "/jail/tmp/a.html"},
        {"command line also under the fileroot", rooted, file_locator("/tmp/a.html", command_line_origin),
         "/jail/tmp/a.html"},
        {"relative path not under the fileroot", rooted, file_locator("a.html", document_origin), "/work/a.html"},
        {"local files refused", refused, file_locator("/tmp/a.html", document_origin), std::nullopt},
        {"not a file", plain, web_locator("http://a.org/"), std::nullopt},
    };
    for (auto const& r : rows) {
        SCOPED_TRACE(r.name);
        auto const p = resolve_filename(r.with, r.locator);
        EXPECT_EQ(p ? std::optional(p->path) : std::nullopt, r.path);
    }
}

std::string text_of(result<rl::resource<resource_data>> const& r) {
    if (!r) {
        return "error: " + r.error();
    }
    auto const b = resource_to_bytes(r->resource_data);
    return b ? std::string(b->chars()) : "read error: " + b.error();
}

TEST(loader, refuses_what_the_origin_may_not_read) {
    using enum loc::locator_origin;
    auto const refused = make_loader({.network = false, .local_files = false});
    auto const allowed = make_loader({.network = false});
    auto const std_in = [](loc::locator_origin o) { return loc::locator{.locator_url = loc::standard_input{}, .locator_origin = o}; };
    struct row {
        char const* name;
        loader const& with;
        loc::locator locator;
        std::string expected;
    };
    row const rows[] = {
        {"local file from a document", refused, file_locator("/etc/hostname", document_origin),
         "error: not loading local file"},
        {"local file from the command line", refused, file_locator("/etc/hostname", command_line_origin),
         "error: not loading local file"},
        {"missing file", allowed, file_locator("/nonexistent/x.css", document_origin),
         "error: cannot open file: No such file or directory"},
        {"standard input from a document", allowed, std_in(document_origin), "error: not loading standard input"},
        {"standard input from a system file", allowed, std_in(system_origin), "error: not loading standard input"},
        {"web without network", allowed, web_locator("http://127.0.0.1:1/a.png"),
         "error: not loading HTTP resource due to --no-network flag"},
        {"other scheme", allowed, loc::parse_locator(loc::path_or_url::url_strict, document_origin, std::nullopt,
                                                     "mailto:someone@example.org"),
         "error: cannot load unknown URL scheme"},
        {"invalid", allowed, loc::locator{.locator_url = loc::invalid{"http://[::1"}}, "error: cannot load invalid URL"},
        {"unresolvable", allowed, loc::locator{.locator_url = loc::unresolvable{"a.png", "data:,x"}},
         "error: cannot resolve URL to base data:,x"},
        {"bad data URL", allowed, loc::locator{.locator_url = loc::data{"data:nocomma"}}, "error: Invalid data URL"},
        {"data URL", allowed, loc::locator{.locator_url = loc::data{"data:text/css,p%20%7B%7D"}}, "p {}"},
    };
    for (auto const& r : rows) {
        SCOPED_TRACE(r.name);
        testing::capture_log cl;
        auto const loaded = load_resource(cl.log, r.with, resource_description::image, r.locator);
        EXPECT_EQ(text_of(loaded), r.expected);
        if (!loaded) {
            EXPECT_EQ(cl.count("error loading resource: " + loaded.error()), 1);
        }
    }
}

TEST(loader, reads_files_and_style_resources) {
    auto const dir = std::filesystem::temp_directory_path() / ("vellum-loader-" + std::to_string(::getpid()));
    std::filesystem::create_directories(dir / "style");
    std::ofstream(dir / "style" / "common.css") << "html { display: block }";
    std::ofstream(dir / "page.html") << "<p>hello</p>";
    auto const l = make_loader({.network = false, .local_files = false}, dir.string(), dir.string());
    testing::capture_log cl;

    auto const style = load_style_resource(cl.log, l, "common.css");
    EXPECT_EQ(text_of(style), "html { display: block }");
    EXPECT_TRUE(style && std::holds_alternative<resource_stream>(style->resource_data));

    // Local files are refused to the command line here, but the program's own files are not.
    auto const page = loc::parse_locator(loc::path_or_url::path_or_url, loc::locator_origin::command_line_origin,
                                         std::nullopt, "page.html");
    EXPECT_EQ(text_of(load_resource(cl.log, l, resource_description::document, page)),
              "error: not loading local file");
    auto const open = make_loader({.network = false}, dir.string(), dir.string());
    auto with_fragment = page;
    with_fragment.locator_fragment = "top";
    EXPECT_EQ(text_of(load_resource(cl.log, open, resource_description::document, with_fragment)), "<p>hello</p>");
    EXPECT_EQ(cl.count("ignoring fragment identifier"), 1);
    EXPECT_EQ(cl.count("loaded resource: page.html"), 1);
    std::filesystem::remove_all(dir);
}

TEST(blocking, cell_hands_values_between_threads) {
    resource::blocking::blocking_cell<int> cell;
    std::thread producer([&] { cell.put(42); });
    EXPECT_EQ(cell.take(), 42);
    producer.join();

    resource::blocking::blocking_cell<int> counter(0);
    EXPECT_THROW(counter.with([](int& v) {
        v = 7;
        throw std::runtime_error("in the middle");
    }),
                 std::runtime_error);
    // The value is back, changed, after the throw: the cell does not stay empty.
    EXPECT_EQ(counter.read(), 7);

    resource::blocking::channel<int> ch;
    std::thread sender([&] {
        for (int i = 0; i < 100; ++i) {
            ch.send(i);
        }
    });
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(ch.receive(), i);
    }
    sender.join();
}

} // namespace
} // namespace vellum
