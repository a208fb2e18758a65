#include "pdf/pdf_fonts.hpp"

#include "pdf/font_objects.hpp"
#include "text/font_data.hpp"
#include "text/font_subset.hpp"
#include "text/macroman.hpp"
#include "text/opentype/cff.hpp"

#include <algorithm>
#include <map>
#include <memory>
#include <set>
#include <utility>
#include <vector>

namespace vellum::pdf::pdf_fonts {

namespace {

using fonts::font_pdf_encoding;
using font_objects::scale_to_1000;

bool is_cff(fonts::font_ref const& font) {
    return font->used_font_data->font_info.outlines == font_info::font_outlines::cff_outlines;
}

std::int64_t scaled(fonts::font_ref const& font, std::int64_t value) {
    return scale_to_1000(value, font->used_font_data->font_info.units_per_em);
}

// The descriptor: the metrics a viewer needs to lay out a substitute, and the embedded file if any.
// Values in font units are scaled to the 1000-unit em; the italic angle is in degrees.
dict descriptor(fonts::font_ref const& font, std::string const& base, std::optional<ref> file) {
    auto const& info = font->used_font_data->font_info;
    auto const& box = info.font_bbox;
    dict d{{
        {"Type", name{"FontDescriptor"}},
        {"FontName", name{base}},
        {"Ascent", scaled(font, info.font_metrics.ascender)},
        {"Descent", scaled(font, info.font_metrics.descender)},
        {"ItalicAngle", std::int64_t{info.italic_angle}},
        {"StemV", scaled(font, info.stem_v)},
        {"CapHeight", scaled(font, info.cap_height)},
        {"Flags", font_objects::descriptor_flags(info.is_monospace, info.is_italic)},
        {"FontBBox", array{{scaled(font, box.x_min), scaled(font, box.y_min), scaled(font, box.x_max),
                            scaled(font, box.y_max)}}},
    }};
    if (file) {
        d.dict_entries.emplace_back(is_cff(font) ? "FontFile3" : "FontFile2", *file);
    }
    return d;
}

// The font program. It is always compressed: a font file is large and binary, and compression is
// what keeps the hexadecimal form of an uncompressed file from doubling it.
void write_font_file(writer& w, ref r, fonts::font_ref const& font, bool cid_font) {
    auto const bytes = font_subset::font_file_bytes(font);
    if (!bytes) {
        throw internal_error("could not get font bytes");
    }
    dict params{{{"Length1", static_cast<std::int64_t>(bytes->size())}}};
    if (is_cff(font)) {
        params.dict_entries.emplace_back("Subtype", name{cid_font ? "CIDFontType0C" : "Type1C"});
    }
    write_stream_bytes(w, r, stream_filter::deflate, std::move(params), bytes->view());
}

// A ToUnicode CMap from codes to the characters they stand for.
void write_cmap(writer& w,
                ref r,
                font_objects::tounicode_type type,
                std::vector<font_objects::glyph_unicodes> const& codes,
                font_options const& options) {
    auto const text = font_objects::tounicode_cmap(type, codes);
    write_stream_bytes(w, r, options.font_compress ? stream_filter::deflate : stream_filter::as_is, {},
                       std::span(reinterpret_cast<std::uint8_t const*>(text.data()), text.size()));
}

void write_tounicode(writer& w,
                     ref r,
                     fonts::glyph_cache const& cache,
                     font_objects::tounicode_type type,
                     font_options const& options) {
    std::vector<font_objects::glyph_unicodes> glyphs;
    glyphs.reserve(cache.glyph_cache_entries.size());
    for (auto const& entry : cache.glyph_cache_entries) {
        glyphs.push_back({.glyph_number = static_cast<std::uint32_t>(entry.entry_index->get()),
                          .glyph_chars = std::vector<char32_t>(entry.entry_unicodes.begin(),
                                                               entry.entry_unicodes.end())});
    }
    write_cmap(w, r, type, glyphs, options);
}

// The glyphs' numbers in the PDF font with their advances, in 1000ths of an em.
std::vector<font_objects::glyph_width> glyph_widths(fonts::font_ref const& font, fonts::glyph_cache const& cache) {
    auto const& data = *font->used_font_data;
    std::vector<font_objects::glyph_width> out;
    out.reserve(cache.glyph_cache_entries.size());
    for (auto const& entry : cache.glyph_cache_entries) {
        out.push_back({.glyph_number = static_cast<std::uint32_t>(entry.entry_index->get()),
                       .glyph_advance = scaled(font, font_data::glyph_advance(data, entry.entry_source))});
    }
    return out;
}

// PDF's MacRomanEncoding is the Mac OS Roman of before 1998: code 219 is the currency sign, not the euro,
// and the mathematical signs of the Mac character set have no names in it. The differences name them, so
// that a viewer drawing with a font of its own picks the right glyphs by name.
dict macroman_encoding() {
    array differences;
    for (auto const& [code, glyph_name] : std::initializer_list<std::pair<std::int64_t, char const*>>{
             {173, "notequal"},  {176, "infinity"}, {178, "lessequal"},   {179, "greaterequal"},
             {182, "partialdiff"}, {183, "summation"}, {184, "product"}, {185, "pi"},
             {186, "integral"},  {189, "Omega"},    {195, "radical"},     {197, "approxequal"},
             {198, "Delta"},     {215, "lozenge"},  {219, "Euro"}}) {
        differences.array_items.emplace_back(code);
        differences.array_items.emplace_back(name{glyph_name});
    }
    return dict{{
        {"Type", name{"Encoding"}},
        {"BaseEncoding", name{"MacRomanEncoding"}},
        {"Differences", std::move(differences)},
    }};
}

// A simple font of MacRoman codes. An embedded font program maps the codes to its glyphs through its
// own Macintosh "cmap", which viewers consult with each code's name in PDF's MacRomanEncoding; that
// encoding predates the euro (its code 219 is the currency sign) and leaves the Mac's mathematical signs
// unnamed, so the characters come back from a ToUnicode map. Naming them with /Differences instead would
// send viewers to look the names up in the subset, which keeps no glyph names, and they would draw
// .notdef. A font that is not embedded is drawn by a font of the viewer's, found by glyph name: there the
// differences name what the codes hold.
void write_macroman(writer& w, ref font_dict, fonts::font_ref const& font, font_options const& options) {
    auto const& data = *font->used_font_data;
    ref const desc = new_ref(w);
    std::optional<ref> const file = options.font_embed ? std::optional<ref>(new_ref(w)) : std::nullopt;
    std::optional<ref> const tounicode = file ? std::optional<ref>(new_ref(w)) : std::nullopt;
    std::string const base = base_font_name(font);
    array widths;
    widths.array_items.reserve(224);
    std::vector<font_objects::glyph_unicodes> codes;
    for (int code = 32; code <= 255; ++code) {
        char32_t const c = macroman::to_unicode(std::uint8_t(code));
        auto const glyph = font_data::char_to_glyph(data, c);
        widths.array_items.emplace_back(glyph == 0 ? std::int64_t{0}
                                                   : scaled(font, font_data::glyph_advance(data, glyph)));
        codes.push_back({.glyph_number = static_cast<std::uint32_t>(code), .glyph_chars = {c}});
    }
    dict font_object{{
        {"Type", name{"Font"}},
        {"Subtype", name{is_cff(font) ? "Type1" : "TrueType"}},
        {"BaseFont", name{base}},
        {"FirstChar", std::int64_t{32}},
        {"LastChar", std::int64_t{255}},
        {"Widths", std::move(widths)},
        {"FontDescriptor", desc},
    }};
    if (tounicode) {
        font_object.dict_entries.emplace_back("Encoding", name{"MacRomanEncoding"});
        font_object.dict_entries.emplace_back("ToUnicode", *tounicode);
    } else {
        font_object.dict_entries.emplace_back("Encoding", macroman_encoding());
    }
    write_object(w, font_dict, std::move(font_object));
    write_object(w, desc, descriptor(font, base, file));
    if (file) {
        write_font_file(w, *file, font, false);
        write_cmap(w, *tounicode, font_objects::tounicode_type::tounicode_byte, codes, options);
    }
}

// A simple font over a subset of at most 256 glyphs: the codes are the glyph numbers, which the
// subset's own one-byte "cmap" maps to themselves, so the font needs no /Encoding.
void write_standard(writer& w, ref font_dict, fonts::font_ref const& font, font_options const& options) {
    ref const desc = new_ref(w);
    ref const tounicode = new_ref(w);
    ref const file = new_ref(w);
    std::string const base = base_font_name(font);
    auto const cache = font->used_font_glyph_cache->get();
    // Codes that no glyph of the cache has are glyph 0 and, past the cached glyphs, the components that
    // composites brought in; text never shows them, but /Widths covers every code up to the last used.
    std::vector<std::int64_t> by_number(1, scaled(font, font_data::glyph_advance(*font->used_font_data, 0)));
    for (auto const& g : glyph_widths(font, cache)) {
        if (g.glyph_number >= by_number.size()) {
            by_number.resize(g.glyph_number + 1, 0);
        }
        by_number[g.glyph_number] = g.glyph_advance;
    }
    array widths;
    for (auto const wd : by_number) {
        widths.array_items.emplace_back(wd);
    }
    write_object(w, font_dict,
                 dict{{
                     {"Type", name{"Font"}},
                     {"Subtype", name{is_cff(font) ? "Type1" : "TrueType"}},
                     {"BaseFont", name{base}},
                     {"FirstChar", std::int64_t{0}},
                     {"LastChar", static_cast<std::int64_t>(by_number.size() - 1)},
                     {"Widths", std::move(widths)},
                     {"FontDescriptor", desc},
                     {"ToUnicode", tounicode},
                 }});
    write_object(w, desc, descriptor(font, base, file));
    write_tounicode(w, tounicode, cache, font_objects::tounicode_type::tounicode_byte, options);
    write_font_file(w, file, font, false);
}

// A Type 0 font with Identity-H: two-byte codes that are the glyph numbers of the CID font below it.
// The number of glyphs of a subset font program, which numbers its glyphs from 0 without gaps: "maxp" of
// a TrueType subset (it holds the components of composite glyphs too), the glyphs used and glyph 0 of a
// CFF one.
std::size_t subset_glyph_count(fonts::font_ref const& font, fonts::glyph_cache const& cache, bytes::bytes const& file) {
    int highest = 0;
    for (auto const& entry : cache.glyph_cache_entries) {
        highest = std::max(highest, entry.entry_index->get());
    }
    std::size_t count = std::size_t(highest) + 1;
    auto const b = file.view();
    auto u16 = [&](std::size_t at) { return at + 2 <= b.size() ? std::size_t(b[at] << 8 | b[at + 1]) : 0; };
    auto u32 = [&](std::size_t at) { return at + 4 <= b.size() ? u16(at) << 16 | u16(at + 2) : 0; };
    if (is_cff(font)) {
        // The subset may hold glyphs behind those the text uses: the parts of accented characters.
        if (auto const info = opentype::cff::parse_cff(b)) {
            count = std::max(count, std::size_t(info->cff_glyph_count));
        }
    } else {
        for (std::size_t i = 0, n = u16(4); i < n; ++i) {
            std::size_t const entry = 12 + 16 * i;
            if (entry + 16 <= b.size() && b[entry] == 'm' && b[entry + 1] == 'a' && b[entry + 2] == 'x' &&
                b[entry + 3] == 'p') {
                count = std::max(count, u16(u32(entry + 8) + 4));
            }
        }
    }
    return count;
}

// A subset CID font says which CIDs its program holds, one bit each from the high bit of the first byte
// for CID 0, as PDF/A asks of every subset CID font.
void write_cid_set(writer& w, ref r, std::size_t count, font_options const& options) {
    std::vector<std::uint8_t> bits((count + 7) / 8, 0);
    for (std::size_t cid = 0; cid < count; ++cid) {
        bits[cid / 8] |= std::uint8_t(0x80 >> (cid % 8));
    }
    write_stream_bytes(w, r, options.font_compress ? stream_filter::deflate : stream_filter::as_is, {}, bits);
}

void write_identity(writer& w, ref font_dict, fonts::font_ref const& font, font_options const& options) {
    ref const descendant = new_ref(w);
    ref const desc = new_ref(w);
    ref const tounicode = new_ref(w);
    ref const file = new_ref(w);
    std::string const base = base_font_name(font);
    auto const cache = font->used_font_glyph_cache->get();
    write_object(w, descendant,
                 dict{{
                     {"Type", name{"Font"}},
                     {"Subtype", name{is_cff(font) ? "CIDFontType0" : "CIDFontType2"}},
                     {"BaseFont", name{base}},
                     {"CIDSystemInfo", dict{{{"Registry", string{"Adobe"}},
                                             {"Ordering", string{"Identity"}},
                                             {"Supplement", std::int64_t{0}}}}},
                     {"W", font_objects::w_array(glyph_widths(font, cache))},
                     {"FontDescriptor", desc},
                 }});
    write_object(w, font_dict,
                 dict{{
                     {"Type", name{"Font"}},
                     {"Subtype", name{"Type0"}},
                     {"BaseFont", name{base}},
                     {"Encoding", name{"Identity-H"}},
                     {"DescendantFonts", array{{descendant}}},
                     {"ToUnicode", tounicode},
                 }});
    auto const subset = font->used_font_subset->get();
    std::optional<ref> const cid_set = subset ? std::optional<ref>(new_ref(w)) : std::nullopt;
    auto d = descriptor(font, base, file);
    if (cid_set) {
        d.dict_entries.emplace_back("CIDSet", *cid_set);
    }
    write_object(w, desc, d);
    write_tounicode(w, tounicode, cache, font_objects::tounicode_type::tounicode_ucs2, options);
    write_font_file(w, file, font, true);
    if (cid_set) {
        write_cid_set(w, *cid_set, subset_glyph_count(font, cache, *subset), options);
    }
}

} // namespace

std::string base_font_name(fonts::font_ref const& font) {
    auto const& basefont = font->used_font_data->font_info.basefont;
    if (auto const tag = fonts::pdf_font_tag(font)) {
        return *tag + "+" + basefont;
    }
    return basefont;
}

std::string glyph_code(font_pdf_encoding encoding, int glyph_number, std::u32string_view chars) {
    switch (encoding) {
    case font_pdf_encoding::macroman_encoding: {
        auto const code = chars.empty() ? std::nullopt : macroman::from_unicode(chars.front());
        return std::string(1, code ? char(*code) : '?');
    }
    case font_pdf_encoding::standard_encoding:
        return std::string(1, char(glyph_number & 0xFF));
    case font_pdf_encoding::identity_encoding:
        return {char((glyph_number >> 8) & 0xFF), char(glyph_number & 0xFF)};
    }
    return {};
}

void write_font(log::log const& log,
                writer& w,
                fonts::font_ref const& font,
                ref font_dict,
                font_options const& options) {
    auto const encoding = font->used_font_encoding->get();
    if (encoding != font_pdf_encoding::macroman_encoding && !options.font_embed) {
        // Glyph numbers mean nothing without the font that they number.
        log::log_warning(log, "embedding font \"" + fonts::describe_font(font) + "\"");
    }
    switch (encoding) {
    case font_pdf_encoding::macroman_encoding:
        write_macroman(w, font_dict, font, options);
        break;
    case font_pdf_encoding::standard_encoding:
        write_standard(w, font_dict, font, options);
        break;
    case font_pdf_encoding::identity_encoding:
        write_identity(w, font_dict, font, options);
        break;
    }
}

namespace {

// Cuts a font's glyph table down to the glyphs needed, in their order; false when none is left.
bool keep_needed(fonts::font_ref const& font, glyph_needs const& needs) {
    auto const head = needs.needs_kept_heads.find(font->used_font_id);
    std::size_t const kept_head = head == needs.needs_kept_heads.end() ? 0 : head->second;
    return font->used_font_glyph_cache->update([&](fonts::glyph_cache& cache) {
        fonts::glyph_cache out;
        for (std::size_t i = 0; i < cache.glyph_cache_entries.size(); ++i) {
            auto& entry = cache.glyph_cache_entries[i];
            auto const* cell = entry.entry_index.get();
            if (i < kept_head || needs.needs_kept.contains(cell) || needs.needs_shown.contains(cell)) {
                out.glyph_cache_positions.emplace(entry.entry_source, out.glyph_cache_entries.size());
                out.glyph_cache_entries.push_back(std::move(entry));
            }
        }
        bool const any = !out.glyph_cache_entries.empty();
        cache = std::move(out);
        return any;
    });
}

} // namespace

void attach_fonts(log::log const& log, writepdf::pdf_document& doc, fonts::fonts const& db, glyph_needs const* needs) {
    auto const& options = doc.doc_options;
    auto used = fonts::used_fonts(db);
    if (needs) {
        // A font the pages name stays, even with no glyph left to show.
        std::set<int> const named(doc.used_font_ids.begin(), doc.used_font_ids.end());
        std::erase_if(used, [&](fonts::font_ref const& font) {
            return !keep_needed(font, *needs) && !named.contains(font->used_font_id);
        });
    }
    // The list holds the newest font first; the file gets them in the order they came into use.
    std::reverse(used.begin(), used.end());
    for (auto const& font : used) {
        if (options.subset_fonts) {
            font_subset::subset_font(log, options.embed_fonts, font);
        } else {
            font_subset::prepare_whole_font(options.embed_fonts, font);
        }
    }
    auto by_id = std::make_shared<std::map<int, fonts::font_ref>>();
    doc.used_font_ids.clear();
    for (auto const& font : used) {
        doc.used_font_ids.push_back(font->used_font_id);
        by_id->emplace(font->used_font_id, font);
    }
    font_options const write_options{.font_embed = options.embed_fonts, .font_compress = options.compress};
    doc.write_font = [log, by_id, write_options](writer& w, int id, ref r) {
        auto const it = by_id->find(id);
        if (it == by_id->end()) {
            throw internal_error("missing font: " + std::to_string(id));
        }
        write_font(log, w, it->second, r, write_options);
    };
}

} // namespace vellum::pdf::pdf_fonts
