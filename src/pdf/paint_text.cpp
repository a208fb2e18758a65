#include "pdf/paint_text.hpp"

#include "pdf/borders.hpp"
#include "pdf/font_objects.hpp"
#include "pdf/paint_color.hpp"
#include "pdf/painted.hpp"
#include "pdf/pdf_fonts.hpp"
#include "text/font_data.hpp"
#include "text/vertical_origin.hpp"
#include "text/fonts/query.hpp"
#include "util/ref.hpp"
#include "util/result.hpp"

#include <cmath>
#include <algorithm>
#include <cstdio>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace vellum::pdf::paint_text {

namespace {

// Positions that differ by less than this are the same for a run of glyphs.
constexpr double same_place = 0.001;

// A glyph with its place on the page and the size it is shown at.
struct placed_glyph {
    fonts::glyph const* placed = nullptr;
    double placed_x = 0;
    double placed_y = 0;
    double placed_size = 0;
    /// A mark, and the base after a mark, start a run of their own.
    bool placed_starts_run = false;
    /// On the first glyph of a reordered cluster: its text, and the index past its last placed glyph.
    fonts::cluster_text const* placed_cluster = nullptr;
    std::size_t placed_cluster_end = 0;
    /// Stands upright in a vertical line: the glyph is turned a quarter turn back against the line,
    /// and its place is the origin of that turned text matrix.
    bool placed_upright = false;
};

double spacing_of(css::box::letter_word_spacing const& s) {
    return std::visit(overloaded{
                          [](css::box::normal_value const&) { return 0.0; },
                          [](float f) { return double(f); },
                      },
                      s);
}

double size_of(fonts::glyph const& g, double size) {
    return g.glyph_small_caps ? size * 0.8 : size;
}

// Where an upright glyph of a vertical line stands. The line is laid out as a horizontal one that the
// block turns a quarter turn clockwise, so the glyph is turned back by the opposite quarter turn: its
// text matrix maps the glyph's x axis onto the line's upward direction and its y axis onto the line's
// backward direction. The top of its em box (its vertical origin) meets the start of its cell along the
// line, and the middle of its advance the middle of the line's ascent and descent.
struct upright_frame {
    double frame_x = 0;
    double frame_y = 0;

