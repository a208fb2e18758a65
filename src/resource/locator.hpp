// Locators: every name of a resource, from the command line, a document or the program itself, as one
// of a few kinds (web, file, standard input, data, ...) with the origin that decides what may be read.
// Also the path records (virtual_path) and the decoding of "data:" URLs (dataurl).
#pragma once

#include "resource/url.hpp"
#include "util/bytes.hpp"
#include "util/result.hpp"

#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace vellum::virtual_path {

/// A path of the operating system.
struct physical_path {
    std::string path;
    bool operator==(physical_path const&) const = default;
};

/// A path as the URL layer sees it, with "/" separators; relative to the working directory unless it
/// begins with "/".
struct virtual_path {
    std::string path;
    bool operator==(virtual_path const&) const = default;
};

} // namespace vellum::virtual_path

namespace vellum::dataurl {

/// The content of a "data:" URL.
struct dataurl {
    /// The type as written before the comma, without ";base64".
    std::string mime_type;
    bytes::bytes data;
    bool operator==(dataurl const&) const = default;
};

/// Decodes a "data:" URL given in full.
[[nodiscard]] result<dataurl> parse_data_url(std::string_view text);

} // namespace vellum::dataurl

namespace vellum::resource::locator {

/// The two web protocols.
enum class protocol { http, https };

/// An "http" or "https" URL, serialised without its fragment.
struct web {
    locator::protocol web_protocol = protocol::http;
    std::string web_url;
    bool operator==(web const&) const = default;
};

/// A file, by a path with "/" separators, and the query of its URL if it had one.
struct file {
    virtual_path::virtual_path file_path;
    std::optional<urlspec::query> file_query;
    bool operator==(file const&) const = default;
};

/// Standard input: the command-line name "-".
struct standard_input {
    bool operator==(standard_input const&) const = default;
};

/// A "data:" URL in full, without its fragment.
struct data {
    std::string data_url;
    bool operator==(data const&) const = default;
};

/// Any other scheme ("mailto", "ftp", ...): the scheme and the URL; never loaded.
struct other {
    std::string other_scheme;
    std::string other_url;
    bool operator==(other const&) const = default;
};

/// Text that cannot be parsed as a URL.
struct invalid {
    std::string invalid_text;
    bool operator==(invalid const&) const = default;
};

/// A relative URL with no usable base: its text, and the base's text (may be empty).
struct unresolvable {
    std::string unresolvable_text;
    std::string unresolvable_base;
    bool operator==(unresolvable const&) const = default;
};

/// What a locator names.
using locator_url = std::variant<web, file, standard_input, data, other, invalid, unresolvable>;

/// Who wrote the name; rules on what may be read hang on it.
enum class locator_origin {
    /// The program's own files, under the prefix.
    system_origin,
    /// A value given on the command line.
    command_line_origin,
    /// A URL written in a document, style sheet or script.
    document_origin,
};

/// Where the resource that wrote a name came from. A document from the web (or a data URL, or anything
/// such a document named in turn) must not lead the program to local files, so the mark passes on to
/// every name resolved against such a resource.
enum class named_by { local_resource, remote_resource };

/// Whether a name that is not a URL is taken as a file path.
enum class path_or_url { url_strict, path_or_url };

/// Whether the segments of a file URL are percent-decoded into the path.
enum class decode { do_percent_decode, do_not_percent_decode };

/// A name of a resource with its origin.
struct locator {
    resource::locator::locator_url locator_url = invalid{};
    std::optional<urlspec::fragment> locator_fragment;
    /// The locator of the resource that named this one, if any.
    std::optional<resource::locator::locator_url> locator_referer;
    resource::locator::locator_origin locator_origin = resource::locator::locator_origin::document_origin;
    /// Whether the name was written in a resource that is not a local file, or named by one.
    resource::locator::named_by locator_named_by = named_by::local_resource;
    bool operator==(locator const&) const = default;
};

/// The common entry: makes a locator of a name, resolving a relative name against the base if given.
locator parse_locator(path_or_url rule, locator_origin origin, std::optional<locator> const& base,
                      std::string_view text);

/// A reference written inside the resource `base`, resolved against it. The result has the document
/// origin, or the system origin when the base is one of the program's own files.
locator resolve_locator(locator const& base, std::string_view text);

/// The text of a locator for messages: a URL, a file path, "data URL", or the text as written.
std::string locator_to_string(locator const& l);

/// The same, for a locator_url alone.
std::string locator_url_to_string(locator_url const& u);

/// The path of a "file" URL: its segments joined with "/", with a leading "/" kept and a host other than
/// "localhost" as a leading "//host".
virtual_path::virtual_path file_url_path(urlspec::url const& u, decode d);

/// A "file" URL for a path, so that relative references can be resolved against it.
urlspec::url file_path_url(virtual_path::virtual_path const& path, std::optional<urlspec::query> const& query);

} // namespace vellum::resource::locator
