#include "prepack/generated.hpp"

#include "css/compute_style.hpp"
#include "css/units.hpp"
#include "prepack/counter_style.hpp"
#include "prepack/targets.hpp"
#include "util/textbuf.hpp"

#include <algorithm>
#include <cctype>

namespace vellum::prepack::generated {

namespace {

using counter_style::format_counter;

std::string lower(std::string s) {
    std::transform(s.begin(), s.end(), s.begin(), [](unsigned char c) { return char(std::tolower(c)); });
    return s;
}

std::optional<std::string> string_of(css::value::value const& v) {
    if (auto const* s = std::get_if<css::value::string>(&v)) {
        return s->string_text;
    }
    if (auto const* vs = std::get_if<css::value::values>(&v); vs && vs->value_list.size() == 1) {
        return string_of(vs->value_list.front());
    }
    return std::nullopt;
}

struct evaluator {
    gen_env const& env;
    std::string_view what;
    std::vector<piece> out;

    void skip(std::string const& item) {
        log::log_debug(env.env_log, std::string(what) + ": " + item + " gives no content here");
    }

    void text(textbuf::textbuf t) {
        if (t.empty()) {
            return;
        }
        if (!out.empty()) {
            if (auto* last = std::get_if<text_thing>(&out.back())) {
                if (auto* tt = std::get_if<text_thing_text>(last)) {
                    tt->text += t;
                    return;
                }
            }
        }
        out.emplace_back(text_thing{text_thing_text{std::move(t)}});
    }

    void gen(gen_content g) { out.emplace_back(text_thing{text_thing_gen{std::move(g)}}); }

    // The URL of a target: url(...) or an attribute holding one.
    std::optional<std::string> url_of(css::value::value const& v) const {
        if (auto const* u = std::get_if<css::value::url>(&v)) {
            return u->url_text;
        }
        if (auto const* a = std::get_if<css::value::attr>(&v)) {
            return env.attribute(a->attr_name.attr_local);
        }
        if (auto const s = string_of(v)) {
            return s;
        }
        if (auto const* vs = std::get_if<css::value::values>(&v); vs && vs->value_list.size() == 1) {
            return url_of(vs->value_list.front());
        }
        return std::nullopt;
    }

    std::optional<target_name> target_of(css::value::value const& v) const {
        auto const url = url_of(v);
        if (!url) {
            return std::nullopt;
        }
        return targets::target_of(*url, env.doc, env.base);
    }

    // counter(name, style?) and counters(name, separator, style?); page counters may carry a policy,
    // which only margin boxes use.
    void counter(css::value::function const& f, bool plural) {
        auto const& args = f.function_args;
        auto const name = args.empty() ? std::nullopt : ident_of(args.front());
        std::optional<std::string> separator;
        if (plural) {
            separator = args.size() > 1 ? string_of(args[1]) : std::nullopt;
            if (!separator) {
                skip(f.function_name + "() without a separator");
                return;
            }
        }
        if (!name) {
            skip(f.function_name + "() without a counter name");
            return;
        }
        std::string style = "decimal";
        for (std::size_t i = plural ? 2 : 1; i < args.size(); ++i) {
            if (auto const word = ident_of(args[i]); word && !policy_named(*word)) {
                style = *word;
            }
        }
        // The counters of pages and footnotes are known once the element is on its page.
        if (*name == "page") {
            gen(gen_counter{page_counter{style}});
            return;
        }
        if (*name == "pages") {
            gen(gen_counter{pages_counter{style}});
            return;
        }
        if (*name == "footnote") {
            gen(gen_counter{footnote_counter{style}});
            return;
        }
        auto values = env.counter_values(*name);
        if (values.empty()) {
            values.push_back(0);
        }
        if (!plural) {
            text(format_counter(values.back(), style));
            return;
        }
        textbuf::textbuf joined;
        for (std::size_t i = 0; i < values.size(); ++i) {
            if (i > 0) {
                joined += textbuf::from_utf8(*separator);
            }
            joined += format_counter(values[i], style);
        }
        text(std::move(joined));
    }

