#include "driver/engine.hpp"

#include "css/compute_style.hpp"
#include "css/styledom/computed.hpp"
#include "css/styledom/sheets.hpp"
#include "driver/help.hpp"
#include "driver/pack_loop.hpp"
#include "host/domjs.hpp"
#include "host/script_phase.hpp"
#include "driver/pdf_rules.hpp"
#include "image/images.hpp"
#include "svg/file.hpp"
#include "pack/pack.hpp"
#include "pack/table_pack.hpp"
#include "pdf/bookmarks.hpp"
#include "pdf/paint_color.hpp"
#include "pdf/painter.hpp"
#include "pdf/pdf_fonts.hpp"
#include "prepack/walk.hpp"
#include "pdf/bulkio/file.hpp"
#include "pdf/conformance.hpp"
#include "pdf/writepdf.hpp"
#include "util/cell.hpp"
#include "util/ref.hpp"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include <libxml/catalog.h>

namespace vellum::engine {

namespace {

// Reads a whole stream into memory: 4096 bytes at first, each enlargement to twice the count read.
std::optional<bytes::bytes> read_all(std::FILE* f) {
    std::vector<std::uint8_t> data(4096);
    std::size_t used = 0;
    for (;;) {
        std::size_t const n = std::fread(data.data() + used, 1, data.size() - used, f);
        used += n;
        if (used < data.size()) {
            if (std::ferror(f)) {
                return std::nullopt;
            }
            break;
        }
        data.resize(used * 2);
    }
    data.resize(used);
    return bytes::from_vector(std::move(data));
}

// Reads a resource whole through the loader, with the loader's rules on what may be read, and the
// encoding its transport named.
result<libxml::io::fetched> fetch_bytes(log::log const& log,
                                        resource::loader::loader const& loader,
                                        resource::loader::resource_description what,
                                        resource::locator::locator const& src) {
    auto loaded = resource::loader::load_resource(log, loader, what, src);
    if (!loaded) {
        return fail(loaded.error());
    }
    auto data = resource::loader::resource_to_bytes(loaded->resource_data);
    if (!data) {
        return fail(data.error());
    }
    libxml::io::fetched out{.fetched_bytes = *data};
    if (loaded->resource_type) {
        for (auto const& [name, value] : loaded->resource_type->mimetype_params) {
            if (name == "charset" && !value.empty()) {
                out.fetched_charset = value;
            }
        }
    }
    return out;
}

// The parser for a document that must be fetched to be known: its content type decides. A fetch that
// fails goes to the HTML5 reader, which reports the failure again.
doctype::doctype doctype_by_fetching(log::log const& log,
                                     resource::loader::loader const& loader,
                                     resource::locator::locator const& src) {
    auto loaded = resource::loader::load_resource(log, loader, resource::loader::resource_description::document, src);
    if (!loaded || !loaded->resource_type) {
        return document::input::doctype_of_content_type(std::nullopt);
    }
    return document::input::doctype_of_content_type(loaded->resource_type->mimetype);
}

// Stops the prefetch threads when the preparing stages end, also when an exception passes.
struct prefetch_guard {
    log::log const& guard_log;
    resource::loader::loader const& guard_loader;
    bool guard_running = true;
    void stop() {
        if (guard_running) {
            guard_running = false;
            resource::loader::stop_prefetch_threads(guard_log, guard_loader);
        }
    }
    ~prefetch_guard() { stop(); }
};

// The glyphs of the used fonts that the file needs besides those the last pass shows: what the font
// tables held before layout began, and what painting added (the text of drawings it loaded).
class glyph_tally {
public:
    explicit glyph_tally(fonts::fonts const& db) : tally_db(db) {}

    /// Notes how far each font's table goes now.
    void mark() {
        tally_heads.clear();
        for (auto const& font : fonts::used_fonts(tally_db)) {
            tally_heads.emplace(font->used_font_id, font->used_font_glyph_cache->update(
                                                        [](fonts::glyph_cache const& c) { return c.glyph_cache_entries.size(); }));
        }
    }

    /// What the tables held at the first mark.
    void keep_heads() { tally_needs.needs_kept_heads = tally_heads; }

    /// Keeps the glyphs added since the last mark.
    void keep_added() {
        for (auto const& font : fonts::used_fonts(tally_db)) {
            auto const head = tally_heads.find(font->used_font_id);
            std::size_t const from = head == tally_heads.end() ? 0 : head->second;
            font->used_font_glyph_cache->update([&](fonts::glyph_cache const& c) {
                for (std::size_t i = from; i < c.glyph_cache_entries.size(); ++i) {
                    tally_needs.needs_kept.insert(c.glyph_cache_entries[i].entry_index.get());
                }
            });
        }
    }

