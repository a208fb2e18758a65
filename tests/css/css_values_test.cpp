// Computed values of the modern vocabulary through the real cascade: custom properties inherit and
// substitute per element, rem follows the root, vw the page area, calc() the element's font size, and
// layers decide before specificity.
#include "css/styledom/computed.hpp"
#include "css/styledom/styledom.hpp"
#include "document/doc_test_support.hpp"
#include "document/input.hpp"

#include <gtest/gtest.h>

namespace vellum::styledom {
namespace {

namespace fs = std::filesystem;

struct styled {
    fs::path dir;
    doc_test::captured_log log;
    resource::loader::loader loader;
    dom::document_ref doc;
    styled_document result;

    explicit styled(std::string const& name, std::string const& html)
        : dir(doc_test::scratch_dir("values_" + name)), loader(make_loader(dir)), doc(parse(html)),
          result(style_document(log.value, loader, doc, computed::typed_hooks())) {}

    static resource::loader::loader make_loader(fs::path const& dir) {
        fs::create_directories(dir / "style");
        doc_test::captured_log quiet;
        auto l = resource::loader::new_loader(quiet.value, {dir.string()}, {dir.string()}, {.network = false});
        check(l.has_value(), "styled");
        return *l;
    }

    dom::document_ref parse(std::string const& text) {
        auto const path = doc_test::write_file(dir, "doc.html", text);
        auto const src = doc_test::file_locator(path);
        auto const type = doctype::doctype::html5;
        auto const xdoc = document::input::load_document(log.value, src, type, std::nullopt, xml::xml_options{},
                                                         doc_test::local_fetch{}.function(), bytes::from_string(text));
        check(xdoc.has_value(), "styled.parse");
        return document::input::prepare_document(log.value, type, *xdoc, {}, src, {}).prepared_dom;
    }

    // The computed style of the element with this id.
    css::style::style const& by_id(std::string_view id) const { return *computed::style_of(*find(root(), id)); }

    dom::element_ref root() const { return *dom::document_element(*doc); }

    static dom::element_ref find(dom::element_ref const& from, std::string_view id) {
        if (tree::plain_attribute(*from, "id") == std::optional<std::string>(id)) {
            return from;
        }
        for (auto const& c : tree::element_children(*from)) {
            if (auto found = find(c, id)) {
                return found;
            }
        }
        return nullptr;
    }
};

float margin_left(css::style::style const& s, float reference = 0) {
    return std::visit(overloaded{
                          [](css::box::auto_value const&) { return -1.0f; },
                          [](float x) { return x; },
                          [&](css::units::percentage const& p) { return css::units::percent_of(p, reference); },
                      },
                      s.margin_left);
}

css::color::color rgb(float r, float g, float b) {
    return css::color::rgb{r, g, b};
}

TEST(computed_values, custom_properties_inherit_and_substitute_per_element) {
    styled const s("custom", R"(<style>
        html { --accent: rgb(255, 0, 0); --gap: 10pt }
        .blue { --accent: rgb(0, 0, 255) }
        p { color: var(--accent); margin-left: var(--gap) }
        #fallback { color: var(--none, rgb(0, 255, 0)) }
        #broken { margin-left: var(--accent) }
        #inherits { color: var(--none) }
        #initial-gap { --gap: initial }
        </style><div><p id="red">a</p></div><div class="blue"><p id="blue">b</p>
        <p id="fallback">c</p><p id="broken">d</p><p id="inherits">e</p><p id="initial-gap">f</p></div>)");
    EXPECT_EQ(s.by_id("red").color, rgb(1, 0, 0));
    EXPECT_EQ(s.by_id("blue").color, rgb(0, 0, 1));
    EXPECT_EQ(margin_left(s.by_id("blue")), 10);
    EXPECT_EQ(s.by_id("fallback").color, rgb(0, 1, 0));
    // A colour is no margin: invalid at computed-value time, margin-left takes its initial value.
    EXPECT_EQ(margin_left(s.by_id("broken")), 0);
    // ... and color, an inherited property, the parent's.
    EXPECT_EQ(s.by_id("inherits").color, css::color::black());
    EXPECT_EQ(margin_left(s.by_id("initial-gap")), 0);
}

TEST(computed_values, rem_follows_the_root_and_vw_the_page_area) {
    styled const s("units", R"(<style>
        @page { size: 400pt 600pt; margin: 5rem }
        html { font-size: 10pt }
        body { font-size: 20pt }
        #rem { margin-left: 2rem; font-size: 1.5rem }
        #vw { margin-left: 10vw }
        #vh { margin-left: 10vh }
        </style><body><p id="rem">a</p><p id="vw">b</p><p id="vh">c</p></body>)");
    EXPECT_FLOAT_EQ(margin_left(s.by_id("rem")), 20);
    EXPECT_FLOAT_EQ(s.by_id("rem").font_size, 15);
    // The page area is 300pt by 500pt: the page margin in rem counts against the root font.
    EXPECT_FLOAT_EQ(margin_left(s.by_id("vw")), 30);
    EXPECT_FLOAT_EQ(margin_left(s.by_id("vh")), 50);
}

TEST(computed_values, calc_counts_em_against_the_elements_font_size) {
    styled const s("calc", R"(<style>
        body { font-size: 10pt }
        #a { font-size: calc(2em + 1pt); margin-left: calc(1em + 1pt) }
        #b { margin-left: calc(50% - 1em) }
        #c { margin-left: clamp(5pt, 2em, 12pt); line-height: calc(150% + 1pt) }
        #d { --w: 3pt; margin-left: calc(var(--w) * 2) }
        </style><body><p id="a">a</p><p id="b">b</p><p id="c">c</p><p id="d">d</p></body>)");
    EXPECT_FLOAT_EQ(s.by_id("a").font_size, 21);
    EXPECT_FLOAT_EQ(margin_left(s.by_id("a")), 22);
    EXPECT_FLOAT_EQ(margin_left(s.by_id("b"), 200), 90);
    EXPECT_FLOAT_EQ(margin_left(s.by_id("c")), 12);
    EXPECT_FLOAT_EQ(margin_left(s.by_id("d")), 6);
}

TEST(computed_values, layers_decide_before_specificity) {
    styled const s("layers", R"(<style>
        @layer base, theme;
        @layer theme { p { color: rgb(0, 0, 255) } }
        @layer base { #x { color: rgb(255, 0, 0) } }
        p.plain { margin-left: 1pt }
        @layer theme { #x { margin-left: 2pt } }
        @layer base { #y { color: rgb(255, 0, 0) !important } }
        @layer theme { #y { color: rgb(0, 255, 0) !important } }
        </style><p id="x" class="plain">a</p><p id="y">b</p>)");
    // The later layer wins over the id selector of the earlier one; unlayered wins over both.
    EXPECT_EQ(s.by_id("x").color, rgb(0, 0, 1));
    EXPECT_FLOAT_EQ(margin_left(s.by_id("x")), 1);
    // Among important declarations the earlier layer wins.
    EXPECT_EQ(s.by_id("y").color, rgb(1, 0, 0));
}

} // namespace
} // namespace vellum::styledom
