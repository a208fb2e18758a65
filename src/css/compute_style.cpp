#include "css/compute_style.hpp"

#include "css/scanprops.hpp"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string_view>

namespace vellum::css::compute_style {

namespace {

using property::longhand;
using L = longhand;
template <L X>
using value_t = property::longhand_value_t<X>;

// The CSS resolution is set once from the command line and read for every element; it has a lock of
// its own so that reading it never waits on the loader's traffic.
std::mutex dpi_lock;
float dpi_value = 96;

constexpr auto identity = [](auto const& v) { return v; };

constexpr std::string_view xml_namespace = "http://www.w3.org/XML/1998/namespace";

std::string lower(std::string s) {
    for (char& c : s) {
        if (c >= 'A' && c <= 'Z') {
            c = static_cast<char>(c - 'A' + 'a');
        }
    }
    return s;
}

int bolder(int w) {
    return w < 400 ? 400 : w < 600 ? 700 : 900;
}

int lighter(int w) {
    return w < 600 ? 100 : w < 800 ? 400 : 700;
}

float border_keyword_width(box::border_keyword k) {
    switch (k) {
    case box::border_keyword::thin:
        return 0.5625f;
    case box::border_keyword::medium:
        return 1.6875f;
    case box::border_keyword::thick:
        return 2.8125f;
    }
    return 0;
}

bool blockify(box::display& d) {
    auto const* k = std::get_if<box::display_kind>(&d);
    if (!k) {
        return false;
    }
    using D = box::display_kind;
    switch (*k) {
    case D::inline_:
    case D::inline_block:
    case D::run_in:
    case D::table_caption:
    case D::table_header_group:
    case D::table_footer_group:
    case D::table_row_group:
    case D::table_row:
    case D::table_cell:
    case D::table_column:
    case D::table_column_group:
        d = D::block;
        return true;
    case D::inline_table:
        d = D::table;
        return true;
    case D::block:
    case D::none:
    case D::table:
    case D::list_item:
        return false;
    }
    return false;
}

// Hashes of the groups that elements far apart often set to the same values: a background image used
// throughout, a few font families, the borders of every link of one colour. Equal groups hash equal;
// the hash needn't read every member, since a group found by it is compared whole before it is shared.
struct group_hasher {
    std::size_t h = 1469598103934665603ULL;

    void mix(std::size_t v) { h = (h ^ v) * 1099511628211ULL; }
    void add(float f) { mix(std::bit_cast<std::uint32_t>(f)); }
    void add(std::string_view text) { mix(std::hash<std::string_view>{}(text)); }
    void add(color::color const& c) {
        mix(c.index());
        std::visit(overloaded{
                       [](color::transparent const&) {},
                       [&](color::rgb const& x) {
                           add(x.r);
                           add(x.g);
                           add(x.b);
                       },
                       [&](color::rgba const& x) {
                           add(x.r);
                           add(x.g);
                           add(x.b);
                           add(x.a);
                       },
                       [&](color::cmyk const& x) {
                           add(x.c);
                           add(x.m);
                           add(x.y);
                           add(x.k);
                       },
                       [&](color::named_color const& x) { add(x.named_color_name); },
                       [](color::vellum_overprint const&) {},
                   },
                   static_cast<color::color_alternative const&>(c));
    }
};

std::size_t hash_group(box::background const& g) {
    group_hasher out;
    out.add(g.background_color);
    for (auto const& image : g.background_image) {
        out.mix(image.index());
        if (auto const* u = std::get_if<value::url>(&image)) {
            out.add(u->url_text);
        }
    }
    out.mix(g.background_repeat.size());
    out.mix(g.background_position.size());
    return out.h;
}

std::size_t hash_group(box::borders const& g) {
    group_hasher out;
    for (auto const* side : {&g.borders_top, &g.borders_right, &g.borders_bottom, &g.borders_left}) {
        out.add(side->border_color);
        out.mix(static_cast<std::size_t>(side->border_style));
        out.add(side->border_width);
    }
    return out.h;
}

std::size_t hash_group(fonts::font_props const& g) {
    group_hasher out;
    for (auto const& family : g.font_props_font_family) {
        out.add(family);
    }
    out.mix(static_cast<std::size_t>(g.font_props_font_weight));
    out.mix(static_cast<std::size_t>(g.font_props_font_style));
    out.mix(static_cast<std::size_t>(g.font_props_font_variant));
    return out.h;
}

std::size_t hash_group(text::text_props const& g) {
    group_hasher out;
    out.mix(static_cast<std::size_t>(g.text_props_text_align));
    out.mix(static_cast<std::size_t>(g.text_props_text_align_last));
    out.mix(static_cast<std::size_t>(g.text_props_text_transform));
    out.mix(g.text_props_text_indent.index());
    if (auto const* f = std::get_if<float>(&g.text_props_text_indent)) {
        out.add(*f);
    }
    return out.h;
}

// How many groups of each kind the table of recent groups holds, per thread: 2 to this power.
constexpr std::size_t recent_group_slots_log2 = 9;

// The slot of a hash: its high bits after a Fibonacci multiplication, since the low bits of a hash of
// floats like 1.0 and 0.5, whose low bits are all zero, tell little apart.
std::size_t recent_group_slot(std::size_t hash) {
    return (hash * 0x9E3779B97F4A7C15ULL) >> (64 - recent_group_slots_log2);
}

// A group as computed, or the parent's or the initial one where it is equal to them: elements that
// change nothing in a group share one record instead of each holding a copy. Groups that elements far
// apart set alike are shared too, through a small table of the groups made lately (one per hash slot,
// replaced by the next of that slot), which holds a bounded number of records whatever the document.
template <class T>
ref<T> shared_group(T group, ref<T> const& parent, ref<T> const& initial) {
    if (parent && group == *parent) {
        return parent;
    }
    if (group == *initial) {
        return initial;
    }
    if constexpr (requires { hash_group(group); }) {
        thread_local std::array<ref<T>, std::size_t{1} << recent_group_slots_log2> recent;
        auto& slot = recent[recent_group_slot(hash_group(group))];
        if (!slot || !(*slot == group)) {
            slot = share(std::move(group));
        }
        return slot;
    } else {
        return share(std::move(group));
    }
}

struct computer {
    scanprops::prop_array const& a;
    style::style const& parent;
    bool root;
    compute_style_context const& ctx;
    float dpi;
    float fs = 12;
    color::color current = color::black();

    float pts(units::length const& l) const { return units::to_points(l, {fs, dpi}); }

