// Fuzz target over the CSS scanner, the style sheet parser (with imports served from the input itself),
// style attributes, values, selectors and media queries.
#include "css/media.hpp"
#include "css/parser.hpp"
#include "css/selector.hpp"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    using namespace vellum;
    std::string_view const text(reinterpret_cast<char const*>(data), size);
    log::log quiet;
    quiet.log_stderr = log::no_stderr_log{};

    // Every import gets the same text back, so import chains and loops are exercised too.
    css::parser::fetch const fetcher = [&](css::value::url const& u) -> result<css::parser::fetched_sheet> {
        if (u.url_text.size() % 3 == 0) {
            return fail("not found");
        }
        return css::parser::fetched_sheet{u.url_text, std::string(text), "text/css"};
    };
    auto e = css::parser::parse_style_sheet(quiet, fetcher, css::origin::author, "fuzz.css", text,
                                            css::parser::new_env("print"));
    for (auto const& r : e.rules) {
        auto const back = css::selector::to_text(r.rule_selector);
        (void)css::selector::specificity(r.rule_selector);
        (void)css::selector::fold_html_case(r.rule_selector);
        for (auto const& d : r.rule_declarations) {
            (void)css::value::to_text(d.value);
        }
        (void)back;
    }
    (void)css::parser::parse_declarations(css::origin::style_attribute, "", text);
    (void)css::parser::parse_value("", text);
    (void)css::selector::parse_selector_text(text, {});
    if (auto q = css::media::parse_query_text(text)) {
        (void)css::media::matches(*q, "print");
    }
    (void)css::parser::decode_sheet(text);
    return 0;
}
