#include "text/font_subset.hpp"

#include "text/cff_subset.hpp"
#include "text/font_data.hpp"
#include "text/fonts/freetype.hpp"
#include "text/macroman.hpp"
#include "text/opentype/cff_font.hpp"

#include <algorithm>
#include <cstdio>
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

std::vector<std::uint8_t> assemble_sfnt(std::vector<sfnt_table> tables) {
    auto const table_count = static_cast<std::uint32_t>(tables.size());
    // The search fields let a reader binary-search the directory: the largest power of two not above the
    // table count, its logarithm, and what remains beyond it, in units of 16-byte entries.
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
    std::optional<std::size_t> head_offset;
    for (auto& t : tables) {
        std::size_t const length = t.sfnt_bytes.size();
        if (t.sfnt_tag == make_tag("head") && length >= 12) {
            // The adjustment is left out of every checksum, the table's own included.
            put32(t.sfnt_bytes, 8, 0);
            head_offset = offset;
        }
        t.sfnt_bytes.resize(padded(length), 0);
        std::uint32_t const checksum = table_checksum(t.sfnt_bytes);
        sum += checksum;
        append32(directory, t.sfnt_tag);
        append32(directory, checksum);
        append32(directory, offset);
        append32(directory, static_cast<std::uint32_t>(length));
        offset += static_cast<std::uint32_t>(t.sfnt_bytes.size());
    }
    sum += table_checksum(directory) + table_checksum(header);
    std::vector<std::uint8_t> out;
    out.reserve(offset);
    out.insert(out.end(), header.begin(), header.end());
    out.insert(out.end(), directory.begin(), directory.end());
    for (auto const& t : tables) {
        out.insert(out.end(), t.sfnt_bytes.begin(), t.sfnt_bytes.end());
    }
    if (head_offset) {
        put32(out, *head_offset + 8, 0xB1B0AFBAu - sum);
    }
    return out;
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
    find("glyf") = std::move(new_glyf);
    find("loca") = std::move(new_loca);
    find("hmtx") = std::move(new_hmtx);

    std::vector<sfnt_table> file_tables;
    file_tables.reserve(tables.size());
    for (auto& t : tables) {
        file_tables.push_back({t.table_tag, std::move(t.table_bytes)});
    }
    subset out;
    out.subset_bytes = assemble_sfnt(std::move(file_tables));
    out.subset_glyphs = std::move(list);
    return out;
}

