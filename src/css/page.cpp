#include "css/page.hpp"

#include "css/compute_style.hpp"
#include "css/parser.hpp"
#include "css/property_parse.hpp"
#include "util/ref.hpp"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace vellum::css::page {

namespace {

using property::parse::keyword_of;
using property::parse::terms_of;
using propnames::prop_name;

// "initial" resets a page property to its default. A page has no parent to inherit from, so
// "inherit" does the same.
template <class T, class F>
std::optional<page_spec<T>> page_value(value::value const& v, F&& parse) {
    std::optional<page_spec<T>> out;
    auto const terms = terms_of(v);
    if (terms.size() == 1) {
        if (auto const k = keyword_of(terms[0]); k == "initial" || k == "inherit") {
            out.emplace(std::in_place_type<property::initial>);
            return out;
        }
    }
    if (std::optional<T> x = parse(v)) {
        out.emplace(std::in_place_type<T>, std::move(*x));
    }
    return out;
}

// "auto", or one to four lengths that go round the page as margin's do: one for all sides, two for
// top and bottom then left and right, three for top, left and right, bottom.
std::optional<spec_sides> parse_sides(value::value const& v) {
    auto const terms = terms_of(v);
    if (terms.size() == 1 && property::parse::is_keyword(terms[0], "auto")) {
        return box::auto_value{};
    }
    if (terms.empty() || terms.size() > 4) {
        return std::nullopt;
    }
    std::vector<units::length> ls;
    for (auto const& t : terms) {
        auto const l = property::parse::non_negative_length(t);
        if (!l) {
            return std::nullopt;
        }
        ls.push_back(*l);
    }
    auto const at = [&](std::size_t i) { return ls[std::min(i, ls.size() - 1)]; };
    sides<units::length> s{
        .sides_top = ls[0], .sides_right = at(1), .sides_bottom = at(2), .sides_left = at(1)};
    if (ls.size() == 2) {
        s.sides_bottom = ls[0];
    }
    if (ls.size() == 4) {
        s.sides_left = ls[3];
    }
    return s;
}

std::optional<marks> parse_marks(value::value const& v) {
    auto const terms = terms_of(v);
    if (terms.empty() || terms.size() > 2) {
        return std::nullopt;
    }
    bool crop = false;
    bool cross = false;
    for (auto const& t : terms) {
        auto const k = keyword_of(t);
        if (k == "none" && terms.size() == 1) {
            return marks::none;
        }
        if (k == "crop" && !crop) {
            crop = true;
        } else if (k == "cross" && !cross) {
            cross = true;
        } else {
            return std::nullopt;
        }
    }
    return crop && cross ? marks::both : crop ? marks::crop : marks::cross;
}

std::optional<units::length> parse_mark_length(value::value const& v) {
    auto const terms = terms_of(v);
    if (terms.size() != 1) {
        return std::nullopt;
    }
    return property::parse::non_negative_length(terms[0]);
}

std::optional<spec_vellum_rotate_body> parse_rotate_body(value::value const& v) {
    auto const terms = terms_of(v);
    if (terms.size() != 1) {
        return std::nullopt;
    }
    if (auto const k = keyword_of(terms[0])) {
        if (*k == "portrait") {
            return rotate_body_orientation::rotate_body_portrait;
        }
        if (*k == "landscape") {
            return rotate_body_orientation::rotate_body_landscape;
        }
        return std::nullopt;
    }
    auto const radians = units::angle_from_value(terms[0]);
    if (!radians) {
        return std::nullopt;
    }
    // Angles given in other units come back as radians; only whole quarter turns are allowed.
    double const degrees = *radians * 180.0 / std::numbers::pi;
    constexpr vellum_rotate_body quarter_turns[] = {
        vellum_rotate_body::rotate_body_0,
        vellum_rotate_body::rotate_body_90,
        vellum_rotate_body::rotate_body_180,
        vellum_rotate_body::rotate_body_270,
    };
    for (int i = 0; i < 4; ++i) {
        if (std::abs(degrees - 90.0 * i) < 0.001) {
            return quarter_turns[i];
        }
    }
    return std::nullopt;
}

std::optional<bool> parse_bool(value::value const& v) {
    auto const terms = terms_of(v);
    if (terms.size() != 1) {
        return std::nullopt;
    }
    auto const k = keyword_of(terms[0]);
    if (k == "true") {
        return true;
    }
    if (k == "false") {
        return false;
    }
    return std::nullopt;
}

std::optional<shrink_to_fit> parse_shrink_to_fit(value::value const& v) {
    auto const terms = terms_of(v);
    if (terms.size() != 1) {
        return std::nullopt;
    }
    auto const k = keyword_of(terms[0]);
    if (k == "auto") {
        return shrink_to_fit::auto_;
    }
    if (k == "none") {
        return shrink_to_fit::none;
    }
    return std::nullopt;
}

// "auto" or the terms of a content list, checked as the content property checks them.
std::optional<vellum_pdf_page_label> parse_page_label(value::value const& v) {
    auto const terms = terms_of(v);
    if (terms.size() == 1 && property::parse::is_keyword(terms[0], "auto")) {
        return box::auto_value{};
    }
    auto const p = property::parse_declaration(prop_name::prop_content, v);
    if (!p) {
        return std::nullopt;
    }
    auto const* c = std::get_if<property::prop<property::longhand::content>>(&*p);
    if (c == nullptr) {
        return std::nullopt;
    }
    auto const* terms_spec = std::get_if<property::content_terms>(&c->prop_spec);
    if (terms_spec == nullptr) {
        return std::nullopt;
    }
    auto const* list = std::get_if<property::content_list>(terms_spec);
    if (list == nullptr) {
        return std::nullopt;
    }
    return *list;
}

template <class P, class T, class F>
std::optional<page_property> make(value::value const& v, F&& parse) {
    auto s = page_value<T>(v, std::forward<F>(parse));
    if (!s) {
        return std::nullopt;
    }
    return page_property{P{std::move(*s)}};
}

float points(units::length const& l, units::resolution const& r) {
    return units::to_points(l, r);
}

std::optional<sides<float>> resolve_sides(spec_sides const& s, units::resolution const& r) {
    return std::visit(overloaded{
                          [](box::auto_value const&) -> std::optional<sides<float>> { return std::nullopt; },
                          [&](sides<units::length> const& l) -> std::optional<sides<float>> {
                              return sides<float>{.sides_top = points(l.sides_top, r),
                                                  .sides_right = points(l.sides_right, r),
                                                  .sides_bottom = points(l.sides_bottom, r),
                                                  .sides_left = points(l.sides_left, r)};
                          },
                      },
                      s);
}

sides<float> all_sides(float x) {
    return {.sides_top = x, .sides_right = x, .sides_bottom = x, .sides_left = x};
}

// The last declared value of each page property, still in declared form; nothing where the last
// value was "initial" or nothing was declared.
struct declared {
    std::optional<spec_bleed> bleed;
    std::optional<css::page::marks> marks;
    std::optional<spec_mark_length> mark_length;
    std::optional<spec_mark_offset> mark_offset;
    std::optional<vellum_pdf_page_label> page_label;
    std::optional<spec_vellum_rotate_body> rotate_body;
    std::optional<property_page::page_size> size;
    std::vector<property::property> body;
    std::optional<bool> shrink_margin_boxes;
    std::optional<css::page::shrink_to_fit> shrink_to_fit;
    std::optional<spec_trim> trim;
};

template <class T>
void take(std::optional<T>& slot, page_spec<T> const& s) {
    if (auto const* x = std::get_if<T>(&s)) {
        slot = *x;
    } else {
        slot.reset();
    }
}

void apply(declared& d, page_property const& p) {
    std::visit(overloaded{
                   [&](prop_bleed const& x) { take(d.bleed, x.bleed_spec); },
                   [&](prop_marks const& x) { take(d.marks, x.marks_spec); },
                   [&](prop_mark_length const& x) { take(d.mark_length, x.mark_length_spec); },
                   [&](prop_mark_offset const& x) { take(d.mark_offset, x.mark_offset_spec); },
                   [&](prop_page_label const& x) { take(d.page_label, x.page_label_spec); },
                   [&](prop_rotate_body const& x) { take(d.rotate_body, x.rotate_body_spec); },
                   [&](prop_size const& x) {
                       auto const before = d.size;
                       take(d.size, x.size_spec);
                       // An orientation alone ("size: landscape") turns the paper that the rules
                       // before it chose, such as the command line's, rather than the default paper.
                       if (d.size && !d.size->size_dims &&
                           d.size->size_orientation != property_page::orientation::none && before) {
                           d.size->size_dims = before->size_dims;
                       }
                   },
                   [&](style_prop const& x) { d.body.push_back(x.style_prop_property); },
                   [&](prop_shrink_margin_boxes const& x) {
                       take(d.shrink_margin_boxes, x.shrink_margin_boxes_spec);
                   },
                   [&](prop_shrink_to_fit const& x) { take(d.shrink_to_fit, x.shrink_to_fit_spec); },
                   [&](prop_trim const& x) { take(d.trim, x.trim_spec); },
               },
               p);
}

vellum_rotate_body resolve_rotate(spec_vellum_rotate_body const& r, paper const& p) {
    bool const wide = p.paper_width > p.paper_height;
    return std::visit(overloaded{
                          // A body of the other orientation is turned a quarter counter-clockwise, so
                          // that its top faces the paper's left edge, as landscape pages are bound
                          // into a portrait book.
                          [&](rotate_body_orientation o) {
                              bool const want_wide = o == rotate_body_orientation::rotate_body_landscape;
                              return want_wide == wide ? vellum_rotate_body::rotate_body_0
                                                       : vellum_rotate_body::rotate_body_270;
                          },
                          [](vellum_rotate_body angle) { return angle; },
                      },
                      r);
}

// Declarations are gathered and sorted by reference: a property is a large variant, and moving it
// about costs more, in time and in the compiler, than the pointers do.
template <class T>
using pdecl_refs = std::vector<pdeclaration<T> const*>;

// Equal priorities keep the order in which they were gathered, which is the order of the sheets; the
// command line's rules all have the running number 0 and rely on it.
template <class T>
void sort_by_priority(pdecl_refs<T>& v) {
    std::ranges::stable_sort(
        v, [](auto const* a, auto const* b) { return a->pdecl_priority < b->pdecl_priority; });
}

std::optional<page_rule::page_rule> user_rule(declaration d) {
    page_rule::page_rule rule;
    rule.page_declarations.push_back(std::move(d));
    return rule;
}

} // namespace

