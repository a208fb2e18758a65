#include "document/html5/parser.hpp"

#include "document/html5/builder.hpp"
#include "document/html5/misc.hpp"
#include "document/html5/modes.hpp"

namespace vellum::html5::parser {

namespace bld = html5::builder;
using bld::builder;
using tree::html_ns;

namespace {

// The main loop: the tokenizer yields tokens, tree construction consumes them and may switch the
// tokenizer's state (for title, textarea, script, style, plaintext and the like) before the next one.
void run(builder& b) {
    for (;;) {
        token::token& t = tokenizer::next_token(b.tok);
        bool at_end = t.token_kind == token::token_type::end_of_file;
        modes::process_token(b, t);
        if (at_end || b.stopped) {
            break;
        }
    }
    b.open.clear();
}

parsed_document finish(builder& b) {
    parsed_document out;
    out.document_root = std::move(b.document);
    out.document_doctype = std::move(b.doctype);
    out.document_doctype_position = b.doctype_position;
    out.document_depth_capped = b.depth_capped;
    return out;
}

} // namespace

parsed_document parse_document(std::string_view utf8) {
    builder b;
    b.tok = tokenizer::start(utf8);
    b.document = tree::make_element("DOC", html_ns::none);
    run(b);
    return finish(b);
}

parsed_document parse_fragment(std::string_view utf8, std::string_view context_name, tree::html_ns context_ns) {
    builder b;
    b.tok = tokenizer::start(utf8);
    b.document = tree::make_element("DOC", html_ns::none);
    b.context = tree::make_element(context_name, context_ns);
    if (context_ns == html_ns::html) {
        // The context decides how its content is tokenized, as if its start tag had just been read.
        if (misc::name_in(context_name, {"title", "textarea"})) {
            b.tok.current_state = tokenizer::state::rcdata;
        } else if (misc::name_in(context_name, {"style", "xmp", "iframe", "noembed", "noframes"})) {
            b.tok.current_state = tokenizer::state::rawtext;
        } else if (context_name == "script") {
            b.tok.current_state = tokenizer::state::script_data;
        } else if (context_name == "plaintext") {
            b.tok.current_state = tokenizer::state::plaintext;
        }
    }
    b.open.push_back(tree::add_child_node(*b.document, tree::make_element("html", html_ns::html)));
    if (context_ns == html_ns::html && context_name == "template") {
        b.template_modes.push_back(bld::mode::in_template);
    }
    bld::reset_insertion_mode(b);
    b.tok.cdata_allowed = context_ns != html_ns::html;
    run(b);
    return finish(b);
}

} // namespace vellum::html5::parser
