#include "text/fonts/font_system.hpp"

#include "text/fonts/fc_face.hpp"
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
            if (auto face = fc_face::sfnt_face_of(set->fonts[i])) {
                found.push_back(std::move(*face));
            }
        }
    }
    log::log_debug(log, "font scan: " + family + ", " + std::to_string(found.size()) + " matches");
    return found;
}

} // namespace vellum::fonts::font_system
