// Style sheets: reads the text of a sheet (and the sheets it imports) into the rules, page rules, font
// faces, colours and special rules of an environment that runs through all sheets of a document.
#pragma once

#include "css/declaration.hpp"
#include "css/page_rule.hpp"
#include "css/selector.hpp"
#include "css/terms.hpp"
#include "driver/log.hpp"
#include "util/result.hpp"

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

namespace vellum::css::parser {

/// Where a statement list ends.
enum class stop_at { stop_at_close_brace, stop_at_eof };

/// One selector and all the declarations written for it, in the order read.
struct style_rule {
    selector::selector rule_selector;
    declarations rule_declarations;
    bool operator==(style_rule const&) const = default;
};

/// What a warning is about: a sheet that couldn't be read, or something in its text that was skipped.
enum class warning_kind { load, syntax };

/// A problem met while reading sheets: the file it concerns, the line (0 for the file as a whole) and the
/// message.
struct warning {
    std::string warning_file;
    std::string warning_text;
    int warning_line = 0;
    warning_kind warning_type = warning_kind::load;
    bool operator==(warning const&) const = default;
};

/// The accumulator threaded through every sheet of a document.
struct env {
    /// The number the next declaration gets.
    int index = 0;
    /// The medium being styled, such as "print".
    std::string media;
    /// Style rules; equal selectors share one entry.
    std::vector<style_rule> rules;
    /// From the text of a selector to its entry in `rules`.
    std::unordered_map<std::string, std::size_t> rule_positions;
    std::vector<page_rule::page_rule> pages;
    /// The declarations of each @font-face rule.
    std::vector<declarations> fonts;
    /// The declarations of each @vellum-color rule, by colour name; a later rule replaces an earlier one.
    std::map<std::string, declarations> colors;
    /// Declaration blocks of the program's own at-rules, by key ("vellum-pdf").
    std::vector<std::pair<std::string, declarations>> special_rules;
    /// Logged once all sheets are read.
    std::vector<warning> warnings;
    /// The number of sheets read through @import so far.
    int import_count = 0;
    /// Which property names are known; unknown ones are dropped. Null keeps every name.
    terms::property_filter known_property = nullptr;
    /// Which values suit their properties, for the warnings and for @supports; null takes all.
    terms::value_check valid_value = nullptr;
    /// The full names of the cascade layers ("base", "base.reset"), in the order first met; a
    /// declaration's `layer` is a position in this list plus one until `finish_layers` ranks them.
    std::vector<std::string> layers;
    /// The page area's width and height in points, for the media features width, height and
    /// orientation; unknown, they hold for no value.
    std::optional<std::pair<float, float>> media_page_area;
    /// Whether a media query asked about the page's width, height or orientation, so that the sheets
    /// must be read again when their own @page rules give another size.
    bool media_page_asked = false;
    bool operator==(env const&) const = default;
};

/// What fetching a sheet gives: its final URL, its bytes and the content type if the server named one.
struct fetched_sheet {
    std::string sheet_url;
    std::string sheet_bytes;
    std::optional<std::string> content_type;
};

/// Fetches a sheet named by a URL and the base it resolves against; the resource loader plugs in here.
/// A failure is a message saying why.
using fetch = std::function<result<fetched_sheet>(value::url const& target)>;

/// An empty environment for a medium.
env new_env(std::string media);

/// Fetches a sheet and reads it, with its imports, into `e`. A failure to fetch, or a content type other
/// than "text/css", is a warning and the sheet counts as empty.
[[nodiscard]] env load_style_sheet(log::log const& log, fetch const& fetcher, origin o, value::url const& target,
                                   env e);

/// Reads the text of a sheet whose URL is `base` (a style element, or an imported sheet) into `e`.
[[nodiscard]] env parse_style_sheet(log::log const& log, fetch const& fetcher, origin o, std::string const& base,
                                    std::string_view text, env e);

/// Reads the declarations of a style attribute, numbered from 0.
[[nodiscard]] declarations parse_declarations(origin o, std::string const& base, std::string_view text,
                                              terms::property_filter known_property = nullptr);

/// Reads one value, as the command line and scripts give it; nothing if it doesn't parse.
[[nodiscard]] std::optional<value::value> parse_value(std::string const& base, std::string_view text);

/// Converts the bytes of a sheet to UTF-8: a byte-order mark decides, then "@charset", then UTF-8.
std::string decode_sheet(std::string_view bytes);

/// Turns the layer numbers of the declarations into their rank in the cascade, once all sheets are read:
/// a layer ranks above the layers declared before it, and a layer's own rules above its sublayers.
void finish_layers(env& e);

/// Logs the warnings of the environment with their file (and line) as the source: sheets that couldn't
/// be read at level warning, problems in their text at level info, with one warning that counts them
/// when the log doesn't show info.
void log_warnings(log::log const& log, env const& e);

} // namespace vellum::css::parser
