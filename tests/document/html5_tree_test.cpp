// Runs the html5lib tree-construction suite (tests/*.dat in /work/shared/html5lib-tests) through the parser.
#include "document/html5/format.hpp"
#include "document/html5/parser.hpp"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

namespace fs = std::filesystem;
using namespace vellum::html5;

fs::path const suite_dir = "/work/shared/html5lib-tests/tree-construction";

struct dat_case {
    std::string case_id;
    std::string case_data;
    std::string case_fragment; // empty for a whole document
    bool case_script_on = false;
    std::string case_expected;
};

std::string read_file(fs::path const& p) {
    std::ifstream in(p, std::ios::binary);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

std::vector<dat_case> read_dat(fs::path const& p) {
    std::vector<dat_case> cases;
    std::istringstream in(read_file(p));
    std::string line;
    std::string section;
    dat_case current;
    bool open = false;
    auto finish = [&] {
        if (!open) {
            return;
        }
        while (!current.case_data.empty() && current.case_data.back() == '\n') {
            // The data section's own closing newline is not part of the input.
            current.case_data.pop_back();
            break;
        }
        while (!current.case_expected.empty() && current.case_expected.back() == '\n') {
            current.case_expected.pop_back();
        }
        cases.push_back(current);
    };
    while (std::getline(in, line)) {
        if (line == "#data") {
            finish();
            current = dat_case{};
            current.case_id = p.filename().string() + ":" + std::to_string(cases.size() + 1);
            open = true;
            section = "data";
            continue;
        }
        if (section != "document" || line.empty() || line[0] == '#') {
            if (line == "#errors" || line == "#new-errors" || line == "#document" || line == "#document-fragment" ||
                line == "#script-on" || line == "#script-off") {
                section = line.substr(1);
                current.case_script_on = current.case_script_on || line == "#script-on";
                continue;
            }
        }
        if (section == "data") {
            current.case_data += line + "\n";
        } else if (section == "document-fragment") {
            current.case_fragment = line;
        } else if (section == "document") {
            current.case_expected += line + "\n";
        }
    }
    finish();
    return cases;
}

std::set<std::string> known_failures() {
    std::set<std::string> ids;
    std::istringstream in(read_file(fs::path(VELLUM_SOURCE_DIR) / "tests/document/html5_known_failures.txt"));
    std::string line;
    while (std::getline(in, line)) {
        auto end = line.find_first_of(" \t#");
        std::string id = line.substr(0, end);
        if (!id.empty()) {
            ids.insert(id);
        }
    }
    return ids;
}

std::string run_case(dat_case const& c) {
    if (c.case_fragment.empty()) {
        return format::format_document(parser::parse_document(c.case_data));
    }
    std::string name = c.case_fragment;
    tree::html_ns ns = tree::html_ns::html;
    if (name.starts_with("svg ")) {
        ns = tree::html_ns::svg;
        name = name.substr(4);
    } else if (name.starts_with("math ")) {
        ns = tree::html_ns::mathml;
        name = name.substr(5);
    }
    return format::format_fragment(parser::parse_fragment(c.case_data, name, ns));
}

std::vector<std::string> dat_files() {
    std::vector<std::string> names;
    for (auto const& e : fs::directory_iterator(suite_dir)) {
        if (e.path().extension() == ".dat") {
            names.push_back(e.path().filename().string());
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

class html5_tree_construction : public ::testing::TestWithParam<std::string> {};

TEST_P(html5_tree_construction, matches_expected_trees) {
    auto cases = read_dat(suite_dir / GetParam());
    ASSERT_FALSE(cases.empty());
    auto known = known_failures();
    int passed = 0;
    int skipped = 0;
    int known_failed = 0;
    for (auto const& c : cases) {
        if (c.case_script_on) {
            ++skipped; // the parser never runs scripts
            continue;
        }
        std::string got = run_case(c);
        while (!got.empty() && got.back() == '\n') {
            got.pop_back();
        }
        bool ok = got == c.case_expected;
        if (known.contains(c.case_id)) {
            ++known_failed;
            EXPECT_FALSE(ok) << c.case_id << " passes now: take it off html5_known_failures.txt";
            continue;
        }
        if (ok) {
            ++passed;
        } else {
            ADD_FAILURE() << c.case_id << "\n--- input\n"
                          << c.case_data << "\n--- expected\n"
                          << c.case_expected << "\n--- got\n"
                          << got;
        }
    }
    std::printf("%s: %d of %zu cases pass, %d skipped (script-on), %d known failures\n", GetParam().c_str(), passed,
                cases.size(), skipped, known_failed);
}

INSTANTIATE_TEST_SUITE_P(html5lib, html5_tree_construction, ::testing::ValuesIn(dat_files()),
                         [](::testing::TestParamInfo<std::string> const& info) {
                             std::string name = info.param.substr(0, info.param.size() - 4);
                             std::replace_if(
                                 name.begin(), name.end(), [](char c) { return !std::isalnum(static_cast<unsigned char>(c)); },
                                 '_');
                             return name;
                         });

} // namespace
