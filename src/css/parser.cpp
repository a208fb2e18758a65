#include "css/parser.hpp"

#include "css/media.hpp"

#include <iconv.h>

#include <algorithm>
#include <functional>
#include <span>

namespace vellum::css::parser {

namespace {

using lexer::symbol;

// Imports nested deeper than this are taken for a loop that the URL check missed.
constexpr std::size_t max_import_depth = 32;

// The most sheets read through @import for one document. Sheets that import each other several times
// over grow exponentially with the depth; no real document needs more than a few dozen.
constexpr int max_imports = 1000;

bool is_at(cursor::cursor const& c, std::string_view name) {
    auto const* a = c.get<lexer::at>();
    return a != nullptr && lexer::equals_ignoring_case(a->at_name, name);
}

// A string or url(...), as @import and @namespace take them.
std::optional<std::string> url_or_string(cursor::cursor& c) {
    if (auto const* s = c.get<lexer::string>()) {
        ++c.pos;
        return s->string_text;
    }
    if (auto const* u = c.get<lexer::url>()) {
        ++c.pos;
        return u->url_text;
    }
    if (auto const* f = c.get<lexer::function>(); f != nullptr && lexer::equals_ignoring_case(f->function_name, "url")) {
        std::size_t const save = c.pos;
        ++c.pos;
        c.skip_spaces();
        if (auto const* s = c.get<lexer::string>()) {
            ++c.pos;
            c.skip_spaces();
            if (c.accept(symbol::close_paren)) {
                return s->string_text;
            }
        }
        c.pos = save;
    }
    return std::nullopt;
}

struct import {
    std::string import_url;
    media::query_list import_media;
};

// The state of reading one sheet.
struct sheet_reader {
    log::log const& log;
    fetch const& fetcher;
    css::origin origin;
    std::string const& sheet_url;
    std::vector<std::string>& chain;
    env& e;
    cursor::cursor c;
    terms::context ctx;
    /// Syntax errors, unknown names and invalid values met so far, for the warnings.
    std::vector<terms::problem> problems = {};
    /// The full name of the cascade layer being read ("" outside any) and its number in `e.layers`.
    std::string layer_name = {};
    int layer_id = 0;

    terms::list_context list_context(terms::property_filter filter) {
        return {.terms = ctx, .origin = origin, .known_property = filter, .problems = &problems};
    }

    void tell(int line, std::string text) { problems.push_back({line, std::move(text)}); }

    // "{", declarations, "}"; the end of the text closes the block.
    std::optional<declarations> block(terms::property_filter filter,
                                      terms::at_rule_handler const& at_rule = {}) {
        c.skip_spaces();
        if (!c.accept(symbol::open_brace)) {
            return std::nullopt;
        }
        auto decls = terms::parse_declaration_list(c, list_context(filter), e.index, at_rule);
        c.accept(symbol::close_brace);
        return decls;
    }

    // "@charset" with a string and ";".
    bool charset() {
        std::size_t const save = c.pos;
        ++c.pos;
        c.skip_spaces();
        if (c.get<lexer::string>() != nullptr) {
            ++c.pos;
            c.skip_spaces();
            if (c.accept(symbol::semicolon)) {
                return true;
            }
        }
        c.pos = save;
        return false;
    }

    // "@import" with a string or url(...), an optional media query list and ";".
    std::optional<import> import_rule() {
        std::size_t const save = c.pos;
        ++c.pos;
        c.skip_spaces();
        auto target = url_or_string(c);
        if (target) {
            auto queries = media::parse_query_list(c);
            if (queries && c.accept(symbol::semicolon)) {
                return import{*target, std::move(*queries)};
            }
        }
        c.pos = save;
        return std::nullopt;
    }

    // "@namespace", an optional prefix, a string or url(...), and ";".
    bool namespace_rule() {
        std::size_t const save = c.pos;
        ++c.pos;
        c.skip_spaces();
        std::optional<std::string> prefix;
        if (auto const* i = c.get<lexer::ident>()) {
            prefix = i->ident_name;
            ++c.pos;
            c.skip_spaces();
        }
        auto uri = url_or_string(c);
        c.skip_spaces();
        if (uri && c.accept(symbol::semicolon)) {
            ctx.namespaces[prefix] = *uri;
            return true;
        }
        c.pos = save;
        return false;
    }

