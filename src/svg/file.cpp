#include "svg/file.hpp"

#include "css/styledom/computed.hpp"
#include "css/styledom/styledom.hpp"
#include "document/input.hpp"
#include "svg/build.hpp"

#include <memory>
#include <set>

namespace vellum::svg::file {

images::svg_reader svg_file_reader(resource::loader::loader const& loader, images::images* table) {
    // The files being read, so that a drawing that shows itself (directly or through others) stops.
    auto reading = std::make_shared<std::set<std::string>>();
    return [&loader, table, reading](log::log const& log, bytes::bytes const& data,
                                     resource::locator::locator const& url) -> result<images::svg_loaded> {
        auto const name = resource::locator::locator_to_string(url);
        if (reading->contains(name)) {
            return fail("links to itself.");
        }
        auto const fetch = [&](resource::locator::locator const& l) -> result<libxml::io::fetched> {
            auto loaded = resource::loader::load_resource(log, loader, resource::loader::resource_description::document, l);
            if (!loaded) {
                return fail(loaded.error());
            }
            auto bytes = resource::loader::resource_to_bytes(loaded->resource_data);
            if (!bytes) {
                return fail(bytes.error());
            }
            return libxml::io::fetched{.fetched_bytes = *bytes};
        };
        // The DTD of an SVG file names nothing the drawing needs, and fetching it would go to the web.
        xml::xml_options const options{.use_xinclude = xml::use_xinclude::no, .load_dtd = xml::load_dtd::no};
        auto const doc = document::input::load_document(log, url, doctype::doctype::xml, std::nullopt, options, fetch, data);
        if (!doc) {
            return fail("svg: the file is not well-formed XML");
        }
        auto const prepared =
            document::input::prepare_document(log, doctype::doctype::xml, *doc, dom::doc_style_info{}, url, {});
        styledom::style_document(log, loader, prepared.prepared_dom, styledom::computed::typed_hooks());
        auto const root = dom::document_element(*prepared.prepared_dom);
        if (!root || !build::is_svg_name((*root)->dom_element_name, "svg")) {
            return fail("svg: the root element is not an svg element");
        }
        reading->insert(name);
        auto block = build::make_svg_block(log, *root, build::build_env{.env_source = name, .env_images = table, .env_fonts = table ? table->svg_fonts : nullptr});
        reading->erase(name);
        images::svg_loaded out{.loaded_width = block.viewport_width, .loaded_height = block.viewport_height};
        out.loaded_block = share(std::move(block));
        return out;
    };
}

} // namespace vellum::svg::file