    // target-counter(url, name, style?) and target-counters(url, name, separator, style?).
    void target_counter_of(css::value::function const& f, bool plural) {
        auto const& args = f.function_args;
        std::size_t const need = plural ? 3 : 2;
        if (args.size() < need) {
            skip(f.function_name + "() with too few arguments");
            return;
        }
        auto const target = target_of(args[0]);
        auto const name = ident_of(args[1]);
        std::optional<std::string> join;
        if (plural) {
            join = string_of(args[2]);
        }
        if (!target || !name || (plural && !join)) {
            skip(f.function_name + "() without a target or a counter");
            return;
        }
        std::string style = "decimal";
        if (args.size() > need) {
            style = ident_of(args[need]).value_or(style);
        }
        gen(gen_counter{prepack::target_counter{
            .target = *target, .counter_name = *name, .counter_style = style, .counter_join = join}});
    }

    void target_text(css::value::function const& f) {
        auto const target = f.function_args.empty() ? std::nullopt : target_of(f.function_args.front());
        if (!target) {
            skip("target-text() without a target");
            return;
        }
        auto t = env.target_text ? env.target_text(*target) : std::nullopt;
        if (!t) {
            return;
        }
        auto const which = f.function_args.size() > 1 ? ident_of(f.function_args[1]) : std::nullopt;
        auto buf = textbuf::from_utf8(*t);
        if (which == "first-letter") {
            buf = first_letter(buf);
        }
        text(std::move(buf));
    }

    // The first letter as ::first-letter takes it: leading punctuation, then one character.
    static textbuf::textbuf first_letter(textbuf::textbuf const& t) {
        std::size_t i = 0;
        while (i < t.size() && (t[i] == U' ' || t[i] == U'\n' || t[i] == U'\t')) {
            ++i;
        }
        std::size_t const start = i;
        while (i < t.size() && std::u32string_view(U"\"'(\u00AB\u2018\u201C[").find(t[i]) != std::u32string_view::npos) {
            ++i;
        }
        if (i < t.size()) {
            ++i;
        }
        return t.substr(start, i - start);
    }

    // leader(dotted | solid | space | string, minimum width?).
    void leader(css::value::function const& f) {
        auto const& args = f.function_args;
        textbuf::textbuf pattern = U". ";
        if (!args.empty()) {
            if (auto const word = ident_of(args[0])) {
                if (*word == "solid") {
                    pattern = U"_";
                } else if (*word == "space") {
                    pattern = U" ";
                } else if (*word != "dotted") {
                    skip("leader(" + *word + ")");
                    return;
                }
            } else if (auto const s = string_of(args[0])) {
                pattern = textbuf::from_utf8(*s);
            }
        }
        if (pattern.empty()) {
            return;
        }
        float min_width = 0;
        if (args.size() > 1) {
            if (auto const l = css::units::length_from_value(args[1])) {
                min_width = css::units::to_points(
                    *l, {.resolution_font_size = env.font_size, .resolution_dpi = css::compute_style::css_dpi()});
            }
        }
        out.emplace_back(span_leader{.leader_pattern = std::move(pattern), .leader_min_width = min_width});
    }

    void function(css::value::function const& f) {
        auto const name = lower(f.function_name);
        if (name == "counter" || name == "counters") {
            counter(f, name == "counters");
        } else if (name == "target-counter" || name == "target-counters") {
            target_counter_of(f, name == "target-counters");
        } else if (name == "target-text") {
            target_text(f);
        } else if (name == "string") {
            auto const& args = f.function_args;
            auto const string_name = args.empty() ? std::nullopt : ident_of(args.front());
            if (!string_name) {
                skip("string() without a name");
                return;
            }
            auto policy = page_policy::first;
            if (args.size() > 1) {
                if (auto const word = ident_of(args[1])) {
                    policy = policy_named(*word).value_or(policy);
                }
            }
            gen(gen_string{.string_name = *string_name, .string_policy = policy});
        } else if (name == "content") {
            auto const which = f.function_args.empty() ? std::nullopt : ident_of(f.function_args.front());
            auto t = textbuf::from_utf8(env.own_text ? env.own_text() : std::string());
            text(which == "first-letter" ? first_letter(t) : t);
        } else if (name == "leader") {
            leader(f);
        } else if (name == "-vellum-script" || name == "vellum-script") {
            script(f);
        } else if (name == "attr") {
            if (auto const local = f.function_args.empty() ? std::nullopt : ident_of(f.function_args.front())) {
                text(textbuf::from_utf8(env.attribute(*local).value_or("")));
            }
        } else {
            skip(name + "()");
        }
    }

