// ICC profiles: the header fields that decide whether a profile embedded in an image, or named for an
// output intent, can stand as a colour space, and the profile's description.
#pragma once

#include "util/bytes.hpp"
#include "util/result.hpp"

#include <cstdint>
#include <span>
#include <string>

namespace vellum::icc {

enum class device_class { class_mntr, class_prtr };

enum class color_space {
    color_space_xyz,
    color_space_lab,
    color_space_luv,
    color_space_ycbcr,
    color_space_yxy,
    color_space_rgb,
    color_space_gray,
    color_space_hsv,
    color_space_hls,
    color_space_cmyk,
    color_space_cmy,
    /// Two to fifteen colourants ("2CLR" to "FCLR"); the count is in `icc_components`.
    color_space_ncolor,
};

struct icc_info {
    icc::device_class icc_device_class = device_class::class_mntr;
    icc::color_space icc_color_space = color_space::color_space_rgb;
    /// The number of colour components of the space.
    int icc_components = 3;
    /// The text of the description tag; empty when the profile has none that can be read.
    std::string icc_desc;
    bool operator==(icc_info const&) const = default;
};

/// Reads a profile's header (version, device class, colour space, signature) and its description.
[[nodiscard]] result<icc_info> read_icc(std::span<std::uint8_t const> profile);

/// Checks a profile against the number of components of the image it is meant for.
[[nodiscard]] result<icc_info> parse_icc(bytes::bytes const& profile, int expected_components);

/// A four-byte field as "0x" and eight upper-case hexadecimal digits, as the messages show it.
std::string hex_field(std::uint32_t v);

} // namespace vellum::icc
