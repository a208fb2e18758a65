// ICC profiles: the header fields that decide whether a profile embedded in an image can stand as the
// image's colour space.
#pragma once

#include "util/bytes.hpp"
#include "util/result.hpp"

#include <string>

namespace vellum::icc {

enum class device_class { class_mntr, class_prtr, class_scnr, class_spac };

enum class color_space { color_space_xyz, color_space_lab, color_space_rgb, color_space_gray, color_space_cmyk, color_space_other };

struct icc_info {
    icc::device_class icc_device_class = device_class::class_mntr;
    icc::color_space icc_color_space = color_space::color_space_rgb;
    /// The number of colour components of the space.
    int icc_components = 3;
    bool operator==(icc_info const&) const = default;
};

/// Checks a profile's header against the number of components of the image it is meant for.
[[nodiscard]] result<icc_info> parse_icc(bytes::bytes const& profile, int expected_components);

} // namespace vellum::icc
