// Collapsing vertical margins. Adjoining margins (a block's top margin and its first child's, a
// block's bottom margin and the next sibling's top, the margins of an empty block) form one run;
// the run's space is the largest positive margin plus the most negative one, and it is taken from
// the area only when content (a line, a border, padding) arrives below it.
#pragma once

#include "pack/areas.hpp"

#include <optional>
#include <variant>

namespace vellum::pack::margin_collapsing {

/// At the top of a page that continues a section: every margin met before content is swallowed.
struct margin_eater {
    bool operator==(margin_eater const&) const = default;
};

/// A run of adjoining margins: the largest positive one, the most negative one, and the space that
/// has been taken from the area for the run already.
struct normal {
    float positive = 0;
    float negative = 0;
    std::optional<float> committed;
    /// A block with clearance stands in the run: the margins after it collapse with each other but not
    /// with the bottom margin of the block around them, which takes the run inside its height.
    bool after_clearance = false;
    bool operator==(normal const&) const = default;
};

using gap = std::variant<margin_eater, normal>;

/// The gap with one more margin in its run.
gap add_margin(gap const& g, float margin);

/// The space the run stands for.
float value_of(gap const& g);

/// Whether a block with clearance stands in the run.
bool after_clearance(gap const& g);

/// The areas with their top moved down by `h` (up, if negative).
areas::areas moved_down(areas::areas a, float h);

/// The gap's space taken from the areas: what the run wants, less what it has taken already.
struct committed_gap {
    areas::areas commit_areas;
    margin_collapsing::gap commit_gap;
};

committed_gap commit(gap const& g, areas::areas a);

/// A new run that starts below committed content.
inline gap fresh() {
    return normal{};
}

} // namespace vellum::pack::margin_collapsing
