// Prints test names grouped by the reason they failed, the largest group first, with the first few
// names of each group: what the test262 runners print after their figures.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace vellum::tools {

inline void print_grouped(char const* title, std::map<std::string, std::vector<std::string>> const& groups,
                          std::size_t names_per_group) {
    std::vector<std::pair<std::string, std::vector<std::string>>> sorted(groups.begin(), groups.end());
    std::stable_sort(sorted.begin(), sorted.end(),
                     [](auto const& a, auto const& b) { return a.second.size() > b.second.size(); });
    std::printf("\n%s\n", title);
    for (auto const& [reason, names] : sorted) {
        std::printf("  %4zu  %s\n", names.size(), reason.c_str());
        for (std::size_t i = 0; i < names.size() && i < names_per_group; ++i) {
            std::printf("          %s\n", names[i].c_str());
        }
    }
}

} // namespace vellum::tools
