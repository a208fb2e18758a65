#include "pdf/painter.hpp"

#include "image/images.hpp"
#include "svg/svg.hpp"

#include "pdf/borders.hpp"
#include "pdf/paint_background.hpp"
#include "pdf/paint_color.hpp"
#include "pdf/paint_text.hpp"
#include "css/styledom/tree.hpp"
#include "util/matrix.hpp"
#include "util/ref.hpp"
#include "util/result.hpp"

#include <algorithm>
#include <cmath>
#include <functional>
#include <iterator>
#include <limits>
#include <set>

namespace vellum::pdf::painter {

namespace {

using pack::box;

// ---- How a box takes part in its parent's stacking context ----------------------------------------------

// The layers of a stacking context that the walks over its descendants paint, after its own background
// and the contexts of negative z-index; the positioned layer follows in document order
// (`paint_positioned`), then the contexts of positive z-index.
enum class layer { block_backgrounds, floats, inline_content };

// A box in normal flow, a float, a positioned box without a z-index (painted as if it made a context,
// in the positioned layer), or a stacking context with a z-index.
struct in_flow {};
struct floating {};
struct positioned_auto {};
struct stacking {
    int stacking_z = 0;
};
using participation = std::variant<in_flow, floating, positioned_auto, stacking>;

bool is_positioned(css::style::style const& s) {
    auto const* kind = std::get_if<css::box::position_kind>(&s.bit_props.bit_props_position);
    return kind && *kind != css::box::position_kind::static_;
}

bool makes_context_alone(css::style::style const& s) {
    return s.rare_box->opacity < 1 || !s.rare_box->transform.empty();
}

participation participation_of(box const& b, bool in_float_list) {
    auto const& s = *b.box_style;
    auto const* z = std::get_if<int>(&s.rare_box->z_index);
    if (is_positioned(s) && z) {
        return stacking{*z};
    }
    if (makes_context_alone(s)) {
        // Opacity and transforms make a context at z-index 0 for a box without a z-index.
        return is_positioned(s) ? participation{positioned_auto{}} : participation{stacking{0}};
    }
    if (is_positioned(s)) {
        return positioned_auto{};
    }
    auto const* f = std::get_if<css::box::float_kind>(&s.float_);
    if (in_float_list || (f && *f != css::box::float_kind::none)) {
        return floating{};
    }
    return in_flow{};
}

// A child box, and whether it came as a float of a paragraph.
struct child {
    box const* child_box = nullptr;
    bool child_is_float = false;
    /// A row of a table, which is a structure element of its own in a tagged file.
    bool child_is_row = false;
};

void add_children(pack::box_content const& content, std::vector<child>& out) {
    auto add = [&](vellum::ref<box> const& b, bool is_float = false) {
        if (b) {
            out.push_back({b.get(), is_float});
        }
    };
    std::visit(overloaded{
                   [&](pack::with_abs const& w) {
                       if (w.with_abs_content) {
                           add_children(*w.with_abs_content, out);
                       }
                       for (auto const& b : w.with_abs_boxes) {
                           add(b);
                       }
                   },
                   [&](pack::boxes const& bs) {
                       for (auto const& b : bs.boxes_list) {
                           add(b);
                       }
                   },
                   [&](pack::table_anony_box const& t) {
                       for (auto const& b : t.table_anony_boxes) {
                           add(b);
                       }
                   },
                   [&](pack::table const& t) {
                       for (auto const& r : t.table_box.rows) {
                           if (r.row_content) {
                               out.push_back({r.row_content.get(), false, true});
                           }
                       }
                   },
                   [&](pack::para const& p) {
                       for (auto const& item : p.para_lines) {
                           if (auto const* f = std::get_if<pack::float_box>(&item)) {
                               add(f->float_box_box, true);
                           }
                       }
                   },
                   [&](pack::list const& l) {
                       if (l.list_box.markerbox) {
                           add(*l.list_box.markerbox);
                       }
                       add(l.list_box.list_content);
                   },
                   [&](pack::column const& c) {
                       for (auto const& b : c.column_box.column_content) {
                           add(b);
                       }
                   },
                   [](pack::image const&) {},
               },
               content);
}

// What a box holds in the flow, without the absolutely positioned boxes hung on it.
pack::box_content const& flow_content(box const& b) {
    if (auto const* w = std::get_if<pack::with_abs>(&b.box_content); w && w->with_abs_content) {
        return *w->with_abs_content;
    }
    return b.box_content;
}

std::vector<child> children_of(box const& b) {
    std::vector<child> out;
    add_children(b.box_content, out);
    return out;
}

borders::frame border_frame(box const& b) {
    return {b.box_x, b.box_y - b.box_h, b.box_x + b.box_w, b.box_y};
}

borders::widths padding_widths(css::used_style::used_style const& u) {
    return {u.used_padding_top, u.used_padding_right, u.used_padding_bottom, u.used_padding_left};
}

// The CSS transform of a box on the page. CSS writes transforms with y growing downward; each function
// is turned into the page's y-up system, and the whole is applied about the transform origin.
matrix::matrix transform_of(box const& b) {
    auto const& s = *b.box_style;
    float const ox = b.box_x + float(borders::resolve(s.rare_box->transform_origin.origin_x, b.box_w));
    float const oy = b.box_y - float(borders::resolve(s.rare_box->transform_origin.origin_y, b.box_h));
    matrix::matrix m = matrix::translate(-ox, -oy);
    // The last function is applied to the box first.
    for (auto it = s.rare_box->transform.rbegin(); it != s.rare_box->transform.rend(); ++it) {
        matrix::matrix const step = std::visit(
            overloaded{
                [](css::box::transform_matrix<css::box::length_or_percent<float>> const& t) {
                    auto const& v = t.matrix_values;
                    return matrix::matrix{v[0], -v[1], -v[2], v[3], v[4], -v[5]};
                },
                [&](css::box::transform_translate<css::box::length_or_percent<float>> const& t) {
                    return matrix::translate(float(borders::resolve(t.translate_x, b.box_w)),
                                             -float(borders::resolve(t.translate_y, b.box_h)));
                },
                [](css::box::transform_scale const& t) { return matrix::scale(t.scale_x, t.scale_y); },
                // Clockwise on the page is a negative angle with y upward.
                [](css::box::transform_rotate const& t) { return matrix::rotate(-t.rotate_angle); },
                [](css::box::transform_skew const& t) {
                    return matrix::matrix{1, -std::tan(t.skew_y), -std::tan(t.skew_x), 1, 0, 0};
                },
            },
            *it);
        m = matrix::then(m, step);
    }
    return matrix::then(m, matrix::translate(ox, oy));
}

bool is_visible(css::style::style const& s) {
    return s.rare_props == nullptr || s.rare_props->rare_props_visibility == css::box::visibility::visible;
}

// ---- The painter ---------------------------------------------------------------------------------------

struct painter {
    log::log const& log;
    content::out const& o;
    content::gs& g;
    paint_options options;
    /// The opacity of the stacking contexts around what is being painted.
    double alpha = 1;
    bool warned_images = false;
    /// The boxes entered that are structure elements, innermost last, with their element once content
    /// of theirs has been marked (-1 before).
    std::vector<std::pair<tagging::element_key, int>> tag_stack;
    /// Inside an artifact (decoration, page furniture) nothing is marked as content.
    int artifact_depth = 0;
    /// The page box being painted, where fixed backgrounds are placed.
    std::optional<borders::frame> page_area;

    // ---- Tagging --------------------------------------------------------------------------------------

    // What a box stands for: its element or pseudo-element, or nothing for an anonymous box.
    static std::optional<prepack::element_info> element_info_of(box const& b) {
        return std::visit(overloaded{
                              [](prepack::type_original const& t) -> std::optional<prepack::element_info> {
                                  return t.stuff->element_info;
                              },
                              [](prepack::type_remaining const& t) { return t.info; },
                              [](prepack::type_overflowing const& t) { return t.info; },
                              [](prepack::type_anonymous const&) -> std::optional<prepack::element_info> {
                                  return std::nullopt;
                              },
                          },
                          b.box_type);
    }

