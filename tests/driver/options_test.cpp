#include "driver/options.hpp"

#include "driver/help.hpp"

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>

#include <unistd.h>

#include <zlib.h>

namespace vellum {
namespace {

using namespace options;
using resource::locator::locator_url;

// A log whose console lines go to a temporary file, to be read back.
struct captured_log {
    std::FILE* out = std::tmpfile();
    log::log log{.log_stderr = log::console_log::console_log{.progname = "vellum", .console_out = out}};

    ~captured_log() { std::fclose(out); }

    std::string text() const {
        std::fflush(out);
        std::rewind(out);
        std::string s;
        char buf[4096];
        std::size_t n;
        while ((n = std::fread(buf, 1, sizeof buf, out)) > 0) {
            s.append(buf, n);
        }
        return s;
    }
};

struct parse_result {
    vellum::options::options value;
    std::string log_text;
};

parse_result parse(std::vector<std::string> const& args, std::string const& program_dir = "/opt/vellum/bin",
                   std::string const& curdir = "/work") {
    captured_log c;
    auto value = parse_options(c.log, args, program_dir, curdir);
    return {std::move(value), c.text()};
}

run_command command_of(std::vector<std::string> const& args) {
    auto r = parse(args);
    auto const* c = std::get_if<run_command>(&r.value);
    if (!c) {
        ADD_FAILURE() << "not a command";
        return {};
    }
    return *c;
}

job::job job_of(std::vector<std::string> const& args) {
    auto const c = command_of(args);
    auto const* j = std::get_if<job_command>(&c.command);
    if (!j) {
        ADD_FAILURE() << "not a job";
        return {};
    }
    return j->command_job;
}

std::string error_of(std::vector<std::string> const& args) {
    auto r = parse(args);
    auto const* e = std::get_if<error>(&r.value);
    return e ? e->error_text : "(no error)";
}

job::output_dest file_dest(std::string name) {
    return job::file{{std::move(name)}};
}

locator_url file_url(std::string path) {
    return resource::locator::file{{std::move(path)}, std::nullopt};
}

TEST(options, output_name_follows_the_last_full_stop) {
    struct row {
        char const* in;
        char const* out;
    };
    row const rows[] = {
        {"a.html", "a.pdf"},     {"a.pdf", "a.pdf.pdf"},     {"noext", "noext.pdf"},
        {"a.b.xml", "a.b.pdf"},  {"dir.d/file", "dir.pdf"},  {".name", "name.pdf"},
        {"d/a.HTM", "d/a.pdf"},  {"x.", "x.pdf"},
    };
    for (auto const& r : rows) {
        SCOPED_TRACE(r.in);
        EXPECT_EQ(output_name(r.in), r.out);
    }
}

TEST(options, chooses_the_output_from_the_file_arguments) {
    auto j = job_of({"a.html"});
    EXPECT_EQ(j.output_dest, file_dest("a.pdf"));
    ASSERT_EQ(j.input_documents.size(), 1u);
    EXPECT_EQ(j.input_documents[0].input_src.locator_url, file_url("a.html"));
    EXPECT_EQ(j.input_documents[0].input_src.locator_origin, resource::locator::locator_origin::command_line_origin);

    EXPECT_EQ(job_of({"a.pdf"}).output_dest, file_dest("a.pdf.pdf"));
    EXPECT_EQ(job_of({"noext"}).output_dest, file_dest("noext.pdf"));

    j = job_of({"-"});
    EXPECT_EQ(j.output_dest, job::output_dest(job::standard_output{}));
    EXPECT_EQ(j.input_documents[0].input_src.locator_url, locator_url(resource::locator::standard_input{}));

    j = job_of({"a.html", "b.html", "c.PDF"});
    EXPECT_EQ(j.output_dest, file_dest("c.PDF"));
    ASSERT_EQ(j.input_documents.size(), 2u);
    EXPECT_EQ(j.input_documents[1].input_src.locator_url, file_url("b.html"));

    j = job_of({"a.html", "-o", "-"});
    EXPECT_EQ(j.output_dest, job::output_dest(job::standard_output{}));
    // With --output, no input at all is still a job; it fails later for want of documents.
    EXPECT_TRUE(job_of({"--output=x.pdf"}).input_documents.empty());

    EXPECT_EQ(error_of({"a.html", "b.html"}), "no output filename specified");
    EXPECT_EQ(error_of({"http://host/a.html"}), "no output filename specified");
    EXPECT_EQ(parse({}).value, vellum::options::options(unknown{}));
}

TEST(options, picks_the_first_matching_result) {
    EXPECT_EQ(parse({"--version", "--credits", "--help"}).value, vellum::options::options(vellum::options::help{}));
    EXPECT_EQ(parse({"--version", "--credits"}).value, vellum::options::options(credits{}));
    EXPECT_EQ(command_of({"--scanfonts", "--version"}).command, command(version{}));
    EXPECT_EQ(command_of({"--scanfonts", "a.ttf", "b.otf"}).command, command(scanfonts{{"a.ttf", "b.otf"}}));
    EXPECT_EQ(command_of({"--shell", "x.js"}).command, command(shell{{"x.js"}}));
    // Alone, --write-grammar prints the script parser's tables; beside documents it changes nothing.
    EXPECT_EQ(command_of({"--write-grammar"}).command, command(vellum::options::write_grammar{}));
    EXPECT_EQ(command_of({"--version", "--write-grammar"}).command, command(version{}));
    EXPECT_EQ(job_of({"--write-grammar", "a.html"}).output_dest, file_dest("a.pdf"));
}

TEST(options, parses_gnu_style_forms) {
    // "--name=value" and "--name value" are the same; options may stand anywhere.
    EXPECT_EQ(job_of({"--output=o.pdf", "a.html"}), job_of({"a.html", "--output", "o.pdf"}));
    // Short options bundle, and the rest of a bundle or the next argument is the value.
    auto c = command_of({"-vo", "o.pdf", "a.html"});
    EXPECT_EQ(c.log_options.log_verbosity, log::verbosity::verbose);
    EXPECT_EQ(std::get<job_command>(c.command).command_job.output_dest, file_dest("o.pdf"));
    EXPECT_EQ(job_of({"-oo.pdf", "a.html"}).output_dest, file_dest("o.pdf"));
    EXPECT_EQ(parse({"-vh"}).value, vellum::options::options(vellum::options::help{}));
    // A value may itself begin with a dash.
    EXPECT_EQ(job_of({"a.html", "-o", "-x.pdf"}).output_dest, file_dest("-x.pdf"));
    // "--" ends the options.
    auto j = job_of({"-o", "out.pdf", "--", "-a.html", "--b.html"});
    ASSERT_EQ(j.input_documents.size(), 2u);
    EXPECT_EQ(j.input_documents[1].input_src.locator_url, file_url("--b.html"));
    // Repeatable options gather every use; aliases fill the same option.
    j = job_of({"-s", "a.css", "--style=b.css", "--script", "s.js", "x.html"});
    ASSERT_EQ(j.input_documents[0].style_info.user_style_sheets.size(), 2u);
    EXPECT_EQ(j.input_documents[0].style_info.user_style_sheets[1].locator_url, file_url("b.css"));
    EXPECT_EQ(j.input_documents[0].style_info.user_scripts[0].locator_url, file_url("s.js"));
    auto const h = command_of({"--http-user=u", "--ssl-ca-cert=c", "--insecure", "--version"});
    EXPECT_EQ(h.engine_options.loader_options.http_options.auth_patterns.size(), 1u);
    EXPECT_EQ(h.engine_options.loader_options.http_options.ssl_cacert, "c");
    EXPECT_TRUE(h.engine_options.loader_options.http_options.ssl_blindly_trust_server);
}

TEST(options, negates_switches) {
    auto j = job_of({"--no-compress", "--no-embed-fonts", "--no-author-style", "--no-xinclude", "--javascript",
                     "a.html"});
    EXPECT_FALSE(j.pdf_options.compress);
    EXPECT_FALSE(j.pdf_options.embed_fonts);
    EXPECT_TRUE(j.pdf_options.subset_fonts);
    EXPECT_FALSE(j.input_documents[0].style_info.use_author_style);
    EXPECT_TRUE(j.input_documents[0].style_info.use_default_style);
    EXPECT_TRUE(j.input_documents[0].style_info.use_author_scripts);
    EXPECT_EQ(j.input_documents[0].xml_options.use_xinclude, xml::use_xinclude::no);
    // The last word counts.
    EXPECT_TRUE(job_of({"--no-compress", "--compress", "a.html"}).pdf_options.compress);
    auto c = command_of({"--no-network", "--no-local-files", "--no-system-fonts", "--version"});
    EXPECT_FALSE(c.engine_options.loader_options.network);
    EXPECT_FALSE(c.engine_options.loader_options.local_files);
    EXPECT_FALSE(c.engine_options.system_fonts);
}

TEST(options, reports_parser_errors_in_their_own_words) {
    struct row {
        std::vector<std::string> args;
        char const* message;
    };
    row const rows[] = {
        {{"--bogus"}, "unrecognized option `--bogus'"},
        {{"--bogus=1"}, "unrecognized option `--bogus'"},
        {{"--no-bogus"}, "unrecognized option `--no-bogus'"},
        {{"--outp=x"}, "unrecognized option `--outp'"},
        {{"-x"}, "unrecognized option `-x'"},
        {{"-vx"}, "unrecognized option `-x'"},
        {{"--verbose=yes"}, "option `--verbose' does not allow an argument"},
        {{"--no-verbose=yes"}, "option `--no-verbose' does not allow an argument"},
        {{"a.html", "--output"}, "option `--output' needs an argument"},
        {{"a.html", "-o"}, "option `-o' needs an argument"},
        {{"--css-dpi=abc"}, "option `--css-dpi' requires a numeric argument; `abc'"},
        {{"--prefetch-threads", "4x"}, "option `--prefetch-threads' requires a numeric argument; `4x'"},
        {{"--no-output"}, "cannot negate option `--output'"},
        {{"--no-style=a"}, "cannot negate option `--style'"},
        {{"--key-bits=64"}, "invalid value for option `--key-bits'"},
        {{"--css-dpi=0"}, "invalid value for option `--css-dpi'"},
        {{"--pdf-profile=PDF/Z"}, "invalid value for option `--pdf-profile'"},
        {{"--profile=pdfa"}, "invalid value for option `--pdf-profile'"},
        // A checked option fails at once, before anything later on the line is looked at.
        {{"--key-bits=64", "--bogus"}, "invalid value for option `--key-bits'"},
        {{"--help", "--key-bits=64"}, "invalid value for option `--key-bits'"},
    };
    for (auto const& r : rows) {
        SCOPED_TRACE(r.args[0]);
        EXPECT_EQ(error_of(r.args), r.message);
    }
}

TEST(options, stores_checked_values) {
    auto const c = command_of({"--css-dpi=72", "--key-bits", "128", "--profile=pdf/x-4", "a.html"});
    EXPECT_EQ(c.engine_options.css_dpi, 72);
    auto const& j = std::get<job_command>(c.command).command_job;
    EXPECT_EQ(j.pdf_options.encrypt_info.key_bits.bits, 128);
    EXPECT_EQ(j.pdf_options.pdf_profile, pdf::profile::pdf_profile::pdfx_4);
    auto const d = job_of({"a.html"});
    EXPECT_EQ(d.pdf_options.encrypt_info.key_bits.bits, 40);
    EXPECT_FALSE(d.pdf_options.pdf_profile);
    EXPECT_EQ(command_of({"--version"}).engine_options.css_dpi, 96);
}

TEST(options, maps_input_formats) {
    struct row {
        char const* input;
        std::optional<doctype::doctype> doctype;
    };
    row const rows[] = {
        {"auto", std::nullopt},          {"AUTO", std::nullopt},           {"html4", doctype::doctype::html4},
        {"html-old", doctype::doctype::html4}, {"htm", doctype::doctype::html5}, {"HTML", doctype::doctype::html5},
        {"html-new", doctype::doctype::html5}, {"html5", doctype::doctype::html5}, {"xml", doctype::doctype::xml},
        {"latex", doctype::doctype::xml},
    };
    for (auto const& r : rows) {
        SCOPED_TRACE(r.input);
        EXPECT_EQ(job_of({"-i", r.input, "a.html"}).input_documents[0].input_doctype, r.doctype);
    }
    EXPECT_EQ(job_of({"a.html"}).input_documents[0].input_doctype, std::nullopt);
}

TEST(options, builds_log_options) {
    using log::server_log::server_log_type;
    auto lo = [](std::vector<std::string> args) {
        args.push_back("--version");
        return command_of(args).log_options;
    };
    EXPECT_EQ(lo({}), (log_options{stderr_log{}, log::verbosity::normal}));
    EXPECT_EQ(lo({"--debug", "-v"}).log_verbosity, log::verbosity::debug);
    EXPECT_EQ(lo({"--log=run.log"}).log_type, log_type(file_log{"run.log"}));
    EXPECT_EQ(lo({"--server", "--log=f"}).log_type, log_type(server_log{server_log_type::server_log_progress, "f"}));
    EXPECT_EQ(lo({"--server", "--silent"}).log_type, log_type(server_log{server_log_type::server_log_quiet, {}}));
    EXPECT_EQ(lo({"--structured-log=buffered", "--log=f"}).log_type,
              log_type(server_log{server_log_type::server_log_buffered, "f"}));
    EXPECT_EQ(lo({"--server", "--structured-log=normal"}).log_type,
              log_type(server_log{server_log_type::server_log_progress, {}}));

    auto r = parse({"--structured-log=bogus", "--log=f", "--version"});
    EXPECT_EQ(std::get<run_command>(r.value).log_options.log_type, log_type(stderr_log{}));
    EXPECT_EQ(r.log_text, "vellum: warning: unknown value for --structured-log: bogus\n");
}

TEST(options, derives_http_settings) {
    auto http = [](std::vector<std::string> args) {
        args.push_back("--version");
        return command_of(args).engine_options.loader_options.http_options;
    };
    EXPECT_EQ(http({}).max_prefetch_threads, 6);
    EXPECT_EQ(http({"--prefetch-threads=100"}).max_prefetch_threads, 16);
    EXPECT_EQ(http({"--prefetch-threads=0"}).max_prefetch_threads, 0);
    EXPECT_EQ(http({"--prefetch-threads=-3"}).max_prefetch_threads, 0);
    EXPECT_EQ(http({"--no-parallel-downloads", "--prefetch-threads=4"}).max_prefetch_threads, 0);
    EXPECT_EQ(http({}).http_timeout, 60);
    EXPECT_EQ(http({"--http-timeout=10"}).http_timeout, 10);
    EXPECT_EQ(http({"--http-timeout=0"}).http_timeout, std::nullopt);
    EXPECT_EQ(http({"--http-timeout=-5"}).http_timeout, std::nullopt);
    EXPECT_EQ(http({}).ssl_cacert, "/opt/vellum/etc/curl-ca-bundle.crt");
    EXPECT_EQ(http({"--prefix=/p"}).ssl_cacert, "/p/etc/curl-ca-bundle.crt");
    EXPECT_TRUE(http({}).user_agent.starts_with("Vellum/"));
    EXPECT_TRUE(http({}).user_agent.ends_with(" (https://vellum-print.org/)"));
    EXPECT_EQ(http({"--user-agent=UA"}).user_agent, "UA");
    auto h = http({"--cookie=a=1", "--cookie", "b=2", "--cookiejar=j", "--http-proxy=p:3128", "--ssl-capath=d",
                   "--no-auth-preemptive"});
    EXPECT_EQ(h.cookies, (std::vector<std::string>{"a=1", "b=2"}));
    EXPECT_EQ(h.cookiejar, "j");
    EXPECT_EQ(h.http_proxy, "p:3128");
    EXPECT_EQ(h.ssl_capath, "d");
    EXPECT_FALSE(h.http_auth_preemptive);
    EXPECT_EQ(command_of({"--fileroot=/srv", "--version"}).engine_options.loader_options.fileroot, "/srv");
}

TEST(options, applies_the_prefix_rule) {
    EXPECT_EQ(prefix_of(std::nullopt, "/opt/vellum/bin"), "/opt/vellum");
    EXPECT_EQ(prefix_of(std::nullopt, "build/bin/"), "build");
    EXPECT_EQ(prefix_of(std::nullopt, ""), "..");
    EXPECT_EQ(prefix_of(std::nullopt, "."), "..");
    EXPECT_EQ(prefix_of(std::nullopt, "/bin"), "/");
    EXPECT_EQ(prefix_of("/given", "/opt/vellum/bin"), "/given");
    auto const c = command_of({"--version"});
    EXPECT_EQ(c.engine_options.prefix.path, "/opt/vellum");
    EXPECT_EQ(c.engine_options.curdir.path, "/work");
}

TEST(options, builds_authentication_patterns) {
    using http::auth_pattern;
    using http::userpwd;
    auto run = [](std::vector<std::string> args) {
        args.push_back("--version");
        auto r = parse(args);
        return std::pair{std::get<run_command>(r.value).engine_options.loader_options.http_options, r.log_text};
    };
    host::host const h{host::domain{"h.example"}};

    auto [a, log_a] = run({"--auth=u:p%40ss@h.example", "--auth=https://v:w@h.example:8443/"});
    ASSERT_EQ(a.auth_patterns.size(), 2u);
    EXPECT_EQ(a.auth_patterns[0], std::pair(auth_pattern{std::nullopt, h, std::nullopt}, userpwd{"u", "p@ss"}));
    EXPECT_EQ(a.auth_patterns[1], std::pair(auth_pattern{"https", h, "8443"}, userpwd{"v", "w"}));
    EXPECT_EQ(log_a, "");

    auto [b, log_b] = run({"--auth=http://u:p@h.example/x?q#f"});
    ASSERT_EQ(b.auth_patterns.size(), 1u);
    EXPECT_EQ(b.auth_patterns[0].first, (auth_pattern{"http", h, "80"}));
    EXPECT_EQ(log_b, "vellum: warning: path ignored in --auth option\n"
                     "vellum: warning: query ignored in --auth option\n"
                     "vellum: warning: fragment ignored in --auth option\n");

    auto [c, log_c] = run({"--auth=http://u:p@h:port/", "--auth=https://"});
    EXPECT_TRUE(c.auth_patterns.empty());
    EXPECT_EQ(log_c, "vellum: warning: --auth option ignored: bad port\n"
                     "vellum: warning: --auth option ignored: host string empty\n");
    // Only "http:" and "https:" are taken as schemes; anything else is read after "//", so "ftp" is a host.
    auto [f, log_f] = run({"--auth=ftp://u:p@h"});
    ASSERT_EQ(f.auth_patterns.size(), 1u);
    EXPECT_EQ(f.auth_patterns[0].first, (auth_pattern{std::nullopt, host::host{host::domain{"ftp"}}, std::nullopt}));
    EXPECT_EQ(log_f, "vellum: warning: path ignored in --auth option\n");

    // The user option's pattern follows those of --auth.
    auto [d, log_d] = run({"--auth-user=me", "--auth=x:y@h.example", "--auth-scheme=https",
                           "--auth-server=h.example:8080"});
    ASSERT_EQ(d.auth_patterns.size(), 2u);
    EXPECT_EQ(d.auth_patterns[1], std::pair(auth_pattern{"https", h, "8080"}, userpwd{"me", ""}));
    EXPECT_EQ(run({"--auth-password=pw"}).first.auth_patterns[0], std::pair(auth_pattern{}, userpwd{"", "pw"}));

    auto [e, log_e] = run({"--auth-user=me", "--auth-scheme=ftp"});
    EXPECT_TRUE(e.auth_patterns.empty());
    EXPECT_EQ(log_e, "vellum: warning: --auth-scheme option has unsupported scheme\n");
    for (char const* server : {"a:b:c", "h:x", "h:", ":80", "h:99999"}) {
        SCOPED_TRACE(server);
        auto [g, log_g] = run({"--auth-user=me", std::string("--auth-server=") + server});
        EXPECT_TRUE(g.auth_patterns.empty());
        EXPECT_EQ(log_g, "vellum: warning: --auth-server value is invalid\n");
    }
    // Credentials without --auth-user or --auth-password make no pattern.
    EXPECT_TRUE(run({"--auth-server=h"}).first.auth_patterns.empty());
}

TEST(options, reads_auth_methods) {
    auto run = [](std::string methods) {
        auto r = parse({"--auth-method=" + methods, "--version"});
        return std::pair{std::get<run_command>(r.value).engine_options.loader_options.http_options.http_auth_methods,
                         r.log_text};
    };
    using http::http_auth_method;
    EXPECT_EQ(command_of({"--version"}).engine_options.loader_options.http_options.http_auth_methods,
              std::set{http_auth_method::basic});
    auto [m, log_m] = run("NTLM,,digest,bogus,Basic");
    EXPECT_EQ(m, (std::set{http_auth_method::basic, http_auth_method::digest, http_auth_method::ntlm}));
    EXPECT_EQ(log_m, "vellum: warning: unrecognised --auth-method: bogus\n");
}

TEST(options, switches_encryption_on_with_any_permission_or_password) {
    EXPECT_FALSE(job_of({"a.html"}).pdf_options.encrypt);
    auto j = job_of({"--disallow-copy", "a.html"});
    EXPECT_TRUE(j.pdf_options.encrypt);
    EXPECT_EQ(j.pdf_options.encrypt_info.permissions,
              (metadata::permissions{.can_print = true, .can_modify = true, .can_copy = false, .can_annotate = true}));
    for (char const* opt : {"--encrypt", "--user-password=u", "--owner-password=o", "--disallow-print",
                            "--disallow-annotate", "--disallow-modify"}) {
        SCOPED_TRACE(opt);
        EXPECT_TRUE(job_of({opt, "a.html"}).pdf_options.encrypt);
    }
    EXPECT_FALSE(job_of({"--disallow-copy", "--no-disallow-copy", "a.html"}).pdf_options.encrypt);
    EXPECT_EQ(job_of({"--user-password=", "a.html"}).pdf_options.encrypt_info.user_password, "");
}

TEST(options, fills_metadata_and_pdf_options) {
    auto j = job_of({"--pdf-title=T", "--pdf-subject=S", "--pdf-author=A", "--pdf-creator=C",
                     "--pdf-keywords= one, two ,,three ", "--pdf-id=00ff", "--attach=notes.txt",
                     "--pdf-output-intent=http://h/icc", "a.html"});
    EXPECT_EQ(j.metadata, (metadata::metadata{.title = "T",
                                              .subject = "S",
                                              .author = "A",
                                              .keywords = {"one", "two", "three"},
                                              .creator = "C"}));
    EXPECT_EQ(j.pdf_options.pdf_id, "00ff");
    ASSERT_EQ(j.pdf_options.attach.size(), 1u);
    EXPECT_EQ(j.pdf_options.attach[0].attach_locator.locator_url, file_url("notes.txt"));
    EXPECT_EQ(j.pdf_options.attach[0].attach_desc, "");
    EXPECT_EQ(j.pdf_options.pdf_output_intent->locator_url,
              locator_url(resource::locator::web{resource::locator::protocol::http, "http://h/icc"}));
    EXPECT_TRUE(job_of({"a.html"}).pdf_options.producer->starts_with("Vellum "));
    EXPECT_EQ(job_of({"--no-producer", "a.html"}).pdf_options.producer, std::nullopt);
}

TEST(options, fills_style_information) {
    auto j = job_of({"--media=screen", "--page-size=A4", "--page-margin=20mm", "--baseurl=http://h/d/",
                     "--no-default-style", "a.html", "b.html", "o.pdf"});
    for (auto const& doc : j.input_documents) {
        EXPECT_EQ(doc.style_info.media, "screen");
        EXPECT_FALSE(doc.style_info.use_default_style);
        // The margin declaration stands before the size declaration.
        EXPECT_EQ(doc.style_info.page_pdecls,
                  (std::vector<dom::pending_page_decl>{{dom::page_decl_kind::margin, "20mm"},
                                                       {dom::page_decl_kind::size, "A4"}}));
        EXPECT_EQ(doc.input_base->locator_url,
                  locator_url(resource::locator::web{resource::locator::protocol::http, "http://h/d/"}));
    }
    EXPECT_EQ(job_of({"a.html"}).input_documents[0].style_info.media, "print");
}

// A directory of its own for files the test writes, removed at the end.
struct scratch_dir {
    std::filesystem::path path = std::filesystem::temp_directory_path() /
                                 ("vellum_options_" + std::to_string(::getpid()) + "_" +
                                  ::testing::UnitTest::GetInstance()->current_test_info()->name());
    scratch_dir() { std::filesystem::create_directories(path); }
    ~scratch_dir() { std::filesystem::remove_all(path); }
    std::string write(std::string const& name, std::string const& content) const {
        std::ofstream(path / name, std::ios::binary) << content;
        return (path / name).string();
    }
};

TEST(options, reads_input_lists) {
    EXPECT_EQ(input_list_names("\xEF\xBB\xBF  a.html \r\n\n \t \nsub dir/b.html\n\xEF\xBB\xBF" "c.html"),
              (std::vector<std::string>{"a.html", "sub dir/b.html", "c.html"}));
    EXPECT_TRUE(input_list_names("").empty());

    scratch_dir dir;
    auto const l1 = dir.write("one.txt", "\xEF\xBB\xBF" "a.html\n  b.html  \n\n");
    auto const l2 = dir.write("two.txt", "http://h/c.html");
    // File arguments are ignored when there is an input list.
    auto j = job_of({"-l", l1, "extra.html", "--input-list", l2, "-o", "out.pdf"});
    ASSERT_EQ(j.input_documents.size(), 3u);
    EXPECT_EQ(j.input_documents[0].input_src.locator_url, file_url("a.html"));
    EXPECT_EQ(j.input_documents[1].input_src.locator_url, file_url("b.html"));
    EXPECT_EQ(j.input_documents[2].input_src.locator_url,
              locator_url(resource::locator::web{resource::locator::protocol::http, "http://h/c.html"}));
    EXPECT_EQ(j.output_dest, file_dest("out.pdf"));

    EXPECT_EQ(error_of({"-l", l1, "a.html", "x.pdf"}), "no output filename specified");

    auto const missing = (dir.path / "missing.txt").string();
    auto r = parse({"-l", l1, "-l", missing, "-o", "out.pdf"});
    EXPECT_EQ(r.value, vellum::options::options(input_list_failed{}));
    EXPECT_EQ(r.log_text, "vellum: " + missing + ": error: No such file or directory\n");
}

TEST(options, takes_a_separate_log_argument_only_when_it_is_a_log) {
    scratch_dir dir;
    auto const doc = dir.write("doc.html", "<p>text</p>");
    auto const old_log = dir.write("old.log", "---- begin\nThu: Loading document...\n");
    auto const empty = dir.write("empty.log", "");
    auto const fresh = (dir.path / "new.log").string();
    auto log_type_of = [](std::vector<std::string> const& args) {
        return command_of(args).log_options.log_type;
    };
    // A document (not a log) given as a separate argument is refused, before anything is written.
    EXPECT_EQ(error_of({"--log", doc, "in.html", "out.pdf"}),
              "option `--log' names a file that is not a log: " + doc + " (write --log=" + doc +
                  " to append to it all the same)");
    EXPECT_EQ(std::filesystem::file_size(doc), 11u);
    // A new file, an empty one and an earlier log are taken.
    EXPECT_EQ(log_type_of({"--log", fresh, "in.html"}), log_type(file_log{fresh}));
    EXPECT_EQ(log_type_of({"--log", empty, "in.html"}), log_type(file_log{empty}));
    EXPECT_EQ(log_type_of({"--log", old_log, "in.html"}), log_type(file_log{old_log}));
    // Never one of the file arguments, even when new or empty: the same file by another name too.
    EXPECT_NE(error_of({"--log", empty, empty, "out.pdf"}), "(no error)");
    EXPECT_NE(error_of({"in.html", "--log", old_log, "-o", "out.pdf", dir.path.string() + "/./old.log"}),
              "(no error)");
    // Relative names are taken from the working directory.
    auto r = parse({"--log", "doc.html", "in.html"}, "/opt/vellum/bin", dir.path.string());
    EXPECT_TRUE(std::holds_alternative<error>(r.value));
    // "--log=FILE" says what it means.
    EXPECT_EQ(log_type_of({"--log=" + doc, "in.html"}), log_type(file_log{doc}));
}

TEST(help, prints_usage_and_option_help_exactly) {
    EXPECT_EQ(vellum::help::usage_text(), "Usage:\n"
                                  "  vellum [OPTIONS] doc.html              Convert doc.html to doc.pdf\n"
                                  "  vellum [OPTIONS] doc.html -o out.pdf   Convert doc.html to out.pdf\n"
                                  "  vellum [OPTIONS] FILES... -o out.pdf   Combine multiple files to out.pdf\n"
                                  "\n");
    std::string const text = vellum::help::option_help_text();
    EXPECT_TRUE(text.starts_with("General Options:\n"
                                 "  -h, --help                Display usage and options.\n"
                                 "      --version             Display version information.\n"
                                 "      --credits             Display credits and acknowledgements.\n"
                                 "\n"
                                 "Logging Options:\n"));
    EXPECT_NE(text.find("\n\nPDF Encryption Options:\n"
                        "  --encrypt                 Encrypt PDF output.\n"
                        "  --key-bits=NUM            Set encryption key size [40|128].\n"),
              std::string::npos);
    EXPECT_TRUE(text.ends_with("Utility Options:\n"
                               "  --scanfonts FILES...      Scan font files and create a CSS file.\n"
                               "\n"
                               "For more information, visit http://vellum-print.org\n"));
    // Ten groups, each closed by an empty line.
    std::size_t groups = 0;
    for (std::size_t at = text.find("Options:\n"); at != std::string::npos; at = text.find("Options:\n", at + 1)) {
        ++groups;
    }
    EXPECT_EQ(groups, 10u);
    EXPECT_EQ(vellum::help::try_help_text(), "Try 'vellum --help' for more information.");
}

TEST(help, credits_each_library_with_its_own_version) {
    std::string const text = vellum::help::credits_text();
    EXPECT_TRUE(text.starts_with("Vellum uses the following open source libraries:\n\n"));
    for (char const* name : {"Fontconfig ", "FreeType ", "libcurl ", "libxml ", "jpeglib ", "GIFLIB ", "zlib "}) {
        EXPECT_NE(text.find(std::string("\n") + name), std::string::npos) << name;
    }
    EXPECT_NE(text.find(std::string("zlib ") + zlibVersion() + "\n"), std::string::npos);
    EXPECT_EQ(text.find("unknown"), std::string::npos);
}

TEST(help, reports_build_properties_only_with_debug) {
    std::string const plain = vellum::help::version_text(false);
    EXPECT_TRUE(plain.starts_with("Vellum "));
    EXPECT_EQ(plain.find("build-"), std::string::npos);
    std::string const debug = vellum::help::version_text(true);
    for (char const* key : {"\nbuild-date: ", "\nbuild-commit: ", "\nbuild-compiler: ", "\nbuild-grade: "}) {
        EXPECT_NE(debug.find(key), std::string::npos) << key;
    }
}

} // namespace
} // namespace vellum
