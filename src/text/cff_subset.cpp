#include "text/cff_subset.hpp"

#include "text/opentype/cff_font.hpp"
#include "text/opentype/charstring.hpp"

#include <algorithm>
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

// The subroutines that survive: the marked ones keep their bytes, the others become empty, and unmarked
// ones at the end are left out as long as the count stays in the same bias class, since the bias
// follows from the count. With none marked, none are kept: an INDEX of empty items only has no data at
// all, which FreeType refuses.
std::vector<data> pruned(opentype::cff::index const& subrs, std::vector<bool> const& marks, bool keep_all) {
    std::size_t const count = subrs.index_items.size();
    if (keep_all) {
        return subrs.index_items;
    }
    if (std::find(marks.begin(), marks.end(), true) == marks.end()) {
        return {};
    }
    std::size_t const floor = count < 1240 ? 0 : count < 33900 ? 1240 : 33900;
    std::size_t last = 0;
    for (std::size_t i = 0; i < count; ++i) {
        if (marks[i]) {
            last = i + 1;
        }
    }
    std::vector<data> out(std::max(last, floor));
    for (std::size_t i = 0; i < out.size(); ++i) {
        if (marks[i]) {
            out[i] = subrs.index_items[i];
        }
    }
    return out;
}

std::size_t kept(std::vector<data> const& items) {
    return static_cast<std::size_t>(std::count_if(items.begin(), items.end(), [](data d) { return !d.empty(); }));
}

