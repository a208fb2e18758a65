// OpenType language system tags for the languages of documents: a BCP 47 language tag ("sr",
// "zh-Hant-TW", "de-CH") becomes the tag under which fonts file their language-specific forms ("SRB ").
#pragma once

#include "text/opentype/reader.hpp"

#include <optional>
#include <string_view>

namespace vellum::opentype::language {

/// The language system tag for a BCP 47 tag, compared without regard to case; nothing for a language
/// that fonts have no tag for, or an empty tag. Chinese is told apart by script and region: Traditional
/// ("zh-Hant", Taiwan, Macao) is "ZHT ", Hong Kong "ZHH ", anything else "ZHS ".
[[nodiscard]] std::optional<reader::tag> language_system_tag(std::string_view bcp47);

/// The regional kind of East Asian glyphs a language asks for, as the faces of pan-CJK font families are
/// named: "JP", "KR", "SC", "TC", "HK"; nothing for other languages.
[[nodiscard]] std::optional<std::string_view> cjk_region(std::string_view bcp47);

} // namespace vellum::opentype::language
