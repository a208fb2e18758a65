#include "document/html5/entities.hpp"

#include <algorithm>
#include <iterator>

namespace vellum::html5::entities {

namespace {

constexpr entity table[] = {
#include "document/html5/entities_table.inc"
};

// The longest name in the table is "CounterClockwiseContourIntegral;".
constexpr std::size_t longest_name = 32;

} // namespace

std::optional<entity> longest_prefix_match(std::string_view candidate) {
    // Every name is a run of ASCII letters and digits, ended by ';' or (for the legacy names) not.
    // Try the prefixes from the longest down; each try is one binary search over the sorted table.
    std::size_t n = std::min(candidate.size(), longest_name);
    for (std::size_t len = n; len > 0; --len) {
        std::string_view prefix = candidate.substr(0, len);
        auto at = std::lower_bound(std::begin(table), std::end(table), prefix,
                                   [](entity const& e, std::string_view key) { return e.entity_name < key; });
        if (at != std::end(table) && at->entity_name == prefix) {
            return *at;
        }
    }
    return std::nullopt;
}

std::size_t entity_count() {
    return std::size(table);
}

} // namespace vellum::html5::entities
