// CSS from scripts: `element.style` over the style attribute (values checked by the property parser and
// written back in canonical form, shorthands expanded into their members), `getComputedStyle` by the
// cascade against the tree as it stands, and `querySelector` through the selector parser and matcher.
#include "host/domjs_internal.hpp"
#include "js/builtins.hpp"

#include "css/color.hpp"
#include "css/parser.hpp"
#include "css/property.hpp"
#include "css/property_parse.hpp"
#include "css/propnames.hpp"
#include "css/selector.hpp"
#include "css/styledom/styledom.hpp"
#include "css/substitute.hpp"
#include "css/value.hpp"
#include "util/ref.hpp"

#include <algorithm>
#include <map>

namespace vellum::domjs {

namespace {

using args_t = std::vector<e::js_value>;
using css::propnames::prop_name;

enum class css_style_declaration_type { css_style_attr, css_computed_style };

struct css_host : e::host_data {
    css_style_declaration_type css_type = css_style_declaration_type::css_style_attr;
    dom::element_ref css_element;
};

std::string lower(std::string s) {
    std::ranges::transform(s, s.begin(), [](unsigned char c) { return char(std::tolower(c)); });
    return s;
}

bool is_color_property(std::string_view name) {
    return name == "color" || name.ends_with("-color");
}

// The canonical text of a value of a property: colours as "#rrggbb", the text-decoration keywords in
// their fixed order, anything else as the value writes itself back.
std::string canonical_text(std::string_view name, css::value::value const& v) {
    if (is_color_property(name)) {
        if (auto const c = css::color::parse_color(v)) {
            return css::color::to_text(*c);
        }
    }
    if (name == "text-decoration" || name == "text-decoration-line") {
        std::vector<std::string> words;
        for (auto const& t : css::property::parse::terms_of(v)) {
            if (auto const k = css::property::parse::keyword_of(t)) {
                words.push_back(lower(*k));
            }
        }
        bool const has_over = std::ranges::find(words, "overline") != words.end();
        bool const has_through = std::ranges::find(words, "line-through") != words.end();
        bool const has_under = std::ranges::find(words, "underline") != words.end();
        if (has_over || has_through || has_under) {
            std::string out;
            for (auto [on, word] : {std::pair{has_over, "overline"}, std::pair{has_through, "line-through"},
                                    std::pair{has_under, "underline"}}) {
                if (on) {
                    out += out.empty() ? "" : " ";
                    out += word;
                }
            }
            return out;
        }
    }
    return css::value::to_text(v);
}

// One declaration of a style attribute as scripts rewrite it.
struct style_entry {
    std::string entry_name;
    std::string entry_text;
    bool entry_important = false;
};

std::string element_base_text(dom::dom_element const& el) {
    return resource::locator::locator_to_string(dom::element_base(el));
}

std::vector<style_entry> read_style_attribute(dom::dom_element const& el) {
    std::vector<style_entry> out;
    auto const text = get_attribute(el, "style");
    if (!text) {
        return out;
    }
    for (auto const& d : css::parser::parse_declarations(css::origin::style_attribute, element_base_text(el), *text)) {
        out.push_back(style_entry{.entry_name = d.prop_name,
                                  .entry_text = canonical_text(d.prop_name, d.value),
                                  .entry_important = d.important});
    }
    return out;
}

void write_style_attribute(dom::element_ref const& el, std::vector<style_entry> const& entries) {
    std::string out;
    for (auto const& en : entries) {
        out += out.empty() ? "" : " ";
        out += en.entry_name + ": " + en.entry_text + (en.entry_important ? " !important" : "") + ";";
    }
    if (out.empty()) {
        remove_attribute(el, "style");
    } else {
        set_attribute(el, "style", out);
    }
}

// The members of a shorthand for the four sides of a box, in the order top, right, bottom, left, as the
// one-to-four-value rule assigns them; nothing for other shorthands. (Members beyond the four sides,
// such as the inside and outside margins of facing pages, are left alone.)
std::optional<std::vector<std::string>> box_sides(std::vector<std::string> const& members) {
    std::vector<std::string> out;
    for (auto const* side : {"top", "right", "bottom", "left"}) {
        auto const on_side = [&](std::string const& m) { return m.find(std::string("-") + side) != std::string::npos; };
        // Exactly one member per side: "border" has three on each, and is no box shorthand.
        if (std::ranges::count_if(members, on_side) != 1) {
            return std::nullopt;
        }
        out.push_back(*std::ranges::find_if(members, on_side));
    }
    return out;
}

std::vector<std::string> member_names(prop_name p) {
    std::vector<std::string> out;
    for (auto const l : css::property::shorthand_members(p)) {
        out.emplace_back(css::propnames::css_name(css::property::name_of(l)));
    }
    return out;
}

bool valid_for(std::string const& name, css::value::value const& v) {
    return css::property::valid_declaration(css::declaration{.prop_name = name, .value = v});
}

// A shorthand's value split among its members, as text; nothing where the split is not plain (the
// shorthand is then kept as written). Members the value leaves out get "initial", as a shorthand resets
// them.
std::optional<std::vector<std::pair<std::string, std::string>>> expand_shorthand(prop_name p, css::value::value const& v) {
    auto const members = member_names(p);
    if (members.empty()) {
        return std::nullopt;
    }
    std::vector<std::pair<std::string, std::string>> out;
    auto const terms = css::property::parse::terms_of(v);
    if (auto const k = css::property::parse::keyword_of(v); k && (lower(*k) == "inherit" || lower(*k) == "initial")) {
        for (auto const& m : members) {
            out.emplace_back(m, lower(*k));
        }
        return out;
    }
    if (auto const sides = box_sides(members)) {
        if (terms.empty() || terms.size() > 4) {
            return std::nullopt;
        }
        static constexpr std::size_t pick[4][4] = {{0, 0, 0, 0}, {0, 1, 0, 1}, {0, 1, 2, 1}, {0, 1, 2, 3}};
        for (std::size_t i = 0; i < 4; ++i) {
            auto const& t = terms[pick[terms.size() - 1][i]];
            out.emplace_back((*sides)[i], canonical_text((*sides)[i], t));
        }
        return out;
    }
    // Each term goes to every member that takes it and has no value yet: "1px solid red" gives the width,
    // style and colour of all four sides of a border.
    std::vector<std::optional<std::string>> given(members.size());
    for (auto const& t : terms) {
        bool used = false;
        for (std::size_t i = 0; i < members.size(); ++i) {
            if (!given[i] && valid_for(members[i], t)) {
                given[i] = canonical_text(members[i], t);
                used = true;
            }
        }
        if (!used) {
            return std::nullopt;
        }
    }
    for (std::size_t i = 0; i < members.size(); ++i) {
        out.emplace_back(members[i], given[i].value_or("initial"));
    }
    return out;
}

// The shorthands whose members don't stand apart term by term: kept as written.
bool keep_whole(prop_name p) {
    auto const name = css::propnames::css_name(p);
    return name == "font" || name == "background" || name == "columns" || name == "column-rule" ||
           name == "border-radius" || name == "list-style";
}

// `css_get_prop` on the style attribute: the text of the last declaration of the property, or of the
// member in the last shorthand that sets it.
std::string style_attr_get(dom::dom_element const& el, prop_name p) {
    std::string const name(css::propnames::css_name(p));
    auto const entries = read_style_attribute(el);
    for (auto it = entries.rbegin(); it != entries.rend(); ++it) {
        if (it->entry_name == name) {
            return it->entry_text;
        }
        auto const sp = css::propnames::lookup_property(it->entry_name);
        if (!sp || css::propnames::kind_of(*sp) != css::propnames::name_kind::shorthand) {
            continue;
        }
        auto const v = css::parser::parse_value(element_base_text(el), it->entry_text);
        if (!v) {
            continue;
        }
        if (auto const parts = expand_shorthand(*sp, *v)) {
            for (auto const& [m, t] : *parts) {
                if (m == name) {
                    return t;
                }
            }
        }
    }
    return {};
}

// `css_set_prop`: a value the property takes replaces the declaration or is added; a shorthand is set by
// its members. An empty value removes the declaration; a value the property doesn't take is ignored.
void style_attr_set(dom::element_ref const& el, prop_name p, std::string const& text) {
    std::string const name(css::propnames::css_name(p));
    auto entries = read_style_attribute(*el);
    auto const members = member_names(p);
    auto drop = [&](std::string const& n) { std::erase_if(entries, [&](style_entry const& en) { return en.entry_name == n; }); };
    auto put = [&](std::string const& n, std::string const& t) {
        for (auto& en : entries) {
            if (en.entry_name == n) {
                en.entry_text = t;
                en.entry_important = false;
                return;
            }
        }
        entries.push_back(style_entry{.entry_name = n, .entry_text = t});
    };
    auto trimmed = text;
    trimmed.erase(0, trimmed.find_first_not_of(" \t\r\n\f"));
    trimmed.erase(trimmed.find_last_not_of(" \t\r\n\f") + 1);
    if (trimmed.empty()) {
        drop(name);
        for (auto const& m : members) {
            drop(m);
        }
        write_style_attribute(el, entries);
        return;
    }
    auto const v = css::parser::parse_value(element_base_text(*el), trimmed);
    if (!v || !valid_for(name, *v)) {
        return;
    }
    if (!members.empty() && !keep_whole(p)) {
        if (auto const parts = expand_shorthand(p, *v)) {
            drop(name);
            for (auto const& [m, t] : *parts) {
                put(m, t);
            }
            write_style_attribute(el, entries);
            return;
        }
    }
    for (auto const& m : members) {
        drop(m);
    }
    put(name, canonical_text(name, *v));
    write_style_attribute(el, entries);
}

// ---- getComputedStyle --------------------------------------------------------------------------------------

// Initial values as text, for the properties scripts ask about most; others read as the empty string
// when nothing sets them.
std::optional<std::string> initial_text(std::string const& name) {
    static std::map<std::string, std::string, std::less<>> const table = {
        {"background-color", "transparent"}, {"background-image", "none"}, {"clear", "none"},
        {"color", "#000000"}, {"direction", "ltr"}, {"display", "inline"}, {"float", "none"},
        {"font-size", "medium"}, {"font-style", "normal"}, {"font-variant", "normal"}, {"font-weight", "normal"},
        {"height", "auto"}, {"left", "auto"}, {"letter-spacing", "normal"}, {"line-height", "normal"},
        {"list-style-type", "disc"}, {"margin-bottom", "0"}, {"margin-left", "0"}, {"margin-right", "0"},
        {"margin-top", "0"}, {"padding-bottom", "0"}, {"padding-left", "0"}, {"padding-right", "0"},
        {"padding-top", "0"}, {"position", "static"}, {"text-align", "start"}, {"text-decoration", "none"},
        {"text-indent", "0"}, {"text-transform", "none"}, {"top", "auto"}, {"visibility", "visible"},
        {"white-space", "normal"}, {"width", "auto"}, {"word-spacing", "normal"},
        {"border-top-style", "none"}, {"border-right-style", "none"}, {"border-bottom-style", "none"},
        {"border-left-style", "none"}, {"border-top-width", "medium"}, {"border-right-width", "medium"},
        {"border-bottom-width", "medium"}, {"border-left-width", "medium"},
    };
    auto it = table.find(name);
    return it == table.end() ? std::nullopt : std::optional(it->second);
}

// The winning declarations of one element, in ascending priority.
std::vector<css::declaration> cascaded_declarations(styledom::document_rules const& rules, dom::dom_element const& el) {
    styledom::cascaded out;
    styledom::cascade_buffers buffers;
    styledom::tree::dom_tree const tree{};
    styledom::cascade_element(el, tree, rules, dom::element_base(el), out, buffers);
    std::vector<css::declaration> decls;
    for (auto const* pd : out.cascaded_pdecls) {
        decls.push_back(pd->declaration);
    }
    return decls;
}

// What the cascade declares for one element, as property name to text, shorthands expanded; var() is
// replaced from the custom properties the element has.
std::map<std::string, std::string> cascaded_values(std::vector<css::declaration> const& decls,
                                                   css::substitute::custom_properties const& customs) {
    std::map<std::string, std::string> values;
    css::substitute::context const ctx{.customs = &customs};
    for (auto const& d : decls) {
        if (d.prop_name.starts_with("--")) {
            continue;
        }
        auto value = d.value;
        if (css::substitute::has_var(value)) {
            auto const v = css::substitute::substitute(value, ctx);
            if (!v) {
                continue;
            }
            value = *v;
        }
        auto const p = css::propnames::lookup_property(d.prop_name);
        if (p && css::propnames::kind_of(*p) == css::propnames::name_kind::shorthand) {
            if (auto const parts = expand_shorthand(*p, value)) {
                for (auto const& [m, t] : *parts) {
                    values[m] = t;
                }
            }
            continue;
        }
        values[d.prop_name] = canonical_text(d.prop_name, value);
    }
    return values;
}

std::string computed_get(e::js& engine, dom::element_ref const& el, prop_name p) {
    if (css::propnames::kind_of(p) == css::propnames::name_kind::shorthand) {
        // A shorthand reads as its members, if every member has a value, and they are joined.
        std::string out;
        for (auto const& m : member_names(p)) {
            auto const mp = css::propnames::lookup_property(m);
            std::string const t = mp ? computed_get(engine, el, *mp) : std::string();
            if (t.empty()) {
                throw internal_error(":shorthand pred failed.");
            }
            out += out.empty() ? "" : " ";
            out += t;
        }
        return out;
    }
    auto const doc = el->dom_element_owner_doc.lock();
    if (!doc) {
        return {};
    }
    // The sheets as they stand now: a script may have changed a style element or a class a moment ago.
    // Without a loader (an engine made for tests or the shell) only the style attributes count.
    auto collected = engine.js_loader ? styledom::sheets::collect_sheets(engine.js_log, *engine.js_loader, *doc)
                                      : styledom::sheets::collected{.sheets_env = css::parser::new_env("print")};
    auto const rules = styledom::index_document_rules(std::move(collected), doc->dom_document_style_info.use_author_style, {});
    // The element and its ancestors, nearest first, with their declarations.
    std::vector<std::vector<css::declaration>> chain;
    for (dom::element_ref cur = el; cur;) {
        chain.push_back(cascaded_declarations(rules, *cur));
        auto const holder = cur->dom_element_parent.get();
        auto const* parent = std::get_if<dom::element_parent>(&holder);
        cur = parent != nullptr ? parent->parent_element.lock() : nullptr;
    }
    // Custom properties inherit as a whole: each element's own override its ancestors'.
    std::vector<css::substitute::custom_properties> customs(chain.size());
    for (std::size_t i = chain.size(); i-- > 0;) {
        customs[i] = i + 1 < chain.size() ? customs[i + 1] : css::substitute::custom_properties{};
        for (auto const& d : chain[i]) {
            if (d.prop_name.starts_with("--")) {
                customs[i][d.prop_name] = d.value;
            }
        }
        customs[i] = css::substitute::resolve_customs(std::move(customs[i]));
    }
    std::string const name(css::propnames::css_name(p));
    auto const longhand = css::property::longhand_named(p);
    bool const inherited = longhand && css::property::is_inherited(*longhand);
    for (std::size_t i = 0; i < chain.size(); ++i) {
        auto const values = cascaded_values(chain[i], customs[i]);
        auto const it = values.find(name);
        if (it != values.end() && it->second != "inherit") {
            if (it->second == "initial") {
                break;
            }
            return it->second;
        }
        if (it == values.end() && !inherited) {
            break;
        }
    }
    return initial_text(name).value_or("");
}

css_host const* css_of(e::js_value const& self) {
    auto const* o = std::get_if<js_object>(&self);
    if (o == nullptr) {
        return nullptr;
    }
    auto const* h = std::get_if<e::class_host_object>(&(*o)->obj_class);
    return h != nullptr ? dynamic_cast<css_host const*>(h->host_object.get()) : nullptr;
}

js_object new_declaration(e::js& engine, css_style_declaration_type type, dom::element_ref const& el) {
    auto h = std::make_shared<css_host>();
    h->css_type = type;
    h->css_element = el;
    return e::new_object_of(engine, e::class_host_object{.host_object = h},
                            e::yes_proto{.proto = prototypes_of(engine).prototype_css_style_declaration});
}

std::string css_get_prop(e::js& engine, css_host const& c, prop_name p) {
    switch (c.css_type) {
    case css_style_declaration_type::css_style_attr: return style_attr_get(*c.css_element, p);
    case css_style_declaration_type::css_computed_style: return computed_get(engine, c.css_element, p);
    }
    return {};
}

using css_fn = std::function<e::expr_res<e::js_value>(e::js&, css_host const&, args_t const&)>;

native_fn on_css(css_fn f) {
    return [f = std::move(f)](e::js& engine, e::js_value const& self, args_t const& args) -> e::expr_res<e::js_value> {
        auto const* c = css_of(self);
        if (c == nullptr) {
            return e::throw_error(engine, e::js_error::invalid_this);
        }
        return f(engine, *c, args);
    };
}

// The property a script names by its CSS name, if known.
std::optional<prop_name> property_named(std::string const& name) {
    return css::propnames::lookup_property(lower(name));
}

} // namespace

std::optional<std::string> class_name_of(e::host_value const& h) {
    if (dynamic_cast<css_host const*>(h.get()) != nullptr) {
        return "CSSStyleDeclaration";
    }
    return collection_class(h);
}

e::js_value style_object(e::js& engine, dom::element_ref const& el) {
    return new_declaration(engine, css_style_declaration_type::css_style_attr, el);
}

e::expr_res<std::vector<dom::element_ref>> query_selector(e::js& engine, dom::dom_node const& root, std::string const& text,
                                                          bool first_only) {
    auto parsed = css::selector::parse_selector_text(text, css::namespaces{});
    if (!parsed || parsed->empty()) {
        return throw_dom(engine, dom_exception::syntax_err);
    }
    auto selectors = *parsed;
    auto const doc = owner_document(root);
    if (doc && is_html_document(*doc)) {
        for (auto& s : selectors) {
            s = css::selector::fold_html_case(s);
        }
    }
    std::vector<dom::element_ref> found;
    for_each_element(root, [&](dom::element_ref const& el) {
        if (std::ranges::any_of(selectors, [&](auto const& s) { return styledom::element_matches(s, *el); })) {
            found.push_back(el);
            return !first_only;
        }
        return true;
    });
    return found;
}

void install_style(e::js& engine, dom_state& state) {
    js_object const proto = state.state_prototypes.prototype_css_style_declaration;
    for (int i = 0; i < css::propnames::prop_name_count; ++i) {
        auto const p = prop_name(i);
        if (css::propnames::kind_of(p) == css::propnames::name_kind::page_only) {
            continue;
        }
        webidl::add_native_accessor(
            engine, proto, css::propnames::script_name(p),
            on_css([p](e::js& engine, css_host const& c, args_t const&) -> e::expr_res<e::js_value> {
                return str(css_get_prop(engine, c, p));
            }),
            on_css([p](e::js& engine, css_host const& c, args_t const& args) -> e::expr_res<e::js_value> {
                if (c.css_type == css_style_declaration_type::css_computed_style) {
                    return throw_dom(engine, dom_exception::invalid_state_err);
                }
                auto text = arg_text(engine, args, 0);
                if (auto const* x = std::get_if<e::exception>(&text)) {
                    return *x;
                }
                style_attr_set(c.css_element, p, std::get<std::string>(text));
                return e::undefined();
            }));
    }
    webidl::add_native_method(engine, proto, "getPropertyValue", 1,
                              on_css([](e::js& engine, css_host const& c, args_t const& args) -> e::expr_res<e::js_value> {
                                  auto name = arg_text(engine, args, 0);
                                  if (auto const* x = std::get_if<e::exception>(&name)) {
                                      return *x;
                                  }
                                  auto const p = property_named(std::get<std::string>(name));
                                  return str(p ? css_get_prop(engine, c, *p) : std::string());
                              }));
    webidl::add_native_method(engine, proto, "setProperty", 2,
                              on_css([](e::js& engine, css_host const& c, args_t const& args) -> e::expr_res<e::js_value> {
                                  if (c.css_type == css_style_declaration_type::css_computed_style) {
                                      return throw_dom(engine, dom_exception::invalid_state_err);
                                  }
                                  auto texts = arg_texts(engine, args, 2);
                                  if (auto const* x = std::get_if<e::exception>(&texts)) {
                                      return *x;
                                  }
                                  auto const& t = std::get<std::vector<std::string>>(texts);
                                  if (auto const p = property_named(t[0])) {
                                      style_attr_set(c.css_element, *p, t[1]);
                                  }
                                  return e::undefined();
                              }));
    webidl::add_native_accessor(engine, proto, "cssText",
                                on_css([](e::js&, css_host const& c, args_t const&) -> e::expr_res<e::js_value> {
                                    if (c.css_type == css_style_declaration_type::css_computed_style) {
                                        return str("");
                                    }
                                    return str(get_attribute(*c.css_element, "style").value_or(""));
                                }),
                                on_css([](e::js& engine, css_host const& c, args_t const& args) -> e::expr_res<e::js_value> {
                                    if (c.css_type == css_style_declaration_type::css_computed_style) {
                                        return throw_dom(engine, dom_exception::invalid_state_err);
                                    }
                                    auto text = arg_text(engine, args, 0);
                                    if (auto const* x = std::get_if<e::exception>(&text)) {
                                        return *x;
                                    }
                                    set_attribute(c.css_element, "style", std::get<std::string>(text));
                                    return e::undefined();
                                }));

    // `getComputedStyle(element)`: a declaration that computes at each read.
    js_object const f = webidl::add_native_method(
        engine, engine.global_object, "getComputedStyle", 1,
        [](e::js& engine, e::js_value const&, args_t const& args) -> e::expr_res<e::js_value> {
            auto const n = args.empty() ? std::nullopt : node_of(args[0]);
            auto const* el = n ? std::get_if<dom::element_ref>(&*n) : nullptr;
            if (el == nullptr) {
                return e::throw_error(engine, e::js_error::invalid_arguments);
            }
            return new_declaration(engine, css_style_declaration_type::css_computed_style, *el);
        });
    (void)f;

    // The boxes of the finished layout, as `getVellumBoxes` gives them.
    auto const box_info = webidl::make_interface(engine, "BoxInfo", std::nullopt);
    state.state_prototypes.prototype_box_info = box_info.prototype;
    auto const box_children = webidl::make_interface(engine, "BoxInfoChildren", std::nullopt);
    state.state_prototypes.prototype_box_info_children = box_children.prototype;
    // `item(i)`: the child at that index, or null past the end.
    webidl::add_native_method(
        engine, box_children.prototype, "item", 1,
        [](e::js& engine, e::js_value const& self, args_t const& args) -> e::expr_res<e::js_value> {
            auto const* o = std::get_if<e::js_object>(&self);
            if (o == nullptr) {
                return e::throw_error(engine, e::js_error::invalid_this);
            }
            js::number n;
            if (auto ex = e::builtins::take(e::to_number(engine, args.empty() ? e::js_value{e::js_undefined{}} : args[0]), n)) {
                return *ex;
            }
            double const d = e::to_double(n);
            if (!(d >= 0) || d >= 4294967296.0) {
                return e::js_value{e::js_null{}};
            }
            e::js_value v;
            if (auto ex = e::builtins::take(e::builtins::get_named(engine, *o, std::to_string(static_cast<std::uint64_t>(d))), v)) {
                return *ex;
            }
            return std::holds_alternative<e::js_undefined>(v) ? e::js_value{e::js_null{}} : v;
        });
}

} // namespace vellum::domjs
