// `getVellumBoxes` and the `BoxInfo` records: the boxes elements made in the finished layout, with their
// page, position and size, and the tree they form.
#include "host/domjs_internal.hpp"
#include "js/builtins.hpp"

#include <cmath>
#include <string>
#include <utility>

namespace vellum::domjs {

namespace {

e::js_value number(double d) {
    return e::builtins::number_value(d);
}

e::js_object box_object(e::js& engine, std::size_t index);

// The children of a box as a `BoxInfoChildren`: `length`, and the boxes by index and through `item`.
e::js_object children_object(e::js& engine, std::size_t index) {
    auto& state = state_of(engine);
    auto const& kids = state.state_box_children[index];
    e::js_object const o = e::new_object_of(engine, e::class_object{},
                                            e::yes_proto{.proto = state.state_prototypes.prototype_box_info_children});
    for (std::size_t i = 0; i < kids.size(); ++i) {
        e::define_value(o, std::to_string(i), box_object(engine, kids[i]), e::attrs{}.with(e::attr::read_only));
    }
    e::define_value(o, "length", js::number{static_cast<std::int64_t>(kids.size())},
                    e::attrs{}.with(e::attr::read_only).with(e::attr::no_enum));
    return o;
}

// The `BoxInfo` of a box, made once: its parent and children are made with it, so the objects of a
// tree refer to each other.
e::js_object box_object(e::js& engine, std::size_t index) {
    auto& state = state_of(engine);
    if (auto const it = state.state_box_objects.find(index); it != state.state_box_objects.end()) {
        return it->second;
    }
    auto const& b = (*state.state_boxes)[index];
    e::js_object const o =
        e::new_object_of(engine, e::class_object{}, e::yes_proto{.proto = state.state_prototypes.prototype_box_info});
    state.state_box_objects.emplace(index, o);
    auto const fixed = e::attrs{}.with(e::attr::read_only);
    e::define_value(o, "type", str(b.info_type), fixed);
    e::define_value(o, "pageNum", js::number{static_cast<std::int64_t>(b.info_page)}, fixed);
    e::define_value(o, "x", number(b.info_x), fixed);
    e::define_value(o, "y", number(b.info_y), fixed);
    e::define_value(o, "w", number(b.info_w), fixed);
    e::define_value(o, "h", number(b.info_h), fixed);
    e::define_value(o, "element", wrap_node(engine, dom::dom_node{b.info_element}), fixed);
    e::define_value(o, "parent", b.info_parent ? e::js_value{box_object(engine, *b.info_parent)} : e::js_value{e::js_null{}},
                    fixed);
    e::define_value(o, "children", children_object(engine, index), fixed);
    return o;
}

} // namespace

void attach_boxes(e::js& engine, std::vector<box_info> boxes) {
    auto& state = state_of(engine);
    state.state_boxes_of_element.clear();
    state.state_box_objects.clear();
    state.state_box_children.assign(boxes.size(), {});
    for (std::size_t i = 0; i < boxes.size(); ++i) {
        state.state_boxes_of_element[boxes[i].info_element.get()].push_back(i);
        if (auto const p = boxes[i].info_parent; p && *p < boxes.size()) {
            state.state_box_children[*p].push_back(i);
        } else {
            boxes[i].info_parent.reset();
        }
    }
    state.state_boxes = std::move(boxes);
}

e::js_value element_boxes(e::js& engine, dom::element_ref const& el) {
    auto& state = state_of(engine);
    std::vector<e::js_value> out;
    if (state.state_boxes) {
        if (auto const it = state.state_boxes_of_element.find(el.get()); it != state.state_boxes_of_element.end()) {
            for (auto const i : it->second) {
                out.emplace_back(box_object(engine, i));
            }
        }
    }
    return e::new_array(engine, out);
}

} // namespace vellum::domjs
