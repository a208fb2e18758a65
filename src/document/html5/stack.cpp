#include "document/html5/stack.hpp"

#include "document/html5/misc.hpp"
#include "util/result.hpp"

#include <algorithm>

namespace vellum::html5::stack {

using misc::is_html;
using misc::is_html_in;
using tree::html_ns;
using tree::node;

namespace {

enum class scope_kind { normal, list_item, button, table, select };

bool bounds_scope(node const* n, scope_kind kind) {
    switch (kind) {
    case scope_kind::table:
        return is_html_in(n, {"html", "table", "template"});
    case scope_kind::select:
        return !is_html_in(n, {"optgroup", "option"});
    case scope_kind::list_item:
        if (is_html_in(n, {"ol", "ul"})) {
            return true;
        }
        break;
    case scope_kind::button:
        if (is_html(n, "button")) {
            return true;
        }
        break;
    case scope_kind::normal:
        break;
    }
    switch (n->node_ns) {
    case html_ns::html:
        return misc::name_in(n->node_name,
                             {"applet", "caption", "html", "table", "td", "th", "marquee", "object", "template"});
    case html_ns::mathml:
        return misc::name_in(n->node_name, {"mi", "mo", "mn", "ms", "mtext", "annotation-xml"});
    case html_ns::svg:
        return misc::name_in(n->node_name, {"foreignObject", "desc", "title"});
    case html_ns::xlink:
    case html_ns::xml:
    case html_ns::xmlns:
    case html_ns::none:
        return false;
    }
    return false;
}

template <class Match>
bool in_scope(open_elements const& stack, scope_kind kind, Match match) {
    for (auto it = stack.rbegin(); it != stack.rend(); ++it) {
        if (match(*it)) {
            return true;
        }
        if (bounds_scope(*it, kind)) {
            return false;
        }
    }
    return false;
}

// Whether no HTML element with the name, or with any of the names, is open: then none is in scope.
bool none_open(open_elements const& stack, std::string_view name) {
    return stack.html_count(name) == 0;
}

bool none_open(open_elements const& stack, std::initializer_list<std::string_view> names) {
    return std::all_of(names.begin(), names.end(),
                       [&](std::string_view n) { return stack.html_count(n) == 0; });
}

} // namespace

void open_elements::count(tree::node const* n, int by) {
    if (n == nullptr || n->node_kind != tree::node_type::element || n->node_ns != html_ns::html) {
        return;
    }
    auto found = counts.find(std::string_view(n->node_name));
    if (found == counts.end()) {
        found = counts.emplace(n->node_name, 0).first;
    }
    found->second += by;
}

void open_elements::push_back(tree::node* n) {
    count(n, 1);
    nodes.push_back(n);
}

void open_elements::pop_back() {
    count(nodes.back(), -1);
    nodes.pop_back();
}

void open_elements::set(std::size_t i, tree::node* n) {
    count(nodes[i], -1);
    count(n, 1);
    nodes[i] = n;
}

void open_elements::insert(const_iterator at, tree::node* n) {
    count(n, 1);
    nodes.insert(at, n);
}

void open_elements::erase(const_iterator at) {
    count(*at, -1);
    nodes.erase(at);
}

void open_elements::truncate(std::size_t n) {
    while (nodes.size() > n) {
        pop_back();
    }
}

void open_elements::clear() {
    nodes.clear();
    counts.clear();
}

int open_elements::html_count(std::string_view name) const {
    auto const found = counts.find(name);
    return found == counts.end() ? 0 : found->second;
}

void pop_elements_up_to(open_elements& stack, std::string_view name) {
    while (!stack.empty()) {
        node const* n = stack.back();
        stack.pop_back();
        if (is_html(n, name)) {
            return;
        }
    }
}

void pop_elements_up_to(open_elements& stack, std::initializer_list<std::string_view> names) {
    while (!stack.empty()) {
        node const* n = stack.back();
        stack.pop_back();
        if (is_html_in(n, names)) {
            return;
        }
    }
}

void pop_ele_up_to(open_elements& stack, node const* n) {
    while (!stack.empty()) {
        node const* top = stack.back();
        stack.pop_back();
        if (top == n) {
            return;
        }
    }
}

void insert_into_stack_below_element(open_elements& stack, node* n, node const* below) {
    auto at = std::find(stack.begin(), stack.end(), below);
    check(at != stack.end(), "html5.stack.insert_into_stack_below_element");
    stack.insert(at + 1, n);
}

void replace_element_in_stack(open_elements& stack, node const* old, node* replacement) {
    auto at = std::find(stack.begin(), stack.end(), old);
    check(at != stack.end(), "html5.stack.replace_element_in_stack");
    stack.set(static_cast<std::size_t>(at - stack.begin()), replacement);
}

void remove_element_from_stack(open_elements& stack, node const* n) {
    auto at = std::find(stack.begin(), stack.end(), n);
    if (at != stack.end()) {
        stack.erase(at);
    }
}

node* stack_node_before_element(open_elements const& stack, node const* n) {
    auto at = std::find(stack.begin(), stack.end(), n);
    if (at == stack.end() || at == stack.begin()) {
        return nullptr;
    }
    return *(at - 1);
}

bool is_on_element_stack(open_elements const& stack, node const* n) {
    return std::find(stack.begin(), stack.end(), n) != stack.end();
}

int index_on_stack(open_elements const& stack, node const* n) {
    auto at = std::find(stack.begin(), stack.end(), n);
    return at == stack.end() ? -1 : static_cast<int>(at - stack.begin());
}

bool has_element_in_scope(open_elements const& stack, std::string_view name) {
    if (none_open(stack, name)) {
        return false;
    }
    return in_scope(stack, scope_kind::normal, [name](node const* n) { return is_html(n, name); });
}

bool has_element_in_scope(open_elements const& stack, std::initializer_list<std::string_view> names) {
    if (none_open(stack, names)) {
        return false;
    }
    return in_scope(stack, scope_kind::normal, [names](node const* n) { return is_html_in(n, names); });
}

bool has_node_in_scope(open_elements const& stack, node const* target) {
    return in_scope(stack, scope_kind::normal, [target](node const* n) { return n == target; });
}

bool has_element_in_list_item_scope(open_elements const& stack, std::string_view name) {
    if (none_open(stack, name)) {
        return false;
    }
    return in_scope(stack, scope_kind::list_item, [name](node const* n) { return is_html(n, name); });
}

bool has_element_in_button_scope(open_elements const& stack, std::string_view name) {
    if (none_open(stack, name)) {
        return false;
    }
    return in_scope(stack, scope_kind::button, [name](node const* n) { return is_html(n, name); });
}

bool has_element_in_table_scope(open_elements const& stack, std::string_view name) {
    if (none_open(stack, name)) {
        return false;
    }
    return in_scope(stack, scope_kind::table, [name](node const* n) { return is_html(n, name); });
}

bool has_element_in_table_scope(open_elements const& stack, std::initializer_list<std::string_view> names) {
    if (none_open(stack, names)) {
        return false;
    }
    return in_scope(stack, scope_kind::table, [names](node const* n) { return is_html_in(n, names); });
}

bool has_element_in_select_scope(open_elements const& stack, std::string_view name) {
    if (none_open(stack, name)) {
        return false;
    }
    return in_scope(stack, scope_kind::select, [name](node const* n) { return is_html(n, name); });
}

} // namespace vellum::html5::stack
