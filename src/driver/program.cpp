#include "driver/program.hpp"

#include "document/libxml/io.hpp"
#include "driver/engine.hpp"
#include "driver/help.hpp"
#include "driver/log.hpp"
#include "driver/options.hpp"
#include "host/script_phase.hpp"
#include "js/lalr.hpp"
#include "text/fonts/fonts.hpp"
#include "text/fonts/scan.hpp"
#include "util/cell.hpp"
#include "util/ref.hpp"
#include "util/stack.hpp"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <exception>
#include <filesystem>
#include <functional>
#include <pthread.h>
#include <string>
#include <sys/mman.h>
#include <ucontext.h>
#include <unistd.h>
#include <utility>
#include <vector>

#include <libxml/parser.h>
#include <libxml/parserInternals.h>
#include <curl/curl.h>
#include <gcrypt.h>

namespace vellum::program {

namespace {

std::string const progname = "vellum";

void print(std::string const& text) {
    std::fwrite(text.data(), 1, text.size(), stdout);
}

// The process-wide libraries, in the order their users need them.
void init_libraries() {
    curl_global_init(CURL_GLOBAL_ALL);
    // libgcrypt carries the TLS layer of libcurl. Since version 1.6 it brings its own thread support, so
    // what is left of setting it up is the version check that initialises it.
    if (!gcry_check_version(GCRYPT_VERSION)) {
        std::fputs("vellum: internal error: libgcrypt initialisation failed\n", stderr);
        std::abort();
    }
    gcry_control(GCRYCTL_INITIALIZATION_FINISHED, 0);
    std::lock_guard guard(process_lock());
    xmlInitParser();
    // XML documents nest as deep as HTML ones (generated reports, mail), and the parser descends
    // without recursion: lift its default limit of 256 levels without giving up the other limits
    // that XML_PARSE_HUGE would lift too.
    xmlParserMaxDepth = 100000;
    libxml::io::install_entity_loader();
}

// The real log of the run, built from the options; a log file that cannot be opened leaves the console.
log::log build_log(log::log const& console, options::log_options const& opts) {
    return std::visit(
        overloaded{
            [&](options::stderr_log const&) {
                return log::console(progname, opts.log_verbosity);
            },
            [&](options::file_log const& f) {
                log::log l = log::console(progname, opts.log_verbosity);
                std::string error;
                l.log_file = log::open_file_log(f.log_path, error);
                if (!l.log_file) {
                    log::log_file_message(console, log::level::error, f.log_path, error);
                    return log::console(progname, opts.log_verbosity);
                }
                return l;
            },
            [&](options::server_log const& s) {
                log::log l{.log_verbosity = opts.log_verbosity, .log_stderr = log::make_server_log(s.server_type)};
                if (s.server_log_file) {
                    std::string error;
                    l.log_file = log::open_file_log(*s.server_log_file, error);
                    if (!l.log_file) {
                        log::log_file_message(console, log::level::error, *s.server_log_file, error);
                    }
                }
                return l;
            },
        },
        opts.log_type);
}

int run_job(log::log const& log,
            resource::loader::loader const& loader,
            engine::engine_options const& eopts,
            job::job const& job) {
    engine::load_dtd_catalog(log, eopts.prefix.path);
    auto eng = engine::new_engine(log, loader, eopts);
    if (!eng) {
        log::log_error(log, eng.error());
        log::log_finished(log, log::finished::failure);
        return 1;
    }
    if (engine::convert(log, *eng, job)) {
        log::log_finished(log, log::finished::success);
        return 0;
    }
    log::log_finished(log, log::finished::failure);
    return 1;
}

// Writes an @font-face rule for each font file to standard output; a file that does not load is
// logged and passed over.
int scan_fonts(log::log const& log, resource::loader::loader const& loader, std::vector<std::string> const& files,
               bool verbose) {
    auto db = fonts::new_fonts(loader, log, false);
    if (!db) {
        log::log_error(log, db.error());
        return 1;
    }
    for (auto const& file : files) {
        if (auto css = fonts::scan::scan_font_file(log, db->fonts_freetype, file, verbose)) {
            print(*css);
        }
    }
    return 0;
}

int run_command(log::log const& console, options::run_command const& rc) {
    init_libraries();
    // Prefetch threads log too, so each sink takes a lock for its lines.
    log::log const log = log::with_locks(build_log(console, rc.log_options));
    // The prefix is made absolute once, so that names resolved against it (by the XML catalog, say) do
    // not depend on how the program was started.
    auto eopts = rc.engine_options;
    auto prefix = (std::filesystem::path(eopts.curdir.path) / eopts.prefix.path).lexically_normal().string();
    if (prefix.size() > 1 && prefix.back() == '/') {
        prefix.pop_back();
    }
    eopts.prefix.path = prefix;
    auto const loader = resource::loader::new_loader(log, eopts.prefix, eopts.curdir, eopts.loader_options);
    if (!loader) {
        log::log_error(log, loader.error());
        log::close_log(log);
        return 1;
    }
    int status = 0;
    try {
        status = std::visit(
            overloaded{
                [&](options::version const&) {
                    print(help::version_text(rc.log_options.log_verbosity == log::verbosity::debug));
                    return 0;
                },
                [&](options::scanfonts const& s) {
                    return scan_fonts(log, *loader, s.scanfonts_files,
                                      rc.log_options.log_verbosity != log::verbosity::normal);
                },
                [&](options::shell const& s) {
                    std::vector<resource::locator::locator> files;
                    for (auto const& f : s.shell_files) {
                        files.push_back(resource::locator::parse_locator(resource::locator::path_or_url::path_or_url,
                                                                         resource::locator::locator_origin::command_line_origin,
                                                                         std::nullopt, f));
                    }
                    // The prompt is for a person at a terminal; piped input gets the values alone.
                    hostjs::run_shell(log, std::shared_ptr<resource::loader::loader const>(std::shared_ptr<void>(), &*loader),
                                      engine::script_settings(*loader), files, stdin, stdout, isatty(0) != 0);
                    return 0;
                },
                [&](options::write_grammar const&) {
                    js::lalr::write_grammar();
                    return 0;
                },
                [&](options::job_command const& j) { return run_job(log, *loader, eopts, j.command_job); },
            },
            rc.command);
    } catch (std::exception const& e) {
        log::log_message(log, log::level::abort, log::source_internal{}, e.what());
        status = 1;
    }
    std::fflush(stdout);
    log::close_log(log);
    return status;
}

} // namespace

// Documents nest as deep as their authors like (generated reports and e-mail nest hundreds of
// elements), and parsing, styling, box generation, layout and painting all walk the tree recursively.
// The run therefore goes on a stack far larger than the main thread's 8 MB; the memory is only
// reserved, and pages are taken as the recursion reaches them.
constexpr std::size_t run_stack_size = std::size_t{4} << 30;

namespace {

// On a thread of its own with that stack; the fallback where the stack cannot be switched.
int on_large_thread(std::function<int()> const& body) {
    struct call {
        std::function<int()> const* call_body;
        int call_status = 1;
    } c{.call_body = &body};
    auto const start = [](void* p) -> void* {
        auto* c = static_cast<call*>(p);
        c->call_status = (*c->call_body)();
        return nullptr;
    };
    pthread_attr_t attr;
    pthread_t thread;
    bool started = pthread_attr_init(&attr) == 0;
    if (started) {
        started = pthread_attr_setstacksize(&attr, run_stack_size) == 0 &&
                  pthread_create(&thread, &attr, start, &c) == 0;
        pthread_attr_destroy(&attr);
    }
    if (!started) {
        // A machine that refuses the reservation still runs documents of ordinary depth.
        return body();
    }
    pthread_join(thread, nullptr);
    return c.call_status;
}

// A body run on a switched stack, and how it ended. The context's entry takes no pointer, so the call
// under way on this thread is found here.
struct stack_call {
    std::function<int()> const* call_body = nullptr;
    int call_status = 1;
    std::exception_ptr call_thrown;
};

thread_local stack_call* current_stack_call = nullptr;

void enter_stack_call() {
    auto* c = current_stack_call;
    // Nothing may unwind past the context's first frame: what the body throws is carried back.
    try {
        c->call_status = (*c->call_body)();
    } catch (...) {
        c->call_thrown = std::current_exception();
    }
}

} // namespace

// The stack is switched on the calling thread rather than given to a new thread: a process that never
// started a thread lets the C++ library count shared references without atomic instructions, a tenth
// of the time of a long book. The sanitizers follow threads but not switched stacks.
int on_large_stack(std::function<int()> const& body) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    return on_large_thread(body);
#else
    auto const page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    void* const memory = mmap(nullptr, run_stack_size, PROT_READ | PROT_WRITE,
                              MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE | MAP_STACK, -1, 0);
    if (memory == MAP_FAILED) {
        return on_large_thread(body);
    }
    // The lowest page stays unmapped, so that running off the stack faults rather than writes
    // elsewhere.
    ucontext_t caller;
    ucontext_t callee;
    if (mprotect(memory, page, PROT_NONE) != 0 || getcontext(&callee) != 0) {
        munmap(memory, run_stack_size);
        return on_large_thread(body);
    }
    callee.uc_stack.ss_sp = memory;
    callee.uc_stack.ss_size = run_stack_size;
    callee.uc_link = &caller;
    makecontext(&callee, enter_stack_call, 0);
    stack_call c{.call_body = &body};
    auto* const outer_call = std::exchange(current_stack_call, &c);
    char const* const outer_low = stack::enter_own_stack(static_cast<char const*>(memory) + page);
    bool const switched = swapcontext(&caller, &callee) == 0;
    stack::enter_own_stack(outer_low);
    current_stack_call = outer_call;
    munmap(memory, run_stack_size);
    if (!switched) {
        return on_large_thread(body);
    }
    if (c.call_thrown) {
        std::rethrow_exception(c.call_thrown);
    }
    return c.call_status;
#endif
}

