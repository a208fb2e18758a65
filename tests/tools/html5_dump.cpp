// html5-dump: reads HTML on standard input and prints the parsed tree in the indented "| <html>" layout
// of the html5lib tree-construction tests. HTML5LIB_FRAGMENT_CONTEXT ("td", "svg path", "math mi") asks
// for a fragment parse in that context; HTML5LIB_SCRIPTING may only be "off", since scripts never run.
#include "document/html5/encode.hpp"
#include "document/html5/format.hpp"
#include "document/html5/parser.hpp"

#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <string>
#include <string_view>

namespace {

using namespace vellum::html5;

std::string read_stdin() {
    std::string data;
    char buffer[65536];
    std::size_t n = 0;
    while ((n = std::fread(buffer, 1, sizeof buffer, stdin)) > 0) {
        data.append(buffer, n);
    }
    return data;
}

/// Splits a context as the test files write it: a bare name is HTML, "svg x" and "math x" are foreign.
void split_context(std::string_view context, std::string_view& name, tree::html_ns& ns) {
    ns = tree::html_ns::html;
    name = context;
    if (context.starts_with("svg ")) {
        ns = tree::html_ns::svg;
        name = context.substr(4);
    } else if (context.starts_with("math ")) {
        ns = tree::html_ns::mathml;
        name = context.substr(5);
    }
}

} // namespace

int main() {
    char const* scripting = std::getenv("HTML5LIB_SCRIPTING");
    if (scripting != nullptr && std::string_view(scripting) != "off" && std::string_view(scripting) != "") {
        std::fprintf(stderr, "html5-dump: scripting '%s' is not supported, the parser never runs scripts\n",
                     scripting);
        return 2;
    }
    auto utf8 = encode::memory_to_utf8(read_stdin());
    if (!utf8) {
        std::fprintf(stderr, "html5-dump: %s\n", utf8.error().c_str());
        return 1;
    }
    char const* context = std::getenv("HTML5LIB_FRAGMENT_CONTEXT");
    std::string out;
    if (context != nullptr && *context != '\0') {
        std::string_view name;
        tree::html_ns ns = tree::html_ns::html;
        split_context(context, name, ns);
        out = format::format_fragment(parser::parse_fragment(*utf8, name, ns));
    } else {
        out = format::format_document(parser::parse_document(*utf8));
    }
    std::fwrite(out.data(), 1, out.size(), stdout);
    return 0;
}
