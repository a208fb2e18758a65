#include "css/compute_style.hpp"
#include "css/parser.hpp"

#include <gtest/gtest.h>

namespace vellum::css::compute_style {
namespace {

// Declarations written as in a style attribute, typed; the ones that fail are dropped as the cascade does.
std::vector<property::property> decls(std::string_view text) {
    std::vector<property::property> out;
    for (auto const& d : parser::parse_declarations(origin::author, "file:///d.html", text)) {
        if (auto p = property::parse_declaration(d)) {
            out.push_back(std::move(*p));
        }
    }
    return out;
}

ref<style::style> styled(ref<style::style> const& parent,
                         std::string_view text,
                         compute_style_context const& ctx = anonymous_context{}) {
    return share(compute_style(parent, ctx, decls(text)));
}

TEST(compute_style, font_sizes) {
    auto const root = styled(nullptr, "");
    EXPECT_EQ(styled(root, "font-size: medium")->font_size, 12);
    auto const large = styled(root, "font-size: large");
    EXPECT_EQ(styled(large, "font-size: large")->font_size, 14);
    auto const ten = styled(root, "font-size: 10pt");
    EXPECT_FLOAT_EQ(styled(ten, "font-size: larger")->font_size, 12);
    auto const big = styled(root, "font-size: 2em; width: 1em; column-rule: 1ex solid");
    EXPECT_EQ(big->font_size, 24);
    EXPECT_EQ(big->width, box::width{24.0f});
    EXPECT_EQ(big->rare_box->column_rule_width, 12);
    EXPECT_EQ(styled(root, "font-size: 50%")->font_size, 6);
    EXPECT_EQ(styled(root, "font-size: 0pt")->font_size, 0);
}

TEST(compute_style, lengths_and_resolution) {
    auto const root = styled(nullptr, "");
    EXPECT_EQ(styled(root, "margin-top: 1ex")->margin_top, box::margin{6.0f});
    EXPECT_EQ(styled(root, "margin-top: 1px")->margin_top, box::margin{0.75f});
    set_css_dpi(72);
    EXPECT_EQ(styled(root, "margin-top: 1px")->margin_top, box::margin{1.0f});
    set_css_dpi(96);
    EXPECT_EQ(styled(root, "width: 50%")->width, box::width{units::percentage{50}});
    EXPECT_EQ(styled(root, "padding-left: 10%")->padding_left, box::padding{units::percentage{10}});
    EXPECT_EQ(styled(root, "line-height: 2em")->line_height, fonts::line_height{24.0f});
    EXPECT_EQ(styled(root, "line-height: 1.5; vertical-align: 50%")->vertical_align,
              box::vertical_align{9.0f});
}

TEST(compute_style, border_widths) {
    auto const root = styled(nullptr, "");
    auto const none = styled(root, "border-width: thick; border-style: none");
    EXPECT_EQ(none->borders->borders_top.border_width, 0);
    auto const solid = styled(root, "border-top: thick solid");
    EXPECT_FLOAT_EQ(solid->borders->borders_top.border_width, 2.8125f);
    EXPECT_EQ(solid->borders->borders_left.border_width, 0);
    EXPECT_FLOAT_EQ(styled(root, "border-top: solid")->borders->borders_top.border_width, 1.6875f);
    EXPECT_FLOAT_EQ(styled(root, "border-top: thin solid")->borders->borders_top.border_width, 0.5625f);
}

TEST(compute_style, current_color) {
    auto const root = styled(nullptr, "color: red");
    color::color const red = color::rgb{1, 0, 0};
    color::color const blue = color::rgb{0, 0, 1};
    // In color itself currentColor is the parent's colour; elsewhere this element's.
    auto const child = styled(root, "color: currentColor; border-top: solid currentColor");
    EXPECT_EQ(child->color, red);
    auto const other = styled(root, "color: blue; border-top-color: CurrentColor; border-top-style: solid");
    EXPECT_EQ(other->borders->borders_top.border_color, blue);
    // The initial border colour follows the element's colour too.
    EXPECT_EQ(styled(root, "color: blue")->borders->borders_left.border_color, blue);
    auto const blue_text = styled(root, "color: blue");
    EXPECT_EQ(css::style::color_or_current(blue_text->rare_box->text_underline_color, *blue_text), blue);
    // "inherit" takes the colour the parent's lines had, not the child's own.
    auto const under = styled(blue_text, "color: red; text-underline-color: inherit");
    EXPECT_EQ(css::style::color_or_current(under->rare_box->text_underline_color, *under), blue);
}

TEST(compute_style, display_position_float) {
    auto const root = styled(nullptr, "display: inline");
    EXPECT_EQ(root->bit_props.bit_props_display, box::display{box::display_kind::block});
    auto const body = styled(root, "display: block");
    auto const span = styled(body, "float: left");
    EXPECT_EQ(span->bit_props.bit_props_display, box::display{box::display_kind::block});
    auto const li = styled(body, "display: list-item; float: left");
    EXPECT_EQ(li->bit_props.bit_props_display, box::display{box::display_kind::list_item});
    auto const abs = styled(body, "position: absolute; float: right; display: inline-table");
    EXPECT_EQ(abs->float_, box::floaty{box::float_kind::none});
    EXPECT_EQ(abs->bit_props.bit_props_display, box::display{box::display_kind::table});
    auto const hidden = styled(body, "display: none; float: left; position: absolute");
    EXPECT_EQ(hidden->float_, box::floaty{box::float_kind::left});
    auto const fn = styled(body, "float: footnote; position: relative");
    EXPECT_EQ(fn->bit_props.bit_props_position, box::position{box::position_kind::static_});
    auto const moved = styled(body, "flow: static(header); float: top");
    EXPECT_EQ(moved->float_, box::floaty{box::float_kind::none});
    EXPECT_EQ(moved->bit_props.bit_props_display, box::display{box::display_kind::block});
    EXPECT_EQ(styled(body, "")->bit_props.bit_props_display, box::display{box::display_kind::inline_});
}

TEST(compute_style, inheritance_and_sharing) {
    auto const root = styled(nullptr, "font-family: serif; text-align: justify; width: 100pt; page: wide");
    auto const child = styled(root, "margin-left: 1pt");
    EXPECT_EQ(child->font_props.get(), root->font_props.get());
    EXPECT_EQ(child->text.get(), root->text.get());
    EXPECT_EQ(child->rare_props.get(), root->rare_props.get());
    EXPECT_EQ(child->svgstyle.get(), root->svgstyle.get());
    EXPECT_EQ(child->rare_props->rare_props_page, box::page{"wide"});
    EXPECT_EQ(child->width, box::width{box::auto_value{}});
    EXPECT_EQ(styled(root, "width: inherit")->width, box::width{100.0f});
    auto const bold = styled(root, "font-weight: bolder");
    EXPECT_NE(bold->font_props.get(), root->font_props.get());
    EXPECT_EQ(bold->font_props->font_props_font_weight, 700);
    EXPECT_EQ(bold->font_props->font_props_font_family, root->font_props->font_props_font_family);
    EXPECT_EQ(styled(root, "text-align: initial")->text->text_props_text_align, text::text_align::auto_);
    // A later declaration overwrites an earlier one; a shorthand resets the members it leaves out.
    auto const m = styled(root, "margin-inside: 5pt; margin: 1pt");
    EXPECT_EQ(m->margin_inside, box::margin{0.0f});
    EXPECT_EQ(m->margin_top, box::margin{1.0f});
}

TEST(compute_style, groups_shared_by_value) {
    auto const root = styled(nullptr, "color: blue");
    auto const initial = style::initial_style();
    // A colour of its own gives the borders (whose colour is currentColor) a group of their own; a
    // child of the same colour that declares no border shares it, one with another colour doesn't.
    EXPECT_NE(root->borders.get(), initial->borders.get());
    EXPECT_EQ(styled(root, "margin-left: 1pt")->borders.get(), root->borders.get());
    EXPECT_NE(styled(root, "color: red")->borders.get(), root->borders.get());
    EXPECT_EQ(styled(root, "color: black")->borders.get(), initial->borders.get());
    // Declaring a group's values as they already are shares the parent's group.
    EXPECT_EQ(styled(root, "text-align: initial")->text.get(), root->text.get());
    EXPECT_EQ(styled(root, "font-style: normal")->font_props.get(), root->font_props.get());

    // The rare box values don't inherit: a child of an element that sets them gets the initial
    // group, and so does an element that sets them to their initial values.
    auto const rare = styled(root, "bookmark-level: 1; column-count: 2; column-rule: solid; opacity: 0.5; "
                                   "transform: rotate(1deg); z-index: 3; text-decoration: underline; "
                                   "counter-reset: c; string-set: s content(); table-baseline: 2; "
                                   "unicode-bidi: embed; page-group: start; text-overflow: ellipsis");
    EXPECT_NE(rare->rare_box.get(), initial->rare_box.get());
    EXPECT_EQ(rare->rare_box->opacity, 0.5f);
    EXPECT_EQ(rare->rare_box->z_index, box::z_index{3});
    EXPECT_EQ(rare->rare_box->column_count, box::column_count{2});
    EXPECT_EQ(rare->rare_box->text_underline_style, text::text_line_style::solid);
    EXPECT_EQ(styled(rare, "")->rare_box.get(), initial->rare_box.get());
    EXPECT_EQ(styled(rare, "margin-left: 1pt")->rare_box.get(), initial->rare_box.get());
    EXPECT_EQ(styled(root, "opacity: 1; z-index: auto")->rare_box.get(), initial->rare_box.get());
    EXPECT_EQ(styled(rare, "opacity: inherit")->rare_box->opacity, 0.5f);
    EXPECT_EQ(*styled(rare, "opacity: inherit"), *styled(root, "opacity: 0.5"));

    // A style computed from no declarations is the one inherit_from makes, which an element's style
    // starts from: properties that inherit are the parent's, the others initial.
    // (With the initial colour: borders take the element's colour and an anonymous box keeps the
    // initial borders.)
    auto const busy = styled(styled(nullptr, "opacity: 0.5"),
                             "writing-mode: vertical-rl; font-size: 20pt; line-height: 2; page: p; "
                             "hyphens: auto; list-style-type: square; letter-spacing: 1pt; width: 5pt; "
                             "margin: 3pt; position: relative; top: 2pt; content: 'x'; column-gap: 4pt");
    EXPECT_EQ(style::inherit_from(*busy), *styled(busy, ""));
    EXPECT_EQ(styled(busy, "")->writing_mode, box::writing_mode::vertical);
    EXPECT_EQ(styled(busy, "")->column_gap, 20);
}

TEST(compute_style, attr_per_element) {
    auto const root = styled(nullptr, "");
    EXPECT_EQ(styled(root, "width: attr(data-w, length, 5px)")->width, box::width{3.75f});
    element_context el{.context_base = "file:///d.html",
                       .context_attrs = {{std::nullopt, "data-w", "40"},
                                         {std::nullopt, "colspan", "3"},
                                         {std::nullopt, "href", "a.html"},
                                         {std::nullopt, "lang", "EN-GB"}}};
    auto const s = styled(root,
                          "width: attr(data-w, length, 5px); table-column-span: attr(colspan, integer, 1);"
                          "link: attr(href)",
                          el);
    EXPECT_EQ(s->width, box::width{30.0f});
    EXPECT_EQ(s->rare_box->table_column_span, 3);
    semantics::link_type const to_a = semantics::link_url{value::url{"a.html", "file:///d.html"}};
    EXPECT_EQ(s->rare_props->rare_props_link, to_a);
    EXPECT_EQ(s->rare_props->rare_props_vellum_lang_value, "en-gb");
    element_context bad{.context_attrs = {{std::nullopt, "data-w", "40px"}}};
    EXPECT_EQ(styled(root, "width: attr(data-w, length, 5px)", bad)->width, box::width{3.75f});
    // HTML's presentational attributes, the way the default sheets read them.
    element_context table{.context_attrs = {{std::nullopt, "border", "2"},
                                            {std::nullopt, "start", "7"},
                                            {std::nullopt, "face", "Arial, Helvetica"}}};
    auto const t =
        styled(root,
               "border-style: solid; border-width: attr(border, px); border-spacing: attr(nope, px);"
               "counter-reset: list-item attr(start, integer, 1) other attr(nope, integer);"
               "font-family: attr(face, font-family)",
               table);
    EXPECT_FLOAT_EQ(t->borders->borders_left.border_width, 1.5f);
    EXPECT_EQ(t->rare_props->rare_props_border_spacing, box::cellspacing{});
    EXPECT_EQ(t->rare_box->counter_reset, (box::counters{{"list-item", 7}, {"other", 0}}));
    EXPECT_EQ(t->font_props->font_props_font_family, (fonts::font_family{"Arial", "Helvetica"}));
    // The language carries down to children without their own.
    EXPECT_EQ(styled(share(*s), "")->rare_props->rare_props_vellum_lang_value, "en-gb");
}

} // namespace
} // namespace vellum::css::compute_style
