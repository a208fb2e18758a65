#include "text/opentype/layout.hpp"

#include "util/result.hpp"

#include <string>

namespace vellum::opentype::layout {

namespace {

void need(data d, std::size_t offset, std::size_t width, std::size_t align, char const* name) {
    if (offset > d.size() || d.size() - offset < width) {
        throw internal_error(std::string(name) + ": offset out of bounds");
    }
    if (align > 1 && offset % align != 0) {
        throw internal_error(std::string(name) + ": unaligned offset");
    }
}

std::uint32_t be(data d, std::size_t offset, std::size_t width) {
    std::uint32_t v = 0;
    for (std::size_t i = 0; i < width; ++i) {
        v = (v << 8) | d[offset + i];
    }
    return v;
}

// The record of a tag in a list of (tag, offset16) records sorted by tag; fonts do not always keep
// them sorted, so the search is linear (the lists are short).
std::optional<std::size_t> find_tagged(data d, std::size_t list, std::size_t base, tag t) {
    auto const count = get_uint16(d, list);
    for (std::uint16_t i = 0; i < count; ++i) {
        std::size_t const rec = list + 2 + 6 * std::size_t(i);
        if (get_unaligned_uint32(d, rec) == t) {
            return add_offset(d, base, get_uint16(d, rec + 4));
        }
    }
    return std::nullopt;
}

std::optional<lang_sys> langsys_of_script(data table, std::size_t script, tag language) {
    if (language != 0) {
        if (auto const l = find_tagged(table, script + 2, script, language)) {
            return lang_sys{*l};
        }
    }
    if (auto const def = optional_offset16(table, script, 0)) {
        return lang_sys{*def};
    }
    // A script with language systems but no default: the first one stands in.
    if (get_uint16(table, script + 2) > 0) {
        return lang_sys{add_offset(table, script, get_uint16(table, script + 8))};
    }
    return std::nullopt;
}

} // namespace

std::uint16_t get_uint16(data d, std::size_t offset) {
    need(d, offset, 2, 2, "get_uint16");
    return std::uint16_t(be(d, offset, 2));
}

std::int16_t get_int16(data d, std::size_t offset) {
    need(d, offset, 2, 2, "get_int16");
    return std::int16_t(be(d, offset, 2));
}

std::uint32_t get_uint32(data d, std::size_t offset) {
    need(d, offset, 4, 2, "get_uint32");
    return be(d, offset, 4);
}

std::int32_t get_int32(data d, std::size_t offset) {
    need(d, offset, 4, 2, "get_int32");
    return std::int32_t(be(d, offset, 4));
}

std::uint32_t get_unaligned_uint32(data d, std::size_t offset) {
    need(d, offset, 4, 1, "get_unaligned_uint32");
    return be(d, offset, 4);
}

std::size_t add_offset(data d, std::size_t base, std::uint32_t offset) {
    if (offset == 0) {
        throw internal_error("add_offset: zero offset");
    }
    if (base + std::size_t(offset) >= d.size()) {
        throw internal_error("add_offset: out of bounds");
    }
    return base + offset;
}

std::optional<std::size_t> optional_offset16(data d, std::size_t base, std::size_t field) {
    auto const o = get_uint16(d, base + field);
    if (o == 0) {
        return std::nullopt;
    }
    return add_offset(d, base, o);
}

std::optional<lang_sys> find_script_langsys(data table, std::vector<tag> const& scripts, tag language) {
    if (table.size() < 10) {
        return std::nullopt;
    }
    auto const list = optional_offset16(table, 0, 4);
    if (!list) {
        return std::nullopt;
    }
    for (tag s : scripts) {
        if (auto const script = find_tagged(table, *list, *list, s)) {
            return langsys_of_script(table, *script, language);
        }
    }
    for (tag s : {reader::make_tag("DFLT"), reader::make_tag("dflt"), reader::make_tag("latn")}) {
        if (auto const script = find_tagged(table, *list, *list, s)) {
            return langsys_of_script(table, *script, language);
        }
    }
    return std::nullopt;
}

std::optional<feature> find_feature(data table, lang_sys const& sys, tag feature_tag) {
    auto const list = optional_offset16(table, 0, 6);
    if (!list) {
        return std::nullopt;
    }
    auto const feature_count = get_uint16(table, *list);
    auto try_index = [&](std::uint16_t index) -> std::optional<feature> {
        if (index >= feature_count) {
            return std::nullopt;
        }
        std::size_t const rec = *list + 2 + 6 * std::size_t(index);
        if (get_unaligned_uint32(table, rec) != feature_tag) {
            return std::nullopt;
        }
        return feature{add_offset(table, *list, get_uint16(table, rec + 4))};
    };
    std::size_t const pos = sys.lang_sys_pos;
    if (auto const required = get_uint16(table, pos + 2); required != 0xFFFF) {
        if (auto f = try_index(required)) {
            return f;
        }
    }
    auto const count = get_uint16(table, pos + 4);
    for (std::uint16_t i = 0; i < count; ++i) {
        if (auto f = try_index(get_uint16(table, pos + 6 + 2 * std::size_t(i)))) {
            return f;
        }
    }
    return std::nullopt;
}

std::vector<std::uint16_t> feature_lookups(data table, feature const& f) {
    auto const count = get_uint16(table, f.feature_pos + 2);
    std::vector<std::uint16_t> out;
    out.reserve(count);
    for (std::uint16_t i = 0; i < count; ++i) {
        out.push_back(get_uint16(table, f.feature_pos + 4 + 2 * std::size_t(i)));
    }
    return out;
}

std::uint16_t lookup_count(data table) {
    auto const list = optional_offset16(table, 0, 8);
    return list ? get_uint16(table, *list) : 0;
}

lookup get_lookup(data table, std::uint16_t index) {
    auto const list = add_offset(table, 0, get_uint16(table, 8));
    if (index >= get_uint16(table, list)) {
        throw internal_error("get_lookup: lookup index out of range: " + std::to_string(index));
    }
    std::size_t const pos = add_offset(table, list, get_uint16(table, list + 2 + 2 * std::size_t(index)));
    lookup l{.lookup_pos = pos,
             .lookup_type = get_uint16(table, pos),
             .lookup_flag = get_uint16(table, pos + 2),
             .lookup_subtable_count = get_uint16(table, pos + 4)};
    if (l.lookup_flag & lookup_use_mark_filtering_set) {
        l.lookup_mark_filtering_set = get_uint16(table, pos + 6 + 2 * std::size_t(l.lookup_subtable_count));
    }
    return l;
}

std::size_t subtable_pos(data table, lookup const& l, std::uint16_t i) {
    return add_offset(table, l.lookup_pos, get_uint16(table, l.lookup_pos + 6 + 2 * std::size_t(i)));
}

std::optional<std::uint16_t> coverage_index(data table, std::size_t coverage, std::uint32_t glyph) {
    auto const format = get_uint16(table, coverage);
    auto const count = get_uint16(table, coverage + 2);
    if (format == 1) {
        std::size_t lo = 0;
        std::size_t hi = count;
        while (lo < hi) {
            std::size_t const mid = (lo + hi) / 2;
            auto const g = get_uint16(table, coverage + 4 + 2 * mid);
            if (g == glyph) {
                return std::uint16_t(mid);
            }
            if (g < glyph) {
                lo = mid + 1;
            } else {
                hi = mid;
            }
        }
        return std::nullopt;
    }
    if (format == 2) {
        std::size_t lo = 0;
        std::size_t hi = count;
        while (lo < hi) {
            std::size_t const mid = (lo + hi) / 2;
            std::size_t const rec = coverage + 4 + 6 * mid;
            auto const start = get_uint16(table, rec);
            auto const end = get_uint16(table, rec + 2);
            if (glyph < start) {
                hi = mid;
            } else if (glyph > end) {
                lo = mid + 1;
            } else {
                return std::uint16_t(get_uint16(table, rec + 4) + (glyph - start));
            }
        }
        return std::nullopt;
    }
    return std::nullopt;
}

std::uint16_t class_of(data table, std::size_t class_def, std::uint32_t glyph) {
    auto const format = get_uint16(table, class_def);
    if (format == 1) {
        auto const start = get_uint16(table, class_def + 2);
        auto const count = get_uint16(table, class_def + 4);
        if (glyph < start || glyph >= std::uint32_t(start) + count) {
            return 0;
        }
        return get_uint16(table, class_def + 6 + 2 * std::size_t(glyph - start));
    }
    if (format == 2) {
        std::size_t lo = 0;
        std::size_t hi = get_uint16(table, class_def + 2);
        while (lo < hi) {
            std::size_t const mid = (lo + hi) / 2;
            std::size_t const rec = class_def + 4 + 6 * mid;
            auto const start = get_uint16(table, rec);
            auto const end = get_uint16(table, rec + 2);
            if (glyph < start) {
                hi = mid;
            } else if (glyph > end) {
                lo = mid + 1;
            } else {
                return get_uint16(table, rec + 4);
            }
        }
    }
    return 0;
}

gdef read_gdef(data d) {
    gdef g{.gdef_data = d};
    if (d.size() < 12) {
        return g;
    }
    g.gdef_glyph_class_def = optional_offset16(d, 0, 4);
    g.gdef_mark_attach_class_def = optional_offset16(d, 0, 10);
    // Version 1.2 adds the mark glyph sets.
    if (get_uint16(d, 2) >= 2 && d.size() >= 14) {
        g.gdef_mark_glyph_sets = optional_offset16(d, 0, 12);
    }
    return g;
}

glyph_class glyph_class_of(gdef const& g, std::uint32_t glyph) {
    if (!g.gdef_glyph_class_def) {
        return glyph_class::unclassified;
    }
    auto const c = class_of(g.gdef_data, *g.gdef_glyph_class_def, glyph);
    return c <= 4 ? glyph_class(c) : glyph_class::unclassified;
}

std::uint16_t mark_attach_class_of(gdef const& g, std::uint32_t glyph) {
    if (!g.gdef_mark_attach_class_def) {
        return 0;
    }
    return class_of(g.gdef_data, *g.gdef_mark_attach_class_def, glyph);
}

bool in_mark_set(gdef const& g, std::uint16_t set, std::uint32_t glyph) {
    if (!g.gdef_mark_glyph_sets) {
        return false;
    }
    auto const pos = *g.gdef_mark_glyph_sets;
    if (set >= get_uint16(g.gdef_data, pos + 2)) {
        return false;
    }
    auto const cov = add_offset(g.gdef_data, pos, get_uint32(g.gdef_data, pos + 4 + 4 * std::size_t(set)));
    return coverage_index(g.gdef_data, cov, glyph).has_value();
}

} // namespace vellum::opentype::layout
