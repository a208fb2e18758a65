#include "resource/url.hpp"

#include <gtest/gtest.h>

namespace vellum {
namespace {

// The text of a parse, or "fatal: <message>".
std::string parse_text(urlspec::parse_url_option const& option, std::string_view text) {
    auto p = urlspec::parse_url(option, text);
    if (auto const* f = std::get_if<urlspec::fatal_error>(&p.parse_result)) {
        return "fatal: " + f->message;
    }
    auto const& r = std::get<urlspec::ok>(p.parse_result);
    return urlspec::serialise_url(urlspec::serialise_option::include_fragment, r.url, r.scheme_data);
}

std::string resolve(std::string_view base, std::string_view text) {
    return parse_text(urlspec::normal{urlspec::det_parse_url(base)}, text);
}

std::vector<std::string> error_messages(std::string_view text) {
    std::vector<std::string> out;
    for (auto const& e : urlspec::parse_url(urlspec::normal_no_base{}, text).nonfatal_errors) {
        out.push_back(e.message);
    }
    return out;
}

TEST(urlspec, normalises_scheme_host_port_and_dot_segments) {
    struct row {
        char const* in;
        char const* out;
    };
    row const rows[] = {
        {"HTTP://Example.ORG:80/a/../b", "http://example.org/b"},
        {"https://h:443/x", "https://h/x"},
        {"https://h:0080/x", "https://h:80/x"},
        {"http://h", "http://h/"},
        {"http://h/a/./b/../../c", "http://h/c"},
        {"http://h/../../x", "http://h/x"},
        {"http://h/a%2Eb/c", "http://h/a%2Eb/c"},
        {"http://h/a/b/%2e%2E/c", "http://h/a/c"},
        {"http://h/a/.%2e", "http://h/"},
        {"http://u:p@h/", "http://u:p@h/"},
        {"http://h/a b?c d#e f", "http://h/a%20b?c%20d#e f"},
        {"http://h/\xC3\xA9", "http://h/%C3%A9"},
        {"http://B\xC3\xBC" "cher.de/", "http://xn--bcher-kva.de/"},
        {"http://[0:0:0:0:0:0:0:1]:8080/", "http://[::1]:8080/"},
        {"http://[2001:db8::1:0:0:1]/", "http://[2001:db8::1:0:0:1]/"},
        {"http://0x7f.1/", "http://127.0.0.1/"},
        {"http://h\\a\\b", "http://h/a/b"},
        {"http://h/\\a", "http://h//a"},
        {"  http://h/x  ", "http://h/x"},
        {"file:///etc/passwd", "file:///etc/passwd"},
        {"file://localhost/etc/passwd", "file:///etc/passwd"},
        {"mailto:Someone@Example.org?subject=x#y", "mailto:Someone@Example.org?subject=x#y"},
        {"data:text/plain,a b", "data:text/plain,a b"},
    };
    for (auto const& r : rows) {
        SCOPED_TRACE(r.in);
        EXPECT_EQ(parse_text(urlspec::normal_no_base{}, r.in), r.out);
    }
}

TEST(urlspec, resolves_references_against_a_base) {
    struct row {
        char const* ref;
        char const* out;
    };
    // The usual resolution table with a base that has a path, parameters and a query.
    row const rows[] = {
        {"g", "http://a/b/c/g"},         {"./g", "http://a/b/c/g"},       {"g/", "http://a/b/c/g/"},
        {"/g", "http://a/g"},            {"//g", "http://g/"},            {"?y", "http://a/b/c/d;p?y"},
        {"g?y", "http://a/b/c/g?y"},     {"#s", "http://a/b/c/d;p?q#s"},  {"g#s", "http://a/b/c/g#s"},
        {";x", "http://a/b/c/;x"},       {"", "http://a/b/c/d;p?q"},      {".", "http://a/b/c/"},
        {"./", "http://a/b/c/"},         {"..", "http://a/b/"},           {"../g", "http://a/b/g"},
        {"../..", "http://a/"},          {"../../g", "http://a/g"},       {"../../../g", "http://a/g"},
        {"g;x=1/../y", "http://a/b/c/y"}, {"https://x/y", "https://x/y"}, {"http:g", "http://a/b/c/g"},
    };
    for (auto const& r : rows) {
        SCOPED_TRACE(r.ref);
        EXPECT_EQ(resolve("http://a/b/c/d;p?q", r.ref), r.out);
    }
    EXPECT_EQ(resolve("file:///d/e/a.html", "../x.css"), "file:///d/x.css");
    EXPECT_EQ(resolve("file:///d/e/a.html", "//srv/share"), "file://srv/share");
}

TEST(urlspec, reads_file_urls_with_drive_letters_and_foreign_bases) {
    struct row {
        char const* in;
        char const* out;
    };
    // A URL that names its scheme reads the same with no base and against a base of another scheme;
    // a drive letter is a path segment, never a host.
    row const absolute[] = {
        {"file:e:/x", "file:///e:/x"},
        {"file:e|/x", "file:///e:/x"},
        {"file:E:", "file:///E:"},
        {"file:e:\\x\\y", "file:///e:/x/y"},
        {"file:e:?q#f", "file:///e:?q#f"},
        {"file:/e:/x", "file:///e:/x"},
        {"file://e:/x", "file:///e:/x"},
        {"file://e|/x", "file:///e:/x"},
        {"file:///e:/x", "file:///e:/x"},
        {"file://localhost/e:/x", "file:///e:/x"},
        {"file://srv/share/x", "file://srv/share/x"},
        {"file:x", "fatal: base URL required"},
        {"file:?q", "file:///?q"},
        {"https:g", "https://g/"},
        {"ftp:g/h", "ftp://g/h"},
    };
    urlspec::url const web_base = urlspec::det_parse_url("http://user@example.com:8080/a/b/c?q#f");
    urlspec::url const data_base = urlspec::det_parse_url("data:text/plain,x");
    for (auto const& r : absolute) {
        SCOPED_TRACE(r.in);
        EXPECT_EQ(parse_text(urlspec::normal_no_base{}, r.in), r.out);
        EXPECT_EQ(parse_text(urlspec::normal{web_base}, r.in), r.out);
        EXPECT_EQ(parse_text(urlspec::normal{data_base}, r.in), r.out);
        // What the serialiser wrote reads back to itself.
        if (!std::string_view(r.out).starts_with("fatal")) {
            EXPECT_EQ(parse_text(urlspec::normal_no_base{}, r.out), r.out);
        }
    }
    // Against a file base the relative forms take its host and directory, but a drive letter does not.
    row const against_file[] = {
        {"file:x", "file://srv/share/x"},
        {"file:?q", "file://srv/share/a?q"},
        {"file:e:/x", "file:///e:/x"},
        {"file:/x", "file:///x"},
        // With no "file:" in front a drive letter is a scheme of its own.
        {"e:/x", "e:/x"},
    };
    for (auto const& r : against_file) {
        SCOPED_TRACE(r.in);
        EXPECT_EQ(resolve("file://srv/share/a", r.in), r.out);
    }
}

TEST(urlspec, keeps_relative_references_without_a_base) {
    urlspec::no_base_keep_leading_dot_dots const keep;
    EXPECT_EQ(parse_text(keep, "../x.css"), "../x.css");
    EXPECT_EQ(parse_text(keep, "a/../../b"), "../b");
    EXPECT_EQ(parse_text(keep, "/a/../../b"), "/b");
    EXPECT_EQ(parse_text(keep, "//host/p?q#f"), "//host/p?q#f");
    auto p = urlspec::parse_url(keep, "../x.css");
    auto const& u = std::get<urlspec::ok>(p.parse_result).url;
    EXPECT_EQ(u.scheme, "");
    EXPECT_EQ(u.path_root, urlspec::path_root::no_root);
    EXPECT_EQ(u.path_segments, (std::vector<std::string>{"..", "x.css"}));
}

TEST(urlspec, reports_fatal_errors) {
    EXPECT_EQ(parse_text(urlspec::normal_no_base{}, "foo/bar"), "fatal: URL missing scheme and no base URL provided");
    EXPECT_EQ(resolve("mailto:x@y", "foo"), "fatal: URL missing scheme and base URL does not have relative scheme");
    EXPECT_EQ(parse_text(urlspec::normal_no_base{}, "http://h:8x/"), "fatal: bad port");
    EXPECT_EQ(parse_text(urlspec::normal_no_base{}, "http://h:99999/"), "fatal: bad port");
    EXPECT_EQ(parse_text(urlspec::normal_no_base{}, "http:///"), "fatal: host string empty");
    EXPECT_EQ(parse_text(urlspec::normal_no_base{}, "http://[::1/"), "fatal: invalid address");
    EXPECT_EQ(parse_text(urlspec::normal_no_base{}, "http://1.2.3.256/"), "fatal: invalid address");
    EXPECT_EQ(parse_text(urlspec::normal_no_base{}, "http://a%3Ab/"), "fatal: invalid domain label character");
    EXPECT_EQ(parse_text(urlspec::normal_no_base{}, "http://a%FF/"), "fatal: domain to ASCII failed");
}

TEST(urlspec, gathers_nonfatal_errors) {
    EXPECT_EQ(error_messages("http://h/a\tb"), (std::vector<std::string>{"unexpected TAB"}));
    EXPECT_EQ(error_messages("http://h/a\nb"), (std::vector<std::string>{"unexpected LF"}));
    EXPECT_EQ(error_messages("http://h/a b"), (std::vector<std::string>{"not URL code point"}));
    EXPECT_EQ(error_messages("http://h/%zz"), (std::vector<std::string>{"bad percent escape sequence"}));
    EXPECT_EQ(error_messages("http://h\\a"), (std::vector<std::string>{"unexpected backslash"}));
    EXPECT_EQ(error_messages("http:h/"), (std::vector<std::string>{"expected slash"}));
    EXPECT_EQ(error_messages("http:///h/"), (std::vector<std::string>{"unexpected slash or backslash"}));
    EXPECT_EQ(error_messages("http://a@b@c/"), (std::vector<std::string>{"multiple @ in authority"}));
    EXPECT_EQ(parse_text(urlspec::normal_no_base{}, "http://a@b@c/"), "http://a%40b@c/");
    // The position is that of the code point in the input.
    EXPECT_EQ(urlspec::parse_url(urlspec::normal_no_base{}, "http://h/a\tb").nonfatal_errors[0].pos, 10);
}

TEST(urlspec, splits_non_relative_urls_into_scheme_data) {
    auto p = urlspec::parse_url(urlspec::normal_no_base{}, "mailto:a@b?s=1#f");
    auto const& r = std::get<urlspec::ok>(p.parse_result);
    EXPECT_EQ(r.scheme_data, "a@b");
    EXPECT_EQ(r.url.scheme, "mailto");
    EXPECT_EQ(r.url.query, "s=1");
    EXPECT_EQ(r.url.fragment, "f");
    EXPECT_FALSE(r.url.host);
    EXPECT_EQ(urlspec::serialise_url(urlspec::serialise_option::exclude_fragment, r.url, r.scheme_data),
              "mailto:a@b?s=1");
}

TEST(urlspec, knows_dot_segments_and_default_ports) {
    for (char const* s : {"..", ".%2e", ".%2E", "%2e.", "%2E.", "%2e%2e", "%2E%2e", "%2e%2E", "%2E%2E"}) {
        EXPECT_TRUE(urlspec::is_double_dot(s)) << s;
    }
    EXPECT_FALSE(urlspec::is_double_dot("a%2Eb"));
    EXPECT_TRUE(urlspec::is_single_dot("%2E"));
    EXPECT_FALSE(urlspec::is_single_dot("%2"));
    EXPECT_EQ(urlspec::default_port("gopher"), "70");
    EXPECT_EQ(urlspec::default_port("wss"), "443");
    EXPECT_EQ(urlspec::default_port("file"), "");
    EXPECT_EQ(urlspec::default_port("mailto"), std::nullopt);
}

TEST(ip_address, parses_and_serialises_numeric_hosts) {
    EXPECT_EQ(ip_address::parse_ipv4("192.168.0.1"), (std::vector<unsigned>{192, 168, 0, 1}));
    EXPECT_EQ(ip_address::parse_ipv4("0300.0xA8.1"), (std::vector<unsigned>{192, 168, 0, 1}));
    EXPECT_EQ(ip_address::parse_ipv4("1.2.3.4."), (std::vector<unsigned>{1, 2, 3, 4}));
    EXPECT_FALSE(ip_address::parse_ipv4("1.2.3.4.5"));
    EXPECT_FALSE(ip_address::parse_ipv4("example.org"));
    EXPECT_EQ(ip_address::serialise_ipv6(*ip_address::parse_ipv6("1:0:0:2:0:0:0:3")), "1:0:0:2::3");
    EXPECT_EQ(ip_address::serialise_ipv6(*ip_address::parse_ipv6("::ffff:1.2.3.4")), "::ffff:102:304");
    EXPECT_EQ(ip_address::serialise_ipv6(*ip_address::parse_ipv6("1::")), "1::");
    EXPECT_EQ(ip_address::serialise_ipv6(*ip_address::parse_ipv6("1:2:3:4:5:6:7:8")), "1:2:3:4:5:6:7:8");
    EXPECT_FALSE(ip_address::parse_ipv6("1:::2"));
    EXPECT_FALSE(ip_address::parse_ipv6("1:2:3:4:5:6:7:8:9"));
    EXPECT_FALSE(ip_address::parse_ipv6("12345::"));
    EXPECT_TRUE(ip_address::is_ip_address("[::1]"));
    EXPECT_TRUE(ip_address::is_ip_address("10.0.0.1"));
    EXPECT_FALSE(ip_address::is_ip_address("localhost"));
}

TEST(url, percent_decodes_by_mode) {
    using url::decode_mode;
    EXPECT_EQ(url::percent_decode(decode_mode::decode_mode_component, "a%2Fb%20c"), "a/b c");
    EXPECT_EQ(url::percent_decode(decode_mode::decode_mode_url, "a%2Fb%20c%3f"), "a%2Fb c%3f");
    EXPECT_EQ(url::percent_decode(decode_mode::decode_mode_component, "%C3%A9"), "\xC3\xA9");
    EXPECT_EQ(url::percent_decode(decode_mode::decode_mode_component, "%C3"), std::nullopt);
    EXPECT_EQ(url::percent_decode(decode_mode::decode_mode_component, "%zz"), std::nullopt);
    EXPECT_EQ(url::percent_decode(decode_mode::decode_mode_filename, "100%zz%2F%41"), "100%zz%2FA");
}

} // namespace
} // namespace vellum
