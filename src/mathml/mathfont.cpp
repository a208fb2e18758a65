#include "mathml/mathfont.hpp"

#include "text/font_data.hpp"
#include "text/fonts/freetype.hpp"
#include "text/opentype/glyf.hpp"
#include "text/opentype/tables.hpp"
#include "util/cell.hpp"

#include <map>

namespace vellum::mathml::mathfont {

namespace {

namespace om = opentype::math;

// The outline tables of a font, for glyph extents.
struct outlines {
    std::optional<bytes::bytes> glyf;
    std::optional<opentype::glyf::loca> loca;
    double units_per_em = 1000;
    int ascender = 800;
    int descender = -200;
};

// The caches below are keyed by address; each entry keeps its font (or request) alive, so that no
// other font can come to the same address while the entry stands.
std::shared_ptr<outlines const> outlines_of(ref<font_data::font_data> const& font) {
    static cell<std::map<font_data::font_data const*,
                         std::pair<ref<font_data::font_data>, std::shared_ptr<outlines const>>>>
        cache;
    auto const& data = *font;
    auto found = cache.update([&](auto& m) -> std::shared_ptr<outlines const> {
        auto it = m.find(&data);
        return it == m.end() ? nullptr : it->second.second;
    });
    if (found) {
        return found;
    }
    outlines o;
    o.units_per_em = data.font_info.units_per_em > 0 ? data.font_info.units_per_em : 1000;
    o.ascender = data.font_info.font_metrics.ascender;
    o.descender = data.font_info.font_metrics.descender;
    auto const head = opentype::tables::parse_head(data.font_tables.font_tables_head.view());
    auto glyf = fonts::freetype::load_table(data.font_face, opentype::reader::make_tag("glyf"));
    auto loca = fonts::freetype::load_table(data.font_face, opentype::reader::make_tag("loca"));
    if (head && glyf && loca) {
        auto l = opentype::glyf::parse_loca(loca->view(), head->head_index_to_loc_format,
                                            data.font_num_glyphs, glyf->view().size());
        if (l) {
            o.glyf = std::move(*glyf);
            o.loca = std::move(*l);
        }
    }
    auto shared = std::make_shared<outlines const>(std::move(o));
    cache.update([&](auto& m) { m[&data] = {font, shared}; });
    return shared;
}

// Fractions of the em in the manner of traditional mathematical typesetting, for fonts without a MATH
// table; `x` is the x-height in ems.
double fallback(om::constant c, double x) {
    double const rule = 0.04;
    switch (c) {
    case om::constant::script_percent_scale_down:
        return 71;
    case om::constant::script_script_percent_scale_down:
        return 50;
    case om::constant::delimited_sub_formula_min_height:
        return 1.3;
    case om::constant::display_operator_min_height:
        return 1.4;
    case om::constant::math_leading:
        return 0.15;
    case om::constant::axis_height:
        return 0.25;
    case om::constant::accent_base_height:
    case om::constant::flattened_accent_base_height:
        return x;
    case om::constant::subscript_shift_down:
        return 0.15;
    case om::constant::subscript_top_max:
        return 0.8 * x;
    case om::constant::subscript_baseline_drop_min:
        return 0.05;
    case om::constant::superscript_shift_up:
        return 0.413;
    case om::constant::superscript_shift_up_cramped:
        return 0.289;
    case om::constant::superscript_bottom_min:
        return 0.25 * x;
    case om::constant::superscript_baseline_drop_max:
        return 0.386;
    case om::constant::sub_superscript_gap_min:
        return 4 * rule;
    case om::constant::superscript_bottom_max_with_subscript:
        return 0.8 * x;
    case om::constant::space_after_script:
        return 0.05;
    case om::constant::upper_limit_gap_min:
        return 0.111;
    case om::constant::upper_limit_baseline_rise_min:
        return 0.2;
    case om::constant::lower_limit_gap_min:
        return 0.167;
    case om::constant::lower_limit_baseline_drop_min:
        return 0.6;
    case om::constant::stack_top_shift_up:
        return 0.444;
    case om::constant::stack_top_display_style_shift_up:
        return 0.677;
    case om::constant::stack_bottom_shift_down:
        return 0.345;
    case om::constant::stack_bottom_display_style_shift_down:
        return 0.686;
    case om::constant::stack_gap_min:
        return 3 * rule;
    case om::constant::stack_display_style_gap_min:
        return 7 * rule;
    case om::constant::stretch_stack_top_shift_up:
        return 0.111;
    case om::constant::stretch_stack_bottom_shift_down:
        return 0.6;
    case om::constant::stretch_stack_gap_above_min:
        return 0.111;
    case om::constant::stretch_stack_gap_below_min:
        return 0.167;
    case om::constant::fraction_numerator_shift_up:
        return 0.394;
    case om::constant::fraction_numerator_display_style_shift_up:
        return 0.677;
    case om::constant::fraction_denominator_shift_down:
        return 0.345;
    case om::constant::fraction_denominator_display_style_shift_down:
        return 0.686;
    case om::constant::fraction_numerator_gap_min:
    case om::constant::fraction_denominator_gap_min:
        return rule;
    case om::constant::fraction_num_display_style_gap_min:
    case om::constant::fraction_denom_display_style_gap_min:
        return 3 * rule;
    case om::constant::fraction_rule_thickness:
    case om::constant::overbar_rule_thickness:
    case om::constant::underbar_rule_thickness:
    case om::constant::overbar_extra_ascender:
    case om::constant::underbar_extra_descender:
    case om::constant::radical_rule_thickness:
    case om::constant::radical_extra_ascender:
        return rule;
    case om::constant::skewed_fraction_horizontal_gap:
        return 0.35;
    case om::constant::skewed_fraction_vertical_gap:
        return 0.1;
    case om::constant::overbar_vertical_gap:
    case om::constant::underbar_vertical_gap:
        return 3 * rule;
    case om::constant::radical_vertical_gap:
        return 1.25 * rule;
    case om::constant::radical_display_style_vertical_gap:
        return rule + x / 4;
    case om::constant::radical_kern_before_degree:
        return 5.0 / 18;
    case om::constant::radical_kern_after_degree:
        return -10.0 / 18;
    case om::constant::radical_degree_bottom_raise_percent:
        return 60;
    }
    return 0;
}

bool is_percent(om::constant c) {
    return c == om::constant::script_percent_scale_down ||
           c == om::constant::script_script_percent_scale_down ||
           c == om::constant::radical_degree_bottom_raise_percent;
}

std::shared_ptr<om::math_table const> math_table_of(fonts::font_ref const& font) {
    static cell<std::map<font_data::font_data const*,
                         std::pair<ref<font_data::font_data>, std::shared_ptr<om::math_table const>>>>
        cache;
    auto const* data = font->used_font_data.get();
    auto found = cache.update([&](auto& m) -> std::optional<std::shared_ptr<om::math_table const>> {
        auto it = m.find(data);
        return it == m.end() ? std::nullopt : std::optional(it->second.second);
    });
    if (found) {
        return *found;
    }
    std::shared_ptr<om::math_table const> table;
    if (auto bytes = fonts::freetype::load_table(data->font_face, opentype::reader::make_tag("MATH"))) {
        if (auto t = om::parse_math(bytes->view())) {
            table = std::make_shared<om::math_table const>(std::move(*t));
        }
    }
    cache.update([&](auto& m) { m[data] = {font->used_font_data, table}; });
    return table;
}

} // namespace

math_font const& math_font_of(fonts::fonts const& db, ref<fonts::font_req> const& request) {
    static cell<
        std::map<fonts::font_req const*, std::pair<ref<fonts::font_req>, std::shared_ptr<math_font const>>>>
        cache;
    auto const& req = *request;
    auto found = cache.update([&](auto& m) -> std::shared_ptr<math_font const> {
        auto it = m.find(&req);
        return it == m.end() ? nullptr : it->second.second;
    });
    if (found) {
        return *found;
    }
    // The font of the letters decides, unless it has no MATH table and the font of the operators
    // has one: a text font first in the family list still gets good fractions from the math font
    // behind it.
    math_font f;
    auto const letter = fonts::char_to_glyph(db, req, U'x');
    f.font = letter.raw_glyph_font_ref;
    f.table = math_table_of(f.font);
    if (!f.table) {
        auto const op = fonts::char_to_glyph(db, req, U'\u2211');
        if (auto t = math_table_of(op.raw_glyph_font_ref)) {
            f.font = op.raw_glyph_font_ref;
            f.table = t;
        }
    }
    f.units_per_em = f.font->used_font_data->font_info.units_per_em > 0
                         ? f.font->used_font_data->font_info.units_per_em
                         : 1000;
    auto const x = glyph_ink(letter.raw_glyph_font_ref, letter.raw_glyph_index, 1.0);
    if (x.ink_up > 0.2 && x.ink_up < 0.8) {
        f.x_height_em = x.ink_up;
    }
    // The map owns the record for the rest of the run, the request pointers being interned too.
    auto shared = std::make_shared<math_font const>(std::move(f));
    cache.update([&](auto& m) { m[&req] = {request, shared}; });
    return *shared;
}

double constant(math_font const& f, om::constant c, double size) {
    if (f.table) {
        double const v = om::value_of(*f.table, c);
        return is_percent(c) ? v : v * size / f.units_per_em;
    }
    double const v = fallback(c, f.x_height_em);
    return is_percent(c) ? v : v * size;
}

ink glyph_ink(fonts::font_ref const& font, std::uint32_t glyph, double size) {
    auto const& data = *font->used_font_data;
    auto const o = outlines_of(font->used_font_data);
    double const scale = size / o->units_per_em;
    double const advance = font_data::glyph_advance(data, glyph) * scale;
    if (o->glyf && o->loca) {
        auto const g = opentype::glyf::glyph_data(*o->loca, o->glyf->view(), glyph);
        if (!g || g->empty()) {
            // An empty glyph (a space) has no ink at all.
            return ink{.ink_left = 0, .ink_right = advance, .ink_up = 0, .ink_down = 0};
        }
        if (auto h = opentype::glyf::parse_glyph_header(*g)) {
            return ink{.ink_left = h->glyph_x_min * scale,
                       .ink_right = h->glyph_x_max * scale,
                       .ink_up = h->glyph_y_max * scale,
                       .ink_down = -h->glyph_y_min * scale};
        }
    }
    return ink{.ink_left = 0,
               .ink_right = advance,
               .ink_up = o->ascender * scale,
               .ink_down = -o->descender * scale};
}

fonts::grapheme
glyph_grapheme(fonts::font_ref const& font, std::uint32_t glyph, std::u32string const& chars) {
    fonts::raw_glyph raw{.raw_glyph_font_ref = font, .raw_glyph_unicodes = chars, .raw_glyph_index = glyph};
    return fonts::grapheme{.base_glyph = fonts::make_glyph(raw)};
}

double italic_correction(math_font const& f, fonts::font_ref const& font, std::uint32_t glyph, double size) {
    if (!f.table || font.get() != f.font.get()) {
        return 0;
    }
    auto const it = f.table->italics_corrections.find(std::uint16_t(glyph));
    return it == f.table->italics_corrections.end() ? 0 : it->second * size / f.units_per_em;
}

std::u32string map_variant(std::u32string const& text, std::string const& variant) {
    struct latin {
        std::string_view name;
        char32_t capital_a;
        char32_t digit_zero;
        char32_t greek_capital_alpha;
    };

    // The first capital letter, digit and Greek capital of each alphabet; 0 where the block has none.
    static constexpr latin alphabets[] = {
        {"bold", 0x1D400, 0x1D7CE, 0x1D6A8},    {"italic", 0x1D434, 0, 0x1D6E2},
        {"bold-italic", 0x1D468, 0, 0x1D71C},   {"script", 0x1D49C, 0, 0},
        {"bold-script", 0x1D4D0, 0, 0},         {"fraktur", 0x1D504, 0, 0},
        {"double-struck", 0x1D538, 0x1D7D8, 0}, {"bold-fraktur", 0x1D56C, 0, 0},
        {"sans-serif", 0x1D5A0, 0x1D7E2, 0},    {"bold-sans-serif", 0x1D5D4, 0x1D7EC, 0x1D756},
        {"sans-serif-italic", 0x1D608, 0, 0},   {"sans-serif-bold-italic", 0x1D63C, 0, 0x1D790},
        {"monospace", 0x1D670, 0x1D7F6, 0},
    };
    // Letters that Unicode encoded earlier, in the Letterlike Symbols block, and left as holes in the
    // alphabets.
    static std::map<std::pair<std::string_view, char32_t>, char32_t> const holes{
        {{"italic", U'h'}, 0x210E},        {{"script", U'B'}, 0x212C},
        {{"script", U'E'}, 0x2130},        {{"script", U'F'}, 0x2131},
        {{"script", U'H'}, 0x210B},        {{"script", U'I'}, 0x2110},
        {{"script", U'L'}, 0x2112},        {{"script", U'M'}, 0x2133},
        {{"script", U'R'}, 0x211B},        {{"script", U'e'}, 0x212F},
        {{"script", U'g'}, 0x210A},        {{"script", U'o'}, 0x2134},
        {{"fraktur", U'C'}, 0x212D},       {{"fraktur", U'H'}, 0x210C},
        {{"fraktur", U'I'}, 0x2111},       {{"fraktur", U'R'}, 0x211C},
        {{"fraktur", U'Z'}, 0x2128},       {{"double-struck", U'C'}, 0x2102},
        {{"double-struck", U'H'}, 0x210D}, {{"double-struck", U'N'}, 0x2115},
        {{"double-struck", U'P'}, 0x2119}, {{"double-struck", U'Q'}, 0x211A},
        {{"double-struck", U'R'}, 0x211D}, {{"double-struck", U'Z'}, 0x2124},
    };
    latin const* a = nullptr;
    for (auto const& candidate : alphabets) {
        if (candidate.name == variant) {
            a = &candidate;
        }
    }
    if (!a) {
        return text;
    }
    std::u32string out;
    for (char32_t c : text) {
        if (auto const h = holes.find({a->name, c}); h != holes.end()) {
            out += h->second;
        } else if (c >= U'A' && c <= U'Z') {
            out += char32_t(a->capital_a + (c - U'A'));
        } else if (c >= U'a' && c <= U'z') {
            out += char32_t(a->capital_a + 26 + (c - U'a'));
        } else if (c >= U'0' && c <= U'9' && a->digit_zero) {
            out += char32_t(a->digit_zero + (c - U'0'));
        } else if (c >= 0x391 && c <= 0x3A9 && a->greek_capital_alpha) {
            out += char32_t(a->greek_capital_alpha + (c - 0x391));
        } else if (c >= 0x3B1 && c <= 0x3C9 && a->greek_capital_alpha) {
            out += char32_t(a->greek_capital_alpha + 26 + (c - 0x3B1));
        } else if (c == 0x131 && variant == "italic") {
            out += char32_t(0x1D6A4);
        } else if (c == 0x237 && variant == "italic") {
            out += char32_t(0x1D6A5);
        } else {
            out += c;
        }
    }
    return out;
}

} // namespace vellum::mathml::mathfont