    // The four paths of a reader: nothing declared, inherit, initial, a value.
    template <L X, class T, class F>
    T get(T const& parent_value, T const& initial_value, F compute) const {
        auto const* slot = a.slot<X>();
        if (!slot) {
            return property::is_inherited(X) ? parent_value : initial_value;
        }
        return std::visit(overloaded{
                              [&](property::inherit const&) -> T { return parent_value; },
                              [&](property::initial const&) -> T { return initial_value; },
                              [&](value_t<X> const& v) -> T { return compute(v); },
                          },
                          *slot);
    }

    // The same for a field that holds the parent's value already if the property inherits and the
    // initial one if not, as a style made by inherit_from does: only a declared value changes it, and
    // nothing is copied for the others.
    template <L X, class T, class F>
    void set(T& field, T const& parent_value, T const& initial_value, F compute) const {
        if (a.slot<X>() != nullptr) {
            field = get<X>(parent_value, initial_value, compute);
        }
    }

    template <L X, class T, class F>
    void set_attr(T& field, T const& parent_value, T const& initial_value, F compute) const {
        if (a.slot<X>() != nullptr) {
            field = get_attr<X>(parent_value, initial_value, compute);
        }
    }

    // The same for a value that may be attr(); an attribute without a usable value and no default
    // leaves the initial value.
    template <L X, class T, class F>
    T get_attr(T const& parent_value, T const& initial_value, F compute) const {
        return get<X>(parent_value, initial_value, [&](value_t<X> const& v) -> T {
            auto const t = resolve<X>(v);
            if (!t) {
                return initial_value;
            }
            return compute(*t);
        });
    }

    // The text of the element's attribute, if it has one and this is an element.
    std::optional<std::string> attribute(value::attr_qname const& name) const {
        auto const* el = std::get_if<element_context>(&ctx);
        if (!el) {
            return std::nullopt;
        }
        for (auto const& at : el->context_attrs) {
            if (at.context_attr_local == name.attr_local && at.context_attr_ns == name.attr_ns) {
                return at.context_attr_value;
            }
        }
        return std::nullopt;
    }

    // An integer that may come from an attribute, as a counter value; `fallback` when neither the
    // attribute nor a default gives one.
    int resolve_int(expr::or_attr<int> const& v, int fallback) const {
        if (auto const* n = std::get_if<int>(&v)) {
            return *n;
        }
        auto const& e = std::get<expr::expr<int>>(v);
        if (auto const text = attribute(e.expr_name)) {
            auto const term = expr::attr_text_value(e.expr_type, *text, "");
            if (auto const n = term ? units::integer_from_value(*term) : std::nullopt) {
                return *n;
            }
        }
        return e.expr_default.value_or(fallback);
    }

    box::counters counters(box::spec_counters const& v, int fallback) const {
        box::counters out;
        for (auto const& [name, n] : v) {
            out.emplace_back(name, resolve_int(n, fallback));
        }
        return out;
    }

    template <L X, class T>
    std::optional<T> resolve(expr::or_attr<T> const& v) const {
        if (auto const* plain = std::get_if<T>(&v)) {
            return *plain;
        }
        auto const& e = std::get<expr::expr<T>>(v);
        auto const* el = std::get_if<element_context>(&ctx);
        if (!el) {
            return e.expr_default;
        }
        for (auto const& at : el->context_attrs) {
            if (at.context_attr_local != e.expr_name.attr_local ||
                at.context_attr_ns != e.expr_name.attr_ns) {
                continue;
            }
            // The attribute's text becomes a term of the named type, which the property's own parser reads.
            auto const term = expr::attr_text_value(e.expr_type, at.context_attr_value, el->context_base);
            if (!term) {
                break;
            }
            auto const p = property::parse_declaration(property::name_of(X), *term);
            auto const* one = p ? std::get_if<property::prop<X>>(&*p) : nullptr;
            auto const* val = one ? std::get_if<value_t<X>>(&one->prop_spec) : nullptr;
            auto const* t = val ? std::get_if<T>(val) : nullptr;
            if (t) {
                return *t;
            }
            break;
        }
        return e.expr_default;
    }

    color::color col(color::spec_color const& c) const {
        if (std::holds_alternative<color::current_color>(c)) {
            return current;
        }
        return std::get<color::color>(c);
    }

    template <class T>
    box::auto_length_percent<float> alp(box::auto_length_percent<units::length> const& v) const {
        return std::visit(
            overloaded{
                [](box::auto_value const& x) -> box::auto_length_percent<float> { return x; },
                [&](units::length const& l) -> box::auto_length_percent<float> { return pts(l); },
                [](units::percentage const& p) -> box::auto_length_percent<float> { return p; },
            },
            v);
    }

    box::length_or_percent<float> lp(box::length_or_percent<units::length> const& v) const {
        return std::visit(overloaded{
                              [&](units::length const& l) -> box::length_or_percent<float> { return pts(l); },
                              [](units::percentage const& p) -> box::length_or_percent<float> { return p; },
                          },
                          v);
    }

    float border_width(box::spec_border_width const& w) const {
        return std::visit(overloaded{
                              [](box::border_keyword k) { return border_keyword_width(k); },
                              [&](units::length const& l) { return std::max(0.0f, pts(l)); },
                          },
                          w);
    }

    svgstyle::svg_length svg_len(svgstyle::spec_svg_length const& v) const {
        return std::visit(overloaded{
                              [&](units::length const& l) -> svgstyle::svg_length { return pts(l); },
                              [](units::percentage const& p) -> svgstyle::svg_length { return p; },
                              [](svgstyle::user_units const& u) -> svgstyle::svg_length { return u; },
                          },
                          v);
    }

    svgstyle::paint paint(svgstyle::spec_paint const& p) const {
        return std::visit(overloaded{
                              [](box::none_value const& n) -> svgstyle::paint { return n; },
                              [&](color::spec_color const& c) -> svgstyle::paint { return col(c); },
                              [](value::url const& u) -> svgstyle::paint { return u; },
                          },
                          p);
    }

