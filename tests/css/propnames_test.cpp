#include "css/propnames.hpp"

#include <set>
#include <string>

#include <gtest/gtest.h>

namespace vellum::css::propnames {
namespace {

TEST(propnames, every_name_finds_itself) {
    std::set<std::string_view> seen;
    for (int i = 0; i < prop_name_count; ++i) {
        auto const p = static_cast<prop_name>(i);
        auto const name = css_name(p);
        SCOPED_TRACE(std::string(name));
        EXPECT_TRUE(seen.insert(name).second);
        EXPECT_EQ(lookup_property(name), p);
    }
}

TEST(propnames, order_and_ends) {
    EXPECT_EQ(css_name(static_cast<prop_name>(0)), "alternate-color");
    EXPECT_EQ(css_name(static_cast<prop_name>(prop_name_count - 1)), "z-index");
    EXPECT_LT(prop_name::prop_position, prop_name::prop_vellum_footnote_policy);
    EXPECT_LT(prop_name::prop_vellum_trim, prop_name::prop_right);
}

TEST(propnames, aliases) {
    EXPECT_EQ(lookup_property("vellum-hyphens"), prop_name::prop_hyphens);
    EXPECT_EQ(lookup_property("vellum-link"), prop_name::prop_link);
    EXPECT_EQ(lookup_property("vellum-text-justify"), prop_name::prop_text_justify);
    EXPECT_EQ(lookup_property("-vellum-hyphens"), prop_name::prop_hyphens);
    EXPECT_EQ(lookup_property("-vellum-bookmark-level"), prop_name::prop_bookmark_level);
    EXPECT_EQ(lookup_property("word-wrap"), prop_name::prop_overflow_wrap);
    EXPECT_EQ(lookup_property("-vellum-lang"), prop_name::prop_vellum_lang);
    // Only the listed names take the plain prefix, and the prefixed-only names have no bare form.
    EXPECT_FALSE(lookup_property("vellum-color"));
    EXPECT_FALSE(lookup_property("vellum-width"));
    EXPECT_FALSE(lookup_property("lang"));
    EXPECT_FALSE(lookup_property("vellum-lang"));
}

TEST(propnames, unknown_and_case) {
    EXPECT_FALSE(lookup_property(""));
    EXPECT_FALSE(lookup_property("bogus"));
    EXPECT_FALSE(lookup_property("Color"));
    EXPECT_FALSE(lookup_property("colors"));
    EXPECT_TRUE(known_property("color"));
    EXPECT_FALSE(known_property("colour"));
}

TEST(propnames, kinds) {
    EXPECT_EQ(kind_of(prop_name::prop_margin), name_kind::shorthand);
    EXPECT_EQ(kind_of(prop_name::prop_size), name_kind::page_only);
    EXPECT_EQ(kind_of(prop_name::prop_vellum_pdf_profile), name_kind::page_only);
    EXPECT_EQ(kind_of(prop_name::prop_vellum_pdf_link_type), name_kind::longhand);
    int longhands = 0;
    for (int i = 0; i < prop_name_count; ++i) {
        longhands += kind_of(static_cast<prop_name>(i)) == name_kind::longhand;
    }
    EXPECT_EQ(longhands, 170);
}

TEST(propnames, script_names) {
    EXPECT_EQ(script_name(prop_name::prop_font_size), "fontSize");
    EXPECT_EQ(script_name(prop_name::prop_color), "color");
    EXPECT_EQ(script_name(prop_name::prop_vellum_pdf_link_type), "vellumPdfLinkType");
    EXPECT_EQ(script_name(prop_name::prop_border_top_left_radius), "borderTopLeftRadius");
}

} // namespace
} // namespace vellum::css::propnames
