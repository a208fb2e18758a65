#include "document/doctype.hpp"
#include "document/libxml/parser.hpp"
#include "mathml/layout.hpp"
#include "mathml/make_math.hpp"
#include "resource/capture_log.hpp"
#include "resource/loader.hpp"
#include "text/fonts/fonts.hpp"

#include <gtest/gtest.h>

namespace vellum::mathml::layout {
namespace {

namespace om = opentype::math;

// A formula in DejaVu Math TeX Gyre at 10pt, laid out from MathML markup.
struct formula {
    testing::capture_log log;
    std::optional<fonts::fonts> db;
    std::optional<math> m;

    static resource::loader::loader loader(log::log const& log) {
        resource::loader::loader_options opts;
        opts.network = false;
        // The build tree holds the data files under math/, as an installed prefix does.
        return *resource::loader::new_loader(log, {VELLUM_BINARY_DIR}, {"/tmp"}, opts);
    }

    static dom::element_ref parse(log::log const& log, std::string const& text) {
        auto const url = resource::locator::parse_locator(
            resource::locator::path_or_url::path_or_url,
            resource::locator::locator_origin::command_line_origin, std::nullopt, "/tmp/formula.xml");
        libxml::parser::parse_request req{.request_locator = url};
        req.request_options.load_dtd = xml::load_dtd::no;
        auto doc = libxml::parser::read_xml_memory(log, req, bytes::from_string(text));
        EXPECT_TRUE(doc);
        auto d = dom::new_dom_document(doctype::doctype::xml, doctype::sniff_xmltype(*doc), {}, url, *doc);
        return *dom::document_element(*d);
    }

    static ref<css::style::style> style() {
        css::style::style s;
        s.font_size = 10;
        css::fonts::font_props p;
        p.font_props_font_family = {"DejaVu Math TeX Gyre"};
        s.font_props = share(p);
        return share(s);
    }

    explicit formula(std::string const& body, bool display = false) {
        db = *fonts::new_fonts(loader(log.log), log.log, true);
        auto const root =
            parse(log.log, "<math xmlns=\"http://www.w3.org/1998/Math/MathML\">" + body + "</math>");
        context const ctx{.log = log.log,
                          .db = *db,
                          .ops = op_table::load_operators(log.log, db->fonts_loader),
                          .glyphs = special_glyphs::load_glyphs(log.log, db->fonts_loader)};
        auto st = mathml::mathstyle::initial(style());
        st.displaystyle = display;
        m = math_of_row(ctx, st, std::nullopt, element_children(root));
    }

    // The members of the outer box, and those of a member.
    std::vector<placed> const& members() const { return std::get<groups>(m->mcontent).groups_members; }

    // What the drawing shows: text runs with their positions and sizes, and shapes, flattened.
    struct shown {
        std::u32string text;
        double x = 0;
        double y = 0;
        double size = 0;
    };

    static void walk(std::vector<svg::svg> const& items,
                     svg::transform t,
                     std::vector<shown>& runs,
                     std::vector<svg::bbox>& shapes) {
        for (auto const& n : items) {
            auto const here = svg::then(n.svg_transform, t);
            if (auto const* c = std::get_if<svg::compound>(&n.svgbody)) {
                walk(c->compound_children, here, runs, shapes);
            } else if (auto const* tx = std::get_if<svg::text>(&n.svgbody)) {
                for (auto const& r : tx->text_runs) {
                    std::u32string chars;
                    for (auto const& g : r.run_glyphs) {
                        chars += g.base_glyph.glyph_unicodes;
                    }
                    auto const p = svg::apply(here, r.run_pos);
                    runs.push_back({chars, p.x, p.y, r.run_font_size * here.d});
                }
            } else if (auto const* s = std::get_if<svg::shape>(&n.svgbody)) {
                if (auto b = svg::path_bbox(s->shape_commands)) {
                    auto const a = svg::apply(here, {b->x0, b->y0});
                    auto const z = svg::apply(here, {b->x1, b->y1});
                    shapes.push_back({a.x, std::min(a.y, z.y), z.x, std::max(a.y, z.y)});
                }
            }
        }
    }

    std::vector<shown> runs() const {
        std::vector<shown> r;
        std::vector<svg::bbox> s;
        walk(flatten(*m, 0, 0), {}, r, s);
        return r;
    }

