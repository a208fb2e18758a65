#include "document/html5/builder.hpp"

#include "document/html5/misc.hpp"
#include "util/result.hpp"

#include <algorithm>

namespace vellum::html5::builder {

using misc::is_html;
using misc::is_html_in;
using tree::html_ns;
using tree::node;

tree::node* current_node(builder const& b) {
    return b.open.empty() ? nullptr : b.open.back();
}

tree::node* adjusted_current_node(builder const& b) {
    if (b.context && b.open.size() == 1) {
        return b.context.get();
    }
    return current_node(b);
}

bool template_on_stack(builder const& b) {
    return b.open.html_count("template") > 0;
}

namespace {

// Children of a template go into its contents, a separate fragment.
location into(node* parent, node* before = nullptr) {
    if (is_html(parent, "template") && parent->node_template_contents) {
        return location{.location_parent = parent->node_template_contents.get(), .location_before = nullptr};
    }
    return location{.location_parent = parent, .location_before = before};
}

} // namespace

namespace {

// A node to be put under a parent at max_tree_depth or deeper goes to the end of the ancestor one level
// above that depth instead, beside what came before it.
location cap_depth(builder& b, location at) {
    std::size_t depth = 0;
    for (node const* n = at.location_parent; n != nullptr; n = n->node_parent) {
        ++depth;
    }
    if (depth < max_tree_depth) {
        return at;
    }
    node* target = at.location_parent;
    for (std::size_t i = depth; i > max_tree_depth - 1; --i) {
        target = target->node_parent;
    }
    b.depth_capped = true;
    return location{.location_parent = target, .location_before = nullptr};
}

location uncapped_location(builder& b, tree::node* override_target);

} // namespace

location insertion_location(builder& b, tree::node* override_target) {
    return cap_depth(b, uncapped_location(b, override_target));
}

namespace {

location uncapped_location(builder& b, tree::node* override_target) {
    node* target = override_target != nullptr ? override_target : current_node(b);
    if (!b.foster_parenting || !is_html_in(target, {"table", "tbody", "tfoot", "thead", "tr"})) {
        return into(target);
    }
    // Foster parenting: content that may not stand in a table goes before the table instead.
    int last_template = -1;
    int last_table = -1;
    for (int i = static_cast<int>(b.open.size()) - 1; i >= 0; --i) {
        if (last_template < 0 && is_html(b.open[static_cast<std::size_t>(i)], "template")) {
            last_template = i;
        }
        if (last_table < 0 && is_html(b.open[static_cast<std::size_t>(i)], "table")) {
            last_table = i;
        }
    }
    if (last_template >= 0 && (last_table < 0 || last_template > last_table)) {
        return into(b.open[static_cast<std::size_t>(last_template)]);
    }
    if (last_table < 0) {
        return into(b.open.front());
    }
    node* table = b.open[static_cast<std::size_t>(last_table)];
    if (table->node_parent != nullptr) {
        return location{.location_parent = table->node_parent, .location_before = table};
    }
    return into(b.open[static_cast<std::size_t>(last_table - 1)]);
}

} // namespace

std::unique_ptr<tree::node> create_element(token::token const& t, tree::html_ns ns) {
    auto e = tree::make_element(t.token_name, ns);
    e->node_attributes.reserve(t.token_attributes.size());
    for (auto const& a : t.token_attributes) {
        e->node_attributes.push_back(tree::attribute{.attribute_name = a.attr_name, .attribute_value = a.attr_value});
    }
    if (ns == html_ns::html && t.token_name == "template") {
        e->node_template_contents = tree::make_element("#content", html_ns::none);
    }
    return e;
}

namespace {

node* insert_node_at(builder& b, std::unique_ptr<node> e) {
    location at = insertion_location(b);
    node* n = tree::insert_child_node(*at.location_parent, at.location_before, std::move(e));
    b.open.push_back(n);
    return n;
}

} // namespace

tree::node* insert_element(builder& b, token::token const& t, tree::html_ns ns) {
    return insert_node_at(b, create_element(t, ns));
}

tree::node* insert_implied(builder& b, std::string_view name) {
    auto e = tree::make_element(name, html_ns::html);
    if (name == "template") {
        e->node_template_contents = tree::make_element("#content", html_ns::none);
    }
    return insert_node_at(b, std::move(e));
}

void insert_characters(builder& b, std::string_view text) {
    location at = insertion_location(b);
    if (at.location_parent == b.document.get()) {
        return; // the document itself takes no text
    }
    tree::insert_text_before(*at.location_parent, at.location_before, text);
}

void insert_comment(builder& b, std::string_view text, tree::node* parent) {
    if (parent != nullptr) {
        tree::add_child_node(*parent, tree::make_comment(text));
        return;
    }
    location at = insertion_location(b);
    tree::insert_child_node(*at.location_parent, at.location_before, tree::make_comment(text));
}

namespace {

std::unique_ptr<node> clone_element(node const& n) {
    auto e = tree::make_element(n.node_name, n.node_ns);
    e->node_attributes = n.node_attributes;
    if (n.node_template_contents) {
        e->node_template_contents = tree::make_element("#content", html_ns::none);
    }
    return e;
}

} // namespace

void reconstruct_active_formatting_elements(builder& b) {
    auto& list = b.active;
    if (list.empty()) {
        return;
    }
    auto open_or_marker = [&b](formatting::entry const& e) {
        return e.entry_node == nullptr || stack::is_on_element_stack(b.open, e.entry_node);
    };
    if (open_or_marker(list.back())) {
        return;
    }
    // Rewind to the entry after the last one that is open (or a marker), then re-create forwards.
    std::size_t i = list.size() - 1;
    while (i > 0 && !open_or_marker(list[i - 1])) {
        --i;
    }
    for (; i < list.size(); ++i) {
        node* fresh = insert_node_at(b, clone_element(*list[i].entry_node));
        list[i].entry_node = fresh;
    }
}

bool adoption_agency(builder& b, std::string_view subject) {
    node* current = current_node(b);
    if (is_html(current, subject) && !formatting::is_in_active_formatting_list(b.active, current)) {
        b.open.pop_back();
        return true;
    }
    for (int outer = 0; outer < 8; ++outer) {
        node* formatting_element = formatting::get_formatting_element(b.active, subject);
        if (formatting_element == nullptr) {
            return false;
        }
        int fe_stack = stack::index_on_stack(b.open, formatting_element);
        if (fe_stack < 0) {
            formatting::remove_element_from_active_formatting_list(b.active, formatting_element);
            return true;
        }
        if (!stack::has_node_in_scope(b.open, formatting_element)) {
            return true;
        }
        // The furthest block: the special element nearest above the formatting element.
        node* furthest_block = nullptr;
        for (std::size_t i = static_cast<std::size_t>(fe_stack) + 1; i < b.open.size(); ++i) {
            if (misc::is_in_special_category(*b.open[i])) {
                furthest_block = b.open[i];
                break;
            }
        }
        if (furthest_block == nullptr) {
            stack::pop_ele_up_to(b.open, formatting_element);
            formatting::remove_element_from_active_formatting_list(b.active, formatting_element);
            return true;
        }
        node* common_ancestor = b.open[static_cast<std::size_t>(fe_stack) - 1];
        int bookmark = formatting::index_in_list(b.active, formatting_element);
        node* last = furthest_block;
        // Copies made below have no parent until they are moved into place; they wait here.
        std::vector<std::unique_ptr<node>> orphans;
        auto take = [&orphans](node* n) {
            auto owned = tree::detach_node(*n);
            if (owned) {
                return owned;
            }
            auto at = std::find_if(orphans.begin(), orphans.end(),
                                   [n](std::unique_ptr<node> const& o) { return o.get() == n; });
            check(at != orphans.end(), "html5.builder.adoption_agency");
            owned = std::move(*at);
            orphans.erase(at);
            return owned;
        };
        int index = stack::index_on_stack(b.open, furthest_block);
        for (int inner = 1;; ++inner) {
            --index;
            node* n = b.open[static_cast<std::size_t>(index)];
            if (n == formatting_element) {
                break;
            }
            int in_list = formatting::index_in_list(b.active, n);
            if (inner > 3 && in_list >= 0) {
                b.active.erase(b.active.begin() + in_list);
                if (in_list < bookmark) {
                    --bookmark;
                }
                in_list = -1;
            }
            if (in_list < 0) {
                b.open.erase(b.open.begin() + index);
                continue;
            }
            // Replace the node by a fresh copy that will hold what was nested in it.
            auto fresh_owned = clone_element(*n);
            node* fresh = fresh_owned.get();
            b.active[static_cast<std::size_t>(in_list)].entry_node = fresh;
            b.open.set(static_cast<std::size_t>(index), fresh);
            orphans.push_back(std::move(fresh_owned));
            if (last == furthest_block) {
                bookmark = in_list + 1;
            }
            tree::add_child_node(*fresh, take(last));
            last = fresh;
        }
        auto moved = take(last);
        location at = insertion_location(b, common_ancestor);
        tree::insert_child_node(*at.location_parent, at.location_before, std::move(moved));

        auto replacement_owned = clone_element(*formatting_element);
        node* replacement = replacement_owned.get();
        tree::move_children(*furthest_block, *replacement);
        tree::add_child_node(*furthest_block, std::move(replacement_owned));

        int fe_list = formatting::index_in_list(b.active, formatting_element);
        check(fe_list >= 0, "html5.builder.adoption_agency");
        b.active.erase(b.active.begin() + fe_list);
        if (fe_list < bookmark) {
            --bookmark;
        }
        bookmark = std::clamp(bookmark, 0, static_cast<int>(b.active.size()));
        b.active.insert(b.active.begin() + bookmark, formatting::entry{.entry_node = replacement});

        stack::remove_element_from_stack(b.open, formatting_element);
        stack::insert_into_stack_below_element(b.open, replacement, furthest_block);
    }
    return true;
}

void reset_insertion_mode(builder& b) {
    for (std::size_t i = b.open.size(); i-- > 0;) {
        node* n = b.open[i];
        bool last = i == 0;
        if (last && b.context) {
            n = b.context.get();
        }
        if (n->node_ns == html_ns::html) {
            std::string_view name = n->node_name;
            if ((name == "td" || name == "th") && !last) {
                b.current_mode = mode::in_cell;
                return;
            }
            if (name == "tr") {
                b.current_mode = mode::in_row;
                return;
            }
            if (name == "tbody" || name == "thead" || name == "tfoot") {
                b.current_mode = mode::in_table_body;
                return;
            }
            if (name == "caption") {
                b.current_mode = mode::in_caption;
                return;
            }
            if (name == "colgroup") {
                b.current_mode = mode::in_column_group;
                return;
            }
            if (name == "table") {
                b.current_mode = mode::in_table;
                return;
            }
            if (name == "template") {
                check(!b.template_modes.empty(), "html5.builder.reset_insertion_mode");
                b.current_mode = b.template_modes.back();
                return;
            }
            if (name == "head" && !last) {
                b.current_mode = mode::in_head;
                return;
            }
            if (name == "body") {
                b.current_mode = mode::in_body;
                return;
            }
            if (name == "frameset") {
                b.current_mode = mode::in_frameset;
                return;
            }
            if (name == "html") {
                b.current_mode = b.head == nullptr ? mode::before_head : mode::after_head;
                return;
            }
        }
        if (last) {
            b.current_mode = mode::in_body;
            return;
        }
    }
    b.current_mode = mode::in_body;
}

void close_p_element(builder& b) {
    misc::generate_implied_end_tags(b.open, "p");
    stack::pop_elements_up_to(b.open, "p");
}

namespace {

constexpr std::string_view quirky_public_prefixes[] = {
    "+//silmaril//dtd html pro v0r11 19970101//",
    "-//as//dtd html 3.0 aswedit + extensions//",
    "-//advasoft ltd//dtd html 3.0 aswedit + extensions//",
    "-//ietf//dtd html 2.0 level 1//",
    "-//ietf//dtd html 2.0 level 2//",
    "-//ietf//dtd html 2.0 strict level 1//",
    "-//ietf//dtd html 2.0 strict level 2//",
    "-//ietf//dtd html 2.0 strict//",
    "-//ietf//dtd html 2.0//",
    "-//ietf//dtd html 2.1e//",
    "-//ietf//dtd html 3.0//",
    "-//ietf//dtd html 3.2 final//",
    "-//ietf//dtd html 3.2//",
    "-//ietf//dtd html 3//",
    "-//ietf//dtd html level 0//",
    "-//ietf//dtd html level 1//",
    "-//ietf//dtd html level 2//",
    "-//ietf//dtd html level 3//",
    "-//ietf//dtd html strict level 0//",
    "-//ietf//dtd html strict level 1//",
    "-//ietf//dtd html strict level 2//",
    "-//ietf//dtd html strict level 3//",
    "-//ietf//dtd html strict//",
    "-//ietf//dtd html//",
    "-//metrius//dtd metrius presentational//",
    "-//microsoft//dtd internet explorer 2.0 html strict//",
    "-//microsoft//dtd internet explorer 2.0 html//",
    "-//microsoft//dtd internet explorer 2.0 tables//",
    "-//microsoft//dtd internet explorer 3.0 html strict//",
    "-//microsoft//dtd internet explorer 3.0 html//",
    "-//microsoft//dtd internet explorer 3.0 tables//",
    "-//netscape comm. corp.//dtd html//",
    "-//netscape comm. corp.//dtd strict html//",
    "-//o'reilly and associates//dtd html 2.0//",
    "-//o'reilly and associates//dtd html extended 1.0//",
    "-//o'reilly and associates//dtd html extended relaxed 1.0//",
    "-//sq//dtd html 2.0 hotmetal + extensions//",
    "-//softquad software//dtd hotmetal pro 6.0::19990601::extensions to html 4.0//",
    "-//softquad//dtd hotmetal pro 4.0::19971010::extensions to html 4.0//",
    "-//spyglass//dtd html 2.0 extended//",
    "-//sun microsystems corp.//dtd hotjava html//",
    "-//sun microsystems corp.//dtd hotjava strict html//",
    "-//w3c//dtd html 3 1995-03-24//",
    "-//w3c//dtd html 3.2 draft//",
    "-//w3c//dtd html 3.2 final//",
    "-//w3c//dtd html 3.2//",
    "-//w3c//dtd html 3.2s draft//",
    "-//w3c//dtd html 4.0 frameset//",
    "-//w3c//dtd html 4.0 transitional//",
    "-//w3c//dtd html experimental 19960712//",
    "-//w3c//dtd html experimental 970421//",
    "-//w3c//dtd w3 html//",
    "-//w3o//dtd w3 html 3.0//",
    "-//webtechs//dtd mozilla html 2.0//",
    "-//webtechs//dtd mozilla html//",
};

} // namespace

quirks quirks_of_doctype(token::token const& t) {
    using misc::equal_ignoring_case;
    using misc::starts_with_ignoring_case;
    std::string_view pub = t.doctype_public;
    std::string_view sys = t.doctype_system;
    if (t.doctype_force_quirks || t.token_name != "html") {
        return quirks::quirks;
    }
    if (t.doctype_has_public) {
        if (equal_ignoring_case(pub, "-//W3O//DTD W3 HTML Strict 3.0//EN//") ||
            equal_ignoring_case(pub, "-/W3C/DTD HTML 4.0 Transitional/EN") || equal_ignoring_case(pub, "HTML")) {
            return quirks::quirks;
        }
        for (auto prefix : quirky_public_prefixes) {
            if (starts_with_ignoring_case(pub, prefix)) {
                return quirks::quirks;
            }
        }
    }
    if (t.doctype_has_system &&
        equal_ignoring_case(sys, "http://www.ibm.com/data/dtd/v11/ibmxhtml1-transitional.dtd")) {
        return quirks::quirks;
    }
    if (t.doctype_has_public) {
        bool html401 = starts_with_ignoring_case(pub, "-//W3C//DTD HTML 4.01 Frameset//") ||
                       starts_with_ignoring_case(pub, "-//W3C//DTD HTML 4.01 Transitional//");
        if (html401 && !t.doctype_has_system) {
            return quirks::quirks;
        }
        if (starts_with_ignoring_case(pub, "-//W3C//DTD XHTML 1.0 Frameset//") ||
            starts_with_ignoring_case(pub, "-//W3C//DTD XHTML 1.0 Transitional//") || html401) {
            return quirks::limited_quirks;
        }
    }
    return quirks::no_quirks;
}

} // namespace vellum::html5::builder
