// What a font's licence bits (the fsType field of OS/2) allow: embedding at all, subsetting, and
// embedding of outlines rather than bitmaps only.
#pragma once

#include <cstdint>
#include <string>
#include <variant>

namespace vellum::truetype::embedding {

/// How far an embedded font may be used by the reader of the document.
enum class embed_type { embed_restricted, embed_print_preview, embed_editing, embed_unrestricted };

enum class subset_type { may_subset, may_not_subset };

enum class embed_outlines_type { may_embed_outlines, may_not_embed_outlines };

/// Permissions read from well-formed bits.
struct permissions {
    embed_type permissions_embed = embed_type::embed_unrestricted;
    subset_type permissions_subset = subset_type::may_subset;
    embed_outlines_type permissions_outlines = embed_outlines_type::may_embed_outlines;
    bool operator==(permissions const&) const = default;
};

/// Bits outside the defined ones, kept as they were.
struct bogus {
    std::uint16_t bogus_bits = 0;
    bool operator==(bogus const&) const = default;
};

/// The embedding bits of a font; the default is what a font without OS/2 table gets.
using embedding = std::variant<permissions, bogus>;

/// Reads fsType. Any bit but 0x0002, 0x0004, 0x0008, 0x0100 and 0x0200 makes the value bogus; of the
/// usage bits the most permissive one wins.
embedding parse_embedding(std::uint16_t fs_type);

/// The verdict on embedding a font.
enum class verdict { accepted, refused };

/// Whether a font may be embedded: restricted fonts and fonts that only allow bitmaps are refused; of
/// bogus values only 1 (an old way of writing "installable") is accepted.
verdict embedding_verdict(embedding const& e);

/// A short description for messages, as "editable, may subset".
std::string describe(embedding const& e);

} // namespace vellum::truetype::embedding