    /// What the file needs, with the glyphs that the written pages show.
    pdf::pdf_fonts::glyph_needs needs(std::vector<cell<int> const*> const& shown) const {
        auto out = tally_needs;
        out.needs_shown.insert(shown.begin(), shown.end());
        return out;
    }

private:
    fonts::fonts tally_db;
    std::map<int, std::size_t> tally_heads;
    pdf::pdf_fonts::glyph_needs tally_needs;
};

// One packing pass over all documents, with the page totals and targets of the previous pass. Each page
// is painted as soon as it is packed and let go; the painted pages are all that the pass keeps of its
// pages.
struct pass_outcome {
    /// Nothing when the pass stopped painting, sure that another pass would follow.
    std::shared_ptr<pdf::painter::page_stream> pass_painted;
    std::vector<pack::packed_bookmark> pass_bookmarks;
    pack_loop::pass_report pass_report_of;
    /// The sections the pass packed whole, for the next pass to take their pages again.
    std::shared_ptr<pack::section_records const> pass_sections;
    /// Some page was left unpainted: the pass cannot be written.
    bool pass_skipped = false;
};

// What a pass leaves to the next one: its painted pages, some of which may be taken again, and the
// sections that made them.
struct pass_leftover {
    std::shared_ptr<pdf::painter::page_stream> leftover_pages;
    std::shared_ptr<pack::section_records const> leftover_sections;
};

enum class pass_painting { paint_while_it_may_last, paint_all };

pass_outcome pack_pass(log::log const& log,
                       engine const& engine,
                       std::vector<ref<prepack::pack_document const>> const& documents,
                       pack_loop::pack_state const& state,
                       bool first_pass,
                       pass_painting painting,
                       std::function<std::shared_ptr<pdf::painter::page_stream>()> const& new_stream,
                       glyph_tally& tally,
                       std::shared_ptr<prepack::script_calls const> const& scripts,
                       std::shared_ptr<pack::table_pack::measured_cells> const& cells,
                       pass_leftover const& before = {}) {
    // The pages of the pass before stay in its stream, where this pass takes those that come out the
    // same. Not with scripts: a function called for generated content may answer otherwise in each pass.
    std::shared_ptr<pdf::painter::page_stream> painted;
    if (before.leftover_pages && before.leftover_pages->keeps_pages() && !scripts) {
        painted = before.leftover_pages;
        painted->start_again();
    } else {
        painted = new_stream();
    }
    bool const keeps = painted->keeps_pages() && !scripts;
    auto const sections = keeps ? std::make_shared<pack::section_records>() : nullptr;
    auto const looked_up = std::make_shared<prepack::targets::looked_up>();
    bool skipped = false;
    pack::pass_input in{
        .pass_log = log,
        .pass_fonts = engine.engine_fonts,
        .pass_user_pages_totals = first_pass ? std::vector<int>{} : state.pack_first_pages,
        .pass_on_page = [&](int page) { log::log_debug(log, "packed page " + std::to_string(page)); },
        .pass_take_page =
            [&](ref<pack::packed_page> const& page) {
                // The first pass knows only the pages it has finished: once it has looked up a target
                // (or a page total), another pass will almost surely follow, and painting the rest is
                // wasted. When the next pass may take pages again, only the sections that looked up
                // what was not known yet are left unpainted (by `pass_skip_page`).
                if (first_pass && painting == pass_painting::paint_while_it_may_last && painted && !keeps &&
                    (!looked_up->pages.empty() || !looked_up->counters.empty() || looked_up->pages_total)) {
                    painted.reset();
                }
                if (!painted) {
                    return;
                }
                tally.mark();
                painted->add(log, *page);
                tally.keep_added();
            },
        .pass_looked_up = looked_up,
        .pass_targets = state.pack_found,
        .pass_loader = engine.engine_loader,
        .pass_hyph = engine.engine_hyph,
        .pass_shapes = engine.engine_shapes,
        .pass_cells = cells,
        .pass_scripts = scripts,
        .pass_sections_before = keeps ? before.leftover_sections : nullptr,
        .pass_sections = sections,
        .pass_skip_page = first_pass && keeps && painting == pass_painting::paint_while_it_may_last
                              ? std::function<void()>([&] {
                                    painted->skip();
                                    skipped = true;
                                })
                              : std::function<void()>(),
        .pass_take_pages_before =
            [&](int first, int count) {
                return painted && painted->take_again(static_cast<std::size_t>(first - 1), static_cast<std::size_t>(count));
            },
    };
    auto result = pack::pack_documents(in, documents);
    auto found = std::make_shared<prepack::targets::pass_targets const>(std::move(result.result_targets));
    return {.pass_painted = std::move(painted),
            .pass_bookmarks = std::move(result.result_bookmarks),
            .pass_report_of = {.report_targets = pack_loop::targets_of(*found),
                               .report_found = found,
                               .report_looked_up = std::move(result.result_looked_up.pages),
                               .report_looked_up_counters = std::move(result.result_looked_up.counters),
                               .report_uses_page_counts = result.result_uses_pages,
                               .report_first_pages = std::move(result.result_user_pages_totals)},
            .pass_sections = sections,
            .pass_skipped = skipped};
}

// What links resolve against: the input documents and where the last pass put their targets.
struct link_targets {
    log::log link_log;
    std::vector<resource::locator::locator> link_docs;
    /// Each document's base, as its `base` element (or --baseurl) set it, in the order of `link_docs`.
    std::vector<resource::locator::locator> link_doc_bases;
    std::shared_ptr<prepack::targets::pass_targets const> link_found;
};

// A link resolves against the base of the element that holds it: the document's own address, or what a
// `base` element or xml:base made of it. A link to a place in one of the input documents leads to the
// page where it landed; one whose target is not known is dropped. The document at its base address is
// the document itself, so "#top" under `<base href="https://example.org/page">` stays in the PDF as a
// browser's saved copy of that page would. Links elsewhere are web addresses: resolved against a base
// that the document set, or as written when the base is the document's own address (a relative link
// then stays relative to the PDF, as a set of local files would have it).
std::optional<std::variant<pdf::dest::dest, pdf::action::action>> resolve_link(link_targets const& links,
                                                                               std::string const& url,
                                                                               std::string const& base) {
    namespace loc = resource::locator;
    // The base is the text of the linking element's base locator, as the style system wrote it.
    auto const base_loc = base.empty() ? links.link_docs.front()
                                       : loc::parse_locator(loc::path_or_url::path_or_url,
                                                            loc::locator_origin::document_origin, std::nullopt, base);
    // A bare fragment names a place in the base document itself.
    auto resolved = base_loc;
    if (url.starts_with('#')) {
        resolved.locator_fragment = url.substr(1);
    } else {
        resolved = loc::resolve_locator(base_loc, url);
    }
    auto const name = loc::locator_url_to_string(resolved.locator_url);
    std::optional<loc::locator_url> doc;
    for (std::size_t i = 0; i < links.link_docs.size() && !doc; ++i) {
        bool const own = loc::locator_url_to_string(links.link_docs[i].locator_url) == name;
        bool const at_base =
            i < links.link_doc_bases.size() && loc::locator_url_to_string(links.link_doc_bases[i].locator_url) == name;
        if (own || at_base) {
            doc = links.link_docs[i].locator_url;
        }
    }
    if (!doc) {
        bool const own_base = std::any_of(links.link_docs.begin(), links.link_docs.end(), [&](auto const& d) {
            return loc::locator_url_to_string(d.locator_url) == loc::locator_url_to_string(base_loc.locator_url);
        });
        if (own_base) {
            return pdf::action::action{pdf::action::uri{url}};
        }
        auto address = loc::locator_to_string(resolved);
        if (resolved.locator_fragment) {
            address += "#" + *resolved.locator_fragment;
        }
        return pdf::action::action{pdf::action::uri{std::move(address)}};
    }
    prepack::target_name const target{.target_docname = *doc, .target_id = resolved.locator_fragment};
    auto const found = links.link_found->page_nums.find(prepack::targets::key_of(target));
    if (found == links.link_found->page_nums.end()) {
        log::log_debug(links.link_log, "link dropped, its target is unknown: " + url);
        return std::nullopt;
    }
    return pdf::dest::dest{
        pdf::dest::target_position(found->second.num.pdf_page_num, 0, found->second.y.value_or(0))};
}

// Bookmarks that name a place with bookmark-target: a target in one of the documents gives its page
// and position, any other URL stays a web address, and a target no pass placed leads nowhere, so its
// bookmark is left out.
std::vector<pack::packed_bookmark> resolve_bookmarks(link_targets const& links,
                                                     std::vector<pack::packed_bookmark> const& bookmarks) {
    std::vector<pack::packed_bookmark> out;
    for (auto b : bookmarks) {
        if (b.bookmark_target) {
            auto const name = resource::locator::locator_url_to_string(b.bookmark_target->target_docname);
            bool const internal = std::any_of(links.link_docs.begin(), links.link_docs.end(), [&](auto const& d) {
                return resource::locator::locator_url_to_string(d.locator_url) == name;
            });
            if (internal) {
                auto const found = links.link_found->page_nums.find(prepack::targets::key_of(*b.bookmark_target));
                if (found == links.link_found->page_nums.end()) {
                    log::log_debug(links.link_log, "bookmark dropped, its target is unknown: " + *b.bookmark_url);
                    continue;
                }
                b.bookmark_page = found->second.num.pdf_page_num;
                b.bookmark_x = 0;
                b.bookmark_y = found->second.y.value_or(0);
                b.bookmark_url.reset();
            }
        }
        out.push_back(std::move(b));
    }
    return out;
}

// The files to embed, loaded through the loader; one that fails is logged with its location and left
// out.
std::vector<pdf::writepdf::embedded_file> load_attachments(log::log const& log,
                                                           resource::loader::loader const& loader,
                                                           std::vector<metadata::pdf_attach> const& attach) {
    std::vector<pdf::writepdf::embedded_file> out;
    for (auto const& a : attach) {
        auto const where = resource::locator::locator_to_string(a.attach_locator);
        auto loaded =
            resource::loader::load_resource(log, loader, resource::loader::resource_description::attachment, a.attach_locator);
        auto data = loaded ? resource::loader::resource_to_bytes(loaded->resource_data)
                           : result<bytes::bytes>(fail(loaded.error()));
        if (!data) {
            log::log_file_message(log, log::level::error, where, data.error());
            continue;
        }
        auto const view = data->view();
        pdf::writepdf::embedded_file file{.file_name = where.substr(where.find_last_of('/') + 1),
                                          .file_description = a.attach_desc,
                                          .file_bytes = {view.begin(), view.end()}};
        if (loaded->resource_type && !loaded->resource_type->mimetype.empty()) {
            file.file_mime_type = loaded->resource_type->mimetype;
        }
        out.push_back(std::move(file));
    }
    return out;
}

// The ICC profile of the output intent: the one the options name, or the profile's default from the
// prefix. A failure is reported with the location and gives none.
std::optional<std::vector<std::uint8_t>> load_output_intent(log::log const& log,
                                                            resource::loader::loader const& loader,
                                                            metadata::pdf_options const& options) {
    auto const loc = options.pdf_output_intent
                         ? *options.pdf_output_intent
                         : resource::locator::locator{
                               .locator_url = resource::locator::file{
                                   {std::string(pdf::conformance::default_output_intent(*options.pdf_profile))},
                                   std::nullopt},
                               .locator_origin = resource::locator::locator_origin::system_origin};
    auto const where = resource::locator::locator_to_string(loc);
    auto loaded = resource::loader::load_resource(log, loader, resource::loader::resource_description::icc_profile, loc);
    auto data = loaded ? resource::loader::resource_to_bytes(loaded->resource_data)
                       : result<bytes::bytes>(fail(loaded.error()));
    if (!data) {
        log::log_file_message(log, log::level::error, where, data.error());
        return std::nullopt;
    }
    auto const view = data->view();
    return std::vector<std::uint8_t>(view.begin(), view.end());
}

// The output file of a run. A regular file (or a new one) is written to a temporary file beside it and
// renamed over it only once the whole PDF is written, so that a run that fails halfway leaves an earlier
// output as it was; a device or a pipe is written directly.
class output_file {
public:
    output_file(std::FILE* f, std::string temp, std::string target)
        : file_(f)
        , temp_(std::move(temp))
        , target_(std::move(target)) {}

