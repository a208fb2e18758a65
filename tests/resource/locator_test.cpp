#include "resource/locator.hpp"

#include <gtest/gtest.h>

namespace vellum {
namespace {

using namespace resource::locator;

locator command_line(std::string_view text) {
    return parse_locator(path_or_url::path_or_url, locator_origin::command_line_origin, std::nullopt, text);
}

locator file_locator(std::string path, locator_origin origin = locator_origin::command_line_origin) {
    return locator{.locator_url = file{{std::move(path)}, std::nullopt}, .locator_origin = origin};
}

TEST(locator, reads_command_line_names_as_paths_or_urls) {
    struct row {
        char const* in;
        locator_url out;
    };
    row const rows[] = {
        {"a.html", file{{"a.html"}, std::nullopt}},
        {"docs/../a.html", file{{"a.html"}, std::nullopt}},
        {"../up/a.html", file{{"../up/a.html"}, std::nullopt}},
        {"/tmp/x y.html", file{{"/tmp/x y.html"}, std::nullopt}},
        {"a%20b.html", file{{"a b.html"}, std::nullopt}},
        {"100%.html", file{{"100%.html"}, std::nullopt}},
        {"a.html?x=1", file{{"a.html"}, "x=1"}},
        {"-", standard_input{}},
        {"", file{{"."}, std::nullopt}},
        {".", file{{"."}, std::nullopt}},
        {"file:///etc/passwd", file{{"/etc/passwd"}, std::nullopt}},
        {"file://localhost/etc/passwd", file{{"/etc/passwd"}, std::nullopt}},
        {"file://server/share/x", file{{"//server/share/x"}, std::nullopt}},
        {"HTTP://Example.org/a", web{protocol::http, "http://example.org/a"}},
        {"https://h/a?q", web{protocol::https, "https://h/a?q"}},
        {"mailto:x@y", other{"mailto", "mailto:x@y"}},
        {"ftp://h/f", other{"ftp", "ftp://h/f"}},
        {"data:text/plain,hi", data{"data:text/plain,hi"}},
        // A URL that fails to parse is still a file name on the command line.
        {"http://h:99999999/", file{{"http://h:99999999/"}, std::nullopt}},
    };
    for (auto const& r : rows) {
        SCOPED_TRACE(r.in);
        locator const l = command_line(r.in);
        EXPECT_EQ(l.locator_url, r.out);
        EXPECT_EQ(l.locator_origin, locator_origin::command_line_origin);
        EXPECT_FALSE(l.locator_referer);
    }
}

TEST(locator, keeps_fragments_apart) {
    locator const w = command_line("http://h/a#sec");
    EXPECT_EQ(w.locator_url, locator_url(web{protocol::http, "http://h/a"}));
    EXPECT_EQ(w.locator_fragment, "sec");
    locator const d = command_line("data:,x#f");
    EXPECT_EQ(d.locator_url, locator_url(data{"data:,x"}));
    EXPECT_EQ(d.locator_fragment, "f");
    locator const f = command_line("doc.html#top");
    EXPECT_EQ(f.locator_url, locator_url(file{{"doc.html"}, std::nullopt}));
    EXPECT_EQ(f.locator_fragment, "top");
}

TEST(locator, strict_names_that_fail_are_invalid) {
    locator const l =
        parse_locator(path_or_url::url_strict, locator_origin::document_origin, std::nullopt, "http://h:x/");
    EXPECT_EQ(l.locator_url, locator_url(invalid{"http://h:x/"}));
}

TEST(locator, resolves_against_file_bases) {
    struct row {
        char const* base;
        char const* ref;
        char const* path;
    };
    row const rows[] = {
        {"/d/e/a.html", "../x.css", "/d/x.css"},
        {"/d/e/a.html", "img/p.png", "/d/e/img/p.png"},
        {"/d/e/a.html", "/abs.css", "/abs.css"},
        {"docs/a.html", "img/p.png", "docs/img/p.png"},
        {"a.html", "../b.css", "../b.css"},
        {"../a/b.html", "../../c.css", "../../c.css"},
        {"d/100%/a.html", "b.css", "d/100%/b.css"},
        {"d/a b.html", "c d.css", "d/c d.css"},
        {"//srv/share/a.html", "b.css", "//srv/share/b.css"},
    };
    for (auto const& r : rows) {
        SCOPED_TRACE(std::string(r.base) + " + " + r.ref);
        locator const base = file_locator(r.base);
        locator const l = resolve_locator(base, r.ref);
        EXPECT_EQ(l.locator_url, locator_url(file{{r.path}, std::nullopt}));
        EXPECT_EQ(l.locator_origin, locator_origin::document_origin);
        EXPECT_EQ(l.locator_referer, base.locator_url);
    }
}

TEST(locator, resolves_against_web_bases) {
    locator const base{.locator_url = web{protocol::https, "https://h/a/b.html"},
                       .locator_origin = locator_origin::document_origin};
    EXPECT_EQ(resolve_locator(base, "c.css").locator_url, locator_url(web{protocol::https, "https://h/a/c.css"}));
    EXPECT_EQ(resolve_locator(base, "http://o/x").locator_url, locator_url(web{protocol::http, "http://o/x"}));
    EXPECT_EQ(resolve_locator(base, "#f").locator_url, base.locator_url);
    EXPECT_EQ(resolve_locator(base, "#f").locator_fragment, "f");
    EXPECT_EQ(resolve_locator(base, "").locator_url, base.locator_url);
    EXPECT_EQ(resolve_locator(base, "mailto:x@y").locator_url, locator_url(other{"mailto", "mailto:x@y"}));
    EXPECT_EQ(resolve_locator(base, "file:///etc/passwd").locator_url,
              locator_url(file{{"/etc/passwd"}, std::nullopt}));
}

TEST(locator, leaves_relative_names_without_a_usable_base_unresolved) {
    EXPECT_EQ(parse_locator(path_or_url::url_strict, locator_origin::document_origin, std::nullopt, "x.css")
                  .locator_url,
              locator_url(unresolvable{"x.css", ""}));
    locator const d{.locator_url = data{"data:text/html,<p>"}, .locator_origin = locator_origin::command_line_origin};
    EXPECT_EQ(resolve_locator(d, "x.css").locator_url, locator_url(unresolvable{"x.css", ""}));
    locator const s{.locator_url = standard_input{}, .locator_origin = locator_origin::system_origin};
    EXPECT_EQ(resolve_locator(s, "x.css").locator_url, locator_url(unresolvable{"x.css", "-"}));
    // A program file's references stay program files.
    EXPECT_EQ(resolve_locator(file_locator("style/a.css", locator_origin::system_origin), "b.css").locator_origin,
              locator_origin::system_origin);
}

TEST(locator, describes_itself_for_messages) {
    EXPECT_EQ(locator_to_string(command_line("http://h/a#f")), "http://h/a");
    EXPECT_EQ(locator_to_string(command_line("dir/a%20b.html")), "dir/a b.html");
    EXPECT_EQ(locator_to_string(command_line("data:,secret")), "data URL");
    EXPECT_EQ(locator_to_string(command_line("mailto:x@y")), "mailto:x@y");
    EXPECT_EQ(locator_to_string(locator{.locator_url = unresolvable{"t", "b"}}), "t");
    EXPECT_EQ(locator_to_string(locator{.locator_url = invalid{"::"}}), "::");
}

TEST(dataurl, decodes_plain_and_base64_bodies) {
    auto plain = dataurl::parse_data_url("data:,Hello%2C%20World");
    ASSERT_TRUE(plain);
    EXPECT_EQ(plain->mime_type, "");
    EXPECT_EQ(plain->data.chars(), "Hello, World");
    auto b64 = dataurl::parse_data_url("data:text/plain;charset=utf-8;base64,SGVs bG8=");
    ASSERT_TRUE(b64);
    EXPECT_EQ(b64->mime_type, "text/plain;charset=utf-8");
    EXPECT_EQ(b64->data.chars(), "Hello");
    EXPECT_EQ(dataurl::parse_data_url("data:;base64,SGk%3D")->data.chars(), "Hi");
    EXPECT_EQ(dataurl::parse_data_url("data:;base64,AAEC")->data.size(), 3u);
    EXPECT_EQ(dataurl::parse_data_url("data:,%00%FF")->data.size(), 2u);
}

TEST(dataurl, reports_each_failure) {
    struct row {
        char const* in;
        char const* message;
    };
    row const rows[] = {
        {"data:text/plain", "Invalid data URL"},
        {"http://h/,x", "Invalid data URL"},
        {"data:,%zz", "Invalid character in data URL"},
        {"data:;base64,%zz", "Invalid escaping in data URL"},
        {"data:;base64,SGV", "Invalid Base64 data in data URL"},
        {"data:;base64,SG=s", "Invalid Base64 data in data URL"},
        {"data:;base64,S*Vs", "Invalid Base64 data in data URL"},
    };
    for (auto const& r : rows) {
        SCOPED_TRACE(r.in);
        auto d = dataurl::parse_data_url(r.in);
        ASSERT_FALSE(d);
        EXPECT_EQ(d.error(), r.message);
    }
}

} // namespace
} // namespace vellum

