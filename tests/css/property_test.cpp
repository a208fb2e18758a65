#include "css/parser.hpp"
#include "css/property.hpp"

#include <cmath>

#include <gtest/gtest.h>

namespace vellum::css::property {
namespace {

using L = longhand;
using P = prop_name;

std::optional<property> parse(std::string_view name, std::string_view text) {
    auto const p = propnames::lookup_property(name);
    if (!p) {
        ADD_FAILURE() << "unknown property " << name;
        return std::nullopt;
    }
    auto const v = parser::parse_value("file:///doc.html", text);
    if (!v) {
        ADD_FAILURE() << "value doesn't parse: " << text;
        return std::nullopt;
    }
    return parse_declaration(*p, *v);
}

template <L M>
longhand_value_t<M> const& value_of(property const& p) {
    auto const* one = std::get_if<prop<M>>(&p);
    EXPECT_TRUE(one) << "not the expected longhand";
    static longhand_value_t<M> const none{};
    if (!one) {
        return none;
    }
    auto const* v = std::get_if<longhand_value_t<M>>(&one->prop_spec);
    EXPECT_TRUE(v) << "inherit or initial where a value was expected";
    return v ? *v : none;
}

// The member of a compound that sets a longhand.
template <L M>
prop<M> const* member(property const& p) {
    auto const* c = std::get_if<compound>(&p);
    if (!c) {
        return nullptr;
    }
    for (auto const& m : c->compound_members) {
        if (auto const* x = std::get_if<prop<M>>(&m)) {
            return x;
        }
    }
    return nullptr;
}

template <L M>
bool is_initial(property const& p) {
    auto const* m = member<M>(p);
    return m && std::holds_alternative<initial>(m->prop_spec);
}

template <L M>
longhand_value_t<M> member_value(property const& p) {
    auto const* m = member<M>(p);
    EXPECT_TRUE(m) << "member missing";
    if (!m) {
        return {};
    }
    auto const* v = std::get_if<longhand_value_t<M>>(&m->prop_spec);
    EXPECT_TRUE(v) << "member not set to a value";
    return v ? *v : longhand_value_t<M>{};
}

expr::or_attr<fonts::font_family> families(fonts::font_family names) {
    return names;
}

expr::or_attr<box::spec_margin> px(float n) {
    return box::spec_margin{units::length{units::pixels{n}}};
}

TEST(property, keywords_inherit_initial_any_case) {
    auto const p = parse("color", "INHERIT");
    ASSERT_TRUE(p);
    EXPECT_EQ(*p, property{prop<L::color>{inherit{}}});
    auto const q = parse("width", "Initial");
    ASSERT_TRUE(q);
    EXPECT_EQ(*q, property{prop<L::width>{initial{}}});
    auto const d = parse("display", "Table-Cell");
    ASSERT_TRUE(d);
    EXPECT_EQ(value_of<L::display>(*d), box::display{box::display_kind::table_cell});
}

TEST(property, lengths_need_units_except_zero) {
    EXPECT_FALSE(parse("width", "10"));
    auto const zero = parse("width", "0");
    ASSERT_TRUE(zero);
    EXPECT_EQ(value_of<L::width>(*zero), expr::or_attr<box::spec_width>{units::length{units::points{0}}});
    EXPECT_FALSE(parse("width", "-1pt"));
    EXPECT_FALSE(parse("padding-left", "-1pt"));
    EXPECT_TRUE(parse("margin-left", "-1pt"));
    EXPECT_TRUE(parse("width", "10PX"));
    EXPECT_FALSE(parse("width", "10zz"));
}

TEST(property, values_that_fail_are_dropped) {
    EXPECT_FALSE(parse("display", "blocky"));
    EXPECT_FALSE(parse("color", "notacolor"));
    EXPECT_FALSE(parse("font-weight", "450"));
    EXPECT_FALSE(parse("orphans", "0"));
    EXPECT_FALSE(parse("z-index", "1.5"));
    EXPECT_FALSE(parse("border-top-style", "solid dashed"));
    EXPECT_FALSE(parse("opacity", "1px"));
}

TEST(property, page_properties_fail_on_elements) {
    EXPECT_FALSE(parse("size", "a4"));
    EXPECT_FALSE(parse("marks", "crop"));
    EXPECT_FALSE(parse("-vellum-pdf-profile", "\"PDF/A-1b\""));
    declaration d{.prop_name = "size", .value = value::ident{"a4"}};
    EXPECT_FALSE(valid_declaration(d));
    d = {.prop_name = "margin-top", .value = value::dimension{1, "cm"}};
    EXPECT_TRUE(valid_declaration(d));
}

TEST(property, aliases_are_the_same_property) {
    auto const a = parse("-vellum-hyphens", "auto");
    auto const b = parse("hyphens", "auto");
    ASSERT_TRUE(a);
    EXPECT_EQ(a, b);
    EXPECT_EQ(value_of<L::hyphens>(*a), text::hyphens::auto_);
    auto const w = parse("word-wrap", "break-word");
    ASSERT_TRUE(w);
    EXPECT_EQ(value_of<L::overflow_wrap>(*w), text::overflow_wrap::break_word);
}

TEST(property, margin_one_to_four_values) {
    auto const p = parse("margin", "1px 2px");
    ASSERT_TRUE(p);
    ASSERT_TRUE(std::holds_alternative<compound>(*p));
    EXPECT_EQ(std::get<compound>(*p).compound_members.size(), 6u);
    EXPECT_EQ(member_value<L::margin_top>(*p), px(1));
    EXPECT_EQ(member_value<L::margin_bottom>(*p), px(1));
    EXPECT_EQ(member_value<L::margin_left>(*p), px(2));
    EXPECT_EQ(member_value<L::margin_right>(*p), px(2));
    EXPECT_TRUE(is_initial<L::margin_inside>(*p));
    EXPECT_TRUE(is_initial<L::margin_outside>(*p));

    auto const three = parse("margin", "1px 2px 3px");
    ASSERT_TRUE(three);
    EXPECT_EQ(member_value<L::margin_bottom>(*three), px(3));
    EXPECT_EQ(member_value<L::margin_left>(*three), px(2));
    auto const four = parse("margin", "1px 2px 3px auto");
    ASSERT_TRUE(four);
    EXPECT_EQ(member_value<L::margin_left>(*four), expr::or_attr<box::spec_margin>{box::auto_value{}});
    EXPECT_FALSE(parse("margin", "1px 2px 3px 4px 5px"));
    // One bad part drops the whole shorthand.
    EXPECT_FALSE(parse("margin", "1px red"));
}

TEST(property, shorthand_inherit_sets_every_member) {
    auto const p = parse("border", "inherit");
    ASSERT_TRUE(p);
    auto const& members = std::get<compound>(*p).compound_members;
    ASSERT_EQ(members.size(), 12u);
    for (auto const& m : members) {
        EXPECT_TRUE(
            std::visit(overloaded{
                           []<L M>(prop<M> const& x) { return std::holds_alternative<inherit>(x.prop_spec); },
                           [](compound const&) { return false; },
                       },
                       static_cast<property_alternative const&>(m)));
    }
}

TEST(property, border_shorthands) {
    auto const p = parse("border-top", "thick dotted red");
    ASSERT_TRUE(p);
    EXPECT_EQ(member_value<L::border_top_style>(*p), box::line_style::dotted);
    expr::or_attr<box::spec_border_width> const thick = box::spec_border_width{box::border_keyword::thick};
    EXPECT_EQ(member_value<L::border_top_width>(*p), thick);
    expr::or_attr<color::spec_color> const red = color::spec_color{color::color{color::rgb{1, 0, 0}}};
    EXPECT_EQ(member_value<L::border_top_color>(*p), red);

    auto const b = parse("border", "solid");
    ASSERT_TRUE(b);
    EXPECT_EQ(std::get<compound>(*b).compound_members.size(), 12u);
    EXPECT_EQ(member_value<L::border_left_style>(*b), box::line_style::solid);
    EXPECT_TRUE(is_initial<L::border_left_width>(*b));
    EXPECT_TRUE(is_initial<L::border_left_color>(*b));
    EXPECT_FALSE(parse("border", "solid dashed"));

    auto const s = parse("border-style", "solid none");
    ASSERT_TRUE(s);
    EXPECT_EQ(member_value<L::border_top_style>(*s), box::line_style::solid);
    EXPECT_EQ(member_value<L::border_right_style>(*s), box::line_style::none);

    auto const r = parse("border-radius", "1pt 2pt / 3pt");
    ASSERT_TRUE(r);
    auto const tr = member_value<L::border_top_right_radius>(*r);
    EXPECT_EQ(tr.radius_h, (box::length_or_percent<units::length>{units::length{units::points{2}}}));
    EXPECT_EQ(tr.radius_v, (box::length_or_percent<units::length>{units::length{units::points{3}}}));
}

TEST(property, font_variant_longhands_and_shorthand) {
    using fonts::feature_toggle;
    auto const lig = parse("font-variant-ligatures", "no-common-ligatures discretionary-ligatures");
    ASSERT_TRUE(lig);
    EXPECT_EQ(value_of<L::font_variant_ligatures>(*lig),
              (fonts::font_variant_ligatures{.ligatures_common = feature_toggle::off,
                                             .ligatures_discretionary = feature_toggle::on}));
    auto const none = parse("font-variant-ligatures", "none");
    ASSERT_TRUE(none);
    EXPECT_EQ(value_of<L::font_variant_ligatures>(*none).ligatures_contextual, feature_toggle::off);
    // Each set of exclusive keywords at most once, and only the longhand's own keywords.
    EXPECT_FALSE(parse("font-variant-ligatures", "common-ligatures no-common-ligatures"));
    EXPECT_FALSE(parse("font-variant-numeric", "oldstyle-nums lining-nums"));
    EXPECT_FALSE(parse("font-variant-numeric", "ordinal ordinal"));
    EXPECT_FALSE(parse("font-variant-numeric", "small-caps"));
    EXPECT_FALSE(parse("font-variant-numeric", "normal ordinal"));
    EXPECT_FALSE(parse("font-variant-position", "sub super"));
    auto const num = parse("font-variant-numeric", "slashed-zero stacked-fractions ordinal");
    ASSERT_TRUE(num);
    EXPECT_EQ(value_of<L::font_variant_numeric>(*num),
              (fonts::font_variant_numeric{.numeric_fraction_style = fonts::numeric_fraction::stacked,
                                           .numeric_ordinal = true,
                                           .numeric_slashed_zero = true}));

    auto const v = parse("font-variant", "oldstyle-nums small-caps no-contextual super traditional");
    ASSERT_TRUE(v);
    EXPECT_EQ(member_value<L::font_variant_caps>(*v), fonts::font_variant_caps::small_caps);
    EXPECT_EQ(member_value<L::font_variant_numeric>(*v).numeric_figure_style, fonts::numeric_figure::oldstyle);
    EXPECT_EQ(member_value<L::font_variant_ligatures>(*v).ligatures_contextual, feature_toggle::off);
    EXPECT_EQ(member_value<L::font_variant_position>(*v), fonts::font_variant_position::super);
    EXPECT_EQ(member_value<L::font_variant_east_asian>(*v).east_asian_forms, fonts::east_asian_variant::traditional);
    // "none" turns the ligatures off and sets the rest back to normal.
    auto const n = parse("font-variant", "none");
    ASSERT_TRUE(n);
    EXPECT_EQ(member_value<L::font_variant_ligatures>(*n).ligatures_common, feature_toggle::off);
    EXPECT_EQ(member_value<L::font_variant_caps>(*n), fonts::font_variant_caps::normal);
    EXPECT_FALSE(parse("font-variant", "none small-caps"));
    EXPECT_FALSE(parse("font-variant", "small-caps all-small-caps"));
    // The font shorthand takes small-caps only, and resets the other variant and feature properties.
    auto const f = parse("font", "small-caps 12pt serif");
    ASSERT_TRUE(f);
    EXPECT_EQ(member_value<L::font_variant_caps>(*f), fonts::font_variant_caps::small_caps);
    EXPECT_TRUE(is_initial<L::font_feature_settings>(*f));
    EXPECT_TRUE(is_initial<L::font_kerning>(*f));
    EXPECT_FALSE(parse("font", "all-small-caps 12pt serif"));
}

TEST(property, font_feature_settings_and_kerning) {
    auto const p = parse("font-feature-settings", "\"liga\" 0, \"salt\" 3, \"smcp\", \"dlig\" on, \"kern\" off");
    ASSERT_TRUE(p);
    EXPECT_EQ(value_of<L::font_feature_settings>(*p),
              (fonts::font_feature_settings{{"liga", 0}, {"salt", 3}, {"smcp", 1}, {"dlig", 1}, {"kern", 0}}));
    auto const normal = parse("font-feature-settings", "normal");
    ASSERT_TRUE(normal);
    EXPECT_TRUE(value_of<L::font_feature_settings>(*normal).empty());
    EXPECT_FALSE(parse("font-feature-settings", "\"ligature\" 1"));
    EXPECT_FALSE(parse("font-feature-settings", "liga 1"));
    EXPECT_FALSE(parse("font-feature-settings", "\"liga\" -1"));
    EXPECT_FALSE(parse("font-feature-settings", "\"liga\" 1 2"));
    auto const k = parse("font-kerning", "none");
    ASSERT_TRUE(k);
    EXPECT_EQ(value_of<L::font_kerning>(*k), fonts::font_kerning::none);
    EXPECT_FALSE(parse("font-kerning", "off"));
}

TEST(property, font_shorthand) {
    auto const p = parse("font", "italic bold 12pt/1.5 \"DejaVu Serif\", serif");
    ASSERT_TRUE(p);
    EXPECT_EQ(member_value<L::font_style>(*p), fonts::font_style::italic);
    EXPECT_EQ(member_value<L::font_weight>(*p), fonts::spec_font_weight{700});
    EXPECT_EQ(member_value<L::font_size>(*p),
              expr::or_attr<fonts::spec_font_size>{fonts::spec_font_size{units::length{units::points{12}}}});
    EXPECT_EQ(member_value<L::line_height>(*p), fonts::spec_line_height{fonts::line_height_number{1.5f}});
    EXPECT_EQ(member_value<L::font_family>(*p), families({"DejaVu Serif", "serif"}));
    EXPECT_TRUE(is_initial<L::font_variant_caps>(*p));
    EXPECT_TRUE(is_initial<L::font_variant_numeric>(*p));

    auto const q = parse("font", "10pt Liberation Sans");
    ASSERT_TRUE(q);
    EXPECT_TRUE(is_initial<L::line_height>(*q));
    EXPECT_EQ(member_value<L::font_family>(*q), families({"Liberation Sans"}));
    EXPECT_FALSE(parse("font", "bold serif"));
    EXPECT_FALSE(parse("font", "12pt"));
}

TEST(property, other_shorthands) {
    auto const ls = parse("list-style", "none inside");
    ASSERT_TRUE(ls);
    EXPECT_EQ(member_value<L::list_style_type>(*ls), box::list_style_type{box::none_value{}});
    EXPECT_EQ(member_value<L::list_style_position>(*ls), box::list_style_position::inside);
    EXPECT_TRUE(is_initial<L::list_style_image>(*ls));

    auto const cols = parse("columns", "3 auto");
    ASSERT_TRUE(cols);
    EXPECT_EQ(member_value<L::column_count>(*cols), box::column_count{3});
    EXPECT_EQ(member_value<L::column_width>(*cols), box::spec_column_width{box::auto_value{}});

    auto const td = parse("text-decoration", "underline");
    ASSERT_TRUE(td);
    EXPECT_EQ(member_value<L::text_underline_style>(*td), text::text_line_style::solid);
    EXPECT_TRUE(is_initial<L::text_overline_style>(*td));
    EXPECT_TRUE(is_initial<L::text_underline_color>(*td));
    EXPECT_FALSE(parse("text-decoration", "none underline"));

    auto const bg = parse("background", "url(a.png) no-repeat right top / 50% #fff");
    ASSERT_TRUE(bg);
    EXPECT_EQ(member_value<L::background_repeat>(*bg),
              (std::vector<box::background_repeat>{
                  {box::background_repeat0::no_repeat, box::background_repeat0::no_repeat}}));
    auto const pos = member_value<L::background_position>(*bg);
    ASSERT_EQ(pos.size(), 1u);
    EXPECT_EQ(pos[0].bg_position_x, (box::length_or_percent<units::length>{units::percentage{100}}));
    EXPECT_EQ(pos[0].bg_position_y, (box::length_or_percent<units::length>{units::percentage{0}}));
    EXPECT_TRUE(is_initial<L::background_attachment>(*bg));
    EXPECT_FALSE(is_initial<L::background_color>(*bg));
    // A colour belongs to the last layer only.
    EXPECT_FALSE(parse("background", "red, url(a.png)"));
    EXPECT_TRUE(parse("background", "url(a.png), red"));
}

TEST(property, attr_in_values) {
    auto const p = parse("width", "attr(data-w, length, 5px)");
    ASSERT_TRUE(p);
    auto const& w = value_of<L::width>(*p);
    auto const* e = std::get_if<expr::expr<box::spec_width>>(&w);
    ASSERT_TRUE(e);
    EXPECT_EQ(e->expr_name.attr_local, "data-w");
    EXPECT_EQ(e->expr_type, expr::attr_type{expr::type_length{}});
    EXPECT_EQ(e->expr_default, box::spec_width{units::length{units::pixels{5}}});
    EXPECT_FALSE(parse("width", "attr(data-w, length, red)"));
    EXPECT_FALSE(parse("width", "attr(data-w, bogus-type)"));
    EXPECT_FALSE(parse("display", "attr(data-d)"));

    auto const link = parse("link", "attr(href)");
    ASSERT_TRUE(link);
    auto const* le = std::get_if<expr::expr<semantics::link_type>>(&value_of<L::link>(*link));
    ASSERT_TRUE(le);
    EXPECT_EQ(le->expr_type, expr::attr_type{expr::type_url{}});
}

TEST(property, assorted_value_types) {
    auto const f = parse("float", "top next");
    ASSERT_TRUE(f);
    box::floaty const top_next = box::float_page{box::page_column_float{box::float_edge::top, true, false}};
    EXPECT_EQ(value_of<L::float_>(*f), top_next);
    auto const fl = parse("flow", "static(header, start)");
    ASSERT_TRUE(fl);
    box::flowy const header = box::flow_static{"header", box::flow_when::start};
    EXPECT_EQ(value_of<L::flow>(*fl), header);
    auto const t = parse("transform", "rotate(90deg) scale(2)");
    ASSERT_TRUE(t);
    auto const& ops = value_of<L::transform>(*t);
    ASSERT_EQ(ops.size(), 2u);
    EXPECT_NEAR(std::get<box::transform_rotate>(ops[0]).rotate_angle, std::numbers::pi / 2, 1e-6);
    auto const lh = parse("line-height", "150%");
    ASSERT_TRUE(lh);
    fonts::spec_line_height const one_and_half = fonts::line_height_number{1.5f};
    EXPECT_EQ(value_of<L::line_height>(*lh), one_and_half);
    auto const ci = parse("counter-increment", "chapter section 2");
    ASSERT_TRUE(ci);
    EXPECT_EQ(value_of<L::counter_increment>(*ci), (box::spec_counters{{"chapter", 1}, {"section", 2}}));
    auto const ff = parse("font-family", "Times New Roman, SERIF");
    ASSERT_TRUE(ff);
    EXPECT_EQ(value_of<L::font_family>(*ff), families({"Times New Roman", "serif"}));
    EXPECT_TRUE(parse("content", "\"Chapter \" counter(chapter) \": \""));
    EXPECT_FALSE(parse("content", "12"));
    auto const tr = parse("-vellum-text-replace", "\"--\" \"\\2013\"");
    ASSERT_TRUE(tr);
    EXPECT_EQ(value_of<L::vellum_text_replace>(*tr), (text::text_replace{{"--", "\u2013"}}));
}

TEST(property, shorthand_members_table) {
    EXPECT_EQ(shorthand_members(P::prop_padding),
              (std::vector<longhand>{L::padding_bottom, L::padding_left, L::padding_right, L::padding_top}));
    EXPECT_TRUE(shorthand_members(P::prop_color).empty());
    EXPECT_EQ(shorthand_members(P::prop_border).size(), 12u);
    EXPECT_EQ(name_of(L::z_index), P::prop_z_index);
    EXPECT_EQ(longhand_named(P::prop_float), L::float_);
    EXPECT_FALSE(longhand_named(P::prop_margin));
    EXPECT_TRUE(is_inherited(L::color));
    EXPECT_TRUE(is_inherited(L::link));
    EXPECT_FALSE(is_inherited(L::width));
    EXPECT_FALSE(is_inherited(L::background_color));
    for (std::size_t i = 0; i < longhand_count; ++i) {
        auto const l = static_cast<longhand>(i);
        EXPECT_EQ(longhand_named(name_of(l)), l);
        EXPECT_EQ(longhand_of(keyword_property(l, initial{})), l);
    }
}

} // namespace
} // namespace vellum::css::property
