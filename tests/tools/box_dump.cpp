// box-dump: reads an HTML or XML file, styles it with the default sheets of the build tree (or of the
// prefix given after the file) and prints the box tree as indented text.
#include "prepack/box_support.hpp"

#include <cstdio>

int main(int argc, char** argv) {
    using namespace vellum;
    if (argc < 2 || argc > 3) {
        std::fprintf(stderr, "usage: box-dump FILE [PREFIX]\n");
        return 2;
    }
    std::filesystem::path const prefix = argc == 3 ? std::filesystem::path(argv[2]) : std::filesystem::path(VELLUM_BINARY_DIR);
    log::log const log{.log_verbosity = log::verbosity::normal,
                       .log_stderr = log::console_log::console_log{.progname = "box-dump", .console_out = stderr}};
    auto const doc = box_support::boxes_of_file(log, prefix, argv[1]);
    if (!doc) {
        std::fprintf(stderr, "box-dump: %s\n", doc.error().c_str());
        return 1;
    }
    auto const text = prepack::dump::dump_document(*doc);
    std::fwrite(text.data(), 1, text.size(), stdout);
    return 0;
}
