// The content-stream layer: operator text, number formats, and the state tracker that keeps repeated
// settings out of the stream.
#include "memory_sink.hpp"
#include "pdf/content.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace {

using namespace vellum;
using namespace vellum::pdf;
namespace c = vellum::pdf::content;

struct stream {
    pdf::testing::memory_sink sink;
    c::gs g;
    bulkio::output::output o = pdf::testing::output_of(sink);
    std::string const& text() const { return sink.sink_bytes; }
};

TEST(content_numbers, four_decimals_and_tiny_values_under_higher_precision) {
    EXPECT_EQ(c::format_number(1.5), "1.5000");
    EXPECT_EQ(c::format_number(-0.00001), "0.0000");
    EXPECT_EQ(c::format_number(0.0), "0.0000");
    EXPECT_EQ(c::format_number(0.000123, c::precision::higher_precision), "0.000123");
    EXPECT_EQ(c::format_number(-0.005, c::precision::higher_precision), "-0.005");
    EXPECT_EQ(c::format_number(0.5, c::precision::higher_precision), "0.5000");
    EXPECT_EQ(c::format_number(pdf::number{std::int64_t{12}}), "12");
    EXPECT_EQ(c::format_number(pdf::number{2.25}), "2.2500");
}

// The fast formatting of ordinary values gives what printf's "%.4f" gives, halfway cases and large
// values included; only "-0.0000" differs, by design.
TEST(content_numbers, ordinary_values_match_printf) {
    auto printf_of = [](double v) {
        char buf[512];
        std::snprintf(buf, sizeof buf, "%.4f", v);
        std::string out = buf;
        return out == "-0.0000" ? std::string("0.0000") : out;
    };
    std::vector<double> values = {0.00005,  0.00015, -0.00005, 1.00005,  2.67885, 595.27559, -841.88976,
                                  1e-300,   0.99995, 9.99995,  123456789.12345, 1e11 + 0.00005, 1e13 + 0.5,
                                  -1e20,    4.5e15,  0.1,      0.7,      -0.3};
    std::uint64_t seed = 0x9e3779b97f4a7c15ull;
    for (int k = 0; k < 20000; ++k) {
        seed = seed * 6364136223846793005ull + 1442695040888963407ull;
        double const unit = static_cast<double>(seed >> 11) / static_cast<double>(1ull << 53);
        // Values as the painter writes them: page coordinates, colour components, scaled font units,
        // and quarter, half and three-quarter steps of a ten-thousandth.
        values.push_back((unit - 0.5) * 2000);
        values.push_back(unit);
        values.push_back(std::round((unit - 0.5) * 4e7) / 4e4 / 10);
    }
    for (double v : values) {
        ASSERT_EQ(c::format_number(v), printf_of(v)) << v;
    }
}

TEST(content_state, repeated_settings_write_nothing) {
    stream s;
    c::fill_color(s.o, s.g, color::rgb{1, 0, 0});
    c::fill_color(s.o, s.g, color::rgb{1, 0, 0});
    c::line_width(s.o, s.g, 1);  // the initial width
    c::line_width(s.o, s.g, 2);
    c::line_width(s.o, s.g, 2);
    c::fill_color(s.o, s.g, color::gray{std::int64_t{0}});
    c::stroke_color(s.o, s.g, color::cmyk{0, 0, 0, 1});
    EXPECT_EQ(s.text(), "1.0000 0.0000 0.0000 rg\n2.0000 w\n0 g\n0.0000 0.0000 0.0000 1.0000 K\n");
}

TEST(content_state, restore_brings_back_the_saved_state_and_underflow_is_a_fault) {
    stream s;
    c::fill_color(s.o, s.g, color::rgb{0, 0, 1});
    c::save(s.o, s.g);
    c::fill_color(s.o, s.g, color::rgb{1, 0, 0});
    c::restore(s.o, s.g);
    // Blue is in force again after Q, so asking for blue writes nothing and red is written anew.
    c::fill_color(s.o, s.g, color::rgb{0, 0, 1});
    c::fill_color(s.o, s.g, color::rgb{1, 0, 0});
    EXPECT_EQ(s.text(), "0.0000 0.0000 1.0000 rg\nq\n1.0000 0.0000 0.0000 rg\nQ\n1.0000 0.0000 0.0000 rg\n");
    EXPECT_THROW(c::restore(s.o, s.g), c::graphics_state_stack_underflow);
}