    void load_import(import const& imp) {
        if (e.import_count >= max_imports) {
            if (e.import_count++ == max_imports) {
                e.warnings.push_back({imp.import_url, "more than " + std::to_string(max_imports) +
                                                          " imported style sheets; the rest are skipped"});
            }
            return;
        }
        ++e.import_count;
        value::url const target{imp.import_url, sheet_url};
        auto fetched = fetcher ? fetcher(target) : fail("no loader for style sheets");
        if (!fetched) {
            e.warnings.push_back({imp.import_url, fetched.error()});
            return;
        }
        if (std::ranges::find(chain, fetched->sheet_url) != chain.end() || chain.size() >= max_import_depth) {
            e.warnings.push_back({fetched->sheet_url, "style sheet imports itself"});
            return;
        }
        e = load_fetched(log, fetcher, origin, *fetched, chain, std::move(e));
    }

    // The head of a sheet: @charset and @import in any order, the imports loaded at once and in order,
    // then @namespace. Anything else, or anything malformed, ends each part.
    void prologue() {
        std::vector<import> imports;
        while (true) {
            c.skip_spaces();
            if (is_at(c, "charset") && charset()) {
                continue;
            }
            if (is_at(c, "import")) {
                if (auto imp = import_rule()) {
                    // An import for another medium isn't even fetched.
                    if (media::matches(imp->import_media, e.media)) {
                        imports.push_back(std::move(*imp));
                    }
                    continue;
                }
            }
            break;
        }
        for (auto const& imp : imports) {
            load_import(imp);
        }
        while (true) {
            c.skip_spaces();
            if (!is_at(c, "namespace") || !namespace_rule()) {
                break;
            }
        }
    }

    std::optional<page_rule::page_selector> page_selector() {
        page_rule::page_selector out;
        if (auto const* i = c.get<lexer::ident>()) {
            out.page_name = i->ident_name;
            ++c.pos;
        }
        while (c.is(symbol::colon)) {
            ++c.pos;
            auto const* i = c.get<lexer::ident>();
            if (i == nullptr) {
                return std::nullopt;
            }
            ++c.pos;
            std::string const name = lexer::ascii_lower(i->ident_name);
            if (name == "left") {
                out.page_classes.push_back(page_rule::left_page{});
            } else if (name == "right") {
                out.page_classes.push_back(page_rule::right_page{});
            } else if (name == "blank") {
                out.page_classes.push_back(page_rule::blank_page{});
            } else if (name == "first") {
                out.page_classes.push_back(page_rule::nth_page{1});
            } else {
                return std::nullopt;
            }
        }
        return out;
    }

    bool page() {
        ++c.pos;
        c.skip_spaces();
        std::vector<page_rule::page_selector> selectors;
        while (true) {
            auto s = page_selector();
            if (!s) {
                return false;
            }
            selectors.push_back(std::move(*s));
            c.skip_spaces();
            if (!c.accept(symbol::comma)) {
                break;
            }
            c.skip_spaces();
            if (c.is(symbol::open_brace)) {
                return false;
            }
        }
        if (!c.is(symbol::open_brace)) {
            return false;
        }
        auto const known = e.known_property;
        std::vector<std::pair<page_rule::region, declarations>> regions;
        auto region_rule = [&](cursor::cursor& rc, std::string const& at_name) {
            auto const r = page_rule::find_region(lexer::ascii_lower(at_name));
            rc.skip_spaces();
            if (!r || !rc.is(symbol::open_brace)) {
                cursor::skip_statement(rc, cursor::semicolon_ends::yes);
                return;
            }
            ++rc.pos;
            auto decls = terms::parse_declaration_list(rc, list_context(known), e.index);
            rc.accept(symbol::close_brace);
            regions.emplace_back(*r, std::move(decls));
        };
        // The body takes the page's own properties and the known element properties.
        c.skip_spaces();
        ++c.pos;
        auto list = list_context(known);
        list.also_accept = &page_rule::is_page_property;
        auto decls = terms::parse_declaration_list(c, list, e.index, region_rule);
        c.accept(symbol::close_brace);
        for (auto& s : selectors) {
            e.pages.push_back({std::move(s), decls, regions});
        }
        return true;
    }

