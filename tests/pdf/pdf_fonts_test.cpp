// Fonts in the PDF from end to end: text shaped through the font database, painted with each font's
// encoding, the fonts subset and written; the file is checked with qpdf, pdffonts, pdftotext and
// pdftoppm, and every embedded font program is read back by fontTools.
#include "pdf/bulkio/file.hpp"
#include "pdf/content.hpp"
#include "pdf/pdf_fonts.hpp"
#include "pdf/writepdf.hpp"
#include "text/font_data.hpp"
#include "text/fonts/freetype.hpp"
#include "text/fonts/graphemes.hpp"
#include "text/font_test_util.hpp"

#include <filesystem>
#include <iostream>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

#include "run_command.hpp"

#include <gtest/gtest.h>

namespace vellum::pdf::pdf_fonts {
namespace {

using font_test::captured_log;
using testing::run;
namespace fs = std::filesystem;
namespace locator = resource::locator;

std::string const dejavu = "/usr/share/fonts/truetype/dejavu/";
std::string const liberation = "/usr/share/fonts/truetype/liberation2/";
std::string const urw = "/usr/share/fonts/opentype/urw-base35/";

resource::loader::loader test_loader(log::log const& log) {
    resource::loader::loader_options opts;
    opts.network = false;
    auto l = resource::loader::new_loader(log, {"/nonexistent-prefix"}, {"/tmp"}, opts);
    EXPECT_TRUE(l);
    return *l;
}

locator::locator as_path(std::string const& text, std::string const&) {
    return locator::parse_locator(locator::path_or_url::path_or_url, locator::locator_origin::command_line_origin,
                                  std::nullopt, text);
}

std::string face(std::string const& family, std::string const& file) {
    return "@font-face { font-family: \"" + family + "\"; src: url(\"" + file + "\"); }\n";
}

// One line of text in one family, as the painter gets it: graphemes with their glyphs.
struct line {
    std::vector<fonts::grapheme> line_graphemes;
    double line_size = 12;
};

// A font database with named test families, and a document whose page paints lines of them.
struct fixture {
    captured_log log;
    fonts::fonts db;
    std::vector<line> lines;

    explicit fixture(std::string const& sheet) {
        auto d = fonts::new_fonts(test_loader(log.log), log.log, false);
        EXPECT_TRUE(d) << (d ? "" : d.error());
        db = *d;
        fonts::add_font_face_sheet(db, sheet, "test.css", as_path);
    }

    vellum::ref<fonts::font_req> req(std::string const& family) {
        return fonts::get_font_req(db, {.query_families = {family, "vellum-no-fallback"}});
    }

    // Shapes a text and records each glyph with the characters it stands for, as the painter does.
    void add(std::string const& family, std::u32string const& text, double size = 12) {
        auto gs = fonts::text_to_graphemes(db, *req(family), fonts::direction::ltr, text);
        for (auto const& g : gs) {
            fonts::record_glyph(g.base_glyph.glyph_font_ref, g.base_glyph.glyph_source, g.base_glyph.glyph_unicodes);
        }
        lines.push_back({std::move(gs), size});
    }

    // A glyph standing for several characters, as a ligature from the shaper: the glyph of `shown`
    // recorded with the characters `chars`.
    void add_ligature(std::string const& family, char32_t shown, std::u32string const& chars) {
        auto gs = fonts::text_to_graphemes(db, *req(family), fonts::direction::ltr, std::u32string(1, shown));
        gs.front().base_glyph.glyph_unicodes = chars;
        fonts::record_glyph(gs.front().base_glyph.glyph_font_ref, gs.front().base_glyph.glyph_source, chars);
        lines.push_back({std::move(gs), 12});
    }

    writepdf::pdf_document document(metadata::pdf_options options) {
        writepdf::pdf_document doc{.doc_options = options};
        doc.pages.push_back({.boxes = {.media_box = {.right = number{595.0}, .top = number{842.0}}},
                             .paint = [ls = lines](content::out const& o, content::gs& g) { paint(o, g, ls); }});
        attach_fonts(log.log, doc, db);
        return doc;
    }

