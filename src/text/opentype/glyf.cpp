#include "text/opentype/glyf.hpp"

namespace vellum::opentype::glyf {

using reader::cursor;
using reader::data;

namespace {

// Component flags.
constexpr std::uint16_t arg_1_and_2_are_words = 0x0001;
constexpr std::uint16_t we_have_a_scale = 0x0008;
constexpr std::uint16_t more_components = 0x0020;
constexpr std::uint16_t we_have_an_x_and_y_scale = 0x0040;
constexpr std::uint16_t we_have_a_two_by_two = 0x0080;

} // namespace

result<loca> parse_loca(data d, std::int16_t index_to_loc_format, std::uint16_t num_glyphs, std::size_t glyf_length) {
    if (index_to_loc_format != 0 && index_to_loc_format != 1) {
        return fail("loca table: unknown format " + std::to_string(index_to_loc_format));
    }
    bool const long_offsets = index_to_loc_format == 1;
    std::size_t const count = std::size_t(num_glyphs) + 1;
    if (d.size() < count * (long_offsets ? 4 : 2)) {
        return fail("loca table: truncated");
    }
    cursor c{.cursor_data = d};
    loca l;
    l.loca_offsets.reserve(count);
    for (std::size_t i = 0; i < count; ++i) {
        std::uint32_t const off = long_offsets ? c.u32() : std::uint32_t(c.u16()) * 2;
        if (!l.loca_offsets.empty() && off < l.loca_offsets.back()) {
            return fail("loca table: offsets go backwards at glyph " + std::to_string(i));
        }
        if (off > glyf_length) {
            return fail("loca table: glyph " + std::to_string(i) + " lies outside glyf");
        }
        l.loca_offsets.push_back(off);
    }
    return l;
}

std::optional<data> glyph_data(loca const& l, data glyf, std::uint32_t glyph) {
    if (std::size_t(glyph) + 1 >= l.loca_offsets.size()) {
        return std::nullopt;
    }
    auto const start = l.loca_offsets[glyph];
    auto const end = l.loca_offsets[glyph + 1];
    if (end < start) {
        return std::nullopt;
    }
    return reader::slice(glyf, start, end - start);
}

result<glyph_header> parse_glyph_header(data glyph) {
    cursor c{.cursor_data = glyph};
    glyph_header h{.glyph_contours = c.i16(),
                   .glyph_x_min = c.i16(),
                   .glyph_y_min = c.i16(),
                   .glyph_x_max = c.i16(),
                   .glyph_y_max = c.i16()};
    if (!c.ok()) {
        return fail("glyf table: truncated glyph header");
    }
    return h;
}

result<std::vector<component>> parse_components(data glyph) {
    auto h = parse_glyph_header(glyph);
    if (!h) {
        return fail(h.error());
    }
    std::vector<component> out;
    if (h->glyph_contours >= 0) {
        return out;
    }
    cursor c = reader::cursor_at(glyph, 10);
    for (;;) {
        component comp{.component_flags = c.u16()};
        comp.component_glyph_offset = std::uint32_t(c.cursor_pos);
        comp.component_glyph = c.u16();
        std::size_t skip = (comp.component_flags & arg_1_and_2_are_words) ? 4 : 2;
        if (comp.component_flags & we_have_a_scale) {
            skip += 2;
        } else if (comp.component_flags & we_have_an_x_and_y_scale) {
            skip += 4;
        } else if (comp.component_flags & we_have_a_two_by_two) {
            skip += 8;
        }
        c.skip(skip);
        if (!c.ok()) {
            return fail("glyf table: truncated composite glyph");
        }
        out.push_back(comp);
        if (!(comp.component_flags & more_components)) {
            break;
        }
    }
    return out;
}

} // namespace vellum::opentype::glyf
