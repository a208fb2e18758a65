// The one wrapper around FreeType: it opens font files and faces and hands out their sfnt tables by
// tag. Metrics are read from those tables elsewhere, not from FreeType's scaled values.
#pragma once

#include "text/opentype/reader.hpp"
#include "util/bytes.hpp"
#include "util/result.hpp"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

struct FT_LibraryRec_;
struct FT_FaceRec_;

namespace vellum::fonts::freetype {

/// The FreeType library handle of a run.
struct freetype {
    std::shared_ptr<FT_LibraryRec_> freetype_library;
};

/// Starts FreeType; fails with FreeType's error number.
[[nodiscard]] result<freetype> new_freetype();

/// An open face; it keeps the library and the memory it was opened from alive.
struct face {
    std::shared_ptr<FT_FaceRec_> face_handle;
    bytes::bytes face_memory;
};

/// Opens face `index` of a font file held in memory.
[[nodiscard]] result<face> open_memory(freetype const& ft, bytes::bytes const& data, long index);

/// Opens face `index` of a font file by path.
[[nodiscard]] result<face> open_file(freetype const& ft, std::string const& path, long index);

/// The raw bytes of an sfnt table, or nothing if the face has no such table.
[[nodiscard]] std::optional<bytes::bytes> load_table(face const& f, opentype::reader::tag t);

/// The PostScript name, if the face has one.
[[nodiscard]] std::optional<std::string> postscript_name(face const& f);

/// How many faces the file holds (more than one for a collection).
long face_count(face const& f);

/// FreeType's own glyph for a character in the face's selected Unicode charmap (0 for none).
std::uint32_t char_index(face const& f, char32_t c);

/// FreeType's own unscaled horizontal advance of a glyph, in font units.
[[nodiscard]] result<long> unscaled_advance(face const& f, std::uint32_t glyph);

} // namespace vellum::fonts::freetype
