// The bridge between libxml2's input layer and the program's own resource reading: the external entity
// loader (DTDs, external entities, XIncluded files), catalog resolution, and the record each parse keeps
// beside its parser context so that the loader knows whose document it is reading for.
#pragma once

#include "document/xml_options.hpp"
#include "driver/log.hpp"
#include "resource/locator.hpp"
#include "util/bytes.hpp"
#include "util/result.hpp"

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>

namespace vellum::libxml::io {

/// A resource as read for a parse: its bytes and the character encoding its transport named, if any (the
/// "charset" of an HTTP Content-Type, say).
struct fetched {
    bytes::bytes fetched_bytes;
    std::optional<std::string> fetched_charset;
};

/// Reads a resource; every read of a parse (document, DTD, entity, XInclude) goes through it.
using fetch_function = std::function<result<fetched>(resource::locator::locator const&)>;

/// What the entity loader needs, for the length of one parse.
struct entity_loader_info {
    log::log loader_log;
    fetch_function loader_fetch;
    /// Against which relative names resolve.
    resource::locator::locator base;
    /// The document itself.
    resource::locator::locator initial;
    xml::use_xinclude use_xinclude = xml::use_xinclude::no;
    /// The locator of each input opened so far, by the name libxml2 knows it under, so that names read
    /// inside it resolve with its origin.
    std::map<std::string, resource::locator::locator> opened;
};

/// The marker that tells the entity loader that a context's private data is one of its own records.
inline constexpr std::uint32_t context_marker = 0xdeadbeef;

/// The private data of a parser context: the marker beside a pointer to the record.
struct context_private {
    std::uint32_t marker = context_marker;
    entity_loader_info* info = nullptr;
};

/// Installs the entity loader, once per process; later calls do nothing.
void install_entity_loader();

/// The name under which libxml2 should know a resource: an absolute path for a local file, the URL for a
/// web resource, the locator's text otherwise.
std::string libxml_name(resource::locator::locator const& l);

/// Makes this parse's record the one the loader falls back on when libxml2 calls it without a context,
/// for the lifetime of the scope. The process-wide lock must be held.
class current_parse {
public:
    explicit current_parse(context_private* record);
    ~current_parse();
    current_parse(current_parse const&) = delete;
    current_parse& operator=(current_parse const&) = delete;

private:
    context_private* current_record;
    context_private* previous_record;
};

} // namespace vellum::libxml::io
