// Cutting a CFF font program down to the glyphs a document uses. The result keys its glyphs as the source
// does: a CID-keyed font becomes one whose glyph number and CID are one and the same, a name-keyed font
// keeps its glyph names. Either way the glyph number is the PDF character code of a CIDFontType0 font with
// Identity-H encoding (a name-keyed program there is read by glyph number).
#pragma once

#include "text/opentype/reader.hpp"
#include "util/result.hpp"

#include <cstdint>
#include <string>
#include <vector>

namespace vellum::cff_subset {

/// How much of the subroutines survived, for tests and the log.
struct subr_counts {
    std::size_t counts_global_kept = 0;
    std::size_t counts_local_kept = 0;
    /// Base and accent glyphs of accented characters added behind the glyphs asked for.
    std::size_t counts_accent_parts = 0;
    /// The subroutines could not be followed and were all kept; why, for the log.
    bool counts_all_kept = false;
    std::string counts_unfollowed;
};

struct subset {
    std::vector<std::uint8_t> subset_bytes;
    subr_counts subset_subrs;
    /// The source glyphs of the subset in their new order: those asked for, then the parts of accented
    /// characters among them.
    std::vector<std::uint32_t> subset_glyphs;
};

/// Makes the subset of the glyphs given by source number, in their new order; the first must be glyph 0.
/// Only the subroutines that the kept glyphs reach stay, numbered anew, and the calls in the charstrings
/// are rewritten to match; if a glyph's calls cannot be followed, all subroutines and charstrings stay
/// as they are. Font DICTs that no kept glyph uses are dropped. Fails on a malformed font, a glyph
/// number outside it, or an accented character whose parts the font lacks.
[[nodiscard]] result<subset> make_cff_subset(opentype::reader::data cff, std::vector<std::uint32_t> const& asked);

} // namespace vellum::cff_subset
