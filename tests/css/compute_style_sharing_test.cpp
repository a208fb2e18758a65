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
    // and one shared by every level that made the fonts bold: groups equal in value share a record even
    // where they were made far apart. Levels that made them normal again share the initial record.
    EXPECT_EQ(*chain[0]->font_props, *initial.font_props);
    EXPECT_GT(bold_changes, 1);
    EXPECT_EQ(font_records.size(), 2U);

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

TEST(compute_style_sharing, groups_set_alike_by_unrelated_elements_share_one_record) {
    // Two parents of different colours, so that nothing of the children comes from a common parent.
    auto const red = share(compute_style(nullptr, anonymous_context{}, typed("color: red")));
    auto const green = share(compute_style(nullptr, anonymous_context{}, typed("color: green")));
    auto const under = [](ref<style::style> const& parent, std::string const& text) {
        return compute_style(parent, anonymous_context{}, typed(text));
    };
    auto const a =
        under(red, "background: url(a.png) no-repeat; border: 2px solid blue; font-family: monospace");
    auto const b =
        under(green, "background: url(a.png) no-repeat; border: 2px solid blue; font-family: monospace");
    EXPECT_EQ(a.background.get(), b.background.get());
    EXPECT_EQ(a.borders.get(), b.borders.get());
    EXPECT_EQ(a.font_props.get(), b.font_props.get());
    EXPECT_EQ(a.borders->borders_left.border_width, 1.5f); // 2px in points
    EXPECT_EQ(std::get<value::url>(a.background->background_image.at(0)).url_text, "a.png");

    // A group that differs in one member is a record of its own, with its own values.
    auto const c =
        under(red, "background: url(c.png) no-repeat; border: 3px solid blue; font-family: serif, monospace");
    EXPECT_NE(c.background.get(), a.background.get());
    EXPECT_NE(c.borders.get(), a.borders.get());
    EXPECT_NE(c.font_props.get(), a.font_props.get());
    EXPECT_EQ(std::get<value::url>(c.background->background_image.at(0)).url_text, "c.png");
    EXPECT_EQ(c.borders->borders_top.border_width, 2.25f);
    EXPECT_EQ(c.font_props->font_props_font_family, (fonts::font_family{"serif", "monospace"}));

    // Pure colours differ in the high bits of their components only; one made between two alike keeps
    // neither from being found.
    auto const red_border = under(red, "border: 1pt solid rgb(255, 0, 0)");
    auto const lime_border = under(red, "border: 1pt solid rgb(0, 255, 0)");
    auto const red_again = under(green, "border: 1pt solid rgb(255, 0, 0)");
    EXPECT_NE(red_border.borders.get(), lime_border.borders.get());
    EXPECT_EQ(red_border.borders.get(), red_again.borders.get());

    // Borders whose colour is currentColor take the element's colour, so red and green text make two.
    auto const d = under(red, "border: 1px solid");
    auto const e = under(green, "border: 1px solid");
    EXPECT_NE(d.borders.get(), e.borders.get());
    EXPECT_EQ(d.borders->borders_top.border_color, *color::named("red"));
    EXPECT_EQ(e.borders->borders_top.border_color, *color::named("green"));
}

TEST(compute_style_sharing, size_limits_flow_and_paragraph_values_live_in_the_shared_groups) {
    auto const root =
        share(compute_style(nullptr, anonymous_context{}, typed("orphans: 3; letter-spacing: 2pt")));
    auto const& initial = *style::initial_style();
    // Inherited: the child that declares nothing of them keeps the parent's record and its values.
    auto const child =
        share(compute_style(root, anonymous_context{}, typed("max-width: 50%; overflow: hidden")));
    EXPECT_EQ(child->rare_props.get(), root->rare_props.get());
    EXPECT_EQ(child->rare_props->rare_props_orphans, 3);
    EXPECT_EQ(child->rare_props->rare_props_letter_spacing, box::letter_word_spacing{2.0f});
    EXPECT_EQ(child->rare_props->rare_props_widows, 2);
    // Not inherited: the size limits and overflow are the child's alone; its own child starts over.
    EXPECT_EQ(child->rare_box->max_width, box::max_width{units::percentage{50}});
    EXPECT_EQ(child->rare_box->overflow, box::overflow::hidden);
    auto const grandchild = compute_style(child, anonymous_context{}, typed("color: blue"));
    EXPECT_EQ(grandchild.rare_box.get(), initial.rare_box.get());
    EXPECT_EQ(grandchild.rare_box->max_width, box::max_width{box::none_value{}});
    // A min-width or flow declared makes a record of its own and leaves the inherited group alone.
    auto const flowed =
        compute_style(root, anonymous_context{}, typed("min-width: 10pt; flow: static(side)"));
    EXPECT_EQ(flowed.rare_box->min_width, box::min_width{10.0f});
    EXPECT_TRUE(std::holds_alternative<box::flow_static>(flowed.rare_box->flow));
    EXPECT_EQ(flowed.rare_props.get(), root->rare_props.get());
}

} // namespace
} // namespace vellum::css::compute_style
