// A font database for the painting tests: DejaVu Sans, Serif and Sans Mono from fonts-dejavu-core under
// the families "Sans", "Serif" and "Mono", with no system scan, so that the fonts don't depend on what
// fontconfig would pick. Each fixture is a database of its own, so font ids and glyph tables start
// afresh in every test.
#pragma once

#include "resource/loader.hpp"
#include "resource/locator.hpp"
#include "text/fonts/fonts.hpp"
#include "text/fonts/graphemes.hpp"

#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace vellum::pdf::testing {

struct font_fixture {
    fonts::fonts db;

    font_fixture() {
        resource::loader::loader_options opts;
        opts.network = false;
        auto loader = resource::loader::new_loader(log::log{}, {"/nonexistent-prefix"}, {"/tmp"}, opts);
        EXPECT_TRUE(loader);
        auto d = fonts::new_fonts(*loader, log::log{}, false);
        EXPECT_TRUE(d);
        db = *d;
        std::string const dir = "/usr/share/fonts/truetype/dejavu/";
        fonts::add_font_face_sheet(db,
                                   "@font-face { font-family: Sans; src: url(\"" + dir + "DejaVuSans.ttf\") }\n"
                                   "@font-face { font-family: Serif; src: url(\"" + dir + "DejaVuSerif.ttf\") }\n"
                                   "@font-face { font-family: Mono; src: url(\"" + dir + "DejaVuSansMono.ttf\") }\n",
                                   "test.css", [](std::string const& text, std::string const&) {
                                       return resource::locator::parse_locator(
                                           resource::locator::path_or_url::path_or_url,
                                           resource::locator::locator_origin::command_line_origin, std::nullopt, text);
                                   });
    }

    /// The graphemes of a text in one family, with no fallback to other faces.
    std::vector<fonts::grapheme> text(std::string const& family, std::u32string const& s) {
        auto const req = fonts::get_font_req(db, {.query_families = {family, "vellum-no-fallback"}});
        return fonts::text_to_graphemes(db, *req, fonts::direction::ltr, s);
    }
};

} // namespace vellum::pdf::testing
