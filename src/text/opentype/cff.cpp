#include "text/opentype/cff.hpp"

#include <cstdlib>

namespace vellum::opentype::cff {

using reader::cursor;
using reader::data;

namespace {

// A DICT holds operands (numbers) before each operator; the CFF format allows at most 48 of them.
constexpr std::size_t max_operands = 48;

// Operators of the top DICT that are looked at; escaped ones (12 x) are 1200 + x.
constexpr int op_font_bbox = 5;
constexpr int op_charstrings = 17;
constexpr int op_private = 18;
constexpr int op_charstring_type = 1206;
constexpr int op_ros = 1230;

// Reads the nibbles of a real operand up to the end nibble 0xf.
result<double> read_real(cursor& c) {
    std::string text;
    for (;;) {
        auto const b = c.u8();
        if (!c.ok()) {
            return fail("CFF table: truncated real number");
        }
        for (int nib : {b >> 4, b & 0xf}) {
            if (nib <= 9) {
                text.push_back(char('0' + nib));
            } else if (nib == 0xa) {
                text.push_back('.');
            } else if (nib == 0xb) {
                text.push_back('E');
            } else if (nib == 0xc) {
                text += "E-";
            } else if (nib == 0xe) {
                text.push_back('-');
            } else if (nib == 0xf) {
                return std::strtod(text.c_str(), nullptr);
            } else {
                return fail("CFF table: bad nibble in real number");
            }
            if (text.size() > 64) {
                return fail("CFF table: real number too long");
            }
        }
    }
}

} // namespace

result<dict> parse_dict(data d) {
    cursor c{.cursor_data = d};
    dict out;
    std::vector<double> operands;
    std::size_t operands_start = 0;
    while (c.has(1)) {
        std::size_t const at = c.cursor_pos;
        auto const b0 = c.u8();
        if (b0 <= 21) {
            int op = b0;
            if (b0 == 12) {
                op = 1200 + c.u8();
            }
            out.push_back({.entry_op = op,
                           .entry_operands = std::move(operands),
                           .entry_operand_bytes = d.subspan(operands_start, at - operands_start)});
            operands.clear();
            operands_start = c.cursor_pos;
        } else {
            double v = 0;
            if (b0 == 28) {
                v = c.i16();
            } else if (b0 == 29) {
                v = c.i32();
            } else if (b0 == 30) {
                auto r = read_real(c);
                if (!r) {
                    return fail(r.error());
                }
                v = *r;
            } else if (b0 >= 32 && b0 <= 246) {
                v = int(b0) - 139;
            } else if (b0 >= 247 && b0 <= 250) {
                v = (int(b0) - 247) * 256 + c.u8() + 108;
            } else if (b0 >= 251 && b0 <= 254) {
                v = -(int(b0) - 251) * 256 - c.u8() - 108;
            } else {
                return fail("CFF table: reserved byte " + std::to_string(b0) + " in DICT");
            }
            operands.push_back(v);
            if (operands.size() > max_operands) {
                return fail("CFF table: too many operands in DICT");
            }
        }
        if (!c.ok()) {
            return fail("CFF table: truncated DICT");
        }
    }
    if (!operands.empty()) {
        return fail("CFF table: DICT ends in operands without an operator");
    }
    return out;
}

result<std::uint32_t> as_offset(double v) {
    if (!(v >= 0 && v <= 4294967295.0)) {
        return fail("CFF table: offset out of range in DICT");
    }
    return std::uint32_t(v);
}

result<index> parse_index(data d, std::size_t offset) {
    auto c = reader::cursor_at(d, offset);
    auto const count = c.u16();
    if (!c.ok()) {
        return fail("CFF table: truncated INDEX");
    }
    index out;
    if (count == 0) {
        out.index_end = c.cursor_pos;
        return out;
    }
    auto const off_size = c.u8();
    if (off_size < 1 || off_size > 4) {
        return fail("CFF table: bad offset size " + std::to_string(off_size) + " in INDEX");
    }
    auto const offsets_at = c.cursor_pos;
    if (!c.has((std::size_t(count) + 1) * off_size)) {
        return fail("CFF table: truncated INDEX");
    }
    // Offsets count from 1, from the byte before the item data.
    std::size_t const base = offsets_at + (std::size_t(count) + 1) * off_size - 1;
    auto read_offset = [&]() -> std::size_t {
        std::size_t v = 0;
        for (int i = 0; i < off_size; ++i) {
            v = (v << 8) | c.u8();
        }
        return v;
    };
    std::size_t prev = read_offset();
    if (prev != 1) {
        return fail("CFF table: INDEX does not start at offset 1");
    }
    out.index_items.reserve(count);
    for (std::uint16_t i = 0; i < count; ++i) {
        auto const next = read_offset();
        if (next < prev) {
            return fail("CFF table: INDEX offsets go backwards");
        }
        auto item = reader::slice(d, base + prev, next - prev);
        if (!item) {
            return fail("CFF table: INDEX item lies outside the table");
        }
        out.index_items.push_back(*item);
        prev = next;
    }
    out.index_end = base + prev;
    return out;
}

result<cff_info> parse_cff(data d) {
    cursor c{.cursor_data = d};
    cff_info info;
    info.cff_major = c.u8();
    info.cff_minor = c.u8();
    auto const header_size = c.u8();
    if (!c.ok()) {
        return fail("CFF table: truncated header");
    }
    if (info.cff_major != 1) {
        return fail("CFF table: unsupported version " + std::to_string(info.cff_major));
    }
    auto names = parse_index(d, header_size);
    if (!names) {
        return fail(names.error());
    }
    if (names->index_items.empty()) {
        return fail("CFF table: no font in the name INDEX");
    }
    auto const name = names->index_items.front();
    info.cff_font_name.assign(name.begin(), name.end());
    auto top = parse_index(d, names->index_end);
    if (!top) {
        return fail(top.error());
    }
    if (top->index_items.empty()) {
        return fail("CFF table: no top DICT");
    }
    auto entries = parse_dict(top->index_items.front());
    if (!entries) {
        return fail(entries.error());
    }
    for (auto const& e : *entries) {
        auto const& ops = e.entry_operands;
        switch (e.entry_op) {
        case op_font_bbox:
            for (std::size_t i = 0; i < 4 && i < ops.size(); ++i) {
                info.cff_font_bbox[i] = ops[i];
            }
            break;
        case op_charstrings:
            if (!ops.empty()) {
                auto off = as_offset(ops.back());
                if (!off) {
                    return fail(off.error());
                }
                info.cff_charstrings_offset = *off;
            }
            break;
        case op_private:
            if (ops.size() >= 2) {
                auto size = as_offset(ops[ops.size() - 2]);
                auto off = as_offset(ops.back());
                if (!size || !off) {
                    return fail("CFF table: bad Private entry in top DICT");
                }
                info.cff_private_size = *size;
                info.cff_private_offset = *off;
            }
            break;
        case op_charstring_type:
            if (!ops.empty()) {
                info.cff_charstring_type = ops.back() >= 0 && ops.back() <= 255 ? int(ops.back()) : -1;
            }
            break;
        case op_ros:
            info.cff_is_cid = true;
            break;
        default:
            break;
        }
    }
    if (info.cff_charstrings_offset == 0) {
        return fail("CFF table: top DICT has no CharStrings");
    }
    if (!reader::slice(d, info.cff_private_offset, info.cff_private_size)) {
        return fail("CFF table: Private DICT lies outside the table");
    }
    auto charstrings = parse_index(d, info.cff_charstrings_offset);
    if (!charstrings) {
        return fail(charstrings.error());
    }
    info.cff_glyph_count = std::uint32_t(charstrings->index_items.size());
    return info;
}

} // namespace vellum::opentype::cff