    // The structure element a box stands for: the HTML elements with a standard structure type.
    static std::optional<tagging::element_key> key_of(box const& b) {
        auto const info = element_info_of(b);
        auto const* e = info ? std::get_if<prepack::info_element>(&*info) : nullptr;
        if (e == nullptr || !e->element) {
            return std::nullopt;
        }
        auto const& name = e->element->dom_element_name;
        auto const local = styledom::tree::name_local_view(name);
        if (!styledom::tree::is_html_name(name, local)) {
            return std::nullopt;
        }
        auto role = tagging::role_of_html(local);
        if (!role) {
            return std::nullopt;
        }
        tagging::element_key key{.key_identity = e->element.get(), .key_role = std::move(*role)};
        if (key.key_role == "Figure") {
            key.key_alt = styledom::tree::plain_attribute(*e->element, "alt");
            if (!key.key_alt) {
                key.key_alt = styledom::tree::plain_attribute(*e->element, "title");
            }
        }
        if (b.box_style) {
            key.key_lang = b.box_style->rare_props->rare_props_vellum_lang_value;
        }
        return key;
    }

    // Enters a box: a structure element of its own is noted for the content inside it.
    bool enter(box const& b, bool is_row = false) {
        if (!options.tags) {
            return false;
        }
        auto key = key_of(b);
        if (!key && is_row) {
            key = tagging::element_key{.key_identity = &b, .key_role = "TR"};
        }
        if (!key) {
            return false;
        }
        tag_stack.emplace_back(std::move(*key), -1);
        return true;
    }

    void leave(bool entered) {
        if (entered) {
            tag_stack.pop_back();
        }
    }

    // The element that content painted now belongs to, made with its ancestors the first time.
    int current_element() {
        int parent = 0;
        for (auto& [key, index] : tag_stack) {
            if (index < 0) {
                index = options.tags->element_of(key, parent);
            }
            parent = index;
        }
        return parent;
    }

    // Opens a marked-content sequence for the current element; false where nothing is marked.
    bool begin_content() {
        if (!options.tags || artifact_depth > 0) {
            return false;
        }
        int const e = current_element();
        int const mcid = options.tags->mark(options.tag_page, e);
        content::begin_marked_properties(o, options.tags->elements()[std::size_t(e)].element_role,
                                         "<</MCID " + std::to_string(mcid) + ">>");
        return true;
    }

    void end_content(bool opened) {
        if (opened) {
            content::end_marked(o);
        }
    }

    // Paints what is not content (backgrounds, borders, margin boxes, printer's marks) as an artifact.
    void as_artifact(std::function<void()> const& paint) {
        bool const opens = options.tags && artifact_depth == 0;
        if (opens) {
            content::begin_marked(o, "Artifact");
        }
        ++artifact_depth;
        paint();
        --artifact_depth;
        if (opens) {
            content::end_marked(o);
        }
    }

    void warn_once(bool& flag, std::string_view text) {
        if (!flag) {
            flag = true;
            log::log_warning(log, text);
        }
    }

    // A background colour over its clip box, rounded as the border is, then the image layers.
    void background(borders::frame const& border_box,
                    css::style::style const& style,
                    css::used_style::used_style const& used) {
        if (!is_visible(style)) {
            return;
        }
        auto const& layers = used.used_background ? used.used_background : style.background;
        background_color(border_box, used, layers);
        if (!layers) {
            return;
        }
        bool const any = std::ranges::any_of(layers->background_image, [](css::box::bg_image const& i) {
            return !std::holds_alternative<css::box::none_value>(i);
        });
        if (!any) {
            return;
        }
        if (!options.objects) {
            warn_once(warned_images, "background images are not painted in this output");
            return;
        }
        borders::widths const w = borders::border_widths(used.used_borders);
        auto const padding_box = borders::inset(border_box, w);
        paint_background::paint_layers(log, o, g, *options.objects, *layers,
                                       {.border_box = border_box,
                                        .padding_box = padding_box,
                                        .content_box = borders::inset(padding_box, padding_widths(used)),
                                        .page_area = page_area},
                                       style.font_size, style.color,
                                       style.rare_props->rare_props_background_image_resolution, alpha);
    }

    void background_color(borders::frame const& border_box,
                          css::used_style::used_style const& used,
                          vellum::ref<css::box::background> const& layers) {
        auto const p = paint_color::paint_of(used.used_background_color);
        if (!p) {
            return;
        }
        // The colour is clipped like the bottom layer.
        auto clip = css::box::background_box::border_box;
        if (layers && !layers->background_clip.empty()) {
            clip = layers->background_clip.back();
        }
        borders::frame area = border_box;
        borders::radii r = borders::used_radii(used.used_borders, border_box);
        borders::widths const w = borders::border_widths(used.used_borders);
        if (clip != css::box::background_box::border_box) {
            area = borders::inset(area, w);
            r = borders::inset(r, w);
        }
        if (clip == css::box::background_box::content_box) {
            area = borders::inset(area, padding_widths(used));
            r = borders::inset(r, padding_widths(used));
        }
        if (area.right <= area.left || area.top <= area.bottom) {
            return;
        }
        paint_color::set_fill(o, g, *p, alpha);
        borders::rounded_path(o, g, area, r);
        content::fill_even_odd(o);
    }

    void border(borders::frame const& border_box,
                css::style::style const& style,
                css::used_style::used_style const& used) {
        if (!is_visible(style)) {
            return;
        }
        borders::paint_border(o, g, border_box, used.used_borders, alpha);
    }

    void own_background(box const& b) {
        as_artifact([&] {
            background(border_frame(b), *b.box_style, b.box_used_style);
            border(border_frame(b), *b.box_style, b.box_used_style);
        });
    }

    // Clips to the padding box with its rounded corners, for overflow: hidden and clip: rect().
    bool open_clip(box const& b) {
        auto const& s = *b.box_style;
        auto const* rect = std::get_if<css::box::clip_rect<float>>(&s.rare_box->clip);
        bool const hidden = s.rare_box->overflow == css::box::overflow::hidden;
        if (!hidden && !rect) {
            return false;
        }
        content::save(o, g);
        borders::frame const outer = border_frame(b);
        if (hidden) {
            auto const w = borders::border_widths(b.box_used_style.used_borders);
            borders::rounded_path(o, g, borders::inset(outer, w),
                                  borders::inset(borders::used_radii(b.box_used_style.used_borders, outer), w));
            content::clip_even_odd(o);
            content::end_path(o);
        }
        if (rect) {
            // Offsets from the top left corner of the border box; "auto" keeps that edge.
            auto const& sides = rect->clip_sides;
            double const top = sides[0] ? outer.top - *sides[0] : outer.top;
            double const right = sides[1] ? outer.left + *sides[1] : outer.right;
            double const bottom = sides[2] ? outer.top - *sides[2] : outer.bottom;
            double const left = sides[3] ? outer.left + *sides[3] : outer.left;
            content::rect(o, g, left, bottom, right - left, top - bottom);
            content::clip(o);
            content::end_path(o);
        }
        return true;
    }

    // The content of a box packed turned (vertical text in horizontal flow) is turned back into it.
    bool open_rotation(box const& b) {
        if (!b.rotate_content) {
            return false;
        }
        content::save(o, g);
        content::concat(o, g, {0, -1, 1, 0, b.box_x + b.box_w - b.box_y, b.box_y + b.box_x});
        return true;
    }

    // Runs `paint` inside the clip and turn of a box's content.
    void inside(box const& b, std::function<void()> const& paint) {
        bool const clipped = open_clip(b);
        bool const turned = open_rotation(b);
        paint();
        if (turned) {
            content::restore(o, g);
        }
        if (clipped) {
            content::restore(o, g);
        }
    }

    // A box that makes a stacking context (or is painted as if it did): its transform and opacity around
    // its own background and the layers of its descendants.
    void context(box const& b) {
        bool const entered = enter(b);
        context_inside(b);
        leave(entered);
    }