    float font_size(fonts::spec_font_size const& s) const {
        float const pfs = parent.font_size;
        return std::visit(
            overloaded{
                [&](fonts::font_size_keyword k) {
                    using K = fonts::font_size_keyword;
                    switch (k) {
                    case K::xx_small:
                        return 7.0f;
                    case K::x_small:
                        return 9.0f;
                    case K::small:
                        return 10.0f;
                    case K::medium:
                        return 12.0f;
                    case K::large:
                        return 14.0f;
                    case K::x_large:
                        return 18.0f;
                    case K::xx_large:
                        return 24.0f;
                    case K::larger:
                        return pfs * 1.2f;
                    case K::smaller:
                        return pfs / 1.2f;
                    }
                    return pfs;
                },
                [&](units::length const& l) {
                    return std::max(0.0f, units::to_points(l, {pfs, dpi}));
                },
                [&](units::percentage const& p) { return std::max(0.0f, units::percent_of(p, pfs)); },
            },
            s);
    }
};

} // namespace

float css_dpi() {
    std::lock_guard guard(dpi_lock);
    return dpi_value;
}

void set_css_dpi(float dpi) {
    std::lock_guard guard(dpi_lock);
    dpi_value = dpi;
}

style::style compute_style(ref<style::style> const& parent_ref,
                           compute_style_context const& context,
                           std::vector<property::property> const& declarations) {
    return compute_style_from_slots(parent_ref, context, scanprops::scan_all(declarations));
}

style::style compute_style_from_slots(ref<style::style> const& parent_ref,
                                      compute_style_context const& context,
                                      scanprops::prop_array const& props) {
    auto const initial = style::initial_style();
    style::style const& parent = parent_ref ? *parent_ref : *initial;
    computer c{.a = props, .parent = parent, .root = !parent_ref, .ctx = context, .dpi = css_dpi()};
    auto const& init = *initial;
    style::style s = style::inherit_from(parent);

    // The colour first: currentColor elsewhere is this colour, and in color itself the parent's.
    s.color = c.get_attr<L::color>(parent.color, init.color, [&](color::spec_color const& x) {
        return std::holds_alternative<color::current_color>(x) ? parent.color : std::get<color::color>(x);
    });
    c.current = s.color;

    // The font size next: every em and ex below counts against it.
    s.font_size = c.get_attr<L::font_size>(parent.font_size, init.font_size,
                                           [&](fonts::spec_font_size const& x) { return c.font_size(x); });
    c.fs = s.font_size;

    // display, position, float and flow, settled together.
    auto const& pb = parent.bit_props;
    auto const& ib = init.bit_props;
    auto display = c.get<L::display>(pb.bit_props_display, ib.bit_props_display, identity);
    auto position = c.get<L::position>(pb.bit_props_position, ib.bit_props_position, identity);
    auto floaty = c.get<L::float_>(parent.float_, init.float_, identity);
    auto flow = c.get<L::flow>(parent.rare_box->flow, init.rare_box->flow, identity);
    bool const absolute = position == box::position{box::position_kind::absolute} ||
                          position == box::position{box::position_kind::fixed};
    bool const none_float = floaty == box::floaty{box::float_kind::none};
    if (display == box::display{box::display_kind::none}) {
        // Nothing else matters for a box that isn't there.
    } else if (std::holds_alternative<box::display_footnote>(display)) {
        position = box::position_kind::static_;
        floaty = box::float_kind::none;
        flow = box::flow_normal{};
    } else if (std::holds_alternative<box::float_footnote>(floaty)) {
        position = box::position_kind::static_;
        flow = box::flow_normal{};
    } else if (std::holds_alternative<box::flow_static>(flow)) {
        auto const* k = std::get_if<box::float_kind>(&floaty);
        bool const side = k && (*k == box::float_kind::inside || *k == box::float_kind::outside ||
                                *k == box::float_kind::left || *k == box::float_kind::right);
        if (absolute || !side) {
            floaty = box::float_kind::none;
        }
        blockify(display);
    } else if (absolute) {
        floaty = box::float_kind::none;
        blockify(display);
    } else if (!none_float || c.root) {
        blockify(display);
    }
    s.float_ = floaty;

    auto offset = [&](box::spec_offset const& x) { return c.alp<void>(x); };
    c.set_attr<L::top>(s.top, parent.top, init.top, offset);
    c.set_attr<L::right>(s.right, parent.right, init.right, offset);
    c.set_attr<L::bottom>(s.bottom, parent.bottom, init.bottom, offset);
    c.set_attr<L::left>(s.left, parent.left, init.left, offset);

    // Background: not inherited; without declarations it is the initial group itself.
    static scanprops::longhand_set const background_longhands = scanprops::set_of(
        {L::background_attachment, L::background_clip, L::background_color, L::background_image,
         L::background_origin, L::background_position, L::background_repeat, L::background_size});
    if (scanprops::any_set(props, background_longhands)) {
        auto const& pg = *parent.background;
        auto const& ig = *init.background;
        auto const position = [&](std::vector<box::spec_bg_position> const& v) {
            std::vector<box::bg_position> out;
            for (auto const& p : v) {
                out.push_back({c.lp(p.bg_position_x), c.lp(p.bg_position_y)});
            }
            return out;
        };
        auto const size = [&](std::vector<box::spec_bg_size> const& v) {
            std::vector<box::bg_size> out;
            for (auto const& x : v) {
                out.push_back(std::visit(overloaded{
                                             [](box::bg_cover const& k) -> box::bg_size { return k; },
                                             [](box::bg_contain const& k) -> box::bg_size { return k; },
                                             [&](box::bg_size_pair<units::length> const& p) -> box::bg_size {
                                                 return box::bg_size_pair<float>{c.alp<void>(p.bg_size_w),
                                                                                 c.alp<void>(p.bg_size_h)};
                                             },
                                         },
                                         x));
            }
            return out;
        };
        // Built member by member in place: a default group would make a one-layer vector for each.
        box::background bg{
            .background_attachment =
                c.get<L::background_attachment>(pg.background_attachment, ig.background_attachment, identity),
            .background_color =
                c.get_attr<L::background_color>(pg.background_color, ig.background_color,
                                                [&](color::spec_color const& x) { return c.col(x); }),
            .background_image =
                c.get<L::background_image>(pg.background_image, ig.background_image, identity),
            .background_position =
                c.get<L::background_position>(pg.background_position, ig.background_position, position),
            .background_repeat =
                c.get<L::background_repeat>(pg.background_repeat, ig.background_repeat, identity),
            .background_size = c.get<L::background_size>(pg.background_size, ig.background_size, size),
            .background_origin =
                c.get<L::background_origin>(pg.background_origin, ig.background_origin, identity),
            .background_clip = c.get<L::background_clip>(pg.background_clip, ig.background_clip, identity),
        };
        s.background = shared_group(std::move(bg), parent.background, init.background);
    }

    // Borders: not inherited; the initial group serves while nothing is declared and the colour that
    // currentColor stands for is the initial one.
    static scanprops::longhand_set const border_longhands = scanprops::set_of(
        {L::border_bottom_color, L::border_bottom_style, L::border_bottom_width, L::border_left_color,
         L::border_left_style, L::border_left_width, L::border_right_color, L::border_right_style,
         L::border_right_width, L::border_top_color, L::border_top_style, L::border_top_width,
         L::border_bottom_left_radius, L::border_bottom_right_radius, L::border_top_left_radius,
         L::border_top_right_radius});
    if (scanprops::any_set(props, border_longhands) || !(s.color == init.color)) {
        auto const& pg = *parent.borders;
        auto const& ig = *init.borders;
        auto colour = [&](color::spec_color const& x) { return c.col(x); };
        auto radius = [&](box::spec_radius const& r) {
            return box::radius{c.lp(r.radius_h), c.lp(r.radius_v)};
        };
        // The initial colour of a side is currentColor, so it follows this element's colour.
        auto side = [&](box::border const& p, auto color_slot, auto style_slot, auto width_slot) {
            box::border b;
            b.border_color = color_slot(p.border_color);
            b.border_style = style_slot(p.border_style);
            float const w = width_slot(p.border_width);
            b.border_width =
                b.border_style == box::line_style::none || b.border_style == box::line_style::hidden ? 0.0f
                                                                                                     : w;
            return b;
        };
        float const medium = border_keyword_width(box::border_keyword::medium);
        auto width = [&](box::spec_border_width const& w) { return c.border_width(w); };
        box::borders b;
        b.borders_bottom = side(
            pg.borders_bottom,
            [&](color::color const& p) { return c.get_attr<L::border_bottom_color>(p, s.color, colour); },
            [&](box::line_style p) {
                return c.get<L::border_bottom_style>(p, box::line_style::none, identity);
            },
            [&](float p) { return c.get_attr<L::border_bottom_width>(p, medium, width); });
        b.borders_left = side(
            pg.borders_left,
            [&](color::color const& p) { return c.get_attr<L::border_left_color>(p, s.color, colour); },
            [&](box::line_style p) {
                return c.get<L::border_left_style>(p, box::line_style::none, identity);
            },
            [&](float p) { return c.get_attr<L::border_left_width>(p, medium, width); });
        b.borders_right = side(
            pg.borders_right,
            [&](color::color const& p) { return c.get_attr<L::border_right_color>(p, s.color, colour); },
            [&](box::line_style p) {
                return c.get<L::border_right_style>(p, box::line_style::none, identity);
            },
            [&](float p) { return c.get_attr<L::border_right_width>(p, medium, width); });
        b.borders_top = side(
            pg.borders_top,
            [&](color::color const& p) { return c.get_attr<L::border_top_color>(p, s.color, colour); },
            [&](box::line_style p) { return c.get<L::border_top_style>(p, box::line_style::none, identity); },
            [&](float p) { return c.get_attr<L::border_top_width>(p, medium, width); });
        b.borders_border_bottom_left_radius = c.get<L::border_bottom_left_radius>(
            pg.borders_border_bottom_left_radius, ig.borders_border_bottom_left_radius, radius);
        b.borders_border_bottom_right_radius = c.get<L::border_bottom_right_radius>(
            pg.borders_border_bottom_right_radius, ig.borders_border_bottom_right_radius, radius);
        b.borders_border_top_left_radius = c.get<L::border_top_left_radius>(
            pg.borders_border_top_left_radius, ig.borders_border_top_left_radius, radius);
        b.borders_border_top_right_radius = c.get<L::border_top_right_radius>(
            pg.borders_border_top_right_radius, ig.borders_border_top_right_radius, radius);
        s.borders = shared_group(std::move(b), parent.borders, init.borders);
    }

    // The inherited groups: the parent's own records unless something in them is declared.
    static scanprops::longhand_set const font_longhands = scanprops::set_of(
        {L::font_family, L::font_stretch, L::font_style, L::font_weight, L::font_feature_settings,
         L::font_kerning, L::font_variant_caps, L::font_variant_east_asian, L::font_variant_ligatures,
         L::font_variant_numeric, L::font_variant_position});
    if (scanprops::any_set(props, font_longhands)) {
        auto const& pg = *parent.font_props;
        auto const& ig = *init.font_props;
        fonts::font_props f;
        f.font_props_font_family =
            c.get_attr<L::font_family>(pg.font_props_font_family, ig.font_props_font_family, identity);
        f.font_props_font_stretch =
            c.get<L::font_stretch>(pg.font_props_font_stretch, ig.font_props_font_stretch, identity);
        f.font_props_font_style =
            c.get<L::font_style>(pg.font_props_font_style, ig.font_props_font_style, identity);
        auto& ff = f.font_props_features;
        auto const& pf = pg.font_props_features;
        auto const& inf = ig.font_props_features;
        ff.features_caps = c.get<L::font_variant_caps>(pf.features_caps, inf.features_caps, identity);
        ff.features_ligatures =
            c.get<L::font_variant_ligatures>(pf.features_ligatures, inf.features_ligatures, identity);
        ff.features_numeric =
            c.get<L::font_variant_numeric>(pf.features_numeric, inf.features_numeric, identity);
        ff.features_position =
            c.get<L::font_variant_position>(pf.features_position, inf.features_position, identity);
        ff.features_east_asian =
            c.get<L::font_variant_east_asian>(pf.features_east_asian, inf.features_east_asian, identity);
        ff.features_kerning = c.get<L::font_kerning>(pf.features_kerning, inf.features_kerning, identity);
        ff.features_settings =
            c.get<L::font_feature_settings>(pf.features_settings, inf.features_settings, identity);
        // Faces are matched as small capitals for every kind of capitals that shrinks letters.
        switch (ff.features_caps) {
        case fonts::font_variant_caps::small_caps:
        case fonts::font_variant_caps::all_small_caps:
        case fonts::font_variant_caps::petite_caps:
        case fonts::font_variant_caps::all_petite_caps:
            f.font_props_font_variant = fonts::font_variant::small_caps;
            break;
        case fonts::font_variant_caps::normal:
        case fonts::font_variant_caps::unicase:
        case fonts::font_variant_caps::titling_caps:
            f.font_props_font_variant = fonts::font_variant::normal;
            break;
        }
        f.font_props_font_weight = c.get<L::font_weight>(
            pg.font_props_font_weight, ig.font_props_font_weight, [&](fonts::spec_font_weight const& w) {
                return std::visit(overloaded{
                                      [](int n) { return n; },
                                      [&](fonts::relative_weight r) {
                                          return r == fonts::relative_weight::bolder
                                                     ? bolder(pg.font_props_font_weight)
                                                     : lighter(pg.font_props_font_weight);
                                      },
                                  },
                                  w);
            });
        s.font_props = shared_group(std::move(f), parent.font_props, init.font_props);
    }

    static scanprops::longhand_set const text_longhands =
        scanprops::set_of({L::overflow_wrap, L::text_align, L::text_align_last, L::text_indent,
                           L::text_justify, L::vellum_text_replace, L::text_transform, L::word_break});
    if (scanprops::any_set(props, text_longhands)) {
        auto const& pg = *parent.text;
        auto const& ig = *init.text;
        text::text_props t;
        t.text_props_overflow_wrap =
            c.get<L::overflow_wrap>(pg.text_props_overflow_wrap, ig.text_props_overflow_wrap, identity);
        t.text_props_text_align =
            c.get<L::text_align>(pg.text_props_text_align, ig.text_props_text_align, identity);
        t.text_props_text_align_last =
            c.get<L::text_align_last>(pg.text_props_text_align_last, ig.text_props_text_align_last, identity);
        t.text_props_text_indent =
            c.get<L::text_indent>(pg.text_props_text_indent, ig.text_props_text_indent,
                                  [&](units::length_percent const& x) { return c.lp(x); });
        t.text_props_text_justify =
            c.get<L::text_justify>(pg.text_props_text_justify, ig.text_props_text_justify, identity);
        t.text_props_vellum_text_replace = c.get<L::vellum_text_replace>(
            pg.text_props_vellum_text_replace, ig.text_props_vellum_text_replace, identity);
        t.text_props_text_transform =
            c.get<L::text_transform>(pg.text_props_text_transform, ig.text_props_text_transform, identity);
        t.text_props_word_break =
            c.get<L::word_break>(pg.text_props_word_break, ig.text_props_word_break, identity);
        s.text = shared_group(std::move(t), parent.text, init.text);
    }

    static scanprops::longhand_set const rare_inherited_longhands = scanprops::set_of(
        {L::border_collapse, L::caption_page, L::caption_side, L::direction, L::quotes, L::empty_cells,
         L::line_stacking_strategy, L::vellum_image_magic, L::vellum_linebreak_magic, L::visibility,
         L::white_space, L::hyphenate_patterns, L::link, L::list_style_image, L::list_style_type, L::page,
         L::background_image_resolution, L::border_spacing, L::footnote_style_position, L::hyphens,
         L::hyphenate_after, L::hyphenate_before, L::hyphenate_lines, L::image_resolution, L::vellum_lang,
         L::letter_spacing, L::word_spacing, L::orphans, L::widows, L::vellum_footnote_policy});
    if (scanprops::any_set(props, rare_inherited_longhands)) {
        auto const& pg = *parent.rare_props;
        auto const& ig = *init.rare_props;
        auto spacing = [&](box::spec_spacing const& x) {
            return std::visit(overloaded{
                                  [](box::normal_value const& n) -> box::letter_word_spacing { return n; },
                                  [&](units::length const& l) -> box::letter_word_spacing { return c.pts(l); },
                              },
                              x);
        };
        style::rare_props r;
        r.rare_props_background_image_resolution = c.get<L::background_image_resolution>(
            pg.rare_props_background_image_resolution, ig.rare_props_background_image_resolution, identity);
        r.rare_props_border_spacing = c.get_attr<L::border_spacing>(
            pg.rare_props_border_spacing, ig.rare_props_border_spacing, [&](box::spec_cellspacing const& x) {
                return box::cellspacing{c.pts(x.cellspacing_h), c.pts(x.cellspacing_v)};
            });
        r.rare_props_footnote_style_position = c.get<L::footnote_style_position>(
            pg.rare_props_footnote_style_position, ig.rare_props_footnote_style_position, identity);
        r.rare_props_hyphens = c.get<L::hyphens>(pg.rare_props_hyphens, ig.rare_props_hyphens, identity);
        r.rare_props_hyphenate_after =
            c.get<L::hyphenate_after>(pg.rare_props_hyphenate_after, ig.rare_props_hyphenate_after, identity);
        r.rare_props_hyphenate_before = c.get<L::hyphenate_before>(pg.rare_props_hyphenate_before,
                                                                   ig.rare_props_hyphenate_before, identity);
        r.rare_props_hyphenate_lines =
            c.get<L::hyphenate_lines>(pg.rare_props_hyphenate_lines, ig.rare_props_hyphenate_lines, identity);
        r.rare_props_image_resolution = c.get<L::image_resolution>(pg.rare_props_image_resolution,
                                                                   ig.rare_props_image_resolution, identity);
        r.rare_props_vellum_lang =
            c.get_attr<L::vellum_lang>(pg.rare_props_vellum_lang, ig.rare_props_vellum_lang, identity);
        // Set from the element's lang attribute below; until then the parent's.
        r.rare_props_vellum_lang_value = pg.rare_props_vellum_lang_value;
        r.rare_props_letter_spacing =
            c.get<L::letter_spacing>(pg.rare_props_letter_spacing, ig.rare_props_letter_spacing, spacing);
        r.rare_props_word_spacing =
            c.get<L::word_spacing>(pg.rare_props_word_spacing, ig.rare_props_word_spacing, spacing);
        r.rare_props_orphans = c.get<L::orphans>(pg.rare_props_orphans, ig.rare_props_orphans, identity);
        r.rare_props_widows = c.get<L::widows>(pg.rare_props_widows, ig.rare_props_widows, identity);
        r.rare_props_vellum_footnote_policy = c.get<L::vellum_footnote_policy>(
            pg.rare_props_vellum_footnote_policy, ig.rare_props_vellum_footnote_policy, identity);
        r.rare_props_border_collapse =
            c.get<L::border_collapse>(pg.rare_props_border_collapse, ig.rare_props_border_collapse, identity);
        r.rare_props_caption_page =
            c.get<L::caption_page>(pg.rare_props_caption_page, ig.rare_props_caption_page, identity);
        r.rare_props_caption_side =
            c.get<L::caption_side>(pg.rare_props_caption_side, ig.rare_props_caption_side, identity);
        r.rare_props_direction =
            c.get<L::direction>(pg.rare_props_direction, ig.rare_props_direction, identity);
        r.rare_props_quotes = c.get<L::quotes>(pg.rare_props_quotes, ig.rare_props_quotes, identity);
        r.rare_props_empty_cells =
            c.get<L::empty_cells>(pg.rare_props_empty_cells, ig.rare_props_empty_cells, identity);
        r.rare_props_line_stacking_strategy = c.get<L::line_stacking_strategy>(
            pg.rare_props_line_stacking_strategy, ig.rare_props_line_stacking_strategy, identity);
        r.rare_props_vellum_image_magic = c.get<L::vellum_image_magic>(
            pg.rare_props_vellum_image_magic, ig.rare_props_vellum_image_magic, identity);
        r.rare_props_vellum_linebreak_magic = c.get<L::vellum_linebreak_magic>(
            pg.rare_props_vellum_linebreak_magic, ig.rare_props_vellum_linebreak_magic, identity);
        r.rare_props_visibility =
            c.get<L::visibility>(pg.rare_props_visibility, ig.rare_props_visibility, identity);
        r.rare_props_white_space =
            c.get<L::white_space>(pg.rare_props_white_space, ig.rare_props_white_space, identity);
        r.rare_props_hyphenate_patterns = c.get<L::hyphenate_patterns>(
            pg.rare_props_hyphenate_patterns, ig.rare_props_hyphenate_patterns, identity);
        r.rare_props_link =
            c.get<L::link>(pg.rare_props_link, ig.rare_props_link, [&](semantics::spec_link_type const& x) {
                return c.resolve<L::link>(x).value_or(semantics::link_none{});
            });
        r.rare_props_list_style_image = c.get<L::list_style_image>(pg.rare_props_list_style_image,
                                                                   ig.rare_props_list_style_image, identity);
        r.rare_props_list_style_type =
            c.get<L::list_style_type>(pg.rare_props_list_style_type, ig.rare_props_list_style_type, identity);
        r.rare_props_page = c.get<L::page>(pg.rare_props_page, ig.rare_props_page, identity);
        s.rare_props = shared_group(std::move(r), parent.rare_props, init.rare_props);
    }

    static scanprops::longhand_set const svg_longhands = scanprops::set_of(
        {L::fill, L::fill_opacity, L::fill_rule, L::clip_rule, L::stroke, L::stroke_dasharray,
         L::stroke_dashoffset, L::stroke_linecap, L::stroke_linejoin, L::stroke_miterlimit, L::stroke_opacity,
         L::stroke_width, L::marker_start, L::marker_mid, L::marker_end, L::text_anchor});
    if (scanprops::any_set(props, svg_longhands)) {
        auto const& pg = *parent.svgstyle;
        auto const& ig = *init.svgstyle;
        auto paint = [&](svgstyle::spec_paint const& p) { return c.paint(p); };
        auto len = [&](svgstyle::spec_svg_length const& x) { return c.svg_len(x); };
        svgstyle::svgstyle g;
        g.svgstyle_fill = c.get<L::fill>(pg.svgstyle_fill, ig.svgstyle_fill, paint);
        g.svgstyle_fill_opacity =
            c.get<L::fill_opacity>(pg.svgstyle_fill_opacity, ig.svgstyle_fill_opacity, identity);
        g.svgstyle_fill_rule = c.get<L::fill_rule>(pg.svgstyle_fill_rule, ig.svgstyle_fill_rule, identity);
        g.svgstyle_clip_rule = c.get<L::clip_rule>(pg.svgstyle_clip_rule, ig.svgstyle_clip_rule, identity);
        g.svgstyle_stroke = c.get<L::stroke>(pg.svgstyle_stroke, ig.svgstyle_stroke, paint);
        g.svgstyle_stroke_dasharray =
            c.get<L::stroke_dasharray>(pg.svgstyle_stroke_dasharray, ig.svgstyle_stroke_dasharray,
                                       [&](svgstyle::spec_dasharray const& d) {
                                           svgstyle::dasharray out;
                                           for (auto const& x : d) {
                                               out.push_back(c.svg_len(x));
                                           }
                                           return out;
                                       });
        g.svgstyle_stroke_dashoffset =
            c.get<L::stroke_dashoffset>(pg.svgstyle_stroke_dashoffset, ig.svgstyle_stroke_dashoffset, len);
        g.svgstyle_stroke_linecap =
            c.get<L::stroke_linecap>(pg.svgstyle_stroke_linecap, ig.svgstyle_stroke_linecap, identity);
        g.svgstyle_stroke_linejoin =
            c.get<L::stroke_linejoin>(pg.svgstyle_stroke_linejoin, ig.svgstyle_stroke_linejoin, identity);
        g.svgstyle_stroke_miterlimit = c.get<L::stroke_miterlimit>(pg.svgstyle_stroke_miterlimit,
                                                                   ig.svgstyle_stroke_miterlimit, identity);
        g.svgstyle_stroke_opacity =
            c.get<L::stroke_opacity>(pg.svgstyle_stroke_opacity, ig.svgstyle_stroke_opacity, identity);
        g.svgstyle_stroke_width =
            c.get<L::stroke_width>(pg.svgstyle_stroke_width, ig.svgstyle_stroke_width, len);
        g.svgstyle_marker_start =
            c.get<L::marker_start>(pg.svgstyle_marker_start, ig.svgstyle_marker_start, identity);
        g.svgstyle_marker_mid =
            c.get<L::marker_mid>(pg.svgstyle_marker_mid, ig.svgstyle_marker_mid, identity);
        g.svgstyle_marker_end =
            c.get<L::marker_end>(pg.svgstyle_marker_end, ig.svgstyle_marker_end, identity);
        g.svgstyle_text_anchor =
            c.get<L::text_anchor>(pg.svgstyle_text_anchor, ig.svgstyle_text_anchor, identity);
        s.svgstyle = shared_group(std::move(g), parent.svgstyle, init.svgstyle);
    }

    // The packed enumerations.
    s.bit_props = {
        .bit_props_clear = c.get<L::clear>(pb.bit_props_clear, ib.bit_props_clear, identity),
        .bit_props_column_break_after = c.get<L::column_break_after>(
            pb.bit_props_column_break_after, ib.bit_props_column_break_after, identity),
        .bit_props_column_break_before = c.get<L::column_break_before>(
            pb.bit_props_column_break_before, ib.bit_props_column_break_before, identity),
        .bit_props_display = display,
        .bit_props_page_break_after = c.get<L::page_break_after>(pb.bit_props_page_break_after,
                                                                 ib.bit_props_page_break_after, identity),
        .bit_props_page_break_before = c.get<L::page_break_before>(pb.bit_props_page_break_before,
                                                                   ib.bit_props_page_break_before, identity),
        .bit_props_page_break_inside = c.get<L::page_break_inside>(pb.bit_props_page_break_inside,
                                                                   ib.bit_props_page_break_inside, identity),
        .bit_props_position = position,
    };

    // The remaining fields, in the order of the record.
    auto colour = [&](color::spec_color const& x) { return c.col(x); };
    auto width = [&](box::spec_width const& x) { return c.alp<void>(x); };
    auto pad = [&](box::spec_padding const& x) { return c.lp(x); };
    auto maxw = [&](box::spec_max_width const& x) {
        return std::visit(overloaded{
                              [](box::none_value const& n) -> box::max_width { return n; },
                              [&](units::length const& l) -> box::max_width { return c.pts(l); },
                              [](units::percentage const& p) -> box::max_width { return p; },
                          },
                          x);
    };
    c.set<L::box_sizing>(s.box_sizing, parent.box_sizing, init.box_sizing, identity);
    // column-gap's initial value is 1em of this element.
    s.column_gap = c.get<L::column_gap>(parent.column_gap, s.font_size, [&](box::spec_spacing const& x) {
        return std::visit(overloaded{
                              [&](box::normal_value const&) { return s.font_size; },
                              [&](units::length const& l) { return std::max(0.0f, c.pts(l)); },
                          },
                          x);
    });
    c.set<L::content>(s.content, parent.content, init.content, identity);
    c.set_attr<L::height>(s.height, parent.height, init.height, width);
    c.set<L::line_height>(
        s.line_height, parent.line_height, init.line_height, [&](fonts::spec_line_height const& x) {
            return std::visit(overloaded{
                                  [](fonts::line_height_normal const& n) -> fonts::line_height { return n; },
                                  [](fonts::line_height_none const& n) -> fonts::line_height { return n; },
                                  [](fonts::line_height_number const& n) -> fonts::line_height { return n; },
                                  [&](units::length const& l) -> fonts::line_height { return c.pts(l); },
                              },
                              x);
        });
    c.set<L::list_style_position>(s.list_style_position, parent.list_style_position, init.list_style_position,
                                  identity);
    c.set_attr<L::margin_bottom>(s.margin_bottom, parent.margin_bottom, init.margin_bottom, width);
    c.set_attr<L::margin_inside>(s.margin_inside, parent.margin_inside, init.margin_inside, width);
    c.set_attr<L::margin_left>(s.margin_left, parent.margin_left, init.margin_left, width);
    c.set_attr<L::margin_outside>(s.margin_outside, parent.margin_outside, init.margin_outside, width);
    c.set_attr<L::margin_right>(s.margin_right, parent.margin_right, init.margin_right, width);
    c.set_attr<L::margin_top>(s.margin_top, parent.margin_top, init.margin_top, width);
    c.set_attr<L::padding_bottom>(s.padding_bottom, parent.padding_bottom, init.padding_bottom, pad);
    c.set_attr<L::padding_left>(s.padding_left, parent.padding_left, init.padding_left, pad);
    c.set_attr<L::padding_right>(s.padding_right, parent.padding_right, init.padding_right, pad);
    c.set_attr<L::padding_top>(s.padding_top, parent.padding_top, init.padding_top, pad);
    c.set<L::vertical_align>(
        s.vertical_align, parent.vertical_align, init.vertical_align, [&](box::spec_vertical_align const& v) {
            // A percentage is of this element's own line height; "normal" counts as 1.2 times the font size.
            float const line = std::visit(
                overloaded{
                    [&](fonts::line_height_normal const&) { return 1.2f * s.font_size; },
                    [&](fonts::line_height_none const&) { return s.font_size; },
                    [&](fonts::line_height_number const& n) { return n.line_height_factor * s.font_size; },
                    [](float p) { return p; },
                },
                s.line_height);
            return std::visit(overloaded{
                                  [](box::vertical_align_kind k) -> box::vertical_align { return k; },
                                  [&](units::length const& l) -> box::vertical_align { return c.pts(l); },
                                  [&](units::percentage const& p) -> box::vertical_align {
                                      return units::percent_of(p, line);
                                  },
                              },
                              v);
        });
    c.set_attr<L::width>(s.width, parent.width, init.width, width);
    c.set<L::writing_mode>(s.writing_mode, parent.writing_mode, init.writing_mode, identity);
    // The rare box values: not inherited; without declarations the initial group serves.
    static scanprops::longhand_set const rare_box_longhands = scanprops::set_of(
        {L::bookmark_label, L::bookmark_level, L::bookmark_state, L::bookmark_target, L::box_decoration_break,
         L::border_clip, L::clip, L::table_column_span, L::column_count, L::column_rule_color,
         L::column_rule_style, L::column_rule_width, L::column_span, L::column_fill, L::column_width,
         L::counter_increment, L::counter_reset, L::object_fit, L::object_position, L::opacity, L::page_group,
         L::vellum_pdf_destination, L::vellum_pdf_link_type, L::table_row_span, L::string_set, L::clip_path,
         L::stop_color, L::stop_opacity, L::table_baseline, L::text_line_through_color,
         L::text_overline_color, L::text_underline_color, L::text_line_through_style, L::text_overline_style,
         L::text_underline_style, L::text_overflow, L::transform, L::transform_origin, L::unicode_bidi,
         L::z_index, L::flow, L::max_height, L::max_width, L::min_height, L::min_width, L::overflow,
         L::table_layout});
    if (scanprops::any_set(props, rare_box_longhands)) {
        auto const& pg = *parent.rare_box;
        auto const& ig = *init.rare_box;
        style::rare_box_props r;
        r.flow = flow;
        r.max_height = c.get_attr<L::max_height>(pg.max_height, ig.max_height, maxw);
        r.max_width = c.get_attr<L::max_width>(pg.max_width, ig.max_width, maxw);
        r.min_height = c.get_attr<L::min_height>(pg.min_height, ig.min_height, pad);
        r.min_width = c.get_attr<L::min_width>(pg.min_width, ig.min_width, pad);
        r.overflow = c.get<L::overflow>(pg.overflow, ig.overflow, identity);
        r.table_layout = c.get<L::table_layout>(pg.table_layout, ig.table_layout, identity);
        r.bookmark_label = c.get<L::bookmark_label>(pg.bookmark_label, ig.bookmark_label, identity);
        r.bookmark_level = c.get<L::bookmark_level>(pg.bookmark_level, ig.bookmark_level, identity);
        r.bookmark_state = c.get<L::bookmark_state>(pg.bookmark_state, ig.bookmark_state, identity);
        r.bookmark_target = c.get<L::bookmark_target>(pg.bookmark_target, ig.bookmark_target, identity);
        r.box_decoration_break =
            c.get<L::box_decoration_break>(pg.box_decoration_break, ig.box_decoration_break, identity);
        r.border_clip =
            c.get<L::border_clip>(pg.border_clip, ig.border_clip, [&](box::spec_border_clip const& x) {
                if (!x) {
                    return box::border_clip{};
                }
                return box::border_clip{{c.pts((*x)[0]), c.pts((*x)[1]), c.pts((*x)[2]), c.pts((*x)[3])}};
            });
        r.clip = c.get<L::clip>(pg.clip, ig.clip, [&](box::spec_clip const& x) {
            return std::visit(overloaded{
                                  [](box::auto_value const& a) -> box::clip { return a; },
                                  [&](box::clip_rect<units::length> const& r) -> box::clip {
                                      box::clip_rect<float> out;
                                      for (std::size_t i = 0; i < 4; ++i) {
                                          if (r.clip_sides[i]) {
                                              out.clip_sides[i] = c.pts(*r.clip_sides[i]);
                                          }
                                      }
                                      return out;
                                  },
                              },
                              x);
        });
        r.table_column_span =
            c.get_attr<L::table_column_span>(pg.table_column_span, ig.table_column_span, identity);
        r.column_count = c.get<L::column_count>(pg.column_count, ig.column_count, identity);
        r.column_rule_style =
            c.get<L::column_rule_style>(pg.column_rule_style, ig.column_rule_style, identity);
        {
            float const w = c.get<L::column_rule_width>(
                pg.column_rule_width, border_keyword_width(box::border_keyword::medium),
                [&](box::spec_border_width const& x) { return c.border_width(x); });
            bool const hidden = r.column_rule_style == box::line_style::none ||
                                r.column_rule_style == box::line_style::hidden;
            r.column_rule_width = hidden ? 0.0f : w;
        }
        r.column_span = c.get<L::column_span>(pg.column_span, ig.column_span, identity);
        r.column_fill = c.get<L::column_fill>(pg.column_fill, ig.column_fill, identity);
        r.column_width =
            c.get<L::column_width>(pg.column_width, ig.column_width, [&](box::spec_column_width const& x) {
                return std::visit(overloaded{
                                      [](box::auto_value const& a) -> box::column_width { return a; },
                                      [&](units::length const& l) -> box::column_width { return c.pts(l); },
                                  },
                                  x);
            });
        r.counter_increment =
            c.get<L::counter_increment>(pg.counter_increment, ig.counter_increment,
                                        [&](box::spec_counters const& x) { return c.counters(x, 1); });
        r.counter_reset =
            c.get<L::counter_reset>(pg.counter_reset, ig.counter_reset,
                                    [&](box::spec_counters const& x) { return c.counters(x, 0); });
        r.object_fit = c.get<L::object_fit>(pg.object_fit, ig.object_fit, identity);
        r.object_position = c.get<L::object_position>(
            pg.object_position, ig.object_position, [&](box::spec_bg_position const& p) {
                return box::bg_position{c.lp(p.bg_position_x), c.lp(p.bg_position_y)};
            });
        r.opacity = c.get<L::opacity>(pg.opacity, ig.opacity, identity);
        r.page_group = c.get<L::page_group>(pg.page_group, ig.page_group, identity);
        r.vellum_pdf_destination =
            c.get<L::vellum_pdf_destination>(pg.vellum_pdf_destination, ig.vellum_pdf_destination, identity);
        r.vellum_pdf_link_type =
            c.get<L::vellum_pdf_link_type>(pg.vellum_pdf_link_type, ig.vellum_pdf_link_type, identity);
        r.table_row_span = c.get_attr<L::table_row_span>(pg.table_row_span, ig.table_row_span, identity);
        r.string_set = c.get<L::string_set>(pg.string_set, ig.string_set, identity);
        r.clip_path = c.get<L::clip_path>(pg.clip_path, ig.clip_path, identity);
        r.stop_color = c.get_attr<L::stop_color>(pg.stop_color, ig.stop_color, colour);
        r.stop_opacity = c.get<L::stop_opacity>(pg.stop_opacity, ig.stop_opacity, identity);
        r.table_baseline = c.get<L::table_baseline>(pg.table_baseline, ig.table_baseline, identity);
        r.text_line_through_style = c.get<L::text_line_through_style>(pg.text_line_through_style,
                                                                      ig.text_line_through_style, identity);
        r.text_overline_style =
            c.get<L::text_overline_style>(pg.text_overline_style, ig.text_overline_style, identity);
        r.text_underline_style =
            c.get<L::text_underline_style>(pg.text_underline_style, ig.text_underline_style, identity);
        r.text_overflow = c.get<L::text_overflow>(pg.text_overflow, ig.text_overflow, identity);
        r.transform = c.get<L::transform>(pg.transform, ig.transform, [&](box::spec_transform const& ops) {
            using lpf = box::length_or_percent<float>;
            box::transform out;
            for (auto const& op : ops) {
                out.push_back(std::visit(
                    overloaded{
                        [](box::transform_matrix<units::length_percent> const& m) -> box::transform_op<lpf> {
                            return box::transform_matrix<lpf>{m.matrix_values};
                        },
                        [&](box::transform_translate<units::length_percent> const& t)
                            -> box::transform_op<lpf> {
                            return box::transform_translate<lpf>{c.lp(t.translate_x), c.lp(t.translate_y)};
                        },
                        [](box::transform_scale const& x) -> box::transform_op<lpf> { return x; },
                        [](box::transform_rotate const& x) -> box::transform_op<lpf> { return x; },
                        [](box::transform_skew const& x) -> box::transform_op<lpf> { return x; },
                    },
                    op));
            }
            return out;
        });
        r.transform_origin = c.get<L::transform_origin>(
            pg.transform_origin, ig.transform_origin, [&](box::spec_transform_origin const& o) {
                return box::transform_origin{c.lp(o.origin_x), c.lp(o.origin_y)};
            });
        r.unicode_bidi = c.get<L::unicode_bidi>(pg.unicode_bidi, ig.unicode_bidi, identity);
        r.z_index = c.get<L::z_index>(pg.z_index, ig.z_index, identity);
        // The colours whose initial value is currentColor stay empty for it; "inherit" takes the
        // parent's as it was used.
        auto own = [&](color::spec_color const& x) -> std::optional<color::color> { return c.col(x); };
        auto const colour_of = [&](std::optional<color::color> const& x) -> std::optional<color::color> {
            return style::color_or_current(x, parent);
        };
        r.column_rule_color =
            c.get_attr<L::column_rule_color>(colour_of(pg.column_rule_color), ig.column_rule_color, own);
        r.text_line_through_color = c.get_attr<L::text_line_through_color>(
            colour_of(pg.text_line_through_color), ig.text_line_through_color, own);
        r.text_overline_color = c.get_attr<L::text_overline_color>(colour_of(pg.text_overline_color),
                                                                   ig.text_overline_color, own);
        r.text_underline_color = c.get_attr<L::text_underline_color>(colour_of(pg.text_underline_color),
                                                                     ig.text_underline_color, own);
        // A colour that is the element's own is kept as currentColor, so that one value has one form.
        for (auto* x : {&r.column_rule_color, &r.text_line_through_color, &r.text_overline_color,
                        &r.text_underline_color}) {
            if (*x == s.color) {
                x->reset();
            }
        }
        s.rare_box = shared_group(std::move(r), parent.rare_box, init.rare_box);
    }

    // The language: this element's xml:lang or lang, else the parent's.
    if (auto const* el = std::get_if<element_context>(&context)) {
        std::optional<std::string> lang = el->context_lang;
        for (auto const& at : el->context_attrs) {
            if (lang) {
                break;
            }
            if (at.context_attr_local == "lang" && at.context_attr_ns == std::string(xml_namespace)) {
                lang = at.context_attr_value;
            }
        }
        for (auto const& at : el->context_attrs) {
            if (lang) {
                break;
            }
            if (at.context_attr_local == "lang" && !at.context_attr_ns) {
                lang = at.context_attr_value;
            }
        }
        if (lang) {
            auto value = lower(*lang);
            if (s.rare_props->rare_props_vellum_lang_value != value) {
                style::own_rare_props(s).rare_props_vellum_lang_value = std::move(value);
            }
        }
    }
    return s;
}

} // namespace vellum::css::compute_style
