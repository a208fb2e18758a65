#include "css/parser.hpp"

#include "css/media.hpp"

#include <iconv.h>

#include <algorithm>

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

    terms::list_context list_context(terms::property_filter filter) const {
        return {.terms = ctx, .origin = origin, .known_property = filter};
    }

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

    bool media_rule() {
        ++c.pos;
        auto queries = media::parse_query_list(c);
        if (!queries || !c.is(symbol::open_brace)) {
            return false;
        }
        if (!media::matches(*queries, e.media)) {
            cursor::skip_component(c);
            return true;
        }
        ++c.pos;
        statements(stop_at::stop_at_close_brace, true);
        c.accept(symbol::close_brace);
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

    // A selector list and its block; each selector gets all the declarations, and a selector met before
    // gets them added to its entry.
    bool style_rule() {
        auto selectors = selector::parse_selector_list(c, ctx.namespaces);
        if (!selectors || !c.is(lexer::symbol::open_brace)) {
            return false;
        }
        auto decls = block(e.known_property);
        for (auto& s : *selectors) {
            std::string key = selector::to_text(s);
            auto const [it, fresh] = e.rule_positions.try_emplace(std::move(key), e.rules.size());
            if (fresh) {
                e.rules.push_back({std::move(s), *decls});
            } else {
                auto& target = e.rules[it->second].rule_declarations;
                target.insert(target.end(), decls->begin(), decls->end());
            }
        }
        return true;
    }

    // One statement at the cursor, which stands on something other than a blank or "}".
    void statement(bool nested) {
        std::size_t const start = c.pos;
        bool ok = false;
        if (auto const* a = c.get<lexer::at>()) {
            std::string const name = lexer::ascii_lower(a->at_name);
            if (name == "page") {
                ok = page();
            } else if (name == "media" && !nested) {
                ok = media_rule();
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
            }
            return;
        }
        if (!style_rule()) {
            c.pos = start;
            cursor::skip_statement(c, cursor::semicolon_ends::no);
        }
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
            e.warnings.push_back({sheet_url, "failed to parse all CSS rules"});
        }
    }

    static env load_fetched(log::log const& log, fetch const& fetcher, css::origin o, fetched_sheet const& sheet,
                            std::vector<std::string>& chain, env e);
};

env parse_in_chain(log::log const& log, fetch const& fetcher, origin o, std::string const& base,
                   std::string_view text, std::vector<std::string>& chain, env e) {
    auto const tokens = lexer::scan(text);
    if (lexer::has_nesting_cut(tokens)) {
        e.warnings.push_back({base, "blocks nested more than " + std::to_string(lexer::max_nesting) +
                                        " deep are skipped as invalid"});
    }
    chain.push_back(base);
    sheet_reader reader{log, fetcher, o, base, chain, e, cursor::cursor{tokens}, terms::context{.base = base}};
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

void log_warnings(log::log const& log, env const& e) {
    for (auto const& w : e.warnings) {
        log::log_file_message(log, log::level::warning, w.warning_file, w.warning_text);
    }
}

} // namespace vellum::css::parser
