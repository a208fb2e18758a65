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
    return a.box_sizing == b.box_sizing && a.bit_props == b.bit_props && a.bottom == b.bottom &&
           a.color == b.color && a.column_gap == b.column_gap && a.content == b.content &&
           a.float_ == b.float_ && a.font_size == b.font_size && a.height == b.height && a.left == b.left &&
           a.line_height == b.line_height && a.list_style_position == b.list_style_position &&
           a.margin_bottom == b.margin_bottom && a.margin_inside == b.margin_inside &&
           a.margin_left == b.margin_left && a.margin_outside == b.margin_outside &&
           a.margin_right == b.margin_right && a.margin_top == b.margin_top &&
           a.padding_bottom == b.padding_bottom && a.padding_left == b.padding_left &&
           a.padding_right == b.padding_right && a.padding_top == b.padding_top && a.right == b.right &&
           a.top == b.top && a.vertical_align == b.vertical_align && a.width == b.width &&
           a.writing_mode == b.writing_mode;
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
    s.color = parent.color;
    s.font_size = parent.font_size;
    s.line_height = parent.line_height;
    s.list_style_position = parent.list_style_position;
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

namespace {

// Sets a pair of limits of the rare box group to 0 and none, copying the group only where it has others.
void clear_limits(style& s, box::min_width rare_box_props::*min, box::max_width rare_box_props::*max) {
    auto const& r = *s.rare_box;
    if (r.*min != box::min_width{0.0f} || r.*max != box::max_width{box::none_value{}}) {
        auto& own = own_rare_box(s);
        own.*min = 0.0f;
        own.*max = box::none_value{};
    }
}

} // namespace

void clear_width_limits(style& s) {
    clear_limits(s, &rare_box_props::min_width, &rare_box_props::max_width);
}

void clear_height_limits(style& s) {
    clear_limits(s, &rare_box_props::min_height, &rare_box_props::max_height);
}

} // namespace vellum::css::style
