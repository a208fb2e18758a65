// var(), rem, page units and the math functions, rewritten into plain terms for an element.
#include "css/parser.hpp"
#include "css/property.hpp"
#include "css/substitute.hpp"
#include "css/units.hpp"

#include <gtest/gtest.h>

#include <optional>

namespace vellum::css::substitute {
namespace {

value::value term(std::string_view text) {
    auto v = parser::parse_value("", text);
    check(v.has_value(), "term");
    return *v;
}

// The substituted value as text, or "<invalid>".
std::string sub(std::string_view text, context const& ctx) {
    auto const v = substitute(term(text), ctx);
    return v ? value::to_text(*v) : "<invalid>";
}

TEST(substitute, var_takes_the_custom_property_or_the_fallback) {
    custom_properties const customs{{"--accent", term("#336699")},
                                    {"--fonts", term("\"Fira Sans\", Arial, sans-serif")},
                                    {"--pair", term("1pt 2pt")}};
    context const ctx{.customs = &customs};
    EXPECT_EQ(sub("var(--accent)", ctx), "#336699");
    EXPECT_EQ(sub("1px solid var(--accent)", ctx), "1px solid #336699");
    EXPECT_EQ(sub("var(--fonts)", ctx), "\"Fira Sans\",Arial,sans-serif");
    // A list spliced into a list stands as its terms.
    EXPECT_EQ(sub("var(--pair) 3pt", ctx), "1pt 2pt 3pt");
    EXPECT_EQ(sub("var(--missing, 4pt)", ctx), "4pt");
    EXPECT_EQ(sub("var(--missing, Georgia, serif)", ctx), "Georgia,serif");
    EXPECT_EQ(sub("var(--missing, var(--accent))", ctx), "#336699");
    EXPECT_EQ(sub("var(--missing)", ctx), "<invalid>");
    EXPECT_EQ(sub("var(--accent)", context{}), "<invalid>");
}

TEST(substitute, custom_properties_resolve_among_themselves_and_cycles_drop_out) {
    custom_properties const customs{{"--a", term("var(--b)")},
                                    {"--b", term("2em")},
                                    {"--loop1", term("var(--loop2)")},
                                    {"--loop2", term("var(--loop1)")},
                                    {"--self", term("var(--self, 1px)")},
                                    {"--calc", term("calc(var(--b) * 2)")}};
    auto const r = resolve_customs(customs);
    EXPECT_EQ(value::to_text(r.at("--a")), "2em");
    EXPECT_FALSE(r.contains("--loop1"));
    EXPECT_FALSE(r.contains("--loop2"));
    // Math waits for the property that uses it, which knows the font size.
    EXPECT_EQ(value::to_text(r.at("--calc")), "calc(2em * 2)");
    // A reference to itself is a cycle even with a fallback.
    EXPECT_FALSE(r.contains("--self"));
}

TEST(substitute, rem_and_page_units) {
    context const ctx{.root_font_size = 10, .page_width = 400, .page_height = 600};
    EXPECT_EQ(sub("2rem", ctx), "20pt");
    EXPECT_EQ(sub("25vw", ctx), "100pt");
    EXPECT_EQ(sub("10vh", ctx), "60pt");
    EXPECT_EQ(sub("10vmin", ctx), "40pt");
    EXPECT_EQ(sub("10vmax", ctx), "60pt");
    EXPECT_EQ(sub("1rem 2px", ctx), "10pt 2px");
    EXPECT_FALSE(needs_element(term("1em 2px")));
    EXPECT_TRUE(needs_element(term("1rem")));
    EXPECT_TRUE(needs_element(term("rgb(var(--r), 0, 0)")));
}

TEST(substitute, calc_mixes_units_and_keeps_percentages_for_later) {
    context const ctx{.root_font_size = 10, .page_width = 400, .page_height = 600, .font_size = 20, .dpi = 72};
    EXPECT_EQ(sub("calc(1em + 10px)", ctx), "30pt");
    EXPECT_EQ(sub("calc(2 * 3pt - 1rem / 2)", ctx), "1pt");
    EXPECT_EQ(sub("calc((1pt + 2pt) * 3)", ctx), "9pt");
    EXPECT_EQ(sub("calc(50%)", ctx), "50%");
    EXPECT_EQ(sub("calc(100% - 2em)", ctx), "-vellum-calc(100%, -40pt)");
    EXPECT_EQ(sub("calc(1.5 * 2)", ctx), "3");
    EXPECT_EQ(sub("min(10pt, 1em, 5vw)", ctx), "10pt");
    EXPECT_EQ(sub("max(10pt, 1em)", ctx), "20pt");
    EXPECT_EQ(sub("clamp(1pt, 50pt, 2em)", ctx), "40pt");
    EXPECT_EQ(sub("clamp(30pt, 1pt, 2em)", ctx), "30pt");
    // Lengths and numbers don't add; nothing divides by zero or by a length; percentages don't compare yet.
    EXPECT_EQ(sub("calc(1pt + 2)", ctx), "<invalid>");
    EXPECT_EQ(sub("calc(1pt / 0)", ctx), "<invalid>");
    EXPECT_EQ(sub("calc(1pt / 1pt)", ctx), "<invalid>");
    EXPECT_EQ(sub("calc(1pt * 1pt)", ctx), "<invalid>");
    // Two percentages that wait for their reference can't be compared with each other.
    EXPECT_EQ(sub("min(10%, 20%)", ctx), "<invalid>");
    EXPECT_EQ(sub("max(10% + 1pt, 1pt, 20%)", ctx), "<invalid>");
    // The font's own properties settle percentages against the font size.
    context font = ctx;
    font.percent_of_font = true;
    EXPECT_EQ(sub("calc(50% + 1pt)", font), "11pt");
}

TEST(substitute, mixed_percentages_reach_the_length_parsers) {
    context const ctx{.font_size = 10};
    auto const v = substitute(term("calc(50% + 1em)"), ctx);
    ASSERT_TRUE(v);
    auto const lp = units::length_percent_from_value(*v);
    ASSERT_TRUE(lp);
    auto const* p = std::get_if<units::percentage>(&*lp);
    ASSERT_NE(p, nullptr);
    EXPECT_FLOAT_EQ(units::percent_of(*p, 200), 110);
    EXPECT_TRUE(property::parse_declaration(propnames::prop_name::prop_width, *v).has_value());
    EXPECT_TRUE(property::parse_declaration(propnames::prop_name::prop_margin_left, *v).has_value());
}

// What a bounded percentage resolves to against a reference, or nothing if it is not one.
std::optional<float> resolved(std::string_view text, float reference) {
    context const ctx{.font_size = 10, .dpi = 72};
    auto const v = substitute(term(text), ctx);
    if (!v) {
        return std::nullopt;
    }
    auto const lp = units::length_percent_from_value(*v);
    auto const* p = lp ? std::get_if<units::percentage>(&*lp) : nullptr;
    if (p == nullptr) {
        return std::nullopt;
    }
    return units::percent_of(*p, reference);
}

TEST(substitute, min_max_and_clamp_bound_a_percentage_by_lengths) {
    // The common width idioms: min(100%, 600px) and clamp(10em, 50%, 40em).
    EXPECT_EQ(resolved("min(100%, 60pt)", 50), 50);
    EXPECT_EQ(resolved("min(100%, 60pt)", 500), 60);
    EXPECT_EQ(resolved("max(50%, 2em)", 10), 20);
    EXPECT_EQ(resolved("max(50%, 2em)", 100), 50);
    EXPECT_EQ(resolved("clamp(10pt, 50%, 40pt)", 10), 10);
    EXPECT_EQ(resolved("clamp(10pt, 50%, 40pt)", 60), 30);
    EXPECT_EQ(resolved("clamp(10pt, 50%, 40pt)", 600), 40);
    // The low bound wins when the bounds cross.
    EXPECT_EQ(resolved("clamp(40pt, 50%, 10pt)", 600), 40);
    // The percentage may be either argument, and the bounds fold through nested calls.
    EXPECT_EQ(resolved("min(60pt, max(1pt, 100%))", 500), 60);
    EXPECT_EQ(resolved("min(60pt, max(1pt, 100%))", 0), 1);
    // A bounded percentage moves with lengths added to it, and turns with a negative factor.
    EXPECT_EQ(resolved("calc(min(100%, 60pt) - 1em)", 500), 50);
    EXPECT_EQ(resolved("calc(min(100%, 60pt) - 1em)", 30), 20);
    EXPECT_EQ(resolved("calc(1em - min(100%, 60pt))", 500), -50);
    EXPECT_EQ(resolved("calc(min(100%, 60pt) * -1)", 30), -30);
    EXPECT_EQ(resolved("calc(min(100%, 60pt) * -1)", 500), -60);
    // A bounded percentage and another percentage don't add up.
    EXPECT_EQ(resolved("calc(min(100%, 60pt) + 10%)", 500), std::nullopt);
}

TEST(substitute, validity_at_parse_time) {
    auto const valid = [](std::string_view name, std::string_view text) {
        return property::valid_declaration({.prop_name = std::string(name), .value = term(text)});
    };
    EXPECT_TRUE(valid("width", "var(--anything)"));
    EXPECT_TRUE(valid("--x", "1px solid"));
    EXPECT_TRUE(valid("width", "calc(100% - 2rem)"));
    EXPECT_TRUE(valid("font-size", "1.2rem"));
    EXPECT_TRUE(valid("margin", "0 5vw"));
    EXPECT_FALSE(valid("width", "calc(1pt + 2)"));
    EXPECT_FALSE(valid("color", "2rem"));
    EXPECT_FALSE(valid("bogus", "var(--x)"));
}

} // namespace
} // namespace vellum::css::substitute
