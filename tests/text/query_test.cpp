#include "font_test_util.hpp"
#include "text/fonts/query.hpp"

#include <gtest/gtest.h>

namespace vellum::fonts::query {
namespace {

using css::fonts::font_stretch;
using truetype::truetype_weight;
using truetype::truetype_width;

TEST(query, weights_land_on_the_nearest_class) {
    struct row {
        int css;
        truetype_weight expected;
    } const rows[] = {
        {100, truetype_weight::weight_100}, {200, truetype_weight::weight_200},
        {300, truetype_weight::weight_300}, {400, truetype_weight::normal},
        {500, truetype_weight::weight_500}, {600, truetype_weight::weight_600},
        {700, truetype_weight::bold},       {800, truetype_weight::weight_800},
        {900, truetype_weight::weight_900}, {0, truetype_weight::weight_100},
        {149, truetype_weight::weight_100}, {150, truetype_weight::weight_200},
        {650, truetype_weight::bold},       {1000, truetype_weight::weight_900},
        {-300, truetype_weight::weight_100},
    };
    for (auto const& r : rows) {
        SCOPED_TRACE(r.css);
        EXPECT_EQ(weight_of(r.css), r.expected);
    }
    // The demi-bold class sits at 650 for matching.
    EXPECT_EQ(truetype::matching_value(weight_of(600)), 650);
}

TEST(query, maps_every_property_of_the_group) {
    EXPECT_EQ(width_of(font_stretch::ultra_condensed), truetype_width::ultra_condensed);
    EXPECT_EQ(width_of(font_stretch::semi_condensed), truetype_width::semi_condensed);
    EXPECT_EQ(width_of(font_stretch::normal), truetype_width::normal);
    EXPECT_EQ(width_of(font_stretch::expanded), truetype_width::expanded);
    EXPECT_EQ(width_of(font_stretch::ultra_expanded), truetype_width::ultra_expanded);

    css::fonts::font_props const props{
        .font_props_font_family = {"Foo Bar", "sans-serif"},
        .font_props_font_stretch = font_stretch::condensed,
        .font_props_font_style = css::fonts::font_style::oblique,
        .font_props_font_variant = css::fonts::font_variant::small_caps,
        .font_props_font_weight = 700,
    };
    EXPECT_EQ(query_of(props), (font_query{.query_families = {"Foo Bar", "sans-serif"},
                                           .query_style = match::font_style::oblique,
                                           .query_weight = truetype_weight::bold,
                                           .query_width = truetype_width::condensed,
                                           .query_variant = match::font_variant::small_caps}));
    // The initial properties ask for the generic serif family with everything normal.
    EXPECT_EQ(query_of(css::fonts::font_props{}), font_query{.query_families = {"serif"}});
}

TEST(query, a_computed_style_finds_its_face) {
    font_test::captured_log log;
    resource::loader::loader_options opts;
    opts.network = false;
    auto loader = resource::loader::new_loader(log.log, {"/nonexistent-prefix"}, {"/tmp"}, opts);
    ASSERT_TRUE(loader);
    auto db = new_fonts(*loader, log.log, false);
    ASSERT_TRUE(db);
    std::string sheet;
    for (auto const& [file, descriptors] :
         {std::pair{"DejaVuSerif.ttf", ""}, std::pair{"DejaVuSerif-Bold.ttf", "font-weight: bold;"},
          std::pair{"DejaVuSerif-Italic.ttf", "font-style: italic;"},
          std::pair{"DejaVuSerif-BoldItalic.ttf", "font-style: italic; font-weight: bold;"}}) {
        sheet += "@font-face { font-family: \"Q\"; src: url(\"" + font_test::dejavu + file + "\"); " +
                 descriptors + " }\n";
    }
    add_font_face_sheet(*db, sheet, "test.css", [](std::string const& text, std::string const&) {
        return resource::locator::parse_locator(resource::locator::path_or_url::path_or_url,
                                                resource::locator::locator_origin::command_line_origin,
                                                std::nullopt, text);
    });
    auto file_for = [&](css::fonts::font_props const& props) {
        auto const g = char_to_glyph(*db, *get_font_req(*db, query_of(props)), U'a');
        auto const& loc = g.raw_glyph_font_ref->used_font_data->font_location;
        return loc.substr(loc.find_last_of('/') + 1);
    };
    css::fonts::font_props props{.font_props_font_family = {"Q"}};
    EXPECT_EQ(file_for(props), "DejaVuSerif.ttf");
    props.font_props_font_weight = 600; // nearer bold than 500
    EXPECT_EQ(file_for(props), "DejaVuSerif-Bold.ttf");
    props.font_props_font_style = css::fonts::font_style::oblique; // oblique takes italic faces
    EXPECT_EQ(file_for(props), "DejaVuSerif-BoldItalic.ttf");
    props.font_props_font_weight = 300;
    EXPECT_EQ(file_for(props), "DejaVuSerif-Italic.ttf");
}

} // namespace
} // namespace vellum::fonts::query

