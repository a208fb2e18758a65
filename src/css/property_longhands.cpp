// The value parsers of the longhands and the dispatch from a property name to its parser.
#include "css/property.hpp"
#include "css/property_parse.hpp"

#include <algorithm>
#include <array>
#include <cmath>

namespace vellum::css::property {

namespace parse {

namespace {

using box::auto_value;
using box::none_value;
using box::normal_value;

std::string lower(std::string_view s) {
    std::string out(s);
    for (char& c : out) {
        if (c >= 'A' && c <= 'Z') {
            c = static_cast<char>(c - 'A' + 'a');
        }
    }
    return out;
}

// A keyword table for an enumeration, written inline at each parser.
template <class E, class... Pairs>
constexpr auto table(Pairs... pairs) {
    return keyword_table<E, sizeof...(Pairs)>{{pairs...}};
}

template <class T>
using opt = std::optional<T>;

bool is_function(value::value const& v, std::string_view name) {
    auto const* f = std::get_if<value::function>(&v);
    return f && lower(f->function_name) == name;
}

std::optional<units::length_percent> non_negative_length_percent(value::value const& v) {
    auto lp = units::length_percent_from_value(v);
    if (!lp) {
        return std::nullopt;
    }
    if (auto const* p = std::get_if<units::percentage>(&*lp); p && p->percentage_value < 0) {
        return std::nullopt;
    }
    if (auto const* l = std::get_if<units::length>(&*lp); l && !non_negative_length(v)) {
        return std::nullopt;
    }
    return lp;
}

template <class T>
std::optional<std::vector<T>> each_layer(value::value const& v,
                                         std::optional<T> (*one)(value::value const&)) {
    std::vector<T> out;
    for (auto const& run : comma_runs(v)) {
        if (run.size() != 1) {
            return std::nullopt;
        }
        auto x = one(run[0]);
        if (!x) {
            return std::nullopt;
        }
        out.push_back(std::move(*x));
    }
    return out;
}

std::optional<float> number_in(value::value const& v, double lo, double hi) {
    auto const n = units::number_from_value(v);
    if (!n) {
        return std::nullopt;
    }
    return static_cast<float>(std::clamp(*n, lo, hi));
}

std::optional<int> int_at_least(value::value const& v, int lo) {
    auto const n = units::integer_from_value(v);
    if (!n || *n < lo) {
        return std::nullopt;
    }
    return n;
}

bool is_content_keyword(std::string const& word) {
    static constexpr std::array<std::string_view, 6> words{"open-quote",     "close-quote", "no-open-quote",
                                                           "no-close-quote", "contents",    "footnote"};
    return std::find(words.begin(), words.end(), word) != words.end();
}

// The items of a content list: strings, URLs, attr(), functions such as counter() and quote keywords.
std::optional<content_list> content_items(std::span<value::value const> terms) {
    content_list out;
    for (auto const& t : terms) {
        bool const ok =
            std::visit(overloaded{
                           [](value::ident const& i) { return is_content_keyword(lower(i.ident_name)); },
                           [](value::string const&) { return true; },
                           [](value::attr const&) { return true; },
                           [](value::url const&) { return true; },
                           [](value::function const&) { return true; },
                           [](value::number const&) { return false; },
                           [](value::dimension const&) { return false; },
                           [](value::percent const&) { return false; },
                           [](value::hexcolor const&) { return false; },
                           [](value::unicode_range const&) { return false; },
                           [](value::values const&) { return false; },
                           [](value::slash const&) { return false; },
                           [](value::comma const&) { return false; },
                       },
                       t);
        if (!ok) {
            return std::nullopt;
        }
        out.content_items.push_back(t);
    }
    if (out.content_items.empty()) {
        return std::nullopt;
    }
    return out;
}

std::optional<content_terms> content_or_none(value::value const& v) {
    if (is_keyword(v, "none")) {
        return none_value{};
    }
    auto items = content_items(terms_of(v));
    if (!items) {
        return std::nullopt;
    }
    return std::move(*items);
}

// An integer, or attr() that gives one; an attr() default must be an integer.
std::optional<expr::or_attr<int>> int_or_attr(value::value const& v) {
    if (auto const n = units::integer_from_value(v)) {
        return *n;
    }
    auto const* a = std::get_if<value::attr>(&v);
    if (!a) {
        return std::nullopt;
    }
    auto const type = expr::attr_type_of(a->attr_type);
    if (!type) {
        return std::nullopt;
    }
    expr::expr<int> e{.expr_name = a->attr_name, .expr_type = *type, .expr_default = std::nullopt};
    if (a->attr_default) {
        auto const d = units::integer_from_value(*a->attr_default);
        if (!d) {
            return std::nullopt;
        }
        e.expr_default = *d;
    }
    return e;
}

std::optional<box::spec_counters> counter_list(value::value const& v, int step) {
    if (is_keyword(v, "none")) {
        return box::spec_counters{};
    }
    box::spec_counters out;
    auto const terms = terms_of(v);
    for (std::size_t i = 0; i < terms.size(); ++i) {
        auto const name = std::get_if<value::ident>(&terms[i]);
        if (!name) {
            return std::nullopt;
        }
        expr::or_attr<int> n = step;
        if (i + 1 < terms.size()) {
            if (auto k = int_or_attr(terms[i + 1])) {
                n = std::move(*k);
                ++i;
            }
        }
        out.emplace_back(name->ident_name, std::move(n));
    }
    return out;
}

} // namespace

std::optional<std::string> keyword_of(value::value const& v) {
    if (auto const* i = std::get_if<value::ident>(&v)) {
        return lower(i->ident_name);
    }
    return std::nullopt;
}

bool is_keyword(value::value const& v, std::string_view word) {
    auto const k = keyword_of(v);
    return k && *k == word;
}

std::span<value::value const> terms_of(value::value const& v) {
    if (auto const* list = std::get_if<value::values>(&v)) {
        return list->value_list;
    }
    return {&v, 1};
}

std::vector<std::vector<value::value>> comma_runs(value::value const& v) {
    std::vector<std::vector<value::value>> runs(1);
    for (auto const& t : terms_of(v)) {
        if (std::holds_alternative<value::comma>(t)) {
            runs.emplace_back();
        } else {
            runs.back().push_back(t);
        }
    }
    return runs;
}

value::value as_value(std::span<value::value const> run) {
    if (run.size() == 1) {
        return run[0];
    }
    return value::values{std::vector<value::value>(run.begin(), run.end())};
}

std::optional<units::length> non_negative_length(value::value const& v) {
    auto const l = units::length_from_value(v);
    if (!l) {
        return std::nullopt;
    }
    bool const negative = std::visit(overloaded{
                                         [](units::points const& p) { return p.points_value < 0; },
                                         [](units::font_em const& e) { return e.em_value < 0; },
                                         [](units::font_ex const& e) { return e.ex_value < 0; },
                                         [](units::pixels const& p) { return p.pixels_value < 0; },
                                     },
                                     *l);
    if (negative) {
        return std::nullopt;
    }
    return l;
}

// Colours and paints.

opt<color::spec_color> parse_color(value::value const& v) {
    return color::parse_spec_color(v);
}

opt<svgstyle::spec_paint> parse_paint(value::value const& v) {
    if (is_keyword(v, "none")) {
        return none_value{};
    }
    if (auto const* u = std::get_if<value::url>(&v)) {
        return *u;
    }
    if (auto c = color::parse_spec_color(v)) {
        return std::move(*c);
    }
    return std::nullopt;
}

// Lengths of boxes.

opt<box::spec_width> parse_width(value::value const& v) {
    if (is_keyword(v, "auto")) {
        return auto_value{};
    }
    auto lp = non_negative_length_percent(v);
    if (!lp) {
        return std::nullopt;
    }
    return std::visit([](auto const& x) -> box::spec_width { return x; }, *lp);
}

opt<box::spec_margin> parse_margin(value::value const& v) {
    if (is_keyword(v, "auto")) {
        return auto_value{};
    }
    auto lp = units::length_percent_from_value(v);
    if (!lp) {
        return std::nullopt;
    }
    return std::visit([](auto const& x) -> box::spec_margin { return x; }, *lp);
}

opt<box::spec_offset> parse_offset(value::value const& v) {
    return parse_margin(v);
}

opt<box::spec_padding> parse_padding(value::value const& v) {
    auto lp = non_negative_length_percent(v);
    if (!lp) {
        return std::nullopt;
    }
    return std::visit([](auto const& x) -> box::spec_padding { return x; }, *lp);
}

opt<box::spec_min_width> parse_min_width(value::value const& v) {
    // "auto" for a minimum size means no minimum.
    if (is_keyword(v, "auto")) {
        return units::length{units::points{0}};
    }
    return parse_padding(v);
}

opt<box::spec_max_width> parse_max_width(value::value const& v) {
    if (is_keyword(v, "none")) {
        return none_value{};
    }
    auto lp = non_negative_length_percent(v);
    if (!lp) {
        return std::nullopt;
    }
    return std::visit([](auto const& x) -> box::spec_max_width { return x; }, *lp);
}

opt<units::length_percent> parse_length_percent(value::value const& v) {
    return units::length_percent_from_value(v);
}

opt<box::spec_spacing> parse_spacing(value::value const& v) {
    if (is_keyword(v, "normal")) {
        return normal_value{};
    }
    if (auto l = units::length_from_value(v)) {
        return *l;
    }
    return std::nullopt;
}

opt<box::spec_spacing> parse_gap(value::value const& v) {
    if (is_keyword(v, "normal")) {
        return normal_value{};
    }
    if (auto l = non_negative_length(v)) {
        return *l;
    }
    return std::nullopt;
}

opt<box::spec_column_width> parse_column_width(value::value const& v) {
    if (is_keyword(v, "auto")) {
        return auto_value{};
    }
    auto const l = non_negative_length(v);
    if (!l) {
        return std::nullopt;
    }
    return *l;
}

opt<box::column_count> parse_column_count(value::value const& v) {
    if (is_keyword(v, "auto")) {
        return auto_value{};
    }
    auto const n = int_at_least(v, 1);
    if (!n) {
        return std::nullopt;
    }
    return *n;
}

opt<box::spec_vertical_align> parse_vertical_align(value::value const& v) {
    using k = box::vertical_align_kind;
    static constexpr auto words =
        table<k>(std::pair{"baseline", k::baseline}, std::pair{"sub", k::sub}, std::pair{"super", k::super},
                 std::pair{"top", k::top}, std::pair{"text-top", k::text_top}, std::pair{"middle", k::middle},
                 std::pair{"bottom", k::bottom}, std::pair{"text-bottom", k::text_bottom});
    if (auto const w = keyword(v, words)) {
        return *w;
    }
    auto lp = units::length_percent_from_value(v);
    if (!lp) {
        return std::nullopt;
    }
    return std::visit([](auto const& x) -> box::spec_vertical_align { return x; }, *lp);
}

// Borders.

opt<box::line_style> parse_line_style(value::value const& v) {
    using s = box::line_style;
    static constexpr auto words =
        table<s>(std::pair{"none", s::none}, std::pair{"hidden", s::hidden}, std::pair{"dashed", s::dashed},
                 std::pair{"dotted", s::dotted}, std::pair{"solid", s::solid}, std::pair{"inset", s::inset},
                 std::pair{"outset", s::outset}, std::pair{"groove", s::groove}, std::pair{"ridge", s::ridge},
                 std::pair{"double", s::double_});
    return keyword(v, words);
}

opt<box::spec_border_width> parse_border_width(value::value const& v) {
    using b = box::border_keyword;
    static constexpr auto words =
        table<b>(std::pair{"thin", b::thin}, std::pair{"medium", b::medium}, std::pair{"thick", b::thick});
    if (auto const w = keyword(v, words)) {
        return *w;
    }
    if (auto const l = non_negative_length(v)) {
        return *l;
    }
    return std::nullopt;
}

opt<box::spec_radius> parse_radius(value::value const& v) {
    auto const terms = terms_of(v);
    if (terms.empty() || terms.size() > 2) {
        return std::nullopt;
    }
    auto const h = non_negative_length_percent(terms[0]);
    auto const r = non_negative_length_percent(terms.back());
    if (!h || !r) {
        return std::nullopt;
    }
    auto as_lp = [](units::length_percent const& x) {
        return std::visit([](auto const& y) -> box::length_or_percent<units::length> { return y; }, x);
    };
    return box::spec_radius{as_lp(*h), as_lp(*r)};
}

opt<box::spec_border_clip> parse_border_clip(value::value const& v) {
    if (is_keyword(v, "normal")) {
        return box::spec_border_clip{};
    }
    auto const terms = terms_of(v);
    if (terms.empty() || terms.size() > 4) {
        return std::nullopt;
    }
    std::vector<units::length> given;
    for (auto const& t : terms) {
        auto const l = units::length_from_value(t);
        if (!l) {
            return std::nullopt;
        }
        given.push_back(*l);
    }
    // One to four values for top, right, bottom and left, as margins take them.
    std::size_t const n = given.size();
    std::array<units::length, 4> sides{given[0], given[n > 1 ? 1 : 0], given[n > 2 ? 2 : 0],
                                       given[n > 3 ? 3 : (n > 1 ? 1 : 0)]};
    return box::spec_border_clip{sides};
}

opt<box::border_collapse> parse_border_collapse(value::value const& v) {
    using b = box::border_collapse;
    static constexpr auto words =
        table<b>(std::pair{"separate", b::separate}, std::pair{"collapse", b::collapse});
    return keyword(v, words);
}

opt<box::spec_cellspacing> parse_border_spacing(value::value const& v) {
    auto const terms = terms_of(v);
    if (terms.empty() || terms.size() > 2) {
        return std::nullopt;
    }
    auto const h = non_negative_length(terms[0]);
    auto const w = non_negative_length(terms.back());
    if (!h || !w) {
        return std::nullopt;
    }
    return box::spec_cellspacing{*h, *w};
}

// Backgrounds.

opt<box::background_attachment> parse_bg_attachment(value::value const& v) {
    using a = box::background_attachment;
    static constexpr auto words =
        table<a>(std::pair{"scroll", a::scroll}, std::pair{"fixed", a::fixed}, std::pair{"local", a::local});
    return keyword(v, words);
}

opt<box::background_box> parse_bg_box(value::value const& v) {
    using b = box::background_box;
    static constexpr auto words =
        table<b>(std::pair{"border-box", b::border_box}, std::pair{"padding-box", b::padding_box},
                 std::pair{"content-box", b::content_box});
    return keyword(v, words);
}

opt<box::bg_image> parse_bg_image(value::value const& v) {
    if (is_keyword(v, "none")) {
        return none_value{};
    }
    if (auto const* u = std::get_if<value::url>(&v)) {
        return *u;
    }
    if (auto const* f = std::get_if<value::function>(&v)) {
        auto const name = lower(f->function_name);
        if (name == "linear-gradient" || name == "radial-gradient" || name == "repeating-linear-gradient" ||
            name == "repeating-radial-gradient") {
            return *f;
        }
    }
    return std::nullopt;
}

opt<box::background_repeat0> parse_repeat0(value::value const& v) {
    using r = box::background_repeat0;
    static constexpr auto words =
        table<r>(std::pair{"repeat", r::repeat}, std::pair{"no-repeat", r::no_repeat},
                 std::pair{"round", r::round}, std::pair{"space", r::space});
    return keyword(v, words);
}

opt<std::vector<box::background_attachment>> parse_bg_attachments(value::value const& v) {
    return each_layer(v, &parse_bg_attachment);
}

opt<std::vector<box::background_box>> parse_bg_boxes(value::value const& v) {
    return each_layer(v, &parse_bg_box);
}

opt<std::vector<box::bg_image>> parse_bg_images(value::value const& v) {
    return each_layer(v, &parse_bg_image);
}

opt<box::background_repeat> repeat_terms(std::span<value::value const> terms) {
    using r = box::background_repeat0;
    if (terms.size() == 1) {
        if (is_keyword(terms[0], "repeat-x")) {
            return box::background_repeat{r::repeat, r::no_repeat};
        }
        if (is_keyword(terms[0], "repeat-y")) {
            return box::background_repeat{r::no_repeat, r::repeat};
        }
        if (auto const x = parse_repeat0(terms[0])) {
            return box::background_repeat{*x, *x};
        }
        return std::nullopt;
    }
    if (terms.size() == 2) {
        auto const x = parse_repeat0(terms[0]);
        auto const y = parse_repeat0(terms[1]);
        if (x && y) {
            return box::background_repeat{*x, *y};
        }
    }
    return std::nullopt;
}

opt<std::vector<box::background_repeat>> parse_bg_repeats(value::value const& v) {
    std::vector<box::background_repeat> out;
    for (auto const& run : comma_runs(v)) {
        auto r = repeat_terms(run);
        if (!r) {
            return std::nullopt;
        }
        out.push_back(*r);
    }
    return out;
}

std::optional<box::spec_bg_position> parse_position_terms(std::span<value::value const> terms) {
    using lp = box::length_or_percent<units::length>;
    enum class axis { either, x, y };

    struct component {
        axis component_axis;
        lp component_value;
    };

    auto read = [](value::value const& t) -> std::optional<component> {
        auto const k = keyword_of(t);
        if (k == "left") {
            return component{axis::x, units::percentage{0}};
        }
        if (k == "right") {
            return component{axis::x, units::percentage{100}};
        }
        if (k == "top") {
            return component{axis::y, units::percentage{0}};
        }
        if (k == "bottom") {
            return component{axis::y, units::percentage{100}};
        }
        if (k == "center") {
            return component{axis::either, units::percentage{50}};
        }
        auto const x = units::length_percent_from_value(t);
        if (!x) {
            return std::nullopt;
        }
        return component{axis::either, std::visit([](auto const& y) -> lp { return y; }, *x)};
    };
    if (terms.size() == 4) {
        // "left 10px top 20%": edges with offsets; a far edge takes a percentage offset from the far side.
        auto const e1 = keyword_of(terms[0]);
        auto const e2 = keyword_of(terms[2]);
        auto const o1 = units::length_percent_from_value(terms[1]);
        auto const o2 = units::length_percent_from_value(terms[3]);
        if (!e1 || !e2 || !o1 || !o2) {
            return std::nullopt;
        }
        auto from_edge = [](std::string const& edge, units::length_percent const& off) -> std::optional<lp> {
            if (edge == "left" || edge == "top") {
                return std::visit([](auto const& y) -> lp { return y; }, off);
            }
            if (auto const* p = std::get_if<units::percentage>(&off)) {
                return units::percentage{100 - p->percentage_value, -p->percentage_offset};
            }
            return std::nullopt;
        };
        bool const x_first = *e1 == "left" || *e1 == "right";
        bool const y_second = *e2 == "top" || *e2 == "bottom";
        bool const y_first = *e1 == "top" || *e1 == "bottom";
        bool const x_second = *e2 == "left" || *e2 == "right";
        if (!((x_first && y_second) || (y_first && x_second))) {
            return std::nullopt;
        }
        auto const a = from_edge(*e1, *o1);
        auto const b = from_edge(*e2, *o2);
        if (!a || !b) {
            return std::nullopt;
        }
        return x_first ? box::spec_bg_position{*a, *b} : box::spec_bg_position{*b, *a};
    }
    if (terms.empty() || terms.size() > 2) {
        return std::nullopt;
    }
    auto const first = read(terms[0]);
    if (!first) {
        return std::nullopt;
    }
    if (terms.size() == 1) {
        if (first->component_axis == axis::y) {
            return box::spec_bg_position{units::percentage{50}, first->component_value};
        }
        return box::spec_bg_position{first->component_value, units::percentage{50}};
    }
    auto const second = read(terms[1]);
    if (!second) {
        return std::nullopt;
    }
    // "top left" names the axes the other way round; lengths always come x first.
    if (first->component_axis == axis::y || second->component_axis == axis::x) {
        if (first->component_axis == axis::x || second->component_axis == axis::y) {
            return std::nullopt;
        }
        return box::spec_bg_position{second->component_value, first->component_value};
    }
    return box::spec_bg_position{first->component_value, second->component_value};
}

opt<std::vector<box::spec_bg_position>> parse_bg_positions(value::value const& v) {
    std::vector<box::spec_bg_position> out;
    for (auto const& run : comma_runs(v)) {
        auto p = parse_position_terms(run);
        if (!p) {
            return std::nullopt;
        }
        out.push_back(*p);
    }
    return out;
}

std::optional<box::spec_bg_size> parse_size_terms(std::span<value::value const> terms) {
    using side = box::auto_length_percent<units::length>;
    if (terms.size() == 1 && is_keyword(terms[0], "cover")) {
        return box::bg_cover{};
    }
    if (terms.size() == 1 && is_keyword(terms[0], "contain")) {
        return box::bg_contain{};
    }
    if (terms.empty() || terms.size() > 2) {
        return std::nullopt;
    }
    auto read = [](value::value const& t) -> std::optional<side> {
        if (is_keyword(t, "auto")) {
            return auto_value{};
        }
        auto const x = non_negative_length_percent(t);
        if (!x) {
            return std::nullopt;
        }
        return std::visit([](auto const& y) -> side { return y; }, *x);
    };
    auto const w = read(terms[0]);
    auto const h = terms.size() == 2 ? read(terms[1]) : std::optional<side>{auto_value{}};
    if (!w || !h) {
        return std::nullopt;
    }
    return box::bg_size_pair<units::length>{*w, *h};
}

opt<std::vector<box::spec_bg_size>> parse_bg_sizes(value::value const& v) {
    std::vector<box::spec_bg_size> out;
    for (auto const& run : comma_runs(v)) {
        auto s = parse_size_terms(run);
        if (!s) {
            return std::nullopt;
        }
        out.push_back(*s);
    }
    return out;
}

opt<box::image_resolution> parse_image_resolution(value::value const& v) {
    if (is_keyword(v, "normal") || is_keyword(v, "auto")) {
        return box::resolution_normal{};
    }
    if (is_keyword(v, "from-image")) {
        return box::resolution_from_image{};
    }
    auto const* d = std::get_if<value::dimension>(&v);
    if (!d) {
        return std::nullopt;
    }
    double const n = number_as_double(d->dimension_value);
    if (n <= 0) {
        return std::nullopt;
    }
    if (d->dimension_unit == "dpi") {
        return box::resolution_dpi{static_cast<float>(n)};
    }
    if (d->dimension_unit == "dpcm") {
        return box::resolution_dpi{static_cast<float>(n * 2.54)};
    }
    if (d->dimension_unit == "dppx") {
        return box::resolution_dpi{static_cast<float>(n * 96)};
    }
    return std::nullopt;
}

// Display, floats, flows, positions.

opt<box::display> parse_display(value::value const& v) {
    using d = box::display_kind;
    static constexpr auto words =
        table<d>(std::pair{"inline", d::inline_}, std::pair{"block", d::block}, std::pair{"none", d::none},
                 std::pair{"inline-block", d::inline_block}, std::pair{"inline-table", d::inline_table},
                 std::pair{"table", d::table}, std::pair{"table-caption", d::table_caption},
                 std::pair{"table-header-group", d::table_header_group},
                 std::pair{"table-footer-group", d::table_footer_group},
                 std::pair{"table-row-group", d::table_row_group}, std::pair{"table-row", d::table_row},
                 std::pair{"table-cell", d::table_cell}, std::pair{"table-column", d::table_column},
                 std::pair{"table-column-group", d::table_column_group}, std::pair{"list-item", d::list_item},
                 std::pair{"run-in", d::run_in});
    if (auto const w = keyword(v, words)) {
        return *w;
    }
    if (is_keyword(v, "footnote")) {
        return box::display_footnote{box::footnote_container::page, false};
    }
    if (is_keyword(v, "inline-footnote")) {
        return box::display_footnote{box::footnote_container::page, true};
    }
    return std::nullopt;
}

opt<box::floaty> parse_floaty(value::value const& v) {
    using f = box::float_kind;
    static constexpr auto words =
        table<f>(std::pair{"none", f::none}, std::pair{"inside", f::inside}, std::pair{"outside", f::outside},
                 std::pair{"left", f::left}, std::pair{"right", f::right});
    auto const terms = terms_of(v);
    if (terms.size() == 1) {
        if (auto const w = keyword(v, words)) {
            return *w;
        }
        auto const k = keyword_of(v);
        if (k == "footnote") {
            return box::float_footnote{box::footnote_container::page, false};
        }
        if (k == "inline-footnote") {
            return box::float_footnote{box::footnote_container::page, true};
        }
        if (k == "column-footnote") {
            return box::float_footnote{box::footnote_container::column, false};
        }
        if (k == "column-inline-footnote") {
            return box::float_footnote{box::footnote_container::column, true};
        }
    }
    // Page and column floats: "top", "bottom", "top-corner", "bottom-corner", "snap", and the same with
    // "column-" in front, each optionally followed by "next" or "unless-fit".
    if (terms.empty() || terms.size() > 2) {
        return std::nullopt;
    }
    auto const edge_word = keyword_of(terms[0]);
    if (!edge_word) {
        return std::nullopt;
    }
    bool column = false;
    std::string_view edge = *edge_word;
    if (edge.starts_with("column-")) {
        column = true;
        edge.remove_prefix(7);
    }
    box::page_column_float pf;
    if (edge == "top") {
        pf.float_to_edge = box::float_edge::top;
    } else if (edge == "bottom") {
        pf.float_to_edge = box::float_edge::bottom;
    } else if (edge == "top-corner") {
        pf.float_to_edge = box::float_edge::top_corner;
    } else if (edge == "bottom-corner") {
        pf.float_to_edge = box::float_edge::bottom_corner;
    } else if (edge == "snap") {
        pf.float_to_edge = box::float_edge::snap;
    } else {
        return std::nullopt;
    }
    if (terms.size() == 2) {
        auto const modifier = keyword_of(terms[1]);
        if (modifier == "next") {
            pf.float_next = true;
        } else if (modifier == "unless-fit") {
            pf.float_unless_fit = true;
        } else {
            return std::nullopt;
        }
    }
    if (column) {
        return box::float_column{pf};
    }
    return box::float_page{pf};
}

opt<box::flowy> parse_flowy(value::value const& v) {
    if (is_keyword(v, "normal") || is_keyword(v, "none")) {
        return box::flow_normal{};
    }
    if (!is_function(v, "static")) {
        return std::nullopt;
    }
    auto const& args = std::get<value::function>(v).function_args;
    if (args.empty() || args.size() > 2) {
        return std::nullopt;
    }
    auto const* name = std::get_if<value::ident>(&args[0]);
    if (!name) {
        return std::nullopt;
    }
    box::flow_static out{.flow_name = name->ident_name};
    if (args.size() == 2) {
        auto const when = keyword_of(args[1]);
        if (when == "start") {
            out.flow_start = box::flow_when::start;
        } else if (when != "current") {
            return std::nullopt;
        }
    }
    return out;
}

opt<box::position> parse_position(value::value const& v) {
    using p = box::position_kind;
    static constexpr auto words =
        table<p>(std::pair{"static", p::static_}, std::pair{"relative", p::relative},
                 std::pair{"absolute", p::absolute}, std::pair{"fixed", p::fixed});
    if (auto const w = keyword(v, words)) {
        return *w;
    }
    if (is_function(v, "running")) {
        auto const& args = std::get<value::function>(v).function_args;
        if (args.size() == 1) {
            if (auto const* name = std::get_if<value::ident>(&args[0])) {
                return box::position_running{name->ident_name};
            }
        }
    }
    return std::nullopt;
}

opt<box::clear> parse_clear(value::value const& v) {
    using c = box::clear;
    static constexpr auto words = table<c>(std::pair{"none", c::none}, std::pair{"left", c::left},
                                           std::pair{"right", c::right}, std::pair{"inside", c::inside},
                                           std::pair{"outside", c::outside}, std::pair{"both", c::both});
    return keyword(v, words);
}

opt<box::spec_clip> parse_clip(value::value const& v) {
    if (is_keyword(v, "auto")) {
        return auto_value{};
    }
    if (!is_function(v, "rect")) {
        return std::nullopt;
    }
    // rect(t, r, b, l), or the older rect(t r b l) without commas.
    auto const& args = std::get<value::function>(v).function_args;
    std::vector<value::value> sides;
    if (args.size() == 1) {
        auto const t = terms_of(args[0]);
        sides.assign(t.begin(), t.end());
    } else {
        sides = args;
    }
    if (sides.size() != 4) {
        return std::nullopt;
    }
    box::clip_rect<units::length> rect;
    for (std::size_t i = 0; i < 4; ++i) {
        if (is_keyword(sides[i], "auto")) {
            continue;
        }
        auto const l = units::length_from_value(sides[i]);
        if (!l) {
            return std::nullopt;
        }
        rect.clip_sides[i] = *l;
    }
    return rect;
}

opt<box::page_break> parse_page_break(value::value const& v) {
    using p = box::page_break;
    static constexpr auto words =
        table<p>(std::pair{"auto", p::auto_}, std::pair{"always", p::always}, std::pair{"avoid", p::avoid},
                 std::pair{"left", p::left}, std::pair{"right", p::right}, std::pair{"page", p::always},
                 std::pair{"avoid-page", p::avoid_page}, std::pair{"avoid-column", p::avoid_column}, std::pair{"recto", p::right}, std::pair{"verso", p::left});
    return keyword(v, words);
}

opt<box::page_break> parse_page_break_inside(value::value const& v) {
    using p = box::page_break;
    static constexpr auto words =
        table<p>(std::pair{"auto", p::auto_}, std::pair{"avoid", p::avoid}, std::pair{"avoid-page", p::avoid_page},
                 std::pair{"avoid-column", p::avoid_column});
    return keyword(v, words);
}

opt<box::column_break> parse_column_break(value::value const& v) {
    using c = box::column_break;
    static constexpr auto words =
        table<c>(std::pair{"auto", c::auto_}, std::pair{"always", c::always}, std::pair{"column", c::always});
    return keyword(v, words);
}

opt<box::page_group> parse_page_group(value::value const& v) {
    using p = box::page_group;
    static constexpr auto words = table<p>(std::pair{"auto", p::auto_}, std::pair{"start", p::start});
    return keyword(v, words);
}

opt<box::page> parse_page(value::value const& v) {
    if (is_keyword(v, "auto")) {
        return box::page{};
    }
    if (auto const* i = std::get_if<value::ident>(&v)) {
        return box::page{i->ident_name};
    }
    return std::nullopt;
}

opt<box::vellum_footnote_policy> parse_footnote_policy(value::value const& v) {
    using f = box::vellum_footnote_policy;
    static constexpr auto words =
        table<f>(std::pair{"auto", f::auto_}, std::pair{"line", f::line}, std::pair{"block", f::block});
    return keyword(v, words);
}

// Small enumerations.

opt<box::box_decoration_break> parse_box_decoration_break(value::value const& v) {
    using b = box::box_decoration_break;
    static constexpr auto words = table<b>(std::pair{"clone", b::clone}, std::pair{"slice", b::slice});
    return keyword(v, words);
}

opt<box::box_sizing> parse_box_sizing(value::value const& v) {
    using b = box::box_sizing;
    static constexpr auto words =
        table<b>(std::pair{"content-box", b::content_box}, std::pair{"padding-box", b::padding_box},
                 std::pair{"border-box", b::border_box});
    return keyword(v, words);
}

opt<box::object_fit> parse_object_fit(value::value const& v) {
    using o = box::object_fit;
    static constexpr auto words =
        table<o>(std::pair{"fill", o::fill}, std::pair{"contain", o::contain}, std::pair{"cover", o::cover},
                 std::pair{"none", o::none}, std::pair{"scale-down", o::scale_down});
    return keyword(v, words);
}

// The position of a replaced element's picture in its box, written as a background position is.
opt<box::spec_bg_position> parse_object_position(value::value const& v) {
    return parse_position_terms(terms_of(v));
}

opt<box::caption_page> parse_caption_page(value::value const& v) {
    using c = box::caption_page;
    static constexpr auto words = table<c>(std::pair{"first", c::first}, std::pair{"following", c::following},
                                           std::pair{"all", c::all_pages});
    return keyword(v, words);
}

opt<box::caption_side> parse_caption_side(value::value const& v) {
    using c = box::caption_side;
    static constexpr auto words = table<c>(std::pair{"top", c::top}, std::pair{"bottom", c::bottom});
    return keyword(v, words);
}

opt<box::overflow> parse_overflow(value::value const& v) {
    // Paged output cannot scroll: "auto" and "scroll" clip like "hidden".
    using o = box::overflow;
    static constexpr auto words = table<o>(std::pair{"visible", o::visible}, std::pair{"hidden", o::hidden},
                                           std::pair{"auto", o::hidden}, std::pair{"scroll", o::hidden});
    return keyword(v, words);
}

opt<box::table_layout> parse_table_layout(value::value const& v) {
    using t = box::table_layout;
    static constexpr auto words = table<t>(std::pair{"fixed", t::fixed}, std::pair{"auto", t::auto_});
    return keyword(v, words);
}

opt<box::unicode_bidi> parse_unicode_bidi(value::value const& v) {
    using u = box::unicode_bidi;
    static constexpr auto words = table<u>(std::pair{"normal", u::normal}, std::pair{"embed", u::embed},
                                           std::pair{"bidi-override", u::bidi_override});
    return keyword(v, words);
}

opt<box::writing_mode> parse_writing_mode(value::value const& v) {
    using w = box::writing_mode;
    static constexpr auto words = table<w>(
        std::pair{"horizontal-tb", w::horizontal}, std::pair{"lr", w::horizontal},
        std::pair{"lr-tb", w::horizontal}, std::pair{"rl", w::horizontal}, std::pair{"rl-tb", w::horizontal},
        std::pair{"vertical-rl", w::vertical}, std::pair{"vertical-lr", w::vertical},
        std::pair{"tb", w::vertical}, std::pair{"tb-rl", w::vertical});
    return keyword(v, words);
}

opt<box::column_fill> parse_column_fill(value::value const& v) {
    using c = box::column_fill;
    static constexpr auto words = table<c>(std::pair{"balance", c::balance}, std::pair{"auto", c::auto_});
    return keyword(v, words);
}

opt<box::column_span> parse_column_span(value::value const& v) {
    using c = box::column_span;
    static constexpr auto words = table<c>(std::pair{"none", c::none}, std::pair{"all", c::all});
    return keyword(v, words);
}

opt<box::direction> parse_direction(value::value const& v) {
    using d = box::direction;
    static constexpr auto words = table<d>(std::pair{"ltr", d::ltr}, std::pair{"rtl", d::rtl});
    return keyword(v, words);
}

opt<box::empty_cells> parse_empty_cells(value::value const& v) {
    using e = box::empty_cells;
    static constexpr auto words = table<e>(std::pair{"show", e::show}, std::pair{"hide", e::hide});
    return keyword(v, words);
}

opt<box::visibility> parse_visibility(value::value const& v) {
    using e = box::visibility;
    static constexpr auto words = table<e>(std::pair{"visible", e::visible}, std::pair{"hidden", e::hidden},
                                           std::pair{"collapse", e::collapse});
    return keyword(v, words);
}

opt<box::text_overflow> parse_text_overflow(value::value const& v) {
    using t = box::text_overflow;
    static constexpr auto words = table<t>(std::pair{"clip", t::clip}, std::pair{"ellipsis", t::ellipsis});
    return keyword(v, words);
}

opt<box::list_style_position> parse_list_style_position(value::value const& v) {
    using l = box::list_style_position;
    static constexpr auto words = table<l>(std::pair{"inside", l::inside}, std::pair{"outside", l::outside});
    return keyword(v, words);
}

opt<box::bookmark_state> parse_bookmark_state(value::value const& v) {
    using b = box::bookmark_state;
    static constexpr auto words = table<b>(std::pair{"open", b::open}, std::pair{"closed", b::closed});
    return keyword(v, words);
}

opt<box::bookmark_level> parse_bookmark_level(value::value const& v) {
    if (is_keyword(v, "none")) {
        return none_value{};
    }
    auto const n = int_at_least(v, 1);
    if (!n) {
        return std::nullopt;
    }
    return *n;
}

opt<box::z_index> parse_z_index(value::value const& v) {
    if (is_keyword(v, "auto")) {
        return auto_value{};
    }
    auto const n = units::integer_from_value(v);
    if (!n) {
        return std::nullopt;
    }
    return *n;
}

opt<box::url_or_none> parse_url_or_none(value::value const& v) {
    if (is_keyword(v, "none")) {
        return box::url_or_none{};
    }
    if (auto const* u = std::get_if<value::url>(&v)) {
        return box::url_or_none{*u};
    }
    return std::nullopt;
}

opt<box::list_style_type> parse_list_style_type(value::value const& v) {
    static constexpr std::array<std::string_view, 50> styles{"disc",
                                                             "circle",
                                                             "square",
                                                             "box",
                                                             "check",
                                                             "diamond",
                                                             "hyphen",
                                                             "decimal",
                                                             "decimal-leading-zero",
                                                             "lower-roman",
                                                             "upper-roman",
                                                             "lower-greek",
                                                             "upper-greek",
                                                             "lower-alpha",
                                                             "upper-alpha",
                                                             "lower-latin",
                                                             "upper-latin",
                                                             "armenian",
                                                             "lower-armenian",
                                                             "upper-armenian",
                                                             "georgian",
                                                             "hebrew",
                                                             "arabic-indic",
                                                             "binary",
                                                             "cjk-decimal",
                                                             "octal",
                                                             "persian",
                                                             "lower-hexadecimal",
                                                             "upper-hexadecimal",
                                                             "lower-norwegian",
                                                             "upper-norwegian",
                                                             "lower-russian",
                                                             "upper-russian",
                                                             "lower-ukrainian",
                                                             "upper-ukrainian",
                                                             "lower-belarusian",
                                                             "upper-belarusian",
                                                             "lower-bulgarian",
                                                             "upper-bulgarian",
                                                             "hiragana",
                                                             "katakana",
                                                             "hiragana-iroha",
                                                             "katakana-iroha",
                                                             "cjk-ideographic",
                                                             "japanese-informal",
                                                             "japanese-formal",
                                                             "simp-chinese-informal",
                                                             "simp-chinese-formal",
                                                             "trad-chinese-informal",
                                                             "trad-chinese-formal"};
    if (is_keyword(v, "none")) {
        return none_value{};
    }
    if (auto const* s = std::get_if<value::string>(&v)) {
        return box::list_style_string{s->string_text};
    }
    if (auto const k = keyword_of(v); k && std::find(styles.begin(), styles.end(), *k) != styles.end()) {
        return box::list_style_named{*k};
    }
    return std::nullopt;
}

opt<box::spec_counters> parse_counter_increment(value::value const& v) {
    return counter_list(v, 1);
}

opt<box::spec_counters> parse_counter_reset(value::value const& v) {
    return counter_list(v, 0);
}

// Transforms.

opt<box::spec_transform> parse_transform(value::value const& v) {
    if (is_keyword(v, "none")) {
        return box::spec_transform{};
    }
    using lp = units::length_percent;
    box::spec_transform out;
    for (auto const& t : terms_of(v)) {
        auto const* f = std::get_if<value::function>(&t);
        if (!f) {
            return std::nullopt;
        }
        auto const name = lower(f->function_name);
        auto const& a = f->function_args;
        auto numbers = [&]() -> std::optional<std::vector<float>> {
            std::vector<float> out;
            for (auto const& x : a) {
                auto const n = units::number_from_value(x);
                if (!n) {
                    return std::nullopt;
                }
                out.push_back(static_cast<float>(*n));
            }
            return out;
        };
        auto angles = [&]() -> std::optional<std::vector<float>> {
            std::vector<float> out;
            for (auto const& x : a) {
                auto const n = units::angle_from_value(x);
                if (!n) {
                    return std::nullopt;
                }
                out.push_back(*n);
            }
            return out;
        };
        auto lengths = [&]() -> std::optional<std::vector<lp>> {
            std::vector<lp> out;
            for (auto const& x : a) {
                auto const n = units::length_percent_from_value(x);
                if (!n) {
                    return std::nullopt;
                }
                out.push_back(*n);
            }
            return out;
        };
        lp const zero = units::length{units::points{0}};
        if (name == "matrix") {
            auto const n = numbers();
            if (!n || n->size() != 6) {
                return std::nullopt;
            }
            box::transform_matrix<lp> m;
            std::copy(n->begin(), n->end(), m.matrix_values.begin());
            out.push_back(m);
        } else if (name == "translate" || name == "translatex" || name == "translatey") {
            auto const l = lengths();
            if (!l || l->empty() || l->size() > (name == "translate" ? 2u : 1u)) {
                return std::nullopt;
            }
            if (name == "translatey") {
                out.push_back(box::transform_translate<lp>{zero, (*l)[0]});
            } else {
                out.push_back(box::transform_translate<lp>{(*l)[0], l->size() == 2 ? (*l)[1] : zero});
            }
        } else if (name == "scale" || name == "scalex" || name == "scaley") {
            auto const n = numbers();
            if (!n || n->empty() || n->size() > (name == "scale" ? 2u : 1u)) {
                return std::nullopt;
            }
            if (name == "scalex") {
                out.push_back(box::transform_scale{(*n)[0], 1});
            } else if (name == "scaley") {
                out.push_back(box::transform_scale{1, (*n)[0]});
            } else {
                out.push_back(box::transform_scale{(*n)[0], n->size() == 2 ? (*n)[1] : (*n)[0]});
            }
        } else if (name == "rotate") {
            auto const n = angles();
            if (!n || n->size() != 1) {
                return std::nullopt;
            }
            out.push_back(box::transform_rotate{(*n)[0]});
        } else if (name == "skew" || name == "skewx" || name == "skewy") {
            auto const n = angles();
            if (!n || n->empty() || n->size() > (name == "skew" ? 2u : 1u)) {
                return std::nullopt;
            }
            if (name == "skewy") {
                out.push_back(box::transform_skew{0, (*n)[0]});
            } else {
                out.push_back(box::transform_skew{(*n)[0], n->size() == 2 ? (*n)[1] : 0});
            }
        } else {
            return std::nullopt;
        }
    }
    return out;
}

opt<box::spec_transform_origin> parse_transform_origin(value::value const& v) {
    auto const pos = parse_position_terms(terms_of(v));
    if (!pos) {
        return std::nullopt;
    }
    auto widen = [](box::length_or_percent<units::length> const& x) {
        return std::visit([](auto const& y) -> units::length_percent { return y; }, x);
    };
    return box::spec_transform_origin{widen(pos->bg_position_x), widen(pos->bg_position_y)};
}

// Fonts.

opt<fonts::font_family> parse_font_family(value::value const& v) {
    fonts::font_family out;
    for (auto const& run : comma_runs(v)) {
        if (run.size() == 1) {
            if (auto const* s = std::get_if<value::string>(&run[0])) {
                out.push_back(s->string_text);
                continue;
            }
        }
        // Unquoted names are identifiers joined by single spaces; generic families are keywords.
        std::string name;
        for (auto const& t : run) {
            auto const* i = std::get_if<value::ident>(&t);
            if (!i) {
                return std::nullopt;
            }
            if (!name.empty()) {
                name += ' ';
            }
            name += i->ident_name;
        }
        if (name.empty()) {
            return std::nullopt;
        }
        auto const low = lower(name);
        if (low == "serif" || low == "sans-serif" || low == "monospace" || low == "cursive" ||
            low == "fantasy") {
            name = low;
        }
        out.push_back(name);
    }
    return out;
}

opt<fonts::spec_font_size> parse_font_size(value::value const& v) {
    using k = fonts::font_size_keyword;
    static constexpr auto words = table<k>(
        std::pair{"xx-small", k::xx_small}, std::pair{"x-small", k::x_small}, std::pair{"small", k::small},
        std::pair{"medium", k::medium}, std::pair{"large", k::large}, std::pair{"x-large", k::x_large},
        std::pair{"xx-large", k::xx_large}, std::pair{"larger", k::larger}, std::pair{"smaller", k::smaller});
    if (auto const w = keyword(v, words)) {
        return *w;
    }
    auto const lp = non_negative_length_percent(v);
    if (!lp) {
        return std::nullopt;
    }
    return std::visit([](auto const& x) -> fonts::spec_font_size { return x; }, *lp);
}

opt<fonts::font_stretch> parse_font_stretch(value::value const& v) {
    using s = fonts::font_stretch;
    static constexpr auto words =
        table<s>(std::pair{"normal", s::normal}, std::pair{"ultra-condensed", s::ultra_condensed},
                 std::pair{"extra-condensed", s::extra_condensed}, std::pair{"condensed", s::condensed},
                 std::pair{"semi-condensed", s::semi_condensed}, std::pair{"semi-expanded", s::semi_expanded},
                 std::pair{"expanded", s::expanded}, std::pair{"extra-expanded", s::extra_expanded},
                 std::pair{"ultra-expanded", s::ultra_expanded});
    return keyword(v, words);
}

opt<fonts::font_style> parse_font_style(value::value const& v) {
    using s = fonts::font_style;
    static constexpr auto words = table<s>(std::pair{"normal", s::normal}, std::pair{"italic", s::italic},
                                           std::pair{"oblique", s::oblique});
    return keyword(v, words);
}

opt<fonts::font_variant_caps> parse_font_variant_caps(value::value const& v) {
    using s = fonts::font_variant_caps;
    static constexpr auto words = table<s>(
        std::pair{"normal", s::normal}, std::pair{"small-caps", s::small_caps},
        std::pair{"all-small-caps", s::all_small_caps}, std::pair{"petite-caps", s::petite_caps},
        std::pair{"all-petite-caps", s::all_petite_caps}, std::pair{"unicase", s::unicase},
        std::pair{"titling-caps", s::titling_caps});
    return keyword(v, words);
}

namespace {

// The longhand a font-variant keyword belongs to.
enum class variant_group { caps, ligatures, numeric, position, east_asian };

// Reads one keyword of the font-variant longhands into `out`. `seen` has a bit for each set of mutually
// exclusive keywords, so that "oldstyle-nums lining-nums" or "small-caps small-caps" fails.
std::optional<variant_group> read_variant_word(std::string_view w, font_variant_values& out, unsigned& seen) {
    using fonts::feature_toggle;
    auto claim = [&seen](unsigned bit) {
        if (seen & bit) {
            return false;
        }
        seen |= bit;
        return true;
    };
    struct toggle_word {
        std::string_view on;
        std::string_view off;
        feature_toggle fonts::font_variant_ligatures::*member;
    };
    static constexpr std::array<toggle_word, 4> ligature_words{{
        {"common-ligatures", "no-common-ligatures", &fonts::font_variant_ligatures::ligatures_common},
        {"discretionary-ligatures", "no-discretionary-ligatures",
         &fonts::font_variant_ligatures::ligatures_discretionary},
        {"historical-ligatures", "no-historical-ligatures", &fonts::font_variant_ligatures::ligatures_historical},
        {"contextual", "no-contextual", &fonts::font_variant_ligatures::ligatures_contextual},
    }};
    for (std::size_t i = 0; i < ligature_words.size(); ++i) {
        auto const& lw = ligature_words[i];
        if (w == lw.on || w == lw.off) {
            if (!claim(1u << (1 + i))) {
                return std::nullopt;
            }
            out.variant_ligatures.*lw.member = w == lw.on ? feature_toggle::on : feature_toggle::off;
            return variant_group::ligatures;
        }
    }
    using vc = fonts::font_variant_caps;
    static constexpr auto caps_words =
        table<vc>(std::pair{"small-caps", vc::small_caps}, std::pair{"all-small-caps", vc::all_small_caps},
                  std::pair{"petite-caps", vc::petite_caps}, std::pair{"all-petite-caps", vc::all_petite_caps},
                  std::pair{"unicase", vc::unicase}, std::pair{"titling-caps", vc::titling_caps});
    for (auto const& [name, caps] : caps_words) {
        if (w == name) {
            if (!claim(1u)) {
                return std::nullopt;
            }
            out.variant_caps = caps;
            return variant_group::caps;
        }
    }
    auto& n = out.variant_numeric;
    if (w == "lining-nums" || w == "oldstyle-nums") {
        if (!claim(1u << 5)) {
            return std::nullopt;
        }
        n.numeric_figure_style = w == "lining-nums" ? fonts::numeric_figure::lining : fonts::numeric_figure::oldstyle;
        return variant_group::numeric;
    }
    if (w == "proportional-nums" || w == "tabular-nums") {
        if (!claim(1u << 6)) {
            return std::nullopt;
        }
        n.numeric_spacing_style =
            w == "tabular-nums" ? fonts::numeric_spacing::tabular : fonts::numeric_spacing::proportional;
        return variant_group::numeric;
    }
    if (w == "diagonal-fractions" || w == "stacked-fractions") {
        if (!claim(1u << 7)) {
            return std::nullopt;
        }
        n.numeric_fraction_style =
            w == "diagonal-fractions" ? fonts::numeric_fraction::diagonal : fonts::numeric_fraction::stacked;
        return variant_group::numeric;
    }
    if (w == "ordinal" || w == "slashed-zero") {
        if (!claim(w == "ordinal" ? 1u << 8 : 1u << 9)) {
            return std::nullopt;
        }
        (w == "ordinal" ? n.numeric_ordinal : n.numeric_slashed_zero) = true;
        return variant_group::numeric;
    }
    if (w == "sub" || w == "super") {
        if (!claim(1u << 10)) {
            return std::nullopt;
        }
        out.variant_position = w == "sub" ? fonts::font_variant_position::sub : fonts::font_variant_position::super;
        return variant_group::position;
    }
    using ev = fonts::east_asian_variant;
    static constexpr auto east_asian_forms =
        table<ev>(std::pair{"jis78", ev::jis78}, std::pair{"jis83", ev::jis83}, std::pair{"jis90", ev::jis90},
                  std::pair{"jis04", ev::jis04}, std::pair{"simplified", ev::simplified},
                  std::pair{"traditional", ev::traditional});
    auto& e = out.variant_east_asian;
    for (auto const& [name, form] : east_asian_forms) {
        if (w == name) {
            if (!claim(1u << 11)) {
                return std::nullopt;
            }
            e.east_asian_forms = form;
            return variant_group::east_asian;
        }
    }
    if (w == "full-width" || w == "proportional-width") {
        if (!claim(1u << 12)) {
            return std::nullopt;
        }
        e.east_asian_widths =
            w == "full-width" ? fonts::east_asian_width::full_width : fonts::east_asian_width::proportional_width;
        return variant_group::east_asian;
    }
    if (w == "ruby") {
        if (!claim(1u << 13)) {
            return std::nullopt;
        }
        e.east_asian_ruby = true;
        return variant_group::east_asian;
    }
    return std::nullopt;
}

// The keywords of one longhand; "normal" alone gives the initial value.
opt<font_variant_values> variant_longhand(value::value const& v, variant_group group) {
    font_variant_values out;
    if (is_keyword(v, "normal")) {
        return out;
    }
    unsigned seen = 0;
    for (auto const& t : terms_of(v)) {
        auto const w = keyword_of(t);
        if (!w || read_variant_word(*w, out, seen) != group) {
            return std::nullopt;
        }
    }
    return out;
}

fonts::font_variant_ligatures no_ligatures() {
    using fonts::feature_toggle;
    return {.ligatures_common = feature_toggle::off,
            .ligatures_discretionary = feature_toggle::off,
            .ligatures_historical = feature_toggle::off,
            .ligatures_contextual = feature_toggle::off};
}

} // namespace

opt<font_variant_values> parse_font_variant_terms(std::span<value::value const> terms) {
    font_variant_values out;
    if (terms.size() == 1 && is_keyword(terms[0], "normal")) {
        return out;
    }
    if (terms.size() == 1 && is_keyword(terms[0], "none")) {
        out.variant_ligatures = no_ligatures();
        return out;
    }
    unsigned seen = 0;
    for (auto const& t : terms) {
        auto const w = keyword_of(t);
        if (!w || !read_variant_word(*w, out, seen)) {
            return std::nullopt;
        }
    }
    return out;
}

opt<fonts::font_variant_ligatures> parse_font_variant_ligatures(value::value const& v) {
    if (is_keyword(v, "none")) {
        return no_ligatures();
    }
    auto const r = variant_longhand(v, variant_group::ligatures);
    return r ? opt<fonts::font_variant_ligatures>(r->variant_ligatures) : std::nullopt;
}

opt<fonts::font_variant_numeric> parse_font_variant_numeric(value::value const& v) {
    auto const r = variant_longhand(v, variant_group::numeric);
    return r ? opt<fonts::font_variant_numeric>(r->variant_numeric) : std::nullopt;
}

opt<fonts::font_variant_position> parse_font_variant_position(value::value const& v) {
    auto const r = variant_longhand(v, variant_group::position);
    return r ? opt<fonts::font_variant_position>(r->variant_position) : std::nullopt;
}

opt<fonts::font_variant_east_asian> parse_font_variant_east_asian(value::value const& v) {
    auto const r = variant_longhand(v, variant_group::east_asian);
    return r ? opt<fonts::font_variant_east_asian>(r->variant_east_asian) : std::nullopt;
}

opt<fonts::font_kerning> parse_font_kerning(value::value const& v) {
    using s = fonts::font_kerning;
    static constexpr auto words =
        table<s>(std::pair{"auto", s::auto_kerning}, std::pair{"normal", s::normal}, std::pair{"none", s::none});
    return keyword(v, words);
}

// "normal", or a comma list of a four-letter tag in quotes with an optional value: an integer of 0 or
// more, "on" (1) or "off" (0).
opt<fonts::font_feature_settings> parse_font_feature_settings(value::value const& v) {
    if (is_keyword(v, "normal")) {
        return fonts::font_feature_settings{};
    }
    fonts::font_feature_settings out;
    for (auto const& run : comma_runs(v)) {
        if (run.empty() || run.size() > 2) {
            return std::nullopt;
        }
        auto const* tag = std::get_if<value::string>(&run[0]);
        if (!tag || tag->string_text.size() != 4 ||
            !std::all_of(tag->string_text.begin(), tag->string_text.end(), [](char c) { return c >= 0x20 && c <= 0x7E; })) {
            return std::nullopt;
        }
        fonts::feature_setting f{.setting_tag = tag->string_text};
        if (run.size() == 2) {
            if (is_keyword(run[1], "on") || is_keyword(run[1], "off")) {
                f.setting_value = is_keyword(run[1], "on") ? 1 : 0;
            } else if (auto const n = units::integer_from_value(run[1]); n && *n >= 0) {
                f.setting_value = int(*n);
            } else {
                return std::nullopt;
            }
        }
        out.push_back(std::move(f));
    }
    return out;
}

opt<fonts::spec_font_weight> parse_font_weight(value::value const& v) {
    auto const k = keyword_of(v);
    if (k == "normal") {
        return 400;
    }
    if (k == "bold") {
        return 700;
    }
    if (k == "bolder") {
        return fonts::relative_weight::bolder;
    }
    if (k == "lighter") {
        return fonts::relative_weight::lighter;
    }
    auto const n = units::integer_from_value(v);
    if (!n || *n < 100 || *n > 900 || *n % 100 != 0) {
        return std::nullopt;
    }
    return *n;
}

opt<fonts::spec_line_height> parse_line_height(value::value const& v) {
    if (is_keyword(v, "normal")) {
        return fonts::line_height_normal{};
    }
    if (is_keyword(v, "none")) {
        return fonts::line_height_none{};
    }
    if (auto const n = units::number_from_value(v)) {
        if (*n < 0) {
            return std::nullopt;
        }
        return fonts::line_height_number{static_cast<float>(*n)};
    }
    // A percentage of the font size acts as the same factor written as a number.
    if (auto const* p = std::get_if<value::percent>(&v)) {
        double const x = number_as_double(p->percent_value);
        if (x < 0) {
            return std::nullopt;
        }
        return fonts::line_height_number{static_cast<float>(x / 100)};
    }
    if (auto const l = non_negative_length(v)) {
        return *l;
    }
    return std::nullopt;
}

// Text.

opt<text::white_space> parse_white_space(value::value const& v) {
    using w = text::white_space;
    static constexpr auto words =
        table<w>(std::pair{"normal", w::normal}, std::pair{"pre", w::pre}, std::pair{"nowrap", w::nowrap},
                 std::pair{"pre-wrap", w::pre_wrap}, std::pair{"pre-line", w::pre_line});
    return keyword(v, words);
}

opt<text::text_align> parse_text_align(value::value const& v) {
    using t = text::text_align;
    static constexpr auto words =
        table<t>(std::pair{"auto", t::auto_}, std::pair{"left", t::left}, std::pair{"right", t::right},
                 std::pair{"inside", t::inside}, std::pair{"outside", t::outside},
                 std::pair{"center", t::center}, std::pair{"justify", t::justify},
                 std::pair{"start", t::start}, std::pair{"end", t::end});
    return keyword(v, words);
}

opt<text::text_transform> parse_text_transform(value::value const& v) {
    using t = text::text_transform;
    static constexpr auto words =
        table<t>(std::pair{"none", t::none}, std::pair{"lowercase", t::lowercase},
                 std::pair{"uppercase", t::uppercase}, std::pair{"capitalize", t::capitalize});
    return keyword(v, words);
}

opt<text::text_justify> parse_text_justify(value::value const& v) {
    using t = text::text_justify;
    static constexpr auto words = table<t>(
        std::pair{"auto", t::auto_}, std::pair{"inter-word", t::auto_}, std::pair{"distribute", t::cjk},
        std::pair{"inter-ideograph", t::cjk}, std::pair{"inter-character", t::cjk});
    return keyword(v, words);
}

opt<text::hyphens> parse_hyphens(value::value const& v) {
    using h = text::hyphens;
    static constexpr auto words =
        table<h>(std::pair{"none", h::none}, std::pair{"manual", h::manual}, std::pair{"auto", h::auto_},
                 std::pair{"-vellum-expand-all", h::vellum_expand_all});
    return keyword(v, words);
}

opt<text::overflow_wrap> parse_overflow_wrap(value::value const& v) {
    using o = text::overflow_wrap;
    static constexpr auto words =
        table<o>(std::pair{"normal", o::normal}, std::pair{"break-word", o::break_word},
                 std::pair{"anywhere", o::break_word});
    return keyword(v, words);
}

opt<text::word_break> parse_word_break(value::value const& v) {
    using w = text::word_break;
    static constexpr auto words =
        table<w>(std::pair{"normal", w::normal}, std::pair{"break-all", w::break_all},
                 std::pair{"keep-all", w::keep_all});
    return keyword(v, words);
}

opt<text::text_line_style> parse_text_line_style(value::value const& v) {
    using t = text::text_line_style;
    static constexpr auto words =
        table<t>(std::pair{"none", t::none}, std::pair{"solid", t::solid}, std::pair{"double", t::double_},
                 std::pair{"dotted", t::dotted}, std::pair{"dashed", t::dashed}, std::pair{"wavy", t::wavy});
    return keyword(v, words);
}

opt<text::line_stacking_strategy> parse_line_stacking_strategy(value::value const& v) {
    using l = text::line_stacking_strategy;
    static constexpr auto words =
        table<l>(std::pair{"inline-line-height", l::inline_line_height},
                 std::pair{"block-line-height", l::block_line_height}, std::pair{"max-height", l::max_height},
                 std::pair{"grid-height", l::grid_height});
    return keyword(v, words);
}

opt<text::linebreak_magic> parse_linebreak_magic(value::value const& v) {
    using l = text::linebreak_magic;
    static constexpr auto words = table<l>(std::pair{"auto", l::auto_}, std::pair{"none", l::none});
    return keyword(v, words);
}

opt<int> parse_hyphenate_count(value::value const& v) {
    return int_at_least(v, 1);
}

opt<text::hyphenate_lines> parse_hyphenate_lines(value::value const& v) {
    if (is_keyword(v, "no-limit")) {
        return text::no_limit{};
    }
    auto const n = int_at_least(v, 0);
    if (!n) {
        return std::nullopt;
    }
    return *n;
}

opt<text::hyphenate_patterns> parse_hyphenate_patterns(value::value const& v) {
    if (is_keyword(v, "none")) {
        return text::hyphenate_patterns{};
    }
    text::hyphenate_patterns out;
    for (auto const& t : terms_of(v)) {
        if (std::holds_alternative<value::comma>(t)) {
            continue;
        }
        auto const* u = std::get_if<value::url>(&t);
        if (!u) {
            return std::nullopt;
        }
        out.push_back(*u);
    }
    return out;
}

opt<text::text_replace> parse_text_replace(value::value const& v) {
    if (is_keyword(v, "none")) {
        return text::text_replace{};
    }
    auto const terms = terms_of(v);
    if (terms.size() % 2 != 0) {
        return std::nullopt;
    }
    text::text_replace out;
    for (std::size_t i = 0; i < terms.size(); i += 2) {
        auto const* from = std::get_if<value::string>(&terms[i]);
        auto const* to = std::get_if<value::string>(&terms[i + 1]);
        if (!from || !to) {
            return std::nullopt;
        }
        out.emplace_back(from->string_text, to->string_text);
    }
    return out;
}

opt<box::quotes> parse_quotes(value::value const& v) {
    if (is_keyword(v, "none")) {
        return box::none_value{};
    }
    if (is_keyword(v, "auto")) {
        return box::auto_value{};
    }
    auto const terms = terms_of(v);
    if (terms.empty() || terms.size() % 2 != 0) {
        return std::nullopt;
    }
    box::quote_marks out;
    for (std::size_t i = 0; i < terms.size(); i += 2) {
        auto const* open = std::get_if<value::string>(&terms[i]);
        auto const* close = std::get_if<value::string>(&terms[i + 1]);
        if (!open || !close) {
            return std::nullopt;
        }
        out.quote_pairs.emplace_back(open->string_text, close->string_text);
    }
    return out;
}

opt<text::lang> parse_lang(value::value const& v) {
    if (is_keyword(v, "none")) {
        return text::lang{};
    }
    if (auto const* s = std::get_if<value::string>(&v)) {
        return text::lang{s->string_text};
    }
    if (auto const* i = std::get_if<value::ident>(&v)) {
        return text::lang{i->ident_name};
    }
    return std::nullopt;
}

// SVG painting.

opt<float> parse_opacity(value::value const& v) {
    return number_in(v, 0, 1);
}

opt<float> parse_miterlimit(value::value const& v) {
    auto const n = units::number_from_value(v);
    if (!n || *n < 1) {
        return std::nullopt;
    }
    return static_cast<float>(*n);
}

opt<svgstyle::fill_rule> parse_fill_rule(value::value const& v) {
    using f = svgstyle::fill_rule;
    static constexpr auto words =
        table<f>(std::pair{"nonzero", f::nonzero}, std::pair{"evenodd", f::evenodd});
    return keyword(v, words);
}

opt<svgstyle::linecap> parse_linecap(value::value const& v) {
    using l = svgstyle::linecap;
    static constexpr auto words =
        table<l>(std::pair{"butt", l::butt}, std::pair{"round", l::round}, std::pair{"square", l::square});
    return keyword(v, words);
}

opt<svgstyle::linejoin> parse_linejoin(value::value const& v) {
    using l = svgstyle::linejoin;
    static constexpr auto words =
        table<l>(std::pair{"miter", l::miter}, std::pair{"round", l::round}, std::pair{"bevel", l::bevel});
    return keyword(v, words);
}

opt<svgstyle::text_anchor> parse_text_anchor(value::value const& v) {
    using t = svgstyle::text_anchor;
    static constexpr auto words =
        table<t>(std::pair{"start", t::start}, std::pair{"middle", t::middle}, std::pair{"end", t::end});
    return keyword(v, words);
}

opt<svgstyle::spec_svg_length> parse_svg_length(value::value const& v) {
    if (auto const n = units::number_from_value(v)) {
        return svgstyle::user_units{static_cast<float>(*n)};
    }
    auto const lp = units::length_percent_from_value(v);
    if (!lp) {
        return std::nullopt;
    }
    return std::visit([](auto const& x) -> svgstyle::spec_svg_length { return x; }, *lp);
}

opt<svgstyle::spec_dasharray> parse_dasharray(value::value const& v) {
    if (is_keyword(v, "none")) {
        return svgstyle::spec_dasharray{};
    }
    svgstyle::spec_dasharray out;
    for (auto const& t : terms_of(v)) {
        if (std::holds_alternative<value::comma>(t)) {
            continue;
        }
        auto const l = parse_svg_length(t);
        if (!l) {
            return std::nullopt;
        }
        out.push_back(*l);
    }
    return out;
}

// Numbers.

opt<int> parse_integer(value::value const& v) {
    return units::integer_from_value(v);
}

opt<int> parse_span(value::value const& v) {
    return int_at_least(v, 1);
}

opt<int> parse_lines_count(value::value const& v) {
    return int_at_least(v, 1);
}

// Generated content, bookmarks, links.

opt<content_terms> parse_content(value::value const& v) {
    if (is_keyword(v, "normal")) {
        return normal_value{};
    }
    return content_or_none(v);
}

opt<content_terms> parse_bookmark_label(value::value const& v) {
    return content_or_none(v);
}

opt<content_terms> parse_bookmark_target(value::value const& v) {
    return content_or_none(v);
}

opt<content_terms> parse_pdf_destination(value::value const& v) {
    return content_or_none(v);
}

opt<keyword_list> keywords(value::value const& v) {
    if (is_keyword(v, "none")) {
        return keyword_list{};
    }
    keyword_list out;
    for (auto const& t : terms_of(v)) {
        auto const k = keyword_of(t);
        if (!k) {
            return std::nullopt;
        }
        out.push_back(*k);
    }
    return out;
}

// The image magic words; "jpeg-quality" takes the quality as a number after it or as its argument,
// "jpeg-quality 80" or "jpeg-quality(80)", and is kept as the one word "jpeg-quality-80".
opt<keyword_list> parse_image_magic(value::value const& v) {
    if (is_keyword(v, "none")) {
        return keyword_list{};
    }
    auto const quality = [](value::value const& t) -> std::optional<int> {
        auto const* n = std::get_if<value::number>(&t);
        if (n == nullptr) {
            return std::nullopt;
        }
        double const q = std::visit([](auto x) { return double(x); }, n->number_value);
        if (q != std::floor(q) || q < 0 || q > 100) {
            return std::nullopt;
        }
        return int(q);
    };
    keyword_list out;
    auto const terms = terms_of(v);
    for (std::size_t i = 0; i < terms.size(); ++i) {
        if (auto const* f = std::get_if<value::function>(&terms[i])) {
            auto const q = f->function_args.size() == 1 ? quality(f->function_args[0]) : std::nullopt;
            if (lexer::ascii_lower(f->function_name) != "jpeg-quality" || !q) {
                return std::nullopt;
            }
            out.push_back("jpeg-quality-" + std::to_string(*q));
            continue;
        }
        auto const k = keyword_of(terms[i]);
        if (!k) {
            return std::nullopt;
        }
        if (*k == "jpeg-quality") {
            auto const q = i + 1 < terms.size() ? quality(terms[i + 1]) : std::nullopt;
            if (!q) {
                return std::nullopt;
            }
            out.push_back("jpeg-quality-" + std::to_string(*q));
            ++i;
            continue;
        }
        out.push_back(*k);
    }
    return out;
}

opt<keyword_list> parse_pdf_link_type(value::value const& v) {
    return keywords(v);
}

opt<string_set> parse_string_set(value::value const& v) {
    if (is_keyword(v, "none")) {
        return string_set{};
    }
    string_set out;
    for (auto const& run : comma_runs(v)) {
        if (run.size() < 2) {
            return std::nullopt;
        }
        auto const* name = std::get_if<value::ident>(&run[0]);
        auto items = content_items(std::span<value::value const>(run).subspan(1));
        if (!name || !items) {
            return std::nullopt;
        }
        out.emplace_back(name->ident_name, std::move(*items));
    }
    return out;
}

opt<semantics::spec_link_type> parse_link(value::value const& v) {
    return semantics::parse_link(v);
}

} // namespace parse

namespace {

using namespace parse;

template <longhand L, class Parser>
std::optional<property> make(value::value const& v, Parser parser) {
    if (is_keyword(v, "inherit")) {
        return property{prop<L>{inherit{}}};
    }
    if (is_keyword(v, "initial")) {
        return property{prop<L>{initial{}}};
    }
    auto parsed = parser(v);
    if (!parsed) {
        return std::nullopt;
    }
    return property{prop<L>{longhand_value_t<L>(std::move(*parsed))}};
}

// A value of the property's type, or attr() with its type word and a default of the property's type.
template <class T, auto Parser>
std::optional<expr::or_attr<T>> with_attr(value::value const& v) {
    auto const* a = std::get_if<value::attr>(&v);
    if (!a) {
        auto x = Parser(v);
        if (!x) {
            return std::nullopt;
        }
        return expr::or_attr<T>{T(std::move(*x))};
    }
    auto const type = expr::attr_type_of(a->attr_type);
    if (!type) {
        return std::nullopt;
    }
    expr::expr<T> e{.expr_name = a->attr_name, .expr_type = *type, .expr_default = std::nullopt};
    if (a->attr_default) {
        auto d = Parser(*a->attr_default);
        if (!d) {
            return std::nullopt;
        }
        e.expr_default = T(std::move(*d));
    }
    return expr::or_attr<T>{std::move(e)};
}

} // namespace

std::optional<property> parse_declaration(prop_name p, value::value const& v) {
    // "break-before" and "break-after" name the page-break properties, and also take the column break
    // of multi-column layout, which the column-break properties hold.
    if (is_keyword(v, "column")) {
        if (p == prop_name::prop_page_break_before) {
            return property{prop<longhand::column_break_before>{box::column_break::always}};
        }
        if (p == prop_name::prop_page_break_after) {
            return property{prop<longhand::column_break_after>{box::column_break::always}};
        }
    }
    switch (p) {
#include "css/longhand_parsers.inc"
    default:
        break;
    }
    if (propnames::kind_of(p) == propnames::name_kind::shorthand) {
        return parse_shorthand(p, v);
    }
    return std::nullopt;
}

} // namespace vellum::css::property
