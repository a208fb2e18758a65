#include "driver/log.hpp"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <sstream>

namespace vellum {
namespace {

// Everything written to a temporary stream so far.
std::string contents(std::FILE* f) {
    std::fflush(f);
    std::rewind(f);
    std::string out;
    char buf[4096];
    std::size_t n;
    while ((n = std::fread(buf, 1, sizeof buf, f)) > 0) {
        out.append(buf, n);
    }
    return out;
}

struct captured {
    std::FILE* out = std::tmpfile();
    ~captured() { std::fclose(out); }
    std::string text() const { return contents(out); }
};

log::log console_to(captured const& c, log::verbosity v) {
    return {.log_verbosity = v, .log_stderr = log::console_log::console_log{.progname = "vellum", .console_out = c.out}};
}

log::log server_to(captured const& c, log::server_log::server_log_type type, log::verbosity v) {
    auto s = log::make_server_log(type);
    s.server_out = c.out;
    return {.log_verbosity = v, .log_stderr = s};
}

TEST(log, console_lines_name_source_and_level) {
    captured c;
    auto const l = console_to(c, log::verbosity::debug);
    log::log_file_message(l, log::level::warning, "a.css", "bad value", 12);
    log::log_file_message(l, log::level::error, "b.html", "could not load input file");
    log::log_info(l, "loading HTML5 input: x.html");
    log::log_debug(l, "pack");
    log::log_message(l, log::level::abort, log::source_internal{}, "pack_para: unexpected condition.");
    EXPECT_EQ(c.text(), "vellum: a.css:12: warning: bad value\n"
                        "vellum: b.html: error: could not load input file\n"
                        "vellum: loading HTML5 input: x.html\n"
                        "vellum: debug: pack\n"
                        "vellum: internal error: pack_para: unexpected condition.\n");
}

TEST(log, verbosity_filters_before_any_sink) {
    struct {
        log::verbosity v;
        char const* expected;
    } const cases[] = {
        {log::verbosity::normal, "W\nE\n"},
        {log::verbosity::verbose, "I\nW\nE\n"},
        {log::verbosity::debug, "D\nI\nW\nE\n"},
    };
    for (auto const& k : cases) {
        SCOPED_TRACE(int(k.v));
        captured c;
        auto l = console_to(c, k.v);
        std::get<log::console_log::console_log>(l.log_stderr).progname = "p";
        log::log_debug(l, "D");
        log::log_info(l, "I");
        log::log_warning(l, "W");
        log::log_error(l, "E");
        std::string stripped;
        std::istringstream in(c.text());
        for (std::string line; std::getline(in, line);) {
            stripped += line.substr(line.rfind(' ') + 1) + "\n";
        }
        EXPECT_EQ(stripped, k.expected);
    }
}

TEST(log, cleans_text_to_one_line) {
    EXPECT_EQ(log::clean_text("  a\nb\r\nc \n"), "a  b    c");
    captured c;
    log::log_warning(console_to(c, log::verbosity::normal), "one\ntwo\rthree");
    EXPECT_EQ(c.text(), "vellum: warning: one  two  three\n");
}

TEST(log, stages_and_verdict_only_when_not_normal) {
    captured quiet;
    auto const n = console_to(quiet, log::verbosity::normal);
    log::log_progress_stage(n, "Loading document...");
    log::log_finished(n, log::finished::success);
    EXPECT_EQ(quiet.text(), "");

    captured loud;
    auto const v = console_to(loud, log::verbosity::verbose);
    log::log_progress_stage(v, "Loading document...");
    log::log_finished(v, log::finished::failure);
    EXPECT_EQ(loud.text(), "vellum: Loading document...\nvellum: Finished: failure\n");
}

TEST(log, structured_protocol_messages) {
    using t = log::server_log::server_log_type;
    captured c;
    auto const l = server_to(c, t::server_log_progress, log::verbosity::normal);
    log::log_file_message(l, log::level::warning, "a.css", "bad", 3);
    log::log_message(l, log::level::abort, log::source_internal{}, "boom");
    log::log_progress_stage(l, "Converting document...");
    log::log_progress_percent(l, 42);
    log::log_data(l, "key", "value");
    log::log_finished(l, log::finished::success);
    EXPECT_TRUE(log::reports_progress(l));
    EXPECT_EQ(c.text(), "msg|wrn|a.css:3|bad\n"
                        "msg|err||boom\n"
                        "sta|Converting document...\n"
                        "prg|42\n"
                        "dat|key|value\n"
                        "fin|success\n");
}

TEST(log, structured_normal_has_no_progress_and_quiet_only_the_verdict) {
    using t = log::server_log::server_log_type;
    captured normal;
    auto const n = server_to(normal, t::server_log_normal, log::verbosity::debug);
    log::log_progress_stage(n, "Loading document...");
    log::log_progress_percent(n, 10);
    log::log_file_message(n, log::level::error, "x", "e");
    EXPECT_EQ(normal.text(), "msg|err|x|e\n");
    // Only the progress flavour shows percentages; the others, and the console, don't ask for them.
    EXPECT_FALSE(log::reports_progress(n));
    EXPECT_FALSE(log::reports_progress(log::log{}));

    captured quiet;
    auto const q = server_to(quiet, t::server_log_quiet, log::verbosity::debug);
    log::log_error(q, "e");
    log::log_progress_stage(q, "Loading document...");
    log::log_data(q, "k", "v");
    log::log_finished(q, log::finished::failure);
    log::close_log(q);
    EXPECT_EQ(quiet.text(), "fin|failure\n");
}

TEST(log, buffered_structured_log_goes_out_oldest_first_at_close) {
    captured c;
    auto const l = server_to(c, log::server_log::server_log_type::server_log_buffered, log::verbosity::normal);
    log::log_warning(l, "first");
    log::log_error(l, "second");
    log::log_finished(l, log::finished::success);
    EXPECT_EQ(c.text(), "");
    log::close_log(l);
    EXPECT_EQ(c.text(), "msg|wrn||first\nmsg|err||second\nfin|success\n");
}

TEST(log, file_log_appends_time_stamped_lines) {
    auto const path = testing::TempDir() + "vellum_log_test.log";
    std::remove(path.c_str());
    for (int run = 0; run < 2; ++run) {
        std::string error;
        auto f = log::open_file_log(path, error);
        ASSERT_TRUE(f) << error;
        log::log const l{.log_verbosity = log::verbosity::normal, .log_file = f, .log_stderr = log::no_stderr_log{}};
        log::log_file_message(l, log::level::warning, "a.css", "bad", 2);
        log::log_error(l, "oops");
        log::log_progress_stage(l, "hidden in normal verbosity");
        log::log_stats(l, "pages: 3");
        log::log_finished(l, log::finished::success);
        log::close_log(l);
    }
    std::ifstream in(path);
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);) {
        lines.push_back(line);
    }
    ASSERT_EQ(lines.size(), 12u);
    EXPECT_EQ(lines[0], "---- begin");
    EXPECT_EQ(lines[5], "---- end");
    EXPECT_EQ(lines[6], "---- begin");
    // "Sun Nov 15 06:24:31 2026: a.css:2: warning: bad"
    auto const stamp_end = lines[1].find(": ");
    ASSERT_EQ(stamp_end, 24u) << lines[1];
    EXPECT_EQ(lines[1].substr(stamp_end), ": a.css:2: warning: bad");
    EXPECT_EQ(lines[2].substr(stamp_end), ": error: oops");
    EXPECT_EQ(lines[3].substr(stamp_end), ": stats: pages: 3");
    EXPECT_EQ(lines[4].substr(stamp_end), ": finished: success");
    std::string error;
    EXPECT_FALSE(log::open_file_log("/nonexistent-dir/x.log", error));
    EXPECT_EQ(error, "No such file or directory");
}

} // namespace
} // namespace vellum