bool dropped_from_top(int op, bool source_is_cid) {
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
    case dict_op::font_matrix:
        // The matrix of a font that was not CID-keyed moves into its one font DICT.
        return !source_is_cid;
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

result<subset> make_cff_subset(data cff, std::vector<std::uint32_t> const& glyphs) {
    auto parsed = cff_font::parse_font(cff);
    if (!parsed) {
        return fail(parsed.error());
    }
    auto const& f = *parsed;
    std::size_t const source_count = f.font_charstrings.index_items.size();
    if (glyphs.empty() || glyphs.front() != 0) {
        return fail("CFF subset must begin with glyph 0");
    }
    if (glyphs.size() > 65535) {
        return fail("CFF subset has too many glyphs");
    }
    for (auto g : glyphs) {
        if (g >= source_count) {
            return fail("glyph " + std::to_string(g) + " is not in the font");
        }
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

    // The subroutines that the kept glyphs reach. If one glyph cannot be followed, every subroutine is
    // kept: the walk only saves space.
    std::vector<bool> global_marks(f.font_global_subrs.index_items.size(), false);
    std::vector<std::vector<bool>> local_marks;
    for (auto const& p : f.font_privates) {
        local_marks.emplace_back(p.private_subrs.index_items.size(), false);
    }
    bool keep_all = false;
    std::string unfollowed;
    for (auto g : glyphs) {
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
        if (walked->outcome_accented) {
            return fail("glyph " + std::to_string(g) + " is an accented character built by name");
        }
    }

    // Strings: those of the source, whose ids the copied DICT entries use, and the two of the new ROS.
    std::vector<data> strings = f.font_strings.index_items;
    static constexpr std::uint8_t adobe[] = {'A', 'd', 'o', 'b', 'e'};
    static constexpr std::uint8_t identity[] = {'I', 'd', 'e', 'n', 't', 'i', 't', 'y'};
    // String ids below 391 name the standard strings.
    auto const sid_adobe = static_cast<std::int32_t>(391 + strings.size());
    strings.push_back(data(adobe));
    strings.push_back(data(identity));

    auto const top_dict = [&](layout const& at) {
        bytes_out out;
        put_int(out, sid_adobe);
        put_int(out, sid_adobe + 1);
        put_int(out, 0);
        put_op(out, dict_op::ros);
        for (auto const& e : f.font_top) {
            if (!dropped_from_top(e.entry_op, f.font_is_cid)) {
                copy_entry(out, e);
            }
        }
        put_int(out, static_cast<std::int32_t>(glyphs.size()));
        put_op(out, dict_op::cid_count);
        put_offset(out, at.layout_charset);
        put_op(out, dict_op::charset);
        put_offset(out, at.layout_fd_select);
        put_op(out, dict_op::fd_select);
        put_offset(out, at.layout_charstrings);
        put_op(out, dict_op::charstrings);
        put_offset(out, at.layout_fd_array);
        put_op(out, dict_op::fd_array);
        return out;
    };

    // The Private DICTs, each followed by its local subroutines, which it finds at its own size.
    subset out;
    std::vector<bytes_out> privates;
    std::vector<std::size_t> private_sizes;
    for (auto const p : fd_order) {
        auto const& source = f.font_privates[p];
        auto const subrs = pruned(source.private_subrs, local_marks[p], keep_all);
        out.subset_subrs.counts_local_kept += kept(subrs);
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
    auto const font_dicts = [&](std::vector<std::size_t> const& private_at) {
        std::vector<bytes_out> dicts;
        for (std::size_t i = 0; i < fd_order.size(); ++i) {
            bytes_out dict;
            if (f.font_is_cid) {
                for (auto const& e : f.font_fd_array[fd_order[i]]) {
                    if (e.entry_op != dict_op::private_dict) {
                        copy_entry(dict, e);
                    }
                }
            } else if (auto const* matrix = cff_font::find_entry(f.font_top, dict_op::font_matrix)) {
                copy_entry(dict, *matrix);
            }
            put_offset(dict, private_sizes[i]);
            put_offset(dict, private_at[i]);
            put_op(dict, dict_op::private_dict);
            dicts.push_back(std::move(dict));
        }
        return dicts;
    };
    auto const fd_index = [&](std::vector<bytes_out> const& dicts) {
        std::vector<data> items(dicts.begin(), dicts.end());
        return index_bytes(items);
    };

    auto const global = pruned(f.font_global_subrs, global_marks, keep_all);
    out.subset_subrs.counts_global_kept = kept(global);
    out.subset_subrs.counts_all_kept = keep_all;
    out.subset_subrs.counts_unfollowed = std::move(unfollowed);

    // CIDs are the new glyph numbers: one range from CID 1 covers every glyph after .notdef.
    bytes_out charset;
    if (glyphs.size() > 1) {
        charset = {2, 0, 1};
        append16(charset, static_cast<std::uint32_t>(glyphs.size() - 2));
    } else {
        charset = {0};
    }
    // FDSelect in ranges of glyphs sharing a font DICT.
    bytes_out fd_select{3, 0, 0};
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
    std::vector<data> charstrings;
    charstrings.reserve(glyphs.size());
    for (auto g : glyphs) {
        charstrings.push_back(f.font_charstrings.index_items[g]);
    }

    // The pieces in file order; the top DICT and the font DICTs have fixed sizes whatever the offsets
    // in them, so they are measured once with zeros and written again with the real values.
    static constexpr std::uint8_t header[] = {1, 0, 4, 4};
    std::vector<data> const names{data(reinterpret_cast<std::uint8_t const*>(f.font_name.data()), f.font_name.size())};
    auto const name_index = index_bytes(names);
    auto const string_index = index_bytes(strings);
    auto const global_index = index_bytes(global);
    auto const charstring_index = index_bytes(charstrings);
    std::size_t const top_size = [&] {
        auto const d = top_dict({});
        return index_bytes({data(d)}).size();
    }();
    layout at;
    at.layout_charset = sizeof header + name_index.size() + top_size + string_index.size() + global_index.size();
    at.layout_fd_select = at.layout_charset + charset.size();
    at.layout_charstrings = at.layout_fd_select + fd_select.size();
    at.layout_fd_array = at.layout_charstrings + charstring_index.size();
    std::vector<std::size_t> private_at(fd_order.size(), 0);
    std::size_t next = at.layout_fd_array + fd_index(font_dicts(private_at)).size();
    for (std::size_t i = 0; i < privates.size(); ++i) {
        private_at[i] = next;
        next += privates[i].size();
    }

    auto& bytes = out.subset_bytes;
    bytes.reserve(next);
    bytes.insert(bytes.end(), std::begin(header), std::end(header));
    bytes.insert(bytes.end(), name_index.begin(), name_index.end());
    auto const top = top_dict(at);
    put_index(bytes, {data(top)});
    for (bytes_out const* part : std::initializer_list<bytes_out const*>{&string_index, &global_index, &charset, &fd_select, &charstring_index}) {
        bytes.insert(bytes.end(), part->begin(), part->end());
    }
    auto const fds = fd_index(font_dicts(private_at));
    bytes.insert(bytes.end(), fds.begin(), fds.end());
    for (auto const& p : privates) {
        bytes.insert(bytes.end(), p.begin(), p.end());
    }
    if (bytes.size() != next) {
        throw internal_error("make_cff_subset: unexpected condition.");
    }
    return out;
}

} // namespace vellum::cff_subset
