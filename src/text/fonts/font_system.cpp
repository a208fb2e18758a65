#include "text/fonts/font_system.hpp"

#include "util/cell.hpp"

#include <memory>

#include <fontconfig/fontconfig.h>

namespace vellum::fonts::font_system {

result<font_system> new_font_system() {
    std::lock_guard guard(process_lock());
    if (!FcInit()) {
        return fail("could not access system fonts");
    }
    return font_system{};
}

match::font_desc0 desc_from_fontconfig(int slant, int weight, int width) {
    // fontconfig tells italic from oblique, but matching treats them alike.
    return {.font_desc_origin = match::desc_origin::font_desc_origin_system_font,
            .font_desc_style = slant != 0 ? match::font_style::italic : match::font_style::normal,
            .font_desc_weight = match::weight_from_fontconfig(weight),
            .font_desc_width = match::width_from_fontconfig(width),
            .font_desc_variant = match::font_variant::normal};
}

std::vector<system_face> scan_family(log::log const& log, font_system const&, std::string const& family) {
    log::log_debug(log, "font scan: " + family);
    std::vector<system_face> found;
    {
        std::lock_guard guard(process_lock());
        std::unique_ptr<FcPattern, decltype(&FcPatternDestroy)> pattern(FcPatternCreate(), &FcPatternDestroy);
        FcPatternAddString(pattern.get(), FC_FAMILY, reinterpret_cast<FcChar8 const*>(family.c_str()));
        std::unique_ptr<FcObjectSet, decltype(&FcObjectSetDestroy)> objects(
            FcObjectSetBuild(FC_FILE, FC_INDEX, FC_SLANT, FC_WEIGHT, FC_WIDTH, FC_FONTFORMAT, nullptr),
            &FcObjectSetDestroy);
        std::unique_ptr<FcFontSet, decltype(&FcFontSetDestroy)> set(
            FcFontList(nullptr, pattern.get(), objects.get()), &FcFontSetDestroy);
        for (int i = 0; set && i < set->nfont; ++i) {
            FcPattern* p = set->fonts[i];
            FcChar8* format = nullptr;
            FcChar8* file = nullptr;
            if (FcPatternGetString(p, FC_FONTFORMAT, 0, &format) != FcResultMatch ||
                FcPatternGetString(p, FC_FILE, 0, &file) != FcResultMatch) {
                continue;
            }
            std::string const fmt = reinterpret_cast<char const*>(format);
            // Type 1, bitmap and other formats are left out: only sfnt fonts can be read and embedded.
            if (fmt != "TrueType" && fmt != "CFF") {
                continue;
            }
            int index = 0;
            int slant = 0;
            int weight = FC_WEIGHT_REGULAR;
            int width = FC_WIDTH_NORMAL;
            FcPatternGetInteger(p, FC_INDEX, 0, &index);
            FcPatternGetInteger(p, FC_SLANT, 0, &slant);
            FcPatternGetInteger(p, FC_WEIGHT, 0, &weight);
            FcPatternGetInteger(p, FC_WIDTH, 0, &width);
            found.push_back({.face_file = reinterpret_cast<char const*>(file),
                             .face_index = index,
                             .face_desc = desc_from_fontconfig(slant, weight, width)});
        }
    }
    log::log_debug(log, "font scan: " + family + ", " + std::to_string(found.size()) + " matches");
    return found;
}

} // namespace vellum::fonts::font_system