namespace {

// The directory of the running program, under which the prefix lies. The kernel's link to the
// executable holds its absolute path however it was started, through PATH or a symbolic link; where
// there is no such link, the path by which it was started stands in.
std::string own_directory(std::string const& argv0) {
    std::error_code ec;
    auto const exe = std::filesystem::read_symlink("/proc/self/exe", ec);
    std::string const self = !ec && exe.is_absolute() ? exe.string() : argv0;
    auto const slash = self.find_last_of('/');
    if (slash == std::string::npos) {
        return "";
    }
    return slash == 0 ? "/" : self.substr(0, slash);
}

} // namespace

int run(int argc, char** argv) {
    // A closed output pipe ends the process rather than raising write errors.
    std::signal(SIGPIPE, SIG_DFL);
    std::vector<std::string> args(argv + (argc > 0 ? 1 : 0), argv + argc);
    std::string const program_dir = own_directory(argc > 0 ? argv[0] : "");
    std::vector<char> cwd(4096);
    while (!getcwd(cwd.data(), cwd.size())) {
        if (errno != ERANGE) {
            std::fprintf(stderr, "%s: error: %s\n", progname.c_str(), std::strerror(errno));
            return 1;
        }
        cwd.resize(cwd.size() * 2);
    }

    log::log const console = log::console(progname);
    auto const parsed = options::parse_options(console, args, program_dir, cwd.data());
    return std::visit(overloaded{
                          [](options::help const&) {
                              print(help::usage_text());
                              print(help::option_help_text());
                              return 0;
                          },
                          [](options::credits const&) {
                              print(help::credits_text());
                              return 0;
                          },
                          [&](options::run_command const& rc) { return on_large_stack([&] { return run_command(console, rc); }); },
                          [](options::unknown const&) {
                              print(help::usage_text());
                              print(help::try_help_text() + "\n\n");
                              return 0;
                          },
                          [&](options::input_list_failed const&) {
                              log::log_error(console, "error loading input list");
                              return 1;
                          },
                          [&](options::error const& e) {
                              log::log_error(console, e.error_text);
                              log::log_error(console, help::try_help_text());
                              return 1;
                          },
                      },
                      parsed);
}

} // namespace vellum::program
