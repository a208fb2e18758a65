#include "pdf/navigation.hpp"

#include "util/ref.hpp"

#include <algorithm>
#include <cmath>

namespace vellum::pdf::dest {

namespace {

object optional_number(std::optional<number> const& n) { return n ? from_number(*n) : object{null{}}; }

} // namespace

object dest_object(dest const& d, page_refs const& pages) {
    return std::visit(
        overloaded{
            [](named_dest const& n) -> object { return string{n.dest_name}; },
            [&](explicit_dest const& e) -> object {
                auto const page = pages(e.dest_page);
                if (!page) {
                    throw internal_error("no page ref for page number " + std::to_string(e.dest_page));
                }
                array out{{*page}};
                auto add = [&](char const* kind, std::initializer_list<object> numbers) {
                    out.array_items.push_back(name{kind});
                    for (auto const& n : numbers) {
                        out.array_items.push_back(n);
                    }
                };
                std::visit(overloaded{
                               [&](fit const&) { add("Fit", {}); },
                               [&](fit_width const& f) { add("FitH", {from_number(f.top)}); },
                               [&](fit_height const& f) { add("FitV", {from_number(f.left)}); },
                               [&](fit_rect const& f) {
                                   add("FitR", {from_number(f.area.left), from_number(f.area.bottom),
                                                from_number(f.area.right), from_number(f.area.top)});
                               },
                               [&](fit_bbox const&) { add("FitB", {}); },
                               [&](fit_bbox_width const& f) { add("FitBH", {from_number(f.top)}); },
                               [&](fit_bbox_height const& f) { add("FitBV", {from_number(f.left)}); },
                               [&](xyz const& f) {
                                   add("XYZ", {optional_number(f.left), optional_number(f.top),
                                               optional_number(f.zoom)});
                               },
                           },
                           e.align);
                return out;
            },
        },
        d);
}

explicit_dest target_position(int page, double x, double y) {
    return {.dest_page = page,
            .align = xyz{.left = number{x},
                         .top = number{static_cast<std::int64_t>(std::floor(y + 0.5))},
                         .zoom = std::nullopt}};
}

array named_destinations(std::vector<std::pair<std::string, dest>> dests, page_refs const& pages) {
    std::stable_sort(dests.begin(), dests.end(), [](auto const& a, auto const& b) { return a.first < b.first; });
    array out;
    for (auto const& [n, d] : dests) {
        out.array_items.push_back(string{n});
        out.array_items.push_back(dest_object(d, pages));
    }
    return out;
}

} // namespace vellum::pdf::dest

namespace vellum::pdf::action {

dict action_dict(action const& a, dest::page_refs const& pages) {
    return std::visit(overloaded{
                          [](uri const& u) {
                              return dict{{{"S", name{"URI"}}, {"URI", text_string(u.uri_text)}}};
                          },
                          [&](goto_remote const& g) {
                              return dict{{{"S", name{"GoToR"}},
                                           {"F", text_string(g.remote_filename)},
                                           {"D", dest::dest_object(g.remote_dest, pages)}}};
                          },
                      },
                      a);
}

} // namespace vellum::pdf::action

namespace vellum::pdf::outlines {

namespace {

// Writes one level: the numbers of all siblings are reserved first, then each item is written, followed
// by its children.
void write_level(writer& w,
                 std::vector<outline> const& items,
                 std::vector<ref> const& numbers,
                 ref parent,
                 dest::page_refs const& pages) {
    for (std::size_t i = 0; i < items.size(); ++i) {
        auto const& item = items[i];
        dict d{{{"Title", text_string(item.title)}, {"Parent", parent}}};
        if (i > 0) {
            d.dict_entries.emplace_back("Prev", numbers[i - 1]);
        }
        if (i + 1 < items.size()) {
            d.dict_entries.emplace_back("Next", numbers[i + 1]);
        }
        std::vector<ref> children;
        for (std::size_t k = 0; k < item.children.size(); ++k) {
            children.push_back(new_ref(w));
        }
        if (!children.empty()) {
            auto const count = static_cast<std::int64_t>(children.size());
            d.dict_entries.emplace_back("First", children.front());
            d.dict_entries.emplace_back("Last", children.back());
            // Only direct children count, negative when the item starts closed.
            d.dict_entries.emplace_back("Count", item.state == outline_state::open ? count : -count);
        }
        std::visit(overloaded{
                       [&](dest_target const& t) { d.dict_entries.emplace_back("Dest", dest::dest_object(t.target, pages)); },
                       [&](action_target const& t) { d.dict_entries.emplace_back("A", action::action_dict(t.target, pages)); },
                       [](no_target const&) {},
                   },
                   item.target);
        write_object(w, numbers[i], d);
        write_level(w, item.children, children, numbers[i], pages);
    }
}

} // namespace

std::optional<ref> write_outlines(writer& w, std::vector<outline> const& items, dest::page_refs const& pages) {
    if (items.empty()) {
        return std::nullopt;
    }
    ref const root = new_ref(w);
    write_outlines_at(w, root, items, pages);
    return root;
}

void write_outlines_at(writer& w, ref root, std::vector<outline> const& items, dest::page_refs const& pages) {
    std::vector<ref> numbers;
    for (std::size_t i = 0; i < items.size(); ++i) {
        numbers.push_back(new_ref(w));
    }
    write_object(w, root, dict{{{"Type", name{"Outlines"}}, {"First", numbers.front()}, {"Last", numbers.back()}}});
    write_level(w, items, numbers, root, pages);
}

} // namespace vellum::pdf::outlines

namespace vellum::pdf::annot {

namespace {

char const* highlight_name(annot_highlight h) {
    switch (h) {
    case annot_highlight::highlight_none:
        return "N";
    case annot_highlight::highlight_invert:
        return "I";
    case annot_highlight::highlight_outline:
        return "O";
    case annot_highlight::highlight_push:
        return "P";
    }
    return "I";
}

char const* style_name(border_style s) {
    switch (s) {
    case border_style::solid:
        return "S";
    case border_style::dashed:
        return "D";
    case border_style::beveled:
        return "B";
    case border_style::inset:
        return "I";
    case border_style::underline:
        return "U";
    }
    return "S";
}

} // namespace

dict annot_dict(annot const& a, dest::page_refs const& pages) {
    dict d{{{"Type", name{"Annot"}}, {"Subtype", name{"Link"}}, {"Rect", rect_to_array(a.rect)}}};
    if (a.border) {
        if (a.border->style == border_style::solid) {
            d.dict_entries.emplace_back(
                "Border", array{{std::int64_t{0}, std::int64_t{0}, from_number(number{a.border->width})}});
        } else {
            d.dict_entries.emplace_back(
                "BS", dict{{{"W", from_number(number{a.border->width})}, {"S", name{style_name(a.border->style)}}}});
        }
    }
    std::optional<annot_highlight> highlight;
    std::visit(overloaded{
                   [&](link_dest const& l) {
                       d.dict_entries.emplace_back("Dest", dest::dest_object(l.target, pages));
                       highlight = l.highlight;
                   },
                   [&](link_action const& l) {
                       d.dict_entries.emplace_back("A", action::action_dict(l.target, pages));
                       highlight = l.highlight;
                   },
               },
               a.subtype);
    if (highlight) {
        d.dict_entries.emplace_back("H", name{highlight_name(*highlight)});
    }
    if (a.appearance) {
        d.dict_entries.emplace_back("AP", dict{{{"N", *a.appearance}}});
    }
    return d;
}

} // namespace vellum::pdf::annot
