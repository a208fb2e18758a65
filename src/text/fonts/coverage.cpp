#include "text/fonts/coverage.hpp"

#include "text/fonts/fallback.hpp"
#include "text/fonts/fc_face.hpp"
#include "util/cell.hpp"

#include <memory>

#include <fontconfig/fontconfig.h>

namespace vellum::fonts::coverage {

namespace {

// fontconfig's weight scale for a CSS weight. The matching value of 600 is 650 (a demi-bold sits
// nearer bold); fontconfig has its own number for it.
int fontconfig_weight(truetype::truetype_weight w) {
    if (w == truetype::truetype_weight::weight_600) {
        return FC_WEIGHT_DEMIBOLD;
    }
    return FcWeightFromOpenType(truetype::matching_value(w));
}

} // namespace

std::vector<font_system::system_face> faces_for_char(font_system::font_system const&,
                                                     char32_t c,
                                                     match::font_style style,
                                                     truetype::truetype_weight weight,
                                                     std::size_t limit) {
    std::vector<font_system::system_face> found;
    std::lock_guard guard(process_lock());
    std::unique_ptr<FcPattern, decltype(&FcPatternDestroy)> pattern(FcPatternCreate(), &FcPatternDestroy);
    std::unique_ptr<FcCharSet, decltype(&FcCharSetDestroy)> chars(FcCharSetCreate(), &FcCharSetDestroy);
    if (!pattern || !chars) {
        return found;
    }
    FcCharSetAddChar(chars.get(), FcChar32(c));
    FcPatternAddCharSet(pattern.get(), FC_CHARSET, chars.get());
    FcPatternAddInteger(pattern.get(), FC_SLANT,
                        style == match::font_style::normal ? FC_SLANT_ROMAN : FC_SLANT_ITALIC);
    FcPatternAddInteger(pattern.get(), FC_WEIGHT, fontconfig_weight(weight));
    FcPatternAddBool(pattern.get(), FC_SCALABLE, FcTrue);
    // The configuration's substitutions add the default families and language, which order faces of
    // equal coverage as the rest of the system would.
    FcConfigSubstitute(nullptr, pattern.get(), FcMatchPattern);
    FcDefaultSubstitute(pattern.get());
    FcResult result = FcResultMatch;
    std::unique_ptr<FcFontSet, decltype(&FcFontSetDestroy)> set(
        FcFontSort(nullptr, pattern.get(), FcFalse, nullptr, &result), &FcFontSetDestroy);
    for (int i = 0; set && i < set->nfont && found.size() < limit; ++i) {
        FcPattern* p = set->fonts[i];
        FcCharSet* has = nullptr;
        if (FcPatternGetCharSet(p, FC_CHARSET, 0, &has) != FcResultMatch ||
            !FcCharSetHasChar(has, FcChar32(c))) {
            continue;
        }
        FcBool color = FcFalse;
        if (FcPatternGetBool(p, FC_COLOR, 0, &color) == FcResultMatch && color) {
            continue;
        }
        if (auto face = fc_face::sfnt_face_of(p)) {
            found.push_back(std::move(*face));
        }
    }
    return found;
}

std::string missing_summary(std::set<char32_t> const& missing, std::size_t shown) {
    std::string out = "no glyphs for " + std::to_string(missing.size()) +
                      (missing.size() == 1 ? " character" : " characters") + ", shown as '?': ";
    std::size_t n = 0;
    for (char32_t c : missing) {
        if (n == shown) {
            out += " and " + std::to_string(missing.size() - shown) + " more";
            break;
        }
        out += (n ? ", " : "") + fallback::code_text(c);
        ++n;
    }
    return out;
}

} // namespace vellum::fonts::coverage
