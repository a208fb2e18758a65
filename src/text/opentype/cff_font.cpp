#include "text/opentype/cff_font.hpp"

#include <cstdlib>

namespace vellum::opentype::cff_font {

using reader::cursor;
using reader::data;

namespace {

using cff::as_offset;

result<std::uint32_t> offset_operand(dict const& d, int op, std::size_t from_end = 1) {
    auto const* e = find_entry(d, op);
    if (e == nullptr || e->entry_operands.size() < from_end) {
        return fail("CFF: DICT has no operand for operator " + std::to_string(op));
    }
    return as_offset(e->entry_operands[e->entry_operands.size() - from_end]);
}

result<private_dict> parse_private(data d, dict const& owner) {
    auto size = offset_operand(owner, dict_op::private_dict, 2);
    auto offset = offset_operand(owner, dict_op::private_dict, 1);
    if (!size || !offset) {
        return fail("CFF: font DICT has no Private entry");
    }
    auto bytes = reader::slice(d, *offset, *size);
    if (!bytes) {
        return fail("CFF: Private DICT lies outside the font");
    }
    auto entries = parse_dict(*bytes);
    if (!entries) {
        return fail(entries.error());
    }
    private_dict out{.private_entries = std::move(*entries)};
    if (find_entry(out.private_entries, dict_op::subrs) != nullptr) {
        // Local subroutines are placed relative to their Private DICT.
        auto subrs_at = offset_operand(out.private_entries, dict_op::subrs);
        if (!subrs_at) {
            return fail(subrs_at.error());
        }
        auto subrs = cff::parse_index(d, std::size_t{*offset} + *subrs_at);
        if (!subrs) {
            return fail(subrs.error());
        }
        out.private_subrs = std::move(*subrs);
    }
    return out;
}

} // namespace

dict_entry const* find_entry(dict const& d, int op) {
    for (auto it = d.rbegin(); it != d.rend(); ++it) {
        if (it->entry_op == op) {
            return &*it;
        }
    }
    return nullptr;
}

int subr_bias(std::size_t subr_count) {
    if (subr_count < 1240) {
        return 107;
    }
    if (subr_count < 33900) {
        return 1131;
    }
    return 32768;
}

result<std::vector<std::uint16_t>> parse_charset(data d, std::size_t offset, std::uint32_t glyph_count) {
    std::vector<std::uint16_t> out;
    if (offset <= 2) {
        return out;
    }
    if (glyph_count == 0) {
        return fail("CFF: charset of a font without glyphs");
    }
    out.reserve(glyph_count);
    out.push_back(0);
    auto c = reader::cursor_at(d, offset);
    auto const format = c.u8();
    if (format == 0) {
        while (out.size() < glyph_count && c.ok()) {
            out.push_back(c.u16());
        }
    } else if (format == 1 || format == 2) {
        // Ranges: a first id and how many ids follow it, in one byte (format 1) or two (format 2).
        while (out.size() < glyph_count && c.ok()) {
            std::uint32_t const first = c.u16();
            std::uint32_t const left = format == 1 ? c.u8() : c.u16();
            for (std::uint32_t i = 0; i <= left && out.size() < glyph_count; ++i) {
                out.push_back(static_cast<std::uint16_t>(first + i));
            }
        }
    } else {
        return fail("CFF: unknown charset format " + std::to_string(format));
    }
    if (!c.ok()) {
        return fail("CFF: truncated charset");
    }
    return out;
}

result<std::vector<std::uint8_t>> parse_fd_select(data d,
                                                  std::size_t offset,
                                                  std::uint32_t glyph_count,
                                                  std::size_t fd_count) {
    auto c = reader::cursor_at(d, offset);
    auto const format = c.u8();
    std::vector<std::uint8_t> out;
    if (format == 0) {
        out.reserve(glyph_count);
        for (std::uint32_t g = 0; g < glyph_count; ++g) {
            out.push_back(c.u8());
        }
    } else if (format == 3) {
        // Ranges of glyphs sharing a font DICT, each from its first glyph to the next range's first; a
        // sentinel glyph number closes the last.
        std::uint32_t const ranges = c.u16();
        std::uint32_t first = c.u16();
        if (first != 0) {
            return fail("CFF: FDSelect does not start at glyph 0");
        }
        out.assign(glyph_count, 0);
        for (std::uint32_t r = 0; r < ranges && c.ok(); ++r) {
            std::uint8_t const fd = c.u8();
            std::uint32_t const next = c.u16();
            if (next < first || next > glyph_count) {
                return fail("CFF: FDSelect ranges out of order");
            }
            std::fill(out.begin() + first, out.begin() + next, fd);
            first = next;
        }
        if (first != glyph_count) {
            return fail("CFF: FDSelect does not cover every glyph");
        }
    } else {
        return fail("CFF: unknown FDSelect format " + std::to_string(format));
    }
    if (!c.ok()) {
        return fail("CFF: truncated FDSelect");
    }
    for (auto fd : out) {
        if (fd >= fd_count) {
            return fail("CFF: FDSelect names font DICT " + std::to_string(fd) + " of " + std::to_string(fd_count));
        }
    }
    return out;
}

result<font> parse_font(data d) {
    cursor c{.cursor_data = d};
    auto const major = c.u8();
    c.u8();
    auto const header_size = c.u8();
    if (!c.ok() || major != 1) {
        return fail("CFF: not a version 1 font program");
    }
    font f;
    auto names = cff::parse_index(d, header_size);
    if (!names) {
        return fail(names.error());
    }
    if (names->index_items.empty()) {
        return fail("CFF: no font in the name INDEX");
    }
    f.font_name.assign(names->index_items.front().begin(), names->index_items.front().end());
    auto tops = cff::parse_index(d, names->index_end);
    if (!tops) {
        return fail(tops.error());
    }
    if (tops->index_items.empty()) {
        return fail("CFF: no top DICT");
    }
    auto top = parse_dict(tops->index_items.front());
    if (!top) {
        return fail(top.error());
    }
    f.font_top = std::move(*top);
    auto strings = cff::parse_index(d, tops->index_end);
    if (!strings) {
        return fail(strings.error());
    }
    f.font_strings = std::move(*strings);
    auto gsubrs = cff::parse_index(d, f.font_strings.index_end);
    if (!gsubrs) {
        return fail(gsubrs.error());
    }
    f.font_global_subrs = std::move(*gsubrs);

    if (auto const* type = find_entry(f.font_top, dict_op::charstring_type);
        type != nullptr && (type->entry_operands.empty() || type->entry_operands.back() != 2)) {
        return fail("CFF: charstrings are not of type 2");
    }
    auto cs_at = offset_operand(f.font_top, dict_op::charstrings);
    if (!cs_at) {
        return fail("CFF: top DICT has no CharStrings");
    }
    auto charstrings = cff::parse_index(d, *cs_at);
    if (!charstrings) {
        return fail(charstrings.error());
    }
    f.font_charstrings = std::move(*charstrings);
    auto const glyph_count = static_cast<std::uint32_t>(f.font_charstrings.index_items.size());
    if (glyph_count == 0) {
        return fail("CFF: font has no glyphs");
    }
    std::uint32_t charset_at = 0;
    if (find_entry(f.font_top, dict_op::charset) != nullptr) {
        auto at = offset_operand(f.font_top, dict_op::charset);
        if (!at) {
            return fail(at.error());
        }
        charset_at = *at;
    }
    auto charset = parse_charset(d, charset_at, glyph_count);
    if (!charset) {
        return fail(charset.error());
    }
    f.font_charset = std::move(*charset);

    f.font_is_cid = find_entry(f.font_top, dict_op::ros) != nullptr;
    if (!f.font_is_cid) {
        auto priv = parse_private(d, f.font_top);
        if (!priv) {
            return fail(priv.error());
        }
        f.font_privates.push_back(std::move(*priv));
        return f;
    }
    auto fda_at = offset_operand(f.font_top, dict_op::fd_array);
    auto fds_at = offset_operand(f.font_top, dict_op::fd_select);
    if (!fda_at || !fds_at) {
        return fail("CFF: CID-keyed font without FDArray or FDSelect");
    }
    auto fd_index = cff::parse_index(d, *fda_at);
    if (!fd_index) {
        return fail(fd_index.error());
    }
    if (fd_index->index_items.empty() || fd_index->index_items.size() > 256) {
        return fail("CFF: FDArray must hold 1 to 256 font DICTs");
    }
    for (auto const item : fd_index->index_items) {
        auto fd = parse_dict(item);
        if (!fd) {
            return fail(fd.error());
        }
        auto priv = parse_private(d, *fd);
        if (!priv) {
            return fail(priv.error());
        }
        f.font_fd_array.push_back(std::move(*fd));
        f.font_privates.push_back(std::move(*priv));
    }
    auto select = parse_fd_select(d, *fds_at, glyph_count, f.font_fd_array.size());
    if (!select) {
        return fail(select.error());
    }
    f.font_fd_select = std::move(*select);
    return f;
}

std::size_t private_of(font const& f, std::uint32_t glyph) {
    return f.font_is_cid ? f.font_fd_select[glyph] : 0;
}

} // namespace vellum::opentype::cff_font
