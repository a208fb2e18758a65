#include "image/icc.hpp"

#include <cstdio>

namespace vellum::icc {

namespace {

std::uint32_t be32(std::span<std::uint8_t const> b, std::size_t at) {
    return (std::uint32_t(b[at]) << 24) | (std::uint32_t(b[at + 1]) << 16) | (std::uint32_t(b[at + 2]) << 8) | b[at + 3];
}

std::string hex(std::uint32_t v) {
    char text[16];
    std::snprintf(text, sizeof text, "%x", v);
    return text;
}

constexpr std::uint32_t tag(char const (&s)[5]) {
    return (std::uint32_t(std::uint8_t(s[0])) << 24) | (std::uint32_t(std::uint8_t(s[1])) << 16) |
           (std::uint32_t(std::uint8_t(s[2])) << 8) | std::uint8_t(s[3]);
}

} // namespace

result<icc_info> parse_icc(bytes::bytes const& profile, int expected_components) {
    auto const b = profile.view();
    if (b.size() < 128) {
        return fail("ICC profile too short");
    }
    // Major version 2 or 4 in the first byte of the version field.
    auto const version = be32(b, 8);
    if ((version >> 24) != 2 && (version >> 24) != 4) {
        return fail("ICC profile unknown version: 0x" + hex(version));
    }
    if (be32(b, 36) != tag("acsp")) {
        return fail("ICC profile invalid signature field: 0x" + hex(be32(b, 36)));
    }
    icc_info info;
    auto const cls = be32(b, 12);
    if (cls == tag("mntr")) {
        info.icc_device_class = device_class::class_mntr;
    } else if (cls == tag("prtr")) {
        info.icc_device_class = device_class::class_prtr;
    } else if (cls == tag("scnr")) {
        info.icc_device_class = device_class::class_scnr;
    } else if (cls == tag("spac")) {
        info.icc_device_class = device_class::class_spac;
    } else {
        return fail("ICC profile unknown device class: 0x" + hex(cls));
    }
    auto const space = be32(b, 16);
    if (space == tag("RGB ")) {
        info.icc_color_space = color_space::color_space_rgb;
        info.icc_components = 3;
    } else if (space == tag("GRAY")) {
        info.icc_color_space = color_space::color_space_gray;
        info.icc_components = 1;
    } else if (space == tag("CMYK")) {
        info.icc_color_space = color_space::color_space_cmyk;
        info.icc_components = 4;
    } else if (space == tag("Lab ")) {
        info.icc_color_space = color_space::color_space_lab;
        info.icc_components = 3;
    } else if (space == tag("XYZ ")) {
        info.icc_color_space = color_space::color_space_xyz;
        info.icc_components = 3;
    } else {
        return fail("ICC profile unknown color space: 0x" + hex(space));
    }
    if (info.icc_components != expected_components) {
        return fail("ICC profile has " + std::to_string(info.icc_components) + " components but expected " +
                    std::to_string(expected_components));
    }
    return info;
}

} // namespace vellum::icc
