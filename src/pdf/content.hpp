// The operators of a content stream, written through a tracker of the graphics state so that a colour,
// width, font or spacing that is already in force is not written again. "q" and "Q" save and restore the
// tracked state with the real one.
#pragma once

#include "pdf/bulkio/output.hpp"
#include "pdf/color.hpp"
#include "pdf/object.hpp"
#include "pdf/resources.hpp"
#include "util/matrix.hpp"

#include <compare>
#include <set>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace vellum::pdf::content {

enum class stroke_linecap { butt, round, square };
enum class stroke_linejoin { miter, round, bevel };

/// A dash pattern: the on and off lengths, and where in the pattern the line starts.
struct stroke_dash {
    std::vector<double> array;
    number phase = std::int64_t{0};
    bool operator==(stroke_dash const&) const = default;
};

/// The part of the graphics state that the tracker knows.
struct gs0 {
    color::color color_fill = color::gray{};
    color::color color_stroke = color::gray{};
    double alpha_fill = 1;
    double alpha_stroke = 1;
    bool overprint = false;
    int overprint_mode = 0;
    double stroke_width = 1;
    content::stroke_linecap stroke_linecap = stroke_linecap::butt;
    content::stroke_linejoin stroke_linejoin = stroke_linejoin::miter;
    double stroke_miterlimit = 10;
    content::stroke_dash stroke_dash{};
    double text_character_spacing = 0;
    double text_word_spacing = 0;
    /// The id of the selected font; none at the start of a stream.
    int text_font = -1;
    double text_font_size = 0;
    bool operator==(gs0 const&) const = default;
};

struct alpha_fill {
    double value = 1;
    auto operator<=>(alpha_fill const&) const = default;
};
struct alpha_stroke {
    double value = 1;
    auto operator<=>(alpha_stroke const&) const = default;
};
struct overprint {
    bool value = false;
    auto operator<=>(overprint const&) const = default;
};
struct overprint_mode {
    int value = 0;
    auto operator<=>(overprint_mode const&) const = default;
};

/// One entry of a graphics-state dictionary.
using ext_gs_param = std::variant<alpha_fill, alpha_stroke, overprint, overprint_mode>;

/// What a page's content refers to, for its resource dictionary.
struct used_resources {
    std::set<int> font_resources;
    std::set<std::string> xobject_resources;
    std::set<std::string> color_resources;
    std::set<std::string> pattern_resources;
    /// Graphics-state dictionaries, named for the whole document.
    resources::resources<std::vector<ext_gs_param>> ext_gs_list{.resources_prefix = "GS"};
    /// Something was left out because the page must not use transparency.
    bool stripped_transparency = false;
};

enum class precision { default_precision, higher_precision };

/// The tracker: the state in force, the states saved by "q", and what the page used.
struct gs {
    gs0 current{};
    std::vector<gs0> saved{};
    used_resources used{};
    bool strip_transparency = false;
    /// RGB colours are written as CMYK, for a profile that allows no device RGB.
    bool rgb_as_cmyk = false;
    content::precision number_precision = precision::default_precision;
};

/// "Q" with no "q" before it.
struct graphics_state_stack_underflow : internal_error {
    graphics_state_stack_underflow() : internal_error("graphics_state_stack_underflow") {}
};

/// A text matrix.
struct tm {
    number a = std::int64_t{1}, b = std::int64_t{0}, c = std::int64_t{0}, d = std::int64_t{1};
    number e = std::int64_t{0}, f = std::int64_t{0};
};

enum class text_render_mode { fill, stroke, fill_and_stroke, clip };

using out = bulkio::output::output;

/// The text of a number as content streams have it: four decimals, or more for tiny values under higher
/// precision; whole numbers of integer kind stay whole.
std::string format_number(double value, precision p = precision::default_precision);
std::string format_number(number const& value, precision p = precision::default_precision);

void save(out const& o, gs& g);
void restore(out const& o, gs& g);
void concat(out const& o, gs& g, matrix::matrix const& m);

void move(out const& o, gs& g, double x, double y);
void line(out const& o, gs& g, double x, double y);
void curve(out const& o, gs& g, double x1, double y1, double x2, double y2, double x3, double y3);
void rect(out const& o, gs& g, double x, double y, double w, double h);
void close(out const& o);

void fill(out const& o);
void fill_even_odd(out const& o);
void stroke(out const& o);
void fill_and_stroke(out const& o);
void fill_and_stroke_even_odd(out const& o);
/// The clip operators; the caller ends the path with `end_path`.
void clip(out const& o);
void clip_even_odd(out const& o);
void end_path(out const& o);

void begin_text(out const& o);
void end_text(out const& o);
/// Selects a font by id at a size, unless both are in force.
void font(out const& o, gs& g, int font_id, double size);
void position(out const& o, gs& g, double x, double y);
void text_matrix(out const& o, gs& g, tm const& m);
void character_spacing(out const& o, gs& g, double spacing);
void word_spacing(out const& o, gs& g, double spacing);
void render_mode(out const& o, text_render_mode mode);
/// Shows bytes as a literal string, escaped as needed.
void show_literal(out const& o, std::string_view bytes);
/// Shows bytes as a hexadecimal string, for two-byte glyph numbers.
void show_hex(out const& o, std::string_view bytes);

void xobject(out const& o, gs& g, std::string const& name);
void begin_marked(out const& o, std::string_view tag);
/// Marked content with a property list written inline, such as "<</MCID 0>>".
void begin_marked_properties(out const& o, std::string_view tag, std::string_view properties);
void end_marked(out const& o);

void stroke_color(out const& o, gs& g, color::color const& c);
void fill_color(out const& o, gs& g, color::color const& c);
void line_width(out const& o, gs& g, double width);
void line_cap(out const& o, gs& g, stroke_linecap cap);
void line_join(out const& o, gs& g, stroke_linejoin join);
void miter_limit(out const& o, gs& g, double limit);
void dash(out const& o, gs& g, stroke_dash const& d);
/// Fill and stroke opacity through a graphics-state dictionary; below 1 is dropped (and noted) when the
/// page must not use transparency.
void opacity(out const& o, gs& g, double fill_alpha, double stroke_alpha);
/// The overprint flag and mode through a graphics-state dictionary.
void overprint_setting(out const& o, gs& g, bool on, int mode);

/// Starts a new page: the state returns to its initial value, graphics-state names stay for the document,
/// the page's sets empty.
void new_page(gs& g);

} // namespace vellum::pdf::content
