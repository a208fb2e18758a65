// Destinations, actions, the outline tree and link annotations: their PDF values, and a whole file with
// bookmarks and links that qpdf checks and reads back.
#include "pdf/bulkio/file.hpp"
#include "pdf/navigation.hpp"

#include <cstdio>
#include <fstream>
#include <sys/wait.h>

#include "run_command.hpp"

#include <gtest/gtest.h>

namespace vellum::pdf {
namespace {

std::optional<ref> page_of(int n) {
    if (n < 1 || n > 3) {
        return std::nullopt;
    }
    return ref{.ref_index = 10 + n};
}

using testing::run;

TEST(navigation, destination_arrays_by_kind) {
    using namespace dest;
    auto text = [](pdf::dest::dest const& d) { return to_text(dest_object(d, page_of)); };
    EXPECT_EQ(text(explicit_dest{2, fit{}}), "[12 0 R /Fit]");
    EXPECT_EQ(text(explicit_dest{1, fit_width{std::int64_t{700}}}), "[11 0 R /FitH 700]");
    EXPECT_EQ(text(explicit_dest{3, fit_rect{{std::int64_t{1}, std::int64_t{2}, std::int64_t{3}, std::int64_t{4}}}}),
              "[13 0 R /FitR 1 2 3 4]");
    EXPECT_EQ(text(target_position(2, 72, 700.5)), "[12 0 R /XYZ 72.0000 701 null]");
    EXPECT_EQ(text(target_position(2, 72, 700.49)), "[12 0 R /XYZ 72.0000 700 null]");
    EXPECT_EQ(text(named_dest{"intro"}), "(intro)");
    EXPECT_THROW(text(explicit_dest{4, fit{}}), internal_error);
    auto const names = named_destinations({{"zeta", explicit_dest{1, fit{}}}, {"alpha", explicit_dest{2, fit{}}}}, page_of);
    EXPECT_EQ(to_text(object{names}), "[(alpha) [12 0 R /Fit] (zeta) [11 0 R /Fit]]");
}

TEST(navigation, actions_and_link_annotations) {
    using namespace annot;
    auto const uri = annot_dict({.rect = {std::int64_t{0}, std::int64_t{0}, std::int64_t{10}, std::int64_t{5}},
                                 .border = annot_border{0, border_style::solid},
                                 .subtype = link_action{action::uri{"http://example.org/?a=(b)"}, annot_highlight::highlight_invert}},
                                page_of);
    EXPECT_EQ(to_text(object{uri}),
              "<</Type /Annot\n/Subtype /Link\n/Rect [0 0 10 5]\n/Border [0 0 0.0000]\n"
              "/A <</S /URI\n/URI (http://example.org/?a=\\(b\\))>>\n/H /I>>");
    auto const internal = annot_dict({.rect = {}, .border = annot_border{2, border_style::dashed},
                                      .subtype = link_dest{pdf::dest::explicit_dest{3, pdf::dest::fit{}}, std::nullopt}},
                                     page_of);
    auto const t = to_text(object{internal});
    EXPECT_NE(t.find("/BS <</W 2.0000\n/S /D>>"), std::string::npos) << t;
    EXPECT_NE(t.find("/Dest [13 0 R /Fit]"), std::string::npos) << t;
    EXPECT_EQ(to_text(object{action::action_dict(action::goto_remote{"other.pdf", pdf::dest::named_dest{"x"}}, page_of)}),
              "<</S /GoToR\n/F (other.pdf)\n/D (x)>>");
}

TEST(navigation, outline_tree_reads_back_with_counts_of_direct_children) {
    using namespace outlines;
    std::string const path = ::testing::TempDir() + "pdf_outlines.pdf";
    std::FILE* file = std::fopen(path.c_str(), "wb");
    ASSERT_NE(file, nullptr);
    auto buffer = bulkio::buffer::open(bulkio::file::file_output(file));
    auto w = start_pdf(*buffer, pdf_version::pdf_1_4, std::nullopt, new_document_id(), std::nullopt);
    auto const catalog = new_ref(w);
    auto const pages = new_ref(w);
    std::vector<ref> page_refs;
    for (int i = 0; i < 3; ++i) {
        page_refs.push_back(new_ref(w));
    }
    pdf::dest::page_refs const lookup = [&](int n) -> std::optional<ref> {
        return n >= 1 && n <= 3 ? std::optional<ref>(page_refs[static_cast<std::size_t>(n - 1)]) : std::nullopt;
    };
    std::vector<outline> items{
        {.title = "Chapter 1",
         .target = dest_target{pdf::dest::explicit_dest{1, pdf::dest::fit{}}},
         .state = outline_state::open,
         .children = {{.title = "Section 1.1", .target = dest_target{pdf::dest::target_position(2, 72, 500)}},
                      {.title = "Section 1.2",
                       .target = dest_target{pdf::dest::explicit_dest{2, pdf::dest::fit{}}},
                       .state = outline_state::closed,
                       .children = {{.title = "Deep", .target = dest_target{pdf::dest::explicit_dest{3, pdf::dest::fit{}}}},
                                    {.title = "Deeper", .target = dest_target{pdf::dest::explicit_dest{3, pdf::dest::fit{}}}}}}}},
        {.title = "Caf\xC3\xA9", .target = action_target{action::uri{"http://example.org/"}}},
    };
    auto const root = write_outlines(w, items, lookup);
    ASSERT_TRUE(root);
    EXPECT_FALSE(write_outlines(w, {}, lookup));
    for (auto const& p : page_refs) {
        write_object(w, p, dict{{{"Type", name{"Page"}}, {"Parent", pages},
                                 {"MediaBox", rect_to_array({.right = std::int64_t{200}, .top = std::int64_t{100}})}}});
    }
    write_object(w, pages, dict{{{"Type", name{"Pages"}}, {"Kids", array{{page_refs[0], page_refs[1], page_refs[2]}}},
                                 {"Count", std::int64_t{3}}}});
    write_root(w, catalog, dict{{{"Type", name{"Catalog"}}, {"Pages", pages}, {"Outlines", *root}}});
    finish_pdf(w);
    bulkio::buffer::flush(*buffer);
    ASSERT_EQ(std::fclose(file), 0);

    auto const [status, report] = run("qpdf --check " + path);
    EXPECT_EQ(status, 0) << report;
    EXPECT_EQ(report.find("WARNING"), std::string::npos) << report;
    auto const [json_status, json] = run("qpdf --json --json-key=outlines " + path);
    EXPECT_EQ(json_status, 0) << json;
    // qpdf lists each item's fields alphabetically, so a title follows its kids: the titles in the order
    // printed spell out the tree in post-order.
    std::vector<std::string> titles;
    for (std::size_t p = json.find("\"title\": \""); p != std::string::npos; p = json.find("\"title\": \"", p + 1)) {
        auto const start = p + 10;
        titles.push_back(json.substr(start, json.find('"', start) - start));
    }
    EXPECT_EQ(titles, (std::vector<std::string>{"Section 1.1", "Deep", "Deeper", "Section 1.2", "Chapter 1", "Caf\xC3\xA9"}));
    auto const raw = [&] {
        std::ifstream in(path, std::ios::binary);
        return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    }();
    EXPECT_NE(raw.find("/Count 2"), std::string::npos);
    EXPECT_NE(raw.find("/Count -2"), std::string::npos) << "closed items count their direct children negatively";
    EXPECT_NE(json.find("\"destpageposfrom1\": 3"), std::string::npos) << json;
}

} // namespace
} // namespace vellum::pdf