    // The painter's part: each line a run per font, in the bytes the font's encoding asks for, read
    // from the glyph numbers as they are once the fonts have been subset.
    static void paint(content::out const& o, content::gs& g, std::vector<line> const& ls) {
        content::begin_text(o);
        content::fill_color(o, g, color::gray{std::int64_t{0}});
        // Each line starts below the start of the one before.
        double x = 40;
        double y = 800;
        for (auto const& l : ls) {
            content::position(o, g, x, y);
            x = 0;
            y = -l.line_size * 1.6;
            fonts::font_ref font;
            std::string run_bytes;
            auto flush = [&] {
                if (!run_bytes.empty()) {
                    content::show_hex(o, run_bytes);
                    run_bytes.clear();
                }
            };
            for (auto const& gr : l.line_graphemes) {
                auto const& glyph = gr.base_glyph;
                if (glyph.glyph_font_ref != font) {
                    flush();
                    font = glyph.glyph_font_ref;
                    content::font(o, g, font->used_font_id, l.line_size);
                }
                run_bytes += glyph_code(font->used_font_encoding->get(), glyph.glyph_index->get(),
                                        glyph.glyph_unicodes);
            }
            flush();
        }
        content::end_text(o);
    }
};

std::string write_to_file(writepdf::pdf_document const& doc, std::string const& name) {
    std::string const path = ::testing::TempDir() + name;
    std::FILE* file = std::fopen(path.c_str(), "wb");
    EXPECT_NE(file, nullptr);
    writepdf::write_pdf_document(log::log{}, bulkio::file::file_output(file), doc);
    EXPECT_EQ(std::fclose(file), 0);
    return path;
}

std::string read_file(std::string const& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// pdffonts' table as rows of words: name, type words, encoding, emb, sub, uni, object number.
std::map<std::string, std::string> font_rows(std::string const& path) {
    auto const [status, out] = run("pdffonts " + path);
    EXPECT_EQ(status, 0) << out;
    std::map<std::string, std::string> rows;
    std::istringstream in(out);
    std::string row;
    int n = 0;
    while (std::getline(in, row)) {
        if (++n <= 2) {
            continue;
        }
        auto const name_end = row.find(' ');
        // The columns after the name, blanks collapsed, without the object numbers at the end.
        std::istringstream words(row.substr(name_end));
        std::vector<std::string> w;
        for (std::string x; words >> x;) {
            w.push_back(x);
        }
        std::string rest;
        for (std::size_t i = 0; i + 2 < w.size(); ++i) {
            rest += (rest.empty() ? "" : " ") + w[i];
        }
        rows[row.substr(0, name_end)] = rest;
    }
    return rows;
}

std::vector<std::string> text_lines(std::string const& path) {
    auto const [status, out] = run("pdftotext -layout " + path + " -");
    EXPECT_EQ(status, 0) << out;
    std::vector<std::string> lines;
    std::istringstream in(out);
    for (std::string l; std::getline(in, l);) {
        auto const a = l.find_first_not_of(" \f");
        if (a != std::string::npos) {
            lines.push_back(l.substr(a, l.find_last_not_of(' ') + 1 - a));
        }
    }
    return lines;
}

// Takes every embedded font program out of the file and reads it with fontTools: a TrueType font is
// opened and each glyph decompiled, a bare CFF font parsed and each charstring decompiled. One line for
// each: the font name, the kind, the glyph count and (TrueType) the sorted table tags.
std::string embedded_fonts_report(std::string const& pdf) {
    auto const script = ::testing::TempDir() + "read_embedded_fonts.py";
    std::ofstream(script) << R"(import re, sys, zlib, io
from fontTools.ttLib import TTFont
from fontTools.cffLib import CFFFontSet
data = open(sys.argv[1], 'rb').read()
objs = {}
for m in re.finditer(rb'(\d+) 0 obj\n', data):
    objs[int(m.group(1))] = m.end()
def body(n):
    at = objs[n]
    return data[at:data.index(b'\nendobj', at)]
def stream(n):
    b = body(n)
    d = b[:b.index(b'stream\n')]
    m = re.search(rb'/Length (\d+)( 0 R)?', d)
    length = int(body(int(m.group(1)))) if m.group(2) else int(m.group(1))
    start = objs[n] + b.index(b'stream\n') + 7
    raw = data[start:start + length]
    return zlib.decompress(raw) if b'/FlateDecode' in d else raw
out = []
for n in sorted(objs):
    b = body(n)
    if b'/FontDescriptor' not in b or b'/Type /FontDescriptor' not in b.replace(b'\n', b' '):
        continue
    name = re.search(rb'/FontName /(\S+)', b).group(1).decode()
    f2 = re.search(rb'/FontFile2 (\d+) 0 R', b)
    f3 = re.search(rb'/FontFile3 (\d+) 0 R', b)
    if f2:
        font = TTFont(io.BytesIO(stream(int(f2.group(1)))))
        glyf = font['glyf']
        for g in font.getGlyphOrder():
            glyf[g].expand(glyf)
        out.append('%s glyf %d %s' % (name, len(font.getGlyphOrder()), ','.join(sorted(font.keys()))))
    elif f3:
        cff = CFFFontSet()
        cff.decompile(io.BytesIO(stream(int(f3.group(1)))), None)
        top = cff[cff.fontNames[0]]
        for g in top.CharStrings.keys():
            top.CharStrings[g].decompile()
        out.append('%s cff %d' % (name, len(top.CharStrings.keys())))
    else:
        out.append('%s none' % name)
print('\n'.join(out))
)";
    auto const [status, out] = run("/usr/bin/python3 " + script + " " + pdf);
    return status == 0 ? out : "fontTools failed: " + out;
}

std::string const sheet = face("Sans", dejavu + "DejaVuSans.ttf") + face("Serif", liberation + "LiberationSerif-Regular.ttf") +
                          face("CffSans", urw + "NimbusSans-Regular.otf") + face("CffRoman", urw + "NimbusRoman-Regular.otf") +
                          face("MonoOblique", dejavu + "DejaVuSansMono-Oblique.ttf");

TEST(pdf_fonts, every_font_is_embedded_and_its_text_reads_back) {
    fixture f(sheet);
    // An Identity font of few glyphs (it becomes a one-byte subset), a MacRoman TrueType font, an
    // Identity CFF font and a MacRoman CFF font; both CFF fonts become CID-keyed Identity subsets.
    f.add("Sans", U"Grüße, Ελληνικά, Кириллица — €∑→✓ 😀?");
    f.add("Serif", U"Café crème à la française, naïve");
    f.add("CffSans", U"Ωmega Привет ≤ ∞");
    f.add("CffRoman", U"Plain Roman text éà");
    f.add_ligature("Sans", U'\uFB03', U"ffi");
    auto const path = write_to_file(f.document({}), "pdf_fonts_all.pdf");

    auto const [status, check] = run("qpdf --check " + path);
    EXPECT_EQ(status, 0) << check;

    auto const rows = font_rows(path);
    // A simple font without /Encoding: poppler calls its built-in encoding WinAnsi.
    EXPECT_EQ(rows.at("QZAAAA+DejaVuSans"), "TrueType WinAnsi yes yes yes");
    // An embedded MacRoman font keeps PDF's MacRomanEncoding as it is and gives its characters back
    // through a ToUnicode map.
    EXPECT_EQ(rows.at("QZAAAB+LiberationSerif"), "TrueType MacRoman yes yes yes");
    EXPECT_EQ(rows.at("QZAAAC+NimbusSans-Regular"), "CID Type 0C Identity-H yes yes yes");
    EXPECT_EQ(rows.at("QZAAAD+NimbusRoman-Regular"), "CID Type 0C Identity-H yes yes yes");
    EXPECT_EQ(rows.size(), 4u);

    auto const text = text_lines(path);
    ASSERT_EQ(text.size(), 5u);
    // The emoji has no glyph in DejaVu Sans and is drawn by a fallback glyph, which still stands for it.
    EXPECT_EQ(text[0], "Grüße, Ελληνικά, Кириллица — €∑→✓ 😀?");
    EXPECT_EQ(text[1], "Café crème à la française, naïve");
    EXPECT_EQ(text[2], "Ωmega Привет ≤ ∞");
    EXPECT_EQ(text[3], "Plain Roman text éà");
    EXPECT_EQ(text[4], "ffi");

    auto const report = embedded_fonts_report(path);
    EXPECT_NE(report.find("QZAAAA+DejaVuSans glyf "), std::string::npos) << report;
    EXPECT_NE(report.find("QZAAAB+LiberationSerif glyf "), std::string::npos) << report;
    // The CFF subsets: glyph 0 and the glyphs of the text (each has 14 distinct characters, the space
    // among them).
    EXPECT_NE(report.find("QZAAAC+NimbusSans-Regular cff 15"), std::string::npos) << report;
    EXPECT_NE(report.find("QZAAAD+NimbusRoman-Regular cff 15"), std::string::npos) << report;
    // Subsets keep only the tables a PDF reader needs.
    EXPECT_NE(report.find("QZAAAA+DejaVuSans glyf 3"), std::string::npos) << report;
    EXPECT_EQ(report.find("GSUB"), std::string::npos) << report;
    EXPECT_EQ(report.find("OS/2"), std::string::npos) << report;

    // The glyphs are drawn: each line has dark pixels where its text stands.
    auto const png = ::testing::TempDir() + "pdf_fonts_all";
    auto const [rs, rout] = run("pdftoppm -r 50 -gray -singlefile " + path + " " + png);
    ASSERT_EQ(rs, 0) << rout;
    auto const [ps, pixels] = run("/usr/bin/python3 -c \"from PIL import Image; im = Image.open('" + png +
                                  ".pgm'); w, h = im.size; "
                                  "print(' '.join(str(sum(1 for x in range(w) for y in range(int((842 - b) * 50 / 72) - 8, "
                                  "int((842 - b) * 50 / 72) + 2) if im.getpixel((x, y)) < 128)) for b in (800, 780.8, 761.6, 742.4, 723.2)))\"");
    ASSERT_EQ(ps, 0) << pixels;
    std::istringstream counts(pixels);
    for (int i = 0; i < 5; ++i) {
        int dark = 0;
        counts >> dark;
        EXPECT_GT(dark, i == 4 ? 5 : 40) << "line " << i << ": " << pixels;
    }
}

TEST(pdf_fonts, descriptor_widths_and_an_uncompressed_tounicode_map) {
    fixture f(sheet);
    f.add("MonoOblique", U"Жb");
    metadata::pdf_options options;
    options.compress = false;
    auto const path = write_to_file(f.document(options), "pdf_fonts_mono.pdf");
    auto const file = read_file(path);
    // Monospace and italic: fixed pitch, symbolic and italic flags.
    EXPECT_NE(file.find("/Flags 69\n"), std::string::npos);
    EXPECT_NE(file.find("/ItalicAngle -11\n"), std::string::npos);
    // A one-byte subset: codes 0 to 2, with the advance of a monospace glyph, 602 units of 1000.
    EXPECT_NE(file.find("/FirstChar 0\n/LastChar 2\n/Widths [602 602 602]"), std::string::npos);
    // The ToUnicode map is plain text; the font file is deflated all the same.
    EXPECT_NE(file.find("2 beginbfchar\n<01> <0416>\n<02> <0062>\nendbfchar\n"), std::string::npos);
    EXPECT_NE(file.find("/Length1 "), std::string::npos);
    EXPECT_NE(file.find("/Filter /FlateDecode\n/Length1"), std::string::npos);
    auto const [status, check] = run("qpdf --check " + path);
    EXPECT_EQ(status, 0) << check;
}

TEST(pdf_fonts, without_embedding_only_macroman_fonts_stay_out) {
    fixture f(sheet);
    f.add("Serif", U"Only MacRoman here");
    f.add("Sans", U"Ελληνικά");
    metadata::pdf_options options;
    options.embed_fonts = false;
    auto const path = write_to_file(f.document(options), "pdf_fonts_no_embed.pdf");
    auto const rows = font_rows(path);
    // The MacRoman font is neither subset nor embedded; the other must be, with a warning.
    EXPECT_EQ(rows.at("LiberationSerif"), "TrueType Custom no no no");
    EXPECT_EQ(rows.at("QZAAAB+DejaVuSans"), "TrueType WinAnsi yes yes yes");
    EXPECT_NE(f.log.text().find("embedding font \"DejaVu Sans Book\""), std::string::npos) << f.log.text();
    auto const text = text_lines(path);
    ASSERT_EQ(text.size(), 2u);
    EXPECT_EQ(text[1], "Ελληνικά");
}

fonts::freetype::face const& face_of(std::string const& path) {
    static auto const ft = *fonts::freetype::new_freetype();
    static std::map<std::string, fonts::freetype::face> faces;
    if (!faces.contains(path)) {
        faces.emplace(path, *fonts::freetype::open_file(ft, path, 0));
    }
    return faces.at(path);
}

bool has_glyph(std::string const& path, char32_t c) { return fonts::freetype::char_index(face_of(path), c) != 0; }

// The /W array as it should be for glyphs of a font of 2048 units to the em, made independently of the
// writer: glyph numbers and advances from FreeType, runs formed by hand.
struct source_widths {
    std::map<std::uint32_t, long> widths;