namespace vellum::fonts::query {
namespace {

using namespace css::fonts;

std::vector<std::string> tags_of(std::vector<feature> const& fs) {
    std::vector<std::string> out;
    for (auto const& f : fs) {
        out.push_back(f.feature_tag + (f.feature_param ? "=" + std::to_string(*f.feature_param) : ""));
    }
    return out;
}

TEST(query_features, properties_become_opentype_features) {
    EXPECT_TRUE(features_of(font_features{}, false).empty());
    font_features f;
    f.features_ligatures = {.ligatures_common = feature_toggle::off,
                            .ligatures_discretionary = feature_toggle::on,
                            .ligatures_contextual = feature_toggle::off};
    f.features_caps = font_variant_caps::all_small_caps;
    f.features_numeric = {.numeric_figure_style = numeric_figure::oldstyle,
                          .numeric_spacing_style = numeric_spacing::tabular,
                          .numeric_fraction_style = numeric_fraction::diagonal,
                          .numeric_ordinal = true,
                          .numeric_slashed_zero = true};
    f.features_position = font_variant_position::super;
    f.features_east_asian = {.east_asian_forms = east_asian_variant::jis78,
                             .east_asian_widths = east_asian_width::proportional_width,
                             .east_asian_ruby = true};
    f.features_kerning = font_kerning::none;
    EXPECT_EQ(tags_of(features_of(f, false)),
              (std::vector<std::string>{"liga=0", "clig=0", "dlig", "calt=0", "c2sc", "onum", "tnum", "frac", "ordn",
                                        "zero", "sups", "jp78", "pwid", "ruby", "kern=0"}));
}

TEST(query_features, settings_come_last_and_replace) {
    font_features f;
    f.features_numeric.numeric_figure_style = numeric_figure::lining;
    f.features_settings = {{.setting_tag = "lnum", .setting_value = 0}, {.setting_tag = "salt", .setting_value = 2}};
    EXPECT_EQ(tags_of(features_of(f, false)), (std::vector<std::string>{"lnum=0", "salt=2"}));
}

TEST(query_features, letter_spacing_drops_optional_ligatures_unless_asked) {
    font_features f;
    EXPECT_EQ(tags_of(features_of(f, true)), (std::vector<std::string>{"liga=0", "clig=0", "dlig=0", "hlig=0"}));
    f.features_settings = {{.setting_tag = "liga", .setting_value = 1}};
    EXPECT_EQ(tags_of(features_of(f, true)), (std::vector<std::string>{"clig=0", "dlig=0", "hlig=0", "liga"}));
}

TEST(query_features, query_carries_language_and_kerning) {
    font_props props;
    props.font_props_features.features_settings = {{.setting_tag = "kern", .setting_value = 0}};
    auto const q = query_of(props, "SR-Latn", false);
    EXPECT_EQ(q.query_language, "sr-latn");
    EXPECT_FALSE(q.query_kerning);
    EXPECT_TRUE(query_of(font_props{}).query_kerning);
}

} // namespace
} // namespace vellum::fonts::query
