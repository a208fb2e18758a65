// Fuzz target for the HTML parser: encoding detection, then document and fragment parses of the same bytes.
#include "document/html5/encode.hpp"
#include "document/html5/format.hpp"
#include "document/html5/parser.hpp"

#include <cstddef>
#include <cstdint>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    using namespace vellum::html5;
    std::string_view bytes(reinterpret_cast<char const*>(data), size);
    auto text = encode::memory_to_utf8(bytes);
    if (!text) {
        return 0;
    }
    auto doc = parser::parse_document(*text);
    (void)format::format_document(doc);
    auto frag = parser::parse_fragment(*text, "td", tree::html_ns::html);
    (void)format::format_fragment(frag);
    auto svg = parser::parse_fragment(*text, "svg", tree::html_ns::svg);
    (void)format::format_fragment(svg);
    return 0;
}
