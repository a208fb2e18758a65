#include "document/html5/modes.hpp"

#include "document/html5/foreign.hpp"
#include "document/html5/misc.hpp"
#include "util/result.hpp"

#include <algorithm>

namespace vellum::html5::modes {

namespace bld = html5::builder;
namespace tkn = html5::token;
using bld::builder;
using bld::mode;
using misc::is_html;
using misc::is_html_in;
using misc::name_in;
using tkn::token;
using tkn::token_type;
using tree::html_ns;
using tree::node;
namespace tk = tokenizer;

namespace {

void process_in_mode(builder& b, token& t);
void process_chars_in_mode(builder& b, std::string_view text);
void in_body(builder& b, token& t);
void in_body_chars(builder& b, std::string_view text);
void in_head(builder& b, token& t);
void in_table(builder& b, token& t);
void in_template(builder& b, token& t);

bool is_start(token const& t, std::string_view name) {
    return t.token_kind == token_type::start_tag && t.token_name == name;
}

bool is_start(token const& t, std::initializer_list<std::string_view> names) {
    return t.token_kind == token_type::start_tag && name_in(t.token_name, names);
}

bool is_end(token const& t, std::string_view name) {
    return t.token_kind == token_type::end_tag && t.token_name == name;
}

bool is_end(token const& t, std::initializer_list<std::string_view> names) {
    return t.token_kind == token_type::end_tag && name_in(t.token_name, names);
}

std::size_t leading_space(std::string_view text) {
    std::size_t n = 0;
    while (n < text.size() && misc::is_space(text[n])) {
        ++n;
    }
    return n;
}

bool all_space(std::string_view text) {
    return leading_space(text) == text.size();
}

// A token made up by the parser, as for the implied tbody of "<table><tr>".
token implied_tag(std::string_view name, token_type kind = token_type::start_tag) {
    token t;
    t.token_kind = kind;
    t.token_name = name;
    return t;
}

void pop(builder& b) {
    b.open.pop_back();
}

// Generic RCDATA and raw text elements: their content is tokenized as text until the matching end tag.
void parse_text_element(builder& b, token const& t, tk::state state) {
    bld::insert_element(b, t);
    b.tok.current_state = state;
    b.original_mode = b.current_mode;
    b.current_mode = mode::text;
}

void merge_attributes(node& target, token const& t) {
    for (auto const& a : t.token_attributes) {
        if (tree::get_attribute_value(target, a.attr_name) == nullptr) {
            target.node_attributes.push_back(tree::attribute{.attribute_name = a.attr_name,
                                                             .attribute_value = a.attr_value});
        }
    }
}

// ---- initial, before html, before head ----

void initial(builder& b, token& t) {
    switch (t.token_kind) {
    case token_type::comment:
        bld::insert_comment(b, t.token_data, b.document.get());
        return;
    case token_type::doctype: {
        tree::doctype d;
        d.doctype_name = t.token_name;
        if (t.doctype_has_public) {
            d.doctype_public = t.doctype_public;
        }
        if (t.doctype_has_system) {
            d.doctype_system = t.doctype_system;
        }
        b.doctype = std::move(d);
        b.doctype_position = b.document->node_children.size();
        b.quirks_mode = bld::quirks_of_doctype(t);
        b.current_mode = mode::before_html;
        return;
    }
    case token_type::start_tag:
    case token_type::end_tag:
    case token_type::multi_char:
    case token_type::end_of_file:
        break;
    }
    b.quirks_mode = bld::quirks::quirks;
    b.current_mode = mode::before_html;
    process_in_mode(b, t);
}

void initial_chars(builder& b, std::string_view text) {
    text.remove_prefix(leading_space(text));
    if (!text.empty()) {
        b.quirks_mode = bld::quirks::quirks;
        b.current_mode = mode::before_html;
        process_chars_in_mode(b, text);
    }
}

void create_root(builder& b, token const* t) {
    auto html = t != nullptr ? bld::create_element(*t, html_ns::html) : tree::make_element("html", html_ns::html);
    b.open.push_back(tree::add_child_node(*b.document, std::move(html)));
    b.current_mode = mode::before_head;
}

void before_html(builder& b, token& t) {
    switch (t.token_kind) {
    case token_type::doctype:
        return;
    case token_type::comment:
        bld::insert_comment(b, t.token_data, b.document.get());
        return;
    case token_type::start_tag:
        if (t.token_name == "html") {
            create_root(b, &t);
            return;
        }
        break;
    case token_type::end_tag:
        if (!name_in(t.token_name, {"head", "body", "html", "br"})) {
            return;
        }
        break;
    case token_type::multi_char:
    case token_type::end_of_file:
        break;
    }
    create_root(b, nullptr);
    process_in_mode(b, t);
}

void before_html_chars(builder& b, std::string_view text) {
    text.remove_prefix(leading_space(text));
    if (!text.empty()) {
        create_root(b, nullptr);
        process_chars_in_mode(b, text);
    }
}

void before_head(builder& b, token& t) {
    switch (t.token_kind) {
    case token_type::doctype:
        return;
    case token_type::comment:
        bld::insert_comment(b, t.token_data);
        return;
    case token_type::start_tag:
        if (t.token_name == "html") {
            in_body(b, t);
            return;
        }
        if (t.token_name == "head") {
            b.head = bld::insert_element(b, t);
            b.current_mode = mode::in_head;
            return;
        }
        break;
    case token_type::end_tag:
        if (!name_in(t.token_name, {"head", "body", "html", "br"})) {
            return;
        }
        break;
    case token_type::multi_char:
    case token_type::end_of_file:
        break;
    }
    b.head = bld::insert_implied(b, "head");
    b.current_mode = mode::in_head;
    process_in_mode(b, t);
}

void before_head_chars(builder& b, std::string_view text) {
    text.remove_prefix(leading_space(text));
    if (!text.empty()) {
        b.head = bld::insert_implied(b, "head");
        b.current_mode = mode::in_head;
        process_chars_in_mode(b, text);
    }
}

// ---- in head, in head noscript, after head ----

void start_template(builder& b, token const& t) {
    bld::insert_element(b, t);
    formatting::push_marker(b.active);
    b.frameset_ok = false;
    b.current_mode = mode::in_template;
    b.template_modes.push_back(mode::in_template);
}

void end_template(builder& b) {
    if (!bld::template_on_stack(b)) {
        return;
    }
    misc::generate_all_implied_end_tags_thoroughly(b.open);
    stack::pop_elements_up_to(b.open, "template");
    formatting::clear_to_last_marker(b.active);
    if (!b.template_modes.empty()) {
        b.template_modes.pop_back();
    }
    bld::reset_insertion_mode(b);
}

void in_head(builder& b, token& t) {
    switch (t.token_kind) {
    case token_type::comment:
        bld::insert_comment(b, t.token_data);
        return;
    case token_type::doctype:
        return;
    case token_type::start_tag: {
        std::string_view name = t.token_name;
        if (name == "html") {
            in_body(b, t);
            return;
        }
        if (name_in(name, {"base", "basefont", "bgsound", "link", "meta"})) {
            bld::insert_element(b, t);
            pop(b);
            return;
        }
        if (name == "title") {
            parse_text_element(b, t, tk::state::rcdata);
            return;
        }
        if (name == "noframes" || name == "style") {
            parse_text_element(b, t, tk::state::rawtext);
            return;
        }
        if (name == "noscript") {
            // No scripting during the parse: noscript content is markup.
            bld::insert_element(b, t);
            b.current_mode = mode::in_head_noscript;
            return;
        }
        if (name == "script") {
            parse_text_element(b, t, tk::state::script_data);
            return;
        }
        if (name == "template") {
            start_template(b, t);
            return;
        }
        if (name == "head") {
            return;
        }
        break;
    }
    case token_type::end_tag:
        if (t.token_name == "head") {
            pop(b);
            b.current_mode = mode::after_head;
            return;
        }
        if (t.token_name == "template") {
            end_template(b);
            return;
        }
        if (!name_in(t.token_name, {"body", "html", "br"})) {
            return;
        }
        break;
    case token_type::multi_char:
    case token_type::end_of_file:
        break;
    }
    pop(b);
    b.current_mode = mode::after_head;
    process_in_mode(b, t);
}

void in_head_chars(builder& b, std::string_view text) {
    std::size_t n = leading_space(text);
    bld::insert_characters(b, text.substr(0, n));
    text.remove_prefix(n);
    if (!text.empty()) {
        pop(b);
        b.current_mode = mode::after_head;
        process_chars_in_mode(b, text);
    }
}

void in_head_noscript(builder& b, token& t) {
    switch (t.token_kind) {
    case token_type::doctype:
        return;
    case token_type::comment:
        in_head(b, t);
        return;
    case token_type::start_tag:
        if (t.token_name == "html") {
            in_body(b, t);
            return;
        }
        if (name_in(t.token_name, {"basefont", "bgsound", "link", "meta", "noframes", "style"})) {
            in_head(b, t);
            return;
        }
        if (name_in(t.token_name, {"head", "noscript"})) {
            return;
        }
        break;
    case token_type::end_tag:
        if (t.token_name == "noscript") {
            pop(b);
            b.current_mode = mode::in_head;
            return;
        }
        if (t.token_name != "br") {
            return;
        }
        break;
    case token_type::multi_char:
    case token_type::end_of_file:
        break;
    }
    pop(b);
    b.current_mode = mode::in_head;
    process_in_mode(b, t);
}

void in_head_noscript_chars(builder& b, std::string_view text) {
    std::size_t n = leading_space(text);
    bld::insert_characters(b, text.substr(0, n));
    text.remove_prefix(n);
    if (!text.empty()) {
        pop(b);
        b.current_mode = mode::in_head;
        process_chars_in_mode(b, text);
    }
}

void after_head(builder& b, token& t) {
    switch (t.token_kind) {
    case token_type::comment:
        bld::insert_comment(b, t.token_data);
        return;
    case token_type::doctype:
        return;
    case token_type::start_tag: {
        std::string_view name = t.token_name;
        if (name == "html") {
            in_body(b, t);
            return;
        }
        if (name == "body") {
            bld::insert_element(b, t);
            b.frameset_ok = false;
            b.current_mode = mode::in_body;
            return;
        }
        if (name == "frameset") {
            bld::insert_element(b, t);
            b.current_mode = mode::in_frameset;
            return;
        }
        if (name_in(name, {"base", "basefont", "bgsound", "link", "meta", "noframes", "script", "style", "template",
                           "title"})) {
            // Head content after the head: it goes into the head all the same.
            node* head = b.head;
            b.open.push_back(head);
            in_head(b, t);
            stack::remove_element_from_stack(b.open, head);
            return;
        }
        if (name == "head") {
            return;
        }
        break;
    }
    case token_type::end_tag:
        if (t.token_name == "template") {
            in_head(b, t);
            return;
        }
        if (!name_in(t.token_name, {"body", "html", "br"})) {
            return;
        }
        break;
    case token_type::multi_char:
    case token_type::end_of_file:
        break;
    }
    bld::insert_implied(b, "body");
    b.current_mode = mode::in_body;
    process_in_mode(b, t);
}

void after_head_chars(builder& b, std::string_view text) {
    std::size_t n = leading_space(text);
    bld::insert_characters(b, text.substr(0, n));
    text.remove_prefix(n);
    if (!text.empty()) {
        bld::insert_implied(b, "body");
        b.current_mode = mode::in_body;
        process_chars_in_mode(b, text);
    }
}

// ---- in body ----

void in_body_chars(builder& b, std::string_view text) {
    // U+0000 in body text is dropped.
    std::string cleaned;
    if (text.find('\0') != std::string_view::npos) {
        cleaned.reserve(text.size());
        for (char c : text) {
            if (c != '\0') {
                cleaned.push_back(c);
            }
        }
        text = cleaned;
    }
    if (text.empty()) {
        return;
    }
    bld::reconstruct_active_formatting_elements(b);
    bld::insert_characters(b, text);
    if (!all_space(text)) {
        b.frameset_ok = false;
    }
}

void close_p_if_in_button_scope(builder& b) {
    if (stack::has_element_in_button_scope(b.open, "p")) {
        bld::close_p_element(b);
    }
}

void any_other_end_tag(builder& b, std::string_view name) {
    for (std::size_t i = b.open.size(); i-- > 0;) {
        node* n = b.open[i];
        if (is_html(n, name)) {
            misc::generate_implied_end_tags(b.open, name);
            stack::pop_ele_up_to(b.open, n);
            return;
        }
        if (misc::is_in_special_category(*n)) {
            return;
        }
    }
}

void insert_foreign(builder& b, token& t, html_ns ns) {
    node* e = bld::insert_element(b, t, ns);
    if (ns == html_ns::mathml) {
        foreign::adjust_mathml_attributes(*e);
    } else {
        foreign::adjust_svg_attributes(*e);
    }
    foreign::adjust_foreign_attributes(*e);
    if (t.token_self_closing) {
        pop(b);
    }
}

// A text control can't stand in a select: it closes the select (an input is dropped in a select fragment).
bool close_select_for_control(builder& b, std::string_view name) {
    if (name == "input" && b.context && is_html(b.context.get(), "select")) {
        return true;
    }
    if (stack::has_element_in_scope(b.open, "select")) {
        stack::pop_elements_up_to(b.open, "select");
    }
    return false;
}

void in_body_start(builder& b, token& t) {
    std::string_view name = t.token_name;
    if (name == "html") {
        if (!bld::template_on_stack(b) && !b.open.empty()) {
            merge_attributes(*b.open.front(), t);
        }
        return;
    }
    if (name_in(name, {"base", "basefont", "bgsound", "link", "meta", "noframes", "script", "style", "template",
                       "title"})) {
        in_head(b, t);
        return;
    }
    if (name == "body") {
        if (b.open.size() < 2 || !is_html(b.open[1], "body") || bld::template_on_stack(b)) {
            return;
        }
        b.frameset_ok = false;
        merge_attributes(*b.open[1], t);
        return;
    }
    if (name == "frameset") {
        if (b.open.size() < 2 || !is_html(b.open[1], "body") || !b.frameset_ok) {
            return;
        }
        tree::detach_node(*b.open[1]);
        b.open.truncate(1);
        bld::insert_element(b, t);
        b.current_mode = mode::in_frameset;
        return;
    }
    if (name_in(name, {"address", "article", "aside", "blockquote", "center", "details", "dialog", "dir", "div", "dl",
                       "fieldset", "figcaption", "figure", "footer", "header", "hgroup", "main", "menu", "nav", "ol",
                       "p", "search", "section", "summary", "ul"})) {
        close_p_if_in_button_scope(b);
        bld::insert_element(b, t);
        return;
    }
    if (name_in(name, {"h1", "h2", "h3", "h4", "h5", "h6"})) {
        close_p_if_in_button_scope(b);
        if (is_html_in(bld::current_node(b), {"h1", "h2", "h3", "h4", "h5", "h6"})) {
            pop(b);
        }
        bld::insert_element(b, t);
        return;
    }
    if (name == "pre" || name == "listing") {
        close_p_if_in_button_scope(b);
        bld::insert_element(b, t);
        b.skip_next_newline = true;
        b.frameset_ok = false;
        return;
    }
    if (name == "form") {
        bool in_template = bld::template_on_stack(b);
        if (b.form != nullptr && !in_template) {
            return;
        }
        close_p_if_in_button_scope(b);
        node* f = bld::insert_element(b, t);
        if (!in_template) {
            b.form = f;
        }
        return;
    }
    if (name == "li" || name == "dd" || name == "dt") {
        b.frameset_ok = false;
        for (std::size_t i = b.open.size(); i-- > 0;) {
            node* n = b.open[i];
            bool closes = name == "li" ? is_html(n, "li") : is_html_in(n, {"dd", "dt"});
            if (closes) {
                std::string close_name = n->node_name;
                misc::generate_implied_end_tags(b.open, close_name);
                stack::pop_elements_up_to(b.open, close_name);
                break;
            }
            if (misc::is_in_special_category(*n) && !is_html_in(n, {"address", "div", "p"})) {
                break;
            }
        }
        close_p_if_in_button_scope(b);
        bld::insert_element(b, t);
        return;
    }
    if (name == "plaintext") {
        close_p_if_in_button_scope(b);
        bld::insert_element(b, t);
        b.tok.current_state = tk::state::plaintext;
        return;
    }
    if (name == "button") {
        if (stack::has_element_in_scope(b.open, "button")) {
            misc::generate_implied_end_tags(b.open);
            stack::pop_elements_up_to(b.open, "button");
        }
        bld::reconstruct_active_formatting_elements(b);
        bld::insert_element(b, t);
        b.frameset_ok = false;
        return;
    }
    if (name == "a") {
        if (node* a = formatting::get_formatting_element(b.active, "a")) {
            bld::adoption_agency(b, "a");
            formatting::remove_element_from_active_formatting_list(b.active, a);
            stack::remove_element_from_stack(b.open, a);
        }
        bld::reconstruct_active_formatting_elements(b);
        formatting::push_formatting_element(b.active, bld::insert_element(b, t));
        return;
    }
    if (name_in(name, {"b", "big", "code", "em", "font", "i", "s", "small", "strike", "strong", "tt", "u"})) {
        bld::reconstruct_active_formatting_elements(b);
        formatting::push_formatting_element(b.active, bld::insert_element(b, t));
        return;
    }
    if (name == "nobr") {
        bld::reconstruct_active_formatting_elements(b);
        if (stack::has_element_in_scope(b.open, "nobr")) {
            if (!bld::adoption_agency(b, "nobr")) {
                any_other_end_tag(b, "nobr");
            }
            bld::reconstruct_active_formatting_elements(b);
        }
        formatting::push_formatting_element(b.active, bld::insert_element(b, t));
        return;
    }
    if (name_in(name, {"applet", "marquee", "object"})) {
        bld::reconstruct_active_formatting_elements(b);
        bld::insert_element(b, t);
        formatting::push_marker(b.active);
        b.frameset_ok = false;
        return;
    }
    if (name == "table") {
        if (b.quirks_mode != bld::quirks::quirks) {
            close_p_if_in_button_scope(b);
        }
        bld::insert_element(b, t);
        b.frameset_ok = false;
        b.current_mode = mode::in_table;
        return;
    }
    if (name_in(name, {"area", "br", "embed", "img", "keygen", "wbr"})) {
        bld::reconstruct_active_formatting_elements(b);
        bld::insert_element(b, t);
        pop(b);
        b.frameset_ok = false;
        return;
    }
    if ((name == "input" || name == "textarea") && close_select_for_control(b, name)) {
        return;
    }
    if (name == "input") {
        bld::reconstruct_active_formatting_elements(b);
        bld::insert_element(b, t);
        pop(b);
        std::string const* type = tkn::find_attribute(t, "type");
        if (type == nullptr || !misc::equal_ignoring_case(*type, "hidden")) {
            b.frameset_ok = false;
        }
        return;
    }
    if (name_in(name, {"param", "source", "track"})) {
        bld::insert_element(b, t);
        pop(b);
        return;
    }
    if (name == "hr") {
        close_p_if_in_button_scope(b);
        if (stack::has_element_in_scope(b.open, "select")) {
            misc::generate_implied_end_tags(b.open);
        }
        bld::insert_element(b, t);
        pop(b);
        b.frameset_ok = false;
        return;
    }
    if (name == "image") {
        // An old spelling of img.
        t.token_name = "img";
        process_in_mode(b, t);
        return;
    }
    if (name == "textarea") {
        bld::insert_element(b, t);
        b.skip_next_newline = true;
        b.tok.current_state = tk::state::rcdata;
        b.original_mode = b.current_mode;
        b.frameset_ok = false;
        b.current_mode = mode::text;
        return;
    }
    if (name == "xmp") {
        close_p_if_in_button_scope(b);
        bld::reconstruct_active_formatting_elements(b);
        b.frameset_ok = false;
        parse_text_element(b, t, tk::state::rawtext);
        return;
    }
    if (name == "iframe") {
        b.frameset_ok = false;
        parse_text_element(b, t, tk::state::rawtext);
        return;
    }
    if (name == "noembed") {
        parse_text_element(b, t, tk::state::rawtext);
        return;
    }
    if (name == "select") {
        if (b.context && is_html(b.context.get(), "select")) {
            return;
        }
        if (stack::has_element_in_scope(b.open, "select")) {
            // A select inside a select closes the first one.
            stack::pop_elements_up_to(b.open, "select");
            return;
        }
        bld::reconstruct_active_formatting_elements(b);
        bld::insert_element(b, t);
        b.frameset_ok = false;
        return;
    }
    if (name == "option" || name == "optgroup") {
        if (stack::has_element_in_scope(b.open, "select")) {
            misc::generate_implied_end_tags(b.open, name == "option" ? "optgroup" : "");
        } else if (is_html(bld::current_node(b), "option")) {
            pop(b);
        }
        bld::reconstruct_active_formatting_elements(b);
        bld::insert_element(b, t);
        return;
    }
    if (name == "rb" || name == "rtc") {
        if (stack::has_element_in_scope(b.open, "ruby")) {
            misc::generate_implied_end_tags(b.open);
        }
        bld::insert_element(b, t);
        return;
    }
    if (name == "rp" || name == "rt") {
        if (stack::has_element_in_scope(b.open, "ruby")) {
            misc::generate_implied_end_tags(b.open, "rtc");
        }
        bld::insert_element(b, t);
        return;
    }
    if (name == "math") {
        bld::reconstruct_active_formatting_elements(b);
        insert_foreign(b, t, html_ns::mathml);
        return;
    }
    if (name == "svg") {
        bld::reconstruct_active_formatting_elements(b);
        insert_foreign(b, t, html_ns::svg);
        return;
    }
    if (name_in(name, {"caption", "col", "colgroup", "frame", "head", "tbody", "td", "tfoot", "th", "thead", "tr"})) {
        return;
    }
    bld::reconstruct_active_formatting_elements(b);
    bld::insert_element(b, t);
}

void in_body_end(builder& b, token& t) {
    std::string_view name = t.token_name;
    if (name == "template") {
        in_head(b, t);
        return;
    }
    if (name == "body" || name == "html") {
        if (!stack::has_element_in_scope(b.open, "body")) {
            return;
        }
        b.current_mode = mode::after_body;
        if (name == "html") {
            process_in_mode(b, t);
        }
        return;
    }
    if (name_in(name, {"address", "article", "aside", "blockquote", "button", "center", "details", "dialog", "dir",
                       "div", "dl", "fieldset", "figcaption", "figure", "footer", "header", "hgroup", "listing",
                       "main", "menu", "nav", "ol", "pre", "search", "section", "summary", "ul"})) {
        if (!stack::has_element_in_scope(b.open, name)) {
            return;
        }
        misc::generate_implied_end_tags(b.open);
        stack::pop_elements_up_to(b.open, name);
        return;
    }
    if (name == "select") {
        if (stack::has_element_in_scope(b.open, "select")) {
            stack::pop_elements_up_to(b.open, "select");
        }
        return;
    }
    if (name == "form") {
        if (!bld::template_on_stack(b)) {
            node* f = b.form;
            b.form = nullptr;
            if (f == nullptr || !stack::has_node_in_scope(b.open, f)) {
                return;
            }
            misc::generate_implied_end_tags(b.open);
            stack::remove_element_from_stack(b.open, f);
            return;
        }
        if (!stack::has_element_in_scope(b.open, "form")) {
            return;
        }
        misc::generate_implied_end_tags(b.open);
        stack::pop_elements_up_to(b.open, "form");
        return;
    }
    if (name == "p") {
        if (!stack::has_element_in_button_scope(b.open, "p")) {
            bld::insert_implied(b, "p");
        }
        bld::close_p_element(b);
        return;
    }
    if (name == "li") {
        if (!stack::has_element_in_list_item_scope(b.open, "li")) {
            return;
        }
        misc::generate_implied_end_tags(b.open, "li");
        stack::pop_elements_up_to(b.open, "li");
        return;
    }
    if (name == "dd" || name == "dt") {
        if (!stack::has_element_in_scope(b.open, name)) {
            return;
        }
        misc::generate_implied_end_tags(b.open, name);
        stack::pop_elements_up_to(b.open, name);
        return;
    }
    if (name_in(name, {"h1", "h2", "h3", "h4", "h5", "h6"})) {
        if (!stack::has_element_in_scope(b.open, {"h1", "h2", "h3", "h4", "h5", "h6"})) {
            return;
        }
        misc::generate_implied_end_tags(b.open);
        stack::pop_elements_up_to(b.open, {"h1", "h2", "h3", "h4", "h5", "h6"});
        return;
    }
    if (misc::is_formatting_name(name)) {
        if (!bld::adoption_agency(b, name)) {
            any_other_end_tag(b, name);
        }
        return;
    }
    if (name_in(name, {"applet", "marquee", "object"})) {
        if (!stack::has_element_in_scope(b.open, name)) {
            return;
        }
        misc::generate_implied_end_tags(b.open);
        stack::pop_elements_up_to(b.open, name);
        formatting::clear_to_last_marker(b.active);
        return;
    }
    if (name == "br") {
        // "</br>" is read as "<br>".
        token br = implied_tag("br");
        in_body_start(b, br);
        return;
    }
    // "sarcasm" and every other end tag.
    any_other_end_tag(b, name);
}

void in_body(builder& b, token& t) {
    switch (t.token_kind) {
    case token_type::multi_char:
        in_body_chars(b, t.token_data);
        return;
    case token_type::comment:
        bld::insert_comment(b, t.token_data);
        return;
    case token_type::doctype:
        return;
    case token_type::start_tag:
        in_body_start(b, t);
        return;
    case token_type::end_tag:
        in_body_end(b, t);
        return;
    case token_type::end_of_file:
        if (!b.template_modes.empty()) {
            in_template(b, t);
            return;
        }
        b.stopped = true;
        return;
    }
}

// ---- text ----

void text_mode(builder& b, token& t) {
    switch (t.token_kind) {
    case token_type::multi_char:
        bld::insert_characters(b, t.token_data);
        return;
    case token_type::end_of_file:
        pop(b);
        b.current_mode = b.original_mode;
        process_in_mode(b, t);
        return;
    case token_type::end_tag:
        pop(b);
        b.current_mode = b.original_mode;
        return;
    case token_type::start_tag:
    case token_type::comment:
    case token_type::doctype:
        return;
    }
}

// ---- tables ----

void clear_stack_back_to(builder& b, std::initializer_list<std::string_view> names) {
    while (!is_html_in(bld::current_node(b), names)) {
        pop(b);
    }
}

void clear_to_table_context(builder& b) {
    clear_stack_back_to(b, {"table", "template", "html"});
}

void clear_to_table_body_context(builder& b) {
    clear_stack_back_to(b, {"tbody", "tfoot", "thead", "template", "html"});
}

void clear_to_row_context(builder& b) {
    clear_stack_back_to(b, {"tr", "template", "html"});
}

void in_table_anything_else(builder& b, token& t) {
    b.foster_parenting = true;
    in_body(b, t);
    b.foster_parenting = false;
}

void in_table_chars(builder& b, std::string_view text) {
    if (is_html_in(bld::current_node(b), {"table", "tbody", "template", "tfoot", "thead", "tr"})) {
        b.pending_table_chars.clear();
        b.original_mode = b.current_mode;
        b.current_mode = mode::in_table_text;
        process_chars_in_mode(b, text);
        return;
    }
    b.foster_parenting = true;
    in_body_chars(b, text);
    b.foster_parenting = false;
}

void in_table(builder& b, token& t) {
    switch (t.token_kind) {
    case token_type::multi_char:
        in_table_chars(b, t.token_data);
        return;
    case token_type::comment:
        bld::insert_comment(b, t.token_data);
        return;
    case token_type::doctype:
        return;
    case token_type::start_tag: {
        std::string_view name = t.token_name;
        if (name == "caption") {
            clear_to_table_context(b);
            formatting::push_marker(b.active);
            bld::insert_element(b, t);
            b.current_mode = mode::in_caption;
            return;
        }
        if (name == "colgroup") {
            clear_to_table_context(b);
            bld::insert_element(b, t);
            b.current_mode = mode::in_column_group;
            return;
        }
        if (name == "col") {
            clear_to_table_context(b);
            bld::insert_implied(b, "colgroup");
            b.current_mode = mode::in_column_group;
            process_in_mode(b, t);
            return;
        }
        if (name_in(name, {"tbody", "tfoot", "thead"})) {
            clear_to_table_context(b);
            bld::insert_element(b, t);
            b.current_mode = mode::in_table_body;
            return;
        }
        if (name_in(name, {"td", "th", "tr"})) {
            clear_to_table_context(b);
            bld::insert_implied(b, "tbody");
            b.current_mode = mode::in_table_body;
            process_in_mode(b, t);
            return;
        }
        if (name == "table") {
            if (!stack::has_element_in_table_scope(b.open, "table")) {
                return;
            }
            stack::pop_elements_up_to(b.open, "table");
            bld::reset_insertion_mode(b);
            process_in_mode(b, t);
            return;
        }
        if (name_in(name, {"style", "script", "template"})) {
            in_head(b, t);
            return;
        }
        if (name == "input") {
            std::string const* type = tkn::find_attribute(t, "type");
            if (type != nullptr && misc::equal_ignoring_case(*type, "hidden")) {
                bld::insert_element(b, t);
                pop(b);
                return;
            }
            break;
        }
        if (name == "form") {
            if (bld::template_on_stack(b) || b.form != nullptr) {
                return;
            }
            b.form = bld::insert_element(b, t);
            pop(b);
            return;
        }
        break;
    }
    case token_type::end_tag: {
        std::string_view name = t.token_name;
        if (name == "table") {
            if (!stack::has_element_in_table_scope(b.open, "table")) {
                return;
            }
            stack::pop_elements_up_to(b.open, "table");
            bld::reset_insertion_mode(b);
            return;
        }
        if (name_in(name, {"body", "caption", "col", "colgroup", "html", "tbody", "td", "tfoot", "th", "thead",
                           "tr"})) {
            return;
        }
        if (name == "template") {
            in_head(b, t);
            return;
        }
        break;
    }
    case token_type::end_of_file:
        in_body(b, t);
        return;
    }
    in_table_anything_else(b, t);
}

void flush_table_text(builder& b) {
    std::string pending = std::move(b.pending_table_chars);
    b.pending_table_chars.clear();
    if (!all_space(pending)) {
        // Text inside a table but outside cells is moved in front of the table.
        b.foster_parenting = true;
        in_body_chars(b, pending);
        b.foster_parenting = false;
    } else {
        bld::insert_characters(b, pending);
    }
    b.current_mode = b.original_mode;
}

void in_table_text_chars(builder& b, std::string_view text) {
    for (char c : text) {
        if (c != '\0') {
            b.pending_table_chars.push_back(c);
        }
    }
}

void in_table_text(builder& b, token& t) {
    flush_table_text(b);
    process_in_mode(b, t);
}

void close_caption_and_reprocess(builder& b, token* t) {
    if (!stack::has_element_in_table_scope(b.open, "caption")) {
        return;
    }
    misc::generate_implied_end_tags(b.open);
    stack::pop_elements_up_to(b.open, "caption");
    formatting::clear_to_last_marker(b.active);
    b.current_mode = mode::in_table;
    if (t != nullptr) {
        process_in_mode(b, *t);
    }
}

void in_caption(builder& b, token& t) {
    if (is_end(t, "caption")) {
        close_caption_and_reprocess(b, nullptr);
        return;
    }
    if (is_start(t, {"caption", "col", "colgroup", "tbody", "td", "tfoot", "th", "thead", "tr"}) ||
        is_end(t, "table")) {
        close_caption_and_reprocess(b, &t);
        return;
    }
    if (is_end(t, {"body", "col", "colgroup", "html", "tbody", "td", "tfoot", "th", "thead", "tr"})) {
        return;
    }
    in_body(b, t);
}

void in_column_group_anything_else(builder& b) {
    pop(b);
    b.current_mode = mode::in_table;
}

void in_column_group_chars(builder& b, std::string_view text) {
    std::size_t n = leading_space(text);
    bld::insert_characters(b, text.substr(0, n));
    text.remove_prefix(n);
    if (text.empty() || !is_html(bld::current_node(b), "colgroup")) {
        return;
    }
    in_column_group_anything_else(b);
    process_chars_in_mode(b, text);
}

void in_column_group(builder& b, token& t) {
    switch (t.token_kind) {
    case token_type::comment:
        bld::insert_comment(b, t.token_data);
        return;
    case token_type::doctype:
        return;
    case token_type::start_tag:
        if (t.token_name == "html") {
            in_body(b, t);
            return;
        }
        if (t.token_name == "col") {
            bld::insert_element(b, t);
            pop(b);
            return;
        }
        if (t.token_name == "template") {
            in_head(b, t);
            return;
        }
        break;
    case token_type::end_tag:
        if (t.token_name == "colgroup") {
            if (is_html(bld::current_node(b), "colgroup")) {
                in_column_group_anything_else(b);
            }
            return;
        }
        if (t.token_name == "col") {
            return;
        }
        if (t.token_name == "template") {
            in_head(b, t);
            return;
        }
        break;
    case token_type::end_of_file:
        in_body(b, t);
        return;
    case token_type::multi_char:
        break;
    }
    if (!is_html(bld::current_node(b), "colgroup")) {
        return;
    }
    in_column_group_anything_else(b);
    process_in_mode(b, t);
}

void in_table_body(builder& b, token& t) {
    if (is_start(t, "tr")) {
        clear_to_table_body_context(b);
        bld::insert_element(b, t);
        b.current_mode = mode::in_row;
        return;
    }
    if (is_start(t, {"th", "td"})) {
        clear_to_table_body_context(b);
        bld::insert_implied(b, "tr");
        b.current_mode = mode::in_row;
        process_in_mode(b, t);
        return;
    }
    if (is_end(t, {"tbody", "tfoot", "thead"})) {
        if (!stack::has_element_in_table_scope(b.open, t.token_name)) {
            return;
        }
        clear_to_table_body_context(b);
        pop(b);
        b.current_mode = mode::in_table;
        return;
    }
    if (is_start(t, {"caption", "col", "colgroup", "tbody", "tfoot", "thead"}) || is_end(t, "table")) {
        if (!stack::has_element_in_table_scope(b.open, {"tbody", "thead", "tfoot"})) {
            return;
        }
        clear_to_table_body_context(b);
        pop(b);
        b.current_mode = mode::in_table;
        process_in_mode(b, t);
        return;
    }
    if (is_end(t, {"body", "caption", "col", "colgroup", "html", "td", "th", "tr"})) {
        return;
    }
    in_table(b, t);
}

bool close_row(builder& b) {
    if (!stack::has_element_in_table_scope(b.open, "tr")) {
        return false;
    }
    clear_to_row_context(b);
    pop(b);
    b.current_mode = mode::in_table_body;
    return true;
}

void in_row(builder& b, token& t) {
    if (is_start(t, {"th", "td"})) {
        clear_to_row_context(b);
        bld::insert_element(b, t);
        b.current_mode = mode::in_cell;
        formatting::push_marker(b.active);
        return;
    }
    if (is_end(t, "tr")) {
        close_row(b);
        return;
    }
    if (is_start(t, {"caption", "col", "colgroup", "tbody", "tfoot", "thead", "tr"}) || is_end(t, "table")) {
        if (close_row(b)) {
            process_in_mode(b, t);
        }
        return;
    }
    if (is_end(t, {"tbody", "tfoot", "thead"})) {
        if (!stack::has_element_in_table_scope(b.open, t.token_name)) {
            return;
        }
        if (close_row(b)) {
            process_in_mode(b, t);
        }
        return;
    }
    if (is_end(t, {"body", "caption", "col", "colgroup", "html", "td", "th"})) {
        return;
    }
    in_table(b, t);
}

void close_cell(builder& b) {
    misc::generate_implied_end_tags(b.open);
    stack::pop_elements_up_to(b.open, {"td", "th"});
    formatting::clear_to_last_marker(b.active);
    b.current_mode = mode::in_row;
}

void in_cell(builder& b, token& t) {
    if (is_end(t, {"td", "th"})) {
        if (!stack::has_element_in_table_scope(b.open, t.token_name)) {
            return;
        }
        misc::generate_implied_end_tags(b.open);
        stack::pop_elements_up_to(b.open, t.token_name);
        formatting::clear_to_last_marker(b.active);
        b.current_mode = mode::in_row;
        return;
    }
    if (is_start(t, {"caption", "col", "colgroup", "tbody", "td", "tfoot", "th", "thead", "tr"})) {
        if (!stack::has_element_in_table_scope(b.open, {"td", "th"})) {
            return;
        }
        close_cell(b);
        process_in_mode(b, t);
        return;
    }
    if (is_end(t, {"body", "caption", "col", "colgroup", "html"})) {
        return;
    }
    if (is_end(t, {"table", "tbody", "tfoot", "thead", "tr"})) {
        if (!stack::has_element_in_table_scope(b.open, t.token_name)) {
            return;
        }
        close_cell(b);
        process_in_mode(b, t);
        return;
    }
    in_body(b, t);
}

// ---- template ----

void switch_template_mode(builder& b, mode m, token& t) {
    if (!b.template_modes.empty()) {
        b.template_modes.pop_back();
    }
    b.template_modes.push_back(m);
    b.current_mode = m;
    process_in_mode(b, t);
}

void in_template(builder& b, token& t) {
    switch (t.token_kind) {
    case token_type::multi_char:
    case token_type::comment:
    case token_type::doctype:
        in_body(b, t);
        return;
    case token_type::start_tag: {
        std::string_view name = t.token_name;
        if (name_in(name, {"base", "basefont", "bgsound", "link", "meta", "noframes", "script", "style", "template",
                           "title"})) {
            in_head(b, t);
            return;
        }
        if (name_in(name, {"caption", "colgroup", "tbody", "tfoot", "thead"})) {
            switch_template_mode(b, mode::in_table, t);
            return;
        }
        if (name == "col") {
            switch_template_mode(b, mode::in_column_group, t);
            return;
        }
        if (name == "tr") {
            switch_template_mode(b, mode::in_table_body, t);
            return;
        }
        if (name == "td" || name == "th") {
            switch_template_mode(b, mode::in_row, t);
            return;
        }
        switch_template_mode(b, mode::in_body, t);
        return;
    }
    case token_type::end_tag:
        if (t.token_name == "template") {
            in_head(b, t);
        }
        return;
    case token_type::end_of_file:
        if (!bld::template_on_stack(b)) {
            b.stopped = true;
            return;
        }
        stack::pop_elements_up_to(b.open, "template");
        formatting::clear_to_last_marker(b.active);
        if (!b.template_modes.empty()) {
            b.template_modes.pop_back();
        }
        bld::reset_insertion_mode(b);
        process_in_mode(b, t);
        return;
    }
}

// ---- after body, framesets ----

void after_body(builder& b, token& t) {
    switch (t.token_kind) {
    case token_type::comment:
        bld::insert_comment(b, t.token_data, b.open.front());
        return;
    case token_type::doctype:
        return;
    case token_type::start_tag:
        if (t.token_name == "html") {
            in_body(b, t);
            return;
        }
        break;
    case token_type::end_tag:
        if (t.token_name == "html") {
            if (!b.context) {
                b.current_mode = mode::after_after_body;
            }
            return;
        }
        break;
    case token_type::end_of_file:
        b.stopped = true;
        return;
    case token_type::multi_char:
        break;
    }
    b.current_mode = mode::in_body;
    process_in_mode(b, t);
}

void after_body_chars(builder& b, std::string_view text) {
    std::size_t n = leading_space(text);
    in_body_chars(b, text.substr(0, n));
    text.remove_prefix(n);
    if (!text.empty()) {
        b.current_mode = mode::in_body;
        process_chars_in_mode(b, text);
    }
}

// Only whitespace counts in frameset documents; other text is dropped character by character.
void insert_only_spaces(builder& b, std::string_view text, bool body_rules) {
    std::string spaces;
    for (char c : text) {
        if (misc::is_space(c)) {
            spaces.push_back(c);
        }
    }
    if (body_rules) {
        in_body_chars(b, spaces);
    } else {
        bld::insert_characters(b, spaces);
    }
}

void in_frameset(builder& b, token& t) {
    switch (t.token_kind) {
    case token_type::comment:
        bld::insert_comment(b, t.token_data);
        return;
    case token_type::start_tag:
        if (t.token_name == "html") {
            in_body(b, t);
        } else if (t.token_name == "frameset") {
            bld::insert_element(b, t);
        } else if (t.token_name == "frame") {
            bld::insert_element(b, t);
            pop(b);
        } else if (t.token_name == "noframes") {
            in_head(b, t);
        }
        return;
    case token_type::end_tag:
        if (t.token_name == "frameset") {
            if (b.open.size() <= 1) {
                return;
            }
            pop(b);
            if (!b.context && !is_html(bld::current_node(b), "frameset")) {
                b.current_mode = mode::after_frameset;
            }
        }
        return;
    case token_type::end_of_file:
        b.stopped = true;
        return;
    case token_type::multi_char:
    case token_type::doctype:
        return;
    }
}

void after_frameset(builder& b, token& t) {
    switch (t.token_kind) {
    case token_type::comment:
        bld::insert_comment(b, t.token_data);
        return;
    case token_type::start_tag:
        if (t.token_name == "html") {
            in_body(b, t);
        } else if (t.token_name == "noframes") {
            in_head(b, t);
        }
        return;
    case token_type::end_tag:
        if (t.token_name == "html") {
            b.current_mode = mode::after_after_frameset;
        }
        return;
    case token_type::end_of_file:
        b.stopped = true;
        return;
    case token_type::multi_char:
    case token_type::doctype:
        return;
    }
}

void after_after_body(builder& b, token& t) {
    switch (t.token_kind) {
    case token_type::comment:
        bld::insert_comment(b, t.token_data, b.document.get());
        return;
    case token_type::doctype:
        in_body(b, t);
        return;
    case token_type::start_tag:
        if (t.token_name == "html") {
            in_body(b, t);
            return;
        }
        break;
    case token_type::end_of_file:
        b.stopped = true;
        return;
    case token_type::end_tag:
    case token_type::multi_char:
        break;
    }
    b.current_mode = mode::in_body;
    process_in_mode(b, t);
}

void after_after_frameset(builder& b, token& t) {
    switch (t.token_kind) {
    case token_type::comment:
        bld::insert_comment(b, t.token_data, b.document.get());
        return;
    case token_type::doctype:
        in_body(b, t);
        return;
    case token_type::start_tag:
        if (t.token_name == "html") {
            in_body(b, t);
        } else if (t.token_name == "noframes") {
            in_head(b, t);
        }
        return;
    case token_type::end_of_file:
        b.stopped = true;
        return;
    case token_type::end_tag:
    case token_type::multi_char:
        return;
    }
}

// ---- dispatch ----

void process_chars_in_mode(builder& b, std::string_view text) {
    if (text.empty()) {
        return;
    }
    switch (b.current_mode) {
    case mode::initial:
        initial_chars(b, text);
        return;
    case mode::before_html:
        before_html_chars(b, text);
        return;
    case mode::before_head:
        before_head_chars(b, text);
        return;
    case mode::in_head:
        in_head_chars(b, text);
        return;
    case mode::in_head_noscript:
        in_head_noscript_chars(b, text);
        return;
    case mode::after_head:
        after_head_chars(b, text);
        return;
    case mode::in_body:
    case mode::in_caption:
    case mode::in_cell:
    case mode::in_template:
        in_body_chars(b, text);
        return;
    case mode::text:
        bld::insert_characters(b, text);
        return;
    case mode::in_table:
    case mode::in_table_body:
    case mode::in_row:
        in_table_chars(b, text);
        return;
    case mode::in_table_text:
        in_table_text_chars(b, text);
        return;
    case mode::in_column_group:
        in_column_group_chars(b, text);
        return;
    case mode::after_body:
    case mode::after_after_body:
        after_body_chars(b, text);
        return;
    case mode::in_frameset:
    case mode::after_frameset:
        insert_only_spaces(b, text, false);
        return;
    case mode::after_after_frameset:
        insert_only_spaces(b, text, true);
        return;
    }
}

void process_in_mode(builder& b, token& t) {
    if (t.token_kind == token_type::multi_char) {
        process_chars_in_mode(b, t.token_data);
        return;
    }
    switch (b.current_mode) {
    case mode::initial:
        initial(b, t);
        return;
    case mode::before_html:
        before_html(b, t);
        return;
    case mode::before_head:
        before_head(b, t);
        return;
    case mode::in_head:
        in_head(b, t);
        return;
    case mode::in_head_noscript:
        in_head_noscript(b, t);
        return;
    case mode::after_head:
        after_head(b, t);
        return;
    case mode::in_body:
        in_body(b, t);
        return;
    case mode::text:
        text_mode(b, t);
        return;
    case mode::in_table:
        in_table(b, t);
        return;
    case mode::in_table_text:
        in_table_text(b, t);
        return;
    case mode::in_caption:
        in_caption(b, t);
        return;
    case mode::in_column_group:
        in_column_group(b, t);
        return;
    case mode::in_table_body:
        in_table_body(b, t);
        return;
    case mode::in_row:
        in_row(b, t);
        return;
    case mode::in_cell:
        in_cell(b, t);
        return;
    case mode::in_template:
        in_template(b, t);
        return;
    case mode::after_body:
        after_body(b, t);
        return;
    case mode::in_frameset:
        in_frameset(b, t);
        return;
    case mode::after_frameset:
        after_frameset(b, t);
        return;
    case mode::after_after_body:
        after_after_body(b, t);
        return;
    case mode::after_after_frameset:
        after_after_frameset(b, t);
        return;
    }
}

// ---- foreign content ----

bool breaks_out_of_foreign_content(token const& t) {
    if (t.token_kind == token_type::end_tag) {
        return t.token_name == "br" || t.token_name == "p";
    }
    if (t.token_name == "font") {
        return tkn::find_attribute(t, "color") != nullptr || tkn::find_attribute(t, "face") != nullptr ||
               tkn::find_attribute(t, "size") != nullptr;
    }
    return name_in(t.token_name,
                   {"b",   "big",  "blockquote", "body",    "br",   "center", "code",   "dd",  "div",
                    "dl",  "dt",   "em",         "embed",   "h1",   "h2",     "h3",     "h4",  "h5",
                    "h6",  "head", "hr",         "i",       "img",  "li",     "listing", "menu", "meta",
                    "nobr", "ol",  "p",          "pre",     "ruby", "s",      "small",  "span", "strong",
                    "strike", "sub", "sup",      "table",   "tt",   "u",      "ul",     "var"});
}

void foreign_content(builder& b, token& t) {
    switch (t.token_kind) {
    case token_type::multi_char: {
        std::string& text = t.token_data;
        bool replaced = text.find('\0') != std::string::npos;
        // U+0000 becomes U+FFFD but, unlike real text, doesn't rule out a frameset.
        bool real_text = false;
        for (char c : text) {
            if (c != '\0' && !misc::is_space(c)) {
                real_text = true;
                break;
            }
        }
        if (replaced) {
            std::string out;
            for (char c : text) {
                if (c == '\0') {
                    out.append("\xEF\xBF\xBD");
                } else {
                    out.push_back(c);
                }
            }
            text = std::move(out);
        }
        bld::insert_characters(b, text);
        if (real_text) {
            b.frameset_ok = false;
        }
        return;
    }
    case token_type::comment:
        bld::insert_comment(b, t.token_data);
        return;
    case token_type::doctype:
        return;
    case token_type::start_tag: {
        if (breaks_out_of_foreign_content(t)) {
            while (!b.open.empty()) {
                node const* n = bld::current_node(b);
                if (n->node_ns == html_ns::html || foreign::is_mathml_text_integration_point(*n) ||
                    foreign::is_html_integration_point(*n)) {
                    break;
                }
                pop(b);
            }
            process_in_mode(b, t);
            return;
        }
        html_ns ns = bld::adjusted_current_node(b)->node_ns;
        if (ns == html_ns::svg) {
            foreign::adjust_svg_start_tag_name(t.token_name);
        }
        insert_foreign(b, t, ns);
        return;
    }
    case token_type::end_tag: {
        if (t.token_name == "br" || t.token_name == "p") {
            while (!b.open.empty()) {
                node const* n = bld::current_node(b);
                if (n->node_ns == html_ns::html || foreign::is_mathml_text_integration_point(*n) ||
                    foreign::is_html_integration_point(*n)) {
                    break;
                }
                pop(b);
            }
            process_in_mode(b, t);
            return;
        }
        for (std::size_t i = b.open.size(); i-- > 0;) {
            node* n = b.open[i];
            if (i == 0) {
                return;
            }
            std::string lowered = n->node_name;
            misc::ascii_lowercase(lowered);
            if (lowered == t.token_name) {
                stack::pop_ele_up_to(b.open, n);
                return;
            }
            if (i > 0 && b.open[i - 1]->node_ns == html_ns::html) {
                process_in_mode(b, t);
                return;
            }
        }
        return;
    }
    case token_type::end_of_file:
        process_in_mode(b, t);
        return;
    }
}

bool use_html_rules(builder const& b, token const& t) {
    node const* n = bld::adjusted_current_node(b);
    if (n == nullptr || n->node_ns == html_ns::html) {
        return true;
    }
    bool start = t.token_kind == token_type::start_tag;
    bool chars = t.token_kind == token_type::multi_char;
    if (foreign::is_mathml_text_integration_point(*n)) {
        if (chars || (start && t.token_name != "mglyph" && t.token_name != "malignmark")) {
            return true;
        }
    }
    if (n->node_ns == html_ns::mathml && n->node_name == "annotation-xml" && start && t.token_name == "svg") {
        return true;
    }
    if (foreign::is_html_integration_point(*n) && (start || chars)) {
        return true;
    }
    return t.token_kind == token_type::end_of_file;
}

} // namespace

void process_token(bld::builder& b, tkn::token& t) {
    if (b.skip_next_newline) {
        // A newline right after <pre>, <listing> or <textarea> is not content.
        b.skip_next_newline = false;
        if (t.token_kind == token_type::multi_char && !t.token_data.empty() && t.token_data.front() == '\n') {
            t.token_data.erase(0, 1);
            if (t.token_data.empty()) {
                return;
            }
        }
    }
    if (use_html_rules(b, t)) {
        process_in_mode(b, t);
    } else {
        foreign_content(b, t);
    }
    node const* adjusted = bld::adjusted_current_node(b);
    b.tok.cdata_allowed = adjusted != nullptr && adjusted->node_ns != html_ns::html;
}

} // namespace vellum::html5::modes