std::optional<page_property> parse_page_property(declaration const& d) {
    auto const name = propnames::lookup_property(d.prop_name);
    if (!name) {
        return std::nullopt;
    }
    auto const& v = d.value;
    switch (*name) {
    case prop_name::prop_bleed:
        return make<prop_bleed, spec_bleed>(v, parse_sides);
    case prop_name::prop_marks:
        return make<prop_marks, marks>(v, parse_marks);
    case prop_name::prop_mark_length:
        return make<prop_mark_length, spec_mark_length>(v, parse_mark_length);
    case prop_name::prop_mark_offset:
        return make<prop_mark_offset, spec_mark_offset>(v, parse_sides);
    case prop_name::prop_vellum_pdf_page_label:
        return make<prop_page_label, vellum_pdf_page_label>(v, parse_page_label);
    case prop_name::prop_vellum_rotate_body:
        return make<prop_rotate_body, spec_vellum_rotate_body>(v, parse_rotate_body);
    case prop_name::prop_size:
        return make<prop_size, property_page::page_size>(v, property_page::parse_size);
    case prop_name::prop_vellum_shrink_margin_boxes:
        return make<prop_shrink_margin_boxes, bool>(v, parse_bool);
    case prop_name::prop_vellum_shrink_to_fit:
        return make<prop_shrink_to_fit, shrink_to_fit>(v, parse_shrink_to_fit);
    case prop_name::prop_vellum_trim:
        return make<prop_trim, spec_trim>(v, parse_sides);
    default:
        break;
    }
    auto p = property::parse_declaration(*name, v);
    if (!p) {
        return std::nullopt;
    }
    return page_property{style_prop{std::move(*p)}};
}

