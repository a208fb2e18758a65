#include "text/fonts/freetype.hpp"

#include <ft2build.h>
#include FT_FREETYPE_H
#include FT_TRUETYPE_TABLES_H

#include <vector>

namespace vellum::fonts::freetype {

namespace {

std::string error_text(char const* what, FT_Error e) {
    return std::string(what) + " (FreeType error " + std::to_string(int(e)) + ")";
}

// Faces close before their library: each face's deleter holds on to the library.
result<face> wrap_face(freetype const& ft, FT_Face raw, bytes::bytes memory) {
    auto lib = ft.freetype_library;
    return face{.face_handle = std::shared_ptr<FT_FaceRec_>(raw, [lib](FT_Face f) { FT_Done_Face(f); }),
                .face_memory = std::move(memory)};
}

} // namespace

result<freetype> new_freetype() {
    FT_Library lib = nullptr;
    if (auto e = FT_Init_FreeType(&lib)) {
        return fail(error_text("could not start the font library", e));
    }
    return freetype{.freetype_library = std::shared_ptr<FT_LibraryRec_>(lib, [](FT_Library l) { FT_Done_FreeType(l); })};
}

result<face> open_memory(freetype const& ft, bytes::bytes const& data, long index) {
    FT_Face raw = nullptr;
    auto const view = data.view();
    if (auto e = FT_New_Memory_Face(ft.freetype_library.get(), view.data(), FT_Long(view.size()), FT_Long(index), &raw)) {
        return fail(error_text("could not open font", e));
    }
    return wrap_face(ft, raw, data);
}

result<face> open_file(freetype const& ft, std::string const& path, long index) {
    FT_Face raw = nullptr;
    if (auto e = FT_New_Face(ft.freetype_library.get(), path.c_str(), FT_Long(index), &raw)) {
        return fail(error_text("could not open font", e));
    }
    return wrap_face(ft, raw, {});
}

std::optional<bytes::bytes> load_table(face const& f, opentype::reader::tag t) {
    FT_ULong length = 0;
    if (FT_Load_Sfnt_Table(f.face_handle.get(), t, 0, nullptr, &length) != 0) {
        return std::nullopt;
    }
    std::vector<std::uint8_t> buf(length);
    if (length > 0 && FT_Load_Sfnt_Table(f.face_handle.get(), t, 0, buf.data(), &length) != 0) {
        return std::nullopt;
    }
    return bytes::from_vector(std::move(buf));
}

std::optional<std::string> postscript_name(face const& f) {
    char const* n = FT_Get_Postscript_Name(f.face_handle.get());
    if (!n) {
        return std::nullopt;
    }
    return std::string(n);
}

long face_count(face const& f) {
    return f.face_handle->num_faces;
}

std::uint32_t char_index(face const& f, char32_t c) {
    return FT_Get_Char_Index(f.face_handle.get(), FT_ULong(c));
}

result<long> unscaled_advance(face const& f, std::uint32_t glyph) {
    if (auto e = FT_Load_Glyph(f.face_handle.get(), glyph, FT_LOAD_NO_SCALE | FT_LOAD_NO_HINTING)) {
        return fail(error_text("could not load glyph", e));
    }
    return long(f.face_handle->glyph->metrics.horiAdvance);
}

} // namespace vellum::fonts::freetype
