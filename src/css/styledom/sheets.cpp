#include "css/styledom/sheets.hpp"

#include "css/lexer.hpp"
#include "css/media.hpp"
#include "css/page.hpp"
#include "css/property.hpp"
#include "css/styledom/tree.hpp"
#include "resource/resource.hpp"
#include "util/ref.hpp"

namespace vellum::styledom::sheets {

namespace {

namespace loc = resource::locator;
using resource::loader::loader;

bool is_blank(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f';
}

// Reads a resource named by a sheet and files its final name as a base for what it names in turn.
result<css::parser::fetched_sheet> fetch_locator(log::log const& log, loader const& l, base_table& table,
                                                 loc::locator const& target) {
    auto loaded = resource::loader::load_resource(log, l, resource::loader::resource_description::stylesheet,
                                                  target);
    if (!loaded) {
        return fail(loaded.error());
    }
    auto data = resource::loader::resource_to_bytes(loaded->resource_data);
    if (!data) {
        return fail(data.error());
    }
    std::optional<std::string> type;
    if (loaded->resource_type) {
        type = resource::resource_type_to_string(*loaded->resource_type);
    }
    std::string const key = add_base(table, l, loaded->resource_locator);
    return css::parser::fetched_sheet{key, std::string(data->chars()), std::move(type)};
}

// Loads a sheet named by a locator, with its imports, into the environment.
css::parser::env load_sheet(log::log const& log, loader const& l, base_table& table, css::origin o,
                            loc::locator const& target, css::parser::env e) {
    bool first = true;
    // The first request is the sheet itself, already a locator; the imports it makes are url values
    // relative to the sheets that name them.
    css::parser::fetch const fetcher = [&](css::value::url const& u) -> result<css::parser::fetched_sheet> {
        if (first) {
            first = false;
            return fetch_locator(log, l, table, target);
        }
        return fetch_locator(log, l, table, resolve_url(table, u));
    };
    return css::parser::load_style_sheet(log, fetcher, o, css::value::url{base_key(l, target), ""}, std::move(e));
}

// Reads the text of a style element, whose URLs are relative to the element's base.
css::parser::env parse_sheet_text(log::log const& log, loader const& l, base_table& table, css::origin o,
                                  loc::locator const& base, std::string_view text, css::parser::env e) {
    css::parser::fetch const fetcher = [&](css::value::url const& u) {
        return fetch_locator(log, l, table, resolve_url(table, u));
    };
    std::string const key = add_base(table, l, base);
    return css::parser::parse_style_sheet(log, fetcher, o, key, text, std::move(e));
}

// The lower-cased value of a plain attribute equals `wanted`, or the attribute is absent.
bool absent_or_lower_equals(std::optional<std::string> const& value, std::string_view wanted) {
    return !value || css::lexer::ascii_lower(*value) == wanted;
}

// A style element of SVG content, which holds CSS as HTML's does.
bool is_svg_style(xml::name const& n) {
    auto const* q = std::get_if<xml::qualified_name>(&n);
    return q && std::holds_alternative<xml::xmlns_svg>(q->namespace_uri) && q->local == "style";
}

// Style and link elements in document order; the walk doesn't enter them.
template <class F>
void for_each_style_element(dom::dom_element const& e, F const& f) {
    if (tree::is_html_name(e.dom_element_name, "style") || tree::is_html_name(e.dom_element_name, "link") ||
        is_svg_style(e.dom_element_name)) {
        f(e);
        return;
    }
    for (auto const& child : tree::element_children(e)) {
        for_each_style_element(*child, f);
    }
}

template <class F>
void for_each_style_element(dom::dom_document const& doc, F const& f) {
    for (auto const& child : tree::element_children(doc)) {
        for_each_style_element(*child, f);
    }
}

} // namespace

std::string base_key(loader const& l, loc::locator const& target) {
    // The program's own files are named by their place under the prefix, which also reads well in
    // messages and cannot be mistaken for a user's file of the same relative name.
    if (target.locator_origin == loc::locator_origin::system_origin &&
        std::holds_alternative<loc::file>(target.locator_url)) {
        if (auto const path = resource::loader::resolve_filename(l, target)) {
            return path->path;
        }
    }
    return loc::locator_to_string(target);
}

std::string add_base(base_table& table, loader const& l, loc::locator const& target) {
    std::string key = base_key(l, target);
    table.bases.insert_or_assign(key, target);
    return key;
}

loc::locator resolve_url(base_table const& table, css::value::url const& url) {
    if (auto const it = table.bases.find(url.url_base); it != table.bases.end()) {
        return loc::resolve_locator(it->second, url.url_text);
    }
    if (url.url_base.empty()) {
        return loc::parse_locator(loc::path_or_url::url_strict, loc::locator_origin::document_origin, std::nullopt,
                                  url.url_text);
    }
    auto const base = loc::parse_locator(loc::path_or_url::path_or_url, loc::locator_origin::document_origin,
                                         std::nullopt, url.url_base);
    return loc::resolve_locator(base, url.url_text);
}

std::vector<std::string> default_sheets(doctype::xmltype const& kind) {
    return std::visit(overloaded{
                          [](doctype::xmltype_xml const&) -> std::vector<std::string> {
                              return {"xhtml-ns.css", "common.css"};
                          },
                          [](doctype::xmltype_xhtml const& x) -> std::vector<std::string> {
                              switch (x.xhtml_kind) {
                              case doctype::xhtml_doctype::xhtml_ns: return {"xhtml-ns.css", "common.css"};
                              case doctype::xhtml_doctype::xhtml_no_ns: return {"xhtml.css", "common.css"};
                              }
                              return {};
                          },
                          [](doctype::xmltype_docbook const&) -> std::vector<std::string> {
                              return {"docbook.css", "xhtml-ns.css", "common.css"};
                          },
                      },
                      kind);
}

bool rel_accepted(std::string_view rel) {
    bool sheet = false;
    bool alternate = false;
    std::size_t i = 0;
    while (i < rel.size()) {
        while (i < rel.size() && is_blank(rel[i])) {
            ++i;
        }
        std::size_t const start = i;
        while (i < rel.size() && !is_blank(rel[i])) {
            ++i;
        }
        auto const word = css::lexer::ascii_lower(rel.substr(start, i - start));
        sheet = sheet || word == "stylesheet";
        alternate = alternate || word == "alternate";
    }
    return sheet && !alternate;
}

std::map<std::string, std::string> pi_attributes(std::string_view content) {
    std::map<std::string, std::string> out;
    std::size_t i = 0;
    auto skip_blanks = [&] {
        while (i < content.size() && is_blank(content[i])) {
            ++i;
        }
    };
    for (;;) {
        skip_blanks();
        std::size_t const start = i;
        while (i < content.size() && !is_blank(content[i]) && content[i] != '=') {
            ++i;
        }
        if (i == start) {
            return out;
        }
        std::string name(content.substr(start, i - start));
        skip_blanks();
        if (i >= content.size() || content[i] != '=') {
            return out;
        }
        ++i;
        skip_blanks();
        if (i >= content.size() || (content[i] != '"' && content[i] != '\'')) {
            return out;
        }
        char const quote = content[i++];
        auto const end = content.find(quote, i);
        if (end == std::string_view::npos) {
            return out;
        }
        // The first of two equal names counts.
        out.emplace(std::move(name), std::string(content.substr(i, end - i)));
        i = end + 1;
    }
}

bool media_attribute_matches(std::string_view media, std::string_view medium) {
    auto const queries = css::media::parse_query_text(media);
    return queries && css::media::matches(*queries, medium);
}

std::optional<std::string> xml_stylesheet_href(std::string_view content, std::string_view medium) {
    auto const attrs = pi_attributes(content);
    auto const href = attrs.find("href");
    auto const type = attrs.find("type");
    if (href == attrs.end() || type == attrs.end() || css::lexer::ascii_lower(type->second) != "text/css") {
        return std::nullopt;
    }
    if (auto const alt = attrs.find("alternate"); alt != attrs.end() && alt->second != "no") {
        return std::nullopt;
    }
    if (auto const media = attrs.find("media"); media != attrs.end() && !media_attribute_matches(media->second, medium)) {
        return std::nullopt;
    }
    return href->second;
}

std::optional<loc::locator> linked_sheet(dom::dom_element const& link, loc::locator const& base,
                                         std::string_view medium) {
    if (!tree::is_html_name(link.dom_element_name, "link")) {
        return std::nullopt;
    }
    auto const href = tree::plain_attribute(link, "href");
    if (!href || !absent_or_lower_equals(tree::plain_attribute(link, "type"), "text/css")) {
        return std::nullopt;
    }
    if (auto const media = tree::plain_attribute(link, "media"); media && !media_attribute_matches(*media, medium)) {
        return std::nullopt;
    }
    if (auto const rel = tree::plain_attribute(link, "rel"); rel && !rel_accepted(*rel)) {
        return std::nullopt;
    }
    return loc::resolve_locator(base, *href);
}

std::vector<css::page_rule::page_rule> job_page_rules(log::log const& log,
                                                      std::vector<dom::pending_page_decl> const& pdecls) {
    // Each option is a rule of its own for all pages, in the order the command line keeps them (the
    // margin before the size); a value that isn't one is warned about and left out.
    std::vector<css::page_rule::page_rule> rules;
    for (auto const& p : pdecls) {
        auto rule = p.decl_kind == dom::page_decl_kind::size ? css::page::page_size_rule(log, p.decl_text)
                                                            : css::page::page_margin_rule(log, p.decl_text);
        if (rule) {
            rules.push_back(std::move(*rule));
        }
    }
    return rules;
}

bool has_prefetch_threads(loader const& l) {
    auto const* yes = std::get_if<resource::loader::yes_network>(&l.loader_network);
    if (yes == nullptr) {
        return false;
    }
    return yes->network.loader_threads->with([](resource::loader::loader_threads& threads) {
        return std::holds_alternative<resource::loader::prefetch_threads>(threads);
    });
}

void prefetch_links(log::log const& log, loader const& l, dom::dom_document const& doc) {
    auto const& medium = doc.dom_document_style_info.media;
    for_each_style_element(doc, [&](dom::dom_element const& e) {
        if (auto const target = linked_sheet(e, dom::element_base(e), medium)) {
            resource::loader::prefetch(log, l, *target);
        }
    });
}

namespace {

collected read_sheets(log::log const& log, loader const& l, dom::dom_document const& doc,
                      css::terms::property_filter known_property,
                      std::optional<std::pair<float, float>> page);

} // namespace

collected collect_sheets(log::log const& log, loader const& l, dom::dom_document const& doc,
                         css::terms::property_filter known_property) {
    // Media queries on width, height and orientation measure the paper: first the one the command line
    // asks for (or the default), and if the sheets' own @page rules give another, the sheets are read
    // once more with that, quietly, since the first reading said what there was to say about loading.
    std::optional<std::pair<float, float>> page;
    if (known_property != nullptr) {
        auto const rules = job_page_rules(log::log{.log_stderr = log::no_stderr_log{}},
                                          doc.dom_document_style_info.page_pdecls);
        auto const paper = css::page::page_style_of(css::page::make_pages(rules), {}, nullptr).page_size;
        page = std::pair{paper.paper_width, paper.paper_height};
    }
    collected out = read_sheets(log, l, doc, known_property, page);
    if (page && out.sheets_env.media_page_asked) {
        auto const paper = css::page::page_style_of(css::page::make_pages(out.sheets_env.pages), {}, nullptr).page_size;
        std::pair const sheets_page{paper.paper_width, paper.paper_height};
        if (sheets_page != *page) {
            out = read_sheets(log::log{.log_stderr = log::no_stderr_log{}}, l, doc, known_property, sheets_page);
        }
    }
    css::parser::finish_layers(out.sheets_env);
    css::parser::log_warnings(log, out.sheets_env);
    return out;
}

namespace {

collected read_sheets(log::log const& log, loader const& l, dom::dom_document const& doc,
                      css::terms::property_filter known_property,
                      std::optional<std::pair<float, float>> page) {
    auto const& info = doc.dom_document_style_info;
    if (has_prefetch_threads(l)) {
        prefetch_links(log, l, doc);
    }
    collected out{.sheets_env = css::parser::new_env(info.media)};
    auto& e = out.sheets_env;
    auto& table = out.sheets_bases;
    e.known_property = known_property;
    if (known_property != nullptr) {
        e.valid_value = &css::property::valid_declaration;
    }
    auto const doc_base = doc.dom_document_base.get();
    add_base(table, l, doc_base);

    auto job_rules = job_page_rules(log, info.page_pdecls);
    e.pages.insert(e.pages.begin(), std::make_move_iterator(job_rules.begin()),
                   std::make_move_iterator(job_rules.end()));
    e.media_page_area = page;
    if (info.use_default_style) {
        for (auto const& name : default_sheets(doc.dom_document_xmltype)) {
            loc::locator const target{.locator_url = loc::file{{"style/" + name}, std::nullopt},
                                      .locator_origin = loc::locator_origin::system_origin};
            e = load_sheet(log, l, table, css::origin::program, target, std::move(e));
        }
    }
    for (auto const& user : info.user_style_sheets) {
        e = load_sheet(log, l, table, css::origin::user, user, std::move(e));
    }
    if (info.use_author_style) {
        for (auto const& pi : doc.dom_document_pi) {
            if (pi.pi_target != "xml-stylesheet") {
                continue;
            }
            if (auto const href = xml_stylesheet_href(pi.pi_content, info.media)) {
                e = load_sheet(log, l, table, css::origin::author, loc::resolve_locator(doc_base, *href), std::move(e));
            }
        }
        for_each_style_element(doc, [&](dom::dom_element const& el) {
            auto const base = dom::element_base(el);
            if (tree::is_html_name(el.dom_element_name, "style") || is_svg_style(el.dom_element_name)) {
                if (!absent_or_lower_equals(tree::plain_attribute(el, "type"), "text/css")) {
                    return;
                }
                if (auto const media = tree::plain_attribute(el, "media");
                    media && !media_attribute_matches(*media, info.media)) {
                    return;
                }
                e = parse_sheet_text(log, l, table, css::origin::author, base, tree::own_text(el), std::move(e));
            } else if (auto const target = linked_sheet(el, base, info.media)) {
                e = load_sheet(log, l, table, css::origin::author, *target, std::move(e));
            }
        });
    }
    // The HTML parsers give lower-case element names, whatever the sheets wrote; XML stays case-sensitive.
    if (doc.dom_document_doctype != doctype::doctype::xml) {
        for (auto& rule : e.rules) {
            rule.rule_selector = css::selector::fold_html_case(rule.rule_selector);
        }
    }
    return out;
}

} // namespace

} // namespace vellum::styledom::sheets
