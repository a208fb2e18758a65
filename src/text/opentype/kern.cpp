#include "text/opentype/kern.hpp"

#include <algorithm>

namespace vellum::opentype::kern {

using reader::cursor;
using reader::data;

namespace {

// The pairs of a format 0 subtable body (from nPairs on).
result<std::vector<pair>> read_pairs(data body) {
    cursor c{.cursor_data = body};
    auto const count = c.u16();
    c.skip(6); // searchRange, entrySelector, rangeShift
    if (!c.ok() || !c.has(std::size_t(count) * 6)) {
        return fail("kern table: truncated pair list");
    }
    std::vector<pair> out;
    out.reserve(count);
    for (std::uint16_t i = 0; i < count; ++i) {
        auto const left = c.u16();
        auto const right = c.u16();
        out.push_back({.pair_key = (std::uint32_t(left) << 16) | right, .pair_value = c.i16()});
    }
    return out;
}

} // namespace

result<kern> parse_kern(data d) {
    cursor c{.cursor_data = d};
    auto const version = c.u16();
    std::vector<pair> all;
    if (version == 0) {
        // Windows: u16 nTables, then subtables with u16 version, u16 length, u16 coverage.
        auto const count = c.u16();
        if (!c.ok()) {
            return fail("kern table: truncated");
        }
        for (std::uint16_t i = 0; i < count && c.ok(); ++i) {
            auto const start = c.cursor_pos;
            c.skip(2);
            auto const length = c.u16();
            auto const coverage = c.u16();
            if (!c.ok()) {
                break;
            }
            bool const horizontal = coverage & 1;
            bool const minimum = coverage & 2;
            bool const cross = coverage & 4;
            auto const format = coverage >> 8;
            // Some fonts put a single large subtable whose 16-bit length wrapped around; the pair count
            // then says how far it goes, so the body runs to the end of the table.
            auto const body = d.subspan(start + 6);
            if (format == 0 && horizontal && !minimum && !cross) {
                auto pairs = read_pairs(body);
                if (!pairs) {
                    return fail(pairs.error());
                }
                all.insert(all.end(), pairs->begin(), pairs->end());
            }
            if (length < 6) {
                break;
            }
            c.seek(start + length);
        }
    } else if (version == 1) {
        // Apple: Fixed version 1.0, u32 nTables, subtables with u32 length, u8 coverage, u8 format,
        // u16 tupleIndex.
        c.skip(2);
        auto const count = c.u32();
        if (!c.ok()) {
            return fail("kern table: truncated");
        }
        for (std::uint32_t i = 0; i < count && c.ok(); ++i) {
            auto const start = c.cursor_pos;
            auto const length = c.u32();
            auto const coverage = c.u8();
            auto const format = c.u8();
            c.skip(2);
            if (!c.ok()) {
                break;
            }
            bool const vertical = coverage & 0x80;
            bool const cross = coverage & 0x40;
            bool const variation = coverage & 0x20;
            if (format == 0 && !vertical && !cross && !variation) {
                auto pairs = read_pairs(d.subspan(start + 8));
                if (!pairs) {
                    return fail(pairs.error());
                }
                all.insert(all.end(), pairs->begin(), pairs->end());
            }
            if (length < 8) {
                break;
            }
            c.seek(start + std::size_t(length));
        }
    } else {
        return fail("kern table: unknown version " + std::to_string(version));
    }
    std::stable_sort(all.begin(), all.end(), [](pair const& a, pair const& b) { return a.pair_key < b.pair_key; });
    kern k;
    for (auto const& p : all) {
        if (!k.kern_pairs.empty() && k.kern_pairs.back().pair_key == p.pair_key) {
            k.kern_pairs.back().pair_value = std::int16_t(k.kern_pairs.back().pair_value + p.pair_value);
        } else {
            k.kern_pairs.push_back(p);
        }
    }
    return k;
}

std::int32_t kerning(kern const& k, std::uint32_t left, std::uint32_t right) {
    if (left > 0xFFFF || right > 0xFFFF) {
        return 0;
    }
    std::uint32_t const key = (left << 16) | right;
    auto it = std::lower_bound(k.kern_pairs.begin(), k.kern_pairs.end(), key,
                               [](pair const& p, std::uint32_t v) { return p.pair_key < v; });
    return it != k.kern_pairs.end() && it->pair_key == key ? it->pair_value : 0;
}

} // namespace vellum::opentype::kern
