#include "prepack/targets.hpp"

namespace vellum::prepack::targets {

target_key key_of(resource::locator::locator_url const& doc, std::optional<std::string> const& id) {
    return resource::locator::locator_url_to_string(doc) + "#" + id.value_or("");
}

target_key key_of(target_name const& t) {
    return key_of(t.target_docname, t.target_id);
}

target_name target_of(std::string_view url_text, resource::locator::locator const& doc,
                      resource::locator::locator const& base) {
    if (url_text.starts_with('#')) {
        return {.target_docname = doc.locator_url, .target_id = std::string(url_text.substr(1))};
    }
    auto const l = resource::locator::resolve_locator(base, url_text);
    return {.target_docname = l.locator_url, .target_id = l.locator_fragment};
}

} // namespace vellum::prepack::targets
