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
    EXPECT_EQ(big->column_rule_width, 12);
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
    EXPECT_EQ(styled(root, "color: blue")->text_underline_color, blue);
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
    EXPECT_EQ(child->page, box::page{"wide"});
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
    EXPECT_EQ(s->table_column_span, 3);
    semantics::link_type const to_a = semantics::link_url{value::url{"a.html", "file:///d.html"}};
    EXPECT_EQ(s->link, to_a);
    EXPECT_EQ(s->vellum_lang_value, "en-gb");
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
    EXPECT_EQ(t->border_spacing, box::cellspacing{});
    EXPECT_EQ(t->counter_reset, (box::counters{{"list-item", 7}, {"other", 0}}));
    EXPECT_EQ(t->font_props->font_props_font_family, (fonts::font_family{"Arial", "Helvetica"}));
    // The language carries down to children without their own.
    EXPECT_EQ(styled(share(*s), "")->vellum_lang_value, "en-gb");
}

} // namespace
} // namespace vellum::css::compute_style
