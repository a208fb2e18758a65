// regexp_bench: the regular expression matcher on long subjects, in seconds per match (best of several
// runs): a greedy loop over a million characters, a group repeated half a million times, a search that
// fails at every start of a 20,000-character text, and a case-insensitive search through prose.
//   regexp_bench [runs]
#include "js/jsstring.hpp"
#include "js/regexp.hpp"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

using clock_type = std::chrono::steady_clock;

struct bench_case {
    char const* name;
    char const* pattern;
    std::string subject;
    vellum::regexp::flags flags;
};

std::string repeated(std::string const& unit, std::size_t times) {
    std::string out;
    out.reserve(unit.size() * times);
    for (std::size_t i = 0; i < times; ++i) {
        out += unit;
    }
    return out;
}

} // namespace

int main(int argc, char** argv) {
    int runs = argc > 1 ? std::max(1, std::atoi(argv[1])) : 3;
    bench_case const cases[] = {
        {"greedy a* over 1M", "a*", std::string(1'000'000, 'a'), {}},
        {"(?:ab)* over 1M", "(?:ab)*$", repeated("ab", 500'000), {}},
        // Every start position runs to the end before failing: the work grows with the square of the length.
        {"failing search over 2k", "(a|b)*c", repeated("ab", 1'000), {}},
        {"failing search over 20k", "(a|b)*c", repeated("ab", 10'000), {}},
        {"ignore-case words over 1M", "\\bqu[a-z]+x\\b",
         repeated("the quick brown fox jumps over the lazy dog ", 23'000) + "QUUX", {.ignore_case = true, .multiline = false}},
    };
    for (auto const& c : cases) {
        auto p = vellum::regexp::parse_pattern(vellum::jsstring::from_utf8(c.pattern));
        if (!p) {
            std::fprintf(stderr, "regexp_bench: %s: %s\n", c.pattern, p.error().c_str());
            return 1;
        }
        auto subject = vellum::jsstring::from_utf8(c.subject);
        double best = 1e30;
        std::string outcome;
        for (int i = 0; i < runs; ++i) {
            auto start = clock_type::now();
            auto m = vellum::regexp::match(p->parsed, p->total_parens, c.flags, subject, 0);
            best = std::min(best, std::chrono::duration<double>(clock_type::now() - start).count());
            outcome = !m ? m.error() : *m ? "match of " + std::to_string((*m)->end_index - (*m)->start_index) : "no match";
        }
        std::printf("%-28s %8.3f s  (%s)\n", c.name, best, outcome.c_str());
    }
    return 0;
}
