#include "text/opentype/woff.hpp"

#include <algorithm>

#include <zlib.h>

namespace vellum::opentype::woff {

using reader::cursor;
using reader::data;

namespace {

// zlib's deflate cannot do better than about 1032 to 1, so a table claiming more than that is a lie
// (and a way to make the reader allocate without bound).
constexpr std::uint64_t max_ratio = 1032;

// Stated sfnt sizes are capped well above any real font.
constexpr std::uint64_t max_sfnt_size = 256u << 20;

struct woff_table {
    std::uint32_t table_tag = 0;
    std::uint32_t table_offset = 0;
    std::uint32_t table_comp_length = 0;
    std::uint32_t table_orig_length = 0;
    std::uint32_t table_orig_checksum = 0;
};

void put_u16(std::vector<std::uint8_t>& out, std::size_t at, std::uint16_t v) {
    out[at] = std::uint8_t(v >> 8);
    out[at + 1] = std::uint8_t(v);
}

void put_u32(std::vector<std::uint8_t>& out, std::size_t at, std::uint32_t v) {
    for (int i = 0; i < 4; ++i) {
        out[at + i] = std::uint8_t(v >> (24 - 8 * i));
    }
}

} // namespace

bool is_woff(data d) {
    return reader::read_u32(d, 0) == reader::make_tag("wOFF");
}

result<std::vector<std::uint8_t>> decode_woff(data d) {
    cursor c{.cursor_data = d};
    if (c.u32() != reader::make_tag("wOFF")) {
        return fail("WOFF file: bad signature");
    }
    auto const flavor = c.u32();
    auto const length = c.u32();
    auto const num_tables = c.u16();
    c.skip(2); // reserved
    c.skip(4); // totalSfntSize: recomputed below
    c.skip(24); // versions, metadata and private blocks
    if (!c.ok()) {
        return fail("WOFF file: truncated header");
    }
    if (length != d.size()) {
        return fail("WOFF file: header length " + std::to_string(length) + " differs from file size " +
                    std::to_string(d.size()));
    }
    if (num_tables == 0 || !c.has(std::size_t(num_tables) * 20)) {
        return fail("WOFF file: truncated table directory");
    }
    std::vector<woff_table> tables;
    std::uint64_t total = 12 + 16 * std::uint64_t(num_tables);
    for (std::uint16_t i = 0; i < num_tables; ++i) {
        woff_table t{.table_tag = c.u32(),
                     .table_offset = c.u32(),
                     .table_comp_length = c.u32(),
                     .table_orig_length = c.u32(),
                     .table_orig_checksum = c.u32()};
        if (!reader::slice(d, t.table_offset, t.table_comp_length)) {
            return fail("WOFF file: table '" + reader::tag_text(t.table_tag) + "' lies outside the file");
        }
        if (t.table_comp_length > t.table_orig_length ||
            std::uint64_t(t.table_orig_length) > std::uint64_t(t.table_comp_length) * max_ratio + 64) {
            return fail("WOFF file: impossible lengths for table '" + reader::tag_text(t.table_tag) + "'");
        }
        total += (std::uint64_t(t.table_orig_length) + 3) & ~std::uint64_t(3);
        if (total > max_sfnt_size) {
            return fail("WOFF file: tables too large");
        }
        tables.push_back(t);
    }

    // The sfnt header, with the binary-search fields derived from the table count.
    std::vector<std::uint8_t> out(std::size_t(total), 0);
    std::uint16_t selector = 0;
    while ((2u << selector) <= num_tables) {
        ++selector;
    }
    std::uint16_t const search_range = std::uint16_t(16u << selector);
    put_u32(out, 0, flavor);
    put_u16(out, 4, num_tables);
    put_u16(out, 6, search_range);
    put_u16(out, 8, selector);
    put_u16(out, 10, std::uint16_t(16 * num_tables - search_range));

    // The sfnt directory must be sorted by tag; WOFF keeps that order, but a file that does not is
    // put right rather than refused.
    std::vector<std::size_t> order(tables.size());
    for (std::size_t i = 0; i < order.size(); ++i) {
        order[i] = i;
    }
    std::stable_sort(order.begin(), order.end(),
                     [&](std::size_t a, std::size_t b) { return tables[a].table_tag < tables[b].table_tag; });

    std::size_t at = 12 + 16 * std::size_t(num_tables);
    std::size_t entry = 12;
    for (auto i : order) {
        auto const& t = tables[i];
        put_u32(out, entry, t.table_tag);
        put_u32(out, entry + 4, t.table_orig_checksum);
        put_u32(out, entry + 8, std::uint32_t(at));
        put_u32(out, entry + 12, t.table_orig_length);
        entry += 16;
        auto const src = d.subspan(t.table_offset, t.table_comp_length);
        if (t.table_comp_length == t.table_orig_length) {
            std::copy(src.begin(), src.end(), out.begin() + std::ptrdiff_t(at));
        } else {
            uLongf dest_len = t.table_orig_length;
            auto const rc = uncompress(out.data() + at, &dest_len, src.data(), uLong(src.size()));
            if (rc != Z_OK || dest_len != t.table_orig_length) {
                return fail("WOFF file: table '" + reader::tag_text(t.table_tag) + "' does not inflate");
            }
        }
        at += (std::size_t(t.table_orig_length) + 3) & ~std::size_t(3);
    }
    return out;
}

} // namespace vellum::opentype::woff
