// Helpers shared by the font tests: the installed font files, reading them, and a log that keeps its
// lines for inspection.
#pragma once

#include "driver/log.hpp"

#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace vellum::font_test {

inline std::string const dejavu = "/usr/share/fonts/truetype/dejavu/";
inline std::string const liberation = "/usr/share/fonts/truetype/liberation2/";
inline std::string const noto = "/usr/share/fonts/truetype/noto/";

inline std::vector<std::uint8_t> read_file(std::string const& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

/// A console log written to a temporary file.
struct captured_log {
    std::FILE* out = std::tmpfile();
    log::log log{.log_verbosity = log::verbosity::debug,
                 .log_stderr = log::console_log::console_log{.progname = "vellum", .console_out = out}};

    std::string text() const {
        std::fflush(out);
        std::rewind(out);
        std::string s;
        char buf[512];
        while (auto n = std::fread(buf, 1, sizeof buf, out)) {
            s.append(buf, n);
        }
        return s;
    }

    ~captured_log() { std::fclose(out); }
};

} // namespace vellum::font_test
