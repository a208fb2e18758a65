#include "text/shaping/indic.hpp"

#include "text/unicode/shaping_props.hpp"
#include "util/result.hpp"

#include <algorithm>
#include <array>
#include <optional>

namespace vellum::shaping::indic {

namespace {

using buffer::glyph_info;
using opentype::reader::make_tag;
using unicode::script::script;
namespace props = unicode::shaping_props;

// The part a character plays in a syllable.
enum class cat : std::uint8_t {
    other,
    consonant,
    ra,
    vowel,
    nukta,
    halant,
    zwnj,
    zwj,
    matra,
    syllable_modifier,
    vedic,
    placeholder,
    register_shifter,
    medial,
    symbol,
    repha,
    stacker_consonant,
};

// Where a character goes when a syllable is put in order; the order of the values is that order.
enum class pos : std::uint8_t {
    start,
    ra_to_become_reph,
    pre_m,
    pre_c,
    base_c,
    after_main,
    above_c,
    before_sub,
    below_c,
    after_sub,
    before_post,
    post_c,
    after_post,
    final_c,
    smvd,
    end,
};

enum class reph_position { after_main, before_sub, after_sub, before_post, after_post };

// How a reph is written: Ra + halant, Ra + halant + ZWJ, or (Malayalam's older spelling) the sign U+0D4E
// typed before the consonant it stands on.
enum class reph_mode { implicit, explicit_zwj, logical_repha };

struct script_config {
    char32_t virama = 0;
    char32_t ra = 0;
    reph_position reph_pos = reph_position::after_post;
    reph_mode mode = reph_mode::implicit;
    /// Whether consonants before the base may take below-base forms too.
    bool blwf_pre = true;
};

script_config config_of(script s) {
    switch (s) {
    case script::deva:
        return {0x094D, 0x0930, reph_position::before_post};
    case script::beng:
        return {0x09CD, 0x09B0, reph_position::after_sub};
    case script::guru:
        return {0x0A4D, 0x0A30, reph_position::before_sub};
    case script::gujr:
        return {0x0ACD, 0x0AB0, reph_position::before_post};
    case script::orya:
        return {0x0B4D, 0x0B30, reph_position::after_main};
    case script::taml:
        return {0x0BCD, 0x0BB0, reph_position::after_post};
    case script::telu:
        return {0x0C4D, 0x0C30, reph_position::after_post, reph_mode::explicit_zwj, false};
    case script::knda:
        return {0x0CCD, 0x0CB0, reph_position::after_post, reph_mode::implicit, false};
    case script::mlym:
        return {0x0D4D, 0x0D30, reph_position::after_main, reph_mode::logical_repha};
    default:
        return {};
    }
}

cat category_of(char32_t c, script_config const& config) {
    if (c == config.ra || c == 0x09F0) {
        return cat::ra;
    }
    if (c == 0x00A0 || c == 0x25CC || (c >= 0x2010 && c <= 0x2015) || c == 0x2022 || (c >= 0x25FB && c <= 0x25FE)) {
        return cat::placeholder;
    }
    switch (props::syllabic_category(c)) {
    case props::syllabic::consonant:
    case props::syllabic::consonant_dead:
    case props::syllabic::consonant_head_letter:
    case props::syllabic::consonant_subjoined:
        return cat::consonant;
    case props::syllabic::consonant_medial:
        return cat::medial;
    case props::syllabic::consonant_placeholder:
    case props::syllabic::number:
        return cat::placeholder;
    case props::syllabic::consonant_preceding_repha:
        return cat::repha;
    case props::syllabic::consonant_with_stacker:
        return cat::stacker_consonant;
    case props::syllabic::vowel_independent:
        return cat::vowel;
    case props::syllabic::vowel_dependent:
        return cat::matra;
    case props::syllabic::nukta:
        return cat::nukta;
    case props::syllabic::virama:
    case props::syllabic::invisible_stacker:
    case props::syllabic::pure_killer:
        return cat::halant;
    case props::syllabic::bindu:
    case props::syllabic::visarga:
    case props::syllabic::gemination_mark:
    case props::syllabic::syllable_modifier:
        return cat::syllable_modifier;
    case props::syllabic::cantillation_mark:
    case props::syllabic::tone_mark:
        return cat::vedic;
    case props::syllabic::register_shifter:
        return cat::register_shifter;
    case props::syllabic::joiner:
        return cat::zwj;
    case props::syllabic::non_joiner:
        return cat::zwnj;
    case props::syllabic::avagraha:
        return cat::symbol;
    default:
        return cat::other;
    }
}

bool in(script s, std::initializer_list<script> list) {
    return std::find(list.begin(), list.end(), s) != list.end();
}

// Where a vowel sign goes, by the side of the consonant it is written on.
pos matra_position(char32_t c, script s) {
    using props::positional;
    auto const p = props::positional_category(c);
    switch (p) {
    case positional::left:
    case positional::visual_order_left:
    case positional::top_and_left:
    case positional::bottom_and_left:
    case positional::top_and_bottom_and_left:
        return pos::pre_m;
    case positional::right:
    case positional::left_and_right:
    case positional::top_and_right:
    case positional::bottom_and_right:
    case positional::top_and_left_and_right:
    case positional::top_and_bottom_and_right:
        if (s == script::deva) {
            return pos::after_sub;
        }
        if (s == script::telu) {
            return c <= 0x0C42 ? pos::before_sub : pos::after_sub;
        }
        if (s == script::knda) {
            return (c < 0x0CC3 || c > 0x0CD6) ? pos::before_sub : pos::after_sub;
        }
        return pos::after_post;
    case positional::top:
    case positional::top_and_bottom:
    case positional::overstruck:
        if (in(s, {script::guru})) {
            return pos::after_post;
        }
        if (s == script::orya) {
            return pos::after_main;
        }
        if (in(s, {script::telu, script::knda})) {
            return pos::before_sub;
        }
        return pos::after_sub;
    case positional::bottom:
        if (in(s, {script::guru, script::gujr, script::taml, script::mlym})) {
            return pos::after_post;
        }
        if (in(s, {script::telu, script::knda})) {
            return pos::before_sub;
        }
        return pos::after_sub;
    case positional::na:
        return pos::end;
    }
    return pos::end;
}

cat cat_of(glyph_info const& g) {
    return cat(g.info_indic_category);
}

pos pos_of(glyph_info const& g) {
    return pos(g.info_indic_position);
}

void set_pos(glyph_info& g, pos p) {
    g.info_indic_position = std::uint8_t(p);
}

bool is_consonant(glyph_info const& g) {
    switch (cat_of(g)) {
    case cat::consonant:
    case cat::ra:
    case cat::stacker_consonant:
    case cat::medial:
    case cat::vowel:
    case cat::placeholder:
        return true;
    default:
        return false;
    }
}

bool is_joiner(glyph_info const& g) {
    return cat_of(g) == cat::zwj || cat_of(g) == cat::zwnj;
}

bool is_halant(glyph_info const& g) {
    return cat_of(g) == cat::halant;
}

// ---- Syllables ---------------------------------------------------------------------------------------------

bool one_of(buffer::glyphs const& g, std::size_t i, std::initializer_list<cat> cats) {
    return i < g.size() && std::find(cats.begin(), cats.end(), cat_of(g[i])) != cats.end();
}

// The end of the syllable that starts at i: a consonant (or vowel, or placeholder) with its nukta, joined by
// halants to further consonants, then its vowel signs and modifiers; anything else stands alone with the
// signs that follow it.
std::size_t syllable_end(buffer::glyphs const& g, std::size_t i) {
    std::size_t const n = g.size();
    bool const vowel_start = one_of(g, i, {cat::vowel});
    if (one_of(g, i, {cat::repha, cat::stacker_consonant})) {
        ++i;
    }
    if (one_of(g, i, {cat::consonant, cat::ra, cat::vowel, cat::placeholder, cat::medial})) {
        while (true) {
            ++i;
            while (one_of(g, i, {cat::nukta})) {
                ++i;
            }
            std::size_t j = i;
            if (one_of(g, j, {cat::zwj, cat::zwnj}) && one_of(g, j + 1, {cat::halant})) {
                ++j;
            }
            if (!one_of(g, j, {cat::halant})) {
                break;
            }
            ++j;
            if (one_of(g, j, {cat::zwj, cat::zwnj})) {
                ++j;
            }
            if (!vowel_start && one_of(g, j, {cat::consonant, cat::ra, cat::medial})) {
                i = j;
                continue;
            }
            i = j;
            break;
        }
    } else {
        ++i;
    }
    // Signs after the modifiers (anusvara, visarga, Vedic signs) belong to no letter: they begin a
    // syllable of their own.
    bool tail = false;
    while (i < n) {
        if (one_of(g, i, {cat::syllable_modifier, cat::vedic, cat::register_shifter})) {
            tail = true;
            ++i;
        } else if (tail && one_of(g, i, {cat::matra, cat::nukta, cat::halant})) {
            break;
        } else if (one_of(g, i, {cat::matra, cat::nukta, cat::halant})) {
            ++i;
        } else if (!tail && one_of(g, i, {cat::zwj, cat::zwnj}) && one_of(g, i + 1, {cat::matra})) {
            i += 2;
        } else if (one_of(g, i, {cat::zwj})) {
            ++i;
        } else {
            break;
        }
    }
    return i;
}

struct span {
    std::size_t first = 0;
    std::size_t last = 0;
};

std::vector<span> syllables(buffer::glyphs const& g) {
    std::vector<span> out;
    std::size_t i = 0;
    while (i < g.size()) {
        std::size_t j = i + 1;
        while (j < g.size() && g[j].info_syllable == g[i].info_syllable) {
            ++j;
        }
        out.push_back({i, j});
        i = j;
    }
    return out;
}

// The place of a consonant after the base: below it, after it, or a base itself, by the forms the font has
// for it with a halant.
pos consonant_position(glyph_info const& g, std::uint32_t virama, font_access const& font) {
    if (virama == 0) {
        return pos::base_c;
    }
    std::array<std::uint32_t, 2> const before{virama, g.info_glyph};
    std::array<std::uint32_t, 2> const after{g.info_glyph, virama};
    auto would = [&](char const* feature) {
        return font.access_would(make_tag(feature), before) || font.access_would(make_tag(feature), after);
    };
    if (would("blwf") || would("vatu")) {
        return pos::below_c;
    }
    if (would("pstf") || would("pref")) {
        return pos::post_c;
    }
    return pos::base_c;
}

void reorder_syllable(buffer::glyphs& g,
                      std::size_t start,
                      std::size_t end,
                      script s,
                      script_config const& config,
                      masks const& m,
                      font_access const& font) {
    if (!is_consonant(g[start]) && !one_of(g, start, {cat::repha})) {
        return;
    }
    // Kannada text of older fonts writes Ra + halant + ZWJ for the Ra of a subjoined form, which behaves as
    // Ra + ZWJ + halant: the ZWJ before the halant asks for the form below.
    if (s == script::knda && start + 3 <= end && cat_of(g[start]) == cat::ra && is_halant(g[start + 1]) &&
        cat_of(g[start + 2]) == cat::zwj) {
        std::swap(g[start + 1], g[start + 2]);
    }
    // The base consonant: the last one that has no below-base or post-base form, leaving out a Ra that
    // becomes a reph.
    std::size_t base = end;
    bool has_reph = false;
    std::size_t limit = start;
    bool const fits = start + 3 <= end && (config.mode == reph_mode::explicit_zwj ? cat_of(g[start + 2]) == cat::zwj
                                                                                  : !is_joiner(g[start + 2]));
    if (m.mask_rphf && fits && cat_of(g[start]) == cat::ra && is_halant(g[start + 1])) {
        // An explicit reph may be a ligature of all three, ZWJ included.
        std::array<std::uint32_t, 3> const three{g[start].info_glyph, g[start + 1].info_glyph, g[start + 2].info_glyph};
        if (font.access_would(make_tag("rphf"), std::span(three).first(2)) ||
            (config.mode == reph_mode::explicit_zwj && font.access_would(make_tag("rphf"), three))) {
            limit += 2;
            while (limit < end && is_joiner(g[limit])) {
                ++limit;
            }
            base = start;
            has_reph = true;
        }
    } else if (config.mode == reph_mode::logical_repha && cat_of(g[start]) == cat::repha) {
        // The dot reph is a reph already: it only has to move behind its consonant.
        limit += 1;
        while (limit < end && is_joiner(g[limit])) {
            ++limit;
        }
        base = start;
        has_reph = true;
    }
    {
        std::size_t i = end;
        bool seen_below = false;
        do {
            --i;
            if (is_consonant(g[i])) {
                if (pos_of(g[i]) != pos::below_c && (pos_of(g[i]) != pos::post_c || seen_below)) {
                    base = i;
                    break;
                }
                if (pos_of(g[i]) == pos::below_c) {
                    seen_below = true;
                }
                base = i;
            } else if (start < i && cat_of(g[i]) == cat::zwj && is_halant(g[i - 1])) {
                break;
            }
        } while (i > limit);
    }
    if (has_reph && base == start && limit - base <= 2) {
        has_reph = false;
    }
    if (base == end) {
        base = start;
    }
    for (std::size_t i = start; i < base; ++i) {
        set_pos(g[i], std::min(pos::pre_c, pos_of(g[i])));
    }
    if (base < end) {
        set_pos(g[base], pos::base_c);
    }
    // A consonant after a vowel sign is a final consonant.
    for (std::size_t i = base + 1; i < end; ++i) {
        if (cat_of(g[i]) == cat::matra) {
            for (std::size_t j = i + 1; j < end; ++j) {
                if (is_consonant(g[j])) {
                    set_pos(g[j], pos::final_c);
                    break;
                }
            }
            break;
        }
    }
    if (has_reph) {
        set_pos(g[start], pos::ra_to_become_reph);
    }
    // Nukta, halant and joiners move with the character before them.
    pos last = pos::start;
    for (std::size_t i = start; i < end; ++i) {
        if (one_of(g, i, {cat::zwj, cat::zwnj, cat::nukta, cat::register_shifter, cat::medial, cat::halant})) {
            set_pos(g[i], last);
            if (is_halant(g[i]) && pos_of(g[i]) == pos::pre_m) {
                for (std::size_t j = i; j > start; --j) {
                    if (pos_of(g[j - 1]) != pos::pre_m) {
                        set_pos(g[i], pos_of(g[j - 1]));
                        break;
                    }
                }
            }
        } else if (pos_of(g[i]) != pos::smvd) {
            last = pos_of(g[i]);
        }
    }
    // Post-base consonants own what stands between them and the consonant or vowel sign before.
    {
        std::size_t last_owner = base;
        for (std::size_t i = base + 1; i < end; ++i) {
            if (is_consonant(g[i])) {
                for (std::size_t j = last_owner + 1; j < i; ++j) {
                    if (pos_of(g[j]) < pos::smvd) {
                        set_pos(g[j], pos_of(g[i]));
                    }
                }
                last_owner = i;
            } else if (cat_of(g[i]) == cat::matra) {
                last_owner = i;
            }
        }
    }
    std::stable_sort(g.begin() + std::ptrdiff_t(start), g.begin() + std::ptrdiff_t(end),
                     [](glyph_info const& a, glyph_info const& b) { return pos_of(a) < pos_of(b); });
    base = end;
    for (std::size_t i = start; i < end; ++i) {
        if (pos_of(g[i]) == pos::base_c) {
            base = i;
            break;
        }
    }
    // The features that may form each part.
    for (std::size_t i = start; i < end && pos_of(g[i]) == pos::ra_to_become_reph; ++i) {
        g[i].info_mask |= m.mask_rphf;
    }
    for (std::size_t i = start; i < std::min(base, end); ++i) {
        g[i].info_mask |= m.mask_half | (config.blwf_pre ? m.mask_blwf : 0);
    }
    for (std::size_t i = base + 1; i < end; ++i) {
        g[i].info_mask |= m.mask_blwf | m.mask_abvf | m.mask_pstf;
    }
    // A halant + consonant after the base that the font turns into a pre-base form (Malayalam's Ra after a
    // virama) is marked for that feature; the final reordering moves the form in front.
    if (m.mask_pref && base + 2 < end) {
        for (std::size_t i = base + 1; i + 1 < end; ++i) {
            std::array<std::uint32_t, 2> const pair{g[i].info_glyph, g[i + 1].info_glyph};
            if (font.access_would(make_tag("pref"), pair)) {
                g[i].info_mask |= m.mask_pref;
                g[i + 1].info_mask |= m.mask_pref;
                break;
            }
        }
    }
    // A ZWNJ keeps the consonants before it from taking half forms.
    for (std::size_t i = start + 1; i < end; ++i) {
        if (cat_of(g[i]) != cat::zwnj) {
            continue;
        }
        std::size_t j = i;
        do {
            --j;
            g[j].info_mask &= ~m.mask_half;
        } while (j > start && !is_consonant(g[j]));
    }
}

} // namespace

bool is_indic(script s) {
    switch (s) {
    case script::deva:
    case script::beng:
    case script::gujr:
    case script::guru:
    case script::knda:
    case script::mlym:
    case script::orya:
    case script::taml:
    case script::telu:
        return true;
    default:
        return false;
    }
}

namespace {

// A syllable that begins with a sign (a vowel sign, nukta, virama or modifier typed without its letter)
// has nothing to carry the sign: a dotted circle stands in for the missing letter, as readers expect,
// when the font has one. It stands for no character, so copied text stays as typed.
void insert_dotted_circles(buffer::glyphs& g, std::vector<span>& found, font_access const& font) {
    std::uint32_t const circle = font.access_glyph(0x25CC);
    if (circle == 0) {
        return;
    }
    for (std::size_t k = found.size(); k-- > 0;) {
        auto& sp = found[k];
        if (!one_of(g, sp.first, {cat::matra, cat::nukta, cat::halant, cat::syllable_modifier, cat::vedic})) {
            continue;
        }
        glyph_info dot = g[sp.first];
        dot.info_glyph = circle;
        dot.info_chars.clear();
        dot.info_class = opentype::layout::glyph_class::base;
        dot.info_indic_category = std::uint8_t(cat::placeholder);
        set_pos(dot, pos::base_c);
        g.insert(g.begin() + std::ptrdiff_t(sp.first), std::move(dot));
        ++sp.last;
        for (std::size_t later = k + 1; later < found.size(); ++later) {
            ++found[later].first;
            ++found[later].last;
        }
    }
}

} // namespace

void initial_reordering(buffer::glyphs& g, script s, masks const& m, font_access const& font) {
    auto const config = config_of(s);
    std::uint32_t const virama = config.virama ? font.access_glyph(config.virama) : 0;
    for (auto& gl : g) {
        char32_t const c = gl.info_chars.empty() ? 0 : gl.info_chars.front();
        auto const k = category_of(c, config);
        gl.info_indic_category = std::uint8_t(k);
        pos p = pos::end;
        if (is_consonant(gl)) {
            p = consonant_position(gl, virama, font);
        } else if (k == cat::matra) {
            p = matra_position(c, s);
        } else if (k == cat::syllable_modifier || k == cat::vedic) {
            p = pos::smvd;
        }
        set_pos(gl, p);
    }
    std::uint16_t number = 0;
    std::size_t i = 0;
    std::vector<span> found;
    while (i < g.size()) {
        std::size_t const end = std::max(syllable_end(g, i), i + 1);
        number = std::uint16_t(number == 0xFFFF ? 1 : number + 1);
        for (std::size_t j = i; j < end; ++j) {
            g[j].info_syllable = number;
        }
        found.push_back({i, end});
        i = end;
    }
    insert_dotted_circles(g, found, font);
    for (auto const& sp : found) {
        reorder_syllable(g, sp.first, sp.last, s, config, m, font);
    }
}

namespace {

// Whether a glyph is a ligature the basic features made (and not a piece of a multiple substitution).
bool formed(glyph_info const& g) {
    return g.info_chars.size() > 1 && !g.info_multi_dup;
}

} // namespace

void final_reordering(buffer::glyphs& g, script s, masks const& m) {
    auto const config = config_of(s);
    for (auto const& sp : syllables(g)) {
        std::size_t const start = sp.first;
        std::size_t const end = sp.last;
        std::size_t base = start;
        bool try_pref = m.mask_pref != 0;
        for (; base < end; ++base) {
            if (pos_of(g[base]) < pos::base_c) {
                continue;
            }
            if (try_pref && base + 1 < end) {
                for (std::size_t i = base + 1; i < end; ++i) {
                    if ((g[i].info_mask & m.mask_pref) == 0) {
                        continue;
                    }
                    if (!formed(g[i])) {
                        // A pre-base candidate that the font did not form: the base is around it.
                        base = i;
                        while (base < end && is_halant(g[base])) {
                            ++base;
                        }
                        if (base < end) {
                            set_pos(g[base], pos::base_c);
                        }
                        try_pref = false;
                    }
                    break;
                }
            }
            // In Malayalam a below-base consonant that formed nothing becomes the base.
            if (s == script::mlym) {
                for (std::size_t i = base + 1; i < end; ++i) {
                    while (i < end && is_joiner(g[i])) {
                        ++i;
                    }
                    if (i == end || !is_halant(g[i])) {
                        break;
                    }
                    ++i;
                    while (i < end && is_joiner(g[i])) {
                        ++i;
                    }
                    if (i < end && is_consonant(g[i]) && pos_of(g[i]) == pos::below_c) {
                        base = i;
                        set_pos(g[base], pos::base_c);
                    }
                }
            }
            if (start < base && pos_of(g[base]) > pos::base_c) {
                --base;
            }
            break;
        }
        if (base == end && start < base && cat_of(g[base - 1]) == cat::zwj) {
            --base;
        }
        if (base < end) {
            while (start < base && one_of(g, base, {cat::nukta, cat::halant})) {
                --base;
            }
        }

        // A vowel sign written before the consonants goes after the last halant that did not form a half
        // form before the base, or stays in front.
        if (start + 1 < end && start < base) {
            std::size_t new_pos = base == end ? base - 2 : base - 1;
            if (s != script::mlym && s != script::taml) {
                while (true) {
                    while (new_pos > start && !one_of(g, new_pos, {cat::matra, cat::halant})) {
                        --new_pos;
                    }
                    if (is_halant(g[new_pos]) && pos_of(g[new_pos]) != pos::pre_m) {
                        if (new_pos + 1 < end && cat_of(g[new_pos + 1]) == cat::zwj && new_pos > start) {
                            --new_pos;
                            continue;
                        }
                    } else {
                        new_pos = start;
                    }
                    break;
                }
            }
            if (start < new_pos && pos_of(g[new_pos]) != pos::pre_m) {
                for (std::size_t i = new_pos; i > start; --i) {
                    if (pos_of(g[i - 1]) == pos::pre_m) {
                        std::size_t const old_pos = i - 1;
                        if (old_pos < base && base <= new_pos) {
                            --base;
                        }
                        auto const moved = g[old_pos];
                        std::move(g.begin() + std::ptrdiff_t(old_pos + 1), g.begin() + std::ptrdiff_t(new_pos + 1),
                                  g.begin() + std::ptrdiff_t(old_pos));
                        g[new_pos] = moved;
                        --new_pos;
                    }
                }
            }
        }

        // The reph goes to its written place.
        bool const reph_formed = formed(g[start]);
        if (start + 1 < end && pos_of(g[start]) == pos::ra_to_become_reph &&
            ((cat_of(g[start]) == cat::repha) != reph_formed)) {
            std::size_t new_reph = start;
            auto after_halant = [&]() -> bool {
                new_reph = start + 1;
                while (new_reph < base && !is_halant(g[new_reph])) {
                    ++new_reph;
                }
                if (new_reph < base && is_halant(g[new_reph])) {
                    if (new_reph + 1 < base && is_joiner(g[new_reph + 1])) {
                        ++new_reph;
                    }
                    return true;
                }
                return false;
            };
            bool placed = false;
            if (config.reph_pos != reph_position::after_post) {
                placed = after_halant();
                if (!placed && config.reph_pos == reph_position::after_main) {
                    new_reph = base;
                    while (new_reph + 1 < end && pos_of(g[new_reph + 1]) <= pos::after_main) {
                        ++new_reph;
                    }
                    placed = new_reph < end;
                }
                if (!placed && config.reph_pos == reph_position::after_sub) {
                    new_reph = base;
                    while (new_reph + 1 < end && pos_of(g[new_reph + 1]) != pos::post_c &&
                           pos_of(g[new_reph + 1]) != pos::after_post && pos_of(g[new_reph + 1]) != pos::smvd) {
                        ++new_reph;
                    }
                    placed = new_reph < end;
                }
            }
            if (!placed) {
                placed = after_halant();
            }
            if (!placed) {
                new_reph = end - 1;
                while (new_reph > start && pos_of(g[new_reph]) == pos::smvd) {
                    --new_reph;
                }
                if (is_halant(g[new_reph])) {
                    for (std::size_t i = base + 1; i < new_reph; ++i) {
                        if (cat_of(g[i]) == cat::matra) {
                            --new_reph;
                        }
                    }
                }
            }
            auto const reph = g[start];
            std::move(g.begin() + std::ptrdiff_t(start + 1), g.begin() + std::ptrdiff_t(new_reph + 1),
                      g.begin() + std::ptrdiff_t(start));
            g[new_reph] = reph;
            if (start < base && base <= new_reph) {
                --base;
            }
        }

        // A pre-base form goes where a pre-base vowel sign would, or else just before the base.
        if (try_pref && base + 1 < end) {
            for (std::size_t i = base + 1; i < end; ++i) {
                if ((g[i].info_mask & m.mask_pref) == 0) {
                    continue;
                }
                if (formed(g[i])) {
                    std::size_t new_pos = base;
                    // Malayalam and Tamil have no half forms: what 'half' made there are chillus, and the
                    // form stays behind them.
                    if (s != script::mlym && s != script::taml) {
                        while (new_pos > start && !one_of(g, new_pos - 1, {cat::matra, cat::halant})) {
                            --new_pos;
                        }
                    }
                    if (new_pos > start && is_halant(g[new_pos - 1]) && new_pos < end && is_joiner(g[new_pos])) {
                        ++new_pos;
                    }
                    auto const moved = g[i];
                    std::move_backward(g.begin() + std::ptrdiff_t(new_pos), g.begin() + std::ptrdiff_t(i),
                                       g.begin() + std::ptrdiff_t(i + 1));
                    g[new_pos] = moved;
                    if (new_pos <= base && base < i) {
                        ++base;
                    }
                }
                break;
            }
        }

        // A vowel sign in front at the start of a word takes its initial form.
        if (pos_of(g[start]) == pos::pre_m && m.mask_init) {
            bool const word_start =
                start == 0 || g[start - 1].info_chars.empty() ||
                props::syllabic_category(g[start - 1].info_chars.back()) == props::syllabic::other;
            if (word_start) {
                g[start].info_mask |= m.mask_init;
            }
        }
    }
}

} // namespace vellum::shaping::indic