selector::specific specificity(page const& p) {
    selector::specific s;
    if (p.page_name) {
        s.a = 1;
    }
    for (auto const& c : p.page_classes) {
        std::visit(overloaded{
                       [&](left_page const&) { ++s.c; },
                       [&](right_page const&) { ++s.c; },
                       [&](blank_page const&) { ++s.b; },
                       [&](nth_page const&) { ++s.b; },
                   },
                   c);
    }
    return s;
}

pages make_pages(std::vector<page_rule::page_rule> const& rules) {
    pages out;
    out.reserve(rules.size());
    for (auto const& r : rules) {
        auto const spec = specificity(r.selector);
        page_rule_typed t{.rule_page = r.selector};
        for (auto const& d : r.page_declarations) {
            if (auto p = parse_page_property(d)) {
                t.rule_decls.push_back({std::move(*p), priority::of(d, spec)});
            }
        }
        for (auto const& [name, decls] : r.page_regions) {
            region_declarations rd{.region_name = name};
            for (auto const& d : decls) {
                if (auto p = property::parse_declaration(d)) {
                    rd.region_decls.push_back({std::move(*p), priority::of(d, spec)});
                }
            }
            t.rule_regions.push_back(std::move(rd));
        }
        out.push_back(std::move(t));
    }
    return out;
}

