// The page painter: a packed page becomes the operators of its content stream. Boxes are painted in the
// stacking order of CSS (backgrounds of blocks, floats, inline content, positioned boxes by z-index),
// with backgrounds, borders, text and its decorations, opacity, visibility, overflow clipping and
// transforms; then the margin boxes and the printer's marks. The page's links are gathered from the
// same tree, and a packed page is framed for the file as a writepdf page.
#pragma once

#include "driver/log.hpp"
#include "pack/boxes.hpp"
#include "pdf/content.hpp"
#include "pdf/metadata.hpp"
#include "pdf/painted.hpp"
#include "pdf/tagging.hpp"
#include "pdf/writepdf.hpp"

#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <variant>
#include <string>
#include <utility>
#include <vector>

namespace vellum::pdf::painter {

/// Where a link leads, by the URL as written and the base it resolves against; nothing drops the link
/// (its target is unknown).
using link_resolver = std::function<std::optional<std::variant<dest::dest, action::action>>(
    std::string const& url, std::string const& base)>;

struct paint_options {
    /// Imitate bold and italic where the face used lacks them.
    bool artificial_fonts = false;
    /// Resolves links; without it "#name" is a named destination and anything else a web address.
    link_resolver resolve_link;
    /// Where images, tiled backgrounds, gradients and spot colours are named; without it they are
    /// left out with a warning.
    std::shared_ptr<page_objects::page_objects> objects;
    /// The logical structure of a tagged file, and the index of the page painted; without it the
    /// content is not marked.
    std::shared_ptr<tagging::structure> tags;
    int tag_page = 0;
    /// Keep the boxes that elements make, for scripts (`getVellumBoxes`).
    bool track_element_boxes = false;
};

/// Paints a whole page into its content stream.
void paint_page(log::log const& log,
                content::out const& o,
                content::gs& g,
                pack::packed_page const& page,
                paint_options const& options);

/// Paints one box with everything in it, as a stacking context of its own.
void paint_box(log::log const& log,
               content::out const& o,
               content::gs& g,
               pack::box const& box,
               paint_options const& options);

enum class link_anchor_location { link_anchor_page_body, link_anchor_margin_box };

/// A link on a page: its target as written, and the area that reacts to it.
struct found_link {
    std::string link_url;
    /// The base the URL resolves against.
    std::string link_base;
    pack::areas::area link_area;
    painter::link_anchor_location link_location = link_anchor_location::link_anchor_page_body;
    bool operator==(found_link const&) const = default;
};

/// The links of a page, in tree order: each box or inline element whose link differs from its parent's.
std::vector<found_link> page_links(pack::packed_page const& page);

/// The places that a page's elements name by their ids, in tree order: the top left corner of each box
/// or inline element that carries ids.
std::vector<std::pair<std::string, util::pos::pos>> page_destinations(pack::packed_page const& page);

/// What kind of box an element made, as scripts see it.
enum class element_box_kind { block_box, inline_span, image_box, drawing_box };

/// A box an element made on a page: its border box (a span's content area) in points from the page's
/// top left corner, and the nearest box around it that an element made too, as an index into the same
/// list.
struct element_box {
    dom::element_ref box_element;
    element_box_kind box_kind = element_box_kind::block_box;
    int box_page = 0;
    float box_left = 0;
    float box_top = 0;
    float box_width = 0;
    float box_height = 0;
    std::optional<std::size_t> box_parent;
};

/// The boxes that elements made on a page numbered `page_number`, in tree order; `parent_base` is the
/// index the page's first box will have in the list the caller keeps, so that parents index that list.
std::vector<element_box> page_element_boxes(pack::packed_page const& page, int page_number, std::size_t parent_base);

/// The ids of the fonts that a page's text uses.
std::vector<int> page_font_ids(pack::packed_page const& page);

/// The page for the file: its media, bleed and trim boxes, the painter of its content, its links
/// ("#name" as a named destination, any other text as a web address).
writepdf::document_page document_page_of(log::log const& log,
                                         vellum::ref<pack::packed_page> const& page,
                                         paint_options const& options);

/// A page painted as soon as it was packed, kept until the file is written: its content with the glyph
/// codes still open, what the content uses, its links as written (resolved once every target is
/// placed) and its label.
struct painted_page {
    writepdf::page_boxes painted_boxes;
    std::shared_ptr<painted::recorded_content const> painted_content;
    std::shared_ptr<content::used_resources const> painted_used;
    std::vector<found_link> painted_links;
    std::optional<pack::page_label> painted_label;
    /// The places that the ids on the page name.
    std::vector<std::pair<std::string, dest::dest>> painted_destinations;
};

/// The pages of one packing pass, painted one at a time so that a packed page need not outlive its
/// packing. The images, forms, graphics-state names and logical structure that the pages name belong
/// to the pass: when another pass is needed the whole value is dropped and nothing of it reaches the
/// file.
class page_stream {
public:
    /// `options` as the profile left them; `given` as for add_pages.
    page_stream(metadata::pdf_options const& options, paint_options given);

    /// Paints a page as the next one.
    void add(log::log const& log, pack::packed_page const& page);

    /// Whether the pages of one pass can be taken again by the next: not when they build a tagged
    /// structure or report the boxes of elements, which follow the pages as they are painted.
    bool keeps_pages() const;

    /// Keeps the place of a page that is not painted; a stream with such a page is not written.
    void skip();

    /// Begins the pages of another pass, keeping those painted so far to be taken again: what they
    /// use (glyphs, images, forms, graphics states) stays recorded here.
    void start_again();

    /// Takes `count` pages of the pass before, from the one at `first` (from 0), as the next pages;
    /// false, taking none, when they were not all painted or would land elsewhere.
    bool take_again(std::size_t first, std::size_t count);

    std::vector<painted_page> const& pages() const { return stream_pages; }

    /// The boxes that elements made on the pages painted so far, when the options ask to track them.
    std::vector<element_box> const& element_boxes() const { return stream_element_boxes; }

    /// Moves the painted pages into a document with their links resolved, the named destinations they
    /// hold, the objects and structure they name, and the fonts they use; the stream is left empty.
    void finish(writepdf::pdf_document& doc, link_resolver const& resolve);

    /// The cells of the glyph numbers that the pages show, each once per page.
    std::vector<cell<int> const*> shown_glyphs() const;

private:
    void add_destinations(std::vector<std::pair<std::string, dest::dest>> const& destinations);

    paint_options stream_options;
    content::gs stream_state;
    painted::recorder stream_recorder;
    std::vector<painted_page> stream_pages;
    /// The pages of the pass before, while another pass may take them again.
    std::vector<painted_page> stream_before;
    std::vector<std::pair<std::string, dest::dest>> stream_destinations;
    std::set<std::string> stream_destination_names;
    std::set<int> stream_font_ids;
    std::optional<std::string> stream_language;
    std::vector<element_box> stream_element_boxes;
};

/// Adds pages to a document, the fonts they use to its used fonts, and the places their ids name to its
/// named destinations (the first place of a name wins).
void add_pages(log::log const& log,
               writepdf::pdf_document& doc,
               std::span<vellum::ref<pack::packed_page> const> pages,
               paint_options const& options);

} // namespace vellum::pdf::painter
