#include "text/hyph/hyph.hpp"

#include "driver/log.hpp"
#include "text/hyph/hyphenation.hpp"

#include <algorithm>

namespace vellum::hyph {

namespace {

using entry = std::optional<ref<hyphen_parser::hyphen_rules>>;

// The cached entry for a path: absent when the path has not been tried, else the outcome.
std::optional<entry> lookup(hyph& cache, virtual_path::physical_path const& path) {
    return cache.hyph_dictionaries.update(
        [&](std::vector<hyphen_dictionary>& dictionaries) -> std::optional<entry> {
            auto const it =
                std::find_if(dictionaries.begin(), dictionaries.end(),
                             [&](hyphen_dictionary const& d) { return d.dictionary_path == path; });
            if (it == dictionaries.end()) {
                return std::nullopt;
            }
            return it->dictionary_rules;
        });
}

// Past this many words the cache starts again: text that never repeats (generated data, word lists)
// must not hold every word it hyphenated until the end.
constexpr std::size_t most_words = 1u << 16;

} // namespace

std::size_t word_key_hash::operator()(word_view const& k) const noexcept {
    return std::hash<std::u32string_view>{}(k.view_word) ^
           (std::hash<void const*>{}(k.view_rules) * 31 + std::size_t(k.view_before) * 7 + std::size_t(k.view_after));
}

ref<std::vector<unicode::unicodes>> hyphenate(hyph& cache,
                                              hyphen_parser::hyphen_rules const& rules,
                                              int before,
                                              int after,
                                              std::u32string_view word) {
    word_view const view{.view_rules = &rules, .view_before = before, .view_after = after, .view_word = word};
    auto known = cache.hyph_words.update([&](hyphenated_words& words) -> ref<std::vector<unicode::unicodes>> {
        auto const it = words.find(view);
        return it == words.end() ? nullptr : it->second;
    });
    if (known) {
        return known;
    }
    auto parts = share(hyphenation::hyphenate(rules, before, after, word));
    cache.hyph_words.update([&](hyphenated_words& words) {
        if (words.size() >= most_words) {
            words.clear();
        }
        words.emplace(word_key{.key_rules = &rules, .key_before = before, .key_after = after, .key_word = std::u32string(word)},
                      parts);
    });
    return parts;
}

std::optional<ref<hyphen_parser::hyphen_rules>>
get_patterns_at(log::log const& log, hyph& cache, virtual_path::physical_path const& path) {
    if (auto cached = lookup(cache, path)) {
        return *cached;
    }
    // The file is read outside the lock; only the look-up and the store hold it.
    entry loaded;
    auto rules = hyphen_parser::read_patterns(log, path);
    if (rules) {
        loaded = share(std::move(*rules));
    } else {
        log::log_file_message(log, log::level::error, path.path, rules.error());
    }
    return cache.hyph_dictionaries.update([&](std::vector<hyphen_dictionary>& dictionaries) -> entry {
        // Another holder of the cache may have stored the same file meanwhile: the first store stands.
        auto const it = std::find_if(dictionaries.begin(), dictionaries.end(),
                                     [&](hyphen_dictionary const& d) { return d.dictionary_path == path; });
        if (it != dictionaries.end()) {
            return it->dictionary_rules;
        }
        dictionaries.push_back(hyphen_dictionary{.dictionary_path = path, .dictionary_rules = loaded});
        return loaded;
    });
}

std::optional<ref<hyphen_parser::hyphen_rules>> get_patterns(log::log const& log,
                                                             hyph& cache,
                                                             resource::loader::loader const& loader,
                                                             resource::locator::locator const& pattern_name) {
    auto const path = resource::loader::resolve_filename(loader, pattern_name);
    if (!path) {
        return std::nullopt;
    }
    return get_patterns_at(log, cache, *path);
}

std::optional<ref<hyphen_parser::hyphen_rules>> get_patterns_for_url(log::log const& log,
                                                                     hyph& cache,
                                                                     resource::loader::loader const& loader,
                                                                     css::value::url const& url) {
    namespace loc = resource::locator;
    // The cascade records a URL of a program sheet against the sheet's path on disk; the locator of
    // that sheet is its place under the prefix with the system origin, which may read the patterns.
    std::string const prefix = loader.loader_prefix.path + "/";
    if (!url.url_base.empty() && url.url_base.starts_with(prefix)) {
        loc::locator const base{
            .locator_url = loc::file{.file_path = {url.url_base.substr(prefix.size() - 1)}},
            .locator_origin = loc::locator_origin::system_origin,
        };
        return get_patterns(log, cache, loader, loc::resolve_locator(base, url.url_text));
    }
    if (url.url_base.empty()) {
        return get_patterns(log, cache, loader,
                            loc::parse_locator(loc::path_or_url::url_strict, loc::locator_origin::document_origin,
                                               std::nullopt, url.url_text));
    }
    auto const base = loc::parse_locator(loc::path_or_url::path_or_url, loc::locator_origin::document_origin,
                                         std::nullopt, url.url_base);
    return get_patterns(log, cache, loader, loc::resolve_locator(base, url.url_text));
}

} // namespace vellum::hyph