    bool media_holds(media::query_list const& queries) const {
        for (auto const& q : queries) {
            auto const& mq = std::visit(overloaded{
                                            [](media::media_query const& m) -> media::media_query const& { return m; },
                                            [](media::not_media_query const& n) -> media::media_query const& {
                                                return n.negated_query;
                                            },
                                        },
                                        q);
            for (auto const& x : mq.expressions) {
                std::string_view const name = x.feature_name;
                if (name.ends_with("width") || name.ends_with("height") || name == "orientation") {
                    e.media_page_asked = true;
                }
            }
        }
        return media::matches(queries, e.media, e.media_page_area);
    }

    bool media_rule() {
        ++c.pos;
        auto queries = media::parse_query_list(c);
        if (!queries || !c.is(symbol::open_brace)) {
            return false;
        }
        if (!media_holds(*queries)) {
            cursor::skip_component(c);
            return true;
        }
        ++c.pos;
        statements(stop_at::stop_at_close_brace, true);
        c.accept(symbol::close_brace);
        return true;
    }

    // "@supports" and a condition; the block is read as statements when the condition holds.
    bool supports_rule() {
        ++c.pos;
        auto const holds = supports_condition();
        c.skip_spaces();
        if (!holds || !c.is(symbol::open_brace)) {
            return false;
        }
        if (!*holds) {
            cursor::skip_component(c);
            return true;
        }
        ++c.pos;
        statements(stop_at::stop_at_close_brace, true);
        c.accept(symbol::close_brace);
        return true;
    }

    // A condition of @supports: "not" one, or ones joined by "and" or by "or". Nothing if it doesn't
    // parse.
    std::optional<bool> supports_condition() {
        c.skip_spaces();
        if (auto const* i = c.get<lexer::ident>(); i != nullptr && lexer::equals_ignoring_case(i->ident_name, "not")) {
            ++c.pos;
            auto const inner = supports_in_parens();
            return inner ? std::optional<bool>(!*inner) : std::nullopt;
        }
        auto first = supports_in_parens();
        if (!first) {
            return std::nullopt;
        }
        bool result = *first;
        std::optional<std::string> joiner;
        while (true) {
            std::size_t const save = c.pos;
            c.skip_spaces();
            auto const* i = c.get<lexer::ident>();
            if (i == nullptr) {
                c.pos = save;
                return result;
            }
            std::string const word = lexer::ascii_lower(i->ident_name);
            if ((word != "and" && word != "or") || (joiner && *joiner != word)) {
                c.pos = save;
                return joiner && *joiner != word ? std::nullopt : std::optional<bool>(result);
            }
            joiner = word;
            ++c.pos;
            auto next = supports_in_parens();
            if (!next) {
                return std::nullopt;
            }
            result = word == "and" ? (result && *next) : (result || *next);
        }
    }

    // "(" a declaration or a condition ")", or "selector(...)". An unknown function is false.
    std::optional<bool> supports_in_parens() {
        c.skip_spaces();
        if (auto const* f = c.get<lexer::function>()) {
            std::size_t const start = c.pos;
            cursor::skip_component(c);
            if (!lexer::equals_ignoring_case(f->function_name, "selector")) {
                return false;
            }
            std::span<lexer::token const> const inner = c.tokens.subspan(start + 1, c.pos - start - 2);
            cursor::cursor sc{inner};
            auto const list = selector::parse_selector_list(sc, ctx.namespaces);
            sc.skip_spaces();
            return list.has_value() && sc.at_end();
        }
        if (!c.accept(symbol::open_paren)) {
            return std::nullopt;
        }
        c.skip_spaces();
        std::size_t const start = c.pos;
        if (auto const* name = c.get<lexer::ident>()) {
            ++c.pos;
            c.skip_spaces();
            if (c.accept(symbol::colon)) {
                auto v = terms::parse_terms(c, ctx, terms::term_end::close_paren);
                c.skip_spaces();
                if (!c.accept(symbol::close_paren)) {
                    return std::nullopt;
                }
                std::string const prop = lexer::ascii_lower(name->ident_name);
                if (!v) {
                    return false;
                }
                if (terms::is_custom_property(name->ident_name)) {
                    return true;
                }
                bool const known = e.known_property == nullptr || e.known_property(prop);
                declaration const d{.prop_name = prop, .value = *v};
                return known && (e.valid_value == nullptr || e.valid_value(d));
            }
            c.pos = start;
        }
        auto inner = supports_condition();
        c.skip_spaces();
        if (!inner || !c.accept(symbol::close_paren)) {
            return std::nullopt;
        }
        return inner;
    }

