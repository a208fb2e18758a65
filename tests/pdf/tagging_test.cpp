// The logical structure of tagged files: elements made once per document element, in the order their
// content is marked, with marked-content identifiers counted per page and languages stated only where
// they change.
#include "pdf/tagging.hpp"

#include <gtest/gtest.h>

namespace vellum::pdf::tagging {
namespace {

TEST(tagging, elements_are_made_once_and_collect_their_content_in_order) {
    structure s;
    s.set_language("en");
    int const section_key = 1;
    int const para_key = 2;
    int const figure_key = 3;
    int const sect = s.element_of({.key_identity = &section_key, .key_role = "Sect", .key_lang = "en"}, 0);
    int const para = s.element_of({.key_identity = &para_key, .key_role = "P", .key_lang = "de"}, sect);
    // The paragraph goes on over a page break: the same element, with content on both pages.
    EXPECT_EQ(s.element_of({.key_identity = &para_key, .key_role = "P"}, 0), para);
    EXPECT_EQ(s.mark(0, para), 0);
    EXPECT_EQ(s.mark(0, sect), 1);
    EXPECT_EQ(s.mark(1, para), 0);
    int const figure =
        s.element_of({.key_identity = &figure_key, .key_role = "Figure", .key_alt = "A map", .key_lang = "de"}, para);
    EXPECT_EQ(s.mark(1, figure), 1);

    auto const& e = s.elements();
    ASSERT_EQ(e.size(), 4u);
    EXPECT_EQ(e[0].element_role, "Document");
    EXPECT_EQ(e[0].element_kids, (std::vector<kid>{sect}));
    EXPECT_EQ(e[std::size_t(sect)].element_kids, (std::vector<kid>{para, content_ref{0, 1}}));
    EXPECT_EQ(e[std::size_t(para)].element_kids,
              (std::vector<kid>{content_ref{0, 0}, content_ref{1, 0}, figure}));
    EXPECT_EQ(e[std::size_t(para)].element_parent, sect);
    // The section's language is the document's; the paragraph's differs, its figure's is inherited.
    EXPECT_FALSE(e[std::size_t(sect)].element_lang);
    EXPECT_EQ(e[std::size_t(para)].element_lang, "de");
    EXPECT_FALSE(e[std::size_t(figure)].element_lang);
    EXPECT_EQ(e[std::size_t(figure)].element_alt, "A map");
    // The parent tree: for each page, the element of each identifier.
    EXPECT_EQ(s.page_marks().at(0), (std::vector<int>{para, sect}));
    EXPECT_EQ(s.page_marks().at(1), (std::vector<int>{para, figure}));
}

TEST(tagging, html_elements_take_standard_types) {
    struct row {
        char const* html;
        std::optional<std::string> role;
    };
    row const rows[] = {{"p", "P"},         {"h3", "H3"},      {"ul", "L"},     {"li", "LI"},
                        {"table", "Table"}, {"th", "TH"},      {"img", "Figure"}, {"blockquote", "BlockQuote"},
                        {"span", std::nullopt}, {"em", std::nullopt}, {"tbody", std::nullopt}, {"body", std::nullopt}};
    for (auto const& r : rows) {
        SCOPED_TRACE(r.html);
        EXPECT_EQ(role_of_html(r.html), r.role);
    }
}

} // namespace
} // namespace vellum::pdf::tagging