    // -vellum-script(name, arguments...): a call of a function that a script registered with
    // Vellum.addScriptFunc. The arguments are content of their own (strings, counters, attributes),
    // evaluated now or on the page; the call itself is made when layout reaches it.
    void script(css::value::function const& f) {
        // One value per argument; an argument of several terms is a value list.
        std::vector<std::vector<css::value::value>> groups;
        for (auto const& a : f.function_args) {
            auto const* vs = std::get_if<css::value::values>(&a);
            groups.push_back(vs != nullptr ? vs->value_list : std::vector<css::value::value>{a});
        }
        if (groups.empty()) {
            skip(f.function_name + "() without a function name");
            return;
        }
        // The name as written, in either case: script names are case-sensitive.
        std::optional<std::string> func;
        if (auto const& first = groups.front(); first.size() == 1) {
            auto const* i = std::get_if<css::value::ident>(&first.front());
            func = i != nullptr ? std::optional<std::string>(i->ident_name) : string_of(first.front());
        }
        if (!func) {
            skip(f.function_name + "() without a function name");
            return;
        }
        if (env.scripts == nullptr) {
            log::log_warning_once(env.env_log, "JavaScript is disabled");
            return;
        }
        if (!env.scripts->script_has(*func)) {
            log::log_warning_once(env.env_log, "unknown script function " + *func + ", register with Vellum.addScriptFunc");
            return;
        }
        script_func call{.script_func_name = *func};
        for (std::size_t i = 1; i < groups.size(); ++i) {
            evaluator inner{.env = env, .what = what};
            for (auto const& v : groups[i]) {
                inner.item(v);
            }
            call.script_func_args.push_back(text_things(std::move(inner.out)));
        }
        out.emplace_back(text_thing{text_thing_script{std::move(call)}});
    }

    std::u32string mark(int depth, bool open) const {
        static css::box::quotes const automatic = css::box::auto_value{};
        return quote_mark(env.quotes != nullptr ? *env.quotes : automatic, env.lang, depth, open);
    }

    void quote(std::string const& word) {
        int& depth = *env.quote_depth;
        if (word == "open-quote") {
            text(mark(depth, true));
            ++depth;
        } else if (word == "close-quote") {
            if (depth > 0) {
                --depth;
                text(mark(depth, false));
            }
        } else if (word == "no-open-quote") {
            ++depth;
        } else if (word == "no-close-quote") {
            depth = std::max(0, depth - 1);
        } else {
            skip("'" + word + "'");
        }
    }

