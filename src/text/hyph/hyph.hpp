// The run-wide cache of hyphenation patterns: each pattern file is read once, and a file that failed
// to load stays in the cache as absent, so that its error is reported once.
#pragma once

#include "css/value.hpp"
#include "resource/loader.hpp"
#include "resource/locator.hpp"
#include "text/hyph/hyphen_parser.hpp"
#include "text/unicode.hpp"
#include "util/cell.hpp"
#include "util/ref.hpp"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace vellum::log {
struct log;
} // namespace vellum::log

namespace vellum::hyph {

/// One file of the cache: its path and its trie, absent when it could not be read.
struct hyphen_dictionary {
    virtual_path::physical_path dictionary_path;
    std::optional<ref<hyphen_parser::hyphen_rules>> dictionary_rules;
};

/// A word as one set of patterns and limits hyphenate it; looked up by a view of the word, kept with
/// a copy of it.
struct word_view {
    hyphen_parser::hyphen_rules const* view_rules = nullptr;
    int view_before = 0;
    int view_after = 0;
    std::u32string_view view_word;
    bool operator==(word_view const&) const = default;
};

struct word_key {
    hyphen_parser::hyphen_rules const* key_rules = nullptr;
    int key_before = 0;
    int key_after = 0;
    std::u32string key_word;
    word_view view() const { return {key_rules, key_before, key_after, key_word}; }
};

struct word_key_hash {
    using is_transparent = void;
    std::size_t operator()(word_view const& k) const noexcept;
    std::size_t operator()(word_key const& k) const noexcept { return (*this)(k.view()); }
};

struct word_key_equal {
    using is_transparent = void;
    bool operator()(word_key const& a, word_key const& b) const { return a.view() == b.view(); }
    bool operator()(word_view const& a, word_key const& b) const { return a == b.view(); }
    bool operator()(word_key const& a, word_view const& b) const { return a.view() == b; }
};

/// The words hyphenated so far, with their parts. A book repeats its words: each is hyphenated once.
using hyphenated_words =
    std::unordered_map<word_key, ref<std::vector<unicode::unicodes>>, word_key_hash, word_key_equal>;

/// The cache of a run; its cells are read and written under the process-wide lock. The words are
/// known by the address of their patterns, which the dictionaries hold for the run.
struct hyph {
    cell<std::vector<hyphen_dictionary>> hyph_dictionaries;
    cell<hyphenated_words> hyph_words;
};

/// The parts of a word as `hyphenation::hyphenate` gives them for these patterns and limits, from the
/// run's cache when the word was met before.
[[nodiscard]] ref<std::vector<unicode::unicodes>> hyphenate(hyph& cache,
                                                            hyphen_parser::hyphen_rules const& rules,
                                                            int before,
                                                            int after,
                                                            std::u32string_view word);

/// The trie of the pattern file that a style names, loaded on first use. The name is resolved by the
/// loader's rule for file locators; a name that is not a readable file locator gives none. A file that
/// cannot be read or parsed logs an error with its path as source, the first time only.
[[nodiscard]] std::optional<ref<hyphen_parser::hyphen_rules>>
get_patterns(log::log const& log,
             hyph& cache,
             resource::loader::loader const& loader,
             resource::locator::locator const& pattern_name);

/// The trie of a style's `hyphenate-patterns` URL. A URL written in one of the program's own sheets
/// (its base a file under the prefix) names a file of the program; others are the document's.
[[nodiscard]] std::optional<ref<hyphen_parser::hyphen_rules>>
get_patterns_for_url(log::log const& log,
                     hyph& cache,
                     resource::loader::loader const& loader,
                     css::value::url const& url);

/// The same for a path on disk.
[[nodiscard]] std::optional<ref<hyphen_parser::hyphen_rules>>
get_patterns_at(log::log const& log, hyph& cache, virtual_path::physical_path const& path);

} // namespace vellum::hyph
