#include "css/color.hpp"
#include "css/expr.hpp"
#include "css/parser.hpp"
#include "css/units.hpp"

#include <numbers>

#include <gtest/gtest.h>

namespace vellum::css {
namespace {

value::value term(std::string_view text) {
    auto v = parser::parse_value("file:///doc.html", text);
    EXPECT_TRUE(v) << text;
    return v ? *v : value::value{value::comma{}};
}

float points_of(std::string_view text) {
    auto const l = units::length_from_value(term(text));
    EXPECT_TRUE(l) << text;
    return l ? units::to_points(*l, {}) : -1;
}

TEST(units, absolute_units_become_points) {
    EXPECT_FLOAT_EQ(points_of("1in"), 72);
    EXPECT_FLOAT_EQ(points_of("2.54cm"), 72);
    EXPECT_FLOAT_EQ(points_of("25.4mm"), 72);
    EXPECT_NEAR(points_of("1q"), 0.70866, 1e-4);
    EXPECT_FLOAT_EQ(points_of("1pc"), 12);
    EXPECT_FLOAT_EQ(points_of("7pt"), 7);
    EXPECT_FLOAT_EQ(points_of("0"), 0);
    EXPECT_EQ(units::length_from_value(term("1in")), units::length{units::points{72}});
}

TEST(units, relative_units_wait_for_the_font_and_resolution) {
    EXPECT_EQ(units::length_from_value(term("2em")), units::length{units::font_em{2}});
    EXPECT_EQ(units::length_from_value(term("1ex")), units::length{units::font_ex{1}});
    EXPECT_EQ(units::length_from_value(term("3px")), units::length{units::pixels{3}});
    units::resolution const r{.resolution_font_size = 12, .resolution_dpi = 96};
    EXPECT_FLOAT_EQ(units::to_points(units::font_em{2}, r), 24);
    EXPECT_FLOAT_EQ(units::to_points(units::font_ex{1}, r), 6);
    EXPECT_FLOAT_EQ(units::to_points(units::pixels{1}, r), 0.75f);
    EXPECT_FLOAT_EQ(units::to_points(units::pixels{1}, {.resolution_font_size = 12, .resolution_dpi = 72}),
                    1);
}

TEST(units, not_lengths) {
    EXPECT_FALSE(units::length_from_value(term("5")));
    EXPECT_FALSE(units::length_from_value(term("5%")));
    EXPECT_FALSE(units::length_from_value(term("5deg")));
    EXPECT_FALSE(units::length_from_value(term("auto")));
    EXPECT_EQ(units::length_percent_from_value(term("5%")), units::length_percent{units::percentage{5}});
}

TEST(units, angles) {
    EXPECT_NEAR(*units::angle_from_value(term("180deg")), std::numbers::pi, 1e-6);
    EXPECT_NEAR(*units::angle_from_value(term("200grad")), std::numbers::pi, 1e-6);
    EXPECT_NEAR(*units::angle_from_value(term("0.5turn")), std::numbers::pi, 1e-6);
    EXPECT_NEAR(*units::angle_from_value(term("1rad")), 1, 1e-6);
    EXPECT_EQ(units::angle_from_value(term("0")), 0.0f);
    EXPECT_FALSE(units::angle_from_value(term("90")));
}

std::optional<color::color> col(std::string_view text) {
    return color::parse_color(term(text));
}

TEST(color, forms) {
    EXPECT_EQ(col("red"), (color::color{color::rgb{1, 0, 0}}));
    EXPECT_EQ(col("ReD"), (color::color{color::rgb{1, 0, 0}}));
    EXPECT_EQ(col("#abc"), (color::color{color::rgb{170 / 255.0f, 187 / 255.0f, 204 / 255.0f}}));
    EXPECT_EQ(col("aliceblue"), (color::color{color::rgb{240 / 255.0f, 248 / 255.0f, 1}}));
    EXPECT_EQ(col("yellowgreen"), (color::color{color::rgb{154 / 255.0f, 205 / 255.0f, 50 / 255.0f}}));
    EXPECT_EQ(col("transparent"), color::color{color::transparent{}});
    EXPECT_EQ(col("rgb(300, 0, 0)"), (color::color{color::rgb{1, 0, 0}}));
    EXPECT_EQ(col("rgb(100%, 0%, 0%)"), (color::color{color::rgb{1, 0, 0}}));
    EXPECT_EQ(col("rgba(0, 0, 255, 0.5)"), (color::color{color::rgba{0, 0, 1, 0.5f}}));
    EXPECT_EQ(col("cmyk(0, 0.5, 1, 0)"), (color::color{color::cmyk{0, 0.5f, 1, 0}}));
    EXPECT_EQ(col("-vellum-color(PANTONE)"), (color::color{color::named_color{"PANTONE", 1}}));
    EXPECT_EQ(col("-vellum-color(\"Gold ink\", 0.25)"),
              (color::color{color::named_color{"Gold ink", 0.25f}}));
    auto const op = col("-vellum-overprint(cmyk(0, 0, 0, 1))");
    ASSERT_TRUE(op);
    auto const* o = std::get_if<color::vellum_overprint>(&*op);
    ASSERT_TRUE(o);
    EXPECT_EQ(*o->overprint_color, (color::color{color::cmyk{0, 0, 0, 1}}));
}

TEST(color, failures) {
    EXPECT_FALSE(col("reddish"));
    EXPECT_FALSE(col("rgb(1, 2)"));
    EXPECT_FALSE(col("rgb(1, 2, red)"));
    EXPECT_FALSE(col("cmyk(0, 0, 0)"));
    EXPECT_FALSE(col("currentColor"));
    EXPECT_EQ(color::parse_spec_color(term("CurrentColor")), color::spec_color{color::current_color{}});
}

TEST(color, text_and_rules) {
    EXPECT_EQ((color::to_text(color::rgb{1, 0.5f, 0})), "#ff8000");
    EXPECT_EQ((color::to_text(color::named_color{"spot", 0.5f})), ("vellum-color(spot, 0.500000)"));
    EXPECT_EQ(color::parse_color_text("#00ff00"), (color::color{color::rgb{0, 1, 0}}));
    std::map<std::string, declarations> rules{
        {"gold", {declaration{.prop_name = "alternate-color", .value = term("cmyk(0, 0.2, 0.8, 0.1)")}}}};
    auto const out = color::color_rules_of(rules);
    ASSERT_EQ(out.size(), 1u);
    EXPECT_EQ(out.at("gold").alternate_color, (color::color{color::cmyk{0, 0.2f, 0.8f, 0.1f}}));
}

TEST(expr, attribute_text_by_type) {
    using namespace expr;
    EXPECT_EQ((attr_text_value(type_length{}, "10", "")), (value::value{value::dimension{10, "px"}}));
    EXPECT_EQ((attr_text_value(type_length{units::length_unit::mm}, " 2.5", "")),
              (value::value{value::dimension{2.5, "mm"}}));
    EXPECT_FALSE(attr_text_value(type_length{}, "10px", ""));
    EXPECT_FALSE(attr_text_value(type_integer{}, "1.5", ""));
    EXPECT_FALSE(attr_text_value(type_number{}, "", ""));
    EXPECT_EQ((attr_text_value(type_integer{}, "3", "")), value::value{value::number{3}});
    EXPECT_EQ((attr_text_value(type_idref{}, "sec1", "file:///d.html")),
              (value::value{value::url{"#sec1", "file:///d.html"}}));
    EXPECT_EQ(attr_type_of(std::nullopt), attr_type{type_string{}});
    EXPECT_EQ(attr_type_of("PX"), attr_type{type_length{units::length_unit::px}});
    EXPECT_FALSE(attr_type_of("bogus"));
}

} // namespace
} // namespace vellum::css