    void context_inside(box const& b) {
        auto const& s = *b.box_style;
        bool const transformed = !s.rare_box->transform.empty();
        bool const translucent = s.rare_box->opacity < 1;
        double const outer_alpha = alpha;
        if (transformed || translucent) {
            content::save(o, g);
        }
        if (transformed) {
            content::concat(o, g, transform_of(b));
        }
        if (translucent) {
            alpha *= std::max(0.0f, s.rare_box->opacity);
        }
        own_background(b);
        inside(b, [&] { layers(b); });
        alpha = outer_alpha;
        if (transformed || translucent) {
            content::restore(o, g);
        }
    }

    // The layers of a context's descendants, in the painting order of CSS.
    void layers(box const& root) {
        std::set<int> zs;
        gather_z(root, zs);
        for (int z : zs) {
            if (z < 0) {
                paint_z(root, z);
            }
        }
        walk(root, layer::block_backgrounds);
        walk(root, layer::floats);
        walk(root, layer::inline_content);
        paint_positioned(root);
        for (int z : zs) {
            if (z > 0) {
                paint_z(root, z);
            }
        }
    }

    // The positioned layer: positioned boxes without a z-index and contexts of z-index 0, in the order
    // of their elements in the document. An absolutely positioned box is packed with its containing
    // block and hung on it after the flow content, so a walk of the boxes alone would paint it over
    // positioned boxes that come after it in the document.
    struct positioned_item {
        box const* item_box = nullptr;
        /// The boxes in flow from the context down to the item's parent, each with whether it is a row.
        std::vector<std::pair<box const*, bool>> item_chain;
        std::vector<std::size_t> item_order;
    };

    void gather_positioned(box const& b, std::vector<std::pair<box const*, bool>>& chain,
                           std::vector<positioned_item>& out) {
        for (auto const& c : children_of(b)) {
            std::visit(overloaded{
                           [&](in_flow const&) {
                               chain.emplace_back(c.child_box, c.child_is_row);
                               gather_positioned(*c.child_box, chain, out);
                               chain.pop_back();
                           },
                           [](floating const&) {},
                           [&](positioned_auto const&) { out.push_back({c.child_box, chain, {}}); },
                           [&](stacking const& s) {
                               if (s.stacking_z == 0) {
                                   out.push_back({c.child_box, chain, {}});
                               }
                           },
                       },
                       participation_of(*c.child_box, c.child_is_float));
        }
    }

    struct open_link {
        bool link_entered = false;
        bool link_clipped = false;
        bool link_turned = false;
    };

    void paint_positioned(box const& root) {
        std::vector<std::pair<box const*, bool>> chain;
        std::vector<positioned_item> items;
        gather_positioned(root, chain, items);
        if (items.size() > 1) {
            // A box whose element is not known keeps its place after the one before it.
            for (std::size_t i = 0; i < items.size(); ++i) {
                items[i].item_order = document_order(*items[i].item_box);
                if (items[i].item_order.empty() && i > 0) {
                    items[i].item_order = items[i - 1].item_order;
                }
            }
            std::stable_sort(items.begin(), items.end(), [](positioned_item const& a, positioned_item const& b) {
                return a.item_order < b.item_order;
            });
        }
        // The clips, turns and structure elements of the boxes around an item stay open while the next
        // item shares them.
        std::vector<std::pair<box const*, open_link>> open;
        auto close_to = [&](std::size_t n) {
            while (open.size() > n) {
                auto const link = open.back().second;
                if (link.link_turned) {
                    content::restore(o, g);
                }
                if (link.link_clipped) {
                    content::restore(o, g);
                }
                leave(link.link_entered);
                open.pop_back();
            }
        };
        for (auto const& item : items) {
            std::size_t common = 0;
            while (common < open.size() && common < item.item_chain.size() &&
                   open[common].first == item.item_chain[common].first) {
                ++common;
            }
            close_to(common);
            for (std::size_t i = common; i < item.item_chain.size(); ++i) {
                auto const& [b, is_row] = item.item_chain[i];
                open_link link;
                link.link_entered = enter(*b, is_row);
                link.link_clipped = open_clip(*b);
                link.link_turned = open_rotation(*b);
                open.emplace_back(b, link);
            }
            context(*item.item_box);
        }
        close_to(0);
    }

    // Where a box's element stands in its document: the index of each ancestor among its parent's
    // children, from the root down; a pseudo-element stands just inside its element. Empty when the
    // box stands for no element.
    static std::vector<std::size_t> document_order(box const& b) {
        auto const info = element_info_of(b);
        if (!info) {
            return {};
        }
        std::shared_ptr<dom::dom_element> e;
        std::optional<std::size_t> last;
        std::visit(overloaded{
                       [&](prepack::info_element const& x) { e = x.element; },
                       [&](prepack::info_pseudo_element const& x) {
                           if (!x.pseudo) {
                               return;
                           }
                           e = x.pseudo->pseudo_element_parent;
                           bool const after = std::find(x.pseudo->pseudo_element_pseudos.begin(),
                                                        x.pseudo->pseudo_element_pseudos.end(),
                                                        css::selector::pseudo_element::after) !=
                                              x.pseudo->pseudo_element_pseudos.end();
                           last = after ? std::numeric_limits<std::size_t>::max() : 0;
                       },
                   },
                   *info);
        std::vector<std::size_t> path;
        if (last) {
            path.push_back(*last);
        }
        while (e) {
            auto const parent = e->dom_element_parent.get();
            auto const* p = std::get_if<dom::element_parent>(&parent);
            auto const up = p ? p->parent_element.lock() : nullptr;
            if (!up) {
                break;
            }
            // Child 0 stands for the element's ::before; its children count from 1.
            std::size_t index = 1;
            up->dom_element_children.update([&](std::vector<dom::child_node> const& children) {
                for (auto const& c : children) {
                    auto const* ec = std::get_if<dom::element_child>(&c);
                    if (ec && ec->child_element == e) {
                        break;
                    }
                    ++index;
                }
            });
            path.push_back(index);
            e = up;
        }
        std::reverse(path.begin(), path.end());
        return path;
    }

    void gather_z(box const& b, std::set<int>& zs) {
        for (auto const& c : children_of(b)) {
            std::visit(overloaded{
                           [&](in_flow const&) { gather_z(*c.child_box, zs); },
                           [](floating const&) {},
                           [](positioned_auto const&) {},
                           [&](stacking const& s) { zs.insert(s.stacking_z); },
                       },
                       participation_of(*c.child_box, c.child_is_float));
        }
    }

    void paint_z(box const& b, int z) {
        for (auto const& c : children_of(b)) {
            std::visit(overloaded{
                           [&](in_flow const&) {
                               bool const entered = enter(*c.child_box, c.child_is_row);
                               inside(*c.child_box, [&] { paint_z(*c.child_box, z); });
                               leave(entered);
                           },
                           [](floating const&) {},
                           [](positioned_auto const&) {},
                           [&](stacking const& s) {
                               if (s.stacking_z == z) {
                                   context(*c.child_box);
                               }
                           },
                       },
                       participation_of(*c.child_box, c.child_is_float));
        }
    }

    // One layer over a box's descendants in normal flow; floats and positioned boxes are painted whole
    // in their own layer.
    void walk(box const& b, layer l) {
        if (l == layer::inline_content) {
            own_inline_content(b);
        }
        for (auto const& c : children_of(b)) {
            std::visit(overloaded{
                           [&](in_flow const&) {
                               if (l == layer::block_backgrounds) {
                                   own_background(*c.child_box);
                               }
                               bool const entered = enter(*c.child_box, c.child_is_row);
                               inside(*c.child_box, [&] { walk(*c.child_box, l); });
                               leave(entered);
                           },
                           [&](floating const&) {
                               if (l == layer::floats) {
                                   context(*c.child_box);
                               }
                           },
                           [](positioned_auto const&) {},
                           [](stacking const&) {},
                       },
                       participation_of(*c.child_box, c.child_is_float));
        }
        if (l == layer::block_backgrounds) {
            as_artifact([&] { after_children_backgrounds(b); });
        }
    }

