// `String` and the members of `String.prototype`, and `RegExp` with its prototype's members. Strings are
// code points, so every index and length here counts code points.
#include "js/builtins.hpp"
#include "js/regexp.hpp"
#include "text/unicode.hpp"
#include "util/result.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

namespace vellum::js::eval::builtins {

namespace {

using std::size_t;

js_string substring(js_string const& s, size_t from, size_t to) {
    return js_string(s.code_points().substr(from, to > from ? to - from : 0));
}

// `this` as a string, for the methods that the standard makes generic: anything but undefined and null.
expr_res<js_string> this_string(call_info const& c) {
    if (std::holds_alternative<js_undefined>(c.this_value)) {
        return throw_error(c.engine, js_error::undefined_to_object);
    }
    if (std::holds_alternative<js_null>(c.this_value)) {
        return throw_error(c.engine, js_error::null_to_object);
    }
    return to_string(c.engine, c.this_value);
}

expr_res<js_string> arg_string(call_info const& c, size_t i) {
    return to_string(c.engine, c.arg(i));
}

// A regexp argument as it is, or a new regexp of its text (of nothing when it is undefined).
expr_res<js_object> as_regexp(js& engine, js_value const& v) {
    if (regexp_of(v)) {
        return std::get<js_object>(v);
    }
    js_string pattern;
    if (!std::holds_alternative<js_undefined>(v)) {
        if (auto e = take(to_string(engine, v), pattern)) {
            return *e;
        }
    }
    return new_regexp(engine, pattern, js_string{});
}

js_value capture_value(std::optional<js_string> const& c) {
    return c ? js_value{*c} : undefined();
}

// All matches of a regexp, as `match` and `replace` with the global flag find them: each search starts
// where the last match ended, one further after an empty match.
expr_res<std::vector<regexp::match_info>> all_matches(js& engine, class_regexp const& r, js_string const& s) {
    std::vector<regexp::match_info> found;
    size_t at = 0;
    while (at <= s.length()) {
        std::optional<regexp::match_info> m;
        if (auto e = take(match_regexp(engine, r, s, at, false), m)) {
            return *e;
        }
        if (!m) {
            break;
        }
        at = m->end_index == m->start_index ? m->end_index + 1 : m->end_index;
        found.push_back(std::move(*m));
    }
    return found;
}

expr_res<js_value> reset_last_index(js& engine, js_object re) {
    return put(engine, re, key_of_utf8("lastIndex"), int_value(0));
}

expr_res<js_value> string_match(call_info const& c, js_string const& s) {
    js_object re;
    if (auto e = take(as_regexp(c.engine, c.arg(0)), re)) {
        return *e;
    }
    class_regexp const r = std::get<class_regexp>(re->obj_class);
    if (!r.regexp_global) {
        return regexp_exec(c.engine, re, s);
    }
    std::vector<regexp::match_info> found;
    if (auto e = take(all_matches(c.engine, r, s), found)) {
        return *e;
    }
    if (auto p = reset_last_index(c.engine, re); is_exception(p)) {
        return p;
    }
    if (found.empty()) {
        return js_null{};
    }
    std::vector<js_value> texts;
    for (auto const& m : found) {
        texts.emplace_back(m.match_substring);
    }
    return new_array(c.engine, texts);
}

// The replacement text of a match from a pattern with `$$`, `$&`, `` $` ``, `$'` and `$1` to `$99`;
// anything else after a `$` stays as written.
js_string expand_replacement(js_string const& pattern, js_string const& s, regexp::match_info const& m) {
    std::u32string out;
    auto const& p = pattern.code_points();
    size_t const groups = m.captures.size();
    for (size_t i = 0; i < p.size(); ++i) {
        if (p[i] != '$' || i + 1 >= p.size()) {
            out.push_back(p[i]);
            continue;
        }
        char32_t const next = p[i + 1];
        if (next == '$') {
            out.push_back('$');
            ++i;
        } else if (next == '&') {
            out += m.match_substring.code_points();
            ++i;
        } else if (next == '`') {
            out += s.code_points().substr(0, m.start_index);
            ++i;
        } else if (next == '\'') {
            out += s.code_points().substr(std::min(m.end_index, s.length()));
            ++i;
        } else if (next >= '0' && next <= '9') {
            size_t n = next - '0';
            size_t used = 1;
            if (i + 2 < p.size() && p[i + 2] >= '0' && p[i + 2] <= '9') {
                size_t const two = n * 10 + (p[i + 2] - '0');
                if (two >= 1 && two <= groups) {
                    n = two;
                    used = 2;
                }
            }
            if (n >= 1 && n <= groups) {
                if (m.captures[n - 1]) {
                    out += m.captures[n - 1]->code_points();
                }
                i += used;
            } else {
                out.push_back('$');
            }
        } else {
            out.push_back('$');
        }
    }
    return js_string(std::move(out));
}

expr_res<js_value> string_replace(call_info const& c, js_string const& s) {
    js& engine = c.engine;
    std::vector<regexp::match_info> found;
    if (class_regexp const* r = regexp_of(c.arg(0))) {
        class_regexp const rx = *r;
        if (rx.regexp_global) {
            if (auto e = take(all_matches(engine, rx, s), found)) {
                return *e;
            }
            if (auto p = reset_last_index(engine, std::get<js_object>(c.arg(0))); is_exception(p)) {
                return p;
            }
        } else {
            std::optional<regexp::match_info> m;
            if (auto e = take(match_regexp(engine, rx, s, 0, false), m)) {
                return *e;
            }
            if (m) {
                found.push_back(std::move(*m));
            }
        }
    } else {
        js_string search;
        if (auto e = take(arg_string(c, 0), search)) {
            return *e;
        }
        size_t const at = s.code_points().find(search.code_points());
        if (at != std::u32string::npos) {
            found.push_back(regexp::match_info{
                .match_substring = search, .start_index = at, .end_index = at + search.length()});
        }
    }
    js_value const replacement = c.arg(1);
    bool const by_function = is_callable(replacement);
    js_string pattern;
    if (!by_function) {
        if (auto e = take(to_string(engine, replacement), pattern)) {
            return *e;
        }
    }
    std::u32string out;
    size_t done = 0;
    for (auto const& m : found) {
        out += s.code_points().substr(done, m.start_index - done);
        js_string piece;
        if (by_function) {
            std::vector<js_value> args{m.match_substring};
            for (auto const& capture : m.captures) {
                args.push_back(capture_value(capture));
            }
            args.push_back(int_value(static_cast<std::int64_t>(m.start_index)));
            args.emplace_back(s);
            js_value r;
            if (auto e = take(call(engine, undefined(), replacement, args), r)) {
                return *e;
            }
            if (auto e = take(to_string(engine, r), piece)) {
                return *e;
            }
        } else {
            piece = expand_replacement(pattern, s, m);
        }
        out += piece.code_points();
        done = m.end_index;
    }
    out += s.code_points().substr(std::min(done, s.length()));
    return js_string(std::move(out));
}

expr_res<js_value> string_search(call_info const& c, js_string const& s) {
    js_object re;
    if (auto e = take(as_regexp(c.engine, c.arg(0)), re)) {
        return *e;
    }
    std::optional<regexp::match_info> m;
    if (auto e = take(match_regexp(c.engine, std::get<class_regexp>(re->obj_class), s, 0, false), m)) {
        return *e;
    }
    return int_value(m ? static_cast<std::int64_t>(m->start_index) : -1);
}

// A match of a separator exactly at a position: where it ends, and its captures.
struct split_match {
    size_t split_end = 0;
    std::vector<std::optional<js_string>> split_captures;
};

expr_res<js_value> string_split(call_info const& c, js_string const& s) {
    js& engine = c.engine;
    std::uint32_t limit = std::numeric_limits<std::uint32_t>::max();
    if (!std::holds_alternative<js_undefined>(c.arg(1))) {
        if (auto e = take(to_uint32(engine, c.arg(1)), limit)) {
            return *e;
        }
    }
    class_regexp const* const rx = regexp_of(c.arg(0));
    std::optional<class_regexp> r = rx ? std::optional(*rx) : std::nullopt;
    js_string separator;
    if (!r && !std::holds_alternative<js_undefined>(c.arg(0))) {
        if (auto e = take(arg_string(c, 0), separator)) {
            return *e;
        }
    }
    std::vector<js_value> parts;
    if (limit == 0) {
        return new_array(engine, parts);
    }
    if (std::holds_alternative<js_undefined>(c.arg(0))) {
        return new_array(engine, {s});
    }
    auto match_at = [&](size_t q) -> expr_res<std::optional<split_match>> {
        if (r) {
            std::optional<regexp::match_info> m;
            if (auto e = take(match_regexp(engine, *r, s, q, true), m)) {
                return *e;
            }
            if (!m) {
                return std::optional<split_match>{};
            }
            return std::optional(
                split_match{.split_end = m->end_index, .split_captures = std::move(m->captures)});
        }
        if (s.code_points().compare(q, separator.length(), separator.code_points()) == 0 &&
            q + separator.length() <= s.length()) {
            return std::optional(split_match{.split_end = q + separator.length()});
        }
        return std::optional<split_match>{};
    };
    if (s.empty()) {
        std::optional<split_match> z;
        if (auto e = take(match_at(0), z)) {
            return *e;
        }
        return new_array(engine, z ? std::vector<js_value>{} : std::vector<js_value>{s});
    }
    size_t p = 0;
    for (size_t q = p; q < s.length();) {
        std::optional<split_match> z;
        if (auto e = take(match_at(q), z)) {
            return *e;
        }
        if (!z || z->split_end == p) {
            ++q;
            continue;
        }
        parts.emplace_back(substring(s, p, q));
        if (parts.size() == limit) {
            return new_array(engine, parts);
        }
        for (auto const& capture : z->split_captures) {
            parts.push_back(capture_value(capture));
            if (parts.size() == limit) {
                return new_array(engine, parts);
            }
        }
        p = z->split_end;
        q = p;
    }
    parts.emplace_back(substring(s, p, s.length()));
    return new_array(engine, parts);
}

expr_res<js_value> string_slice(call_info const& c, js_string const& s, string_func f) {
    auto const len = static_cast<std::int64_t>(s.length());
    if (f == string_func::string_slice) {
        std::int64_t from = 0;
        std::int64_t to = 0;
        if (auto e = take(relative_index(c.engine, c.arg(0), len, 0), from)) {
            return *e;
        }
        if (auto e = take(relative_index(c.engine, c.arg(1), len, len), to)) {
            return *e;
        }
        return substring(s, static_cast<size_t>(from), static_cast<size_t>(std::max(from, to)));
    }
    double start = 0;
    if (auto e = take(to_integer(c.engine, c.arg(0)), start)) {
        return *e;
    }
    double const n = static_cast<double>(len);
    if (f == string_func::string_substr) {
        double count = std::numeric_limits<double>::infinity();
        if (!std::holds_alternative<js_undefined>(c.arg(1))) {
            if (auto e = take(to_integer(c.engine, c.arg(1)), count)) {
                return *e;
            }
        }
        double const from = start < 0 ? std::max(n + start, 0.0) : std::min(start, n);
        double const taken = std::min(std::max(count, 0.0), n - from);
        return substring(s, static_cast<size_t>(from), static_cast<size_t>(from + taken));
    }
    double end = n;
    if (!std::holds_alternative<js_undefined>(c.arg(1))) {
        if (auto e = take(to_integer(c.engine, c.arg(1)), end)) {
            return *e;
        }
    }
    double const a = std::min(std::max(start, 0.0), n);
    double const b = std::min(std::max(end, 0.0), n);
    return substring(s, static_cast<size_t>(std::min(a, b)), static_cast<size_t>(std::max(a, b)));
}

expr_res<js_value> string_index_of(call_info const& c, js_string const& s, bool last) {
    js_string search;
    if (auto e = take(arg_string(c, 0), search)) {
        return *e;
    }
    double const n = static_cast<double>(s.length());
    double pos = last ? n : 0;
    if (!std::holds_alternative<js_undefined>(c.arg(1))) {
        double d = 0;
        if (auto e = take(to_double_value(c.engine, c.arg(1)), d)) {
            return *e;
        }
        if (!(last && std::isnan(d))) {
            pos = std::isnan(d) ? 0 : std::trunc(d);
        }
    }
    auto const start = static_cast<size_t>(std::min(std::max(pos, 0.0), n));
    size_t const at =
        last ? s.code_points().rfind(search.code_points(), start) : s.code_points().find(search.code_points(), start);
    return int_value(at == std::u32string::npos ? -1 : static_cast<std::int64_t>(at));
}

expr_res<js_value> string_char(call_info const& c, js_string const& s, bool code) {
    double pos = 0;
    if (auto e = take(to_integer(c.engine, c.arg(0)), pos)) {
        return *e;
    }
    if (pos < 0 || pos >= static_cast<double>(s.length())) {
        if (code) {
            return number{std::numeric_limits<double>::quiet_NaN()};
        }
        return js_string{};
    }
    char32_t const ch = s[static_cast<size_t>(pos)];
    if (code) {
        return int_value(ch);
    }
    return js_string(std::u32string(1, ch));
}

expr_res<js_value> string_value(call_info const& c) {
    if (auto const* s = this_primitive(c.this_value, &class_string::string_value)) {
        return *s;
    }
    return throw_error(c.engine, js_error::not_string);
}

expr_res<js_value> string_constructor(call_info const& c) {
    js_string s;
    if (!c.args.empty()) {
        if (auto e = take(arg_string(c, 0), s)) {
            return *e;
        }
    }
    if (!c.constructing) {
        return s;
    }
    return new_object_of(c.engine, class_string{.string_value = s},
                         yes_proto{.proto = c.engine.string_prototype});
}

expr_res<js_value> from_char_code(call_info const& c) {
    std::u32string out;
    for (auto const& v : c.args) {
        std::uint32_t unit = 0;
        if (auto e = take(to_uint32(c.engine, v), unit)) {
            return *e;
        }
        append_code_unit(out, unit & 0xFFFF);
    }
    return js_string(std::move(out));
}

expr_res<js_value> regexp_constructor(call_info const& c) {
    js_value const pattern = c.arg(0);
    js_value const flags = c.arg(1);
    js_string p;
    if (class_regexp const* r = regexp_of(pattern)) {
        if (std::holds_alternative<js_undefined>(flags)) {
            if (!c.constructing) {
                return pattern;
            }
            class_regexp const copy = *r;
            return make_regexp(c.engine, copy.regexp_source, copy.regexp_disjunction, copy.regexp_captures,
                               copy.regexp_global, copy.regexp_ignore_case, copy.regexp_multiline);
        }
        // The pattern of another regexp with flags of its own.
        p = r->regexp_source;
    }
    js_string f;
    if (!std::holds_alternative<js_undefined>(pattern) && !regexp_of(pattern)) {
        if (auto e = take(to_string(c.engine, pattern), p)) {
            return *e;
        }
    }
    if (!std::holds_alternative<js_undefined>(flags)) {
        if (auto e = take(to_string(c.engine, flags), f)) {
            return *e;
        }
    }
    js_object re;
    if (auto e = take(new_regexp(c.engine, p, f), re)) {
        return *e;
    }
    return re;
}

expr_res<js_value> regexp_member(call_info const& c, string_func f) {
    class_regexp const* r = regexp_of(c.this_value);
    if (r == nullptr) {
        return throw_error(c.engine, js_error::not_regexp);
    }
    if (f == string_func::regexp_to_string) {
        std::u32string out = U"/";
        out += r->regexp_source.empty() ? U"(?:)" : r->regexp_source.code_points();
        out += U"/";
        out += r->regexp_global ? U"g" : U"";
        out += r->regexp_ignore_case ? U"i" : U"";
        out += r->regexp_multiline ? U"m" : U"";
        return js_string(std::move(out));
    }
    js_string s;
    if (auto e = take(arg_string(c, 0), s)) {
        return *e;
    }
    js_value m;
    if (auto e = take(regexp_exec(c.engine, c.this_value, s), m)) {
        return *e;
    }
    if (f == string_func::regexp_test) {
        return !std::holds_alternative<js_null>(m);
    }
    return m;
}

} // namespace

expr_res<js_value> call_string(call_info const& c, string_func f) {
    // The methods of String.prototype work on `this` as a string.
    auto on_this = [&](auto method) -> expr_res<js_value> {
        js_string s;
        if (auto e = take(this_string(c), s)) {
            return *e;
        }
        return method(s);
    };
    switch (f) {
    case string_func::string_constructor:
        return string_constructor(c);
    case string_func::string_from_char_code:
        return from_char_code(c);
    case string_func::string_to_string:
    case string_func::string_value_of:
        return string_value(c);
    case string_func::regexp_constructor:
        return regexp_constructor(c);
    case string_func::regexp_exec:
    case string_func::regexp_test:
    case string_func::regexp_to_string:
        return regexp_member(c, f);
    case string_func::string_char_at:
    case string_func::string_char_code_at:
        return on_this(
            [&](js_string const& s) { return string_char(c, s, f == string_func::string_char_code_at); });
    case string_func::string_concat:
        return on_this([&](js_string const& s) -> expr_res<js_value> {
            std::u32string out(s.code_points());
            for (auto const& v : c.args) {
                js_string more;
                if (auto e = take(to_string(c.engine, v), more)) {
                    return *e;
                }
                out += more.code_points();
            }
            return js_string(std::move(out));
        });
    case string_func::string_index_of:
    case string_func::string_last_index_of:
        return on_this([&](js_string const& s) {
            return string_index_of(c, s, f == string_func::string_last_index_of);
        });
    case string_func::string_split:
        return on_this([&](js_string const& s) { return string_split(c, s); });
    case string_func::string_to_lower_case:
    case string_func::string_to_locale_lower_case:
        return on_this([](js_string const& s) -> expr_res<js_value> {
            return js_string(unicode::to_lower(s.code_points()));
        });
    case string_func::string_to_upper_case:
    case string_func::string_to_locale_upper_case:
        return on_this([](js_string const& s) -> expr_res<js_value> {
            return js_string(unicode::to_upper(s.code_points()));
        });
    case string_func::string_match:
        return on_this([&](js_string const& s) { return string_match(c, s); });
    case string_func::string_replace:
        return on_this([&](js_string const& s) { return string_replace(c, s); });
    case string_func::string_search:
        return on_this([&](js_string const& s) { return string_search(c, s); });
    case string_func::string_slice:
    case string_func::string_substring:
    case string_func::string_substr:
        return on_this([&](js_string const& s) { return string_slice(c, s, f); });
    case string_func::string_trim:
        return on_this([](js_string const& s) -> expr_res<js_value> {
            size_t from = 0;
            size_t to = s.length();
            while (from < to && is_js_space(s[from])) {
                ++from;
            }
            while (to > from && is_js_space(s[to - 1])) {
                --to;
            }
            return substring(s, from, to);
        });
    }
    throw internal_error("call_string: unexpected function.");
}

void install_string(js& engine) {
    js_object const ctor =
        define_constructor(engine, "String", standard_func{.standard_kind = string_func::string_constructor},
                           1, engine.string_prototype);
    define_method(engine, ctor, "fromCharCode",
                  standard_func{.standard_kind = string_func::string_from_char_code}, 1);
    define_methods(engine, engine.string_prototype,
                   {
                       {"toString", {string_func::string_to_string}, 0},
                       {"valueOf", {string_func::string_value_of}, 0},
                       {"charAt", {string_func::string_char_at}, 1},
                       {"charCodeAt", {string_func::string_char_code_at}, 1},
                       {"concat", {string_func::string_concat}, 1},
                       {"indexOf", {string_func::string_index_of}, 1},
                       {"lastIndexOf", {string_func::string_last_index_of}, 1},
                       {"split", {string_func::string_split}, 2},
                       {"toLowerCase", {string_func::string_to_lower_case}, 0},
                       {"toLocaleLowerCase", {string_func::string_to_locale_lower_case}, 0},
                       {"toUpperCase", {string_func::string_to_upper_case}, 0},
                       {"toLocaleUpperCase", {string_func::string_to_locale_upper_case}, 0},
                       {"match", {string_func::string_match}, 1},
                       {"replace", {string_func::string_replace}, 2},
                       {"search", {string_func::string_search}, 1},
                       {"slice", {string_func::string_slice}, 2},
                       {"substring", {string_func::string_substring}, 2},
                       {"substr", {string_func::string_substr}, 2},
                       {"trim", {string_func::string_trim}, 0},
                   });
    // The regexp prototype is itself a regexp, of the empty pattern, with the own properties of one.
    js_object const proto = engine.regexp_prototype;
    if (auto empty = regexp::parse_pattern(js_string{})) {
        proto->obj_class =
            class_regexp{.regexp_disjunction = empty->parsed, .regexp_captures = empty->total_parens};
    }
    define_value(proto, "source", js_string{}, all_attrs);
    for (char const* flag : {"global", "ignoreCase", "multiline"}) {
        define_value(proto, flag, false, all_attrs);
    }
    define_value(proto, "lastIndex", int_value(0), attrs{}.with(attr::no_enum).with(attr::no_delete));
    define_constructor(engine, "RegExp", standard_func{.standard_kind = string_func::regexp_constructor}, 2,
                       proto);
    define_method(engine, proto, "exec", standard_func{.standard_kind = string_func::regexp_exec}, 1);
    define_method(engine, proto, "test", standard_func{.standard_kind = string_func::regexp_test}, 1);
    define_method(engine, proto, "toString", standard_func{.standard_kind = string_func::regexp_to_string},
                  0);
}

} // namespace vellum::js::eval::builtins