    // The number of a layer, met for the first time or again.
    int layer_of(std::string const& full) {
        auto const it = std::ranges::find(e.layers, full);
        if (it != e.layers.end()) {
            return static_cast<int>(it - e.layers.begin()) + 1;
        }
        e.layers.push_back(full);
        return static_cast<int>(e.layers.size());
    }

    // A layer name: identifiers joined by ".".
    std::optional<std::string> layer_ident() {
        auto const* i = c.get<lexer::ident>();
        if (i == nullptr) {
            return std::nullopt;
        }
        ++c.pos;
        std::string name = i->ident_name;
        while (c.is(symbol::dot)) {
            auto const* next = c.tokens.size() > c.pos + 1 ? std::get_if<lexer::ident>(&c.tokens[c.pos + 1]) : nullptr;
            if (next == nullptr) {
                return std::nullopt;
            }
            name += "." + next->ident_name;
            c.pos += 2;
        }
        return name;
    }

    std::string full_layer_name(std::string const& name) const {
        return layer_name.empty() ? name : layer_name + "." + name;
    }

    // "@layer a, b;" fixes the order of layers; "@layer a { ... }" and "@layer { ... }" (a layer of its
    // own with no name) hold rules.
    bool layer_rule() {
        ++c.pos;
        c.skip_spaces();
        std::vector<std::string> names;
        while (auto name = layer_ident()) {
            names.push_back(full_layer_name(*name));
            c.skip_spaces();
            if (!c.accept(symbol::comma)) {
                break;
            }
            c.skip_spaces();
        }
        if (c.accept(symbol::semicolon)) {
            for (auto const& n : names) {
                layer_of(n);
            }
            return !names.empty();
        }
        if (!c.is(symbol::open_brace) || names.size() > 1) {
            return false;
        }
        std::string const full =
            names.empty() ? full_layer_name("\x01anonymous" + std::to_string(e.layers.size())) : names.front();
        std::string const outer_name = layer_name;
        int const outer_id = layer_id;
        layer_id = layer_of(full);
        layer_name = full;
        ++c.pos;
        statements(stop_at::stop_at_close_brace, true);
        c.accept(symbol::close_brace);
        layer_name = outer_name;
        layer_id = outer_id;
        return true;
    }

    bool font_face() {
        ++c.pos;
        // Font descriptors such as "src" aren't properties, so no filter applies.
        auto decls = block(nullptr);
        if (!decls) {
            return false;
        }
        e.fonts.push_back(std::move(*decls));
        return true;
    }

    bool color_rule() {
        ++c.pos;
        c.skip_spaces();
        std::string name;
        if (auto const* s = c.get<lexer::string>()) {
            name = s->string_text;
        } else if (auto const* i = c.get<lexer::ident>()) {
            name = i->ident_name;
        } else {
            return false;
        }
        ++c.pos;
        auto decls = block(e.known_property);
        if (!decls) {
            return false;
        }
        e.colors.insert_or_assign(name, std::move(*decls));
        return true;
    }

    bool special_rule(std::string const& key) {
        ++c.pos;
        auto decls = block(e.known_property);
        if (!decls) {
            return false;
        }
        e.special_rules.emplace_back(key, std::move(*decls));
        return true;
    }

    // Adds the declarations to each selector's entry, in the current layer; a selector met before gets
    // them added to its entry.
    void add_rules(std::vector<selector::selector> selectors, declarations decls) {
        for (auto& d : decls) {
            d.layer = layer_id;
        }
        for (auto& s : selectors) {
            std::string key = selector::to_text(s);
            auto const [it, fresh] = e.rule_positions.try_emplace(std::move(key), e.rules.size());
            if (fresh) {
                e.rules.push_back({std::move(s), decls});
            } else {
                auto& target = e.rules[it->second].rule_declarations;
                target.insert(target.end(), decls.begin(), decls.end());
            }
        }
    }

    // The text of the tokens from `from` up to `to`, as a selector prelude.
    std::string text_between(std::size_t from, std::size_t to) const {
        std::string out;
        for (std::size_t i = from; i < to; ++i) {
            out += lexer::to_text(c.tokens[i]);
        }
        return out;
    }

