// Times the HTML parser on a file: decoding to UTF-8, then tree construction, best of several runs,
// reported in MB/s of input. Usage: html5_bench FILE [RUNS]
#include "document/html5/encode.hpp"
#include "document/html5/parser.hpp"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

namespace {

using namespace vellum::html5;
using clock_type = std::chrono::steady_clock;

double seconds_since(clock_type::time_point start) {
    return std::chrono::duration<double>(clock_type::now() - start).count();
}

// The tree's size, so that the parse cannot be optimised away and the run can be sanity-checked.
std::size_t count_nodes(tree::node const& n) {
    std::size_t count = 1;
    for (auto const& c : n.node_children) {
        count += count_nodes(*c);
    }
    return count;
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: html5_bench FILE [RUNS]\n");
        return 2;
    }
    std::ifstream in(argv[1], std::ios::binary);
    std::ostringstream s;
    s << in.rdbuf();
    std::string bytes = s.str();
    if (bytes.empty()) {
        std::fprintf(stderr, "html5_bench: cannot read %s\n", argv[1]);
        return 1;
    }
    int runs = argc > 2 ? std::max(1, std::atoi(argv[2])) : 3;
    double megabytes = static_cast<double>(bytes.size()) / (1024.0 * 1024.0);
    double best_decode = 1e30;
    double best_parse = 1e30;
    std::size_t nodes = 0;
    for (int i = 0; i < runs; ++i) {
        auto start = clock_type::now();
        auto utf8 = encode::memory_to_utf8(bytes);
        if (!utf8) {
            std::fprintf(stderr, "html5_bench: %s\n", utf8.error().c_str());
            return 1;
        }
        best_decode = std::min(best_decode, seconds_since(start));
        start = clock_type::now();
        auto doc = parser::parse_document(*utf8);
        best_parse = std::min(best_parse, seconds_since(start));
        nodes = count_nodes(*doc.document_root);
    }
    std::printf("input %.1f MB, %zu nodes, best of %d runs\n", megabytes, nodes, runs);
    std::printf("decode %.3f s (%.1f MB/s), parse %.3f s (%.1f MB/s), together %.1f MB/s\n", best_decode,
                megabytes / best_decode, best_parse, megabytes / best_parse,
                megabytes / (best_decode + best_parse));
    return 0;
}
