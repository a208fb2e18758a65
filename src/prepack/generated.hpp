// Generated content as box generation evaluates it: the terms of `content`, `string-set` and
// `bookmark-label`. Whatever the element settles (strings, attributes, counters, quotes, the text of a
// target) becomes text now; page counters, counters at targets and named strings wait for the page as
// generated content; `leader()` becomes a leader.
#pragma once

#include "css/property.hpp"
#include "driver/log.hpp"
#include "prepack/prepack.hpp"
#include "resource/locator.hpp"

#include <functional>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace vellum::prepack::generated {

/// One piece of evaluated content: text, a leader, or an image as an atomic inline box.
using piece = std::variant<text_thing, span_leader, span_inline_block>;

/// What evaluating content needs to know about the element and the document.
struct gen_env {
    log::log const& env_log;
    /// The values of a counter in the element's scopes, outermost first; empty if it was never set.
    std::function<std::vector<int>(std::string const&)> counter_values;
    /// An attribute of the element by its local name.
    std::function<std::optional<std::string>(std::string const&)> attribute;
    /// The element's own text, for content().
    std::function<std::string()> own_text;
    /// The text of the element that a target names, if the document has it.
    std::function<std::optional<std::string>(target_name const&)> target_text;
    /// The document, whose fragment-only URLs name its own targets, and the base of other URLs.
    resource::locator::locator doc;
    resource::locator::locator base;
    /// The nesting of quotes so far, carried through the document.
    int* quote_depth = nullptr;
    /// The element's `quotes` and language, for open-quote and close-quote.
    css::box::quotes const* quotes = nullptr;
    std::optional<std::string> lang;
    /// The font size of the style, for lengths in ems.
    float font_size = 12;
    /// The script host's functions for `-vellum-script()`; null when the document has no script engine.
    script_calls const* scripts = nullptr;
    /// The box of an image that url() names, or nothing when it cannot be shown.
    std::function<std::optional<span_inline_block>(css::value::url const&)> image;
};

/// Evaluates content terms. `what` names the property for messages.
std::vector<piece> evaluate(css::property::content_list const& content, gen_env const& env, std::string_view what);

/// Only the text pieces, for properties that take no leaders (string-set, bookmark-label).
std::vector<text_thing> text_things(std::vector<piece> pieces);

/// A page policy by its keyword ("first", "first-except", "last", "start").
std::optional<page_policy> policy_named(std::string const& word);

/// An identifier term, lower-cased.
std::optional<std::string> ident_of(css::value::value const& v);

/// The open or close mark of `quotes` at a nesting level: the marks of the deepest level repeat below
/// it, "none" has none, and "auto" takes the marks of the language (English without one).
std::u32string quote_mark(css::box::quotes const& quotes, std::optional<std::string> const& lang, int depth,
                          bool open);

} // namespace vellum::prepack::generated