    // What a box draws over its children's backgrounds: collapsed table borders and column rules.
    void after_children_backgrounds(box const& b) {
        if (auto const* t = std::get_if<pack::table>(&flow_content(b))) {
            // The horizontal sides of each row first, then the vertical ones.
            for (auto const& row : t->table_box.borders) {
                for (auto const& cell : row) {
                    css::box::borders sides;
                    sides.borders_top = cell.collapsed_borders.borders_top;
                    sides.borders_bottom = cell.collapsed_borders.borders_bottom;
                    borders::paint_border(o, g, collapsed_frame(cell), sides, alpha);
                }
            }
            for (auto const& row : t->table_box.borders) {
                for (auto const& cell : row) {
                    css::box::borders sides;
                    sides.borders_left = cell.collapsed_borders.borders_left;
                    sides.borders_right = cell.collapsed_borders.borders_right;
                    borders::paint_border(o, g, collapsed_frame(cell), sides, alpha);
                }
            }
        }
        if (auto const* c = std::get_if<pack::column>(&flow_content(b))) {
            for (auto const& rule : c->column_box.column_rules) {
                if (!rule.rulebox_style || !is_visible(*rule.rulebox_style)) {
                    continue;
                }
                auto const& s = *rule.rulebox_style;
                css::box::border const side{
                    .border_color = css::style::color_or_current(s.rare_box->column_rule_color, s),
                    .border_style = s.rare_box->column_rule_style,
                    .border_width = s.rare_box->column_rule_width};
                borders::paint_rule(o, g, rule.rulebox_pos.x, rule.rulebox_pos.y, rule.rulebox_length, side,
                                    alpha);
            }
        }
    }

    static borders::frame collapsed_frame(pack::border_box const& c) {
        return {c.border_box_x, c.border_box_y - c.border_box_h, c.border_box_x + c.border_box_w, c.border_box_y};
    }

    // The inline content of a box itself: its lines, or its replaced content.
    void own_inline_content(box const& b) {
        if (auto const* p = std::get_if<pack::para>(&flow_content(b))) {
            for (auto const& item : p->para_lines) {
                if (auto const* line = std::get_if<pack::linebox>(&item)) {
                    paint_line(*line, *b.box_style);
                }
            }
        }
        if (auto const* img = std::get_if<pack::image>(&flow_content(b))) {
            paint_image(img->image_box, *b.box_style);
        }
    }

    // A replaced image: its XObject drawn over the picture's rectangle. The image's first row is the
    // top of the unit square, so the square is scaled to the size and moved to the bottom left corner.
    void paint_image(pack::imagebox const& im, css::style::style const& style) {
        if (!is_visible(style) || !im.imagebox_content) {
            return;
        }
        if (!options.objects) {
            warn_once(warned_images, "images are not painted in this output");
            return;
        }
        float x = im.imagebox_pos.x;
        float y = im.imagebox_pos.y;
        float w = im.imagebox_size.w;
        float h = im.imagebox_size.h;
        if (w <= 0 || h <= 0) {
            return;
        }
        if (im.imagebox_content->image_magic.snap_to_integer_coords) {
            x = std::round(x);
            y = std::round(y);
            w = std::max(1.0f, std::round(w));
            h = std::max(1.0f, std::round(h));
        }
        auto const name = options.objects->use_image(im.imagebox_content);
        content::save(o, g);
        if (alpha < 1) {
            content::opacity(o, g, alpha, alpha);
        }
        auto const picture = fitted_picture(style, im.imagebox_content->image_info, x, y, w, h);
        // A picture that reaches beyond its box (cover, none, an offset position) is cut at the box.
        bool const outside = picture.x < x - 0.01f || picture.y > y + 0.01f || picture.x + picture.w > x + w + 0.01f ||
                             picture.y - picture.h < y - h - 0.01f;
        if (outside) {
            content::rect(o, g, x, y - h, w, h);
            content::clip(o);
            content::end_path(o);
        }
        content::concat(o, g, matrix::matrix{picture.w, 0, 0, picture.h, picture.x, picture.y - picture.h});
        bool const marked = begin_content();
        content::xobject(o, g, name);
        end_content(marked);
        content::restore(o, g);
    }

    // Where a replaced element's picture stands in its content box (left x, top y, width, height), by
    // object-fit and object-position: stretched to the box, scaled whole into it or over it, or at its
    // natural size at the image resolution, placed like a background image.
    struct picture_rect {
        float x = 0;
        float y = 0;
        float w = 0;
        float h = 0;
    };

    static picture_rect fitted_picture(css::style::style const& style,
                                       image::image_info const& info,
                                       float x,
                                       float y,
                                       float w,
                                       float h) {
        if (style.rare_box->object_fit == css::box::object_fit::fill || info.image_width <= 0 ||
            info.image_height <= 0) {
            return {x, y, w, h};
        }
        auto const natural =
            paint_background::image_size_at(info, style.rare_props->rare_props_image_resolution);
        float const nw = float(natural.first);
        float const nh = float(natural.second);
        float const contain = std::min(w / nw, h / nh);
        float scale = 1;
        switch (style.rare_box->object_fit) {
        case css::box::object_fit::fill:
        case css::box::object_fit::none:
            break;
        case css::box::object_fit::contain:
            scale = contain;
            break;
        case css::box::object_fit::cover:
            scale = std::max(w / nw, h / nh);
            break;
        case css::box::object_fit::scale_down:
            scale = std::min(1.0f, contain);
            break;
        }
        float const pw = nw * scale;
        float const ph = nh * scale;
        // Percentages of object-position are of the room left over, as for backgrounds: 50% centres.
        float const px = x + float(borders::resolve(style.rare_box->object_position.bg_position_x, w - pw));
        float const py = y - float(borders::resolve(style.rare_box->object_position.bg_position_y, h - ph));
        return {px, py, pw, ph};
    }


    // ---- Lines ----------------------------------------------------------------------------------------

    // Walks a line's spans with the style and metrics that each run of text takes from its span.
    using span_visit = std::function<void(pack::spanbox const&,
                                          css::style::style const&,
                                          font_metrics::font_metrics_scaled const&)>;

    void each_span(std::vector<pack::spanbox> const& spans,
                   css::style::style const& style,
                   font_metrics::font_metrics_scaled const& metrics,
                   span_visit const& visit) {
        for (auto const& s : spans) {
            visit(s, style, metrics);
            if (auto const* nested = std::get_if<vellum::ref<pack::nested_spanbox>>(&s); nested && *nested) {
                auto const& n = **nested;
                each_span(n.spanbox_content, n.spanbox_style ? *n.spanbox_style : style, n.spanbox_font_metrics,
                          visit);
            }
        }
    }

    static borders::frame span_frame(pack::nested_spanbox const& n, double base) {
        auto const& u = n.spanbox_used_style;
        auto const w = borders::border_widths(u.used_borders);
        double const top = base + n.spanbox_y + u.used_padding_top + w.top;
        double const bottom = base + n.spanbox_y - n.spanbox_h - u.used_padding_bottom - w.bottom;
        return {n.spanbox_x, bottom, n.spanbox_x + n.spanbox_w, top};
    }

