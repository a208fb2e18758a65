#include "text/opentype/cmap.hpp"

#include <algorithm>
#include <array>

namespace vellum::opentype::cmap {

using reader::cursor;
using reader::data;

namespace {

bool known_format(std::uint16_t f) {
    return f == 0 || f == 2 || f == 4 || f == 6 || f == 10 || f == 12 || f == 13;
}

std::uint32_t lookup_format0(data d, std::uint32_t code) {
    if (code > 255) {
        return 0;
    }
    auto c = reader::cursor_at(d, 6 + code);
    auto const g = c.u8();
    return c.ok() ? g : 0;
}

// High-byte mapping through sub-headers, for the CJK double-byte encodings.
std::uint32_t lookup_format2(data d, std::uint32_t code) {
    if (code > 0xFFFF) {
        return 0;
    }
    // A single byte is one whose own key is 0 (sub-header 0); a double byte starts with a lead byte
    // whose key is not.
    bool const single = code <= 0xFF;
    auto const key = reader::read_u16(d, 6 + 2 * (single ? code : code >> 8));
    if (!key || (*key == 0) != single) {
        return 0;
    }
    auto const sub_index = *key / 8;
    std::uint32_t const byte = code & 0xFF;
    std::size_t const sub = 6 + 512 + std::size_t(sub_index) * 8;
    auto c = reader::cursor_at(d, sub);
    auto const first = c.u16();
    auto const count = c.u16();
    auto const delta = c.i16();
    auto const range_offset_pos = c.cursor_pos;
    auto const range_offset = c.u16();
    if (!c.ok() || byte < first || byte >= std::uint32_t(first) + count) {
        return 0;
    }
    auto const g = reader::read_u16(d, range_offset_pos + range_offset + 2 * (byte - first));
    if (!g || *g == 0) {
        return 0;
    }
    return std::uint16_t(*g + delta);
}

std::uint32_t lookup_format4(data d, std::uint32_t code) {
    if (code > 0xFFFF) {
        return 0;
    }
    auto const seg_x2 = reader::read_u16(d, 6);
    if (!seg_x2 || *seg_x2 == 0) {
        return 0;
    }
    std::size_t const seg_count = *seg_x2 / 2;
    std::size_t const ends = 14;
    std::size_t const starts = ends + 2 * seg_count + 2;
    std::size_t const deltas = starts + 2 * seg_count;
    std::size_t const range_offsets = deltas + 2 * seg_count;
    if (!reader::slice(d, 0, range_offsets + 2 * seg_count)) {
        return 0;
    }
    // The first segment whose end code is at least the code; the end codes should be sorted.
    std::size_t lo = 0;
    std::size_t hi = seg_count;
    while (lo < hi) {
        auto const mid = (lo + hi) / 2;
        if (*reader::read_u16(d, ends + 2 * mid) < code) {
            lo = mid + 1;
        } else {
            hi = mid;
        }
    }
    if (lo == seg_count) {
        return 0;
    }
    auto const start = *reader::read_u16(d, starts + 2 * lo);
    if (code < start) {
        return 0;
    }
    auto const delta = *reader::read_u16(d, deltas + 2 * lo);
    auto const range_offset = *reader::read_u16(d, range_offsets + 2 * lo);
    if (range_offset == 0) {
        return std::uint16_t(code + delta);
    }
    // The offset counts from the range offset's own place into the glyph array behind it.
    auto const g = reader::read_u16(d, range_offsets + 2 * lo + range_offset + 2 * (code - start));
    if (!g || *g == 0) {
        return 0;
    }
    return std::uint16_t(*g + delta);
}

std::uint32_t lookup_format6(data d, std::uint32_t code) {
    auto c = reader::cursor_at(d, 6);
    auto const first = c.u16();
    auto const count = c.u16();
    if (!c.ok() || code < first || code - first >= count) {
        return 0;
    }
    return reader::read_u16(d, 10 + 2 * std::size_t(code - first)).value_or(0);
}

std::uint32_t lookup_format10(data d, std::uint32_t code) {
    auto c = reader::cursor_at(d, 12);
    auto const first = c.u32();
    auto const count = c.u32();
    if (!c.ok() || code < first || code - first >= count) {
        return 0;
    }
    return reader::read_u16(d, 20 + 2 * std::size_t(code - first)).value_or(0);
}

// Groups of (start, end, glyph): format 12 counts up from the glyph, format 13 maps the whole group to
// one glyph.
std::uint32_t lookup_groups(data d, std::uint32_t code, bool many_to_one) {
    auto const count = reader::read_u32(d, 12);
    if (!count || !reader::slice(d, 16, std::size_t(*count) * 12)) {
        return 0;
    }
    std::size_t lo = 0;
    std::size_t hi = *count;
    while (lo < hi) {
        auto const mid = (lo + hi) / 2;
        std::size_t const at = 16 + mid * 12;
        auto const start = *reader::read_u32(d, at);
        auto const end = *reader::read_u32(d, at + 4);
        if (code < start) {
            hi = mid;
        } else if (code > end) {
            lo = mid + 1;
        } else {
            auto const glyph = *reader::read_u32(d, at + 8);
            return many_to_one ? glyph : glyph + (code - start);
        }
    }
    return 0;
}

} // namespace

result<cmap> parse_cmap(data d) {
    cursor c{.cursor_data = d};
    c.skip(2); // version
    auto const count = c.u16();
    if (!c.ok() || !c.has(std::size_t(count) * 8)) {
        return fail("cmap table: truncated");
    }
    cmap out;
    for (std::uint16_t i = 0; i < count; ++i) {
        encoding_record r{.record_platform = c.u16(), .record_encoding = c.u16(), .record_offset = c.u32()};
        auto const format = reader::read_u16(d, r.record_offset);
        if (!format) {
            continue;
        }
        r.record_format = *format;
        out.cmap_records.push_back(r);
    }
    return out;
}

result<subtable> choose_subtable(cmap const& c) {
    auto find = [&](auto pred) -> encoding_record const* {
        for (auto const& r : c.cmap_records) {
            if (known_format(r.record_format) && pred(r)) {
                return &r;
            }
        }
        return nullptr;
    };
    auto make = [](encoding_record const* r, cmap_encoding e) {
        return subtable{.subtable_encoding = e, .subtable_offset = r->record_offset, .subtable_format = r->record_format};
    };
    // Full repertoire first: Windows UCS-4, Unicode full repertoire.
    if (auto r = find([](encoding_record const& x) {
            return (x.record_platform == 3 && x.record_encoding == 10) ||
                   (x.record_platform == 0 && (x.record_encoding == 4 || x.record_encoding == 6));
        })) {
        return make(r, cmap_encoding::unicode);
    }
    if (auto r = find([](encoding_record const& x) {
            return (x.record_platform == 3 && x.record_encoding == 1) ||
                   (x.record_platform == 0 && x.record_encoding != 5 && x.record_format != 2);
        })) {
        return make(r, cmap_encoding::unicode);
    }
    if (auto r = find([](encoding_record const& x) { return x.record_platform == 3 && x.record_encoding == 0; })) {
        return make(r, cmap_encoding::symbol);
    }
    if (auto r = find([](encoding_record const& x) { return x.record_platform == 1 && x.record_encoding == 0; })) {
        return make(r, cmap_encoding::apple_roman);
    }
    return fail("no recognised encoding in font");
}

std::uint32_t lookup(data d, subtable const& s, std::uint32_t code) {
    if (s.subtable_offset >= d.size()) {
        return 0;
    }
    auto const sub = d.subspan(s.subtable_offset);
    switch (s.subtable_format) {
    case 0:
        return lookup_format0(sub, code);
    case 2:
        return lookup_format2(sub, code);
    case 4:
        return lookup_format4(sub, code);
    case 6:
        return lookup_format6(sub, code);
    case 10:
        return lookup_format10(sub, code);
    case 12:
        return lookup_groups(sub, code, false);
    case 13:
        return lookup_groups(sub, code, true);
    default:
        return 0;
    }
}

} // namespace vellum::opentype::cmap
