// Fuzz target for URLs and locators: parsing with and without a base, serialising, parsing the
// serialised form again (which must give the same text), percent-decoding and data URLs.
#include "resource/locator.hpp"
#include "resource/url.hpp"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

namespace {

using namespace vellum;

// The text of a parse that succeeded, or nothing.
std::optional<std::string> serialised(urlspec::parse_url_option const& option, std::string_view text) {
    auto const p = urlspec::parse_url(option, text);
    auto const* ok = std::get_if<urlspec::ok>(&p.parse_result);
    if (!ok) {
        return std::nullopt;
    }
    return urlspec::serialise_url(urlspec::serialise_option::include_fragment, ok->url, ok->scheme_data);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    std::string_view const text(reinterpret_cast<char const*>(data), size);
    static urlspec::url const base = urlspec::det_parse_url("http://user@example.com:8080/a/b/c?q#f");
    urlspec::parse_url_option const options[] = {urlspec::normal{base}, urlspec::normal_no_base{},
                                                 urlspec::no_base_keep_leading_dot_dots{}};
    for (auto const& option : options) {
        auto const once = serialised(option, text);
        if (!once || std::holds_alternative<urlspec::no_base_keep_leading_dot_dots>(option)) {
            continue;
        }
        // An absolute URL that this parser wrote must read back to itself.
        auto const twice = serialised(urlspec::normal_no_base{}, *once);
        if (twice && *twice != *once) {
            std::abort();
        }
    }
    for (auto mode : {url::decode_mode::decode_mode_url, url::decode_mode::decode_mode_component,
                      url::decode_mode::decode_mode_filename}) {
        (void)url::percent_decode(mode, text);
    }
    auto const l = resource::locator::parse_locator(resource::locator::path_or_url::path_or_url,
                                                    resource::locator::locator_origin::document_origin,
                                                    std::nullopt, text);
    (void)resource::locator::locator_to_string(l);
    (void)resource::locator::resolve_locator(l, "../x/./y?z#w");
    (void)dataurl::parse_data_url(text);
    return 0;
}