    void add(std::string const& path, char32_t c) {
        auto const g = fonts::freetype::char_index(face_of(path), c);
        widths[g] = *fonts::freetype::unscaled_advance(face_of(path), g) * 1000 / 2048;
    }

    std::string w_text() const {
        std::string out = "[";
        std::optional<std::uint32_t> last;
        for (auto const& [g, w] : widths) {
            if (!last || g != *last + 1) {
                out += std::string(last ? "] " : "") + std::to_string(g) + " [";
            } else {
                out += " ";
            }
            out += std::to_string(w);
            last = g;
        }
        return out + (last ? "]]" : "]");
    }
};

TEST(pdf_fonts, without_subsetting_fonts_go_out_whole) {
    fixture f(sheet);
    f.add("Sans", U"Ελληνικά ok");
    f.add("Serif", U"Roman");
    metadata::pdf_options options;
    options.subset_fonts = false;
    auto const path = write_to_file(f.document(options), "pdf_fonts_whole.pdf");
    auto const rows = font_rows(path);
    // Without a subset an Identity font stays Identity, and its codes are the font's own glyph numbers.
    EXPECT_EQ(rows.at("DejaVuSans"), "CID TrueType Identity-H yes no yes");
    EXPECT_EQ(rows.at("LiberationSerif"), "TrueType MacRoman yes no yes");
    auto const file = read_file(path);
    auto const whole = fs::file_size(dejavu + "DejaVuSans.ttf");
    EXPECT_NE(file.find("/Length1 " + std::to_string(whole)), std::string::npos);
    // /W in runs of consecutive glyph numbers, here the font's own, with gaps between the runs.
    source_widths expected;
    for (char32_t c : std::u32string(U"Ελληνικά ok")) {
        expected.add(dejavu + "DejaVuSans.ttf", c);
    }
    EXPECT_NE(file.find("/W " + expected.w_text() + "\n"), std::string::npos) << expected.w_text();
    // The descendant font comes first, right after the Type 0 font's own number was reserved.
    auto const type0 = file.find("/Subtype /Type0");
    auto const cid = file.find("/Subtype /CIDFontType2");
    ASSERT_NE(type0, std::string::npos);
    EXPECT_LT(cid, type0);
    auto const text = text_lines(path);
    ASSERT_EQ(text.size(), 2u);
    EXPECT_EQ(text[0], "Ελληνικά ok");
    EXPECT_EQ(text[1], "Roman");
    auto const report = embedded_fonts_report(path);
    EXPECT_NE(report.find("DejaVuSans glyf 6253"), std::string::npos) << report;
}

// Blanks and format characters: text extraction turns them into plain blanks or drops them.
bool blank_or_format(char32_t c) {
    return c == 0xa0 || c == 0xad || (c >= 0x2000 && c <= 0x200f) || (c >= 0x2028 && c <= 0x202f) ||
           (c >= 0x205f && c <= 0x206f);
}

// Lines of the characters that a font has in the given ranges, up to a count, each character once.
std::vector<std::u32string> characters_of(std::string const& path,
                                          std::vector<std::pair<char32_t, char32_t>> const& ranges,
                                          std::size_t count,
                                          std::set<char32_t>& taken) {
    std::vector<std::u32string> lines(1);
    std::size_t n = 0;
    for (auto const& [from, to] : ranges) {
        for (char32_t c = from; c <= to && n < count; ++c) {
            if (taken.contains(c) || blank_or_format(c) || !has_glyph(path, c)) {
                continue;
            }
            taken.insert(c);
            ++n;
            if (lines.back().size() == 60) {
                lines.emplace_back();
            }
            lines.back() += c;
        }
    }
    return lines;
}

TEST(pdf_fonts, two_thousand_characters_from_three_fonts_make_a_small_file) {
    fixture f(face("A", dejavu + "DejaVuSans.ttf") + face("B", dejavu + "DejaVuSerif.ttf") +
              face("C", liberation + "LiberationSans-Regular.ttf"));
    std::set<char32_t> taken;
    std::vector<std::pair<std::string, std::vector<std::u32string>>> parts = {
        {"A", characters_of(dejavu + "DejaVuSans.ttf", {{0x21, 0x7e}, {0x100, 0x24f}, {0x370, 0x3ff}, {0x2200, 0x22ff}}, 750, taken)},
        {"B", characters_of(dejavu + "DejaVuSerif.ttf", {{0x400, 0x52f}, {0x1e00, 0x1eff}, {0x2190, 0x21ff}, {0xa720, 0xa7ff}, {0x2c60, 0x2c7f}, {0x1d00, 0x1dbf}}, 650, taken)},
        {"C", characters_of(liberation + "LiberationSans-Regular.ttf", {{0xa0, 0xff}, {0x250, 0x2ff}, {0x1f00, 0x1fff}, {0x2000, 0x218f}, {0x2500, 0x25ff}, {0xfb00, 0xfb06}}, 650, taken)},
    };
    ASSERT_GE(taken.size(), 2000u);
    for (auto const& [family, ls] : parts) {
        for (auto const& l : ls) {
            f.add(family, l, 6);
        }
    }
    metadata::pdf_options options;
    auto const path = write_to_file(f.document(options), "pdf_fonts_2000.pdf");
    auto const [status, check] = run("qpdf --check " + path);
    EXPECT_EQ(status, 0) << check;
    auto const rows = font_rows(path);
    // More than 256 glyphs each: they stay Identity fonts, subset.
    ASSERT_EQ(rows.size(), 3u);
    for (auto const& [n, r] : rows) {
        EXPECT_EQ(r, "CID TrueType Identity-H yes yes yes") << n;
    }
    auto const text = text_lines(path);
    std::u32string all;
    for (auto const& [family, ls] : parts) {
        for (auto const& l : ls) {
            all += l;
        }
    }
    std::string joined;
    for (auto const& l : text) {
        joined += l;
    }
    std::string expected;
    for (char32_t c : all) {
        // UTF-8 of the characters, for comparison with pdftotext's output.
        if (c < 0x80) {
            expected += char(c);
        } else if (c < 0x800) {
            expected += {char(0xC0 | (c >> 6)), char(0x80 | (c & 0x3F))};
        } else if (c < 0x10000) {
            expected += {char(0xE0 | (c >> 12)), char(0x80 | ((c >> 6) & 0x3F)), char(0x80 | (c & 0x3F))};
        }
    }
    std::size_t same = 0;
    for (std::size_t i = 0; i < std::min(expected.size(), joined.size()) && expected[i] == joined[i]; ++i) {
        same = i + 1;
    }
    EXPECT_EQ(joined, expected) << "first difference at byte " << same;
    auto const report = embedded_fonts_report(path);
    EXPECT_EQ(report.find("fontTools failed"), std::string::npos) << report;

    auto const file_size = fs::file_size(path);
    auto const fonts_size = fs::file_size(dejavu + "DejaVuSans.ttf") + fs::file_size(dejavu + "DejaVuSerif.ttf") +
                            fs::file_size(liberation + "LiberationSans-Regular.ttf");
    std::cout << "2000 characters: " << taken.size() << " characters, PDF " << file_size << " bytes, fonts "
              << fonts_size << " bytes\n";
    EXPECT_LT(file_size * 4, fonts_size);
}

} // namespace
} // namespace vellum::pdf::pdf_fonts
