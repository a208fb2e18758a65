#include "text/unicode/tables.hpp"

namespace vellum::unicode::tables {

namespace {
#include "text/unicode_tables.inc"
} // namespace

char const* const version = unicode_version;

two_stage const category{category_stage1, category_stage2};
two_stage const bidi{bidi_stage1, bidi_stage2};
two_stage const joining{joining_stage1, joining_stage2};
two_stage const script{script_stage1, script_stage2};
two_stage const grapheme{grapheme_stage1, grapheme_stage2};
two_stage const line_break{line_break_stage1, line_break_stage2};
two_stage const vertical{vertical_stage1, vertical_stage2};
delta_map const lower{{lower_stage1, lower_stage2}, lower_deltas};
delta_map const upper{{upper_stage1, upper_stage2}, upper_deltas};
delta_map const mirror{{mirror_stage1, mirror_stage2}, mirror_deltas};

} // namespace vellum::unicode::tables
