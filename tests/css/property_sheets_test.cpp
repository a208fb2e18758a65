// The program's own default style sheets, declaration by declaration through the property parsers: a
// value the sheets rely on that the parsers reject would silently vanish from every document.
#include "css/parser.hpp"
#include "css/property.hpp"

#include <fstream>
#include <sstream>

#include <gtest/gtest.h>

namespace vellum::css::property {
namespace {

std::string read_sheet(std::string const& name) {
    std::ifstream in(std::string(VELLUM_SOURCE_DIR) + "/resources/style/" + name, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

TEST(property_sheets, every_element_declaration_of_the_default_sheets_is_valid) {
    for (auto const* name : {"xhtml.css", "common.css", "docbook.css"}) {
        SCOPED_TRACE(name);
        auto e = parser::new_env("print");
        e.known_property = &propnames::known_property;
        log::log quiet{.log_stderr = log::no_stderr_log{}};
        e = parser::parse_style_sheet(quiet, {}, origin::program, name, read_sheet(name), std::move(e));
        int checked = 0;
        for (auto const& r : e.rules) {
            for (auto const& d : r.rule_declarations) {
                ++checked;
                EXPECT_TRUE(valid_declaration(d)) << selector::to_text(r.rule_selector) << " { "
                                                  << d.prop_name << ": " << value::to_text(d.value) << " }";
            }
        }
        EXPECT_GT(checked, 0);
    }
}

} // namespace
} // namespace vellum::css::property
