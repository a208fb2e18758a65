#include "host/canvas.hpp"

#include "document/dom.hpp"
#include "host/canvas_paint.hpp"
#include "host/canvas_record.hpp"
#include "host/domjs.hpp"
#include "host/domjs_internal.hpp"
#include "host/webidl.hpp"
#include "js/builtins.hpp"
#include "js/convert.hpp"
#include "js/errors.hpp"
#include "js/object.hpp"

#include <cmath>
#include <map>
#include <numbers>

namespace vellum::canvas {

namespace {

namespace e = js::eval;
using e::js_object;
using e::js_value;

// ---- The prototypes of an engine ----------------------------------------------------------------------

struct canvas_prototypes {
    js_object context_prototype;
    js_object image_data_prototype;
    js_object gradient_prototype;
    js_object pattern_prototype;
    js_object matrix_prototype;
};

// The prototypes by engine. An engine is made once per document and lives to the end of the run; a
// later engine at the same address installs its own.
std::map<e::js const*, canvas_prototypes>& registry() {
    static std::map<e::js const*, canvas_prototypes> r;
    return r;
}

canvas_prototypes const& prototypes_of(e::js& engine) {
    auto const it = registry().find(&engine);
    check(it != registry().end(), "canvas: interfaces not installed");
    return it->second;
}

// ---- Host values ------------------------------------------------------------------------------------

// The host value of a plain object of one of the interfaces, whose methods find their state through
// `this`.
template <class State>
struct object_host : webidl::host_binding {
    std::string name;
    State state;
    std::string binding_class_name() const override { return name; }
    e::expr_res<js_value> binding_call(e::js& engine, js_value const&, std::vector<js_value> const&) override {
        return e::throw_error(engine, e::js_error::not_function);
    }
};

using context_host = object_host<std::shared_ptr<canvas_context>>;
using gradient_host = object_host<std::shared_ptr<canvas_gradient>>;
using pattern_host = object_host<std::shared_ptr<canvas_pattern>>;
using matrix_host = object_host<std::shared_ptr<svg::transform>>;

struct image_data_state {
    int width = 0;
    int height = 0;
    std::shared_ptr<std::vector<std::uint8_t>> data;
    js_object data_object;
};

using image_data_host = object_host<image_data_state>;

// The pixels of an ImageData: indexed bytes, clamped to 0 to 255 when written.
struct clamped_array_host : webidl::host_binding {
    std::shared_ptr<std::vector<std::uint8_t>> bytes;

    std::string binding_class_name() const override { return "Uint8ClampedArray"; }

    e::expr_res<js_value> binding_call(e::js& engine, js_value const&, std::vector<js_value> const&) override {
        return e::throw_error(engine, e::js_error::not_function);
    }

    std::optional<std::size_t> index_of(e::js_prop_string const& key) const {
        auto const* i = std::get_if<e::js_prop_int>(&key);
        if (i == nullptr || i->prop_int < 0 || static_cast<std::uint64_t>(i->prop_int) >= bytes->size()) {
            return std::nullopt;
        }
        return static_cast<std::size_t>(i->prop_int);
    }

    std::optional<js_value> binding_get(e::js&, js_object, e::js_prop_string const& key) override {
        if (auto const i = index_of(key)) {
            return js_value{js::number{std::int64_t{(*bytes)[*i]}}};
        }
        return std::nullopt;
    }

    std::optional<e::expr_res<js_value>> binding_set(e::js& engine, js_object, e::js_prop_string const& key,
                                                     js_value const& value) override {
        auto const i = index_of(key);
        if (!i) {
            return std::nullopt;
        }
        auto n = e::to_number(engine, value);
        if (auto const* x = std::get_if<e::exception>(&n)) {
            return e::expr_res<js_value>{*x};
        }
        double const d = e::to_double(std::get<js::number>(n));
        // Clamped, rounding halves to even as typed arrays do; NaN is 0.
        double const c = std::isnan(d) ? 0 : std::clamp(d, 0.0, 255.0);
        (*bytes)[*i] = static_cast<std::uint8_t>(std::nearbyint(c));
        return e::expr_res<js_value>{value};
    }

