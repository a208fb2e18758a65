#include "prepack/prepack.hpp"

namespace vellum::prepack {

// These records hold lists of blocks or spans, which are complete only here.
bool nested_span::operator==(nested_span const&) const = default;
bool inline_footnote::operator==(inline_footnote const&) const = default;
bool list_item::operator==(list_item const&) const = default;
bool blocks_with_column::operator==(blocks_with_column const&) const = default;
bool table_anony_box::operator==(table_anony_box const&) const = default;
bool computed_table_anony_box::operator==(computed_table_anony_box const&) const = default;
bool bcontent_blocks::operator==(bcontent_blocks const&) const = default;

} // namespace vellum::prepack