    // The selectors of a rule nested in rules with these selectors: "&" stands for each outer selector,
    // and a selector without one is a descendant of it (or follows it with its leading combinator).
    static std::vector<std::string> nest_selectors(std::vector<std::string> const& outer,
                                                   std::vector<std::string> const& inner) {
        std::vector<std::string> out;
        for (auto const& in : inner) {
            for (auto const& o : outer) {
                if (auto combined = replace_nesting(in, o)) {
                    out.push_back(std::move(*combined));
                } else {
                    out.push_back(o + " " + in);
                }
            }
        }
        return out;
    }

    // The selector with each "&" replaced by the outer selector, or nothing if it has none. An "&" in a
    // quoted attribute value or escaped with a backslash is a character of the selector, not the nesting
    // selector.
    static std::optional<std::string> replace_nesting(std::string_view in, std::string_view outer) {
        std::string combined;
        bool found = false;
        char quote = 0;
        for (std::size_t i = 0; i < in.size(); ++i) {
            char const ch = in[i];
            if (ch == '\\' && i + 1 < in.size()) {
                combined += in.substr(i, 2);
                ++i;
            } else if (quote != 0) {
                quote = ch == quote ? 0 : quote;
                combined += ch;
            } else if (ch == '"' || ch == '\'') {
                quote = ch;
                combined += ch;
            } else if (ch == '&') {
                combined += outer;
                found = true;
            } else {
                combined += ch;
            }
        }
        return found ? std::optional<std::string>(std::move(combined)) : std::nullopt;
    }

    // Splits a selector list's text at the commas outside brackets.
    static std::vector<std::string> split_selectors(std::string_view text) {
        std::vector<std::string> out;
        int depth = 0;
        std::size_t start = 0;
        for (std::size_t i = 0; i < text.size(); ++i) {
            char const ch = text[i];
            depth += (ch == '(' || ch == '[') ? 1 : (ch == ')' || ch == ']') ? -1 : 0;
            if (ch == ',' && depth == 0) {
                out.push_back(trim_text(text.substr(start, i - start)));
                start = i + 1;
            }
        }
        out.push_back(trim_text(text.substr(start)));
        return out;
    }

    static std::string trim_text(std::string_view s) {
        auto const first = s.find_first_not_of(" \t\n");
        if (first == std::string_view::npos) {
            return {};
        }
        return std::string(s.substr(first, s.find_last_not_of(" \t\n") - first + 1));
    }

    // Parses selector texts as one list; nothing if one of them doesn't parse.
    std::optional<std::vector<selector::selector>> parse_selector_texts(std::vector<std::string> const& texts) const {
        std::string joined;
        for (auto const& t : texts) {
            joined += (joined.empty() ? "" : ", ") + t;
        }
        auto const tokens = lexer::scan(joined);
        cursor::cursor sc{tokens};
        auto list = selector::parse_selector_list(sc, ctx.namespaces);
        sc.skip_spaces();
        if (!list || !sc.at_end()) {
            return std::nullopt;
        }
        return std::move(*list);
    }

    // The block of a style rule whose selectors are `texts` (parsed: `selectors`): its declarations, and
    // the rules and conditional at-rules nested in it, which come after it in the cascade order.
    void rule_block(std::vector<std::string> const& texts, std::vector<selector::selector> const& selectors) {
        auto nested = [&](cursor::cursor& rc) { nested_rule(rc, texts); };
        auto at_rule = [&](cursor::cursor& rc, std::string const& at_name) {
            nested_at_rule(rc, at_name, texts, selectors);
        };
        auto list = list_context(e.known_property);
        list.valid_value = e.valid_value;
        // Nested rules are added as they end, before the rule around them; the declarations' numbers
        // follow the text all the same, and they settle the cascade order.
        auto decls = terms::parse_declaration_list(c, list, e.index, at_rule, nested);
        c.accept(symbol::close_brace);
        add_rules(selectors, std::move(decls));
    }

    // A nested style rule at the cursor, inside a rule with the selectors `outer`.
    void nested_rule(cursor::cursor& rc, std::vector<std::string> const& outer) {
        std::size_t const start = rc.pos;
        int const line = rc.line();
        while (!rc.at_end() && !rc.is(symbol::open_brace)) {
            cursor::skip_component(rc);
        }
        auto const texts = nest_selectors(outer, split_selectors(text_between(start, rc.pos)));
        auto const selectors = parse_selector_texts(texts);
        if (!selectors || !rc.is(symbol::open_brace)) {
            tell(line, "invalid selector '" + trim_text(text_between(start, rc.pos)) + "'; the rule is skipped");
            cursor::skip_component(rc);
            return;
        }
        ++rc.pos;
        rule_block(texts, *selectors);
    }