namespace vellum {
namespace {

using namespace resource::locator;

TEST(locator, marks_names_written_in_remote_resources) {
    auto const page = parse_locator(path_or_url::path_or_url, locator_origin::command_line_origin, std::nullopt,
                                    "http://example.org/doc.html");
    auto const local = parse_locator(path_or_url::path_or_url, locator_origin::command_line_origin, std::nullopt,
                                     "/tmp/doc.html");
    EXPECT_EQ(page.locator_named_by, named_by::local_resource);
    // Absolute and relative names alike, and whatever a marked name leads to in turn.
    auto const passwd = resolve_locator(page, "file:///etc/passwd");
    EXPECT_EQ(passwd.locator_named_by, named_by::remote_resource);
    auto const base = resolve_locator(page, "file:///etc/");
    EXPECT_EQ(resolve_locator(base, "passwd").locator_named_by, named_by::remote_resource);
    auto const data = resolve_locator(page, "data:text/css,x");
    EXPECT_EQ(resolve_locator(data, "file:///etc/passwd").locator_named_by, named_by::remote_resource);
    // A local document and the program's own files name local files freely.
    EXPECT_EQ(resolve_locator(local, "file:///etc/passwd").locator_named_by, named_by::local_resource);
    EXPECT_EQ(resolve_locator(local, "style.css").locator_named_by, named_by::local_resource);
    locator const system{.locator_url = file{{"/style/common.css"}, std::nullopt},
                         .locator_origin = locator_origin::system_origin};
    EXPECT_EQ(resolve_locator(system, "fonts.css").locator_named_by, named_by::local_resource);
}

} // namespace
} // namespace vellum
