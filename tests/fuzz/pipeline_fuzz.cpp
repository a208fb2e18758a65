// Fuzz target for the whole program: the bytes are an HTML document (with whatever inline style sheet
// they carry) taken through parsing, the cascade, box generation, layout, painting and PDF writing into
// memory. The document arrives as a data: URL; local files and the network are off, so only the
// program's own files under the prefix are read.
#include "document/libxml/io.hpp"
#include "driver/engine.hpp"
#include "driver/log.hpp"
#include "driver/program.hpp"
#include "util/cell.hpp"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <mutex>
#include <optional>
#include <string>

#include <libxml/parser.h>

namespace {

using namespace vellum;

// The prefix: VELLUM_PREFIX, else the build tree this target was configured in.
std::string prefix() {
    if (char const* p = std::getenv("VELLUM_PREFIX")) {
        return p;
    }
#ifdef VELLUM_FUZZ_PREFIX
    return VELLUM_FUZZ_PREFIX;
#else
    return "build";
#endif
}

std::string base64(std::uint8_t const* data, std::size_t size) {
    static char const digits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string out;
    out.reserve((size + 2) / 3 * 4);
    for (std::size_t i = 0; i < size; i += 3) {
        std::uint32_t v = std::uint32_t{data[i]} << 16;
        if (i + 1 < size) {
            v |= std::uint32_t{data[i + 1]} << 8;
        }
        if (i + 2 < size) {
            v |= data[i + 2];
        }
        out += digits[(v >> 18) & 63];
        out += digits[(v >> 12) & 63];
        out += i + 1 < size ? digits[(v >> 6) & 63] : '=';
        out += i + 2 < size ? digits[v & 63] : '=';
    }
    return out;
}

struct setup {
    log::log setup_log;
    engine::engine setup_engine;
};

setup const& the_setup() {
    static std::optional<setup> s = [] () -> std::optional<setup> {
        // Messages would drown the fuzzer's output: the log goes nowhere.
        log::log l{.log_verbosity = log::verbosity::normal, .log_stderr = log::no_stderr_log{}};
        {
            std::lock_guard guard(process_lock());
            xmlInitParser();
            libxml::io::install_entity_loader();
        }
        engine::engine_options opts{.prefix = {prefix()},
                                    .curdir = {"/nonexistent"},
                                    .loader_options = {.network = false, .local_files = false},
                                    .system_fonts = false};
        engine::load_dtd_catalog(l, opts.prefix.path);
        auto loader = resource::loader::new_loader(l, opts.prefix, opts.curdir, opts.loader_options);
        if (!loader) {
            std::fprintf(stderr, "pipeline_fuzz: %s\n", loader.error().c_str());
            std::abort();
        }
        auto eng = engine::new_engine(l, *loader, opts);
        if (!eng) {
            std::fprintf(stderr, "pipeline_fuzz: %s\n", eng.error().c_str());
            std::abort();
        }
        return setup{.setup_log = l, .setup_engine = *eng};
    }();
    return *s;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    auto const& s = the_setup();
    auto const url = "data:text/html;base64," + base64(data, size);
    job::job j{.input_documents = {job::input_document{
                   .input_doctype = doctype::doctype::html5,
                   .input_src = resource::locator::parse_locator(resource::locator::path_or_url::url_strict,
                                                                 resource::locator::locator_origin::command_line_origin,
                                                                 std::nullopt, url),
               }}};
    char* buffer = nullptr;
    std::size_t length = 0;
    std::FILE* out = open_memstream(&buffer, &length);
    if (!out) {
        return 0;
    }
    // The program runs conversions on a large stack for deep documents; so does the target.
    program::on_large_stack([&] {
        // An internal error ends a run with a logged message and status 1, as the program's top does.
        try {
            return engine::convert_to_stream(s.setup_log, s.setup_engine, j, out) ? 0 : 1;
        } catch (std::exception const&) {
            return 1;
        }
    });
    std::fclose(out);
    std::free(buffer);
    return 0;
}
