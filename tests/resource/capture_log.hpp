// A debug-level log written to a temporary file, so that tests can read what was reported.
#pragma once

#include "driver/log.hpp"

#include <cstdio>
#include <string>

namespace vellum::testing {

struct capture_log {
    std::FILE* out = std::tmpfile();
    log::log log{.log_verbosity = log::verbosity::debug,
                 .log_stderr = log::console_log::console_log{.progname = "vellum", .console_out = out}};

    capture_log() = default;
    capture_log(capture_log const&) = delete;
    ~capture_log() { std::fclose(out); }

    /// Everything written so far.
    std::string text() const {
        std::fflush(out);
        std::rewind(out);
        std::string all;
        char buf[4096];
        std::size_t n;
        while ((n = std::fread(buf, 1, sizeof buf, out)) > 0) {
            all.append(buf, n);
        }
        std::fseek(out, 0, SEEK_END);
        return all;
    }

    /// How many times the text occurs.
    int count(std::string const& needle) const {
        std::string const all = text();
        int n = 0;
        for (auto pos = all.find(needle); pos != std::string::npos; pos = all.find(needle, pos + 1)) {
            ++n;
        }
        return n;
    }
};

} // namespace vellum::testing
