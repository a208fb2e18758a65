#include "css/compute_style.hpp"
#include "css/parser.hpp"
#include "css/used_style.hpp"

#include <gtest/gtest.h>

namespace vellum::css::used_style {
namespace {

style::style styled(std::string_view text) {
    std::vector<property::property> props;
    for (auto const& d : parser::parse_declarations(origin::author, "", text)) {
        if (auto p = property::parse_declaration(d)) {
            props.push_back(std::move(*p));
        }
    }
    auto const root = share(compute_style::compute_style(nullptr, compute_style::anonymous_context{}, {}));
    return compute_style::compute_style(root, compute_style::anonymous_context{}, props);
}

TEST(used_style, percentages_of_the_container_width_on_every_side) {
    auto const u = used_style_of(styled("padding: 10% 5%; margin: 10% auto 0"), 200, 1000);
    EXPECT_FLOAT_EQ(u.used_padding_top, 20);
    EXPECT_FLOAT_EQ(u.used_padding_bottom, 20);
    EXPECT_FLOAT_EQ(u.used_padding_left, 10);
    auto const* m = std::get_if<used_margins>(&u.used_margins);
    ASSERT_TRUE(m);
    EXPECT_EQ(m->margin_top, 20.0f);
    EXPECT_EQ(m->margin_bottom, 0.0f);
    EXPECT_FALSE(m->margin_left);
    EXPECT_FALSE(m->margin_right);
    // An auto width takes what margins, borders and padding leave.
    EXPECT_FLOAT_EQ(u.used_width, 180);
}

TEST(used_style, box_sizing) {
    auto const content = used_style_of(styled("width: 100pt; padding: 10pt; border: 5pt solid"), 500, {});
    EXPECT_FLOAT_EQ(content.used_width, 100);
    auto const border = used_style_of(
        styled("box-sizing: border-box; width: 100pt; padding: 10pt; border: 5pt solid"), 500, {});
    EXPECT_FLOAT_EQ(border.used_width, 70);
    auto const padding =
        used_style_of(styled("box-sizing: padding-box; width: 100pt; padding: 10pt"), 500, {});
    EXPECT_FLOAT_EQ(padding.used_width, 80);
    auto const tiny = used_style_of(styled("box-sizing: border-box; width: 10pt; padding: 10pt"), 500, {});
    EXPECT_FLOAT_EQ(tiny.used_width, 0);
}

TEST(used_style, heights_need_a_known_container) {
    auto const s = styled("height: 50%; min-height: 10%; max-height: 20%");
    auto const unknown = used_style_of(s, 100, {});
    EXPECT_FALSE(unknown.used_height);
    EXPECT_EQ(unknown.used_min_height, 0);
    EXPECT_FALSE(unknown.used_max_height);
    auto const known = used_style_of(s, 100, 400);
    EXPECT_EQ(known.used_height, 200.0f);
    EXPECT_EQ(known.used_min_height, 40);
    EXPECT_EQ(known.used_max_height, 80.0f);
}

TEST(used_style, min_and_max_width_hold_the_width) {
    // An auto width is cut down to max-width, and the margins are left for "auto" to share.
    EXPECT_EQ(used_style_of(styled("max-width: 60pt"), 100, {}).used_width, 60);
    EXPECT_EQ(used_style_of(styled("max-width: 50%"), 300, {}).used_width, 150);
    EXPECT_EQ(used_style_of(styled("width: 80pt; max-width: 60pt"), 100, {}).used_width, 60);
    // min-width wins over max-width and over the container.
    EXPECT_EQ(used_style_of(styled("width: 20pt; min-width: 50pt"), 100, {}).used_width, 50);
    EXPECT_EQ(used_style_of(styled("max-width: 30pt; min-width: 50pt"), 100, {}).used_width, 50);
    EXPECT_EQ(used_style_of(styled("min-width: 150pt"), 100, {}).used_width, 150);
    // With border-box sizing both limits measure the border box.
    EXPECT_EQ(used_style_of(styled("box-sizing: border-box; padding: 5pt; max-width: 60pt"), 100, {}).used_width,
              50);
    EXPECT_EQ(used_style_of(styled("max-width: none; padding: 5pt"), 100, {}).used_width, 90);
}

TEST(used_style, offsets_and_indent) {
    EXPECT_TRUE(
        std::holds_alternative<no_used_offsets>(used_style_of(styled("top: 5pt"), 100, {}).used_offsets));
    auto const u =
        used_style_of(styled("position: absolute; top: 5pt; left: 10%; text-indent: -2em"), 100, {});
    auto const* o = std::get_if<used_offsets>(&u.used_offsets);
    ASSERT_TRUE(o);
    EXPECT_EQ(o->offset_top, 5.0f);
    EXPECT_FALSE(o->offset_bottom);
    EXPECT_EQ(o->offset_left, 10.0f);
    // A negative indent stays negative: the first line starts left of the others.
    EXPECT_EQ(u.used_text_indent, (used_indent{indent_type::indent, -24}));
    EXPECT_THROW(offset_length(box::auto_value{}, 100), internal_error);
    EXPECT_EQ(offset_length(units::percentage{50}, 100), 50);
}

} // namespace
} // namespace vellum::css::used_style