    output_file(output_file&& o) noexcept
        : file_(std::exchange(o.file_, nullptr))
        , temp_(std::move(o.temp_))
        , target_(std::move(o.target_)) {}

    output_file(output_file const&) = delete;
    output_file& operator=(output_file const&) = delete;
    output_file& operator=(output_file&&) = delete;

    ~output_file() {
        if (file_) {
            std::fclose(file_);
            if (!temp_.empty()) {
                unlink(temp_.c_str());
            }
        }
    }

    std::FILE* file() const { return file_; }

    [[nodiscard]] result<bool> commit() {
        std::FILE* const f = std::exchange(file_, nullptr);
        bool const closed = std::fflush(f) == 0 && (temp_.empty() || fsync(fileno(f)) == 0);
        int const error = errno;
        if (std::fclose(f) != 0 || !closed) {
            if (!temp_.empty()) {
                unlink(temp_.c_str());
            }
            return fail(std::strerror(closed ? errno : error));
        }
        if (!temp_.empty() && std::rename(temp_.c_str(), target_.c_str()) != 0) {
            int const e = errno;
            unlink(temp_.c_str());
            return fail(std::strerror(e));
        }
        return true;
    }

private:
    std::FILE* file_ = nullptr;
    std::string temp_;
    std::string target_;
};

result<output_file> open_output(std::string const& path) {
    struct stat st {};
    bool const exists = stat(path.c_str(), &st) == 0;
    if (exists && !S_ISREG(st.st_mode)) {
        std::FILE* const f = std::fopen(path.c_str(), "wb");
        if (!f) {
            return fail(std::strerror(errno));
        }
        return output_file(f, "", path);
    }
    std::string temp = path + ".vellum-XXXXXX";
    int const fd = mkstemp(temp.data());
    if (fd < 0) {
        return fail(std::strerror(errno));
    }
    // mkstemp makes the file private; the output gets the mode of the file it replaces, or the mode a
    // new file would get.
    mode_t mode = 0;
    if (exists) {
        mode = st.st_mode & 07777;
    } else {
        mode_t const mask = umask(0);
        umask(mask);
        mode = 0666 & ~mask;
    }
    fchmod(fd, mode);
    std::FILE* const f = fdopen(fd, "wb");
    if (!f) {
        int const e = errno;
        close(fd);
        unlink(temp.c_str());
        return fail(std::strerror(e));
    }
    return output_file(f, std::move(temp), path);
}

pdf::writepdf::page_label_counter_style pdf_label_style(pack::page_label_counter_style s) {
    using pdf::writepdf::page_label_counter_style;
    switch (s) {
    case pack::page_label_counter_style::lower_roman:
        return page_label_counter_style::lower_roman;
    case pack::page_label_counter_style::upper_roman:
        return page_label_counter_style::upper_roman;
    case pack::page_label_counter_style::lower_alpha:
        return page_label_counter_style::lower_alpha;
    case pack::page_label_counter_style::upper_alpha:
        return page_label_counter_style::upper_alpha;
    case pack::page_label_counter_style::decimal:
        return page_label_counter_style::decimal;
    }
    return page_label_counter_style::decimal;
}

// The labels layout gave the pages, for the viewer.
std::vector<std::pair<std::size_t, std::optional<pdf::writepdf::page_label>>> page_labels_of(
    std::vector<pdf::painter::painted_page> const& pages) {
    std::vector<std::pair<std::size_t, std::optional<pdf::writepdf::page_label>>> out;
    for (std::size_t i = 0; i < pages.size(); ++i) {
        auto const& label = pages[i].painted_label;
        if (!label) {
            out.emplace_back(i, std::nullopt);
            continue;
        }
        pdf::writepdf::page_label l{.label_prefix = label->label_prefix};
        if (label->label_counter) {
            l.label_start = label->label_counter->label_number;
            l.label_style = pdf_label_style(label->label_counter->label_style);
        }
        out.emplace_back(i, std::move(l));
    }
    return out;
}

// A painter for the pages of one pass, with objects of its own: what a discarded pass named is dropped
// with it.
std::shared_ptr<pdf::painter::page_stream> new_page_stream(loaded_document const& first,
                                                           images::images& image_table) {
    auto objects = std::make_shared<pdf::page_objects::page_objects>(&image_table);
    // Spot colours: each @vellum-color rule's alternate colour stands for its ink on screen.
    for (auto const& [name, rule] : css::color::color_rules_of(first.doc_styled->styled_rules.rules_env.colors)) {
        if (rule.alternate_color) {
            auto const p = pdf::paint_color::paint_of(*rule.alternate_color);
            if (p && (std::holds_alternative<pdf::color::rgb>(p->paint_color) ||
                      std::holds_alternative<pdf::color::cmyk>(p->paint_color))) {
                objects->spot_alternates.emplace(name, p->paint_color);
            }
        }
    }
    // Scripts that asked for box tracking read the boxes of elements when the file is written.
    auto const* scripts = std::get_if<hostjs::host_js_used>(&first.doc_host_js);
    // Links are resolved when the file is written, once the last pass has placed every target.
    return std::make_shared<pdf::painter::page_stream>(
        first.doc_pdf_options,
        pdf::painter::paint_options{.artificial_fonts = first.doc_pdf_options.artificial_fonts,
                                    .objects = objects,
                                    .track_element_boxes = scripts && hostjs::track_boxes(*scripts->host)});
}

// The boxes of elements as scripts see them.
std::vector<domjs::box_info> element_boxes(std::vector<pdf::painter::element_box> const& boxes) {
    std::vector<domjs::box_info> out;
    out.reserve(boxes.size());
    for (auto const& b : boxes) {
        using kind = pdf::painter::element_box_kind;
        out.push_back(domjs::box_info{.info_element = b.box_element,
                                      .info_type = b.box_kind == kind::inline_span   ? "SPAN"
                                                   : b.box_kind == kind::image_box   ? "IMAGE"
                                                   : b.box_kind == kind::drawing_box ? "SVG"
                                                                                     : "BOX",
                                      .info_page = b.box_page,
                                      .info_x = b.box_left,
                                      .info_y = b.box_top,
                                      .info_w = b.box_width,
                                      .info_h = b.box_height,
                                      .info_parent = b.box_parent});
    }
    return out;
}

// Writes the painted pages with their fonts.
void write_output(log::log const& log,
                  engine const& engine,
                  loaded_document const& first,
                  pdf::painter::page_stream& painted,
                  std::vector<pack::packed_bookmark> const& bookmarks,
                  link_targets const& links,
                  glyph_tally const& tally,
                  pdf::bulkio::output::output out) {
    // The profile settles the options first: fonts are embedded and attachments dropped as it says
    // before anything is loaded or written.
    auto const options = pdf::conformance::apply_profile(log, first.doc_pdf_options);
    pdf::writepdf::pdf_document doc{.doc_metadata = first.doc_metadata,
                                    .doc_options = options,
                                    .bookmarks = pdf::bookmarks::outline_of(resolve_bookmarks(links, bookmarks))};
    doc.attachments = load_attachments(log, engine.engine_loader, options.attach);
    if (options.pdf_profile) {
        doc.output_intent_icc = load_output_intent(log, engine.engine_loader, options);
    }
    doc.page_labels = page_labels_of(painted.pages());
    auto const needs = tally.needs(painted.shown_glyphs());
    painted.finish(doc, [&](std::string const& url, std::string const& base) { return resolve_link(links, url, base); });
    pdf::pdf_fonts::attach_fonts(log, doc, engine.engine_fonts, &needs);
    pdf::writepdf::write_pdf_document(log, std::move(out), doc);
}

} // namespace

void load_dtd_catalog(log::log const& log, std::string const& prefix) {
    std::string const path = prefix + "/dtd/catalog.xml";
    std::lock_guard guard(process_lock());
    // Only the program's own catalog answers, so that a run does not depend on the machine's
    // /etc/xml/catalog.
    setenv("XML_CATALOG_FILES", "", 1);
    xmlInitializeCatalog();
    // libxml2 accepts a catalog file that does not exist (it would be read lazily, and then fail
    // silently), so its presence is checked first.
    if (access(path.c_str(), R_OK) != 0 || xmlLoadCatalog(path.c_str()) != 0) {
        log::log_file_message(log, log::level::warning, path, "unable to load DTD catalog");
    }
}

result<engine> new_engine(log::log const& log,
                          resource::loader::loader const& loader,
                          engine_options const& options) {
    auto fonts = fonts::new_fonts(loader, log, options.system_fonts);
    if (!fonts) {
        return fail(fonts.error());
    }
    // The generic families and the installed faces are ordinary @font-face rules of the program's own
    // sheet; without it only system fonts and the documents' rules remain.
    auto const sheet = resource::loader::load_style_resource(log, loader, "fonts.css");
    auto const text = sheet ? resource::loader::resource_to_bytes(sheet->resource_data)
                            : result<bytes::bytes>(fail(sheet.error()));
    if (!text) {
        log::log_file_message(log, log::level::warning, "style/fonts.css", text.error());
    } else {
        auto const view = text->view();
        fonts::add_font_face_sheet(*fonts, std::string(view.begin(), view.end()), "style/fonts.css",
                                   fonts::font_face::system_resolver(sheet->resource_locator));
    }
    return engine{.engine_loader = loader, .engine_options = options, .engine_fonts = *fonts};
}

hostjs::host_settings script_settings(resource::loader::loader const& loader) {
    hostjs::host_settings settings{.app_name = "Vellum", .app_version = help::version_number()};
    std::visit(overloaded{
                   [&](resource::loader::no_network const& n) {
                       settings.user_agent = n.no_network_options.user_agent;
                       settings.online = false;
                   },
                   [&](resource::loader::yes_network const& y) {
                       settings.user_agent = y.network.loader_http_options.user_agent;
                       settings.online = true;
                   },
               },
               loader.loader_network);
    return settings;
}

std::optional<loaded_document> load_input_document(log::log const& log,
                                                   resource::loader::loader const& loader,
                                                   job::job const& job,
                                                   job::input_document const& doc) {
    auto const given = document::input::input_format(doc.input_doctype, doc.input_src);
    auto const type = given ? *given : doctype_by_fetching(log, loader, doc.input_src);
    std::string const name = resource::locator::locator_to_string(doc.input_src);
    log::log_info(log, "loading " + std::string(document::input::doctype_word(type)) + " input: " + name);
    std::optional<bytes::bytes> data;
    if (std::holds_alternative<resource::locator::standard_input>(doc.input_src.locator_url)) {
        data = read_all(stdin);
    }
    // The document and what it pulls in while parsing (DTDs, entities, XInclude) count as the document.
    // With scripts on, the document's own bytes are kept for the lines of messages about its scripts.
    std::optional<bytes::bytes> source = data;
    auto const fetch = [&](resource::locator::locator const& l) {
        auto fetched = fetch_bytes(log, loader, resource::loader::resource_description::document, l);
        if (doc.style_info.use_author_scripts && !source && l == doc.input_src && fetched) {
            source = fetched->fetched_bytes;
        }
        return fetched;
    };
    auto xdoc = document::input::load_document(log, doc.input_src, type, doc.input_base, doc.xml_options,
                                               fetch, data);
    if (!xdoc) {
        log::log_file_message(log, log::level::error, name, "could not load input file");
        return std::nullopt;
    }
    log::log_debug(log, "loaded document: " + resource::locator::locator_to_string(xdoc->doc_url));
    auto const base = doc.input_base ? *doc.input_base : xdoc->doc_url;
    auto prepared = document::input::prepare_document(log, type, *xdoc, doc.style_info, base, job.metadata);
    // The living tree holds everything of the parsed one from here on: its memory goes back before the
    // cascade, which is where a large document's styles are made.
    xdoc.reset();
    // Scripts run before the cascade, which sees the tree as they left it. A run that asks for no script
    // builds no engine at all.
    if (doc.style_info.use_author_scripts) {
        hostjs::prefetch_document_scripts(log, loader, prepared.prepared_dom);
    }
    auto host = hostjs::run_script_phase(log, std::shared_ptr<resource::loader::loader const>(std::shared_ptr<void>(), &loader),
                                         script_settings(loader), doc.style_info, prepared.prepared_dom,
                                         source ? source->chars() : std::string_view{});
    log::log_progress_stage(log, "Applying style sheets...");
    auto styled = std::make_shared<styledom::styled_document>(
        styledom::style_document(log, loader, prepared.prepared_dom, styledom::computed::typed_hooks()));
    // The document's @vellum-pdf rules change the options the command line gave.
    auto options = pdf_rules::apply_pdf_rules(log, styled->styled_rules.rules_env.special_rules,
                                              prepared.prepared_base, job.pdf_options);
    return loaded_document{.doc_doctype = type,
                           .doc_xmltype = prepared.prepared_xmltype,
                           .doc_base = prepared.prepared_base,
                           .doc_metadata = prepared.prepared_metadata,
                           .doc_pdf_options = std::move(options),
                           .doc_dom = prepared.prepared_dom,
                           .doc_styled = std::move(styled),
                           .doc_host_js = std::move(host)};
}

namespace {

// The @font-face rules of a document's sheets (style elements, linked and imported sheets, user
// sheets) join the font database. They come after the program's own rules, so a document's face is
// tried before the program's for the same family name. URLs are relative to the sheet that holds
// the rule.
void register_document_fonts(engine const& engine, loaded_document const& doc) {
    auto const& rules = doc.doc_styled->styled_rules;
    if (rules.rules_env.fonts.empty()) {
        return;
    }
    auto const bases = rules.rules_bases;
    fonts::add_font_face_rules(engine.engine_fonts, rules.rules_env.fonts,
                               resource::locator::locator_to_string(doc.doc_base),
                               [bases](std::string const& text, std::string const& base) {
                                   return styledom::sheets::resolve_url(*bases, css::value::url{text, base});
                               });
}

bool write_to_destination(log::log const& log,
                          engine const& engine,
                          job::job const& job,
                          loaded_document const& first,
                          pass_outcome const& outcome,
                          link_targets const& links,
                          glyph_tally const& tally);

// What box generation and layout reach of a document's scripts: the functions registered for generated
// content; nothing when scripts are off.
std::shared_ptr<prepack::script_calls const> script_calls_of(hostjs::opt_host_js const& host) {
    if (std::holds_alternative<hostjs::host_js_unused>(host)) {
        // Scripts ran and registered nothing: every name is unknown.
        return std::make_shared<prepack::script_calls const>(prepack::script_calls{
            .script_has = [](std::string const&) { return false; },
            .script_call = [](std::string const&, std::vector<std::string> const&) { return std::optional<std::string>(); },
        });
    }
    auto const* used = std::get_if<hostjs::host_js_used>(&host);
    if (used == nullptr) {
        return nullptr;
    }
    auto const h = used->host;
    return std::make_shared<prepack::script_calls const>(prepack::script_calls{
        .script_has =
            [h](std::string const& name) {
                auto const funcs = hostjs::get_script_funcs(*h);
                return std::ranges::any_of(funcs, [&](auto const& f) { return f.first == name; });
            },
        .script_call = [h](std::string const& name,
                           std::vector<std::string> const& args) { return hostjs::call_script_func(*h, name, args); },
    });
}

// The whole conversion; the PDF goes to `stream` when one is given, else where the job says.
bool convert_with(log::log const& log, engine const& engine, job::job const& job, std::FILE* stream) {
    // Pixel lengths in every style sheet count against the resolution the command line gives.
    css::compute_style::set_css_dpi(static_cast<float>(engine.engine_options.css_dpi));
    log::log_progress_stage(log, "Loading document...");
    if (auto started = resource::loader::start_prefetch_threads(log, engine.engine_loader); !started) {
        log::log_error(log, started.error());
        return false;
    }
    std::vector<loaded_document> docs;
    // Each image is read once for the whole run, however many documents and pages show it.
    images::images image_table(engine.engine_loader);
    image_table.read_svg = svg::file::svg_file_reader(engine.engine_loader, &image_table);
    image_table.svg_fonts = &engine.engine_fonts;
    {
        // The prefetch threads run while documents load and boxes are made; then all fetching is
        // synchronous.
        prefetch_guard guard{.guard_log = log, .guard_loader = engine.engine_loader};
        for (auto const& input : job.input_documents) {
            if (auto doc = load_input_document(log, engine.engine_loader, job, input)) {
                register_document_fonts(engine, *doc);
                docs.push_back(std::move(*doc));
            }
        }
        if (docs.empty()) {
            log::log_error(log, "no input documents to process");
            return false;
        }
        log::log_progress_stage(log, "Preparing document...");
        for (auto& doc : docs) {
            auto const calls = script_calls_of(doc.doc_host_js);
            doc.doc_boxes = std::make_shared<prepack::pack_document const>(
                prepack::walk::prepack_document(log, *doc.doc_styled, &image_table, calls.get()));
        }
    }
    // The first document that loaded governs the metadata and PDF options of the whole output.
    auto const& first = docs.front();
    // Background images met when painting are named by url() values of the documents' sheets.
    std::vector<ref<styledom::sheets::base_table>> bases;
    for (auto const& doc : docs) {
        bases.push_back(doc.doc_styled->styled_rules.rules_bases);
    }
    image_table.resolve_css_url = [bases](std::string const& text, std::string const& base)
        -> std::optional<resource::locator::locator> {
        for (auto const& table : bases) {
            if (table && table->bases.contains(base)) {
                return styledom::sheets::resolve_url(*table, css::value::url{text, base});
            }
        }
        return std::nullopt;
    };

    log::log_progress_stage(log, "Converting document...");
    // The scripts of the first document are the script context of the whole output.
    auto const scripts = script_calls_of(first.doc_host_js);
    std::vector<ref<prepack::pack_document const>> documents;
    for (auto const& doc : docs) {
        documents.push_back(doc.doc_boxes);
    }
    std::vector<prepack::targets::target_key> registry;
    for (auto const& doc : documents) {
        registry.insert(registry.end(), doc->pack_doc_target_keys.begin(), doc->pack_doc_target_keys.end());
    }
    bool first_pass = true;
    glyph_tally tally(engine.engine_fonts);
    tally.mark();
    tally.keep_heads();
    auto const new_stream = [&] { return new_page_stream(first, image_table); };
    // The widths of table cells that measure the same in every pass, for the passes of this conversion.
    auto const cells = pack::table_pack::new_measured_cells();
    pass_leftover leftover;
    auto const outcome =
        pack_loop::run(log, pack_loop::initial_targets(registry), [&](pack_loop::pack_state const& state) {
            auto r =
                pack_pass(log, engine, documents, state, first_pass, pass_painting::paint_while_it_may_last,
                          new_stream, tally, scripts, cells, leftover);
            // A pass that stopped painting, or left pages unpainted, and turns out to be the last is
            // packed again, to be painted: the same input gives the same pages.
            if ((!r.pass_painted || r.pass_skipped) && !pack_loop::needs_another_pass(state, r.pass_report_of)) {
                log::log_debug(log, "pack again to paint");
                r = pack_pass(log, engine, documents, state, first_pass, pass_painting::paint_all, new_stream,
                              tally, scripts, cells);
            }
            leftover = {.leftover_pages = r.pass_painted, .leftover_sections = r.pass_sections};
            first_pass = false;
            return r;
        });

    link_targets links{.link_log = log, .link_found = outcome.pass_report_of.report_found};
    for (auto const& doc : documents) {
        links.link_docs.push_back(doc->pack_doc_name);
    }
    for (auto const& doc : docs) {
        links.link_doc_bases.push_back(doc.doc_base);
    }
    // Counted before writing, which hands the pages over to the PDF.
    auto const page_count = static_cast<int>(outcome.pass_painted->pages().size());
    auto tracked = element_boxes(outcome.pass_painted->element_boxes());
    bool written = true;
    if (stream) {
        write_output(log, engine, first, *outcome.pass_painted, outcome.pass_bookmarks, links, tally,
                     pdf::bulkio::file::file_output(stream));
    } else {
        written = write_to_destination(log, engine, job, first, outcome, links, tally);
    }
    // Once the PDF is written the run has succeeded, whatever the scripts do now.
    if (auto const* used = std::get_if<hostjs::host_js_used>(&first.doc_host_js); written && used) {
        if (hostjs::track_boxes(*used->host)) {
            domjs::attach_boxes(*used->host->js, std::move(tracked));
        }
        hostjs::fire_complete(*used->host, page_count);
    }
    return written;
}

bool write_to_destination(log::log const& log,
                          engine const& engine,
                          job::job const& job,
                          loaded_document const& first,
                          pass_outcome const& outcome,
                          link_targets const& links,
                          glyph_tally const& tally) {
    return std::visit(
        overloaded{
            [&](job::file const& f) {
                log::log_debug(log, "writing output: " + f.file_path.path);
                auto out = open_output(f.file_path.path);
                if (!out) {
                    log::log_file_message(log, log::level::error, f.file_path.path, out.error());
                    return false;
                }
                write_output(log, engine, first, *outcome.pass_painted, outcome.pass_bookmarks, links, tally,
                             pdf::bulkio::file::file_output(out->file()));
                if (auto done = out->commit(); !done) {
                    log::log_file_message(log, log::level::error, f.file_path.path, done.error());
                    return false;
                }
                return true;
            },
            [&](job::standard_output const&) {
                log::log_debug(log, "writing to standard output");
                write_output(log, engine, first, *outcome.pass_painted, outcome.pass_bookmarks, links, tally,
                             pdf::bulkio::file::file_output(stdout));
                return true;
            },
        },
        job.output_dest);
}

} // namespace

bool convert(log::log const& log, engine const& engine, job::job const& job) {
    bool const ok = convert_with(log, engine, job, nullptr);
    // Characters that no font had are named once for the whole run, now that painting is done.
    fonts::log_missing_glyphs(engine.engine_fonts);
    return ok;
}

bool convert_to_stream(log::log const& log, engine const& engine, job::job const& job, std::FILE* stream) {
    bool const ok = convert_with(log, engine, job, stream);
    fonts::log_missing_glyphs(engine.engine_fonts);
    return ok;
}

} // namespace vellum::engine