    std::int64_t binding_length() const override { return static_cast<std::int64_t>(bytes->size()); }
};

enum class method {
    save, restore, scale, rotate, translate, transform, set_transform, reset_transform, move_to, line_to, rect,
    clear_rect, fill_rect, stroke_rect, arc, arc_to, ellipse, bezier_curve_to, quadratic_curve_to, begin_path,
    close_path, fill, stroke, set_line_dash, get_line_dash, clip, reset_clip, fill_text, stroke_text,
    create_linear_gradient, create_radial_gradient, create_pattern, draw_image, create_image_data,
    put_image_data, get_image_data, is_point_in_path, measure_text, draw_system_focus_ring,
    draw_custom_focus_ring, scroll_path_into_view,
    add_color_stop, pattern_set_transform,
    matrix_construct, matrix_multiply, matrix_inverse, matrix_translate, matrix_scale, matrix_scale_non_uniform,
    matrix_rotate, matrix_rotate_from_vector, matrix_flip_x, matrix_flip_y, matrix_skew_x, matrix_skew_y,
};

enum class property {
    global_alpha, global_composite_operation, stroke_style, fill_style, line_width, line_cap, line_join,
    line_dash_offset, miter_limit, font, text_align, text_baseline, shadow_color, shadow_offset_x,
    shadow_offset_y, shadow_blur,
};

struct method_host : webidl::host_binding {
    canvas::method method = method::save;
    std::string binding_class_name() const override { return "Function"; }
    e::expr_res<js_value> binding_call(e::js& engine, js_value const& this_value, std::vector<js_value> const& args) override;
};

// A property of one context object, bound to it: a getter is read without `this`.
struct property_host : webidl::host_binding {
    std::shared_ptr<canvas_context> context;
    canvas::property property = property::global_alpha;
    bool setter = false;
    std::string binding_class_name() const override { return "Function"; }
    e::expr_res<js_value> binding_call(e::js& engine, js_value const& this_value, std::vector<js_value> const& args) override;
};

// A field of an SVGMatrix, bound to it.
struct matrix_field_host : webidl::host_binding {
    std::shared_ptr<svg::transform> matrix;
    int field = 0;
    bool setter = false;
    std::string binding_class_name() const override { return "Function"; }
    e::expr_res<js_value> binding_call(e::js& engine, js_value const& this_value, std::vector<js_value> const& args) override;
};

// ---- Helpers ----------------------------------------------------------------------------------------

template <class Host>
Host* host_of(js_value const& v) {
    auto const* o = std::get_if<js_object>(&v);
    if (o == nullptr) {
        return nullptr;
    }
    auto const* h = std::get_if<e::class_host_object>(&(*o)->obj_class);
    return h != nullptr ? dynamic_cast<Host*>(h->host_object.get()) : nullptr;
}

template <class State>
js_object new_host_object(e::js& engine, js_object proto, std::string name, State state) {
    auto h = std::make_shared<object_host<State>>();
    h->name = std::move(name);
    h->state = std::move(state);
    return e::new_object_of(engine, e::class_host_object{.host_object = h}, e::yes_proto{.proto = proto});
}

js_value num(double d) {
    return e::builtins::number_value(d);
}

js_value str(std::string const& s) {
    return jsstring::from_utf8(s);
}

// The numbers of the first `count` arguments; a missing one throws, a non-finite one makes the call do
// nothing (nothing comes back), as canvas methods ignore such calls.
e::expr_res<std::optional<std::vector<double>>> numbers(e::js& engine, std::vector<js_value> const& args,
                                                        std::size_t count) {
    if (args.size() < count) {
        return e::throw_error(engine, e::js_error::invalid_arguments);
    }
    std::vector<double> out;
    bool finite = true;
    for (std::size_t i = 0; i < count; ++i) {
        auto n = e::to_number(engine, args[i]);
        if (auto const* x = std::get_if<e::exception>(&n)) {
            return *x;
        }
        out.push_back(e::to_double(std::get<js::number>(n)));
        finite = finite && std::isfinite(out.back());
    }
    if (!finite) {
        return std::optional<std::vector<double>>{};
    }
    return std::optional<std::vector<double>>{std::move(out)};
}

e::expr_res<std::string> text_of(e::js& engine, js_value const& v) {
    auto s = e::to_string(engine, v);
    if (auto const* x = std::get_if<e::exception>(&s)) {
        return *x;
    }
    return jsstring::to_utf8(std::get<e::js_string>(s));
}

// An exception object of a host interface (DOMException, SVGException) with its code and message; its
// prototype is the interface's where the DOM bindings made one, else Error's.
e::exception host_exception(e::js& engine, std::string const& interface_name, int code, std::string const& message) {
    js_object proto = engine.error_prototype;
    auto ctor = e::get(engine, engine.global_object, e::key_of_utf8(interface_name));
    auto const* cv = std::get_if<js_value>(&ctor);
    if (auto const* c = cv != nullptr ? std::get_if<js_object>(cv) : nullptr) {
        auto p = e::get(engine, *c, e::key_of_utf8("prototype"));
        auto const* pv = std::get_if<js_value>(&p);
        if (auto const* po = pv != nullptr ? std::get_if<js_object>(pv) : nullptr) {
            proto = *po;
        }
    }
    js_object const o = e::new_object_of(engine, e::class_error{}, e::yes_proto{.proto = proto});
    e::define_value(o, "code", js::number{std::int64_t{code}});
    e::define_value(o, "message", jsstring::from_utf8(message));
    e::define_value(o, "name", jsstring::from_utf8(interface_name));
    return e::exception{o};
}

constexpr int index_size_err = 1;
constexpr int syntax_err = 12;
constexpr int type_mismatch_err = 17;
constexpr int svg_invalid_value_err = 1;
constexpr int svg_matrix_not_invertable = 2;

void not_supported(e::js& engine, std::string const& what) {
    log::log_warning_once(engine.js_log, "canvas " + what + " is not yet supported");
}

std::shared_ptr<canvas_context> context_of(js_value const& this_value) {
    auto* h = host_of<context_host>(this_value);
    return h != nullptr ? h->state : nullptr;
}

// ---- Reading and writing styles ---------------------------------------------------------------------

js_value style_value(canvas_style const& s) {
    return std::visit(overloaded{
                          [](style_color const& c) -> js_value { return str(color_text(c.style_color_value)); },
                          [](style_gradient const& g) -> js_value {
                              check(g.style_gradient_value && g.style_gradient_value->gradient_object.has_value(),
                                    "no gradient object.");
                              return *g.style_gradient_value->gradient_object;
                          },
                          [](style_pattern const& p) -> js_value {
                              check(p.style_pattern_value && p.style_pattern_value->pattern_object.has_value(),
                                    "no pattern object.");
                              return *p.style_pattern_value->pattern_object;
                          },
                      },
                      s);
}

// A style from a script value: a colour text, a gradient or a pattern; nothing (the assignment is
// ignored) for anything else.
e::expr_res<std::optional<canvas_style>> style_from(e::js& engine, js_value const& v) {
    if (auto* g = host_of<gradient_host>(v)) {
        return std::optional<canvas_style>{style_gradient{g->state}};
    }
    if (auto* p = host_of<pattern_host>(v)) {
        return std::optional<canvas_style>{style_pattern{p->state}};
    }
    if (!std::holds_alternative<e::js_string>(v)) {
        return std::optional<canvas_style>{};
    }
    auto const c = css::color::parse_color_text(jsstring::to_utf8(std::get<e::js_string>(v)));
    if (!c) {
        return std::optional<canvas_style>{};
    }
    (void)engine;
    return std::optional<canvas_style>{style_color{*c}};
}

template <class E, std::size_t N>
std::optional<E> keyword_of(std::string const& text, std::pair<std::string_view, E> const (&table)[N]) {
    for (auto const& [name, value] : table) {
        if (name == text) {
            return value;
        }
    }
    return std::nullopt;
}

constexpr std::pair<std::string_view, css::svgstyle::linecap> cap_names[] = {
    {"butt", css::svgstyle::linecap::butt}, {"round", css::svgstyle::linecap::round}, {"square", css::svgstyle::linecap::square}};
constexpr std::pair<std::string_view, css::svgstyle::linejoin> join_names[] = {
    {"miter", css::svgstyle::linejoin::miter}, {"round", css::svgstyle::linejoin::round}, {"bevel", css::svgstyle::linejoin::bevel}};
constexpr std::pair<std::string_view, text_align> align_names[] = {{"start", text_align::start},
                                                                   {"end", text_align::end},
                                                                   {"left", text_align::left},
                                                                   {"right", text_align::right},
                                                                   {"center", text_align::center}};
constexpr std::pair<std::string_view, text_baseline> baseline_names[] = {
    {"top", text_baseline::top},       {"hanging", text_baseline::hanging},         {"middle", text_baseline::middle},
    {"alphabetic", text_baseline::alphabetic}, {"ideographic", text_baseline::ideographic}, {"bottom", text_baseline::bottom}};

template <class E, std::size_t N>
std::string name_of(E value, std::pair<std::string_view, E> const (&table)[N]) {
    for (auto const& [name, v] : table) {
        if (v == value) {
            return std::string(name);
        }
    }
    return std::string(table[0].first);
}

e::expr_res<js_value> get_property(canvas_context const& ctx, property p) {
    auto const& st = ctx.state;
    switch (p) {
    case property::global_alpha:
        return num(st.svgstyle.opacity);
    case property::global_composite_operation:
        return str("source-over");
    case property::stroke_style:
        return style_value(st.stroke_style);
    case property::fill_style:
        return style_value(st.fill_style);
    case property::line_width:
        return num(st.svgstyle.stroke_width);
    case property::line_cap:
        return str(name_of(st.svgstyle.stroke_linecap, cap_names));
    case property::line_join:
        return str(name_of(st.svgstyle.stroke_linejoin, join_names));
    case property::line_dash_offset:
        return num(st.svgstyle.stroke_dashoffset);
    case property::miter_limit:
        return num(st.svgstyle.stroke_miterlimit);
    case property::font:
        return str(st.font);
    case property::text_align:
        return str(name_of(st.text_align, align_names));
    case property::text_baseline:
        return str(name_of(st.text_baseline, baseline_names));
    case property::shadow_color:
        return str("rgba(0, 0, 0, 0)");
    case property::shadow_offset_x:
    case property::shadow_offset_y:
    case property::shadow_blur:
        return num(0);
    }
    return e::undefined();
}

// A positive finite number, or nothing for a value that the property ignores.
e::expr_res<std::optional<double>> number_arg(e::js& engine, js_value const& v) {
    auto n = e::to_number(engine, v);
    if (auto const* x = std::get_if<e::exception>(&n)) {
        return *x;
    }
    double const d = e::to_double(std::get<js::number>(n));
    return std::isfinite(d) ? std::optional<double>{d} : std::nullopt;
}

e::expr_res<js_value> set_property(e::js& engine, canvas_context& ctx, property p, js_value const& v) {
    auto const number = [&](auto&& use) -> e::expr_res<js_value> {
        auto n = number_arg(engine, v);
        if (auto const* x = std::get_if<e::exception>(&n)) {
            return *x;
        }
        if (auto const d = std::get<std::optional<double>>(n)) {
            use(*d);
        }
        return v;
    };
    auto const keyword = [&](auto&& use) -> e::expr_res<js_value> {
        auto s = text_of(engine, v);
        if (auto const* x = std::get_if<e::exception>(&s)) {
            return *x;
        }
        use(std::get<std::string>(s));
        return v;
    };
    // A keyword of a table, made into the operation that sets it; other words are ignored.
    auto const choice = [&](auto const& table, auto&& make) -> e::expr_res<js_value> {
        return keyword([&](std::string const& s) {
            if (auto k = keyword_of(s, table)) {
                canvas::apply(ctx, make(*k));
            }
        });
    };
    switch (p) {
    case property::global_alpha:
        return number([&](double d) {
            if (d >= 0 && d <= 1) {
                canvas::apply(ctx, global_alpha_op{d});
            }
        });
    case property::global_composite_operation:
        return keyword([&](std::string const& s) {
            if (s != "source-over") {
                not_supported(engine, "globalCompositeOperation");
            }
        });
    case property::stroke_style:
    case property::fill_style: {
        auto s = style_from(engine, v);
        if (auto const* x = std::get_if<e::exception>(&s)) {
            return *x;
        }
        if (auto const& style = std::get<std::optional<canvas_style>>(s)) {
            canvas::apply(ctx, p == property::fill_style ? context_prop{fill_style_op{*style}} : context_prop{stroke_style_op{*style}});
        }
        return v;
    }
    case property::line_width:
        return number([&](double d) {
            if (d > 0) {
                canvas::apply(ctx, line_width_op{d});
            }
        });
    case property::line_cap:
        return choice(cap_names, [](auto k) { return context_prop{line_cap_op{k}}; });
    case property::line_join:
        return choice(join_names, [](auto k) { return context_prop{line_join_op{k}}; });
    case property::line_dash_offset:
        return number([&](double d) { canvas::apply(ctx, dash_offset_op{d}); });
    case property::miter_limit:
        return number([&](double d) {
            if (d > 0) {
                canvas::apply(ctx, miter_limit_op{d});
            }
        });
    case property::font:
        return keyword([&](std::string const& s) {
            if (valid_font(s)) {
                canvas::apply(ctx, font_op{s});
            }
        });
    case property::text_align:
        return choice(align_names, [](auto k) { return context_prop{text_align_op{k}}; });
    case property::text_baseline:
        return choice(baseline_names, [](auto k) { return context_prop{text_baseline_op{k}}; });
    case property::shadow_color:
        not_supported(engine, "shadowColor");
        return v;
    case property::shadow_offset_x:
        not_supported(engine, "shadowOffsetX");
        return v;
    case property::shadow_offset_y:
        not_supported(engine, "shadowOffsetY");
        return v;
    case property::shadow_blur:
        not_supported(engine, "shadowBlur");
        return v;
    }
    return v;
}

e::expr_res<js_value> property_host::binding_call(e::js& engine, js_value const&, std::vector<js_value> const& args) {
    if (!setter) {
        return get_property(*context, property);
    }
    return set_property(engine, *context, property, args.empty() ? e::undefined() : args[0]);
}

// ---- SVGMatrix --------------------------------------------------------------------------------------

double& field_of(svg::transform& m, int field) {
    switch (field) {
    case 0:
        return m.a;
    case 1:
        return m.b;
    case 2:
        return m.c;
    case 3:
        return m.d;
    case 4:
        return m.e;
    default:
        return m.f;
    }
}

e::expr_res<js_value> matrix_field_host::binding_call(e::js& engine, js_value const&, std::vector<js_value> const& args) {
    if (!setter) {
        return num(field_of(*matrix, field));
    }
    auto n = e::to_number(engine, args.empty() ? e::undefined() : args[0]);
    if (auto const* x = std::get_if<e::exception>(&n)) {
        return *x;
    }
    field_of(*matrix, field) = e::to_double(std::get<js::number>(n));
    return args.empty() ? e::undefined() : args[0];
}

js_object new_matrix(e::js& engine, svg::transform m) {
    auto const cell = std::make_shared<svg::transform>(m);
    js_object const o = new_host_object(engine, prototypes_of(engine).matrix_prototype, "SVGMatrix", cell);
    static constexpr char const* names[] = {"a", "b", "c", "d", "e", "f"};
    for (int i = 0; i < 6; ++i) {
        auto get = std::make_shared<matrix_field_host>();
        get->matrix = cell;
        get->field = i;
        auto set = std::make_shared<matrix_field_host>(*get);
        set->setter = true;
        e::define_own_property(o, e::key_of_utf8(names[i]),
                               e::prop_host{.host_getter = e::host_accessor{get}, .host_setter = e::host_accessor{set}},
                               e::attrs{});
    }
    return o;
}

// `this` as a matrix followed by `m`: the product this × m, which applies m first.
e::expr_res<js_value> matrix_times(e::js& engine, js_value const& this_value, svg::transform const& m) {
    auto* h = host_of<matrix_host>(this_value);
    if (h == nullptr) {
        return e::throw_error(engine, e::js_error::invalid_this);
    }
    return new_matrix(engine, svg::then(m, *h->state));
}

e::expr_res<js_value> matrix_method(e::js& engine, method m, js_value const& this_value, std::vector<js_value> const& args) {
    auto const* self = host_of<matrix_host>(this_value);
    if (m != method::matrix_construct && self == nullptr) {
        return e::throw_error(engine, e::js_error::invalid_this);
    }
    auto const count = [&]() -> std::size_t {
        switch (m) {
        case method::matrix_construct:
            return 6;
        case method::matrix_translate:
        case method::matrix_scale_non_uniform:
        case method::matrix_rotate_from_vector:
            return 2;
        case method::matrix_scale:
        case method::matrix_rotate:
        case method::matrix_skew_x:
        case method::matrix_skew_y:
            return 1;
        default:
            return 0;
        }
    }();
    std::vector<double> v;
    if (count > 0) {
        if (args.size() < count && m != method::matrix_construct) {
            return e::throw_error(engine, e::js_error::invalid_arguments);
        }
        for (std::size_t i = 0; i < count; ++i) {
            if (i >= args.size()) {
                // A matrix made with fewer numbers is the identity in the rest.
                v.push_back(i == 0 || i == 3 ? 1 : 0);
                continue;
            }
            auto n = e::to_number(engine, args[i]);
            if (auto const* x = std::get_if<e::exception>(&n)) {
                return *x;
            }
            v.push_back(e::to_double(std::get<js::number>(n)));
        }
    }
    double constexpr deg = std::numbers::pi / 180;
    switch (m) {
    case method::matrix_construct:
        return new_matrix(engine, svg::transform{v[0], v[1], v[2], v[3], v[4], v[5]});
    case method::matrix_multiply: {
        auto const* other = host_of<matrix_host>(args.empty() ? e::undefined() : args[0]);
        if (other == nullptr) {
            return e::throw_error(engine, e::js_error::invalid_arguments);
        }
        return matrix_times(engine, this_value, *other->state);
    }
    case method::matrix_inverse: {
        auto const inv = svg::invert(*self->state);
        if (!inv) {
            return host_exception(engine, "SVGException", svg_matrix_not_invertable, "matrix is not invertible");
        }
        return new_matrix(engine, *inv);
    }
    case method::matrix_translate:
        return matrix_times(engine, this_value, svg::translation(v[0], v[1]));
    case method::matrix_scale:
        return matrix_times(engine, this_value, svg::scaling(v[0], v[0]));
    case method::matrix_scale_non_uniform:
        return matrix_times(engine, this_value, svg::scaling(v[0], v[1]));
    case method::matrix_rotate: {
        double const a = v[0] * deg;
        return matrix_times(engine, this_value, {std::cos(a), std::sin(a), -std::sin(a), std::cos(a), 0, 0});
    }
    case method::matrix_rotate_from_vector: {
        if (v[0] == 0 || v[1] == 0) {
            return host_exception(engine, "SVGException", svg_invalid_value_err, "invalid value");
        }
        double const a = std::atan2(v[1], v[0]);
        return matrix_times(engine, this_value, {std::cos(a), std::sin(a), -std::sin(a), std::cos(a), 0, 0});
    }
    case method::matrix_flip_x:
        return matrix_times(engine, this_value, {-1, 0, 0, 1, 0, 0});
    case method::matrix_flip_y:
        return matrix_times(engine, this_value, {1, 0, 0, -1, 0, 0});
    case method::matrix_skew_x:
        return matrix_times(engine, this_value, {1, 0, std::tan(v[0] * deg), 1, 0, 0});
    case method::matrix_skew_y:
        return matrix_times(engine, this_value, {1, std::tan(v[0] * deg), 0, 1, 0, 0});
    default:
        return e::throw_error(engine, e::js_error::not_function);
    }
}

// ---- Context methods --------------------------------------------------------------------------------

e::expr_res<js_value> new_image_data(e::js& engine, int width, int height) {
    auto const& protos = prototypes_of(engine);
    auto bytes = std::make_shared<std::vector<std::uint8_t>>(static_cast<std::size_t>(width) * height * 4, 0);
    auto array_host = std::make_shared<clamped_array_host>();
    array_host->bytes = bytes;
    js_object const data = e::new_object_of(engine, e::class_host_collection{.host_collection = array_host},
                                            e::yes_proto{.proto = engine.object_prototype});
    e::attrs const fixed = e::attrs{}.with(e::attr::read_only).with(e::attr::no_delete).with(e::attr::no_enum);
    e::define_value(data, "length", js::number{static_cast<std::int64_t>(bytes->size())}, fixed);
    js_object const o = new_host_object(engine, protos.image_data_prototype, "ImageData",
                                        image_data_state{.width = width, .height = height, .data = bytes, .data_object = data});
    e::attrs const read_only = e::attrs{}.with(e::attr::read_only);
    e::define_value(o, "width", js::number{std::int64_t{width}}, read_only);
    e::define_value(o, "height", js::number{std::int64_t{height}}, read_only);
    e::define_value(o, "data", data, read_only);
    return js_value{o};
}

// The picture of a drawImage or createPattern argument: an img element by its URL, or a canvas element
// with what it has drawn so far (copied now).
std::optional<canvas_image_ele> image_source(js_value const& v) {
    dom::dom_element* el = domjs::element_of(v);
    if (el == nullptr) {
        return std::nullopt;
    }
    if (el->dom_element_canvas_context) {
        auto const c = el->dom_element_canvas_context->get();
        auto content = c.context_2d ? c.context_2d->content : std::vector<canvas_thing>{};
        std::weak_ptr<dom::dom_element> source;
        if (auto const n = domjs::node_of(v)) {
            if (auto const* ref = std::get_if<dom::element_ref>(&*n)) {
                source = *ref;
            }
        }
        return canvas_image_ele{image_ele_canvas{.source_width = c.context_size.canvas_width,
                                                 .source_height = c.context_size.canvas_height,
                                                 .source_content = share(std::move(content)),
                                                 .source_element = source}};
    }
    if (!xml::is_xhtml_name(el->dom_element_name, "img")) {
        return std::nullopt;
    }
    auto const src = dom::attribute_value(*el, xml::make_name("src"));
    if (!src || src->empty()) {
        return std::nullopt;
    }
    return canvas_image_ele{image_ele_image{resource::locator::resolve_locator(dom::element_base(*el), *src)}};
}

e::expr_res<js_value> context_method(e::js& engine, canvas_context& ctx, method m, std::vector<js_value> const& args) {
    // Most methods take a fixed count of numbers; a call with a non-finite one does nothing.
    auto const with_numbers = [&](std::size_t count, auto&& use) -> e::expr_res<js_value> {
        auto r = numbers(engine, args, count);
        if (auto const* x = std::get_if<e::exception>(&r)) {
            return *x;
        }
        if (auto const& v = std::get<std::optional<std::vector<double>>>(r)) {
            return use(*v);
        }
        return e::undefined();
    };
    auto const done = [&](context_prop op) -> e::expr_res<js_value> {
        canvas::apply(ctx, op);
        return e::undefined();
    };
    auto const fill_rule = [&](std::size_t i) -> e::expr_res<css::svgstyle::fill_rule> {
        if (args.size() <= i) {
            return css::svgstyle::fill_rule::nonzero;
        }
        auto s = text_of(engine, args[i]);
        if (auto const* x = std::get_if<e::exception>(&s)) {
            return *x;
        }
        return std::get<std::string>(s) == "evenodd" ? css::svgstyle::fill_rule::evenodd : css::svgstyle::fill_rule::nonzero;
    };
    switch (m) {
    case method::save:
        return done(save_op{});
    case method::restore:
        return done(restore_op{});
    case method::scale:
        return with_numbers(2, [&](auto const& v) { return done(transform_op{svg::scaling(v[0], v[1])}); });
    case method::rotate:
        return with_numbers(1, [&](auto const& v) {
            double const c = std::cos(v[0]);
            double const s = std::sin(v[0]);
            return done(transform_op{{c, s, -s, c, 0, 0}});
        });
    case method::translate:
        return with_numbers(2, [&](auto const& v) { return done(transform_op{svg::translation(v[0], v[1])}); });
    case method::transform:
        return with_numbers(6, [&](auto const& v) { return done(transform_op{{v[0], v[1], v[2], v[3], v[4], v[5]}}); });
    case method::set_transform:
        return with_numbers(6, [&](auto const& v) { return done(set_transform_op{{v[0], v[1], v[2], v[3], v[4], v[5]}}); });
    case method::reset_transform:
        return done(set_transform_op{});
    case method::move_to:
        return with_numbers(2, [&](auto const& v) { return done(command_op{svg::moveto{{v[0], v[1]}}}); });
    case method::line_to:
        return with_numbers(2, [&](auto const& v) { return done(command_op{svg::lineto{{v[0], v[1]}}}); });
    case method::rect:
        return with_numbers(4, [&](auto const& v) { return done(command_op{svg::rect{{v[0], v[1]}, {v[2], v[3]}}}); });
    case method::clear_rect:
        return with_numbers(4, [&](auto const& v) { return done(clear_rect_op{v[0], v[1], v[2], v[3]}); });
    case method::fill_rect:
        return with_numbers(4, [&](auto const& v) { return done(draw_rect_op{v[0], v[1], v[2], v[3], draw::fill}); });
    case method::stroke_rect:
        return with_numbers(4, [&](auto const& v) { return done(draw_rect_op{v[0], v[1], v[2], v[3], draw::stroke}); });
    case method::arc:
        return with_numbers(5, [&](auto const& v) -> e::expr_res<js_value> {
            if (v[2] < 0) {
                return host_exception(engine, "DOMException", index_size_err, "arc: negative radius");
            }
            bool const anticlockwise = args.size() > 5 && e::to_boolean(args[5]);
            return done(command_op{canvas_arc({v[0], v[1]}, v[2], v[2], 0, v[3], v[4], anticlockwise)});
        });
    case method::ellipse:
        return with_numbers(7, [&](auto const& v) -> e::expr_res<js_value> {
            if (v[2] < 0 || v[3] < 0) {
                return host_exception(engine, "DOMException", index_size_err, "ellipse: negative radius");
            }
            bool const anticlockwise = args.size() > 7 && e::to_boolean(args[7]);
            return done(command_op{canvas_arc({v[0], v[1]}, v[2], v[3], v[4], v[5], v[6], anticlockwise)});
        });
    case method::arc_to:
        return with_numbers(5, [&](auto const& v) -> e::expr_res<js_value> {
            if (v[4] < 0) {
                return host_exception(engine, "DOMException", index_size_err, "arcTo: negative radius");
            }
            return done(arc_to_op{{v[0], v[1]}, {v[2], v[3]}, v[4]});
        });
    case method::bezier_curve_to:
        return with_numbers(6, [&](auto const& v) {
            return done(command_op{svg::c_curveto{{v[0], v[1]}, {v[2], v[3]}, {v[4], v[5]}}});
        });
    case method::quadratic_curve_to:
        return with_numbers(4, [&](auto const& v) { return done(quadratic_op{{v[0], v[1]}, {v[2], v[3]}}); });
    case method::begin_path:
        return done(begin_path_op{});
    case method::close_path:
        return done(command_op{svg::closepath{}});
    case method::fill:
    case method::stroke:
    case method::clip: {
        auto rule = fill_rule(0);
        if (auto const* x = std::get_if<e::exception>(&rule)) {
            return *x;
        }
        auto const r = std::get<css::svgstyle::fill_rule>(rule);
        if (m == method::clip) {
            return done(clip_op{r});
        }
        return done(draw_op{m == method::fill ? draw::fill : draw::stroke, r});
    }
    case method::reset_clip:
        return done(reset_clip_op{});
    case method::set_line_dash: {
        auto const* list = args.empty() ? nullptr : std::get_if<js_object>(&args[0]);
        if (list == nullptr) {
            return e::throw_error(engine, e::js_error::invalid_arguments);
        }
        auto len = e::get(engine, *list, e::key_of_utf8("length"));
        if (auto const* x = std::get_if<e::exception>(&len)) {
            return *x;
        }
        auto n = number_arg(engine, std::get<js_value>(len));
        if (auto const* x = std::get_if<e::exception>(&n)) {
            return *x;
        }
        std::vector<double> dashes;
        auto const count = std::get<std::optional<double>>(n).value_or(0);
        for (std::int64_t i = 0; i < static_cast<std::int64_t>(count); ++i) {
            auto item = e::get(engine, *list, e::key_of_int(i));
            if (auto const* x = std::get_if<e::exception>(&item)) {
                return *x;
            }
            auto d = e::to_number(engine, std::get<js_value>(item));
            if (auto const* x = std::get_if<e::exception>(&d)) {
                return *x;
            }
            dashes.push_back(e::to_double(std::get<js::number>(d)));
        }
        if (auto const even = dash_list(dashes)) {
            canvas::apply(ctx, dash_array_op{*even});
        }
        return e::undefined();
    }
    case method::get_line_dash: {
        std::vector<js_value> items;
        for (double d : ctx.state.svgstyle.stroke_dasharray) {
            items.push_back(num(d));
        }
        return js_value{e::new_array(engine, items)};
    }
    case method::fill_text:
    case method::stroke_text: {
        if (args.size() < 3) {
            return e::throw_error(engine, e::js_error::invalid_arguments);
        }
        auto t = text_of(engine, args[0]);
        if (auto const* x = std::get_if<e::exception>(&t)) {
            return *x;
        }
        std::vector<js_value> const rest(args.begin() + 1, args.end());
        auto r = numbers(engine, rest, rest.size() >= 3 ? 3 : 2);
        if (auto const* x = std::get_if<e::exception>(&r)) {
            return *x;
        }
        auto const& v = std::get<std::optional<std::vector<double>>>(r);
        if (!v) {
            return e::undefined();
        }
        std::optional<double> max_width;
        if (v->size() == 3) {
            max_width = (*v)[2];
        }
        return done(draw_text_op{std::get<std::string>(t), {(*v)[0], (*v)[1]}, max_width,
                                 m == method::fill_text ? draw::fill : draw::stroke});
    }
    case method::create_linear_gradient:
    case method::create_radial_gradient: {
        bool const radial = m == method::create_radial_gradient;
        return with_numbers(radial ? 6 : 4, [&](auto const& v) -> e::expr_res<js_value> {
            if (radial && (v[2] < 0 || v[5] < 0)) {
                return host_exception(engine, "DOMException", index_size_err, "createRadialGradient: negative radius");
            }
            auto g = std::make_shared<canvas_gradient>();
            if (radial) {
                g->gradient_geometry = svg::radial{.cx = v[3], .cy = v[4], .r = v[5], .fx = v[0], .fy = v[1], .fr = v[2]};
            } else {
                g->gradient_geometry = svg::linear{.x1 = v[0], .y1 = v[1], .x2 = v[2], .y2 = v[3]};
            }
            js_object const o = new_host_object(engine, prototypes_of(engine).gradient_prototype, "CanvasGradient", g);
            g->gradient_object = o;
            return js_value{o};
        });
    }
    case method::create_pattern: {
        if (args.size() < 2) {
            return e::throw_error(engine, e::js_error::invalid_arguments);
        }
        auto rep = std::holds_alternative<e::js_null>(args[1]) ? e::expr_res<std::string>{std::string()} : text_of(engine, args[1]);
        if (auto const* x = std::get_if<e::exception>(&rep)) {
            return *x;
        }
        static constexpr std::pair<std::string_view, repetition> reps[] = {{"", repetition::repeat},
                                                                          {"repeat", repetition::repeat},
                                                                          {"repeat-x", repetition::repeat_x},
                                                                          {"repeat-y", repetition::repeat_y},
                                                                          {"no-repeat", repetition::no_repeat}};
        auto const r = keyword_of(std::get<std::string>(rep), reps);
        if (!r) {
            return host_exception(engine, "DOMException", syntax_err, "createPattern: unknown repetition");
        }
        auto const source = image_source(args[0]);
        if (!source) {
            return host_exception(engine, "DOMException", type_mismatch_err, "createPattern: not an image or canvas");
        }
        auto p = std::make_shared<canvas_pattern>(canvas_pattern{.pattern_source = *source, .pattern_repetition = *r});
        js_object const o = new_host_object(engine, prototypes_of(engine).pattern_prototype, "CanvasPattern", p);
        p->pattern_object = o;
        return js_value{o};
    }
    case method::draw_image: {
        if (args.size() != 3 && args.size() != 5 && args.size() != 9) {
            return e::throw_error(engine, e::js_error::invalid_arguments);
        }
        auto const source = image_source(args[0]);
        if (!source) {
            return host_exception(engine, "DOMException", type_mismatch_err, "drawImage: not an image or canvas");
        }
        std::vector<js_value> const rest(args.begin() + 1, args.end());
        return with_numbers(0, [&](auto const&) -> e::expr_res<js_value> {
            auto r = numbers(engine, rest, rest.size());
            if (auto const* x = std::get_if<e::exception>(&r)) {
                return *x;
            }
            auto const& v = std::get<std::optional<std::vector<double>>>(r);
            if (!v) {
                return e::undefined();
            }
            canvas_image im{.canvas_image_ele = *source};
            if (v->size() == 2) {
                im.dx = (*v)[0];
                im.dy = (*v)[1];
            } else if (v->size() == 4) {
                im.dx = (*v)[0];
                im.dy = (*v)[1];
                im.dw = (*v)[2];
                im.dh = (*v)[3];
            } else {
                im.source_rect = partial_image{(*v)[0], (*v)[1], (*v)[2], (*v)[3]};
                im.dx = (*v)[4];
                im.dy = (*v)[5];
                im.dw = (*v)[6];
                im.dh = (*v)[7];
            }
            return done(draw_image_op{std::move(im)});
        });
    }
    case method::create_image_data: {
        if (auto* other = host_of<image_data_host>(args.empty() ? e::undefined() : args[0])) {
            return new_image_data(engine, other->state.width, other->state.height);
        }
        return with_numbers(2, [&](auto const& v) -> e::expr_res<js_value> {
            double const w = std::abs(std::trunc(v[0]));
            double const h = std::abs(std::trunc(v[1]));
            if (w == 0 || h == 0 || w * h > 1 << 26) {
                return host_exception(engine, "DOMException", index_size_err, "createImageData: bad size");
            }
            return new_image_data(engine, static_cast<int>(w), static_cast<int>(h));
        });
    }
    case method::put_image_data: {
        auto* data = host_of<image_data_host>(args.empty() ? e::undefined() : args[0]);
        if (data == nullptr || (args.size() != 3 && args.size() != 7)) {
            return e::throw_error(engine, e::js_error::invalid_arguments);
        }
        std::vector<js_value> const rest(args.begin() + 1, args.end());
        auto r = numbers(engine, rest, rest.size());
        if (auto const* x = std::get_if<e::exception>(&r)) {
            return *x;
        }
        auto const& v = std::get<std::optional<std::vector<double>>>(r);
        if (!v) {
            return e::undefined();
        }
        auto const& st = data->state;
        canvas_image_data d{.data_content = bytes::from_vector(*st.data),
                            .data_width = st.width,
                            .data_height = st.height,
                            .data_dx = std::trunc((*v)[0]),
                            .data_dy = std::trunc((*v)[1]),
                            .dirty_w = st.width,
                            .dirty_h = st.height};
        if (v->size() == 6) {
            double x = std::trunc((*v)[2]);
            double y = std::trunc((*v)[3]);
            double w = std::trunc((*v)[4]);
            double h = std::trunc((*v)[5]);
            // A negative extent reaches back from its corner.
            if (w < 0) {
                x += w;
                w = -w;
            }
            if (h < 0) {
                y += h;
                h = -h;
            }
            d.dirty_x = static_cast<int>(std::clamp(x, -1e9, 1e9));
            d.dirty_y = static_cast<int>(std::clamp(y, -1e9, 1e9));
            d.dirty_w = static_cast<int>(std::min(w, 1e9));
            d.dirty_h = static_cast<int>(std::min(h, 1e9));
        }
        return done(put_image_data_op{std::move(d)});
    }
    case method::get_image_data:
        not_supported(engine, "getImageData");
        return e::undefined();
    case method::is_point_in_path:
        not_supported(engine, "isPointInPath");
        return js_value{false};
    case method::measure_text:
        not_supported(engine, "measureText");
        return e::undefined();
    case method::draw_system_focus_ring:
        not_supported(engine, "drawSystemFocusRing");
        return e::undefined();
    case method::draw_custom_focus_ring:
        not_supported(engine, "drawCustomFocusRing");
        return js_value{false};
    case method::scroll_path_into_view:
        not_supported(engine, "scrollPathIntoView");
        return e::undefined();
    default:
        return e::throw_error(engine, e::js_error::not_function);
    }
}

e::expr_res<js_value> add_color_stop(e::js& engine, js_value const& this_value, std::vector<js_value> const& args) {
    auto* g = host_of<gradient_host>(this_value);
    if (g == nullptr) {
        return e::throw_error(engine, e::js_error::invalid_this);
    }
    if (args.size() < 2) {
        return e::throw_error(engine, e::js_error::invalid_arguments);
    }
    auto n = e::to_number(engine, args[0]);
    if (auto const* x = std::get_if<e::exception>(&n)) {
        return *x;
    }
    double const offset = e::to_double(std::get<js::number>(n));
    if (!(offset >= 0 && offset <= 1)) {
        return host_exception(engine, "DOMException", index_size_err, "addColorStop: offset out of range");
    }
    auto t = text_of(engine, args[1]);
    if (auto const* x = std::get_if<e::exception>(&t)) {
        return *x;
    }
    auto const c = css::color::parse_color_text(std::get<std::string>(t));
    if (!c) {
        return host_exception(engine, "DOMException", syntax_err, "addColorStop: invalid colour");
    }
    double alpha = 1;
    if (auto const* a = std::get_if<css::color::rgba>(&static_cast<css::color::color_alternative const&>(*c))) {
        alpha = a->a;
    }
    // Stops stay in order of offset; one at an offset already taken goes after the others there.
    auto& stops = g->state->gradient_stops;
    auto const at = std::upper_bound(stops.begin(), stops.end(), offset,
                                     [](double o, svg::stop const& s) { return o < s.stop_offset; });
    stops.insert(at, svg::stop{.stop_offset = offset, .stop_color = *c, .stop_opacity = alpha});
    return e::undefined();
}

e::expr_res<js_value> method_host::binding_call(e::js& engine, js_value const& this_value, std::vector<js_value> const& args) {
    switch (method) {
    case method::add_color_stop:
        return add_color_stop(engine, this_value, args);
    case method::pattern_set_transform: {
        auto* p = host_of<pattern_host>(this_value);
        if (p == nullptr) {
            return e::throw_error(engine, e::js_error::invalid_this);
        }
        auto const* m = host_of<matrix_host>(args.empty() ? e::undefined() : args[0]);
        if (m == nullptr) {
            return e::throw_error(engine, e::js_error::invalid_arguments);
        }
        p->state->pattern_transform = *m->state;
        return e::undefined();
    }
    case method::matrix_construct:
    case method::matrix_multiply:
    case method::matrix_inverse:
    case method::matrix_translate:
    case method::matrix_scale:
    case method::matrix_scale_non_uniform:
    case method::matrix_rotate:
    case method::matrix_rotate_from_vector:
    case method::matrix_flip_x:
    case method::matrix_flip_y:
    case method::matrix_skew_x:
    case method::matrix_skew_y:
        return matrix_method(engine, method, this_value, args);
    default: {
        auto const ctx = context_of(this_value);
        if (!ctx) {
            return e::throw_error(engine, e::js_error::invalid_this);
        }
        return context_method(engine, *ctx, method, args);
    }
    }
}

e::host_value method_value(method m) {
    auto h = std::make_shared<method_host>();
    h->method = m;
    return h;
}

struct named_method {
    char const* name;
    canvas::method method;
    int length;
};

constexpr named_method context_methods[] = {
    {"save", method::save, 0},
    {"restore", method::restore, 0},
    {"scale", method::scale, 2},
    {"rotate", method::rotate, 1},
    {"translate", method::translate, 2},
    {"transform", method::transform, 6},
    {"setTransform", method::set_transform, 6},
    {"resetTransform", method::reset_transform, 0},
    {"moveTo", method::move_to, 2},
    {"lineTo", method::line_to, 2},
    {"rect", method::rect, 4},
    {"clearRect", method::clear_rect, 4},
    {"fillRect", method::fill_rect, 4},
    {"strokeRect", method::stroke_rect, 4},
    {"arc", method::arc, 5},
    {"arcTo", method::arc_to, 5},
    {"ellipse", method::ellipse, 7},
    {"bezierCurveTo", method::bezier_curve_to, 6},
    {"quadraticCurveTo", method::quadratic_curve_to, 4},
    {"beginPath", method::begin_path, 0},
    {"closePath", method::close_path, 0},
    {"fill", method::fill, 0},
    {"stroke", method::stroke, 0},
    {"setLineDash", method::set_line_dash, 1},
    {"getLineDash", method::get_line_dash, 0},
    {"clip", method::clip, 0},
    {"resetClip", method::reset_clip, 0},
    {"fillText", method::fill_text, 3},
    {"strokeText", method::stroke_text, 3},
    {"createLinearGradient", method::create_linear_gradient, 4},
    {"createRadialGradient", method::create_radial_gradient, 6},
    {"createPattern", method::create_pattern, 2},
    {"drawImage", method::draw_image, 3},
    {"createImageData", method::create_image_data, 2},
    {"putImageData", method::put_image_data, 3},
    {"getImageData", method::get_image_data, 4},
    {"isPointInPath", method::is_point_in_path, 2},
    {"measureText", method::measure_text, 1},
    {"drawSystemFocusRing", method::draw_system_focus_ring, 1},
    {"drawCustomFocusRing", method::draw_custom_focus_ring, 1},
    {"scrollPathIntoView", method::scroll_path_into_view, 0},
};

constexpr named_method matrix_methods[] = {
    {"multiply", method::matrix_multiply, 1},
    {"inverse", method::matrix_inverse, 0},
    {"translate", method::matrix_translate, 2},
    {"scale", method::matrix_scale, 1},
    {"scaleNonUniform", method::matrix_scale_non_uniform, 2},
    {"rotate", method::matrix_rotate, 1},
    {"rotateFromVector", method::matrix_rotate_from_vector, 2},
    {"flipX", method::matrix_flip_x, 0},
    {"flipY", method::matrix_flip_y, 0},
    {"skewX", method::matrix_skew_x, 1},
    {"skewY", method::matrix_skew_y, 1},
};

struct named_property {
    char const* name;
    canvas::property property;
};

// The properties of a context object. `shadowBlur` is reached as "shadowBlue", the name scripts of this
// system have always used.
constexpr named_property context_properties[] = {
    {"globalAlpha", property::global_alpha},
    {"globalCompositeOperation", property::global_composite_operation},
    {"strokeStyle", property::stroke_style},
    {"fillStyle", property::fill_style},
    {"lineWidth", property::line_width},
    {"lineCap", property::line_cap},
    {"lineJoin", property::line_join},
    {"lineDashOffset", property::line_dash_offset},
    {"miterLimit", property::miter_limit},
    {"font", property::font},
    {"textAlign", property::text_align},
    {"textBaseline", property::text_baseline},
    {"shadowColor", property::shadow_color},
    {"shadowOffsetX", property::shadow_offset_x},
    {"shadowOffsetY", property::shadow_offset_y},
    {"shadowBlue", property::shadow_blur},
};

js_object new_context_object(e::js& engine, std::shared_ptr<canvas_context> const& ctx) {
    js_object const o = new_host_object(engine, prototypes_of(engine).context_prototype, "CanvasRenderingContext2D", ctx);
    for (auto const& p : context_properties) {
        auto get = std::make_shared<property_host>();
        get->context = ctx;
        get->property = p.property;
        auto set = std::make_shared<property_host>(*get);
        set->setter = true;
        e::define_own_property(o, e::key_of_utf8(p.name),
                               e::prop_host{.host_getter = e::host_accessor{get}, .host_setter = e::host_accessor{set}},
                               e::attrs{});
    }
    return o;
}

} // namespace

void install_canvas_interfaces(e::js& engine, js_object object_prototype) {
    auto const parent_of = [&](webidl::webidl_interface const& i) {
        i.prototype->obj_prototype = e::yes_proto{.proto = object_prototype};
        return i;
    };
    auto const matrix = parent_of(webidl::make_interface(engine, "SVGMatrix", std::nullopt, method_value(method::matrix_construct)));
    auto const context = parent_of(webidl::make_interface(engine, "CanvasRenderingContext2D", std::nullopt));
    auto const image_data = parent_of(webidl::make_interface(engine, "ImageData", std::nullopt));
    auto const gradient = parent_of(webidl::make_interface(engine, "CanvasGradient", std::nullopt));
    auto const pattern = parent_of(webidl::make_interface(engine, "CanvasPattern", std::nullopt));
    for (auto const& m : matrix_methods) {
        webidl::add_method(engine, matrix.prototype, m.name, method_value(m.method), m.length);
    }
    for (auto const& m : context_methods) {
        webidl::add_method(engine, context.prototype, m.name, method_value(m.method), m.length);
    }
    webidl::add_method(engine, gradient.prototype, "addColorStop", method_value(method::add_color_stop), 2);
    webidl::add_method(engine, pattern.prototype, "setTransform", method_value(method::pattern_set_transform), 1);
    registry()[&engine] = canvas_prototypes{.context_prototype = context.prototype,
                                            .image_data_prototype = image_data.prototype,
                                            .gradient_prototype = gradient.prototype,
                                            .pattern_prototype = pattern.prototype,
                                            .matrix_prototype = matrix.prototype};
}

js_value get_context(e::js& engine, dom::dom_element& canvas_element, std::string_view kind) {
    if (kind != "2d" || !canvas_element.dom_element_canvas_context) {
        return e::js_null{};
    }
    auto& cell = *canvas_element.dom_element_canvas_context;
    auto current = cell.get();
    if (!current.context_2d) {
        current.context_2d = std::make_shared<canvas_context>(
            new_context(current.context_size.canvas_width, current.context_size.canvas_height));
        cell.set(current);
    }
    auto& ctx = *current.context_2d;
    if (!ctx.canvas_context_object_ref) {
        ctx.canvas_context_object_ref = new_context_object(engine, current.context_2d);
    }
    return *ctx.canvas_context_object_ref;
}

void reset_context(dom::dom_element& canvas_element) {
    if (!canvas_element.dom_element_canvas_context) {
        return;
    }
    auto& cell = *canvas_element.dom_element_canvas_context;
    auto current = cell.get();
    current.context_size = dom::element_canvas_size(canvas_element);
    if (current.context_2d) {
        // The drawing and the state start again; the script object stays the element's context.
        auto const object = current.context_2d->canvas_context_object_ref;
        *current.context_2d = new_context(current.context_size.canvas_width, current.context_size.canvas_height);
        current.context_2d->canvas_context_object_ref = object;
    }
    cell.set(current);
}

} // namespace vellum::canvas
