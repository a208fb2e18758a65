// The font database of the layout tests: DejaVu Sans from fonts-dejavu-core under the family "Sans",
// with no system scan, so that measurements don't depend on what fontconfig would pick.
#pragma once

#include "resource/loader.hpp"
#include "resource/locator.hpp"
#include "text/fonts/fonts.hpp"

#include <gtest/gtest.h>

namespace vellum::pack::test_fonts {

inline fonts::fonts make_fonts() {
    resource::loader::loader_options opts;
    opts.network = false;
    auto loader = resource::loader::new_loader(log::log{}, {"/nonexistent-prefix"}, {"/tmp"}, opts);
    EXPECT_TRUE(loader);
    auto d = fonts::new_fonts(*loader, log::log{}, false);
    EXPECT_TRUE(d);
    fonts::add_font_face_sheet(*d,
                               "@font-face { font-family: Sans; src: "
                               "url(\"/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf\") }\n",
                               "test.css", [](std::string const& text, std::string const&) {
                                   return resource::locator::parse_locator(
                                       resource::locator::path_or_url::path_or_url,
                                       resource::locator::locator_origin::command_line_origin, std::nullopt, text);
                               });
    return *d;
}

/// The database, made once for the whole test program.
inline fonts::fonts const& db() {
    static fonts::fonts const f = make_fonts();
    return f;
}

} // namespace vellum::pack::test_fonts
