// The script of a code point, among the scripts that fonts are shaped for, with its ISO 15924 tag.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace vellum::unicode::script {

/// The 78 scripts by their lower-case ISO 15924 tags; `qaai` stands for inherited (marks that take
/// the script of their base), `zyyy` for common characters and `zzzz` for unknown ones.
enum class script : std::uint8_t {
    arab,
    armn,
    bali,
    beng,
    bopo,
    brai,
    bugi,
    buhd,
    cans,
    cari,
    cher,
    cham,
    copt,
    cprt,
    cyrl,
    deva,
    dsrt,
    ethi,
    geor,
    glag,
    goth,
    grek,
    gujr,
    guru,
    hang,
    hani,
    hano,
    hebr,
    hira,
    ital,
    kali,
    kana,
    khar,
    khmr,
    knda,
    laoo,
    latn,
    lepc,
    limb,
    linb,
    lyci,
    lydi,
    mlym,
    mong,
    mymr,
    nkoo,
    ogam,
    olck,
    orya,
    osma,
    phag,
    phnx,
    qaai,
    rjng,
    runr,
    saur,
    shaw,
    sinh,
    sund,
    sylo,
    syrc,
    tagb,
    tale,
    talu,
    taml,
    telu,
    tfng,
    tglg,
    thaa,
    thai,
    tibt,
    ugar,
    vaii,
    xpeo,
    xsux,
    yiii,
    zyyy,
    zzzz,
};

/// The number of scripts.
inline constexpr int script_count = 78;

/// The script. Code points of scripts outside the 78 and unassigned ones are `zzzz`; above U+10FFFF too.
script script_of(char32_t cp);

/// The ISO 15924 tag as four lower-case bytes, as "latn".
std::string_view tag(script s);

/// The tag as an OpenType-style 32-bit value, the first byte in the high bits.
std::uint32_t tag_value(script s);

/// The script of a four-letter tag in any case, as "Latn"; nothing for an unknown tag.
[[nodiscard]] std::optional<script> from_tag(std::string_view tag);

} // namespace vellum::unicode::script