bool page_matches(page const& p, page_query const& q) {
    if (p.page_name && p.page_name != q.query_page_name) {
        return false;
    }
    return std::ranges::all_of(p.page_classes, [&](page_class const& c) {
        return std::visit(overloaded{
                              [&](left_page const&) { return q.query_side == page_side::left; },
                              [&](right_page const&) { return q.query_side == page_side::right; },
                              [&](blank_page const&) { return q.query_blank; },
                              [&](nth_page const& n) { return q.query_group_page == n.page_number; },
                          },
                          c);
    });
}

page_style page_style_of(pages const& rules, page_query const& q, ref<style::style> const& root_style) {
    pdecl_refs<page_property> decls;
    constexpr std::size_t region_count = static_cast<std::size_t>(region::footnotes) + 1;
    std::vector<pdecl_refs<property::property>> regions(region_count);
    std::vector<bool> declared_regions(region_count, false);
    for (auto const& r : rules) {
        if (!page_matches(r.rule_page, q)) {
            continue;
        }
        for (auto const& pd : r.rule_decls) {
            decls.push_back(&pd);
        }
        for (auto const& rd : r.rule_regions) {
            auto const i = static_cast<std::size_t>(rd.region_name);
            declared_regions[i] = true;
            for (auto const& pd : rd.region_decls) {
                regions[i].push_back(&pd);
            }
        }
    }
    sort_by_priority(decls);
    declared d;
    for (auto const* pd : decls) {
        apply(d, pd->pdecl_value);
    }

    page_style ps;
    ps.region_body =
        share(compute_style::compute_style(root_style, compute_style::anonymous_context{}, d.body));
    // Page lengths in em count against the page body's font size.
    units::resolution const res{.resolution_font_size = ps.region_body->font_size,
                                .resolution_dpi = compute_style::css_dpi()};

    ps.page_size = default_paper;
    if (d.size) {
        if (auto const wh = property_page::size_in_points(
                *d.size, res, {default_paper.paper_width, default_paper.paper_height})) {
            ps.page_size = {wh->first, wh->second};
        }
    }
    // A side of zero, a negative one or one beyond the viewers' limit makes a page no viewer shows.
    for (float* side : {&ps.page_size.paper_width, &ps.page_size.paper_height}) {
        float const clamped = std::isfinite(*side) ? std::clamp(*side, min_paper_side, max_paper_side) : max_paper_side;
        if (clamped != *side) {
            *side = clamped;
            ps.page_size_clamped = true;
        }
    }
    ps.page_marks = d.marks.value_or(marks::none);
    bool const has_marks = ps.page_marks != marks::none;
    ps.page_mark_length = d.mark_length ? points(*d.mark_length, res) : default_mark_length;
    auto const offset = d.mark_offset ? resolve_sides(*d.mark_offset, res) : std::nullopt;
    ps.page_mark_offset = offset.value_or(all_sides(default_mark_offset));
    auto const bleed = d.bleed ? resolve_sides(*d.bleed, res) : std::nullopt;
    ps.page_bleed = bleed.value_or(all_sides(has_marks ? default_bleed_with_marks : 0));
    // Without marks the media box ends at the bleed edge; with them it leaves room beyond the bleed for
    // the offset and the marks themselves.
    auto const trim = d.trim ? resolve_sides(*d.trim, res) : std::nullopt;
    if (trim) {
        ps.page_trim = *trim;
    } else {
        auto const& b = ps.page_bleed;
        auto const& o = ps.page_mark_offset;
        float const m = has_marks ? ps.page_mark_length : 0;
        auto const beyond = [&](float bleed_side, float offset_side) {
            return bleed_side + (has_marks ? offset_side + m : 0);
        };
        ps.page_trim = {.sides_top = beyond(b.sides_top, o.sides_top),
                        .sides_right = beyond(b.sides_right, o.sides_right),
                        .sides_bottom = beyond(b.sides_bottom, o.sides_bottom),
                        .sides_left = beyond(b.sides_left, o.sides_left)};
    }
    ps.page_label = d.page_label.value_or(box::auto_value{});
    ps.page_rotate_body =
        d.rotate_body ? resolve_rotate(*d.rotate_body, ps.page_size) : vellum_rotate_body::rotate_body_0;
    ps.page_shrink_margin_boxes = d.shrink_margin_boxes.value_or(false);
    ps.page_shrink_to_fit = d.shrink_to_fit.value_or(shrink_to_fit::none);

    for (std::size_t i = 0; i < region_count; ++i) {
        if (!declared_regions[i]) {
            continue;
        }
        auto& rd = regions[i];
        sort_by_priority(rd);
        std::vector<property::property> props;
        props.reserve(rd.size());
        for (auto const* pd : rd) {
            props.push_back(pd->pdecl_value);
        }
        ps.page_regions.emplace_back(static_cast<region>(i), std::move(props));
    }
    return ps;
}

