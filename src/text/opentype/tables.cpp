#include "text/opentype/tables.hpp"

#include "text/macroman.hpp"
#include "text/unicode/utf8.hpp"

#include <cstdio>

namespace vellum::opentype::tables {

using reader::cursor;
using reader::data;

namespace {

result<data> need(data d, std::size_t size, char const* table) {
    if (d.size() < size) {
        return fail(std::string(table) + " table: truncated (" + std::to_string(d.size()) + " bytes)");
    }
    return d;
}

// UTF-16BE as the Unicode and Windows platforms store names; lone surrogates become U+FFFD.
std::string decode_utf16be(data d) {
    std::u32string out;
    cursor c{.cursor_data = d};
    while (c.has(2)) {
        char32_t u = c.u16();
        if (u >= 0xD800 && u < 0xDC00 && c.has(2)) {
            auto const low = reader::read_u16(d, c.cursor_pos).value_or(0);
            if (low >= 0xDC00 && low < 0xE000) {
                c.skip(2);
                u = 0x10000 + ((u - 0xD800) << 10) + (low - 0xDC00);
            }
        }
        out.push_back(u);
    }
    return unicode::utf8::encode_utf8(out);
}

std::string decode_macroman(data d) {
    std::u32string out;
    for (auto b : d) {
        out.push_back(macroman::to_unicode(b));
    }
    return unicode::utf8::encode_utf8(out);
}

} // namespace

result<directory> parse_directory(data file, std::size_t offset) {
    auto c = reader::cursor_at(file, offset);
    directory dir;
    dir.sfnt_version = c.u32();
    auto const count = c.u16();
    c.skip(6);
    if (!c.ok()) {
        return fail("font file: table directory truncated");
    }
    if (dir.sfnt_version != 0x00010000 && dir.sfnt_version != reader::make_tag("OTTO") &&
        dir.sfnt_version != reader::make_tag("true")) {
        return fail("font file: unknown sfnt version 0x" + [&] {
            char buf[16];
            std::snprintf(buf, sizeof buf, "%08x", dir.sfnt_version);
            return std::string(buf);
        }());
    }
    if (!c.has(std::size_t(count) * 16)) {
        return fail("font file: table directory truncated");
    }
    for (std::uint16_t i = 0; i < count; ++i) {
        table_record r{.record_tag = c.u32(),
                       .record_checksum = c.u32(),
                       .record_offset = c.u32(),
                       .record_length = c.u32()};
        if (!reader::slice(file, r.record_offset, r.record_length)) {
            return fail("font file: table '" + reader::tag_text(r.record_tag) + "' lies outside the file");
        }
        dir.directory_tables.push_back(r);
    }
    return dir;
}

std::optional<data> find_table(directory const& dir, data file, reader::tag t) {
    for (auto const& r : dir.directory_tables) {
        if (r.record_tag == t) {
            return reader::slice(file, r.record_offset, r.record_length);
        }
    }
    return std::nullopt;
}

std::uint32_t checksum(data d) {
    std::uint32_t sum = 0;
    for (std::size_t i = 0; i < d.size(); i += 4) {
        std::uint32_t word = 0;
        for (std::size_t k = 0; k < 4; ++k) {
            word = (word << 8) | (i + k < d.size() ? d[i + k] : 0);
        }
        sum += word;
    }
    return sum;
}

result<head> parse_head(data d) {
    if (auto r = need(d, 54, "head"); !r) {
        return fail(r.error());
    }
    cursor c{.cursor_data = d};
    head h;
    c.skip(4);
    h.head_font_revision = c.u32();
    h.head_checksum_adjustment = c.u32();
    if (c.u32() != 0x5F0F3CF5) {
        return fail("head table: bad magic number");
    }
    h.head_flags = c.u16();
    h.head_units_per_em = c.u16();
    c.skip(16); // created, modified
    h.head_x_min = c.i16();
    h.head_y_min = c.i16();
    h.head_x_max = c.i16();
    h.head_y_max = c.i16();
    h.head_mac_style = c.u16();
    c.skip(4); // lowestRecPPEM, fontDirectionHint
    h.head_index_to_loc_format = c.i16();
    return h;
}

result<hhea> parse_hhea(data d) {
    if (auto r = need(d, 36, "hhea"); !r) {
        return fail(r.error());
    }
    cursor c{.cursor_data = d};
    hhea h;
    c.skip(4);
    h.hhea_ascender = c.i16();
    h.hhea_descender = c.i16();
    h.hhea_line_gap = c.i16();
    h.hhea_advance_width_max = c.u16();
    c.skip(6); // minLeftSideBearing, minRightSideBearing, xMaxExtent
    h.hhea_caret_slope_rise = c.i16();
    h.hhea_caret_slope_run = c.i16();
    c.skip(12); // caretOffset, reserved, metricDataFormat
    h.hhea_number_of_hmetrics = c.u16();
    return h;
}

result<maxp> parse_maxp(data d) {
    if (auto r = need(d, 6, "maxp"); !r) {
        return fail(r.error());
    }
    cursor c{.cursor_data = d};
    maxp m;
    m.maxp_version = c.u32();
    m.maxp_num_glyphs = c.u16();
    if (m.maxp_version != 0x00005000 && m.maxp_version != 0x00010000) {
        return fail("maxp table: unknown version");
    }
    return m;
}

result<hmtx> parse_hmtx(data d, std::uint16_t number_of_metrics, std::uint16_t num_glyphs) {
    if (number_of_metrics == 0) {
        return fail("hmtx table: no long metrics");
    }
    if (d.size() < std::size_t(number_of_metrics) * 4) {
        return fail("hmtx table: truncated (" + std::to_string(number_of_metrics) + " metrics announced)");
    }
    cursor c{.cursor_data = d};
    hmtx m;
    m.hmtx_advances.reserve(number_of_metrics);
    for (std::uint16_t i = 0; i < number_of_metrics; ++i) {
        m.hmtx_advances.push_back(c.u16());
        m.hmtx_side_bearings.push_back(c.i16());
    }
    for (std::uint32_t g = number_of_metrics; g < num_glyphs; ++g) {
        m.hmtx_side_bearings.push_back(c.has(2) ? c.i16() : 0);
    }
    return m;
}

std::uint16_t advance_of(hmtx const& m, std::uint32_t glyph) {
    if (m.hmtx_advances.empty()) {
        return 0;
    }
    return glyph < m.hmtx_advances.size() ? m.hmtx_advances[glyph] : m.hmtx_advances.back();
}

result<os2> parse_os2(data d) {
    if (auto r = need(d, 68, "OS/2"); !r) {
        return fail(r.error());
    }
    cursor c{.cursor_data = d};
    os2 o;
    o.os2_version = c.u16();
    o.os2_avg_char_width = c.i16();
    o.os2_weight_class = c.u16();
    o.os2_width_class = c.u16();
    o.os2_fs_type = c.u16();
    c.skip(16); // sub- and superscript sizes and offsets
    o.os2_strikeout_size = c.i16();
    o.os2_strikeout_position = c.i16();
    c.skip(2); // sFamilyClass
    for (auto& p : o.os2_panose) {
        p = c.u8();
    }
    for (auto& r : o.os2_unicode_range) {
        r = c.u32();
    }
    c.skip(4); // achVendID
    o.os2_fs_selection = c.u16();
    o.os2_first_char_index = c.u16();
    o.os2_last_char_index = c.u16();
    if (!c.has(10)) {
        return o;
    }
    o.os2_typo_ascender = c.i16();
    o.os2_typo_descender = c.i16();
    o.os2_typo_line_gap = c.i16();
    o.os2_win_ascent = c.u16();
    o.os2_win_descent = c.u16();
    if (o.os2_version >= 1) {
        if (!c.has(8)) {
            return fail("OS/2 table: truncated version " + std::to_string(o.os2_version) + " table");
        }
        o.os2_code_page_range[0] = c.u32();
        o.os2_code_page_range[1] = c.u32();
    }
    if (o.os2_version >= 2) {
        if (!c.has(4)) {
            return fail("OS/2 table: truncated version " + std::to_string(o.os2_version) + " table");
        }
        o.os2_x_height = c.i16();
        o.os2_cap_height = c.i16();
    }
    return o;
}

result<post> parse_post(data d) {
    if (auto r = need(d, 16, "post"); !r) {
        return fail(r.error());
    }
    cursor c{.cursor_data = d};
    post p;
    p.post_version = c.u32();
    p.post_italic_angle = c.i32();
    p.post_underline_position = c.i16();
    p.post_underline_thickness = c.i16();
    p.post_is_fixed_pitch = c.u32() != 0;
    return p;
}

result<name> parse_name(data d) {
    if (auto r = need(d, 6, "name"); !r) {
        return fail(r.error());
    }
    cursor c{.cursor_data = d};
    c.skip(2); // version
    auto const count = c.u16();
    auto const storage = c.u16();
    if (!c.has(std::size_t(count) * 12)) {
        return fail("name table: truncated record list");
    }
    name n;
    for (std::uint16_t i = 0; i < count; ++i) {
        name_record r{.name_platform = c.u16(),
                      .name_encoding = c.u16(),
                      .name_language = c.u16(),
                      .name_id = c.u16()};
        auto const length = c.u16();
        auto const offset = c.u16();
        auto const text = reader::slice(d, std::size_t(storage) + offset, length);
        if (!text) {
            return fail("name table: string of name " + std::to_string(r.name_id) + " lies outside the table");
        }
        bool const utf16 = r.name_platform == 0 || (r.name_platform == 3 && (r.name_encoding == 1 ||
                                                                              r.name_encoding == 10 ||
                                                                              r.name_encoding == 0));
        bool const mac_roman = r.name_platform == 1 && r.name_encoding == 0;
        if (utf16) {
            r.name_text = decode_utf16be(*text);
        } else if (mac_roman) {
            r.name_text = decode_macroman(*text);
        } else {
            continue;
        }
        n.name_records.push_back(std::move(r));
    }
    return n;
}

std::optional<std::string> find_name(name const& n, name_id id) {
    auto const want = std::uint16_t(id);
    auto pick = [&](auto pred) -> name_record const* {
        for (auto const& r : n.name_records) {
            if (r.name_id == want && !r.name_text.empty() && pred(r)) {
                return &r;
            }
        }
        return nullptr;
    };
    name_record const* r = pick([](name_record const& x) { return x.name_platform == 3 && x.name_language == 0x409; });
    if (!r) {
        r = pick([](name_record const& x) { return x.name_platform == 3 || x.name_platform == 0; });
    }
    if (!r) {
        r = pick([](name_record const& x) { return x.name_platform == 1 && x.name_language == 0; });
    }
    if (!r) {
        r = pick([](name_record const&) { return true; });
    }
    if (!r) {
        return std::nullopt;
    }
    return r->name_text;
}

} // namespace vellum::opentype::tables
