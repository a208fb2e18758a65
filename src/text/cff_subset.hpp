// Cutting a CFF font program down to the glyphs a document uses. The result is always a CID-keyed CFF
// font whose glyph number, CID and PDF character code are one and the same, so that it serves a PDF
// CIDFontType0 font with Identity-H encoding whichever way a viewer reads it.
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
    /// The subroutines could not be followed and were all kept; why, for the log.
    bool counts_all_kept = false;
    std::string counts_unfollowed;
};

struct subset {
    std::vector<std::uint8_t> subset_bytes;
    subr_counts subset_subrs;
};

/// Makes the subset of the glyphs given by source number, in their new order; the first must be glyph 0.
/// The charstrings are copied unchanged. Subroutines that no kept glyph reaches are emptied (their
/// numbers stay, so the calls in the charstrings stay right), and font DICTs that no kept glyph uses are
/// dropped. A font that is not CID-keyed becomes one, with a single font DICT holding its Private DICT.
/// Fails on a malformed font, a glyph number outside it, or a glyph built by the accented-character
/// form of endchar, whose parts are found by glyph name, which a CID-keyed font does not have.
[[nodiscard]] result<subset> make_cff_subset(opentype::reader::data cff, std::vector<std::uint32_t> const& glyphs);

} // namespace vellum::cff_subset