TEST(content_state, fonts_and_spacing_are_tracked_and_recorded) {
    stream s;
    c::begin_text(s.o);
    c::font(s.o, s.g, 3, 12);
    c::font(s.o, s.g, 3, 12);
    c::font(s.o, s.g, 3, 9.6);
    c::character_spacing(s.o, s.g, 0);
    c::word_spacing(s.o, s.g, 1.25);
    c::position(s.o, s.g, 72, 700.5);
    c::show_literal(s.o, "a(b)\\c");
    c::show_hex(s.o, std::string("\x00\x2a\x01\xff", 4));
    c::end_text(s.o);
    EXPECT_EQ(s.text(), "BT\n/F3 12.0000 Tf\n/F3 9.6000 Tf\n1.2500 Tw\n72.0000 700.5000 Td\n"
                        "(a\\(b\\)\\\\c) Tj\n<002A01FF> Tj\nET\n");
    EXPECT_EQ(s.g.used.font_resources, std::set<int>{3});
}

TEST(content_state, patterns_and_separations_select_their_space_once) {
    stream s;
    c::fill_color(s.o, s.g, color::separation{"Gold", 0.5});
    c::fill_color(s.o, s.g, color::separation{"Gold", 1});
    c::stroke_color(s.o, s.g, color::pattern{"P1"});
    c::stroke_color(s.o, s.g, color::pattern{"P2"});
    EXPECT_EQ(s.text(), "/Gold cs\n0.5000 scn\n1.0000 scn\n/Pattern CS\n/P1 SCN\n/P2 SCN\n");
    EXPECT_EQ(s.g.used.color_resources, std::set<std::string>{"Gold"});
    EXPECT_EQ(s.g.used.pattern_resources, (std::set<std::string>{"P1", "P2"}));
}

TEST(content_state, opacity_goes_through_named_dictionaries_shared_by_the_document) {
    stream s;
    c::opacity(s.o, s.g, 0.5, 1);
    c::opacity(s.o, s.g, 0.5, 1);
    c::save(s.o, s.g);
    c::opacity(s.o, s.g, 1, 1);
    c::restore(s.o, s.g);
    c::new_page(s.g);
    c::opacity(s.o, s.g, 0.5, 1);
    EXPECT_EQ(s.text(), "/GS1 gs\nq\n/GS2 gs\nQ\n/GS1 gs\n");
    ASSERT_EQ(s.g.used.ext_gs_list.resources_on_this_page.size(), 1u);
    EXPECT_EQ(s.g.used.ext_gs_list.resources_on_this_page[0].first, "GS1");
}

TEST(content_state, stripped_transparency_writes_nothing_and_says_so) {
    stream s;
    s.g.strip_transparency = true;
    c::opacity(s.o, s.g, 1, 1);
    EXPECT_FALSE(s.g.used.stripped_transparency);
    c::opacity(s.o, s.g, 0.3, 1);
    EXPECT_TRUE(s.g.used.stripped_transparency);
    EXPECT_EQ(s.text(), "");
}

TEST(content_paths, dashes_caps_and_path_operators) {
    stream s;
    c::dash(s.o, s.g, {{3, 2}, std::int64_t{0}});
    c::dash(s.o, s.g, {{3, 2}, std::int64_t{0}});
    c::line_cap(s.o, s.g, c::stroke_linecap::round);
    c::line_join(s.o, s.g, c::stroke_linejoin::bevel);
    c::move(s.o, s.g, 0, 0);
    c::curve(s.o, s.g, 1, 2, 3, 4, 5, 6);
    c::rect(s.o, s.g, 10, 20, 30, 40);
    c::clip_even_odd(s.o);
    c::end_path(s.o);
    c::concat(s.o, s.g, matrix::matrix{.a = 2, .d = 2});
    c::xobject(s.o, s.g, "Im1");
    EXPECT_EQ(s.text(), "[3.0000 2.0000] 0 d\n1 J\n2 j\n0.0000 0.0000 m\n"
                        "1.0000 2.0000 3.0000 4.0000 5.0000 6.0000 c\n10.0000 20.0000 30.0000 40.0000 re\n"
                        "W*\nn\n2.0000 0.0000 0.0000 2.0000 0.0000 0.0000 cm\n/Im1 Do\n");
    EXPECT_EQ(s.g.used.xobject_resources, std::set<std::string>{"Im1"});
}

} // namespace
