#include "pdf/font_objects.hpp"

#include <algorithm>
#include <cstdio>

namespace vellum::pdf::font_objects {

std::int64_t scale_to_1000(std::int64_t value, std::int64_t units_per_em) {
    // Integer division in C++ truncates toward zero, as the metrics of a PDF font expect.
    return value * 1000 / units_per_em;
}

std::int64_t descriptor_flags(bool is_monospace, bool is_italic) {
    return 4 + (is_monospace ? 1 : 0) + (is_italic ? 64 : 0);
}

pdf::array w_array(std::vector<glyph_width> glyphs) {
    std::stable_sort(glyphs.begin(), glyphs.end(),
                     [](glyph_width const& a, glyph_width const& b) { return a.glyph_number < b.glyph_number; });
    pdf::array out;
    pdf::array run;
    std::uint32_t next = 0;
    for (auto const& g : glyphs) {
        if (!run.array_items.empty() && g.glyph_number != next) {
            out.array_items.push_back(std::move(run));
            run = {};
        }
        if (run.array_items.empty()) {
            out.array_items.push_back(static_cast<std::int64_t>(g.glyph_number));
        }
        run.array_items.push_back(g.glyph_advance);
        next = g.glyph_number + 1;
    }
    if (!run.array_items.empty()) {
        out.array_items.push_back(std::move(run));
    }
    return out;
}

std::string utf16_hex(char32_t c) {
    char buf[16];
    if (c < 0x10000) {
        std::snprintf(buf, sizeof buf, "%04x", static_cast<unsigned>(c));
    } else {
        std::snprintf(buf, sizeof buf, "%04x%04x", static_cast<unsigned>(((c >> 10) - 64) | 0xD800),
                      static_cast<unsigned>((c & 0x3FF) | 0xDC00));
    }
    return buf;
}

std::string tounicode_cmap(tounicode_type type, std::vector<glyph_unicodes> const& glyphs) {
    std::string out = "/CIDInit /ProcSet findresource begin\n"
                      "12 dict begin\n"
                      "begincmap\n"
                      "/CIDSystemInfo\n"
                      "<< /Registry (Adobe)\n"
                      "/Ordering (UCS)\n"
                      "/Supplement 0\n"
                      ">> def\n"
                      "/CMapName /Adobe-Identity-UCS def\n"
                      "/CMapType 2 def\n"
                      "1 begincodespacerange\n";
    out += type == tounicode_type::tounicode_byte ? "<00> <FF>\n" : "<0000> <FFFF>\n";
    out += "endcodespacerange\n";
    std::vector<glyph_unicodes const*> mapped;
    for (auto const& g : glyphs) {
        if (!g.glyph_chars.empty()) {
            mapped.push_back(&g);
        }
    }
    for (std::size_t start = 0; start < mapped.size(); start += 100) {
        std::size_t const end = std::min(mapped.size(), start + 100);
        out += std::to_string(end - start) + " beginbfchar\n";
        for (std::size_t i = start; i < end; ++i) {
            char code[16];
            std::snprintf(code, sizeof code, type == tounicode_type::tounicode_byte ? "<%02x> <" : "<%04x> <",
                          static_cast<unsigned>(mapped[i]->glyph_number));
            out += code;
            for (char32_t c : mapped[i]->glyph_chars) {
                out += utf16_hex(c);
            }
            out += ">\n";
        }
        out += "endbfchar\n";
    }
    out += "endcmap\n"
           "CMapName currentdict /CMap defineresource pop\n"
           "end\n"
           "end\n";
    return out;
}

} // namespace vellum::pdf::font_objects
