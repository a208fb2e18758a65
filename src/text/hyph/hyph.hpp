// The run-wide cache of hyphenation patterns: each pattern file is read once, and a file that failed
// to load stays in the cache as absent, so that its error is reported once.
#pragma once

#include "css/value.hpp"
#include "resource/loader.hpp"
#include "resource/locator.hpp"
#include "text/hyph/hyphen_parser.hpp"
#include "util/cell.hpp"
#include "util/ref.hpp"

#include <optional>
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

/// The cache of a run; its cell is read and written under the process-wide lock.
struct hyph {
    cell<std::vector<hyphen_dictionary>> hyph_dictionaries;
};

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
