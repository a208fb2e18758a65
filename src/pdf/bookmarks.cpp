#include "pdf/bookmarks.hpp"

namespace vellum::pdf::bookmarks {

std::vector<outlines::outline> outline_of(std::vector<pack::packed_bookmark> const& flat) {
    std::vector<outlines::outline> top;
    // The open entries from the top down, with their levels; each is the last child of the one before.
    std::vector<std::pair<int, outlines::outline*>> open;
    for (auto const& b : flat) {
        while (!open.empty() && open.back().first >= b.bookmark_level) {
            open.pop_back();
        }
        auto& siblings = open.empty() ? top : open.back().second->children;
        outlines::outline_action target =
            outlines::dest_target{dest::target_position(b.bookmark_page, b.bookmark_x, b.bookmark_y)};
        if (b.bookmark_url) {
            target = outlines::action_target{action::uri{*b.bookmark_url}};
        }
        siblings.push_back(outlines::outline{
            .title = b.bookmark_label,
            .target = std::move(target),
            .state = b.bookmark_state == css::box::bookmark_state::closed ? outlines::outline_state::closed
                                                                         : outlines::outline_state::open,
            .children = {},
        });
        // Pointers into `siblings` stay valid: only the last entry's children grow from here on.
        open.emplace_back(b.bookmark_level, &siblings.back());
    }
    return top;
}

} // namespace vellum::pdf::bookmarks