namespace {

// The tables of a face, read through FreeType; the subsetter changes its copies in place.
table_reader reader_of(font_data::font_data const& data) {
    return [face = data.font_face](tag t) -> std::optional<std::vector<std::uint8_t>> {
        auto b = fonts::freetype::load_table(face, t);
        if (!b) {
            return std::nullopt;
        }
        auto const v = b->view();
        return std::vector<std::uint8_t>(v.begin(), v.end());
    };
}

std::string code_points(unicode::unicodes const& chars) {
    std::string out;
    for (char32_t c : chars) {
        char buf[16];
        std::snprintf(buf, sizeof buf, "U+%04X", unsigned(c));
        out += (out.empty() ? "" : " ") + std::string(buf);
    }
    return out;
}

// The "cmap" of a MacRoman font's subset: each code whose character the font maps to a glyph of the
// subset gets that glyph's new number. A viewer draws a code of a simple TrueType font through this
// table, so every glyph that the text reaches must be reachable from its code; glyphs that are not (a
// ligature, or a glyph whose number went past 255) are logged.
char_map_array macroman_map(log::log const& log, fonts::font_ref const& font, fonts::glyph_cache const& cache) {
    char_map_array map{};
    std::vector<bool> reached(cache.glyph_cache_entries.size(), false);
    auto const& data = *font->used_font_data;
    for (int code = 0; code < 256; ++code) {
        auto const source = font_data::char_to_glyph(data, macroman::to_unicode(std::uint8_t(code)));
        auto const at = cache.glyph_cache_positions.find(source);
        if (source == 0 || at == cache.glyph_cache_positions.end()) {
            continue;
        }
        int const number = cache.glyph_cache_entries[at->second].entry_index->get();
        if (number <= 255) {
            map[std::size_t(code)] = std::uint8_t(number);
            reached[at->second] = true;
        }
    }
    std::string lost;
    for (std::size_t i = 0; i < reached.size(); ++i) {
        auto const& entry = cache.glyph_cache_entries[i];
        if (!reached[i] && entry.entry_source != 0) {
            lost += (lost.empty() ? "" : ", ") + (entry.entry_unicodes.empty()
                                                       ? "glyph " + std::to_string(entry.entry_source)
                                                       : code_points(entry.entry_unicodes));
        }
    }
    if (!lost.empty()) {
        log::log_error(log, "invalid MacRoman char codes for font subsetting: " + lost);
    }
    return map;
}

char_map_array identity_map(std::size_t count) {
    if (count > 256) {
        throw internal_error("standard glyph index out of range: " + std::to_string(count - 1));
    }
    char_map_array map{};
    for (std::size_t i = 0; i < count; ++i) {
        map[i] = std::uint8_t(i);
    }
    return map;
}

// A font of CFF outlines becomes a subset read by glyph number, and so an Identity font whatever its
// encoding was. The glyphs that the text uses come first, in the order of the glyph cache; the parts of
// accented characters follow them. A font that cannot be cut goes out whole, readied as without
// subsetting.
void subset_cff_font(log::log const& log, fonts::font_ref const& font) {
    auto const& data = *font->used_font_data;
    auto const cache = font->used_font_glyph_cache->get();
    glyph_index_array list{0};
    for (auto const& entry : cache.glyph_cache_entries) {
        if (entry.entry_source != 0) {
            list.push_back(entry.entry_source);
        }
    }
    auto const program = fonts::freetype::load_table(data.font_face, make_tag("CFF "));
    if (!program) {
        log::log_warning(log, "failed to subset font: " + fonts::describe_font(font) + ": no CFF table");
        return;
    }
    auto made = cff_subset::make_cff_subset(program->view(), list);
    if (!made) {
        log::log_warning(log, "failed to subset font: " + fonts::describe_font(font) + ": " + made.error());
        prepare_whole_font(true, font);
        return;
    }
    auto const& subrs = made->subset_subrs;
    log::log_debug(log, "CFF subset of " + fonts::describe_font(font) + ": " +
                            std::to_string(made->subset_glyphs.size()) + " glyphs (" +
                            std::to_string(subrs.counts_accent_parts) + " accent parts), " +
                            (subrs.counts_all_kept ? "all subroutines kept (" + subrs.counts_unfollowed + ")"
                                                   : std::to_string(subrs.counts_global_kept) + " global and " +
                                                         std::to_string(subrs.counts_local_kept) +
                                                         " local subroutines kept"));
    int next = 1;
    for (auto const& entry : cache.glyph_cache_entries) {
        entry.entry_index->set(entry.entry_source == 0 ? 0 : next++);
    }
    font->used_font_encoding->set(fonts::font_pdf_encoding::identity_encoding);
    font->used_font_subset->set(bytes::from_vector(std::move(made->subset_bytes)));
}

} // namespace

