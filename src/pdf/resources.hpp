// Names for the things a page uses through its resource dictionary (graphics-state dictionaries, say):
// each distinct thing is named once for the whole document, "prefix" and a number, and every page notes
// the names it used so that its own resource dictionary lists them.
#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

namespace vellum::pdf::resources {

template <class T>
struct resources {
    std::string resources_prefix;
    std::map<T, std::string> resources_map{};
    /// The names used on the page being written, in order of first use there.
    std::vector<std::pair<std::string, T>> resources_on_this_page{};
    int resources_index = 1;
};

/// The name of a thing, given at first use in the document; the thing is noted for the current page.
template <class T>
std::string name_of(resources<T>& r, T const& thing) {
    auto it = r.resources_map.find(thing);
    if (it == r.resources_map.end()) {
        it = r.resources_map.emplace(thing, r.resources_prefix + std::to_string(r.resources_index++)).first;
    }
    for (auto const& [name, _] : r.resources_on_this_page) {
        if (name == it->second) {
            return it->second;
        }
    }
    r.resources_on_this_page.emplace_back(it->second, thing);
    return it->second;
}

/// Starts a new page: names stay, the page's list empties.
template <class T>
void new_page(resources<T>& r) {
    r.resources_on_this_page.clear();
}

} // namespace vellum::pdf::resources
