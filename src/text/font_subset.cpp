#include "text/font_subset.hpp"

#include <algorithm>
#include <string>

namespace vellum::font_subset {

namespace {

using opentype::reader::make_tag;
using opentype::reader::tag;

struct table {
    tag table_tag = 0;
    std::vector<std::uint8_t> table_bytes;
    bool table_required = false;
};

std::uint16_t get16(std::vector<std::uint8_t> const& b, std::size_t at) {
    return static_cast<std::uint16_t>((b[at] << 8) | b[at + 1]);
}

std::uint32_t get32(std::vector<std::uint8_t> const& b, std::size_t at) {
    return (std::uint32_t(b[at]) << 24) | (std::uint32_t(b[at + 1]) << 16) | (std::uint32_t(b[at + 2]) << 8) |
           std::uint32_t(b[at + 3]);
}

void put16(std::vector<std::uint8_t>& b, std::size_t at, std::uint32_t v) {
    b[at] = static_cast<std::uint8_t>(v >> 8);
    b[at + 1] = static_cast<std::uint8_t>(v);
}

void put32(std::vector<std::uint8_t>& b, std::size_t at, std::uint32_t v) {
    b[at] = static_cast<std::uint8_t>(v >> 24);
    b[at + 1] = static_cast<std::uint8_t>(v >> 16);
    b[at + 2] = static_cast<std::uint8_t>(v >> 8);
    b[at + 3] = static_cast<std::uint8_t>(v);
}

void append16(std::vector<std::uint8_t>& b, std::uint32_t v) {
    b.push_back(static_cast<std::uint8_t>(v >> 8));
    b.push_back(static_cast<std::uint8_t>(v));
}

void append32(std::vector<std::uint8_t>& b, std::uint32_t v) {
    append16(b, v >> 16);
    append16(b, v & 0xffff);
}

std::size_t padded(std::size_t n) { return (n + 3) & ~std::size_t{3}; }

// The one-subtable "cmap": the Macintosh platform, format 0, a byte for each of the 256 codes.
std::vector<std::uint8_t> cmap_of(char_map_array const& map) {
    std::vector<std::uint8_t> out;
    append16(out, 0);   // version
    append16(out, 1);   // number of encoding records
    append16(out, 1);   // platform: Macintosh
    append16(out, 0);   // encoding: Roman
    append32(out, 12);  // offset of the subtable
    append16(out, 0);   // format 0
    append16(out, 262); // its length
    append16(out, 0);   // language
    out.insert(out.end(), map.begin(), map.end());
    return out;
}

// A glyph's place in the source "glyf", from "loca".
struct glyph_span {
    std::size_t glyph_offset = 0;
    std::size_t glyph_length = 0;
};

} // namespace

std::uint32_t table_checksum(std::span<std::uint8_t const> bytes) {
    if (bytes.size() < 4) {
        return 0;
    }
    std::uint32_t sum = 0;
    for (std::size_t i = 0; i < bytes.size(); i += 4) {
        std::uint32_t word = 0;
        for (std::size_t k = 0; k < 4; ++k) {
            word = (word << 8) | (i + k < bytes.size() ? bytes[i + k] : 0);
        }
        sum += word;
    }
    return sum;
}

result<subset> make_subset(table_reader const& read_table,
                           std::optional<char_map_array> const& char_map,
                           glyph_index_array const& glyphs) {
    // The new file's tables in directory order, which is ascending by tag.
    std::vector<table> tables;
    struct wanted {
        char const* name;
        bool required;
    };
    static constexpr wanted order[] = {
        {"cmap", true}, {"cvt ", false}, {"fpgm", false}, {"glyf", true}, {"head", true},  {"hhea", true},
        {"hmtx", true}, {"loca", true},  {"maxp", true},  {"name", false}, {"post", true}, {"prep", false},
    };
    for (auto const& w : order) {
        tag const t = make_tag(w.name);
        if (t == make_tag("cmap")) {
            if (char_map) {
                tables.push_back({t, cmap_of(*char_map), true});
            }
            continue;
        }
        auto bytes = read_table(t);
        if (!bytes) {
            if (w.required) {
                return fail(std::string("missing table ") + w.name);
            }
            continue;
        }
        tables.push_back({t, std::move(*bytes), w.required});
    }
    auto find = [&](char const* name) -> std::vector<std::uint8_t>& {
        tag const t = make_tag(name);
        return std::find_if(tables.begin(), tables.end(), [&](table const& x) { return x.table_tag == t; })
            ->table_bytes;
    };
    auto& head = find("head");
    auto& maxp = find("maxp");
    auto& hhea = find("hhea");
    auto const& hmtx = find("hmtx");
    auto const& loca = find("loca");
    auto& glyf = find("glyf");
    auto& post = find("post");
    if (head.size() < 54 || maxp.size() < 6 || hhea.size() < 36 || post.size() < 32) {
        return fail("malformed head, maxp, hhea or post table");
    }
    std::uint32_t const source_glyphs = get16(maxp, 4);
    bool const long_loca = get16(head, 50) != 0;
    if (loca.size() < (long_loca ? 4u : 2u) * (source_glyphs + 1)) {
        return fail("loca table too short");
    }
    auto span_of = [&](std::uint32_t g) -> std::optional<glyph_span> {
        std::size_t const start = long_loca ? get32(loca, 4 * g) : std::size_t{get16(loca, 2 * g)} * 2;
        std::size_t const end = long_loca ? get32(loca, 4 * (g + 1)) : std::size_t{get16(loca, 2 * (g + 1))} * 2;
        if (end < start || end > glyf.size()) {
            return std::nullopt;
        }
        return glyph_span{start, end - start};
    };

    // The working list: each new glyph with its place in the source. It grows as composites name
    // components that are not in it yet, and those are visited in their turn.
    std::vector<std::uint32_t> list;
    std::vector<glyph_span> spans;
    list.reserve(source_glyphs);
    for (std::uint32_t g : glyphs) {
        if (g >= source_glyphs) {
            return fail("glyph " + std::to_string(g) + " is not in the font");
        }
        list.push_back(g);
    }
    for (std::size_t i = 0; i < list.size(); ++i) {
        auto const span = span_of(list[i]);
        if (!span) {
            return fail("bad loca entry for glyph " + std::to_string(list[i]));
        }
        spans.push_back(*span);
        if (span->glyph_length < 10 || get16(glyf, span->glyph_offset) < 0x8000) {
            continue;
        }
        // A composite glyph: renumber each component, in place in our copy of "glyf".
        std::size_t at = span->glyph_offset + 10;
        std::size_t const end = span->glyph_offset + span->glyph_length;
        for (;;) {
            if (at + 4 > end) {
                return fail("truncated composite glyph " + std::to_string(list[i]));
            }
            std::uint16_t const flags = get16(glyf, at);
            std::uint32_t const component = get16(glyf, at + 2);
            if (component >= source_glyphs) {
                return fail("component glyph " + std::to_string(component) + " is not in the font");
            }
            auto const found = std::find(list.begin(), list.end(), component);
            std::size_t const number = static_cast<std::size_t>(found - list.begin());
            if (found == list.end()) {
                list.push_back(component);
            }
            put16(glyf, at + 2, static_cast<std::uint32_t>(number));
            std::size_t size = (flags & 0x0001) ? 8 : 6;
            if (flags & 0x0008) {
                size += 2;
            }
            if (flags & 0x0040) {
                size += 4;
            }
            if (flags & 0x0080) {
                size += 8;
            }
            at += size;
            if (!(flags & 0x0020)) {
                break;
            }
        }
    }
    std::uint32_t const count = static_cast<std::uint32_t>(list.size());

    // "glyf" and "loca" anew, the offsets in the source's format.
    std::vector<std::uint8_t> new_glyf;
    std::vector<std::uint8_t> new_loca;
    for (std::uint32_t i = 0; i <= count; ++i) {
        std::size_t const offset = new_glyf.size();
        if (long_loca) {
            append32(new_loca, static_cast<std::uint32_t>(offset));
        } else {
            append16(new_loca, static_cast<std::uint32_t>(offset / 2));
        }
        if (i < count) {
            auto const& s = spans[i];
            new_glyf.insert(new_glyf.end(), glyf.begin() + static_cast<std::ptrdiff_t>(s.glyph_offset),
                            glyf.begin() + static_cast<std::ptrdiff_t>(s.glyph_offset + s.glyph_length));
        }
    }

    // Every new glyph gets a full metrics pair: glyphs past the source's pairs take its last advance.
    std::uint32_t const old_metrics = get16(hhea, 34);
    if (old_metrics == 0 || hmtx.size() < 4 * old_metrics + 2 * (source_glyphs - std::min(source_glyphs, old_metrics))) {
        return fail("hmtx table too short");
    }
    std::vector<std::uint8_t> new_hmtx;
    for (std::uint32_t g : list) {
        if (g < old_metrics) {
            append16(new_hmtx, get16(hmtx, 4 * g));
            append16(new_hmtx, get16(hmtx, 4 * g + 2));
        } else {
            append16(new_hmtx, get16(hmtx, 4 * (old_metrics - 1)));
            append16(new_hmtx, get16(hmtx, 4 * old_metrics + 2 * (g - old_metrics)));
        }
    }
    put16(hhea, 34, count);
    put16(maxp, 4, count);
    // Post table version 3: no glyph names.
    post.resize(32);
    put32(post, 0, 0x00030000);
    put32(head, 8, 0);
    find("glyf") = std::move(new_glyf);
    find("loca") = std::move(new_loca);
    find("hmtx") = std::move(new_hmtx);

    // The file: header, directory, then the tables padded to four bytes.
    auto const table_count = static_cast<std::uint32_t>(tables.size());
    std::uint32_t selector = 0;
    while ((2u << selector) <= table_count) {
        ++selector;
    }
    std::uint32_t const search_range = 16u << selector;
    std::vector<std::uint8_t> header;
    append32(header, 0x00010000);
    append16(header, table_count);
    append16(header, search_range);
    append16(header, selector);
    append16(header, 16 * table_count - search_range);
    std::vector<std::uint8_t> directory;
    std::uint32_t offset = 12 + 16 * table_count;
    std::uint32_t sum = 0;
    std::size_t head_offset = 0;
    for (auto& t : tables) {
        std::size_t const length = t.table_bytes.size();
        t.table_bytes.resize(padded(length), 0);
        std::uint32_t const checksum = table_checksum(t.table_bytes);
        sum += checksum;
        append32(directory, t.table_tag);
        append32(directory, checksum);
        append32(directory, offset);
        append32(directory, static_cast<std::uint32_t>(length));
        if (t.table_tag == make_tag("head")) {
            head_offset = offset;
        }
        offset += static_cast<std::uint32_t>(t.table_bytes.size());
    }
    sum += table_checksum(directory) + table_checksum(header);
    subset out;
    out.subset_bytes.reserve(offset);
    out.subset_bytes.insert(out.subset_bytes.end(), header.begin(), header.end());
    out.subset_bytes.insert(out.subset_bytes.end(), directory.begin(), directory.end());
    for (auto const& t : tables) {
        out.subset_bytes.insert(out.subset_bytes.end(), t.table_bytes.begin(), t.table_bytes.end());
    }
    put32(out.subset_bytes, head_offset + 8, 0xB1B0AFBAu - sum);
    out.subset_glyphs = std::move(list);
    return out;
}

} // namespace vellum::font_subset
