// Walking Type 2 charstrings (the glyph programs of CFF fonts) to find the subroutines a glyph calls,
// directly or through other subroutines. Only the operand stack and the hint count are followed; no
// outline is drawn.
#pragma once

#include "text/opentype/cff.hpp"
#include "text/opentype/reader.hpp"
#include "util/result.hpp"

#include <vector>

namespace vellum::opentype::charstring {

/// What the walk of one glyph found besides its subroutines.
struct walk_outcome {
    /// The glyph ends with the four-argument endchar that builds an accented character from two
    /// glyphs of the standard encoding.
    bool outcome_accented = false;
};

/// Walks one glyph's charstring and marks the subroutines that it calls: one flag per entry of the global
/// and of the local INDEX, sized to them. Fails on a charstring the walk cannot follow: a subroutine number that is not a plain
/// number or lies outside its INDEX, nesting deeper than the format allows, more calls than any real
/// glyph makes, or the arithmetic operators (which could compute a subroutine number).
[[nodiscard]] result<walk_outcome> mark_subrs(reader::data charstring,
                                              cff::index const& global_subrs,
                                              cff::index const& local_subrs,
                                              std::vector<bool>& global_marks,
                                              std::vector<bool>& local_marks);

} // namespace vellum::opentype::charstring
