#include "prepack/counter_style.hpp"

#include <array>
#include <cctype>
#include <cstdint>
#include <string_view>
#include <utility>

namespace vellum::prepack::counter_style {

namespace {

textbuf::textbuf decimal(int value) {
    return textbuf::from_utf8(std::to_string(value));
}

// The digits of a positional system, `digits` giving one character per digit value; negative numbers
// take a minus sign in front.
textbuf::textbuf numeric(int value, std::u32string_view digits) {
    auto const base = static_cast<std::int64_t>(digits.size());
    std::int64_t n = value;
    bool const negative = n < 0;
    if (negative) {
        n = -n;
    }
    textbuf::textbuf out;
    do {
        out.insert(out.begin(), digits[static_cast<std::size_t>(n % base)]);
        n /= base;
    } while (n > 0);
    if (negative) {
        out.insert(out.begin(), U'-');
    }
    return out;
}

// Letters as digits of a base with no zero: a..z, then aa, ab ... From 1 up; others in decimal.
textbuf::textbuf alphabetic(int value, std::u32string_view letters) {
    if (value <= 0) {
        return decimal(value);
    }
    auto const base = static_cast<int>(letters.size());
    textbuf::textbuf out;
    for (int n = value; n > 0; n = (n - 1) / base) {
        out.insert(out.begin(), letters[static_cast<std::size_t>((n - 1) % base)]);
    }
    return out;
}

// Roman numerals, from 1 to 3999 (there is no zero, no negative, and no letter for 5000).
textbuf::textbuf roman(int value, bool upper) {
    static constexpr std::pair<int, char const*> table[] = {
        {1000, "m"}, {900, "cm"}, {500, "d"}, {400, "cd"}, {100, "c"}, {90, "xc"}, {50, "l"},
        {40, "xl"},  {10, "x"},   {9, "ix"},  {5, "v"},    {4, "iv"},  {1, "i"}};
    if (value <= 0 || value >= 4000) {
        return decimal(value);
    }
    textbuf::textbuf out;
    int n = value;
    for (auto const& [v, letters] : table) {
        for (; n >= v; n -= v) {
            for (char const* c = letters; *c != '\0'; ++c) {
                out += static_cast<char32_t>(upper ? std::toupper(*c) : *c);
            }
        }
    }
    return out;
}

// The Chinese and Japanese ways of writing numbers: a digit followed by the marker of its place (ten,
// hundred, thousand) within each group of four digits, and a marker after each group that isn't zero
// (ten thousand, hundred million ...).
struct cjk_system {
    std::u32string_view digits;      // zero to nine
    std::u32string_view markers;     // ten, hundred, thousand
    std::u32string_view groups;      // 10^4, 10^8, 10^12
    std::u32string_view negative;    // the sign in front of a negative number
    bool chinese_zeros = true;       // a run of zeros between digits shows as one zero; else zeros go
    bool drop_one_before_marker = false; // 十 rather than 一十, always (Japanese informal)
    bool drop_one_in_teens = false;  // 十一 rather than 一十一, from ten to nineteen (Chinese informal)
};

textbuf::textbuf cjk(int value, cjk_system const& sys) {
    std::int64_t n = value;
    textbuf::textbuf out;
    if (n < 0) {
        out.append(sys.negative.begin(), sys.negative.end());
        n = -n;
    }
    if (n == 0) {
        out += sys.digits[0];
        return out;
    }
    // Groups of four digits, most significant first.
    std::array<int, 4> groups{};
    int count = 0;
    for (std::int64_t m = n; m > 0; m /= 10000) {
        ++count;
    }
    for (int g = 0; g < count; ++g) {
        std::int64_t m = n;
        for (int k = 0; k < count - 1 - g; ++k) {
            m /= 10000;
        }
        groups[static_cast<std::size_t>(g)] = static_cast<int>(m % 10000);
    }
    bool const teens = sys.drop_one_in_teens && n >= 10 && n <= 19;
    bool emitted = false;
    for (int g = 0; g < count; ++g) {
        int const group = groups[static_cast<std::size_t>(g)];
        if (group == 0) {
            continue;
        }
        int const place_of_group = count - 1 - g;
        bool pending_zero = false;
        for (int place = 3; place >= 0; --place) {
            int d = group;
            for (int k = 0; k < place; ++k) {
                d /= 10;
            }
            d %= 10;
            if (d == 0) {
                // Zeros count only between digits of the number: not before its first digit.
                pending_zero = pending_zero || emitted;
                continue;
            }
            if (pending_zero && sys.chinese_zeros) {
                out += sys.digits[0];
            }
            pending_zero = false;
            bool const drop_one = d == 1 && place > 0 &&
                                  (sys.drop_one_before_marker || (teens && place == 1));
            if (!drop_one) {
                out += sys.digits[static_cast<std::size_t>(d)];
            }
            if (place > 0) {
                out += sys.markers[static_cast<std::size_t>(place - 1)];
            }
            emitted = true;
        }
        if (place_of_group > 0) {
            out += sys.groups[static_cast<std::size_t>(place_of_group - 1)];
        }
    }
    return out;
}

constexpr cjk_system japanese_informal{U"〇一二三四五六七八九", U"十百千", U"万億兆", U"マイナス", false, true, false};
constexpr cjk_system japanese_formal{U"零壱弐参四伍六七八九", U"拾百阡", U"萬億兆", U"マイナス", false, false, false};
constexpr cjk_system simp_chinese_informal{U"零一二三四五六七八九", U"十百千", U"万亿万", U"负", true, false, true};
constexpr cjk_system simp_chinese_formal{U"零壹贰叁肆伍陆柒捌玖", U"拾佰仟", U"万亿万", U"负", true, false, false};
constexpr cjk_system trad_chinese_informal{U"零一二三四五六七八九", U"十百千", U"萬億兆", U"負", true, false, true};
constexpr cjk_system trad_chinese_formal{U"零壹貳參肆伍陸柒捌玖", U"拾佰仟", U"萬億兆", U"負", true, false, false};

struct named_letters {
    std::string_view name;
    std::u32string_view letters;
};

constexpr named_letters alphabets[] = {
    {"lower-alpha", U"abcdefghijklmnopqrstuvwxyz"},
    {"lower-latin", U"abcdefghijklmnopqrstuvwxyz"},
    {"upper-alpha", U"ABCDEFGHIJKLMNOPQRSTUVWXYZ"},
    {"upper-latin", U"ABCDEFGHIJKLMNOPQRSTUVWXYZ"},
    {"lower-greek", U"αβγδεζηθικλμνξοπρστυφχψω"},
    {"upper-greek", U"ΑΒΓΔΕΖΗΘΙΚΛΜΝΞΟΠΡΣΤΥΦΧΨΩ"},
    {"lower-norwegian", U"abcdefghijklmnopqrstuvwxyzæøå"},
    {"upper-norwegian", U"ABCDEFGHIJKLMNOPQRSTUVWXYZÆØÅ"},
    {"lower-russian", U"абвгдежзиклмнопрстуфхцчшщэюя"},
    {"upper-russian", U"АБВГДЕЖЗИКЛМНОПРСТУФХЦЧШЩЭЮЯ"},
    {"hiragana", U"あいうえおかきくけこさしすせそたちつてとなにぬねのはひふへほまみむめもやゆよらりるれろわゐゑをん"},
    {"katakana", U"アイウエオカキクケコサシスセソタチツテトナニヌネノハヒフヘホマミムメモヤユヨラリルレロワヰヱヲン"},
    {"hiragana-iroha", U"いろはにほへとちりぬるをわかよたれそつねならむうゐのおくやまけふこえてあさきゆめみしゑひもせす"},
    {"katakana-iroha", U"イロハニホヘトチリヌルヲワカヨタレソツネナラムウヰノオクヤマケフコエテアサキユメミシヱヒモセス"},
    {"cjk-earthly-branch", U"子丑寅卯辰巳午未申酉戌亥"},
    {"cjk-heavenly-stem", U"甲乙丙丁戊己庚辛壬癸"},
};

struct named_digits {
    std::string_view name;
    std::u32string_view digits;
};

constexpr named_digits numerals[] = {
    {"decimal", U"0123456789"},
    {"arabic-indic", U"٠١٢٣٤٥٦٧٨٩"},
    {"persian", U"۰۱۲۳۴۵۶۷۸۹"},
    {"cjk-decimal", U"〇一二三四五六七八九"},
    {"binary", U"01"},
    {"octal", U"01234567"},
    {"lower-hexadecimal", U"0123456789abcdef"},
    {"upper-hexadecimal", U"0123456789ABCDEF"},
};

struct named_glyph {
    std::string_view name;
    char32_t glyph;
};

constexpr named_glyph glyphs[] = {
    {"disc", U'\u2022'}, {"circle", U'\u25E6'}, {"square", U'\u25AA'}, {"box", U'\u25A1'},
    {"check", U'\u2713'}, {"diamond", U'\u25C6'}, {"hyphen", U'-'},
};

} // namespace

textbuf::textbuf format_counter(int value, std::string const& style) {
    for (auto const& g : glyphs) {
        if (style == g.name) {
            return textbuf::textbuf(1, g.glyph);
        }
    }
    if (style == "none") {
        return U"";
    }
    for (auto const& d : numerals) {
        if (style == d.name) {
            return numeric(value, d.digits);
        }
    }
    if (style == "decimal-leading-zero") {
        if (value >= 0 && value < 10) {
            return U"0" + decimal(value);
        }
        return decimal(value);
    }
    for (auto const& a : alphabets) {
        if (style == a.name) {
            return alphabetic(value, a.letters);
        }
    }
    if (style == "lower-roman") {
        return roman(value, false);
    }
    if (style == "upper-roman") {
        return roman(value, true);
    }
    static constexpr std::pair<std::string_view, cjk_system const*> systems[] = {
        {"japanese-informal", &japanese_informal},         {"japanese-formal", &japanese_formal},
        {"simp-chinese-informal", &simp_chinese_informal}, {"simp-chinese-formal", &simp_chinese_formal},
        {"trad-chinese-informal", &trad_chinese_informal}, {"trad-chinese-formal", &trad_chinese_formal},
    };
    for (auto const& [name, sys] : systems) {
        if (style == name) {
            return cjk(value, *sys);
        }
    }
    return decimal(value);
}

bool is_glyph_style(std::string const& style) {
    if (style == "none") {
        return true;
    }
    for (auto const& g : glyphs) {
        if (style == g.name) {
            return true;
        }
    }
    return false;
}

std::u32string marker_suffix(std::string const& style) {
    if (is_glyph_style(style)) {
        return U"";
    }
    bool const cjk_style = style.starts_with("japanese-") || style.starts_with("simp-chinese-") ||
                           style.starts_with("trad-chinese-") || style.starts_with("cjk-") ||
                           style.starts_with("hiragana") || style.starts_with("katakana");
    return cjk_style ? U"\u3001" : U".";
}

} // namespace vellum::prepack::counter_style
