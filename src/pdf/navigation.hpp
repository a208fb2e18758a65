// What a PDF offers besides its pages for getting around: destinations (a page and how to show it, or a
// name), actions (a web address, a place in another file), the outline tree of bookmarks, and link
// annotations.
#pragma once

#include "pdf/object.hpp"
#include "pdf/pdf.hpp"

#include <functional>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace vellum::pdf::dest {

struct fit {
    bool operator==(fit const&) const = default;
};
struct fit_width {
    number top;
    bool operator==(fit_width const&) const = default;
};
struct fit_height {
    number left;
    bool operator==(fit_height const&) const = default;
};
struct fit_rect {
    common::rect area;
    bool operator==(fit_rect const&) const = default;
};
struct fit_bbox {
    bool operator==(fit_bbox const&) const = default;
};
struct fit_bbox_width {
    number top;
    bool operator==(fit_bbox_width const&) const = default;
};
struct fit_bbox_height {
    number left;
    bool operator==(fit_bbox_height const&) const = default;
};
/// A point on the page at the top left of the window; absent values keep the viewer's.
struct xyz {
    std::optional<number> left;
    std::optional<number> top;
    std::optional<number> zoom;
    bool operator==(xyz const&) const = default;
};

using dest_align = std::variant<fit, fit_width, fit_height, fit_rect, fit_bbox, fit_bbox_width, fit_bbox_height, xyz>;

struct named_dest {
    std::string dest_name;
    bool operator==(named_dest const&) const = default;
};
/// A page by its number, from 1, and how to show it.
struct explicit_dest {
    int dest_page = 1;
    dest_align align = fit{};
    bool operator==(explicit_dest const&) const = default;
};

using dest = std::variant<named_dest, explicit_dest>;

/// The page object of a page number, if there is such a page.
using page_refs = std::function<std::optional<ref>(int page_number)>;

/// The destination as a PDF value; a page that does not exist is an internal error.
object dest_object(dest const& d, page_refs const& pages);

/// The /XYZ destination of a point on a page, its y rounded to the nearest whole number.
explicit_dest target_position(int page, double x, double y);

/// The name tree array of named destinations, sorted by name.
array named_destinations(std::vector<std::pair<std::string, dest>> dests, page_refs const& pages);

} // namespace vellum::pdf::dest

namespace vellum::pdf::action {

struct uri {
    std::string uri_text;
    bool operator==(uri const&) const = default;
};
struct goto_remote {
    std::string remote_filename;
    dest::dest remote_dest;
    bool operator==(goto_remote const&) const = default;
};

using action = std::variant<uri, goto_remote>;

dict action_dict(action const& a, dest::page_refs const& pages);

} // namespace vellum::pdf::action

namespace vellum::pdf::outlines {

struct dest_target {
    dest::dest target;
};
struct action_target {
    action::action target;
};
struct no_target {};

using outline_action = std::variant<dest_target, action_target, no_target>;

enum class outline_state { open, closed };

struct outline {
    std::string title;
    outline_action target = no_target{};
    outline_state state = outline_state::open;
    std::vector<outline> children;
};

/// Writes the outline tree and gives the number of its root; nothing when there are no items.
std::optional<ref> write_outlines(writer& w, std::vector<outline> const& items, dest::page_refs const& pages);

/// Writes a non-empty outline tree under a root number reserved before.
void write_outlines_at(writer& w, ref root, std::vector<outline> const& items, dest::page_refs const& pages);

} // namespace vellum::pdf::outlines

namespace vellum::pdf::annot {

enum class border_style { solid, dashed, beveled, inset, underline };

struct annot_border {
    double width = 1;
    annot::border_style style = border_style::solid;
};

enum class annot_highlight { highlight_none, highlight_invert, highlight_outline, highlight_push };

struct link_dest {
    dest::dest target;
    std::optional<annot_highlight> highlight;
};
struct link_action {
    action::action target;
    std::optional<annot_highlight> highlight;
};

using annot_subtype = std::variant<link_dest, link_action>;

struct annot {
    common::rect rect;
    std::optional<annot_border> border;
    annot_subtype subtype;
    std::optional<ref> appearance;
};

/// The annotation dictionary.
dict annot_dict(annot const& a, dest::page_refs const& pages);

} // namespace vellum::pdf::annot
