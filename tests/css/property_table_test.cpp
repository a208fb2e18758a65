// Every property name, read the way a style sheet reads it: the initial value must parse and compute to
// the initial style, and a value of some substance must parse to the right longhands and change the
// computed style (or the page, for the properties of pages).
#include "css/compute_style.hpp"
#include "css/page.hpp"
#include "css/parser.hpp"
#include "css/property.hpp"
#include "css/propnames.hpp"

#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace vellum::css::property {
namespace {

using L = longhand;
using P = prop_name;

log::log quiet_log() {
    log::log l;
    l.log_stderr = log::no_stderr_log{};
    return l;
}

parser::env read_sheet(std::string const& text) {
    auto e = parser::new_env("print");
    e.known_property = &propnames::known_property;
    return parser::parse_style_sheet(quiet_log(), {}, origin::author, "file:///t.css", text, std::move(e));
}

std::string joined(std::string_view context, std::string_view name, std::string_view value) {
    std::string out(context);
    if (!out.empty()) {
        out += "; ";
    }
    return out + std::string(name) + ": " + std::string(value);
}

// The declarations of "p { ... }" as the sheet parser leaves them, with no warnings on the way.
declarations element_declarations(std::string const& body) {
    auto const e = read_sheet("p { " + body + " }");
    EXPECT_TRUE(e.warnings.empty()) << body << ": " << e.warnings.front().warning_text;
    if (e.rules.size() != 1) {
        ADD_FAILURE() << body << ": expected one rule";
        return {};
    }
    return e.rules[0].rule_declarations;
}

// The typed properties of an element rule, each of which must suit its property.
std::vector<property> typed(declarations const& ds) {
    std::vector<property> out;
    for (auto const& d : ds) {
        auto p = parse_declaration(d);
        EXPECT_TRUE(p) << d.prop_name << " is dropped";
        if (p) {
            out.push_back(std::move(*p));
        }
    }
    return out;
}

// The typed first declaration of an element rule.
std::optional<property> first_typed(std::string const& body) {
    auto const ds = element_declarations(body);
    if (ds.empty()) {
        ADD_FAILURE() << body << ": no declaration";
        return std::nullopt;
    }
    return parse_declaration(ds[0]);
}

// The style of a child of the initial style with these declarations.
style::style computed(std::vector<property> const& ps) {
    return compute_style::compute_style(style::initial_style(), compute_style::anonymous_context{}, ps);
}

style::style computed(std::string const& body) {
    return computed(typed(element_declarations(body)));
}

// The longhands a property sets, and for a single longhand whether it holds a value of its type
// rather than inherit or initial.
struct sets {
    std::vector<L> sets_longhands;
    bool sets_value = false;
};

sets what_it_sets(property const& p) {
    return std::visit(overloaded{
                          []<L M>(prop<M> const& x) {
                              return sets{{M}, std::holds_alternative<longhand_value_t<M>>(x.prop_spec)};
                          },
                          [](compound const& c) {
                              sets out;
                              for (auto const& m : c.compound_members) {
                                  auto const l = longhand_of(m);
                                  EXPECT_TRUE(l) << "a compound inside a compound";
                                  if (l) {
                                      out.sets_longhands.push_back(*l);
                                  }
                              }
                              return out;
                          },
                      },
                      static_cast<property_alternative const&>(p));
}

struct element_row {
    std::string_view name;
    std::vector<L> longhands;
    std::string_view initial;
    std::string_view other;
    // Declarations the value needs to show, such as a border style for a border width.
    std::string_view context = {};
};

// One property of elements, longhand or shorthand: both values parse through the sheet parser to
// exactly the expected longhands, the initial text computes to what "initial" gives, and the other
// value computes to something else.
void check_element_row(element_row const& r) {
    SCOPED_TRACE(std::string(r.name));
    ASSERT_TRUE(propnames::lookup_property(r.name)) << "unknown name";
    bool const shorthand = r.longhands.size() > 1;
    auto const reference = computed(joined(r.context, r.name, "initial"));
    for (auto const value : {r.initial, r.other}) {
        SCOPED_TRACE(std::string(value));
        auto const ds = element_declarations(joined(r.context, r.name, value));
        ASSERT_FALSE(ds.empty());
        auto const& d = ds.back();
        EXPECT_EQ(d.prop_name, r.name);
        auto const p = parse_declaration(d);
        ASSERT_TRUE(p) << "the value doesn't parse";
        auto const s = what_it_sets(*p);
        // The longhands a shorthand sets, in any order.
        auto sets = s.sets_longhands;
        auto want = r.longhands;
        std::ranges::sort(sets);
        std::ranges::sort(want);
        EXPECT_EQ(sets, want);
        EXPECT_EQ(std::holds_alternative<compound>(*p), shorthand);
        if (!shorthand) {
            EXPECT_TRUE(s.sets_value) << "inherit or initial where a value was written";
        }
        auto const style = computed(typed(ds));
        if (value == r.initial) {
            EXPECT_TRUE(style == reference) << "the initial value computes to something else";
        } else {
            EXPECT_FALSE(style == reference) << "the value computes to the initial style";
        }
    }
}

std::vector<element_row> const& longhand_rows() {
    static std::vector<element_row> const rows = {
        {"background-attachment", {L::background_attachment}, "scroll", "fixed, local"},
        {"background-clip", {L::background_clip}, "border-box", "content-box"},
        {"background-color", {L::background_color}, "transparent", "rgba(255, 0, 0, 0.5)"},
        {"background-image", {L::background_image}, "none", "url(a.png), linear-gradient(red, blue)"},
        {"background-image-resolution", {L::background_image_resolution}, "normal", "300dpi"},
        {"background-origin", {L::background_origin}, "padding-box", "border-box"},
        {"background-position", {L::background_position}, "0% 0%", "left 10pt bottom 20%"},
        {"background-repeat", {L::background_repeat}, "repeat", "repeat-x, no-repeat round"},
        {"background-size", {L::background_size}, "auto", "50% auto, cover"},
        {"bookmark-label", {L::bookmark_label}, "none", "\"Chapter \" counter(chapter)"},
        {"bookmark-level", {L::bookmark_level}, "none", "2"},
        {"bookmark-state", {L::bookmark_state}, "open", "closed"},
        {"bookmark-target", {L::bookmark_target}, "none", "attr(href)"},
        {"border-bottom-color", {L::border_bottom_color}, "currentColor", "cmyk(0, 1, 1, 0)"},
        {"border-bottom-left-radius", {L::border_bottom_left_radius}, "0", "4pt 2pt"},
        {"border-bottom-right-radius", {L::border_bottom_right_radius}, "0", "10%"},
        {"border-bottom-style", {L::border_bottom_style}, "none", "double"},
        {"border-bottom-width",
         {L::border_bottom_width},
         "medium",
         "thick",
         "border-bottom-style: solid"},
        {"border-clip", {L::border_clip}, "normal", "1pt 2pt"},
        {"border-collapse", {L::border_collapse}, "separate", "collapse"},
        {"border-left-color", {L::border_left_color}, "currentColor", "#0f0"},
        {"border-left-style", {L::border_left_style}, "none", "groove"},
        {"border-left-width", {L::border_left_width}, "medium", "2pt", "border-left-style: solid"},
        {"border-right-color", {L::border_right_color}, "currentColor", "-vellum-color(\"Spot 1\", 0.5)"},
        {"border-right-style", {L::border_right_style}, "none", "dashed"},
        {"border-right-width", {L::border_right_width}, "medium", "thin", "border-right-style: solid"},
        {"border-spacing", {L::border_spacing}, "0", "2pt 4pt"},
        {"border-top-color", {L::border_top_color}, "currentColor", "-vellum-overprint(rgb(10%, 20%, 30%))"},
        {"border-top-left-radius", {L::border_top_left_radius}, "0", "3pt"},
        {"border-top-right-radius", {L::border_top_right_radius}, "0", "1em 50%"},
        {"border-top-style", {L::border_top_style}, "none", "ridge"},
        {"border-top-width", {L::border_top_width}, "medium", "0.5mm", "border-top-style: solid"},
        {"bottom", {L::bottom}, "auto", "-2pt"},
        {"box-decoration-break", {L::box_decoration_break}, "clone", "slice"},
        {"box-sizing", {L::box_sizing}, "content-box", "border-box"},
        {"caption-page", {L::caption_page}, "first", "all"},
        {"caption-side", {L::caption_side}, "top", "bottom"},
        {"clear", {L::clear}, "none", "both"},
        {"clip", {L::clip}, "auto", "rect(1pt, 2pt, 3pt, auto)"},
        {"clip-path", {L::clip_path}, "none", "url(#c)"},
        {"clip-rule", {L::clip_rule}, "nonzero", "evenodd"},
        {"color", {L::color}, "black", "#336699"},
        {"column-break-after", {L::column_break_after}, "auto", "always"},
        {"column-break-before", {L::column_break_before}, "auto", "column"},
        {"column-count", {L::column_count}, "auto", "3"},
        {"column-fill", {L::column_fill}, "balance", "auto"},
        {"column-gap", {L::column_gap}, "1em", "2pt"},
        {"column-rule-color", {L::column_rule_color}, "currentColor", "blue"},
        {"column-rule-style", {L::column_rule_style}, "none", "dotted"},
        {"column-rule-width", {L::column_rule_width}, "medium", "thick", "column-rule-style: solid"},
        {"column-span", {L::column_span}, "none", "all"},
        {"column-width", {L::column_width}, "auto", "10em"},
        {"content", {L::content}, "normal", "open-quote \"x\" counter(c, upper-roman) attr(title) url(i.png)"},
        {"counter-increment", {L::counter_increment}, "none", "chapter section 2"},
        {"counter-reset", {L::counter_reset}, "none", "chapter 3 section"},
        {"direction", {L::direction}, "ltr", "rtl"},
        {"display", {L::display}, "inline", "table-cell"},
        {"empty-cells", {L::empty_cells}, "show", "hide"},
        {"fill", {L::fill}, "black", "url(#gradient)"},
        {"fill-opacity", {L::fill_opacity}, "1", "0.25"},
        {"fill-rule", {L::fill_rule}, "nonzero", "evenodd"},
        {"float", {L::float_}, "none", "column-top unless-fit"},
        {"flow", {L::flow}, "normal", "static(header, start)"},
        {"font-family", {L::font_family}, "serif", "\"DejaVu Sans\", Liberation Sans, monospace"},
        {"font-size", {L::font_size}, "medium", "x-large"},
        {"font-stretch", {L::font_stretch}, "normal", "semi-condensed"},
        {"font-style", {L::font_style}, "normal", "oblique"},
        {"font-feature-settings", {L::font_feature_settings}, "normal", "\"liga\" 0, \"salt\" 2, \"smcp\""},
        {"font-kerning", {L::font_kerning}, "auto", "none"},
        {"font-variant-caps", {L::font_variant_caps}, "normal", "all-small-caps"},
        {"font-variant-east-asian", {L::font_variant_east_asian}, "normal", "jis78 full-width ruby"},
        {"font-variant-ligatures", {L::font_variant_ligatures}, "normal", "no-common-ligatures contextual"},
        {"font-variant-numeric", {L::font_variant_numeric}, "normal", "oldstyle-nums tabular-nums slashed-zero"},
        {"font-variant-position", {L::font_variant_position}, "normal", "super"},
        {"font-weight", {L::font_weight}, "normal", "600"},
        {"footnote-style-position", {L::footnote_style_position}, "outside", "inside"},
        {"height", {L::height}, "auto", "50%"},
        {"hyphenate-after", {L::hyphenate_after}, "2", "3"},
        {"hyphenate-before", {L::hyphenate_before}, "2", "4"},
        {"hyphenate-lines", {L::hyphenate_lines}, "no-limit", "2"},
        {"hyphenate-patterns", {L::hyphenate_patterns}, "none", "url(en.pat), url(de.pat)"},
        {"hyphens", {L::hyphens}, "manual", "auto"},
        {"image-resolution", {L::image_resolution}, "normal", "from-image"},
        {"left", {L::left}, "auto", "10%"},
        {"letter-spacing", {L::letter_spacing}, "normal", "0.1em"},
        {"line-height", {L::line_height}, "normal", "1.2"},
        {"line-stacking-strategy", {L::line_stacking_strategy}, "inline-line-height", "max-height"},
        {"link", {L::link}, "none", "url(http://example.com/)"},
        {"list-style-image", {L::list_style_image}, "none", "url(bullet.png)"},
        {"list-style-position", {L::list_style_position}, "outside", "inside"},
        {"list-style-type", {L::list_style_type}, "disc", "lower-greek"},
        {"margin-bottom", {L::margin_bottom}, "0", "auto"},
        {"margin-inside", {L::margin_inside}, "0", "1cm"},
        {"margin-left", {L::margin_left}, "0", "-5%"},
        {"margin-outside", {L::margin_outside}, "0", "2in"},
        {"margin-right", {L::margin_right}, "0", "attr(data-m, px, 3px)"},
        {"margin-top", {L::margin_top}, "0", "1.5em"},
        {"marker-end", {L::marker_end}, "none", "url(#arrow)"},
        {"marker-mid", {L::marker_mid}, "none", "url(#dot)"},
        {"marker-start", {L::marker_start}, "none", "url(#tail)"},
        {"max-height", {L::max_height}, "none", "10cm"},
        {"max-width", {L::max_width}, "none", "80%"},
        {"min-height", {L::min_height}, "0", "2em"},
        {"min-width", {L::min_width}, "0", "100pt"},
        {"object-fit", {L::object_fit}, "fill", "scale-down"},
        {"object-position", {L::object_position}, "50% 50%", "left 10px top 20%"},
        {"opacity", {L::opacity}, "1.0", "0.5"},
        {"orphans", {L::orphans}, "2", "3"},
        {"overflow", {L::overflow}, "visible", "hidden"},
        {"overflow-wrap", {L::overflow_wrap}, "normal", "break-word"},
        {"padding-bottom", {L::padding_bottom}, "0", "1pt"},
        {"padding-left", {L::padding_left}, "0", "5%"},
        {"padding-right", {L::padding_right}, "0", "1ex"},
        {"padding-top", {L::padding_top}, "0", "2px"},
        {"page", {L::page}, "auto", "chapter"},
        {"page-break-after", {L::page_break_after}, "auto", "always"},
        {"page-break-before", {L::page_break_before}, "auto", "left"},
        {"page-break-inside", {L::page_break_inside}, "auto", "avoid"},
        {"page-group", {L::page_group}, "auto", "start"},
        {"position", {L::position}, "static", "running(header)"},
        {"-vellum-footnote-policy", {L::vellum_footnote_policy}, "auto", "line"},
        {"-vellum-image-magic", {L::vellum_image_magic}, "none", "ignore-icc-profile jpeg-quality 80"},
        {"-vellum-lang", {L::vellum_lang}, "none", "\"en-GB\""},
        {"-vellum-linebreak-magic", {L::vellum_linebreak_magic}, "auto", "none"},
        {"-vellum-pdf-destination", {L::vellum_pdf_destination}, "none", "attr(id)"},
        {"-vellum-pdf-link-type", {L::vellum_pdf_link_type}, "auto", "external"},
        {"-vellum-text-replace", {L::vellum_text_replace}, "none", "\"--\" \"\\2013\" \"'\" \"\\2019\""},
        {"quotes", {L::quotes}, "auto", "\"<\" \">\" \"[\" \"]\""},
        {"right", {L::right}, "auto", "1em"},
        {"stop-color", {L::stop_color}, "black", "hotpink"},
        {"stop-opacity", {L::stop_opacity}, "1", "0"},
        {"string-set", {L::string_set}, "none", "title content(text), chapter \"Ch. \" counter(chapter)"},
        {"stroke", {L::stroke}, "none", "red"},
        {"stroke-dasharray", {L::stroke_dasharray}, "none", "3, 2pt, 10%"},
        {"stroke-dashoffset", {L::stroke_dashoffset}, "0", "2"},
        {"stroke-linecap", {L::stroke_linecap}, "butt", "round"},
        {"stroke-linejoin", {L::stroke_linejoin}, "miter", "bevel"},
        {"stroke-miterlimit", {L::stroke_miterlimit}, "10.0", "4"},
        {"stroke-opacity", {L::stroke_opacity}, "1", "0.75"},
        {"stroke-width", {L::stroke_width}, "1", "0.5pt"},
        {"table-baseline", {L::table_baseline}, "1", "2"},
        {"table-column-span", {L::table_column_span}, "1", "3"},
        {"table-layout", {L::table_layout}, "auto", "fixed"},
        {"table-row-span", {L::table_row_span}, "1", "attr(rowspan, integer, 2)"},
        {"text-align", {L::text_align}, "auto", "justify"},
        {"text-align-last", {L::text_align_last}, "auto", "center"},
        {"text-anchor", {L::text_anchor}, "start", "middle"},
        {"text-indent", {L::text_indent}, "0", "-2em"},
        {"text-justify", {L::text_justify}, "auto", "inter-ideograph"},
        {"text-line-through-color", {L::text_line_through_color}, "currentColor", "gray"},
        {"text-line-through-style", {L::text_line_through_style}, "none", "wavy"},
        {"text-overflow", {L::text_overflow}, "clip", "ellipsis"},
        {"text-overline-color", {L::text_overline_color}, "currentColor", "#abc"},
        {"text-overline-style", {L::text_overline_style}, "none", "double"},
        {"text-transform", {L::text_transform}, "none", "capitalize"},
        {"text-underline-color", {L::text_underline_color}, "currentColor", "transparent"},
        {"text-underline-style", {L::text_underline_style}, "none", "dotted"},
        {"top", {L::top}, "auto", "3pt"},
        {"transform",
         {L::transform},
         "none",
         "translate(10pt, 5%) skewX(10deg) rotate(0.25turn) matrix(1, 0, 0, 1, 5, 5)"},
        {"transform-origin", {L::transform_origin}, "50% 50%", "left top"},
        {"unicode-bidi", {L::unicode_bidi}, "normal", "bidi-override"},
        {"vertical-align", {L::vertical_align}, "baseline", "super"},
        {"visibility", {L::visibility}, "visible", "collapse"},
        {"white-space", {L::white_space}, "normal", "pre-wrap"},
        {"widows", {L::widows}, "2", "4"},
        // attr() with its type after a blank, as CSS Values writes it, as well as after a comma.
        {"width", {L::width}, "auto", "attr(data-w length, 5px)"},
        {"word-break", {L::word_break}, "normal", "keep-all"},
        {"word-spacing", {L::word_spacing}, "normal", "-1pt"},
        {"writing-mode", {L::writing_mode}, "horizontal-tb", "vertical-rl"},
        {"z-index", {L::z_index}, "auto", "-3"},
    };
    return rows;
}

std::vector<L> sides(L bottom, L left, L right, L top) {
    return {bottom, left, right, top};
}

std::vector<element_row> const& shorthand_rows() {
    static std::vector<element_row> const rows = {
        {"background",
         {L::background_attachment, L::background_clip, L::background_color, L::background_image,
          L::background_origin, L::background_position, L::background_repeat, L::background_size},
         "transparent none repeat scroll 0% 0%",
         "url(a.png) no-repeat, linear-gradient(red, blue) fixed center / contain padding-box content-box #eee"},
        {"border",
         {L::border_bottom_color, L::border_bottom_style, L::border_bottom_width, L::border_left_color,
          L::border_left_style, L::border_left_width, L::border_right_color, L::border_right_style,
          L::border_right_width, L::border_top_color, L::border_top_style, L::border_top_width},
         "medium none currentColor",
         "2pt solid red"},
        {"border-bottom",
         {L::border_bottom_color, L::border_bottom_style, L::border_bottom_width},
         "medium none currentColor",
         "thin dashed #123"},
        {"border-left",
         {L::border_left_color, L::border_left_style, L::border_left_width},
         "none",
         "solid 3pt"},
        {"border-right",
         {L::border_right_color, L::border_right_style, L::border_right_width},
         "currentColor medium",
         "blue double"},
        {"border-top",
         {L::border_top_color, L::border_top_style, L::border_top_width},
         "medium none currentColor",
         "thick inset"},
        {"border-color",
         sides(L::border_bottom_color, L::border_left_color, L::border_right_color, L::border_top_color),
         "currentColor",
         "red green blue yellow",
         "border-style: solid"},
        {"border-style",
         sides(L::border_bottom_style, L::border_left_style, L::border_right_style, L::border_top_style),
         "none",
         "solid double"},
        {"border-width",
         sides(L::border_bottom_width, L::border_left_width, L::border_right_width, L::border_top_width),
         "medium",
         "1pt 2pt 3pt",
         "border-style: solid"},
        {"border-radius",
         {L::border_bottom_left_radius, L::border_bottom_right_radius, L::border_top_left_radius,
          L::border_top_right_radius},
         "0",
         "1pt 2pt 3pt 4pt / 5pt"},
        {"column-rule",
         {L::column_rule_color, L::column_rule_style, L::column_rule_width},
         "medium none currentColor",
         "1pt solid gray"},
        {"columns", {L::column_count, L::column_width}, "auto auto", "12em 2"},
        {"font",
         {L::font_family, L::font_feature_settings, L::font_kerning, L::font_size, L::font_stretch, L::font_style,
          L::font_variant_caps, L::font_variant_east_asian, L::font_variant_ligatures, L::font_variant_numeric,
          L::font_variant_position, L::font_weight, L::line_height},
         "normal normal normal medium/normal serif",
         "italic small-caps 600 condensed 12pt/1.5 \"DejaVu Serif\", serif"},
        {"font-variant",
         {L::font_variant_caps, L::font_variant_east_asian, L::font_variant_ligatures, L::font_variant_numeric,
          L::font_variant_position},
         "normal",
         "small-caps no-common-ligatures lining-nums sub simplified"},
        {"list-style",
         {L::list_style_image, L::list_style_position, L::list_style_type},
         "disc outside none",
         "upper-roman inside url(b.png)"},
        {"margin",
         {L::margin_bottom, L::margin_inside, L::margin_left, L::margin_outside, L::margin_right, L::margin_top},
         "0",
         "1px 2px 3px 4px"},
        {"marker", {L::marker_end, L::marker_mid, L::marker_start}, "none", "url(#m)"},
        {"padding",
         sides(L::padding_bottom, L::padding_left, L::padding_right, L::padding_top),
         "0",
         "1pt 2pt"},
        {"text-decoration",
         {L::text_line_through_color, L::text_line_through_style, L::text_overline_color,
          L::text_overline_style, L::text_underline_color, L::text_underline_style},
         "none",
         "underline overline dotted red"},
        {"text-line-through",
         {L::text_line_through_color, L::text_line_through_style},
         "none currentColor",
         "solid blue"},
        {"text-overline", {L::text_overline_color, L::text_overline_style}, "none", "double"},
        {"text-underline", {L::text_underline_color, L::text_underline_style}, "none", "wavy green"},
    };
    return rows;
}

// Properties of the page itself, read in an @page body.
struct page_row {
    std::string_view name;
    std::string_view initial;
    std::string_view other;
    std::string_view context = {};
};

std::vector<page_row> const& page_rows() {
    static std::vector<page_row> const rows = {
        {"bleed", "auto", "3pt 6pt"},
        {"marks", "none", "crop cross"},
        {"mark-length", "24pt", "10pt", "marks: crop"},
        {"mark-offset", "auto", "2pt 1pt", "marks: crop"},
        {"size", "auto", "a4 landscape"},
        {"-vellum-trim", "auto", "1cm"},
        {"-vellum-rotate-body", "0deg", "90deg"},
        {"-vellum-shrink-margin-boxes", "false", "true"},
        {"-vellum-shrink-to-fit", "none", "auto"},
        {"-vellum-pdf-page-label", "auto", "\"A-\" counter(page)"},
    };
    return rows;
}

// Page-only properties that other parts of the program read from the blocks of their own at-rules;
// here they must reach that block intact and never count on an element.
struct block_row {
    std::string_view name;
    std::string_view at_rule;
    std::string_view value;
};

std::vector<block_row> const& block_rows() {
    static std::vector<block_row> const rows = {
        {"alternate-color", "@vellum-color \"Spot 1\"", "cmyk(0, 0.5, 1, 0)"},
        {"-vellum-pdf-open-action", "@vellum-pdf", "command(Print)"},
        {"-vellum-pdf-output-intent", "@vellum-pdf", "url(icc/press.icc)"},
        {"-vellum-pdf-page-layout", "@vellum-pdf", "two-column-left"},
        {"-vellum-pdf-page-mode", "@vellum-pdf", "show-bookmarks"},
        {"-vellum-pdf-paper-tray", "@vellum-pdf", "pick-tray-by-pdf-size"},
        {"-vellum-pdf-print-scaling", "@vellum-pdf", "none"},
        {"-vellum-pdf-profile", "@vellum-pdf", "\"PDF/A-1b\""},
        {"-vellum-pdf-script", "@vellum-pdf", "url(s.js)"},
        {"src", "@font-face", "url(f.woff) format(\"woff\"), local(\"DejaVu Sans\")"},
        {"unicode-range", "@font-face", "U+0025-00FF, u+4??"},
    };
    return rows;
}

TEST(property_table, every_name_has_a_row) {
    std::set<P> seen;
    auto add = [&](std::string_view name) {
        auto const p = propnames::lookup_property(name);
        ASSERT_TRUE(p) << name;
        EXPECT_TRUE(seen.insert(*p).second) << name << " has two rows";
        EXPECT_EQ(propnames::css_name(*p), name);
    };
    for (auto const& r : longhand_rows()) {
        add(r.name);
    }
    for (auto const& r : shorthand_rows()) {
        add(r.name);
    }
    for (auto const& r : page_rows()) {
        add(r.name);
    }
    for (auto const& r : block_rows()) {
        add(r.name);
    }
    EXPECT_EQ(longhand_rows().size(), longhand_count);
    EXPECT_EQ(seen.size(), 213u);
    EXPECT_EQ(seen.size(), static_cast<std::size_t>(propnames::prop_name_count));
}

TEST(property_table, longhands_parse_their_initial_and_other_values) {
    for (auto const& r : longhand_rows()) {
        check_element_row(r);
    }
}

TEST(property_table, shorthands_expand_into_their_listed_members) {
    for (auto const& r : shorthand_rows()) {
        check_element_row(r);
        // The keywords stand for every member at once.
        for (auto const keyword : {"inherit", "INITIAL"}) {
            auto const p = parse_declaration(*propnames::lookup_property(r.name),
                                             *parser::parse_value("file:///t.css", keyword));
            ASSERT_TRUE(p) << r.name << ": " << keyword;
            EXPECT_EQ(what_it_sets(*p).sets_longhands, r.longhands) << r.name << ": " << keyword;
        }
    }
}

// Page styles compare by value, the page body's style included.
bool same_page(page::page_style a, page::page_style b) {
    bool const bodies = a.region_body && b.region_body ? *a.region_body == *b.region_body
                                                       : a.region_body == b.region_body;
    a.region_body = nullptr;
    b.region_body = nullptr;
    return bodies && a == b;
}

page::page_style page_of(std::string const& body) {
    auto const e = read_sheet("@page { " + body + " }");
    EXPECT_TRUE(e.warnings.empty()) << body;
    EXPECT_EQ(e.pages.size(), 1u) << body;
    return page::page_style_of(page::make_pages(e.pages), {}, nullptr);
}

TEST(property_table, page_properties_type_in_page_rules_only) {
    auto const defaults = page_of("");
    for (auto const& r : page_rows()) {
        SCOPED_TRACE(std::string(r.name));
        auto const with_context = page_of(std::string(r.context));
        for (auto const value : {r.initial, r.other}) {
            SCOPED_TRACE(std::string(value));
            auto const body = joined(r.context, r.name, value);
            auto const e = read_sheet("@page { " + body + " }");
            ASSERT_EQ(e.pages.size(), 1u);
            auto const& d = e.pages[0].page_declarations.back();
            EXPECT_EQ(d.prop_name, r.name);
            auto const p = page::parse_page_property(d);
            ASSERT_TRUE(p) << "the value doesn't parse";
            EXPECT_FALSE(std::holds_alternative<page::style_prop>(*p)) << "read as an element property";
            auto const ps = page_of(body);
            if (value == r.initial) {
                EXPECT_TRUE(same_page(ps, with_context)) << "the initial value gives another page";
            } else {
                EXPECT_FALSE(same_page(ps, with_context)) << "the value leaves the page as it was";
            }
            // On an element the name means nothing, and the declaration is dropped.
            auto const on_element = read_sheet("p { " + std::string(r.name) + ": " + std::string(value) + " }");
            ASSERT_EQ(on_element.rules.size(), 1u);
            EXPECT_FALSE(valid_declaration(on_element.rules[0].rule_declarations.back()));
        }
    }
    EXPECT_TRUE(same_page(page_of("size: letter; marks: none; bleed: auto"), defaults));
}

TEST(property_table, page_only_names_reach_their_own_blocks) {
    for (auto const& r : block_rows()) {
        SCOPED_TRACE(std::string(r.name));
        std::string const decl = std::string(r.name) + ": " + std::string(r.value);
        auto const e = read_sheet(std::string(r.at_rule) + " { " + decl + " } p { " + decl + " }");
        EXPECT_TRUE(e.warnings.empty());
        declarations const* block = nullptr;
        if (r.at_rule == "@font-face") {
            ASSERT_EQ(e.fonts.size(), 1u);
            block = &e.fonts[0];
        } else if (r.at_rule == "@vellum-pdf") {
            ASSERT_EQ(e.special_rules.size(), 1u);
            EXPECT_EQ(e.special_rules[0].first, "vellum-pdf");
            block = &e.special_rules[0].second;
        } else {
            ASSERT_EQ(e.colors.count("Spot 1"), 1u);
            block = &e.colors.at("Spot 1");
        }
        ASSERT_EQ(block->size(), 1u);
        EXPECT_EQ((*block)[0].prop_name, r.name);
        EXPECT_EQ(propnames::lookup_property((*block)[0].prop_name), propnames::lookup_property(r.name));
        ASSERT_EQ(e.rules.size(), 1u);
        ASSERT_EQ(e.rules[0].rule_declarations.size(), 1u);
        EXPECT_FALSE(valid_declaration(e.rules[0].rule_declarations[0]));
    }
}

// The names that are also spelled "vellum-..." and "-vellum-...".
constexpr std::string_view prefixed_names[] = {
    "alternate-color", "background-image-resolution", "bleed", "bookmark-label", "bookmark-level",
    "bookmark-state", "bookmark-target", "border-clip", "caption-page", "flow", "hyphenate-after",
    "hyphenate-before", "hyphenate-lines", "hyphenate-patterns", "hyphens", "image-resolution", "link",
    "mark-length", "mark-offset", "page-group", "text-justify",
};

TEST(property_table, prefixed_spellings_are_the_same_property) {
    auto value_for = [](std::string_view name) -> std::string_view {
        for (auto const& r : longhand_rows()) {
            if (r.name == name) {
                return r.other;
            }
        }
        for (auto const& r : page_rows()) {
            if (r.name == name) {
                return r.other;
            }
        }
        return {};
    };
    for (auto const name : prefixed_names) {
        for (std::string const prefix : {"vellum-", "-vellum-"}) {
            std::string const alias = prefix + std::string(name);
            SCOPED_TRACE(alias);
            ASSERT_TRUE(propnames::lookup_property(alias));
            EXPECT_EQ(propnames::lookup_property(alias), propnames::lookup_property(name));
            auto const value = value_for(name);
            if (value.empty()) {
                continue; // alternate-color: only its name is read here
            }
            if (longhand_named(*propnames::lookup_property(name))) {
                auto const ds = element_declarations(alias + ": " + std::string(value));
                ASSERT_EQ(ds.size(), 1u);
                EXPECT_EQ(ds[0].prop_name, alias);
                auto const mine = parse_declaration(ds[0]);
                ASSERT_TRUE(mine);
                EXPECT_EQ(mine, first_typed(std::string(name) + ": " + std::string(value)));
            } else {
                EXPECT_TRUE(same_page(page_of(alias + ": " + std::string(value)),
                                      page_of(std::string(name) + ": " + std::string(value))));
            }
        }
    }
    // Names outside the list have no prefixed spelling, and the prefixed-only names no bare one.
    EXPECT_FALSE(propnames::lookup_property("vellum-color"));
    EXPECT_FALSE(propnames::lookup_property("-vellum-width"));
    EXPECT_FALSE(propnames::lookup_property("vellum-lang"));
    EXPECT_FALSE(propnames::lookup_property("pdf-page-label"));
    EXPECT_FALSE(propnames::lookup_property("trim"));
    // word-wrap is the older name of overflow-wrap.
    EXPECT_EQ(propnames::lookup_property("word-wrap"), P::prop_overflow_wrap);
    auto const ww = element_declarations("word-wrap: break-word");
    ASSERT_EQ(ww.size(), 1u);
    EXPECT_EQ(parse_declaration(ww[0]), first_typed("overflow-wrap: break-word"));
}

} // namespace
} // namespace vellum::css::property
