#include "text/fonts/graphemes.hpp"
#include "text/unicode/bidi.hpp"

#include "text/font_data.hpp"
#include "text/grapheme_boundary.hpp"
#include "text/opentype/language.hpp"
#include "text/shaping/shape.hpp"
#include "text/unicode.hpp"
#include "text/unicode/script.hpp"
#include "text/unicode/vertical.hpp"

#include <algorithm>

namespace vellum::fonts {

namespace {

using unicode::script::script;

// Common and inherited characters (spaces, digits, punctuation, marks) belong to the run around them.
bool is_neutral(script s) {
    return s == script::zyyy || s == script::qaai || s == script::zzzz;
}

// Cuts text into runs of one script; neutral characters join the run they stand in.
std::vector<std::u32string_view> script_runs(std::u32string_view text) {
    std::vector<std::u32string_view> runs;
    std::size_t start = 0;
    std::optional<script> current;
    for (std::size_t i = 0; i < text.size(); ++i) {
        auto const s = unicode::script::script_of(text[i]);
        if (is_neutral(s)) {
            continue;
        }
        if (current && s != *current) {
            runs.push_back(text.substr(start, i - start));
            start = i;
        }
        current = s;
    }
    if (start < text.size()) {
        runs.push_back(text.substr(start));
    }
    return runs;
}

// One run of one script: each character mapped to its glyph (a font of the request, or a fallback that
// has it), then each stretch of glyphs from one font shaped by that font's layout tables.
void map_run(fonts const& db, font_req const& req, direction dir, std::u32string_view run, std::vector<grapheme>& out) {
    script run_script = script::zyyy;
    for (char32_t c : run) {
        if (auto const s = unicode::script::script_of(c); !is_neutral(s)) {
            run_script = s;
            break;
        }
    }
    bool small_caps = req.font_req_variant == match::font_variant::small_caps;
    auto features = req.font_req_features;
    auto const asks = [&](char const* tag) {
        return std::any_of(features.begin(), features.end(),
                           [tag](feature const& f) { return f.feature_tag == tag && f.feature_param != 0; });
    };
    // All small (or petite) capitals: the capitals shrink too, by the font's "c2sc" ("c2pc") or by
    // imitation.
    bool const all_small_caps = small_caps && (asks("c2sc") || asks("c2pc"));
    // Small or petite capitals from the font itself when it has them: the letters are shaped with its
    // "pcap" or "smcp" feature instead of being imitated by smaller capitals. Petite capitals fall back
    // to the font's small capitals, then to imitated ones, as small capitals do.
    if (small_caps) {
        auto const first = std::find_if(run.begin(), run.end(), [all_small_caps](char32_t c) {
            return unicode::to_upper(c) != c || (all_small_caps && unicode::to_lower(c) != c);
        });
        bool const petite = asks("pcap");
        std::erase_if(features, [](feature const& f) { return f.feature_tag == "pcap" || f.feature_tag == "c2pc"; });
        if (first != run.end()) {
            auto const probe = char_to_glyph(db, req, *first);
            auto const& font = *probe.raw_glyph_font_ref->used_font_data;
            auto const has = [&](char const* tag) {
                return shaping::shape::has_substitution_feature(font, run_script, opentype::reader::make_tag(tag));
            };
            if (petite && has("pcap")) {
                small_caps = false;
                features.push_back({.feature_tag = "pcap"});
                if (all_small_caps) {
                    features.push_back({.feature_tag = "c2pc"});
                }
            } else if (has("smcp")) {
                small_caps = false;
                features.push_back({.feature_tag = "smcp"});
                if (all_small_caps && !asks("c2sc")) {
                    features.push_back({.feature_tag = "c2sc"});
                }
            }
        }
    }
    std::vector<raw_glyph> raws;
    raws.reserve(run.size());
    for (char32_t c : run) {
        raw_glyph raw;
        char32_t const upper = unicode::to_upper(c);
        // Small capitals without a font that has them: the capital, shown smaller.
        if (small_caps && (upper != c || (all_small_caps && unicode::to_lower(c) != c))) {
            raw = char_to_glyph(db, req, upper);
            raw.raw_glyph_small_caps = true;
        } else {
            raw = char_to_glyph(db, req, c);
        }
        // In right-to-left text, brackets and other mirrored characters show their mirror image's
        // glyph, while the text they stand for stays the character written.
        if (dir == direction::rtl) {
            if (char32_t const m = unicode::bidi::mirrored(c); m != c) {
                auto mirror = char_to_glyph(db, req, m);
                if (mirror.raw_glyph_index != 0 && mirror.raw_glyph_font_ref == raw.raw_glyph_font_ref) {
                    mirror.raw_glyph_unicodes = raw.raw_glyph_unicodes;
                    mirror.raw_glyph_small_caps = raw.raw_glyph_small_caps;
                    raw = std::move(mirror);
                }
            }
        }
        raws.push_back(std::move(raw));
    }
    shaping::shape::run_request const request{.run_direction = dir,
                                              .run_script = run_script,
                                              .run_language = opentype::language::language_system_tag(
                                                                  req.font_req_language)
                                                                  .value_or(0),
                                              .run_features = features,
                                              .run_kerning = req.font_req_kerning,
                                              .run_vertical = req.font_req_vertical};
    std::size_t start = 0;
    for (std::size_t i = 1; i <= raws.size(); ++i) {
        if (i < raws.size() && raws[i].raw_glyph_font_ref == raws[start].raw_glyph_font_ref &&
            raws[i].raw_glyph_small_caps == raws[start].raw_glyph_small_caps) {
            continue;
        }
        std::vector<raw_glyph> const part(raws.begin() + std::ptrdiff_t(start), raws.begin() + std::ptrdiff_t(i));
        auto shaped = shaping::shape::shape_font_run(db.fonts_log, request, part);
        out.insert(out.end(), std::make_move_iterator(shaped.begin()), std::make_move_iterator(shaped.end()));
        start = i;
    }
}

// The size a grapheme is measured at.
float size_of(grapheme const& g, float size) {
    return g.base_glyph.glyph_small_caps ? size * 0.8f : size;
}

float advance_of(grapheme const& g, bool vertical) {
    auto const& b = g.base_glyph;
    return vertical && stands_upright(g) ? b.glyph_vert_advance : b.glyph_hori_advance;
}

// Walks graphemes, keeping the previous size, start and end; calls visit(index, end) after each.
template <class Visit>
void lay_out(
    std::span<grapheme const> graphemes, bool vertical, float letter_spacing, float size, Visit&& visit) {
    float prev_size = size;
    float prev_start = 0;
    float prev_end = 0;
    for (std::size_t i = 0; i < graphemes.size(); ++i) {
        auto const& g = graphemes[i];
        float const s = size_of(g, size);
        float start = prev_end;
        if (auto const* a = std::get_if<anchor>(&g.grapheme_place)) {
            // Cursive attachment places the glyph by its entry point on the previous glyph's exit.
            start = prev_size * a->anchor_exit.x + prev_start - s * a->anchor_entry.x;
        }
        float end = start + advance_of(g, vertical) * s;
        if (g.grapheme_kerning) {
            end += *g.grapheme_kerning * s;
        }
        end += letter_spacing;
        prev_size = s;
        prev_start = start;
        prev_end = end;
        if (!visit(i, end)) {
            return;
        }
    }
}

// The grapheme class at the edge of a grapheme: of its base's code points, or its marks' if it has none.
std::optional<grapheme_boundary::grapheme_class> edge_class(grapheme const& g, bool last) {
    auto pick = [&](unicode::unicodes const& u) -> std::optional<char32_t> {
        if (u.empty()) {
            return std::nullopt;
        }
        return last ? u.back() : u.front();
    };
    auto cp = pick(g.base_glyph.glyph_unicodes);
    if (!cp) {
        std::vector<mark> marks = g.grapheme_marks;
        if (last) {
            std::reverse(marks.begin(), marks.end());
        }
        for (auto const& m : marks) {
            if ((cp = pick(m.mark_glyph.glyph_unicodes))) {
                break;
            }
        }
    }
    if (!cp) {
        return std::nullopt;
    }
    return grapheme_boundary::get_grapheme_break_class(*cp);
}

bool may_cut_between(grapheme const& left, grapheme const& right) {
    auto const l = edge_class(left, true);
    auto const r = edge_class(right, false);
    if (!l || !r) {
        return false;
    }
    return grapheme_boundary::grapheme_break(*l, *r);
}

} // namespace

glyph make_glyph(raw_glyph const& raw) {
    auto const& font = raw.raw_glyph_font_ref;
    auto const& data = *font->used_font_data;
    auto const index = font->used_font_glyph_cache->update([&](glyph_cache& c) {
        auto [it, fresh] =
            c.glyph_cache_positions.try_emplace(raw.raw_glyph_index, c.glyph_cache_entries.size());
        if (fresh) {
            c.glyph_cache_entries.push_back(
                {.entry_source = raw.raw_glyph_index,
                 .entry_index = std::make_shared<cell<int>>(cell<int>{int(raw.raw_glyph_index)})});
        }
        return c.glyph_cache_entries[it->second].entry_index;
    });
    int const advance = font_data::glyph_advance(data, raw.raw_glyph_index);
    float const upem = float(data.font_info.units_per_em);
    return glyph{.glyph_font_ref = font,
                 .glyph_index = index,
                 .glyph_source = raw.raw_glyph_index,
                 .glyph_unicodes = raw.raw_glyph_unicodes,
                 .glyph_advance = advance,
                 .glyph_hori_advance = float(advance) / upem,
                 .glyph_vert_advance = float(font_data::glyph_vert_advance(data, raw.raw_glyph_index)) / upem,
                 .glyph_small_caps = raw.raw_glyph_small_caps,
                 .glyph_is_vert_alt = raw.raw_glyph_is_vert_alt};
}

std::vector<grapheme>
text_to_graphemes(fonts const& db, font_req const& req, direction dir, std::u32string_view text) {
    std::vector<grapheme> out;
    out.reserve(text.size());
    for (auto run : script_runs(text)) {
        map_run(db, req, dir, run, out);
    }
    return out;
}

font_metrics::font_metrics_scaled graphemes_metrics(std::span<grapheme const> graphemes, double size) {
    font_metrics::font_metrics_scaled out;
    // Runs of graphemes share their font and size: each pair is looked up once per run (the lookup
    // takes the font's lock).
    font_data::font_data const* last_font = nullptr;
    double last_size = 0;
    for (auto const& g : graphemes) {
        double const s = g.base_glyph.glyph_small_caps ? size * 0.8 : size;
        auto const* font = g.base_glyph.glyph_font_ref->used_font_data.get();
        if (font == last_font && s == last_size) {
            continue;
        }
        last_font = font;
        last_size = s;
        auto const m = font_data::scaled_metrics(*font, s);
        out.up = std::max(out.up, m.up);
        out.down = std::max(out.down, m.down);
    }
    return out;
}

bool stands_upright(grapheme const& g) {
    auto const& b = g.base_glyph;
    return b.glyph_is_vert_alt || (!b.glyph_unicodes.empty() && unicode::vertical::stays_upright(b.glyph_unicodes.front()));
}

float graphemes_width(
    bool reversed, bool vertical, std::span<grapheme const> graphemes, float letter_spacing, float size) {
    std::vector<grapheme> flipped;
    if (reversed) {
        flipped.assign(graphemes.rbegin(), graphemes.rend());
        graphemes = flipped;
    }
    float last_end = 0;
    lay_out(graphemes, vertical, 0, size, [&](std::size_t, float end) {
        last_end = end;
        return true;
    });
    return last_end + letter_spacing * float(graphemes.size());
}

std::optional<fit> fit_graphemes(
    bool vertical, std::span<grapheme const> graphemes, float letter_spacing, float size, float width) {
    // Widths in layout compare with a small tolerance.
    constexpr float tolerance = 0.0001f;
    std::vector<float> ends;
    std::optional<std::size_t> overflow;
    lay_out(graphemes, vertical, letter_spacing, size, [&](std::size_t i, float end) {
        ends.push_back(end);
        if (end > width + tolerance) {
            overflow = i;
            return false;
        }
        return true;
    });
    if (!overflow) {
        return fit{.fit_first = {graphemes.begin(), graphemes.end()},
                   .fit_width = ends.empty() ? 0 : ends.back()};
    }
    // Walk back from the grapheme that overflows to a place where a cluster ends, and not inside a
    // reordered cluster.
    std::vector<bool> inside(graphemes.size() + 1, false);
    for (std::size_t i = 0; i < graphemes.size(); ++i) {
        if (auto const& c = graphemes[i].grapheme_cluster) {
            for (std::size_t k = i + 1; k < std::min<std::size_t>(graphemes.size(), i + c->cluster_graphemes); ++k) {
                inside[k] = true;
            }
        }
    }
    for (std::size_t cut = *overflow; cut > 0; --cut) {
        if (!inside[cut] && may_cut_between(graphemes[cut - 1], graphemes[cut])) {
            return fit{.fit_first = {graphemes.begin(), graphemes.begin() + std::ptrdiff_t(cut)},
                       .fit_rest = {graphemes.begin() + std::ptrdiff_t(cut), graphemes.end()},
                       .fit_width = ends[cut - 1]};
        }
    }
    return std::nullopt;
}

} // namespace vellum::fonts
