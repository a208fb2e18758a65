// The HTML tokenizer: a state machine over the input's code points that yields tokens one at a time.
#pragma once

#include "document/html5/token.hpp"

#include <string>
#include <string_view>

namespace vellum::html5::tokenizer {

/// The tokenization states that the tree builder (or a test) may set from outside.
enum class state {
    data,
    rcdata,
    rawtext,
    script_data,
    plaintext,
    tag_open,
    end_tag_open,
    tag_name,
    rcdata_less_than,
    rcdata_end_tag_open,
    rcdata_end_tag_name,
    rawtext_less_than,
    rawtext_end_tag_open,
    rawtext_end_tag_name,
    script_less_than,
    script_end_tag_open,
    script_end_tag_name,
    script_escape_start,
    script_escape_start_dash,
    script_escaped,
    script_escaped_dash,
    script_escaped_dash_dash,
    script_escaped_less_than,
    script_escaped_end_tag_open,
    script_escaped_end_tag_name,
    script_double_escape_start,
    script_double_escaped,
    script_double_escaped_dash,
    script_double_escaped_dash_dash,
    script_double_escaped_less_than,
    script_double_escape_end,
    before_attribute_name,
    attribute_name,
    after_attribute_name,
    before_attribute_value,
    attribute_value_double_quoted,
    attribute_value_single_quoted,
    attribute_value_unquoted,
    after_attribute_value_quoted,
    self_closing_start_tag,
    bogus_comment,
    markup_declaration_open,
    comment_start,
    comment_start_dash,
    comment,
    comment_less_than,
    comment_less_than_bang,
    comment_less_than_bang_dash,
    comment_less_than_bang_dash_dash,
    comment_end_dash,
    comment_end,
    comment_end_bang,
    doctype,
    before_doctype_name,
    doctype_name,
    after_doctype_name,
    after_doctype_public_keyword,
    before_doctype_public_identifier,
    doctype_public_identifier_double_quoted,
    doctype_public_identifier_single_quoted,
    after_doctype_public_identifier,
    between_doctype_public_and_system_identifiers,
    after_doctype_system_keyword,
    before_doctype_system_identifier,
    doctype_system_identifier_double_quoted,
    doctype_system_identifier_single_quoted,
    after_doctype_system_identifier,
    bogus_doctype,
    cdata_section,
    cdata_section_bracket,
    cdata_section_end,
};

/// The state of one tokenization. Build with `start`, then call `next_token` until END OF FILE.
struct tokenizer {
    /// The input as UTF-8 after newline normalisation (CR LF and lone CR become LF), with each byte that
    /// starts no valid sequence replaced by U+FFFD. The states read it a byte at a time.
    std::string tokenizer_input;
    std::size_t tokenizer_pos = 0;
    state current_state = state::data;
    /// Set by the tree builder: whether "<![CDATA[" opens a CDATA section (only in foreign content).
    bool cdata_allowed = false;
    /// The name of the last start tag emitted, to recognise an "appropriate" end tag in RCDATA and the like.
    std::string last_start_tag;
    token::token tag_token;
    token::token chars_token;
    bool tag_queued = false;
    bool chars_handed_out = false;
    bool eof_emitted = false;
    std::string temp_buffer;
};

/// A tokenizer over UTF-8 text (invalid sequences become U+FFFD).
tokenizer start(std::string_view utf8);

/// The next token; the reference stays valid until the next call. Character runs come as MULTI_CHAR.
token::token& next_token(tokenizer& t);

} // namespace vellum::html5::tokenizer