    // A point given in the glyph's own upright coordinates (points, from its origin) on the page.
    std::pair<double, double> at(double local_x, double local_y) const {
        return {frame_x - local_y, frame_y + local_x};
    }
};

upright_frame upright_frame_of(fonts::glyph const& gl, double start, double baseline, double size) {
    auto const& data = *gl.glyph_font_ref->used_font_data;
    double const upem = data.font_info.units_per_em;
    auto const metrics = font_data::scaled_metrics(data, size);
    double const middle = baseline + (metrics.up - metrics.down) / 2;
    double const origin_y = vertical_origin::glyph_vert_origin_y(data, gl.glyph_source) / upem * size;
    return {.frame_x = start + origin_y, .frame_y = middle - gl.glyph_hori_advance * size / 2};
}

// Lays graphemes out as layout measured them: each base glyph after the end of the one before, moved
// by its placement; kerning and letter spacing move the next one. A mark sits on its base: by anchors
// from the base's origin, otherwise at the pen position after the base (zero-width marks are drawn
// to the left of their origin), moved by its distance. In a vertical line, upright graphemes take their
// vertical advance and are drawn turned back, each in a run of its own.
void place(std::span<fonts::grapheme const> graphemes,
           double x,
           double baseline,
           double size,
           double letter_spacing,
           bool vertical,
           std::vector<placed_glyph>& out) {
    out.clear();
    out.reserve(graphemes.size());
    double prev_start = x;
    double prev_end = x;
    double prev_size = size;
    double prev_y = baseline;
    bool after_mark = false;
    // The open reordered cluster: where its first glyph went, and how many graphemes it has left.
    std::size_t cluster_first = 0;
    std::uint32_t cluster_left = 0;
    auto close_cluster = [&]() {
        out[cluster_first].placed_cluster_end = out.size();
        cluster_left = 0;
    };
    for (auto const& gr : graphemes) {
        bool const opens = gr.grapheme_cluster && gr.grapheme_cluster->cluster_graphemes > 0;
        if (cluster_left > 0 && (--cluster_left == 0 || opens)) {
            close_cluster();
            after_mark = true; // the next glyph starts a run of its own
        }
        double const s = size_of(gr.base_glyph, size);
        double start = prev_end;
        double y = baseline;
        std::visit(overloaded{
                       [](fonts::no_place_adjust const&) {},
                       [&](fonts::anchor const& a) {
                           start = prev_start + prev_size * a.anchor_exit.x - s * a.anchor_entry.x;
                           y = prev_y + prev_size * a.anchor_exit.y - s * a.anchor_entry.y;
                       },
                       [&](fonts::distance const&) {},
                   },
                   gr.grapheme_place);
        bool const upright = vertical && fonts::stands_upright(gr);
        // The base glyph's origin: on the line for glyphs that follow it, in the glyph's own upright
        // frame for upright ones (turned onto the line when placed).
        std::optional<upright_frame> frame;
        double gx = start;
        double gy = y;
        if (upright) {
            frame = upright_frame_of(gr.base_glyph, start, y, s);
            gx = 0;
            gy = 0;
        }
        if (auto const* d = std::get_if<fonts::distance>(&gr.grapheme_place)) {
            gx += d->distance_x * s;
            gy += d->distance_y * s;
        }
        auto on_line = [&](double px, double py) { return frame ? frame->at(px, py) : std::pair{px, py}; };
        auto const [bx, by] = on_line(gx, gy);
        out.push_back({&gr.base_glyph, bx, by, s, !gr.grapheme_marks.empty() || after_mark || opens || upright});
        out.back().placed_upright = upright;
        if (opens) {
            out.back().placed_cluster = gr.grapheme_cluster.get();
            cluster_first = out.size() - 1;
            cluster_left = gr.grapheme_cluster->cluster_graphemes;
        }
        after_mark = !gr.grapheme_marks.empty() || upright;
        double const advance = gr.base_glyph.glyph_hori_advance * s;
        for (auto const& m : gr.grapheme_marks) {
            double const ms = size_of(m.mark_glyph, size);
            double mx = gx + advance;
            double my = gy;
            std::visit(overloaded{
                           [](fonts::no_place_adjust const&) {},
                           [&](fonts::anchor const& a) {
                               mx = gx + s * a.anchor_exit.x - ms * a.anchor_entry.x;
                               my = gy + s * a.anchor_exit.y - ms * a.anchor_entry.y;
                           },
                           [&](fonts::distance const& d) {
                               mx += d.distance_x * ms;
                               my += d.distance_y * ms;
                           },
                       },
                       m.mark_place);
            auto const [px, py] = on_line(mx, my);
            out.push_back({&m.mark_glyph, px, py, ms, true});
            out.back().placed_upright = upright;
        }
        double end = start + (upright ? gr.base_glyph.glyph_vert_advance * s : advance);
        if (gr.grapheme_kerning) {
            end += *gr.grapheme_kerning * s;
        }
        end += letter_spacing;
        prev_start = start;
        prev_end = end;
        prev_size = s;
        prev_y = y;
    }
    if (cluster_left > 0) {
        close_cluster();
    }
}

fonts::font_req request_of(css::style::style const& style) {
    fonts::font_req req;
    if (style.font_props) {
        req.font_req_weight = fonts::query::weight_of(style.font_props->font_props_font_weight);
        switch (style.font_props->font_props_font_style) {
        case css::fonts::font_style::normal:
            req.font_req_style = fonts::match::font_style::normal;
            break;
        case css::fonts::font_style::italic:
            req.font_req_style = fonts::match::font_style::italic;
            break;
        case css::fonts::font_style::oblique:
            req.font_req_style = fonts::match::font_style::oblique;
            break;
        }
    }
    return req;
}

// Writes one run: selects the font, moves the text position to the run's start, shows the bytes; an
// imitated bold shows them a second time a little to the right.
void show_run(content::out const& o,
              content::gs& g,
              text_cursor& cursor,
              std::vector<fonts::glyph const*> const& glyphs,
              placed_glyph const& first,
              fonts::synthesis const& imitate) {
    auto const& font = first.placed->glyph_font_ref;
    content::font(o, g, font->used_font_id, first.placed_size);
    // A page painted ahead of writing keeps the glyphs, not their codes: the font's encoding and
    // numbers are settled once every page is known.
    auto* const record = painted::recorder_of(o);
    std::string const bytes = record ? std::string() : glyph_bytes(glyphs);
    bool const hex = !record && font->used_font_encoding->get() == fonts::font_pdf_encoding::identity_encoding;
    auto show = [&](double x, double y) {
        if (first.placed_upright) {
            // Turned back a quarter turn against the line that the block turns.
            content::text_matrix(o, g, {.a = std::int64_t{0}, .b = std::int64_t{1}, .c = std::int64_t{-1},
                                        .d = std::int64_t{0}, .e = x, .f = y});
            cursor = {x, y, true};
        } else if (imitate.synthesis_italic) {
            content::text_matrix(o, g, {.c = 0.2, .e = x, .f = y});
            cursor = {x, y, true};
        } else if (cursor.cursor_slanted) {
            content::text_matrix(o, g, {.e = x, .f = y});
            cursor = {x, y, false};
        } else {
            content::position(o, g, x - cursor.cursor_x, y - cursor.cursor_y);
            cursor.cursor_x = x;
            cursor.cursor_y = y;
        }
        if (record) {
            record->show(font, glyphs);
        } else if (hex) {
            content::show_hex(o, bytes);
        } else {
            content::show_literal(o, bytes);
        }
    };
    show(first.placed_x, first.placed_y);
    if (imitate.synthesis_bold) {
        // To the glyph's right: across the line for an upright glyph.
        double const shift = 0.02 * first.placed_size;
        if (first.placed_upright) {
            show(first.placed_x, first.placed_y + shift);
        } else {
            show(first.placed_x + shift, first.placed_y);
        }
    }
}

void paint_placed(content::out const& o,
                  content::gs& g,
                  text_cursor& cursor,
                  std::vector<placed_glyph> const& placed,
                  double letter_spacing,
                  css::style::style const& style,
                  text_options const& options) {
    // The request the style makes is needed only to tell which styles a font lacks and must imitate.
    std::optional<fonts::font_req> req;
    if (options.artificial_fonts) {
        req = request_of(style);
    }
    // The glyphs of one run; the vector serves run after run, word after word.
    thread_local std::vector<fonts::glyph const*> run;
    std::size_t i = 0;
    // Glyphs of a reordered cluster are shown inside a span that gives their text in logical order, so
    // that copied text reads as written and not in the order the glyphs stand.
    std::size_t cluster_end = 0;
    auto actual_text = [&](auto const& chars) {
        std::string text = "<FEFF";
        for (char32_t ch : chars) {
            text += font_objects::utf16_hex(ch);
        }
        content::begin_marked_properties(o, "Span", "<< /ActualText " + text + "> >>");
    };
    while (i < placed.size()) {
        if (cluster_end > 0 && i >= cluster_end) {
            content::end_marked(o);
            cluster_end = 0;
        }
        if (auto const* c = placed[i].placed_cluster) {
            actual_text(c->cluster_chars);
            cluster_end = std::max(placed[i].placed_cluster_end, i + 1);
        } else if (cluster_end == 0 && placed[i].placed_upright) {
            // Upright glyphs stand each on their own, one below the other, where text extraction would
            // read them as lines of one character: a stretch of them carries its text as one piece.
            std::u32string chars;
            std::size_t k = i;
            for (; k < placed.size() && placed[k].placed_upright && (k == i || !placed[k].placed_cluster); ++k) {
                chars += placed[k].placed->glyph_unicodes;
            }
            actual_text(chars);
            cluster_end = k;
        }
        // A run goes on while the glyphs keep the font and size, and each stands where the one before
        // leaves the text position: its advance plus the letter spacing.
        run.assign(1, placed[i].placed);
        std::size_t j = i + 1;
        while (j < placed.size() && !placed[j].placed_starts_run) {
            auto const& prev = placed[j - 1];
            auto const& next = placed[j];
            bool const same_font = next.placed->glyph_font_ref == prev.placed->glyph_font_ref &&
                                   next.placed_size == prev.placed_size;
            double const expected = prev.placed_x + prev.placed->glyph_hori_advance * prev.placed_size + letter_spacing;
            if (!same_font || std::abs(next.placed_x - expected) > same_place ||
                std::abs(next.placed_y - prev.placed_y) > same_place) {
                break;
            }
            run.push_back(next.placed);
            ++j;
        }
        fonts::synthesis const imitate =
            req ? fonts::synthesis_needed(*req, placed[i].placed->glyph_font_ref) : fonts::synthesis{};
        show_run(o, g, cursor, run, placed[i], imitate);
        i = j;
    }
    if (cluster_end > 0) {
        content::end_marked(o);
    }
}

void paint_line_style(content::out const& o,
                      content::gs& g,
                      css::text::text_line_style line_style,
                      double x,
                      double width,
                      double y,
                      double thick,
                      bool second_above,
                      paint_color::paint const& p,
                      double alpha) {
    using css::text::text_line_style;
    switch (line_style) {
    case text_line_style::none:
        return;
    case text_line_style::solid:
        paint_color::set_fill(o, g, p, alpha);
        content::rect(o, g, x, y - thick / 2, width, thick);
        content::fill(o);
        return;
    case text_line_style::double_: {
        paint_color::set_fill(o, g, p, alpha);
        double const other = second_above ? y + 2 * thick : y - 2 * thick;
        content::rect(o, g, x, y - thick / 2, width, thick);
        content::rect(o, g, x, other - thick / 2, width, thick);
        content::fill(o);
        return;
    }
    case text_line_style::dotted:
    case text_line_style::dashed: {
        bool const dashed = line_style == text_line_style::dashed;
        content::save(o, g);
        paint_color::set_stroke(o, g, p, alpha);
        content::line_width(o, g, thick);
        content::line_cap(o, g, content::stroke_linecap::butt);
        content::dash(o, g, {.array = borders::adjusted_dash(width, dashed ? 3 * thick : thick,
                                                             dashed ? 2 * thick : thick)});
        content::move(o, g, x, y);
        content::line(o, g, x + width, y);
        content::stroke(o);
        content::restore(o, g);
        return;
    }
    case text_line_style::wavy: {
        // Half waves of four thicknesses, up and down by one thickness each side of the line.
        double const half = 4 * thick;
        double const amp = thick;
        content::save(o, g);
        paint_color::set_stroke(o, g, p, alpha);
        content::line_width(o, g, thick);
        content::move(o, g, x, y);
        double at = x;
        bool up = true;
        while (at < x + width - same_place) {
            double const step = std::min(half, x + width - at);
            double const peak = up ? y + 2 * amp : y - 2 * amp;
            content::curve(o, g, at + step / 3, peak, at + 2 * step / 3, peak, at + step, y);
            at += step;
            up = !up;
        }
        content::stroke(o);
        content::restore(o, g);
        return;
    }
    }
}

} // namespace

