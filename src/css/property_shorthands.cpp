// Shorthand properties: each expands into all its members at once, the members it doesn't mention set
// to their initial values, so that a shorthand overrides every earlier declaration of its members.
#include "css/property.hpp"
#include "css/property_parse.hpp"

#include <array>

namespace vellum::css::property {

namespace {

using namespace parse;
using L = longhand;
using terms_t = std::span<value::value const>;

template <class T>
using parser_fn = std::optional<T> (*)(value::value const&);

// One to four values for the sides, in the order top, right, bottom, left: a missing right copies the
// top, a missing bottom the top, a missing left the right.
template <class T>
std::optional<std::array<T, 4>> four_sides(terms_t terms, parser_fn<T> parse_one) {
    if (terms.empty() || terms.size() > 4) {
        return std::nullopt;
    }
    std::vector<T> given;
    for (auto const& t : terms) {
        auto x = parse_one(t);
        if (!x) {
            return std::nullopt;
        }
        given.push_back(std::move(*x));
    }
    std::size_t const n = given.size();
    T const& top = given[0];
    T const& right = given[n > 1 ? 1 : 0];
    T const& bottom = given[n > 2 ? 2 : 0];
    T const& left = given[n > 3 ? 3 : (n > 1 ? 1 : 0)];
    return std::array<T, 4>{top, right, bottom, left};
}

property init(L l) {
    return keyword_property(l, initial{});
}

// A member given a value, or its initial value when the shorthand left it out.
template <L M, class T>
property given_or_initial(std::optional<T> const& v) {
    if (!v) {
        return init(M);
    }
    return set<M>(longhand_value_t<M>(*v));
}

std::optional<property> margin(terms_t terms) {
    auto const s = four_sides(terms, &parse_margin);
    if (!s) {
        return std::nullopt;
    }
    auto const& [top, right, bottom, left] = *s;
    return compound{{set<L::margin_bottom>(bottom), init(L::margin_inside), set<L::margin_left>(left),
                     init(L::margin_outside), set<L::margin_right>(right), set<L::margin_top>(top)}};
}

std::optional<property> padding(terms_t terms) {
    auto const s = four_sides(terms, &parse_padding);
    if (!s) {
        return std::nullopt;
    }
    auto const& [top, right, bottom, left] = *s;
    return compound{{set<L::padding_bottom>(bottom), set<L::padding_left>(left), set<L::padding_right>(right),
                     set<L::padding_top>(top)}};
}

template <L Bottom, L Left, L Right, L Top, class T>
std::optional<property> border_sides(terms_t terms, parser_fn<T> parse_one) {
    auto const s = four_sides(terms, parse_one);
    if (!s) {
        return std::nullopt;
    }
    auto const& [top, right, bottom, left] = *s;
    return compound{{set<Bottom>(bottom), set<Left>(left), set<Right>(right), set<Top>(top)}};
}

// "width || style || color", each at most once, in any order.
struct line_parts {
    std::optional<box::spec_border_width> line_width;
    std::optional<box::line_style> line_style;
    std::optional<color::spec_color> line_color;
};

std::optional<line_parts> line_terms(terms_t terms) {
    if (terms.empty() || terms.size() > 3) {
        return std::nullopt;
    }
    line_parts out;
    for (auto const& t : terms) {
        if (auto const s = parse_line_style(t); s && !out.line_style) {
            out.line_style = *s;
        } else if (auto const w = parse_border_width(t); w && !out.line_width) {
            out.line_width = *w;
        } else if (auto c = parse_color(t); c && !out.line_color) {
            out.line_color = std::move(*c);
        } else {
            return std::nullopt;
        }
    }
    return out;
}

template <L Color, L Style, L Width>
std::vector<property> line_members(line_parts const& p) {
    return {given_or_initial<Color>(p.line_color), given_or_initial<Style>(p.line_style),
            given_or_initial<Width>(p.line_width)};
}

template <L Color, L Style, L Width>
std::optional<property> border_side(terms_t terms) {
    auto const p = line_terms(terms);
    if (!p) {
        return std::nullopt;
    }
    return compound{line_members<Color, Style, Width>(*p)};
}

std::optional<property> border(terms_t terms) {
    auto const p = line_terms(terms);
    if (!p) {
        return std::nullopt;
    }
    std::vector<property> out;
    for (auto&& side :
         {line_members<L::border_bottom_color, L::border_bottom_style, L::border_bottom_width>(*p),
          line_members<L::border_left_color, L::border_left_style, L::border_left_width>(*p),
          line_members<L::border_right_color, L::border_right_style, L::border_right_width>(*p),
          line_members<L::border_top_color, L::border_top_style, L::border_top_width>(*p)}) {
        out.insert(out.end(), side.begin(), side.end());
    }
    return compound{std::move(out)};
}

std::optional<property> border_radius(terms_t terms) {
    using lp = box::length_or_percent<units::length>;
    std::vector<value::value> horizontal;
    std::vector<value::value> vertical;
    bool slash = false;
    for (auto const& t : terms) {
        if (std::holds_alternative<value::slash>(t)) {
            if (slash) {
                return std::nullopt;
            }
            slash = true;
        } else {
            (slash ? vertical : horizontal).push_back(t);
        }
    }
    if (slash && vertical.empty()) {
        return std::nullopt;
    }
    auto corner = [](value::value const& v) -> std::optional<lp> {
        auto r = parse_radius(v);
        if (!r) {
            return std::nullopt;
        }
        return r->radius_h;
    };
    // four_sides orders top-left, top-right, bottom-right, bottom-left here, as border-radius lists them.
    auto const h = four_sides<lp>(horizontal, +corner);
    auto const v = slash ? four_sides<lp>(vertical, +corner) : h;
    if (!h || !v) {
        return std::nullopt;
    }
    auto r = [&](std::size_t i) { return box::spec_radius{(*h)[i], (*v)[i]}; };
    return compound{{set<L::border_bottom_left_radius>(r(3)), set<L::border_bottom_right_radius>(r(2)),
                     set<L::border_top_left_radius>(r(0)), set<L::border_top_right_radius>(r(1))}};
}

std::optional<property> columns(terms_t terms) {
    if (terms.empty() || terms.size() > 2) {
        return std::nullopt;
    }
    std::optional<box::column_count> count;
    std::optional<box::spec_column_width> width;
    int autos = 0;
    for (auto const& t : terms) {
        if (is_keyword(t, "auto")) {
            ++autos;
        } else if (auto const n = parse_column_count(t); n && !count) {
            count = *n;
        } else if (auto const w = parse_column_width(t); w && !width) {
            width = *w;
        } else {
            return std::nullopt;
        }
    }
    // "auto" stands for whichever of the two is not otherwise given.
    if (autos > 0 && !count) {
        count = box::auto_value{};
        --autos;
    }
    if (autos > 0 && !width) {
        width = box::auto_value{};
    }
    return compound{{given_or_initial<L::column_count>(count), given_or_initial<L::column_width>(width)}};
}

std::optional<property> font(terms_t terms) {
    std::optional<fonts::font_style> style;
    std::optional<fonts::font_variant_caps> variant;
    std::optional<fonts::spec_font_weight> weight;
    std::optional<fonts::font_stretch> stretch;
    std::size_t i = 0;
    // Up to four of style, variant, weight and stretch before the size; "normal" fills any of them.
    for (; i < terms.size() && i < 4; ++i) {
        auto const& t = terms[i];
        if (is_keyword(t, "normal")) {
            continue;
        }
        if (auto const s = parse_font_style(t); s && !style) {
            style = *s;
        } else if (auto const v = parse_font_variant_caps(t);
                   v && *v == fonts::font_variant_caps::small_caps && !variant) {
            variant = *v;
        } else if (auto const w = parse_font_weight(t); w && !weight) {
            weight = *w;
        } else if (auto const st = parse_font_stretch(t); st && !stretch) {
            stretch = *st;
        } else {
            break;
        }
    }
    if (i >= terms.size()) {
        return std::nullopt;
    }
    auto const size = parse_font_size(terms[i++]);
    if (!size) {
        return std::nullopt;
    }
    std::optional<fonts::spec_line_height> line_height;
    if (i < terms.size() && std::holds_alternative<value::slash>(terms[i])) {
        if (i + 1 >= terms.size()) {
            return std::nullopt;
        }
        line_height = parse_line_height(terms[i + 1]);
        if (!line_height) {
            return std::nullopt;
        }
        i += 2;
    }
    if (i >= terms.size()) {
        return std::nullopt;
    }
    auto const family = parse_font_family(as_value(terms.subspan(i)));
    if (!family) {
        return std::nullopt;
    }
    return compound{{set<L::font_family>(*family), set<L::font_size>(*size),
                     given_or_initial<L::font_stretch>(stretch), given_or_initial<L::font_style>(style),
                     given_or_initial<L::font_variant_caps>(variant), given_or_initial<L::font_weight>(weight),
                     given_or_initial<L::line_height>(line_height), init(L::font_feature_settings),
                     init(L::font_kerning), init(L::font_variant_east_asian), init(L::font_variant_ligatures),
                     init(L::font_variant_numeric), init(L::font_variant_position)}};
}

// font-variant sets all five of its longhands; the ones it does not mention go back to "normal".
std::optional<property> font_variant(terms_t terms) {
    auto const v = parse_font_variant_terms(terms);
    if (!v) {
        return std::nullopt;
    }
    return compound{{set<L::font_variant_caps>(v->variant_caps),
                     set<L::font_variant_east_asian>(v->variant_east_asian),
                     set<L::font_variant_ligatures>(v->variant_ligatures),
                     set<L::font_variant_numeric>(v->variant_numeric),
                     set<L::font_variant_position>(v->variant_position)}};
}

std::optional<property> list_style(terms_t terms) {
    if (terms.empty() || terms.size() > 3) {
        return std::nullopt;
    }
    std::optional<box::url_or_none> image;
    std::optional<box::list_style_position> position;
    std::optional<box::list_style_type> type;
    int nones = 0;
    for (auto const& t : terms) {
        if (is_keyword(t, "none")) {
            ++nones;
        } else if (auto const p = parse_list_style_position(t); p && !position) {
            position = *p;
        } else if (auto const* u = std::get_if<value::url>(&t); u && !image) {
            image = box::url_or_none{*u};
        } else if (auto ty = parse_list_style_type(t); ty && !type) {
            type = std::move(*ty);
        } else {
            return std::nullopt;
        }
    }
    // "none" goes to the type first, then to the image, whichever is still free.
    for (; nones > 0; --nones) {
        if (!type) {
            type = box::none_value{};
        } else if (!image) {
            image = box::url_or_none{};
        } else {
            return std::nullopt;
        }
    }
    return compound{{given_or_initial<L::list_style_image>(image),
                     given_or_initial<L::list_style_position>(position),
                     given_or_initial<L::list_style_type>(type)}};
}

std::optional<property> marker(value::value const& v) {
    auto const u = parse_url_or_none(v);
    if (!u) {
        return std::nullopt;
    }
    return compound{{set<L::marker_end>(*u), set<L::marker_mid>(*u), set<L::marker_start>(*u)}};
}

// "style || color" of one decoration line.
struct decoration_parts {
    std::optional<text::text_line_style> deco_style;
    std::optional<color::spec_color> deco_color;
};

std::optional<decoration_parts> decoration_terms(terms_t terms) {
    if (terms.empty() || terms.size() > 2) {
        return std::nullopt;
    }
    decoration_parts out;
    for (auto const& t : terms) {
        if (auto const s = parse_text_line_style(t); s && !out.deco_style) {
            out.deco_style = *s;
        } else if (auto c = parse_color(t); c && !out.deco_color) {
            out.deco_color = std::move(*c);
        } else {
            return std::nullopt;
        }
    }
    return out;
}

template <L Color, L Style>
std::optional<property> decoration_line(terms_t terms) {
    auto const p = decoration_terms(terms);
    if (!p) {
        return std::nullopt;
    }
    return compound{{given_or_initial<Color>(p->deco_color), given_or_initial<Style>(p->deco_style)}};
}

std::optional<property> text_decoration(terms_t terms) {
    bool underline = false;
    bool overline = false;
    bool line_through = false;
    bool none = false;
    std::vector<value::value> rest;
    for (auto const& t : terms) {
        auto const k = keyword_of(t);
        if (k == "underline" && !underline) {
            underline = true;
        } else if (k == "overline" && !overline) {
            overline = true;
        } else if (k == "line-through" && !line_through) {
            line_through = true;
        } else if (k == "blink") {
            // Not painted on paper.
        } else if (k == "none" && !none) {
            none = true;
        } else {
            rest.push_back(t);
        }
    }
    if (none && (underline || overline || line_through)) {
        return std::nullopt;
    }
    decoration_parts parts;
    if (!rest.empty()) {
        auto p = decoration_terms(rest);
        if (!p) {
            return std::nullopt;
        }
        parts = std::move(*p);
    }
    if (!none && !underline && !overline && !line_through) {
        return std::nullopt;
    }
    // A line that is named is drawn solid unless a style is given; the others are reset.
    auto style = [&](bool on) {
        return on ? std::optional<text::text_line_style>(
                        parts.deco_style.value_or(text::text_line_style::solid))
                  : std::nullopt;
    };
    auto color = [&](bool on) { return on ? parts.deco_color : std::nullopt; };
    return compound{{given_or_initial<L::text_line_through_color>(color(line_through)),
                     given_or_initial<L::text_line_through_style>(style(line_through)),
                     given_or_initial<L::text_overline_color>(color(overline)),
                     given_or_initial<L::text_overline_style>(style(overline)),
                     given_or_initial<L::text_underline_color>(color(underline)),
                     given_or_initial<L::text_underline_style>(style(underline))}};
}

bool position_term(value::value const& t) {
    auto const k = keyword_of(t);
    if (k) {
        return *k == "left" || *k == "right" || *k == "top" || *k == "bottom" || *k == "center";
    }
    return units::length_percent_from_value(t).has_value();
}

bool size_term(value::value const& t) {
    auto const k = keyword_of(t);
    if (k) {
        return *k == "auto" || *k == "cover" || *k == "contain";
    }
    return units::length_percent_from_value(t).has_value();
}

struct bg_layer {
    std::optional<box::background_attachment> layer_attachment;
    std::vector<box::background_box> layer_boxes;
    std::optional<color::spec_color> layer_color;
    std::optional<box::bg_image> layer_image;
    std::optional<box::spec_bg_position> layer_position;
    std::optional<box::background_repeat> layer_repeat;
    std::optional<box::spec_bg_size> layer_size;
};

std::optional<bg_layer> background_layer(terms_t terms, bool last) {
    bg_layer out;
    for (std::size_t i = 0; i < terms.size();) {
        auto const& t = terms[i];
        if (auto im = parse_bg_image(t); im && !out.layer_image) {
            out.layer_image = std::move(*im);
            ++i;
        } else if (auto const a = parse_bg_attachment(t); a && !out.layer_attachment) {
            out.layer_attachment = *a;
            ++i;
        } else if (auto const b = parse_bg_box(t); b && out.layer_boxes.size() < 2) {
            out.layer_boxes.push_back(*b);
            ++i;
        } else if (is_keyword(t, "repeat-x") && !out.layer_repeat) {
            out.layer_repeat =
                box::background_repeat{box::background_repeat0::repeat, box::background_repeat0::no_repeat};
            ++i;
        } else if (is_keyword(t, "repeat-y") && !out.layer_repeat) {
            out.layer_repeat =
                box::background_repeat{box::background_repeat0::no_repeat, box::background_repeat0::repeat};
            ++i;
        } else if (auto const r = parse_repeat0(t); r && !out.layer_repeat) {
            auto y = *r;
            ++i;
            if (i < terms.size()) {
                if (auto const r2 = parse_repeat0(terms[i])) {
                    y = *r2;
                    ++i;
                }
            }
            out.layer_repeat = box::background_repeat{*r, y};
        } else if (position_term(t) && !out.layer_position) {
            std::size_t j = i;
            while (j < terms.size() && j - i < 4 && position_term(terms[j])) {
                ++j;
            }
            auto const pos = parse_position_terms(terms.subspan(i, j - i));
            if (!pos) {
                return std::nullopt;
            }
            out.layer_position = *pos;
            i = j;
            if (i < terms.size() && std::holds_alternative<value::slash>(terms[i])) {
                std::size_t k = ++i;
                while (k < terms.size() && k - i < 2 && size_term(terms[k])) {
                    ++k;
                }
                auto const size = parse_size_terms(terms.subspan(i, k - i));
                if (!size) {
                    return std::nullopt;
                }
                out.layer_size = *size;
                i = k;
            }
        } else if (auto c = parse_color(t); c && last && !out.layer_color) {
            out.layer_color = std::move(*c);
            ++i;
        } else {
            return std::nullopt;
        }
    }
    return out;
}

// One list member of the background: initial when no layer mentions it, else one entry per layer.
template <L M, class T, class F>
property layer_list(std::vector<bg_layer> const& layers, T const& fallback, F get) {
    bool any = false;
    std::vector<T> list;
    for (auto const& layer : layers) {
        auto const x = get(layer);
        any = any || x.has_value();
        list.push_back(x.value_or(fallback));
    }
    if (!any) {
        return init(M);
    }
    return set<M>(std::move(list));
}

std::optional<property> background(value::value const& v) {
    auto const runs = comma_runs(v);
    std::vector<bg_layer> layers;
    for (std::size_t i = 0; i < runs.size(); ++i) {
        if (runs[i].empty()) {
            return std::nullopt;
        }
        auto layer = background_layer(runs[i], i + 1 == runs.size());
        if (!layer) {
            return std::nullopt;
        }
        layers.push_back(std::move(*layer));
    }
    using B = box::background_box;
    // One box keyword sets both origin and clip; two set origin, then clip.
    auto origin = [](bg_layer const& l) {
        return l.layer_boxes.empty() ? std::nullopt : std::optional<B>(l.layer_boxes[0]);
    };
    auto clip = [](bg_layer const& l) {
        return l.layer_boxes.empty() ? std::nullopt : std::optional<B>(l.layer_boxes.back());
    };
    return compound{{
        layer_list<L::background_attachment>(layers, box::background_attachment::scroll,
                                             [](bg_layer const& l) { return l.layer_attachment; }),
        layer_list<L::background_clip>(layers, B::border_box, clip),
        given_or_initial<L::background_color>(layers.back().layer_color),
        layer_list<L::background_image>(layers, box::bg_image{box::none_value{}},
                                        [](bg_layer const& l) { return l.layer_image; }),
        layer_list<L::background_origin>(layers, B::padding_box, origin),
        layer_list<L::background_position>(layers, box::spec_bg_position{},
                                           [](bg_layer const& l) { return l.layer_position; }),
        layer_list<L::background_repeat>(layers, box::background_repeat{},
                                         [](bg_layer const& l) { return l.layer_repeat; }),
        layer_list<L::background_size>(layers, box::spec_bg_size{box::bg_size_pair<units::length>{}},
                                       [](bg_layer const& l) { return l.layer_size; }),
    }};
}

} // namespace

std::optional<property> parse_shorthand(prop_name p, value::value const& v) {
    auto const members = shorthand_members(p);
    if (members.empty()) {
        return std::nullopt;
    }
    if (is_keyword(v, "inherit") || is_keyword(v, "initial")) {
        compound out;
        for (auto const m : members) {
            out.compound_members.push_back(is_keyword(v, "inherit") ? keyword_property(m, inherit{})
                                                                    : keyword_property(m, initial{}));
        }
        return out;
    }
    // attr() as the whole value stands for every member, as "border-width: attr(border, px)" does for
    // HTML's border attribute; members that don't take attr() fail the shorthand.
    if (std::holds_alternative<value::attr>(v)) {
        compound out;
        for (auto const m : members) {
            auto one = parse_declaration(name_of(m), v);
            if (!one) {
                return std::nullopt;
            }
            out.compound_members.push_back(std::move(*one));
        }
        return out;
    }
    auto const terms = terms_of(v);
    using P = prop_name;
    switch (p) {
    case P::prop_background:
        return background(v);
    case P::prop_border:
        return border(terms);
    case P::prop_border_bottom:
        return border_side<L::border_bottom_color, L::border_bottom_style, L::border_bottom_width>(terms);
    case P::prop_border_left:
        return border_side<L::border_left_color, L::border_left_style, L::border_left_width>(terms);
    case P::prop_border_right:
        return border_side<L::border_right_color, L::border_right_style, L::border_right_width>(terms);
    case P::prop_border_top:
        return border_side<L::border_top_color, L::border_top_style, L::border_top_width>(terms);
    case P::prop_border_color:
        return border_sides<L::border_bottom_color, L::border_left_color, L::border_right_color,
                            L::border_top_color>(terms, &parse_color);
    case P::prop_border_style:
        return border_sides<L::border_bottom_style, L::border_left_style, L::border_right_style,
                            L::border_top_style>(terms, &parse_line_style);
    case P::prop_border_width:
        return border_sides<L::border_bottom_width, L::border_left_width, L::border_right_width,
                            L::border_top_width>(terms, &parse_border_width);
    case P::prop_border_radius:
        return border_radius(terms);
    case P::prop_column_rule:
        return border_side<L::column_rule_color, L::column_rule_style, L::column_rule_width>(terms);
    case P::prop_columns:
        return columns(terms);
    case P::prop_font:
        return font(terms);
    case P::prop_font_variant:
        return font_variant(terms);
    case P::prop_list_style:
        return list_style(terms);
    case P::prop_margin:
        return margin(terms);
    case P::prop_marker:
        return marker(v);
    case P::prop_padding:
        return padding(terms);
    case P::prop_text_decoration:
        return text_decoration(terms);
    case P::prop_text_line_through:
        return decoration_line<L::text_line_through_color, L::text_line_through_style>(terms);
    case P::prop_text_overline:
        return decoration_line<L::text_overline_color, L::text_overline_style>(terms);
    case P::prop_text_underline:
        return decoration_line<L::text_underline_color, L::text_underline_style>(terms);
    default:
        return std::nullopt;
    }
}

} // namespace vellum::css::property
