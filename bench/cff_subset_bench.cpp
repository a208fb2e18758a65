// Times the cutting of a CID-keyed CFF font: the glyphs of the first GLYPHS CJK ideographs (U+4E00 on)
// that Noto Sans CJK JP has, plus the kana, cut out of its 16 MB font program, as for a document of
// that many distinct characters. Reports subsets per second and the subset's size, best of several runs.
// Usage: cff_subset_bench [GLYPHS] [RUNS] [FONT]   (cff_subset_bench.sh runs it)
#include "text/cff_subset.hpp"
#include "text/fonts/freetype.hpp"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

using namespace vellum;
using clock_type = std::chrono::steady_clock;

} // namespace

int main(int argc, char** argv) {
    int const wanted = argc > 1 ? std::atoi(argv[1]) : 2000;
    int const runs = argc > 2 ? std::atoi(argv[2]) : 5;
    std::string const path = argc > 3 ? argv[3] : "/usr/share/fonts/opentype/noto/NotoSansCJK-Regular.ttc";
    auto const ft = fonts::freetype::new_freetype();
    if (!ft) {
        std::fprintf(stderr, "cff_subset_bench: %s\n", ft.error().c_str());
        return 1;
    }
    auto const face = fonts::freetype::open_file(*ft, path, 0);
    if (!face) {
        std::fprintf(stderr, "cff_subset_bench: %s: %s\n", path.c_str(), face.error().c_str());
        return 1;
    }
    auto const program = fonts::freetype::load_table(*face, opentype::reader::make_tag("CFF "));
    if (!program) {
        std::fprintf(stderr, "cff_subset_bench: %s has no CFF table\n", path.c_str());
        return 1;
    }
    std::vector<std::uint32_t> glyphs{0};
    auto add = [&](char32_t c) {
        auto const g = fonts::freetype::char_index(*face, c);
        if (g != 0 && std::find(glyphs.begin(), glyphs.end(), g) == glyphs.end()) {
            glyphs.push_back(g);
        }
    };
    for (char32_t c = 0x3041; c <= 0x30FF; ++c) {
        add(c);
    }
    for (char32_t c = 0x4E00; c <= 0x9FFF && int(glyphs.size()) < wanted; ++c) {
        add(c);
    }
    double best = 1e9;
    std::size_t size = 0;
    for (int r = 0; r < runs; ++r) {
        auto const start = clock_type::now();
        auto const made = cff_subset::make_cff_subset(program->view(), glyphs);
        double const s = std::chrono::duration<double>(clock_type::now() - start).count();
        if (!made) {
            std::fprintf(stderr, "cff_subset_bench: %s\n", made.error().c_str());
            return 1;
        }
        best = std::min(best, s);
        size = made->subset_bytes.size();
    }
    std::printf("%zu glyphs of a %zu-byte font program: %.1f ms per subset (%.1f subsets/s), %zu bytes\n",
                glyphs.size(), program->size(), best * 1000, 1 / best, size);
    return 0;
}