    // An at-rule inside a style rule: @media, @supports and @layer hold declarations for the rule's own
    // selectors and further nested rules; others are skipped.
    void nested_at_rule(cursor::cursor& rc, std::string const& at_name, std::vector<std::string> const& texts,
                        std::vector<selector::selector> const& selectors) {
        std::string const name = lexer::ascii_lower(at_name);
        std::optional<bool> holds;
        int const outer_layer = layer_id;
        std::string const outer_layer_name = layer_name;
        if (name == "media") {
            auto queries = media::parse_query_list(rc);
            if (queries) {
                holds = media_holds(*queries);
            }
        } else if (name == "supports") {
            holds = supports_condition();
        } else if (name == "layer") {
            rc.skip_spaces();
            auto const layer = layer_ident();
            std::string const full =
                full_layer_name(layer ? *layer : "\x01anonymous" + std::to_string(e.layers.size()));
            layer_id = layer_of(full);
            layer_name = full;
            holds = true;
        }
        rc.skip_spaces();
        if (!holds || !rc.is(symbol::open_brace)) {
            if (!holds && name != "media" && name != "supports" && name != "layer") {
                tell(rc.line(), "unknown at-rule '@" + at_name + "' inside a style rule is skipped");
            }
            cursor::skip_statement(rc, cursor::semicolon_ends::yes);
        } else if (!*holds) {
            cursor::skip_component(rc);
        } else {
            ++rc.pos;
            rule_block(texts, selectors);
        }
        layer_id = outer_layer;
        layer_name = outer_layer_name;
    }

    // A selector list and its block; each selector gets all the declarations.
    bool style_rule() {
        std::size_t const start = c.pos;
        auto selectors = selector::parse_selector_list(c, ctx.namespaces);
        if (!selectors || !c.is(lexer::symbol::open_brace)) {
            return false;
        }
        auto const texts = split_selectors(text_between(start, c.pos));
        ++c.pos;
        rule_block(texts, *selectors);
        return true;
    }

    // One statement at the cursor, which stands on something other than a blank or "}".
    void statement(bool nested) {
        (void)nested;
        std::size_t const start = c.pos;
        int const line = c.line();
        bool ok = false;
        if (auto const* a = c.get<lexer::at>()) {
            std::string const name = lexer::ascii_lower(a->at_name);
            if (name == "page") {
                ok = page();
            } else if (name == "media") {
                ok = media_rule();
            } else if (name == "supports") {
                ok = supports_rule();
            } else if (name == "layer") {
                ok = layer_rule();
            } else if (name == "font-face") {
                ok = font_face();
            } else if (name == "vellum-color") {
                ok = color_rule();
            } else if (name == "vellum-pdf") {
                ok = special_rule("vellum-pdf");
            }
            if (!ok) {
                // Unknown or malformed at-rules end at ";" or after their block.
                c.pos = start;
                cursor::skip_statement(c, cursor::semicolon_ends::yes);
                if (name == "import" || name == "charset" || name == "namespace") {
                    tell(line, "'@" + a->at_name + "' is only allowed at the start of a style sheet");
                } else if (!known_at_rule(name)) {
                    tell(line, "unknown at-rule '@" + a->at_name + "' is skipped");
                } else {
                    tell(line, "malformed '@" + a->at_name + "' rule is skipped");
                }
            }
            return;
        }
        if (!style_rule()) {
            c.pos = start;
            cursor::skip_statement(c, cursor::semicolon_ends::no);
            tell(line, "invalid selector or rule '" + trim_text(text_between(start, std::min(c.pos, start + 12))) +
                           "...' is skipped");
        }
    }

    // At-rules of other programs that a sheet may well hold; skipping them is no error.
    static bool known_at_rule(std::string_view name) {
        return name == "page" || name == "media" || name == "font-face" || name == "vellum-color" ||
               name == "vellum-pdf" || name == "supports" || name == "layer" || name == "keyframes" ||
               name == "-webkit-keyframes" || name == "counter-style" || name == "property" ||
               name == "font-feature-values" || name == "viewport" || name == "-ms-viewport" ||
               name == "container" || name == "scope" || name == "starting-style";
    }

