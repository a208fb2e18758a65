// test262-parse: runs the script parser over every .js file of a test262 folder. A test marked
// `negative: phase: parse` must be rejected; every other must be accepted. Prints the acceptance and
// rejection rates and the failures grouped by the reason the accepted language gives for them.
//
//   test262-parse DIR [--min-accept PERCENT] [--min-reject PERCENT] [--list N]
//
// With a floor given, the exit status is 1 if a rate falls below it; 77 if the folder is missing.

#include "grouped_report.hpp"
#include "js/engine.hpp"
#include "js/parse.hpp"

#include <algorithm>
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

std::string read_file(fs::path const& p) {
    std::ifstream in(p, std::ios::binary);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

/// The front matter between `/*---` and `---*/`.
std::string front_matter(std::string const& src) {
    auto a = src.find("/*---");
    auto b = src.find("---*/");
    if (a == std::string::npos || b == std::string::npos || b < a) {
        return {};
    }
    return src.substr(a, b - a);
}

bool negative_parse(std::string const& meta) {
    static std::regex const re(R"(negative:\s*\n\s*phase:\s*parse)");
    return std::regex_search(meta, re);
}

bool only_strict(std::string const& meta) { return meta.find("onlyStrict") != std::string::npos; }

bool has(std::string const& s, std::string_view needle) { return s.find(needle) != std::string::npos; }

/// Why a test that should parse did not: the first feature of the source that the language leaves out.
std::string accept_reason(std::string const& src, std::string const& message, std::string const& dir) {
    static std::regex const accessor(R"((^|[{,]\s*)(get|set)\s+[\w$'"]+\s*\()");
    static std::regex const octal(R"([^\w.$\\]0[0-9]+\b)");
    if (std::regex_search(src, accessor)) {
        return "getters and setters in object literals";
    }
    if (has(src, "\u2028") || has(src, "\u2029") || has(src, "\r")) {
        return "line terminators other than LF (CR, U+2028, U+2029)";
    }
    if (has(src, "\v") || has(src, "\xC2\xA0") || has(src, "\xEF\xBB\xBF") || has(src, "\xE2\x80") ||
        has(src, "\xE3\x80\x80") || has(src, "\xE1\x9A\x80")) {
        return "white space other than ASCII blanks (VT, NBSP, Unicode spaces)";
    }
    if (std::regex_search(src, octal)) {
        return "octal number literals";
    }
    if (has(message, "unknown_byte")) {
        return "non-ASCII characters outside identifier classes";
    }
    static std::regex const lexical(R"(\b(let|const)\s+[\w$])");
    if (std::regex_search(src, lexical)) {
        return "let and const declarations (a later edition)";
    }
    if (has(src, "\\u{")) {
        return "code point escapes \\u{...} (a later edition)";
    }
    if (has(src, "\\u")) {
        return "Unicode escapes";
    }
    if (has(message, "reserved(")) {
        return "reserved words (debugger, class, ...)";
    }
    if (dir.starts_with("comments")) {
        return "a block comment holding a line feed is no line end (as written)";
    }
    if (dir.starts_with("statements/continue") || dir.starts_with("statements/break") ||
        dir.starts_with("statements/return") || dir.starts_with("statements/throw")) {
        return "a line end after break/continue/return/throw always ends the statement (as written)";
    }
    return "other, in " + dir + ": " + message.substr(0, 60);
}

/// Why a test that should not parse did.
std::string reject_reason(std::string const& src, std::string const& meta, std::string const& dir) {
    if (only_strict(meta) || has(src, "use strict")) {
        return "strict-mode-only errors";
    }
    static std::regex const regexp_literal(R"(/[^/*\n][^/\n]*/[gimuy]*)");
    if (has(src, "\\u")) {
        return "Unicode escapes in reserved words or identifiers";
    }
    if (has(meta, "RegExp") || has(src, "RegExp") || std::regex_search(src, regexp_literal)) {
        return "regular expression literal errors (checked by the regexp engine)";
    }
    if (has(src, "<!--") || has(src, "-->")) {
        return "HTML-like comments";
    }
    if (dir.starts_with("line-terminators") || dir.starts_with("literals/string")) {
        return "raw line feeds in string literals (accepted as written)";
    }
    // Jump targets, `return` outside functions and assignments to non-references are not in the grammar:
    // they are checked when the tree is compiled.
    return "early errors outside the grammar, in " + dir;
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: test262-parse DIR [--min-accept PERCENT] [--min-reject PERCENT] [--list N]\n");
        return 2;
    }
    double min_accept = 0, min_reject = 0;
    std::size_t list = 5;
    for (int i = 2; i + 1 < argc; i += 2) {
        std::string opt = argv[i];
        if (opt == "--min-accept") {
            min_accept = std::atof(argv[i + 1]);
        } else if (opt == "--min-reject") {
            min_reject = std::atof(argv[i + 1]);
        } else if (opt == "--list") {
            list = static_cast<std::size_t>(std::atoi(argv[i + 1]));
        } else {
            std::fprintf(stderr, "test262-parse: unknown option %s\n", opt.c_str());
            return 2;
        }
    }
    fs::path root = argv[1];
    if (!fs::is_directory(root)) {
        // The suite lives outside the repository; without it there is nothing to measure.
        std::fprintf(stderr, "test262-parse: not a directory: %s\n", argv[1]);
        return 77;
    }
    std::vector<fs::path> files;
    for (auto const& e : fs::recursive_directory_iterator(root)) {
        if (e.is_regular_file() && e.path().extension() == ".js" && !e.path().filename().string().ends_with("_FIXTURE.js")) {
            files.push_back(e.path());
        }
    }
    std::sort(files.begin(), files.end());
    int positive = 0, accepted = 0, negative = 0, rejected = 0;
    std::map<std::string, std::vector<std::string>> accept_failures, reject_failures;
    for (auto const& f : files) {
        std::string src = read_file(f);
        std::string meta = front_matter(src);
        // Each file gets its own engine, which holds the objects of its regular expression literals.
        auto engine = vellum::js::eval::new_engine(vellum::log::console("test262-parse"), nullptr, nullptr);
        auto r = vellum::js::parse::parse_string(*engine, src);
        auto const* err = std::get_if<vellum::js::js_error>(&r);
        std::string name = fs::relative(f, root).string();
        if (negative_parse(meta)) {
            ++negative;
            if (err) {
                ++rejected;
            } else {
                reject_failures[reject_reason(src, meta, fs::relative(f.parent_path(), root).string())].push_back(
                    name);
            }
        } else {
            ++positive;
            if (!err) {
                ++accepted;
            } else {
                std::string line = err->error_line ? std::to_string(*err->error_line) : "?";
                std::string dir = fs::relative(f.parent_path(), root).string();
                accept_failures[accept_reason(src, err->error_message, dir)].push_back(name + ":" + line + ": " +
                                                                                     err->error_message);
            }
        }
    }
    double accept_rate = positive ? 100.0 * accepted / positive : 100.0;
    double reject_rate = negative ? 100.0 * rejected / negative : 100.0;
    std::printf("files: %zu\n", files.size());
    std::printf("accepted: %d of %d valid tests (%.2f%%)\n", accepted, positive, accept_rate);
    std::printf("rejected: %d of %d negative parse tests (%.2f%%)\n", rejected, negative, reject_rate);
    vellum::tools::print_grouped("valid tests rejected, by reason:", accept_failures, list);
    vellum::tools::print_grouped("negative tests accepted, by reason:", reject_failures, list);
    bool ok = accept_rate + 1e-9 >= min_accept && reject_rate + 1e-9 >= min_reject;
    if (!ok) {
        std::printf("\nbelow the floor: accept %.2f%% (floor %.2f%%), reject %.2f%% (floor %.2f%%)\n", accept_rate,
                    min_accept, reject_rate, min_reject);
    }
    return ok ? 0 : 1;
}
