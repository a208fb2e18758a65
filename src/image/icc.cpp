#include "image/icc.hpp"

#include <array>
#include <cstdio>
#include <optional>
#include <utility>

namespace vellum::icc {

namespace {

std::uint32_t be32(std::span<std::uint8_t const> b, std::size_t at) {
    return (std::uint32_t(b[at]) << 24) | (std::uint32_t(b[at + 1]) << 16) | (std::uint32_t(b[at + 2]) << 8) |
           b[at + 3];
}

constexpr std::uint32_t tag(char const (&s)[5]) {
    return (std::uint32_t(std::uint8_t(s[0])) << 24) | (std::uint32_t(std::uint8_t(s[1])) << 16) |
           (std::uint32_t(std::uint8_t(s[2])) << 8) | std::uint8_t(s[3]);
}

// The colour spaces of the header with their component counts.
std::optional<std::pair<color_space, int>> space_of(std::uint32_t signature) {
    static constexpr std::array<std::tuple<std::uint32_t, color_space, int>, 11> spaces{{
        {tag("XYZ "), color_space::color_space_xyz, 3},
        {tag("Lab "), color_space::color_space_lab, 3},
        {tag("Luv "), color_space::color_space_luv, 3},
        {tag("YCbr"), color_space::color_space_ycbcr, 3},
        {tag("Yxy "), color_space::color_space_yxy, 3},
        {tag("RGB "), color_space::color_space_rgb, 3},
        {tag("GRAY"), color_space::color_space_gray, 1},
        {tag("HSV "), color_space::color_space_hsv, 3},
        {tag("HLS "), color_space::color_space_hls, 3},
        {tag("CMYK"), color_space::color_space_cmyk, 4},
        {tag("CMY "), color_space::color_space_cmy, 3},
    }};
    for (auto const& [sig, space, count] : spaces) {
        if (sig == signature) {
            return std::pair{space, count};
        }
    }
    // "2CLR" to "FCLR": the first character is the count in hexadecimal.
    if ((signature & 0x00FFFFFF) == (tag("xCLR") & 0x00FFFFFF)) {
        char const c = static_cast<char>(signature >> 24);
        int const n = c >= '2' && c <= '9' ? c - '0' : c >= 'A' && c <= 'F' ? c - 'A' + 10 : 0;
        if (n >= 2) {
            return std::pair{color_space::color_space_ncolor, n};
        }
    }
    return std::nullopt;
}

// The text of a description tag: an ASCII text in the textDescriptionType of version 2 profiles, or
// the first record of the UTF-16 multi-localised text of version 4.
std::optional<std::string> description_text(std::span<std::uint8_t const> desc) {
    if (desc.size() < 12) {
        return std::nullopt;
    }
    std::string out;
    if (be32(desc, 0) == tag("desc")) {
        std::size_t const count = be32(desc, 8);
        if (count > desc.size() - 12) {
            return std::nullopt;
        }
        for (std::size_t i = 0; i < count && desc[12 + i] != 0; ++i) {
            out.push_back(static_cast<char>(desc[12 + i]));
        }
        return out;
    }
    if (be32(desc, 0) == tag("mluc") && desc.size() >= 28 && be32(desc, 8) > 0) {
        std::size_t const length = be32(desc, 20);
        std::size_t const offset = be32(desc, 24);
        if (offset > desc.size() || length > desc.size() - offset) {
            return std::nullopt;
        }
        for (std::size_t i = 0; i + 1 < length; i += 2) {
            char32_t const unit = char32_t(desc[offset + i]) << 8 | desc[offset + i + 1];
            // The description names a device or a printing condition; beyond ASCII it is kept as "?".
            out.push_back(unit < 0x80 ? static_cast<char>(unit) : '?');
        }
        return out;
    }
    return std::nullopt;
}

} // namespace

std::string hex_field(std::uint32_t v) {
    char text[12];
    std::snprintf(text, sizeof text, "%08X", v);
    return std::string("0x") + text;
}

result<icc_info> read_icc(std::span<std::uint8_t const> b) {
    if (b.size() < 132) {
        return fail("ICC profile is too short");
    }
    // Major version 2 or 4 in the first byte of the version field.
    auto const version = be32(b, 8);
    if ((version >> 24) != 2 && (version >> 24) != 4) {
        return fail("ICC profile unknown version: " + hex_field(version));
    }
    if (be32(b, 36) != tag("acsp")) {
        return fail("ICC profile invalid signature field: " + hex_field(be32(b, 36)));
    }
    icc_info info;
    auto const cls = be32(b, 12);
    if (cls == tag("mntr")) {
        info.icc_device_class = device_class::class_mntr;
    } else if (cls == tag("prtr")) {
        info.icc_device_class = device_class::class_prtr;
    } else {
        return fail("ICC profile unknown device class: " + hex_field(cls));
    }
    auto const space = space_of(be32(b, 16));
    if (!space) {
        return fail("ICC profile unknown color space: " + hex_field(be32(b, 16)));
    }
    info.icc_color_space = space->first;
    info.icc_components = space->second;
    std::size_t const tags = be32(b, 128);
    for (std::size_t i = 0; i < tags && 132 + 12 * (i + 1) <= b.size(); ++i) {
        std::size_t const at = 132 + 12 * i;
        if (be32(b, at) != tag("desc")) {
            continue;
        }
        std::size_t const offset = be32(b, at + 4);
        std::size_t const size = be32(b, at + 8);
        if (offset > b.size() || size > b.size() - offset) {
            return fail("ICC profile description lies outside the profile");
        }
        if (auto text = description_text(b.subspan(offset, size))) {
            info.icc_desc = std::move(*text);
        }
        break;
    }
    return info;
}

result<icc_info> parse_icc(bytes::bytes const& profile, int expected_components) {
    auto info = read_icc(profile.view());
    if (!info) {
        return info;
    }
    if (info->icc_components != expected_components) {
        return fail("ICC profile has " + std::to_string(info->icc_components) + " components but expected " +
                    std::to_string(expected_components));
    }
    return info;
}

} // namespace vellum::icc
