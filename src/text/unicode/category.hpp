// The general category of a code point, from the compiled table.
#pragma once

#include <cstdint>

namespace vellum::unicode::category {

/// The thirty general categories, in the order of the compiled table.
enum class general_category : std::uint8_t {
    category_cc,
    category_cf,
    category_cn,
    category_co,
    category_cs,
    category_ll,
    category_lm,
    category_lo,
    category_lt,
    category_lu,
    category_mc,
    category_me,
    category_mn,
    category_nd,
    category_nl,
    category_no,
    category_pc,
    category_pd,
    category_pe,
    category_pf,
    category_pi,
    category_po,
    category_ps,
    category_sc,
    category_sk,
    category_sm,
    category_so,
    category_zl,
    category_zp,
    category_zs,
};

/// The number of general categories.
inline constexpr int category_count = 30;

/// The general category; unassigned code points and those above U+10FFFF are Cn.
general_category category_of(char32_t cp);

/// The two-letter name of a category, as "Lu".
char const* category_name(general_category c);

} // namespace vellum::unicode::category