    void paint_line(pack::linebox const& line, css::style::style const& para_style) {
        double const base = line.linebox_base;
        // Backgrounds and borders of inline elements, outer ones first.
        as_artifact([&] {
            each_span(line.linebox_content, para_style, line.linebox_font_metrics,
                      [&](pack::spanbox const& s, css::style::style const&, font_metrics::font_metrics_scaled const&) {
                          auto const* nested = std::get_if<vellum::ref<pack::nested_spanbox>>(&s);
                          if (!nested || !*nested || !(*nested)->spanbox_style) {
                              return;
                          }
                          auto const& n = **nested;
                          background(span_frame(n, base), *n.spanbox_style, n.spanbox_used_style);
                          border(span_frame(n, base), *n.spanbox_style, n.spanbox_used_style);
                      });
        });
        // The line's text with its decorations is content of the paragraph (or other element) it is in.
        bool const marked = begin_content();
        decorations(line, para_style, paint_text::decoration_layer::under_text);

        bool open = false;
        paint_text::text_cursor cursor;
        auto begin = [&] {
            if (!open) {
                content::begin_text(o);
                open = true;
                cursor = {};
            }
        };
        paint_text::text_options const text_opts{.artificial_fonts = options.artificial_fonts};
        each_span(line.linebox_content, para_style, line.linebox_font_metrics,
                  [&](pack::spanbox const& s, css::style::style const& style, font_metrics::font_metrics_scaled const&) {
                      if (auto const* chars = std::get_if<pack::charsbox>(&s)) {
                          if (!is_visible(style) || !paint_text::shows(*chars) || chars->charsbox_content.empty()) {
                              return;
                          }
                          if (auto const p = paint_color::paint_of(style.color)) {
                                                }
                          begin();
                          paint_text::paint_chars(o, g, cursor, *chars, base, style, alpha, text_opts);
                      }
                      if (auto const* nested = std::get_if<vellum::ref<pack::nested_spanbox>>(&s);
                          nested && *nested && !(*nested)->spanbox_ellipsis.empty() && is_visible(style)) {
                          auto const& n = **nested;
                          begin();
                          paint_text::paint_graphemes(o, g, cursor, n.spanbox_ellipsis, n.spanbox_x + n.spanbox_w,
                                                      base + n.spanbox_base, n.spanbox_style ? *n.spanbox_style : style,
                                                      alpha, text_opts);
                      }
                  });
        if (!line.linebox_ellipsis.empty() && is_visible(para_style)) {
            begin();
            paint_text::paint_graphemes(o, g, cursor, line.linebox_ellipsis, line.linebox_x + line.linebox_w, base,
                                        para_style, alpha, text_opts);
        }
        if (open) {
            content::end_text(o);
        }
        decorations(line, para_style, paint_text::decoration_layer::over_text);
        end_content(marked);

        // Inline blocks are painted whole, as stacking contexts, with their y on the baseline.
        each_span(line.linebox_content, para_style, line.linebox_font_metrics,
                  [&](pack::spanbox const& s, css::style::style const&, font_metrics::font_metrics_scaled const&) {
                      auto const* inline_box = std::get_if<pack::inline_box>(&s);
                      if (!inline_box || !inline_box->inline_box_box) {
                          return;
                      }
                      content::save(o, g);
                      content::concat(o, g, matrix::translate(0, float(base)));
                      context(*inline_box->inline_box_box);
                      content::restore(o, g);
                  });
    }

    void decorations(pack::linebox const& line,
                     css::style::style const& para_style,
                     paint_text::decoration_layer which) {
        each_span(line.linebox_content, para_style, line.linebox_font_metrics,
                  [&](pack::spanbox const& s, css::style::style const& style,
                      font_metrics::font_metrics_scaled const& metrics) {
                      auto const* chars = std::get_if<pack::charsbox>(&s);
                      if (!chars || !is_visible(style) || !paint_text::shows(*chars)) {
                          return;
                      }
                      paint_text::paint_decorations(o, g, which, chars->charsbox_x, chars->charsbox_w,
                                                    line.linebox_base + chars->charsbox_y, style, metrics, alpha);
                  });
    }

    // ---- Pages ----------------------------------------------------------------------------------------

    // The children of the page body (or of a margin box) as the root stacking context.
    void root_context(std::vector<vellum::ref<box>> const& content) {
        box root{.box_content = pack::boxes{content}, .box_style = css::style::initial_style()};
        layers(root);
    }

    void marks(pack::packed_page const& page) {
        if (page.marks == css::page::marks::none) {
            return;
        }
        // Registration colour: every process ink at full strength.
        content::stroke_color(o, g, color::cmyk{1, 1, 1, 1});
        content::line_width(o, g, 0.1);
        auto const& t = page.trimbox;
        double const from = page.mark_offset;
        double const to = page.mark_offset + page.mark_length;
        auto segment = [&](double x1, double y1, double x2, double y2) {
            content::move(o, g, x1, y1);
            content::line(o, g, x2, y2);
        };
        bool const crop = page.marks == css::page::marks::crop || page.marks == css::page::marks::both;
        bool const cross = page.marks == css::page::marks::cross || page.marks == css::page::marks::both;
        if (crop) {
            for (double x : {double(t.left), double(t.right)}) {
                double const out = x == t.left ? -1 : 1;
                for (double y : {double(t.bottom), double(t.top)}) {
                    double const up = y == t.bottom ? -1 : 1;
                    // One line along each edge of the corner, running away from the trim box.
                    segment(x, y + up * from, x, y + up * to);
                    segment(x + out * from, y, x + out * to, y);
                }
            }
        }
        if (cross) {
            double const away = page.mark_length / 2;
            double const mx = (t.left + t.right) / 2;
            double const my = (t.bottom + t.top) / 2;
            for (auto [cx, cy] : {std::pair{mx, t.top + away}, std::pair{mx, t.bottom - away},
                                  std::pair{t.left - away, my}, std::pair{t.right + away, my}}) {
                segment(cx - 30, cy, cx + 30, cy);
                segment(cx, cy - 30, cx, cy + 30);
                circle(cx, cy, 6);
            }
        }
        content::stroke(o);
    }

    void circle(double cx, double cy, double r) {
        double const k = 0.5522847498 * r;
        content::move(o, g, cx + r, cy);
        content::curve(o, g, cx + r, cy + k, cx + k, cy + r, cx, cy + r);
        content::curve(o, g, cx - k, cy + r, cx - r, cy + k, cx - r, cy);
        content::curve(o, g, cx - r, cy - k, cx - k, cy - r, cx, cy - r);
        content::curve(o, g, cx + k, cy - r, cx + r, cy - k, cx + r, cy);
        content::close(o);
    }

