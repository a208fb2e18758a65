// A deep chain of computed styles: each child shares the groups it leaves alone with its parent, by
// identity, and only the groups it changes are new records.
#include "css/compute_style.hpp"
#include "css/parser.hpp"

#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace vellum::css::compute_style {
namespace {

std::vector<property::property> typed(std::string const& text) {
    std::vector<property::property> out;
    for (auto const& d : parser::parse_declarations(origin::author, "file:///d.html", text)) {
        auto p = property::parse_declaration(d);
        EXPECT_TRUE(p) << d.prop_name;
        if (p) {
            out.push_back(std::move(*p));
        }
    }
    return out;
}

// Which groups a level of the chain changes; every level also sets a margin, which belongs to no group.
struct level_changes {
    bool fonts = false;
    bool text = false;
    bool rare = false;
    bool svg = false;
    bool background = false;
    bool borders = false;
};

level_changes changes_at(int depth) {
    return {.fonts = depth % 7 == 0,
            .text = depth % 11 == 0,
            .rare = depth % 13 == 0,
            .svg = depth % 17 == 0,
            .background = depth % 19 == 0,
            .borders = depth % 23 == 0};
}

std::string declarations_at(int depth) {
    auto const c = changes_at(depth);
    std::string out = "margin-left: " + std::to_string(depth) + "pt;";
    // Alternating values, so that a changed group also differs in value from the parent's.
    bool const odd = depth % 2 != 0;
    if (c.fonts) {
        out += odd ? "font-weight: bold;" : "font-weight: normal;";
    }
    if (c.text) {
        out += odd ? "text-align: right;" : "text-align: left;";
    }
    if (c.rare) {
        out += odd ? "white-space: pre;" : "white-space: nowrap;";
    }
    if (c.svg) {
        out += "stroke-width: " + std::to_string(depth) + "pt;";
    }
    if (c.background) {
        out += "background-color: red;";
    }
    if (c.borders) {
        out += "border-top: solid;";
    }
    return out;
}

TEST(compute_style_sharing, a_deep_chain_shares_unchanged_groups_with_the_parent) {
    constexpr int depth = 1000;
    std::vector<ref<style::style>> chain;
    chain.push_back(share(compute_style(nullptr, anonymous_context{}, typed("font-family: serif"))));
    for (int i = 1; i <= depth; ++i) {
        chain.push_back(share(compute_style(chain.back(), anonymous_context{}, typed(declarations_at(i)))));
    }
    auto const& initial = *style::initial_style();

    std::set<void const*> font_records;
    int bold_changes = 0;
    for (int i = 1; i <= depth; ++i) {
        SCOPED_TRACE("depth " + std::to_string(i));
        auto const& s = *chain[i];
        auto const& parent = *chain[i - 1];
        auto const c = changes_at(i);
        // The inherited groups: the parent's very record unless this level declares something in it.
        EXPECT_EQ(s.font_props.get() == parent.font_props.get(), !c.fonts);
        EXPECT_EQ(s.text.get() == parent.text.get(), !c.text);
        EXPECT_EQ(s.rare_props.get() == parent.rare_props.get(), !c.rare);
        EXPECT_EQ(s.svgstyle.get() == parent.svgstyle.get(), !c.svg);
        // The groups that don't inherit: the initial style's record unless declared here.
        EXPECT_EQ(s.background.get() == initial.background.get(), !c.background);
        EXPECT_EQ(s.borders.get() == initial.borders.get(), !c.borders);
        EXPECT_EQ(s.margin_left, box::margin{static_cast<float>(i)});
        font_records.insert(s.font_props.get());
        bold_changes += c.fonts && i % 2 != 0 ? 1 : 0;
        if (::testing::Test::HasFailure()) {
            break;
        }
    }
    // One record for the stretch below the root, which is the initial one (serif is the initial family),
    // and one more for each level that made the fonts bold: those that made them normal again have
    // the initial fonts and share the initial record.
    EXPECT_EQ(*chain[0]->font_props, *initial.font_props);
    EXPECT_EQ(font_records.size(), static_cast<std::size_t>(bold_changes + 1));

    // The values still arrive where they were last set: fonts at 994, text at 990, white space at 988,
    // the stroke at 986.
    auto const& leaf = *chain[depth];
    EXPECT_EQ(leaf.font_props->font_props_font_weight, 400);
    EXPECT_EQ(leaf.font_props->font_props_font_family, (fonts::font_family{"serif"}));
    EXPECT_EQ(leaf.text->text_props_text_align, text::text_align::left);
    EXPECT_EQ(leaf.rare_props->rare_props_white_space, text::white_space::nowrap);
    EXPECT_EQ(leaf.svgstyle->svgstyle_stroke_width, svgstyle::svg_length{986.0f});
    EXPECT_EQ(leaf.font_props.get(), chain[994]->font_props.get());
    EXPECT_EQ(leaf.text.get(), chain[990]->text.get());
    EXPECT_EQ(leaf.rare_props.get(), chain[988]->rare_props.get());
    EXPECT_EQ(leaf.svgstyle.get(), chain[986]->svgstyle.get());
}

TEST(compute_style_sharing, declaring_inherit_or_an_unchanged_value_still_computes_equal_groups) {
    auto const root = share(compute_style(nullptr, anonymous_context{}, typed("font-weight: bold")));
    // Asking for the parent's value explicitly gives an equal group, whether or not it is the same record.
    auto const child = compute_style(root, anonymous_context{}, typed("font-weight: inherit"));
    EXPECT_EQ(*child.font_props, *root->font_props);
    auto const again = compute_style(root, anonymous_context{}, typed("font-weight: bold"));
    EXPECT_EQ(*again.font_props, *root->font_props);
    // A group member the child changes leaves the other members as the parent had them.
    auto const italic = compute_style(root, anonymous_context{}, typed("font-style: italic"));
    EXPECT_EQ(italic.font_props->font_props_font_weight, 700);
    EXPECT_EQ(italic.font_props->font_props_font_style, fonts::font_style::italic);
    EXPECT_EQ(root->font_props->font_props_font_style, fonts::font_style::normal);
}

} // namespace
} // namespace vellum::css::compute_style
