#include "text/unicode/shaping_props.hpp"

#include <algorithm>
#include <iterator>

namespace vellum::unicode::shaping_props {

namespace {

struct combining_run {
    char32_t first;
    char32_t last;
    std::uint8_t value;
};

struct indic_entry {
    std::uint8_t entry_syllabic;
    std::uint8_t entry_positional;
};

struct indic_extra_entry {
    char32_t extra_cp;
    std::uint8_t extra_syllabic;
    std::uint8_t extra_positional;
};

struct indic_decomposition {
    char32_t whole;
    char32_t first;
    char32_t second;
};

struct canonical_composition {
    char32_t first;
    char32_t second;
    char32_t composite;
};

#include "text/unicode/shaping_props.inc"

std::optional<indic_entry> indic_of(char32_t cp) {
    if (cp >= indic_first && cp <= indic_last) {
        return indic_block[cp - indic_first];
    }
    for (auto const& e : indic_extras) {
        if (e.extra_cp == cp) {
            return indic_entry{e.extra_syllabic, e.extra_positional};
        }
    }
    return std::nullopt;
}

} // namespace

std::uint8_t combining_class(char32_t cp) {
    auto const it = std::upper_bound(std::begin(combining_runs), std::end(combining_runs), cp,
                                     [](char32_t c, combining_run const& r) { return c < r.first; });
    if (it == std::begin(combining_runs)) {
        return 0;
    }
    auto const& r = *std::prev(it);
    return cp <= r.last ? r.value : 0;
}

syllabic syllabic_category(char32_t cp) {
    auto const e = indic_of(cp);
    return e ? syllabic(e->entry_syllabic) : syllabic::other;
}

positional positional_category(char32_t cp) {
    auto const e = indic_of(cp);
    return e ? positional(e->entry_positional) : positional::na;
}

std::optional<char32_t> canonical_composition(char32_t first, char32_t second) {
    auto const key = std::pair{first, second};
    auto const it = std::lower_bound(std::begin(canonical_compositions), std::end(canonical_compositions), key,
                                     [](auto const& c, auto const& k) { return std::pair{c.first, c.second} < k; });
    if (it != std::end(canonical_compositions) && it->first == first && it->second == second) {
        return it->composite;
    }
    return std::nullopt;
}

std::optional<std::pair<char32_t, char32_t>> indic_decomposition(char32_t cp) {
    for (auto const& d : indic_decompositions) {
        if (d.whole == cp) {
            return std::pair{d.first, d.second};
        }
    }
    return std::nullopt;
}

} // namespace vellum::unicode::shaping_props
