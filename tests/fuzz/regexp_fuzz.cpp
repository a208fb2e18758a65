// Fuzz target for regular expressions: any pattern must parse or fail with a message, and a pattern that
// parses must match any subject to an answer (a match, none, or the step budget's message), never crash.
// The input is the pattern, a NUL byte, then the subject.
#include "js/jsstring.hpp"
#include "js/regexp.hpp"

#include <cstddef>
#include <cstdint>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    std::string_view const text(reinterpret_cast<char const*>(data), size);
    std::size_t cut = text.find('\0');
    std::string_view pattern_text = text.substr(0, cut);
    std::string_view subject_text = cut == std::string_view::npos ? std::string_view("aaab\nAbc") : text.substr(cut + 1);
    auto p = vellum::regexp::parse_pattern(vellum::jsstring::from_utf8(pattern_text));
    if (!p) {
        return 0;
    }
    auto subject = vellum::jsstring::from_utf8(subject_text);
    for (bool ignore_case : {false, true}) {
        vellum::regexp::flags f{.ignore_case = ignore_case, .multiline = !ignore_case};
        auto m = vellum::regexp::match(p->parsed, p->total_parens, f, subject, 0);
        if (m && *m && (*m)->captures.size() != static_cast<std::size_t>(p->total_parens)) {
            __builtin_trap();
        }
    }
    return 0;
}