    std::vector<svg::bbox> shapes() const {
        std::vector<shown> r;
        std::vector<svg::bbox> s;
        walk(flatten(*m, 0, 0), {}, r, s);
        return s;
    }

    std::optional<shown> run_of(std::u32string const& text) const {
        for (auto const& r : runs()) {
            if (r.text == text) {
                return r;
            }
        }
        return std::nullopt;
    }
};

constexpr double axis_10pt = 2.75; // AxisHeight 275 of 1000 units

TEST(layout, fraction_parts_around_the_rule_on_the_axis) {
    formula const f("<mfrac><mi>a</mi><mn>2</mn></mfrac>");
    auto const shapes = f.shapes();
    ASSERT_EQ(shapes.size(), 1u);
    auto const& rule = shapes[0];
    // The rule, 0.64pt thick, is centred on the axis (y grows downward).
    EXPECT_NEAR(rule.y1 - rule.y0, 0.64, 1e-6);
    EXPECT_NEAR((rule.y0 + rule.y1) / 2, -axis_10pt, 1e-6);
    auto const a = f.run_of(U"a");
    auto const two = f.run_of(U"2");
    ASSERT_TRUE(a && two);
    // Text style: the parts are one script level down (0.71 of 10pt, held at the 8pt minimum), above
    // and below the rule, centred over it.
    EXPECT_NEAR(a->size, 8, 1e-6);
    EXPECT_LT(a->y, rule.y0);
    EXPECT_GT(two->y, rule.y1);
    EXPECT_LT(rule.x0, std::min(a->x, two->x));
    EXPECT_GE(f.m->mup, -rule.y0);
}

TEST(layout, display_fraction_keeps_the_size_and_opens_up) {
    formula const text("<mfrac><mi>a</mi><mi>b</mi></mfrac>");
    formula const display("<mfrac><mi>a</mi><mi>b</mi></mfrac>", true);
    EXPECT_NEAR(display.run_of(U"a")->size, 10, 1e-6);
    EXPECT_GT(display.m->mup, text.m->mup);
    EXPECT_GT(display.m->mdown, text.m->mdown);
}

TEST(layout, wrong_child_counts_are_reported_and_blank) {
    formula const f("<mfrac><mi>a</mi><mi>b</mi><mi>c</mi></mfrac><msub><mi>x</mi></msub>"
                    "<mroot><mi>x</mi></mroot><mmultiscripts/>");
    EXPECT_EQ(f.log.count("3 children in mfrac"), 1);
    EXPECT_EQ(f.log.count("1 children in msub"), 1);
    EXPECT_EQ(f.log.count("1 children in mroot"), 1);
    EXPECT_EQ(f.log.count("empty mmultiscripts"), 1);
    EXPECT_TRUE(f.runs().empty());
    EXPECT_DOUBLE_EQ(f.m->mwidth, 0);
}

TEST(layout, scripts_shift_and_shrink) {
    formula const f("<msubsup><mi>x</mi><mi>i</mi><mn>2</mn></msubsup>");
    auto const x = f.run_of(U"x");
    auto const i = f.run_of(U"i");
    auto const two = f.run_of(U"2");
    ASSERT_TRUE(x && i && two);
    EXPECT_NEAR(i->size, 8, 1e-6);
    EXPECT_GT(i->y, x->y + 1.5);    // subscript lowered
    EXPECT_LT(two->y, x->y - 3);    // superscript raised
    EXPECT_NEAR(i->x, two->x, 0.6); // both after the base (the superscript past the slant)
    EXPECT_GT(i->x, x->x);
}

TEST(layout, nested_scripts_stop_at_the_minimum_size) {
    formula const f("<msup><mi>a</mi><msup><mi>b</mi><msup><mi>c</mi><mi>d</mi></msup></msup></msup>");
    // 10pt * 0.71 is already below the 8pt minimum, where every deeper level stays.
    EXPECT_NEAR(f.run_of(U"b")->size, 8, 1e-6);
    EXPECT_NEAR(f.run_of(U"d")->size, 8, 1e-6);
    formula const big("<mstyle mathsize=\"20pt\"><msup><mi>a</mi><msup><mi>b</mi><msup><mi>c</mi><mi>d</mi>"
                      "</msup></msup></msup></mstyle>");
    EXPECT_NEAR(big.run_of(U"b")->size, 14.2, 1e-6);
    EXPECT_NEAR(big.run_of(U"c")->size, 10.082, 1e-6);
    EXPECT_NEAR(big.run_of(U"d")->size, 8, 1e-6);
}

TEST(layout, minus_is_the_minus_sign_and_single_letters_are_italic) {
    formula const f("<mi>x</mi><mo>-</mo><mi>sin</mi>");
    auto const minus = f.run_of(U"\u2212");
    ASSERT_TRUE(minus);
    // The letter is drawn from the mathematical italic alphabet but copies out as the plain letter.
    auto const x = f.run_of(U"x");
    ASSERT_TRUE(x);
    EXPECT_TRUE(f.run_of(U"sin"));
    // Operator spacing: the minus stands in medium spaces (4/18 em) on both sides.
    EXPECT_GT(minus->x - x->x, 4 / 1.8);
}

TEST(layout, stretched_parentheses_around_a_tall_fraction) {
    formula const f("<mo>(</mo><mfrac><mrow><mi>a</mi><mo>+</mo><mi>b</mi></mrow><mfrac><mi>c</mi><mi>d</mi>"
                    "</mfrac></mfrac><mo>)</mo>",
                    true);
    auto const& members = f.members();
    ASSERT_EQ(members.size(), 3u);
    auto const& open = *members[0].placed_math;
    auto const& frac = *members[1].placed_math;
    auto const& close = *members[2].placed_math;
    // Tall enough to cover the fraction (less a little, as delimiters may), and centred on the axis.
    EXPECT_GT(open.mup + open.mdown, 0.9 * (frac.mup + frac.mdown));
    EXPECT_NEAR((open.mup - open.mdown) / 2, axis_10pt, 0.05);
    EXPECT_NEAR(open.mup + open.mdown, close.mup + close.mdown, 1e-6);
    // A single parenthesis is 9.03pt tall; this one is a larger variant or an assembly.
    EXPECT_GT(open.mup + open.mdown, 10.7);
    EXPECT_TRUE(open.mop && open.mop->op_stretched);
}

TEST(layout, parenthesis_around_a_letter_keeps_its_size) {
    formula const f("<mo>(</mo><mi>x</mi><mo>)</mo>");
    auto const& open = *f.members()[0].placed_math;
    EXPECT_FALSE(open.mop->op_stretched);
}

TEST(layout, limits_in_display_and_scripts_inline) {
    std::string const sum = "<munderover><mo>\u2211</mo><mrow><mi>i</mi><mo>=</mo><mn>1</mn></mrow><mi>n</mi>"
                            "</munderover>";
    formula const display(sum, true);
    formula const inline_(sum, false);
    auto const sigma_d = display.run_of(U"\u2211");
    auto const n_d = display.run_of(U"n");
    auto const one_d = display.run_of(U"1");
    ASSERT_TRUE(sigma_d && n_d && one_d);
    EXPECT_LT(n_d->y, sigma_d->y - 5);   // over the sign
    EXPECT_GT(one_d->y, sigma_d->y + 3); // under it
    EXPECT_LT(n_d->x, sigma_d->x + 8);
    auto const sigma_i = inline_.run_of(U"\u2211");
    auto const n_i = inline_.run_of(U"n");
    ASSERT_TRUE(sigma_i && n_i);
    // Movable limits become scripts to the right outside display style.
    EXPECT_GT(n_i->x, sigma_i->x + 5);
    EXPECT_LT(inline_.m->mup + inline_.m->mdown, display.m->mup + display.m->mdown);
}

TEST(layout, square_root_covers_its_base) {
    formula const f("<msqrt><mi>x</mi><mo>+</mo><mn>1</mn></msqrt>");
    auto const shapes = f.shapes();
    ASSERT_EQ(shapes.size(), 1u);
    auto const x = f.run_of(U"x");
    auto const one = f.run_of(U"1");
    ASSERT_TRUE(x && one && f.run_of(U"\u221a"));
    // The bar spans the base, above it.
    EXPECT_LE(shapes[0].x0, x->x + 1e-6);
    EXPECT_GE(shapes[0].x1, one->x + 3);
    EXPECT_LT(shapes[0].y1, x->y - 4);
}

TEST(layout, phantom_keeps_its_room_and_draws_nothing) {
    formula const seen("<mi>x</mi><mo>+</mo><mi>y</mi>");
    formula const hidden("<mphantom><mi>x</mi><mo>+</mo><mi>y</mi></mphantom>");
    EXPECT_NEAR(hidden.m->mwidth, seen.m->mwidth, 1e-9);
    EXPECT_NEAR(hidden.m->mup, seen.m->mup, 1e-9);
    EXPECT_TRUE(hidden.runs().empty());
}

TEST(layout, table_rows_and_columns) {
    formula const f("<mtable><mtr><mtd><mn>1</mn></mtd><mtd><mn>22</mn></mtd></mtr>"
                    "<mtr><mtd><mn>333</mn></mtd><mtd><mn>4</mn></mtd></mtr></mtable>");
    auto const one = f.run_of(U"1");
    auto const three = f.run_of(U"333");
    auto const two = f.run_of(U"22");
    auto const four = f.run_of(U"4");
    ASSERT_TRUE(one && two && three && four);
    EXPECT_NEAR(one->y, two->y, 1e-9);
    EXPECT_GT(three->y, one->y + 8);
    EXPECT_GT(two->x, three->x + 15);
    // Centred in the column and on the axis as a whole.
    EXPECT_GT(one->x, three->x);
    EXPECT_NEAR((f.m->mup - f.m->mdown) / 2, axis_10pt, 1e-6);
}

TEST(layout, mglyph_by_number_and_its_failures) {
    // Glyph 5 of the math font stands in the token, with its alt text as the characters behind it.
    formula const g("<mi>a<mglyph fontfamily=\"DejaVu Math TeX Gyre\" index=\"5\" alt=\"G\"/></mi>");
    auto const a = g.run_of(U"a");
    auto const glyph = g.run_of(U"G");
    ASSERT_TRUE(a && glyph);
    EXPECT_GT(glyph->x, a->x + 2);
    EXPECT_EQ(g.log.count("unknown glyph"), 0);
    EXPECT_EQ(g.log.count("mglyph"), 0);
    // A number past the font's glyphs, and a family that is not installed, fall back to the alt text.
    for (auto const* bad : {"<mglyph fontfamily=\"DejaVu Math TeX Gyre\" index=\"999999\" alt=\"Q\"/>",
                            "<mglyph fontfamily=\"No Such Family\" index=\"5\" alt=\"Q\"/>",
                            "<mglyph index=\"five\" alt=\"Q\"/>"}) {
        formula const f(bad);
        EXPECT_EQ(f.log.count("unknown glyph"), 1) << bad;
        auto const q = f.run_of(U"Q");
        ASSERT_TRUE(q) << bad;
        EXPECT_NEAR(q->size, 10, 1e-9);
    }
}

TEST(layout, menclose_radical_arrow_and_angle) {
    formula const plain("<mi>x</mi>");
    formula const radical("<menclose notation=\"radical\"><mi>x</mi></menclose>");
    ASSERT_TRUE(radical.run_of(U"\u221a"));
    EXPECT_GT(radical.m->mwidth, plain.m->mwidth + 4);
    EXPECT_EQ(radical.shapes().size(), 1u); // the bar
    formula const arrow("<menclose notation=\"updiagonalarrow\"><mi>x</mi></menclose>");
    auto const arrow_shapes = arrow.shapes();
    ASSERT_EQ(arrow_shapes.size(), 2u); // the stroke and its head
    // The head ends at the top right corner of the box.
    EXPECT_NEAR(arrow_shapes[1].x1, arrow.m->mwidth, 1e-6);
    EXPECT_NEAR(arrow_shapes[1].y0, -arrow.m->mup, 1e-6);
    formula const angle("<menclose notation=\"phasorangle\"><mi>x</mi></menclose>");
    auto const angle_shapes = angle.shapes();
    ASSERT_EQ(angle_shapes.size(), 2u);
    auto const x = angle.run_of(U"x");
    ASSERT_TRUE(x);
    // The slanted side stands before the content, the base runs under it.
    EXPECT_LT(angle_shapes[1].x1, x->x + 1e-6);
    EXPECT_GT(angle_shapes[0].y0, x->y);
    for (auto const* f : {&radical, &arrow, &angle}) {
        EXPECT_EQ(f->log.count("is not drawn"), 0);
    }
}

TEST(layout, scripts_drop_the_wide_operator_spaces) {
    // In a superscript the dictionary's medium space around "+" goes; set on the element it stays.
    formula const tight("<msup><mi>e</mi><mrow><mi>a</mi><mo>+</mo><mi>b</mi></mrow></msup>");
    formula const spaced("<msup><mi>e</mi><mrow><mi>a</mi><mo lspace=\"mediummathspace\" "
                         "rspace=\"mediummathspace\">+</mo><mi>b</mi></mrow></msup>");
    formula const base("<mi>a</mi><mo>+</mo><mi>b</mi>");
    auto const gap = [](formula const& f) { return f.run_of(U"b")->x - f.run_of(U"a")->x; };
    ASSERT_TRUE(tight.run_of(U"b") && spaced.run_of(U"b") && base.run_of(U"b"));
    double const script_size = tight.run_of(U"a")->size;
    EXPECT_LT(script_size, 10);
    EXPECT_NEAR(gap(spaced) - gap(tight), 2 * 4.0 / 18 * script_size, 1e-6);
    // On the baseline the spaces are kept.
    EXPECT_GT(gap(base), gap(tight) * 10 / script_size + 1);
}

TEST(layout, alignment_groups_line_up_across_rows) {
    // The "=" of each row stands at one x, whatever the width of the left side.
    formula const eq(
        "<mtable><mtr><mtd><maligngroup/><mi>x</mi><maligngroup/><mo>=</mo><mn>1</mn></mtd></mtr>"
        "<mtr><mtd><maligngroup/><mi>abc</mi><maligngroup/><mo>=</mo><mn>22</mn></mtd></mtr></mtable>");
    std::vector<double> equals;
    for (auto const& r : eq.runs()) {
        if (r.text == U"=") {
            equals.push_back(r.x);
        }
    }
    ASSERT_EQ(equals.size(), 2u);
    EXPECT_NEAR(equals[0], equals[1], 1e-9);
    EXPECT_GT(equals[0], eq.run_of(U"abc")->x + 10);
    EXPECT_EQ(eq.log.count("aligngroup"), 0);
    // Marks line up the decimal points; content before the first group is reported.
    formula const marks(
        "<mtable><mtr><mtd><maligngroup/><mn>12</mn><malignmark/><mn>.5</mn></mtd></mtr>"
        "<mtr><mtd><mn>7</mn><maligngroup/><mn>3</mn><malignmark/><mn>.25</mn></mtd></mtr></mtable>");
    auto const half = marks.run_of(U".5");
    auto const quarter = marks.run_of(U".25");
    ASSERT_TRUE(half && quarter);
    EXPECT_NEAR(half->x, quarter->x, 1e-9);
    EXPECT_EQ(marks.log.count("First aligngroup appears after other elements!"), 1);
}

TEST(layout, empty_table_rows_and_columns_are_reported) {
    formula const f("<mtable><mtr/><mtr><mtd/><mtd><mn>1</mn></mtd></mtr></mtable>");
    EXPECT_EQ(f.log.count("row has no height!"), 1);
    EXPECT_EQ(f.log.count("column has no width!"), 1);
    EXPECT_TRUE(f.run_of(U"1"));
}

TEST(layout, make_math_gives_a_drawing_with_its_baseline) {
    testing::capture_log log;
    auto const db = *fonts::new_fonts(formula::loader(log.log), log.log, true);
    auto const root =
        formula::parse(log.log, "<math xmlns=\"http://www.w3.org/1998/Math/MathML\" display=\"block\">"
                                "<mfrac><mi>a</mi><mi>b</mi></mfrac></math>");
    auto const d = make_math::make_math(log.log, db, root, formula::style());
    EXPECT_TRUE(d.drawing_display);
    EXPECT_GT(d.drawing_up, 8);
    EXPECT_GT(d.drawing_down, 5);
    EXPECT_NEAR(d.drawing.viewport_height, d.drawing_up + d.drawing_down, 1e-9);
    EXPECT_NEAR(d.drawing.viewport_width, d.drawing_width, 1e-9);
}

} // namespace
} // namespace vellum::mathml::layout
