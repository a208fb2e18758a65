// Sharing a width out among columns that each have a minimum, a preferred maximum and perhaps a
// declared width: the columns of an automatic table layout, and the rows of margin boxes.
#pragma once

#include "css/box.hpp"

#include <vector>

namespace vellum::pack::distribute {

/// One column being sized.
struct column {
    /// The declared width: auto, a length in points, or a percentage of the whole width.
    css::box::width column_specw = css::box::auto_value{};
    /// The narrowest the content allows.
    float column_minw = 0;
    /// The width the content takes when nothing wraps.
    float column_maxw = 0;
    /// The width given.
    float column_usedw = 0;
    /// Whether the width is settled and takes no further share.
    bool column_final = false;
    bool operator==(column const&) const = default;
};

/// Gives every column its used width out of `width`. No column gets less than its minimum; when the
/// minimums alone need the width or more, they are what the columns get. Otherwise percentage columns
/// are served first, then those of a length, then the automatic ones, each kind in proportion to what
/// it asks for, and a column that would fall below its minimum is held at it while the others share
/// what remains.
std::vector<column> distribute(std::vector<column> columns, float width);

} // namespace vellum::pack::distribute