    void statements(stop_at stop, bool nested) {
        while (true) {
            c.skip_spaces();
            if (c.at_end() || c.is(symbol::close_brace)) {
                // A "}" ends a nested list; at the top it is left over, and the caller reports it.
                return;
            }
            std::size_t const before = c.pos;
            statement(nested);
            check(c.pos > before || stop == stop_at::stop_at_close_brace, "css_statements");
            if (c.pos == before) {
                return;
            }
        }
    }

    void read() {
        prologue();
        statements(stop_at::stop_at_eof, false);
        c.skip_spaces();
        if (!c.at_end()) {
            e.warnings.push_back({sheet_url, "failed to parse all CSS rules", c.line(), warning_kind::syntax});
        }
        for (auto& p : problems) {
            // The program's own sheets are written for several engines at once; what they hold that
            // this one skips is no news to a user.
            if (origin == css::origin::program) {
                log::log_file_message(log, log::level::debug, sheet_url, p.problem_text, p.problem_line);
                continue;
            }
            e.warnings.push_back({sheet_url, std::move(p.problem_text), p.problem_line, warning_kind::syntax});
        }
    }

    static env load_fetched(log::log const& log, fetch const& fetcher, css::origin o, fetched_sheet const& sheet,
                            std::vector<std::string>& chain, env e);
};

env parse_in_chain(log::log const& log, fetch const& fetcher, origin o, std::string const& base,
                   std::string_view text, std::vector<std::string>& chain, env e) {
    std::vector<int> lines;
    auto const tokens = lexer::scan(text, lexer::comments::drop, &lines);
    if (lexer::has_nesting_cut(tokens)) {
        e.warnings.push_back({base,
                              "blocks nested more than " + std::to_string(lexer::max_nesting) +
                                  " deep are skipped as invalid",
                              0, warning_kind::syntax});
    }
    chain.push_back(base);
    sheet_reader reader{log, fetcher, o, base, chain, e, cursor::cursor{tokens, 0, lines}, terms::context{.base = base}};
    reader.read();
    chain.pop_back();
    return e;
}

std::string trim(std::string_view s) {
    auto const first = s.find_first_not_of(" \t");
    if (first == std::string_view::npos) {
        return {};
    }
    auto const last = s.find_last_not_of(" \t");
    return std::string(s.substr(first, last - first + 1));
}

env sheet_reader::load_fetched(log::log const& log, fetch const& fetcher, css::origin o, fetched_sheet const& sheet,
                               std::vector<std::string>& chain, env e) {
    if (sheet.content_type) {
        std::string_view const full = *sheet.content_type;
        std::string const type = lexer::ascii_lower(trim(full.substr(0, full.find(';'))));
        if (!type.empty() && type != "text/css") {
            e.warnings.push_back({sheet.sheet_url, "Unknown CSS MIME type: " + std::string(full)});
            return e;
        }
    }
    log::log_debug(log, "reading style sheet " + sheet.sheet_url);
    return parse_in_chain(log, fetcher, o, sheet.sheet_url, decode_sheet(sheet.sheet_bytes), chain, std::move(e));
}

// Converts with iconv; nothing if the encoding is unknown or the bytes don't fit it.
std::optional<std::string> convert(std::string_view bytes, char const* encoding) {
    iconv_t const cd = iconv_open("UTF-8", encoding);
    if (cd == reinterpret_cast<iconv_t>(-1)) {
        return std::nullopt;
    }
    std::string out(bytes.size() * 4 + 16, '\0');
    char* in = const_cast<char*>(bytes.data());
    std::size_t in_left = bytes.size();
    char* outp = out.data();
    std::size_t out_left = out.size();
    std::size_t const r = iconv(cd, &in, &in_left, &outp, &out_left);
    iconv_close(cd);
    if (r == static_cast<std::size_t>(-1)) {
        return std::nullopt;
    }
    out.resize(out.size() - out_left);
    return out;
}

} // namespace

env new_env(std::string media) {
    return env{.media = std::move(media)};
}

env load_style_sheet(log::log const& log, fetch const& fetcher, origin o, value::url const& target, env e) {
    auto fetched = fetcher ? fetcher(target) : fail("no loader for style sheets");
    if (!fetched) {
        e.warnings.push_back({target.url_text, fetched.error()});
        return e;
    }
    std::vector<std::string> chain;
    return sheet_reader::load_fetched(log, fetcher, o, *fetched, chain, std::move(e));
}

env parse_style_sheet(log::log const& log, fetch const& fetcher, origin o, std::string const& base,
                      std::string_view text, env e) {
    std::vector<std::string> chain;
    return parse_in_chain(log, fetcher, o, base, text, chain, std::move(e));
}

declarations parse_declarations(origin o, std::string const& base, std::string_view text,
                                terms::property_filter known_property) {
    auto const tokens = lexer::scan(text);
    cursor::cursor c{tokens};
    terms::list_context const ctx{.terms = {.base = base}, .origin = o, .known_property = known_property};
    int index = 0;
    declarations out;
    while (true) {
        auto more = terms::parse_declaration_list(c, ctx, index);
        out.insert(out.end(), more.begin(), more.end());
        // A stray "}" in an attribute ends nothing; reading goes on after it.
        if (!c.accept(symbol::close_brace)) {
            return out;
        }
    }
}

std::optional<value::value> parse_value(std::string const& base, std::string_view text) {
    auto const tokens = lexer::scan(text);
    cursor::cursor c{tokens};
    auto v = terms::parse_terms(c, terms::context{.base = base}, terms::term_end::declaration);
    c.skip_spaces();
    if (!v || !c.at_end()) {
        return std::nullopt;
    }
    return std::move(*v);
}

std::string decode_sheet(std::string_view bytes) {
    if (bytes.starts_with("\xEF\xBB\xBF")) {
        return std::string(bytes.substr(3));
    }
    if (bytes.starts_with("\xFF\xFE")) {
        return convert(bytes.substr(2), "UTF-16LE").value_or(std::string());
    }
    if (bytes.starts_with("\xFE\xFF")) {
        return convert(bytes.substr(2), "UTF-16BE").value_or(std::string());
    }
    // '@charset "name";' at the very start names the encoding; UTF-8 needs no conversion.
    constexpr std::string_view head = "@charset \"";
    if (bytes.starts_with(head)) {
        auto const end = bytes.find('"', head.size());
        if (end != std::string_view::npos && end - head.size() < 40) {
            std::string const name = lexer::ascii_lower(bytes.substr(head.size(), end - head.size()));
            if (name != "utf-8" && name != "utf8") {
                if (auto text = convert(bytes, name.c_str())) {
                    return *text;
                }
            }
        }
    }
    return std::string(bytes);
}

void finish_layers(env& e) {
    // Ranks by a walk of the layer tree: the sublayers of a layer, in the order met, rank below the
    // layer's own rules.
    std::vector<int> rank(e.layers.size() + 1, 0);
    int next = 1;
    auto parent_of = [](std::string const& name) {
        auto const dot = name.rfind('.');
        return dot == std::string::npos ? std::string() : name.substr(0, dot);
    };
    std::function<void(std::string const&)> walk = [&](std::string const& parent) {
        for (std::size_t i = 0; i < e.layers.size(); ++i) {
            if (parent_of(e.layers[i]) == parent) {
                walk(e.layers[i]);
                rank[i + 1] = next++;
            }
        }
    };
    walk("");
    for (auto& r : e.rules) {
        for (auto& d : r.rule_declarations) {
            if (d.layer > 0 && static_cast<std::size_t>(d.layer) < rank.size()) {
                d.layer = rank[static_cast<std::size_t>(d.layer)];
            }
        }
    }
}

void log_warnings(log::log const& log, env const& e) {
    int quiet = 0;
    bool const shown = log::passes(log, log::level::info);
    for (auto const& w : e.warnings) {
        switch (w.warning_type) {
        case warning_kind::load:
            log::log_file_message(log, log::level::warning, w.warning_file, w.warning_text, w.warning_line);
            break;
        case warning_kind::syntax:
            if (shown) {
                log::log_file_message(log, log::level::info, w.warning_file, w.warning_text, w.warning_line);
            } else {
                ++quiet;
            }
            break;
        }
    }
    if (quiet > 0) {
        log::log_warning(log, std::to_string(quiet) + (quiet == 1 ? " problem" : " problems") +
                                  " in style sheets ignored (--verbose lists them)");
    }
}

} // namespace vellum::css::parser
