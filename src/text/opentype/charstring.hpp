// Walking Type 2 charstrings (the glyph programs of CFF fonts) to find the subroutines a glyph calls,
// directly or through other subroutines. Only the operand stack and the hint count are followed; no
// outline is drawn.
#pragma once

#include "text/opentype/cff.hpp"
#include "text/opentype/reader.hpp"
#include "util/result.hpp"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace vellum::opentype::charstring {

/// A subroutine call met on the walk: where the number it takes is written, so that it can be rewritten
/// when the subroutines are renumbered, and which subroutine it reaches.
struct call_site {
    /// The start of the charstring (glyph or subroutine) that holds the number and the call.
    std::uint8_t const* site_code = nullptr;
    /// The number's bytes within that charstring.
    std::size_t site_at = 0;
    std::size_t site_size = 0;
    bool site_global = false;
    /// The subroutine's place in its INDEX.
    std::size_t site_target = 0;
    bool operator==(call_site const&) const = default;
};

/// The parts of an accented character built by the four-argument endchar: the standard-encoding codes
/// of its base and accent glyphs.
struct accent_parts {
    int parts_base = 0;
    int parts_accent = 0;
    bool operator==(accent_parts const&) const = default;
};

/// What the walk of one glyph found besides the subroutines it marked.
struct walk_outcome {
    /// The glyph ends with the endchar that builds an accented character from two other glyphs.
    std::optional<accent_parts> outcome_accented;
    /// Every call, in the order met; a subroutine called twice gives its calls twice.
    std::vector<call_site> outcome_calls;
    /// Why the calls cannot be renumbered, if they cannot: a number pushed in one charstring and
    /// called in another (a subroutine that returns a number) has no one place to rewrite.
    std::string outcome_not_renumberable;
};

/// Walks one glyph's charstring and marks the subroutines that it calls: one flag per entry of the global
/// and of the local INDEX, sized to them. Fails on a charstring the walk cannot follow: a subroutine
/// number that is not a plain number or lies outside its INDEX, nesting deeper than the format allows,
/// more calls than any real glyph makes, or the arithmetic operators (which could compute a subroutine
/// number).
[[nodiscard]] result<walk_outcome> mark_subrs(reader::data charstring,
                                              cff::index const& global_subrs,
                                              cff::index const& local_subrs,
                                              std::vector<bool>& global_marks,
                                              std::vector<bool>& local_marks);

/// A charstring integer in its shortest form.
void put_number(std::vector<std::uint8_t>& out, int v);

/// A charstring with the numbers of its calls replaced: each pair is the offset of a number's bytes, their
/// count, and the new value. The pairs must be in ascending order and not overlap.
struct rewrite {
    std::size_t rewrite_at = 0;
    std::size_t rewrite_size = 0;
    int rewrite_value = 0;
    bool operator==(rewrite const&) const = default;
};
std::vector<std::uint8_t> rewritten(reader::data code, std::vector<rewrite> const& rewrites);

} // namespace vellum::opentype::charstring
