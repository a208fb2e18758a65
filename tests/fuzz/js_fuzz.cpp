// Fuzz target for the script scanner and parser: any bytes must give a syntax tree or a syntax error,
// never a crash or an internal error; and the scanner must reach the end in either mode.
#include "js/js_scanner.hpp"
#include "js/parse.hpp"

#include <cstddef>
#include <cstdint>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    std::string_view const text(reinterpret_cast<char const*>(data), size);
    (void)vellum::js::parse::parse_string(text);
    for (auto mode : {vellum::js_scanner::scan_mode::scan_div, vellum::js_scanner::scan_mode::scan_regexp}) {
        auto s = vellum::js_scanner::scanner::from_string(text);
        // Every token but the end consumes at least one byte.
        for (std::size_t n = 0; n <= size; ++n) {
            if (std::holds_alternative<vellum::js_scanner::eof>(s.scan_token(mode).scanned_token)) {
                break;
            }
        }
    }
    return 0;
}
