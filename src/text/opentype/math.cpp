#include "text/opentype/math.hpp"

#include "text/opentype/layout.hpp"

#include <algorithm>

namespace vellum::opentype::math {

using reader::cursor;
using reader::data;

namespace {

// A coverage table lists glyphs in the order of the records that follow it; this gives the glyph of
// each coverage index, by asking for every glyph the table can name. Coverage tables are short lists
// or ranges, so reading their entries straight is cheaper.
std::vector<std::uint16_t> covered_glyphs(data d, std::size_t pos) {
    std::vector<std::uint16_t> out;
    cursor c = reader::cursor_at(d, pos);
    auto const format = c.u16();
    auto const count = c.u16();
    if (format == 1) {
        for (std::uint16_t i = 0; i < count && c.ok(); ++i) {
            out.push_back(c.u16());
        }
    } else if (format == 2) {
        for (std::uint16_t i = 0; i < count && c.ok(); ++i) {
            auto const first = c.u16();
            auto const last = c.u16();
            auto const start_index = c.u16();
            if (!c.ok() || last < first) {
                break;
            }
            if (out.size() < std::size_t(start_index) + (last - first) + 1) {
                out.resize(std::size_t(start_index) + (last - first) + 1);
            }
            for (std::uint32_t g = first; g <= last; ++g) {
                out[start_index + (g - first)] = std::uint16_t(g);
            }
        }
    }
    if (!c.ok()) {
        out.clear();
    }
    return out;
}

// A table of per-glyph values: a coverage, a count, and one MathValueRecord (value and device offset)
// per covered glyph.
std::map<std::uint16_t, std::int16_t> glyph_values(data d, std::size_t pos) {
    std::map<std::uint16_t, std::int16_t> out;
    cursor c = reader::cursor_at(d, pos);
    auto const coverage = c.u16();
    auto const count = c.u16();
    if (!c.ok() || coverage == 0) {
        return out;
    }
    auto const glyphs = covered_glyphs(d, pos + coverage);
    for (std::uint16_t i = 0; i < count && i < glyphs.size(); ++i) {
        auto const v = c.i16();
        c.skip(2);
        if (!c.ok()) {
            break;
        }
        out[glyphs[i]] = v;
    }
    return out;
}

construction read_construction(data d, std::size_t pos) {
    construction out;
    cursor c = reader::cursor_at(d, pos);
    auto const assembly = c.u16();
    auto const count = c.u16();
    for (std::uint16_t i = 0; i < count && c.ok(); ++i) {
        auto const g = c.u16();
        auto const adv = c.u16();
        if (c.ok()) {
            out.construction_variants.push_back({.variant_glyph = g, .variant_advance = adv});
        }
    }
    if (assembly != 0) {
        cursor a = reader::cursor_at(d, pos + assembly);
        a.skip(4); // italics correction of the whole assembly
        auto const parts = a.u16();
        for (std::uint16_t i = 0; i < parts && a.ok(); ++i) {
            part p;
            p.part_glyph = a.u16();
            p.part_start_connector = a.u16();
            p.part_end_connector = a.u16();
            p.part_full_advance = a.u16();
            p.part_extender = (a.u16() & 1) != 0;
            if (a.ok()) {
                out.construction_parts.push_back(p);
            }
        }
    }
    return out;
}

std::map<std::uint16_t, construction>
constructions(data d, std::size_t variants, std::size_t coverage, std::size_t count, std::size_t offsets_at) {
    std::map<std::uint16_t, construction> out;
    if (coverage == 0) {
        return out;
    }
    auto const glyphs = covered_glyphs(d, variants + coverage);
    cursor c = reader::cursor_at(d, offsets_at);
    for (std::size_t i = 0; i < count && i < glyphs.size(); ++i) {
        auto const off = c.u16();
        if (!c.ok()) {
            break;
        }
        if (off != 0) {
            out[glyphs[i]] = read_construction(d, variants + off);
        }
    }
    return out;
}

} // namespace

result<math_table> parse_math(data d) {
    cursor c{.cursor_data = d};
    auto const major = c.u16();
    c.skip(2);
    auto const constants_at = c.u16();
    auto const glyph_info_at = c.u16();
    auto const variants_at = c.u16();
    if (!c.ok() || major != 1) {
        return fail("MATH table: bad header");
    }
    math_table out;
    if (constants_at != 0) {
        cursor k = reader::cursor_at(d, constants_at);
        for (std::size_t i = 0; i < constant_count; ++i) {
            out.math_constants[i] = k.i16();
            // The first four are plain numbers, the last one a percentage; the others are value
            // records with a device table offset after the value.
            if (i >= 4 && i + 1 < constant_count) {
                k.skip(2);
            }
        }
        if (!k.ok()) {
            return fail("MATH table: truncated constants");
        }
    }
    if (glyph_info_at != 0) {
        cursor g = reader::cursor_at(d, glyph_info_at);
        auto const italics = g.u16();
        auto const accents = g.u16();
        if (g.ok() && italics != 0) {
            out.italics_corrections = glyph_values(d, std::size_t(glyph_info_at) + italics);
        }
        if (g.ok() && accents != 0) {
            out.top_accent_attachments = glyph_values(d, std::size_t(glyph_info_at) + accents);
        }
    }
    if (variants_at != 0) {
        cursor v = reader::cursor_at(d, variants_at);
        out.min_connector_overlap = v.u16();
        auto const vert_cov = v.u16();
        auto const horiz_cov = v.u16();
        auto const vert_count = v.u16();
        auto const horiz_count = v.u16();
        if (!v.ok()) {
            return fail("MATH table: truncated variants");
        }
        std::size_t const offsets = std::size_t(variants_at) + 10;
        out.vertical_constructions = constructions(d, variants_at, vert_cov, vert_count, offsets);
        out.horizontal_constructions =
            constructions(d, variants_at, horiz_cov, horiz_count, offsets + 2 * std::size_t(vert_count));
    }
    return out;
}

std::optional<assembly_plan>
plan_assembly(std::vector<part> const& parts, double target, double min_overlap) {
    if (parts.empty()) {
        return std::nullopt;
    }
    bool const has_extender =
        std::any_of(parts.begin(), parts.end(), [](part const& p) { return p.part_extender; });
    // Every extender repeats the same number of times: the smallest number that, with the pieces
    // overlapping as little as allowed, reaches the target.
    auto sequence = [&](int repeats) {
        std::vector<part> seq;
        for (auto const& p : parts) {
            int const n = p.part_extender ? repeats : 1;
            for (int i = 0; i < n; ++i) {
                seq.push_back(p);
            }
        }
        return seq;
    };
    auto full = [](std::vector<part> const& seq) {
        double s = 0;
        for (auto const& p : seq) {
            s += p.part_full_advance;
        }
        return s;
    };
    int repeats = has_extender ? 1 : 1;
    auto seq = sequence(repeats);
    while (has_extender && repeats < 1000 && full(seq) - double(seq.size() - 1) * min_overlap < target) {
        seq = sequence(++repeats);
    }
    // Then the overlap grows, within what the connectors allow, so that the size comes as near the
    // target as it can.
    double overlap = min_overlap;
    if (seq.size() > 1) {
        double max_overlap = 1e9;
        for (std::size_t i = 0; i + 1 < seq.size(); ++i) {
            max_overlap = std::min<double>(
                max_overlap, std::min(seq[i].part_end_connector, seq[i + 1].part_start_connector));
        }
        double const wanted = (full(seq) - target) / double(seq.size() - 1);
        overlap = std::max(min_overlap, std::min(wanted, std::max(max_overlap, min_overlap)));
    }
    assembly_plan plan;
    double at = 0;
    for (std::size_t i = 0; i < seq.size(); ++i) {
        plan.plan_glyphs.emplace_back(seq[i].part_glyph, at);
        at += seq[i].part_full_advance - (i + 1 < seq.size() ? overlap : 0);
    }
    plan.plan_size = at;
    return plan;
}

} // namespace vellum::opentype::math
