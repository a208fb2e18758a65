#include "pdf/writepdf.hpp"

#include "pdf/bulkio/buffer.hpp"
#include "pdf/bulkio/deflate.hpp"
#include "pdf/conformance.hpp"
#include "pdf/encrypt.hpp"
#include "pdf/pdf.hpp"

#include <atomic>
#include <ctime>
#include <exception>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <span>
#include <thread>

namespace vellum::pdf::writepdf {

namespace {

date date_of(metadata::date const& d) {
    date out{.year = d.year, .month = d.month, .day = d.day};
    if (d.time) {
        out.date_time = time_of_day{.hour = d.time->hour, .minute = d.time->minute, .second = d.time->second};
    }
    return out;
}

metadata::date metadata_date(date const& d) {
    metadata::date out{.year = d.year, .month = d.month, .day = d.day};
    if (d.date_time) {
        out.time = metadata::time_of_day{
            .hour = d.date_time->hour, .minute = d.date_time->minute, .second = d.date_time->second};
    }
    return out;
}

date local_now() {
    std::time_t const t = std::time(nullptr);
    std::tm tm{};
    localtime_r(&t, &tm);
    return {.year = tm.tm_year + 1900,
            .month = tm.tm_mon + 1,
            .day = tm.tm_mday,
            .date_time = time_of_day{.hour = tm.tm_hour, .minute = tm.tm_min, .second = tm.tm_sec}};
}

number real(float v) {
    return number{double(v)};
}

// The content stream of a page whose painter may run anywhere, as it goes into the file: compressed
// when `filter` says so, through the same layers as a stream written in turn (a buffer in front of the
// compressor), so the bytes are those of the stream painted in its turn.
std::string page_body(document_page const& page, stream_filter filter) {
    std::string out;
    bulkio::output::output const sink{
        .output_write =
            [](void* target, std::uint8_t const* data, std::size_t size) {
                static_cast<std::string*>(target)->append(reinterpret_cast<char const*>(data), size);
                return true;
            },
        .output_target = &out,
    };
    content::gs unused;
    if (filter == stream_filter::deflate) {
        auto z = bulkio::deflate::open(sink);
        check(z != nullptr, "page_body: deflate");
        auto front = bulkio::buffer::open(bulkio::deflate::as_output(*z));
        page.paint(bulkio::buffer::as_output(*front), unused);
        bulkio::buffer::flush(*front);
        if (!bulkio::deflate::finish(*z)) {
            throw bulkio::output::write_error("error writing to stream");
        }
    } else {
        auto front = bulkio::buffer::open(sink);
        page.paint(bulkio::buffer::as_output(*front), unused);
        bulkio::buffer::flush(*front);
    }
    return out;
}

// Pages are written in batches: the streams of a batch's pages that may be painted anywhere are made
// first, on this thread and one more (each stream is a replay of recorded operators and, mostly, its
// compression), then the batch is written in order. A batch bounds what is held at once.
constexpr std::size_t pages_per_batch = 64;

std::vector<std::optional<std::string>> page_bodies(std::span<document_page const> pages,
                                                    stream_filter filter) {
    std::vector<std::optional<std::string>> out(pages.size());
    std::vector<std::size_t> ready;
    for (std::size_t i = 0; i < pages.size(); ++i) {
        if (pages[i].paint && pages[i].paint_anywhere) {
            ready.push_back(i);
        }
    }
    std::atomic<std::size_t> next{0};
    std::exception_ptr failed;
    std::mutex failed_lock;
    auto const work = [&] {
        for (std::size_t k = next++; k < ready.size(); k = next++) {
            try {
                out[ready[k]] = page_body(pages[ready[k]], filter);
            } catch (...) {
                std::lock_guard guard(failed_lock);
                if (!failed) {
                    failed = std::current_exception();
                }
                next = ready.size();
            }
        }
    };
    if (ready.size() > 1) {
        std::thread helper(work);
        work();
        helper.join();
    } else {
        work();
    }
    if (failed) {
        std::rethrow_exception(failed);
    }
    return out;
}

} // namespace

pdf_version choose_version(metadata::pdf_options const& options) {
    if (options.pdf_paper_tray == metadata::pdf_paper_tray::pick_tray_by_pdf_size) {
        return pdf_version::pdf_1_7;
    }
    if (options.pdf_print_scaling == metadata::pdf_print_scaling::none ||
        options.pdf_page_mode == metadata::pdf_page_mode::show_attachments) {
        return pdf_version::pdf_1_6;
    }
    // PDF/X-4 is defined on PDF 1.6: its checkers refuse an older header.
    if (options.pdf_profile == profile::pdf_profile::pdfx_4) {
        return pdf_version::pdf_1_6;
    }
    // 16-bit images in the image table raise this to PDF 1.5 where the file is written.
    return pdf_version::pdf_1_4;
}

dict info_dict(metadata::metadata const& meta, metadata::pdf_options const& options, date const& now) {
    dict info;
    auto const add_text = [&](char const* key, std::optional<std::string> const& value) {
        if (value && !value->empty()) {
            info.dict_entries.emplace_back(key, text_string(*value));
        }
    };
    add_text("Title", meta.title);
    add_text("Subject", meta.subject);
    add_text("Author", meta.author);
    if (!meta.keywords.empty()) {
        info.dict_entries.emplace_back("Keywords", text_string(metadata::join_keywords(meta.keywords)));
    }
    add_text("Creator", meta.creator);
    add_text("Producer", options.producer);
    info.dict_entries.emplace_back("CreationDate",
                                   pdf_date(meta.creation_date ? date_of(*meta.creation_date) : now));
    info.dict_entries.emplace_back("ModDate",
                                   pdf_date(meta.modification_date ? date_of(*meta.modification_date) : now));
    return info;
}

array page_label_nums(std::vector<std::pair<std::size_t, std::optional<page_label>>> const& labels) {
    // A page without a label counts in decimals from its own number, so that a run of such pages
    // collapses into one entry.
    std::vector<std::pair<std::size_t, page_label>> kept;
    for (auto const& [index, label] : labels) {
        page_label const l = label ? *label
                                   : page_label{.label_start = static_cast<int>(index) + 1,
                                                .label_style = page_label_counter_style::decimal};
        if (!kept.empty()) {
            auto const& [last_index, last] = kept.back();
            bool const continues = last.label_prefix == l.label_prefix && last.label_style == l.label_style &&
                                   l.label_start && last.label_start &&
                                   *l.label_start == *last.label_start + static_cast<int>(index - last_index);
            if (continues) {
                continue;
            }
        }
        kept.emplace_back(index, l);
    }
    array nums;
    for (auto const& [index, l] : kept) {
        dict d;
        if (l.label_style) {
            if (l.label_start) {
                d.dict_entries.emplace_back("St", std::int64_t{*l.label_start});
            }
            char const* letter = "D";
            switch (*l.label_style) {
            case page_label_counter_style::lower_roman:
                letter = "r";
                break;
            case page_label_counter_style::upper_roman:
                letter = "R";
                break;
            case page_label_counter_style::lower_alpha:
                letter = "a";
                break;
            case page_label_counter_style::upper_alpha:
                letter = "A";
                break;
            case page_label_counter_style::decimal:
                letter = "D";
                break;
            }
            d.dict_entries.emplace_back("S", name{letter});
        }
        if (l.label_prefix) {
            d.dict_entries.emplace_back("P", text_string(*l.label_prefix));
        }
        nums.array_items.emplace_back(static_cast<std::int64_t>(index));
        nums.array_items.emplace_back(std::move(d));
    }
    return nums;
}

namespace {

bool same_rect(common::rect const& a, common::rect const& b) { return a == b; }

// The XMP stream, the output intent and its ICC stream. An ICC profile that cannot be had or read is
// reported and the stream is written empty, so the file is still whole.
void write_profile_objects(log::log const& log,
                           writer& w,
                           profile::pdf_profile profile,
                           std::optional<std::vector<std::uint8_t>> const& icc,
                           metadata::metadata const& meta,
                           std::optional<std::string> const& producer,
                           conformance::document_dates const& dates,
                           ref xmp,
                           ref intent,
                           ref icc_ref) {
    auto const packet = conformance::xmp_packet(meta, producer, dates, profile);
    write_stream_bytes(w, xmp, stream_filter::as_is,
                       dict{{{"Type", name{"Metadata"}}, {"Subtype", name{"XML"}}}},
                       std::span(reinterpret_cast<std::uint8_t const*>(packet.data()), packet.size()));
    bool const pdfx = profile == profile::pdf_profile::pdfx_3_2003 || profile == profile::pdf_profile::pdfx_4;
    conformance::icc_summary summary{.icc_components = pdfx ? 4 : 3};
    std::span<std::uint8_t const> data;
    if (!icc) {
        log::log_error(log, "could not load ICC profile");
    } else if (auto const read = conformance::read_icc(*icc); !read) {
        log::log_error(log, read.error());
    } else {
        summary = *read;
        data = *icc;
    }
    write_object(w, intent, conformance::output_intent_dict(profile, summary.icc_description, icc_ref));
    write_stream_bytes(w, icc_ref, stream_filter::deflate,
                       dict{{{"N", std::int64_t{summary.icc_components}}}}, data);
}

// The entries of a graphics-state dictionary.
dict ext_gs_dict(std::vector<content::ext_gs_param> const& params) {
    dict d{{{"Type", name{"ExtGState"}}}};
    for (auto const& p : params) {
        std::visit(overloaded{
                       [&](content::alpha_fill const& a) { d.dict_entries.emplace_back("ca", a.value); },
                       [&](content::alpha_stroke const& a) { d.dict_entries.emplace_back("CA", a.value); },
                       [&](content::overprint const& o) {
                           d.dict_entries.emplace_back("OP", o.value);
                           d.dict_entries.emplace_back("op", o.value);
                       },
                       [&](content::overprint_mode const& m) {
                           d.dict_entries.emplace_back("OPM", std::int64_t{m.value});
                       },
                   },
                   p);
    }
    return d;
}

bool uses_transparency(std::vector<content::ext_gs_param> const& params) {
    for (auto const& p : params) {
        if (auto const* a = std::get_if<content::alpha_fill>(&p); a && a->value < 1) {
            return true;
        }
        if (auto const* a = std::get_if<content::alpha_stroke>(&p); a && a->value < 1) {
            return true;
        }
    }
    return false;
}

// Writes one page: its content stream, then its resources and the page dictionary.
void write_page(log::log const& log,
                writer& w,
                document_page const& page,
                ref page_ref,
                ref page_tree,
                content::gs& state,
                std::map<int, ref> const& font_refs,
                stream_filter filter,
                dest::page_refs const& pages,
                bool links_allowed,
                page_objects::page_objects* objects,
                tagging::structure const* structure,
                int page_index,
                std::optional<std::string> const& ready_body) {
    ref const contents = new_ref(w);
    ref const resources = new_ref(w);
    content::new_page(state);
    if (ready_body) {
        // Made ahead, and compressed already when the file is.
        auto const as = filter == stream_filter::deflate ? stream_filter::flate_encoded : filter;
        write_stream_with(w, contents, stream{.stream_filter = as}, [&](bulkio::buffer::buffer& body) {
            bulkio::buffer::put_bytes(body, bulkio::output::as_bytes(*ready_body));
        });
    } else {
        write_stream_with(w, contents, stream{.stream_filter = filter}, [&](bulkio::buffer::buffer& body) {
            if (page.paint) {
                page.paint(bulkio::buffer::as_output(body), state);
            }
        });
    }
    auto const& used = page.painted_used ? *page.painted_used : state.used;
    if (used.stripped_transparency) {
        log::log_error(log, "stripped transparency from page to comply with " +
                                (w.writer_profile ? std::string(profile::profile_name(*w.writer_profile))
                                                  : std::string("PDF profile")));
    }
    dict res;
    if (!used.font_resources.empty()) {
        dict fonts;
        for (int id : used.font_resources) {
            auto const it = font_refs.find(id);
            if (it == font_refs.end()) {
                throw internal_error("missing font: " + std::to_string(id));
            }
            fonts.dict_entries.emplace_back("F" + std::to_string(id), it->second);
        }
        res.dict_entries.emplace_back("Font", std::move(fonts));
    }
    // Images and forms, and spot colour spaces, by the numbers the page objects reserve for them.
    auto named = [&](std::set<std::string> const& names, page_objects::resource_kind kind, char const* what) {
        dict out;
        for (auto const& n : names) {
            auto const r = objects ? objects->ref_of(w, kind, n) : std::nullopt;
            if (!r) {
                throw internal_error(std::string(what) + n);
            }
            out.dict_entries.emplace_back(n, *r);
        }
        return out;
    };
    if (!used.xobject_resources.empty()) {
        res.dict_entries.emplace_back("XObject",
                                      named(used.xobject_resources, page_objects::resource_kind::xobject, "missing image: "));
    }
    array procset{{name{"PDF"}}};
    if (!used.font_resources.empty()) {
        procset.array_items.emplace_back(name{"Text"});
    }
    if (!used.xobject_resources.empty()) {
        procset.array_items.emplace_back(name{"ImageC"});
    }
    res.dict_entries.emplace_back("ProcSet", std::move(procset));
    bool transparent = false;
    if (!used.ext_gs_list.resources_on_this_page.empty()) {
        dict gs;
        for (auto const& [gs_name, params] : used.ext_gs_list.resources_on_this_page) {
            gs.dict_entries.emplace_back(gs_name, ext_gs_dict(params));
            transparent = transparent || uses_transparency(params);
        }
        res.dict_entries.emplace_back("ExtGState", std::move(gs));
    }
    if (!used.pattern_resources.empty()) {
        throw internal_error("missing pattern: " + *used.pattern_resources.begin());
    }
    if (!used.color_resources.empty()) {
        res.dict_entries.emplace_back(
            "ColorSpace", named(used.color_resources, page_objects::resource_kind::colorspace, "missing color: "));
    }
    write_object(w, resources, res);

    dict d{{{"Type", name{"Page"}}, {"Parent", page_tree}, {"MediaBox", rect_to_array(page.boxes.media_box)}}};
    bool const boxes_required = requires_page_boxes(w);
    auto const& media = page.boxes.media_box;
    auto const bleed = page.boxes.bleed_box.value_or(media);
    auto const trim = page.boxes.trim_box.value_or(media);
    if (boxes_required || !same_rect(bleed, media)) {
        d.dict_entries.emplace_back("BleedBox", rect_to_array(bleed));
    }
    if (boxes_required || !same_rect(trim, media)) {
        d.dict_entries.emplace_back("TrimBox", rect_to_array(trim));
    }
    d.dict_entries.emplace_back("Contents", contents);
    d.dict_entries.emplace_back("Resources", resources);
    // A page with marked content finds the structure elements of its identifiers in the parent tree
    // under its own index.
    if (structure != nullptr && structure->page_marks().contains(page_index)) {
        d.dict_entries.emplace_back("StructParents", std::int64_t{page_index});
    }
    if (transparent && !forbids_page_group(w)) {
        d.dict_entries.emplace_back(
            "Group", dict{{{"Type", name{"Group"}},
                           {"S", name{"Transparency"}},
                           {"CS", name{forbids_device_rgb(w) ? "DeviceCMYK" : "DeviceRGB"}}}});
    }
    if (links_allowed && !page.links.empty()) {
        array annots;
        for (auto const& link : page.links) {
            annot::annot a{.rect = link.link_rect,
                           .border = annot::annot_border{0, annot::border_style::solid},
                           .subtype = std::visit(overloaded{
                                                     [](dest::dest const& t) -> annot::annot_subtype {
                                                         return annot::link_dest{t, std::nullopt};
                                                     },
                                                     [](action::action const& t) -> annot::annot_subtype {
                                                         return annot::link_action{t, std::nullopt};
                                                     },
                                                 },
                                                 link.link_target)};
            auto d = annot::annot_dict(a, pages);
            // An archival file is printed as it is seen: its annotations carry the print flag.
            if (w.writer_profile == profile::pdf_profile::pdfa_1a || w.writer_profile == profile::pdf_profile::pdfa_1b) {
                d.dict_entries.emplace_back("F", std::int64_t{4});
            }
            annots.array_items.emplace_back(std::move(d));
        }
        d.dict_entries.emplace_back("Annots", std::move(annots));
    }
    write_object(w, page_ref, d);
}

} // namespace

void write_pdf_document(log::log const& log, bulkio::output::output out, pdf_document const& doc) {
    auto const options = conformance::apply_profile(log, doc.doc_options);
    if (options.pdf_script) {
        log::log_warning(log, "document scripts are not supported yet: the script is not written");
    }
    std::string const id = options.pdf_id ? document_id_from_hex(*options.pdf_id) : new_document_id();
    // The keys come before any byte is written: a file that was asked to be encrypted and cannot be
    // must not come out in the clear.
    std::optional<encryption> crypt;
    if (options.encrypt) {
        auto const keys = encrypt::make_encrypt_keys(id, options.encrypt_info);
        if (!keys) {
            throw internal_error(keys.error());
        }
        crypt = encrypt::encryption_of(*keys);
    }
    auto file = bulkio::buffer::open(out);
    auto version = choose_version(options);
    // 16-bit image samples came with PDF 1.5.
    if (version == pdf_version::pdf_1_4 && doc.page_objects && doc.page_objects->needs_pdf_1_5()) {
        version = pdf_version::pdf_1_5;
    }
    writer w = start_pdf(*file, version, options.pdf_profile, id, std::move(crypt));

    // A profile that requires dates has both stamped with the time of writing; otherwise a missing date
    // is the time of writing too, and the information dictionary and the XMP packet state the same.
    auto const now = local_now();
    metadata::metadata meta = doc.doc_metadata;
    if (requires_dates(w)) {
        meta.creation_date = metadata_date(now);
        meta.modification_date = metadata_date(now);
    }
    conformance::document_dates const dates{
        .creation = meta.creation_date ? date_of(*meta.creation_date) : now,
        .modification = meta.modification_date ? date_of(*meta.modification_date) : now,
    };
    auto const allowed = [&](bool profile::profile_rules::*what) {
        return !options.pdf_profile || profile::rules_of(*options.pdf_profile).*what;
    };

    ref const catalog = new_ref(w);
    ref const page_tree = new_ref(w);
    std::vector<ref> page_refs;
    page_refs.reserve(doc.pages.size());
    for (std::size_t i = 0; i < doc.pages.size(); ++i) {
        page_refs.push_back(new_ref(w));
    }
    dest::page_refs const lookup = [&](int n) -> std::optional<ref> {
        if (n < 1 || static_cast<std::size_t>(n) > page_refs.size()) {
            return std::nullopt;
        }
        return page_refs[static_cast<std::size_t>(n - 1)];
    };

    dict cat{{{"Type", name{"Catalog"}}, {"Pages", page_tree}}};
    if (options.pdf_paper_tray == metadata::pdf_paper_tray::pick_tray_by_pdf_size ||
        options.pdf_print_scaling == metadata::pdf_print_scaling::none) {
        dict prefs;
        if (options.pdf_paper_tray == metadata::pdf_paper_tray::pick_tray_by_pdf_size) {
            prefs.dict_entries.emplace_back("PickTrayByPDFSize", true);
        }
        if (options.pdf_print_scaling == metadata::pdf_print_scaling::none) {
            prefs.dict_entries.emplace_back("PrintScaling", name{"None"});
        }
        cat.dict_entries.emplace_back("ViewerPreferences", std::move(prefs));
    }
    std::visit(overloaded{
                   [](metadata::open_action_none const&) {},
                   [&](metadata::open_action_print const&) {
                       cat.dict_entries.emplace_back(
                           "OpenAction", dict{{{"Type", name{"Action"}}, {"S", name{"Named"}}, {"N", name{"Print"}}}});
                   },
                   [&](metadata::open_action_command const& c) {
                       cat.dict_entries.emplace_back(
                           "OpenAction",
                           dict{{{"Type", name{"Action"}}, {"S", name{"Named"}}, {"N", name{c.command_name}}}});
                   },
               },
               options.pdf_open_action);
    switch (options.pdf_page_mode) {
    case metadata::pdf_page_mode::auto_mode:
        break;
    case metadata::pdf_page_mode::show_bookmarks:
        cat.dict_entries.emplace_back("PageMode", name{"UseOutlines"});
        break;
    case metadata::pdf_page_mode::fullscreen:
        cat.dict_entries.emplace_back("PageMode", name{"FullScreen"});
        break;
    case metadata::pdf_page_mode::show_attachments:
        cat.dict_entries.emplace_back("PageMode", name{"UseAttachments"});
        break;
    }
    switch (options.pdf_page_layout) {
    case metadata::pdf_page_layout::single_page:
        break;
    case metadata::pdf_page_layout::one_column:
        cat.dict_entries.emplace_back("PageLayout", name{"OneColumn"});
        break;
    case metadata::pdf_page_layout::two_column_left:
        cat.dict_entries.emplace_back("PageLayout", name{"TwoColumnLeft"});
        break;
    case metadata::pdf_page_layout::two_column_right:
        cat.dict_entries.emplace_back("PageLayout", name{"TwoColumnRight"});
        break;
    }
    dict names;
    if (!doc.destinations.empty()) {
        names.dict_entries.emplace_back("Dests", dict{{{"Names", dest::named_destinations(doc.destinations, lookup)}}});
    }
    // Each embedded file is a file specification and a stream, numbered before the catalog names them.
    std::vector<std::pair<ref, ref>> attachment_refs;
    // The attachments were loaded before the options met the profile; one that forbids them drops them.
    std::vector<embedded_file> const no_attachments;
    auto const& attachments = !allowed(&profile::profile_rules::attachments_allowed) ? no_attachments : doc.attachments;
    if (!attachments.empty()) {
        array files;
        for (std::size_t i = 0; i < attachments.size(); ++i) {
            ref const spec = new_ref(w);
            ref const data = new_ref(w);
            attachment_refs.emplace_back(spec, data);
            files.array_items.push_back(string{attachment_key(i)});
            files.array_items.push_back(spec);
        }
        names.dict_entries.emplace_back("EmbeddedFiles", dict{{{"Names", std::move(files)}}});
    }
    if (!names.dict_entries.empty()) {
        cat.dict_entries.emplace_back("Names", std::move(names));
    }
    if (!doc.page_labels.empty()) {
        auto nums = page_label_nums(doc.page_labels);
        // One label for all pages that neither prefixes nor numbers in a style, or that counts in
        // decimals from 1, says nothing a viewer would not show anyway.
        dict const decimal_from_one{{{"St", std::int64_t{1}}, {"S", name{"D"}}}};
        bool const says_nothing = nums.array_items.size() == 2 && doc.page_labels.front().first == 0 &&
                                  (nums.array_items[1] == object{dict{}} ||
                                   nums.array_items[1] == object{decimal_from_one});
        if (!says_nothing) {
            cat.dict_entries.emplace_back("PageLabels", dict{{{"Nums", std::move(nums)}}});
        }
    }
    std::optional<ref> const outline_root = doc.bookmarks.empty() ? std::nullopt : std::optional<ref>(new_ref(w));
    if (outline_root) {
        cat.dict_entries.emplace_back("Outlines", *outline_root);
    }
    // A profile's file describes itself in an XMP packet and names the printing condition it was made
    // for in an output intent with its ICC profile.
    struct profile_objects {
        ref xmp;
        ref intent;
        ref icc;
    };
    std::optional<profile_objects> profile_refs;
    if (options.pdf_profile) {
        profile_refs = profile_objects{.xmp = new_ref(w), .intent = new_ref(w), .icc = new_ref(w)};
        cat.dict_entries.emplace_back("Metadata", profile_refs->xmp);
        cat.dict_entries.emplace_back("OutputIntents", array{{profile_refs->intent}});
    }
    // A tagged file says so, and its structure tree goes out after the pages that fill it.
    std::optional<ref> const struct_root = doc.structure ? std::optional<ref>(new_ref(w)) : std::nullopt;
    if (struct_root) {
        cat.dict_entries.emplace_back("MarkInfo", dict{{{"Marked", true}}});
        cat.dict_entries.emplace_back("StructTreeRoot", *struct_root);
        if (doc.doc_language) {
            cat.dict_entries.emplace_back("Lang", text_string(*doc.doc_language));
        }
    }
    write_root(w, catalog, cat);
    if (profile_refs) {
        write_profile_objects(log, w, *options.pdf_profile, doc.output_intent_icc, meta, options.producer, dates,
                              profile_refs->xmp, profile_refs->intent, profile_refs->icc);
    }
    if (outline_root) {
        outlines::write_outlines_at(w, *outline_root, doc.bookmarks, lookup);
    }
    for (std::size_t i = 0; i < attachments.size(); ++i) {
        auto const& file = attachments[i];
        auto const& [spec, data] = attachment_refs[i];
        write_object(w, spec,
                     dict{{{"Type", name{"Filespec"}},
                           {"F", text_string(file.file_name)},
                           {"EF", dict{{{"F", data}}}},
                           {"Desc", text_string(file.file_description)}}});
        // Embedded files are compressed whatever the option says.
        write_stream_bytes(w, data, stream_filter::deflate,
                           dict{{{"Type", name{"EmbeddedFile"}},
                                 {"Subtype", name{file.file_mime_type}},
                                 {"Params", dict{{{"Size", std::int64_t(file.file_bytes.size())}}}}}},
                           file.file_bytes);
    }

    array kids;
    for (ref const r : page_refs) {
        kids.array_items.emplace_back(r);
    }
    write_object(w, page_tree,
                 dict{{
                     {"Type", name{"Pages"}},
                     {"Kids", std::move(kids)},
                     {"Count", std::int64_t(doc.pages.size())},
                 }});

    std::map<int, ref> font_refs;
    for (int id : doc.used_font_ids) {
        font_refs.emplace(id, new_ref(w));
    }
    stream_filter const filter = options.compress ? stream_filter::deflate : stream_filter::as_is;
    content::gs state{.strip_transparency = strips_transparency(w), .rgb_as_cmyk = forbids_device_rgb(w)};
    for (std::size_t start = 0; start < doc.pages.size(); start += pages_per_batch) {
        std::size_t const end = std::min(doc.pages.size(), start + pages_per_batch);
        auto const bodies = page_bodies(std::span(doc.pages).subspan(start, end - start), filter);
        for (std::size_t i = start; i < end; ++i) {
            write_page(log, w, doc.pages[i], page_refs[i], page_tree, state, font_refs, filter, lookup,
                       allowed(&profile::profile_rules::link_annotations_allowed), doc.page_objects.get(),
                       doc.structure.get(), int(i), bodies[i - start]);
        }
    }
    if (struct_root) {
        doc.structure->write(w, *struct_root, page_refs);
    }
    if (doc.page_objects) {
        doc.page_objects->font_refs = font_refs;
        doc.page_objects->write_all(log, w, options.compress);
    }
    for (auto const& [id, r] : font_refs) {
        if (!doc.write_font) {
            throw internal_error("missing font: " + std::to_string(id));
        }
        doc.write_font(w, id, r);
    }
    dict info = options.pdf_profile ? conformance::profile_info_entries(*options.pdf_profile) : dict{};
    for (auto& entry : info_dict(meta, options, now).dict_entries) {
        info.dict_entries.push_back(std::move(entry));
    }
    write_info(w, info);
    write_encrypt(w);
    finish_pdf(w);
    bulkio::buffer::flush(*file);
}

std::string attachment_key(std::size_t index) {
    std::string digits = std::to_string(index);
    if (digits.size() < 3) {
        digits.insert(0, 3 - digits.size(), '0');
    }
    return "Attach" + digits;
}

void write_pdf(log::log const& log,
               bulkio::output::output out,
               metadata::metadata const& meta,
               metadata::pdf_options const& options,
               std::vector<page_frame> const& pages) {
    pdf_document doc{.doc_metadata = meta, .doc_options = options};
    for (auto const& frame : pages) {
        doc.pages.push_back({.boxes = {.media_box = {.right = real(frame.page_width), .top = real(frame.page_height)}}});
    }
    write_pdf_document(log, out, doc);
}

} // namespace vellum::pdf::writepdf
