#include "mathml/layout.hpp"

#include "css/styledom/tree.hpp"
#include "text/font_data.hpp"
#include "text/fonts/query.hpp"
#include "util/cell.hpp"
#include "util/textbuf.hpp"

#include <algorithm>
#include <cmath>

namespace vellum::mathml::layout {

namespace om = opentype::math;

// ---- Element access ------------------------------------------------------------------------------------

std::vector<dom::element_ref> element_children(dom::element_ref const& el) {
    std::vector<dom::element_ref> out;
    std::lock_guard guard(process_lock());
    for (auto const& c : el->dom_element_children.cell_value) {
        if (auto const* e = std::get_if<dom::element_child>(&c)) {
            out.push_back(e->child_element);
        }
    }
    return out;
}

std::optional<std::string> attr(dom::element_ref const& el, std::string_view name) {
    return styledom::tree::plain_attribute(*el, name);
}

std::string local_name(dom::element_ref const& el) {
    return std::string(styledom::tree::name_local_view(el->dom_element_name));
}

void warn(context const& ctx, std::string const& message) {
    log::log_warning(ctx.log, "math: " + message);
}

void warn_once(context const& ctx, std::string const& message) {
    log::log_warning_once(ctx.log, "math: " + message);
}

namespace {

bool is_space(char32_t c) {
    return c == U' ' || c == U'\t' || c == U'\n' || c == U'\r';
}

// Runs of white space made one space, and the ends trimmed, as in the text of token elements.
std::u32string collapse_spaces(std::u32string const& chars) {
    std::u32string out;
    bool space = false;
    for (char32_t c : chars) {
        if (is_space(c)) {
            space = !out.empty();
            continue;
        }
        if (space) {
            out += U' ';
            space = false;
        }
        out += c;
    }
    return out;
}

// The text of a token: its text children, collapsed. Element children other than the glyph and
// alignment marks are reported.
std::u32string token_text(context const& ctx, dom::element_ref const& el, std::string const& name) {
    std::string raw;
    bool illegal = false;
    {
        std::lock_guard guard(process_lock());
        for (auto const& c : el->dom_element_children.cell_value) {
            if (auto const* t = std::get_if<dom::text_child>(&c)) {
                raw += t->child_text->dom_text_value.cell_value;
            } else if (auto const* e = std::get_if<dom::element_child>(&c)) {
                auto const n =
                    std::string(styledom::tree::name_local_view(e->child_element->dom_element_name));
                if (n != "mglyph" && n != "malignmark") {
                    illegal = true;
                }
            }
        }
    }
    if (illegal) {
        warn(ctx, "illegal children in " + name);
    }
    return collapse_spaces(textbuf::from_utf8(raw));
}

// A token with mglyph children: its text runs and glyphs side by side on the baseline.
math token_with_glyphs(context const& ctx,
                       mathstyle const& st,
                       dom::element_ref const& el,
                       std::string const& variant) {
    std::vector<std::variant<std::string, dom::element_ref>> parts;
    {
        std::lock_guard guard(process_lock());
        for (auto const& c : el->dom_element_children.cell_value) {
            if (auto const* t = std::get_if<dom::text_child>(&c)) {
                if (parts.empty() || !std::holds_alternative<std::string>(parts.back())) {
                    parts.emplace_back(std::string{});
                }
                std::get<std::string>(parts.back()) += t->child_text->dom_text_value.cell_value;
            } else if (auto const* e = std::get_if<dom::element_child>(&c)) {
                parts.emplace_back(e->child_element);
            }
        }
    }
    std::vector<placed> members;
    double x = 0;
    for (auto const& part : parts) {
        math m;
        if (auto const* text = std::get_if<std::string>(&part)) {
            auto const chars = collapse_spaces(textbuf::from_utf8(*text));
            if (chars.empty()) {
                continue;
            }
            m = text_box(ctx, st, chars, variant);
        } else {
            auto const& e = std::get<dom::element_ref>(part);
            if (local_name(e) != "mglyph") {
                continue;
            }
            m = layout_mglyph(ctx, st, e);
        }
        double const w = m.mwidth;
        members.push_back(at(x, 0, std::move(m)));
        x += w;
    }
    return stack(std::move(members), x);
}

} // namespace

bool is_space_like_element(dom::element_ref const& el) {
    auto const n = local_name(el);
    if (n == "mtext" || n == "mspace" || n == "maligngroup" || n == "malignmark") {
        return true;
    }
    if (n == "mrow" || n == "mstyle" || n == "mphantom" || n == "mpadded") {
        auto const kids = element_children(el);
        return std::all_of(kids.begin(), kids.end(), is_space_like_element);
    }
    return false;
}

std::optional<dom::element_ref> core_op(dom::element_ref const& el) {
    auto const n = local_name(el);
    if (n == "mo") {
        return el;
    }
    auto const kids = element_children(el);
    if (n == "msub" || n == "msup" || n == "msubsup" || n == "munder" || n == "mover" || n == "munderover" ||
        n == "mmultiscripts" || n == "mfrac" || n == "semantics") {
        return kids.empty() ? std::nullopt : core_op(kids.front());
    }
    if (n == "mrow" || n == "mstyle" || n == "mphantom" || n == "mpadded") {
        std::optional<dom::element_ref> found;
        for (auto const& k : kids) {
            if (is_space_like_element(k)) {
                continue;
            }
            if (found) {
                return std::nullopt;
            }
            found = core_op(k);
            if (!found) {
                return std::nullopt;
            }
        }
        return found;
    }
    return std::nullopt;
}

// ---- Fonts and text ------------------------------------------------------------------------------------

ref<fonts::font_req> font_req_of(context const& ctx, mathstyle const& st) {
    return fonts::get_font_req(ctx.db, st.fontquery);
}

mathfont::math_font const& math_font_of(context const& ctx, mathstyle const& st) {
    return mathfont::math_font_of(ctx.db, font_req_of(ctx, st));
}

double constant(context const& ctx, mathstyle const& st, om::constant c) {
    return mathfont::constant(math_font_of(ctx, st), c, st.fontsize);
}

double axis(context const& ctx, mathstyle const& st) {
    return constant(ctx, st, om::constant::axis_height);
}

namespace {

// The CSS style that a run is painted with: the math element's, with the weight and slant the run's
// glyphs were chosen for, so that the painter imitates only what the face lacks.
ref<css::style::style> run_style(mathstyle const& st, fonts::font_query const& q) {
    if (!st.css_style) {
        return st.css_style;
    }
    auto copy = *st.css_style;
    auto props = copy.font_props ? *copy.font_props : css::fonts::font_props{};
    props.font_props_font_weight = int(q.query_weight);
    props.font_props_font_style =
        q.query_style == fonts::match::font_style::italic    ? css::fonts::font_style::italic
        : q.query_style == fonts::match::font_style::oblique ? css::fonts::font_style::oblique
                                                             : css::fonts::font_style::normal;
    copy.font_props = share(props);
    copy.font_size = float(st.fontsize);
    return share(std::move(copy));
}

svg::svg text_item(mathstyle const& st,
                   fonts::font_query const& q,
                   std::vector<fonts::grapheme> glyphs,
                   double x,
                   double y,
                   double width) {
    svg::text_run run{.run_pos = {x, y},
                      .run_glyphs = fonts::shared_graphemes(std::move(glyphs)),
                      .run_fill = svg::paint_color{st.color},
                      .run_style = run_style(st, q),
                      .run_font_size = st.fontsize,
                      .run_width = width};
    return svg::svg{.svgbody = svg::text{{std::move(run)}}};
}

// The query for a mathvariant whose characters have no Mathematical Alphanumeric form in the font:
// the same family, slanted or bold as the variant says.
fonts::font_query variant_query(fonts::font_query q, std::string const& variant) {
    if (variant.find("bold") != std::string::npos) {
        q.query_weight = truetype::truetype_weight::bold;
    }
    if (variant.find("italic") != std::string::npos) {
        q.query_style = fonts::match::font_style::italic;
    }
    if (variant == "normal") {
        q.query_weight = truetype::truetype_weight::normal;
        q.query_style = fonts::match::font_style::normal;
    }
    if (variant == "monospace") {
        q.query_families.insert(q.query_families.begin(), "monospace");
    }
    if (variant.find("sans-serif") != std::string::npos) {
        q.query_families.insert(q.query_families.begin(), "sans-serif");
    }
    return q;
}

} // namespace

math text_box(context const& ctx,
              mathstyle const& st,
              std::u32string const& text,
              std::string const& variant) {
    if (text.empty()) {
        return empty_math();
    }
    double const size = st.fontsize;
    auto query = st.fontquery;
    auto req = font_req_of(ctx, st);
    std::vector<fonts::grapheme> glyphs;
    auto const mapped = mathfont::map_variant(text, variant);
    bool mapped_ok = mapped != text;
    if (mapped_ok) {
        // Each character to its letter of the mathematical alphabet, painted from that glyph but copied
        // out as the plain letter it stands for.
        for (std::size_t i = 0; i < mapped.size() && mapped_ok; ++i) {
            auto raw = fonts::char_to_glyph(ctx.db, *req, mapped[i]);
            if (font_data::char_to_glyph(*raw.raw_glyph_font_ref->used_font_data, mapped[i]) == 0) {
                mapped_ok = false;
                break;
            }
            raw.raw_glyph_unicodes = std::u32string(1, text[i]);
            glyphs.push_back(fonts::grapheme{.base_glyph = fonts::make_glyph(raw)});
        }
    }
    if (!mapped_ok) {
        glyphs.clear();
        // Only letters (and digits, for some alphabets) have variant forms: other characters stay as
        // they are. Letters whose variant forms the font lacks come from a face of that style instead.
        if (mapped != text) {
            query = variant_query(query, variant);
            req = fonts::get_font_req(ctx.db, query);
        }
        glyphs = fonts::text_to_graphemes(ctx.db, *req, fonts::direction::ltr, text);
    }
    double x = 0;
    double up = 0;
    double down = 0;
    double italic = 0;
    auto const& mf = math_font_of(ctx, st);
    for (auto const& g : glyphs) {
        auto const& bg = g.base_glyph;
        auto const ink = mathfont::glyph_ink(bg.glyph_font_ref, bg.glyph_source, size);
        up = std::max(up, ink.ink_up);
        down = std::max(down, ink.ink_down);
        x += (bg.glyph_hori_advance + g.grapheme_kerning.value_or(0)) * size;
        italic = mathfont::italic_correction(mf, bg.glyph_font_ref, bg.glyph_source, size);
    }
    auto m = simple_math({text_item(st, query, std::move(glyphs), 0, 0, x)}, x, up, down);
    m.mitalic = italic;
    m.mtoken = text.size() == 1;
    return m;
}

math glyph_box(mathstyle const& st,
               fonts::font_ref const& font,
               std::uint32_t glyph,
               std::u32string const& chars) {
    auto g = mathfont::glyph_grapheme(font, glyph, chars);
    double const size = st.fontsize;
    double const width = g.base_glyph.glyph_hori_advance * size;
    auto const ink = mathfont::glyph_ink(font, glyph, size);
    return simple_math({text_item(st, st.fontquery, {std::move(g)}, 0, 0, width)}, width, ink.ink_up,
                       ink.ink_down);
}

// ---- Lengths and colours -------------------------------------------------------------------------------

std::optional<double> length_attr(
    context const& ctx, mathstyle const& st, dom::element_ref const& el, std::string_view name, double base) {
    auto const v = attr(el, name);
    if (!v) {
        return std::nullopt;
    }
    auto const m = units::parse_mathspace(*v);
    if (!m) {
        warn(ctx, std::string(name) + ": not a length: " + *v);
        return std::nullopt;
    }
    double const ex = math_font_of(ctx, st).x_height_em * st.fontsize;
    return units::resolve(*m, st.fontsize, ex, base);
}

math with_background(math m, css::color::color const& c) {
    auto const up = m.mup;
    auto const down = m.mdown;
    auto const w = m.mwidth;
    auto inner = share(std::move(m));
    math out = *inner;
    out.mcontent = groups{
        .groups_members = {
            placed{.placed_math = share(simple_math({filled_rect(0, -up, w, up + down, c)}, w, up, down))},
            placed{.placed_math = inner}}};
    return out;
}

// ---- Tokens --------------------------------------------------------------------------------------------

namespace {

// Applies the token attributes (mathsize, mathcolor, mathbackground and their deprecated forms) to the
// style; gives the background to paint, if any.
std::optional<css::color::color> token_style(context const& ctx, mathstyle& st, dom::element_ref const& el) {
    if (auto v = attr(el, "mathsize").or_else([&] { return attr(el, "fontsize"); })) {
        if (*v == "small") {
            st.fontsize *= 0.7;
        } else if (*v == "big") {
            st.fontsize *= 1.4;
        } else if (*v != "normal") {
            if (auto m = units::parse_mathspace(*v)) {
                st.fontsize = units::resolve(*m, st.fontsize, st.fontsize * 0.5, st.fontsize);
            } else {
                warn(ctx, "mathsize: not a size: " + *v);
            }
        }
    }
    if (auto v = attr(el, "mathcolor").or_else([&] { return attr(el, "color"); })) {
        if (auto c = css::color::parse_color_text(*v)) {
            st.color = *c;
        } else {
            warn(ctx, "mathcolor: not a colour: " + *v);
        }
    }
    if (auto v = attr(el, "fontfamily")) {
        st.fontquery.query_families.insert(st.fontquery.query_families.begin(), *v);
    }
    if (auto v = attr(el, "fontweight")) {
        st.fontquery.query_weight =
            *v == "bold" ? truetype::truetype_weight::bold : truetype::truetype_weight::normal;
    }
    if (auto v = attr(el, "fontstyle")) {
        st.fontquery.query_style =
            *v == "italic" ? fonts::match::font_style::italic : fonts::match::font_style::normal;
    }
    if (auto v = attr(el, "mathbackground").or_else([&] { return attr(el, "background"); })) {
        if (auto c = css::color::parse_color_text(*v)) {
            return *c;
        }
        warn(ctx, "mathbackground: not a colour: " + *v);
    }
    return std::nullopt;
}

} // namespace

math layout_token(context const& ctx,
                  mathstyle const& st0,
                  dom::element_ref const& el,
                  std::string const& name) {
    auto st = st0;
    auto const bg = token_style(ctx, st, el);
    auto text = token_text(ctx, el, name);
    if (name == "ms") {
        auto const l = attr(el, "lquote").value_or("\"");
        auto const r = attr(el, "rquote").value_or("\"");
        text = textbuf::from_utf8(l) + text + textbuf::from_utf8(r);
    }
    std::string variant = attr(el, "mathvariant").value_or(st.mathvariant.value_or(""));
    if (name == "mi" && variant.empty() && text.size() == 1) {
        // A single letter is a variable, set in italic; longer names (sin, log) are upright.
        variant = "italic";
    }
    auto const kids = element_children(el);
    bool const glyphs =
        std::any_of(kids.begin(), kids.end(), [](auto const& k) { return local_name(k) == "mglyph"; });
    auto m = glyphs ? token_with_glyphs(ctx, st, el, variant) : text_box(ctx, st, text, variant);
    if (name != "mi") {
        m.mtoken = false;
    }
    return bg ? with_background(std::move(m), *bg) : m;
}

math layout_mspace(context const& ctx, mathstyle const& st, dom::element_ref const& el) {
    double const w = length_attr(ctx, st, el, "width", st.fontsize).value_or(0);
    double const h = length_attr(ctx, st, el, "height", st.fontsize).value_or(0);
    double const d = length_attr(ctx, st, el, "depth", st.fontsize).value_or(0);
    return simple_math({}, w, h, d);
}

// ---- Operators -----------------------------------------------------------------------------------------

double script_space(mathstyle const& st, dom::element_ref const& mo, std::string const& name, double space) {
    if (st.scriptlevel <= 0 || attr(mo, name) || st.inherited.contains(name)) {
        return space;
    }
    // Scripts are set tight: a relation's or a binary operator's space goes, a thin one stays.
    return space > st.fontsize * 3.0 / 18 + 1e-9 ? 0 : space;
}

op_table::mostyle
op_style_of(context const& ctx, mathstyle const& st, dom::element_ref const& mo, op_form form) {
    auto const text = textbuf::to_utf8(token_text(ctx, mo, "mo"));
    auto s = op_table::get_op_style(ctx.ops, text == "-" ? "\u2212" : text, form);
    // mstyle's attributes first, then the element's own.
    auto const get = [&](std::string const& name) -> std::optional<std::string> {
        if (auto v = attr(mo, name)) {
            return v;
        }
        if (auto it = st.inherited.find(name); it != st.inherited.end()) {
            return it->second;
        }
        return std::nullopt;
    };
    for (auto [name, field] : {std::pair{"stretchy", &s.stretchy}, std::pair{"symmetric", &s.symmetric},
                               std::pair{"largeop", &s.largeop}, std::pair{"movablelimits", &s.movablelimits},
                               std::pair{"accent", &s.accent}, std::pair{"fence", &s.fence},
                               std::pair{"separator", &s.separator}}) {
        if (auto v = get(name)) {
            *field = *v == "true";
        }
    }
    for (auto [name, field] : {std::pair{"lspace", &s.lspace}, std::pair{"rspace", &s.rspace}}) {
        if (auto v = get(name)) {
            if (auto m = units::parse_mathspace(*v)) {
                *field = *m;
            } else {
                warn(ctx, std::string(name) + ": not a space: " + *v);
            }
        }
    }
    if (auto v = get("maxsize")) {
        if (auto m = op_table::parse_maxsize(*v)) {
            s.maxsize = *m;
        }
    }
    if (auto v = get("minsize")) {
        if (auto m = op_table::parse_maxsize(*v)) {
            if (auto const* mul = std::get_if<op_table::multiplier>(&*m)) {
                s.minsize = *mul;
            } else if (auto const* ms = std::get_if<units::mathspace>(&*m)) {
                s.minsize = *ms;
            }
        }
    }
    return s;
}

namespace {

// The glyph a single character maps to, and the math font if it has constructions for it.
struct op_glyph {
    fonts::font_ref font;
    std::uint32_t glyph = 0;
};

std::optional<op_glyph> single_glyph(context const& ctx, mathstyle const& st, std::u32string const& text) {
    if (text.size() != 1) {
        return std::nullopt;
    }
    auto const req = font_req_of(ctx, st);
    auto const raw = fonts::char_to_glyph(ctx.db, *req, text[0]);
    if (font_data::char_to_glyph(*raw.raw_glyph_font_ref->used_font_data, text[0]) == 0) {
        return std::nullopt;
    }
    return op_glyph{raw.raw_glyph_font_ref, raw.raw_glyph_index};
}

// Moves a box up by `dy`.
math raised(math m, double dy) {
    if (dy == 0) {
        return m;
    }
    auto inner = share(std::move(m));
    math out = *inner;
    out.mup = inner->mup + dy;
    out.mdown = inner->mdown - dy;
    out.mcontent = groups{.groups_members = {placed{.placed_x = 0, .placed_y = -dy, .placed_math = inner}}};
    return out;
}

// An assembly of parts, bottom to top or left to right, each part placed by its ink.
math assembly_box(mathstyle const& st,
                  mathfont::math_font const& mf,
                  om::assembly_plan const& plan,
                  std::u32string const& chars,
                  bool vertical) {
    double const scale = st.fontsize / mf.units_per_em;
    double const total = plan.plan_size * scale;
    std::vector<placed> members;
    double width = 0;
    double up = 0;
    double down = 0;
    bool first = true;
    for (auto const& [glyph, offset] : plan.plan_glyphs) {
        // Only the first part carries the characters into the text of the PDF.
        auto part = glyph_box(st, mf.font, glyph, first ? chars : std::u32string{});
        first = false;
        if (vertical) {
            // The part's ink bottom at its offset above the assembly's bottom (the baseline for now).
            double const y = -(offset * scale) - part.mdown;
            width = std::max(width, part.mwidth);
            members.push_back(placed{.placed_x = 0, .placed_y = y, .placed_math = share(std::move(part))});
        } else {
            double const x = offset * scale;
            up = std::max(up, part.mup);
            down = std::max(down, part.mdown);
            members.push_back(placed{.placed_x = x, .placed_y = 0, .placed_math = share(std::move(part))});
        }
    }
    math m{.mcontent = groups{.groups_members = std::move(members)}};
    if (vertical) {
        m.mwidth = width;
        m.mup = total;
        m.mdown = 0;
    } else {
        m.mwidth = total;
        m.mup = up;
        m.mdown = down;
    }
    return m;
}

// A glyph scaled to a total height (or width), for a font with neither constructions nor an outline.
math scaled_box(math m, double factor, bool vertical) {
    auto inner = share(std::move(m));
    math out = *inner;
    if (vertical) {
        out.mup = inner->mup * factor;
        out.mdown = inner->mdown * factor;
        out.mcontent = groups{.groups_members = {placed{.placed_math = inner}},
                              .groups_matrix = svg::scaling(1, factor)};
    } else {
        out.mwidth = inner->mwidth * factor;
        out.mcontent = groups{.groups_members = {placed{.placed_math = inner}},
                              .groups_matrix = svg::scaling(factor, 1)};
    }
    return out;
}

// Moves a box so that the middle of its ink lies at `centre` above the baseline.
math centred(math m, double centre) {
    double const mid = (m.mup - m.mdown) / 2;
    return raised(std::move(m), centre - mid);
}

} // namespace

std::optional<math> stretch_vertical(context const& ctx,
                                     mathstyle const& st,
                                     std::u32string const& text,
                                     double target,
                                     std::optional<double> centre) {
    auto const g = single_glyph(ctx, st, text);
    auto const& mf = math_font_of(ctx, st);
    auto normal = text_box(ctx, st, text, "");
    double const mid = centre.value_or((normal.mup - normal.mdown) / 2);
    if (normal.mup + normal.mdown >= target) {
        return std::nullopt;
    }
    if (g && mf.table && g->font.get() == mf.font.get()) {
        auto const it = mf.table->vertical_constructions.find(std::uint16_t(g->glyph));
        if (it != mf.table->vertical_constructions.end()) {
            double const scale = st.fontsize / mf.units_per_em;
            auto const& c = it->second;
            for (auto const& v : c.construction_variants) {
                if (v.variant_advance * scale >= target) {
                    return centred(glyph_box(st, mf.font, v.variant_glyph, text), mid);
                }
            }
            if (auto plan = om::plan_assembly(c.construction_parts, target / scale,
                                              mf.table->min_connector_overlap)) {
                return centred(assembly_box(st, mf, *plan, text, true), mid);
            }
            if (!c.construction_variants.empty()) {
                auto const& v = c.construction_variants.back();
                return centred(glyph_box(st, mf.font, v.variant_glyph, text), mid);
            }
        }
    }
    auto const outline = ctx.glyphs.find(textbuf::to_utf8(text));
    if (outline != ctx.glyphs.end()) {
        auto const& og = outline->second;
        double const normal_h = (og.glyph_up + og.glyph_down) * st.fontsize;
        double const extra = std::max(0.0, target - normal_h);
        auto path = special_glyphs::stretched_path(og, st.fontsize, 0, extra);
        // The outline's points with dh move up, the others stay: the new box spans them all.
        double up = og.glyph_up * st.fontsize;
        double down = og.glyph_down * st.fontsize;
        if (auto b = svg::path_bbox(path)) {
            up = -b->y0;
            down = b->y1;
        }
        auto m =
            simple_math({filled_path(std::move(path), st.color)}, og.glyph_width * st.fontsize, up, down);
        // The characters still go into the text of the PDF, as an invisible run under the outline.
        return centred(std::move(m), mid);
    }
    if (normal.mup + normal.mdown <= 0) {
        return std::nullopt;
    }
    warn_once(ctx, "stretchy operators without glyph variants in the font are scaled");
    double const factor = target / (normal.mup + normal.mdown);
    return centred(scaled_box(std::move(normal), factor, true), mid);
}

std::optional<math>
stretch_horizontal(context const& ctx, mathstyle const& st, std::u32string const& text, double target) {
    auto const g = single_glyph(ctx, st, text);
    auto const& mf = math_font_of(ctx, st);
    auto normal = text_box(ctx, st, text, "");
    if (normal.mwidth >= target) {
        return std::nullopt;
    }
    if (g && mf.table && g->font.get() == mf.font.get()) {
        auto const it = mf.table->horizontal_constructions.find(std::uint16_t(g->glyph));
        if (it != mf.table->horizontal_constructions.end()) {
            double const scale = st.fontsize / mf.units_per_em;
            auto const& c = it->second;
            for (auto const& v : c.construction_variants) {
                if (v.variant_advance * scale >= target) {
                    return glyph_box(st, mf.font, v.variant_glyph, text);
                }
            }
            if (auto plan = om::plan_assembly(c.construction_parts, target / scale,
                                              mf.table->min_connector_overlap)) {
                return assembly_box(st, mf, *plan, text, false);
            }
        }
    }
    if (normal.mwidth <= 0) {
        return std::nullopt;
    }
    warn_once(ctx, "stretchy operators without glyph variants in the font are scaled");
    return scaled_box(std::move(normal), target / normal.mwidth, false);
}

math layout_mo(context const& ctx, mathstyle const& st0, env const& e, dom::element_ref const& el) {
    auto st = st0;
    auto const bg = token_style(ctx, st, el);
    auto text = token_text(ctx, el, "mo");
    if (text == U"-") {
        text = U"\u2212";
    }
    op_form form = e ? e->form : op_form::infix;
    if (auto f = attr(el, "form").or_else([&]() -> std::optional<std::string> {
            auto it = st.inherited.find("form");
            return it == st.inherited.end() ? std::nullopt : std::optional(it->second);
        })) {
        if (auto parsed = op_table::form_of(*f)) {
            form = *parsed;
        }
    }
    auto const os = op_style_of(ctx, st, el, form);
    double const em = st.fontsize;
    double const ex = math_font_of(ctx, st).x_height_em * em;
    double lspace = script_space(st, el, "lspace", units::resolve(os.lspace, em, ex, em));
    double rspace = script_space(st, el, "rspace", units::resolve(os.rspace, em, ex, em));
    if (e && e->parent_em) {
        // The spacing of an embellished operator belongs to the outermost element.
        lspace = rspace = 0;
    }
    auto const variant = attr(el, "mathvariant").value_or(st.mathvariant.value_or(""));
    std::optional<math> glyph;
    bool stretched = false;
    double const ax = axis(ctx, st);
    if (os.largeop && st.displaystyle) {
        // A large operator in display style takes the first variant at least as tall as the font asks
        // for displayed operators.
        double const min_h = constant(ctx, st, om::constant::display_operator_min_height);
        glyph = stretch_vertical(ctx, st, text, min_h, ax);
        if (!glyph && !math_font_of(ctx, st).table) {
            auto normal = text_box(ctx, st, text, "");
            glyph = centred(scaled_box(std::move(normal), 1.4, true), ax);
        }
        stretched = glyph.has_value();
    }
    if (!glyph && os.stretchy && e && e->env_width) {
        glyph = stretch_horizontal(ctx, st, text, *e->env_width);
        stretched = glyph.has_value();
    } else if (!glyph && os.stretchy && e && (e->height > 0 || e->depth > 0)) {
        double target = e->height + e->depth;
        std::optional<double> centre;
        if (os.symmetric) {
            target = 2 * std::max(e->height - ax, e->depth + ax);
            centre = ax;
        } else {
            centre = (e->height - e->depth) / 2;
        }
        auto normal = text_box(ctx, st, text, "");
        double const normal_h = normal.mup + normal.mdown;
        if (auto const* mul = std::get_if<op_table::multiplier>(&os.minsize)) {
            target = std::max(target, mul->multiplier_value * normal_h);
        } else {
            target =
                std::max(target, units::resolve(std::get<units::mathspace>(os.minsize), em, ex, normal_h));
        }
        std::visit(overloaded{
                       [&](op_table::multiplier const& m) {
                           target = std::min(target, m.multiplier_value * normal_h);
                       },
                       [&](units::mathspace const& m) {
                           target = std::min(target, units::resolve(m, em, ex, normal_h));
                       },
                       [&](op_table::infinity const&) {},
                   },
                   os.maxsize);
        glyph = stretch_vertical(ctx, st, text, target, centre);
        stretched = glyph.has_value();
    }
    if (!glyph) {
        glyph = text_box(ctx, st, text, variant);
    }
    auto inner = share(std::move(*glyph));
    math m{.mcontent = groups{.groups_members = {placed{.placed_x = lspace, .placed_math = inner}}},
           .mwidth = lspace + inner->mwidth + rspace,
           .mup = inner->mup,
           .mdown = inner->mdown,
           .mitalic = inner->mitalic,
           .mop = op_info{.op_largeop = os.largeop,
                          .op_movablelimits = os.movablelimits,
                          .op_accent = os.accent,
                          .op_stretched = stretched}};
    return bg ? with_background(std::move(m), *bg) : m;
}

// ---- Rows ----------------------------------------------------------------------------------------------

math math_of_row(context const& ctx,
                 mathstyle const& st,
                 env const& e,
                 std::vector<dom::element_ref> const& items) {
    if (items.size() == 1) {
        // A row of one is its member, which takes the row's surroundings.
        return math_of_element(ctx, st, e, items.front());
    }
    std::vector<std::optional<math>> laid(items.size());
    std::vector<bool> is_em(items.size());
    double height = 0;
    double depth = 0;
    bool any = false;
    for (std::size_t i = 0; i < items.size(); ++i) {
        is_em[i] = core_op(items[i]).has_value();
        if (!is_em[i]) {
            laid[i] = math_of_element(ctx, st, std::nullopt, items[i]);
            height = std::max(height, laid[i]->mup);
            depth = std::max(depth, laid[i]->mdown);
            any = true;
        }
    }
    if (!any && e) {
        height = e->height;
        depth = e->depth;
    }
    for (std::size_t i = 0; i < items.size(); ++i) {
        if (is_em[i]) {
            op_form const form = i == 0                  ? op_form::prefix
                                 : i + 1 == items.size() ? op_form::postfix
                                                         : op_form::infix;
            laid[i] = math_of_element(ctx, st,
                                      env_info{.parent_em = false,
                                               .form = form,
                                               .height = height,
                                               .depth = depth,
                                               .env_width = !any && e ? e->env_width : std::nullopt},
                                      items[i]);
            // An operator with scripts or limits keeps the spacing of its operator around the whole.
            auto const n = local_name(items[i]);
            if (n == "msub" || n == "msup" || n == "msubsup" || n == "munder" || n == "mover" ||
                n == "munderover" || n == "mmultiscripts" || n == "mfrac") {
                auto const core = core_op(items[i]);
                auto const os = op_style_of(ctx, st, *core, form);
                double const em = st.fontsize;
                double const ex = math_font_of(ctx, st).x_height_em * em;
                double const ls = script_space(st, *core, "lspace", units::resolve(os.lspace, em, ex, em));
                double const rs = script_space(st, *core, "rspace", units::resolve(os.rspace, em, ex, em));
                if (ls != 0 || rs != 0) {
                    auto inner = share(std::move(*laid[i]));
                    math spaced = *inner;
                    spaced.mcontent =
                        groups{.groups_members = {placed{.placed_x = ls, .placed_math = inner}}};
                    spaced.mwidth = ls + inner->mwidth + rs;
                    laid[i] = std::move(spaced);
                }
            }
        }
    }
    math out{.mcontent = groups{}};
    auto& members = std::get<groups>(out.mcontent).groups_members;
    double x = 0;
    for (std::size_t i = 0; i < items.size(); ++i) {
        auto& m = *laid[i];
        out.mup = std::max(out.mup, m.mup);
        out.mdown = std::max(out.mdown, m.mdown);
        out.mitalic = m.mitalic;
        double const w = m.mwidth;
        members.push_back(placed{.placed_x = x, .placed_y = 0, .placed_math = share(std::move(m))});
        x += w;
    }
    out.mwidth = x;
    // An embellished row (one operator among spaces) is an operator to its parent.
    if (auto core = std::find(is_em.begin(), is_em.end(), true);
        core != is_em.end() && std::count(is_em.begin(), is_em.end(), true) == 1) {
        bool all_space = true;
        for (std::size_t i = 0; i < items.size(); ++i) {
            if (!is_em[i] && !is_space_like_element(items[i])) {
                all_space = false;
            }
        }
        if (all_space) {
            out.mop = members[std::size_t(core - is_em.begin())].placed_math->mop;
        }
    }
    return out;
}

// ---- The dispatcher ------------------------------------------------------------------------------------

namespace {

// mstyle's attributes: the state it changes for the elements inside.
mathstyle styled(context const& ctx, mathstyle st, dom::element_ref const& el) {
    if (auto v = attr(el, "displaystyle")) {
        st.displaystyle = *v == "true";
    }
    if (auto v = attr(el, "scriptsizemultiplier")) {
        if (auto m = units::parse_mathspace(*v); m && std::holds_alternative<units::length>(*m)) {
            st.scriptsizemultiplier = std::get<units::length>(*m).length_value;
        }
    }
    if (auto v = length_attr(ctx, st, el, "scriptminsize", st.fontsize)) {
        st.scriptminsize = *v;
    }
    if (auto v = attr(el, "scriptlevel")) {
        int n = 0;
        try {
            n = std::stoi(*v);
        } catch (...) {
            warn(ctx, "scriptlevel: not a number: " + *v);
        }
        bool const relative = !v->empty() && ((*v)[0] == '+' || (*v)[0] == '-');
        st = mathml::mathstyle::with_scriptlevel(std::move(st), relative ? n : n - st.scriptlevel);
    }
    if (auto v = attr(el, "mathvariant")) {
        st.mathvariant = *v;
    }
    for (auto const* name :
         {"form", "lspace", "rspace", "stretchy", "symmetric", "maxsize", "minsize", "largeop",
          "movablelimits", "accent", "linethickness", "numalign", "denomalign", "bevelled", "open", "close",
          "separators", "subscriptshift", "superscriptshift"}) {
        if (auto v = attr(el, name)) {
            st.inherited[name] = *v;
        }
    }
    (void)token_style(ctx, st, el);
    return st;
}

// The background of an mstyle or mrow, if it asks for one.
std::optional<css::color::color> background_of(dom::element_ref const& el) {
    if (auto v = attr(el, "mathbackground").or_else([&] { return attr(el, "background"); })) {
        return css::color::parse_color_text(*v);
    }
    return std::nullopt;
}

math mfenced(context const& ctx, mathstyle const& st, env const& e, dom::element_ref const& el) {
    auto const get = [&](char const* name, char const* fallback) {
        if (auto v = attr(el, name)) {
            return *v;
        }
        auto it = st.inherited.find(name);
        return it == st.inherited.end() ? std::string(fallback) : it->second;
    };
    auto const open = textbuf::from_utf8(get("open", "("));
    auto const close = textbuf::from_utf8(get("close", ")"));
    std::u32string separators;
    for (char32_t c : textbuf::from_utf8(get("separators", ","))) {
        if (!is_space(c)) {
            separators += c;
        }
    }
    auto const kids = element_children(el);
    // The inner row: the children with separators between them, the last separator repeated.
    auto inner_st = st;
    std::vector<std::optional<math>> inner;
    double height = 0;
    double depth = 0;
    std::vector<std::pair<bool, std::optional<math>>> parts; // (is separator, box)
    for (std::size_t i = 0; i < kids.size(); ++i) {
        auto m = math_of_element(ctx, st, std::nullopt, kids[i]);
        height = std::max(height, m.mup);
        depth = std::max(depth, m.mdown);
        parts.emplace_back(false, std::move(m));
        if (i + 1 < kids.size() && !separators.empty()) {
            char32_t const s = separators[std::min(i, separators.size() - 1)];
            auto sep = text_box(ctx, st, std::u32string(1, s), "");
            double const em = st.fontsize;
            auto const os =
                op_table::get_op_style(ctx.ops, textbuf::to_utf8(std::u32string(1, s)), op_form::infix);
            double const ls = units::resolve(os.lspace, em, em * 0.5, em);
            double const rs = units::resolve(os.rspace, em, em * 0.5, em);
            auto boxed = share(std::move(sep));
            math spaced{.mcontent = groups{.groups_members = {placed{.placed_x = ls, .placed_math = boxed}}},
                        .mwidth = ls + boxed->mwidth + rs,
                        .mup = boxed->mup,
                        .mdown = boxed->mdown};
            parts.emplace_back(true, std::move(spaced));
        }
    }
    if (e && kids.empty()) {
        height = e->height;
        depth = e->depth;
    }
    double const ax = axis(ctx, st);
    auto const fence = [&](std::u32string const& t) -> math {
        if (t.empty()) {
            return empty_math();
        }
        double const target = 2 * std::max(height - ax, depth + ax);
        if (auto s = stretch_vertical(ctx, st, t, target, ax)) {
            return *s;
        }
        return centred(text_box(ctx, st, t, ""), ax);
    };
    math out{.mcontent = groups{}};
    auto& members = std::get<groups>(out.mcontent).groups_members;
    double x = 0;
    auto add = [&](math m) {
        out.mup = std::max(out.mup, m.mup);
        out.mdown = std::max(out.mdown, m.mdown);
        double const w = m.mwidth;
        members.push_back(placed{.placed_x = x, .placed_math = share(std::move(m))});
        x += w;
    };
    add(fence(open));
    for (auto& [sep, m] : parts) {
        add(std::move(*m));
    }
    add(fence(close));
    out.mwidth = x;
    return out;
}

} // namespace

math math_of_element(context const& ctx, mathstyle const& st, env const& e, dom::element_ref const& el) {
    auto const name = local_name(el);
    auto const kids = [&] { return element_children(el); };
    if (name == "mi" || name == "mn" || name == "mtext" || name == "ms") {
        return layout_token(ctx, st, el, name);
    }
    if (name == "mo") {
        return layout_mo(ctx, st, e, el);
    }
    if (name == "mspace") {
        return layout_mspace(ctx, st, el);
    }
    if (name == "mrow") {
        auto m = math_of_row(ctx, st, e, kids());
        auto const bg = background_of(el);
        return bg ? with_background(std::move(m), *bg) : m;
    }
    if (name == "mstyle") {
        auto const inner = styled(ctx, st, el);
        auto m = math_of_row(ctx, inner, e, kids());
        auto const bg = background_of(el);
        return bg ? with_background(std::move(m), *bg) : m;
    }
    if (name == "mphantom") {
        // Takes the room of its content and draws nothing.
        auto m = math_of_row(ctx, st, e, kids());
        m.mcontent = simple{};
        return m;
    }
    if (name == "merror") {
        auto inner = st;
        inner.color = css::color::color{css::color::rgb{.r = 0.75f, .g = 0, .b = 0}};
        auto m = math_of_row(ctx, inner, e, kids());
        return with_background(std::move(m),
                               css::color::color{css::color::rgb{.r = 1, .g = 0.92f, .b = 0.92f}});
    }
    if (name == "mfenced") {
        return mfenced(ctx, st, e, el);
    }
    if (name == "mfrac") {
        return layout_mfrac(ctx, st, e, el);
    }
    if (name == "msqrt") {
        return layout_root(ctx, st, el, false);
    }
    if (name == "mroot") {
        return layout_root(ctx, st, el, true);
    }
    if (name == "msub" || name == "msup" || name == "msubsup") {
        return layout_scripts(ctx, st, e, el, name);
    }
    if (name == "munder" || name == "mover" || name == "munderover") {
        return layout_underover(ctx, st, e, el, name);
    }
    if (name == "mmultiscripts") {
        return layout_multiscripts(ctx, st, e, el);
    }
    if (name == "mpadded") {
        return layout_mpadded(ctx, st, e, el);
    }
    if (name == "mtable") {
        return layout_mtable(ctx, st, el);
    }
    if (name == "menclose") {
        return layout_menclose(ctx, st, e, el);
    }
    if (name == "semantics") {
        // The presentation is the first child; annotations are for other readers.
        auto const k = kids();
        return k.empty() ? empty_math() : math_of_element(ctx, st, e, k.front());
    }
    if (name == "annotation" || name == "annotation-xml" || name == "none" || name == "mprescripts" ||
        name == "maligngroup" || name == "malignmark") {
        return empty_math();
    }
    if (name == "mglyph") {
        return layout_mglyph(ctx, st, el);
    }
    if (name == "mlabeledtr" || name == "mtr" || name == "mtd") {
        warn(ctx, name + " outside mtable");
        return math_of_row(ctx, st, e, kids());
    }
    static constexpr std::string_view content_names[] = {
        "apply",
        "ci",
        "cn",
        "csymbol",
        "bind",
        "bvar",
        "lambda",
        "set",
        "list",
        "vector",
        "matrix",
        "matrixrow",
        "interval",
        "piecewise",
        "piece",
        "otherwise",
        "declare",
        "condition",
        "domainofapplication",
        "lowlimit",
        "uplimit",
        "degree",
        "logbase",
        "momentabout",
        "reln",
        "fn",
        "share",
        "cerror",
        "cbytes",
        "cs",
        "plus",
        "minus",
        "times",
        "divide",
        "power",
        "root",
        "eq",
        "neq",
        "lt",
        "gt",
        "leq",
        "geq",
        "and",
        "or",
        "not",
        "implies",
        "sin",
        "cos",
        "tan",
        "log",
        "ln",
        "exp",
        "int",
        "sum",
        "product",
        "diff",
        "partialdiff",
        "limit",
        "abs",
        "floor",
        "ceiling",
        "max",
        "min",
        "factorial",
        "quotient",
        "rem",
        "gcd",
        "lcm",
        "union",
        "intersect",
        "in",
        "notin",
        "subset",
        "prsubset",
        "setdiff",
        "card",
        "emptyset",
        "pi",
        "exponentiale",
        "imaginaryi",
        "infinity",
        "true",
        "false",
        "forall",
        "exists",
        "approx",
        "equivalent",
        "compose",
        "inverse",
    };
    if (std::find(std::begin(content_names), std::end(content_names), name) != std::end(content_names)) {
        // Content markup says what a formula means, not how it looks; its leaves still show as text.
        warn_once(ctx, "content MathML is not laid out; only the text of its leaves is shown");
        if (name == "ci" || name == "cn" || name == "cs" || name == "csymbol") {
            return layout_token(ctx, st, el, name == "ci" ? "mi" : name == "cn" ? "mn" : "mtext");
        }
        return math_of_row(ctx, st, e, kids());
    }
    warn_once(ctx, "unknown element " + name + " is laid out as a row");
    return math_of_row(ctx, st, e, kids());
}

} // namespace vellum::mathml::layout