    void page(pack::packed_page const& p) {
        float const w = p.mediabox.right - p.mediabox.left;
        float const h = p.mediabox.top - p.mediabox.bottom;
        bool const rotated = p.rotate_body != css::page::vellum_rotate_body::rotate_body_0;
        if (rotated) {
            content::save(o, g);
            switch (p.rotate_body) {
            case css::page::vellum_rotate_body::rotate_body_0:
                break;
            case css::page::vellum_rotate_body::rotate_body_90:
                content::concat(o, g, {0, 1, -1, 0, w, 0});
                break;
            case css::page::vellum_rotate_body::rotate_body_180:
                content::concat(o, g, {-1, 0, 0, -1, w, h});
                break;
            case css::page::vellum_rotate_body::rotate_body_270:
                content::concat(o, g, {0, -1, 1, 0, 0, h});
                break;
            }
        }
        if (p.scaled) {
            if (*p.scaled == 0) {
                throw internal_error("float.'/': division by zero");
            }
            content::save(o, g);
            float const k = 1 / *p.scaled;
            content::concat(o, g, matrix::scale(k, k));
        }
        auto const& body = p.body_box;
        borders::frame const page_box{body.body_pos.x, body.body_pos.y - body.body_size.h,
                                      body.body_pos.x + body.body_size.w, body.body_pos.y};
        page_area = page_box;
        // The page's own backgrounds and borders are decoration, not content.
        ++artifact_depth;
        if (options.tags) {
            content::begin_marked(o, "Artifact");
        }
        if (body.body_box_style) {
            background(page_box, *body.body_box_style, body.body_box_used_style);
        }
        if (body.body_style) {
            // The document's background is the canvas: it covers the whole sheet as far as the bleed
            // runs, margins included. A page rule that gives the page a background of its own keeps
            // it, and the document's then fills the page box inside its border only.
            auto const& s = *body.body_style;
            css::used_style::used_style doc;
            doc.used_background_color = s.background ? s.background->background_color : css::color::transparent{};
            doc.used_background = s.background;
            bool const page_background =
                body.body_box_style && paint_color::paint_of(body.body_box_used_style.used_background_color);
            auto const& sheet = body.body_bleed_box;
            auto const area = page_background
                                  ? borders::inset(page_box, borders::border_widths(body.body_box_used_style.used_borders))
                                  : borders::frame{sheet.left, sheet.bottom, sheet.right, sheet.top};
            background(area, s, doc);
        }
        if (body.body_box_style) {
            border(page_box, *body.body_box_style, body.body_box_used_style);
        }
        if (options.tags) {
            content::end_marked(o);
        }
        --artifact_depth;
        root_context(body.body_content);
        if (p.scaled) {
            content::restore(o, g);
        }
        if (rotated) {
            content::restore(o, g);
        }

        bool const shrink = p.scaled && p.shrink_margin_boxes;
        if (shrink) {
            content::save(o, g);
            content::concat(o, g, matrix::scale(1 / *p.scaled, 1 / *p.scaled));
        }
        // Running heads, page numbers and printer's marks are page furniture: artifacts.
        as_artifact([&] {
            for (auto const& m : p.margin_boxes) {
                borders::frame const frame{m.margin_pos.x, m.margin_pos.y - m.margin_size.h,
                                           m.margin_pos.x + m.margin_size.w, m.margin_pos.y};
                // A margin box's opacity applies to its background, borders and content alike.
                double const outer_alpha = alpha;
                if (m.margin_box_style) {
                    alpha *= std::clamp(double(m.margin_box_style->rare_box->opacity), 0.0, 1.0);
                    background(frame, *m.margin_box_style, m.margin_box_used_style);
                    border(frame, *m.margin_box_style, m.margin_box_used_style);
                }
                if (m.margin_content) {
                    root_context({*m.margin_content});
                }
                alpha = outer_alpha;
            }
        });
        if (shrink) {
            content::restore(o, g);
        }
        as_artifact([&] { marks(p); });
    }
};

// ---- Walking the tree for links and fonts ----------------------------------------------------------------

struct tree_visitor {
    std::function<void(box const&, double base)> on_box;
    std::function<void(pack::nested_spanbox const&, double base)> on_span;
    std::function<void(std::span<fonts::grapheme const>)> on_graphemes;
};

void visit_spans(std::vector<pack::spanbox> const& spans, double base, tree_visitor const& v);

void visit_box(box const& b, double base, tree_visitor const& v) {
    if (v.on_box) {
        v.on_box(b, base);
    }
    for (auto const& c : children_of(b)) {
        visit_box(*c.child_box, base, v);
    }
    if (auto const* p = std::get_if<pack::para>(&flow_content(b))) {
        for (auto const& item : p->para_lines) {
            if (auto const* line = std::get_if<pack::linebox>(&item)) {
                if (v.on_graphemes) {
                    v.on_graphemes(line->linebox_ellipsis);
                }
                visit_spans(line->linebox_content, line->linebox_base, v);
            }
        }
    }
}

void visit_spans(std::vector<pack::spanbox> const& spans, double base, tree_visitor const& v) {
    for (auto const& s : spans) {
        std::visit(overloaded{
                       [&](vellum::ref<pack::nested_spanbox> const& n) {
                           if (!n) {
                               return;
                           }
                           if (v.on_span) {
                               v.on_span(*n, base);
                           }
                           if (v.on_graphemes) {
                               v.on_graphemes(n->spanbox_ellipsis);
                           }
                           visit_spans(n->spanbox_content, base, v);
                       },
                       [&](pack::inline_box const& i) {
                           if (i.inline_box_box) {
                               // Inline blocks stand on the baseline: their y is relative to it.
                               visit_box(*i.inline_box_box, base, v);
                           }
                       },
                       [&](pack::charsbox const& c) {
                           if (v.on_graphemes) {
                               v.on_graphemes(c.charsbox_content);
                           }
                       },
                   },
                   s);
    }
}

void visit_page(pack::packed_page const& page, tree_visitor const& v, std::function<void(bool in_margin)> const& where) {
    where(false);
    for (auto const& b : page.body_box.body_content) {
        if (b) {
            visit_box(*b, 0, v);
        }
    }
    where(true);
    for (auto const& m : page.margin_boxes) {
        if (m.margin_content && *m.margin_content) {
            visit_box(**m.margin_content, 0, v);
        }
    }
}

std::string link_text(css::style::style const* s) {
    if (s == nullptr) {
        return {};
    }
    if (auto const* url = std::get_if<css::semantics::link_url>(&s->rare_props->rare_props_link)) {
        return url->link_target.url_text;
    }
    return {};
}

std::string link_base(css::style::style const* s) {
    if (s == nullptr) {
        return {};
    }
    if (auto const* url = std::get_if<css::semantics::link_url>(&s->rare_props->rare_props_link)) {
        return url->link_target.url_base;
    }
    return {};
}

number real(double v) {
    return number{v};
}

} // namespace

void paint_page(log::log const& log,
                content::out const& o,
                content::gs& g,
                pack::packed_page const& page,
                paint_options const& options) {
    painter p{.log = log, .o = o, .g = g, .options = options};
    p.page(page);
}

void paint_box(log::log const& log,
               content::out const& o,
               content::gs& g,
               pack::box const& box,
               paint_options const& options) {
    painter p{.log = log, .o = o, .g = g, .options = options};
    p.context(box);
}

std::vector<found_link> page_links(pack::packed_page const& page) {
    std::vector<found_link> out;
    bool in_margin = false;
    auto add = [&](std::string const& url, std::string const& base, pack::areas::area const& area) {
        if (url.empty()) {
            return;
        }
        out.push_back({.link_url = url,
                       .link_base = base,
                       .link_area = area,
                       .link_location = in_margin ? link_anchor_location::link_anchor_margin_box
                                                  : link_anchor_location::link_anchor_page_body});
    };
    // A link that merely continues the one of the enclosing element is not found again: the inherited
    // link is the same text, and its area lies within the outer one's.
    std::function<void(box const&, double, std::string const&)> walk_box;
    std::function<void(std::vector<pack::spanbox> const&, double, std::string const&)> walk_spans;
    walk_box = [&](box const& b, double base, std::string const& outer) {
        std::string const mine = link_text(b.box_style.get());
        if (mine != outer) {
            add(mine, link_base(b.box_style.get()), {.top = float(b.box_y + base), .bottom = float(b.box_y + base - b.box_h),
                       .left = b.box_x, .right = b.box_x + b.box_w});
        }
        for (auto const& c : children_of(b)) {
            walk_box(*c.child_box, base, mine);
        }
        if (auto const* img = std::get_if<pack::image>(&flow_content(b)); img && img->image_box.imagebox_content) {
            // The links of a drawing, mapped from its viewport onto the picture's rectangle.
            auto const& im = img->image_box;
            auto const* drawing = std::get_if<images::svg_image>(&im.imagebox_content->image_source);
            if (drawing && drawing->svg_image_block && !drawing->svg_image_block->svg_links.empty()) {
                auto const& block = *drawing->svg_image_block;
                auto const picture = painter::fitted_picture(*b.box_style, im.imagebox_content->image_info,
                                                             im.imagebox_pos.x, im.imagebox_pos.y,
                                                             im.imagebox_size.w, im.imagebox_size.h);
                double const kx = picture.w / std::max(block.viewport_width, 1e-9);
                double const ky = picture.h / std::max(block.viewport_height, 1e-9);
                for (auto const& l : block.svg_links) {
                    add(l.link_href, l.link_base,
                        {.top = float(base + picture.y - l.link_area.y0 * ky),
                         .bottom = float(base + picture.y - l.link_area.y1 * ky),
                         .left = float(picture.x + l.link_area.x0 * kx),
                         .right = float(picture.x + l.link_area.x1 * kx)});
                }
            }
        }
        if (auto const* p = std::get_if<pack::para>(&flow_content(b))) {
            for (auto const& item : p->para_lines) {
                if (auto const* line = std::get_if<pack::linebox>(&item)) {
                    walk_spans(line->linebox_content, line->linebox_base, mine);
                }
            }
        }
    };
    walk_spans = [&](std::vector<pack::spanbox> const& spans, double base, std::string const& outer) {
        for (auto const& s : spans) {
            if (auto const* n = std::get_if<vellum::ref<pack::nested_spanbox>>(&s); n && *n) {
                std::string const mine = link_text((*n)->spanbox_style.get());
                if (mine != outer) {
                    add(mine, link_base((*n)->spanbox_style.get()), {.top = float(base + (*n)->spanbox_y),
                               .bottom = float(base + (*n)->spanbox_y - (*n)->spanbox_h),
                               .left = (*n)->spanbox_x,
                               .right = (*n)->spanbox_x + (*n)->spanbox_w});
                }
                walk_spans((*n)->spanbox_content, base, mine);
            } else if (auto const* i = std::get_if<pack::inline_box>(&s); i && i->inline_box_box) {
                walk_box(*i->inline_box_box, base, outer);
            }
        }
    };
    for (auto const& b : page.body_box.body_content) {
        if (b) {
            walk_box(*b, 0, {});
        }
    }
    in_margin = true;
    for (auto const& m : page.margin_boxes) {
        if (m.margin_content && *m.margin_content) {
            walk_box(**m.margin_content, 0, {});
        }
    }
    // A body laid out larger is shrunk onto the page, and so are its links.
    if (page.scaled && *page.scaled != 0) {
        float const k = 1 / *page.scaled;
        for (auto& l : out) {
            if (l.link_location == link_anchor_location::link_anchor_page_body || page.shrink_margin_boxes) {
                l.link_area = {l.link_area.top * k, l.link_area.bottom * k, l.link_area.left * k,
                               l.link_area.right * k};
            }
        }
    }
    return out;
}

std::vector<std::pair<std::string, util::pos::pos>> page_destinations(pack::packed_page const& page) {
    std::vector<std::pair<std::string, util::pos::pos>> out;
    auto add = [&](prepack::element_type const& type, float x, float y) {
        auto const* original = std::get_if<prepack::type_original>(&type);
        if (!original || !original->stuff->given_ids) {
            return;
        }
        for (auto const& id : original->stuff->given_ids->second) {
            out.emplace_back(id.id, util::pos::pos{x, y});
        }
    };
    tree_visitor v{
        .on_box = [&](box const& b, double base) { add(b.box_type, b.box_x, float(b.box_y + base)); },
        .on_span = [&](pack::nested_spanbox const& n,
                       double base) { add(n.spanbox_type, n.spanbox_x, float(base + n.spanbox_y)); },
    };
    visit_page(page, v, [](bool) {});
    if (page.scaled && *page.scaled != 0) {
        for (auto& [name, at] : out) {
            at = {at.x / *page.scaled, at.y / *page.scaled};
        }
    }
    return out;
}

namespace {

// The walk behind page_element_boxes: like the tree visitor, but it knows when a box is left, so that
// each element's box knows the element box around it.
struct element_box_walk {
    std::vector<element_box>& out;
    int page_number;
    std::size_t parent_base;
    float page_top;
    float scale;