std::vector<property::property> const* region_declarations_of(page_style const& ps, region r) {
    for (auto const& [name, props] : ps.page_regions) {
        if (name == r) {
            return &props;
        }
    }
    return nullptr;
}

style::style region_style(page_style const& ps, region r) {
    static std::vector<property::property> const none;
    auto const* decls = region_declarations_of(ps, r);
    return compute_style::compute_style(ps.region_body, compute_style::anonymous_context{},
                                        decls != nullptr ? *decls : none);
}

std::optional<page_rule::page_rule> page_size_rule(log::log const& log, std::string_view text) {
    auto v = parser::parse_value("about:blank", text);
    if (!v || !property_page::parse_size(*v)) {
        log::log_warning(log, "invalid --page-size: " + std::string(text));
        return std::nullopt;
    }
    return user_rule({.prop_name = "size", .value = std::move(*v), .origin = origin::user, .index = 0});
}

std::optional<page_rule::page_rule> page_margin_rule(log::log const& log, std::string_view text) {
    auto v = parser::parse_value("about:blank", text);
    if (!v || !property::parse_declaration(prop_name::prop_margin, *v)) {
        log::log_warning(log, "invalid --page-margin: " + std::string(text));
        return std::nullopt;
    }
    return user_rule({.prop_name = "margin", .value = std::move(*v), .origin = origin::user, .index = 0});
}

} // namespace vellum::css::page
