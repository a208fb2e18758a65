#include "css/property_page.hpp"
#include "css/style.hpp"

#include <gtest/gtest.h>

namespace vellum::css {
namespace {

TEST(style, initial_values) {
    auto const s = style::initial_style();
    EXPECT_EQ(s->font_size, 12);
    EXPECT_EQ(s->column_gap, 12);
    EXPECT_EQ(s->rare_box->column_rule_width, 0);
    EXPECT_EQ(s->rare_box->opacity, 1);
    EXPECT_EQ(s->rare_props->rare_props_orphans, 2);
    EXPECT_EQ(s->rare_props->rare_props_widows, 2);
    EXPECT_EQ(s->rare_props->rare_props_hyphenate_after, 2);
    EXPECT_EQ(s->rare_box->table_baseline, 1);
    EXPECT_EQ(s->list_style_position, box::list_style_position::outside);
    EXPECT_EQ(s->rare_props->rare_props_list_style_type, box::list_style_type{box::list_style_named{"disc"}});
    EXPECT_EQ(s->line_height, fonts::line_height{fonts::line_height_normal{}});
    EXPECT_EQ(s->rare_props->rare_props_hyphens, text::hyphens::manual);
    EXPECT_EQ(s->bit_props.bit_props_display, box::display{box::display_kind::inline_});
    EXPECT_EQ(s->background->background_color, color::color{color::transparent{}});
    EXPECT_EQ(s->borders->borders_top.border_style, box::line_style::none);
    EXPECT_EQ(s->svgstyle->svgstyle_stroke_miterlimit, 10);
    // One shared record for everybody.
    EXPECT_EQ(style::initial_style().get(), s.get());
}

TEST(style, child_shares_unchanged_groups) {
    style::style parent = *style::initial_style();
    parent.color = color::rgb{1, 0, 0};
    parent.font_size = 20;
    parent.width = 100.0f;
    parent.margin_top = 5.0f;
    parent.bit_props.bit_props_display = box::display_kind::block;
    fonts::font_props fp = *parent.font_props;
    fp.font_props_font_weight = 700;
    parent.font_props = share(fp);
    auto bg = *parent.background;
    bg.background_color = color::rgb{0, 0, 1};
    parent.background = share(bg);

    auto const child = style::inherit_from(parent);
    // Inherited: the values and the very same group records.
    EXPECT_EQ(child.color, parent.color);
    EXPECT_EQ(child.font_size, 20);
    EXPECT_EQ(child.font_props.get(), parent.font_props.get());
    EXPECT_EQ(child.text.get(), parent.text.get());
    EXPECT_EQ(child.rare_props.get(), parent.rare_props.get());
    EXPECT_EQ(child.svgstyle.get(), parent.svgstyle.get());
    // Not inherited: back to the initial values, sharing the initial style's groups.
    EXPECT_EQ(child.width, box::width{box::auto_value{}});
    EXPECT_EQ(child.margin_top, box::margin{0.0f});
    EXPECT_EQ(child.bit_props.bit_props_display, box::display{box::display_kind::inline_});
    EXPECT_EQ(child.background.get(), style::initial_style()->background.get());
    EXPECT_EQ(child.column_gap, 20);
}

TEST(style, equality_looks_into_groups) {
    style::style a = *style::initial_style();
    style::style b = *style::initial_style();
    b.font_props = share(*b.font_props);
    EXPECT_NE(a.font_props.get(), b.font_props.get());
    EXPECT_EQ(a, b);
    auto fp = *b.font_props;
    fp.font_props_font_family = {"monospace"};
    b.font_props = share(fp);
    EXPECT_NE(a, b);
    b = a;
    css::style::own_rare_box(b).z_index = 3;
    EXPECT_NE(a, b);
}

using property_page::orientation;
using property_page::parse_size_text;

TEST(page_size, option_values) {
    auto const a4 = parse_size_text("A4");
    ASSERT_TRUE(a4);
    auto const pts = property_page::size_in_points(*a4, {}, {612, 792});
    ASSERT_TRUE(pts);
    EXPECT_NEAR(pts->first, 595.276, 0.01);
    EXPECT_NEAR(pts->second, 841.89, 0.01);

    auto const land = parse_size_text("letter landscape");
    ASSERT_TRUE(land);
    auto const lp = property_page::size_in_points(*land, {}, {0, 0});
    ASSERT_TRUE(lp);
    EXPECT_FLOAT_EQ(lp->first, 792);
    EXPECT_FLOAT_EQ(lp->second, 612);

    auto const sq = parse_size_text("10cm");
    ASSERT_TRUE(sq);
    EXPECT_EQ(sq->size_dims->first, sq->size_dims->second);
    auto const two = parse_size_text("100mm 50mm");
    ASSERT_TRUE(two);
    EXPECT_EQ(two->size_orientation, orientation::none);

    auto const b5 = property_page::paper_size("b5");
    ASSERT_TRUE(b5);
    EXPECT_EQ(b5->first, units::make_length(176, units::length_unit::mm));
    EXPECT_EQ(b5->second, units::make_length(250, units::length_unit::mm));

    auto const auto_size = parse_size_text("auto");
    ASSERT_TRUE(auto_size);
    EXPECT_FALSE(property_page::size_in_points(*auto_size, {}, {1, 2}));

    EXPECT_FALSE(parse_size_text("A99"));
    EXPECT_FALSE(parse_size_text("A4 10cm"));
    EXPECT_FALSE(parse_size_text("1cm 2cm 3cm"));
    EXPECT_FALSE(parse_size_text("auto landscape"));
    EXPECT_FALSE(parse_size_text("-1cm"));
}

TEST(page_size, margin_option_is_the_margin_shorthand) {
    auto const m = property_page::parse_margin_text("1in 2cm");
    ASSERT_TRUE(m);
    auto const* c = std::get_if<property::compound>(&*m);
    ASSERT_TRUE(c);
    EXPECT_EQ(c->compound_members.size(), 6u);
    EXPECT_FALSE(property_page::parse_margin_text("wide"));
}

} // namespace
} // namespace vellum::css