    std::optional<std::size_t> add(prepack::element_type const& type, element_box_kind kind, double left, double top,
                                   double width, double height, std::optional<std::size_t> parent) {
        // The first part of an element's box, and the parts a page break or a fixed height moved on.
        auto const info = std::visit(
            overloaded{
                [](prepack::type_original const& o) -> std::optional<prepack::element_info> {
                    return o.stuff ? std::optional(o.stuff->element_info) : std::nullopt;
                },
                [](prepack::type_remaining const& r) { return r.info; },
                [](prepack::type_overflowing const& o) { return o.info; },
                [](prepack::type_anonymous const&) -> std::optional<prepack::element_info> { return std::nullopt; },
            },
            type);
        auto const* element = info ? std::get_if<prepack::info_element>(&*info) : nullptr;
        if (!element || !element->element) {
            return parent;
        }
        out.push_back(element_box{.box_element = element->element,
                                  .box_kind = kind,
                                  .box_page = page_number,
                                  .box_left = float(left / scale),
                                  .box_top = float((page_top - top) / scale),
                                  .box_width = float(width / scale),
                                  .box_height = float(height / scale),
                                  .box_parent = parent});
        return parent_base + out.size() - 1;
    }

    void box(pack::box const& b, double base, std::optional<std::size_t> parent) {
        auto kind = element_box_kind::block_box;
        if (auto const* i = std::get_if<pack::image>(&flow_content(b))) {
            kind = i->image_box.imagebox_content &&
                           std::holds_alternative<images::svg_image>(i->image_box.imagebox_content->image_source)
                       ? element_box_kind::drawing_box
                       : element_box_kind::image_box;
        }
        auto const here = add(b.box_type, kind, b.box_x, b.box_y + base, b.box_w, b.box_h, parent);
        for (auto const& c : children_of(b)) {
            box(*c.child_box, base, here);
        }
        if (auto const* p = std::get_if<pack::para>(&flow_content(b))) {
            for (auto const& item : p->para_lines) {
                if (auto const* line = std::get_if<pack::linebox>(&item)) {
                    spans(line->linebox_content, line->linebox_base, here);
                }
            }
        }
    }