std::string glyph_bytes(std::span<fonts::glyph const* const> glyphs) {
    std::string out;
    for (auto const* gl : glyphs) {
        auto const& font = gl->glyph_font_ref;
        // Painting records the glyph with its characters, for the font's ToUnicode map; the number is
        // read now, after subsetting has renumbered the glyphs.
        auto const index = fonts::record_glyph(font, gl->glyph_source, gl->glyph_unicodes);
        out += pdf_fonts::glyph_code(font->used_font_encoding->get(), index->get(), gl->glyph_unicodes);
    }
    return out;
}

namespace {

void paint_line_graphemes(content::out const& o,
                          content::gs& g,
                          text_cursor& cursor,
                          std::span<fonts::grapheme const> graphemes,
                          double x,
                          double baseline,
                          css::style::style const& style,
                          double context_alpha,
                          text_options const& options,
                          bool vertical) {
    if (graphemes.empty()) {
        return;
    }
    auto const p = paint_color::paint_of(style.color);
    if (!p) {
        return;
    }
    double const letter_spacing = spacing_of(style.rare_props->rare_props_letter_spacing);
    paint_color::set_fill(o, g, *p, context_alpha);
    content::character_spacing(o, g, letter_spacing);
    content::word_spacing(o, g, 0);
    // Placed anew for every word painted, into a vector that serves them all.
    thread_local std::vector<placed_glyph> placed;
    place(graphemes, x, baseline, style.font_size, letter_spacing, vertical, placed);
    paint_placed(o, g, cursor, placed, letter_spacing, style, options);
}

} // namespace

