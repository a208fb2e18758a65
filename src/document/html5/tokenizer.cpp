#include "document/html5/tokenizer.hpp"

#include "document/html5/entities.hpp"
#include "document/html5/misc.hpp"
#include "util/textbuf.hpp"

namespace vellum::html5::tokenizer {

using token::token_type;

namespace {

// Past the end of the input the tokenizer reads this, which no code point equals.
constexpr char32_t eof = 0xFFFFFFFF;

bool is_space(char32_t c) {
    return c == '\t' || c == '\n' || c == '\f' || c == ' ';
}

bool is_upper(char32_t c) {
    return c >= 'A' && c <= 'Z';
}

bool is_alpha(char32_t c) {
    return is_upper(c) || (c >= 'a' && c <= 'z');
}

bool is_digit(char32_t c) {
    return c >= '0' && c <= '9';
}

bool is_alnum(char32_t c) {
    return is_alpha(c) || is_digit(c);
}

bool is_hex(char32_t c) {
    return is_digit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

char32_t to_lower(char32_t c) {
    return is_upper(c) ? c + 0x20 : c;
}

// The input is UTF-8, read a byte at a time. Every character that the states look for is ASCII, and the
// bytes of other characters (lead and continuation bytes, all 0x80 and above) fall to "anything else"
// in every state, where they are copied as they stand: so the text comes out as the same UTF-8.
char32_t consume(tokenizer& t) {
    std::size_t at = t.tokenizer_pos++;
    return at < t.tokenizer_input.size() ? static_cast<unsigned char>(t.tokenizer_input[at]) : eof;
}

char32_t peek(tokenizer const& t, std::size_t ahead = 0) {
    std::size_t at = t.tokenizer_pos + ahead;
    return at < t.tokenizer_input.size() ? static_cast<unsigned char>(t.tokenizer_input[at]) : eof;
}

// Appends an input byte as it stands, or U+FFFD (the only code point above 0xFF that the states make).
void put(std::string& out, char32_t c) {
    if (c < 0x100) {
        out.push_back(static_cast<char>(c));
    } else {
        textbuf::append_utf8(out, c);
    }
}

// As take_run, for names: ASCII capitals become small letters on the way.
template <class Stop>
void take_lower_run(tokenizer& t, std::string& out, Stop stop) {
    char const* data = t.tokenizer_input.data();
    std::size_t const size = t.tokenizer_input.size();
    std::size_t at = t.tokenizer_pos - 1;
    do {
        char const b = data[at];
        out.push_back(b >= 'A' && b <= 'Z' ? static_cast<char>(b + 0x20) : b);
        ++at;
    } while (at < size && !stop(static_cast<unsigned char>(data[at])));
    t.tokenizer_pos = at;
}

bool ends_name(unsigned char b) {
    return b == '\t' || b == '\n' || b == '\f' || b == ' ' || b == '/' || b == '>' || b == 0;
}

// Copies a run of ordinary input: the character just consumed and those after it up to the first byte
// for which `stop` holds, or the end. Text between markup is long, and this is where the time goes.
template <class Stop>
void take_run(tokenizer& t, std::string& out, Stop stop) {
    char const* data = t.tokenizer_input.data();
    std::size_t const size = t.tokenizer_input.size();
    std::size_t const from = t.tokenizer_pos - 1;
    std::size_t at = t.tokenizer_pos;
    while (at < size && !stop(static_cast<unsigned char>(data[at]))) {
        ++at;
    }
    out.append(data + from, at - from);
    t.tokenizer_pos = at;
}

void reconsume(tokenizer& t) {
    --t.tokenizer_pos;
}

// Whether the input at the current position spells `word` (in any ASCII case if asked); consumes it if so.
bool consume_word(tokenizer& t, std::string_view word, bool any_case) {
    for (std::size_t i = 0; i < word.size(); ++i) {
        char32_t c = peek(t, i);
        char32_t w = static_cast<unsigned char>(word[i]);
        if (any_case ? to_lower(c) != to_lower(w) : c != w) {
            return false;
        }
    }
    t.tokenizer_pos += word.size();
    return true;
}

void emit_char(tokenizer& t, char32_t c) {
    put(t.chars_token.token_data, c);
}

void emit_ascii(tokenizer& t, std::string_view s) {
    t.chars_token.token_data.append(s);
}

void begin_tag(tokenizer& t, token_type kind) {
    auto& tag = t.tag_token;
    tag.token_kind = kind;
    tag.token_name.clear();
    tag.token_attributes.clear();
    tag.token_self_closing = false;
}

void begin_comment(tokenizer& t, std::string_view text = {}) {
    t.tag_token.token_kind = token_type::comment;
    t.tag_token.token_data.assign(text);
}

void begin_doctype(tokenizer& t) {
    auto& d = t.tag_token;
    d.token_kind = token_type::doctype;
    d.token_name.clear();
    d.doctype_has_name = false;
    d.doctype_has_public = false;
    d.doctype_has_system = false;
    d.doctype_public.clear();
    d.doctype_system.clear();
    d.doctype_force_quirks = false;
}

// A repeated attribute name is a parse error, and the later one is dropped.
void finish_attribute(tokenizer& t) {
    auto& attrs = t.tag_token.token_attributes;
    if (attrs.size() < 2) {
        return;
    }
    for (std::size_t i = 0; i + 1 < attrs.size(); ++i) {
        if (attrs[i].attr_name == attrs.back().attr_name) {
            attrs.pop_back();
            return;
        }
    }
}

void new_attribute(tokenizer& t) {
    finish_attribute(t);
    t.tag_token.token_attributes.emplace_back();
}

void append_name(tokenizer& t, char32_t c) {
    put(t.tag_token.token_name, c);
}

void append_attr_name(tokenizer& t, char32_t c) {
    put(t.tag_token.token_attributes.back().attr_name, c);
}

void append_attr_value(tokenizer& t, char32_t c) {
    put(t.tag_token.token_attributes.back().attr_value, c);
}

void append_data(tokenizer& t, char32_t c) {
    put(t.tag_token.token_data, c);
}

void emit_tag(tokenizer& t) {
    finish_attribute(t);
    if (t.tag_token.token_kind == token_type::start_tag) {
        t.last_start_tag = t.tag_token.token_name;
    } else {
        // End tags carry no attributes to the tree builder.
        t.tag_token.token_attributes.clear();
    }
    t.tag_queued = true;
}

void emit_current(tokenizer& t) {
    t.tag_queued = true;
}

// Emits the token being built, then END OF FILE on the next step (the data state sees the end again).
void emit_current_then_eof(tokenizer& t) {
    t.tag_queued = true;
    t.current_state = state::data;
    reconsume(t);
}

void emit_eof(tokenizer& t) {
    t.tag_token.token_kind = token_type::end_of_file;
    t.tag_token.token_name.clear();
    t.tag_token.token_attributes.clear();
    t.tag_token.token_data.clear();
    t.tag_queued = true;
    t.eof_emitted = true;
}

bool appropriate_end_tag(tokenizer const& t) {
    return t.tag_token.token_kind == token_type::end_tag && !t.last_start_tag.empty() &&
           t.tag_token.token_name == t.last_start_tag;
}

// Numeric references to C1 controls mean the windows-1252 characters at those bytes.
char32_t c1_replacement(char32_t c) {
    static constexpr char32_t table[32] = {
        0x20AC, 0x81,   0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
        0x2039, 0x0152, 0x8D,   0x017D, 0x8F,   0x90,   0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
        0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x9D,   0x017E, 0x0178};
    return table[c - 0x80];
}

void ref_out(tokenizer& t, bool in_attr, std::string_view text) {
    if (in_attr) {
        t.tag_token.token_attributes.back().attr_value.append(text);
    } else {
        t.chars_token.token_data.append(text);
    }
}

// A code point that a numeric reference names: encoded, since it did not come from the input's bytes.
void ref_out(tokenizer& t, bool in_attr, char32_t c) {
    if (in_attr) {
        textbuf::append_utf8(t.tag_token.token_attributes.back().attr_value, c);
    } else {
        textbuf::append_utf8(t.chars_token.token_data, c);
    }
}

// A character reference, entered just after '&'. Runs the reference states of the standard in one go:
// named references with the longest match (and the legacy rule for attributes), numeric references with
// their replacements; text that is not a reference goes out unchanged.
void character_reference(tokenizer& t, bool in_attr) {
    char32_t c = peek(t);
    if (is_alnum(c)) {
        char candidate[40];
        std::size_t n = 0;
        while (n < 32 && is_alnum(peek(t, n))) {
            candidate[n] = static_cast<char>(peek(t, n));
            ++n;
        }
        if (peek(t, n) == ';') {
            candidate[n++] = ';';
        }
        auto match = entities::longest_prefix_match(std::string_view(candidate, n));
        if (!match) {
            // The ambiguous ampersand: the letters that follow are ordinary text of the return state.
            ref_out(t, in_attr, "&");
            return;
        }
        std::string_view name = match->entity_name;
        t.tokenizer_pos += name.size();
        char32_t next = peek(t);
        if (in_attr && name.back() != ';' && (next == '=' || is_alnum(next))) {
            // "&notit=1" in an attribute stays as written: URLs with query strings rely on this.
            ref_out(t, in_attr, "&");
            ref_out(t, in_attr, name);
            return;
        }
        ref_out(t, in_attr, match->entity_text);
        return;
    }
    if (c != '#') {
        ref_out(t, in_attr, "&");
        return;
    }
    std::size_t start = t.tokenizer_pos;
    consume(t);
    bool hex = false;
    char32_t x = peek(t);
    if (x == 'x' || x == 'X') {
        hex = true;
        consume(t);
    }
    if (!(hex ? is_hex(peek(t)) : is_digit(peek(t)))) {
        // No digits: "&#" or "&#x" is text.
        t.tokenizer_pos = start;
        ref_out(t, in_attr, "&");
        return;
    }
    std::uint32_t code = 0;
    for (;;) {
        char32_t d = peek(t);
        std::uint32_t v;
        if (is_digit(d)) {
            v = d - '0';
        } else if (hex && d >= 'a' && d <= 'f') {
            v = d - 'a' + 10;
        } else if (hex && d >= 'A' && d <= 'F') {
            v = d - 'A' + 10;
        } else {
            break;
        }
        consume(t);
        code = code * (hex ? 16 : 10) + v;
        if (code > 0x10FFFF) {
            code = 0x110000; // stays out of range however many digits follow
        }
    }
    if (peek(t) == ';') {
        consume(t);
    }
    char32_t out = code;
    if (code == 0 || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)) {
        out = 0xFFFD;
    } else if (code >= 0x80 && code <= 0x9F) {
        out = c1_replacement(code);
    }
    ref_out(t, in_attr, out);
}

// One step of the state machine: consumes (at most) one code point, or a word the state looks for.
void step(tokenizer& t) {
    char32_t c = consume(t);
    switch (t.current_state) {
    case state::data:
        if (c == '&') {
            character_reference(t, false);
        } else if (c == '<') {
            t.current_state = state::tag_open;
        } else if (c == eof) {
            emit_eof(t);
        } else {
            // U+0000 goes to the tree builder, which drops it.
            take_run(t, t.chars_token.token_data, [](unsigned char b) { return b == '&' || b == '<'; });
        }
        return;
    case state::rcdata:
        if (c == '&') {
            character_reference(t, false);
        } else if (c == '<') {
            t.current_state = state::rcdata_less_than;
        } else if (c == 0) {
            emit_char(t, 0xFFFD);
        } else if (c == eof) {
            emit_eof(t);
        } else {
            take_run(t, t.chars_token.token_data, [](unsigned char b) { return b == '&' || b == '<' || b == 0; });
        }
        return;
    case state::rawtext:
    case state::script_data:
        if (c == '<') {
            t.current_state = t.current_state == state::rawtext ? state::rawtext_less_than : state::script_less_than;
        } else if (c == 0) {
            emit_char(t, 0xFFFD);
        } else if (c == eof) {
            emit_eof(t);
        } else {
            take_run(t, t.chars_token.token_data, [](unsigned char b) { return b == '<' || b == 0; });
        }
        return;
    case state::plaintext:
        if (c == 0) {
            emit_char(t, 0xFFFD);
        } else if (c == eof) {
            emit_eof(t);
        } else {
            take_run(t, t.chars_token.token_data, [](unsigned char b) { return b == 0; });
        }
        return;
    case state::tag_open:
        if (c == '!') {
            t.current_state = state::markup_declaration_open;
        } else if (c == '/') {
            t.current_state = state::end_tag_open;
        } else if (is_alpha(c)) {
            begin_tag(t, token_type::start_tag);
            reconsume(t);
            t.current_state = state::tag_name;
        } else if (c == '?') {
            begin_comment(t);
            reconsume(t);
            t.current_state = state::bogus_comment;
        } else {
            emit_ascii(t, "<");
            reconsume(t);
            t.current_state = state::data;
        }
        return;
    case state::end_tag_open:
        if (is_alpha(c)) {
            begin_tag(t, token_type::end_tag);
            reconsume(t);
            t.current_state = state::tag_name;
        } else if (c == '>') {
            t.current_state = state::data;
        } else if (c == eof) {
            emit_ascii(t, "</");
            reconsume(t);
            t.current_state = state::data;
        } else {
            begin_comment(t);
            reconsume(t);
            t.current_state = state::bogus_comment;
        }
        return;
    case state::tag_name:
        if (is_space(c)) {
            t.current_state = state::before_attribute_name;
        } else if (c == '/') {
            t.current_state = state::self_closing_start_tag;
        } else if (c == '>') {
            t.current_state = state::data;
            emit_tag(t);
        } else if (c == 0) {
            append_name(t, 0xFFFD);
        } else if (c == eof) {
            emit_eof(t);
        } else {
            take_lower_run(t, t.tag_token.token_name, ends_name);
        }
        return;
    case state::rcdata_less_than:
    case state::rawtext_less_than:
    case state::script_less_than: {
        state text = t.current_state == state::rcdata_less_than    ? state::rcdata
                     : t.current_state == state::rawtext_less_than ? state::rawtext
                                                                   : state::script_data;
        if (c == '/') {
            t.temp_buffer.clear();
            t.current_state = text == state::rcdata    ? state::rcdata_end_tag_open
                              : text == state::rawtext ? state::rawtext_end_tag_open
                                                       : state::script_end_tag_open;
        } else if (c == '!' && text == state::script_data) {
            emit_ascii(t, "<!");
            t.current_state = state::script_escape_start;
        } else {
            emit_ascii(t, "<");
            reconsume(t);
            t.current_state = text;
        }
        return;
    }
    case state::rcdata_end_tag_open:
    case state::rawtext_end_tag_open:
    case state::script_end_tag_open:
    case state::script_escaped_end_tag_open: {
        state text = t.current_state == state::rcdata_end_tag_open    ? state::rcdata
                     : t.current_state == state::rawtext_end_tag_open ? state::rawtext
                     : t.current_state == state::script_end_tag_open  ? state::script_data
                                                                      : state::script_escaped;
        if (is_alpha(c)) {
            begin_tag(t, token_type::end_tag);
            reconsume(t);
            t.current_state = text == state::rcdata         ? state::rcdata_end_tag_name
                              : text == state::rawtext      ? state::rawtext_end_tag_name
                              : text == state::script_data  ? state::script_end_tag_name
                                                            : state::script_escaped_end_tag_name;
        } else {
            emit_ascii(t, "</");
            reconsume(t);
            t.current_state = text;
        }
        return;
    }
    case state::rcdata_end_tag_name:
    case state::rawtext_end_tag_name:
    case state::script_end_tag_name:
    case state::script_escaped_end_tag_name: {
        state text = t.current_state == state::rcdata_end_tag_name    ? state::rcdata
                     : t.current_state == state::rawtext_end_tag_name ? state::rawtext
                     : t.current_state == state::script_end_tag_name  ? state::script_data
                                                                      : state::script_escaped;
        if (is_space(c) && appropriate_end_tag(t)) {
            t.current_state = state::before_attribute_name;
        } else if (c == '/' && appropriate_end_tag(t)) {
            t.current_state = state::self_closing_start_tag;
        } else if (c == '>' && appropriate_end_tag(t)) {
            t.current_state = state::data;
            emit_tag(t);
        } else if (is_alpha(c)) {
            append_name(t, to_lower(c));
            put(t.temp_buffer, c);
        } else {
            emit_ascii(t, "</");
            emit_ascii(t, t.temp_buffer);
            reconsume(t);
            t.current_state = text;
        }
        return;
    }
    case state::script_escape_start:
    case state::script_escape_start_dash:
        if (c == '-') {
            emit_ascii(t, "-");
            t.current_state = t.current_state == state::script_escape_start ? state::script_escape_start_dash
                                                                            : state::script_escaped_dash_dash;
        } else {
            reconsume(t);
            t.current_state = state::script_data;
        }
        return;
    case state::script_escaped:
    case state::script_escaped_dash:
    case state::script_escaped_dash_dash: {
        state s = t.current_state;
        if (c == '-') {
            emit_ascii(t, "-");
            if (s == state::script_escaped) {
                t.current_state = state::script_escaped_dash;
            } else {
                t.current_state = state::script_escaped_dash_dash;
            }
        } else if (c == '<') {
            t.current_state = state::script_escaped_less_than;
        } else if (c == '>' && s == state::script_escaped_dash_dash) {
            emit_ascii(t, ">");
            t.current_state = state::script_data;
        } else if (c == 0) {
            emit_char(t, 0xFFFD);
            t.current_state = state::script_escaped;
        } else if (c == eof) {
            emit_eof(t);
        } else {
            emit_char(t, c);
            t.current_state = state::script_escaped;
        }
        return;
    }
    case state::script_escaped_less_than:
        if (c == '/') {
            t.temp_buffer.clear();
            t.current_state = state::script_escaped_end_tag_open;
        } else if (is_alpha(c)) {
            t.temp_buffer.clear();
            emit_ascii(t, "<");
            reconsume(t);
            t.current_state = state::script_double_escape_start;
        } else {
            emit_ascii(t, "<");
            reconsume(t);
            t.current_state = state::script_escaped;
        }
        return;
    case state::script_double_escape_start:
    case state::script_double_escape_end: {
        bool starting = t.current_state == state::script_double_escape_start;
        if (is_space(c) || c == '/' || c == '>') {
            bool is_script = t.temp_buffer == "script";
            t.current_state = (is_script == starting) ? state::script_double_escaped : state::script_escaped;
            emit_char(t, c);
        } else if (is_alpha(c)) {
            put(t.temp_buffer, to_lower(c));
            emit_char(t, c);
        } else {
            reconsume(t);
            t.current_state = starting ? state::script_escaped : state::script_double_escaped;
        }
        return;
    }
    case state::script_double_escaped:
    case state::script_double_escaped_dash:
    case state::script_double_escaped_dash_dash: {
        state s = t.current_state;
        if (c == '-') {
            emit_ascii(t, "-");
            t.current_state = s == state::script_double_escaped ? state::script_double_escaped_dash
                                                                : state::script_double_escaped_dash_dash;
        } else if (c == '<') {
            emit_ascii(t, "<");
            t.current_state = state::script_double_escaped_less_than;
        } else if (c == '>' && s == state::script_double_escaped_dash_dash) {
            emit_ascii(t, ">");
            t.current_state = state::script_data;
        } else if (c == 0) {
            emit_char(t, 0xFFFD);
            t.current_state = state::script_double_escaped;
        } else if (c == eof) {
            emit_eof(t);
        } else {
            emit_char(t, c);
            t.current_state = state::script_double_escaped;
        }
        return;
    }
    case state::script_double_escaped_less_than:
        if (c == '/') {
            t.temp_buffer.clear();
            emit_ascii(t, "/");
            t.current_state = state::script_double_escape_end;
        } else {
            reconsume(t);
            t.current_state = state::script_double_escaped;
        }
        return;
    case state::before_attribute_name:
        if (is_space(c)) {
            return;
        }
        if (c == '/' || c == '>' || c == eof) {
            reconsume(t);
            t.current_state = state::after_attribute_name;
        } else if (c == '=') {
            new_attribute(t);
            append_attr_name(t, c);
            t.current_state = state::attribute_name;
        } else {
            new_attribute(t);
            reconsume(t);
            t.current_state = state::attribute_name;
        }
        return;
    case state::attribute_name:
        if (is_space(c) || c == '/' || c == '>' || c == eof) {
            reconsume(t);
            t.current_state = state::after_attribute_name;
        } else if (c == '=') {
            t.current_state = state::before_attribute_value;
        } else if (c == 0) {
            append_attr_name(t, 0xFFFD);
        } else {
            take_lower_run(t, t.tag_token.token_attributes.back().attr_name,
                           [](unsigned char b) { return ends_name(b) || b == '='; });
        }
        return;
    case state::after_attribute_name:
        if (is_space(c)) {
            return;
        }
        if (c == '/') {
            t.current_state = state::self_closing_start_tag;
        } else if (c == '=') {
            t.current_state = state::before_attribute_value;
        } else if (c == '>') {
            t.current_state = state::data;
            emit_tag(t);
        } else if (c == eof) {
            emit_eof(t);
        } else {
            new_attribute(t);
            reconsume(t);
            t.current_state = state::attribute_name;
        }
        return;
    case state::before_attribute_value:
        if (is_space(c)) {
            return;
        }
        if (c == '"') {
            t.current_state = state::attribute_value_double_quoted;
        } else if (c == '\'') {
            t.current_state = state::attribute_value_single_quoted;
        } else if (c == '>') {
            t.current_state = state::data;
            emit_tag(t);
        } else {
            reconsume(t);
            t.current_state = state::attribute_value_unquoted;
        }
        return;
    case state::attribute_value_double_quoted:
    case state::attribute_value_single_quoted: {
        char32_t quote = t.current_state == state::attribute_value_double_quoted ? '"' : '\'';
        if (c == quote) {
            t.current_state = state::after_attribute_value_quoted;
        } else if (c == '&') {
            character_reference(t, true);
        } else if (c == 0) {
            append_attr_value(t, 0xFFFD);
        } else if (c == eof) {
            emit_eof(t);
        } else {
            unsigned char const q = static_cast<unsigned char>(quote);
            take_run(t, t.tag_token.token_attributes.back().attr_value,
                     [q](unsigned char b) { return b == q || b == '&' || b == 0; });
        }
        return;
    }
    case state::attribute_value_unquoted:
        if (is_space(c)) {
            t.current_state = state::before_attribute_name;
        } else if (c == '&') {
            character_reference(t, true);
        } else if (c == '>') {
            t.current_state = state::data;
            emit_tag(t);
        } else if (c == 0) {
            append_attr_value(t, 0xFFFD);
        } else if (c == eof) {
            emit_eof(t);
        } else {
            take_run(t, t.tag_token.token_attributes.back().attr_value, [](unsigned char b) {
                return b == '\t' || b == '\n' || b == '\f' || b == ' ' || b == '&' || b == '>' || b == 0;
            });
        }
        return;
    case state::after_attribute_value_quoted:
        if (is_space(c)) {
            t.current_state = state::before_attribute_name;
        } else if (c == '/') {
            t.current_state = state::self_closing_start_tag;
        } else if (c == '>') {
            t.current_state = state::data;
            emit_tag(t);
        } else if (c == eof) {
            emit_eof(t);
        } else {
            reconsume(t);
            t.current_state = state::before_attribute_name;
        }
        return;
    case state::self_closing_start_tag:
        if (c == '>') {
            t.tag_token.token_self_closing = true;
            t.current_state = state::data;
            emit_tag(t);
        } else if (c == eof) {
            emit_eof(t);
        } else {
            reconsume(t);
            t.current_state = state::before_attribute_name;
        }
        return;
    case state::bogus_comment:
        if (c == '>') {
            t.current_state = state::data;
            emit_current(t);
        } else if (c == eof) {
            emit_current_then_eof(t);
        } else if (c == 0) {
            append_data(t, 0xFFFD);
        } else {
            append_data(t, c);
        }
        return;
    case state::markup_declaration_open:
        reconsume(t);
        if (consume_word(t, "--", false)) {
            begin_comment(t);
            t.current_state = state::comment_start;
        } else if (consume_word(t, "doctype", true)) {
            t.current_state = state::doctype;
        } else if (peek(t) == '[' && peek(t, 1) == 'C' && peek(t, 2) == 'D' && peek(t, 3) == 'A' &&
                   peek(t, 4) == 'T' && peek(t, 5) == 'A' && peek(t, 6) == '[') {
            if (!t.chars_token.token_data.empty()) {
                // Whether CDATA is allowed depends on the tree as the text before it leaves it:
                // hand the text out first and look again.
                t.tag_queued = false;
                return;
            }
            t.tokenizer_pos += 7;
            if (t.cdata_allowed) {
                t.current_state = state::cdata_section;
            } else {
                begin_comment(t, "[CDATA[");
                t.current_state = state::bogus_comment;
            }
        } else {
            begin_comment(t);
            t.current_state = state::bogus_comment;
        }
        return;
    case state::comment_start:
        if (c == '-') {
            t.current_state = state::comment_start_dash;
        } else if (c == '>') {
            t.current_state = state::data;
            emit_current(t);
        } else {
            reconsume(t);
            t.current_state = state::comment;
        }
        return;
    case state::comment_start_dash:
        if (c == '-') {
            t.current_state = state::comment_end;
        } else if (c == '>') {
            t.current_state = state::data;
            emit_current(t);
        } else if (c == eof) {
            emit_current_then_eof(t);
        } else {
            append_data(t, '-');
            reconsume(t);
            t.current_state = state::comment;
        }
        return;
    case state::comment:
        if (c == '<') {
            append_data(t, '<');
            t.current_state = state::comment_less_than;
        } else if (c == '-') {
            t.current_state = state::comment_end_dash;
        } else if (c == 0) {
            append_data(t, 0xFFFD);
        } else if (c == eof) {
            emit_current_then_eof(t);
        } else {
            take_run(t, t.tag_token.token_data, [](unsigned char b) { return b == '<' || b == '-' || b == 0; });
        }
        return;
    case state::comment_less_than:
        if (c == '!') {
            append_data(t, '!');
            t.current_state = state::comment_less_than_bang;
        } else if (c == '<') {
            append_data(t, '<');
        } else {
            reconsume(t);
            t.current_state = state::comment;
        }
        return;
    case state::comment_less_than_bang:
        reconsume(t);
        if (c == '-') {
            ++t.tokenizer_pos;
            t.current_state = state::comment_less_than_bang_dash;
        } else {
            t.current_state = state::comment;
        }
        return;
    case state::comment_less_than_bang_dash:
        reconsume(t);
        if (c == '-') {
            ++t.tokenizer_pos;
            t.current_state = state::comment_less_than_bang_dash_dash;
        } else {
            t.current_state = state::comment_end_dash;
        }
        return;
    case state::comment_less_than_bang_dash_dash:
        reconsume(t);
        t.current_state = state::comment_end;
        return;
    case state::comment_end_dash:
        if (c == '-') {
            t.current_state = state::comment_end;
        } else if (c == eof) {
            emit_current_then_eof(t);
        } else {
            append_data(t, '-');
            reconsume(t);
            t.current_state = state::comment;
        }
        return;
    case state::comment_end:
        if (c == '>') {
            t.current_state = state::data;
            emit_current(t);
        } else if (c == '!') {
            t.current_state = state::comment_end_bang;
        } else if (c == '-') {
            append_data(t, '-');
        } else if (c == eof) {
            emit_current_then_eof(t);
        } else {
            t.tag_token.token_data.append("--");
            reconsume(t);
            t.current_state = state::comment;
        }
        return;
    case state::comment_end_bang:
        if (c == '-') {
            t.tag_token.token_data.append("--!");
            t.current_state = state::comment_end_dash;
        } else if (c == '>') {
            t.current_state = state::data;
            emit_current(t);
        } else if (c == eof) {
            emit_current_then_eof(t);
        } else {
            t.tag_token.token_data.append("--!");
            reconsume(t);
            t.current_state = state::comment;
        }
        return;
    case state::doctype:
        if (is_space(c)) {
            t.current_state = state::before_doctype_name;
        } else if (c == eof) {
            begin_doctype(t);
            t.tag_token.doctype_force_quirks = true;
            emit_current_then_eof(t);
        } else {
            reconsume(t);
            t.current_state = state::before_doctype_name;
        }
        return;
    case state::before_doctype_name:
        if (is_space(c)) {
            return;
        }
        begin_doctype(t);
        if (c == '>') {
            t.tag_token.doctype_force_quirks = true;
            t.current_state = state::data;
            emit_current(t);
        } else if (c == eof) {
            t.tag_token.doctype_force_quirks = true;
            emit_current_then_eof(t);
        } else {
            t.tag_token.doctype_has_name = true;
            append_name(t, c == 0 ? 0xFFFD : to_lower(c));
            t.current_state = state::doctype_name;
        }
        return;
    case state::doctype_name:
        if (is_space(c)) {
            t.current_state = state::after_doctype_name;
        } else if (c == '>') {
            t.current_state = state::data;
            emit_current(t);
        } else if (c == eof) {
            t.tag_token.doctype_force_quirks = true;
            emit_current_then_eof(t);
        } else {
            append_name(t, c == 0 ? 0xFFFD : to_lower(c));
        }
        return;
    case state::after_doctype_name:
        if (is_space(c)) {
            return;
        }
        if (c == '>') {
            t.current_state = state::data;
            emit_current(t);
        } else if (c == eof) {
            t.tag_token.doctype_force_quirks = true;
            emit_current_then_eof(t);
        } else {
            reconsume(t);
            if (consume_word(t, "public", true)) {
                t.current_state = state::after_doctype_public_keyword;
            } else if (consume_word(t, "system", true)) {
                t.current_state = state::after_doctype_system_keyword;
            } else {
                ++t.tokenizer_pos;
                t.tag_token.doctype_force_quirks = true;
                t.current_state = state::bogus_doctype;
            }
        }
        return;
    case state::after_doctype_public_keyword:
    case state::before_doctype_public_identifier:
    case state::after_doctype_system_keyword:
    case state::before_doctype_system_identifier: {
        bool is_public = t.current_state == state::after_doctype_public_keyword ||
                         t.current_state == state::before_doctype_public_identifier;
        bool keyword = t.current_state == state::after_doctype_public_keyword ||
                       t.current_state == state::after_doctype_system_keyword;
        if (is_space(c)) {
            if (keyword) {
                t.current_state =
                    is_public ? state::before_doctype_public_identifier : state::before_doctype_system_identifier;
            }
        } else if (c == '"' || c == '\'') {
            if (is_public) {
                t.tag_token.doctype_has_public = true;
                t.tag_token.doctype_public.clear();
                t.current_state = c == '"' ? state::doctype_public_identifier_double_quoted
                                           : state::doctype_public_identifier_single_quoted;
            } else {
                t.tag_token.doctype_has_system = true;
                t.tag_token.doctype_system.clear();
                t.current_state = c == '"' ? state::doctype_system_identifier_double_quoted
                                           : state::doctype_system_identifier_single_quoted;
            }
        } else if (c == '>') {
            t.tag_token.doctype_force_quirks = true;
            t.current_state = state::data;
            emit_current(t);
        } else if (c == eof) {
            t.tag_token.doctype_force_quirks = true;
            emit_current_then_eof(t);
        } else {
            t.tag_token.doctype_force_quirks = true;
            reconsume(t);
            t.current_state = state::bogus_doctype;
        }
        return;
    }
    case state::doctype_public_identifier_double_quoted:
    case state::doctype_public_identifier_single_quoted:
    case state::doctype_system_identifier_double_quoted:
    case state::doctype_system_identifier_single_quoted: {
        bool is_public = t.current_state == state::doctype_public_identifier_double_quoted ||
                         t.current_state == state::doctype_public_identifier_single_quoted;
        char32_t quote = (t.current_state == state::doctype_public_identifier_double_quoted ||
                          t.current_state == state::doctype_system_identifier_double_quoted)
                             ? '"'
                             : '\'';
        std::string& id = is_public ? t.tag_token.doctype_public : t.tag_token.doctype_system;
        if (c == quote) {
            t.current_state = is_public ? state::after_doctype_public_identifier : state::after_doctype_system_identifier;
        } else if (c == 0) {
            put(id, 0xFFFD);
        } else if (c == '>') {
            t.tag_token.doctype_force_quirks = true;
            t.current_state = state::data;
            emit_current(t);
        } else if (c == eof) {
            t.tag_token.doctype_force_quirks = true;
            emit_current_then_eof(t);
        } else {
            put(id, c);
        }
        return;
    }
    case state::after_doctype_public_identifier:
    case state::between_doctype_public_and_system_identifiers:
        if (is_space(c)) {
            t.current_state = state::between_doctype_public_and_system_identifiers;
        } else if (c == '>') {
            t.current_state = state::data;
            emit_current(t);
        } else if (c == '"' || c == '\'') {
            t.tag_token.doctype_has_system = true;
            t.tag_token.doctype_system.clear();
            t.current_state = c == '"' ? state::doctype_system_identifier_double_quoted
                                       : state::doctype_system_identifier_single_quoted;
        } else if (c == eof) {
            t.tag_token.doctype_force_quirks = true;
            emit_current_then_eof(t);
        } else {
            t.tag_token.doctype_force_quirks = true;
            reconsume(t);
            t.current_state = state::bogus_doctype;
        }
        return;
    case state::after_doctype_system_identifier:
        if (is_space(c)) {
            return;
        }
        if (c == '>') {
            t.current_state = state::data;
            emit_current(t);
        } else if (c == eof) {
            t.tag_token.doctype_force_quirks = true;
            emit_current_then_eof(t);
        } else {
            // Junk after the system identifier is an error, but it doesn't make the page quirky.
            reconsume(t);
            t.current_state = state::bogus_doctype;
        }
        return;
    case state::bogus_doctype:
        if (c == '>') {
            t.current_state = state::data;
            emit_current(t);
        } else if (c == eof) {
            emit_current_then_eof(t);
        }
        return;
    case state::cdata_section:
        if (c == ']') {
            t.current_state = state::cdata_section_bracket;
        } else if (c == eof) {
            emit_eof(t);
        } else {
            emit_char(t, c);
        }
        return;
    case state::cdata_section_bracket:
        if (c == ']') {
            t.current_state = state::cdata_section_end;
        } else {
            emit_ascii(t, "]");
            reconsume(t);
            t.current_state = state::cdata_section;
        }
        return;
    case state::cdata_section_end:
        if (c == ']') {
            emit_ascii(t, "]");
        } else if (c == '>') {
            t.current_state = state::data;
        } else {
            emit_ascii(t, "]]");
            reconsume(t);
            t.current_state = state::cdata_section;
        }
        return;
    }
}

} // namespace

tokenizer start(std::string_view utf8) {
    tokenizer t;
    std::string& in = t.tokenizer_input;
    in.reserve(utf8.size());
    std::size_t pos = 0;
    while (pos < utf8.size()) {
        std::size_t const ascii_end = misc::ascii_run_end(utf8, pos, true);
        if (ascii_end > pos) {
            in.append(utf8.substr(pos, ascii_end - pos));
            pos = ascii_end;
            continue;
        }
        auto const b = static_cast<unsigned char>(utf8[pos]);
        if (b == '\r') {
            // Newline normalisation: CR LF and lone CR become LF before anything else sees the text.
            in.push_back('\n');
            pos += (pos + 1 < utf8.size() && utf8[pos + 1] == '\n') ? 2 : 1;
        } else {
            // A valid sequence stays as it is; each byte that starts no valid sequence becomes U+FFFD.
            std::size_t const from = pos;
            char32_t const cp = textbuf::next_utf8(utf8, pos);
            if (pos - from == 1) {
                textbuf::append_utf8(in, cp);
            } else {
                in.append(utf8.substr(from, pos - from));
            }
        }
    }
    t.chars_token.token_kind = token_type::multi_char;
    return t;
}

token::token& next_token(tokenizer& t) {
    if (t.chars_handed_out) {
        t.chars_token.token_data.clear();
        t.chars_handed_out = false;
    }
    if (t.tag_queued) {
        // Text that came before this token was handed out by the last call.
        t.tag_queued = false;
        return t.tag_token;
    }
    if (t.eof_emitted) {
        return t.tag_token;
    }
    for (;;) {
        std::size_t before = t.tokenizer_pos;
        state state_before = t.current_state;
        step(t);
        if (t.tag_queued) {
            break;
        }
        // The CDATA check asks for the text so far to be handed out: nothing moved and nothing was queued.
        if (t.tokenizer_pos == before && t.current_state == state_before &&
            state_before == state::markup_declaration_open) {
            t.chars_handed_out = true;
            return t.chars_token;
        }
    }
    if (!t.chars_token.token_data.empty()) {
        t.chars_handed_out = true;
        return t.chars_token;
    }
    t.tag_queued = false;
    return t.tag_token;
}

} // namespace vellum::html5::tokenizer