    void spans(std::vector<pack::spanbox> const& content, double base, std::optional<std::size_t> parent) {
        for (auto const& s : content) {
            if (auto const* n = std::get_if<vellum::ref<pack::nested_spanbox>>(&s); n && *n) {
                auto const& span = **n;
                auto const here = add(span.spanbox_type, element_box_kind::inline_span, span.spanbox_x,
                                      base + span.spanbox_y, span.spanbox_w, span.spanbox_h, parent);
                spans(span.spanbox_content, base, here);
            } else if (auto const* i = std::get_if<pack::inline_box>(&s); i && i->inline_box_box) {
                box(*i->inline_box_box, base, parent);
            }
        }
    }
};

} // namespace

std::vector<element_box> page_element_boxes(pack::packed_page const& page, int page_number, std::size_t parent_base) {
    std::vector<element_box> out;
    element_box_walk walk{.out = out,
                          .page_number = page_number,
                          .parent_base = parent_base,
                          .page_top = page.mediabox.top,
                          .scale = page.scaled && *page.scaled != 0 ? *page.scaled : 1.0f};
    for (auto const& b : page.body_box.body_content) {
        if (b) {
            walk.box(*b, 0, std::nullopt);
        }
    }
    for (auto const& m : page.margin_boxes) {
        if (m.margin_content && *m.margin_content) {
            walk.box(**m.margin_content, 0, std::nullopt);
        }
    }
    return out;
}

std::vector<int> page_font_ids(pack::packed_page const& page) {
    std::set<int> ids;
    tree_visitor v{.on_graphemes = [&](std::span<fonts::grapheme const> gs) { paint_text::add_font_ids(gs, ids); }};
    visit_page(page, v, [](bool) {});
    return {ids.begin(), ids.end()};
}

namespace {

common::rect rect_of(pack::areas::area const& a) {
    return common::rect{real(a.left), real(a.bottom), real(a.right), real(a.top)};
}

writepdf::page_boxes boxes_of(pack::packed_page const& page) {
    return {.media_box = rect_of(page.mediabox), .bleed_box = rect_of(page.bleedbox), .trim_box = rect_of(page.trimbox)};
}

// The links of a page for the file: through the resolver if there is one ("#name" as a named
// destination and any other text as a web address if not); a link the resolver drops is left out.
std::vector<writepdf::page_link> file_links(std::vector<found_link> const& found, link_resolver const& resolve) {
    std::vector<writepdf::page_link> out;
    for (auto const& l : found) {
        writepdf::page_link link{.link_rect = rect_of(l.link_area)};
        if (resolve) {
            auto target = resolve(l.link_url, l.link_base);
            if (!target) {
                continue;
            }
            link.link_target = std::move(*target);
        } else if (!l.link_url.empty() && l.link_url.front() == '#') {
            link.link_target = dest::dest{dest::named_dest{l.link_url.substr(1)}};
        } else {
            link.link_target = action::action{action::uri{l.link_url}};
        }
        out.push_back(std::move(link));
    }
    return out;
}

// The natural language of a document: that of its first box that states one (the root element's).
std::optional<std::string> language_of(pack::packed_page const& page) {
    std::optional<std::string> found;
    visit_page(page,
               tree_visitor{.on_box =
                                [&](box const& b, double) {
                                    if (!found && b.box_style &&
                                        b.box_style->rare_props->rare_props_vellum_lang_value) {
                                        found = b.box_style->rare_props->rare_props_vellum_lang_value;
                                    }
                                }},
               [](bool) {});
    return found;
}

} // namespace

writepdf::document_page document_page_of(log::log const& log,
                                         vellum::ref<pack::packed_page> const& page,
                                         paint_options const& options) {
    return writepdf::document_page{
        .boxes = boxes_of(*page),
        .paint = [log, page, options](content::out const& o, content::gs& g) {
            paint_page(log, o, g, *page, options);
        },
        .links = file_links(page_links(*page), options.resolve_link),
    };
}

page_stream::page_stream(metadata::pdf_options const& options, paint_options given)
    : stream_options(std::move(given)) {
    if (options.pdf_profile) {
        auto const rules = profile::rules_of(*options.pdf_profile);
        stream_state.strip_transparency = !rules.transparency_allowed;
        stream_state.rgb_as_cmyk = !rules.device_rgb_allowed;
    }
    // An accessible archive (PDF/A-1a) carries the document's logical structure.
    if (!stream_options.tags && options.pdf_profile == profile::pdf_profile::pdfa_1a) {
        stream_options.tags = std::make_shared<tagging::structure>();
    }
}

void page_stream::add(log::log const& log, pack::packed_page const& page) {
    // The structure states the document's language once; elements in it state only another one. It is
    // that of the first page that has one, which is the first page but for a document that starts with
    // pages of its own (blank pages, or margin boxes only).
    if (stream_options.tags && !stream_language) {
        stream_language = language_of(page);
        if (stream_language) {
            stream_options.tags->set_language(stream_language);
        }
    }
    int const number = int(stream_pages.size()) + 1;
    stream_options.tag_page = number - 1;
    if (stream_options.track_element_boxes) {
        auto more = page_element_boxes(page, number, stream_element_boxes.size());
        std::move(more.begin(), more.end(), std::back_inserter(stream_element_boxes));
    }
    content::new_page(stream_state);
    paint_page(log, stream_recorder.output(), stream_state, page, stream_options);
    // The page keeps the names it used; the document's table of graphics-state names stays here.
    auto used = stream_state.used;
    used.ext_gs_list.resources_map.clear();
    stream_font_ids.insert(used.font_resources.begin(), used.font_resources.end());
    std::vector<std::pair<std::string, dest::dest>> destinations;
    for (auto const& [name, at] : page_destinations(page)) {
        destinations.emplace_back(name, dest::dest{dest::target_position(number, at.x, at.y)});
    }
    add_destinations(destinations);
    stream_pages.push_back(painted_page{
        .painted_boxes = boxes_of(page),
        .painted_content = std::make_shared<painted::recorded_content const>(stream_recorder.take()),
        .painted_used = std::make_shared<content::used_resources const>(std::move(used)),
        .painted_links = page_links(page),
        .painted_label = page.page_label,
        .painted_destinations = std::move(destinations),
    });
}

void page_stream::add_destinations(std::vector<std::pair<std::string, dest::dest>> const& destinations) {
    for (auto const& [name, d] : destinations) {
        if (stream_destination_names.insert(name).second) {
            stream_destinations.emplace_back(name, d);
        }
    }
}

void page_stream::skip() {
    stream_pages.push_back(painted_page{});
}

bool page_stream::keeps_pages() const {
    return !stream_options.tags && !stream_options.track_element_boxes;
}

void page_stream::start_again() {
    stream_before = std::move(stream_pages);
    stream_pages.clear();
    stream_destinations.clear();
    stream_destination_names.clear();
    stream_font_ids.clear();
    stream_element_boxes.clear();
}

bool page_stream::take_again(std::size_t first, std::size_t count) {
    // A page keeps its number: the places its ids name and its links were made for it.
    if (!keeps_pages() || first != stream_pages.size() || first + count > stream_before.size()) {
        return false;
    }
    for (std::size_t i = first; i < first + count; ++i) {
        if (!stream_before[i].painted_content) {
            return false;
        }
    }
    for (std::size_t i = first; i < first + count; ++i) {
        auto const& p = stream_before[i];
        stream_font_ids.insert(p.painted_used->font_resources.begin(), p.painted_used->font_resources.end());
        add_destinations(p.painted_destinations);
        stream_pages.push_back(p);
    }
    return true;
}

void page_stream::finish(writepdf::pdf_document& doc, link_resolver const& resolve) {
    for (auto& p : stream_pages) {
        doc.pages.push_back(writepdf::document_page{
            .boxes = p.painted_boxes,
            .paint = [content = p.painted_content](content::out const& o, content::gs&) {
                painted::replay(*content, o);
            },
            .links = file_links(p.painted_links, resolve),
            .painted_used = std::move(p.painted_used),
            .paint_anywhere = true,
        });
    }
    stream_pages.clear();
    stream_before.clear();
    for (auto& d : stream_destinations) {
        if (std::none_of(doc.destinations.begin(), doc.destinations.end(),
                         [&](auto const& known) { return known.first == d.first; })) {
            doc.destinations.push_back(std::move(d));
        }
    }
    stream_destinations.clear();
    doc.used_font_ids.insert(doc.used_font_ids.end(), stream_font_ids.begin(), stream_font_ids.end());
    if (stream_options.objects) {
        doc.page_objects = stream_options.objects;
    }
    if (stream_options.tags) {
        doc.structure = stream_options.tags;
        doc.doc_language = stream_language;
    }
}

std::vector<cell<int> const*> page_stream::shown_glyphs() const {
    std::vector<cell<int> const*> out;
    for (auto const& p : stream_pages) {
        if (p.painted_content) {
            painted::add_glyph_cells(*p.painted_content, out);
        }
    }
    return out;
}

void add_pages(log::log const& log,
               writepdf::pdf_document& doc,
               std::span<vellum::ref<pack::packed_page> const> pages,
               paint_options const& given) {
    // An accessible archive (PDF/A-1a) carries the document's logical structure.
    paint_options options = given;
    if (!options.tags && doc.doc_options.pdf_profile == profile::pdf_profile::pdfa_1a) {
        if (!doc.structure) {
            doc.structure = std::make_shared<tagging::structure>();
        }
        options.tags = doc.structure;
        // The document's language is that of its first box that has one (the root element's).
        for (auto const& page : pages) {
            if ((doc.doc_language = language_of(*page))) {
                break;
            }
        }
        doc.structure->set_language(doc.doc_language);
    }
    std::set<int> ids(doc.used_font_ids.begin(), doc.used_font_ids.end());
    std::set<std::string> names;
    for (auto const& [name, _] : doc.destinations) {
        names.insert(name);
    }
    for (auto const& page : pages) {
        for (int id : page_font_ids(*page)) {
            ids.insert(id);
        }
        options.tag_page = int(doc.pages.size());
        doc.pages.push_back(document_page_of(log, page, options));
        int const number = int(doc.pages.size());
        for (auto const& [name, at] : page_destinations(*page)) {
            if (names.insert(name).second) {
                doc.destinations.emplace_back(name, dest::dest{dest::target_position(number, at.x, at.y)});
            }
        }
    }
    doc.used_font_ids.assign(ids.begin(), ids.end());
}

} // namespace vellum::pdf::painter
