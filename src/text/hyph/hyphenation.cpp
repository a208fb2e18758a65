#include "text/hyph/hyphenation.hpp"

#include <algorithm>

namespace vellum::hyphenation {

using hyphen_parser::pattern_type;

namespace {

// The word without its leading and trailing punctuation: quotes, brackets, full stops and dashes
// around a word take no part in matching and never start or end a part of their own.
std::u32string_view letters_of(std::u32string_view word, std::size_t& leading) {
    std::size_t first = 0;
    while (first < word.size() && unicode::is_punctuation(word[first])) {
        ++first;
    }
    std::size_t last = word.size();
    while (last > first && unicode::is_punctuation(word[last - 1])) {
        --last;
    }
    leading = first;
    return word.substr(first, last - first);
}

bool kept(pattern_type type, bool at_start, bool at_end) {
    switch (type) {
    case pattern_type::any:
        return true;
    case pattern_type::front:
        return at_start;
    case pattern_type::end:
        return at_end;
    case pattern_type::whole:
        return at_start && at_end;
    }
    return false;
}

std::vector<int>
positions_in(hyphen_parser::hyphen_rules const& rules, int before, int after, std::u32string_view letters) {
    int const length = static_cast<int>(letters.size());
    // A break needs a letter on each side, whatever the limits say.
    int const lowest = std::max(before, 1);
    int const highest = std::min(length - after, length - 1);
    if (lowest > highest) {
        return {};
    }
    unicode::unicodes const search = unicode::to_lower(letters);

    // priority[k] is the highest priority of any matching pattern between letters k - 1 and k.
    std::vector<int> priority(letters.size() + 1, 0);
    for (int start = 0; start < length; ++start) {
        std::vector<hyphen_parser::hyphen_rule> const* branches = &rules;
        for (int at = start; at < length; ++at) {
            hyphen_parser::node_info const* node = hyphen_parser::find_branch(*branches, search[at]);
            if (node == nullptr) {
                break;
            }
            bool const at_end = at == length - 1;
            for (hyphen_parser::hyphen_info const& info : node->endable) {
                if (!kept(info.info_type, start == 0, at_end)) {
                    continue;
                }
                for (hyphen_parser::hyphen_point const& point : info.info_points) {
                    int& p = priority[point.point_index + start];
                    p = std::max(p, point.point_priority);
                }
            }
            branches = &node->branches;
        }
    }

    std::vector<int> positions;
    for (int k = lowest; k <= highest; ++k) {
        if (priority[k] % 2 == 1) {
            positions.push_back(k);
        }
    }
    return positions;
}

} // namespace

std::vector<int>
hyphen_positions(hyphen_parser::hyphen_rules const& rules, int before, int after, std::u32string_view word) {
    std::size_t leading = 0;
    return positions_in(rules, before, after, letters_of(word, leading));
}

std::vector<unicode::unicodes>
hyphenate(hyphen_parser::hyphen_rules const& rules, int before, int after, std::u32string_view word) {
    std::size_t leading = 0;
    std::vector<int> const positions = positions_in(rules, before, after, letters_of(word, leading));
    std::vector<unicode::unicodes> parts;
    std::size_t from = 0;
    for (int const k : positions) {
        std::size_t const cut = leading + static_cast<std::size_t>(k);
        parts.emplace_back(word.substr(from, cut - from));
        from = cut;
    }
    parts.emplace_back(word.substr(from));
    return parts;
}

} // namespace vellum::hyphenation
