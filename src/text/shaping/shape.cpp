#include "text/shaping/shape.hpp"

#include "text/opentype/kern.hpp"
#include "text/opentype/layout.hpp"
#include "text/shaping/arabic.hpp"
#include "text/shaping/indic.hpp"
#include "text/shaping/lookups.hpp"
#include "text/unicode/shaping_props.hpp"

#include <algorithm>
#include <array>
#include <functional>
#include <map>
#include <optional>

namespace vellum::shaping::shape {

namespace {

using opentype::reader::make_tag;
using opentype::reader::tag;
using unicode::script::script;
namespace layout = opentype::layout;

// The OpenType script tag of each script, in the order of the script enumeration. Inherited, common and
// unknown text has no script of its own and takes the font's default script.
constexpr std::array<char const*, 78> ot_script_tags = {
    "arab", "armn", "bali", "beng", "bopo", "brai", "bugi", "buhd", "cans", "cari", "cher", "cham", "copt",
    "cprt", "cyrl", "deva", "dsrt", "ethi", "geor", "glag", "goth", "grek", "gujr", "guru", "hang", "hani",
    "hano", "hebr", "kana", "ital", "kali", "kana", "khar", "khmr", "knda", "lao ", "latn", "lepc", "limb",
    "linb", "lyci", "lydi", "mlym", "mong", "mymr", "nko ", "ogam", "olck", "orya", "osma", "phag", "phnx",
    "DFLT", "rjng", "runr", "saur", "shaw", "sinh", "sund", "sylo", "syrc", "tagb", "tale", "talu", "taml",
    "telu", "tfng", "tglg", "thaa", "thai", "tibt", "ugar", "vai ", "xpeo", "xsux", "yi  ", "DFLT", "DFLT",
};

// The Indic scripts were given new tags when their shaping model was revised; fonts made for it list
// those.
std::optional<char const*> indic_v2_tag(script s) {
    switch (s) {
    case script::deva:
        return "dev2";
    case script::beng:
        return "bng2";
    case script::gujr:
        return "gjr2";
    case script::guru:
        return "gur2";
    case script::knda:
        return "knd2";
    case script::mlym:
        return "mlm2";
    case script::orya:
        return "ory2";
    case script::taml:
        return "tml2";
    case script::telu:
        return "tel2";
    default:
        return std::nullopt;
    }
}

enum class model { plain, arabic, indic };

model model_of(script s) {
    if (s == script::arab || s == script::syrc) {
        return model::arabic;
    }
    return indic::is_indic(s) ? model::indic : model::plain;
}

// A feature of one stage. Lookups of all features of a stage are applied together in the lookup list's
// order, which is the order the font's designer made them to work in.
struct stage_feature {
    tag feature_tag = 0;
    std::uint32_t feature_mask = 1;
    bool feature_per_syllable = false;
    bool feature_manual_zwj = false;
    std::optional<int> feature_param;
};

struct stage {
    std::vector<stage_feature> stage_features;
    /// Work to do on the glyphs after the stage's lookups.
    std::function<void(buffer::glyphs&)> stage_after;
};

struct planned_lookup {
    std::uint16_t lookup_index = 0;
    lookups::apply_options lookup_options;
};

// The lookups of a stage's features that the language system has, in lookup order; a lookup that two
// features share applies once, to the glyphs of either.
std::vector<planned_lookup> plan_stage(lookups::layout_table const& t,
                                       layout::lang_sys const& sys,
                                       stage const& s,
                                       bool rtl) {
    std::map<std::uint16_t, lookups::apply_options> by_index;
    for (auto const& f : s.stage_features) {
        auto const found = layout::find_feature(t.table_data, sys, f.feature_tag);
        if (!found) {
            continue;
        }
        for (auto const index : layout::feature_lookups(t.table_data, *found)) {
            auto [it, fresh] = by_index.try_emplace(
                index, lookups::apply_options{.apply_mask = f.feature_mask,
                                              .apply_alternate = f.feature_param,
                                              .apply_per_syllable = f.feature_per_syllable,
                                              .apply_manual_zwj = f.feature_manual_zwj,
                                              .apply_vertical = f.feature_tag == make_tag("vert") ||
                                                                f.feature_tag == make_tag("vrt2"),
                                              .apply_rtl = rtl});
            if (!fresh) {
                it->second.apply_mask |= f.feature_mask;
            }
        }
    }
    std::vector<planned_lookup> out;
    for (auto const& [index, options] : by_index) {
        out.push_back({index, options});
    }
    return out;
}

void run_stages(log::log const& log,
                lookups::layout_table const* t,
                std::optional<layout::lang_sys> const& sys,
                std::vector<stage> const& stages,
                bool rtl,
                buffer::glyphs& glyphs) {
    for (auto const& s : stages) {
        if (t && sys) {
            for (auto const& p : plan_stage(*t, *sys, s, rtl)) {
                lookups::apply_lookup(log, *t, p.lookup_index, p.lookup_options, glyphs);
            }
        }
        if (s.stage_after) {
            s.stage_after(glyphs);
        }
    }
}

stage_feature global(char const* t, bool manual_zwj = false) {
    return {.feature_tag = make_tag(t), .feature_mask = 1, .feature_manual_zwj = manual_zwj};
}

// The document's features join the last stage; a feature turned off (parameter 0) leaves every stage,
// so that "calt" or "liga" off also holds for scripts that apply them in stages of their own.
void add_requested(std::vector<stage>& stages, std::vector<fonts::feature> const& requested, bool per_syllable) {
    for (auto const& f : requested) {
        auto const t = make_tag(f.feature_tag);
        for (auto& s : stages) {
            std::erase_if(s.stage_features, [&](stage_feature const& x) { return x.feature_tag == t; });
        }
        if (f.feature_param && *f.feature_param == 0) {
            continue;
        }
        stages.back().stage_features.push_back(
            {.feature_tag = t, .feature_mask = 1, .feature_per_syllable = per_syllable, .feature_param = f.feature_param});
    }
}

// Bits of the joining-form features in the glyph masks.
constexpr std::uint32_t isol_bit = 1u << 1;
constexpr std::uint32_t fina_bit = 1u << 2;
constexpr std::uint32_t medi_bit = 1u << 3;
constexpr std::uint32_t init_bit = 1u << 4;

std::uint32_t form_bit(arabic::form f) {
    switch (f) {
    case arabic::form::none:
        return 0;
    case arabic::form::isol:
        return isol_bit;
    case arabic::form::fina:
        return fina_bit;
    case arabic::form::medi:
        return medi_bit;
    case arabic::form::init:
        return init_bit;
    }
    return 0;
}

indic::masks const indic_masks{.mask_global = 1,
                               .mask_rphf = 1u << 1,
                               .mask_pref = 1u << 2,
                               .mask_blwf = 1u << 3,
                               .mask_abvf = 1u << 4,
                               .mask_half = 1u << 5,
                               .mask_pstf = 1u << 6,
                               .mask_init = 1u << 7};

std::vector<stage> gsub_stages(model m,
                               script s,
                               run_request const& request,
                               log::log const& log,
                               std::function<std::uint32_t(char32_t)> const& glyph_of,
                               lookups::layout_table const* t,
                               std::optional<layout::lang_sys> const& sys) {
    std::vector<stage> stages;
    switch (m) {
    case model::plain:
        stages.push_back({{global("ccmp"), global("locl"), global("rlig"), global("calt"), global("clig"),
                           global("liga"), global("rclt")}});
        if (request.run_vertical) {
            // The vertical forms: "vrt2" where the font has it, as it also turns the glyphs that are
            // meant to lie sideways; otherwise "vert", which holds the punctuation and brackets only.
            bool const has_vrt2 = t && sys && layout::find_feature(t->table_data, *sys, make_tag("vrt2"));
            stages.back().stage_features.insert(stages.back().stage_features.begin(),
                                                global(has_vrt2 ? "vrt2" : "vert"));
        }
        break;
    case model::arabic:
        stages.push_back({{global("ccmp"), global("locl")}});
        stages.push_back({{{.feature_tag = make_tag("isol"), .feature_mask = isol_bit}}});
        stages.push_back({{{.feature_tag = make_tag("fina"), .feature_mask = fina_bit}}});
        stages.push_back({{{.feature_tag = make_tag("medi"), .feature_mask = medi_bit}}});
        stages.push_back({{{.feature_tag = make_tag("init"), .feature_mask = init_bit}}});
        stages.push_back({{global("rlig", true)}});
        stages.push_back({{global("calt", true)}});
        stages.push_back({{global("rclt", true), global("liga", true), global("clig", true), global("mset")}});
        break;
    case model::indic: {
        auto per = [](char const* t, std::uint32_t mask) {
            return stage_feature{.feature_tag = make_tag(t),
                                 .feature_mask = mask,
                                 .feature_per_syllable = true,
                                 .feature_manual_zwj = true};
        };
        auto const& k = indic_masks;
        auto would = [&log, t, sys](tag feature, std::span<std::uint32_t const> glyph_ids) {
            if (!t || !sys) {
                return false;
            }
            auto const f = layout::find_feature(t->table_data, *sys, feature);
            if (!f) {
                return false;
            }
            for (auto const index : layout::feature_lookups(t->table_data, *f)) {
                buffer::glyphs trial;
                for (auto g : glyph_ids) {
                    trial.push_back({.info_glyph = g, .info_mask = ~0u});
                }
                lookups::set_glyph_classes(*t, trial);
                auto const first = trial.front().info_glyph;
                lookups::apply_lookup(log, *t, index, {.apply_manual_zwj = true}, trial);
                // The lookup applies when it makes one glyph of the sequence or changes its first glyph.
                if (trial.size() < glyph_ids.size() || trial.front().info_glyph != first) {
                    return true;
                }
            }
            return false;
        };
        indic::font_access access{.access_would = would, .access_glyph = glyph_of};
        stage first{{per("locl", k.mask_global), per("ccmp", k.mask_global)}};
        first.stage_after = [s, access](buffer::glyphs& g) { indic::initial_reordering(g, s, indic_masks, access); };
        stages.push_back(std::move(first));
        for (auto const& [name, mask] : std::initializer_list<std::pair<char const*, std::uint32_t>>{
                 {"nukt", k.mask_global},
                 {"akhn", k.mask_global},
                 {"rphf", k.mask_rphf},
                 {"rkrf", k.mask_global},
                 {"pref", k.mask_pref},
                 {"blwf", k.mask_blwf},
                 {"abvf", k.mask_abvf},
                 {"half", k.mask_half},
                 {"pstf", k.mask_pstf},
                 {"vatu", k.mask_global},
                 {"cjct", k.mask_global}}) {
            stages.push_back({{per(name, mask)}});
        }
        stages.back().stage_after = [s](buffer::glyphs& g) { indic::final_reordering(g, s, indic_masks); };
        stages.push_back({{per("init", k.mask_init), per("pres", k.mask_global), per("abvs", k.mask_global),
                           per("blws", k.mask_global), per("psts", k.mask_global), per("haln", k.mask_global),
                           per("calt", k.mask_global), per("clig", k.mask_global), per("liga", k.mask_global),
                           per("rclt", k.mask_global)}});
        break;
    }
    }
    add_requested(stages, request.run_features, m == model::indic);
    return stages;
}

// Scripts whose letters stand upright in vertical lines.
bool upright_script(script s) {
    return s == script::hani || s == script::hira || s == script::kana || s == script::hang || s == script::bopo ||
           s == script::yiii;
}

std::vector<stage> gpos_stages(model m, run_request const& request) {
    stage s{{global("mark"), global("mkmk"), global("curs"), global("dist")}};
    if (m == model::indic) {
        s.stage_features.push_back(global("abvm"));
        s.stage_features.push_back(global("blwm"));
    }
    // Kerning pairs move glyphs along a horizontal line; upright glyphs in a vertical line would be
    // moved across their column, so East Asian runs set vertically are not kerned.
    if (request.run_kerning && !(request.run_vertical && upright_script(request.run_script))) {
        s.stage_features.push_back(global("kern"));
    }
    std::vector<fonts::feature> positioning;
    for (auto const& f : request.run_features) {
        if (f.feature_tag == "kern" || f.feature_tag == "mark" || f.feature_tag == "mkmk" ||
            f.feature_tag == "curs" || f.feature_tag == "dist" || f.feature_tag == "cpsp" ||
            f.feature_tag == "palt" || f.feature_tag == "halt") {
            positioning.push_back(f);
        }
    }
    std::vector<stage> out{std::move(s)};
    add_requested(out, positioning, false);
    return out;
}

// Characters that are never seen: joiners, direction marks, the soft hyphen and the like.
bool default_ignorable(char32_t c) {
    return c == 0x00AD || c == 0x034F || c == 0x061C || (c >= 0x115F && c <= 0x1160) ||
           (c >= 0x17B4 && c <= 0x17B5) || (c >= 0x180B && c <= 0x180F) || (c >= 0x200B && c <= 0x200F) ||
           (c >= 0x202A && c <= 0x202E) || (c >= 0x2060 && c <= 0x206F) || c == 0x3164 ||
           (c >= 0xFE00 && c <= 0xFE0F) || c == 0xFEFF || c == 0xFFA0 || (c >= 0xFFF0 && c <= 0xFFF8) ||
           (c >= 0x1BCA0 && c <= 0x1BCA3) || (c >= 0x1D173 && c <= 0x1D17A) || (c >= 0xE0000 && c <= 0xE0FFF);
}

// Resolves attachments into offsets from each glyph's own pen position: a cursive glyph hangs at its
// parent's height; a mark moves with its base and back over the advances between them.
void propagate(buffer::glyphs& g, std::size_t i, bool rtl, int depth) {
    auto const chain = g[i].pos_attach_chain;
    if (chain == 0 || depth > 64) {
        return;
    }
    auto const kind = g[i].pos_attach_kind;
    g[i].pos_attach_chain = 0;
    auto const j = std::size_t(std::ptrdiff_t(i) + chain);
    if (j >= g.size()) {
        return;
    }
    propagate(g, j, rtl, depth + 1);
    if (kind == buffer::attach_kind::cursive) {
        g[i].pos_y_offset += g[j].pos_y_offset;
        return;
    }
    g[i].pos_x_offset += g[j].pos_x_offset;
    g[i].pos_y_offset += g[j].pos_y_offset;
    if (j >= i) {
        return;
    }
    if (!rtl) {
        for (std::size_t k = j; k < i; ++k) {
            g[i].pos_x_offset -= g[k].pos_x_advance;
            g[i].pos_y_offset -= g[k].pos_y_advance;
        }
    } else {
        for (std::size_t k = j + 1; k <= i; ++k) {
            g[i].pos_x_offset += g[k].pos_x_advance;
            g[i].pos_y_offset += g[k].pos_y_advance;
        }
    }
}

// The combining class by which marks are put in order, with the Hebrew and Arabic points in the order that
// fonts expect: shin and sin dots and dagesh before the vowels, shadda before the other harakat.
std::uint8_t mark_order(char32_t c) {
    auto const ccc = unicode::shaping_props::combining_class(c);
    if (ccc >= 10 && ccc <= 26) {
        static constexpr std::uint8_t hebrew[] = {22, 15, 16, 17, 23, 18, 19, 20, 21, 14, 24, 12, 25, 13, 10, 11, 26};
        return hebrew[ccc - 10];
    }
    if (ccc >= 27 && ccc <= 35) {
        static constexpr std::uint8_t arabic[] = {28, 29, 30, 31, 32, 33, 27, 34, 35};
        return arabic[ccc - 27];
    }
    return ccc;
}

// Arabic modifier combining marks: the hamzas and small letters that modify the letter itself rather than
// add a vowel, so that fonts expect them next to the letter, before the other marks.
bool modifier_combining_mark(char32_t c) {
    switch (c) {
    case 0x0654: case 0x0655: case 0x0658: case 0x06DC: case 0x06E3: case 0x06E7: case 0x06E8:
    case 0x08CA: case 0x08CB: case 0x08CD: case 0x08CE: case 0x08CF: case 0x08D3: case 0x08F3:
        return true;
    default:
        return false;
    }
}

// The transient reordering of Arabic marks: in a run of marks in canonical order, the modifier marks
// that lead the marks below (class 220) and then those that lead the marks above (230) move to the
// front of the run.
template <class Order>
void reorder_arabic_marks(buffer::glyphs& glyphs, std::size_t start, std::size_t end, Order const& order) {
    std::size_t i = start;
    for (std::uint8_t cc : {std::uint8_t(220), std::uint8_t(230)}) {
        while (i < end && order(glyphs[i]) < cc) {
            ++i;
        }
        if (i == end) {
            break;
        }
        if (order(glyphs[i]) > cc) {
            continue;
        }
        std::size_t j = i;
        while (j < end && order(glyphs[j]) == cc && glyphs[j].info_chars.size() == 1 &&
               modifier_combining_mark(glyphs[j].info_chars[0])) {
            ++j;
        }
        if (i == j) {
            continue;
        }
        std::rotate(glyphs.begin() + std::ptrdiff_t(start), glyphs.begin() + std::ptrdiff_t(i),
                    glyphs.begin() + std::ptrdiff_t(j));
        start += j - i;
        i = j;
    }
}

// Puts each run of combining marks in canonical order (stable, by combining class), so that the same text
// typed in another order of marks looks the same.
void sort_marks(buffer::glyphs& glyphs, bool arabic) {
    auto order = [](buffer::glyph_info const& g) {
        return g.info_chars.size() == 1 ? mark_order(g.info_chars[0]) : std::uint8_t(0);
    };
    std::size_t i = 0;
    while (i < glyphs.size()) {
        if (order(glyphs[i]) == 0) {
            ++i;
            continue;
        }
        std::size_t j = i;
        while (j < glyphs.size() && order(glyphs[j]) != 0) {
            ++j;
        }
        if (j - i > 1) {
            std::stable_sort(glyphs.begin() + std::ptrdiff_t(i), glyphs.begin() + std::ptrdiff_t(j),
                             [&](auto const& a, auto const& b) { return order(a) < order(b); });
            if (arabic) {
                reorder_arabic_marks(glyphs, i, j, order);
            }
        }
        i = j;
    }
}

// Indic vowel signs in two parts, and letters with nukta that are never composed, are shaped as their
// parts, when the font has both. A first part that is itself in two parts (Kannada's oo sign is the o
// sign and a length mark, the o sign the e sign and the uu sign) is split again.
void decompose_indic(font_data::font_data const& font, buffer::glyphs& glyphs) {
    for (std::size_t i = 0; i < glyphs.size(); ++i) {
        while (glyphs[i].info_chars.size() == 1) {
            auto const parts = unicode::shaping_props::indic_decomposition(glyphs[i].info_chars[0]);
            if (!parts) {
                break;
            }
            auto const a = font_data::char_to_glyph(font, parts->first);
            auto const b = font_data::char_to_glyph(font, parts->second);
            if (a == 0 || b == 0) {
                break;
            }
            auto second = glyphs[i];
            glyphs[i].info_glyph = a;
            glyphs[i].info_chars = std::u32string(1, parts->first);
            second.info_glyph = b;
            second.info_chars = std::u32string(1, parts->second);
            glyphs.insert(glyphs.begin() + std::ptrdiff_t(i + 1), second);
        }
    }
}

// A base followed by a combining mark is shown by the glyph of their canonical composite where the
// font has one (a kana and its voicing mark, a Latin letter and its accent), as the font designed it,
// rather than by the mark placed over the base; in vertical text a mark placed on its own would also
// take a place of its own. The glyph keeps both characters, so copied text is what was written.
void compose_marks(font_data::font_data const& font, buffer::glyphs& glyphs) {
    if (glyphs.size() < 2) {
        return;
    }
    buffer::glyphs out;
    out.reserve(glyphs.size());
    // The character the last glyph out stands for as a whole, while it is a starter.
    std::optional<char32_t> starter;
    for (auto& g : glyphs) {
        if (starter && g.info_chars.size() == 1 && unicode::shaping_props::combining_class(g.info_chars[0]) != 0) {
            if (auto const whole = unicode::shaping_props::canonical_composition(*starter, g.info_chars[0])) {
                if (auto const glyph = font_data::char_to_glyph(font, *whole); glyph != 0) {
                    out.back().info_glyph = glyph;
                    out.back().info_chars += g.info_chars;
                    starter = *whole;
                    continue;
                }
            }
        }
        starter = g.info_chars.size() == 1 && unicode::shaping_props::combining_class(g.info_chars[0]) == 0
                      ? std::optional<char32_t>(g.info_chars[0])
                      : std::nullopt;
        out.push_back(std::move(g));
    }
    glyphs = std::move(out);
}

struct font_tables {
    std::optional<bytes::bytes> gsub;
    std::optional<bytes::bytes> gpos;
    std::optional<bytes::bytes> gdef;
};

} // namespace

std::vector<tag> script_tags(script s) {
    std::vector<tag> out;
    if (auto const v2 = indic_v2_tag(s)) {
        out.push_back(make_tag(*v2));
    }
    out.push_back(make_tag(ot_script_tags[std::size_t(s)]));
    return out;
}

bool has_substitution_feature(font_data::font_data const& font, script s, tag feature) {
    auto const gsub = font_data::get_lazy_table(font, font_data::lazy_table::gsub);
    if (!gsub) {
        return false;
    }
    auto const sys = layout::find_script_langsys(gsub->view(), script_tags(s), 0);
    return sys && layout::find_feature(gsub->view(), *sys, feature).has_value();
}

buffer::glyphs shape_glyphs(log::log const& log,
                            font_data::font_data const& font,
                            run_request const& request,
                            buffer::glyphs glyphs) {
    if (glyphs.empty()) {
        return glyphs;
    }
    bool const rtl = request.run_direction == fonts::direction::rtl;
    font_tables const tables{.gsub = font_data::get_lazy_table(font, font_data::lazy_table::gsub),
                             .gpos = font_data::get_lazy_table(font, font_data::lazy_table::gpos),
                             .gdef = font_data::get_lazy_table(font, font_data::lazy_table::gdef)};
    layout::gdef const gdef = tables.gdef ? layout::read_gdef(tables.gdef->view()) : layout::gdef{};
    auto table_of = [&](std::optional<bytes::bytes> const& b, lookups::table_kind k) {
        return std::optional<lookups::layout_table>(
            b ? std::optional<lookups::layout_table>(lookups::layout_table{.table_data = b->view(),
                                                                            .table_which = k,
                                                                            .table_gdef = &gdef,
                                                                            .table_has_gdef = tables.gdef.has_value()})
              : std::nullopt);
    };
    auto const gsub = table_of(tables.gsub, lookups::table_kind::gsub);
    auto const gpos = table_of(tables.gpos, lookups::table_kind::gpos);
    auto const scripts = script_tags(request.run_script);
    std::optional<layout::lang_sys> gsub_sys;
    std::optional<layout::lang_sys> gpos_sys;
    if (gsub) {
        gsub_sys = layout::find_script_langsys(gsub->table_data, scripts, request.run_language);
    }
    if (gpos) {
        gpos_sys = layout::find_script_langsys(gpos->table_data, scripts, request.run_language);
    }
    model const m = model_of(request.run_script);
    if (m == model::indic) {
        decompose_indic(font, glyphs);
    }
    sort_marks(glyphs, m == model::arabic);
    if (m == model::plain) {
        compose_marks(font, glyphs);
    }
    for (auto& g : glyphs) {
        g.info_mask = 1;
    }
    lookups::layout_table const classes_from =
        gsub ? *gsub : lookups::layout_table{.table_gdef = &gdef, .table_has_gdef = tables.gdef.has_value()};
    lookups::set_glyph_classes(classes_from, glyphs);

    // Substitution.
    if (m == model::arabic) {
        std::u32string text;
        for (auto const& g : glyphs) {
            text.push_back(g.info_chars.empty() ? U'\0' : g.info_chars.front());
        }
        auto const forms = arabic::joining_forms(text);
        for (std::size_t i = 0; i < glyphs.size(); ++i) {
            glyphs[i].info_mask |= form_bit(forms[i]);
        }
    }
    auto const glyph_of = [&font](char32_t c) { return font_data::char_to_glyph(font, c); };
    auto const stages =
        gsub_stages(m, request.run_script, request, log, glyph_of, gsub ? &*gsub : nullptr, gsub_sys);
    run_stages(log, gsub ? &*gsub : nullptr, gsub_sys, stages, rtl, glyphs);

    // Positioning.
    for (auto& g : glyphs) {
        g.pos_x_advance = font_data::glyph_advance(font, g.info_glyph);
        g.pos_y_advance = 0;
        g.pos_x_offset = 0;
        g.pos_y_offset = 0;
        g.pos_attach_chain = 0;
        g.pos_attach_kind = buffer::attach_kind::none;
    }
    if (gpos) {
        for (auto const& s : gpos_stages(m, request)) {
            if (gpos_sys) {
                for (auto const& p : plan_stage(*gpos, *gpos_sys, s, rtl)) {
                    lookups::apply_lookup(log, *gpos, p.lookup_index, p.lookup_options, glyphs);
                }
            }
        }
    } else if (request.run_kerning) {
        // Older fonts kern by the "kern" table instead.
        if (auto const k = font_data::get_lazy_table(font, font_data::lazy_table::kern)) {
            if (auto const pairs = opentype::kern::parse_kern(k->view())) {
                for (std::size_t i = 0; i + 1 < glyphs.size(); ++i) {
                    glyphs[i].pos_x_advance +=
                        opentype::kern::kerning(*pairs, glyphs[i].info_glyph, glyphs[i + 1].info_glyph);
                }
            }
        }
    }
    // Marks take no room on the line, except in the Indic scripts, whose fonts give their marks the
    // advance they need.
    for (auto& g : glyphs) {
        if (m != model::indic && buffer::is_mark(g)) {
            g.pos_x_advance = 0;
            g.pos_y_advance = 0;
        }
    }
    // Invisible characters show as the font's space, taking no room; they keep no characters, so that the
    // space glyph stands for a space in copied text.
    auto const space = font_data::char_to_glyph(font, U' ');
    for (auto& g : glyphs) {
        if (g.info_chars.size() == 1 && default_ignorable(g.info_chars[0])) {
            g.pos_x_advance = 0;
            if (space != 0) {
                g.info_glyph = space;
                g.info_chars.clear();
            }
        }
    }
    for (std::size_t i = 0; i < glyphs.size(); ++i) {
        propagate(glyphs, i, rtl, 0);
    }
    return glyphs;
}

std::vector<fonts::grapheme> shape_font_run(log::log const& log,
                                            run_request const& request,
                                            std::vector<fonts::raw_glyph> const& raw) {
    std::vector<fonts::grapheme> out;
    if (raw.empty()) {
        return out;
    }
    auto const& font_ref = raw.front().raw_glyph_font_ref;
    auto const& font = *font_ref->used_font_data;
    buffer::glyphs input;
    input.reserve(raw.size());
    for (std::size_t i = 0; i < raw.size(); ++i) {
        input.push_back({.info_glyph = raw[i].raw_glyph_index,
                         .info_chars = raw[i].raw_glyph_unicodes,
                         .info_cluster = std::uint32_t(i),
                         .info_small_caps = raw[i].raw_glyph_small_caps});
    }
    auto const glyphs = shape_glyphs(log, font, request, std::move(input));
    float const upem = float(font.font_info.units_per_em);
    bool const rtl = request.run_direction == fonts::direction::rtl;

    // Where each glyph is drawn, in font units from the start of the run, left to right.
    std::vector<std::int64_t> at_x(glyphs.size());
    std::int64_t pen = 0;
    for (std::size_t k = 0; k < glyphs.size(); ++k) {
        std::size_t const i = rtl ? glyphs.size() - 1 - k : k;
        at_x[i] = pen + glyphs[i].pos_x_offset;
        pen += glyphs[i].pos_x_advance;
    }
    // Reordered or combined Indic syllables keep their text in logical order for copying.
    std::u32string original;
    for (auto const& r : raw) {
        original += r.raw_glyph_unicodes.empty() ? std::u32string(1, U'\uFFFD') : r.raw_glyph_unicodes;
    }
    std::vector<std::size_t> starts;
    std::vector<std::shared_ptr<fonts::cluster_text>> clusters;
    std::vector<std::uint16_t> syllable_of;
    bool const track = model_of(request.run_script) == model::indic && !rtl && original.size() == raw.size();
    auto open_cluster = [&](std::size_t i) {
        if (!track || glyphs[i].info_syllable == 0 || (i > 0 && glyphs[i - 1].info_syllable == glyphs[i].info_syllable)) {
            return;
        }
        // Syllables cover the text in order, so a syllable's characters run up to where the next starts.
        std::size_t j = i;
        std::uint32_t low = glyphs[i].info_cluster;
        std::u32string shown;
        bool combined = false;
        while (j < glyphs.size() && glyphs[j].info_syllable == glyphs[i].info_syllable) {
            low = std::min(low, glyphs[j].info_cluster);
            shown += glyphs[j].info_chars;
            combined = combined || glyphs[j].info_chars.size() != 1;
            ++j;
        }
        // Text extraction keeps glyph order, and tools often drop the signs of a glyph that stands for a
        // consonant with its signs: such syllables carry their text too.
        std::uint32_t high = std::uint32_t(original.size());
        for (std::size_t k = j; k < glyphs.size() && glyphs[k].info_syllable == glyphs[j].info_syllable; ++k) {
            high = std::min(high, glyphs[k].info_cluster);
        }
        if (high <= low) {
            return;
        }
        std::u32string const logical = original.substr(low, high - low);
        if (shown != logical || combined) {
            clusters.push_back(std::make_shared<fonts::cluster_text>(fonts::cluster_text{.cluster_chars = logical}));
            starts.push_back(out.size());
        }
    };
    std::size_t base = 0;
    for (std::size_t i = 0; i < glyphs.size(); ++i) {
        auto const& g = glyphs[i];
        open_cluster(i);
        fonts::raw_glyph const r{.raw_glyph_font_ref = font_ref,
                                 .raw_glyph_unicodes = g.info_chars,
                                 .raw_glyph_index = g.info_glyph,
                                 .raw_glyph_liga_component_pos = g.info_lig_comp,
                                 .raw_glyph_small_caps = g.info_small_caps,
                                 .raw_glyph_multi_subst_dup = g.info_multi_dup,
                                 .raw_glyph_is_vert_alt = g.info_vert_alt};
        // A glyph that is not the font's glyph for one character (a ligature, an alternate, a joining
        // form) has no one-byte code: the font is written with glyph numbers.
        if (g.info_substituted || g.info_chars.size() != 1) {
            font_ref->used_font_encoding->set(fonts::font_pdf_encoding::identity_encoding);
        }
        auto const nominal = font_data::glyph_advance(font, g.info_glyph);
        if (buffer::is_mark(g) && !out.empty()) {
            auto& gr = out.back();
            fonts::anchor const place{.anchor_exit = {float(at_x[i] - at_x[base]) / upem,
                                                      float(g.pos_y_offset - glyphs[base].pos_y_offset) / upem},
                                      .anchor_entry = {0, 0}};
            gr.grapheme_marks.push_back({.mark_glyph = fonts::make_glyph(r), .mark_place = place});
            if (g.pos_x_advance != 0) {
                gr.grapheme_kerning = gr.grapheme_kerning.value_or(0) + float(g.pos_x_advance) / upem;
            }
            continue;
        }
        base = i;
        syllable_of.push_back(g.info_syllable);
        fonts::grapheme gr{.base_glyph = fonts::make_glyph(r)};
        if (g.pos_x_offset != 0 || g.pos_y_offset != 0) {
            gr.grapheme_place = fonts::distance{float(g.pos_x_offset) / upem, float(g.pos_y_offset) / upem};
        }
        if (g.pos_x_advance != nominal) {
            gr.grapheme_kerning = float(g.pos_x_advance - nominal) / upem;
        }
        out.push_back(std::move(gr));
    }
    // PDF text stands in drawing order, left to right, and readers turn right-to-left text back into
    // reading order by reversing it. A right-to-left Arabic run whose glyphs' characters, reversed, are
    // not its text (a ligature's letters, marks drawn after their base, marks reordered for stacking)
    // carries its text in a span, given in drawing order like the rest of the page's text: reversed, so
    // that the reader's reversal gives it back as typed. Runs with digits or other letters are left as
    // they are, since readers keep those in their own order.
    bool const all_right_to_left = std::all_of(original.begin(), original.end(), [](char32_t c) {
        auto const s = unicode::script::script_of(c);
        return s == script::arab || s == script::syrc || s == script::qaai;
    });
    if (model_of(request.run_script) == model::arabic && rtl && !out.empty() && clusters.empty() &&
        all_right_to_left) {
        std::u32string read_back;
        for (auto const& gr : out) {
            std::u32string part = gr.base_glyph.glyph_unicodes;
            for (auto const& m : gr.grapheme_marks) {
                part += m.mark_glyph.glyph_unicodes;
            }
            read_back.append(part.rbegin(), part.rend());
        }
        if (read_back != original) {
            clusters.push_back(std::make_shared<fonts::cluster_text>(
                fonts::cluster_text{.cluster_chars = std::u32string(original.rbegin(), original.rend())}));
            starts.push_back(0);
            std::fill(syllable_of.begin(), syllable_of.end(), std::uint16_t(1));
        }
    }
    for (std::size_t k = 0; k < clusters.size(); ++k) {
        std::size_t stop = starts[k] + 1;
        while (stop < out.size() && syllable_of[stop] == syllable_of[starts[k]]) {
            ++stop;
        }
        clusters[k]->cluster_graphemes = std::uint32_t(stop - starts[k]);
        out[starts[k]].grapheme_cluster = clusters[k];
    }
    return out;
}

} // namespace vellum::shaping::shape