void paint_graphemes(content::out const& o,
                     content::gs& g,
                     text_cursor& cursor,
                     std::span<fonts::grapheme const> graphemes,
                     double x,
                     double baseline,
                     css::style::style const& style,
                     double context_alpha,
                     text_options const& options) {
    paint_line_graphemes(o, g, cursor, graphemes, x, baseline, style, context_alpha, options, false);
}

void paint_chars(content::out const& o,
                 content::gs& g,
                 text_cursor& cursor,
                 pack::charsbox const& run,
                 double baseline,
                 css::style::style const& style,
                 double context_alpha,
                 text_options const& options) {
    if (!shows(run) || run.charsbox_content.empty()) {
        return;
    }
    // Right-to-left text is painted in visual order, from a reversed copy; other text from the shared
    // graphemes themselves.
    std::vector<fonts::grapheme> reversed;
    std::span<fonts::grapheme const> visual = run.charsbox_content.view();
    if (run.charsbox_direction == fonts::direction::rtl) {
        reversed.assign(visual.rbegin(), visual.rend());
        // A cluster is marked on its first grapheme in logical order, which is now its last: the mark
        // moves to its first in visual order.
        std::size_t const n = reversed.size();
        for (std::size_t logical = 0; logical < n; ++logical) {
            auto const& cluster = visual[logical].grapheme_cluster;
            if (!cluster || cluster->cluster_graphemes == 0) {
                continue;
            }
            std::size_t const count = std::min<std::size_t>(cluster->cluster_graphemes, n - logical);
            reversed[n - 1 - logical].grapheme_cluster = nullptr;
            reversed[n - logical - count].grapheme_cluster = cluster;
        }
        visual = reversed;
    }
    double const y = baseline + run.charsbox_y;
    bool const vertical = run.charsbox_writing_mode == css::box::writing_mode::vertical;
    if (auto const* l = std::get_if<pack::leader>(&run.charsbox_type)) {
        // The pattern repeats as many whole times as fit, ending where the run ends.
        double const one = l->leader_width;
        if (one <= 0) {
            return;
        }
        int const copies = int(std::floor(run.charsbox_w / one + 1e-4));
        double x = run.charsbox_x + run.charsbox_w - copies * one;
        for (int i = 0; i < copies; ++i, x += one) {
            paint_line_graphemes(o, g, cursor, visual, x, y, style, context_alpha, options, vertical);
        }
        return;
    }
    paint_line_graphemes(o, g, cursor, visual, run.charsbox_x, y, style, context_alpha, options, vertical);
}