void subset_font(log::log const& log, bool embed_fonts, fonts::font_ref const& font) {
    auto const encoding = font->used_font_encoding->get();
    auto const& data = *font->used_font_data;
    if (!embed_fonts && encoding == fonts::font_pdf_encoding::macroman_encoding) {
        return; // not embedded, so nothing to cut
    }
    if (data.font_info.outlines == font_info::font_outlines::cff_outlines) {
        subset_cff_font(log, font);
        return;
    }
    // The new order: the missing glyph, then the glyphs in the order of first use. Each glyph's PDF
    // number becomes its place in that order.
    auto const cache = font->used_font_glyph_cache->get();
    glyph_index_array list{0};
    for (auto const& entry : cache.glyph_cache_entries) {
        if (entry.entry_source == 0) {
            entry.entry_index->set(0);
            continue;
        }
        entry.entry_index->set(int(list.size()));
        list.push_back(entry.entry_source);
    }

    std::optional<char_map_array> map;
    switch (encoding) {
    case fonts::font_pdf_encoding::identity_encoding:
        // Few glyphs fit one-byte codes: the text then takes half the bytes, and the font is a simple
        // one whose codes are its glyph numbers.
        if (list.size() <= 256) {
            font->used_font_encoding->set(fonts::font_pdf_encoding::standard_encoding);
            map = identity_map(list.size());
        }
        break;
    case fonts::font_pdf_encoding::standard_encoding:
        map = identity_map(list.size());
        break;
    case fonts::font_pdf_encoding::macroman_encoding:
        map = macroman_map(log, font, cache);
        break;
    }

    auto made = make_subset(reader_of(data), map, list);
    if (!made) {
        log::log_warning(log, "failed to subset font: " + fonts::describe_font(font) + ": " + made.error());
        return;
    }
    font->used_font_subset->set(bytes::from_vector(std::move(made->subset_bytes)));
}

void prepare_whole_font(bool embed_fonts, fonts::font_ref const& font) {
    auto const& data = *font->used_font_data;
    auto const encoding = font->used_font_encoding->get();
    if (data.font_info.outlines != font_info::font_outlines::cff_outlines ||
        (!embed_fonts && encoding == fonts::font_pdf_encoding::macroman_encoding)) {
        return;
    }
    auto const program = fonts::freetype::load_table(data.font_face, make_tag("CFF "));
    if (!program) {
        return;
    }
    auto const parsed = opentype::cff_font::parse_font(program->view());
    if (!parsed || !parsed->font_is_cid) {
        return; // a name-keyed font serves a simple font by glyph name, or a CID font by glyph number
    }
    auto const& charset = parsed->font_charset;
    for (auto const& entry : font->used_font_glyph_cache->get().glyph_cache_entries) {
        entry.entry_index->set(entry.entry_source < charset.size() ? charset[entry.entry_source] : 0);
    }
    font->used_font_encoding->set(fonts::font_pdf_encoding::identity_encoding);
}

std::optional<bytes::bytes> font_file_bytes(fonts::font_ref const& font) {
    if (auto subset = font->used_font_subset->get()) {
        return subset;
    }
    auto const& data = *font->used_font_data;
    if (data.font_info.outlines == font_info::font_outlines::cff_outlines) {
        // The font program of a PDF font of CFF outlines is the bare "CFF " table, not its sfnt wrapper.
        return fonts::freetype::load_table(data.font_face, make_tag("CFF "));
    }
    // Tag 0 asks FreeType for the whole file.
    auto whole = fonts::freetype::load_table(data.font_face, 0);
    if (!whole || whole->size() < 12) {
        return std::nullopt;
    }
    if (whole->chars().substr(0, 4) != "ttcf") {
        return whole;
    }
    // One face of a collection: its tables in a file of their own. The tables a PDF reader uses are
    // those the subsetter keeps, with OS/2 besides.
    std::vector<sfnt_table> tables;
    for (char const* name : {"OS/2", "cmap", "cvt ", "fpgm", "glyf", "head", "hhea", "hmtx", "loca", "maxp",
                             "name", "post", "prep"}) {
        if (auto b = fonts::freetype::load_table(data.font_face, make_tag(name))) {
            auto const v = b->view();
            tables.push_back({make_tag(name), std::vector<std::uint8_t>(v.begin(), v.end())});
        }
    }
    return bytes::from_vector(assemble_sfnt(std::move(tables)));
}

} // namespace vellum::font_subset
