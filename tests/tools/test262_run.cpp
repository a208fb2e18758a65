// test262-run: runs every .js test of a test262 folder through the script engine, with the harness files
// a test names (assert.js and sta.js unless the test is raw, and its `includes:`), in sloppy mode and, with
// "use strict" put first, in strict mode, as its flags allow (`onlyStrict`, `noStrict`, `raw`). A
// negative test must fail in its phase (parse, early, runtime) with its error type. Prints the pass rate
// over all runs, and over the sloppy runs of the tests that stay inside the language this engine implements
// (see `left_out_reason`), with the failures grouped by reason.
//
//   test262-run DIR [--harness DIR] [--min-pass PERCENT] [--min-covered PERCENT] [--list N] [--filter TEXT]
//
// Each run happens in a child process with a time limit, so that a hang or a crash counts as a failure
// of that test only. With a floor given, the exit status is 1 below it; 77 if the folder is missing.

#include "grouped_report.hpp"
#include "js/convert.hpp"
#include "js/engine.hpp"
#include "js/errors.hpp"
#include "js/object.hpp"
#include "js/parse.hpp"
#include "js/run.hpp"
#include "js/vm.hpp"
#include "util/result.hpp"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;
using namespace vellum::js::eval;

std::string read_file(fs::path const& p) {
    std::ifstream in(p, std::ios::binary);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

/// What the front matter between `/*---` and `---*/` says.
struct metadata {
    bool only_strict = false;
    bool no_strict = false;
    bool raw = false;
    std::vector<std::string> includes;
    /// "parse", "early", "resolution" or "runtime" for a negative test.
    std::string negative_phase;
    std::string negative_type;
};

metadata read_metadata(std::string const& src) {
    metadata m;
    auto a = src.find("/*---");
    auto b = src.find("---*/");
    if (a == std::string::npos || b == std::string::npos || b < a) {
        return m;
    }
    std::string const meta = src.substr(a, b - a);
    static std::regex const flags(R"(flags:\s*\[([^\]]*)\])");
    std::smatch match;
    if (std::regex_search(meta, match, flags)) {
        std::string const f = match[1];
        m.only_strict = f.find("onlyStrict") != std::string::npos;
        m.no_strict = f.find("noStrict") != std::string::npos;
        m.raw = f.find("raw") != std::string::npos;
    }
    static std::regex const includes_inline(R"(includes:\s*\[([^\]]*)\])");
    static std::regex const includes_list(R"(includes:\s*\n((\s*-\s*\S+\s*\n)+))");
    static std::regex const item(R"([\w.\-]+\.js)");
    std::string list;
    if (std::regex_search(meta, match, includes_inline) || std::regex_search(meta, match, includes_list)) {
        list = match[1];
    }
    for (std::sregex_iterator it(list.begin(), list.end(), item), end; it != end; ++it) {
        m.includes.push_back(it->str());
    }
    static std::regex const negative(R"(negative:\s*\n\s*phase:\s*(\w+)\s*\n\s*type:\s*(\w+))");
    if (std::regex_search(meta, match, negative)) {
        m.negative_phase = match[1];
        m.negative_type = match[2];
    }
    return m;
}

/// The name of a thrown value's error type: its `name`, or that of its constructor.
std::string error_name(js& engine, js_value const& v) {
    auto const* o = std::get_if<js_object>(&v);
    if (o == nullptr) {
        return "a " + type_of(v) + " value";
    }
    auto text_of = [&](js_value const& x) -> std::string {
        if (auto const* s = std::get_if<js_string>(&x)) {
            return vellum::jsstring::to_utf8(*s);
        }
        return {};
    };
    auto name = get(engine, *o, key_of_utf8("name"));
    if (!is_exception(name)) {
        if (std::string n = text_of(std::get<js_value>(name)); !n.empty()) {
            return n;
        }
    }
    auto ctor = get(engine, *o, key_of_utf8("constructor"));
    if (!is_exception(ctor)) {
        if (auto const* c = std::get_if<js_object>(&std::get<js_value>(ctor))) {
            auto n = get(engine, *c, key_of_utf8("name"));
            if (!is_exception(n)) {
                if (std::string t = text_of(std::get<js_value>(n)); !t.empty()) {
                    return t;
                }
            }
        }
    }
    return "an object";
}

std::string error_message_of(js& engine, js_value const& v) {
    if (auto const* o = std::get_if<js_object>(&v)) {
        auto m = get(engine, *o, key_of_utf8("message"));
        if (!is_exception(m)) {
            if (auto const* s = std::get_if<js_string>(&std::get<js_value>(m))) {
                return vellum::jsstring::to_utf8(*s);
            }
        }
        return {};
    }
    auto s = to_string(engine, v);
    return is_exception(s) ? std::string() : vellum::jsstring::to_utf8(std::get<js_string>(s));
}

/// Shortens a message for grouping: digits and quoted names vary from test to test.
std::string reason_text(std::string m) {
    static std::regex const quoted(R"('[^']*'|"[^"]*")");
    m = std::regex_replace(m, quoted, "'...'");
    if (m.size() > 70) {
        m = m.substr(0, 70) + "...";
    }
    return m;
}

/// The test's text with comments dropped and the insides of string literals blanked, for looking at the
/// code alone. Regular expression literals are taken as code; that is close enough for this purpose.
std::string code_of(std::string const& src) {
    std::string code;
    code.reserve(src.size());
    enum { plain, line_comment, block_comment, quoted } state = plain;
    char quote = 0;
    for (std::size_t i = 0; i < src.size(); ++i) {
        char const ch = src[i];
        char const next = i + 1 < src.size() ? src[i + 1] : '\0';
        switch (state) {
        case plain:
            if (ch == '/' && next == '/') {
                state = line_comment;
            } else if (ch == '/' && next == '*') {
                state = block_comment;
                ++i;
            } else if (ch == '\'' || ch == '"') {
                state = quoted;
                quote = ch;
                code += ch;
            } else {
                code += ch;
            }
            break;
        case line_comment:
            if (ch == '\n') {
                state = plain;
                code += ch;
            }
            break;
        case block_comment:
            if (ch == '*' && next == '/') {
                state = plain;
                code += ' ';
                ++i;
            }
            break;
        case quoted:
            if (ch == '\\') {
                ++i;
                code += "  ";
            } else if (ch == quote || ch == '\n') {
                state = plain;
                code += ch;
            } else {
                code += ' ';
            }
            break;
        }
    }
    return code;
}

/// Why a test lies outside the language this engine sets out to implement, or "" when it lies inside.
/// The engine is ECMAScript 5 without strict mode, without getters and setters in object literals, with
/// a simpler scanner (line feed is the only line terminator, ASCII blanks only, identifiers kept as
/// written, no octal literals), undeclared names read as undefined, and a listed subset of the built-ins.
/// A test that needs any of these is left out of the covered figure whatever its result; the decision
/// looks at the test's text and its harness files only.
std::string left_out_reason(std::string const& src, std::string const& includes_text, metadata const& m) {
    if (m.only_strict || src.find("use strict") != std::string::npos) {
        return "strict mode";
    }
    static std::regex const accessor(R"((^|[{,]\s*)(get|set)\s+[A-Za-z_$0-9'"]+\s*\()");
    std::string const code = code_of(src);
    if (std::regex_search(code, accessor)) {
        return "getters and setters in object literals";
    }
    // Raw characters the scanner does not take as blanks or line ends: CR, VT, NBSP, U+2028/2029 and the
    // other Unicode spaces; and the same written as escapes for `eval`.
    static std::regex const raw_space("\r|\x0B|\xC2\xA0|\xE2\x80[\x80-\x8A\xA8\xA9\xAF]|\xE1\x9A\x80|"
                                      "\xE1\xA0\x8E|\xE2\x81\x9F|\xE3\x80\x80|\xEF\xBB\xBF");
    static std::regex const escaped_space(
        R"(\\u(000[bBdD]|00[aA]0|202[89fF]|1680|180[eE]|200[0-9aA]|205[fF]|3000|[fF][eE][fF][fF])|\\x0[bBdD]|\\v)");
    if (std::regex_search(src, raw_space) || std::regex_search(src, escaped_space)) {
        return "line terminators and blanks beyond line feed and ASCII";
    }
    // A `\u` escape outside quotes is part of an identifier; `0` followed by digits outside quotes is an
    // octal literal.
    if (code.find("\\u") != std::string::npos) {
        return "escapes in identifiers";
    }
    static std::regex const octal(R"((^|[^\w.$])0[0-7]+($|[^\w.]))");
    if (std::regex_search(code, octal)) {
        return "octal literals";
    }
    if (code.find("ReferenceError") != std::string::npos) {
        return "ReferenceError on reading an undeclared name";
    }
    static std::regex const missing_builtin(
        R"(\b(getOwnPropertyDescriptor|getOwnPropertyNames|getPrototypeOf|freeze|isFrozen|seal|isSealed|)"
        R"(preventExtensions|isExtensible|reduce|reduceRight|every|some|bind|toPrecision|toExponential|)"
        R"(localeCompare|toJSON|getTimezoneOffset|MAX_VALUE|MIN_VALUE|EvalError|__proto__|)"
        R"(__defineGetter__|__defineSetter__)\b|JSON\.(parse|stringify)|Number\.NaN)");
    if (std::regex_search(code, missing_builtin) || std::regex_search(includes_text, missing_builtin)) {
        return "built-ins left out";
    }
    return "";
}

/// Runs one test in this process: "" for a pass, otherwise the reason of the failure.
std::string run_one(std::string const& source, metadata const& m, bool strict, std::vector<std::string> const& harness) {
    auto engine = new_engine(vellum::log::log{.log_stderr = vellum::log::no_stderr_log{}}, nullptr, nullptr);
    context const ctx{.source_locator = {},
                      .type_of_code = type_of_code::global_code,
                      .scope_chain = {normal_scope{.scope_object = engine->global_object}},
                      .variable_object = std::nullopt,
                      .this_value = engine->global_object};
    for (auto const& h : harness) {
        auto parsed = vellum::js::parse::parse_string(*engine, h);
        if (auto const* e = std::get_if<vellum::js::js_error>(&parsed)) {
            return "harness does not parse: " + reason_text(e->error_message);
        }
        auto r = run_code(*engine, ctx, std::get<vellum::js::source_elements>(parsed));
        if (auto const* e = std::get_if<exception>(&r)) {
            return "harness throws " + error_name(*engine, e->exception_value) + ": " +
                   reason_text(error_message_of(*engine, e->exception_value));
        }
    }
    std::string const text = strict ? "\"use strict\";\n" + source : source;
    auto parsed = vellum::js::parse::parse_string(*engine, text);
    bool const negative = !m.negative_phase.empty();
    if (auto const* e = std::get_if<vellum::js::js_error>(&parsed)) {
        if (negative && (m.negative_phase == "parse" || m.negative_phase == "early")) {
            return "";
        }
        return "parse error: " + reason_text(e->error_message);
    }
    auto const& statements = std::get<vellum::js::source_elements>(parsed);
    if (auto f = check_syntax(false, {}, statements)) {
        if (negative && (m.negative_phase == "parse" || m.negative_phase == "early")) {
            return "";
        }
        return "early error: " + syntax_error_name(f->failure_error);
    }
    if (negative && m.negative_phase != "runtime") {
        return "negative " + m.negative_phase + " test accepted";
    }
    auto r = run_code(*engine, ctx, statements);
    if (auto const* e = std::get_if<exception>(&r)) {
        std::string const name = error_name(*engine, e->exception_value);
        if (negative) {
            return name == m.negative_type ? "" : "threw " + name + " instead of " + m.negative_type;
        }
        return "uncaught " + name + ": " + reason_text(error_message_of(*engine, e->exception_value));
    }
    return negative ? "negative runtime test ran to its end" : "";
}

/// Runs one test in a child process with a time limit.
std::string run_isolated(std::string const& source, metadata const& m, bool strict, std::vector<std::string> const& harness) {
    int fds[2];
    if (pipe(fds) != 0) {
        return "cannot make a pipe";
    }
    pid_t const child = fork();
    if (child == 0) {
        close(fds[0]);
        alarm(10);
        std::string reason;
        try {
            reason = run_one(source, m, strict, harness);
        } catch (vellum::internal_error const& e) {
            reason = std::string("internal error: ") + e.what();
        } catch (std::exception const& e) {
            reason = std::string("C++ exception: ") + e.what();
        }
        (void)!write(fds[1], reason.data(), reason.size());
        close(fds[1]);
        _exit(0);
    }
    close(fds[1]);
    std::string reason;
    char buf[512];
    for (ssize_t n; (n = read(fds[0], buf, sizeof buf)) > 0;) {
        reason.append(buf, static_cast<std::size_t>(n));
    }
    close(fds[0]);
    int status = 0;
    waitpid(child, &status, 0);
    if (WIFSIGNALED(status)) {
        return WTERMSIG(status) == SIGALRM ? "time limit (10 s) exceeded" : "crash (signal " + std::to_string(WTERMSIG(status)) + ")";
    }
    return reason;
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: test262-run DIR [--harness DIR] [--min-pass PERCENT] [--min-covered PERCENT] [--list N] [--filter TEXT]\n");
        return 2;
    }
    fs::path root = argv[1];
    fs::path harness_dir = root.parent_path().parent_path() / "harness";
    double min_pass = 0;
    double min_covered = 0;
    std::size_t list = 3;
    std::string filter;
    for (int i = 2; i + 1 < argc; i += 2) {
        std::string opt = argv[i];
        if (opt == "--harness") {
            harness_dir = argv[i + 1];
        } else if (opt == "--min-pass") {
            min_pass = std::atof(argv[i + 1]);
        } else if (opt == "--min-covered") {
            min_covered = std::atof(argv[i + 1]);
        } else if (opt == "--list") {
            list = static_cast<std::size_t>(std::atoi(argv[i + 1]));
        } else if (opt == "--filter") {
            filter = argv[i + 1];
        } else {
            std::fprintf(stderr, "test262-run: unknown option %s\n", opt.c_str());
            return 2;
        }
    }
    if (!fs::is_directory(root)) {
        // The suite lives outside the repository; without it there is nothing to measure.
        std::fprintf(stderr, "test262-run: not a directory: %s\n", argv[1]);
        return 77;
    }
    std::vector<fs::path> files;
    for (auto const& e : fs::recursive_directory_iterator(root)) {
        if (e.is_regular_file() && e.path().extension() == ".js" && !e.path().filename().string().ends_with("_FIXTURE.js") &&
            (filter.empty() || e.path().string().find(filter) != std::string::npos)) {
            files.push_back(e.path());
        }
    }
    std::sort(files.begin(), files.end());
    std::map<std::string, std::string> harness_cache;
    auto harness_file = [&](std::string const& name) -> std::string const& {
        auto it = harness_cache.find(name);
        if (it == harness_cache.end()) {
            it = harness_cache.emplace(name, read_file(harness_dir / name)).first;
        }
        return it->second;
    };
    int runs = 0, passed = 0;
    int sloppy_runs = 0, sloppy_passed = 0, strict_runs = 0, strict_passed = 0;
    // Sloppy runs of tests inside the language this engine implements: the figure to aim at.
    int covered_runs = 0, covered_passed = 0;
    std::map<std::string, std::pair<int, int>> left_out; // reason: runs, passes
    std::map<std::string, std::vector<std::string>> failures, covered_failures;
    // Per top folder (an object of the built-ins, a kind of construct of the language): covered runs and
    // passes, then all runs and passes.
    std::map<std::string, std::array<int, 4>> by_folder;
    for (auto const& f : files) {
        std::string const src = read_file(f);
        metadata const m = read_metadata(src);
        std::vector<std::string> harness;
        if (!m.raw) {
            harness.push_back(harness_file("assert.js"));
            harness.push_back(harness_file("sta.js"));
        }
        std::string includes_text;
        for (auto const& inc : m.includes) {
            harness.push_back(harness_file(inc));
            includes_text += harness.back();
        }
        std::string const out_reason = left_out_reason(src, includes_text, m);
        std::string const name = fs::relative(f, root).string();
        auto& folder = by_folder[name.substr(0, name.find('/'))];
        for (bool strict : {false, true}) {
            if ((strict && (m.no_strict || m.raw)) || (!strict && m.only_strict)) {
                continue;
            }
            std::string const reason = run_isolated(src, m, strict, harness);
            ++runs;
            (strict ? strict_runs : sloppy_runs)++;
            bool const pass = reason.empty();
            bool const covered = !strict && out_reason.empty();
            folder[0] += covered ? 1 : 0;
            folder[1] += covered && pass ? 1 : 0;
            folder[2] += 1;
            folder[3] += pass ? 1 : 0;
            if (covered) {
                ++covered_runs;
                covered_passed += pass ? 1 : 0;
            } else {
                auto& [n, p] = left_out[strict ? std::string("strict mode") : out_reason];
                ++n;
                p += pass ? 1 : 0;
            }
            if (pass) {
                ++passed;
                (strict ? strict_passed : sloppy_passed)++;
            } else {
                failures[reason].push_back(name + (strict ? " (strict)" : ""));
                if (covered) {
                    covered_failures[reason].push_back(name);
                }
            }
        }
    }
    auto rate = [](int p, int n) { return n ? 100.0 * p / n : 100.0; };
    std::printf("files: %zu, runs: %d\n", files.size(), runs);
    std::printf("passed: %d of %d runs (%.2f%%)\n", passed, runs, rate(passed, runs));
    std::printf("  sloppy mode: %d of %d (%.2f%%)\n", sloppy_passed, sloppy_runs, rate(sloppy_passed, sloppy_runs));
    std::printf("  strict mode: %d of %d (%.2f%%)\n", strict_passed, strict_runs, rate(strict_passed, strict_runs));
    std::printf("  tests the language covers (sloppy runs): %d of %d (%.2f%%)\n", covered_passed, covered_runs,
                rate(covered_passed, covered_runs));
    std::printf("\nby folder: covered runs passed, all runs passed\n");
    for (auto const& [name, n] : by_folder) {
        std::printf("  %-28s %5d of %5d (%6.2f%%)   %5d of %5d (%6.2f%%)\n", name.c_str(), n[1], n[0], rate(n[1], n[0]), n[3],
                    n[2], rate(n[3], n[2]));
    }
    std::printf("\nruns left out of the covered figure, by what they need:\n");
    for (auto const& [why, np] : left_out) {
        std::printf("  %4d  %s (%d of them pass)\n", np.first, why.c_str(), np.second);
    }
    vellum::tools::print_grouped("failures of covered tests, by reason:", covered_failures, list);
    vellum::tools::print_grouped("all failures, by reason:", failures, list);
    bool ok = true;
    if (rate(passed, runs) + 1e-9 < min_pass) {
        std::printf("\nbelow the floor: %.2f%% of all runs (floor %.2f%%)\n", rate(passed, runs), min_pass);
        ok = false;
    }
    if (rate(covered_passed, covered_runs) + 1e-9 < min_covered) {
        std::printf("\nbelow the floor: %.2f%% of covered tests (floor %.2f%%)\n", rate(covered_passed, covered_runs),
                    min_covered);
        ok = false;
    }
    return ok ? 0 : 1;
}
