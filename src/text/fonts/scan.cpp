#include "text/fonts/scan.hpp"

#include "text/font_data.hpp"
#include "text/fonts/font_face.hpp"
#include "text/opentype/tables.hpp"
#include "text/opentype/woff.hpp"

#include <cstdio>
#include <memory>
#include <vector>

namespace vellum::fonts::scan {

namespace {

// The blocks of the OS/2 ulUnicodeRange bits 0 to 122, as the OpenType specification names them;
// bits 123 to 127 are reserved.
constexpr std::string_view range_names[] = {
    "Basic Latin",
    "Latin-1 Supplement",
    "Latin Extended-A",
    "Latin Extended-B",
    "IPA Extensions",
    "Spacing Modifier Letters",
    "Combining Diacritical Marks",
    "Greek and Coptic",
    "Coptic",
    "Cyrillic",
    "Armenian",
    "Hebrew",
    "Vai",
    "Arabic",
    "NKo",
    "Devanagari",
    "Bengali",
    "Gurmukhi",
    "Gujarati",
    "Oriya",
    "Tamil",
    "Telugu",
    "Kannada",
    "Malayalam",
    "Thai",
    "Lao",
    "Georgian",
    "Balinese",
    "Hangul Jamo",
    "Latin Extended Additional",
    "Greek Extended",
    "General Punctuation",
    "Superscripts And Subscripts",
    "Currency Symbols",
    "Combining Diacritical Marks For Symbols",
    "Letterlike Symbols",
    "Number Forms",
    "Arrows",
    "Mathematical Operators",
    "Miscellaneous Technical",
    "Control Pictures",
    "Optical Character Recognition",
    "Enclosed Alphanumerics",
    "Box Drawing",
    "Block Elements",
    "Geometric Shapes",
    "Miscellaneous Symbols",
    "Dingbats",
    "CJK Symbols And Punctuation",
    "Hiragana",
    "Katakana",
    "Bopomofo",
    "Hangul Compatibility Jamo",
    "Phags-pa",
    "Enclosed CJK Letters And Months",
    "CJK Compatibility",
    "Hangul Syllables",
    "Non-Plane 0",
    "Phoenician",
    "CJK Unified Ideographs",
    "Private Use Area (plane 0)",
    "CJK Strokes",
    "Alphabetic Presentation Forms",
    "Arabic Presentation Forms-A",
    "Combining Half Marks",
    "Vertical Forms",
    "Small Form Variants",
    "Arabic Presentation Forms-B",
    "Halfwidth And Fullwidth Forms",
    "Specials",
    "Tibetan",
    "Syriac",
    "Thaana",
    "Sinhala",
    "Myanmar",
    "Ethiopic",
    "Cherokee",
    "Unified Canadian Aboriginal Syllabics",
    "Ogham",
    "Runic",
    "Khmer",
    "Mongolian",
    "Braille Patterns",
    "Yi Syllables",
    "Tagalog",
    "Old Italic",
    "Gothic",
    "Deseret",
    "Byzantine Musical Symbols",
    "Mathematical Alphanumeric Symbols",
    "Private Use (plane 15)",
    "Variation Selectors",
    "Tags",
    "Limbu",
    "Tai Le",
    "New Tai Lue",
    "Buginese",
    "Glagolitic",
    "Tifinagh",
    "Yijing Hexagram Symbols",
    "Syloti Nagri",
    "Linear B Syllabary",
    "Ancient Greek Numbers",
    "Ugaritic",
    "Old Persian",
    "Shavian",
    "Osmanya",
    "Cypriot Syllabary",
    "Kharoshthi",
    "Tai Xuan Jing Symbols",
    "Cuneiform",
    "Counting Rod Numerals",
    "Sundanese",
    "Lepcha",
    "Ol Chiki",
    "Saurashtra",
    "Kayah Li",
    "Rejang",
    "Cham",
    "Ancient Symbols",
    "Phaistos Disc",
    "Carian",
    "Domino Tiles",
};

static_assert(std::size(range_names) == 123);

result<bytes::bytes> read_file(std::string const& path) {
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> f(std::fopen(path.c_str(), "rb"), &std::fclose);
    if (!f) {
        return fail("could not open file");
    }
    std::vector<std::uint8_t> data;
    std::uint8_t buf[65536];
    while (auto n = std::fread(buf, 1, sizeof buf, f.get())) {
        data.insert(data.end(), buf, buf + n);
    }
    if (std::ferror(f.get())) {
        return fail("could not read file");
    }
    return bytes::from_vector(std::move(data));
}

std::optional<bytes::bytes> read_face_table(void const* context, opentype::reader::tag t) {
    return freetype::load_table(*static_cast<freetype::face const*>(context), t);
}

// "*/" would end the comment that carries the name.
std::string comment_safe(std::string text) {
    for (std::size_t at = 0; (at = text.find("*/", at)) != std::string::npos;) {
        text.replace(at, 2, "* /");
    }
    return text;
}

} // namespace

std::optional<std::string_view> unicode_range_name(int bit) {
    if (bit < 0 || bit >= int(std::size(range_names))) {
        return std::nullopt;
    }
    return range_names[bit];
}

std::string unicode_ranges_comment(std::optional<std::array<std::uint32_t, 4>> const& ranges) {
    if (!ranges) {
        return "/* UnicodeRange: No OS/2 table */\n";
    }
    if ((*ranges)[0] == 0xFFFFFFFF && (*ranges)[1] == 0xFFFFFFFF && (*ranges)[2] == 0xFFFFFFFF &&
        (*ranges)[3] == 0xFFFFFFFF) {
        return "/* UnicodeRange: All */\n";
    }
    std::string out = "/* UnicodeRange:\n";
    for (int bit = 0; bit < 128; ++bit) {
        if ((*ranges)[bit / 32] & (std::uint32_t(1) << (bit % 32))) {
            auto const name = unicode_range_name(bit);
            out += "    " + (name ? std::string(*name) : "Reserved bit " + std::to_string(bit)) + "\n";
        }
    }
    return out + "*/\n";
}

std::string css_escape(std::string_view text) {
    std::string out;
    for (char c : text) {
        if (c == '"') {
            out += '\\';
        }
        out += c;
    }
    return out;
}

std::optional<std::string>
scan_font_file(log::log const& log, freetype::freetype const& ft, std::string const& path, bool verbose) {
    auto const error = [&](std::string const& text) -> std::optional<std::string> {
        log::log_file_message(log, log::level::error, path, text);
        return std::nullopt;
    };
    auto data = read_file(path);
    if (!data) {
        return error(data.error());
    }
    if (opentype::woff::is_woff(data->view())) {
        auto sfnt = opentype::woff::decode_woff(data->view());
        if (!sfnt) {
            return error(sfnt.error());
        }
        data = bytes::from_vector(std::move(*sfnt));
    }
    auto face = freetype::open_memory(ft, *data, 0);
    if (!face) {
        return error(face.error());
    }
    auto info = font_data::describe_font(read_face_table, &*face);
    if (!info) {
        return error(info.error());
    }

    auto const& emb = info->embedding;
    if (auto const* b = std::get_if<truetype::embedding::bogus>(&emb)) {
        char buf[64];
        std::snprintf(buf, sizeof buf, "font has invalid embedding bits: 0x%04x", unsigned(b->bogus_bits));
        log::log_file_message(log, log::level::warning, path, buf);
        log::log_file_message(log, log::level::warning, path, "font does not allow embedding");
    } else if (truetype::embedding::embedding_verdict(emb) == truetype::embedding::verdict::refused) {
        log::log_file_message(log, log::level::warning, path, "font does not allow embedding");
    }

    std::optional<std::string> full_name;
    if (auto name_bytes = freetype::load_table(*face, opentype::reader::make_tag("name"))) {
        if (auto names = opentype::tables::parse_name(name_bytes->view())) {
            full_name = opentype::tables::find_name(*names, opentype::tables::name_id::full_name);
        }
    }
    std::optional<std::array<std::uint32_t, 4>> ranges;
    if (auto os2_bytes = freetype::load_table(*face, opentype::reader::make_tag("OS/2"))) {
        if (auto os2 = opentype::tables::parse_os2(os2_bytes->view())) {
            ranges = os2->os2_unicode_range;
        }
    }

    std::string out = "/* " + comment_safe(full_name ? *full_name : font_info::describe(*info)) + " */\n";
    if (verbose) {
        out += unicode_ranges_comment(ranges);
    }
    out += "@font-face {\n";
    out += "    font-family: \"" + css_escape(info->family_name) + "\";\n";
    out += "    font-weight: " + std::string(font_face::weight_keyword(info->truetype_weight)) + ";\n";
    out += std::string("    font-style: ") + (info->is_italic ? "italic" : "normal") + ";\n";
    out += "    font-stretch: " + std::string(font_face::width_keyword(info->truetype_width)) + ";\n";
    out += "    src: url(\"" + css_escape(path) + "\")\n";
    out += "}\n\n";
    return out;
}

} // namespace vellum::fonts::scan