    void item(css::value::value const& v) {
        std::visit(overloaded{
                       [&](css::value::string const& s) { text(textbuf::from_utf8(s.string_text)); },
                       [&](css::value::attr const& a) {
                           text(textbuf::from_utf8(env.attribute(a.attr_name.attr_local).value_or("")));
                       },
                       [&](css::value::function const& f) { function(f); },
                       [&](css::value::ident const& i) {
                           if (env.quote_depth != nullptr) {
                               quote(lower(i.ident_name));
                           }
                       },
                       [&](css::value::url const& u) {
                           if (auto box = env.image ? env.image(u) : std::nullopt) {
                               out.emplace_back(std::in_place_index<2>, span_inline_block{std::move(box->inline_block)});
                           } else if (!env.image) {
                               std::string const message = std::string(what) + ": images are not supported here";
                               log::log_warning_once(env.env_log, message);
                           }
                       },
                       [&](css::value::values const& vs) {
                           for (auto const& x : vs.value_list) {
                               item(x);
                           }
                       },
                       [&](css::value::number const&) { skip("a number"); },
                       [&](css::value::dimension const&) { skip("a dimension"); },
                       [&](css::value::percent const&) { skip("a percentage"); },
                       [&](css::value::hexcolor const&) { skip("a colour"); },
                       [&](css::value::unicode_range const&) { skip("a unicode range"); },
                       [](css::value::slash const&) {},
                       [](css::value::comma const&) {},
                   },
                   v);
    }
};

} // namespace

std::optional<std::string> ident_of(css::value::value const& v) {
    if (auto const* i = std::get_if<css::value::ident>(&v)) {
        return lower(i->ident_name);
    }
    if (auto const* vs = std::get_if<css::value::values>(&v); vs && vs->value_list.size() == 1) {
        return ident_of(vs->value_list.front());
    }
    return std::nullopt;
}

std::optional<page_policy> policy_named(std::string const& word) {
    if (word == "first") {
        return page_policy::first;
    }
    if (word == "first-except") {
        return page_policy::first_except;
    }
    if (word == "last") {
        return page_policy::last;
    }
    if (word == "start") {
        return page_policy::start;
    }
    return std::nullopt;
}

namespace {

// The quotation marks of a language: outer open, outer close, inner open, inner close.
struct language_quotes {
    std::string_view lang;
    std::u32string_view marks[4];
};

constexpr language_quotes language_marks[] = {
    {"en", {U"\u201C", U"\u201D", U"\u2018", U"\u2019"}},
    {"de", {U"\u201E", U"\u201C", U"\u201A", U"\u2018"}},
    {"cs", {U"\u201E", U"\u201C", U"\u201A", U"\u2018"}},
    {"da", {U"\u00BB", U"\u00AB", U"\u203A", U"\u2039"}},
    {"es", {U"\u00AB", U"\u00BB", U"\u201C", U"\u201D"}},
    {"fr", {U"\u00AB\u00A0", U"\u00A0\u00BB", U"\u201C", U"\u201D"}},
    {"it", {U"\u00AB", U"\u00BB", U"\u201C", U"\u201D"}},
    {"ja", {U"\u300C", U"\u300D", U"\u300E", U"\u300F"}},
    {"nl", {U"\u201C", U"\u201D", U"\u2018", U"\u2019"}},
    {"pl", {U"\u201E", U"\u201D", U"\u00AB", U"\u00BB"}},
    {"pt", {U"\u00AB", U"\u00BB", U"\u201C", U"\u201D"}},
    {"ru", {U"\u00AB", U"\u00BB", U"\u201E", U"\u201C"}},
    {"sv", {U"\u201D", U"\u201D", U"\u2019", U"\u2019"}},
    {"uk", {U"\u00AB", U"\u00BB", U"\u201E", U"\u201C"}},
    {"zh", {U"\u201C", U"\u201D", U"\u2018", U"\u2019"}},
};

std::u32string automatic_mark(std::optional<std::string> const& lang, int depth, bool open) {
    // The primary subtag decides: "de-CH" and "de" alike.
    std::string_view primary = lang ? std::string_view(*lang) : std::string_view("en");
    primary = primary.substr(0, primary.find_first_of("-_"));
    auto const* found = &language_marks[0];
    for (auto const& l : language_marks) {
        if (l.lang == primary) {
            found = &l;
        }
    }
    return std::u32string(found->marks[(depth == 0 ? 0 : 2) + (open ? 0 : 1)]);
}

} // namespace

std::u32string quote_mark(css::box::quotes const& quotes, std::optional<std::string> const& lang, int depth,
                          bool open) {
    return std::visit(overloaded{
                          [&](css::box::auto_value const&) { return automatic_mark(lang, depth, open); },
                          [](css::box::none_value const&) { return std::u32string(); },
                          [&](css::box::quote_marks const& m) {
                              auto const& pair = m.quote_pairs[std::min<std::size_t>(depth, m.quote_pairs.size() - 1)];
                              return textbuf::from_utf8(open ? pair.first : pair.second);
                          },
                      },
                      quotes);
}

std::vector<piece> evaluate(css::property::content_list const& content, gen_env const& env, std::string_view what) {
    evaluator e{.env = env, .what = what, .out = {}};
    for (auto const& v : content.content_items) {
        e.item(v);
    }
    return std::move(e.out);
}

std::vector<text_thing> text_things(std::vector<piece> pieces) {
    std::vector<text_thing> out;
    for (auto& p : pieces) {
        if (auto* t = std::get_if<text_thing>(&p)) {
            out.push_back(std::move(*t));
        }
    }
    return out;
}

} // namespace vellum::prepack::generated
