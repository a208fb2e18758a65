#include "text/cff_subset.hpp"

#include "text/opentype/cff_font.hpp"
#include "text/opentype/charstring.hpp"

#include <algorithm>
#include <deque>
#include <map>
#include <optional>
#include <span>
#include <string>

namespace vellum::cff_subset {

namespace {

using opentype::reader::data;
namespace cff_font = opentype::cff_font;
namespace dict_op = opentype::cff_font::dict_op;

using bytes_out = std::vector<std::uint8_t>;

void append16(bytes_out& out, std::uint32_t v) {
    out.push_back(static_cast<std::uint8_t>(v >> 8));
    out.push_back(static_cast<std::uint8_t>(v));
}

// A DICT integer in its shortest form.
void put_int(bytes_out& out, std::int32_t v) {
    if (v >= -107 && v <= 107) {
        out.push_back(static_cast<std::uint8_t>(v + 139));
    } else if (v >= 108 && v <= 1131) {
        v -= 108;
        out.push_back(static_cast<std::uint8_t>((v >> 8) + 247));
        out.push_back(static_cast<std::uint8_t>(v));
    } else if (v >= -1131 && v <= -108) {
        v = -v - 108;
        out.push_back(static_cast<std::uint8_t>((v >> 8) + 251));
        out.push_back(static_cast<std::uint8_t>(v));
    } else if (v >= -32768 && v <= 32767) {
        out.push_back(28);
        append16(out, static_cast<std::uint32_t>(v));
    } else {
        out.push_back(29);
        append16(out, static_cast<std::uint32_t>(v) >> 16);
        append16(out, static_cast<std::uint32_t>(v));
    }
}

// An offset always takes the five-byte form, so a DICT has the same size before and after the offsets
// in it are known.
void put_offset(bytes_out& out, std::size_t v) {
    out.push_back(29);
    append16(out, static_cast<std::uint32_t>(v >> 16));
    append16(out, static_cast<std::uint32_t>(v));
}

void put_op(bytes_out& out, int op) {
    if (op >= 1200) {
        out.push_back(12);
        out.push_back(static_cast<std::uint8_t>(op - 1200));
    } else {
        out.push_back(static_cast<std::uint8_t>(op));
    }
}

void copy_entry(bytes_out& out, cff_font::dict_entry const& e) {
    out.insert(out.end(), e.entry_operand_bytes.begin(), e.entry_operand_bytes.end());
    put_op(out, e.entry_op);
}

void put_index(bytes_out& out, std::vector<data> const& items) {
    append16(out, static_cast<std::uint32_t>(items.size()));
    if (items.empty()) {
        return;
    }
    std::size_t total = 1;
    for (auto const item : items) {
        total += item.size();
    }
    int const off_size = total < 0x100 ? 1 : total < 0x10000 ? 2 : total < 0x1000000 ? 3 : 4;
    out.push_back(static_cast<std::uint8_t>(off_size));
    auto put_offset_of = [&](std::size_t v) {
        for (int shift = 8 * (off_size - 1); shift >= 0; shift -= 8) {
            out.push_back(static_cast<std::uint8_t>(v >> shift));
        }
    };
    std::size_t at = 1;
    put_offset_of(at);
    for (auto const item : items) {
        at += item.size();
        put_offset_of(at);
    }
    for (auto const item : items) {
        out.insert(out.end(), item.begin(), item.end());
    }
}

bytes_out index_bytes(std::vector<data> const& items) {
    bytes_out out;
    put_index(out, items);
    return out;
}

// The standard string id of the glyph name that StandardEncoding gives a code, or 0 for a code it leaves
// empty. The printable ASCII codes name strings 1 to 95 in order; the upper half names strings 96 to 149
// in order, skipping the unused codes.
int standard_encoding_sid(int code) {
    if (code >= 32 && code <= 126) {
        return code - 31;
    }
    static constexpr std::uint8_t upper[] = {161, 162, 163, 164, 165, 166, 167, 168, 169, 170, 171, 172, 173, 174,
                                             175, 177, 178, 179, 180, 182, 183, 184, 185, 186, 187, 188, 189, 191,
                                             193, 194, 195, 196, 197, 198, 199, 200, 202, 203, 205, 206, 207, 208,
                                             225, 227, 232, 233, 234, 235, 241, 245, 248, 249, 250, 251};
    for (std::size_t i = 0; i < sizeof upper; ++i) {
        if (upper[i] == code) {
            return 96 + int(i);
        }
    }
    return 0;
}

// The number a charstring passes to reach subroutine n of a new INDEX of `count` entries.
int biased(std::size_t n, std::size_t count) {
    return int(n) - opentype::cff_font::subr_bias(count);
}

// The subroutines of one INDEX that survive: the marked ones, numbered anew in their old order.
struct renumbering {
    std::vector<int> renumbering_new; // -1 for a subroutine left out
    std::vector<std::size_t> renumbering_kept;
};

renumbering renumber(std::vector<bool> const& marks) {
    renumbering r;
    r.renumbering_new.assign(marks.size(), -1);
    for (std::size_t i = 0; i < marks.size(); ++i) {
        if (marks[i]) {
            r.renumbering_new[i] = int(r.renumbering_kept.size());
            r.renumbering_kept.push_back(i);
        }
    }
    return r;
}

bool dropped_from_top(int op) {
    switch (op) {
    case dict_op::ros:
    case dict_op::charset:
    case dict_op::encoding:
    case dict_op::charstrings:
    case dict_op::private_dict:
    case dict_op::fd_array:
    case dict_op::fd_select:
    case dict_op::cid_count:
    // A subset is a different font; identifiers of the whole one would let a viewer mix them up.
    case dict_op::unique_id:
    case dict_op::xuid:
    case dict_op::uid_base:
        return true;
    default:
        return false;
    }
}

// Where the parts of the new font start, counted from the start of the font program.
struct layout {
    std::size_t layout_charset = 0;
    std::size_t layout_fd_select = 0;
    std::size_t layout_charstrings = 0;
    std::size_t layout_fd_array = 0;
};

} // namespace

result<subset> make_cff_subset(data cff, std::vector<std::uint32_t> const& asked) {
    auto parsed = cff_font::parse_font(cff);
    if (!parsed) {
        return fail(parsed.error());
    }
    auto const& f = *parsed;
    std::size_t const source_count = f.font_charstrings.index_items.size();
    if (asked.empty() || asked.front() != 0) {
        return fail("CFF subset must begin with glyph 0");
    }
    for (auto g : asked) {
        if (g >= source_count) {
            return fail("glyph " + std::to_string(g) + " is not in the font");
        }
    }

    // Walk the glyphs, marking the subroutines they reach. An accented character of a name-keyed font
    // draws its base and accent glyphs, found by their standard names, so those join the subset behind
    // the glyphs asked for and are walked in their turn. A CID-keyed font has no glyph names for the
    // codes to name: such a glyph is copied as it is, since no reader can build it there either.
    subset out;
    std::vector<std::uint32_t> glyphs = asked;
    std::vector<bool> in_subset(source_count, false);
    for (auto g : glyphs) {
        in_subset[g] = true;
    }
    std::vector<bool> global_marks(f.font_global_subrs.index_items.size(), false);
    std::vector<std::vector<bool>> local_marks;
    for (auto const& p : f.font_privates) {
        local_marks.emplace_back(p.private_subrs.index_items.size(), false);
    }
    struct walked_calls {
        std::size_t calls_private = 0;
        std::vector<opentype::charstring::call_site> calls;
    };
    std::vector<walked_calls> calls;
    bool keep_all = false;
    std::string unfollowed;
    auto const glyph_of_code = [&](int code) -> std::optional<std::uint32_t> {
        int const sid = standard_encoding_sid(code);
        if (sid == 0) {
            return std::nullopt;
        }
        if (f.font_charset.empty() && std::size_t(sid) < source_count) {
            return std::uint32_t(sid); // the predefined ISOAdobe charset: glyph n is string n
        }
        for (std::uint32_t g = 0; g < f.font_charset.size(); ++g) {
            if (f.font_charset[g] == sid) {
                return g;
            }
        }
        return std::nullopt;
    };
    for (std::size_t i = 0; i < glyphs.size(); ++i) {
        auto const g = glyphs[i];
        auto const p = cff_font::private_of(f, g);
        auto walked = opentype::charstring::mark_subrs(f.font_charstrings.index_items[g], f.font_global_subrs,
                                                       f.font_privates[p].private_subrs, global_marks,
                                                       local_marks[p]);
        if (!walked) {
            if (!keep_all) {
                unfollowed = "glyph " + std::to_string(g) + ": " + walked.error();
            }
            keep_all = true;
            continue;
        }
        if (!walked->outcome_not_renumberable.empty() && !keep_all) {
            unfollowed = "glyph " + std::to_string(g) + ": " + walked->outcome_not_renumberable;
            keep_all = true;
        }
        if (auto const parts = walked->outcome_accented; parts && !f.font_is_cid) {
            for (int code : {parts->parts_base, parts->parts_accent}) {
                auto const part = glyph_of_code(code);
                if (!part) {
                    return fail("glyph " + std::to_string(g) + " is an accented character whose part " +
                                std::to_string(code) + " is not in the font");
                }
                if (!in_subset[*part]) {
                    in_subset[*part] = true;
                    glyphs.push_back(*part);
                    ++out.subset_subrs.counts_accent_parts;
                }
            }
        }
        calls.push_back({.calls_private = p, .calls = std::move(walked->outcome_calls)});
    }
    if (glyphs.size() > 65535) {
        return fail("CFF subset has too many glyphs");
    }

    // The font DICTs in order of first use, and the new font DICT of each kept glyph.
    std::vector<int> new_fd(f.font_privates.size(), -1);
    std::vector<std::size_t> fd_order;
    std::vector<std::uint8_t> glyph_fd;
    glyph_fd.reserve(glyphs.size());
    for (auto g : glyphs) {
        auto const p = cff_font::private_of(f, g);
        if (new_fd[p] < 0) {
            new_fd[p] = static_cast<int>(fd_order.size());
            fd_order.push_back(p);
        }
        glyph_fd.push_back(static_cast<std::uint8_t>(new_fd[p]));
    }

    // The kept subroutines are numbered anew, in their old order, and every number that a call takes
    // is rewritten for the new numbers and the bias of the new count. A subroutine shared by glyphs of
    // several font DICTs whose local calls would need different numbers in each cannot be rewritten;
    // then, as when a glyph cannot be followed, everything is kept as it is.
    auto const global_new = renumber(global_marks);
    std::vector<renumbering> local_new;
    for (auto const& marks : local_marks) {
        local_new.push_back(renumber(marks));
    }
    std::map<std::uint8_t const*, std::map<std::size_t, opentype::charstring::rewrite>> rewrites;
    for (auto const& walk : calls) {
        if (keep_all) {
            break;
        }
        for (auto const& site : walk.calls) {
            auto const& r = site.site_global ? global_new : local_new[walk.calls_private];
            int const value = biased(std::size_t(r.renumbering_new[site.site_target]), r.renumbering_kept.size());
            auto [at, fresh] = rewrites[site.site_code].try_emplace(
                site.site_at, opentype::charstring::rewrite{
                                  .rewrite_at = site.site_at, .rewrite_size = site.site_size, .rewrite_value = value});
            if (!fresh && at->second.rewrite_value != value) {
                unfollowed = "a subroutine calls local subroutines of several font DICTs";
                keep_all = true;
                break;
            }
        }
    }
    // Rewritten charstrings; a deque keeps them in place while views to them are taken.
    std::deque<bytes_out> owned;
    auto const code_of = [&](data code) -> data {
        if (keep_all) {
            return code;
        }
        auto const found = rewrites.find(code.data());
        if (found == rewrites.end() || code.empty()) {
            return code;
        }
        std::vector<opentype::charstring::rewrite> list;
        for (auto const& [at, r] : found->second) {
            list.push_back(r);
        }
        owned.push_back(opentype::charstring::rewritten(code, list));
        return data(owned.back());
    };
    auto const kept_subrs = [&](opentype::cff::index const& subrs, renumbering const& r) {
        if (keep_all) {
            return subrs.index_items;
        }
        std::vector<data> items;
        for (auto const i : r.renumbering_kept) {
            items.push_back(code_of(subrs.index_items[i]));
        }
        return items;
    };

    // Strings: those of the source, whose ids the copied DICT entries and the charset use, and for a
    // CID-keyed subset the two of the new ROS.
    std::vector<data> strings = f.font_strings.index_items;
    static constexpr std::uint8_t adobe[] = {'A', 'd', 'o', 'b', 'e'};
    static constexpr std::uint8_t identity[] = {'I', 'd', 'e', 'n', 't', 'i', 't', 'y'};
    // String ids below 391 name the standard strings.
    auto const sid_adobe = static_cast<std::int32_t>(391 + strings.size());
    if (f.font_is_cid) {
        strings.push_back(data(adobe));
        strings.push_back(data(identity));
    }

    // The Private DICTs, each followed by its local subroutines, which it finds at its own size.
    std::vector<bytes_out> privates;
    std::vector<std::size_t> private_sizes;
    for (auto const p : fd_order) {
        auto const& source = f.font_privates[p];
        auto const subrs = kept_subrs(source.private_subrs, local_new[p]);
        out.subset_subrs.counts_local_kept += subrs.size();
        bytes_out dict;
        for (auto const& e : source.private_entries) {
            if (e.entry_op != dict_op::subrs) {
                copy_entry(dict, e);
            }
        }
        if (!subrs.empty()) {
            put_offset(dict, dict.size() + 6); // just behind this entry of six bytes
            put_op(dict, dict_op::subrs);
        }
        private_sizes.push_back(dict.size());
        if (!subrs.empty()) {
            put_index(dict, subrs);
        }
        privates.push_back(std::move(dict));
    }

    auto const top_dict = [&](layout const& at, std::vector<std::size_t> const& private_at) {
        bytes_out out;
        if (f.font_is_cid) {
            put_int(out, sid_adobe);
            put_int(out, sid_adobe + 1);
            put_int(out, 0);
            put_op(out, dict_op::ros);
        }
        for (auto const& e : f.font_top) {
            if (!dropped_from_top(e.entry_op)) {
                copy_entry(out, e);
            }
        }
        put_offset(out, at.layout_charset);
        put_op(out, dict_op::charset);
        put_offset(out, at.layout_charstrings);
        put_op(out, dict_op::charstrings);
        if (f.font_is_cid) {
            put_int(out, static_cast<std::int32_t>(glyphs.size()));
            put_op(out, dict_op::cid_count);
            put_offset(out, at.layout_fd_select);
            put_op(out, dict_op::fd_select);
            put_offset(out, at.layout_fd_array);
            put_op(out, dict_op::fd_array);
        } else {
            put_offset(out, private_sizes.front());
            put_offset(out, private_at.front());
            put_op(out, dict_op::private_dict);
        }
        return out;
    };
    auto const font_dicts = [&](std::vector<std::size_t> const& private_at) {
        std::vector<bytes_out> dicts;
        for (std::size_t i = 0; i < fd_order.size(); ++i) {
            bytes_out dict;
            for (auto const& e : f.font_fd_array[fd_order[i]]) {
                if (e.entry_op != dict_op::private_dict) {
                    copy_entry(dict, e);
                }
            }
            put_offset(dict, private_sizes[i]);
            put_offset(dict, private_at[i]);
            put_op(dict, dict_op::private_dict);
            dicts.push_back(std::move(dict));
        }
        return dicts;
    };
    auto const fd_index = [&](std::vector<std::size_t> const& private_at) {
        if (!f.font_is_cid) {
            return bytes_out{};
        }
        auto const dicts = font_dicts(private_at);
        std::vector<data> items(dicts.begin(), dicts.end());
        return index_bytes(items);
    };

    auto const global = kept_subrs(f.font_global_subrs, global_new);
    out.subset_subrs.counts_global_kept = global.size();
    out.subset_subrs.counts_all_kept = keep_all;
    out.subset_subrs.counts_unfollowed = std::move(unfollowed);

    // A CID-keyed subset: CIDs are the new glyph numbers, one range from CID 1 covering every glyph
    // after .notdef. A name-keyed one keeps each glyph's name, by which accented characters find their
    // parts.
    bytes_out charset;
    if (!f.font_is_cid) {
        charset.push_back(0);
        for (std::size_t i = 1; i < glyphs.size(); ++i) {
            append16(charset, f.font_charset.empty() ? glyphs[i] : f.font_charset[glyphs[i]]);
        }
    } else if (glyphs.size() > 1) {
        charset = {2, 0, 1};
        append16(charset, static_cast<std::uint32_t>(glyphs.size() - 2));
    } else {
        charset = {0};
    }
    // FDSelect in ranges of glyphs sharing a font DICT.
    bytes_out fd_select;
    if (f.font_is_cid) {
        fd_select = {3, 0, 0};
        std::uint32_t ranges = 0;
        for (std::size_t g = 0; g < glyph_fd.size(); ++g) {
            if (g == 0 || glyph_fd[g] != glyph_fd[g - 1]) {
                append16(fd_select, static_cast<std::uint32_t>(g));
                fd_select.push_back(glyph_fd[g]);
                ++ranges;
            }
        }
        append16(fd_select, static_cast<std::uint32_t>(glyphs.size()));
        fd_select[1] = static_cast<std::uint8_t>(ranges >> 8);
        fd_select[2] = static_cast<std::uint8_t>(ranges);
    }
    std::vector<data> charstrings;
    charstrings.reserve(glyphs.size());
    for (auto g : glyphs) {
        charstrings.push_back(code_of(f.font_charstrings.index_items[g]));
    }

    // The pieces in file order; the top DICT and the font DICTs have fixed sizes whatever the offsets
    // in them, so they are measured once with zeros and written again with the real values.
    static constexpr std::uint8_t header[] = {1, 0, 4, 4};
    std::vector<data> const names{data(reinterpret_cast<std::uint8_t const*>(f.font_name.data()), f.font_name.size())};
    auto const name_index = index_bytes(names);
    auto const string_index = index_bytes(strings);
    auto const global_index = index_bytes(global);
    auto const charstring_index = index_bytes(charstrings);
    std::vector<std::size_t> private_at(fd_order.size(), 0);
    std::size_t const top_size = [&] {
        auto const d = top_dict({}, private_at);
        return index_bytes({data(d)}).size();
    }();
    layout at;
    at.layout_charset = sizeof header + name_index.size() + top_size + string_index.size() + global_index.size();
    at.layout_fd_select = at.layout_charset + charset.size();
    at.layout_charstrings = at.layout_fd_select + fd_select.size();
    at.layout_fd_array = at.layout_charstrings + charstring_index.size();
    std::size_t next = at.layout_fd_array + fd_index(private_at).size();
    for (std::size_t i = 0; i < privates.size(); ++i) {
        private_at[i] = next;
        next += privates[i].size();
    }

    auto& bytes = out.subset_bytes;
    bytes.reserve(next);
    bytes.insert(bytes.end(), std::begin(header), std::end(header));
    bytes.insert(bytes.end(), name_index.begin(), name_index.end());
    auto const top = top_dict(at, private_at);
    put_index(bytes, {data(top)});
    for (bytes_out const* part : std::initializer_list<bytes_out const*>{&string_index, &global_index, &charset, &fd_select, &charstring_index}) {
        bytes.insert(bytes.end(), part->begin(), part->end());
    }
    auto const fds = fd_index(private_at);
    bytes.insert(bytes.end(), fds.begin(), fds.end());
    for (auto const& p : privates) {
        bytes.insert(bytes.end(), p.begin(), p.end());
    }
    if (bytes.size() != next) {
        throw internal_error("make_cff_subset: unexpected condition.");
    }
    out.subset_glyphs = std::move(glyphs);
    return out;
}

} // namespace vellum::cff_subset
