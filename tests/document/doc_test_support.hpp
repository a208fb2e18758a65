// Shared helpers of the document tests: a scratch directory, a log captured in memory, a fetch function
// over local files that records what it was asked for, and the built DTD catalog.
#pragma once

#include "document/libxml/io.hpp"
#include "driver/log.hpp"
#include "resource/locator.hpp"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <unistd.h>
#include <vector>

#include <libxml/catalog.h>

namespace doc_test {

namespace fs = std::filesystem;
using namespace vellum;

/// A fresh directory for one test's files.
inline fs::path scratch_dir(std::string const& name) {
    auto const dir = fs::temp_directory_path() / ("vellum_doc_" + std::to_string(getpid())) / name;
    fs::remove_all(dir);
    fs::create_directories(dir);
    return dir;
}

inline fs::path write_file(fs::path const& dir, std::string const& name, std::string const& content) {
    auto const path = dir / name;
    std::ofstream(path, std::ios::binary) << content;
    return path;
}

/// A log at debug level whose lines land in memory.
struct captured_log {
    std::shared_ptr<std::FILE> file{std::tmpfile(), &std::fclose};
    log::log value{.log_verbosity = log::verbosity::debug,
                   .log_stderr =
                       log::console_log::console_log{.progname = "vellum", .console_out = file.get()}};

    std::string text() const {
        std::fflush(file.get());
        std::rewind(file.get());
        std::string out;
        char buf[4096];
        std::size_t n;
        while ((n = std::fread(buf, 1, sizeof buf, file.get())) > 0) {
            out.append(buf, n);
        }
        return out;
    }
};

/// Reads local files; refuses everything else, as a machine without a network would. Records each request.
struct local_fetch {
    std::shared_ptr<std::vector<resource::locator::locator>> requests =
        std::make_shared<std::vector<resource::locator::locator>>();

    libxml::io::fetch_function function() const {
        auto seen = requests;
        return [seen](resource::locator::locator const& l) -> result<libxml::io::fetched> {
            seen->push_back(l);
            auto const* f = std::get_if<resource::locator::file>(&l.locator_url);
            if (!f) {
                return fail("no network: " + resource::locator::locator_to_string(l));
            }
            std::ifstream in(f->file_path.path, std::ios::binary);
            if (!in) {
                return fail("cannot read " + f->file_path.path);
            }
            std::string content((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
            return libxml::io::fetched{.fetched_bytes = bytes::from_string(content)};
        };
    }

    bool asked_for_web() const {
        for (auto const& l : *requests) {
            if (std::holds_alternative<resource::locator::web>(l.locator_url)) {
                return true;
            }
        }
        return false;
    }
};

inline resource::locator::locator file_locator(fs::path const& p) {
    return resource::locator::parse_locator(resource::locator::path_or_url::path_or_url,
                                            resource::locator::locator_origin::command_line_origin,
                                            std::nullopt, p.string());
}

/// Points libxml2 at the catalog of the build tree alone (not the system's catalogs), once.
inline void use_built_catalog() {
    static bool const done = [] {
        setenv("XML_CATALOG_FILES", "", 1);
        xmlInitializeCatalog();
        return xmlLoadCatalog(VELLUM_BINARY_DIR "/dtd/catalog.xml") == 0;
    }();
    (void)done;
}

} // namespace doc_test
