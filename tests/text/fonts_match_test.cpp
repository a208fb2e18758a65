#include "text/fonts/fallback.hpp"
#include "text/fonts/match.hpp"

#include <gtest/gtest.h>

#include <vector>

namespace vellum::fonts {
namespace {

using namespace match;
using truetype::truetype_weight;
using truetype::truetype_width;

font_desc0 face(font_style s, truetype_weight w, truetype_width wd = truetype_width::normal,
                font_variant v = font_variant::normal) {
    return {.font_desc_style = s, .font_desc_weight = w, .font_desc_width = wd, .font_desc_variant = v};
}

TEST(fonts_match, picks_the_best_face_of_a_family) {
    std::vector<font_desc0> const family = {
        face(font_style::normal, truetype_weight::normal),
        face(font_style::normal, truetype_weight::weight_500),
        face(font_style::normal, truetype_weight::bold),
        face(font_style::italic, truetype_weight::normal),
        face(font_style::normal, truetype_weight::normal, truetype_width::condensed),
        face(font_style::normal, truetype_weight::normal, truetype_width::normal, font_variant::small_caps),
    };
    struct row {
        char const* name;
        request r;
        std::size_t expected;
    } const rows[] = {
        {"plain", {}, 0},
        {"bold", {.request_weight = truetype_weight::bold}, 2},
        // 600 counts as 650: nearer to 700 than to 500.
        {"demi-bold goes to bold", {.request_weight = truetype_weight::weight_600}, 2},
        {"italic", {.request_style = font_style::italic}, 3},
        {"oblique takes italic", {.request_style = font_style::oblique}, 3},
        {"semi-condensed lies as near normal as condensed; the first face wins",
         {.request_width = truetype_width::semi_condensed}, 0},
        {"extra-condensed", {.request_width = truetype_width::extra_condensed}, 4},
        {"small caps", {.request_variant = font_variant::small_caps}, 5},
        {"opentype features never count against", {.request_variant = font_variant::vellum_opentype}, 0},
    };
    for (auto const& r : rows) {
        SCOPED_TRACE(r.name);
        EXPECT_EQ(best_match(r.r, family), r.expected);
    }
    EXPECT_EQ(best_match({}, std::span<font_desc0 const>{}), std::nullopt);
}

TEST(fonts_match, a_wrong_style_outweighs_any_width_or_weight) {
    std::vector<font_desc0> const family = {
        face(font_style::normal, truetype_weight::weight_900, truetype_width::ultra_expanded),
        face(font_style::italic, truetype_weight::weight_100, truetype_width::ultra_condensed),
    };
    EXPECT_EQ(best_match({.request_style = font_style::italic}, family), 1u);
    EXPECT_EQ(best_match({}, family), 0u);
    // A family with only upright faces still answers an italic request.
    std::vector<font_desc0> const upright = {face(font_style::normal, truetype_weight::normal)};
    EXPECT_EQ(best_match({.request_style = font_style::italic}, upright), 0u);
    // Width is weighed before weight.
    EXPECT_EQ(font_desc_quality({.request_weight = truetype_weight::bold},
                                face(font_style::normal, truetype_weight::normal, truetype_width::condensed)),
              (quality{0, 200, 300, 0}));
    // Ties go to the first face.
    std::vector<font_desc0> const tie = {face(font_style::normal, truetype_weight::weight_300),
                                         face(font_style::normal, truetype_weight::weight_500)};
    EXPECT_EQ(best_match({}, tie), 0u);
}

TEST(fonts_match, fontconfig_numbers_become_classes) {
    struct row {
        int fc;
        truetype_weight expected;
    } const weights[] = {
        {0, truetype_weight::weight_100},   {1, truetype_weight::weight_200},   {40, truetype_weight::weight_200},
        {41, truetype_weight::weight_300},  {50, truetype_weight::weight_300},  {80, truetype_weight::normal},
        {99, truetype_weight::weight_300},  {100, truetype_weight::weight_500}, {101, truetype_weight::bold},
        {180, truetype_weight::weight_600}, {199, truetype_weight::bold},       {200, truetype_weight::bold},
        {205, truetype_weight::weight_800}, {210, truetype_weight::weight_900}, {215, truetype_weight::weight_800},
    };
    for (auto const& r : weights) {
        SCOPED_TRACE(r.fc);
        EXPECT_EQ(weight_from_fontconfig(r.fc), r.expected);
    }
    struct wrow {
        int fc;
        truetype_width expected;
    } const widths[] = {
        {50, truetype_width::ultra_condensed}, {51, truetype_width::extra_condensed},
        {63, truetype_width::extra_condensed}, {64, truetype_width::condensed},
        {87, truetype_width::semi_condensed},  {99, truetype_width::condensed},
        {100, truetype_width::normal},         {101, truetype_width::expanded},
        {113, truetype_width::semi_expanded},  {125, truetype_width::expanded},
        {126, truetype_width::extra_expanded}, {200, truetype_width::ultra_expanded},
        {201, truetype_width::extra_expanded},
    };
    for (auto const& r : widths) {
        SCOPED_TRACE(r.fc);
        EXPECT_EQ(width_from_fontconfig(r.fc), r.expected);
    }
}

TEST(fonts_fallback, substitutes_look_alikes_and_says_so) {
    struct row {
        char32_t c;
        char32_t expected;
        bool known;
        char const* message;
    } const rows[] = {
        {0x80, 0x20AC, true, "no glyphs for character U+0080, fallback to U+20AC"},
        {0x96, 0x2013, true, "no glyphs for character U+0096, fallback to U+2013"},
        {0x81, U'?', false, "no glyphs for character U+0081, fallback to '?'"},
        {0x2011, U'-', true, "no glyphs for character U+2011, fallback to '-'"},
        {0x2212, U'-', true, "no glyphs for character U+2212, fallback to '-'"},
        {0x2014, U'?', false, "no glyphs for character U+2014, fallback to '?'"},
        {0x223C, U'~', true, "no glyphs for character U+223C, fallback to '~'"},
        {0x25C6, 0x2666, true, "no glyphs for character U+25C6, fallback to U+2666"},
        {0x2102, U'C', true, "no glyphs for character U+2102, fallback to 'C'"},
        {0x2113, U'l', true, "no glyphs for character U+2113, fallback to 'l'"},
        {0x212B, 0xC5, true, "no glyphs for character U+212B, fallback to U+00C5"},
        {0x2043, 0xB7, true, "no glyphs for character U+2043, fallback to U+00B7"},
        {0x1F600, U'?', false, "no glyphs for character U+1F600, fallback to '?'"},
    };
    for (auto const& r : rows) {
        SCOPED_TRACE(r.message);
        auto const f = fallback::choose_fallback(r.c);
        EXPECT_EQ(f.fallback_char, r.expected);
        EXPECT_EQ(f.fallback_known, r.known);
        EXPECT_EQ(f.fallback_message, r.message);
    }
}

} // namespace
} // namespace vellum::fonts
