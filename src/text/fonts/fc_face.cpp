#include "text/fonts/fc_face.hpp"

#include <string>

namespace vellum::fonts::fc_face {

std::optional<font_system::system_face> sfnt_face_of(FcPattern* p) {
    FcChar8* format = nullptr;
    FcChar8* file = nullptr;
    if (FcPatternGetString(p, FC_FONTFORMAT, 0, &format) != FcResultMatch ||
        FcPatternGetString(p, FC_FILE, 0, &file) != FcResultMatch) {
        return std::nullopt;
    }
    std::string const fmt = reinterpret_cast<char const*>(format);
    if (fmt != "TrueType" && fmt != "CFF") {
        return std::nullopt;
    }
    int index = 0;
    int slant = 0;
    int weight = FC_WEIGHT_REGULAR;
    int width = FC_WIDTH_NORMAL;
    FcPatternGetInteger(p, FC_INDEX, 0, &index);
    FcPatternGetInteger(p, FC_SLANT, 0, &slant);
    FcPatternGetInteger(p, FC_WEIGHT, 0, &weight);
    FcPatternGetInteger(p, FC_WIDTH, 0, &width);
    return font_system::system_face{.face_file = reinterpret_cast<char const*>(file),
                                    .face_index = index,
                                    .face_desc = font_system::desc_from_fontconfig(slant, weight, width)};
}

} // namespace vellum::fonts::fc_face
