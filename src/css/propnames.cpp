#include "css/propnames.hpp"

#include <array>
#include <cstdint>

namespace vellum::css::propnames {

namespace {

struct hash_entry {
    std::string_view entry_name;
    prop_name entry_prop;
    std::int16_t entry_next;
};

#include "css/propnames_table.inc"

static_assert(names.size() == prop_name_count);

// A rolling hash folded into 512 buckets; the generator uses the same function to lay out the chains.
constexpr unsigned bucket_of(std::string_view name) {
    std::uint32_t h = 0;
    for (char const c : name) {
        h = h * 49 + static_cast<unsigned char>(c);
    }
    return (h & 511u) ^ (static_cast<std::uint32_t>(name.size()) & 511u);
}

} // namespace

std::optional<prop_name> lookup_property(std::string_view name) {
    for (int i = buckets[bucket_of(name)]; i >= 0; i = entries[static_cast<std::size_t>(i)].entry_next) {
        auto const& e = entries[static_cast<std::size_t>(i)];
        if (e.entry_name == name) {
            return e.entry_prop;
        }
    }
    return std::nullopt;
}

bool known_property(std::string_view name) {
    return lookup_property(name).has_value();
}

std::string_view css_name(prop_name p) {
    return names[static_cast<std::size_t>(p)];
}

name_kind kind_of(prop_name p) {
    return kinds[static_cast<std::size_t>(p)];
}

std::string script_name(prop_name p) {
    std::string_view name = css_name(p);
    // "-vellum-x" reads as "vellum-x": the leading dash would otherwise capitalise the prefix.
    if (name.starts_with('-')) {
        name.remove_prefix(1);
    }
    std::string out;
    bool upper = false;
    for (char const c : name) {
        if (c == '-') {
            upper = true;
        } else {
            out += upper && c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
            upper = false;
        }
    }
    return out;
}

} // namespace vellum::css::propnames