void paint_decorations(content::out const& o,
                       content::gs& g,
                       decoration_layer layer,
                       double x,
                       double width,
                       double baseline,
                       css::style::style const& style,
                       font_metrics::font_metrics_scaled const& metrics,
                       double context_alpha) {
    if (width <= 0) {
        return;
    }
    // A font without underline numbers gets a line of a fourteenth of the size, a tenth below the baseline.
    double const thick = metrics.underline_thick > 0 ? metrics.underline_thick : style.font_size / 14.0;
    double const under = metrics.underline_thick > 0 ? metrics.underline_pos : -style.font_size / 10.0;
    double const up = metrics.up > 0 ? metrics.up : style.font_size * 0.8;
    auto draw = [&](css::text::text_line_style line_style, css::color::color const& c, double y, bool above) {
        if (line_style == css::text::text_line_style::none) {
            return;
        }
        if (auto const p = paint_color::paint_of(c)) {
            paint_line_style(o, g, line_style, x, width, y, thick, above, *p, context_alpha);
        }
    };
    switch (layer) {
    case decoration_layer::under_text:
        draw(style.rare_box->text_underline_style,
             css::style::color_or_current(style.rare_box->text_underline_color, style), baseline + under,
             false);
        draw(style.rare_box->text_overline_style,
             css::style::color_or_current(style.rare_box->text_overline_color, style),
             baseline + up - thick / 2, true);
        break;
    case decoration_layer::over_text:
        // Through the middle of lower-case letters: about a third of the ascent.
        draw(style.rare_box->text_line_through_style,
             css::style::color_or_current(style.rare_box->text_line_through_color, style),
             baseline + up * 0.3, false);
        break;
    }
}

bool shows(pack::charsbox const& run) {
    return std::visit(overloaded{
                          [](pack::normal const&) { return true; },
                          [](pack::charlike_space const&) { return true; },
                          [](pack::pre_space const&) { return true; },
                          [](pack::newline const&) { return false; },
                          [](pack::leader const&) { return true; },
                          [](pack::indent const&) { return false; },
                          [](pack::glue const&) { return true; },
                      },
                      run.charsbox_type);
}

void add_font_ids(std::span<fonts::grapheme const> graphemes, std::set<int>& ids) {
    for (auto const& gr : graphemes) {
        if (gr.base_glyph.glyph_font_ref) {
            ids.insert(gr.base_glyph.glyph_font_ref->used_font_id);
        }
        for (auto const& m : gr.grapheme_marks) {
            if (m.mark_glyph.glyph_font_ref) {
                ids.insert(m.mark_glyph.glyph_font_ref->used_font_id);
            }
        }
    }
}

} // namespace vellum::pdf::paint_text
