#include "css/style.hpp"

namespace vellum::css::style {

namespace {

template <class T>
bool same_group(ref<T> const& a, ref<T> const& b) {
    if (a == b) {
        return true;
    }
    return a && b && *a == *b;
}

style make_initial() {
    style s;
    s.svgstyle = share(svgstyle::svgstyle{});
    s.background = share(box::background{});
    s.borders = share(box::borders{});
    s.font_props = share(fonts::font_props{});
    s.text = share(text::text_props{});
    s.rare_props = share(css::style::rare_props{});
    return s;
}

} // namespace

bool style::operator==(style const& other) const {
    // The shared groups compare by content: two styles computed apart are equal when their values are.
    if (!same_group(svgstyle, other.svgstyle) || !same_group(background, other.background) ||
        !same_group(borders, other.borders) || !same_group(font_props, other.font_props) ||
        !same_group(text, other.text) || !same_group(rare_props, other.rare_props) ||
        !same_group(rare_box, other.rare_box)) {
        return false;
    }
    style const& a = *this;
    style const& b = other;
    return a.background_image_resolution == b.background_image_resolution && a.box_sizing == b.box_sizing &&
           a.bit_props == b.bit_props && a.border_spacing == b.border_spacing && a.bottom == b.bottom &&
           a.color == b.color && a.column_gap == b.column_gap && a.content == b.content &&
           a.float_ == b.float_ && a.flow == b.flow && a.font_size == b.font_size &&
           a.footnote_style_position == b.footnote_style_position && a.height == b.height &&
           a.hyphens == b.hyphens && a.hyphenate_after == b.hyphenate_after &&
           a.hyphenate_before == b.hyphenate_before && a.hyphenate_lines == b.hyphenate_lines &&
           a.image_resolution == b.image_resolution && a.vellum_lang == b.vellum_lang &&
           a.vellum_lang_value == b.vellum_lang_value && a.left == b.left &&
           a.letter_spacing == b.letter_spacing && a.word_spacing == b.word_spacing &&
           a.line_height == b.line_height && a.list_style_position == b.list_style_position &&
           a.margin_bottom == b.margin_bottom && a.margin_inside == b.margin_inside &&
           a.margin_left == b.margin_left && a.margin_outside == b.margin_outside &&
           a.margin_right == b.margin_right && a.margin_top == b.margin_top && a.max_height == b.max_height &&
           a.max_width == b.max_width && a.min_height == b.min_height && a.min_width == b.min_width &&
           a.orphans == b.orphans && a.widows == b.widows && a.overflow == b.overflow &&
           a.padding_bottom == b.padding_bottom && a.padding_left == b.padding_left &&
           a.padding_right == b.padding_right && a.padding_top == b.padding_top &&
           a.vellum_footnote_policy == b.vellum_footnote_policy && a.right == b.right &&
           a.table_layout == b.table_layout && a.top == b.top && a.vertical_align == b.vertical_align &&
           a.width == b.width && a.writing_mode == b.writing_mode;
}

ref<rare_box_props> const& initial_rare_box() {
    static ref<rare_box_props> const initial = share(rare_box_props{});
    return initial;
}

ref<style> initial_style() {
    static ref<style> const initial = share(make_initial());
    return initial;
}

style inherit_from(style const& parent) {
    auto const& init = *initial_style();
    // Start from the initial style, sharing its non-inherited groups (background, borders), and take
    // each inherited property from the parent. The inherited groups are the parent's own records.
    style s = init;
    s.svgstyle = parent.svgstyle;
    s.font_props = parent.font_props;
    s.text = parent.text;
    s.rare_props = parent.rare_props;
    s.background_image_resolution = parent.background_image_resolution;
    s.border_spacing = parent.border_spacing;
    s.color = parent.color;
    s.font_size = parent.font_size;
    s.footnote_style_position = parent.footnote_style_position;
    s.hyphens = parent.hyphens;
    s.hyphenate_after = parent.hyphenate_after;
    s.hyphenate_before = parent.hyphenate_before;
    s.hyphenate_lines = parent.hyphenate_lines;
    s.image_resolution = parent.image_resolution;
    s.vellum_lang = parent.vellum_lang;
    s.vellum_lang_value = parent.vellum_lang_value;
    s.letter_spacing = parent.letter_spacing;
    s.word_spacing = parent.word_spacing;
    s.line_height = parent.line_height;
    s.list_style_position = parent.list_style_position;
    s.orphans = parent.orphans;
    s.widows = parent.widows;
    s.vellum_footnote_policy = parent.vellum_footnote_policy;
    s.writing_mode = parent.writing_mode;
    // column-gap's initial 1em follows the font size the child inherits.
    s.column_gap = s.font_size;
    return s;
}

rare_props& own_rare_props(style& s) {
    auto copy = std::make_shared<rare_props>(*s.rare_props);
    s.rare_props = copy;
    return *copy;
}

rare_box_props& own_rare_box(style& s) {
    auto copy = std::make_shared<rare_box_props>(*s.rare_box);
    s.rare_box = copy;
    return *copy;
}

} // namespace vellum::css::style
