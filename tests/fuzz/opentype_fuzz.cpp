// Fuzz target over the font file readers: WOFF unpacking, the sfnt table directory, every table reader
// on the tables it names, the font description, cmap lookups with the glyph-count check, and each
// reader once more on the raw input as if it were that table.
#include "text/cff_subset.hpp"
#include "text/font_data.hpp"
#include "text/opentype/cff.hpp"
#include "text/opentype/cmap.hpp"
#include "text/opentype/glyf.hpp"
#include "text/opentype/kern.hpp"
#include "text/opentype/tables.hpp"
#include "text/opentype/woff.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace {

using namespace vellum;
using namespace vellum::opentype;
using reader::data;
using reader::make_tag;

// Codes looked up in every cmap: common ones, then a few taken from the input itself.
std::vector<std::uint32_t> codes_for(data d) {
    std::vector<std::uint32_t> codes = {0, 0x20, 0x41, 0xE9, 0x20AC, 0xF041, 0xFFFF, 0x1F600, 0x10FFFF, 0xFFFFFFFF};
    for (std::size_t i = 0; i + 4 <= d.size() && codes.size() < 18; i += 1 + d.size() / 8) {
        codes.push_back((std::uint32_t(d[i]) << 24 | std::uint32_t(d[i + 1]) << 16 | d[i + 2] << 8 | d[i + 3]) >>
                        (d[i] % 24));
    }
    return codes;
}

void exercise_cmap(data table, data codes_from, std::uint32_t num_glyphs) {
    auto cm = cmap::parse_cmap(table);
    if (!cm) {
        return;
    }
    auto const codes = codes_for(codes_from);
    for (auto const& r : cm->cmap_records) {
        cmap::subtable const sub{.subtable_offset = r.record_offset, .subtable_format = r.record_format};
        for (auto c : codes) {
            auto const g = cmap::lookup(table, sub, c);
            (void)(g < num_glyphs);
        }
    }
    (void)cmap::choose_subtable(*cm);
}

struct sfnt_tables {
    tables::directory dir;
    data file;
    static std::optional<bytes::bytes> read(void const* context, reader::tag t) {
        auto const* s = static_cast<sfnt_tables const*>(context);
        auto d = tables::find_table(s->dir, s->file, t);
        if (!d) {
            return std::nullopt;
        }
        return bytes::from_span(*d);
    }
};

void exercise_sfnt(data file) {
    auto dir = tables::parse_directory(file);
    if (!dir) {
        return;
    }
    auto table = [&](char const* t) { return tables::find_table(*dir, file, make_tag(t)).value_or(data{}); };
    for (auto const& r : dir->directory_tables) {
        (void)tables::checksum(*reader::slice(file, r.record_offset, r.record_length));
    }
    auto head = tables::parse_head(table("head"));
    auto hhea = tables::parse_hhea(table("hhea"));
    auto maxp = tables::parse_maxp(table("maxp"));
    (void)tables::parse_os2(table("OS/2"));
    (void)tables::parse_post(table("post"));
    if (auto n = tables::parse_name(table("name"))) {
        (void)tables::find_name(*n, tables::name_id::family);
        (void)tables::find_name(*n, tables::name_id::postscript_name);
    }
    std::uint16_t const num_glyphs = maxp ? maxp->maxp_num_glyphs : 0;
    if (hhea) {
        if (auto m = tables::parse_hmtx(table("hmtx"), hhea->hhea_number_of_hmetrics, num_glyphs)) {
            (void)tables::advance_of(*m, 0);
            (void)tables::advance_of(*m, num_glyphs);
        }
    }
    if (auto vhea = tables::parse_hhea(table("vhea"))) {
        (void)tables::parse_hmtx(table("vmtx"), vhea->hhea_number_of_hmetrics, num_glyphs);
    }
    exercise_cmap(table("cmap"), file, num_glyphs);
    if (auto k = kern::parse_kern(table("kern"))) {
        (void)kern::kerning(*k, 1, 2);
    }
    if (head) {
        auto const glyf = table("glyf");
        if (auto l = glyf::parse_loca(table("loca"), head->head_index_to_loc_format, num_glyphs, glyf.size())) {
            for (std::uint32_t g = 0; g < std::min<std::uint32_t>(num_glyphs, 4000); ++g) {
                if (auto gd = glyf::glyph_data(*l, glyf, g)) {
                    (void)glyf::parse_components(*gd);
                }
            }
        }
    }
    (void)cff::parse_cff(table("CFF "));
    (void)cff_subset::make_cff_subset(table("CFF "), {0, 1, 2, 3});
    sfnt_tables const s{*dir, file};
    (void)font_data::describe_font(sfnt_tables::read, &s);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* bytes, std::size_t size) {
    data const d(bytes, size);
    if (woff::is_woff(d)) {
        if (auto sfnt = woff::decode_woff(d)) {
            exercise_sfnt(*sfnt);
        }
    } else {
        exercise_sfnt(d);
    }
    // The raw input as each kind of table.
    (void)tables::parse_head(d);
    (void)tables::parse_hhea(d);
    (void)tables::parse_maxp(d);
    (void)tables::parse_os2(d);
    (void)tables::parse_post(d);
    (void)tables::parse_name(d);
    (void)tables::parse_hmtx(d, size > 0 ? bytes[0] : 0, 300);
    exercise_cmap(d, d, 0x10000);
    (void)kern::parse_kern(d);
    (void)cff::parse_cff(d);
    (void)cff_subset::make_cff_subset(d, {0, 1, 2, 3});
    (void)glyf::parse_components(d);
    (void)glyf::parse_loca(d, size > 1 ? bytes[1] & 1 : 0, std::uint16_t(size / 3), size * 2);
    return 0;
}
