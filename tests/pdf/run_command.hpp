// Runs a shell command for the PDF tests (qpdf, poppler, python) and gives its exit status and output.
#pragma once

#include <cstdio>
#include <string>
#include <sys/wait.h>
#include <utility>

namespace vellum::pdf::testing {

inline std::pair<int, std::string> run(std::string const& command) {
    std::string out;
    std::FILE* p = popen((command + " 2>&1").c_str(), "r");
    if (p == nullptr) {
        return {-1, out};
    }
    char block[4096];
    while (auto const n = std::fread(block, 1, sizeof block, p)) {
        out.append(block, n);
    }
    int const status = pclose(p);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, out};
}

} // namespace vellum::pdf::testing
