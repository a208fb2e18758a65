#include "pdf/tagging.hpp"

#include <array>
#include <utility>

namespace vellum::pdf::tagging {

structure::structure() {
    structure_elements.push_back(element{.element_role = "Document"});
}

int structure::element_of(element_key const& key, int parent) {
    if (key.key_identity != nullptr) {
        if (auto const found = structure_known.find(key.key_identity); found != structure_known.end()) {
            return found->second;
        }
    }
    if (parent < 0 || parent >= int(structure_elements.size())) {
        parent = 0;
    }
    // The language in force around the new element: the nearest ancestor's that states one.
    std::optional<std::string> around = structure_language;
    for (int a = parent; a >= 0; a = structure_elements[std::size_t(a)].element_parent) {
        if (structure_elements[std::size_t(a)].element_lang) {
            around = structure_elements[std::size_t(a)].element_lang;
            break;
        }
    }
    int const index = int(structure_elements.size());
    structure_elements.push_back(element{.element_role = key.key_role,
                                         .element_alt = key.key_alt,
                                         .element_lang = key.key_lang == around ? std::nullopt : key.key_lang,
                                         .element_parent = parent});
    structure_elements[std::size_t(parent)].element_kids.emplace_back(index);
    if (key.key_identity != nullptr) {
        structure_known.emplace(key.key_identity, index);
    }
    return index;
}

int structure::mark(int page, int element) {
    if (element < 0 || element >= int(structure_elements.size())) {
        element = 0;
    }
    auto& marks = structure_page_marks[page];
    int const mcid = int(marks.size());
    marks.push_back(element);
    structure_elements[std::size_t(element)].element_kids.emplace_back(content_ref{page, mcid});
    return mcid;
}

void structure::write(writer& w, ref root, std::vector<ref> const& pages) const {
    std::vector<ref> refs;
    refs.reserve(structure_elements.size());
    for (std::size_t i = 0; i < structure_elements.size(); ++i) {
        refs.push_back(new_ref(w));
    }
    auto const page_ref = [&](int page) -> object {
        if (page < 0 || page >= int(pages.size())) {
            throw internal_error("no page ref for page number " + std::to_string(page + 1));
        }
        return pages[std::size_t(page)];
    };
    ref const parent_tree = new_ref(w);
    int next_key = 0;
    array nums;
    for (auto const& [page, marks] : structure_page_marks) {
        array parents;
        for (int e : marks) {
            parents.array_items.emplace_back(refs[std::size_t(e)]);
        }
        nums.array_items.emplace_back(std::int64_t{page});
        nums.array_items.emplace_back(std::move(parents));
        next_key = page + 1;
    }
    write_object(w, root,
                 dict{{{"Type", name{"StructTreeRoot"}},
                       {"K", refs.front()},
                       {"ParentTree", parent_tree},
                       {"ParentTreeNextKey", std::int64_t{next_key}}}});
    write_object(w, parent_tree, dict{{{"Nums", std::move(nums)}}});
    for (std::size_t i = 0; i < structure_elements.size(); ++i) {
        auto const& e = structure_elements[i];
        array kids;
        for (auto const& k : e.element_kids) {
            if (auto const* child = std::get_if<int>(&k)) {
                kids.array_items.emplace_back(refs[std::size_t(*child)]);
            } else {
                auto const& c = std::get<content_ref>(k);
                kids.array_items.emplace_back(dict{{{"Type", name{"MCR"}},
                                                    {"Pg", page_ref(c.ref_page)},
                                                    {"MCID", std::int64_t{c.ref_mcid}}}});
            }
        }
        dict d{{{"Type", name{"StructElem"}},
                {"S", name{e.element_role}},
                {"P", e.element_parent < 0 ? root : refs[std::size_t(e.element_parent)]},
                {"K", std::move(kids)}}};
        if (e.element_alt) {
            d.dict_entries.emplace_back("Alt", text_string(*e.element_alt));
        }
        if (e.element_lang) {
            d.dict_entries.emplace_back("Lang", text_string(*e.element_lang));
        }
        write_object(w, refs[i], d);
    }
}

std::optional<std::string> role_of_html(std::string_view local_name) {
    // Only the types of the standard structure vocabulary of PDF 1.4, so that no role map is needed.
    static constexpr std::array<std::pair<std::string_view, std::string_view>, 36> roles{{
        {"p", "P"},           {"h1", "H1"},        {"h2", "H2"},          {"h3", "H3"},
        {"h4", "H4"},         {"h5", "H5"},        {"h6", "H6"},          {"ul", "L"},
        {"ol", "L"},          {"dl", "L"},         {"li", "LI"},          {"dt", "LI"},
        {"dd", "LI"},         {"table", "Table"},  {"tr", "TR"},          {"td", "TD"},
        {"th", "TH"},         {"caption", "Caption"}, {"figcaption", "Caption"}, {"img", "Figure"},
        {"svg", "Figure"},    {"object", "Figure"}, {"math", "Formula"},  {"blockquote", "BlockQuote"},
        {"pre", "P"},         {"address", "P"},    {"div", "Div"},        {"figure", "Div"},
        {"section", "Sect"},  {"article", "Art"},  {"aside", "Div"},      {"nav", "Div"},
        {"header", "Div"},    {"footer", "Div"},   {"main", "Div"},       {"center", "Div"},
    }};
    for (auto const& [html, role] : roles) {
        if (html == local_name) {
            return std::string(role);
        }
    }
    return std::nullopt;
}

} // namespace vellum::pdf::tagging
