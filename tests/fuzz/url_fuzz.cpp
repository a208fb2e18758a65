// Fuzz target for URLs and locators: parsing with and without a base, serialising, parsing the
// serialised form again (which must give the same text), checking that a URL with a scheme reads the
// same whatever the base, percent-decoding and data URLs.
#include "resource/locator.hpp"
#include "resource/url.hpp"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

namespace {

using namespace vellum;

// A parse that succeeded, with its text.
struct reading {
    urlspec::url url;
    std::string text;
};

std::optional<reading> read(urlspec::parse_url_option const& option, std::string_view text) {
    auto const p = urlspec::parse_url(option, text);
    auto const* ok = std::get_if<urlspec::ok>(&p.parse_result);
    if (!ok) {
        return std::nullopt;
    }
    return reading{ok->url,
                   urlspec::serialise_url(urlspec::serialise_option::include_fragment, ok->url, ok->scheme_data)};
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    std::string_view const text(reinterpret_cast<char const*>(data), size);
    static urlspec::url const base = urlspec::det_parse_url("http://user@example.com:8080/a/b/c?q#f");
    auto const against_base = read(urlspec::normal{base}, text);
    auto const no_base = read(urlspec::normal_no_base{}, text);
    auto const kept = read(urlspec::no_base_keep_leading_dot_dots{}, text);
    for (auto const* once : {&against_base, &no_base}) {
        if (!*once) {
            continue;
        }
        // An absolute URL that this parser wrote must read back to itself.
        auto const twice = read(urlspec::normal_no_base{}, (*once)->text);
        if (twice && twice->text != (*once)->text) {
            std::abort();
        }
    }
    if (no_base) {
        // Keeping relative references changes nothing for a URL with a scheme.
        if (!kept || kept->text != no_base->text) {
            std::abort();
        }
        // Nor does a base, unless it has the same scheme: "http:g" against an http base is a reference
        // relative to it, as browsers read it, while with no base or any other it names the host "g".
        if (no_base->url.scheme != base.scheme && (!against_base || against_base->text != no_base->text)) {
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
