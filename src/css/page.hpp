// The page model: the properties an @page rule gives the paper (size, bleed, marks, trim, rotation of
// the body), the rules typed and weighed for the cascade, and the style of one concrete page with the
// declarations of its margin boxes.
#pragma once

#include "css/page_rule.hpp"
#include "css/priority.hpp"
#include "css/property.hpp"
#include "css/property_page.hpp"
#include "css/style.hpp"
#include "driver/log.hpp"
#include "util/ref.hpp"

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace vellum::css::page {

using page_rule::blank_page;
using page_rule::left_page;
using page_rule::nth_page;
using page_rule::page_class;
using page_rule::region;
using page_rule::right_page;

/// Which pages a rule is for: an optional page name and classes that all must hold.
using page = page_rule::page_selector;

/// A page property's declared value: "initial" (its default) or a value of the property's type.
template <class T>
using page_spec = std::variant<property::initial, T>;

/// Printer's marks outside the trim box.
enum class marks { none, crop, cross, both };

/// Four lengths around the page, in the order top, right, bottom, left. Len is units::length while
/// declared and float points once computed.
template <class Len>
struct sides {
    Len sides_top{};
    Len sides_right{};
    Len sides_bottom{};
    Len sides_left{};
    bool operator==(sides const&) const = default;
};

/// How far the page's background and content may run beyond the trim edge.
using bleed = sides<float>;
/// The band around the trim box that the media box adds, where the printer's marks go.
using trim = sides<float>;
/// The distance between the bleed edge and the start of the printer's marks.
using mark_offset = sides<float>;

/// "auto", or one to four lengths expanded as for margin.
using spec_sides = std::variant<box::auto_value, sides<units::length>>;
using spec_bleed = spec_sides;
using spec_trim = spec_sides;
using spec_mark_offset = spec_sides;

using spec_mark_length = units::length;

/// The paper's width and height in points.
struct paper {
    float paper_width = 612;
    float paper_height = 792;
    bool operator==(paper const&) const = default;
};

/// The quarter turn the page body is painted at, clockwise.
enum class vellum_rotate_body { rotate_body_0, rotate_body_90, rotate_body_180, rotate_body_270 };

/// "portrait" and "landscape" turn the body only when the paper has the other orientation.
enum class rotate_body_orientation { rotate_body_portrait, rotate_body_landscape };

using spec_vellum_rotate_body = std::variant<rotate_body_orientation, vellum_rotate_body>;

/// Whether a page whose content is too wide is scaled down to fit.
enum class shrink_to_fit { auto_, none };

/// The label of the page in a PDF viewer: the page number, or the terms of a content list.
using vellum_pdf_page_label = std::variant<box::auto_value, property::content_list>;

// The page properties, each a record of its own so that the variant tells them apart.

struct prop_bleed {
    page_spec<spec_bleed> bleed_spec;
    bool operator==(prop_bleed const&) const = default;
};

struct prop_marks {
    page_spec<css::page::marks> marks_spec;
    bool operator==(prop_marks const&) const = default;
};

struct prop_mark_length {
    page_spec<spec_mark_length> mark_length_spec;
    bool operator==(prop_mark_length const&) const = default;
};

struct prop_mark_offset {
    page_spec<spec_mark_offset> mark_offset_spec;
    bool operator==(prop_mark_offset const&) const = default;
};

struct prop_page_label {
    page_spec<vellum_pdf_page_label> page_label_spec;
    bool operator==(prop_page_label const&) const = default;
};

struct prop_rotate_body {
    page_spec<spec_vellum_rotate_body> rotate_body_spec;
    bool operator==(prop_rotate_body const&) const = default;
};

struct prop_size {
    page_spec<property_page::page_size> size_spec;
    bool operator==(prop_size const&) const = default;
};

/// An element property of the page body, such as margin or font-size.
struct style_prop {
    property::property style_prop_property;
    bool operator==(style_prop const&) const = default;
};

struct prop_shrink_margin_boxes {
    page_spec<bool> shrink_margin_boxes_spec;
    bool operator==(prop_shrink_margin_boxes const&) const = default;
};

struct prop_shrink_to_fit {
    page_spec<css::page::shrink_to_fit> shrink_to_fit_spec;
    bool operator==(prop_shrink_to_fit const&) const = default;
};

struct prop_trim {
    page_spec<spec_trim> trim_spec;
    bool operator==(prop_trim const&) const = default;
};

using page_property = std::variant<prop_bleed,
                                   prop_marks,
                                   prop_mark_length,
                                   prop_mark_offset,
                                   prop_page_label,
                                   prop_rotate_body,
                                   prop_size,
                                   style_prop,
                                   prop_shrink_margin_boxes,
                                   prop_shrink_to_fit,
                                   prop_trim>;

/// A typed declaration with its priority in the cascade.
template <class T>
struct pdeclaration {
    T pdecl_value;
    priority::priority pdecl_priority;
    bool operator==(pdeclaration const&) const = default;
};

/// The declarations of one margin box or page area.
struct region_declarations {
    css::page::region region_name = region::top_center;
    std::vector<pdeclaration<property::property>> region_decls;
    bool operator==(region_declarations const&) const = default;
};

/// An @page rule with its declarations typed; those that didn't suit their property are gone.
struct page_rule_typed {
    css::page::page rule_page;
    std::vector<pdeclaration<page_property>> rule_decls;
    std::vector<region_declarations> rule_regions;
    bool operator==(page_rule_typed const&) const = default;
};

/// All page rules of a document, in the order of the sheets.
using pages = std::vector<page_rule_typed>;

/// The page property of a declaration in an @page body: one of the page's own properties, or an
/// element property of the body. Nothing when the value doesn't suit the property.
[[nodiscard]] std::optional<page_property> parse_page_property(declaration const& d);

/// The weight of a page selector against others of its origin: a page name counts most, then
/// :first, :blank and :nth, then :left and :right.
selector::specific specificity(page const& p);

/// The rules typed and given their priorities.
pages make_pages(std::vector<page_rule::page_rule> const& rules);

/// Which side of a spread a page is on.
enum class page_side { left, right };

/// What decides which rules apply to one page.
struct page_query {
    /// The page name of the content that the page holds; nothing for an unnamed page.
    std::optional<std::string> query_page_name;
    /// The page's place in its page group, from 1: the group starts with the document, and again where
    /// the page name changes or a page group is started.
    int query_group_page = 1;
    page_side query_side = page_side::right;
    /// Whether the page is left empty to bring the next content to the side it asks for.
    bool query_blank = false;
    bool operator==(page_query const&) const = default;
};

/// Whether a rule's selector holds for the page.
bool page_matches(page const& p, page_query const& q);

/// The style of one page: the page body's style, the paper with its marks, and the declarations of
/// the margin boxes, in ascending priority.
struct page_style {
    ref<style::style> region_body;
    css::page::paper page_size;
    /// Whether the size asked for lay beyond what PDF viewers take, and was brought within it.
    bool page_size_clamped = false;
    css::page::bleed page_bleed;
    css::page::trim page_trim;
    css::page::marks page_marks = marks::none;
    float page_mark_length = 0;
    css::page::mark_offset page_mark_offset;
    css::page::vellum_pdf_page_label page_label = box::auto_value{};
    css::page::vellum_rotate_body page_rotate_body = vellum_rotate_body::rotate_body_0;
    bool page_shrink_margin_boxes = false;
    css::page::shrink_to_fit page_shrink_to_fit = shrink_to_fit::none;
    /// Only the regions that some rule of the page declares, in the order of `region`.
    std::vector<std::pair<region, std::vector<property::property>>> page_regions;
    bool operator==(page_style const&) const = default;
};

/// The smallest and largest page side PDF viewers accept, in points (3 and 14,400 default user units).
inline constexpr float min_paper_side = 3;
inline constexpr float max_paper_side = 14400;

/// The paper when no rule gives a size: US letter, 8.5 by 11 inches.
inline constexpr paper default_paper{612, 792};

/// Printer's marks are this long unless mark-length says otherwise.
inline constexpr float default_mark_length = 24;

/// Printer's marks start this far beyond the bleed edge unless mark-offset says otherwise.
inline constexpr float default_mark_offset = 6;

/// The bleed that "auto" gives to a page with marks; a page without marks has none.
inline constexpr float default_bleed_with_marks = 6;

/// The style of the page that the query describes, under the given rules. The page body inherits from
/// the root element's style; nothing there stands for the initial style.
page_style page_style_of(pages const& rules, page_query const& q, ref<style::style> const& root_style);

/// The declarations of a region, in ascending priority; nothing if no rule of the page declares it.
std::vector<property::property> const* region_declarations_of(page_style const& ps, region r);

/// The computed style of a margin box, page-float area or footnote area: its declarations computed
/// against the page body's style.
style::style region_style(page_style const& ps, region r);

/// The page rule of the --page-size option: the size for all pages at user origin, numbered 0. A value
/// that isn't a size is left out with the warning "invalid --page-size: " and the value.
[[nodiscard]] std::optional<page_rule::page_rule> page_size_rule(log::log const& log, std::string_view text);

/// The page rule of the --page-margin option: the margin shorthand for all pages at user origin,
/// numbered 0, or nothing with the warning "invalid --page-margin: " and the value.
[[nodiscard]] std::optional<page_rule::page_rule> page_margin_rule(log::log const& log,
                                                                   std::string_view text);

} // namespace vellum::css::page
