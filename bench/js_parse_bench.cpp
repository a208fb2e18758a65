// Times the script parser on a generated script of a given size (1 MB by default): scanning, the
// division/regexp trials, semicolon insertion and tree building, best of several runs.
// Usage: js_parse_bench [MEGABYTES] [RUNS]
#include "js/parse.hpp"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>

namespace {

using clock_type = std::chrono::steady_clock;

/// A script of ordinary shapes: functions with loops and conditions, object and array literals, string
/// and regexp literals, comments, and statements that rely on semicolon insertion.
std::string make_script(std::size_t target) {
    std::string s;
    for (int i = 0; s.size() < target; ++i) {
        auto n = std::to_string(i);
        s += "// helper " + n + "\n";
        s += "function f" + n + "(a, b, c) {\n";
        s += "    var total = 0, i, item = {name: 'item" + n + "', size: " + n + ", tags: [a, b, , c]}\n";
        s += "    for (i = 0; i < a.length; i++) {\n";
        s += "        if (a[i] % 2 === 0 && /^x[0-9]+$/i.test(b)) total += a[i] / 2 / c\n";
        s += "        else if (typeof a[i] == \"string\") { total = total + a[i].length; continue }\n";
        s += "        else total -= (c ? 1 : -1) * item.size\n";
        s += "    }\n";
        s += "    /* the result */\n";
        s += "    return total > 0 ? new Result(total, item) : null\n";
        s += "}\n";
        s += "var r" + n + " = f" + n + "([1, 2, 3], 'x" + n + "', " + n + ".5)\n";
        s += "switch (r" + n + ") { case null: break; default: log(r" + n + ".value) }\n";
    }
    return s;
}

} // namespace

int main(int argc, char** argv) {
    double megabytes = argc > 1 ? std::atof(argv[1]) : 1.0;
    int runs = argc > 2 ? std::max(1, std::atoi(argv[2])) : 5;
    std::string script = make_script(static_cast<std::size_t>(megabytes * 1024 * 1024));
    double best = 1e30;
    double best_cpu = 1e30;
    std::size_t elements = 0;
    for (int i = 0; i < runs; ++i) {
        auto start = clock_type::now();
        std::clock_t cpu_start = std::clock();
        auto r = vellum::js::parse::parse_string(script);
        best = std::min(best, std::chrono::duration<double>(clock_type::now() - start).count());
        best_cpu = std::min(best_cpu, static_cast<double>(std::clock() - cpu_start) / CLOCKS_PER_SEC);
        if (auto const* e = std::get_if<vellum::js::js_error>(&r)) {
            std::fprintf(stderr, "js_parse_bench: line %d: %s\n", e->error_line.value_or(0), e->error_message.c_str());
            return 1;
        }
        elements = std::get<vellum::js::source_elements>(r).size();
    }
    std::printf("script: %zu bytes, %zu top-level elements\n", script.size(), elements);
    // On a shared machine the wall time includes waiting for a core; the processor time does not.
    std::printf("parse: best of %d runs %.3f s wall, %.3f s processor (%.2f MB/s by processor time)\n", runs,
                best, best_cpu, static_cast<double>(script.size()) / (1024.0 * 1024.0) / best_cpu);
    return 0;
}
