#include "text/opentype/math.hpp"
#include "text/opentype/tables.hpp"

#include <fstream>
#include <iterator>

#include <gtest/gtest.h>

namespace vellum::opentype::math {
namespace {

// The MATH table of DejaVu Math TeX Gyre (fonts-dejavu-extra); the expected values were read from the
// same file with fontTools.
struct dejavu_math {
    std::vector<std::uint8_t> file;
    std::optional<math_table> table;

    dejavu_math() {
        std::ifstream in("/usr/share/fonts/truetype/dejavu/DejaVuMathTeXGyre.ttf", std::ios::binary);
        file.assign(std::istreambuf_iterator<char>(in), {});
        if (file.empty()) {
            return;
        }
        auto const dir = tables::parse_directory(file);
        if (!dir) {
            return;
        }
        auto const bytes = tables::find_table(*dir, file, reader::make_tag("MATH"));
        if (!bytes) {
            return;
        }
        if (auto t = parse_math(*bytes)) {
            table = std::move(*t);
        }
    }
};

TEST(math_table, dejavu_math_constants) {
    dejavu_math const f;
    if (f.file.empty()) {
        GTEST_SKIP() << "DejaVu Math TeX Gyre is not installed";
    }
    ASSERT_TRUE(f.table);
    auto const& t = *f.table;
    EXPECT_EQ(value_of(t, constant::script_percent_scale_down), 80);
    EXPECT_EQ(value_of(t, constant::display_operator_min_height), 1333);
    EXPECT_EQ(value_of(t, constant::axis_height), 275);
    EXPECT_EQ(value_of(t, constant::subscript_shift_down), 277);
    EXPECT_EQ(value_of(t, constant::fraction_numerator_display_style_shift_up), 635);
    EXPECT_EQ(value_of(t, constant::fraction_rule_thickness), 64);
    EXPECT_EQ(value_of(t, constant::radical_kern_after_degree), -526);
    // The last constant, a plain percentage after the value records.
    EXPECT_EQ(value_of(t, constant::radical_degree_bottom_raise_percent), 55);
    EXPECT_EQ(t.min_connector_overlap, 40);
}

TEST(math_table, dejavu_math_parenthesis_construction) {
    dejavu_math const f;
    if (f.file.empty()) {
        GTEST_SKIP() << "DejaVu Math TeX Gyre is not installed";
    }
    ASSERT_TRUE(f.table);
    // parenleft is glyph 11: seven sizes, then a top hook, a stem that repeats, a bottom hook.
    auto const it = f.table->vertical_constructions.find(11);
    ASSERT_NE(it, f.table->vertical_constructions.end());
    auto const& c = it->second;
    ASSERT_EQ(c.construction_variants.size(), 7u);
    EXPECT_EQ(c.construction_variants[0], (variant{11, 903}));
    EXPECT_EQ(c.construction_variants[1], (variant{3473, 1073}));
    EXPECT_EQ(c.construction_variants[6], (variant{3583, 2591}));
    ASSERT_EQ(c.construction_parts.size(), 3u);
    EXPECT_EQ(c.construction_parts[0], (part{3587, 0, 209, 1295, false}));
    EXPECT_EQ(c.construction_parts[1], (part{3588, 418, 418, 418, true}));
    EXPECT_EQ(c.construction_parts[2], (part{3589, 209, 0, 1295, false}));
    EXPECT_FALSE(f.table->horizontal_constructions.empty());
}

TEST(math_table, truncated_tables_fail) {
    std::vector<std::uint8_t> const header{0, 1, 0, 0, 0, 10, 0, 0, 0, 0};
    EXPECT_FALSE(parse_math(header));
    EXPECT_FALSE(parse_math(std::vector<std::uint8_t>{0, 2, 0, 0}));
    EXPECT_FALSE(parse_math({}));
}

} // namespace
} // namespace vellum::opentype::math
