// Packing a small HTML document for the layout tests: the document is written to a file of this test
// process (ctest runs the tests of one program as parallel processes), turned into boxes with the
// program's own default sheets, and packed with the test font database.
#pragma once

#include "pack/pack.hpp"
#include "prepack/box_support.hpp"

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "pack/test_fonts.hpp"

#include <unistd.h>

#include <gtest/gtest.h>

namespace vellum::pack::test_pack {

/// Packs `<style>css</style>` and `body` as an HTML document; `tag` names the test's own temporary folder.
inline std::vector<ref<packed_page>> pack_html(std::string const& tag, std::string const& css, std::string const& body) {
    auto const dir = std::filesystem::temp_directory_path() / ("vellum-" + tag + "-test-" + std::to_string(::getpid()));
    std::filesystem::create_directories(dir);
    auto const file = dir / "doc.html";
    std::ofstream(file) << "<!DOCTYPE html><html><head><style>" << css << "</style></head><body>" << body
                        << "</body></html>";
    auto doc = box_support::boxes_of_file(log::log{}, VELLUM_BINARY_DIR, file);
    EXPECT_TRUE(doc) << (doc ? "" : doc.error());
    if (!doc) {
        return {};
    }
    auto r = pack_documents(pass_input{.pass_log = log::log{}, .pass_fonts = test_fonts::db()},
                            {std::make_shared<prepack::pack_document const>(std::move(*doc))});
    return r.result_pages;
}

} // namespace vellum::pack::test_pack
