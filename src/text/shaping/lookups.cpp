#include "text/shaping/lookups.hpp"

#include "text/unicode/category.hpp"
#include "util/result.hpp"

#include <algorithm>
#include <bit>
#include <functional>
#include <string>

namespace vellum::shaping::lookups {

namespace {

using namespace opentype::layout;
using buffer::attach_kind;
using buffer::glyph_info;

// Lookups that call lookups through contexts may not nest deeper than this; a font that loops is cut off.
constexpr int deepest_nesting = 64;

struct context {
    log::log const& log;
    layout_table const& table;
    apply_options const& options;
    buffer::glyphs& buf;
    int depth = 0;

    data d() const { return table.table_data; }

    bool gpos() const { return table.table_which == table_kind::gpos; }
};

// A lookup with its extension resolved for one subtable.
struct subtable_ref {
    std::uint16_t type = 0;
    std::size_t pos = 0;
};

constexpr std::uint16_t extension_type(table_kind k) {
    return k == table_kind::gsub ? 7 : 9;
}

subtable_ref resolve(context const& c, lookup const& l, std::uint16_t i) {
    subtable_ref s{.type = l.lookup_type, .pos = subtable_pos(c.d(), l, i)};
    if (s.type == extension_type(c.table.table_which)) {
        s.type = get_uint16(c.d(), s.pos + 2);
        s.pos = add_offset(c.d(), s.pos, get_uint32(c.d(), s.pos + 4));
    }
    return s;
}

// Whether the lookup's flag hides a glyph.
bool ignored(context const& c, lookup const& l, glyph_info const& g) {
    auto const flag = l.lookup_flag;
    switch (g.info_class) {
    case glyph_class::base:
        return (flag & lookup_ignore_base_glyphs) != 0;
    case glyph_class::ligature:
        return (flag & lookup_ignore_ligatures) != 0;
    case glyph_class::mark:
        if (flag & lookup_ignore_marks) {
            return true;
        }
        if (flag & lookup_use_mark_filtering_set) {
            return !c.table.table_gdef || !in_mark_set(*c.table.table_gdef, l.lookup_mark_filtering_set, g.info_glyph);
        }
        if (flag & lookup_mark_attachment_type) {
            return !c.table.table_gdef ||
                   mark_attach_class_of(*c.table.table_gdef, g.info_glyph) != (flag >> 8);
        }
        return false;
    case glyph_class::unclassified:
    case glyph_class::component:
        return false;
    }
    return false;
}

bool is_char(glyph_info const& g, char32_t c) {
    return g.info_chars.size() == 1 && g.info_chars[0] == c;
}

// Joiners are passed over when they do not match: ZWJ unless the feature handles joiners itself, ZWNJ in
// positioning and in context matching.
bool maybe_skipped(context const& c, glyph_info const& g, bool context_match) {
    if (is_char(g, 0x200D)) {
        return c.gpos() || context_match || !c.options.apply_manual_zwj;
    }
    if (is_char(g, 0x200C)) {
        return c.gpos() || (context_match && !c.options.apply_per_syllable);
    }
    return false;
}

using element_match = std::function<bool(std::size_t element, std::uint32_t glyph)>;

// The next (or previous) glyph that the lookup sees and that matches an element; nothing when a visible
// glyph does not match or the list ends.
std::optional<std::size_t> step(context const& c,
                                lookup const& l,
                                std::size_t from,
                                int dir,
                                std::size_t element,
                                element_match const& match,
                                bool context_match) {
    auto const syllable = c.buf[from].info_syllable;
    std::ptrdiff_t j = std::ptrdiff_t(from);
    while (true) {
        j += dir;
        if (j < 0 || j >= std::ptrdiff_t(c.buf.size())) {
            return std::nullopt;
        }
        auto const& g = c.buf[std::size_t(j)];
        if (ignored(c, l, g)) {
            continue;
        }
        bool const maybe = maybe_skipped(c, g, context_match);
        bool ok = match(element, g.info_glyph);
        if (c.options.apply_per_syllable && g.info_syllable != syllable) {
            ok = false;
        }
        if (!context_match && (g.info_mask & c.options.apply_mask) == 0) {
            ok = false;
        }
        if (ok) {
            return std::size_t(j);
        }
        if (!maybe) {
            return std::nullopt;
        }
    }
}

void set_class(context const& c, glyph_info& g, std::optional<glyph_class> guess) {
    if (c.table.table_has_gdef && c.table.table_gdef->gdef_glyph_class_def) {
        g.info_class = glyph_class_of(*c.table.table_gdef, g.info_glyph);
    } else if (guess) {
        g.info_class = *guess;
    }
}

bool apply_nested(context& c, std::uint16_t lookup_index, std::size_t pos, std::size_t& next);

// ---- Contexts --------------------------------------------------------------------------------------------

// The input sequence from a position: its first glyph is already known to match. The input is matched as
// a ligature's components are: a ZWJ there is passed over only if the feature does not handle joiners
// itself (so a ZWJ keeps Arabic contextual forms apart), and the glyphs must carry the feature's bit.
std::optional<std::vector<std::size_t>>
match_input(context const& c, lookup const& l, std::size_t i, std::size_t count, element_match const& m) {
    std::vector<std::size_t> positions{i};
    for (std::size_t k = 1; k < count; ++k) {
        auto const j = step(c, l, positions.back(), 1, k, m, false);
        if (!j) {
            return std::nullopt;
        }
        positions.push_back(*j);
    }
    return positions;
}

bool match_around(context const& c,
                  lookup const& l,
                  std::size_t from,
                  int dir,
                  std::size_t count,
                  element_match const& m) {
    std::size_t at = from;
    for (std::size_t k = 0; k < count; ++k) {
        auto const j = step(c, l, at, dir, k, m, true);
        if (!j) {
            return false;
        }
        at = *j;
    }
    return true;
}

// Applies the sub-lookups of a matched context. Substitutions inside may lengthen or shorten the list;
// the matched positions after the changed one move with it.
void apply_records(context& c,
                   std::vector<std::size_t> positions,
                   std::size_t records,
                   std::uint16_t record_count,
                   std::size_t& next) {
    std::ptrdiff_t end = std::ptrdiff_t(positions.back()) + 1;
    std::size_t const input_count = positions.size();
    for (std::uint16_t r = 0; r < record_count; ++r) {
        auto const seq = get_uint16(c.d(), records + 4 * std::size_t(r));
        auto const lookup_index = get_uint16(c.d(), records + 4 * std::size_t(r) + 2);
        if (seq >= input_count) {
            throw internal_error("index out of range in apply_subst_context0: " + std::to_string(seq));
        }
        if (seq >= positions.size()) {
            continue;
        }
        auto const before = std::ptrdiff_t(c.buf.size());
        std::size_t ignored_next = 0;
        if (!apply_nested(c, lookup_index, positions[seq], ignored_next)) {
            continue;
        }
        std::ptrdiff_t delta = std::ptrdiff_t(c.buf.size()) - before;
        if (delta == 0) {
            continue;
        }
        end += delta;
        if (end <= std::ptrdiff_t(positions[seq])) {
            end = std::ptrdiff_t(positions[seq]) + 1;
        }
        std::size_t idx = seq + 1;
        if (delta > 0) {
            positions.insert(positions.begin() + std::ptrdiff_t(idx), std::size_t(delta), 0);
            for (std::size_t j = idx; j < idx + std::size_t(delta); ++j) {
                positions[j] = positions[j - 1] + 1;
            }
            idx += std::size_t(delta);
        } else {
            std::size_t const drop = std::min(std::size_t(-delta), positions.size() - idx);
            positions.erase(positions.begin() + std::ptrdiff_t(idx), positions.begin() + std::ptrdiff_t(idx + drop));
        }
        for (; idx < positions.size(); ++idx) {
            positions[idx] = std::size_t(std::ptrdiff_t(positions[idx]) + delta);
        }
    }
    next = std::size_t(std::max<std::ptrdiff_t>(end, 0));
}

element_match glyph_ids(data d, std::size_t array, std::size_t first) {
    return [d, array, first](std::size_t k, std::uint32_t g) {
        return get_uint16(d, array + 2 * (k - first)) == g;
    };
}

element_match glyph_classes(data d, std::size_t array, std::size_t first, std::optional<std::size_t> class_def) {
    return [d, array, first, class_def](std::size_t k, std::uint32_t g) {
        auto const cls = class_def ? class_of(d, *class_def, g) : 0;
        return get_uint16(d, array + 2 * (k - first)) == cls;
    };
}

element_match coverages(data d, std::size_t array, std::size_t base) {
    return [d, array, base](std::size_t k, std::uint32_t g) {
        return coverage_index(d, add_offset(d, base, get_uint16(d, array + 2 * k)), g).has_value();
    };
}

// The rule set a contextual or chained subtable of format 1 or 2 keeps for the glyph's coverage index
// or class: the count of sets stands at `count_at` bytes into the subtable, their offsets after it.
std::optional<std::size_t> rule_set(data d, std::size_t sub, std::size_t count_at, std::size_t set_index) {
    if (set_index >= get_uint16(d, sub + count_at)) {
        return std::nullopt;
    }
    return optional_offset16(d, sub, count_at + 2 + 2 * set_index);
}

// Contextual lookups (GSUB 5, GPOS 7) in their three formats.
bool apply_context(context& c, lookup const& l, std::size_t sub, std::size_t i, std::size_t& next) {
    auto const d = c.d();
    auto const format = get_uint16(d, sub);
    auto const glyph = c.buf[i].info_glyph;
    if (format == 1 || format == 2) {
        auto const cov = coverage_index(d, add_offset(d, sub, get_uint16(d, sub + 2)), glyph);
        if (!cov) {
            return false;
        }
        std::optional<std::size_t> class_def;
        std::size_t set_index = *cov;
        if (format == 2) {
            class_def = optional_offset16(d, sub, 4);
            set_index = class_def ? class_of(d, *class_def, glyph) : 0;
        }
        auto const set = rule_set(d, sub, format == 1 ? 4 : 6, set_index);
        if (!set) {
            return false;
        }
        auto const rules = get_uint16(d, *set);
        for (std::uint16_t r = 0; r < rules; ++r) {
            auto const rule = add_offset(d, *set, get_uint16(d, *set + 2 + 2 * std::size_t(r)));
            auto const glyph_count = get_uint16(d, rule);
            auto const record_count = get_uint16(d, rule + 2);
            if (glyph_count == 0) {
                continue;
            }
            auto const m = format == 1 ? glyph_ids(d, rule + 4, 1) : glyph_classes(d, rule + 4, 1, class_def);
            auto positions = match_input(c, l, i, glyph_count, m);
            if (positions) {
                apply_records(c, *positions, rule + 4 + 2 * std::size_t(glyph_count - 1), record_count, next);
                return true;
            }
        }
        return false;
    }
    if (format == 3) {
        auto const glyph_count = get_uint16(d, sub + 2);
        auto const record_count = get_uint16(d, sub + 4);
        if (glyph_count == 0) {
            return false;
        }
        auto const m = coverages(d, sub + 6, sub);
        if (!m(0, glyph)) {
            return false;
        }
        auto positions = match_input(c, l, i, glyph_count, m);
        if (positions) {
            apply_records(c, *positions, sub + 6 + 2 * std::size_t(glyph_count), record_count, next);
            return true;
        }
    }
    return false;
}

// Chained contextual lookups (GSUB 6, GPOS 8) in their three formats.
bool apply_chain(context& c, lookup const& l, std::size_t sub, std::size_t i, std::size_t& next) {
    auto const d = c.d();
    auto const format = get_uint16(d, sub);
    auto const glyph = c.buf[i].info_glyph;
    if (format == 1 || format == 2) {
        auto const cov = coverage_index(d, add_offset(d, sub, get_uint16(d, sub + 2)), glyph);
        if (!cov) {
            return false;
        }
        std::optional<std::size_t> back_def;
        std::optional<std::size_t> input_def;
        std::optional<std::size_t> ahead_def;
        std::size_t set_index = *cov;
        if (format == 2) {
            back_def = optional_offset16(d, sub, 4);
            input_def = optional_offset16(d, sub, 6);
            ahead_def = optional_offset16(d, sub, 8);
            set_index = input_def ? class_of(d, *input_def, glyph) : 0;
        }
        auto const set = rule_set(d, sub, format == 1 ? 4 : 10, set_index);
        if (!set) {
            return false;
        }
        auto const rules = get_uint16(d, *set);
        for (std::uint16_t r = 0; r < rules; ++r) {
            std::size_t p = add_offset(d, *set, get_uint16(d, *set + 2 + 2 * std::size_t(r)));
            auto const back_count = get_uint16(d, p);
            std::size_t const back = p + 2;
            p = back + 2 * std::size_t(back_count);
            auto const input_count = get_uint16(d, p);
            std::size_t const input = p + 2;
            if (input_count == 0) {
                continue;
            }
            p = input + 2 * std::size_t(input_count - 1);
            auto const ahead_count = get_uint16(d, p);
            std::size_t const ahead = p + 2;
            p = ahead + 2 * std::size_t(ahead_count);
            auto const record_count = get_uint16(d, p);
            std::size_t const records = p + 2;
            auto const mi = format == 1 ? glyph_ids(d, input, 1) : glyph_classes(d, input, 1, input_def);
            auto const mb = format == 1 ? glyph_ids(d, back, 0) : glyph_classes(d, back, 0, back_def);
            auto const ma = format == 1 ? glyph_ids(d, ahead, 0) : glyph_classes(d, ahead, 0, ahead_def);
            auto positions = match_input(c, l, i, input_count, mi);
            if (!positions || !match_around(c, l, i, -1, back_count, mb) ||
                !match_around(c, l, positions->back(), 1, ahead_count, ma)) {
                continue;
            }
            apply_records(c, *positions, records, record_count, next);
            return true;
        }
        return false;
    }
    if (format == 3) {
        auto const back_count = get_uint16(d, sub + 2);
        std::size_t const back = sub + 4;
        std::size_t p = back + 2 * std::size_t(back_count);
        auto const input_count = get_uint16(d, p);
        std::size_t const input = p + 2;
        p = input + 2 * std::size_t(input_count);
        auto const ahead_count = get_uint16(d, p);
        std::size_t const ahead = p + 2;
        p = ahead + 2 * std::size_t(ahead_count);
        auto const record_count = get_uint16(d, p);
        if (input_count == 0) {
            return false;
        }
        auto const mi = coverages(d, input, sub);
        if (!mi(0, glyph)) {
            return false;
        }
        auto positions = match_input(c, l, i, input_count, mi);
        if (!positions || !match_around(c, l, i, -1, back_count, coverages(d, back, sub)) ||
            !match_around(c, l, positions->back(), 1, ahead_count, coverages(d, ahead, sub))) {
            return false;
        }
        apply_records(c, *positions, p + 2, record_count, next);
        return true;
    }
    return false;
}

// ---- Substitutions ---------------------------------------------------------------------------------------

void substitute(context& c, glyph_info& g, std::uint32_t glyph) {
    g.info_glyph = glyph;
    g.info_substituted = true;
    if (c.options.apply_vertical) {
        g.info_vert_alt = true;
    }
    set_class(c, g, std::nullopt);
}

bool apply_single(context& c, std::size_t sub, std::size_t i) {
    auto const d = c.d();
    auto const format = get_uint16(d, sub);
    auto const cov = coverage_index(d, add_offset(d, sub, get_uint16(d, sub + 2)), c.buf[i].info_glyph);
    if (!cov) {
        return false;
    }
    if (format == 1) {
        substitute(c, c.buf[i], (c.buf[i].info_glyph + std::uint32_t(get_int16(d, sub + 4))) & 0xFFFF);
        return true;
    }
    if (format == 2) {
        if (*cov >= get_uint16(d, sub + 4)) {
            return false;
        }
        substitute(c, c.buf[i], get_uint16(d, sub + 6 + 2 * std::size_t(*cov)));
        return true;
    }
    return false;
}

bool apply_multiple(context& c, std::size_t sub, std::size_t i, std::size_t& next) {
    auto const d = c.d();
    auto const cov = coverage_index(d, add_offset(d, sub, get_uint16(d, sub + 2)), c.buf[i].info_glyph);
    if (!cov || *cov >= get_uint16(d, sub + 4)) {
        return false;
    }
    auto const seq = add_offset(d, sub, get_uint16(d, sub + 6 + 2 * std::size_t(*cov)));
    auto const count = get_uint16(d, seq);
    if (count == 0) {
        // Deleting a glyph: its characters go to the glyph before it, so that no text is lost.
        if (i > 0) {
            c.buf[i - 1].info_chars += c.buf[i].info_chars;
        } else if (i + 1 < c.buf.size()) {
            c.buf[i + 1].info_chars.insert(0, c.buf[i].info_chars);
        } else {
            return false;
        }
        c.buf.erase(c.buf.begin() + std::ptrdiff_t(i));
        next = i;
        return true;
    }
    glyph_info const original = c.buf[i];
    std::vector<glyph_info> out;
    for (std::uint16_t k = 0; k < count; ++k) {
        glyph_info g = original;
        substitute(c, g, get_uint16(d, seq + 2 + 2 * std::size_t(k)));
        if (k > 0) {
            g.info_chars.clear();
            g.info_multi_dup = true;
        }
        out.push_back(std::move(g));
    }
    c.buf.erase(c.buf.begin() + std::ptrdiff_t(i));
    c.buf.insert(c.buf.begin() + std::ptrdiff_t(i), out.begin(), out.end());
    next = i + count;
    return true;
}

bool apply_alternate(context& c, std::size_t sub, std::size_t i) {
    auto const d = c.d();
    auto const cov = coverage_index(d, add_offset(d, sub, get_uint16(d, sub + 2)), c.buf[i].info_glyph);
    if (!cov || *cov >= get_uint16(d, sub + 4)) {
        return false;
    }
    auto const set = add_offset(d, sub, get_uint16(d, sub + 6 + 2 * std::size_t(*cov)));
    auto const count = get_uint16(d, set);
    if (count == 0) {
        return false;
    }
    int pick = c.options.apply_alternate.value_or(1);
    if (pick < 1 || pick > count) {
        pick = 1;
    }
    substitute(c, c.buf[i], get_uint16(d, set + 2 * std::size_t(pick)));
    return true;
}

std::uint8_t next_lig_id(buffer::glyphs const& buf) {
    std::uint8_t top = 0;
    for (auto const& g : buf) {
        top = std::max(top, g.info_lig_id);
    }
    return top == 255 ? 1 : std::uint8_t(top + 1);
}

// Makes the ligature of matched components: the first glyph becomes the ligature with all the
// components' characters; the other components go; marks skipped between them stay behind it, each
// knowing which component it belongs to.
void form_ligature(context& c, std::vector<std::size_t> const& positions, std::uint32_t lig_glyph) {
    auto& buf = c.buf;
    bool const mark_ligature =
        std::all_of(positions.begin(), positions.end(), [&](std::size_t p) { return buffer::is_mark(buf[p]); });
    std::uint8_t const id = mark_ligature ? 0 : next_lig_id(buf);
    glyph_info lig = buf[positions.front()];
    lig.info_chars.clear();
    int components = 0;
    for (std::size_t k = 0; k < positions.size(); ++k) {
        auto const& comp = buf[positions[k]];
        lig.info_chars += comp.info_chars;
        int const last_count = comp.info_lig_count > 0 ? comp.info_lig_count : 1;
        auto const last_id = comp.info_lig_id;
        components += last_count;
        std::size_t const stop = k + 1 < positions.size() ? positions[k + 1] : positions[k] + 1;
        for (std::size_t j = positions[k] + 1; j < stop; ++j) {
            auto& m = buf[j];
            if (!buffer::is_mark(m) || id == 0) {
                continue;
            }
            int comp_no = components;
            if (last_id != 0 && m.info_lig_id == last_id && m.info_lig_comp > 0) {
                comp_no = components - last_count + std::min<int>(m.info_lig_comp, last_count);
            }
            m.info_lig_id = id;
            m.info_lig_comp = std::uint8_t(std::min(comp_no, 255));
        }
    }
    lig.info_glyph = lig_glyph;
    lig.info_substituted = true;
    lig.info_multi_dup = false;
    lig.info_lig_id = id;
    lig.info_lig_comp = 0;
    lig.info_lig_count = std::uint8_t(std::min(components, 255));
    set_class(c, lig, mark_ligature ? glyph_class::mark : glyph_class::ligature);
    for (std::size_t k = positions.size(); k-- > 1;) {
        buf.erase(buf.begin() + std::ptrdiff_t(positions[k]));
    }
    buf[positions.front()] = std::move(lig);
}

bool apply_ligature(context& c, lookup const& l, std::size_t sub, std::size_t i, std::size_t& next) {
    auto const d = c.d();
    auto const cov = coverage_index(d, add_offset(d, sub, get_uint16(d, sub + 2)), c.buf[i].info_glyph);
    if (!cov || *cov >= get_uint16(d, sub + 4)) {
        return false;
    }
    auto const set = add_offset(d, sub, get_uint16(d, sub + 6 + 2 * std::size_t(*cov)));
    auto const count = get_uint16(d, set);
    for (std::uint16_t k = 0; k < count; ++k) {
        auto const lig = add_offset(d, set, get_uint16(d, set + 2 + 2 * std::size_t(k)));
        auto const lig_glyph = get_uint16(d, lig);
        auto const comp_count = get_uint16(d, lig + 2);
        if (comp_count == 0) {
            continue;
        }
        std::vector<std::size_t> positions{i};
        auto const m = glyph_ids(d, lig + 4, 1);
        bool ok = true;
        for (std::size_t e = 1; e < comp_count && ok; ++e) {
            auto const j = step(c, l, positions.back(), 1, e, m, false);
            if (j) {
                positions.push_back(*j);
            } else {
                ok = false;
            }
        }
        if (!ok) {
            continue;
        }
        form_ligature(c, positions, lig_glyph);
        next = i + 1;
        return true;
    }
    return false;
}

bool apply_reverse_chain(context& c, lookup const& l, std::size_t sub, std::size_t i) {
    auto const d = c.d();
    if (get_uint16(d, sub) != 1) {
        return false;
    }
    auto const cov = coverage_index(d, add_offset(d, sub, get_uint16(d, sub + 2)), c.buf[i].info_glyph);
    if (!cov) {
        return false;
    }
    auto const back_count = get_uint16(d, sub + 4);
    std::size_t const back = sub + 6;
    std::size_t p = back + 2 * std::size_t(back_count);
    auto const ahead_count = get_uint16(d, p);
    std::size_t const ahead = p + 2;
    p = ahead + 2 * std::size_t(ahead_count);
    auto const glyph_count = get_uint16(d, p);
    if (*cov >= glyph_count || !match_around(c, l, i, -1, back_count, coverages(d, back, sub)) ||
        !match_around(c, l, i, 1, ahead_count, coverages(d, ahead, sub))) {
        return false;
    }
    substitute(c, c.buf[i], get_uint16(d, p + 2 + 2 * std::size_t(*cov)));
    return true;
}

// ---- Positioning -----------------------------------------------------------------------------------------

std::size_t value_size(std::uint16_t format) {
    return 2 * std::size_t(std::popcount(unsigned(format & 0xFF)));
}

// Applies a value record; device tables (for hinting at given sizes) do not apply to print.
void apply_value(context const& c, std::size_t pos, std::uint16_t format, glyph_info& g) {
    auto const d = c.d();
    std::size_t p = pos;
    auto next_value = [&]() {
        auto const v = get_int16(d, p);
        p += 2;
        return v;
    };
    if (format & 0x1) {
        g.pos_x_offset += next_value();
    }
    if (format & 0x2) {
        g.pos_y_offset += next_value();
    }
    if (format & 0x4) {
        g.pos_x_advance += next_value();
    }
    if (format & 0x8) {
        g.pos_y_advance += next_value();
    }
}

bool apply_single_pos(context& c, std::size_t sub, std::size_t i) {
    auto const d = c.d();
    auto const format = get_uint16(d, sub);
    auto const cov = coverage_index(d, add_offset(d, sub, get_uint16(d, sub + 2)), c.buf[i].info_glyph);
    if (!cov) {
        return false;
    }
    auto const value_format = get_uint16(d, sub + 4);
    if (format == 1) {
        apply_value(c, sub + 6, value_format, c.buf[i]);
        return true;
    }
    if (format == 2) {
        if (*cov >= get_uint16(d, sub + 6)) {
            return false;
        }
        apply_value(c, sub + 8 + value_size(value_format) * *cov, value_format, c.buf[i]);
        return true;
    }
    return false;
}

bool apply_pair(context& c, lookup const& l, std::size_t sub, std::size_t i, std::size_t& next) {
    auto const d = c.d();
    auto const format = get_uint16(d, sub);
    auto const cov = coverage_index(d, add_offset(d, sub, get_uint16(d, sub + 2)), c.buf[i].info_glyph);
    if (!cov) {
        return false;
    }
    auto const j = step(c, l, i, 1, 0, [](std::size_t, std::uint32_t) { return true; }, false);
    if (!j) {
        return false;
    }
    auto const f1 = get_uint16(d, sub + 4);
    auto const f2 = get_uint16(d, sub + 6);
    auto const second = c.buf[*j].info_glyph;
    std::optional<std::size_t> record;
    if (format == 1) {
        if (*cov >= get_uint16(d, sub + 8)) {
            return false;
        }
        auto const set = add_offset(d, sub, get_uint16(d, sub + 10 + 2 * std::size_t(*cov)));
        std::size_t const rec_size = 2 + value_size(f1) + value_size(f2);
        std::size_t lo = 0;
        std::size_t hi = get_uint16(d, set);
        while (lo < hi) {
            std::size_t const mid = (lo + hi) / 2;
            auto const g = get_uint16(d, set + 2 + rec_size * mid);
            if (g == second) {
                record = set + 2 + rec_size * mid + 2;
                break;
            }
            if (g < second) {
                lo = mid + 1;
            } else {
                hi = mid;
            }
        }
    } else if (format == 2) {
        auto const class1 = class_of(d, add_offset(d, sub, get_uint16(d, sub + 8)), c.buf[i].info_glyph);
        auto const class2 = class_of(d, add_offset(d, sub, get_uint16(d, sub + 10)), second);
        auto const count1 = get_uint16(d, sub + 12);
        auto const count2 = get_uint16(d, sub + 14);
        if (class1 >= count1 || class2 >= count2) {
            return false;
        }
        std::size_t const rec_size = value_size(f1) + value_size(f2);
        record = sub + 16 + (std::size_t(class1) * count2 + class2) * rec_size;
    }
    if (!record) {
        return false;
    }
    apply_value(c, *record, f1, c.buf[i]);
    apply_value(c, *record + value_size(f1), f2, c.buf[*j]);
    next = f2 != 0 ? *j + 1 : *j;
    return true;
}

struct anchor_point {
    int x = 0;
    int y = 0;
};

anchor_point read_anchor(data d, std::size_t pos) {
    return {get_int16(d, pos + 2), get_int16(d, pos + 4)};
}

bool apply_cursive(context& c, lookup const& l, std::size_t sub, std::size_t i) {
    auto const d = c.d();
    auto const cov_pos = add_offset(d, sub, get_uint16(d, sub + 2));
    auto const cov = coverage_index(d, cov_pos, c.buf[i].info_glyph);
    if (!cov || *cov >= get_uint16(d, sub + 4)) {
        return false;
    }
    auto const entry = optional_offset16(d, sub, 6 + 4 * std::size_t(*cov));
    if (!entry) {
        return false;
    }
    auto const p = step(c, l, i, -1, 0, [](std::size_t, std::uint32_t) { return true; }, false);
    if (!p) {
        return false;
    }
    auto const prev_cov = coverage_index(d, cov_pos, c.buf[*p].info_glyph);
    if (!prev_cov || *prev_cov >= get_uint16(d, sub + 4)) {
        return false;
    }
    auto const exit = optional_offset16(d, sub, 6 + 4 * std::size_t(*prev_cov) + 2);
    if (!exit) {
        return false;
    }
    auto const en = read_anchor(d, *entry);
    auto const ex = read_anchor(d, *exit);
    std::size_t const a = *p;
    std::size_t const b = i;
    auto& pa = c.buf[a];
    auto& pb = c.buf[b];
    // The exit point of the earlier glyph meets the entry point of the later one along the line.
    if (!c.options.apply_rtl) {
        pa.pos_x_advance = ex.x + pa.pos_x_offset;
        int const shift = en.x + pb.pos_x_offset;
        pb.pos_x_advance -= shift;
        pb.pos_x_offset -= shift;
    } else {
        int const shift = ex.x + pa.pos_x_offset;
        pa.pos_x_advance -= shift;
        pa.pos_x_offset -= shift;
        pb.pos_x_advance = en.x + pb.pos_x_offset;
    }
    // Across the line one glyph of the pair hangs on the other: the later on the earlier, or with the
    // right-to-left flag the earlier on the later, so that the chain ends on the baseline.
    std::size_t child = a;
    std::size_t parent = b;
    int y = en.y - ex.y;
    if (!(l.lookup_flag & lookup_right_to_left)) {
        std::swap(child, parent);
        y = -y;
    }
    auto& ch = c.buf[child];
    ch.pos_attach_kind = attach_kind::cursive;
    ch.pos_attach_chain = int(parent) - int(child);
    ch.pos_y_offset = y;
    if (c.buf[parent].pos_attach_chain == -ch.pos_attach_chain) {
        c.buf[parent].pos_attach_chain = 0;
        c.buf[parent].pos_attach_kind = attach_kind::none;
    }
    return true;
}

// The mark record of a mark glyph: its class and its anchor.
std::optional<std::pair<std::uint16_t, anchor_point>>
mark_record(data d, std::size_t mark_array, std::uint16_t index) {
    if (index >= get_uint16(d, mark_array)) {
        return std::nullopt;
    }
    std::size_t const rec = mark_array + 2 + 4 * std::size_t(index);
    return std::pair{get_uint16(d, rec), read_anchor(d, add_offset(d, mark_array, get_uint16(d, rec + 2)))};
}

void attach_mark(glyph_info& mark, std::size_t mark_pos, std::size_t base_pos, anchor_point base, anchor_point m) {
    mark.pos_x_offset = base.x - m.x;
    mark.pos_y_offset = base.y - m.y;
    mark.pos_attach_kind = attach_kind::mark;
    mark.pos_attach_chain = int(base_pos) - int(mark_pos);
}

// The glyph a mark goes on: the nearest earlier one that is not a mark, and not a glyph after the first
// of a multiple substitution.
std::optional<std::size_t> base_before(context const& c, std::size_t i) {
    for (std::size_t j = i; j-- > 0;) {
        auto const& g = c.buf[j];
        if (buffer::is_mark(g) || g.info_multi_dup) {
            continue;
        }
        return j;
    }
    return std::nullopt;
}

bool apply_mark_base(context& c, std::size_t sub, std::size_t i, bool ligature) {
    auto const d = c.d();
    auto const mark_cov = coverage_index(d, add_offset(d, sub, get_uint16(d, sub + 2)), c.buf[i].info_glyph);
    if (!mark_cov) {
        return false;
    }
    auto const b = base_before(c, i);
    if (!b) {
        return false;
    }
    auto const base_cov = coverage_index(d, add_offset(d, sub, get_uint16(d, sub + 4)), c.buf[*b].info_glyph);
    if (!base_cov) {
        return false;
    }
    auto const class_count = get_uint16(d, sub + 6);
    auto const mark_array = add_offset(d, sub, get_uint16(d, sub + 8));
    auto const array = add_offset(d, sub, get_uint16(d, sub + 10));
    auto const mr = mark_record(d, mark_array, *mark_cov);
    if (!mr || mr->first >= class_count || *base_cov >= get_uint16(d, array)) {
        return false;
    }
    std::optional<std::size_t> anchor;
    if (!ligature) {
        if (auto const o = get_uint16(d, array + 2 + 2 * (std::size_t(*base_cov) * class_count + mr->first))) {
            anchor = add_offset(d, array, o);
        }
    } else {
        auto const attach = add_offset(d, array, get_uint16(d, array + 2 + 2 * std::size_t(*base_cov)));
        auto const comp_count = get_uint16(d, attach);
        if (comp_count == 0) {
            return false;
        }
        auto const& lig = c.buf[*b];
        auto const& mark = c.buf[i];
        std::size_t comp = comp_count - 1;
        if (lig.info_lig_id != 0 && lig.info_lig_id == mark.info_lig_id && mark.info_lig_comp > 0) {
            comp = std::min<std::size_t>(comp_count, mark.info_lig_comp) - 1;
        }
        std::size_t const field = attach + 2 + 2 * (comp * class_count + mr->first);
        if (auto const o = get_uint16(d, field)) {
            anchor = add_offset(d, attach, o);
        }
    }
    if (!anchor) {
        return false;
    }
    attach_mark(c.buf[i], i, *b, read_anchor(d, *anchor), mr->second);
    return true;
}

bool apply_mark_mark(context& c, lookup const& l, std::size_t sub, std::size_t i) {
    auto const d = c.d();
    auto const mark_cov = coverage_index(d, add_offset(d, sub, get_uint16(d, sub + 2)), c.buf[i].info_glyph);
    if (!mark_cov) {
        return false;
    }
    auto const p = step(c, l, i, -1, 0, [](std::size_t, std::uint32_t) { return true; }, false);
    if (!p || !buffer::is_mark(c.buf[*p])) {
        return false;
    }
    auto const& m1 = c.buf[i];
    auto const& m2 = c.buf[*p];
    // Both marks must sit on the same component of the same ligature (or on no ligature at all).
    bool const same = m1.info_lig_id == m2.info_lig_id &&
                      (m1.info_lig_id == 0 || m1.info_lig_comp == m2.info_lig_comp);
    bool const lig_of_marks = (m1.info_lig_id > 0 && m1.info_lig_comp == 0) ||
                              (m2.info_lig_id > 0 && m2.info_lig_comp == 0);
    if (!same && !lig_of_marks) {
        return false;
    }
    auto const base_cov = coverage_index(d, add_offset(d, sub, get_uint16(d, sub + 4)), m2.info_glyph);
    if (!base_cov) {
        return false;
    }
    auto const class_count = get_uint16(d, sub + 6);
    auto const mark_array = add_offset(d, sub, get_uint16(d, sub + 8));
    auto const array = add_offset(d, sub, get_uint16(d, sub + 10));
    auto const mr = mark_record(d, mark_array, *mark_cov);
    if (!mr || mr->first >= class_count || *base_cov >= get_uint16(d, array)) {
        return false;
    }
    auto const o = get_uint16(d, array + 2 + 2 * (std::size_t(*base_cov) * class_count + mr->first));
    if (o == 0) {
        return false;
    }
    attach_mark(c.buf[i], i, *p, read_anchor(d, add_offset(d, array, o)), mr->second);
    return true;
}

// ---- Dispatch ----------------------------------------------------------------------------------------------

bool apply_subtable(context& c, lookup const& l, subtable_ref const& s, std::size_t i, std::size_t& next) {
    next = i + 1;
    if (c.table.table_which == table_kind::gsub) {
        switch (s.type) {
        case 1:
            return apply_single(c, s.pos, i);
        case 2:
            return apply_multiple(c, s.pos, i, next);
        case 3:
            return apply_alternate(c, s.pos, i);
        case 4:
            return apply_ligature(c, l, s.pos, i, next);
        case 5:
            return apply_context(c, l, s.pos, i, next);
        case 6:
            return apply_chain(c, l, s.pos, i, next);
        case 8:
            return apply_reverse_chain(c, l, s.pos, i);
        default:
            return false;
        }
    }
    switch (s.type) {
    case 1:
        return apply_single_pos(c, s.pos, i);
    case 2:
        return apply_pair(c, l, s.pos, i, next);
    case 3:
        return apply_cursive(c, l, s.pos, i);
    case 4:
        return apply_mark_base(c, s.pos, i, false);
    case 5:
        return apply_mark_base(c, s.pos, i, true);
    case 6:
        return apply_mark_mark(c, l, s.pos, i);
    case 7:
        return apply_context(c, l, s.pos, i, next);
    case 8:
        return apply_chain(c, l, s.pos, i, next);
    default:
        log::log_warning(c.log, "unknown GPOS lookup type: " + std::to_string(s.type));
        return false;
    }
}

bool apply_at(context& c, lookup const& l, std::size_t i, std::size_t& next) {
    for (std::uint16_t k = 0; k < l.lookup_subtable_count; ++k) {
        if (apply_subtable(c, l, resolve(c, l, k), i, next)) {
            return true;
        }
    }
    return false;
}

bool apply_nested(context& c, std::uint16_t lookup_index, std::size_t pos, std::size_t& next) {
    if (c.depth >= deepest_nesting || pos >= c.buf.size() || lookup_index >= lookup_count(c.d())) {
        return false;
    }
    auto const l = get_lookup(c.d(), lookup_index);
    if (c.gpos() && l.lookup_type > 6 && l.lookup_type != 9) {
        log::log_warning(c.log, "unexpected contextual GPOS lookup: " + std::to_string(l.lookup_type));
        return false;
    }
    if (ignored(c, l, c.buf[pos])) {
        return false;
    }
    ++c.depth;
    bool const applied = apply_at(c, l, pos, next);
    --c.depth;
    return applied;
}

bool is_reverse(context const& c, lookup const& l) {
    if (c.table.table_which != table_kind::gsub) {
        return false;
    }
    if (l.lookup_type == 8) {
        return true;
    }
    return l.lookup_type == 7 && l.lookup_subtable_count > 0 && resolve(c, l, 0).type == 8;
}

} // namespace

void apply_lookup(log::log const& log,
                  layout_table const& table,
                  std::uint16_t lookup_index,
                  apply_options const& options,
                  buffer::glyphs& glyphs) {
    if (lookup_index >= lookup_count(table.table_data)) {
        return;
    }
    context c{.log = log, .table = table, .options = options, .buf = glyphs};
    auto const l = get_lookup(table.table_data, lookup_index);
    auto applies_at = [&](std::size_t i) {
        return (glyphs[i].info_mask & options.apply_mask) != 0 && !ignored(c, l, glyphs[i]);
    };
    if (is_reverse(c, l)) {
        for (std::size_t i = glyphs.size(); i-- > 0;) {
            std::size_t next = 0;
            if (applies_at(i)) {
                apply_at(c, l, i, next);
            }
        }
        return;
    }
    std::size_t i = 0;
    while (i < glyphs.size()) {
        std::size_t next = i + 1;
        std::size_t const before = glyphs.size();
        if (applies_at(i) && apply_at(c, l, i, next)) {
            // Only a deletion may leave the scan where it was: a new glyph stands there now.
            if (next <= i && glyphs.size() >= before) {
                next = i + 1;
            }
        } else {
            next = i + 1;
        }
        i = next;
    }
}

void set_glyph_classes(layout_table const& table, buffer::glyphs& glyphs) {
    bool const classes = table.table_gdef && table.table_gdef->gdef_glyph_class_def;
    for (auto& g : glyphs) {
        if (classes) {
            g.info_class = glyph_class_of(*table.table_gdef, g.info_glyph);
        } else {
            bool const mark = g.info_chars.size() == 1 &&
                              unicode::category::category_of(g.info_chars[0]) ==
                                  unicode::category::general_category::category_mn;
            g.info_class = mark ? glyph_class::mark : glyph_class::base;
        }
    }
}

} // namespace vellum::shaping::lookups
