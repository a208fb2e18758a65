// A document through the whole front of the pipeline, for tests and the box-dump tool: parsed from a
// file, styled with the default sheets of a prefix, and turned into the box tree.
#pragma once

#include "css/styledom/computed.hpp"
#include "document/input.hpp"
#include "prepack/dump.hpp"
#include "prepack/walk.hpp"
#include "resource/loader.hpp"
#include "util/result.hpp"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>

#include <unistd.h>

namespace box_support {

using namespace vellum;

/// Local files only, as on a machine without a network.
inline libxml::io::fetch_function local_files() {
    return [](resource::locator::locator const& l) -> result<libxml::io::fetched> {
        auto const* f = std::get_if<resource::locator::file>(&l.locator_url);
        if (!f) {
            return fail("no network: " + resource::locator::locator_to_string(l));
        }
        std::ifstream in(f->file_path.path, std::ios::binary);
        if (!in) {
            return fail("cannot read " + f->file_path.path);
        }
        std::string content((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        return libxml::io::fetched{.fetched_bytes = bytes::from_string(content)};
    };
}

/// The box tree of a file, HTML5 unless its name ends in ".xml" or ".xhtml"; `prefix` holds style/.
inline result<prepack::pack_document> boxes_of_file(log::log const& log, std::filesystem::path const& prefix,
                                                    std::filesystem::path const& file) {
    auto loader = resource::loader::new_loader(log, {prefix.string()}, {file.parent_path().string()},
                                               {.network = false});
    if (!loader) {
        return fail(loader.error());
    }
    auto const ext = file.extension().string();
    auto const type = ext == ".xml" || ext == ".xhtml" ? doctype::doctype::xml : doctype::doctype::html5;
    auto const src = resource::locator::parse_locator(resource::locator::path_or_url::path_or_url,
                                                      resource::locator::locator_origin::command_line_origin,
                                                      std::nullopt, std::filesystem::absolute(file).string());
    auto const xdoc = document::input::load_document(log, src, type, std::nullopt, xml::xml_options{}, local_files());
    if (!xdoc) {
        return fail("could not load " + file.string());
    }
    auto const prepared = document::input::prepare_document(log, type, *xdoc, {}, src, {});
    auto const styled = styledom::style_document(log, *loader, prepared.prepared_dom,
                                                 styledom::computed::typed_hooks());
    return prepack::walk::prepack_document(log, styled);
}

/// The box tree of an HTML text, through a file of its own in a fresh temporary folder (named by `tag`
/// and the process, so that tests running side by side do not meet), with messages kept off the console.
inline std::optional<prepack::pack_document> boxes_of_html(std::filesystem::path const& prefix, std::string const& html,
                                                           std::string const& tag) {
    auto const dir = std::filesystem::temp_directory_path() / ("vellum_html_" + tag + "_" + std::to_string(::getpid()));
    std::filesystem::create_directories(dir);
    std::ofstream(dir / "doc.html") << html;
    log::log l{.log_stderr = log::console_log::console_log{.console_out = std::tmpfile()}};
    auto doc = boxes_of_file(l, prefix, dir / "doc.html");
    std::filesystem::remove_all(dir);
    if (!doc) {
        return std::nullopt;
    }
    return std::move(*doc);
}

} // namespace box_support
