#include "text/truetype/embedding.hpp"

#include "util/ref.hpp"

#include <cstdio>

namespace vellum::truetype::embedding {

namespace {

constexpr std::uint16_t restricted_bit = 0x0002;
constexpr std::uint16_t print_preview_bit = 0x0004;
constexpr std::uint16_t editable_bit = 0x0008;
constexpr std::uint16_t no_subsetting_bit = 0x0100;
constexpr std::uint16_t bitmap_only_bit = 0x0200;
constexpr std::uint16_t known_bits =
    restricted_bit | print_preview_bit | editable_bit | no_subsetting_bit | bitmap_only_bit;

} // namespace

embedding parse_embedding(std::uint16_t fs_type) {
    if (fs_type & ~known_bits) {
        return bogus{fs_type};
    }
    permissions p;
    if (fs_type & editable_bit) {
        p.permissions_embed = embed_type::embed_editing;
    } else if (fs_type & print_preview_bit) {
        p.permissions_embed = embed_type::embed_print_preview;
    } else if (fs_type & restricted_bit) {
        p.permissions_embed = embed_type::embed_restricted;
    }
    if (fs_type & no_subsetting_bit) {
        p.permissions_subset = subset_type::may_not_subset;
    }
    if (fs_type & bitmap_only_bit) {
        p.permissions_outlines = embed_outlines_type::may_not_embed_outlines;
    }
    return p;
}

verdict embedding_verdict(embedding const& e) {
    return std::visit(overloaded{
                          [](permissions const& p) {
                              bool const refused =
                                  p.permissions_embed == embed_type::embed_restricted ||
                                  p.permissions_outlines == embed_outlines_type::may_not_embed_outlines;
                              return refused ? verdict::refused : verdict::accepted;
                          },
                          [](bogus const& b) { return b.bogus_bits == 1 ? verdict::accepted : verdict::refused; },
                      },
                      e);
}

std::string describe(embedding const& e) {
    return std::visit(overloaded{
                          [](permissions const& p) {
                              std::string s;
                              switch (p.permissions_embed) {
                              case embed_type::embed_restricted:
                                  s = "restricted";
                                  break;
                              case embed_type::embed_print_preview:
                                  s = "print and preview";
                                  break;
                              case embed_type::embed_editing:
                                  s = "editable";
                                  break;
                              case embed_type::embed_unrestricted:
                                  s = "installable";
                                  break;
                              }
                              if (p.permissions_subset == subset_type::may_not_subset) {
                                  s += ", no subsetting";
                              }
                              if (p.permissions_outlines == embed_outlines_type::may_not_embed_outlines) {
                                  s += ", bitmaps only";
                              }
                              return s;
                          },
                          [](bogus const& b) {
                              char buf[32];
                              std::snprintf(buf, sizeof buf, "invalid bits 0x%04x", unsigned(b.bogus_bits));
                              return std::string(buf);
                          },
                      },
                      e);
}

} // namespace vellum::truetype::embedding
