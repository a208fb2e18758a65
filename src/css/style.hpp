// The computed style of one element: an immutable record whose rarely changing groups are shared
// sub-records, so that a child that changes nothing in a group shares its parent's.
#pragma once

#include "css/substitute.hpp"
#include "css/box.hpp"
#include "css/color.hpp"
#include "css/fonts.hpp"
#include "css/property.hpp"
#include "css/semantics.hpp"
#include "css/svgstyle.hpp"
#include "css/text.hpp"
#include "util/ref.hpp"

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace vellum::css::style {

/// Values that seldom differ from the parent's; all of them inherit.
struct rare_props {
    box::border_collapse rare_props_border_collapse = box::border_collapse::separate;
    box::caption_page rare_props_caption_page = box::caption_page::first;
    box::caption_side rare_props_caption_side = box::caption_side::top;
    box::direction rare_props_direction = box::direction::ltr;
    box::quotes rare_props_quotes = box::auto_value{};
    box::empty_cells rare_props_empty_cells = box::empty_cells::show;
    text::line_stacking_strategy rare_props_line_stacking_strategy =
        text::line_stacking_strategy::inline_line_height;
    property::keyword_list rare_props_vellum_image_magic;
    text::linebreak_magic rare_props_vellum_linebreak_magic = text::linebreak_magic::auto_;
    box::visibility rare_props_visibility = box::visibility::visible;
    text::white_space rare_props_white_space = text::white_space::normal;
    text::hyphenate_patterns rare_props_hyphenate_patterns;
    semantics::link_type rare_props_link = semantics::link_none{};
    box::url_or_none rare_props_list_style_image;
    box::list_style_type rare_props_list_style_type = box::list_style_named{"disc"};
    box::page rare_props_page;
    box::image_resolution rare_props_background_image_resolution = box::resolution_normal{};
    box::cellspacing rare_props_border_spacing;
    box::list_style_position rare_props_footnote_style_position = box::list_style_position::outside;
    text::hyphens rare_props_hyphens = text::hyphens::manual;
    int rare_props_hyphenate_after = 2;
    int rare_props_hyphenate_before = 2;
    text::hyphenate_lines rare_props_hyphenate_lines = text::no_limit{};
    box::image_resolution rare_props_image_resolution = box::resolution_normal{};
    text::lang rare_props_vellum_lang;
    /// The language of the element from its own or an ancestor's lang attribute, lower-cased.
    std::optional<std::string> rare_props_vellum_lang_value;
    box::letter_word_spacing rare_props_letter_spacing = box::normal_value{};
    box::letter_word_spacing rare_props_word_spacing = box::normal_value{};
    int rare_props_orphans = 2;
    int rare_props_widows = 2;
    box::vellum_footnote_policy rare_props_vellum_footnote_policy = box::vellum_footnote_policy::auto_;
    bool operator==(rare_props const&) const = default;
};

/// The small enumerations of the box's role and its breaks; none of them inherit.
struct bit_props {
    box::clear bit_props_clear = box::clear::none;
    box::column_break bit_props_column_break_after = box::column_break::auto_;
    box::column_break bit_props_column_break_before = box::column_break::auto_;
    box::display bit_props_display = box::display_kind::inline_;
    box::page_break bit_props_page_break_after = box::page_break::auto_;
    box::page_break bit_props_page_break_before = box::page_break::auto_;
    box::page_break bit_props_page_break_inside = box::page_break::auto_;
    box::position bit_props_position = box::position_kind::static_;
    bool operator==(bit_props const&) const = default;
};

/// Values that don't inherit and that few elements set: bookmarks, columns, counters, decorations,
/// transforms, table spans, size limits, overflow and the like. A style that sets none of them shares the
/// initial group.
struct rare_box_props {
    property::content_terms bookmark_label = box::none_value{};
    box::bookmark_level bookmark_level = box::none_value{};
    box::bookmark_state bookmark_state = box::bookmark_state::open;
    property::content_terms bookmark_target = box::none_value{};
    box::box_decoration_break box_decoration_break = box::box_decoration_break::clone;
    box::border_clip border_clip;
    box::clip clip = box::auto_value{};
    int table_column_span = 1;
    box::column_count column_count = box::auto_value{};
    /// Empty for currentColor: the colour of the element itself.
    std::optional<color::color> column_rule_color;
    box::line_style column_rule_style = box::line_style::none;
    float column_rule_width = 0;
    box::column_span column_span = box::column_span::none;
    box::column_fill column_fill = box::column_fill::balance;
    box::column_width column_width = box::auto_value{};
    box::counters counter_increment;
    box::counters counter_reset;
    box::object_fit object_fit = box::object_fit::fill;
    box::bg_position object_position{units::percentage{50}, units::percentage{50}};
    float opacity = 1;
    box::page_group page_group = box::page_group::auto_;
    property::content_terms vellum_pdf_destination = box::none_value{};
    property::keyword_list vellum_pdf_link_type{"auto"};
    int table_row_span = 1;
    property::string_set string_set;
    box::url_or_none clip_path;
    color::color stop_color = color::black();
    float stop_opacity = 1;
    int table_baseline = 1;
    /// Empty for currentColor: the colour of the element itself.
    std::optional<color::color> text_line_through_color;
    /// Empty for currentColor: the colour of the element itself.
    std::optional<color::color> text_overline_color;
    /// Empty for currentColor: the colour of the element itself.
    std::optional<color::color> text_underline_color;
    text::text_line_style text_line_through_style = text::text_line_style::none;
    text::text_line_style text_overline_style = text::text_line_style::none;
    text::text_line_style text_underline_style = text::text_line_style::none;
    box::text_overflow text_overflow = box::text_overflow::clip;
    box::transform transform;
    box::transform_origin transform_origin{units::percentage{50}, units::percentage{50}};
    box::unicode_bidi unicode_bidi = box::unicode_bidi::normal;
    box::z_index z_index = box::auto_value{};
    box::flowy flow = box::flow_normal{};
    box::max_width max_height = box::none_value{};
    box::max_width max_width = box::none_value{};
    box::min_width min_height = 0.0f;
    box::min_width min_width = 0.0f;
    box::overflow overflow = box::overflow::visible;
    box::table_layout table_layout = box::table_layout::auto_;
    bool operator==(rare_box_props const&) const = default;
};

/// The group with every value initial, shared by every style that sets none of them.
ref<rare_box_props> const& initial_rare_box();

/// The computed style. Lengths are in points; percentages that wait for a containing block stay
/// percentages. The default values are the initial style.
struct style {
    /// The custom properties ("--name"), inherited as a whole; null for none.
    ref<substitute::custom_properties> custom_properties;
    ref<svgstyle::svgstyle> svgstyle;
    ref<box::background> background;
    ref<box::borders> borders;
    box::box_sizing box_sizing = box::box_sizing::content_box;
    ref<fonts::font_props> font_props;
    ref<text::text_props> text;
    ref<css::style::rare_props> rare_props;
    css::style::bit_props bit_props;
    ref<css::style::rare_box_props> rare_box = initial_rare_box();
    box::position_offset bottom = box::auto_value{};
    color::color color = color::black();
    float column_gap = 12;
    property::content_terms content = box::normal_value{};
    box::floaty float_ = box::float_kind::none;
    float font_size = 12;
    box::width height = box::auto_value{};
    box::position_offset left = box::auto_value{};
    fonts::line_height line_height = fonts::line_height_normal{};
    box::list_style_position list_style_position = box::list_style_position::outside;
    box::margin margin_bottom = 0.0f;
    box::margin margin_inside = 0.0f;
    box::margin margin_left = 0.0f;
    box::margin margin_outside = 0.0f;
    box::margin margin_right = 0.0f;
    box::margin margin_top = 0.0f;
    box::padding padding_bottom = 0.0f;
    box::padding padding_left = 0.0f;
    box::padding padding_right = 0.0f;
    box::padding padding_top = 0.0f;
    box::position_offset right = box::auto_value{};
    box::position_offset top = box::auto_value{};
    box::vertical_align vertical_align = box::vertical_align_kind::baseline;
    box::width width = box::auto_value{};
    box::writing_mode writing_mode = box::writing_mode::horizontal;

    /// Compares the groups by value, not by identity.
    bool operator==(style const& other) const;
};

/// A colour of `rare_box_props` as used: currentColor is the element's colour.
inline color::color const& color_or_current(std::optional<color::color> const& c, style const& s) {
    return c ? *c : s.color;
}

/// The style's own copy of its rare box group, to change before the style is shared.
rare_box_props& own_rare_box(style& s);

/// The same for its group of rare inherited values.
rare_props& own_rare_props(style& s);

/// The style with min-width 0 and max-width none, as measuring and packing inside a given width want
/// it; its rare box group is copied only where it sets other limits.
void clear_width_limits(style& s);

/// The same for min-height and max-height.
void clear_height_limits(style& s);

/// The initial style: every property at its initial value, the groups shared by every style that
/// doesn't change them. A root element takes it as its parent.
ref<style> initial_style();

/// The style of a child of `parent` for which nothing is declared: the inherited properties from the
/// parent, with its groups shared as they are, and every other property at its initial value.
style inherit_from(style const& parent);

} // namespace vellum::css::style
