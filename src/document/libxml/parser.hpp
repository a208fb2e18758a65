// XML and HTML4 parsing with libxml2: the option words, the errors collected with file and line, XInclude,
// and conversion to the plain tree. No libxml2 structure outlives a call.
#pragma once

#include "document/libxml/io.hpp"
#include "document/xml.hpp"
#include "document/xml_options.hpp"
#include "driver/log.hpp"
#include "resource/locator.hpp"
#include "util/bytes.hpp"

#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace vellum::libxml::parser {

/// How serious a message of the parser is.
enum class libxml_error_level { warning, error };

/// A message about a place in a file.
struct parse_error {
    libxml_error_level level = libxml_error_level::error;
    std::string filename;
    int line_no = 0;
    std::string message;
    bool operator==(parse_error const&) const = default;
};

/// A message with no file.
struct other_error {
    libxml_error_level level = libxml_error_level::error;
    std::string message;
    bool operator==(other_error const&) const = default;
};

/// One message of a parse.
using libxml_error = std::variant<parse_error, other_error>;

/// The option word of an XML parse: entities expanded and CDATA merged into text always, and with
/// load_dtd the external subset read and its default attributes applied.
int xml_option_word(xml::load_dtd load);

/// What a parse needs besides its input.
struct parse_request {
    /// The document, as named to the user.
    resource::locator::locator request_locator;
    /// Against which relative names resolve; the locator when absent.
    std::optional<resource::locator::locator> request_base;
    xml::xml_options request_options;
    io::fetch_function request_fetch;
};

/// What a parse produced: the document if one resulted, and the messages in source order.
struct parse_outcome {
    std::optional<xml::document> outcome_document;
    std::vector<libxml_error> outcome_errors;
};

/// Parses XML bytes; the parser's messages come back in the outcome, unlogged (failures to read an
/// entity are logged as they happen).
parse_outcome parse_xml_bytes(log::log const& log, parse_request const& request, bytes::bytes const& data);

/// Parses HTML4 bytes, as above.
parse_outcome parse_html4_bytes(log::log const& log, parse_request const& request, bytes::bytes const& data);

/// Logs the messages of a parse: warnings as warnings, errors as errors, with file and line when known.
void log_errors(log::log const& log, std::vector<libxml_error> const& errors);

/// Reads an XML document through the fetch function, parses it and logs its messages.
[[nodiscard]] std::optional<xml::document> read_xml(log::log const& log, parse_request const& request);

/// Parses XML bytes already in memory and logs the messages.
[[nodiscard]] std::optional<xml::document>
read_xml_memory(log::log const& log, parse_request const& request, bytes::bytes const& data);

/// Reads an HTML4 document through the fetch function, parses it and logs its messages.
[[nodiscard]] std::optional<xml::document> read_html4(log::log const& log, parse_request const& request);

/// Parses HTML4 bytes already in memory and logs the messages.
[[nodiscard]] std::optional<xml::document>
read_html4_memory(log::log const& log, parse_request const& request, bytes::bytes const& data);

} // namespace vellum::libxml::parser
